// Host-side objects for tests: a listener and a log that record every event
// and line in order, and a run context whose abort flag and system-event byte
// a test can change at any moment.
#pragma once

#include <cstdint>
#include <functional>
#include <string>
#include <vector>

#include "module_storage/test.h"

namespace mstest {

struct ProgressEvent {
  uint8_t percent;
  std::string key;
  bool operator==(const ProgressEvent& other) const { return percent == other.percent && key == other.key; }
};

struct LogLine {
  std::string message;
  uint32_t level;
  bool operator==(const LogLine& other) const { return message == other.message && level == other.level; }
};

class RecordingListener : public TestListener {
 public:
  void onProgress(uint8_t percent, const std::string& messageKey) override;
  // Answers with the next queued answer (0 when the queue is empty) and keeps
  // the question.
  void requestInput(InputRequest& request) override;
  void reservedEvent() override { ++reservedEvents; }
  bool isInteractive() override { return interactive; }

  // Events whose key is not empty, in order.
  std::vector<ProgressEvent> keyedEvents() const;

  std::vector<ProgressEvent> events;
  struct Question {
    std::string title;
    std::string text;
    uint32_t numberA;
    uint32_t numberB;
  };
  std::vector<Question> questions;
  std::vector<uint32_t> answers;  // consumed front to back
  bool interactive = false;
  int reservedEvents = 0;
  // Called after each recorded event, so a test can act in the middle of a run.
  std::function<void(const ProgressEvent&)> onEvent;

 private:
  size_t nextAnswer = 0;
};

class RecordingLog : public MessageLog {
 public:
  void log(std::string message, uint32_t level, void* reserved) override;
  std::vector<LogLine> lines;
  int nonNullReserved = 0;  // counts calls whose reserved pointer was not null
};

// A run context a test controls. Component, listener and log are borrowed.
class ScriptedRunContext : public TestRunContext {
 public:
  ScriptedRunContext(SystemComponent* component, TestListener* listener, MessageLog* log)
      : component_(component), listener_(listener), log_(log) {}

  SystemComponent* getComponent() override { return component_; }
  MessageLog* getMessageLog() override { return log_; }
  TestListener* getTestListener() override { return listener_; }
  void reservedA() override {}
  void reservedB() override {}
  bool isAbortRequested() override;
  const uint8_t* getSystemEvents() override { return hasSystemEvents ? &systemEvents : nullptr; }

  void setComponent(SystemComponent* component) { component_ = component; }
  void setListener(TestListener* listener) { listener_ = listener; }
  void setLog(MessageLog* log) { log_ = log; }

  bool abortRequested = false;
  // Makes isAbortRequested turn true on its Nth call (1-based); 0 never.
  int abortOnCall = 0;
  int abortQueries = 0;
  uint8_t systemEvents = 0;
  bool hasSystemEvents = true;

 private:
  SystemComponent* component_;
  TestListener* listener_;
  MessageLog* log_;
};

}  // namespace mstest
