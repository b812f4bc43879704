// The CSMI controller against a scripted driver: the requests it issues and
// their fixed values, what it reads from the answers, the RAID set tables,
// the drives on the phys and the protocols handed out for them.
#include "raid/csmi/csmi_raid_component.h"

#include <gtest/gtest.h>

#include "protocols/ata_protocol.h"
#include "protocols/scsi_protocol.h"
#include "raid/csmi/csmi_test_support.h"
#include "testing/scripted_ata_bridge.h"

namespace {

using csmi_testing::endDevicePhy;
using csmi_testing::phyTable;
using csmi_testing::ScriptedCsmiSend;

HANDLE adapterHandle() { return reinterpret_cast<HANDLE>(static_cast<uintptr_t>(0x5150)); }

mstest::AtaBlock identifyOf(const char* model, const char* firmware, uint64_t sectors) {
  mstest::AtaBlock block;
  block.setWord(0, 0x0040);
  block.setString(27, 20, model);
  block.setString(23, 4, firmware);
  block.setWord(83, 1 << 10);
  block.setWord(86, 1 << 10);
  block.setWord(60, static_cast<uint16_t>(sectors));
  block.setWord(61, static_cast<uint16_t>(sectors >> 16));
  for (int i = 0; i < 4; ++i) block.setWord(100 + i, static_cast<uint16_t>(sectors >> (16 * i)));
  block.seal();
  return block;
}

class CsmiComponentTest : public ::testing::Test {
 protected:
  void SetUp() override {
    setCsmiSenderForTesting(&driver);
    driver.handlers[CC_CSMI_SAS_GET_CNTLR_CONFIG] = [this](uint8_t* buffer, size_t) {
      auto* b = reinterpret_cast<CSMI_SAS_CNTLR_CONFIG_BUFFER*>(buffer);
      b->Configuration.uControllerFlags = controllerFlags;
      b->Configuration.usBIOSMajorRevision = bios[0];
      b->Configuration.usBIOSMinorRevision = bios[1];
      b->Configuration.usBIOSBuildRevision = bios[2];
      b->Configuration.usBIOSReleaseRevision = bios[3];
      return CSMI_SAS_STATUS_SUCCESS;
    };
    driver.handlers[CC_CSMI_SAS_GET_RAID_INFO] = [this](uint8_t* buffer, size_t) {
      auto* b = reinterpret_cast<CSMI_SAS_RAID_INFO_BUFFER*>(buffer);
      b->Information.uNumRaidSets = static_cast<ULONG>(sets.size());
      b->Information.uMaxDrivesPerSet = drivesPerSet;
      return CSMI_SAS_STATUS_SUCCESS;
    };
    driver.handlers[CC_CSMI_SAS_GET_RAID_CONFIG] = [this](uint8_t* buffer, size_t size) {
      auto* b = reinterpret_cast<CSMI_SAS_RAID_CONFIG_BUFFER*>(buffer);
      configSizes.push_back(size);
      const ULONG index = b->Configuration.uRaidSetIndex;
      if (index >= sets.size()) return CSMI_SAS_RAID_SET_OUT_OF_RANGE;
      const CSMI_SAS_RAID_CONFIG& set = sets[index];
      std::memcpy(&b->Configuration, &set, offsetof(CSMI_SAS_RAID_CONFIG, Drives));
      const size_t drivesAt = offsetof(CSMI_SAS_RAID_CONFIG_BUFFER, Configuration) + offsetof(CSMI_SAS_RAID_CONFIG, Drives);
      for (size_t i = 0; i < setDrives.size() && drivesAt + (i + 1) * sizeof(CSMI_SAS_RAID_DRIVES) <= size; ++i) {
        std::memcpy(buffer + drivesAt + i * sizeof(CSMI_SAS_RAID_DRIVES), &setDrives[i], sizeof(CSMI_SAS_RAID_DRIVES));
      }
      return CSMI_SAS_STATUS_SUCCESS;
    };
    driver.handlers[CC_CSMI_SAS_GET_PHY_INFO] = [this](uint8_t* buffer, size_t size) {
      return phyTable(phys)(buffer, size);
    };
    driver.handlers[CC_CSMI_SAS_STP_PASSTHRU] = [this](uint8_t* buffer, size_t) {
      auto* b = reinterpret_cast<CSMI_SAS_STP_PASSTHRU_BUFFER*>(buffer);
      const UCHAR phy = b->Parameters.bPhyIdentifier;
      if (ataStatus.count(phy) != 0) b->Status.bStatusFIS[2] = ataStatus[phy];
      const auto it = identify.find(phy);
      if (it == identify.end()) return CSMI_SAS_NO_SATA_DEVICE;
      std::memcpy(b->bDataBuffer, it->second.bytes.data(), 512);
      b->Status.bStatusFIS[2] = b->Status.bStatusFIS[2] == 0 ? 0x50 : b->Status.bStatusFIS[2];
      b->Status.uDataBytes = 512;
      return CSMI_SAS_STATUS_SUCCESS;
    };
    driver.handlers[CC_CSMI_SAS_SSP_PASSTHRU] = [this](uint8_t* buffer, size_t) {
      auto* b = reinterpret_cast<CSMI_SAS_SSP_PASSTHRU_BUFFER*>(buffer);
      const UCHAR opcode = b->Parameters.bCDB[0];
      const UCHAR phy = b->Parameters.bPhyIdentifier;
      b->Status.bSSPStatus = sspStatus;
      if (opcode == 0x12) {
        const char inquiry[] = "\0\0\0\0\0\0\0\0SEAGATE ST600MM0006     0004";
        std::memcpy(b->bDataBuffer, inquiry, 36);
      } else if (opcode == 0x9E) {
        if (capacityRefused.count(phy) != 0) return CSMI_SAS_STATUS_FAILED;
        const uint8_t capacity[12] = {0, 0, 0, 0, 0, 0x01, 0, 0, 0, 0, 0x02, 0};  // LBA 0x10000, 512 bytes
        std::memcpy(b->bDataBuffer, capacity, sizeof(capacity));
      }
      return CSMI_SAS_STATUS_SUCCESS;
    };
  }
  void TearDown() override { setCsmiSenderForTesting(nullptr); }

