// The short self test: which disks it takes, its place in the catalogue, and
// whole runs on the simulated PC through the real ATA and SCSI protocols, on
// a hard disk with unreadable sectors, a healthy solid-state disk and a SAS
// disk.
#include "diagnostics/short_self.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <memory>
#include <vector>

#include "diagnostics/default_self.h"
#include "diagnostics/drive_self.h"
#include "diagnostics/extended_self.h"
#include "diagnostics/self_test_test_support.h"
#include "module/catalogue.h"

namespace {

using mstest::LogLine;
using mstest::Op;
using mstest::ProgressEvent;

class ShortSelf : public mstest::SelfTestFixture {
 protected:
  ShortSelfTest test{ItemId(1, 1, 5)};
};

TEST_F(ShortSelf, StartsCodeOneEveryTenSecondsForAtMostSixHundred) {
  EXPECT_EQ(test.getSelfTestCode(), 1u);
  EXPECT_EQ(test.getSelfTestArgument(), 0u);
  EXPECT_EQ(test.getPollIntervalSeconds(), 10u);
  EXPECT_EQ(test.getTimeLimitSeconds(), 600u);
  EXPECT_FALSE(test.areParametersGiven());
  EXPECT_FALSE(test.isOptionA());
  EXPECT_FALSE(test.isOptionB());
}

TEST_F(ShortSelf, ShortSelfTestOnAnExternalDiskLogsAtLevelZero) {
  disk.setLocation(kLocationExternal);
  EXPECT_EQ(test.run(&context), NOT_APPLICABLE);
  EXPECT_EQ(listener.events,
            (std::vector<ProgressEvent>{{100, "TEST_NOT_SUPPORTED_IN_EXTERNAL_DEVICE"}, {100, ""}}));
  EXPECT_EQ(log.lines, (std::vector<LogLine>{{"TEST_NOT_SUPPORTED_IN_EXTERNAL_DEVICE", LevelInfo}}));
  EXPECT_TRUE(protocol->calls.empty());
}

TEST_F(ShortSelf, EveryOtherSelfTestLogsAnExternalDiskAtLevelThree) {
  disk.setLocation(kLocationExternal);
  QuickDriveSelfTest drive(ItemId(1, 1, 6));
  DefaultSelfTest byDefault(ItemId(1, 1, 7));
  ExtendedSelfTest extended(ItemId(1, 2, 10));
  EXPECT_EQ(test.checkSupported(&disk, &listener, &log), NOT_APPLICABLE);
  EXPECT_EQ(drive.checkSupported(&disk, &listener, &log), NOT_APPLICABLE);
  EXPECT_EQ(byDefault.checkSupported(&disk, &listener, &log), NOT_APPLICABLE);
  EXPECT_EQ(extended.checkSupported(&disk, &listener, &log), NOT_APPLICABLE);
  const char* key = "TEST_NOT_SUPPORTED_IN_EXTERNAL_DEVICE";
  EXPECT_EQ(log.lines, (std::vector<LogLine>{{key, LevelInfo}, {key, LevelError}, {key, LevelError}, {key, LevelError}}));
  EXPECT_EQ(listener.events, (std::vector<ProgressEvent>(4, ProgressEvent{100, key})));
  EXPECT_TRUE(protocol->calls.empty());
}

TEST_F(ShortSelf, DriveBehindRaidControllerOnAnotherBusIsRefusedForThisDeviceAtLevelZero) {
  disk.setLocation(kLocationRaid);
  disk.setBusKind(kBusAta);
  EXPECT_EQ(test.checkSupported(&disk, &listener, &log), NOT_APPLICABLE);
  EXPECT_EQ(listener.events, (std::vector<ProgressEvent>{{100, "TEST_NOT_SUPPORTED_IN_THIS_DEVICE"}}));
  EXPECT_EQ(log.lines, (std::vector<LogLine>{{"TEST_NOT_SUPPORTED_IN_THIS_DEVICE", LevelInfo}}));
}

TEST_F(ShortSelf, DriveBehindRaidControllerOnAScsiBusTakesTheCommonCheck) {
  disk.setLocation(kLocationRaid);
  disk.setBusKind(kBusScsi);
  EXPECT_EQ(test.checkSupported(&disk, &listener, &log), SUCCESS);
  properties.smartSupported = false;
  applyProperties();
  EXPECT_EQ(test.checkSupported(&disk, &listener, &log), NOT_APPLICABLE);
  EXPECT_EQ(listener.keyedEvents(), (std::vector<ProgressEvent>{{100, "SMART_NOT_SUPPORTED"}}));
}

TEST_F(ShortSelf, InternalAtaAndScsiDisksAreTaken) {
  EXPECT_TRUE(test.isSupported(&disk));
  makeScsi();
  EXPECT_TRUE(test.isSupported(&disk));
}

TEST_F(ShortSelf, EmmcAndNvmeDisksAreNotTaken) {
  protocol->setProtocolKind(kProtocolNvme);
  EXPECT_FALSE(test.isSupported(&disk));
  protocol->setProtocolKind(kProtocolEmmc);
  EXPECT_FALSE(test.isSupported(&disk));
}

TEST_F(ShortSelf, IsSupportedOnAnExternalDiskIsFalseWithoutAnyEvent) {
  disk.setLocation(kLocationExternal);
  EXPECT_FALSE(test.isSupported(&disk));
  EXPECT_TRUE(listener.events.empty());
  EXPECT_TRUE(log.lines.empty());
  EXPECT_TRUE(protocol->calls.empty());
}

TEST_F(ShortSelf, NullComponentIsInvalid) {
  EXPECT_EQ(test.checkSupported(nullptr, &listener, &log), INVALID);
  EXPECT_FALSE(test.isSupported(nullptr));
  EXPECT_TRUE(listener.events.empty());
}

TEST_F(ShortSelf, PrepareReturnsTheRefusalOfTheCheckAsItStands) {
  disk.setLocation(kLocationExternal);
  EXPECT_EQ(test.prepare(&disk, &listener, &log), NOT_APPLICABLE);
  EXPECT_EQ(listener.keyedEvents(), (std::vector<ProgressEvent>{{100, "TEST_NOT_SUPPORTED_IN_EXTERNAL_DEVICE"}}));
}

TEST_F(ShortSelf, AnObjectRunsAgainFromScratch) {
  scriptRun({{100, 3}});
  EXPECT_EQ(test.run(&context), FAILED);
  listener.events.clear();
  log.lines.clear();
  scriptRun({{100, 0}});
  EXPECT_EQ(test.run(&context), SUCCESS);
  EXPECT_TRUE(log.lines.empty());
  EXPECT_EQ(listener.events.back(), (ProgressEvent{100, ""}));
}

// --- The catalogue -----------------------------------------------------------------

TEST(SelfTestCatalogue, SelfTestsStandInTheirPlacesOfBothDiagnostics) {
  std::vector<uint32_t> quick;
  std::vector<uint32_t> extended;
  for (const CatalogueRow& row : catalogueRows()) {
    (row.diagnosticId == 1 ? quick : extended).push_back(row.testId);
    std::unique_ptr<::Test> made(row.create(ItemId(1, row.diagnosticId, row.testId)));
    ASSERT_NE(made, nullptr);
    EXPECT_EQ(made->getItemId(), ItemId(1, row.diagnosticId, row.testId));
    const uint64_t packed = ItemId(1, row.diagnosticId, row.testId).packedId;
    EXPECT_EQ(packed == ItemId(1, 1, 5).packedId, dynamic_cast<ShortSelfTest*>(made.get()) != nullptr);
    EXPECT_EQ(packed == ItemId(1, 1, 6).packedId, dynamic_cast<QuickDriveSelfTest*>(made.get()) != nullptr);
    EXPECT_EQ(packed == ItemId(1, 1, 7).packedId, dynamic_cast<DefaultSelfTest*>(made.get()) != nullptr);
    EXPECT_EQ(packed == ItemId(1, 2, 10).packedId, dynamic_cast<ExtendedSelfTest*>(made.get()) != nullptr);
  }
  // Each diagnostic lists its tests in ascending number: 1 to 7 then 11, and
  // 8, 9, 10, 12.
  EXPECT_TRUE(std::is_sorted(quick.begin(), quick.end()));
  EXPECT_TRUE(std::is_sorted(extended.begin(), extended.end()));
  for (uint32_t id : {5u, 6u, 7u}) EXPECT_EQ(std::count(quick.begin(), quick.end(), id), 1) << id;
  EXPECT_EQ(std::count(extended.begin(), extended.end(), 10u), 1);
}

// --- Whole runs on the simulated PC ---------------------------------------------------

class ShortSelfOnSimulatedMachine : public mstest::SelfTestDisks {
 protected:
  ShortSelfTest test{ItemId(1, 1, 5)};
};

TEST_F(ShortSelfOnSimulatedMachine, InternalHardDiskFailsAtItsFirstUnreadableSector) {
  installDefault();
  auto disk = ataDisk(kHdd0);
  mstest::ClockedRunContext context(disk.get(), &listener, &log);
  // The host's passes take no time: the machine's clock moves by the loop's
  // own reads of the tick counter and by the commands, as on a real PC.
  context.stepMs = 0;
  ASSERT_TRUE(test.isSupported(disk.get()));
  const uint64_t startMs = mstest::machineNowMs();
  EXPECT_EQ(test.run(&context), FAILED);
  EXPECT_EQ(log.lines, (std::vector<LogLine>{{"READ_ERROR_DETECTED", LevelFailure},
                                             {"READING_SECTOR 193536017", LevelFailure}}));
  EXPECT_EQ(listener.keyedEvents(), (std::vector<ProgressEvent>{{100, "READING_SECTOR 193536017"}}));
  ASSERT_FALSE(listener.events.empty());
  EXPECT_EQ(listener.events.front(), (ProgressEvent{0, ""}));
  EXPECT_EQ(listener.events.back(), (ProgressEvent{100, ""}));
  // The short test reads the first 200 000 000 sectors, and the sector lies
  // 97% into them: the poll after two minutes sees the failure (and a few
  // milliseconds of commands).
  EXPECT_GE(mstest::machineNowMs() - startMs, 120000u);
  EXPECT_LT(mstest::machineNowMs() - startMs, 122000u);
  // One pass of the loop per millisecond read.
  EXPECT_GE(context.passes, 119000u);
  EXPECT_FALSE(context.runaway);
}

TEST_F(ShortSelfOnSimulatedMachine, HealthySolidStateDiskPassesAfterItsTwoMinutes) {
  installDefault();
  auto disk = ataDisk(kSsd0);
  mstest::ClockedRunContext context(disk.get(), &listener, &log);
  ASSERT_TRUE(test.isSupported(disk.get()));
  EXPECT_EQ(test.run(&context), SUCCESS);
  EXPECT_TRUE(log.lines.empty());
  EXPECT_TRUE(listener.keyedEvents().empty());
  // A poll every ten seconds shows progress in tens, never 100.
  std::vector<uint8_t> percents;
  for (const ProgressEvent& event : listener.events) percents.push_back(event.percent);
  EXPECT_EQ(percents.front(), 0);
  EXPECT_GE(percents.size(), 12u);
  EXPECT_TRUE(std::is_sorted(percents.begin(), percents.end()));
  EXPECT_EQ(std::count(percents.begin(), percents.end(), 100), 2);
}

TEST_F(ShortSelfOnSimulatedMachine, SasDiskPassesItsBackgroundShortTest) {
  installDefault();
  auto disk = scsiDisk(kSas0);
  mstest::ClockedRunContext context(disk.get(), &listener, &log);
  ASSERT_TRUE(test.isSupported(disk.get()));
  EXPECT_EQ(test.run(&context), SUCCESS);
  EXPECT_TRUE(log.lines.empty());
  EXPECT_TRUE(listener.keyedEvents().empty());
}

TEST_F(ShortSelfOnSimulatedMachine, UserAbortStopsTheDrivesOwnTest) {
  installDefault();
  auto disk = ataDisk(kSsd0);
  mstest::ClockedRunContext context(disk.get(), &listener, &log);
  context.abortOnCall = 30;
  EXPECT_EQ(test.run(&context), ABORTED);
  // The drive's status now says "aborted by the host".
  uint8_t status = 0;
  ASSERT_EQ(disk->getProtocol()->getSelfTestStatus(&status), kStatusOk);
  EXPECT_EQ(status, 1);
}

}  // namespace
