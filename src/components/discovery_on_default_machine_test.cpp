// Discovery on the built-in machine with the Windows scanner, as the host
// sees it: one described component per offered drive, internal drives first,
// each reached through the protocol its bus calls for.
#include <gtest/gtest.h>

#include <string>
#include <typeinfo>
#include <vector>

#include "commands/bridges/sat_bridge.h"
#include "components/storage_component_manager.h"
#include "protocols/ata_protocol.h"
#include "protocols/emmc_protocol.h"
#include "protocols/scsi_protocol.h"
#include "testing/simulated_pc.h"

namespace {

class DefaultMachineDiscovery : public mstest::SimulatedPcTest {
 protected:
  void SetUp() override {
    SimulatedPcTest::SetUp();
    machine = installDefault();
    ASSERT_NE(machine, nullptr);
    manager = std::make_unique<StorageComponentManager>(ItemId(1, 0, 1));
  }
  void TearDown() override {
    manager.reset();
    SimulatedPcTest::TearDown();
  }

  StorageComponent* component(uint32_t index) { return static_cast<StorageComponent*>(manager->getComponent(index)); }
  std::string detail(uint32_t index, const std::string& key) {
    for (const DetailEntry& entry : component(index)->getDetails()) {
      if (entry.key == key) return entry.value;
    }
    return "<absent>";
  }
  std::vector<std::string> models() {
    std::vector<std::string> out;
    for (uint32_t i = 0; i < manager->getComponentCount(); ++i) out.push_back(detail(i, "MODEL"));
    return out;
  }

