// The SCSI protocol's sector I/O with its fall-backs, temperature, self tests
// and the SMART routes: the informational exceptions log page, REQUEST SENSE
// and the informational exceptions control mode page.
#include <algorithm>
#include <array>
#include <cmath>
#include <vector>

#include "commands/scsi/log_mode_commands.h"
#include "commands/scsi/read_write_commands.h"
#include "commands/scsi/scsi_commands.h"
#include "commands/scsi/sense_data.h"
#include "protocols/protocol_functions.h"
#include "protocols/scsi_protocol.h"

namespace {

constexpr uint32_t kMinimumSectorSize = 512;
// Above this many sectors the short reads and writes cannot reach every
// address, so READ(16)'s refusal is final.
constexpr uint64_t kShortCommandSectors = uint64_t{1} << 32;
constexpr int32_t kCheckedReadBytes = 252;
constexpr uint32_t kRequestSenseBytes = 252;

// Sense that names a medium error, whatever transport carried the read.
constexpr uint8_t kSenseMiscompare = 0x0E;
constexpr uint8_t kAscUnrecoveredReadError = 0x11;
constexpr uint8_t kAscParityError = 0x47;
constexpr uint8_t kAscqParityErrorLimit = 6;

// Temperature log page (0x0D): parameter 0000 at 4, its value at byte 9.
constexpr size_t kTemperatureValue = 9;
constexpr uint8_t kTemperatureUnknown = 255;

// Self-test results log page (0x10), newest entry first:
//   [8]       self-test code (7:5) | result (3:0)
//   [12..19]  address of first failure, taken with byte 12 lowest
constexpr size_t kSelfTestResult = 8;
constexpr size_t kSelfTestFailingLba = 12;
constexpr uint64_t kNoFailingLba = ~uint64_t{0};
constexpr uint8_t kSendDiagnosticAbort = 4;

// REQUEST SENSE's progress indication: the sense-key-specific bytes, of
// which the last two are the fraction done of 65536.
constexpr float kProgressUnit = 1.0f / 65536.0f;

// The SMART verdicts. REQUEST SENSE with ASC 0xD5, and the log page with ASC
// 0x5D (FAILURE PREDICTION THRESHOLD EXCEEDED). The two values differ, and
// that is settled.
constexpr uint8_t kSenseHealthFailingAsc = 0xD5;
constexpr uint8_t kIecLogFailingAsc = 0x5D;

// Informational exceptions log page (0x2F):
//   [2..3]  page length, read with byte 2 as the low byte (kept as it is)
//   [4..5]  parameter code 0000
//   [8]     IE ASC
constexpr uint16_t kIecLogMinimumLength = 7;
constexpr size_t kIecLogAsc = 8;
constexpr uint32_t kIecLogFirstRead = 252;

// Informational exceptions control mode page in a MODE SENSE(6) answer (page
// at 4) or a MODE SENSE(10) answer (page at 8): page byte 2 holds the flags
// (DEXCPT is bit 3) and page byte 3 the MRIE.
constexpr uint32_t kModeSenseBytes = 32;
constexpr size_t kIec6Flags = 6;
constexpr size_t kIec6Mrie = 7;
constexpr size_t kIec10Flags = 10;
constexpr size_t kIec10Mrie = 11;
constexpr uint8_t kDexcpt = 0x08;
constexpr uint8_t kMrieReportOnRequest = 0x06;

// A copy of the sense bytes of the last read attempt that had any.
struct KeptSense {
  bool present = false;
  std::array<uint8_t, kScsiSenseBytes> bytes{};
};

bool isMediaError(const SenseData& sense) {
  const uint8_t key = sense.getSenseKey();
  if (key == kSenseMediumError || key == kSenseHardwareError || key == kSenseMiscompare) return true;
  if (sense.getAsc() == kAscUnrecoveredReadError) return true;
  return sense.getAsc() == kAscParityError && sense.getAscq() < kAscqParityErrorLimit;
}

}  // namespace

