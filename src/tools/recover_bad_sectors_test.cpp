// The recover tool's driver against scripted operations and devices: the
// call record in and out, the events of a run in order with their values,
// the device filter, the question before the system partition, and the
// per-device guard text that the driver keeps.
#include "tools/recover_bad_sectors.h"

#include <gtest/gtest.h>

#include <memory>
#include <stdexcept>
#include <string>
#include <vector>

#include "tools/scan_tool.h"
#include "tools/tool_test_support.h"

namespace {

using tooltest::FakeOperation;
using tooltest::FiredEvent;
using tooltest::List;
using tooltest::RecordingAbortFlag;
using tooltest::RecordingToolSink;

class RecoverDriver : public ::testing::Test {
 protected:
  void SetUp() override {
    tool.abortFlag = &abortFlag;
    tool.systemEvents = &systemEvents;
    tool.listener = &sink;
  }

  // Puts a fake under `word` and returns it; the tool owns it.
  FakeOperation* fake(const std::string& word, const std::string& operationName = "FAKE_TOOL") {
    auto operation = std::make_unique<FakeOperation>(&tool, operationName);
    FakeOperation* raw = operation.get();
    tool.replaceOperation(word, std::move(operation));
    return raw;
  }

  StorageComponent* addDevice(const std::string& id, StorageProtocol* protocol = nullptr, uint32_t bus = kBusAta,
                              uint32_t location = kLocationInternal) {
    components.push_back(tooltest::makeComponent(id, protocol, bus, location));
    std::vector<SystemComponent*> list;
    for (const auto& component : components) list.push_back(component.get());
    tool.setDevices(list);
    return components.back().get();
  }

  List values(const std::string& key) {
    const List* list = tool.getValues(key);
    return list == nullptr ? List{"<absent>"} : *list;
  }

