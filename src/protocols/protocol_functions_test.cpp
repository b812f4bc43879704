// The shared helpers of the protocol layer, on hand-built blocks and strings.
#include "protocols/protocol_functions.h"

#include <gtest/gtest.h>

#include <array>
#include <stdexcept>

namespace {

// A 512-byte identify block that a plain ATA disk could send: word 0 = 0x0040
// (fixed device), some model bytes, no integrity word.
std::array<uint8_t, 512> plainIdentify() {
  std::array<uint8_t, 512> block{};
  block[0] = 0x40;
  block[54] = 'T';
  block[55] = 'S';
  return block;
}

void setWord(std::array<uint16_t, 256>& words, size_t index, uint16_t value) { words[index] = value; }

// Puts the 0xA5 signature in byte 510 and the byte that makes the sum zero in 511.
void sealIdentify(std::array<uint8_t, 512>& block) {
  block[510] = 0xA5;
  uint8_t sum = 0;
  for (size_t i = 0; i < 511; ++i) sum = static_cast<uint8_t>(sum + block[i]);
  block[511] = static_cast<uint8_t>(0x100 - sum);
}

TEST(MakeLba, AssemblesSixBytesLowestFirst) {
  EXPECT_EQ(makeLba48(0x01, 0x02, 0x03, 0x04, 0x05, 0x06), 0x060504030201ull);
  EXPECT_EQ(makeLba48(0xFF, 0, 0, 0, 0, 0), 0xFFull);
  EXPECT_EQ(makeLba48(0, 0, 0, 0, 0, 0xFF), 0xFF0000000000ull);
}

TEST(MakeLba, AssemblesEightBytesLowestFirst) {
  EXPECT_EQ(makeLba64(0x11, 0x22, 0x33, 0x44, 0x55, 0x66, 0x77, 0x88), 0x8877665544332211ull);
}

TEST(IsChecksumValid, LengthOneOnByteOfValueOneIsFalse) {
  const uint8_t one = 1;
  EXPECT_FALSE(isChecksumValid(&one, 1));
  const uint8_t zero = 0;
  EXPECT_TRUE(isChecksumValid(&zero, 1));
}

TEST(IsChecksumValid, LengthZeroIsTrue) {
  const uint8_t one = 1;
  EXPECT_TRUE(isChecksumValid(&one, 0));
  EXPECT_TRUE(isChecksumValid(nullptr, 0));
}

TEST(IsChecksumValid, SumWrapsAtEightBits) {
  const uint8_t bytes[] = {0x80, 0x7F, 0x01};
  EXPECT_TRUE(isChecksumValid(bytes, 3));
  EXPECT_FALSE(isChecksumValid(bytes, 2));
}

TEST(IsChecksumValid, NullDataOrNegativeLengthIsRefused) {
  const uint8_t zero = 0;
  EXPECT_FALSE(isChecksumValid(nullptr, 4));
  EXPECT_FALSE(isChecksumValid(&zero, -1));
}

TEST(IsValidIdentifyData, NullBlockIsInvalid) { EXPECT_FALSE(isValidIdentifyData(nullptr)); }

TEST(IsValidIdentifyData, PlainBlockWithoutIntegrityWordIsAccepted) {
  auto block = plainIdentify();
  EXPECT_TRUE(isValidIdentifyData(block.data()));
}

TEST(IsValidIdentifyData, BlockWithoutSignatureAndBadSumIsAccepted) {
  auto block = plainIdentify();
  block[510] = 0x5A;  // not the signature
  block[511] = 0x13;  // and the sum is far from zero
  EXPECT_TRUE(isValidIdentifyData(block.data()));
}

TEST(IsValidIdentifyData, SignedBlockWithRightSumIsAccepted) {
  auto block = plainIdentify();
  sealIdentify(block);
  EXPECT_TRUE(isValidIdentifyData(block.data()));
}

TEST(IsValidIdentifyData, SignedBlockWithBadSumIsRefused) {
  auto block = plainIdentify();
  sealIdentify(block);
  block[100] ^= 0x01;
  EXPECT_FALSE(isValidIdentifyData(block.data()));
}

TEST(IsValidIdentifyData, AllZeroBlockIsRefused) {
  std::array<uint8_t, 512> block{};
  EXPECT_FALSE(isValidIdentifyData(block.data()));
}

TEST(IsValidIdentifyData, PacketDeviceWithWordZeroBit15IsRefused) {
  auto block = plainIdentify();
  block[1] = 0x85;  // word 0 = 0x8540: ATAPI
  EXPECT_FALSE(isValidIdentifyData(block.data()));
  sealIdentify(block);
  EXPECT_FALSE(isValidIdentifyData(block.data()));
}

TEST(GetIdentifyCapacityBytes, Uses28BitCountWithoutLba48) {
  std::array<uint16_t, 256> words{};
  setWord(words, 60, 0x5678);
  setWord(words, 61, 0x0012);
  setWord(words, 100, 0xFFFF);  // ignored without word 83 bit 10
  EXPECT_EQ(getIdentifyCapacityBytes(words.data()), 0x125678ull * 512);
}

TEST(GetIdentifyCapacityBytes, SignExtends28BitCountWithHighBitSet) {
  std::array<uint16_t, 256> words{};
  setWord(words, 60, 0x0000);
  setWord(words, 61, 0x8000);
  const uint64_t sectors = 0xFFFFFFFF80000000ull;
  EXPECT_EQ(getIdentifyCapacityBytes(words.data()), sectors * 512);
}

TEST(GetIdentifyCapacityBytes, Uses48BitCountWhenWord83Bit10IsSet) {
  std::array<uint16_t, 256> words{};
  setWord(words, 83, 0x0400);
  setWord(words, 100, 0x6030);
  setWord(words, 101, 0x3A38);  // 976773168 sectors: a 500 GB disk
  EXPECT_EQ(getIdentifyCapacityBytes(words.data()), 976773168ull * 512);
}

TEST(GetIdentifyCapacityBytes, LongLogicalSectorKeepsAdditionOutsideTheProduct) {
  std::array<uint16_t, 256> words{};
  setWord(words, 83, 0x0400);
  setWord(words, 100, 1000);
  setWord(words, 106, 0x5000);  // valid, long logical sectors
  setWord(words, 117, 0x0800);
  setWord(words, 118, 0x0001);
  EXPECT_EQ(getIdentifyCapacityBytes(words.data()), 0x10000ull * 1000 + 0x0800);
}

TEST(GetIdentifyCapacityBytes, Word106WithoutValiditySignatureIsIgnored) {
  std::array<uint16_t, 256> words{};
  setWord(words, 60, 100);
  setWord(words, 106, 0xD000);  // bit 15 set: not valid
  setWord(words, 118, 0x0001);
  EXPECT_EQ(getIdentifyCapacityBytes(words.data()), 100ull * 512);
  setWord(words, 106, 0x4000);  // valid, but no long logical sectors
  EXPECT_EQ(getIdentifyCapacityBytes(words.data()), 100ull * 512);
}

TEST(GetIdentifyCapacityBytes, NullBlockGivesZero) { EXPECT_EQ(getIdentifyCapacityBytes(nullptr), 0u); }

TEST(ReadAtaString, ExchangesTheBytesOfEachWord) {
  const uint8_t words[] = {'T', 'S', '3', '5', ' ', ' '};
  EXPECT_EQ(readAtaString(words, 3), "ST53  ");
}

TEST(ReadAtaString, KeepsNulBytesAndTrimsNothing) {
  const uint8_t words[] = {'B', 'A', 0, 'C', ' ', 0};
  const std::string text = readAtaString(words, 3);
  ASSERT_EQ(text.size(), 6u);
  EXPECT_EQ(text, std::string("ABC\0\0 ", 6));
}

TEST(ReadAtaString, InPlaceFormReplacesTheOldContent) {
  const uint8_t words[] = {'D', 'W'};
  std::string text = "previous";
  readAtaString(words, 1, text);
  EXPECT_EQ(text, "WD");
  readAtaString(nullptr, 4, text);
  EXPECT_EQ(text, "");
}

TEST(GetVendorName, SingleWordSeagateModelGivesSeagate) { EXPECT_EQ(getVendorName("ST3500418AS"), "Seagate"); }

TEST(GetVendorName, TwoWordModelGivesFirstWordCapitalised) {
  EXPECT_EQ(getVendorName("WDC WD5000AAKS"), "Wdc");
  EXPECT_EQ(getVendorName("HITACHI HTS72"), "Hitachi");
}

TEST(GetVendorName, SingleWordPrefixes) {
  EXPECT_EQ(getVendorName("HTS721010G9SA00"), "HT");
  EXPECT_EQ(getVendorName("WD5000AAKS"), "Western Digital");
  EXPECT_EQ(getVendorName("ST1000DM003   "), "Seagate");  // trailing blanks keep it one word
}

TEST(GetVendorName, PrefixIsCaseSensitiveAndAnchoredAtPositionZero) {
  EXPECT_EQ(getVendorName("st3500418AS"), "Generic Vendor");
  EXPECT_EQ(getVendorName("  ST3500418AS"), "Generic Vendor");
  EXPECT_EQ(getVendorName("SAMSUNG"), "Generic Vendor");
}

TEST(GetVendorName, EmptyModelEndsInInvalidStringPosition) {
  try {
    getVendorName("");
    FAIL() << "an empty model must not name a vendor";
  } catch (const std::out_of_range& error) {
    EXPECT_STREQ(error.what(), "invalid string position");
  }
}

TEST(GetVendorName, AllBlankModelEndsInInvalidStringPosition) {
  EXPECT_THROW(getVendorName("     "), std::out_of_range);
}

TEST(GetAtaMinorVersionName, FFFFIsNotReported) {
  EXPECT_EQ(getAtaMinorVersionName(0xFFFF), "VERSION_NOT_REPORTED");
  EXPECT_EQ(getAtaMinorVersionName(0), "VERSION_NOT_REPORTED");
}

TEST(GetAtaMinorVersionName, Value0x31IsUnrecognized) {
  EXPECT_EQ(getAtaMinorVersionName(0x0031), "UNRECOGNIZED_VERSION");
  EXPECT_EQ(getAtaMinorVersionName(-1), "UNRECOGNIZED_VERSION");
}

TEST(GetAtaMinorVersionName, KnownVersionsHaveTheirNames) {
  EXPECT_EQ(getAtaMinorVersionName(0x000D), "ATA/ATAPI-4 X3T13 1153D version 6");
  EXPECT_EQ(getAtaMinorVersionName(0x001D), "ATA-ATAPI-7 published, ANSI INCITS 397-2005");
  EXPECT_EQ(getAtaMinorVersionName(0x0107), "ATA8-ACS version 2d");
  EXPECT_EQ(getAtaMinorVersionName(0x0052), "ATA8-ACS version 3b");
}

}  // namespace
