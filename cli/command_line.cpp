// Reading hwc_cli's arguments. Everything the front end itself understands
// is checked here; selections are kept as typed for the module's vocabulary.
#include "command_line.h"

#include <limits>

namespace hwc {
namespace {

std::string trimBlanks(const std::string& text) {
  size_t first = text.find_first_not_of(" \t");
  if (first == std::string::npos) return "";
  size_t last = text.find_last_not_of(" \t");
  return text.substr(first, last - first + 1);
}

// The shell normally takes the quotes of -Q"f,r" away; a host that passes
// them through (or a script that quotes twice) gets the same reading.
std::string stripQuotes(const std::string& text) {
  if (text.size() >= 2 && ((text.front() == '"' && text.back() == '"') ||
                           (text.front() == '\'' && text.back() == '\''))) {
    return text.substr(1, text.size() - 2);
  }
  return text;
}

bool splitTests(const std::string& list, const std::string& argument, DiagnosticChoice& choice,
                std::string& error) {
  const std::string inner = stripQuotes(list);
  if (trimBlanks(inner).empty()) {
    error = "empty test list in '" + argument + "'";
    return false;
  }
  choice.allTests = false;
  size_t from = 0;
  while (true) {
    size_t comma = inner.find(',', from);
    std::string item = trimBlanks(inner.substr(from, comma == std::string::npos ? std::string::npos : comma - from));
    if (item.empty()) {
      error = "empty test name in '" + argument + "'";
      return false;
    }
    choice.tests.push_back(item);
    if (comma == std::string::npos) break;
    from = comma + 1;
  }
  return true;
}

// Options of the front end that take a value, as --name VALUE or --name=VALUE.
const char* const kValueOptions[] = {"--module", "--machine", "--disk", "--param", "--answer", "--recover", "--report",
                                     "--metrics"};

bool isValueOption(const std::string& name) {
  for (const char* option : kValueOptions) {
    if (name == option) return true;
  }
  return false;
}

bool applyValueOption(const std::string& name, const std::string& value, const std::string& argument,
                      CommandLine& line, std::string& error) {
  if (name == "--module") {
    if (value.empty()) {
      error = "empty library path in '" + argument + "'";
      return false;
    }
    line.libraryPath = value;
  } else if (name == "--machine") {
    if (value.empty()) {
      error = "empty machine in '" + argument + "' (give a file, 'default' or 'host')";
      return false;
    }
    line.machine = value;
  } else if (name == "--disk") {
    // The module receives the paths joined by ':', so a path can't hold one.
    if (value.empty() || value.find(':') != std::string::npos) {
      error = value.empty() ? "empty disk path in '" + argument + "'"
                            : "disk path '" + value + "' in '" + argument + "' holds a ':', which hwc_cli can't pass on";
      return false;
    }
    line.disks.push_back(value);
  } else if (name == "--param") {
    ParameterSetting setting;
    setting.argument = argument;
    size_t dot = value.find('.');
    size_t equals = value.find('=');
    if (dot == std::string::npos || equals == std::string::npos || dot > equals || dot == 0 ||
        equals == dot + 1) {
      error = "bad parameter '" + value + "' in '" + argument + "' (write SECTION.KEY=VALUE, as STORAGE.SEC_NUM=1)";
      return false;
    }
    setting.section = value.substr(0, dot);
    setting.key = value.substr(dot + 1, equals - dot - 1);
    setting.value = value.substr(equals + 1);
    line.parameters.push_back(setting);
  } else if (name == "--answer") {
    uint32_t answer = 0;
    if (!parseDecimal(value, answer)) {
      error = "answer '" + value + "' in '" + argument + "' is not a decimal number";
      return false;
    }
    line.answers.push_back(answer);
  } else if (name == "--recover") {
    if (value != "scan" && value != "repair" && value != "filesystem" && value != "filterDevices") {
      error = "unknown operation '" + value + "' in '" + argument +
              "' (one of scan, repair, filesystem, filterDevices)";
      return false;
    }
    line.recoverOperation = value;
  } else if (name == "--report" || name == "--metrics") {
    if (value.empty()) {
      error = "empty file name in '" + argument + "'";
      return false;
    }
    (name == "--report" ? line.reportPath : line.metricsPath) = value;
  }
  return true;
}

}  // namespace

bool parseDecimal(const std::string& text, uint32_t& value) {
  if (text.empty() || text.size() > 10) return false;
  uint64_t number = 0;
  for (char c : text) {
    if (c < '0' || c > '9') return false;
    number = number * 10 + static_cast<uint64_t>(c - '0');
  }
  if (number > std::numeric_limits<uint32_t>::max()) return false;
  value = static_cast<uint32_t>(number);
  return true;
}

ParseResult parseCommandLine(const std::vector<std::string>& args) {
  ParseResult result;
  CommandLine& line = result.line;
  std::string& error = result.error;
  bool onlyDevices = false;

  for (size_t i = 0; i < args.size(); ++i) {
    const std::string& arg = args[i];
    if (!onlyDevices && arg == "--") {
      onlyDevices = true;
      continue;
    }
    if (onlyDevices || arg.empty() || arg[0] != '-') {
      DeviceChoice device;
      device.argument = arg;
      if (!parseDecimal(arg, device.index)) {
        error = "device id '" + arg + "' is not a number";
        if (arg.find(',') != std::string::npos || (!arg.empty() && arg[0] >= 'a' && arg[0] <= 'z')) {
          error += " (a test list is written against its diagnostic, as in -Q\"f,r\")";
        }
        return result;
      }
      line.devices.push_back(device);
      continue;
    }
    if (arg == "-") {
      error = "unknown option '-'";
      return result;
    }
    if (arg == "--help" || arg == "-h" || arg == "-?") {
      line.help = true;
      continue;
    }
    if (arg == "--list") {
      line.list = true;
      continue;
    }
    if (arg == "--json") {
      if (line.jsonLines) {
        error = "'--json' and '--json-lines' exclude each other: choose one document or a stream of lines";
        return result;
      }
      line.json = true;
      continue;
    }
    if (arg == "--json-lines") {
      if (line.json) {
        error = "'--json' and '--json-lines' exclude each other: choose one document or a stream of lines";
        return result;
      }
      line.jsonLines = true;
      continue;
    }
    if (arg == "--version") {
      line.version = true;
      continue;
    }
    if (arg.compare(0, 2, "--") == 0) {
      size_t equals = arg.find('=');
      const std::string name = arg.substr(0, equals);
      if (isValueOption(name)) {
        std::string value;
        if (equals != std::string::npos) {
          value = arg.substr(equals + 1);
        } else if (i + 1 < args.size()) {
          value = args[++i];
        } else {
          error = "option '" + arg + "' needs a value";
          return result;
        }
        if (!applyValueOption(name, value, equals != std::string::npos ? arg : arg + " " + value, line, error)) {
          return result;
        }
        continue;
      }
      if (name == "--help" || name == "--list" || name == "--json" || name == "--json-lines" || name == "--version") {
        error = "option '" + name + "' takes no value, in '" + arg + "'";
        return result;
      }
      // A diagnostic by its long word; the module says which words exist.
      DiagnosticChoice choice;
      choice.argument = arg;
      choice.name = name.substr(2);
      choice.longForm = true;
      if (equals != std::string::npos && !splitTests(arg.substr(equals + 1), arg, choice, error)) return result;
      line.diagnostics.push_back(choice);
      continue;
    }
    // A single dash and a letter.
    const char letter = arg[1];
    if (letter == 'M') {
      std::string value = arg.substr(2);
      if (value.empty()) {
        if (i + 1 >= args.size()) {
          error = "option '-M' needs a module name, as in -Mstorage";
          return result;
        }
        value = args[++i];
      }
      value = stripQuotes(value);
      if (value.empty()) {
        error = "empty module name in '" + arg + "'";
        return result;
      }
      if (!line.moduleName.empty() && line.moduleName != value) {
        error = "a second module '" + value + "' in '" + arg + "' (one module per run)";
        return result;
      }
      line.moduleName = value;
      continue;
    }
    if (!((letter >= 'A' && letter <= 'Z') || (letter >= 'a' && letter <= 'z'))) {
      error = "unknown option '" + arg + "'";
      return result;
    }
    DiagnosticChoice choice;
    choice.argument = arg;
    choice.name = std::string(1, letter);
    if (arg.size() > 2 && !splitTests(arg.substr(2), arg, choice, error)) return result;
    line.diagnostics.push_back(choice);
  }
  result.ok = true;
  return result;
}

std::string usageText() {
  return "Usage: hwc_cli -Mstorage [diagnostic][\"test(s)\"]... [device id(s)] [options]\n"
         "\n"
         "  Runs the tests of a diagnostics module on the devices it finds. Device ids are\n"
         "  the indexes shown by --list; without any, every device is tested.\n"
         "\n"
         "Options of hwc_cli:\n"
         "  -M NAME, -MNAME          the module to use (storage)\n"
         "  --help, -h               this text, then the module's own help\n"
         "  --list                   the devices with their details, and the tests offered\n"
         "  --machine FILE|default   run on a simulated PC described by FILE, or the built-in one\n"
         "  --machine host           run on this host's own disks (the default without --disk)\n"
         "  --disk PATH              test a disk-image file or block device as a disk (repeatable);\n"
         "                           alone, only the disks given; with --machine host, as well\n"
         "  --module PATH            load the module library from PATH\n"
         "  --param SECTION.KEY=VALUE  a test parameter, as STORAGE.SEC_NUM=1 (repeatable)\n"
         "  --answer N               answer N to every question of a run (repeatable: in order);\n"
         "                           1 is yes, 2 is no; --recover repair needs --answer 1\n"
         "                           when nobody is at a terminal to confirm it\n"
         "  --recover OPERATION      run the recover-bad-sectors tool: scan, repair, filesystem\n"
         "                           or filterDevices (repair rewrites the unreadable sectors it\n"
         "                           finds and runs only on the disks filterDevices offers)\n"
         "  --json                   write one JSON document with devices, tests, results,\n"
         "                           events and log lines instead of text\n"
         "  --json-lines             write each event as one JSON line the moment it happens\n"
         "                           (docs/hwc_cli-json.schema.json describes both forms)\n"
         "  --report FILE.html       also write a report of the session as one HTML page\n"
         "  --metrics FILE.prom      also write results and health figures for Prometheus\n"
         "  --version                the version of hwc_cli\n"
         "  Ctrl-C                   asks the running test to stop; a second Ctrl-C quits\n"
         "                           (signals within a quarter second count as one press)\n"
         "\n"
         "Examples:\n"
         "  hwc_cli -Mstorage --machine default --list     the disks of the built-in simulated PC\n"
         "  hwc_cli -Mstorage --machine default -Q\"m,t\" 0  SMART status and targeted read on disk 0\n"
         "  hwc_cli -Mstorage --machine my-pc.json -E      the Extended diagnostic on a described PC\n"
         "  hwc_cli -Mstorage --disk disk.img -Q            the Quick diagnostic on a disk image\n"
         "  Without --machine or --disk the module tests this host's own disks, which\n"
         "  needs root or the CAP_SYS_RAWIO capability.\n"
         "  docs/TESTS.md tells what each test does, on which disks, and what it can find.\n"
         "\n"
         "Exit status: 0 every test that ran passed, 1 a test failed or bad sectors were found,\n"
         "             2 usage error or a machine description that cannot be used,\n"
         "             3 nothing could run, 4 stopped by Ctrl-C or a system event,\n"
         "             5 a device stopped answering (lost) or gave nothing to read.\n";
}

}  // namespace hwc
