// A disk's partitions on Windows: the drive layout turned into records, the
// drive letters matched to them, what each mounted volume says of itself, the
// logical drives of the extended partition, and the unallocated space. How
// the records are shown is the component's business.
#include <algorithm>
#include <cstring>
#include <string>
#include <vector>

#include "scanner/win_storage_scanner.h"
#include "system/string_handler.h"
#include "system/wide_text.h"

namespace {

// DRIVE_LAYOUT_INFORMATION_EX: a 48-byte header, then PartitionCount entries
// of 144 bytes (PARTITION_INFORMATION_EX):
//   header: 0 PartitionStyle  4 PartitionCount  8 Mbr or Gpt (40)
//   entry:  0 PartitionStyle  8 StartingOffset  16 PartitionLength
//          24 PartitionNumber  28 RewritePartition  29 IsServicePartition
//          32 Mbr (PartitionType byte first) or Gpt (PartitionType GUID first)
constexpr size_t kLayoutHeaderBytes = 48;
constexpr size_t kLayoutEntryBytes = 144;
// The layout buffer is always entries * 144 + 192 bytes; it starts with room
// for four entries and doubles while the driver says it is too small.
constexpr size_t kLayoutSlackBytes = 192;
constexpr size_t kFirstLayoutEntries = 4;
// A driver that keeps asking for more past this many entries is not believed.
constexpr size_t kMostLayoutEntries = 1 << 16;

constexpr DWORD kDeviceNumberBytes = 12;
constexpr DWORD kNtfsVolumeDataBytes = 96;
// GetVolumeInformationW's two buffers, in wide characters.
constexpr DWORD kVolumeTextChars = 261;

const char kTypePrimary[] = "PRIMARY";
const char kTypeExtended[] = "EXTENDED";
const char kTypeLogical[] = "LOGICAL";

size_t layoutBytes(size_t entries) { return entries * kLayoutEntryBytes + kLayoutSlackBytes; }

std::string schemeOf(DWORD style) {
  switch (style) {
    case PARTITION_STYLE_MBR:
      return "MBR";
    case PARTITION_STYLE_GPT:
      return "GPT";
    case PARTITION_STYLE_RAW:
      return "RAW";
    default:
      return "UNKNOWN";
  }
}

bool isZeroGuid(const GUID& guid) {
  static const GUID zero{};
  return std::memcmp(&guid, &zero, sizeof(GUID)) == 0;
}

// "\\.\X:", the volume of a drive root "X:\".
std::string volumePathOf(const std::string& root) { return std::string("\\\\.\\") + root[0] + ":"; }

}  // namespace

uint32_t WinStorageScanner::getPartitions(uint32_t disk, DiskPartitions* out, uint64_t diskBytes) {
  if (out == nullptr || deviceService == nullptr) return kScanFailed;
  size_t entries = kFirstLayoutEntries;
  std::vector<uint8_t> layout(layoutBytes(entries), 0);
  uint32_t status = kScanOk;
  for (const std::string& path : pathsOf(disk)) {
    // Closed at the end of the path, or by an exception from a growing buffer.
    ScopedDeviceHandle owner(deviceService);
    if (owner.open(path) != 0) continue;
    const HANDLE handle = owner.get();
    uint32_t pathStatus = kScanOk;
    out->diskNumber = 0;
    std::fill(layout.begin(), layout.end(), 0);
    DWORD returned = 0;
    while (!DeviceIoControl(handle, IOCTL_DISK_GET_DRIVE_LAYOUT_EX, nullptr, 0, layout.data(),
                            static_cast<DWORD>(layout.size()), &returned, nullptr)) {
      if (GetLastError() != ERROR_INSUFFICIENT_BUFFER || entries >= kMostLayoutEntries) {
        pathStatus = kScanControlCodeFailed;
        break;
      }
      entries *= 2;
      layout.assign(layoutBytes(entries), 0);
    }
    if (pathStatus == kScanOk) {
      parseLayout(layout.data(), layout.size(), out);
      STORAGE_DEVICE_NUMBER number{};
      if (DeviceIoControl(handle, IOCTL_STORAGE_GET_DEVICE_NUMBER, nullptr, 0, &number, kDeviceNumberBytes,
                          &returned, nullptr)) {
        out->diskNumber = number.DeviceNumber;
        matchVolumes(out);
      } else {
        pathStatus = kScanControlCodeFailed;
      }
    }
    owner.reset();
    status = pathStatus;
    if (status == kScanOk) break;
  }
  computeUnallocated(out, diskBytes);
  return status;
}

