// WinFilesystem: the Windows calls behind the filesystem service. Every
// platform failure is reduced to 1, except a full disk on write, which the
// write test needs to tell apart.
#include "system/win_filesystem.h"

#include <algorithm>
#include <vector>

#include "system/string_handler.h"
#include "system/wide_text.h"

namespace {

constexpr uint32_t kFailed = 1;
constexpr size_t kFirstBufferSize = 260;

// Calls `fill(buffer, size)` with a 260-character buffer first; when the
// platform reports a longer length, grows to that length plus one and asks
// again. Empty on failure.
template <typename Fill>
bool readGrowing(Fill fill, std::string* out) {
  std::vector<WCHAR> buffer(kFirstBufferSize);
  DWORD length = fill(buffer.data(), static_cast<DWORD>(buffer.size()));
  if (length >= buffer.size()) {
    buffer.assign(length + 1, 0);
    length = fill(buffer.data(), static_cast<DWORD>(buffer.size()));
  }
  if (length == 0 || length >= buffer.size()) return false;
  buffer[length] = 0;
  *out = wideToUtf8(buffer.data());
  return true;
}

}  // namespace

char WinFilesystem::getSystemDrive() {
  if (systemDrive == 0) {
    WCHAR directory[kFirstBufferSize] = {};
    UINT length = GetSystemWindowsDirectoryW(directory, static_cast<UINT>(kFirstBufferSize));
    if (length != 0 && length < kFirstBufferSize) systemDrive = static_cast<char>(directory[0]);
  }
  return systemDrive;
}

const char* WinFilesystem::getCurrentDirectory() {
  if (currentDirectory.empty() &&
      !readGrowing([](WCHAR* buffer, DWORD size) { return GetCurrentDirectoryW(size, buffer); }, &currentDirectory)) {
    return nullptr;
  }
  return currentDirectory.c_str();
}

const char* WinFilesystem::getExecutablePath() {
  if (executablePath.empty() &&
      !readGrowing([](WCHAR* buffer, DWORD size) { return GetModuleFileNameW(nullptr, buffer, size); },
                   &executablePath)) {
    return nullptr;
  }
  return executablePath.c_str();
}

const char* WinFilesystem::getExecutableDirectory() {
  if (executableDirectory.empty()) {
    const char* path = getExecutablePath();
    if (path == nullptr) return nullptr;
    std::string text(path);
    size_t slash = text.rfind('\\');
    executableDirectory = slash == std::string::npos ? text : text.substr(0, slash);
  }
  return executableDirectory.c_str();
}

uint32_t WinFilesystem::listFiles(std::string pattern, std::vector<std::string>* out) {
  if (out != nullptr) out->clear();
  if (pattern.empty() || out == nullptr) return kFailed;
  size_t separator = pattern.find_last_of("\\/");
  const std::string directory = separator == std::string::npos ? std::string() : pattern.substr(0, separator + 1);
  WIN32_FIND_DATAW entry{};
  HANDLE find = FindFirstFileW(utf8ToWide(pattern.c_str()).c_str(), &entry);
  if (find == INVALID_HANDLE_VALUE) return kFailed;
  do {
    out->push_back(directory + wideToUtf8(entry.cFileName));
  } while (FindNextFileW(find, &entry));
  FindClose(find);
  return 0;
}

uint32_t WinFilesystem::createDirectories(std::string path, std::string* outPath) {
  if (path.empty()) return 0;
  const bool absolute = path[0] == '\\' || path.compare(1, 2, ":\\") == 0;
  if (!absolute) {
    const char* current = getCurrentDirectory();
    path = std::string(current != nullptr ? current : "") + "\\" + path;
  }
  std::vector<std::string> made;
  size_t position = 0;
  while (true) {
    size_t slash = path.find('\\', position);
    const std::string prefix = slash == std::string::npos ? path : path.substr(0, slash);
    // A drive root ("C:") or the leading empty prefix of "\dir" is no directory to make.
    if (!prefix.empty() && prefix.back() != ':') {
      const WideString wide = utf8ToWide(prefix.c_str());
      if (CreateDirectoryW(wide.c_str(), nullptr)) {
        made.push_back(prefix);
      } else {
        const DWORD error = GetLastError();
        if (error != ERROR_ALREADY_EXISTS && error != ERROR_ACCESS_DENIED &&
            GetFileAttributesW(wide.c_str()) == INVALID_FILE_ATTRIBUTES) {
          for (auto it = made.rbegin(); it != made.rend(); ++it) RemoveDirectoryW(utf8ToWide(it->c_str()).c_str());
          return kFailed;
        }
      }
    }
    if (slash == std::string::npos) break;
    position = slash + 1;
  }
  if (outPath != nullptr) *outPath = path;
  return 0;
}

uint32_t WinFilesystem::isReservedName(std::string path) {
  static const char* const kNames[] = {"CON",  "COM1", "COM2", "COM3", "COM4", "COM5", "COM6", "COM7",
                                       "COM8", "COM9", "NUL",  "PRN",  "CLOCK$", "AUX", "LPT1", "LPT2",
                                       "LPT3", "LPT4", "LPT5", "LPT6", "LPT7", "LPT8", "LPT9"};
  getStringHandler().toUpperCase(path);
  // Only the first 22 names are tried, so "LPT9" is never found; that stays.
  for (size_t i = 0; i < 22; ++i) {
    const std::string name = kNames[i];
    const size_t at = path.find(name);
    if (at == std::string::npos) continue;
    const bool startsWell = at == 0 || path[at - 1] == '\\';
    const size_t after = at + name.size();
    // The name ends well at the end of the path, or when the character one
    // place behind the first one after it is a backslash.
    const bool endsWell = after == path.size() || (after + 1 < path.size() && path[after + 1] == '\\');
    if (startsWell && endsWell) return 1;
  }
  return 0;
}

