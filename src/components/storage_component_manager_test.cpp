// Discovery on simulated machines built for each case: which disks are
// offered, through which protocol and bridges, with which handle, and how
// their identities are told apart. The scanner is the Windows one, with
// answers overridden disk by disk where a case needs it.
#include "components/storage_component_manager.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <typeinfo>

#include "commands/bridges/sat_bridge.h"
#include "components/manager_test_support.h"
#include "protocols/ata_protocol.h"
#include "protocols/emmc_protocol.h"
#include "protocols/scsi_protocol.h"
#include "testing/scripted_protocol.h"
#include "testing/simulated_pc.h"

namespace {

using manager_testing::ScriptedManager;

std::string ataDisk(const std::string& name, const std::string& model, const std::string& serial,
                    const std::string& extra = "") {
  return R"({"name": ")" + name + R"(", "kind": "ata", "profile": {"model": ")" + model + R"(", "serial": ")" +
         serial + R"(", "capacitySectors": 2097152})" + extra + "}";
}

std::string machineOf(const std::vector<std::string>& disks) {
  std::string json = R"({"name": "case", "disks": [)";
  for (size_t i = 0; i < disks.size(); ++i) json += (i ? ", " : "") + disks[i];
  return json + "]}";
}

// A SCSI face that refuses the listed operation codes as a device that does
// not know them (CHECK CONDITION, ILLEGAL REQUEST, invalid command operation
// code) and passes everything else to the face it wraps.
class RefusingScsi : public sim::ScsiTarget {
 public:
  RefusingScsi(std::shared_ptr<sim::ScsiTarget> inner, std::vector<uint8_t> refused)
      : inner_(std::move(inner)), refused_(std::move(refused)) {}
  sim::ScsiResponse executeScsi(const sim::ScsiRequest& request) override {
    if (std::find(refused_.begin(), refused_.end(), request.cdb[0]) == refused_.end()) {
      return inner_->executeScsi(request);
    }
    sim::ScsiResponse response;
    response.status = 0x02;
    response.sense = {0x70, 0, 0x05, 0, 0, 0, 0, 10, 0, 0, 0, 0, 0x20, 0x00};
    return response;
  }

 private:
  std::shared_ptr<sim::ScsiTarget> inner_;
  std::vector<uint8_t> refused_;
};

void refuseScsi(sim::Machine* machine, size_t disk, std::vector<uint8_t> opcodes) {
  ASSERT_NE(machine, nullptr);
  machine->disks[disk].scsi = std::make_shared<RefusingScsi>(machine->disks[disk].scsi, std::move(opcodes));
}

const char* kJMicronDisk = R"({"name": "usb1", "kind": "ata", "bus": "usb",
  "profile": {"model": "ST1000LM035-1RK172", "serial": "WL1DM4X7", "firmware": "LCM2",
              "capacitySectors": 1953525168, "security": {"supported": true, "enabled": true, "locked": true}},
  "bridge": {"type": "jmicron", "vendor": "JMicron", "product": "Generic", "revision": "0508",
             "serial": "0123456789ABCDEF"}})";

class StorageComponentManagerTest : public mstest::SimulatedPcTest {
 protected:
  ScriptedManager discovery;
};

TEST_F(StorageComponentManagerTest, ADiskWhosePathsAllFailAtOpenIsAbsentAndTheNextDiskNumberIsStillServed) {
  installJson(machineOf({ataDisk("a", "FIRST DISK", "A1"), ataDisk("b", "SECOND DISK", "B2")}));
  DiskMap map;
  discovery.scanner->scanDevices(map);
  ASSERT_EQ(map.size(), 2u);
  for (const std::string& path : map[0]) discovery.scanner->service.refused.insert(path);
  discovery.manager->refresh();
  ASSERT_EQ(discovery.manager->getComponentCount(), 1u);
  EXPECT_EQ(discovery.component(0)->getId(), "1");
  EXPECT_EQ(discovery.detail(0, "MODEL"), "SECOND DISK");
}

