// The SAT bridges on a scripted SCSI transport: what CDB goes down, and how
// the answer turns into the ATA record's registers, byte for byte.
#include "commands/bridges/sat_bridge.h"

#include <gtest/gtest.h>

#include <memory>
#include <vector>

#include "commands/ata/ata_commands.h"
#include "commands/scsi/sat_pass_through.h"
#include "commands/status_codes.h"
#include "testing/scripted_scsi_bridge.h"

namespace {

using mstest::ataStatusDescriptor;
using mstest::descriptorSense;
using mstest::fixedSense;
using mstest::ScriptedScsiBridge;
using mstest::ScsiAnswer;

DeviceHandle fakeHandle() { return reinterpret_cast<DeviceHandle>(0x1234); }

void expectAllRegistersZero(const AtaCmd& cmd) {
  EXPECT_EQ(cmd.features, 0);
  EXPECT_EQ(cmd.sectorCount, 0);
  EXPECT_EQ(cmd.sectorCountExt, 0);
  EXPECT_EQ(cmd.lbaLow, 0);
  EXPECT_EQ(cmd.lbaLowExt, 0);
  EXPECT_EQ(cmd.lbaMid, 0);
  EXPECT_EQ(cmd.lbaMidExt, 0);
  EXPECT_EQ(cmd.lbaHigh, 0);
  EXPECT_EQ(cmd.lbaHighExt, 0);
  EXPECT_EQ(cmd.device, 0);
  EXPECT_EQ(cmd.command, 0);
}

ScsiAnswer checkCondition(std::vector<uint8_t> sense) {
  ScsiAnswer answer;
  answer.scsiStatus = 2;
  answer.sense = std::move(sense);
  return answer;
}

TEST(SatBridge, GetHandleAsksTheTransport) {
  auto scsi = std::make_shared<ScriptedScsiBridge>(fakeHandle());
  SatBridgeWithCkCondition bridge(scsi);
  EXPECT_EQ(bridge.getHandle(), fakeHandle());
}

TEST(SatBridge, BridgeWhoseTransportIsGoneCarriesNothing) {
  std::weak_ptr<ScsiBridge> gone;
  {
    auto scsi = std::make_shared<ScriptedScsiBridge>(fakeHandle());
    gone = scsi;
  }
  SatBridgeWithCkCondition bridge(gone);
  EXPECT_EQ(bridge.getHandle(), nullptr);
  SmartReturnStatus status;
  EXPECT_EQ(bridge.send(status), kStatusBridgeCannotCarry);
}

TEST(SatBridge, KeepsItsTransportAlive) {
  std::weak_ptr<ScriptedScsiBridge> watch;
  std::unique_ptr<SatBridge> bridge;
  {
    auto scsi = std::make_shared<ScriptedScsiBridge>(fakeHandle());
    watch = scsi;
    bridge = std::make_unique<SatBridgeWithoutCkCond>(scsi);
  }
  EXPECT_FALSE(watch.expired());
  bridge.reset();
  EXPECT_TRUE(watch.expired());
}

TEST(SatBridge, CreatePassThroughChoosesSixteenBytesForFortyEightBitCommands) {
  auto scsi = std::make_shared<ScriptedScsiBridge>();
  SatBridgeWithCkCondition withCk(scsi);
  SatBridgeWithoutCkCond withoutCk(scsi);
  uint8_t data[512];
  ReadSectorsExt ext(1, 1, 512, data, 30);
  IdentifyDevice identify(data);

  ScsiCmd* out = nullptr;
  EXPECT_EQ(withCk.createPassThrough(ext, &out), 1u);
  std::unique_ptr<ScsiCmd> owned(out);
  ASSERT_NE(dynamic_cast<SatAtaPassThrough16*>(owned.get()), nullptr);
  EXPECT_EQ(owned->cdb[2] & 0x20, 0x20);

  EXPECT_EQ(withoutCk.createPassThrough(identify, &out), 1u);
  owned.reset(out);
  ASSERT_NE(dynamic_cast<SatAtaPassThrough12*>(owned.get()), nullptr);
  EXPECT_EQ(owned->cdb[2] & 0x20, 0);
}

TEST(SatBridge, IdentifyWithCkCondGoesAsTwelveBytePassThroughAndFillsTheBuffer) {
  auto scsi = std::make_shared<ScriptedScsiBridge>();
  SatBridgeWithCkCondition bridge(scsi);
  std::vector<uint8_t> data(512, 0);
  ScsiAnswer answer = checkCondition(descriptorSense(1, ataStatusDescriptor(0, 0, 0, 0, 0, 0xA0, 0x50)));
  answer.data.assign(512, 0x5A);
  scsi->queue(answer);
  IdentifyDevice identify(data.data());
  EXPECT_EQ(bridge.send(identify), kStatusOk);
  ASSERT_EQ(scsi->sent.size(), 1u);
  const uint8_t cdb[12] = {0xA1, 0x08, 0x6E, 0x00, 0x01, 0x00, 0x00, 0x00, 0x00, 0xEC, 0x00, 0x00};
  for (int i = 0; i < 12; ++i) EXPECT_EQ(scsi->sent[0].cdb[i], cdb[i]) << i;
  EXPECT_EQ(scsi->sent[0].cdbLength, 12);
  EXPECT_EQ(scsi->sent[0].dataLength, 512u);
  EXPECT_EQ(scsi->sent[0].direction, 1u);
  EXPECT_EQ(scsi->sent[0].buffer, data.data());
  EXPECT_EQ(identify.dataLength, 512u);
  for (uint8_t b : data) ASSERT_EQ(b, 0x5A);
}

TEST(SatBridge, WithoutOutputRegistersEveryRegisterIsZeroAfterSendStatusToo) {
  auto scsi = std::make_shared<ScriptedScsiBridge>();
  SatBridgeWithCkCondition bridge(scsi);
  std::vector<uint8_t> data(512);
  // The drive reports an error in the descriptor; nobody asked for it.
  ScsiAnswer answer = checkCondition(descriptorSense(1, ataStatusDescriptor(0x04, 1, 2, 3, 4, 0xA0, 0x51)));
  answer.data.assign(512, 1);
  scsi->queue(answer);
  IdentifyDevice identify(data.data());
  identify.featuresExt = 0x33;
  EXPECT_EQ(bridge.send(identify), kStatusOk);
  expectAllRegistersZero(identify);
  EXPECT_EQ(identify.featuresExt, 0x33);
}

TEST(SatBridge, SmartReturnStatusWithCkCondBringsTheSignatureBackFromTheDescriptor) {
  auto scsi = std::make_shared<ScriptedScsiBridge>();
  SatBridgeWithCkCondition bridge(scsi);
  std::vector<uint8_t> descriptor = ataStatusDescriptor(0x00, 0x00, 0x00, 0x4F, 0xC2, 0xA0, 0x50);
  descriptor[4] = 0x11;   // previous sector count
  descriptor[6] = 0x22;   // previous LBA low
  descriptor[8] = 0x33;   // previous LBA mid
  descriptor[10] = 0x44;  // previous LBA high
  scsi->queue(checkCondition(descriptorSense(1, descriptor)));
  SmartReturnStatus status;
  EXPECT_EQ(bridge.send(status), kStatusOk);
  const uint8_t cdb[12] = {0xA1, 0x06, 0x6C, 0xDA, 0x00, 0x00, 0x4F, 0xC2, 0x00, 0xB0, 0, 0};
  for (int i = 0; i < 12; ++i) EXPECT_EQ(scsi->sent[0].cdb[i], cdb[i]) << i;
  EXPECT_EQ(status.lbaMid, 0x4F);
  EXPECT_EQ(status.lbaHigh, 0xC2);
  EXPECT_EQ(status.command, 0x50);
  EXPECT_EQ(status.device, 0xA0);
  EXPECT_EQ(status.features, 0x00);
  // The previous-value bytes are not copied.
  EXPECT_EQ(status.sectorCountExt, 0);
  EXPECT_EQ(status.lbaLowExt, 0);
  EXPECT_EQ(status.lbaMidExt, 0);
  EXPECT_EQ(status.lbaHighExt, 0);
  EXPECT_EQ(status.dataLength, 0u);
}

TEST(SatBridge, ErrorAndCountComeBackFromTheDescriptor) {
  auto scsi = std::make_shared<ScriptedScsiBridge>();
  SatBridgeWithCkCondition bridge(scsi);
  scsi->queue(checkCondition(descriptorSense(1, ataStatusDescriptor(0x04, 0x07, 0x7F, 0x4F, 0xC2, 0x40, 0x51))));
  SmartExecuteOffline offline(0x7F, 0);
  EXPECT_EQ(bridge.send(offline), kStatusOk);
  EXPECT_EQ(offline.features, 0x04);
  EXPECT_EQ(offline.sectorCount, 0x07);
  EXPECT_EQ(offline.lbaLow, 0x7F);
  EXPECT_EQ(offline.device, 0x40);
  EXPECT_EQ(offline.command, 0x51);
}

TEST(SatBridge, GoodStatusWritesZerosIntoTheRegisters) {
  auto scsi = std::make_shared<ScriptedScsiBridge>();
  SatBridgeWithCkCondition bridge(scsi);
  ScsiAnswer good;
  good.sense = descriptorSense(1, ataStatusDescriptor(0, 0, 0, 0x4F, 0xC2, 0, 0x50));  // present but not looked at
  scsi->queue(good);
  SmartReturnStatus status;
  EXPECT_EQ(bridge.send(status), kStatusOk);
  expectAllRegistersZero(status);
}

TEST(SatBridge, ReadSectorsExtEndingWithMediumErrorGivesStatusOneAndErrorUnc) {
  auto scsi = std::make_shared<ScriptedScsiBridge>();
  SatBridgeWithCkCondition bridge(scsi);
  scsi->queue(checkCondition(fixedSense(3, 0x11, 0x04)));
  std::vector<uint8_t> data(4096);
  ReadSectorsExt read(0x0000123456789ABCull, 8, 512, data.data(), 5);
  EXPECT_EQ(bridge.send(read), kStatusOk);
  EXPECT_EQ(read.command, 0x01);
  EXPECT_EQ(read.features, 0x40);
  EXPECT_EQ(scsi->sent[0].cdbLength, 16);
  EXPECT_EQ(scsi->sent[0].cdb[0], 0x85);
  EXPECT_EQ(scsi->sent[0].timeoutSeconds, 30u);
  EXPECT_EQ(scsi->sent.size(), 1u);  // no request for the registers
}

TEST(SatBridge, ReadWithHardwareErrorGivesDeviceFault) {
  auto scsi = std::make_shared<ScriptedScsiBridge>();
  SatBridgeWithoutCkCond bridge(scsi);
  scsi->queue(checkCondition(descriptorSense(4, {})));
  std::vector<uint8_t> data(512);
  ReadSectors read(5, 1, 512, data.data(), 30);
  EXPECT_EQ(bridge.send(read), kStatusOk);
  EXPECT_EQ(read.command, 0x20);
  EXPECT_EQ(read.features, 0x00);
  EXPECT_EQ(scsi->sent.size(), 1u);
}

TEST(SatBridge, ReadWithIllegalRequestGivesIdnf) {
  auto scsi = std::make_shared<ScriptedScsiBridge>();
  SatBridgeWithCkCondition bridge(scsi);
  scsi->queue(checkCondition(fixedSense(5, 0x21, 0x00)));
  AtaCmd verify;
  verify.command = 0x42;
  verify.wantsOutputRegisters = true;
  EXPECT_EQ(bridge.send(verify), kStatusOk);
  EXPECT_EQ(verify.command, 0x01);
  EXPECT_EQ(verify.features, 0x10);
}

TEST(SatBridge, ReadWithAnyOtherKeyOrUnreadableSenseLeavesZeros) {
  for (auto sense : {fixedSense(6), fixedSense(1), std::vector<uint8_t>(18, 0)}) {
    auto scsi = std::make_shared<ScriptedScsiBridge>();
    SatBridgeWithCkCondition bridge(scsi);
    scsi->queue(checkCondition(sense));
    AtaCmd verify;
    verify.command = 0x40;
    verify.wantsOutputRegisters = true;
    EXPECT_EQ(bridge.send(verify), kStatusOk);
    expectAllRegistersZero(verify);
  }
}

TEST(SatBridge, ReadWithoutSenseLeavesZerosEvenOnCheckCondition) {
  auto scsi = std::make_shared<ScriptedScsiBridge>();
  SatBridgeWithCkCondition bridge(scsi);
  ScsiAnswer answer = checkCondition(fixedSense(3));
  answer.senseLength = 0;
  scsi->queue(answer);
  std::vector<uint8_t> data(512);
  ReadSectors read(0, 1, 512, data.data(), 30);
  EXPECT_EQ(bridge.send(read), kStatusOk);
  expectAllRegistersZero(read);
}

TEST(SatBridge, ReadClassDecidedBeforeTheRecordIsCleared) {
  // The record is cleared after the send; the read class must have been noted
  // before, or the sense key would be ignored.
  auto scsi = std::make_shared<ScriptedScsiBridge>();
  SatBridgeWithCkCondition bridge(scsi);
  scsi->queue(checkCondition(fixedSense(3)));
  std::vector<uint8_t> data(512);
  ReadSectors read(0, 1, 512, data.data(), 30);
  bridge.send(read);
  EXPECT_EQ(read.features, 0x40);
}

TEST(SatBridge, FailingTransportGivesItsStatusWithTheRecordAlreadyCleared) {
  auto scsi = std::make_shared<ScriptedScsiBridge>();
  SatBridgeWithCkCondition bridge(scsi);
  ScsiAnswer refused;
  refused.status = kStatusIoctlFailed;
  scsi->queue(refused);
  std::vector<uint8_t> data(512);
  ReadSectorsExt read(0x010203040506ull, 0x0102, 512, data.data(), 30);
  read.featuresExt = 0x77;
  EXPECT_EQ(bridge.send(read), kStatusIoctlFailed);
  expectAllRegistersZero(read);
  EXPECT_EQ(read.dataLength, 0u);
  EXPECT_EQ(read.featuresExt, 0x77);
  // What else the record held stays.
  EXPECT_EQ(read.direction, 1u);
  EXPECT_EQ(read.buffer, data.data());
  EXPECT_TRUE(read.wantsOutputRegisters);
}

TEST(SatBridge, TransferredLengthIsKeptWhenNotZero) {
  auto scsi = std::make_shared<ScriptedScsiBridge>();
  SatBridgeWithCkCondition bridge(scsi);
  ScsiAnswer shortRead;
  shortRead.data.assign(1024, 7);
  scsi->queue(shortRead);
  std::vector<uint8_t> data(4096);
  ReadSectorsExt read(0, 8, 512, data.data(), 30);
  EXPECT_EQ(bridge.send(read), kStatusOk);
  EXPECT_EQ(read.dataLength, 1024u);
}

TEST(SatBridge, NothingTransferredLeavesDataLengthCleared) {
  auto scsi = std::make_shared<ScriptedScsiBridge>();
  SatBridgeWithCkCondition bridge(scsi);
  scsi->queue(checkCondition(fixedSense(3)));
  std::vector<uint8_t> data(512);
  ReadSectors read(0, 1, 512, data.data(), 30);
  EXPECT_EQ(bridge.send(read), kStatusOk);
  EXPECT_EQ(read.dataLength, 0u);
}

TEST(SatBridgeWithCkCondition, SenseOfAdditionalLengthOneGivesSeventySeven) {
  SatBridgeWithCkCondition bridge(std::make_shared<ScriptedScsiBridge>());
  ScsiCmd scsi;
  scsi.sense[0] = 0x72;
  scsi.sense[7] = 1;
  scsi.sense[8] = 0x09;
  AtaStatusDescriptor out{};
  EXPECT_EQ(bridge.readOutputRegisters(scsi, &out), kStatusNoStatusDescriptor);
}

TEST(SatBridgeWithCkCondition, SendWithSenseOfAdditionalLengthOneLeavesZerosAndSucceeds) {
  auto scsi = std::make_shared<ScriptedScsiBridge>();
  SatBridgeWithCkCondition bridge(scsi);
  std::vector<uint8_t> sense = descriptorSense(1, ataStatusDescriptor(0, 0, 0, 0x4F, 0xC2, 0, 0x50));
  sense[7] = 1;
  scsi->queue(checkCondition(sense));
  SmartReturnStatus status;
  EXPECT_EQ(bridge.send(status), kStatusOk);
  expectAllRegistersZero(status);
}

TEST(SatBridgeWithCkCondition, FirstDescriptorOfAnotherKindIsSkippedByItsOwnLength) {
  SatBridgeWithCkCondition bridge(std::make_shared<ScriptedScsiBridge>());
  std::vector<uint8_t> descriptors = {0x02, 0x06, 0x00, 0x00, 0x09, 0x0C, 0x00, 0x00};  // type 2, 8 bytes
  const std::vector<uint8_t> status = ataStatusDescriptor(0, 1, 2, 0x4F, 0xC2, 0xA0, 0x50);
  descriptors.insert(descriptors.end(), status.begin(), status.end());
  const std::vector<uint8_t> sense = descriptorSense(1, descriptors);
  ScsiCmd scsi;
  std::copy(sense.begin(), sense.end(), scsi.sense.begin());
  AtaStatusDescriptor out{};
  ASSERT_EQ(bridge.readOutputRegisters(scsi, &out), kStatusOk);
  EXPECT_EQ(out.descriptorCode, 9);
  EXPECT_EQ(out.sectorCount, 1);
  EXPECT_EQ(out.lbaLow, 2);
  EXPECT_EQ(out.lbaMid, 0x4F);
  EXPECT_EQ(out.lbaHigh, 0xC2);
  EXPECT_EQ(out.device, 0xA0);
  EXPECT_EQ(out.status, 0x50);
}

TEST(SatBridgeWithCkCondition, NoStatusDescriptorWithinTheAdditionalLengthGivesSeventySeven) {
  SatBridgeWithCkCondition bridge(std::make_shared<ScriptedScsiBridge>());
  ScsiCmd scsi;
  const std::vector<uint8_t> sense = descriptorSense(1, {0x02, 0x06, 0, 0, 0, 0, 0, 0});
  std::copy(sense.begin(), sense.end(), scsi.sense.begin());
  scsi.sense[16] = 0x09;  // beyond L = 15
  AtaStatusDescriptor out{};
  EXPECT_EQ(bridge.readOutputRegisters(scsi, &out), kStatusNoStatusDescriptor);
}

TEST(SatBridgeWithCkCondition, DescriptorThatWouldRunPastTheSenseBytesGivesSeventySeven) {
  SatBridgeWithCkCondition bridge(std::make_shared<ScriptedScsiBridge>());
  ScsiCmd scsi;
  scsi.sense[0] = 0x72;
  scsi.sense[7] = 0xFF;  // claims far more than 32 bytes
  scsi.sense[8] = 0x01;
  scsi.sense[9] = 14;     // next descriptor at 24; 24 + 14 > 32
  scsi.sense[24] = 0x09;
  scsi.sense[25] = 0x0C;
  AtaStatusDescriptor out{};
  out.status = 0xEE;
  EXPECT_EQ(bridge.readOutputRegisters(scsi, &out), kStatusNoStatusDescriptor);
  EXPECT_EQ(out.status, 0xEE);
  for (uint8_t length : {0, 1, 0xFE, 0xFF}) {  // every walk ends inside the 32 bytes
    ScsiCmd walk;
    walk.sense[0] = 0x72;
    walk.sense[7] = 0xFF;
    for (size_t i = 8; i < 32; i += 2) walk.sense[i + 1] = length;
    walk.sense[8] = 0x01;
    EXPECT_EQ(bridge.readOutputRegisters(walk, &out), kStatusNoStatusDescriptor) << int{length};
  }
}

TEST(SatBridgeWithoutCkCond, GoodStatusLeavesEveryRegisterZeroAndAsksNothingMore) {
  auto scsi = std::make_shared<ScriptedScsiBridge>();
  SatBridgeWithoutCkCond bridge(scsi);
  scsi->queue(ScsiAnswer{});
  SmartReturnStatus status;
  EXPECT_EQ(bridge.send(status), kStatusOk);
  expectAllRegistersZero(status);
  ASSERT_EQ(scsi->sent.size(), 1u);
  EXPECT_EQ(scsi->sent[0].cdb[2], 0x4C);  // no CK_COND
}

TEST(SatBridgeWithoutCkCond, CheckConditionFetchesTheRegistersWithReturnResponseInformation) {
  auto scsi = std::make_shared<ScriptedScsiBridge>();
  SatBridgeWithoutCkCond bridge(scsi);
  scsi->queue(checkCondition(fixedSense(1)));
  ScsiAnswer registers;
  registers.data = ataStatusDescriptor(0x00, 0x00, 0x00, 0x2C, 0xF4, 0xA0, 0x50);
  scsi->queue(registers);
  SmartReturnStatus status;
  EXPECT_EQ(bridge.send(status), kStatusOk);
  ASSERT_EQ(scsi->sent.size(), 2u);
  const uint8_t cdb[12] = {0xA1, 0x1E, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0};
  for (int i = 0; i < 16; ++i) EXPECT_EQ(scsi->sent[1].cdb[i], i < 12 ? cdb[i] : 0) << i;
  EXPECT_EQ(scsi->sent[1].cdbLength, 12);
  EXPECT_EQ(scsi->sent[1].dataLength, 14u);
  EXPECT_EQ(scsi->sent[1].direction, 1u);
  EXPECT_EQ(status.lbaMid, 0x2C);
  EXPECT_EQ(status.lbaHigh, 0xF4);
  EXPECT_EQ(status.command, 0x50);
  EXPECT_EQ(status.device, 0xA0);
}

TEST(SatBridgeWithoutCkCond, ReadOutputRegistersReportsEachFailure) {
  auto scsi = std::make_shared<ScriptedScsiBridge>();
  SatBridgeWithoutCkCond bridge(scsi);
  ScsiCmd unused;
  AtaStatusDescriptor out{};

  ScsiAnswer refused;
  refused.status = kStatusIoctlFailed;
  scsi->queue(refused);
  EXPECT_EQ(bridge.readOutputRegisters(unused, &out), kStatusIoctlFailed);

  scsi->queue(checkCondition(fixedSense(5)));
  EXPECT_EQ(bridge.readOutputRegisters(unused, &out), kStatusScsiNotGood);

  ScsiAnswer wrongCode;
  wrongCode.data = ataStatusDescriptor(0, 0, 0, 0x4F, 0xC2, 0, 0x50);
  wrongCode.data[0] = 0x0A;
  scsi->queue(wrongCode);
  EXPECT_EQ(bridge.readOutputRegisters(unused, &out), kStatusNoStatusDescriptor);

  ScsiAnswer wrongLength;
  wrongLength.data = ataStatusDescriptor(0, 0, 0, 0x4F, 0xC2, 0, 0x50);
  wrongLength.data[1] = 0x0E;
  scsi->queue(wrongLength);
  EXPECT_EQ(bridge.readOutputRegisters(unused, &out), kStatusNoStatusDescriptor);
}

TEST(SatBridgeWithoutCkCond, FailedRegisterRequestLeavesZerosAndIsNotReported) {
  auto scsi = std::make_shared<ScriptedScsiBridge>();
  SatBridgeWithoutCkCond bridge(scsi);
  scsi->queue(checkCondition(fixedSense(1)));
  ScsiAnswer garbage;
  garbage.data = {0x70, 0x00, 0x05, 0x4F, 0xC2, 0x11, 0x22, 0x33, 0x44, 0x55, 0x66, 0x77, 0x88, 0x99};
  scsi->queue(garbage);
  SmartReturnStatus status;
  EXPECT_EQ(bridge.send(status), kStatusOk);
  expectAllRegistersZero(status);
}

}  // namespace
