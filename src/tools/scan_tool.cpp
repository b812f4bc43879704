// The bad-sector walk: big chunks read fast through the device handle, and
// only around a failed chunk sector by sector, with a long second read before
// a sector is called bad. The repair rewrites each bad sector with a pattern.
#include "tools/scan_tool.h"

#include <algorithm>
#include <string>
#include <vector>

#include "components/storage_component.h"
#include "module/null_objects.h"
#include "module/read_helpers.h"
#include "module_storage/tool.h"
#include "protocols/storage_protocol.h"
#include "tools/tool_status.h"

namespace {

constexpr uint16_t kChunkSectors = 255;
constexpr uint32_t kMinimumSectorSize = 512;
// The host's system-event flags that stop a walk: bits 0, 1, 3, 5 and 6.
constexpr uint8_t kCompromisingSystemEvents = 107;
constexpr uint8_t kRewritePatternByte = 0x01;  // at every even offset; odd offsets stay 0

}  // namespace

ScanTool::ScanTool(Tool* owner) : ScanTool(owner, "SCAN_TOOL") {}

ScanTool::ScanTool(Tool* owner, std::string operationName)
    : RecoverBadSectorsOperation(owner, std::move(operationName)) {
  markWord = 1;
}

ScanTool::~ScanTool() = default;

void ScanTool::zeroCounters() {
  if (counters == nullptr) counters = std::make_unique<uint64_t[]>(4);
  std::fill(counters.get(), counters.get() + 4, 0);
}

bool ScanTool::deviceIsReady() {
  // Private null objects: the readiness check says nothing to anybody.
  NullTestListener quietListener;
  NullMessageLog quietLog;
  return isUsableForRead(device, &quietListener, &quietLog) && checkReadable(device, &quietListener, &quietLog);
}

uint64_t ScanTool::sectorInChunk(uint64_t reported, uint64_t first, uint64_t count) {
  return reported < first || reported - first >= count ? first : reported;
}

uint8_t ScanTool::percentOf(uint64_t position, uint64_t span) {
  const double percent = static_cast<double>(position) * 100.0 / static_cast<double>(span - 1);
  // The percent is truncated to a 32-bit integer and kept to 8 bits. With no
  // divisor (a walk of one step) the quotient is not a number the integer can
  // hold; the processor's conversion then gives the "integer indefinite"
  // value, whose low byte is 0, so no rise is reported.
  if (!(percent >= 0.0 && percent < 2147483648.0)) return 0;
  return static_cast<uint8_t>(static_cast<int32_t>(percent));
}

void ScanTool::reportRise(uint8_t percent, uint8_t& lastPercent) {
  if (percent <= lastPercent) return;
  onProgress(percent);
  reportProgress(std::to_string(percent));
  lastPercent = percent;
}

uint32_t ScanTool::run(DevicePlan&, int) {
  zeroCounters();
  aborted = 0;
  badSectors.clear();

  protocol = device != nullptr ? device->getProtocol() : nullptr;
  StorageProtocolProperties properties;
  if (protocol != nullptr) protocol->getProperties(&properties);
  if (!deviceIsReady()) return kToolStatusCannotStart;

  const uint64_t total = properties.sectorCount;
  const size_t bytesPerSector = std::max(properties.logicalSectorSize, kMinimumSectorSize);
  uint8_t lastPercent = 0;
  uint64_t lba = 0;
  uint16_t chunk = kChunkSectors;
  uint32_t status = kToolStatusClean;

  reportProgress("0");
  logText += "BAD_SECTOR_TOOL_STARTED " + name + "\n";

  // One buffer for the whole walk: a chunk's buffer made afresh each time is
  // handed back to the system and faulted in again by the next read, which
  // costs a scan of a cached disk about a third of its speed.
  std::vector<uint8_t> buffer(kChunkSectors * bytesPerSector);
  std::vector<uint8_t> single(bytesPerSector);

  while (lba < total) {
    if (ownerAbortRequested()) {
      abort();
      return kToolStatusAborted;
    }
    if ((ownerSystemEvents() & kCompromisingSystemEvents) != 0) {
      abort();
      return kToolStatusSystemEvent;
    }
    if (chunk + lba > total) chunk = static_cast<uint16_t>(total - lba);

    // A failed read names a sector of the chunk; starting from the chunk's
    // own first sector keeps the walk moving whatever the read reports.
    uint64_t badLba = lba;
    const uint32_t result = readWithFallback(protocol, lba, chunk, &badLba, chunkReadTimeout, buffer.data(), true);
    if (result == 0) {
      addToCounter(kCounterSectorsRead, chunk);
      lba += chunk;
    } else {
      if (!protocol->isAccessible()) {
        abort();
        return kToolStatusAborted;
      }
      if (result == kStatusScsiRefused) {
        abort();
        return kToolStatusDeviceUnusable;
      }
      badLba = sectorInChunk(badLba, lba, chunk);
      if (aborted == 0) {
        // The long second chance: a sector is bad only when it fails with a
        // media error twice. Any other second failure passes it over.
        const uint32_t again =
            readWithFallback(protocol, badLba, 1, &badLba, singleReadTimeout, single.data(), false);
        if (result == kStatusMediaError && again == kStatusMediaError) handleBadSector(badLba, status);
      }
      addToCounter(kCounterSectorsRead, static_cast<int>(badLba - lba + 1));
      lba = badLba + 1;
    }
    if (aborted != 0) return kToolStatusAborted;
    reportRise(percentOf(lba, total), lastPercent);
  }

  logText += "BAD_SECTOR_TOOL_FINISHED " + name + "\n";
  return status;
}

