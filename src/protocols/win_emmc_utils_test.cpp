// The eMMC calls on the simulated PC: geometry and descriptor strings of an
// eMMC disk, raw reads with their relative move, the volumes of a drive, and
// the free-space sampler on an NTFS volume.
#include "protocols/win_emmc_utils.h"

#include <gtest/gtest.h>

#include <cstring>
#include <vector>

#include "protocols/emmc_protocol.h"
#include "testing/recording_host.h"
#include "testing/simulated_pc.h"

namespace {

// 64 cylinders of 255 x 63 sectors, so that the geometry covers the medium;
// every 8-byte word of a sector holds its LBA.
constexpr uint64_t kSectors = 1028160;

std::string emmcDisk(const std::string& name, const std::string& serial, const std::string& extra = "") {
  return R"({"name": ")" + name + R"(", "kind": "emmc", "bus": "mmc", "profile": {"capacitySectors": 1028160},
     "media": {"fill": "lba"},
     "descriptor": {"vendorId": "", "productId": "BJTD4R", "productRevision": "0800", "serialNumber": ")" +
         serial + "\"}" + extra + "}";
}

std::string machineOf(const std::vector<std::string>& disks) {
  std::string json = R"({"name": "emmc", "disks": [)";
  for (size_t i = 0; i < disks.size(); ++i) json += (i ? ", " : "") + disks[i];
  return json + "]}";
}

// One GPT partition of 500000 sectors from LBA 2048, as volume `letter`.
std::string oneVolume(const std::string& letter, const std::string& fileSystem) {
  return R"(, "partitions": {"scheme": "gpt", "entries": [
       {"type": "ebd0a0a2-b9e5-4433-87c0-68b6b72699c7", "startLba": 2048, "sectorCount": 500000}]},
     "volumes": [{"partition": 1, "letter": ")" +
         letter + R"(", "label": "EMMC", "fileSystem": ")" + fileSystem + R"("}])";
}

StorageProtocolProperties sectors(uint64_t count, uint32_t physical) {
  StorageProtocolProperties properties;
  properties.sectorCount = count;
  properties.logicalSectorSize = 512;
  properties.physicalSectorSize = physical;
  return properties;
}

uint64_t firstWord(const std::vector<uint8_t>& buffer) {
  uint64_t word = 0;
  std::memcpy(&word, buffer.data(), sizeof(word));
  return word;
}

class WinEmmcUtilsTest : public mstest::SimulatedPcTest {
 protected:
  WinEmmcUtils utils;
};

TEST(GetEmmcUtils, HandsOutOneObjectForTheLifeOfTheProcess) {
  EmmcUtils* first = getEmmcUtils();
  ASSERT_NE(first, nullptr);
  EXPECT_EQ(getEmmcUtils(), first);
  EXPECT_NE(dynamic_cast<WinEmmcUtils*>(first), nullptr);
  // Every protocol made without utils of its own shares it.
  EmmcProtocol a(nullptr, "a");
  EmmcProtocol b(nullptr, "b");
  EXPECT_EQ(a.getUtils(), first);
  EXPECT_EQ(b.getUtils(), first);
}

TEST_F(WinEmmcUtilsTest, GetGeometryGivesTheDrivesSectorsAsFixedMedia) {
  installJson(machineOf({emmcDisk("emmc0", "4B2F9A")}));
  EmmcGeometry geometry;
  ASSERT_EQ(utils.getGeometry(openDisk(0), &geometry), kStatusOk);
  EXPECT_EQ(geometry.cylinders, 64u);
  EXPECT_EQ(geometry.tracksPerCylinder, 255u);
  EXPECT_EQ(geometry.sectorsPerTrack, 63u);
  EXPECT_EQ(geometry.bytesPerSector, 512u);
  EXPECT_EQ(geometry.totalSectors, kSectors);
  EXPECT_EQ(geometry.mediaKind, static_cast<uint32_t>(kEmmcMediaFixed));
}

