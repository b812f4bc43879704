// WinCheckFilesystemTool: chkdsk as a child process on an anonymous pipe,
// read one byte at a time so that a carriage return alone ends a progress
// line at once; and the boot-time check through WMI for the partition the
// system runs from.
#include "tools/win_check_filesystem_tool.h"

#include <vector>

#include "system/scoped_handle.h"
#include "system/wide_text.h"
#include "system/win_cim.h"
#include "tools/tool_status.h"
#include "tools/win_check_filesystem_output.h"

namespace {

// Set by abort and read by nothing: a check in progress runs to its end.
uint8_t checkAbortRequested = 0;

constexpr UINT kWindowsDirectoryLength = 256;
constexpr DWORD kPipeSettleMs = 100;
constexpr DWORD kCheckerCreationFlags = CREATE_NO_WINDOW | NORMAL_PRIORITY_CLASS;  // 0x8000020
constexpr DWORD kCheckerCleanExit = 0;
constexpr DWORD kCheckerRepairedExit = 1;
constexpr int kNoPercent = -1;
constexpr int kMaxPercent = 100;

// The checker writes in the OEM code page; the log is UTF-8. Text the
// conversion refuses is kept as it came.
std::string oemToNarrow(const std::string& line) {
  if (line.empty()) return line;
  const int length = static_cast<int>(line.size());
  const int wideLength = MultiByteToWideChar(CP_OEMCP, 0, line.data(), length, nullptr, 0);
  if (wideLength <= 0) return line;
  Win32WideString wide(static_cast<size_t>(wideLength), WCHAR{0});
  if (MultiByteToWideChar(CP_OEMCP, 0, line.data(), length, &wide[0], wideLength) != wideLength) return line;
  const int narrowLength = WideCharToMultiByte(CP_UTF8, 0, wide.data(), wideLength, nullptr, 0, nullptr, nullptr);
  if (narrowLength <= 0) return line;
  std::string narrow(static_cast<size_t>(narrowLength), '\0');
  if (WideCharToMultiByte(CP_UTF8, 0, wide.data(), wideLength, &narrow[0], narrowLength, nullptr, nullptr) !=
      narrowLength) {
    return line;
  }
  return narrow;
}

// Releases a COM object if there is one.
template <typename Interface>
void release(Interface* object) {
  if (object != nullptr) object->Release();
}

}  // namespace

bool checkAbortWasRequested() { return checkAbortRequested != 0; }

WinCheckFilesystemTool::WinCheckFilesystemTool(Tool* owner) : CheckFilesystemOperation(owner) {
  WCHAR directory[kWindowsDirectoryLength] = {};
  const UINT length = GetSystemWindowsDirectoryW(directory, kWindowsDirectoryLength);
  if (length != 0 && length < kWindowsDirectoryLength) {
    chkdskPath = wideToUtf8(directory) + "\\system32\\chkdsk.exe";
  }
}

void WinCheckFilesystemTool::abort() { checkAbortRequested = 1; }

uint32_t WinCheckFilesystemTool::run(DevicePlan& plan, int partitionIndex) {
  logText.clear();
  if (partitionIndex < 0 || static_cast<size_t>(partitionIndex) >= plan.partitions.size()) {
    return kToolStatusCannotStart;
  }
  return runCheck(plan.partitions[static_cast<size_t>(partitionIndex)].mountPath);
}

