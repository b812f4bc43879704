// The vendor drive self test: its parameters SEC_NUM and SEC_COUNT, which
// disks it takes with and without them, and whole runs on simulated ATA
// disks that know the vendor routine or refuse it.
#include "diagnostics/drive_self.h"

#include <gtest/gtest.h>

#include <map>
#include <string>
#include <vector>

#include "diagnostics/self_test_test_support.h"

namespace {

using mstest::LogLine;
using mstest::Op;
using mstest::ProgressEvent;

TestParameters storage(std::map<std::string, std::string> keys) { return {{"STORAGE", std::move(keys)}}; }

// Each record as "code section key".
std::vector<std::string> described(const std::vector<RejectedParameter>& records) {
  std::vector<std::string> out;
  for (const RejectedParameter& r : records) out.push_back(std::to_string(r.code) + " " + r.section + " " + r.key);
  return out;
}

class DriveSelf : public mstest::SelfTestFixture {
 protected:
  QuickDriveSelfTest test{ItemId(1, 1, 6)};
  std::vector<RejectedParameter> rejected;
};

TEST_F(DriveSelf, StartsVendorCodeEightyWithCountFourEveryTenSecondsForAtMostSixHundred) {
  EXPECT_EQ(test.getSelfTestCode(), 80u);
  EXPECT_EQ(test.getSelfTestArgument(), 4u);
  EXPECT_EQ(test.getPollIntervalSeconds(), 10u);
  EXPECT_EQ(test.getTimeLimitSeconds(), 600u);
  scriptRun({{100, 0}});
  EXPECT_EQ(test.run(&context), SUCCESS);
  const mstest::Call start = protocol->callsOf(Op::StartSelfTest).at(0);
  EXPECT_EQ(start.first, 80u);
  EXPECT_EQ(start.second, 4u);
}

// --- Parameters ---------------------------------------------------------------

TEST_F(DriveSelf, SecNum256IsRefusedOutOfRangeWithOneRecord) {
  EXPECT_FALSE(test.setParameters(storage({{"SEC_NUM", "256"}}), rejected));
  EXPECT_EQ(described(rejected), (std::vector<std::string>{"1116 STORAGE SEC_NUM"}));
  EXPECT_EQ(test.getSelfTestCode(), 80u);
  EXPECT_FALSE(test.areParametersGiven());
}

TEST_F(DriveSelf, SecNumAbcIsRefusedAsNotANumberWithOneRecord) {
  EXPECT_FALSE(test.setParameters(storage({{"SEC_NUM", "abc"}}), rejected));
  EXPECT_EQ(described(rejected), (std::vector<std::string>{"1115 STORAGE SEC_NUM"}));
  EXPECT_FALSE(test.areParametersGiven());
}

TEST_F(DriveSelf, SecNumMinusOneIsOutOfRange) {
  EXPECT_FALSE(test.setParameters(storage({{"SEC_NUM", "-1"}}), rejected));
  EXPECT_EQ(described(rejected), (std::vector<std::string>{"1116 STORAGE SEC_NUM"}));
}

TEST_F(DriveSelf, TrailingTextIsNotANumber) {
  EXPECT_FALSE(test.setParameters(storage({{"SEC_COUNT", "12x"}}), rejected));
  EXPECT_EQ(described(rejected), (std::vector<std::string>{"1115 STORAGE SEC_COUNT"}));
  EXPECT_EQ(test.getSelfTestArgument(), 4u);
}

TEST_F(DriveSelf, FirstRefusedValueEndsTheCallAndTheRestIsNotLookedAt) {
  EXPECT_FALSE(test.setParameters(storage({{"SEC_NUM", "abc"}, {"SEC_COUNT", "999"}}), rejected));
  EXPECT_EQ(described(rejected), (std::vector<std::string>{"1115 STORAGE SEC_NUM"}));
  EXPECT_EQ(test.getSelfTestArgument(), 4u);
}

TEST_F(DriveSelf, GoodCodeStaysWhenTheCountIsRefused) {
  EXPECT_FALSE(test.setParameters(storage({{"SEC_NUM", "81"}, {"SEC_COUNT", "256"}}), rejected));
  EXPECT_EQ(described(rejected), (std::vector<std::string>{"1116 STORAGE SEC_COUNT"}));
  EXPECT_EQ(test.getSelfTestCode(), 81u);
  EXPECT_EQ(test.getSelfTestArgument(), 4u);
  EXPECT_TRUE(test.areParametersGiven());
}

TEST_F(DriveSelf, BothValuesTakenGoToTheStartOfEveryLaterRun) {
  EXPECT_TRUE(test.setParameters(storage({{"SEC_NUM", "255"}, {"SEC_COUNT", "0"}}), rejected));
  EXPECT_TRUE(rejected.empty());
  EXPECT_TRUE(test.areParametersGiven());
  for (int run = 0; run < 2; ++run) {
    scriptRun({{100, 0}});
    EXPECT_EQ(test.run(&context), SUCCESS);
  }
  for (const mstest::Call& start : protocol->callsOf(Op::StartSelfTest)) {
    EXPECT_EQ(start.first, 255u);
    EXPECT_EQ(start.second, 0u);
  }
  EXPECT_EQ(protocol->count(Op::StartSelfTest), 2u);
}

TEST_F(DriveSelf, SecCountAloneSetsTheCountAndMarksParametersGiven) {
  EXPECT_TRUE(test.setParameters(storage({{"SEC_COUNT", "7"}}), rejected));
  EXPECT_EQ(test.getSelfTestCode(), 80u);
  EXPECT_EQ(test.getSelfTestArgument(), 7u);
  EXPECT_TRUE(test.areParametersGiven());
}

TEST_F(DriveSelf, MissingOrEmptyStorageSectionChangesNothing) {
  EXPECT_TRUE(test.setParameters({}, rejected));
  EXPECT_TRUE(test.setParameters({{"OTHER", {{"SEC_NUM", "abc"}}}}, rejected));
  EXPECT_TRUE(test.setParameters(storage({}), rejected));
  EXPECT_TRUE(test.setParameters(storage({{"UNKNOWN", "x"}}), rejected));
  EXPECT_TRUE(rejected.empty());
  EXPECT_FALSE(test.areParametersGiven());
  EXPECT_EQ(test.getSelfTestCode(), 80u);
  EXPECT_EQ(test.getSelfTestArgument(), 4u);
}

// --- Which disks -----------------------------------------------------------------

TEST_F(DriveSelf, SolidStateDriveIsRefusedWithoutParameters) {
  properties.isSolidState = true;
  applyProperties();
  EXPECT_EQ(test.run(&context), NOT_APPLICABLE);
  EXPECT_EQ(listener.events, (std::vector<ProgressEvent>{{100, "TEST_NOT_SUPPORTED_IN_SSD"}, {100, ""}}));
  EXPECT_EQ(log.lines, (std::vector<LogLine>{{"TEST_NOT_SUPPORTED_IN_SSD", LevelError}}));
  EXPECT_EQ(protocol->count(Op::EnableSmart), 0u);
  EXPECT_FALSE(test.isSupported(&disk));
}

TEST_F(DriveSelf, SecNum80AloneAcceptsASolidStateDrive) {
  properties.isSolidState = true;
  applyProperties();
  ASSERT_TRUE(test.setParameters(storage({{"SEC_NUM", "80"}}), rejected));
  EXPECT_TRUE(test.areParametersGiven());
  EXPECT_TRUE(test.isSupported(&disk));
  scriptRun({{100, 0}});
  EXPECT_EQ(test.run(&context), SUCCESS);
}

TEST_F(DriveSelf, SecNum80AloneRunsWithoutATimeLimit) {
  ASSERT_TRUE(test.setParameters(storage({{"SEC_NUM", "80"}}), rejected));
  std::vector<mstest::PollAnswer> polls(89, mstest::PollAnswer{50, 15});  // 890 s of running
  polls.push_back({100, 0});
  scriptRun(polls);
  timeEvents();
  EXPECT_EQ(test.run(&context), SUCCESS);
  EXPECT_TRUE(listener.keyedEvents().empty());
  EXPECT_TRUE(log.lines.empty());
  EXPECT_EQ(msSinceStartEvent().back(), 900000u);
  EXPECT_EQ(protocol->count(Op::AbortSelfTest), 0u);
}

TEST_F(DriveSelf, SecNum80AloneTurnsAnAbrtRefusalIntoInvalidParameterValue) {
  ASSERT_TRUE(test.setParameters(storage({{"SEC_NUM", "80"}}), rejected));
  protocol->script(Op::StartSelfTest, kStatusSelfTestAborted);
  EXPECT_EQ(test.run(&context), NOT_APPLICABLE);
  EXPECT_EQ(listener.events, (std::vector<ProgressEvent>{{100, "INVALID_PARAMETER_VALUE"}, {100, ""}}));
  EXPECT_EQ(log.lines, (std::vector<LogLine>{{"INVALID_PARAMETER_VALUE", LevelFailure}}));
  EXPECT_TRUE(filesystem.reads.empty());
  EXPECT_EQ(enableSmartArguments(), (std::vector<uint64_t>{1, 0}));
}

TEST_F(DriveSelf, IdnfRefusalWithParametersIsInvalidParameterValueToo) {
  ASSERT_TRUE(test.setParameters(storage({{"SEC_COUNT", "9"}}), rejected));
  protocol->script(Op::StartSelfTest, kStatusSelfTestIdnf);
  EXPECT_EQ(test.run(&context), NOT_APPLICABLE);
  EXPECT_EQ(log.lines, (std::vector<LogLine>{{"INVALID_PARAMETER_VALUE", LevelFailure}}));
}

TEST_F(DriveSelf, OtherStartFailureWithParametersIsStillCannotPerform) {
  ASSERT_TRUE(test.setParameters(storage({{"SEC_NUM", "80"}}), rejected));
  protocol->script(Op::StartSelfTest, kStatusAtaError);
  EXPECT_EQ(test.run(&context), NOT_APPLICABLE);
  EXPECT_EQ(log.lines, (std::vector<LogLine>{{"CANNOT_PERFORM_SELF_TEST", LevelError}}));
  EXPECT_EQ(filesystem.reads.size(), 1u);
}

TEST_F(DriveSelf, AbrtRefusalWithoutParametersIsCannotPerformSelfTest) {
  protocol->script(Op::StartSelfTest, kStatusSelfTestAborted);
  EXPECT_EQ(test.run(&context), NOT_APPLICABLE);
  EXPECT_EQ(log.lines, (std::vector<LogLine>{{"CANNOT_PERFORM_SELF_TEST", LevelError}}));
}

TEST_F(DriveSelf, ScsiDiskIsADeviceRefusalAtLevelZero) {
  makeScsi();
  EXPECT_EQ(test.checkSupported(&disk, &listener, &log), NOT_APPLICABLE);
  EXPECT_EQ(listener.events, (std::vector<ProgressEvent>{{100, "TEST_NOT_SUPPORTED_IN_THIS_DEVICE"}}));
  EXPECT_EQ(log.lines, (std::vector<LogLine>{{"TEST_NOT_SUPPORTED_IN_THIS_DEVICE", LevelInfo}}));
}

TEST_F(DriveSelf, ExternalDiskIsRefusedAtLevelThree) {
  disk.setLocation(kLocationExternal);
  EXPECT_EQ(test.checkSupported(&disk, &listener, &log), NOT_APPLICABLE);
  EXPECT_EQ(log.lines, (std::vector<LogLine>{{"TEST_NOT_SUPPORTED_IN_EXTERNAL_DEVICE", LevelError}}));
}

TEST_F(DriveSelf, NullComponentOrProtocolIsInvalid) {
  EXPECT_EQ(test.checkSupported(nullptr, &listener, &log), INVALID);
  StorageComponent bare(nullptr, nullptr);
  EXPECT_EQ(test.checkSupported(&bare, &listener, &log), INVALID);
  EXPECT_TRUE(listener.events.empty());
}

TEST_F(DriveSelf, SolidStateDriveWithParametersStillTakesTheCommonCheck) {
  properties.isSolidState = true;
  properties.offlineAbortSupported = true;
  applyProperties();
  ASSERT_TRUE(test.setParameters(storage({{"SEC_NUM", "80"}}), rejected));
  EXPECT_EQ(test.checkSupported(&disk, &listener, &log), NOT_APPLICABLE);
  EXPECT_TRUE(listener.events.empty());
}

// --- Whole runs on the simulated PC ---------------------------------------------------

class DriveSelfOnSimulatedMachine : public mstest::SelfTestDisks {
 protected:
  QuickDriveSelfTest test{ItemId(1, 1, 6)};
  std::vector<RejectedParameter> rejected;
};

// One SATA disk that knows the vendor routine 0x50 (five minutes), and has
// one unreadable sector at `badLba` unless that is 0.
std::string diskWithVendorRoutine(uint64_t badLba) {
  std::string faults = badLba == 0 ? "" : R"(, "faults": {"unreadableSectors": [)" + std::to_string(badLba) + "]}";
  return R"({"name": "vendor", "disks": [{"name": "hdd", "kind": "ata", "bus": "sata",
      "profile": {"model": "ST2000DM008-2FR102", "serial": "ZFL0A1B2", "capacitySectors": 1000000,
                  "smart": {"vendorTests": [{"code": 80, "answer": "run", "seconds": 300}]}})" +
         faults + "}]}";
}

