// A disk's description: name, identity, details, attributes and partition
// sections from a scripted protocol and partition records; the volumes taken
// and given back on the simulated PC.
#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <vector>

#include "components/storage_component.h"
#include "system/number_handler.h"
#include "testing/scripted_protocol.h"
#include "testing/simulated_pc.h"

namespace {

using mstest::Op;
using mstest::ScriptedProtocol;

StorageProtocolProperties hardDisk() {
  StorageProtocolProperties p;
  p.vendor = "WDC";
  p.model = "WDC WD10EZEX-08WN4A0";
  p.serialNumber = "WD-WCC6Y3KL5627";
  p.firmwareRevision = "01.01A01";
  p.sectorCount = 1953525168;
  p.logicalSectorSize = 512;
  p.physicalSectorSize = 4096;
  p.rotationRate = 7200;
  p.cacheSize = 128;
  p.supportedStandards = {"ATA8-ACS", "ACS-2", "ACS-3"};
  p.standardVersion = "ACS-3 revision 5";
  return p;
}

// A component on a scripted protocol that reports `properties`.
struct Described {
  explicit Described(const StorageProtocolProperties& properties, std::unique_ptr<DiskPartitions> partitions = nullptr,
                     uint32_t location = kLocationInternal) {
    auto scripted = std::make_unique<ScriptedProtocol>();
    scripted->setProperties(properties);
    protocol = scripted.get();
    component = std::make_unique<StorageComponent>(std::move(scripted), std::move(partitions));
    component->setLocation(location);
    component->setBusKind(kBusAta);
  }
  std::vector<std::string> keys() const {
    std::vector<std::string> out;
    for (const DetailEntry& entry : component->getDetails()) out.push_back(entry.key);
    return out;
  }
  std::string value(const std::string& key) const {
    for (const DetailEntry& entry : component->getDetails()) {
      if (entry.key == key) return entry.value;
    }
    return "<absent>";
  }
  std::map<std::string, std::string> attributes() const { return component->getDescription().attributes; }

