// Volumes of the Linux host from a recorded mount table and sysfs tree: the
// mountinfo lines read, the drive letters given to the file systems on the
// provider's disks, and the Win32 volume calls answered from them. The
// recorded disks' device nodes are not opened: devRoot points nowhere.
#include "linux_host/volumes.h"

#include <gtest/gtest.h>

#include <fstream>
#include <sstream>

#include "linux_host/host.h"
#include "sim/windows/face.h"
#include "win32/win32.h"

namespace linux_host {
namespace {

const std::string kData = LINUX_HOST_TESTDATA;

std::string recordedMountinfo() {
  std::ifstream in(kData + "/mountinfo/build-vm");
  std::stringstream text;
  text << in.rdbuf();
  return text.str();
}

TEST(Mountinfo, ReadsDeviceNumbersMountPointsFileSystemsAndSources) {
  const std::vector<MountEntry> entries = parseMountinfo(recordedMountinfo());
  ASSERT_EQ(entries.size(), 12u);
  EXPECT_EQ(entries[5].major, 254u);
  EXPECT_EQ(entries[5].minor, 0u);
  EXPECT_EQ(entries[5].mountPoint, "/");
  EXPECT_EQ(entries[5].fileSystem, "ext4");
  EXPECT_EQ(entries[5].source, "/dev/vda");
  // An optional field (shared:30) before the separator is passed over.
  EXPECT_EQ(entries[7].fileSystem, "ext4");
  EXPECT_EQ(entries[7].source, "/dev/sda1");
  // \040 is a space.
  EXPECT_EQ(entries[8].mountPoint, "/srv/my data");
  EXPECT_EQ(entries[9].root, "/exports");
}

TEST(Mountinfo, MalformedLinesArePassedOver) {
  const std::vector<MountEntry> entries =
      parseMountinfo("garbage\n1 2 x:y / / rw - ext4 /dev/a rw\n1 2 8:1 / /a rw ext4 /dev/a rw\n"
                     "3 4 8:1 / /b rw -\n5 6 8:1 / /c rw - ext4 /dev/sda1 rw\n");
  ASSERT_EQ(entries.size(), 1u);
  EXPECT_EQ(entries[0].mountPoint, "/c");
}

TEST(HostVolumes, FileSystemsOnTheDisksGetLettersInMountOrderOncePerDevice) {
  const std::vector<HostVolume> volumes =
      volumesOf(parseMountinfo(recordedMountinfo()), {"sda", "sdb", "sdc", "vda"}, kData + "/sysfs");
  ASSERT_EQ(volumes.size(), 3u);
  EXPECT_EQ(volumes[0].letter, 'C');
  EXPECT_EQ(volumes[0].disk, 3u);  // vda, mounted whole
  EXPECT_EQ(volumes[0].partition, 0u);
  EXPECT_EQ(volumes[0].length, 536870912ull * 512);
  EXPECT_EQ(volumes[1].letter, 'D');
  EXPECT_EQ(volumes[1].disk, 0u);
  EXPECT_EQ(volumes[1].partition, 1u);
  EXPECT_EQ(volumes[1].offset, 2048ull * 512);
  EXPECT_EQ(volumes[1].length, 409600ull * 512);
  EXPECT_EQ(volumes[1].fileSystem, "EXT4");
  EXPECT_EQ(volumes[2].letter, 'E');
  EXPECT_EQ(volumes[2].mountPoint, "/srv/my data");
  EXPECT_EQ(volumes[2].fileSystem, "VFAT");
}

TEST(HostVolumes, AMountOnADiskTheProviderDoesNotServeHasNoLetter) {
  const std::vector<HostVolume> volumes =
      volumesOf(parseMountinfo(recordedMountinfo()), {"sda"}, kData + "/sysfs");
  ASSERT_EQ(volumes.size(), 2u);
  EXPECT_EQ(volumes[0].letter, 'C');
  EXPECT_EQ(volumes[0].partition, 1u);
}

class VolumesThroughTheSeam : public ::testing::Test {
 protected:
  void SetUp() override {
    Options options;
    options.sysfsRoot = kData + "/sysfs";
    options.devRoot = kData + "/no-device-nodes";
    options.mountinfo = kData + "/mountinfo/build-vm";
    install(options);
  }
  void TearDown() override { sim::uninstallMachine(); }
};

TEST_F(VolumesThroughTheSeam, LogicalDriveStringsListTheLetters) {
  EXPECT_EQ(GetLogicalDrives(), (1u << 2) | (1u << 3) | (1u << 4));
  const DWORD need = GetLogicalDriveStringsA(0, nullptr);
  ASSERT_EQ(need, 13u);
  std::vector<char> text(need, 'x');
  ASSERT_EQ(GetLogicalDriveStringsA(need, text.data()), 12u);
  EXPECT_EQ(std::string(text.data(), 12), std::string("C:\\\0D:\\\0E:\\\0", 12));
}

TEST_F(VolumesThroughTheSeam, AVolumeHandleGivesItsDiskAndPartitionAndRefusesALock) {
  HANDLE volume = CreateFileA("\\\\.\\D:", GENERIC_READ, FILE_SHARE_READ | FILE_SHARE_WRITE, nullptr, OPEN_EXISTING,
                              0, nullptr);
  ASSERT_NE(volume, INVALID_HANDLE_VALUE);
  STORAGE_DEVICE_NUMBER number{};
  DWORD returned = 0;
  ASSERT_TRUE(DeviceIoControl(volume, IOCTL_STORAGE_GET_DEVICE_NUMBER, nullptr, 0, &number, sizeof(number), &returned,
                              nullptr));
  EXPECT_EQ(number.DeviceNumber, 0u);
  EXPECT_EQ(number.PartitionNumber, 1u);
  VOLUME_DISK_EXTENTS extents{};
  ASSERT_TRUE(DeviceIoControl(volume, IOCTL_VOLUME_GET_VOLUME_DISK_EXTENTS, nullptr, 0, &extents, sizeof(extents),
                              &returned, nullptr));
  EXPECT_EQ(extents.Extents[0].StartingOffset.QuadPart, 2048 * 512);
  EXPECT_FALSE(DeviceIoControl(volume, FSCTL_LOCK_VOLUME, nullptr, 0, nullptr, 0, &returned, nullptr));
  EXPECT_EQ(GetLastError(), static_cast<DWORD>(ERROR_ACCESS_DENIED));
  CloseHandle(volume);
  EXPECT_EQ(CreateFileA("\\\\.\\F:", GENERIC_READ, 0, nullptr, OPEN_EXISTING, 0, nullptr), INVALID_HANDLE_VALUE);
}

TEST_F(VolumesThroughTheSeam, VolumeInformationAndFreeSpaceComeFromTheMountedFileSystem) {
  // C: is the recorded root file system, "/", which exists here too.
  char fileSystem[16] = {};
  DWORD serial = 0;
  ASSERT_TRUE(GetVolumeInformationA("C:\\", nullptr, 0, &serial, nullptr, nullptr, fileSystem, sizeof(fileSystem)));
  EXPECT_STREQ(fileSystem, "EXT4");
  ULARGE_INTEGER total{}, free{}, caller{};
  ASSERT_TRUE(GetDiskFreeSpaceExA("C:\\", &caller, &total, &free));
  EXPECT_GT(total.QuadPart, 0u);
  EXPECT_LE(free.QuadPart, total.QuadPart);
  EXPECT_LE(caller.QuadPart, free.QuadPart);
  EXPECT_FALSE(GetDiskFreeSpaceExA("Q:\\", &caller, &total, &free));
  EXPECT_EQ(GetDriveTypeA("C:\\"), DRIVE_FIXED);
}

}  // namespace
}  // namespace linux_host
