// The state behind the Linux host provider: the disks it serves, the table
// of open handles, and how the process chose them. Internal to linux_host/;
// the Win32 functions in the other files of this folder act on it.
#pragma once

#include <cstdint>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include "linux_host/block_medium.h"
#include "linux_host/nvme_scsi.h"
#include "linux_host/scsi_target.h"
#include "linux_host/sysfs.h"
#include "linux_host/volumes.h"
#include "win32/win32.h"

namespace linux_host {

// Which disks the process serves.
struct Options {
  // The host's own disks, as /sys/block lists them (sysfs.h).
  bool hostDisks = true;
  std::string sysfsRoot = "/sys";
  std::string devRoot = "/dev";
  std::string mountinfo = "/proc/self/mountinfo";
  // Block devices or disk-image files given by path, after the host's disks.
  std::vector<std::string> disks;
};

// From the environment: MODULE_STORAGE_DISKS lists paths separated by ':';
// the host's own disks are served when MODULE_STORAGE_MACHINE is "host", or
// when it is unset and no path is given. So `hwc_cli --disk img.raw` sees the
// image alone and `--machine host --disk img.raw` the host's disks and the
// image.
Options optionsFromEnvironment();

// Makes the Linux host the seam's provider, serving the disks `options`
// names. Handles opened before become invalid. Tests call it with image
// files of their own and hostDisks false.
void install(const Options& options);

// One disk of the provider: \\.\PhysicalDriveN with N its index.
struct HostDisk {
  SysfsDisk info;      // for an image file: its path, name and a made-up identity
  bool image = false;  // a path given in Options::disks
};

enum class ObjectKind { Disk, Volume, File, Event, DevInfo, Token, Find };

struct Object {
  explicit Object(ObjectKind k) : kind(k) {}
  virtual ~Object() = default;
  ObjectKind kind;
};

struct DiskObject : Object {
  DiskObject() : Object(ObjectKind::Disk) {}
  size_t disk = 0;
  DWORD access = 0;
  uint64_t position = 0;
  FileMedium medium;
  std::unique_ptr<NvmeAdmin> nvme;    // the admin commands of an NVMe namespace
  std::unique_ptr<ScsiTarget> scsi;  // how SCSI pass-through reaches the disk
};

struct VolumeObject : Object {
  VolumeObject() : Object(ObjectKind::Volume) {}
  size_t volume = 0;  // index into Host::volumes()
};

// A file on a volume; closing the handle closes the descriptor, and unlinks
// the file when it was opened delete-on-close (files.cpp).
struct FileObject : Object {
  FileObject() : Object(ObjectKind::File) {}
  ~FileObject() override;
  int fd = -1;
  std::string path;  // the host's path
  bool deleteOnClose = false;
  uint64_t position = 0;
};

struct FindObject : Object {
  FindObject() : Object(ObjectKind::Find) {}
  std::string directory;
  std::vector<std::string> names;
  size_t next = 0;
};

struct EventObject : Object {
  EventObject() : Object(ObjectKind::Event) {}
  bool manualReset = true;
  bool signaled = false;
};

struct DevInfoObject : Object {
  DevInfoObject() : Object(ObjectKind::DevInfo) {}
  GUID interfaceGuid{};
  std::vector<std::pair<std::string, std::string>> devices;  // interface path, friendly name
};

struct TokenObject : Object {
  TokenObject() : Object(ObjectKind::Token) {}
};

class Host {
 public:
  static Host& instance();

  void configure(const Options& options);
  // The disks, listed on first use after configure(); without a configure(),
  // those the environment names (optionsFromEnvironment).
  const std::vector<HostDisk>& disks();
  // The mounted file systems on those disks, with their drive letters; read
  // on first use after the disks.
  const std::vector<HostVolume>& volumes();
  // The volume whose letter starts `path` ("C:\\", "c:", "\\\\.\\C:"), or null.
  const HostVolume* volumeForPath(const std::string& path);