void WinStorageScanner::parseLayout(const uint8_t* layout, size_t layoutBytes, DiskPartitions* out) const {
  if (layout == nullptr || out == nullptr || layoutBytes < kLayoutHeaderBytes) return;
  DWORD style = 0;
  DWORD count = 0;
  std::memcpy(&style, layout, sizeof style);
  std::memcpy(&count, layout + 4, sizeof count);
  if (count == 0) return;
  out->schemeName = schemeOf(style);
  // A count beyond what the buffer holds is cut to what it holds.
  const size_t held = (layoutBytes - kLayoutHeaderBytes) / kLayoutEntryBytes;
  const size_t used = count < held ? count : held;
  for (size_t i = 0; i < used; ++i) {
    PARTITION_INFORMATION_EX entry;
    std::memcpy(&entry, layout + kLayoutHeaderBytes + i * kLayoutEntryBytes, sizeof entry);
    PartitionRecord record;
    record.index = entry.PartitionNumber;
    record.size = static_cast<uint64_t>(entry.PartitionLength.QuadPart);
    record.startOffset = static_cast<uint64_t>(entry.StartingOffset.QuadPart);
    record.usedBytes = 0;
    record.freeBytes = 0;
    if (style == PARTITION_STYLE_MBR) {
      // Type 0 is an empty slot of a partition table.
      const uint8_t type = entry.Mbr.PartitionType;
      if (type == 0) continue;
      // The type name is the best that is known of a volume that can't be
      // asked; a mounted volume's own file-system name doesn't replace it.
      record.fileSystem = names.mbrTypeName(type);
      record.type = isExtendedType(type) ? kTypeExtended : kTypePrimary;
      out->records.push_back(record);
    } else if (style == PARTITION_STYLE_GPT) {
      if (isZeroGuid(entry.Gpt.PartitionType)) continue;
      record.type = names.gptTypeName(entry.Gpt.PartitionType);
      out->records.push_back(record);
    }
  }
}

void WinStorageScanner::matchVolumes(DiskPartitions* out) {
  if (out == nullptr) return;
  std::vector<std::string> roots;
  std::vector<HANDLE> handles;
  const DWORD length = GetLogicalDriveStringsA(0, nullptr);
  if (length > 1 && deviceService != nullptr) {
    std::vector<char> text(static_cast<size_t>(length) + 1, 0);
    DWORD written = GetLogicalDriveStringsA(length, text.data());
    // A list that grew between the two calls is not read.
    if (written > length) written = 0;
    // Not reset between roots: an open that fails leaves the handle as it was.
    HANDLE handle = nullptr;
    for (size_t at = 0; at < written;) {
      const std::string root(text.data() + at);
      at += root.size() + 1;
      if (root.empty()) break;
      deviceService->open(volumePathOf(root), &handle);
      roots.push_back(root);
      handles.push_back(handle);
    }
  }
  for (size_t i = 0; i < roots.size(); ++i) {
    STORAGE_DEVICE_NUMBER number{};
    DWORD returned = 0;
    if (DeviceIoControl(handles[i], IOCTL_STORAGE_GET_DEVICE_NUMBER, nullptr, 0, &number, kDeviceNumberBytes,
                        &returned, nullptr) &&
        number.DeviceNumber == out->diskNumber) {
      for (PartitionRecord& record : out->records) {
        if (record.index == number.PartitionNumber) fillVolumeData(roots[i], &record);
      }
    }
    deviceService->close(handles[i]);
  }
  classifyLogicalPartitions(out);
}

