// The module's only view of the disks the operating system knows: which disks
// there are, how each is attached, their identifiers and their partitions.
// The listing itself comes from the device service; a scanner only says which
// devices it wants, through a filter.
#pragma once

#include <cstdint>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include "scanner/disk_partitions.h"
#include "scanner/partition_type_names.h"
#include "win32/win32.h"

// Disk number -> the device paths that lead to that disk, as the device
// service delivers them.
using DiskMap = std::map<uint32_t, std::vector<std::string>>;

// Which devices a scan asks for.
class DeviceScanFilter {
 public:
  virtual ~DeviceScanFilter() = default;
};

// The device service: lists device paths that pass a filter, and opens, locks
// and closes them. Status results are 0 for success.
class DeviceService {
 public:
  virtual ~DeviceService() = default;
  virtual uint32_t reservedA() { return 0; }
  // Fills `out` with the devices that pass the filter.
  virtual uint32_t scan(DeviceScanFilter* filter, DiskMap& out) = 0;
  virtual uint32_t reservedB() { return 0; }
  virtual uint32_t reservedC() { return 0; }
  // Opens a device path for commands; 0 on success.
  virtual uint32_t open(const std::string& path, HANDLE* out) = 0;
  // Takes exclusive use of a volume.
  virtual uint32_t lock(HANDLE handle) = 0;
  virtual uint32_t reservedD() { return 0; }
  virtual void close(HANDLE handle) = 0;
};

// The process-wide device service and its release.
DeviceService* get_device_scanner();
void release_device_scanner(DeviceService* service);

class StorageScanner {
 public:
  // Builds the partition name tables, then takes the device service.
  StorageScanner();
  // Releases the device service.
  virtual ~StorageScanner();
  StorageScanner(const StorageScanner&) = delete;
  StorageScanner& operator=(const StorageScanner&) = delete;

  virtual DeviceService* getDeviceService() { return deviceService; }
  virtual uint32_t scanDevices(DiskMap& out) = 0;
  virtual uint32_t getLocation(uint32_t disk, uint32_t* location) = 0;
  virtual uint32_t getPartitions(uint32_t disk, DiskPartitions* out, uint64_t diskBytes) = 0;
  virtual uint32_t getDeviceNumberText(uint32_t disk, std::string* out) = 0;
  virtual uint32_t isRemovable(uint32_t disk, uint8_t* removable) = 0;
  virtual uint32_t getBusKind(uint32_t disk, uint32_t* kind) = 0;
  virtual uint32_t unmountVolume(std::string mountPoint, std::vector<std::string>* names, HANDLE* out,
                                 uint32_t* optionA, uint32_t* optionB, bool force) = 0;
  virtual uint32_t remountVolume(std::string volumeName, std::vector<std::string> names, HANDLE handle,
                                 std::string fileSystem, uint32_t optionA, uint32_t optionB) = 0;

  const PartitionTypeNames& typeNames() const { return names; }

 protected:
  DeviceService* deviceService = nullptr;  // borrowed from the device service library
  DiskMap diskMap;                         // the result of the last scan
  PartitionTypeNames names;                // gptTypeNames and mbrTypeNames
};
