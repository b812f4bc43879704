// The device write test against a scripted filesystem on a small simulated PC
// whose volumes only tell their file systems: the question to the user, the
// choice of volumes, the files and their shares, the scattered chunks, the
// pattern written and read back, progress, aborts and every row of its
// failures.
#include "diagnostics/device_write.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <deque>
#include <functional>
#include <map>
#include <memory>
#include <vector>

#include "diagnostics/volume_privilege.h"
#include "module/catalogue.h"
#include "sim/windows/face.h"
#include "sim/windows/face_test_support.h"
#include "testing/recording_host.h"
#include "testing/scripted_protocol.h"

namespace {

using mstest::LogLine;
using mstest::ProgressEvent;

constexpr uint64_t kMargin = StorageDeviceWriteTest::kVolumeMargin;
constexpr uint64_t kMiB = 1 << 20;
constexpr uint64_t kGiB = 1ull << 30;

// A filesystem whose temporary files keep, per chunk written, only whether
// all its bytes were one value and which; a read gives that value back.
// Every call is recorded, and each operation can be given its statuses.
class FileStore : public Filesystem {
 public:
  struct Created {
    std::string path;
    bool deleteOnClose;
    HANDLE handle;
  };
  struct Transfer {
    HANDLE handle;
    uint64_t offset;
    uint64_t length;
    uint32_t timeoutSeconds;
    uintptr_t buffer;
  };

  FileStore() { setFilesystemForTesting(this); }
  ~FileStore() override { setFilesystemForTesting(nullptr); }

  char getSystemDrive() override { return 'C'; }
  const char* getCurrentDirectory() override { return nullptr; }
  const char* getExecutablePath() override { return nullptr; }
  const char* getExecutableDirectory() override { return nullptr; }
  uint32_t listFiles(std::string, std::vector<std::string>*) override { return 1; }
  uint32_t createDirectories(std::string, std::string*) override { return 1; }
  uint32_t isReservedName(std::string) override { return 0; }
  uint32_t removeTree(const std::string&) override { return 1; }

  uint32_t create(std::string path, HANDLE* out, bool deleteOnClose) override {
    const uint32_t status = next(createAnswers);
    // openDespiteFailure: the file opened, but its removal at the next start
    // could not be registered; the handle comes back open with the failure.
    HANDLE handle = status == 0 || openDespiteFailure ? reinterpret_cast<HANDLE>(0x100 + created.size())
                                                      : INVALID_HANDLE_VALUE;
    *out = handle;
    created.push_back({path, deleteOnClose, handle});
    return status;
  }
  uint32_t close(HANDLE handle) override {
    closed.push_back(handle);
    return 0;
  }
  uint32_t setSize(HANDLE handle, uint64_t bytes) override {
    sizes.push_back({handle, bytes});
    return next(setSizeAnswers);
  }
  uint32_t write(HANDLE handle, uint64_t offset, uint64_t length, uint64_t* done, uint32_t timeoutSeconds,
                 void* buffer) override {
    writes.push_back({handle, offset, length, timeoutSeconds, reinterpret_cast<uintptr_t>(buffer)});
    if (onWrite) onWrite();
    const uint32_t status = next(writeAnswers);
    if (status != 0) return status;
    const auto* bytes = static_cast<const uint8_t*>(buffer);
    const bool uniform = length == 0 || std::all_of(bytes, bytes + length, [&](uint8_t b) { return b == bytes[0]; });
    stored[{handle, offset}] = uniform && length != 0 ? bytes[0] : -1;
    *done = length;
    return 0;
  }
  uint32_t read(HANDLE handle, uint64_t offset, uint64_t length, uint64_t* done, uint32_t timeoutSeconds,
                void* buffer) override {
    reads.push_back({handle, offset, length, timeoutSeconds, reinterpret_cast<uintptr_t>(buffer)});
    const uint32_t status = next(readAnswers);
    if (status != 0) return status;
    const auto found = stored.find({handle, offset});
    const int value = found == stored.end() || found->second < 0 ? 0 : found->second;
    std::fill_n(static_cast<uint8_t*>(buffer), length, static_cast<uint8_t>(value));
    if (spoilRead && reads.size() == spoilRead) static_cast<uint8_t*>(buffer)[length - 1] ^= 0x01;
    *done = length;
    return 0;
  }

  std::vector<Transfer> writesTo(HANDLE handle) const {
    std::vector<Transfer> list;
    for (const Transfer& t : writes) {
      if (t.handle == handle) list.push_back(t);
    }
    return list;
  }

  std::deque<uint32_t> createAnswers, setSizeAnswers, writeAnswers, readAnswers;
  std::vector<Created> created;
  std::vector<std::pair<HANDLE, uint64_t>> sizes;
  std::vector<HANDLE> closed;
  std::vector<Transfer> writes, reads;
  std::map<std::pair<HANDLE, uint64_t>, int> stored;
  size_t spoilRead = 0;  // flips a bit in the answer to this read (1-based)
  bool openDespiteFailure = false;
  std::function<void()> onWrite;