  static CSMI_SAS_RAID_CONFIG set(UCHAR type, UCHAR status, UCHAR information, UCHAR drives, ULONG capacityMiB) {
    CSMI_SAS_RAID_CONFIG c{};
    c.bRaidType = type;
    c.bStatus = status;
    c.bInformation = information;
    c.bDriveCount = drives;
    c.uCapacity = capacityMiB;
    return c;
  }
  static CSMI_SAS_RAID_DRIVES member(const char* model, const char* serial) {
    CSMI_SAS_RAID_DRIVES d{};
    std::memcpy(d.bModel, model, std::strlen(model));
    std::memcpy(d.bSerialNumber, serial, std::strlen(serial));
    return d;
  }

  ScriptedCsmiSend driver;
  ULONG controllerFlags = CSMI_SAS_CNTLR_SATA_RAID;
  USHORT bios[4] = {0, 0, 0, 0};
  std::vector<CSMI_SAS_RAID_CONFIG> sets;
  std::vector<CSMI_SAS_RAID_DRIVES> setDrives;
  ULONG drivesPerSet = 4;
  std::vector<size_t> configSizes;
  std::vector<CSMI_SAS_PHY_ENTITY> phys;
  std::map<UCHAR, mstest::AtaBlock> identify;
  std::map<UCHAR, UCHAR> ataStatus;
  std::set<UCHAR> capacityRefused;
  UCHAR sspStatus = 0;
};

TEST_F(CsmiComponentTest, TheProbePassesOnSasOrSataRaidFlagsOnly) {
  EXPECT_TRUE(csmiProbe(adapterHandle(), &driver));
  controllerFlags = CSMI_SAS_CNTLR_SAS_RAID;
  EXPECT_TRUE(csmiProbe(adapterHandle(), &driver));
  controllerFlags = 0x1;  // SAS HBA, no RAID
  EXPECT_FALSE(csmiProbe(adapterHandle(), &driver));
  controllerFlags = CSMI_SAS_CNTLR_SATA_RAID;
  driver.failIoctl[CC_CSMI_SAS_GET_CNTLR_CONFIG] = 1;
  EXPECT_FALSE(csmiProbe(adapterHandle(), &driver));
  driver.handlers.erase(CC_CSMI_SAS_GET_CNTLR_CONFIG);
  EXPECT_FALSE(csmiProbe(adapterHandle(), &driver));
  EXPECT_FALSE(csmiProbe(adapterHandle(), nullptr));
}

TEST_F(CsmiComponentTest, EveryRequestCarriesItsSignatureSixtySecondsAndTheLengthBehindTheHeader) {
  CsmiRaidComponent c(adapterHandle(), "Intel RAID", "2826");
  RaidControllerInfo info;
  ASSERT_EQ(c.discover(info), 0u);
  ASSERT_GE(driver.sent.size(), 3u);
  const std::map<ULONG, std::pair<std::string, size_t>> expected = {
      {CC_CSMI_SAS_GET_CNTLR_CONFIG, {"CSMIALL", 208}}, {CC_CSMI_SAS_GET_RAID_INFO, {"CSMIARY", 128}},
      {CC_CSMI_SAS_GET_PHY_INFO, {"CSMISAS", 2080}}};
  for (const auto& request : driver.sent) {
    SRB_IO_CONTROL header;
    std::memcpy(&header, request.bytes.data(), sizeof(header));
    EXPECT_EQ(request.handle, adapterHandle());
    EXPECT_EQ(header.HeaderLength, 28u);
    EXPECT_EQ(header.Timeout, 60u);
    EXPECT_EQ(std::string(reinterpret_cast<const char*>(header.Signature)), expected.at(request.code).first);
    EXPECT_EQ(header.Signature[7], 0);
    EXPECT_EQ(header.Length + 28u, expected.at(request.code).second);
    EXPECT_EQ(request.bytes.size(), expected.at(request.code).second);
  }
}

TEST_F(CsmiComponentTest, DiscoverReadsBiosVersionSetsAndDrivesAndMakesTheUdiFromModelAndId) {
  bios[0] = 12;
  bios[1] = 7;
  bios[2] = 0;
  bios[3] = 1896;
  sets = {set(2, 0, 0, 2, 1024)};
  phys = {endDevicePhy(0, CSMI_SAS_PROTOCOL_SATA), endDevicePhy(1, CSMI_SAS_PROTOCOL_STP)};
  identify[0] = identifyOf("ST1000DM003-1CH162", "CC43", 1953525168);
  identify[1] = identifyOf("WDC WD10EZEX-08WN4A0", "01.01A01", 1953525168);
  CsmiRaidComponent c(adapterHandle(), "Intel(R) Desktop RAID", "2822");
  RaidControllerInfo info;
  ASSERT_EQ(c.discover(info), 0u);
  EXPECT_EQ(info.biosVersion, "12.7.0.1896");
  EXPECT_EQ(info.numLogicalDevices, 1);
  EXPECT_EQ(info.numPhysicalDevices, 2);
  EXPECT_EQ(info.model, "Intel(R) Desktop RAID");
  EXPECT_EQ(info.udi, "Intel(R)DesktopRAID-2822");
  EXPECT_TRUE(info.serial.empty());
  EXPECT_TRUE(info.driverVersion.empty());
  EXPECT_TRUE(info.platform.empty());
  EXPECT_TRUE(info.supportedRaidLevels.empty());
}

TEST_F(CsmiComponentTest, DiscoverWithAllBiosNumbersZeroLeavesTheVersionEmpty) {
  CsmiRaidComponent c(adapterHandle(), "M", "1D02");
  RaidControllerInfo info;
  ASSERT_EQ(c.discover(info), 0u);
  EXPECT_TRUE(info.biosVersion.empty());
  EXPECT_EQ(info.numPhysicalDevices, 0);
}

TEST_F(CsmiComponentTest, DiscoverGivesTheSendStatusOr66ForARefusal) {
  CsmiRaidComponent c(adapterHandle(), "M", "1D02");
  RaidControllerInfo info;
  driver.failIoctl[CC_CSMI_SAS_GET_CNTLR_CONFIG] = 1;
  EXPECT_EQ(c.discover(info), 34u);
  driver.handlers.erase(CC_CSMI_SAS_GET_RAID_INFO);
  EXPECT_EQ(c.discover(info), 66u);
  EXPECT_EQ(info.numLogicalDevices, -1);
}

TEST_F(CsmiComponentTest, AControllerWhoseDescribeFailsHasNoIdentityAndTheNextDescribeNamesIt) {
  phys = {endDevicePhy(0, CSMI_SAS_PROTOCOL_SATA)};
  identify[0] = identifyOf("ST1000DM003-1CH162", "CC43", 1953525168);
  CsmiRaidComponent c(adapterHandle(), "Intel(R) Desktop RAID", "2822");
  // The controller's configuration can't be read: no name, no UDI, no
  // controller facts; the drive walk still runs and gives its section.
  driver.failIoctl[CC_CSMI_SAS_GET_CNTLR_CONFIG] = 1;
  EXPECT_EQ(c.describe(), 0u);
  EXPECT_TRUE(c.getDescription().name.empty());
  for (const DetailEntry& entry : c.getDetails()) {
    EXPECT_NE(entry.key, "UDI");
    EXPECT_NE(entry.key, "MODEL");
  }
  // The phy table can't be read either: describe gives that status.
  driver.failIoctl[CC_CSMI_SAS_GET_CNTLR_CONFIG] = 1;
  driver.failIoctl[CC_CSMI_SAS_GET_PHY_INFO] = 1;
  EXPECT_EQ(c.describe(), 34u);
  // Once the driver answers, the controller is named by the model it was
  // made with, not by an empty one.
  ASSERT_EQ(c.describe(), 0u);
  EXPECT_EQ(c.getDescription().name, "Intel(R) Desktop RAID");
  std::map<std::string, std::string> details;
  for (const DetailEntry& entry : c.getDetails()) details[entry.key] = entry.value;
  EXPECT_EQ(details["UDI"], "Intel(R)DesktopRAID-2822");
  EXPECT_EQ(details["MODEL"], "Intel(R) Desktop RAID");
  EXPECT_EQ(details["NUM_PHYSICAL_DEVICES"], "1");
}

TEST_F(CsmiComponentTest, DiscoverReportsTheDriveWalkStatusAndCountsNoDrivesThen) {
  driver.failIoctl[CC_CSMI_SAS_GET_PHY_INFO] = 1;
  CsmiRaidComponent c(adapterHandle(), "M", "1D02");
  RaidControllerInfo info;
  EXPECT_EQ(c.discover(info), 34u);
  EXPECT_EQ(info.numPhysicalDevices, 0);
  EXPECT_EQ(info.udi, "M-1D02");
}

TEST_F(CsmiComponentTest, LogicalDisksMapTypeStatusAndCapacityInMegabytes) {
  sets = {set(0, 0, 0, 1, 1), set(1, 2, 0, 2, 2), set(3, 3, 0, 4, 3), set(9, 9, 0, 4, 4), set(4, 0, 0, 3, 5),
          set(5, 0, 0, 4, 6), set(6, 0, 0, 4, 7), set(7, 0, 0, 6, 8), set(8, 0, 0, 2, 9)};
  CsmiRaidComponent c(adapterHandle(), "M", "1D02");
  std::vector<RaidLogicalDevice> devices;
  ASSERT_EQ(c.getLogicalDisks(devices), 0u);
  ASSERT_EQ(devices.size(), 9u);
  const char* levels[] = {"SINGLE_DRIVE_RAID_SET", "RAID 0", "RAID 10", "RAID 10", "RAID 5",
                          "RAID 15", "RAID 6", "RAID 50", "UNKNOWN"};
  for (size_t i = 0; i < devices.size(); ++i) {
    EXPECT_EQ(devices[i].raidLevel, levels[i]) << i;
    EXPECT_EQ(devices[i].name, std::to_string(i));
    EXPECT_EQ(devices[i].sizeBytes, static_cast<uint64_t>(i + 1) << 20);
  }
  EXPECT_EQ(devices[1].numPhysicalDevices, 2u);
  EXPECT_EQ(devices[0].health, 0u);
  EXPECT_EQ(devices[1].health, 5u);
  EXPECT_EQ(devices[2].health, 3u);
  EXPECT_EQ(devices[3].health, 6u);
  EXPECT_TRUE(devices[1].failedDrives.empty());
  // Each set's buffer has room for the driver's most drives per set.
  EXPECT_EQ(configSizes[0], 200u + 136u * 3u);
}

TEST_F(CsmiComponentTest, ASetWithStatusOneAndInformationTwoNamesEntryTwoAsItsFailedDrive) {
  sets = {set(2, 1, 2, 3, 100)};
  setDrives = {member("ST1000DM003", "Z1D0"), member("ST1000DM003", "Z1D1"), member("WDC WD10EZEX", "WCC6Y2")};
  CsmiRaidComponent c(adapterHandle(), "M", "1D02");
  std::vector<RaidLogicalDevice> devices;
  ASSERT_EQ(c.getLogicalDisks(devices), 0u);
  ASSERT_EQ(devices.size(), 1u);
  EXPECT_EQ(devices[0].health, 1u);
  EXPECT_EQ(devices[0].failedDrives, std::vector<std::string>{"WDC WD10EZEX - WCC6Y2"});
}

TEST_F(CsmiComponentTest, AFailedSetWhoseInformationPointsPastTheListNamesNoDrive) {
  sets = {set(2, 1, 200, 2, 100)};
  drivesPerSet = 2;
  CsmiRaidComponent c(adapterHandle(), "M", "1D02");
  std::vector<RaidLogicalDevice> devices;
  ASSERT_EQ(c.getLogicalDisks(devices), 0u);
  ASSERT_EQ(devices.size(), 1u);
  EXPECT_TRUE(devices[0].failedDrives.empty());
}

TEST_F(CsmiComponentTest, TheSetWalkEndsAtTheFirstRefusalOrFailedSendAndStillGivesZero) {
  sets = {set(1, 0, 0, 2, 1), set(1, 0, 0, 2, 1), set(1, 0, 0, 2, 1)};
  auto inner = driver.handlers[CC_CSMI_SAS_GET_RAID_CONFIG];
  driver.handlers[CC_CSMI_SAS_GET_RAID_CONFIG] = [inner](uint8_t* buffer, size_t size) {
    auto* b = reinterpret_cast<CSMI_SAS_RAID_CONFIG_BUFFER*>(buffer);
    return b->Configuration.uRaidSetIndex == 1 ? CSMI_SAS_RAID_SET_OUT_OF_RANGE : inner(buffer, size);
  };
  CsmiRaidComponent c(adapterHandle(), "M", "1D02");
  std::vector<RaidLogicalDevice> devices;
  ASSERT_EQ(c.getLogicalDisks(devices), 0u);
  EXPECT_EQ(devices.size(), 1u);
  EXPECT_EQ(driver.count(CC_CSMI_SAS_GET_RAID_CONFIG), 2u);

  driver.handlers[CC_CSMI_SAS_GET_RAID_CONFIG] = inner;
  driver.failIoctl[CC_CSMI_SAS_GET_RAID_CONFIG] = 1;
  devices.clear();
  EXPECT_EQ(c.getLogicalDisks(devices), 0u);
  EXPECT_TRUE(devices.empty());
  driver.failIoctl[CC_CSMI_SAS_GET_RAID_INFO] = 1;
  EXPECT_EQ(c.getLogicalDisks(devices), 34u);
}

TEST_F(CsmiComponentTest, PhysicalDrivesReadAtaByIdentifyAndScsiByInquiryAndCapacity) {
  phys = {endDevicePhy(0, CSMI_SAS_PROTOCOL_SATA), endDevicePhy(1, CSMI_SAS_PROTOCOL_SSP)};
  identify[0] = identifyOf("ST1000DM003-1CH162", "CC43", 1953525168);
  CsmiRaidComponent c(adapterHandle(), "M", "1D02");
  std::vector<RaidPhysicalDrive> drives;
  ASSERT_EQ(c.getPhysicalDrives(drives), 0u);
  ASSERT_EQ(drives.size(), 2u);
  EXPECT_EQ(drives[0].model, "ST1000DM003-1CH162");
  EXPECT_EQ(drives[0].firmware, "CC43");
  EXPECT_EQ(drives[0].manufacturer, "Seagate");
  EXPECT_EQ(drives[0].busKind, static_cast<uint32_t>(kBusAta));
  EXPECT_EQ(drives[0].sizeBytes, 1953525168ull * 512);
  EXPECT_EQ(drives[1].manufacturer, "SEAGATE");
  EXPECT_EQ(drives[1].model, "ST600MM0006");
  EXPECT_EQ(drives[1].firmware, "0004");
  EXPECT_EQ(drives[1].busKind, static_cast<uint32_t>(kBusScsi));
  // The last LBA times the block length: one block short of the disk.
  EXPECT_EQ(drives[1].sizeBytes, 0x10000ull * 512);
}

TEST_F(CsmiComponentTest, AnAtaDriveWithErrInItsStatusIsLeftOut) {
  phys = {endDevicePhy(0, CSMI_SAS_PROTOCOL_SATA), endDevicePhy(1, CSMI_SAS_PROTOCOL_SATA)};
  identify[0] = identifyOf("A", "1", 100);
  identify[1] = identifyOf("B", "1", 100);
  ataStatus[0] = 0x51;
  CsmiRaidComponent c(adapterHandle(), "M", "1D02");
  std::vector<RaidPhysicalDrive> drives;
  ASSERT_EQ(c.getPhysicalDrives(drives), 0u);
  ASSERT_EQ(drives.size(), 1u);
  EXPECT_EQ(drives[0].model, "B");
}

TEST_F(CsmiComponentTest, APhyWhoseTargetProtocolIsSmpYieldsNoDriveInEitherListAndTheWalkGoesOn) {
  phys = {endDevicePhy(0, CSMI_SAS_PROTOCOL_SMP), endDevicePhy(1, CSMI_SAS_PROTOCOL_SATA)};
  identify[1] = identifyOf("ST1000DM003", "CC43", 100);
  CsmiRaidComponent c(adapterHandle(), "M", "1D02");
  std::vector<RaidPhysicalDrive> drives;
  ASSERT_EQ(c.getPhysicalDrives(drives), 0u);
  ASSERT_EQ(drives.size(), 1u);
  EXPECT_EQ(drives[0].model, "ST1000DM003");
  std::vector<RaidDrive> devices;
  ASSERT_EQ(c.getLogicalDevices(devices), 0u);
  ASSERT_EQ(devices.size(), 1u);
  EXPECT_EQ(devices[0].name, "r1D02-1");
  for (RaidDrive& d : devices) delete d.firstProtocol;
  // No request ever went to phy 0.
  for (const auto& request : driver.sent) {
    if (request.code == CC_CSMI_SAS_STP_PASSTHRU || request.code == CC_CSMI_SAS_SSP_PASSTHRU) {
      EXPECT_EQ(request.bytes[28], 1u);
    }
  }
}

TEST_F(CsmiComponentTest, APhyWithoutAnAttachedEndDeviceIsPassedOver) {
  phys = {endDevicePhy(0, CSMI_SAS_PROTOCOL_SATA)};
  phys[0].Attached.bDeviceType = 0;
  CsmiRaidComponent c(adapterHandle(), "M", "1D02");
  std::vector<RaidDrive> devices;
  ASSERT_EQ(c.getLogicalDevices(devices), 0u);
  EXPECT_TRUE(devices.empty());
}

TEST_F(CsmiComponentTest, ADriveWhoseReadCapacity16FailsIsLeftOutOfPhysicalDrivesButStillListedAsADevice) {
  phys = {endDevicePhy(0, CSMI_SAS_PROTOCOL_SSP), endDevicePhy(1, CSMI_SAS_PROTOCOL_SSP)};
  capacityRefused.insert(0);
  CsmiRaidComponent c(adapterHandle(), "M", "1D02");
  std::vector<RaidPhysicalDrive> drives;
  ASSERT_EQ(c.getPhysicalDrives(drives), 0u);
  EXPECT_EQ(drives.size(), 1u);
  std::vector<RaidDrive> devices;
  ASSERT_EQ(c.getLogicalDevices(devices), 0u);
  ASSERT_EQ(devices.size(), 2u);
  EXPECT_EQ(devices[0].busKind, static_cast<uint32_t>(kBusScsi));
  for (RaidDrive& d : devices) delete d.firstProtocol;
}

TEST_F(CsmiComponentTest, ACompletedSspStatusFailsTheCapacityReadAsTheSspStatusByteIsAsked) {
  phys = {endDevicePhy(0, CSMI_SAS_PROTOCOL_SSP)};
  sspStatus = CSMI_SAS_SSP_STATUS_COMPLETED;
  CsmiRaidComponent c(adapterHandle(), "M", "1D02");
  std::vector<RaidPhysicalDrive> drives;
  ASSERT_EQ(c.getPhysicalDrives(drives), 0u);
  EXPECT_TRUE(drives.empty());
}

TEST_F(CsmiComponentTest, GetLogicalDevicesGivesAProtocolPerDriveAndRunTwiceGrowsTheIdFurther) {
  phys = {endDevicePhy(0, CSMI_SAS_PROTOCOL_SATA), endDevicePhy(3, CSMI_SAS_PROTOCOL_SSP)};
  CsmiRaidComponent c(adapterHandle(), "M", "1D02");
  std::vector<RaidDrive> devices;
  ASSERT_EQ(c.getLogicalDevices(devices), 0u);
  ASSERT_EQ(devices.size(), 2u);
  EXPECT_EQ(devices[0].name, "r1D02-0");
  EXPECT_EQ(devices[1].name, "r1D02-0-1");
  EXPECT_EQ(devices[0].busKind, static_cast<uint32_t>(kBusAta));
  EXPECT_EQ(devices[0].firstProtocol->getProtocolKind(), static_cast<uint32_t>(kProtocolAta));
  EXPECT_NE(dynamic_cast<AtaProtocol*>(devices[0].firstProtocol), nullptr);
  EXPECT_EQ(devices[1].firstProtocol->getProtocolKind(), static_cast<uint32_t>(kProtocolScsi));
  EXPECT_NE(dynamic_cast<ScsiProtocol*>(devices[1].firstProtocol), nullptr);
  EXPECT_EQ(devices[0].secondProtocol, nullptr);
  EXPECT_EQ(devices[1].secondProtocol, nullptr);
  EXPECT_EQ(devices[0].firstProtocol->getHandle(), adapterHandle());
  for (RaidDrive& d : devices) delete d.firstProtocol;
  devices.clear();
  ASSERT_EQ(c.getLogicalDevices(devices), 0u);
  EXPECT_EQ(devices[0].name, "r1D02-0-1-0");
  EXPECT_EQ(devices[1].name, "r1D02-0-1-0-1");
  EXPECT_EQ(c.getId(), "1D02-0-1-0-1");
  for (RaidDrive& d : devices) delete d.firstProtocol;
}

TEST_F(CsmiComponentTest, TheDrivesListsGiveTheSendStatusWhenThePhyTableCannotBeRead) {
  CsmiRaidComponent c(adapterHandle(), "M", "1D02");
  driver.handlers.erase(CC_CSMI_SAS_GET_PHY_INFO);
  std::vector<RaidPhysicalDrive> drives;
  EXPECT_EQ(c.getPhysicalDrives(drives), 66u);
  std::vector<RaidDrive> devices;
  EXPECT_EQ(c.getLogicalDevices(devices), 66u);
  EXPECT_EQ(c.prepare(), 0u);
}

TEST_F(CsmiComponentTest, APhyCountAboveTheTableIsHeldToTheThirtyTwoEntries) {
  driver.handlers[CC_CSMI_SAS_GET_PHY_INFO] = [](uint8_t* buffer, size_t) {
    auto* b = reinterpret_cast<CSMI_SAS_PHY_INFO_BUFFER*>(buffer);
    b->Information.bNumberOfPhys = 255;
    for (int i = 0; i < 32; ++i) b->Information.Phy[i] = endDevicePhy(static_cast<uint8_t>(i), CSMI_SAS_PROTOCOL_SATA);
    return CSMI_SAS_STATUS_SUCCESS;
  };
  CsmiRaidComponent c(adapterHandle(), "M", "X");
  std::vector<RaidDrive> devices;
  ASSERT_EQ(c.getLogicalDevices(devices), 0u);
  EXPECT_EQ(devices.size(), 32u);
  for (RaidDrive& d : devices) delete d.firstProtocol;
}

}  // namespace
