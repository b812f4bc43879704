// The ATA protocol's logs on a scripted transport: the directories read once,
// READ LOG EXT with its retries and skipped pages, SMART READ LOG, and the
// failing address of the newest self test on both log routes.
#include <gtest/gtest.h>

#include <memory>
#include <vector>

#include "commands/ata/ata_commands.h"
#include "protocols/ata_protocol.h"
#include "testing/scripted_ata_bridge.h"

namespace {

using mstest::AtaAnswer;
using mstest::AtaBlock;
using mstest::ScriptedAtaBridge;

AtaAnswer withData(const std::vector<uint8_t>& data) {
  AtaAnswer answer;
  answer.data = data;
  return answer;
}

AtaAnswer transportFailure(uint32_t status) {
  AtaAnswer answer;
  answer.status = status;
  return answer;
}

// A log directory: version 1, then word N = pages of log N.
AtaBlock directory(uint16_t log2Pages, uint16_t log3Pages, uint16_t log6Pages, uint16_t log7Pages) {
  AtaBlock block;
  block.setWord(0, 1).setWord(1, 1).setWord(2, log2Pages).setWord(3, log3Pages).setWord(6, log6Pages);
  block.setWord(7, log7Pages);
  return block;
}

// A log page that passes its checks: version 1 on the first page, checksum.
AtaBlock logPage(bool first) {
  AtaBlock page;
  if (first) page[0] = 1;
  return page.checksum();
}

// The first page of an extended self-test log whose newest descriptor is
// `index`, with `lba` in that descriptor if it lies on this page.
AtaBlock extSelfTestFirstPage(uint16_t index, uint64_t lba) {
  AtaBlock page;
  page[0] = 1;
  page.setWord(1, index);
  if (index >= 1 && index <= 19) {
    const size_t at = 4 + (index - 1) * 26 + 5;
    for (size_t b = 0; b < 6; ++b) page[at + b] = static_cast<uint8_t>(lba >> (8 * b));
  }
  return page.checksum();
}

class AtaProtocolLogs : public ::testing::Test {
 protected:
  void SetUp() override { protocol.addTransport(bridge); }

  // The two directory reads of the first getLogPageCount.
  void queueDirectories(const AtaBlock& smartDirectory, const AtaBlock& gplDirectory) {
    bridge->queue(withData(smartDirectory.bytes));
    bridge->queue(withData(gplDirectory.bytes));
  }

