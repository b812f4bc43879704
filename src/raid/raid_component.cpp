// How a RAID controller describes itself to the host: its name, identity and
// properties, one section per logical device and one per physical drive. The
// facts come from the family's discover, getLogicalDisks and getPhysicalDrives.
#include "raid/raid_component.h"

#include "system/number_handler.h"

namespace {

constexpr const char* kNoPlatform = "IMSM_CAPABILITIES_NOT_FOUND";

std::string decimal(uint64_t value) { return getNumberHandler().uint64ToString(value); }

std::string joined(const std::vector<std::string>& list) {
  std::string text;
  for (size_t i = 0; i < list.size(); ++i) text += (i == 0 ? "" : ", ") + list[i];
  return text;
}

// Appends only a non-empty value, as a disk's description does.
void add(std::vector<DetailEntry>& target, const std::string& key, const std::string& value) {
  if (!value.empty()) target.push_back({key, value});
}

}  // namespace

RaidComponent::RaidComponent(uint64_t handle, uint32_t kind) : controllerHandle(handle), controllerKind(kind) {}

RaidComponent::~RaidComponent() = default;

uint32_t RaidComponent::describe() {
  details.clear();
  // The family's preparation is a best effort; describing goes on without it.
  prepare();
  uint32_t status = discover(info);
  if (status == kStatusOk) {
    name = info.model;
    if (!info.serial.empty()) name += " - " + info.serial;
    details.push_back({"UDI", info.udi});
    add(details, "MODEL", info.model);
    if (info.platform != kNoPlatform) add(details, "PLATFORM", info.platform);
    add(details, "DRIVER_VERSION", info.driverVersion);
    add(details, "SERIAL", info.serial);
    add(details, "BIOS_VERSION", info.biosVersion);
    if (info.numLogicalDevices >= 0) add(details, "NUM_LOGICAL_DEVICES", decimal(info.numLogicalDevices));
    add(details, "SUPPORTED_INTERFACES", joined(info.supportedInterfaces));
    add(details, "SUPPORTED_RAID_LEVELS", joined(info.supportedRaidLevels));
  }

  // One index runs through the logical devices and then the drives.
  uint64_t index = 0;
  if (info.numLogicalDevices >= 1) {
    std::vector<RaidLogicalDevice> logical;
    if (getLogicalDisks(logical) == kStatusOk) {
      for (const RaidLogicalDevice& device : logical) {
        DetailSection section{"LOGICAL_DISK", {}};
        add(section.entries, "INDEX", decimal(index++));
        add(section.entries, "RAID_LEVEL", device.raidLevel);
        add(section.entries, "NUM_PHYSICAL_DEVICES", decimal(device.numPhysicalDevices));
        add(section.entries, "SIZE",
            device.sizeText.empty() ? getNumberHandler().formatBytes(device.sizeBytes) : device.sizeText);
        sections.push_back(std::move(section));
      }
    }
  }

  std::vector<RaidPhysicalDrive> drives;
  status = getPhysicalDrives(drives);
  if (status != kStatusOk) return status;
  for (const RaidPhysicalDrive& drive : drives) {
    DetailSection section{"PHYSICAL_DISK", {}};
    add(section.entries, "INDEX", decimal(index++));
    add(section.entries, "MANUFACTURER", drive.manufacturer);
    add(section.entries, "MODEL", drive.model);
    if (drive.sizeBytes != 0) add(section.entries, "SIZE", getNumberHandler().formatBytes(drive.sizeBytes));
    add(section.entries, "SERIAL", drive.serial);
    sections.push_back(std::move(section));
  }
  add(details, "NUM_PHYSICAL_DEVICES", decimal(drives.size()));
  return kStatusOk;
}