uint32_t WinCheckFilesystemTool::runCheck(std::string mountPath) {
  // The child gets the read end as its input and the write end as its
  // output and error; both ends are inheritable.
  SECURITY_ATTRIBUTES security{};
  security.nLength = sizeof(security);
  security.bInheritHandle = TRUE;
  // Every handle of the run is held by an owner, so that a host handler that
  // throws during the run leaves nothing open.
  ScopedHandle readEnd;
  ScopedHandle writeEnd;
  if (!CreatePipe(readEnd.put(), writeEnd.put(), &security, 0)) return kToolStatusCannotStart;

  mountPath = shortenMountPath(mountPath);
  const std::string command = chkdskPath + " " + mountPath + " /F";
  Win32WideString wideCommand = utf8ToWide(command.c_str());
  std::vector<WCHAR> commandLine(wideCommand.begin(), wideCommand.end());
  commandLine.push_back(0);

  STARTUPINFOW startup{};
  startup.cb = sizeof(startup);
  startup.dwFlags = STARTF_USESTDHANDLES;
  startup.hStdInput = readEnd.get();
  startup.hStdOutput = writeEnd.get();
  startup.hStdError = writeEnd.get();
  PROCESS_INFORMATION child{};
  if (!CreateProcessW(nullptr, commandLine.data(), nullptr, nullptr, TRUE, kCheckerCreationFlags, nullptr, nullptr,
                      &startup, &child)) {
    return kToolStatusCannotStart;  // both pipe ends close here
  }
  ScopedHandle childProcess(child.hProcess);
  ScopedHandle childThread(child.hThread);

  Sleep(kPipeSettleMs);
  // Only the child writes from now on, so the pipe breaks when it ends.
  writeEnd.reset();

  int lastPercent = 0;
  uint32_t lineCount = 0;
  bool sawPercent = false;
  std::string line;
  std::string rawLog;
  bool lastReadGaveByte = true;
  for (;;) {
    DWORD exitCode = 0;
    const bool ended = !GetExitCodeProcess(child.hProcess, &exitCode) || exitCode != STILL_ACTIVE;
    if (ended && !lastReadGaveByte) break;

    char byte = 0;
    DWORD got = 0;
    lastReadGaveByte = ReadFile(readEnd.get(), &byte, 1, &got, nullptr) && got == 1;
    if (!lastReadGaveByte) continue;
    line += byte;
    if (byte != '\n' && byte != '\r') continue;

    const int percent = parseCheckerPercent(line);
    if (percent >= lastPercent && percent <= kMaxPercent) {
      // A progress line: shown, not logged.
      reportProgress(std::to_string(percent));
      lastPercent = percent;
      sawPercent = true;
    } else if (percent == kNoPercent) {
      // Talk. A lone CR or LF ends a line too, so "\r\n" counts twice. A
      // checker that has once shown a percent may talk on for ever.
      ++lineCount;
      if (lineCount == kSilentLineLimit && !sawPercent) TerminateProcess(child.hProcess, kGuardExitCode);
      rawLog += oemToNarrow(line);
    }
    // A number above 100 or below the last one is neither shown nor logged.
    line.clear();
  }

  readEnd.reset();
  DWORD exitCode = STILL_ACTIVE;
  GetExitCodeProcess(child.hProcess, &exitCode);
  childThread.reset();
  childProcess.reset();

  uint32_t status = kToolStatusCannotStart;
  if (exitCode == kCheckerCleanExit) {
    status = kToolStatusClean;
  } else if (exitCode == kCheckerRepairedExit) {
    status = kToolStatusRepaired;
  }
  logText = cleanCheckerLog(rawLog);
  return status;
}

bool WinCheckFilesystemTool::scheduleCheck(std::string mountPath) {
  mountPath = shortenMountPath(mountPath);
  // Answers the checker's "schedule at next start?" at once; its result
  // doesn't count, the WMI call below does.
  const std::string shell = "cmd.exe /C cd " + mountPath + "\\Windows\\System32 & (echo 1|chkdsk.exe " + mountPath +
                            " /F)";
  WinExec(shell.c_str(), SW_HIDE);

  WinCim cim;
  IWbemLocator* locator = nullptr;
  IWbemServices* services = nullptr;
  IWbemClassObject* diskClass = nullptr;
  if (cim.openClass("ROOT\\CIMV2", "Win32_LogicalDisk", &locator, &services, &diskClass) != kCimSuccess) {
    return false;
  }

  bool scheduled = false;
  IWbemClassObject* inSignature = nullptr;
  IWbemClassObject* inParameters = nullptr;
  IWbemClassObject* outParameters = nullptr;
  if (SUCCEEDED(diskClass->GetMethod(WIN32_WIDE("ScheduleAutoChk"), 0, &inSignature, nullptr)) &&
      inSignature != nullptr && SUCCEEDED(inSignature->SpawnInstance(0, &inParameters)) &&
      inParameters != nullptr) {
    // LogicalDisk: a one-dimensional array of one BSTR, "C:".
    bool parameterSet = false;
    SAFEARRAY* drives = SafeArrayCreateVector(VT_BSTR, 0, 1);
    if (drives != nullptr) {
      BSTR drive = SysAllocString(utf8ToWide(mountPath.c_str()).c_str());
      LONG index = 0;
      const bool stored = drive != nullptr && SUCCEEDED(SafeArrayPutElement(drives, &index, drive));
      SysFreeString(drive);
      VARIANT parameter;
      VariantInit(&parameter);
      parameter.vt = VT_ARRAY | VT_BSTR;
      parameter.parray = drives;
      parameterSet = stored && SUCCEEDED(inParameters->Put(WIN32_WIDE("LogicalDisk"), 0, &parameter, 0));
      VariantClear(&parameter);  // destroys the array
    }
    BSTR className = SysAllocString(WIN32_WIDE("Win32_LogicalDisk"));
    BSTR methodName = SysAllocString(WIN32_WIDE("ScheduleAutoChk"));
    if (parameterSet &&
        SUCCEEDED(services->ExecMethod(className, methodName, 0, nullptr, inParameters, &outParameters, nullptr)) &&
        outParameters != nullptr) {
      VARIANT returned;
      VariantInit(&returned);
      if (SUCCEEDED(outParameters->Get(WIN32_WIDE("ReturnValue"), 0, &returned, nullptr, nullptr))) {
        scheduled = (returned.vt == VT_I4 || returned.vt == VT_UI4) && returned.lVal == 0;
      }
      VariantClear(&returned);
    }
    SysFreeString(methodName);
    SysFreeString(className);
  }
  release(outParameters);
  release(inParameters);
  release(inSignature);
  cim.closeClass(locator, services, diskClass);
  return scheduled;
}
