// The bad-sector walks against a scripted device: sectors fail by LBA through
// the handle and through device reads, so each test sets exactly the failure
// it is about and reads back the walk's reads, counters, list, log and
// progress.
#include "tools/scan_tool.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <memory>
#include <string>
#include <vector>

#include "tools/tool_test_support.h"

namespace {

using tooltest::FiredEvent;
using tooltest::List;

// A tool that only owns the record the walk writes into.
class OwnerTool : public Tool {
 public:
  OwnerTool() : Tool(ItemId(50, 0, 0)) {}
  void execute() override {}
  std::string getName() const override { return "OWNER"; }
  std::string getDescription() const override { return "OWNER"; }
  std::string getId() const override { return "owner"; }
};

struct Read {
  uint64_t lba;
  uint64_t sectors;
  uint32_t timeoutSeconds;
  bool operator==(const Read& other) const {
    return lba == other.lba && sectors == other.sectors && timeoutSeconds == other.timeoutSeconds;
  }
};

std::ostream& operator<<(std::ostream& out, const Read& read) {
  return out << "{" << read.lba << ", " << read.sectors << ", " << read.timeoutSeconds << "s}";
}

class ScanWalk : public ::testing::Test {
 protected:
  void useDevice(uint64_t sectorCount, uint32_t busKind = kBusAta) {
    protocol = std::make_unique<tooltest::SectorMapProtocol>(sectorCount);
    component = tooltest::makeComponent("0", protocol.get(), busKind);
    owner.abortFlag = &abortFlag;
    owner.systemEvents = &systemEvents;
  }

  uint32_t run(ScanTool& walk) {
    walk.setDevice(component.get());
    walk.setListener(&sink);
    DevicePlan plan;
    plan.id = "0";
    return walk.run(plan, 0);
  }

  // A sector that fails both through the handle and through device reads.
  void makeBad(uint64_t lba, uint32_t status = kStatusMediaError) {
    filesystem.failing.insert(lba);
    protocol->failAlways(lba, status);
  }

  // Handle reads after the wake-up read of sector 0, as (LBA, sectors, time-out).
  std::vector<Read> handleReads() const {
    std::vector<Read> out;
    for (size_t i = 1; i < filesystem.reads.size(); ++i) {
      const mstest::TransferRequest& read = filesystem.reads[i];
      out.push_back({read.offset / 512, read.length / 512, read.timeoutSeconds});
    }
    return out;
  }
  std::vector<Read> deviceReads() const {
    std::vector<Read> out;
    for (const mstest::Call& call : protocol->callsOf(mstest::Op::ReadSectors)) {
      out.push_back({call.first, call.second, call.timeoutSeconds});
    }
    return out;
  }
  static std::vector<uint64_t> counters(ScanTool& walk) {
    const uint64_t* c = walk.getCounters();
    return c == nullptr ? std::vector<uint64_t>{} : std::vector<uint64_t>(c, c + 4);
  }

