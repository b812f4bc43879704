// The device read test against the scripted protocol and filesystem: which
// devices it serves, its parameters and their refusals, the plan of ranges on
// devices large and small, the chunks and their 16-bit byte counts, progress,
// aborts and every row of its failures.
#include "diagnostics/device_read.h"

#include <gtest/gtest.h>

#include <memory>
#include <vector>

#include "module/catalogue.h"
#include "testing/recording_host.h"
#include "testing/scripted_filesystem.h"
#include "testing/scripted_protocol.h"

namespace {

using mstest::LogLine;
using mstest::ProgressEvent;

constexpr uint64_t kSectorsPerGiB = 2097152;  // of 512 bytes
HANDLE const kDiskHandle = reinterpret_cast<HANDLE>(0x4d2);

// Opens the plan and the range reader to the tests.
class OpenDeviceReadTest : public StorageDeviceReadTest {
 public:
  OpenDeviceReadTest() : StorageDeviceReadTest(ItemId(1, 1, 11)) {}
  using StorageDeviceReadTest::bindContext;
  using StorageDeviceReadTest::centralSize;
  using StorageDeviceReadTest::finalSize;
  using StorageDeviceReadTest::givenParameters;
  using StorageDeviceReadTest::initialSize;
  using StorageDeviceReadTest::makePlan;
  using StorageDeviceReadTest::ReadPlan;
  using StorageDeviceReadTest::ReadRange;
  using StorageDeviceReadTest::readRange;
  using StorageDeviceReadTest::sectorsDone;
  using StorageDeviceReadTest::wholeDiskRead;
};

using Range = OpenDeviceReadTest::ReadRange;

TestParameters storage(std::map<std::string, std::string> values) { return {{"STORAGE", std::move(values)}}; }

class DeviceRead : public ::testing::Test {
 protected:
  DeviceRead()
      : protocol(new mstest::ScriptedProtocol()),
        disk(std::unique_ptr<StorageProtocol>(protocol), nullptr),
        context(&disk, &listener, &log) {
    disk.setBusKind(kBusNvme);
    disk.setLocation(kLocationInternal);
    protocol->handle = kDiskHandle;
    setDevice(1000000, 512);
  }

  void setDevice(uint64_t sectors, uint32_t sectorSize) {
    StorageProtocolProperties properties;
    properties.sectorCount = sectors;
    properties.logicalSectorSize = sectorSize;
    protocol->setCachedProperties(properties);
  }

  void setParameters(std::map<std::string, std::string> values) {
    std::vector<RejectedParameter> rejected;
    ASSERT_TRUE(test.setParameters(storage(std::move(values)), rejected));
    ASSERT_TRUE(rejected.empty());
  }

  OpenDeviceReadTest::ReadPlan plan() {
    EXPECT_EQ(test.bindContext(&context), SUCCESS);
    StorageProtocolProperties properties;
    protocol->getCachedProperties(&properties);
    return test.makePlan(properties);
  }

  // The LBA at which each run of consecutive chunks begins: one per range.
  std::vector<uint64_t> rangeStarts() const {
    std::vector<uint64_t> starts;
    uint64_t expected = UINT64_MAX;
    for (const mstest::TransferRequest& read : filesystem.reads) {
      if (read.offset != expected) starts.push_back(read.offset / 512);
      expected = read.offset + OpenDeviceReadTest::kChunkSectors * 512;
    }
    return starts;
  }

