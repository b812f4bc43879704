// WinCheckFilesystemTool on a real Win32 (Windows or Wine): the checker as a
// child process on an anonymous pipe, its progress and log, its exit status,
// and the guard against a checker that never shows progress. The checker is
// the stand-in built beside this program (testing/checker_stand_in.c), which
// `make test-wine` puts where the system's chkdsk.exe is looked for in its
// own Wine prefix; elsewhere these tests are skipped. The same plumbing is
// tested on the simulated PC in win_check_filesystem_tool_test.cpp.
#include <windows.h>

#include <gtest/gtest.h>

#include <fstream>
#include <iterator>
#include <string>
#include <vector>

#include "tools/recover_bad_sectors.h"
#include "tools/tool_status.h"
#include "tools/tool_test_support.h"
#include "tools/win_check_filesystem_tool.h"

namespace {

using List = std::vector<std::string>;

std::vector<char> fileBytes(const std::string& path) {
  std::ifstream file(path, std::ios::binary);
  return std::vector<char>(std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>());
}

std::string programFolder() {
  char path[MAX_PATH] = {};
  const DWORD length = GetModuleFileNameA(nullptr, path, MAX_PATH);
  std::string text(path, length);
  return text.substr(0, text.rfind('\\'));
}

class CheckFilesystemOnWindowsTest : public ::testing::Test {
 protected:
  void SetUp() override {
    const std::vector<char> standIn = fileBytes(programFolder() + "\\checker_stand_in.exe");
    const std::vector<char> installed = fileBytes(checker.getChkdskPath());
    if (standIn.empty() || installed != standIn) {
      GTEST_SKIP() << checker.getChkdskPath() << " is not the stand-in checker (make test-wine installs it)";
    }
    char temporary[MAX_PATH + 1] = {};
    ASSERT_GT(GetTempPathA(MAX_PATH + 1, temporary), 0u);
    argumentsFile = std::string(temporary) + "checker_arguments_" + std::to_string(GetCurrentProcessId()) + ".txt";
    DeleteFileA(argumentsFile.c_str());
    SetEnvironmentVariableA("CHECKER_STAND_IN_ARGS", argumentsFile.c_str());
  }
  void TearDown() override {
    SetEnvironmentVariableA("CHECKER_STAND_IN_OUTPUT", nullptr);
    SetEnvironmentVariableA("CHECKER_STAND_IN_EXIT", nullptr);
    SetEnvironmentVariableA("CHECKER_STAND_IN_ARGS", nullptr);
    SetEnvironmentVariableA("CHECKER_STAND_IN_LINGER_MS", nullptr);
    if (!argumentsFile.empty()) DeleteFileA(argumentsFile.c_str());
  }

  // The checker writes `output` (escapes \r, \n) and ends with `exitCode`.
  void script(const std::string& output, int exitCode) {
    SetEnvironmentVariableA("CHECKER_STAND_IN_OUTPUT", output.c_str());
    SetEnvironmentVariableA("CHECKER_STAND_IN_EXIT", std::to_string(exitCode).c_str());
  }

  uint32_t check(const std::string& mountPath) {
    DevicePlan plan;
    plan.id = "6";
    plan.name = "disk 6";
    PartitionPlan partition;
    partition.name = "DATA";
    partition.mountPath = mountPath;
    plan.partitions.push_back(partition);
    checker.setListener(&sink);
    return checker.run(plan, 0);
  }

  std::string arguments() {
    const std::vector<char> bytes = fileBytes(argumentsFile);
    return std::string(bytes.begin(), bytes.end());
  }

  RecoverBadSectors owner{ItemId(50, 0, 0)};
  tooltest::RecordingToolSink sink;
  WinCheckFilesystemTool checker{&owner};
  std::string argumentsFile;
};

TEST_F(CheckFilesystemOnWindowsTest, CheckerIsLookedForUnderTheSystemWindowsFolder) {
  char windows[MAX_PATH] = {};
  const UINT length = GetSystemWindowsDirectoryA(windows, MAX_PATH);
  ASSERT_GT(length, 0u);
  EXPECT_EQ(checker.getChkdskPath(), std::string(windows, length) + "\\system32\\chkdsk.exe");
}

TEST_F(CheckFilesystemOnWindowsTest, CleanCheckerGivesItsProgressItsLogAndStatusClean) {
  script("Checking D:\\r\\n10 percent complete.\\r50 percent complete.\\r100 percent complete.\\r\\n"
         "Windows has scanned the file system and found no problems.\\r\\n",
         0);
  EXPECT_EQ(check("D:\\"), kToolStatusClean);
  EXPECT_EQ(arguments(), "D: /F") << "the mount path without its backslash, and the repair switch";
  EXPECT_EQ(sink.progress(), (List{"10", "50", "100"}));
  EXPECT_NE(checker.getLog().find("Checking D:"), std::string::npos) << checker.getLog();
  EXPECT_NE(checker.getLog().find("found no problems"), std::string::npos) << checker.getLog();
  EXPECT_EQ(checker.getLog().find('\r'), std::string::npos) << "carriage returns are dropped from the log";
  EXPECT_EQ(checker.getLog().find("percent"), std::string::npos) << "progress lines are shown, not logged";
}

TEST_F(CheckFilesystemOnWindowsTest, ALineOfTwelveGivesProgressTwelveAndALaterNineShowsNothingAndLogsNothing) {
  script("12 percent complete.\\r9 files processed.\\r\\nWindows has scanned the file system.\\r\\n", 0);
  EXPECT_EQ(check("D:\\"), kToolStatusClean);
  EXPECT_EQ(sink.progress(), List{"12"});
  EXPECT_EQ(checker.getLog(), "\nWindows has scanned the file system.");
}

TEST_F(CheckFilesystemOnWindowsTest, ExitOneMeansRepaired) {
  script("Windows has made corrections to the file system.\\r\\n", 1);
  EXPECT_EQ(check("D:\\"), kToolStatusRepaired);
}

TEST_F(CheckFilesystemOnWindowsTest, AnyOtherExitMeansTheCheckCouldNotRun) {
  script("Cannot lock the volume.\\r\\n", 2);
  EXPECT_EQ(check("D:\\"), kToolStatusCannotStart);
  EXPECT_NE(checker.getLog().find("Cannot lock the volume."), std::string::npos);
}

TEST_F(CheckFilesystemOnWindowsTest, CheckerThatTalksAThousandLinesWithoutProgressIsEnded) {
  std::string talk;
  for (int i = 0; i < 1100; ++i) talk += "segment\\n";
  script(talk, 0);
  // The stand-in stays alive after its talk, so only the guard can end it early.
  SetEnvironmentVariableA("CHECKER_STAND_IN_LINGER_MS", "20000");
  const ULONGLONG start = GetTickCount64();
  // Ended with the guard's status, which is no clean or repaired exit.
  EXPECT_EQ(check("D:\\"), kToolStatusCannotStart);
  EXPECT_LT(GetTickCount64() - start, 15000u) << "ended by the guard, not by itself";
  EXPECT_TRUE(sink.progress().empty());
}

TEST_F(CheckFilesystemOnWindowsTest, PartitionOutsideThePlanDoesNotStartTheChecker) {
  script("10 percent complete.\\r\\n", 0);
  DevicePlan plan;
  checker.setListener(&sink);
  EXPECT_EQ(checker.run(plan, 0), kToolStatusCannotStart);
  EXPECT_TRUE(arguments().empty()) << "the checker never ran";
}

}  // namespace
