// For the scanner's tests: a scanner whose disk map a test may set, and a
// device service that records the paths it is asked to open and refuses the
// ones a test names, passing everything else to the process-wide service.
#pragma once

#include <set>
#include <string>
#include <vector>

#include "scanner/win_storage_scanner.h"
#include "sim/windows/face_test_support.h"

namespace scanner_testing {

class RecordingService : public DeviceService {
 public:
  explicit RecordingService(DeviceService* inner) : inner(inner) {}
  uint32_t lastScanCount() const override { return inner->lastScanCount(); }
  uint32_t scan(DeviceScanFilter* filter, DiskMap& out) override {
    ++scans;
    if (auto* win = dynamic_cast<WinDeviceScanFilter*>(filter)) {
      interfaceGuid = win->interfaceGuid();
      classGuid = win->classGuid();
    }
    return inner->scan(filter, out);
  }
  uint32_t friendlyName(const std::string& path, std::string* out) override { return inner->friendlyName(path, out); }
  std::vector<std::string> lastScanPaths() const override { return inner->lastScanPaths(); }
  uint32_t open(const std::string& path, HANDLE* out) override {
    opened.push_back(path);
    // A refused open leaves the caller's handle as it was, as the service does.
    if (refused.count(path) != 0) return ERROR_ACCESS_DENIED;
    return inner->open(path, out);
  }
  uint32_t lock(HANDLE handle) override {
    ++locks;
    return inner->lock(handle);
  }
  uint32_t unlock(HANDLE handle) override { return inner->unlock(handle); }
  void close(HANDLE handle) override {
    ++closes;
    closed.push_back(handle);
    inner->close(handle);
  }

  DeviceService* inner;
  std::vector<std::string> opened;
  std::set<std::string> refused;
  int scans = 0;
  int locks = 0;
  int closes = 0;
  std::vector<HANDLE> closed;  // every handle given to close, in order
  GUID interfaceGuid{};
  GUID classGuid{};
};

// A WinStorageScanner that talks through a RecordingService and lets a test
// see and set its disk map. The process-wide service goes back before the
// base destructor releases it.
class TestScanner : public WinStorageScanner {
 public:
  TestScanner() : recorder(deviceService) { deviceService = &recorder; }
  ~TestScanner() override { deviceService = recorder.inner; }
  DiskMap& map() { return diskMap; }

  RecordingService recorder;
};

}  // namespace scanner_testing
