// The LSI pass-through bridges against a scripted library: how each command
// is laid out in the buffer, and what comes back into it.
#include "raid/lsi/lsi_bridges.h"

#include <gtest/gtest.h>

#include <cstring>

#include "commands/ata/ata_commands.h"
#include "commands/scsi/read_write_commands.h"
#include "commands/scsi/scsi_commands.h"
#include "raid/lsi/lsi_test_support.h"

namespace {

using lsi_testing::putU32;
using lsi_testing::ScriptedLsiSender;

TEST(LsiSspBridge, TheBufferCarriesDeviceIdDirectionTimeoutAndCdbAndReadDataComesBack) {
  ScriptedLsiSender library;
  library.handlers[{6, kLsiSspPassThrough}] = [](LsiCmd& record, uint8_t* b) {
    std::memcpy(b + 64, "ABCDEFGH", 8);
    putU32(b + 60, 8);
    record.dataLength = 8;
    b[10] = 0;
    return 0u;
  };
  LsiSspBridge bridge(3, 0x0108, &library);
  EXPECT_EQ(bridge.getHandle(), lsiControllerHandle(3));
  uint8_t data[36] = {};
  Inquiry inquiry(data, 36, false, 0);
  ASSERT_EQ(bridge.send(inquiry), 0u);
  ASSERT_EQ(library.calls.size(), 1u);
  const auto& call = library.calls[0];
  EXPECT_EQ(call.record.commandClass, 6);
  EXPECT_EQ(call.record.commandCode, 0);
  EXPECT_EQ(call.record.controllerId, 3u);
  EXPECT_EQ(call.record.target, 0x0108);
  EXPECT_EQ(call.record.dataLength, 36u + 64u);
  const std::vector<uint8_t>& b = call.buffer;
  EXPECT_EQ(b[0], 0x08);
  EXPECT_EQ(b[1], 0x01);
  EXPECT_EQ(b[2], 1);
  EXPECT_EQ(b[4], 2);  // from the device
  EXPECT_EQ(b[8], 30);
  EXPECT_EQ(b[11], inquiry.cdbLength);
  EXPECT_EQ(b[12], 0x12);
  EXPECT_EQ(lsiU32(&b[60]), 36u);
  EXPECT_EQ(0, std::memcmp(data, "ABCDEFGH", 8));
  EXPECT_EQ(inquiry.dataLength, 8u);
  EXPECT_EQ(inquiry.senseLength, 0u);
}

TEST(LsiSspBridge, AFailedCallBringsBackThirtyTwoSenseBytesAndTheStatus) {
  ScriptedLsiSender library;
  library.handlers[{6, kLsiSspPassThrough}] = [](LsiCmd&, uint8_t* b) {
    b[10] = 2;
    b[28] = 0x70;
    b[30] = 0x03;
    b[59] = 0xEE;
    return 12u;
  };
  LsiSspBridge bridge(3, 1, &library);
  std::vector<uint8_t> sector(512, 0x11);
  Write10 write(sector.data(), 5, 1, 512);
  EXPECT_EQ(bridge.send(write), 12u);
  EXPECT_EQ(library.calls[0].buffer[4], 1);  // to the device
  EXPECT_EQ(library.calls[0].buffer[64], 0x11);
  EXPECT_EQ(write.senseLength, 32u);
  EXPECT_EQ(write.sense[0], 0x70);
  EXPECT_EQ(write.sense[2], 0x03);
  EXPECT_EQ(write.sense[31], 0xEE);
  EXPECT_EQ(write.scsiStatus, 2);
}

TEST(LsiSspBridge, WithoutASenderTheResultIsOneAndNothingIsReadBack) {
  LsiSspBridge bridge(3, 1, nullptr);
  uint8_t data[36];
  std::memset(data, 0x5A, sizeof(data));
  Inquiry inquiry(data, 36, false, 0);
  inquiry.scsiStatus = 0x77;
  EXPECT_EQ(bridge.send(inquiry), 1u);
  EXPECT_EQ(data[0], 0x5A);
  EXPECT_EQ(inquiry.scsiStatus, 0x77);
  LsiStpBridge stp(lsiControllerHandle(3), 1, nullptr);
  SmartReturnStatus smart;
  EXPECT_EQ(stp.send(smart), 1u);
}

TEST(LsiStpBridge, TheBufferCarriesFlagsAndTheFisWithoutTheDeviceRegisterAndTheAnswerComesBack) {
  ScriptedLsiSender library;
  library.handlers[{6, kLsiStpPassThrough}] = [](LsiCmd&, uint8_t* b) {
    uint8_t* in = b + 40;
    in[2] = 0x50;
    in[3] = 0x00;
    in[4] = 0x01;
    in[5] = 0x4F;
    in[6] = 0xC2;
    in[7] = 0xE0;
    in[12] = 0x09;
    return 0u;
  };
  LsiStpBridge bridge(lsiControllerHandle(2), 7, &library);
  SmartReturnStatus smart;
  smart.device = 0xA0;
  ASSERT_EQ(bridge.send(smart), 0u);
  const auto& call = library.calls[0];
  EXPECT_EQ(call.record.commandClass, 6);
  EXPECT_EQ(call.record.commandCode, 2);
  EXPECT_EQ(call.record.controllerId, 2u);
  EXPECT_EQ(call.record.target, 7);
  EXPECT_EQ(call.record.dataLength, 60u);
  const std::vector<uint8_t>& b = call.buffer;
  EXPECT_EQ(b[0], 7);
  EXPECT_EQ(b[1], 0);
  EXPECT_EQ(b[2], 30);
  EXPECT_EQ(lsiU32(&b[4]), 0x4u);
  EXPECT_EQ(b[8], 0x27);
  EXPECT_EQ(b[9] & 0x80, 0x80);
  EXPECT_EQ(b[10], 0xB0);
  EXPECT_EQ(b[11], 0xDA);
  EXPECT_EQ(b[13], 0x4F);
  EXPECT_EQ(b[14], 0xC2);
  EXPECT_EQ(b[15], 0x00);  // the device register is not carried
  EXPECT_EQ(lsiU32(&b[32]), 20u);
  EXPECT_EQ(smart.status(), 0x50);
  EXPECT_EQ(smart.lbaMid, 0x4F);
  EXPECT_EQ(smart.lbaHigh, 0xC2);
  EXPECT_EQ(smart.device, 0xE0);
  EXPECT_EQ(smart.sectorCount, 0x09);
}

TEST(LsiStpBridge, IdentifyAndOfflineCommandsCarryTheirExtraFlagsAndReadDataFollowsTheAnswerFis) {
  ScriptedLsiSender library;
  library.handlers[{6, kLsiStpPassThrough}] = [](LsiCmd& record, uint8_t* b) {
    if (record.dataLength < 60 + 512) return 0u;  // a non-data command
    putU32(b + 36, 512);
    for (int i = 0; i < 512; ++i) b[60 + i] = static_cast<uint8_t>(i);
    return 0u;
  };
  LsiStpBridge bridge(lsiControllerHandle(2), 7, &library);
  uint8_t block[512] = {};
  IdentifyDevice identify(block);
  ASSERT_EQ(bridge.send(identify), 0u);
  EXPECT_EQ(lsiU32(&library.calls[0].buffer[4]), 0x11u);
  EXPECT_EQ(library.calls[0].buffer[1], 2);
  EXPECT_EQ(identify.dataLength, 512u);
  EXPECT_EQ(block[1], 1);
  EXPECT_EQ(block[511], static_cast<uint8_t>(511));
  SmartExecuteOffline offline(1, 0);
  ASSERT_EQ(bridge.send(offline), 0u);
  EXPECT_EQ(lsiU32(&library.calls[1].buffer[4]), 0x104u);
}

TEST(LsiStpBridge, AnStpWriteCommandReachesTheDriveWithAnAllZeroDataArea) {
  ScriptedLsiSender library;
  library.handlers[{6, kLsiStpPassThrough}] = [](LsiCmd&, uint8_t*) { return 0u; };
  LsiStpBridge bridge(lsiControllerHandle(2), 7, &library);
  std::vector<uint8_t> sector(512, 0xA5);
  WriteSectorsExt write(100, 1, 512, sector.data());
  ASSERT_EQ(bridge.send(write), 0u);
  const std::vector<uint8_t>& b = library.calls[0].buffer;
  ASSERT_EQ(b.size(), 512u + 60u);
  EXPECT_EQ(b[1], 1);  // to the device
  EXPECT_EQ(lsiU32(&b[4]), 0x2u);
  EXPECT_EQ(lsiU32(&b[36]), 512u);
  for (size_t i = 60; i < b.size(); ++i) ASSERT_EQ(b[i], 0) << i;
}

TEST(LsiStpBridge, ALibraryFailureOrANonZeroResultByteIsThirtyFour) {
  ScriptedLsiSender library;
  library.handlers[{6, kLsiStpPassThrough}] = [](LsiCmd&, uint8_t* b) {
    b[28] = 1;
    b[42] = 0x51;
    return 0u;
  };
  LsiStpBridge bridge(lsiControllerHandle(2), 7, &library);
  SmartReturnStatus smart;
  EXPECT_EQ(bridge.send(smart), 34u);
  EXPECT_EQ(smart.status(), 0xB0);  // nothing is read back: the command register stays
  library.handlers[{6, kLsiStpPassThrough}] = [](LsiCmd&, uint8_t*) { return 5u; };
  EXPECT_EQ(bridge.send(smart), 34u);
}

TEST(LsiStpBridge, AnAnswerThatClaimsMoreDataThanTheBufferHoldsCopiesOnlyWhatFits) {
  ScriptedLsiSender library;
  library.handlers[{6, kLsiStpPassThrough}] = [](LsiCmd&, uint8_t* b) {
    putU32(b + 32, 0xFFFFFF00u);  // a wild answer-FIS length
    putU32(b + 36, 0x10000);
    return 0u;
  };
  LsiStpBridge bridge(lsiControllerHandle(2), 7, &library);
  uint8_t block[512];
  std::memset(block, 0xCC, sizeof(block));
  IdentifyDevice identify(block);
  EXPECT_EQ(bridge.send(identify), 0u);
  EXPECT_EQ(block[0], 0xCC);  // nothing lay behind the buffer to copy
}

}  // namespace