TEST_F(WinEmmcUtilsTest, GetGeometryGives97WhenTheDriveDoesNotAnswer) {
  installJson(machineOf({emmcDisk("emmc0", "4B2F9A")}));
  EmmcGeometry geometry;
  EXPECT_EQ(utils.getGeometry(nullptr, &geometry), static_cast<uint32_t>(kStatusEmmcGeometryFailed));
}

TEST_F(WinEmmcUtilsTest, GetDeviceStringsGivesTheDescriptorsStrings) {
  installJson(machineOf({emmcDisk("emmc0", "0x9d0a8a30")}));
  EmmcDeviceStrings strings;
  ASSERT_EQ(utils.getDeviceStrings(openDisk(0), &strings), kStatusOk);
  EXPECT_STREQ(strings.productId, "BJTD4R");
  EXPECT_STREQ(strings.productRevision, "0800");
  EXPECT_STREQ(strings.serialNumber, "0x9d0a8a30");
  EXPECT_STREQ(strings.vendorId, "");
}

TEST_F(WinEmmcUtilsTest, GetDeviceStringsGives34WhenTheQueryFails) {
  installJson(machineOf({emmcDisk("emmc0", "4B2F9A")}));
  EmmcDeviceStrings strings;
  EXPECT_EQ(utils.getDeviceStrings(nullptr, &strings), static_cast<uint32_t>(kStatusIoctlFailed));
}

TEST_F(WinEmmcUtilsTest, ASerialWithLeadingBlanksComesOutTrimmedAndOneWithAByteAbove127KeepsItsBlanks) {
  installJson(machineOf({emmcDisk("emmc0", "   4B2F9A  "), emmcDisk("emmc1", "  4B\u00e9  ")}));
  EmmcDeviceStrings plain;
  ASSERT_EQ(utils.getDeviceStrings(openDisk(0), &plain), kStatusOk);
  EXPECT_STREQ(plain.serialNumber, "4B2F9A");
  EmmcDeviceStrings wide;
  ASSERT_EQ(utils.getDeviceStrings(openDisk(1), &wide), kStatusOk);
  EXPECT_STREQ(wide.serialNumber, "  4B\xC3\xA9  ");
}

TEST_F(WinEmmcUtilsTest, ReadSectorsAtLbaEqualToSectorCountReachesTheRead) {
  installJson(machineOf({emmcDisk("emmc0", "4B2F9A")}));
  HANDLE disk = openDisk(0);
  std::vector<uint8_t> buffer(512, 0xEE);
  // The record claims ten sectors: sector 10 is still read (the medium has it).
  ASSERT_EQ(utils.readSectors(disk, 10, 1, buffer.data(), sectors(10, 512)), kStatusOk);
  EXPECT_EQ(firstWord(buffer), 10u);
}

TEST_F(WinEmmcUtilsTest, ReadSectorsBeyondSectorCountGives99WithoutReading) {
  installJson(machineOf({emmcDisk("emmc0", "4B2F9A")}));
  HANDLE disk = openDisk(0);
  std::vector<uint8_t> buffer(512, 0xEE);
  EXPECT_EQ(utils.readSectors(disk, 11, 1, buffer.data(), sectors(10, 512)),
            static_cast<uint32_t>(kStatusEmmcBeyondEnd));
  EXPECT_EQ(buffer[0], 0xEE);
  // Nothing moved: a read of sector 0 now lands on sector 0.
  ASSERT_EQ(utils.readSectors(disk, 0, 1, buffer.data(), sectors(10, 512)), kStatusOk);
  EXPECT_EQ(firstWord(buffer), 0u);
}

TEST_F(WinEmmcUtilsTest, TwoReadsOfSectorZeroInARowReadDifferentPlaces) {
  installJson(machineOf({emmcDisk("emmc0", "4B2F9A")}));
  HANDLE disk = openDisk(0);
  std::vector<uint8_t> first(512);
  std::vector<uint8_t> second(512);
  ASSERT_EQ(utils.readSectors(disk, 0, 1, first.data(), sectors(kSectors, 512)), kStatusOk);
  ASSERT_EQ(utils.readSectors(disk, 0, 1, second.data(), sectors(kSectors, 512)), kStatusOk);
  // The move counts from where the last read ended.
  EXPECT_EQ(firstWord(first), 0u);
  EXPECT_EQ(firstWord(second), 1u);
}

