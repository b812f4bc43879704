// The SMART status test from the host's run to its verdict, against the
// scripted protocol: every refusal, every verdict, and how SMART is left.
#include "diagnostics/smart_status.h"

#include <gtest/gtest.h>

#include <memory>
#include <vector>

#include "testing/recording_host.h"
#include "testing/scripted_protocol.h"

namespace {

using mstest::LogLine;
using mstest::Op;
using mstest::ProgressEvent;

// Exposes prepare's guard and lets a test call prepare without a run.
class OpenSmartStatusTest : public SmartStatusTest {
 public:
  OpenSmartStatusTest() : SmartStatusTest(ItemId(1, 1, 1)) {}
  using SmartStatusTest::smartGuard;
};

class SmartStatus : public ::testing::Test {
 protected:
  SmartStatus()
      : protocol(new mstest::ScriptedProtocol()),
        disk(std::unique_ptr<StorageProtocol>(protocol), nullptr),
        context(&disk, &listener, &log) {
    disk.setLocation(kLocationInternal);
    // An internal disk that has SMART, switched off until the test runs.
    StorageProtocolProperties properties;
    properties.smartSupported = true;
    properties.smartEnabled = false;
    properties.sectorCount = 1000;
    properties.logicalSectorSize = 512;
    protocol->setCachedProperties(properties);
    protocol->setProperties(properties);
    protocol->setDefault(Op::GetSmartStatus, kStatusOk, 1);
  }

  void reportSmartEnabled(bool enabled) {
    StorageProtocolProperties properties;
    properties.smartSupported = true;
    properties.smartEnabled = enabled;
    protocol->setCachedProperties(properties);
    protocol->setProperties(properties);
  }

  std::vector<uint64_t> enableSmartArguments() const {
    std::vector<uint64_t> arguments;
    for (const mstest::Call& call : protocol->callsOf(Op::EnableSmart)) arguments.push_back(call.first);
    return arguments;
  }

