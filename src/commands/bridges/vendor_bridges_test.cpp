// The JMicron and Sunplus bridges on a scripted SCSI transport.
#include "commands/bridges/vendor_bridges.h"

#include <gtest/gtest.h>

#include <memory>
#include <vector>

#include "commands/ata/ata_commands.h"
#include "commands/status_codes.h"
#include "testing/scripted_scsi_bridge.h"

namespace {

using mstest::ScriptedScsiBridge;
using mstest::ScsiAnswer;

DeviceHandle fakeHandle() { return reinterpret_cast<DeviceHandle>(0x2468); }

ScsiAnswer identifyAnswer(uint8_t fill, size_t bytes = 512) {
  ScsiAnswer answer;
  answer.data.assign(bytes, fill);
  return answer;
}

TEST(JMicronBridge, IdentifyDeviceGivesZeroAndFillsTheBuffer) {
  auto scsi = std::make_shared<ScriptedScsiBridge>(fakeHandle());
  JMicronBridge bridge(scsi);
  scsi->queue(identifyAnswer(0x3C));
  std::vector<uint8_t> data(512, 0);
  IdentifyDevice identify(data.data());
  EXPECT_EQ(bridge.send(identify), kStatusOk);
  ASSERT_EQ(scsi->sent.size(), 1u);
  const uint8_t cdb[12] = {0xDF, 0x10, 0x00, 0x02, 0x00, 0x00, 0x01, 0x00, 0x00, 0x00, 0xA0, 0xEC};
  for (int i = 0; i < 12; ++i) EXPECT_EQ(scsi->sent[0].cdb[i], cdb[i]) << i;
  EXPECT_EQ(scsi->sent[0].cdbLength, 12);
  EXPECT_EQ(scsi->sent[0].dataLength, 512u);
  EXPECT_EQ(scsi->sent[0].direction, 1u);
  EXPECT_EQ(identify.dataLength, 512u);
  for (uint8_t b : data) ASSERT_EQ(b, 0x3C);
  // No registers come back.
  EXPECT_EQ(identify.command, 0xEC);
  EXPECT_EQ(bridge.getHandle(), fakeHandle());
}

TEST(JMicronBridge, AnyOtherCommandGivesFourWithoutTouchingTheDevice) {
  auto scsi = std::make_shared<ScriptedScsiBridge>();
  JMicronBridge bridge(scsi);
  std::vector<uint8_t> data(512);
  SmartReturnStatus status;
  SmartReadData smart(data.data());
  ReadSectors read(0, 1, 512, data.data(), 30);
  EXPECT_EQ(bridge.send(status), kStatusBridgeCannotCarry);
  EXPECT_EQ(bridge.send(smart), kStatusBridgeCannotCarry);
  EXPECT_EQ(bridge.send(read), kStatusBridgeCannotCarry);
  EXPECT_TRUE(scsi->sent.empty());
  EXPECT_EQ(status.lbaMid, 0x4F);  // the record is untouched
}

TEST(JMicronBridge, ShortIdentifyReportsTheReturnedLength) {
  auto scsi = std::make_shared<ScriptedScsiBridge>();
  JMicronBridge bridge(scsi);
  scsi->queue(identifyAnswer(0x01, 256));
  std::vector<uint8_t> data(512, 0xCC);
  IdentifyDevice identify(data.data());
  EXPECT_EQ(bridge.send(identify), kStatusOk);
  EXPECT_EQ(identify.dataLength, 256u);
  EXPECT_EQ(data[255], 0x01);
  EXPECT_EQ(data[256], 0xCC);
}

TEST(JMicronBridge, CheckConditionGivesThirtyThreeAndAFailedSendItsStatus) {
  auto scsi = std::make_shared<ScriptedScsiBridge>();
  JMicronBridge bridge(scsi);
  ScsiAnswer check;
  check.scsiStatus = 2;
  scsi->queue(check);
  ScsiAnswer refused;
  refused.status = kStatusIoctlFailed;
  scsi->queue(refused);
  std::vector<uint8_t> data(512);
  IdentifyDevice identify(data.data());
  EXPECT_EQ(bridge.send(identify), kStatusScsiNotGood);
  IdentifyDevice again(data.data());
  EXPECT_EQ(bridge.send(again), kStatusIoctlFailed);
}

TEST(JMicronBridge, WithoutItsTransportCarriesNothing) {
  JMicronBridge bridge(std::weak_ptr<ScsiBridge>{});
  std::vector<uint8_t> data(512);
  IdentifyDevice identify(data.data());
  EXPECT_EQ(bridge.getHandle(), nullptr);
  EXPECT_EQ(bridge.send(identify), kStatusBridgeCannotCarry);
}

TEST(SunplusBridge, IdentifyDeviceSendsOnePassThroughAndFillsTheBuffer) {
  auto scsi = std::make_shared<ScriptedScsiBridge>(fakeHandle());
  SunplusBridge bridge(scsi);
  scsi->queue(identifyAnswer(0x7E));
  std::vector<uint8_t> data(512, 0);
  IdentifyDevice identify(data.data());
  EXPECT_EQ(bridge.send(identify), kStatusOk);
  ASSERT_EQ(scsi->sent.size(), 1u);  // no preset for a 28-bit command
  const uint8_t cdb[12] = {0xF8, 0x00, 0x22, 0x10, 0x01, 0x00, 0x01, 0x00, 0x00, 0x00, 0x00, 0xEC};
  for (int i = 0; i < 12; ++i) EXPECT_EQ(scsi->sent[0].cdb[i], cdb[i]) << i;
  EXPECT_EQ(scsi->sent[0].dataLength, 512u);
  for (uint8_t b : data) ASSERT_EQ(b, 0x7E);
  EXPECT_EQ(bridge.getHandle(), fakeHandle());
}

TEST(SunplusBridge, DataLengthStaysAsItWasAfterAShortTransfer) {
  auto scsi = std::make_shared<ScriptedScsiBridge>();
  SunplusBridge bridge(scsi);
  scsi->queue(identifyAnswer(0x01, 100));
  std::vector<uint8_t> data(512);
  IdentifyDevice identify(data.data());
  EXPECT_EQ(bridge.send(identify), kStatusOk);
  EXPECT_EQ(identify.dataLength, 512u);
}

TEST(SunplusBridge, AnyOtherCommandGivesFourSoThePresetNeverRuns) {
  auto scsi = std::make_shared<ScriptedScsiBridge>();
  SunplusBridge bridge(scsi);
  std::vector<uint8_t> data(512);
  ReadSectorsExt read(1, 1, 512, data.data(), 30);
  SmartReturnStatus status;
  EXPECT_EQ(bridge.send(read), kStatusBridgeCannotCarry);
  EXPECT_EQ(bridge.send(status), kStatusBridgeCannotCarry);
  EXPECT_TRUE(scsi->sent.empty());
}

TEST(SunplusBridge, CheckConditionGivesThirtyThreeAndAFailedSendItsStatus) {
  auto scsi = std::make_shared<ScriptedScsiBridge>();
  SunplusBridge bridge(scsi);
  ScsiAnswer check;
  check.scsiStatus = 2;
  scsi->queue(check);
  std::vector<uint8_t> data(512);
  IdentifyDevice identify(data.data());
  EXPECT_EQ(bridge.send(identify), kStatusScsiNotGood);
  EXPECT_EQ(bridge.send(identify), kStatusIoctlFailed);  // nothing more scripted: refused
}

}  // namespace
