// WinFilesystem on the simulated PC: time-limited transfers on a disk handle,
// test files, reserved names and directory walks.
#include "system/win_filesystem.h"

#include <gtest/gtest.h>

#include <vector>

#include "sim/windows/face.h"
#include "sim/windows/face_state.h"
#include "sim/windows/face_test_support.h"
#include "system/wide_text.h"

namespace {

using sim::windows::testing::install;
using sim::windows::testing::makeDisk;

// One 1 MiB disk with an NTFS volume C: on a single MBR partition.
nlohmann::json volumeC() {
  return {{"partitions",
           {{"scheme", "mbr"}, {"entries", {{{"type", 7u}, {"startLba", 2048u}, {"sectorCount", 14336u}}}}}},
          {"volumes", {{{"partition", 1u}, {"letter", "C"}, {"label", "SYSTEM"}}}}};
}

class WinFilesystemTest : public ::testing::Test {
 protected:
  void SetUp() override {
    sim::uninstallMachine();
    sim::Disk disk = makeDisk("disk0", 16384, nullptr, nullptr, volumeC());
    faults = std::make_shared<sim::FaultState>(std::make_shared<sim::VirtualClock>());
    disk.faultPath.push_back(faults);
    machine = install({disk});
  }
  void TearDown() override { sim::uninstallMachine(); }

  HANDLE openDisk() {
    return CreateFileW(u"\\\\.\\PhysicalDrive0", GENERIC_READ | GENERIC_WRITE, FILE_SHARE_READ | FILE_SHARE_WRITE,
                       nullptr, OPEN_EXISTING, FILE_FLAG_OVERLAPPED, nullptr);
  }
  bool exists(const char16_t* path) { return GetFileAttributesW(path) != INVALID_FILE_ATTRIBUTES; }

