// WinCheckFilesystemTool on the simulated PC: chkdsk is a scripted child
// process (the machine's "processes"), and the boot-time check goes through
// the simulated WMI service, which records the drives it scheduled.
#include "tools/win_check_filesystem_tool.h"

#include <functional>
#include <memory>
#include <string>
#include <vector>

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include "sim/windows/face_state.h"
#include "sim/windows/wmi.h"
#include "testing/simulated_pc.h"
#include "tools/recover_bad_sectors.h"
#include "tools/tool_status.h"
#include "tools/tool_test_support.h"

namespace {

using List = std::vector<std::string>;

// n lines of talk, each ended by `end`.
std::string talk(int n, const std::string& end) {
  std::string text;
  for (int i = 0; i < n; ++i) text += "Checking file record segment " + std::to_string(i) + "." + end;
  return text;
}

class CheckFilesystemTest : public mstest::SimulatedPcTest {
 protected:
  // The built-in machine (C: on hdd0, D: on the eMMC device) with a chkdsk
  // for D: that writes `output` and ends with `exitCode`.
  void installWithChecker(const std::string& output, uint32_t exitCode, const std::string& arguments = "D: /F") {
    nlohmann::json machine = nlohmann::json::parse(sim::Machine::defaultMachineJson());
    machine["processes"] = nlohmann::json::array(
        {{{"image", "chkdsk.exe"}, {"arguments", arguments}, {"output", output}, {"exitCode", exitCode}}});
    ASSERT_NE(installJson(machine.dump()), nullptr);
  }

  // The built-in machine with `change` applied to its description.
  void installChanged(const std::function<void(nlohmann::json&)>& change) {
    nlohmann::json machine = nlohmann::json::parse(sim::Machine::defaultMachineJson());
    change(machine);
    ASSERT_NE(installJson(machine.dump()), nullptr);
  }

  // Runs the check on one partition mounted at `mountPath`.
  uint32_t check(const std::string& mountPath) {
    DevicePlan plan;
    plan.id = "6";
    plan.name = "disk 6";
    PartitionPlan partition;
    partition.name = "DATA";
    partition.mountPath = mountPath;
    plan.partitions.push_back(partition);
    checker.setListener(&sink);
    return checker.run(plan, 0);
  }

  void expectNothingHeld() {
    const sim::ComUsage usage = sim::comUsage();
    EXPECT_EQ(usage.objects, 0);
    EXPECT_EQ(usage.strings, 0);
    EXPECT_EQ(usage.arrays, 0);
    EXPECT_EQ(usage.initialisations, 0);
  }

  bool called(const std::string& line) {
    for (const std::string& call : sim::managementCalls()) {
      if (call == line) return true;
    }
    return false;
  }

