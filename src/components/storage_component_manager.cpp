// Discovery of the disks: which protocol and which bridges each disk answers
// on, and the list of components the host sees.
#include "components/storage_component_manager.h"

#include <algorithm>
#include <utility>

#include "commands/ata/ata_commands.h"
#include "commands/bridges/sat_bridge.h"
#include "commands/bridges/scsi_bridge.h"
#include "commands/bridges/vendor_bridges.h"
#include "protocols/ata_protocol.h"
#include "protocols/emmc_protocol.h"
#include "protocols/protocol_functions.h"
#include "protocols/scsi_protocol.h"
#include "raid/raid_component.h"
#include "raid/raid_component_manager.h"
#include "scanner/win_storage_scanner.h"

namespace {

constexpr uint32_t kIdentifyBytes = 512;

// The ATA probe of an internal disk: the plain transport, then SAT with
// CK_COND on the SCSI transport. A disk that answers both ways keeps both,
// the plain one first.
std::unique_ptr<AtaProtocol> probeInternalAta(const std::shared_ptr<AtaBridge>& plain,
                                              const std::shared_ptr<ScsiBridge>& scsi) {
  std::unique_ptr<AtaProtocol> protocol;
  if (identifyProbe(*plain)) {
    protocol = std::make_unique<AtaProtocol>();
    protocol->addTransport(plain);
  }
  auto sat = std::make_shared<SatBridgeWithCkCondition>(scsi);
  if (identifyProbe(*sat)) {
    if (!protocol) protocol = std::make_unique<AtaProtocol>();
    protocol->addTransport(sat);
  }
  return protocol;
}

// ATA through SAT for an external disk whose protocol did not answer: with
// CK_COND first, without it otherwise. The protocol must then answer
// getProperties. It keeps no protocol kind: later code treats it as neither
// ATA nor SCSI.
std::unique_ptr<StorageProtocol> satFallback(const std::shared_ptr<ScsiBridge>& scsi) {
  auto protocol = std::make_unique<AtaProtocol>();
  bool found = false;
  auto withCkCond = std::make_shared<SatBridgeWithCkCondition>(scsi);
  if (identifyProbe(*withCkCond)) {
    protocol->addTransport(withCkCond);
    found = true;
  }
  auto withoutCkCond = std::make_shared<SatBridgeWithoutCkCond>(scsi);
  if (!found && identifyProbe(*withoutCkCond)) {
    protocol->addTransport(withoutCkCond);
    found = true;
  }
  if (!found) return nullptr;
  StorageProtocolProperties properties;
  if (protocol->getProperties(&properties) != kStatusOk) return nullptr;
  return protocol;
}

}  // namespace

bool identifyProbe(AtaBridge& bridge) {
  uint8_t block[kIdentifyBytes] = {};
  IdentifyDevice identify(block);
  const uint32_t status = bridge.send(identify);
  return status == kStatusOk && isValidIdentifyData(block) && identify.dataLength == kIdentifyBytes;
}

StorageComponentManager::StorageComponentManager(const ItemId& itemId)
    : StorageComponentManager(itemId, std::make_unique<WinStorageScanner>()) {}

StorageComponentManager::StorageComponentManager(const ItemId& itemId, std::unique_ptr<StorageScanner> storageScanner)
    : SystemComponentManager(itemId), scanner(std::move(storageScanner)) {}

StorageComponentManager::~StorageComponentManager() {
  clearComponents();
  scanner.reset();
}

void StorageComponentManager::closeHandle(HANDLE handle) {
  if (handle == nullptr || handle == INVALID_HANDLE_VALUE) return;
  scanner->getDeviceService()->close(handle);
}