 private:
  static uint32_t next(std::deque<uint32_t>& queue) {
    if (queue.empty()) return 0;
    const uint32_t status = queue.front();
    queue.pop_front();
    return status;
  }
};

class OpenDeviceWriteTest : public StorageDeviceWriteTest {
 public:
  OpenDeviceWriteTest() : StorageDeviceWriteTest(ItemId(1, 2, 12)) {}
  using StorageDeviceWriteTest::bindContext;
  using StorageDeviceWriteTest::createFiles;
  using StorageDeviceWriteTest::filesystem;
  using StorageDeviceWriteTest::hasVolumePrivilege;
  using StorageDeviceWriteTest::pickOffsets;
  using StorageDeviceWriteTest::progress;
  using StorageDeviceWriteTest::testSpace;
  using StorageDeviceWriteTest::TestFile;
  using StorageDeviceWriteTest::totalSpace;
};

// One NTFS volume C:, one FAT32 volume D:, and NTFS volumes E: and F:. Only
// their file-system names matter here; room and clusters come from the
// partition records the tests write.
nlohmann::json fourVolumes() {
  return nlohmann::json::parse(R"({
      "partitions": {"scheme": "mbr", "entries": [
        {"type": 7, "startLba": 2048, "sectorCount": 2048},
        {"type": 12, "startLba": 4096, "sectorCount": 2048},
        {"type": 7, "startLba": 6144, "sectorCount": 2048},
        {"type": 7, "startLba": 8192, "sectorCount": 2048}]},
      "volumes": [
        {"partition": 1, "letter": "C", "fileSystem": "NTFS"},
        {"partition": 2, "letter": "D", "fileSystem": "FAT32"},
        {"partition": 3, "letter": "E", "fileSystem": "NTFS"},
        {"partition": 4, "letter": "F", "fileSystem": "NTFS"}]})");
}

// A mounted volume with `room` bytes beyond the margin.
PartitionRecord volume(const char* root, uint64_t room, uint32_t clusterSize = 4096) {
  PartitionRecord record;
  record.mountPoints = {root};
  record.freeBytes = kMargin + room;
  record.clusterSize = clusterSize;
  record.fileSystem = "ntfs";
  return record;
}

class DeviceWrite : public ::testing::Test {
 protected:
  DeviceWrite()
      : protocol(new mstest::ScriptedProtocol()),
        disk(std::unique_ptr<StorageProtocol>(protocol), std::make_unique<DiskPartitions>()),
        context(&disk, &listener, &log) {
    disk.setBusKind(kBusNvme);
    disk.setLocation(kLocationInternal);
  }
  void SetUp() override {
    sim::uninstallMachine();
    sim::windows::testing::install({sim::windows::testing::makeDisk("disk0", 16384, nullptr, nullptr, fourVolumes())});
  }
  void TearDown() override { sim::uninstallMachine(); }

  void setVolumes(std::vector<PartitionRecord> records) { disk.getPartitions()->records = std::move(records); }

  std::vector<OpenDeviceWriteTest::TestFile> createFiles(std::vector<PartitionRecord> usable) {
    EXPECT_EQ(test.bindContext(&context), SUCCESS);
    std::vector<OpenDeviceWriteTest::TestFile> files;
    EXPECT_EQ(test.createFiles(usable, &files), SUCCESS);
    return files;
  }

  // Each offset is aligned to the cluster and lies with its chunk inside its
  // own slot of the file.
  static void expectOffsetsInSlots(const OpenDeviceWriteTest::TestFile& file, const std::vector<uint64_t>& offsets) {
    const uint64_t cluster = file.volume.clusterSize;
    const uint64_t chunks = file.testBytes / file.chunkSize;
    ASSERT_EQ(offsets.size(), chunks);
    const uint64_t slot = file.fileSize / chunks / cluster * cluster;
    for (uint64_t i = 0; i < offsets.size(); ++i) {
      EXPECT_EQ(offsets[i] % cluster, 0u) << i;
      EXPECT_GE(offsets[i], i * slot) << i;
      EXPECT_LE(offsets[i] + file.chunkSize, (i + 1) * slot) << i;
    }
  }

  FileStore files;  // before the test, which takes the filesystem when made
  mstest::ScriptedProtocol* protocol;
  StorageComponent disk;
  mstest::RecordingListener listener;
  mstest::RecordingLog log;
  mstest::ScriptedRunContext context;
  OpenDeviceWriteTest test;
};

HANDLE const kFirstFile = reinterpret_cast<HANDLE>(0x100);
HANDLE const kSecondFile = reinterpret_cast<HANDLE>(0x101);

// --- Which devices -----------------------------------------------------------

