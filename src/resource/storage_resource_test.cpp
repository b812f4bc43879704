// The storage resource as a host reads it: names, tooltips, command-line
// vocabulary, parameters and the help screen.
#include "resource/storage_resource.h"

#include <gtest/gtest.h>

#include <memory>
#include <tuple>
#include <vector>

#include "resource/storage_parameters.h"

namespace {

const char kExpectedHelp[] =
    "Storage Module help:\n"
    "  Usage: hwc_cli -Mstorage [diagnostic]\"[test(s)]\" [device id(s)]\n"
    "  Diagnostics:\n"
    "\t-Q, --quick\tRuns all test(s) of Quick Storage diagnostic\n"
    "\t-Q\"[test(s)]\", --quick=\"[test(s)]\"\tRuns chosen test(s) of Quick Storage diagnostic\n\n"
    "\t-E, --extended\tRuns all test(s) of Extended Server Storage diagnostic\n"
    "\t-E\"[test(s)]\", --extended=\"[test(s)]\"\tRuns chosen test(s) of Extended Server Storage diagnostic\n\n"
    "  Quick Tests:\n"
    "\tm, smart-status           SMART Status Test\n"
    "\tt, targeted-read          Targeted Read Test\n"
    "\tr, random-seek            Random Seek Test\n"
    "\tf, funnel-seek            Funnel Seek Test\n"
    "\ts, short-self-test        SMART Short Self-Test\n"
    "\td, drive-self-test        SMART Drive Self-Test\n"
    "\tu, default-self-test      Default-self-test\n"
    "\te, device-read-test       Device Read Test (available for eMMC and NVMe devices only)\n\n"
    "  Extended Tests:\n"
    "\tr, random-seek            Random Seek Test\n"
    "\tf, funnel-seek            Funnel Seek Test\n"
    "\ts, extended-self-test     Extended Self-Test\n"
    "\tw, device-write-test      Device Write Test (available for eMMC and NVMe devices only)\n\n"
    " Examples:\n"
    "  => Performs tests funnel and extended self-test of diagnostic Extended on devices 0 and 1 of the storage "
    "module\n"
    "           hwc_cli -Mstorage -E\"f,s\" 0 1\n\n"
    "  => Performs tests funnel and random of diagnostic Quick on devices 0 and 1 of the storage module\n"
    "           hwc_cli -Mstorage -Q\"f,r\" 0 1\n\n"
    "  => Performs all tests of diagnostic Quick and diagnostic Extended on devices 0 and 1 of the storage "
    "module\n"
    "           hwc_cli -Mstorage -Q -E 0 1";

class StorageResourceTest : public ::testing::Test {
 protected:
  StorageResource resource{ItemId(1, 0, 1)};
};

TEST_F(StorageResourceTest, HelpTextIsTheFullExpectedText) { EXPECT_EQ(resource.getHelpText(), kExpectedHelp); }

TEST_F(StorageResourceTest, HelpTextEndsInDigitOneWithoutLineEnd) {
  const std::string help = resource.getHelpText();
  ASSERT_FALSE(help.empty());
  EXPECT_EQ(help.back(), '1');
}

TEST_F(StorageResourceTest, ModuleNames) {
  EXPECT_EQ(resource.getModuleName(), "STORAGE");
  EXPECT_EQ(resource.getModuleShortName(), "HD");
  EXPECT_EQ(resource.getReservedValue(), 0u);
}

TEST_F(StorageResourceTest, DiagnosticNamesAndTooltips) {
  EXPECT_EQ(resource.getDiagnosticName(ItemId(1, 1, 0)), "QUICK_TESTS");
  EXPECT_EQ(resource.getDiagnosticName(ItemId(1, 2, 0)), "EXTENDED_TESTS");
  EXPECT_EQ(resource.getDiagnosticTooltip(ItemId(1, 1, 0)), "QUICK_TESTS_TOOLTIP");
}

TEST_F(StorageResourceTest, DiagnosticTooltipOfExtendedIsExtendedTestsTooltip) {
  EXPECT_EQ(resource.getDiagnosticTooltip(ItemId(1, 2, 0)), "EXTENDED_TESTS_TOOLTIP");
}

TEST_F(StorageResourceTest, TestNameOfDiagnosticIdIsEmpty) {
  EXPECT_EQ(resource.getTestName(ItemId(1, 1, 0)), "");
  EXPECT_EQ(resource.getTestTooltip(ItemId(1, 2, 0)), "");
}

TEST_F(StorageResourceTest, UnknownIdsGiveEmptyStrings) {
  EXPECT_EQ(resource.getTestName(ItemId(1, 2, 11)), "");
  EXPECT_EQ(resource.getTestName(ItemId(2, 1, 1)), "");
  EXPECT_EQ(resource.getDiagnosticName(ItemId(1, 3, 0)), "");
  EXPECT_EQ(resource.getDiagnosticName(ItemId(1, 1, 1)), "");
  EXPECT_EQ(resource.getTestTooltip(ItemId()), "");
}

TEST_F(StorageResourceTest, LookupUsesPackedIdAlone) {
  ItemId odd(1, 1, 1);
  odd.moduleId = 9;  // only packedId counts
  odd.testId = 77;
  EXPECT_EQ(resource.getTestName(odd), "SMART_STATUS_TEST");
}

TEST_F(StorageResourceTest, EveryTestHasItsNameAndTooltip) {
  struct Row {
    ItemId id;
    const char* name;
    const char* tooltip;
  };
  const Row rows[] = {
      {ItemId(1, 1, 1), "SMART_STATUS_TEST", "SMART_STATUS_TEST_TOOLTIP"},
      {ItemId(1, 1, 2), "TARGETED_READ_TEST", "TARGETED_READ_TEST_TOOLTIP"},
      {ItemId(1, 1, 3), "RANDOM_SEEK_TEST", "RANDOM_SEEK_TEST_TOOLTIP"},
      {ItemId(1, 1, 4), "FUNNEL_SEEK_TEST", "FUNNEL_SEEK_TEST_TOOLTIP"},
      {ItemId(1, 1, 5), "SHORT_SELF_TEST", "SHORT_SELF_TEST_TOOLTIP"},
      {ItemId(1, 1, 6), "DRIVE_SELF_TEST", "DRIVE_SELF_TEST_TOOLTIP"},
      {ItemId(1, 1, 7), "DEFAULT_SELF_TEST", "DEFAULT_SELF_TEST_TOOLTIP"},
      {ItemId(1, 1, 11), "DEVICE_READ_TEST", "DEVICE_READ_TEST_TOOLTIP"},
      {ItemId(1, 2, 8), "EXTENDED_RANDOM_SEEK_TEST", "EXTENDED_RANDOM_SEEK_TEST_TOOLTIP"},
      {ItemId(1, 2, 9), "EXTENDED_FUNNEL_SEEK_TEST", "EXTENDED_FUNNEL_SEEK_TEST_TOOLTIP"},
      {ItemId(1, 2, 10), "EXTENDED_SELF_TEST", "EXTENDED_SELF_TEST_TOOLTIP"},
      {ItemId(1, 2, 12), "DEVICE_WRITE_TEST", "EXTENDED_DEVICE_WRITE_TEST_TOOLTIP"},
  };
  for (const Row& row : rows) {
    EXPECT_EQ(resource.getTestName(row.id), row.name);
    EXPECT_EQ(resource.getTestTooltip(row.id), row.tooltip);
  }
}

TEST_F(StorageResourceTest, TestOptionsHoldTwelveEntriesInPackedOrder) {
  const auto options = resource.getTestOptions();
  ASSERT_EQ(options.size(), 12u);
  const std::vector<std::tuple<ItemId, std::string, std::string>> expected = {
      {ItemId(1, 1, 1), "m", "smart-status"},
      {ItemId(1, 1, 2), "t", "targeted-read"},
      {ItemId(1, 1, 3), "r", "random-seek"},
      {ItemId(1, 1, 4), "f", "funnel-seek"},
      {ItemId(1, 1, 5), "s", "short-self-test"},
      {ItemId(1, 1, 6), "d", "drive-self-test"},
      {ItemId(1, 1, 7), "u", "default-self-test"},
      {ItemId(1, 1, 11), "e", "device-read-test"},
      {ItemId(1, 2, 8), "r", "extended-random_seek-test"},
      {ItemId(1, 2, 9), "f", "extended-funnel-seek-test"},
      {ItemId(1, 2, 10), "s", "extended-self-test"},
      {ItemId(1, 2, 12), "w", "device-write-test"},
  };
  size_t i = 0;
  for (const auto& entry : options) {
    EXPECT_EQ(entry.first, std::get<0>(expected[i]));
    EXPECT_EQ(entry.second.shortName, std::get<1>(expected[i]));
    EXPECT_EQ(entry.second.longName, std::get<2>(expected[i]));
    EXPECT_EQ(entry.second.kind, kCliTest);
    ++i;
  }
}

TEST_F(StorageResourceTest, DiagnosticOptionsHoldTwoEntries) {
  const auto options = resource.getDiagnosticOptions();
  ASSERT_EQ(options.size(), 2u);
  const CliOption& quick = options.at(ItemId(1, 1, 0));
  EXPECT_EQ(quick.shortName, "Q");
  EXPECT_EQ(quick.longName, "quick");
  EXPECT_EQ(quick.kind, kCliDiagnostic);
  const CliOption& extended = options.at(ItemId(1, 2, 0));
  EXPECT_EQ(extended.shortName, "E");
  EXPECT_EQ(extended.longName, "extended");
  EXPECT_EQ(extended.kind, kCliDiagnostic);
}

TEST_F(StorageResourceTest, GettersHandOutCopies) {
  auto options = resource.getTestOptions();
  options.clear();
  EXPECT_EQ(resource.getTestOptions().size(), 12u);
  std::string help = resource.getHelpText();
  help.clear();
  EXPECT_FALSE(resource.getHelpText().empty());
}

TEST_F(StorageResourceTest, UsableThroughTheResourceInterface) {
  std::unique_ptr<Resource> base(new StorageResource(ItemId(1, 0, 1)));
  EXPECT_EQ(base->getTestName(ItemId(1, 2, 12)), "DEVICE_WRITE_TEST");
  EXPECT_EQ(base->getDiagnosticName(ItemId(1, 1, 0)), "QUICK_TESTS");
}

TEST(StorageParameters, DriveSelfTestReadsCodeAndCount) {
  EXPECT_EQ(acceptedParameters(ItemId(1, 1, 6)), (std::vector<std::string>{"SEC_NUM", "SEC_COUNT"}));
  EXPECT_STREQ(kParameterSection, "STORAGE");
}

TEST(StorageParameters, DeviceReadTestReadsItsZonesAndWholeDiskFlag) {
  EXPECT_EQ(acceptedParameters(ItemId(1, 1, 11)),
            (std::vector<std::string>{"INITIAL_SIZE", "CENTRAL_SIZE", "FINAL_SIZE", "WHOLE_DISK_READ"}));
}

TEST(StorageParameters, OtherTestsReadNoParameter) {
  EXPECT_TRUE(acceptedParameters(ItemId(1, 1, 1)).empty());
  EXPECT_TRUE(acceptedParameters(ItemId(1, 2, 12)).empty());
}

}  // namespace
