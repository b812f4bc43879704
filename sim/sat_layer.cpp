// SCSI/ATA translation and the USB bridges' pass-throughs; the translated pages
// are in sat_pages.cpp.
#include "sim/sat_layer.h"

#include <algorithm>
#include <cstring>
#include <vector>

namespace sim {

namespace {

constexpr uint8_t kAtaPassThrough12 = 0xA1;
constexpr uint8_t kAtaPassThrough16 = 0x85;
constexpr uint8_t kJmicronPassThrough = 0xDF;
constexpr uint8_t kSunplusPassThrough = 0xF8;

// SAT protocol field values.
constexpr uint8_t kProtoHardReset = 0, kProtoSoftReset = 1, kProtoNonData = 3, kProtoPioIn = 4, kProtoPioOut = 5,
                  kProtoDma = 6, kProtoDiagnostic = 8, kProtoDeviceReset = 9, kProtoUdmaIn = 10, kProtoUdmaOut = 11,
                  kProtoFpdma = 12, kProtoReturnResponse = 15;

constexpr uint8_t kAtaErr = 0x01, kAtaDf = 0x20;
constexpr uint8_t kAtaUnc = 0x40, kAtaIdnf = 0x10, kAtaIcrc = 0x80;

AtaRequest blankRequest() { return AtaRequest{}; }

}  // namespace

BridgeProfile portTranslationProfile() { return BridgeProfile{}; }

BridgeProfile satBridgeProfile(bool ckCond) {
  BridgeProfile p;
  p.ckCond = ckCond;
  return p;
}

BridgeProfile jmicronBridgeProfile() {
  BridgeProfile p;
  p.sat12 = p.sat16 = false;
  p.jmicron = true;
  return p;
}

BridgeProfile sunplusBridgeProfile() {
  BridgeProfile p;
  p.sat12 = p.sat16 = false;
  p.sunplus = true;
  return p;
}

BridgeProfile scsiOnlyBridgeProfile() {
  BridgeProfile p;
  p.sat12 = p.sat16 = false;
  return p;
}

SatLayer::SatLayer(BridgeProfile profile, std::shared_ptr<AtaDevice> drive)
    : profile_(std::move(profile)), drive_(std::move(drive)) {}

ScsiResponse SatLayer::executeScsi(const ScsiRequest& r) {
  const SenseFormat f = profile_.senseFormat;
  if (r.cdb == nullptr || r.cdbLength == 0) return illegalRequest(f, kAscInvalidOpcode);
  const uint8_t opcode = r.cdb[0];
  const uint8_t need = opcode >= 0xC0 ? 12 : cdbLengthOf(opcode);
  if (r.cdbLength < need) return illegalRequest(f, kAscInvalidFieldInCdb);
  if (isReadWrite(opcode)) return readWrite(r);
  switch (opcode) {
    case 0x00: return ScsiResponse{};  // TEST UNIT READY
    case 0x03: {                       // REQUEST SENSE: nothing pending
      const auto sense = buildSense((r.cdb[1] & 1) ? SenseFormat::Descriptor : SenseFormat::Fixed, SenseInfo{});
      return dataIn(r, sense.data(), sense.size(), r.cdb[4]);
    }
    case 0x12: return inquiry(r);
    case 0x1A:
    case 0x5A: return modeSense(r);
    case 0x15:
    case 0x55: return modeSelect(r);
    case 0x25: return readCapacity(r, false);
    case 0x9E:
      if ((r.cdb[1] & 0x1F) != 0x10) return illegalRequest(f, kAscInvalidFieldInCdb);
      return readCapacity(r, true);
    case 0x35: return simpleAta(r, 0xEA);  // SYNCHRONIZE CACHE: FLUSH CACHE EXT
    case 0x4D: return logSense(r);
    case 0xA0: return reportLuns(r);
    case kAtaPassThrough12:
      if (profile_.sat12) return passThrough(r);
      break;
    case kAtaPassThrough16:
      if (profile_.sat16) return passThrough(r);
      break;
    case kJmicronPassThrough:
      if (profile_.jmicron) return jmicronPassThrough(r);
      break;
    case kSunplusPassThrough:
      if (profile_.sunplus) return sunplusPassThrough(r);
      break;
    default:
      break;
  }
  return illegalRequest(f, kAscInvalidOpcode);
}

// ATA PASS-THROUGH (SAT-3 12.2.2):
//   (12) 0xA1: 1 protocol (4:1), 2 flags, 3 features, 4 count, 5-7 LBA
//        low/mid/high, 8 device, 9 command
//   (16) 0x85: 1 protocol (4:1) | EXTEND (0), 2 flags, 3-4 features
//        (15:8, 7:0), 5-6 count, 7-12 LBA as (31:24, 7:0, 39:32, 15:8,
//        47:40, 23:16), 13 device, 14 command
//   flags: OFF_LINE (7:6), CK_COND (5), T_TYPE (4), T_DIR (3, 1 = in),
//          BYT_BLOK (2), T_LENGTH (1:0: 0 none, 1 features, 2 count)
// The answer: GOOD; or CHECK CONDITION with descriptor sense carrying the
// ATA Status Return descriptor (type 9, 14 bytes: 2 EXTEND, 3 error, 4-11
// count and LBA as (previous, current) pairs, 12 device, 13 status) when
// CK_COND asks for it (RECOVERED ERROR, ATA PASS THROUGH INFORMATION
// AVAILABLE) or the command failed (the sense key and additional sense of the
// ATA error, with the descriptor as the only one, so that it fits in 22 bytes).
ScsiResponse SatLayer::passThrough(const ScsiRequest& r) {
  const uint8_t* c = r.cdb;
  const bool sixteen = c[0] == kAtaPassThrough16;
  const uint8_t protocol = (c[1] >> 1) & 0x0F;
  const uint8_t flags = c[2];
  const bool ckCond = (flags & 0x20) != 0 && profile_.ckCond;
  const bool toHost = (flags & 0x08) != 0;
  const uint8_t tLength = flags & 0x03;
  AtaRequest a;
  if (sixteen) {
    a.extended = (c[1] & 0x01) != 0;
    a.in.featureExp = c[3];
    a.in.feature = c[4];
    a.in.countExp = c[5];
    a.in.count = c[6];
    a.in.lbaLowExp = c[7];
    a.in.lbaLow = c[8];
    a.in.lbaMidExp = c[9];
    a.in.lbaMid = c[10];
    a.in.lbaHighExp = c[11];
    a.in.lbaHigh = c[12];
    a.in.device = c[13];
    a.in.command = c[14];
  } else {
    a.in.feature = c[3];
    a.in.count = c[4];
    a.in.lbaLow = c[5];
    a.in.lbaMid = c[6];
    a.in.lbaHigh = c[7];
    a.in.device = c[8];
    a.in.command = c[9];
  }
  switch (protocol) {
    case kProtoReturnResponse: {
      // The registers of the last command: as data when the host gave a
      // data-in buffer, otherwise in sense.
      if (r.direction == Direction::In && r.data != nullptr) {
        return dataIn(r, lastDescriptor_.data(), lastDescriptor_.size(), lastDescriptor_.size());
      }
      SenseInfo info;
      info.key = kSenseRecoveredError;
      info.asc = kAscAtaPassThroughInfo;
      info.extraDescriptors.assign(lastDescriptor_.begin(), lastDescriptor_.end());
      return checkCondition(SenseFormat::Descriptor, info);
    }
    case kProtoHardReset:
    case kProtoSoftReset:
    case kProtoDeviceReset:
    case kProtoDiagnostic:
      return ScsiResponse{};
    case kProtoNonData:
      a.direction = Direction::None;
      break;
    case kProtoPioIn:
    case kProtoUdmaIn:
      if (!toHost) return illegalRequest(profile_.senseFormat, kAscInvalidFieldInCdb);
      a.direction = Direction::In;
      break;
    case kProtoPioOut:
    case kProtoUdmaOut:
      if (toHost) return illegalRequest(profile_.senseFormat, kAscInvalidFieldInCdb);
      a.direction = Direction::Out;
      break;
    case kProtoDma:
    case kProtoFpdma:
      a.direction = toHost ? Direction::In : Direction::Out;
      break;
    default:
      return illegalRequest(profile_.senseFormat, kAscInvalidFieldInCdb);
  }
  if (a.direction != Direction::None) {
    if (tLength == 0) return illegalRequest(profile_.senseFormat, kAscInvalidFieldInCdb);
    uint64_t units = tLength == 1 ? (uint64_t{a.in.featureExp} << 8 | a.in.feature)
                     : tLength == 2 ? (uint64_t{a.in.countExp} << 8 | a.in.count)
                                    : r.length;
    if (!sixteen || !a.extended) units &= 0xFF;
    uint64_t bytes = units;
    if ((flags & 0x04) != 0 && tLength != 3) bytes = units * ((flags & 0x10) != 0 ? logicalSizeOr512() : 512);
    const bool hostMatches = (a.direction == Direction::In) == (r.direction == Direction::In);
    a.data = hostMatches ? r.data : nullptr;
    a.length = hostMatches && r.data != nullptr ? static_cast<uint32_t>(std::min<uint64_t>(bytes, r.length)) : 0;
  }
  a.timeoutSeconds = r.timeoutSeconds;
  const AtaResponse ata = drive_ ? drive_->executeAta(a) : AtaResponse{Completion::NoDevice, {}, 0};
  if (ata.completion != Completion::Done) {
    ScsiResponse lost;
    lost.completion = ata.completion;
    return lost;
  }
  const auto& o = ata.out;
  lastDescriptor_ = {0x09, 0x0C, static_cast<uint8_t>(a.extended ? 1 : 0), o.error, o.countExp, o.count,
                     o.lbaLowExp, o.lbaLow, o.lbaMidExp, o.lbaMid, o.lbaHighExp, o.lbaHigh, o.device, o.status};
  ScsiResponse response;
  if ((o.status & (kAtaErr | kAtaDf)) != 0) {
    SenseInfo info = errorSense(ata, a.extended);
    if (profile_.ckCond) {
      // The ATA Status Return comes first and alone: it already holds the
      // failing LBA, and an information descriptor ahead of it would push it
      // past the 32 sense bytes a host such as Windows' pass-through keeps.
      info.informationValid = false;
      info.extraDescriptors.assign(lastDescriptor_.begin(), lastDescriptor_.end());
    }
    response = checkCondition(SenseFormat::Descriptor, info);
  } else if (ckCond) {
    SenseInfo info;
    info.key = kSenseRecoveredError;
    info.asc = kAscAtaPassThroughInfo;
    info.extraDescriptors.assign(lastDescriptor_.begin(), lastDescriptor_.end());
    response = checkCondition(SenseFormat::Descriptor, info);
  }
  response.transferred = ata.transferred;
  return response;
}

uint32_t SatLayer::logicalSizeOr512() {
  Completion ignored;
  return identify(&ignored) ? logicalSize() : 512;
}

// The ATA error as SCSI sense (SAT's error translation): UNC is MEDIUM
// ERROR, UNRECOVERED READ ERROR with the failing LBA; IDNF is ILLEGAL
// REQUEST, LBA OUT OF RANGE; ICRC is ABORTED COMMAND with a CRC error;
// device fault is HARDWARE ERROR; anything else (ABRT) ABORTED COMMAND.
ScsiResponse SatLayer::translateError(const AtaResponse& ata, bool extended) {
  return checkCondition(profile_.senseFormat, errorSense(ata, extended));
}

SenseInfo errorSense(const AtaResponse& ata, bool extended) {
  const auto& o = ata.out;
  SenseInfo info;
  if ((o.status & kAtaDf) != 0) {
    info.key = kSenseHardwareError;
    info.asc = kAscInternalTargetFailure;
  } else if ((o.error & kAtaUnc) != 0) {
    info.key = kSenseMediumError;
    info.asc = kAscUnrecoveredReadError;
    info.informationValid = true;
    info.information = uint64_t{o.lbaLow} | uint64_t{o.lbaMid} << 8 | uint64_t{o.lbaHigh} << 16;
    info.information |= extended ? (uint64_t{o.lbaLowExp} << 24 | uint64_t{o.lbaMidExp} << 32 |
                                    uint64_t{o.lbaHighExp} << 40)
                                 : uint64_t{o.device & 0x0Fu} << 24;
  } else if ((o.error & kAtaIdnf) != 0) {
    info.key = kSenseIllegalRequest;
    info.asc = kAscLbaOutOfRange;
  } else if ((o.error & kAtaIcrc) != 0) {
    info.key = kSenseAbortedCommand;
    info.asc = 0x4703;
  } else {
    info.key = kSenseAbortedCommand;  // ABRT and anything else
  }
  return info;
}

// JMicron pass-through 0xDF: 1 direction (0x10 data-in), 3-4 transfer
// length (big-endian), 5 features, 6 count, 7-9 LBA low/mid/high, 10
// device (0xA0 port 0, 0xB0 port 1), 11 command. 28-bit commands only;
// GOOD, or CHECK CONDITION with ABORTED COMMAND when the drive reported ERR.
// SMART RETURN STATUS asked with one byte of data-in answers the LBA High
// the drive left (0xC2 or 0x2C), the chip's way of giving the verdict.
// Command 0xFD reads the chip's registers instead: 6-7 the address, 3-4
// the length. At 0x8000 (port 0) the task file the last command left: 0
// count, 4 LBA mid, 6 LBA low, 9 device, 10 LBA high, 13 error, 14 status;
// at 0x720F the port status, bit 2 a device on port 0.
ScsiResponse SatLayer::jmicronPassThrough(const ScsiRequest& r) {
  const uint8_t* c = r.cdb;
  const uint32_t length = getBe16(c + 3);
  if (c[11] == 0xFD) {
    const uint16_t address = getBe16(c + 6);
    std::vector<uint8_t> regs(length, 0);
    for (uint32_t i = 0; i < length; ++i) {
      const uint32_t at = uint32_t{address} + i;
      if (at == 0x720F) regs[i] = 0x04;
      if (at >= 0x8000 && at < 0x8010) {
        const uint8_t task[16] = {lastDescriptor_[5], 0, 0, 0, lastDescriptor_[9], 0, lastDescriptor_[7], 0, 0,
                                  lastDescriptor_[12], lastDescriptor_[11], 0, 0, lastDescriptor_[3],
                                  lastDescriptor_[13], 0};
        regs[i] = task[at - 0x8000];
      }
    }
    return dataIn(r, regs.data(), regs.size(), length);
  }
  AtaRequest a = blankRequest();
  a.in.feature = c[5];
  a.in.count = c[6];
  a.in.lbaLow = c[7];
  a.in.lbaMid = c[8];
  a.in.lbaHigh = c[9];
  a.in.device = c[10];
  a.in.command = c[11];
  const bool in = (c[1] & 0x10) != 0 && (c[1] & 0x01) == 0;
  const bool smartStatus = a.in.command == 0xB0 && a.in.feature == 0xDA;
  if (length != 0 && !smartStatus) {
    a.direction = in ? Direction::In : Direction::Out;
    const bool hostMatches = (r.direction == Direction::In) == in && r.data != nullptr;
    a.data = hostMatches ? r.data : nullptr;
    a.length = hostMatches ? std::min(length, r.length) : 0;
  }
  a.timeoutSeconds = r.timeoutSeconds;
  const AtaResponse ata = drive_ ? drive_->executeAta(a) : AtaResponse{Completion::NoDevice, {}, 0};
  ScsiResponse response;
  if (ata.completion != Completion::Done) {
    response.completion = ata.completion;
    return response;
  }
  const auto& o = ata.out;
  lastDescriptor_ = {0x09, 0x0C, 0, o.error, o.countExp, o.count,
                     o.lbaLowExp, o.lbaLow, o.lbaMidExp, o.lbaMid, o.lbaHighExp, o.lbaHigh, o.device, o.status};
  if ((o.status & (kAtaErr | kAtaDf)) != 0) {
    response = checkCondition(profile_.senseFormat, kSenseAbortedCommand, 0);
  } else if (smartStatus && length != 0 && in) {
    return dataIn(r, &o.lbaHigh, 1, length);
  }
  response.transferred = ata.transferred;
  return response;
}

// Sunplus pass-through 0xF8: 2 sub-operation (0x21 read back registers
// into 8 bytes: 1 error, 2 count, 3-5 LBA, 6 device, 7 status; 0x22
// execute; 0x23 load the previous-value registers from 5-9), 3 mode (0x10
// data-in, 0x11 data-out), 4 transfer length in 512-byte blocks, 5
// features, 6 count, 7-9 LBA low/mid/high, 10 device, 11 command.
ScsiResponse SatLayer::sunplusPassThrough(const ScsiRequest& r) {
  const uint8_t* c = r.cdb;
  switch (c[2]) {
    case 0x21: {
      const uint8_t regs[8] = {0,
                               lastDescriptor_[3],
                               lastDescriptor_[5],
                               lastDescriptor_[7],
                               lastDescriptor_[9],
                               lastDescriptor_[11],
                               lastDescriptor_[12],
                               lastDescriptor_[13]};
      return dataIn(r, regs, sizeof regs, sizeof regs);
    }
    case 0x23:
      sunplusHigh_.featureExp = c[5];
      sunplusHigh_.countExp = c[6];
      sunplusHigh_.lbaLowExp = c[7];
      sunplusHigh_.lbaMidExp = c[8];
      sunplusHigh_.lbaHighExp = c[9];
      sunplusHighSet_ = true;
      return ScsiResponse{};
    case 0x22:
      break;
    default:
      return illegalRequest(profile_.senseFormat, kAscInvalidFieldInCdb);
  }
  AtaRequest a = blankRequest();
  if (sunplusHighSet_) {
    a.in = sunplusHigh_;
    a.extended = true;
    sunplusHighSet_ = false;
  }
  a.in.feature = c[5];
  a.in.count = c[6];
  a.in.lbaLow = c[7];
  a.in.lbaMid = c[8];
  a.in.lbaHigh = c[9];
  a.in.device = c[10];
  a.in.command = c[11];
  const uint32_t length = uint32_t{c[4]} * 512;
  if (length != 0 && (c[3] == 0x10 || c[3] == 0x11)) {
    const bool in = c[3] == 0x10;
    a.direction = in ? Direction::In : Direction::Out;
    const bool hostMatches = (r.direction == Direction::In) == in && r.data != nullptr;
    a.data = hostMatches ? r.data : nullptr;
    a.length = hostMatches ? std::min(length, r.length) : 0;
  }
  a.timeoutSeconds = r.timeoutSeconds;
  const AtaResponse ata = drive_ ? drive_->executeAta(a) : AtaResponse{Completion::NoDevice, {}, 0};
  ScsiResponse response;
  if (ata.completion != Completion::Done) {
    response.completion = ata.completion;
    return response;
  }
  const auto& o = ata.out;
  lastDescriptor_ = {0x09, 0x0C, static_cast<uint8_t>(a.extended ? 1 : 0), o.error, o.countExp, o.count,
                     o.lbaLowExp, o.lbaLow, o.lbaMidExp, o.lbaMid, o.lbaHighExp, o.lbaHigh, o.device, o.status};
  if ((o.status & (kAtaErr | kAtaDf)) != 0) response = checkCondition(profile_.senseFormat, kSenseAbortedCommand, 0);
  response.transferred = ata.transferred;
  return response;
}

bool SatLayer::identify(Completion* completion) {
  *completion = Completion::Done;
  if (haveIdentify_) return true;
  AtaRequest a;
  a.in.command = 0xEC;
  a.direction = Direction::In;
  a.data = identify_.data();
  a.length = 512;
  const AtaResponse ata = drive_ ? drive_->executeAta(a) : AtaResponse{Completion::NoDevice, {}, 0};
  *completion = ata.completion;
  haveIdentify_ = ata.completion == Completion::Done && (ata.out.status & kAtaErr) == 0 && ata.transferred == 512;
  return haveIdentify_;
}

std::string SatLayer::ataString(int first, int words) const {
  std::string s;
  for (int i = 0; i < words; ++i) {
    s += static_cast<char>(word(first + i) >> 8);
    s += static_cast<char>(word(first + i) & 0xFF);
  }
  while (!s.empty() && (s.back() == ' ' || s.back() == '\0')) s.pop_back();
  size_t lead = s.find_first_not_of(' ');
  return lead == std::string::npos ? std::string() : s.substr(lead);
}

uint64_t SatLayer::capacity() const {
  if (word(83) & 0x0400) {
    return uint64_t{word(100)} | uint64_t{word(101)} << 16 | uint64_t{word(102)} << 32 | uint64_t{word(103)} << 48;
  }
  return uint64_t{word(60)} | uint64_t{word(61)} << 16;
}

uint32_t SatLayer::logicalSize() const {
  const uint16_t w106 = word(106);
  if ((w106 & 0xD000) == 0x5000) return (uint32_t{word(117)} | uint32_t{word(118)} << 16) * 2;
  return 512;
}

ScsiResponse SatLayer::inquiry(const ScsiRequest& r) {
  const uint8_t* c = r.cdb;
  const bool evpd = (c[1] & 0x01) != 0;
  if ((c[1] & 0x02) != 0 || (!evpd && c[2] != 0)) return illegalRequest(profile_.senseFormat, kAscInvalidFieldInCdb);
  Completion completion;
  if (!identify(&completion)) {
    if (completion != Completion::Done) {
      ScsiResponse lost;
      lost.completion = completion;
      return lost;
    }
    return checkCondition(profile_.senseFormat, kSenseHardwareError, kAscInternalTargetFailure);
  }
  if (evpd) {
    const auto page = vpdPage(c[2]);
    if (page.empty()) return illegalRequest(profile_.senseFormat, kAscInvalidFieldInCdb);
    return dataIn(r, page.data(), page.size(), getBe16(c + 3));
  }
  InquiryIdentity id;
  id.removable = profile_.removable;
  if (profile_.vendor.empty()) {
    // SAT: vendor "ATA", product the model's first sixteen characters,
    // revision the firmware's last four.
    const std::string firmware = ataString(23, 4);
    id.vendor = "ATA";
    id.product = ataString(27, 20).substr(0, 16);
    id.revision = firmware.size() > 4 ? firmware.substr(firmware.size() - 4) : firmware;
    id.versionDescriptors = {0x0080, 0x1EC0, 0x0460, 0x04C0, 0x1623};
  } else {
    id.vendor = profile_.vendor;
    id.product = profile_.product;
    id.revision = profile_.revision;
    id.version = 4;
  }
  const auto data = buildStandardInquiry(id);
  return dataIn(r, data.data(), data.size(), getBe16(c + 3));
}

ScsiResponse SatLayer::readCapacity(const ScsiRequest& r, bool sixteen) {
  Completion completion;
  if (!identify(&completion)) {
    ScsiResponse lost = checkCondition(profile_.senseFormat, kSenseHardwareError, kAscInternalTargetFailure);
    if (completion != Completion::Done) lost = ScsiResponse{completion, 0, {}, 0};
    return lost;
  }
  const uint64_t last = capacity() == 0 ? 0 : capacity() - 1;
  if (!sixteen) {
    uint8_t d[8];
    putBe32(d, last > 0xFFFFFFFFULL ? 0xFFFFFFFFu : static_cast<uint32_t>(last));
    putBe32(d + 4, logicalSize());
    return dataIn(r, d, sizeof d, sizeof d);
  }
  uint8_t d[32] = {};
  putBe64(d, last);
  putBe32(d + 8, logicalSize());
  const uint16_t w106 = word(106);
  if ((w106 & 0xE000) == 0x6000) d[13] = static_cast<uint8_t>(w106 & 0x0F);
  return dataIn(r, d, sizeof d, getBe32(r.cdb + 10));
}

// READ/WRITE (6/10/12/16) become READ/WRITE SECTORS (EXT), at most 65536
// sectors (256 without the 48-bit feature set) a command.
ScsiResponse SatLayer::readWrite(const ScsiRequest& r) {
  BlockRange range;
  if (!decodeReadWrite(r, &range)) return illegalRequest(profile_.senseFormat, kAscInvalidFieldInCdb);
  Completion completion;
  if (!identify(&completion)) {
    if (completion != Completion::Done) return ScsiResponse{completion, 0, {}, 0};
    return checkCondition(profile_.senseFormat, kSenseHardwareError, kAscInternalTargetFailure);
  }
  const uint64_t total = capacity();
  if (range.lba > total || range.count > total - range.lba) {
    return illegalRequest(profile_.senseFormat, kAscLbaOutOfRange);
  }
  const uint32_t size = logicalSize();
  const bool lba48 = (word(83) & 0x0400) != 0;
  const uint64_t perCommand = lba48 ? 65536 : 256;
  const bool hostOk = r.data != nullptr && r.direction == (range.write ? Direction::Out : Direction::In) &&
                      r.length >= range.count * size;
  if (range.count != 0 && !hostOk) return illegalRequest(profile_.senseFormat, kAscInvalidFieldInCdb);
  ScsiResponse response;
  uint64_t done = 0;
  while (done < range.count) {
    const uint64_t n = std::min(perCommand, range.count - done);
    const uint64_t lba = range.lba + done;
    AtaRequest a;
    a.extended = lba48;
    a.in.command = range.write ? (lba48 ? 0x34 : 0x30) : (lba48 ? 0x24 : 0x20);
    a.in.device = 0x40;
    a.in.lbaLow = static_cast<uint8_t>(lba);
    a.in.lbaMid = static_cast<uint8_t>(lba >> 8);
    a.in.lbaHigh = static_cast<uint8_t>(lba >> 16);
    if (lba48) {
      a.in.lbaLowExp = static_cast<uint8_t>(lba >> 24);
      a.in.lbaMidExp = static_cast<uint8_t>(lba >> 32);
      a.in.lbaHighExp = static_cast<uint8_t>(lba >> 40);
      a.in.countExp = static_cast<uint8_t>(n >> 8);
    } else {
      a.in.device = static_cast<uint8_t>(0x40 | ((lba >> 24) & 0x0F));
    }
    a.in.count = static_cast<uint8_t>(n);
    a.direction = range.write ? Direction::Out : Direction::In;
    a.data = r.data + done * size;
    a.length = static_cast<uint32_t>(n * size);
    a.timeoutSeconds = r.timeoutSeconds;
    const AtaResponse ata = drive_ ? drive_->executeAta(a) : AtaResponse{Completion::NoDevice, {}, 0};
    if (ata.completion != Completion::Done) return ScsiResponse{ata.completion, 0, {}, 0};
    response.transferred += ata.transferred;
    if ((ata.out.status & (kAtaErr | kAtaDf)) != 0) {
      const uint32_t moved = response.transferred;
      response = translateError(ata, lba48);
      response.transferred = moved;
      return response;
    }
    done += n;
  }
  return response;
}

ScsiResponse SatLayer::simpleAta(const ScsiRequest&, uint8_t command) {
  AtaRequest a;
  a.in.command = command;
  a.extended = true;
  const AtaResponse ata = drive_ ? drive_->executeAta(a) : AtaResponse{Completion::NoDevice, {}, 0};
  if (ata.completion != Completion::Done) return ScsiResponse{ata.completion, 0, {}, 0};
  if ((ata.out.status & (kAtaErr | kAtaDf)) != 0) return translateError(ata, true);
  return ScsiResponse{};
}

}  // namespace sim
