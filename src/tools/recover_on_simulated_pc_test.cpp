// The recover tool end to end on the simulated PC: the tool and the devices
// come from the module's catalogue, the reads and writes reach emulated
// drives, and the machine's journal shows exactly what a repair wrote.
#include <gtest/gtest.h>

#include <string>
#include <utility>
#include <vector>

#include "components/storage_component.h"
#include "module_storage/module_storage.h"
#include "testing/simulated_pc.h"
#include "tools/recover_bad_sectors.h"
#include "tools/tool_test_support.h"

namespace {

using tooltest::FiredEvent;
using tooltest::List;

// One small SATA disk with two volumes. Sector 300 and sector 861 lie where
// the walk's fast pass reads them (within the first 127 sectors of their
// chunk: the chunks run 0, 255, then 301, 556, 811 after the first find).
std::string smallMachine(const std::string& unreadable, const std::string& files = "") {
  return R"({"name": "tool", "disks": [{
    "name": "hdd", "kind": "ata", "bus": "sata",
    "profile": {"model": "SIM HDD 2MB", "serial": "SIM0001", "capacitySectors": 4096, "rotationRate": 7200},
    "faults": {"unreadableSectors": [)" +
         unreadable + R"(]},
    "partitions": {"scheme": "mbr", "signature": 305419896, "entries": [
      {"type": 7, "startLba": 64, "sectorCount": 1984}, {"type": 7, "startLba": 2048, "sectorCount": 2048}]},
    "volumes": [{"partition": 1, "letter": "E", "label": "ONE", "serial": "11112222", "fileSystem": "NTFS",
                 "clusterSize": 512},
                {"partition": 2, "letter": "F", "label": "TWO", "serial": "33334444", "fileSystem": "NTFS",
                 "clusterSize": 512}])" +
         files + R"(}]})";
}

class RecoverOnSimulatedPc : public mstest::SimulatedPcTest {
 protected:
  void TearDown() override {
    ReleaseModuleInterfaceInstance();
    SimulatedPcTest::TearDown();
  }

  // Installs the machine, builds the catalogue, discovers the disks and
  // readies the catalogue's tool on all of them.
  bool start(const std::string& json) {
    machine = json.empty() ? installDefault() : installJson(json);
    if (machine == nullptr) return false;
    module = GetModuleInterfaceInstance();
    if (module == nullptr || module->getToolCount() != 1) return false;
    module->getComponentManager()->refresh();
    tool = module->getTool(0);
    std::vector<SystemComponent*> devices;
    for (uint32_t i = 0; i < module->getComponentManager()->getComponentCount(); ++i) {
      devices.push_back(module->getComponentManager()->getComponent(i));
    }
    tool->setDevices(devices);
    tool->abortFlag = &abortFlag;
    tool->systemEvents = &systemEvents;
    tool->listener = &sink;
    return !devices.empty();
  }
  StorageComponent* disk(uint32_t index) {
    return static_cast<StorageComponent*>(module->getComponentManager()->getComponent(index));
  }
  List values(const std::string& key) {
    const List* list = tool->getValues(key);
    return list == nullptr ? List{"<absent>"} : *list;
  }
  // Whether a file can be made on the volume: not while it is locked or
  // dismounted.
  bool volumeIsMounted(const std::string& letter) {
    HANDLE file = CreateFileA((letter + ":\\probe.txt").c_str(), GENERIC_READ | GENERIC_WRITE, 0, nullptr,
                              CREATE_ALWAYS, 0, nullptr);
    if (file == INVALID_HANDLE_VALUE) return false;
    CloseHandle(file);
    DeleteFileA((letter + ":\\probe.txt").c_str());
    return true;
  }