TEST_F(WinEmmcUtilsTest, ReadSectorsMovesAndReadsInPhysicalSectors) {
  installJson(machineOf({emmcDisk("emmc0", "4B2F9A")}));
  HANDLE disk = openDisk(0);
  std::vector<uint8_t> buffer(2 * 4096);
  ASSERT_EQ(utils.readSectors(disk, 2, 2, buffer.data(), sectors(kSectors, 4096)), kStatusOk);
  // Offset 2 x 4096 bytes is logical sector 16; 8192 bytes reach sector 31.
  EXPECT_EQ(firstWord(buffer), 16u);
  uint64_t last = 0;
  std::memcpy(&last, buffer.data() + buffer.size() - 8, 8);
  EXPECT_EQ(last, 31u);
}

TEST_F(WinEmmcUtilsTest, ReadSectorsGives98WhenTheReadFails) {
  installJson(machineOf({emmcDisk("emmc0", "4B2F9A")}));
  std::vector<uint8_t> buffer(512);
  // The record claims more than the medium has.
  EXPECT_EQ(utils.readSectors(openDisk(0), kSectors + 100, 1, buffer.data(), sectors(kSectors * 2, 512)),
            static_cast<uint32_t>(kStatusEmmcReadFailed));
  EXPECT_EQ(utils.readSectors(nullptr, 0, 1, buffer.data(), sectors(kSectors, 512)),
            static_cast<uint32_t>(kStatusEmmcReadFailed));
}

TEST_F(WinEmmcUtilsTest, ListVolumesGivesTheFixedVolumesOfTheDrive) {
  installJson(machineOf({emmcDisk("emmc0", "4B2F9A", oneVolume("D", "NTFS")),
                         emmcDisk("emmc1", "77", oneVolume("F", "FAT32"))}));
  std::vector<EmmcVolume> volumes;
  ASSERT_EQ(utils.listVolumes(openDisk(0), &volumes), kStatusOk);
  ASSERT_EQ(volumes.size(), 1u);
  EXPECT_EQ(volumes[0].volumePath, "\\\\.\\D:");
  EXPECT_EQ(volumes[0].rootPath, "D:\\");
  EXPECT_EQ(volumes[0].fileSystem, "NTFS");
  ASSERT_EQ(utils.listVolumes(openDisk(1), &volumes), kStatusOk);
  ASSERT_EQ(volumes.size(), 1u);
  EXPECT_EQ(volumes[0].rootPath, "F:\\");
  EXPECT_EQ(volumes[0].fileSystem, "FAT32");
}

TEST_F(WinEmmcUtilsTest, AVolumeWhoseExtentsLieOnTwoDisksIsListedUnderEachDisk) {
  // The same letter on two disks makes one volume over both.
  installJson(machineOf({emmcDisk("emmc0", "4B2F9A", oneVolume("E", "NTFS")),
                         emmcDisk("emmc1", "77", oneVolume("E", "NTFS"))}));
  std::vector<EmmcVolume> first;
  std::vector<EmmcVolume> second;
  ASSERT_EQ(utils.listVolumes(openDisk(0), &first), kStatusOk);
  ASSERT_EQ(utils.listVolumes(openDisk(1), &second), kStatusOk);
  ASSERT_EQ(first.size(), 1u);
  ASSERT_EQ(second.size(), 1u);
  EXPECT_EQ(first[0].rootPath, "E:\\");
  EXPECT_EQ(second[0].rootPath, "E:\\");
}

TEST_F(WinEmmcUtilsTest, ListVolumesGives1WhenTheDriveDoesNotTellItsNumber) {
  installJson(machineOf({emmcDisk("emmc0", "4B2F9A", oneVolume("D", "NTFS"))}));
  std::vector<EmmcVolume> volumes;
  EXPECT_EQ(utils.listVolumes(nullptr, &volumes), kStatusNotAvailable);
}

