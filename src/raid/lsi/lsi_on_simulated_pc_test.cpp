// The LSI stack on simulated machines whose command libraries lie beside the
// module: controllers found by flavour, described from their records, the
// drives behind them in discovery, pass-through to the drives, and the SMART
// status test on a drive behind a controller.
#include <gtest/gtest.h>

#include <algorithm>

#include "commands/ata/ata_commands.h"
#include "components/storage_component_manager.h"
#include "diagnostics/smart_status.h"
#include "protocols/ata_protocol.h"
#include "protocols/scsi_protocol.h"
#include "raid/lsi/lsi_bridges.h"
#include "raid/lsi/lsi_raid_component.h"
#include "raid/raid_component_manager.h"
#include "raid/raid_machine_test_support.h"
#include "testing/recording_host.h"
#include "testing/simulated_pc.h"

namespace {

using raid_testing::ataDisk;
using raid_testing::machine;
using raid_testing::sasDisk;

const char* kControllers = R"("libraries": ["storelib.dll", "storelibir.dll"],
  "lsiControllers": [
    {"library": "storelib.dll", "id": 0, "model": "MegaRAID SAS 9260-8i", "serial": "SV12345",
     "interfaces": ["SAS 6G", "SATA 3G"], "raidLevels": ["RAID 0", "RAID 1", "RAID 10"],
     "images": [{"table": 1, "position": 0, "name": "FW", "version": "2.130"},
                {"table": 2, "position": 5, "name": "BIOS", "version": "3.30.02.2"}],
     "drives": [{"deviceId": 8, "disk": "m0"}, {"deviceId": 9, "disk": "m1"}, {"deviceId": 32, "type": 2}],
     "logicalDevices": [{"target": 0, "sequence": 1, "primaryLevel": 1, "sizeSectors": 2097152, "drives": 2}],
     "arrays": [{"reference": 0, "flag": 1}]},
    {"library": "storelibir.dll", "id": 3, "model": "SAS2008", "drives": [{"deviceId": 5, "disk": "m2"}]}])";

std::string lsiMachine(const std::string& controllers = kControllers) {
  return machine({ataDisk("hdd0", "WDC WD10EZEX-08WN4A0", "WCC6Y0"),
                  ataDisk("m0", "ST1000DM003-1CH162", "Z1D5K0AB", R"(, "hidden": true)"),
                  sasDisk("m1", "ST600MM0006", "S0M1X2Y3", R"(, "hidden": true)"),
                  ataDisk("m2", "ST2000DM008-2FR102", "ZFL0ABCD", R"(, "hidden": true)")},
                 controllers);
}

std::string detailOf(const std::vector<DetailEntry>& details, const std::string& key) {
  for (const DetailEntry& entry : details) {
    if (entry.key == key) return entry.value;
  }
  return "<absent>";
}

class LsiOnSimulatedPc : public mstest::SimulatedPcTest {
 protected:
  void SetUp() override {
    SimulatedPcTest::SetUp();
    releaseSenders();
  }
  void TearDown() override {
    manager.reset();
    releaseSenders();
    SimulatedPcTest::TearDown();
  }
  static void releaseSenders() {
    releaseLsiStdSender();
    releaseLsiIrSender();
    releaseLsiIr2Sender();
  }
  StorageComponent* component(uint32_t index) const {
    return static_cast<StorageComponent*>(manager->getComponent(index));
  }

  std::unique_ptr<StorageComponentManager> manager;
};

