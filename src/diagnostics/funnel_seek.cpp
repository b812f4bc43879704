// The funnel walk and the two funnel seek tests.
#include "diagnostics/funnel_seek.h"

#include <algorithm>
#include <ctime>

#include "diagnostics/seek_checks.h"
#include "module/read_helpers.h"
#include "system/number_handler.h"

namespace {
constexpr uint64_t kFirstPhaseSectors = 100;
constexpr uint64_t kLastPhaseSpan = 100;  // lastLba - 100 .. lastLba, both included
}  // namespace

FunnelSeekTest::FunnelSeekTest(const ItemId& itemId, float fraction, uint32_t allowed)
    : StorageTest(itemId), stepFraction(fraction), allowedBadSectors(allowed) {}

uint64_t FunnelSeekTest::stepFor(uint64_t lastLba, float fraction) {
  // lastLba + 1 is taken in single precision after the conversion, so that a
  // drive that reports no capacity (lastLba wrapped to the top) still gets a
  // finite walk instead of one sector a step over the whole 64-bit range.
  const float sectors = static_cast<float>(lastLba) + 1.0f;
  const uint64_t step = static_cast<uint64_t>(sectors * fraction);
  // Below 1/fraction sectors the share rounds down to nothing; a window of at
  // least one sector keeps the walk moving.
  return std::max<uint64_t>(step, 1);
}

uint32_t FunnelSeekTest::run(TestRunContext* runContext) {
  abortAnnounced = false;
  const uint32_t bound = bindContext(runContext);
  if (bound != SUCCESS) return bound;
  if (checkAbort(runContext)) return ABORTED;

  std::set<uint64_t> badSectors;
  uint32_t result = prepare(component, listener, log);
  if (result == SUCCESS) {
    StorageProtocolProperties properties;
    protocol->getCachedProperties(&properties);
    const uint64_t lastLba = properties.sectorCount - 1;
    listener->onProgress(0, "");
    result = readFirstSectors(badSectors);
    if (result == SUCCESS) result = walkFunnel(runContext, lastLba, badSectors);
    if (result == SUCCESS) result = readLastSectors(lastLba, badSectors);
    // Within the allowance a single bad sector passes; two or more fail the
    // run at its end, whatever ended it, an abort included.
    if (badSectors.size() > 1) result = FAILED;
  }
  listener->onProgress(100, "");
  if (reportLostDevice(protocol, listener, log, result)) return result;
  listener->onProgress(100, "");
  return result;
}

uint32_t FunnelSeekTest::readFixedSector(uint64_t lba, std::set<uint64_t>& badSectors) {
  const uint32_t status =
      readIntoSectorBuffer(readBuffer, protocol, [&](uint8_t* buffer) { return readSectorsForTest(lba, buffer); });
  if (status == 0) return SUCCESS;
  const uint32_t verdict = handleReadFailure(lba, status, 0, allowedBadSectors, badSectors, listener, log);
  if (verdict != SUCCESS) listener->onProgress(100, "");
  return verdict;
}

uint32_t FunnelSeekTest::readFirstSectors(std::set<uint64_t>& badSectors) {
  for (uint64_t lba = 0; lba < kFirstPhaseSectors; ++lba) {
    const uint32_t verdict = readFixedSector(lba, badSectors);
    if (verdict != SUCCESS) return verdict;
  }
  return SUCCESS;
}

uint32_t FunnelSeekTest::readLastSectors(uint64_t lastLba, std::set<uint64_t>& badSectors) {
  if (lastLba < kLastPhaseSpan) return SUCCESS;
  for (uint64_t lba = lastLba - kLastPhaseSpan; lba <= lastLba; ++lba) {
    const uint32_t verdict = readFixedSector(lba, badSectors);
    if (verdict != SUCCESS) return verdict;
    if (lba == UINT64_MAX) break;
  }
  return SUCCESS;
}

