// hwc_cli: the command-line front end. Loads a diagnostics module by file
// name, reads the command line against the module's own vocabulary, runs the
// chosen tests on the chosen devices and tells the outcome in words, in a
// summary table or as one JSON document, and in its exit status.
#include <sys/stat.h>

#include <cstdio>
#include <exception>
#include <string>
#include <vector>

#if defined(_WIN32)
#include <io.h>
#define HWC_ISATTY(fd) _isatty(fd)
#else
#include <unistd.h>
#define HWC_ISATTY(fd) isatty(fd)
#endif

#include "command_line.h"
#include "exit_status.h"
#include "host_objects.h"
#include "interrupts.h"
#include "messages.h"
#include "module_library.h"
#include "progress_display.h"
#include "report.h"
#include "selection.h"
#include "tool_host.h"

namespace hwc {
namespace {

constexpr const char* kMachineVariable = "MODULE_STORAGE_MACHINE";
// The disk-image files and block devices of --disk, joined by ':'.
constexpr const char* kDisksVariable = "MODULE_STORAGE_DISKS";

bool fileExists(const std::string& path) {
  struct stat info {};
  return stat(path.c_str(), &info) == 0;
}

// The worse of two statuses, for a session that runs tests and a tool: a
// failure first, then an abort, then a pass; nothing ran only if neither ran.
int combineExit(int a, int b) {
  for (int status : {kExitUsage, kExitFailed, kExitAborted, kExitPassed}) {
    if (a == status || b == status) return status;
  }
  return kExitNothingRan;
}

class Session {
 public:
  Session(std::vector<std::string> args, std::string program)
      : args_(std::move(args)), program_(std::move(program)) {
    for (const std::string& arg : args_) json_ = json_ || arg == "--json";
    document_ = {{"program", "hwc_cli"}, {"arguments", args_}, {"errors", nlohmann::json::array()}};
  }

  int run();

 private:
  int fail(int status, const std::string& message);
  int finish(int status);
  FILE* out() const { return stdout; }
  int runTests(const std::vector<SelectedTest>& tests, const std::vector<uint32_t>& devices,
               SystemComponentManager& manager);
  int applyParameters(const std::vector<SelectedTest>& tests);

