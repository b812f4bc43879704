// Which drives take the vendor drive self test, and its parameters.
#include "diagnostics/drive_self.h"

#include "diagnostics/smart_status.h"
#include "resource/storage_parameters.h"
#include "system/number_handler.h"

namespace {
constexpr uint32_t kDriveCode = 80;  // 0x50, in the range ATA leaves to vendors
constexpr uint32_t kDriveArgument = 4;
constexpr uint32_t kDrivePollSeconds = 10;
constexpr uint32_t kDriveLimitSeconds = 600;
// Both values go into one register byte.
constexpr uint32_t kByteLimit = 256;
}  // namespace

QuickDriveSelfTest::QuickDriveSelfTest(const ItemId& itemId)
    : SelfTest(itemId, kDriveCode, kDriveArgument, kDrivePollSeconds, kDriveLimitSeconds) {}

bool QuickDriveSelfTest::takeByte(const std::map<std::string, std::string>& section, const char* key,
                                  uint32_t* target, std::vector<RejectedParameter>& rejected) {
  const auto found = section.find(key);
  if (found == section.end()) return true;
  bool isNumber = false;
  const int32_t value = stringToInt(found->second, &isNumber);
  if (!isNumber) {
    rejected.push_back({kParameterNotANumber, kParameterSection, key});
    return false;
  }
  // Taken as unsigned, so that a negative number is out of range as well.
  if (static_cast<uint32_t>(value) >= kByteLimit) {
    rejected.push_back({kParameterOutOfRange, kParameterSection, key});
    return false;
  }
  *target = static_cast<uint32_t>(value);
  parametersGiven = true;
  return true;
}

bool QuickDriveSelfTest::setParameters(TestParameters parameters, std::vector<RejectedParameter>& rejected) {
  const auto section = parameters.find(kParameterSection);
  if (section == parameters.end() || section->second.empty()) return true;
  if (!takeByte(section->second, kParameterSelfTestCode, &selfTestCode, rejected)) return false;
  return takeByte(section->second, kParameterSelfTestCount, &selfTestArgument, rejected);
}

uint32_t QuickDriveSelfTest::checkSupported(StorageComponent* candidate, TestListener* events, MessageLog* lines) {
  if (candidate == nullptr || candidate->getProtocol() == nullptr) return INVALID;
  if (candidate->getLocation() == kLocationExternal) {
    return refuse(events, lines, kKeyNotSupportedExternal, LevelError);
  }
  if (candidate->getProtocol()->getProtocolKind() != kProtocolAta) {
    return refuse(events, lines, kKeyNotSupportedInThisDevice, LevelInfo);
  }
  StorageProtocolProperties properties;
  candidate->getProtocol()->getCachedProperties(&properties);
  // The vendor routine is meant for rotating disks; a user who names the
  // code and count takes it onto a solid-state drive at his own word.
  if (properties.isSolidState && !parametersGiven) {
    return refuse(events, lines, kKeyNotSupportedInSsd, LevelError);
  }
  return SelfTest::checkSupported(candidate, events, lines);
}

uint32_t QuickDriveSelfTest::prepare(StorageComponent* candidate, TestListener* events, MessageLog* lines) {
  const uint32_t supported = checkSupported(candidate, events, lines);
  if (supported != SUCCESS) return supported;
  return SelfTest::prepare(candidate, events, lines);
}