  RecoverBadSectors owner{ItemId(50, 0, 0)};
  tooltest::RecordingToolSink sink;
  WinCheckFilesystemTool checker{&owner};
};

TEST_F(CheckFilesystemTest, NamesItselfAndFindsChkdskUnderTheSystemWindowsDirectory) {
  installWithChecker("", 0);
  WinCheckFilesystemTool fresh(&owner);
  EXPECT_EQ(fresh.getName(), "|CHECK_FILESYSTEM_TOOL");
  EXPECT_EQ(fresh.getChkdskPath(), "C:\\Windows\\system32\\chkdsk.exe");
  EXPECT_EQ(fresh.getCounters(), nullptr);
  EXPECT_EQ(fresh.getBadSectors(), nullptr);
}

TEST_F(CheckFilesystemTest, ALineOfTwelveGivesProgressTwelveAndALaterNineShowsNothingAndLogsNothing) {
  installWithChecker("12 percent complete.\r9 files processed.\r\nWindows has scanned the file system.\r\n", 0);
  EXPECT_EQ(check("D:\\"), kToolStatusClean);
  EXPECT_EQ(sink.progress(), List{"12"});
  ASSERT_NE(owner.getValues("Progress"), nullptr);
  EXPECT_EQ(*owner.getValues("Progress"), List{"12"});
  // The progress lines leave only the line feed that followed "9 files
  // processed.\r"; it joins the next line, which then keeps no line feed of
  // its own.
  EXPECT_EQ(checker.getLog(), "\nWindows has scanned the file system.");
}

TEST_F(CheckFilesystemTest, ProgressRisesAndANumberAboveOneHundredIsNeitherShownNorLogged) {
  installWithChecker("0 percent\r10 percent\r10 percent\r250 percent\r100 percent\r\n", 0);
  EXPECT_EQ(check("D:\\"), kToolStatusClean);
  EXPECT_EQ(sink.progress(), (List{"0", "10", "10", "100"}));
  EXPECT_EQ(checker.getLog().find("250"), std::string::npos);
}

TEST_F(CheckFilesystemTest, ALineWithTwoLeadingBlanksIsParsedAfterDroppingThem) {
  installWithChecker("  37 percent complete.\r\n", 0);
  EXPECT_EQ(check("D:\\"), kToolStatusClean);
  EXPECT_EQ(sink.progress(), List{"37"});
}

TEST_F(CheckFilesystemTest, NineHundredNinetyNineSilentLinesThenANumberAreNotTerminated) {
  // Lines ended by a line feed alone count once each.
  installWithChecker(talk(999, "\n") + "40 percent complete.\r" + talk(20, "\n"), 0);
  EXPECT_EQ(check("D:\\"), kToolStatusClean);
  EXPECT_EQ(sink.progress(), List{"40"});
}

TEST_F(CheckFilesystemTest, TheThousandthSilentLineEndsTheCheckerWithExitCodeThreeWhichGivesStatusSix) {
  // The script would end cleanly; only the guard's termination makes it fail.
  installWithChecker(talk(1000, "\n") + "50 percent complete.\r" + talk(5, "\n"), 0);
  EXPECT_EQ(check("D:\\"), kToolStatusCannotStart);
  EXPECT_TRUE(sink.progress().empty()) << "the checker was ended before it showed a percent";
}

TEST_F(CheckFilesystemTest, ACrLfLineCountsTwiceTowardsTheGuard) {
  // Carriage return and line feed each end a line, so 500 such lines are
  // a thousand to the guard.
  installWithChecker(talk(500, "\r\n") + talk(10, "\r\n"), 0);
  EXPECT_EQ(check("D:\\"), kToolStatusCannotStart);
}

TEST_F(CheckFilesystemTest, AHostHandlerThatThrowsDuringTheCheckLeavesNoHandleOpen) {
  installWithChecker("12 percent complete.\r\n" + talk(3, "\r\n"), 0);
  const size_t before = sim::windows::Face::instance().objects().size();
  struct HostFailure {};
  sink.handlers["OnProgress"] = [](Tool*, std::string) { throw HostFailure(); };
  EXPECT_THROW(check("D:\\"), HostFailure);
  // The pipe's ends and the child's process and thread handles are closed.
  EXPECT_EQ(sim::windows::Face::instance().objects().size(), before);
}

TEST_F(CheckFilesystemTest, ACheckerThatHasShownAPercentMayTalkOnForEver) {
  installWithChecker("5 percent complete.\r" + talk(1500, "\n"), 1);
  EXPECT_EQ(check("D:\\"), kToolStatusRepaired);
}

TEST_F(CheckFilesystemTest, ExitCodeZeroGivesStatusZero) {
  installWithChecker("Windows has scanned the file system and found no problems.\r\n", 0);
  EXPECT_EQ(check("D:\\"), kToolStatusClean);
}

TEST_F(CheckFilesystemTest, ExitCodeOneGivesStatusNine) {
  installWithChecker("Windows has made corrections to the file system.\r\n", 1);
  EXPECT_EQ(check("D:\\"), kToolStatusRepaired);
}

TEST_F(CheckFilesystemTest, AnyOtherExitCodeGivesStatusSix) {
  for (uint32_t code : {2u, 3u, 260u, 0xC0000005u}) {
    installWithChecker("Cannot lock current drive.\r\n", code);
    EXPECT_EQ(check("D:\\"), kToolStatusCannotStart) << code;
  }
}

TEST_F(CheckFilesystemTest, TheCheckerGetsTheMountPathWithoutItsBackslashAndTheRepairSwitch) {
  // The script answers only "D: /F" on its command line.
  installWithChecker("Volume label is DATA.\r\n", 1, "\\system32\\chkdsk.exe D: /F");
  EXPECT_EQ(check("D:\\"), kToolStatusRepaired);
}

TEST_F(CheckFilesystemTest, AMountPathWithoutABackslashIsUsedUnshortened) {
  installWithChecker("Volume label is DATA.\r\n", 1, "chkdsk.exe D: /F");
  EXPECT_EQ(check("D:"), kToolStatusRepaired);
}

TEST_F(CheckFilesystemTest, ALastLineOfOutputThatDoesNotEndInCrLfIsMissingFromTheLog) {
  installWithChecker("Stage 1: Examining basic file system structure ...\r\nLast words without an end", 0);
  EXPECT_EQ(check("D:\\"), kToolStatusClean);
  EXPECT_EQ(checker.getLog(), "Stage 1: Examining basic file system structure ...\n");
}

TEST_F(CheckFilesystemTest, TheLogKeepsEachTalkLineOnceWithoutCarriageReturnsAndDropsEmptyOnes) {
  installWithChecker("The type of the file system is NTFS.\r\n\r\nVolume label is DATA.\r\n", 0);
  EXPECT_EQ(check("D:\\"), kToolStatusClean);
  EXPECT_EQ(checker.getLog(), "The type of the file system is NTFS.\nVolume label is DATA.\n");
  checker.clearLog();
  EXPECT_EQ(checker.getLog(), "");
}

TEST_F(CheckFilesystemTest, AMissingCheckerGivesStatusSixAndAnEmptyLog) {
  ASSERT_NE(installDefault(), nullptr);
  EXPECT_EQ(check("D:\\"), kToolStatusCannotStart);
  EXPECT_EQ(checker.getLog(), "");
  EXPECT_TRUE(sink.progress().empty());
}

TEST_F(CheckFilesystemTest, APartitionIndexOutOfRangeGivesStatusSixAndEmptiesTheLog) {
  installWithChecker("Volume label is DATA.\r\n", 0);
  ASSERT_EQ(check("D:\\"), kToolStatusClean);
  ASSERT_NE(checker.getLog(), "");
  DevicePlan plan;
  plan.partitions.resize(1);
  EXPECT_EQ(checker.run(plan, 1), kToolStatusCannotStart);
  EXPECT_EQ(checker.getLog(), "");
  EXPECT_EQ(checker.run(plan, -1), kToolStatusCannotStart);
}

TEST_F(CheckFilesystemTest, AbortIsNotedAndStopsNoRunningCheck) {
  installWithChecker("Volume label is DATA.\r\n", 1);
  checker.abort();
  EXPECT_TRUE(checkAbortWasRequested());
  EXPECT_EQ(check("D:\\"), kToolStatusRepaired);
}

TEST_F(CheckFilesystemTest, TheCheckLeavesNoHandleOpen) {
  installWithChecker("Volume label is DATA.\r\n", 0);
  // Every pipe end, process and thread handle is closed by the end of a run:
  // closing them again fails.
  EXPECT_EQ(check("D:\\"), kToolStatusClean);
  HANDLE readEnd = nullptr;
  HANDLE writeEnd = nullptr;
  ASSERT_TRUE(CreatePipe(&readEnd, &writeEnd, nullptr, 0));
  // Handles are numbered upwards; the new pipe's come right after those the
  // run made, which are gone.
  for (uintptr_t value = 0x1000; value < reinterpret_cast<uintptr_t>(readEnd); value += 4) {
    EXPECT_FALSE(CloseHandle(reinterpret_cast<HANDLE>(value))) << "handle " << value << " left open";
  }
  CloseHandle(readEnd);
  CloseHandle(writeEnd);
}

TEST_F(CheckFilesystemTest, ScheduleCheckOfTheSystemVolumeSchedulesAutoChkForTheNextStart) {
  ASSERT_NE(installDefault(), nullptr);
  EXPECT_TRUE(checker.scheduleCheck("C:\\"));
  EXPECT_EQ(sim::scheduledChecks(), List{"C:"});
  EXPECT_TRUE(called("ConnectServer ROOT\\CIMV2"));
  EXPECT_TRUE(called("GetObject Win32_LogicalDisk"));
  EXPECT_TRUE(called("GetMethod ScheduleAutoChk"));
  EXPECT_TRUE(called("Put LogicalDisk"));
  EXPECT_TRUE(called("ExecMethod Win32_LogicalDisk ScheduleAutoChk"));
  EXPECT_TRUE(called("Get ReturnValue"));
  expectNothingHeld();
}

TEST_F(CheckFilesystemTest, ScheduleCheckTakesAMountPathWithoutABackslashAsItIs) {
  ASSERT_NE(installDefault(), nullptr);
  EXPECT_TRUE(checker.scheduleCheck("D:"));
  EXPECT_EQ(sim::scheduledChecks(), List{"D:"});
}

TEST_F(CheckFilesystemTest, ScheduleCheckOfAnUnknownDriveIsRefused) {
  ASSERT_NE(installDefault(), nullptr);
  EXPECT_FALSE(checker.scheduleCheck("Q:\\"));
  EXPECT_TRUE(sim::scheduledChecks().empty());
  expectNothingHeld();
}

TEST_F(CheckFilesystemTest, ScheduleCheckOfARemovableDriveIsRefused) {
  installChanged([](nlohmann::json& machine) {
    for (auto& disk : machine["disks"]) {
      if (disk["name"] == "emmc0") disk["removable"] = true;
    }
  });
  EXPECT_FALSE(checker.scheduleCheck("D:\\"));
  EXPECT_TRUE(sim::scheduledChecks().empty());
}

TEST_F(CheckFilesystemTest, ScheduleCheckIsFalseWhenAnyStepOfTheManagementCallFails) {
  for (const char* failing : {"CoInitializeEx", "ConnectServer", "GetObject", "GetMethod", "SpawnInstance", "Put",
                              "ExecMethod"}) {
    installChanged([failing](nlohmann::json& machine) { machine["wmi"] = {{"failures", {failing}}}; });
    EXPECT_FALSE(checker.scheduleCheck("C:\\")) << failing;
    EXPECT_TRUE(sim::scheduledChecks().empty()) << failing;
    expectNothingHeld();
  }
}

TEST_F(CheckFilesystemTest, ScheduleCheckIsFalseWhenTheMethodsAnswerCannotBeRead) {
  // The method ran and the check stands, but without its ReturnValue the
  // scheduling can't be told a success.
  installChanged([](nlohmann::json& machine) { machine["wmi"] = {{"failures", {"Get:ReturnValue"}}}; });
  EXPECT_FALSE(checker.scheduleCheck("C:\\"));
  EXPECT_EQ(sim::scheduledChecks(), List{"C:"});
  expectNothingHeld();
}

// The driver with its own file-system check, end to end on the simulated PC.
class CheckFilesystemDriverTest : public CheckFilesystemTest {
 protected:
  void SetUp() override {
    CheckFilesystemTest::SetUp();
    tool.listener = &sink;
    tool.abortFlag = &abortFlag;
    tool.systemEvents = &systemEvents;
    component = tooltest::makeComponent("0", nullptr);
    tool.setDevices({component.get()});
    tool.setValues("Operation", {"filesystem"});
  }

