// Binding a run and the abort checks, on a probe test against the scripted
// protocol and recording host objects.
#include "module/storage_test.h"

#include <gtest/gtest.h>

#include "module/null_objects.h"
#include "testing/recording_host.h"
#include "testing/scripted_protocol.h"

namespace {

using mstest::LogLine;
using mstest::ProgressEvent;

// A test whose checks are scripted, and which exposes the protected helpers.
class ProbeTest : public StorageTest {
 public:
  ProbeTest() : StorageTest(ItemId(1, 1, 99)) {}
  uint32_t run(TestRunContext*) override { return SUCCESS; }
  uint32_t checkSupported(StorageComponent*, TestListener* l, MessageLog* g) override {
    // Speaks to whatever it is given, as a real check may.
    l->onProgress(0, "CHECKING");
    g->log("CHECKING", LevelInfo, nullptr);
    return supported;
  }
  uint32_t prepare(StorageComponent* c, TestListener* l, MessageLog* g) override { return checkSupported(c, l, g); }

  using StorageTest::bindContext;
  using StorageTest::checkAbort;
  using StorageTest::checkAbortAnnounced;
  using StorageTest::hasCompromisingSystemEvent;
  StorageComponent* boundComponent() const { return component; }
  StorageProtocol* boundProtocol() const { return protocol; }
  MessageLog* boundLog() const { return log; }
  TestListener* boundListener() const { return listener; }
  void clearAnnounced() { abortAnnounced = false; }

  uint32_t supported = SUCCESS;
};

// A component that is not a storage component.
class OtherComponent : public SystemComponent {
 public:
  uint32_t reservedQuery() override { return 0; }
  bool reservedCheckA() override { return true; }
  void reservedActionA() override {}
  bool reservedCheckB() override { return true; }
  void reservedActionB() override {}
};

class StorageTestFixture : public ::testing::Test {
 protected:
  StorageTestFixture()
      : protocolPtr(new mstest::ScriptedProtocol()),
        disk(std::unique_ptr<StorageProtocol>(protocolPtr), nullptr),
        context(&disk, &listener, &log) {}

