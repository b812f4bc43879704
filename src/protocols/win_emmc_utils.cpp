// The eMMC calls on Windows, apart from the free-space sampler
// (emmc_free_space.cpp): opening, geometry, the descriptor's strings, raw
// reads, files' clusters and the volumes of a drive.
#include "protocols/win_emmc_utils.h"

#include <algorithm>
#include <cstddef>
#include <cstring>
#include <vector>

namespace {

// GENERIC_READ | GENERIC_WRITE | MAXIMUM_ALLOWED: whatever the caller may get.
constexpr DWORD kDeviceAccess = 0xC2000000u;
constexpr DWORD kDescriptorBufferSize = 1000;
constexpr DWORD kRetrievalBufferSize = 8192;
constexpr DWORD kFileSystemNameSize = 261;
// A reply that claims more extents than this is not believed.
constexpr DWORD kMostVolumeExtents = 4096;
constexpr int kMostRetrievalRounds = 1 << 20;

uint32_t openWith(HANDLE* out, const std::string& path, DWORD access, DWORD share) {
  if (out == nullptr) return kStatusEmmcOpenFailed;
  *out = CreateFileA(path.c_str(), access, share, nullptr, OPEN_EXISTING, 0, nullptr);
  // The platform answers a failed open with INVALID_HANDLE_VALUE; a null
  // handle is refused the same way.
  if (*out == nullptr || *out == INVALID_HANDLE_VALUE) return kStatusEmmcOpenFailed;
  return kStatusOk;
}

uint32_t mediaKindOf(MEDIA_TYPE type) {
  switch (type) {
    case RemovableMedia:
      return kEmmcMediaRemovable;
    case FixedMedia:
      return kEmmcMediaFixed;
    default:
      return kEmmcMediaOther;
  }
}

uint32_t readDword(const uint8_t* bytes, size_t at) {
  uint32_t value = 0;
  std::memcpy(&value, bytes + at, sizeof(value));
  return value;
}

// Where the four string offsets of STORAGE_DEVICE_DESCRIPTOR lie.
constexpr size_t kVendorIdOffsetAt = 12;
constexpr size_t kProductIdOffsetAt = 16;
constexpr size_t kProductRevisionOffsetAt = 20;
constexpr size_t kSerialNumberOffsetAt = 24;

}  // namespace

EmmcUtils* getEmmcUtils() {
  // Stateless: one object serves every caller for the life of the process.
  static WinEmmcUtils utils;
  return &utils;
}

uint32_t WinEmmcUtils::openDevice(HANDLE* out, std::string path) {
  return openWith(out, path, kDeviceAccess, FILE_SHARE_READ | FILE_SHARE_WRITE);
}

uint32_t WinEmmcUtils::openForRead(HANDLE* out, std::string path) {
  return openWith(out, path, GENERIC_READ, FILE_SHARE_READ | FILE_SHARE_WRITE);
}

uint32_t WinEmmcUtils::openForExclusiveRead(HANDLE* out, std::string path) {
  return openWith(out, path, GENERIC_READ, FILE_SHARE_READ);
}

void WinEmmcUtils::closeHandleAt(HANDLE* handle) {
  if (handle != nullptr) CloseHandle(*handle);
}

void WinEmmcUtils::closeDevice(HANDLE handle) { CloseHandle(handle); }

uint32_t WinEmmcUtils::getGeometry(HANDLE handle, EmmcGeometry* out) {
  if (out == nullptr) return kStatusBadArgument;
  DISK_GEOMETRY geometry{};
  DWORD returned = 0;
  if (!DeviceIoControl(handle, IOCTL_DISK_GET_DRIVE_GEOMETRY, nullptr, 0, &geometry, sizeof(geometry), &returned,
                       nullptr)) {
    return kStatusEmmcGeometryFailed;
  }
  out->cylinders = static_cast<uint64_t>(geometry.Cylinders.QuadPart);
  out->mediaKind = mediaKindOf(geometry.MediaType);
  out->tracksPerCylinder = geometry.TracksPerCylinder;
  out->sectorsPerTrack = geometry.SectorsPerTrack;
  out->bytesPerSector = geometry.BytesPerSector;
  out->totalSectors = out->cylinders * out->tracksPerCylinder * out->sectorsPerTrack;
  return kStatusOk;
}

