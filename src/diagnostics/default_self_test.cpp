// The default self test: SCSI disks on a SCSI bus only, one command that
// returns when the drive is done, the verdict from its SCSI status, and the
// two abort checks that end the run without the closing event. Whole runs on
// simulated SAS disks, healthy and with an unreadable sector.
#include "diagnostics/default_self.h"

#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <vector>

#include "commands/scsi/scsi_cmd.h"
#include "diagnostics/self_test_test_support.h"
#include "protocols/scsi_protocol.h"
#include "testing/scripted_scsi_bridge.h"

namespace {

using mstest::LogLine;
using mstest::Op;
using mstest::ProgressEvent;

// The SCSI sense of a drive whose default self test failed: HARDWARE ERROR,
// LOGICAL UNIT FAILED SELF-TEST.
constexpr uint8_t kSenseKeyHardwareError = 0x04;
constexpr uint8_t kSenseKeyIllegalRequest = 0x05;
constexpr uint8_t kAscSelfTestFailed = 0x3E;
constexpr uint8_t kAscqSelfTestFailed = 0x03;
constexpr uint8_t kScsiStatusBusy = 0x08;
constexpr uint8_t kSendDiagnosticOpcode = 0x1D;
constexpr uint8_t kSelfTestBit = 0x04;

// The drive's answer to SEND DIAGNOSTIC once it has finished.
mstest::ScsiAnswer finishedWith(uint8_t scsiStatus, std::vector<uint8_t> sense = {}) {
  mstest::ScsiAnswer answer;
  answer.scsiStatus = scsiStatus;
  answer.sense = std::move(sense);
  return answer;
}

class DefaultSelf : public ::testing::Test {
 protected:
  DefaultSelf()
      : protocol(new ScsiProtocol()),
        bridge(std::make_shared<mstest::ScriptedScsiBridge>()),
        disk(std::unique_ptr<StorageProtocol>(protocol), nullptr),
        context(&disk, &listener, &log) {
    protocol->addTransport(bridge);
    protocol->setProtocolKind(kProtocolScsi);
    protocol->setBusKind(kBusScsi);
    disk.setLocation(kLocationInternal);
    disk.setBusKind(kBusScsi);
  }

  // The SEND DIAGNOSTIC commands that reached the drive.
  std::vector<mstest::SentScsi> starts() const {
    std::vector<mstest::SentScsi> found;
    for (const mstest::SentScsi& sent : bridge->sent) {
      if (sent.cdb[0] == kSendDiagnosticOpcode) found.push_back(sent);
    }
    return found;
  }

