// Partitions of a disk as the scanner reads them, on simulated PCs whose
// partition tables and volumes are built for each case; and the steps of the
// reading (layout parsing, logical drives, unallocated space) on records made
// by hand.
#include <cstring>
#include <limits>

#include <gtest/gtest.h>

#include "scanner/scanner_test_support.h"
#include "scanner/win_storage_scanner.h"

namespace {

using scanner_testing::TestScanner;
using sim::windows::testing::FakeAta;
using sim::windows::testing::makeDisk;

class WinPartitionScanTest : public sim::windows::testing::FaceTest {};

constexpr uint64_t kSectors = 1 << 20;  // 512 MiB
constexpr uint64_t kDiskBytes = kSectors * 512;

struct Scan {
  uint32_t status = 99;
  DiskPartitions partitions;
};

// Installs the disks described, scans, and reads the partitions of `disk`.
Scan scanOf(const std::vector<nlohmann::json>& descriptions, uint32_t disk = 0) {
  std::vector<sim::Disk> disks;
  for (size_t i = 0; i < descriptions.size(); ++i) {
    disks.push_back(makeDisk("d" + std::to_string(i), kSectors, std::make_shared<FakeAta>(), nullptr, descriptions[i]));
  }
  sim::windows::testing::install(std::move(disks));
  TestScanner scanner;
  DiskMap map;
  EXPECT_EQ(scanner.scanDevices(map), 0u);
  Scan scan;
  scan.status = scanner.getPartitions(disk, &scan.partitions, kDiskBytes);
  return scan;
}

Scan scanOf(const char* description) { return scanOf({nlohmann::json::parse(description)}); }

const PartitionRecord* recordWithIndex(const DiskPartitions& partitions, uint64_t index) {
  for (const PartitionRecord& record : partitions.records) {
    if (record.index == index) return &record;
  }
  return nullptr;
}

TEST_F(WinPartitionScanTest, MbrEntriesOfTypeZeroAreDroppedSoTheFourSlotTableIsNotFourPartitions) {
  const Scan scan = scanOf(R"({"partitions": {"scheme": "mbr", "entries": [
      {"type": 7, "startLba": 2048, "sectorCount": 8192},
      {"type": 11, "startLba": 10240, "sectorCount": 4096}]}})");
  ASSERT_EQ(scan.status, 0u);
  EXPECT_EQ(scan.partitions.schemeName, "MBR");
  EXPECT_EQ(scan.partitions.diskNumber, 0u);
  ASSERT_EQ(scan.partitions.records.size(), 2u);
  const PartitionRecord& first = scan.partitions.records[0];
  EXPECT_EQ(first.type, "PRIMARY");
  EXPECT_EQ(first.fileSystem, "IFS, HPFS, NTFS, exFAT");
  EXPECT_EQ(first.index, 1u);
  EXPECT_EQ(first.startOffset, 2048u * 512);
  EXPECT_EQ(first.size, 8192u * 512);
  EXPECT_EQ(first.usedBytes, 0u);
  EXPECT_EQ(first.freeBytes, 0u);
  EXPECT_EQ(first.clusterOffset, 0u);
  EXPECT_TRUE(first.mountPoints.empty());
  EXPECT_EQ(scan.partitions.records[1].fileSystem, "FAT32");
  EXPECT_EQ(scan.partitions.unallocatedBytes, kDiskBytes - (8192u + 4096u) * 512);
}

TEST_F(WinPartitionScanTest, GptPartitionWithAnUnknownTypeGuidHasAnEmptyTypeAndStillCounts) {
  const Scan scan = scanOf(R"({"partitions": {"scheme": "gpt", "entries": [
      {"type": "01234567-89ab-cdef-0123-456789abcdef", "startLba": 2048, "sectorCount": 8192}]}})");
  ASSERT_EQ(scan.status, 0u);
  EXPECT_EQ(scan.partitions.schemeName, "GPT");
  ASSERT_EQ(scan.partitions.records.size(), 1u);
  EXPECT_EQ(scan.partitions.records[0].type, "");
  EXPECT_EQ(scan.partitions.records[0].fileSystem, "");
  EXPECT_EQ(scan.partitions.records[0].index, 1u);
  EXPECT_EQ(scan.partitions.unallocatedBytes, kDiskBytes - 8192u * 512);
}

