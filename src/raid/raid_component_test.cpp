// How a controller describes itself: name, properties in their order, the
// logical and physical sections with one running index, and what a failing
// step leaves out. The controller here is scripted: its answers are fields.
#include "raid/raid_component.h"

#include <gtest/gtest.h>

#include "system/number_handler.h"

namespace {

class ScriptedController : public RaidComponent {
 public:
  ScriptedController() : RaidComponent(7, kControllerLsiStd) {}

  uint32_t discover(RaidControllerInfo& out) override {
    ++discovers;
    out = answer;
    return discoverStatus;
  }
  uint32_t getLogicalDisks(std::vector<RaidLogicalDevice>& out) override {
    ++logicalQueries;
    out = logical;
    return logicalStatus;
  }
  uint32_t getPhysicalDrives(std::vector<RaidPhysicalDrive>& out) override {
    out = physical;
    return physicalStatus;
  }
  uint32_t getLogicalDevices(std::vector<RaidDrive>&) override { return 0; }
  uint32_t prepare() override {
    ++prepares;
    return 65;
  }

  std::string detail(const std::string& key) const {
    for (const DetailEntry& entry : details) {
      if (entry.key == key) return entry.value;
    }
    return "<absent>";
  }
  std::vector<std::string> keys() const {
    std::vector<std::string> list;
    for (const DetailEntry& entry : details) list.push_back(entry.key);
    return list;
  }

