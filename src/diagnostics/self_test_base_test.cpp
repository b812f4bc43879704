// The common run of the self tests, driven through the short self test on
// the scripted protocol with the timer on the virtual clock: the run
// contract, SMART on and back, the clearing of an earlier self test, the
// start, the poll loop and its time limit, the abort paths, and every row of
// the ATA and SCSI verdict tables.
#include "diagnostics/self_test_base.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "diagnostics/self_test_test_support.h"
#include "diagnostics/short_self.h"

namespace {

using mstest::LogLine;
using mstest::Op;
using mstest::PollAnswer;
using mstest::ProgressEvent;

// Lets a test call prepare without a run, and see the guard.
class OpenShortSelfTest : public ShortSelfTest {
 public:
  OpenShortSelfTest() : ShortSelfTest(ItemId(1, 1, 5)) {}
  using ShortSelfTest::smartGuard;
};

class SelfTestRun : public mstest::SelfTestFixture {
 protected:
  ShortSelfTest test{ItemId(1, 1, 5)};
};

// --- The run contract ----------------------------------------------------------

TEST_F(SelfTestRun, PassingAtaSelfTestShowsProgressAndPassesWithoutLogLines) {
  scriptRun({{50, 15}, {100, 0}});
  EXPECT_EQ(test.run(&context), SUCCESS);
  EXPECT_EQ(listener.events, (std::vector<ProgressEvent>{{0, ""}, {50, ""}, {100, ""}, {100, ""}}));
  EXPECT_TRUE(log.lines.empty());
  EXPECT_EQ(operations(),
            (std::vector<Op>{Op::GetProperties, Op::EnableSmart, Op::GetSelfTestStatus, Op::StartSelfTest,
                             Op::GetSelfTestStatus, Op::GetSelfTestProgress, Op::GetSelfTestStatus,
                             Op::GetSelfTestProgress, Op::GetSelfTestStatus, Op::EnableSmart}));
  const mstest::Call start = protocol->callsOf(Op::StartSelfTest).at(0);
  EXPECT_EQ(start.first, 1u);
  EXPECT_EQ(start.second, 0u);
  EXPECT_FALSE(context.runaway);
}

TEST_F(SelfTestRun, NullContextIsInvalidAndSilent) {
  EXPECT_EQ(test.run(nullptr), INVALID);
  EXPECT_TRUE(listener.events.empty());
  EXPECT_TRUE(protocol->calls.empty());
}

TEST_F(SelfTestRun, ContextWithoutListenerIsInvalidAndTheDeviceIsUntouched) {
  context.setListener(nullptr);
  EXPECT_EQ(test.run(&context), INVALID);
  EXPECT_TRUE(log.lines.empty());
  EXPECT_TRUE(protocol->calls.empty());
}

TEST_F(SelfTestRun, UserAbortBeforeTheStartEndsAbortedWithoutTouchingTheDevice) {
  context.abortRequested = true;
  EXPECT_EQ(test.run(&context), ABORTED);
  EXPECT_EQ(listener.events, (std::vector<ProgressEvent>{{100, ""}}));
  EXPECT_TRUE(log.lines.empty());
  EXPECT_TRUE(protocol->calls.empty());
}

TEST_F(SelfTestRun, SystemEventBeforeTheStartIsAnnouncedAndEndsAborted) {
  context.systemEvents = 0x08;
  EXPECT_EQ(test.run(&context), ABORTED);
  EXPECT_EQ(listener.events, (std::vector<ProgressEvent>{{100, kKeySystemEventAbort}}));
  EXPECT_EQ(log.lines, (std::vector<LogLine>{{kKeySystemEventAbort, LevelInfo}}));
  EXPECT_TRUE(protocol->calls.empty());
}

// --- SMART on and back ---------------------------------------------------------

TEST_F(SelfTestRun, FailedEnableSmartIsNotApplicableAndSmartIsNotRestored) {
  protocol->script(Op::EnableSmart, kStatusAtaError);
  EXPECT_EQ(test.run(&context), NOT_APPLICABLE);
  EXPECT_EQ(listener.events, (std::vector<ProgressEvent>{{100, "CANNOT_ENABLE_SMART"}, {100, ""}}));
  EXPECT_EQ(log.lines, (std::vector<LogLine>{{"CANNOT_ENABLE_SMART", LevelError}}));
  EXPECT_EQ(enableSmartArguments(), (std::vector<uint64_t>{1}));
  EXPECT_EQ(protocol->count(Op::StartSelfTest), 0u);
}

TEST_F(SelfTestRun, FailedPropertiesInsidePrepareCannotEnableSmart) {
  protocol->script(Op::GetProperties, kStatusIoctlFailed);
  EXPECT_EQ(test.run(&context), NOT_APPLICABLE);
  EXPECT_EQ(listener.keyedEvents(), (std::vector<ProgressEvent>{{100, "CANNOT_ENABLE_SMART"}}));
  EXPECT_EQ(protocol->count(Op::EnableSmart), 0u);
}

TEST_F(SelfTestRun, SmartIsSwitchedOffAgainBeforeTheClosingEvent) {
  scriptRun({{100, 0}});
  std::vector<size_t> enableCallsAtEvent;
  listener.onEvent = [&](const ProgressEvent&) { enableCallsAtEvent.push_back(protocol->count(Op::EnableSmart)); };
  EXPECT_EQ(test.run(&context), SUCCESS);
  EXPECT_EQ(enableSmartArguments(), (std::vector<uint64_t>{1, 0}));
  // start event, verdict event, closing event.
  EXPECT_EQ(enableCallsAtEvent, (std::vector<size_t>{1, 1, 2}));
}

TEST_F(SelfTestRun, SmartThatWasOnStaysOn) {
  properties.smartEnabled = true;
  applyProperties();
  scriptRun({{100, 0}});
  EXPECT_EQ(test.run(&context), SUCCESS);
  EXPECT_EQ(enableSmartArguments(), (std::vector<uint64_t>{1}));
}

TEST_F(SelfTestRun, ScsiDriveRunsWithoutAnySmartSwitching) {
  makeScsi();
  scriptRun({{100, 0}});
  EXPECT_EQ(test.run(&context), SUCCESS);
  EXPECT_EQ(protocol->count(Op::GetProperties), 0u);
  EXPECT_EQ(protocol->count(Op::EnableSmart), 0u);
}

TEST_F(SelfTestRun, PrepareOnAtaWithoutGuardIsInvalid) {
  OpenShortSelfTest open;
  EXPECT_EQ(open.prepare(&disk, &listener, &log), INVALID);
  EXPECT_TRUE(protocol->calls.empty());
}

TEST_F(SelfTestRun, PrepareOnScsiNeedsNoGuard) {
  makeScsi();
  OpenShortSelfTest open;
  EXPECT_EQ(open.prepare(&disk, &listener, &log), SUCCESS);
  EXPECT_TRUE(protocol->calls.empty());
}

// --- An earlier self test ------------------------------------------------------

TEST_F(SelfTestRun, FailedLookBeforeTheStartCannotPerformSelfTest) {
  protocol->script(Op::GetSelfTestStatus, kStatusIoctlFailed);
  EXPECT_EQ(test.run(&context), NOT_APPLICABLE);
  EXPECT_EQ(listener.events, (std::vector<ProgressEvent>{{100, "CANNOT_PERFORM_SELF_TEST"}, {100, ""}}));
  EXPECT_EQ(log.lines, (std::vector<LogLine>{{"CANNOT_PERFORM_SELF_TEST", LevelError}}));
  EXPECT_EQ(protocol->count(Op::StartSelfTest), 0u);
  EXPECT_EQ(enableSmartArguments(), (std::vector<uint64_t>{1, 0}));
}

TEST_F(SelfTestRun, RunningSelfTestAtTheStartGivesTwoEventsAtZeroOneAbortThenTheNormalRun) {
  protocol->script(Op::GetSelfTestStatus, kStatusOk, 15);  // someone else's test
  protocol->script(Op::GetSelfTestStatus, kStatusOk, 1);   // after our abort
  scriptRun({{100, 0}}, /*lookBeforeStart=*/false);
  EXPECT_EQ(test.run(&context), SUCCESS);
  EXPECT_EQ(listener.events, (std::vector<ProgressEvent>{{0, "OTHER_SELF_TEST_ALREADY_IN_PROGRESS"},
                                                         {0, "OTHER_SELF_TEST_ALREADY_IN_PROGRESS_WAS_ABORTED"},
                                                         {0, ""},
                                                         {100, ""},
                                                         {100, ""}}));
  EXPECT_EQ(log.lines, (std::vector<LogLine>{{"OTHER_SELF_TEST_ALREADY_IN_PROGRESS", LevelWarning},
                                             {"OTHER_SELF_TEST_ALREADY_IN_PROGRESS_WAS_ABORTED", LevelWarning}}));
  EXPECT_EQ(protocol->count(Op::AbortSelfTest), 1u);
  EXPECT_EQ(protocol->count(Op::StartSelfTest), 1u);
}

TEST_F(SelfTestRun, SelfTestThatKeepsRunningAfterTheAbortGivesWarningAndNoStart) {
  protocol->setDefault(Op::GetSelfTestStatus, kStatusOk, 15);
  EXPECT_EQ(test.run(&context), WARNING);
  EXPECT_EQ(listener.events, (std::vector<ProgressEvent>{{0, "OTHER_SELF_TEST_ALREADY_IN_PROGRESS"},
                                                         {100, "CANNOT_ABORT_OTHER_SELF_TEST_ALREADY_IN_PROGRESS"},
                                                         {100, ""}}));
  EXPECT_EQ(log.lines, (std::vector<LogLine>{{"OTHER_SELF_TEST_ALREADY_IN_PROGRESS", LevelWarning},
                                             {"CANNOT_ABORT_OTHER_SELF_TEST_ALREADY_IN_PROGRESS", LevelError}}));
  EXPECT_EQ(protocol->count(Op::AbortSelfTest), 1u);
  EXPECT_EQ(protocol->count(Op::StartSelfTest), 0u);
  EXPECT_EQ(enableSmartArguments(), (std::vector<uint64_t>{1, 0}));
}

TEST_F(SelfTestRun, FailedLookAfterAbortingAnEarlierTestCountsAsStillRunning) {
  protocol->script(Op::GetSelfTestStatus, kStatusOk, 15);
  protocol->script(Op::GetSelfTestStatus, kStatusIoctlFailed, 0);
  EXPECT_EQ(test.run(&context), WARNING);
  EXPECT_EQ(listener.keyedEvents().back(), (ProgressEvent{100, "CANNOT_ABORT_OTHER_SELF_TEST_ALREADY_IN_PROGRESS"}));
  EXPECT_EQ(protocol->count(Op::StartSelfTest), 0u);
}

// --- The start ------------------------------------------------------------------

TEST_F(SelfTestRun, RefusedStartCannotPerformSelfTestAndWakesTheDevice) {
  protocol->script(Op::GetSelfTestStatus, kStatusOk, 0);
  protocol->script(Op::StartSelfTest, kStatusSelfTestAborted);
  EXPECT_EQ(test.run(&context), NOT_APPLICABLE);
  EXPECT_EQ(listener.events, (std::vector<ProgressEvent>{{100, "CANNOT_PERFORM_SELF_TEST"}, {100, ""}}));
  EXPECT_EQ(log.lines, (std::vector<LogLine>{{"CANNOT_PERFORM_SELF_TEST", LevelError}}));
  ASSERT_EQ(filesystem.reads.size(), 1u);
  EXPECT_EQ(filesystem.reads[0].offset, 0u);
  EXPECT_EQ(filesystem.reads[0].length, 512u);
  EXPECT_EQ(filesystem.reads[0].timeoutSeconds, 30u);
  EXPECT_EQ(enableSmartArguments(), (std::vector<uint64_t>{1, 0}));
}

TEST_F(SelfTestRun, WakeUpReadCoversOneLogicalSectorOfAtLeast512Bytes) {
  properties.logicalSectorSize = 4096;
  applyProperties();
  protocol->script(Op::StartSelfTest, kStatusIoctlFailed);
  EXPECT_EQ(test.run(&context), NOT_APPLICABLE);
  ASSERT_EQ(filesystem.reads.size(), 1u);
  EXPECT_EQ(filesystem.reads[0].length, 4096u);
}

TEST_F(SelfTestRun, FailedWakeUpReadDoesNotChangeTheVerdict) {
  filesystem.readAnswers.push_back({kStatusIoctlFailed, 0, true});
  protocol->script(Op::StartSelfTest, kStatusAtaError);
  EXPECT_EQ(test.run(&context), NOT_APPLICABLE);
  EXPECT_EQ(filesystem.reads.size(), 1u);
  EXPECT_EQ(log.lines, (std::vector<LogLine>{{"CANNOT_PERFORM_SELF_TEST", LevelError}}));
}

TEST_F(SelfTestRun, FirstLookAfterAnAcceptedStartThatIsNotRunningIsNotApplicable) {
  protocol->script(Op::GetSelfTestStatus, kStatusOk, 0);  // before the start
  protocol->script(Op::GetSelfTestStatus, kStatusOk, 0);  // already over
  EXPECT_EQ(test.run(&context), NOT_APPLICABLE);
  EXPECT_EQ(protocol->count(Op::StartSelfTest), 1u);
  EXPECT_EQ(listener.events,
            (std::vector<ProgressEvent>{{0, ""}, {100, "CANNOT_PERFORM_SELF_TEST"}, {100, ""}}));
  EXPECT_EQ(log.lines, (std::vector<LogLine>{{"CANNOT_PERFORM_SELF_TEST", LevelError}}));
  EXPECT_EQ(protocol->count(Op::GetSelfTestProgress), 0u);
  EXPECT_TRUE(filesystem.reads.empty());
}

TEST_F(SelfTestRun, FailedFirstLookAfterTheStartIsNotApplicable) {
  protocol->script(Op::GetSelfTestStatus, kStatusOk, 0);
  protocol->script(Op::GetSelfTestStatus, kStatusIoctlFailed, 15);
  EXPECT_EQ(test.run(&context), NOT_APPLICABLE);
  EXPECT_EQ(listener.keyedEvents(), (std::vector<ProgressEvent>{{100, "CANNOT_PERFORM_SELF_TEST"}}));
}

TEST_F(SelfTestRun, StartRefusedWithAbrtWithoutParametersIsCannotPerformNotInvalidParameter) {
  protocol->script(Op::StartSelfTest, kStatusSelfTestIdnf);
  EXPECT_EQ(test.run(&context), NOT_APPLICABLE);
  EXPECT_EQ(log.lines, (std::vector<LogLine>{{"CANNOT_PERFORM_SELF_TEST", LevelError}}));
}

// --- A drive behind a RAID controller --------------------------------------------

TEST_F(SelfTestRun, DriveBehindRaidControllerIsStartedWithoutALookAtTheOldStatus) {
  disk.setLocation(kLocationRaid);
  disk.setBusKind(kBusScsi);
  scriptRun({{100, 0}}, /*lookBeforeStart=*/false);
  EXPECT_EQ(test.run(&context), SUCCESS);
  EXPECT_EQ(operations(), (std::vector<Op>{Op::GetProperties, Op::EnableSmart, Op::StartSelfTest,
                                           Op::GetSelfTestStatus, Op::GetSelfTestProgress, Op::GetSelfTestStatus,
                                           Op::EnableSmart}));
}

TEST_F(SelfTestRun, DriveBehindRaidControllerGetsNoWakeUpReadAfterAFailedStart) {
  disk.setLocation(kLocationRaid);
  disk.setBusKind(kBusScsi);
  protocol->script(Op::StartSelfTest, kStatusSelfTestAborted);
  EXPECT_EQ(test.run(&context), NOT_APPLICABLE);
  EXPECT_EQ(log.lines, (std::vector<LogLine>{{"CANNOT_PERFORM_SELF_TEST", LevelError}}));
  EXPECT_TRUE(filesystem.reads.empty());
  EXPECT_EQ(protocol->count(Op::GetSelfTestStatus), 0u);
}

// --- The poll loop -----------------------------------------------------------------

TEST_F(SelfTestRun, PollsComeEveryTenSecondsOfTheVirtualClock) {
  scriptRun({{10, 15}, {20, 15}, {30, 15}, {100, 0}});
  timeEvents();
  EXPECT_EQ(test.run(&context), SUCCESS);
  EXPECT_EQ(listener.events,
            (std::vector<ProgressEvent>{{0, ""}, {10, ""}, {20, ""}, {30, ""}, {100, ""}, {100, ""}}));
  EXPECT_EQ(msSinceStartEvent(), (std::vector<uint64_t>{0, 10000, 20000, 30000, 40000, 40000}));
  EXPECT_EQ(protocol->count(Op::GetSelfTestProgress), 4u);
}

TEST_F(SelfTestRun, TheLoopNeverSleepsAndOnlyTheHostsPassesMoveTheClock) {
  scriptRun({{50, 15}, {100, 0}});
  const uint64_t startMs = mstest::machineNowMs();
  EXPECT_EQ(test.run(&context), SUCCESS);
  EXPECT_EQ(mstest::machineNowMs() - startMs, context.passes * context.stepMs);
}

TEST_F(SelfTestRun, ProgressThatFallsBetweenPollsStaysAtTheHigherValueAndHundredIsLeftToTheClosingEvents) {
  scriptRun({{40, 15}, {20, 15}, {100, 15}, {60, 0}});
  EXPECT_EQ(test.run(&context), SUCCESS);
  EXPECT_EQ(listener.events, (std::vector<ProgressEvent>{{0, ""}, {40, ""}, {40, ""}, {100, ""}, {100, ""}}));
}

TEST_F(SelfTestRun, TimeLimitEndsTheRunWithWarningAfterSixHundredSeconds) {
  scriptRun({});  // runs for ever
  timeEvents();
  EXPECT_EQ(test.run(&context), WARNING);
  ASSERT_GE(listener.events.size(), 2u);
  EXPECT_EQ(listener.events[listener.events.size() - 2].key, "TEST_FINISHED_WITH_TIMEOUT: 600 s");
  EXPECT_EQ(msSinceStartEvent()[listener.events.size() - 2], 600000u);
  EXPECT_EQ(listener.keyedEvents(), (std::vector<ProgressEvent>{{100, "TEST_FINISHED_WITH_TIMEOUT: 600 s"}}));
  EXPECT_EQ(listener.events.back(), (ProgressEvent{100, ""}));
  EXPECT_EQ(log.lines, (std::vector<LogLine>{{"TEST_FINISHED_WITH_TIMEOUT: 600 s", LevelError}}));
  EXPECT_EQ(protocol->count(Op::AbortSelfTest), 1u);
  EXPECT_EQ(protocol->count(Op::GetSelfTestProgress), 60u);
  EXPECT_EQ(enableSmartArguments(), (std::vector<uint64_t>{1, 0}));
  EXPECT_FALSE(context.runaway);
}

TEST_F(SelfTestRun, TimeLimitCountsFromTheStartNotFromTheLastPoll) {
  // A coarse host whose passes take 7 s: polls at 14, 28, ... and the limit
  // at the first pass at or after 600 s.
  context.stepMs = 7000;
  scriptRun({});
  timeEvents();
  EXPECT_EQ(test.run(&context), WARNING);
  EXPECT_EQ(msSinceStartEvent().back(), 602000u);
  EXPECT_EQ(listener.keyedEvents(), (std::vector<ProgressEvent>{{100, "TEST_FINISHED_WITH_TIMEOUT: 600 s"}}));
}

TEST_F(SelfTestRun, UserAbortWhilePollingStopsTheDrivesTestAndRestoresSmart) {
  scriptRun({});
  context.abortOnCall = 25;  // one check at the head of the run, then the loop
  EXPECT_EQ(test.run(&context), ABORTED);
  EXPECT_EQ(protocol->count(Op::AbortSelfTest), 1u);
  EXPECT_EQ(listener.events, (std::vector<ProgressEvent>{{0, ""}, {0, ""}, {0, ""}, {100, ""}, {100, ""}}));
  EXPECT_TRUE(log.lines.empty());
  EXPECT_EQ(enableSmartArguments(), (std::vector<uint64_t>{1, 0}));
}

TEST_F(SelfTestRun, SystemEventWhilePollingIsAnnouncedOnceAndStopsTheDrivesTest) {
  scriptRun({});
  listener.onEvent = [this](const ProgressEvent& event) {
    if (event.percent == 0 && event.key.empty()) context.systemEvents = 0x02;
  };
  EXPECT_EQ(test.run(&context), ABORTED);
  EXPECT_EQ(listener.keyedEvents(), (std::vector<ProgressEvent>{{100, kKeySystemEventAbort}}));
  EXPECT_EQ(log.lines, (std::vector<LogLine>{{kKeySystemEventAbort, LevelInfo}}));
  EXPECT_EQ(protocol->count(Op::AbortSelfTest), 1u);
  EXPECT_EQ(protocol->count(Op::GetSelfTestProgress), 0u);
}

TEST_F(SelfTestRun, LostDeviceWhilePollingEndsAbortedWithDeviceCommunicationFailure) {
  scriptRun({{30, 15}});
  protocol->setDefault(Op::GetSelfTestProgress, kStatusIoctlFailed);
  protocol->setDefault(Op::IsAccessible, kStatusIoctlFailed);
  EXPECT_EQ(test.run(&context), ABORTED);
  EXPECT_EQ(listener.events,
            (std::vector<ProgressEvent>{{0, ""}, {30, ""}, {100, "DEVICE_COMMUNICATION_FAILURE"}, {100, ""}}));
  EXPECT_EQ(log.lines, (std::vector<LogLine>{{"DEVICE_COMMUNICATION_FAILURE", LevelError}}));
  EXPECT_EQ(protocol->count(Op::AbortSelfTest), 0u);
  EXPECT_EQ(enableSmartArguments(), (std::vector<uint64_t>{1, 0}));
}

TEST_F(SelfTestRun, ProgressFailureOnAnAccessibleDeviceIsIgnoredAndTheProgressInHandIsShown) {
  protocol->script(Op::GetSelfTestStatus, kStatusOk, 0);   // before the start
  protocol->script(Op::GetSelfTestStatus, kStatusOk, 15);  // first look
  protocol->script(Op::GetSelfTestProgress, kStatusOk, 30);
  protocol->script(Op::GetSelfTestStatus, kStatusOk, 15);
  protocol->script(Op::GetSelfTestProgress, kStatusIoctlFailed, 90);  // no status read after it
  protocol->script(Op::GetSelfTestProgress, kStatusOk, 100);
  protocol->script(Op::GetSelfTestStatus, kStatusOk, 0);
  EXPECT_EQ(test.run(&context), SUCCESS);
  EXPECT_EQ(listener.events, (std::vector<ProgressEvent>{{0, ""}, {30, ""}, {30, ""}, {100, ""}, {100, ""}}));
  EXPECT_EQ(protocol->count(Op::IsAccessible), 1u);
}

TEST_F(SelfTestRun, StatusFailureOnAnAccessibleDeviceKeepsTheOldStatusAndTheLoopGoesOn) {
  scriptRun({});
  protocol->script(Op::GetSelfTestProgress, kStatusOk, 50);
  protocol->script(Op::GetSelfTestStatus, kStatusIoctlFailed, 0);  // a failed read that would say "done"
  protocol->script(Op::GetSelfTestProgress, kStatusOk, 100);
  protocol->script(Op::GetSelfTestStatus, kStatusOk, 0);
  EXPECT_EQ(test.run(&context), SUCCESS);
  EXPECT_EQ(protocol->count(Op::GetSelfTestProgress), 2u);
  EXPECT_EQ(listener.events, (std::vector<ProgressEvent>{{0, ""}, {50, ""}, {100, ""}, {100, ""}}));
}

TEST_F(SelfTestRun, PollFailuresOnAnAccessibleDeviceRunOnToTheTimeLimit) {
  scriptRun({});
  protocol->setDefault(Op::GetSelfTestProgress, kStatusIoctlFailed);
  EXPECT_EQ(test.run(&context), WARNING);
  EXPECT_EQ(listener.keyedEvents(), (std::vector<ProgressEvent>{{100, "TEST_FINISHED_WITH_TIMEOUT: 600 s"}}));
  EXPECT_EQ(protocol->count(Op::IsAccessible), 60u);
}

// --- Verdicts ------------------------------------------------------------------------

struct VerdictRow {
  uint8_t nibble;
  const char* key;
  int level;  // -1: no log line
  uint32_t result;
};

void PrintTo(const VerdictRow& row, std::ostream* out) { *out << "nibble " << static_cast<int>(row.nibble); }

class AtaVerdict : public mstest::SelfTestFixture, public ::testing::WithParamInterface<VerdictRow> {
 protected:
  ShortSelfTest test{ItemId(1, 1, 5)};
};

TEST_P(AtaVerdict, StatusNibbleGivesItsKeyLevelAndResult) {
  const VerdictRow row = GetParam();
  scriptRun({{100, row.nibble}});
  EXPECT_EQ(test.run(&context), row.result);
  EXPECT_EQ(listener.events, (std::vector<ProgressEvent>{{0, ""}, {100, row.key}, {100, ""}}));
  if (row.level < 0) {
    EXPECT_TRUE(log.lines.empty());
  } else {
    EXPECT_EQ(log.lines, (std::vector<LogLine>{{row.key, static_cast<uint32_t>(row.level)}}));
  }
  EXPECT_EQ(protocol->count(Op::AbortSelfTest), 0u);
}

INSTANTIATE_TEST_SUITE_P(
    EveryNibble, AtaVerdict,
    ::testing::Values(VerdictRow{0, "", -1, SUCCESS},
                      VerdictRow{1, "SELF_TEST_ABORTED_BY_EXTERNAL_FACTOR", LevelInfo, WARNING},
                      VerdictRow{2, "SELF_TEST_ABORTED_BY_EXTERNAL_FACTOR", LevelInfo, WARNING},
                      VerdictRow{3, "CRITICAL_INTERRUPTION_DETECTED", LevelFailure, FAILED},
                      VerdictRow{4, "UNKNOWN_ERROR_DETECTED", LevelFailure, FAILED},
                      VerdictRow{5, "ELECTRICAL_ERROR_DETECTED", LevelFailure, FAILED},
                      VerdictRow{6, "SEEK_ERROR_DETECTED", LevelFailure, FAILED},
                      VerdictRow{8, "HANDLING_DAMAGE_DETECTED", LevelFailure, FAILED},
                      VerdictRow{9, "INCONCLUSIVE_RESULT", LevelInfo, WARNING},
                      VerdictRow{10, "INCONCLUSIVE_RESULT", LevelInfo, WARNING},
                      VerdictRow{14, "INCONCLUSIVE_RESULT", LevelInfo, WARNING}));

TEST_F(SelfTestRun, AtaReadElementFailureLogsTheFailingSector) {
  scriptRun({{100, 7}});
  protocol->script(Op::GetSelfTestFailingLba, kStatusOk, 193536017);
  EXPECT_EQ(test.run(&context), FAILED);
  EXPECT_EQ(log.lines, (std::vector<LogLine>{{"READ_ERROR_DETECTED", LevelFailure},
                                             {"READING_SECTOR 193536017", LevelFailure}}));
  EXPECT_EQ(listener.events,
            (std::vector<ProgressEvent>{{0, ""}, {100, "READING_SECTOR 193536017"}, {100, ""}}));
}

TEST_F(SelfTestRun, AtaReadElementFailureWithoutAnLbaStillLogsTheReadErrorAndShowsAnEmptyKey) {
  scriptRun({{100, 7}});
  protocol->script(Op::GetSelfTestFailingLba, kStatusNotAvailable, 5);
  EXPECT_EQ(test.run(&context), FAILED);
  EXPECT_EQ(log.lines, (std::vector<LogLine>{{"READ_ERROR_DETECTED", LevelFailure}}));
  EXPECT_EQ(listener.events, (std::vector<ProgressEvent>{{0, ""}, {100, ""}, {100, ""}}));
}

class ScsiVerdict : public AtaVerdict {};

TEST_P(ScsiVerdict, ResultNibbleGivesItsKeyLevelAndResult) {
  makeScsi();
  const VerdictRow row = GetParam();
  scriptRun({{100, row.nibble}});
  EXPECT_EQ(test.run(&context), row.result);
  EXPECT_EQ(listener.events, (std::vector<ProgressEvent>{{0, ""}, {100, row.key}, {100, ""}}));
  if (row.level < 0) {
    EXPECT_TRUE(log.lines.empty());
  } else {
    EXPECT_EQ(log.lines, (std::vector<LogLine>{{row.key, static_cast<uint32_t>(row.level)}}));
  }
}

INSTANTIATE_TEST_SUITE_P(EveryNibbleWithoutAFailure, ScsiVerdict,
                         ::testing::Values(VerdictRow{0, "", -1, SUCCESS},
                                           VerdictRow{1, "SELF_TEST_ABORTED_BY_EXTERNAL_FACTOR", LevelInfo, WARNING},
                                           VerdictRow{2, "SELF_TEST_ABORTED_BY_EXTERNAL_FACTOR", LevelInfo, WARNING},
                                           VerdictRow{8, "INCONCLUSIVE_RESULT", LevelInfo, WARNING},
                                           VerdictRow{14, "INCONCLUSIVE_RESULT", LevelInfo, WARNING}));

class ScsiFailure : public mstest::SelfTestFixture, public ::testing::WithParamInterface<int> {
 protected:
  ShortSelfTest test{ItemId(1, 1, 5)};
};

TEST_P(ScsiFailure, EveryFailedSegmentReadsTheFailingLbaAndLogsReadErrorAndSector) {
  makeScsi();
  scriptRun({{100, static_cast<uint8_t>(GetParam())}});
  protocol->script(Op::GetSelfTestFailingLba, kStatusOk, 4242);
  EXPECT_EQ(test.run(&context), FAILED);
  EXPECT_EQ(log.lines, (std::vector<LogLine>{{"READ_ERROR_DETECTED", LevelFailure},
                                             {"READING_SECTOR 4242", LevelFailure}}));
  EXPECT_EQ(listener.events, (std::vector<ProgressEvent>{{0, ""}, {100, "READING_SECTOR 4242"}, {100, ""}}));
}

INSTANTIATE_TEST_SUITE_P(NibblesThreeToSeven, ScsiFailure, ::testing::Range(3, 8));

TEST_F(SelfTestRun, ScsiFailureWithoutAnLbaLogsNothingAndShowsAnEmptyKey) {
  makeScsi();
  scriptRun({{100, 4}});
  protocol->script(Op::GetSelfTestFailingLba, kStatusNotAvailable);
  EXPECT_EQ(test.run(&context), FAILED);
  EXPECT_TRUE(log.lines.empty());
  EXPECT_EQ(listener.events, (std::vector<ProgressEvent>{{0, ""}, {100, ""}, {100, ""}}));
}

TEST_F(SelfTestRun, ProtocolOfNoKnownKindIsInvalidOnceTheDriveHasFinished) {
  protocol->setProtocolKind(kProtocolNone);
  scriptRun({{100, 0}});
  EXPECT_EQ(test.run(&context), INVALID);
  EXPECT_EQ(listener.events, (std::vector<ProgressEvent>{{0, ""}, {100, ""}}));
  EXPECT_TRUE(log.lines.empty());
}

// --- The common check ------------------------------------------------------------------

TEST_F(SelfTestRun, EmmcAndNvmeProtocolsAreRefusedSilently) {
  for (uint32_t kind : {kProtocolEmmc, kProtocolNvme}) {
    protocol->setProtocolKind(kind);
    EXPECT_EQ(test.checkSupported(&disk, &listener, &log), NOT_APPLICABLE);
  }
  EXPECT_TRUE(listener.events.empty());
  EXPECT_TRUE(log.lines.empty());
}

TEST_F(SelfTestRun, ScsiProtocolPassesTheCommonCheckWhateverItsSmartFlags) {
  makeScsi();
  properties = StorageProtocolProperties();
  applyProperties();
  EXPECT_EQ(test.checkSupported(&disk, &listener, &log), SUCCESS);
  EXPECT_TRUE(listener.events.empty());
}

TEST_F(SelfTestRun, AtaDriveWithoutSmartIsRefusedAloud) {
  properties.smartSupported = false;
  applyProperties();
  EXPECT_EQ(test.checkSupported(&disk, &listener, &log), NOT_APPLICABLE);
  EXPECT_EQ(listener.events, (std::vector<ProgressEvent>{{100, "SMART_NOT_SUPPORTED"}}));
  EXPECT_EQ(log.lines, (std::vector<LogLine>{{"SMART_NOT_SUPPORTED", LevelError}}));
}

TEST_F(SelfTestRun, AtaDriveWhoseOfflineCollectionCanBeAbortedIsRefusedSilently) {
  properties.offlineAbortSupported = true;
  applyProperties();
  EXPECT_EQ(test.checkSupported(&disk, &listener, &log), NOT_APPLICABLE);
  EXPECT_TRUE(listener.events.empty());
  EXPECT_TRUE(log.lines.empty());
}

TEST_F(SelfTestRun, AtaDriveLackingValidSmartDataOffLineImmediateOrSelfTestIsRefusedSilently) {
  bool StorageProtocolProperties::*flags[] = {&StorageProtocolProperties::smartDataValid,
                                              &StorageProtocolProperties::offlineImmediateSupported,
                                              &StorageProtocolProperties::selfTestSupported};
  for (auto flag : flags) {
    StorageProtocolProperties lacking = properties;
    lacking.*flag = false;
    protocol->setCachedProperties(lacking);
    EXPECT_EQ(test.checkSupported(&disk, &listener, &log), NOT_APPLICABLE);
  }
  protocol->setCachedProperties(properties);
  EXPECT_EQ(test.checkSupported(&disk, &listener, &log), SUCCESS);
  EXPECT_TRUE(listener.events.empty());
  EXPECT_TRUE(log.lines.empty());
  EXPECT_TRUE(protocol->calls.empty());
}

TEST_F(SelfTestRun, CheckSupportedWithoutProtocolIsInvalid) {
  StorageComponent bare(nullptr, nullptr);
  bare.setLocation(kLocationInternal);
  EXPECT_EQ(test.checkSupported(&bare, &listener, &log), INVALID);
  EXPECT_EQ(test.checkSupported(nullptr, &listener, &log), INVALID);
  EXPECT_TRUE(listener.events.empty());
}

TEST(ReadingSectorText, JoinsTheKeyAndTheDecimalLbaWithOneBlank) {
  EXPECT_EQ(readingSectorText(0), "READING_SECTOR 0");
  EXPECT_EQ(readingSectorText(0xFFFFFFFFFFFFull), "READING_SECTOR 281474976710655");
}

}  // namespace