TEST_F(DeviceWrite, IsSupportedOnEmmcAndNvmeOnlyWithNothingOnTheListener) {
  EXPECT_TRUE(test.isSupported(&disk));
  disk.setBusKind(kBusEmmc);
  EXPECT_TRUE(test.isSupported(&disk));
  for (uint32_t bus : {kBusAta, kBusScsi, kBusUsb, kBusRaid, kBusUnknown}) {
    disk.setBusKind(bus);
    EXPECT_FALSE(test.isSupported(&disk)) << bus;
    EXPECT_EQ(test.checkSupported(&disk, &listener, &log), NOT_APPLICABLE);
  }
  EXPECT_FALSE(test.isSupported(nullptr));
  EXPECT_EQ(test.checkSupported(nullptr, &listener, &log), INVALID);
  EXPECT_TRUE(listener.events.empty());
  EXPECT_TRUE(log.lines.empty());
  EXPECT_EQ(test.prepare(&disk, &listener, &log), SUCCESS);
  EXPECT_FALSE(test.isOptionA());
  EXPECT_FALSE(test.isOptionB());
}

TEST_F(DeviceWrite, TakesTheProcessWideFilesystemWhenMade) { EXPECT_EQ(test.filesystem, &files); }

TEST(DeviceWriteCatalogue, DeviceWriteTestStandsAt1_2_12AtTheEndOfTheExtendedRows) {
  const std::vector<CatalogueRow>& rows = catalogueRows();
  ASSERT_FALSE(rows.empty());
  const CatalogueRow& last = rows.back();
  EXPECT_EQ(last.diagnosticId, 2u);
  EXPECT_EQ(last.testId, 12u);
  std::unique_ptr<::Test> made(last.create(ItemId(1, 2, 12)));
  ASSERT_NE(dynamic_cast<StorageDeviceWriteTest*>(made.get()), nullptr);
  EXPECT_EQ(made->getItemId(), ItemId(1, 2, 12));
}

TEST_F(DeviceWrite, ParametersAreTakenAndIgnored) {
  std::vector<RejectedParameter> rejected;
  EXPECT_TRUE(test.setParameters({{"STORAGE", {{"INITIAL_SIZE", "x"}}}}, rejected));
  EXPECT_TRUE(rejected.empty());
}

// --- A whole run -------------------------------------------------------------

TEST_F(DeviceWrite, WritesThePatternInScatteredChunksReadsThemBackAndDeletesTheFile) {
  setVolumes({volume("C:\\", 64 * kMiB + 100)});
  EXPECT_EQ(test.run(&context), SUCCESS);

  ASSERT_EQ(files.created.size(), 1u);
  EXPECT_EQ(files.created[0].path, "C:\\/quenby_diags_tmp_file");
  EXPECT_TRUE(files.created[0].deleteOnClose);
  ASSERT_EQ(files.sizes.size(), 1u);
  EXPECT_EQ(files.sizes[0].second, 64 * kMiB) << "room less the margin, down to a cluster";
  EXPECT_EQ(test.totalSpace, 64 * kMiB + 100);
  EXPECT_EQ(test.testSpace, 64 * kMiB + 100);

  // 64 chunks of 256 clusters, written with the pattern, then read back in
  // the same order.
  ASSERT_EQ(files.writes.size(), 64u);
  ASSERT_EQ(files.reads.size(), 64u);
  std::vector<uint64_t> offsets;
  for (size_t i = 0; i < files.writes.size(); ++i) {
    const FileStore::Transfer& write = files.writes[i];
    EXPECT_EQ(write.handle, kFirstFile);
    EXPECT_EQ(write.length, kMiB);
    EXPECT_EQ(write.timeoutSeconds, 30u);
    EXPECT_EQ(write.buffer % 4096, 0u) << "unbuffered transfers need aligned buffers";
    EXPECT_EQ(files.stored.at({kFirstFile, write.offset}), 0xAA);
    EXPECT_EQ(files.reads[i].offset, write.offset);
    EXPECT_EQ(files.reads[i].length, kMiB);
    EXPECT_EQ(files.reads[i].buffer % 4096, 0u);
    offsets.push_back(write.offset);
  }
  OpenDeviceWriteTest::TestFile file;
  file.fileSize = 64 * kMiB;
  file.chunkSize = kMiB;
  file.testBytes = 64 * kMiB;
  file.volume = volume("C:\\", 0);
  expectOffsetsInSlots(file, offsets);

  EXPECT_EQ(files.closed, (std::vector<HANDLE>{kFirstFile}));
  EXPECT_TRUE(listener.keyedEvents().empty());
  EXPECT_TRUE(log.lines.empty());
  EXPECT_EQ(listener.events.front(), (ProgressEvent{0, ""}));
  EXPECT_EQ(listener.events.size(), 1u + 128u + 2u) << "an event for every write and every read";
  for (size_t i = 2; i + 2 < listener.events.size(); ++i) {
    EXPECT_LE(listener.events[i - 1].percent, listener.events[i].percent);
  }
  // 128 steps of a little under 0.78 percent end at 99: the truncations.
  EXPECT_EQ(listener.events[listener.events.size() - 3], (ProgressEvent{99, ""}));
  EXPECT_EQ(listener.events[listener.events.size() - 2], (ProgressEvent{100, ""}));
  EXPECT_EQ(listener.events.back(), (ProgressEvent{100, ""}));
}

