// The extended self test: SCSI disks on a SCSI bus only, code 2 polled every
// five seconds up to 65535 seconds; and a whole run on the simulated SAS disk.
#include "diagnostics/extended_self.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "diagnostics/self_test_test_support.h"

namespace {

using mstest::LogLine;
using mstest::Op;
using mstest::ProgressEvent;

class ExtendedSelf : public mstest::SelfTestFixture {
 protected:
  ExtendedSelf() { makeScsi(); }
  ExtendedSelfTest test{ItemId(1, 2, 10)};
};

TEST_F(ExtendedSelf, StartsCodeTwoEveryFiveSecondsForAtMost65535) {
  EXPECT_EQ(test.getSelfTestCode(), 2u);
  EXPECT_EQ(test.getSelfTestArgument(), 0u);
  EXPECT_EQ(test.getPollIntervalSeconds(), 5u);
  EXPECT_EQ(test.getTimeLimitSeconds(), 65535u);
}

TEST_F(ExtendedSelf, ExtendedSelfTestOnAnAtaDiskIsADeviceRefusalAtLevelZero) {
  disk.setBusKind(kBusAta);
  protocol->setProtocolKind(kProtocolAta);
  EXPECT_EQ(test.run(&context), NOT_APPLICABLE);
  EXPECT_EQ(listener.events, (std::vector<ProgressEvent>{{100, "TEST_NOT_SUPPORTED_IN_THIS_DEVICE"}, {100, ""}}));
  EXPECT_EQ(log.lines, (std::vector<LogLine>{{"TEST_NOT_SUPPORTED_IN_THIS_DEVICE", LevelInfo}}));
  EXPECT_EQ(protocol->count(Op::StartSelfTest), 0u);
  EXPECT_EQ(protocol->count(Op::EnableSmart), 0u);
}

TEST_F(ExtendedSelf, ScsiProtocolOnAnotherBusIsADeviceRefusal) {
  disk.setBusKind(kBusUsb);
  EXPECT_EQ(test.checkSupported(&disk, &listener, &log), NOT_APPLICABLE);
  EXPECT_EQ(log.lines, (std::vector<LogLine>{{"TEST_NOT_SUPPORTED_IN_THIS_DEVICE", LevelInfo}}));
}

TEST_F(ExtendedSelf, ExternalDiskIsRefusedAtLevelThree) {
  disk.setLocation(kLocationExternal);
  EXPECT_EQ(test.checkSupported(&disk, &listener, &log), NOT_APPLICABLE);
  EXPECT_EQ(listener.events, (std::vector<ProgressEvent>{{100, "TEST_NOT_SUPPORTED_IN_EXTERNAL_DEVICE"}}));
  EXPECT_EQ(log.lines, (std::vector<LogLine>{{"TEST_NOT_SUPPORTED_IN_EXTERNAL_DEVICE", LevelError}}));
}

TEST_F(ExtendedSelf, NullComponentOrProtocolIsInvalid) {
  EXPECT_EQ(test.checkSupported(nullptr, &listener, &log), INVALID);
  StorageComponent bare(nullptr, nullptr);
  bare.setLocation(kLocationExternal);
  EXPECT_EQ(test.checkSupported(&bare, &listener, &log), INVALID);
  EXPECT_TRUE(listener.events.empty());
}

TEST_F(ExtendedSelf, ScsiDiskOnScsiBusIsTakenAndStartedWithCodeTwo) {
  EXPECT_TRUE(test.isSupported(&disk));
  scriptRun({{100, 0}});
  EXPECT_EQ(test.run(&context), SUCCESS);
  ASSERT_EQ(protocol->count(Op::StartSelfTest), 1u);
  EXPECT_EQ(protocol->callsOf(Op::StartSelfTest)[0].first, 2u);
}

TEST_F(ExtendedSelf, PollsComeEveryFiveSeconds) {
  scriptRun({{10, 15}, {20, 15}, {100, 0}});
  timeEvents();
  EXPECT_EQ(test.run(&context), SUCCESS);
  EXPECT_EQ(msSinceStartEvent(), (std::vector<uint64_t>{0, 5000, 10000, 15000, 15000}));
}

TEST_F(ExtendedSelf, TimeLimitIs65535Seconds) {
  context.stepMs = 5000;
  scriptRun({});
  timeEvents();
  EXPECT_EQ(test.run(&context), WARNING);
  EXPECT_EQ(listener.keyedEvents(), (std::vector<ProgressEvent>{{100, "TEST_FINISHED_WITH_TIMEOUT: 65535 s"}}));
  EXPECT_EQ(log.lines, (std::vector<LogLine>{{"TEST_FINISHED_WITH_TIMEOUT: 65535 s", LevelError}}));
  // 65535 is a multiple of the five-second pass: the limit falls on a pass.
  EXPECT_EQ(msSinceStartEvent().back(), 65535000u);
  EXPECT_EQ(protocol->count(Op::AbortSelfTest), 1u);
}

class ExtendedSelfOnSimulatedMachine : public mstest::SelfTestDisks {
 protected:
  ExtendedSelfTest test{ItemId(1, 2, 10)};
};

TEST_F(ExtendedSelfOnSimulatedMachine, SasDiskPassesItsBackgroundExtendedTest) {
  installDefault();
  auto disk = scsiDisk(kSas0);
  mstest::ClockedRunContext context(disk.get(), &listener, &log);
  context.stepMs = 5000;
  ASSERT_TRUE(test.isSupported(disk.get()));
  const uint64_t startMs = mstest::machineNowMs();
  EXPECT_EQ(test.run(&context), SUCCESS);
  EXPECT_TRUE(log.lines.empty());
  // The profile's extended test takes 30000 seconds.
  EXPECT_GE(mstest::machineNowMs() - startMs, 30000000u);
  EXPECT_LT(mstest::machineNowMs() - startMs, 30020000u);
}

TEST_F(ExtendedSelfOnSimulatedMachine, SasDiskWithAnUnreadableSectorFailsWithTheSectorFromItsLog) {
  installJson(R"({"name": "sas", "disks": [{"name": "sas", "kind": "scsi", "bus": "sas",
      "profile": {"vendor": "SEAGATE", "product": "ST4000NM0025", "serial": "ZC1A2B3C", "capacitySectors": 1000000,
                  "selfTest": {"shortSeconds": 90, "extendedSeconds": 600}},
      "faults": {"unreadableSectors": [250000]}}]})");
  auto disk = scsiDisk(0);
  mstest::ClockedRunContext context(disk.get(), &listener, &log);
  EXPECT_EQ(test.run(&context), FAILED);
  // The SCSI protocol reads the log's big-endian address with its first byte
  // lowest, as it always has; the test shows what the protocol gives.
  const std::string sector = "READING_SECTOR 10434843635152322560";  // 250000 = 0x3D090, bytes reversed
  EXPECT_EQ(log.lines, (std::vector<LogLine>{{"READ_ERROR_DETECTED", LevelFailure}, {sector, LevelFailure}}));
  EXPECT_EQ(listener.keyedEvents(), (std::vector<ProgressEvent>{{100, sector}}));
}

TEST_F(ExtendedSelfOnSimulatedMachine, AtaDiskIsNotTaken) {
  installDefault();
  auto disk = ataDisk(kHdd0);
  EXPECT_FALSE(test.isSupported(disk.get()));
}

}  // namespace