  mstest::ScriptedProtocol* protocolPtr;
  StorageComponent disk;
  mstest::RecordingListener listener;
  mstest::RecordingLog log;
  mstest::ScriptedRunContext context;
  ProbeTest test;
};

TEST_F(StorageTestFixture, BindContextStoresEverythingAndSucceeds) {
  EXPECT_EQ(test.bindContext(&context), SUCCESS);
  EXPECT_EQ(test.boundComponent(), &disk);
  EXPECT_EQ(test.boundProtocol(), protocolPtr);
  EXPECT_EQ(test.boundLog(), &log);
  EXPECT_EQ(test.boundListener(), &listener);
}

TEST_F(StorageTestFixture, BindContextWithNullContextIsInvalid) {
  EXPECT_EQ(test.bindContext(nullptr), INVALID);
}

TEST_F(StorageTestFixture, BindContextWithNullLogIsInvalidButKeepsComponentAndProtocol) {
  context.setLog(nullptr);
  EXPECT_EQ(test.bindContext(&context), INVALID);
  EXPECT_EQ(test.boundComponent(), &disk);
  EXPECT_EQ(test.boundProtocol(), protocolPtr);
  EXPECT_EQ(test.boundListener(), nullptr);
}

TEST_F(StorageTestFixture, BindContextWithNullListenerIsInvalid) {
  context.setListener(nullptr);
  EXPECT_EQ(test.bindContext(&context), INVALID);
  EXPECT_EQ(test.boundLog(), &log);
}

TEST_F(StorageTestFixture, BindContextWithAComponentThatIsNotStorageIsInvalid) {
  OtherComponent other;
  context.setComponent(&other);
  EXPECT_EQ(test.bindContext(&context), INVALID);
  EXPECT_EQ(test.boundComponent(), nullptr);
}

TEST(StorageTestBinding, BindContextWithComponentWithoutProtocolIsInvalid) {
  StorageComponent bare(nullptr, nullptr);
  mstest::RecordingListener listener;
  mstest::RecordingLog log;
  mstest::ScriptedRunContext context(&bare, &listener, &log);
  ProbeTest test;
  EXPECT_EQ(test.bindContext(&context), INVALID);
  EXPECT_EQ(test.boundComponent(), &bare);
}

TEST_F(StorageTestFixture, SystemEventsOfIgnoredBitsDoNotCompromise) {
  test.bindContext(&context);
  context.systemEvents = 0x94;  // bits 2, 4 and 7 only
  EXPECT_FALSE(test.hasCompromisingSystemEvent());
}

TEST_F(StorageTestFixture, EachMaskedSystemEventBitCompromises) {
  test.bindContext(&context);
  for (uint8_t flag : {0x01, 0x02, 0x08, 0x20, 0x40}) {
    context.systemEvents = flag;
    EXPECT_TRUE(test.hasCompromisingSystemEvent()) << int(flag);
  }
}

TEST_F(StorageTestFixture, NoSystemEventByteMeansNoCompromise) {
  test.bindContext(&context);
  context.hasSystemEvents = false;
  EXPECT_FALSE(test.hasCompromisingSystemEvent());
}

TEST_F(StorageTestFixture, UnboundTestSeesNoSystemEvent) {
  context.systemEvents = 0x01;
  EXPECT_FALSE(test.hasCompromisingSystemEvent());
}

TEST_F(StorageTestFixture, StandingEventStopsTwiceButIsAnnouncedOnce) {
  test.bindContext(&context);
  context.systemEvents = 0x08;
  EXPECT_TRUE(test.checkAbort(&context));
  EXPECT_TRUE(test.checkAbort(&context));
  EXPECT_EQ(listener.events, (std::vector<ProgressEvent>{{100, kKeySystemEventAbort}}));
  EXPECT_EQ(log.lines, (std::vector<LogLine>{{kKeySystemEventAbort, LevelInfo}}));
}

TEST_F(StorageTestFixture, UserAbortClosesProgressWithoutALogLine) {
  test.bindContext(&context);
  context.abortRequested = true;
  EXPECT_TRUE(test.checkAbort(&context));
  EXPECT_EQ(listener.events, (std::vector<ProgressEvent>{{100, ""}}));
  EXPECT_TRUE(log.lines.empty());
}

TEST_F(StorageTestFixture, NoAbortAndNoEventLetsTheRunGoOn) {
  test.bindContext(&context);
  EXPECT_FALSE(test.checkAbort(&context));
  EXPECT_FALSE(test.checkAbortAnnounced(&context, true));
  EXPECT_TRUE(listener.events.empty());
}

TEST_F(StorageTestFixture, CheckAbortWithNullContextOrListenerIsFalse) {
  test.bindContext(&context);
  context.abortRequested = true;
  EXPECT_FALSE(test.checkAbort(nullptr));
  context.setListener(nullptr);
  EXPECT_FALSE(test.checkAbort(&context));
  EXPECT_FALSE(test.checkAbortAnnounced(&context, true));
}

TEST_F(StorageTestFixture, CheckAbortAnnouncedFollowsItsArgumentAlone) {
  test.bindContext(&context);
  context.systemEvents = 0x20;
  EXPECT_TRUE(test.checkAbortAnnounced(&context, false));
  EXPECT_TRUE(listener.events.empty());
  EXPECT_TRUE(test.checkAbortAnnounced(&context, true));
  EXPECT_TRUE(test.checkAbortAnnounced(&context, true));
  EXPECT_EQ(listener.events.size(), 2u);
  EXPECT_EQ(log.lines.size(), 2u);
  // It neither set the once-per-run flag, so checkAbort still announces.
  EXPECT_TRUE(test.checkAbort(&context));
  EXPECT_EQ(listener.events.size(), 3u);
  EXPECT_TRUE(test.checkAbort(&context));
  EXPECT_EQ(listener.events.size(), 3u);
}

TEST_F(StorageTestFixture, ClearingTheFlagAnnouncesAgainInTheNextRun) {
  test.bindContext(&context);
  context.systemEvents = 0x01;
  test.checkAbort(&context);
  test.clearAnnounced();
  test.checkAbort(&context);
  EXPECT_EQ(log.lines.size(), 2u);
}

TEST_F(StorageTestFixture, IsSupportedNeverReachesARealListener) {
  // The probe's check speaks to its listener and log; isSupported must give
  // it the null objects, so nothing is recorded here.
  test.bindContext(&context);
  EXPECT_TRUE(test.isSupported(&disk));
  test.supported = NOT_APPLICABLE;
  EXPECT_FALSE(test.isSupported(&disk));
  EXPECT_TRUE(listener.events.empty());
  EXPECT_TRUE(log.lines.empty());
}

TEST_F(StorageTestFixture, IsSupportedRefusesNullAndForeignComponents) {
  OtherComponent other;
  EXPECT_FALSE(test.isSupported(nullptr));
  EXPECT_FALSE(test.isSupported(&other));
}

TEST(NullObjects, DoNothingAndAreNotInteractive) {
  InputRequest request("TITLE", "TEXT", 1, 2);
  request.answer = 7;
  nullTestListener().onProgress(50, "KEY");
  nullTestListener().requestInput(request);
  nullMessageLog().log("KEY", LevelFailure, nullptr);
  EXPECT_EQ(request.answer, 7u);
  EXPECT_FALSE(nullTestListener().isInteractive());
  EXPECT_EQ(&nullTestListener(), &nullTestListener());
}

}  // namespace
