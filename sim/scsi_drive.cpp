// The SCSI block device: SPC/SBC commands on a Media, background and
// foreground self tests on the virtual clock, and the informational
// exceptions (SMART) pages.
#include "sim/scsi_drive.h"

#include <algorithm>
#include <cstring>

namespace sim {

namespace {

constexpr uint8_t kTestUnitReady = 0x00;
constexpr uint8_t kRequestSense = 0x03;
constexpr uint8_t kInquiry = 0x12;
constexpr uint8_t kModeSelect6 = 0x15;
constexpr uint8_t kModeSense6 = 0x1A;
constexpr uint8_t kSendDiagnostic = 0x1D;
constexpr uint8_t kReadCapacity10 = 0x25;
constexpr uint8_t kSynchronizeCache10 = 0x35;
constexpr uint8_t kLogSense = 0x4D;
constexpr uint8_t kModeSelect10 = 0x55;
constexpr uint8_t kModeSense10 = 0x5A;
constexpr uint8_t kServiceActionIn16 = 0x9E;
constexpr uint8_t kReadCapacity16Action = 0x10;
constexpr uint8_t kReportLuns = 0xA0;

constexpr uint8_t kPageReadWriteRecovery = 0x01;
constexpr uint8_t kPageCaching = 0x08;
constexpr uint8_t kPageControl = 0x0A;
constexpr uint8_t kPageIec = 0x1C;
constexpr uint8_t kPageAll = 0x3F;

constexpr uint8_t kLogSupportedPages = 0x00;
constexpr uint8_t kLogWriteErrors = 0x02;
constexpr uint8_t kLogReadErrors = 0x03;
constexpr uint8_t kLogVerifyErrors = 0x05;
constexpr uint8_t kLogNonMediumErrors = 0x06;
constexpr uint8_t kLogBackgroundScan = 0x15;
constexpr uint8_t kLogTemperature = 0x0D;
constexpr uint8_t kLogSelfTest = 0x10;
constexpr uint8_t kLogInformationalExceptions = 0x2F;

// SEND DIAGNOSTIC self-test codes (byte 1 bits 7:5).
constexpr uint8_t kBackgroundShort = 1;
constexpr uint8_t kBackgroundExtended = 2;
constexpr uint8_t kAbortBackground = 4;
constexpr uint8_t kForegroundShort = 5;
constexpr uint8_t kForegroundExtended = 6;

constexpr uint64_t kNoLba = 0xFFFFFFFFFFFFFFFFULL;
// The vendor-specific ASC with which a healthQuirks target reports a
// predicted failure in its sense data.
constexpr uint16_t kAscVendorFailurePredicted = 0xD500;

}  // namespace

ScsiDrive::ScsiDrive(ScsiProfile profile, std::shared_ptr<Media> media, std::shared_ptr<VirtualClock> clock)
    : profile_(std::move(profile)),
      media_(media ? std::move(media) : std::make_shared<Media>(512, 0)),
      clock_(clock ? std::move(clock) : std::make_shared<VirtualClock>()),
      log_(profile_.selfTestLog) {}

// SPC: an allocation length of 0 moves no data. A target with healthQuirks
// answers it with the whole page instead.
size_t ScsiDrive::allocationOf(size_t allocation, size_t whole) const {
  return allocation == 0 && profile_.healthQuirks ? whole : allocation;
}

uint16_t ScsiDrive::powerOnHours() const {
  return static_cast<uint16_t>(profile_.powerOnHours + clock_->nowMs() / 3600000);
}

ScsiResponse ScsiDrive::executeScsi(const ScsiRequest& r) {
  if (r.cdb == nullptr || r.cdbLength == 0) return illegalRequest(profile_.senseFormat, kAscInvalidOpcode);
  const uint8_t opcode = r.cdb[0];
  if (r.cdbLength < cdbLengthOf(opcode) && !(opcode >= 0xC0)) {
    return illegalRequest(profile_.senseFormat, kAscInvalidFieldInCdb);
  }
  if (isReadWrite(opcode)) return readWrite(r);
  switch (opcode) {
    case kTestUnitReady:
    case kSynchronizeCache10: return ScsiResponse{};
    case kRequestSense: return requestSense(r);
    case kInquiry: return inquiry(r);
    case kReadCapacity10: return readCapacity10(r);
    case kServiceActionIn16: return readCapacity16(r);
    case kLogSense: return logSense(r);
    case kModeSense6:
    case kModeSense10: return modeSense(r);
    case kModeSelect6:
    case kModeSelect10: return modeSelect(r);
    case kSendDiagnostic:
      if (!profile_.selfTestSupported) break;
      return sendDiagnostic(r);
    case kReportLuns: return reportLuns(r);
    default: break;
  }
  return illegalRequest(profile_.senseFormat, kAscInvalidOpcode);
}

// INQUIRY: 1 EVPD (bit 0), 2 page code, 3-4 allocation length. A page code
// without EVPD, or an unknown page, is an invalid field.
ScsiResponse ScsiDrive::inquiry(const ScsiRequest& r) {
  const uint8_t* c = r.cdb;
  const uint16_t alloc = getBe16(c + 3);
  const bool evpd = (c[1] & 0x01) != 0;
  if ((c[1] & 0x02) != 0 || (!evpd && c[2] != 0)) return illegalRequest(profile_.senseFormat, kAscInvalidFieldInCdb);
  if (!evpd) {
    InquiryIdentity id{profile_.vendor, profile_.product, profile_.revision, profile_.version, profile_.removable,
                       profile_.versionDescriptors};
    const auto data = buildStandardInquiry(id);
    return dataIn(r, data.data(), data.size(), alloc);
  }
  const auto data = vpdPage(c[2]);
  if (data.empty()) return illegalRequest(profile_.senseFormat, kAscInvalidFieldInCdb);
  return dataIn(r, data.data(), data.size(), alloc);
}

std::vector<uint8_t> ScsiDrive::supportedVpdPages() const { return {0x00, 0x80, 0x83, 0xB1}; }

// VPD pages: 0x00 supported pages; 0x80 unit serial number (3 length, 4..
// serial); 0x83 device identification with one NAA designator (4 code set
// binary, 5 association LU / type NAA, 7 length 8, 8-15 the NAA value);
// 0xB1 block device characteristics (4-5 rotation rate, 7 form factor).
std::vector<uint8_t> ScsiDrive::vpdPage(uint8_t page) const {
  std::vector<uint8_t> d;
  switch (page) {
    case 0x00: {
      const auto pages = supportedVpdPages();
      d.assign(4, 0);
      d.insert(d.end(), pages.begin(), pages.end());
      break;
    }
    case 0x80:
      d.assign(4, 0);
      d.insert(d.end(), profile_.serial.begin(), profile_.serial.end());
      break;
    case 0x83: {
      d.assign(4 + 12, 0);
      d[4] = 0x01;
      d[5] = 0x03;
      d[7] = 8;
      putBe64(&d[8], profile_.wwn);
      break;
    }
    case 0xB1:
      d.assign(64, 0);
      putBe16(&d[4], profile_.rotationRate);
      d[7] = profile_.formFactor & 0x0F;
      break;
    default:
      return {};
  }
  const auto pages = supportedVpdPages();
  if (std::find(pages.begin(), pages.end(), page) == pages.end()) return {};
  d[1] = page;
  putBe16(&d[2], static_cast<uint16_t>(d.size() - 4));
  return d;
}

// READ CAPACITY(10): 0-3 last LBA (0xFFFFFFFF when it does not fit), 4-7
// block length.
ScsiResponse ScsiDrive::readCapacity10(const ScsiRequest& r) {
  uint8_t d[8];
  const uint64_t last = media_->sectorCount() == 0 ? 0 : media_->sectorCount() - 1;
  putBe32(d, last > 0xFFFFFFFFULL ? 0xFFFFFFFFu : static_cast<uint32_t>(last));
  putBe32(d + 4, media_->sectorSize());
  return dataIn(r, d, sizeof d, sizeof d);
}

// READ CAPACITY(16), SERVICE ACTION IN(16) action 0x10: 10-13 allocation
// length. Data: 0-7 last LBA, 8-11 block length, 13 3:0 logical blocks per
// physical block exponent.
ScsiResponse ScsiDrive::readCapacity16(const ScsiRequest& r) {
  if ((r.cdb[1] & 0x1F) != kReadCapacity16Action) return illegalRequest(profile_.senseFormat, kAscInvalidFieldInCdb);
  uint8_t d[32] = {};
  putBe64(d, media_->sectorCount() == 0 ? 0 : media_->sectorCount() - 1);
  putBe32(d + 8, media_->sectorSize());
  d[13] = profile_.physicalExponent & 0x0F;
  return dataIn(r, d, sizeof d, getBe32(r.cdb + 10));
}

// READ and WRITE (6/10/12/16). A range past the end is ILLEGAL REQUEST,
// LOGICAL BLOCK ADDRESS OUT OF RANGE; an unreadable sector is MEDIUM ERROR,
// UNRECOVERED READ ERROR, with the LBA in INFORMATION, after the sectors
// before it were transferred.
ScsiResponse ScsiDrive::readWrite(const ScsiRequest& r) {
  BlockRange range;
  if (!decodeReadWrite(r, &range)) return illegalRequest(profile_.senseFormat, kAscInvalidFieldInCdb);
  const uint64_t total = media_->sectorCount();
  if (range.lba > total || range.count > total - range.lba) {
    return illegalRequest(profile_.senseFormat, kAscLbaOutOfRange);
  }
  if (range.count == 0) return ScsiResponse{};
  const uint32_t size = media_->sectorSize();
  const uint64_t bytes = range.count * size;
  if (range.write) {
    if (r.direction != Direction::Out || r.data == nullptr || r.length < bytes) {
      return illegalRequest(profile_.senseFormat, kAscInvalidFieldInCdb);
    }
    media_->write(range.lba, range.count, r.data);
    ScsiResponse ok;
    ok.transferred = static_cast<uint32_t>(bytes);
    return ok;
  }
  const bool toHost = r.direction == Direction::In && r.data != nullptr;
  uint64_t failed = 0;
  uint64_t moved = 0;
  const MediaResult result =
      media_->readToHost(range.lba, range.count, toHost ? r.data : nullptr, toHost ? r.length : 0, &failed, &moved);
  ScsiResponse response;
  if (result != MediaResult::Ok) {
    SenseInfo info;
    info.key = kSenseMediumError;
    info.asc = kAscUnrecoveredReadError;
    info.informationValid = true;
    info.information = failed;
    response = checkCondition(profile_.senseFormat, info);
  }
  response.transferred = static_cast<uint32_t>(moved);
  return response;
}

// REQUEST SENSE: 1 DESC (bit 0), 4 allocation length. Sense data in the
// data-in buffer: NO SENSE with the background self test's progress
// (LOGICAL UNIT NOT READY, SELF-TEST IN PROGRESS, SKSV and the fraction
// done of 65536), or FAILURE PREDICTION THRESHOLD EXCEEDED when MRIE 6 asks
// for exceptions to be reported on request.
ScsiResponse ScsiDrive::requestSense(const ScsiRequest& r) {
  const SenseFormat format = (r.cdb[1] & 0x01) ? SenseFormat::Descriptor : SenseFormat::Fixed;
  SenseInfo info;
  updateSelfTest();
  if (test_.active) {
    const double done = static_cast<double>(clock_->nowMs() - test_.startMs) / static_cast<double>(test_.durationMs);
    const uint16_t progress = static_cast<uint16_t>(std::min(65535.0, done * 65536.0));
    info.asc = kAscSelfTestInProgress;
    info.sksValid = true;
    info.sks[1] = static_cast<uint8_t>(progress >> 8);
    info.sks[2] = static_cast<uint8_t>(progress);
  } else if (profile_.failurePredicted && (profile_.iecFlags & 0x08) == 0 && profile_.mrie == 6) {
    info.asc = profile_.healthQuirks ? kAscVendorFailurePredicted : uint16_t{kAscFailurePredicted};
  }
  auto sense = buildSense(format, info);
  if (profile_.healthQuirks && sense.size() < r.cdb[4]) sense.resize(r.cdb[4], 0);
  return dataIn(r, sense.data(), sense.size(), r.cdb[4]);
}

// LOG SENSE: 1 PPC (bit 1) and SP (bit 0), 2 page control (7:6) and page
// code (5:0), 3 subpage, 5-6 parameter pointer, 7-8 allocation length.
// Every page: 0 page code, 1 subpage, 2-3 page length, then parameters of
// 0-1 code, 2 control (0x03: binary list), 3 length, value.
std::vector<uint8_t> ScsiDrive::supportedLogPages() const {
  std::vector<uint8_t> pages = {kLogSupportedPages, kLogWriteErrors, kLogReadErrors, kLogVerifyErrors,
                                kLogNonMediumErrors, kLogTemperature};
  if (profile_.selfTestSupported) pages.push_back(kLogSelfTest);
  if (profile_.backgroundScanSupported) pages.push_back(kLogBackgroundScan);
  pages.push_back(kLogInformationalExceptions);
  return pages;
}

ScsiResponse ScsiDrive::logSense(const ScsiRequest& r) {
  const uint8_t* c = r.cdb;
  if ((c[1] & 0x02) != 0 || c[3] != 0) return illegalRequest(profile_.senseFormat, kAscInvalidFieldInCdb);
  const uint8_t page = c[2] & 0x3F;
  const auto supported = supportedLogPages();
  if (std::find(supported.begin(), supported.end(), page) == supported.end()) {
    return illegalRequest(profile_.senseFormat, kAscInvalidFieldInCdb);
  }
  std::vector<uint8_t> d(4, 0);
  const uint8_t t = static_cast<uint8_t>(std::clamp(profile_.temperatureCelsius, 0, 255));
  const uint8_t ref = static_cast<uint8_t>(std::clamp(profile_.referenceTemperatureCelsius, 0, 255));
  // Counters: 0x02 (bounded data counter); lists: 0x03 (binary).
  auto counters = [&d](const ScsiErrorCounters& e) {
    const uint64_t values[] = {e.correctedFast, e.correctedDelayed, e.retries, e.corrected,
                               e.algorithmInvocations, e.bytesProcessed, e.uncorrected};
    for (uint16_t code = 0; code < 7; ++code) appendLogParameter(d, code, 0x02, 8, values[code]);
  };
  switch (page) {
    case kLogSupportedPages:
      d.insert(d.end(), supported.begin(), supported.end());
      break;
    case kLogWriteErrors: counters(profile_.writeErrors); break;
    case kLogReadErrors: counters(profile_.readErrors); break;
    case kLogVerifyErrors: counters(profile_.verifyErrors); break;
    case kLogNonMediumErrors: appendLogParameter(d, 0x0000, 0x02, 8, profile_.nonMediumErrors); break;
    case kLogTemperature:
      // 0x0000 temperature, 0x0001 reference temperature: byte 5 in Celsius.
      d.insert(d.end(), {0x00, 0x00, 0x03, 0x02, 0x00, t, 0x00, 0x01, 0x03, 0x02, 0x00, ref});
      break;
    case kLogSelfTest:
      d = selfTestLogPage();
      break;
    case kLogBackgroundScan: {
      // 0x0000 status: 4-7 accumulated power-on minutes, 9 BMS status,
      // 10-11 background scans performed, 12-13 progress, 14-15 medium
      // scans performed.
      const ScsiBackgroundScan& b = profile_.backgroundScan;
      const uint64_t minutes = uint64_t{powerOnHours()} * 60 + (clock_->nowMs() / 60000) % 60;
      const uint8_t p[16] = {0x00, 0x00, 0x03, 0x0C,
                             static_cast<uint8_t>(minutes >> 24), static_cast<uint8_t>(minutes >> 16),
                             static_cast<uint8_t>(minutes >> 8), static_cast<uint8_t>(minutes), 0x00, b.status,
                             static_cast<uint8_t>(b.scansPerformed >> 8), static_cast<uint8_t>(b.scansPerformed),
                             static_cast<uint8_t>(b.progress >> 8), static_cast<uint8_t>(b.progress),
                             static_cast<uint8_t>(b.mediumScansPerformed >> 8),
                             static_cast<uint8_t>(b.mediumScansPerformed)};
      d.insert(d.end(), p, p + sizeof p);
      break;
    }
    case kLogInformationalExceptions:
      // 0x0000: 4 IE ASC, 5 IE ASCQ, 6 most recent temperature, 7 the
      // temperature at which the drive reports (its reference temperature).
      d.insert(d.end(), {0x00, 0x00, 0x03, 0x04, static_cast<uint8_t>(profile_.failurePredicted ? 0x5D : 0x00),
                         0x00, t, ref});
      break;
    default:
      return illegalRequest(profile_.senseFormat, kAscInvalidFieldInCdb);
  }
  d[0] = page;
  putBe16(&d[2], static_cast<uint16_t>(d.size() - 4));
  return dataIn(r, d.data(), d.size(), allocationOf(getBe16(c + 7), d.size()));
}

// Self-test results page (0x10): twenty parameters of 20 bytes, code 1 the
// newest: 4 self-test code (7:5) | result (3:0), 5 segment number, 6-7
// power-on hours, 8-15 address of first failure, 16 sense key, 17 ASC, 18
// ASCQ.
std::vector<uint8_t> ScsiDrive::selfTestLogPage() {
  updateSelfTest();
  std::vector<uint8_t> d(4 + 20 * 20, 0);
  std::vector<ScsiSelfTestEntry> entries(log_.rbegin(), log_.rend());
  if (test_.active) {
    ScsiSelfTestEntry running;
    running.code = test_.code;
    running.result = 0xF;
    running.powerOnHours = powerOnHours();
    entries.insert(entries.begin(), running);
  }
  for (size_t i = 0; i < 20; ++i) {
    uint8_t* p = &d[4 + 20 * i];
    putBe16(p, static_cast<uint16_t>(i + 1));
    p[2] = 0x03;
    p[3] = 0x10;
    if (i >= entries.size()) continue;
    const ScsiSelfTestEntry& e = entries[i];
    p[4] = static_cast<uint8_t>((e.code & 0x07) << 5 | (e.result & 0x0F));
    p[5] = e.segment;
    putBe16(p + 6, e.powerOnHours);
    putBe64(p + 8, e.failingLba);
    p[16] = e.senseKey & 0x0F;
    p[17] = static_cast<uint8_t>(e.asc >> 8);
    p[18] = static_cast<uint8_t>(e.asc);
  }
  return d;
}

// Mode pages. Read-write error recovery (0x01, 12 bytes): 2 AWRE (bit 7)
// and ARRE (bit 6), automatic reallocation on, 3 read and 8 write retry
// counts, 10-11 recovery time limit (0: the drive's own).
// Caching (0x08, 20 bytes): 2 WCE (bit 2). Control (0x0A, 12
// bytes): 2 D_SENSE (bit 2), 3 queue algorithm modifier (1: unrestricted),
// 8-9 busy timeout, 10-11 extended self-test completion time in seconds
// (FFFFh: longer). Informational
// exceptions control (0x1C, 12 bytes): 2 PERF/EBF/EWASC/DEXCPT/TEST/LOGERR,
// 3 MRIE, 4-7 interval timer, 8-11 report count. Byte 0 carries PS: both
// pages can be saved. `control` 1 asks for the changeable bits.
std::vector<uint8_t> ScsiDrive::modePage(uint8_t page, uint8_t control) const {
  const bool changeable = control == 1;
  if (page == kPageReadWriteRecovery) {
    std::vector<uint8_t> p(12, 0);
    p[0] = 0x80 | kPageReadWriteRecovery;
    p[1] = 0x0A;
    if (!changeable) p[2] = 0xC0;
    return p;
  }
  if (page == kPageCaching) {
    std::vector<uint8_t> p(20, 0);
    p[0] = 0x80 | kPageCaching;
    p[1] = 0x12;
    p[2] = changeable ? 0x04 : (profile_.writeCacheEnabled ? 0x04 : 0x00);
    return p;
  }
  if (page == kPageControl) {
    std::vector<uint8_t> p(12, 0);
    p[0] = 0x80 | kPageControl;
    p[1] = 0x0A;
    if (changeable) {
      p[2] = 0x04;
      return p;
    }
    p[2] = profile_.senseFormat == SenseFormat::Descriptor ? 0x04 : 0x00;
    p[3] = 0x10;
    putBe16(&p[10], static_cast<uint16_t>(std::min<uint32_t>(profile_.extendedTestSeconds, 0xFFFF)));
    return p;
  }
  if (page == kPageIec) {
    std::vector<uint8_t> p(12, 0);
    p[0] = 0x80 | kPageIec;
    p[1] = 0x0A;
    p[2] = changeable ? 0x8D : profile_.iecFlags;
    p[3] = changeable ? 0x0F : profile_.mrie;
    if (changeable) std::fill(p.begin() + 4, p.end(), 0xFF);
    return p;
  }
  return {};
}

// MODE SENSE(6): 1 DBD (bit 3), 2 page control (7:6) and page code, 3
// subpage, 4 allocation length. Header: 0 mode data length, 1 medium type,
// 2 device-specific (DPOFUA), 3 block descriptor length.
// MODE SENSE(10): 1 LLBAA and DBD, 2 and 3 as above, 7-8 allocation length.
// The header and block descriptor are modeParameterData's; device-specific
// 0x10 is DPOFUA.
ScsiResponse ScsiDrive::modeSense(const ScsiRequest& r) {
  const uint8_t* c = r.cdb;
  const bool ten = c[0] == kModeSense10;
  const uint8_t control = c[2] >> 6;
  const uint8_t page = c[2] & 0x3F;
  // Page control 3 asks for the saved values: every page here is saveable
  // (PS), and what was last selected is what was saved.
  if (c[3] != 0) return illegalRequest(profile_.senseFormat, kAscInvalidFieldInCdb);
  std::vector<uint8_t> pages;
  if (page == kPageAll) {
    for (uint8_t p : {kPageReadWriteRecovery, kPageCaching, kPageControl, kPageIec}) {
      const auto one = modePage(p, control);
      pages.insert(pages.end(), one.begin(), one.end());
    }
  } else {
    pages = modePage(page, control);
    if (pages.empty()) return illegalRequest(profile_.senseFormat, kAscInvalidFieldInCdb);
  }
  const auto d = modeParameterData(c, media_->sectorCount(), media_->sectorSize(), 0x10, pages);
  return dataIn(r, d.data(), d.size(), allocationOf(ten ? getBe16(c + 7) : c[4], d.size()));
}

// MODE SELECT(6): 1 PF (bit 4) and SP (bit 0), 4 parameter list length.
// MODE SELECT(10): 7-8 parameter list length. The list: the header of
// MODE SENSE, block descriptors, then pages; only the changeable bits of
// the caching and informational exceptions pages are taken. A length of 0
// moves no data and changes nothing.
ScsiResponse ScsiDrive::modeSelect(const ScsiRequest& r) {
  const uint8_t* c = r.cdb;
  const bool ten = c[0] == kModeSelect10;
  const uint32_t length = ten ? getBe16(c + 7) : c[4];
  if (length == 0) return ScsiResponse{};
  if (r.direction != Direction::Out || r.data == nullptr || r.length < length) {
    return illegalRequest(profile_.senseFormat, kAscParameterListLengthError);
  }
  const uint8_t* p = r.data;
  const size_t header = ten ? 8 : 4;
  if (length < header) return illegalRequest(profile_.senseFormat, kAscParameterListLengthError);
  const size_t blockDescriptors = ten ? getBe16(p + 6) : p[3];
  size_t at = header + blockDescriptors;
  if (at > length) return illegalRequest(profile_.senseFormat, kAscParameterListLengthError);
  ScsiProfile next = profile_;
  while (at < length) {
    if (at + 2 > length) return illegalRequest(profile_.senseFormat, kAscParameterListLengthError);
    const uint8_t code = p[at] & 0x3F;
    const size_t pageLength = size_t{p[at + 1]} + 2;
    if (at + pageLength > length) return illegalRequest(profile_.senseFormat, kAscParameterListLengthError);
    if (code == kPageIec && pageLength == 12) {
      if ((p[at + 3] & 0x0F) > 6) return illegalRequest(profile_.senseFormat, kAscInvalidFieldInParameterList);
      next.iecFlags = p[at + 2] & 0x8D;
      next.mrie = p[at + 3] & 0x0F;
    } else if (code == kPageCaching && pageLength == 20) {
      next.writeCacheEnabled = (p[at + 2] & 0x04) != 0;
    } else if (code == kPageControl && pageLength == 12) {
      next.senseFormat = (p[at + 2] & 0x04) != 0 ? SenseFormat::Descriptor : SenseFormat::Fixed;
    } else {
      return illegalRequest(profile_.senseFormat, kAscInvalidFieldInParameterList);
    }
    at += pageLength;
  }
  profile_ = next;
  ScsiResponse ok;
  ok.transferred = length;
  return ok;
}

// SEND DIAGNOSTIC: 1 self-test code (7:5), PF (4), SELFTEST (2), DEVOFFL,
// UNITOFFL. SELFTEST with code 0 runs the default self test in the
// foreground: the command ends when it is over, with HARDWARE ERROR,
// LOGICAL UNIT FAILED SELF-TEST if it failed. Codes 1 and 2 start a
// background test, 4 aborts it, 5 and 6 run in the foreground.
ScsiResponse ScsiDrive::sendDiagnostic(const ScsiRequest& r) {
  const uint8_t code = r.cdb[1] >> 5;
  const bool selfTest = (r.cdb[1] & 0x04) != 0;
  const uint64_t whole = media_->sectorCount();
  const uint64_t shortSpan = this->shortSpan();
  updateSelfTest();
  if (selfTest && code != 0) return illegalRequest(profile_.senseFormat, kAscInvalidFieldInCdb);
  if (code == kAbortBackground) {
    if (test_.active) finishSelfTest(1, kNoLba);
    return ScsiResponse{};
  }
  if (test_.active) return illegalRequest(profile_.senseFormat, kAscInvalidFieldInCdb);
  uint32_t seconds = 0;
  uint64_t span = 0;
  switch (code) {
    case 0:
      if (!selfTest) return ScsiResponse{};  // no self test asked for
      seconds = profile_.defaultTestSeconds;
      span = whole;  // the default self test reads the whole surface over its time
      break;
    case kBackgroundShort:
    case kForegroundShort:
      seconds = profile_.shortTestSeconds;
      span = shortSpan;
      break;
    case kBackgroundExtended:
    case kForegroundExtended:
      seconds = profile_.extendedTestSeconds;
      span = whole;
      break;
    default:
      return illegalRequest(profile_.senseFormat, kAscInvalidFieldInCdb);
  }
  startSelfTest(code, seconds, span);
  if (code == kBackgroundShort || code == kBackgroundExtended) return ScsiResponse{};
  // Foreground: the command holds until the test is over.
  uint64_t bad = 0;
  uint64_t endMs = test_.startMs + test_.durationMs;
  if (span != 0 && media_->firstUnreadable(0, span - 1, &bad)) {
    endMs = test_.startMs + static_cast<uint64_t>(static_cast<double>(test_.durationMs) *
                                                  static_cast<double>(bad + 1) / static_cast<double>(span));
  }
  clock_->advanceTo(endMs);
  updateSelfTest();
  const bool failed = !log_.empty() && log_.back().result >= 3 && log_.back().result <= 7;
  if (code == 0 && !log_.empty()) log_.pop_back();  // the default self test leaves no log entry
  if (failed) return checkCondition(profile_.senseFormat, kSenseHardwareError, kAscSelfTestFailed);
  return ScsiResponse{};
}

// REPORT LUNS: one LUN, 0.
ScsiResponse ScsiDrive::reportLuns(const ScsiRequest& r) {
  uint8_t d[16] = {};
  putBe32(d, 8);
  return dataIn(r, d, sizeof d, getBe32(r.cdb + 6));
}

uint64_t ScsiDrive::shortSpan() const {
  const uint64_t whole = media_->sectorCount();
  if (profile_.shortTestSpan != 0) return std::min(profile_.shortTestSpan, whole);
  return std::max<uint64_t>(std::min<uint64_t>(whole, 1), whole / 64);
}

bool ScsiDrive::selfTestRunning() {
  updateSelfTest();
  return test_.active;
}

void ScsiDrive::startSelfTest(uint8_t code, uint32_t seconds, uint64_t span) {
  test_.active = true;
  test_.code = code;
  test_.startMs = clock_->nowMs();
  test_.durationMs = std::max<uint64_t>(uint64_t{seconds} * 1000, 1);
  test_.span = span;
}

void ScsiDrive::finishSelfTest(uint8_t result, uint64_t failingLba) {
  test_.active = false;
  ScsiSelfTestEntry e;
  e.code = test_.code;
  e.result = result;
  e.powerOnHours = powerOnHours();
  e.failingLba = failingLba;
  if (result == 7) {
    e.segment = 1;
    e.senseKey = kSenseMediumError;
    e.asc = kAscUnrecoveredReadError;
  }
  log_.push_back(e);
  if (log_.size() > 20) log_.erase(log_.begin());
}

// The test reads its span evenly over its duration and fails at the first
// unreadable sector (result 7, "another segment failed").
void ScsiDrive::updateSelfTest() {
  if (!test_.active) return;
  const uint64_t now = clock_->nowMs();
  uint64_t bad = 0;
  if (test_.span != 0 && media_->firstUnreadable(0, test_.span - 1, &bad)) {
    const uint64_t failMs = test_.startMs + static_cast<uint64_t>(static_cast<double>(test_.durationMs) *
                                                                  static_cast<double>(bad + 1) /
                                                                  static_cast<double>(test_.span));
    if (now >= failMs) return finishSelfTest(7, bad);
  }
  if (now - test_.startMs >= test_.durationMs) finishSelfTest(0, kNoLba);
}

}  // namespace sim
