// The targeted read test: harvest of the logs, widening, and the reads.
#include "diagnostics/targeted_read.h"

#include <algorithm>
#include <vector>

#include "diagnostics/seek_checks.h"
#include "module/read_helpers.h"
#include "protocols/ata_protocol.h"

namespace {

constexpr size_t kLogPageBytes = 512;
constexpr uint32_t kOneBadSectorEndsIt = 1;
constexpr uint32_t kWakeTimeoutSeconds = 30;
constexpr char kKeyNoLogs[] = "CANNOT_READ_ANYTHING_FROM_LOGS";
constexpr char kKeySmartNotSupported[] = "SMART_NOT_SUPPORTED";
constexpr char kKeyCannotEnableSmart[] = "CANNOT_ENABLE_SMART";

// Log addresses, in the order they are read.
constexpr uint8_t kLogExtComprehensiveError = 0x03;
constexpr uint8_t kLogExtSelfTest = 0x07;
constexpr uint8_t kLogSelfTest = 0x06;
constexpr uint8_t kLogComprehensiveError = 0x02;
constexpr uint8_t kLogSummaryError = 0x01;

struct LogToRead {
  uint8_t address;
  bool needsLba48;
};
constexpr LogToRead kLogsInOrder[] = {
    {kLogExtComprehensiveError, true}, {kLogExtSelfTest, true}, {kLogSelfTest, false},
    {kLogComprehensiveError, false},   {kLogSummaryError, false},
};

// Little-endian value of `count` bytes from `at`.
uint64_t littleEndian(const uint8_t* at, size_t count) {
  uint64_t value = 0;
  for (size_t i = count; i-- > 0;) value = (value << 8) | at[i];
  return value;
}

// Where the slots of one log page lie, and how many pages of it count.
struct LogLayout {
  size_t slotsPerPage;
  size_t slotBytes;
  size_t firstSlotOffset;
  bool firstPageOnly;
};

bool layoutOf(uint8_t address, LogLayout* layout) {
  switch (address) {
    case kLogExtComprehensiveError: *layout = {4, 124, 4, false}; return true;
    case kLogExtSelfTest: *layout = {19, 26, 4, false}; return true;
    case kLogSelfTest: *layout = {21, 24, 2, true}; return true;
    case kLogComprehensiveError: *layout = {5, 90, 2, false}; return true;
    case kLogSummaryError: *layout = {5, 90, 2, true}; return true;
    default: return false;
  }
}

// The LBAs one slot names.
void takeFromSlot(uint8_t address, const uint8_t* slot, std::set<uint64_t>& logLbas) {
  switch (address) {
    case kLogExtComprehensiveError: {
      // Extended error log entry: five command structures of 18 bytes, the
      // fifth (the command that failed) at 72. Its LBA bytes, entry 77-82:
      //   77: 7:0   78: 31:24   79: 15:8   80: 39:32   81: 23:16   82: 47:40
      // Drives differ in that order, so both readings are taken: the register
      // order above, and the six bytes as a plain little-endian number.
      const uint8_t* b = slot + 77;
      const uint64_t registerOrder = uint64_t{b[0]} | uint64_t{b[2]} << 8 | uint64_t{b[4]} << 16 |
                                     uint64_t{b[1]} << 24 | uint64_t{b[3]} << 32 | uint64_t{b[5]} << 40;
      logLbas.insert(registerOrder);
      logLbas.insert(littleEndian(b, 6));
      return;
    }
    case kLogExtSelfTest:
      // Descriptor: 0 subcommand, 1 status, 2-3 hours, 4 checkpoint, 5-10 LBA.
      logLbas.insert(littleEndian(slot + 5, 6));
      return;
    case kLogSelfTest:
      // Descriptor: 0 subcommand, 1 status, 2-3 hours, 4 checkpoint, 5-8 LBA.
      logLbas.insert(littleEndian(slot + 5, 4));
      return;
    default:
      // 28-bit error log entry: five command structures of 12 bytes; bytes
      // 51-53 are LBA Low, Mid, High of the fifth, the command that failed.
      // Bits 27:24 sit in its Device register and are left out.
      logLbas.insert(littleEndian(slot + 51, 3));
      return;
  }
}

}  // namespace

TargetedReadTest::~TargetedReadTest() = default;

void TargetedReadTest::takeLbasFromLog(uint8_t logAddress, const uint8_t* pages, uint16_t pageCount,
                                       std::set<uint64_t>& logLbas) {
  LogLayout layout{};
  if (pages == nullptr || !layoutOf(logAddress, &layout)) return;
  const uint16_t parsed = layout.firstPageOnly ? std::min<uint16_t>(pageCount, 1) : pageCount;
  for (uint16_t page = 0; page < parsed; ++page) {
    const uint8_t* base = pages + size_t{page} * kLogPageBytes + layout.firstSlotOffset;
    // The logs' index, version and checksum are not consulted: every slot
    // counts, and an unused slot of zeros names LBA 0.
    for (size_t slot = 0; slot < layout.slotsPerPage; ++slot) {
      takeFromSlot(logAddress, base + slot * layout.slotBytes, logLbas);
    }
  }
}

void TargetedReadTest::widenTargets(const std::set<uint64_t>& logLbas, std::set<uint64_t>& targetLbas,
                                    uint64_t radius, uint64_t lastLba) {
  for (uint64_t x : logLbas) {
    // A log entry that names a place beyond the end is not widened.
    if (x > lastLba) continue;
    const uint64_t high = lastLba - radius < x || lastLba < radius ? lastLba : x + radius;
    const uint64_t low = x < radius ? 0 : x - radius;
    for (uint64_t lba = low; lba <= high; ++lba) {
      targetLbas.insert(lba);
      if (lba == lastLba) break;
    }
    targetLbas.insert(x);
  }
}