  // A new handle for `object`; INVALID_HANDLE_VALUE with
  // ERROR_NOT_ENOUGH_MEMORY when kMaxOpenHandles are open already.
  HANDLE add(std::shared_ptr<Object> object);
  // The object behind an open handle, or null. The pointer is good until the
  // handle is closed; callers use it within one Win32 call.
  Object* find(HANDLE handle) const;
  template <typename T>
  T* findAs(HANDLE handle, ObjectKind kind) const {
    Object* object = find(handle);
    if (object == nullptr || object->kind != kind) return nullptr;
    return static_cast<T*>(object);
  }
  bool close(HANDLE handle);
  // A handle for a new event (CreateEvent). Every overlapped read makes one
  // and closes it again, so the object of an event closed before is reused
  // when there is one. As add() on failure.
  HANDLE addEvent(bool manualReset, bool signaled);

  // Handle values are 0x1000 + 4 x (slot | generation << kSlotBits): a
  // closed slot is taken again by the next handle, as Windows reuses handle
  // values, and its generation changes, so a handle kept after its close
  // stays invalid (until the 9-bit generation comes round). Every value fits
  // in 31 bits, as Windows handles do.
  static constexpr uint32_t kSlotBits = 20;
  static constexpr uint32_t kMaxOpenHandles = 1u << kSlotBits;

 private:
  Host() = default;

  Options options_;
  bool configured_ = false;
  bool listed_ = false;
  bool volumesListed_ = false;
  std::vector<HostDisk> disks_;
  std::vector<HostVolume> volumes_;
  // One open handle. A read makes an event and closes it again, and looks
  // its handles up several times: the table is a vector indexed by the
  // handle's slot, and the closed slots wait in freeSlots_ for reuse.
  struct Slot {
    std::shared_ptr<Object> object;  // null while the slot is free
    uint32_t generation = 0;
  };
  void closeAll();
  std::vector<Slot> slots_;
  std::vector<uint32_t> freeSlots_;
  std::vector<std::shared_ptr<Object>> spareEvents_;  // closed events, for addEvent()
};

// Sets the last error and gives `result`.
template <typename T>
T fail(DWORD error, T result) {
  SetLastError(error);
  return result;
}

// UTF-16 to UTF-8 and back, for the wide calls.
std::string narrow(LPCWSTR text);
Win32WideString widen(const std::string& text);

// The interface path SetupAPI gives for disk `index`; CreateFile takes it.
std::string diskInterfacePath(const HostDisk& disk, size_t index);

// Opens disk `index` for a handle: its medium, and its SCSI target. 0 or the
// Win32 error; without the rights, a line on standard error names the
// device and what reading it needs, once per device.
uint32_t openDisk(size_t index, DiskObject& object);

// True when the process may send raw commands to a disk: root, or the
// CAP_SYS_RAWIO capability (system.cpp).
bool holdsRawIo();

// "X:\\dir\\name" as the host's path under X:'s mount point; false when the
// letter names no volume or the path would leave it (files.cpp).
bool hostPathOf(const std::string& windowsPath, std::string* out);
// CreateFile of a file on a volume.
HANDLE openFile(const std::string& windowsPath, DWORD access, DWORD disposition, DWORD flags);
BOOL fileControl(FileObject& file, DWORD code, LPDWORD returned);
// pread or pwrite of `length` bytes at `offset`; *done the bytes moved
// (fewer at the end of the file). 0 or the Win32 error.
uint32_t fileTransfer(FileObject& file, uint64_t offset, uint8_t* buffer, DWORD length, bool write, DWORD* done);

// DeviceIoControl on a volume handle (volume_control.cpp).
BOOL volumeControl(VolumeObject& volume, DWORD code, LPVOID in, DWORD inSize, LPVOID out, DWORD outSize,
                   LPDWORD returned);

// DeviceIoControl on a disk handle (disk_control.cpp).
BOOL diskControl(DiskObject& disk, DWORD code, LPVOID in, DWORD inSize, LPVOID out, DWORD outSize,
                 LPDWORD returned);

}  // namespace linux_host
