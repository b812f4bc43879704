// The SCSI/ATA translation's pages: VPD pages 0x83, 0x89 and 0xB1, the mode
// pages (with MODE SELECT), the log pages and REPORT LUNS, each made from
// the drive's IDENTIFY data, SMART data and logs as SAT describes. Command
// dispatch and the pass-throughs are in sat_layer.cpp.
#include <algorithm>
#include <cstring>
#include <vector>

#include "sim/sat_layer.h"

namespace sim {

namespace {

constexpr uint8_t kAtaErr = 0x01, kAtaDf = 0x20;

}  // namespace

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

}  // namespace sim
