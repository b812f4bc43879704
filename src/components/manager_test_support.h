// For the tests of discovery: a Windows scanner on the simulated PC whose
// answers a test may override disk by disk, with a device service that
// records every path opened and every handle closed and refuses the paths a
// test names.
#pragma once

#include <algorithm>
#include <map>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include "components/storage_component_manager.h"
#include "scanner/win_storage_scanner.h"

namespace manager_testing {

class SpyService : public DeviceService {
 public:
  explicit SpyService(DeviceService* inner) : inner(inner) {}
  uint32_t lastScanCount() const override { return inner->lastScanCount(); }
  uint32_t scan(DeviceScanFilter* filter, DiskMap& out) override { return inner->scan(filter, out); }
  uint32_t friendlyName(const std::string& path, std::string* out) override { return inner->friendlyName(path, out); }
  std::vector<std::string> lastScanPaths() const override { return inner->lastScanPaths(); }
  uint32_t open(const std::string& path, HANDLE* out) override {
    openedPaths.push_back(path);
    // A refused open leaves the caller's handle as it was, as the service does.
    if (refused.count(path) != 0) return ERROR_ACCESS_DENIED;
    const uint32_t status = inner->open(path, out);
    if (status == 0) {
      handles.push_back(*out);
      live.insert(*out);
    }
    return status;
  }
  uint32_t lock(HANDLE handle) override { return inner->lock(handle); }
  uint32_t unlock(HANDLE handle) override { return inner->unlock(handle); }
  void close(HANDLE handle) override {
    closed.push_back(handle);
    live.erase(handle);
    inner->close(handle);
  }

  DeviceService* inner;
  std::set<std::string> refused;
  std::vector<std::string> openedPaths;
  std::vector<HANDLE> handles;  // every handle opened, in order
  std::vector<HANDLE> closed;
  std::set<HANDLE> live;  // opened and not yet closed
};

class ScriptedScanner : public WinStorageScanner {
 public:
  ScriptedScanner() : service(deviceService) { deviceService = &service; }
  ~ScriptedScanner() override { deviceService = service.inner; }

  uint32_t scanDevices(DiskMap& out) override {
    ++scans;
    if (!map) return WinStorageScanner::scanDevices(out);
    out = *map;
    diskMap = out;
    return 0;
  }
  uint32_t getBusKind(uint32_t disk, uint32_t* kind) override {
    ++busKindQueries;
    if (busKindFails.count(disk) != 0) return 1;
    const auto it = busKinds.find(disk);
    if (it == busKinds.end()) return WinStorageScanner::getBusKind(disk, kind);
    *kind = it->second;
    return 0;
  }
  uint32_t getLocation(uint32_t disk, uint32_t* location) override {
    const auto it = locations.find(disk);
    if (it == locations.end()) return WinStorageScanner::getLocation(disk, location);
    *location = it->second;
    return 0;
  }
  uint32_t isRemovable(uint32_t disk, uint8_t* removable) override {
    if (removableFails.count(disk) != 0) return 1;
    return WinStorageScanner::isRemovable(disk, removable);
  }
  uint32_t getDeviceNumberText(uint32_t disk, std::string* out) override {
    int& failures = numberTextFailures[disk];
    if (failures > 0) {
      --failures;
      return 1;
    }
    return WinStorageScanner::getDeviceNumberText(disk, out);
  }
  uint32_t getPartitions(uint32_t disk, DiskPartitions* out, uint64_t diskBytes) override {
    partitionQueries.push_back({disk, diskBytes});
    return WinStorageScanner::getPartitions(disk, out, diskBytes);
  }

  SpyService service;
  std::optional<DiskMap> map;
  std::map<uint32_t, uint32_t> busKinds;
  std::map<uint32_t, uint32_t> locations;
  std::set<uint32_t> busKindFails;
  std::set<uint32_t> removableFails;
  std::map<uint32_t, int> numberTextFailures;
  std::vector<std::pair<uint32_t, uint64_t>> partitionQueries;
  int scans = 0;
  int busKindQueries = 0;
};

// A manager on a ScriptedScanner; `scanner` stays valid while the manager lives.
struct ScriptedManager {
  ScriptedManager() {
    auto owned = std::make_unique<ScriptedScanner>();
    scanner = owned.get();
    manager = std::make_unique<StorageComponentManager>(ItemId(1, 0, 1), std::move(owned));
  }
  StorageComponent* component(uint32_t index) const {
    return static_cast<StorageComponent*>(manager->getComponent(index));
  }
  std::string detail(uint32_t index, const std::string& key) const {
    for (const DetailEntry& entry : component(index)->getDetails()) {
      if (entry.key == key) return entry.value;
    }
    return "<absent>";
  }

  ScriptedScanner* scanner = nullptr;
  std::unique_ptr<StorageComponentManager> manager;
};

}  // namespace manager_testing