uint32_t WinEmmcUtils::getFileClusterCount(HANDLE file, uint64_t* out) {
  if (out == nullptr) return kStatusNotAvailable;
  // RETRIEVAL_POINTERS_BUFFER: 0 ExtentCount, 8 StartingVcn, 16 pairs of
  // (NextVcn, Lcn). Each pair ends an extent at NextVcn; the extent's length
  // is NextVcn minus the end of the one before (or StartingVcn).
  constexpr size_t kHeader = offsetof(RETRIEVAL_POINTERS_BUFFER, Extents);
  constexpr size_t kPair = 16;
  std::vector<uint8_t> buffer(kRetrievalBufferSize);
  uint64_t total = 0;
  uint64_t startVcn = 0;
  for (int round = 0; round < kMostRetrievalRounds; ++round) {
    STARTING_VCN_INPUT_BUFFER start{};
    start.StartingVcn.QuadPart = static_cast<LONGLONG>(startVcn);
    std::fill(buffer.begin(), buffer.end(), 0);
    DWORD returned = 0;
    const BOOL done = DeviceIoControl(file, FSCTL_GET_RETRIEVAL_POINTERS, &start, sizeof(start), buffer.data(),
                                      kRetrievalBufferSize, &returned, nullptr);
    const DWORD error = done ? ERROR_SUCCESS : GetLastError();
    if (!done && error != ERROR_MORE_DATA) return kStatusNotAvailable;
    RETRIEVAL_POINTERS_BUFFER head{};
    std::memcpy(&head, buffer.data(), kHeader);
    const size_t room = (kRetrievalBufferSize - kHeader) / kPair;
    if (head.ExtentCount > room) return kStatusNotAvailable;
    uint64_t vcn = static_cast<uint64_t>(head.StartingVcn.QuadPart);
    for (DWORD i = 0; i < head.ExtentCount; ++i) {
      LARGE_INTEGER next{};
      std::memcpy(&next, buffer.data() + kHeader + i * kPair, sizeof(next));
      const uint64_t nextVcn = static_cast<uint64_t>(next.QuadPart);
      if (nextVcn < vcn) return kStatusNotAvailable;  // the extents go backwards
      total += nextVcn - vcn;
      vcn = nextVcn;
    }
    if (done) {
      *out = total;
      return kStatusOk;
    }
    // More to come: ask again from where this answer ended.
    if (head.ExtentCount == 0 || vcn <= startVcn) return kStatusNotAvailable;
    startVcn = vcn;
  }
  return kStatusNotAvailable;
}

uint32_t WinEmmcUtils::createDirectory(std::string path) {
  const int result = SHCreateDirectoryExA(nullptr, path.c_str(), nullptr);
  return (result == static_cast<int>(ERROR_SUCCESS) || result == static_cast<int>(ERROR_ALREADY_EXISTS))
             ? kStatusOk
             : kStatusNotAvailable;
}

uint32_t WinEmmcUtils::moveFileClusters(HANDLE volume, HANDLE file, uint64_t firstTarget, uint32_t clusterCount,
                                        uint32_t* error) {
  MOVE_FILE_DATA move{};
  move.FileHandle = file;
  move.StartingVcn.QuadPart = 0;
  move.StartingLcn.QuadPart = static_cast<LONGLONG>(firstTarget);
  move.ClusterCount = clusterCount;
  DWORD returned = 0;
  const BOOL done = DeviceIoControl(volume, FSCTL_MOVE_FILE, &move, sizeof(move), nullptr, 0, &returned, nullptr);
  const DWORD reason = done ? ERROR_SUCCESS : GetLastError();
  if (error != nullptr) *error = reason;
  return done ? kStatusOk : kStatusNotAvailable;
}

uint32_t WinEmmcUtils::getDeviceStrings(HANDLE handle, EmmcDeviceStrings* out) {
  if (out == nullptr) return kStatusBadArgument;
  // Property 0 (the device), query type 0 (standard): twelve zero bytes.
  STORAGE_PROPERTY_QUERY query;
  std::memset(&query, 0, sizeof(query));
  std::vector<uint8_t> descriptor(kDescriptorBufferSize, 0);
  DWORD returned = 0;
  if (!DeviceIoControl(handle, IOCTL_STORAGE_QUERY_PROPERTY, &query, sizeof(query), descriptor.data(),
                       kDescriptorBufferSize, &returned, nullptr)) {
    return kStatusIoctlFailed;
  }
  uint8_t* record = descriptor.data();
  const size_t size = descriptor.size();
  decodeDeviceString(record, size, readDword(record, kProductIdOffsetAt), out->productId, kEmmcDeviceStringSize);
  decodeDeviceString(record, size, readDword(record, kProductRevisionOffsetAt), out->productRevision,
                     kEmmcDeviceStringSize);
  decodeDeviceString(record, size, readDword(record, kSerialNumberOffsetAt), out->serialNumber,
                     kEmmcDeviceStringSize);
  decodeDeviceString(record, size, readDword(record, kVendorIdOffsetAt), out->vendorId, kEmmcDeviceStringSize);
  return kStatusOk;
}

