// The file-system check's reading of its checker, line by line: which lines
// are progress, what the log keeps, and how a mount path is shortened.
#include "tools/win_check_filesystem_output.h"

#include <climits>

#include <gtest/gtest.h>

namespace {

TEST(CheckerPercentTest, ALineThatStartsWithANumberGivesTheNumberUpToTheFirstBlank) {
  EXPECT_EQ(parseCheckerPercent("12 percent complete.\r"), 12);
  EXPECT_EQ(parseCheckerPercent("100 percent completed.\n"), 100);
}

TEST(CheckerPercentTest, ANumberWithoutABlankBehindItIsTakenWhole) {
  EXPECT_EQ(parseCheckerPercent("57\r"), 57);
  EXPECT_EQ(parseCheckerPercent("7%\r"), 7);
}

TEST(CheckerPercentTest, ALineWithTwoLeadingBlanksIsParsedAfterDroppingThemOneAtATime) {
  EXPECT_EQ(parseCheckerPercent("  37 percent complete.\r"), 37);
  EXPECT_EQ(parseCheckerPercent(" 8 percent\r"), 8);
}

TEST(CheckerPercentTest, AnEmptyLineOrOneThatStartsWithTextShowsNoPercent) {
  EXPECT_EQ(parseCheckerPercent(""), -1);
  EXPECT_EQ(parseCheckerPercent("\r"), -1);
  EXPECT_EQ(parseCheckerPercent("\n"), -1);
  EXPECT_EQ(parseCheckerPercent("Stage 1: Examining basic file system structure ...\r"), -1);
  EXPECT_EQ(parseCheckerPercent(" x 12\r"), -1);
  EXPECT_EQ(parseCheckerPercent("   \r"), -1);
}

TEST(CheckerPercentTest, ANumberTooLongForAnIntIsHeldAboveOneHundred) {
  EXPECT_EQ(parseCheckerPercent("99999999999999999999999 files\r"), INT_MAX);
}

TEST(CheckerLogTest, EachCrLfLineKeepsOneLineFeedAndLosesItsCarriageReturns) {
  EXPECT_EQ(cleanCheckerLog("The type of the file system is NTFS.\r\nVolume label is DATA.\r\n"),
            "The type of the file system is NTFS.\nVolume label is DATA.\n");
  EXPECT_EQ(cleanCheckerLog("a\rb\r\n"), "ab\n");
}

TEST(CheckerLogTest, EmptyLinesAreDropped) { EXPECT_EQ(cleanCheckerLog("\r\n\r\nStage 1\r\n\r\n"), "Stage 1\n"); }

TEST(CheckerLogTest, ALineThatHoldsALineFeedGetsNoSecondOne) {
  // A progress line in between leaves its lone line feed in the raw log.
  EXPECT_EQ(cleanCheckerLog("A\r\n\nB\r\n"), "A\n\nB");
}

TEST(CheckerLogTest, ALastLineThatDoesNotEndInCrLfIsMissingFromTheLog) {
  EXPECT_EQ(cleanCheckerLog("Kept\r\nLost at the end"), "Kept\n");
  EXPECT_EQ(cleanCheckerLog("Kept\r\nLost too\n"), "Kept\n");
  EXPECT_EQ(cleanCheckerLog("no line end at all"), "");
}

TEST(MountPathTest, ARootPathLosesItsTrailingBackslash) { EXPECT_EQ(shortenMountPath("C:\\"), "C:"); }

TEST(MountPathTest, AMountPathWithoutBackslashIsUsedUnshortened) { EXPECT_EQ(shortenMountPath("D:"), "D:"); }

TEST(MountPathTest, ABackslashAnywhereCutsTheLastCharacterWhateverItIs) {
  EXPECT_EQ(shortenMountPath("C:\\Mount\\Data"), "C:\\Mount\\Dat");
}

}  // namespace
