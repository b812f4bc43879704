// Discovery of the drives behind RAID controllers on simulated machines:
// where they come in the list, how they are described, which doubles are
// dropped, and what hasDevices makes of a machine whose only drives sit
// behind a controller.
#include "components/storage_component_manager.h"

#include <gtest/gtest.h>

#include "protocols/ata_protocol.h"
#include "protocols/scsi_protocol.h"
#include "raid/raid_machine_test_support.h"
#include "testing/simulated_pc.h"

namespace {

using raid_testing::ataDisk;
using raid_testing::csmiController;
using raid_testing::csmiMachine;
using raid_testing::machine;
using raid_testing::sasDisk;

class RaidDiscoveryTest : public mstest::SimulatedPcTest {
 protected:
  void refresh() {
    manager = std::make_unique<StorageComponentManager>(ItemId(1, 0, 1));
    manager->refresh();
  }
  StorageComponent* component(uint32_t index) const {
    return static_cast<StorageComponent*>(manager->getComponent(index));
  }
  std::string detail(uint32_t index, const std::string& key) const {
    for (const DetailEntry& entry : component(index)->getDetails()) {
      if (entry.key == key) return entry.value;
    }
    return "<absent>";
  }
  std::vector<uint32_t> locations() const {
    std::vector<uint32_t> list;
    for (uint32_t i = 0; i < manager->getComponentCount(); ++i) list.push_back(component(i)->getLocation());
    return list;
  }

  std::unique_ptr<StorageComponentManager> manager;
};

TEST_F(RaidDiscoveryTest, DrivesBehindACsmiControllerComeAfterTheInternalAndExternalDisksWithLocationThree) {
  const std::string usb = R"({"name": "usb0", "kind": "ata", "bus": "usb", "profile": {"model": "WDC WD20SDRW",
    "serial": "WX1", "capacitySectors": 2097152}, "bridge": {"type": "sat"}})";
  ASSERT_NE(installJson(csmiMachine({usb, ataDisk("hdd0", "WDC WD10EZEX-08WN4A0", "WCC6Y0")})), nullptr);
  refresh();
  ASSERT_EQ(manager->getComponentCount(), 4u);
  EXPECT_EQ(locations(), (std::vector<uint32_t>{1, 2, 3, 3}));
  EXPECT_EQ(detail(0, "MODEL"), "WDC WD10EZEX-08WN4A0");

  // The SATA drive on phy 0: ATA through STP.
  StorageComponent* sata = component(2);
  EXPECT_EQ(sata->getId(), "r2826-0");
  EXPECT_EQ(sata->getBusKind(), static_cast<uint32_t>(kBusAta));
  EXPECT_NE(dynamic_cast<AtaProtocol*>(sata->getProtocol()), nullptr);
  EXPECT_EQ(detail(2, "MODEL"), "ST1000DM003-1CH162");
  EXPECT_EQ(detail(2, "SERIAL"), "Z1D5K0AB");
  EXPECT_EQ(detail(2, "UDI"), "Seagate-ST1000DM003-1CH162-Z1D5K0AB");
  EXPECT_EQ(sata->getDescription().attributes.at("parent"), "RAID_ATTACHED_DRIVES\\Intel(R) C600 RAID");
  EXPECT_EQ(detail(2, "SUPPORTED_STANDARDS"), "<absent>");
  EXPECT_TRUE(sata->getSections().empty());

  // The SAS drive on phy 1: SCSI through SSP; the controller's id has grown.
  StorageComponent* sas = component(3);
  EXPECT_EQ(sas->getId(), "r2826-0-1");
  EXPECT_EQ(sas->getBusKind(), static_cast<uint32_t>(kBusScsi));
  EXPECT_NE(dynamic_cast<ScsiProtocol*>(sas->getProtocol()), nullptr);
  EXPECT_EQ(detail(3, "MANUFACTURER"), "SEAGATE");
  EXPECT_EQ(detail(3, "MODEL"), "ST600MM0006");
  EXPECT_EQ(sas->getDescription().attributes.at("parent"), "RAID_ATTACHED_DRIVES\\Intel(R) C600 RAID");
}