  RecoverBadSectors tool{ItemId(50, 0, 0)};
  RecordingToolSink sink;
  RecordingAbortFlag abortFlag;
  uint8_t systemEvents = 0;
  std::vector<std::unique_ptr<StorageComponent>> components;
};

TEST_F(RecoverDriver, NamesItselfRecoverWithItsKeys) {
  EXPECT_EQ(tool.getName(), "RECOVER_BAD_SECTORS");
  EXPECT_EQ(tool.getDescription(), "SEARCH_FOR_AND_RECOVER_BAD_SECTORS_THAT_MAY_BE_PRESENT_IN_YOUR_STORAGE_DEVICES");
  EXPECT_EQ(tool.getId(), "recover");
  EXPECT_EQ(tool.id, ItemId(50, 0, 0));
  EXPECT_EQ(tool.getModule(), nullptr);
}

TEST_F(RecoverDriver, OwnsTheThreeOperationsUnderTheirWordsWithTheirNames) {
  RecoverBadSectors fresh(ItemId(50, 0, 0));
  ASSERT_NE(fresh.getOperation("scan"), nullptr);
  ASSERT_NE(fresh.getOperation("repair"), nullptr);
  ASSERT_NE(fresh.getOperation("filesystem"), nullptr);
  EXPECT_EQ(fresh.getOperation("filterDevices"), nullptr);
  EXPECT_EQ(fresh.getOperation("scan")->getName(), "SCAN_TOOL");
  EXPECT_EQ(fresh.getOperation("repair")->getName(), "SCAN_AND_FIX_TOOL");
  EXPECT_EQ(fresh.getOperation("filesystem")->getName(), "|CHECK_FILESYSTEM_TOOL");
  EXPECT_NE(dynamic_cast<ScanTool*>(fresh.getOperation("scan")), nullptr);
  EXPECT_NE(dynamic_cast<ScanAndFixTool*>(fresh.getOperation("repair")), nullptr);
  EXPECT_NE(dynamic_cast<CheckFilesystemOperation*>(fresh.getOperation("filesystem")), nullptr);
  for (const char* word : {"scan", "repair", "filesystem"}) EXPECT_EQ(fresh.getOperation(word)->getOwner(), &fresh);
}

TEST_F(RecoverDriver, SetValuesReplacesTheListAndGetValuesIsNullForAnAbsentKey) {
  EXPECT_EQ(tool.getValues("Nothing"), nullptr);
  tool.setValues("Key", {"a", "b"});
  tool.setValues("Key", {"c"});
  ASSERT_NE(tool.getValues("Key"), nullptr);
  EXPECT_EQ(*tool.getValues("Key"), List{"c"});
}

TEST_F(RecoverDriver, EmptyDeviceListFiresRecoverInitOperationInitAndRecoverFinishOnly) {
  FakeOperation* scan = fake("scan", "SCAN_TOOL");
  tool.setValues("Operation", {"scan"});
  tool.execute();
  EXPECT_EQ(sink.names(), (std::vector<std::string>{"OnRecoverInit", "OnOperationInit", "OnRecoverFinish"}));
  EXPECT_EQ(sink.events[1].values, List{"SCAN_TOOL"});
  EXPECT_TRUE(scan->runs.empty());
  EXPECT_TRUE(tool.getPlans().empty());
}

TEST_F(RecoverDriver, NullListenerWithScanBuildsThePlansAndIssuesNoRead) {
  tooltest::SectorMapFilesystem filesystem;
  tooltest::SectorMapProtocol protocol(1000);
  addDevice("7", &protocol);
  tool.listener = nullptr;
  tool.setValues("Operation", {"scan"});
  const size_t callsBefore = protocol.calls.size();
  tool.execute();
  ASSERT_EQ(tool.getPlans().size(), 1u);
  EXPECT_EQ(tool.getPlans()[0].id, "7");
  EXPECT_EQ(tool.getPlans()[0].name, "disk 7");
  EXPECT_TRUE(tool.getPlans()[0].partitions.empty());
  EXPECT_EQ(protocol.calls.size(), callsBefore) << "the device was touched";
  EXPECT_TRUE(filesystem.reads.empty());
  EXPECT_TRUE(sink.events.empty());
  EXPECT_EQ(tool.getValues("OperationInit"), nullptr);
}

TEST_F(RecoverDriver, ExecuteClearsTheHostAbortFlagFirst) {
  abortFlag.flag = true;
  fake("scan");
  tool.setValues("Operation", {"scan"});
  tool.execute();
  EXPECT_EQ(abortFlag.setCalls, std::vector<bool>{false});
  EXPECT_FALSE(abortFlag.flag);

  abortFlag.flag = true;
  tool.setValues("Operation", {"filterDevices"});
  tool.execute();
  EXPECT_EQ(abortFlag.setCalls, (std::vector<bool>{false, false}));
}

TEST_F(RecoverDriver, WholeDeviceRunFiresEveryEventInOrderWithItsValues) {
  FakeOperation* scan = fake("scan", "SCAN_TOOL");
  scan->withCounters = true;
  scan->statuses = {kToolStatusClean, kToolStatusBadSectorsFound};
  addDevice("0");
  addDevice("3");
  tool.setValues("Operation", {"scan"});
  // The second device's run finds two sectors.
  scan->onRun = [scan] {
    if (scan->runs.size() == 2) scan->badSectors = {17, 4};
  };
  tool.execute();

  ASSERT_EQ(sink.names(), (std::vector<std::string>{"OnRecoverInit", "OnOperationInit", "OnDeviceInit",
                                                    "OnDeviceFinish", "OnDeviceInit", "OnDeviceFinish",
                                                    "OnRecoverFinish"}));
  EXPECT_EQ(sink.events[1].values, List{"SCAN_TOOL"});
  EXPECT_EQ(sink.events[2].values, List{"0"});
  EXPECT_EQ(sink.events[3].values, (List{"0", "0"}));
  EXPECT_EQ(sink.events[3].output("SectorsInfo"), (List{"100", "0", "0", "0"}));
  EXPECT_EQ(sink.events[3].output("BadSectorsList"), List{});
  EXPECT_EQ(sink.events[4].values, List{"3"});
  EXPECT_EQ(sink.events[5].values, (List{"3", "12"}));
  EXPECT_EQ(sink.events[5].output("BadSectorsList"), (List{"17", "4"}));
  for (const FiredEvent& event : sink.events) EXPECT_EQ(event.tool, &tool) << event.name;

  ASSERT_EQ(scan->runs.size(), 2u);
  EXPECT_EQ(scan->runs[0].planId, "0");
  EXPECT_EQ(scan->runs[0].partitionIndex, 0);
  EXPECT_EQ(scan->runs[0].device, components[0].get());
  EXPECT_EQ(scan->runs[0].listener, &sink);
  EXPECT_EQ(scan->runs[1].device, components[1].get());
  EXPECT_EQ(scan->clears, 2) << "the log is cleared before each device";
}

TEST_F(RecoverDriver, SectorsInfoHoldsReadFoundFixedAndFoundMinusFixed) {
  FakeOperation* repair = fake("scan");
  repair->withCounters = true;
  repair->foundPerRun = {5, 6, 7};
  repair->fixedPerRun = 1;
  addDevice("0");
  tool.setValues("Operation", {"scan"});
  tool.execute();
  EXPECT_EQ(values("SectorsInfo"), (List{"100", "3", "1", "2"}));
  EXPECT_EQ(values("BadSectorsList"), (List{"5", "6", "7"}));
}

TEST_F(RecoverDriver, WholeDeviceLogIsWrappedIntoTheToolLogAndAnEmptyOneAddsNothing) {
  FakeOperation* scan = fake("scan");
  addDevice("0");
  addDevice("1");
  tool.setValues("Operation", {"scan"});
  tool.execute();
  EXPECT_EQ(tool.getRecoverLog().text(), ">>> LOG\nlog of run 1\n<<< LOG\n>>> LOG\nlog of run 2\n<<< LOG\n");
  EXPECT_NE(tool.getRecoverLog().getTimer(), nullptr);
  EXPECT_NE(tool.getRecoverLog().getTimeHandler(), nullptr);

  scan->onRun = [scan] { scan->logText.clear(); };
  const std::string before = tool.getRecoverLog().text();
  tool.execute();
  EXPECT_EQ(tool.getRecoverLog().text(), before);
}

TEST_F(RecoverDriver, MessageIsEmptiedAtTheStartOfEachDevice) {
  fake("scan");
  addDevice("0");
  tool.setValues("Message", {"left over"});
  tool.setValues("Operation", {"scan"});
  tool.execute();
  ASSERT_EQ(sink.named("OnDeviceInit").size(), 1u);
  EXPECT_EQ(sink.named("OnDeviceInit")[0].output("Message"), List{});
  EXPECT_EQ(sink.named("OnDeviceFinish")[0].output("Message"), List{});
}

TEST_F(RecoverDriver, ScanHasNoAbortTestBetweenDevicesEachRunSeesTheFlagItself) {
  FakeOperation* scan = fake("scan");
  scan->statuses = {kToolStatusAborted, kToolStatusAborted};
  scan->onRun = [this] { abortFlag.flag = true; };
  addDevice("0");
  addDevice("1");
  tool.setValues("Operation", {"scan"});
  tool.execute();
  EXPECT_EQ(scan->runs.size(), 2u);
  EXPECT_EQ(values("DeviceFinish"), (List{"1", "8"}));
}

TEST_F(RecoverDriver, PartitionRunFiresEveryEventInOrderWithItsValues) {
  FakeOperation* check = fake("filesystem", "|CHECK_FILESYSTEM_TOOL");
  check->statuses = {kToolStatusClean, kToolStatusRepaired};
  addDevice("2");
  tool.setValues("Operation", {"filesystem"});
  tool.setValues("partition_table2", {"1", "NTFS", "D:\\", "F", "2", "FAT32", "E:\\", "F"});
  tool.execute();

  ASSERT_EQ(sink.names(),
            (std::vector<std::string>{"OnRecoverInit", "OnOperationInit", "OnDeviceInit", "OnPartitionInit",
                                      "OnPartitionFinish", "OnPartitionInit", "OnPartitionFinish", "OnDeviceFinish",
                                      "OnRecoverFinish"}));
  EXPECT_EQ(sink.events[1].values, List{"|CHECK_FILESYSTEM_TOOL"});
  EXPECT_EQ(sink.events[2].values, List{"2"});
  EXPECT_EQ(sink.events[3].values, (List{"2", "1"}));
  EXPECT_EQ(sink.events[4].values, (List{"2", "1", "log of run 1\n", "0"}));
  EXPECT_EQ(sink.events[5].values, (List{"2", "2"}));
  EXPECT_EQ(sink.events[6].values, (List{"2", "2", "log of run 2\n", "9"}));
  EXPECT_EQ(sink.events[7].values, List{"2"}) << "with partitions DeviceFinish holds the id alone";

  ASSERT_EQ(check->runs.size(), 2u);
  EXPECT_EQ(check->runs[0].partitionIndex, 0);
  EXPECT_EQ(check->runs[1].partitionIndex, 1);
  EXPECT_EQ(check->runs[1].logAtStart, "") << "the log is cleared before each partition";
  EXPECT_EQ(check->runs[0].listener, &sink);
  EXPECT_EQ(check->clears, 2);
  EXPECT_TRUE(sink.questions.empty());
}

TEST_F(RecoverDriver, PartitionTableGivesNameSecondFieldMountPathAndSystemFlag) {
  fake("filesystem");
  addDevice("4");
  tool.setValues("Operation", {"filesystem"});
  tool.setValues("partition_table4", {"1", "NTFS", "C:\\", "T", "2", "x", "D:\\", "t"});
  sink.answers = {2};
  tool.execute();
  ASSERT_EQ(tool.getPlans().size(), 1u);
  const std::vector<PartitionPlan>& partitions = tool.getPlans()[0].partitions;
  ASSERT_EQ(partitions.size(), 2u);
  EXPECT_EQ(partitions[0].name, "1");
  EXPECT_EQ(partitions[0].secondField, "NTFS");
  EXPECT_EQ(partitions[0].mountPath, "C:\\");
  EXPECT_TRUE(partitions[0].isSystemPartition);
  EXPECT_FALSE(partitions[1].isSystemPartition) << "only exactly \"T\" marks the system partition";
}

TEST_F(RecoverDriver, PartitionTableWhoseLengthIsNoMultipleOfFourThrowsBeforeAnyEvent) {
  FakeOperation* check = fake("filesystem");
  addDevice("4");
  tool.setValues("Operation", {"filesystem"});
  tool.setValues("partition_table4", {"1", "NTFS", "C:\\", "F", "2", "NTFS"});
  try {
    tool.execute();
    FAIL() << "no exception";
  } catch (const std::out_of_range& error) {
    EXPECT_STREQ(error.what(), "invalid vector<T> subscript");
  }
  EXPECT_TRUE(sink.events.empty());
  EXPECT_TRUE(check->runs.empty());
}

TEST_F(RecoverDriver, PartitionTablesAreReadOnlyForFilesystem) {
  fake("scan");
  addDevice("4");
  tool.setValues("Operation", {"scan"});
  tool.setValues("partition_table4", {"1", "NTFS", "D:\\", "F", "odd"});
  tool.execute();
  ASSERT_EQ(tool.getPlans().size(), 1u);
  EXPECT_TRUE(tool.getPlans()[0].partitions.empty());
  EXPECT_EQ(values("DeviceFinish"), (List{"4", "0"}));
}

TEST_F(RecoverDriver, SystemPartitionAnsweredTwoFinishesWithEightAndNotScheduledDuringTheFinishOnly) {
  FakeOperation* check = fake("filesystem");
  addDevice("0");
  tool.setValues("Operation", {"filesystem"});
  tool.setValues("partition_table0", {"3", "NTFS", "C:\\", "T"});
  sink.answers = {2};
  tool.execute();

  ASSERT_EQ(sink.questions.size(), 1u);
  EXPECT_EQ(sink.questions[0].title, "SCHEDULER_TITLE");
  EXPECT_EQ(sink.questions[0].text, "SCHEDULER_DESCRIPTION");
  EXPECT_EQ(sink.questions[0].numberA, 0u);
  EXPECT_EQ(sink.questions[0].numberB, 1u);
  const std::vector<FiredEvent> finish = sink.named("OnPartitionFinish");
  ASSERT_EQ(finish.size(), 1u);
  EXPECT_EQ(finish[0].values, (List{"0", "3", "", "8"}));
  EXPECT_EQ(finish[0].output("Message"), List{"Not Scheduled"});
  EXPECT_EQ(sink.named("OnDeviceFinish")[0].output("Message"), List{}) << "emptied right after the event";
  EXPECT_EQ(values("Message"), List{});
  EXPECT_TRUE(check->runs.empty());
  EXPECT_TRUE(check->scheduled.empty());
}

TEST_F(RecoverDriver, SystemPartitionAnsweredOneSchedulesTheCheckOnItsMountPath) {
  FakeOperation* check = fake("filesystem");
  addDevice("0");
  tool.setValues("Operation", {"filesystem"});
  tool.setValues("partition_table0", {"3", "NTFS", "C:\\", "T", "4", "NTFS", "F:\\", "T"});
  sink.answers = {1, 1};
  check->scheduleResult = true;
  tool.execute();
  std::vector<FiredEvent> finish = sink.named("OnPartitionFinish");
  ASSERT_EQ(finish.size(), 2u);
  EXPECT_EQ(finish[0].values, (List{"0", "3", "", "3"}));
  EXPECT_EQ(finish[0].output("Message"), List{});
  EXPECT_EQ(check->scheduled, (std::vector<std::string>{"C:\\", "F:\\"}));
  EXPECT_TRUE(check->runs.empty());
}

TEST_F(RecoverDriver, SystemPartitionWhoseSchedulingFailsFinishesWithFour) {
  FakeOperation* check = fake("filesystem");
  addDevice("0");
  tool.setValues("Operation", {"filesystem"});
  tool.setValues("partition_table0", {"4", "NTFS", "F:\\", "T"});
  sink.answers = {1};
  check->scheduleResult = false;
  tool.execute();
  const std::vector<FiredEvent> finish = sink.named("OnPartitionFinish");
  ASSERT_EQ(finish.size(), 1u);
  EXPECT_EQ(finish[0].values, (List{"0", "4", "", "4"}));
  EXPECT_EQ(finish[0].output("Message"), List{});
  EXPECT_EQ(check->scheduled, std::vector<std::string>{"F:\\"});
}

TEST_F(RecoverDriver, SystemPartitionWithAnyOtherAnswerCannotExecute) {
  fake("filesystem");
  addDevice("0");
  tool.setValues("Operation", {"filesystem"});
  tool.setValues("partition_table0", {"3", "NTFS", "C:\\", "T"});
  sink.answers = {7};
  tool.execute();
  const FiredEvent finish = sink.named("OnPartitionFinish").at(0);
  EXPECT_EQ(finish.values, (List{"0", "3", "", "8"}));
  EXPECT_EQ(finish.output("Message"), List{"Cannot execute on the operating system's partition"});
}

TEST_F(RecoverDriver, AbortFlagSetBeforeAPartitionFinishesItWithEightWithoutRunning) {
  FakeOperation* check = fake("filesystem");
  addDevice("0");
  tool.setValues("Operation", {"filesystem"});
  tool.setValues("partition_table0", {"1", "NTFS", "D:\\", "F", "2", "NTFS", "E:\\", "F"});
  check->onRun = [this] { abortFlag.flag = true; };
  tool.execute();
  ASSERT_EQ(check->runs.size(), 1u);
  const std::vector<FiredEvent> finish = sink.named("OnPartitionFinish");
  ASSERT_EQ(finish.size(), 2u);
  EXPECT_EQ(finish[0].values, (List{"0", "1", "log of run 1\n", "0"}));
  EXPECT_EQ(finish[1].values, (List{"0", "2", "", "8"}));
  EXPECT_EQ(finish[1].output("Message"), List{}) << "a partition ran on this device before";
}

TEST_F(RecoverDriver, GuardTextOfAPartitionIsStoredAgainForALaterAbortedPartitionOfTheDevice) {
  // The guard text is kept per device: the "Not Scheduled" of the system
  // partition comes back as the Message of the aborted partition after it.
  fake("filesystem");
  addDevice("0");
  tool.setValues("Operation", {"filesystem"});
  tool.setValues("partition_table0", {"1", "NTFS", "C:\\", "T", "2", "NTFS", "E:\\", "F"});
  sink.answers = {2};
  sink.onEvent = [this](const FiredEvent& event) {
    if (event.name == "OnPartitionFinish") abortFlag.flag = true;
  };
  tool.execute();
  const std::vector<FiredEvent> finish = sink.named("OnPartitionFinish");
  ASSERT_EQ(finish.size(), 2u);
  EXPECT_EQ(finish[1].values, (List{"0", "2", "", "8"}));
  EXPECT_EQ(finish[1].output("Message"), List{"Not Scheduled"});
}

TEST_F(RecoverDriver, AfterAPartitionOfTheDeviceRanALaterSystemPartitionGuardStoresNoMessage) {
  FakeOperation* check = fake("filesystem");
  addDevice("0");
  tool.setValues("Operation", {"filesystem"});
  tool.setValues("partition_table0", {"1", "NTFS", "E:\\", "F", "2", "NTFS", "C:\\", "T"});
  sink.answers = {2};
  tool.execute();
  ASSERT_EQ(check->runs.size(), 1u);
  const FiredEvent second = sink.named("OnPartitionFinish").at(1);
  EXPECT_EQ(second.values, (List{"0", "2", "", "8"}));
  EXPECT_EQ(second.output("Message"), List{});
}

TEST_F(RecoverDriver, GuardTextAndRanStartAfreshForEachDevice) {
  fake("filesystem");
  addDevice("0");
  addDevice("1");
  tool.setValues("Operation", {"filesystem"});
  tool.setValues("partition_table0", {"1", "NTFS", "E:\\", "F"});
  tool.setValues("partition_table1", {"1", "NTFS", "C:\\", "T"});
  sink.answers = {2};
  tool.execute();
  const std::vector<FiredEvent> finish = sink.named("OnPartitionFinish");
  ASSERT_EQ(finish.size(), 2u);
  EXPECT_EQ(finish[1].output("Message"), List{"Not Scheduled"});
}

TEST_F(RecoverDriver, RepairWhoseUnmountFailsFinishesWithTwoStoresSectorsInfoAndGuardText) {
  // A scripted device has no partition description, so the unmount fails.
  tooltest::SectorMapFilesystem filesystem;
  tooltest::SectorMapProtocol protocol(300);
  addDevice("0", &protocol);
  tool.setValues("Operation", {"repair"});
  tool.execute();
  const FiredEvent finish = sink.named("OnDeviceFinish").at(0);
  EXPECT_EQ(finish.values, (List{"0", "2"}));
  EXPECT_EQ(finish.output("SectorsInfo"), (List{"0", "0", "0", "0"}));
  EXPECT_EQ(finish.output("BadSectorsList"), List{});
  EXPECT_EQ(finish.output("Message"), List{"Unable to unmount all partitions of the device"});
  EXPECT_EQ(protocol.count(mstest::Op::ReadSectors), 0u);
  EXPECT_TRUE(filesystem.reads.empty()) << "nothing was read";
}

TEST_F(RecoverDriver, RepairWhoseUnmountFailsReportsTheCountersOfAnEarlierRun) {
  FakeOperation* repair = fake("repair");
  repair->withCounters = true;
  repair->foundPerRun = {9};
  repair->fixedPerRun = 1;
  tooltest::SectorMapProtocol protocol(300);
  StorageComponent* healthy = addDevice("0", &protocol);
  (void)healthy;
  tool.setValues("Operation", {"repair"});
  // No partition description: the unmount fails and the fake never runs, so
  // the counters stand as they were.
  repair->counters[0] = 555;
  repair->counters[1] = 2;
  repair->counters[2] = 2;
  repair->badSectors = {40, 41};
  tool.execute();
  EXPECT_TRUE(repair->runs.empty());
  EXPECT_EQ(values("DeviceFinish"), (List{"0", "2"}));
  EXPECT_EQ(values("SectorsInfo"), (List{"555", "2", "2", "0"}));
  EXPECT_EQ(values("BadSectorsList"), (List{"40", "41"}));
}

TEST_F(RecoverDriver, FilesystemWithoutPartitionsHasNoCountersSoSectorsInfoIsZeros) {
  // The check counts no sectors and lists none: the whole-device branch,
  // reached only when the host sends no partition for a device, reports zeros.
  addDevice("5");
  tool.setValues("Operation", {"filesystem"});
  tool.setValues("SectorsInfo", {"1", "1", "1", "1"});
  tool.setValues("BadSectorsList", {"3"});
  tool.execute();
  ASSERT_EQ(tool.getOperation("filesystem")->getCounters(), nullptr);
  ASSERT_EQ(tool.getOperation("filesystem")->getBadSectors(), nullptr);
  EXPECT_EQ(sink.namesWithoutProgress(), (std::vector<std::string>{"OnRecoverInit", "OnOperationInit",
                                                                   "OnDeviceInit", "OnDeviceFinish",
                                                                   "OnRecoverFinish"}));
  const FiredEvent finish = sink.named("OnDeviceFinish").at(0);
  EXPECT_EQ(finish.values, (List{"5", "6"})) << "the check has no partition 0 to run on";
  EXPECT_EQ(finish.output("SectorsInfo"), (List{"0", "0", "0", "0"}));
  EXPECT_EQ(finish.output("BadSectorsList"), List{});
}

TEST_F(RecoverDriver, FilterDevicesWithOneEntryNeverReadsNonRotatingMedia) {
  // The component's description has no "NonRotatingMedia" at all: reading it
  // would throw.
  addDevice("0");
  addDevice("1", nullptr, kBusAta, kLocationUnknown);
  tool.setValues("Operation", {"filterDevices"});
  EXPECT_NO_THROW(tool.execute());
  EXPECT_EQ(values("DevicesFilter"), (List{"T", "T"}));
  EXPECT_TRUE(sink.events.empty()) << "the filter fires no event";
}

TEST_F(RecoverDriver, FilterDevicesOffersOnlyInternalAtaDevices) {
  addDevice("ata");
  addDevice("scsi", nullptr, kBusScsi);
  addDevice("usb", nullptr, kBusUsb);
  addDevice("nvme", nullptr, kBusNvme);
  addDevice("external", nullptr, kBusAta, kLocationExternal);
  addDevice("raid", nullptr, kBusAta, kLocationRaid);
  tool.setValues("Operation", {"filterDevices"});
  tool.execute();
  EXPECT_EQ(values("DevicesFilter"), (List{"T", "F", "F", "F", "F", "F"}));
}

TEST_F(RecoverDriver, FilterDevicesWithASecondEntryLeavesSolidStateDevicesOut) {
  addDevice("hdd")->setAttribute("NonRotatingMedia", "F");
  addDevice("ssd")->setAttribute("NonRotatingMedia", "T");
  addDevice("odd")->setAttribute("NonRotatingMedia", "yes");
  addDevice("usb", nullptr, kBusUsb);  // never asked: no attribute needed
  tool.setValues("Operation", {"filterDevices", ""});
  tool.execute();
  EXPECT_EQ(values("DevicesFilter"), (List{"T", "F", "T", "F"}));
}

TEST_F(RecoverDriver, FilterDevicesWithASecondEntryThrowsForADescriptionWithoutNonRotatingMedia) {
  addDevice("0");
  tool.setValues("Operation", {"filterDevices", "rotating"});
  try {
    tool.execute();
    FAIL() << "no exception";
  } catch (const std::out_of_range& error) {
    EXPECT_STREQ(error.what(), "invalid map<K, T> key");
  }
  EXPECT_EQ(tool.getValues("DevicesFilter"), nullptr);
}

class NotAStorageComponent : public SystemComponent {
 public:
  uint32_t reservedQuery() override { return 0; }
  bool reservedCheckA() override { return true; }
  void reservedActionA() override {}
  bool reservedCheckB() override { return true; }
  void reservedActionB() override {}
};

TEST_F(RecoverDriver, ADeviceThatIsNoStorageComponentIsFilteredOutAndCannotBeScanned) {
  NotAStorageComponent other;
  tool.setDevices({&other, nullptr});
  tool.setValues("Operation", {"filterDevices", "x"});
  tool.execute();
  EXPECT_EQ(values("DevicesFilter"), (List{"F", "F"}));

  tool.setValues("Operation", {"scan"});
  tool.execute();
  const std::vector<FiredEvent> finish = sink.named("OnDeviceFinish");
  ASSERT_EQ(finish.size(), 2u);
  EXPECT_EQ(finish[0].values, (List{"", "6"}));
  EXPECT_EQ(finish[1].values, (List{"", "6"}));
}

TEST_F(RecoverDriver, AnAbsentEmptyOrUnknownOperationIsNamedInMessageAndFiresNothing) {
  addDevice("0");
  tool.execute();
  EXPECT_EQ(values("Message"), (List{"UNKNOWN_OPERATION", ""}));
  tool.setValues("Operation", {});
  tool.execute();
  EXPECT_EQ(values("Message"), (List{"UNKNOWN_OPERATION", ""}));
  tool.setValues("Operation", {"defrag"});
  tool.execute();
  EXPECT_EQ(values("Message"), (List{"UNKNOWN_OPERATION", "defrag"}));
  EXPECT_TRUE(sink.events.empty());
}

TEST_F(RecoverDriver, AnEventWithoutAHandlerIsPassedOver) {
  fake("scan");
  addDevice("0");
  sink.handlers.erase("OnDeviceInit");
  sink.handlers.erase("OnRecoverInit");
  tool.setValues("Operation", {"scan"});
  tool.execute();
  EXPECT_EQ(sink.names(), (std::vector<std::string>{"OnOperationInit", "OnDeviceFinish", "OnRecoverFinish"}));
}

TEST_F(RecoverDriver, ExecuteAgainRebuildsThePlansAndKeepsOldValuesUntilOverwritten) {
  fake("scan");
  fake("filesystem");
  addDevice("0");
  tool.setValues("Operation", {"filesystem"});
  tool.setValues("partition_table0", {"1", "NTFS", "D:\\", "F"});
  tool.execute();
  ASSERT_EQ(tool.getPlans().at(0).partitions.size(), 1u);
  EXPECT_EQ(values("PartitionFinish"), (List{"0", "1", "log of run 1\n", "0"}));

  tool.setValues("Operation", {"scan"});
  tool.execute();
  EXPECT_TRUE(tool.getPlans().at(0).partitions.empty());
  EXPECT_EQ(values("PartitionFinish"), (List{"0", "1", "log of run 1\n", "0"})) << "kept from the earlier run";
  EXPECT_EQ(values("DeviceFinish"), (List{"0", "0"}));
  EXPECT_EQ(values("OperationInit"), List{"FAKE_TOOL"});
}

}  // namespace