TEST_F(StorageComponentManagerTest, ADiskWithTwoPathsWhoseFirstFailsAtBuildComponentIsServedByTheSecondWithThatHandle) {
  installJson(machineOf({ataDisk("a", "FIRST DISK", "A1")}));
  discovery.scanner->numberTextFailures[0] = 1;
  discovery.manager->refresh();
  ASSERT_EQ(discovery.manager->getComponentCount(), 1u);
  const auto& service = discovery.scanner->service;
  // The scanner's own queries open paths too; the component's handle is the
  // one opened on the second path, and every other handle is closed.
  const HANDLE kept = discovery.component(0)->getProtocol()->getHandle();
  const auto at = std::find(service.handles.begin(), service.handles.end(), kept);
  ASSERT_NE(at, service.handles.end());
  EXPECT_EQ(service.openedPaths[static_cast<size_t>(at - service.handles.begin())], "\\\\.\\PhysicalDrive0");
  EXPECT_NE(service.openedPaths.front(), "\\\\.\\PhysicalDrive0") << "the interface path came first";
  EXPECT_EQ(service.live, std::set<HANDLE>{kept});
  EXPECT_EQ(discovery.component(0)->getId(), "0");
}

TEST_F(StorageComponentManagerTest, ADiskWhoseEveryPathFailsAtBuildComponentIsAbsentWithItsHandlesClosed) {
  installJson(machineOf({ataDisk("a", "FIRST DISK", "A1")}));
  discovery.scanner->numberTextFailures[0] = 2;
  discovery.manager->refresh();
  EXPECT_EQ(discovery.manager->getComponentCount(), 0u);
  EXPECT_TRUE(discovery.scanner->service.live.empty());
}

TEST_F(StorageComponentManagerTest, AnInternalDiskAnsweringOnThePlainBridgeAndOnSatGetsAnAtaProtocolWithTwoTransportsPlainFirst) {
  installJson(machineOf({ataDisk("a", "FIRST DISK", "A1")}));
  discovery.manager->refresh();
  ASSERT_EQ(discovery.manager->getComponentCount(), 1u);
  auto* ata = dynamic_cast<AtaProtocol*>(discovery.component(0)->getProtocol());
  ASSERT_NE(ata, nullptr);
  EXPECT_EQ(ata->getProtocolKind(), static_cast<uint32_t>(kProtocolAta));
  EXPECT_EQ(ata->getBusKind(), static_cast<uint32_t>(kBusAta));
  ASSERT_EQ(ata->getTransports().size(), 2u);
  EXPECT_EQ(typeid(*ata->getTransports().front()), typeid(AtaBridge));
  EXPECT_EQ(typeid(*ata->getTransports().back()), typeid(SatBridgeWithCkCondition));
  EXPECT_EQ(discovery.component(0)->getLocation(), static_cast<uint32_t>(kLocationInternal));
}

TEST_F(StorageComponentManagerTest, AnExternalDiskKeepsItsScsiProtocolButBehindAJMicronBridgeIsDescribedFromAta) {
  installJson(machineOf({kJMicronDisk}));
  discovery.manager->refresh();
  ASSERT_EQ(discovery.manager->getComponentCount(), 1u);
  StorageComponent* disk = discovery.component(0);
  auto* scsi = dynamic_cast<ScsiProtocol*>(disk->getProtocol());
  ASSERT_NE(scsi, nullptr);
  EXPECT_EQ(scsi->getProtocolKind(), static_cast<uint32_t>(kProtocolScsi));
  EXPECT_EQ(scsi->getBusKind(), static_cast<uint32_t>(kBusUsb));
  // The drive's identity, not the enclosure's ("JMicron", "Generic").
  EXPECT_EQ(discovery.detail(0, "MODEL"), "ST1000LM035-1RK172");
  EXPECT_EQ(discovery.detail(0, "SERIAL"), "WL1DM4X7");
  EXPECT_EQ(discovery.detail(0, "FIRMWARE"), "LCM2");
  EXPECT_EQ(disk->getUdi(), "Seagate-ST1000LM035-1RK172-WL1DM4X7");
  EXPECT_EQ(disk->getDescription().attributes.at("parent"), "USB_DRIVES");
  // Security is learned through the ATA bridge.
  EXPECT_EQ(disk->getSecuritySupported(), 1);
  EXPECT_EQ(disk->getSecurityLocked(), 1);
  // The SCSI protocol's cache is current: the enclosure's identity.
  StorageProtocolProperties cached;
  scsi->getCachedProperties(&cached);
  EXPECT_EQ(cached.vendor.substr(0, 7), "JMicron");
}

