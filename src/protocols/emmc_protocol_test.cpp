// EmmcProtocol: its description of the drive and its volumes on the simulated
// PC, and its fixed answers; a scripted EmmcUtils stands in where the calls
// below must fail.
#include "protocols/emmc_protocol.h"

#include <gtest/gtest.h>

#include <cstring>
#include <vector>

#include "testing/simulated_pc.h"

namespace {

const char* kMachine = R"({"name": "emmc", "disks": [
  {"name": "emmc0", "kind": "emmc", "bus": "mmc", "profile": {"capacitySectors": 1028160},
   "media": {"fill": "lba"},
   "descriptor": {"vendorId": " Toshiba ", "productId": "BJTD4R", "productRevision": "0800",
                  "serialNumber": "0x9d0a8a30"},
   "partitions": {"scheme": "gpt", "entries": [
     {"type": "c12a7328-f81f-11d2-ba4b-00a0c93ec93b", "startLba": 2048, "sectorCount": 100000},
     {"type": "ebd0a0a2-b9e5-4433-87c0-68b6b72699c7", "startLba": 102400, "sectorCount": 500000}]},
   "volumes": [{"partition": 1, "letter": "C", "fileSystem": "FAT32"},
               {"partition": 2, "letter": "D", "fileSystem": "NTFS"}]}]})";

// The calls below the protocol, each answering as a test sets it and counting
// how often it was made.
class ScriptedEmmcUtils : public EmmcUtils {
 public:
  uint32_t openDevice(HANDLE*, std::string) override { return kStatusEmmcOpenFailed; }
  uint32_t openForRead(HANDLE*, std::string) override { return kStatusEmmcOpenFailed; }
  uint32_t openForExclusiveRead(HANDLE*, std::string) override { return kStatusEmmcOpenFailed; }
  void closeHandleAt(HANDLE*) override {}
  void closeDevice(HANDLE) override {}
  uint32_t getGeometry(HANDLE, EmmcGeometry* out) override {
    ++calls;
    *out = geometry;
    return geometryStatus;
  }
  uint32_t getFileClusterCount(HANDLE, uint64_t*) override { return kStatusNotAvailable; }
  uint32_t createDirectory(std::string) override { return kStatusNotAvailable; }
  uint32_t moveFileClusters(HANDLE, HANDLE, uint64_t, uint32_t, uint32_t*) override { return kStatusNotAvailable; }
  uint32_t getDeviceStrings(HANDLE, EmmcDeviceStrings* out) override {
    ++calls;
    std::strcpy(out->productId, "MODEL");
    std::strcpy(out->serialNumber, "SERIAL");
    return stringsStatus;
  }
  uint32_t readSectors(HANDLE, uint64_t lba, uint16_t, void*, StorageProtocolProperties properties) override {
    ++calls;
    lastLba = lba;
    lastProperties = properties;
    return kStatusOk;
  }
  uint32_t countUsedSamples(HANDLE, uint64_t, uint32_t*, uint32_t*, const std::vector<ClusterExtent>&,
                            std::map<int32_t, uint32_t>&) override {
    return kStatusNotAvailable;
  }
  uint32_t planFreeSpace(TestRunContext*, HANDLE, std::string, EmmcSamplePlan*) override {
    return kStatusNotAvailable;
  }
  uint32_t listVolumes(HANDLE, std::vector<EmmcVolume>* out) override {
    ++calls;
    if (volumesStatus == kStatusOk) *out = volumes;
    return volumesStatus;
  }

  EmmcGeometry geometry;
  uint32_t geometryStatus = kStatusOk;
  uint32_t stringsStatus = kStatusOk;
  uint32_t volumesStatus = kStatusOk;
  std::vector<EmmcVolume> volumes;
  int calls = 0;
  uint64_t lastLba = 0;
  StorageProtocolProperties lastProperties;
};

class EmmcProtocolTest : public mstest::SimulatedPcTest {};

