// Volumes of the simulated PC: built from the disks' "partitions", "volumes"
// and "files" keys when a machine is installed, and served to the drive
// letter calls, the volume information calls, and DeviceIoControl on a
// volume handle (\\.\X: or \\?\Volume{...}): device number, disk extents,
// lock, unlock, dismount, NTFS volume data and the cluster bitmap.
#include <algorithm>
#include <cstring>

#include "sim/windows/face.h"
#include "sim/windows/face_state.h"
#include "sim/windows/partition_tables.h"

namespace sim {
namespace windows {

uint64_t FileNode::allocatedClusters() const {
  uint64_t total = 0;
  for (const auto& run : runs) total += run.second;
  return total;
}

bool Volume::isNtfs() const { return lowerAscii(fileSystem) == "ntfs"; }

namespace {

bool reject(std::string* error, const std::string& text) {
  if (error) *error = text;
  return false;
}

bool readLetters(const nlohmann::json& entry, std::vector<char>* letters) {
  auto add = [letters](const nlohmann::json& value) {
    if (!value.is_string()) return false;
    const std::string text = value.get<std::string>();
    if (text.empty()) return false;
    char c = text[0];
    if (c >= 'a' && c <= 'z') c = static_cast<char>(c - 'a' + 'A');
    if (c < 'A' || c > 'Z') return false;
    letters->push_back(c);
    return true;
  };
  if (entry.contains("letter") && !add(entry["letter"])) return false;
  if (entry.contains("letters")) {
    if (!entry["letters"].is_array()) return false;
    for (const auto& value : entry["letters"]) {
      if (!add(value)) return false;
    }
  }
  return true;
}

// Lays out a new volume's clusters: the MFT, its mirror and the MFT zone on
// NTFS, then used space from the start until only `freeBytes` remain.
void layoutClusters(Volume& volume, uint64_t freeBytes) {
  const uint64_t total = volume.totalClusters;
  uint64_t freeClusters = std::min(total, freeBytes / volume.clusterSize);
  if (volume.isNtfs() && total >= 64) {
    volume.mftStartLcn = total / 8;
    volume.mftValidDataLength = std::max<uint64_t>(volume.clusterSize, (total / 64) * volume.clusterSize);
    const uint64_t mftClusters = volume.mftValidDataLength / volume.clusterSize;
    volume.mftZoneStart = volume.mftStartLcn + mftClusters;
    volume.mftZoneEnd = volume.mftZoneStart + total / 16;
    volume.mft2StartLcn = total / 2;
    volume.used.add(volume.mftStartLcn, mftClusters);
    volume.used.add(volume.mft2StartLcn, std::min<uint64_t>(mftClusters, 4));
  }
  const uint64_t usedWanted = total - freeClusters;
  if (volume.used.total() < usedWanted) volume.used.allocate(usedWanted - volume.used.total(), total);
}

Volume* volumeForRoot(Face& face, const std::string& root) {
  if (root.size() >= 2 && root[1] == ':') return face.volumeForLetter(root[0]);
  if (root.size() > 11 && lowerAscii(root.substr(0, 11)) == "\\\\?\\volume{") {
    const size_t end = root.find('}');
    if (end != std::string::npos) return face.volumeForGuidPath(root.substr(0, end + 1));
  }
  return nullptr;
}

bool buildFile(Face& face, const nlohmann::json& entry, std::string* error, const std::string& where) {
  if (!entry.is_object() || !entry.contains("path") || !entry["path"].is_string()) {
    return reject(error, where + ".path: expected a path such as \"C:\\\\dir\\\\file\"");
  }
  const std::string path = entry["path"].get<std::string>();
  Volume* volume = path.size() >= 3 && path[1] == ':' && path[2] == '\\' ? face.volumeForLetter(path[0]) : nullptr;
  if (volume == nullptr) return reject(error, where + ".path: no volume has the letter of " + path);
  const bool directory = entry.value("directory", false);
  // Make the parents, then the entry itself.
  FileNode* node = volume->root.get();
  size_t at = 3;
  while (at <= path.size()) {
    size_t end = path.find('\\', at);
    if (end == std::string::npos) end = path.size();
    const std::string name = path.substr(at, end - at);
    at = end + 1;
    if (name.empty()) continue;
    const bool last = end == path.size();
    auto& child = node->children[lowerAscii(name)];
    if (!child) {
      child = std::make_unique<FileNode>();
      child->name = name;
      child->parent = node;
      child->directory = !last || directory;
      child->attributes = child->directory ? FILE_ATTRIBUTE_DIRECTORY : FILE_ATTRIBUTE_ARCHIVE;
    }
    node = child.get();
  }
  if (node == volume->root.get()) return reject(error, where + ".path: names no file");
  if (entry.contains("attributes")) {
    if (!entry["attributes"].is_number_unsigned()) return reject(error, where + ".attributes: expected a number");
    node->attributes = entry["attributes"].get<DWORD>() | (node->directory ? FILE_ATTRIBUTE_DIRECTORY : 0);
  }
  if (entry.value("readOnly", false)) node->attributes |= FILE_ATTRIBUTE_READONLY;
  if (!node->directory && entry.contains("size")) {
    if (!entry["size"].is_number_unsigned()) return reject(error, where + ".size: expected a number of bytes");
    const uint64_t size = entry["size"].get<uint64_t>();
    const uint64_t clusters = (size + volume->clusterSize - 1) / volume->clusterSize;
    // A described file's clusters come out of the volume's free space.
    node->runs = volume->used.allocate(clusters, volume->totalClusters);
    if (node->runs.empty() && clusters > 0) return reject(error, where + ".size: the volume has no room for it");
    node->size = size;
    node->validDataLength = size;
  }
  return true;
}

}  // namespace

bool buildVolumes(Face& face, Machine& machine, std::string* error) {
  for (size_t i = 0; i < machine.disks.size(); ++i) {
    Disk& disk = machine.disks[i];
    const std::string where = "disks[" + std::to_string(i) + "]";
    const auto& d = disk.description;
    if (!d.is_object()) continue;
    if (d.contains("partitions")) {
      if (!disk.media) return reject(error, where + ".partitions: the disk has no media");
      std::string reason;
      if (!writePartitionTables(*disk.media, d["partitions"], &reason)) return reject(error, where + "." + reason);
    }
    if (!d.contains("volumes")) continue;
    if (!d["volumes"].is_array()) return reject(error, where + ".volumes: expected a list");
    if (!disk.media) return reject(error, where + ".volumes: the disk has no media");
    const DriveLayout layout = readDriveLayout(*disk.media);
    for (size_t k = 0; k < d["volumes"].size(); ++k) {
      const auto& entry = d["volumes"][k];
      const std::string at = where + ".volumes[" + std::to_string(k) + "]";
      if (!entry.is_object() || !entry.contains("partition") || !entry["partition"].is_number_unsigned()) {
        return reject(error, at + ".partition: expected a partition number");
      }
      const DWORD number = entry["partition"].get<DWORD>();
      const PARTITION_INFORMATION_EX* partition = nullptr;
      for (const auto& p : layout.entries) {
        if (number != 0 && p.PartitionNumber == number) partition = &p;
      }
      if (partition == nullptr) return reject(error, at + ".partition: the disk has no partition " + std::to_string(number));
      std::vector<char> letters;
      if (!readLetters(entry, &letters)) return reject(error, at + ".letter: expected a drive letter");
      VolumeExtent extent{i, number, static_cast<uint64_t>(partition->StartingOffset.QuadPart),
                          static_cast<uint64_t>(partition->PartitionLength.QuadPart)};
      // The same letter on a second disk: one volume that spans both.
      Volume* spanned = letters.empty() ? nullptr : face.volumeForLetter(letters.front());
      if (spanned != nullptr) {
        spanned->extents.push_back(extent);
        continue;
      }
      auto volume = std::make_unique<Volume>();
      volume->letters = letters;
      volume->label = entry.value("label", "");
      volume->fileSystem = entry.value("fileSystem", "NTFS");
      volume->clusterSize = entry.value("clusterSize", 4096u);
      volume->bytesPerSector = disk.media->sectorSize();
      if (volume->clusterSize < volume->bytesPerSector || volume->clusterSize % volume->bytesPerSector != 0) {
        return reject(error, at + ".clusterSize: expected a multiple of the sector size");
      }
      if (entry.contains("serial")) {
        const auto& serial = entry["serial"];
        if (serial.is_number_unsigned()) {
          volume->serial = serial.get<DWORD>();
        } else if (serial.is_string()) {
          try {
            volume->serial = static_cast<DWORD>(std::stoul(serial.get<std::string>(), nullptr, 16));
          } catch (...) {
            return reject(error, at + ".serial: expected hexadecimal digits");
          }
        } else {
          return reject(error, at + ".serial: expected a number or hexadecimal text");
        }
      } else {
        volume->serial = 0x1A2B0000u + static_cast<DWORD>(face.volumes().size());
      }
      volume->totalClusters = extent.length / volume->clusterSize;
      const uint64_t freeBytes = entry.value("freeBytes", volume->totalClusters * volume->clusterSize / 2);
      volume->extents.push_back(extent);
      layoutClusters(*volume, freeBytes);
      volume->root = std::make_unique<FileNode>();
      volume->root->directory = true;
      volume->root->attributes = FILE_ATTRIBUTE_DIRECTORY;
      const GUID id{0x7E500000u + static_cast<DWORD>(face.volumes().size()), 0x0000, 0x11E0,
                    {0x80, 0x00, 0, 0, 0, 0, static_cast<BYTE>(i), static_cast<BYTE>(number)}};
      volume->guidPath = "\\\\?\\Volume{" + formatGuid(id) + "}\\";
      face.volumes().push_back(std::move(volume));
    }
  }
  for (size_t i = 0; i < machine.disks.size(); ++i) {
    const auto& d = machine.disks[i].description;
    if (!d.is_object() || !d.contains("files")) continue;
    const std::string where = "disks[" + std::to_string(i) + "].files";
    if (!d["files"].is_array()) return reject(error, where + ": expected a list");
    for (size_t k = 0; k < d["files"].size(); ++k) {
      if (!buildFile(face, d["files"][k], error, where + "[" + std::to_string(k) + "]")) return false;
    }
  }
  return true;
}

bool volumeDeviceNumber(const Volume& volume, STORAGE_DEVICE_NUMBER* out) {
  if (volume.extents.size() != 1) return false;
  out->DeviceType = FILE_DEVICE_DISK;
  out->DeviceNumber = static_cast<DWORD>(volume.extents.front().disk);
  out->PartitionNumber = volume.extents.front().partitionNumber;
  return true;
}

namespace {

BOOL ok(LPDWORD returned, DWORD bytes) {
  if (returned != nullptr) *returned = bytes;
  SetLastError(ERROR_SUCCESS);
  return TRUE;
}

BOOL volumeBitmap(Volume& volume, const uint8_t* in, DWORD inSize, uint8_t* out, DWORD outSize, LPDWORD returned) {
  if (in == nullptr || inSize < sizeof(STARTING_LCN_INPUT_BUFFER)) return fail(ERROR_INVALID_PARAMETER, FALSE);
  STARTING_LCN_INPUT_BUFFER start;
  std::memcpy(&start, in, sizeof(start));
  if (start.StartingLcn.QuadPart < 0) return fail(ERROR_INVALID_PARAMETER, FALSE);
  // The bitmap starts on a byte: the starting cluster is rounded down to 8.
  const uint64_t first = static_cast<uint64_t>(start.StartingLcn.QuadPart) & ~7ull;
  if (first >= volume.totalClusters) return fail(ERROR_INVALID_PARAMETER, FALSE);
  const size_t header = offsetof(VOLUME_BITMAP_BUFFER, Buffer);
  if (out == nullptr || outSize < sizeof(VOLUME_BITMAP_BUFFER)) return fail(ERROR_INSUFFICIENT_BUFFER, FALSE);
  const uint64_t clusters = volume.totalClusters - first;
  const uint64_t bytesWanted = (clusters + 7) / 8;
  const uint64_t bytes = std::min<uint64_t>(bytesWanted, outSize - header);
  VOLUME_BITMAP_BUFFER head{};
  head.StartingLcn.QuadPart = static_cast<LONGLONG>(first);
  head.BitmapSize.QuadPart = static_cast<LONGLONG>(clusters);
  std::memcpy(out, &head, header);
  uint8_t* bits = out + header;
  std::memset(bits, 0, bytes);
  const uint64_t last = first + bytes * 8;
  for (const auto& range : volume.used.ranges()) {
    if (range.second <= first || range.first >= last) continue;
    for (uint64_t c = std::max(range.first, first); c < std::min(range.second, last); ++c) {
      bits[(c - first) / 8] |= static_cast<uint8_t>(1u << ((c - first) % 8));
    }
  }
  if (returned != nullptr) *returned = static_cast<DWORD>(header + bytes);
  if (bytes < bytesWanted) return fail(ERROR_MORE_DATA, FALSE);
  SetLastError(ERROR_SUCCESS);
  return TRUE;
}

BOOL moveFile(Face& face, Volume& volume, const uint8_t* in, DWORD inSize, LPDWORD returned) {
  if (in == nullptr || inSize < sizeof(MOVE_FILE_DATA)) return fail(ERROR_INVALID_PARAMETER, FALSE);
  MOVE_FILE_DATA move;
  std::memcpy(&move, in, sizeof(move));
  auto file = face.findAs<FileObject>(move.FileHandle, ObjectKind::File);
  if (!file || file->volume != &volume || file->node == nullptr) return fail(ERROR_INVALID_PARAMETER, FALSE);
  FileNode& node = *file->node;
  const uint64_t vcn = static_cast<uint64_t>(move.StartingVcn.QuadPart);
  const uint64_t lcn = static_cast<uint64_t>(move.StartingLcn.QuadPart);
  const uint64_t count = move.ClusterCount;
  if (move.StartingVcn.QuadPart < 0 || move.StartingLcn.QuadPart < 0 || vcn + count > node.allocatedClusters() ||
      lcn + count > volume.totalClusters) {
    return fail(ERROR_INVALID_PARAMETER, FALSE);
  }
  // The target must be free; the file's own clusters don't count as taken.
  ClusterMap others = volume.used;
  for (const auto& run : node.runs) others.remove(run.first, run.second);
  for (const auto& range : others.ranges()) {
    if (range.first < lcn + count && lcn < range.second) return fail(ERROR_ACCESS_DENIED, FALSE);
  }
  // Rebuild the runs: the moved VCNs now map to [lcn, lcn + count).
  std::vector<uint64_t> map;
  map.reserve(node.allocatedClusters());
  for (const auto& run : node.runs) {
    for (uint64_t c = 0; c < run.second; ++c) map.push_back(run.first + c);
  }
  for (uint64_t c = 0; c < count; ++c) {
    volume.used.remove(map[vcn + c], 1);
    map[vcn + c] = lcn + c;
  }
  volume.used.add(lcn, count);
  node.runs.clear();
  for (uint64_t c : map) {
    if (!node.runs.empty() && node.runs.back().first + node.runs.back().second == c) {
      ++node.runs.back().second;
    } else {
      node.runs.emplace_back(c, 1);
    }
  }
  return ok(returned, 0);
}

}  // namespace

BOOL volumeControl(Face& face, VolumeObject& object, DWORD code, LPVOID in, DWORD inSize, LPVOID out, DWORD outSize,
                   LPDWORD returned) {
  Volume* volume = object.volume;
  if (volume == nullptr) return fail(ERROR_INVALID_HANDLE, FALSE);
  if ((in == nullptr && inSize > 0) || (out == nullptr && outSize > 0)) return fail(ERROR_INVALID_PARAMETER, FALSE);
  auto* o = static_cast<uint8_t*>(out);
  switch (code) {
    case IOCTL_STORAGE_GET_DEVICE_NUMBER: {
      STORAGE_DEVICE_NUMBER number{};
      if (!volumeDeviceNumber(*volume, &number)) return fail(ERROR_INVALID_FUNCTION, FALSE);
      if (o == nullptr || outSize < sizeof(number)) return fail(ERROR_INSUFFICIENT_BUFFER, FALSE);
      std::memcpy(o, &number, sizeof(number));
      return ok(returned, sizeof(number));
    }
    case IOCTL_VOLUME_GET_VOLUME_DISK_EXTENTS: {
      const size_t header = offsetof(VOLUME_DISK_EXTENTS, Extents);
      if (o == nullptr || outSize < sizeof(VOLUME_DISK_EXTENTS)) return fail(ERROR_INSUFFICIENT_BUFFER, FALSE);
      const DWORD count = static_cast<DWORD>(volume->extents.size());
      std::memset(o, 0, outSize);
      std::memcpy(o, &count, sizeof(count));
      const size_t fits = std::min<size_t>(count, (outSize - header) / sizeof(DISK_EXTENT));
      for (size_t i = 0; i < fits; ++i) {
        DISK_EXTENT extent{};
        extent.DiskNumber = static_cast<DWORD>(volume->extents[i].disk);
        extent.StartingOffset.QuadPart = static_cast<LONGLONG>(volume->extents[i].offset);
        extent.ExtentLength.QuadPart = static_cast<LONGLONG>(volume->extents[i].length);
        std::memcpy(o + header + i * sizeof(DISK_EXTENT), &extent, sizeof(extent));
      }
      if (fits < count) {
        // The count tells the caller how large a buffer to bring.
        if (returned != nullptr) *returned = sizeof(VOLUME_DISK_EXTENTS);
        return fail(ERROR_MORE_DATA, FALSE);
      }
      return ok(returned, static_cast<DWORD>(header + count * sizeof(DISK_EXTENT)));
    }
    case FSCTL_LOCK_VOLUME: {
      if (volume->locked) return fail(ERROR_ACCESS_DENIED, FALSE);
      for (const auto& entry : face.objects()) {
        if (entry.second->kind == ObjectKind::File &&
            static_cast<FileObject&>(*entry.second).volume == volume) {
          return fail(ERROR_ACCESS_DENIED, FALSE);  // files are open on it
        }
      }
      volume->locked = true;
      object.holdsLock = true;
      return ok(returned, 0);
    }
    case FSCTL_UNLOCK_VOLUME:
      if (!object.holdsLock) return fail(static_cast<DWORD>(158), FALSE);  // ERROR_NOT_LOCKED
      volume->locked = false;
      volume->dismounted = false;
      object.holdsLock = false;
      return ok(returned, 0);
    case FSCTL_DISMOUNT_VOLUME:
      volume->dismounted = true;
      return ok(returned, 0);
    case FSCTL_GET_NTFS_VOLUME_DATA: {
      if (!volume->isNtfs()) return fail(ERROR_INVALID_FUNCTION, FALSE);
      if (o == nullptr || outSize < sizeof(NTFS_VOLUME_DATA_BUFFER)) return fail(ERROR_INSUFFICIENT_BUFFER, FALSE);
      NTFS_VOLUME_DATA_BUFFER data{};
      data.VolumeSerialNumber.QuadPart = volume->serial;
      data.NumberSectors.QuadPart = static_cast<LONGLONG>(volume->totalBytes() / volume->bytesPerSector);
      data.TotalClusters.QuadPart = static_cast<LONGLONG>(volume->totalClusters);
      data.FreeClusters.QuadPart = static_cast<LONGLONG>(volume->freeClusters());
      data.BytesPerSector = volume->bytesPerSector;
      data.BytesPerCluster = volume->clusterSize;
      data.BytesPerFileRecordSegment = 1024;
      data.ClustersPerFileRecordSegment = volume->clusterSize >= 1024 ? 0 : 1024 / volume->clusterSize;
      data.MftValidDataLength.QuadPart = static_cast<LONGLONG>(volume->mftValidDataLength);
      data.MftStartLcn.QuadPart = static_cast<LONGLONG>(volume->mftStartLcn);
      data.Mft2StartLcn.QuadPart = static_cast<LONGLONG>(volume->mft2StartLcn);
      data.MftZoneStart.QuadPart = static_cast<LONGLONG>(volume->mftZoneStart);
      data.MftZoneEnd.QuadPart = static_cast<LONGLONG>(volume->mftZoneEnd);
      std::memcpy(o, &data, sizeof(data));
      return ok(returned, sizeof(data));
    }
    case FSCTL_GET_VOLUME_BITMAP:
      return volumeBitmap(*volume, static_cast<const uint8_t*>(in), inSize, o, outSize, returned);
    case FSCTL_MOVE_FILE:
      return moveFile(face, *volume, static_cast<const uint8_t*>(in), inSize, returned);
    case IOCTL_DISK_GET_LENGTH_INFO: {
      if (o == nullptr || outSize < sizeof(GET_LENGTH_INFORMATION)) return fail(ERROR_INSUFFICIENT_BUFFER, FALSE);
      GET_LENGTH_INFORMATION length{};
      length.Length.QuadPart = static_cast<LONGLONG>(volume->extents.empty() ? 0 : volume->extents.front().length);
      std::memcpy(o, &length, sizeof(length));
      return ok(returned, sizeof(length));
    }
    case IOCTL_STORAGE_QUERY_PROPERTY:
    case IOCTL_DISK_GET_DRIVE_GEOMETRY:
    case IOCTL_DISK_GET_DRIVE_GEOMETRY_EX:
    case IOCTL_STORAGE_PREDICT_FAILURE: {
      // The volume passes these down to its disk.
      if (volume->extents.size() != 1) return fail(ERROR_INVALID_FUNCTION, FALSE);
      DiskObject disk;
      disk.disk = volume->extents.front().disk;
      return diskControl(face, disk, code, in, inSize, out, outSize, returned);
    }
    default:
      return fail(ERROR_INVALID_FUNCTION, FALSE);
  }
}

}  // namespace windows
}  // namespace sim