uint32_t WinEmmcUtils::readSectors(HANDLE handle, uint64_t lba, uint16_t count, void* buffer,
                                   StorageProtocolProperties properties) {
  if (lba > properties.sectorCount) return kStatusEmmcBeyondEnd;
  // The move is relative to where the last read ended (FILE_CURRENT), and in
  // physical sectors. Both stand as built: only the first read after the
  // handle was opened lands on the sector asked for, unless the caller rewinds.
  const uint64_t offset = static_cast<uint64_t>(properties.physicalSectorSize) * lba;
  LONG high = static_cast<LONG>(static_cast<uint32_t>(offset >> 32));
  const DWORD low = SetFilePointer(handle, static_cast<LONG>(static_cast<uint32_t>(offset)), &high, FILE_CURRENT);
  if (low == INVALID_SET_FILE_POINTER) return kStatusEmmcReadFailed;
  const uint64_t bytes = static_cast<uint64_t>(count) * properties.physicalSectorSize;
  if (bytes > 0xFFFFFFFFull) return kStatusEmmcReadFailed;
  DWORD read = 0;
  if (!ReadFile(handle, buffer, static_cast<DWORD>(bytes), &read, nullptr)) return kStatusEmmcReadFailed;
  return kStatusOk;
}

uint32_t WinEmmcUtils::listVolumes(HANDLE handle, std::vector<EmmcVolume>* out) {
  if (out == nullptr) return kStatusNotAvailable;
  STORAGE_DEVICE_NUMBER number{};
  DWORD returned = 0;
  if (!DeviceIoControl(handle, IOCTL_STORAGE_GET_DEVICE_NUMBER, nullptr, 0, &number, sizeof(number), &returned,
                       nullptr)) {
    return kStatusNotAvailable;
  }
  out->clear();
  const DWORD mask = GetLogicalDrives();
  // VOLUME_DISK_EXTENTS: 0 NumberOfDiskExtents, 8 extents of 24 bytes each
  // (0 DiskNumber, 8 StartingOffset, 16 ExtentLength). 32 bytes hold one.
  constexpr size_t kHeader = offsetof(VOLUME_DISK_EXTENTS, Extents);
  constexpr size_t kExtent = sizeof(DISK_EXTENT);
  for (uint32_t letter = 0; letter < 26 && (mask >> letter) != 0; ++letter) {
    if ((mask & (1u << letter)) == 0) continue;
    const char drive = static_cast<char>('A' + letter);
    const std::string root = std::string(1, drive) + ":\\";
    if (GetDriveTypeA(root.c_str()) != DRIVE_FIXED) continue;
    const std::string volumePath = std::string("\\\\.\\") + drive + ":";
    HANDLE volume = INVALID_HANDLE_VALUE;
    if (openForRead(&volume, volumePath) != kStatusOk) continue;
    std::vector<uint8_t> extents(sizeof(VOLUME_DISK_EXTENTS), 0);
    BOOL done = DeviceIoControl(volume, IOCTL_VOLUME_GET_VOLUME_DISK_EXTENTS, nullptr, 0, extents.data(),
                                static_cast<DWORD>(extents.size()), &returned, nullptr);
    if (!done && GetLastError() == ERROR_MORE_DATA) {
      const DWORD count = readDword(extents.data(), 0);
      if (count > 0 && count <= kMostVolumeExtents) {
        extents.assign(kHeader + count * kExtent, 0);
        done = DeviceIoControl(volume, IOCTL_VOLUME_GET_VOLUME_DISK_EXTENTS, nullptr, 0, extents.data(),
                               static_cast<DWORD>(extents.size()), &returned, nullptr);
      }
    }
    if (done) {
      const size_t count = std::min<size_t>(readDword(extents.data(), 0), (extents.size() - kHeader) / kExtent);
      for (size_t i = 0; i < count; ++i) {
        DISK_EXTENT extent{};
        std::memcpy(&extent, extents.data() + kHeader + i * kExtent, sizeof(extent));
        if (extent.DiskNumber != number.DeviceNumber) continue;
        char fileSystem[kFileSystemNameSize] = {};
        GetVolumeInformationA(root.c_str(), nullptr, 0, nullptr, nullptr, nullptr, fileSystem, kFileSystemNameSize);
        fileSystem[kFileSystemNameSize - 1] = '\0';
        out->push_back({volumePath, root, fileSystem});
        break;  // only the first extent on the drive counts
      }
    }
    CloseHandle(volume);
  }
  return kStatusOk;
}