  mstest::ScriptedProtocol* protocol;
  StorageComponent disk;
  mstest::RecordingListener listener;
  mstest::RecordingLog log;
  mstest::ScriptedRunContext context;
  SmartStatusTest test{ItemId(1, 1, 1)};
};

const std::vector<ProgressEvent> kVerdictEvents = {{0, ""}, {50, ""}, {100, ""}, {100, ""}};

TEST_F(SmartStatus, HealthyDrivePassesWithPlainProgressAndNoLogLine) {
  EXPECT_EQ(test.run(&context), SUCCESS);
  EXPECT_EQ(listener.events, kVerdictEvents);
  EXPECT_TRUE(log.lines.empty());
  EXPECT_EQ(protocol->count(Op::GetSmartStatus), 1u);
}

TEST_F(SmartStatus, ThresholdExceededFailsWithoutAnyKeyOrLogLine) {
  protocol->setDefault(Op::GetSmartStatus, kStatusOk, 0);
  EXPECT_EQ(test.run(&context), FAILED);
  EXPECT_EQ(listener.events, kVerdictEvents);
  EXPECT_TRUE(log.lines.empty());
}

TEST_F(SmartStatus, NullContextIsInvalidAndSilent) {
  EXPECT_EQ(test.run(nullptr), INVALID);
  EXPECT_TRUE(listener.events.empty());
  EXPECT_TRUE(log.lines.empty());
}

TEST_F(SmartStatus, ContextWithoutLogIsInvalidAndNothingReachesTheListener) {
  context.setLog(nullptr);
  EXPECT_EQ(test.run(&context), INVALID);
  EXPECT_TRUE(listener.events.empty());
  EXPECT_TRUE(protocol->calls.empty());
}

TEST_F(SmartStatus, UserAbortBeforeTheStartEndsAbortedWithoutTouchingTheDevice) {
  context.abortRequested = true;
  EXPECT_EQ(test.run(&context), ABORTED);
  EXPECT_EQ(listener.events, (std::vector<ProgressEvent>{{100, ""}}));
  EXPECT_TRUE(log.lines.empty());
  EXPECT_TRUE(protocol->calls.empty());
}

TEST_F(SmartStatus, SystemEventBeforeTheStartIsAnnouncedOnceAndEndsAborted) {
  context.systemEvents = 0x20;
  EXPECT_EQ(test.run(&context), ABORTED);
  EXPECT_EQ(listener.events, (std::vector<ProgressEvent>{{100, kKeySystemEventAbort}}));
  EXPECT_EQ(log.lines, (std::vector<LogLine>{{kKeySystemEventAbort, LevelInfo}}));
  EXPECT_TRUE(protocol->calls.empty());
}

TEST_F(SmartStatus, ExternalDeviceIsNotApplicableAndTheDeviceIsNotAsked) {
  disk.setLocation(kLocationExternal);
  EXPECT_EQ(test.run(&context), NOT_APPLICABLE);
  EXPECT_EQ(listener.events,
            (std::vector<ProgressEvent>{{100, "TEST_NOT_SUPPORTED_IN_EXTERNAL_DEVICE"}, {100, ""}}));
  EXPECT_EQ(log.lines, (std::vector<LogLine>{{"TEST_NOT_SUPPORTED_IN_EXTERNAL_DEVICE", LevelError}}));
  EXPECT_TRUE(protocol->calls.empty());
}

TEST_F(SmartStatus, DeviceWithoutSmartIsNotApplicable) {
  StorageProtocolProperties noSmart;
  protocol->setCachedProperties(noSmart);
  EXPECT_EQ(test.run(&context), NOT_APPLICABLE);
  EXPECT_EQ(listener.events, (std::vector<ProgressEvent>{{100, "SMART_NOT_SUPPORTED"}, {100, ""}}));
  EXPECT_EQ(log.lines, (std::vector<LogLine>{{"SMART_NOT_SUPPORTED", LevelError}}));
  EXPECT_TRUE(protocol->calls.empty());
}

TEST_F(SmartStatus, FailedGetPropertiesInsideEnableCannotEnableSmart) {
  protocol->script(Op::GetProperties, kStatusAtaError);
  EXPECT_EQ(test.run(&context), NOT_APPLICABLE);
  EXPECT_EQ(listener.events, (std::vector<ProgressEvent>{{100, "CANNOT_ENABLE_SMART"}, {100, ""}}));
  EXPECT_EQ(log.lines, (std::vector<LogLine>{{"CANNOT_ENABLE_SMART", LevelError}}));
  EXPECT_EQ(protocol->count(Op::EnableSmart), 0u);
  EXPECT_EQ(protocol->count(Op::GetSmartStatus), 0u);
}

TEST_F(SmartStatus, FailedEnableSmartCannotEnableSmart) {
  protocol->script(Op::EnableSmart, kStatusAtaError);
  EXPECT_EQ(test.run(&context), NOT_APPLICABLE);
  EXPECT_EQ(listener.events, (std::vector<ProgressEvent>{{100, "CANNOT_ENABLE_SMART"}, {100, ""}}));
  EXPECT_EQ(log.lines, (std::vector<LogLine>{{"CANNOT_ENABLE_SMART", LevelError}}));
  EXPECT_EQ(protocol->count(Op::GetSmartStatus), 0u);
}

TEST_F(SmartStatus, AfterFailedPrepareNoEnableSmartOffButClosingEventStillComes) {
  protocol->script(Op::EnableSmart, kStatusIoctlFailed);
  EXPECT_EQ(test.run(&context), NOT_APPLICABLE);
  EXPECT_EQ(enableSmartArguments(), (std::vector<uint64_t>{1}));
  ASSERT_FALSE(listener.events.empty());
  EXPECT_EQ(listener.events.back(), (ProgressEvent{100, ""}));
}

TEST_F(SmartStatus, FailedQueryIsNotApplicableWithoutLogLine) {
  protocol->setDefault(Op::GetSmartStatus, kStatusAtaError, 1);
  EXPECT_EQ(test.run(&context), NOT_APPLICABLE);
  EXPECT_EQ(listener.events, (std::vector<ProgressEvent>{{0, ""}, {100, ""}, {100, ""}}));
  EXPECT_TRUE(log.lines.empty());
}

TEST_F(SmartStatus, UserAbortWhileAskingEndsAbortedAndRestoresSmart) {
  context.abortOnCall = 2;  // the check after the query
  EXPECT_EQ(test.run(&context), ABORTED);
  EXPECT_EQ(listener.events, (std::vector<ProgressEvent>{{0, ""}, {50, ""}, {100, ""}, {100, ""}}));
  EXPECT_TRUE(log.lines.empty());
  EXPECT_EQ(enableSmartArguments(), (std::vector<uint64_t>{1, 0}));
}

TEST_F(SmartStatus, SystemEventWhileAskingIsAnnouncedAndEndsAborted) {
  listener.onEvent = [this](const ProgressEvent& event) {
    if (event.percent == 50) context.systemEvents = 0x40;
  };
  EXPECT_EQ(test.run(&context), ABORTED);
  EXPECT_EQ(listener.events,
            (std::vector<ProgressEvent>{{0, ""}, {50, ""}, {100, kKeySystemEventAbort}, {100, ""}}));
  EXPECT_EQ(log.lines, (std::vector<LogLine>{{kKeySystemEventAbort, LevelInfo}}));
}

TEST_F(SmartStatus, QueryFailureFollowedBySystemEventEndsAbortedNotNotApplicable) {
  protocol->setDefault(Op::GetSmartStatus, kStatusIoctlFailed);
  listener.onEvent = [this](const ProgressEvent& event) {
    if (event.percent == 0) context.systemEvents = 0x01;
  };
  EXPECT_EQ(test.run(&context), ABORTED);
  EXPECT_EQ(listener.events,
            (std::vector<ProgressEvent>{{0, ""}, {100, ""}, {100, kKeySystemEventAbort}, {100, ""}}));
  EXPECT_EQ(enableSmartArguments(), (std::vector<uint64_t>{1, 0}));
}

TEST_F(SmartStatus, DeviceWithSmartAlreadyEnabledGetsOneEnableAndNoDisable) {
  reportSmartEnabled(true);
  EXPECT_EQ(test.run(&context), SUCCESS);
  EXPECT_EQ(enableSmartArguments(), (std::vector<uint64_t>{1}));
}

TEST_F(SmartStatus, DeviceWithSmartDisabledIsSwitchedOnForTheQueryAndOffAfterIt) {
  EXPECT_EQ(test.run(&context), SUCCESS);
  std::vector<Op> order;
  for (const mstest::Call& call : protocol->calls) order.push_back(call.op);
  EXPECT_EQ(order, (std::vector<Op>{Op::GetProperties, Op::EnableSmart, Op::GetSmartStatus, Op::EnableSmart}));
  EXPECT_EQ(enableSmartArguments(), (std::vector<uint64_t>{1, 0}));
}

TEST_F(SmartStatus, DeviceWithSmartDisabledIsSwitchedOffAlsoWhenTheQueryFailed) {
  protocol->setDefault(Op::GetSmartStatus, kStatusAtaError);
  EXPECT_EQ(test.run(&context), NOT_APPLICABLE);
  EXPECT_EQ(enableSmartArguments(), (std::vector<uint64_t>{1, 0}));
}

TEST_F(SmartStatus, SmartIsRestoredBeforeTheClosingEvent) {
  std::vector<size_t> enableCallsAtEvent;
  listener.onEvent = [&](const ProgressEvent&) { enableCallsAtEvent.push_back(protocol->count(Op::EnableSmart)); };
  EXPECT_EQ(test.run(&context), SUCCESS);
  EXPECT_EQ(enableCallsAtEvent, (std::vector<size_t>{1, 1, 1, 2}));
}

TEST_F(SmartStatus, EachRunStartsFromTheDeviceStateItFinds) {
  EXPECT_EQ(test.run(&context), SUCCESS);
  reportSmartEnabled(true);
  EXPECT_EQ(test.run(&context), SUCCESS);
  // First run: on and off again; second run: on only.
  EXPECT_EQ(enableSmartArguments(), (std::vector<uint64_t>{1, 0, 1}));
}

TEST_F(SmartStatus, IsSupportedOnExternalDeviceIsFalseWithoutAnyEvent) {
  // A run first binds the recording listener and log, so a probe that spoke
  // to the bound objects instead of the null ones would show here.
  ASSERT_EQ(test.run(&context), SUCCESS);
  listener.events.clear();
  log.lines.clear();
  protocol->calls.clear();
  disk.setLocation(kLocationExternal);
  EXPECT_FALSE(test.isSupported(&disk));
  EXPECT_TRUE(listener.events.empty());
  EXPECT_TRUE(log.lines.empty());
  EXPECT_TRUE(protocol->calls.empty());
  // The same refusal through checkSupported speaks: the silence above is the
  // null listener's and null log's doing, not a silent check.
  EXPECT_EQ(test.checkSupported(&disk, &listener, &log), NOT_APPLICABLE);
  EXPECT_FALSE(listener.events.empty());
}

TEST_F(SmartStatus, IsSupportedDecidesFromTheCacheAlone) {
  EXPECT_TRUE(test.isSupported(&disk));
  StorageProtocolProperties noSmart;
  protocol->setCachedProperties(noSmart);
  EXPECT_FALSE(test.isSupported(&disk));
  EXPECT_TRUE(protocol->calls.empty());
  EXPECT_TRUE(listener.events.empty());
}

TEST_F(SmartStatus, CheckSupportedWithoutComponentOrProtocolIsInvalid) {
  EXPECT_EQ(test.checkSupported(nullptr, &listener, &log), INVALID);
  StorageComponent bare(nullptr, nullptr);
  EXPECT_EQ(test.checkSupported(&bare, &listener, &log), INVALID);
  EXPECT_TRUE(listener.events.empty());
}

TEST_F(SmartStatus, PrepareWithoutGuardIsInvalid) {
  OpenSmartStatusTest open;
  EXPECT_EQ(open.prepare(&disk, &listener, &log), INVALID);
  EXPECT_TRUE(protocol->calls.empty());
}

TEST_F(SmartStatus, PrepareReturnsTheRefusalOfCheckSupportedAsItStands) {
  OpenSmartStatusTest open;
  disk.setLocation(kLocationExternal);
  EXPECT_EQ(open.prepare(&disk, &listener, &log), NOT_APPLICABLE);
  EXPECT_EQ(listener.keyedEvents(), (std::vector<ProgressEvent>{{100, "TEST_NOT_SUPPORTED_IN_EXTERNAL_DEVICE"}}));
}

TEST(SmartEnableGuardTest, FailedPropertiesGiveOneAndLeaveWasEnabledUntouched) {
  mstest::ScriptedProtocol protocol;
  protocol.script(Op::GetProperties, kStatusIoctlFailed);
  SmartEnableGuard guard;
  guard.wasEnabled = 1;
  EXPECT_EQ(guard.enable(protocol, nullptr), kStatusNotAvailable);
  EXPECT_EQ(guard.wasEnabled, 1);
  EXPECT_EQ(protocol.count(Op::EnableSmart), 0u);
}

TEST(SmartEnableGuardTest, EnableGivesTheStatusOfEnableSmart) {
  mstest::ScriptedProtocol protocol;
  StorageProtocolProperties properties;
  properties.smartEnabled = true;
  protocol.setProperties(properties);
  protocol.script(Op::EnableSmart, kStatusAtaError);
  SmartEnableGuard guard;
  EXPECT_EQ(guard.wasEnabled, 0);
  EXPECT_EQ(guard.enable(protocol, nullptr), kStatusAtaError);
  EXPECT_EQ(guard.wasEnabled, 1);
}

TEST(SmartEnableGuardTest, RestoreSwitchesOffOnlyWhatWasOffAndIgnoresItsStatus) {
  mstest::ScriptedProtocol protocol;
  protocol.setDefault(Op::EnableSmart, kStatusIoctlFailed);
  SmartEnableGuard guard;
  guard.restore(protocol, nullptr);
  ASSERT_EQ(protocol.count(Op::EnableSmart), 1u);
  EXPECT_EQ(protocol.callsOf(Op::EnableSmart)[0].first, 0u);
  guard.wasEnabled = 1;
  guard.restore(protocol, nullptr);
  EXPECT_EQ(protocol.count(Op::EnableSmart), 1u);
}

}  // namespace
