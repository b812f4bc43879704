// How each disk is attached and what it is called: the storage descriptor
// queries, SMART_GET_VERSION, device numbers, and taking a volume off line and
// back. The partitions of a disk are read in win_partition_scan.cpp.
#include "scanner/win_storage_scanner.h"

#include <cstring>
#include <memory>

#include "system/string_handler.h"

namespace {

// Where a disk sits, as a component states it.
constexpr uint32_t kPlaceUnknown = 0;
constexpr uint32_t kPlaceInternal = 1;
constexpr uint32_t kPlaceExternal = 2;

// Bus families, as a component states them.
constexpr uint32_t kFamilyAta = 0;
constexpr uint32_t kFamilyScsi = 1;
constexpr uint32_t kFamilyUsb = 2;
constexpr uint32_t kFamilyRaid = 3;
constexpr uint32_t kFamilyUnknown = 4;
constexpr uint32_t kFamilyEmmc = 5;
constexpr uint32_t kFamilyNvme = 6;

// STORAGE_DEVICE_DESCRIPTOR before its strings (40 bytes):
//   0 Version  4 Size  8 DeviceType  9 DeviceTypeModifier  10 RemovableMedia
//  11 CommandQueueing  12 VendorIdOffset  16 ProductIdOffset
//  20 ProductRevisionOffset  24 SerialNumberOffset  28 BusType
//  32 RawPropertiesLength  36 RawDeviceProperties
constexpr size_t kDescriptorRecordBytes = 40;
constexpr size_t kRemovableMediaAt = 10;
constexpr size_t kVendorIdOffsetAt = 12;
constexpr size_t kProductIdOffsetAt = 16;
constexpr size_t kBusTypeAt = 28;
// The header alone (Version, Size) tells how large the descriptor is.
constexpr DWORD kDescriptorHeaderBytes = 8;
// A descriptor that claims more than this is not believed: the record and
// four short strings take a few hundred bytes.
constexpr uint64_t kMaxDescriptorBytes = 64 * 1024;

// The request for the standard query of the device property: 12 zero bytes
// (PropertyId 0 StorageDeviceProperty, QueryType 0 PropertyStandardQuery).
constexpr DWORD kPropertyQueryBytes = 12;

// SMART_GET_VERSION's reply (GETVERSIONINPARAMS), 24 bytes; bit 0 of
// fCapabilities (offset 4) says the drive answers IDENTIFY.
constexpr DWORD kSmartVersionBytes = 24;
constexpr DWORD kIdentifyCapability = 0x1;

constexpr DWORD kDeviceNumberBytes = 12;

uint32_t wordAt(const uint8_t* bytes, size_t at) {
  uint32_t value = 0;
  std::memcpy(&value, bytes + at, sizeof(value));
  return value;
}

// The NUL-terminated text at `offset`, or false when it starts or runs
// beyond the buffer.
bool textAt(const std::vector<uint8_t>& buffer, uint32_t offset, std::string* out) {
  if (offset >= buffer.size()) return false;
  const uint8_t* start = buffer.data() + offset;
  const void* end = std::memchr(start, 0, buffer.size() - offset);
  if (end == nullptr) return false;
  out->assign(reinterpret_cast<const char*>(start), static_cast<const uint8_t*>(end) - start);
  return true;
}

}  // namespace

uint32_t WinStorageScanner::scanDevices(DiskMap& out) {
  if (deviceService == nullptr) return kScanFailed;
  uint64_t status;
  {
    WinDeviceScanFilter filter(kDiskInterfaceGuid, kDiskDriveClassGuid);
    status = deviceService->scan(&filter, out);
  }
  if (&out != &diskMap) diskMap = out;
  return static_cast<uint32_t>(status);
}

uint32_t WinStorageScanner::queryDescriptorSize(uint32_t disk, uint64_t* size) {
  if (size == nullptr || deviceService == nullptr) return kScanFailed;
  *size = 0;
  uint32_t status = kScanOk;
  for (const std::string& path : pathsOf(disk)) {
    HANDLE handle = nullptr;
    if (deviceService->open(path, &handle) != 0) {
      status = kScanFailed;
      continue;
    }
    uint8_t query[kPropertyQueryBytes] = {};
    STORAGE_DESCRIPTOR_HEADER header{};
    DWORD returned = 0;
    const BOOL answered = DeviceIoControl(handle, IOCTL_STORAGE_QUERY_PROPERTY, query, sizeof query, &header,
                                          kDescriptorHeaderBytes, &returned, nullptr);
    deviceService->close(handle);
    if (!answered) {
      status = kScanFailed;
      continue;
    }
    *size = header.Size;
    return kScanOk;
  }
  return status;
}

