// Files on a Linux host volume: a recorded partition (sda1 of the recorded
// sysfs tree) "mounted" on a temporary folder of the test's own, so that
// C:\ is that folder. Creating, writing, reading, sizing, listing, renaming
// and deleting files reach the folder's files; delete-on-close removes one.
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <algorithm>
#include <cstring>
#include <fstream>

#include "linux_host/host.h"
#include "sim/windows/face.h"
#include "testing/disk_images.h"
#include "win32/win32.h"

namespace linux_host {
namespace {

const std::string kData = LINUX_HOST_TESTDATA;

bool exists(const std::string& path) {
  struct stat info {};
  return ::stat(path.c_str(), &info) == 0;
}

class FilesOnAVolume : public ::testing::Test {
 protected:
  void SetUp() override {
    mountinfo = folder.file("mountinfo");
    root = folder.file("volume");
    ASSERT_EQ(::mkdir(root.c_str(), 0755), 0);
    std::ofstream(mountinfo) << "41 26 8:1 / " << root << " rw,relatime - ext4 /dev/sda1 rw\n";
    Options options;
    options.sysfsRoot = kData + "/sysfs";
    options.devRoot = kData + "/no-device-nodes";
    options.mountinfo = mountinfo;
    install(options);
  }
  void TearDown() override { sim::uninstallMachine(); }

