// The funnel seek tests: which disks each accepts, the shape of the walk and
// its random sequence, the allowance of bad sectors, the closing events, and
// whole runs on the simulated PC.
#include "diagnostics/funnel_seek.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <ctime>
#include <utility>
#include <vector>

#include "diagnostics/seek_test_support.h"

namespace {

using mstest::LogLine;
using mstest::Op;
using mstest::ProgressEvent;

constexpr char kLost[] = "DEVICE_COMMUNICATION_FAILURE";
constexpr char kPassword[] = "HARD_DISK_IS_PASSWORD_PROTECTED. |TRY_TO_DISABLE_THE_PASSWORD_PROTECTION";

// The spans of the walk in the order they are read: down from the end, then
// up from the start, pair by pair.
std::vector<std::pair<uint64_t, uint64_t>> funnelSpans(uint64_t lastLba, uint64_t step) {
  std::vector<std::pair<uint64_t, uint64_t>> spans;
  uint64_t top = lastLba;
  uint64_t bottom = 0;
  while (lastLba != 0 && top != 0 && bottom < lastLba) {
    const uint64_t newTop = top - std::min(top, step);
    spans.emplace_back(newTop, top);
    top = newTop;
    const uint64_t newBottom = bottom + (lastLba - step < bottom ? lastLba - bottom : step);
    spans.emplace_back(bottom, newBottom);
    bottom = newBottom;
  }
  return spans;
}

std::vector<uint64_t> range(uint64_t first, uint64_t last) {
  std::vector<uint64_t> lbas;
  for (uint64_t lba = first; lba <= last; ++lba) lbas.push_back(lba);
  return lbas;
}

// Every draw lands on the lowest sector of its span, so that a test knows
// which sectors the walk reads.
void drawLowest(mstest::ScriptedNumberHandler& numbers, size_t count) {
  numbers.draws.assign(count, 0);
}

// The events between the opening (0, "") and the closing ones.
std::vector<ProgressEvent> without(const std::vector<ProgressEvent>& events, size_t head, size_t tail) {
  if (events.size() < head + tail) return {};
  return std::vector<ProgressEvent>(events.begin() + head, events.end() - tail);
}

// --- Constants ---------------------------------------------------------------

TEST(FunnelSeekConstants, StepFractionsAreTheSinglePrecisionConstants) {
  QuickFunnelSeekTest quick(ItemId(1, 1, 4));
  ExtendedFunnelSeekTest extended(ItemId(1, 2, 9));
  const float quickFraction = quick.getStepFraction();
  const float extendedFraction = extended.getStepFraction();
  uint32_t quickBits = 0;
  uint32_t extendedBits = 0;
  std::memcpy(&quickBits, &quickFraction, sizeof quickBits);
  std::memcpy(&extendedBits, &extendedFraction, sizeof extendedBits);
  EXPECT_EQ(quickBits, 0x3A378034u);
  EXPECT_EQ(extendedBits, 0x3892CCF7u);
  EXPECT_EQ(quick.getAllowedBadSectors(), 1u);
  EXPECT_EQ(extended.getAllowedBadSectors(), 10u);
  EXPECT_EQ(quick.getItemId(), ItemId(1, 1, 4));
  EXPECT_EQ(extended.getItemId(), ItemId(1, 2, 9));
  EXPECT_FALSE(quick.isOptionA());
  EXPECT_FALSE(extended.isOptionB());
}

TEST(FunnelSeekConstants, StepOnTwoBillionSectorsIs1400000ForTheQuickTest) {
  EXPECT_EQ(FunnelSeekTest::stepFor(1999999999, kQuickFunnelStepFraction), 1400000u);
  EXPECT_EQ(FunnelSeekTest::stepFor(1999999999, kExtendedFunnelStepFraction), 140000u);
}

TEST(FunnelSeekConstants, DiskTooSmallForOneStepWalksOneSectorAStep) {
  // 0.0007 x 300 rounds down to nothing: the window is kept at one sector.
  EXPECT_EQ(FunnelSeekTest::stepFor(299, kQuickFunnelStepFraction), 1u);
  EXPECT_EQ(FunnelSeekTest::stepFor(14284, kExtendedFunnelStepFraction), 1u);
  EXPECT_EQ(FunnelSeekTest::stepFor(1428, kQuickFunnelStepFraction), 1u);
}

TEST(FunnelSeekConstants, DriveWithoutCapacityStillGetsAFiniteStep) {
  // sectorCount 0 wraps lastLba to the top of the range.
  EXPECT_GT(FunnelSeekTest::stepFor(UINT64_MAX, kExtendedFunnelStepFraction), uint64_t{1} << 50);
}

TEST(FunnelSeekConstants, TheTestsTakeNoParametersAndRejectNothing) {
  QuickFunnelSeekTest quick(ItemId(1, 1, 4));
  ExtendedFunnelSeekTest extended(ItemId(1, 2, 9));
  for (::Test* test : std::vector<::Test*>{&quick, &extended}) {
    std::vector<RejectedParameter> rejected;
    TestParameters parameters{{"STORAGE", {{"SEC_NUM", "x"}, {"INITIAL_SIZE", "99999999999"}}}};
    EXPECT_TRUE(test->setParameters(parameters, rejected));
    EXPECT_TRUE(rejected.empty());
  }
}

// --- Which disks ---------------------------------------------------------------

class FunnelSeek : public mstest::ScriptedDisk {
 protected:
  FunnelSeek() : ScriptedDisk(300) {}
  QuickFunnelSeekTest quick{ItemId(1, 1, 4)};
  ExtendedFunnelSeekTest extended{ItemId(1, 2, 9)};
};

TEST_F(FunnelSeek, QuickCheckSupportedWithoutComponentIsInvalid) {
  EXPECT_EQ(quick.checkSupported(nullptr, &listener, &log), INVALID);
}

TEST_F(FunnelSeek, QuickAcceptsExternalAndSolidStateDisks) {
  disk.setLocation(kLocationExternal);
  StorageProtocolProperties properties;
  properties.sectorCount = 300;
  properties.logicalSectorSize = 512;
  properties.isSolidState = true;
  protocol->setCachedProperties(properties);
  EXPECT_EQ(quick.checkSupported(&disk, &listener, &log), SUCCESS);
  EXPECT_TRUE(quick.isSupported(&disk));
}

TEST_F(FunnelSeek, QuickRefusesEmmcAndNvmeInSilence) {
  for (uint32_t bus : {kBusEmmc, kBusNvme}) {
    disk.setBusKind(bus);
    EXPECT_EQ(quick.checkSupported(&disk, &listener, &log), NOT_APPLICABLE);
    EXPECT_FALSE(quick.isSupported(&disk));
  }
  EXPECT_TRUE(listener.events.empty());
  EXPECT_TRUE(log.lines.empty());
}

TEST_F(FunnelSeek, QuickWithoutCapacityEndsNotApplicableWithTheReadHelpersKey) {
  setSectorCount(0);
  EXPECT_EQ(quick.run(&context), NOT_APPLICABLE);
  EXPECT_EQ(listener.events, (std::vector<ProgressEvent>{{100, kLost}, {100, ""}, {100, ""}}));
  EXPECT_EQ(log.lines, (std::vector<LogLine>{{kLost, LevelFailure}}));
  EXPECT_TRUE(filesystem.readLbas.empty());
}

TEST_F(FunnelSeek, QuickRefusesALockedExternalDiskInPrepare) {
  disk.setLocation(kLocationExternal);
  disk.setSecuritySupported(1);
  disk.setSecurityLocked(1);
  EXPECT_TRUE(quick.isSupported(&disk));
  EXPECT_EQ(quick.run(&context), NOT_APPLICABLE);
  EXPECT_EQ(listener.events, (std::vector<ProgressEvent>{{100, kPassword}, {100, ""}, {100, ""}}));
  EXPECT_EQ(log.lines, (std::vector<LogLine>{{kPassword, LevelInfo}}));
}

TEST_F(FunnelSeek, ExtendedCheckSupportedWithoutComponentOrProtocolIsInvalid) {
  EXPECT_EQ(extended.checkSupported(nullptr, &listener, &log), INVALID);
  StorageComponent bare(nullptr, nullptr);
  EXPECT_EQ(extended.checkSupported(&bare, &listener, &log), INVALID);
  EXPECT_TRUE(listener.events.empty());
}

TEST_F(FunnelSeek, ExtendedAcceptsAScsiDiskOnAScsiBus) {
  makeScsi();
  EXPECT_EQ(extended.checkSupported(&disk, &listener, &log), SUCCESS);
  EXPECT_TRUE(extended.isSupported(&disk));
  EXPECT_TRUE(listener.events.empty());
}

TEST_F(FunnelSeek, ExtendedRefusesAnExternalDiskByName) {
  makeScsi();
  disk.setLocation(kLocationExternal);
  EXPECT_EQ(extended.checkSupported(&disk, &listener, &log), NOT_APPLICABLE);
  EXPECT_EQ(listener.events, (std::vector<ProgressEvent>{{100, "TEST_NOT_SUPPORTED_IN_EXTERNAL_DEVICE"}}));
  EXPECT_EQ(log.lines, (std::vector<LogLine>{{"TEST_NOT_SUPPORTED_IN_EXTERNAL_DEVICE", LevelError}}));
}

TEST_F(FunnelSeek, ExtendedRefusesAtaAndScsiOffTheScsiBusAtLevelZero) {
  // An ATA disk, then a SCSI protocol behind a USB bridge.
  EXPECT_EQ(extended.checkSupported(&disk, &listener, &log), NOT_APPLICABLE);
  disk.setBusKind(kBusUsb);
  protocol->setProtocolKind(kProtocolScsi);
  EXPECT_EQ(extended.checkSupported(&disk, &listener, &log), NOT_APPLICABLE);
  const ProgressEvent refusal{100, "TEST_NOT_SUPPORTED_IN_THIS_DEVICE"};
  EXPECT_EQ(listener.events, (std::vector<ProgressEvent>{refusal, refusal}));
  const LogLine line{"TEST_NOT_SUPPORTED_IN_THIS_DEVICE", LevelInfo};
  EXPECT_EQ(log.lines, (std::vector<LogLine>{line, line}));
}

TEST_F(FunnelSeek, ExtendedIsSupportedOnAnExternalDiskIsFalseWithoutAnyEvent) {
  makeScsi();
  disk.setLocation(kLocationExternal);
  EXPECT_FALSE(extended.isSupported(&disk));
  EXPECT_TRUE(listener.events.empty());
  EXPECT_TRUE(log.lines.empty());
}

TEST_F(FunnelSeek, ExtendedPrepareWakesTheDiskWithOneIgnoredReadOfSectorZero) {
  makeScsi();
  filesystem.unreadable = {0};
  EXPECT_EQ(extended.prepare(&disk, &listener, &log), SUCCESS);
  EXPECT_EQ(filesystem.readLbas, (std::vector<uint64_t>{0}));
  EXPECT_EQ(filesystem.timeouts, (std::vector<uint32_t>{30}));
  EXPECT_EQ(protocol->count(Op::ReadSectors), 0u);
}

TEST_F(FunnelSeek, ExtendedPrepareBehindARaidControllerReadsNothing) {
  makeScsi();
  disk.setLocation(kLocationRaid);
  EXPECT_EQ(extended.prepare(&disk, &listener, &log), SUCCESS);
  EXPECT_TRUE(filesystem.readLbas.empty());
  EXPECT_TRUE(protocol->calls.empty());
}

// --- The run -------------------------------------------------------------------

TEST_F(FunnelSeek, NullContextIsInvalidAndSilent) {
  EXPECT_EQ(quick.run(nullptr), INVALID);
  context.setListener(nullptr);
  EXPECT_EQ(quick.run(&context), INVALID);
  EXPECT_TRUE(listener.events.empty());
  EXPECT_TRUE(filesystem.readLbas.empty());
}

TEST_F(FunnelSeek, UserAbortBeforeTheStartReadsNothing) {
  context.abortRequested = true;
  EXPECT_EQ(quick.run(&context), ABORTED);
  EXPECT_EQ(listener.events, (std::vector<ProgressEvent>{{100, ""}}));
  EXPECT_TRUE(log.lines.empty());
  EXPECT_TRUE(filesystem.readLbas.empty());
}

TEST_F(FunnelSeek, NormalRunReadsFirstSectorsThenTheFunnelThenLastSectors) {
  const uint64_t lastLba = 299;
  const auto spans = funnelSpans(lastLba, 1);
  drawLowest(numbers, spans.size());
  EXPECT_EQ(quick.run(&context), SUCCESS);

  std::vector<uint64_t> expected = range(0, 99);
  for (const auto& span : spans) expected.push_back(span.first);
  for (uint64_t lba : range(lastLba - 100, lastLba)) expected.push_back(lba);
  EXPECT_EQ(testReads(), expected);
  // 299 pairs on a disk that walks one sector a step.
  EXPECT_EQ(spans.size(), 2u * 299);
  EXPECT_TRUE(log.lines.empty());
  EXPECT_EQ(protocol->count(Op::ReadSectors), 0u);
}

TEST_F(FunnelSeek, SpansCrossInTheMiddleAndGoOnToTheFarEnds) {
  setSectorCount(1000000);
  const uint64_t lastLba = 999999;
  const uint64_t step = FunnelSeekTest::stepFor(lastLba, kQuickFunnelStepFraction);
  ASSERT_EQ(step, 700u);
  EXPECT_EQ(quick.run(&context), SUCCESS);
  const auto spans = funnelSpans(lastLba, step);
  ASSERT_EQ(numbers.limits.size(), spans.size());
  for (size_t i = 0; i < spans.size(); ++i) {
    EXPECT_EQ(numbers.limits[i], spans[i].second - spans[i].first) << i;
  }
  // About 1429 pairs: the downward span ends at 0, the upward at the last LBA.
  EXPECT_EQ(spans.size(), 2u * 1429);
  EXPECT_EQ(spans[spans.size() - 2].first, 0u);
  EXPECT_EQ(spans.back().second, lastLba);
}

TEST_F(FunnelSeek, WalkWithAFixedSeedReadsTheNumberServicesSequence) {
  setSectorCount(1000000);
  numbers.fixedSeed = 4242;
  EXPECT_EQ(quick.run(&context), SUCCESS);
  const auto spans = funnelSpans(999999, 700);
  const std::vector<uint64_t> reads = testReads();
  ASSERT_EQ(reads.size(), 100 + spans.size() + 101);

  // The same seed replayed on a fresh generator gives the same sectors.
  NumberHandlerImp replay;
  replay.seed(4242);
  for (size_t i = 0; i < spans.size(); ++i) {
    const uint64_t expected = spans[i].first + replay.randomBelow(spans[i].second - spans[i].first);
    ASSERT_EQ(reads[100 + i], expected) << "draw " << i;
    EXPECT_LT(reads[100 + i], spans[i].second);
  }
}

TEST_F(FunnelSeek, TheSeedIsTheCurrentTimeInSeconds) {
  const uint32_t before = static_cast<uint32_t>(std::time(nullptr));
  EXPECT_EQ(quick.run(&context), SUCCESS);
  const uint32_t after = static_cast<uint32_t>(std::time(nullptr));
  ASSERT_EQ(numbers.seeds.size(), 1u);
  EXPECT_GE(numbers.seeds[0], before);
  EXPECT_LE(numbers.seeds[0], after);
}

TEST_F(FunnelSeek, TheUpperEndOfASpanIsNeverChosen) {
  // Each draw is the largest the service may give: the sector just below the
  // span's upper end.
  setSectorCount(1000000);
  const auto spans = funnelSpans(999999, 700);
  numbers.draws.clear();
  for (const auto& span : spans) numbers.draws.push_back(span.second - span.first - 1);
  EXPECT_EQ(quick.run(&context), SUCCESS);
  const std::vector<uint64_t> reads = testReads();
  for (size_t i = 0; i < spans.size(); ++i) EXPECT_EQ(reads[100 + i], spans[i].second - 1);
}

TEST_F(FunnelSeek, ListenerGetsOneHundredTwiceAtTheEndOfANormalRun) {
  EXPECT_EQ(quick.run(&context), SUCCESS);
  ASSERT_GE(listener.events.size(), 3u);
  EXPECT_EQ(listener.events.front(), (ProgressEvent{0, ""}));
  EXPECT_EQ(listener.events[listener.events.size() - 1], (ProgressEvent{100, ""}));
  EXPECT_EQ(listener.events[listener.events.size() - 2], (ProgressEvent{100, ""}));
  EXPECT_NE(listener.events[listener.events.size() - 3].percent, 100);
}

TEST_F(FunnelSeek, ProgressOfTheWalkTopsOutBelowOneHundred) {
  EXPECT_EQ(quick.run(&context), SUCCESS);
  const std::vector<ProgressEvent> walk = without(listener.events, 1, 2);
  ASSERT_FALSE(walk.empty());
  uint8_t previous = 0;
  for (const ProgressEvent& event : walk) {
    EXPECT_EQ(event.key, "");
    EXPECT_GT(event.percent, previous);
    previous = event.percent;
  }
  EXPECT_GE(walk.back().percent, 98);
  EXPECT_LE(walk.back().percent, 99);
}

TEST_F(FunnelSeek, DiskOfExactly101SectorsReadsZeroToOneHundredInTheLastPhase) {
  setSectorCount(101);
  const auto spans = funnelSpans(100, 1);
  drawLowest(numbers, spans.size());
  EXPECT_EQ(quick.run(&context), SUCCESS);
  const std::vector<uint64_t> reads = testReads();
  ASSERT_EQ(reads.size(), 100 + spans.size() + 101);
  EXPECT_EQ(std::vector<uint64_t>(reads.end() - 101, reads.end()), range(0, 100));
}

TEST_F(FunnelSeek, DiskOfFewerThan100SectorsIsReadBeyondItsEndInTheFirstPhase) {
  setSectorCount(50);
  filesystem.capacity = 50;
  protocol->setDefault(Op::ReadSectors, kStatusAtaError);
  EXPECT_EQ(quick.run(&context), ABORTED);
  // The first phase knows no limit: sector 50 is asked for, and fails.
  EXPECT_EQ(testReads(), range(0, 50));
  EXPECT_EQ(protocol->callsOf(Op::ReadSectors).front().first, 50u);
  EXPECT_EQ(log.lines, (std::vector<LogLine>{{kLost, LevelFailure}}));
}

// --- Bad sectors ---------------------------------------------------------------

TEST_F(FunnelSeek, QuickFirstBadSectorEndsTheRunFailed) {
  filesystem.unreadable = {42};
  EXPECT_EQ(quick.run(&context), FAILED);
  EXPECT_EQ(testReads(), range(0, 42));
  EXPECT_EQ(listener.events, (std::vector<ProgressEvent>{
                                 {0, ""}, {100, "READING_SECTOR 42"}, {100, ""}, {100, ""}, {100, ""}}));
  EXPECT_EQ(log.lines, (std::vector<LogLine>{{"READING_SECTOR 42", LevelFailure}}));
  // The device command had the last word on the failed sector.
  ASSERT_EQ(protocol->count(Op::ReadSectors), 1u);
  EXPECT_EQ(protocol->callsOf(Op::ReadSectors)[0].timeoutSeconds, 30u);
}

TEST_F(FunnelSeek, QuickBadSectorInTheLastPhaseEndsTheRunFailed) {
  const auto spans = funnelSpans(299, 1);
  drawLowest(numbers, spans.size());
  filesystem.unreadable = {299};
  // The walk reads sector 298 at most: its spans never include the last LBA.
  EXPECT_EQ(quick.run(&context), FAILED);
  EXPECT_EQ(testReads().back(), 299u);
  EXPECT_EQ(log.lines, (std::vector<LogLine>{{"READING_SECTOR 299", LevelFailure}}));
}

TEST_F(FunnelSeek, ReadingFailureWithoutMediaErrorEndsAbortedWithCommunicationFailure) {
  filesystem.unreadable = {7};
  protocol->setDefault(Op::ReadSectors, kStatusAtaError);
  EXPECT_EQ(quick.run(&context), ABORTED);
  EXPECT_EQ(log.lines, (std::vector<LogLine>{{kLost, LevelFailure}}));
  EXPECT_EQ(protocol->count(Op::IsAccessible), 1u);
}

TEST_F(FunnelSeek, RefusedAccessEndsNotApplicable) {
  filesystem.unreadable = {7};
  protocol->setDefault(Op::ReadSectors, kStatusScsiRefused);
  EXPECT_EQ(quick.run(&context), NOT_APPLICABLE);
  EXPECT_EQ(log.lines, (std::vector<LogLine>{{"CANNOT_ACCESS_DEVICE", LevelFailure}}));
  // 3 on a device that still answers stays 3, with both closing events.
  EXPECT_EQ(protocol->count(Op::IsAccessible), 2u);
  EXPECT_EQ(listener.events.back(), (ProgressEvent{100, ""}));
}

TEST_F(FunnelSeek, ExtendedSingleBadSectorIsReportedAtTheCurrentPercentAndPasses) {
  makeScsi();
  const auto spans = funnelSpans(299, 1);
  drawLowest(numbers, spans.size());
  filesystem.unreadable = {150};
  EXPECT_EQ(extended.run(&context), SUCCESS);
  // The walk reaches 150 going down (pair 149) and going up (pair 151): the
  // same sector, counted once, reported each time it fails.
  const std::vector<ProgressEvent> keyed = listener.keyedEvents();
  ASSERT_EQ(keyed.size(), 2u);
  for (const ProgressEvent& event : keyed) EXPECT_EQ(event.key, "READING_SECTOR 150");
  // Going down, after 148 pairs: 148 / 299 x 99 = 49. Going up, 150 / 299 x 99 = 49.
  EXPECT_EQ(keyed[0].percent, 49);
  EXPECT_EQ(keyed[1].percent, 49);
  EXPECT_EQ(testReads().back(), 299u);
  EXPECT_EQ(listener.events.back(), (ProgressEvent{100, ""}));
}

TEST_F(FunnelSeek, ExtendedBadSectorOfTheFirstPairIsReportedAtTheFirstPhasesShare) {
  makeScsi();
  numbers.draws = {0};
  filesystem.unreadable = {298};
  EXPECT_EQ(extended.run(&context), SUCCESS);
  const std::vector<ProgressEvent> keyed = listener.keyedEvents();
  ASSERT_FALSE(keyed.empty());
  // 10000 / (299 + 100) = 25.06.
  EXPECT_EQ(keyed[0], (ProgressEvent{25, "READING_SECTOR 298"}));
}

TEST_F(FunnelSeek, ExtendedTwoDistinctBadSectorsRunToTheEndAndFail) {
  makeScsi();
  const auto spans = funnelSpans(299, 1);
  drawLowest(numbers, spans.size());
  filesystem.unreadable = {10, 250};
  EXPECT_EQ(extended.run(&context), FAILED);
  const std::vector<uint64_t> reads = testReads();
  EXPECT_EQ(reads.size(), 100 + spans.size() + 101);
  EXPECT_EQ(reads.back(), 299u);
  EXPECT_EQ(listener.events[listener.events.size() - 1], (ProgressEvent{100, ""}));
  EXPECT_EQ(listener.events[listener.events.size() - 2], (ProgressEvent{100, ""}));
  for (const LogLine& line : log.lines) EXPECT_EQ(line.level, LevelFailure);
}

TEST_F(FunnelSeek, ExtendedTenthDistinctBadSectorStopsTheRun) {
  makeScsi();
  filesystem.unreadable = {1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11};
  EXPECT_EQ(extended.run(&context), FAILED);
  EXPECT_EQ(testReads(), range(0, 10));
  const std::vector<ProgressEvent> keyed = listener.keyedEvents();
  ASSERT_EQ(keyed.size(), 11u);
  EXPECT_EQ(keyed[0], (ProgressEvent{0, "READING_SECTOR 1"}));
  EXPECT_EQ(keyed[9], (ProgressEvent{0, "READING_SECTOR 10"}));
  EXPECT_EQ(keyed[10], (ProgressEvent{100, "TOO_MANY_BAD_SECTORS_FOUND: 10"}));
  EXPECT_EQ(log.lines.back(), (LogLine{"TOO_MANY_BAD_SECTORS_FOUND: 10", LevelFailure}));
}

TEST_F(FunnelSeek, ExtendedAbortAfterTwoBadSectorsGivesFailedNotAborted) {
  makeScsi();
  filesystem.unreadable = {10, 20};
  context.abortOnCall = 2;  // the first check of the walk
  EXPECT_EQ(extended.run(&context), FAILED);
  EXPECT_EQ(testReads(), range(0, 99));
  // The abort's own event, then both closing events.
  EXPECT_EQ(std::vector<ProgressEvent>(listener.events.end() - 3, listener.events.end()),
            (std::vector<ProgressEvent>{{100, ""}, {100, ""}, {100, ""}}));
}

TEST_F(FunnelSeek, AbortDuringTheWalkWithoutBadSectorsEndsAborted) {
  context.abortOnCall = 5;
  EXPECT_EQ(quick.run(&context), ABORTED);
  // Three pairs came before the abort.
  EXPECT_EQ(numbers.limits.size(), 6u);
  EXPECT_EQ(protocol->count(Op::IsAccessible), 0u);
  EXPECT_TRUE(log.lines.empty());
}

TEST_F(FunnelSeek, SystemEventDuringTheWalkIsAnnouncedOnceAndEndsAborted) {
  listener.onEvent = [this](const ProgressEvent& event) {
    if (event.percent == 0) context.systemEvents = 0x08;
  };
  EXPECT_EQ(quick.run(&context), ABORTED);
  EXPECT_EQ(listener.keyedEvents(), (std::vector<ProgressEvent>{{100, kKeySystemEventAbort}}));
  EXPECT_EQ(log.lines, (std::vector<LogLine>{{kKeySystemEventAbort, LevelInfo}}));
  // The first phase has no abort check; the walk stops at its first.
  EXPECT_EQ(testReads(), range(0, 99));
}

TEST_F(FunnelSeek, FailedPrepareOnADeviceThatHasGoneEndsAbortedWithCommunicationFailure) {
  setSectorCount(0);
  protocol->setDefault(Op::IsAccessible, 1);
  EXPECT_EQ(quick.run(&context), ABORTED);
  EXPECT_EQ(listener.events, (std::vector<ProgressEvent>{{100, kLost}, {100, ""}, {100, kLost}}));
  EXPECT_EQ(log.lines, (std::vector<LogLine>{{kLost, LevelFailure}, {kLost, LevelError}}));
}

TEST_F(FunnelSeek, FailedRunOnADeviceThatHasGoneSinceEndsAbortedWithoutTheLastClosingEvent) {
  filesystem.unreadable = {42};
  protocol->script(Op::IsAccessible, 0);  // still there at the bad sector
  protocol->setDefault(Op::IsAccessible, 1);
  EXPECT_EQ(quick.run(&context), ABORTED);
  EXPECT_EQ(listener.events, (std::vector<ProgressEvent>{
                                 {0, ""}, {100, "READING_SECTOR 42"}, {100, ""}, {100, ""}, {100, kLost}}));
  EXPECT_EQ(log.lines, (std::vector<LogLine>{{"READING_SECTOR 42", LevelFailure}, {kLost, LevelError}}));
}

TEST_F(FunnelSeek, DeviceLostAtABadSectorEndsAborted) {
  filesystem.unreadable = {3};
  protocol->setDefault(Op::IsAccessible, 1);
  EXPECT_EQ(quick.run(&context), ABORTED);
  EXPECT_EQ(log.lines, (std::vector<LogLine>{{kLost, LevelError}}));
  EXPECT_EQ(testReads(), range(0, 3));
}

TEST_F(FunnelSeek, EachRunStartsWithAnEmptySetOfBadSectors) {
  makeScsi();
  const auto spans = funnelSpans(299, 1);
  filesystem.unreadable = {10};
  drawLowest(numbers, spans.size());
  EXPECT_EQ(extended.run(&context), SUCCESS);
  filesystem.unreadable = {20};
  drawLowest(numbers, spans.size());
  // One bad sector in each run: neither run sees two.
  EXPECT_EQ(extended.run(&context), SUCCESS);
}

// --- On the simulated PC -----------------------------------------------------

class FunnelSeekOnSimulatedDisks : public mstest::SeekDisks {
 protected:
  mstest::ScriptedNumberHandler numbers;
  mstest::RecordingListener listener;
  mstest::RecordingLog log;
};

TEST_F(FunnelSeekOnSimulatedDisks, QuickRunOnTheDefaultHardDiskPasses) {
  installDefault();
  StorageComponent& hdd = ataDisk(0);
  numbers.fixedSeed = 20240501;
  mstest::ScriptedRunContext context(&hdd, &listener, &log);
  QuickFunnelSeekTest test(ItemId(1, 1, 4));
  ASSERT_TRUE(test.isSupported(&hdd));
  EXPECT_EQ(test.run(&context), SUCCESS);
  // 1953525168 sectors at 1367467 a step: 1429 pairs.
  EXPECT_EQ(numbers.limits.size(), 2u * 1429);
  EXPECT_TRUE(log.lines.empty());
  EXPECT_EQ(listener.events.back(), (ProgressEvent{100, ""}));
}

TEST_F(FunnelSeekOnSimulatedDisks, ExtendedRunOnTheDefaultSasDiskStopsAtAnAbort) {
  installDefault();
  StorageComponent& sas = scsiDisk(3);
  mstest::ScriptedRunContext context(&sas, &listener, &log);
  context.abortOnCall = 1001;  // the first 100 sectors and 999 pairs, then the user stops
  ExtendedFunnelSeekTest test(ItemId(1, 2, 9));
  ASSERT_TRUE(test.isSupported(&sas));
  EXPECT_EQ(test.run(&context), ABORTED);
  EXPECT_EQ(numbers.limits.size(), 2u * 999);
  // 7814037167 as the drive reports it (its last LBA), at 0.00007 a step.
  EXPECT_EQ(numbers.limits.front(), FunnelSeekTest::stepFor(7814037166, kExtendedFunnelStepFraction));
  EXPECT_TRUE(log.lines.empty());
  EXPECT_EQ(listener.events.back(), (ProgressEvent{100, ""}));
}

TEST_F(FunnelSeekOnSimulatedDisks, ExtendedRunOnASmallScsiDiskFindsBothBadSectorsAndFails) {
  installJson(R"({"disks": [{"name": "s", "kind": "scsi", "bus": "sas",
      "profile": {"capacitySectors": 1500},
      "faults": {"unreadableSectors": [5, 1450]}}]})");
  StorageComponent& sas = scsiDisk(0);
  mstest::ScriptedRunContext context(&sas, &listener, &log);
  ExtendedFunnelSeekTest test(ItemId(1, 2, 9));
  ASSERT_TRUE(test.isSupported(&sas));
  EXPECT_EQ(test.run(&context), FAILED);
  // One sector a step: the walk reads every sector below the last, so each
  // bad sector fails in the fixed phase and twice in the walk.
  std::vector<std::string> reported;
  for (const ProgressEvent& event : listener.keyedEvents()) reported.push_back(event.key);
  EXPECT_EQ(std::count(reported.begin(), reported.end(), "READING_SECTOR 5"), 3);
  EXPECT_EQ(std::count(reported.begin(), reported.end(), "READING_SECTOR 1450"), 3);
  EXPECT_EQ(listener.events.back(), (ProgressEvent{100, ""}));
}

TEST_F(FunnelSeekOnSimulatedDisks, QuickRunOnADiskOfFiftySectorsFailsBeyondItsEnd) {
  installJson(R"({"disks": [{"name": "tiny", "kind": "ata", "bus": "sata",
      "profile": {"model": "TINY", "capacitySectors": 50}}]})");
  StorageComponent& tiny = ataDisk(0);
  mstest::ScriptedRunContext context(&tiny, &listener, &log);
  QuickFunnelSeekTest test(ItemId(1, 1, 4));
  EXPECT_EQ(test.run(&context), ABORTED);
  EXPECT_EQ(log.lines, (std::vector<LogLine>{{kLost, LevelFailure}}));
  EXPECT_TRUE(numbers.limits.empty());
}

}  // namespace
