// A test double of the module for hwc_cli's tests: a library with the same
// three exports whose catalogue, devices, test behaviour and tool are read
// from a JSON script named by MODULE_STORAGE_MACHINE. It lets the front end's
// run, question, abort, JSON and exit-status paths be driven end to end.
//
// Script: {"noResource", "noManager", "noInstance": bool,
//          "devices": [{"id", "name", "details": [[key, value]...], "attributes": {},
//                       "sections": [{"title", "entries": [[key, value]...]}]}],
//          "tests": [{"diagnostic", "test", "letter", "long", "name", "inCatalogue",
//                     "unsupportedOn": [device index...], "steps": [...], "result",
//                     "resultOnDevice": {"1": result}, "resultByAnswer": {"1": result},
//                     "numericParameters": {"KEY": limit}, "throw": text}],
//          "tool": {"noTool", "badSectors": [...], "filter": ["T", "F"...],
//                   "status": forced DeviceFinish status, "sectorsRead": text}}
// Steps: {"progress": n, "key": k}, {"log": message, "level": n},
//        {"ask": [title, text, a, b]}, {"waitForAbort": true}, {"ignoreAbort": true}.
#include <chrono>
#include <cstdlib>
#include <fstream>
#include <memory>
#include <stdexcept>
#include <thread>

#include <nlohmann/json.hpp>

#include "module_storage/module_storage.h"

namespace {

using nlohmann::json;

// A waiting step gives up after this long, so a broken test cannot hang.
constexpr auto kWaitLimit = std::chrono::seconds(30);

json gScript;

json loadScript() {
  const char* path = std::getenv("MODULE_STORAGE_MACHINE");
  if (path == nullptr || std::string(path) == "default") {
    return json::parse(R"({"devices": [{"id": "0", "name": "SCRIPTED DISK - 500 GB",
                         "details": [["UDI", "-SCRIPTED-1"], ["MODEL", "SCRIPTED DISK"]]}],
                         "tests": [{"diagnostic": 1, "test": 1, "letter": "m", "long": "smart-status",
                                    "name": "SMART_STATUS_TEST", "steps": [{"progress": 100, "key": ""}]}]})");
  }
  std::ifstream in(path);
  return json::parse(in, nullptr, false);
}

class ScriptedComponent : public SystemComponent {
 public:
  explicit ScriptedComponent(const json& device) {
    id = device.value("id", "");
    name = device.value("name", "");
    // Bytes a JSON text cannot carry, as a device may report them.
    for (const json& byte : device.value("nameBytes", json::array())) name += static_cast<char>(byte.get<int>());
    for (const json& entry : device.value("details", json::array())) details.push_back({entry[0], entry[1]});
    const json attributeList = device.value("attributes", json::object());
    for (const auto& attribute : attributeList.items()) {
      attributes[attribute.key()] = attribute.value().get<std::string>();
    }
    for (const json& section : device.value("sections", json::array())) {
      DetailSection built;
      built.title = section.value("title", "");
      for (const json& entry : section.value("entries", json::array())) built.entries.push_back({entry[0], entry[1]});
      sections.push_back(built);
    }
  }
  uint32_t reservedQuery() override { return 0; }
  bool reservedCheckA() override { return true; }
  void reservedActionA() override {}
  bool reservedCheckB() override { return true; }
  void reservedActionB() override {}
};

class ScriptedManager : public SystemComponentManager {
 public:
  ScriptedManager() : SystemComponentManager(ItemId(1, 0, 1)) {}
  bool hasDevices() override { return !gScript.value("devices", json::array()).empty(); }
  SystemComponent* getRefreshedComponent(uint32_t index) override { return getComponent(index); }
  void refresh() override {
    components.clear();
    for (const json& device : gScript.value("devices", json::array())) {
      components.push_back(std::make_unique<ScriptedComponent>(device));
    }
  }
  // Which index a component has, for per-device script entries.
  int indexOf(const SystemComponent* component) const {
    for (size_t i = 0; i < components.size(); ++i) {
      if (components[i].get() == component) return static_cast<int>(i);
    }
    return -1;
  }
};

ScriptedManager* gManager = nullptr;

class ScriptedTest : public Test {
 public:
  ScriptedTest(const ItemId& itemId, json script) : Test(itemId), script_(std::move(script)) {}

  bool isSupported(SystemComponent* component) override {
    const int index = gManager != nullptr ? gManager->indexOf(component) : -1;
    for (const json& device : script_.value("unsupportedOn", json::array())) {
      if (device.get<int>() == index) return false;
    }
    return component != nullptr;
  }

  bool isOptionA() override { return false; }