void StorageComponentManager::refresh() {
  clearComponents();
  DiskMap diskMap;
  scanner->scanDevices(diskMap);
  DeviceService* service = scanner->getDeviceService();
  for (const auto& disk : diskMap) {
    for (const std::string& path : disk.second) {
      // Closed on every way out of this path but the one that keeps it, an
      // exception included.
      ScopedDeviceHandle handle(service);
      if (handle.open(path) != 0) continue;
      // Removable media are not components.
      uint8_t removable = 0;
      if (scanner->isRemovable(disk.first, &removable) != kStatusOk || removable != 0) continue;
      // A disk of unknown bus is not offered; a RAID volume is not tested as
      // a disk (its drives are found behind the controller).
      uint32_t busKind = kBusUnknown;
      if (scanner->getBusKind(disk.first, &busKind) != kStatusOk || busKind == kBusUnknown || busKind == kBusRaid) {
        continue;
      }
      uint32_t location = kLocationUnknown;
      scanner->getLocation(disk.first, &location);
      DiskCandidate candidate{handle.get(), location, busKind, path};
      std::unique_ptr<StorageProtocol> protocol = createProtocol(candidate);
      if (!protocol) continue;
      std::unique_ptr<StorageComponent> component;
      if (buildComponent(disk.first, std::move(protocol), &component, location, busKind, "") != kStatusOk) {
        component.reset();  // before its handle is closed
        continue;
      }
      // The handle stays open for the life of the component.
      components.push_back(std::move(component));
      handle.release();
      break;
    }
  }
  std::vector<std::unique_ptr<StorageComponent>> raidDrives;
  discoverRaidDrives(raidDrives);
  if (!raidDrives.empty()) mergeRaidDrives(raidDrives);
  makeUdisUnique();
  // Internal, external, then behind a controller; the order of discovery
  // otherwise.
  std::stable_sort(components.begin(), components.end(),
                   [](const std::unique_ptr<SystemComponent>& a, const std::unique_ptr<SystemComponent>& b) {
                     return static_cast<const StorageComponent&>(*a).getLocation() <
                            static_cast<const StorageComponent&>(*b).getLocation();
                   });
}

std::unique_ptr<StorageProtocol> StorageComponentManager::createProtocol(DiskCandidate& candidate) {
  auto plain = std::make_shared<AtaBridge>(candidate.handle);
  auto scsi = std::make_shared<ScsiBridge>(candidate.handle);
  std::unique_ptr<StorageProtocol> protocol;

  if (candidate.busKind == kBusEmmc) {
    // Reached as a plain disk; nothing is probed.
    protocol = std::make_unique<EmmcProtocol>(candidate.handle, candidate.path);
    protocol->setProtocolKind(kProtocolEmmc);
  } else {
    if (candidate.busKind == kBusNvme && ScsiProtocol::isScsiResponding(*scsi)) {
      auto nvme = std::make_unique<NvmeScsiProtocol>();
      nvme->addTransport(scsi);
      protocol = std::move(nvme);
      protocol->setProtocolKind(kProtocolNvme);
    }
    if (!protocol && candidate.location == kLocationInternal) {
      protocol = probeInternalAta(plain, scsi);
      if (protocol) protocol->setProtocolKind(kProtocolAta);
    }
    if (!protocol && ScsiProtocol::isScsiResponding(*scsi)) {
      auto scsiProtocol = std::make_unique<ScsiProtocol>();
      scsiProtocol->addTransport(scsi);
      protocol = std::move(scsiProtocol);
      protocol->setProtocolKind(kProtocolScsi);
    }
  }
  // An external disk's protocol must answer, whatever its kind (an eMMC card
  // in an external reader included); otherwise ATA through SAT may.
  if (candidate.location == kLocationExternal) {
    StorageProtocolProperties properties;
    if (!protocol || protocol->getProperties(&properties) != kStatusOk) {
      protocol.reset();
      protocol = satFallback(scsi);
    }
  }
  if (protocol) protocol->setBusKind(candidate.busKind);
  return protocol;
}

