// Finding the controllers on simulated machines: which adapters are asked
// for CSMI, what a controller found says about itself, which handles stay
// open, and a machine without any controller.
#include "raid/raid_component_manager.h"

#include <gtest/gtest.h>

#include "raid/csmi/csmi_raid_component.h"
#include "raid/raid_machine_test_support.h"
#include "sim/windows/face_state.h"
#include "testing/simulated_pc.h"

namespace {

using raid_testing::csmiController;
using raid_testing::csmiMachine;
using raid_testing::machine;

size_t openAdapters() {
  size_t count = 0;
  for (const auto& entry : sim::windows::Face::instance().objects()) {
    if (entry.second->kind == sim::windows::ObjectKind::Adapter) ++count;
  }
  return count;
}

std::string detail(const SystemComponent& component, const std::string& key) {
  for (const DetailEntry& entry : component.getDescription().details) {
    if (entry.key == key) return entry.value;
  }
  return "<absent>";
}

class RaidManagerTest : public mstest::SimulatedPcTest {};

TEST_F(RaidManagerTest, NoLsiLibraryAndNoAdapterOfTheIdentityListGiveNoControllersAndNothingIsLogged) {
  // An Intel adapter, but not one of the RAID device ids; no library offered.
  sim::Machine* pc = installJson(machine({raid_testing::ataDisk("m0", "ST1", "S1", R"(, "hidden": true)")},
                                         R"("controllers": [)" + csmiController("2822") + "]"));
  ASSERT_NE(pc, nullptr);
  RaidComponentManager raid(ItemId(0, 0, 0));
  EXPECT_FALSE(raid.hasDevices());
  EXPECT_EQ(openAdapters(), 0u);
  raid.refresh();
  EXPECT_EQ(raid.getComponentCount(), 0u);
  EXPECT_EQ(raid.getComponent(0), nullptr);
  // No command reached any drive.
  EXPECT_TRUE(pc->journal().entries().empty());
}

TEST_F(RaidManagerTest, LowerCaseIdsInThePathPassTheIdentityTest) {
  StorageAdapter adapter;
  adapter.vendorId = "8086";
  adapter.deviceId = "1d69";
  EXPECT_TRUE(passesIdentityTest(adapter));
  EXPECT_EQ(adapter.deviceId, "1D69");
  for (const char* id : {"1D02", "3c02", "2826", "1D68", "1d6b"}) {
    StorageAdapter other{"", nullptr, "", "8086", id};
    EXPECT_TRUE(passesIdentityTest(other)) << id;
  }
  StorageAdapter wrongVendor{"", nullptr, "", "1022", "1D69"};
  EXPECT_FALSE(passesIdentityTest(wrongVendor));
  StorageAdapter wrongDevice{"", nullptr, "", "8086", "2822"};
  EXPECT_FALSE(passesIdentityTest(wrongDevice));
  StorageAdapter shortPath{"", nullptr, "", "", ""};
  EXPECT_FALSE(passesIdentityTest(shortPath));

  // The same on a machine: the adapter's path carries "1d69".
  ASSERT_NE(installJson(machine({raid_testing::ataDisk("m0", "ST1", "S1", R"(, "hidden": true)")},
                                R"("controllers": [)" +
                                    csmiController("1d69", R"([{"protocol": "sata", "disk": "m0"}])") + "]")),
            nullptr);
  std::vector<StorageAdapter> adapters = enumerateStorageAdapters();
  ASSERT_EQ(adapters.size(), 1u);
  EXPECT_EQ(adapters[0].deviceId, "1d69");
  EXPECT_EQ(adapters[0].friendlyName, "Intel(R) C600 RAID");
  for (StorageAdapter& a : adapters) CloseHandle(a.handle);
  RaidComponentManager raid(ItemId(0, 0, 0));
  raid.refresh();
  ASSERT_EQ(raid.getComponentCount(), 1u);
  EXPECT_EQ(raid.getComponent(0)->getId(), "1D69");
}

TEST_F(RaidManagerTest, AnAdapterOfTheListThatAnswersCsmiIsAControllerDescribedWithItsDrives) {
  ASSERT_NE(installJson(csmiMachine()), nullptr);
  RaidComponentManager raid(ItemId(0, 0, 0));
  EXPECT_TRUE(raid.hasDevices());
  EXPECT_EQ(openAdapters(), 0u);  // hasDevices closes what it opened
  raid.refresh();
  ASSERT_EQ(raid.getComponentCount(), 1u);
  EXPECT_EQ(openAdapters(), 1u);  // the controller keeps its handle
  auto* controller = dynamic_cast<CsmiRaidComponent*>(raid.getComponent(0));
  ASSERT_NE(controller, nullptr);
  EXPECT_EQ(controller->getControllerKind(), static_cast<uint32_t>(kControllerCsmi));
  EXPECT_EQ(controller->getId(), "2826");
  EXPECT_EQ(controller->getDescription().name, "Intel(R) C600 RAID");
  EXPECT_EQ(detail(*controller, "UDI"), "Intel(R)C600RAID-2826");
  EXPECT_EQ(detail(*controller, "MODEL"), "Intel(R) C600 RAID");
  EXPECT_EQ(detail(*controller, "BIOS_VERSION"), "3.1.0.1012");
  EXPECT_EQ(detail(*controller, "NUM_LOGICAL_DEVICES"), "0");
  // The SAS drive's capacity read asks the SSP status byte, which the
  // driver sets to "completed": only the SATA drive is listed here.
  EXPECT_EQ(detail(*controller, "NUM_PHYSICAL_DEVICES"), "1");
  const std::vector<DetailSection> sections = controller->getSections();
  ASSERT_EQ(sections.size(), 1u);
  EXPECT_EQ(sections[0].title, "PHYSICAL_DISK");
  EXPECT_EQ(sections[0].entries[0].value, "0");
  EXPECT_EQ(raid.getRefreshedComponent(0), nullptr);
}

TEST_F(RaidManagerTest, RaidSetsOfTheControllerBecomeLogicalSections) {
  const std::string controller = R"({"vendorId": "8086", "deviceId": "2826", "friendlyName": "RST",
    "phys": [{"protocol": "sata", "disk": "m0"}],
    "raidSets": [{"raidType": 2, "status": 1, "information": 0, "capacityMiB": 1024,
                  "drives": [{"model": "ST1", "serial": "S1"}, {"model": "ST2", "serial": "S2"}]}]})";
  ASSERT_NE(installJson(machine({raid_testing::ataDisk("m0", "ST1", "S1", R"(, "hidden": true)")},
                                R"("controllers": [)" + controller + "]")),
            nullptr);
  RaidComponentManager raid(ItemId(0, 0, 0));
  raid.refresh();
  ASSERT_EQ(raid.getComponentCount(), 1u);
  auto* csmi = static_cast<RaidComponent*>(raid.getComponent(0));
  EXPECT_EQ(detail(*csmi, "NUM_LOGICAL_DEVICES"), "1");
  const std::vector<DetailSection> sections = csmi->getSections();
  ASSERT_EQ(sections.size(), 2u);
  EXPECT_EQ(sections[0].title, "LOGICAL_DISK");
  EXPECT_EQ(sections[0].entries[1].value, "RAID 1");
  EXPECT_EQ(sections[0].entries[2].value, "2");
  EXPECT_EQ(sections[1].title, "PHYSICAL_DISK");
  EXPECT_EQ(sections[1].entries[0].value, "1");
  std::vector<RaidLogicalDevice> sets;
  ASSERT_EQ(csmi->getLogicalDisks(sets), 0u);
  ASSERT_EQ(sets.size(), 1u);
  EXPECT_EQ(sets[0].failedDrives, std::vector<std::string>{"ST1 - S1"});
}

TEST_F(RaidManagerTest, AnAdapterWithoutRaidFlagsIsNotAController) {
  const std::string controller =
      R"({"vendorId": "8086", "deviceId": "2826", "controllerFlags": 1, "phys": [{"protocol": "sata", "disk": "m0"}]})";
  ASSERT_NE(installJson(machine({raid_testing::ataDisk("m0", "ST1", "S1", R"(, "hidden": true)")},
                                R"("controllers": [)" + controller + "]")),
            nullptr);
  RaidComponentManager raid(ItemId(0, 0, 0));
  EXPECT_FALSE(raid.hasDevices());
  raid.refresh();
  EXPECT_EQ(raid.getComponentCount(), 0u);
}

}  // namespace