void ScanTool::abort() {
  logText += "BAD_SECTOR_TOOL_ABORTED\n";
  reportProgress("100");
  aborted = 1;
}

uint32_t ScanTool::handleBadSector(uint64_t lba, uint32_t& status) {
  status = kToolStatusBadSectorsFound;
  onBadSectorFound(lba);
  return 0;
}

void ScanTool::onBadSectorFound(uint64_t lba) {
  addToCounter(kCounterBadFound, 1);
  badSectors.push_back(lba);
  logText += "BAD_SECTOR_FOUND_AT " + std::to_string(lba) + "\n";
}

void ScanTool::onProgress(uint8_t percent) {
  // The percent goes in as one character whose value is the percent, not as
  // digits: 65 percent writes "A". Readers of the log have always seen it so.
  logText += "BAD_SECTOR_TOOL_PROGRESS ";
  logText += static_cast<char>(percent);
  logText += "%\n";
}

void ScanTool::addToCounter(int index, int delta) {
  if (counters == nullptr || index < 0 || index > kCounterBadNotFixed) return;
  counters[index] += static_cast<uint64_t>(static_cast<int64_t>(delta));
}

ScanAndFixTool::ScanAndFixTool(Tool* owner) : ScanTool(owner, "SCAN_AND_FIX_TOOL") {
  zeroCounters();
  logText = name + "\n";
}

uint32_t ScanAndFixTool::run(DevicePlan& plan, int partitionIndex) {
  zeroCounters();
  const std::vector<uint64_t>* sourceList = sourceScan != nullptr ? sourceScan->getBadSectors() : nullptr;
  if (sourceList == nullptr || sourceList->empty()) return ScanTool::run(plan, partitionIndex);
  return runOverSourceList();
}

uint32_t ScanAndFixTool::runOverSourceList() {
  protocol = device != nullptr ? device->getProtocol() : nullptr;
  StorageProtocolProperties properties;
  if (protocol != nullptr) protocol->getProperties(&properties);
  badSectors.clear();
  if (!deviceIsReady()) return kToolStatusCannotStart;
  if (aborted == 0) {
    badSectors = *sourceScan->getBadSectors();
    reportProgress("0");
  }
  logText += "BAD_SECTOR_TOOL_STARTED " + name + "\n";

  uint32_t status = kToolStatusClean;
  uint8_t lastPercent = 0;
  // Each handled sector is found again and appended to the list: the run
  // covers the sectors as copied, not those appended behind them.
  const size_t listed = badSectors.size();
  for (size_t i = 0; i < listed; ++i) {
    // The pointer is what is tested here, not the flag's value: with a host
    // flag present the list run stops after its first sector.
    if (owner != nullptr && owner->abortFlag != nullptr) abort();
    handleBadSector(badSectors[i], status);
    if (aborted != 0) return kToolStatusAborted;
    reportRise(percentOf(i, listed), lastPercent);
  }
  logText += "BAD_SECTOR_TOOL_FINISHED " + name + "\n";
  return status;
}

uint32_t ScanAndFixTool::handleBadSector(uint64_t lba, uint32_t& status) {
  onBadSectorFound(lba);
  const uint32_t rewritten = rewriteSector(lba);
  if (rewritten == 0) {
    if (counters[kCounterBadNotFixed] == 0) status = kToolStatusRepaired;
    addToCounter(kCounterBadFixed, 1);
    logText += "BAD_SECTOR_FIXED_AT " + std::to_string(lba) + "\n";
  } else {
    addToCounter(kCounterBadNotFixed, 1);
    logText += "BAD_SECTOR_NOT_FIXED_AT " + std::to_string(lba) + "\n";
    status = kToolStatusNotRepaired;
  }
  return rewritten;
}

uint32_t ScanAndFixTool::rewriteSector(uint64_t lba) {
  if (protocol == nullptr) return 0;
  StorageProtocolProperties properties;
  protocol->getProperties(&properties);
  const size_t size = std::max(properties.logicalSectorSize, kMinimumSectorSize);
  std::vector<uint8_t> pattern(size, 0);
  std::vector<uint8_t> readBack(size, 0);
  for (size_t offset = 0; offset < size; offset += 2) pattern[offset] = kRewritePatternByte;

  protocol->writeSector(lba, pattern.data());
  const uint32_t read = readWithFallback(protocol, lba, 1, nullptr, singleReadTimeout, readBack.data(), false);
  if (read == 0 && properties.logicalSectorSize != 0) {
    // The comparison stops at the first difference and decides nothing.
    const bool matches = std::equal(pattern.begin(), pattern.end(), readBack.begin());
    (void)matches;
  }
  return 0;
}