TEST_F(DeviceWrite, VolumesAreTestedInTheOrderOfTheDescriptionAndAllClosedAtTheEnd) {
  setVolumes({volume("E:\\", 8 * kMiB), volume("C:\\", 24 * kMiB)});
  EXPECT_EQ(test.run(&context), SUCCESS);
  ASSERT_EQ(files.created.size(), 2u);
  EXPECT_EQ(files.created[0].path, "E:\\/quenby_diags_tmp_file");
  EXPECT_EQ(files.created[1].path, "C:\\/quenby_diags_tmp_file");
  EXPECT_EQ(files.writesTo(kFirstFile).size(), 8u);
  EXPECT_EQ(files.writesTo(kSecondFile).size(), 24u);
  EXPECT_EQ(files.writes.front().handle, kFirstFile);
  EXPECT_EQ(files.reads.back().handle, kSecondFile);
  EXPECT_EQ(files.closed, (std::vector<HANDLE>{kFirstFile, kSecondFile}));
  // All volumes share the one progress, which reaches 100 here.
  EXPECT_EQ(listener.events[listener.events.size() - 3], (ProgressEvent{100, ""}));
}

TEST_F(DeviceWrite, ClusterOffsetIsTakenFromTheFreeSpace) {
  PartitionRecord c = volume("C:\\", 16 * kMiB);
  c.clusterOffset = 8 * kMiB;
  setVolumes({c});
  EXPECT_EQ(test.run(&context), SUCCESS);
  ASSERT_EQ(files.sizes.size(), 1u);
  EXPECT_EQ(files.sizes[0].second, 8 * kMiB);
}

TEST_F(DeviceWrite, ErrorDialogsAreSilencedAndLeftSo) {
  SetErrorMode(0);
  setVolumes({volume("C:\\", 4 * kMiB)});
  EXPECT_EQ(test.run(&context), SUCCESS);
  EXPECT_EQ(SetErrorMode(0), 0x8001u);
}

TEST_F(DeviceWrite, VolumePrivilegeIsEnabledAndStaysEnabledAfterTheRun) {
  setVolumes({volume("C:\\", 4 * kMiB)});
  EXPECT_FALSE(sim::privilegeEnabled("SeManageVolumePrivilege"));
  EXPECT_EQ(test.run(&context), SUCCESS);
  EXPECT_TRUE(test.hasVolumePrivilege);
  EXPECT_TRUE(sim::privilegeEnabled("SeManageVolumePrivilege")) << "restoring applies the enabled attribute again";
  EXPECT_EQ(keptVolumePrivilegeAttributes(), static_cast<uint32_t>(SE_PRIVILEGE_ENABLED));
}

TEST_F(DeviceWrite, ProgressStartsAgainAtZeroInEachRun) {
  setVolumes({volume("C:\\", 4 * kMiB)});
  EXPECT_EQ(test.run(&context), SUCCESS);
  const double first = test.progress;
  EXPECT_NEAR(first, 100.0, 1e-9);
  listener.events.clear();
  EXPECT_EQ(test.run(&context), SUCCESS);
  EXPECT_DOUBLE_EQ(test.progress, first);
  EXPECT_EQ(listener.events[1], (ProgressEvent{12, ""})) << "the first write of the second run: 12.5 percent";
}

// --- The question ------------------------------------------------------------

TEST(InputRequestRecord, CarriesItsKeysAndNumbersWithNoAnswerAndAnEmptyList) {
  InputRequest request("DEVICE_WRITE_TEST", "VOLUME_SPACE_ALLOCATION_ALERT", 1, 0);
  EXPECT_EQ(request.title, "DEVICE_WRITE_TEST");
  EXPECT_EQ(request.text, "VOLUME_SPACE_ALLOCATION_ALERT");
  EXPECT_EQ(request.numberA, 1u);
  EXPECT_EQ(request.numberB, 0u);
  EXPECT_EQ(request.answer, 0u);
  EXPECT_EQ(request.reserved, 0u);
  EXPECT_TRUE(request.choices.empty());
}

TEST_F(DeviceWrite, NonInteractiveListenerIsNotAskedAndTheTestRuns) {
  setVolumes({volume("C:\\", 4 * kMiB)});
  listener.interactive = false;
  EXPECT_EQ(test.run(&context), SUCCESS);
  EXPECT_TRUE(listener.questions.empty());
  EXPECT_EQ(disk.getHasVolumeSpaceAllocation(), 0u);
  EXPECT_EQ(files.writes.size(), 4u);
}

TEST_F(DeviceWrite, InteractiveListenerIsAskedOnceAndTheAnswerIsKeptOnTheComponent) {
  setVolumes({volume("C:\\", 4 * kMiB)});
  listener.interactive = true;
  listener.answers = {7};
  EXPECT_EQ(test.run(&context), SUCCESS);
  ASSERT_EQ(listener.questions.size(), 1u);
  EXPECT_EQ(listener.questions[0].title, "DEVICE_WRITE_TEST");
  EXPECT_EQ(listener.questions[0].text, "VOLUME_SPACE_ALLOCATION_ALERT");
  EXPECT_EQ(listener.questions[0].numberA, 1u);
  EXPECT_EQ(listener.questions[0].numberB, 0u);
  EXPECT_EQ(disk.getHasVolumeSpaceAllocation(), 1u);
  EXPECT_EQ(disk.getVolumeSpaceAllocation(), 7u);
  EXPECT_EQ(files.writes.size(), 4u) << "the test goes on whatever the answer";
}

