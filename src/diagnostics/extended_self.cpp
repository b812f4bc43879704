// Which drives take the extended self test.
#include "diagnostics/extended_self.h"

#include "diagnostics/smart_status.h"

namespace {
constexpr uint32_t kExtendedCode = 2;
constexpr uint32_t kExtendedArgument = 0;
constexpr uint32_t kExtendedPollSeconds = 5;
constexpr uint32_t kExtendedLimitSeconds = 65535;
}  // namespace

ExtendedSelfTest::ExtendedSelfTest(const ItemId& itemId)
    : SelfTest(itemId, kExtendedCode, kExtendedArgument, kExtendedPollSeconds, kExtendedLimitSeconds) {}

uint32_t ExtendedSelfTest::checkSupported(StorageComponent* candidate, TestListener* events, MessageLog* lines) {
  if (candidate == nullptr || candidate->getProtocol() == nullptr) return INVALID;
  if (candidate->getLocation() == kLocationExternal) {
    return refuse(events, lines, kKeyNotSupportedExternal, LevelError);
  }
  if (candidate->getBusKind() == kBusScsi && candidate->getProtocol()->getProtocolKind() == kProtocolScsi) {
    return SelfTest::checkSupported(candidate, events, lines);
  }
  return refuse(events, lines, kKeyNotSupportedInThisDevice, LevelInfo);
}

uint32_t ExtendedSelfTest::prepare(StorageComponent* candidate, TestListener* events, MessageLog* lines) {
  const uint32_t supported = checkSupported(candidate, events, lines);
  if (supported != SUCCESS) return supported;
  return SelfTest::prepare(candidate, events, lines);
}
