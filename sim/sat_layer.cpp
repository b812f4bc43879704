// SCSI/ATA translation and the USB bridges' pass-throughs.
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

// VPD pages: 0x00, 0x80 (serial), 0x83 (device identification: the
// drive's world wide name as an NAA designator when IDENTIFY words 108-111
// hold one, and the T10 vendor identification "ATA" + model + serial), 0x89
// (ATA Information, where the SAT pass-through is: 8-15 SAT vendor, 16-31
// product, 32-35 revision, 36-55 the device signature as a register FIS
// (0x34), 56 command code (0xEC), 60-571 IDENTIFY data), 0xB1 (4-5 rotation
// rate from word 217, 7 form factor from word 168).
std::vector<uint8_t> SatLayer::vpdPage(uint8_t page) const {
  const bool sat = profile_.sat12 || profile_.sat16;
  std::vector<uint8_t> pages = {0x00, 0x80, 0x83};
  if (sat) pages.push_back(0x89);
  pages.push_back(0xB1);
  if (std::find(pages.begin(), pages.end(), page) == pages.end()) return {};
  std::vector<uint8_t> d(4, 0);
  switch (page) {
    case 0x00:
      d.insert(d.end(), pages.begin(), pages.end());
      break;
    case 0x80: {
      const std::string serial = profile_.serial.empty() ? ataString(10, 10) : profile_.serial;
      d.insert(d.end(), serial.begin(), serial.end());
      break;
    }
    case 0x83: {
      if ((word(87) & 0xC100) == 0x4100) {
        // 0 code set 1 (binary), 1 association 0 / type 3 (NAA), 3 length 8.
        const uint8_t naa[4] = {0x01, 0x03, 0x00, 0x08};
        d.insert(d.end(), naa, naa + 4);
        for (int i = 108; i <= 111; ++i) {
          d.push_back(static_cast<uint8_t>(word(i) >> 8));
          d.push_back(static_cast<uint8_t>(word(i)));
        }
      }
      // 0 code set 2 (ASCII), 1 type 1 (T10 vendor identification).
      std::vector<uint8_t> t10(4 + 8 + 40 + 20, ' ');
      t10[0] = 0x02;
      t10[1] = 0x01;
      t10[2] = 0x00;
      t10[3] = static_cast<uint8_t>(t10.size() - 4);
      putAscii(&t10[4], 8, "ATA");
      for (int i = 0; i < 20; ++i) {
        t10[12 + 2 * i] = static_cast<uint8_t>(word(27 + i) >> 8);
        t10[13 + 2 * i] = static_cast<uint8_t>(word(27 + i));
      }
      for (int i = 0; i < 10; ++i) {
        t10[52 + 2 * i] = static_cast<uint8_t>(word(10 + i) >> 8);
        t10[53 + 2 * i] = static_cast<uint8_t>(word(10 + i));
      }
      d.insert(d.end(), t10.begin(), t10.end());
      break;
    }
    case 0x89:
      d.resize(572, 0);
      putAscii(&d[8], 8, profile_.satVendor);
      putAscii(&d[16], 16, profile_.satProduct);
      putAscii(&d[32], 4, profile_.satRevision);
      // The register FIS of the device's signature: status 50h, error 01h,
      // count 01h, LBA 000001h, device 00h.
      d[36] = 0x34;
      d[38] = 0x50;
      d[39] = 0x01;
      d[40] = 0x01;
      d[48] = 0x01;
      d[56] = 0xEC;
      std::memcpy(&d[60], identify_.data(), 512);
      break;
    case 0xB1:
      d.resize(64, 0);
      putBe16(&d[4], word(217));
      d[7] = static_cast<uint8_t>(word(168) & 0x0F);
      break;
  }
  d[1] = page;
  putBe16(&d[2], static_cast<uint16_t>(d.size() - 4));
  return d;
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

bool SatLayer::smartRead(uint8_t feature, uint8_t logAddress, uint8_t* block) {
  AtaRequest a;
  a.in.feature = feature;
  a.in.count = 1;
  a.in.lbaLow = logAddress;
  a.in.lbaMid = 0x4F;
  a.in.lbaHigh = 0xC2;
  a.in.device = 0xA0;
  a.in.command = 0xB0;
  a.direction = Direction::In;
  a.data = block;
  a.length = 512;
  std::memset(block, 0, 512);
  const AtaResponse ata = drive_ ? drive_->executeAta(a) : AtaResponse{Completion::NoDevice, {}, 0};
  return ata.completion == Completion::Done && (ata.out.status & (kAtaErr | kAtaDf)) == 0 && ata.transferred == 512;
}

bool SatLayer::smartThresholdExceeded(bool* exceeded) {
  AtaRequest a;
  a.in.feature = 0xDA;
  a.in.lbaMid = 0x4F;
  a.in.lbaHigh = 0xC2;
  a.in.device = 0xA0;
  a.in.command = 0xB0;
  const AtaResponse ata = drive_ ? drive_->executeAta(a) : AtaResponse{Completion::NoDevice, {}, 0};
  if (ata.completion != Completion::Done || (ata.out.status & (kAtaErr | kAtaDf)) != 0) return false;
  *exceeded = ata.out.lbaMid == 0xF4 && ata.out.lbaHigh == 0x2C;
  return true;
}

int SatLayer::temperature(int* reference) {
  *reference = -1000;
  uint8_t block[512];
  int celsius = -1000;
  if ((word(85) & 0x0001) != 0 && smartRead(0xD0, 0, block)) {
    for (int id : {194, 190}) {
      for (int i = 0; i < 30 && celsius == -1000; ++i) {
        if (block[2 + 12 * i] == id) celsius = block[2 + 12 * i + 5];
      }
    }
  }
  if ((word(206) & 0x0001) != 0 && smartRead(0xD5, 0xE0, block)) {
    if (celsius == -1000 && block[200] != 0x80) celsius = static_cast<int8_t>(block[200]);
    if (block[205] != 0 && block[205] != 0x80) *reference = static_cast<int8_t>(block[205]);
  }
  return celsius;
}

// Mode pages made from the drive's state. Read-write error recovery (0x01,
// 12 bytes): 2 AWRE and ARRE, as a drive reallocates on its own. Caching
// (0x08, 20 bytes): 2 WCE
// from IDENTIFY word 85 bit 5, 12 DRA (read-ahead off) from word 85 bit 6.
// Control (0x0A, 12 bytes): 2 D_SENSE when this translation's sense is in
// descriptor format, 3 queue algorithm modifier 1, 10-11 extended self-test
// completion time in seconds from SMART data byte 373 (or 375-376) minutes.
// Informational exceptions control (0x1C, 12 bytes): 2 DEXCPT (bit 3) when
// SMART is off (word 85 bit 0), 3 MRIE 6. D_SENSE and DEXCPT are
// changeable (modeSelect); nothing else is.
std::vector<uint8_t> SatLayer::modePage(uint8_t page, uint8_t control, const uint8_t* smartData) {
  const bool changeable = control == 1;
  std::vector<uint8_t> p;
  switch (page) {
    case 0x01:
      p.assign(12, 0);
      p[0] = 0x01;
      p[1] = 0x0A;
      if (!changeable) p[2] = 0xC0;
      break;
    case 0x08:
      p.assign(20, 0);
      p[0] = 0x08;
      p[1] = 0x12;
      if (!changeable) {
        p[2] = (word(85) & 0x0020) != 0 ? 0x04 : 0x00;
        p[12] = (word(85) & 0x0040) != 0 ? 0x00 : 0x20;
      }
      break;
    case 0x0A: {
      p.assign(12, 0);
      p[0] = 0x0A;
      p[1] = 0x0A;
      if (changeable) {
        p[2] = 0x04;
      } else {
        p[2] = profile_.senseFormat == SenseFormat::Descriptor ? 0x04 : 0x00;
        p[3] = 0x10;
        uint32_t minutes = smartData[373];
        if (minutes == 0xFF) minutes = uint32_t{smartData[375]} | uint32_t{smartData[376]} << 8;
        putBe16(&p[10], static_cast<uint16_t>(std::min<uint32_t>(minutes * 60, 0xFFFF)));
      }
      break;
    }
    case 0x1C:
      p.assign(12, 0);
      p[0] = 0x1C;
      p[1] = 0x0A;
      if (changeable) {
        p[2] = 0x08;
      } else {
        p[2] = (word(85) & 0x0001) != 0 ? 0x00 : 0x08;
        p[3] = 0x06;
      }
      break;
    default:
      break;
  }
  return p;
}

// MODE SENSE (6)/(10): the read-write error recovery, caching, control and
// informational exceptions pages, one or all (0x3F), after the header and block descriptor of
// modeParameterData. Saved values are not kept (page control 3 is refused).
ScsiResponse SatLayer::modeSense(const ScsiRequest& r) {
  const uint8_t* c = r.cdb;
  const uint8_t control = c[2] >> 6;
  const uint8_t page = c[2] & 0x3F;
  const uint8_t subpage = c[3];
  if (control == 3) return checkCondition(profile_.senseFormat, kSenseIllegalRequest, kAscSavingNotSupported);
  if (subpage != 0 && !(page == 0x3F && subpage == 0xFF)) {
    return illegalRequest(profile_.senseFormat, kAscInvalidFieldInCdb);
  }
  Completion completion;
  if (!identify(&completion)) {
    if (completion != Completion::Done) return ScsiResponse{completion, 0, {}, 0};
    return checkCondition(profile_.senseFormat, kSenseHardwareError, kAscInternalTargetFailure);
  }
  // The SMART data only for the control page's self-test time.
  uint8_t smartData[512] = {};
  if ((word(85) & 0x0001) != 0 && (page == 0x3F || page == 0x0A) && control != 1) smartRead(0xD0, 0, smartData);
  std::vector<uint8_t> pages;
  if (page == 0x3F) {
    for (uint8_t p : {0x01, 0x08, 0x0A, 0x1C}) {
      const auto one = modePage(p, control, smartData);
      pages.insert(pages.end(), one.begin(), one.end());
    }
  } else {
    pages = modePage(page, control, smartData);
    if (pages.empty()) return illegalRequest(profile_.senseFormat, kAscInvalidFieldInCdb);
  }
  const auto d = modeParameterData(c, capacity(), logicalSize(), 0x00, pages);
  return dataIn(r, d.data(), d.size(), c[0] == 0x1A ? c[4] : getBe16(c + 7));
}

// MODE SELECT (6)/(10): 1 PF (bit 4) and SP (bit 0), 4 or 7-8 the parameter
// list length. The list: the MODE SENSE header, block descriptors, pages.
// DEXCPT of page 0x1C becomes SMART DISABLE or ENABLE OPERATIONS, D_SENSE of
// page 0x0A the sense format of this translation; any other value must be
// what MODE SENSE reports (INVALID FIELD IN PARAMETER LIST otherwise). SP is
// refused: nothing is saved here.
ScsiResponse SatLayer::modeSelect(const ScsiRequest& r) {
  const uint8_t* c = r.cdb;
  const bool ten = c[0] == 0x55;
  const SenseFormat f = profile_.senseFormat;
  if ((c[1] & 0x01) != 0) return illegalRequest(f, kAscInvalidFieldInCdb);
  const uint32_t length = ten ? getBe16(c + 7) : c[4];
  if (length == 0) return ScsiResponse{};
  if (r.direction != Direction::Out || r.data == nullptr || r.length < length) {
    return illegalRequest(f, kAscParameterListLengthError);
  }
  Completion completion;
  if (!identify(&completion)) {
    if (completion != Completion::Done) return ScsiResponse{completion, 0, {}, 0};
    return checkCondition(f, kSenseHardwareError, kAscInternalTargetFailure);
  }
  const uint8_t* p = r.data;
  const size_t header = ten ? 8 : 4;
  if (length < header) return illegalRequest(f, kAscParameterListLengthError);
  size_t at = header + (ten ? getBe16(p + 6) : p[3]);
  if (at > length) return illegalRequest(f, kAscParameterListLengthError);
  // The SMART data only for the control page's self-test time.
  uint8_t smartData[512] = {};
  bool control = false;
  for (size_t q = at; q + 2 <= length; q += size_t{p[q + 1]} + 2) control = control || (p[q] & 0x3F) == 0x0A;
  if ((word(85) & 0x0001) != 0 && control) smartRead(0xD0, 0, smartData);
  int smartWanted = -1;  // -1: unchanged, 0 disable, 1 enable
  SenseFormat format = f;
  while (at < length) {
    if (at + 2 > length) return illegalRequest(f, kAscParameterListLengthError);
    const uint8_t code = p[at] & 0x3F;
    const size_t pageLength = size_t{p[at + 1]} + 2;
    if (at + pageLength > length) return illegalRequest(f, kAscParameterListLengthError);
    std::vector<uint8_t> current = modePage(code, 0, smartData);
    const std::vector<uint8_t> changeable = modePage(code, 1, smartData);
    if (current.empty() || current.size() != pageLength) return illegalRequest(f, kAscInvalidFieldInParameterList);
    for (size_t i = 2; i < pageLength; ++i) {
      if (((p[at + i] ^ current[i]) & ~changeable[i]) != 0) return illegalRequest(f, kAscInvalidFieldInParameterList);
    }
    if (code == 0x1C) smartWanted = (p[at + 2] & 0x08) != 0 ? 0 : 1;
    if (code == 0x0A) format = (p[at + 2] & 0x04) != 0 ? SenseFormat::Descriptor : SenseFormat::Fixed;
    at += pageLength;
  }
  if (smartWanted != -1 && smartWanted != ((word(85) & 0x0001) != 0 ? 1 : 0)) {
    AtaRequest a;
    a.in.feature = smartWanted == 1 ? 0xD8 : 0xD9;
    a.in.lbaMid = 0x4F;
    a.in.lbaHigh = 0xC2;
    a.in.device = 0xA0;
    a.in.command = 0xB0;
    const AtaResponse ata = drive_ ? drive_->executeAta(a) : AtaResponse{Completion::NoDevice, {}, 0};
    if (ata.completion != Completion::Done) return ScsiResponse{ata.completion, 0, {}, 0};
    if ((ata.out.status & (kAtaErr | kAtaDf)) != 0) return translateError(ata, false);
    haveIdentify_ = false;  // word 85 has changed
  }
  profile_.senseFormat = format;
  ScsiResponse ok;
  ok.transferred = length;
  return ok;
}

// Self-test results page (0x10) from SMART self-test log 6: twenty
// parameters of 20 bytes, code 1 the newest: 4 self-test code (7:5, from the
// subcommand: 1 background short, 2 background extended, 5/6 their captive
// forms) | result (3:0, the execution status nibble), 5 segment (the
// checkpoint byte), 6-7 lifetime hours, 8-15 failing LBA (all ones when
// none), 16-18 sense key, ASC, ASCQ of the result (passed: none; aborted or
// interrupted: ABORTED COMMAND; read failure: MEDIUM ERROR, UNRECOVERED READ
// ERROR; any other failure: HARDWARE ERROR, LOGICAL UNIT FAILED SELF-TEST).
std::vector<uint8_t> SatLayer::selfTestLogPage(const uint8_t* log) {
  std::vector<uint8_t> d(4 + 20 * 20, 0);
  const uint8_t newest = log[508];
  for (int i = 0; i < 20; ++i) {
    uint8_t* p = &d[4 + 20 * i];
    putBe16(p, static_cast<uint16_t>(i + 1));
    p[2] = 0x03;
    p[3] = 0x10;
    if (newest == 0 || newest > 21 || i >= 21) continue;
    const int slot = ((newest - 1 - i) % 21 + 21) % 21;
    const uint8_t* e = log + 2 + 24 * slot;
    if (e[0] == 0 && e[1] == 0 && e[2] == 0 && e[3] == 0) continue;  // never written
    uint8_t code = 0;
    switch (e[0]) {
      case 0x01: code = 1; break;
      case 0x02: code = 2; break;
      case 0x81: code = 5; break;
      case 0x82: code = 6; break;
      default: break;
    }
    const uint8_t result = e[1] >> 4;
    p[4] = static_cast<uint8_t>(code << 5 | result);
    p[5] = e[4];
    p[6] = e[3];
    p[7] = e[2];
    const uint32_t lba = uint32_t{e[5]} | uint32_t{e[6]} << 8 | uint32_t{e[7]} << 16 | uint32_t{e[8]} << 24;
    putBe64(p + 8, result >= 3 && result <= 8 && lba != 0xFFFFFFFFu ? lba : ~0ULL);
    if (result == 1 || result == 2) {
      p[16] = kSenseAbortedCommand;
    } else if (result == 7) {
      p[16] = kSenseMediumError;
      p[17] = 0x11;
    } else if (result >= 3 && result <= 8) {
      p[16] = kSenseHardwareError;
      p[17] = 0x3E;
      p[18] = 0x03;
    }
  }
  return d;
}

// LOG SENSE: supported pages (0x00), temperature (0x0D: 0x0000 the drive's
// temperature, 0x0001 the SCT maximum operating temperature as reference;
// 0xFF when unknown), self-test results (0x10, selfTestLogPage) and
// informational exceptions (0x2F: 4-5 ASC/ASCQ, 5Dh/10h when SMART RETURN
// STATUS reports a threshold exceeded, 6 temperature, 7 the reference).
ScsiResponse SatLayer::logSense(const ScsiRequest& r) {
  const uint8_t* c = r.cdb;
  if ((c[1] & 0x02) != 0 || c[3] != 0) return illegalRequest(profile_.senseFormat, kAscInvalidFieldInCdb);
  Completion completion;
  if (!identify(&completion)) {
    if (completion != Completion::Done) return ScsiResponse{completion, 0, {}, 0};
    return checkCondition(profile_.senseFormat, kSenseHardwareError, kAscInternalTargetFailure);
  }
  const bool smart = (word(82) & 0x0001) != 0 && (word(85) & 0x0001) != 0;
  const bool selfTest = smart && (word(84) & 0x0002) != 0;
  std::vector<uint8_t> supported = {0x00};
  if (smart) supported.push_back(0x0D);
  if (selfTest) supported.push_back(0x10);
  if (smart) supported.push_back(0x2F);
  const uint8_t page = c[2] & 0x3F;
  if (std::find(supported.begin(), supported.end(), page) == supported.end()) {
    return illegalRequest(profile_.senseFormat, kAscInvalidFieldInCdb);
  }
  std::vector<uint8_t> d(4, 0);
  int reference = -1000;
  const auto celsius = [](int t) { return static_cast<uint8_t>(t == -1000 ? 0xFF : std::clamp(t, 0, 254)); };
  switch (page) {
    case 0x00:
      d.insert(d.end(), supported.begin(), supported.end());
      break;
    case 0x0D: {
      const int t = temperature(&reference);
      d.insert(d.end(), {0x00, 0x00, 0x03, 0x02, 0x00, celsius(t), 0x00, 0x01, 0x03, 0x02, 0x00, celsius(reference)});
      break;
    }
    case 0x10: {
      uint8_t log[512];
      if (!smartRead(0xD5, 0x06, log)) {
        return checkCondition(profile_.senseFormat, kSenseHardwareError, kAscInternalTargetFailure);
      }
      d = selfTestLogPage(log);
      break;
    }
    case 0x2F: {
      bool exceeded = false;
      if (!smartThresholdExceeded(&exceeded)) {
        return checkCondition(profile_.senseFormat, kSenseHardwareError, kAscInternalTargetFailure);
      }
      const int t = temperature(&reference);
      d.insert(d.end(), {0x00, 0x00, 0x03, 0x04, static_cast<uint8_t>(exceeded ? 0x5D : 0x00),
                         static_cast<uint8_t>(exceeded ? 0x10 : 0x00), celsius(t), celsius(reference)});
      break;
    }
    default:
      break;
  }
  d[0] = page;
  putBe16(&d[2], static_cast<uint16_t>(d.size() - 4));
  return dataIn(r, d.data(), d.size(), getBe16(c + 7));
}

// REPORT LUNS: one logical unit, LUN 0. 0-3 list length, 8-15 the LUN.
ScsiResponse SatLayer::reportLuns(const ScsiRequest& r) {
  uint8_t d[16] = {};
  putBe32(d, 8);
  return dataIn(r, d, sizeof d, getBe32(r.cdb + 6));
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