TEST_F(WinPartitionScanTest, GptCephJournalTypeIsNamedByItsLaterRow) {
  const Scan scan = scanOf(R"({"partitions": {"scheme": "gpt", "entries": [
      {"type": "bfbfafe7-a34f-448a-9a5b-6213eb736c22", "startLba": 2048, "sectorCount": 8192},
      {"type": "6a898cc3-1dd2-11b2-99a6-080020736631", "startLba": 10240, "sectorCount": 8192}]}})");
  ASSERT_EQ(scan.partitions.records.size(), 2u);
  EXPECT_EQ(scan.partitions.records[0].type, "_CEPH_|JOURNAL");
  EXPECT_EQ(scan.partitions.records[1].type, "_SOLARIS_/USR_PARTITION");
}

TEST_F(WinPartitionScanTest, MbrType7MountedAsNtfsKeepsTheTypeNameAsItsFileSystem) {
  const Scan scan = scanOf(R"({
      "partitions": {"scheme": "mbr", "entries": [{"type": 7, "startLba": 2048, "sectorCount": 8192}]},
      "volumes": [{"partition": 1, "letter": "C", "fileSystem": "NTFS"}]})");
  ASSERT_EQ(scan.partitions.records.size(), 1u);
  EXPECT_EQ(scan.partitions.records[0].fileSystem, "IFS, HPFS, NTFS, exFAT");
  EXPECT_EQ(scan.partitions.records[0].mountPoints, std::vector<std::string>{"C:\\"});
}

TEST_F(WinPartitionScanTest, NtfsVolumeOnAGptDiskGivesTheLowerCaseFileSystemName) {
  const Scan scan = scanOf(R"({
      "partitions": {"scheme": "gpt", "entries": [
        {"type": "ebd0a0a2-b9e5-4433-87c0-68b6b72699c7", "startLba": 2048, "sectorCount": 8192}]},
      "volumes": [{"partition": 1, "letter": "C", "fileSystem": "NTFS"}]})");
  ASSERT_EQ(scan.partitions.records.size(), 1u);
  EXPECT_EQ(scan.partitions.records[0].type, "_WINDOWS_BASIC_DATA_PARTITION");
  EXPECT_EQ(scan.partitions.records[0].fileSystem, "ntfs");
}

TEST_F(WinPartitionScanTest, UnnamedMbrTypeIsPrimaryWithTheFileSystemOfItsVolumeIfMounted) {
  // Type 26 has no name and holds no other partitions.
  const Scan scan = scanOf(R"({
      "partitions": {"scheme": "mbr", "entries": [
        {"type": 26, "startLba": 2048, "sectorCount": 8192},
        {"type": 26, "startLba": 10240, "sectorCount": 8192}]},
      "volumes": [{"partition": 1, "letter": "E", "fileSystem": "FAT32"}]})");
  ASSERT_EQ(scan.partitions.records.size(), 2u);
  EXPECT_EQ(scan.partitions.records[0].type, "PRIMARY");
  EXPECT_EQ(scan.partitions.records[0].fileSystem, "fat32");
  EXPECT_EQ(scan.partitions.records[1].type, "PRIMARY");
  EXPECT_EQ(scan.partitions.records[1].fileSystem, "");
}

// A primary, an extended partition with two logical drives, and a primary
// beyond the extended one: twelve layout entries in three tables.
const char kExtendedDisk[] = R"({"partitions": {"scheme": "mbr", "entries": [
    {"type": 7, "startLba": 2048, "sectorCount": 8192},
    {"type": 5, "startLba": 10240, "sectorCount": 40960, "logical": [
      {"type": 7, "startLba": 12288, "sectorCount": 8192},
      {"type": 131, "startLba": 22528, "sectorCount": 8192}]},
    {"type": 11, "startLba": 51200, "sectorCount": 8192}]}})";