TEST_F(StorageComponentManagerTest, ABridgeThatAnswersIdentifyButFailsDescribeLeavesTheScsiDescriptionAndSetsTheSecurityFlags) {
  // The drive answers the JMicron probe, then leaves the link for good: the
  // description through the bridge fails, and the enclosure's stands.
  std::string disk = kJMicronDisk;
  disk.insert(disk.rfind('}'), R"(, "faults": {"transportFailFrom": 3, "transportFailCount": 0})");
  installJson(machineOf({disk}));
  sim::Machine* machine = sim::installedMachine();
  discovery.manager->refresh();
  ASSERT_EQ(discovery.manager->getComponentCount(), 1u);
  StorageComponent* component = discovery.component(0);
  EXPECT_NE(dynamic_cast<ScsiProtocol*>(component->getProtocol()), nullptr);
  EXPECT_EQ(discovery.detail(0, "MODEL"), "Generic");
  EXPECT_EQ(discovery.detail(0, "MANUFACTURER"), "JMicron");
  // The JMicron probe reached the drive (IDENTIFY, 0xEC) and succeeded.
  const std::vector<sim::JournalEntry> commands = machine->journal().commandsTo("usb1");
  size_t identifies = 0;
  size_t answered = 0;
  for (const sim::JournalEntry& entry : commands) {
    if (entry.opcode() != 0xEC) continue;
    ++identifies;
    if (entry.completion == sim::Completion::Done) ++answered;
  }
  EXPECT_GE(answered, 2u) << "the enclosure's own identify and the JMicron probe";
  EXPECT_GT(identifies, answered) << "the description through the bridge failed";
  // The flags come from the temporary protocol's cache, which its failed
  // IDENTIFY left empty, and not from the probe's answer, in which the drive
  // said it was locked. (That they are taken at all, the next test shows.)
  EXPECT_EQ(component->getSecuritySupported(), 0);
  EXPECT_EQ(component->getSecurityLocked(), 0);
}

// A temporary protocol whose description fails although its cache holds the
// drive's security state (as after an IDENTIFY whose answer came, followed by
// a failure): the component takes the flags from that cache all the same.
class LockedButSilentAta : public AtaProtocol {
 public:
  uint32_t getProperties(StorageProtocolProperties*) override {
    cache.securitySupported = true;
    cache.securityLocked = true;
    return kStatusIoctlFailed;
  }
};

class ManagerWithSilentAtaBehindBridges : public StorageComponentManager {
 public:
  ManagerWithSilentAtaBehindBridges() : StorageComponentManager(ItemId(1, 0, 1)) {}

 protected:
  std::unique_ptr<AtaProtocol> makeProtocolBehindBridge() override { return std::make_unique<LockedButSilentAta>(); }
};

TEST_F(StorageComponentManagerTest, AFailedDescriptionBehindABridgeStillSetsBothSecurityFlagsFromTheTemporaryProtocol) {
  installJson(machineOf({kJMicronDisk}));
  ManagerWithSilentAtaBehindBridges manager;
  manager.refresh();
  ASSERT_EQ(manager.getComponentCount(), 1u);
  auto* component = static_cast<StorageComponent*>(manager.getComponent(0));
  EXPECT_NE(dynamic_cast<ScsiProtocol*>(component->getProtocol()), nullptr);
  EXPECT_EQ(component->getSecuritySupported(), 1);
  EXPECT_EQ(component->getSecurityLocked(), 1);
  // The description is the enclosure's, through SCSI.
  std::string model;
  for (const DetailEntry& entry : component->getDetails()) {
    if (entry.key == "MODEL") model = entry.value;
  }
  EXPECT_EQ(model, "Generic");
}

