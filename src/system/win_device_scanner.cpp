// Device enumeration by SetupAPI: the interfaces of a class, their paths, and
// for disks the device number that the storage stack gives each.
#include "system/win_device_scanner.h"

#include <cstring>
#include <memory>

#include "system/wide_text.h"

const GUID kDiskInterfaceGuid{0x53F56307, 0xB6BF, 0x11D0, {0x94, 0xF2, 0x00, 0xA0, 0xC9, 0x1E, 0xFB, 0x8B}};
const GUID kDiskDriveClassGuid{0x4D36E967, 0xE325, 0x11CE, {0xBF, 0xC1, 0x08, 0x00, 0x2B, 0xE1, 0x03, 0x18}};
const GUID kStoragePortInterfaceGuid{0x2ACCFE60, 0xC130, 0x11D2, {0xB0, 0x82, 0x00, 0xA0, 0xC9, 0x1E, 0xFB, 0x8B}};
const GUID kScsiAdapterClassGuid{0x4D36E97B, 0xE325, 0x11CE, {0xBF, 0xC1, 0x08, 0x00, 0x2B, 0xE1, 0x03, 0x18}};

WinDeviceScanFilter::WinDeviceScanFilter(const GUID& interfaceGuid, const GUID& classGuid) {
  uint32_t words[4];
  std::memcpy(words, &interfaceGuid, sizeof(words));
  std::memcpy(&interfaceGuid_, words, sizeof(words));
  std::memcpy(words, &classGuid, sizeof(words));
  std::memcpy(&classGuid_, words, sizeof(words));
}

uint32_t WinDeviceScanner::scan(DeviceScanFilter* filter, DiskMap& out) {
  out.clear();
  paths_.clear();
  names_.clear();
  auto* win = dynamic_cast<WinDeviceScanFilter*>(filter);
  if (win == nullptr) return ERROR_INVALID_PARAMETER;
  HDEVINFO set = SetupDiGetClassDevsW(&win->interfaceGuid(), nullptr, nullptr, DIGCF_PRESENT | DIGCF_DEVICEINTERFACE);
  if (set == INVALID_HANDLE_VALUE) return GetLastError();
  const bool disks = std::memcmp(&win->interfaceGuid(), &kDiskInterfaceGuid, sizeof(GUID)) == 0;
  uint32_t index = 0;
  SP_DEVICE_INTERFACE_DATA data{};
  data.cbSize = sizeof(data);
  for (DWORD i = 0; SetupDiEnumDeviceInterfaces(set, nullptr, &win->interfaceGuid(), i, &data); ++i) {
    DWORD need = 0;
    SetupDiGetDeviceInterfaceDetailW(set, &data, nullptr, 0, &need, nullptr);
    if (need < sizeof(SP_DEVICE_INTERFACE_DETAIL_DATA_W)) continue;
    std::unique_ptr<uint8_t[]> buffer(new uint8_t[need]());
    auto* detail = reinterpret_cast<SP_DEVICE_INTERFACE_DETAIL_DATA_W*>(buffer.get());
    detail->cbSize = sizeof(SP_DEVICE_INTERFACE_DETAIL_DATA_W);
    SP_DEVINFO_DATA device{};
    device.cbSize = sizeof(device);
    if (!SetupDiGetDeviceInterfaceDetailW(set, &data, detail, need, nullptr, &device)) continue;
    const std::string path = wideToUtf8(detail->DevicePath);
    WCHAR name[256] = {};
    if (SetupDiGetDeviceRegistryPropertyW(set, &device, SPDRP_FRIENDLYNAME, nullptr, reinterpret_cast<BYTE*>(name),
                                          sizeof(name) - sizeof(WCHAR), nullptr) ||
        SetupDiGetDeviceRegistryPropertyW(set, &device, SPDRP_DEVICEDESC, nullptr, reinterpret_cast<BYTE*>(name),
                                          sizeof(name) - sizeof(WCHAR), nullptr)) {
      names_[path] = wideToUtf8(name);
    }
    paths_.push_back(path);
    if (!disks) {
      out[index++].push_back(path);
      continue;
    }
    // A disk is filed under its device number; one that can't say it is left out.
    HANDLE handle = CreateFileW(detail->DevicePath, 0, FILE_SHARE_READ | FILE_SHARE_WRITE, nullptr, OPEN_EXISTING, 0,
                                nullptr);
    if (handle == INVALID_HANDLE_VALUE) continue;
    STORAGE_DEVICE_NUMBER number{};
    DWORD returned = 0;
    const BOOL known = DeviceIoControl(handle, IOCTL_STORAGE_GET_DEVICE_NUMBER, nullptr, 0, &number, sizeof(number),
                                       &returned, nullptr);
    CloseHandle(handle);
    if (!known) continue;
    out[number.DeviceNumber].push_back(path);
    out[number.DeviceNumber].push_back("\\\\.\\PhysicalDrive" + std::to_string(number.DeviceNumber));
  }
  const DWORD error = GetLastError();
  SetupDiDestroyDeviceInfoList(set);
  return error == ERROR_NO_MORE_ITEMS ? 0 : error;
}

uint32_t WinDeviceScanner::friendlyName(const std::string& path, std::string* out) {
  const auto it = names_.find(path);
  if (it == names_.end() || out == nullptr) return ERROR_FILE_NOT_FOUND;
  *out = it->second;
  return 0;
}

uint32_t WinDeviceScanner::open(const std::string& path, HANDLE* out) {
  if (out == nullptr) return ERROR_INVALID_PARAMETER;
  const Win32WideString wide = utf8ToWide(path.c_str());
  const HANDLE opened = CreateFileW(wide.c_str(), GENERIC_READ | GENERIC_WRITE, FILE_SHARE_READ | FILE_SHARE_WRITE,
                                    nullptr, OPEN_EXISTING, 0, nullptr);
  if (opened == INVALID_HANDLE_VALUE) {
    // A failed open leaves the caller's handle as it was: the volume walk of
    // the partition scan relies on that (it keeps the previous root's handle).
    const DWORD error = GetLastError();
    return error != 0 ? error : ERROR_INVALID_HANDLE;
  }
  *out = opened;
  return 0;
}

uint32_t WinDeviceScanner::lock(HANDLE handle) {
  DWORD returned = 0;
  if (DeviceIoControl(handle, FSCTL_LOCK_VOLUME, nullptr, 0, nullptr, 0, &returned, nullptr)) return 0;
  const DWORD error = GetLastError();
  return error != 0 ? error : ERROR_ACCESS_DENIED;
}

uint32_t WinDeviceScanner::unlock(HANDLE handle) {
  DWORD returned = 0;
  if (DeviceIoControl(handle, FSCTL_UNLOCK_VOLUME, nullptr, 0, nullptr, 0, &returned, nullptr)) return 0;
  const DWORD error = GetLastError();
  return error != 0 ? error : ERROR_ACCESS_DENIED;
}

void WinDeviceScanner::close(HANDLE handle) {
  if (handle != nullptr && handle != INVALID_HANDLE_VALUE) CloseHandle(handle);
}

DeviceScanner* get_device_scanner() {
  static WinDeviceScanner scanner;
  return &scanner;
}

void release_device_scanner(DeviceScanner*) {}
