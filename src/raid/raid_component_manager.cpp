// RAID discovery: the controllers of the LSI libraries and the CSMI adapters.
#include "raid/raid_component_manager.h"

#include <algorithm>
#include <memory>

#include "raid/csmi/csmi_raid_component.h"
#include "raid/lsi/lsi_raid_component.h"
#include "system/number_handler.h"
#include "system/device_scanner.h"
#include "system/string_handler.h"

namespace {

// Positions of the PCI ids in a PCI adapter's interface path:
// \\?\pci#ven_VVVV&dev_DDDD&...
constexpr size_t kVendorIdAt = 12;
constexpr size_t kDeviceIdAt = 21;
constexpr size_t kIdLength = 4;

const char* const kRaidDeviceIds[] = {"1D69", "1D02", "3C02", "2826", "1D68", "1D6B"};

// The LSI library flavours in the order they are asked.
struct LsiFlavour {
  LsiSender* (*get)();
  const char* prefix;
  uint32_t kind;
};
const LsiFlavour kLsiFlavours[] = {{getLsiStdSender, "mr-", kControllerLsiStd},
                                   {getLsiIrSender, "ir-", kControllerLsiIr},
                                   {getLsiIr2Sender, "ir2-", kControllerLsiIr2}};

// Controller list: u16 count at 0, u32 ids from 4, room for 16.
constexpr size_t kControllerIdsAt = 4;
constexpr size_t kControllerRoom = 16;

// The controller ids the library lists; false when the command failed.
bool listControllers(LsiSender* sender, std::vector<uint32_t>* ids) {
  uint8_t buffer[kLsiControllerListBytes] = {};
  LsiCmd cmd;
  makeControllerList(cmd, buffer);
  if (sender->execute(cmd) != 0) return false;
  const size_t count = std::min<size_t>(lsiU16(buffer), kControllerRoom);
  for (size_t i = 0; i < count; ++i) ids->push_back(lsiU32(buffer + kControllerIdsAt + 4 * i));
  return true;
}

std::string idAt(const std::string& path, size_t at) {
  return path.size() >= at + kIdLength ? path.substr(at, kIdLength) : std::string();
}

}  // namespace

std::vector<StorageAdapter> enumerateStorageAdapters() {
  std::vector<StorageAdapter> adapters;
  DeviceScanner* scanner = get_device_scanner();
  if (scanner == nullptr) return adapters;
  WinDeviceScanFilter filter(kStoragePortInterfaceGuid, kScsiAdapterClassGuid);
  DiskMap devices;
  scanner->scan(&filter, devices);
  for (const auto& device : devices) {
    for (const std::string& path : device.second) {
      HANDLE handle = nullptr;
      if (scanner->open(path, &handle) != 0) continue;
      StorageAdapter adapter;
      adapter.path = path;
      adapter.handle = handle;
      scanner->friendlyName(path, &adapter.friendlyName);
      adapter.vendorId = idAt(path, kVendorIdAt);
      adapter.deviceId = idAt(path, kDeviceIdAt);
      adapters.push_back(std::move(adapter));
    }
  }
  release_device_scanner(scanner);
  return adapters;
}

bool passesIdentityTest(StorageAdapter& adapter) {
  getStringHandler().toUpperCase(adapter.vendorId);
  getStringHandler().toUpperCase(adapter.deviceId);
  if (adapter.vendorId != "8086") return false;
  for (const char* known : kRaidDeviceIds) {
    if (adapter.deviceId == known) return true;
  }
  return false;
}

RaidComponentManager::RaidComponentManager(const ItemId& itemId) : SystemComponentManager(itemId) {}

RaidComponentManager::~RaidComponentManager() = default;

SystemComponent* RaidComponentManager::getRefreshedComponent(uint32_t) { return nullptr; }

bool RaidComponentManager::hasDevices() {
  for (const LsiFlavour& flavour : kLsiFlavours) {
    LsiSender* sender = flavour.get();
    if (sender == nullptr) continue;
    std::vector<uint32_t> ids;
    if (listControllers(sender, &ids) && !ids.empty()) return true;
  }
  bool found = false;
  std::vector<StorageAdapter> adapters = enumerateStorageAdapters();
  for (StorageAdapter& adapter : adapters) {
    if (!found && passesIdentityTest(adapter) && csmiProbe(adapter.handle, getCsmiSender())) found = true;
  }
  DeviceScanner* scanner = get_device_scanner();
  for (const StorageAdapter& adapter : adapters) scanner->close(adapter.handle);
  release_device_scanner(scanner);
  return found;
}

void RaidComponentManager::refresh() {
  components.clear();
  for (const LsiFlavour& flavour : kLsiFlavours) {
    LsiSender* sender = flavour.get();
    if (sender == nullptr) continue;
    std::vector<uint32_t> ids;
    if (!listControllers(sender, &ids)) continue;
    for (uint32_t controllerId : ids) {
      auto controller = std::make_unique<LsiRaidComponent>(controllerId, flavour.kind, sender);
      if (controller->describe() != 0) continue;
      controller->setId(flavour.prefix + getNumberHandler().uint64ToString(controllerId));
      components.push_back(std::move(controller));
    }
  }
  for (StorageAdapter& adapter : enumerateStorageAdapters()) {
    if (!passesIdentityTest(adapter) || !csmiProbe(adapter.handle, getCsmiSender())) continue;
    auto controller = std::make_unique<CsmiRaidComponent>(adapter.handle, adapter.friendlyName, adapter.deviceId);
    if (controller->describe() == 0) components.push_back(std::move(controller));
  }
}
