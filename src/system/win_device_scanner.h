// The device service over SetupAPI and CreateFile: the same code serves the
// real Windows and the simulated PC.
#pragma once

#include <map>
#include <string>
#include <vector>

#include "system/device_scanner.h"

class WinDeviceScanner : public DeviceScanner {
 public:
  uint32_t lastScanCount() const override { return static_cast<uint32_t>(paths_.size()); }
  uint32_t scan(DeviceScanFilter* filter, DiskMap& out) override;
  uint32_t friendlyName(const std::string& path, std::string* out) override;
  std::vector<std::string> lastScanPaths() const override { return paths_; }
  uint32_t open(const std::string& path, HANDLE* out) override;
  uint32_t lock(HANDLE handle) override;
  uint32_t unlock(HANDLE handle) override;
  void close(HANDLE handle) override;

 private:
  std::vector<std::string> paths_;
  std::map<std::string, std::string> names_;  // path -> friendly name
};
