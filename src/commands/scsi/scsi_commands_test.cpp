// Every SCSI command class that is not a pass-through: whole CDB, data phase
// and time-out, with each deliberate departure from the standards.
#include "commands/scsi/scsi_commands.h"

#include <gtest/gtest.h>

#include <memory>

#include "commands/scsi/log_mode_commands.h"
#include "commands/scsi/read_write_commands.h"
#include "commands/scsi/scsi_cmd_test_support.h"

namespace {

using scsitest::expectCdb;
using scsitest::expectData;
using scsitest::expectNoAnswerYet;

uint8_t buf[8192];

TEST(ScsiCmd, StartsAllZeroWithThirtySecondTimeout) {
  ScsiCmd cmd;
  expectCdb(cmd, 0, {});
  expectData(cmd, 0, 0, nullptr, 30);
  expectNoAnswerYet(cmd);
}

TEST(ScsiCommands, InquiryStandardDataCarriesAllocationLengthBigEndian) {
  Inquiry cmd(buf, 0x0140, false, 0x80);
  expectCdb(cmd, 6, {{0, 0x12}, {3, 0x01}, {4, 0x40}});
  expectData(cmd, 1, 0x140, buf);
  expectNoAnswerYet(cmd);
}

TEST(ScsiCommands, InquiryVitalProductDataSetsEvpdAndPage) {
  Inquiry cmd(buf, 64, true, 0xB1);
  expectCdb(cmd, 6, {{0, 0x12}, {1, 0x01}, {2, 0xB1}, {4, 64}});
  expectData(cmd, 1, 64, buf);
}

TEST(ScsiCommands, InquiryWithLengthZeroHasNoDataPhaseAndNullBuffer) {
  Inquiry cmd(buf, 0, false, 0);
  expectCdb(cmd, 6, {{0, 0x12}});
  expectData(cmd, 0, 0, nullptr);
}

TEST(ScsiCommands, RequestSenseIsATenByteCdbWithLengthInByteFour) {
  RequestSense cmd(buf, 252);
  expectCdb(cmd, 10, {{0, 0x03}, {4, 252}});
  expectData(cmd, 1, 252, buf);
}

TEST(ScsiCommands, RequestSenseWithLengthZeroHasNoDataPhase) {
  RequestSense cmd(buf, 0);
  expectCdb(cmd, 10, {{0, 0x03}});
  expectData(cmd, 0, 0, nullptr);
}

TEST(ScsiCommands, ReadCapacity10ReadsEightBytes) {
  ReadCapacity10 cmd(buf);
  expectCdb(cmd, 10, {{0, 0x25}});
  expectData(cmd, 1, 8, buf);
}

TEST(ScsiCommands, ReadCapacity16IsServiceActionInWithThirtyTwoBytes) {
  ReadCapacity16 cmd(buf);
  expectCdb(cmd, 16, {{0, 0x9E}, {1, 0x10}, {13, 0x20}});
  expectData(cmd, 1, 32, buf);
}

TEST(ScsiCommands, Read10SetsDpoFuaLbaAndCount) {
  Read10 cmd(buf, 0x1122334455667788ull, 0x00012345, 512);
  expectCdb(cmd, 10, {{0, 0x28}, {1, 0x18}, {2, 0x55}, {3, 0x66}, {4, 0x77}, {5, 0x88}, {7, 0x23}, {8, 0x45}});
  expectData(cmd, 1, 0x12345ull * 512, buf);
}

TEST(ScsiCommands, Read10OfZeroSectorsHasNoDataPhase) {
  Read10 cmd(buf, 7, 0, 512);
  expectData(cmd, 0, 0, nullptr);
  EXPECT_EQ(cmd.cdb[0], 0x28);
}

TEST(ScsiCommands, Read12CarriesTheReadTenOperationCodeInTwelveBytes) {
  Read12 cmd(buf, 0x01020304, 0x0A0B0C0D, 4096);
  expectCdb(cmd, 12,
            {{0, 0x28}, {1, 0x18}, {2, 0x01}, {3, 0x02}, {4, 0x03}, {5, 0x04}, {6, 0x0A}, {7, 0x0B}, {8, 0x0C}, {9, 0x0D}});
  expectData(cmd, 1, 0x0A0B0C0Dull * 4096, buf);
}

TEST(ScsiCommands, Read16CarriesAnEightByteLbaAndFourByteCount) {
  Read16 cmd(buf, 0x0102030405060708ull, 0x11223344, 512);
  expectCdb(cmd, 16, {{0, 0x88}, {1, 0x18}, {2, 1}, {3, 2}, {4, 3}, {5, 4}, {6, 5}, {7, 6}, {8, 7}, {9, 8},
                      {10, 0x11}, {11, 0x22}, {12, 0x33}, {13, 0x44}});
  expectData(cmd, 1, 0x11223344ull * 512, buf);
}

TEST(ScsiCommands, ReadSetupRefillsTheWholeRecordForTheNextRead) {
  std::unique_ptr<Read> read = std::make_unique<Read16>(buf, 0xFFFFFFFFFFull, 8, 512);
  read->scsiStatus = 2;
  read->sense[2] = 3;
  read->senseLength = 18;
  read->setup(buf + 512, 0x10, 1, 4096);
  expectCdb(*read, 16, {{0, 0x88}, {1, 0x18}, {9, 0x10}, {13, 1}});
  expectData(*read, 1, 4096, buf + 512);
  expectNoAnswerYet(*read);
  read->setup(buf, 0x10, 0, 4096);
  expectData(*read, 0, 0, nullptr);
}

TEST(ScsiCommands, AllReadsSetDpoAndFuaAndAllWritesFuaAlone) {
  EXPECT_EQ(Read10(buf, 0, 1, 512).cdb[1], 0x18);
  EXPECT_EQ(Read12(buf, 0, 1, 512).cdb[1], 0x18);
  EXPECT_EQ(Read16(buf, 0, 1, 512).cdb[1], 0x18);
  EXPECT_EQ(Write10(buf, 0, 1, 512).cdb[1], 0x08);
  EXPECT_EQ(Write12(buf, 0, 1, 512).cdb[1], 0x08);
  EXPECT_EQ(Write16(buf, 0, 1, 512).cdb[1], 0x08);
}

TEST(ScsiCommands, Write10AloneWaitsOneHundredEightySeconds) {
  Write10 cmd(buf, 0xAABBCCDD, 0x0102, 512);
  expectCdb(cmd, 10, {{0, 0x2A}, {1, 0x08}, {2, 0xAA}, {3, 0xBB}, {4, 0xCC}, {5, 0xDD}, {7, 0x01}, {8, 0x02}});
  expectData(cmd, 2, 0x102 * 512, buf, 180);
}

TEST(ScsiCommands, Write12WritesOutWithTheDefaultTimeout) {
  Write12 cmd(buf, 0xAABBCCDD, 0x01020304, 4096);
  expectCdb(cmd, 12, {{0, 0xAA}, {1, 0x08}, {2, 0xAA}, {3, 0xBB}, {4, 0xCC}, {5, 0xDD},
                      {6, 1}, {7, 2}, {8, 3}, {9, 4}});
  expectData(cmd, 2, 0x01020304ull * 4096, buf, 30);
}

TEST(ScsiCommands, Write16WritesOutWithTheDefaultTimeout) {
  Write16 cmd(buf, 0x0102030405060708ull, 1, 512);
  expectCdb(cmd, 16, {{0, 0x8A}, {1, 0x08}, {2, 1}, {3, 2}, {4, 3}, {5, 4}, {6, 5}, {7, 6}, {8, 7}, {9, 8},
                      {13, 1}});
  expectData(cmd, 2, 512, buf, 30);
}

TEST(ScsiCommands, SendDiagnosticCodeOneGivesByteOne20) {
  SendDiagnostic cmd(1, 0);
  expectCdb(cmd, 6, {{0, 0x1D}, {1, 0x20}});
  expectData(cmd, 0, 0, nullptr);
}

TEST(ScsiCommands, SendDiagnosticCodeZeroAsksForTheDefaultSelfTest) {
  expectCdb(SendDiagnostic(0, 0), 6, {{0, 0x1D}, {1, 0x04}});
}

TEST(ScsiCommands, SendDiagnosticIgnoresItsSecondArgument) {
  expectCdb(SendDiagnostic(2, 0xFF), 6, {{0, 0x1D}, {1, 0x40}});
  expectCdb(SendDiagnostic(4, 0x12), 6, {{0, 0x1D}, {1, 0x80}});
}

TEST(ScsiCommands, LogSenseSelfTestPageAsksForCumulativeValuesOfPage10) {
  LogSenseSelfTestPage cmd(buf, 0x0194);
  expectCdb(cmd, 10, {{0, 0x4D}, {2, 0x50}, {7, 0x01}, {8, 0x94}});
  expectData(cmd, 1, 0x194, buf);
}

TEST(ScsiCommands, LogSenseTemperaturePageAsksForCumulativeValuesOfPage0D) {
  LogSenseTemperaturePage cmd(buf, 252);
  expectCdb(cmd, 10, {{0, 0x4D}, {2, 0x4D}, {8, 252}});
  expectData(cmd, 1, 252, buf);
}

TEST(ScsiCommands, LogSenseIecPageLeavesTheAllocationLengthZeroWhileDataLengthHoldsIt) {
  LogSenseIECPage cmd(buf, 252);
  expectCdb(cmd, 10, {{0, 0x4D}, {2, 0x6F}});
  expectData(cmd, 1, 252, buf);
}

TEST(ScsiCommands, LogClassesTakeAZeroOrNegativeLengthAsNoDataPhase) {
  for (int32_t length : {0, -1, -4096}) {
    LogSenseSelfTestPage selfTest(buf, length);
    LogSenseTemperaturePage temperature(buf, length);
    LogSenseIECPage iec(buf, length);
    expectData(selfTest, 0, 0, nullptr);
    expectData(temperature, 0, 0, nullptr);
    expectData(iec, 0, 0, nullptr);
    expectCdb(selfTest, 10, {{0, 0x4D}, {2, 0x50}});
    expectCdb(temperature, 10, {{0, 0x4D}, {2, 0x4D}});
  }
}

TEST(ScsiCommands, ModeSense6IecPageLeavesTheAllocationLengthZero) {
  ModeSense6IECPage cmd(buf, 32);
  expectCdb(cmd, 6, {{0, 0x1A}, {1, 0x08}, {2, 0x1C}});
  expectData(cmd, 1, 32, buf);
}

TEST(ScsiCommands, ModeSense10IecPageSendsTheSixByteOperationCodeInTenBytes) {
  ModeSense10IECPage cmd(buf, 32);
  expectCdb(cmd, 10, {{0, 0x1A}, {1, 0x08}, {2, 0x1C}});
  expectData(cmd, 1, 32, buf);
}

TEST(ScsiCommands, ModeSenseWithLengthZeroHasNoDataPhase) {
  expectData(ModeSense6IECPage(buf, 0), 0, 0, nullptr);
  expectData(ModeSense10IECPage(buf, 0), 0, 0, nullptr);
}

TEST(ScsiCommands, ModeSelect6IecPageCopiesPageSaveableIntoSavePages) {
  uint8_t record[16] = {};
  ModeSelect6IecPage notSaveable(record);
  expectCdb(notSaveable, 6, {{0, 0x15}, {1, 0x10}, {4, 16}});
  expectData(notSaveable, 2, 16, record);
  record[4] = 0x9C;  // PS set, page 0x1C
  expectCdb(ModeSelect6IecPage(record), 6, {{0, 0x15}, {1, 0x11}, {4, 16}});
  record[4] = 0x7F;  // every bit but PS
  EXPECT_EQ(ModeSelect6IecPage(record).cdb[1], 0x10);
}

TEST(ScsiCommands, ModeSelect10IecPageLeavesTheParameterListLengthZeroWhileDataLengthIsTwenty) {
  uint8_t record[20] = {};
  record[4] = 0x80;  // not the page byte of the ten-byte record
  ModeSelect10IecPage notSaveable(record);
  expectCdb(notSaveable, 10, {{0, 0x55}, {1, 0x10}});
  expectData(notSaveable, 2, 20, record);
  record[8] = 0x9C;
  expectCdb(ModeSelect10IecPage(record), 10, {{0, 0x55}, {1, 0x11}});
}

TEST(ScsiCommands, ModeSelectWithoutARecordTakesThePageAsNotSaveable) {
  EXPECT_EQ(ModeSelect6IecPage(nullptr).cdb[1], 0x10);
  EXPECT_EQ(ModeSelect10IecPage(nullptr).cdb[1], 0x10);
}

}  // namespace