  ScriptedProtocol* protocol;
  std::unique_ptr<StorageComponent> component;
};

std::string size(uint64_t bytes) { return getNumberHandler().formatBytes(bytes); }

TEST(Describe, GivesTheDetailsInTheirOrderWithTheirValues) {
  auto partitions = std::make_unique<DiskPartitions>();
  partitions->schemeName = "GPT";
  partitions->unallocatedBytes = 1048576;
  Described disk(hardDisk(), std::move(partitions));
  disk.protocol->script(Op::GetTemperature, 0, 36);
  ASSERT_EQ(disk.component->describe(nullptr, ""), kStatusOk);
  EXPECT_EQ(disk.keys(), (std::vector<std::string>{"UDI", "MANUFACTURER", "MODEL", "SERIAL", "FIRMWARE", "SIZE",
                                                   "ROTATION_RATE", "CACHE", "TEMPERATURE", "PHYSICAL_SECTOR_SIZE",
                                                   "LOGICAL_SECTOR_SIZE", "LOGICAL_SECTORS", "SUPPORTED_STANDARDS",
                                                   "SPEC_VERSION", "PARTITION_SCHEMA", "UNALLOCATED"}));
  EXPECT_EQ(disk.value("UDI"), "WDC-WDCWD10EZEX-08WN4A0-WD-WCC6Y3KL5627");
  EXPECT_EQ(disk.value("MANUFACTURER"), "WDC");
  EXPECT_EQ(disk.value("MODEL"), "WDC WD10EZEX-08WN4A0");
  EXPECT_EQ(disk.value("SERIAL"), "WD-WCC6Y3KL5627");
  EXPECT_EQ(disk.value("FIRMWARE"), "01.01A01");
  EXPECT_EQ(disk.value("SIZE"), size(1953525168ull * 512));
  EXPECT_EQ(disk.value("SIZE"), "931.51 GBs");
  EXPECT_EQ(disk.value("ROTATION_RATE"), "7200 RPM");
  EXPECT_EQ(disk.value("CACHE"), size(128 * 512));
  EXPECT_EQ(disk.value("TEMPERATURE"), "36 C");
  EXPECT_EQ(disk.value("PHYSICAL_SECTOR_SIZE"), "4096");
  EXPECT_EQ(disk.value("LOGICAL_SECTOR_SIZE"), "512");
  EXPECT_EQ(disk.value("LOGICAL_SECTORS"), "1953525168");
  EXPECT_EQ(disk.value("SUPPORTED_STANDARDS"), "ATA8-ACS, ACS-2, ACS-3");
  EXPECT_EQ(disk.value("SPEC_VERSION"), "ACS-3 revision 5");
  EXPECT_EQ(disk.value("PARTITION_SCHEMA"), "GPT");
  EXPECT_EQ(disk.value("UNALLOCATED"), "1.00 MB");
  EXPECT_EQ(disk.component->getDescription().name, "WDC WD10EZEX-08WN4A0 - 931.51 GBs");
  EXPECT_EQ(disk.attributes().at("parent"), "LOCAL_DRIVES");
  EXPECT_EQ(disk.attributes().at("NonRotatingMedia"), "F");
}

TEST(Describe, AnEmptyVendorLeavesTheLeadingDashAndBlanksLeaveTheUdi) {
  StorageProtocolProperties p;
  p.model = "ST500";
  p.serialNumber = "123 45";
  p.sectorCount = 976773168;
  p.logicalSectorSize = 512;
  Described disk(p);
  ASSERT_EQ(disk.component->describe(nullptr, ""), kStatusOk);
  EXPECT_EQ(disk.component->getUdi(), "-ST500-12345");
  EXPECT_EQ(disk.component->getDescription().name, "ST500 - " + size(976773168ull * 512));
  EXPECT_EQ(disk.value("SERIAL"), "123 45");
  EXPECT_EQ(disk.value("MANUFACTURER"), "<absent>");
}

TEST(Describe, AModelWithBytesAbove126LosesThemButTheFirmwareKeepsItsBytes) {
  StorageProtocolProperties p;
  p.vendor = "ACME";
  p.model = "  Fast\xC3\xA9 Disk\x7F ";
  p.serialNumber = "S1";
  p.firmwareRevision = "F\xC3\xA9 1";
  Described disk(p);
  ASSERT_EQ(disk.component->describe(nullptr, ""), kStatusOk);
  EXPECT_EQ(disk.component->getDescription().name, "Fast Disk");
  EXPECT_EQ(disk.value("MODEL"), "Fast Disk");
  EXPECT_EQ(disk.component->getUdi(), "ACME-FastDisk-S1");
  EXPECT_EQ(disk.value("FIRMWARE"), "F\xC3\xA9 1");
}

TEST(Describe, AComponentAtLocationZeroHasNoParentAttribute) {
  Described disk(hardDisk(), nullptr, kLocationUnknown);
  ASSERT_EQ(disk.component->describe(nullptr, ""), kStatusOk);
  EXPECT_EQ(disk.attributes().count("parent"), 0u);
  EXPECT_EQ(disk.attributes().count("NonRotatingMedia"), 1u);
}

TEST(Describe, AnExternalDiskIsAUsbDriveAndASolidStateOneNonRotating) {
  StorageProtocolProperties p = hardDisk();
  p.isSolidState = true;
  Described disk(p, nullptr, kLocationExternal);
  ASSERT_EQ(disk.component->describe(nullptr, ""), kStatusOk);
  EXPECT_EQ(disk.attributes().at("parent"), "USB_DRIVES");
  EXPECT_EQ(disk.attributes().at("NonRotatingMedia"), "T");
}

TEST(Describe, ADriveBehindARaidControllerHasItsParentAndNoStandardsSchemaOrSections) {
  Described disk(hardDisk(), nullptr, kLocationRaid);
  disk.component->setBusKind(kBusRaid);
  ASSERT_EQ(disk.component->describe(nullptr, "X - 1"), kStatusOk);
  disk.component->describePartitions();
  EXPECT_EQ(disk.attributes().at("parent"), "RAID_ATTACHED_DRIVES\\X - 1");
  EXPECT_EQ(disk.value("SUPPORTED_STANDARDS"), "<absent>");
  EXPECT_EQ(disk.value("PARTITION_SCHEMA"), "<absent>");
  EXPECT_EQ(disk.value("UNALLOCATED"), "<absent>");
  EXPECT_TRUE(disk.component->getSections().empty());
}

TEST(Describe, AParentNameWinsOverTheLocation) {
  Described disk(hardDisk(), nullptr, kLocationInternal);
  ASSERT_EQ(disk.component->describe(nullptr, "MegaRAID 9361"), kStatusOk);
  EXPECT_EQ(disk.attributes().at("parent"), "RAID_ATTACHED_DRIVES\\MegaRAID 9361");
  // Neither bus nor location is 3: the standards stay.
  EXPECT_EQ(disk.value("SUPPORTED_STANDARDS"), "ATA8-ACS, ACS-2, ACS-3");
}

TEST(Describe, AFailedGetPropertiesEndsItWithThatStatusAndFillsNothing) {
  Described disk(hardDisk());
  disk.protocol->script(Op::GetProperties, 35);
  EXPECT_EQ(disk.component->describe(nullptr, ""), 35u);
  EXPECT_TRUE(disk.component->getDetails().empty());
  EXPECT_TRUE(disk.attributes().empty());
  EXPECT_EQ(disk.component->getDescription().name, "");
}

TEST(Describe, AFailingTemperatureOnlyDropsItsEntry) {
  Described disk(hardDisk());
  disk.protocol->script(Op::GetTemperature, 1, 40);
  ASSERT_EQ(disk.component->describe(nullptr, ""), kStatusOk);
  EXPECT_EQ(disk.value("TEMPERATURE"), "<absent>");
  EXPECT_EQ(disk.value("ROTATION_RATE"), "7200 RPM");
}

TEST(Describe, AnotherProtocolDescribesInsteadOfTheComponentsOwn) {
  Described disk(hardDisk());
  ScriptedProtocol other;
  StorageProtocolProperties p;
  p.model = "Behind The Bridge";
  p.serialNumber = "B1";
  other.setProperties(p);
  other.script(Op::GetTemperature, 0, 31);
  ASSERT_EQ(disk.component->describe(&other, ""), kStatusOk);
  EXPECT_EQ(disk.value("MODEL"), "Behind The Bridge");
  EXPECT_EQ(disk.value("TEMPERATURE"), "31 C");
  EXPECT_EQ(disk.protocol->count(Op::GetProperties), 0u);
  EXPECT_EQ(disk.protocol->count(Op::GetTemperature), 0u);
}

TEST(Describe, TheNameTakesThePhysicalSizeWhenTheLogicalOneIsUnknown) {
  StorageProtocolProperties p;
  p.model = "M";
  p.sectorCount = 1000;
  p.physicalSectorSize = 4096;
  Described disk(p);
  ASSERT_EQ(disk.component->describe(nullptr, ""), kStatusOk);
  EXPECT_EQ(disk.component->getDescription().name, "M - " + size(4096000));
  EXPECT_EQ(disk.value("SIZE"), "<absent>");
  EXPECT_EQ(disk.value("LOGICAL_SECTOR_SIZE"), "<absent>");
  EXPECT_EQ(disk.value("PHYSICAL_SECTOR_SIZE"), "4096");
}

TEST(Describe, NothingUnallocatedIsStillShown) {
  auto partitions = std::make_unique<DiskPartitions>();
  Described disk(hardDisk(), std::move(partitions));
  ASSERT_EQ(disk.component->describe(nullptr, ""), kStatusOk);
  EXPECT_EQ(disk.value("UNALLOCATED"), "0.00 byte");
  // An empty scheme name gives no entry.
  EXPECT_EQ(disk.value("PARTITION_SCHEMA"), "<absent>");
}

PartitionRecord record(uint64_t index, const std::string& type, uint64_t size) {
  PartitionRecord r;
  r.index = index;
  r.type = type;
  r.size = size;
  return r;
}

std::vector<std::string> keysOf(const DetailSection& section) {
  std::vector<std::string> out;
  for (const DetailEntry& entry : section.entries) out.push_back(entry.key);
  return out;
}

TEST(DescribePartitions, GivesOneSectionPerRecordWithTheVolumesData) {
  auto partitions = std::make_unique<DiskPartitions>();
  PartitionRecord c = record(1, "PRIMARY", 104857600);
  c.fileSystem = "ntfs";
  c.label = std::string("System\0junk", 11);
  c.mountPoints = {"C:\\", "E:\\"};
  c.volumeSerial = "1A2B3C4D";
  c.usedBytes = 52428800;
  c.freeBytes = 52428800;
  partitions->records.push_back(c);
  Described disk(hardDisk(), std::move(partitions));
  disk.component->describePartitions();
  const std::vector<DetailSection> sections = disk.component->getSections();
  ASSERT_EQ(sections.size(), 1u);
  EXPECT_EQ(sections[0].title, "PARTITION");
  EXPECT_EQ(keysOf(sections[0]), (std::vector<std::string>{"INDEX", "PARTITION_TYPE", "FILE_SYSTEM", "LABEL",
                                                           "MOUNT_POINT", "SERIAL", "SIZE", "USED", "FREE"}));
  EXPECT_EQ(sections[0].entries[0].value, "1");
  EXPECT_EQ(sections[0].entries[3].value, "System");
  EXPECT_EQ(sections[0].entries[4].value, "C:\\");
  EXPECT_EQ(sections[0].entries[6].value, "100.00 MBs");
  EXPECT_EQ(sections[0].entries[7].value, "50.00 MBs");
}

TEST(DescribePartitions, AnExtendedPartitionGivesIndexTypeAndSizeOnly) {
  auto partitions = std::make_unique<DiskPartitions>();
  PartitionRecord extended = record(0, "EXTENDED", 209715200);
  extended.fileSystem = "ignored";
  extended.mountPoints = {"X:\\"};
  extended.freeBytes = 5;
  partitions->records.push_back(extended);
  Described disk(hardDisk(), std::move(partitions));
  disk.component->describePartitions();
  const std::vector<DetailSection> sections = disk.component->getSections();
  ASSERT_EQ(sections.size(), 1u);
  EXPECT_EQ(keysOf(sections[0]), (std::vector<std::string>{"INDEX", "PARTITION_TYPE", "SIZE"}));
  EXPECT_EQ(sections[0].entries[1].value, "EXTENDED");
}

TEST(DescribePartitions, APartitionWithoutMountPointHasNoMountPointAndNoUsedOrFree) {
  auto partitions = std::make_unique<DiskPartitions>();
  PartitionRecord hidden = record(2, "_E|F|I_SYSTEM_PARTITION", 104857600);
  partitions->records.push_back(hidden);
  Described disk(hardDisk(), std::move(partitions));
  disk.component->describePartitions();
  const std::vector<DetailSection> sections = disk.component->getSections();
  ASSERT_EQ(sections.size(), 1u);
  EXPECT_EQ(keysOf(sections[0]), (std::vector<std::string>{"INDEX", "PARTITION_TYPE", "SIZE"}));
}

TEST(DescribePartitions, DoesNothingWithoutPartitions) {
  Described disk(hardDisk());
  disk.component->describePartitions();
  EXPECT_TRUE(disk.component->getSections().empty());
}

TEST(DescribePartitions, AnUnknownTypeGivesNoTypeEntryButStillASection) {
  auto partitions = std::make_unique<DiskPartitions>();
  partitions->records.push_back(record(1, "", 0));
  partitions->records.push_back(record(2, "PRIMARY", 0));
  Described disk(hardDisk(), std::move(partitions));
  disk.component->describePartitions();
  const std::vector<DetailSection> sections = disk.component->getSections();
  ASSERT_EQ(sections.size(), 2u);
  EXPECT_EQ(keysOf(sections[0]), (std::vector<std::string>{"INDEX"}));
  EXPECT_EQ(sections[1].entries[0].value, "2");
}

class VolumeTakingTest : public mstest::SimulatedPcTest {
 protected:
  void SetUp() override {
    SimulatedPcTest::SetUp();
    installJson(R"({"name": "volumes", "disks": [
      {"name": "hdd0", "kind": "ata", "profile": {"model": "M", "serial": "S", "capacitySectors": 2097152},
       "partitions": {"scheme": "mbr", "entries": [
         {"type": 7, "startLba": 2048, "sectorCount": 500000},
         {"type": 7, "startLba": 600000, "sectorCount": 500000}]},
       "volumes": [{"partition": 1, "letter": "D"}, {"partition": 2, "letter": "E"}]}]})");
  }

  std::unique_ptr<StorageComponent> componentWith(std::vector<std::string> mounts) {
    auto partitions = std::make_unique<DiskPartitions>();
    uint64_t index = 1;
    for (const std::string& mount : mounts) {
      PartitionRecord r = record(index++, "PRIMARY", 256000000);
      if (!mount.empty()) r.mountPoints = {mount};
      partitions->records.push_back(r);
    }
    auto component = std::make_unique<StorageComponent>(std::make_unique<ScriptedProtocol>(), std::move(partitions));
    component->setId("0");
    return component;
  }

  // Whether another caller could take the volume now.
  bool lockable(const std::string& volume) {
    HANDLE handle = CreateFileA(volume.c_str(), GENERIC_READ | GENERIC_WRITE, FILE_SHARE_READ | FILE_SHARE_WRITE,
                                nullptr, OPEN_EXISTING, 0, nullptr);
    if (handle == INVALID_HANDLE_VALUE) return false;
    DWORD returned = 0;
    const bool locked = DeviceIoControl(handle, FSCTL_LOCK_VOLUME, nullptr, 0, nullptr, 0, &returned, nullptr) != 0;
    if (locked) DeviceIoControl(handle, FSCTL_UNLOCK_VOLUME, nullptr, 0, nullptr, 0, &returned, nullptr);
    CloseHandle(handle);
    return locked;
  }
};

