// The device service of the platform: lists the devices that pass a filter,
// opens their paths for commands, and locks, unlocks and closes handles. The
// scanner of disks and the RAID discovery reach devices only through it.
#pragma once

#include <cstdint>
#include <map>
#include <string>
#include <vector>

#include "win32/win32.h"

// Disk number (or adapter index) to the device paths that lead to it, in the
// order they are to be tried.
using DiskMap = std::map<uint32_t, std::vector<std::string>>;

// Says which devices a scan wants. Platforms derive their own.
class DeviceScanFilter {
 public:
  virtual ~DeviceScanFilter() = default;
};

// A device interface class and a device setup class; both GUIDs are copied,
// as four 32-bit words each.
class WinDeviceScanFilter : public DeviceScanFilter {
 public:
  WinDeviceScanFilter(const GUID& interfaceGuid, const GUID& classGuid);
  const GUID& interfaceGuid() const { return interfaceGuid_; }
  const GUID& classGuid() const { return classGuid_; }

 private:
  GUID interfaceGuid_;
  GUID classGuid_;
};

// GUID_DEVINTERFACE_DISK and GUID_DEVCLASS_DISKDRIVE; the storage port
// interface and the SCSI adapter class.
extern const GUID kDiskInterfaceGuid;
extern const GUID kDiskDriveClassGuid;
extern const GUID kStoragePortInterfaceGuid;
extern const GUID kScsiAdapterClassGuid;

// The service. Results are 0 for success, otherwise the platform's error.
// Operations in order; the first is the destructor.
class DeviceScanner {
 public:
  virtual ~DeviceScanner() = default;
  // The number of devices the last scan found.
  virtual uint32_t lastScanCount() const = 0;
  // Fills `out` with the devices that pass the filter: for a disk its device
  // number with its interface path and \\.\PhysicalDriveN; for another
  // device a running index with its interface path. `out` is cleared first.
  virtual uint32_t scan(DeviceScanFilter* filter, DiskMap& out) = 0;
  // The friendly name the platform gives the device of a scanned path.
  virtual uint32_t friendlyName(const std::string& path, std::string* out) = 0;
  // The scanned paths, in the order of the last scan.
  virtual std::vector<std::string> lastScanPaths() const = 0;
  // Opens a device path for commands (read and write, shared): 0 and the
  // handle in `out`, or the platform's error with `out` left as it was.
  virtual uint32_t open(const std::string& path, HANDLE* out) = 0;
  // Takes exclusive use of a volume (FSCTL_LOCK_VOLUME) and gives it back.
  virtual uint32_t lock(HANDLE handle) = 0;
  virtual uint32_t unlock(HANDLE handle) = 0;
  virtual void close(HANDLE handle) = 0;
};

// Owns a handle the service opened, and closes it through the service when it
// goes out of scope, on every way out (an exception included), unless
// release() has handed it on. An owner that holds nothing closes nothing.
class ScopedDeviceHandle {
 public:
  explicit ScopedDeviceHandle(DeviceScanner* service) : service_(service) {}
  ~ScopedDeviceHandle() { reset(); }
  ScopedDeviceHandle(const ScopedDeviceHandle&) = delete;
  ScopedDeviceHandle& operator=(const ScopedDeviceHandle&) = delete;
  ScopedDeviceHandle(ScopedDeviceHandle&& other) noexcept : service_(other.service_), handle_(other.release()) {}

  // Opens `path` through the service into this owner: the service's status.
  // A failed open leaves the owner empty.
  uint32_t open(const std::string& path) {
    reset();
    HANDLE opened = INVALID_HANDLE_VALUE;
    const uint32_t status = service_ == nullptr ? ERROR_INVALID_HANDLE : service_->open(path, &opened);
    if (status == 0) handle_ = opened;
    return status;
  }
  HANDLE get() const { return handle_; }
  // The handle is the caller's from now on.
  HANDLE release() {
    const HANDLE handle = handle_;
    handle_ = INVALID_HANDLE_VALUE;
    return handle;
  }
  void reset() {
    if (service_ != nullptr && handle_ != nullptr && handle_ != INVALID_HANDLE_VALUE) service_->close(handle_);
    handle_ = INVALID_HANDLE_VALUE;
  }

 private:
  DeviceScanner* service_;
  HANDLE handle_ = INVALID_HANDLE_VALUE;
};

// The process-wide service, created on first use; release does nothing but
// is the pair of get, as the service library has it.
DeviceScanner* get_device_scanner();
void release_device_scanner(DeviceScanner* scanner);
