// Every ATA command class, field by field: each test states the whole record
// the constructor must leave, so a stray byte in any register fails.
#include "commands/ata/ata_commands.h"

#include <gtest/gtest.h>

#include <memory>

namespace {

// The record a constructor is expected to leave, all fields at their zero
// (and 30 s) unless a test sets them.
struct Expected {
  uint8_t features = 0, featuresExt = 0, sectorCount = 0, sectorCountExt = 0;
  uint8_t lbaLow = 0, lbaLowExt = 0, lbaMid = 0, lbaMidExt = 0, lbaHigh = 0, lbaHighExt = 0;
  uint8_t device = 0, command = 0;
  uint32_t direction = 0;
  uint64_t dataLength = 0;
  uint32_t timeoutSeconds = 30;
  void* buffer = nullptr;
  bool wantsOutputRegisters = false;
};

void expectRecord(const AtaCmd& cmd, const Expected& e) {
  EXPECT_EQ(cmd.features, e.features);
  EXPECT_EQ(cmd.featuresExt, e.featuresExt);
  EXPECT_EQ(cmd.sectorCount, e.sectorCount);
  EXPECT_EQ(cmd.sectorCountExt, e.sectorCountExt);
  EXPECT_EQ(cmd.lbaLow, e.lbaLow);
  EXPECT_EQ(cmd.lbaLowExt, e.lbaLowExt);
  EXPECT_EQ(cmd.lbaMid, e.lbaMid);
  EXPECT_EQ(cmd.lbaMidExt, e.lbaMidExt);
  EXPECT_EQ(cmd.lbaHigh, e.lbaHigh);
  EXPECT_EQ(cmd.lbaHighExt, e.lbaHighExt);
  EXPECT_EQ(cmd.device, e.device);
  EXPECT_EQ(cmd.command, e.command);
  EXPECT_EQ(cmd.direction, e.direction);
  EXPECT_EQ(cmd.dataLength, e.dataLength);
  EXPECT_EQ(cmd.timeoutSeconds, e.timeoutSeconds);
  EXPECT_EQ(cmd.buffer, e.buffer);
  EXPECT_EQ(cmd.wantsOutputRegisters, e.wantsOutputRegisters);
}

Expected smart(uint8_t feature) {
  Expected e;
  e.command = 0xB0;
  e.features = feature;
  e.lbaMid = 0x4F;
  e.lbaHigh = 0xC2;
  return e;
}

uint8_t buf[4096];

TEST(AtaCommands, IdentifyDeviceReadsOneBlock) {
  Expected e;
  e.command = 0xEC;
  e.sectorCount = 1;
  e.direction = 1;
  e.dataLength = 512;
  e.buffer = buf;
  expectRecord(IdentifyDevice(buf), e);
}

TEST(AtaCommands, ReadLogExtSplitsCountAndFirstPageAcrossBothRegisterSets) {
  Expected e;
  e.command = 0x2F;
  e.sectorCount = 0x02;
  e.sectorCountExt = 0x01;
  e.lbaLow = 0xE0;
  e.lbaMid = 0x34;
  e.lbaMidExt = 0x12;
  e.direction = 1;
  e.dataLength = 0x0102 * 512;
  e.buffer = buf;
  expectRecord(ReadLogExt(0xE0, 0x0102, buf, 0x1234), e);
}

TEST(AtaCommands, ReadLogExtAlwaysLeavesLbaLowExtAndLbaHighExtZero) {
  ReadLogExt cmd(0xFF, 0xFFFF, buf, 0xFFFF);
  EXPECT_EQ(cmd.lbaLowExt, 0);
  EXPECT_EQ(cmd.lbaHighExt, 0);
  EXPECT_EQ(cmd.lbaHigh, 0);
  EXPECT_EQ(cmd.dataLength, 0xFFFFull * 512);
}

TEST(AtaCommands, SmartReadLogCarriesSignatureAndLogAddress) {
  Expected e = smart(0xD5);
  e.sectorCount = 3;
  e.lbaLow = 0x06;
  e.direction = 1;
  e.dataLength = 3 * 512;
  e.buffer = buf;
  expectRecord(SmartReadLog(0x06, 3, buf), e);
}

TEST(AtaCommands, SmartEnableUsesD8ToEnableAndD9ToDisableWithoutOutputRegisters) {
  expectRecord(SmartEnable(true), smart(0xD8));
  expectRecord(SmartEnable(false), smart(0xD9));
}

TEST(AtaCommands, SmartEnableAndReadLogClassesDoNotAskForOutputRegisters) {
  EXPECT_FALSE(SmartEnable(true).wantsOutputRegisters);
  EXPECT_FALSE(SmartEnable(false).wantsOutputRegisters);
  EXPECT_FALSE(SmartReadLog(1, 1, buf).wantsOutputRegisters);
  EXPECT_FALSE(ReadLogExt(1, 1, buf, 0).wantsOutputRegisters);
  EXPECT_FALSE(IdentifyDevice(buf).wantsOutputRegisters);
}

TEST(AtaCommands, SmartReadDataReadsOneBlockAndWantsRegisters) {
  Expected e = smart(0xD0);
  e.sectorCount = 1;
  e.direction = 1;
  e.dataLength = 512;
  e.buffer = buf;
  e.wantsOutputRegisters = true;
  expectRecord(SmartReadData(buf), e);
}

TEST(AtaCommands, SmartReadWarrantyThresholdsReadsOneBlockAndWantsRegisters) {
  Expected e = smart(0xD1);
  e.sectorCount = 1;
  e.direction = 1;
  e.dataLength = 512;
  e.buffer = buf;
  e.wantsOutputRegisters = true;
  expectRecord(SmartReadWarrantyThresholds(buf), e);
}

TEST(AtaCommands, SmartExecuteOfflinePutsSubcommandInLbaLowAndCountInSectorCount) {
  Expected e = smart(0xD4);
  e.lbaLow = 0x02;
  e.sectorCount = 5;
  e.wantsOutputRegisters = true;
  expectRecord(SmartExecuteOffline(0x02, 5), e);
}

TEST(AtaCommands, SmartExecuteOfflineWithSubcommand7FAndCountZeroIsTheSelfTestAbort) {
  Expected e = smart(0xD4);
  e.lbaLow = 0x7F;
  e.wantsOutputRegisters = true;
  expectRecord(SmartExecuteOffline(kSmartOfflineAbort, 0), e);
}

TEST(AtaCommands, SmartReturnStatusIsNonDataAndWantsRegisters) {
  Expected e = smart(0xDA);
  e.wantsOutputRegisters = true;
  expectRecord(SmartReturnStatus(), e);
}

TEST(AtaCommands, ReadSectorsSendsBitsZeroToTwentyThreeWithDevice40AndTheCallersTimeout) {
  Expected e;
  e.command = 0x20;
  e.sectorCount = 8;
  e.lbaLow = 0x56;
  e.lbaMid = 0x34;
  e.lbaHigh = 0x12;
  e.device = 0x40;
  e.direction = 1;
  e.dataLength = 8 * 4096;
  e.timeoutSeconds = 7;
  e.buffer = buf;
  e.wantsOutputRegisters = true;
  expectRecord(ReadSectors(0x0A123456, 8, 4096, buf, 7), e);
}

TEST(AtaCommands, ReadSectorsAtTwoToTheTwentyFourSendsTheSameRegistersAsAddressZero) {
  ReadSectors high(1ull << 24, 1, 512, buf, 30);
  ReadSectors zero(0, 1, 512, buf, 30);
  Expected e;
  e.command = 0x20;
  e.sectorCount = 1;
  e.device = 0x40;
  e.direction = 1;
  e.dataLength = 512;
  e.buffer = buf;
  e.wantsOutputRegisters = true;
  expectRecord(high, e);
  expectRecord(zero, e);
}

TEST(AtaCommands, ReadSectorsNeverPutsAddressBitsIntoTheDeviceRegister) {
  ReadSectors cmd(0x0FFFFFFF, 1, 512, buf, 30);
  EXPECT_EQ(cmd.device, 0x40);
  WriteSectors write(0x0FFFFFFF, 1, 512, buf);
  EXPECT_EQ(write.device, 0x40);
}

TEST(AtaCommands, ReadSectorsOfZeroSectorsHasNoLengthButStillReadsIn) {
  ReadSectors cmd(5, 0, 512, buf, 30);
  EXPECT_EQ(cmd.dataLength, 0u);
  EXPECT_EQ(cmd.direction, 1u);
}

TEST(AtaCommands, ReadSectorsExtSendsFortyEightBitsAndSixteenBitCount) {
  Expected e;
  e.command = 0x24;
  e.sectorCount = 0x00;
  e.sectorCountExt = 0x01;
  e.lbaLow = 0xBC;
  e.lbaMid = 0x9A;
  e.lbaHigh = 0x78;
  e.lbaLowExt = 0x56;
  e.lbaMidExt = 0x34;
  e.lbaHighExt = 0x12;
  e.device = 0x40;
  e.direction = 1;
  e.dataLength = 256 * 512;
  e.timeoutSeconds = 120;
  e.buffer = buf;
  e.wantsOutputRegisters = true;
  expectRecord(ReadSectorsExt(0xFF00123456789ABCull, 256, 512, buf, 120), e);
}

TEST(AtaCommands, WriteSectorsSendsBitsZeroToTwentyThreeOutWithTheDefaultTimeout) {
  Expected e;
  e.command = 0x30;
  e.sectorCount = 2;
  e.lbaLow = 0x03;
  e.lbaMid = 0x02;
  e.lbaHigh = 0x01;
  e.device = 0x40;
  e.direction = 2;
  e.dataLength = 1024;
  e.buffer = buf;
  e.wantsOutputRegisters = true;
  expectRecord(WriteSectors(0x7010203, 2, 512, buf), e);
}

TEST(AtaCommands, WriteSectorsExtSendsFortyEightBitsOut) {
  Expected e;
  e.command = 0x34;
  e.sectorCount = 0x02;
  e.sectorCountExt = 0x01;
  e.lbaLow = 0x06;
  e.lbaMid = 0x05;
  e.lbaHigh = 0x04;
  e.lbaLowExt = 0x03;
  e.lbaMidExt = 0x02;
  e.lbaHighExt = 0x01;
  e.device = 0x40;
  e.direction = 2;
  e.dataLength = 0x102ull * 4096;
  e.buffer = buf;
  e.wantsOutputRegisters = true;
  expectRecord(WriteSectorsExt(0x010203040506ull, 0x102, 4096, buf), e);
}

TEST(AtaCommands, WriteUncorrectableExtMovesNoData) {
  Expected e;
  e.command = 0x45;
  e.features = 0xAA;
  e.sectorCount = 1;
  e.lbaLow = 0x06;
  e.lbaMid = 0x05;
  e.lbaHigh = 0x04;
  e.lbaLowExt = 0x03;
  e.lbaMidExt = 0x02;
  e.lbaHighExt = 0x01;
  e.device = 0x40;
  e.wantsOutputRegisters = true;
  WriteUncorrectableExt flagged(0x010203040506ull, 1, false);
  expectRecord(flagged, e);
  EXPECT_EQ(flagged.direction, 0u);
  EXPECT_EQ(flagged.dataLength, 0u);
  EXPECT_EQ(flagged.buffer, nullptr);
}

TEST(AtaCommands, WriteUncorrectableExtPseudoUsesFeature55) {
  WriteUncorrectableExt pseudo(0, 0x0203, true);
  EXPECT_EQ(pseudo.features, 0x55);
  EXPECT_EQ(pseudo.sectorCount, 0x03);
  EXPECT_EQ(pseudo.sectorCountExt, 0x02);
}

TEST(AtaCommands, OnlyTheTwoReadClassesTakeATimeoutFromTheCaller) {
  EXPECT_EQ(ReadSectors(0, 1, 512, buf, 3).timeoutSeconds, 3u);
  EXPECT_EQ(ReadSectorsExt(0, 1, 512, buf, 4).timeoutSeconds, 4u);
  EXPECT_EQ(WriteSectors(0, 1, 512, buf).timeoutSeconds, 30u);
  EXPECT_EQ(WriteSectorsExt(0, 1, 512, buf).timeoutSeconds, 30u);
  EXPECT_EQ(WriteUncorrectableExt(0, 1, true).timeoutSeconds, 30u);
}

TEST(AtaCommands, NoClassSetsFeaturesExt) {
  EXPECT_EQ(ReadSectorsExt(~0ull, 0xFFFF, 512, buf, 1).featuresExt, 0);
  EXPECT_EQ(WriteUncorrectableExt(~0ull, 0xFFFF, true).featuresExt, 0);
  EXPECT_EQ(ReadLogExt(0xFF, 0xFFFF, buf, 0xFFFF).featuresExt, 0);
}

TEST(AtaCommands, ACommandCanLiveOnTheHeapAndBeDestroyedThroughItsBase) {
  std::unique_ptr<AtaCmd> cmd = std::make_unique<SmartReturnStatus>();
  EXPECT_EQ(cmd->command, 0xB0);
  EXPECT_EQ(cmd->features, 0xDA);
}

}  // namespace
