// The device read and write tests end to end on a simulated PC with an NVMe
// disk and an eMMC device, each carrying an NTFS volume: discovery makes the
// components, the tests read through the disk handles and write through the
// real filesystem service, and the journal and the media show what reached
// the devices.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstddef>
#include <cstring>
#include <functional>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include "components/storage_component_manager.h"
#include "diagnostics/device_read.h"
#include "diagnostics/device_write.h"
#include "system/win_filesystem.h"
#include "testing/recording_host.h"
#include "testing/simulated_pc.h"

namespace {

using mstest::ProgressEvent;

constexpr uint64_t kMargin = StorageDeviceWriteTest::kVolumeMargin;
constexpr uint64_t kMiB = 1 << 20;
constexpr uint64_t kPartitionStart = 2048;
constexpr uint64_t kPartitionSectors = 3000000;

// The margin rounded up to whole clusters of 4096 bytes.
constexpr uint64_t kMarginClusters = (kMargin + 4095) / 4096 * 4096;

// An NVMe disk of 4,000,000 sectors with C: (NTFS, 9 MiB of room beyond the
// margin, of which a described file takes 1 MiB), and an 8 GiB eMMC device
// with D: (NTFS, 4 MiB of room). Unwritten sectors of the NVMe disk read as
// 0xEE. `extra` is added to the machine, `nvmeFaults` to the NVMe disk.
std::string machineJson(const std::string& extra = "", const std::string& nvmeFaults = "") {
  const uint64_t nvmeFree = kMarginClusters + 9 * kMiB;
  const uint64_t emmcFree = kMarginClusters + 4 * kMiB;
  return R"({"disks": [
    {"name": "nvme0", "kind": "nvme",
     "profile": {"model": "FLASH NVME 2TB", "serial": "N0", "firmware": "1.0", "capacitySectors": 4000000},
     "media": {"fill": 238},)" +
         (nvmeFaults.empty() ? "" : R"("faults": )" + nvmeFaults + ",") + R"(
     "partitions": {"scheme": "mbr", "entries": [{"type": 7, "startLba": 2048, "sectorCount": 3000000}]},
     "volumes": [{"partition": 1, "letter": "C", "fileSystem": "NTFS", "freeBytes": )" +
         std::to_string(nvmeFree) + R"(}],
     "files": [{"path": "C:\\data\\keep.bin", "size": 1048576}]},
    {"name": "emmc0", "kind": "emmc", "profile": {"capacitySectors": 16777216},
     "descriptor": {"productId": "EMMC8G", "serialNumber": "E0"},
     "partitions": {"scheme": "mbr", "entries": [{"type": 7, "startLba": 2048, "sectorCount": 3000000}]},
     "volumes": [{"partition": 1, "letter": "D", "fileSystem": "NTFS", "freeBytes": )" +
         std::to_string(emmcFree) + R"(}]}
  ])" + extra +
         "}";
}

// The real filesystem service, with the handle, offset and length of every
// write noted; `onFirstWrite` runs once, just after the first write.
class NotingFilesystem : public WinFilesystem {
 public:
  NotingFilesystem() { setFilesystemForTesting(this); }
  ~NotingFilesystem() override { setFilesystemForTesting(nullptr); }

  uint32_t create(std::string path, HANDLE* out, bool deleteOnClose) override {
    paths.push_back(path);
    const uint32_t status = WinFilesystem::create(path, out, deleteOnClose);
    if (status == 0) fileSizes[*out] = 0;
    return status;
  }
  uint32_t setSize(HANDLE handle, uint64_t bytes) override {
    fileSizes[handle] = bytes;
    return WinFilesystem::setSize(handle, bytes);
  }
  uint32_t write(HANDLE handle, uint64_t offset, uint64_t length, uint64_t* done, uint32_t timeoutSeconds,
                 void* buffer) override {
    const uint32_t status = WinFilesystem::write(handle, offset, length, done, timeoutSeconds, buffer);
    writes.push_back({handle, offset, length});
    if (writes.size() == 1 && onFirstWrite) onFirstWrite(handle);
    return status;
  }

