// The metrics file as text: HELP and TYPE lines, one sample per disk and
// test, and label values escaped as the exposition format wants them.
#include "metrics.h"

#include <gtest/gtest.h>

#include "module_storage/result_codes.h"

namespace hwc {
namespace {

bool contains(const std::string& text, const std::string& part) { return text.find(part) != std::string::npos; }

size_t count(const std::string& text, const std::string& part) {
  size_t n = 0;
  for (size_t at = text.find(part); at != std::string::npos; at = text.find(part, at + 1)) ++n;
  return n;
}

SessionFacts session() {
  SessionFacts facts;
  facts.startedUnixSeconds = 1700000000;
  facts.exitStatus = 1;
  DeviceFacts disk;
  disk.index = 0;
  disk.id = "0";
  disk.description.details = {{"MODEL", "WDC WD10EZEX"}, {"SERIAL", "WD-1"}, {"LOGICAL_SECTORS", "1000"},
                              {"LOGICAL_SECTOR_SIZE", "512"}, {"TEMPERATURE", "36 C"}};
  facts.devices = {disk};
  TestRecord smart;
  smart.testKey = "SMART_STATUS_TEST";
  smart.testId = ItemId(1, 1, 1);
  smart.result = SUCCESS;
  smart.beganUs = 1;
  smart.endedUs = 500001;
  TestRecord targeted;
  targeted.testKey = "TARGETED_READ_TEST";
  targeted.testId = ItemId(1, 1, 2);
  targeted.result = FAILED;
  targeted.log = {{"READING_SECTOR 95", 2}};
  TestRecord notRun = targeted;
  notRun.testKey = "FUNNEL_SEEK_TEST";
  notRun.testId = ItemId(1, 1, 4);
  notRun.outcome = RunOutcome::NotRun;
  TestRecord notSupported = targeted;
  notSupported.testKey = "DEVICE_READ_TEST";
  notSupported.testId = ItemId(1, 1, 11);
  notSupported.outcome = RunOutcome::NotSupported;
  facts.records = {smart, targeted, notRun, notSupported};
  return facts;
}

TEST(Metrics, EveryFamilyHasHelpAndTypeOnce) {
  const std::string text = prometheusMetrics(session());
  for (const char* name : {"hwc_storage_disk_info", "hwc_storage_disk_size_bytes", "hwc_storage_disk_temperature_celsius",
                           "hwc_storage_disk_smart_healthy", "hwc_storage_disk_unreadable_sectors",
                           "hwc_storage_test_result", "hwc_storage_test_passed", "hwc_storage_run_exit_status",
                           "hwc_storage_run_start_time_seconds"}) {
    EXPECT_EQ(count(text, std::string("# HELP ") + name + " "), 1u) << name;
    EXPECT_EQ(count(text, std::string("# TYPE ") + name + " gauge\n"), 1u) << name;
  }
  EXPECT_EQ(text.back(), '\n');
}

TEST(Metrics, OneResultSamplePerDiskAndTestThatWasTried) {
  const std::string text = prometheusMetrics(session());
  EXPECT_TRUE(contains(text, "hwc_storage_test_result{disk=\"0\",model=\"WDC WD10EZEX\",serial=\"WD-1\",test=\"1.1.1\","
                             "name=\"SMART_STATUS_TEST\"} 0\n"));
  EXPECT_TRUE(contains(text, "test=\"1.1.2\",name=\"TARGETED_READ_TEST\"} 1\n"));
  EXPECT_TRUE(contains(text, "test=\"1.1.11\",name=\"DEVICE_READ_TEST\"} 3\n")) << "not supported counts as not applicable";
  EXPECT_FALSE(contains(text, "FUNNEL_SEEK_TEST")) << "a test that never ran tells nothing about the disk";
  EXPECT_EQ(count(text, "hwc_storage_test_result{"), 3u);
  EXPECT_EQ(count(text, "hwc_storage_test_duration_seconds{"), 1u) << "only the run with a start and an end";
  EXPECT_TRUE(contains(text, "name=\"SMART_STATUS_TEST\"} 0.500000\n"));
}

TEST(Metrics, HealthFiguresOfTheDisk) {
  const std::string text = prometheusMetrics(session());
  EXPECT_TRUE(contains(text, "hwc_storage_disk_size_bytes{disk=\"0\",model=\"WDC WD10EZEX\",serial=\"WD-1\"} 512000\n"));
  EXPECT_TRUE(contains(text, "hwc_storage_disk_temperature_celsius{disk=\"0\",model=\"WDC WD10EZEX\",serial=\"WD-1\"} 36\n"));
  EXPECT_TRUE(contains(text, "hwc_storage_disk_smart_healthy{disk=\"0\",model=\"WDC WD10EZEX\",serial=\"WD-1\"} 1\n"));
  EXPECT_TRUE(contains(text, "hwc_storage_disk_unreadable_sectors{disk=\"0\",model=\"WDC WD10EZEX\",serial=\"WD-1\"} 1\n"));
  EXPECT_TRUE(contains(text, "hwc_storage_run_exit_status 1\n"));
  EXPECT_TRUE(contains(text, "hwc_storage_run_start_time_seconds 1700000000\n"));
}

TEST(Metrics, FamilyWithoutSamplesIsLeftOut) {
  SessionFacts facts = session();
  facts.records.clear();
  const std::string text = prometheusMetrics(facts);
  EXPECT_FALSE(contains(text, "hwc_storage_test_result"));
  EXPECT_FALSE(contains(text, "hwc_storage_disk_smart_healthy")) << "no SMART verdict, no sample";
  EXPECT_FALSE(contains(text, "hwc_storage_disk_unreadable_sectors")) << "nothing was read";
  EXPECT_TRUE(contains(text, "hwc_storage_disk_info{"));
}

TEST(Metrics, LabelValuesAreEscaped) {
  EXPECT_EQ(escapeLabelValue("plain"), "plain");
  EXPECT_EQ(escapeLabelValue("a\"b"), "a\\\"b");
  EXPECT_EQ(escapeLabelValue("a\\b"), "a\\\\b");
  EXPECT_EQ(escapeLabelValue("a\nb"), "a\\nb");
  EXPECT_EQ(escapeLabelValue(std::string("a\xff")), "a\xEF\xBF\xBD");
  SessionFacts facts = session();
  facts.devices[0].description.details[0].value = "ACME \"Q\" \\";
  EXPECT_TRUE(contains(prometheusMetrics(facts), "model=\"ACME \\\"Q\\\" \\\\\""));
}

TEST(Metrics, TestChosenTwiceOnADiskGivesOneSample) {
  SessionFacts facts = session();
  facts.records.push_back(facts.records[0]);
  facts.records.back().result = FAILED;
  const std::string text = prometheusMetrics(facts);
  EXPECT_EQ(count(text, "name=\"SMART_STATUS_TEST\"} "), 3u) << "result, passed and duration once each";
  EXPECT_TRUE(contains(text, "hwc_storage_test_result{disk=\"0\",model=\"WDC WD10EZEX\",serial=\"WD-1\",test=\"1.1.1\","
                             "name=\"SMART_STATUS_TEST\"} 1\n")) << "the last run counts";
}

}  // namespace
}  // namespace hwc