  std::vector<std::string> args_;
  std::string program_;
  bool json_ = false;
  CommandLine line_;
  nlohmann::json document_;
};

int Session::fail(int status, const std::string& message) {
  std::fflush(stdout);  // what was said before the error comes before it
  std::fprintf(stderr, "hwc_cli: %s\n", message.c_str());
  if (status == kExitUsage) std::fprintf(stderr, "Try 'hwc_cli --help'.\n");
  document_["errors"].push_back(message);
  return finish(status);
}

int Session::finish(int status) {
  if (json_) {
    document_["exitStatus"] = status;
    std::fprintf(stdout, "%s\n", dumpJson(document_).c_str());
  }
  std::fflush(stdout);
  return status;
}

int Session::run() {
  // From here on Ctrl-C asks for a stop; what was not run by then is reported
  // as not run.
  installInterruptHandler();
  ParseResult parsed = parseCommandLine(args_);
  if (!parsed.ok) return fail(kExitUsage, parsed.error);
  line_ = parsed.line;
  json_ = line_.json;

  if (line_.help && !json_) std::fputs(usageText().c_str(), out());

  if (!line_.machine.empty()) {
    if (line_.machine != "default" && line_.machine != "host" && !fileExists(line_.machine)) {
      return fail(kExitUsage, "machine file '" + line_.machine + "' given to --machine does not exist");
    }
    if (!line_.disks.empty() && line_.machine != "host") {
      return fail(kExitUsage, "--disk adds disks to this host, not to a simulated machine (use --machine host or "
                              "leave --machine out)");
    }
    setEnvironment(kMachineVariable, line_.machine);
    document_["machine"] = line_.machine;
  }
  if (!line_.disks.empty()) {
    std::string joined;
    for (const std::string& disk : line_.disks) {
      if (!fileExists(disk)) return fail(kExitUsage, "disk '" + disk + "' given to --disk does not exist");
      joined += (joined.empty() ? "" : ":") + disk;
    }
    setEnvironment(kDisksVariable, joined);
    // Without --machine the module serves the given disks alone.
    if (line_.machine.empty()) clearEnvironment(kMachineVariable);
    document_["disks"] = line_.disks;
  }
  if (!json_ && (line_.machine == "host" || !line_.disks.empty())) {
    std::fprintf(out(), "hwc_cli: machine: %s\n",
                 line_.machine == "host" ? (line_.disks.empty() ? "this host's own disks"
                                                                : "this host's own disks and the disks given by --disk")
                                         : "the disks given by --disk");
  }

  ModuleLibrary library;
  std::string error;
  const std::string path = line_.libraryPath.empty() ? defaultLibraryPath(program_) : line_.libraryPath;
  if (!library.load(path, error)) return fail(kExitNothingRan, error);
  ModuleInterface* module = library.instance();
  if (module == nullptr) return fail(kExitNothingRan, "the module '" + path + "' could not build its catalogue");
  Resource* resource = module->getResource();
  const std::string moduleName = resource != nullptr ? resource->getModuleName() : "";
  document_["module"] = {{"path", path}, {"version", library.versionText()}, {"name", moduleName}};

  if (line_.help) {
    const std::string help = resource != nullptr ? resource->getHelpText() : "";
    if (json_) {
      document_["help"] = {{"usage", usageText()}, {"module", help}};
    } else if (help.empty()) {
      std::fprintf(out(), "\nThe module at %s gives no help text%s.\n", path.c_str(),
                   resource == nullptr ? " (it has no resource yet)" : "");
    } else {
      std::fprintf(out(), "\n%s\n", help.c_str());
    }
    return finish(kExitPassed);
  }

  const bool runWanted = !line_.diagnostics.empty() || !line_.recoverOperation.empty();
  if (!line_.list && !runWanted) {
    return fail(kExitUsage, "nothing to do: choose a diagnostic (-Q, -E), --list or --recover");
  }
  if (line_.moduleName.empty()) return fail(kExitUsage, "no module chosen: add -Mstorage");
  if (!namesModule(line_.moduleName, resource)) {
    return fail(kExitUsage, "'-M" + line_.moduleName + "' does not name this module (it is " +
                                (moduleName.empty() ? std::string("storage") : moduleName) + ")");
  }

  Selection selection = resolveSelection(line_.diagnostics, *module);
  if (selection.exitStatus != kExitPassed) return fail(selection.exitStatus, selection.error);
  if (!line_.diagnostics.empty() && selection.tests.empty()) {
    return fail(kExitNothingRan, "the chosen diagnostics offer no tests in this build of the module");
  }

  if (!json_) {
    std::fprintf(out(), "hwc_cli: module %s %s (%s)\n", moduleName.empty() ? "storage" : moduleName.c_str(),
                 library.versionText().c_str(), path.c_str());
  }

  SystemComponentManager* manager = module->getComponentManager();
  if (manager == nullptr) {
    if (line_.list && !json_) printCatalogue(out(), *module);
    if (line_.list) document_["catalogue"] = catalogueJson(*module);
    return fail(kExitNothingRan, "the module has no component manager: it finds no devices to list or test");
  }
  try {
    manager->refresh();
  } catch (const std::exception& failure) {
    return fail(kExitNothingRan, std::string("the module failed to look for devices: ") + failure.what());
  }
  const uint32_t count = static_cast<uint32_t>(manager->getComponentCount());

  nlohmann::json devices = nlohmann::json::array();
  for (uint32_t i = 0; i < count; ++i) {
    if (SystemComponent* component = manager->getComponent(i)) devices.push_back(deviceJson(i, *component));
  }
  document_["devices"] = devices;

  if (line_.list) {
    document_["catalogue"] = catalogueJson(*module);
    if (!json_) {
      std::fprintf(out(), "Devices: %u\n", count);
      for (uint32_t i = 0; i < count; ++i) {
        if (SystemComponent* component = manager->getComponent(i)) printDevice(out(), i, *component);
      }
      printCatalogue(out(), *module);
    }
    if (!runWanted) {
      if (interruptRequested()) return finish(kExitAborted);
      return count == 0 ? fail(kExitNothingRan, "the module found no devices") : finish(kExitPassed);
    }
  }

  if (count == 0) return fail(kExitNothingRan, "the module found no devices to test");
  std::vector<uint32_t> chosen;
  for (const DeviceChoice& device : line_.devices) {
    if (device.index >= count || manager->getComponent(device.index) == nullptr) {
      return fail(kExitNothingRan, "no such device '" + device.argument + "': the module found " +
                                       std::to_string(count) + " device(s), ids 0 to " + std::to_string(count - 1));
    }
    bool seen = false;
    for (uint32_t index : chosen) seen = seen || index == device.index;
    if (!seen) chosen.push_back(device.index);
  }
  if (chosen.empty()) {
    for (uint32_t i = 0; i < count; ++i) chosen.push_back(i);
  }

  if (int status = applyParameters(selection.tests)) return status;

  int status = kExitNothingRan;
  bool ranSomething = false;
  if (!selection.tests.empty()) {
    status = runTests(selection.tests, chosen, *manager);
    ranSomething = true;
  }
  if (!line_.recoverOperation.empty() && !interruptRequested()) {
    DisplayMode mode = json_ ? DisplayMode::Silent : (HWC_ISATTY(1) ? DisplayMode::Terminal : DisplayMode::Lines);
    ProgressDisplay display(mode, out());
    AnswerSource answers(line_.answers, HWC_ISATTY(0) != 0, stdin, json_ ? stderr : stdout, json_);
    std::vector<ToolDevice> toolDevices;
    for (uint32_t index : chosen) toolDevices.push_back({index, manager->getComponent(index)});
    ToolRun tool = runRecoverTool(*module, line_.recoverOperation, toolDevices, display, answers);
    document_["recover"] = tool.document;
    if (!tool.error.empty()) {
      std::fprintf(stderr, "hwc_cli: %s\n", tool.error.c_str());
      document_["errors"].push_back(tool.error);
    }
    status = ranSomething ? combineExit(status, tool.exitStatus) : tool.exitStatus;
  }
  return finish(status);
}

// Parameters go to every chosen test before anything runs, so that a
// rejected value stops the session before a device is touched.
int Session::applyParameters(const std::vector<SelectedTest>& tests) {
  if (line_.parameters.empty()) return kExitPassed;
  TestParameters parameters;
  for (const ParameterSetting& setting : line_.parameters) parameters[setting.section][setting.key] = setting.value;
  std::vector<std::string> problems;
  nlohmann::json rejectedJson = nlohmann::json::array();
  for (const SelectedTest& selected : tests) {
    std::vector<RejectedParameter> rejected;
    bool accepted = true;
    try {
      accepted = selected.test->setParameters(parameters, rejected);
    } catch (const std::exception& failure) {
      accepted = false;
      problems.push_back(textOf(selected.nameKey) + " failed on its parameters: " + failure.what());
    }
    for (const RejectedParameter& entry : rejected) {
      const std::string reason = entry.code == kParameterNotANumber   ? "the value is not a number"
                                 : entry.code == kParameterOutOfRange ? "the value is out of range"
                                                                      : "refused";
      std::string value;
      auto section = parameters.find(entry.section);
      if (section != parameters.end() && section->second.count(entry.key) != 0) value = section->second.at(entry.key);
      problems.push_back("--param " + entry.section + "." + entry.key + "=" + value + " rejected by " +
                         textOf(selected.nameKey) + ": " + reason + " (code " + std::to_string(entry.code) + ")");
      rejectedJson.push_back({{"test", itemText(selected.id)},
                              {"section", entry.section},
                              {"key", entry.key},
                              {"value", value},
                              {"code", entry.code}});
    }
    if (!accepted && rejected.empty()) problems.push_back(textOf(selected.nameKey) + " refused its parameters");
  }
  if (problems.empty()) return kExitPassed;
  document_["rejectedParameters"] = rejectedJson;
  std::string message = problems.front();
  for (size_t i = 1; i < problems.size(); ++i) message += "\nhwc_cli: " + problems[i];
  return fail(kExitUsage, message);
}

int Session::runTests(const std::vector<SelectedTest>& tests, const std::vector<uint32_t>& devices,
                      SystemComponentManager& manager) {
  const DisplayMode mode = json_ ? DisplayMode::Silent : (HWC_ISATTY(1) ? DisplayMode::Terminal : DisplayMode::Lines);
  ProgressDisplay display(mode, out());
  AnswerSource answers(line_.answers, HWC_ISATTY(0) != 0, stdin, json_ ? stderr : stdout, json_);
  CliListener listener(display, answers);
  CliLog log(display);

  nlohmann::json selected = nlohmann::json::array();
  for (const SelectedTest& test : tests) {
    selected.push_back({{"id", itemText(test.id)}, {"name", test.nameKey}, {"text", textOf(test.nameKey)},
                        {"diagnostic", test.diagnosticKey}});
  }
  document_["tests"] = selected;

  std::vector<TestRecord> records;
  for (uint32_t index : devices) {
    for (const SelectedTest& test : tests) {
      TestRecord record;
      record.deviceIndex = index;
      record.testId = test.id;
      record.testKey = test.nameKey;
      record.diagnosticKey = test.diagnosticKey;
      SystemComponent* component = manager.getComponent(index);
      record.deviceName = component != nullptr ? component->getDescription().name : "";
      const std::string label = "[" + std::to_string(index) + "] " + textOf(test.nameKey);
      if (interruptRequested()) {
        record.outcome = RunOutcome::NotRun;
        records.push_back(record);
        continue;
      }
      try {
        // Makes the device's cached properties current before the run.
        if (SystemComponent* refreshed = manager.getRefreshedComponent(index)) component = refreshed;
        if (!test.test->isSupported(component)) {
          record.outcome = RunOutcome::NotSupported;
          display.skipped(label, verdictText(record));
        } else {
          display.beginTest(label);
          listener.setRecord(&record);
          log.setRecord(&record);
          CliRunContext context(component, &listener, &log);
          record.result = test.test->run(&context);
          record.outcome = RunOutcome::Ran;
          listener.setRecord(nullptr);
          log.setRecord(nullptr);
          const std::string last = record.lastMessage();
          display.endTest(verdictText(record) + (last.empty() ? "" : " - " + describeMessage(last)));
        }
      } catch (const std::exception& failure) {
        listener.setRecord(nullptr);
        log.setRecord(nullptr);
        record.outcome = RunOutcome::Error;
        record.errorText = failure.what();
        display.endTest(verdictText(record) + ": " + record.errorText);
      }
      records.push_back(std::move(record));
    }
  }

  nlohmann::json results = nlohmann::json::array();
  for (const TestRecord& record : records) results.push_back(recordJson(record));
  document_["results"] = results;
  if (!json_) printSummary(out(), records);
  const int status = exitStatusOf(records, interruptRequested());
  document_["interrupted"] = interruptRequested();
  return status;
}

}  // namespace
}  // namespace hwc

int main(int argc, char** argv) {
  std::vector<std::string> args;
  for (int i = 1; i < argc; ++i) args.emplace_back(argv[i]);
  hwc::Session session(args, argc > 0 ? argv[0] : "hwc_cli");
  return session.run();
}
