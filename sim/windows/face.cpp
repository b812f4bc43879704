// The simulated Windows face: the installed machine, the handle table, last
// error, events and waits on the virtual clock, and the dispatch of CreateFile
// and DeviceIoControl to the kind of object a path or handle names.
// Reads and writes are in face_io.cpp, disks in disk_control.cpp, volumes in
// volumes.cpp, files in files.cpp.
#include "sim/windows/face.h"

#include <cstdio>
#include <cstdlib>
#include <map>

#include "sim/lsi_controller.h"
#include "sim/windows/face_state.h"
#include "sim/windows/provider.h"
#include "sim/windows/wmi_state.h"

namespace sim {
namespace windows {

namespace {
// The journal file of a machine loaded from the environment, written when the
// process ends (see face.h).
std::string& journalPath() {
  static std::string path;
  return path;
}

void writeJournalAtExit() {
  Machine* machine = Face::instance().installedOnly();
  if (machine == nullptr || journalPath().empty()) return;
  std::string error;
  if (!machine->journal().writeText(journalPath(), &error)) std::fprintf(stderr, "simulated PC: %s\n", error.c_str());
}
}  // namespace

Face& Face::instance() {
  static Face face;
  return face;
}

void Face::reset() {
  handles_.clear();
  volumes_.clear();
  controllers_.clear();
  installLsiControllers(nullptr, nullptr);
  rebootDeletions_.clear();
  privileges_.clear();
  enabledPrivileges_.clear();
  currentDirectory_ = "C:\\";
  errorMode_ = 0;
  machine_.reset();
  resetManagement();
}

bool Face::install(std::unique_ptr<Machine> machine, std::string* error) {
  reset();
  environmentTried_ = true;
  if (!machine) return true;
  privileges_ = {"SeManageVolumePrivilege", "SeChangeNotifyPrivilege"};
  const auto& listed = machine->description.find("privileges");
  if (listed != machine->description.end()) {
    privileges_.clear();
    if (!listed->is_array()) {
      if (error) *error = "privileges: expected a list of privilege names";
      return false;
    }
    for (const auto& name : *listed) {
      if (!name.is_string()) {
        if (error) *error = "privileges: expected a list of privilege names";
        return false;
      }
      privileges_.insert(name.get<std::string>());
    }
  }
  std::string reason;
  if (!buildVolumes(*this, *machine, &reason) || !buildControllers(*this, *machine, &reason) ||
      !installLsiControllers(machine.get(), &reason) || !buildManagement(*this, *machine, &reason)) {
    if (error) *error = reason;
    reset();
    return false;
  }
  machine_ = std::move(machine);
  return true;
}

void Face::uninstall() {
  reset();
  environmentTried_ = true;
}

Machine* Face::machine() {
  if (!machine_ && !environmentTried_) {
    environmentTried_ = true;
    const char* named = std::getenv("MODULE_STORAGE_MACHINE");
    if (named != nullptr && *named != '\0') {
      std::string error;
      auto loaded = Machine::load(named, &error);
      // A description that can't be loaded leaves the PC without disks, and
      // the reason (the field's path and what is wrong with it) is left in
      // MODULE_STORAGE_MACHINE_ERROR: the three exports have no other way to
      // tell a host why it sees no disks.
      if (!loaded || !install(std::move(loaded), &error)) {
        setenv("MODULE_STORAGE_MACHINE_ERROR", error.empty() ? "the machine could not be built" : error.c_str(), 1);
      } else {
        const char* journal = std::getenv("MODULE_STORAGE_JOURNAL");
        if (journal != nullptr && *journal != '\0' && journalPath().empty()) {
          // The partition tables written at install are the machine's own
          // making: the file holds what the program did from here on.
          machine_->journal().clear();
          journalPath() = journal;
          std::atexit(writeJournalAtExit);
        }
      }
    }
  }
  return machine_.get();
}

HANDLE Face::addObject(std::shared_ptr<Object> object) {
  const uintptr_t value = nextHandle_;
  nextHandle_ += 4;
  handles_[value] = std::move(object);
  return reinterpret_cast<HANDLE>(value);
}

std::shared_ptr<Object> Face::find(HANDLE handle) const {
  auto it = handles_.find(reinterpret_cast<uintptr_t>(handle));
  return it == handles_.end() ? nullptr : it->second;
}

bool Face::close(HANDLE handle) {
  auto it = handles_.find(reinterpret_cast<uintptr_t>(handle));
  if (it == handles_.end()) return false;
  auto object = it->second;
  handles_.erase(it);
  switch (object->kind) {
    case ObjectKind::File:
      releaseFile(*this, static_cast<FileObject&>(*object));
      break;
    case ObjectKind::Volume: {
      auto& volume = static_cast<VolumeObject&>(*object);
      // Closing the handle that locked a volume unlocks and remounts it.
      if (volume.holdsLock && volume.volume != nullptr) {
        volume.volume->locked = false;
        volume.volume->dismounted = false;
      }
      break;
    }
    case ObjectKind::Pipe: {
      auto& pipe = static_cast<PipeObject&>(*object);
      if (!pipe.readEnd && pipe.buffer) pipe.buffer->writerOpen = false;
      break;
    }
    default:
      break;
  }
  return true;
}

uint64_t Face::nowMs() { return machine_ ? machine_->clock().nowMs() : 0; }

void Face::advanceMs(uint64_t ms) {
  if (machine_) machine_->clock().advanceMs(ms);
}

Volume* Face::volumeForLetter(char letter) {
  if (letter >= 'a' && letter <= 'z') letter = static_cast<char>(letter - 'a' + 'A');
  for (auto& volume : volumes_) {
    for (char own : volume->letters) {
      if (own == letter) return volume.get();
    }
  }
  return nullptr;
}

Volume* Face::volumeForGuidPath(const std::string& path) {
  std::string wanted = lowerAscii(path);
  if (!wanted.empty() && wanted.back() == '\\') wanted.pop_back();
  for (auto& volume : volumes_) {
    std::string own = lowerAscii(volume->guidPath);
    if (!own.empty() && own.back() == '\\') own.pop_back();
    if (own == wanted) return volume.get();
  }
  return nullptr;
}

std::string narrow(LPCWSTR text) {
  std::string out;
  if (text == nullptr) return out;
  for (size_t i = 0; text[i] != 0; ++i) {
    uint32_t c = text[i];
    if (c >= 0xD800 && c <= 0xDBFF && text[i + 1] >= 0xDC00 && text[i + 1] <= 0xDFFF) {
      c = 0x10000 + ((c - 0xD800) << 10) + (text[i + 1] - 0xDC00);
      ++i;
    }
    if (c < 0x80) {
      out += static_cast<char>(c);
    } else if (c < 0x800) {
      out += static_cast<char>(0xC0 | (c >> 6));
      out += static_cast<char>(0x80 | (c & 0x3F));
    } else if (c < 0x10000) {
      out += static_cast<char>(0xE0 | (c >> 12));
      out += static_cast<char>(0x80 | ((c >> 6) & 0x3F));
      out += static_cast<char>(0x80 | (c & 0x3F));
    } else {
      out += static_cast<char>(0xF0 | (c >> 18));
      out += static_cast<char>(0x80 | ((c >> 12) & 0x3F));
      out += static_cast<char>(0x80 | ((c >> 6) & 0x3F));
      out += static_cast<char>(0x80 | (c & 0x3F));
    }
  }
  return out;
}

Win32WideString widen(const std::string& text) {
  Win32WideString out;
  for (size_t i = 0; i < text.size();) {
    const auto byte = static_cast<uint8_t>(text[i]);
    uint32_t c = byte;
    size_t extra = 0;
    if (byte >= 0xF0) {
      c = byte & 0x07;
      extra = 3;
    } else if (byte >= 0xE0) {
      c = byte & 0x0F;
      extra = 2;
    } else if (byte >= 0xC0) {
      c = byte & 0x1F;
      extra = 1;
    }
    ++i;
    for (size_t k = 0; k < extra && i < text.size(); ++k, ++i) c = (c << 6) | (static_cast<uint8_t>(text[i]) & 0x3F);
    if (c >= 0x10000) {
      c -= 0x10000;
      out += static_cast<WCHAR>(0xD800 + (c >> 10));
      out += static_cast<WCHAR>(0xDC00 + (c & 0x3FF));
    } else {
      out += static_cast<WCHAR>(c);
    }
  }
  return out;
}

std::string lowerAscii(std::string text) {
  for (char& c : text) {
    if (c >= 'A' && c <= 'Z') c = static_cast<char>(c - 'A' + 'a');
  }
  return text;
}

namespace {

bool startsWithNoCase(const std::string& text, const std::string& prefix) {
  return text.size() >= prefix.size() && lowerAscii(text.substr(0, prefix.size())) == lowerAscii(prefix);
}

// Parses the decimal digits of `text` from `at` up to `end`; false if there
// are none or anything else.
bool parseNumber(const std::string& text, size_t at, size_t end, size_t* value) {
  if (at >= end) return false;
  size_t v = 0;
  for (size_t i = at; i < end; ++i) {
    if (text[i] < '0' || text[i] > '9') return false;
    v = v * 10 + static_cast<size_t>(text[i] - '0');
    if (v > 0xFFFF) return false;
  }
  *value = v;
  return true;
}

HANDLE openPath(Face& face, const std::string& path, DWORD access, DWORD share, DWORD disposition, DWORD flags) {
  Machine* machine = face.machine();
  if (startsWithNoCase(path, "\\\\.\\PhysicalDrive")) {
    size_t number = 0;
    if (!parseNumber(path, 17, path.size(), &number) || machine == nullptr || number >= machine->disks.size() ||
        machine->disks[number].hidden) {
      return fail(ERROR_FILE_NOT_FOUND, INVALID_HANDLE_VALUE);
    }
    auto disk = std::make_shared<DiskObject>();
    disk->disk = number;
    disk->access = access;
    disk->share = share;
    disk->flags = flags;
    return face.addObject(disk);
  }
  if (startsWithNoCase(path, "\\\\.\\Scsi") && !path.empty() && path.back() == ':') {
    size_t number = 0;
    if (!parseNumber(path, 8, path.size() - 1, &number)) return fail(ERROR_FILE_NOT_FOUND, INVALID_HANDLE_VALUE);
    for (auto& controller : face.controllers()) {
      if (static_cast<size_t>(controller->number) == number) {
        auto adapter = std::make_shared<AdapterObject>();
        adapter->controller = controller.get();
        return face.addObject(adapter);
      }
    }
    return fail(ERROR_FILE_NOT_FOUND, INVALID_HANDLE_VALUE);
  }
  if (path.size() == 6 && path.compare(0, 4, "\\\\.\\") == 0 && path[5] == ':') {
    Volume* volume = face.volumeForLetter(path[4]);
    if (volume == nullptr) return fail(ERROR_FILE_NOT_FOUND, INVALID_HANDLE_VALUE);
    auto object = std::make_shared<VolumeObject>();
    object->volume = volume;
    object->access = access;
    object->share = share;
    object->flags = flags;
    return face.addObject(object);
  }
  if (startsWithNoCase(path, "\\\\?\\Volume{")) {
    Volume* volume = face.volumeForGuidPath(path);
    if (volume == nullptr) return fail(ERROR_FILE_NOT_FOUND, INVALID_HANDLE_VALUE);
    auto object = std::make_shared<VolumeObject>();
    object->volume = volume;
    object->access = access;
    object->share = share;
    object->flags = flags;
    return face.addObject(object);
  }
  if (startsWithNoCase(path, "\\\\?\\")) {
    // A device interface path handed out by SetupAPI.
    const std::string wanted = lowerAscii(path);
    if (machine != nullptr) {
      // The instance number in the path is the disk's index, so only that
      // disk's own path can match: building every disk's path for every open
      // made discovery grow with the square of the disks.
      const size_t suffix = wanted.rfind("&0#{");
      const size_t hash = suffix == std::string::npos || suffix == 0 ? std::string::npos : wanted.rfind('#', suffix - 1);
      size_t i = 0;
      bool digits = hash != std::string::npos && suffix - hash > 1 && suffix - hash <= 10;
      for (size_t at = hash + 1; digits && at < suffix; ++at) {
        digits = wanted[at] >= '0' && wanted[at] <= '9';
        i = i * 10 + static_cast<size_t>(wanted[at] - '0');
      }
      if (digits && i < machine->disks.size() && !machine->disks[i].hidden &&
          wanted == lowerAscii(diskInterfacePath(*machine, i))) {
        auto disk = std::make_shared<DiskObject>();
        disk->disk = i;
        disk->access = access;
        disk->share = share;
        disk->flags = flags;
        return face.addObject(disk);
      }
    }
    for (auto& controller : face.controllers()) {
      if (wanted == lowerAscii(controller->interfacePath)) {
        auto adapter = std::make_shared<AdapterObject>();
        adapter->controller = controller.get();
        return face.addObject(adapter);
      }
    }
    return fail(ERROR_FILE_NOT_FOUND, INVALID_HANDLE_VALUE);
  }
  return openFile(face, path, access, share, disposition, flags);
}

}  // namespace

std::string diskInterfacePath(const Machine& machine, size_t disk) {
  // The form of a disk's interface path: bus, device id, instance, the disk
  // interface class.
  const Disk& d = machine.disks[disk];
  std::string product;
  for (char c : d.vendorId + "_" + d.productId) product += (c == ' ' || c == '#') ? '_' : c;
  return "\\\\?\\scsi#disk&ven_" + lowerAscii(product) + "#" + std::to_string(disk) +
         "&0#{53f56307-b6bf-11d0-94f2-00a0c91efb8b}";
}

}  // namespace windows

bool installMachine(std::unique_ptr<Machine> machine, std::string* error) {
  seam::choose(windowsProvider());
  return windows::Face::instance().install(std::move(machine), error);
}

void uninstallMachine() {
  seam::choose(windowsProvider());
  windows::Face::instance().uninstall();
}

void resetToEnvironment() {
  windows::Face::instance().resetToEnvironment();
  seam::forgetChoice();
}

Machine* installedMachine() { return windows::Face::instance().machine(); }

std::vector<std::string> pendingRebootDeletions() { return windows::Face::instance().rebootDeletions(); }

bool privilegeEnabled(const std::string& name) {
  return windows::Face::instance().enabledPrivileges().count(name) != 0;
}

}  // namespace sim