TEST_F(WinEmmcUtilsTest, ListVolumesOfADriveWithoutVolumesIsEmpty) {
  installJson(machineOf({emmcDisk("emmc0", "4B2F9A"), emmcDisk("emmc1", "77", oneVolume("D", "NTFS"))}));
  std::vector<EmmcVolume> volumes;
  ASSERT_EQ(utils.listVolumes(openDisk(0), &volumes), kStatusOk);
  EXPECT_TRUE(volumes.empty());
}

TEST_F(WinEmmcUtilsTest, OpenGives31WhenThePathDoesNotOpen) {
  installJson(machineOf({emmcDisk("emmc0", "4B2F9A")}));
  HANDLE handle = nullptr;
  EXPECT_EQ(utils.openDevice(&handle, "\\\\.\\PhysicalDrive9"), static_cast<uint32_t>(kStatusEmmcOpenFailed));
  EXPECT_EQ(utils.openForRead(&handle, "\\\\.\\Q:"), static_cast<uint32_t>(kStatusEmmcOpenFailed));
  ASSERT_EQ(utils.openForExclusiveRead(&handle, "\\\\.\\PhysicalDrive0"), kStatusOk);
  utils.closeHandleAt(&handle);
  ASSERT_EQ(utils.openDevice(&handle, "\\\\.\\PhysicalDrive0"), kStatusOk);
  utils.closeDevice(handle);
}

TEST_F(WinEmmcUtilsTest, PlanFreeSpaceOnAFileSystemOtherThanNtfsProducesNothing) {
  installJson(machineOf({emmcDisk("emmc0", "4B2F9A", oneVolume("D", "FAT32"))}));
  HANDLE volume = openPath("\\\\.\\D:", GENERIC_READ);
  EmmcSamplePlan plan;
  EXPECT_NE(utils.planFreeSpace(nullptr, volume, "FAT32", &plan), kStatusOk);
  EXPECT_NE(utils.planFreeSpace(nullptr, volume, "ntfs", &plan), kStatusOk);
  EXPECT_EQ(plan.bytesPerCluster, 0u);
  EXPECT_EQ(plan.totalClusters, 0u);
  EXPECT_TRUE(plan.excludedRanges.empty());
  for (size_t zone = 0; zone < kZoneCount; ++zone) {
    EXPECT_TRUE(plan.extents[zone].empty());
    EXPECT_TRUE(plan.chosenExtents[zone].empty());
  }
}

// Whether `cluster` is in use according to the volume bitmap.
bool inUse(HANDLE volume, uint64_t cluster) {
  uint64_t start = 0;
  uint64_t clusters = 0;
  std::vector<uint8_t> bits;
  EXPECT_EQ(readVolumeBitmap(volume, cluster, &start, &clusters, &bits), kStatusOk);
  const uint64_t at = cluster - start;
  return at < clusters && ((bits[at / 8] >> (at % 8)) & 1) != 0;
}