uint32_t WinStorageScanner::queryDescriptor(uint32_t disk, uint8_t* buffer, uint64_t size) {
  if (buffer == nullptr || size < kDescriptorRecordBytes) return kScanBufferTooSmall;
  if (deviceService == nullptr) return kScanFailed;
  if (size > kMaxDescriptorBytes) return kScanFailed;
  std::memset(buffer, 0, size);
  uint32_t status = kScanOk;
  for (const std::string& path : pathsOf(disk)) {
    HANDLE handle = nullptr;
    if (deviceService->open(path, &handle) != 0) {
      status = kScanFailed;
      continue;
    }
    uint8_t query[kPropertyQueryBytes] = {};
    DWORD returned = 0;
    const BOOL answered = DeviceIoControl(handle, IOCTL_STORAGE_QUERY_PROPERTY, query, sizeof query, buffer,
                                          static_cast<DWORD>(size), &returned, nullptr);
    deviceService->close(handle);
    if (answered) return kScanOk;
    status = kScanFailed;
  }
  return status;
}

bool WinStorageScanner::readDescriptor(uint32_t disk, std::vector<uint8_t>* descriptor) {
  uint64_t size = 0;
  if (queryDescriptorSize(disk, &size) != kScanOk) return false;
  if (size > kMaxDescriptorBytes) return false;
  descriptor->assign(static_cast<size_t>(size), 0);
  return queryDescriptor(disk, descriptor->data(), size) == kScanOk;
}

uint32_t WinStorageScanner::isRemovable(uint32_t disk, uint8_t* removable) {
  if (removable == nullptr || deviceService == nullptr) return kScanFailed;
  uint32_t status = kScanOk;
  for (const std::string& path : pathsOf(disk)) {
    HANDLE handle = nullptr;
    if (deviceService->open(path, &handle) != 0) {
      status = kScanFailed;
      continue;
    }
    uint8_t query[kPropertyQueryBytes] = {};
    uint8_t reply[kDescriptorRecordBytes] = {};
    DWORD returned = 0;
    const BOOL answered = DeviceIoControl(handle, IOCTL_STORAGE_QUERY_PROPERTY, query, sizeof query, reply,
                                          sizeof reply, &returned, nullptr);
    deviceService->close(handle);
    if (!answered) {
      status = kScanFailed;
      continue;
    }
    *removable = reply[kRemovableMediaAt] == 1 ? 1 : 0;
    return kScanOk;
  }
  return status;
}

uint32_t WinStorageScanner::getLocation(uint32_t disk, uint32_t* location) {
  if (location == nullptr) return kScanFailed;
  *location = kPlaceUnknown;
  std::vector<uint8_t> descriptor;
  if (!readDescriptor(disk, &descriptor)) return kScanFailed;
  switch (wordAt(descriptor.data(), kBusTypeAt)) {
    case BusTypeScsi:
    case BusTypeAtapi:
    case BusTypeAta:
    case BusTypeSsa:
    case BusTypeRAID:
    case BusTypeSas:
    case BusTypeSata:
    case BusTypeNvme:
      *location = kPlaceInternal;
      break;
    case BusType1394:
    case BusTypeFibre:
    case BusTypeUsb:
    case BusTypeiScsi:
      *location = kPlaceExternal;
      break;
    case BusTypeSd:
    case BusTypeMmc: {
      // A card that can be taken out is outside the machine; so is one that
      // can't say.
      uint8_t removable = 0;
      if (isRemovable(disk, &removable) != kScanOk) {
        *location = kPlaceExternal;
      } else {
        *location = removable != 0 ? kPlaceExternal : kPlaceInternal;
      }
      break;
    }
    default:
      *location = kPlaceUnknown;
      break;
  }
  return kScanOk;
}

uint32_t WinStorageScanner::getBusKind(uint32_t disk, uint32_t* kind) {
  if (kind == nullptr) return kScanFailed;
  *kind = kFamilyUnknown;
  std::vector<uint8_t> descriptor;
  if (!readDescriptor(disk, &descriptor)) return kScanFailed;
  switch (wordAt(descriptor.data(), kBusTypeAt)) {
    case BusTypeAta:
    case BusTypeSata:
      *kind = kFamilyAta;
      break;
    case BusTypeScsi:
    case BusTypeSsa:
    case BusTypeFibre:
    case BusTypeiScsi:
      *kind = kFamilyScsi;
      break;
    case BusTypeUsb:
      *kind = kFamilyUsb;
      break;
    case BusTypeRAID: {
      // A disk behind a simple RAID driver that still answers SMART
      // identify is an ATA disk; an Intel RAID volume never is.
      uint8_t identify = 0;
      if (!isIntelRaid(descriptor) && hasIdeIdentify(disk, &identify) == kScanOk && identify != 0) {
        *kind = kFamilyAta;
      } else {
        *kind = kFamilyRaid;
      }
      break;
    }
    case BusTypeSas:
      // The Intel RAID stack presents its volumes on a SAS bus.
      *kind = isIntelRaid(descriptor) ? kFamilyRaid : kFamilyScsi;
      break;
    case BusTypeSd:
    case BusTypeMmc: {
      // Only a soldered-in device is eMMC; a card is not offered.
      uint8_t removable = 0;
      *kind = isRemovable(disk, &removable) == kScanOk && removable == 0 ? kFamilyEmmc : kFamilyUnknown;
      break;
    }
    case BusTypeNvme:
      *kind = kFamilyNvme;
      break;
    default:
      *kind = kFamilyUnknown;
      break;
  }
  return kScanOk;
}