TEST_F(DeviceWrite, SecondRunOnTheSameComponentAsksNoQuestionWhateverTheFirstAnswer) {
  setVolumes({volume("C:\\", 4 * kMiB)});
  listener.interactive = true;
  listener.answers = {0, 1};
  EXPECT_EQ(test.run(&context), SUCCESS);
  EXPECT_EQ(test.run(&context), SUCCESS);
  EXPECT_EQ(listener.questions.size(), 1u);
  EXPECT_EQ(disk.getVolumeSpaceAllocation(), 0u);
  OpenDeviceWriteTest another;
  EXPECT_EQ(another.run(&context), SUCCESS);
  EXPECT_EQ(listener.questions.size(), 1u) << "the answer lives on the component, not the test";
}

// --- The volumes -------------------------------------------------------------

TEST_F(DeviceWrite, Fat32VolumeIsSkipped) {
  setVolumes({volume("D:\\", 4 * kMiB), volume("C:\\", 4 * kMiB)});
  EXPECT_EQ(test.run(&context), SUCCESS);
  ASSERT_EQ(files.created.size(), 1u);
  EXPECT_EQ(files.created[0].path, "C:\\/quenby_diags_tmp_file");
}

TEST_F(DeviceWrite, DiskWithOnlyFat32VolumesGivesNoValidVolume) {
  setVolumes({volume("D:\\", 4 * kMiB)});
  EXPECT_EQ(test.run(&context), NOT_APPLICABLE);
  EXPECT_EQ(listener.keyedEvents(), (std::vector<ProgressEvent>{{100, "NO_VALID_VOLUME"}}));
  EXPECT_EQ(log.lines, (std::vector<LogLine>{{"NO_VALID_VOLUME", LevelInfo}}));
  EXPECT_EQ(listener.events.back(), (ProgressEvent{100, ""}));
  EXPECT_TRUE(files.created.empty());
}

TEST_F(DeviceWrite, VolumeWithExactlyTheMarginFreeIsSkipped) {
  setVolumes({volume("C:\\", 0)});
  EXPECT_EQ(test.run(&context), NOT_APPLICABLE);
  EXPECT_EQ(listener.keyedEvents(), (std::vector<ProgressEvent>{{100, "NO_VALID_VOLUME"}}));
  EXPECT_TRUE(files.created.empty());
  // One byte more is above the margin.
  listener.events.clear();
  setVolumes({volume("C:\\", 1)});
  EXPECT_EQ(test.run(&context), SUCCESS);
  EXPECT_EQ(files.created.size(), 1u);
}

TEST_F(DeviceWrite, VolumesWithoutMountPointOrUnknownToTheSystemAreSkipped) {
  PartitionRecord unmounted = volume("C:\\", 4 * kMiB);
  unmounted.mountPoints.clear();
  setVolumes({unmounted, volume("Q:\\", 4 * kMiB)});
  EXPECT_EQ(test.run(&context), NOT_APPLICABLE);
  EXPECT_EQ(listener.keyedEvents(), (std::vector<ProgressEvent>{{100, "NO_VALID_VOLUME"}}));
}

TEST_F(DeviceWrite, VolumeWithoutAClusterSizeIsSkippedRatherThanDividedBy) {
  setVolumes({volume("C:\\", 4 * kMiB, 0)});
  EXPECT_EQ(test.run(&context), NOT_APPLICABLE);
  EXPECT_EQ(listener.keyedEvents(), (std::vector<ProgressEvent>{{100, "NO_VALID_VOLUME"}}));
}

TEST_F(DeviceWrite, ClusterOffsetBeyondTheFreeSpaceLeavesNoRoom) {
  PartitionRecord c = volume("C:\\", 4 * kMiB);
  c.clusterOffset = c.freeBytes + 1;
  setVolumes({c});
  EXPECT_EQ(test.run(&context), NOT_APPLICABLE);
  EXPECT_TRUE(files.created.empty());
}

TEST_F(DeviceWrite, NoPartitionDescriptionGivesNotApplicableInSilence) {
  disk.setPartitions(nullptr);
  EXPECT_EQ(test.run(&context), NOT_APPLICABLE);
  EXPECT_EQ(listener.events, (std::vector<ProgressEvent>{{0, ""}, {100, ""}}));
  EXPECT_TRUE(log.lines.empty());
}

