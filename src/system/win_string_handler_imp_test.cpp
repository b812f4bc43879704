// The runtime-style bounded operations: results, truncation and refusals.
#include "system/win_string_handler_imp.h"

#include <gtest/gtest.h>

#include <cstdio>
#include <cstring>

namespace {

class BoundedOps : public ::testing::Test {
 protected:
  WinStringHandlerImp handler;
};

TEST_F(BoundedOps, FormatIntoWritesAndCounts) {
  char buffer[16];
  EXPECT_EQ(handler.formatInto(buffer, sizeof(buffer), "%s %u", "SECTOR", 12u), 9);
  EXPECT_STREQ(buffer, "SECTOR 12");
}

TEST_F(BoundedOps, FormatIntoThatDoesNotFitEmptiesTheBuffer) {
  char buffer[4] = {'x', 'x', 'x', 'x'};
  EXPECT_EQ(handler.formatInto(buffer, sizeof(buffer), "%s", "long"), -1);
  EXPECT_STREQ(buffer, "");
  EXPECT_EQ(handler.formatInto(nullptr, 4, "%d", 1), -1);
}

TEST_F(BoundedOps, CopyNCopiesAtMostCount) {
  char buffer[8];
  EXPECT_EQ(handler.copyN(buffer, sizeof(buffer), "abcdef", 3), kStringOk);
  EXPECT_STREQ(buffer, "abc");
  EXPECT_EQ(handler.copyN(buffer, sizeof(buffer), "ab", 5), kStringOk);
  EXPECT_STREQ(buffer, "ab");
}

TEST_F(BoundedOps, CopyNThatDoesNotFitIsOutOfRangeAndEmptiesTheBuffer) {
  char buffer[4];
  EXPECT_EQ(handler.copyN(buffer, sizeof(buffer), "abcd", 4), kStringOutOfRange);
  EXPECT_STREQ(buffer, "");
}

TEST_F(BoundedOps, CopyNWithTruncateCutsToFit) {
  char buffer[4];
  EXPECT_EQ(handler.copyN(buffer, sizeof(buffer), "abcdef", kTruncate), kStringTruncated);
  EXPECT_STREQ(buffer, "abc");
  EXPECT_EQ(handler.copyN(buffer, sizeof(buffer), "ab", kTruncate), kStringOk);
  EXPECT_STREQ(buffer, "ab");
}

TEST_F(BoundedOps, CopyNRefusesNullArguments) {
  char buffer[4] = {'x', 0};
  EXPECT_EQ(handler.copyN(nullptr, 4, "a", 1), kStringInvalidArgument);
  EXPECT_EQ(handler.copyN(buffer, 0, "a", 1), kStringInvalidArgument);
  EXPECT_EQ(handler.copyN(buffer, 4, nullptr, 1), kStringInvalidArgument);
  EXPECT_STREQ(buffer, "");
}

TEST_F(BoundedOps, AppendNAppendsAtMostCount) {
  char buffer[8] = "ab";
  EXPECT_EQ(handler.appendN(buffer, sizeof(buffer), "cdef", 2), kStringOk);
  EXPECT_STREQ(buffer, "abcd");
}

TEST_F(BoundedOps, AppendNThatDoesNotFitIsOutOfRangeUnlessTruncating) {
  char buffer[6] = "abc";
  EXPECT_EQ(handler.appendN(buffer, sizeof(buffer), "def", 3), kStringOutOfRange);
  EXPECT_STREQ(buffer, "");
  std::strcpy(buffer, "abc");
  EXPECT_EQ(handler.appendN(buffer, sizeof(buffer), "def", kTruncate), kStringTruncated);
  EXPECT_STREQ(buffer, "abcde");
}

TEST_F(BoundedOps, AppendNToUnterminatedDestinationIsRefused) {
  char buffer[3] = {'a', 'b', 'c'};
  EXPECT_EQ(handler.appendN(buffer, sizeof(buffer), "d", 1), kStringInvalidArgument);
  EXPECT_EQ(buffer[0], '\0');
}

TEST_F(BoundedOps, WideToNarrowConvertsAndCountsTheNul) {
  const WCHAR wide[] = {'S', 'T', 0xE9, 0};
  char narrow[8];
  size_t done = 0;
  EXPECT_EQ(handler.wideToNarrow(&done, narrow, sizeof(narrow), wide, kTruncate), kStringOk);
  EXPECT_EQ(done, 4u);
  EXPECT_EQ(std::string(narrow), std::string("ST\xE9"));
}

TEST_F(BoundedOps, WideToNarrowWithNullDestinationGivesTheSizeNeeded) {
  const WCHAR wide[] = {'a', 'b', 'c', 0};
  size_t done = 0;
  EXPECT_EQ(handler.wideToNarrow(&done, nullptr, 0, wide, kTruncate), kStringOk);
  EXPECT_EQ(done, 4u);
}

TEST_F(BoundedOps, WideToNarrowRefusesCharactersWithoutNarrowForm) {
  const WCHAR wide[] = {'a', 0x20AC, 0};
  char narrow[8] = {'x', 0};
  size_t done = 9;
  EXPECT_EQ(handler.wideToNarrow(&done, narrow, sizeof(narrow), wide, kTruncate), kStringIllegalSequence);
  EXPECT_EQ(done, 0u);
  EXPECT_STREQ(narrow, "");
}

TEST_F(BoundedOps, WideToNarrowTooSmallIsOutOfRangeUnlessTruncating) {
  const WCHAR wide[] = {'a', 'b', 'c', 0};
  char narrow[3];
  size_t done = 0;
  EXPECT_EQ(handler.wideToNarrow(&done, narrow, sizeof(narrow), wide, 3), kStringOutOfRange);
  EXPECT_STREQ(narrow, "");
  EXPECT_EQ(handler.wideToNarrow(&done, narrow, sizeof(narrow), wide, kTruncate), kStringTruncated);
  EXPECT_STREQ(narrow, "ab");
  EXPECT_EQ(done, 3u);
}

TEST_F(BoundedOps, NarrowToWideConvertsEachByte) {
  WCHAR wide[8];
  size_t done = 0;
  EXPECT_EQ(handler.narrowToWide(&done, wide, 8, "ab\xE9", kTruncate), kStringOk);
  EXPECT_EQ(done, 4u);
  EXPECT_EQ(wide[0], 'a');
  EXPECT_EQ(wide[2], 0xE9);
  EXPECT_EQ(wide[3], 0);
  EXPECT_EQ(handler.narrowToWide(&done, wide, 8, nullptr, 1), kStringInvalidArgument);
  EXPECT_EQ(handler.narrowToWide(&done, nullptr, 0, "abcd", 2), kStringOk);
  EXPECT_EQ(done, 3u);
}

TEST_F(BoundedOps, LocalTimeRefusesTimesBefore1970AndNullOut) {
  std::tm out{};
  EXPECT_EQ(handler.localTime(&out, -1), kStringInvalidArgument);
  EXPECT_EQ(out.tm_year, -1);
  EXPECT_EQ(out.tm_mday, -1);
  EXPECT_EQ(handler.localTime(nullptr, 0), kStringInvalidArgument);
  EXPECT_EQ(handler.localTime(&out, 32535244800), kStringInvalidArgument);
}

TEST_F(BoundedOps, LocalTimeFillsTheRecord) {
  std::tm out{};
  // Mid-2001: the same year in every time zone.
  EXPECT_EQ(handler.localTime(&out, 994000000), kStringOk);
  EXPECT_EQ(out.tm_year, 101);
  EXPECT_EQ(out.tm_mon, 6);
}

TEST_F(BoundedOps, FormatNWritesNulOnlyWhenThereIsRoom) {
  char buffer[4] = {'x', 'x', 'x', 'x'};
  EXPECT_EQ(handler.formatN(buffer, 4, "%s", "ab"), 2);
  EXPECT_STREQ(buffer, "ab");
  std::memset(buffer, 'x', 4);
  EXPECT_EQ(handler.formatN(buffer, 4, "%s", "abcd"), 4);
  EXPECT_EQ(std::string(buffer, 4), "abcd");
  std::memset(buffer, 'x', 4);
  EXPECT_EQ(handler.formatN(buffer, 3, "%d", 12345), -1);
  EXPECT_EQ(std::string(buffer, 4), "123x");
}

TEST_F(BoundedOps, PrintToFileWritesAndRefusesNullFile) {
  std::FILE* file = std::tmpfile();
  ASSERT_NE(file, nullptr);
  EXPECT_EQ(handler.printToFile(file, "%s=%d", "KEY", 7), 5);
  std::rewind(file);
  char line[16] = {};
  ASSERT_NE(std::fgets(line, sizeof(line), file), nullptr);
  EXPECT_STREQ(line, "KEY=7");
  std::fclose(file);
  EXPECT_EQ(handler.printToFile(nullptr, "%d", 1), -1);
}

}  // namespace
