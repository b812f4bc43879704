// Read helpers: the verdict on a failed read, handle reads with their 16-bit
// byte count, the fallback to device reads, and the readiness check.
#include "module/read_helpers.h"

#include <gtest/gtest.h>

#include "module/storage_test.h"
#include "testing/recording_host.h"
#include "testing/scripted_filesystem.h"
#include "testing/scripted_protocol.h"

namespace {

using mstest::LogLine;
using mstest::Op;
using mstest::ProgressEvent;

class ReadingProbe : public StorageTest {
 public:
  ReadingProbe() : StorageTest(ItemId(1, 1, 98)) {}
  uint32_t run(TestRunContext*) override { return SUCCESS; }
  uint32_t checkSupported(StorageComponent*, TestListener*, MessageLog*) override { return SUCCESS; }
  uint32_t prepare(StorageComponent*, TestListener*, MessageLog*) override { return SUCCESS; }
  using StorageTest::bindContext;
  using StorageTest::handleReadFailure;
};

StorageProtocolProperties diskOf(uint32_t sectorSize, uint64_t sectors = 1000000) {
  StorageProtocolProperties properties;
  properties.logicalSectorSize = sectorSize;
  properties.sectorCount = sectors;
  return properties;
}

class ReadHelpers : public ::testing::Test {
 protected:
  ReadHelpers()
      : protocol(new mstest::ScriptedProtocol()),
        disk(std::unique_ptr<StorageProtocol>(protocol), nullptr),
        context(&disk, &listener, &log) {
    protocol->setCachedProperties(diskOf(512));
    probe.bindContext(&context);
  }