TEST_F(StorageComponentManagerTest, AnEmmcDiskIsNeverProbedAndAlwaysGetsEmmcProtocol) {
  // An ATA drive that the scanner reports as eMMC: nothing reaches it.
  sim::Machine* machine = installJson(machineOf({ataDisk("a", "FIRST DISK", "A1")}));
  ASSERT_NE(machine, nullptr);
  discovery.scanner->busKinds[0] = kBusEmmc;
  discovery.manager->refresh();
  ASSERT_EQ(discovery.manager->getComponentCount(), 1u);
  auto* emmc = dynamic_cast<EmmcProtocol*>(discovery.component(0)->getProtocol());
  ASSERT_NE(emmc, nullptr);
  EXPECT_EQ(emmc->getProtocolKind(), static_cast<uint32_t>(kProtocolEmmc));
  EXPECT_EQ(emmc->getBusKind(), static_cast<uint32_t>(kBusEmmc));
  EXPECT_EQ(emmc->getPath(), discovery.scanner->service.openedPaths.front());
  EXPECT_TRUE(machine->journal().commandsTo("a").empty());
  EXPECT_TRUE(machine->journal().commandsTo("a.scsi").empty());
  // Described from the storage descriptor.
  EXPECT_EQ(discovery.detail(0, "MODEL"), "FIRST DISK");
}

