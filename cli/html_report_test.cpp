// The HTML report as text: the failed read marked in the right cell of the
// surface map, words for every verdict, and nothing that a browser would
// fetch or run.
#include "html_report.h"

#include <gtest/gtest.h>

#include <cstdio>
#include <fstream>
#include <sstream>

#include "module_storage/result_codes.h"

namespace hwc {
namespace {

bool contains(const std::string& text, const std::string& part) { return text.find(part) != std::string::npos; }

size_t count(const std::string& text, const std::string& part) {
  size_t n = 0;
  for (size_t at = text.find(part); at != std::string::npos; at = text.find(part, at + 1)) ++n;
  return n;
}

DeviceFacts disk(uint32_t index, const std::string& model, uint64_t sectors) {
  DeviceFacts facts;
  facts.index = index;
  facts.id = std::to_string(index);
  facts.description.name = model + " - 931.51 GBs";
  facts.description.details = {{"MODEL", model}, {"SERIAL", "SN" + std::to_string(index)},
                               {"LOGICAL_SECTORS", std::to_string(sectors)}, {"LOGICAL_SECTOR_SIZE", "512"},
                               {"SIZE", "931.51 GBs"}};
  facts.description.attributes = {{"NonRotatingMedia", "F"}, {"parent", "LOCAL_DRIVES"}};
  return facts;
}

TestRecord record(uint32_t device, const std::string& key, RunOutcome outcome, uint32_t result) {
  TestRecord r;
  r.deviceIndex = device;
  r.testKey = key;
  r.outcome = outcome;
  r.result = result;
  r.beganUs = 1000;
  r.endedUs = 2000;
  return r;
}

SessionFacts session() {
  SessionFacts facts;
  facts.programVersion = "4.13.0";
  facts.arguments = {"-Mstorage", "--machine", "default", "-Q"};
  facts.machine = "default";
  facts.moduleName = "STORAGE";
  facts.moduleVersion = "4.13.0.8834";
  facts.devices = {disk(0, "WDC WD10EZEX", 1000), disk(1, "CT500", 500)};
  facts.exitStatus = 1;
  TestRecord targeted = record(0, "TARGETED_READ_TEST", RunOutcome::Ran, FAILED);
  targeted.events = {{0, "", 1000}, {100, "READING_SECTOR 95", 1500}};
  targeted.log = {{"READING_SECTOR 95", 2}};
  TestRecord funnel = record(0, "FUNNEL_SEEK_TEST", RunOutcome::Ran, SUCCESS);
  funnel.events = {{0, "", 1000}, {10, "", 1100}, {20, "", 1300}, {100, "", 1400}};
  facts.records = {record(0, "SMART_STATUS_TEST", RunOutcome::Ran, SUCCESS), targeted, funnel,
                   record(0, "SHORT_SELF_TEST", RunOutcome::Ran, SUCCESS),
                   record(1, "DEVICE_READ_TEST", RunOutcome::NotSupported, 0)};
  facts.records[3].events = {{0, "", 1000}, {50, "", 1500}, {100, "READ_ERROR_DETECTED", 2000}};
  facts.records[3].log = {{"READ_ERROR_DETECTED", 2}};
  return facts;
}

TEST(HtmlReport, MarksTheZoneOfAnUnreadableSectorOnTheSurfaceMap) {
  const std::string page = htmlReport(session());
  ASSERT_TRUE(contains(page, "id=\"surface-map-0\""));
  // LBA 95 of 1000 sectors lies in zone 9 of 100.
  EXPECT_EQ(count(page, "unreadable-zone"), 1u);
  const size_t zone = page.find("unreadable-zone");
  const size_t tipEnd = page.find("</title>", zone);
  const std::string tip = page.substr(zone, tipEnd - zone);
  EXPECT_TRUE(contains(tip, "Zone 9: 9% to 10% of the disk")) << tip;
  EXPECT_TRUE(contains(tip, "unreadable sector at LBA 95 (Targeted Read Test)")) << tip;
  EXPECT_TRUE(contains(page, "Unreadable sector at LBA 95, found by the Targeted Read Test (zone 9)"));
  EXPECT_FALSE(contains(page, "id=\"surface-map-1\"")) << "disk 1 ran no read test";
}

TEST(HtmlReport, SaysWhatACellMeansAndWhoseClockTimedIt) {
  const std::string page = htmlReport(session());
  EXPECT_TRUE(contains(page, "Each cell is 1% of the disk&#39;s logical blocks"));
  EXPECT_TRUE(contains(page, "Times are hwc_cli&#39;s own"));
  EXPECT_TRUE(contains(page, "funnel seek time")) << "timed cells carry their time";
}

TEST(HtmlReport, GivesEveryVerdictInWords) {
  const std::string page = htmlReport(session());
  EXPECT_TRUE(contains(page, "The SMART Status Test passed."));
  EXPECT_TRUE(contains(page, "The Targeted Read Test failed: the disk did not do what the test asked. Error reading sector 95."));
  EXPECT_TRUE(contains(page, "The Device Read Test does not apply to this disk, so it was not run."));
  EXPECT_TRUE(contains(page, "No attribute is at or below its failure threshold"));
  EXPECT_TRUE(contains(page, "Self-test log"));
  EXPECT_TRUE(contains(page, "<li>100%: A read element of the drive failed</li>"));
  EXPECT_TRUE(contains(page, "<li>device fault: A read element of the drive failed</li>"));
  EXPECT_TRUE(contains(page, "Seek tests: time distribution"));
  EXPECT_TRUE(contains(page, "a test found a device failing (exit status 1)"));
}

TEST(HtmlReport, RefersToNothingOutsideItselfAndRunsNoScript) {
  const std::string page = htmlReport(session());
  for (const char* part : {"<script", "<link", "<img", "@import", "url(", "src=", "http-equiv=\"refresh\""}) {
    EXPECT_FALSE(contains(page, part)) << part;
  }
  EXPECT_TRUE(contains(page, "default-src 'none'")) << "the page forbids itself any fetch";
}

TEST(HtmlReport, EscapesWhatTheDeviceAndTheCommandLineSay) {
  SessionFacts facts = session();
  facts.devices[0].description.details[0].value = "<script>alert(1)</script>";
  facts.arguments.push_back("--param=\"x&y\"");
  const std::string page = htmlReport(facts);
  EXPECT_FALSE(contains(page, "<script>"));
  EXPECT_TRUE(contains(page, "&lt;script&gt;alert(1)&lt;/script&gt;"));
  EXPECT_TRUE(contains(page, "--param=&quot;x&amp;y&quot;"));
}

TEST(HtmlReport, BytesThatAreNoUtf8AreReplaced) {
  EXPECT_EQ(htmlEscape(std::string("a\xff" "b")), "a\xEF\xBF\xBD" "b");
  EXPECT_EQ(htmlEscape("\xC3\xA9"), "\xC3\xA9") << "well-formed UTF-8 stays";
  EXPECT_EQ(htmlEscape(std::string("\xC3")), "\xEF\xBF\xBD") << "a cut sequence is replaced";
  EXPECT_EQ(htmlEscape(std::string("x\x01y")), "x\xEF\xBF\xBDy");
}

TEST(HtmlReport, BadSectorBeyondTheReportedSizeIsListedNotPlaced) {
  SessionFacts facts = session();
  facts.records[1].log = {{"READING_SECTOR 5000", 2}};
  facts.records[1].events.clear();
  const std::string page = htmlReport(facts);
  EXPECT_EQ(count(page, "unreadable-zone"), 0u);
  EXPECT_TRUE(contains(page, "beyond the size the disk reports"));
}

TEST(HtmlReport, PicturesAreOnlyOfTestsThatRan) {
  SessionFacts facts = session();
  for (TestRecord& record : facts.records) {
    if (record.testKey != "TARGETED_READ_TEST") record.outcome = RunOutcome::NotSupported;
  }
  const std::string page = htmlReport(facts);
  EXPECT_FALSE(contains(page, "Seek tests: time distribution"));
  EXPECT_FALSE(contains(page, "Self-test log"));
  EXPECT_FALSE(contains(page, "<h3>SMART</h3>"));
  EXPECT_TRUE(contains(page, "id=\"surface-map-0\"")) << "the failed targeted read still has its map";
  EXPECT_TRUE(contains(page, "No funnel seek test ran on this disk, so no cell is timed."));
}

TEST(HtmlReport, ListOnlySessionDescribesEveryDisk) {
  SessionFacts facts = session();
  facts.records.clear();
  facts.exitStatus = 0;
  const std::string page = htmlReport(facts);
  EXPECT_TRUE(contains(page, "id=\"disk-0\""));
  EXPECT_TRUE(contains(page, "id=\"disk-1\""));
  EXPECT_TRUE(contains(page, "No test was run on this disk."));
  EXPECT_TRUE(contains(page, "<td>not tested</td>"));
}

TEST(HtmlReport, FileIsReplacedWholeOrNotAtAll) {
  const std::string path = ::testing::TempDir() + "hwc_report_atomic.html";
  std::string error;
  ASSERT_TRUE(writeFileAtomically(path, "first", error)) << error;
  ASSERT_TRUE(writeFileAtomically(path, "second", error)) << error;
  std::ifstream in(path);
  std::stringstream text;
  text << in.rdbuf();
  EXPECT_EQ(text.str(), "second");
  std::remove(path.c_str());
  EXPECT_FALSE(writeFileAtomically("/nonexistent-folder/r.html", "x", error));
  EXPECT_FALSE(error.empty());
}

}  // namespace
}  // namespace hwc
