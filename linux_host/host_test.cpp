// The Linux host provider through the seam, on image files the tests make:
// it is chosen by install(), lists the images as disks, opens them as
// \\.\PhysicalDriveN, answers the storage and disk queries, reads the drive
// layout from the GPT or MBR on the image, reads sectors, and carries SCSI
// commands; the simulated PC takes over again when a test installs a machine.
#include "linux_host/host.h"

#include <gtest/gtest.h>

#include <cstring>

#include "linux_host/provider.h"
#include "seam/provider.h"
#include "sim/machine.h"
#include "sim/windows/face.h"
#include "sim/windows/provider.h"
#include "testing/disk_images.h"
#include "win32/win32.h"

namespace linux_host {
namespace {

constexpr uint64_t kGiB = 1024ull * 1024 * 1024;

class LinuxHostOnImages : public ::testing::Test {
 protected:
  void SetUp() override {
    gpt = folder.file("gpt.raw");
    mbr = folder.file("mbr.raw");
    ASSERT_TRUE(mstest::makeSparseImage(gpt, kGiB));
    mstest::ImagePartition root{2048, 409600, 0, mstest::linuxFileSystemType(), "root"};
    mstest::ImagePartition data{411648, 614400, 0, mstest::basicDataType(), "data"};
    ASSERT_TRUE(mstest::writeGpt(gpt, {root, data}));
    ASSERT_TRUE(mstest::makeSparseImage(mbr, 64ull * 1024 * 1024));
    ASSERT_TRUE(mstest::writeMbr(mbr, {{2048, 8192, 0x83, {}, ""}, {10240, 20480, 0x07, {}, ""}}, 0xCAFEF00D));
    Options options;
    options.hostDisks = false;
    options.disks = {gpt, mbr};
    install(options);
  }
  void TearDown() override {
    for (HANDLE handle : opened) CloseHandle(handle);
    sim::uninstallMachine();
  }

  HANDLE open(const std::string& path) {
    HANDLE handle = CreateFileA(path.c_str(), GENERIC_READ | GENERIC_WRITE, FILE_SHARE_READ | FILE_SHARE_WRITE,
                                nullptr, OPEN_EXISTING, 0, nullptr);
    if (handle != INVALID_HANDLE_VALUE) opened.push_back(handle);
    return handle;
  }