// The Win32 functions this file serves, handed to the seam by provider.cpp.
namespace sim {
namespace api {

using sim::windows::Face;
using sim::windows::fail;

BOOL CloseHandle(HANDLE handle) {
  if (!Face::instance().close(handle)) return fail(ERROR_INVALID_HANDLE, FALSE);
  return TRUE;
}

HANDLE CreateFileA(LPCSTR name, DWORD access, DWORD share, LPSECURITY_ATTRIBUTES, DWORD disposition, DWORD flags,
                   HANDLE) {
  if (name == nullptr) return fail(ERROR_INVALID_PARAMETER, INVALID_HANDLE_VALUE);
  return sim::windows::openPath(Face::instance(), name, access, share, disposition, flags);
}

HANDLE CreateFileW(LPCWSTR name, DWORD access, DWORD share, LPSECURITY_ATTRIBUTES, DWORD disposition, DWORD flags,
                   HANDLE) {
  if (name == nullptr) return fail(ERROR_INVALID_PARAMETER, INVALID_HANDLE_VALUE);
  return sim::windows::openPath(Face::instance(), sim::windows::narrow(name), access, share, disposition, flags);
}

BOOL DeviceIoControl(HANDLE device, DWORD code, LPVOID in, DWORD inSize, LPVOID out, DWORD outSize, LPDWORD returned,
                     LPOVERLAPPED) {
  using namespace sim::windows;
  Face& face = Face::instance();
  if (returned != nullptr) *returned = 0;
  auto object = face.find(device);
  if (!object) return fail(ERROR_INVALID_HANDLE, FALSE);
  switch (object->kind) {
    case ObjectKind::Disk:
      return diskControl(face, static_cast<DiskObject&>(*object), code, in, inSize, out, outSize, returned);
    case ObjectKind::Volume:
      return volumeControl(face, static_cast<VolumeObject&>(*object), code, in, inSize, out, outSize, returned);
    case ObjectKind::File:
      return fileControl(face, static_cast<FileObject&>(*object), code, in, inSize, out, outSize, returned);
    case ObjectKind::Adapter:
      return adapterControl(face, static_cast<AdapterObject&>(*object), code, in, inSize, out, outSize, returned);
    default:
      return fail(ERROR_INVALID_FUNCTION, FALSE);
  }
}

DWORD GetTickCount() {
  sim::Machine* machine = Face::instance().machine();
  return machine ? static_cast<DWORD>(machine->clock().readTicks()) : 0;
}

void Sleep(DWORD milliseconds) {
  Face& face = Face::instance();
  face.machine();
  face.advanceMs(milliseconds);
  sim::windows::settlePending(face);
}

UINT SetErrorMode(UINT mode) {
  UINT& current = Face::instance().errorMode();
  const UINT previous = current;
  current = mode;
  return previous;
}

HANDLE CreateEventA(LPSECURITY_ATTRIBUTES, BOOL manualReset, BOOL initialState, LPCSTR) {
  auto event = std::make_shared<sim::windows::EventObject>();
  event->manualReset = manualReset != FALSE;
  event->signaled = initialState != FALSE;
  return Face::instance().addObject(event);
}

HANDLE CreateEventW(LPSECURITY_ATTRIBUTES security, BOOL manualReset, BOOL initialState, LPCWSTR) {
  return api::CreateEventA(security, manualReset, initialState, nullptr);
}

BOOL SetEvent(HANDLE handle) {
  auto event = Face::instance().findAs<sim::windows::EventObject>(handle, sim::windows::ObjectKind::Event);
  if (!event) return fail(ERROR_INVALID_HANDLE, FALSE);
  event->signaled = true;
  return TRUE;
}

BOOL ResetEvent(HANDLE handle) {
  auto event = Face::instance().findAs<sim::windows::EventObject>(handle, sim::windows::ObjectKind::Event);
  if (!event) return fail(ERROR_INVALID_HANDLE, FALSE);
  event->signaled = false;
  return TRUE;
}

}  // namespace api
}  // namespace sim
