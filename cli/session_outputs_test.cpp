// The files and lines hwc_cli adds to a session, run as a process against the
// real module on the built-in simulated PC: --version, the one-line-per-disk
// start of --list, and --report/--metrics, which are checked before any
// device is touched.
#include "session_outputs.h"

#include <sys/wait.h>

#include <gtest/gtest.h>

#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <sstream>

#include "command_line.h"
#include "module_storage/result_codes.h"

namespace hwc {
namespace {

struct Outcome {
  int status = -1;
  std::string out;
  std::string err;
};

std::string slurp(const std::string& path) {
  std::ifstream in(path);
  std::stringstream text;
  text << in.rdbuf();
  return text.str();
}

bool contains(const std::string& text, const std::string& part) { return text.find(part) != std::string::npos; }

// Runs hwc_cli on the real module with the arguments (already quoted for the
// shell) and collects its output through files.
Outcome hwcCli(const std::string& arguments) {
  const std::string base = ::testing::TempDir() + "hwc_outputs_" +
                           ::testing::UnitTest::GetInstance()->current_test_info()->name();
  const std::string command = std::string("env -u MODULE_STORAGE_MACHINE '") + HWC_CLI_PATH + "' --module '" +
                              MODULE_STORAGE_LIBRARY_PATH + "' " + arguments + " >'" + base + ".out' 2>'" + base +
                              ".err' </dev/null";
  const int raw = std::system(command.c_str());
  Outcome outcome;
  outcome.status = WIFEXITED(raw) ? WEXITSTATUS(raw) : -1;
  outcome.out = slurp(base + ".out");
  outcome.err = slurp(base + ".err");
  std::remove((base + ".out").c_str());
  std::remove((base + ".err").c_str());
  return outcome;
}

TEST(SessionOutputs, VersionNamesTheProgramAndExitsZero) {
  Outcome run = hwcCli("--version");
  EXPECT_EQ(run.status, 0) << run.err;
  EXPECT_EQ(run.out, versionText() + "\n");
  EXPECT_TRUE(contains(run.out, "hwc_cli 4.13.0")) << run.out;
}

TEST(SessionOutputs, ListStartsWithOneLinePerDiskThenTheDetails) {
  Outcome run = hwcCli("-Mstorage --machine default --list");
  EXPECT_EQ(run.status, 0) << run.err;
  std::istringstream lines(run.out);
  std::string line;
  while (std::getline(lines, line) && line.rfind("Devices:", 0) != 0) {
  }
  EXPECT_EQ(line, "Devices: 7");
  std::getline(lines, line);
  EXPECT_EQ(line, "  #  KIND  BUS   MODEL                 SIZE        HEALTH");
  std::getline(lines, line);
  EXPECT_EQ(line, "  0  HDD   ATA   WDC WD10EZEX-08WN4A0  931.51 GBs  -");
  for (int i = 1; i < 7; ++i) std::getline(lines, line);
  EXPECT_EQ(line, "  6  HDD   USB   ST1000LM035-1RK172    931.51 GBs  -");
  std::getline(lines, line);
  EXPECT_EQ(line, "Details:");
  std::getline(lines, line);
  EXPECT_EQ(line.rfind("  [0] WDC WD10EZEX-08WN4A0", 0), 0u) << line;
}

TEST(SessionOutputs, DiskLineShowsTheSmartVerdictOnceKnown) {
  DeviceFacts disk;
  disk.index = 2;
  disk.description.details = {{"MODEL", "M"}, {"SIZE", "1.00 TBs"}};
  TestRecord smart;
  smart.deviceIndex = 2;
  smart.testKey = "SMART_STATUS_TEST";
  smart.result = FAILED;
  char buffer[512] = {};
  FILE* out = fmemopen(buffer, sizeof(buffer) - 1, "w");
  ASSERT_NE(out, nullptr);
  printDeviceLines(out, {disk}, {smart});
  std::fclose(out);
  EXPECT_EQ(std::string(buffer),
            "  #  KIND  BUS  MODEL  SIZE      HEALTH\n"
            "  2  -     -    M      1.00 TBs  SMART FAILING\n");
}

TEST(SessionOutputs, UnwritableReportStopsTheSessionBeforeAnyTest) {
  Outcome run = hwcCli("-Mstorage --machine default -Qm --report /nonexistent-folder/r.html");
  EXPECT_EQ(run.status, 2);
  EXPECT_TRUE(contains(run.err, "cannot write '/nonexistent-folder/r.html' given to --report")) << run.err;
  EXPECT_FALSE(contains(run.out, "started")) << run.out;
  Outcome same = hwcCli("-Mstorage --machine default -Qm --report x.out --metrics x.out");
  EXPECT_EQ(same.status, 2);
  EXPECT_TRUE(contains(same.err, "name the same file")) << same.err;
  Outcome empty = hwcCli("-Mstorage --machine default -Qm --metrics=");
  EXPECT_EQ(empty.status, 2);
  EXPECT_TRUE(contains(empty.err, "empty file name in '--metrics='")) << empty.err;
}

TEST(SessionOutputs, TargetedReadOnDiskZeroIsReportedAndCounted) {
  const std::string report = ::testing::TempDir() + "hwc_outputs_report.html";
  const std::string metrics = ::testing::TempDir() + "hwc_outputs_metrics.prom";
  Outcome run = hwcCli("-Mstorage --machine default -Q\"m,t\" 0 --report '" + report + "' --metrics '" + metrics + "'");
  EXPECT_EQ(run.status, 1) << run.err;
  const std::string page = slurp(report);
  EXPECT_TRUE(contains(page, "id=\"surface-map-0\"")) << "no map in " << report;
  EXPECT_TRUE(contains(page, "Unreadable sector at LBA 193,536,017, found by the Targeted Read Test (zone 9)"));
  EXPECT_TRUE(contains(page, "The SMART Status Test passed."));
  const std::string text = slurp(metrics);
  EXPECT_TRUE(contains(text, "hwc_storage_disk_unreadable_sectors{disk=\"0\",model=\"WDC WD10EZEX-08WN4A0\","
                             "serial=\"WD-WCC6Y3KL5627\"} 1\n"))
      << text;
  EXPECT_TRUE(contains(text, "test=\"1.1.2\",name=\"TARGETED_READ_TEST\"} 1\n")) << text;
  EXPECT_TRUE(contains(text, "hwc_storage_run_exit_status 1\n")) << text;
  std::remove(report.c_str());
  std::remove(metrics.c_str());
}

// Every option of the usage text has its entry in the manual page, so that
// the two cannot drift apart unnoticed.
TEST(SessionOutputs, ManualPageNamesEveryOptionOfTheUsageText) {
  const std::string manual = slurp(HWC_CLI_MANUAL_PATH);
  ASSERT_FALSE(manual.empty()) << HWC_CLI_MANUAL_PATH;
  EXPECT_EQ(manual.rfind(".\\\"", 0), 0u) << "starts with a comment line";
  EXPECT_TRUE(contains(manual, ".TH HWC_CLI 1 "));
  // groff writes a dash in an option as \-.
  std::istringstream usage(usageText());
  std::string line;
  int options = 0;
  while (std::getline(usage, line)) {
    const size_t dashes = line.find("  --");
    if (dashes == std::string::npos) continue;
    size_t end = line.find_first_of(" ,=", dashes + 4);
    const std::string option = line.substr(dashes + 2, end - dashes - 2);
    std::string escaped;
    for (char c : option) escaped += c == '-' ? std::string("\\-") : std::string(1, c);
    EXPECT_TRUE(contains(manual, escaped)) << "the manual lacks " << option;
    ++options;
  }
  EXPECT_GE(options, 10) << "the usage text lists the long options";
  for (int status = 0; status <= 5; ++status) {
    EXPECT_TRUE(contains(manual, ".B " + std::to_string(status) + "\n")) << "exit status " << status;
  }
}

}  // namespace
}  // namespace hwc
