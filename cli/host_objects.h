// The host's side of a test run: the run context handed to Test::run, the
// listener that takes progress and questions, and the log. Each records into
// the TestRecord of the run and shows what happens on the display.
#pragma once

#include <cstdint>
#include <cstdio>
#include <string>
#include <vector>

#include "event_stream.h"
#include "module_storage/test.h"
#include "progress_display.h"
#include "run_record.h"

namespace hwc {

// Who answers the module's questions: the --answer values in order (the last
// one again once they run out), else a person at the terminal, else nobody.
class AnswerSource {
 public:
  // `prompt` takes the prompt; with `echoQuestion` the question is written
  // there too, for a display that does not show it (JSON output).
  AnswerSource(std::vector<uint32_t> given, bool terminal, FILE* in, FILE* prompt, bool echoQuestion)
      : given_(std::move(given)), terminal_(terminal), in_(in), prompt_(prompt), echoQuestion_(echoQuestion) {}

  // Somebody can answer: --answer was given, or input is a terminal.
  bool canAnswer() const { return !given_.empty() || terminal_; }
  // Fills the answer; `answeredBy` says where it came from.
  uint32_t answer(const InputRequest& request, std::string& answeredBy);

 private:
  std::vector<uint32_t> given_;
  size_t next_ = 0;
  bool terminal_;
  FILE* in_;
  FILE* prompt_;
  bool echoQuestion_;
};

class CliListener : public TestListener {
 public:
  CliListener(ProgressDisplay& display, AnswerSource& answers) : display_(display), answers_(answers) {}

  // The record the next events go to; null drops them (the module may only
  // speak during a run). Stamps the run's beginning and end on the record.
  void setRecord(TestRecord* record);
  // Where each event is also written as it happens (--json-lines); null: nowhere.
  void setStream(EventStream* stream) { stream_ = stream; }

  void onProgress(uint8_t percent, const std::string& messageKey) override;
  void requestInput(InputRequest& request) override;
  void reservedEvent() override {}
  bool isInteractive() override { return answers_.canAnswer(); }

 private:
  ProgressDisplay& display_;
  AnswerSource& answers_;
  TestRecord* record_ = nullptr;
  EventStream* stream_ = nullptr;
};

class CliLog : public MessageLog {
 public:
  explicit CliLog(ProgressDisplay& display) : display_(display) {}
  void setRecord(TestRecord* record) { record_ = record; }
  void setStream(EventStream* stream) { stream_ = stream; }
  void log(std::string message, uint32_t level, void* reserved) override;

 private:
  ProgressDisplay& display_;
  TestRecord* record_ = nullptr;
  EventStream* stream_ = nullptr;
};

// Borrows its component, listener and log for one run. An abort is asked by
// Ctrl-C; this host has no system events to report.
class CliRunContext : public TestRunContext {
 public:
  CliRunContext(SystemComponent* component, TestListener* listener, MessageLog* log)
      : component_(component), listener_(listener), log_(log) {}

  SystemComponent* getComponent() override { return component_; }
  MessageLog* getMessageLog() override { return log_; }
  TestListener* getTestListener() override { return listener_; }
  void reservedA() override {}
  void reservedB() override {}
  bool isAbortRequested() override;
  const uint8_t* getSystemEvents() override { return nullptr; }

 private:
  SystemComponent* component_;
  TestListener* listener_;
  MessageLog* log_;
};

// The question as a person reads it, with its two numbers.
std::string questionText(const InputRequest& request);

// Which device and test an event of a run belongs to, for --json-lines.
nlohmann::json recordKeys(const TestRecord& record);

}  // namespace hwc