TEST_F(LsiOnSimulatedPc, ControllersOfEachLibraryAreListedWithThePrefixOfTheirFlavour) {
  ASSERT_NE(installJson(lsiMachine()), nullptr);
  RaidComponentManager raid(ItemId(0, 0, 0));
  EXPECT_TRUE(raid.hasDevices());
  raid.refresh();
  ASSERT_EQ(raid.getComponentCount(), 2u);
  auto* mr = dynamic_cast<LsiRaidComponent*>(raid.getComponent(0));
  auto* ir = dynamic_cast<LsiRaidComponent*>(raid.getComponent(1));
  ASSERT_NE(mr, nullptr);
  ASSERT_NE(ir, nullptr);
  EXPECT_EQ(mr->getId(), "mr-0");
  EXPECT_EQ(mr->getControllerKind(), static_cast<uint32_t>(kControllerLsiStd));
  EXPECT_EQ(ir->getId(), "ir-3");
  EXPECT_EQ(ir->getControllerKind(), static_cast<uint32_t>(kControllerLsiIr));
  EXPECT_EQ(ir->getControllerHandle(), 3u);

  EXPECT_EQ(mr->getDescription().name, "MegaRAID SAS 9260-8i - SV12345");
  const std::vector<DetailEntry> details = mr->getDetails();
  EXPECT_EQ(detailOf(details, "UDI"), "MegaRAIDSAS9260-8i-SV12345");
  EXPECT_EQ(detailOf(details, "BIOS_VERSION"), "3.30.02.2");
  EXPECT_EQ(detailOf(details, "SUPPORTED_INTERFACES"), "SAS 6G, SATA 3G");
  EXPECT_EQ(detailOf(details, "SUPPORTED_RAID_LEVELS"), "RAID 0, RAID 1, RAID 10");
  EXPECT_EQ(detailOf(details, "NUM_LOGICAL_DEVICES"), "1");
  EXPECT_EQ(detailOf(details, "NUM_PHYSICAL_DEVICES"), "2");
  const std::vector<DetailSection> sections = mr->getSections();
  ASSERT_EQ(sections.size(), 3u);
  EXPECT_EQ(sections[0].title, "LOGICAL_DISK");
  EXPECT_EQ(detailOf(sections[0].entries, "RAID_LEVEL"), "RAID 1");
  EXPECT_EQ(detailOf(sections[0].entries, "NUM_PHYSICAL_DEVICES"), "2");
  EXPECT_EQ(detailOf(sections[1].entries, "INDEX"), "1");
  EXPECT_EQ(detailOf(sections[1].entries, "MANUFACTURER"), "ATA");
  EXPECT_EQ(detailOf(sections[1].entries, "MODEL"), "ST1000DM003-1CH1");
  EXPECT_EQ(detailOf(sections[2].entries, "MANUFACTURER"), "SEAGATE");
  EXPECT_EQ(mr->getArrays().size(), 1u);
}

