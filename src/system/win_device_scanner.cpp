// Device enumeration by SetupAPI: the interfaces of a class, their paths, and
// for disks the device number that the storage stack gives each.
#include "system/win_device_scanner.h"

#include <cstring>
#include <memory>

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

namespace {

// UTF-16 to UTF-8 for the paths and names SetupAPI gives.
std::string narrowText(const WCHAR* text) {
  std::string out;
  for (size_t i = 0; text[i] != 0; ++i) {
    uint32_t c = static_cast<uint32_t>(text[i]);
    if (c >= 0xD800 && c <= 0xDBFF && text[i + 1] >= 0xDC00 && text[i + 1] <= 0xDFFF) {
      c = 0x10000 + ((c - 0xD800) << 10) + (static_cast<uint32_t>(text[i + 1]) - 0xDC00);
      ++i;
    }
    if (c < 0x80) {
      out += static_cast<char>(c);
    } else if (c < 0x800) {
      out += static_cast<char>(0xC0 | (c >> 6));
      out += static_cast<char>(0x80 | (c & 0x3F));
    } else if (c < 0x10000) {
      out += static_cast<char>(0xE0 | (c >> 12));
      out += static_cast<char>(0x80 | ((c >> 6) & 0x3F));
      out += static_cast<char>(0x80 | (c & 0x3F));
    } else {
      out += static_cast<char>(0xF0 | (c >> 18));
      out += static_cast<char>(0x80 | ((c >> 12) & 0x3F));
      out += static_cast<char>(0x80 | ((c >> 6) & 0x3F));
      out += static_cast<char>(0x80 | (c & 0x3F));
    }
  }
  return out;
}

Win32WideString widenText(const std::string& text) {
  Win32WideString out;
  for (size_t i = 0; i < text.size();) {
    const auto byte = static_cast<uint8_t>(text[i]);
    uint32_t c = byte;
    size_t extra = byte >= 0xF0 ? 3 : byte >= 0xE0 ? 2 : byte >= 0xC0 ? 1 : 0;
    if (extra > 0) c = byte & (0x3F >> extra);
    ++i;
    for (size_t k = 0; k < extra && i < text.size(); ++k, ++i) c = (c << 6) | (static_cast<uint8_t>(text[i]) & 0x3F);
    if (c >= 0x10000) {
      c -= 0x10000;
      out += static_cast<WCHAR>(0xD800 + (c >> 10));
      out += static_cast<WCHAR>(0xDC00 + (c & 0x3FF));
    } else {
      out += static_cast<WCHAR>(c);
    }
  }
  return out;
}

}  // namespace

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
    const std::string path = narrowText(detail->DevicePath);
    WCHAR name[256] = {};
    if (SetupDiGetDeviceRegistryPropertyW(set, &device, SPDRP_FRIENDLYNAME, nullptr, reinterpret_cast<BYTE*>(name),
                                          sizeof(name) - sizeof(WCHAR), nullptr) ||
        SetupDiGetDeviceRegistryPropertyW(set, &device, SPDRP_DEVICEDESC, nullptr, reinterpret_cast<BYTE*>(name),
                                          sizeof(name) - sizeof(WCHAR), nullptr)) {
      names_[path] = narrowText(name);
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
  const Win32WideString wide = widenText(path);
  *out = CreateFileW(wide.c_str(), GENERIC_READ | GENERIC_WRITE, FILE_SHARE_READ | FILE_SHARE_WRITE, nullptr,
                     OPEN_EXISTING, 0, nullptr);
  if (*out == INVALID_HANDLE_VALUE) {
    const DWORD error = GetLastError();
    *out = nullptr;
    return error != 0 ? error : ERROR_INVALID_HANDLE;
  }
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
