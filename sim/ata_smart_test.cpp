// The ATA drive's SMART feature set against ATA/ACS: data and threshold
// layouts, RETURN STATUS, self tests on the virtual clock, and the logs.
#include <gtest/gtest.h>

#include "sim/ata_drive.h"
#include "sim/ata_test_util.h"

namespace sim {
namespace {

using testutil::byteSum;
using testutil::lba48Request;
using testutil::readInto;
using testutil::smartRequest;

AtaProfile smartProfile() {
  AtaProfile p;
  p.attributes = {
      {1, 0x000F, 200, 200, 0, 51},  {5, 0x0033, 200, 200, 0, 140}, {9, 0x0032, 90, 90, 8760, 0},
      {194, 0x0022, 113, 98, 0x0000002D0000ULL, 0}, {197, 0x0032, 200, 200, 2, 0},
  };
  p.temperatureCelsius = 37;
  p.shortTestMinutes = 2;
  p.extendedTestMinutes = 100;
  p.powerOnHours = 5000;
  return p;
}

struct SmartRig {
  explicit SmartRig(AtaProfile profile = smartProfile(), uint64_t sectors = 1000000)
      : media(std::make_shared<Media>(512, sectors)),
        clock(std::make_shared<VirtualClock>()),
        drive(std::move(profile), media, clock) {}
  std::vector<uint8_t> smartData() {
    std::vector<uint8_t> b;
    EXPECT_EQ(readInto(drive, smartRequest(0xD0, 0, 1), b, 512).out.status, 0x50);
    return b;
  }
  AtaResponse execute(uint8_t subcommand) { return drive.executeAta(smartRequest(0xD4, subcommand)); }
  std::vector<uint8_t> smartLog(uint8_t address, uint8_t pages = 1) {
    std::vector<uint8_t> b;
    EXPECT_EQ(readInto(drive, smartRequest(0xD5, address, pages), b, pages * 512u).out.status, 0x50);
    return b;
  }
  AtaResponse logExt(uint8_t address, uint16_t page, uint16_t pages, std::vector<uint8_t>& b) {
    AtaRequest r;
    r.extended = true;
    r.in.command = 0x2F;
    r.in.lbaLow = address;
    r.in.lbaMid = static_cast<uint8_t>(page);
    r.in.lbaMidExp = static_cast<uint8_t>(page >> 8);
    r.in.count = static_cast<uint8_t>(pages);
    r.in.countExp = static_cast<uint8_t>(pages >> 8);
    return readInto(drive, r, b, pages * 512u);
  }
  std::shared_ptr<Media> media;
  std::shared_ptr<VirtualClock> clock;
  AtaDrive drive;
};

TEST(AtaSmart, ReadDataLaysOutAttributesStatusBytesAndChecksum) {
  SmartRig rig;
  const auto b = rig.smartData();
  EXPECT_EQ(b[0] | b[1] << 8, 0x0010);
  // Entry 2 (attribute 9): id, flags, value, worst, raw.
  const uint8_t* e = b.data() + 2 + 12 * 2;
  EXPECT_EQ(e[0], 9);
  EXPECT_EQ(e[1] | e[2] << 8, 0x0032);
  EXPECT_EQ(e[3], 90);
  EXPECT_EQ(e[5] | e[6] << 8, 8760);
  // Attribute 194 carries the temperature in its low raw byte.
  const uint8_t* t = b.data() + 2 + 12 * 3;
  EXPECT_EQ(t[0], 194);
  EXPECT_EQ(t[5], 37);
  EXPECT_EQ(t[7], 0x2D);
  EXPECT_EQ(b[362], 0x82);
  EXPECT_EQ(b[363], 0x00);
  EXPECT_EQ(b[367], 0x5B);
  EXPECT_EQ(b[368] | b[369] << 8, 0x0003);
  EXPECT_EQ(b[372], 2);
  EXPECT_EQ(b[373], 100);
  EXPECT_EQ(byteSum(b.data(), 512), 0);
}

TEST(AtaSmart, ReadThresholdsListsIdAndThresholdWithChecksum) {
  SmartRig rig;
  std::vector<uint8_t> b;
  ASSERT_EQ(readInto(rig.drive, smartRequest(0xD1, 0, 1), b, 512).out.status, 0x50);
  EXPECT_EQ(b[2 + 12], 5);
  EXPECT_EQ(b[3 + 12], 140);
  EXPECT_EQ(byteSum(b.data(), 512), 0);
}

TEST(AtaSmart, ReturnStatusIsHealthyWhileAttributesStayAboveThresholds) {
  SmartRig rig;
  const auto r = rig.drive.executeAta(smartRequest(0xDA));
  EXPECT_EQ(r.out.status, 0x50);
  EXPECT_EQ(r.out.lbaMid, 0x4F);
  EXPECT_EQ(r.out.lbaHigh, 0xC2);
}

TEST(AtaSmart, ReturnStatusReportsThresholdExceededAtTheThreshold) {
  AtaProfile p = smartProfile();
  p.attributes[1].value = 140;  // reallocated sectors at their threshold
  SmartRig rig(p);
  const auto r = rig.drive.executeAta(smartRequest(0xDA));
  EXPECT_EQ(r.out.lbaMid, 0xF4);
  EXPECT_EQ(r.out.lbaHigh, 0x2C);
}

TEST(AtaSmart, CommandWithoutSignatureIsAborted) {
  SmartRig rig;
  AtaRequest r = smartRequest(0xDA);
  r.in.lbaHigh = 0;
  EXPECT_EQ(rig.drive.executeAta(r).out.error, kAtaErrorAbrt);
}

TEST(AtaSmart, DisabledSmartAbortsAllButEnable) {
  SmartRig rig;
  EXPECT_EQ(rig.drive.executeAta(smartRequest(0xD9)).out.status, 0x50);
  EXPECT_FALSE(rig.drive.smartEnabled());
  EXPECT_EQ(rig.drive.executeAta(smartRequest(0xDA)).out.error, kAtaErrorAbrt);
  std::vector<uint8_t> b;
  EXPECT_EQ(readInto(rig.drive, smartRequest(0xD0, 0, 1), b, 512).out.error, kAtaErrorAbrt);
  EXPECT_EQ(rig.drive.executeAta(smartRequest(0xD8)).out.status, 0x50);
  EXPECT_TRUE(rig.drive.smartEnabled());
}

TEST(AtaSmart, ShortSelfTestRunsOnTheVirtualClockAndIsLogged) {
  SmartRig rig;
  ASSERT_EQ(rig.execute(1).out.status, 0x50);
  EXPECT_EQ(rig.smartData()[363], 0xF9);
  rig.clock->advanceMs(60000);  // half of two minutes
  EXPECT_EQ(rig.smartData()[363], 0xF5);
  rig.clock->advanceMs(60000);
  EXPECT_EQ(rig.smartData()[363], 0x00);
  const auto log = rig.smartLog(6);
  EXPECT_EQ(log[0] | log[1] << 8, 1);
  EXPECT_EQ(log[508], 1);  // index of the newest descriptor
  EXPECT_EQ(log[2], 1);    // subcommand
  EXPECT_EQ(log[3], 0x00); // passed
  EXPECT_EQ(log[4] | log[5] << 8, 5000);  // lifetime hours
  EXPECT_EQ(byteSum(log.data(), 512), 0);
}

TEST(AtaSmart, SelfTestStopsAtTheFirstUnreadableSectorWithReadFailure) {
  SmartRig rig;
  rig.media->markUnreadable(750000);
  rig.media->markUnreadable(900000);
  ASSERT_EQ(rig.execute(2).out.status, 0x50);
  rig.clock->advanceMs(70 * 60000);  // 70 of 100 minutes: not there yet
  EXPECT_EQ(rig.smartData()[363] >> 4, 0xF);
  rig.clock->advanceMs(6 * 60000);
  const uint8_t status = rig.smartData()[363];
  EXPECT_EQ(status >> 4, kSelfTestReadFailure);
  EXPECT_EQ(status & 0x0F, 3);  // a quarter of the surface was left
  const auto log = rig.smartLog(6);
  const uint8_t* d = log.data() + 2;
  EXPECT_EQ(d[1], status);
  EXPECT_EQ(uint32_t{d[5]} | d[6] << 8 | d[7] << 16 | uint32_t{d[8]} << 24, 750000u);
  std::vector<uint8_t> ext;
  ASSERT_EQ(rig.logExt(7, 0, 1, ext).out.status, 0x50);
  EXPECT_EQ(ext[0], 1);
  EXPECT_EQ(ext[2] | ext[3] << 8, 1);
  const uint8_t* x = ext.data() + 4;
  EXPECT_EQ(x[0], 2);
  EXPECT_EQ(uint64_t{x[5]} | uint64_t{x[6]} << 8 | uint64_t{x[7]} << 16 | uint64_t{x[8]} << 24, 750000u);
  EXPECT_EQ(x[9] | x[10], 0);
  EXPECT_EQ(byteSum(ext.data(), 512), 0);
}

TEST(AtaSmart, AbortEndsTheRunningTestAsAbortedByHost) {
  SmartRig rig;
  rig.execute(2);
  rig.clock->advanceMs(1000);
  EXPECT_EQ(rig.execute(0x7F).out.status, 0x50);
  EXPECT_EQ(rig.smartData()[363] >> 4, kSelfTestAbortedByHost);
  EXPECT_FALSE(rig.drive.selfTestRunning());
  EXPECT_EQ(rig.smartLog(6)[3] >> 4, kSelfTestAbortedByHost);
}

TEST(AtaSmart, VendorSelfTestCodesAreRunAbortedOrRefusedAsTheProfileSays) {
  AtaProfile p = smartProfile();
  p.vendorTests = {{0x50, VendorTestAnswer::Run, 90}, {0x51, VendorTestAnswer::Idnf, 0},
                   {0x52, VendorTestAnswer::Abort, 0}};
  SmartRig rig(p);
  EXPECT_EQ(rig.execute(0x50).out.status, 0x50);
  EXPECT_TRUE(rig.drive.selfTestRunning());
  rig.clock->advanceMs(90000);
  EXPECT_FALSE(rig.drive.selfTestRunning());
  auto r = rig.execute(0x51);
  EXPECT_EQ(r.out.status & 1, 1);
  EXPECT_EQ(r.out.error, kAtaErrorIdnf);
  EXPECT_EQ(rig.execute(0x52).out.error, kAtaErrorAbrt);
  EXPECT_EQ(rig.execute(0x60).out.error, kAtaErrorAbrt);  // not in the profile
  EXPECT_EQ(rig.execute(0x20).out.error, kAtaErrorAbrt);  // reserved
}

TEST(AtaSmart, CaptiveSelfTestFailureReportsErrAndTheFailSignature) {
  SmartRig rig;
  rig.media->markUnreadable(10);
  const auto r = rig.execute(0x81);
  EXPECT_EQ(r.out.status & 1, 1);
  EXPECT_EQ(r.out.error, kAtaErrorAbrt);
  EXPECT_EQ(r.out.lbaMid, 0xF4);
  EXPECT_EQ(r.out.lbaHigh, 0x2C);
  EXPECT_GT(rig.clock->nowMs(), 0u);
}

TEST(AtaSmart, OfflineCollectionRunsForItsAnnouncedTime) {
  SmartRig rig;
  rig.execute(0);
  EXPECT_EQ(rig.smartData()[362] & 0x7F, 0x03);
  rig.clock->advanceMs(600000);
  EXPECT_EQ(rig.smartData()[362] & 0x7F, 0x02);
}

TEST(AtaSmart, LogDirectoriesCountThePagesOfEachLog) {
  AtaProfile p = smartProfile();
  p.comprehensiveErrorLogPages = 3;
  p.extSelfTestLogPages = 2;
  p.extErrorLogPages = 4;
  SmartRig rig(p);
  const auto dir = rig.smartLog(0);
  auto w = [&](const std::vector<uint8_t>& b, int i) { return b[2 * i] | b[2 * i + 1] << 8; };
  EXPECT_EQ(w(dir, 0), 1);
  EXPECT_EQ(w(dir, 1), 1);
  EXPECT_EQ(w(dir, 2), 3);
  EXPECT_EQ(w(dir, 3), 0);
  EXPECT_EQ(w(dir, 6), 1);
  EXPECT_EQ(w(dir, 7), 0);
  std::vector<uint8_t> gpl;
  ASSERT_EQ(rig.logExt(0, 0, 1, gpl).out.status, 0x50);
  EXPECT_EQ(w(gpl, 0), 1);
  EXPECT_EQ(w(gpl, 3), 4);
  EXPECT_EQ(w(gpl, 7), 2);
  EXPECT_EQ(w(gpl, 6), 0);
}

TEST(AtaSmart, LogsReadThroughTheWrongCommandOrPastTheirPagesAreAborted) {
  SmartRig rig;
  std::vector<uint8_t> b;
  EXPECT_EQ(readInto(rig.drive, smartRequest(0xD5, 7, 1), b, 512).out.error, kAtaErrorAbrt);
  EXPECT_EQ(rig.logExt(6, 0, 1, b).out.error, kAtaErrorAbrt);
  EXPECT_EQ(rig.logExt(7, 1, 1, b).out.error, kAtaErrorAbrt);
  EXPECT_EQ(readInto(rig.drive, smartRequest(0xD5, 1, 2), b, 1024).out.error, kAtaErrorAbrt);
}

TEST(AtaSmart, ExtendedSelfTestLogSpreadsDescriptorsOverPages) {
  AtaProfile p = smartProfile();
  p.extSelfTestLogPages = 2;
  for (int i = 0; i < 20; ++i) p.selfTestLog.push_back({1, 0x00, static_cast<uint16_t>(100 + i), 0xFFFFFFFFFFFFULL});
  SmartRig rig(p);
  std::vector<uint8_t> b;
  ASSERT_EQ(rig.logExt(7, 0, 2, b).out.status, 0x50);
  EXPECT_EQ(b[2] | b[3] << 8, 20);
  // Descriptor 20 is the first on page 1.
  EXPECT_EQ(b[512 + 4 + 2] | b[512 + 4 + 3] << 8, 119);
  EXPECT_EQ(byteSum(b.data(), 512), 0);
  EXPECT_EQ(byteSum(b.data() + 512, 512), 0);
  std::vector<uint8_t> second;
  ASSERT_EQ(rig.logExt(7, 1, 1, second).out.status, 0x50);
  EXPECT_TRUE(std::equal(second.begin(), second.end(), b.begin() + 512));
}

TEST(AtaSmart, UncorrectableReadIsEnteredInTheErrorLogs) {
  SmartRig rig;
  rig.media->markUnreadable(0x0123456789ULL % 1000000);
  const uint64_t bad = 0x0123456789ULL % 1000000;
  std::vector<uint8_t> out;
  readInto(rig.drive, lba48Request(0x24, bad, 1), out, 512);
  const auto summary = rig.smartLog(1);
  EXPECT_EQ(summary[0], 1);
  EXPECT_EQ(summary[1], 1);
  const uint8_t* entry = summary.data() + 2;
  EXPECT_EQ(entry[48 + 7], 0x24);  // the fifth command is the failed read
  EXPECT_EQ(uint32_t{entry[51]} | entry[52] << 8 | entry[53] << 16, bad & 0xFFFFFF);
  EXPECT_EQ(entry[61], kAtaErrorUnc);
  EXPECT_EQ(summary[452] | summary[453] << 8, 1);
  EXPECT_EQ(byteSum(summary.data(), 512), 0);
  std::vector<uint8_t> ext;
  ASSERT_EQ(rig.logExt(3, 0, 1, ext).out.status, 0x50);
  const uint8_t* x = ext.data() + 4;
  EXPECT_EQ(x[72 + 12], 0x24);
  // Register order: 77 is bits 7:0, 79 15:8, 81 23:16.
  EXPECT_EQ(uint32_t{x[77]} | x[79] << 8 | x[81] << 16, bad);
  EXPECT_EQ(x[91], kAtaErrorUnc);
  EXPECT_EQ(byteSum(ext.data(), 512), 0);
}

TEST(AtaSmart, FlaggedUncorrectableReadsFailWithoutAnErrorLogEntry) {
  SmartRig rig;
  rig.media->markUnreadable(5, UnreadableKind::Flagged);
  std::vector<uint8_t> out;
  EXPECT_EQ(readInto(rig.drive, lba48Request(0x24, 5, 1), out, 512).out.error, kAtaErrorUnc);
  EXPECT_EQ(rig.smartLog(1)[1], 0);
}

TEST(AtaSmart, SelectiveSelfTestLogIsReadableAndKeepsWhatTheHostWrote) {
  SmartRig rig;
  auto log = rig.smartLog(0x09);
  EXPECT_EQ(log[0], 1) << "revision";
  EXPECT_EQ(byteSum(log.data(), 512), 0);
  // SMART WRITE LOG 09h: a span 100-200 with a valid checksum.
  std::vector<uint8_t> spans(512, 0);
  spans[0] = 1;
  spans[2] = 100;
  spans[10] = 200;
  spans[511] = static_cast<uint8_t>(-byteSum(spans.data(), 511));
  AtaRequest w = smartRequest(0xD6, 0x09, 1);
  w.direction = Direction::Out;
  w.data = spans.data();
  w.length = 512;
  EXPECT_EQ(rig.drive.executeAta(w).out.status, 0x50);
  log = rig.smartLog(0x09);
  EXPECT_EQ(log[2], 100);
  EXPECT_EQ(log[10], 200);
  EXPECT_EQ(byteSum(log.data(), 512), 0);
  // A block whose checksum does not hold is refused.
  spans[2] = 7;
  EXPECT_EQ(rig.drive.executeAta(w).out.error, 0x04);
  EXPECT_EQ(rig.smartLog(0x09)[2], 100);
}

TEST(AtaSmart, LoggedReadErrorShowsTheDeviceActiveOrIdle) {
  SmartRig rig;
  rig.media->markUnreadable(5000, UnreadableKind::Pending);
  std::vector<uint8_t> b;
  readInto(rig.drive, lba48Request(0x25, 4992, 16), b, 16 * 512);
  const auto log = rig.smartLog(0x01);
  EXPECT_EQ(log[2 + 60 + 27], 0x03) << "state: active or idle";
}

TEST(AtaSmart, SctStatusReportsTemperatureAndTheLastCommand) {
  SmartRig rig;
  auto status = rig.smartLog(0xE0);
  EXPECT_EQ(status[0], 3) << "format version";
  EXPECT_EQ(status[200], 37) << "current temperature";
  EXPECT_EQ(status[214] | status[215] << 8, 0xC24F) << "SMART status: passed";
  // SCT error recovery control, set the read timer to 7 s, then get it.
  std::vector<uint8_t> key(512, 0);
  key[0] = 3;
  key[2] = 1;
  key[4] = 1;
  key[6] = 70;
  AtaRequest w = smartRequest(0xD6, 0xE0, 1);
  w.direction = Direction::Out;
  w.data = key.data();
  w.length = 512;
  EXPECT_EQ(rig.drive.executeAta(w).out.status, 0x50);
  key[2] = 2;
  const AtaResponse got = rig.drive.executeAta(w);
  EXPECT_EQ(got.out.count | got.out.lbaLow << 8, 70);
  status = rig.smartLog(0xE0);
  EXPECT_EQ(status[16], 3) << "action code of the last command";
  EXPECT_EQ(status[18], 2) << "its function code";
  EXPECT_EQ(status[14] | status[15] << 8, 0) << "completed";
}

TEST(AtaSmart, SctTemperatureHistoryFollowsADataTableRead) {
  SmartRig rig;
  std::vector<uint8_t> b;
  EXPECT_EQ(readInto(rig.drive, smartRequest(0xD5, 0xE1, 1), b, 512).out.error, 0x04)
      << "no table was asked for";
  std::vector<uint8_t> key(512, 0);
  key[0] = 5;
  key[2] = 1;
  key[4] = 2;
  AtaRequest w = smartRequest(0xD6, 0xE0, 1);
  w.direction = Direction::Out;
  w.data = key.data();
  w.length = 512;
  EXPECT_EQ(rig.drive.executeAta(w).out.status, 0x50);
  const auto table = rig.smartLog(0xE1);
  EXPECT_EQ(table[0], 2) << "format version";
  EXPECT_EQ(table[30] | table[31] << 8, 128) << "ring size";
  EXPECT_EQ(table[34 + 127], 37) << "newest entry";
}

TEST(AtaSmart, LogDirectoryListsTheSelectiveSctAndStatisticsLogs) {
  SmartRig rig;
  const auto dir = rig.smartLog(0x00);
  EXPECT_EQ(dir[2 * 0x09], 1);
  EXPECT_EQ(dir[2 * 0xE0], 1);
  EXPECT_EQ(dir[2 * 0xE1], 1);
  EXPECT_EQ(dir[2 * 0x04], 6);
  std::vector<uint8_t> gpl;
  EXPECT_EQ(rig.logExt(0x00, 0, 1, gpl).out.status, 0x50);
  EXPECT_EQ(gpl[2 * 0x11], 1) << "SATA phy event counters";
  EXPECT_EQ(gpl[2 * 0x0C], 1) << "pending defects";
}

TEST(AtaSmart, ShortSelfTestReadsOnlyItsSampleOfTheSurface) {
  SmartRig rig(smartProfile(), 64000);
  rig.media->markUnreadable(5000, UnreadableKind::Pending);  // beyond the first 1/64
  rig.execute(0x01);
  rig.clock->advanceMs(3 * 60 * 1000);
  EXPECT_EQ(rig.smartData()[363], 0x00) << "passed";
  rig.execute(0x02);
  rig.clock->advanceMs(101 * 60 * 1000);
  EXPECT_EQ(rig.smartData()[363] >> 4, 7) << "the extended test finds it";
}

TEST(AtaSmart, SelectiveSelfTestReadsItsSpansAndStopsAtAnUnreadableSectorInThem) {
  SmartRig rig;
  rig.media->markUnreadable(100, UnreadableKind::Pending);  // before the span: never read
  rig.media->markUnreadable(600000, UnreadableKind::Pending);
  EXPECT_EQ(rig.execute(0x04).out.error, 0x04) << "no span written yet";
  std::vector<uint8_t> spans(512, 0);
  spans[0] = 1;
  spans[2] = 0x20;  // span 1 from 500000 (07A120h)
  spans[3] = 0xA1;
  spans[4] = 0x07;
  spans[10] = 0x60;  // to 700000 (0AAE60h)
  spans[11] = 0xAE;
  spans[12] = 0x0A;
  spans[511] = static_cast<uint8_t>(-byteSum(spans.data(), 511));
  AtaRequest w = smartRequest(0xD6, 0x09, 1);
  w.direction = Direction::Out;
  w.data = spans.data();
  w.length = 512;
  ASSERT_EQ(rig.drive.executeAta(w).out.status, 0x50);
  EXPECT_EQ(rig.execute(0x04).out.status, 0x50);
  rig.clock->advanceMs(100 * 60 * 1000);
  EXPECT_EQ(rig.smartData()[363] >> 4, 7) << "read failure";
  const auto log = rig.smartLog(0x06);
  EXPECT_EQ(log[2], 0x04) << "a selective test";
  EXPECT_EQ(log[7] | log[8] << 8 | log[9] << 16, 600000) << "the sector inside the span, not the one before it";
}

}  // namespace
}  // namespace sim