  std::shared_ptr<ScriptedAtaBridge> bridge = std::make_shared<ScriptedAtaBridge>();
  AtaProtocol protocol;
};

TEST_F(AtaProtocolLogs, GetLogPageCountTakesLogs126FromTheSmartDirectoryAnd37FromTheGeneralOne) {
  queueDirectories(directory(5, 99, 1, 99), directory(99, 64, 99, 2));
  EXPECT_EQ(protocol.getLogPageCount(2), 5);
  EXPECT_EQ(protocol.getLogPageCount(6), 1);
  EXPECT_EQ(protocol.getLogPageCount(3), 64);
  EXPECT_EQ(protocol.getLogPageCount(7), 2);
  EXPECT_EQ(protocol.getLogPageCount(1), 1);
  ASSERT_EQ(bridge->sent.size(), 2u);
  EXPECT_EQ(bridge->sent[0].command, kAtaSmart);
  EXPECT_EQ(bridge->sent[0].features, kSmartReadLog);
  EXPECT_EQ(bridge->sent[0].lbaLow, 0);
  EXPECT_EQ(bridge->sent[1].command, kAtaReadLogExt);
  EXPECT_EQ(bridge->sent[1].lbaLow, 0);
  // Both commands were built on the same buffer.
  EXPECT_EQ(bridge->sent[0].buffer, bridge->sent[1].buffer);
}

TEST_F(AtaProtocolLogs, GetLogPageCountReadsTheDirectoriesOnlyOnceEvenWhenBothFailed) {
  bridge->queue(transportFailure(kStatusIoctlFailed));
  bridge->queue(transportFailure(kStatusIoctlFailed));
  EXPECT_EQ(protocol.getLogPageCount(7), 0);
  EXPECT_EQ(protocol.getLogPageCount(6), 0);
  EXPECT_EQ(protocol.getLogPageCount(3), 0);
  EXPECT_EQ(bridge->sent.size(), 2u);
}

TEST_F(AtaProtocolLogs, GetLogPageCountIgnoresADirectoryThatEndedWithErr) {
  AtaAnswer refused = withData(directory(0, 0, 1, 0).bytes);
  refused.statusRegister = 0x51;
  refused.error = kAtaErrorAbrt;
  bridge->queue(refused);
  bridge->queue(withData(directory(0, 8, 0, 3).bytes));
  EXPECT_EQ(protocol.getLogPageCount(6), 0);
  EXPECT_EQ(protocol.getLogPageCount(7), 3);
}

TEST_F(AtaProtocolLogs, ReadLogExtReadsPageByPageIntoConsecutivePlaces) {
  bridge->queue(withData(logPage(true).bytes));
  bridge->queue(withData(logPage(false).bytes));
  std::vector<uint8_t> buffer(2 * 512);
  uint16_t pages = 0;
  EXPECT_EQ(protocol.readLogExt(3, 2, buffer.data(), &pages), kStatusOk);
  EXPECT_EQ(pages, 2);
  ASSERT_EQ(bridge->sent.size(), 2u);
  EXPECT_EQ(bridge->sent[0].buffer, buffer.data());
  EXPECT_EQ(bridge->sent[1].buffer, buffer.data() + 512);
  EXPECT_EQ(bridge->sent[1].lbaMid, 1);  // page number
  EXPECT_EQ(bridge->sent[1].sectorCount, 1);
  EXPECT_EQ(bridge->sent[1].lbaLow, 3);
}

TEST_F(AtaProtocolLogs, ReadLogExtTriesABadPageFiveTimesThenSkipsIt) {
  bridge->queue(withData(logPage(true).bytes));
  AtaBlock bad;
  bad[0] = 1;
  bad[1] = 1;  // sum not 0
  for (int i = 0; i < 5; ++i) bridge->queue(withData(bad.bytes));
  bridge->queue(withData(logPage(false).bytes));
  std::vector<uint8_t> buffer(3 * 512);
  uint16_t pages = 0;
  EXPECT_EQ(protocol.readLogExt(7, 3, buffer.data(), &pages), kStatusOk);
  EXPECT_EQ(pages, 2);
  ASSERT_EQ(bridge->sent.size(), 7u);
  // The page after the skipped one is read to the same place.
  EXPECT_EQ(bridge->sent[6].buffer, buffer.data() + 512);
  EXPECT_EQ(bridge->sent[6].lbaMid, 2);
}

TEST_F(AtaProtocolLogs, ReadLogExtWantsVersionOneOnTheFirstPage) {
  AtaBlock noVersion = AtaBlock().checksum();
  for (int i = 0; i < 5; ++i) bridge->queue(withData(noVersion.bytes));
  std::vector<uint8_t> buffer(512);
  uint16_t pages = 9;
  EXPECT_EQ(protocol.readLogExt(7, 1, buffer.data(), &pages), kStatusOk);
  EXPECT_EQ(pages, 0);
  EXPECT_EQ(bridge->sent.size(), 5u);
}

TEST_F(AtaProtocolLogs, ReadLogExtReturnsATransportFailureAtOnce) {
  bridge->queue(transportFailure(kStatusIoctlFailed));
  std::vector<uint8_t> buffer(2 * 512);
  uint16_t pages = 9;
  EXPECT_EQ(protocol.readLogExt(7, 2, buffer.data(), &pages), kStatusIoctlFailed);
  EXPECT_EQ(pages, 0);
  EXPECT_EQ(bridge->sent.size(), 1u);
}

TEST_F(AtaProtocolLogs, ReadLogExtOfNoPagesSendsNothingAndNullArgumentsAreRefused) {
  std::vector<uint8_t> buffer(512);
  uint16_t pages = 9;
  EXPECT_EQ(protocol.readLogExt(7, 0, buffer.data(), &pages), kStatusOk);
  EXPECT_EQ(pages, 0);
  EXPECT_EQ(protocol.readLogExt(7, 1, nullptr, &pages), kStatusBadArgument);
  EXPECT_EQ(protocol.readLogExt(7, 1, buffer.data(), nullptr), kStatusBadArgument);
  EXPECT_TRUE(bridge->sent.empty());
}

TEST_F(AtaProtocolLogs, ReadSmartLogChecksTheFirstPageOnly) {
  std::vector<uint8_t> twoPages = logPage(true).bytes;
  twoPages.resize(1024, 0x77);  // the second page is not checked
  bridge->queue(withData(twoPages));
  std::vector<uint8_t> buffer(1024);
  uint16_t pages = 0;
  EXPECT_EQ(protocol.readSmartLog(2, 2, buffer.data(), &pages), kStatusOk);
  EXPECT_EQ(pages, 2);
  EXPECT_EQ(bridge->sent[0].features, kSmartReadLog);
  EXPECT_EQ(bridge->sent[0].sectorCount, 2);
  EXPECT_EQ(bridge->sent[0].lbaLow, 2);
}

TEST_F(AtaProtocolLogs, ReadSmartLogWithABadFirstPageGives88) {
  AtaBlock bad;
  bad[0] = 1;
  bridge->queue(withData(bad.bytes));
  std::vector<uint8_t> buffer(512);
  uint16_t pages = 9;
  EXPECT_EQ(protocol.readSmartLog(1, 1, buffer.data(), &pages), kStatusAtaError);
  EXPECT_EQ(pages, 0);
}

TEST_F(AtaProtocolLogs, ReadLogSendsLogs3And7ThroughReadLogExtAndOthersThroughSmartReadLog) {
  bridge->setDefault(withData(logPage(true).bytes));
  std::vector<uint8_t> buffer(512);
  uint16_t pages = 0;
  EXPECT_EQ(protocol.readLog(3, 1, buffer.data(), &pages), kStatusOk);
  EXPECT_EQ(protocol.readLog(7, 1, buffer.data(), &pages), kStatusOk);
  EXPECT_EQ(protocol.readLog(6, 1, buffer.data(), &pages), kStatusOk);
  EXPECT_EQ(protocol.readLog(1, 1, buffer.data(), &pages), kStatusOk);
  ASSERT_EQ(bridge->sent.size(), 4u);
  EXPECT_EQ(bridge->sent[0].command, kAtaReadLogExt);
  EXPECT_EQ(bridge->sent[1].command, kAtaReadLogExt);
  EXPECT_EQ(bridge->sent[2].command, kAtaSmart);
  EXPECT_EQ(bridge->sent[3].command, kAtaSmart);
  EXPECT_EQ(protocol.readLog(6, 1, nullptr, &pages), kStatusBadArgument);
}

TEST_F(AtaProtocolLogs, FailingLbaComesFromTheNewestDescriptorOfTheExtendedLog) {
  queueDirectories(directory(0, 0, 1, 1), directory(0, 0, 0, 1));
  bridge->queue(withData(extSelfTestFirstPage(2, 0x0000123456789ABCull).bytes));
  uint64_t lba = 0;
  EXPECT_EQ(protocol.getSelfTestFailingLba(&lba), kStatusOk);
  EXPECT_EQ(lba, 0x123456789ABCull);
  EXPECT_EQ(bridge->sent.back().command, kAtaReadLogExt);
  EXPECT_EQ(bridge->sent.back().lbaLow, 7);
}

TEST_F(AtaProtocolLogs, FailingLbaOfDescriptor20LiesOnTheSecondPage) {
  queueDirectories(directory(0, 0, 1, 1), directory(0, 0, 0, 2));
  bridge->queue(withData(extSelfTestFirstPage(20, 0).bytes));
  AtaBlock second;
  for (size_t b = 0; b < 6; ++b) second[4 + 5 + b] = static_cast<uint8_t>(0x10 + b);
  bridge->queue(withData(second.checksum().bytes));
  uint64_t lba = 0;
  EXPECT_EQ(protocol.getSelfTestFailingLba(&lba), kStatusOk);
  EXPECT_EQ(lba, 0x151413121110ull);
}

TEST_F(AtaProtocolLogs, FailingLbaOfAnEmptyExtendedLogIsNotAvailable) {
  queueDirectories(directory(0, 0, 1, 1), directory(0, 0, 0, 1));
  bridge->queue(withData(extSelfTestFirstPage(0, 0).bytes));
  uint64_t lba = 42;
  EXPECT_EQ(protocol.getSelfTestFailingLba(&lba), kStatusNotAvailable);
  EXPECT_EQ(lba, 42u);
}

TEST_F(AtaProtocolLogs, FailingLbaOfAnIndexBeyondThePagesReadIsNotAvailable) {
  queueDirectories(directory(0, 0, 1, 1), directory(0, 0, 0, 1));
  bridge->queue(withData(extSelfTestFirstPage(25, 0).bytes));
  uint64_t lba = 42;
  EXPECT_EQ(protocol.getSelfTestFailingLba(&lba), kStatusNotAvailable);
}

TEST_F(AtaProtocolLogs, SmartLogDirectoryWithLog7OfNoPagesSendsTheOperationToLog6) {
  queueDirectories(directory(0, 0, 1, 0), directory(0, 0, 0, 0));
  // A SMART self-test log: revision 1, newest descriptor 1 with LBA 0x00ABCDEF.
  AtaBlock log;
  log.setWord(0, 1);
  log[2 + 5] = 0xEF;
  log[2 + 6] = 0xCD;
  log[2 + 7] = 0xAB;
  log[508] = 1;
  bridge->queue(withData(log.checksum().bytes));
  uint64_t lba = 42;
  // The route is taken, and its check (a checksum over byte 0 alone, which
  // holds the revision) refuses the log as it always has.
  EXPECT_EQ(protocol.getSelfTestFailingLba(&lba), kStatusNotAvailable);
  EXPECT_EQ(lba, 42u);
  ASSERT_EQ(bridge->sent.size(), 3u);
  EXPECT_EQ(bridge->sent[2].command, kAtaSmart);
  EXPECT_EQ(bridge->sent[2].features, kSmartReadLog);
  EXPECT_EQ(bridge->sent[2].lbaLow, 6);
  EXPECT_EQ(bridge->sent[2].sectorCount, 1);
}

TEST_F(AtaProtocolLogs, SmartLogIndexPastTheLastDescriptorIsNotAnAnswer) {
  queueDirectories(directory(0, 0, 1, 0), directory(0, 0, 0, 0));
  AtaBlock log;
  log.setWord(0, 1);
  log[508] = 22;  // passes the settled check, but points past the page
  bridge->queue(withData(log.checksum().bytes));
  uint64_t lba = 42;
  EXPECT_EQ(protocol.getSelfTestFailingLba(&lba), kStatusNotAvailable);
  EXPECT_EQ(lba, 42u);
}

TEST_F(AtaProtocolLogs, FailingLbaWithoutEitherSelfTestLogIsNotAvailable) {
  queueDirectories(directory(0, 0, 0, 0), directory(0, 0, 0, 0));
  uint64_t lba = 42;
  EXPECT_EQ(protocol.getSelfTestFailingLba(&lba), kStatusNotAvailable);
  EXPECT_EQ(bridge->sent.size(), 2u);
}

}  // namespace
