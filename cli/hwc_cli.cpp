// hwc_cli: the command-line front end. Loads a diagnostics module by file
// name, reads the command line against the module's own vocabulary, runs the
// chosen tests on the chosen devices and tells the outcome in words, in a
// summary table, as one JSON document or as JSON lines while it goes, and in
// its exit status.
#include <sys/stat.h>

#include <cstdio>
#include <cstdlib>
#include <exception>
#include <memory>
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
#include "event_stream.h"
#include "exit_status.h"
#include "host_objects.h"
#include "interrupts.h"
#include "messages.h"
#include "module_library.h"
#include "progress_display.h"
#include "report.h"
#include "selection.h"
#include "session_outputs.h"
#include "tool_host.h"

namespace hwc {
namespace {

constexpr const char* kMachineVariable = "MODULE_STORAGE_MACHINE";
// The disk-image files and block devices of --disk, joined by ':'.
constexpr const char* kDisksVariable = "MODULE_STORAGE_DISKS";
// Where the simulated PC leaves the reason a description could not be used.
constexpr const char* kMachineErrorVariable = "MODULE_STORAGE_MACHINE_ERROR";

void clearEnvironment(const char* name) {
#if defined(_WIN32)
  _putenv_s(name, "");
#else
  unsetenv(name);
#endif
}

// The parameters the storage module's tests read, by the test that reads
// them: the module takes any key and ignores those it does not know, so the
// front end is the one to say that a key does nothing.
struct KnownParameter {
  const char* section;
  const char* key;
  const char* test;  // the test's id, as itemText writes it
};
const KnownParameter kKnownParameters[] = {
    {"STORAGE", "SEC_NUM", "1.1.6"},      {"STORAGE", "SEC_COUNT", "1.1.6"},
    {"STORAGE", "INITIAL_SIZE", "1.1.11"}, {"STORAGE", "CENTRAL_SIZE", "1.1.11"},
    {"STORAGE", "FINAL_SIZE", "1.1.11"},   {"STORAGE", "WHOLE_DISK_READ", "1.1.11"},
};

bool fileExists(const std::string& path) {
  struct stat info {};
  return stat(path.c_str(), &info) == 0;
}

class Session {
 public:
  Session(std::vector<std::string> args, std::string program)
      : args_(std::move(args)), program_(std::move(program)) {
    // Known before the command line is read, so that an error in it is told
    // in the form asked for.
    for (const std::string& arg : args_) {
      json_ = json_ || arg == "--json";
      if (arg == "--json-lines") stream_ = std::make_unique<EventStream>(stdout);
    }
    if (json_ && stream_) stream_.reset();
    document_ = {{"schemaVersion", kJsonSchemaVersion},
                 {"program", "hwc_cli"},
                 {"arguments", args_},
                 {"errors", nlohmann::json::array()},
                 {"warnings", nlohmann::json::array()}};
    if (stream_) stream_->emit("start", {{"program", "hwc_cli"}, {"arguments", args_}});
  }

  int run();

 private:
  // `hint`: point to --help, for a mistake on the command line.
  int fail(int status, const std::string& message, bool hint = true);
  // Tells the error as fail does and returns `status`, leaving the end of the
  // session (its document and exit) to the caller.
  int report(int status, const std::string& message, bool hint = true);
  void warn(const std::string& message);
  int finish(int status);
  FILE* out() const { return stdout; }
  // Where questions and prompts go: stderr when stdout carries JSON.
  FILE* promptOut() const { return machineOutput() ? stderr : stdout; }
  bool machineOutput() const { return json_ || stream_ != nullptr; }
  DisplayMode displayMode() const {
    return machineOutput() ? DisplayMode::Silent : (HWC_ISATTY(1) ? DisplayMode::Terminal : DisplayMode::Lines);
  }
  int runTests(const std::vector<SelectedTest>& tests, const std::vector<uint32_t>& devices,
               SystemComponentManager& manager);
  int applyParameters(const std::vector<SelectedTest>& tests);
  void warnAboutParameters(const std::vector<SelectedTest>& tests);
  std::string machineProblem() const;
  int runRecover(ModuleInterface& module, SystemComponentManager& manager, const std::vector<uint32_t>& chosen);
  int confirmRepair(const std::vector<ToolDevice>& devices);

