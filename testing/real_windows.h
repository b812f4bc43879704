// Helpers of the tests that run the Win* services against a real Win32
// (Windows itself, or Wine): a scratch folder of the test's own, and whether
// the Win32 underneath is Wine, for the few places where Wine is known to
// answer otherwise than Windows documents (docs/WINE.md).
#pragma once

#include <windows.h>

#include <cstdint>
#include <string>

#include <gtest/gtest.h>

namespace realwin {

// True under Wine: its ntdll exports wine_get_version, Windows' does not.
inline bool runningOnWine() {
  HMODULE ntdll = GetModuleHandleW(L"ntdll.dll");
  return ntdll != nullptr && GetProcAddress(ntdll, "wine_get_version") != nullptr;
}

inline std::string narrow(const std::wstring& wide) {
  if (wide.empty()) return std::string();
  const int length = WideCharToMultiByte(CP_UTF8, 0, wide.data(), static_cast<int>(wide.size()), nullptr, 0,
                                         nullptr, nullptr);
  std::string text(static_cast<size_t>(length > 0 ? length : 0), '\0');
  if (length > 0) {
    WideCharToMultiByte(CP_UTF8, 0, wide.data(), static_cast<int>(wide.size()), &text[0], length, nullptr, nullptr);
  }
  return text;
}

// A fresh, empty folder under the user's temporary folder, removed with what
// is left in it when the test ends.
class ScratchFolderTest : public ::testing::Test {
 protected:
  void SetUp() override {
    wchar_t temporary[MAX_PATH + 1] = {};
    const DWORD length = GetTempPathW(MAX_PATH + 1, temporary);
    ASSERT_GT(length, 0u);
    ASSERT_LE(length, static_cast<DWORD>(MAX_PATH));
    folder = std::wstring(temporary) + L"module_storage_test_" + std::to_wstring(GetCurrentProcessId()) + L"_" +
             std::to_wstring(counter()++);
    ASSERT_TRUE(CreateDirectoryW(folder.c_str(), nullptr)) << "error " << GetLastError();
  }
  void TearDown() override {
    if (!folder.empty()) removeAll(folder);
  }

  // The folder's path joined with `name`, wide and UTF-8.
  std::wstring widePath(const std::wstring& name) const { return folder + L"\\" + name; }
  std::string path(const std::wstring& name) const { return narrow(widePath(name)); }

  static bool exists(const std::wstring& path) { return GetFileAttributesW(path.c_str()) != INVALID_FILE_ATTRIBUTES; }

  std::wstring folder;

 private:
  static uint32_t& counter() {
    static uint32_t value = 0;
    return value;
  }
  static void removeAll(const std::wstring& root) {
    WIN32_FIND_DATAW entry{};
    HANDLE find = FindFirstFileW((root + L"\\*").c_str(), &entry);
    if (find != INVALID_HANDLE_VALUE) {
      do {
        const std::wstring name = entry.cFileName;
        if (name == L"." || name == L"..") continue;
        const std::wstring child = root + L"\\" + name;
        if (entry.dwFileAttributes & FILE_ATTRIBUTE_DIRECTORY) {
          removeAll(child);
        } else {
          SetFileAttributesW(child.c_str(), FILE_ATTRIBUTE_NORMAL);
          DeleteFileW(child.c_str());
        }
      } while (FindNextFileW(find, &entry));
      FindClose(find);
    }
    RemoveDirectoryW(root.c_str());
  }
};

// A buffer aligned for unbuffered transfers (FILE_FLAG_NO_BUFFERING wants the
// address, the offset and the length to be multiples of the sector size).
class AlignedBuffer {
 public:
  explicit AlignedBuffer(size_t bytes)
      : size_(bytes), data_(static_cast<uint8_t*>(VirtualAlloc(nullptr, bytes, MEM_COMMIT | MEM_RESERVE,
                                                                 PAGE_READWRITE))) {}
  ~AlignedBuffer() {
    if (data_ != nullptr) VirtualFree(data_, 0, MEM_RELEASE);
  }
  AlignedBuffer(const AlignedBuffer&) = delete;
  AlignedBuffer& operator=(const AlignedBuffer&) = delete;
  uint8_t* data() { return data_; }
  size_t size() const { return size_; }

 private:
  size_t size_;
  uint8_t* data_;
};

}  // namespace realwin