TEST_F(EmmcProtocolTest, GetPropertiesDescribesTheDriveFromGeometryAndDescriptor) {
  installJson(kMachine);
  EmmcProtocol protocol(openDisk(0), "\\\\.\\PhysicalDrive0");
  StorageProtocolProperties properties;
  ASSERT_EQ(protocol.getProperties(&properties), kStatusOk);
  EXPECT_EQ(properties.model, "BJTD4R");
  EXPECT_EQ(properties.serialNumber, "0x9d0a8a30");
  EXPECT_EQ(properties.vendor, "Toshiba");
  EXPECT_EQ(properties.firmwareRevision, "0800");
  EXPECT_EQ(properties.sectorCount, 1028160u);
  EXPECT_EQ(properties.logicalSectorSize, 512u);
  EXPECT_EQ(properties.physicalSectorSize, 512u);
  EXPECT_TRUE(properties.isSolidState);
  EXPECT_FALSE(properties.removable);
  EXPECT_FALSE(properties.smartEnabled);
  EXPECT_FALSE(properties.lba48Supported);
  EXPECT_TRUE(properties.supportedStandards.empty());
  StorageProtocolProperties cached;
  protocol.getCachedProperties(&cached);
  EXPECT_EQ(cached.model, "BJTD4R");
  EXPECT_EQ(protocol.getPath(), "\\\\.\\PhysicalDrive0");
}

TEST_F(EmmcProtocolTest, GetPropertiesListsTheVolumesOfTheDrive) {
  installJson(kMachine);
  EmmcProtocol protocol(openDisk(0), "\\\\.\\PhysicalDrive0");
  StorageProtocolProperties properties;
  ASSERT_EQ(protocol.getProperties(&properties), kStatusOk);
  const std::vector<StoragePartitionProperties>& partitions = protocol.getPartitions();
  ASSERT_EQ(partitions.size(), 2u);
  EXPECT_EQ(partitions[0].volumePath, "\\\\.\\C:");
  EXPECT_EQ(partitions[0].fileSystem, "FAT32");
  EXPECT_EQ(partitions[1].volumePath, "\\\\.\\D:");
  EXPECT_EQ(partitions[1].fileSystem, "NTFS");
}

TEST_F(EmmcProtocolTest, TempPathOfTheRootDContainsADoubledBackslash) {
  installJson(kMachine);
  EmmcProtocol protocol(openDisk(0), "\\\\.\\PhysicalDrive0");
  StorageProtocolProperties properties;
  ASSERT_EQ(protocol.getProperties(&properties), kStatusOk);
  ASSERT_EQ(protocol.getPartitions().size(), 2u);
  EXPECT_EQ(protocol.getPartitions()[1].tempPath, "D:\\\\Temp");
}

TEST_F(EmmcProtocolTest, GetSmartStatusLeavesHealthyAsTheCallerSetItAndReturns0) {
  ScriptedEmmcUtils utils;
  EmmcProtocol protocol(nullptr, "", &utils);
  uint8_t healthy = 0;
  EXPECT_EQ(protocol.getSmartStatus(&healthy), kStatusOk);
  EXPECT_EQ(healthy, 0);
  healthy = 7;
  EXPECT_EQ(protocol.getSmartStatus(&healthy), kStatusOk);
  EXPECT_EQ(healthy, 7);
  EXPECT_EQ(utils.calls, 0);
}

TEST_F(EmmcProtocolTest, SelfTestsSmartAndWritesDoNothingAndSucceed) {
  ScriptedEmmcUtils utils;
  EmmcProtocol protocol(nullptr, "", &utils);
  uint8_t progress = 42;
  uint8_t status = 9;
  EXPECT_EQ(protocol.startSelfTest(1, 0), kStatusOk);
  EXPECT_EQ(protocol.getSelfTestProgress(&progress), kStatusOk);
  EXPECT_EQ(protocol.getSelfTestStatus(&status), kStatusOk);
  EXPECT_EQ(progress, 42);
  EXPECT_EQ(status, 9);
  EXPECT_EQ(protocol.abortSelfTest(), kStatusOk);
  EXPECT_EQ(protocol.enableSmart(1), kStatusOk);
  EXPECT_EQ(protocol.writeUncorrectable(5), kStatusOk);
  uint8_t sector[512] = {};
  EXPECT_EQ(protocol.writeSector(5, sector), kStatusOk);
  uint64_t lba = 99;
  EXPECT_EQ(protocol.getSelfTestFailingLba(&lba), kStatusOk);
  EXPECT_EQ(lba, 0u);
  uint8_t celsius = 55;
  EXPECT_EQ(protocol.getTemperature(&celsius), kStatusOk);
  EXPECT_EQ(celsius, 0);
  EXPECT_TRUE(protocol.isAccessible());
  EXPECT_EQ(utils.calls, 0);
}

TEST_F(EmmcProtocolTest, WritesLeaveTheMediumUntouched) {
  sim::Machine* machine = installJson(kMachine);
  ASSERT_NE(machine, nullptr);
  EmmcProtocol protocol(openDisk(0), "\\\\.\\PhysicalDrive0");
  std::vector<uint8_t> sector(512, 0xAB);
  EXPECT_EQ(protocol.writeSector(700000, sector.data()), kStatusOk);
  EXPECT_FALSE(machine->disks[0].media->isStored(700000));
}