uint32_t StorageComponentManager::buildComponent(uint32_t disk, std::unique_ptr<StorageProtocol> protocol,
                                                 std::unique_ptr<StorageComponent>* component, uint32_t location,
                                                 uint32_t busKind, const std::string& parentName) {
  if (!protocol || component == nullptr) return kStatusNotAvailable;
  // The size of the disk for the partition scan; the status does not matter.
  StorageProtocolProperties scratch;
  protocol->getProperties(&scratch);
  auto partitions = std::make_unique<DiskPartitions>();
  const uint64_t diskBytes = scratch.sectorCount * scratch.logicalSectorSize;
  if (scanner->getPartitions(disk, partitions.get(), diskBytes) != kStatusOk) partitions.reset();
  std::string numberText;
  if (scanner->getDeviceNumberText(disk, &numberText) != kStatusOk) return kStatusNotAvailable;

  *component = std::make_unique<StorageComponent>(std::move(protocol), std::move(partitions));
  StorageComponent& made = **component;
  made.setLocation(location);
  made.setId(numberText);
  made.setBusKind(busKind);
  StorageProtocol* own = made.getProtocol();

  uint32_t result = kStatusOk;
  bool described = false;
  if (busKind == kBusEmmc) {
    result = made.describe(own, "");
    described = true;
  } else if (location == kLocationExternal && own->getProtocolKind() == kProtocolScsi) {
    // A SCSI view of an external disk: look behind the bridge. Every bridge
    // that answers IDENTIFY joins a temporary ATA protocol, which describes
    // the drive itself rather than its enclosure. Tests keep using the SCSI
    // protocol; the temporary one goes at the end of this block.
    auto scsi = std::make_shared<ScsiBridge>(own->getHandle());
    const std::unique_ptr<AtaProtocol> behindOwner = makeProtocolBehindBridge();
    AtaProtocol& behind = *behindOwner;
    const std::shared_ptr<AtaBridge> bridges[] = {
        std::make_shared<SatBridgeWithCkCondition>(scsi), std::make_shared<SatBridgeWithoutCkCond>(scsi),
        std::make_shared<JMicronBridge>(scsi), std::make_shared<SunplusBridge>(scsi)};
    bool answered = false;
    for (const std::shared_ptr<AtaBridge>& bridge : bridges) {
      if (identifyProbe(*bridge)) {
        behind.addTransport(bridge);
        answered = true;
      }
    }
    if (answered) {
      result = made.describe(&behind, "");
      StorageProtocolProperties learned;
      behind.getCachedProperties(&learned);
      made.setSecuritySupported(learned.securitySupported ? 1 : 0);
      made.setSecurityLocked(learned.securityLocked ? 1 : 0);
      StorageProtocolProperties fresh;
      own->getProperties(&fresh);
      described = result == kStatusOk;
    }
  }
  if (!described) result = made.describe(nullptr, parentName);
  if (result == kStatusOk) made.describePartitions();
  return result;
}

std::unique_ptr<AtaProtocol> StorageComponentManager::makeProtocolBehindBridge() {
  return std::make_unique<AtaProtocol>();
}

void StorageComponentManager::discoverRaidDrives(std::vector<std::unique_ptr<StorageComponent>>& out) {
  out.clear();
  RaidComponentManager raid(ItemId(0, 0, 0));
  raid.refresh();
  for (uint32_t index = 0; index < raid.getComponentCount(); ++index) {
    auto* controller = dynamic_cast<RaidComponent*>(raid.getComponent(index));
    if (controller == nullptr) continue;
    RaidControllerInfo info;
    if (controller->discover(info) != kStatusOk) continue;
    std::vector<RaidDrive> drives;
    if (controller->getLogicalDevices(drives) != kStatusOk) continue;
    std::string parentName = info.model;
    if (!info.serial.empty()) parentName += " - " + info.serial;
    for (RaidDrive& drive : drives) {
      // The component owns the first protocol from here on; the second one
      // only describes the drive and goes at the end of this step.
      auto component = std::make_unique<StorageComponent>(std::unique_ptr<StorageProtocol>(drive.firstProtocol),
                                                          nullptr);
      std::unique_ptr<StorageProtocol> second(drive.secondProtocol);
      component->setLocation(kLocationRaid);
      component->setId(drive.name);
      component->setBusKind(drive.busKind);
      StorageProtocolProperties properties;
      if (component->getProtocol() == nullptr || component->getProtocol()->getProperties(&properties) != kStatusOk) {
        continue;
      }
      // A SATA drive seen through SCSI translation says "ATA" as its vendor:
      // its own ATA protocol describes it better.
      StorageProtocol* describer = properties.vendor == "ATA     " ? second.get() : nullptr;
      const uint32_t described = component->describe(describer, parentName);
      second.reset();
      if (described == kStatusOk) out.push_back(std::move(component));
    }
  }
}

