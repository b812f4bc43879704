// The random seek tests: which disks each accepts, the number of reads and
// their progress, the random sequence, the allowance of bad sectors, the
// closing events, and whole runs on the simulated PC.
#include "diagnostics/random_seek.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <ctime>
#include <vector>

#include "diagnostics/funnel_seek.h"
#include "diagnostics/seek_test_support.h"

namespace {

using mstest::LogLine;
using mstest::Op;
using mstest::ProgressEvent;

constexpr char kLost[] = "DEVICE_COMMUNICATION_FAILURE";
constexpr char kPassword[] = "HARD_DISK_IS_PASSWORD_PROTECTED. |TRY_TO_DISABLE_THE_PASSWORD_PROTECTION";

// --- Constants ---------------------------------------------------------------

TEST(RandomSeekConstants, SeekCountsAndAllowancesOfTheTwoTests) {
  QuickRandomSeekTest quick(ItemId(1, 1, 3));
  ExtendedRandomSeekTest extended(ItemId(1, 2, 8));
  EXPECT_EQ(quick.getSeekCount(), 4000u);
  EXPECT_EQ(quick.getAllowedBadSectors(), 1u);
  EXPECT_EQ(extended.getSeekCount(), 40000u);
  EXPECT_EQ(extended.getAllowedBadSectors(), 10u);
  EXPECT_EQ(quick.getItemId(), ItemId(1, 1, 3));
  EXPECT_EQ(extended.getItemId(), ItemId(1, 2, 8));
  EXPECT_FALSE(quick.isOptionA());
  EXPECT_FALSE(extended.isOptionB());
}

TEST(RandomSeekConstants, TheTestsTakeNoParametersAndRejectNothing) {
  QuickRandomSeekTest quick(ItemId(1, 1, 3));
  ExtendedRandomSeekTest extended(ItemId(1, 2, 8));
  for (::Test* test : std::vector<::Test*>{&quick, &extended}) {
    std::vector<RejectedParameter> rejected;
    TestParameters parameters{{"STORAGE", {{"SEC_COUNT", "abc"}, {"FINAL_SIZE", "-1"}}}};
    EXPECT_TRUE(test->setParameters(parameters, rejected));
    EXPECT_TRUE(rejected.empty());
  }
}

// --- Which disks ---------------------------------------------------------------

class RandomSeek : public mstest::ScriptedDisk {
 protected:
  RandomSeek() : ScriptedDisk(1000000) {}

  void lockStoredFlags() {
    disk.setSecuritySupported(1);
    disk.setSecurityLocked(1);
  }

