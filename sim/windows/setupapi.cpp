// SetupAPI on the simulated PC: device information sets of the disks (disk
// interface class) and of the RAID adapters (storage port interface class),
// their interface paths, which CreateFile accepts, and friendly names.
#include <cstring>

#include "sim/windows/face_state.h"
#include "sim/windows/partition_tables.h"

namespace sim {
namespace windows {

namespace {

constexpr DWORD ERROR_INVALID_DATA = 13;
constexpr DWORD ERROR_INVALID_USER_BUFFER = 1784;

bool sameGuid(const GUID* a, const char* text) {
  GUID b{};
  return a != nullptr && parseGuid(text, &b) && std::memcmp(a, &b, sizeof(GUID)) == 0;
}

bool isDiskClass(const GUID* guid) {
  return sameGuid(guid, "53f56307-b6bf-11d0-94f2-00a0c91efb8b") ||  // disk interface
         sameGuid(guid, "4d36e967-e325-11ce-bfc1-08002be10318");    // disk drive class
}

bool isAdapterClass(const GUID* guid) {
  return sameGuid(guid, "2accfe60-c130-11d2-b082-00a0c91efb8b") ||  // storage port interface
         sameGuid(guid, "4d36e97b-e325-11ce-bfc1-08002be10318");    // SCSI adapter class
}

std::shared_ptr<DevInfoObject> findSet(HDEVINFO set) { return Face::instance().findAs<DevInfoObject>(set, ObjectKind::DevInfo); }

}  // namespace

}  // namespace windows
}  // namespace sim

// The Win32 functions this file serves, handed to the seam by provider.cpp.
namespace sim {
namespace api {

using sim::windows::Face;
using sim::windows::fail;

HDEVINFO SetupDiGetClassDevsW(const GUID* classGuid, LPCWSTR, HWND, DWORD) {
  using namespace sim::windows;
  Face& face = Face::instance();
  sim::Machine* machine = face.machine();
  if (classGuid == nullptr) return fail(ERROR_INVALID_PARAMETER, INVALID_HANDLE_VALUE);
  auto set = std::make_shared<DevInfoObject>();
  set->interfaceGuid = *classGuid;
  if (isDiskClass(classGuid) && machine != nullptr) {
    for (size_t i = 0; i < machine->disks.size(); ++i) {
      const sim::Disk& disk = machine->disks[i];
      if (disk.hidden) continue;  // behind a RAID controller
      std::string name = disk.vendorId.empty() ? disk.productId : disk.vendorId + " " + disk.productId;
      set->devices.emplace_back(diskInterfacePath(*machine, i), name);
    }
  } else if (isAdapterClass(classGuid)) {
    for (auto& controller : face.controllers()) {
      set->devices.emplace_back(controller->interfacePath, controller->friendlyName);
    }
  }
  return face.addObject(set);
}

BOOL SetupDiEnumDeviceInfo(HDEVINFO handle, DWORD index, PSP_DEVINFO_DATA data) {
  auto set = sim::windows::findSet(handle);
  if (!set) return fail(ERROR_INVALID_HANDLE, FALSE);
  if (data == nullptr || data->cbSize != sizeof(SP_DEVINFO_DATA)) {
    return fail(sim::windows::ERROR_INVALID_USER_BUFFER, FALSE);
  }
  if (index >= set->devices.size()) return fail(ERROR_NO_MORE_ITEMS, FALSE);
  data->ClassGuid = set->interfaceGuid;
  data->DevInst = index + 1;
  data->Reserved = index;
  return TRUE;
}

BOOL SetupDiEnumDeviceInterfaces(HDEVINFO handle, PSP_DEVINFO_DATA device, const GUID* interfaceGuid, DWORD index,
                                 PSP_DEVICE_INTERFACE_DATA data) {
  auto set = sim::windows::findSet(handle);
  if (!set) return fail(ERROR_INVALID_HANDLE, FALSE);
  if (data == nullptr || data->cbSize != sizeof(SP_DEVICE_INTERFACE_DATA)) {
    return fail(sim::windows::ERROR_INVALID_USER_BUFFER, FALSE);
  }
  if (interfaceGuid == nullptr) return fail(ERROR_INVALID_PARAMETER, FALSE);
  // Each device has one interface: a device narrows the walk to it.
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
  auto set = sim::windows::findSet(handle);
  if (!set) return fail(ERROR_INVALID_HANDLE, FALSE);
  if (interfaceData == nullptr || interfaceData->Reserved >= set->devices.size()) {
    return fail(ERROR_INVALID_PARAMETER, FALSE);
  }
  const size_t which = interfaceData->Reserved;
  const Win32WideString path = sim::windows::widen(set->devices[which].first);
  const DWORD need =
      static_cast<DWORD>(offsetof(SP_DEVICE_INTERFACE_DETAIL_DATA_W, DevicePath) + (path.size() + 1) * sizeof(WCHAR));
  if (requiredSize != nullptr) *requiredSize = need;
  if (detail == nullptr || detailSize < need) return fail(ERROR_INSUFFICIENT_BUFFER, FALSE);
  if (detail->cbSize != sizeof(SP_DEVICE_INTERFACE_DETAIL_DATA_W)) {
    return fail(sim::windows::ERROR_INVALID_USER_BUFFER, FALSE);
  }
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
  auto set = sim::windows::findSet(handle);
  if (!set) return fail(ERROR_INVALID_HANDLE, FALSE);
  if (device == nullptr || device->Reserved >= set->devices.size()) return fail(ERROR_INVALID_PARAMETER, FALSE);
  if (property != SPDRP_FRIENDLYNAME && property != SPDRP_DEVICEDESC) {
    return fail(sim::windows::ERROR_INVALID_DATA, FALSE);
  }
  const Win32WideString name = sim::windows::widen(set->devices[device->Reserved].second);
  const DWORD need = static_cast<DWORD>((name.size() + 1) * sizeof(WCHAR));
  if (requiredSize != nullptr) *requiredSize = need;
  if (valueType != nullptr) *valueType = REG_SZ;
  if (buffer == nullptr || bufferSize < need) return fail(ERROR_INSUFFICIENT_BUFFER, FALSE);
  std::memcpy(buffer, name.c_str(), need);
  return TRUE;
}

BOOL SetupDiDestroyDeviceInfoList(HDEVINFO handle) {
  Face& face = Face::instance();
  if (!sim::windows::findSet(handle)) return fail(ERROR_INVALID_HANDLE, FALSE);
  face.close(handle);
  return TRUE;
}

}  // namespace api
}  // namespace sim