TEST_F(VolumeTakingTest, UnmountVolumesTakesEachMountedVolumeAndRemountGivesThemBack) {
  auto component = componentWith({"D:\\", "", "E:\\"});
  ASSERT_EQ(component->unmountVolumes(), kStatusOk);
  const std::vector<PartitionRecord>& records = component->getPartitions()->records;
  EXPECT_NE(records[0].unmountHandle, nullptr);
  EXPECT_EQ(records[0].isUnmounted, 1);
  EXPECT_EQ(records[1].unmountHandle, nullptr);  // no mount point
  EXPECT_EQ(records[1].isUnmounted, 0);
  EXPECT_NE(records[2].unmountHandle, nullptr);
  EXPECT_FALSE(lockable("\\\\.\\D:"));
  EXPECT_FALSE(lockable("\\\\.\\E:"));

  ASSERT_EQ(component->remountVolumes(), kStatusOk);
  EXPECT_EQ(records[0].unmountHandle, nullptr);
  EXPECT_EQ(records[0].isUnmounted, 0);
  EXPECT_EQ(records[2].unmountHandle, nullptr);
  EXPECT_TRUE(lockable("\\\\.\\D:"));
  EXPECT_TRUE(lockable("\\\\.\\E:"));
}

TEST_F(VolumeTakingTest, AVolumeThatCannotBeTakenMakesTheResult1AndTheOthersAreStillTaken) {
  auto component = componentWith({"Q:\\", "E:\\"});
  EXPECT_EQ(component->unmountVolumes(), kStatusNotAvailable);
  const std::vector<PartitionRecord>& records = component->getPartitions()->records;
  EXPECT_EQ(records[0].isUnmounted, 0);
  EXPECT_NE(records[1].unmountHandle, nullptr);
  EXPECT_EQ(component->remountVolumes(), kStatusOk);
  EXPECT_TRUE(lockable("\\\\.\\E:"));
}