  List values(const std::string& key) {
    const List* list = tool.getValues(key);
    return list == nullptr ? List{"<absent>"} : *list;
  }

  RecoverBadSectors tool{ItemId(50, 0, 0)};
  tooltest::RecordingAbortFlag abortFlag;
  uint8_t systemEvents = 0;
  std::unique_ptr<StorageComponent> component;
};

TEST_F(CheckFilesystemDriverTest, ADataPartitionIsCheckedWithItsProgressLogAndStatus) {
  installWithChecker("The type of the file system is NTFS.\r\n30 percent complete.\r100 percent complete.\r\n", 1);
  tool.setValues("partition_table0", {"DATA", "NTFS", "D:\\", "F"});
  tool.execute();
  EXPECT_EQ(sink.progress(), (List{"30", "100"}));
  EXPECT_EQ(values("PartitionFinish"), (List{"0", "DATA", "The type of the file system is NTFS.\n", "9"}));
}

TEST_F(CheckFilesystemDriverTest, TheSystemPartitionIsScheduledForTheNextStartAtTheUsersYes) {
  ASSERT_NE(installDefault(), nullptr);
  sink.answers = {1};
  tool.setValues("partition_table0", {"WINDOWS", "NTFS", "C:\\", "T"});
  tool.execute();
  ASSERT_EQ(sink.questions.size(), 1u);
  EXPECT_EQ(values("PartitionFinish"), (List{"0", "WINDOWS", "", "3"}));
  EXPECT_EQ(sim::scheduledChecks(), List{"C:"});
  expectNothingHeld();
}

TEST_F(CheckFilesystemDriverTest, AFailedSchedulingGivesStatusFour) {
  installChanged([](nlohmann::json& machine) { machine["wmi"] = {{"failures", {"ExecMethod"}}}; });
  sink.answers = {1};
  tool.setValues("partition_table0", {"WINDOWS", "NTFS", "C:\\", "T"});
  tool.execute();
  EXPECT_EQ(values("PartitionFinish"), (List{"0", "WINDOWS", "", "4"}));
  EXPECT_TRUE(sim::scheduledChecks().empty());
}

}  // namespace