  sim::Machine* machine = nullptr;
  std::unique_ptr<StorageComponentManager> manager;
};

TEST_F(DefaultMachineDiscovery, RefreshOffersEveryDriveInternalFirstThenExternal) {
  manager->refresh();
  ASSERT_EQ(manager->getComponentCount(), 7u);
  EXPECT_EQ(models(), (std::vector<std::string>{"WDC WD10EZEX-08WN4A0", "CT500MX500SSD1", "Samsung SSD 970",
                                                "ST4000NM0025", "BJTD4R", "WDC WD20SDRW-11VUUS0",
                                                "ST1000LM035-1RK172"}));
  const std::vector<std::string> ids = {"0", "1", "2", "3", "6", "4", "5"};
  const std::vector<uint32_t> locations = {1, 1, 1, 1, 1, 2, 2};
  const std::vector<uint32_t> buses = {kBusAta, kBusAta, kBusNvme, kBusScsi, kBusEmmc, kBusUsb, kBusUsb};
  for (uint32_t i = 0; i < 7; ++i) {
    EXPECT_EQ(component(i)->getId(), ids[i]) << i;
    EXPECT_EQ(component(i)->getLocation(), locations[i]) << i;
    EXPECT_EQ(component(i)->getBusKind(), buses[i]) << i;
    EXPECT_EQ(component(i)->getDescription().attributes.at("parent"), locations[i] == 1 ? "LOCAL_DRIVES" : "USB_DRIVES");
  }
}

TEST_F(DefaultMachineDiscovery, EachDriveIsReachedThroughTheProtocolItsBusCallsFor) {
  manager->refresh();
  ASSERT_EQ(manager->getComponentCount(), 7u);
  for (uint32_t i : {0u, 1u}) {
    auto* ata = dynamic_cast<AtaProtocol*>(component(i)->getProtocol());
    ASSERT_NE(ata, nullptr) << i;
    EXPECT_EQ(ata->getProtocolKind(), static_cast<uint32_t>(kProtocolAta));
    ASSERT_EQ(ata->getTransports().size(), 2u);
    EXPECT_EQ(typeid(*ata->getTransports().front()), typeid(AtaBridge));
  }
  EXPECT_EQ(typeid(*component(2)->getProtocol()), typeid(NvmeScsiProtocol));
  EXPECT_EQ(component(2)->getProtocol()->getProtocolKind(), static_cast<uint32_t>(kProtocolNvme));
  EXPECT_EQ(typeid(*component(3)->getProtocol()), typeid(ScsiProtocol));
  EXPECT_EQ(component(3)->getProtocol()->getProtocolKind(), static_cast<uint32_t>(kProtocolScsi));
  EXPECT_EQ(typeid(*component(4)->getProtocol()), typeid(EmmcProtocol));
  EXPECT_EQ(component(4)->getProtocol()->getProtocolKind(), static_cast<uint32_t>(kProtocolEmmc));
  // The USB disks keep their SCSI protocol for the tests.
  for (uint32_t i : {5u, 6u}) {
    EXPECT_EQ(typeid(*component(i)->getProtocol()), typeid(ScsiProtocol)) << i;
    EXPECT_EQ(component(i)->getProtocol()->getProtocolKind(), static_cast<uint32_t>(kProtocolScsi));
    EXPECT_EQ(component(i)->getProtocol()->getBusKind(), static_cast<uint32_t>(kBusUsb));
  }
}

TEST_F(DefaultMachineDiscovery, TheEmmcDeviceIsNeverProbed) {
  manager->refresh();
  EXPECT_TRUE(machine->journal().commandsTo("emmc0").empty());
  ASSERT_GE(manager->getComponentCount(), 5u);
  EXPECT_EQ(component(4)->getUdi(), "-BJTD4R-0x9d0a8a30");
  EXPECT_EQ(component(4)->getDescription().attributes.at("NonRotatingMedia"), "T");
}

TEST_F(DefaultMachineDiscovery, TheJMicronDiskIsDescribedFromAtaAndTheSatDiskToo) {
  manager->refresh();
  ASSERT_EQ(manager->getComponentCount(), 7u);
  // Not "JMicron Generic" nor "WD Elements 25A2": the drives inside.
  EXPECT_EQ(detail(6, "MODEL"), "ST1000LM035-1RK172");
  EXPECT_EQ(detail(6, "SERIAL"), "WL1DM4X7");
  EXPECT_EQ(detail(6, "FIRMWARE"), "LCM2");
  EXPECT_EQ(component(6)->getUdi(), "Seagate-ST1000LM035-1RK172-WL1DM4X7");
  EXPECT_EQ(detail(5, "SERIAL"), "WD-WX21A17R4PLD");
  EXPECT_EQ(detail(5, "TEMPERATURE"), "39 C");
  EXPECT_FALSE(machine->journal().commandsTo("usb1").empty()) << "the drive behind the chip answered";
}

TEST_F(DefaultMachineDiscovery, NamesUdisAndDetailsAreThoseOfTheProfiles) {
  manager->refresh();
  ASSERT_EQ(manager->getComponentCount(), 7u);
  EXPECT_EQ(component(0)->getDescription().name, "WDC WD10EZEX-08WN4A0 - 931.51 GBs");
  EXPECT_EQ(component(0)->getUdi(), "Wdc-WDCWD10EZEX-08WN4A0-WD-WCC6Y3KL5627");
  EXPECT_EQ(detail(0, "SERIAL"), "WD-WCC6Y3KL5627");
  EXPECT_EQ(detail(0, "FIRMWARE"), "01.01A01");
  EXPECT_EQ(detail(0, "ROTATION_RATE"), "7200 RPM");
  EXPECT_EQ(detail(0, "TEMPERATURE"), "36 C");
  EXPECT_EQ(detail(0, "PHYSICAL_SECTOR_SIZE"), "4096");
  EXPECT_EQ(detail(0, "LOGICAL_SECTORS"), "1953525168");
  EXPECT_EQ(component(0)->getDescription().attributes.at("NonRotatingMedia"), "F");

  EXPECT_EQ(detail(1, "TEMPERATURE"), "33 C");
  EXPECT_EQ(component(1)->getDescription().attributes.at("NonRotatingMedia"), "T");

  EXPECT_EQ(detail(3, "MANUFACTURER"), "SEAGATE");
  EXPECT_EQ(detail(3, "SERIAL"), "ZC1A2B3C0000R8141VBK");
  EXPECT_EQ(detail(3, "FIRMWARE"), "E001");
  EXPECT_EQ(component(3)->getDescription().name, "ST4000NM0025 - 3.64 TBs");

  EXPECT_EQ(component(4)->getDescription().name.substr(0, 9), "BJTD4R - ");
  EXPECT_EQ(detail(4, "LOGICAL_SECTOR_SIZE"), "512");
  // Every identity is distinct.
  for (uint32_t i = 0; i < 7; ++i) {
    for (uint32_t k = i + 1; k < 7; ++k) EXPECT_NE(component(i)->getUdi(), component(k)->getUdi());
  }
}

TEST_F(DefaultMachineDiscovery, PartitionSectionsAreThoseOfTheDescription) {
  manager->refresh();
  ASSERT_EQ(manager->getComponentCount(), 7u);
  EXPECT_EQ(detail(0, "PARTITION_SCHEMA"), "GPT");
  const std::vector<DetailSection> system = component(0)->getSections();
  ASSERT_EQ(system.size(), 3u);
  EXPECT_EQ(system[0].entries[1].value, "_E|F|I_SYSTEM_PARTITION");
  EXPECT_EQ(system[1].entries[1].value, "_MICROSOFT_RESERVED_PARTITION");
  const std::vector<DetailEntry>& windows = system[2].entries;
  ASSERT_EQ(windows.size(), 9u);
  EXPECT_EQ(windows[0].value, "3");
  EXPECT_EQ(windows[1].value, "_WINDOWS_BASIC_DATA_PARTITION");
  EXPECT_EQ(windows[2].value, "ntfs");
  EXPECT_EQ(windows[3].value, "Windows");
  EXPECT_EQ(windows[4].value, "C:\\");
  EXPECT_EQ(windows[5].value, "5E1A7C02");
  EXPECT_EQ(windows[8].key, "FREE");
  EXPECT_EQ(windows[8].value, "300.00 GBs");

  EXPECT_EQ(detail(4, "PARTITION_SCHEMA"), "MBR");
  const std::vector<DetailSection> emmc = component(4)->getSections();
  ASSERT_EQ(emmc.size(), 1u);
  EXPECT_EQ(emmc[0].entries[1].value, "PRIMARY");
  EXPECT_EQ(emmc[0].entries[4].value, "D:\\");
  // Disks without partitions have a description of none.
  EXPECT_TRUE(component(3)->getSections().empty());
  EXPECT_EQ(detail(3, "PARTITION_SCHEMA"), "<absent>");
}

TEST_F(DefaultMachineDiscovery, HasDevicesAnswersWithoutBuildingComponentsOrSendingCommands) {
  machine->journal().clear();  // the partition tables written at installation
  EXPECT_TRUE(manager->hasDevices());
  EXPECT_EQ(manager->getComponentCount(), 0u);
  EXPECT_TRUE(machine->journal().entries().empty());
}

TEST_F(DefaultMachineDiscovery, RemovableMediaAndUnknownBusesAreNotOffered) {
  // The default machine with a card reader's removable medium and a disk on
  // a bus the module does not know (ATAPI cannot be described, SD removable).
  nlohmann::json description = nlohmann::json::parse(sim::Machine::defaultMachineJson());
  description["disks"].push_back(nlohmann::json::parse(
      R"({"name": "card", "kind": "emmc", "bus": "sd", "removable": true, "profile": {"capacitySectors": 62333952}})"));
  description["disks"].push_back(nlohmann::json::parse(
      R"({"name": "stick", "kind": "ata", "bus": "usb", "removable": true,
          "profile": {"model": "USB STICK", "serial": "S", "capacitySectors": 30031872},
          "bridge": {"type": "sat", "vendor": "Kingston", "product": "DataTraveler"}})"));
  std::string error;
  auto machine = sim::Machine::fromJson(description, &error);
  ASSERT_NE(machine, nullptr) << error;
  ASSERT_TRUE(sim::installMachine(std::move(machine), &error)) << error;
  manager->refresh();
  EXPECT_EQ(manager->getComponentCount(), 7u);
  for (const std::string& model : models()) {
    EXPECT_NE(model, "USB STICK");
  }
}

TEST_F(DefaultMachineDiscovery, ASecondRefreshGivesTheSameList) {
  manager->refresh();
  const std::vector<std::string> first = models();
  manager->refresh();
  EXPECT_EQ(models(), first);
  EXPECT_EQ(manager->getComponentCount(), 7u);
}

}  // namespace
