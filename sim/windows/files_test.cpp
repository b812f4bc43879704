// Files on simulated volumes: dispositions and their errors, delete on
// close, delayed removal, disk full, valid data and privileges, overlapped
// file I/O, searches, directories, retrieval pointers and moves.
#include "sim/windows/face_test_support.h"

#include <vector>

namespace sim {
namespace windows {
namespace testing {
namespace {

class FileFaceTest : public FaceTest {
 protected:
  // C: is a small NTFS volume of 4 MiB with 1 MiB free; D: is FAT32.
  Machine* installVolumes() {
    return install({makeDisk("a", 65536, std::make_shared<FakeAta>(), nullptr, nlohmann::json::parse(R"({
      "partitions": {"scheme": "mbr", "entries": [
        {"type": 7, "startLba": 2048, "sectorCount": 8192},
        {"type": 11, "startLba": 10240, "sectorCount": 8192}]},
      "volumes": [
        {"partition": 1, "letter": "C", "freeBytes": 1048576},
        {"partition": 2, "letter": "D", "fileSystem": "FAT32", "freeBytes": 2097152}],
      "files": [
        {"path": "C:\\Windows", "directory": true},
        {"path": "C:\\Windows\\notes.txt", "size": 100},
        {"path": "C:\\readonly.txt", "size": 10, "readOnly": true}]
    })"))});
  }

  ULONGLONG freeBytes(const char* root) {
    ULARGE_INTEGER free{};
    EXPECT_TRUE(GetDiskFreeSpaceExA(root, nullptr, nullptr, &free));
    return free.QuadPart;
  }
};

TEST_F(FileFaceTest, CreateNewOnAnExistingFileIsFileExistsAndCreateAlwaysSaysAlreadyExists) {
  installVolumes();
  HANDLE file = CreateFileA("C:\\a.bin", GENERIC_WRITE, 0, nullptr, CREATE_NEW, 0, nullptr);
  ASSERT_NE(file, INVALID_HANDLE_VALUE);
  EXPECT_EQ(GetLastError(), ERROR_SUCCESS);
  CloseHandle(file);
  EXPECT_EQ(CreateFileA("C:\\a.bin", GENERIC_WRITE, 0, nullptr, CREATE_NEW, 0, nullptr), INVALID_HANDLE_VALUE);
  EXPECT_EQ(GetLastError(), ERROR_FILE_EXISTS);
  file = CreateFileA("C:\\a.bin", GENERIC_WRITE, 0, nullptr, CREATE_ALWAYS, 0, nullptr);
  ASSERT_NE(file, INVALID_HANDLE_VALUE);
  EXPECT_EQ(GetLastError(), ERROR_ALREADY_EXISTS);
  CloseHandle(file);
  EXPECT_EQ(CreateFileA("C:\\missing\\a.bin", GENERIC_WRITE, 0, nullptr, CREATE_NEW, 0, nullptr), INVALID_HANDLE_VALUE);
  EXPECT_EQ(GetLastError(), ERROR_PATH_NOT_FOUND);
  EXPECT_EQ(CreateFileA("C:\\none.bin", GENERIC_READ, 0, nullptr, OPEN_EXISTING, 0, nullptr), INVALID_HANDLE_VALUE);
  EXPECT_EQ(GetLastError(), ERROR_FILE_NOT_FOUND);
}

TEST_F(FileFaceTest, AReadOnlyFileRefusesWriteAccessAndDeletion) {
  installVolumes();
  EXPECT_EQ(CreateFileA("C:\\readonly.txt", GENERIC_WRITE, 0, nullptr, OPEN_EXISTING, 0, nullptr), INVALID_HANDLE_VALUE);
  EXPECT_EQ(GetLastError(), ERROR_ACCESS_DENIED);
  EXPECT_FALSE(DeleteFileA("C:\\readonly.txt"));
  EXPECT_EQ(GetLastError(), ERROR_ACCESS_DENIED);
  ASSERT_TRUE(SetFileAttributesA("C:\\readonly.txt", FILE_ATTRIBUTE_NORMAL));
  EXPECT_TRUE(DeleteFileA("C:\\readonly.txt"));
  EXPECT_EQ(GetFileAttributesA("C:\\readonly.txt"), INVALID_FILE_ATTRIBUTES);
  EXPECT_EQ(GetLastError(), ERROR_FILE_NOT_FOUND);
}

TEST_F(FileFaceTest, AFileWithoutSharingRefusesASecondOpen) {
  installVolumes();
  HANDLE first = CreateFileA("C:\\x.bin", GENERIC_READ | GENERIC_WRITE, 0, nullptr, CREATE_ALWAYS, 0, nullptr);
  ASSERT_NE(first, INVALID_HANDLE_VALUE);
  EXPECT_EQ(CreateFileA("C:\\x.bin", GENERIC_READ, FILE_SHARE_READ, nullptr, OPEN_EXISTING, 0, nullptr),
            INVALID_HANDLE_VALUE);
  EXPECT_EQ(GetLastError(), ERROR_SHARING_VIOLATION);
  CloseHandle(first);
}

TEST_F(FileFaceTest, DeleteOnCloseRemovesTheFileAndGivesBackItsSpace) {
  installVolumes();
  const ULONGLONG before = freeBytes("C:\\");
  HANDLE file = CreateFileW(u"C:\\quenby_diags_tmp_file", GENERIC_READ | GENERIC_WRITE, 0, nullptr, CREATE_ALWAYS,
                            FILE_FLAG_WRITE_THROUGH | FILE_FLAG_NO_BUFFERING | FILE_FLAG_DELETE_ON_CLOSE, nullptr);
  ASSERT_NE(file, INVALID_HANDLE_VALUE);
  LARGE_INTEGER size{};
  size.QuadPart = 65536;
  ASSERT_TRUE(SetFilePointerEx(file, size, nullptr, FILE_BEGIN));
  ASSERT_TRUE(SetEndOfFile(file));
  EXPECT_EQ(freeBytes("C:\\"), before - 65536);
  EXPECT_NE(GetFileAttributesW(u"C:\\quenby_diags_tmp_file"), INVALID_FILE_ATTRIBUTES);
  ASSERT_TRUE(CloseHandle(file));
  EXPECT_EQ(GetFileAttributesW(u"C:\\quenby_diags_tmp_file"), INVALID_FILE_ATTRIBUTES);
  EXPECT_EQ(freeBytes("C:\\"), before);
}

TEST_F(FileFaceTest, MoveDelayedUntilRebootRemovesTheFileAtTheNextStart) {
  installVolumes();
  HANDLE file = CreateFileA("C:\\left.bin", GENERIC_WRITE, 0, nullptr, CREATE_ALWAYS, 0, nullptr);
  CloseHandle(file);
  ASSERT_TRUE(MoveFileExW(u"C:\\left.bin", nullptr, MOVEFILE_DELAY_UNTIL_REBOOT));
  ASSERT_EQ(pendingRebootDeletions().size(), 1u);
  EXPECT_EQ(pendingRebootDeletions()[0], "C:\\left.bin");
  EXPECT_NE(GetFileAttributesA("C:\\left.bin"), INVALID_FILE_ATTRIBUTES);
  simulateReboot();
  EXPECT_EQ(GetFileAttributesA("C:\\left.bin"), INVALID_FILE_ATTRIBUTES);
  EXPECT_FALSE(MoveFileExA("C:\\gone.bin", nullptr, 0));
  EXPECT_EQ(GetLastError(), ERROR_INVALID_PARAMETER);
}

TEST_F(FileFaceTest, GrowingAFileBeyondTheFreeSpaceGivesDiskFull) {
  installVolumes();
  HANDLE file = CreateFileA("C:\\big.bin", GENERIC_READ | GENERIC_WRITE, 0, nullptr, CREATE_ALWAYS, 0, nullptr);
  LARGE_INTEGER size{};
  size.QuadPart = 2 * 1048576;
  ASSERT_TRUE(SetFilePointerEx(file, size, nullptr, FILE_BEGIN));
  EXPECT_FALSE(SetEndOfFile(file));
  EXPECT_EQ(GetLastError(), ERROR_DISK_FULL);
  std::vector<uint8_t> chunk(4096, 0xAA);
  DWORD written = 0;
  // One cluster of the free MiB holds notes.txt, readonly.txt another.
  SetFilePointer(file, 1048576 - 3 * 4096, nullptr, FILE_BEGIN);
  EXPECT_TRUE(WriteFile(file, chunk.data(), 4096, &written, nullptr));
  EXPECT_FALSE(WriteFile(file, chunk.data(), 4096, &written, nullptr));
  EXPECT_EQ(GetLastError(), ERROR_DISK_FULL);
  EXPECT_EQ(written, 0u);
  CloseHandle(file);
}

TEST_F(FileFaceTest, DataWrittenReadsBackAndUnwrittenBytesReadAsZeros) {
  Machine* machine = installVolumes();
  machine->disks[0].media->setFill(SectorFill::Byte, 0xEE);
  HANDLE file = CreateFileA("C:\\d.bin", GENERIC_READ | GENERIC_WRITE, 0, nullptr, CREATE_ALWAYS, 0, nullptr);
  std::vector<uint8_t> pattern(1000, 0x5A), back(3000, 0xFF);
  DWORD n = 0;
  SetFilePointer(file, 2000, nullptr, FILE_BEGIN);
  ASSERT_TRUE(WriteFile(file, pattern.data(), 1000, &n, nullptr));
  SetFilePointer(file, 0, nullptr, FILE_BEGIN);
  ASSERT_TRUE(ReadFile(file, back.data(), 3000, &n, nullptr));
  EXPECT_EQ(n, 3000u);
  EXPECT_EQ(back[0], 0);  // never written: zeros, not what the disk held
  EXPECT_EQ(back[1999], 0);
  EXPECT_EQ(back[2000], 0x5A);
  EXPECT_EQ(back[2999], 0x5A);
  ASSERT_TRUE(ReadFile(file, back.data(), 10, &n, nullptr));
  EXPECT_EQ(n, 0u);  // at the end
  CloseHandle(file);
}

TEST_F(FileFaceTest, SetFileValidDataNeedsTheVolumePrivilegeEnabled) {
  Machine* machine = installVolumes();
  machine->disks[0].media->setFill(SectorFill::Byte, 0xEE);
  HANDLE file = CreateFileA("C:\\v.bin", GENERIC_READ | GENERIC_WRITE, 0, nullptr, CREATE_ALWAYS, 0, nullptr);
  LARGE_INTEGER size{};
  size.QuadPart = 8192;
  SetFilePointerEx(file, size, nullptr, FILE_BEGIN);
  ASSERT_TRUE(SetEndOfFile(file));
  EXPECT_FALSE(SetFileValidData(file, 8192));
  EXPECT_EQ(GetLastError(), ERROR_PRIVILEGE_NOT_HELD);

  HANDLE token = nullptr;
  ASSERT_TRUE(OpenProcessToken(GetCurrentProcess(), TOKEN_ALL_ACCESS, &token));
  TOKEN_PRIVILEGES privileges{};
  privileges.PrivilegeCount = 1;
  ASSERT_TRUE(LookupPrivilegeValueW(nullptr, SE_MANAGE_VOLUME_NAME, &privileges.Privileges[0].Luid));
  privileges.Privileges[0].Attributes = SE_PRIVILEGE_ENABLED;
  ASSERT_TRUE(AdjustTokenPrivileges(token, FALSE, &privileges, 0, nullptr, nullptr));
  EXPECT_EQ(GetLastError(), ERROR_SUCCESS);
  CloseHandle(token);
  EXPECT_TRUE(privilegeEnabled("SeManageVolumePrivilege"));

  ASSERT_TRUE(SetFileValidData(file, 8192));
  std::vector<uint8_t> back(16);
  DWORD n = 0;
  SetFilePointer(file, 0, nullptr, FILE_BEGIN);
  ASSERT_TRUE(ReadFile(file, back.data(), 16, &n, nullptr));
  EXPECT_EQ(back[0], 0xEE);  // what the clusters held
  EXPECT_FALSE(SetFileValidData(file, 4096));
  EXPECT_EQ(GetLastError(), ERROR_INVALID_PARAMETER);
  CloseHandle(file);
}

TEST_F(FileFaceTest, SetFileValidDataRefusesASparseFile) {
  installVolumes();
  HANDLE file = CreateFileA("C:\\s.bin", GENERIC_READ | GENERIC_WRITE, 0, nullptr, CREATE_ALWAYS, 0, nullptr);
  LARGE_INTEGER size{};
  size.QuadPart = 8192;
  SetFilePointerEx(file, size, nullptr, FILE_BEGIN);
  ASSERT_TRUE(SetEndOfFile(file));
  DWORD returned = 0;
  ASSERT_TRUE(DeviceIoControl(file, FSCTL_SET_SPARSE, nullptr, 0, nullptr, 0, &returned, nullptr));
  HANDLE token = nullptr;
  ASSERT_TRUE(OpenProcessToken(GetCurrentProcess(), TOKEN_ALL_ACCESS, &token));
  TOKEN_PRIVILEGES privileges{};
  privileges.PrivilegeCount = 1;
  ASSERT_TRUE(LookupPrivilegeValueW(nullptr, SE_MANAGE_VOLUME_NAME, &privileges.Privileges[0].Luid));
  privileges.Privileges[0].Attributes = SE_PRIVILEGE_ENABLED;
  ASSERT_TRUE(AdjustTokenPrivileges(token, FALSE, &privileges, 0, nullptr, nullptr));
  CloseHandle(token);
  EXPECT_FALSE(SetFileValidData(file, 4096));
  EXPECT_EQ(GetLastError(), ERROR_INVALID_PARAMETER);
  CloseHandle(file);
}

TEST_F(FileFaceTest, AdjustingAPrivilegeTheTokenLacksSucceedsWithNotAllAssigned) {
  install({}, nlohmann::json::parse(R"({"privileges": []})"));
  HANDLE token = nullptr;
  ASSERT_TRUE(OpenProcessToken(GetCurrentProcess(), TOKEN_ALL_ACCESS, &token));
  TOKEN_PRIVILEGES privileges{};
  privileges.PrivilegeCount = 1;
  ASSERT_TRUE(LookupPrivilegeValueA(nullptr, "SeManageVolumePrivilege", &privileges.Privileges[0].Luid));
  privileges.Privileges[0].Attributes = SE_PRIVILEGE_ENABLED;
  EXPECT_TRUE(AdjustTokenPrivileges(token, FALSE, &privileges, 0, nullptr, nullptr));
  EXPECT_EQ(GetLastError(), ERROR_NOT_ALL_ASSIGNED);
  EXPECT_FALSE(privilegeEnabled("SeManageVolumePrivilege"));
  LUID luid{};
  EXPECT_FALSE(LookupPrivilegeValueA(nullptr, "SeNoSuchPrivilege", &luid));
  EXPECT_EQ(GetLastError(), ERROR_NO_SUCH_PRIVILEGE);
  CloseHandle(token);
}

TEST_F(FileFaceTest, OverlappedFileWritesCompleteThroughTheEvent) {
  installVolumes();
  HANDLE file = CreateFileA("C:\\o.bin", GENERIC_READ | GENERIC_WRITE, 0, nullptr, CREATE_ALWAYS,
                            FILE_FLAG_OVERLAPPED | FILE_FLAG_NO_BUFFERING, nullptr);
  OVERLAPPED overlapped{};
  overlapped.Offset = 4096;
  overlapped.hEvent = CreateEventW(nullptr, TRUE, FALSE, nullptr);
  std::vector<uint8_t> chunk(4096, 0xAA);
  DWORD n = 0;
  EXPECT_FALSE(WriteFile(file, chunk.data(), 100, &n, &overlapped));
  EXPECT_EQ(GetLastError(), ERROR_INVALID_PARAMETER);  // unbuffered: whole sectors
  EXPECT_FALSE(WriteFile(file, chunk.data(), 4096, &n, &overlapped));
  ASSERT_EQ(GetLastError(), ERROR_IO_PENDING);
  EXPECT_EQ(WaitForSingleObject(overlapped.hEvent, 30000), WAIT_OBJECT_0);
  ASSERT_TRUE(GetOverlappedResult(file, &overlapped, &n, FALSE));
  EXPECT_EQ(n, 4096u);
  LARGE_INTEGER size{};
  ASSERT_TRUE(GetFileSizeEx(file, &size));
  EXPECT_EQ(size.QuadPart, 8192);
  CloseHandle(overlapped.hEvent);
  CloseHandle(file);
}

TEST_F(FileFaceTest, SynchronousDiskHandleGivenAnOverlappedSetsItsEventAndOutcome) {
  installVolumes();
  HANDLE disk = CreateFileA("\\\\.\\PhysicalDrive0", GENERIC_READ, FILE_SHARE_READ | FILE_SHARE_WRITE, nullptr,
                            OPEN_EXISTING, 0, nullptr);
  ASSERT_NE(disk, INVALID_HANDLE_VALUE);
  OVERLAPPED overlapped{};
  overlapped.hEvent = CreateEventW(nullptr, TRUE, FALSE, nullptr);
  std::vector<uint8_t> sector(512);
  EXPECT_TRUE(ReadFile(disk, sector.data(), 512, nullptr, &overlapped));
  EXPECT_EQ(sector[510], 0x55) << "the MBR, at the overlapped offset 0";
  EXPECT_EQ(WaitForSingleObject(overlapped.hEvent, 0), WAIT_OBJECT_0);
  DWORD n = 0;
  ASSERT_TRUE(GetOverlappedResult(disk, &overlapped, &n, FALSE));
  EXPECT_EQ(n, 512u);
  CloseHandle(overlapped.hEvent);
  CloseHandle(disk);
}

TEST_F(FileFaceTest, FindFirstAndNextListADirectoryWithItsDotEntries) {
  installVolumes();
  WIN32_FIND_DATAW data{};
  HANDLE find = FindFirstFileW(u"C:\\Windows\\*", &data);
  ASSERT_NE(find, INVALID_HANDLE_VALUE);
  EXPECT_EQ(Win32WideString(data.cFileName), u".");
  ASSERT_TRUE(FindNextFileW(find, &data));
  EXPECT_EQ(Win32WideString(data.cFileName), u"..");
  ASSERT_TRUE(FindNextFileW(find, &data));
  EXPECT_EQ(Win32WideString(data.cFileName), u"notes.txt");
  EXPECT_EQ(data.nFileSizeLow, 100u);
  EXPECT_FALSE(FindNextFileW(find, &data));
  EXPECT_EQ(GetLastError(), ERROR_NO_MORE_FILES);
  EXPECT_TRUE(FindClose(find));
  WIN32_FIND_DATAA narrow{};
  EXPECT_EQ(FindFirstFileA("C:\\*.doc", &narrow), INVALID_HANDLE_VALUE);
  EXPECT_EQ(GetLastError(), ERROR_FILE_NOT_FOUND);
  EXPECT_EQ(FindFirstFileA("C:\\nowhere\\*", &narrow), INVALID_HANDLE_VALUE);
  EXPECT_EQ(GetLastError(), ERROR_PATH_NOT_FOUND);
}

TEST_F(FileFaceTest, DirectoriesAreCreatedOnceAndRemovedOnlyWhenEmpty) {
  installVolumes();
  ASSERT_TRUE(CreateDirectoryW(u"C:\\Temp", nullptr));
  EXPECT_FALSE(CreateDirectoryW(u"C:\\Temp", nullptr));
  EXPECT_EQ(GetLastError(), ERROR_ALREADY_EXISTS);
  EXPECT_EQ(GetFileAttributesW(u"C:\\Temp"), FILE_ATTRIBUTE_DIRECTORY);
  EXPECT_FALSE(RemoveDirectoryA("C:\\Windows"));
  EXPECT_EQ(GetLastError(), ERROR_DIR_NOT_EMPTY);
  EXPECT_TRUE(RemoveDirectoryA("C:\\Temp"));
  EXPECT_EQ(SHCreateDirectoryExA(nullptr, "D:\\a\\b\\c", nullptr), 0);
  EXPECT_EQ(SHCreateDirectoryExA(nullptr, "D:\\a\\b\\c", nullptr), static_cast<int>(ERROR_ALREADY_EXISTS));
  EXPECT_EQ(GetFileAttributesA("D:\\a\\b"), FILE_ATTRIBUTE_DIRECTORY);
}

TEST_F(FileFaceTest, RetrievalPointersAndMoveFileFollowTheClusters) {
  installVolumes();
  HANDLE file = CreateFileA("C:\\m.bin", GENERIC_READ | GENERIC_WRITE, 0, nullptr, CREATE_ALWAYS, 0, nullptr);
  LARGE_INTEGER size{};
  size.QuadPart = 4 * 4096;
  SetFilePointerEx(file, size, nullptr, FILE_BEGIN);
  ASSERT_TRUE(SetEndOfFile(file));
  ASSERT_TRUE(DeviceIoControl(file, FSCTL_SET_SPARSE, nullptr, 0, nullptr, 0, nullptr, nullptr));
  EXPECT_NE(GetFileAttributesA("C:\\m.bin") & FILE_ATTRIBUTE_SPARSE_FILE, 0u);
  STARTING_VCN_INPUT_BUFFER start{};
  RETRIEVAL_POINTERS_BUFFER pointers{};
  DWORD returned = 0;
  ASSERT_TRUE(DeviceIoControl(file, FSCTL_GET_RETRIEVAL_POINTERS, &start, 8, &pointers, sizeof(pointers), &returned,
                              nullptr));
  ASSERT_EQ(pointers.ExtentCount, 1u);
  EXPECT_EQ(pointers.Extents[0].NextVcn.QuadPart, 4);

  // Move two clusters to the volume's last clusters, which are free.
  HANDLE volume = CreateFileA("\\\\.\\C:", GENERIC_READ, 3, nullptr, OPEN_EXISTING, 0, nullptr);
  MOVE_FILE_DATA move{};
  move.FileHandle = file;
  move.StartingVcn.QuadPart = 2;
  move.StartingLcn.QuadPart = 1024 - 2;
  move.ClusterCount = 2;
  ASSERT_TRUE(DeviceIoControl(volume, FSCTL_MOVE_FILE, &move, sizeof(move), nullptr, 0, &returned, nullptr));
  std::vector<uint8_t> buffer(sizeof(RETRIEVAL_POINTERS_BUFFER));
  EXPECT_FALSE(DeviceIoControl(file, FSCTL_GET_RETRIEVAL_POINTERS, &start, 8, buffer.data(),
                               static_cast<DWORD>(buffer.size()), &returned, nullptr));
  EXPECT_EQ(GetLastError(), ERROR_MORE_DATA);
  buffer.resize(16 + 2 * 16);
  ASSERT_TRUE(DeviceIoControl(file, FSCTL_GET_RETRIEVAL_POINTERS, &start, 8, buffer.data(),
                              static_cast<DWORD>(buffer.size()), &returned, nullptr));
  const auto* two = reinterpret_cast<RETRIEVAL_POINTERS_BUFFER*>(buffer.data());
  EXPECT_EQ(two->ExtentCount, 2u);
  EXPECT_EQ(reinterpret_cast<const LARGE_INTEGER*>(buffer.data() + 16)[2].QuadPart, 4);
  EXPECT_EQ(reinterpret_cast<const LARGE_INTEGER*>(buffer.data() + 16)[3].QuadPart, 1022);
  // A move onto clusters in use is refused.
  move.StartingLcn.QuadPart = 0;
  EXPECT_FALSE(DeviceIoControl(volume, FSCTL_MOVE_FILE, &move, sizeof(move), nullptr, 0, &returned, nullptr));
  EXPECT_EQ(GetLastError(), ERROR_ACCESS_DENIED);
  start.StartingVcn.QuadPart = 10;
  EXPECT_FALSE(DeviceIoControl(file, FSCTL_GET_RETRIEVAL_POINTERS, &start, 8, buffer.data(),
                               static_cast<DWORD>(buffer.size()), &returned, nullptr));
  EXPECT_EQ(GetLastError(), ERROR_HANDLE_EOF);
  CloseHandle(volume);
  CloseHandle(file);
}

TEST_F(FileFaceTest, LockingAVolumeWithOpenFilesIsDenied) {
  installVolumes();
  HANDLE file = CreateFileA("C:\\open.bin", GENERIC_WRITE, 0, nullptr, CREATE_ALWAYS, 0, nullptr);
  HANDLE volume = CreateFileA("\\\\.\\C:", GENERIC_READ | GENERIC_WRITE, 3, nullptr, OPEN_EXISTING, 0, nullptr);
  DWORD returned = 0;
  EXPECT_FALSE(DeviceIoControl(volume, FSCTL_LOCK_VOLUME, nullptr, 0, nullptr, 0, &returned, nullptr));
  EXPECT_EQ(GetLastError(), ERROR_ACCESS_DENIED);
  CloseHandle(file);
  EXPECT_TRUE(DeviceIoControl(volume, FSCTL_LOCK_VOLUME, nullptr, 0, nullptr, 0, &returned, nullptr));
  CloseHandle(volume);
}

}  // namespace
}  // namespace testing
}  // namespace windows
}  // namespace sim