TEST_F(DeviceWrite, NeitherEmmcNorNvmeGivesNotApplicableInSilence) {
  disk.setBusKind(kBusScsi);
  setVolumes({volume("C:\\", 4 * kMiB)});
  listener.interactive = true;
  EXPECT_EQ(test.run(&context), NOT_APPLICABLE);
  EXPECT_EQ(listener.events, (std::vector<ProgressEvent>{{0, ""}, {100, ""}}));
  EXPECT_TRUE(log.lines.empty());
  EXPECT_TRUE(listener.questions.empty());
  EXPECT_TRUE(files.created.empty());
}

// --- Shares and chunks -------------------------------------------------------

TEST_F(DeviceWrite, VolumesOfTenAndThirtyGiBShareTheFiveGiBInTheRatioOfTheirRoom) {
  const auto made = createFiles({volume("C:\\", 10 * kGiB), volume("E:\\", 30 * kGiB)});
  EXPECT_EQ(test.totalSpace, 40 * kGiB);
  EXPECT_EQ(test.testSpace, 5 * kGiB);
  ASSERT_EQ(made.size(), 2u);
  EXPECT_EQ(made[0].fileSize, 10 * kGiB);
  EXPECT_EQ(made[1].fileSize, 30 * kGiB);
  EXPECT_EQ(made[0].testBytes, 5 * kGiB / 4);
  EXPECT_EQ(made[1].testBytes, 5 * kGiB * 3 / 4);
  EXPECT_EQ(made[0].chunkSize, kMiB);
  EXPECT_EQ(made[1].chunkSize, kMiB);
  const std::vector<uint64_t> first = test.pickOffsets(made[0]);
  const std::vector<uint64_t> second = test.pickOffsets(made[1]);
  EXPECT_EQ(first.size(), 1280u);
  EXPECT_EQ(second.size(), 3840u);
  expectOffsetsInSlots(made[0], first);
  expectOffsetsInSlots(made[1], second);
  EXPECT_EQ(files.sizes, (std::vector<std::pair<HANDLE, uint64_t>>{{kFirstFile, 10 * kGiB}, {kSecondFile, 30 * kGiB}}));
}

TEST_F(DeviceWrite, VolumeWhoseShareIsBelowOneChunkGetsASingleSmallerChunk) {
  setVolumes({volume("C:\\", 8 * kMiB), volume("E:\\", 512 * 1024 + 1000)});
  EXPECT_EQ(test.run(&context), SUCCESS);
  const auto small = files.writesTo(kSecondFile);
  ASSERT_EQ(small.size(), 1u);
  EXPECT_EQ(small[0].length, 512u * 1024);
  EXPECT_EQ(small[0].offset % 4096, 0u);
  EXPECT_LE(small[0].offset + small[0].length, 512u * 1024 + 1000);
}

TEST_F(DeviceWrite, VolumeWhoseShareIsBelowOneClusterGetsAChunkOfZeroAndIsPassedOver) {
  // Next to a large volume the small one's share of the 5 GiB is 2047 bytes.
  const auto made = createFiles({volume("C:\\", 10 * kGiB), volume("E:\\", 4096)});
  ASSERT_EQ(made.size(), 2u);
  EXPECT_EQ(made[1].testBytes, 2047u);
  EXPECT_EQ(made[1].chunkSize, 0u);
  EXPECT_TRUE(test.pickOffsets(made[1]).empty());

  // A run with such a volume alone creates and deletes its file and writes
  // nothing.
  setVolumes({volume("E:\\", 100)});
  EXPECT_EQ(test.run(&context), SUCCESS);
  EXPECT_EQ(files.created.size(), 3u);
  EXPECT_TRUE(files.writes.empty());
  EXPECT_EQ(files.closed, (std::vector<HANDLE>{reinterpret_cast<HANDLE>(0x102)}));
}

TEST_F(DeviceWrite, ChunkIsTwoHundredFiftySixClustersOfTheVolume) {
  const auto made = createFiles({volume("C:\\", 64 * kMiB, 65536)});
  ASSERT_EQ(made.size(), 1u);
  EXPECT_EQ(made[0].chunkSize, 16 * kMiB);
  expectOffsetsInSlots(made[0], test.pickOffsets(made[0]));
}

// --- Failures ----------------------------------------------------------------

TEST_F(DeviceWrite, TemporaryFileThatCannotBeMadeGivesVolumeAccessErrorAndEarlierFilesAreClosed) {
  setVolumes({volume("C:\\", 4 * kMiB), volume("E:\\", 4 * kMiB)});
  files.createAnswers = {0, 1};
  EXPECT_EQ(test.run(&context), WARNING);
  EXPECT_EQ(listener.keyedEvents(), (std::vector<ProgressEvent>{{100, "VOLUME_ACCESS_ERROR"}}));
  EXPECT_EQ(log.lines, (std::vector<LogLine>{{"VOLUME_ACCESS_ERROR", LevelWarning}}));
  // The run lets go of the first volume's file: it is closed, which deletes
  // it, rather than kept open until the process ends.
  EXPECT_EQ(files.closed, (std::vector<HANDLE>{kFirstFile}));
  EXPECT_TRUE(files.writes.empty());
  EXPECT_EQ(listener.events.back(), (ProgressEvent{100, ""}));
}

