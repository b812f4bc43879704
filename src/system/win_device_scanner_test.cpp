// The device service on the simulated PC: disks by device number with paths
// that open, RAID adapters by index with friendly names, locking volumes.
#include "system/win_device_scanner.h"

#include <gtest/gtest.h>

#include "sim/windows/face_test_support.h"

namespace {

using sim::windows::testing::FakeAta;
using sim::windows::testing::makeDisk;

class WinDeviceScannerTest : public sim::windows::testing::FaceTest {};

TEST_F(WinDeviceScannerTest, ScanFilesEachDiskUnderItsDeviceNumberWithPathsThatOpen) {
  sim::windows::testing::install({makeDisk("a", 4096, std::make_shared<FakeAta>(), nullptr),
                                  makeDisk("b", 4096, std::make_shared<FakeAta>(), nullptr)});
  DeviceScanner* scanner = get_device_scanner();
  WinDeviceScanFilter filter(kDiskInterfaceGuid, kDiskDriveClassGuid);
  DiskMap disks;
  ASSERT_EQ(scanner->scan(&filter, disks), 0u);
  ASSERT_EQ(disks.size(), 2u);
  ASSERT_EQ(disks[1].size(), 2u);
  EXPECT_EQ(disks[1][1], "\\\\.\\PhysicalDrive1");
  for (const auto& path : disks[1]) {
    HANDLE handle = nullptr;
    ASSERT_EQ(scanner->open(path, &handle), 0u) << path;
    STORAGE_DEVICE_NUMBER number{};
    DWORD returned = 0;
    ASSERT_TRUE(DeviceIoControl(handle, IOCTL_STORAGE_GET_DEVICE_NUMBER, nullptr, 0, &number, 12, &returned, nullptr));
    EXPECT_EQ(number.DeviceNumber, 1u);
    scanner->close(handle);
  }
  EXPECT_EQ(scanner->lastScanCount(), 2u);
  release_device_scanner(scanner);
}

TEST_F(WinDeviceScannerTest, ScanWithoutAMachineFindsNothing) {
  DiskMap disks{{7, {"stale"}}};
  WinDeviceScanFilter filter(kDiskInterfaceGuid, kDiskDriveClassGuid);
  EXPECT_EQ(get_device_scanner()->scan(&filter, disks), 0u);
  EXPECT_TRUE(disks.empty());
}

TEST_F(WinDeviceScannerTest, AScanWithoutAWindowsFilterIsRefused) {
  DeviceScanFilter plain;
  DiskMap disks;
  EXPECT_EQ(get_device_scanner()->scan(&plain, disks), ERROR_INVALID_PARAMETER);
}

TEST_F(WinDeviceScannerTest, AdaptersAreListedByIndexWithTheirIdsInThePath) {
  sim::windows::testing::install({}, nlohmann::json::parse(R"({"controllers": [
    {"vendorId": "8086", "deviceId": "1d69", "friendlyName": "Intel(R) C600 RAID"}]})"));
  DeviceScanner* scanner = get_device_scanner();
  WinDeviceScanFilter filter(kStoragePortInterfaceGuid, kScsiAdapterClassGuid);
  DiskMap adapters;
  ASSERT_EQ(scanner->scan(&filter, adapters), 0u);
  ASSERT_EQ(adapters.size(), 1u);
  const std::string& path = adapters[0][0];
  EXPECT_EQ(path.substr(12, 4), "8086");
  EXPECT_EQ(path.substr(21, 4), "1d69");
  std::string name;
  ASSERT_EQ(scanner->friendlyName(path, &name), 0u);
  EXPECT_EQ(name, "Intel(R) C600 RAID");
  HANDLE handle = nullptr;
  EXPECT_EQ(scanner->open(path, &handle), 0u);
  scanner->close(handle);
}

TEST_F(WinDeviceScannerTest, LockTakesAVolumeAndAFailedOpenGivesTheError) {
  sim::windows::testing::install({makeDisk("a", 65536, std::make_shared<FakeAta>(), nullptr, nlohmann::json::parse(R"({
    "partitions": {"scheme": "mbr", "entries": [{"type": 7, "startLba": 2048, "sectorCount": 8192}]},
    "volumes": [{"partition": 1, "letter": "C"}]})"))});
  DeviceScanner* scanner = get_device_scanner();
  HANDLE volume = nullptr;
  ASSERT_EQ(scanner->open("\\\\.\\C:", &volume), 0u);
  EXPECT_EQ(scanner->lock(volume), 0u);
  HANDLE second = nullptr;
  ASSERT_EQ(scanner->open("\\\\.\\C:", &second), 0u);
  EXPECT_EQ(scanner->lock(second), ERROR_ACCESS_DENIED);
  EXPECT_EQ(scanner->unlock(volume), 0u);
  scanner->close(second);
  scanner->close(volume);
  HANDLE missing = nullptr;
  EXPECT_EQ(scanner->open("\\\\.\\Q:", &missing), ERROR_FILE_NOT_FOUND);
  EXPECT_EQ(missing, nullptr);
}

TEST_F(WinDeviceScannerTest, AFailedOpenLeavesTheCallersHandleAsItWas) {
  sim::windows::testing::install({makeDisk("a", 65536, std::make_shared<FakeAta>(), nullptr, nlohmann::json::parse(R"({
    "partitions": {"scheme": "mbr", "entries": [{"type": 7, "startLba": 2048, "sectorCount": 8192}]},
    "volumes": [{"partition": 1, "letter": "C"}]})"))});
  DeviceScanner* scanner = get_device_scanner();
  HANDLE handle = nullptr;
  ASSERT_EQ(scanner->open("\\\\.\\C:", &handle), 0u);
  ASSERT_NE(handle, nullptr);
  const HANDLE previous = handle;
  // The volume walk of the partition scan keeps the previous root's handle
  // when the next root does not open.
  EXPECT_EQ(scanner->open("\\\\.\\Q:", &handle), ERROR_FILE_NOT_FOUND);
  EXPECT_EQ(handle, previous);
  HANDLE minusOne = INVALID_HANDLE_VALUE;
  EXPECT_NE(scanner->open("\\\\.\\Q:", &minusOne), 0u);
  EXPECT_EQ(minusOne, INVALID_HANDLE_VALUE);
  scanner->close(previous);
}

}  // namespace
