// The SAT pass-through CDBs and the protocol mapping, for every ATA command
// class the module builds, and the request for the output registers.
#include "commands/scsi/sat_pass_through.h"

#include <gtest/gtest.h>

#include <memory>
#include <set>

#include "commands/ata/ata_commands.h"
#include "commands/scsi/scsi_cmd_test_support.h"

namespace {

using scsitest::expectCdb;
using scsitest::expectData;

uint8_t buf[65536];

void expectMapping(const AtaCmd& cmd, int protocol, int tLength, int extend) {
  const SatProtocolMapping m = mapSatProtocol(cmd);
  EXPECT_EQ(m.protocol, protocol) << "command " << int{cmd.command} << " features " << int{cmd.features};
  EXPECT_EQ(m.tLength, tLength) << "command " << int{cmd.command};
  EXPECT_EQ(m.extend, extend) << "command " << int{cmd.command};
}

AtaCmd bare(uint8_t command, uint8_t features = 0) {
  AtaCmd cmd;
  cmd.command = command;
  cmd.features = features;
  return cmd;
}

TEST(MapSatProtocol, FollowsTheTableForEveryListedCommand) {
  expectMapping(bare(0x20), 4, 2, 0);
  expectMapping(bare(0xEC), 4, 2, 0);
  expectMapping(bare(0x24), 4, 2, 1);
  expectMapping(bare(0x2F), 4, 2, 1);
  expectMapping(bare(0x34), 5, 2, 1);
  expectMapping(bare(0x40), 3, 0, 0);
  expectMapping(bare(0x42), 3, 0, 1);
  expectMapping(bare(0x45), 3, 0, 1);
  expectMapping(bare(0xB0, 0xD0), 4, 2, 0);
  expectMapping(bare(0xB0, 0xD5), 4, 2, 0);
  for (int features : {0x7F, 0xD4, 0xD8, 0xD9, 0xDA, 0xD1, 0x00, 0xFF}) {
    expectMapping(bare(0xB0, static_cast<uint8_t>(features)), 3, 0, 0);
  }
}

TEST(MapSatProtocol, Command25IsNotInTheTableAndGoesAsNonData) {
  expectMapping(bare(0x25), 3, 0, 0);
}

TEST(MapSatProtocol, EveryUnlistedCommandGoesAsNonData) {
  const std::set<int> listed = {0x20, 0xEC, 0x24, 0x2F, 0x34, 0x40, 0x42, 0x45, 0xB0};
  for (int code = 0; code <= 0xFF; ++code) {
    if (listed.count(code) != 0) continue;
    expectMapping(bare(static_cast<uint8_t>(code)), 3, 0, 0);
  }
}

TEST(SatAtaPassThrough, TwelveByteIdentifyDeviceIsPioDataInWithTDir) {
  IdentifyDevice identify(buf);
  SatAtaPassThrough12 cmd(identify, false);
  expectCdb(cmd, 12, {{0, 0xA1}, {1, 0x08}, {2, 0x4E}, {4, 0x01}, {9, 0xEC}});
  expectData(cmd, 1, 512, buf);
}

TEST(SatAtaPassThrough, TwelveByteCheckConditionAddsCkCond) {
  IdentifyDevice identify(buf);
  EXPECT_EQ(SatAtaPassThrough12(identify, true).cdb[2], 0x6E);
}

TEST(SatAtaPassThrough, TwelveByteSmartReturnStatusIsNonDataWithTDirAndRegisters) {
  SmartReturnStatus status;
  SatAtaPassThrough12 cmd(status, true);
  expectCdb(cmd, 12, {{0, 0xA1}, {1, 0x06}, {2, 0x6C}, {3, 0xDA}, {6, 0x4F}, {7, 0xC2}, {9, 0xB0}});
  expectData(cmd, 0, 0, nullptr);
  EXPECT_EQ(SatAtaPassThrough12(status, false).cdb[2], 0x4C);
}

TEST(SatAtaPassThrough, TwelveByteReadSectorsCarriesEveryRegister) {
  ReadSectors read(0x123456, 4, 512, buf, 5);
  SatAtaPassThrough12 cmd(read, false);
  expectCdb(cmd, 12, {{0, 0xA1}, {1, 0x08}, {2, 0x4E}, {4, 4}, {5, 0x56}, {6, 0x34}, {7, 0x12}, {8, 0x40}, {9, 0x20}});
  expectData(cmd, 1, 2048, buf, 30);
}

TEST(SatAtaPassThrough, TwelveByteSmartReadDataAndReadLogArePioDataIn) {
  SmartReadData data(buf);
  expectCdb(SatAtaPassThrough12(data, false), 12,
            {{0, 0xA1}, {1, 0x08}, {2, 0x4E}, {3, 0xD0}, {4, 1}, {6, 0x4F}, {7, 0xC2}, {9, 0xB0}});
  SmartReadLog log(0x06, 2, buf);
  SatAtaPassThrough12 logCmd(log, false);
  expectCdb(logCmd, 12, {{0, 0xA1}, {1, 0x08}, {2, 0x4E}, {3, 0xD5}, {4, 2}, {5, 6}, {6, 0x4F}, {7, 0xC2}, {9, 0xB0}});
  expectData(logCmd, 1, 1024, buf);
}

TEST(SatAtaPassThrough, SmartReadWarrantyThresholdsGoesAsNonDataWithTDirThoughItReadsFiveHundredTwelveBytes) {
  SmartReadWarrantyThresholds thresholds(buf);
  SatAtaPassThrough12 cmd(thresholds, false);
  expectCdb(cmd, 12, {{0, 0xA1}, {1, 0x06}, {2, 0x4C}, {3, 0xD1}, {4, 1}, {6, 0x4F}, {7, 0xC2}, {9, 0xB0}});
  expectData(cmd, 1, 512, buf);
}

TEST(SatAtaPassThrough, TwelveByteNonDataSmartCommands) {
  SmartEnable enable(true);
  expectCdb(SatAtaPassThrough12(enable, false), 12,
            {{0, 0xA1}, {1, 0x06}, {2, 0x4C}, {3, 0xD8}, {6, 0x4F}, {7, 0xC2}, {9, 0xB0}});
  SmartExecuteOffline offline(0x7F, 0);
  expectCdb(SatAtaPassThrough12(offline, false), 12,
            {{0, 0xA1}, {1, 0x06}, {2, 0x4C}, {3, 0xD4}, {5, 0x7F}, {6, 0x4F}, {7, 0xC2}, {9, 0xB0}});
}

TEST(SatAtaPassThrough, SixteenByteReadSectorsExtPlacesEachPreviousRegisterBeforeItsCurrentOne) {
  ReadSectorsExt read(0x0000123456789ABCull, 0x0102, 512, buf, 5);
  SatAtaPassThrough16 cmd(read, false);
  expectCdb(cmd, 16, {{0, 0x85}, {1, 0x09}, {2, 0x4E}, {5, 0x01}, {6, 0x02}, {7, 0x56}, {8, 0xBC}, {9, 0x34},
                      {10, 0x9A}, {11, 0x12}, {12, 0x78}, {13, 0x40}, {14, 0x24}});
  expectData(cmd, 1, 0x102 * 512, buf, 30);
}

TEST(SatAtaPassThrough, SixteenByteWriteSectorsExtIsPioDataOutWithoutTDir) {
  WriteSectorsExt write(1, 1, 512, buf);
  SatAtaPassThrough16 cmd(write, true);
  expectCdb(cmd, 16, {{0, 0x85}, {1, 0x0B}, {2, 0x66}, {6, 1}, {8, 1}, {13, 0x40}, {14, 0x34}});
  expectData(cmd, 2, 512, buf);
}

TEST(SatAtaPassThrough, SixteenByteWriteUncorrectableExtIsNonDataExtended) {
  WriteUncorrectableExt unc(0x010203040506ull, 1, true);
  SatAtaPassThrough16 cmd(unc, false);
  expectCdb(cmd, 16, {{0, 0x85}, {1, 0x07}, {2, 0x4C}, {4, 0x55}, {6, 1}, {7, 0x03}, {8, 0x06}, {9, 0x02},
                      {10, 0x05}, {11, 0x01}, {12, 0x04}, {13, 0x40}, {14, 0x45}});
  expectData(cmd, 0, 0, nullptr);
}

TEST(SatAtaPassThrough, SixteenByteReadLogExtIsPioDataInExtended) {
  ReadLogExt log(0x07, 1, buf, 0x0203);
  SatAtaPassThrough16 cmd(log, false);
  expectCdb(cmd, 16, {{0, 0x85}, {1, 0x09}, {2, 0x4E}, {6, 1}, {8, 0x07}, {9, 0x02}, {10, 0x03}, {14, 0x2F}});
  expectData(cmd, 1, 512, buf);
}

TEST(SatAtaPassThrough, SixteenByteCarriesFeaturesExtInByteThree) {
  AtaCmd cmd = bare(0x42);
  cmd.featuresExt = 0x77;
  cmd.features = 0x11;
  SatAtaPassThrough16 pass(cmd, false);
  EXPECT_EQ(pass.cdb[3], 0x77);
  EXPECT_EQ(pass.cdb[4], 0x11);
  EXPECT_EQ(pass.cdb[1], 0x07);
}

TEST(SatAtaPassThrough, TimeoutOfTheAtaCommandNeverReachesThePassThrough) {
  ReadSectors read(0, 1, 512, buf, 2);
  ReadSectorsExt readExt(0, 1, 512, buf, 600);
  EXPECT_EQ(SatAtaPassThrough12(read, false).timeoutSeconds, 30u);
  EXPECT_EQ(SatAtaPassThrough16(readExt, false).timeoutSeconds, 30u);
}

TEST(SatAtaPassThrough, SetupRefillsTheRecordFromAnotherCommand) {
  ReadSectorsExt read(0xFFFFFFFFFFFFull, 0xFFFF, 512, buf, 1);
  std::unique_ptr<SatAtaPassThrough> pass = std::make_unique<SatAtaPassThrough16>(read, true);
  pass->scsiStatus = 2;
  pass->senseLength = 20;
  pass->sense[0] = 0x72;
  SmartReturnStatus status;
  pass->setup(status, false);
  expectCdb(*pass, 16, {{0, 0x85}, {1, 0x06}, {2, 0x4C}, {4, 0xDA}, {10, 0x4F}, {12, 0xC2}, {14, 0xB0}});
  expectData(*pass, 0, 0, nullptr);
  scsitest::expectNoAnswerYet(*pass);
}

TEST(SatAtaPassThrough, FlagsAlwaysCarryBytBlokAndOffLineOne) {
  for (int code = 0; code <= 0xFF; ++code) {
    AtaCmd cmd = bare(static_cast<uint8_t>(code));
    const uint8_t flags = SatAtaPassThrough12(cmd, false).cdb[2];
    EXPECT_EQ(flags & 0x44, 0x44) << code;
    EXPECT_EQ(flags & 0x20, 0) << code;
  }
}

TEST(SatGetAtaOutputRegisters, AsksForReturnResponseInformationIntoFourteenBytes) {
  SatGetAtaOutputRegisters cmd(buf);
  expectCdb(cmd, 12, {{0, 0xA1}, {1, 0x1E}});
  expectData(cmd, 1, 14, buf);
}

}  // namespace