  struct Write {
    HANDLE handle;
    uint64_t offset;
    uint64_t length;
  };
  std::vector<std::string> paths;
  std::map<HANDLE, uint64_t> fileSizes;
  std::vector<Write> writes;
  std::function<void(HANDLE)> onFirstWrite;
};

class FlashDevicesOnSimulatedPc : public mstest::SimulatedPcTest {
 protected:
  void TearDown() override {
    manager.reset();
    SimulatedPcTest::TearDown();
  }

  // Installs the machine and discovers its disks as the host would.
  void discover(const std::string& json) {
    machine = installJson(json);
    ASSERT_NE(machine, nullptr);
    manager = std::make_unique<StorageComponentManager>(ItemId(1, 0, 2));
    manager->refresh();
    journalAtDiscovery = machine->journal().entries().size();
  }

  StorageComponent* componentOnBus(uint32_t busKind) {
    for (uint32_t i = 0; i < manager->getComponentCount(); ++i) {
      auto* component = static_cast<StorageComponent*>(manager->getComponent(i));
      if (component->getBusKind() == busKind) return component;
    }
    ADD_FAILURE() << "no component on bus " << busKind;
    return nullptr;
  }

  uint32_t run(::Test& test, StorageComponent* component) {
    mstest::ScriptedRunContext context(component, &listener, &log);
    return test.run(&context);
  }

  // Sectors written to a disk since discovery (the partition tables written
  // when the machine was installed are left out).
  std::vector<sim::JournalEntry> sectorWrites(const std::string& disk) const {
    std::vector<sim::JournalEntry> list;
    const std::vector<sim::JournalEntry>& entries = machine->journal().entries();
    for (size_t i = journalAtDiscovery; i < entries.size(); ++i) {
      const sim::JournalEntry& entry = entries[i];
      if (entry.kind == sim::JournalKind::SectorWrite && machine->journal().deviceName(entry.device) == disk) {
        list.push_back(entry);
      }
    }
    return list;
  }

  // The LBAs of a file of C:, from its retrieval pointers.
  std::vector<std::pair<uint64_t, uint64_t>> lbaRunsOf(const std::string& path) {
    HANDLE file = openPath(path, GENERIC_READ);
    STARTING_VCN_INPUT_BUFFER start{};
    std::vector<uint8_t> out(sizeof(RETRIEVAL_POINTERS_BUFFER) + 16 * 16);
    DWORD returned = 0;
    EXPECT_TRUE(DeviceIoControl(file, FSCTL_GET_RETRIEVAL_POINTERS, &start, sizeof start, out.data(),
                                static_cast<DWORD>(out.size()), &returned, nullptr));
    RETRIEVAL_POINTERS_BUFFER head;
    std::memcpy(&head, out.data(), sizeof head);
    std::vector<std::pair<uint64_t, uint64_t>> runs;
    uint64_t vcn = static_cast<uint64_t>(head.StartingVcn.QuadPart);
    const size_t header = offsetof(RETRIEVAL_POINTERS_BUFFER, Extents);
    for (DWORD i = 0; i < head.ExtentCount; ++i) {
      LARGE_INTEGER pair[2];
      std::memcpy(pair, out.data() + header + i * sizeof pair, sizeof pair);
      const uint64_t next = static_cast<uint64_t>(pair[0].QuadPart);
      const uint64_t lcn = static_cast<uint64_t>(pair[1].QuadPart);
      runs.push_back({kPartitionStart + lcn * 8, (next - vcn) * 8});
      vcn = next;
    }
    return runs;
  }

