// The host's side of a tool: the ToolEventSink whose handlers take the tool's
// named events, the abort flag, and one run of the recover-bad-sectors tool
// over the chosen devices.
#pragma once

#include <cstdint>
#include <map>
#include <string>
#include <vector>

#include <nlohmann/json.hpp>

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
  CliToolSink(ProgressDisplay& display, AnswerSource& answers, std::vector<ToolDevice> devices);
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

  ProgressDisplay& display_;
  AnswerSource& answers_;
  std::vector<ToolDevice> devices_;
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
// from each device's "PARTITION" sections that have a mount point.
ToolRun runRecoverTool(ModuleInterface& module, const std::string& operation, const std::vector<ToolDevice>& devices,
                       ProgressDisplay& display, AnswerSource& answers);

}  // namespace hwc
