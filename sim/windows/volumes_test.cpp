// Partition tables written onto the media and read back by the layout query,
// drive letters, volume information, free space, and the volume control codes.
#include "sim/windows/face_test_support.h"

#include <vector>

#include "sim/windows/partition_tables.h"

namespace sim {
namespace windows {
namespace testing {
namespace {

class VolumeFaceTest : public FaceTest {};

constexpr uint64_t kSectors = 1 << 20;  // 512 MiB

// An MBR disk: a primary NTFS partition (C:), an extended partition holding
// two logical drives (D: FAT32, and one without a letter), and a primary
// beyond the extended one.
nlohmann::json mbrDisk() {
  return nlohmann::json::parse(R"({
    "partitions": {"scheme": "mbr", "signature": 305419896, "entries": [
      {"type": 7, "startLba": 2048, "sectorCount": 204800, "bootable": true},
      {"type": 5, "startLba": 206848, "sectorCount": 409600, "logical": [
        {"type": 11, "startLba": 208896, "sectorCount": 100000},
        {"type": 131, "startLba": 311296, "sectorCount": 100000}]},
      {"type": 7, "startLba": 616448, "sectorCount": 100000}]},
    "volumes": [
      {"partition": 1, "letter": "C", "label": "System", "serial": "1A2B3C4D", "fileSystem": "NTFS",
       "clusterSize": 4096, "freeBytes": 52428800},
      {"partition": 3, "letter": "D", "label": "DATA", "fileSystem": "FAT32", "freeBytes": 10485760}]
  })");
}

nlohmann::json gptDisk() {
  return nlohmann::json::parse(R"({
    "partitions": {"scheme": "gpt", "entries": [
      {"type": "c12a7328-f81f-11d2-ba4b-00a0c93ec93b", "startLba": 2048, "sectorCount": 204800, "name": "EFI"},
      {"type": "ebd0a0a2-b9e5-4433-87c0-68b6b72699c7", "startLba": 206848, "sectorCount": 409600}]},
    "volumes": [{"partition": 2, "letters": ["E", "F"], "label": "Two", "freeBytes": 104857600}]
  })");
}

std::vector<uint8_t> layoutOf(HANDLE disk, DWORD* error) {
  std::vector<uint8_t> buffer(4 * 144 + 192);
  DWORD returned = 0;
  *error = 0;
  while (!DeviceIoControl(disk, IOCTL_DISK_GET_DRIVE_LAYOUT_EX, nullptr, 0, buffer.data(),
                          static_cast<DWORD>(buffer.size()), &returned, nullptr)) {
    *error = GetLastError();
    if (*error != ERROR_INSUFFICIENT_BUFFER) return {};
    buffer.resize((buffer.size() - 192) * 2 + 192);
  }
  return buffer;
}

TEST_F(VolumeFaceTest, AnMbrLayoutGivesFourEntriesPerTableAndNumbersPrimariesFirst) {
  install({makeDisk("a", kSectors, std::make_shared<FakeAta>(), nullptr, mbrDisk())});
  HANDLE disk = CreateFileA("\\\\.\\PhysicalDrive0", 0, FILE_SHARE_READ | FILE_SHARE_WRITE, nullptr, OPEN_EXISTING, 0,
                            nullptr);
  DWORD error = 0;
  const std::vector<uint8_t> buffer = layoutOf(disk, &error);
  // Four entries of the MBR and four of each of the two EBRs: the four-entry
  // buffer is too small, and the caller grows it.
  EXPECT_EQ(error, ERROR_INSUFFICIENT_BUFFER);
  ASSERT_FALSE(buffer.empty());
  const auto* layout = reinterpret_cast<const DRIVE_LAYOUT_INFORMATION_EX*>(buffer.data());
  EXPECT_EQ(layout->PartitionStyle, static_cast<DWORD>(PARTITION_STYLE_MBR));
  EXPECT_EQ(layout->Mbr.Signature, 305419896u);
  ASSERT_EQ(layout->PartitionCount, 12u);
  const PARTITION_INFORMATION_EX* e = layout->PartitionEntry;
  EXPECT_EQ(e[0].PartitionNumber, 1u);
  EXPECT_EQ(e[0].Mbr.PartitionType, 7);
  EXPECT_TRUE(e[0].Mbr.BootIndicator);
  EXPECT_EQ(e[0].StartingOffset.QuadPart, 2048 * 512LL);
  EXPECT_EQ(e[1].PartitionNumber, 0u);  // the extended container
  EXPECT_EQ(e[1].Mbr.PartitionType, 5);
  EXPECT_EQ(e[2].PartitionNumber, 2u);  // the primary behind it
  EXPECT_EQ(e[3].Mbr.PartitionType, 0);
  EXPECT_EQ(e[4].PartitionNumber, 3u);  // first logical drive
  EXPECT_EQ(e[4].StartingOffset.QuadPart, 208896 * 512LL);
  EXPECT_EQ(e[5].Mbr.PartitionType, 5);  // link to the next EBR
  EXPECT_EQ(e[5].PartitionNumber, 0u);
  EXPECT_EQ(e[8].PartitionNumber, 4u);
  EXPECT_EQ(e[8].Mbr.PartitionType, 131);
  CloseHandle(disk);
}

TEST_F(VolumeFaceTest, TheLayoutIsReadFromTheMediaSoARewrittenSectorChangesIt) {
  Machine* machine = install({makeDisk("a", kSectors, std::make_shared<FakeAta>(), nullptr, mbrDisk())});
  std::vector<uint8_t> zero(512, 0);
  machine->disks[0].media->write(0, 1, zero.data());
  HANDLE disk = CreateFileA("\\\\.\\PhysicalDrive0", 0, 3, nullptr, OPEN_EXISTING, 0, nullptr);
  DWORD error = 0;
  const std::vector<uint8_t> buffer = layoutOf(disk, &error);
  const auto* layout = reinterpret_cast<const DRIVE_LAYOUT_INFORMATION_EX*>(buffer.data());
  EXPECT_EQ(layout->PartitionStyle, static_cast<DWORD>(PARTITION_STYLE_RAW));
  EXPECT_EQ(layout->PartitionCount, 0u);
  CloseHandle(disk);
}

TEST_F(VolumeFaceTest, AGptLayoutGivesItsUsedEntriesWithTypesAndNames) {
  install({makeDisk("g", kSectors, std::make_shared<FakeAta>(), nullptr, gptDisk())});
  HANDLE disk = CreateFileA("\\\\.\\PhysicalDrive0", 0, 3, nullptr, OPEN_EXISTING, 0, nullptr);
  DWORD error = 0;
  const std::vector<uint8_t> buffer = layoutOf(disk, &error);
  EXPECT_EQ(error, 0u);
  const auto* layout = reinterpret_cast<const DRIVE_LAYOUT_INFORMATION_EX*>(buffer.data());
  EXPECT_EQ(layout->PartitionStyle, static_cast<DWORD>(PARTITION_STYLE_GPT));
  ASSERT_EQ(layout->PartitionCount, 2u);
  EXPECT_EQ(layout->Gpt.MaxPartitionCount, 128u);
  EXPECT_EQ(formatGuid(layout->PartitionEntry[0].Gpt.PartitionType), "c12a7328-f81f-11d2-ba4b-00a0c93ec93b");
  EXPECT_EQ(layout->PartitionEntry[0].Gpt.Name[0], u'E');
  EXPECT_EQ(layout->PartitionEntry[1].PartitionNumber, 2u);
  EXPECT_EQ(layout->PartitionEntry[1].PartitionLength.QuadPart, 409600 * 512LL);
  CloseHandle(disk);
}

TEST_F(VolumeFaceTest, AGptWhoseHeaderCrcIsWrongReadsAsTheProtectiveMbr) {
  Machine* machine = install({makeDisk("g", kSectors, std::make_shared<FakeAta>(), nullptr, gptDisk())});
  std::vector<uint8_t> header(512);
  machine->disks[0].media->read(1, 1, header.data());
  header[16] ^= 0xFF;
  machine->disks[0].media->write(1, 1, header.data());
  const DriveLayout layout = readDriveLayout(*machine->disks[0].media);
  EXPECT_EQ(layout.style, static_cast<DWORD>(PARTITION_STYLE_MBR));
  EXPECT_EQ(layout.entries[0].Mbr.PartitionType, 0xEE);
}

TEST_F(VolumeFaceTest, DriveLettersAndVolumeInformationComeFromTheDescription) {
  install({makeDisk("a", kSectors, std::make_shared<FakeAta>(), nullptr, mbrDisk()),
           makeDisk("g", kSectors, std::make_shared<FakeAta>(), nullptr, gptDisk())});
  EXPECT_EQ(GetLogicalDrives(), (1u << 2) | (1u << 3) | (1u << 4) | (1u << 5));
  EXPECT_EQ(GetLogicalDriveStringsA(0, nullptr), 17u);
  char roots[32] = {};
  EXPECT_EQ(GetLogicalDriveStringsA(sizeof(roots), roots), 16u);
  EXPECT_STREQ(roots, "C:\\");
  EXPECT_STREQ(roots + 4, "D:\\");
  WCHAR name[261] = {}, fileSystem[261] = {};
  DWORD serial = 0;
  ASSERT_TRUE(GetVolumeInformationW(u"C:\\", name, 261, &serial, nullptr, nullptr, fileSystem, 261));
  EXPECT_EQ(Win32WideString(name), u"System");
  EXPECT_EQ(Win32WideString(fileSystem), u"NTFS");
  EXPECT_EQ(serial, 0x1A2B3C4Du);
  char fat[261] = {};
  ASSERT_TRUE(GetVolumeInformationA("D:\\", nullptr, 0, nullptr, nullptr, nullptr, fat, 261));
  EXPECT_STREQ(fat, "FAT32");
  EXPECT_FALSE(GetVolumeInformationA("Q:\\", nullptr, 0, nullptr, nullptr, nullptr, fat, 261));
  EXPECT_EQ(GetLastError(), ERROR_PATH_NOT_FOUND);
  EXPECT_EQ(GetDriveTypeA("C:\\"), DRIVE_FIXED);
  EXPECT_EQ(GetDriveTypeA("Q:\\"), DRIVE_NO_ROOT_DIR);
  ULARGE_INTEGER available{}, total{}, free{};
  ASSERT_TRUE(GetDiskFreeSpaceExW(u"C:\\", &available, &total, &free));
  EXPECT_EQ(free.QuadPart, 52428800u);
  EXPECT_EQ(total.QuadPart, 204800u * 512);
}

TEST_F(VolumeFaceTest, AVolumeWithTwoLettersAnswersToBoth) {
  install({makeDisk("g", kSectors, std::make_shared<FakeAta>(), nullptr, gptDisk())});
  HANDLE e = CreateFileA("\\\\.\\E:", GENERIC_READ, 3, nullptr, OPEN_EXISTING, 0, nullptr);
  HANDLE f = CreateFileA("\\\\.\\F:", GENERIC_READ, 3, nullptr, OPEN_EXISTING, 0, nullptr);
  STORAGE_DEVICE_NUMBER a{}, b{};
  DWORD returned = 0;
  ASSERT_TRUE(DeviceIoControl(e, IOCTL_STORAGE_GET_DEVICE_NUMBER, nullptr, 0, &a, 12, &returned, nullptr));
  ASSERT_TRUE(DeviceIoControl(f, IOCTL_STORAGE_GET_DEVICE_NUMBER, nullptr, 0, &b, 12, &returned, nullptr));
  EXPECT_EQ(a.PartitionNumber, 2u);
  EXPECT_EQ(b.PartitionNumber, 2u);
  CloseHandle(e);
  CloseHandle(f);
}

TEST_F(VolumeFaceTest, DiskExtentsOfASpannedVolumeNeedALargerBufferWithMoreData) {
  auto spanned = [](const char* letter) {
    nlohmann::json d = nlohmann::json::parse(R"({
      "partitions": {"scheme": "mbr", "entries": [{"type": 7, "startLba": 2048, "sectorCount": 8192}]},
      "volumes": [{"partition": 1}]})");
    d["volumes"][0]["letter"] = letter;
    return d;
  };
  install({makeDisk("a", 65536, std::make_shared<FakeAta>(), nullptr, spanned("S")),
           makeDisk("b", 65536, std::make_shared<FakeAta>(), nullptr, spanned("S"))});
  HANDLE volume = CreateFileA("\\\\.\\S:", GENERIC_READ, 3, nullptr, OPEN_EXISTING, 0, nullptr);
  std::vector<uint8_t> buffer(32);
  DWORD returned = 0;
  EXPECT_FALSE(DeviceIoControl(volume, IOCTL_VOLUME_GET_VOLUME_DISK_EXTENTS, nullptr, 0, buffer.data(), 32, &returned,
                               nullptr));
  EXPECT_EQ(GetLastError(), ERROR_MORE_DATA);
  const DWORD count = reinterpret_cast<VOLUME_DISK_EXTENTS*>(buffer.data())->NumberOfDiskExtents;
  ASSERT_EQ(count, 2u);
  buffer.resize(8 + 24 * count);
  ASSERT_TRUE(DeviceIoControl(volume, IOCTL_VOLUME_GET_VOLUME_DISK_EXTENTS, nullptr, 0, buffer.data(),
                              static_cast<DWORD>(buffer.size()), &returned, nullptr));
  const auto* extents = reinterpret_cast<VOLUME_DISK_EXTENTS*>(buffer.data());
  EXPECT_EQ(extents->Extents[0].DiskNumber, 0u);
  EXPECT_EQ(extents->Extents[1].DiskNumber, 1u);
  // A spanned volume has no single device number.
  STORAGE_DEVICE_NUMBER number{};
  EXPECT_FALSE(DeviceIoControl(volume, IOCTL_STORAGE_GET_DEVICE_NUMBER, nullptr, 0, &number, 12, &returned, nullptr));
  CloseHandle(volume);
}

TEST_F(VolumeFaceTest, NtfsVolumeDataAnswersOnNtfsOnly) {
  install({makeDisk("a", kSectors, std::make_shared<FakeAta>(), nullptr, mbrDisk())});
  HANDLE c = CreateFileW(u"\\\\.\\C:", GENERIC_READ, 3, nullptr, OPEN_EXISTING, 0, nullptr);
  NTFS_VOLUME_DATA_BUFFER data{};
  DWORD returned = 0;
  ASSERT_TRUE(DeviceIoControl(c, FSCTL_GET_NTFS_VOLUME_DATA, nullptr, 0, &data, 96, &returned, nullptr));
  EXPECT_EQ(returned, 96u);
  EXPECT_EQ(data.BytesPerCluster, 4096u);
  EXPECT_EQ(data.TotalClusters.QuadPart, 204800 * 512 / 4096);
  EXPECT_EQ(data.FreeClusters.QuadPart, 52428800 / 4096);
  EXPECT_GT(data.MftZoneEnd.QuadPart, data.MftZoneStart.QuadPart);
  HANDLE d = CreateFileW(u"\\\\.\\D:", GENERIC_READ, 3, nullptr, OPEN_EXISTING, 0, nullptr);
  EXPECT_FALSE(DeviceIoControl(d, FSCTL_GET_NTFS_VOLUME_DATA, nullptr, 0, &data, 96, &returned, nullptr));
  EXPECT_EQ(GetLastError(), ERROR_INVALID_FUNCTION);
  CloseHandle(c);
  CloseHandle(d);
}

TEST_F(VolumeFaceTest, TheVolumeBitmapGrowsWithMoreDataAndCountsTheUsedClusters) {
  install({makeDisk("a", kSectors, std::make_shared<FakeAta>(), nullptr, mbrDisk())});
  HANDLE c = CreateFileA("\\\\.\\C:", GENERIC_READ, 3, nullptr, OPEN_EXISTING, 0, nullptr);
  STARTING_LCN_INPUT_BUFFER start{};
  std::vector<uint8_t> buffer(24);
  DWORD returned = 0;
  EXPECT_FALSE(DeviceIoControl(c, FSCTL_GET_VOLUME_BITMAP, &start, 8, buffer.data(), 24, &returned, nullptr));
  EXPECT_EQ(GetLastError(), ERROR_MORE_DATA);
  const auto clusters = reinterpret_cast<VOLUME_BITMAP_BUFFER*>(buffer.data())->BitmapSize.QuadPart;
  EXPECT_EQ(clusters, 25600);
  buffer.resize(16 + static_cast<size_t>((clusters + 7) / 8));
  ASSERT_TRUE(DeviceIoControl(c, FSCTL_GET_VOLUME_BITMAP, &start, 8, buffer.data(), static_cast<DWORD>(buffer.size()),
                              &returned, nullptr));
  uint64_t used = 0;
  for (size_t i = 16; i < buffer.size(); ++i) used += static_cast<uint64_t>(__builtin_popcount(buffer[i]));
  EXPECT_EQ(used, 25600u - 52428800u / 4096);
  CloseHandle(c);
}

TEST_F(VolumeFaceTest, LockDismountAndUnlockAsTheUnmountOfAVolumeDoes) {
  install({makeDisk("a", kSectors, std::make_shared<FakeAta>(), nullptr, mbrDisk())});
  HANDLE c = CreateFileA("\\\\.\\C:", GENERIC_READ | GENERIC_WRITE, 3, nullptr, OPEN_EXISTING, 0, nullptr);
  DWORD returned = 0;
  ASSERT_TRUE(DeviceIoControl(c, FSCTL_LOCK_VOLUME, nullptr, 0, nullptr, 0, &returned, nullptr));
  HANDLE other = CreateFileA("\\\\.\\C:", GENERIC_READ, 3, nullptr, OPEN_EXISTING, 0, nullptr);
  EXPECT_FALSE(DeviceIoControl(other, FSCTL_LOCK_VOLUME, nullptr, 0, nullptr, 0, &returned, nullptr));
  EXPECT_EQ(GetLastError(), ERROR_ACCESS_DENIED);
  EXPECT_FALSE(DeviceIoControl(other, FSCTL_UNLOCK_VOLUME, nullptr, 0, nullptr, 0, &returned, nullptr));
  ASSERT_TRUE(DeviceIoControl(c, FSCTL_DISMOUNT_VOLUME, nullptr, 0, nullptr, 0, &returned, nullptr));
  EXPECT_FALSE(GetDiskFreeSpaceExA("C:\\", nullptr, nullptr, nullptr));
  EXPECT_EQ(CreateFileA("C:\\x", GENERIC_WRITE, 0, nullptr, CREATE_ALWAYS, 0, nullptr), INVALID_HANDLE_VALUE);
  ASSERT_TRUE(DeviceIoControl(c, FSCTL_UNLOCK_VOLUME, nullptr, 0, nullptr, 0, &returned, nullptr));
  EXPECT_TRUE(GetDiskFreeSpaceExA("C:\\", nullptr, nullptr, nullptr));
  CloseHandle(other);
  CloseHandle(c);
}

TEST_F(VolumeFaceTest, ARawWriteIntoAMountedVolumeIsDeniedAndOneOutsideIsAllowed) {
  install({makeDisk("a", kSectors, std::make_shared<FakeAta>(), nullptr, mbrDisk())});
  HANDLE disk = CreateFileA("\\\\.\\PhysicalDrive0", GENERIC_READ | GENERIC_WRITE, 3, nullptr, OPEN_EXISTING, 0, nullptr);
  std::vector<uint8_t> sector(512, 0xAB);
  DWORD written = 0;
  SetFilePointer(disk, 4096 * 512, nullptr, FILE_BEGIN);
  EXPECT_FALSE(WriteFile(disk, sector.data(), 512, &written, nullptr));
  EXPECT_EQ(GetLastError(), ERROR_ACCESS_DENIED);
  SetFilePointer(disk, 512, nullptr, FILE_BEGIN);
  EXPECT_TRUE(WriteFile(disk, sector.data(), 512, &written, nullptr));
  EXPECT_EQ(written, 512u);
  CloseHandle(disk);
}

TEST_F(VolumeFaceTest, VolumeGuidPathsAreListedAndOpen) {
  install({makeDisk("a", kSectors, std::make_shared<FakeAta>(), nullptr, mbrDisk())});
  WCHAR name[64] = {};
  HANDLE find = FindFirstVolumeW(name, 64);
  ASSERT_NE(find, INVALID_HANDLE_VALUE);
  WCHAR paths[16] = {};
  DWORD length = 0;
  ASSERT_TRUE(GetVolumePathNamesForVolumeNameW(name, paths, 16, &length));
  EXPECT_EQ(Win32WideString(paths), u"C:\\");
  ASSERT_TRUE(FindNextVolumeW(find, name, 64));
  EXPECT_FALSE(FindNextVolumeW(find, name, 64));
  EXPECT_EQ(GetLastError(), ERROR_NO_MORE_FILES);
  EXPECT_TRUE(FindVolumeClose(find));
}

TEST_F(VolumeFaceTest, AVolumeOnAMissingPartitionIsRejected) {
  auto machine = std::make_unique<Machine>();
  nlohmann::json description = mbrDisk();
  description["volumes"][0]["partition"] = 9;
  machine->disks.push_back(makeDisk("a", kSectors, std::make_shared<FakeAta>(), nullptr, description));
  std::string error;
  EXPECT_FALSE(installMachine(std::move(machine), &error));
  EXPECT_NE(error.find("volumes[0].partition"), std::string::npos) << error;
}

}  // namespace
}  // namespace testing
}  // namespace windows
}  // namespace sim