TEST_F(LsiOnSimulatedPc, AControllerOfTheThirdLibraryIsListedWithItsOwnPrefixAndKind) {
  ASSERT_NE(installJson(lsiMachine(R"("libraries": ["storelibir-2.dll"],
    "lsiControllers": [{"library": "storelibir-2.dll", "id": 7, "model": "SAS2308",
                        "drives": [{"deviceId": 5, "disk": "m2"}]}])")),
            nullptr);
  RaidComponentManager raid(ItemId(0, 0, 0));
  EXPECT_TRUE(raid.hasDevices());
  raid.refresh();
  ASSERT_EQ(raid.getComponentCount(), 1u);
  auto* ir2 = dynamic_cast<LsiRaidComponent*>(raid.getComponent(0));
  ASSERT_NE(ir2, nullptr);
  EXPECT_EQ(ir2->getId(), "ir2-7");
  EXPECT_EQ(ir2->getControllerKind(), static_cast<uint32_t>(kControllerLsiIr2));
  EXPECT_EQ(ir2->getControllerHandle(), 7u);
  EXPECT_NE(kControllerLsiIr2, kControllerLsiIr);
  EXPECT_EQ(ir2->getDescription().name.rfind("SAS2308", 0), 0u);
}

TEST_F(LsiOnSimulatedPc, DiscoveryListsTheDrivesBehindTheControllersAfterTheInternalDisk) {
  ASSERT_NE(installJson(lsiMachine()), nullptr);
  manager = std::make_unique<StorageComponentManager>(ItemId(1, 0, 1));
  manager->refresh();
  ASSERT_EQ(manager->getComponentCount(), 4u);
  EXPECT_EQ(component(0)->getLocation(), static_cast<uint32_t>(kLocationInternal));
  const char* ids[] = {"8", "9", "5"};
  for (uint32_t i = 1; i < 4; ++i) {
    EXPECT_EQ(component(i)->getLocation(), static_cast<uint32_t>(kLocationRaid)) << i;
    EXPECT_EQ(component(i)->getId(), ids[i - 1]);
    EXPECT_NE(dynamic_cast<ScsiProtocol*>(component(i)->getProtocol()), nullptr);
  }
  // The SATA drive is described by its own ATA protocol: the drive's
  // identity, not the translation's.
  const std::vector<DetailEntry> sata = component(1)->getDetails();
  EXPECT_EQ(detailOf(sata, "MODEL"), "ST1000DM003-1CH162");
  EXPECT_EQ(detailOf(sata, "UDI"), "Seagate-ST1000DM003-1CH162-Z1D5K0AB");
  EXPECT_EQ(component(1)->getBusKind(), static_cast<uint32_t>(kBusAta));
  EXPECT_EQ(component(1)->getDescription().attributes.at("parent"),
            "RAID_ATTACHED_DRIVES\\MegaRAID SAS 9260-8i - SV12345");
  const std::vector<DetailEntry> sas = component(2)->getDetails();
  EXPECT_EQ(detailOf(sas, "MANUFACTURER"), "SEAGATE");
  EXPECT_EQ(detailOf(sas, "MODEL"), "ST600MM0006");
  EXPECT_EQ(component(2)->getBusKind(), static_cast<uint32_t>(kBusScsi));
  EXPECT_EQ(component(3)->getDescription().attributes.at("parent"), "RAID_ATTACHED_DRIVES\\SAS2008");
}

TEST_F(LsiOnSimulatedPc, TheSmartStatusTestReachesTheSasDriveBehindTheController) {
  sim::Machine* pc = installJson(lsiMachine());
  ASSERT_NE(pc, nullptr);
  manager = std::make_unique<StorageComponentManager>(ItemId(1, 0, 1));
  manager->refresh();
  ASSERT_EQ(manager->getComponentCount(), 4u);
  StorageComponent* sas = component(2);
  SmartStatusTest test(ItemId(1, 1, 1));
  ASSERT_TRUE(test.isSupported(sas));
  pc->journal().clear();
  mstest::RecordingListener listener;
  mstest::RecordingLog log;
  mstest::ScriptedRunContext context(sas, &listener, &log);
  // The informational exceptions log page and REQUEST SENSE go through the
  // library to the drive. The drive's 18 sense bytes are too few for the SCSI
  // protocol's verdict, and the platform's failure prediction has no disk
  // handle behind a controller: the test can't be done.
  EXPECT_EQ(test.run(&context), NOT_APPLICABLE);
  const std::vector<uint8_t> opcodes = pc->journal().opcodesTo("m1");
  EXPECT_NE(std::find(opcodes.begin(), opcodes.end(), 0x4D), opcodes.end());
  EXPECT_NE(std::find(opcodes.begin(), opcodes.end(), 0x03), opcodes.end());
}

TEST_F(LsiOnSimulatedPc, ASataDriveBehindTheControllerIsTestedThroughTheTranslationItsScsiProtocolSees) {
  sim::Machine* pc = installJson(lsiMachine());
  ASSERT_NE(pc, nullptr);
  manager = std::make_unique<StorageComponentManager>(ItemId(1, 0, 1));
  manager->refresh();
  ASSERT_EQ(manager->getComponentCount(), 4u);
  // The component keeps the SCSI protocol. The translation carries the
  // informational exceptions mode page, as SAT has it, so SMART counts as
  // supported and is switched on through MODE SELECT; the verdict is then
  // asked for as from a SAS drive, by the informational exceptions log page
  // and REQUEST SENSE, whose 18 sense bytes are too few for the SCSI
  // protocol's verdict: the test can't be done.
  SmartStatusTest test(ItemId(1, 1, 1));
  mstest::RecordingListener listener;
  mstest::RecordingLog log;
  mstest::ScriptedRunContext context(component(1), &listener, &log);
  EXPECT_EQ(test.run(&context), NOT_APPLICABLE);
  const std::vector<uint8_t> translated = pc->journal().opcodesTo("m0.scsi");
  for (uint8_t opcode : {0x1A, 0x15, 0x4D, 0x03}) {
    EXPECT_NE(std::find(translated.begin(), translated.end(), opcode), translated.end()) << int{opcode};
  }
  // The drive's own ATA commands still reach it through STP.
  std::vector<uint8_t> block(512, 0);
  IdentifyDevice identify(block.data());
  LsiStpBridge bridge(lsiControllerHandle(0), 8, getLsiStdSender());
  ASSERT_EQ(bridge.send(identify), 0u);
  EXPECT_EQ(identify.dataLength, 512u);
  EXPECT_EQ(pc->journal().opcodesTo("m0").back(), 0xEC);
}

TEST_F(LsiOnSimulatedPc, AnAbsentLibraryOrOneThatRefusesToStartGivesNoControllers) {
  std::string controllers = kControllers;
  controllers.replace(controllers.find(R"("libraries": ["storelib.dll", "storelibir.dll"])"),
                      std::string(R"("libraries": ["storelib.dll", "storelibir.dll"])").size(),
                      R"("libraries": [])");
  ASSERT_NE(installJson(lsiMachine(controllers)), nullptr);
  RaidComponentManager raid(ItemId(0, 0, 0));
  EXPECT_FALSE(raid.hasDevices());
  raid.refresh();
  EXPECT_EQ(raid.getComponentCount(), 0u);

  sim::uninstallMachine();
  ASSERT_NE(installJson(machine({ataDisk("m0", "ST1", "S1", R"(, "hidden": true)")},
                                R"("libraries": ["storelib.dll"], "lsiControllers": [{"library": "storelib.dll",
                                   "refuseStart": true, "drives": [{"deviceId": 1, "disk": "m0"}]}])")),
            nullptr);
  EXPECT_EQ(getLsiStdSender(), nullptr);
  raid.refresh();
  EXPECT_EQ(raid.getComponentCount(), 0u);
}

