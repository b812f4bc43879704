// The host objects of a run. All their calls come on the thread that called
// Test::run; only the interrupt count is written from elsewhere.
#include "host_objects.h"

#include <algorithm>
#include <cerrno>

#include "command_line.h"
#include "interrupts.h"
#include "messages.h"
#include "report.h"

namespace hwc {

std::string questionText(const InputRequest& request) {
  return "question: " + describeMessage(request.title) + ": " + describeMessage(request.text) + " (" +
         std::to_string(request.numberA) + ", " + std::to_string(request.numberB) + ")";
}

nlohmann::json recordKeys(const TestRecord& record) {
  return {{"device", record.deviceIndex}, {"deviceId", record.deviceId}, {"test", itemText(record.testId)},
          {"name", record.testKey}};
}

uint32_t AnswerSource::answer(const InputRequest& request, std::string& answeredBy) {
  if (!given_.empty()) {
    answeredBy = "--answer";
    uint32_t value = given_[std::min(next_, given_.size() - 1)];
    if (next_ < given_.size()) ++next_;
    return value;
  }
  if (terminal_ && in_ != nullptr) {
    while (!interruptRequested()) {
      if (echoQuestion_) std::fprintf(prompt_, "%s\n", questionText(request).c_str());
      std::fprintf(prompt_, "answer (a number): ");
      std::fflush(prompt_);
      char line[64] = {};
      errno = 0;
      if (std::fgets(line, sizeof(line), in_) == nullptr) break;  // end of input or Ctrl-C
      std::string text(line);
      while (!text.empty() && (text.back() == '\n' || text.back() == '\r' || text.back() == ' ')) text.pop_back();
      uint32_t value = 0;
      if (parseDecimal(text, value)) {
        answeredBy = "terminal";
        return value;
      }
      std::fprintf(prompt_, "'%s' is not a number\n", text.c_str());
    }
  }
  answeredBy = "nobody";
  return 0;
}

void CliListener::onProgress(uint8_t percent, const std::string& messageKey) {
  if (record_ != nullptr) record_->events.push_back({percent, messageKey, hostMicroseconds()});
  if (stream_ != nullptr && record_ != nullptr) {
    nlohmann::json fields = recordKeys(*record_);
    fields["percent"] = percent;
    fields["key"] = messageKey;
    fields["text"] = describeMessage(messageKey);
    stream_->emit("progress", fields);
  }
  display_.progress(percent, messageKey);
}

void CliListener::requestInput(InputRequest& request) {
  QuestionRecord question;
  question.title = request.title;
  question.text = request.text;
  question.numberA = request.numberA;
  question.numberB = request.numberB;
  display_.question("    " + questionText(request));
  question.answer = answers_.answer(request, question.answeredBy);
  request.answer = question.answer;
  display_.note("    answer " + std::to_string(question.answer) + " (" + question.answeredBy + ")");
  if (stream_ != nullptr && record_ != nullptr) {
    nlohmann::json fields = recordKeys(*record_);
    fields["title"] = question.title;
    fields["text"] = question.text;
    fields["numberA"] = question.numberA;
    fields["numberB"] = question.numberB;
    fields["answer"] = question.answer;
    fields["answeredBy"] = question.answeredBy;
    stream_->emit("question", fields);
  }
  if (record_ != nullptr) record_->questions.push_back(question);
}

void CliLog::log(std::string message, uint32_t level, void*) {
  display_.logLine(message, level);
  if (stream_ != nullptr && record_ != nullptr) {
    nlohmann::json fields = recordKeys(*record_);
    fields["level"] = level;
    fields["levelText"] = levelText(level);
    fields["message"] = message;
    fields["text"] = describeMessage(message);
    stream_->emit("log", fields);
  }
  if (record_ != nullptr) record_->log.push_back({std::move(message), level});
}

void CliListener::setRecord(TestRecord* record) {
  const uint64_t now = hostMicroseconds();
  if (record_ != nullptr && record_ != record) record_->endedUs = now;
  if (record != nullptr && record != record_) record->beganUs = now;
  record_ = record;
}

bool CliRunContext::isAbortRequested() { return interruptRequested(); }

}  // namespace hwc