TEST_F(EmmcProtocolTest, GetPropertiesKeepsTheCacheWhenTheGeometryFailsAndReportsNoFailure) {
  ScriptedEmmcUtils utils;
  utils.geometry.totalSectors = 1000;
  utils.geometry.bytesPerSector = 512;
  EmmcProtocol protocol(nullptr, "", &utils);
  StorageProtocolProperties first;
  ASSERT_EQ(protocol.getProperties(&first), kStatusOk);
  EXPECT_EQ(first.model, "MODEL");
  utils.geometryStatus = kStatusEmmcGeometryFailed;
  utils.geometry.totalSectors = 5;
  StorageProtocolProperties second;
  EXPECT_EQ(protocol.getProperties(&second), kStatusOk);
  EXPECT_EQ(second.sectorCount, 1000u);
  EXPECT_EQ(second.model, "MODEL");
}

TEST_F(EmmcProtocolTest, GetPropertiesOfADriveThatNeverAnsweredGivesAnEmptyRecord) {
  ScriptedEmmcUtils utils;
  utils.stringsStatus = kStatusIoctlFailed;
  EmmcProtocol protocol(nullptr, "", &utils);
  StorageProtocolProperties properties;
  properties.model = "stale";
  EXPECT_EQ(protocol.getProperties(&properties), kStatusOk);
  EXPECT_EQ(properties.model, "");
  EXPECT_EQ(properties.sectorCount, 0u);
}

TEST_F(EmmcProtocolTest, AFailedVolumeListIsTheResultAndKeepsTheOldPartitions) {
  ScriptedEmmcUtils utils;
  utils.volumes = {{"\\\\.\\E:", "E:\\", "NTFS"}};
  EmmcProtocol protocol(nullptr, "", &utils);
  StorageProtocolProperties properties;
  ASSERT_EQ(protocol.getProperties(&properties), kStatusOk);
  ASSERT_EQ(protocol.getPartitions().size(), 1u);
  utils.volumesStatus = kStatusNotAvailable;
  utils.volumes.clear();
  EXPECT_EQ(protocol.getProperties(&properties), kStatusNotAvailable);
  // The record was still copied out.
  EXPECT_EQ(properties.model, "MODEL");
  ASSERT_EQ(protocol.getPartitions().size(), 1u);
  EXPECT_EQ(protocol.getPartitions()[0].tempPath, "E:\\\\Temp");
}

TEST_F(EmmcProtocolTest, GetPropertiesWithoutARecordGives2) {
  ScriptedEmmcUtils utils;
  EmmcProtocol protocol(nullptr, "", &utils);
  EXPECT_EQ(protocol.getProperties(nullptr), kStatusBadArgument);
  EXPECT_EQ(utils.calls, 0);
}

TEST_F(EmmcProtocolTest, ReadSectorsPassesTheCachedRecord) {
  ScriptedEmmcUtils utils;
  utils.geometry.totalSectors = 1000;
  utils.geometry.bytesPerSector = 4096;
  EmmcProtocol protocol(nullptr, "", &utils);
  StorageProtocolProperties properties;
  ASSERT_EQ(protocol.getProperties(&properties), kStatusOk);
  uint8_t buffer[4096];
  EXPECT_EQ(protocol.readSectors(17, 1, 30, buffer), kStatusOk);
  EXPECT_EQ(utils.lastLba, 17u);
  EXPECT_EQ(utils.lastProperties.sectorCount, 1000u);
  EXPECT_EQ(utils.lastProperties.physicalSectorSize, 4096u);
}

TEST_F(EmmcProtocolTest, ReadSectorsOnTheSimulatedDriveReadsTheRequestedSectorFirst) {
  installJson(kMachine);
  EmmcProtocol protocol(openDisk(0), "\\\\.\\PhysicalDrive0");
  StorageProtocolProperties properties;
  ASSERT_EQ(protocol.getProperties(&properties), kStatusOk);
  std::vector<uint8_t> buffer(512);
  ASSERT_EQ(protocol.readSectors(900000, 1, 10, buffer.data()), kStatusOk);
  uint64_t word = 0;
  std::memcpy(&word, buffer.data(), 8);
  EXPECT_EQ(word, 900000u);
  EXPECT_EQ(protocol.readSectors(properties.sectorCount + 1, 1, 10, buffer.data()),
            static_cast<uint32_t>(kStatusEmmcBeyondEnd));
}

}  // namespace