TEST_F(DeviceWrite, AFileWhoseRemovalAtTheNextStartCannotBeRegisteredIsClosedAndGivesVolumeAccessError) {
  setVolumes({volume("C:\\", 4 * kMiB)});
  files.createAnswers = {1};
  files.openDespiteFailure = true;  // the file came back open with the failure
  EXPECT_EQ(test.run(&context), WARNING);
  EXPECT_EQ(files.closed, (std::vector<HANDLE>{kFirstFile}));
  EXPECT_TRUE(files.sizes.empty());
  EXPECT_TRUE(files.writes.empty());
  EXPECT_EQ(listener.keyedEvents(), (std::vector<ProgressEvent>{{100, "VOLUME_ACCESS_ERROR"}}));
  EXPECT_EQ(log.lines, (std::vector<LogLine>{{"VOLUME_ACCESS_ERROR", LevelWarning}}));
}

TEST_F(DeviceWrite, AFileThatDidNotOpenIsNotClosed) {
  setVolumes({volume("C:\\", 4 * kMiB)});
  files.createAnswers = {1};
  EXPECT_EQ(test.run(&context), WARNING);
  EXPECT_TRUE(files.closed.empty());
}

TEST_F(DeviceWrite, AHostCallbackThatThrowsStillClosesTheFilesAndRestoresThePrivilege) {
  setVolumes({volume("C:\\", 8 * kMiB), volume("E:\\", 8 * kMiB)});
  struct HostFailure {};
  // The host's listener throws in the middle of the write phase, after the
  // process token lost the privilege behind the test's back.
  listener.onEvent = [this](const ProgressEvent&) {
    if (files.writes.size() != 3) return;
    HANDLE token = nullptr;
    ASSERT_TRUE(OpenProcessToken(GetCurrentProcess(), TOKEN_ALL_ACCESS, &token));
    AdjustTokenPrivileges(token, TRUE, nullptr, 0, nullptr, nullptr);
    CloseHandle(token);
    ASSERT_FALSE(sim::privilegeEnabled("SeManageVolumePrivilege"));
    throw HostFailure();
  };
  EXPECT_THROW(test.run(&context), HostFailure);
  EXPECT_EQ(files.closed, (std::vector<HANDLE>{kFirstFile, kSecondFile}));
  EXPECT_TRUE(sim::privilegeEnabled("SeManageVolumePrivilege")) << "the privilege was restored on the way out";
}

TEST_F(DeviceWrite, TemporaryFileThatCannotBeSizedIsClosedAndGivesVolumeAccessError) {
  setVolumes({volume("C:\\", 4 * kMiB)});
  files.setSizeAnswers = {1};
  EXPECT_EQ(test.run(&context), WARNING);
  EXPECT_EQ(files.closed, (std::vector<HANDLE>{kFirstFile}));
  EXPECT_EQ(listener.keyedEvents(), (std::vector<ProgressEvent>{{100, "VOLUME_ACCESS_ERROR"}}));
  EXPECT_EQ(log.lines, (std::vector<LogLine>{{"VOLUME_ACCESS_ERROR", LevelWarning}}));
}

TEST_F(DeviceWrite, DiskFullDuringAWriteGivesVolumeRanOutOfSpace) {
  setVolumes({volume("C:\\", 4 * kMiB)});
  files.writeAnswers = {0, 112};
  EXPECT_EQ(test.run(&context), WARNING);
  EXPECT_EQ(files.writes.size(), 2u);
  EXPECT_TRUE(files.reads.empty());
  EXPECT_EQ(listener.keyedEvents(), (std::vector<ProgressEvent>{{100, "VOLUME_RAN_OUT_OF_SPACE"}}));
  EXPECT_EQ(log.lines, (std::vector<LogLine>{{"VOLUME_RAN_OUT_OF_SPACE", LevelWarning}}));
  EXPECT_EQ(files.closed, (std::vector<HANDLE>{kFirstFile}));
}

TEST_F(DeviceWrite, FailedWriteGivesWriteOperationFailed) {
  setVolumes({volume("C:\\", 4 * kMiB)});
  files.writeAnswers = {1};
  EXPECT_EQ(test.run(&context), FAILED);
  EXPECT_EQ(listener.keyedEvents(), (std::vector<ProgressEvent>{{100, "WRITE_OPERATION_FAILED"}}));
  EXPECT_EQ(log.lines, (std::vector<LogLine>{{"WRITE_OPERATION_FAILED", LevelFailure}}));
  EXPECT_EQ(files.closed, (std::vector<HANDLE>{kFirstFile}));
}

TEST_F(DeviceWrite, FailedReadGivesReadOperationFailed) {
  setVolumes({volume("C:\\", 4 * kMiB)});
  files.readAnswers = {0, 0, 1};
  EXPECT_EQ(test.run(&context), FAILED);
  EXPECT_EQ(files.reads.size(), 3u);
  EXPECT_EQ(listener.keyedEvents(), (std::vector<ProgressEvent>{{100, "READ_OPERATION_FAILED"}}));
  EXPECT_EQ(log.lines, (std::vector<LogLine>{{"READ_OPERATION_FAILED", LevelFailure}}));
}