  sim::Machine* machine = nullptr;
  ModuleInterface* module = nullptr;
  Tool* tool = nullptr;
  tooltest::RecordingToolSink sink;
  tooltest::RecordingAbortFlag abortFlag;
  uint8_t systemEvents = 0;
};

TEST_F(RecoverOnSimulatedPc, ScanFindsExactlyTheUnreadableSectorsAndWritesNothing) {
  ASSERT_TRUE(start(smallMachine("300, 861")));
  ASSERT_EQ(module->getComponentManager()->getComponentCount(), 1u);
  machine->journal().clear();
  tool->setValues("Operation", {"scan"});
  tool->execute();

  EXPECT_EQ(sink.namesWithoutProgress(),
            (std::vector<std::string>{"OnRecoverInit", "OnOperationInit", "OnDeviceInit", "OnDeviceFinish",
                                      "OnRecoverFinish"}));
  const std::string id = disk(0)->getId();
  const FiredEvent finish = sink.named("OnDeviceFinish").at(0);
  EXPECT_EQ(finish.values, (List{id, "12"}));
  EXPECT_EQ(finish.output("BadSectorsList"), (List{"300", "861"}));
  EXPECT_EQ(finish.output("SectorsInfo"), (List{"4096", "2", "0", "2"}));
  EXPECT_EQ(finish.output("Message"), List{});
  EXPECT_EQ(sink.progress().front(), "0");
  EXPECT_EQ(sink.progress().back(), "100");
  EXPECT_TRUE(machine->journal().writesTo("hdd").empty());
  EXPECT_EQ(machine->journal().dropped(), 0u);

  const std::string& log = static_cast<RecoverBadSectors*>(tool)->getRecoverLog().text();
  // The first chunk reads well (6 percent), the second holds sector 300.
  EXPECT_EQ(log.find(">>> LOG\nBAD_SECTOR_TOOL_STARTED SCAN_TOOL\nBAD_SECTOR_TOOL_PROGRESS \x06%\n"
                     "BAD_SECTOR_FOUND_AT 300\n"),
            0u)
      << log;
  EXPECT_NE(log.find("BAD_SECTOR_FOUND_AT 861\n"), std::string::npos);
  EXPECT_NE(log.find("BAD_SECTOR_TOOL_FINISHED SCAN_TOOL\n<<< LOG\n"), std::string::npos);
}

TEST_F(RecoverOnSimulatedPc, AHostHandlerThatThrowsDuringARepairStillGetsTheVolumesBack) {
  ASSERT_TRUE(start(smallMachine("300, 861")));
  struct HostFailure {};
  // The host's progress handler throws while the volumes are taken.
  sink.handlers["OnProgress"] = [](Tool*, std::string) { throw HostFailure(); };
  tool->setValues("Operation", {"repair"});
  EXPECT_THROW(tool->execute(), HostFailure);
  for (const PartitionRecord& record : disk(0)->getPartitions()->records) {
    EXPECT_EQ(record.unmountHandle, nullptr) << record.index;
    EXPECT_EQ(record.isUnmounted, 0) << record.index;
  }
  EXPECT_TRUE(volumeIsMounted("E"));
  EXPECT_TRUE(volumeIsMounted("F"));
}

TEST_F(RecoverOnSimulatedPc, RepairRewritesExactlyTheBadSectorsAndGivesTheVolumesBack) {
  ASSERT_TRUE(start(smallMachine("300, 861")));
  machine->journal().clear();
  tool->setValues("Operation", {"repair"});
  tool->execute();

  const FiredEvent finish = sink.named("OnDeviceFinish").at(0);
  EXPECT_EQ(finish.values, (List{disk(0)->getId(), "9"}));
  EXPECT_EQ(finish.output("BadSectorsList"), (List{"300", "861"}));
  EXPECT_EQ(finish.output("SectorsInfo"), (List{"4096", "2", "2", "0"}));
  EXPECT_EQ(machine->journal().writesTo("hdd"),
            (std::vector<std::pair<uint64_t, uint64_t>>{{300, 1}, {861, 1}}));
  EXPECT_EQ(machine->journal().dropped(), 0u);

  // The volumes were taken for the repair and are back.
  for (const PartitionRecord& record : disk(0)->getPartitions()->records) {
    EXPECT_EQ(record.unmountHandle, nullptr) << record.index;
    EXPECT_EQ(record.isUnmounted, 0) << record.index;
  }
  EXPECT_TRUE(volumeIsMounted("E"));
  EXPECT_TRUE(volumeIsMounted("F"));

  // The rewritten sectors read again: a new scan finds nothing.
  sink.events.clear();
  tool->setValues("Operation", {"scan"});
  tool->execute();
  EXPECT_EQ(values("DeviceFinish"), (List{disk(0)->getId(), "0"}));
  EXPECT_EQ(values("SectorsInfo"), (List{"4096", "0", "0", "0"}));
  EXPECT_EQ(values("BadSectorsList"), List{});
}

TEST_F(RecoverOnSimulatedPc, RepairWhoseUnmountFailsFinishesWithTwoAndStillGivesBackWhatItTook) {
  // A file open on F: keeps its volume from being locked; E: can be taken.
  ASSERT_TRUE(start(smallMachine("300", R"(, "files": [{"path": "F:\\busy.txt", "size": 512}])")));
  const HANDLE busy = openPath("F:\\busy.txt", GENERIC_READ);
  ASSERT_NE(busy, INVALID_HANDLE_VALUE);

  // The unmount takes E: and fails on F: ...
  ASSERT_NE(disk(0)->unmountVolumes(), 0u);
  bool tookOne = false;
  for (const PartitionRecord& record : disk(0)->getPartitions()->records) tookOne |= record.unmountHandle != nullptr;
  ASSERT_TRUE(tookOne);
  EXPECT_FALSE(volumeIsMounted("E"));
  disk(0)->remountVolumes();
  ASSERT_TRUE(volumeIsMounted("E"));

  // ... and in the tool's repair, E: is given back all the same.
  machine->journal().clear();
  tool->setValues("SectorsInfo", {"7", "7", "7", "7"});
  tool->setValues("Operation", {"repair"});
  tool->execute();
  const FiredEvent finish = sink.named("OnDeviceFinish").at(0);
  EXPECT_EQ(finish.values, (List{disk(0)->getId(), "2"}));
  EXPECT_EQ(finish.output("SectorsInfo"), (List{"0", "0", "0", "0"})) << "the repair's zeroed counters";
  EXPECT_EQ(finish.output("Message"), List{"Unable to unmount all partitions of the device"});
  EXPECT_TRUE(machine->journal().writesTo("hdd").empty());
  for (const PartitionRecord& record : disk(0)->getPartitions()->records) {
    EXPECT_EQ(record.unmountHandle, nullptr) << record.index;
  }
  EXPECT_TRUE(volumeIsMounted("E"));
}

TEST_F(RecoverOnSimulatedPc, ScanPassesOverBadSectorsBeyondTheFastPassOfTheirChunk) {
  // The built-in machine's pending sectors sit 197 and 145 sectors into their
  // chunks; the same offsets here lie past the 127 sectors a fast pass reads.
  ASSERT_TRUE(start(smallMachine("197, 400")));
  tool->setValues("Operation", {"scan"});
  tool->execute();
  EXPECT_EQ(values("DeviceFinish"), (List{disk(0)->getId(), "0"}));
  EXPECT_EQ(values("BadSectorsList"), List{});
  EXPECT_EQ(values("SectorsInfo"), (List{"4096", "0", "0", "0"}));
}

TEST_F(RecoverOnSimulatedPc, HostAbortDuringAScanStopsItWithEight) {
  ASSERT_TRUE(start(smallMachine("300")));
  sink.onEvent = [this](const FiredEvent& event) {
    if (event.name == "OnProgress" && std::stoi(event.values.at(0)) >= 10) abortFlag.flag = true;
  };
  tool->setValues("Operation", {"scan"});
  tool->execute();
  EXPECT_EQ(values("DeviceFinish"), (List{disk(0)->getId(), "8"}));
  EXPECT_EQ(sink.progress(), (List{"0", "6", "7", "13", "100"}));
  EXPECT_EQ(values("SectorsInfo"), (List{"556", "1", "0", "1"})) << "stopped before the next chunk";
  EXPECT_EQ(sink.named("OnRecoverFinish").size(), 1u);
}

TEST_F(RecoverOnSimulatedPc, SystemEventDuringAScanStopsItWithThirteen) {
  ASSERT_TRUE(start(smallMachine("300")));
  sink.onEvent = [this](const FiredEvent& event) {
    if (event.name == "OnProgress" && std::stoi(event.values.at(0)) >= 10) systemEvents = 0x08;
  };
  tool->setValues("Operation", {"scan"});
  tool->execute();
  EXPECT_EQ(values("DeviceFinish"), (List{disk(0)->getId(), "13"}));
}

TEST_F(RecoverOnSimulatedPc, FilterOnTheBuiltInMachineOffersTheInternalAtaDisks) {
  ASSERT_TRUE(start(""));
  ASSERT_EQ(module->getComponentManager()->getComponentCount(), 7u);
  tool->setValues("Operation", {"filterDevices"});
  tool->execute();
  // hdd0, ssd0, nvme0, sas0, emmc0, usb0, usb1 in discovery's order.
  EXPECT_EQ(values("DevicesFilter"), (List{"T", "T", "F", "F", "F", "F", "F"}));
  tool->setValues("Operation", {"filterDevices", "rotating"});
  tool->execute();
  EXPECT_EQ(values("DevicesFilter"), (List{"T", "F", "F", "F", "F", "F", "F"}));
  EXPECT_TRUE(sink.events.empty());
}

}  // namespace
