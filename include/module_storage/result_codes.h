// Result codes of a test run and the levels of a log line. The host shows its
// own text for each; the module passes only the number.
#pragma once

#include <cstdint>

enum TestResult : uint32_t {
  SUCCESS = 0,         // the test ran and passed, or a precondition holds
  FAILED = 1,          // the device failed the test
  READ_NOT_STARTED = 2,  // not a test result: a handle read that could not start
  NOT_APPLICABLE = 3,  // not performed: does not apply, or the device refused
  ABORTED = 4,         // stopped by the host, a system event or loss of the device
  WARNING = 5,         // ended early for a reason that says nothing of the device
  INVALID = 6,         // no usable component, protocol, listener or log
};

// The words of the result codes, as the module names them.
inline const char* resultName(uint32_t code) {
  switch (code) {
    case SUCCESS: return "SUCCESS";
    case FAILED: return "FAILED";
    case NOT_APPLICABLE: return "NOT_APPLICABLE";
    case ABORTED: return "ABORTED";
    case WARNING: return "WARNING";
    case INVALID: return "INVALID";
    default: return "";
  }
}

// Second argument of MessageLog::log.
enum LogLevel : uint32_t {
  LevelInfo = 0,     // announcements
  LevelWarning = 1,  // something the user should know, not a device fault
  LevelFailure = 2,  // something went wrong on the device
  LevelError = 3,    // the test can't be done
};