void StorageComponentManager::mergeRaidDrives(std::vector<std::unique_ptr<StorageComponent>>& list) {
  for (std::unique_ptr<StorageComponent>& candidate : list) {
    const std::string udi = candidate->getUdi();
    bool seen = false;
    for (const std::unique_ptr<SystemComponent>& present : components) {
      if (static_cast<const StorageComponent&>(*present).getUdi() == udi) {
        seen = true;
        break;
      }
    }
    // The operating system showed the same drive directly: that one stays.
    if (!seen) components.push_back(std::move(candidate));
  }
  list.clear();
}

void StorageComponentManager::makeUdisUnique() {
  // A component without a UDI leaves the one before it as the remembered one.
  std::string remembered;
  for (const std::unique_ptr<SystemComponent>& x : components) {
    for (const DetailEntry& entry : x->getDescription().details) {
      if (entry.key == "UDI") remembered = entry.value;
    }
    for (const std::unique_ptr<SystemComponent>& y : components) {
      if (y == x) continue;
      auto& other = static_cast<StorageComponent&>(*y);
      const std::vector<DetailEntry> details = other.getDescription().details;
      for (size_t i = 0; i < details.size(); ++i) {
        if (details[i].key == "UDI" && details[i].value == remembered) {
          other.setDetail(i, {"UDI", details[i].value + other.getId()});
        }
      }
    }
  }
}

void StorageComponentManager::clearComponents() {
  for (std::unique_ptr<SystemComponent>& component : components) {
    auto& disk = static_cast<StorageComponent&>(*component);
    if (disk.getLocation() != kLocationRaid && disk.getProtocol() != nullptr) {
      closeHandle(disk.getProtocol()->getHandle());
    }
    component.reset();
  }
  components.clear();
}

bool StorageComponentManager::hasUsableRaidDrive() {
  RaidComponentManager raid(ItemId(0, 0, 0));
  raid.refresh();
  for (uint32_t index = 0; index < raid.getComponentCount(); ++index) {
    auto* controller = dynamic_cast<RaidComponent*>(raid.getComponent(index));
    if (controller == nullptr) return false;
    std::vector<RaidPhysicalDrive> drives;
    controller->getPhysicalDrives(drives);
    for (const RaidPhysicalDrive& drive : drives) {
      if (drive.busKind == kBusAta || drive.busKind == kBusScsi) return true;
    }
  }
  return false;
}

SystemComponent* StorageComponentManager::getRefreshedComponent(uint32_t index) {
  if (index >= components.size()) return nullptr;
  auto& disk = static_cast<StorageComponent&>(*components[index]);
  StorageProtocolProperties fresh;
  if (disk.getProtocol() != nullptr) disk.getProtocol()->getProperties(&fresh);
  return &disk;
}

bool StorageComponentManager::hasDevices() {
  DiskMap diskMap;
  scanner->scanDevices(diskMap);
  DeviceService* service = scanner->getDeviceService();
  std::vector<DiskCandidate> candidates;
  // The candidates' handles, closed at the end on every way out.
  std::vector<ScopedDeviceHandle> held;
  bool answer = false;
  for (const auto& disk : diskMap) {
    for (const std::string& path : disk.second) {
      ScopedDeviceHandle handle(service);
      if (handle.open(path) != 0) continue;
      uint8_t removable = 0;
      uint32_t busKind = kBusUnknown;
      if (scanner->isRemovable(disk.first, &removable) != kStatusOk || removable != 0 ||
          scanner->getBusKind(disk.first, &busKind) != kStatusOk) {
        continue;
      }
      if (busKind == kBusAta || busKind == kBusScsi || busKind == kBusEmmc || busKind == kBusNvme) {
        // A local disk: the answer needs no command.
        answer = true;
        break;
      }
      if (busKind == kBusUnknown || busKind == kBusRaid) continue;
      // USB: kept open until every path has been seen.
      uint32_t location = kLocationUnknown;
      scanner->getLocation(disk.first, &location);
      candidates.push_back({handle.get(), location, busKind, path});
      held.push_back(std::move(handle));
    }
    if (answer) break;
  }
  if (!answer && hasUsableRaidDrive()) answer = true;
  if (!answer) {
    for (DiskCandidate& candidate : candidates) {
      if (createProtocol(candidate)) {
        answer = true;
        break;
      }
    }
  }
  held.clear();  // closes the candidates' handles, in order
  return answer;
}
