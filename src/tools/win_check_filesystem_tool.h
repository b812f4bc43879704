// The file-system check on Windows: runs the system's checker (chkdsk) on a
// partition as a child process, follows its output for progress and keeps
// the rest as the log; on the system's own partition it schedules the check
// for the next start instead, through WMI.
#pragma once

#include <cstdint>
#include <string>

#include "tools/recover_bad_sectors_operation.h"
#include "win32/win32.h"

class WinCheckFilesystemTool : public CheckFilesystemOperation {
 public:
  // Finds the checker under the system's Windows directory; when that can't
  // be read the path stays empty and every check fails to start.
  explicit WinCheckFilesystemTool(Tool* owner);

  // Checks partition `partitionIndex` of the plan: 0 for a clean volume, 9
  // when the checker repaired something, 6 when it could not run or ended
  // otherwise.
  uint32_t run(DevicePlan& plan, int partitionIndex) override;
  // Notes the request and nothing more: a running checker is never stopped;
  // the driver stops before the next partition.
  void abort() override;
  std::string getLog() override { return logText; }
  void clearLog() override { logText.clear(); }
  // Answers the checker's question at once through the shell, then schedules
  // the check at the next start with Win32_LogicalDisk.ScheduleAutoChk. True
  // exactly when that method returns 0.
  bool scheduleCheck(std::string mountPath) override;

  const std::string& getChkdskPath() const { return chkdskPath; }

  // A checker that talks this many lines without ever showing a percent is
  // ended with kGuardExitCode.
  static constexpr uint32_t kSilentLineLimit = 1000;
  static constexpr UINT kGuardExitCode = 3;

 private:
  uint32_t runCheck(std::string mountPath);

  Win32WideString unusedWide;
  std::string logText;
  std::string chkdskPath;
};

// Whether abort() was called on a check in this process. Nothing acts on it.
bool checkAbortWasRequested();
