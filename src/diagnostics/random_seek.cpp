// The random seek loop and the two random seek tests.
#include "diagnostics/random_seek.h"

#include <ctime>
#include <set>

#include "diagnostics/seek_checks.h"
#include "system/number_handler.h"

namespace {
constexpr uint8_t kDone = 100;
}  // namespace

RandomSeekTest::RandomSeekTest(const ItemId& itemId, uint32_t seeks, uint32_t allowed)
    : StorageTest(itemId), seekCount(seeks), allowedBadSectors(allowed) {}

uint32_t RandomSeekTest::run(TestRunContext* runContext) {
  abortAnnounced = false;
  const uint32_t bound = bindContext(runContext);
  if (bound != SUCCESS) return bound;
  if (checkAbort(runContext)) return ABORTED;

  uint32_t result = prepare(component, listener, log);
  if (result == SUCCESS) {
    listener->onProgress(0, "");
    StorageProtocolProperties properties;
    protocol->getCachedProperties(&properties);
    // The last sector of the disk is never drawn. A one-sector disk draws
    // from an empty range; the number service answers 0 there.
    const uint64_t randomLimit = properties.sectorCount - 1;
    NumberHandler& numbers = getNumberHandler();
    numbers.seed(static_cast<uint32_t>(std::time(nullptr)));

    std::set<uint64_t> badSectors;
    SectorBuffer readBuffer;
    uint32_t reads = 0;
    uint8_t percent = 0;
    uint8_t lastReported = 0;
    do {
      if (checkAbort(runContext)) {
        result = ABORTED;
        break;
      }
      const uint64_t lba = numbers.randomBelow(randomLimit);
      const uint32_t status =
          readIntoSectorBuffer(readBuffer, protocol, [&](uint8_t* buffer) { return readSectorsForTest(lba, buffer); });
      if (status == 0) {
        // The event runs one read behind the count.
        if (percent != lastReported) {
          listener->onProgress(percent, "");
          lastReported = percent;
        }
      } else {
        const uint32_t verdict =
            handleReadFailure(lba, status, percent, allowedBadSectors, badSectors, listener, log);
        if (verdict != SUCCESS) {
          listener->onProgress(kDone, "");
          result = verdict;
          break;
        }
      }
      // From the count before the increment: 100 comes on the read after the
      // seekCount-th, so a run makes seekCount + 1 reads.
      percent = static_cast<uint8_t>(100.0 / seekCount * reads);
      ++reads;
      if (percent == kDone) listener->onProgress(kDone, "");
    } while (percent < kDone);
    // Within the allowance a single bad sector passes; two or more fail the
    // run, whatever ended it, an abort included.
    if (badSectors.size() > 1) result = FAILED;
  }
  if (reportLostDevice(protocol, listener, log, result)) return result;
  listener->onProgress(kDone, "");
  return result;
}

uint32_t QuickRandomSeekTest::checkSupported(StorageComponent* candidate, TestListener* events, MessageLog* lines) {
  return checkQuickSeekSupported(candidate, events, lines);
}

uint32_t QuickRandomSeekTest::prepare(StorageComponent* candidate, TestListener* events, MessageLog* lines) {
  const uint32_t supported = checkSupported(candidate, events, lines);
  if (supported != SUCCESS) return supported;
  return checkQuickSeekReadable(candidate, events, lines);
}

uint32_t ExtendedRandomSeekTest::checkSupported(StorageComponent* candidate, TestListener* events,
                                                MessageLog* lines) {
  if (candidate == nullptr || candidate->getProtocol() == nullptr) return INVALID;
  if (candidate->getLocation() == kLocationExternal) return refuseExternalDevice(events, lines);
  if (candidate->getBusKind() == kBusScsi && candidate->getProtocol()->getProtocolKind() == kProtocolScsi) {
    // The flags discovery stored stand; the drive is not asked again.
    if (candidate->getSecuritySupported() != 0 && candidate->getSecurityLocked() != 0) {
      return refuseLockedDrive(events, lines);
    }
    return SUCCESS;
  }
  return refuseThisDevice(events, lines);
}

uint32_t ExtendedRandomSeekTest::prepare(StorageComponent* candidate, TestListener* events, MessageLog* lines) {
  const uint32_t supported = checkSupported(candidate, events, lines);
  if (supported != SUCCESS) return supported;
  return wakeForExtendedSeek(candidate);
}