TEST_F(DriveSelfOnSimulatedMachine, HardDiskWithoutTheVendorRoutineRefusesItAndIsWoken) {
  installDefault();
  auto disk = ataDisk(kHdd0);
  mstest::ClockedRunContext context(disk.get(), &listener, &log);
  ASSERT_TRUE(test.isSupported(disk.get()));
  EXPECT_EQ(test.run(&context), NOT_APPLICABLE);
  EXPECT_EQ(log.lines, (std::vector<LogLine>{{"CANNOT_PERFORM_SELF_TEST", LevelError}}));
  EXPECT_EQ(listener.events, (std::vector<ProgressEvent>{{100, "CANNOT_PERFORM_SELF_TEST"}, {100, ""}}));
}

TEST_F(DriveSelfOnSimulatedMachine, HardDiskWithoutTheVendorRoutineRefusesAGivenCodeAsInvalidParameter) {
  installDefault();
  auto disk = ataDisk(kHdd0);
  mstest::ClockedRunContext context(disk.get(), &listener, &log);
  ASSERT_TRUE(test.setParameters(storage({{"SEC_NUM", "80"}}), rejected));
  EXPECT_EQ(test.run(&context), NOT_APPLICABLE);
  EXPECT_EQ(log.lines, (std::vector<LogLine>{{"INVALID_PARAMETER_VALUE", LevelFailure}}));
}

