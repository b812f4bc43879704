// The ATA record's starting values, the 48-bit test and address splitting.
#include "commands/ata/ata_cmd.h"

#include <gtest/gtest.h>

#include <cstring>
#include <set>

namespace {

TEST(AtaCmd, StartsAllZeroWithThirtySecondTimeout) {
  AtaCmd cmd;
  EXPECT_EQ(cmd.features, 0);
  EXPECT_EQ(cmd.featuresExt, 0);
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
  EXPECT_EQ(cmd.direction, 0u);
  EXPECT_EQ(cmd.dataLength, 0u);
  EXPECT_EQ(cmd.timeoutSeconds, 30u);
  EXPECT_EQ(cmd.buffer, nullptr);
  EXPECT_FALSE(cmd.wantsOutputRegisters);
}

TEST(AtaCmd, LowAndExtRegistersAreAdjacentSoACountIsStoredLowByteFirst) {
  AtaCmd cmd;
  cmd.sectorCount = 0x34;
  cmd.sectorCountExt = 0x12;
  uint16_t count = 0;
  std::memcpy(&count, &cmd.sectorCount, sizeof(count));
  EXPECT_EQ(count, 0x1234);  // the build targets little-endian x86-64
}

TEST(AtaCmd, StatusAndErrorAreTheCommandAndFeaturesFieldsOnReturn) {
  AtaCmd cmd;
  cmd.command = 0x51;
  cmd.features = 0x40;
  EXPECT_EQ(cmd.status(), 0x51);
  EXPECT_EQ(cmd.error(), 0x40);
}

TEST(Is48BitCommand, TrueForExactlyTheSixExtendedCommands) {
  const std::set<int> extended = {0x24, 0x25, 0x2F, 0x34, 0x42, 0x45};
  for (int code = 0; code <= 0xFF; ++code) {
    EXPECT_EQ(is48BitCommand(static_cast<uint8_t>(code)), extended.count(code) == 1) << "command " << code;
  }
}

TEST(SplitLba, TwentyFourBitFormKeepsBitsZeroToTwentyThreeLowestFirst) {
  const auto bytes = splitLba24(0xFEDCBA98765432ull);
  EXPECT_EQ(bytes[0], 0x32);
  EXPECT_EQ(bytes[1], 0x54);
  EXPECT_EQ(bytes[2], 0x76);
}

TEST(SplitLba, FortyEightBitFormKeepsBitsZeroToFortySevenLowestFirst) {
  const auto bytes = splitLba48(0xAB123456789ABCull);
  const std::array<uint8_t, 6> expected = {0xBC, 0x9A, 0x78, 0x56, 0x34, 0x12};
  EXPECT_EQ(bytes, expected);
}

TEST(SplitLba, SetLba48FillsLowMidHighThenTheirExtFields) {
  AtaCmd cmd;
  setLba48(cmd, 0x0000123456789ABCull);
  EXPECT_EQ(cmd.lbaLow, 0xBC);
  EXPECT_EQ(cmd.lbaMid, 0x9A);
  EXPECT_EQ(cmd.lbaHigh, 0x78);
  EXPECT_EQ(cmd.lbaLowExt, 0x56);
  EXPECT_EQ(cmd.lbaMidExt, 0x34);
  EXPECT_EQ(cmd.lbaHighExt, 0x12);
}

TEST(SplitLba, SetLba24LeavesTheExtFieldsAlone) {
  AtaCmd cmd;
  cmd.lbaLowExt = 7;
  setLba24(cmd, 0x0000123456789ABCull);
  EXPECT_EQ(cmd.lbaLow, 0xBC);
  EXPECT_EQ(cmd.lbaMid, 0x9A);
  EXPECT_EQ(cmd.lbaHigh, 0x78);
  EXPECT_EQ(cmd.lbaLowExt, 7);
  EXPECT_EQ(cmd.lbaMidExt, 0);
  EXPECT_EQ(cmd.lbaHighExt, 0);
}

}  // namespace