TEST_F(WinPartitionScanTest, LogicalDriveInsideTheLargestExtendedPartitionIsLogical) {
  const Scan scan = scanOf(kExtendedDisk);
  ASSERT_EQ(scan.status, 0u);
  const PartitionRecord* first = recordWithIndex(scan.partitions, 3);
  const PartitionRecord* second = recordWithIndex(scan.partitions, 4);
  ASSERT_NE(first, nullptr);
  ASSERT_NE(second, nullptr);
  EXPECT_EQ(first->type, "LOGICAL");
  EXPECT_EQ(first->fileSystem, "IFS, HPFS, NTFS, exFAT");
  EXPECT_EQ(second->type, "LOGICAL");
  EXPECT_EQ(second->fileSystem, "_NATIVE_LINUX");
}

TEST_F(WinPartitionScanTest, PrimaryBeyondTheEndOfTheExtendedPartitionStaysPrimary) {
  const Scan scan = scanOf(kExtendedDisk);
  const PartitionRecord* beyond = recordWithIndex(scan.partitions, 2);
  ASSERT_NE(beyond, nullptr);
  EXPECT_EQ(beyond->startOffset, 51200u * 512);
  EXPECT_EQ(beyond->type, "PRIMARY");
  const PartitionRecord* before = recordWithIndex(scan.partitions, 1);
  ASSERT_NE(before, nullptr);
  EXPECT_EQ(before->type, "PRIMARY");
}

TEST_F(WinPartitionScanTest, ExtendedLinkEntryInsideTheExtendedPartitionIsDropped) {
  const Scan scan = scanOf(kExtendedDisk);
  std::vector<std::string> types;
  for (const PartitionRecord& record : scan.partitions.records) types.push_back(record.type);
  EXPECT_EQ(types, (std::vector<std::string>{"PRIMARY", "EXTENDED", "PRIMARY", "LOGICAL", "LOGICAL"}));
  const PartitionRecord& extended = scan.partitions.records[1];
  EXPECT_EQ(extended.startOffset, 10240u * 512);
  EXPECT_EQ(extended.size, 40960u * 512);
  EXPECT_EQ(extended.fileSystem, "") << "type 5 has no name";
  // The extended partition itself doesn't count as allocated.
  EXPECT_EQ(scan.partitions.unallocatedBytes, kDiskBytes - 4 * 8192u * 512);
}

TEST_F(WinPartitionScanTest, LayoutBufferGrowsUntilTheWholeLayoutFits) {
  // Six logical drives: 4 + 6 * 4 = 28 entries, past the 4, 8 and 16 entries
  // the buffer holds before it has doubled three times.
  nlohmann::json logical = nlohmann::json::array();
  for (unsigned k = 0; k < 6; ++k) {
    logical.push_back({{"type", 7u}, {"startLba", 12288u + k * 6144u}, {"sectorCount", 4096u}});
  }
  nlohmann::json description = nlohmann::json::parse(R"({"partitions": {"scheme": "mbr", "entries": [
      {"type": 5, "startLba": 10240, "sectorCount": 100000}]}})");
  description["partitions"]["entries"][0]["logical"] = logical;
  const Scan scan = scanOf({description});
  ASSERT_EQ(scan.status, 0u);
  size_t logicalDrives = 0;
  for (const PartitionRecord& record : scan.partitions.records) {
    if (record.type == "LOGICAL") ++logicalDrives;
  }
  EXPECT_EQ(logicalDrives, 6u);
  EXPECT_NE(recordWithIndex(scan.partitions, 6), nullptr) << "the last logical drive";
  EXPECT_EQ(scan.partitions.records.size(), 7u);
}