  mstest::TemporaryFolder folder;
  std::string gpt, mbr;
  std::vector<HANDLE> opened;
};

TEST_F(LinuxHostOnImages, InstallMakesTheLinuxHostTheSeamsProvider) {
  EXPECT_EQ(&seam::chosen(), &provider());
  sim::uninstallMachine();
  EXPECT_EQ(&seam::chosen(), &sim::windowsProvider());
}

TEST_F(LinuxHostOnImages, SetupApiListsTheImagesAsDisksInTheOrderGiven) {
  const GUID disks{0x53F56307, 0xB6BF, 0x11D0, {0x94, 0xF2, 0x00, 0xA0, 0xC9, 0x1E, 0xFB, 0x8B}};
  HDEVINFO set = SetupDiGetClassDevsW(&disks, nullptr, nullptr, DIGCF_PRESENT | DIGCF_DEVICEINTERFACE);
  ASSERT_NE(set, INVALID_HANDLE_VALUE);
  SP_DEVICE_INTERFACE_DATA data{};
  data.cbSize = sizeof(data);
  DWORD count = 0;
  while (SetupDiEnumDeviceInterfaces(set, nullptr, &disks, count, &data)) ++count;
  EXPECT_EQ(GetLastError(), static_cast<DWORD>(ERROR_NO_MORE_ITEMS));
  EXPECT_EQ(count, 2u);
  SetupDiDestroyDeviceInfoList(set);
}

TEST_F(LinuxHostOnImages, PhysicalDrivesBeyondTheImagesDoNotOpen) {
  EXPECT_NE(open("\\\\.\\PhysicalDrive0"), INVALID_HANDLE_VALUE);
  EXPECT_NE(open("\\\\.\\PhysicalDrive1"), INVALID_HANDLE_VALUE);
  EXPECT_EQ(open("\\\\.\\PhysicalDrive2"), INVALID_HANDLE_VALUE);
  EXPECT_EQ(GetLastError(), static_cast<DWORD>(ERROR_FILE_NOT_FOUND));
}

TEST_F(LinuxHostOnImages, AClosedHandleStaysInvalidWhenItsSlotIsReused) {
  HANDLE first = CreateEventW(nullptr, TRUE, FALSE, nullptr);
  ASSERT_NE(first, nullptr);
  ASSERT_TRUE(CloseHandle(first));
  // The next event takes the closed one's place in the table, under a new value.
  HANDLE second = CreateEventW(nullptr, TRUE, FALSE, nullptr);
  ASSERT_NE(second, nullptr);
  EXPECT_NE(second, first);
  EXPECT_FALSE(SetEvent(first));
  EXPECT_EQ(GetLastError(), static_cast<DWORD>(ERROR_INVALID_HANDLE));
  EXPECT_FALSE(CloseHandle(first));
  EXPECT_TRUE(SetEvent(second));
  EXPECT_EQ(WaitForSingleObject(second, 0), static_cast<DWORD>(WAIT_OBJECT_0));
  EXPECT_TRUE(CloseHandle(second));
}

TEST_F(LinuxHostOnImages, AnEventMadeAfterAnotherClosedStartsAsItsCallerAsks) {
  // The closed event's object serves the next one: none of its state may stay.
  HANDLE signalled = CreateEventW(nullptr, TRUE, TRUE, nullptr);
  ASSERT_NE(signalled, nullptr);
  ASSERT_TRUE(CloseHandle(signalled));
  HANDLE quiet = CreateEventW(nullptr, FALSE, FALSE, nullptr);
  ASSERT_NE(quiet, nullptr);
  EXPECT_EQ(WaitForSingleObject(quiet, 0), static_cast<DWORD>(WAIT_TIMEOUT));
  ASSERT_TRUE(SetEvent(quiet));
  EXPECT_EQ(WaitForSingleObject(quiet, 0), static_cast<DWORD>(WAIT_OBJECT_0));
  // Auto-reset, as asked: the wait took the signal.
  EXPECT_EQ(WaitForSingleObject(quiet, 0), static_cast<DWORD>(WAIT_TIMEOUT));
  ASSERT_TRUE(CloseHandle(quiet));
  HANDLE manual = CreateEventW(nullptr, TRUE, FALSE, nullptr);
  ASSERT_NE(manual, nullptr);
  ASSERT_TRUE(SetEvent(manual));
  EXPECT_EQ(WaitForSingleObject(manual, 0), static_cast<DWORD>(WAIT_OBJECT_0));
  EXPECT_EQ(WaitForSingleObject(manual, 0), static_cast<DWORD>(WAIT_OBJECT_0));
  EXPECT_TRUE(CloseHandle(manual));
}

TEST_F(LinuxHostOnImages, HandleValuesAreMultiplesOfFourThatFitIn31Bits) {
  // A read makes and closes an event each time: the values stay small
  // however many come and go.
  for (int i = 0; i < 5000; ++i) {
    HANDLE event = CreateEventW(nullptr, TRUE, FALSE, nullptr);
    ASSERT_NE(event, nullptr);
    const uintptr_t value = reinterpret_cast<uintptr_t>(event);
    ASSERT_EQ(value % 4, 0u);
    ASSERT_LT(value, uintptr_t{1} << 31);
    ASSERT_TRUE(CloseHandle(event));
  }
}

TEST_F(LinuxHostOnImages, ValuesThatNoHandleHadAreRefused) {
  HANDLE disk = open("\\\\.\\PhysicalDrive0");
  ASSERT_NE(disk, INVALID_HANDLE_VALUE);
  const uintptr_t value = reinterpret_cast<uintptr_t>(disk);
  const uintptr_t far = uintptr_t{1} << 40;
  for (uintptr_t bad : {uintptr_t{0}, uintptr_t{4}, value + 1, value + 2, value + 4 * 1000, value + far, ~uintptr_t{0}}) {
    EXPECT_FALSE(CloseHandle(reinterpret_cast<HANDLE>(bad))) << bad;
    uint8_t sector[512];
    DWORD read = 0;
    EXPECT_FALSE(ReadFile(reinterpret_cast<HANDLE>(bad), sector, sizeof(sector), &read, nullptr)) << bad;
    EXPECT_EQ(GetLastError(), static_cast<DWORD>(ERROR_INVALID_HANDLE));
  }
}

TEST_F(LinuxHostOnImages, HandlesOpenedBeforeAnInstallAreInvalidAfterIt) {
  HANDLE before = open("\\\\.\\PhysicalDrive0");
  ASSERT_NE(before, INVALID_HANDLE_VALUE);
  opened.clear();
  Options options;
  options.hostDisks = false;
  options.disks = {gpt};
  install(options);
  HANDLE after = open("\\\\.\\PhysicalDrive0");
  ASSERT_NE(after, INVALID_HANDLE_VALUE);
  EXPECT_NE(after, before);
  uint8_t sector[512];
  DWORD read = 0;
  EXPECT_FALSE(ReadFile(before, sector, sizeof(sector), &read, nullptr));
  EXPECT_EQ(GetLastError(), static_cast<DWORD>(ERROR_INVALID_HANDLE));
  EXPECT_TRUE(ReadFile(after, sector, sizeof(sector), &read, nullptr));
  EXPECT_EQ(read, 512u);
}

TEST_F(LinuxHostOnImages, TheDeviceDescriptorNamesAnImageOnAScsiBus) {
  HANDLE disk = open("\\\\.\\PhysicalDrive0");
  ASSERT_NE(disk, INVALID_HANDLE_VALUE);
  STORAGE_PROPERTY_QUERY query{};
  query.PropertyId = StorageDeviceProperty;
  uint8_t reply[512] = {};
  DWORD returned = 0;
  ASSERT_TRUE(DeviceIoControl(disk, IOCTL_STORAGE_QUERY_PROPERTY, &query, sizeof(query), reply, sizeof(reply),
                              &returned, nullptr));
  STORAGE_DEVICE_DESCRIPTOR d;
  std::memcpy(&d, reply, sizeof(d));
  EXPECT_EQ(d.BusType, BusTypeScsi);
  EXPECT_EQ(d.RemovableMedia, 0);
  ASSERT_NE(d.VendorIdOffset, 0u);
  EXPECT_STREQ(reinterpret_cast<char*>(reply + d.VendorIdOffset), "Linux");
  EXPECT_STREQ(reinterpret_cast<char*>(reply + d.SerialNumberOffset), "gpt.raw");
}

TEST_F(LinuxHostOnImages, LengthAndGeometryAreTheImagesSize) {
  HANDLE disk = open("\\\\.\\PhysicalDrive0");
  ASSERT_NE(disk, INVALID_HANDLE_VALUE);
  GET_LENGTH_INFORMATION length{};
  DWORD returned = 0;
  ASSERT_TRUE(DeviceIoControl(disk, IOCTL_DISK_GET_LENGTH_INFO, nullptr, 0, &length, sizeof(length), &returned,
                              nullptr));
  EXPECT_EQ(static_cast<uint64_t>(length.Length.QuadPart), kGiB);
  DISK_GEOMETRY_EX geometry{};
  ASSERT_TRUE(DeviceIoControl(disk, IOCTL_DISK_GET_DRIVE_GEOMETRY_EX, nullptr, 0, &geometry,
                              offsetof(DISK_GEOMETRY_EX, Data), &returned, nullptr));
  EXPECT_EQ(geometry.Geometry.BytesPerSector, 512u);
  EXPECT_EQ(static_cast<uint64_t>(geometry.DiskSize.QuadPart), kGiB);
}

TEST_F(LinuxHostOnImages, TheDriveLayoutIsTheGptOnTheImage) {
  HANDLE disk = open("\\\\.\\PhysicalDrive0");
  ASSERT_NE(disk, INVALID_HANDLE_VALUE);
  std::vector<uint8_t> buffer(4096, 0);
  DWORD returned = 0;
  ASSERT_TRUE(DeviceIoControl(disk, IOCTL_DISK_GET_DRIVE_LAYOUT_EX, nullptr, 0, buffer.data(),
                              static_cast<DWORD>(buffer.size()), &returned, nullptr));
  auto* layout = reinterpret_cast<DRIVE_LAYOUT_INFORMATION_EX*>(buffer.data());
  EXPECT_EQ(layout->PartitionStyle, static_cast<DWORD>(PARTITION_STYLE_GPT));
  ASSERT_EQ(layout->PartitionCount, 2u);
  EXPECT_EQ(layout->PartitionEntry[0].StartingOffset.QuadPart, 2048 * 512);
  EXPECT_EQ(layout->PartitionEntry[0].PartitionLength.QuadPart, 409600ll * 512);
  EXPECT_EQ(layout->PartitionEntry[1].PartitionNumber, 2u);
  EXPECT_EQ(layout->PartitionEntry[1].Gpt.PartitionType.Data1, 0xEBD0A0A2u);
  EXPECT_EQ(layout->PartitionEntry[1].Gpt.Name[0], u'd');
}

TEST_F(LinuxHostOnImages, TheDriveLayoutIsTheMbrOnTheImage) {
  HANDLE disk = open("\\\\.\\PhysicalDrive1");
  ASSERT_NE(disk, INVALID_HANDLE_VALUE);
  std::vector<uint8_t> buffer(4096, 0);
  DWORD returned = 0;
  ASSERT_TRUE(DeviceIoControl(disk, IOCTL_DISK_GET_DRIVE_LAYOUT_EX, nullptr, 0, buffer.data(),
                              static_cast<DWORD>(buffer.size()), &returned, nullptr));
  auto* layout = reinterpret_cast<DRIVE_LAYOUT_INFORMATION_EX*>(buffer.data());
  EXPECT_EQ(layout->PartitionStyle, static_cast<DWORD>(PARTITION_STYLE_MBR));
  EXPECT_EQ(layout->Mbr.Signature, 0xCAFEF00Du);
  ASSERT_EQ(layout->PartitionCount, 4u);  // the MBR's four entries
  EXPECT_EQ(layout->PartitionEntry[1].Mbr.PartitionType, 0x07);
  EXPECT_EQ(layout->PartitionEntry[1].StartingOffset.QuadPart, 10240 * 512);
}

TEST_F(LinuxHostOnImages, ReadFileReadsTheImagesSectorsAndRefusesPartialOnes) {
  HANDLE disk = open("\\\\.\\PhysicalDrive0");
  ASSERT_NE(disk, INVALID_HANDLE_VALUE);
  std::vector<uint8_t> sector(512, 0);
  DWORD read = 0;
  LARGE_INTEGER at{};
  at.QuadPart = 512;
  ASSERT_TRUE(SetFilePointerEx(disk, at, nullptr, FILE_BEGIN));
  ASSERT_TRUE(ReadFile(disk, sector.data(), 512, &read, nullptr));
  EXPECT_EQ(read, 512u);
  EXPECT_EQ(std::memcmp(sector.data(), "EFI PART", 8), 0);
  EXPECT_FALSE(ReadFile(disk, sector.data(), 100, &read, nullptr));
  EXPECT_EQ(GetLastError(), static_cast<DWORD>(ERROR_INVALID_PARAMETER));
}

TEST_F(LinuxHostOnImages, AnOverlappedReadCompletesAndSignalsItsEvent) {
  HANDLE disk = open("\\\\.\\PhysicalDrive0");
  ASSERT_NE(disk, INVALID_HANDLE_VALUE);
  HANDLE event = CreateEventA(nullptr, TRUE, FALSE, nullptr);
  opened.push_back(event);
  OVERLAPPED overlapped{};
  overlapped.Offset = 512;
  overlapped.hEvent = event;
  std::vector<uint8_t> sector(512, 0);
  EXPECT_FALSE(ReadFile(disk, sector.data(), 512, nullptr, &overlapped));
  EXPECT_EQ(GetLastError(), static_cast<DWORD>(ERROR_IO_PENDING));
  EXPECT_EQ(WaitForSingleObject(event, 1000), WAIT_OBJECT_0);
  DWORD moved = 0;
  ASSERT_TRUE(GetOverlappedResult(disk, &overlapped, &moved, TRUE));
  EXPECT_EQ(moved, 512u);
  EXPECT_EQ(std::memcmp(sector.data(), "EFI PART", 8), 0);
}

TEST_F(LinuxHostOnImages, ScsiPassThroughReachesTheImagesScsiTranslation) {
  HANDLE disk = open("\\\\.\\PhysicalDrive0");
  ASSERT_NE(disk, INVALID_HANDLE_VALUE);
  struct {
    SCSI_PASS_THROUGH spt;
    uint8_t sense[32];
    uint8_t data[36];
  } request{};
  request.spt.Length = sizeof(SCSI_PASS_THROUGH);
  request.spt.CdbLength = 6;
  request.spt.DataIn = SCSI_IOCTL_DATA_IN;
  request.spt.DataTransferLength = 36;
  request.spt.SenseInfoLength = 32;
  request.spt.SenseInfoOffset = offsetof(decltype(request), sense);
  request.spt.DataBufferOffset = offsetof(decltype(request), data);
  request.spt.TimeOutValue = 10;
  const uint8_t inquiry[6] = {0x12, 0, 0, 0, 36, 0};
  std::memcpy(request.spt.Cdb, inquiry, 6);
  DWORD returned = 0;
  ASSERT_TRUE(DeviceIoControl(disk, IOCTL_SCSI_PASS_THROUGH, &request, sizeof(request), &request, sizeof(request),
                              &returned, nullptr));
  EXPECT_EQ(request.spt.ScsiStatus, 0);
  EXPECT_EQ(request.spt.DataTransferLength, 36u);
  EXPECT_EQ(std::string(reinterpret_cast<char*>(request.data + 16), 10), "Disk image");
}

TEST_F(LinuxHostOnImages, AtaPassThroughIsRefusedOnAnImage) {
  HANDLE disk = open("\\\\.\\PhysicalDrive0");
  ASSERT_NE(disk, INVALID_HANDLE_VALUE);
  ATA_PASS_THROUGH_EX request{};
  request.Length = sizeof(request);
  request.CurrentTaskFile[6] = 0xEC;
  DWORD returned = 0;
  EXPECT_FALSE(DeviceIoControl(disk, IOCTL_ATA_PASS_THROUGH, &request, sizeof(request), &request, sizeof(request),
                               &returned, nullptr));
  EXPECT_EQ(GetLastError(), static_cast<DWORD>(ERROR_NOT_SUPPORTED));
}

TEST_F(LinuxHostOnImages, NoControllerLibraryAndNoManagementClassesExist) {
  EXPECT_EQ(LoadLibraryA("storelib.dll"), nullptr);
  EXPECT_EQ(GetLastError(), static_cast<DWORD>(ERROR_MOD_NOT_FOUND));
  void* object = nullptr;
  const GUID anyClass{};
  EXPECT_EQ(CoCreateInstance(anyClass, nullptr, 0, anyClass, &object), REGDB_E_CLASSNOTREG);
}

TEST_F(LinuxHostOnImages, AFunctionTheHostDoesNotServeFailsAsNotImplemented) {
  EXPECT_FALSE(CreatePipe(nullptr, nullptr, nullptr, 0));
  EXPECT_EQ(GetLastError(), ERROR_CALL_NOT_IMPLEMENTED);
}

TEST_F(LinuxHostOnImages, TheTickCounterFollowsTheMonotonicClock) {
  const DWORD before = GetTickCount();
  Sleep(20);
  const DWORD after = GetTickCount();
  EXPECT_GE(after - before, 20u);
}

TEST(LinuxHostEnvironment, DisksAloneMeanTheImagesOnlyAndHostAddsTheHostsDisks) {
  setenv("MODULE_STORAGE_DISKS", "/tmp/a.raw:/tmp/b.raw", 1);
  unsetenv("MODULE_STORAGE_MACHINE");
  Options alone = optionsFromEnvironment();
  EXPECT_FALSE(alone.hostDisks);
  EXPECT_EQ(alone.disks, (std::vector<std::string>{"/tmp/a.raw", "/tmp/b.raw"}));
  setenv("MODULE_STORAGE_MACHINE", "host", 1);
  EXPECT_TRUE(optionsFromEnvironment().hostDisks);
  unsetenv("MODULE_STORAGE_DISKS");
  unsetenv("MODULE_STORAGE_MACHINE");
  EXPECT_TRUE(optionsFromEnvironment().hostDisks);
  EXPECT_TRUE(seam::environmentChoosesHost());
  setenv("MODULE_STORAGE_MACHINE", "default", 1);
  EXPECT_FALSE(seam::environmentChoosesHost());
  setenv("MODULE_STORAGE_MACHINE", "{}", 1);
}

}  // namespace
}  // namespace linux_host
