// The sense parser: both formats, the descriptor walk, and hostile lengths
// that must never take it past the 32 bytes it is given.
#include "commands/scsi/sense_data.h"

#include <gtest/gtest.h>

#include <array>
#include <cstring>
#include <random>

#include "commands/status_codes.h"

#if defined(__unix__)
#include <sys/mman.h>
#include <unistd.h>
#endif

namespace {

using Sense = std::array<uint8_t, 32>;

// Holds 32 sense bytes at the very end of a readable page, with a page that
// cannot be read right behind them: a read past the 32 bytes faults.
class GuardedSense {
 public:
  GuardedSense() {
#if defined(__unix__)
    pageSize = static_cast<size_t>(sysconf(_SC_PAGESIZE));
    void* region = mmap(nullptr, 2 * pageSize, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
    if (region == MAP_FAILED) return;
    base = static_cast<uint8_t*>(region);
    mprotect(base + pageSize, pageSize, PROT_NONE);
    bytes = base + pageSize - 32;
#else
    bytes = fallback.data();
#endif
  }
  ~GuardedSense() {
#if defined(__unix__)
    if (base != nullptr) munmap(base, 2 * pageSize);
#endif
  }
  GuardedSense(const GuardedSense&) = delete;
  GuardedSense& operator=(const GuardedSense&) = delete;

  const uint8_t* load(const Sense& sense) {
    std::memcpy(bytes, sense.data(), sense.size());
    return bytes;
  }
  bool ready() const { return bytes != nullptr; }

 private:
  uint8_t* bytes = nullptr;
#if defined(__unix__)
  uint8_t* base = nullptr;
  size_t pageSize = 0;
#else
  Sense fallback{};
#endif
};

TEST(SenseData, FixedFormatGivesKeyAscAscqAndSpecificBytes) {
  Sense s{};
  s[0] = 0x70;
  s[2] = 0xF3;  // filemark, EOM, ILI bits above key 3
  s[7] = 10;
  s[12] = 0x11;
  s[13] = 0x04;
  s[15] = 0x80;
  s[16] = 0x12;
  s[17] = 0x34;
  SenseData data;
  EXPECT_EQ(data.parse(s.data()), kStatusOk);
  EXPECT_EQ(data.getResponseCode(), 0x70);
  EXPECT_EQ(data.getSenseKey(), 3);
  EXPECT_EQ(data.getAsc(), 0x11);
  EXPECT_EQ(data.getAscq(), 0x04);
  SenseInformation info;
  EXPECT_EQ(data.getInformation(2, &info), kStatusOk);
  EXPECT_EQ(info.specific[0], 0x80);
  EXPECT_EQ(info.specific[1], 0x12);
  EXPECT_EQ(info.specific[2], 0x34);
}

TEST(SenseData, FixedFormatStoresSpecificBytesWhetherOrNotTheirValidBitIsSet) {
  Sense s{};
  s[0] = 0xF1;  // VALID bit and deferred fixed format
  s[2] = 0x05;
  s[15] = 0x00;  // SKSV clear
  s[16] = 0xAB;
  s[17] = 0xCD;
  SenseData data;
  EXPECT_EQ(data.parse(s.data()), kStatusOk);
  EXPECT_EQ(data.getResponseCode(), 0x71);
  EXPECT_EQ(data.getSenseKey(), 5);
  SenseInformation info;
  ASSERT_EQ(data.getInformation(2, &info), kStatusOk);
  EXPECT_EQ(info.specific[1], 0xAB);
  EXPECT_EQ(info.specific[2], 0xCD);
}

TEST(SenseData, DescriptorFormatGivesKeyAscAscqFromBytesOneToThree) {
  Sense s{};
  s[0] = 0x72;
  s[1] = 0x04;
  s[2] = 0x44;
  s[3] = 0x00;
  SenseData data;
  EXPECT_EQ(data.parse(s.data()), kStatusOk);
  EXPECT_EQ(data.getSenseKey(), 4);
  EXPECT_EQ(data.getAsc(), 0x44);
  EXPECT_EQ(data.getAscq(), 0x00);
  SenseInformation info;
  EXPECT_EQ(data.getInformation(2, &info), kStatusNotAvailable);
}

TEST(SenseData, DescriptorFormatFindsTheSenseKeySpecificDescriptor) {
  Sense s{};
  s[0] = 0x73;
  s[1] = 0x02;
  s[7] = 8;
  s[8] = 0x02;  // sense-key specific
  s[9] = 0x06;
  s[12] = 0x80;
  s[13] = 0x40;
  s[14] = 0x00;
  SenseData data;
  EXPECT_EQ(data.parse(s.data()), kStatusOk);
  SenseInformation info;
  ASSERT_EQ(data.getInformation(2, &info), kStatusOk);
  EXPECT_EQ(info.specific[0], 0x80);
  EXPECT_EQ(info.specific[1], 0x40);
  EXPECT_EQ(info.specific[2], 0x00);
}

TEST(SenseData, DescriptorOfAnotherKindIsSkippedByItsOwnLength) {
  Sense s{};
  s[0] = 0x72;
  s[1] = 0x01;
  s[7] = 22;
  s[8] = 0x09;  // ATA status return, 14 bytes
  s[9] = 0x0C;
  s[10] = 0x02;  // would be taken as a type-2 descriptor by a walk that stepped wrong
  s[22] = 0x02;
  s[23] = 0x06;
  s[26] = 0x11;
  s[27] = 0x22;
  s[28] = 0x33;
  SenseData data;
  EXPECT_EQ(data.parse(s.data()), kStatusOk);
  SenseInformation info;
  ASSERT_EQ(data.getInformation(2, &info), kStatusOk);
  EXPECT_EQ(info.specific[0], 0x11);
  EXPECT_EQ(info.specific[1], 0x22);
  EXPECT_EQ(info.specific[2], 0x33);
}

TEST(SenseData, DescriptorFormatWithAdditionalLengthZeroStopsBeforeTheDescriptors) {
  Sense s{};
  s[0] = 0x72;
  s[8] = 0x02;
  s[12] = 0x99;
  SenseData data;
  EXPECT_EQ(data.parse(s.data()), kStatusOk);
  SenseInformation info;
  EXPECT_EQ(data.getInformation(2, &info), kStatusNotAvailable);
}

TEST(SenseData, WalkStopsAtTheAdditionalLength) {
  Sense s{};
  s[0] = 0x72;
  s[7] = 4;  // only the first descriptor lies inside
  s[8] = 0x01;
  s[9] = 0x02;
  s[12] = 0x02;  // second descriptor, beyond L
  s[16] = 0x77;
  SenseData data;
  EXPECT_EQ(data.parse(s.data()), kStatusOk);
  SenseInformation info;
  EXPECT_EQ(data.getInformation(2, &info), kStatusNotAvailable);
}

TEST(SenseData, ResponseCodeZeroGivesSeventyNineAndLeavesTheKeyAtZero) {
  Sense s{};
  s[2] = 0x05;
  s[1] = 0x05;
  s[12] = 0x24;
  SenseData data;
  EXPECT_EQ(data.parse(s.data()), kStatusUnknownSense);
  EXPECT_EQ(data.getSenseKey(), 0);
  EXPECT_EQ(data.getAsc(), 0);
  EXPECT_EQ(data.getAscq(), 0);
}

TEST(SenseData, VendorResponseCodeGivesSeventyNine) {
  Sense s{};
  s[0] = 0x7F;
  SenseData data;
  EXPECT_EQ(data.parse(s.data()), kStatusUnknownSense);
  EXPECT_EQ(data.getResponseCode(), 0x7F);
}

TEST(SenseData, NullSenseGivesSeventyNine) {
  SenseData data;
  EXPECT_EQ(data.parse(nullptr), kStatusUnknownSense);
}

TEST(SenseData, ParsingTwiceKeepsTheFirstSpecificBytes) {
  Sense first{};
  first[0] = 0x70;
  first[2] = 0x02;
  first[15] = 0x80;
  first[16] = 0x10;
  Sense second = first;
  second[2] = 0x03;
  second[16] = 0x90;
  SenseData data;
  ASSERT_EQ(data.parse(first.data()), kStatusOk);
  ASSERT_EQ(data.parse(second.data()), kStatusOk);
  EXPECT_EQ(data.getSenseKey(), 3);  // the key is the latest
  SenseInformation info;
  ASSERT_EQ(data.getInformation(2, &info), kStatusOk);
  EXPECT_EQ(info.specific[1], 0x10);  // the stored bytes are the first
}

TEST(SenseData, GetInformationOfAnUnstoredTypeGivesOneAndANullOutGivesTwo) {
  Sense s{};
  s[0] = 0x70;
  SenseData data;
  ASSERT_EQ(data.parse(s.data()), kStatusOk);
  SenseInformation info;
  info.specific[0] = 0x5A;
  EXPECT_EQ(data.getInformation(1, &info), kStatusNotAvailable);
  EXPECT_EQ(info.specific[0], 0x5A);
  EXPECT_EQ(data.getInformation(2, nullptr), kStatusBadArgument);
}

TEST(SenseData, HostileAdditionalLengthNeverTakesTheWalkPastThirtyTwoBytes) {
  GuardedSense guard;
  ASSERT_TRUE(guard.ready());
  // Every descriptor claims length 0: the walk steps by two up to the end.
  Sense s{};
  s[0] = 0x72;
  s[7] = 0xFF;
  for (size_t i = 8; i < s.size(); ++i) s[i] = 0;
  SenseData data;
  EXPECT_EQ(data.parse(guard.load(s)), kStatusOk);
  SenseInformation info;
  EXPECT_EQ(data.getInformation(2, &info), kStatusNotAvailable);
}

TEST(SenseData, SenseKeySpecificDescriptorCutOffByTheEndIsNotRead) {
  GuardedSense guard;
  ASSERT_TRUE(guard.ready());
  Sense s{};
  s[0] = 0x72;
  s[7] = 0xFF;
  s[8] = 0x01;
  s[9] = 20;  // next descriptor at 30: its specific bytes would be at 34..36
  s[30] = 0x02;
  s[31] = 0x06;
  SenseData data;
  EXPECT_EQ(data.parse(guard.load(s)), kStatusOk);
  SenseInformation info;
  EXPECT_EQ(data.getInformation(2, &info), kStatusNotAvailable);
}

TEST(SenseData, DescriptorLengthThatWrapsTheEightBitOffsetEndsTheWalk) {
  GuardedSense guard;
  ASSERT_TRUE(guard.ready());
  Sense s{};
  s[0] = 0x72;
  s[7] = 0xFF;
  s[8] = 0x01;
  s[9] = 0xFE;  // 0 + 0xFE + 2 wraps to 0: the same descriptor again, for ever
  SenseData data;
  EXPECT_EQ(data.parse(guard.load(s)), kStatusOk);
  s[9] = 0xFF;  // wraps to 1, then on through odd offsets
  SenseData other;
  EXPECT_EQ(other.parse(guard.load(s)), kStatusOk);
}

TEST(SenseData, LastDescriptorWhoseLengthByteIsTheThirtyThirdIsNotRead) {
  GuardedSense guard;
  ASSERT_TRUE(guard.ready());
  Sense s{};
  s[0] = 0x72;
  s[7] = 0xFF;
  s[8] = 0x01;
  s[9] = 21;  // next descriptor type at 31, its length byte would be at 32
  s[31] = 0x05;
  SenseData data;
  EXPECT_EQ(data.parse(guard.load(s)), kStatusOk);
}

TEST(SenseData, RandomBytesNeverReadPastThirtyTwo) {
  GuardedSense guard;
  ASSERT_TRUE(guard.ready());
  std::mt19937 random(20240611);
  std::uniform_int_distribution<int> byte(0, 255);
  int parsed = 0;
  for (int round = 0; round < 20000; ++round) {
    Sense s{};
    for (auto& b : s) b = static_cast<uint8_t>(byte(random));
    s[0] = static_cast<uint8_t>(0x70 + (round % 4));  // every round a known format
    SenseData data;
    if (data.parse(guard.load(s)) == kStatusOk) ++parsed;
  }
  EXPECT_EQ(parsed, 20000);
}

}  // namespace