bool WinStorageScanner::isIntelRaid(const std::vector<uint8_t>& descriptor) {
  if (descriptor.size() < kDescriptorRecordBytes) return false;
  const uint32_t vendorOffset = wordAt(descriptor.data(), kVendorIdOffsetAt);
  const uint32_t productOffset = wordAt(descriptor.data(), kProductIdOffsetAt);
  // Without both offsets there is nothing to read.
  if (vendorOffset == 0 || productOffset == 0) return false;
  std::string vendor;
  std::string product;
  if (!textAt(descriptor, vendorOffset, &vendor) || !textAt(descriptor, productOffset, &product)) return false;
  if (vendor.size() < 5 || product.size() < 4) return false;
  StringHandler& strings = getStringHandler();
  strings.toLowerCase(vendor);
  strings.toLowerCase(product);
  return vendor.compare(0, 5, "intel") == 0 && product.compare(0, 4, "raid") == 0;
}

uint32_t WinStorageScanner::hasIdeIdentify(uint32_t disk, uint8_t* flag) {
  if (flag == nullptr || deviceService == nullptr) return kScanFailed;
  *flag = 0;
  for (const std::string& path : pathsOf(disk)) {
    HANDLE handle = nullptr;
    if (deviceService->open(path, &handle) != 0) continue;
    GETVERSIONINPARAMS version{};
    DWORD returned = 0;
    const BOOL succeeded =
        DeviceIoControl(handle, SMART_GET_VERSION, nullptr, 0, &version, kSmartVersionBytes, &returned, nullptr);
    deviceService->close(handle);
    // A driver that fills the whole reply has answered, whatever it says.
    if (succeeded || returned == kSmartVersionBytes) {
      *flag = (version.fCapabilities & kIdentifyCapability) != 0 ? 1 : 0;
      return kScanOk;
    }
  }
  return kScanFailed;
}

uint32_t WinStorageScanner::getDeviceNumberText(uint32_t disk, std::string* out) {
  if (out == nullptr || deviceService == nullptr) return kScanFailed;
  uint32_t status = kScanOk;
  for (const std::string& path : pathsOf(disk)) {
    HANDLE handle = nullptr;
    // A path that can't be opened doesn't count: a disk with no openable path
    // gives 0 and an empty text.
    if (deviceService->open(path, &handle) != 0) continue;
    STORAGE_DEVICE_NUMBER number{};
    DWORD returned = 0;
    const BOOL answered = DeviceIoControl(handle, IOCTL_STORAGE_GET_DEVICE_NUMBER, nullptr, 0, &number,
                                          kDeviceNumberBytes, &returned, nullptr);
    deviceService->close(handle);
    if (answered) {
      *out = std::to_string(number.DeviceNumber);
      return kScanOk;
    }
    status = kScanFailed;
  }
  return status;
}

uint32_t WinStorageScanner::unmountVolume(std::string mountPoint, std::vector<std::string>*, HANDLE* out, uint32_t*,
                                          uint32_t*, bool) {
  // "C:\" becomes "\\.\C:": the volume itself, not its root directory.
  if (deviceService == nullptr) return kScanFailed;
  std::string path = "\\\\.\\" + mountPoint;
  path.pop_back();
  HANDLE handle = nullptr;
  const uint32_t opened = deviceService->open(path, &handle);
  if (out != nullptr) *out = handle;
  if (opened != 0) return opened;
  const uint32_t locked = deviceService->lock(handle);
  if (locked != 0) {
    CloseHandle(handle);
    if (out != nullptr) *out = nullptr;
    return locked;
  }
  DWORD returned = 0;
  // The handle stays open and keeps the volume locked until remountVolume.
  return DeviceIoControl(handle, FSCTL_DISMOUNT_VOLUME, nullptr, 0, nullptr, 0, &returned, nullptr) ? kScanOk
                                                                                                  : kScanFailed;
}

uint32_t WinStorageScanner::remountVolume(std::string, std::vector<std::string>, HANDLE handle, std::string, uint32_t,
                                          uint32_t) {
  DWORD returned = 0;
  // Closing the handle gives the volume back even if the unlock failed.
  DeviceIoControl(handle, FSCTL_UNLOCK_VOLUME, nullptr, 0, nullptr, 0, &returned, nullptr);
  return CloseHandle(handle) ? kScanOk : kScanFailed;
}