  bool setParameters(TestParameters parameters, std::vector<RejectedParameter>& rejected) override {
    const json limits = script_.value("numericParameters", json::object());  // items() needs a named object
    for (const auto& limit : limits.items()) {
      auto section = parameters.find("STORAGE");
      if (section == parameters.end()) continue;
      auto value = section->second.find(limit.key());
      if (value == section->second.end()) continue;
      const std::string& text = value->second;
      bool digits = !text.empty() && text.find_first_not_of("0123456789") == std::string::npos && text.size() < 10;
      if (!digits) {
        rejected.push_back({kParameterNotANumber, "STORAGE", limit.key()});
      } else if (std::stoul(text) >= limit.value().get<unsigned long>()) {
        rejected.push_back({kParameterOutOfRange, "STORAGE", limit.key()});
      }
    }
    return rejected.empty();
  }

  uint32_t run(TestRunContext* context) override {
    if (script_.contains("throw")) throw std::runtime_error(script_["throw"].get<std::string>());
    TestListener* listener = context->getTestListener();
    MessageLog* log = context->getMessageLog();
    const int device = gManager != nullptr ? gManager->indexOf(context->getComponent()) : -1;
    int answer = -1;
    for (const json& step : script_.value("steps", json::array())) {
      if (step.contains("progress")) {
        listener->onProgress(step["progress"].get<uint8_t>(), step.value("key", ""));
      } else if (step.contains("log")) {
        log->log(step["log"].get<std::string>(), step.value("level", 0u), nullptr);
      } else if (step.contains("ask")) {
        const json& ask = step["ask"];
        InputRequest request(ask[0], ask[1], ask[2], ask[3]);
        if (listener->isInteractive()) {
          listener->requestInput(request);
          answer = static_cast<int>(request.answer);
        }
      } else if (step.contains("waitForAbort") || step.contains("ignoreAbort")) {
        const bool honour = step.contains("waitForAbort");
        const auto start = std::chrono::steady_clock::now();
        while (std::chrono::steady_clock::now() - start < kWaitLimit) {
          if (honour && context->isAbortRequested()) {
            listener->onProgress(100, "");
            return ABORTED;
          }
          std::this_thread::sleep_for(std::chrono::milliseconds(1));
        }
        listener->onProgress(100, "");
        return WARNING;
      }
    }
    const json byAnswer = script_.value("resultByAnswer", json::object());
    if (answer >= 0 && byAnswer.contains(std::to_string(answer))) return byAnswer[std::to_string(answer)];
    const json byDevice = script_.value("resultOnDevice", json::object());
    if (byDevice.contains(std::to_string(device))) return byDevice[std::to_string(device)];
    return script_.value("result", 0u);
  }

 private:
  json script_;
};

class ScriptedResource : public Resource {
 public:
  ScriptedResource() : Resource(ItemId(1, 0, 1)) {
    helpText = gScript.value("help", "Scripted module help:\n  hwc_cli -Mstorage -Q\"m\" 0");
    moduleName = "STORAGE";
    moduleShortName = "HD";
    diagnosticOptions[ItemId(1, 1, 0)] = {"Q", "quick", kCliDiagnostic};
    diagnosticOptions[ItemId(1, 2, 0)] = {"E", "extended", kCliDiagnostic};
    names_[ItemId(1, 1, 0)] = "QUICK_TESTS";
    names_[ItemId(1, 2, 0)] = "EXTENDED_TESTS";
    for (const json& test : gScript.value("tests", json::array())) {
      ItemId id(1, test.value("diagnostic", 1u), test.value("test", 1u));
      testOptions[id] = {test.value("letter", ""), test.value("long", ""), kCliTest};
      testNames_[id] = test.value("name", "");
    }
  }
  std::string getDiagnosticName(const ItemId& item) const override { return find(names_, item); }
  std::string getTestName(const ItemId& item) const override { return find(testNames_, item); }
  std::string getDiagnosticTooltip(const ItemId&) const override { return ""; }
  std::string getTestTooltip(const ItemId&) const override { return ""; }

 private:
  static std::string find(const std::map<ItemId, std::string>& map, const ItemId& item) {
    auto it = map.find(item);
    return it == map.end() ? "" : it->second;
  }
  std::map<ItemId, std::string> names_;
  std::map<ItemId, std::string> testNames_;
};

class ScriptedTool : public Tool {
 public:
  ScriptedTool() : Tool(ItemId(50, 0, 0)) {}
  std::string getName() const override { return "RECOVER_BAD_SECTORS"; }
  std::string getDescription() const override {
    return "SEARCH_FOR_AND_RECOVER_BAD_SECTORS_THAT_MAY_BE_PRESENT_IN_YOUR_STORAGE_DEVICES";
  }
  std::string getId() const override { return "recover"; }

