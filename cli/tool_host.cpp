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
#include "report.h"
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

// A list of LBAs for a line of text: the first few, then how many more.
std::string lbaList(const std::vector<std::string>& lbas) {
  constexpr size_t kShown = 20;
  std::string text;
  for (size_t i = 0; i < lbas.size() && i < kShown; ++i) text += (i == 0 ? "" : ", ") + lbas[i];
  if (lbas.size() > kShown) text += " and " + std::to_string(lbas.size() - kShown) + " more (all in --json)";
  return text;
}

std::vector<std::string> outputOf(const ToolEventRecord& record, const char* key) {
  auto it = record.outputs.find(key);
  return it == record.outputs.end() ? std::vector<std::string>{} : it->second;
}

// How a whole-device run of scan or repair ended, from its DeviceFinish.
enum class DeviceEnd { Finished, BadSectors, Lost, ReadNothing, CouldNotRun, Stopped };

DeviceEnd deviceEndOf(const ToolEventRecord& record, bool interrupted) {
  uint32_t status = 0;
  if (record.values.size() < 2 || !statusOf(record.values[1], status)) return DeviceEnd::CouldNotRun;
  const std::vector<std::string> info = outputOf(record, "SectorsInfo");
  const std::vector<std::string> message = outputOf(record, "Message");
  const bool readSome = !info.empty() && info[0] != "0";
  switch (status) {
    case kToolBadSectorsFound:
    case kToolRepaired:
    case kToolNotRepaired: return DeviceEnd::BadSectors;
    case kToolClean: return readSome ? DeviceEnd::Finished : DeviceEnd::ReadNothing;
    // A whole-device run ends with 8 by itself only when the device is no
    // longer there after a failed read.
    case kToolAborted: return interrupted ? DeviceEnd::Stopped : DeviceEnd::Lost;
    case kToolSystemEvent: return DeviceEnd::Stopped;
    // 2 is a read the device could not carry out, or (with a message) volumes
    // that could not be taken offline for a repair.
    case kToolDeviceUnusable:
      return !message.empty() && !message.front().empty() ? DeviceEnd::CouldNotRun : DeviceEnd::Lost;
    default: return DeviceEnd::CouldNotRun;
  }
}

int exitOfDeviceEnd(DeviceEnd end) {
  switch (end) {
    case DeviceEnd::Finished: return kExitPassed;
    case DeviceEnd::BadSectors: return kExitFailed;
    case DeviceEnd::Lost:
    case DeviceEnd::ReadNothing: return kExitDeviceLost;
    case DeviceEnd::Stopped: return kExitAborted;
    case DeviceEnd::CouldNotRun: break;
  }
  return kExitNothingRan;
}

// Statuses of the partition runs of "filesystem".
int exitOfPartitionStatus(uint32_t status) {
  switch (status) {
    case kToolNotRepaired:
    case kToolBadSectorsFound: return kExitFailed;
    // 8 is also "not run at the user's answer": an abort only after Ctrl-C.
    case kToolAborted: return interruptRequested() ? kExitAborted : kExitNothingRan;
    case kToolSystemEvent: return kExitAborted;
    case kToolClean:
    case kToolCheckScheduled:
    case kToolRepaired: return kExitPassed;
    default: return kExitNothingRan;
  }
}

}  // namespace

CliToolSink::CliToolSink(ProgressDisplay& display, AnswerSource& answers, std::vector<ToolDevice> devices,
                         std::string operation, EventStream* stream)
    : display_(display),
      answers_(answers),
      devices_(std::move(devices)),
      operation_(std::move(operation)),
      stream_(stream) {
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

const ToolDevice* CliToolSink::deviceOf(const std::string& id) const {
  for (const ToolDevice& device : devices_) {
    if (device.component != nullptr && device.component->getId() == id) return &device;
  }
  return nullptr;
}

std::string CliToolSink::deviceLabel(const std::string& id) const {
  if (const ToolDevice* device = deviceOf(id)) {
    return "[" + std::to_string(device->index) + "] " + device->component->getDescription().name;
  }
  return "[" + id + "]";
}

// The end of one device's run in words: what was read, which sectors were
// found and rewritten, and a run that read nothing said as such.
void CliToolSink::showDeviceFinish(const ToolEventRecord& record) {
  const std::vector<std::string>& v = record.values;
  const std::vector<std::string> message = outputOf(record, "Message");
  if (!message.empty() && !message.front().empty()) display_.note("    " + message.front());
  const std::vector<std::string> info = outputOf(record, "SectorsInfo");
  if (info.size() >= 4) {
    display_.note("    sectors read " + info[0] + ", bad found " + info[1] + ", fixed " + info[2]);
  }
  const std::vector<std::string> bad = outputOf(record, "BadSectorsList");
  if (!bad.empty()) {
    display_.note("    unreadable sectors found at LBA " + lbaList(bad));
    if (operation_ == "repair") {
      display_.note("    rewritten with a fixed pattern at LBA " + lbaList(bad) +
                    " (the old data there is gone; \"fixed\" is not checked by reading the sector again)");
    }
  }
  uint32_t status = 0;
  const bool haveStatus = v.size() >= 2 && statusOf(v[1], status);
  if (!haveStatus) {
    display_.endTest("done");
    return;
  }
  switch (deviceEndOf(record, interruptRequested())) {
    case DeviceEnd::ReadNothing:
      display_.endTest("Nothing was read: the device gave no sector, so this says nothing about it");
      return;
    case DeviceEnd::Lost:
      display_.endTest("Stopped: the device stopped answering");
      return;
    default: display_.endTest(toolStatusText(status));
  }
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
    showDeviceFinish(record);
  }
  if (stream_ != nullptr) {
    nlohmann::json fields = {{"event", record.name}, {"values", record.values}};
    for (const auto& output : record.outputs) fields[output.first] = output.second;
    if (!v.empty()) {
      if (const ToolDevice* device = deviceOf(v[0])) fields["device"] = device->index;
    }
    if (eventName == "OnProgress" && !v.empty()) fields["percent"] = numberOrText(v[0]);
    stream_->emit("tool", fields);
  }
  events_.push_back(std::move(record));
}

