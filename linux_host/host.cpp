// The Linux host provider's state (disks, handles, the choice from the
// environment) and the Win32 calls on handles: CreateFile of a disk,
// CloseHandle, ReadFile and WriteFile with their file pointer and overlapped
// completion, events and waits.
//
// Transfers run to completion inside the call. An overlapped request is then
// reported as Windows reports one that went pending: FALSE with
// ERROR_IO_PENDING, its event signalled, its result in the OVERLAPPED for
// GetOverlappedResult.
#include "linux_host/host.h"

#include <errno.h>

#include <sys/stat.h>

#include <cstdio>
#include <fstream>
#include <sstream>
#include <cstdlib>
#include <cstring>
#include <set>

#include "linux_host/block_scsi.h"
#include "linux_host/provider.h"
#include "linux_host/sg_io.h"

namespace linux_host {

Host& Host::instance() {
  static Host host;
  return host;
}

void Host::configure(const Options& options) {
  closeAll();
  disks_.clear();
  volumes_.clear();
  volumesListed_ = false;
  listed_ = false;
  configured_ = true;
  options_ = options;
}

const std::vector<HostDisk>& Host::disks() {
  if (!configured_) configure(optionsFromEnvironment());
  if (listed_) return disks_;
  listed_ = true;
  if (options_.hostDisks) {
    for (const SysfsDisk& info : listSysfsDisks(options_.sysfsRoot, options_.devRoot)) {
      HostDisk disk;
      disk.info = info;
      disks_.push_back(disk);
    }
  }
  for (const std::string& path : options_.disks) {
    HostDisk disk;
    disk.image = true;
    disk.info.devicePath = path;
    const size_t slash = path.find_last_of('/');
    disk.info.name = slash == std::string::npos ? path : path.substr(slash + 1);
    // An image (or a device given by path) is served as a plain SCSI disk:
    // its identity says where it comes from, its serial is its file name.
    disk.info.busType = BusTypeScsi;
    disk.info.vendor = "Linux";
    disk.info.product = "Disk image";
    disk.info.revision = "1.0";
    disk.info.serial = disk.info.name.substr(0, 20);
    disks_.push_back(disk);
  }
  return disks_;
}

const std::vector<HostVolume>& Host::volumes() {
  const std::vector<HostDisk>& all = disks();
  if (volumesListed_) return volumes_;
  volumesListed_ = true;
  // Only kernel block devices carry mounted file systems: an image file's
  // name must not be taken for a device's.
  std::vector<std::string> names;
  for (const HostDisk& disk : all) {
    struct stat info {};
    const bool device = ::stat(disk.info.devicePath.c_str(), &info) == 0 && S_ISBLK(info.st_mode);
    names.push_back(!disk.image || device ? disk.info.name : std::string());
  }
  std::ifstream in(options_.mountinfo);
  std::stringstream text;
  text << in.rdbuf();
  volumes_ = volumesOf(parseMountinfo(text.str()), names, options_.sysfsRoot);
  return volumes_;
}

const HostVolume* Host::volumeForPath(const std::string& path) {
  std::string rest = path;
  if (rest.compare(0, 4, "\\\\.\\") == 0 || rest.compare(0, 4, "\\\\?\\") == 0) rest = rest.substr(4);
  if (rest.size() < 2 || rest[1] != ':') return nullptr;
  char letter = rest[0];
  if (letter >= 'a' && letter <= 'z') letter = static_cast<char>(letter - 'a' + 'A');
  for (const HostVolume& volume : volumes()) {
    if (volume.letter == letter) return &volume;
  }
  return nullptr;
}

namespace {
constexpr uintptr_t kFirstHandle = 0x1000;
constexpr uint32_t kGenerationMask = (1u << 9) - 1;

HANDLE handleOf(uint32_t slot, uint32_t generation) {
  return reinterpret_cast<HANDLE>(kFirstHandle + 4 * (static_cast<uintptr_t>(slot) |
                                                      static_cast<uintptr_t>(generation) << Host::kSlotBits));
}
}  // namespace

HANDLE Host::add(std::shared_ptr<Object> object) {
  uint32_t slot = 0;
  if (!freeSlots_.empty()) {
    slot = freeSlots_.back();
    freeSlots_.pop_back();
  } else if (slots_.size() < kMaxOpenHandles) {
    slot = static_cast<uint32_t>(slots_.size());
    slots_.emplace_back();
  } else {
    return fail(ERROR_NOT_ENOUGH_MEMORY, INVALID_HANDLE_VALUE);
  }
  Slot& entry = slots_[slot];
  entry.object = std::move(object);
  return handleOf(slot, entry.generation);
}

Object* Host::find(HANDLE handle) const {
  const uintptr_t value = reinterpret_cast<uintptr_t>(handle);
  if (value < kFirstHandle || value % 4 != 0) return nullptr;
  const uintptr_t code = (value - kFirstHandle) / 4;
  const uintptr_t slot = code & (kMaxOpenHandles - 1);
  if (code >> kSlotBits > kGenerationMask || slot >= slots_.size()) return nullptr;
  const Slot& entry = slots_[slot];
  if (entry.generation != code >> kSlotBits) return nullptr;
  return entry.object.get();
}

bool Host::close(HANDLE handle) {
  if (find(handle) == nullptr) return false;
  const uint32_t slot = static_cast<uint32_t>(((reinterpret_cast<uintptr_t>(handle) - kFirstHandle) / 4) &
                                              (kMaxOpenHandles - 1));
  Slot& entry = slots_[slot];
  // The slot is free and its generation moved on before the object goes (a
  // file's object closes its descriptor, and may unlink the file, as it goes).
  std::shared_ptr<Object> closing = std::move(entry.object);
  entry.generation = (entry.generation + 1) & kGenerationMask;
  freeSlots_.push_back(slot);
  constexpr size_t kSpareEvents = 8;
  if (closing->kind == ObjectKind::Event && closing.use_count() == 1 && spareEvents_.size() < kSpareEvents) {
    spareEvents_.push_back(std::move(closing));
  }
  return true;
}

HANDLE Host::addEvent(bool manualReset, bool signaled) {
  std::shared_ptr<Object> event;
  if (spareEvents_.empty()) {
    event = std::make_shared<EventObject>();
  } else {
    event = std::move(spareEvents_.back());
    spareEvents_.pop_back();
  }
  auto* fields = static_cast<EventObject*>(event.get());
  fields->manualReset = manualReset;
  fields->signaled = signaled;
  return add(std::move(event));
}

void Host::closeAll() {
  // Generations move on, so no handle from before stays valid.
  for (uint32_t slot = 0; slot < slots_.size(); ++slot) {
    if (slots_[slot].object) close(handleOf(slot, slots_[slot].generation));
  }
}

Options optionsFromEnvironment() {
  Options options;
  const char* listed = std::getenv("MODULE_STORAGE_DISKS");
  if (listed != nullptr) {
    std::string text = listed;
    size_t at = 0;
    while (at <= text.size()) {
      const size_t end = text.find(':', at);
      const std::string path = text.substr(at, end == std::string::npos ? std::string::npos : end - at);
      if (!path.empty()) options.disks.push_back(path);
      if (end == std::string::npos) break;
      at = end + 1;
    }
  }
  const char* machine = std::getenv("MODULE_STORAGE_MACHINE");
  const bool hostNamed = machine != nullptr && std::strcmp(machine, "host") == 0;
  options.hostDisks = hostNamed || options.disks.empty();
  return options;
}

void install(const Options& options) {
  Host::instance().configure(options);
  seam::choose(provider());
}

std::string narrow(LPCWSTR text) {
  if (text == nullptr) return "";
  const int need = WideCharToMultiByte(CP_UTF8, 0, text, -1, nullptr, 0, nullptr, nullptr);
  if (need <= 1) return "";
  std::string out(static_cast<size_t>(need), '\0');
  WideCharToMultiByte(CP_UTF8, 0, text, -1, &out[0], need, nullptr, nullptr);
  out.resize(static_cast<size_t>(need - 1));
  return out;
}

Win32WideString widen(const std::string& text) {
  if (text.empty()) return Win32WideString();
  const int need = MultiByteToWideChar(CP_UTF8, 0, text.data(), static_cast<int>(text.size()), nullptr, 0);
  Win32WideString out(static_cast<size_t>(need > 0 ? need : 0), 0);
  if (need > 0) MultiByteToWideChar(CP_UTF8, 0, text.data(), static_cast<int>(text.size()), &out[0], need);
  return out;
}

std::string diskInterfacePath(const HostDisk& disk, size_t index) {
  std::string name;
  for (char c : disk.info.name) name += (c == '#' || c == '\\' || c == '/') ? '_' : c;
  return "\\\\?\\linux#disk#" + name + "#" + std::to_string(index) + "#{53f56307-b6bf-11d0-94f2-00a0c91efb8b}";
}

uint32_t openDisk(size_t index, DiskObject& object) {
  const std::vector<HostDisk>& disks = Host::instance().disks();
  if (index >= disks.size()) return ERROR_FILE_NOT_FOUND;
  const HostDisk& disk = disks[index];
  object.disk = index;
  const uint32_t error = object.medium.open(disk.info.devicePath);
  const int reason = errno;
  if (error == ERROR_ACCESS_DENIED) {
    static std::set<std::string> told;
    if (told.insert(disk.info.devicePath).second) {
      std::fprintf(stderr, "module_storage: cannot open %s: %s; %s\n", disk.info.devicePath.c_str(),
                   std::strerror(reason),
                   holdsRawIo() ? "this process is root or has CAP_SYS_RAWIO, so the system's own rules (a "
                                  "container's device list, a security module) refuse it"
                                : "reading a disk needs root or the CAP_SYS_RAWIO capability");
    }
  }
  if (error != ERROR_SUCCESS) return error;
  BlockIdentity identity;
  identity.vendor = disk.info.vendor;
  identity.product = disk.info.product;
  identity.revision = disk.info.revision;
  identity.serial = disk.info.serial;
  identity.removable = disk.info.removable;
  identity.rotationRate = disk.info.rotational || disk.image ? 0 : 1;
  if (!disk.image && disk.info.commands == CommandPath::SgIo && object.medium.isBlockDevice()) {
    object.scsi = std::make_unique<SgIoTarget>(object.medium.descriptor());
  } else if (!disk.image && disk.info.commands == CommandPath::Nvme && object.medium.isBlockDevice()) {
    // The namespace id as sysfs gives it, else the number after the last 'n'
    // of the name (nvme0n1).
    uint32_t nsid = disk.info.nvmeNsid;
    if (nsid == 0) {
      const size_t at = disk.info.name.find_last_of('n');
      nsid = at == std::string::npos ? 1 : static_cast<uint32_t>(std::strtoul(disk.info.name.c_str() + at + 1, nullptr, 10));
    }
    // The serial of the unit serial number page, as Windows' translation
    // forms it; the revision is the firmware's first four characters
    // (INQUIRY's field is four bytes wide).
    identity.serial = nvmeUnitSerial(disk.info.serial, nsid, disk.info.nvmeEui64, disk.info.nvmeNguid);
    object.nvme = std::make_unique<IoctlNvmeAdmin>(object.medium.descriptor());
    object.scsi = std::make_unique<NvmeScsiTarget>(object.medium, identity, *object.nvme, nsid);
  } else {
    object.scsi = std::make_unique<BlockScsiTarget>(object.medium, identity);
  }
  return ERROR_SUCCESS;
}

namespace {

bool startsWithNoCase(const std::string& text, const std::string& prefix) {
  if (text.size() < prefix.size()) return false;
  for (size_t i = 0; i < prefix.size(); ++i) {
    char a = text[i], b = prefix[i];
    if (a >= 'A' && a <= 'Z') a = static_cast<char>(a - 'A' + 'a');
    if (b >= 'A' && b <= 'Z') b = static_cast<char>(b - 'A' + 'a');
    if (a != b) return false;
  }
  return true;
}

HANDLE openPath(const std::string& path, DWORD access, DWORD disposition, DWORD flags) {
  Host& host = Host::instance();
  size_t index = host.disks().size();
  if (startsWithNoCase(path, "\\\\.\\PhysicalDrive")) {
    const std::string digits = path.substr(17);
    if (digits.empty() || digits.size() > 4 || digits.find_first_not_of("0123456789") != std::string::npos) {
      return fail(ERROR_FILE_NOT_FOUND, INVALID_HANDLE_VALUE);
    }
    index = static_cast<size_t>(std::stoul(digits));
  } else if (startsWithNoCase(path, "\\\\?\\linux#disk#")) {
    for (size_t i = 0; i < host.disks().size(); ++i) {
      if (diskInterfacePath(host.disks()[i], i) == path) index = i;
    }
  }
  if (path.size() >= 3 && path[1] == ':' && path[2] == '\\') return openFile(path, access, disposition, flags);
  if (path.size() == 6 && path.compare(0, 4, "\\\\.\\") == 0 && path[5] == ':') {
    const HostVolume* volume = host.volumeForPath(path);
    if (volume == nullptr) return fail(ERROR_FILE_NOT_FOUND, INVALID_HANDLE_VALUE);
    auto object = std::make_shared<VolumeObject>();
    object->volume = static_cast<size_t>(volume - host.volumes().data());
    return host.add(object);
  }
  if (index >= host.disks().size()) return fail(ERROR_FILE_NOT_FOUND, INVALID_HANDLE_VALUE);
  auto object = std::make_shared<DiskObject>();
  object->access = access;
  const uint32_t error = openDisk(index, *object);
  if (error != ERROR_SUCCESS) return fail(error, INVALID_HANDLE_VALUE);
  return host.add(object);
}

// Completes an overlapped request at once: the result goes into the
// OVERLAPPED and its event is signalled.
BOOL completeOverlapped(LPOVERLAPPED overlapped, DWORD error, DWORD done) {
  overlapped->Internal = error;
  overlapped->InternalHigh = done;
  if (overlapped->hEvent != nullptr) {
    auto event = Host::instance().findAs<EventObject>(overlapped->hEvent, ObjectKind::Event);
    if (event) event->signaled = true;
  }
  return fail(ERROR_IO_PENDING, FALSE);
}

BOOL transfer(HANDLE file, uint8_t* buffer, DWORD length, LPDWORD done, LPOVERLAPPED overlapped, bool write) {
  if (done != nullptr) *done = 0;
  if (buffer == nullptr && length > 0) return fail(ERROR_INVALID_PARAMETER, FALSE);
  Object* object = Host::instance().find(file);
  if (object != nullptr && object->kind == ObjectKind::File) {
    auto* onVolume = static_cast<FileObject*>(object);
    const uint64_t at = overlapped != nullptr
                            ? (static_cast<uint64_t>(overlapped->OffsetHigh) << 32) | overlapped->Offset
                            : onVolume->position;
    DWORD moved = 0;
    const DWORD error = fileTransfer(*onVolume, at, buffer, length, write, &moved);
    if (overlapped != nullptr) return completeOverlapped(overlapped, error, moved);
    if (error != ERROR_SUCCESS) return fail(error, FALSE);
    onVolume->position = at + moved;
    if (done != nullptr) *done = moved;
    SetLastError(ERROR_SUCCESS);
    return TRUE;
  }
  if (object == nullptr || object->kind != ObjectKind::Disk) return fail(ERROR_INVALID_HANDLE, FALSE);
  auto* disk = static_cast<DiskObject*>(object);
  const uint64_t offset =
      overlapped != nullptr ? (static_cast<uint64_t>(overlapped->OffsetHigh) << 32) | overlapped->Offset : disk->position;
  const uint32_t sector = disk->medium.logicalSectorSize();
  // Raw disk transfers move whole sectors only.
  DWORD error = ERROR_SUCCESS;
  if (offset % sector != 0 || length % sector != 0) {
    error = ERROR_INVALID_PARAMETER;
  } else if (length > 0) {
    error = write ? disk->medium.write(offset, buffer, length) : disk->medium.read(offset, buffer, length);
  }
  const DWORD moved = error == ERROR_SUCCESS ? length : 0;
  if (overlapped != nullptr) return completeOverlapped(overlapped, error, moved);
  if (error != ERROR_SUCCESS) return fail(error, FALSE);
  disk->position = offset + moved;
  if (done != nullptr) *done = moved;
  SetLastError(ERROR_SUCCESS);
  return TRUE;
}

}  // namespace

// The Win32 functions this file serves, handed to the seam by provider.cpp.
namespace api {

BOOL CloseHandle(HANDLE handle) {
  if (!Host::instance().close(handle)) return fail(ERROR_INVALID_HANDLE, FALSE);
  return TRUE;
}

HANDLE CreateFileA(LPCSTR name, DWORD access, DWORD, LPSECURITY_ATTRIBUTES, DWORD disposition, DWORD flags,
                   HANDLE) {
  if (name == nullptr) return fail(ERROR_INVALID_PARAMETER, INVALID_HANDLE_VALUE);
  return openPath(name, access, disposition, flags);
}

HANDLE CreateFileW(LPCWSTR name, DWORD access, DWORD, LPSECURITY_ATTRIBUTES, DWORD disposition, DWORD flags,
                   HANDLE) {
  if (name == nullptr) return fail(ERROR_INVALID_PARAMETER, INVALID_HANDLE_VALUE);
  return openPath(narrow(name), access, disposition, flags);
}

BOOL DeviceIoControl(HANDLE device, DWORD code, LPVOID in, DWORD inSize, LPVOID out, DWORD outSize, LPDWORD returned,
                     LPOVERLAPPED) {
  if (returned != nullptr) *returned = 0;
  auto volume = Host::instance().findAs<VolumeObject>(device, ObjectKind::Volume);
  if (volume) return volumeControl(*volume, code, in, inSize, out, outSize, returned);
  auto file = Host::instance().findAs<FileObject>(device, ObjectKind::File);
  if (file) return fileControl(*file, code, returned);
  auto disk = Host::instance().findAs<DiskObject>(device, ObjectKind::Disk);
  if (!disk) return fail(ERROR_INVALID_HANDLE, FALSE);
  return diskControl(*disk, code, in, inSize, out, outSize, returned);
}

BOOL ReadFile(HANDLE file, LPVOID buffer, DWORD toRead, LPDWORD read, LPOVERLAPPED overlapped) {
  return transfer(file, static_cast<uint8_t*>(buffer), toRead, read, overlapped, false);
}

BOOL WriteFile(HANDLE file, LPCVOID buffer, DWORD toWrite, LPDWORD written, LPOVERLAPPED overlapped) {
  return transfer(file, static_cast<uint8_t*>(const_cast<void*>(buffer)), toWrite, written, overlapped, true);
}

BOOL SetFilePointerEx(HANDLE file, LARGE_INTEGER distance, PLARGE_INTEGER newPointer, DWORD moveMethod) {
  auto disk = Host::instance().findAs<DiskObject>(file, ObjectKind::Disk);
  auto onVolume = Host::instance().findAs<FileObject>(file, ObjectKind::File);
  if (!disk && !onVolume) return fail(ERROR_INVALID_HANDLE, FALSE);
  uint64_t& position = disk ? disk->position : onVolume->position;
  int64_t size = 0;
  if (disk) {
    size = static_cast<int64_t>(disk->medium.sectorCount() * disk->medium.logicalSectorSize());
  } else {
    struct stat info {};
    if (::fstat(onVolume->fd, &info) == 0) size = info.st_size;
  }
  int64_t base = 0;
  if (moveMethod == FILE_CURRENT) {
    base = static_cast<int64_t>(position);
  } else if (moveMethod == FILE_END) {
    base = size;
  } else if (moveMethod != FILE_BEGIN) {
    return fail(ERROR_INVALID_PARAMETER, FALSE);
  }
  const int64_t target = base + distance.QuadPart;
  if (target < 0) return fail(ERROR_INVALID_PARAMETER, FALSE);
  position = static_cast<uint64_t>(target);
  if (newPointer != nullptr) newPointer->QuadPart = target;
  return TRUE;
}

DWORD SetFilePointer(HANDLE file, LONG distanceLow, PLONG distanceHigh, DWORD moveMethod) {
  LARGE_INTEGER distance{};
  if (distanceHigh != nullptr) {
    distance.QuadPart = (static_cast<int64_t>(*distanceHigh) << 32) | static_cast<uint32_t>(distanceLow);
  } else {
    distance.QuadPart = distanceLow;
  }
  LARGE_INTEGER now{};
  if (!api::SetFilePointerEx(file, distance, &now, moveMethod)) return INVALID_SET_FILE_POINTER;
  if (distanceHigh != nullptr) *distanceHigh = now.HighPart;
  SetLastError(ERROR_SUCCESS);
  return now.LowPart;
}

BOOL GetFileSizeEx(HANDLE file, PLARGE_INTEGER size) {
  if (size == nullptr) return fail(ERROR_INVALID_PARAMETER, FALSE);
  if (auto onVolume = Host::instance().findAs<FileObject>(file, ObjectKind::File)) {
    struct stat info {};
    if (::fstat(onVolume->fd, &info) != 0) return fail(win32ErrorOf(errno), FALSE);
    size->QuadPart = info.st_size;
    return TRUE;
  }
  auto disk = Host::instance().findAs<DiskObject>(file, ObjectKind::Disk);
  if (!disk) return fail(ERROR_INVALID_HANDLE, FALSE);
  size->QuadPart = static_cast<LONGLONG>(disk->medium.sectorCount() * disk->medium.logicalSectorSize());
  return TRUE;
}

BOOL GetOverlappedResult(HANDLE file, LPOVERLAPPED overlapped, LPDWORD transferred, BOOL) {
  if (!Host::instance().find(file)) return fail(ERROR_INVALID_HANDLE, FALSE);
  if (overlapped == nullptr) return fail(ERROR_INVALID_PARAMETER, FALSE);
  if (transferred != nullptr) *transferred = static_cast<DWORD>(overlapped->InternalHigh);
  const DWORD error = static_cast<DWORD>(overlapped->Internal);
  if (error != ERROR_SUCCESS) return fail(error, FALSE);
  return TRUE;
}

BOOL CancelIo(HANDLE file) {
  // Nothing is ever in flight: every request completed inside its call.
  if (!Host::instance().find(file)) return fail(ERROR_INVALID_HANDLE, FALSE);
  return TRUE;
}

HANDLE CreateEventA(LPSECURITY_ATTRIBUTES, BOOL manualReset, BOOL initialState, LPCSTR) {
  const HANDLE handle = Host::instance().addEvent(manualReset != FALSE, initialState != FALSE);
  return handle == INVALID_HANDLE_VALUE ? nullptr : handle;
}

HANDLE CreateEventW(LPSECURITY_ATTRIBUTES security, BOOL manualReset, BOOL initialState, LPCWSTR) {
  return api::CreateEventA(security, manualReset, initialState, nullptr);
}

BOOL SetEvent(HANDLE handle) {
  auto event = Host::instance().findAs<EventObject>(handle, ObjectKind::Event);
  if (!event) return fail(ERROR_INVALID_HANDLE, FALSE);
  event->signaled = true;
  return TRUE;
}

BOOL ResetEvent(HANDLE handle) {
  auto event = Host::instance().findAs<EventObject>(handle, ObjectKind::Event);
  if (!event) return fail(ERROR_INVALID_HANDLE, FALSE);
  event->signaled = false;
  return TRUE;
}

void Sleep(DWORD milliseconds);

DWORD WaitForSingleObject(HANDLE handle, DWORD milliseconds) {
  auto object = Host::instance().find(handle);
  if (!object) return fail(ERROR_INVALID_HANDLE, WAIT_FAILED);
  if (object->kind != ObjectKind::Event) return WAIT_OBJECT_0;
  auto& event = static_cast<EventObject&>(*object);
  if (event.signaled) {
    if (!event.manualReset) event.signaled = false;
    return WAIT_OBJECT_0;
  }
  // No other thread of this provider signals an event: a wait without a
  // limit would never end.
  if (milliseconds == INFINITE) return fail(ERROR_TIMEOUT, WAIT_FAILED);
  Sleep(milliseconds);
  return WAIT_TIMEOUT;
}

}  // namespace api

}  // namespace linux_host