TEST_F(DeviceWrite, DataReadBackThatDiffersGivesPatternVerificationFailed) {
  setVolumes({volume("C:\\", 4 * kMiB)});
  files.spoilRead = 2;
  EXPECT_EQ(test.run(&context), FAILED);
  EXPECT_EQ(files.reads.size(), 2u);
  EXPECT_EQ(listener.keyedEvents(), (std::vector<ProgressEvent>{{100, "PATTERN_VERIFICATION_FAILED"}}));
  EXPECT_EQ(log.lines, (std::vector<LogLine>{{"PATTERN_VERIFICATION_FAILED", LevelFailure}}));
  EXPECT_EQ(files.closed, (std::vector<HANDLE>{kFirstFile}));
}

TEST_F(DeviceWrite, BuffersThatCannotBeAlignedGiveInvalidWithoutKey) {
  // A cluster of 3072 bytes is no power of two: no aligned buffer exists.
  setVolumes({volume("C:\\", 4 * kMiB, 3072)});
  EXPECT_EQ(test.run(&context), INVALID);
  EXPECT_TRUE(files.writes.empty());
  EXPECT_TRUE(listener.keyedEvents().empty());
  EXPECT_TRUE(log.lines.empty());
  EXPECT_EQ(files.closed, (std::vector<HANDLE>{kFirstFile}));
}

TEST_F(DeviceWrite, RunWithoutAUsableContextGivesInvalidBeforeAnyEvent) {
  EXPECT_EQ(test.run(nullptr), INVALID);
  context.setListener(nullptr);
  EXPECT_EQ(test.run(&context), INVALID);
  EXPECT_TRUE(listener.events.empty());
}

// --- Aborts ------------------------------------------------------------------

TEST_F(DeviceWrite, AbortBeforeTheBodyGivesAbortedWithoutTouchingAnything) {
  setVolumes({volume("C:\\", 4 * kMiB)});
  context.abortRequested = true;
  EXPECT_EQ(test.run(&context), ABORTED);
  EXPECT_EQ(listener.events, (std::vector<ProgressEvent>{{0, ""}, {100, ""}}));
  EXPECT_TRUE(files.created.empty());
}

TEST_F(DeviceWrite, AbortDuringTheWritePhaseClosesAllFilesAndTheLastEventIsTheAbortChecks) {
  setVolumes({volume("C:\\", 8 * kMiB), volume("E:\\", 8 * kMiB)});
  files.onWrite = [this]() {
    if (files.writes.size() == 3) context.systemEvents = 0x20;
  };
  EXPECT_EQ(test.run(&context), ABORTED);
  EXPECT_EQ(files.writes.size(), 3u);
  EXPECT_TRUE(files.reads.empty());
  EXPECT_EQ(files.closed, (std::vector<HANDLE>{kFirstFile, kSecondFile}));
  // The write loop leaves in silence; the run's own check announces.
  EXPECT_EQ(listener.events.back(), (ProgressEvent{100, kKeySystemEventAbort}));
  EXPECT_EQ(listener.events[listener.events.size() - 2], (ProgressEvent{100, ""}));
  EXPECT_EQ(log.lines, (std::vector<LogLine>{{kKeySystemEventAbort, LevelInfo}}));
}

TEST_F(DeviceWrite, UserAbortDuringTheWritePhaseEndsWithTheEventOfTheRunsCheck) {
  setVolumes({volume("C:\\", 8 * kMiB)});
  files.onWrite = [this]() {
    if (files.writes.size() == 2) context.abortRequested = true;
  };
  EXPECT_EQ(test.run(&context), ABORTED);
  EXPECT_EQ(files.writes.size(), 2u);
  EXPECT_EQ(files.closed, (std::vector<HANDLE>{kFirstFile}));
  // Each check closes the progress for a user abort: the write loop's, the
  // body's end, and the run's last check.
  const std::vector<ProgressEvent> tail(listener.events.end() - 3, listener.events.end());
  EXPECT_EQ(tail, (std::vector<ProgressEvent>{{100, ""}, {100, ""}, {100, ""}}));
  EXPECT_TRUE(log.lines.empty());
}

TEST_F(DeviceWrite, AbortBetweenVolumesStopsBeforeTheNextFile) {
  setVolumes({volume("C:\\", 2 * kMiB), volume("E:\\", 2 * kMiB)});
  // Abort checks: the run's head, the body's, then per file and per transfer.
  // The first file's 2 writes and 2 reads take checks 4 to 7; check 8 is the
  // second file's.
  context.abortOnCall = 8;
  EXPECT_EQ(test.run(&context), ABORTED);
  EXPECT_TRUE(files.writesTo(kSecondFile).empty());
  EXPECT_EQ(files.reads.size(), 2u);
  EXPECT_EQ(files.closed, (std::vector<HANDLE>{kFirstFile, kSecondFile}));
}

}  // namespace
