// What a test asks of a drive, whatever its family, and the record of what the
// drive last said about itself. Commands, bridges and senders stay below.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "commands/status_codes.h"
#include "win32/win32.h"

// One usable volume of a drive that is reached as a plain disk.
class StoragePartitionProperties {
 public:
  virtual ~StoragePartitionProperties() = default;
  std::string volumePath;
  std::string tempPath;
  std::string fileSystem;
};

// A drive's identity and capabilities. logicalSectorSize >= 512 with a
// non-zero sectorCount marks a usable drive.
class StorageProtocolProperties {
 public:
  virtual ~StorageProtocolProperties() = default;

  std::string label;
  std::vector<std::string> supportedStandards;  // oldest first
  std::string standardVersion;
  bool isSolidState = false;
  std::string serialNumber;
  std::string model;
  std::string firmwareRevision;
  std::string vendor;
  uint64_t sectorCount = 0;
  uint32_t logicalSectorSize = 0;
  uint32_t physicalSectorSize = 0;
  uint32_t cacheSize = 0;
  uint16_t rotationRate = 0;  // 0: unknown or solid state
  bool removable = false;
  bool securitySupported = false;
  bool securityLocked = false;
  bool smartSupported = false;
  bool smartEnabled = false;
  bool lba48Supported = false;
  bool smartDataValid = false;
  bool offlineImmediateSupported = false;
  bool offlineAbortSupported = false;
  bool selfTestSupported = false;
  std::vector<StoragePartitionProperties> partitions;
};

// Bus families of a component and a protocol.
enum BusKind : uint32_t {
  kBusAta = 0,
  kBusScsi = 1,
  kBusUsb = 2,
  kBusRaid = 3,
  kBusUnknown = 4,
  kBusEmmc = 5,
  kBusNvme = 6,
};

enum ProtocolKind : uint32_t {
  kProtocolNone = 0,
  kProtocolAta = 1,
  kProtocolScsi = 2,
  kProtocolEmmc = 3,
  kProtocolNvme = 4,
};

// Not safe against a second caller: one thread at a time per device.
class StorageProtocol {
 public:
  StorageProtocol() = default;
  virtual ~StorageProtocol() = default;
  StorageProtocol(const StorageProtocol&) = delete;
  StorageProtocol& operator=(const StorageProtocol&) = delete;

  // The handle on which commands go.
  virtual HANDLE getHandle() = 0;
  // Asks the device, refreshes the cache and copies it to `out`.
  virtual uint32_t getProperties(StorageProtocolProperties* out) = 0;
  virtual uint32_t readSectors(uint64_t lba, uint16_t count, uint32_t timeoutSeconds, void* buffer) = 0;
  virtual uint32_t getTemperature(uint8_t* celsius) = 0;
  // `code` is the ATA subcommand or the SCSI self-test code.
  virtual uint32_t startSelfTest(uint8_t code, uint8_t count) = 0;
  virtual uint32_t getSelfTestProgress(uint8_t* percentDone) = 0;
  virtual uint32_t getSelfTestStatus(uint8_t* status) = 0;
  virtual uint32_t abortSelfTest() = 0;
  virtual uint32_t getSelfTestFailingLba(uint64_t* lba) = 0;
  // healthy: 1 when no threshold is exceeded, 0 when one is.
  virtual uint32_t getSmartStatus(uint8_t* healthy) = 0;
  virtual uint32_t enableSmart(uint8_t enable) = 0;
  // True when getProperties succeeds.
  virtual bool isAccessible() = 0;
  virtual uint32_t writeUncorrectable(uint64_t lba) = 0;
  // Writes exactly one sector.
  virtual uint32_t writeSector(uint64_t lba, void* buffer) = 0;

  // Copies the cache without touching the device; 1 for a null `out`.
  uint32_t getCachedProperties(StorageProtocolProperties* out) const {
    if (out == nullptr) return kStatusNotAvailable;
    *out = cache;
    return kStatusOk;
  }
  // The cached logical sector size alone: what a read needs of the cache,
  // without copying its strings and lists on every sector.
  uint32_t getCachedLogicalSectorSize() const { return cache.logicalSectorSize; }
  // Asks the operating system's failure prediction for the device behind
  // getHandle(): healthy 1 when the drive predicts no failure, 0 when it
  // does. 34 when the call fails, 2 for a null `healthy`. The protocols fall
  // back to it when their own SMART query cannot be made.
  uint32_t getPredictFailureStatus(uint8_t* healthy);

  void setBusKind(uint32_t kind) { busKind = kind; }
  void setProtocolKind(uint32_t kind) { protocolKind = kind; }
  uint32_t getBusKind() const { return busKind; }
  uint32_t getProtocolKind() const { return protocolKind; }

 protected:
  StorageProtocolProperties cache;
  uint32_t busKind = kBusUnknown;
  uint32_t protocolKind = kProtocolNone;
};
