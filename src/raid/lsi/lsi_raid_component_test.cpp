// The LSI controller against a scripted library: what discover reads from
// the controller record, the logical devices and their levels, the drive
// list and its type byte, the arrays, and the protocols handed out per
// drive with the identify probe through STP.
#include "raid/lsi/lsi_raid_component.h"

#include <gtest/gtest.h>

#include <cstring>

#include "protocols/ata_protocol.h"
#include "protocols/scsi_protocol.h"
#include "raid/lsi/lsi_test_support.h"
#include "testing/scripted_ata_bridge.h"

namespace {

using lsi_testing::putU16;
using lsi_testing::putU32;
using lsi_testing::putU64;
using lsi_testing::ScriptedLsiSender;

void putText(uint8_t* at, const std::string& text) { std::memcpy(at, text.data(), text.size()); }

struct DriveEntry {
  uint16_t deviceId;
  uint8_t type;
};

class LsiComponentTest : public ::testing::Test {
 protected:
  void SetUp() override {
    library.handlers[{1, kLsiControllerInfo}] = [this](LsiCmd& cmd, uint8_t* b) {
      EXPECT_EQ(cmd.controllerId, 4u);
      putU16(b + 104, 2 | 8 | 16);
      putText(b + 1344, "MegaRAID SAS 9260-8i");
      putText(b + 1424, "SV 123 45");
      putU32(b + 1456, 0x4);
      putU16(b + 1480, 3);
      b[1500] = 1 | 2 | 4 | 32 | 128;
      putU32(b + 1504, 0x80);
      for (const auto& image : images) {
        uint8_t* entry = b + (image.first.first == 1 ? 184 : 764) + 72 * image.first.second;
        putText(entry, image.second.first);
        putText(entry + 8, image.second.second);
      }
      return 0u;
    };
    library.handlers[{1, kLsiLogicalDeviceList}] = [this](LsiCmd&, uint8_t* b) {
      putU32(b, static_cast<uint32_t>(logical.size()));
      for (size_t i = 0; i < logical.size(); ++i) {
        b[8 + 16 * i] = logical[i];
        putU16(b + 8 + 16 * i + 2, static_cast<uint16_t>(100 + i));
      }
      return logicalListStatus;
    };
    library.handlers[{3, kLsiLogicalDeviceDrives}] = [](LsiCmd& cmd, uint8_t* b) {
      putU16(b, static_cast<uint16_t>(cmd.logicalTarget + 1));
      return 0u;
    };
    library.handlers[{3, kLsiLogicalDeviceConfig}] = [this](LsiCmd& cmd, uint8_t* b) {
      if (cmd.logicalTarget == failingTarget) return 9u;
      putU16(b + 2, 3);
      b[32] = levels[cmd.logicalTarget].first;
      b[34] = levels[cmd.logicalTarget].second;
      putU64(b + 256, 2048);
      EXPECT_EQ(cmd.target, 100 + cmd.logicalTarget);
      return 0u;
    };
    library.handlers[{1, kLsiPhysicalDriveList}] = [this](LsiCmd&, uint8_t* b) {
      putU32(b + 4, static_cast<uint32_t>(drives.size()));
      for (size_t i = 0; i < drives.size(); ++i) {
        putU16(b + 8 + 24 * i, drives[i].deviceId);
        b[8 + 24 * i + 6] = drives[i].type;
      }
      return 0u;
    };
    library.handlers[{2, kLsiPhysicalDriveInfo}] = [this](LsiCmd& cmd, uint8_t* b) {
      if (refusedInfo.count(cmd.target) != 0) return 8u;
      putText(b + 12, "SEAGATE ");
      putText(b + 20, "ST600MM0006     ");
      putText(b + 36, "0004");
      putU64(b + 232, 1000);
      b[401] = interfaces.count(cmd.target) != 0 ? interfaces[cmd.target] : 1;
      return 0u;
    };
    library.handlers[{1, kLsiArrayList}] = [](LsiCmd&, uint8_t* b) {
      putU32(b, 2);
      putU16(b + 8, 7);
      b[8 + 9] = 1;
      putU16(b + 8 + 144, 8);
      return 0u;
    };
  }

