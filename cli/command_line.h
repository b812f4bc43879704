// The words of hwc_cli's command line, read into a record. Diagnostic and
// test selections are kept as typed: which letters and words exist is the
// loaded module's to say (see selection.h).
#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace hwc {

// One diagnostic on the command line: -Q, -Q"f,r", --quick, --quick="f,r".
struct DiagnosticChoice {
  std::string argument;  // as typed, for messages
  std::string name;      // the letter or the long word, as typed
  bool longForm = false;
  bool allTests = true;  // no list given
  std::vector<std::string> tests;  // letters or long names, blanks trimmed
};

// One --param SECTION.KEY=VALUE.
struct ParameterSetting {
  std::string argument;
  std::string section;
  std::string key;
  std::string value;
};

// One device id: an index into the module's component manager.
struct DeviceChoice {
  std::string argument;
  uint32_t index = 0;
};

struct CommandLine {
  bool help = false;
  bool list = false;
  bool json = false;
  bool jsonLines = false;  // --json-lines: events as they happen, one JSON object a line
  std::string moduleName;  // -M; empty when not given
  std::string libraryPath;  // --module; empty for the default
  std::string machine;      // --machine; empty when not given
  std::vector<std::string> disks;  // --disk, in order
  std::vector<ParameterSetting> parameters;
  std::vector<uint32_t> answers;  // --answer, in order
  std::string recoverOperation;   // --recover; empty when not given
  bool version = false;           // --version
  std::string reportPath;         // --report; empty when not given
  std::string metricsPath;        // --metrics; empty when not given
  std::vector<DiagnosticChoice> diagnostics;
  std::vector<DeviceChoice> devices;
};

struct ParseResult {
  bool ok = false;
  std::string error;  // names the bad argument when !ok
  CommandLine line;
};

// Reads the arguments after the program name. Never throws on bad input.
ParseResult parseCommandLine(const std::vector<std::string>& args);

// The front end's own usage text, shown by --help before the module's help.
std::string usageText();

// A decimal number that fits 32 bits, nothing else: no sign, no blanks.
bool parseDecimal(const std::string& text, uint32_t& value);

}  // namespace hwc