TEST_F(WinPartitionScanTest, LayoutBufferGrowsToAtMost65536EntriesAndThenGives34) {
  // A disk whose layout query wants exactly the reply of 65,536 entries is
  // read; one that wants a byte more is given up with 34, and the buffer
  // stops growing there instead of doubling on.
  const uint64_t mostBytes = 65536ull * 144 + 192;
  for (const uint64_t wanted : {mostBytes, mostBytes + 1}) {
    nlohmann::json description = nlohmann::json::parse(R"({"partitions": {"scheme": "mbr", "entries": [
        {"type": 7, "startLba": 2048, "sectorCount": 8192}]}})");
    description["layoutNeedsBytes"] = wanted;
    const Scan scan = scanOf({description});
    if (wanted == mostBytes) {
      EXPECT_EQ(scan.status, 0u);
      EXPECT_EQ(scan.partitions.records.size(), 1u);
    } else {
      EXPECT_EQ(scan.status, 34u);
      EXPECT_TRUE(scan.partitions.records.empty());
      EXPECT_EQ(scan.partitions.unallocatedBytes, kDiskBytes);
    }
  }
}

TEST_F(WinPartitionScanTest, VolumeWithTwoDriveLettersHasBothMountPoints) {
  const Scan scan = scanOf(R"({
      "partitions": {"scheme": "gpt", "entries": [
        {"type": "ebd0a0a2-b9e5-4433-87c0-68b6b72699c7", "startLba": 2048, "sectorCount": 8192}]},
      "volumes": [{"partition": 1, "letters": ["F", "G"], "label": "SHARED", "serial": "00C0FFEE",
                   "fileSystem": "NTFS", "freeBytes": 1048576}]})");
  ASSERT_EQ(scan.partitions.records.size(), 1u);
  const PartitionRecord& record = scan.partitions.records[0];
  EXPECT_EQ(record.mountPoints, (std::vector<std::string>{"F:\\", "G:\\"}));
  EXPECT_EQ(record.label, "SHARED") << "the second call overwrites, it doesn't add";
  EXPECT_EQ(record.volumeSerial, "00C0FFEE");
  EXPECT_EQ(record.fileSystem, "ntfs");
  EXPECT_EQ(record.freeBytes, 1048576u);
  EXPECT_TRUE(record.otherMountPoints.empty());
}

TEST_F(WinPartitionScanTest, PartitionWithoutDriveLetterKeepsItsLengthAndHasNoVolumeFields) {
  const Scan scan = scanOf(R"({
      "partitions": {"scheme": "mbr", "entries": [
        {"type": 7, "startLba": 2048, "sectorCount": 8193},
        {"type": 7, "startLba": 12288, "sectorCount": 8193}]},
      "volumes": [{"partition": 2, "letter": "H"}]})");
  ASSERT_EQ(scan.partitions.records.size(), 2u);
  const PartitionRecord& bare = scan.partitions.records[0];
  EXPECT_EQ(bare.label, "");
  EXPECT_EQ(bare.volumeSerial, "");
  EXPECT_TRUE(bare.mountPoints.empty());
  EXPECT_EQ(bare.size, 8193u * 512);
  EXPECT_EQ(bare.clusterSize, 0u);
  // The mounted one counts with its file-system size (whole 4 KiB clusters),
  // the bare one with its full length.
  const PartitionRecord& mounted = scan.partitions.records[1];
  EXPECT_EQ(mounted.size, 1024u * 4096);
  EXPECT_EQ(scan.partitions.unallocatedBytes, kDiskBytes - 8193u * 512 - 1024u * 4096);
}

TEST_F(WinPartitionScanTest, DiskWithoutPartitionsHasAnEmptySchemeAndIsAllUnallocated) {
  const Scan scan = scanOf(std::vector<nlohmann::json>{nlohmann::json::object()});
  EXPECT_EQ(scan.status, 0u);
  EXPECT_EQ(scan.partitions.schemeName, "") << "a RAW layout with no entries names no scheme";
  EXPECT_TRUE(scan.partitions.records.empty());
  EXPECT_EQ(scan.partitions.unallocatedBytes, kDiskBytes);
}

TEST_F(WinPartitionScanTest, Type57IsExtendedAlthoughTheNameTableCallsItPlan9) {
  const Scan scan = scanOf(R"({"partitions": {"scheme": "mbr", "entries": [
      {"type": 57, "startLba": 2048, "sectorCount": 8192}]}})");
  ASSERT_EQ(scan.partitions.records.size(), 1u);
  EXPECT_EQ(scan.partitions.records[0].type, "EXTENDED");
  EXPECT_EQ(scan.partitions.records[0].fileSystem, "Plan 9");
  EXPECT_EQ(scan.partitions.unallocatedBytes, kDiskBytes);
}