  ScriptedLsiSender library;
  std::map<std::pair<int, int>, std::pair<std::string, std::string>> images;
  std::vector<uint8_t> logical;
  uint32_t logicalListStatus = 0;
  std::map<uint8_t, std::pair<uint8_t, uint8_t>> levels;
  int failingTarget = -1;
  std::vector<DriveEntry> drives;
  std::set<uint16_t> refusedInfo;
  std::map<uint16_t, uint8_t> interfaces;
};

TEST_F(LsiComponentTest, DiscoverReadsTheControllerRecordInItsOrders) {
  logical = {0, 1};
  levels = {{0, {1, 0}}, {1, {5, 0}}};
  LsiRaidComponent c(4, kControllerLsiStd, &library);
  RaidControllerInfo info;
  ASSERT_EQ(c.discover(info), 0u);
  EXPECT_EQ(info.model, "MegaRAID SAS 9260-8i");
  EXPECT_EQ(info.serial, "SV 123 45");
  EXPECT_TRUE(info.flagA);
  EXPECT_TRUE(info.flagB);
  EXPECT_EQ(info.numPhysicalDevices, 3);
  EXPECT_EQ(info.numLogicalDevices, 2);
  EXPECT_EQ(info.supportedRaidLevels,
            (std::vector<std::string>{"RAID 0", "RAID 1", "RAID 10", "RAID 5", "RAID 60"}));
  EXPECT_EQ(info.supportedInterfaces, (std::vector<std::string>{"SAS 3G", "SAS 6G", "SATA 3G"}));
  EXPECT_EQ(info.udi, "MegaRAIDSAS9260-8i-SV12345");
  EXPECT_TRUE(info.biosVersion.empty());
}

TEST_F(LsiComponentTest, ImageTableOneWithoutBiosAndTableTwoWithItAtPositionFiveGivesThatVersion) {
  images[{1, 0}] = {"FW", "2.130.403-4660"};
  images[{1, 6}] = {"BIOSX", "wrong"};
  images[{2, 5}] = {"BIOS", "3.30.02.2"};
  images[{2, 7}] = {"BIOS", "later"};
  LsiRaidComponent c(4, kControllerLsiStd, &library);
  RaidControllerInfo info;
  ASSERT_EQ(c.discover(info), 0u);
  EXPECT_EQ(info.biosVersion, "3.30.02.2");
}

TEST_F(LsiComponentTest, DiscoverFailsWithTheLibrarysResultAndAFailedLogicalCountLeavesMinusOne) {
  LsiRaidComponent c(4, kControllerLsiStd, &library);
  RaidControllerInfo info;
  logicalListStatus = 3;
  ASSERT_EQ(c.discover(info), 0u);
  EXPECT_EQ(info.numLogicalDevices, -1);
  library.handlers.erase({1, kLsiControllerInfo});
  EXPECT_EQ(c.discover(info), 1u);
  EXPECT_TRUE(info.model.empty());
}

TEST_F(LsiComponentTest, LogicalDevicesCarryTheirLevelDrivesSizeAndRawRecordAndAFailedOneIsLeftOut) {
  logical = {0, 1, 2};
  levels = {{0, {1, 3}}, {1, {5, 0}}, {2, {6, 3}}};
  failingTarget = 1;
  LsiRaidComponent c(4, kControllerLsiStd, &library);
  std::vector<RaidLogicalDevice> devices;
  ASSERT_EQ(c.getLogicalDisks(devices), 0u);
  ASSERT_EQ(devices.size(), 2u);
  EXPECT_EQ(devices[0].name, "0");
  EXPECT_EQ(devices[0].raidLevel, "RAID 10");
  EXPECT_EQ(devices[0].numPhysicalDevices, 1u);
  EXPECT_EQ(devices[0].sizeBytes, 2048u * 512u);
  EXPECT_EQ(devices[0].firmwareState, 3u);
  EXPECT_EQ(devices[0].rawRecord.size(), 384u);
  EXPECT_EQ(devices[1].name, "2");
  EXPECT_EQ(devices[1].raidLevel, "RAID 60");
  RaidLogicalDevice failed;
  EXPECT_EQ(c.readLogicalDevice(1, 101, failed), 65u);
}

TEST_F(LsiComponentTest, AnEmptyOrFailedLogicalListGivesItsStatusAndNoDevice) {
  LsiRaidComponent c(4, kControllerLsiStd, &library);
  std::vector<RaidLogicalDevice> devices;
  EXPECT_EQ(c.getLogicalDisks(devices), 0u);
  EXPECT_TRUE(devices.empty());
  logical = {0};
  logicalListStatus = 6;
  EXPECT_EQ(c.getLogicalDisks(devices), 6u);
  EXPECT_TRUE(devices.empty());
}

TEST(LsiRaidLevel, PrimaryLevelAndSpanGiveTheLevelName) {
  EXPECT_EQ(lsiRaidLevel(0, 3), "RAID 0");
  EXPECT_EQ(lsiRaidLevel(1, 0), "RAID 1");
  EXPECT_EQ(lsiRaidLevel(1, 3), "RAID 10");
  EXPECT_EQ(lsiRaidLevel(3, 0), "RAID 3");
  EXPECT_EQ(lsiRaidLevel(4, 3), "RAID 4");
  EXPECT_EQ(lsiRaidLevel(5, 1), "RAID 5");
  EXPECT_EQ(lsiRaidLevel(5, 3), "RAID 50");
  EXPECT_EQ(lsiRaidLevel(6, 0), "RAID 6");
  EXPECT_EQ(lsiRaidLevel(6, 3), "RAID 60");
  EXPECT_EQ(lsiRaidLevel(17, 3), "RAID 1");
  EXPECT_EQ(lsiRaidLevel(2, 0), "UNKNOWN");
}

TEST_F(LsiComponentTest, APhysicalDriveEntryWithANonZeroTypeByteNeverCausesAPhysicalDriveInfoCommand) {
  drives = {{8, 0}, {32, 2}, {9, 0}};
  interfaces[9] = 3;
  LsiRaidComponent c(4, kControllerLsiStd, &library);
  std::vector<RaidPhysicalDrive> list;
  ASSERT_EQ(c.getPhysicalDrives(list), 0u);
  ASSERT_EQ(list.size(), 2u);
  EXPECT_EQ(library.count(2, kLsiPhysicalDriveInfo), 2u);
  for (const auto& call : library.calls) {
    if (call.record.commandClass == 2) {
      EXPECT_NE(call.record.target, 32u);
    }
  }
  EXPECT_EQ(list[0].deviceId, 8u);
  EXPECT_EQ(list[0].manufacturer, "SEAGATE");
  EXPECT_EQ(list[0].model, "ST600MM0006");
  EXPECT_EQ(list[0].firmware, "0004");
  EXPECT_EQ(list[0].sizeBytes, 512000u);
  EXPECT_EQ(list[0].busKind, static_cast<uint32_t>(kBusScsi));
  EXPECT_TRUE(list[0].serial.empty());
  EXPECT_EQ(list[1].busKind, static_cast<uint32_t>(kBusAta));
}

TEST_F(LsiComponentTest, TheDriveListGivesTheStatusOfTheLastCommandSent) {
  drives = {{8, 0}, {9, 0}};
  interfaces[8] = 0;
  refusedInfo.insert(9);
  LsiRaidComponent c(4, kControllerLsiStd, &library);
  std::vector<RaidPhysicalDrive> list;
  EXPECT_EQ(c.getPhysicalDrives(list), 8u);
  ASSERT_EQ(list.size(), 1u);
  EXPECT_EQ(list[0].busKind, static_cast<uint32_t>(kBusUnknown));
  // A failure that a later success follows does not show.
  drives = {{9, 0}, {8, 0}};
  EXPECT_EQ(c.getPhysicalDrives(list), 0u);
  EXPECT_EQ(list.size(), 1u);
}

TEST_F(LsiComponentTest, PrepareReadsTheArraysAndAFailureIsSixtyFive) {
  LsiRaidComponent c(4, kControllerLsiStd, &library);
  ASSERT_EQ(c.prepare(), 0u);
  ASSERT_EQ(c.getArrays().size(), 2u);
  EXPECT_EQ(c.getArrays()[0].reference, 7u);
  EXPECT_TRUE(c.getArrays()[0].flag);
  EXPECT_EQ(c.getArrays()[1].reference, 8u);
  EXPECT_FALSE(c.getArrays()[1].flag);
  EXPECT_EQ(c.getArrays()[0].raw[9], 1u);
  library.handlers.erase({1, kLsiArrayList});
  EXPECT_EQ(c.prepare(), 65u);
}

TEST_F(LsiComponentTest, ASataDriveGetsBothProtocolsAndASasDriveOnlyItsScsiProtocol) {
  drives = {{8, 0}, {9, 0}};
  interfaces[9] = 3;
  mstest::AtaBlock identify;
  identify.setWord(0, 0x0040).setString(27, 20, "ST1000DM003").seal();
  library.handlers[{6, kLsiStpPassThrough}] = [&identify](LsiCmd&, uint8_t* b) {
    if (b[0] != 9) {
      b[28] = 1;  // no SATA device behind this id
      return 0u;
    }
    b[40 + 2] = 0x50;
    putU32(b + 32, 20);
    putU32(b + 36, 512);
    std::memcpy(b + 60, identify.bytes.data(), 512);
    return 0u;
  };
  LsiRaidComponent c(4, kControllerLsiIr, &library);
  std::vector<RaidDrive> out;
  ASSERT_EQ(c.getLogicalDevices(out), 0u);
  ASSERT_EQ(out.size(), 2u);
  EXPECT_EQ(out[0].name, "8");
  EXPECT_EQ(out[0].busKind, static_cast<uint32_t>(kBusScsi));
  EXPECT_NE(dynamic_cast<ScsiProtocol*>(out[0].firstProtocol), nullptr);
  EXPECT_EQ(out[0].firstProtocol->getProtocolKind(), static_cast<uint32_t>(kProtocolScsi));
  EXPECT_EQ(out[0].secondProtocol, nullptr);
  EXPECT_EQ(out[1].name, "9");
  EXPECT_EQ(out[1].busKind, static_cast<uint32_t>(kBusAta));
  ASSERT_NE(out[1].secondProtocol, nullptr);
  EXPECT_EQ(out[1].secondProtocol->getProtocolKind(), static_cast<uint32_t>(kProtocolAta));
  // Both carry the controller id as their handle.
  EXPECT_EQ(out[1].secondProtocol->getHandle(), out[1].firstProtocol->getHandle());
  for (RaidDrive& d : out) {
    delete d.firstProtocol;
    delete d.secondProtocol;
  }
}

TEST_F(LsiComponentTest, AnIdentifyProbeThatReturnsZeroWithADataLengthOfZeroLeavesOnlyTheScsiProtocol) {
  drives = {{9, 0}};
  interfaces[9] = 3;
  mstest::AtaBlock identify;
  identify.setWord(0, 0x0040).setString(27, 20, "ST1000DM003").seal();
  library.handlers[{6, kLsiStpPassThrough}] = [&identify](LsiCmd&, uint8_t* b) {
    b[40 + 2] = 0x50;
    putU32(b + 32, 20);
    putU32(b + 36, 0);  // no data reported
    std::memcpy(b + 60, identify.bytes.data(), 512);
    return 0u;
  };
  LsiRaidComponent c(4, kControllerLsiStd, &library);
  std::vector<RaidDrive> out;
  ASSERT_EQ(c.getLogicalDevices(out), 0u);
  ASSERT_EQ(out.size(), 1u);
  EXPECT_EQ(out[0].secondProtocol, nullptr);
  EXPECT_NE(out[0].firstProtocol, nullptr);
  delete out[0].firstProtocol;
}

TEST_F(LsiComponentTest, TheIdentifyProbeCountsOnlyWhenExactly512BytesCameBack) {
  // A valid block without the integrity signature, so that a copy short of
  // its last byte is still valid: only the reported length tells the cases
  // apart.
  mstest::AtaBlock identify;
  identify.setWord(0, 0x0040).setString(27, 20, "ST1000DM003");
  for (const uint32_t reported : {511u, 512u, 513u, 1024u}) {
    drives = {{9, 0}};
    interfaces[9] = 3;
    library.handlers[{6, kLsiStpPassThrough}] = [&identify, reported](LsiCmd&, uint8_t* b) {
      b[40 + 2] = 0x50;
      putU32(b + 32, 20);
      putU32(b + 36, reported);
      std::memcpy(b + 60, identify.bytes.data(), 512);
      return 0u;
    };
    LsiRaidComponent c(4, kControllerLsiStd, &library);
    std::vector<RaidDrive> out;
    ASSERT_EQ(c.getLogicalDevices(out), 0u) << reported;
    ASSERT_EQ(out.size(), 1u) << reported;
    EXPECT_NE(out[0].firstProtocol, nullptr) << reported;
    if (reported == 512) {
      EXPECT_NE(dynamic_cast<AtaProtocol*>(out[0].secondProtocol), nullptr) << reported;
    } else {
      EXPECT_EQ(out[0].secondProtocol, nullptr) << reported;
    }
    delete out[0].firstProtocol;
    delete out[0].secondProtocol;
  }
}

TEST_F(LsiComponentTest, WithoutDrivesOrWithAFailedListNoDeviceIsHandedOut) {
  LsiRaidComponent c(4, kControllerLsiStd, &library);
  std::vector<RaidDrive> out;
  EXPECT_EQ(c.getLogicalDevices(out), 0u);
  EXPECT_TRUE(out.empty());
  library.handlers.erase({1, kLsiPhysicalDriveList});
  EXPECT_EQ(c.getLogicalDevices(out), 1u);
  EXPECT_TRUE(out.empty());
}

}  // namespace