TEST_F(LsiOnSimulatedPc, AControllerWhoseDriveListIsRefusedIsNotListed) {
  ASSERT_NE(installJson(machine({ataDisk("m0", "ST1", "S1", R"(, "hidden": true)")},
                                R"("libraries": ["storelib.dll"], "lsiControllers": [
                                   {"library": "storelib.dll", "id": 1, "refuse": ["physicalDriveList"],
                                    "drives": [{"deviceId": 1, "disk": "m0"}]},
                                   {"library": "storelib.dll", "id": 2, "model": "ok",
                                    "drives": [{"deviceId": 1, "disk": "m0"}]}])")),
            nullptr);
  RaidComponentManager raid(ItemId(0, 0, 0));
  raid.refresh();
  ASSERT_EQ(raid.getComponentCount(), 1u);
  EXPECT_EQ(raid.getComponent(0)->getId(), "mr-2");
}

TEST_F(LsiOnSimulatedPc, AControllerWhoseInformationIsRefusedIsListedWithoutPropertiesButGivesNoDrives) {
  ASSERT_NE(installJson(machine({ataDisk("m0", "ST1", "S1", R"(, "hidden": true)")},
                                R"("libraries": ["storelib.dll"], "lsiControllers": [
                                   {"library": "storelib.dll", "id": 1, "refuse": ["controllerInfo"],
                                    "drives": [{"deviceId": 1, "disk": "m0"}]}])")),
            nullptr);
  RaidComponentManager raid(ItemId(0, 0, 0));
  raid.refresh();
  // describe goes on past a failed discover and succeeds with the drives.
  ASSERT_EQ(raid.getComponentCount(), 1u);
  auto* controller = static_cast<LsiRaidComponent*>(raid.getComponent(0));
  EXPECT_EQ(detailOf(controller->getDetails(), "UDI"), "<absent>");
  EXPECT_EQ(detailOf(controller->getDetails(), "NUM_PHYSICAL_DEVICES"), "1");
  // Discovery asks discover again and passes the controller over.
  manager = std::make_unique<StorageComponentManager>(ItemId(1, 0, 1));
  manager->refresh();
  EXPECT_EQ(manager->getComponentCount(), 0u);
}

TEST_F(LsiOnSimulatedPc, AWriteThroughTheStpBridgeWritesZerosOnTheDrive) {
  sim::Machine* pc = installJson(lsiMachine());
  ASSERT_NE(pc, nullptr);
  LsiSender* sender = getLsiStdSender();
  ASSERT_NE(sender, nullptr);
  LsiStpBridge bridge(lsiControllerHandle(0), 8, sender);
  std::vector<uint8_t> sector(512, 0xA5);
  WriteSectorsExt write(100, 1, 512, sector.data());
  ASSERT_EQ(bridge.send(write), 0u);
  EXPECT_TRUE(pc->journal().wasWritten("m0", 100));
  std::vector<uint8_t> back(512, 0xFF);
  pc->findDisk("m0")->media->readBytes(100 * 512, 512, back.data());
  EXPECT_EQ(back, std::vector<uint8_t>(512, 0));
}

TEST_F(LsiOnSimulatedPc, AMachineWithAWrongLsiKeyIsRefusedWithThePath) {
  std::string error;
  std::unique_ptr<sim::Machine> pc = sim::Machine::fromJsonText(
      machine({ataDisk("m0", "ST1", "S1")}, R"("lsiControllers": [{"library": "storelib.dll",
          "drives": [{"deviceId": 1, "disk": "nothing"}]}])"),
      &error);
  ASSERT_NE(pc, nullptr) << error;
  EXPECT_FALSE(sim::installMachine(std::move(pc), &error));
  EXPECT_EQ(error, "lsiControllers[0].drives[0].disk: no disk of this name");
}

}  // namespace
