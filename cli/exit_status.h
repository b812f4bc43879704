// hwc_cli's exit statuses, for people and for scripts.
#pragma once

namespace hwc {

constexpr int kExitPassed = 0;      // every test that ran passed
constexpr int kExitFailed = 1;      // a test found the device failing
constexpr int kExitUsage = 2;       // the command line is wrong; the message names the argument
constexpr int kExitNothingRan = 3;  // no module, no device, or every test not applicable or invalid
constexpr int kExitAborted = 4;     // stopped by the user, a system event or the loss of a device

}  // namespace hwc
