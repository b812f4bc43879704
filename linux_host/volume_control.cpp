// The Win32 volume calls on the Linux host: the drive letters of the mounted
// file systems (volumes.h), their names, serials and free space, and a volume
// handle's device number and extents. A mounted volume can't be locked or
// dismounted from here: the refusal is ERROR_ACCESS_DENIED, as Windows gives
// for a volume with open files.
#include <sys/statvfs.h>

#include <cstring>

#include "linux_host/host.h"

namespace linux_host {

namespace {

BOOL done(LPDWORD returned, DWORD bytes) {
  if (returned != nullptr) *returned = bytes;
  SetLastError(ERROR_SUCCESS);
  return TRUE;
}

std::string driveStrings() {
  std::string text;
  for (const HostVolume& volume : Host::instance().volumes()) {
    text += volume.letter;
    text += ":\\";
    text += '\0';
  }
  return text;
}

// The serial a file system shows: the low 32 bits of its statvfs identifier,
// which the kernel derives from the file system's UUID.
bool statOf(const HostVolume& volume, struct statvfs* info) { return ::statvfs(volume.mountPoint.c_str(), info) == 0; }

}  // namespace

BOOL volumeControl(VolumeObject& object, DWORD code, LPVOID, DWORD, LPVOID out, DWORD outSize, LPDWORD returned) {
  const std::vector<HostVolume>& volumes = Host::instance().volumes();
  if (object.volume >= volumes.size()) return fail(ERROR_INVALID_HANDLE, FALSE);
  const HostVolume& volume = volumes[object.volume];
  switch (code) {
    case IOCTL_STORAGE_GET_DEVICE_NUMBER: {
      if (out == nullptr || outSize < sizeof(STORAGE_DEVICE_NUMBER)) return fail(ERROR_INSUFFICIENT_BUFFER, FALSE);
      STORAGE_DEVICE_NUMBER number{FILE_DEVICE_DISK, static_cast<DWORD>(volume.disk), volume.partition};
      std::memcpy(out, &number, sizeof(number));
      return done(returned, sizeof(number));
    }
    case IOCTL_VOLUME_GET_VOLUME_DISK_EXTENTS: {
      if (out == nullptr || outSize < sizeof(VOLUME_DISK_EXTENTS)) return fail(ERROR_INSUFFICIENT_BUFFER, FALSE);
      VOLUME_DISK_EXTENTS extents{};
      extents.NumberOfDiskExtents = 1;
      extents.Extents[0].DiskNumber = static_cast<DWORD>(volume.disk);
      extents.Extents[0].StartingOffset.QuadPart = static_cast<LONGLONG>(volume.offset);
      extents.Extents[0].ExtentLength.QuadPart = static_cast<LONGLONG>(volume.length);
      std::memcpy(out, &extents, sizeof(extents));
      return done(returned, sizeof(extents));
    }
    case FSCTL_LOCK_VOLUME:
    case FSCTL_DISMOUNT_VOLUME:
      return fail(ERROR_ACCESS_DENIED, FALSE);
    default:
      // FSCTL_GET_NTFS_VOLUME_DATA and the bitmap calls: no NTFS here.
      return fail(ERROR_INVALID_FUNCTION, FALSE);
  }
}

namespace api {

DWORD GetLogicalDrives() {
  DWORD mask = 0;
  for (const HostVolume& volume : Host::instance().volumes()) mask |= 1u << (volume.letter - 'A');
  SetLastError(ERROR_SUCCESS);
  return mask;
}

// The length without the final NUL when it fits, else the size needed.
DWORD GetLogicalDriveStringsA(DWORD length, LPSTR buffer) {
  const std::string text = driveStrings();
  SetLastError(ERROR_SUCCESS);
  if (text.empty()) {
    if (buffer != nullptr && length > 0) buffer[0] = '\0';
    return 0;
  }
  if (buffer == nullptr || length < text.size() + 1) return static_cast<DWORD>(text.size() + 1);
  std::memcpy(buffer, text.data(), text.size());
  buffer[text.size()] = '\0';
  return static_cast<DWORD>(text.size());
}

DWORD GetLogicalDriveStringsW(DWORD length, LPWSTR buffer) {
  const std::string text = driveStrings();
  SetLastError(ERROR_SUCCESS);
  if (text.empty()) {
    if (buffer != nullptr && length > 0) buffer[0] = 0;
    return 0;
  }
  if (buffer == nullptr || length < text.size() + 1) return static_cast<DWORD>(text.size() + 1);
  for (size_t i = 0; i < text.size(); ++i) buffer[i] = static_cast<WCHAR>(text[i]);
  buffer[text.size()] = 0;
  return static_cast<DWORD>(text.size());
}

UINT GetDriveTypeA(LPCSTR root) {
  const HostVolume* volume = Host::instance().volumeForPath(root != nullptr ? root : "");
  if (volume == nullptr) return DRIVE_NO_ROOT_DIR;
  const std::vector<HostDisk>& disks = Host::instance().disks();
  return volume->disk < disks.size() && disks[volume->disk].info.removable ? DRIVE_REMOVABLE : DRIVE_FIXED;
}

UINT GetDriveTypeW(LPCWSTR root) { return GetDriveTypeA(narrow(root).c_str()); }

BOOL GetVolumeInformationA(LPCSTR root, LPSTR volumeName, DWORD volumeNameSize, LPDWORD serialNumber,
                           LPDWORD maxComponentLength, LPDWORD fileSystemFlags, LPSTR fileSystemName,
                           DWORD fileSystemNameSize) {
  const HostVolume* volume = Host::instance().volumeForPath(root != nullptr ? root : "");
  if (volume == nullptr) return fail(ERROR_PATH_NOT_FOUND, FALSE);
  struct statvfs info {};
  if (!statOf(*volume, &info)) return fail(ERROR_NOT_READY, FALSE);
  // Labels are not read: the volume name is empty.
  if (volumeName != nullptr && volumeNameSize > 0) volumeName[0] = '\0';
  if (serialNumber != nullptr) *serialNumber = static_cast<DWORD>(info.f_fsid);
  if (maxComponentLength != nullptr) *maxComponentLength = static_cast<DWORD>(info.f_namemax);
  if (fileSystemFlags != nullptr) *fileSystemFlags = 0;
  if (fileSystemName != nullptr) {
    if (fileSystemNameSize < volume->fileSystem.size() + 1) return fail(ERROR_INSUFFICIENT_BUFFER, FALSE);
    std::memcpy(fileSystemName, volume->fileSystem.c_str(), volume->fileSystem.size() + 1);
  }
  return TRUE;
}

BOOL GetVolumeInformationW(LPCWSTR root, LPWSTR volumeName, DWORD volumeNameSize, LPDWORD serialNumber,
                           LPDWORD maxComponentLength, LPDWORD fileSystemFlags, LPWSTR fileSystemName,
                           DWORD fileSystemNameSize) {
  char name[64] = {};
  if (!api::GetVolumeInformationA(narrow(root).c_str(), nullptr, 0, serialNumber, maxComponentLength,
                                  fileSystemFlags, name, sizeof(name))) {
    return FALSE;
  }
  if (volumeName != nullptr && volumeNameSize > 0) volumeName[0] = 0;
  if (fileSystemName != nullptr) {
    const Win32WideString wide = widen(name);
    if (fileSystemNameSize < wide.size() + 1) return fail(ERROR_INSUFFICIENT_BUFFER, FALSE);
    std::memcpy(fileSystemName, wide.c_str(), (wide.size() + 1) * sizeof(WCHAR));
  }
  return TRUE;
}

BOOL GetDiskFreeSpaceExA(LPCSTR directory, PULARGE_INTEGER freeToCaller, PULARGE_INTEGER totalBytes,
                         PULARGE_INTEGER totalFree) {
  const HostVolume* volume = Host::instance().volumeForPath(directory != nullptr ? directory : "");
  if (volume == nullptr) return fail(ERROR_PATH_NOT_FOUND, FALSE);
  struct statvfs info {};
  if (!statOf(*volume, &info)) return fail(ERROR_NOT_READY, FALSE);
  const uint64_t unit = info.f_frsize != 0 ? info.f_frsize : info.f_bsize;
  if (freeToCaller != nullptr) freeToCaller->QuadPart = static_cast<uint64_t>(info.f_bavail) * unit;
  if (totalBytes != nullptr) totalBytes->QuadPart = static_cast<uint64_t>(info.f_blocks) * unit;
  if (totalFree != nullptr) totalFree->QuadPart = static_cast<uint64_t>(info.f_bfree) * unit;
  return TRUE;
}

BOOL GetDiskFreeSpaceExW(LPCWSTR directory, PULARGE_INTEGER freeToCaller, PULARGE_INTEGER totalBytes,
                         PULARGE_INTEGER totalFree) {
  return api::GetDiskFreeSpaceExA(narrow(directory).c_str(), freeToCaller, totalBytes, totalFree);
}

HANDLE FindFirstVolumeW(LPWSTR, DWORD) { return fail(ERROR_NO_MORE_FILES, INVALID_HANDLE_VALUE); }

}  // namespace api

}  // namespace linux_host