  RaidControllerInfo answer;
  uint32_t discoverStatus = 0;
  std::vector<RaidLogicalDevice> logical;
  uint32_t logicalStatus = 0;
  std::vector<RaidPhysicalDrive> physical;
  uint32_t physicalStatus = 0;
  int discovers = 0;
  int logicalQueries = 0;
  int prepares = 0;
};

RaidPhysicalDrive drive(const std::string& model, uint64_t bytes) {
  RaidPhysicalDrive d;
  d.model = model;
  d.sizeBytes = bytes;
  return d;
}

std::string entry(const DetailSection& section, const std::string& key) {
  for (const DetailEntry& e : section.entries) {
    if (e.key == key) return e.value;
  }
  return "<absent>";
}

TEST(RaidComponentDescribe, NameIsModelAndSerialAndPropertiesComeInTheirOrder) {
  ScriptedController c;
  c.answer.model = "MegaRAID SAS 9260-8i";
  c.answer.serial = "SV12345";
  c.answer.udi = "MegaRAIDSAS9260-8i-SV12345";
  c.answer.platform = "IMSM_CAPABILITIES_NOT_FOUND";
  c.answer.biosVersion = "3.30.02.2";
  c.answer.numLogicalDevices = 0;
  c.answer.supportedInterfaces = {"SAS 3G", "SATA 3G"};
  c.answer.supportedRaidLevels = {"RAID 0", "RAID 1", "RAID 5"};
  c.physical = {drive("ST600MM0006", 600ull << 30)};
  ASSERT_EQ(c.describe(), 0u);
  EXPECT_EQ(c.getDescription().name, "MegaRAID SAS 9260-8i - SV12345");
  EXPECT_EQ(c.keys(), (std::vector<std::string>{"UDI", "MODEL", "SERIAL", "BIOS_VERSION", "NUM_LOGICAL_DEVICES",
                                                "SUPPORTED_INTERFACES", "SUPPORTED_RAID_LEVELS",
                                                "NUM_PHYSICAL_DEVICES"}));
  EXPECT_EQ(c.detail("SUPPORTED_INTERFACES"), "SAS 3G, SATA 3G");
  EXPECT_EQ(c.detail("SUPPORTED_RAID_LEVELS"), "RAID 0, RAID 1, RAID 5");
  EXPECT_EQ(c.detail("NUM_LOGICAL_DEVICES"), "0");
  EXPECT_EQ(c.detail("NUM_PHYSICAL_DEVICES"), "1");
  EXPECT_EQ(c.prepares, 1);
}

TEST(RaidComponentDescribe, APlatformTextOtherThanNotFoundIsShownAndTheUdiIsAlwaysThere) {
  ScriptedController c;
  c.answer.model = "Intel RAID";
  c.answer.platform = "Intel RST 12.0";
  c.answer.driverVersion = "12.8.0.1016";
  ASSERT_EQ(c.describe(), 0u);
  EXPECT_EQ(c.getDescription().name, "Intel RAID");
  EXPECT_EQ(c.keys(), (std::vector<std::string>{"UDI", "MODEL", "PLATFORM", "DRIVER_VERSION",
                                                "NUM_PHYSICAL_DEVICES"}));
  EXPECT_EQ(c.detail("UDI"), "");
  EXPECT_EQ(c.detail("NUM_PHYSICAL_DEVICES"), "0");
}

TEST(RaidComponentDescribe, AControllerWithNoLogicalDevicesHasNoLogicalSectionAndDrivesStartAtIndexZero) {
  ScriptedController c;
  c.answer.model = "SAS2008";
  c.answer.numLogicalDevices = 0;
  c.logical = {RaidLogicalDevice()};  // would show if it were asked for
  c.physical = {drive("A", 0), drive("B", 0)};
  ASSERT_EQ(c.describe(), 0u);
  EXPECT_EQ(c.logicalQueries, 0);
  const std::vector<DetailSection> sections = c.getSections();
  ASSERT_EQ(sections.size(), 2u);
  EXPECT_EQ(sections[0].title, "PHYSICAL_DISK");
  EXPECT_EQ(entry(sections[0], "INDEX"), "0");
  EXPECT_EQ(entry(sections[1], "INDEX"), "1");
  // A size of 0 is not shown.
  EXPECT_EQ(entry(sections[0], "SIZE"), "<absent>");
}

TEST(RaidComponentDescribe, TwoLogicalDevicesAndThreeDrivesGivePhysicalIndexesTwoThreeFour) {
  ScriptedController c;
  c.answer.model = "MegaRAID";
  c.answer.numLogicalDevices = 2;
  RaidLogicalDevice mirror;
  mirror.raidLevel = "RAID 1";
  mirror.numPhysicalDevices = 2;
  mirror.sizeBytes = 1000ull << 30;
  RaidLogicalDevice stripe;
  stripe.raidLevel = "RAID 0";
  stripe.numPhysicalDevices = 1;
  stripe.sizeText = "about a terabyte";
  c.logical = {mirror, stripe};
  RaidPhysicalDrive withMaker = drive("ST1000NM0033", 1000ull << 30);
  withMaker.manufacturer = "Seagate";
  withMaker.serial = "Z1W0";
  c.physical = {withMaker, drive("B", 1), drive("C", 2)};
  ASSERT_EQ(c.describe(), 0u);
  const std::vector<DetailSection> sections = c.getSections();
  ASSERT_EQ(sections.size(), 5u);
  EXPECT_EQ(sections[0].title, "LOGICAL_DISK");
  EXPECT_EQ(entry(sections[0], "INDEX"), "0");
  EXPECT_EQ(entry(sections[0], "RAID_LEVEL"), "RAID 1");
  EXPECT_EQ(entry(sections[0], "NUM_PHYSICAL_DEVICES"), "2");
  EXPECT_EQ(entry(sections[0], "SIZE"), getNumberHandler().formatBytes(1000ull << 30));
  EXPECT_EQ(entry(sections[1], "INDEX"), "1");
  EXPECT_EQ(entry(sections[1], "SIZE"), "about a terabyte");
  for (size_t i = 2; i < 5; ++i) {
    EXPECT_EQ(sections[i].title, "PHYSICAL_DISK");
    EXPECT_EQ(entry(sections[i], "INDEX"), std::to_string(i));
  }
  EXPECT_EQ(entry(sections[2], "MANUFACTURER"), "Seagate");
  EXPECT_EQ(entry(sections[2], "MODEL"), "ST1000NM0033");
  EXPECT_EQ(entry(sections[2], "SERIAL"), "Z1W0");
  EXPECT_EQ(entry(sections[3], "MANUFACTURER"), "<absent>");
  EXPECT_EQ(c.detail("NUM_PHYSICAL_DEVICES"), "3");
}

TEST(RaidComponentDescribe, AFailedDiscoverSetsNoPropertiesButTheDrivesAreStillListed) {
  ScriptedController c;
  c.answer.model = "X";
  c.discoverStatus = 34;
  c.physical = {drive("A", 0)};
  EXPECT_EQ(c.describe(), 0u);
  EXPECT_EQ(c.getDescription().name, "");
  EXPECT_EQ(c.keys(), std::vector<std::string>{"NUM_PHYSICAL_DEVICES"});
  EXPECT_EQ(c.getSections().size(), 1u);
}

TEST(RaidComponentDescribe, AFailedDriveListIsTheResultWithNoFurtherDetail) {
  ScriptedController c;
  c.answer.model = "X";
  c.physicalStatus = 65;
  EXPECT_EQ(c.describe(), 65u);
  EXPECT_EQ(c.detail("NUM_PHYSICAL_DEVICES"), "<absent>");
  EXPECT_TRUE(c.getSections().empty());
}

TEST(RaidComponentDescribe, ALogicalDeviceQueryThatFailsAddsNoLogicalSection) {
  ScriptedController c;
  c.answer.numLogicalDevices = 1;
  c.logical = {RaidLogicalDevice()};
  c.logicalStatus = 65;
  c.physical = {drive("A", 0)};
  ASSERT_EQ(c.describe(), 0u);
  ASSERT_EQ(c.getSections().size(), 1u);
  EXPECT_EQ(c.getSections()[0].title, "PHYSICAL_DISK");
  EXPECT_EQ(entry(c.getSections()[0], "INDEX"), "0");
}

TEST(RaidComponentDescribe, DescribeEmptiesTheDetailsFirst) {
  ScriptedController c;
  c.answer.model = "X";
  ASSERT_EQ(c.describe(), 0u);
  ASSERT_EQ(c.describe(), 0u);
  EXPECT_EQ(c.keys(), (std::vector<std::string>{"UDI", "MODEL", "NUM_PHYSICAL_DEVICES"}));
  EXPECT_EQ(c.getControllerHandle(), 7u);
  EXPECT_EQ(c.getControllerKind(), static_cast<uint32_t>(kControllerLsiStd));
}

}  // namespace
