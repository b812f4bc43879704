// The scanner's view of how disks are attached, on simulated PCs built for
// each case: bus type, removable media, vendor and product texts and what
// SMART_GET_VERSION answers come from the disks of the machine.
#include "scanner/win_storage_scanner.h"

#include <cstring>

#include <gtest/gtest.h>

#include "scanner/scanner_test_support.h"

namespace {

using scanner_testing::TestScanner;
using sim::windows::testing::FakeAta;
using sim::windows::testing::FakeScsi;
using sim::windows::testing::makeDisk;

class WinStorageScannerTest : public sim::windows::testing::FaceTest {};

// A disk on the given bus whose descriptor carries these texts; `ata` gives
// it an ATA port, which is what answers SMART_GET_VERSION.
sim::Disk diskOn(uint32_t busType, const std::string& vendor, const std::string& product, bool ata,
                 nlohmann::json description = nlohmann::json::object()) {
  sim::Disk disk = makeDisk("d", 65536, ata ? std::make_shared<FakeAta>() : nullptr,
                            ata ? nullptr : std::make_shared<FakeScsi>(), std::move(description));
  disk.busType = busType;
  disk.vendorId = vendor;
  disk.productId = product;
  return disk;
}

nlohmann::json smartCapabilities(unsigned capabilities) {
  return nlohmann::json::parse("{\"smartGetVersion\": {\"capabilities\": " + std::to_string(capabilities) + "}}");
}

// Installs one disk, scans, and gives its location and bus kind.
struct Attachment {
  uint32_t locationStatus = 99, location = 99, kindStatus = 99, kind = 99;
};
Attachment attachmentOf(sim::Disk disk) {
  sim::windows::testing::install({std::move(disk)});
  TestScanner scanner;
  DiskMap disks;
  EXPECT_EQ(scanner.scanDevices(disks), 0u);
  EXPECT_EQ(disks.size(), 1u);
  Attachment a;
  a.locationStatus = scanner.getLocation(0, &a.location);
  a.kindStatus = scanner.getBusKind(0, &a.kind);
  return a;
}

// A descriptor record with its two texts placed behind it.
std::vector<uint8_t> descriptorWith(const char* vendor, const char* product) {
  std::vector<uint8_t> bytes(40, 0);
  auto place = [&bytes](const char* text, size_t wordAt) {
    if (text == nullptr) return;
    const uint32_t at = static_cast<uint32_t>(bytes.size());
    std::memcpy(bytes.data() + wordAt, &at, 4);
    bytes.insert(bytes.end(), text, text + std::strlen(text) + 1);
  };
  place(vendor, 12);
  place(product, 16);
  return bytes;
}

TEST_F(WinStorageScannerTest, ConstructionBuildsTheNameTablesAndTakesTheProcessWideService) {
  WinStorageScanner scanner;
  EXPECT_EQ(scanner.getDeviceService(), get_device_scanner());
  EXPECT_EQ(scanner.typeNames().mbrTypeName(7), "IFS, HPFS, NTFS, exFAT");
  EXPECT_EQ(scanner.typeNames().gptTypeName("bfbfafe7-a34f-448a-9a5b-6213eb736c22"), "_CEPH_|JOURNAL");
}

TEST_F(WinStorageScannerTest, ScanDevicesAsksForDisksAndKeepsACopyOfTheResult) {
  sim::windows::testing::install({makeDisk("a", 4096, std::make_shared<FakeAta>(), nullptr),
                                  makeDisk("b", 4096, nullptr, std::make_shared<FakeScsi>())});
  TestScanner scanner;
  DiskMap disks{{9, {"stale"}}};
  ASSERT_EQ(scanner.scanDevices(disks), 0u);
  EXPECT_EQ(scanner.recorder.scans, 1);
  EXPECT_EQ(std::memcmp(&scanner.recorder.interfaceGuid, &kDiskInterfaceGuid, sizeof(GUID)), 0);
  EXPECT_EQ(std::memcmp(&scanner.recorder.classGuid, &kDiskDriveClassGuid, sizeof(GUID)), 0);
  ASSERT_EQ(disks.size(), 2u);
  EXPECT_EQ(scanner.map(), disks) << "every other query relies on the copy";
  ASSERT_FALSE(disks[1].empty());
  EXPECT_EQ(disks[1].back(), "\\\\.\\PhysicalDrive1");
}

TEST_F(WinStorageScannerTest, ScanDevicesIntoItsOwnMapKeepsTheResult) {
  sim::windows::testing::install({makeDisk("a", 4096, std::make_shared<FakeAta>(), nullptr)});
  TestScanner scanner;
  ASSERT_EQ(scanner.scanDevices(scanner.map()), 0u);
  ASSERT_EQ(scanner.map().size(), 1u);
  EXPECT_FALSE(scanner.map()[0].empty());
}

TEST_F(WinStorageScannerTest, GetBusKindIsRaidForAnIntelRaidVolumeWhateverSmartSays) {
  const Attachment a = attachmentOf(diskOn(8, "Intel", "Raid 0 Volume", true, smartCapabilities(5)));
  EXPECT_EQ(a.kindStatus, 0u);
  EXPECT_EQ(a.kind, 3u);
  EXPECT_EQ(a.location, 1u);
}

TEST_F(WinStorageScannerTest, GetBusKindIsAtaOnARaidBusWhenSmartIdentifyAnswersWithBitZeroSet) {
  const Attachment a = attachmentOf(diskOn(8, "ST", "ST1000DM003", true, smartCapabilities(1)));
  EXPECT_EQ(a.kindStatus, 0u);
  EXPECT_EQ(a.kind, 0u);
}

TEST_F(WinStorageScannerTest, GetBusKindIsRaidOnARaidBusWhenSmartIdentifyBitZeroIsClear) {
  const Attachment a = attachmentOf(diskOn(8, "ST", "ST1000DM003", true, smartCapabilities(4)));
  EXPECT_EQ(a.kind, 3u);
}

TEST_F(WinStorageScannerTest, GetBusKindIsRaidOnARaidBusWhenNoPathAnswersSmartVersion) {
  const Attachment a = attachmentOf(diskOn(8, "ST", "ST1000DM003", false));
  EXPECT_EQ(a.kind, 3u);
}

TEST_F(WinStorageScannerTest, SasBusWithIntelRaidTextsIsRaidAndWithAnyOtherVendorScsi) {
  Attachment a = attachmentOf(diskOn(10, "INTEL", "RAID", false));
  EXPECT_EQ(a.kind, 3u);
  EXPECT_EQ(a.location, 1u);
  a = attachmentOf(diskOn(10, "SEAGATE", "RAID", false));
  EXPECT_EQ(a.kind, 1u);
  a = attachmentOf(diskOn(10, "INTEL", "ST600MM0006", false));
  EXPECT_EQ(a.kind, 1u);
}

TEST_F(WinStorageScannerTest, VendorTextShorterThanFiveCharactersIsNeverIntel) {
  EXPECT_FALSE(WinStorageScanner::isIntelRaid(descriptorWith("INTE", "RAID")));
  EXPECT_TRUE(WinStorageScanner::isIntelRaid(descriptorWith("intel", "raid")));
  EXPECT_TRUE(WinStorageScanner::isIntelRaid(descriptorWith("IntelCorp", "RaId 5"))) << "a prefix match in any case";
  EXPECT_FALSE(WinStorageScanner::isIntelRaid(descriptorWith("INTEL", "RAI"))) << "product shorter than four";
  const Attachment a = attachmentOf(diskOn(10, "INTE", "RAID", false));
  EXPECT_EQ(a.kind, 1u);
}

TEST_F(WinStorageScannerTest, DescriptorWithProductIdOffsetZeroIsNeverIntelAndItsStringsAreNotRead) {
  // The record's first bytes read "raid" as a text: were offset 0 followed,
  // the product would match.
  std::vector<uint8_t> descriptor = descriptorWith("INTEL", nullptr);
  std::memcpy(descriptor.data(), "raid", 4);
  std::memset(descriptor.data() + 4, 0, 4);
  EXPECT_FALSE(WinStorageScanner::isIntelRaid(descriptor));
  // Nor with the vendor's offset 0, the product placed.
  std::vector<uint8_t> noVendor = descriptorWith(nullptr, "RAID");
  std::memcpy(noVendor.data(), "intel", 5);
  EXPECT_FALSE(WinStorageScanner::isIntelRaid(noVendor));
  // On the machine: an empty product text has offset 0.
  const Attachment a = attachmentOf(diskOn(10, "INTEL", "", false));
  EXPECT_EQ(a.kind, 1u);
}

TEST_F(WinStorageScannerTest, DescriptorTextsOutsideTheBufferAreNeverIntel) {
  std::vector<uint8_t> descriptor = descriptorWith("INTEL", "RAID");
  const uint32_t beyond = 4096;
  std::memcpy(descriptor.data() + 16, &beyond, 4);
  EXPECT_FALSE(WinStorageScanner::isIntelRaid(descriptor));
  std::vector<uint8_t> unterminated = descriptorWith("INTEL", "RAID");
  unterminated.pop_back();  // the product's NUL
  EXPECT_FALSE(WinStorageScanner::isIntelRaid(unterminated));
  EXPECT_FALSE(WinStorageScanner::isIntelRaid(std::vector<uint8_t>(12, 0)));
}

TEST_F(WinStorageScannerTest, MmcWithFixedMediaIsEmmcAndInternal) {
  sim::Disk disk = diskOn(13, "", "BJTD4R", false);
  disk.scsi = nullptr;
  const Attachment a = attachmentOf(std::move(disk));
  EXPECT_EQ(a.kind, 5u);
  EXPECT_EQ(a.location, 1u);
}

TEST_F(WinStorageScannerTest, MmcWithRemovableMediaIsUnknownAndExternal) {
  sim::Disk disk = diskOn(13, "", "SD64G", false);
  disk.removableMedia = true;
  const Attachment a = attachmentOf(std::move(disk));
  EXPECT_EQ(a.kind, 4u);
  EXPECT_EQ(a.location, 2u);
  sim::Disk card = diskOn(12, "", "SD64G", false);
  card.removableMedia = true;
  const Attachment b = attachmentOf(std::move(card));
  EXPECT_EQ(b.kind, 4u);
  EXPECT_EQ(b.location, 2u);
}

TEST_F(WinStorageScannerTest, AtapiIsInternalButOfUnknownKindSoItIsNotOffered) {
  const Attachment a = attachmentOf(diskOn(2, "HL-DT-ST", "DVDRAM", false));
  EXPECT_EQ(a.location, 1u);
  EXPECT_EQ(a.kind, 4u);
}

TEST_F(WinStorageScannerTest, VirtualBusesHaveUnknownLocationAndKind) {
  for (uint32_t bus : {14u, 15u}) {
    const Attachment a = attachmentOf(diskOn(bus, "Msft", "Virtual Disk", false));
    EXPECT_EQ(a.locationStatus, 0u) << bus;
    EXPECT_EQ(a.location, 0u) << bus;
    EXPECT_EQ(a.kindStatus, 0u) << bus;
    EXPECT_EQ(a.kind, 4u) << bus;
  }
}

TEST_F(WinStorageScannerTest, LocationAndKindFollowTheBusTables) {
  struct Row {
    uint32_t bus, location, kind;
  };
  const Row rows[] = {{1, 1, 1}, {3, 1, 0},  {4, 2, 4},  {5, 1, 1},  {6, 2, 1},  {7, 2, 2},
                      {9, 2, 1}, {11, 1, 0}, {16, 0, 4}, {17, 1, 6}, {0, 0, 4}};
  for (const Row& row : rows) {
    const Attachment a = attachmentOf(diskOn(row.bus, "VENDOR", "PRODUCT", row.bus == 3 || row.bus == 11));
    EXPECT_EQ(a.location, row.location) << "bus " << row.bus;
    EXPECT_EQ(a.kind, row.kind) << "bus " << row.bus;
  }
}

TEST_F(WinStorageScannerTest, UnknownDiskGivesFailureWithUnknownLocationAndKindAndAnEmptyMapEntry) {
  sim::windows::testing::install({makeDisk("a", 4096, std::make_shared<FakeAta>(), nullptr)});
  TestScanner scanner;
  DiskMap disks;
  ASSERT_EQ(scanner.scanDevices(disks), 0u);
  uint32_t location = 7, kind = 7;
  EXPECT_EQ(scanner.getLocation(5, &location), 1u);
  EXPECT_EQ(location, 0u);
  EXPECT_EQ(scanner.getBusKind(5, &kind), 1u);
  EXPECT_EQ(kind, 4u);
  ASSERT_EQ(scanner.map().count(5), 1u) << "the query adds an empty entry";
  EXPECT_TRUE(scanner.map()[5].empty());
  EXPECT_TRUE(scanner.recorder.opened.empty());
}

TEST_F(WinStorageScannerTest, IsRemovableOnADiskWithoutPathsLeavesTheFlagAndReturnsZero) {
  TestScanner scanner;
  uint8_t flag = 7;
  EXPECT_EQ(scanner.isRemovable(3, &flag), 0u);
  EXPECT_EQ(flag, 7);
}

TEST_F(WinStorageScannerTest, IsRemovableReadsRemovableMediaAndFailsOnlyWhenTheLastPathFailed) {
  sim::Disk disk = diskOn(7, "USB", "Flash", false);
  disk.removableMedia = true;
  sim::windows::testing::install({std::move(disk)});
  TestScanner scanner;
  scanner.map()[0] = {"\\\\.\\PhysicalDrive9", "\\\\.\\PhysicalDrive0"};
  uint8_t flag = 0;
  EXPECT_EQ(scanner.isRemovable(0, &flag), 0u) << "the second path answers";
  EXPECT_EQ(flag, 1);
  scanner.map()[0] = {"\\\\.\\PhysicalDrive0", "\\\\.\\PhysicalDrive9"};
  scanner.recorder.opened.clear();
  flag = 0;
  EXPECT_EQ(scanner.isRemovable(0, &flag), 0u);
  EXPECT_EQ(scanner.recorder.opened.size(), 1u) << "the first path that answers ends the walk";
  scanner.map()[0] = {"\\\\.\\PhysicalDrive9"};
  flag = 5;
  EXPECT_EQ(scanner.isRemovable(0, &flag), 1u);
  EXPECT_EQ(flag, 5);
}

TEST_F(WinStorageScannerTest, QueryDescriptorRefusesABufferBelowTheRecord) {
  sim::windows::testing::install({makeDisk("a", 4096, std::make_shared<FakeAta>(), nullptr)});
  TestScanner scanner;
  DiskMap disks;
  ASSERT_EQ(scanner.scanDevices(disks), 0u);
  uint8_t small[39];
  EXPECT_EQ(scanner.queryDescriptor(0, small, sizeof small), 2u);
  EXPECT_TRUE(scanner.recorder.opened.empty());
  uint64_t size = 0;
  ASSERT_EQ(scanner.queryDescriptorSize(0, &size), 0u);
  EXPECT_GT(size, 40u) << "the record and the product, revision and serial texts";
  std::vector<uint8_t> descriptor(size, 0xEE);
  ASSERT_EQ(scanner.queryDescriptor(0, descriptor.data(), size), 0u);
  uint32_t bus = 0;
  std::memcpy(&bus, descriptor.data() + 28, 4);
  EXPECT_EQ(bus, 11u);
}

TEST_F(WinStorageScannerTest, ADescriptorOfMoreThan64KiBIsRefusedWithoutAskingTheDevice) {
  sim::windows::testing::install({makeDisk("a", 4096, std::make_shared<FakeAta>(), nullptr)});
  TestScanner scanner;
  DiskMap disks;
  ASSERT_EQ(scanner.scanDevices(disks), 0u);
  scanner.recorder.opened.clear();
  std::vector<uint8_t> descriptor(64 * 1024 + 1, 0xEE);
  EXPECT_EQ(scanner.queryDescriptor(0, descriptor.data(), descriptor.size()), 1u);
  EXPECT_TRUE(scanner.recorder.opened.empty()) << "refused before any path is opened";
  EXPECT_EQ(descriptor.back(), 0xEE) << "the buffer is not touched";
  // 64 KiB itself is asked for.
  EXPECT_EQ(scanner.queryDescriptor(0, descriptor.data(), 64 * 1024), 0u);
  EXPECT_FALSE(scanner.recorder.opened.empty());
}

TEST_F(WinStorageScannerTest, QueryDescriptorSizeFailsWhenNoPathOpens) {
  TestScanner scanner;
  scanner.map()[0] = {"\\\\.\\PhysicalDrive4"};
  uint64_t size = 9;
  EXPECT_EQ(scanner.queryDescriptorSize(0, &size), 1u);
  EXPECT_EQ(size, 0u);
  uint8_t buffer[64];
  EXPECT_EQ(scanner.queryDescriptor(0, buffer, sizeof buffer), 1u);
  EXPECT_EQ(scanner.queryDescriptorSize(1, &size), 0u) << "no paths at all";
}

TEST_F(WinStorageScannerTest, HasIdeIdentifyGivesBitZeroOfTheCapabilities) {
  sim::windows::testing::install({diskOn(11, "", "ST1000DM003", true, smartCapabilities(5)),
                                  diskOn(11, "", "ST1000DM003", true, smartCapabilities(6)),
                                  diskOn(1, "SEAGATE", "ST600MM0006", false)});
  TestScanner scanner;
  DiskMap disks;
  ASSERT_EQ(scanner.scanDevices(disks), 0u);
  uint8_t flag = 9;
  EXPECT_EQ(scanner.hasIdeIdentify(0, &flag), 0u);
  EXPECT_EQ(flag, 1);
  EXPECT_EQ(scanner.hasIdeIdentify(1, &flag), 0u);
  EXPECT_EQ(flag, 0);
  flag = 9;
  EXPECT_EQ(scanner.hasIdeIdentify(2, &flag), 1u) << "no ATA port answers";
  EXPECT_EQ(flag, 0);
}

TEST_F(WinStorageScannerTest, HasIdeIdentifyTakesAFailedCallThatFilledTheWholeReplyAsAnAnswer) {
  sim::windows::testing::install({diskOn(11, "", "ST1000DM003", true, nlohmann::json::parse(
                                             R"({"smartGetVersion": {"capabilities": 5, "failsWithReply": true}})")),
                                  diskOn(11, "", "ST1000DM003", true, nlohmann::json::parse(
                                             R"({"smartGetVersion": {"capabilities": 4, "failsWithReply": true}})"))});
  TestScanner scanner;
  DiskMap disks;
  ASSERT_EQ(scanner.scanDevices(disks), 0u);
  uint8_t flag = 9;
  EXPECT_EQ(scanner.hasIdeIdentify(0, &flag), 0u);
  EXPECT_EQ(flag, 1);
  flag = 9;
  EXPECT_EQ(scanner.hasIdeIdentify(1, &flag), 0u);
  EXPECT_EQ(flag, 0);
  // So a RAID-bus disk behind such a driver, not Intel's, is an ATA disk.
  sim::windows::testing::install({diskOn(8, "ST", "ST1000DM003", true, nlohmann::json::parse(
                                             R"({"smartGetVersion": {"capabilities": 1, "failsWithReply": true}})"))});
  TestScanner again;
  ASSERT_EQ(again.scanDevices(disks), 0u);
  uint32_t kind = 99;
  EXPECT_EQ(again.getBusKind(0, &kind), 0u);
  EXPECT_EQ(kind, 0u);
}

// getLocation asks isRemovable on an SD or MMC bus; here that query fails.
class ScannerWhoseRemovableQueryFails : public TestScanner {
 public:
  uint32_t isRemovable(uint32_t, uint8_t*) override { return 1; }
};

TEST_F(WinStorageScannerTest, SdOrMmcWhoseRemovableQueryFailsIsExternalAndOfUnknownKind) {
  for (uint32_t bus : {12u, 13u}) {
    sim::windows::testing::install({diskOn(bus, "", "SD64G", false)});
    ScannerWhoseRemovableQueryFails scanner;
    DiskMap disks;
    ASSERT_EQ(scanner.scanDevices(disks), 0u);
    uint32_t location = 99;
    uint32_t kind = 99;
    EXPECT_EQ(scanner.getLocation(0, &location), 0u) << bus;
    EXPECT_EQ(location, 2u) << bus;
    EXPECT_EQ(scanner.getBusKind(0, &kind), 0u) << bus;
    EXPECT_EQ(kind, 4u) << bus;
  }
}

TEST_F(WinStorageScannerTest, SdWithFixedMediaIsEmmcAndInternal) {
  sim::Disk disk = diskOn(12, "", "SDFIXED", false);
  disk.scsi = nullptr;
  const Attachment a = attachmentOf(std::move(disk));
  EXPECT_EQ(a.kind, 5u);
  EXPECT_EQ(a.location, 1u);
}

TEST_F(WinStorageScannerTest, DeviceNumberTextIsTheDecimalDeviceNumber) {
  std::vector<sim::Disk> disks;
  for (int i = 0; i < 12; ++i) disks.push_back(makeDisk("d" + std::to_string(i), 4096, std::make_shared<FakeAta>(), nullptr));
  sim::windows::testing::install(std::move(disks));
  TestScanner scanner;
  DiskMap map;
  ASSERT_EQ(scanner.scanDevices(map), 0u);
  std::string text;
  EXPECT_EQ(scanner.getDeviceNumberText(11, &text), 0u);
  EXPECT_EQ(text, "11");
}

TEST_F(WinStorageScannerTest, DeviceNumberTextIgnoresPathsThatCannotBeOpened) {
  sim::windows::testing::install({makeDisk("a", 4096, std::make_shared<FakeAta>(), nullptr)});
  TestScanner scanner;
  scanner.map()[0] = {"\\\\.\\PhysicalDrive7", "\\\\.\\PhysicalDrive8"};
  std::string text;
  EXPECT_EQ(scanner.getDeviceNumberText(0, &text), 0u) << "no openable path: 0";
  EXPECT_EQ(text, "");
  scanner.map()[0] = {"\\\\.\\PhysicalDrive7", "\\\\.\\PhysicalDrive0"};
  EXPECT_EQ(scanner.getDeviceNumberText(0, &text), 0u);
  EXPECT_EQ(text, "0");
}

TEST_F(WinStorageScannerTest, DeviceNumberTextFailsWhenTheLastOpenedPathRefusesTheControlCode) {
  // S: spans two disks, so its handle has no single device number.
  nlohmann::json volume = nlohmann::json::parse(R"({
    "partitions": {"scheme": "mbr", "entries": [{"type": 7, "startLba": 2048, "sectorCount": 8192}]},
    "volumes": [{"partition": 1, "letter": "S"}]})");
  sim::windows::testing::install({makeDisk("a", 65536, std::make_shared<FakeAta>(), nullptr, volume),
                                  makeDisk("b", 65536, std::make_shared<FakeAta>(), nullptr, volume)});
  TestScanner scanner;
  scanner.map()[0] = {"\\\\.\\S:", "\\\\.\\PhysicalDrive9"};
  std::string text = "kept";
  EXPECT_EQ(scanner.getDeviceNumberText(0, &text), 1u);
  EXPECT_EQ(text, "kept");
}

