// A disk as the host sees it: its description, how it is attached, and the
// protocol through which it is reached. Discovery fills it (the manager).
#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "module_storage/system_component.h"
#include "protocols/storage_protocol.h"
#include "scanner/disk_partitions.h"

enum Location : uint32_t {
  kLocationUnknown = 0,
  kLocationInternal = 1,
  kLocationExternal = 2,
  kLocationRaid = 3,
};

class StorageComponent : public SystemComponent {
 public:
  // Takes ownership of both; either may be null in tests, the protocol never is
  // after discovery.
  StorageComponent(std::unique_ptr<StorageProtocol> storageProtocol,
                   std::unique_ptr<DiskPartitions> diskPartitions);
  ~StorageComponent() override;

  uint32_t reservedQuery() override { return 0; }
  bool reservedCheckA() override { return true; }
  void reservedActionA() override {}
  bool reservedCheckB() override { return true; }
  void reservedActionB() override {}

  StorageProtocol* getProtocol() const { return protocol.get(); }
  DiskPartitions* getPartitions() const { return partitions.get(); }
  void setPartitions(std::unique_ptr<DiskPartitions> value) { partitions = std::move(value); }

  uint32_t getLocation() const { return location; }
  void setLocation(uint32_t value) { location = value; }
  uint8_t getSecuritySupported() const { return securitySupported; }
  void setSecuritySupported(uint8_t value) { securitySupported = value; }
  uint8_t getSecurityLocked() const { return securityLocked; }
  void setSecurityLocked(uint8_t value) { securityLocked = value; }
  uint32_t getBusKind() const { return busKind; }
  void setBusKind(uint32_t value) { busKind = value; }
  uint32_t getVolumeSpaceAllocation() const { return volumeSpaceAllocation; }
  // Kept for later runs on this component; marks the answer as given.
  void setVolumeSpaceAllocation(uint32_t value) {
    volumeSpaceAllocation = value;
    hasVolumeSpaceAllocation = 1;
  }
  uint8_t getHasVolumeSpaceAllocation() const { return hasVolumeSpaceAllocation; }

  void setName(std::string value) { name = std::move(value); }
  void setId(std::string value) { id = std::move(value); }
  void setAttribute(const std::string& key, std::string value) { attributes[key] = std::move(value); }
  void addSection(DetailSection section) { sections.push_back(std::move(section)); }
  const std::vector<DetailEntry>& getDetails() const { return details; }

  // The value of the first "UDI" entry, or empty.
  std::string getUdi() const;
  // Replaces the entry at `index`; an index past the end changes nothing.
  void setDetail(size_t index, DetailEntry entry);
  // Appends only when the value is not empty.
  void addDetail(const std::string& key, const std::string& value);
  static void addDetail(std::vector<DetailEntry>& target, const std::string& key, const std::string& value);

  // Fills name, details and attributes from `describer`'s properties (null:
  // the component's own protocol). The properties' status when they can't be
  // read; then nothing is filled. See device_description.cpp.
  uint32_t describe(StorageProtocol* describer, const std::string& parentName);
  // One "PARTITION" section per partition record; nothing without records.
  void describePartitions();
  // Takes the disk's mounted volumes from the operating system for a repair:
  // 1 without a partition description or when a volume could not be taken.
  uint32_t unmountVolumes();
  // Gives the volumes taken by unmountVolumes back; the last call's status.
  uint32_t remountVolumes();

 private:
  std::unique_ptr<StorageProtocol> protocol;
  std::unique_ptr<DiskPartitions> partitions;
  uint32_t location = kLocationUnknown;
  uint8_t securitySupported = 0;
  uint8_t securityLocked = 0;
  uint32_t busKind = kBusUnknown;
  uint32_t volumeSpaceAllocation = 0;
  uint8_t hasVolumeSpaceAllocation = 0;
};