  WinFilesystem filesystem;
  std::shared_ptr<sim::FaultState> faults;
  sim::Machine* machine = nullptr;
};

TEST_F(WinFilesystemTest, ReadOfADiskHandleDeliversTheSectors) {
  HANDLE disk = openDisk();
  ASSERT_NE(disk, INVALID_HANDLE_VALUE);
  std::vector<uint8_t> sector(512, 0xEE);
  uint64_t done = 0;
  EXPECT_EQ(filesystem.read(disk, 0, 512, &done, 30, sector.data()), 0u);
  EXPECT_EQ(done, 512u);
  EXPECT_EQ(sector[510], 0x55) << "the MBR's signature is on the disk";
  EXPECT_EQ(sector[511], 0xAA);
  CloseHandle(disk);
}

TEST_F(WinFilesystemTest, TimeOutCancelsTheRequestAndLeavesDoneAlone) {
  HANDLE disk = openDisk();
  ASSERT_NE(disk, INVALID_HANDLE_VALUE);
  faults->plan().hang = true;
  std::vector<uint8_t> sector(512);
  uint64_t done = 777;
  const uint64_t start = machine->clock().nowMs();
  EXPECT_EQ(filesystem.read(disk, 0, 512, &done, 5, sector.data()), 1u);
  EXPECT_EQ(done, 777u);
  // The wait lasted the five seconds asked for, on the virtual clock.
  EXPECT_EQ(machine->clock().nowMs() - start, 5000u);
  // The request no longer stands on the handle: it was cancelled, not left
  // pending with a pointer to the caller's finished OVERLAPPED record.
  auto object = std::dynamic_pointer_cast<sim::windows::IoObject>(sim::windows::Face::instance().find(disk));
  ASSERT_NE(object, nullptr);
  EXPECT_TRUE(object->pending.empty());
  CloseHandle(disk);
}

TEST_F(WinFilesystemTest, ShortTransferFailsAlthoughThePlatformSucceeded) {
  // A file of 512 bytes read as 1024: the platform reports success with the
  // 512 bytes there are.
  HANDLE file = INVALID_HANDLE_VALUE;
  ASSERT_EQ(filesystem.create("C:\\short.bin", &file, true), 0u);
  std::vector<uint8_t> buffer(1024, 0x11);
  uint64_t done = 0;
  ASSERT_EQ(filesystem.write(file, 0, 512, &done, 30, buffer.data()), 0u);
  EXPECT_EQ(filesystem.read(file, 0, 1024, &done, 30, buffer.data()), 1u);
  EXPECT_EQ(done, 512u);
  filesystem.close(file);
}

TEST_F(WinFilesystemTest, ReadAcrossTheEndOfTheDiskFails) {
  HANDLE disk = openDisk();
  ASSERT_NE(disk, INVALID_HANDLE_VALUE);
  std::vector<uint8_t> buffer(1024);
  uint64_t done = 0;
  EXPECT_EQ(filesystem.read(disk, (16384 - 1) * 512ull, 1024, &done, 30, buffer.data()), 1u);
  EXPECT_NE(done, 1024u);
  CloseHandle(disk);
}

TEST_F(WinFilesystemTest, WriteAndReadBackThroughATestFile) {
  HANDLE file = INVALID_HANDLE_VALUE;
  ASSERT_EQ(filesystem.create("C:\\probe.bin", &file, false), 0u);
  ASSERT_NE(file, INVALID_HANDLE_VALUE);
  EXPECT_EQ(filesystem.setSize(file, 1 << 20), 0u);
  std::vector<uint8_t> out(4096, 0x5A);
  std::vector<uint8_t> in(4096, 0);
  uint64_t done = 0;
  EXPECT_EQ(filesystem.write(file, 8192, 4096, &done, 30, out.data()), 0u);
  EXPECT_EQ(done, 4096u);
  EXPECT_EQ(filesystem.read(file, 8192, 4096, &done, 30, in.data()), 0u);
  EXPECT_EQ(in, out);
  EXPECT_EQ(filesystem.close(file), 0u);
  EXPECT_TRUE(exists(u"C:\\probe.bin"));
}

TEST_F(WinFilesystemTest, CreatedFileIsMarkedForRemovalAtTheNextStart) {
  HANDLE file = INVALID_HANDLE_VALUE;
  ASSERT_EQ(filesystem.create("C:\\probe.bin", &file, false), 0u);
  filesystem.close(file);
  std::vector<std::string> pending = sim::pendingRebootDeletions();
  ASSERT_EQ(pending.size(), 1u);
  EXPECT_EQ(pending[0], "C:\\probe.bin");
}

TEST_F(WinFilesystemTest, DeleteOnCloseRemovesTheFileAtClose) {
  HANDLE file = INVALID_HANDLE_VALUE;
  ASSERT_EQ(filesystem.create("C:\\temp.bin", &file, true), 0u);
  EXPECT_TRUE(exists(u"C:\\temp.bin"));
  EXPECT_EQ(filesystem.close(file), 0u);
  EXPECT_FALSE(exists(u"C:\\temp.bin"));
}

TEST_F(WinFilesystemTest, CreateOnAMissingVolumeFailsWithAnInvalidHandle) {
  HANDLE file = nullptr;
  EXPECT_EQ(filesystem.create("Q:\\probe.bin", &file, false), 1u);
  EXPECT_EQ(file, INVALID_HANDLE_VALUE);
}

TEST_F(WinFilesystemTest, ReservedNamesAreFoundAtAPathStartOrBehindABackslash) {
  EXPECT_EQ(filesystem.isReservedName("con"), 1u);
  EXPECT_EQ(filesystem.isReservedName("C:\\dir\\NUL"), 1u);
  EXPECT_EQ(filesystem.isReservedName("COM1"), 1u);
}

TEST_F(WinFilesystemTest, LptNineIsNeverFound) { EXPECT_EQ(filesystem.isReservedName("LPT9"), 0u); }

TEST_F(WinFilesystemTest, ReservedNameMustEndWell) {
  // After "CON" comes "F"; the character behind it is "I", no backslash.
  EXPECT_EQ(filesystem.isReservedName("C:\\CONFIG"), 0u);
  // One character behind the first one after the name is a backslash.
  EXPECT_EQ(filesystem.isReservedName("AUX.\\x"), 1u);
}

TEST_F(WinFilesystemTest, RemoveTreeOfAMissingDirectoryGivesZero) {
  EXPECT_EQ(filesystem.removeTree("C:\\missing"), 0u);
}

TEST_F(WinFilesystemTest, RemoveTreeStopsAtARemovableSubdirectoryAndKeepsTheOuterOne) {
  ASSERT_TRUE(CreateDirectoryW(u"C:\\outer", nullptr));
  ASSERT_TRUE(CreateDirectoryW(u"C:\\outer\\inner", nullptr));
  EXPECT_EQ(filesystem.removeTree("C:\\outer"), 1u);
  EXPECT_TRUE(exists(u"C:\\outer"));
}

TEST_F(WinFilesystemTest, RemoveTreeRemovesFilesReadOnlyOnesIncluded) {
  ASSERT_TRUE(CreateDirectoryW(u"C:\\logs", nullptr));
  HANDLE file = CreateFileW(u"C:\\logs\\a.txt", GENERIC_WRITE, 0, nullptr, CREATE_ALWAYS, 0, nullptr);
  ASSERT_NE(file, INVALID_HANDLE_VALUE);
  CloseHandle(file);
  ASSERT_TRUE(SetFileAttributesW(u"C:\\logs\\a.txt", FILE_ATTRIBUTE_READONLY));
  EXPECT_EQ(filesystem.removeTree("C:\\logs"), 0u);
  EXPECT_FALSE(exists(u"C:\\logs"));
}

TEST_F(WinFilesystemTest, CreateDirectoriesWorksFromTheCurrentDirectory) {
  std::string made;
  EXPECT_EQ(filesystem.createDirectories("work\\sub", &made), 0u);
  EXPECT_TRUE(exists(u"C:\\work\\sub"));
  EXPECT_NE(made.find("work\\sub"), std::string::npos);
  EXPECT_EQ(made.rfind("C:\\", 0), 0u) << made;
}

TEST_F(WinFilesystemTest, CreateDirectoriesOfAnEmptyPathLeavesTheOutputAlone) {
  std::string made = "untouched";
  EXPECT_EQ(filesystem.createDirectories("", &made), 0u);
  EXPECT_EQ(made, "untouched");
}

TEST_F(WinFilesystemTest, CreateDirectoriesOnAMissingVolumeFails) {
  std::string made;
  EXPECT_EQ(filesystem.createDirectories("Q:\\a\\b", &made), 1u);
}

TEST_F(WinFilesystemTest, ListFilesPrefixesTheDirectory) {
  ASSERT_TRUE(CreateDirectoryW(u"C:\\d", nullptr));
  for (const char16_t* name : {u"C:\\d\\one.log", u"C:\\d\\two.log"}) {
    HANDLE file = CreateFileW(name, GENERIC_WRITE, 0, nullptr, CREATE_ALWAYS, 0, nullptr);
    ASSERT_NE(file, INVALID_HANDLE_VALUE);
    CloseHandle(file);
  }
  std::vector<std::string> found;
  EXPECT_EQ(filesystem.listFiles("C:\\d\\*.log", &found), 0u);
  EXPECT_EQ(found, (std::vector<std::string>{"C:\\d\\one.log", "C:\\d\\two.log"}));
  EXPECT_EQ(filesystem.listFiles("", &found), 1u);
  EXPECT_TRUE(found.empty());
  EXPECT_EQ(filesystem.listFiles("C:\\d\\*.none", &found), 1u);
}

TEST_F(WinFilesystemTest, SystemDriveComesFromTheWindowsDirectory) {
  EXPECT_EQ(filesystem.getSystemDrive(), 'C');
  ASSERT_NE(filesystem.getExecutableDirectory(), nullptr);
  const std::string path = filesystem.getExecutablePath();
  const std::string directory = filesystem.getExecutableDirectory();
  EXPECT_EQ(path.compare(0, directory.size(), directory), 0);
  EXPECT_LT(directory.size(), path.size());
}

}  // namespace