void CliToolSink::requestInput(InputRequest& request) {
  QuestionRecord question;
  question.title = request.title;
  question.text = request.text;
  question.numberA = request.numberA;
  question.numberB = request.numberB;
  display_.question("    " + questionText(request));
  question.answer = answers_.answer(request, question.answeredBy);
  request.answer = question.answer;
  display_.note("    answer " + std::to_string(question.answer) + " (" + question.answeredBy + ")");
  if (stream_ != nullptr) {
    stream_->emit("question", {{"title", question.title}, {"text", question.text}, {"numberA", question.numberA},
                               {"numberB", question.numberB}, {"answer", question.answer},
                               {"answeredBy", question.answeredBy}});
  }
  questions_.push_back(question);
}

uint8_t CliToolAbortFlag::isSet() { return (flag_ || interruptRequested()) ? 1 : 0; }

std::vector<std::string> volumesOf(const SystemComponent& component) {
  std::vector<std::string> volumes;
  for (const DetailSection& section : component.getSections()) {
    if (section.title != "PARTITION") continue;
    const std::string mountPoint = entryValue(section, "MOUNT_POINT");
    if (!mountPoint.empty()) volumes.push_back(mountPoint);
  }
  return volumes;
}

std::vector<std::string> offeredDevices(ModuleInterface& module, const std::vector<ToolDevice>& devices) {
  ProgressDisplay silent(DisplayMode::Silent, stdout);
  AnswerSource nobody({}, false, nullptr, stdout, false);
  ToolRun filter = runRecoverTool(module, "filterDevices", devices, silent, nobody);
  std::vector<std::string> marks;
  if (!filter.error.empty()) return marks;
  for (const nlohmann::json& mark : filter.document.value("devicesFilter", nlohmann::json::array())) {
    marks.push_back(mark.get<std::string>());
  }
  return marks;
}

ToolRun runRecoverTool(ModuleInterface& module, const std::string& operation, const std::vector<ToolDevice>& devices,
                       ProgressDisplay& display, AnswerSource& answers, EventStream* stream) {
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
  CliToolSink sink(display, answers, devices, operation, operation == "filterDevices" ? nullptr : stream);
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
  nlohmann::json results = nlohmann::json::array();
  int exitStatus = kExitNothingRan;
  bool ranOne = false;
  for (const ToolEventRecord& event : sink.events()) {
    nlohmann::json entry = {{"event", event.name}, {"values", event.values}};
    for (const auto& output : event.outputs) entry[output.first] = output.second;
    events.push_back(entry);
    uint32_t status = 0;
    if (event.name == "OnPartitionFinish" && event.values.size() >= 4 && statusOf(event.values[3], status)) {
      statuses.push_back(status);
      exitStatus = ranOne ? worseExit(exitStatus, exitOfPartitionStatus(status)) : exitOfPartitionStatus(status);
      ranOne = true;
    } else if (event.name == "OnDeviceFinish" && event.values.size() >= 2 && statusOf(event.values[1], status)) {
      statuses.push_back(status);
      const DeviceEnd end = deviceEndOf(event, interruptRequested());
      exitStatus = ranOne ? worseExit(exitStatus, exitOfDeviceEnd(end)) : exitOfDeviceEnd(end);
      ranOne = true;
      // The device's result with numbers as numbers, for scripts.
      nlohmann::json result = {{"deviceId", event.values[0]}, {"status", status}, {"statusText", toolStatusText(status)}};
      for (const ToolDevice& device : devices) {
        if (device.component != nullptr && device.component->getId() == event.values[0]) {
          result["device"] = device.index;
          result["deviceName"] = device.component->getDescription().name;
        }
      }
      const std::vector<std::string> info = outputOf(event, "SectorsInfo");
      const char* const names[] = {"sectorsRead", "badFound", "fixed", "notFixed"};
      for (size_t i = 0; i < info.size() && i < 4; ++i) result[names[i]] = numberOrText(info[i]);
      nlohmann::json lbas = nlohmann::json::array();
      for (const std::string& lba : outputOf(event, "BadSectorsList")) lbas.push_back(numberOrText(lba));
      result["badSectors"] = lbas;
      result["readNothing"] = end == DeviceEnd::ReadNothing;
      result["deviceLost"] = end == DeviceEnd::Lost;
      const std::vector<std::string> message = outputOf(event, "Message");
      result["message"] = message.empty() ? "" : message.front();
      results.push_back(result);
    }
  }
  // Ctrl-C during a run whose devices all ended counts as a stop all the same.
  if (interruptRequested() && (exitStatus == kExitPassed || exitStatus == kExitNothingRan)) exitStatus = kExitAborted;
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
  run.document["results"] = results;
  run.exitStatus = run.error.empty() ? exitStatus : kExitNothingRan;
  return run;
}

}  // namespace hwc
