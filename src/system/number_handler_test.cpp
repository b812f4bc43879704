// Strict decimal conversion of test parameters.
#include "system/number_handler.h"

#include <gtest/gtest.h>

namespace {

TEST(StrictDecimal, StringToIntAcceptsSignedDecimal) {
  bool ok = false;
  EXPECT_EQ(stringToInt("-17", &ok), -17);
  EXPECT_TRUE(ok);
  EXPECT_EQ(stringToInt("2147483647", &ok), 2147483647);
  EXPECT_TRUE(ok);
}

TEST(StrictDecimal, StringToIntRefusesTrailingTextHexAndOverflow) {
  bool ok = true;
  EXPECT_EQ(stringToInt("12x", &ok), 0);
  EXPECT_FALSE(ok);
  ok = true;
  stringToInt("0x10", &ok);
  EXPECT_FALSE(ok);
  ok = true;
  stringToInt("2147483648", &ok);
  EXPECT_FALSE(ok);
  ok = true;
  stringToInt("", &ok);
  EXPECT_FALSE(ok);
}

TEST(StrictDecimal, StringToUIntRefusesNegativeAndOverflow) {
  bool ok = false;
  EXPECT_EQ(stringToUInt("4294967295", &ok), 4294967295u);
  EXPECT_TRUE(ok);
  ok = true;
  stringToUInt("-1", &ok);
  EXPECT_FALSE(ok);
  ok = true;
  stringToUInt("4294967296", &ok);
  EXPECT_FALSE(ok);
}

TEST(StrictDecimal, NullOkIsAllowed) { EXPECT_EQ(stringToUInt("255", nullptr), 255u); }

}  // namespace