  sim::Machine* machine = nullptr;
  size_t journalAtDiscovery = 0;
  std::unique_ptr<StorageComponentManager> manager;
  mstest::RecordingListener listener;
  mstest::RecordingLog log;
};

// Chunks of a range: one per 4096 sectors up to, not including, its last LBA.
uint64_t chunksOf(uint64_t first, uint64_t last) { return last == first ? 1 : (last - first + 4095) / 4096; }

// --- Device read -------------------------------------------------------------

TEST_F(FlashDevicesOnSimulatedPc, DiscoveredFlashDevicesAreOfferedTheReadAndWriteTests) {
  discover(machineJson());
  StorageDeviceReadTest read(ItemId(1, 1, 11));
  StorageDeviceWriteTest write(ItemId(1, 2, 12));
  for (uint32_t bus : {kBusNvme, kBusEmmc}) {
    EXPECT_TRUE(read.isSupported(componentOnBus(bus))) << bus;
    EXPECT_TRUE(write.isSupported(componentOnBus(bus))) << bus;
  }
}

TEST_F(FlashDevicesOnSimulatedPc, ReadTestOnTheEmmcDeviceReadsItsThreeShareRangesAndWritesNothing) {
  discover(machineJson());
  StorageComponent* emmc = componentOnBus(kBusEmmc);
  ASSERT_NE(emmc, nullptr);
  StorageDeviceReadTest test(ItemId(1, 1, 11));
  EXPECT_EQ(run(test, emmc), SUCCESS);
  // The device reports its size through its geometry, whole cylinders of
  // 255 x 63 sectors: 1044 of them, short of 8 GiB, so the sizes fall back
  // to 20, 50 and 30 percent of it.
  StorageProtocolProperties properties;
  emmc->getProtocol()->getCachedProperties(&properties);
  const uint64_t n = properties.sectorCount;
  ASSERT_EQ(n, 1044u * 255 * 63);
  const uint64_t initial = static_cast<uint64_t>(static_cast<float>(n) * 0.2f);
  const uint64_t central = static_cast<uint64_t>(static_cast<float>(n) * 0.5f);
  const uint64_t final = static_cast<uint64_t>(static_cast<float>(n) * 0.3f);
  const uint64_t middle = (n - final + initial) / 2;
  const uint64_t chunks = chunksOf(0, initial - 1) + chunksOf(middle - central / 2, middle + central / 2) +
                          chunksOf(n - final, n - 1);
  EXPECT_EQ(listener.events.size(), 2 + chunks + 2);
  EXPECT_TRUE(listener.keyedEvents().empty());
  EXPECT_EQ(listener.events.back(), (ProgressEvent{100, ""}));
  EXPECT_TRUE(log.lines.empty());
  EXPECT_TRUE(sectorWrites("emmc0").empty());
}

TEST_F(FlashDevicesOnSimulatedPc, WholeDiskReadOfTheNvmeDiskSucceeds) {
  discover(machineJson());
  StorageComponent* nvme = componentOnBus(kBusNvme);
  ASSERT_NE(nvme, nullptr);
  StorageDeviceReadTest test(ItemId(1, 1, 11));
  std::vector<RejectedParameter> rejected;
  ASSERT_TRUE(test.setParameters({{"STORAGE", {{"WHOLE_DISK_READ", "1"}}}}, rejected));
  EXPECT_EQ(run(test, nvme), SUCCESS);
  EXPECT_EQ(listener.keyedEvents(), (std::vector<ProgressEvent>{{0, "WHOLE_DISK_READ: 1"}}));
  EXPECT_EQ(listener.events.size(), 3 + chunksOf(0, 3999999) + 2);
  EXPECT_TRUE(sectorWrites("nvme0").empty());
}

TEST_F(FlashDevicesOnSimulatedPc, UnreadableSectorInTheBytesOfTheShortLastChunkFailsTheRead) {
  // The whole-disk range ends in a chunk of 3999999 - 3997696 = 2303 sectors,
  // whose byte count wraps to 2303 x 512 mod 65536 = 65024 bytes: 127 sectors.
  discover(machineJson("", R"({"unreadableSectors": [3997700]})"));
  StorageDeviceReadTest test(ItemId(1, 1, 11));
  std::vector<RejectedParameter> rejected;
  ASSERT_TRUE(test.setParameters({{"STORAGE", {{"WHOLE_DISK_READ", "1"}}}}, rejected));
  EXPECT_EQ(run(test, componentOnBus(kBusNvme)), FAILED);
  EXPECT_EQ(listener.keyedEvents(), (std::vector<ProgressEvent>{{0, "WHOLE_DISK_READ: 1"}}));
  EXPECT_EQ(listener.events.back(), (ProgressEvent{100, ""})) << "the failure has no key of its own";
  EXPECT_EQ(log.lines, (std::vector<mstest::LogLine>{{"WHOLE_DISK_READ: 1", LevelInfo}}));
  // It came at the last chunk: 976 full chunks went by.
  EXPECT_EQ(listener.events.size(), 3u + 976 + 1);
}

TEST_F(FlashDevicesOnSimulatedPc, UnreadableSectorsThatNoChunkTransfersGoUnnoticed) {
  // Sector 100 lies in a full chunk, which asks for 0 bytes; sector 3997900
  // lies in the last chunk beyond its 127 sectors. This is how the test has
  // always read.
  discover(machineJson("", R"({"unreadableSectors": [100, 3997900]})"));
  StorageDeviceReadTest test(ItemId(1, 1, 11));
  std::vector<RejectedParameter> rejected;
  ASSERT_TRUE(test.setParameters({{"STORAGE", {{"WHOLE_DISK_READ", "1"}}}}, rejected));
  EXPECT_EQ(run(test, componentOnBus(kBusNvme)), SUCCESS);
}

TEST_F(FlashDevicesOnSimulatedPc, ReadTestIsNotApplicableToTheOtherDisksOfTheDefaultMachine) {
  machine = installDefault();
  ASSERT_NE(machine, nullptr);
  manager = std::make_unique<StorageComponentManager>(ItemId(1, 0, 2));
  manager->refresh();
  StorageDeviceReadTest test(ItemId(1, 1, 11));
  for (uint32_t i = 0; i < manager->getComponentCount(); ++i) {
    auto* component = static_cast<StorageComponent*>(manager->getComponent(i));
    const bool flash = component->getBusKind() == kBusNvme || component->getBusKind() == kBusEmmc;
    EXPECT_EQ(test.isSupported(component), flash) << i;
    if (!flash) {
      listener.events.clear();
      EXPECT_EQ(run(test, component), NOT_APPLICABLE) << i;
      EXPECT_EQ(listener.events, (std::vector<ProgressEvent>{{0, ""}, {100, ""}}));
    }
  }
}

// --- Device write ------------------------------------------------------------

TEST_F(FlashDevicesOnSimulatedPc, WriteTestOnTheNvmeDiskWritesOnlyItsTemporaryFile) {
  discover(machineJson());
  StorageComponent* nvme = componentOnBus(kBusNvme);
  ASSERT_NE(nvme, nullptr);
  const auto keptRuns = lbaRunsOf("C:\\data\\keep.bin");
  ASSERT_FALSE(keptRuns.empty());

  NotingFilesystem filesystem;
  StorageDeviceWriteTest test(ItemId(1, 2, 12));
  EXPECT_EQ(run(test, nvme), SUCCESS);
  EXPECT_TRUE(listener.keyedEvents().empty());
  EXPECT_TRUE(log.lines.empty());
  EXPECT_EQ(listener.events.back(), (ProgressEvent{100, ""}));

  // One file on C:, of the room left beyond the margin, cut to clusters.
  ASSERT_EQ(filesystem.paths, (std::vector<std::string>{"C:\\/quenby_diags_tmp_file"}));
  ASSERT_EQ(filesystem.fileSizes.size(), 1u);
  EXPECT_EQ(filesystem.fileSizes.begin()->second, 8 * kMiB);
  ASSERT_EQ(filesystem.writes.size(), 8u);

  // What reached the media is exactly the chunks written: inside the volume,
  // outside the described file, and all of it the pattern.
  const std::vector<sim::JournalEntry> written = sectorWrites("nvme0");
  ASSERT_EQ(machine->journal().dropped(), 0u);
  uint64_t sectors = 0;
  for (const sim::JournalEntry& entry : written) {
    sectors += entry.count;
    EXPECT_GE(entry.lba, kPartitionStart);
    EXPECT_LE(entry.lba + entry.count, kPartitionStart + kPartitionSectors);
    for (const auto& run : keptRuns) {
      EXPECT_FALSE(entry.lba < run.first + run.second && run.first < entry.lba + entry.count)
          << "the test wrote into C:\\data\\keep.bin at " << entry.lba;
    }
    std::vector<uint8_t> data(entry.count * 512);
    ASSERT_EQ(machine->disks[0].media->read(entry.lba, entry.count, data.data()), sim::MediaResult::Ok);
    EXPECT_TRUE(std::all_of(data.begin(), data.end(), [](uint8_t b) { return b == 0xAA; })) << entry.lba;
  }
  EXPECT_EQ(sectors, 8 * kMiB / 512);

  // The file is gone, and would be removed at the next start in any case.
  EXPECT_EQ(GetFileAttributesA("C:\\quenby_diags_tmp_file"), INVALID_FILE_ATTRIBUTES);
  EXPECT_NE(GetFileAttributesA("C:\\data\\keep.bin"), INVALID_FILE_ATTRIBUTES);
  const std::vector<std::string> pending = sim::pendingRebootDeletions();
  ASSERT_EQ(pending.size(), 1u);
  EXPECT_NE(pending[0].find("quenby_diags_tmp_file"), std::string::npos);
  EXPECT_TRUE(sectorWrites("emmc0").empty());
}

TEST_F(FlashDevicesOnSimulatedPc, WriteTestOnTheEmmcDeviceUsesItsOwnVolume) {
  discover(machineJson());
  NotingFilesystem filesystem;
  StorageDeviceWriteTest test(ItemId(1, 2, 12));
  EXPECT_EQ(run(test, componentOnBus(kBusEmmc)), SUCCESS);
  EXPECT_EQ(filesystem.paths, (std::vector<std::string>{"D:\\/quenby_diags_tmp_file"}));
  EXPECT_EQ(filesystem.writes.size(), 4u);
  EXPECT_TRUE(sectorWrites("nvme0").empty());
  EXPECT_EQ(GetFileAttributesA("D:\\quenby_diags_tmp_file"), INVALID_FILE_ATTRIBUTES);
}

// The file's unwritten clusters read as zeros: without the privilege the
// write test doesn't try SetFileValidData, and with it the platform refuses
// it, the file being sparse by then; what the media held (0xEE) never shows.
// Looked at in the last cluster of the file, which the first write, in the
// first slot, doesn't reach.
uint8_t firstByteOfLastCluster(NotingFilesystem& filesystem, HANDLE file) {
  std::vector<uint8_t> cluster(4096, 0x55);
  uint64_t done = 0;
  EXPECT_EQ(filesystem.read(file, filesystem.fileSizes[file] - 4096, 4096, &done, 30, cluster.data()), 0u);
  return cluster[0];
}

TEST_F(FlashDevicesOnSimulatedPc, SparseFileKeepsItsZerosThoughTheVolumePrivilegeIsEnabled) {
  discover(machineJson());
  NotingFilesystem filesystem;
  int seen = -1;
  filesystem.onFirstWrite = [&](HANDLE file) { seen = firstByteOfLastCluster(filesystem, file); };
  StorageDeviceWriteTest test(ItemId(1, 2, 12));
  EXPECT_EQ(run(test, componentOnBus(kBusNvme)), SUCCESS);
  EXPECT_EQ(seen, 0) << "SetFileValidData is refused on the sparse file";
  EXPECT_TRUE(sim::privilegeEnabled("SeManageVolumePrivilege"));
}

TEST_F(FlashDevicesOnSimulatedPc, ProcessWithoutTheVolumePrivilegeRunsWithoutSetFileValidData) {
  discover(machineJson(R"(, "privileges": ["SeChangeNotifyPrivilege"])"));
  NotingFilesystem filesystem;
  int seen = -1;
  filesystem.onFirstWrite = [&](HANDLE file) { seen = firstByteOfLastCluster(filesystem, file); };
  StorageDeviceWriteTest test(ItemId(1, 2, 12));
  EXPECT_EQ(run(test, componentOnBus(kBusNvme)), SUCCESS);
  EXPECT_EQ(seen, 0) << "the file's unwritten clusters read as zeros";
  EXPECT_FALSE(sim::privilegeEnabled("SeManageVolumePrivilege"));
  EXPECT_EQ(filesystem.writes.size(), 8u);
  EXPECT_TRUE(log.lines.empty());
}

TEST_F(FlashDevicesOnSimulatedPc, Fat32VolumeOfAFlashDiskGivesNoValidVolume) {
  std::string json = machineJson();
  const std::string ntfsD = R"("letter": "D", "fileSystem": "NTFS")";
  json.replace(json.find(ntfsD), ntfsD.size(), R"("letter": "D", "fileSystem": "FAT32")");
  discover(json);
  NotingFilesystem filesystem;
  StorageDeviceWriteTest test(ItemId(1, 2, 12));
  EXPECT_EQ(run(test, componentOnBus(kBusEmmc)), NOT_APPLICABLE);
  EXPECT_EQ(listener.keyedEvents(), (std::vector<ProgressEvent>{{100, "NO_VALID_VOLUME"}}));
  EXPECT_TRUE(filesystem.paths.empty());
}

}  // namespace