  mstest::ScriptedFilesystem filesystem;
  mstest::ScriptedProtocol* protocol;
  StorageComponent disk;
  mstest::RecordingListener listener;
  mstest::RecordingLog log;
  mstest::ScriptedRunContext context;
  OpenDeviceReadTest test;
};

// --- Which devices -----------------------------------------------------------

TEST_F(DeviceRead, IsSupportedOnEmmcAndNvmeOnly) {
  for (uint32_t bus : {kBusEmmc, kBusNvme}) {
    disk.setBusKind(bus);
    EXPECT_TRUE(test.isSupported(&disk)) << bus;
  }
  for (uint32_t bus : {kBusAta, kBusScsi, kBusUsb, kBusRaid, kBusUnknown}) {
    disk.setBusKind(bus);
    EXPECT_FALSE(test.isSupported(&disk)) << bus;
  }
}

TEST_F(DeviceRead, IsSupportedOnAnAtaOrScsiDiskIsFalseWithNothingOnTheListener) {
  // Bound to the recording host first, so that a check speaking to the bound
  // listener or log rather than to the null ones would be seen.
  ASSERT_EQ(test.bindContext(&context), SUCCESS);
  for (uint32_t bus : {kBusAta, kBusScsi}) {
    disk.setBusKind(bus);
    EXPECT_FALSE(test.isSupported(&disk));
  }
  EXPECT_TRUE(listener.events.empty());
  EXPECT_TRUE(log.lines.empty());
  EXPECT_TRUE(protocol->calls.empty()) << "decided without the device";
}

TEST_F(DeviceRead, IsSupportedRefusesANullComponentAndOneWithoutProtocol) {
  EXPECT_FALSE(test.isSupported(nullptr));
  StorageComponent bare(nullptr, nullptr);
  bare.setBusKind(kBusNvme);
  EXPECT_FALSE(test.isSupported(&bare));
  EXPECT_EQ(test.checkSupported(&bare, &listener, &log), INVALID);
  EXPECT_EQ(test.checkSupported(nullptr, &listener, &log), INVALID);
}

TEST_F(DeviceRead, CheckSupportedGivesNotApplicableInSilence) {
  disk.setBusKind(kBusUsb);
  EXPECT_EQ(test.checkSupported(&disk, &listener, &log), NOT_APPLICABLE);
  EXPECT_TRUE(listener.events.empty());
  EXPECT_TRUE(log.lines.empty());
}

TEST_F(DeviceRead, PrepareSimplyGivesSuccess) {
  disk.setBusKind(kBusAta);
  EXPECT_EQ(test.prepare(&disk, &listener, &log), SUCCESS);
  EXPECT_FALSE(test.isOptionA());
  EXPECT_FALSE(test.isOptionB());
}

TEST_F(DeviceRead, RunOnAnAtaDiskGivesNotApplicableWithoutKeyOrLogLine) {
  disk.setBusKind(kBusAta);
  EXPECT_EQ(test.run(&context), NOT_APPLICABLE);
  EXPECT_EQ(listener.events, (std::vector<ProgressEvent>{{0, ""}, {100, ""}}));
  EXPECT_TRUE(log.lines.empty());
  EXPECT_TRUE(filesystem.reads.empty());
}

TEST_F(DeviceRead, RunWithoutAUsableContextGivesInvalidBeforeAnyEvent) {
  EXPECT_EQ(test.run(nullptr), INVALID);
  context.setLog(nullptr);
  EXPECT_EQ(test.run(&context), INVALID);
  EXPECT_TRUE(listener.events.empty());
}

TEST(DeviceReadCatalogue, DeviceReadTestStandsAt1_1_11AfterTheQuickRowsBeforeIt) {
  const std::vector<CatalogueRow>& rows = catalogueRows();
  size_t at = rows.size();
  for (size_t i = 0; i < rows.size(); ++i) {
    if (rows[i].diagnosticId == 1 && rows[i].testId == 11) at = i;
  }
  ASSERT_LT(at, rows.size());
  for (size_t i = 0; i < at; ++i) EXPECT_EQ(rows[i].diagnosticId, 1u) << "quick rows come first";
  for (size_t i = at + 1; i < rows.size(); ++i) EXPECT_EQ(rows[i].diagnosticId, 2u) << "1.1.11 ends the quick rows";
  std::unique_ptr<::Test> made(rows[at].create(ItemId(1, 1, 11)));
  ASSERT_NE(dynamic_cast<StorageDeviceReadTest*>(made.get()), nullptr);
  EXPECT_EQ(made->getItemId(), ItemId(1, 1, 11));
}

// --- Parameters --------------------------------------------------------------

TEST_F(DeviceRead, DefaultsAreTwoSixAndThreeGiBWithNothingGiven) {
  EXPECT_EQ(test.initialSize, 2u);
  EXPECT_EQ(test.centralSize, 6u);
  EXPECT_EQ(test.finalSize, 3u);
  EXPECT_FALSE(test.wholeDiskRead);
  EXPECT_EQ(test.givenParameters, 0u);
}

TEST_F(DeviceRead, AbsentOrEmptySectionIsAccepted) {
  std::vector<RejectedParameter> rejected;
  EXPECT_TRUE(test.setParameters({}, rejected));
  EXPECT_TRUE(test.setParameters({{"OTHER", {{"INITIAL_SIZE", "x"}}}}, rejected));
  EXPECT_TRUE(test.setParameters(storage({}), rejected));
  EXPECT_TRUE(rejected.empty());
  EXPECT_EQ(test.givenParameters, 0u);
}

TEST_F(DeviceRead, EachKeySetsItsFieldAndItsBit) {
  setParameters({{"INITIAL_SIZE", "7"}});
  EXPECT_EQ(test.initialSize, 7u);
  EXPECT_EQ(test.givenParameters, 0x01);
  setParameters({{"CENTRAL_SIZE", "8"}, {"FINAL_SIZE", "4294967295"}});
  EXPECT_EQ(test.centralSize, 8u);
  EXPECT_EQ(test.finalSize, 4294967295u);
  EXPECT_EQ(test.givenParameters, 0x07) << "bits given earlier stay";
  setParameters({{"WHOLE_DISK_READ", "1"}});
  EXPECT_TRUE(test.wholeDiskRead);
  EXPECT_EQ(test.givenParameters, 0x0F);
  setParameters({{"WHOLE_DISK_READ", "0"}});
  EXPECT_FALSE(test.wholeDiskRead);
  EXPECT_EQ(test.givenParameters, 0x0F);
}

TEST_F(DeviceRead, WholeDiskReadTwoIsRejectedAsOutOfRange) {
  std::vector<RejectedParameter> rejected;
  EXPECT_FALSE(test.setParameters(storage({{"WHOLE_DISK_READ", "2"}}), rejected));
  ASSERT_EQ(rejected.size(), 1u);
  EXPECT_EQ(rejected[0].code, 1116u);
  EXPECT_EQ(rejected[0].section, "STORAGE");
  EXPECT_EQ(rejected[0].key, "WHOLE_DISK_READ");
  EXPECT_FALSE(test.wholeDiskRead);
  EXPECT_EQ(test.givenParameters & OpenDeviceReadTest::kGivenWholeDiskRead, 0);
}

TEST_F(DeviceRead, WholeDiskReadXIsRejectedAsNotANumber) {
  std::vector<RejectedParameter> rejected;
  EXPECT_FALSE(test.setParameters(storage({{"WHOLE_DISK_READ", "x"}}), rejected));
  ASSERT_EQ(rejected.size(), 1u);
  EXPECT_EQ(rejected[0].code, 1115u);
  EXPECT_EQ(rejected[0].section, "STORAGE");
  EXPECT_EQ(rejected[0].key, "WHOLE_DISK_READ");
}

TEST_F(DeviceRead, BadSizeIsNotANumberAndLaterKeysAreNotLookedAtWhileEarlierOnesStay) {
  std::vector<RejectedParameter> rejected;
  EXPECT_FALSE(test.setParameters(
      storage({{"INITIAL_SIZE", "1"}, {"CENTRAL_SIZE", "12x"}, {"FINAL_SIZE", "5"}, {"WHOLE_DISK_READ", "7"}}),
      rejected));
  ASSERT_EQ(rejected.size(), 1u) << "WHOLE_DISK_READ=7 is never reached";
  EXPECT_EQ(rejected[0].code, 1115u);
  EXPECT_EQ(rejected[0].key, "CENTRAL_SIZE");
  EXPECT_EQ(test.initialSize, 1u);
  EXPECT_EQ(test.centralSize, 6u);
  EXPECT_EQ(test.finalSize, 3u);
  EXPECT_EQ(test.givenParameters, 0x01);
}

TEST_F(DeviceRead, SizesBeyondThirtyTwoBitsOrNegativeAreNotNumbers) {
  for (const char* value : {"4294967296", "-1", "", "0x10"}) {
    std::vector<RejectedParameter> rejected;
    EXPECT_FALSE(test.setParameters(storage({{"FINAL_SIZE", value}}), rejected)) << value;
    ASSERT_EQ(rejected.size(), 1u);
    EXPECT_EQ(rejected[0].code, 1115u) << value;
  }
  EXPECT_EQ(test.finalSize, 3u);
}

// --- The plan ----------------------------------------------------------------

TEST_F(DeviceRead, TwoHundredGiBDeviceWithDefaultsReadsTwoSixAndThreeGiBAroundAnOffCentreMiddle) {
  const uint64_t sectors = 200 * kSectorsPerGiB;
  setDevice(sectors, 512);
  const auto made = plan();
  const uint64_t middle = (sectors - 3 * kSectorsPerGiB + 2 * kSectorsPerGiB) / 2;
  EXPECT_EQ(middle, 208666624u);
  EXPECT_NE(middle, sectors / 2) << "not the middle of the device";
  EXPECT_EQ(made.ranges, (std::vector<Range>{{0, 2 * kSectorsPerGiB - 1},
                                             {middle - 3 * kSectorsPerGiB, middle + 3 * kSectorsPerGiB},
                                             {sectors - 3 * kSectorsPerGiB, sectors - 1}}));
  EXPECT_EQ(made.totalSectors, 11 * kSectorsPerGiB);
  EXPECT_TRUE(listener.events.empty()) << "sizes not given are not announced";
  EXPECT_TRUE(log.lines.empty());
}

TEST_F(DeviceRead, TwoHundredGiBDeviceIsReadInThreeRangesOfChunks) {
  const uint64_t sectors = 200 * kSectorsPerGiB;
  setDevice(sectors, 512);
  EXPECT_EQ(test.run(&context), SUCCESS);
  EXPECT_EQ(rangeStarts(), (std::vector<uint64_t>{0, 202375168, 413138944}));
  // [0, 2 GiB - 1) in 1024 chunks, a 12 GiB span in 3072, [end - 3 GiB, end - 1) in 1536.
  EXPECT_EQ(filesystem.reads.size(), 1024u + 3072u + 1536u);
  for (const mstest::TransferRequest& read : filesystem.reads) {
    EXPECT_EQ(read.handle, kDiskHandle);
    EXPECT_EQ(read.timeoutSeconds, 30u);
  }
  EXPECT_EQ(listener.events.back(), (ProgressEvent{100, ""}));
  EXPECT_TRUE(listener.keyedEvents().empty());
  EXPECT_TRUE(log.lines.empty());
}

TEST_F(DeviceRead, EightGiBDeviceWithDefaultsFallsBackToTwentyFiftyAndThirtyPercent) {
  const uint64_t sectors = 8 * kSectorsPerGiB;  // 2 + 6 + 3 GiB don't fit
  setDevice(sectors, 512);
  const auto made = plan();
  // 0.2, 0.5 and 0.3 of 16777216 in single precision.
  EXPECT_EQ(made.ranges, (std::vector<Range>{{0, 3355442}, {3355443, 11744051}, {11744051, 16777215}}));
  EXPECT_EQ(made.totalSectors, 3355443u + 8388608u + 5033165u);
  EXPECT_TRUE(listener.events.empty());
}

TEST_F(DeviceRead, ThirtyTwoGiBDeviceWithInitialSizeThirtyFallsBackForAllThreeSizes) {
  setDevice(32 * kSectorsPerGiB, 512);
  setParameters({{"INITIAL_SIZE", "30"}});
  const auto made = plan();
  // The shares replace the 6 and the 3 as well; in single precision the
  // three come to one sector more than the device.
  const uint64_t initial = 13421773, central = 33554432, final = 20132660;
  const uint64_t middle = (32 * kSectorsPerGiB - final + initial) / 2;
  EXPECT_EQ(made.ranges, (std::vector<Range>{{0, initial - 1},
                                             {middle - central / 2, middle + central / 2},
                                             {32 * kSectorsPerGiB - final, 32 * kSectorsPerGiB - 1}}));
  EXPECT_EQ(made.totalSectors, initial + central + final);
  // The announcement tells the size in use, 6.4 GiB, not the 30 asked for;
  // the central and final sizes were not given and are not announced.
  EXPECT_EQ(listener.events, (std::vector<ProgressEvent>{{0, "INITIAL_SIZE: 6"}}));
  EXPECT_EQ(log.lines, (std::vector<LogLine>{{"INITIAL_SIZE: 6", LevelInfo}}));
}

TEST_F(DeviceRead, InitialSizeZeroLeavesTheStartRangeOut) {
  setDevice(200 * kSectorsPerGiB, 512);
  setParameters({{"INITIAL_SIZE", "0"}});
  const auto made = plan();
  ASSERT_EQ(made.ranges.size(), 2u);
  EXPECT_NE(made.ranges[0].first, 0u);
  EXPECT_EQ(made.totalSectors, 9 * kSectorsPerGiB);
  EXPECT_EQ(listener.events, (std::vector<ProgressEvent>{{0, "INITIAL_SIZE: 0"}}));
}

TEST_F(DeviceRead, AllSizesZeroMakeAnEmptyPlanAndTheBodyEndsAtOnceWithSuccess) {
  setDevice(200 * kSectorsPerGiB, 512);
  setParameters({{"INITIAL_SIZE", "0"}, {"CENTRAL_SIZE", "0"}, {"FINAL_SIZE", "0"}});
  const auto made = plan();
  EXPECT_TRUE(made.ranges.empty());
  EXPECT_EQ(made.totalSectors, 0u);

  listener.events.clear();
  log.lines.clear();
  EXPECT_EQ(test.run(&context), SUCCESS);
  EXPECT_TRUE(filesystem.reads.empty());
  EXPECT_EQ(listener.events, (std::vector<ProgressEvent>{{0, ""},
                                                         {0, ""},
                                                         {0, "INITIAL_SIZE: 0"},
                                                         {0, "CENTRAL_SIZE: 0"},
                                                         {0, "FINAL_SIZE: 0"},
                                                         {100, ""},
                                                         {100, ""}}));
  EXPECT_EQ(log.lines, (std::vector<LogLine>{{"INITIAL_SIZE: 0", LevelInfo},
                                             {"CENTRAL_SIZE: 0", LevelInfo},
                                             {"FINAL_SIZE: 0", LevelInfo}}));
}

TEST_F(DeviceRead, WholeDiskReadZeroAnnouncesTheKeyWithZeroAndThenReadsTheThreeRanges) {
  setDevice(200 * kSectorsPerGiB, 512);
  setParameters({{"WHOLE_DISK_READ", "0"}});
  EXPECT_EQ(test.run(&context), SUCCESS);
  EXPECT_EQ(listener.keyedEvents(), (std::vector<ProgressEvent>{{0, "WHOLE_DISK_READ: 0"}}));
  EXPECT_EQ(log.lines, (std::vector<LogLine>{{"WHOLE_DISK_READ: 0", LevelInfo}}));
  EXPECT_EQ(rangeStarts().size(), 3u);
}

TEST_F(DeviceRead, WholeDiskReadOneIsOneRangeOverTheDeviceAndAnnouncesNothingElse) {
  setDevice(100000, 512);
  setParameters({{"INITIAL_SIZE", "1"}, {"WHOLE_DISK_READ", "1"}});
  const auto made = plan();
  EXPECT_EQ(made.ranges, (std::vector<Range>{{0, 99999}}));
  EXPECT_EQ(made.totalSectors, 100000u);
  EXPECT_EQ(listener.events, (std::vector<ProgressEvent>{{0, "WHOLE_DISK_READ: 1"}}));
}

TEST_F(DeviceRead, SizesAreReckonedInTheDevicesOwnSectors) {
  setDevice(200 * 262144ull, 4096);  // 200 GiB of 4096-byte sectors
  setParameters({{"CENTRAL_SIZE", "4"}});
  const auto made = plan();
  ASSERT_EQ(made.ranges.size(), 3u);
  EXPECT_EQ(made.ranges[0], (Range{0, 2 * 262144 - 1}));
  EXPECT_EQ(made.ranges[1].last - made.ranges[1].first, 4 * 262144u);
  EXPECT_EQ(made.totalSectors, 9 * 262144u);
  EXPECT_EQ(listener.events, (std::vector<ProgressEvent>{{0, "CENTRAL_SIZE: 4"}}));
}

TEST_F(DeviceRead, ParametersStayFromOneRunToTheNext) {
  setDevice(200 * kSectorsPerGiB, 512);
  setParameters({{"INITIAL_SIZE", "0"}, {"CENTRAL_SIZE", "0"}, {"FINAL_SIZE", "0"}});
  EXPECT_EQ(test.run(&context), SUCCESS);
  listener.events.clear();
  EXPECT_EQ(test.run(&context), SUCCESS);
  EXPECT_EQ(listener.keyedEvents().size(), 3u) << "announced again in the second run";
  EXPECT_TRUE(filesystem.reads.empty());
}

// --- Chunks ------------------------------------------------------------------

TEST_F(DeviceRead, FullChunkAsksForZeroBytesAndOnlyTheShorterLastChunkTransfers) {
  ASSERT_EQ(test.bindContext(&context), SUCCESS);
  EXPECT_EQ(test.readRange({1000, 1000 + 3 * 4096 + 100}, 20000), SUCCESS);
  ASSERT_EQ(filesystem.reads.size(), 4u);
  for (int i = 0; i < 3; ++i) {
    EXPECT_EQ(filesystem.reads[i].offset, (1000u + 4096u * i) * 512);
    EXPECT_EQ(filesystem.reads[i].length, 0u) << "4096 x 512 bytes wrap to 0 in 16 bits";
  }
  EXPECT_EQ(filesystem.reads[3].length, 100u * 512);
}

TEST_F(DeviceRead, ShortLastChunkOfFourKSectorsTransfersItsBytesModulo65536) {
  setDevice(1000000, 4096);
  ASSERT_EQ(test.bindContext(&context), SUCCESS);
  EXPECT_EQ(test.readRange({0, 4096 + 17}, 10000), SUCCESS);
  ASSERT_EQ(filesystem.reads.size(), 2u);
  EXPECT_EQ(filesystem.reads[0].length, 0u);
  EXPECT_EQ(filesystem.reads[1].offset, 4096u * 4096);
  EXPECT_EQ(filesystem.reads[1].length, (17u * 4096) % 65536);
}

TEST_F(DeviceRead, RangeStopsOneSectorShortOfItsLastLba) {
  ASSERT_EQ(test.bindContext(&context), SUCCESS);
  test.sectorsDone = 0;
  EXPECT_EQ(test.readRange({0, 4096}, 4097), SUCCESS);
  ASSERT_EQ(filesystem.reads.size(), 1u) << "LBA 4096 gets no chunk of its own";
  EXPECT_EQ(test.sectorsDone, 4096u);
  EXPECT_EQ(listener.events, (std::vector<ProgressEvent>{{99, ""}})) << "4096 of 4097 is short of 100";
}

TEST_F(DeviceRead, RangeOfOneSectorGoesThroughTheLoopOnceWithACountOfZero) {
  ASSERT_EQ(test.bindContext(&context), SUCCESS);
  test.sectorsDone = 0;
  EXPECT_EQ(test.readRange({500, 500}, 10), SUCCESS);
  ASSERT_EQ(filesystem.reads.size(), 1u);
  EXPECT_EQ(filesystem.reads[0].offset, 500u * 512);
  EXPECT_EQ(filesystem.reads[0].length, 0u);
  EXPECT_EQ(test.sectorsDone, 0u);
  EXPECT_EQ(listener.events, (std::vector<ProgressEvent>{{0, ""}}));
}

TEST_F(DeviceRead, ProgressEventForEveryChunkEvenWhenThePercentageStays) {
  ASSERT_EQ(test.bindContext(&context), SUCCESS);
  test.sectorsDone = 0;
  EXPECT_EQ(test.readRange({0, 5 * 4096}, 1000 * 4096), SUCCESS);
  // Five chunks of 4096 sectors are half a percent of the total: all at 0.
  EXPECT_EQ(listener.events, (std::vector<ProgressEvent>(5, ProgressEvent{0, ""})));
}

TEST_F(DeviceRead, SuccessfulRunSendsTwoOpeningAndTwoClosingEvents) {
  setDevice(100000, 512);
  EXPECT_EQ(test.run(&context), SUCCESS);
  ASSERT_GE(listener.events.size(), 4u);
  EXPECT_EQ(listener.events[0], (ProgressEvent{0, ""}));
  EXPECT_EQ(listener.events[1], (ProgressEvent{0, ""}));
  EXPECT_EQ(listener.events[listener.events.size() - 2], (ProgressEvent{100, ""}));
  EXPECT_EQ(listener.events.back(), (ProgressEvent{100, ""}));
  // 20000, 50000 and 30000 sectors of an 100000-sector device, each read to
  // one short of its end: 5, 13 and 8 chunks.
  EXPECT_EQ(filesystem.reads.size(), 26u);
  EXPECT_TRUE(protocol->callsOf(mstest::Op::ReadSectors).empty()) << "reads go through the handle only";
}

// --- Failures ----------------------------------------------------------------

TEST_F(DeviceRead, SectorsUnderFiveHundredTwelveBytesGiveNotApplicableWithTheClosingEventOnly) {
  setDevice(100000, 256);
  EXPECT_EQ(test.run(&context), NOT_APPLICABLE);
  EXPECT_EQ(listener.events, (std::vector<ProgressEvent>{{0, ""}, {0, ""}, {100, ""}}));
  EXPECT_TRUE(log.lines.empty());
  EXPECT_TRUE(filesystem.reads.empty());
}

TEST_F(DeviceRead, ReadFailureEndsWithFailedAndTheEmptyKey) {
  setDevice(100000, 512);
  filesystem.readAnswers = {{0, 0, true}, {0, 0, true}, {1, 0, true}};
  EXPECT_EQ(test.run(&context), FAILED);
  EXPECT_EQ(filesystem.reads.size(), 3u) << "a single failed chunk ends the test";
  EXPECT_TRUE(listener.keyedEvents().empty());
  EXPECT_EQ(listener.events.back(), (ProgressEvent{100, ""}));
  EXPECT_TRUE(log.lines.empty());
}

TEST_F(DeviceRead, PartialTransferOfAShortChunkIsAFailure) {
  setDevice(100000, 512);
  // The first range's last chunk asks for 3615 sectors; 512 bytes come.
  filesystem.readAnswers = {{0, 0}, {0, 0}, {0, 0}, {0, 0}, {1, 512, true}};
  EXPECT_EQ(test.run(&context), FAILED);
  EXPECT_EQ(filesystem.reads.size(), 5u);
}

TEST_F(DeviceRead, RangeOutsideTheDeviceGivesInvalidWithTheEmptyKey) {
  setDevice(0, 512);  // a whole-disk range of an empty device ends past it
  setParameters({{"WHOLE_DISK_READ", "1"}});
  EXPECT_EQ(test.run(&context), INVALID);
  EXPECT_EQ(listener.events, (std::vector<ProgressEvent>{{0, ""}, {0, ""}, {0, "WHOLE_DISK_READ: 1"}, {100, ""}}));
  EXPECT_TRUE(filesystem.reads.empty());
}

TEST_F(DeviceRead, RangeReaderRefusesReversedAndOutsideRanges) {
  setDevice(1000, 512);
  ASSERT_EQ(test.bindContext(&context), SUCCESS);
  EXPECT_EQ(test.readRange({10, 9}, 100), INVALID);
  EXPECT_EQ(test.readRange({1000, 1000}, 100), INVALID);
  EXPECT_EQ(test.readRange({0, 1000}, 100), INVALID);
  EXPECT_EQ(test.readRange({999, 999}, 100), SUCCESS);
  EXPECT_EQ(filesystem.reads.size(), 1u);
}

TEST_F(DeviceRead, UserAbortBeforeTheFirstRangeGivesAbortedWithoutReads) {
  setDevice(100000, 512);
  context.abortRequested = true;
  EXPECT_EQ(test.run(&context), ABORTED);
  EXPECT_TRUE(filesystem.reads.empty());
  EXPECT_EQ(listener.events, (std::vector<ProgressEvent>{{0, ""}, {0, ""}, {100, ""}, {100, ""}}));
  EXPECT_TRUE(log.lines.empty()) << "a user abort leaves no log line";
}

TEST_F(DeviceRead, UserAbortAtAChunkStopsBeforeItsRead) {
  setDevice(100000, 512);
  context.abortOnCall = 3;  // the range's check, the first chunk's, then the second chunk's
  EXPECT_EQ(test.run(&context), ABORTED);
  EXPECT_EQ(filesystem.reads.size(), 1u);
  EXPECT_EQ(listener.events.back(), (ProgressEvent{100, ""}));
}

TEST_F(DeviceRead, SystemEventAtTheFirstRangeIsAnnouncedAndLoggedOnce) {
  setDevice(100000, 512);
  context.systemEvents = 0x01;
  EXPECT_EQ(test.run(&context), ABORTED);
  EXPECT_TRUE(filesystem.reads.empty());
  EXPECT_EQ(listener.keyedEvents(), (std::vector<ProgressEvent>{{100, kKeySystemEventAbort}}));
  EXPECT_EQ(log.lines, (std::vector<LogLine>{{kKeySystemEventAbort, LevelInfo}}));
  EXPECT_EQ(listener.events.back(), (ProgressEvent{100, ""}));
}

TEST_F(DeviceRead, IgnoredSystemEventBitsDoNotStopTheRead) {
  setDevice(100000, 512);
  context.systemEvents = 0x94;
  EXPECT_EQ(test.run(&context), SUCCESS);
  EXPECT_EQ(filesystem.reads.size(), 26u);
}

}  // namespace