TEST_F(WinPartitionScanTest, MountedVolumeGivesLabelSerialSizesAndNtfsClusterSize) {
  const Scan scan = scanOf(R"({
      "partitions": {"scheme": "mbr", "entries": [
        {"type": 7, "startLba": 2048, "sectorCount": 65536},
        {"type": 11, "startLba": 67584, "sectorCount": 65536}]},
      "volumes": [
        {"partition": 1, "letter": "C", "label": "Données", "serial": 171, "fileSystem": "NTFS",
         "clusterSize": 8192, "freeBytes": 8388608},
        {"partition": 2, "letter": "D", "label": "CARD", "fileSystem": "FAT32", "freeBytes": 4194304}]})");
  ASSERT_EQ(scan.partitions.records.size(), 2u);
  const PartitionRecord& ntfs = scan.partitions.records[0];
  EXPECT_EQ(ntfs.label, "Données") << "wide text comes back as UTF-8";
  EXPECT_EQ(ntfs.volumeSerial, "000000AB");
  EXPECT_EQ(ntfs.clusterSize, 8192u);
  EXPECT_EQ(ntfs.size, 65536u * 512);
  EXPECT_EQ(ntfs.freeBytes, 8388608u);
  EXPECT_EQ(ntfs.usedBytes, 65536u * 512 - 8388608u);
  const PartitionRecord& fat = scan.partitions.records[1];
  EXPECT_EQ(fat.fileSystem, "FAT32") << "the MBR type name";
  EXPECT_EQ(fat.clusterSize, 0u) << "only NTFS says its cluster size";
  EXPECT_EQ(fat.freeBytes, 4194304u);
  EXPECT_EQ(fat.usedBytes, fat.size - 4194304u);
}

TEST_F(WinPartitionScanTest, VolumesOfAnotherDiskAreNotMatched) {
  const char* oneVolume = R"({
      "partitions": {"scheme": "mbr", "entries": [{"type": 7, "startLba": 2048, "sectorCount": 8192}]},
      "volumes": [{"partition": 1, "letter": "%"}]})";
  auto withLetter = [oneVolume](char letter) {
    std::string text = oneVolume;
    text[text.find('%')] = letter;
    return nlohmann::json::parse(text);
  };
  const Scan scan = scanOf({withLetter('C'), withLetter('D')}, 1);
  ASSERT_EQ(scan.status, 0u);
  EXPECT_EQ(scan.partitions.diskNumber, 1u);
  ASSERT_EQ(scan.partitions.records.size(), 1u);
  EXPECT_EQ(scan.partitions.records[0].mountPoints, std::vector<std::string>{"D:\\"});
}