  mstest::TemporaryFolder folder;
  std::string mountinfo, root;
};

TEST_F(FilesOnAVolume, AFileWrittenOnCIsAFileInTheMountedFolder) {
  ASSERT_TRUE(CreateDirectoryA("C:\\test", nullptr));
  HANDLE file = CreateFileA("C:\\test\\data.bin", GENERIC_READ | GENERIC_WRITE, 0, nullptr, CREATE_ALWAYS, 0, nullptr);
  ASSERT_NE(file, INVALID_HANDLE_VALUE);
  const char text[] = "written through the seam";
  DWORD moved = 0;
  ASSERT_TRUE(WriteFile(file, text, sizeof(text), &moved, nullptr));
  EXPECT_EQ(moved, sizeof(text));
  LARGE_INTEGER size{};
  ASSERT_TRUE(GetFileSizeEx(file, &size));
  EXPECT_EQ(size.QuadPart, static_cast<LONGLONG>(sizeof(text)));
  ASSERT_TRUE(CloseHandle(file));
  std::ifstream in(root + "/test/data.bin");
  std::string content;
  std::getline(in, content, '\0');
  EXPECT_EQ(content, "written through the seam");
  EXPECT_EQ(GetFileAttributesA("C:\\test"), static_cast<DWORD>(FILE_ATTRIBUTE_DIRECTORY));
}

TEST_F(FilesOnAVolume, CreateNewOnAnExistingFileIsFileExists) {
  HANDLE file = CreateFileA("C:\\once", GENERIC_WRITE, 0, nullptr, CREATE_NEW, 0, nullptr);
  ASSERT_NE(file, INVALID_HANDLE_VALUE);
  CloseHandle(file);
  EXPECT_EQ(CreateFileA("C:\\once", GENERIC_WRITE, 0, nullptr, CREATE_NEW, 0, nullptr), INVALID_HANDLE_VALUE);
  EXPECT_EQ(GetLastError(), static_cast<DWORD>(ERROR_FILE_EXISTS));
  EXPECT_EQ(CreateFileA("C:\\absent", GENERIC_READ, 0, nullptr, OPEN_EXISTING, 0, nullptr), INVALID_HANDLE_VALUE);
  EXPECT_EQ(GetLastError(), static_cast<DWORD>(ERROR_FILE_NOT_FOUND));
}

TEST_F(FilesOnAVolume, ASparseFileIsSizedAndReadBackOverlapped) {
  HANDLE file = CreateFileA("C:\\sparse.tmp", GENERIC_READ | GENERIC_WRITE, 0, nullptr, CREATE_ALWAYS,
                            FILE_FLAG_OVERLAPPED | FILE_FLAG_DELETE_ON_CLOSE, nullptr);
  ASSERT_NE(file, INVALID_HANDLE_VALUE);
  ASSERT_TRUE(MoveFileExA("C:\\sparse.tmp", nullptr, MOVEFILE_DELAY_UNTIL_REBOOT));
  LARGE_INTEGER end{};
  end.QuadPart = 1 << 20;
  ASSERT_TRUE(SetFilePointerEx(file, end, nullptr, FILE_BEGIN));
  ASSERT_TRUE(SetEndOfFile(file));
  DWORD returned = 0;
  EXPECT_TRUE(DeviceIoControl(file, FSCTL_SET_SPARSE, nullptr, 0, nullptr, 0, &returned, nullptr));
  std::vector<uint8_t> block(4096, 0xC3);
  OVERLAPPED overlapped{};
  overlapped.Offset = 8192;
  EXPECT_FALSE(WriteFile(file, block.data(), 4096, nullptr, &overlapped));
  EXPECT_EQ(GetLastError(), static_cast<DWORD>(ERROR_IO_PENDING));
  DWORD moved = 0;
  ASSERT_TRUE(GetOverlappedResult(file, &overlapped, &moved, TRUE));
  EXPECT_EQ(moved, 4096u);
  std::vector<uint8_t> back(4096, 0);
  OVERLAPPED again{};
  again.Offset = 8192;
  ReadFile(file, back.data(), 4096, nullptr, &again);
  ASSERT_TRUE(GetOverlappedResult(file, &again, &moved, TRUE));
  EXPECT_EQ(back, block);
  struct stat info {};
  ASSERT_EQ(::stat((root + "/sparse.tmp").c_str(), &info), 0);
  EXPECT_EQ(info.st_size, 1 << 20);
  ASSERT_TRUE(CloseHandle(file));
  EXPECT_FALSE(exists(root + "/sparse.tmp"));  // deleted on close
}

TEST_F(FilesOnAVolume, ListingRenamingAndDeletingReachTheFolder) {
  HANDLE file = CreateFileA("C:\\a.txt", GENERIC_WRITE, 0, nullptr, CREATE_ALWAYS, 0, nullptr);
  ASSERT_NE(file, INVALID_HANDLE_VALUE);
  CloseHandle(file);
  ASSERT_TRUE(MoveFileExA("C:\\a.txt", "C:\\b.txt", 0));
  WIN32_FIND_DATAA entry{};
  HANDLE find = FindFirstFileA("C:\\*", &entry);
  ASSERT_NE(find, INVALID_HANDLE_VALUE);
  std::vector<std::string> names;
  do {
    names.push_back(entry.cFileName);
  } while (FindNextFileA(find, &entry));
  EXPECT_EQ(GetLastError(), static_cast<DWORD>(ERROR_NO_MORE_FILES));
  FindClose(find);
  EXPECT_NE(std::find(names.begin(), names.end(), "b.txt"), names.end());
  EXPECT_EQ(std::find(names.begin(), names.end(), "a.txt"), names.end());
  ASSERT_TRUE(DeleteFileA("C:\\b.txt"));
  EXPECT_FALSE(exists(root + "/b.txt"));
}

TEST_F(FilesOnAVolume, APathThatWouldLeaveTheVolumeIsRefused) {
  EXPECT_EQ(CreateFileA("C:\\..\\mountinfo", GENERIC_READ, 0, nullptr, OPEN_EXISTING, 0, nullptr),
            INVALID_HANDLE_VALUE);
  EXPECT_EQ(GetLastError(), static_cast<DWORD>(ERROR_PATH_NOT_FOUND));
  EXPECT_EQ(CreateFileA("D:\\x", GENERIC_READ, 0, nullptr, OPEN_EXISTING, 0, nullptr), INVALID_HANDLE_VALUE);
}

}  // namespace
}  // namespace linux_host
