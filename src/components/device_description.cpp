// How a disk describes itself to the host: its name, its identity "UDI", the
// details and attributes the host shows, and one section per partition; and
// how its volumes are taken from the operating system for a repair and given
// back. What the drive says comes from a protocol; what lies on the disk from
// the scanner's partition records.
#include <string>
#include <vector>

#include "components/storage_component.h"
#include "scanner/win_storage_scanner.h"
#include "system/number_handler.h"
#include "system/string_handler.h"

namespace {

// Printable bytes only (32 to 126), without leading and trailing blanks.
std::string cleaned(const std::string& text) {
  std::string out;
  getStringHandler().keepPrintable(text, out);
  getStringHandler().trim(out);
  return out;
}

std::string sizeText(uint64_t bytes) { return getNumberHandler().formatBytes(bytes); }

std::string decimal(uint64_t value) { return getNumberHandler().uint64ToString(value); }

}  // namespace

uint32_t StorageComponent::describe(StorageProtocol* describer, const std::string& parentName) {
  StorageProtocol* source = describer != nullptr ? describer : protocol.get();
  if (source == nullptr) return kStatusNotAvailable;
  StorageProtocolProperties properties;
  const uint32_t status = source->getProperties(&properties);
  if (status != kStatusOk) return status;

  const std::string vendor = cleaned(properties.vendor);
  const std::string model = cleaned(properties.model);
  const std::string serial = cleaned(properties.serialNumber);
  const uint64_t logicalBytes = static_cast<uint64_t>(properties.logicalSectorSize) * properties.sectorCount;
  const uint64_t physicalBytes = static_cast<uint64_t>(properties.physicalSectorSize) * properties.sectorCount;

  name = model;
  if (properties.logicalSectorSize != 0 && properties.sectorCount != 0) {
    name += " - " + sizeText(logicalBytes);
  } else if (properties.physicalSectorSize != 0 && properties.sectorCount != 0) {
    name += " - " + sizeText(physicalBytes);
  }

  // The identity: vendor, model and serial joined by "-", without blanks. A
  // missing vendor leaves the leading "-"; nothing else is normalised.
  std::string identity;
  if (!vendor.empty()) identity += vendor;
  if (!model.empty()) identity += "-" + model;
  if (!serial.empty()) identity += "-" + serial;
  std::string udi;
  getStringHandler().removeBlanks(identity, udi);

  addDetail("UDI", udi);
  addDetail("MANUFACTURER", vendor);
  addDetail("MODEL", model);
  addDetail("SERIAL", serial);
  addDetail("FIRMWARE", properties.firmwareRevision);

  if (!parentName.empty()) {
    attributes["parent"] = "RAID_ATTACHED_DRIVES\\" + parentName;
  } else if (location == kLocationInternal) {
    attributes["parent"] = "LOCAL_DRIVES";
  } else if (location == kLocationExternal) {
    attributes["parent"] = "USB_DRIVES";
  }
  attributes["NonRotatingMedia"] = properties.isSolidState ? "T" : "F";

  if (properties.logicalSectorSize != 0 && properties.sectorCount != 0) addDetail("SIZE", sizeText(logicalBytes));
  if (properties.rotationRate != 0) addDetail("ROTATION_RATE", decimal(properties.rotationRate) + " RPM");
  if (properties.cacheSize != 0 && properties.logicalSectorSize != 0) {
    addDetail("CACHE", sizeText(static_cast<uint64_t>(properties.cacheSize) * properties.logicalSectorSize));
  }
  uint8_t celsius = 0;
  if (source->getTemperature(&celsius) == kStatusOk && celsius != 0) {
    addDetail("TEMPERATURE", decimal(celsius) + " C");
  }
  if (properties.physicalSectorSize != 0) addDetail("PHYSICAL_SECTOR_SIZE", decimal(properties.physicalSectorSize));
  if (properties.logicalSectorSize != 0) addDetail("LOGICAL_SECTOR_SIZE", decimal(properties.logicalSectorSize));
  if (properties.sectorCount != 0) addDetail("LOGICAL_SECTORS", decimal(properties.sectorCount));
  if (busKind != kBusRaid && location != kLocationRaid && !properties.supportedStandards.empty()) {
    std::string standards;
    for (const std::string& standard : properties.supportedStandards) standards += standard + ", ";
    standards.resize(standards.size() - 2);
    addDetail("SUPPORTED_STANDARDS", standards);
  }
  addDetail("SPEC_VERSION", properties.standardVersion);
  if (partitions != nullptr) {
    addDetail("PARTITION_SCHEMA", partitions->schemeName);
    // Shown also when nothing is unallocated.
    addDetail("UNALLOCATED", sizeText(partitions->unallocatedBytes));
  }
  return kStatusOk;
}

void StorageComponent::describePartitions() {
  if (partitions == nullptr) return;
  for (const PartitionRecord& record : partitions->records) {
    DetailSection section;
    section.title = "PARTITION";
    std::vector<DetailEntry>& entries = section.entries;
    addDetail(entries, "INDEX", decimal(record.index));
    addDetail(entries, "PARTITION_TYPE", record.type);
    if (record.type == "EXTENDED") {
      // A container holds other partitions and has no volume of its own.
      if (record.size != 0) addDetail(entries, "SIZE", sizeText(record.size));
      sections.push_back(std::move(section));
      continue;
    }
    addDetail(entries, "FILE_SYSTEM", record.fileSystem);
    addDetail(entries, "LABEL", getStringHandler().copyToNul(record.label));
    addDetail(entries, "MOUNT_POINT", record.mountPoints.empty() ? std::string() : record.mountPoints.front());
    addDetail(entries, "SERIAL", record.volumeSerial);
    if (record.size != 0) addDetail(entries, "SIZE", sizeText(record.size));
    if (record.usedBytes != 0 || record.freeBytes != 0) {
      addDetail(entries, "USED", sizeText(record.usedBytes));
      addDetail(entries, "FREE", sizeText(record.freeBytes));
    }
    sections.push_back(std::move(section));
  }
}

uint32_t StorageComponent::unmountVolumes() {
  if (partitions == nullptr) return kStatusNotAvailable;
  uint32_t result = kStatusOk;
  WinStorageScanner scanner;
  for (PartitionRecord& record : partitions->records) {
    if (record.mountPoints.empty() || record.unmountHandle != nullptr) continue;
    HANDLE handle = nullptr;
    const uint32_t status = scanner.unmountVolume(record.mountPoints.front(), &record.otherMountPoints, &handle,
                                                  &record.mountOptionA, &record.mountOptionB, true);
    if (status != kStatusOk) {
      result = kStatusNotAvailable;
      continue;
    }
    record.unmountHandle = handle;
    record.isUnmounted = 1;
  }
  return result;
}

uint32_t StorageComponent::remountVolumes() {
  uint32_t result = kStatusOk;
  if (partitions == nullptr) return result;
  WinStorageScanner scanner;
  for (PartitionRecord& record : partitions->records) {
    if (record.unmountHandle == nullptr || record.isUnmounted == 0) continue;
    result = scanner.remountVolume(id + decimal(record.index), record.mountPoints, record.unmountHandle,
                                   record.fileSystem, record.mountOptionA, record.mountOptionB);
    if (result == kStatusOk) {
      record.isUnmounted = 0;
      record.unmountHandle = nullptr;
    }
  }
  return result;
}
