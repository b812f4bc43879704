// EmmcProtocol: a plain disk with a minimum of StorageProtocol on top.
#include "protocols/emmc_protocol.h"

#include <utility>

EmmcProtocol::EmmcProtocol(HANDLE deviceHandle, std::string devicePath, EmmcUtils* emmcUtils)
    : handle(deviceHandle), path(std::move(devicePath)), utils(emmcUtils) {}

EmmcProtocol::~EmmcProtocol() = default;

uint32_t EmmcProtocol::getProperties(StorageProtocolProperties* out) {
  if (out == nullptr) return kStatusBadArgument;
  EmmcGeometry geometry;
  EmmcDeviceStrings strings;
  // A drive that can't tell both keeps the cache as it was; the caller sees
  // no failure, only the (perhaps empty) record.
  if (utils->getGeometry(handle, &geometry) == kStatusOk && utils->getDeviceStrings(handle, &strings) == kStatusOk) {
    cache.firmwareRevision = strings.productRevision;
    cache.model = strings.productId;
    cache.serialNumber = strings.serialNumber;
    cache.vendor = strings.vendorId;
    cache.sectorCount = geometry.totalSectors;
    cache.logicalSectorSize = geometry.bytesPerSector;
    cache.physicalSectorSize = geometry.bytesPerSector;
    cache.isSolidState = true;
    cache.securityLocked = false;
    cache.smartEnabled = false;
    cache.lba48Supported = false;
    cache.removable = false;
    cache.supportedStandards.clear();
  }
  *out = cache;
  return refreshPartitions();
}

uint32_t EmmcProtocol::refreshPartitions() {
  std::vector<EmmcVolume> volumes;
  const uint32_t status = utils->listVolumes(handle, &volumes);
  if (status != kStatusOk) return status;
  partitions.clear();
  for (const EmmcVolume& volume : volumes) {
    StoragePartitionProperties partition;
    partition.volumePath = volume.volumePath;
    // The root keeps its own separator: C:\ gives C:\\Temp.
    partition.tempPath = volume.rootPath + "\\Temp";
    partition.fileSystem = volume.fileSystem;
    partitions.push_back(partition);
  }
  return kStatusOk;
}

uint32_t EmmcProtocol::readSectors(uint64_t lba, uint16_t count, uint32_t, void* buffer) {
  StorageProtocolProperties properties;
  getCachedProperties(&properties);
  return utils->readSectors(handle, lba, count, buffer, properties);
}

uint32_t EmmcProtocol::getTemperature(uint8_t* celsius) {
  if (celsius != nullptr) *celsius = 0;
  return kStatusOk;
}

uint32_t EmmcProtocol::startSelfTest(uint8_t, uint8_t) { return kStatusOk; }
uint32_t EmmcProtocol::getSelfTestProgress(uint8_t*) { return kStatusOk; }
uint32_t EmmcProtocol::getSelfTestStatus(uint8_t*) { return kStatusOk; }
uint32_t EmmcProtocol::abortSelfTest() { return kStatusOk; }

uint32_t EmmcProtocol::getSelfTestFailingLba(uint64_t* lba) {
  if (lba != nullptr) *lba = 0;
  return kStatusOk;
}

uint32_t EmmcProtocol::getSmartStatus(uint8_t*) { return kStatusOk; }
uint32_t EmmcProtocol::enableSmart(uint8_t) { return kStatusOk; }
bool EmmcProtocol::isAccessible() { return true; }
uint32_t EmmcProtocol::writeUncorrectable(uint64_t) { return kStatusOk; }
uint32_t EmmcProtocol::writeSector(uint64_t, void*) { return kStatusOk; }