TEST_F(DriveSelfOnSimulatedMachine, SolidStateDiskIsRefusedWithoutParameters) {
  installDefault();
  auto disk = ataDisk(kSsd0);
  EXPECT_FALSE(test.isSupported(disk.get()));
}

TEST_F(DriveSelfOnSimulatedMachine, DiskThatKnowsTheRoutinePassesAfterItsFiveMinutes) {
  installJson(diskWithVendorRoutine(0));
  auto disk = ataDisk(0);
  mstest::ClockedRunContext context(disk.get(), &listener, &log);
  ASSERT_TRUE(test.isSupported(disk.get()));
  const uint64_t startMs = mstest::machineNowMs();
  EXPECT_EQ(test.run(&context), SUCCESS);
  EXPECT_TRUE(log.lines.empty());
  EXPECT_GE(mstest::machineNowMs() - startMs, 300000u);
  EXPECT_LE(mstest::machineNowMs() - startMs, 311000u);
}

TEST_F(DriveSelfOnSimulatedMachine, DiskThatKnowsTheRoutineFailsAtAnUnreadableSector) {
  installJson(diskWithVendorRoutine(500000));
  auto disk = ataDisk(0);
  mstest::ClockedRunContext context(disk.get(), &listener, &log);
  EXPECT_EQ(test.run(&context), FAILED);
  EXPECT_EQ(log.lines, (std::vector<LogLine>{{"READ_ERROR_DETECTED", LevelFailure},
                                             {"READING_SECTOR 500000", LevelFailure}}));
}

}  // namespace