void WinStorageScanner::fillVolumeData(const std::string& root, PartitionRecord* record) {
  if (record == nullptr || root.empty()) return;
  record->mountPoints.push_back(root);
  const WideString wideRoot = utf8ToWide(root.c_str());
  WCHAR volumeName[kVolumeTextChars] = {};
  WCHAR fileSystemName[kVolumeTextChars] = {};
  DWORD serial = 0;
  DWORD componentLength = 0;
  DWORD flags = 0;
  if (GetVolumeInformationW(wideRoot.c_str(), volumeName, kVolumeTextChars, &serial, &componentLength, &flags,
                            fileSystemName, kVolumeTextChars)) {
    volumeName[kVolumeTextChars - 1] = 0;
    fileSystemName[kVolumeTextChars - 1] = 0;
    StringHandler& strings = getStringHandler();
    record->label = wideToUtf8(volumeName);
    char serialText[16];
    if (strings.formatInto(serialText, sizeof serialText, "%08lX", static_cast<unsigned long>(serial)) >= 0) {
      record->volumeSerial = serialText;
    }
    // An MBR type name stays; on GPT the volume's own name fills the field.
    if (record->fileSystem.empty()) {
      std::string name;
      for (size_t i = 0; fileSystemName[i] != 0; ++i) name += static_cast<char>(fileSystemName[i] & 0xFF);
      strings.toLowerCase(name);
      record->fileSystem = name;
    }
  }
  readClusterSize(root, record);
  ULARGE_INTEGER freeToCaller{};
  ULARGE_INTEGER totalBytes{};
  ULARGE_INTEGER totalFree{};
  if (GetDiskFreeSpaceExW(wideRoot.c_str(), &freeToCaller, &totalBytes, &totalFree)) {
    // The volume's size replaces the partition's length.
    record->size = totalBytes.QuadPart;
    record->freeBytes = totalFree.QuadPart;
    record->usedBytes = record->size - record->freeBytes;
  }
}

void WinStorageScanner::readClusterSize(const std::string& root, PartitionRecord* record) {
  if (record == nullptr || root.empty()) return;
  const WideString path = utf8ToWide(volumePathOf(root).c_str());
  HANDLE volume = CreateFileW(path.c_str(), GENERIC_READ, FILE_SHARE_READ | FILE_SHARE_WRITE, nullptr, OPEN_EXISTING,
                              0, nullptr);
  if (volume == INVALID_HANDLE_VALUE) return;
  NTFS_VOLUME_DATA_BUFFER data{};
  DWORD returned = 0;
  // Only NTFS answers; on another file system both fields stay as they were.
  const BOOL answered =
      DeviceIoControl(volume, FSCTL_GET_NTFS_VOLUME_DATA, nullptr, 0, &data, kNtfsVolumeDataBytes, &returned, nullptr);
  const BOOL closed = CloseHandle(volume);
  if (answered && closed) {
    record->clusterSize = data.BytesPerCluster;
    record->clusterOffset = 0;
  }
}

void WinStorageScanner::classifyLogicalPartitions(DiskPartitions* out) {
  if (out == nullptr) return;
  // The largest extended partition holds the logical drives; the first of
  // equals wins, and an empty one doesn't count.
  const PartitionRecord* extended = nullptr;
  for (const PartitionRecord& record : out->records) {
    if (record.type == kTypeExtended && record.size != 0 && (extended == nullptr || record.size > extended->size)) {
      extended = &record;
    }
  }
  if (extended == nullptr) return;
  const uint64_t start = extended->startOffset;
  const uint64_t end = extended->startOffset + extended->size;
  std::vector<PartitionRecord> kept;
  for (const PartitionRecord& record : out->records) {
    if (record.startOffset <= start || record.startOffset >= end) {
      kept.push_back(record);
    } else if (record.type == kTypePrimary) {
      PartitionRecord logical = record;
      logical.type = kTypeLogical;
      kept.push_back(logical);
    }
    // Anything else inside is a link of the chain of extended tables: dropped.
  }
  out->records = std::move(kept);
}

void WinStorageScanner::computeUnallocated(DiskPartitions* out, uint64_t diskBytes) {
  if (out == nullptr) return;
  // Mounted volumes count with their file-system size, so a volume's own
  // overhead shows as unallocated. Deliberately not checked against
  // underflow: a layout that claims more than the disk wraps around, and the
  // description shows what the disk claimed.
  uint64_t allocated = 0;
  for (const PartitionRecord& record : out->records) {
    if (record.type != kTypeExtended) allocated += record.size;
  }
  out->unallocatedBytes = diskBytes - allocated;
}