TEST_F(RaidDiscoveryTest, ARaidDriveWithTheUdiOfADirectlyVisibleDiskIsDroppedAndTheDirectOneStays) {
  // The same disk is visible to the operating system and named by a phy.
  ASSERT_NE(installJson(machine({ataDisk("m0", "ST1000DM003-1CH162", "Z1D5K0AB")},
                                R"("controllers": [)" + csmiController("2826", R"([{"protocol": "sata", "disk": "m0"}])") +
                                    "]")),
            nullptr);
  refresh();
  ASSERT_EQ(manager->getComponentCount(), 1u);
  EXPECT_EQ(component(0)->getLocation(), static_cast<uint32_t>(kLocationInternal));
  EXPECT_EQ(detail(0, "UDI"), "Seagate-ST1000DM003-1CH162-Z1D5K0AB");
}

TEST_F(RaidDiscoveryTest, TwoDrivesBehindControllersThatReportTheSameUdiStayOne) {
  // Two controllers name the same hidden disk: the later view is dropped.
  const std::string phys = R"([{"protocol": "sata", "disk": "m0"}])";
  ASSERT_NE(installJson(machine({ataDisk("m0", "ST1000DM003-1CH162", "Z1D5K0AB", R"(, "hidden": true)")},
                                R"("controllers": [)" + csmiController("2826", phys) + ", " +
                                    csmiController("1D02", phys) + "]")),
            nullptr);
  refresh();
  ASSERT_EQ(manager->getComponentCount(), 1u);
  EXPECT_EQ(component(0)->getId(), "r2826-0");
  EXPECT_EQ(component(0)->getLocation(), static_cast<uint32_t>(kLocationRaid));
}

TEST_F(RaidDiscoveryTest, ADriveWhosePropertiesCannotBeReadThroughItsFirstProtocolStaysOutOfTheList) {
  // Phy 0 names no disk: the driver refuses every pass-through to it, and
  // the identify block comes back empty.
  ASSERT_NE(installJson(machine({ataDisk("m0", "ST1000DM003-1CH162", "Z1D5K0AB", R"(, "hidden": true)")},
                                R"("controllers": [)" +
                                    csmiController("2826", R"([{"protocol": "sata", "disk": "gone"},
                                                              {"protocol": "sata", "disk": "m0"}])") +
                                    "]")),
            nullptr);
  refresh();
  ASSERT_EQ(manager->getComponentCount(), 1u);
  EXPECT_EQ(component(0)->getId(), "r2826-0-1");
  EXPECT_EQ(detail(0, "SERIAL"), "Z1D5K0AB");
}

TEST_F(RaidDiscoveryTest, AMachineWhoseOnlyDrivesSitBehindAControllerHasDevices) {
  ASSERT_NE(installJson(csmiMachine()), nullptr);
  StorageComponentManager probe(ItemId(1, 0, 1));
  EXPECT_TRUE(probe.hasUsableRaidDrive());
  EXPECT_TRUE(probe.hasDevices());
}

TEST_F(RaidDiscoveryTest, AControllerWithoutUsableDrivesGivesNoDevices) {
  // The only phy is an expander (SMP): no drive of bus ATA or SCSI.
  ASSERT_NE(installJson(machine({ataDisk("m0", "ST1", "S1", R"(, "hidden": true)")},
                                R"("controllers": [)" + csmiController("2826", R"([{"protocol": "smp", "disk": "m0"}])") +
                                    "]")),
            nullptr);
  StorageComponentManager probe(ItemId(1, 0, 1));
  EXPECT_FALSE(probe.hasUsableRaidDrive());
  EXPECT_FALSE(probe.hasDevices());
  probe.refresh();
  EXPECT_EQ(probe.getComponentCount(), 0u);
}

TEST_F(RaidDiscoveryTest, ClearingTheListClosesNoHandleForADriveBehindAController) {
  ASSERT_NE(installJson(csmiMachine()), nullptr);
  refresh();
  ASSERT_EQ(manager->getComponentCount(), 2u);
  HANDLE adapter = component(0)->getProtocol()->getHandle();
  manager->clearComponents();
  // The adapter's handle still answers: its drives' handles are not closed.
  DWORD returned = 0;
  uint8_t buffer[64] = {};
  EXPECT_TRUE(DeviceIoControl(adapter, IOCTL_SCSI_MINIPORT, buffer, 28, buffer, sizeof(buffer), &returned, nullptr) ||
              GetLastError() != ERROR_INVALID_HANDLE);
}

}  // namespace
