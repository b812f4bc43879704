// The figures read out of a session: bad sectors named in messages, the SMART
// verdict, the funnel seek's time per zone and the seek tests' step times.
#include "run_facts.h"

#include <gtest/gtest.h>

#include "module_storage/result_codes.h"

namespace hwc {
namespace {

TestRecord ran(const std::string& key, uint32_t result = SUCCESS, uint32_t device = 0) {
  TestRecord record;
  record.deviceIndex = device;
  record.testKey = key;
  record.outcome = RunOutcome::Ran;
  record.result = result;
  return record;
}

DeviceFacts device(std::vector<DetailEntry> details, std::map<std::string, std::string> attributes) {
  DeviceFacts facts;
  facts.description.name = "DISK - 1 TB";
  facts.description.details = std::move(details);
  facts.description.attributes = std::move(attributes);
  return facts;
}

TEST(RunFacts, BadSectorsAreReadFromEventsAndLogOnceEach) {
  TestRecord record = ran("TARGETED_READ_TEST", FAILED);
  record.events = {{0, "", 0}, {100, "READING_SECTOR 193536017", 0}};
  record.log = {{"READING_SECTOR 193536017", 2}, {"READING_SECTOR 12. |TOO_MANY_BAD_SECTORS_FOUND: 10", 2}};
  EXPECT_EQ(badSectorsOf(record), (std::set<uint64_t>{12, 193536017}));
}

TEST(RunFacts, TextThatOnlyLooksLikeABadSectorIsNotOne) {
  TestRecord record = ran("TARGETED_READ_TEST");
  record.log = {{"XREADING_SECTOR 5", 0}, {"READING_SECTOR ", 0}, {"READING_SECTOR abc", 0},
                {"TOO_MANY_BAD_SECTORS_FOUND: 10", 2}};
  EXPECT_TRUE(badSectorsOf(record).empty());
}

TEST(RunFacts, SmartVerdictComesFromTheSmartStatusTestOfThatDisk) {
  std::vector<TestRecord> records = {ran("SMART_STATUS_TEST", SUCCESS, 0), ran("SMART_STATUS_TEST", FAILED, 1),
                                     ran("FUNNEL_SEEK_TEST", FAILED, 2)};
  EXPECT_EQ(healthOf(records, 0), Health::Good);
  EXPECT_EQ(healthOf(records, 1), Health::Failing);
  EXPECT_EQ(healthOf(records, 2), Health::Unknown) << "a failed seek says nothing about SMART";
  TestRecord notSupported = ran("SMART_STATUS_TEST", SUCCESS, 3);
  notSupported.outcome = RunOutcome::NotSupported;
  records.push_back(notSupported);
  EXPECT_EQ(healthOf(records, 3), Health::Unknown);
}

TEST(RunFacts, FunnelTimeIsSharedBetweenTheStretchesNearBothEnds) {
  // Steps to 1% and 2% of the walk's 99, 10 ms and 30 ms apart.
  TestRecord record = ran("FUNNEL_SEEK_TEST");
  record.events = {{0, "", 1000}, {1, "", 11000}, {2, "", 41000}, {100, "", 50000}, {100, "", 50000}};
  ZoneTimes zones = funnelZoneTimes(record, 99);
  // Zone 0 (the first 1/99) and zone 98 (the last) share the first 10 ms.
  EXPECT_NEAR(zones.milliseconds[0], 5.0, 1e-9);
  EXPECT_NEAR(zones.milliseconds[98], 5.0, 1e-9);
  EXPECT_NEAR(zones.milliseconds[1], 15.0, 1e-9);
  EXPECT_NEAR(zones.milliseconds[97], 15.0, 1e-9);
  EXPECT_TRUE(zones.timed[0] && zones.timed[1] && zones.timed[97] && zones.timed[98]);
  EXPECT_FALSE(zones.timed[50]) << "the walk never got to the middle";
  EXPECT_EQ(zones.milliseconds[50], 0.0);
}

TEST(RunFacts, FunnelTimingStopsAtTheClosingEventsAndSkipsMessages) {
  TestRecord record = ran("FUNNEL_SEEK_TEST", FAILED);
  record.events = {{0, "", 0}, {50, "READING_SECTOR 7", 5000}, {99, "", 9000}, {100, "", 20000}};
  ZoneTimes zones = funnelZoneTimes(record, 100);
  double total = 0;
  for (double value : zones.milliseconds) total += value;
  EXPECT_NEAR(total, 9.0, 1e-9) << "only the step to 99 counts, not the message nor the closing 100";
}

TEST(RunFacts, StepTimesAreTheGapsBetweenRisingPercentagesPerPercent) {
  TestRecord record = ran("RANDOM_SEEK_TEST");
  record.events = {{0, "", 0}, {1, "", 2000}, {3, "", 8000}, {3, "", 9000}, {100, "", 9000}, {100, "", 9500}};
  std::vector<double> times = stepTimes(record);
  ASSERT_EQ(times.size(), 3u);
  EXPECT_DOUBLE_EQ(times[0], 2.0);
  EXPECT_DOUBLE_EQ(times[1], 3.0) << "two percent in 6 ms";
  EXPECT_NEAR(times[2], 1.0 / 97.0, 1e-12);
  TestRecord notRun = record;
  notRun.outcome = RunOutcome::NotRun;
  EXPECT_TRUE(stepTimes(notRun).empty());
}

TEST(RunFacts, KindAndBusComeFromTheDescription) {
  DeviceFacts hdd = device({{"SUPPORTED_STANDARDS", "ATA8-ACS, ATA7-ATAPI"}}, {{"NonRotatingMedia", "F"}, {"parent", "LOCAL_DRIVES"}});
  EXPECT_EQ(hdd.kind(), "HDD");
  EXPECT_EQ(hdd.bus(), "ATA");
  DeviceFacts nvme = device({{"MANUFACTURER", "NVMe"}, {"SUPPORTED_STANDARDS", "SPC-4, SBC-3"}},
                            {{"NonRotatingMedia", "T"}, {"parent", "LOCAL_DRIVES"}});
  EXPECT_EQ(nvme.kind(), "NVMe");
  EXPECT_EQ(nvme.bus(), "NVMe");
  DeviceFacts sas = device({{"SUPPORTED_STANDARDS", "SAM-5, SPC-4, SBC-3"}}, {{"NonRotatingMedia", "F"}});
  EXPECT_EQ(sas.bus(), "SCSI");
  DeviceFacts usb = device({{"SUPPORTED_STANDARDS", "ATA8-ACS"}}, {{"NonRotatingMedia", "T"}, {"parent", "USB_DRIVES"}});
  EXPECT_EQ(usb.kind(), "SSD");
  EXPECT_EQ(usb.bus(), "USB");
  DeviceFacts raid = device({}, {{"parent", "RAID_ATTACHED_DRIVES\\X - 1"}});
  EXPECT_EQ(raid.bus(), "RAID");
  EXPECT_EQ(raid.kind(), "");
}

TEST(RunFacts, NumbersOfTheDescriptionAreReadStrictly) {
  DeviceFacts facts = device({{"LOGICAL_SECTORS", "1953525168"}, {"LOGICAL_SECTOR_SIZE", "512"}, {"TEMPERATURE", "36 C"}}, {});
  EXPECT_EQ(facts.sectorCount(), 1953525168u);
  EXPECT_EQ(facts.sectorSize(), 512u);
  uint32_t celsius = 0;
  ASSERT_TRUE(facts.temperature(celsius));
  EXPECT_EQ(celsius, 36u);
  DeviceFacts bad = device({{"LOGICAL_SECTORS", "12x"}, {"TEMPERATURE", "hot"}}, {});
  EXPECT_EQ(bad.sectorCount(), 0u);
  EXPECT_FALSE(bad.temperature(celsius));
  EXPECT_EQ(bad.model(), "DISK - 1 TB") << "no MODEL: the name stands in";
}

}  // namespace
}  // namespace hwc
