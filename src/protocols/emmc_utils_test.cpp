// The platform-free eMMC helpers: the repeatable choice of sample indices and
// the decoding of the storage descriptor's strings.
#include "protocols/emmc_utils.h"

#include <gtest/gtest.h>

#include <cstring>
#include <random>
#include <vector>

namespace {

TEST(PickIndices, TakesZeroToMaxIndexMinusOneWhenTheCountReachesMaxIndex) {
  std::set<int32_t> chosen;
  pickIndices(5, 5, chosen);
  EXPECT_EQ(chosen, (std::set<int32_t>{0, 1, 2, 3, 4}));
  // The last index stays out even when more are asked for.
  std::set<int32_t> more;
  pickIndices(5, 40, more);
  EXPECT_EQ(more, (std::set<int32_t>{0, 1, 2, 3, 4}));
}

TEST(PickIndices, TakesNothingForAMaxIndexBelowOne) {
  std::set<int32_t> chosen;
  pickIndices(0, 3, chosen);
  pickIndices(-1, 0, chosen);
  EXPECT_TRUE(chosen.empty());
}

TEST(PickIndices, DrawsFromAFreshlySeededMersenneTwister) {
  // The first output of MT19937 with seed 5489 is 3499211612; scaled to the
  // eleven indices 0..10 it is 8.96..., so the single draw is 8.
  std::mt19937 reference;
  const uint32_t first = reference();
  ASSERT_EQ(first, 3499211612u);
  std::set<int32_t> chosen;
  pickIndices(10, 1, chosen);
  EXPECT_EQ(chosen, (std::set<int32_t>{8}));
}

TEST(PickIndices, TheSameArgumentsGiveTheSameDistinctIndicesInRange) {
  std::set<int32_t> first;
  std::set<int32_t> second;
  pickIndices(1000, 50, first);
  pickIndices(1000, 50, second);
  EXPECT_EQ(first.size(), 50u);
  EXPECT_EQ(first, second);
  EXPECT_GE(*first.begin(), 0);
  EXPECT_LE(*first.rbegin(), 1000);
}

TEST(PickIndices, KeepsDrawingUntilTheCountIsReached) {
  // The second output is 581869302: 0.135... x 11 gives index 1.
  std::set<int32_t> chosen;
  pickIndices(10, 2, chosen);
  EXPECT_EQ(chosen, (std::set<int32_t>{1, 8}));
}

TEST(PickIndices, ADrawAtTheTopOfTheRangeGivesMaxIndexItself) {
  // 0.8147... x 5 is 4.07, at least maxIndex 4: the index is 4, which the
  // take-all branch never gives.
  std::set<int32_t> chosen;
  pickIndices(4, 1, chosen);
  EXPECT_EQ(chosen, (std::set<int32_t>{4}));
}

// A STORAGE_DEVICE_DESCRIPTOR of 1000 bytes with the given strings behind the
// 40-byte record (vendor, product, revision, serial; empty ones get offset 0).
std::vector<uint8_t> descriptor(const std::string& vendor, const std::string& product, const std::string& revision,
                                const std::string& serial) {
  std::vector<uint8_t> bytes(1000, 0);
  bytes[0] = 40;  // Version: the record's size
  bytes[4] = 40;
  size_t at = 40;
  const std::string* texts[] = {&vendor, &product, &revision, &serial};
  for (size_t i = 0; i < 4; ++i) {
    if (texts[i]->empty()) continue;
    const uint32_t offset = static_cast<uint32_t>(at);
    std::memcpy(bytes.data() + 12 + 4 * i, &offset, 4);
    std::memcpy(bytes.data() + at, texts[i]->data(), texts[i]->size());
    at += texts[i]->size() + 1;
  }
  return bytes;
}

uint32_t offsetAt(const std::vector<uint8_t>& bytes, size_t field) {
  uint32_t offset = 0;
  std::memcpy(&offset, bytes.data() + field, 4);
  return offset;
}

TEST(DecodeDeviceString, CopiesTheTextAtItsOffset) {
  std::vector<uint8_t> bytes = descriptor("", "BJTD4R", "0800", "0x9d0a8a30");
  char out[500];
  decodeDeviceString(bytes.data(), bytes.size(), offsetAt(bytes, 16), out, sizeof(out));
  EXPECT_STREQ(out, "BJTD4R");
  decodeDeviceString(bytes.data(), bytes.size(), offsetAt(bytes, 24), out, sizeof(out));
  EXPECT_STREQ(out, "0x9d0a8a30");
}

TEST(DecodeDeviceString, AZeroOffsetOrANullDescriptorGivesAnEmptyString) {
  std::vector<uint8_t> bytes = descriptor("", "BJTD4R", "", "");
  char out[500] = "left over";
  decodeDeviceString(bytes.data(), bytes.size(), 0, out, sizeof(out));
  EXPECT_STREQ(out, "");
  std::strcpy(out, "left over");
  decodeDeviceString(nullptr, 1000, 40, out, sizeof(out));
  EXPECT_STREQ(out, "");
}

TEST(DecodeDeviceString, AnOffsetBeyondTheRecordGivesAnEmptyString) {
  std::vector<uint8_t> bytes = descriptor("", "BJTD4R", "", "");
  char out[500] = "left over";
  decodeDeviceString(bytes.data(), bytes.size(), 5000, out, sizeof(out));
  EXPECT_STREQ(out, "");
}

TEST(DecodeDeviceString, HexadecimalTextStaysAsItStandsBecauseTheFirstStageGivesUpAtVersion) {
  // "3132" would decode to "12"; the first stage tests the record's first
  // byte (Version, 40) instead, gives up, and the text is copied unchanged.
  std::vector<uint8_t> bytes = descriptor("", "", "", "3132");
  char out[500];
  decodeDeviceString(bytes.data(), bytes.size(), offsetAt(bytes, 24), out, sizeof(out));
  EXPECT_STREQ(out, "3132");
}

TEST(DecodeDeviceString, TheFirstStageLowerCasesTheBytesItTestsInPlace) {
  // A record whose first byte is a letter: it is lower-cased in place, and the
  // second byte, no hexadecimal digit, ends the stage.
  std::vector<uint8_t> bytes = descriptor("", "", "", "SN1");
  bytes[0] = 'A';
  bytes[1] = 'Z';
  char out[500];
  decodeDeviceString(bytes.data(), bytes.size(), offsetAt(bytes, 24), out, sizeof(out));
  EXPECT_EQ(bytes[0], 'a');
  EXPECT_EQ(bytes[1], 'z');
  EXPECT_STREQ(out, "SN1");
}

TEST(DecodeDeviceString, StopsAtTheFirstControlCharacter) {
  std::vector<uint8_t> bytes = descriptor("", "", "", std::string("AB\x01") + "CD");
  char out[500];
  decodeDeviceString(bytes.data(), bytes.size(), offsetAt(bytes, 24), out, sizeof(out));
  EXPECT_STREQ(out, "AB");
}

TEST(DecodeDeviceString, ATextRunningToTheEndOfTheRecordStopsThere) {
  std::vector<uint8_t> bytes(60, 'X');
  std::memset(bytes.data(), 0, 40);
  bytes[0] = 40;
  char out[500];
  decodeDeviceString(bytes.data(), bytes.size(), 40, out, sizeof(out));
  EXPECT_EQ(std::string(out), std::string(20, 'X'));
}

TEST(DecodeDeviceString, ALongTextIsCutToTheDestination) {
  std::vector<uint8_t> bytes = descriptor("", "", "", std::string(700, 'Q'));
  bytes.resize(1000);
  char out[16];
  decodeDeviceString(bytes.data(), bytes.size(), offsetAt(bytes, 24), out, sizeof(out));
  EXPECT_EQ(std::string(out), std::string(15, 'Q'));
}

TEST(TrimDeviceString, RemovesLeadingAndTrailingWhiteSpace) {
  char text[] = " \t 4B2F9A  \r";
  trimDeviceString(text);
  EXPECT_STREQ(text, "4B2F9A");
  char blanks[] = "    ";
  trimDeviceString(blanks);
  EXPECT_STREQ(blanks, "");
}

TEST(TrimDeviceString, LeavesATextWithAByteAbove127Untrimmed) {
  char text[] = "  4B\xE9  ";
  trimDeviceString(text);
  EXPECT_STREQ(text, "  4B\xE9  ");
}

}  // namespace
