// What the front end keeps of a session: each test run on each device with
// its events, log lines and questions, for the summary and the JSON document.
#pragma once

#include <chrono>
#include <cstdint>
#include <string>
#include <vector>

#include "module_storage/item_id.h"

namespace hwc {

struct ProgressRecord {
  uint32_t percent = 0;
  std::string key;
  uint64_t atUs = 0;  // when it came, on hostMicroseconds()
};

struct LogRecord {
  std::string message;
  uint32_t level = 0;
};

struct QuestionRecord {
  std::string title;
  std::string text;
  uint32_t numberA = 0;
  uint32_t numberB = 0;
  uint32_t answer = 0;
  std::string answeredBy;  // "--answer", "terminal", "nobody"
};

// How a selected test ended up on one device.
enum class RunOutcome {
  Ran,           // run() was called; `result` is its verdict
  NotSupported,  // isSupported said no; counted as NOT_APPLICABLE
  NotRun,        // skipped after the user stopped the session
  Error,         // the module threw; counted as INVALID
};

struct TestRecord {
  uint32_t deviceIndex = 0;
  std::string deviceId;  // the component's own id, which --list shows as "(id N)"
  std::string deviceName;
  ItemId testId;
  std::string testKey;        // the test's name key, or its number when the module has no names
  std::string diagnosticKey;  // the diagnostic's name key
  RunOutcome outcome = RunOutcome::Ran;
  uint32_t result = 0;
  std::string errorText;  // for RunOutcome::Error
  std::vector<ProgressRecord> events;
  std::vector<LogRecord> log;
  std::vector<QuestionRecord> questions;
  // When run() was called and returned, on hostMicroseconds(); 0 when it was not.
  uint64_t beganUs = 0;
  uint64_t endedUs = 0;

  // The last non-empty message key of the run: what the summary shows.
  std::string lastMessage() const;
  // The run ended ABORTED because the device stopped answering, not because
  // anybody asked it to stop.
  bool deviceLost() const;
};

// This computer's monotonic clock in microseconds, for the timing of a run's
// events: the host cannot see the clock of a simulated PC, so times are the
// host's own.
inline uint64_t hostMicroseconds() {
  return static_cast<uint64_t>(
      std::chrono::duration_cast<std::chrono::microseconds>(std::chrono::steady_clock::now().time_since_epoch())
          .count());
}

// "1.1.4"
std::string itemText(const ItemId& id);

}  // namespace hwc
