// Parsing, number texts, sizes for the user and the random sequence.
#include "system/number_handler_imp.h"

#include <gtest/gtest.h>

#include <cmath>
#include <cstdlib>
#include <vector>

namespace {

class Numbers : public ::testing::Test {
 protected:
  NumberHandlerImp handler;
};

TEST_F(Numbers, ParseInt64AcceptsTrailingTextButStrictFormDoesNot) {
  int64_t value = 0;
  EXPECT_TRUE(handler.parseInt64(&value, "12x", std::dec));
  EXPECT_EQ(value, 12);
  EXPECT_FALSE(handler.parseInt64Strict(&value, "12x", std::dec));
  EXPECT_TRUE(handler.parseInt64Strict(&value, "-42", std::dec));
  EXPECT_EQ(value, -42);
}

TEST_F(Numbers, ParseHonoursTheBaseManipulator) {
  uint64_t value = 0;
  EXPECT_TRUE(handler.parseUInt64(&value, "ff", std::hex));
  EXPECT_EQ(value, 255u);
  EXPECT_TRUE(handler.parseUInt64Again(&value, "0x10", std::hex));
  EXPECT_EQ(value, 16u);
  uint32_t small = 0;
  EXPECT_TRUE(handler.parseUInt32(&small, "4096", std::dec));
  EXPECT_EQ(small, 4096u);
}

TEST_F(Numbers, ParseFailsOnNoNumberOrOverflow) {
  int64_t value = 0;
  EXPECT_FALSE(handler.parseInt64(&value, "abc", std::dec));
  EXPECT_FALSE(handler.parseInt64(&value, "", std::dec));
  uint32_t small = 0;
  EXPECT_FALSE(handler.parseUInt32(&small, "4294967296", std::dec));
  EXPECT_FALSE(handler.parseInt64(nullptr, "1", std::dec));
}

TEST_F(Numbers, ParseDouble) {
  double value = 0;
  EXPECT_TRUE(handler.parseDouble(&value, "1.25", std::dec));
  EXPECT_DOUBLE_EQ(value, 1.25);
  EXPECT_FALSE(handler.parseDouble(&value, "x1", std::dec));
}

TEST_F(Numbers, NumberTexts) {
  EXPECT_EQ(handler.boolToString(true), "true");
  EXPECT_EQ(handler.boolToString(false), "false");
  EXPECT_EQ(handler.int64ToString(-9000000000), "-9000000000");
  EXPECT_EQ(handler.uint64ToString(18446744073709551615ull), "18446744073709551615");
  EXPECT_EQ(handler.uint64ToStringAgain(7), "7");
  EXPECT_EQ(handler.floatToString(1.5f, 2, true), "1.50");
  EXPECT_EQ(handler.floatToString(1.5f, 3, false), "1.5");
}

TEST_F(Numbers, FormatSizeOf999DecimalStaysInBytesWithPlural) {
  EXPECT_EQ(handler.formatSize(999, "B", false), "999.00 bytes");
}

TEST_F(Numbers, FormatSizeOf1000DecimalIsOneKilo) { EXPECT_EQ(handler.formatSize(1000, "B", false), "1.00 KB"); }

TEST_F(Numbers, FormatSizeOf1023BinaryStaysInStepZero) {
  EXPECT_EQ(handler.formatSize(1023, "B", true), "1023.00 bytes");
}

TEST_F(Numbers, FormatSizeExamples) {
  EXPECT_EQ(handler.formatSize(1536, "B", true), "1.50 KBs");
  EXPECT_EQ(handler.formatSize(1, "B", true), "1.00 byte");
  EXPECT_EQ(handler.formatSize(2, "B", true), "2.00 bytes");
  EXPECT_EQ(handler.formatSize(1024, "B", true), "1.00 KB");
  EXPECT_EQ(handler.formatSize(0, "B", true), "0.00 byte");
}

TEST_F(Numbers, FormatSizeUnitsOtherThanByteAndBit) {
  EXPECT_EQ(handler.formatSize(1, "b", false), "1.00 bit");
  EXPECT_EQ(handler.formatSize(8, "b", false), "8.00 bits");
  EXPECT_EQ(handler.formatSize(5, "Hz", false), "5.00Hzs");
  EXPECT_EQ(handler.formatSize(2500000, "Hz", false), "2.50 MHzs");
}

TEST_F(Numbers, FormatSizeOfLargestValueIsSixteenExbi) {
  EXPECT_EQ(handler.formatSize(18446744073709551615ull, "B", true), "16.00 EBs");
}

TEST_F(Numbers, ValueAbove1024ToTheEighthStopsAtYottaAbove1023) {
  // Past the 64-bit range: only the double form reaches it.
  const double value = std::pow(1024.0, 8) * 2000.0;
  EXPECT_EQ(handler.formatSizeOf(value, "B", true), "2000.00 YBs");
}

TEST_F(Numbers, FormatBytesIsBinaryBytes) { EXPECT_EQ(handler.formatBytes(1536), "1.50 KBs"); }

TEST_F(Numbers, FixedSeedRepeatsTheRandomSequence) {
  handler.seed(1234);
  std::vector<uint64_t> first;
  for (int i = 0; i < 8; ++i) first.push_back(handler.randomBelow(1000000007));
  handler.seed(1234);
  std::vector<uint64_t> second;
  for (int i = 0; i < 8; ++i) second.push_back(handler.randomBelow(1000000007));
  EXPECT_EQ(first, second);
  handler.seed(1235);
  std::vector<uint64_t> other;
  for (int i = 0; i < 8; ++i) other.push_back(handler.randomBelow(1000000007));
  EXPECT_NE(first, other);
}

TEST_F(Numbers, RandomBelowJoinsFiveDrawsOfTheRuntimeGenerator) {
  std::srand(99);
  uint64_t x = static_cast<uint64_t>(std::rand()) & 0x7FFF;
  for (int i = 0; i < 3; ++i) x = x * 32768 + (static_cast<uint64_t>(std::rand()) & 0x7FFF);
  x = x * 16 + (static_cast<uint64_t>(std::rand()) & 0x7F);
  handler.seed(99);
  EXPECT_EQ(handler.randomBelow(~0ull), x % ~0ull);
  handler.seed(99);
  EXPECT_EQ(handler.randomBelow(1000), x % 1000);
}

TEST_F(Numbers, RandomBelowStaysBelowTheLimit) {
  handler.seed(7);
  for (int i = 0; i < 200; ++i) EXPECT_LT(handler.randomBelow(10), 10u);
  EXPECT_EQ(handler.randomBelow(1), 0u);
}

TEST_F(Numbers, RandomBelowZeroLimitGivesZero) { EXPECT_EQ(handler.randomBelow(0), 0u); }

TEST_F(Numbers, UpdateRangeWidensOnlyWhereNeeded) {
  double minimum = 5;
  double maximum = 10;
  handler.updateRange(7, &minimum, &maximum);
  EXPECT_EQ(minimum, 5);
  EXPECT_EQ(maximum, 10);
  handler.updateRange(12, &minimum, &maximum);
  EXPECT_EQ(maximum, 12);
  handler.updateRange(-1, &minimum, &maximum);
  EXPECT_EQ(minimum, -1);
}

TEST(NumberHandlerAccessor, HandsOutOneObjectForTheProcess) {
  EXPECT_EQ(&getNumberHandler(), &getNumberHandler());
  EXPECT_NE(dynamic_cast<NumberHandlerImp*>(&getNumberHandler()), nullptr);
}

}  // namespace

namespace {

TEST(NumberHandlerReplacement, ReplacementServesTheAccessorUntilRemoved) {
  NumberHandler& own = getNumberHandler();
  NumberHandlerImp replacement;
  setNumberHandlerForTesting(&replacement);
  EXPECT_EQ(&getNumberHandler(), &replacement);
  setNumberHandlerForTesting(nullptr);
  EXPECT_EQ(&getNumberHandler(), &own);
}

}  // namespace