uint32_t ScsiProtocol::readSectors(uint64_t lba, uint16_t count, uint32_t /*timeoutSeconds*/, void* buffer) {
  if (cache.logicalSectorSize < kMinimumSectorSize) return kStatusBadArgument;
  KeptSense kept;
  // One attempt: the status, with the sense judged as sendChecked does, and
  // the sense kept in place of the previous attempt's.
  auto attempt = [this, &kept](ScsiCmd& read) {
    kept.present = false;
    uint32_t status = sendCommand(read);
    if (status == kStatusOk && read.senseLength > 0) {
      status = senseStatus(read);
      kept.present = true;
      kept.bytes = read.sense;
    }
    return status;
  };

  // The order is fixed: READ(16), then READ(10) in its twelve-byte form, then
  // READ(10). Which one worked is not remembered.
  Read16 read16(buffer, lba, count, cache.logicalSectorSize);
  uint32_t status = attempt(read16);
  if (status != kStatusOk) {
    if (cache.sectorCount > kShortCommandSectors) return kStatusUnknownSense;
    Read12 read12(buffer, lba, count, cache.logicalSectorSize);
    status = attempt(read12);
    if (status != kStatusOk) {
      Read10 read10(buffer, lba, count, cache.logicalSectorSize);
      status = attempt(read10);
    }
  }
  if (kept.present) {
    SenseData sense;
    if (sense.parse(kept.bytes.data()) == kStatusOk && isMediaError(sense)) return kStatusMediaError;
  }
  return status;
}

uint32_t ScsiProtocol::writeSector(uint64_t lba, void* buffer) {
  if (cache.logicalSectorSize < kMinimumSectorSize) return kStatusBadArgument;
  const uint16_t size = static_cast<uint16_t>(cache.logicalSectorSize);
  Write16 write16(buffer, lba, 1, size);
  uint32_t status = sendChecked(write16);
  if (status == kStatusOk) return kStatusOk;
  if (cache.sectorCount > kShortCommandSectors) return kStatusUnknownSense;
  Write12 write12(buffer, lba, 1, size);
  status = sendChecked(write12);
  if (status == kStatusOk) return kStatusOk;
  Write10 write10(buffer, lba, 1, size);
  return sendChecked(write10);
}

uint32_t ScsiProtocol::getTemperature(uint8_t* celsius) {
  if (celsius == nullptr) return kStatusBadArgument;
  std::vector<uint8_t> page(kCheckedReadBytes, 0);
  LogSenseTemperaturePage read(page.data(), kCheckedReadBytes);
  const uint32_t status = checkedRead(read);
  if (status != kStatusOk) return status;
  *celsius = page[kTemperatureValue];
  // Written first: 255 reaches the caller along with the refusal.
  return *celsius == kTemperatureUnknown ? kStatusNotAvailable : kStatusOk;
}

uint32_t ScsiProtocol::startSelfTest(uint8_t code, uint8_t count) {
  SendDiagnostic start(code, count);
  const uint32_t status = sendChecked(start);
  if (status == kStatusOk) lastSelfTestScsiStatus = start.scsiStatus;
  return status;
}

uint32_t ScsiProtocol::getSelfTestProgress(uint8_t* percentDone) {
  if (percentDone == nullptr) return kStatusBadArgument;
  std::vector<uint8_t> data(kRequestSenseBytes, 0);
  RequestSense request(data.data(), kRequestSenseBytes);
  if (sendChecked(request) != kStatusOk) return kStatusNotAvailable;
  if (request.scsiStatus != kScsiStatusGood || request.dataLength == 0) return kStatusNotAvailable;
  SenseData sense;
  if (sense.parse(data.data()) != kStatusOk) return kStatusNotAvailable;
  if (sense.getSenseKey() != kSenseNoSense && sense.getSenseKey() != kSenseNotReady) return kStatusNotAvailable;
  SenseInformation information;
  const uint32_t found = sense.getInformation(kSenseKeySpecificDescriptor, &information);
  if (found != kStatusOk) return found;
  const uint32_t fraction = uint32_t{information.specific[1]} << 8 | information.specific[2];
  // Single precision, as the value has always been computed.
  const float percent = static_cast<float>(fraction) * kProgressUnit * 100.0f;
  *percentDone = static_cast<uint8_t>(std::floor(percent));
  return kStatusOk;
}

