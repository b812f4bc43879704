// The Sunplus and JMicron pass-through CDBs and their shared mode rule.
#include "commands/scsi/vendor_pass_through.h"

#include <gtest/gtest.h>

#include <set>

#include "commands/ata/ata_commands.h"
#include "commands/scsi/scsi_cmd_test_support.h"

namespace {

using scsitest::expectCdb;
using scsitest::expectData;

uint8_t buf[4096];

AtaCmd bare(uint8_t command, uint8_t features = 0) {
  AtaCmd cmd;
  cmd.command = command;
  cmd.features = features;
  return cmd;
}

TEST(VendorPassThroughMode, DataInForTheReadCommandsAndIdentify) {
  for (int code : {0x20, 0x24, 0x25, 0x2F, 0xC8, 0xEC}) {
    EXPECT_EQ(vendorPassThroughMode(bare(static_cast<uint8_t>(code))), 0x10) << code;
  }
  EXPECT_EQ(vendorPassThroughMode(bare(0xB0, 0xD0)), 0x10);
  EXPECT_EQ(vendorPassThroughMode(bare(0xB0, 0xD5)), 0x10);
}

TEST(VendorPassThroughMode, DataOutForWriteSectorsExtAndWriteUncorrectableExt) {
  EXPECT_EQ(vendorPassThroughMode(bare(0x34)), 0x11);
  EXPECT_EQ(vendorPassThroughMode(bare(0x45)), 0x11);
}

TEST(VendorPassThroughMode, ZeroForEveryOtherCommandSmartReadThresholdsAmongThem) {
  EXPECT_EQ(vendorPassThroughMode(bare(0xB0, 0xD1)), 0);
  EXPECT_EQ(vendorPassThroughMode(bare(0xB0, 0xDA)), 0);
  const std::set<int> moving = {0x20, 0x24, 0x25, 0x2F, 0xC8, 0xEC, 0x34, 0x45, 0xB0};
  for (int code = 0; code <= 0xFF; ++code) {
    if (moving.count(code) != 0) continue;
    EXPECT_EQ(vendorPassThroughMode(bare(static_cast<uint8_t>(code))), 0) << code;
  }
}

TEST(SunplusAtaPassThrough, IdentifyCarriesModeSectorsAndTaskFile) {
  IdentifyDevice identify(buf);
  SunplusAtaPassThrough cmd(identify);
  expectCdb(cmd, 12, {{0, 0xF8}, {2, 0x22}, {3, 0x10}, {4, 0x01}, {6, 0x01}, {11, 0xEC}});
  expectData(cmd, 1, 512, buf);
}

TEST(SunplusAtaPassThrough, CarriesEveryCurrentRegister) {
  ReadSectorsExt read(0x0000123456789ABCull, 0x0203, 512, buf, 5);
  read.features = 0x5A;
  SunplusAtaPassThrough cmd(read);
  // 0x203 sectors of 512 bytes: dataLength >> 9 is 0x203, of which the low byte goes.
  expectCdb(cmd, 12, {{0, 0xF8}, {2, 0x22}, {3, 0x10}, {4, 0x03}, {5, 0x5A}, {6, 0x03}, {7, 0xBC}, {8, 0x9A},
                      {9, 0x78}, {10, 0x40}, {11, 0x24}});
  expectData(cmd, 1, 0x203 * 512, buf, 30);
}

TEST(SunplusAtaPassthroughPreset, LoadsThePreviousRegistersWithoutData) {
  ReadSectorsExt read(0x0000123456789ABCull, 0x0203, 512, buf, 5);
  read.featuresExt = 0x66;
  SunplusAtaPassthroughPreset cmd(read);
  expectCdb(cmd, 12, {{0, 0xF8}, {2, 0x23}, {5, 0x66}, {6, 0x02}, {7, 0x56}, {8, 0x34}, {9, 0x12}});
  expectData(cmd, 0, 0, nullptr);
}

TEST(JMicronAtaPassThrough12, IdentifyCarriesModeLengthAndDeviceWithA0) {
  IdentifyDevice identify(buf);
  JMicronAtaPassThrough12 cmd(identify);
  expectCdb(cmd, 12, {{0, 0xDF}, {1, 0x10}, {3, 0x02}, {4, 0x00}, {6, 0x01}, {10, 0xA0}, {11, 0xEC}});
  expectData(cmd, 1, 512, buf);
}

TEST(JMicronAtaPassThrough12, CarriesEveryCurrentRegisterAndOrsA0IntoDevice) {
  ReadSectors read(0x123456, 3, 512, buf, 9);
  read.features = 0x11;
  JMicronAtaPassThrough12 cmd(read);
  expectCdb(cmd, 12, {{0, 0xDF}, {1, 0x10}, {3, 0x06}, {4, 0x00}, {5, 0x11}, {6, 0x03}, {7, 0x56}, {8, 0x34},
                      {9, 0x12}, {10, 0xE0}, {11, 0x20}});
  expectData(cmd, 1, 1536, buf, 30);
}

TEST(JMicronAtaPassThrough12, SmartReturnStatusAsksForOneByte) {
  SmartReturnStatus status;
  JMicronAtaPassThrough12 cmd(status);
  expectCdb(cmd, 12, {{0, 0xDF}, {5, 0xDA}, {8, 0x4F}, {9, 0xC2}, {10, 0xA0}, {11, 0xB0}});
  expectData(cmd, 0, 1, nullptr);
}

TEST(JMicronAtaPassThrough12, WritesAreModeEleven) {
  WriteSectorsExt write(0, 1, 512, buf);
  JMicronAtaPassThrough12 cmd(write);
  EXPECT_EQ(cmd.cdb[1], 0x11);
  expectData(cmd, 2, 512, buf);
}

}  // namespace