  std::vector<std::string> args_;
  std::string program_;
  bool json_ = false;
  std::unique_ptr<EventStream> stream_;
  CommandLine line_;
  nlohmann::json document_;
  SessionOutputs outputs_;  // --report, --metrics
};

int Session::fail(int status, const std::string& message, bool hint) {
  return finish(report(status, message, hint));
}

int Session::report(int status, const std::string& message, bool hint) {
  std::fflush(stdout);  // what was said before the error comes before it
  std::fprintf(stderr, "hwc_cli: %s\n", message.c_str());
  if (status == kExitUsage && hint) std::fprintf(stderr, "Try 'hwc_cli --help'.\n");
  document_["errors"].push_back(message);
  if (stream_) stream_->emit("error", {{"message", message}});
  return status;
}

void Session::warn(const std::string& message) {
  std::fflush(stdout);
  std::fprintf(stderr, "hwc_cli: warning: %s\n", message.c_str());
  document_["warnings"].push_back(message);
  if (stream_) stream_->emit("warning", {{"message", message}});
}

int Session::finish(int status) {
  if (outputs_.wanted()) {
    std::vector<std::string> errors;
    for (const auto& error : document_["errors"]) errors.push_back(error.is_string() ? error.get<std::string>() : error.dump());
    for (const std::string& problem : outputs_.write(status, interruptRequested(), errors)) {
      std::fprintf(stderr, "hwc_cli: %s\n", problem.c_str());
      document_["errors"].push_back(problem);
    }
  }
  if (json_) {
    document_["exitStatus"] = status;
    std::fprintf(stdout, "%s\n", dumpJson(document_).c_str());
  }
  if (stream_) {
    stream_->emit("end", {{"exitStatus", status},
                          {"interrupted", interruptRequested()},
                          {"errors", document_["errors"]},
                          {"warnings", document_["warnings"]}});
  }
  std::fflush(stdout);
  return status;
}

// The reason the simulated PC gave for not using the machine description,
// with where the description came from; empty when there is none.
std::string Session::machineProblem() const {
  const char* reason = std::getenv(kMachineErrorVariable);
  if (reason == nullptr || *reason == '\0') return "";
  std::string source;
  if (!line_.machine.empty()) {
    source = "the machine description '" + line_.machine + "' given to --machine";
  } else {
    const char* named = std::getenv(kMachineVariable);
    const std::string text = named != nullptr ? named : "";
    source = !text.empty() && text.find_first_not_of(" \t\r\n") != std::string::npos &&
                     text[text.find_first_not_of(" \t\r\n")] == '{'
                 ? std::string("the machine description given as JSON text in ") + kMachineVariable
                 : "the machine description '" + text + "' named by " + kMachineVariable;
  }
  return source + " cannot be used: " + reason;
}

int Session::run() {
  // From here on Ctrl-C asks for a stop; what was not run by then is reported
  // as not run.
  installInterruptHandler();
  ParseResult parsed = parseCommandLine(args_);
  if (!parsed.ok) return fail(kExitUsage, parsed.error);
  line_ = parsed.line;
  json_ = line_.json;
  // A reason left over from a parent process is not this run's.
  clearEnvironment(kMachineErrorVariable);
  if (line_.version) {
    if (json_) document_["version"] = versionText();
    if (!json_) std::fprintf(out(), "%s\n", versionText().c_str());
    return finish(kExitPassed);
  }
  {
    std::string error;
    if (!outputs_.prepare(line_.reportPath, line_.metricsPath, args_, line_.machine, error)) {
      return fail(kExitUsage, error);
    }
  }

  if (line_.help && !machineOutput()) std::fputs(usageText().c_str(), out());

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
  if (!machineOutput() && (line_.machine == "host" || !line_.disks.empty())) {
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
  outputs_.setModule(moduleName, library.versionText(), path);

  if (line_.help) {
    const std::string help = resource != nullptr ? resource->getHelpText() : "";
    if (stream_) stream_->emit("help", {{"usage", usageText()}, {"module", help}});
    if (machineOutput()) {
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

  if (stream_) stream_->emit("module", {{"module", document_["module"]}});
  if (!machineOutput()) {
    std::fprintf(out(), "hwc_cli: module %s %s (%s)\n", moduleName.empty() ? "storage" : moduleName.c_str(),
                 library.versionText().c_str(), path.c_str());
  }

  SystemComponentManager* manager = module->getComponentManager();
  if (manager == nullptr) {
    if (line_.list && !machineOutput()) printCatalogue(out(), *module);
    if (line_.list) document_["catalogue"] = catalogueJson(*module);
    return fail(kExitNothingRan, "the module has no component manager: it finds no devices to list or test");
  }
  try {
    manager->refresh();
  } catch (const std::exception& failure) {
    return fail(kExitNothingRan, std::string("the module failed to look for devices: ") + failure.what());
  }
  const std::string problem = machineProblem();
  if (!problem.empty()) return fail(kExitUsage, problem + " (docs/machine-description.md gives the format)", false);
  const uint32_t count = static_cast<uint32_t>(manager->getComponentCount());
  // Where no machine is named the module serves this host's own disks, which
  // it may not be allowed to open: say what is needed and where else to look.
  const char* namedMachine = std::getenv(kMachineVariable);
  const bool onHost = line_.disks.empty() && (namedMachine == nullptr || *namedMachine == '\0' ||
                                               std::string(namedMachine) == "host");
#if defined(_WIN32)
  // The Windows module reads the disks through the system alone: no
  // simulated PC and no image files to point at.
  const std::string noDevicesHint =
      onHost ? " on this host (reading a disk's identity and health needs an administrator's rights)" : "";
#else
  const std::string noDevicesHint =
      onHost ? " on this host (reading a disk needs root or the CAP_SYS_RAWIO capability; "
               "--machine default runs on the built-in simulated PC, --disk PATH tests a disk image)"
             : "";
#endif
  outputs_.setManager(manager);

  nlohmann::json devices = nlohmann::json::array();
  for (uint32_t i = 0; i < count; ++i) {
    if (SystemComponent* component = manager->getComponent(i)) devices.push_back(deviceJson(i, *component));
  }
  document_["devices"] = devices;
  if (stream_) stream_->emit("devices", {{"devices", devices}});

  if (line_.list) {
    document_["catalogue"] = catalogueJson(*module);
    if (stream_) stream_->emit("catalogue", {{"catalogue", document_["catalogue"]}});
    if (!machineOutput()) {
      std::fprintf(out(), "Devices: %u\n", count);
      printDeviceLines(out(), devicesOf(*manager), {});
      std::fprintf(out(), "Details:\n");
      for (uint32_t i = 0; i < count; ++i) {
        if (SystemComponent* component = manager->getComponent(i)) printDevice(out(), i, *component);
      }
      printCatalogue(out(), *module);
    }
    if (!runWanted) {
      if (interruptRequested()) return finish(kExitAborted);
      return count == 0 ? fail(kExitNothingRan, "the module found no devices" + noDevicesHint) : finish(kExitPassed);
    }
  }

  if (count == 0) return fail(kExitNothingRan, "the module found no devices to test" + noDevicesHint);
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

  warnAboutParameters(selection.tests);
  if (int status = applyParameters(selection.tests)) return status;

  int status = kExitNothingRan;
  bool ranSomething = false;
  if (!selection.tests.empty()) {
    status = runTests(selection.tests, chosen, *manager);
    ranSomething = true;
  }
  if (!line_.recoverOperation.empty() && !interruptRequested()) {
    const int toolStatus = runRecover(*module, *manager, chosen);
    status = ranSomething ? worseExit(status, toolStatus) : toolStatus;
  }
  return finish(status);
}

// The tool on the chosen devices. A repair writes: it runs only on the disks
// the tool itself offers, and only once somebody said yes to the list of
// disks and volumes it takes offline.
int Session::runRecover(ModuleInterface& module, SystemComponentManager& manager, const std::vector<uint32_t>& chosen) {
  const std::string& operation = line_.recoverOperation;
  std::vector<ToolDevice> toolDevices;
  for (uint32_t index : chosen) toolDevices.push_back({index, manager.getComponent(index)});

  if (operation == "repair") {
    const std::vector<std::string> marks = offeredDevices(module, toolDevices);
    if (!marks.empty()) {
      std::vector<ToolDevice> offered;
      std::string refused;
      for (size_t i = 0; i < toolDevices.size(); ++i) {
        const ToolDevice& device = toolDevices[i];
        const std::string label = "[" + std::to_string(device.index) + "] " + device.component->getDescription().name;
        if (i < marks.size() && marks[i] == "T") {
          offered.push_back(device);
        } else if (!line_.devices.empty()) {
          refused += (refused.empty() ? "" : ", ") + label;
        } else if (!machineOutput()) {
          std::fprintf(out(), "hwc_cli: repair passes over %s: the tool does not offer it\n", label.c_str());
        }
      }
      if (!refused.empty()) {
        return report(kExitUsage, "repair is not offered on " + refused +
                                    ": the tool repairs internal ATA disks only ('--recover filterDevices' lists them)");
      }
      if (offered.empty()) return report(kExitNothingRan, "the tool offers none of the chosen disks for repair");
      toolDevices = offered;
    }
    if (int status = confirmRepair(toolDevices)) return status;
  }

  ProgressDisplay display(displayMode(), out());
  AnswerSource answers(line_.answers, HWC_ISATTY(0) != 0, stdin, promptOut(), machineOutput());
  ToolRun tool = runRecoverTool(module, operation, toolDevices, display, answers, stream_.get());
  document_["recover"] = tool.document;
  if (!tool.error.empty()) {
    std::fprintf(stderr, "hwc_cli: %s\n", tool.error.c_str());
    document_["errors"].push_back(tool.error);
    if (stream_) stream_->emit("error", {{"message", tool.error}});
  }
  if (stream_ && tool.document.contains("results")) {
    stream_->emit("recoverEnded", {{"operation", operation}, {"results", tool.document["results"]}});
  }
  return tool.exitStatus;
}

// Asks before a repair: on a terminal a person answers; elsewhere --answer 1
// must say yes beforehand. 0 when the repair may go on, else the exit status.
int Session::confirmRepair(const std::vector<ToolDevice>& devices) {
  std::string plan =
      "Repair reads every sector of these disks and rewrites each one it cannot read with a fixed pattern:\n"
      "the data in those sectors is lost. Their volumes are taken offline while it runs.\n";
  nlohmann::json disks = nlohmann::json::array();
  for (const ToolDevice& device : devices) {
    const std::vector<std::string> volumes = volumesOf(*device.component);
    std::string shown;
    for (const std::string& volume : volumes) shown += (shown.empty() ? "" : ", ") + volume;
    plan += "  [" + std::to_string(device.index) + "] " + device.component->getDescription().name + ": " +
            (volumes.empty() ? std::string("no volumes") : "volumes " + shown) + "\n";
    disks.push_back({{"device", device.index}, {"deviceId", device.component->getId()}, {"volumes", volumes}});
  }
  uint32_t answer = 0;
  std::string answeredBy;
  if (!line_.answers.empty()) {
    answer = line_.answers.front();
    answeredBy = "--answer";
    if (!machineOutput()) std::fprintf(out(), "%s", plan.c_str());
  } else if (HWC_ISATTY(0)) {
    std::fprintf(promptOut(), "%sRepair these disks? 1 yes, 2 no: ", plan.c_str());
    std::fflush(promptOut());
    char reply[64] = {};
    if (std::fgets(reply, sizeof(reply), stdin) != nullptr) {
      const std::string text(reply);
      if (text.rfind("1", 0) == 0 || text.rfind("y", 0) == 0 || text.rfind("Y", 0) == 0) answer = 1;
    }
    answeredBy = "terminal";
  } else {
    return report(kExitUsage,
                "'--recover repair' rewrites sectors on the disks and nobody is at a terminal to confirm it: "
                "add --answer 1 to say yes beforehand");
  }
  document_["repairConfirmation"] = {{"disks", disks}, {"answer", answer}, {"answeredBy", answeredBy}};
  if (stream_) {
    stream_->emit("question", {{"title", "REPAIR"}, {"text", plan}, {"numberA", 1}, {"numberB", 2},
                               {"answer", answer}, {"answeredBy", answeredBy}});
  }
  if (answer != 1) return report(kExitNothingRan, "repair not confirmed: nothing was written");
  return 0;
}

// Keys the module would ignore without a word, and keys that only a test
// that is not chosen reads, are pointed out; the run goes on.
void Session::warnAboutParameters(const std::vector<SelectedTest>& tests) {
  for (const ParameterSetting& setting : line_.parameters) {
    const KnownParameter* known = nullptr;
    std::string keys;
    for (const KnownParameter& parameter : kKnownParameters) {
      keys += std::string(keys.empty() ? "" : ", ") + parameter.section + "." + parameter.key;
      if (setting.section == parameter.section && setting.key == parameter.key) known = &parameter;
    }
    const std::string named = "--param " + setting.section + "." + setting.key + "=" + setting.value;
    if (known == nullptr) {
      warn(named + ": no test reads '" + setting.section + "." + setting.key + "', so it changes nothing (known: " +
           keys + ")");
      continue;
    }
    bool chosen = false;
    for (const SelectedTest& test : tests) chosen = chosen || itemText(test.id) == known->test;
    if (!chosen && !tests.empty()) {
      warn(named + ": only test " + known->test + " reads it, and it is not among the chosen tests");
    }
  }
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
      std::string value;
      auto section = parameters.find(entry.section);
      if (section != parameters.end() && section->second.count(entry.key) != 0) value = section->second.at(entry.key);
      // A test that reads its number into 32 bits calls a longer one "not a
      // number"; to a person it is a number that is too large.
      const bool allDigits = !value.empty() && value.find_first_not_of("0123456789") == std::string::npos;
      const std::string reason = entry.code == kParameterNotANumber
                                     ? (allDigits ? "the number is too large (the test reads at most 32 bits)"
                                                  : "the value is not a number")
                                 : entry.code == kParameterOutOfRange ? "the value is out of range"
                                                                      : "refused";
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
  ProgressDisplay display(displayMode(), out());
  AnswerSource answers(line_.answers, HWC_ISATTY(0) != 0, stdin, promptOut(), machineOutput());
  CliListener listener(display, answers);
  CliLog log(display);
  listener.setStream(stream_.get());
  log.setStream(stream_.get());

  nlohmann::json selected = nlohmann::json::array();
  for (const SelectedTest& test : tests) {
    selected.push_back({{"id", itemText(test.id)}, {"name", test.nameKey}, {"text", textOf(test.nameKey)},
                        {"diagnostic", test.diagnosticKey}});
  }
  document_["tests"] = selected;
  if (stream_) stream_->emit("tests", {{"tests", selected}});

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
      record.deviceId = component != nullptr ? component->getId() : "";
      const std::string label = "[" + std::to_string(index) + "] " + textOf(test.nameKey);
      if (interruptRequested()) {
        record.outcome = RunOutcome::NotRun;
        if (stream_) stream_->emit("testEnded", {{"result", recordJson(record)}});
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
          if (stream_) stream_->emit("testStarted", recordKeys(record));
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
      if (stream_) stream_->emit("testEnded", {{"result", recordJson(record)}});
      records.push_back(std::move(record));
    }
  }

  nlohmann::json results = nlohmann::json::array();
  for (const TestRecord& record : records) results.push_back(recordJson(record));
  document_["results"] = results;
  outputs_.setRecords(records);
  if (!machineOutput()) printSummary(out(), records);
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