uint32_t ScsiProtocol::getSelfTestStatus(uint8_t* status) {
  if (status == nullptr) return kStatusBadArgument;
  std::vector<uint8_t> page(kCheckedReadBytes, 0);
  LogSenseSelfTestPage read(page.data(), kCheckedReadBytes);
  const uint32_t result = checkedRead(read);
  if (result != kStatusOk) return result;
  *status = page[kSelfTestResult] & 0x0F;
  return kStatusOk;
}

uint32_t ScsiProtocol::abortSelfTest() {
  SendDiagnostic abort(kSendDiagnosticAbort, 0);
  const uint32_t status = sendChecked(abort);
  if (status != kStatusOk) return status;
  return abort.scsiStatus == kScsiStatusGood ? kStatusOk : kStatusNotAvailable;
}

uint32_t ScsiProtocol::getSelfTestFailingLba(uint64_t* lba) {
  if (lba == nullptr) return kStatusBadArgument;
  std::vector<uint8_t> page(kCheckedReadBytes, 0);
  LogSenseSelfTestPage read(page.data(), kCheckedReadBytes);
  const uint32_t result = checkedRead(read);
  if (result != kStatusOk) return result;
  // Byte 12 is taken as the lowest byte, against the page's big-endian field;
  // that order is deliberate and the self tests rely on it.
  const uint8_t* b = &page[kSelfTestFailingLba];
  *lba = makeLba64(b[0], b[1], b[2], b[3], b[4], b[5], b[6], b[7]);
  return *lba == kNoFailingLba ? kStatusNotAvailable : kStatusOk;
}

uint32_t ScsiProtocol::getSmartStatus(uint8_t* healthy) {
  if (healthy == nullptr) return kStatusBadArgument;
  *healthy = 1;
  uint32_t status = readIecLog(healthy);
  if (*healthy == 1) status = readSenseHealth(healthy);
  if (status == kStatusOk) return kStatusOk;
  return getPredictFailureStatus(healthy);
}

uint32_t ScsiProtocol::readSenseHealth(uint8_t* healthy) {
  std::vector<uint8_t> data(kRequestSenseBytes, 0);
  RequestSense request(data.data(), kRequestSenseBytes);
  if (sendChecked(request) != kStatusOk) return kStatusNotAvailable;
  if (request.scsiStatus != kScsiStatusGood || request.dataLength < kRequestSenseBytes) return kStatusNotAvailable;
  SenseData sense;
  if (sense.parse(data.data()) != kStatusOk || sense.getSenseKey() != kSenseNoSense) return kStatusNotAvailable;
  *healthy = sense.getAsc() != kSenseHealthFailingAsc ? 1 : 0;
  return kStatusOk;
}

uint32_t ScsiProtocol::readIecLog(uint8_t* healthy) {
  std::vector<uint8_t> page(kIecLogFirstRead, 0);
  {
    LogSenseIECPage read(page.data(), static_cast<int32_t>(kIecLogFirstRead));
    const uint32_t status = sendChecked(read);
    if (status != kStatusOk) return status;
    if (read.scsiStatus != kScsiStatusGood) return kStatusScsiNotGood;
  }
  const uint16_t whole = static_cast<uint16_t>((page[2] << 8 | page[3]) + 4);
  if (whole > kIecLogFirstRead) {
    // The page did not fit: ask again for all of it.
    page.assign(whole, 0);
    LogSenseIECPage read(page.data(), whole);
    const uint32_t status = sendChecked(read);
    if (status != kStatusOk) return status;
    if (read.scsiStatus != kScsiStatusGood) return kStatusNotAvailable;
  }
  const uint16_t length = static_cast<uint16_t>(page[2] | page[3] << 8);
  const uint16_t parameter = static_cast<uint16_t>(page[4] << 8 | page[5]);
  if (length < kIecLogMinimumLength || parameter != 0) return kStatusNotAvailable;
  *healthy = page[kIecLogAsc] != kIecLogFailingAsc ? 1 : 0;
  return kStatusOk;
}