TEST_F(WinPartitionScanTest, EveryVolumeHandleOpenedForMatchingIsClosed) {
  sim::windows::testing::install({makeDisk("a", kSectors, std::make_shared<FakeAta>(), nullptr,
                                           nlohmann::json::parse(R"({
      "partitions": {"scheme": "mbr", "entries": [
        {"type": 7, "startLba": 2048, "sectorCount": 8192}, {"type": 7, "startLba": 10240, "sectorCount": 8192}]},
      "volumes": [{"partition": 1, "letter": "C"}, {"partition": 2, "letter": "D"}]})"))});
  TestScanner scanner;
  DiskMap map;
  ASSERT_EQ(scanner.scanDevices(map), 0u);
  scanner.recorder.opened.clear();
  scanner.recorder.closes = 0;
  DiskPartitions partitions;
  ASSERT_EQ(scanner.getPartitions(0, &partitions, kDiskBytes), 0u);
  EXPECT_EQ(scanner.recorder.opened,
            (std::vector<std::string>{map[0][0], "\\\\.\\C:", "\\\\.\\D:"}));
  EXPECT_EQ(scanner.recorder.closes, 3);
  // Nothing is left open: both volumes can be locked now.
  HANDLE volume = nullptr;
  ASSERT_EQ(get_device_scanner()->open("\\\\.\\C:", &volume), 0u);
  EXPECT_EQ(get_device_scanner()->lock(volume), 0u);
  get_device_scanner()->close(volume);
}

TEST_F(WinPartitionScanTest, ARootThatDoesNotOpenKeepsThePreviousRootsHandleWhichIsClosedTwice) {
  sim::windows::testing::install({makeDisk("a", kSectors, std::make_shared<FakeAta>(), nullptr,
                                           nlohmann::json::parse(R"({
      "partitions": {"scheme": "mbr", "entries": [
        {"type": 7, "startLba": 2048, "sectorCount": 8192}, {"type": 7, "startLba": 10240, "sectorCount": 8192}]},
      "volumes": [{"partition": 1, "letter": "C"}, {"partition": 2, "letter": "D"}]})"))});
  TestScanner scanner;
  DiskMap map;
  ASSERT_EQ(scanner.scanDevices(map), 0u);
  scanner.recorder.refused.insert("\\\\.\\D:");
  scanner.recorder.opened.clear();
  scanner.recorder.closed.clear();
  DiskPartitions partitions;
  ASSERT_EQ(scanner.getPartitions(0, &partitions, kDiskBytes), 0u);
  EXPECT_EQ(scanner.recorder.opened, (std::vector<std::string>{map[0][0], "\\\\.\\C:", "\\\\.\\D:"}));
  // D: kept C:'s handle: the walk closes that handle once for each root, and
  // then the disk's own handle.
  ASSERT_EQ(scanner.recorder.closed.size(), 3u);
  EXPECT_NE(scanner.recorder.closed[0], nullptr);
  EXPECT_EQ(scanner.recorder.closed[1], scanner.recorder.closed[0]);
  EXPECT_NE(scanner.recorder.closed[2], scanner.recorder.closed[0]);
  // The second use of the handle comes after its first close, so the root
  // that did not open is matched to nothing: no spurious mount point.
  ASSERT_EQ(partitions.records.size(), 2u);
  EXPECT_EQ(partitions.records[0].mountPoints, std::vector<std::string>{"C:\\"});
  EXPECT_TRUE(partitions.records[1].mountPoints.empty());
  EXPECT_TRUE(partitions.records[1].label.empty());
  // The second close did no harm: both volumes open and lock afterwards.
  for (const char* path : {"\\\\.\\C:", "\\\\.\\D:"}) {
    HANDLE volume = nullptr;
    ASSERT_EQ(get_device_scanner()->open(path, &volume), 0u) << path;
    EXPECT_EQ(get_device_scanner()->lock(volume), 0u) << path;
    get_device_scanner()->close(volume);
  }
}

TEST_F(WinPartitionScanTest, LayoutRefusedForAnotherReasonGivesStatus34AndAllUnallocated) {
  sim::Disk disk = makeDisk("a", kSectors, std::make_shared<FakeAta>(), nullptr);
  disk.media = nullptr;  // the layout query says: not ready
  sim::windows::testing::install({std::move(disk)});
  TestScanner scanner;
  DiskMap map;
  ASSERT_EQ(scanner.scanDevices(map), 0u);
  DiskPartitions partitions;
  partitions.diskNumber = 5;
  EXPECT_EQ(scanner.getPartitions(0, &partitions, kDiskBytes), 34u);
  EXPECT_EQ(partitions.diskNumber, 0u);
  EXPECT_TRUE(partitions.records.empty());
  EXPECT_EQ(partitions.unallocatedBytes, kDiskBytes);
}

TEST_F(WinPartitionScanTest, APathThatFailsIsFollowedByTheNextAndTheFirstSuccessEndsTheWalk) {
  const nlohmann::json spanned = nlohmann::json::parse(R"({
      "partitions": {"scheme": "mbr", "entries": [{"type": 7, "startLba": 2048, "sectorCount": 8192}]},
      "volumes": [{"partition": 1, "letter": "S"}]})");
  sim::windows::testing::install({makeDisk("a", kSectors, std::make_shared<FakeAta>(), nullptr, spanned),
                                  makeDisk("b", kSectors, std::make_shared<FakeAta>(), nullptr, spanned)});
  TestScanner scanner;
  // S: answers no layout query: 34 for that path, then the disk itself.
  scanner.map()[1] = {"\\\\.\\S:", "\\\\.\\PhysicalDrive9", "\\\\.\\PhysicalDrive1", "\\\\.\\PhysicalDrive0"};
  DiskPartitions partitions;
  EXPECT_EQ(scanner.getPartitions(1, &partitions, kDiskBytes), 0u);
  EXPECT_EQ(partitions.diskNumber, 1u);
  EXPECT_EQ(partitions.records.size(), 1u);
  EXPECT_EQ(scanner.recorder.opened.size(), 4u) << "S:, the unopenable path, disk 1; not disk 0";
  // The status is that of the last path opened.
  scanner.map()[1] = {"\\\\.\\S:", "\\\\.\\PhysicalDrive9"};
  DiskPartitions failed;
  EXPECT_EQ(scanner.getPartitions(1, &failed, kDiskBytes), 34u);
  scanner.map()[1] = {"\\\\.\\PhysicalDrive9"};
  DiskPartitions unopened;
  EXPECT_EQ(scanner.getPartitions(1, &unopened, kDiskBytes), 0u) << "no path opened: 0";
  EXPECT_EQ(unopened.unallocatedBytes, kDiskBytes);
}

TEST_F(WinPartitionScanTest, UnknownDiskGivesZeroNoRecordsAndAllUnallocated) {
  TestScanner scanner;
  DiskPartitions partitions;
  EXPECT_EQ(scanner.getPartitions(4, &partitions, 123456u), 0u);
  EXPECT_TRUE(partitions.records.empty());
  EXPECT_EQ(partitions.schemeName, "");
  EXPECT_EQ(partitions.unallocatedBytes, 123456u);
  EXPECT_EQ(scanner.map().count(4), 1u);
}

// --- The steps on records made by hand -------------------------------------------

PartitionRecord record(const std::string& type, uint64_t start, uint64_t size, uint64_t index = 0) {
  PartitionRecord r;
  r.type = type;
  r.startOffset = start;
  r.size = size;
  r.index = index;
  return r;
}

std::vector<uint8_t> layoutOf(DWORD style, DWORD count, size_t entries) {
  std::vector<uint8_t> bytes(48 + entries * 144, 0);
  std::memcpy(bytes.data(), &style, 4);
  std::memcpy(bytes.data() + 4, &count, 4);
  return bytes;
}

void putEntry(std::vector<uint8_t>& layout, size_t i, uint64_t start, uint64_t length, DWORD number,
              const void* type, size_t typeBytes) {
  uint8_t* e = layout.data() + 48 + i * 144;
  std::memcpy(e + 8, &start, 8);
  std::memcpy(e + 16, &length, 8);
  std::memcpy(e + 24, &number, 4);
  std::memcpy(e + 32, type, typeBytes);
}

TEST_F(WinPartitionScanTest, LayoutWithoutEntriesLeavesEverythingAsItWas) {
  TestScanner scanner;
  DiskPartitions partitions;
  const std::vector<uint8_t> layout = layoutOf(PARTITION_STYLE_GPT, 0, 1);
  scanner.parseLayout(layout.data(), layout.size(), &partitions);
  EXPECT_EQ(partitions.schemeName, "");
  EXPECT_TRUE(partitions.records.empty());
}

TEST_F(WinPartitionScanTest, LayoutSchemesOtherThanMbrAndGptKeepNoEntries) {
  TestScanner scanner;
  const uint8_t type = 7;
  for (DWORD style : {2u, 9u}) {
    std::vector<uint8_t> layout = layoutOf(style, 1, 1);
    putEntry(layout, 0, 1048576, 4194304, 1, &type, 1);
    DiskPartitions partitions;
    scanner.parseLayout(layout.data(), layout.size(), &partitions);
    EXPECT_EQ(partitions.schemeName, style == 2 ? "RAW" : "UNKNOWN");
    EXPECT_TRUE(partitions.records.empty());
  }
}

TEST_F(WinPartitionScanTest, GptEntryWithAZeroTypeGuidIsSkipped) {
  TestScanner scanner;
  std::vector<uint8_t> layout = layoutOf(PARTITION_STYLE_GPT, 2, 2);
  const GUID zero{};
  const GUID efi{0xC12A7328, 0xF81F, 0x11D2, {0xBA, 0x4B, 0x00, 0xA0, 0xC9, 0x3E, 0xC9, 0x3B}};
  putEntry(layout, 0, 1048576, 4194304, 1, &zero, sizeof zero);
  putEntry(layout, 1, 5242880, 4194304, 2, &efi, sizeof efi);
  DiskPartitions partitions;
  scanner.parseLayout(layout.data(), layout.size(), &partitions);
  ASSERT_EQ(partitions.records.size(), 1u);
  EXPECT_EQ(partitions.records[0].type, "_E|F|I_SYSTEM_PARTITION");
  EXPECT_EQ(partitions.records[0].index, 2u);
}

TEST_F(WinPartitionScanTest, LayoutCountBeyondTheBufferIsCutToWhatTheBufferHolds) {
  TestScanner scanner;
  std::vector<uint8_t> layout = layoutOf(PARTITION_STYLE_MBR, 0xFFFFFFFFu, 2);
  const uint8_t type = 7;
  putEntry(layout, 0, 1048576, 4194304, 1, &type, 1);
  putEntry(layout, 1, 5242880, 4194304, 2, &type, 1);
  DiskPartitions partitions;
  scanner.parseLayout(layout.data(), layout.size(), &partitions);
  EXPECT_EQ(partitions.records.size(), 2u);
  DiskPartitions none;
  scanner.parseLayout(layout.data(), 20, &none);
  EXPECT_EQ(none.schemeName, "") << "a buffer shorter than the header is not read";
}

TEST_F(WinPartitionScanTest, LogicalClassificationUsesTheFirstOfTheLargestNonEmptyExtendedPartitions) {
  DiskPartitions partitions;
  partitions.records = {record("EXTENDED", 1000, 0), record("EXTENDED", 100, 500), record("PRIMARY", 150, 10),
                        record("EXTENDED", 2000, 500), record("PRIMARY", 2100, 10), record("PRIMARY", 600, 10)};
  WinStorageScanner::classifyLogicalPartitions(&partitions);
  std::vector<std::string> types;
  for (const PartitionRecord& r : partitions.records) types.push_back(r.type);
  // The extended at 100 holds [100, 600): 150 is logical, 600 is at its end.
  EXPECT_EQ(types, (std::vector<std::string>{"EXTENDED", "EXTENDED", "LOGICAL", "EXTENDED", "PRIMARY", "PRIMARY"}));
}

TEST_F(WinPartitionScanTest, WithoutAnExtendedPartitionTheRecordsStayAsTheyAre) {
  DiskPartitions partitions;
  partitions.records = {record("PRIMARY", 100, 50), record("EXTENDED", 100, 0), record("_LINUX_SWAP_PARTITION", 120, 5)};
  WinStorageScanner::classifyLogicalPartitions(&partitions);
  ASSERT_EQ(partitions.records.size(), 3u);
  EXPECT_EQ(partitions.records[0].type, "PRIMARY");
  EXPECT_EQ(partitions.records[2].type, "_LINUX_SWAP_PARTITION");
}

TEST_F(WinPartitionScanTest, UnallocatedSpaceIsNotCheckedAgainstUnderflow) {
  DiskPartitions partitions;
  partitions.records = {record("PRIMARY", 0, 100), record("EXTENDED", 0, 1000), record("", 0, 20)};
  WinStorageScanner::computeUnallocated(&partitions, 1000);
  EXPECT_EQ(partitions.unallocatedBytes, 880u);
  WinStorageScanner::computeUnallocated(&partitions, 60);
  EXPECT_EQ(partitions.unallocatedBytes, std::numeric_limits<uint64_t>::max() - 59) << "60 - 120 wraps";
}

}  // namespace