// The Win32 functions this file serves, handed to the seam by provider.cpp.
namespace sim {
namespace api {

using sim::windows::Face;
using sim::windows::fail;

namespace {

std::string driveStrings(Face& face) {
  face.machine();
  std::string text;
  for (char letter = 'A'; letter <= 'Z'; ++letter) {
    if (face.volumeForLetter(letter) != nullptr) {
      text += letter;
      text += ":\\";
      text += '\0';
    }
  }
  return text;
}

template <typename Char>
DWORD copyDriveStrings(DWORD length, Char* buffer) {
  const std::string text = driveStrings(Face::instance());
  const DWORD needed = static_cast<DWORD>(text.size() + 1);
  if (buffer == nullptr || length < needed) return needed;
  for (size_t i = 0; i < text.size(); ++i) buffer[i] = static_cast<Char>(static_cast<unsigned char>(text[i]));
  buffer[text.size()] = 0;
  return static_cast<DWORD>(text.size());
}

UINT driveType(const std::string& root) {
  Face& face = Face::instance();
  face.machine();
  std::string r = root.empty() ? face.currentDirectory() : root;
  sim::windows::Volume* volume = r.size() >= 2 && r[1] == ':' ? face.volumeForLetter(r[0]) : nullptr;
  if (volume == nullptr || r.size() != 3 || r[2] != '\\') return DRIVE_NO_ROOT_DIR;
  sim::Machine* machine = face.machine();
  const auto& extent = volume->extents.front();
  return machine->disks[extent.disk].removableMedia ? DRIVE_REMOVABLE : DRIVE_FIXED;
}

bool volumeInformation(const std::string& root, std::string* label, DWORD* serial, std::string* fileSystem) {
  Face& face = Face::instance();
  face.machine();
  if (root.empty() || root.back() != '\\') return fail(ERROR_INVALID_NAME, false);
  sim::windows::Volume* volume = sim::windows::volumeForRoot(face, root);
  if (volume == nullptr) return fail(ERROR_PATH_NOT_FOUND, false);
  if (volume->dismounted || volume->locked) return fail(ERROR_NOT_READY, false);
  *label = volume->label;
  *serial = volume->serial;
  *fileSystem = volume->fileSystem;
  return true;
}

template <typename Char>
bool copyText(const std::string& text, Char* buffer, DWORD size) {
  if (buffer == nullptr) return true;
  if (size < text.size() + 1) return false;
  for (size_t i = 0; i < text.size(); ++i) buffer[i] = static_cast<Char>(static_cast<unsigned char>(text[i]));
  buffer[text.size()] = 0;
  return true;
}

bool freeSpace(const std::string& directory, PULARGE_INTEGER freeToCaller, PULARGE_INTEGER total,
               PULARGE_INTEGER totalFree) {
  Face& face = Face::instance();
  face.machine();
  const std::string path = directory.empty() ? face.currentDirectory() : directory;
  sim::windows::Volume* volume = sim::windows::volumeForRoot(face, path);
  if (volume == nullptr) return fail(ERROR_PATH_NOT_FOUND, false);
  if (volume->dismounted || volume->locked) return fail(ERROR_NOT_READY, false);
  const uint64_t freeBytes = volume->freeClusters() * volume->clusterSize;
  if (freeToCaller != nullptr) freeToCaller->QuadPart = freeBytes;
  if (total != nullptr) total->QuadPart = volume->totalBytes();
  if (totalFree != nullptr) totalFree->QuadPart = freeBytes;
  return true;
}

}  // namespace

DWORD GetLogicalDrives() {
  Face& face = Face::instance();
  face.machine();
  DWORD mask = 0;
  for (char letter = 'A'; letter <= 'Z'; ++letter) {
    if (face.volumeForLetter(letter) != nullptr) mask |= 1u << (letter - 'A');
  }
  return mask;
}

DWORD GetLogicalDriveStringsA(DWORD length, LPSTR buffer) { return copyDriveStrings(length, buffer); }

DWORD GetLogicalDriveStringsW(DWORD length, LPWSTR buffer) { return copyDriveStrings(length, buffer); }

UINT GetDriveTypeA(LPCSTR root) { return driveType(root ? root : ""); }

UINT GetDriveTypeW(LPCWSTR root) { return driveType(sim::windows::narrow(root)); }

BOOL GetVolumeInformationA(LPCSTR root, LPSTR volumeName, DWORD volumeNameSize, LPDWORD serialNumber,
                           LPDWORD maxComponentLength, LPDWORD fileSystemFlags, LPSTR fileSystemName,
                           DWORD fileSystemNameSize) {
  std::string label, fileSystem;
  DWORD serial = 0;
  if (!volumeInformation(root ? root : Face::instance().currentDirectory(), &label, &serial, &fileSystem)) return FALSE;
  if (!copyText(label, volumeName, volumeNameSize) || !copyText(fileSystem, fileSystemName, fileSystemNameSize)) {
    return fail(static_cast<DWORD>(24), FALSE);  // ERROR_BAD_LENGTH
  }
  if (serialNumber != nullptr) *serialNumber = serial;
  if (maxComponentLength != nullptr) *maxComponentLength = 255;
  if (fileSystemFlags != nullptr) *fileSystemFlags = 0x3;  // case-sensitive search, case-preserved names
  return TRUE;
}

BOOL GetVolumeInformationW(LPCWSTR root, LPWSTR volumeName, DWORD volumeNameSize, LPDWORD serialNumber,
                           LPDWORD maxComponentLength, LPDWORD fileSystemFlags, LPWSTR fileSystemName,
                           DWORD fileSystemNameSize) {
  std::string label, fileSystem;
  DWORD serial = 0;
  const std::string r = root ? sim::windows::narrow(root) : Face::instance().currentDirectory();
  if (!volumeInformation(r, &label, &serial, &fileSystem)) return FALSE;
  const Win32WideString wideLabel = sim::windows::widen(label);
  if (volumeName != nullptr) {
    if (volumeNameSize < wideLabel.size() + 1) return fail(static_cast<DWORD>(24), FALSE);
    std::copy(wideLabel.begin(), wideLabel.end(), volumeName);
    volumeName[wideLabel.size()] = 0;
  }
  if (!copyText(fileSystem, fileSystemName, fileSystemNameSize)) return fail(static_cast<DWORD>(24), FALSE);
  if (serialNumber != nullptr) *serialNumber = serial;
  if (maxComponentLength != nullptr) *maxComponentLength = 255;
  if (fileSystemFlags != nullptr) *fileSystemFlags = 0x3;
  return TRUE;
}

BOOL GetDiskFreeSpaceExA(LPCSTR directory, PULARGE_INTEGER freeToCaller, PULARGE_INTEGER totalBytes,
                         PULARGE_INTEGER totalFree) {
  return freeSpace(directory ? directory : "", freeToCaller, totalBytes, totalFree) ? TRUE : FALSE;
}

BOOL GetDiskFreeSpaceExW(LPCWSTR directory, PULARGE_INTEGER freeToCaller, PULARGE_INTEGER totalBytes,
                         PULARGE_INTEGER totalFree) {
  return freeSpace(sim::windows::narrow(directory), freeToCaller, totalBytes, totalFree) ? TRUE : FALSE;
}

namespace {

BOOL nextVolume(sim::windows::VolumeFindObject& find, LPWSTR volumeName, DWORD length) {
  Face& face = Face::instance();
  if (find.next >= face.volumes().size()) return fail(ERROR_NO_MORE_FILES, FALSE);
  const Win32WideString path = sim::windows::widen(face.volumes()[find.next]->guidPath);
  if (volumeName == nullptr || length < path.size() + 1) return fail(static_cast<DWORD>(206), FALSE);
  std::copy(path.begin(), path.end(), volumeName);
  volumeName[path.size()] = 0;
  ++find.next;
  return TRUE;
}

}  // namespace

HANDLE FindFirstVolumeW(LPWSTR volumeName, DWORD length) {
  Face& face = Face::instance();
  face.machine();
  auto find = std::make_shared<sim::windows::VolumeFindObject>();
  if (!nextVolume(*find, volumeName, length)) return INVALID_HANDLE_VALUE;
  return face.addObject(find);
}

BOOL FindNextVolumeW(HANDLE handle, LPWSTR volumeName, DWORD length) {
  auto find = Face::instance().findAs<sim::windows::VolumeFindObject>(handle, sim::windows::ObjectKind::VolumeFind);
  if (!find) return fail(ERROR_INVALID_HANDLE, FALSE);
  return nextVolume(*find, volumeName, length);
}

BOOL FindVolumeClose(HANDLE handle) {
  Face& face = Face::instance();
  if (!face.findAs<sim::windows::VolumeFindObject>(handle, sim::windows::ObjectKind::VolumeFind)) {
    return fail(ERROR_INVALID_HANDLE, FALSE);
  }
  face.close(handle);
  return TRUE;
}

BOOL GetVolumePathNamesForVolumeNameW(LPCWSTR volumeName, LPWSTR pathNames, DWORD length, PDWORD returnLength) {
  Face& face = Face::instance();
  face.machine();
  sim::windows::Volume* volume = face.volumeForGuidPath(sim::windows::narrow(volumeName));
  if (volume == nullptr) return fail(ERROR_INVALID_NAME, FALSE);
  Win32WideString list;
  for (char letter : volume->letters) {
    list += static_cast<WCHAR>(letter);
    list += u":\\";
    list += WCHAR(0);
  }
  list += WCHAR(0);
  if (returnLength != nullptr) *returnLength = static_cast<DWORD>(list.size());
  if (pathNames == nullptr || length < list.size()) return fail(ERROR_MORE_DATA, FALSE);
  std::copy(list.begin(), list.end(), pathNames);
  return TRUE;
}

}  // namespace api
}  // namespace sim
