// Which drives take the short self test.
#include "diagnostics/short_self.h"

#include "diagnostics/smart_status.h"

namespace {
constexpr uint32_t kShortCode = 1;
constexpr uint32_t kShortArgument = 0;
constexpr uint32_t kShortPollSeconds = 10;
constexpr uint32_t kShortLimitSeconds = 600;
}  // namespace

ShortSelfTest::ShortSelfTest(const ItemId& itemId)
    : SelfTest(itemId, kShortCode, kShortArgument, kShortPollSeconds, kShortLimitSeconds) {}

uint32_t ShortSelfTest::checkSupported(StorageComponent* candidate, TestListener* events, MessageLog* lines) {
  if (candidate == nullptr) return INVALID;
  if (candidate->getLocation() == kLocationExternal) {
    return refuse(events, lines, kKeyNotSupportedExternal, LevelInfo);
  }
  if (candidate->getLocation() == kLocationRaid && candidate->getBusKind() != kBusScsi) {
    return refuse(events, lines, kKeyNotSupportedInThisDevice, LevelInfo);
  }
  return SelfTest::checkSupported(candidate, events, lines);
}

uint32_t ShortSelfTest::prepare(StorageComponent* candidate, TestListener* events, MessageLog* lines) {
  const uint32_t supported = checkSupported(candidate, events, lines);
  if (supported != SUCCESS) return supported;
  return SelfTest::prepare(candidate, events, lines);
}
