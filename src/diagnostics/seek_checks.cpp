// Support and wake-up checks shared by the funnel and random seek tests.
#include "diagnostics/seek_checks.h"

#include <algorithm>
#include <new>
#include <string>

#include "module/read_helpers.h"

namespace {
constexpr uint32_t kMinimumSectorBytes = 512;
constexpr uint32_t kWakeTimeoutSeconds = 30;
constexpr char kKeyExternal[] = "TEST_NOT_SUPPORTED_IN_EXTERNAL_DEVICE";
constexpr char kKeyThisDevice[] = "TEST_NOT_SUPPORTED_IN_THIS_DEVICE";
constexpr char kKeyLostDevice[] = "DEVICE_COMMUNICATION_FAILURE";
}  // namespace

uint32_t checkQuickSeekSupported(StorageComponent* component, TestListener* listener, MessageLog* log) {
  if (component == nullptr) return INVALID;
  return isUsableForRead(component, listener, log) ? SUCCESS : NOT_APPLICABLE;
}

uint32_t checkQuickSeekReadable(StorageComponent* component, TestListener* listener, MessageLog* log) {
  return checkReadable(component, listener, log) ? SUCCESS : NOT_APPLICABLE;
}

uint32_t wakeForExtendedSeek(StorageComponent* component) {
  if (component == nullptr || component->getProtocol() == nullptr) return INVALID;
  if (component->getLocation() == kLocationRaid) return SUCCESS;
  // Wakes a sleeping drive before the first timed seek; whether the sector
  // came does not matter here.
  std::unique_ptr<uint8_t[]> buffer = sectorBuffer(component->getProtocol());
  if (buffer) readThroughHandle(component->getProtocol(), 0, 1, nullptr, kWakeTimeoutSeconds, buffer.get());
  return SUCCESS;
}

uint32_t refuseExternalDevice(TestListener* listener, MessageLog* log) {
  listener->onProgress(100, kKeyExternal);
  log->log(kKeyExternal, LevelError, nullptr);
  return NOT_APPLICABLE;
}

uint32_t refuseThisDevice(TestListener* listener, MessageLog* log) {
  listener->onProgress(100, kKeyThisDevice);
  log->log(kKeyThisDevice, LevelInfo, nullptr);
  return NOT_APPLICABLE;
}

uint32_t refuseLockedDrive(TestListener* listener, MessageLog* log) {
  const std::string text = std::string("HARD_DISK_IS_PASSWORD_PROTECTED") + ". |" +
                           "TRY_TO_DISABLE_THE_PASSWORD_PROTECTION";
  log->log(text, LevelInfo, nullptr);
  listener->onProgress(100, text);
  return NOT_APPLICABLE;
}

bool reportLostDevice(StorageProtocol* protocol, TestListener* listener, MessageLog* log, uint32_t& result) {
  if (result != FAILED && result != NOT_APPLICABLE) return false;
  if (protocol == nullptr || protocol->isAccessible()) return false;
  listener->onProgress(100, kKeyLostDevice);
  log->log(kKeyLostDevice, LevelError, nullptr);
  result = ABORTED;
  return true;
}

std::unique_ptr<uint8_t[]> sectorBuffer(const StorageProtocol* protocol) {
  const uint32_t sectorSize = protocol != nullptr ? protocol->getCachedLogicalSectorSize() : 0;
  const size_t bytes = std::max(sectorSize, kMinimumSectorBytes);
  return std::unique_ptr<uint8_t[]>(new (std::nothrow) uint8_t[bytes]);
}

uint8_t* SectorBuffer::forOneSector(const StorageProtocol* protocol) {
  const uint32_t sectorSize = protocol != nullptr ? protocol->getCachedLogicalSectorSize() : 0;
  const size_t bytes = std::max(sectorSize, kMinimumSectorBytes);
  if (bytes > size_ || !bytes_) {
    bytes_.reset(new (std::nothrow) uint8_t[bytes]);
    size_ = bytes_ ? bytes : 0;
  }
  return bytes_.get();
}
