// The Windows face on disks: opening, pass-through, storage and disk
// queries, raw reads with the file pointer, overlapped requests on the
// virtual clock, and the PC without a machine.
#include "sim/windows/face_test_support.h"

#include "sim/windows/face_state.h"

#include <cctype>
#include <cstdlib>
#include <vector>

namespace sim {
namespace windows {
namespace testing {
namespace {

class DiskFaceTest : public FaceTest {};

HANDLE openDisk(int n, DWORD flags = 0) {
  const std::string path = "\\\\.\\PhysicalDrive" + std::to_string(n);
  return CreateFileA(path.c_str(), GENERIC_READ | GENERIC_WRITE, FILE_SHARE_READ | FILE_SHARE_WRITE, nullptr,
                     OPEN_EXISTING, flags, nullptr);
}

TEST_F(DiskFaceTest, WithoutAMachineEveryCallFailsAsOnAPcWithoutDisks) {
  EXPECT_EQ(openDisk(0), INVALID_HANDLE_VALUE);
  EXPECT_EQ(GetLastError(), ERROR_FILE_NOT_FOUND);
  EXPECT_EQ(GetLogicalDrives(), 0u);
  EXPECT_EQ(GetLogicalDriveStringsA(0, nullptr), 1u);  // only the closing NUL
  DWORD returned = 7;
  EXPECT_FALSE(DeviceIoControl(reinterpret_cast<HANDLE>(0x1000), IOCTL_STORAGE_PREDICT_FAILURE, nullptr, 0, nullptr, 0,
                               &returned, nullptr));
  EXPECT_EQ(GetLastError(), ERROR_INVALID_HANDLE);
  EXPECT_EQ(returned, 0u);
}

TEST_F(DiskFaceTest, CloseHandleOfAnUnknownHandleGivesInvalidHandle) {
  EXPECT_FALSE(CloseHandle(reinterpret_cast<HANDLE>(0x4242)));
  EXPECT_EQ(GetLastError(), ERROR_INVALID_HANDLE);
}

TEST_F(DiskFaceTest, PhysicalDriveBeyondTheLastDiskIsNotFound) {
  install({makeDisk("a", 4096, std::make_shared<FakeAta>(), nullptr)});
  HANDLE disk = openDisk(0);
  ASSERT_NE(disk, INVALID_HANDLE_VALUE);
  EXPECT_EQ(openDisk(1), INVALID_HANDLE_VALUE);
  EXPECT_EQ(GetLastError(), ERROR_FILE_NOT_FOUND);
  EXPECT_TRUE(CloseHandle(disk));
  EXPECT_FALSE(CloseHandle(disk));
  EXPECT_EQ(GetLastError(), ERROR_INVALID_HANDLE);
}

TEST_F(DiskFaceTest, AnInterfacePathOpensItsOwnDiskInAnyCaseAndNothingElse) {
  std::vector<Disk> disks = {makeDisk("a", 4096, std::make_shared<FakeAta>(), nullptr),
                             makeDisk("b", 4096, std::make_shared<FakeAta>(), nullptr),
                             makeDisk("c", 4096, std::make_shared<FakeAta>(), nullptr)};
  disks[1].hidden = true;
  install(std::move(disks));
  const Machine& machine = *Face::instance().machine();
  auto open = [](std::string path) {
    return CreateFileA(path.c_str(), GENERIC_READ, FILE_SHARE_READ | FILE_SHARE_WRITE, nullptr, OPEN_EXISTING, 0,
                       nullptr);
  };
  std::string upper = diskInterfacePath(machine, 2);
  for (char& c : upper) c = static_cast<char>(std::toupper(static_cast<unsigned char>(c)));
  HANDLE third = open(upper);
  ASSERT_NE(third, INVALID_HANDLE_VALUE);
  EXPECT_TRUE(CloseHandle(third));

  EXPECT_EQ(open(diskInterfacePath(machine, 1)), INVALID_HANDLE_VALUE);  // hidden
  std::string beyond = diskInterfacePath(machine, 2);
  beyond.replace(beyond.rfind("#2&0#{"), 6, "#3&0#{");
  EXPECT_EQ(open(beyond), INVALID_HANDLE_VALUE);
  std::string notANumber = diskInterfacePath(machine, 2);
  notANumber.replace(notANumber.rfind("#2&0#{"), 6, "#x&0#{");
  EXPECT_EQ(open(notANumber), INVALID_HANDLE_VALUE);
  EXPECT_EQ(open("\\\\?\\scsi#disk&0#{"), INVALID_HANDLE_VALUE);
  EXPECT_EQ(GetLastError(), ERROR_FILE_NOT_FOUND);
}

TEST_F(DiskFaceTest, AHiddenDiskIsNeitherListedNorOpenedButKeepsItsNumberGap) {
  std::vector<Disk> disks = {makeDisk("a", 4096, std::make_shared<FakeAta>(), nullptr),
                             makeDisk("b", 4096, std::make_shared<FakeAta>(), nullptr),
                             makeDisk("c", 4096, std::make_shared<FakeAta>(), nullptr)};
  disks[1].hidden = true;
  install(std::move(disks));
  EXPECT_EQ(openDisk(1), INVALID_HANDLE_VALUE);
  EXPECT_EQ(GetLastError(), ERROR_FILE_NOT_FOUND);
  HANDLE last = openDisk(2);
  ASSERT_NE(last, INVALID_HANDLE_VALUE);
  CloseHandle(last);
  const GUID diskInterface{0x53F56307, 0xB6BF, 0x11D0, {0x94, 0xF2, 0x00, 0xA0, 0xC9, 0x1E, 0xFB, 0x8B}};
  HDEVINFO set = SetupDiGetClassDevsW(&diskInterface, nullptr, nullptr, DIGCF_PRESENT | DIGCF_DEVICEINTERFACE);
  ASSERT_NE(set, INVALID_HANDLE_VALUE);
  SP_DEVICE_INTERFACE_DATA data{};
  data.cbSize = sizeof(data);
  DWORD listed = 0;
  while (SetupDiEnumDeviceInterfaces(set, nullptr, &diskInterface, listed, &data)) ++listed;
  EXPECT_EQ(listed, 2u);
  SetupDiDestroyDeviceInfoList(set);
}

TEST_F(DiskFaceTest, AtaPassThroughCarriesTheTaskFileBothWays) {
  auto ata = std::make_shared<FakeAta>();
  install({makeDisk("a", 4096, ata, nullptr)});
  HANDLE disk = openDisk(0);
  std::vector<uint8_t> block(sizeof(ATA_PASS_THROUGH_EX) + 512, 0);
  auto* request = reinterpret_cast<ATA_PASS_THROUGH_EX*>(block.data());
  request->Length = sizeof(ATA_PASS_THROUGH_EX);
  request->AtaFlags = ATA_FLAGS_DRDY_REQUIRED | ATA_FLAGS_DATA_IN;
  request->DataTransferLength = 512;
  request->TimeOutValue = 10;
  request->DataBufferOffset = sizeof(ATA_PASS_THROUGH_EX);
  request->CurrentTaskFile[1] = 1;
  request->CurrentTaskFile[6] = 0xEC;  // IDENTIFY DEVICE
  DWORD returned = 0;
  ASSERT_TRUE(DeviceIoControl(disk, IOCTL_ATA_PASS_THROUGH, block.data(), static_cast<DWORD>(block.size()),
                              block.data(), static_cast<DWORD>(block.size()), &returned, nullptr));
  EXPECT_EQ(ata->last.command, 0xEC);
  EXPECT_EQ(request->CurrentTaskFile[6], 0x50);  // Status
  EXPECT_EQ(request->DataTransferLength, 512u);
  EXPECT_EQ(block[sizeof(ATA_PASS_THROUGH_EX) + 54], 'S');
  EXPECT_EQ(returned, block.size());
  CloseHandle(disk);
}

TEST_F(DiskFaceTest, AtaPassThroughWithAWrongLengthFieldIsAnInvalidParameter) {
  install({makeDisk("a", 4096, std::make_shared<FakeAta>(), nullptr)});
  HANDLE disk = openDisk(0);
  ATA_PASS_THROUGH_EX request{};
  request.Length = 40;
  DWORD returned = 0;
  EXPECT_FALSE(DeviceIoControl(disk, IOCTL_ATA_PASS_THROUGH, &request, sizeof(request), &request, sizeof(request),
                               &returned, nullptr));
  EXPECT_EQ(GetLastError(), ERROR_INVALID_PARAMETER);
  CloseHandle(disk);
}

TEST_F(DiskFaceTest, AtaPassThroughOnADiskWithoutAnAtaPortIsNotSupported) {
  install({makeDisk("s", 4096, nullptr, std::make_shared<FakeScsi>())});
  HANDLE disk = openDisk(0);
  ATA_PASS_THROUGH_EX request{};
  request.Length = sizeof(request);
  DWORD returned = 0;
  EXPECT_FALSE(DeviceIoControl(disk, IOCTL_ATA_PASS_THROUGH, &request, sizeof(request), &request, sizeof(request),
                               &returned, nullptr));
  EXPECT_EQ(GetLastError(), ERROR_NOT_SUPPORTED);
  CloseHandle(disk);
}

TEST_F(DiskFaceTest, ScsiPassThroughReturnsStatusAndSenseOfACheckCondition) {
  auto scsi = std::make_shared<FakeScsi>();
  scsi->checkCondition = true;
  install({makeDisk("s", 4096, nullptr, scsi)});
  HANDLE disk = openDisk(0);
  std::vector<uint8_t> block(56 + 32 + 36, 0);
  auto* request = reinterpret_cast<SCSI_PASS_THROUGH*>(block.data());
  request->Length = sizeof(SCSI_PASS_THROUGH);
  request->CdbLength = 6;
  request->SenseInfoLength = 32;
  request->SenseInfoOffset = 56;
  request->DataIn = SCSI_IOCTL_DATA_IN;
  request->DataTransferLength = 36;
  request->DataBufferOffset = 88;
  request->Cdb[0] = 0x12;
  request->Cdb[4] = 36;
  DWORD returned = 0;
  ASSERT_TRUE(DeviceIoControl(disk, IOCTL_SCSI_PASS_THROUGH, block.data(), static_cast<DWORD>(block.size()),
                              block.data(), static_cast<DWORD>(block.size()), &returned, nullptr));
  EXPECT_EQ(request->ScsiStatus, 0x02);
  EXPECT_EQ(request->SenseInfoLength, 14);
  EXPECT_EQ(block[56 + 2], 0x05);   // ILLEGAL REQUEST
  EXPECT_EQ(block[56 + 12], 0x20);  // invalid command operation code
  EXPECT_EQ(request->DataTransferLength, 0u);
  CloseHandle(disk);
}

TEST_F(DiskFaceTest, StoragePropertyQueryPlacesTheStringsBehindTheRecord) {
  install({makeDisk("s", 4096, nullptr, std::make_shared<FakeScsi>())});
  HANDLE disk = openDisk(0);
  STORAGE_PROPERTY_QUERY query{};
  uint8_t header[8] = {};
  DWORD returned = 0;
  ASSERT_TRUE(DeviceIoControl(disk, IOCTL_STORAGE_QUERY_PROPERTY, &query, 12, header, 8, &returned, nullptr));
  EXPECT_EQ(returned, 8u);
  const DWORD size = reinterpret_cast<STORAGE_DESCRIPTOR_HEADER*>(header)->Size;
  EXPECT_EQ(size, 40u + 8 + 12 + 5 + 9);
  std::vector<uint8_t> full(size, 0);
  ASSERT_TRUE(DeviceIoControl(disk, IOCTL_STORAGE_QUERY_PROPERTY, &query, 12, full.data(), size, &returned, nullptr));
  const auto* d = reinterpret_cast<const STORAGE_DEVICE_DESCRIPTOR*>(full.data());
  EXPECT_EQ(d->VendorIdOffset, 40u);
  EXPECT_STREQ(reinterpret_cast<const char*>(full.data() + d->VendorIdOffset), "SEAGATE");
  EXPECT_STREQ(reinterpret_cast<const char*>(full.data() + d->ProductIdOffset), "ST600MM0006");
  EXPECT_STREQ(reinterpret_cast<const char*>(full.data() + d->SerialNumberOffset), "Z1D5K0AB");
  EXPECT_EQ(d->BusType, BusTypeScsi);
  EXPECT_EQ(full[10], 0);  // RemovableMedia
  CloseHandle(disk);
}

TEST_F(DiskFaceTest, AnEmptyVendorHasOffsetZero) {
  install({makeDisk("a", 4096, std::make_shared<FakeAta>(), nullptr)});
  HANDLE disk = openDisk(0);
  STORAGE_PROPERTY_QUERY query{};
  std::vector<uint8_t> full(1000, 0);
  DWORD returned = 0;
  ASSERT_TRUE(DeviceIoControl(disk, IOCTL_STORAGE_QUERY_PROPERTY, &query, 12, full.data(), 1000, &returned, nullptr));
  const auto* d = reinterpret_cast<const STORAGE_DEVICE_DESCRIPTOR*>(full.data());
  EXPECT_EQ(d->VendorIdOffset, 0u);
  EXPECT_EQ(d->ProductIdOffset, 40u);
  EXPECT_EQ(returned, d->Size);
  CloseHandle(disk);
}

TEST_F(DiskFaceTest, DeviceNumberNeedsTwelveBytes) {
  install({makeDisk("a", 4096, std::make_shared<FakeAta>(), nullptr), makeDisk("b", 4096, std::make_shared<FakeAta>(), nullptr)});
  HANDLE disk = openDisk(1);
  STORAGE_DEVICE_NUMBER number{};
  DWORD returned = 0;
  EXPECT_FALSE(DeviceIoControl(disk, IOCTL_STORAGE_GET_DEVICE_NUMBER, nullptr, 0, &number, 8, &returned, nullptr));
  EXPECT_EQ(GetLastError(), ERROR_INSUFFICIENT_BUFFER);
  ASSERT_TRUE(DeviceIoControl(disk, IOCTL_STORAGE_GET_DEVICE_NUMBER, nullptr, 0, &number, 12, &returned, nullptr));
  EXPECT_EQ(number.DeviceNumber, 1u);
  EXPECT_EQ(number.PartitionNumber, 0u);
  EXPECT_EQ(returned, 12u);
  CloseHandle(disk);
}

TEST_F(DiskFaceTest, PredictFailureFollowsTheAtaDrivesSmartStatus) {
  auto ata = std::make_shared<FakeAta>();
  install({makeDisk("a", 4096, ata, nullptr)});
  HANDLE disk = openDisk(0);
  STORAGE_PREDICT_FAILURE reply{};
  DWORD returned = 0;
  ASSERT_TRUE(DeviceIoControl(disk, IOCTL_STORAGE_PREDICT_FAILURE, nullptr, 0, &reply, 516, &returned, nullptr));
  EXPECT_EQ(reply.PredictFailure, 0u);
  EXPECT_EQ(ata->last.command, 0xB0);
  EXPECT_EQ(ata->last.feature, 0xDA);
  ata->failing = true;
  ASSERT_TRUE(DeviceIoControl(disk, IOCTL_STORAGE_PREDICT_FAILURE, nullptr, 0, &reply, 516, &returned, nullptr));
  EXPECT_EQ(reply.PredictFailure, 1u);
  EXPECT_EQ(returned, 516u);
  CloseHandle(disk);
}

TEST_F(DiskFaceTest, PredictFailureOnScsiFollowsTheInformationalException) {
  auto scsi = std::make_shared<FakeScsi>();
  install({makeDisk("s", 4096, nullptr, scsi)});
  HANDLE disk = openDisk(0);
  STORAGE_PREDICT_FAILURE reply{};
  DWORD returned = 0;
  ASSERT_TRUE(DeviceIoControl(disk, IOCTL_STORAGE_PREDICT_FAILURE, nullptr, 0, &reply, 516, &returned, nullptr));
  EXPECT_EQ(reply.PredictFailure, 0u);
  scsi->predictFailure = true;
  ASSERT_TRUE(DeviceIoControl(disk, IOCTL_STORAGE_PREDICT_FAILURE, nullptr, 0, &reply, 516, &returned, nullptr));
  EXPECT_EQ(reply.PredictFailure, 1u);
  CloseHandle(disk);
}

TEST_F(DiskFaceTest, GeometryAndLengthDescribeTheMedia) {
  install({makeDisk("a", 255 * 63 * 10, std::make_shared<FakeAta>(), nullptr)});
  HANDLE disk = openDisk(0);
  DISK_GEOMETRY geometry{};
  DWORD returned = 0;
  ASSERT_TRUE(DeviceIoControl(disk, IOCTL_DISK_GET_DRIVE_GEOMETRY, nullptr, 0, &geometry, sizeof(geometry), &returned,
                              nullptr));
  EXPECT_EQ(geometry.Cylinders.QuadPart, 10);
  EXPECT_EQ(geometry.MediaType, FixedMedia);
  EXPECT_EQ(geometry.BytesPerSector, 512u);
  GET_LENGTH_INFORMATION length{};
  ASSERT_TRUE(DeviceIoControl(disk, IOCTL_DISK_GET_LENGTH_INFO, nullptr, 0, &length, sizeof(length), &returned, nullptr));
  EXPECT_EQ(length.Length.QuadPart, 255 * 63 * 10 * 512LL);
  EXPECT_FALSE(DeviceIoControl(disk, IOCTL_DISK_GET_DRIVE_GEOMETRY, nullptr, 0, &geometry, 20, &returned, nullptr));
  EXPECT_EQ(GetLastError(), ERROR_INSUFFICIENT_BUFFER);
  CloseHandle(disk);
}

TEST_F(DiskFaceTest, SmartGetVersionAnswersOnlyOnAnAtaPort) {
  install({makeDisk("a", 4096, std::make_shared<FakeAta>(), nullptr),
           makeDisk("s", 4096, nullptr, std::make_shared<FakeScsi>())});
  GETVERSIONINPARAMS version{};
  DWORD returned = 0;
  HANDLE ata = openDisk(0);
  ASSERT_TRUE(DeviceIoControl(ata, SMART_GET_VERSION, nullptr, 0, &version, 24, &returned, nullptr));
  EXPECT_EQ(version.fCapabilities & CAP_ATA_ID_CMD, 1u);
  EXPECT_EQ(returned, 24u);
  HANDLE scsi = openDisk(1);
  EXPECT_FALSE(DeviceIoControl(scsi, SMART_GET_VERSION, nullptr, 0, &version, 24, &returned, nullptr));
  EXPECT_EQ(GetLastError(), ERROR_INVALID_FUNCTION);
  CloseHandle(ata);
  CloseHandle(scsi);
}

TEST_F(DiskFaceTest, SmartGetVersionOfALoadedMachineReportsTheDescribedCapabilities) {
  std::string error;
  auto machine = Machine::fromJsonText(R"({"disks": [
      {"name": "a", "kind": "ata", "profile": {"capacitySectors": 4096}, "smartGetVersion": {"capabilities": 7}},
      {"name": "b", "kind": "ata", "profile": {"capacitySectors": 4096}}]})",
                                       &error);
  ASSERT_NE(machine, nullptr) << error;
  ASSERT_TRUE(installMachine(std::move(machine), &error)) << error;
  GETVERSIONINPARAMS version{};
  DWORD returned = 0;
  HANDLE described = openDisk(0);
  ASSERT_TRUE(DeviceIoControl(described, SMART_GET_VERSION, nullptr, 0, &version, 24, &returned, nullptr));
  EXPECT_EQ(version.fCapabilities, 7u);
  // Without the key: identify and SMART.
  HANDLE plain = openDisk(1);
  ASSERT_TRUE(DeviceIoControl(plain, SMART_GET_VERSION, nullptr, 0, &version, 24, &returned, nullptr));
  EXPECT_EQ(version.fCapabilities, static_cast<DWORD>(CAP_ATA_ID_CMD | CAP_SMART_CMD));
  EXPECT_EQ(version.fCapabilities, 5u);
  CloseHandle(described);
  CloseHandle(plain);
}

TEST_F(DiskFaceTest, AnUnknownControlCodeIsAnInvalidFunction) {
  install({makeDisk("a", 4096, std::make_shared<FakeAta>(), nullptr)});
  HANDLE disk = openDisk(0);
  DWORD returned = 0;
  EXPECT_FALSE(DeviceIoControl(disk, 0x12345, nullptr, 0, nullptr, 0, &returned, nullptr));
  EXPECT_EQ(GetLastError(), ERROR_INVALID_FUNCTION);
  CloseHandle(disk);
}

TEST_F(DiskFaceTest, FileCurrentMovesFromWhereTheLastReadEnded) {
  Machine* machine = install({makeDisk("a", 4096, std::make_shared<FakeAta>(), nullptr)});
  machine->disks[0].media->setFill(SectorFill::LbaStamp);
  HANDLE disk = openDisk(0);
  std::vector<uint8_t> sector(512);
  DWORD read = 0;
  // Two moves of one sector "from here", each after a one-sector read.
  ASSERT_NE(SetFilePointer(disk, 512, nullptr, FILE_CURRENT), INVALID_SET_FILE_POINTER);
  ASSERT_TRUE(ReadFile(disk, sector.data(), 512, &read, nullptr));
  EXPECT_EQ(sector[0], 1);
  ASSERT_NE(SetFilePointer(disk, 512, nullptr, FILE_CURRENT), INVALID_SET_FILE_POINTER);
  ASSERT_TRUE(ReadFile(disk, sector.data(), 512, &read, nullptr));
  EXPECT_EQ(sector[0], 3);
  EXPECT_EQ(read, 512u);
  LONG high = 0;
  EXPECT_EQ(SetFilePointer(disk, 0, &high, FILE_CURRENT), 4u * 512);
  EXPECT_EQ(SetFilePointer(disk, -10000, nullptr, FILE_CURRENT), INVALID_SET_FILE_POINTER);
  EXPECT_EQ(GetLastError(), 131u);  // a move before the start
  CloseHandle(disk);
}

TEST_F(DiskFaceTest, RawReadsMoveWholeSectorsOnly) {
  install({makeDisk("a", 4096, std::make_shared<FakeAta>(), nullptr)});
  HANDLE disk = openDisk(0);
  std::vector<uint8_t> buffer(512);
  DWORD read = 0;
  EXPECT_FALSE(ReadFile(disk, buffer.data(), 100, &read, nullptr));
  EXPECT_EQ(GetLastError(), ERROR_INVALID_PARAMETER);
  CloseHandle(disk);
}

TEST_F(DiskFaceTest, AnUnreadableSectorFailsTheReadWithACrcError) {
  Machine* machine = install({makeDisk("a", 4096, std::make_shared<FakeAta>(), nullptr)});
  machine->disks[0].media->markUnreadable(2);
  HANDLE disk = openDisk(0);
  std::vector<uint8_t> buffer(4 * 512);
  DWORD read = 0;
  EXPECT_FALSE(ReadFile(disk, buffer.data(), 4 * 512, &read, nullptr));
  EXPECT_EQ(GetLastError(), ERROR_CRC);
  CloseHandle(disk);
}

TEST_F(DiskFaceTest, AnOverlappedReadIsPendingUntilItsEventIsWaitedFor) {
  Machine* machine = install({makeDisk("a", 4096, std::make_shared<FakeAta>(), nullptr)});
  machine->disks[0].media->setFill(SectorFill::LbaStamp);
  HANDLE disk = openDisk(0, FILE_FLAG_OVERLAPPED);
  OVERLAPPED overlapped{};
  overlapped.Offset = 5 * 512;
  overlapped.hEvent = CreateEventA(nullptr, TRUE, FALSE, nullptr);
  std::vector<uint8_t> buffer(512);
  DWORD read = 0;
  EXPECT_FALSE(ReadFile(disk, buffer.data(), 512, &read, &overlapped));
  EXPECT_EQ(GetLastError(), ERROR_IO_PENDING);
  EXPECT_FALSE(GetOverlappedResult(disk, &overlapped, &read, FALSE));
  EXPECT_EQ(GetLastError(), ERROR_IO_INCOMPLETE);
  EXPECT_EQ(WaitForSingleObject(overlapped.hEvent, 1000), WAIT_OBJECT_0);
  ASSERT_TRUE(GetOverlappedResult(disk, &overlapped, &read, FALSE));
  EXPECT_EQ(read, 512u);
  EXPECT_EQ(buffer[0], 5);
  CloseHandle(overlapped.hEvent);
  CloseHandle(disk);
}

TEST_F(DiskFaceTest, ASynchronousHandleGivenAnOverlappedReadsAtItsOffsetAndSignalsItsEvent) {
  Machine* machine = install({makeDisk("a", 4096, std::make_shared<FakeAta>(), nullptr)});
  machine->disks[0].media->setFill(SectorFill::LbaStamp);
  machine->disks[0].media->markUnreadable(9);
  HANDLE disk = openDisk(0);
  OVERLAPPED overlapped{};
  overlapped.Offset = 5 * 512;
  overlapped.hEvent = CreateEventA(nullptr, TRUE, FALSE, nullptr);
  std::vector<uint8_t> buffer(2 * 512);
  ASSERT_TRUE(ReadFile(disk, buffer.data(), 2 * 512, nullptr, &overlapped));
  EXPECT_EQ(WaitForSingleObject(overlapped.hEvent, 0), WAIT_OBJECT_0);
  DWORD read = 0;
  ASSERT_TRUE(GetOverlappedResult(disk, &overlapped, &read, FALSE));
  EXPECT_EQ(read, 2u * 512);
  EXPECT_EQ(buffer[0], 5);

  // A failed read reports its error through the record as well.
  ResetEvent(overlapped.hEvent);
  overlapped.Offset = 8 * 512;
  EXPECT_FALSE(ReadFile(disk, buffer.data(), 2 * 512, nullptr, &overlapped));
  EXPECT_EQ(GetLastError(), ERROR_CRC);
  EXPECT_EQ(WaitForSingleObject(overlapped.hEvent, 0), WAIT_OBJECT_0);
  EXPECT_FALSE(GetOverlappedResult(disk, &overlapped, &read, FALSE));
  EXPECT_EQ(GetLastError(), ERROR_CRC);
  CloseHandle(overlapped.hEvent);
  CloseHandle(disk);
}

TEST_F(DiskFaceTest, AnOverlappedHandleRefusesARequestWithoutOverlapped) {
  install({makeDisk("a", 4096, std::make_shared<FakeAta>(), nullptr)});
  HANDLE disk = openDisk(0, FILE_FLAG_OVERLAPPED);
  std::vector<uint8_t> buffer(512);
  DWORD read = 0;
  EXPECT_FALSE(ReadFile(disk, buffer.data(), 512, &read, nullptr));
  EXPECT_EQ(GetLastError(), ERROR_INVALID_PARAMETER);
  CloseHandle(disk);
}

TEST_F(DiskFaceTest, AHungReadTimesOutOnTheVirtualClockAndCancelIoAbortsIt) {
  Machine* machine = install({makeDisk("a", 4096, std::make_shared<FakeAta>(), nullptr)});
  auto faults = std::make_shared<FaultState>(machine->sharedClock());
  faults->plan().hang = true;
  machine->disks[0].faultPath.push_back(faults);
  HANDLE disk = openDisk(0, FILE_FLAG_OVERLAPPED);
  OVERLAPPED overlapped{};
  overlapped.hEvent = CreateEventA(nullptr, TRUE, FALSE, nullptr);
  std::vector<uint8_t> buffer(512);
  DWORD read = 0;
  const uint64_t start = machine->clock().nowMs();
  EXPECT_FALSE(ReadFile(disk, buffer.data(), 512, &read, &overlapped));
  EXPECT_EQ(GetLastError(), ERROR_IO_PENDING);
  EXPECT_EQ(WaitForSingleObject(overlapped.hEvent, 30000), WAIT_TIMEOUT);
  EXPECT_EQ(machine->clock().nowMs() - start, 30000u);
  ASSERT_TRUE(CancelIo(disk));
  EXPECT_FALSE(GetOverlappedResult(disk, &overlapped, &read, FALSE));
  EXPECT_EQ(GetLastError(), ERROR_OPERATION_ABORTED);
  EXPECT_EQ(read, 0u);
  EXPECT_EQ(WaitForSingleObject(overlapped.hEvent, 0), WAIT_OBJECT_0);
  CloseHandle(overlapped.hEvent);
  CloseHandle(disk);
}

TEST_F(DiskFaceTest, AnInfiniteWaitThatCanNeverEndFailsInsteadOfHanging) {
  install({});
  HANDLE event = CreateEventA(nullptr, TRUE, FALSE, nullptr);
  EXPECT_EQ(WaitForSingleObject(event, INFINITE), WAIT_FAILED);
  EXPECT_EQ(GetLastError(), ERROR_TIMEOUT);
  ASSERT_TRUE(SetEvent(event));
  EXPECT_EQ(WaitForSingleObject(event, INFINITE), WAIT_OBJECT_0);
  CloseHandle(event);
}

TEST_F(DiskFaceTest, AnAutoResetEventIsConsumedByTheWait) {
  install({});
  HANDLE event = CreateEventA(nullptr, FALSE, TRUE, nullptr);
  EXPECT_EQ(WaitForSingleObject(event, 0), WAIT_OBJECT_0);
  EXPECT_EQ(WaitForSingleObject(event, 5), WAIT_TIMEOUT);
  CloseHandle(event);
}

TEST_F(DiskFaceTest, TickCountAndSleepRunOnTheVirtualClock) {
  Machine* machine = install({});
  machine->clock().advanceMs(1234);
  EXPECT_EQ(GetTickCount(), 1234u);
  Sleep(100);
  // The first read cost its millisecond, the sleep its hundred.
  EXPECT_EQ(GetTickCount(), 1335u);
  EXPECT_EQ(machine->clock().nowMs(), 1336u);
}

TEST_F(DiskFaceTest, SetFilePointerExFromTheEndGivesTheDiskSize) {
  install({makeDisk("a", 4096, std::make_shared<FakeAta>(), nullptr)});
  HANDLE disk = openDisk(0);
  LARGE_INTEGER zero{};
  LARGE_INTEGER position{};
  ASSERT_TRUE(SetFilePointerEx(disk, zero, &position, FILE_END));
  EXPECT_EQ(position.QuadPart, 4096 * 512LL);
  EXPECT_FALSE(SetFilePointerEx(disk, zero, &position, 7));
  EXPECT_EQ(GetLastError(), ERROR_INVALID_PARAMETER);
  CloseHandle(disk);
}

TEST_F(DiskFaceTest, AMachineDescriptionWithBadWindowsKeysIsRejectedWithTheKeyNamed) {
  auto machine = std::make_unique<Machine>();
  machine->disks.push_back(makeDisk("a", 4096, std::make_shared<FakeAta>(), nullptr,
                                    {{"partitions", {{"scheme", "apm"}, {"entries", nlohmann::json::array()}}}}));
  std::string error;
  EXPECT_FALSE(installMachine(std::move(machine), &error));
  EXPECT_NE(error.find("partitions.scheme"), std::string::npos) << error;
  EXPECT_EQ(installedMachine(), nullptr);
}

TEST_F(DiskFaceTest, TheEnvironmentNamesTheMachineOnTheFirstCall) {
  // JSON text, as the variable may carry it.
  setenv("MODULE_STORAGE_MACHINE", Machine::defaultMachineJson(), 1);
  resetToEnvironment();
  HANDLE disk = openDisk(1);
  EXPECT_NE(disk, INVALID_HANDLE_VALUE);
  ASSERT_NE(installedMachine(), nullptr);
  const size_t disks = installedMachine()->disks.size();
  EXPECT_GE(disks, 2u);
  CloseHandle(disk);
  setenv("MODULE_STORAGE_MACHINE", "default", 1);
  resetToEnvironment();
  ASSERT_NE(installedMachine(), nullptr);
  EXPECT_EQ(installedMachine()->disks.size(), disks);
  setenv("MODULE_STORAGE_MACHINE", "/nonexistent/machine.json", 1);
  resetToEnvironment();
  EXPECT_EQ(installedMachine(), nullptr);
  EXPECT_EQ(openDisk(0), INVALID_HANDLE_VALUE);
  unsetenv("MODULE_STORAGE_MACHINE");
}

TEST_F(DiskFaceTest, ADescriptionThatCannotBeLoadedLeavesItsReasonInTheEnvironment) {
  unsetenv("MODULE_STORAGE_MACHINE_ERROR");
  setenv("MODULE_STORAGE_MACHINE", R"({"disks": [{"name": "a", "kind": "emmc", "profile": {"capacitySectors": 8}, "speed": 1}]})", 1);
  resetToEnvironment();
  EXPECT_EQ(installedMachine(), nullptr);
  const char* reason = std::getenv("MODULE_STORAGE_MACHINE_ERROR");
  ASSERT_NE(reason, nullptr);
  EXPECT_EQ(std::string(reason), "disks[0].speed: unknown key");

  // A description the face itself refuses (its partitions) says so too.
  setenv("MODULE_STORAGE_MACHINE",
         R"({"disks": [{"name": "a", "kind": "emmc", "profile": {"capacitySectors": 4096},
             "partitions": {"scheme": "apm", "entries": []}}]})",
         1);
  resetToEnvironment();
  EXPECT_EQ(installedMachine(), nullptr);
  reason = std::getenv("MODULE_STORAGE_MACHINE_ERROR");
  ASSERT_NE(reason, nullptr);
  EXPECT_NE(std::string(reason).find("partitions.scheme"), std::string::npos) << reason;
  unsetenv("MODULE_STORAGE_MACHINE");
  unsetenv("MODULE_STORAGE_MACHINE_ERROR");
}

}  // namespace
}  // namespace testing
}  // namespace windows
}  // namespace sim
