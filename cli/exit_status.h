// hwc_cli's exit statuses, for people and for scripts.
#pragma once

#include <initializer_list>

namespace hwc {

constexpr int kExitPassed = 0;      // every test that ran passed
constexpr int kExitFailed = 1;      // a test found the device failing
constexpr int kExitUsage = 2;       // the command line or the machine description is wrong; the message names it
constexpr int kExitNothingRan = 3;  // no module, no device, or every test not applicable or invalid
constexpr int kExitAborted = 4;     // stopped by the user (Ctrl-C) or a system event
constexpr int kExitDeviceLost = 5;  // a device stopped answering during a test or the tool, or gave nothing to read

// The worse of two statuses, in the order a person acts on them: a failing
// device, a lost one, a stop, a pass; nothing ran only if neither ran.
inline int worseExit(int a, int b) {
  for (int status : {kExitUsage, kExitFailed, kExitDeviceLost, kExitAborted, kExitPassed}) {
    if (a == status || b == status) return status;
  }
  return kExitNothingRan;
}

}  // namespace hwc