  mstest::ScriptedFilesystem filesystem;
  mstest::ScriptedProtocol* protocol;
  StorageComponent disk;
  mstest::RecordingListener listener;
  mstest::RecordingLog log;
  mstest::ScriptedRunContext context;
  ReadingProbe probe;
  std::set<uint64_t> bad;
};

TEST_F(ReadHelpers, AllowanceOfOneEndsAtTheFirstBadSector) {
  EXPECT_EQ(probe.handleReadFailure(1234, kStatusMediaError, 40, 1, bad, &listener, &log), FAILED);
  EXPECT_EQ(listener.events, (std::vector<ProgressEvent>{{100, "READING_SECTOR 1234"}}));
  EXPECT_EQ(log.lines, (std::vector<LogLine>{{"READING_SECTOR 1234", LevelFailure}}));
}

TEST_F(ReadHelpers, AllowanceOfTenStopsAtTheTenthDistinctSector) {
  for (uint64_t lba = 1; lba <= 9; ++lba) {
    EXPECT_EQ(probe.handleReadFailure(lba, kStatusMediaError, 30, 10, bad, &listener, &log), SUCCESS);
  }
  listener.events.clear();
  EXPECT_EQ(probe.handleReadFailure(10, kStatusMediaError, 35, 10, bad, &listener, &log), FAILED);
  EXPECT_EQ(listener.events,
            (std::vector<ProgressEvent>{{35, "READING_SECTOR 10"}, {100, "TOO_MANY_BAD_SECTORS_FOUND: 10"}}));
  EXPECT_EQ(log.lines.back(), (LogLine{"TOO_MANY_BAD_SECTORS_FOUND: 10", LevelFailure}));
}

TEST_F(ReadHelpers, TheSameSectorTwiceCountsOnce) {
  EXPECT_EQ(probe.handleReadFailure(7, kStatusMediaError, 10, 2, bad, &listener, &log), SUCCESS);
  EXPECT_EQ(probe.handleReadFailure(7, kStatusMediaError, 20, 2, bad, &listener, &log), SUCCESS);
  EXPECT_EQ(bad.size(), 1u);
  EXPECT_EQ(probe.handleReadFailure(8, kStatusMediaError, 30, 2, bad, &listener, &log), FAILED);
}

TEST_F(ReadHelpers, AllowanceOfZeroStopsAtOnce) {
  EXPECT_EQ(probe.handleReadFailure(5, kStatusMediaError, 12, 0, bad, &listener, &log), FAILED);
  EXPECT_EQ(listener.events,
            (std::vector<ProgressEvent>{{12, "READING_SECTOR 5"}, {100, "TOO_MANY_BAD_SECTORS_FOUND: 0"}}));
}

TEST_F(ReadHelpers, RefusedAccessIsNotApplicableNotAborted) {
  EXPECT_EQ(probe.handleReadFailure(5, kStatusScsiRefused, 12, 1, bad, &listener, &log), NOT_APPLICABLE);
  EXPECT_EQ(listener.events, (std::vector<ProgressEvent>{{100, "CANNOT_ACCESS_DEVICE"}}));
  EXPECT_EQ(log.lines, (std::vector<LogLine>{{"CANNOT_ACCESS_DEVICE", LevelFailure}}));
}

TEST_F(ReadHelpers, LostDeviceAbortsWithAnErrorLevelLine) {
  protocol->script(Op::IsAccessible, 1);
  EXPECT_EQ(probe.handleReadFailure(5, kStatusMediaError, 12, 10, bad, &listener, &log), ABORTED);
  EXPECT_EQ(listener.events, (std::vector<ProgressEvent>{{100, "DEVICE_COMMUNICATION_FAILURE"}}));
  EXPECT_EQ(log.lines, (std::vector<LogLine>{{"DEVICE_COMMUNICATION_FAILURE", LevelError}}));
  EXPECT_TRUE(bad.empty());
}

TEST_F(ReadHelpers, OtherFailureAbortsWithAFailureLevelLine) {
  EXPECT_EQ(probe.handleReadFailure(5, kStatusIoctlFailed, 12, 10, bad, &listener, &log), ABORTED);
  EXPECT_EQ(log.lines, (std::vector<LogLine>{{"DEVICE_COMMUNICATION_FAILURE", LevelFailure}}));
}

TEST_F(ReadHelpers, RaidDriveNeverUsesTheHandleAndIsAskedTwice) {
  disk.setLocation(kLocationRaid);
  protocol->script(Op::ReadSectors, kStatusMediaError);
  protocol->script(Op::ReadSectors, kStatusMediaError);
  uint8_t buffer[512];
  EXPECT_EQ(probe.readSectorsForTest(42, buffer), kStatusMediaError);
  EXPECT_TRUE(filesystem.reads.empty());
  auto reads = protocol->callsOf(Op::ReadSectors);
  ASSERT_EQ(reads.size(), 2u);
  EXPECT_EQ(reads[0].first, 42u);
  EXPECT_EQ(reads[0].timeoutSeconds, 30u);
}

TEST_F(ReadHelpers, ReadForTestUsesTheHandleFirstAndTheDeviceHasTheLastWord) {
  disk.setLocation(kLocationInternal);
  uint8_t buffer[512];
  EXPECT_EQ(probe.readSectorsForTest(3, buffer), 0u);
  EXPECT_EQ(filesystem.reads.size(), 1u);
  EXPECT_EQ(protocol->count(Op::ReadSectors), 0u);

  filesystem.readAnswers.push_back({1, 0, true});
  protocol->script(Op::ReadSectors, kStatusMediaError);
  EXPECT_EQ(probe.readSectorsForTest(4, buffer), kStatusMediaError);
  EXPECT_EQ(protocol->count(Op::ReadSectors), 1u);
}

TEST_F(ReadHelpers, SmallSectorsMakeTheHandleReadRefuseWithoutTouchingTheDevice) {
  protocol->setCachedProperties(diskOf(256));
  uint8_t buffer[512];
  EXPECT_EQ(readThroughHandle(protocol, 0, 1, nullptr, 30, buffer), 2u);
  EXPECT_TRUE(filesystem.reads.empty());
  EXPECT_TRUE(protocol->calls.empty());
}

TEST_F(ReadHelpers, HandleReadWithoutBufferDoesNotStart) {
  EXPECT_EQ(readThroughHandle(protocol, 0, 1, nullptr, 30, nullptr), 2u);
  EXPECT_TRUE(filesystem.reads.empty());
}

TEST_F(ReadHelpers, HandleReadAsksForByteOffsetAndCount) {
  uint8_t buffer[4096];
  EXPECT_EQ(readThroughHandle(protocol, 10, 8, nullptr, 17, buffer), 0u);
  ASSERT_EQ(filesystem.reads.size(), 1u);
  EXPECT_EQ(filesystem.reads[0].offset, 5120u);
  EXPECT_EQ(filesystem.reads[0].length, 4096u);
  EXPECT_EQ(filesystem.reads[0].timeoutSeconds, 17u);
}

TEST_F(ReadHelpers, HandleReadByteCountWrapsAtSixteenBits) {
  uint8_t buffer[512];
  readThroughHandle(protocol, 0, 128, nullptr, 30, buffer);  // 65536 bytes
  readThroughHandle(protocol, 0, 129, nullptr, 30, buffer);  // 66048 bytes
  ASSERT_EQ(filesystem.reads.size(), 2u);
  EXPECT_EQ(filesystem.reads[0].length, 0u);
  EXPECT_EQ(filesystem.reads[1].length, 512u);
}

TEST_F(ReadHelpers, FailedHandleReadWithNoBytesGivesTheFilesystemStatus) {
  filesystem.readAnswers.push_back({1, 0, true});
  uint64_t firstBad = 99;
  uint8_t buffer[512];
  EXPECT_EQ(readThroughHandle(protocol, 5, 1, &firstBad, 30, buffer), 1u);
  EXPECT_EQ(firstBad, 99u);
}

TEST_F(ReadHelpers, PartialHandleReadReportsTheMixedFirstBadValue) {
  // 3 sectors of 8 came at LBA 100: 3 + byte offset 51200.
  filesystem.readAnswers.push_back({1, 1536, true});
  uint64_t firstBad = 0;
  std::vector<uint8_t> buffer(4096);
  EXPECT_EQ(readThroughHandle(protocol, 100, 8, &firstBad, 30, buffer.data()), 1u);
  EXPECT_EQ(firstBad, 3u + 51200u);
}

TEST_F(ReadHelpers, FailedHandleReadThatReportsAllBytesGivesZero) {
  filesystem.readAnswers.push_back({1, 4096, true});
  uint64_t firstBad = 7;
  std::vector<uint8_t> buffer(4096);
  EXPECT_EQ(readThroughHandle(protocol, 100, 8, &firstBad, 30, buffer.data()), 0u);
  EXPECT_EQ(firstBad, 0u);
}

TEST_F(ReadHelpers, FallbackWithoutHandleReadsOneSectorThroughTheDevice) {
  uint8_t buffer[512];
  EXPECT_EQ(readWithFallback(protocol, 9, 16, nullptr, 12, buffer, false), 0u);
  auto reads = protocol->callsOf(Op::ReadSectors);
  ASSERT_EQ(reads.size(), 1u);
  EXPECT_EQ(reads[0].second, 1u);
  EXPECT_EQ(reads[0].timeoutSeconds, 12u);
  EXPECT_TRUE(filesystem.reads.empty());
}

TEST_F(ReadHelpers, FallbackStopsAtTheFirstBadSectorWhenAsked) {
  filesystem.readAnswers.push_back({1, 0, true});
  protocol->script(Op::ReadSectors, 0);
  protocol->script(Op::ReadSectors, kStatusMediaError);
  uint64_t firstBad = 0;
  std::vector<uint8_t> buffer(4096);
  EXPECT_EQ(readWithFallback(protocol, 20, 8, &firstBad, 30, buffer.data(), true), kStatusMediaError);
  EXPECT_EQ(firstBad, 21u);
  EXPECT_EQ(protocol->count(Op::ReadSectors), 2u);
}

TEST_F(ReadHelpers, FallbackWithoutFirstBadReadsTheWholeRangeAndGivesTheLastStatus) {
  filesystem.readAnswers.push_back({1, 0, true});
  protocol->script(Op::ReadSectors, kStatusMediaError);
  std::vector<uint8_t> buffer(4096);
  EXPECT_EQ(readWithFallback(protocol, 20, 4, nullptr, 30, buffer.data(), true), 0u);
  EXPECT_EQ(protocol->count(Op::ReadSectors), 4u);
}

TEST_F(ReadHelpers, FallbackOfZeroSectorsEndsAfterTheHandleRead) {
  filesystem.readAnswers.push_back({1, 0, true});
  uint8_t buffer[512];
  EXPECT_EQ(readWithFallback(protocol, 20, 0, nullptr, 30, buffer, true), 1u);
  EXPECT_EQ(protocol->count(Op::ReadSectors), 0u);
}

TEST_F(ReadHelpers, UsableForReadRefusesEmmcNvmeAndMissingPieces) {
  disk.setBusKind(kBusAta);
  EXPECT_TRUE(isUsableForRead(&disk, &listener, &log));
  disk.setBusKind(kBusEmmc);
  EXPECT_FALSE(isUsableForRead(&disk, &listener, &log));
  disk.setBusKind(kBusNvme);
  EXPECT_FALSE(isUsableForRead(&disk, &listener, &log));
  disk.setBusKind(kBusUsb);
  EXPECT_FALSE(isUsableForRead(nullptr, &listener, &log));
  EXPECT_FALSE(isUsableForRead(&disk, nullptr, &log));
  EXPECT_FALSE(isUsableForRead(&disk, &listener, nullptr));
  StorageComponent bare(nullptr, nullptr);
  EXPECT_FALSE(isUsableForRead(&bare, &listener, &log));
  EXPECT_TRUE(listener.events.empty());
}

TEST_F(ReadHelpers, ReadableDiskIsWokenWithOneReadOfSectorZero) {
  disk.setLocation(kLocationInternal);
  EXPECT_TRUE(checkReadable(&disk, &listener, &log));
  ASSERT_EQ(filesystem.reads.size(), 1u);
  EXPECT_EQ(filesystem.reads[0].offset, 0u);
  EXPECT_EQ(filesystem.reads[0].length, 512u);
  EXPECT_TRUE(listener.events.empty());
}

TEST_F(ReadHelpers, ReadableIgnoresAFailedWakeUpRead) {
  filesystem.readAnswers.push_back({1, 0, true});
  EXPECT_TRUE(checkReadable(&disk, &listener, &log));
}

TEST_F(ReadHelpers, DiskWithoutCapacityIsNotReadable) {
  protocol->setCachedProperties(diskOf(512, 0));
  EXPECT_FALSE(checkReadable(&disk, &listener, &log));
  EXPECT_EQ(listener.events, (std::vector<ProgressEvent>{{100, "DEVICE_COMMUNICATION_FAILURE"}}));
  EXPECT_EQ(log.lines, (std::vector<LogLine>{{"DEVICE_COMMUNICATION_FAILURE", LevelFailure}}));
}

TEST_F(ReadHelpers, LockedExternalDiskIsNotReadable) {
  disk.setLocation(kLocationExternal);
  disk.setSecuritySupported(1);
  disk.setSecurityLocked(1);
  const std::string text = "HARD_DISK_IS_PASSWORD_PROTECTED. |TRY_TO_DISABLE_THE_PASSWORD_PROTECTION";
  EXPECT_FALSE(checkReadable(&disk, &listener, &log));
  EXPECT_EQ(listener.events, (std::vector<ProgressEvent>{{100, text}}));
  EXPECT_EQ(log.lines, (std::vector<LogLine>{{text, LevelInfo}}));
  EXPECT_TRUE(filesystem.reads.empty());
}

TEST_F(ReadHelpers, LockFlagsOfAnInternalDiskAreNotLookedAt) {
  disk.setLocation(kLocationInternal);
  disk.setSecuritySupported(1);
  disk.setSecurityLocked(1);
  EXPECT_TRUE(checkReadable(&disk, &listener, &log));
}

TEST_F(ReadHelpers, RaidDriveIsNotWoken) {
  disk.setLocation(kLocationRaid);
  EXPECT_TRUE(checkReadable(&disk, &listener, &log));
  EXPECT_TRUE(filesystem.reads.empty());
}

TEST_F(ReadHelpers, ReadableWithMissingPiecesIsFalseInSilence) {
  EXPECT_FALSE(checkReadable(nullptr, &listener, &log));
  EXPECT_FALSE(checkReadable(&disk, nullptr, &log));
  EXPECT_FALSE(checkReadable(&disk, &listener, nullptr));
  EXPECT_TRUE(listener.events.empty());
}

}  // namespace
