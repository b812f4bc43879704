// Read helpers shared by the tests and the bad-sector tools.
#include "module/read_helpers.h"

#include <algorithm>
#include <vector>

#include "system/filesystem.h"

namespace {
constexpr uint32_t kReadNotStarted = 2;
constexpr uint32_t kMinimumSectorSize = 512;
}  // namespace

uint32_t readThroughHandle(StorageProtocol* protocol, uint64_t lba, uint32_t sectorCount, uint64_t* firstBadLba,
                           uint32_t timeoutSeconds, void* buffer) {
  if (protocol == nullptr) return kReadNotStarted;
  const uint32_t sectorSize = protocol->getCachedLogicalSectorSize();
  if (sectorSize < kMinimumSectorSize || buffer == nullptr) return kReadNotStarted;

  const uint64_t byteOffset = lba * sectorSize;
  const uint16_t byteCount = static_cast<uint16_t>(sectorCount * sectorSize);  // wraps at 65536, deliberately
  uint64_t bytesRead = 0;
  const uint32_t status =
      getFilesystem().read(protocol->getHandle(), byteOffset, byteCount, &bytesRead, timeoutSeconds, buffer);
  if (status == 0) return 0;
  if (bytesRead == 0) return status;

  // The sum mixes a sector count and a byte offset; that is how the value is
  // defined and reported.
  const uint64_t badLba = bytesRead == byteCount ? 0 : bytesRead / sectorSize + byteOffset;
  if (firstBadLba != nullptr) *firstBadLba = badLba;
  return badLba != 0 ? 1 : 0;
}

uint32_t readWithFallback(StorageProtocol* protocol, uint64_t lba, uint32_t sectorCount, uint64_t* firstBadLba,
                          uint32_t timeoutSeconds, void* buffer, bool useHandle) {
  if (protocol == nullptr) return kReadNotStarted;
  if (!useHandle) return protocol->readSectors(lba, 1, timeoutSeconds, buffer);

  uint32_t status = readThroughHandle(protocol, lba, sectorCount, firstBadLba, timeoutSeconds, buffer);
  if (status == 0 || sectorCount == 0) return status;
  for (uint64_t sector = lba; sector < lba + sectorCount; ++sector) {
    status = protocol->readSectors(sector, 1, timeoutSeconds, buffer);
    if (status != 0 && firstBadLba != nullptr) {
      *firstBadLba = sector;
      return status;
    }
  }
  return status;
}

bool isUsableForRead(StorageComponent* component, TestListener* listener, MessageLog* log) {
  if (component == nullptr || listener == nullptr || log == nullptr) return false;
  if (component->getBusKind() == kBusEmmc || component->getBusKind() == kBusNvme) return false;
  return component->getProtocol() != nullptr;
}

bool checkReadable(StorageComponent* component, TestListener* listener, MessageLog* log) {
  if (component == nullptr || component->getProtocol() == nullptr || listener == nullptr || log == nullptr) {
    return false;
  }
  StorageProtocol* protocol = component->getProtocol();
  StorageProtocolProperties properties;
  protocol->getCachedProperties(&properties);
  if (properties.sectorCount == 0 || properties.logicalSectorSize < kMinimumSectorSize) {
    const std::string text = "DEVICE_COMMUNICATION_FAILURE";
    log->log(text, LevelFailure, nullptr);
    listener->onProgress(100, text);
    return false;
  }
  if (component->getLocation() == kLocationExternal) {
    // A bridge does not report the security state fresh: the flags taken at
    // discovery stand.
    properties.securitySupported = component->getSecuritySupported() != 0;
    properties.securityLocked = component->getSecurityLocked() != 0;
    if (properties.securitySupported && properties.securityLocked) {
      const std::string text = std::string("HARD_DISK_IS_PASSWORD_PROTECTED") + ". |" +
                               "TRY_TO_DISABLE_THE_PASSWORD_PROTECTION";
      log->log(text, LevelInfo, nullptr);
      listener->onProgress(100, text);
      return false;
    }
  }
  if (component->getLocation() != kLocationRaid) {
    // Wakes the device before the test begins; the outcome does not matter.
    std::vector<uint8_t> buffer(std::max(properties.logicalSectorSize, kMinimumSectorSize));
    readThroughHandle(protocol, 0, 1, nullptr, 30, buffer.data());
  }
  return true;
}