TEST_F(WinEmmcUtilsTest, PlanFreeSpaceSamplesFreeExtentsOutsideTheMft) {
  installJson(machineOf({emmcDisk("emmc0", "4B2F9A", oneVolume("D", "NTFS"))}));
  HANDLE volume = openPath("\\\\.\\D:", GENERIC_READ);
  NTFS_VOLUME_DATA_BUFFER data{};
  DWORD returned = 0;
  ASSERT_TRUE(DeviceIoControl(volume, FSCTL_GET_NTFS_VOLUME_DATA, nullptr, 0, &data, sizeof(data), &returned, nullptr));

  EmmcSamplePlan plan;
  ASSERT_EQ(utils.planFreeSpace(nullptr, volume, "NTFS", &plan), kStatusOk);
  EXPECT_EQ(plan.bytesPerCluster, 4096u);
  EXPECT_EQ(plan.totalClusters, static_cast<uint64_t>(data.TotalClusters.QuadPart));
  EXPECT_EQ(plan.freeClusters, static_cast<uint64_t>(data.FreeClusters.QuadPart));
  EXPECT_EQ(plan.sampleClusters, plan.freeClusters);  // far below 5 GiB
  EXPECT_EQ(plan.firstThirdEnd, plan.totalClusters / 3);
  EXPECT_EQ(plan.secondThirdEnd, 2 * plan.totalClusters / 3);
  EXPECT_EQ(plan.extentClusters, 256u);

  const uint64_t mftClusters = static_cast<uint64_t>(data.MftValidDataLength.QuadPart) / 4096;
  const uint64_t mftStart = static_cast<uint64_t>(data.MftStartLcn.QuadPart);
  const uint64_t mirror = static_cast<uint64_t>(data.Mft2StartLcn.QuadPart);
  ASSERT_EQ(plan.excludedRanges.size(), 3u);
  EXPECT_EQ(plan.excludedRanges[0], std::make_pair(mftStart, mftStart + mftClusters));
  EXPECT_EQ(plan.excludedRanges[1], std::make_pair(static_cast<uint64_t>(data.MftZoneStart.QuadPart),
                                                   static_cast<uint64_t>(data.MftZoneEnd.QuadPart)));
  EXPECT_EQ(plan.excludedRanges[2], std::make_pair(mirror, mirror + mftClusters));

  // The simulated volume fills its lower half: the free extents lie in the
  // second and last thirds, 256 clusters each, inside their zone, free and
  // outside the excluded ranges.
  EXPECT_TRUE(plan.extents[kZoneFirstThird].empty());
  EXPECT_FALSE(plan.extents[kZoneSecondThird].empty());
  EXPECT_FALSE(plan.extents[kZoneLastThird].empty());
  const uint64_t zoneStart[] = {0, plan.firstThirdEnd, plan.secondThirdEnd};
  const uint64_t zoneEnd[] = {plan.firstThirdEnd, plan.secondThirdEnd, plan.totalClusters};
  uint64_t sampled = 0;
  for (size_t zone = 0; zone < kZoneCount; ++zone) {
    for (const ClusterExtent& extent : plan.extents[zone]) {
      EXPECT_EQ(extent.second - extent.first + 1, 256u);
      EXPECT_GE(extent.first, zoneStart[zone]);
      EXPECT_LE(extent.second, zoneEnd[zone]);
      EXPECT_FALSE(inUse(volume, extent.first));
      EXPECT_FALSE(inUse(volume, extent.second));
      EXPECT_FALSE(extent.second >= mirror && extent.first < mirror + mftClusters);
    }
    for (int32_t index : plan.chosenExtents[zone]) {
      EXPECT_GE(index, 0);
      EXPECT_LT(static_cast<size_t>(index), plan.extents[zone].size());
    }
    sampled += plan.sampleCount[zone];
  }
  // Each zone counts its free clusters, both ends inside, that lie outside
  // the excluded ranges (the mirror's range is as long as the MFT, so it
  // takes free clusters too).
  uint64_t bitmapStart = 0;
  uint64_t bitmapClusters = 0;
  std::vector<uint8_t> bits;
  ASSERT_EQ(readVolumeBitmap(volume, 0, &bitmapStart, &bitmapClusters, &bits), kStatusOk);
  ASSERT_EQ(bitmapClusters, plan.totalClusters);
  for (size_t zone = 0; zone < kZoneCount; ++zone) {
    uint64_t expected = 0;
    for (uint64_t c = zoneStart[zone]; c <= zoneEnd[zone] && c < plan.totalClusters; ++c) {
      bool excluded = false;
      for (const auto& range : plan.excludedRanges) excluded = excluded || (c >= range.first && c < range.second);
      if (!excluded && ((bits[c / 8] >> (c % 8)) & 1) == 0) ++expected;
    }
    EXPECT_EQ(plan.freeCount[zone], expected) << "zone " << zone;
  }
  EXPECT_LE(sampled, plan.sampleClusters / 256);
  EXPECT_GT(sampled, 0u);
}

