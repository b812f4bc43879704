// The rest of the Win32 calls the module makes, as a Linux host answers them:
// the tick counter and sleep on the monotonic clock, SetupAPI's list of the
// disks, privileges (held with root or CAP_SYS_RAWIO), no controller
// libraries, no COM classes (so no management queries) and no programs to
// start (so no file-system checker). Volumes are in volume_control.cpp.
#include <errno.h>
#include <time.h>
#include <unistd.h>

#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <string>

#include "linux_host/host.h"

namespace linux_host {

namespace {

constexpr DWORD ERROR_INVALID_DATA = 13;
constexpr DWORD ERROR_INVALID_USER_BUFFER = 1784;
constexpr int kCapSysRawio = 17;

const GUID kDiskInterface{0x53F56307, 0xB6BF, 0x11D0, {0x94, 0xF2, 0x00, 0xA0, 0xC9, 0x1E, 0xFB, 0x8B}};
const GUID kDiskDriveClass{0x4D36E967, 0xE325, 0x11CE, {0xBF, 0xC1, 0x08, 0x00, 0x2B, 0xE1, 0x03, 0x18}};

bool sameGuid(const GUID* a, const GUID& b) { return a != nullptr && std::memcmp(a, &b, sizeof(GUID)) == 0; }

DevInfoObject* findSet(HDEVINFO set) {
  return Host::instance().findAs<DevInfoObject>(set, ObjectKind::DevInfo);
}

// The effective capabilities of the process, from /proc/self/status.
uint64_t effectiveCapabilities() {
  std::ifstream status("/proc/self/status");
  std::string line;
  while (std::getline(status, line)) {
    if (line.compare(0, 7, "CapEff:") == 0) return std::strtoull(line.c_str() + 7, nullptr, 16);
  }
  return 0;
}

}  // namespace

// True when the process may send raw commands to a disk: root, or the
// CAP_SYS_RAWIO capability.
bool holdsRawIo() { return ::geteuid() == 0 || (effectiveCapabilities() >> kCapSysRawio & 1) != 0; }

namespace api {

DWORD GetTickCount() {
  timespec now{};
  ::clock_gettime(CLOCK_MONOTONIC, &now);
  const uint64_t ms = static_cast<uint64_t>(now.tv_sec) * 1000 + static_cast<uint64_t>(now.tv_nsec) / 1000000;
  // The counter wraps at 2^32 ms as Windows' does.
  return static_cast<DWORD>(ms);
}

void Sleep(DWORD milliseconds) {
  timespec wanted{static_cast<time_t>(milliseconds / 1000), static_cast<long>(milliseconds % 1000) * 1000000L};
  while (::clock_nanosleep(CLOCK_MONOTONIC, 0, &wanted, &wanted) == EINTR) {
  }
}

UINT SetErrorMode(UINT mode) {
  static UINT current = 0;
  const UINT previous = current;
  current = mode;
  return previous;
}

// --- SetupAPI: the disk interface class lists the provider's disks ------------

HDEVINFO SetupDiGetClassDevsW(const GUID* classGuid, LPCWSTR, HWND, DWORD) {
  if (classGuid == nullptr) return fail(ERROR_INVALID_PARAMETER, INVALID_HANDLE_VALUE);
  auto set = std::make_shared<DevInfoObject>();
  set->interfaceGuid = *classGuid;
  if (sameGuid(classGuid, kDiskInterface) || sameGuid(classGuid, kDiskDriveClass)) {
    const std::vector<HostDisk>& disks = Host::instance().disks();
    for (size_t i = 0; i < disks.size(); ++i) {
      const SysfsDisk& info = disks[i].info;
      std::string name = info.vendor.empty() ? info.product : info.vendor + " " + info.product;
      set->devices.emplace_back(diskInterfacePath(disks[i], i), name);
    }
  }
  return Host::instance().add(set);
}

BOOL SetupDiEnumDeviceInfo(HDEVINFO handle, DWORD index, PSP_DEVINFO_DATA data) {
  auto set = findSet(handle);
  if (!set) return fail(ERROR_INVALID_HANDLE, FALSE);
  if (data == nullptr || data->cbSize != sizeof(SP_DEVINFO_DATA)) return fail(ERROR_INVALID_USER_BUFFER, FALSE);
  if (index >= set->devices.size()) return fail(ERROR_NO_MORE_ITEMS, FALSE);
  data->ClassGuid = set->interfaceGuid;
  data->DevInst = index + 1;
  data->Reserved = index;
  return TRUE;
}

BOOL SetupDiEnumDeviceInterfaces(HDEVINFO handle, PSP_DEVINFO_DATA device, const GUID* interfaceGuid, DWORD index,
                                 PSP_DEVICE_INTERFACE_DATA data) {
  auto set = findSet(handle);
  if (!set) return fail(ERROR_INVALID_HANDLE, FALSE);
  if (data == nullptr || data->cbSize != sizeof(SP_DEVICE_INTERFACE_DATA)) {
    return fail(ERROR_INVALID_USER_BUFFER, FALSE);
  }
  if (interfaceGuid == nullptr) return fail(ERROR_INVALID_PARAMETER, FALSE);
  size_t which = index;
  if (device != nullptr) {
    if (index > 0) return fail(ERROR_NO_MORE_ITEMS, FALSE);
    which = device->Reserved;
  }
  if (which >= set->devices.size()) return fail(ERROR_NO_MORE_ITEMS, FALSE);
  data->InterfaceClassGuid = *interfaceGuid;
  data->Flags = 1;  // SPINT_ACTIVE
  data->Reserved = which;
  return TRUE;
}

BOOL SetupDiGetDeviceInterfaceDetailW(HDEVINFO handle, PSP_DEVICE_INTERFACE_DATA interfaceData,
                                      PSP_DEVICE_INTERFACE_DETAIL_DATA_W detail, DWORD detailSize,
                                      PDWORD requiredSize, PSP_DEVINFO_DATA device) {
  auto set = findSet(handle);
  if (!set) return fail(ERROR_INVALID_HANDLE, FALSE);
  if (interfaceData == nullptr || interfaceData->Reserved >= set->devices.size()) {
    return fail(ERROR_INVALID_PARAMETER, FALSE);
  }
  const size_t which = interfaceData->Reserved;
  const Win32WideString path = widen(set->devices[which].first);
  const DWORD need =
      static_cast<DWORD>(offsetof(SP_DEVICE_INTERFACE_DETAIL_DATA_W, DevicePath) + (path.size() + 1) * sizeof(WCHAR));
  if (requiredSize != nullptr) *requiredSize = need;
  if (detail == nullptr || detailSize < need) return fail(ERROR_INSUFFICIENT_BUFFER, FALSE);
  if (detail->cbSize != sizeof(SP_DEVICE_INTERFACE_DETAIL_DATA_W)) return fail(ERROR_INVALID_USER_BUFFER, FALSE);
  std::memcpy(detail->DevicePath, path.c_str(), (path.size() + 1) * sizeof(WCHAR));
  if (device != nullptr) {
    device->ClassGuid = set->interfaceGuid;
    device->DevInst = static_cast<DWORD>(which + 1);
    device->Reserved = which;
  }
  return TRUE;
}

BOOL SetupDiGetDeviceRegistryPropertyW(HDEVINFO handle, PSP_DEVINFO_DATA device, DWORD property, PDWORD valueType,
                                       BYTE* buffer, DWORD bufferSize, PDWORD requiredSize) {
  auto set = findSet(handle);
  if (!set) return fail(ERROR_INVALID_HANDLE, FALSE);
  if (device == nullptr || device->Reserved >= set->devices.size()) return fail(ERROR_INVALID_PARAMETER, FALSE);
  if (property != SPDRP_FRIENDLYNAME && property != SPDRP_DEVICEDESC) return fail(ERROR_INVALID_DATA, FALSE);
  const Win32WideString name = widen(set->devices[device->Reserved].second);
  const DWORD need = static_cast<DWORD>((name.size() + 1) * sizeof(WCHAR));
  if (requiredSize != nullptr) *requiredSize = need;
  if (valueType != nullptr) *valueType = REG_SZ;
  if (buffer == nullptr || bufferSize < need) return fail(ERROR_INSUFFICIENT_BUFFER, FALSE);
  std::memcpy(buffer, name.c_str(), need);
  return TRUE;
}

BOOL SetupDiDestroyDeviceInfoList(HDEVINFO handle) {
  if (!findSet(handle)) return fail(ERROR_INVALID_HANDLE, FALSE);
  Host::instance().close(handle);
  return TRUE;
}

// --- Privileges -----------------------------------------------------------------

HANDLE GetCurrentProcess() { return reinterpret_cast<HANDLE>(static_cast<intptr_t>(-1)); }

BOOL OpenProcessToken(HANDLE, DWORD, PHANDLE token) {
  if (token == nullptr) return fail(ERROR_INVALID_PARAMETER, FALSE);
  *token = Host::instance().add(std::make_shared<TokenObject>());
  return *token != INVALID_HANDLE_VALUE;
}

BOOL LookupPrivilegeValueA(LPCSTR, LPCSTR name, PLUID luid) {
  if (name == nullptr || luid == nullptr) return fail(ERROR_INVALID_PARAMETER, FALSE);
  // The locally unique identifiers Windows gives these privileges.
  if (std::strcmp(name, "SeManageVolumePrivilege") == 0) {
    *luid = LUID{28, 0};
  } else if (std::strcmp(name, "SeBackupPrivilege") == 0) {
    *luid = LUID{17, 0};
  } else {
    return fail(ERROR_NO_SUCH_PRIVILEGE, FALSE);
  }
  return TRUE;
}

BOOL LookupPrivilegeValueW(LPCWSTR system, LPCWSTR name, PLUID luid) {
  (void)system;
  if (name == nullptr) return fail(ERROR_INVALID_PARAMETER, FALSE);
  return api::LookupPrivilegeValueA(nullptr, narrow(name).c_str(), luid);
}

// A privilege is held when the process holds raw access to disks; otherwise
// the call succeeds with ERROR_NOT_ALL_ASSIGNED, as on Windows.
BOOL AdjustTokenPrivileges(HANDLE token, BOOL, PTOKEN_PRIVILEGES, DWORD, PTOKEN_PRIVILEGES, PDWORD returnLength) {
  if (!Host::instance().findAs<TokenObject>(token, ObjectKind::Token)) return fail(ERROR_INVALID_HANDLE, FALSE);
  if (returnLength != nullptr) *returnLength = 0;
  SetLastError(holdsRawIo() ? ERROR_SUCCESS : ERROR_NOT_ALL_ASSIGNED);
  return TRUE;
}

// --- Controller libraries: none on this host ------------------------------------

HMODULE LoadLibraryA(LPCSTR) { return fail(ERROR_MOD_NOT_FOUND, static_cast<HMODULE>(nullptr)); }
HMODULE LoadLibraryW(LPCWSTR) { return fail(ERROR_MOD_NOT_FOUND, static_cast<HMODULE>(nullptr)); }
HMODULE LoadLibraryExA(LPCSTR, HANDLE, DWORD) { return fail(ERROR_MOD_NOT_FOUND, static_cast<HMODULE>(nullptr)); }
FARPROC GetProcAddress(HMODULE, LPCSTR) { return fail(ERROR_PROC_NOT_FOUND, static_cast<FARPROC>(nullptr)); }
BOOL FreeLibrary(HMODULE) { return fail(ERROR_INVALID_HANDLE, FALSE); }

// --- Programs: there is no file-system checker to start -------------------------

BOOL CreateProcessW(LPCWSTR, LPWSTR, LPSECURITY_ATTRIBUTES, LPSECURITY_ATTRIBUTES, BOOL, DWORD, LPVOID, LPCWSTR,
                    LPSTARTUPINFOW, LPPROCESS_INFORMATION) {
  return fail(ERROR_FILE_NOT_FOUND, FALSE);
}

UINT WinExec(LPCSTR, UINT) { return ERROR_FILE_NOT_FOUND; }

// --- COM: the runtime starts, but no class is registered --------------------------

HRESULT CoInitializeEx(LPVOID, DWORD) { return S_OK; }
void CoUninitialize() {}
HRESULT CoInitializeSecurity(PSECURITY_DESCRIPTOR, LONG, SOLE_AUTHENTICATION_SERVICE*, void*, DWORD, DWORD, void*,
                             DWORD, void*) {
  return S_OK;
}
HRESULT CoCreateInstance(REFCLSID, IUnknown*, DWORD, REFIID, LPVOID* object) {
  if (object != nullptr) *object = nullptr;
  return REGDB_E_CLASSNOTREG;
}

// A BSTR: the 32-bit byte length, then the characters and a NUL.
BSTR SysAllocStringLen(const OLECHAR* text, UINT length) {
  auto* block = static_cast<uint8_t*>(std::malloc(sizeof(uint32_t) + (static_cast<size_t>(length) + 1) * sizeof(OLECHAR)));
  if (block == nullptr) return nullptr;
  const uint32_t bytes = length * static_cast<uint32_t>(sizeof(OLECHAR));
  std::memcpy(block, &bytes, sizeof(bytes));
  auto* chars = reinterpret_cast<OLECHAR*>(block + sizeof(uint32_t));
  if (text != nullptr) {
    std::memcpy(chars, text, length * sizeof(OLECHAR));
  } else {
    std::memset(chars, 0, length * sizeof(OLECHAR));
  }
  chars[length] = 0;
  return chars;
}

BSTR SysAllocString(const OLECHAR* text) {
  if (text == nullptr) return nullptr;
  UINT length = 0;
  while (text[length] != 0) ++length;
  return SysAllocStringLen(text, length);
}

void SysFreeString(BSTR text) {
  if (text != nullptr) std::free(reinterpret_cast<uint8_t*>(text) - sizeof(uint32_t));
}

UINT SysStringLen(BSTR text) {
  if (text == nullptr) return 0;
  uint32_t bytes = 0;
  std::memcpy(&bytes, reinterpret_cast<uint8_t*>(text) - sizeof(uint32_t), sizeof(bytes));
  return bytes / sizeof(OLECHAR);
}

void VariantInit(VARIANTARG* value) {
  if (value != nullptr) std::memset(value, 0, sizeof(*value));
}

HRESULT VariantClear(VARIANTARG* value) {
  if (value == nullptr) return E_INVALIDARG;
  if (value->vt == VT_BSTR) SysFreeString(value->bstrVal);
  std::memset(value, 0, sizeof(*value));
  return S_OK;
}

}  // namespace api

}  // namespace linux_host
