// The host's side of a tool: the ToolEventSink whose handlers take the tool's
// named events, the abort flag, and one run of the recover-bad-sectors tool
// over the chosen devices.
#pragma once

#include <cstdint>
#include <map>
#include <string>
#include <vector>

#include <nlohmann/json.hpp>

#include "event_stream.h"
#include "host_objects.h"
#include "module_storage/module_interface.h"
#include "progress_display.h"

namespace hwc {

// One event as the tool fired it, with the list it stored under the event's
// name less "On" (empty when it stored none).
struct ToolEventRecord {
  std::string name;
  std::vector<std::string> values;
  // At OnPartitionFinish and OnDeviceFinish: "Message", "SectorsInfo" and
  // "BadSectorsList" as they stand then (they are rewritten per device).
  std::map<std::string, std::vector<std::string>> outputs;
};

// A device handed to the tool, with its index in the component manager.
struct ToolDevice {
  uint32_t index = 0;
  SystemComponent* component = nullptr;
};

// Takes the tool's events. The handlers are plain functions, so the sink
// being fired is found through the one sink that is active during execute.
class CliToolSink : public ToolEventSink {
 public:
  CliToolSink(ProgressDisplay& display, AnswerSource& answers, std::vector<ToolDevice> devices,
              std::string operation, EventStream* stream);
  ~CliToolSink() override;

  void requestInput(InputRequest& request) override;

  // Makes this sink the one the handlers report to, until deactivate.
  void activate();
  void deactivate();

  const std::vector<ToolEventRecord>& events() const { return events_; }
  const std::vector<QuestionRecord>& questions() const { return questions_; }

 private:
  static void onEvent(Tool* tool, std::string eventName);
  void take(Tool* tool, const std::string& eventName);
  std::string deviceLabel(const std::string& id) const;
  const ToolDevice* deviceOf(const std::string& id) const;
  void showDeviceFinish(const ToolEventRecord& record);

  ProgressDisplay& display_;
  AnswerSource& answers_;
  std::vector<ToolDevice> devices_;
  std::string operation_;
  EventStream* stream_;
  std::vector<ToolEventRecord> events_;
  std::vector<QuestionRecord> questions_;
};

// The tool's abort switch: its own flag, which execute clears, or Ctrl-C.
class CliToolAbortFlag : public ToolAbortFlag {
 public:
  void set(bool value) override { flag_ = value; }
  uint8_t isSet() override;

 private:
  bool flag_ = false;
};

struct ToolRun {
  int exitStatus = 0;
  std::string error;  // set when the run could not be made
  nlohmann::json document;
};

// Runs `operation` ("scan", "repair", "filesystem", "filterDevices") of the
// module's recover tool on `devices`. For "filesystem" the partitions come
// from each device's "PARTITION" sections that have a mount point. With a
// stream, each of the tool's events is written to it as it fires.
//
// The exit status: 1 bad sectors found (or not repaired), 5 a device stopped
// answering or gave no sector to read, 4 stopped by Ctrl-C, 0 finished, 3
// nothing could run.
ToolRun runRecoverTool(ModuleInterface& module, const std::string& operation, const std::vector<ToolDevice>& devices,
                       ProgressDisplay& display, AnswerSource& answers, EventStream* stream = nullptr);

// The tool's own answer to which devices it offers to scan and repair: one
// "T" or "F" per device, in order; empty when the module has no tool.
std::vector<std::string> offeredDevices(ModuleInterface& module, const std::vector<ToolDevice>& devices);

// The mount points of a device's partitions, as its "PARTITION" sections give
// them: the volumes that a repair takes offline for its run.
std::vector<std::string> volumesOf(const SystemComponent& component);

}  // namespace hwc