TEST_F(WinEmmcUtilsTest, PlanFreeSpaceGivesTheSameChoiceTwice) {
  installJson(machineOf({emmcDisk("emmc0", "4B2F9A", oneVolume("D", "NTFS"))}));
  HANDLE volume = openPath("\\\\.\\D:", GENERIC_READ);
  EmmcSamplePlan first;
  EmmcSamplePlan second;
  ASSERT_EQ(utils.planFreeSpace(nullptr, volume, "NTFS", &first), kStatusOk);
  ASSERT_EQ(utils.planFreeSpace(nullptr, volume, "NTFS", &second), kStatusOk);
  for (size_t zone = 0; zone < kZoneCount; ++zone) {
    EXPECT_EQ(first.extents[zone], second.extents[zone]);
    EXPECT_EQ(first.chosenExtents[zone], second.chosenExtents[zone]);
  }
}

TEST_F(WinEmmcUtilsTest, PlanFreeSpaceStopsWith11WhenTheRunIsAborted) {
  installJson(machineOf({emmcDisk("emmc0", "4B2F9A", oneVolume("D", "NTFS"))}));
  HANDLE volume = openPath("\\\\.\\D:", GENERIC_READ);
  mstest::ScriptedRunContext context(nullptr, nullptr, nullptr);
  context.abortOnCall = 100;
  EmmcSamplePlan plan;
  EXPECT_EQ(utils.planFreeSpace(&context, volume, "NTFS", &plan), static_cast<uint32_t>(kStatusEmmcAborted));
  EXPECT_EQ(context.abortQueries, 100);
}

TEST_F(WinEmmcUtilsTest, PlanFreeSpaceGives1WhenTheVolumeIsNoNtfsVolume) {
  installJson(machineOf({emmcDisk("emmc0", "4B2F9A", oneVolume("D", "FAT32"))}));
  EmmcSamplePlan plan;
  // The caller says NTFS, the volume answers otherwise.
  EXPECT_EQ(utils.planFreeSpace(nullptr, openPath("\\\\.\\D:", GENERIC_READ), "NTFS", &plan), kStatusNotAvailable);
}

TEST_F(WinEmmcUtilsTest, CountUsedSamplesFindsTheExtentsThatHaveBeenTaken) {
  installJson(machineOf({emmcDisk("emmc0", "4B2F9A", oneVolume("D", "NTFS"))}));
  HANDLE volume = openPath("\\\\.\\D:", GENERIC_READ);
  EmmcSamplePlan plan;
  ASSERT_EQ(utils.planFreeSpace(nullptr, volume, "NTFS", &plan), kStatusOk);
  ASSERT_GE(plan.extents[kZoneLastThird].size(), 2u);
  const ClusterExtent free = plan.extents[kZoneLastThird][0];
  const ClusterExtent alsoFree = plan.extents[kZoneLastThird][1];
  // Clusters 0 to 255 are in use (the start of the volume).
  const std::vector<ClusterExtent> extents = {{0, 255}, free, {100, 355}, alsoFree};
  std::map<int32_t, uint32_t> states = {{0, kExtentToCheck}, {1, kExtentToCheck}, {2, kExtentFoundUsed},
                                        {3, 1}};
  uint32_t checked = 0;
  uint32_t used = 0;
  ASSERT_EQ(utils.countUsedSamples(volume, 0, &checked, &used, extents, states), kStatusOk);
  EXPECT_EQ(checked, 2u);
  EXPECT_EQ(used, 1u);
  EXPECT_EQ(states[0], static_cast<uint32_t>(kExtentFoundUsed));
  EXPECT_EQ(states[1], static_cast<uint32_t>(kExtentToCheck));
  EXPECT_EQ(states[2], static_cast<uint32_t>(kExtentFoundUsed));
  EXPECT_EQ(states[3], 1u);
}

