// The sparse media: sizes without allocation, fill patterns, unreadable
// sectors, byte-addressed access and the image underlay.
#include "sim/media.h"

#include <gtest/gtest.h>

#include <cstdio>
#include <fstream>
#include <vector>

#include "sim/journal.h"
#include "sim/media_reads.h"

namespace sim {
namespace {

TEST(Media, FourTebibyteMediaAllocatesNothingUntilWritten) {
  Media media(512, 8ULL << 30);  // 4 TiB
  EXPECT_EQ(media.byteSize(), 4ULL << 40);
  EXPECT_EQ(media.storedSectors(), 0u);
  std::vector<uint8_t> data(512, 0xAB);
  ASSERT_EQ(media.write(media.sectorCount() - 1, 1, data.data()), MediaResult::Ok);
  EXPECT_EQ(media.storedSectors(), 1u);
  std::vector<uint8_t> back(512);
  ASSERT_EQ(media.read(media.sectorCount() - 1, 1, back.data()), MediaResult::Ok);
  EXPECT_EQ(back, data);
}

TEST(Media, ReadListenerIsToldOfEveryRangeReadOrScannedWithItsMedia) {
  Media media(512, 100);
  Media other(512, 100);
  std::vector<std::pair<uint64_t, uint64_t>> seen;
  setMediaReadListener([&](const Media& from, uint64_t lba, uint64_t count) {
    if (&from == &media) seen.emplace_back(lba, count);
  });
  std::vector<uint8_t> buffer(512 * 4);
  EXPECT_EQ(media.read(10, 4, buffer.data()), MediaResult::Ok);
  EXPECT_EQ(other.read(30, 1, buffer.data()), MediaResult::Ok);
  EXPECT_FALSE(media.firstUnreadable(50, 59, nullptr));
  setMediaReadListener(nullptr);
  EXPECT_EQ(media.read(20, 1, buffer.data()), MediaResult::Ok);
  EXPECT_EQ(seen, (std::vector<std::pair<uint64_t, uint64_t>>{{10, 4}, {50, 10}}));
}

TEST(Media, UnwrittenSectorsReadAsTheFill) {
  Media media(512, 100);
  std::vector<uint8_t> out(512, 0x77);
  ASSERT_EQ(media.read(5, 1, out.data()), MediaResult::Ok);
  EXPECT_EQ(out, std::vector<uint8_t>(512, 0));
  media.setFill(SectorFill::Byte, 0xE5);
  ASSERT_EQ(media.read(5, 1, out.data()), MediaResult::Ok);
  EXPECT_EQ(out, std::vector<uint8_t>(512, 0xE5));
  media.setFill(SectorFill::LbaStamp);
  ASSERT_EQ(media.read(0x42, 1, out.data()), MediaResult::Ok);
  EXPECT_EQ(out[0], 0x42);
  EXPECT_EQ(out[8], 0x42);
  EXPECT_EQ(out[1], 0);
}

TEST(Media, ReadStopsAtTheFirstUnreadableSectorUntilItIsRewritten) {
  Media media(512, 100);
  media.markUnreadable(7);
  std::vector<uint8_t> out(512 * 10);
  uint64_t failed = 0;
  EXPECT_EQ(media.read(5, 10, out.data(), &failed), MediaResult::Unreadable);
  EXPECT_EQ(failed, 7u);
  std::vector<uint8_t> data(512, 1);
  ASSERT_EQ(media.write(7, 1, data.data()), MediaResult::Ok);
  EXPECT_FALSE(media.isUnreadable(7));
  EXPECT_EQ(media.read(5, 10, out.data()), MediaResult::Ok);
}

TEST(Media, ReadBeyondTheEndIsOutOfRange) {
  Media media(512, 100);
  std::vector<uint8_t> out(1024);
  EXPECT_EQ(media.read(99, 2, out.data()), MediaResult::OutOfRange);
  EXPECT_EQ(media.read(UINT64_MAX, 2, out.data()), MediaResult::OutOfRange);
  EXPECT_EQ(media.read(99, 1, out.data()), MediaResult::Ok);
}

TEST(Media, FirstUnreadableFindsTheLowestInRange) {
  Media media(512, 1000);
  media.markUnreadable(300);
  media.markUnreadable(200, UnreadableKind::Flagged);
  uint64_t lba = 0;
  ASSERT_TRUE(media.firstUnreadable(0, 999, &lba));
  EXPECT_EQ(lba, 200u);
  ASSERT_TRUE(media.firstUnreadable(201, 999, &lba));
  EXPECT_EQ(lba, 300u);
  EXPECT_FALSE(media.firstUnreadable(301, 999, &lba));
  EXPECT_EQ(media.unreadableCount(UnreadableKind::Pending), 1u);
  EXPECT_EQ(media.unreadableCount(UnreadableKind::Flagged), 1u);
}

TEST(Media, ByteWritesKeepTheRestOfAPartialSector) {
  Media media(512, 10);
  media.setFill(SectorFill::Byte, 0x11);
  const uint8_t patch[4] = {1, 2, 3, 4};
  ASSERT_EQ(media.writeBytes(510, 4, patch), MediaResult::Ok);
  std::vector<uint8_t> out(1024);
  ASSERT_EQ(media.read(0, 2, out.data()), MediaResult::Ok);
  EXPECT_EQ(out[509], 0x11);
  EXPECT_EQ(out[510], 1);
  EXPECT_EQ(out[513], 4);
  EXPECT_EQ(out[514], 0x11);
  uint8_t some[6];
  ASSERT_EQ(media.readBytes(509, 6, some), MediaResult::Ok);
  EXPECT_EQ(some[1], 1);
  EXPECT_EQ(some[5], 0x11);
}

TEST(Media, ImageUnderlaysUnwrittenSectorsAndIsNeverWritten) {
  const std::string path = ::testing::TempDir() + "/sim_media_image.bin";
  {
    std::ofstream f(path, std::ios::binary);
    std::vector<char> block(1024, 'I');
    f.write(block.data(), static_cast<std::streamsize>(block.size()));
  }
  Media media(512, 10);
  std::string error;
  ASSERT_TRUE(media.attachImage(path, &error)) << error;
  std::vector<uint8_t> out(512);
  ASSERT_EQ(media.read(1, 1, out.data()), MediaResult::Ok);
  EXPECT_EQ(out[0], 'I');
  ASSERT_EQ(media.read(2, 1, out.data()), MediaResult::Ok);
  EXPECT_EQ(out[0], 0);
  std::vector<uint8_t> data(512, 'W');
  media.write(1, 1, data.data());
  std::ifstream check(path, std::ios::binary);
  check.seekg(512);
  EXPECT_EQ(check.get(), 'I');
  std::remove(path.c_str());
}

TEST(Media, MissingImageIsReportedByName) {
  Media media(512, 10);
  std::string error;
  EXPECT_FALSE(media.attachImage("/nonexistent/disk.img", &error));
  EXPECT_NE(error.find("/nonexistent/disk.img"), std::string::npos);
}

TEST(Media, WritesAreJournalledUnderTheDeviceName) {
  auto journal = std::make_shared<Journal>();
  auto clock = std::make_shared<VirtualClock>();
  clock->advanceMs(1234);
  Media media(512, 100);
  media.setJournal(journal, "disk0", clock);
  std::vector<uint8_t> data(512 * 3);
  media.write(10, 3, data.data());
  ASSERT_EQ(journal->writesTo("disk0").size(), 1u);
  EXPECT_TRUE(journal->wasWritten("disk0", 12));
  EXPECT_FALSE(journal->wasWritten("disk0", 13));
  EXPECT_FALSE(journal->anyWrittenIn("disk0", 0, 9));
  EXPECT_EQ(journal->entriesFor("disk0")[0].timeMs, 1234u);
}

TEST(Media, GibibytesOfOneByteAreKeptAsARunAndReadBack) {
  Media media(512, 64ULL << 21);  // 64 GiB
  // 1 GiB of 0xAA, written the way a file test does: a MiB at a time.
  std::vector<uint8_t> chunk(1 << 20, 0xAA);
  for (uint64_t lba = 2048; lba < 2048 + (2ULL << 20); lba += 2048) {
    ASSERT_EQ(media.write(lba, 2048, chunk.data()), MediaResult::Ok);
  }
  EXPECT_EQ(media.storedSectors(), 2ULL << 20);
  EXPECT_TRUE(media.isStored(2048));
  EXPECT_TRUE(media.isStored(2048 + (2ULL << 20) - 1));
  EXPECT_FALSE(media.isStored(2047));
  EXPECT_FALSE(media.isStored(2048 + (2ULL << 20)));
  std::vector<uint8_t> out(3 * 512);
  ASSERT_EQ(media.read(2047, 3, out.data()), MediaResult::Ok);
  EXPECT_EQ(out[511], 0);
  EXPECT_EQ(out[512], 0xAA);
  EXPECT_EQ(out[3 * 512 - 1], 0xAA);
}

TEST(Media, MixedDataWrittenIntoARunSplitsItAndKeepsBothSides) {
  Media media(512, 100);
  std::vector<uint8_t> ones(512 * 10, 0x01);
  ASSERT_EQ(media.write(10, 10, ones.data()), MediaResult::Ok);
  std::vector<uint8_t> mixed(512);
  for (size_t i = 0; i < mixed.size(); ++i) mixed[i] = static_cast<uint8_t>(i);
  ASSERT_EQ(media.write(14, 1, mixed.data()), MediaResult::Ok);
  // Another byte over the tail of the run, and past its end.
  std::vector<uint8_t> twos(512 * 4, 0x02);
  ASSERT_EQ(media.write(18, 4, twos.data()), MediaResult::Ok);
  EXPECT_EQ(media.storedSectors(), 12u);
  std::vector<uint8_t> out(512 * 13);
  ASSERT_EQ(media.read(9, 13, out.data()), MediaResult::Ok);
  auto sectorByte = [&](uint64_t lba, size_t at) { return out[(lba - 9) * 512 + at]; };
  EXPECT_EQ(sectorByte(9, 0), 0);
  EXPECT_EQ(sectorByte(10, 0), 1);
  EXPECT_EQ(sectorByte(13, 511), 1);
  EXPECT_EQ(sectorByte(14, 7), 7);
  EXPECT_EQ(sectorByte(14, 300), static_cast<uint8_t>(300));
  EXPECT_EQ(sectorByte(15, 0), 1);
  EXPECT_EQ(sectorByte(17, 511), 1);
  EXPECT_EQ(sectorByte(18, 0), 2);
  EXPECT_EQ(sectorByte(21, 511), 2);
  // A run written over the mixed sector takes its place.
  ASSERT_EQ(media.write(14, 1, ones.data()), MediaResult::Ok);
  ASSERT_EQ(media.read(14, 1, out.data()), MediaResult::Ok);
  EXPECT_EQ(out[300], 1);
  EXPECT_EQ(media.storedSectors(), 12u);
}

TEST(Media, WholeSectorsOfAByteWriteGoToTheJournalAsOneRange) {
  auto journal = std::make_shared<Journal>();
  auto clock = std::make_shared<VirtualClock>();
  Media media(512, 100);
  media.setJournal(journal, "disk0", clock);
  std::vector<uint8_t> data(512 * 4 + 10, 0x5A);
  // 10 bytes into sector 1, sectors 2 to 5 whole.
  ASSERT_EQ(media.writeBytes(512 + 502, data.size(), data.data()), MediaResult::Ok);
  const std::vector<std::pair<uint64_t, uint64_t>> expected = {{1, 1}, {2, 4}};
  EXPECT_EQ(journal->writesTo("disk0"), expected);
  std::vector<uint8_t> back(data.size());
  ASSERT_EQ(media.readBytes(512 + 502, back.size(), back.data()), MediaResult::Ok);
  EXPECT_EQ(back, data);
}

}  // namespace
}  // namespace sim
