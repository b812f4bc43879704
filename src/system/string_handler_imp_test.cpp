// Byte-level string operations.
#include "system/string_handler_imp.h"

#include <gtest/gtest.h>

#include "system/win_string_handler_imp.h"

namespace {

class StringOps : public ::testing::Test {
 protected:
  WinStringHandlerImp handler;
};

TEST_F(StringOps, TrimOfBlanksOnlyGivesEmptyString) {
  std::string text = "   ";
  handler.trim(text);
  EXPECT_EQ(text, "");
}

TEST_F(StringOps, TrimRemovesOnlyBlanksAtBothEnds) {
  std::string text = "  a b  ";
  handler.trim(text);
  EXPECT_EQ(text, "a b");
  std::string tabs = "\tx \n";
  handler.trim(tabs);
  EXPECT_EQ(tabs, "\tx \n");
  std::string empty;
  handler.trim(empty);
  EXPECT_EQ(empty, "");
}

TEST_F(StringOps, IsNumberCountsOnlyMaxLengthCharacters) {
  EXPECT_TRUE(handler.isNumber("12a", 2));
  EXPECT_FALSE(handler.isNumber("12a", 3));
}

TEST_F(StringOps, IsNumberStopsAtNulAndTakesEmptyAsNumber) {
  EXPECT_TRUE(handler.isNumber("", 10));
  EXPECT_TRUE(handler.isNumber("0123456789", 100));
  EXPECT_TRUE(handler.isNumber("-1", 0));
  EXPECT_FALSE(handler.isNumber("-1", 1));
  EXPECT_FALSE(handler.isNumber(" 1", 2));
  EXPECT_FALSE(handler.isNumber(nullptr, 4));
}

TEST_F(StringOps, RemoveBlanksAppendsAllButBlanks) {
  std::string out = ">";
  handler.removeBlanks(" W D C\t1 ", out);
  EXPECT_EQ(out, ">WDC\t1");
}

TEST_F(StringOps, KeepPrintableDropsByte127AndEveryByteAbove) {
  std::string in = "a";
  in += '\x7F';
  in += '\x80';
  in += '\xFF';
  in += '~';
  in += ' ';
  in += '\x1F';
  in += '\0';
  std::string out;
  handler.keepPrintable(in, out);
  EXPECT_EQ(out, "a~ ");
}

TEST_F(StringOps, IsUpperCaseOfEmptyIsFalse) {
  EXPECT_FALSE(handler.isUpperCase(""));
  EXPECT_TRUE(handler.isUpperCase("ABC 12_"));
  EXPECT_TRUE(handler.isUpperCase("123"));
  EXPECT_FALSE(handler.isUpperCase("ABc"));
}

TEST_F(StringOps, CaseConversionActsOnEveryByte) {
  std::string text = "Hitachi HTS-72";
  handler.toUpperCase(text);
  EXPECT_EQ(text, "HITACHI HTS-72");
  handler.toLowerCase(text);
  EXPECT_EQ(text, "hitachi hts-72");
}

TEST_F(StringOps, StartsWith) {
  EXPECT_TRUE(handler.startsWith("\\\\.\\PhysicalDrive0", "\\\\.\\"));
  EXPECT_TRUE(handler.startsWith("abc", ""));
  EXPECT_FALSE(handler.startsWith("ab", "abc"));
  EXPECT_FALSE(handler.startsWith("xabc", "abc"));
}

TEST_F(StringOps, SplitWithTrailingDelimiterGivesNoEmptyLastPiece) {
  EXPECT_EQ(handler.split("a,b,", ','), (std::vector<std::string>{"a", "b"}));
  EXPECT_EQ(handler.split(",a,,b", ','), (std::vector<std::string>{"", "a", "", "b"}));
  EXPECT_TRUE(handler.split("", ',').empty());
}

TEST_F(StringOps, CompareNIsStrncmp) {
  EXPECT_EQ(handler.compareN("abcX", "abcY", 3), 0);
  EXPECT_LT(handler.compareN("abcX", "abcY", 4), 0);
  EXPECT_GT(handler.compareN("b", nullptr, 1), 0);
}

TEST_F(StringOps, LengthNStopsAtMaxLengthAndNul) {
  EXPECT_EQ(handler.lengthN("abcdef", 4), 4u);
  EXPECT_EQ(handler.lengthN("ab", 4), 2u);
  EXPECT_EQ(handler.lengthN(nullptr, 4), 0u);
}

TEST_F(StringOps, WideLengthNOfNullIsZero) {
  EXPECT_EQ(handler.wideLengthN(nullptr, 10), 0u);
  const WCHAR text[] = {'a', 'b', 'c', 0};
  EXPECT_EQ(handler.wideLengthN(text, 10), 3u);
  EXPECT_EQ(handler.wideLengthN(text, 2), 2u);
}

TEST_F(StringOps, FromBytesKeepsEveryByteWithNuls) {
  const uint8_t bytes[] = {'a', 0, 'b', 0};
  const std::string text = handler.fromBytes(bytes, 4);
  EXPECT_EQ(text, std::string("a\0b\0", 4));
  EXPECT_EQ(handler.fromBytes(nullptr, 4), "");
}

TEST_F(StringOps, TokenizeSkipsRunsOfDelimiters) {
  EXPECT_EQ(handler.tokenize(",,a;b,,;c;", ",;"), (std::vector<std::string>{"a", "b", "c"}));
  EXPECT_TRUE(handler.tokenize(",,,", ",").empty());
  EXPECT_EQ(handler.tokenize("one", ""), (std::vector<std::string>{"one"}));
}

TEST_F(StringOps, TokenizeEndsAtTheFirstNul) {
  EXPECT_EQ(handler.tokenize(std::string("a b\0c d", 7), " "), (std::vector<std::string>{"a", "b"}));
}

}  // namespace