TEST_F(WinStorageScannerTest, UnmountVolumeOpensTheVolumeOfTheMountPointLocksAndDismountsIt) {
  sim::windows::testing::install({makeDisk("a", 65536, std::make_shared<FakeAta>(), nullptr, nlohmann::json::parse(R"({
    "partitions": {"scheme": "mbr", "entries": [{"type": 7, "startLba": 2048, "sectorCount": 8192}]},
    "volumes": [{"partition": 1, "letter": "C"}]})"))});
  TestScanner scanner;
  HANDLE handle = nullptr;
  uint32_t optionA = 0, optionB = 0;
  std::vector<std::string> names;
  ASSERT_EQ(scanner.unmountVolume("C:\\", &names, &handle, &optionA, &optionB, false), 0u);
  ASSERT_EQ(scanner.recorder.opened.size(), 1u);
  EXPECT_EQ(scanner.recorder.opened[0], "\\\\.\\C:");
  EXPECT_EQ(scanner.recorder.locks, 1);
  EXPECT_NE(handle, nullptr);
  // While the handle is held the volume can't be asked.
  EXPECT_FALSE(GetVolumeInformationW(WIN32_WIDE("C:\\"), nullptr, 0, nullptr, nullptr, nullptr, nullptr, 0));
  EXPECT_EQ(GetLastError(), ERROR_NOT_READY);
  EXPECT_EQ(scanner.remountVolume("C:\\", names, handle, "NTFS", optionA, optionB), 0u);
  EXPECT_TRUE(GetVolumeInformationW(WIN32_WIDE("C:\\"), nullptr, 0, nullptr, nullptr, nullptr, nullptr, 0));
}

TEST_F(WinStorageScannerTest, UnmountVolumeReturnsTheLockStatusAndClosesTheHandleWhenTheVolumeIsInUse) {
  sim::windows::testing::install({makeDisk("a", 65536, std::make_shared<FakeAta>(), nullptr, nlohmann::json::parse(R"({
    "partitions": {"scheme": "mbr", "entries": [{"type": 7, "startLba": 2048, "sectorCount": 8192}]},
    "volumes": [{"partition": 1, "letter": "D"}]})"))});
  TestScanner scanner;
  HANDLE first = nullptr;
  ASSERT_EQ(scanner.unmountVolume("D:\\", nullptr, &first, nullptr, nullptr, false), 0u);
  HANDLE second = nullptr;
  EXPECT_EQ(scanner.unmountVolume("D:\\", nullptr, &second, nullptr, nullptr, false), ERROR_ACCESS_DENIED);
  EXPECT_EQ(second, nullptr) << "the closed handle is not handed out";
  EXPECT_EQ(scanner.remountVolume("", {}, first, "", 0, 0), 0u);
}

TEST_F(WinStorageScannerTest, UnmountVolumeOfAnUnknownLetterReturnsTheOpenStatus) {
  TestScanner scanner;
  HANDLE handle = nullptr;
  EXPECT_EQ(scanner.unmountVolume("Q:\\", nullptr, &handle, nullptr, nullptr, false), ERROR_FILE_NOT_FOUND);
  EXPECT_EQ(scanner.recorder.locks, 0);
}

TEST_F(WinStorageScannerTest, RemountVolumeFailsOnlyWhenTheHandleDoesNotClose) {
  TestScanner scanner;
  EXPECT_EQ(scanner.remountVolume("C:\\", {}, reinterpret_cast<HANDLE>(0x7777), "NTFS", 0, 0), 1u);
}

}  // namespace