  void execute() override {
    const json script = gScript.value("tool", json::object());
    const std::vector<std::string>* operation = getValues("Operation");
    const std::string name = operation != nullptr && !operation->empty() ? operation->front() : "";
    abortFlag->set(false);
    if (name == "filterDevices") {
      std::vector<std::string> filter;
      const json marks = script.value("filter", json::array());
      // Marked by the device's index in the manager, as the module decides by the device itself.
      for (SystemComponent* device : devices) {
        const int index = gManager != nullptr ? gManager->indexOf(device) : -1;
        filter.push_back(index >= 0 && static_cast<size_t>(index) < marks.size() ? marks[index].get<std::string>() : "T");
      }
      setValues("DevicesFilter", filter);
      return;
    }
    if (listener == nullptr) return;
    fire("OnRecoverInit");
    setValues("OperationInit", {name == "filesystem" ? "|CHECK_FILESYSTEM_TOOL" : name == "repair" ? "SCAN_AND_FIX_TOOL" : "SCAN_TOOL"});
    fire("OnOperationInit");
    for (SystemComponent* device : devices) {
      const std::string id = device->getId();
      setValues("Message", {});
      setValues("DeviceInit", {id});
      fire("OnDeviceInit");
      if (name == "filesystem") {
        const std::vector<std::string>* table = getValues("partition_table" + id);
        for (size_t p = 0; table != nullptr && p + 3 < table->size(); p += 4) {
          setValues("PartitionInit", {id, (*table)[p]});
          fire("OnPartitionInit");
          std::string status = "0";
          if ((*table)[p + 3] == "T") {
            InputRequest request("SCHEDULER_TITLE", "SCHEDULER_DESCRIPTION", 0, 1);
            listener->requestInput(request);
            status = request.answer == 1 ? "3" : "8";
            if (request.answer != 1) setValues("Message", {"Not Scheduled"});
          }
          setValues("PartitionFinish", {id, (*table)[p], "", status});
          fire("OnPartitionFinish");
          setValues("Message", {});
        }
        setValues("DeviceFinish", {id});
        fire("OnDeviceFinish");
        continue;
      }
      std::string status = "0";
      for (const char* percent : {"50", "100"}) {
        if (abortFlag->isSet()) {
          status = "8";
          break;
        }
        setValues("Progress", {percent});
        fire("OnProgress");
      }
      const std::vector<std::string> bad = script.value("badSectors", std::vector<std::string>{});
      if (status == "0" && !bad.empty()) status = name == "repair" ? "9" : "12";
      // A device that vanished: the status and the count of sectors read as
      // the tool gives them then.
      status = script.value("status", status);
      setValues("DeviceFinish", {id, status});
      setValues("SectorsInfo", {script.value("sectorsRead", "1000"), std::to_string(bad.size()), name == "repair" ? std::to_string(bad.size()) : "0",
                                name == "repair" ? "0" : std::to_string(bad.size())});
      setValues("BadSectorsList", bad);
      fire("OnDeviceFinish");
    }
    fire("OnRecoverFinish");
  }

 private:
  void fire(const std::string& event) {
    auto it = listener->handlers.find(event);
    if (it != listener->handlers.end()) it->second(this, event);
  }
};

ModuleInterface* gInstance = nullptr;
std::vector<Test*> gTests;
std::vector<Diagnostic*> gDiagnostics;
Resource* gResource = nullptr;
Tool* gTool = nullptr;

ModuleInterface* build() {
  gScript = loadScript();
  if (gScript.is_discarded() || gScript.value("noInstance", false)) return nullptr;
  std::vector<Test*> quick;
  std::vector<Test*> extended;
  for (const json& test : gScript.value("tests", json::array())) {
    if (!test.value("inCatalogue", true)) continue;
    const uint32_t diagnostic = test.value("diagnostic", 1u);
    Test* built = new ScriptedTest(ItemId(1, diagnostic, test.value("test", 1u)), test);
    gTests.push_back(built);
    (diagnostic == 1 ? quick : extended).push_back(built);
  }
  gDiagnostics = {new Diagnostic(ItemId(1, 1, 0), quick), new Diagnostic(ItemId(1, 2, 0), extended)};
  gResource = gScript.value("noResource", false) ? nullptr : new ScriptedResource();
  gManager = gScript.value("noManager", false) ? nullptr : new ScriptedManager();
  std::vector<Tool*> tools;
  if (!gScript.value("tool", json::object()).value("noTool", false)) {
    gTool = new ScriptedTool();
    tools.push_back(gTool);
  }
  return new ModuleInterface(gDiagnostics, gResource, gManager, nullptr, tools);
}

}  // namespace

extern "C" MODULE_STORAGE_EXPORT ProductVersion* GetProductVersion() { return new ProductVersion(); }

extern "C" MODULE_STORAGE_EXPORT ModuleInterface* GetModuleInterfaceInstance() {
  if (gInstance == nullptr) gInstance = build();
  return gInstance;
}

extern "C" MODULE_STORAGE_EXPORT void ReleaseModuleInterfaceInstance() {
  if (gInstance == nullptr) return;
  delete gResource;
  delete gManager;
  for (Test* test : gTests) delete test;
  for (Diagnostic* diagnostic : gDiagnostics) delete diagnostic;
  delete gTool;
  delete gInstance;
  gTool = nullptr;
  gResource = nullptr;
  gManager = nullptr;
  gTests.clear();
  gDiagnostics.clear();
  gInstance = nullptr;
}