uint32_t TargetedReadTest::checkSupported(StorageComponent* candidate, TestListener* events, MessageLog* lines) {
  if (candidate == nullptr || candidate->getProtocol() == nullptr) return INVALID;
  if (candidate->getLocation() == kLocationExternal) return refuseExternalDevice(events, lines);
  if (candidate->getProtocol()->getProtocolKind() != kProtocolAta) return refuseThisDevice(events, lines);
  StorageProtocolProperties properties;
  candidate->getProtocol()->getCachedProperties(&properties);
  if (!properties.smartSupported) {
    events->onProgress(100, kKeySmartNotSupported);
    lines->log(kKeySmartNotSupported, LevelError, nullptr);
    return NOT_APPLICABLE;
  }
  return isUsableForRead(candidate, events, lines) ? SUCCESS : NOT_APPLICABLE;
}

uint32_t TargetedReadTest::prepare(StorageComponent* candidate, TestListener* events, MessageLog* lines) {
  const uint32_t supported = checkSupported(candidate, events, lines);
  if (supported != SUCCESS) return supported;
  if (candidate == nullptr || candidate->getProtocol() == nullptr || smartGuard == nullptr) return INVALID;
  StorageProtocol* drive = candidate->getProtocol();
  StorageProtocolProperties properties;
  drive->getCachedProperties(&properties);
  if (properties.securitySupported && properties.securityLocked) return refuseLockedDrive(events, lines);
  if (candidate->getLocation() != kLocationRaid) {
    // Wakes the drive before its logs are asked for; the outcome does not
    // matter.
    std::unique_ptr<uint8_t[]> buffer = sectorBuffer(drive);
    if (buffer) readThroughHandle(drive, 0, 1, nullptr, kWakeTimeoutSeconds, buffer.get());
  }
  if (smartGuard->enable(*drive, lines) == kStatusOk) return SUCCESS;
  events->onProgress(100, kKeyCannotEnableSmart);
  lines->log(kKeyCannotEnableSmart, LevelError, nullptr);
  return NOT_APPLICABLE;
}

uint32_t TargetedReadTest::run(TestRunContext* runContext) {
  abortAnnounced = false;
  const uint32_t bound = bindContext(runContext);
  if (bound != SUCCESS) return bound;
  if (checkAbort(runContext)) return ABORTED;

  smartGuard = std::make_unique<SmartEnableGuard>();
  uint32_t result = prepare(component, listener, log);
  if (result == SUCCESS) {
    listener->onProgress(0, "");
    auto* ata = dynamic_cast<AtaProtocol*>(protocol);
    if (ata == nullptr) {
      // Not reachable through ATA logs after all: no restore and no second
      // closing event on this path.
      listener->onProgress(100, "");
      return INVALID;
    }
    std::set<uint64_t> logLbas;
    result = collectLogLbas(ata, logLbas);
    if (result == SUCCESS) result = readTargets(logLbas);
    smartGuard->restore(*protocol, log);
  }
  listener->onProgress(100, "");
  return result;
}

uint32_t TargetedReadTest::collectLogLbas(AtaProtocol* ata, std::set<uint64_t>& logLbas) {
  StorageProtocolProperties properties;
  ata->getCachedProperties(&properties);
  for (const LogToRead& entry : kLogsInOrder) {
    if (checkAbort(context)) continue;
    if (entry.needsLba48 && !properties.lba48Supported) continue;
    const uint16_t pageCount = ata->getLogPageCount(entry.address);
    if (pageCount == 0) continue;
    std::vector<uint8_t> pages(size_t{pageCount} * kLogPageBytes);
    uint16_t pagesRead = 0;
    // A log that cannot be read costs nothing; the pages that did come are
    // used whatever the status says.
    ata->readLog(entry.address, pageCount, pages.data(), &pagesRead);
    if (pagesRead == 0) continue;
    takeLbasFromLog(entry.address, pages.data(), std::min(pagesRead, pageCount), logLbas);
  }
  if (checkAbort(context)) return ABORTED;
  if (!logLbas.empty()) return SUCCESS;
  listener->onProgress(100, kKeyNoLogs);
  log->log(kKeyNoLogs, LevelInfo, nullptr);
  return NOT_APPLICABLE;
}

uint32_t TargetedReadTest::readTargets(const std::set<uint64_t>& logLbas) {
  StorageProtocolProperties properties;
  protocol->getCachedProperties(&properties);
  std::set<uint64_t> targetLbas;
  widenTargets(logLbas, targetLbas, kTargetRadius, properties.sectorCount - 1);
  std::set<uint64_t> badSectors;
  SectorBuffer readBuffer;

  float counter = 1.0f;
  uint8_t percent = 0;
  uint8_t lastReported = 0;
  for (uint64_t lba : targetLbas) {
    if (checkAbort(context)) return ABORTED;
    const uint32_t status =
        readIntoSectorBuffer(readBuffer, protocol, [&](uint8_t* buffer) { return readSectorsForTest(lba, buffer); });
    if (status != 0) {
      // With an allowance of one, the first bad sector ends the test.
      const uint32_t verdict =
          handleReadFailure(lba, status, percent, kOneBadSectorEndsIt, badSectors, listener, log);
      if (verdict != SUCCESS) {
        listener->onProgress(100, "");
        return verdict;
      }
    }
    // The counter is scaled before the division: an exact share then stays
    // exact, so that up to 100 targets every read moves the percentage.
    percent = static_cast<uint8_t>(counter * 100.0f / static_cast<float>(targetLbas.size()));
    if (percent != lastReported) {
      listener->onProgress(percent, "");
      lastReported = percent;
    }
    counter += 1.0f;
  }
  return SUCCESS;
}
