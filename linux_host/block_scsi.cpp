// A direct-access SCSI device in front of a block device or an image file.
// Each command has one handler; what a plain block device can't do is refused
// with the sense a device that lacks the command gives.
#include "linux_host/block_scsi.h"

#include <algorithm>
#include <cstring>

#include "win32/win32.h"

namespace linux_host {

namespace {

constexpr uint8_t kTestUnitReady = 0x00;
constexpr uint8_t kRequestSense = 0x03;
constexpr uint8_t kInquiry = 0x12;
constexpr uint8_t kReadCapacity10 = 0x25;
constexpr uint8_t kRead10 = 0x28;
constexpr uint8_t kWrite10 = 0x2A;
constexpr uint8_t kVerify10 = 0x2F;
constexpr uint8_t kRead16 = 0x88;
constexpr uint8_t kWrite16 = 0x8A;
constexpr uint8_t kVerify16 = 0x8F;
constexpr uint8_t kServiceActionIn16 = 0x9E;
constexpr uint8_t kReadCapacity16Action = 0x10;
constexpr uint8_t kRead12 = 0xA8;
constexpr uint8_t kWrite12 = 0xAA;

constexpr uint8_t kAscInvalidOpcode = 0x20;
constexpr uint8_t kAscLbaOutOfRange = 0x21;
constexpr uint8_t kAscInvalidFieldInCdb = 0x24;
constexpr uint8_t kAscUnrecoveredReadError = 0x11;
constexpr uint8_t kAscWriteError = 0x0C;
constexpr uint8_t kAscWriteProtected = 0x27;
constexpr uint8_t kAscMediumNotPresent = 0x3A;

uint64_t be(const uint8_t* at, int bytes) {
  uint64_t v = 0;
  for (int i = 0; i < bytes; ++i) v = (v << 8) | at[i];
  return v;
}

void putBe(uint8_t* at, uint64_t v, int bytes) {
  for (int i = bytes - 1; i >= 0; --i) {
    at[i] = static_cast<uint8_t>(v);
    v >>= 8;
  }
}

// An ASCII field padded with spaces, as INQUIRY carries it.
void putText(uint8_t* at, size_t width, const std::string& text) {
  std::memset(at, ' ', width);
  for (size_t i = 0; i < width && i < text.size(); ++i) {
    const char c = text[i];
    at[i] = static_cast<uint8_t>(c >= 0x20 && c < 0x7F ? c : ' ');
  }
}

ScsiAnswer good(uint32_t transferred) {
  ScsiAnswer answer;
  answer.status = kStatusGood;
  answer.transferred = transferred;
  return answer;
}

}  // namespace

ScsiAnswer checkCondition(uint8_t senseKey, uint8_t asc, uint8_t ascq, bool informationValid, uint32_t information) {
  ScsiAnswer answer;
  answer.status = kStatusCheckCondition;
  answer.sense.assign(18, 0);
  answer.sense[0] = informationValid ? 0xF0 : 0x70;
  answer.sense[2] = senseKey;
  putBe(&answer.sense[3], information, 4);
  answer.sense[7] = 10;
  answer.sense[12] = asc;
  answer.sense[13] = ascq;
  return answer;
}

ScsiAnswer BlockScsiTarget::execute(const ScsiCommand& command) {
  if (command.cdb == nullptr || command.cdbLength < 6) return checkCondition(kSenseIllegalRequest, kAscInvalidOpcode, 0);
  const uint8_t* cdb = command.cdb;
  // A file or device without a whole sector holds no medium to speak of.
  const bool empty = medium_.sectorCount() == 0;
  switch (cdb[0]) {
    case kTestUnitReady:
      return empty ? checkCondition(kSenseNotReady, kAscMediumNotPresent, 0) : good(0);
    case kRequestSense: {
      // Nothing is pending: NO SENSE, fixed format.
      std::vector<uint8_t> sense(18, 0);
      sense[0] = 0x70;
      sense[7] = 10;
      return dataIn(command, sense);
    }
    case kInquiry:
      return inquiry(command);
    case kReadCapacity10:
      return empty ? checkCondition(kSenseNotReady, kAscMediumNotPresent, 0) : readCapacity10(command);
    case kServiceActionIn16:
      if ((cdb[1] & 0x1F) == kReadCapacity16Action && command.cdbLength >= 16) {
        return empty ? checkCondition(kSenseNotReady, kAscMediumNotPresent, 0) : readCapacity16(command);
      }
      break;
    case kRead10:
    case kWrite10:
    case kVerify10:
      if (command.cdbLength < 10) break;
      return transfer(command, be(cdb + 2, 4), static_cast<uint32_t>(be(cdb + 7, 2)), cdb[0] == kWrite10,
                      cdb[0] == kVerify10);
    case kRead12:
    case kWrite12:
      if (command.cdbLength < 12) break;
      return transfer(command, be(cdb + 2, 4), static_cast<uint32_t>(be(cdb + 6, 4)), cdb[0] == kWrite12, false);
    case kRead16:
    case kWrite16:
    case kVerify16:
      if (command.cdbLength < 16) break;
      return transfer(command, be(cdb + 2, 8), static_cast<uint32_t>(be(cdb + 10, 4)), cdb[0] == kWrite16,
                      cdb[0] == kVerify16);
    default:
      break;
  }
  return checkCondition(kSenseIllegalRequest, kAscInvalidOpcode, 0);
}

ScsiAnswer BlockScsiTarget::dataIn(const ScsiCommand& command, const std::vector<uint8_t>& answer) {
  if (command.direction == DataDirection::Out) return checkCondition(kSenseIllegalRequest, kAscInvalidFieldInCdb, 0);
  const uint32_t moved = std::min<uint32_t>(command.length, static_cast<uint32_t>(answer.size()));
  if (moved > 0 && command.data != nullptr) std::memcpy(command.data, answer.data(), moved);
  return good(command.data != nullptr ? moved : 0);
}

// Standard INQUIRY, 36 bytes:
//   0 peripheral device type 00h (direct access)  1 RMB (bit 7)
//   2 version 06h (SPC-4)  3 response data format 2  4 additional length 31
//   8 vendor (8)  16 product (16)  32 revision (4)
// VPD pages: 00h the list (00h 80h B1h); 80h the serial number;
//   B1h (60 bytes): 4..5 medium rotation rate.
ScsiAnswer BlockScsiTarget::inquiry(const ScsiCommand& command) {
  const uint8_t* cdb = command.cdb;
  const bool evpd = (cdb[1] & 0x01) != 0;
  const uint8_t page = cdb[2];
  const uint32_t allocation = static_cast<uint32_t>(be(cdb + 3, 2));
  std::vector<uint8_t> answer;
  if (!evpd) {
    if (page != 0) return checkCondition(kSenseIllegalRequest, kAscInvalidFieldInCdb, 0);
    answer.assign(36, 0);
    answer[1] = identity_.removable ? 0x80 : 0x00;
    answer[2] = 0x06;
    answer[3] = 0x02;
    answer[4] = 31;
    putText(&answer[8], 8, identity_.vendor);
    putText(&answer[16], 16, identity_.product);
    putText(&answer[32], 4, identity_.revision);
  } else if (page == 0x00) {
    answer = {0x00, 0x00, 0x00, 0x03, 0x00, 0x80, 0xB1};
  } else if (page == 0x80) {
    answer.assign(4, 0);
    answer[1] = 0x80;
    std::string serial = identity_.serial.substr(0, 252);
    answer[3] = static_cast<uint8_t>(serial.size());
    answer.insert(answer.end(), serial.begin(), serial.end());
  } else if (page == 0xB1) {
    answer.assign(64, 0);
    answer[1] = 0xB1;
    answer[3] = 0x3C;
    putBe(&answer[4], identity_.rotationRate, 2);
  } else {
    return checkCondition(kSenseIllegalRequest, kAscInvalidFieldInCdb, 0);
  }
  if (answer.size() > allocation) answer.resize(allocation);
  return dataIn(command, answer);
}

// READ CAPACITY (10), 8 bytes: 0 last LBA (4, FFFFFFFFh when it doesn't fit)
// 4 block length (4).
ScsiAnswer BlockScsiTarget::readCapacity10(const ScsiCommand& command) {
  std::vector<uint8_t> answer(8, 0);
  const uint64_t count = medium_.sectorCount();
  const uint64_t last = count == 0 ? 0 : count - 1;
  putBe(&answer[0], last > 0xFFFFFFFEull ? 0xFFFFFFFFull : last, 4);
  putBe(&answer[4], medium_.logicalSectorSize(), 4);
  return dataIn(command, answer);
}

// READ CAPACITY (16), 32 bytes: 0 last LBA (8) 8 block length (4)
// 13 logical blocks per physical block exponent (low nibble).
ScsiAnswer BlockScsiTarget::readCapacity16(const ScsiCommand& command) {
  std::vector<uint8_t> answer(32, 0);
  const uint64_t count = medium_.sectorCount();
  putBe(&answer[0], count == 0 ? 0 : count - 1, 8);
  putBe(&answer[8], medium_.logicalSectorSize(), 4);
  uint8_t exponent = 0;
  const uint32_t logical = medium_.logicalSectorSize();
  while (logical != 0 && (logical << (exponent + 1)) <= medium_.physicalSectorSize() && exponent < 15) ++exponent;
  answer[13] = exponent;
  const uint32_t allocation = static_cast<uint32_t>(be(command.cdb + 10, 4));
  if (answer.size() > allocation) answer.resize(allocation);
  return dataIn(command, answer);
}

ScsiAnswer BlockScsiTarget::transfer(const ScsiCommand& command, uint64_t lba, uint32_t blocks, bool write,
                                     bool verify) {
  const uint32_t size = medium_.logicalSectorSize();
  const uint64_t count = medium_.sectorCount();
  if (lba > count || blocks > count - lba) return checkCondition(kSenseIllegalRequest, kAscLbaOutOfRange, 0);
  const uint64_t bytes = static_cast<uint64_t>(blocks) * size;
  if (!verify) {
    const DataDirection wanted = write ? DataDirection::Out : DataDirection::In;
    if (bytes > command.length || (bytes > 0 && (command.data == nullptr || command.direction != wanted))) {
      return checkCondition(kSenseIllegalRequest, kAscInvalidFieldInCdb, 0);
    }
  }
  std::vector<uint8_t> scratch;
  for (uint32_t i = 0; i < blocks;) {
    // Whole commands at once; a failure is then narrowed to its first sector,
    // whose address the sense carries.
    const uint32_t run = blocks - i;
    uint8_t* at = nullptr;
    if (verify) {
      scratch.resize(static_cast<size_t>(run) * size);
      at = scratch.data();
    } else {
      at = command.data + static_cast<size_t>(i) * size;
    }
    const uint64_t offset = (lba + i) * size;
    uint32_t error = write ? medium_.write(offset, at, run * size) : medium_.read(offset, at, run * size);
    if (error == ERROR_SUCCESS) {
      i += run;
      continue;
    }
    uint32_t sound = 0;
    while (sound < run) {
      error = write ? medium_.write(offset + static_cast<uint64_t>(sound) * size, at + static_cast<size_t>(sound) * size, size)
                    : medium_.read(offset + static_cast<uint64_t>(sound) * size, at + static_cast<size_t>(sound) * size, size);
      if (error != ERROR_SUCCESS) break;
      ++sound;
    }
    const uint64_t failed = lba + i + sound;
    ScsiAnswer answer;
    if (error == ERROR_ACCESS_DENIED || error == ERROR_WRITE_PROTECT) {
      answer = checkCondition(kSenseDataProtect, kAscWriteProtected, 0);
    } else if (write) {
      answer = checkCondition(kSenseMediumError, kAscWriteError, 0, failed <= 0xFFFFFFFFull,
                              static_cast<uint32_t>(failed));
    } else {
      answer = checkCondition(kSenseMediumError, kAscUnrecoveredReadError, 0, failed <= 0xFFFFFFFFull,
                              static_cast<uint32_t>(failed));
    }
    answer.transferred = verify ? 0 : (i + sound) * size;
    return answer;
  }
  return good(verify ? 0 : static_cast<uint32_t>(bytes));
}

}  // namespace linux_host
