// Files and directories on simulated volumes: open and create with sharing
// and dispositions, delete on close, data on the disk's media at the file's
// clusters, size and valid data length, sparse flag and retrieval pointers,
// searches, attributes, removal, and moves delayed until the next start.
#include <algorithm>
#include <cstring>

#include "sim/windows/face.h"
#include "sim/windows/face_state.h"

namespace sim {
namespace windows {

namespace {

constexpr DWORD ERROR_NOT_SAME_DEVICE = 17;
constexpr DWORD ERROR_DIRECTORY = 267;
constexpr DWORD ERROR_BAD_PATHNAME = 161;

struct Resolved {
  Volume* volume = nullptr;
  std::string relative;  // behind "X:\", with backslashes
  std::string full;      // "X:\..."
};

// An absolute "X:\..." path (forward slashes accepted), or one relative to
// the current directory.
bool resolve(Face& face, std::string path, Resolved* out) {
  face.machine();
  std::replace(path.begin(), path.end(), '/', '\\');
  if (path.size() >= 2 && path[1] == ':') {
    if (path.size() == 2) path += '\\';
    if (path[2] != '\\') return false;
  } else if (!path.empty() && path[0] == '\\') {
    path = face.currentDirectory().substr(0, 2) + path;
  } else {
    std::string base = face.currentDirectory();
    if (base.back() != '\\') base += '\\';
    path = base + path;
  }
  out->volume = face.volumeForLetter(path[0]);
  out->full = path;
  out->relative = path.substr(3);
  while (!out->relative.empty() && out->relative.back() == '\\') out->relative.pop_back();
  return out->volume != nullptr;
}

bool matches(const std::string& pattern, const std::string& name) {
  // '*' any run, '?' any one character; case is ignored.
  const std::string p = lowerAscii(pattern), n = lowerAscii(name);
  size_t pi = 0, ni = 0, star = std::string::npos, mark = 0;
  while (ni < n.size()) {
    if (pi < p.size() && (p[pi] == '?' || p[pi] == n[ni])) {
      ++pi;
      ++ni;
    } else if (pi < p.size() && p[pi] == '*') {
      star = pi++;
      mark = ni;
    } else if (star != std::string::npos) {
      pi = star + 1;
      ni = ++mark;
    } else {
      return false;
    }
  }
  while (pi < p.size() && p[pi] == '*') ++pi;
  return pi == p.size();
}

bool canWrite(DWORD access) { return (access & (GENERIC_WRITE | GENERIC_ALL | MAXIMUM_ALLOWED)) != 0; }
bool canRead(DWORD access) { return (access & (GENERIC_READ | GENERIC_ALL | MAXIMUM_ALLOWED)) != 0; }

void freeClusters(Volume& volume, FileNode& node) {
  for (const auto& run : node.runs) volume.used.remove(run.first, run.second);
  node.runs.clear();
}

// The byte offset on the disk of a byte of the file.
bool diskOffset(const Volume& volume, const FileNode& node, uint64_t fileOffset, uint64_t* at) {
  uint64_t vcn = fileOffset / volume.clusterSize;
  for (const auto& run : node.runs) {
    if (vcn < run.second) {
      *at = volume.extents.front().offset + (run.first + vcn) * volume.clusterSize + fileOffset % volume.clusterSize;
      return true;
    }
    vcn -= run.second;
  }
  return false;
}

std::vector<FileObject*> openersOf(Face& face, const FileNode* node) {
  std::vector<FileObject*> list;
  for (const auto& entry : face.objects()) {
    if (entry.second->kind != ObjectKind::File) continue;
    auto* file = static_cast<FileObject*>(entry.second.get());
    if (file->node == node) list.push_back(file);
  }
  return list;
}

}  // namespace

FileNode* lookupPath(Volume& volume, const std::string& relative, FileNode** parent, std::string* leaf) {
  FileNode* node = volume.root.get();
  if (parent != nullptr) *parent = nullptr;
  if (leaf != nullptr) leaf->clear();
  size_t at = 0;
  while (at <= relative.size() && node != nullptr) {
    size_t end = relative.find('\\', at);
    if (end == std::string::npos) end = relative.size();
    const std::string name = relative.substr(at, end - at);
    at = end + 1;
    if (name.empty()) {
      if (end == relative.size()) break;
      continue;
    }
    if (!node->directory) return nullptr;
    if (parent != nullptr) *parent = node;
    if (leaf != nullptr) *leaf = name;
    auto it = node->children.find(lowerAscii(name));
    if (it == node->children.end()) {
      // The parent is known only if this was the last component.
      if (end != relative.size() && parent != nullptr) *parent = nullptr;
      return nullptr;
    }
    node = it->second.get();
  }
  return node;
}

void removeNode(Volume& volume, FileNode* node) {
  if (node == nullptr || node->parent == nullptr) return;
  freeClusters(volume, *node);
  node->parent->children.erase(lowerAscii(node->name));
}

HANDLE openFile(Face& face, const std::string& path, DWORD access, DWORD share, DWORD disposition, DWORD flags) {
  Resolved r;
  if (!resolve(face, path, &r)) return fail(ERROR_PATH_NOT_FOUND, INVALID_HANDLE_VALUE);
  Volume& volume = *r.volume;
  if (volume.locked || volume.dismounted) return fail(ERROR_ACCESS_DENIED, INVALID_HANDLE_VALUE);
  if (disposition < CREATE_NEW || disposition > TRUNCATE_EXISTING) {
    return fail(ERROR_INVALID_PARAMETER, INVALID_HANDLE_VALUE);
  }
  FileNode* parent = nullptr;
  std::string leaf;
  FileNode* node = lookupPath(volume, r.relative, &parent, &leaf);
  DWORD lastError = ERROR_SUCCESS;
  if (node != nullptr) {
    if (node->directory) {
      if ((flags & FILE_FLAG_BACKUP_SEMANTICS) == 0 || disposition != OPEN_EXISTING) {
        return fail(ERROR_ACCESS_DENIED, INVALID_HANDLE_VALUE);
      }
    } else {
      if (disposition == CREATE_NEW) return fail(ERROR_FILE_EXISTS, INVALID_HANDLE_VALUE);
      if ((node->attributes & FILE_ATTRIBUTE_READONLY) != 0 &&
          (canWrite(access) || disposition == CREATE_ALWAYS || disposition == TRUNCATE_EXISTING)) {
        return fail(ERROR_ACCESS_DENIED, INVALID_HANDLE_VALUE);
      }
    }
    if (node->deleteOnClose && node->openCount > 0) return fail(ERROR_ACCESS_DENIED, INVALID_HANDLE_VALUE);
    for (FileObject* other : openersOf(face, node)) {
      const bool refused = (canRead(access) && (other->share & FILE_SHARE_READ) == 0) ||
                           (canWrite(access) && (other->share & FILE_SHARE_WRITE) == 0) ||
                           (canRead(other->access) && (share & FILE_SHARE_READ) == 0) ||
                           (canWrite(other->access) && (share & FILE_SHARE_WRITE) == 0);
      if (refused) return fail(ERROR_SHARING_VIOLATION, INVALID_HANDLE_VALUE);
    }
    if (!node->directory && (disposition == CREATE_ALWAYS || disposition == TRUNCATE_EXISTING)) {
      freeClusters(volume, *node);
      node->size = 0;
      node->validDataLength = 0;
      node->written.clear();
    }
    if (disposition == CREATE_ALWAYS || disposition == OPEN_ALWAYS) lastError = ERROR_ALREADY_EXISTS;
  } else {
    if (parent == nullptr || leaf.empty()) return fail(ERROR_PATH_NOT_FOUND, INVALID_HANDLE_VALUE);
    if (disposition == OPEN_EXISTING || disposition == TRUNCATE_EXISTING) {
      return fail(ERROR_FILE_NOT_FOUND, INVALID_HANDLE_VALUE);
    }
    auto created = std::make_unique<FileNode>();
    created->name = leaf;
    created->parent = parent;
    created->attributes = FILE_ATTRIBUTE_ARCHIVE;
    node = created.get();
    parent->children[lowerAscii(leaf)] = std::move(created);
  }
  if ((flags & FILE_FLAG_DELETE_ON_CLOSE) != 0) node->deleteOnClose = true;
  ++node->openCount;
  auto file = std::make_shared<FileObject>();
  file->volume = &volume;
  file->node = node;
  file->access = access;
  file->share = share;
  file->flags = flags;
  file->path = r.full;
  HANDLE handle = face.addObject(file);
  SetLastError(lastError);
  return handle;
}

void releaseFile(Face& face, FileObject& file) {
  (void)face;
  if (file.node == nullptr || file.volume == nullptr) return;
  FileNode* node = file.node;
  file.node = nullptr;
  if (--node->openCount == 0 && node->deleteOnClose) removeNode(*file.volume, node);
}

BOOL fileSetSize(Face& face, FileObject& file, uint64_t size) {
  (void)face;
  Volume& volume = *file.volume;
  FileNode& node = *file.node;
  if (node.directory) return fail(ERROR_ACCESS_DENIED, FALSE);
  const uint64_t need = (size + volume.clusterSize - 1) / volume.clusterSize;
  const uint64_t have = node.allocatedClusters();
  if (need > have) {
    auto runs = volume.used.allocate(need - have, volume.totalClusters);
    if (runs.empty()) return fail(ERROR_DISK_FULL, FALSE);
    for (const auto& run : runs) {
      if (!node.runs.empty() && node.runs.back().first + node.runs.back().second == run.first) {
        node.runs.back().second += run.second;
      } else {
        node.runs.push_back(run);
      }
    }
  } else if (need < have) {
    uint64_t drop = have - need;
    while (drop > 0 && !node.runs.empty()) {
      auto& last = node.runs.back();
      const uint64_t n = std::min(drop, last.second);
      volume.used.remove(last.first + last.second - n, n);
      last.second -= n;
      drop -= n;
      if (last.second == 0) node.runs.pop_back();
    }
  }
  if (size < node.size) node.written.remove(size, node.size - size);
  node.size = size;
  node.validDataLength = std::min(node.validDataLength, size);
  return TRUE;
}

BOOL fileRead(Face& face, FileObject& file, uint64_t offset, uint8_t* buffer, DWORD length, DWORD* done) {
  Machine* machine = face.machine();
  Volume& volume = *file.volume;
  FileNode& node = *file.node;
  *done = 0;
  if (node.directory) return fail(ERROR_ACCESS_DENIED, FALSE);
  if (offset >= node.size || length == 0) return TRUE;
  const uint64_t count = std::min<uint64_t>(length, node.size - offset);
  uint64_t at = 0;
  while (at < count) {
    const uint64_t position = offset + at;
    const uint64_t chunk = std::min<uint64_t>(count - at, volume.clusterSize - position % volume.clusterSize);
    uint64_t onDisk = 0;
    if (node.written.containsAll(position, chunk) && diskOffset(volume, node, position, &onDisk)) {
      const Disk& disk = machine->disks[volume.extents.front().disk];
      if (disk.media->readBytes(onDisk, chunk, buffer + at) != MediaResult::Ok) return fail(ERROR_CRC, FALSE);
    } else {
      // Bytes never written read as zeros; a partly written cluster byte by byte.
      for (uint64_t i = 0; i < chunk; ++i) {
        buffer[at + i] = 0;
        if (node.written.contains(position + i) && diskOffset(volume, node, position + i, &onDisk)) {
          machine->disks[volume.extents.front().disk].media->readBytes(onDisk, 1, buffer + at + i);
        }
      }
    }
    at += chunk;
  }
  *done = static_cast<DWORD>(count);
  return TRUE;
}

BOOL fileWrite(Face& face, FileObject& file, uint64_t offset, const uint8_t* buffer, DWORD length, DWORD* done) {
  Machine* machine = face.machine();
  Volume& volume = *file.volume;
  FileNode& node = *file.node;
  *done = 0;
  if (node.directory) return fail(ERROR_ACCESS_DENIED, FALSE);
  if (length == 0) return TRUE;
  if (offset + length > node.size && !fileSetSize(face, file, offset + length)) return FALSE;
  Disk& disk = machine->disks[volume.extents.front().disk];
  uint64_t at = 0;
  while (at < length) {
    const uint64_t position = offset + at;
    const uint64_t chunk = std::min<uint64_t>(length - at, volume.clusterSize - position % volume.clusterSize);
    uint64_t onDisk = 0;
    if (!diskOffset(volume, node, position, &onDisk)) return fail(ERROR_DISK_FULL, FALSE);
    if (disk.media->writeBytes(onDisk, chunk, buffer + at) != MediaResult::Ok) return fail(ERROR_IO_DEVICE, FALSE);
    at += chunk;
  }
  node.written.add(offset, length);
  node.validDataLength = std::max<uint64_t>(node.validDataLength, offset + length);
  *done = length;
  return TRUE;
}

BOOL fileControl(Face& face, FileObject& file, DWORD code, LPVOID in, DWORD inSize, LPVOID out, DWORD outSize,
                 LPDWORD returned) {
  (void)face;
  if (file.node == nullptr) return fail(ERROR_INVALID_HANDLE, FALSE);
  FileNode& node = *file.node;
  switch (code) {
    case FSCTL_SET_SPARSE:
      // The flag only: clusters stay allocated as the size gave them.
      node.attributes |= FILE_ATTRIBUTE_SPARSE_FILE;
      SetLastError(ERROR_SUCCESS);
      return TRUE;
    case FSCTL_GET_RETRIEVAL_POINTERS: {
      if (in == nullptr || inSize < sizeof(STARTING_VCN_INPUT_BUFFER)) return fail(ERROR_INVALID_PARAMETER, FALSE);
      STARTING_VCN_INPUT_BUFFER start;
      std::memcpy(&start, in, sizeof(start));
      if (start.StartingVcn.QuadPart < 0) return fail(ERROR_INVALID_PARAMETER, FALSE);
      const uint64_t wanted = static_cast<uint64_t>(start.StartingVcn.QuadPart);
      if (wanted >= node.allocatedClusters()) return fail(ERROR_HANDLE_EOF, FALSE);
      const size_t header = offsetof(RETRIEVAL_POINTERS_BUFFER, Extents);
      const size_t extentSize = sizeof(RETRIEVAL_POINTERS_BUFFER) - header;
      if (out == nullptr || outSize < sizeof(RETRIEVAL_POINTERS_BUFFER)) return fail(ERROR_INSUFFICIENT_BUFFER, FALSE);
      auto* o = static_cast<uint8_t*>(out);
      uint64_t vcn = 0;
      size_t first = 0;
      while (vcn + node.runs[first].second <= wanted) vcn += node.runs[first++].second;
      RETRIEVAL_POINTERS_BUFFER head{};
      head.StartingVcn.QuadPart = static_cast<LONGLONG>(vcn);
      const size_t room = (outSize - header) / extentSize;
      size_t written = 0;
      for (size_t i = first; i < node.runs.size() && written < room; ++i, ++written) {
        vcn += node.runs[i].second;
        LARGE_INTEGER pair[2];
        pair[0].QuadPart = static_cast<LONGLONG>(vcn);
        pair[1].QuadPart = static_cast<LONGLONG>(node.runs[i].first);
        std::memcpy(o + header + written * extentSize, pair, extentSize);
      }
      head.ExtentCount = static_cast<DWORD>(written);
      std::memcpy(o, &head, header);
      if (returned != nullptr) *returned = static_cast<DWORD>(header + written * extentSize);
      if (first + written < node.runs.size()) return fail(ERROR_MORE_DATA, FALSE);
      SetLastError(ERROR_SUCCESS);
      return TRUE;
    }
    default:
      return fail(ERROR_INVALID_FUNCTION, FALSE);
  }
}

namespace {

WIN32_FIND_DATAW findData(const FileNode& node, const std::string& name) {
  WIN32_FIND_DATAW data{};
  data.dwFileAttributes = node.attributes;
  data.nFileSizeHigh = static_cast<DWORD>(node.size >> 32);
  data.nFileSizeLow = static_cast<DWORD>(node.size);
  const Win32WideString wide = widen(name);
  const size_t n = std::min<size_t>(wide.size(), MAX_PATH - 1);
  std::copy(wide.begin(), wide.begin() + static_cast<std::ptrdiff_t>(n), data.cFileName);
  return data;
}

HANDLE findFirst(const std::string& pattern, WIN32_FIND_DATAW* out) {
  Face& face = Face::instance();
  Resolved r;
  if (out == nullptr) return fail(ERROR_INVALID_PARAMETER, INVALID_HANDLE_VALUE);
  if (pattern.empty() || !resolve(face, pattern, &r)) return fail(ERROR_PATH_NOT_FOUND, INVALID_HANDLE_VALUE);
  const size_t cut = r.relative.rfind('\\');
  const std::string directory = cut == std::string::npos ? "" : r.relative.substr(0, cut);
  const std::string name = cut == std::string::npos ? r.relative : r.relative.substr(cut + 1);
  FileNode* dir = lookupPath(*r.volume, directory, nullptr, nullptr);
  if (dir == nullptr || !dir->directory) return fail(ERROR_PATH_NOT_FOUND, INVALID_HANDLE_VALUE);
  auto find = std::make_shared<FindObject>();
  if (name.empty()) {
    // "X:\dir\" names nothing to list.
    return fail(ERROR_FILE_NOT_FOUND, INVALID_HANDLE_VALUE);
  }
  if (dir != r.volume->root.get()) {
    if (matches(name, ".")) find->entries.push_back(findData(*dir, "."));
    if (matches(name, "..")) find->entries.push_back(findData(*dir->parent, ".."));
  }
  for (const auto& child : dir->children) {
    if (matches(name, child.second->name)) find->entries.push_back(findData(*child.second, child.second->name));
  }
  if (find->entries.empty()) return fail(ERROR_FILE_NOT_FOUND, INVALID_HANDLE_VALUE);
  *out = find->entries[0];
  find->next = 1;
  SetLastError(ERROR_SUCCESS);
  return face.addObject(find);
}

BOOL findNext(HANDLE handle, WIN32_FIND_DATAW* out) {
  auto find = Face::instance().findAs<FindObject>(handle, ObjectKind::Find);
  if (!find) return fail(ERROR_INVALID_HANDLE, FALSE);
  if (out == nullptr) return fail(ERROR_INVALID_PARAMETER, FALSE);
  if (find->next >= find->entries.size()) return fail(ERROR_NO_MORE_FILES, FALSE);
  *out = find->entries[find->next++];
  return TRUE;
}

void toNarrow(const WIN32_FIND_DATAW& wide, WIN32_FIND_DATAA* out) {
  std::memset(out, 0, sizeof(*out));
  out->dwFileAttributes = wide.dwFileAttributes;
  out->nFileSizeHigh = wide.nFileSizeHigh;
  out->nFileSizeLow = wide.nFileSizeLow;
  const std::string name = narrow(wide.cFileName);
  std::strncpy(out->cFileName, name.c_str(), MAX_PATH - 1);
}

FileNode* existing(const std::string& path, Resolved* r) {
  Face& face = Face::instance();
  if (!resolve(face, path, r)) return fail(ERROR_PATH_NOT_FOUND, static_cast<FileNode*>(nullptr));
  FileNode* parent = nullptr;
  FileNode* node = lookupPath(*r->volume, r->relative, &parent, nullptr);
  if (node == nullptr) return fail(parent != nullptr ? ERROR_FILE_NOT_FOUND : ERROR_PATH_NOT_FOUND, node);
  return node;
}

BOOL deleteFile(const std::string& path) {
  Resolved r;
  FileNode* node = existing(path, &r);
  if (node == nullptr) return FALSE;
  if (node->directory || (node->attributes & FILE_ATTRIBUTE_READONLY) != 0) return fail(ERROR_ACCESS_DENIED, FALSE);
  if (node->openCount > 0) return fail(ERROR_SHARING_VIOLATION, FALSE);
  removeNode(*r.volume, node);
  return TRUE;
}

BOOL createDirectory(const std::string& path) {
  Face& face = Face::instance();
  Resolved r;
  if (!resolve(face, path, &r)) return fail(ERROR_PATH_NOT_FOUND, FALSE);
  FileNode* parent = nullptr;
  std::string leaf;
  if (lookupPath(*r.volume, r.relative, &parent, &leaf) != nullptr) return fail(ERROR_ALREADY_EXISTS, FALSE);
  if (parent == nullptr || leaf.empty()) return fail(ERROR_PATH_NOT_FOUND, FALSE);
  auto dir = std::make_unique<FileNode>();
  dir->name = leaf;
  dir->parent = parent;
  dir->directory = true;
  dir->attributes = FILE_ATTRIBUTE_DIRECTORY;
  parent->children[lowerAscii(leaf)] = std::move(dir);
  return TRUE;
}

BOOL removeDirectory(const std::string& path) {
  Resolved r;
  FileNode* node = existing(path, &r);
  if (node == nullptr) return FALSE;
  if (!node->directory) return fail(ERROR_DIRECTORY, FALSE);
  if (node->parent == nullptr) return fail(ERROR_ACCESS_DENIED, FALSE);
  if (!node->children.empty()) return fail(ERROR_DIR_NOT_EMPTY, FALSE);
  removeNode(*r.volume, node);
  return TRUE;
}

DWORD attributesOf(const std::string& path) {
  Resolved r;
  FileNode* node = existing(path, &r);
  return node == nullptr ? INVALID_FILE_ATTRIBUTES : node->attributes;
}

BOOL setAttributes(const std::string& path, DWORD attributes) {
  Resolved r;
  FileNode* node = existing(path, &r);
  if (node == nullptr) return FALSE;
  const DWORD kept = node->attributes & (FILE_ATTRIBUTE_DIRECTORY | FILE_ATTRIBUTE_SPARSE_FILE);
  node->attributes = kept | (attributes & ~(FILE_ATTRIBUTE_DIRECTORY | FILE_ATTRIBUTE_SPARSE_FILE | FILE_ATTRIBUTE_NORMAL));
  if (node->attributes == 0) node->attributes = FILE_ATTRIBUTE_NORMAL;
  return TRUE;
}

BOOL moveFile(const std::string& from, const std::string* to, DWORD flags) {
  Face& face = Face::instance();
  Resolved source;
  if (!resolve(face, from, &source)) return fail(ERROR_PATH_NOT_FOUND, FALSE);
  if ((flags & MOVEFILE_DELAY_UNTIL_REBOOT) != 0) {
    // Registered for the next start; the file may not exist yet.
    face.rebootDeletions().push_back(source.full);
    return TRUE;
  }
  if (to == nullptr) return fail(ERROR_INVALID_PARAMETER, FALSE);
  FileNode* node = existing(from, &source);
  if (node == nullptr) return FALSE;
  Resolved target;
  if (!resolve(face, *to, &target)) return fail(ERROR_PATH_NOT_FOUND, FALSE);
  if (target.volume != source.volume) return fail(ERROR_NOT_SAME_DEVICE, FALSE);
  FileNode* parent = nullptr;
  std::string leaf;
  FileNode* there = lookupPath(*target.volume, target.relative, &parent, &leaf);
  if (there == node) return TRUE;
  if (there != nullptr) {
    if ((flags & MOVEFILE_REPLACE_EXISTING) == 0 || there->directory) return fail(ERROR_ALREADY_EXISTS, FALSE);
    if (there->openCount > 0) return fail(ERROR_ACCESS_DENIED, FALSE);
    removeNode(*target.volume, there);
  }
  if (parent == nullptr || leaf.empty()) return fail(ERROR_PATH_NOT_FOUND, FALSE);
  auto owned = std::move(node->parent->children[lowerAscii(node->name)]);
  node->parent->children.erase(lowerAscii(node->name));
  owned->name = leaf;
  owned->parent = parent;
  parent->children[lowerAscii(leaf)] = std::move(owned);
  return TRUE;
}

template <typename Char>
DWORD copyOut(const std::string& text, Char* buffer, DWORD size) {
  // Too small: the size needed, with the terminating NUL; else the length.
  if (buffer == nullptr || size < text.size() + 1) return static_cast<DWORD>(text.size() + 1);
  const Win32WideString wide = widen(text);
  if (sizeof(Char) == 1) {
    for (size_t i = 0; i < text.size(); ++i) buffer[i] = static_cast<Char>(text[i]);
    buffer[text.size()] = 0;
    return static_cast<DWORD>(text.size());
  }
  for (size_t i = 0; i < wide.size(); ++i) buffer[i] = static_cast<Char>(wide[i]);
  buffer[wide.size()] = 0;
  return static_cast<DWORD>(wide.size());
}

const char* const kWindowsDirectory = "C:\\Windows";
const char* const kExecutable = "C:\\Program Files\\Diagnostics\\hwc_cli.exe";

template <typename Char>
DWORD moduleFileName(HMODULE module, Char* buffer, DWORD size) {
  std::string path = kExecutable;
  if (module != nullptr) {
    auto object = Face::instance().findAs<ModuleObject>(module, ObjectKind::Module);
    if (!object) return fail(ERROR_INVALID_HANDLE, DWORD{0});
    path = "C:\\Program Files\\Diagnostics\\" + object->library;
  }
  if (buffer == nullptr || size == 0) return fail(ERROR_INSUFFICIENT_BUFFER, DWORD{0});
  // A short buffer gets the path cut to fit, and the size as the result.
  const DWORD n = std::min<DWORD>(size - 1, static_cast<DWORD>(path.size()));
  for (DWORD i = 0; i < n; ++i) buffer[i] = static_cast<Char>(path[i]);
  buffer[n] = 0;
  if (n < path.size()) return fail(ERROR_INSUFFICIENT_BUFFER, size);
  SetLastError(ERROR_SUCCESS);
  return n;
}

}  // namespace

}  // namespace windows

void simulateReboot() {
  using namespace windows;
  Face& face = Face::instance();
  const std::vector<std::string> marked = face.rebootDeletions();
  face.rebootDeletions().clear();
  for (const auto& path : marked) {
    Resolved r;
    if (!resolve(face, path, &r)) continue;
    FileNode* node = lookupPath(*r.volume, r.relative, nullptr, nullptr);
    if (node != nullptr && !node->directory) removeNode(*r.volume, node);
  }
}

}  // namespace sim

