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
#include "system/device_scanner.h"
#include "win32/win32.h"

// DiskMap, DeviceScanFilter, WinDeviceScanFilter and the device service
// (`DeviceScanner`: scan third, open sixth, lock seventh, close ninth in its
// order of operations) come from the system layer. The scanner calls the
// service `DeviceService`.
using DeviceService = DeviceScanner;

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
