// Recording host objects for the module's tests.
#include "testing/recording_host.h"

namespace mstest {

void RecordingListener::onProgress(uint8_t percent, const std::string& messageKey) {
  events.push_back({percent, messageKey});
  if (onEvent) onEvent(events.back());
}

void RecordingListener::requestInput(InputRequest& request) {
  questions.push_back({request.title, request.text, request.numberA, request.numberB});
  request.answer = nextAnswer < answers.size() ? answers[nextAnswer++] : 0;
}

std::vector<ProgressEvent> RecordingListener::keyedEvents() const {
  std::vector<ProgressEvent> keyed;
  for (const ProgressEvent& event : events) {
    if (!event.key.empty()) keyed.push_back(event);
  }
  return keyed;
}

void RecordingLog::log(std::string message, uint32_t level, void* reserved) {
  if (reserved != nullptr) ++nonNullReserved;
  lines.push_back({std::move(message), level});
}

bool ScriptedRunContext::isAbortRequested() {
  ++abortQueries;
  if (abortOnCall != 0 && abortQueries >= abortOnCall) abortRequested = true;
  return abortRequested;
}

}  // namespace mstest
