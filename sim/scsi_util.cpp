// Sense data, CDB decoding and data phases shared by the SCSI targets.
#include "sim/scsi_util.h"

#include <algorithm>
#include <cstring>

namespace sim {

std::vector<uint8_t> buildSense(SenseFormat format, const SenseInfo& info) {
  if (format == SenseFormat::Fixed) {
    std::vector<uint8_t> s(18, 0);
    // INFORMATION holds 32 bits here; a larger value leaves VALID clear.
    const bool valid = info.informationValid && info.information <= 0xFFFFFFFFULL;
    s[0] = static_cast<uint8_t>(0x70 | (valid ? 0x80 : 0));
    s[2] = info.key & 0x0F;
    putBe32(&s[3], static_cast<uint32_t>(info.information));
    s[7] = 10;
    s[12] = static_cast<uint8_t>(info.asc >> 8);
    s[13] = static_cast<uint8_t>(info.asc);
    if (info.sksValid) {
      s[15] = static_cast<uint8_t>(0x80 | info.sks[0]);
      s[16] = info.sks[1];
      s[17] = info.sks[2];
    }
    return s;
  }
  std::vector<uint8_t> s(8, 0);
  s[0] = 0x72;
  s[1] = info.key & 0x0F;
  s[2] = static_cast<uint8_t>(info.asc >> 8);
  s[3] = static_cast<uint8_t>(info.asc);
  if (info.informationValid) {
    uint8_t d[12] = {0x00, 0x0A, 0x80, 0};
    putBe64(d + 4, info.information);
    s.insert(s.end(), d, d + sizeof d);
  }
  if (info.sksValid) {
    const uint8_t d[8] = {0x02, 0x06, 0, 0, static_cast<uint8_t>(0x80 | info.sks[0]), info.sks[1], info.sks[2], 0};
    s.insert(s.end(), d, d + sizeof d);
  }
  s.insert(s.end(), info.extraDescriptors.begin(), info.extraDescriptors.end());
  s[7] = static_cast<uint8_t>(s.size() - 8);
  return s;
}

ScsiResponse checkCondition(SenseFormat format, const SenseInfo& info) {
  ScsiResponse r;
  r.status = 0x02;
  r.sense = buildSense(format, info);
  return r;
}

ScsiResponse checkCondition(SenseFormat format, uint8_t key, uint16_t asc) {
  SenseInfo info;
  info.key = key;
  info.asc = asc;
  return checkCondition(format, info);
}

ScsiResponse illegalRequest(SenseFormat format, uint16_t asc) {
  return checkCondition(format, kSenseIllegalRequest, asc);
}

ScsiResponse dataIn(const ScsiRequest& request, const uint8_t* data, size_t length, size_t allocation) {
  ScsiResponse r;
  if (request.direction != Direction::In || request.data == nullptr) return r;
  const size_t n = std::min({length, allocation, size_t{request.length}});
  if (n > 0) std::memcpy(request.data, data, n);
  r.transferred = static_cast<uint32_t>(n);
  return r;
}

void putAscii(uint8_t* p, size_t width, const std::string& text) {
  for (size_t i = 0; i < width; ++i) p[i] = i < text.size() ? static_cast<uint8_t>(text[i]) : ' ';
}

uint8_t cdbLengthOf(uint8_t opcode) {
  switch (opcode >> 5) {
    case 0: return 6;
    case 1: case 2: return 10;
    case 4: return 16;
    case 5: return 12;
    default: return 6;  // vendor groups: at least six bytes
  }
}

bool isReadWrite(uint8_t opcode) {
  switch (opcode) {
    case 0x08: case 0x0A: case 0x28: case 0x2A: case 0xA8: case 0xAA: case 0x88: case 0x8A:
      return true;
    default:
      return false;
  }
}

// READ(6)/WRITE(6): 1-3 LBA (21 bits), 4 length (0 means 256).
// READ(10)/WRITE(10): 2-5 LBA, 7-8 length.
// READ(12)/WRITE(12): 2-5 LBA, 6-9 length.
// READ(16)/WRITE(16): 2-9 LBA, 10-13 length.
bool decodeReadWrite(const ScsiRequest& request, BlockRange* range) {
  const uint8_t* c = request.cdb;
  if (c == nullptr || request.cdbLength < cdbLengthOf(c[0])) return false;
  range->write = c[0] == 0x0A || c[0] == 0x2A || c[0] == 0xAA || c[0] == 0x8A;
  switch (c[0]) {
    case 0x08: case 0x0A:
      range->lba = uint64_t{c[1] & 0x1Fu} << 16 | uint64_t{c[2]} << 8 | c[3];
      range->count = c[4] == 0 ? 256 : c[4];
      return true;
    case 0x28: case 0x2A:
      range->lba = getBe32(c + 2);
      range->count = getBe16(c + 7);
      return true;
    case 0xA8: case 0xAA:
      range->lba = getBe32(c + 2);
      range->count = getBe32(c + 6);
      return true;
    case 0x88: case 0x8A:
      range->lba = getBe64(c + 2);
      range->count = getBe32(c + 10);
      return true;
    default:
      return false;
  }
}

std::vector<uint8_t> buildStandardInquiry(const InquiryIdentity& identity) {
  std::vector<uint8_t> d(96, 0);
  d[0] = 0x00;
  d[1] = identity.removable ? 0x80 : 0x00;
  d[2] = identity.version;
  d[3] = 0x12;  // HISUP, response data format 2
  d[4] = static_cast<uint8_t>(d.size() - 5);
  d[7] = 0x02;  // CMDQUE
  putAscii(&d[8], 8, identity.vendor);
  putAscii(&d[16], 16, identity.product);
  putAscii(&d[32], 4, identity.revision);
  for (size_t i = 0; i < identity.versionDescriptors.size() && i < 8; ++i) {
    putBe16(&d[58 + 2 * i], identity.versionDescriptors[i]);
  }
  return d;
}

std::vector<uint8_t> modeParameterData(const uint8_t* cdb, uint64_t blocks, uint32_t blockLength,
                                       uint8_t deviceSpecific, const std::vector<uint8_t>& pages) {
  const bool ten = cdb[0] == 0x5A;
  const bool dbd = (cdb[1] & 0x08) != 0;
  const bool longLba = ten && (cdb[1] & 0x10) != 0;
  const size_t header = ten ? 8 : 4;
  std::vector<uint8_t> d(header, 0);
  size_t descriptor = 0;
  if (!dbd && longLba) {
    uint8_t block[16] = {};
    putBe64(block, blocks);
    putBe32(block + 12, blockLength);
    d.insert(d.end(), block, block + 16);
    descriptor = 16;
  } else if (!dbd) {
    uint8_t block[8] = {};
    putBe32(block, blocks > 0xFFFFFFFFULL ? 0xFFFFFFFFu : static_cast<uint32_t>(blocks));
    block[5] = static_cast<uint8_t>(blockLength >> 16);
    block[6] = static_cast<uint8_t>(blockLength >> 8);
    block[7] = static_cast<uint8_t>(blockLength);
    d.insert(d.end(), block, block + 8);
    descriptor = 8;
  }
  d.insert(d.end(), pages.begin(), pages.end());
  if (ten) {
    putBe16(&d[0], static_cast<uint16_t>(d.size() - 2));
    d[3] = deviceSpecific;
    d[4] = descriptor == 16 ? 0x01 : 0x00;
    putBe16(&d[6], static_cast<uint16_t>(descriptor));
  } else {
    d[0] = static_cast<uint8_t>(std::min<size_t>(d.size() - 1, 255));
    d[2] = deviceSpecific;
    d[3] = static_cast<uint8_t>(descriptor);
  }
  return d;
}

void appendLogParameter(std::vector<uint8_t>& page, uint16_t code, uint8_t control, uint8_t length, uint64_t value) {
  page.push_back(static_cast<uint8_t>(code >> 8));
  page.push_back(static_cast<uint8_t>(code));
  page.push_back(control);
  page.push_back(length);
  for (int i = length - 1; i >= 0; --i) page.push_back(i < 8 ? static_cast<uint8_t>(value >> (8 * i)) : 0);
}

}  // namespace sim