TEST_F(VolumeTakingTest, AVolumeAlreadyTakenIsNotTakenTwice) {
  auto component = componentWith({"D:\\"});
  ASSERT_EQ(component->unmountVolumes(), kStatusOk);
  HANDLE first = component->getPartitions()->records[0].unmountHandle;
  EXPECT_EQ(component->unmountVolumes(), kStatusOk);
  EXPECT_EQ(component->getPartitions()->records[0].unmountHandle, first);
  EXPECT_EQ(component->remountVolumes(), kStatusOk);
}

TEST_F(VolumeTakingTest, RemountGivesTheLastCallsStatusAndKeepsAFailedRecord) {
  auto component = componentWith({"D:\\", "E:\\"});
  ASSERT_EQ(component->unmountVolumes(), kStatusOk);
  std::vector<PartitionRecord>& records = component->getPartitions()->records;
  // The first volume's handle is closed behind the component's back: giving
  // it back fails, the second still succeeds and is the result.
  CloseHandle(records[0].unmountHandle);
  EXPECT_EQ(component->remountVolumes(), kStatusOk);
  EXPECT_NE(records[0].unmountHandle, nullptr);
  EXPECT_EQ(records[0].isUnmounted, 1);
  EXPECT_EQ(records[1].isUnmounted, 0);
  // Now only the broken one is left, and its failure is the result.
  EXPECT_EQ(component->remountVolumes(), kStatusNotAvailable);
}

TEST(VolumeTaking, WithoutPartitionsUnmountGives1AndRemountNothing) {
  StorageComponent component(std::make_unique<ScriptedProtocol>(), nullptr);
  EXPECT_EQ(component.unmountVolumes(), kStatusNotAvailable);
  EXPECT_EQ(component.remountVolumes(), kStatusOk);
}

}  // namespace