  ScsiProtocol* protocol;
  std::shared_ptr<mstest::ScriptedScsiBridge> bridge;
  StorageComponent disk;
  mstest::RecordingListener listener;
  mstest::RecordingLog log;
  mstest::ScriptedRunContext context;
  DefaultSelfTest test{ItemId(1, 1, 7)};
};

TEST_F(DefaultSelf, GoodStatusPassesWithTwoPlainClosingEvents) {
  bridge->queue(finishedWith(kScsiStatusGood));
  EXPECT_EQ(test.run(&context), SUCCESS);
  EXPECT_EQ(listener.events, (std::vector<ProgressEvent>{{100, ""}, {100, ""}}));
  EXPECT_TRUE(log.lines.empty());
  // SEND DIAGNOSTIC with the SELFTEST bit and self-test code 0.
  ASSERT_EQ(starts().size(), 1u);
  EXPECT_EQ(starts()[0].cdb[1], kSelfTestBit);
}

TEST_F(DefaultSelf, CheckConditionFailsTheDriveWithoutAKey) {
  bridge->queue(finishedWith(kScsiStatusCheckCondition,
                             mstest::fixedSense(kSenseKeyHardwareError, kAscSelfTestFailed, kAscqSelfTestFailed)));
  EXPECT_EQ(test.run(&context), FAILED);
  EXPECT_EQ(listener.events, (std::vector<ProgressEvent>{{100, ""}, {100, ""}}));
  EXPECT_TRUE(log.lines.empty());
}

TEST_F(DefaultSelf, OtherScsiStatusesPass) {
  bridge->queue(finishedWith(kScsiStatusBusy));
  EXPECT_EQ(test.run(&context), SUCCESS);
}

TEST_F(DefaultSelf, RefusedCommandCannotPerformSelfTestAtLevelTwo) {
  bridge->queue(finishedWith(kScsiStatusCheckCondition, mstest::fixedSense(kSenseKeyIllegalRequest, 0x24)));
  EXPECT_EQ(test.run(&context), NOT_APPLICABLE);
  EXPECT_EQ(listener.events, (std::vector<ProgressEvent>{{100, "CANNOT_PERFORM_SELF_TEST"}, {100, ""}}));
  EXPECT_EQ(log.lines, (std::vector<LogLine>{{"CANNOT_PERFORM_SELF_TEST", LevelFailure}}));
}

TEST_F(DefaultSelf, UserAbortBeforeTheStartEndsWithoutTheClosingEvent) {
  context.abortRequested = true;
  EXPECT_EQ(test.run(&context), ABORTED);
  EXPECT_EQ(listener.events, (std::vector<ProgressEvent>{{100, ""}}));  // checkAbort's own
  EXPECT_TRUE(starts().empty());
}

TEST_F(DefaultSelf, AbortAfterPrepareEndsWithoutTheClosingEventAndWithoutTheCommand) {
  context.abortOnCall = 2;
  EXPECT_EQ(test.run(&context), ABORTED);
  EXPECT_EQ(listener.events, (std::vector<ProgressEvent>{{100, ""}}));
  EXPECT_TRUE(starts().empty());
}

TEST_F(DefaultSelf, SystemEventAfterPrepareIsAnnouncedOnceAndEndsWithoutTheCommand) {
  context.systemEvents = 0x01;
  EXPECT_EQ(test.run(&context), ABORTED);
  EXPECT_EQ(listener.events, (std::vector<ProgressEvent>{{100, kKeySystemEventAbort}}));
  EXPECT_EQ(log.lines, (std::vector<LogLine>{{kKeySystemEventAbort, LevelInfo}}));
  EXPECT_TRUE(starts().empty());
}

TEST_F(DefaultSelf, NullContextIsInvalidAndSilent) {
  EXPECT_EQ(test.run(nullptr), INVALID);
  context.setLog(nullptr);
  EXPECT_EQ(test.run(&context), INVALID);
  EXPECT_TRUE(listener.events.empty());
  EXPECT_TRUE(starts().empty());
}

TEST_F(DefaultSelf, ExternalDiskIsRefusedAtLevelThreeAndTheClosingEventFollows) {
  disk.setLocation(kLocationExternal);
  EXPECT_EQ(test.run(&context), NOT_APPLICABLE);
  EXPECT_EQ(listener.events,
            (std::vector<ProgressEvent>{{100, "TEST_NOT_SUPPORTED_IN_EXTERNAL_DEVICE"}, {100, ""}}));
  EXPECT_EQ(log.lines, (std::vector<LogLine>{{"TEST_NOT_SUPPORTED_IN_EXTERNAL_DEVICE", LevelError}}));
  EXPECT_TRUE(starts().empty());
}

TEST_F(DefaultSelf, AtaProtocolOrAnotherBusIsADeviceRefusalAtLevelZero) {
  protocol->setProtocolKind(kProtocolAta);
  EXPECT_EQ(test.checkSupported(&disk, &listener, &log), NOT_APPLICABLE);
  protocol->setProtocolKind(kProtocolScsi);
  disk.setBusKind(kBusUsb);
  EXPECT_EQ(test.checkSupported(&disk, &listener, &log), NOT_APPLICABLE);
  EXPECT_EQ(log.lines, (std::vector<LogLine>{{"TEST_NOT_SUPPORTED_IN_THIS_DEVICE", LevelInfo},
                                             {"TEST_NOT_SUPPORTED_IN_THIS_DEVICE", LevelInfo}}));
  EXPECT_EQ(listener.keyedEvents(), (std::vector<ProgressEvent>{{100, "TEST_NOT_SUPPORTED_IN_THIS_DEVICE"},
                                                                {100, "TEST_NOT_SUPPORTED_IN_THIS_DEVICE"}}));
}

TEST_F(DefaultSelf, NullComponentOrProtocolIsInvalid) {
  EXPECT_EQ(test.checkSupported(nullptr, &listener, &log), INVALID);
  StorageComponent bare(nullptr, nullptr);
  EXPECT_EQ(test.checkSupported(&bare, &listener, &log), INVALID);
  EXPECT_EQ(test.prepare(&bare, &listener, &log), INVALID);
  EXPECT_TRUE(listener.events.empty());
}

TEST_F(DefaultSelf, IsSupportedOnAnExternalDiskIsFalseWithoutAnyEvent) {
  EXPECT_TRUE(test.isSupported(&disk));
  disk.setLocation(kLocationExternal);
  EXPECT_FALSE(test.isSupported(&disk));
  EXPECT_TRUE(listener.events.empty());
  EXPECT_TRUE(log.lines.empty());
}

TEST(DefaultSelfOnOtherProtocols, ProtocolObjectWithoutAScsiStatusPassesWhenItsCommandSucceeds) {
  auto* scripted = new mstest::ScriptedProtocol();
  scripted->setProtocolKind(kProtocolScsi);
  StorageComponent disk(std::unique_ptr<StorageProtocol>(scripted), nullptr);
  disk.setLocation(kLocationInternal);
  disk.setBusKind(kBusScsi);
  mstest::RecordingListener listener;
  mstest::RecordingLog log;
  mstest::ScriptedRunContext context(&disk, &listener, &log);
  DefaultSelfTest test(ItemId(1, 1, 7));
  EXPECT_EQ(test.run(&context), SUCCESS);
  ASSERT_EQ(scripted->count(Op::StartSelfTest), 1u);
  EXPECT_EQ(scripted->callsOf(Op::StartSelfTest)[0].first, 0u);
}

// --- Whole runs on the simulated PC ---------------------------------------------------

// One SAS disk whose default self test takes a minute, with an unreadable
// sector at `badLba` unless that is 0.
std::string sasDisk(uint64_t badLba) {
  std::string faults = badLba == 0 ? "" : R"(, "faults": {"unreadableSectors": [)" + std::to_string(badLba) + "]}";
  return R"({"name": "sas", "disks": [{"name": "sas", "kind": "scsi", "bus": "sas",
      "profile": {"vendor": "SEAGATE", "product": "ST4000NM0025", "serial": "ZC1A2B3C", "capacitySectors": 1000000,
                  "selfTest": {"shortSeconds": 90, "extendedSeconds": 600, "defaultSeconds": 60}})" +
         faults + "}]}";
}