// The Win32 functions this file serves, handed to the seam by provider.cpp.
namespace sim {
namespace api {

using sim::windows::Face;
using sim::windows::fail;
using sim::windows::narrow;

BOOL SetEndOfFile(HANDLE file) {
  auto object = Face::instance().findAs<sim::windows::FileObject>(file, sim::windows::ObjectKind::File);
  if (!object || object->node == nullptr) return fail(ERROR_INVALID_HANDLE, FALSE);
  if ((object->access & (GENERIC_WRITE | GENERIC_ALL)) == 0) return fail(ERROR_ACCESS_DENIED, FALSE);
  return sim::windows::fileSetSize(Face::instance(), *object, object->position);
}

BOOL SetFileValidData(HANDLE file, LONGLONG validDataLength) {
  Face& face = Face::instance();
  auto object = face.findAs<sim::windows::FileObject>(file, sim::windows::ObjectKind::File);
  if (!object || object->node == nullptr) return fail(ERROR_INVALID_HANDLE, FALSE);
  if (face.enabledPrivileges().count("SeManageVolumePrivilege") == 0) return fail(ERROR_PRIVILEGE_NOT_HELD, FALSE);
  if ((object->access & (GENERIC_WRITE | GENERIC_ALL)) == 0) return fail(ERROR_ACCESS_DENIED, FALSE);
  sim::windows::FileNode& node = *object->node;
  // A sparse file has no valid data length to move: Windows refuses it, as it
  // does compressed and network files. (Wine never makes a file sparse.)
  if ((node.attributes & FILE_ATTRIBUTE_SPARSE_FILE) != 0) return fail(ERROR_INVALID_PARAMETER, FALSE);
  if (validDataLength < 0 || static_cast<uint64_t>(validDataLength) > node.size ||
      static_cast<uint64_t>(validDataLength) < node.validDataLength) {
    return fail(ERROR_INVALID_PARAMETER, FALSE);
  }
  // What the clusters held before now reads as the file's data.
  node.written.add(node.validDataLength, static_cast<uint64_t>(validDataLength) - node.validDataLength);
  node.validDataLength = static_cast<uint64_t>(validDataLength);
  return TRUE;
}

HANDLE FindFirstFileA(LPCSTR pattern, LPWIN32_FIND_DATAA data) {
  WIN32_FIND_DATAW wide{};
  HANDLE handle = sim::windows::findFirst(pattern ? pattern : "", &wide);
  if (handle != INVALID_HANDLE_VALUE && data != nullptr) sim::windows::toNarrow(wide, data);
  return handle;
}

HANDLE FindFirstFileW(LPCWSTR pattern, LPWIN32_FIND_DATAW data) { return sim::windows::findFirst(narrow(pattern), data); }

BOOL FindNextFileA(HANDLE find, LPWIN32_FIND_DATAA data) {
  WIN32_FIND_DATAW wide{};
  if (!sim::windows::findNext(find, &wide)) return FALSE;
  if (data != nullptr) sim::windows::toNarrow(wide, data);
  return TRUE;
}

BOOL FindNextFileW(HANDLE find, LPWIN32_FIND_DATAW data) { return sim::windows::findNext(find, data); }

BOOL FindClose(HANDLE find) {
  Face& face = Face::instance();
  if (!face.findAs<sim::windows::FindObject>(find, sim::windows::ObjectKind::Find)) {
    return fail(ERROR_INVALID_HANDLE, FALSE);
  }
  face.close(find);
  return TRUE;
}

BOOL DeleteFileA(LPCSTR name) { return sim::windows::deleteFile(name ? name : ""); }
BOOL DeleteFileW(LPCWSTR name) { return sim::windows::deleteFile(narrow(name)); }
BOOL CreateDirectoryA(LPCSTR name, LPSECURITY_ATTRIBUTES) { return sim::windows::createDirectory(name ? name : ""); }
BOOL CreateDirectoryW(LPCWSTR name, LPSECURITY_ATTRIBUTES) { return sim::windows::createDirectory(narrow(name)); }
BOOL RemoveDirectoryA(LPCSTR name) { return sim::windows::removeDirectory(name ? name : ""); }
BOOL RemoveDirectoryW(LPCWSTR name) { return sim::windows::removeDirectory(narrow(name)); }
DWORD GetFileAttributesA(LPCSTR name) { return sim::windows::attributesOf(name ? name : ""); }
DWORD GetFileAttributesW(LPCWSTR name) { return sim::windows::attributesOf(narrow(name)); }
BOOL SetFileAttributesA(LPCSTR name, DWORD attributes) {
  return sim::windows::setAttributes(name ? name : "", attributes);
}
BOOL SetFileAttributesW(LPCWSTR name, DWORD attributes) { return sim::windows::setAttributes(narrow(name), attributes); }

BOOL MoveFileExA(LPCSTR existing, LPCSTR replacement, DWORD flags) {
  const std::string to = replacement ? replacement : "";
  return sim::windows::moveFile(existing ? existing : "", replacement ? &to : nullptr, flags);
}

BOOL MoveFileExW(LPCWSTR existing, LPCWSTR replacement, DWORD flags) {
  const std::string to = narrow(replacement);
  return sim::windows::moveFile(narrow(existing), replacement ? &to : nullptr, flags);
}

int SHCreateDirectoryExA(HWND, LPCSTR path, const SECURITY_ATTRIBUTES*) {
  const std::string p = path ? path : "";
  if (p.size() < 3 || p[1] != ':' || (p[2] != '\\' && p[2] != '/')) return static_cast<int>(sim::windows::ERROR_BAD_PATHNAME);
  if (GetFileAttributesA(p.c_str()) != INVALID_FILE_ATTRIBUTES) return static_cast<int>(ERROR_ALREADY_EXISTS);
  bool madeAny = false;
  for (size_t at = 3; at <= p.size(); ++at) {
    if (at != p.size() && p[at] != '\\' && p[at] != '/') continue;
    const std::string prefix = p.substr(0, at);
    if (GetFileAttributesA(prefix.c_str()) != INVALID_FILE_ATTRIBUTES) continue;
    if (!CreateDirectoryA(prefix.c_str(), nullptr)) return static_cast<int>(GetLastError());
    madeAny = true;
  }
  return static_cast<int>(madeAny ? ERROR_SUCCESS : ERROR_ALREADY_EXISTS);
}

DWORD GetCurrentDirectoryA(DWORD length, LPSTR buffer) {
  return sim::windows::copyOut(Face::instance().currentDirectory(), buffer, length);
}

DWORD GetCurrentDirectoryW(DWORD length, LPWSTR buffer) {
  return sim::windows::copyOut(Face::instance().currentDirectory(), buffer, length);
}

DWORD GetModuleFileNameA(HMODULE module, LPSTR buffer, DWORD size) {
  return sim::windows::moduleFileName(module, buffer, size);
}

DWORD GetModuleFileNameW(HMODULE module, LPWSTR buffer, DWORD size) {
  return sim::windows::moduleFileName(module, buffer, size);
}

UINT GetSystemWindowsDirectoryA(LPSTR buffer, UINT size) {
  return sim::windows::copyOut(sim::windows::kWindowsDirectory, buffer, size);
}

UINT GetSystemWindowsDirectoryW(LPWSTR buffer, UINT size) {
  return sim::windows::copyOut(sim::windows::kWindowsDirectory, buffer, size);
}

}  // namespace api
}  // namespace sim
