// hwc_cli on disk-image files, end to end through the built library: a 1 GiB
// sparse image with a GPT is listed with its size and partitions and passes
// the quick read tests, and nothing is written to it.
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <array>
#include <cstdio>
#include <string>

#include "testing/disk_images.h"

namespace {

constexpr uint64_t kGiB = 1024ull * 1024 * 1024;

struct CliRun {
  int status = -1;
  std::string output;
};

// Runs hwc_cli with `arguments` (already quoted for the shell), standard
// error joined to the output.
CliRun hwcCli(const std::string& arguments) {
  CliRun run;
  const std::string command = std::string("env -u MODULE_STORAGE_MACHINE -u MODULE_STORAGE_DISKS ") + HWC_CLI_PATH +
                              " --module " + MODULE_STORAGE_LIBRARY_PATH + " " + arguments + " 2>&1";
  FILE* pipe = ::popen(command.c_str(), "r");
  if (pipe == nullptr) return run;
  std::array<char, 4096> chunk{};
  size_t got = 0;
  while ((got = std::fread(chunk.data(), 1, chunk.size(), pipe)) > 0) run.output.append(chunk.data(), got);
  const int status = ::pclose(pipe);
  run.status = WIFEXITED(status) ? WEXITSTATUS(status) : -1;
  return run;
}

struct timespec modified(const std::string& path) {
  struct stat info {};
  ::stat(path.c_str(), &info);
  return info.st_mtim;
}

class HwcCliOnImages : public ::testing::Test {
 protected:
  void SetUp() override {
    image = folder.file("disk.raw");
    ASSERT_TRUE(mstest::makeSparseImage(image, kGiB));
    mstest::ImagePartition root{2048, 409600, 0, mstest::linuxFileSystemType(), "root"};
    mstest::ImagePartition data{411648, 614400, 0, mstest::basicDataType(), "data"};
    ASSERT_TRUE(mstest::writeGpt(image, {root, data}));
  }

  mstest::TemporaryFolder folder;
  std::string image;
};

TEST_F(HwcCliOnImages, ListDescribesTheImageWithItsSizeAndGptPartitions) {
  const CliRun run = hwcCli("-Mstorage --disk " + image + " --list");
  EXPECT_EQ(run.status, 0) << run.output;
  EXPECT_NE(run.output.find("hwc_cli: machine: the disks given by --disk"), std::string::npos) << run.output;
  EXPECT_NE(run.output.find("Devices: 1"), std::string::npos) << run.output;
  EXPECT_NE(run.output.find("Size: 1.00 GB"), std::string::npos) << run.output;
  EXPECT_NE(run.output.find("Partition scheme: GPT"), std::string::npos) << run.output;
  EXPECT_NE(run.output.find("LINUX FILE SYSTEM DATA"), std::string::npos) << run.output;
  EXPECT_NE(run.output.find("WINDOWS BASIC DATA PARTITION"), std::string::npos) << run.output;
  EXPECT_NE(run.output.find("Serial number: disk.raw"), std::string::npos) << run.output;
}

TEST_F(HwcCliOnImages, TheQuickReadTestsPassAndLeaveTheImageUntouched) {
  const struct timespec before = modified(image);
  const std::vector<uint8_t> table = mstest::readImage(image, 0, 34 * 512);
  const CliRun run = hwcCli("-Mstorage -Q\"r,f\" --disk " + image);
  EXPECT_EQ(run.status, 0) << run.output;
  EXPECT_NE(run.output.find("Random Seek Test: Passed"), std::string::npos) << run.output;
  EXPECT_NE(run.output.find("Funnel Seek Test: Passed"), std::string::npos) << run.output;
  const struct timespec after = modified(image);
  EXPECT_EQ(before.tv_sec, after.tv_sec);
  EXPECT_EQ(before.tv_nsec, after.tv_nsec);
  EXPECT_EQ(mstest::readImage(image, 0, 34 * 512), table);
}

TEST_F(HwcCliOnImages, TwoImagesAreTwoDisksInTheOrderGiven) {
  const std::string second = folder.file("second.raw");
  ASSERT_TRUE(mstest::makeSparseImage(second, 64ull * 1024 * 1024));
  const CliRun run = hwcCli("-Mstorage --disk " + image + " --disk " + second + " --list");
  EXPECT_EQ(run.status, 0) << run.output;
  EXPECT_NE(run.output.find("Devices: 2"), std::string::npos) << run.output;
  const size_t first = run.output.find("Serial number: disk.raw");
  const size_t next = run.output.find("Serial number: second.raw");
  ASSERT_NE(first, std::string::npos) << run.output;
  ASSERT_NE(next, std::string::npos) << run.output;
  EXPECT_LT(first, next);
}

TEST_F(HwcCliOnImages, AMissingImageIsAUsageError) {
  const CliRun run = hwcCli("-Mstorage --disk " + folder.file("absent.raw") + " --list");
  EXPECT_EQ(run.status, 2) << run.output;
  EXPECT_NE(run.output.find("does not exist"), std::string::npos) << run.output;
}

}  // namespace