uint32_t ScsiProtocol::readIecPage6(uint8_t* record) {
  std::vector<uint8_t> data(kModeSenseBytes, 0);
  ModeSense6IECPage read(data.data(), kModeSenseBytes);
  if (sendChecked(read) != kStatusOk || read.scsiStatus != kScsiStatusGood) return kStatusNotAvailable;
  if (read.dataLength < kModeSelect6IecBytes) return kStatusInvalidData;
  std::copy_n(data.begin(), kModeSelect6IecBytes, record);
  return kStatusOk;
}

uint32_t ScsiProtocol::readIecPage10(uint8_t* record) {
  std::vector<uint8_t> data(kModeSenseBytes, 0);
  ModeSense10IECPage read(data.data(), kModeSenseBytes);
  if (sendChecked(read) != kStatusOk || read.scsiStatus != kScsiStatusGood) return kStatusNotAvailable;
  if (read.dataLength < kModeSelect10IecBytes) return kStatusInvalidData;
  std::copy_n(data.begin(), kModeSelect10IecBytes, record);
  return kStatusOk;
}

uint32_t ScsiProtocol::readIecEnabled() {
  uint8_t record6[kModeSelect6IecBytes] = {};
  if (readIecPage6(record6) == kStatusOk) {
    cache.smartEnabled = (record6[kIec6Mrie] | kMrieReportOnRequest) <= kMrieReportOnRequest &&
                         (record6[kIec6Flags] & kDexcpt) == 0;
    return kStatusOk;
  }
  uint8_t record10[kModeSelect10IecBytes] = {};
  const uint32_t status = readIecPage10(record10);
  if (status == kStatusOk) {
    // Here every flag but DEXCPT must be clear too: the two forms differ on
    // purpose.
    cache.smartEnabled = (record10[kIec10Mrie] | kMrieReportOnRequest) <= kMrieReportOnRequest &&
                         (record10[kIec10Flags] & ~kDexcpt) == 0;
  }
  return status;
}

void ScsiProtocol::editIecRecord(uint8_t* record, size_t mrieAt, size_t flagsAt, bool enable) {
  if (iecPageUnsaved) {
    savedMrie = record[mrieAt];
    savedExceptionFlags = record[flagsAt];
  }
  if (enable) {
    record[mrieAt] |= kMrieReportOnRequest;
    record[flagsAt] &= static_cast<uint8_t>(~kDexcpt);
  } else {
    record[mrieAt] = savedMrie;
    record[flagsAt] = savedExceptionFlags;
  }
}

uint32_t ScsiProtocol::enableSmart(uint8_t enable) {
  uint8_t record6[kModeSelect6IecBytes] = {};
  if (readIecPage6(record6) == kStatusOk) {
    editIecRecord(record6, kIec6Mrie, kIec6Flags, enable != 0);
    ModeSelect6IecPage select(record6);
    if (sendChecked(select) == kStatusOk && select.scsiStatus == kScsiStatusGood) {
      iecPageUnsaved = false;
      return kStatusOk;
    }
  }
  uint8_t record10[kModeSelect10IecBytes] = {};
  uint32_t status = readIecPage10(record10);
  if (status == kStatusOk) {
    editIecRecord(record10, kIec10Mrie, kIec10Flags, enable != 0);
    ModeSelect10IecPage select(record10);
    status = sendChecked(select);
    if (status == kStatusOk && select.scsiStatus != kScsiStatusGood) status = kStatusNotAvailable;
  }
  iecPageUnsaved = false;
  return status;
}
