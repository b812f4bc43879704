// Running the recover-bad-sectors tool: filling its call record, taking its
// events as they come, and reading the statuses back.
#include "tool_host.h"

#include <cctype>
#include <cstdlib>
#include <exception>

#include "command_line.h"
#include "exit_status.h"
#include "interrupts.h"
#include "messages.h"
#include "tool_status.h"

namespace hwc {
namespace {

CliToolSink* gActiveSink = nullptr;  // the sink of the one tool run under way

const char* const kEventNames[] = {"OnRecoverInit",   "OnOperationInit", "OnDeviceInit", "OnPartitionInit",
                                   "OnPartitionFinish", "OnDeviceFinish", "OnProgress",  "OnRecoverFinish"};

std::string upper(std::string text) {
  for (char& c : text) c = static_cast<char>(std::toupper(static_cast<unsigned char>(c)));
  return text;
}

// The system partition is the one mounted at the system drive.
bool isSystemMount(const std::string& mountPoint) {
  const char* systemDrive = std::getenv("SystemDrive");
  const std::string drive = upper(systemDrive != nullptr && systemDrive[0] != '\0' ? systemDrive : "C:");
  return upper(mountPoint).compare(0, drive.size(), drive) == 0;
}

std::string entryValue(const DetailSection& section, const char* key) {
  for (const DetailEntry& entry : section.entries) {
    if (entry.key == key) return entry.value;
  }
  return "";
}

// Four entries per partition: name, secondField, mountPath, "T"/"F" for the
// system partition. The host's second field is the file system.
std::vector<std::string> partitionTable(const SystemComponent& component) {
  std::vector<std::string> table;
  for (const DetailSection& section : component.getSections()) {
    if (section.title != "PARTITION") continue;
    const std::string mountPoint = entryValue(section, "MOUNT_POINT");
    if (mountPoint.empty()) continue;
    table.push_back(entryValue(section, "INDEX"));
    table.push_back(entryValue(section, "FILE_SYSTEM"));
    table.push_back(mountPoint);
    table.push_back(isSystemMount(mountPoint) ? "T" : "F");
  }
  return table;
}

bool statusOf(const std::string& text, uint32_t& status) { return parseDecimal(text, status); }

int exitOfStatuses(const std::vector<uint32_t>& statuses) {
  bool failed = false;
  bool aborted = false;
  bool done = false;
  for (uint32_t status : statuses) {
    switch (status) {
      case kToolNotRepaired:
      case kToolBadSectorsFound: failed = true; break;
      // 8 is also "not run at the user's answer": an abort only after Ctrl-C.
      case kToolAborted: aborted = aborted || interruptRequested(); break;
      case kToolSystemEvent: aborted = true; break;
      case kToolClean:
      case kToolCheckScheduled:
      case kToolRepaired: done = true; break;
      default: break;
    }
  }
  if (failed) return kExitFailed;
  if (aborted || interruptRequested()) return kExitAborted;
  return done ? kExitPassed : kExitNothingRan;
}

}  // namespace

CliToolSink::CliToolSink(ProgressDisplay& display, AnswerSource& answers, std::vector<ToolDevice> devices)
    : display_(display), answers_(answers), devices_(std::move(devices)) {
  for (const char* name : kEventNames) handlers[name] = &CliToolSink::onEvent;
}

CliToolSink::~CliToolSink() { deactivate(); }

void CliToolSink::activate() { gActiveSink = this; }

void CliToolSink::deactivate() {
  if (gActiveSink == this) gActiveSink = nullptr;
}

void CliToolSink::onEvent(Tool* tool, std::string eventName) {
  if (gActiveSink != nullptr && tool != nullptr) gActiveSink->take(tool, eventName);
}

std::string CliToolSink::deviceLabel(const std::string& id) const {
  for (const ToolDevice& device : devices_) {
    if (device.component != nullptr && device.component->getId() == id) {
      return "[" + std::to_string(device.index) + "] " + device.component->getDescription().name;
    }
  }
  return "[" + id + "]";
}

void CliToolSink::take(Tool* tool, const std::string& eventName) {
  ToolEventRecord record;
  record.name = eventName;
  const std::string valuesKey = eventName.compare(0, 2, "On") == 0 ? eventName.substr(2) : eventName;
  if (const std::vector<std::string>* values = tool->getValues(valuesKey)) record.values = *values;
  if (eventName == "OnPartitionFinish" || eventName == "OnDeviceFinish") {
    for (const char* key : {"Message", "SectorsInfo", "BadSectorsList"}) {
      if (const std::vector<std::string>* values = tool->getValues(key)) record.outputs[key] = *values;
    }
  }
  const std::vector<std::string>& v = record.values;

  if (eventName == "OnOperationInit" && !v.empty()) {
    display_.note(textOf(tool->getName()) + ": " + describeMessage(v[0]));
  } else if (eventName == "OnDeviceInit" && !v.empty()) {
    display_.beginTest(deviceLabel(v[0]));
  } else if (eventName == "OnProgress" && !v.empty()) {
    uint32_t percent = 0;
    if (parseDecimal(v[0], percent)) display_.progress(percent, "");
  } else if (eventName == "OnPartitionFinish" && v.size() >= 4) {
    uint32_t status = 0;
    auto message = record.outputs.find("Message");
    if (message != record.outputs.end() && !message->second.empty() && !message->second.front().empty()) {
      display_.note("    " + message->second.front());
    }
    display_.note("    partition " + v[1] + ": " +
                  (statusOf(v[3], status) ? toolStatusText(status) : "status '" + v[3] + "'"));
  } else if (eventName == "OnDeviceFinish" && !v.empty()) {
    uint32_t status = 0;
    auto message = record.outputs.find("Message");
    if (message != record.outputs.end() && !message->second.empty() && !message->second.front().empty()) {
      display_.note("    " + message->second.front());
    }
    auto info = record.outputs.find("SectorsInfo");
    if (info != record.outputs.end() && info->second.size() >= 4) {
      display_.note("    sectors read " + info->second[0] + ", bad found " + info->second[1] + ", fixed " +
                    info->second[2]);
    }
    if (v.size() >= 2 && statusOf(v[1], status)) {
      display_.endTest(toolStatusText(status));
    } else {
      display_.endTest("done");
    }
  }
  events_.push_back(std::move(record));
}

void CliToolSink::requestInput(InputRequest& request) {
  QuestionRecord question;
  question.title = request.title;
  question.text = request.text;
  question.numberA = request.numberA;
  question.numberB = request.numberB;
  display_.note("    " + questionText(request));
  question.answer = answers_.answer(request, question.answeredBy);
  request.answer = question.answer;
  display_.note("    answer " + std::to_string(question.answer) + " (" + question.answeredBy + ")");
  questions_.push_back(question);
}

uint8_t CliToolAbortFlag::isSet() { return (flag_ || interruptRequested()) ? 1 : 0; }

ToolRun runRecoverTool(ModuleInterface& module, const std::string& operation, const std::vector<ToolDevice>& devices,
                       ProgressDisplay& display, AnswerSource& answers) {
  ToolRun run;
  Tool* tool = nullptr;
  for (uint32_t t = 0; t < module.getToolCount() && tool == nullptr; ++t) {
    Tool* candidate = module.getTool(t);
    if (candidate != nullptr && candidate->getId() == "recover") tool = candidate;
  }
  if (tool == nullptr) {
    run.exitStatus = kExitNothingRan;
    run.error = "the module offers no recover-bad-sectors tool, so '--recover " + operation + "' cannot run";
    return run;
  }

  std::vector<SystemComponent*> components;
  for (const ToolDevice& device : devices) components.push_back(device.component);
  CliToolSink sink(display, answers, devices);
  CliToolAbortFlag abortFlag;
  static const uint8_t kNoSystemEvents = 0;
  tool->abortFlag = &abortFlag;
  tool->systemEvents = &kNoSystemEvents;
  tool->listener = &sink;
  tool->setValues("Operation", {operation});
  if (operation == "filesystem") {
    for (const ToolDevice& device : devices) {
      tool->setValues("partition_table" + device.component->getId(), partitionTable(*device.component));
    }
  }
  tool->setDevices(components);

  sink.activate();
  try {
    tool->execute();
  } catch (const std::exception& error) {
    run.error = std::string("the tool stopped with an error: ") + error.what();
  }
  sink.deactivate();
  // The tool outlives this run; it must not keep pointers into it.
  tool->abortFlag = nullptr;
  tool->systemEvents = nullptr;
  tool->listener = nullptr;

  nlohmann::json events = nlohmann::json::array();
  std::vector<uint32_t> statuses;
  for (const ToolEventRecord& event : sink.events()) {
    nlohmann::json entry = {{"event", event.name}, {"values", event.values}};
    for (const auto& output : event.outputs) entry[output.first] = output.second;
    events.push_back(entry);
    uint32_t status = 0;
    if (event.name == "OnPartitionFinish" && event.values.size() >= 4 && statusOf(event.values[3], status)) {
      statuses.push_back(status);
    } else if (event.name == "OnDeviceFinish" && event.values.size() >= 2 && statusOf(event.values[1], status)) {
      statuses.push_back(status);
    }
  }
  nlohmann::json questions = nlohmann::json::array();
  for (const QuestionRecord& question : sink.questions()) {
    questions.push_back({{"title", question.title}, {"text", question.text}, {"answer", question.answer},
                         {"answeredBy", question.answeredBy}});
  }
  run.document = {{"operation", operation}, {"tool", tool->getName()}, {"events", events}, {"questions", questions}};

  if (operation == "filterDevices") {
    const std::vector<std::string>* filter = tool->getValues("DevicesFilter");
    nlohmann::json shown = nlohmann::json::array();
    for (size_t i = 0; i < devices.size(); ++i) {
      const std::string mark = filter != nullptr && i < filter->size() ? (*filter)[i] : "";
      display.note("[" + std::to_string(devices[i].index) + "] " + devices[i].component->getDescription().name +
                   ": " + (mark == "T" ? "can be scanned" : mark == "F" ? "not offered" : "no answer"));
      shown.push_back(mark);
    }
    run.document["devicesFilter"] = shown;
    run.exitStatus = run.error.empty() && filter != nullptr ? kExitPassed : kExitNothingRan;
    return run;
  }
  run.document["statuses"] = statuses;
  run.exitStatus = run.error.empty() ? exitOfStatuses(statuses) : kExitNothingRan;
  return run;
}

}  // namespace hwc
