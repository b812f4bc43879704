// The state behind the simulated Windows face: the installed machine, its
// volumes and files, and the table of open handles. Internal to sim/windows/;
// the Win32 functions in the other files of this folder act on it.
#pragma once

#include <cstdint>
#include <map>
#include <memory>
#include <set>
#include <string>
#include <vector>

#include "sim/machine.h"
#include "sim/windows/cluster_map.h"
#include "win32/win32.h"

namespace sim {
namespace windows {

// A file or directory on a simulated volume. Data lives on the disk's media
// at the clusters the file holds; ranges never written read as zeros.
struct FileNode {
  std::string name;  // as created; lookups ignore case
  bool directory = false;
  DWORD attributes = FILE_ATTRIBUTE_ARCHIVE;
  uint64_t size = 0;
  uint64_t validDataLength = 0;
  // Runs of clusters in file order: (first LCN, count).
  std::vector<std::pair<uint64_t, uint64_t>> runs;
  ClusterMap written;  // byte ranges that hold data, as [first, end)
  std::map<std::string, std::unique_ptr<FileNode>> children;  // key: lower-case name
  FileNode* parent = nullptr;
  int openCount = 0;
  bool deleteOnClose = false;

  uint64_t allocatedClusters() const;
};

// One extent of a volume on a disk.
struct VolumeExtent {
  size_t disk = 0;  // index into Machine::disks
  DWORD partitionNumber = 0;
  uint64_t offset = 0;  // bytes from the start of the disk
  uint64_t length = 0;
};

struct Volume {
  std::vector<char> letters;  // upper case, in the order given
  std::string guidPath;       // \\?\Volume{...}\ form
  std::string label;
  DWORD serial = 0;
  std::string fileSystem;  // "NTFS", "FAT32", ...
  uint32_t clusterSize = 4096;
  uint32_t bytesPerSector = 512;
  uint64_t totalClusters = 0;
  std::vector<VolumeExtent> extents;
  ClusterMap used;   // clusters in use, as [first, end)
  uint64_t mftStartLcn = 0, mft2StartLcn = 0, mftZoneStart = 0, mftZoneEnd = 0, mftValidDataLength = 0;
  std::unique_ptr<FileNode> root;
  bool locked = false;
  bool dismounted = false;

  uint64_t totalBytes() const { return totalClusters * clusterSize; }
  uint64_t freeClusters() const { return totalClusters - used.total(); }
  bool isNtfs() const;
};

// A CSMI controller of the description: an adapter with phys and RAID sets.
struct Controller {
  std::string interfacePath;  // \\?\pci#ven_8086&dev_2826&...#{2accfe60-...}
  std::string friendlyName;
  nlohmann::json description;
  int number = 0;  // \\.\ScsiN:
};

enum class ObjectKind { Disk, Volume, Adapter, File, Event, Find, VolumeFind, Token, Process, Thread, Pipe, Module, DevInfo };

struct Object {
  explicit Object(ObjectKind k) : kind(k) {}
  virtual ~Object() = default;
  ObjectKind kind;
};

struct EventObject : Object {
  EventObject() : Object(ObjectKind::Event) {}
  bool manualReset = true;
  bool signaled = false;
};

// An overlapped request in flight. It completes at `completeAtMs`, or never
// when `hung` is set (a device that doesn't answer) until CancelIo.
struct PendingIo {
  OVERLAPPED* overlapped = nullptr;
  std::shared_ptr<EventObject> event;
  bool hung = false;
  uint64_t completeAtMs = 0;
  DWORD error = ERROR_SUCCESS;
  DWORD transferred = 0;
};

// A handle that reads and writes: a disk, a volume or a file.
struct IoObject : Object {
  explicit IoObject(ObjectKind k) : Object(k) {}
  DWORD access = 0;
  DWORD share = 0;
  DWORD flags = 0;
  uint64_t position = 0;
  std::vector<PendingIo> pending;
};

struct DiskObject : IoObject {
  DiskObject() : IoObject(ObjectKind::Disk) {}
  size_t disk = 0;
};

struct VolumeObject : IoObject {
  VolumeObject() : IoObject(ObjectKind::Volume) {}
  Volume* volume = nullptr;
  bool holdsLock = false;
};

struct AdapterObject : Object {
  AdapterObject() : Object(ObjectKind::Adapter) {}
  Controller* controller = nullptr;
};

struct FileObject : IoObject {
  FileObject() : IoObject(ObjectKind::File) {}
  Volume* volume = nullptr;
  FileNode* node = nullptr;
  std::string path;  // X:\... as opened
};

struct FindObject : Object {
  FindObject() : Object(ObjectKind::Find) {}
  std::vector<WIN32_FIND_DATAW> entries;
  size_t next = 0;
};

struct VolumeFindObject : Object {
  VolumeFindObject() : Object(ObjectKind::VolumeFind) {}
  size_t next = 0;
};

struct TokenObject : Object {
  TokenObject() : Object(ObjectKind::Token) {}
};

// One end of an anonymous pipe; both ends share the buffer.
struct PipeBuffer {
  std::string data;
  bool writerOpen = true;
};

struct PipeObject : Object {
  PipeObject() : Object(ObjectKind::Pipe) {}
  std::shared_ptr<PipeBuffer> buffer;
  bool readEnd = true;
};

struct ProcessObject : Object {
  ProcessObject() : Object(ObjectKind::Process) {}
  std::shared_ptr<PipeBuffer> output;  // where the child's output went
  std::string script;                  // what is still to be written
  uint64_t bytesPerRead = 1;
  DWORD exitCode = STILL_ACTIVE;
  DWORD finalExitCode = 0;
  bool exited = false;
};

struct ModuleObject : Object {
  ModuleObject() : Object(ObjectKind::Module) {}
  std::string library;  // lower case file name
};

struct DevInfoObject : Object {
  DevInfoObject() : Object(ObjectKind::DevInfo) {}
  // One device per entry: its interface path and friendly name.
  std::vector<std::pair<std::string, std::string>> devices;
  GUID interfaceGuid{};
};

class Face {
 public:
  static Face& instance();