TEST_F(StorageComponentManagerTest, AnExternalEmmcDiskMustAnswerGetPropertiesLikeAnyExternalDisk) {
  installJson(machineOf({R"({"name": "e", "kind": "emmc", "profile": {"capacitySectors": 2097152},
    "partitions": {"scheme": "mbr", "entries": [{"type": 7, "startLba": 2048, "sectorCount": 1000000}]},
    "volumes": [{"partition": 1, "letter": "C"}],
    "files": [{"path": "C:\\probe.bin", "size": 4096}]})"}));
  const HANDLE disk = openDisk(0);
  const HANDLE file = openPath("C:\\probe.bin", GENERIC_READ);
  ASSERT_NE(disk, INVALID_HANDLE_VALUE);
  ASSERT_NE(file, INVALID_HANDLE_VALUE);

  // Internal: nothing is asked, the cache stays empty.
  DiskCandidate internal{disk, kLocationInternal, kBusEmmc, "\\\\.\\PhysicalDrive0"};
  std::unique_ptr<StorageProtocol> kept = discovery.manager->createProtocol(internal);
  ASSERT_NE(dynamic_cast<EmmcProtocol*>(kept.get()), nullptr);
  StorageProtocolProperties cached;
  kept->getCachedProperties(&cached);
  EXPECT_EQ(cached.sectorCount, 0u);

  // External: the protocol had to answer getProperties, which filled its cache.
  DiskCandidate external{disk, kLocationExternal, kBusEmmc, "\\\\.\\PhysicalDrive0"};
  std::unique_ptr<StorageProtocol> asked = discovery.manager->createProtocol(external);
  ASSERT_NE(dynamic_cast<EmmcProtocol*>(asked.get()), nullptr);
  EXPECT_EQ(asked->getProtocolKind(), static_cast<uint32_t>(kProtocolEmmc));
  EXPECT_EQ(asked->getBusKind(), static_cast<uint32_t>(kBusEmmc));
  asked->getCachedProperties(&cached);
  EXPECT_GT(cached.sectorCount, 0u) << "the geometry's count";

  // A handle that is no disk: inside it is taken unasked; outside its
  // getProperties fails, SAT does not answer either, and there is no protocol.
  DiskCandidate insideNoDisk{file, kLocationInternal, kBusEmmc, "C:\\probe.bin"};
  EXPECT_NE(dynamic_cast<EmmcProtocol*>(discovery.manager->createProtocol(insideNoDisk).get()), nullptr);
  DiskCandidate outsideNoDisk{file, kLocationExternal, kBusEmmc, "C:\\probe.bin"};
  EXPECT_EQ(discovery.manager->createProtocol(outsideNoDisk), nullptr);
}

TEST_F(StorageComponentManagerTest, AnNvmeDiskThatIsNotScsiRespondingFallsThroughToAnAtaProtocolAtLocation1) {
  // A SCSI face that refuses INQUIRY; the ATA port still answers.
  refuseScsi(installJson(machineOf({ataDisk("a", "FIRST DISK", "A1")})), 0, {0x12});
  discovery.scanner->busKinds[0] = kBusNvme;
  discovery.manager->refresh();
  ASSERT_EQ(discovery.manager->getComponentCount(), 1u);
  StorageComponent* disk = discovery.component(0);
  auto* ata = dynamic_cast<AtaProtocol*>(disk->getProtocol());
  ASSERT_NE(ata, nullptr);
  EXPECT_EQ(ata->getProtocolKind(), static_cast<uint32_t>(kProtocolAta));
  EXPECT_EQ(ata->getBusKind(), static_cast<uint32_t>(kBusNvme));
  EXPECT_EQ(disk->getBusKind(), static_cast<uint32_t>(kBusNvme));
  EXPECT_EQ(disk->getLocation(), static_cast<uint32_t>(kLocationInternal));
}

TEST_F(StorageComponentManagerTest, TwoIdenticalDisksKeepThePlainUdiFirstAndAppendTheDiskNumberSecond) {
  installJson(machineOf({ataDisk("a", "SAME MODEL", "S1"), ataDisk("b", "SAME MODEL", "S1")}));
  discovery.manager->refresh();
  ASSERT_EQ(discovery.manager->getComponentCount(), 2u);
  const std::string plain = discovery.component(0)->getUdi();
  EXPECT_EQ(plain.substr(plain.size() - 13), "-SAMEMODEL-S1");
  EXPECT_EQ(discovery.component(0)->getId(), "0");
  EXPECT_EQ(discovery.component(1)->getId(), "1");
  EXPECT_EQ(discovery.component(1)->getUdi(), plain + "1");
}

TEST_F(StorageComponentManagerTest, WithNoDisksRefreshLeavesAnEmptyListAndHasDevicesIsFalse) {
  installJson(machineOf({}));
  discovery.manager->refresh();
  EXPECT_EQ(discovery.manager->getComponentCount(), 0u);
  EXPECT_EQ(discovery.manager->getComponent(0), nullptr);
  EXPECT_EQ(discovery.manager->getRefreshedComponent(0), nullptr);
  EXPECT_FALSE(discovery.manager->hasDevices());
}

TEST_F(StorageComponentManagerTest, RemovableMediaAreNotComponents) {
  installJson(machineOf({ataDisk("a", "STICK", "R1", R"(, "removable": true)"), ataDisk("b", "FIXED", "F1")}));
  discovery.manager->refresh();
  ASSERT_EQ(discovery.manager->getComponentCount(), 1u);
  EXPECT_EQ(discovery.detail(0, "MODEL"), "FIXED");
  EXPECT_EQ(discovery.scanner->service.live.size(), 1u) << "only the component's handle stays open";
}

TEST_F(StorageComponentManagerTest, UnknownBusesAndRaidVolumesAreNotOffered) {
  installJson(machineOf({ataDisk("a", "UNKNOWN BUS", "U1"), ataDisk("b", "RAID VOLUME", "R1"),
                         ataDisk("c", "PLAIN", "P1")}));
  discovery.scanner->busKinds[0] = kBusUnknown;
  discovery.scanner->busKinds[1] = kBusRaid;
  discovery.manager->refresh();
  ASSERT_EQ(discovery.manager->getComponentCount(), 1u);
  EXPECT_EQ(discovery.detail(0, "MODEL"), "PLAIN");
}

TEST_F(StorageComponentManagerTest, AFailedRemovableOrBusQuerySkipsThePath) {
  installJson(machineOf({ataDisk("a", "NO ANSWER", "N1"), ataDisk("b", "NO BUS", "N2"), ataDisk("c", "PLAIN", "P1")}));
  discovery.scanner->removableFails.insert(0);
  discovery.scanner->busKindFails.insert(1);
  discovery.manager->refresh();
  ASSERT_EQ(discovery.manager->getComponentCount(), 1u);
  EXPECT_EQ(discovery.detail(0, "MODEL"), "PLAIN");
  EXPECT_EQ(discovery.scanner->service.live.size(), 1u);
}

TEST_F(StorageComponentManagerTest, ADiskOnWhichNothingAnswersIsAbsent) {
  // An eMMC device offers neither ATA nor SCSI; told to be an ATA disk it
  // answers neither probe.
  installJson(machineOf({R"({"name": "e", "kind": "emmc", "profile": {"capacitySectors": 2097152}})"}));
  discovery.scanner->busKinds[0] = kBusAta;
  discovery.manager->refresh();
  EXPECT_EQ(discovery.manager->getComponentCount(), 0u);
  EXPECT_TRUE(discovery.scanner->service.live.empty());
}

TEST_F(StorageComponentManagerTest, AnExternalDiskWhoseScsiViewFailsGetsAtaThroughSatWithoutAProtocolKind) {
  // The enclosure refuses READ CAPACITY, so its SCSI view gives no
  // properties; SAT with CK_COND reaches the drive.
  refuseScsi(installJson(machineOf({R"({"name": "usb0", "kind": "ata", "bus": "usb",
    "profile": {"model": "WDC WD20SDRW-11VUUS0", "serial": "WD-WX21A17R4PLD", "capacitySectors": 3907029168},
    "bridge": {"type": "sat", "vendor": "WD", "product": "Elements 25A2", "revision": "1021"}})"})),
             0, {0x25, 0x9E});
  discovery.manager->refresh();
  ASSERT_EQ(discovery.manager->getComponentCount(), 1u);
  auto* ata = dynamic_cast<AtaProtocol*>(discovery.component(0)->getProtocol());
  ASSERT_NE(ata, nullptr);
  EXPECT_EQ(ata->getProtocolKind(), static_cast<uint32_t>(kProtocolNone));
  EXPECT_EQ(ata->getBusKind(), static_cast<uint32_t>(kBusUsb));
  ASSERT_EQ(ata->getTransports().size(), 1u);
  EXPECT_EQ(typeid(*ata->getTransports().front()), typeid(SatBridgeWithCkCondition));
  EXPECT_EQ(discovery.detail(0, "MODEL"), "WDC WD20SDRW-11VUUS0");
}

TEST_F(StorageComponentManagerTest, PartitionsAreAskedForWithTheDisksSizeAndShownAsSections) {
  installJson(machineOf({ataDisk("a", "FIRST DISK", "A1", R"(,
    "partitions": {"scheme": "mbr", "entries": [{"type": 7, "startLba": 2048, "sectorCount": 1000000}]},
    "volumes": [{"partition": 1, "letter": "C", "label": "SYS", "freeBytes": 102400000}])")}));
  discovery.manager->refresh();
  ASSERT_EQ(discovery.manager->getComponentCount(), 1u);
  ASSERT_EQ(discovery.scanner->partitionQueries.size(), 1u);
  EXPECT_EQ(discovery.scanner->partitionQueries[0].second, 2097152ull * 512);
  EXPECT_EQ(discovery.detail(0, "PARTITION_SCHEMA"), "MBR");
  const std::vector<DetailSection> sections = discovery.component(0)->getSections();
  ASSERT_EQ(sections.size(), 1u);
  EXPECT_EQ(sections[0].title, "PARTITION");
  EXPECT_EQ(sections[0].entries[1].value, "PRIMARY");
}

TEST_F(StorageComponentManagerTest, RefreshReplacesTheComponentsAndClosesTheOldHandles) {
  installJson(machineOf({ataDisk("a", "FIRST DISK", "A1")}));
  discovery.manager->refresh();
  ASSERT_EQ(discovery.manager->getComponentCount(), 1u);
  const HANDLE first = discovery.component(0)->getProtocol()->getHandle();
  discovery.manager->refresh();
  ASSERT_EQ(discovery.manager->getComponentCount(), 1u);
  EXPECT_EQ(discovery.scanner->service.live.count(first), 0u);
  EXPECT_EQ(discovery.scanner->service.live.size(), 1u);
  discovery.manager->clearComponents();
  EXPECT_EQ(discovery.manager->getComponentCount(), 0u);
  EXPECT_TRUE(discovery.scanner->service.live.empty());
}

TEST_F(StorageComponentManagerTest, GetRefreshedComponentMakesTheProtocolsCacheCurrent) {
  sim::Machine* machine = installJson(machineOf({ataDisk("a", "FIRST DISK", "A1")}));
  ASSERT_NE(machine, nullptr);
  discovery.manager->refresh();
  const size_t before = machine->journal().commandsTo("a").size();
  EXPECT_EQ(discovery.manager->getRefreshedComponent(0), discovery.manager->getComponent(0));
  EXPECT_GT(machine->journal().commandsTo("a").size(), before) << "the drive was asked again";
  EXPECT_EQ(discovery.manager->getRefreshedComponent(1), nullptr);
}

TEST_F(StorageComponentManagerTest, HasDevicesAnswersAtTheFirstLocalDiskWithoutACommand) {
  sim::Machine* machine = installJson(machineOf({ataDisk("a", "FIRST DISK", "A1"), ataDisk("b", "SECOND", "B1")}));
  ASSERT_NE(machine, nullptr);
  EXPECT_TRUE(discovery.manager->hasDevices());
  EXPECT_TRUE(machine->journal().entries().empty());
  // It stopped at the first disk: nothing of the second was opened.
  for (const std::string& path : discovery.scanner->service.openedPaths) {
    EXPECT_EQ(path.find("PhysicalDrive1"), std::string::npos) << path;
  }
  EXPECT_TRUE(discovery.scanner->service.live.empty());
  EXPECT_EQ(discovery.manager->getComponentCount(), 0u) << "no component was built";
}

TEST_F(StorageComponentManagerTest, HasDevicesProbesUsbDisksOnlyAfterAllPathsAndClosesThem) {
  installJson(machineOf({kJMicronDisk}));
  sim::Machine* machine = sim::installedMachine();
  EXPECT_TRUE(discovery.manager->hasDevices());
  // The scanner's queries open only the first path; the second was opened
  // by the manager to be kept as a candidate.
  const auto& opened = discovery.scanner->service.openedPaths;
  EXPECT_NE(std::find(opened.begin(), opened.end(), "\\\\.\\PhysicalDrive0"), opened.end());
  EXPECT_FALSE(machine->journal().commandsTo("usb1.bridge").empty()) << "the USB disk was probed";
  EXPECT_TRUE(discovery.scanner->service.live.empty());
  EXPECT_EQ(discovery.manager->getComponentCount(), 0u);
}

TEST_F(StorageComponentManagerTest, HasDevicesIsFalseWhenOnlyRemovableMediaOrSilentUsbDisksAreThere) {
  installJson(machineOf({ataDisk("a", "STICK", "R1", R"(, "removable": true)"),
                         R"({"name": "e", "kind": "emmc", "profile": {"capacitySectors": 2097152}})"}));
  discovery.scanner->busKinds[1] = kBusUsb;
  discovery.scanner->locations[1] = kLocationExternal;
  EXPECT_FALSE(discovery.manager->hasDevices());
  EXPECT_TRUE(discovery.scanner->service.live.empty());
}

TEST_F(StorageComponentManagerTest, TheManagersEndClosesEveryHandle) {
  installJson(machineOf({ataDisk("a", "FIRST DISK", "A1"), kJMicronDisk}));
  auto* service = &discovery.scanner->service;
  std::set<HANDLE> opened;
  discovery.manager->refresh();
  EXPECT_EQ(discovery.manager->getComponentCount(), 2u);
  EXPECT_EQ(service->live.size(), 2u);
  // The service object dies with the scanner; look at the handles instead.
  const std::vector<HANDLE> handles = service->handles;
  discovery.manager.reset();
  for (HANDLE handle : handles) {
    DWORD returned = 0;
    STORAGE_DEVICE_NUMBER number{};
    EXPECT_FALSE(DeviceIoControl(handle, IOCTL_STORAGE_GET_DEVICE_NUMBER, nullptr, 0, &number, sizeof(number),
                                 &returned, nullptr));
  }
}

// Components for the merge and the identities, without a machine.
std::unique_ptr<StorageComponent> componentWithUdi(const std::string& udi, const std::string& id, uint32_t location) {
  auto component = std::make_unique<StorageComponent>(std::make_unique<mstest::ScriptedProtocol>(), nullptr);
  if (!udi.empty()) component->addDetail("UDI", udi);
  component->addDetail("MODEL", "M" + id);
  component->setId(id);
  component->setLocation(location);
  return component;
}

TEST(StorageComponentManagerMerge, ARaidDriveWithTheUdiOfADirectDiskIsDroppedAndTwoRaidDoublesStayOne) {
  StorageComponentManager manager(ItemId(1, 0, 1), std::make_unique<manager_testing::ScriptedScanner>());
  std::vector<std::unique_ptr<StorageComponent>> direct;
  direct.push_back(componentWithUdi("ATA-DISK-1", "0", kLocationInternal));
  manager.mergeRaidDrives(direct);
  ASSERT_EQ(manager.getComponentCount(), 1u);

  std::vector<std::unique_ptr<StorageComponent>> raid;
  raid.push_back(componentWithUdi("ATA-DISK-1", "r0", kLocationRaid));
  raid.push_back(componentWithUdi("ATA-DISK-2", "r1", kLocationRaid));
  raid.push_back(componentWithUdi("ATA-DISK-2", "r2", kLocationRaid));
  manager.mergeRaidDrives(raid);
  ASSERT_EQ(manager.getComponentCount(), 2u);
  EXPECT_EQ(manager.getComponent(0)->getId(), "0");
  EXPECT_EQ(manager.getComponent(1)->getId(), "r1");
  EXPECT_TRUE(raid.empty());
}

TEST(StorageComponentManagerMerge, TwoDrivesWithoutUdiAreDoubles) {
  StorageComponentManager manager(ItemId(1, 0, 1), std::make_unique<manager_testing::ScriptedScanner>());
  std::vector<std::unique_ptr<StorageComponent>> raid;
  raid.push_back(componentWithUdi("", "r0", kLocationRaid));
  raid.push_back(componentWithUdi("", "r1", kLocationRaid));
  manager.mergeRaidDrives(raid);
  EXPECT_EQ(manager.getComponentCount(), 1u);
}

// Puts components with these UDIs (an empty text: no "UDI" entry at all) and
// the ids 0, 1, 2 ... into the manager. The merge keeps distinct UDIs only,
// so they go in under distinct texts and are then given the wanted ones.
void putComponents(StorageComponentManager& manager, const std::vector<std::string>& udis) {
  std::vector<std::unique_ptr<StorageComponent>> disks;
  for (size_t i = 0; i < udis.size(); ++i) {
    disks.push_back(componentWithUdi("distinct-" + std::to_string(i), std::to_string(i), kLocationInternal));
  }
  manager.mergeRaidDrives(disks);
  ASSERT_EQ(manager.getComponentCount(), udis.size());
  for (size_t i = 0; i < udis.size(); ++i) {
    auto* component = static_cast<StorageComponent*>(manager.getComponent(static_cast<uint32_t>(i)));
    std::vector<DetailEntry> details = component->getDetails();
    ASSERT_EQ(details.front().key, "UDI");
    if (udis[i].empty()) {
      // No UDI: the entry becomes one of another key.
      component->setDetail(0, {"NO_UDI_HERE", "-"});
    } else {
      component->setDetail(0, {"UDI", udis[i]});
    }
  }
}

std::vector<std::string> udisOf(const StorageComponentManager& manager) {
  std::vector<std::string> udis;
  for (uint32_t i = 0; i < manager.getComponentCount(); ++i) {
    udis.push_back(static_cast<StorageComponent*>(manager.getComponent(i))->getUdi());
  }
  return udis;
}

TEST(StorageComponentManagerMerge, ThreeIdenticalUdisGetTheirDiskNumbersAfterTheFirst) {
  StorageComponentManager manager(ItemId(1, 0, 1), std::make_unique<manager_testing::ScriptedScanner>());
  putComponents(manager, {"X", "X", "X"});
  manager.makeUdisUnique();
  EXPECT_EQ(udisOf(manager), (std::vector<std::string>{"X", "X1", "X2"}));
}

TEST(StorageComponentManagerMerge, AComponentWithoutAUdiKeepsTheRememberedValueOfTheOneBeforeIt) {
  StorageComponentManager manager(ItemId(1, 0, 1), std::make_unique<manager_testing::ScriptedScanner>());
  putComponents(manager, {"X", "", "X"});
  manager.makeUdisUnique();
  // The first turn makes the third "X2". The second component has no UDI, so
  // "X" is still the remembered value on its turn, and the first component,
  // which still holds it, gets its own number appended.
  EXPECT_EQ(udisOf(manager), (std::vector<std::string>{"X0", "", "X2"}));
}

TEST(StorageComponentManagerMerge, DiscoveryFindsNoRaidDrivesYet) {
  StorageComponentManager manager(ItemId(1, 0, 1), std::make_unique<manager_testing::ScriptedScanner>());
  std::vector<std::unique_ptr<StorageComponent>> raid;
  raid.push_back(componentWithUdi("left", "r0", kLocationRaid));
  manager.discoverRaidDrives(raid);
  EXPECT_TRUE(raid.empty());
  EXPECT_FALSE(manager.hasUsableRaidDrive());
}

}  // namespace
