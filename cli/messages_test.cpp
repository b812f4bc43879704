// The text table: keys, keys joined with data, joined messages, description
// values and the fall-back to the key itself.
#include "messages.h"

#include <gtest/gtest.h>

#include "tool_status.h"

namespace hwc {
namespace {

TEST(Messages, EveryKeyTheModuleSendsHasWords) {
  for (const char* key :
       {"SMART_STATUS_TEST", "TARGETED_READ_TEST", "RANDOM_SEEK_TEST", "FUNNEL_SEEK_TEST", "SHORT_SELF_TEST",
        "DRIVE_SELF_TEST", "DEFAULT_SELF_TEST", "DEVICE_READ_TEST", "EXTENDED_RANDOM_SEEK_TEST",
        "EXTENDED_FUNNEL_SEEK_TEST", "EXTENDED_SELF_TEST", "DEVICE_WRITE_TEST", "QUICK_TESTS", "EXTENDED_TESTS",
        "QUICK_TESTS_TOOLTIP", "EXTENDED_DEVICE_WRITE_TEST_TOOLTIP", "READING_SECTOR", "TOO_MANY_BAD_SECTORS_FOUND",
        "DEVICE_COMMUNICATION_FAILURE", "SMART_NOT_SUPPORTED", "CANNOT_ENABLE_SMART",
        "TEST_ABORTED_BECAUSE_A_SYSTEM_EVENT_THAT_COULD_COMPROMISE_THE_OUTCOME_HAS_HAPPENED",
        "TEST_FINISHED_WITH_TIMEOUT", "VOLUME_SPACE_ALLOCATION_ALERT", "SCHEDULER_TITLE", "SCHEDULER_DESCRIPTION",
        "MODEL", "UDI", "PARTITION", "SERIAL", "FIRMWARE", "LOCAL_DRIVES", "RAID_ATTACHED_DRIVES", "SUCCESS",
        "FAILED", "NOT_APPLICABLE", "ABORTED", "WARNING", "INVALID"}) {
    EXPECT_NE(findText(key), nullptr) << key;
  }
}

TEST(Messages, UnknownKeyFallsBackToTheKeyItself) {
  EXPECT_EQ(textOf("NOT_A_KEY_OF_THE_TABLE"), "NOT_A_KEY_OF_THE_TABLE");
  EXPECT_EQ(describeMessage("NOT_A_KEY_OF_THE_TABLE 12"), "NOT_A_KEY_OF_THE_TABLE 12");
  EXPECT_EQ(describeMessage(""), "");
}

TEST(Messages, KeyWithBlankAndNumberKeepsTheNumber) {
  EXPECT_EQ(describeMessage("READING_SECTOR 1234"), "Error reading sector 1234");
}

TEST(Messages, KeyWithColonAndNumberKeepsTheNumber) {
  EXPECT_EQ(describeMessage("TOO_MANY_BAD_SECTORS_FOUND: 10"), "Too many bad sectors found: 10");
  EXPECT_EQ(describeMessage("TEST_FINISHED_WITH_TIMEOUT: 120 s"), "The test ran out of time: 120 s");
}

TEST(Messages, TwoKeysJoinedByDotBarBecomeTwoSentences) {
  EXPECT_EQ(describeMessage("HARD_DISK_IS_PASSWORD_PROTECTED. |TRY_TO_DISABLE_THE_PASSWORD_PROTECTION"),
            "The hard disk is password protected. Try to disable the password protection");
}

TEST(Messages, LeadingBarOfANameIsAMarkNotText) {
  EXPECT_EQ(describeMessage("|CHECK_FILESYSTEM_TOOL"), "File-system check");
}

TEST(Messages, DescriptionValuesReadAsWords) {
  EXPECT_EQ(describeValue("T"), "yes");
  EXPECT_EQ(describeValue("F"), "no");
  EXPECT_EQ(describeValue("LOCAL_DRIVES"), "Local drives");
  EXPECT_EQ(describeValue("RAID_ATTACHED_DRIVES\\X - 1"), "RAID-attached drives \\ X - 1");
  EXPECT_EQ(describeValue("7200 RPM"), "7200 rpm");
  EXPECT_EQ(describeValue("_CEPH_|JOURNAL"), "CEPH JOURNAL");
  EXPECT_EQ(describeValue("ST500 - 500 GB"), "ST500 - 500 GB");
  EXPECT_EQ(describeValue("Linux LVM"), "Linux LVM");
}

TEST(Messages, ResultCodesHaveNamesAndWords) {
  EXPECT_EQ(resultKey(0), "SUCCESS");
  EXPECT_EQ(resultText(0), "Passed");
  EXPECT_EQ(resultText(1), "Failed");
  EXPECT_EQ(resultText(3), "Not applicable");
  EXPECT_EQ(resultText(4), "Aborted");
  EXPECT_EQ(resultText(5), "Warning");
  EXPECT_EQ(resultText(6), "Invalid");
  // 2 is no test result.
  EXPECT_EQ(resultKey(2), "UNKNOWN_RESULT");
  EXPECT_EQ(resultText(77), "Unknown result 77");
}

TEST(Messages, ToolStatusesHaveWords) {
  EXPECT_EQ(toolStatusText(kToolBadSectorsFound), "Bad sectors found, none repaired");
  EXPECT_EQ(toolStatusText(kToolCheckScheduled), "A check was scheduled for the next start");
  EXPECT_EQ(toolStatusText(5), "Unknown tool status 5");
}

}  // namespace
}  // namespace hwc