class DefaultSelfOnSimulatedMachine : public mstest::SelfTestDisks {
 protected:
  DefaultSelfTest test{ItemId(1, 1, 7)};
};

TEST_F(DefaultSelfOnSimulatedMachine, HealthySasDiskPassesAndTheCommandHoldsForTheTestsLength) {
  installJson(sasDisk(0));
  auto disk = scsiDisk(0);
  mstest::ScriptedRunContext context(disk.get(), &listener, &log);
  ASSERT_TRUE(test.isSupported(disk.get()));
  const uint64_t startMs = mstest::machineNowMs();
  EXPECT_EQ(test.run(&context), SUCCESS);
  EXPECT_EQ(listener.events, (std::vector<ProgressEvent>{{100, ""}, {100, ""}}));
  EXPECT_EQ(mstest::machineNowMs() - startMs, 60000u);
}

TEST_F(DefaultSelfOnSimulatedMachine, SasDiskWithAnUnreadableSectorFailsOnCheckCondition) {
  installJson(sasDisk(250000));
  auto disk = scsiDisk(0);
  mstest::ScriptedRunContext context(disk.get(), &listener, &log);
  EXPECT_EQ(test.run(&context), FAILED);
  EXPECT_TRUE(log.lines.empty());
}

TEST_F(DefaultSelfOnSimulatedMachine, DefaultMachinesSasDiskPassesAndAtaDiskIsNotTaken) {
  installDefault();
  auto sas = scsiDisk(kSas0);
  mstest::ScriptedRunContext context(sas.get(), &listener, &log);
  EXPECT_EQ(test.run(&context), SUCCESS);
  auto hdd = ataDisk(kHdd0);
  EXPECT_FALSE(test.isSupported(hdd.get()));
}

}  // namespace