  QuickRandomSeekTest quick{ItemId(1, 1, 3)};
  ExtendedRandomSeekTest extended{ItemId(1, 2, 8)};
};

TEST_F(RandomSeek, QuickCheckSupportedWithoutComponentIsInvalid) {
  EXPECT_EQ(quick.checkSupported(nullptr, &listener, &log), INVALID);
}

TEST_F(RandomSeek, QuickAcceptsExternalDisksAndRefusesEmmcAndNvmeInSilence) {
  disk.setLocation(kLocationExternal);
  EXPECT_TRUE(quick.isSupported(&disk));
  for (uint32_t bus : {kBusEmmc, kBusNvme}) {
    disk.setBusKind(bus);
    EXPECT_EQ(quick.checkSupported(&disk, &listener, &log), NOT_APPLICABLE);
  }
  EXPECT_TRUE(listener.events.empty());
  EXPECT_TRUE(log.lines.empty());
}

TEST_F(RandomSeek, QuickChecksWordForWordAsTheQuickFunnelTest) {
  QuickFunnelSeekTest funnel(ItemId(1, 1, 4));
  for (uint32_t bus : {kBusAta, kBusScsi, kBusUsb, kBusEmmc, kBusNvme}) {
    disk.setBusKind(bus);
    EXPECT_EQ(quick.checkSupported(&disk, &listener, &log), funnel.checkSupported(&disk, &listener, &log));
  }
}

TEST_F(RandomSeek, LockedDriveFailsIsSupportedForExtendedAndPrepareForQuick) {
  lockStoredFlags();
  disk.setLocation(kLocationExternal);
  // The quick test learns of the lock in prepare, through the read helpers.
  EXPECT_TRUE(quick.isSupported(&disk));
  EXPECT_EQ(quick.prepare(&disk, &listener, &log), NOT_APPLICABLE);
  EXPECT_EQ(listener.events, (std::vector<ProgressEvent>{{100, kPassword}}));
  // The extended test refuses it in checkSupported, on an internal SCSI disk.
  disk.setLocation(kLocationInternal);
  makeScsi();
  EXPECT_FALSE(extended.isSupported(&disk));
  EXPECT_EQ(listener.events.size(), 1u);
}

TEST_F(RandomSeek, ExtendedPasswordMessageReachesTheLogBeforeTheListener) {
  makeScsi();
  lockStoredFlags();
  std::vector<size_t> linesAtEvent;
  listener.onEvent = [&](const ProgressEvent&) { linesAtEvent.push_back(log.lines.size()); };
  EXPECT_EQ(extended.run(&context), NOT_APPLICABLE);
  EXPECT_EQ(listener.events, (std::vector<ProgressEvent>{{100, kPassword}, {100, ""}}));
  EXPECT_EQ(log.lines, (std::vector<LogLine>{{kPassword, LevelInfo}}));
  EXPECT_EQ(linesAtEvent, (std::vector<size_t>{1, 1}));
  EXPECT_TRUE(filesystem.readLbas.empty());
}

TEST_F(RandomSeek, ExtendedCheckSupportedWithoutComponentOrProtocolIsInvalid) {
  EXPECT_EQ(extended.checkSupported(nullptr, &listener, &log), INVALID);
  StorageComponent bare(nullptr, nullptr);
  EXPECT_EQ(extended.checkSupported(&bare, &listener, &log), INVALID);
}

TEST_F(RandomSeek, ExtendedRefusesExternalByNameAndOtherDisksAtLevelZero) {
  makeScsi();
  disk.setLocation(kLocationExternal);
  EXPECT_EQ(extended.checkSupported(&disk, &listener, &log), NOT_APPLICABLE);
  disk.setLocation(kLocationInternal);
  disk.setBusKind(kBusAta);
  EXPECT_EQ(extended.checkSupported(&disk, &listener, &log), NOT_APPLICABLE);
  EXPECT_EQ(listener.events, (std::vector<ProgressEvent>{{100, "TEST_NOT_SUPPORTED_IN_EXTERNAL_DEVICE"},
                                                         {100, "TEST_NOT_SUPPORTED_IN_THIS_DEVICE"}}));
  EXPECT_EQ(log.lines, (std::vector<LogLine>{{"TEST_NOT_SUPPORTED_IN_EXTERNAL_DEVICE", LevelError},
                                             {"TEST_NOT_SUPPORTED_IN_THIS_DEVICE", LevelInfo}}));
}

TEST_F(RandomSeek, ExtendedAcceptsWithoutAskingTheReadHelpers) {
  makeScsi();
  // Without listener and log the read helpers refuse; the funnel sister asks
  // them, the random test does not.
  ExtendedFunnelSeekTest funnel(ItemId(1, 2, 9));
  EXPECT_EQ(funnel.checkSupported(&disk, nullptr, nullptr), NOT_APPLICABLE);
  EXPECT_EQ(extended.checkSupported(&disk, nullptr, nullptr), SUCCESS);
}

TEST_F(RandomSeek, ExtendedPrepareWakesTheDiskUnlessBehindARaidController) {
  makeScsi();
  EXPECT_EQ(extended.prepare(&disk, &listener, &log), SUCCESS);
  EXPECT_EQ(filesystem.readLbas, (std::vector<uint64_t>{0}));
  disk.setLocation(kLocationRaid);
  EXPECT_EQ(extended.prepare(&disk, &listener, &log), SUCCESS);
  EXPECT_EQ(filesystem.readLbas.size(), 1u);
}

// --- The run -------------------------------------------------------------------

TEST_F(RandomSeek, NullContextIsInvalidAndSilent) {
  EXPECT_EQ(quick.run(nullptr), INVALID);
  context.setLog(nullptr);
  EXPECT_EQ(quick.run(&context), INVALID);
  EXPECT_TRUE(listener.events.empty());
}

TEST_F(RandomSeek, UserAbortBeforeTheStartReadsNothing) {
  context.abortRequested = true;
  EXPECT_EQ(quick.run(&context), ABORTED);
  EXPECT_EQ(listener.events, (std::vector<ProgressEvent>{{100, ""}}));
  EXPECT_TRUE(filesystem.readLbas.empty());
}

TEST_F(RandomSeek, QuickRunOnAHealthyDiskMakes4001ReadsWithOneEventAPercentAndTwoClosing) {
  EXPECT_EQ(quick.run(&context), SUCCESS);
  EXPECT_EQ(testReads().size(), 4001u);
  std::vector<ProgressEvent> expected{{0, ""}};
  for (uint8_t percent = 1; percent <= 100; ++percent) expected.push_back({percent, ""});
  expected.push_back({100, ""});
  EXPECT_EQ(listener.events, expected);
  EXPECT_TRUE(log.lines.empty());
  EXPECT_EQ(protocol->count(Op::IsAccessible), 0u);
}

TEST_F(RandomSeek, EveryDrawIsBelowTheLastSectorAndSeededWithTheTime) {
  const uint32_t before = static_cast<uint32_t>(std::time(nullptr));
  EXPECT_EQ(quick.run(&context), SUCCESS);
  const uint32_t after = static_cast<uint32_t>(std::time(nullptr));
  ASSERT_EQ(numbers.seeds.size(), 1u);
  EXPECT_GE(numbers.seeds[0], before);
  EXPECT_LE(numbers.seeds[0], after);
  ASSERT_EQ(numbers.limits.size(), 4001u);
  for (uint64_t limit : numbers.limits) ASSERT_EQ(limit, 999999u);
}

TEST_F(RandomSeek, RunWithAFixedSeedReadsTheNumberServicesSequence) {
  numbers.fixedSeed = 31337;
  EXPECT_EQ(quick.run(&context), SUCCESS);
  const std::vector<uint64_t> reads = testReads();
  ASSERT_EQ(reads.size(), 4001u);
  NumberHandlerImp replay;
  replay.seed(31337);
  for (size_t i = 0; i < reads.size(); ++i) {
    ASSERT_EQ(reads[i], replay.randomBelow(999999)) << "read " << i;
  }
}

TEST_F(RandomSeek, OneSectorDeviceDrawsFromAnEmptyRangeWithoutTrapping) {
  setSectorCount(1);
  EXPECT_EQ(quick.run(&context), SUCCESS);
  // randomBelow(0): the number service answers 0 instead of dividing by zero.
  ASSERT_EQ(numbers.limits.size(), 4001u);
  EXPECT_EQ(std::count(numbers.limits.begin(), numbers.limits.end(), 0u), 4001);
  const std::vector<uint64_t> reads = testReads();
  EXPECT_EQ(std::count(reads.begin(), reads.end(), 0u), 4001);
}

TEST_F(RandomSeek, QuickFirstBadSectorEndsTheRunFailed) {
  numbers.draws = {3, 9};
  filesystem.unreadable = {9};
  EXPECT_EQ(quick.run(&context), FAILED);
  EXPECT_EQ(testReads(), (std::vector<uint64_t>{3, 9}));
  EXPECT_EQ(listener.events,
            (std::vector<ProgressEvent>{{0, ""}, {100, "READING_SECTOR 9"}, {100, ""}, {100, ""}}));
  EXPECT_EQ(log.lines, (std::vector<LogLine>{{"READING_SECTOR 9", LevelFailure}}));
  EXPECT_EQ(protocol->callsOf(Op::ReadSectors).size(), 1u);
}

TEST_F(RandomSeek, ExtendedRunWithOneBadSectorReportsItOnceGoesOnAndPasses) {
  makeScsi();
  numbers.draws.assign(40001, 1);
  numbers.draws[1000] = 5;
  filesystem.unreadable = {5};
  EXPECT_EQ(extended.run(&context), SUCCESS);
  EXPECT_EQ(testReads().size(), 40001u);
  // Reported at the percentage of the read before it: 100 / 40000 x 999.
  EXPECT_EQ(listener.keyedEvents(), (std::vector<ProgressEvent>{{2, "READING_SECTOR 5"}}));
  EXPECT_EQ(log.lines, (std::vector<LogLine>{{"READING_SECTOR 5", LevelFailure}}));
  EXPECT_EQ(listener.events[listener.events.size() - 1], (ProgressEvent{100, ""}));
  EXPECT_EQ(listener.events[listener.events.size() - 2], (ProgressEvent{100, ""}));
}

TEST_F(RandomSeek, SameLbaDrawnTwiceAndBadBothTimesCountsOnce) {
  makeScsi();
  numbers.draws = {7, 7};
  filesystem.unreadable = {7};
  context.abortOnCall = 4;  // before the third read
  // Counted twice, the two reports would make the aborted run FAILED.
  EXPECT_EQ(extended.run(&context), ABORTED);
  EXPECT_EQ(testReads(), (std::vector<uint64_t>{7, 7}));
  EXPECT_EQ(listener.keyedEvents(),
            (std::vector<ProgressEvent>{{0, "READING_SECTOR 7"}, {0, "READING_SECTOR 7"}}));
}

TEST_F(RandomSeek, AbortWithTwoBadSectorsAlreadyFoundGivesFailed) {
  makeScsi();
  numbers.draws = {3, 4};
  filesystem.unreadable = {3, 4};
  context.abortOnCall = 4;
  EXPECT_EQ(extended.run(&context), FAILED);
  EXPECT_EQ(testReads(), (std::vector<uint64_t>{3, 4}));
  // The abort's own event and the closing one; the device still answers.
  EXPECT_EQ(std::vector<ProgressEvent>(listener.events.end() - 2, listener.events.end()),
            (std::vector<ProgressEvent>{{100, ""}, {100, ""}}));
  EXPECT_EQ(protocol->count(Op::IsAccessible), 3u);
}

TEST_F(RandomSeek, AbortWithoutBadSectorsEndsAborted) {
  context.abortOnCall = 11;
  EXPECT_EQ(quick.run(&context), ABORTED);
  EXPECT_EQ(testReads().size(), 9u);
  EXPECT_EQ(listener.events, (std::vector<ProgressEvent>{{0, ""}, {100, ""}, {100, ""}}));
  EXPECT_EQ(protocol->count(Op::IsAccessible), 0u);
}

TEST_F(RandomSeek, SystemEventIsAnnouncedOnceAndEndsAborted) {
  listener.onEvent = [this](const ProgressEvent& event) {
    if (event.percent == 0) context.systemEvents = 0x02;
  };
  EXPECT_EQ(quick.run(&context), ABORTED);
  EXPECT_EQ(listener.events, (std::vector<ProgressEvent>{{0, ""}, {100, kKeySystemEventAbort}, {100, ""}}));
  EXPECT_EQ(log.lines, (std::vector<LogLine>{{kKeySystemEventAbort, LevelInfo}}));
  EXPECT_TRUE(testReads().empty());
}

TEST_F(RandomSeek, FailedPrepareOnADeviceThatHasGoneEndsAbortedWithoutTheClosingEvent) {
  setSectorCount(0);
  protocol->setDefault(Op::IsAccessible, 1);
  EXPECT_EQ(quick.run(&context), ABORTED);
  EXPECT_EQ(listener.events, (std::vector<ProgressEvent>{{100, kLost}, {100, kLost}}));
  EXPECT_EQ(log.lines, (std::vector<LogLine>{{kLost, LevelFailure}, {kLost, LevelError}}));
}

TEST_F(RandomSeek, FailedPrepareOnADeviceThatAnswersEndsNotApplicableWithOneClosingEvent) {
  setSectorCount(0);
  EXPECT_EQ(quick.run(&context), NOT_APPLICABLE);
  EXPECT_EQ(listener.events, (std::vector<ProgressEvent>{{100, kLost}, {100, ""}}));
}

TEST_F(RandomSeek, FailedRunOnADeviceThatHasGoneSinceEndsAbortedWithoutTheClosingEvent) {
  numbers.draws = {9};
  filesystem.unreadable = {9};
  protocol->script(Op::IsAccessible, 0);  // still there at the bad sector
  protocol->setDefault(Op::IsAccessible, 1);
  EXPECT_EQ(quick.run(&context), ABORTED);
  EXPECT_EQ(listener.events,
            (std::vector<ProgressEvent>{{0, ""}, {100, "READING_SECTOR 9"}, {100, ""}, {100, kLost}}));
  EXPECT_EQ(log.lines, (std::vector<LogLine>{{"READING_SECTOR 9", LevelFailure}, {kLost, LevelError}}));
}

TEST_F(RandomSeek, DeviceLostAtABadSectorEndsAborted) {
  numbers.draws = {12};
  filesystem.unreadable = {12};
  protocol->setDefault(Op::IsAccessible, 1);
  EXPECT_EQ(quick.run(&context), ABORTED);
  EXPECT_EQ(listener.events, (std::vector<ProgressEvent>{{0, ""}, {100, kLost}, {100, ""}, {100, ""}}));
  EXPECT_EQ(log.lines, (std::vector<LogLine>{{kLost, LevelError}}));
}

TEST_F(RandomSeek, RefusedAccessEndsNotApplicable) {
  numbers.draws = {12};
  filesystem.unreadable = {12};
  protocol->setDefault(Op::ReadSectors, kStatusScsiRefused);
  EXPECT_EQ(quick.run(&context), NOT_APPLICABLE);
  EXPECT_EQ(log.lines, (std::vector<LogLine>{{"CANNOT_ACCESS_DEVICE", LevelFailure}}));
}

TEST_F(RandomSeek, DriveBehindARaidControllerIsReadThroughItsCommandsTwice) {
  disk.setLocation(kLocationRaid);
  numbers.draws = {12};
  EXPECT_EQ(quick.run(&context), FAILED);
  // No handle read at all, and the failing sector asked for twice.
  EXPECT_TRUE(filesystem.readLbas.empty());
  const std::vector<mstest::Call> reads = protocol->callsOf(Op::ReadSectors);
  ASSERT_EQ(reads.size(), 2u);
  EXPECT_EQ(reads[0].first, 12u);
  EXPECT_EQ(reads[1].first, 12u);
}

// --- On the simulated PC -----------------------------------------------------

class RandomSeekOnSimulatedDisks : public mstest::SeekDisks {
 protected:
  mstest::ScriptedNumberHandler numbers;
  mstest::RecordingListener listener;
  mstest::RecordingLog log;
};

TEST_F(RandomSeekOnSimulatedDisks, QuickRunOnTheDefaultHardDiskPasses) {
  installDefault();
  StorageComponent& hdd = ataDisk(0);
  numbers.fixedSeed = 7;
  mstest::ScriptedRunContext context(&hdd, &listener, &log);
  QuickRandomSeekTest test(ItemId(1, 1, 3));
  ASSERT_TRUE(test.isSupported(&hdd));
  EXPECT_EQ(test.run(&context), SUCCESS);
  EXPECT_EQ(numbers.limits.size(), 4001u);
  EXPECT_EQ(numbers.limits.front(), 1953525167u);
  EXPECT_TRUE(log.lines.empty());
  EXPECT_EQ(listener.events.size(), 102u);
}

TEST_F(RandomSeekOnSimulatedDisks, ExtendedRunOnTheDefaultSasDiskStopsAtAnAbort) {
  installDefault();
  StorageComponent& sas = scsiDisk(3);
  mstest::ScriptedRunContext context(&sas, &listener, &log);
  context.abortOnCall = 1501;  // 1499 reads, then the user stops the run
  ExtendedRandomSeekTest test(ItemId(1, 2, 8));
  ASSERT_TRUE(test.isSupported(&sas));
  EXPECT_EQ(test.run(&context), ABORTED);
  EXPECT_EQ(numbers.limits.size(), 1499u);
  // The SCSI capacity is the last LBA as READ CAPACITY gives it, not a count.
  EXPECT_EQ(numbers.limits.front(), 7814037166u);
  EXPECT_TRUE(log.lines.empty());
}

TEST_F(RandomSeekOnSimulatedDisks, ExtendedRunOnASmallScsiDiskWithTwoBadSectorsFailsOverAnAbort) {
  installJson(R"({"disks": [{"name": "s", "kind": "scsi", "bus": "sas",
      "profile": {"capacitySectors": 64},
      "faults": {"unreadableSectors": [10, 20]}}]})");
  StorageComponent& sas = scsiDisk(0);
  numbers.fixedSeed = 99;
  mstest::ScriptedRunContext context(&sas, &listener, &log);
  context.abortOnCall = 2001;
  ExtendedRandomSeekTest test(ItemId(1, 2, 8));
  EXPECT_EQ(test.run(&context), FAILED);
  std::vector<std::string> reported;
  for (const ProgressEvent& event : listener.keyedEvents()) reported.push_back(event.key);
  EXPECT_NE(std::find(reported.begin(), reported.end(), "READING_SECTOR 10"), reported.end());
  EXPECT_NE(std::find(reported.begin(), reported.end(), "READING_SECTOR 20"), reported.end());
  EXPECT_EQ(listener.events.back(), (ProgressEvent{100, ""}));
}

}  // namespace
