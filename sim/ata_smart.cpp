// The SMART feature set of the ATA drive: data and thresholds, RETURN
// STATUS, self tests and off-line collection on the virtual clock, and the
// SMART and general purpose logs.
#include <algorithm>
#include <cmath>
#include <cstring>

#include "sim/ata_drive.h"
#include "sim/ata_drive_internal.h"

namespace sim {

namespace {

// SMART subcommands (Features register of command 0xB0).
constexpr uint8_t kSmartReadData = 0xD0;
constexpr uint8_t kSmartReadThresholds = 0xD1;
constexpr uint8_t kSmartAutosave = 0xD2;
constexpr uint8_t kSmartSaveAttributes = 0xD3;
constexpr uint8_t kSmartExecuteOffline = 0xD4;
constexpr uint8_t kSmartReadLog = 0xD5;
constexpr uint8_t kSmartWriteLog = 0xD6;
constexpr uint8_t kSmartEnable = 0xD8;
constexpr uint8_t kSmartDisable = 0xD9;
constexpr uint8_t kSmartReturnStatus = 0xDA;
constexpr uint8_t kSmartAutoOffline = 0xDB;

// Signature every SMART command carries in LBA Mid/High; RETURN STATUS
// answers with the second pair when a threshold is exceeded.
constexpr uint8_t kSmartSigMid = 0x4F, kSmartSigHigh = 0xC2;
constexpr uint8_t kSmartFailMid = 0xF4, kSmartFailHigh = 0x2C;

// Log addresses.
constexpr uint8_t kLogDirectory = 0x00;
constexpr uint8_t kLogSummaryError = 0x01;
constexpr uint8_t kLogComprehensiveError = 0x02;
constexpr uint8_t kLogExtError = 0x03;
constexpr uint8_t kLogSelfTest = 0x06;
constexpr uint8_t kLogExtSelfTest = 0x07;
constexpr uint8_t kLogSelective = 0x09;
constexpr uint8_t kLogDeviceStatistics = 0x04;
constexpr uint8_t kLogPendingDefects = 0x0C;
constexpr uint8_t kLogSataPhy = 0x11;
constexpr uint8_t kLogSctStatus = 0xE0;  // SCT status on read, SCT command on write
constexpr uint8_t kLogSctData = 0xE1;
constexpr uint8_t kLogHostFirst = 0x80, kLogHostLast = 0x9F;
constexpr uint16_t kHostLogPages = 16;

// EXECUTE OFF-LINE IMMEDIATE subcommands (LBA Low).
constexpr uint8_t kOfflineRoutine = 0x00;
constexpr uint8_t kShortOffline = 0x01;
constexpr uint8_t kExtendedOffline = 0x02;
constexpr uint8_t kConveyanceOffline = 0x03;
constexpr uint8_t kSelectiveOffline = 0x04;
constexpr uint8_t kAbortSelfTest = 0x7F;
constexpr uint8_t kShortCaptive = 0x81;
constexpr uint8_t kExtendedCaptive = 0x82;
constexpr uint8_t kSelectiveCaptive = 0x84;
constexpr uint16_t kConveyanceMinutes = 5;

constexpr uint64_t kNoFailingLba = 0xFFFFFFFFFFFFULL;

void put16(uint8_t* p, uint16_t v) {
  p[0] = static_cast<uint8_t>(v);
  p[1] = static_cast<uint8_t>(v >> 8);
}

void put32(uint8_t* p, uint32_t v) {
  for (int i = 0; i < 4; ++i) p[i] = static_cast<uint8_t>(v >> (8 * i));
}

bool isVendorSelfTest(uint8_t code) { return (code >= 0x40 && code <= 0x7E) || code >= 0x90; }

// The sectors a selective self test reads, from the spans of log 9 (bytes
// 2-81: five pairs of 8-byte start and end LBAs): from the lowest start to
// the highest end, as [*first, end). False when every span is empty.
bool selectiveRange(const std::array<uint8_t, 512>& log, uint64_t* first, uint64_t* end) {
  bool any = false;
  for (int i = 0; i < 5; ++i) {
    uint64_t start = 0, last = 0;
    for (int b = 7; b >= 0; --b) {
      start = start << 8 | log[2 + 16 * i + b];
      last = last << 8 | log[10 + 16 * i + b];
    }
    if (start == 0 && last == 0) continue;
    if (last < start) continue;
    *first = any ? std::min(*first, start) : start;
    *end = any ? std::max(*end, last + 1) : last + 1;
    any = true;
  }
  return any;
}

}  // namespace

uint16_t AtaDrive::lifetimeHours() const {
  return static_cast<uint16_t>(profile_.powerOnHours + clock_->nowMs() / 3600000);
}

bool AtaDrive::selfTestRunning() {
  updateBackground();
  return test_.active;
}

uint8_t AtaDrive::selfTestStatusByte() {
  updateBackground();
  return selfTestStatus_;
}

// SMART (0xB0): Features selects the subcommand, LBA Mid/High must carry
// 0x4F/0xC2. With SMART disabled everything but ENABLE OPERATIONS is
// aborted.
void AtaDrive::smart(Context& c) {
  const AtaRegisters& in = c.request.in;
  if (!profile_.smartSupported || in.lbaMid != kSmartSigMid || in.lbaHigh != kSmartSigHigh) {
    abort(c);
    return;
  }
  updateBackground();
  if (!smartEnabled_ && in.feature != kSmartEnable) {
    abort(c);
    return;
  }
  switch (in.feature) {
    case kSmartReadData: smartReadData(c); break;
    case kSmartReadThresholds: smartReadThresholds(c); break;
    case kSmartExecuteOffline: smartExecuteOffline(c); break;
    case kSmartReadLog: smartReadLog(c); break;
    case kSmartReturnStatus: smartReturnStatus(c); break;
    case kSmartWriteLog: smartWriteLog(c); break;
    case kSmartEnable: smartEnabled_ = true; complete(c); break;
    case kSmartDisable: smartEnabled_ = false; complete(c); break;
    case kSmartAutosave:
    case kSmartSaveAttributes:
    case kSmartAutoOffline: complete(c); break;
    default: abort(c); break;
  }
}

// SMART READ DATA, 512 bytes:
//   0-1     revision                   2-361  30 attributes of 12 bytes:
//   362     off-line collection status         0 id, 1-2 flags, 3 value,
//   363     self-test execution status         4 worst, 5-10 raw, 11 reserved
//   364-365 off-line collection seconds  367 off-line capability
//   368-369 SMART capability            370 error logging capability
//   372 short, 373 extended self-test minutes (0xFF: see 375-376)
//   374 conveyance minutes              511 checksum
void AtaDrive::buildSmartData(uint8_t* out) {
  std::memset(out, 0, 512);
  put16(out, profile_.smartRevision);
  const size_t n = std::min<size_t>(profile_.attributes.size(), 30);
  for (size_t i = 0; i < n; ++i) {
    const SmartAttribute& a = profile_.attributes[i];
    uint8_t* e = out + 2 + 12 * i;
    e[0] = a.id;
    put16(e + 1, a.flags);
    e[3] = a.value;
    e[4] = a.worst;
    uint64_t raw = a.raw;
    if (a.id == 194 || a.id == 190) {
      raw = (raw & ~uint64_t{0xFF}) | static_cast<uint8_t>(profile_.temperatureCelsius);
    }
    for (int b = 0; b < 6; ++b) e[5 + b] = static_cast<uint8_t>(raw >> (8 * b));
  }
  out[362] = offlineStatus_;
  out[363] = selfTestStatus_;
  put16(out + 364, profile_.offlineSeconds);
  out[367] = profile_.offlineCapability;
  put16(out + 368, profile_.smartCapability);
  out[370] = profile_.errorLoggingCapability;
  out[372] = static_cast<uint8_t>(std::min<uint16_t>(profile_.shortTestMinutes, 255));
  out[373] = static_cast<uint8_t>(std::min<uint16_t>(profile_.extendedTestMinutes, 255));
  out[374] = kConveyanceMinutes;
  put16(out + 375, profile_.extendedTestMinutes);
  sealChecksum(out);
}

// SMART READ THRESHOLDS, 512 bytes: 0-1 revision, 2-361 30 entries of 12
// bytes (0 id, 1 threshold, 2-11 reserved), 511 checksum.
void AtaDrive::buildThresholds(uint8_t* out) const {
  std::memset(out, 0, 512);
  put16(out, profile_.smartRevision);
  const size_t n = std::min<size_t>(profile_.attributes.size(), 30);
  for (size_t i = 0; i < n; ++i) {
    out[2 + 12 * i] = profile_.attributes[i].id;
    out[3 + 12 * i] = profile_.attributes[i].threshold;
  }
  sealChecksum(out);
}

void AtaDrive::smartReadData(Context& c) {
  uint8_t block[512];
  buildSmartData(block);
  complete(c);
  sendData(c, block, sizeof block);
}

void AtaDrive::smartReadThresholds(Context& c) {
  uint8_t block[512];
  buildThresholds(block);
  complete(c);
  sendData(c, block, sizeof block);
}

// RETURN STATUS: LBA Mid/High 0x4F/0xC2 while every attribute is above its
// threshold, 0xF4/0x2C once one with a non-zero threshold is at or below it.
bool AtaDrive::thresholdExceeded() const {
  for (const SmartAttribute& a : profile_.attributes) {
    if (a.id != 0 && a.threshold != 0 && a.value <= a.threshold) return true;
  }
  return false;
}

void AtaDrive::smartReturnStatus(Context& c) {
  const bool exceeded = thresholdExceeded();
  complete(c);
  c.response.out.lbaMid = exceeded ? kSmartFailMid : kSmartSigMid;
  c.response.out.lbaHigh = exceeded ? kSmartFailHigh : kSmartSigHigh;
}

// The sectors a short (or conveyance) self test reads from LBA 0.
uint64_t AtaDrive::shortSpan() const {
  const uint64_t whole = media_->sectorCount();
  if (profile_.shortTestSpan != 0) return std::min(profile_.shortTestSpan, whole);
  return std::max<uint64_t>(std::min<uint64_t>(whole, 1), whole / 64);
}

// EXECUTE OFF-LINE IMMEDIATE: LBA Low holds the subcommand. Off-line mode
// tests (1, 2, 3, vendor) run in the background on the clock; captive ones
// (0x81, 0x82) hold the command until done and report a failure with ERR,
// ABRT and the 0xF4/0x2C signature.
void AtaDrive::smartExecuteOffline(Context& c) {
  const uint8_t code = c.request.in.lbaLow;
  const uint64_t whole = media_->sectorCount();
  const uint64_t shortSpan = this->shortSpan();
  const bool canSelfTest = (profile_.offlineCapability & 0x10) != 0;
  switch (code) {
    case kOfflineRoutine:
      if ((profile_.offlineCapability & 0x01) == 0) return abort(c);
      offlineRunning_ = true;
      offlineEndMs_ = clock_->nowMs() + uint64_t{profile_.offlineSeconds} * 1000;
      offlineStatus_ = static_cast<uint8_t>((offlineStatus_ & 0x80) | 0x03);
      return complete(c);
    case kShortOffline:
      if (!canSelfTest) return abort(c);
      startSelfTest(code, profile_.shortTestMinutes * 60u, shortSpan);
      return complete(c);
    case kExtendedOffline:
      if (!canSelfTest) return abort(c);
      startSelfTest(code, profile_.extendedTestMinutes * 60u, whole);
      return complete(c);
    case kConveyanceOffline:
      if ((profile_.offlineCapability & 0x20) == 0) return abort(c);
      startSelfTest(code, kConveyanceMinutes * 60u, shortSpan);
      return complete(c);
    case kAbortSelfTest:
      if (test_.active) {
        const uint64_t elapsed = clock_->nowMs() - test_.startMs;
        const double left = 1.0 - static_cast<double>(elapsed) / static_cast<double>(test_.durationMs);
        finishSelfTest(kSelfTestAbortedByHost, static_cast<uint8_t>(std::min(9.0, std::ceil(left * 10))),
                       kNoFailingLba);
      }
      if (offlineRunning_) {
        offlineRunning_ = false;
        offlineStatus_ = static_cast<uint8_t>((offlineStatus_ & 0x80) | 0x05);
      }
      return complete(c);
    case kShortCaptive:
    case kExtendedCaptive: {
      if (!canSelfTest) return abort(c);
      const bool isShort = code == kShortCaptive;
      startSelfTest(code, (isShort ? profile_.shortTestMinutes : profile_.extendedTestMinutes) * 60u,
                    isShort ? shortSpan : whole);
      return holdCaptive(c);
    }
    case kSelectiveOffline:
    case kSelectiveCaptive: {
      uint64_t first = 0, end = 0;
      if (!canSelfTest || (profile_.offlineCapability & 0x40) == 0 || !selectiveRange(selective_, &first, &end) ||
          end > whole) {
        return abort(c);
      }
      // The time of an extended test, in proportion to the sectors read.
      const double share = static_cast<double>(end - first) / static_cast<double>(std::max<uint64_t>(whole, 1));
      startSelfTest(code, static_cast<uint32_t>(std::ceil(profile_.extendedTestMinutes * 60.0 * share)), end);
      if (code == kSelectiveCaptive) return holdCaptive(c);
      return complete(c);
    }
    default:
      break;
  }
  if (isVendorSelfTest(code)) {
    for (const VendorSelfTest& v : profile_.vendorTests) {
      if (v.code != code) continue;
      if (v.answer == VendorTestAnswer::Abort) return abort(c);
      if (v.answer == VendorTestAnswer::Idnf) return abort(c, kAtaErrorIdnf);
      startSelfTest(code, v.seconds, whole);  // a vendor routine's reach is its own: the whole surface
      return complete(c);
    }
    return abort(c, profile_.unknownVendorTestError);
  }
  abort(c);  // reserved subcommand
}

// A captive test: the command returns when the test is over, with ERR, ABRT
// and the 0xF4/0x2C signature when it failed.
void AtaDrive::holdCaptive(Context& c) {
  uint64_t endMs = test_.startMs + test_.durationMs;
  const uint64_t first = testFirstLba();
  uint64_t bad = 0;
  if (test_.span > first && media_->firstUnreadable(first, test_.span - 1, &bad)) {
    endMs = test_.startMs + static_cast<uint64_t>(static_cast<double>(test_.durationMs) *
                                                  static_cast<double>(bad + 1 - first) /
                                                  static_cast<double>(test_.span - first));
  }
  clock_->advanceTo(endMs);
  updateBackground();
  if ((selfTestStatus_ >> 4) != kSelfTestPassed) {
    abort(c);
    c.response.out.lbaMid = kSmartFailMid;
    c.response.out.lbaHigh = kSmartFailHigh;
    return;
  }
  complete(c);
}

// The first sector the running test reads: 0, or a selective test's lowest
// span start.
uint64_t AtaDrive::testFirstLba() const {
  uint64_t first = 0, end = 0;
  if ((test_.subcommand & 0x7F) == kSelectiveOffline && selectiveRange(selective_, &first, &end)) return first;
  return 0;
}

void AtaDrive::startSelfTest(uint8_t subcommand, uint32_t seconds, uint64_t span) {
  updateBackground();
  if (test_.active) finishSelfTest(kSelfTestAbortedByHost, 9, kNoFailingLba);  // a new test replaces a running one
  test_.active = true;
  test_.subcommand = subcommand;
  test_.startMs = clock_->nowMs();
  test_.durationMs = std::max<uint64_t>(uint64_t{seconds} * 1000, 1);
  test_.span = span;
  selfTestStatus_ = static_cast<uint8_t>(kSelfTestInProgress << 4 | 9);
}

void AtaDrive::finishSelfTest(uint8_t result, uint8_t tensRemaining, uint64_t failingLba) {
  test_.active = false;
  selfTestStatus_ = static_cast<uint8_t>(result << 4 | (tensRemaining & 0x0F));
  recordSelfTest(test_.subcommand, selfTestStatus_, failingLba);
}

// Brings the background work up to the clock's time. A self test reads the
// span [0, span) evenly over its duration and stops at the first unreadable
// sector, with read failure (7) and that sector in the logs.
void AtaDrive::updateBackground() {
  const uint64_t now = clock_->nowMs();
  if (offlineRunning_ && now >= offlineEndMs_) {
    offlineRunning_ = false;
    offlineStatus_ = static_cast<uint8_t>((offlineStatus_ & 0x80) | 0x02);
  }
  if (!test_.active) return;
  const double duration = static_cast<double>(test_.durationMs);
  const uint64_t first = testFirstLba();
  uint64_t bad = 0;
  if (test_.span > first && media_->firstUnreadable(first, test_.span - 1, &bad)) {
    const double at = static_cast<double>(bad + 1 - first) / static_cast<double>(test_.span - first);
    const uint64_t failMs = test_.startMs + static_cast<uint64_t>(duration * at);
    if (now >= failMs) {
      finishSelfTest(kSelfTestReadFailure, static_cast<uint8_t>(std::min(9.0, std::ceil((1.0 - at) * 10))), bad);
      return;
    }
  }
  const uint64_t elapsed = now - test_.startMs;
  if (elapsed >= test_.durationMs) {
    finishSelfTest(kSelfTestPassed, 0, kNoFailingLba);
    return;
  }
  const double left = 1.0 - static_cast<double>(elapsed) / duration;
  const uint8_t tens = static_cast<uint8_t>(std::min(9.0, std::max(1.0, std::ceil(left * 10))));
  selfTestStatus_ = static_cast<uint8_t>(kSelfTestInProgress << 4 | tens);
}

void AtaDrive::recordSelfTest(uint8_t subcommand, uint8_t status, uint64_t failingLba) {
  SelfTestLogEntry e;
  e.subcommand = subcommand;
  e.status = status;
  e.lifetimeHours = lifetimeHours();
  e.failingLba = failingLba;
  selfTests_.push_back(e);
  const size_t keep = std::max<size_t>(21, size_t{19} * profile_.extSelfTestLogPages);
  if (selfTests_.size() > keep) selfTests_.erase(selfTests_.begin());
}

void AtaDrive::recordError(const AtaRegisters& failed, uint8_t error, uint8_t status, uint64_t lba, uint16_t count) {
  ErrorLogEntry e;
  for (const auto& cmd : recentCommands_) {
    e.commands.push_back(cmd.first);
    e.commandTimestampsMs.push_back(cmd.second);
  }
  if (e.commands.empty()) {
    e.commands.push_back(failed);
    e.commandTimestampsMs.push_back(static_cast<uint32_t>(clock_->nowMs()));
  }
  e.error = error;
  e.status = status;
  e.lba = lba;
  e.count = count;
  e.state = test_.active ? 0x04 : 0x03;
  e.lifetimeHours = lifetimeHours();
  errors_.push_back(e);
  ++errorCount_;
  const size_t keep = std::max<size_t>(size_t{5} * profile_.comprehensiveErrorLogPages,
                                       size_t{4} * profile_.extErrorLogPages);
  while (errors_.size() > keep) errors_.pop_front();
}

uint16_t AtaDrive::logPageCount(uint8_t address, bool viaGpl) const {
  if (address == kLogDirectory) return 1;
  if (address >= kLogHostFirst && address <= kLogHostLast) return kHostLogPages;
  if (!profile_.smartSupported) return 0;
  if ((address == kLogSctStatus || address == kLogSctData) && profile_.sctSupported) return 1;
  if (address == kLogDeviceStatistics && profile_.deviceStatistics) return 6;  // pages 0-5
  if (viaGpl) {
    if (address == kLogPendingDefects && profile_.pendingDefectsLog) {
      size_t pending = 0;
      for (const auto& entry : media_->unreadableSectors()) pending += entry.second == UnreadableKind::Pending;
      return static_cast<uint16_t>(1 + (pending > 31 ? (pending - 31 + 31) / 32 : 0));
    }
    if (address == kLogSataPhy && profile_.sataPhyCounters) return 1;
    if (address == kLogExtError) return profile_.extErrorLogPages;
    if (address == kLogExtSelfTest) return profile_.extSelfTestLogPages;
    return 0;
  }
  if (address == kLogSummaryError || address == kLogSelfTest) return 1;
  if (address == kLogSelective && (profile_.offlineCapability & 0x40) != 0) return 1;
  if (address == kLogComprehensiveError) return profile_.comprehensiveErrorLogPages;
  return 0;
}

bool AtaDrive::buildLog(uint8_t address, uint16_t page, bool viaGpl, uint8_t* out) {
  std::memset(out, 0, 512);
  if (page >= logPageCount(address, viaGpl)) return false;
  switch (address) {
    case kLogDirectory:
      // Word 0: logging version; word n: pages at log address n.
      put16(out, 0x0001);
      for (unsigned a = 1; a < 256; ++a) put16(out + 2 * a, logPageCount(static_cast<uint8_t>(a), viaGpl));
      return true;
    case kLogSummaryError: buildErrorLog(0xFFFF, out); return true;
    case kLogComprehensiveError: buildErrorLog(page, out); return true;
    case kLogExtError: buildExtErrorLog(page, out); return true;
    case kLogSelfTest: buildSelfTestLog(out); return true;
    case kLogExtSelfTest: buildExtSelfTestLog(page, out); return true;
    case kLogSelective: buildSelectiveLog(out); return true;
    case kLogDeviceStatistics: buildDeviceStatistics(page, out); return true;
    case kLogPendingDefects: buildPendingDefects(page, out); return true;
    case kLogSataPhy: buildSataPhyCounters(out); return true;
    case kLogSctStatus: buildSctStatus(out); return true;
    case kLogSctData:
      if (sctTable_ != 2) return false;
      buildSctData(out);
      return true;
    default: return true;  // host logs read as zeros
  }
}

// SMART self-test log (6): 0-1 revision (1), 2-505 21 descriptors of 24
// bytes, 508 index of the newest descriptor (1-based, 0: none), 511
// checksum. Descriptor: 0 subcommand, 1 execution status, 2-3 lifetime
// hours, 4 checkpoint, 5-8 failing LBA (low 32 bits), 9-23 vendor.
void AtaDrive::buildSelfTestLog(uint8_t* out) const {
  put16(out, 0x0001);
  const size_t n = std::min<size_t>(selfTests_.size(), 21);
  const size_t first = selfTests_.size() - n;
  for (size_t i = 0; i < n; ++i) {
    const SelfTestLogEntry& e = selfTests_[first + i];
    uint8_t* d = out + 2 + 24 * i;
    d[0] = e.subcommand;
    d[1] = e.status;
    put16(d + 2, e.lifetimeHours);
    const uint32_t lba = e.failingLba == kNoFailingLba ? 0xFFFFFFFF : static_cast<uint32_t>(e.failingLba);
    put32(d + 5, lba);
  }
  out[508] = static_cast<uint8_t>(n);
  sealChecksum(out);
}

// Extended self-test log (7), every page: 0 version (1), 2-3 index of the
// newest descriptor counted over all pages (1-based), 4-497 19 descriptors
// of 26 bytes, 511 checksum. Descriptor: 0 subcommand, 1 execution status,
// 2-3 lifetime hours, 4 checkpoint, 5-10 failing LBA (48 bits), 11-25
// vendor.
void AtaDrive::buildExtSelfTestLog(uint16_t page, uint8_t* out) const {
  const size_t capacity = size_t{19} * profile_.extSelfTestLogPages;
  const size_t n = std::min(selfTests_.size(), capacity);
  const size_t first = selfTests_.size() - n;
  out[0] = 0x01;
  put16(out + 2, static_cast<uint16_t>(n));
  for (size_t slot = 0; slot < 19; ++slot) {
    const size_t k = size_t{page} * 19 + slot;
    if (k >= n) break;
    const SelfTestLogEntry& e = selfTests_[first + k];
    uint8_t* d = out + 4 + 26 * slot;
    d[0] = e.subcommand;
    d[1] = e.status;
    put16(d + 2, e.lifetimeHours);
    for (int b = 0; b < 6; ++b) d[5 + b] = static_cast<uint8_t>(e.failingLba >> (8 * b));
  }
  sealChecksum(out);
}

// Summary (1) and comprehensive (2) error logs, per page: 0 version (1),
// 1 index of the newest entry (1-based, 0: none), 2-451 five entries of 90
// bytes, 452-453 device error count, 511 checksum. An entry: five command
// structures of 12 bytes (0 device control, 1 features, 2 count, 3-5 LBA
// low/mid/high, 6 device, 7 command, 8-11 timestamp in ms), the fifth being
// the command that failed; then the error structure at 60 (1 error, 2
// count, 3-5 LBA, 6 device, 7 status, 27 state, 28-29 lifetime hours).
// `page` 0xFFFF builds the one-page summary log.
void AtaDrive::buildErrorLog(uint16_t page, uint8_t* out) const {
  const bool summary = page == 0xFFFF;
  const size_t capacity = summary ? 5 : size_t{5} * profile_.comprehensiveErrorLogPages;
  const size_t n = std::min(errors_.size(), capacity);
  const size_t first = errors_.size() - n;
  const uint16_t p = summary ? 0 : page;
  out[0] = 0x01;
  out[1] = static_cast<uint8_t>(std::min<size_t>(n, 255));
  for (size_t slot = 0; slot < 5; ++slot) {
    const size_t k = size_t{p} * 5 + slot;
    if (k >= n) break;
    const ErrorLogEntry& e = errors_[first + k];
    uint8_t* d = out + 2 + 90 * slot;
    const size_t cmds = std::min<size_t>(e.commands.size(), 5);
    for (size_t j = 0; j < cmds; ++j) {
      const AtaRegisters& r = e.commands[e.commands.size() - cmds + j];
      uint8_t* s = d + 12 * (5 - cmds + j);
      s[1] = r.feature;
      s[2] = r.count;
      s[3] = r.lbaLow;
      s[4] = r.lbaMid;
      s[5] = r.lbaHigh;
      s[6] = r.device;
      s[7] = r.command;
      put32(s + 8, e.commandTimestampsMs.size() == e.commands.size()
                       ? e.commandTimestampsMs[e.commands.size() - cmds + j] : 0);
    }
    uint8_t* err = d + 60;
    err[1] = e.error;
    err[2] = static_cast<uint8_t>(e.count);
    err[3] = static_cast<uint8_t>(e.lba);
    err[4] = static_cast<uint8_t>(e.lba >> 8);
    err[5] = static_cast<uint8_t>(e.lba >> 16);
    err[6] = static_cast<uint8_t>(0x40 | ((e.lba >> 24) & 0x0F));
    err[7] = e.status;
    err[27] = e.state;
    put16(err + 28, e.lifetimeHours);
  }
  put16(out + 452, static_cast<uint16_t>(std::min<uint32_t>(errorCount_, 0xFFFF)));
  sealChecksum(out);
}

// Extended comprehensive error log (3), every page: 0 version (1), 2-3
// index of the newest entry over all pages (1-based), 4-499 four entries of
// 124 bytes, 500-501 device error count, 511 checksum. An entry: five
// command structures of 18 bytes (0 device control, 1-2 features, 3-4
// count, 5-10 LBA in register order 7:0, 31:24, 15:8, 39:32, 23:16, 47:40,
// 11 device, 12 command, 14-17 timestamp), the fifth being the command that
// failed; then the error structure at 90 (1 error, 2-3 count, 4-9 LBA in
// register order, 10 device, 11 status, 31 state, 32-33 lifetime hours).
void AtaDrive::buildExtErrorLog(uint16_t page, uint8_t* out) const {
  const size_t capacity = size_t{4} * profile_.extErrorLogPages;
  const size_t n = std::min(errors_.size(), capacity);
  const size_t first = errors_.size() - n;
  out[0] = 0x01;
  put16(out + 2, static_cast<uint16_t>(n));
  auto putLba = [](uint8_t* p, uint64_t lba) {
    p[0] = static_cast<uint8_t>(lba);
    p[1] = static_cast<uint8_t>(lba >> 24);
    p[2] = static_cast<uint8_t>(lba >> 8);
    p[3] = static_cast<uint8_t>(lba >> 32);
    p[4] = static_cast<uint8_t>(lba >> 16);
    p[5] = static_cast<uint8_t>(lba >> 40);
  };
  for (size_t slot = 0; slot < 4; ++slot) {
    const size_t k = size_t{page} * 4 + slot;
    if (k >= n) break;
    const ErrorLogEntry& e = errors_[first + k];
    uint8_t* d = out + 4 + 124 * slot;
    const size_t cmds = std::min<size_t>(e.commands.size(), 5);
    for (size_t j = 0; j < cmds; ++j) {
      const AtaRegisters& r = e.commands[e.commands.size() - cmds + j];
      uint8_t* s = d + 18 * (5 - cmds + j);
      s[1] = r.feature;
      s[2] = r.featureExp;
      s[3] = r.count;
      s[4] = r.countExp;
      s[5] = r.lbaLow;
      s[6] = r.lbaLowExp;
      s[7] = r.lbaMid;
      s[8] = r.lbaMidExp;
      s[9] = r.lbaHigh;
      s[10] = r.lbaHighExp;
      s[11] = r.device;
      s[12] = r.command;
      put32(s + 14, e.commandTimestampsMs.size() == e.commands.size()
                        ? e.commandTimestampsMs[e.commands.size() - cmds + j] : 0);
    }
    uint8_t* err = d + 90;
    err[1] = e.error;
    put16(err + 2, e.count);
    putLba(err + 4, e.lba);
    err[10] = 0x40;
    err[11] = e.status;
    err[31] = e.state;
    put16(err + 32, e.lifetimeHours);
  }
  put16(out + 500, static_cast<uint16_t>(std::min<uint32_t>(errorCount_, 0xFFFF)));
  sealChecksum(out);
}

// SMART READ LOG: LBA Low is the log address, Sector Count the pages.
void AtaDrive::smartReadLog(Context& c) {
  const uint8_t address = c.request.in.lbaLow;
  const uint16_t pages = c.request.in.count;
  if (pages == 0 || pages > logPageCount(address, false)) return abort(c);
  scratch_.assign(size_t{pages} * 512, 0);
  for (uint16_t p = 0; p < pages; ++p) {
    if (!buildLog(address, p, false, scratch_.data() + size_t{p} * 512)) return abort(c);
  }
  complete(c);
  sendData(c, scratch_.data(), static_cast<uint32_t>(scratch_.size()));
}

// READ LOG EXT (0x2F): LBA Low is the log address, LBA Mid (with its
// previous value as bits 15:8) the first page, the 16-bit count the pages.
void AtaDrive::readLogExt(Context& c) {
  const AtaRegisters& in = c.request.in;
  if (!profile_.gplSupported) return abort(c);
  updateBackground();
  const uint8_t address = in.lbaLow;
  const uint16_t first = static_cast<uint16_t>(in.lbaMid | (c.request.extended ? in.lbaMidExp << 8 : 0));
  const uint32_t pages = uint32_t{in.count} | (c.request.extended ? uint32_t{in.countExp} << 8 : 0);
  const uint32_t available = logPageCount(address, true);
  if (pages == 0 || first >= available || pages > available - first) return abort(c);
  scratch_.assign(size_t{pages} * 512, 0);
  for (uint32_t p = 0; p < pages; ++p) {
    if (!buildLog(address, static_cast<uint16_t>(first + p), true, scratch_.data() + size_t{p} * 512)) {
      return abort(c);
    }
  }
  complete(c);
  sendData(c, scratch_.data(), static_cast<uint32_t>(scratch_.size()));
}

// SMART WRITE LOG: LBA Low is the log address, Sector Count the pages.
void AtaDrive::smartWriteLog(Context& c) {
  const uint8_t address = c.request.in.lbaLow;
  const uint16_t pages = c.request.in.count;
  if (pages == 0 || (address != kLogSelective && address != kLogSctStatus) ||
      pages > logPageCount(address, false)) {
    return abort(c);
  }
  if (c.request.direction != Direction::Out || c.request.data == nullptr || c.request.length < pages * 512u) {
    return abort(c);  // the data phase broke off
  }
  if (writeLog(c, address, pages, c.request.data)) c.response.transferred = pages * 512u;
}

// WRITE LOG EXT (0x3F): addressed as READ LOG EXT; only the SCT command
// log takes writes.
void AtaDrive::writeLogExt(Context& c) {
  const AtaRegisters& in = c.request.in;
  if (!profile_.gplSupported) return abort(c);
  const uint8_t address = in.lbaLow;
  const uint16_t first = static_cast<uint16_t>(in.lbaMid | (c.request.extended ? in.lbaMidExp << 8 : 0));
  const uint32_t pages = uint32_t{in.count} | (c.request.extended ? uint32_t{in.countExp} << 8 : 0);
  if (address != kLogSctStatus || first != 0 || pages != 1 || logPageCount(address, true) == 0) return abort(c);
  if (c.request.direction != Direction::Out || c.request.data == nullptr || c.request.length < 512) return abort(c);
  if (writeLog(c, address, pages, c.request.data)) c.response.transferred = 512;
}

// The written pages of log 9 (the selective self-test spans, kept as the
// host wrote them; its checksum must hold) or 0xE0 (an SCT command).
bool AtaDrive::writeLog(Context& c, uint8_t address, uint32_t, const uint8_t* data) {
  if (address == kLogSctStatus) {
    sctCommand(c, data);
    return (c.response.out.status & kAtaStatusErr) == 0;
  }
  uint8_t sum = 0;
  for (int i = 0; i < 512; ++i) sum = static_cast<uint8_t>(sum + data[i]);
  if (sum != 0) {
    abort(c);
    return false;
  }
  std::memcpy(selective_.data(), data, 512);
  complete(c);
  return true;
}

// Selective self-test log (9): 0-1 revision, 2-81 five spans of start and
// end LBA (8 bytes each), 492-499 current LBA, 500-501 current span,
// 502-503 feature flags, 508-509 pending time, 511 checksum. Kept as the host
// wrote it.
void AtaDrive::buildSelectiveLog(uint8_t* out) const {
  std::memcpy(out, selective_.data(), 512);
  sealChecksum(out);
}

}  // namespace sim
