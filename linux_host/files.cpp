// Files on the Linux host's volumes: "X:\dir\name" is the file at
// <mount point of X:>/dir/name. Created, read and written (also overlapped,
// completing inside the call), sized, listed and deleted with the POSIX
// calls; delete-on-close unlinks the file when its handle closes.
//
// Two Windows notions have no Linux counterpart and are accepted as done:
// a file's valid data length (Linux reads unwritten ranges as zeros anyway;
// the call needs the same rights as on Windows, raw disk access here), and
// MOVEFILE_DELAY_UNTIL_REBOOT without a new name (nothing is scheduled: the
// module marks only files it also opened delete-on-close). Files are sparse
// without asking, so FSCTL_SET_SPARSE succeeds.
#include <dirent.h>
#include <errno.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstring>

#include "linux_host/host.h"

namespace linux_host {

namespace {

FileObject* findFile(HANDLE handle) {
  return Host::instance().findAs<FileObject>(handle, ObjectKind::File);
}

DWORD fileError(int error) {
  switch (error) {
    case EEXIST:
      return ERROR_FILE_EXISTS;
    case ENOTEMPTY:
      return ERROR_DIR_NOT_EMPTY;
    default:
      return win32ErrorOf(error);
  }
}

void copyName(const std::string& name, WIN32_FIND_DATAA* data) {
  std::strncpy(data->cFileName, name.c_str(), MAX_PATH - 1);
}

void copyName(const std::string& name, WIN32_FIND_DATAW* data) {
  const Win32WideString wide = widen(name);
  const size_t count = std::min<size_t>(wide.size(), MAX_PATH - 1);
  std::memcpy(data->cFileName, wide.data(), count * sizeof(WCHAR));
  data->cFileName[count] = 0;
}

template <typename Data>
bool fillFind(FindObject& find, Data* data) {
  while (find.next < find.names.size()) {
    const std::string name = find.names[find.next++];
    struct stat info {};
    if (::lstat((find.directory + "/" + name).c_str(), &info) != 0) continue;
    std::memset(data, 0, sizeof(*data));
    data->dwFileAttributes = S_ISDIR(info.st_mode) ? FILE_ATTRIBUTE_DIRECTORY : FILE_ATTRIBUTE_NORMAL;
    const uint64_t size = static_cast<uint64_t>(info.st_size);
    data->nFileSizeHigh = static_cast<DWORD>(size >> 32);
    data->nFileSizeLow = static_cast<DWORD>(size);
    copyName(name, data);
    return true;
  }
  return false;
}

// "X:\dir\*" lists X:\dir; only the pattern "*" (or "*.*") is understood.
template <typename Data>
HANDLE findFirst(const std::string& pattern, Data* data) {
  if (data == nullptr) return fail(ERROR_INVALID_PARAMETER, INVALID_HANDLE_VALUE);
  const size_t slash = pattern.find_last_of('\\');
  if (slash == std::string::npos) return fail(ERROR_PATH_NOT_FOUND, INVALID_HANDLE_VALUE);
  const std::string leaf = pattern.substr(slash + 1);
  if (leaf != "*" && leaf != "*.*") return fail(ERROR_NOT_SUPPORTED, INVALID_HANDLE_VALUE);
  std::string directory;
  if (!hostPathOf(pattern.substr(0, slash + 1), &directory)) return fail(ERROR_PATH_NOT_FOUND, INVALID_HANDLE_VALUE);
  DIR* dir = ::opendir(directory.c_str());
  if (dir == nullptr) return fail(fileError(errno), INVALID_HANDLE_VALUE);
  auto find = std::make_shared<FindObject>();
  find->directory = directory;
  while (dirent* entry = ::readdir(dir)) find->names.push_back(entry->d_name);
  ::closedir(dir);
  if (!fillFind(*find, data)) return fail(ERROR_FILE_NOT_FOUND, INVALID_HANDLE_VALUE);
  return Host::instance().add(find);
}

template <typename Data>
BOOL findNext(HANDLE handle, Data* data) {
  auto find = Host::instance().findAs<FindObject>(handle, ObjectKind::Find);
  if (!find) return fail(ERROR_INVALID_HANDLE, FALSE);
  if (data == nullptr) return fail(ERROR_INVALID_PARAMETER, FALSE);
  return fillFind(*find, data) ? TRUE : fail(ERROR_NO_MORE_FILES, FALSE);
}

BOOL pathCall(LPCSTR name, int (*call)(const char*)) {
  std::string path;
  if (name == nullptr || !hostPathOf(name, &path)) return fail(ERROR_PATH_NOT_FOUND, FALSE);
  if (call(path.c_str()) != 0) return fail(fileError(errno), FALSE);
  return TRUE;
}

int makeDirectory(const char* path) { return ::mkdir(path, 0755); }

DWORD attributesOf(const std::string& name) {
  std::string path;
  if (!hostPathOf(name, &path)) return fail(ERROR_PATH_NOT_FOUND, INVALID_FILE_ATTRIBUTES);
  struct stat info {};
  if (::stat(path.c_str(), &info) != 0) return fail(fileError(errno), INVALID_FILE_ATTRIBUTES);
  DWORD attributes = S_ISDIR(info.st_mode) ? FILE_ATTRIBUTE_DIRECTORY : FILE_ATTRIBUTE_ARCHIVE;
  if ((info.st_mode & S_IWUSR) == 0) attributes |= FILE_ATTRIBUTE_READONLY;
  return attributes;
}

}  // namespace

FileObject::~FileObject() {
  if (fd >= 0) ::close(fd);
  if (deleteOnClose) ::unlink(path.c_str());
}

bool hostPathOf(const std::string& windowsPath, std::string* out) {
  if (windowsPath.size() < 3 || windowsPath[1] != ':' || windowsPath[2] != '\\') return false;
  const HostVolume* volume = Host::instance().volumeForPath(windowsPath);
  if (volume == nullptr) return false;
  std::string path = volume->mountPoint;
  if (path.size() > 1 && path.back() == '/') path.pop_back();
  size_t at = 3;
  while (at <= windowsPath.size()) {
    size_t end = windowsPath.find('\\', at);
    if (end == std::string::npos) end = windowsPath.size();
    const std::string part = windowsPath.substr(at, end - at);
    at = end + 1;
    if (part.empty() || part == ".") continue;
    // A component ".." would leave the volume; '/' is no separator on Windows.
    if (part == ".." || part.find('/') != std::string::npos) return false;
    if (path.empty() || path.back() != '/') path += '/';
    path += part;
  }
  *out = path;
  return true;
}

HANDLE openFile(const std::string& windowsPath, DWORD access, DWORD disposition, DWORD flags) {
  std::string path;
  if (!hostPathOf(windowsPath, &path)) return fail(ERROR_PATH_NOT_FOUND, INVALID_HANDLE_VALUE);
  int how = (access & (GENERIC_WRITE | GENERIC_ALL)) != 0 ? O_RDWR : O_RDONLY;
  switch (disposition) {
    case CREATE_NEW:
      how |= O_CREAT | O_EXCL;
      break;
    case CREATE_ALWAYS:
      how |= O_CREAT | O_TRUNC;
      break;
    case OPEN_EXISTING:
      break;
    case OPEN_ALWAYS:
      how |= O_CREAT;
      break;
    case TRUNCATE_EXISTING:
      how |= O_TRUNC;
      break;
    default:
      return fail(ERROR_INVALID_PARAMETER, INVALID_HANDLE_VALUE);
  }
  const int fd = ::open(path.c_str(), how | O_CLOEXEC, 0644);
  if (fd < 0) return fail(fileError(errno), INVALID_HANDLE_VALUE);
  auto file = std::make_shared<FileObject>();
  file->fd = fd;
  file->path = path;
  file->deleteOnClose = (flags & FILE_FLAG_DELETE_ON_CLOSE) != 0;
  return Host::instance().add(file);
}

BOOL fileControl(FileObject&, DWORD code, LPDWORD returned) {
  if (returned != nullptr) *returned = 0;
  if (code == FSCTL_SET_SPARSE) return TRUE;
  return fail(ERROR_INVALID_FUNCTION, FALSE);
}

uint32_t fileTransfer(FileObject& file, uint64_t offset, uint8_t* buffer, DWORD length, bool write, DWORD* done) {
  *done = 0;
  while (*done < length) {
    const ssize_t moved = write ? ::pwrite(file.fd, buffer + *done, length - *done, static_cast<off_t>(offset + *done))
                                : ::pread(file.fd, buffer + *done, length - *done, static_cast<off_t>(offset + *done));
    if (moved < 0 && errno == EINTR) continue;
    if (moved < 0) return fileError(errno);
    if (moved == 0) break;  // the end of the file
    *done += static_cast<DWORD>(moved);
  }
  return ERROR_SUCCESS;
}

namespace api {

BOOL SetEndOfFile(HANDLE handle) {
  auto file = findFile(handle);
  if (!file) return fail(ERROR_INVALID_HANDLE, FALSE);
  if (::ftruncate(file->fd, static_cast<off_t>(file->position)) != 0) return fail(fileError(errno), FALSE);
  return TRUE;
}

BOOL SetFileValidData(HANDLE handle, LONGLONG length) {
  if (!findFile(handle)) return fail(ERROR_INVALID_HANDLE, FALSE);
  if (length < 0) return fail(ERROR_INVALID_PARAMETER, FALSE);
  if (!holdsRawIo()) return fail(ERROR_PRIVILEGE_NOT_HELD, FALSE);
  return TRUE;
}

HANDLE FindFirstFileA(LPCSTR pattern, LPWIN32_FIND_DATAA data) { return findFirst(pattern ? pattern : "", data); }
HANDLE FindFirstFileW(LPCWSTR pattern, LPWIN32_FIND_DATAW data) { return findFirst(narrow(pattern), data); }
BOOL FindNextFileA(HANDLE find, LPWIN32_FIND_DATAA data) { return findNext(find, data); }
BOOL FindNextFileW(HANDLE find, LPWIN32_FIND_DATAW data) { return findNext(find, data); }

BOOL FindClose(HANDLE find) {
  if (!Host::instance().findAs<FindObject>(find, ObjectKind::Find)) return fail(ERROR_INVALID_HANDLE, FALSE);
  Host::instance().close(find);
  return TRUE;
}

BOOL DeleteFileA(LPCSTR name) { return pathCall(name, ::unlink); }
BOOL DeleteFileW(LPCWSTR name) { return pathCall(narrow(name).c_str(), ::unlink); }
BOOL CreateDirectoryA(LPCSTR name, LPSECURITY_ATTRIBUTES) { return pathCall(name, makeDirectory); }
BOOL CreateDirectoryW(LPCWSTR name, LPSECURITY_ATTRIBUTES) { return pathCall(narrow(name).c_str(), makeDirectory); }
BOOL RemoveDirectoryA(LPCSTR name) { return pathCall(name, ::rmdir); }
BOOL RemoveDirectoryW(LPCWSTR name) { return pathCall(narrow(name).c_str(), ::rmdir); }
DWORD GetFileAttributesA(LPCSTR name) { return attributesOf(name ? name : ""); }
DWORD GetFileAttributesW(LPCWSTR name) { return attributesOf(narrow(name)); }

BOOL SetFileAttributesA(LPCSTR name, DWORD) {
  return attributesOf(name ? name : "") == INVALID_FILE_ATTRIBUTES ? FALSE : TRUE;
}
BOOL SetFileAttributesW(LPCWSTR name, DWORD attributes) {
  return SetFileAttributesA(narrow(name).c_str(), attributes);
}

BOOL MoveFileExA(LPCSTR existing, LPCSTR replacement, DWORD flags) {
  std::string from;
  if (existing == nullptr || !hostPathOf(existing, &from)) return fail(ERROR_PATH_NOT_FOUND, FALSE);
  if (replacement == nullptr) {
    if ((flags & MOVEFILE_DELAY_UNTIL_REBOOT) == 0) return fail(ERROR_INVALID_PARAMETER, FALSE);
    struct stat info {};
    return ::stat(from.c_str(), &info) == 0 ? TRUE : fail(fileError(errno), FALSE);
  }
  std::string to;
  if (!hostPathOf(replacement, &to)) return fail(ERROR_PATH_NOT_FOUND, FALSE);
  struct stat info {};
  if ((flags & MOVEFILE_REPLACE_EXISTING) == 0 && ::stat(to.c_str(), &info) == 0) {
    return fail(ERROR_ALREADY_EXISTS, FALSE);
  }
  if (::rename(from.c_str(), to.c_str()) != 0) return fail(fileError(errno), FALSE);
  return TRUE;
}

BOOL MoveFileExW(LPCWSTR existing, LPCWSTR replacement, DWORD flags) {
  const std::string to = narrow(replacement);
  return MoveFileExA(narrow(existing).c_str(), replacement != nullptr ? to.c_str() : nullptr, flags);
}

}  // namespace api

}  // namespace linux_host