  tooltest::SectorMapFilesystem filesystem;
  std::unique_ptr<tooltest::SectorMapProtocol> protocol;
  std::unique_ptr<StorageComponent> component;
  OwnerTool owner;
  tooltest::RecordingAbortFlag abortFlag;
  uint8_t systemEvents = 0;
  tooltest::RecordingToolSink sink;
};

TEST_F(ScanWalk, SectorCountNoMultipleOf255ShrinksTheLastChunkAndStopsExactlyAtTotal) {
  useDevice(600);
  ScanTool scan(&owner);
  EXPECT_EQ(run(scan), kToolStatusClean);
  ASSERT_FALSE(filesystem.reads.empty());
  EXPECT_EQ(filesystem.reads[0].offset, 0u) << "the readiness check wakes the device first";
  // 255 sectors of 512 bytes ask the handle for 65,024 bytes: 127 sectors.
  EXPECT_EQ(handleReads(), (std::vector<Read>{{0, 127, 5}, {255, 127, 5}, {510, 90, 5}}));
  EXPECT_TRUE(deviceReads().empty());
  EXPECT_EQ(counters(scan), (std::vector<uint64_t>{600, 0, 0, 0}));
  EXPECT_TRUE(scan.getBadSectors()->empty());
  EXPECT_EQ(sink.progress(), (List{"0", "42", "85", "100"}));
}

TEST(ScanWalkResume, AReportedSectorOutsideTheFailedChunkResumesFromTheChunksFirstSector) {
  // Chunk 255..509.
  EXPECT_EQ(ScanTool::sectorInChunk(300, 255, 255), 300u);
  EXPECT_EQ(ScanTool::sectorInChunk(255, 255, 255), 255u);
  EXPECT_EQ(ScanTool::sectorInChunk(509, 255, 255), 509u);
  EXPECT_EQ(ScanTool::sectorInChunk(510, 255, 255), 255u) << "one past the chunk";
  EXPECT_EQ(ScanTool::sectorInChunk(254, 255, 255), 255u) << "behind the chunk: the walk would go back";
  EXPECT_EQ(ScanTool::sectorInChunk(0, 255, 255), 255u);
  // The raw read's mixed value: 45 sectors read plus the byte offset 255 x 512.
  EXPECT_EQ(ScanTool::sectorInChunk(45 + 255 * 512, 255, 255), 255u);
  EXPECT_EQ(ScanTool::sectorInChunk(UINT64_MAX, UINT64_MAX - 1, 255), UINT64_MAX) << "no wrap at the top";
}

TEST_F(ScanWalk, ProgressIsStoredInTheOwnerAndFiredWithIt) {
  useDevice(600);
  ScanTool scan(&owner);
  run(scan);
  for (const FiredEvent& event : sink.named("OnProgress")) EXPECT_EQ(event.tool, &owner);
  ASSERT_NE(owner.getValues("Progress"), nullptr);
  EXPECT_EQ(*owner.getValues("Progress"), List{"100"});
}

TEST_F(ScanWalk, AChunkOfOneHundredTwentyEightSectorsAsksTheHandleForNoBytesAndCountsAsRead) {
  // 128 x 512 bytes is 65,536: the 16-bit byte count wraps to 0, the read
  // succeeds, and the whole chunk counts as read.
  useDevice(255 + 128);
  ScanTool scan(&owner);
  EXPECT_EQ(run(scan), kToolStatusClean);
  EXPECT_EQ(handleReads(), (std::vector<Read>{{0, 127, 5}, {255, 0, 5}}));
  EXPECT_EQ(counters(scan)[0], 383u);
}

TEST_F(ScanWalk, BadSectorBeyondTheSixteenBitFastPassIsVouchedForByIt) {
  // The fast pass reads only the first 127 sectors of a chunk; when it
  // succeeds the rest of the chunk counts as read, bad or not.
  useDevice(300);
  makeBad(200);
  ScanTool scan(&owner);
  EXPECT_EQ(run(scan), kToolStatusClean);
  EXPECT_TRUE(deviceReads().empty());
  EXPECT_TRUE(scan.getBadSectors()->empty());
  EXPECT_EQ(counters(scan)[0], 300u);
}

TEST_F(ScanWalk, FailingChunkWhoseSectorsAllReadWellOneByOneCountsAsReadAndReportsNothing) {
  useDevice(300);
  filesystem.failing.insert(10);  // the handle fails, the device reads it
  ScanTool scan(&owner);
  EXPECT_EQ(run(scan), kToolStatusClean);
  const std::vector<Read> reads = deviceReads();
  ASSERT_EQ(reads.size(), 255u);
  for (uint64_t i = 0; i < 255; ++i) EXPECT_EQ(reads[i], (Read{i, 1, 5}));
  EXPECT_EQ(handleReads(), (std::vector<Read>{{0, 127, 5}, {255, 45, 5}}));
  EXPECT_EQ(counters(scan), (std::vector<uint64_t>{300, 0, 0, 0}));
  EXPECT_TRUE(scan.getBadSectors()->empty());
  EXPECT_EQ(scan.getLog().find("BAD_SECTOR_FOUND_AT"), std::string::npos);
}

TEST_F(ScanWalk, MediaErrorThatReadsWellOnTheLongSecondReadIsCountedAsReadAndNotListed) {
  useDevice(300);
  filesystem.failing.insert(10);
  protocol->failNext(10, {kStatusMediaError});
  ScanTool scan(&owner);
  EXPECT_EQ(run(scan), kToolStatusClean);
  std::vector<Read> reads = deviceReads();
  ASSERT_EQ(reads.size(), 12u);
  EXPECT_EQ(reads[10], (Read{10, 1, 5}));
  EXPECT_EQ(reads[11], (Read{10, 1, 30})) << "the second chance is one sector with 30 seconds";
  // The walk resumes right behind the sector with a fresh full chunk.
  EXPECT_EQ(handleReads(), (std::vector<Read>{{0, 127, 5}, {11, 127, 5}, {266, 34, 5}}));
  EXPECT_EQ(counters(scan), (std::vector<uint64_t>{300, 0, 0, 0}));
  EXPECT_TRUE(scan.getBadSectors()->empty());
}

TEST_F(ScanWalk, MediaErrorThenAnotherErrorOnTheSecondReadIsPassedOverSilently) {
  useDevice(300);
  filesystem.failing.insert(10);
  protocol->failNext(10, {kStatusMediaError, kStatusAtaError});
  ScanTool scan(&owner);
  EXPECT_EQ(run(scan), kToolStatusClean);
  EXPECT_TRUE(scan.getBadSectors()->empty());
  EXPECT_EQ(counters(scan), (std::vector<uint64_t>{300, 0, 0, 0}));
  EXPECT_EQ(scan.getLog().find("BAD_SECTOR_FOUND_AT"), std::string::npos);
}

TEST_F(ScanWalk, AnotherErrorOnTheChunkGetsASecondReadWhoseResultIsIgnored) {
  useDevice(300);
  filesystem.failing.insert(10);
  protocol->failNext(10, {kStatusAtaError, kStatusMediaError});
  ScanTool scan(&owner);
  EXPECT_EQ(run(scan), kToolStatusClean);
  EXPECT_EQ(deviceReads().back(), (Read{10, 1, 30}));
  EXPECT_TRUE(scan.getBadSectors()->empty());
}

TEST_F(ScanWalk, TwoBadSectorsInOneChunkResumeBehindTheFirstWithAFreshChunkOfTheSameSize) {
  useDevice(600);
  makeBad(5);
  makeBad(9);
  ScanTool scan(&owner);
  EXPECT_EQ(run(scan), kToolStatusBadSectorsFound);
  EXPECT_EQ(handleReads(),
            (std::vector<Read>{{0, 127, 5}, {6, 127, 5}, {10, 127, 5}, {265, 127, 5}, {520, 80, 5}}));
  EXPECT_EQ(*scan.getBadSectors(), (std::vector<uint64_t>{5, 9}));
  EXPECT_EQ(counters(scan), (std::vector<uint64_t>{600, 2, 0, 0}));
}

TEST_F(ScanWalk, ScanLogsStartedFoundProgressAndFinishedLines) {
  useDevice(300);
  makeBad(10);
  ScanTool scan(&owner);
  EXPECT_EQ(run(scan), kToolStatusBadSectorsFound);
  // Progress goes into the log as one character of the percent's value.
  const std::string expected = std::string("BAD_SECTOR_TOOL_STARTED SCAN_TOOL\n") + "BAD_SECTOR_FOUND_AT 10\n" +
                               "BAD_SECTOR_TOOL_PROGRESS \x03%\n" + "BAD_SECTOR_TOOL_PROGRESS X%\n" +
                               "BAD_SECTOR_TOOL_PROGRESS d%\n" + "BAD_SECTOR_TOOL_FINISHED SCAN_TOOL\n";
  EXPECT_EQ(scan.getLog(), expected);
  EXPECT_EQ(sink.progress(), (List{"0", "3", "88", "100"}));
  scan.clearLog();
  EXPECT_EQ(scan.getLog(), "");
}

TEST_F(ScanWalk, ProgressLineOfSixtyFivePercentWritesTheLetterA) {
  useDevice(393);  // 255 of 392 is 65 percent
  ScanTool scan(&owner);
  run(scan);
  EXPECT_NE(scan.getLog().find("BAD_SECTOR_TOOL_PROGRESS A%\n"), std::string::npos) << scan.getLog();
  EXPECT_EQ(sink.progress(), (List{"0", "65", "100"}));
}

TEST_F(ScanWalk, PercentOnAVerySmallDeviceCanPassHundredAtTheEnd) {
  useDevice(3);  // the divisor is total - 1
  ScanTool scan(&owner);
  EXPECT_EQ(run(scan), kToolStatusClean);
  EXPECT_EQ(sink.progress(), (List{"0", "150"}));
}

TEST_F(ScanWalk, PercentOfAOneSectorDeviceHasNoDivisorAndProgressStaysSilent) {
  useDevice(1);
  ScanTool scan(&owner);
  EXPECT_EQ(run(scan), kToolStatusClean);
  EXPECT_EQ(sink.progress(), List{"0"});
  EXPECT_EQ(counters(scan)[0], 1u);
  EXPECT_EQ(scan.getLog().find("BAD_SECTOR_TOOL_PROGRESS"), std::string::npos);
}

TEST_F(ScanWalk, ProgressNeverFallsDuringARunAndAnAbortJumpsItToHundred) {
  useDevice(2550);
  ScanTool scan(&owner);
  sink.onEvent = [this](const FiredEvent& event) {
    if (event.name == "OnProgress" && !event.values.empty() && std::stoi(event.values[0]) >= 30) {
      abortFlag.flag = true;
    }
  };
  EXPECT_EQ(run(scan), kToolStatusAborted);
  const List progress = sink.progress();
  ASSERT_GE(progress.size(), 3u);
  for (size_t i = 1; i < progress.size(); ++i) {
    EXPECT_GE(std::stoi(progress[i]), std::stoi(progress[i - 1])) << i;
  }
  EXPECT_EQ(progress.back(), "100");
  EXPECT_EQ(progress[progress.size() - 2], "30");
  EXPECT_EQ(counters(scan)[0], 765u) << "the abort took effect before the next chunk";
  const std::string log = scan.getLog();
  EXPECT_EQ(log.substr(log.size() - 24), "BAD_SECTOR_TOOL_ABORTED\n");
  EXPECT_EQ(log.find("BAD_SECTOR_TOOL_FINISHED"), std::string::npos);
}

TEST_F(ScanWalk, HostAbortBeforeTheFirstChunkStopsWithEight) {
  useDevice(600);
  abortFlag.flag = true;
  ScanTool scan(&owner);
  EXPECT_EQ(run(scan), kToolStatusAborted);
  EXPECT_EQ(sink.progress(), (List{"0", "100"}));
  EXPECT_TRUE(handleReads().empty());
  EXPECT_EQ(scan.getLog(), "BAD_SECTOR_TOOL_STARTED SCAN_TOOL\nBAD_SECTOR_TOOL_ABORTED\n");
}

TEST_F(ScanWalk, SystemEventInTheMaskStopsTheWalkWithThirteen) {
  for (uint8_t flag : {0x01, 0x02, 0x08, 0x20, 0x40}) {
    useDevice(600);
    systemEvents = flag;
    sink.events.clear();
    ScanTool scan(&owner);
    EXPECT_EQ(run(scan), kToolStatusSystemEvent) << int(flag);
    EXPECT_EQ(sink.progress(), (List{"0", "100"}));
    EXPECT_NE(scan.getLog().find("BAD_SECTOR_TOOL_ABORTED\n"), std::string::npos);
  }
}

TEST_F(ScanWalk, SystemEventsOutsideTheMaskDoNotStopTheWalk) {
  useDevice(600);
  systemEvents = 0x94;
  ScanTool scan(&owner);
  EXPECT_EQ(run(scan), kToolStatusClean);
  EXPECT_EQ(counters(scan)[0], 600u);
}

TEST_F(ScanWalk, OwnerWithoutAbortFlagOrSystemEventsWalksToTheEnd) {
  useDevice(600);
  owner.abortFlag = nullptr;
  owner.systemEvents = nullptr;
  ScanTool scan(&owner);
  EXPECT_EQ(run(scan), kToolStatusClean);
}

TEST_F(ScanWalk, DeviceLostAfterAFailedReadStopsWithEight) {
  useDevice(600);
  makeBad(3);
  protocol->setDefault(mstest::Op::IsAccessible, 1);
  ScanTool scan(&owner);
  EXPECT_EQ(run(scan), kToolStatusAborted);
  EXPECT_EQ(sink.progress(), (List{"0", "100"}));
  EXPECT_TRUE(scan.getBadSectors()->empty());
  EXPECT_EQ(protocol->count(mstest::Op::IsAccessible), 1u);
}

TEST_F(ScanWalk, ReadThatCannotBeCarriedOutStopsWithTwo) {
  useDevice(600);
  makeBad(3, kStatusScsiRefused);
  ScanTool scan(&owner);
  EXPECT_EQ(run(scan), kToolStatusDeviceUnusable);
  EXPECT_EQ(sink.progress(), (List{"0", "100"}));
  EXPECT_NE(scan.getLog().find("BAD_SECTOR_TOOL_ABORTED\n"), std::string::npos);
}

TEST_F(ScanWalk, ReadinessCheckFailureReturnsSixAndSaysNothing) {
  useDevice(600, kBusNvme);
  ScanTool scan(&owner);
  EXPECT_EQ(run(scan), kToolStatusCannotStart);
  EXPECT_TRUE(sink.events.empty());
  EXPECT_EQ(scan.getLog(), "");
  EXPECT_TRUE(filesystem.reads.empty());

  useDevice(0);  // no capacity: the media can't be reached
  EXPECT_EQ(run(scan), kToolStatusCannotStart);
  EXPECT_TRUE(sink.events.empty());

  ScanTool noDevice(&owner);
  noDevice.setListener(&sink);
  DevicePlan plan;
  EXPECT_EQ(noDevice.run(plan, 0), kToolStatusCannotStart);
}

TEST_F(ScanWalk, RunIgnoresItsArgumentsAndWorksOnTheDevice) {
  useDevice(300);
  ScanTool scan(&owner);
  scan.setDevice(component.get());
  DevicePlan plan;
  plan.id = "other";
  plan.partitions.push_back(PartitionPlan{});
  EXPECT_EQ(scan.run(plan, 7), kToolStatusClean);
  EXPECT_EQ(counters(scan)[0], 300u);
}

TEST_F(ScanWalk, CountersAreNullUntilTheFirstScanAndEachRunStartsAfresh) {
  useDevice(300);
  makeBad(10);
  ScanTool scan(&owner);
  EXPECT_EQ(scan.getCounters(), nullptr);
  EXPECT_EQ(scan.getName(), "SCAN_TOOL");
  EXPECT_EQ(scan.getStatusText(), "");
  run(scan);
  EXPECT_EQ(counters(scan), (std::vector<uint64_t>{300, 1, 0, 0}));
  run(scan);
  EXPECT_EQ(counters(scan), (std::vector<uint64_t>{300, 1, 0, 0}));
  EXPECT_EQ(*scan.getBadSectors(), std::vector<uint64_t>{10});
  // The log is not reset by a run: the driver clears it.
  const std::string log = scan.getLog();
  EXPECT_EQ(log.find("BAD_SECTOR_TOOL_STARTED"), 0u);
  EXPECT_NE(log.find("BAD_SECTOR_TOOL_STARTED", 1), std::string::npos);
}

TEST_F(ScanWalk, RepairStartsWithZeroedCountersAndItsNameInTheLog) {
  useDevice(300);
  ScanAndFixTool repair(&owner);
  EXPECT_EQ(repair.getName(), "SCAN_AND_FIX_TOOL");
  EXPECT_EQ(counters(repair), (std::vector<uint64_t>{0, 0, 0, 0}));
  EXPECT_EQ(repair.getLog(), "SCAN_AND_FIX_TOOL\n");
}

TEST_F(ScanWalk, RepairRewritesEachBadSectorAsItFindsItAndFinishesWithNine) {
  useDevice(600);
  makeBad(5);
  makeBad(300);
  ScanAndFixTool repair(&owner);
  repair.clearLog();
  EXPECT_EQ(run(repair), kToolStatusRepaired);
  EXPECT_EQ(*repair.getBadSectors(), (std::vector<uint64_t>{5, 300}));
  EXPECT_EQ(counters(repair), (std::vector<uint64_t>{600, 2, 2, 0}));
  std::vector<uint64_t> writes;
  for (const mstest::Call& call : protocol->callsOf(mstest::Op::WriteSector)) writes.push_back(call.first);
  EXPECT_EQ(writes, (std::vector<uint64_t>{5, 300}));
  const std::string log = repair.getLog();
  EXPECT_EQ(log.find("BAD_SECTOR_TOOL_STARTED SCAN_AND_FIX_TOOL\nBAD_SECTOR_FOUND_AT 5\nBAD_SECTOR_FIXED_AT 5\n"),
            0u)
      << log;
  EXPECT_NE(log.find("BAD_SECTOR_FOUND_AT 300\nBAD_SECTOR_FIXED_AT 300\n"), std::string::npos);
  EXPECT_NE(log.find("BAD_SECTOR_TOOL_FINISHED SCAN_AND_FIX_TOOL\n"), std::string::npos);
}

TEST_F(ScanWalk, RewriteWritesOneSectorOfAlternatingOnesAndZerosAndReadsItBack) {
  useDevice(300);
  makeBad(5);
  ScanAndFixTool repair(&owner);
  run(repair);
  ASSERT_EQ(protocol->written.count(5), 1u);
  const std::vector<uint8_t>& pattern = protocol->written[5];
  ASSERT_EQ(pattern.size(), 512u);
  for (size_t i = 0; i < pattern.size(); ++i) ASSERT_EQ(pattern[i], i % 2 == 0 ? 0x01 : 0x00) << i;
  // After the write: one device read of the sector with 30 seconds.
  const std::vector<mstest::Call>& calls = protocol->calls;
  auto write = std::find_if(calls.begin(), calls.end(), [](const mstest::Call& c) { return c.op == mstest::Op::WriteSector; });
  ASSERT_NE(write, calls.end());
  auto readBack = std::find_if(write, calls.end(), [](const mstest::Call& c) { return c.op == mstest::Op::ReadSectors; });
  ASSERT_NE(readBack, calls.end());
  EXPECT_EQ(readBack->first, 5u);
  EXPECT_EQ(readBack->second, 1u);
  EXPECT_EQ(readBack->timeoutSeconds, 30u);
}

TEST_F(ScanWalk, RepairOverABadSectorWhoseWriteFailsStillFinishesWithNineAndAFixedLine) {
  useDevice(300);
  makeBad(5);
  protocol->setDefault(mstest::Op::WriteSector, kStatusAtaError);
  ScanAndFixTool repair(&owner);
  EXPECT_EQ(run(repair), kToolStatusRepaired);
  EXPECT_NE(repair.getLog().find("BAD_SECTOR_FIXED_AT 5\n"), std::string::npos);
  EXPECT_EQ(repair.getLog().find("BAD_SECTOR_NOT_FIXED_AT"), std::string::npos);
  EXPECT_EQ(counters(repair), (std::vector<uint64_t>{300, 1, 1, 0}));
}

TEST_F(ScanWalk, RepairWithoutBadSectorsFinishesClean) {
  useDevice(300);
  ScanAndFixTool repair(&owner);
  EXPECT_EQ(run(repair), kToolStatusClean);
  EXPECT_EQ(protocol->count(mstest::Op::WriteSector), 0u);
}

TEST_F(ScanWalk, RepairOverASourceListRewritesOnlyTheListedSectors) {
  useDevice(300);
  owner.abortFlag = nullptr;
  tooltest::FakeOperation source(&owner);
  source.withCounters = true;
  source.badSectors = {7, 12};
  ScanAndFixTool repair(&owner);
  repair.setSourceScan(&source);
  repair.clearLog();
  EXPECT_EQ(run(repair), kToolStatusRepaired);
  EXPECT_TRUE(handleReads().empty()) << "no walk over the device";
  std::vector<uint64_t> writes;
  for (const mstest::Call& call : protocol->callsOf(mstest::Op::WriteSector)) writes.push_back(call.first);
  EXPECT_EQ(writes, (std::vector<uint64_t>{7, 12}));
  EXPECT_EQ(*repair.getBadSectors(), (std::vector<uint64_t>{7, 12, 7, 12}))
      << "the copied list, and each sector once more as it is found";
  EXPECT_EQ(sink.progress(), (List{"0", "100"}));
  EXPECT_EQ(counters(repair), (std::vector<uint64_t>{0, 2, 2, 0}));
}

TEST_F(ScanWalk, RepairOverASourceListStopsAfterItsFirstSectorWhenTheHostHasAnAbortFlag) {
  // The list run tests the flag's pointer, not its value.
  useDevice(300);
  tooltest::FakeOperation source(&owner);
  source.withCounters = true;
  source.badSectors = {7, 12};
  ScanAndFixTool repair(&owner);
  repair.setSourceScan(&source);
  repair.clearLog();
  EXPECT_EQ(run(repair), kToolStatusAborted);
  EXPECT_EQ(protocol->count(mstest::Op::WriteSector), 1u);
  EXPECT_EQ(repair.getLog(),
            "BAD_SECTOR_TOOL_STARTED SCAN_AND_FIX_TOOL\nBAD_SECTOR_TOOL_ABORTED\nBAD_SECTOR_FOUND_AT 7\n"
            "BAD_SECTOR_FIXED_AT 7\n");
  EXPECT_EQ(sink.progress(), (List{"0", "100"}));
}

TEST_F(ScanWalk, RepairWithAnEmptySourceListWalksTheDevice) {
  useDevice(300);
  makeBad(10);
  tooltest::FakeOperation source(&owner);
  source.withCounters = true;
  ScanAndFixTool repair(&owner);
  repair.setSourceScan(&source);
  EXPECT_EQ(run(repair), kToolStatusRepaired);
  EXPECT_EQ(counters(repair), (std::vector<uint64_t>{300, 1, 1, 0}));
}

}  // namespace