  bool install(std::unique_ptr<Machine> machine, std::string* error);
  void uninstall();
  void resetToEnvironment() {
    reset();
    environmentTried_ = false;
  }
  // Loads the machine the environment names, once, when none is installed.
  Machine* machine();
  // The installed machine, or null; never loads one.
  Machine* installedOnly() { return machine_.get(); }

  HANDLE addObject(std::shared_ptr<Object> object);
  const std::map<uintptr_t, std::shared_ptr<Object>>& objects() const { return handles_; }
  std::shared_ptr<Object> find(HANDLE handle) const;
  bool close(HANDLE handle);
  template <typename T>
  std::shared_ptr<T> findAs(HANDLE handle, ObjectKind kind) const {
    auto object = find(handle);
    if (!object || object->kind != kind) return nullptr;
    return std::static_pointer_cast<T>(object);
  }

  uint64_t nowMs();
  void advanceMs(uint64_t ms);

  std::vector<std::unique_ptr<Volume>>& volumes() { return volumes_; }
  std::vector<std::unique_ptr<Controller>>& controllers() { return controllers_; }
  Volume* volumeForLetter(char letter);
  Volume* volumeForGuidPath(const std::string& path);
  std::vector<std::string>& rebootDeletions() { return rebootDeletions_; }
  std::set<std::string>& privileges() { return privileges_; }
  std::set<std::string>& enabledPrivileges() { return enabledPrivileges_; }
  std::string& currentDirectory() { return currentDirectory_; }
  UINT& errorMode() { return errorMode_; }

 private:
  Face() = default;
  void reset();

  std::unique_ptr<Machine> machine_;
  bool environmentTried_ = false;
  std::map<uintptr_t, std::shared_ptr<Object>> handles_;
  uintptr_t nextHandle_ = 0x1000;
  std::vector<std::unique_ptr<Volume>> volumes_;
  std::vector<std::unique_ptr<Controller>> controllers_;
  std::vector<std::string> rebootDeletions_;
  std::set<std::string> privileges_;
  std::set<std::string> enabledPrivileges_;
  std::string currentDirectory_ = "C:\\";
  UINT errorMode_ = 0;
};

// Sets the last error and gives `result`, so that a failure reads as one line.
template <typename T>
T fail(DWORD error, T result) {
  SetLastError(error);
  return result;
}

// Text of the wide calls: UTF-16 to UTF-8 and back.
std::string narrow(LPCWSTR text);
Win32WideString widen(const std::string& text);
std::string lowerAscii(std::string text);

// Builds the machine's volumes, files and controllers from its description
// (volumes.cpp). False with *error when a key is wrong.
bool buildVolumes(Face& face, Machine& machine, std::string* error);
bool buildControllers(Face& face, Machine& machine, std::string* error);

// Completes a request: the I/O already happened; the event is signalled when
// the virtual clock reaches the completion time (face_io.cpp).
void settlePending(Face& face);

// DeviceIoControl per kind of handle.
BOOL diskControl(Face& face, DiskObject& disk, DWORD code, LPVOID in, DWORD inSize, LPVOID out, DWORD outSize,
                 LPDWORD returned);
BOOL volumeControl(Face& face, VolumeObject& volume, DWORD code, LPVOID in, DWORD inSize, LPVOID out, DWORD outSize,
                   LPDWORD returned);
BOOL fileControl(Face& face, FileObject& file, DWORD code, LPVOID in, DWORD inSize, LPVOID out, DWORD outSize,
                 LPDWORD returned);
BOOL adapterControl(Face& face, AdapterObject& adapter, DWORD code, LPVOID in, DWORD inSize, LPVOID out,
                    DWORD outSize, LPDWORD returned);

// The interface path SetupAPI gives for a disk, which CreateFile accepts.
std::string diskInterfacePath(const Machine& machine, size_t disk);

// The fate of one raw or file transfer on a disk: its fault states count it
// as a command. For an overlapped request a hanging device leaves it pending
// (*hung) without moving the clock; otherwise the clock moves by the delay.
// Gives ERROR_SUCCESS or the error the transfer ends with.
DWORD admitTransfer(Face& face, size_t disk, bool write, bool overlapped, bool* hung);

// The device number and partition number of a volume's first extent.
bool volumeDeviceNumber(const Volume& volume, STORAGE_DEVICE_NUMBER* out);

// Reads from or writes to an anonymous pipe (processes.cpp).
BOOL pipeTransfer(Face& face, PipeObject& pipe, bool write, uint8_t* buffer, DWORD length, LPDWORD done);

// Files (files.cpp).
HANDLE openFile(Face& face, const std::string& path, DWORD access, DWORD share, DWORD disposition, DWORD flags);
void releaseFile(Face& face, FileObject& file);
FileNode* lookupPath(Volume& volume, const std::string& relative, FileNode** parent, std::string* leaf);
BOOL fileRead(Face& face, FileObject& file, uint64_t offset, uint8_t* buffer, DWORD length, DWORD* done);
BOOL fileWrite(Face& face, FileObject& file, uint64_t offset, const uint8_t* buffer, DWORD length, DWORD* done);
BOOL fileSetSize(Face& face, FileObject& file, uint64_t size);
void removeNode(Volume& volume, FileNode* node);

}  // namespace windows
}  // namespace sim