uint32_t FunnelSeekTest::walkFunnel(TestRunContext* runContext, uint64_t lastLba, std::set<uint64_t>& badSectors) {
  // Until the first pair is read, its share is that of the first phase.
  uint8_t percent = static_cast<uint8_t>(10000.0f / (static_cast<float>(lastLba) + 100.0f));
  const uint64_t step = stepFor(lastLba, stepFraction);
  uint64_t top = lastLba;
  uint64_t bottom = 0;
  uint8_t lastReported = 0;
  getNumberHandler().seed(static_cast<uint32_t>(std::time(nullptr)));

  uint32_t verdict = SUCCESS;
  while (lastLba != 0 && top != 0 && bottom < lastLba) {
    if (checkAbort(runContext)) return ABORTED;
    const uint64_t newTop = top - std::min(top, step);
    verdict = readRandomInSpan(newTop, top, runContext, badSectors, percent);
    top = newTop;
    if (verdict != SUCCESS) break;
    // The upward span stops at the last LBA; past the middle it goes on to
    // the far end, as the downward one does.
    const uint64_t newBottom = bottom + std::min(step, lastLba - bottom);
    verdict = readRandomInSpan(bottom, newBottom, runContext, badSectors, percent);
    bottom = newBottom;
    if (verdict != SUCCESS) break;
    // Scaled to 99: the walk never reports 100 by itself.
    percent = static_cast<uint8_t>(static_cast<double>(newBottom) / static_cast<double>(lastLba) * 99.0);
    if (percent != lastReported) {
      listener->onProgress(percent, "");
      lastReported = percent;
    }
  }
  if (verdict != SUCCESS) listener->onProgress(100, "");
  return verdict;
}

uint32_t FunnelSeekTest::readRandomInSpan(uint64_t low, uint64_t high, TestRunContext* runContext,
                                          std::set<uint64_t>& badSectors, uint8_t percent) {
  const uint64_t lba = low + getNumberHandler().randomBelow(high - low);
  const uint32_t status =
      readIntoSectorBuffer(readBuffer, protocol, [&](uint8_t* buffer) { return readSectorsForTest(lba, buffer); });
  if (status == 0) return SUCCESS;
  TestListener* events = runContext->getTestListener() != nullptr ? runContext->getTestListener() : listener;
  MessageLog* lines = runContext->getMessageLog() != nullptr ? runContext->getMessageLog() : log;
  return handleReadFailure(lba, status, percent, allowedBadSectors, badSectors, events, lines);
}

uint32_t QuickFunnelSeekTest::checkSupported(StorageComponent* candidate, TestListener* events, MessageLog* lines) {
  return checkQuickSeekSupported(candidate, events, lines);
}

uint32_t QuickFunnelSeekTest::prepare(StorageComponent* candidate, TestListener* events, MessageLog* lines) {
  const uint32_t supported = checkSupported(candidate, events, lines);
  if (supported != SUCCESS) return supported;
  return checkQuickSeekReadable(candidate, events, lines);
}

uint32_t ExtendedFunnelSeekTest::checkSupported(StorageComponent* candidate, TestListener* events,
                                                MessageLog* lines) {
  if (candidate == nullptr || candidate->getProtocol() == nullptr) return INVALID;
  if (candidate->getLocation() == kLocationExternal) return refuseExternalDevice(events, lines);
  if (candidate->getBusKind() == kBusScsi && candidate->getProtocol()->getProtocolKind() == kProtocolScsi) {
    return isUsableForRead(candidate, events, lines) ? SUCCESS : NOT_APPLICABLE;
  }
  return refuseThisDevice(events, lines);
}

uint32_t ExtendedFunnelSeekTest::prepare(StorageComponent* candidate, TestListener* events, MessageLog* lines) {
  const uint32_t supported = checkSupported(candidate, events, lines);
  if (supported != SUCCESS) return supported;
  return wakeForExtendedSeek(candidate);
}