uint32_t WinFilesystem::removeTree(const std::string& path) {
  const WideString root = utf8ToWide(path.c_str());
  WIN32_FIND_DATAW entry{};
  HANDLE find = FindFirstFileW((root + WIN32_WIDE("\\*")).c_str(), &entry);
  if (find == INVALID_HANDLE_VALUE) return 0;
  // The first entry is taken for "." and passed over unseen.
  while (FindNextFileW(find, &entry)) {
    const WideString name(entry.cFileName);
    if (name == WIN32_WIDE(".") || name == WIN32_WIDE("..")) continue;
    const WideString child = root + WIN32_WIDE("\\") + name;
    if (entry.dwFileAttributes & FILE_ATTRIBUTE_DIRECTORY) {
      // The sense of this test is kept as it has always been: a removable
      // subdirectory (result 0) stops the walk, and the caller sees 1.
      if (removeTree(wideToUtf8(child.c_str())) == 0) {
        FindClose(find);
        return kFailed;
      }
      RemoveDirectoryW(child.c_str());
    } else {
      if (entry.dwFileAttributes & FILE_ATTRIBUTE_READONLY) {
        SetFileAttributesW(child.c_str(), entry.dwFileAttributes & ~FILE_ATTRIBUTE_READONLY);
      }
      if (!DeleteFileW(child.c_str())) {
        FindClose(find);
        return kFailed;
      }
    }
  }
  FindClose(find);
  return RemoveDirectoryW(root.c_str()) ? 0 : kFailed;
}

uint32_t WinFilesystem::create(std::string path, HANDLE* out, bool deleteOnClose) {
  const WideString wide = utf8ToWide(path.c_str());
  DWORD flags = FILE_FLAG_WRITE_THROUGH | FILE_FLAG_OVERLAPPED | FILE_FLAG_NO_BUFFERING;
  if (deleteOnClose) flags |= FILE_FLAG_DELETE_ON_CLOSE;
  HANDLE handle = CreateFileW(wide.c_str(), GENERIC_READ | GENERIC_WRITE, 0, nullptr, CREATE_ALWAYS, flags, nullptr);
  if (out != nullptr) *out = handle;
  if (handle == INVALID_HANDLE_VALUE) return kFailed;
  // Also marked for removal at the next start, so a crash leaves no test file.
  if (!MoveFileExW(wide.c_str(), nullptr, MOVEFILE_DELAY_UNTIL_REBOOT)) return kFailed;
  return 0;
}

uint32_t WinFilesystem::close(HANDLE handle) { return CloseHandle(handle) ? 0 : kFailed; }

uint32_t WinFilesystem::setSize(HANDLE handle, uint64_t bytes) {
  LARGE_INTEGER distance{};
  distance.QuadPart = static_cast<LONGLONG>(bytes);
  if (!SetFilePointerEx(handle, distance, nullptr, FILE_BEGIN)) return kFailed;
  if (!SetEndOfFile(handle)) return kFailed;
  // Sparse: a file of any size takes no space until it is written.
  DWORD returned = 0;
  if (!DeviceIoControl(handle, FSCTL_SET_SPARSE, nullptr, 0, nullptr, 0, &returned, nullptr)) return kFailed;
  return 0;
}

uint32_t WinFilesystem::write(HANDLE handle, uint64_t offset, uint64_t length, uint64_t* done,
                              uint32_t timeoutSeconds, void* buffer) {
  return transfer(true, handle, offset, length, done, timeoutSeconds, buffer);
}

uint32_t WinFilesystem::read(HANDLE handle, uint64_t offset, uint64_t length, uint64_t* done,
                             uint32_t timeoutSeconds, void* buffer) {
  return transfer(false, handle, offset, length, done, timeoutSeconds, buffer);
}

uint32_t WinFilesystem::transfer(bool isWrite, HANDLE handle, uint64_t offset, uint64_t length, uint64_t* done,
                                 uint32_t timeoutSeconds, void* buffer) {
  OVERLAPPED overlapped{};
  overlapped.Offset = static_cast<DWORD>(offset);
  overlapped.OffsetHigh = static_cast<DWORD>(offset >> 32);
  overlapped.hEvent = CreateEventW(nullptr, TRUE, FALSE, nullptr);
  if (overlapped.hEvent == nullptr) return kFailed;

  const DWORD count = static_cast<DWORD>(length);
  const BOOL started = isWrite ? WriteFile(handle, buffer, count, nullptr, &overlapped)
                               : ReadFile(handle, buffer, count, nullptr, &overlapped);
  if (!started) {
    const DWORD error = GetLastError();
    if (error != ERROR_IO_PENDING) {
      CloseHandle(overlapped.hEvent);
      // A full disk is handed on as it stands: the write test reports it.
      return isWrite && error == ERROR_DISK_FULL ? ERROR_DISK_FULL : kFailed;
    }
  }

  uint32_t result = 0;
  const DWORD wait = WaitForSingleObject(overlapped.hEvent, timeoutSeconds * 1000);
  if (wait == WAIT_OBJECT_0) {
    DWORD transferred = 0;
    GetOverlappedResult(handle, &overlapped, &transferred, FALSE);
    if (done != nullptr) *done = transferred;
    result = transferred != length ? kFailed : 0;
  } else if (wait == WAIT_ABANDONED || wait == WAIT_TIMEOUT || wait == WAIT_FAILED) {
    CancelIo(handle);
    result = kFailed;
  }
  CloseHandle(overlapped.hEvent);
  return result;
}