TEST_F(WinEmmcUtilsTest, CountUsedSamplesSkipsExtentsBelowTheFirstCluster) {
  installJson(machineOf({emmcDisk("emmc0", "4B2F9A", oneVolume("D", "NTFS"))}));
  HANDLE volume = openPath("\\\\.\\D:", GENERIC_READ);
  const std::vector<ClusterExtent> extents = {{0, 255}, {1000, 1255}};
  std::map<int32_t, uint32_t> states = {{0, kExtentToCheck}, {1, kExtentToCheck}};
  uint32_t checked = 0;
  uint32_t used = 0;
  ASSERT_EQ(utils.countUsedSamples(volume, 512, &checked, &used, extents, states), kStatusOk);
  EXPECT_EQ(checked, 1u);
  EXPECT_EQ(states[0], static_cast<uint32_t>(kExtentToCheck));
}

TEST_F(WinEmmcUtilsTest, CountUsedSamplesGives1WhenAnExtentRunsOffTheBitmap) {
  installJson(machineOf({emmcDisk("emmc0", "4B2F9A", oneVolume("D", "NTFS"))}));
  HANDLE volume = openPath("\\\\.\\D:", GENERIC_READ);
  EmmcSamplePlan plan;
  ASSERT_EQ(utils.planFreeSpace(nullptr, volume, "NTFS", &plan), kStatusOk);
  // From the last free cluster on past the end of the volume.
  const std::vector<ClusterExtent> extents = {{plan.totalClusters - 1, plan.totalClusters + 300}};
  std::map<int32_t, uint32_t> states = {{0, kExtentToCheck}};
  uint32_t checked = 0;
  uint32_t used = 0;
  EXPECT_EQ(utils.countUsedSamples(volume, 0, &checked, &used, extents, states), kStatusNotAvailable);
}

class EmmcFilesTest : public WinEmmcUtilsTest {
 protected:
  void SetUp() override {
    WinEmmcUtilsTest::SetUp();
    installJson(machineOf({emmcDisk("emmc0", "4B2F9A",
                                    oneVolume("D", "NTFS") +
                                        R"(, "files": [{"path": "D:\\data\\blob.bin", "size": 40960}])")}));
  }
};

TEST_F(EmmcFilesTest, GetFileClusterCountCountsTheClustersOfAFile) {
  HANDLE file = openPath("D:\\data\\blob.bin", GENERIC_READ);
  uint64_t clusters = 0;
  ASSERT_EQ(utils.getFileClusterCount(file, &clusters), kStatusOk);
  EXPECT_EQ(clusters, 10u);  // 40960 bytes in clusters of 4096
  EXPECT_EQ(utils.getFileClusterCount(nullptr, &clusters), kStatusNotAvailable);
}

TEST_F(EmmcFilesTest, CreateDirectoryTreatsAnExistingDirectoryAsSuccess) {
  EXPECT_EQ(utils.createDirectory("D:\\Temp\\samples"), kStatusOk);
  EXPECT_NE(GetFileAttributesA("D:\\Temp\\samples"), INVALID_FILE_ATTRIBUTES);
  EXPECT_EQ(utils.createDirectory("D:\\Temp\\samples"), kStatusOk);
  EXPECT_EQ(utils.createDirectory("Q:\\nowhere"), kStatusNotAvailable);
}

TEST_F(EmmcFilesTest, MoveFileClustersMovesToFreeClustersAndReportsARefusal) {
  HANDLE volume = openPath("\\\\.\\D:", GENERIC_READ);
  HANDLE file = openPath("D:\\data\\blob.bin", GENERIC_READ);
  EmmcSamplePlan plan;
  ASSERT_EQ(utils.planFreeSpace(nullptr, volume, "NTFS", &plan), kStatusOk);
  ASSERT_FALSE(plan.extents[kZoneLastThird].empty());
  const uint64_t target = plan.extents[kZoneLastThird][0].first;
  uint32_t error = 12345;
  ASSERT_EQ(utils.moveFileClusters(volume, file, target, 10, &error), kStatusOk);
  EXPECT_EQ(error, 0u);
  EXPECT_TRUE(inUse(volume, target));
  // Cluster 0 is taken by the file system.
  EXPECT_EQ(utils.moveFileClusters(volume, file, 0, 10, &error), kStatusNotAvailable);
  EXPECT_EQ(error, static_cast<uint32_t>(ERROR_ACCESS_DENIED));
}

}  // namespace
