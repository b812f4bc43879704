// The end-to-end matrix: hwc_cli as a process, so the module is reached only
// through its three exports, runs every test of both diagnostics on every disk
// of the built-in simulated PC, every operation of the recover tool, and the
// hard cases of cli/testdata/hard-cases.json, each under a wall-clock
// watchdog. What each run must give is read from docs/EXPECTED-RESULTS.md
// itself: a row there is a test here.
#include <gtest/gtest.h>
#include <unistd.h>

#include <cstdio>
#include <fstream>
#include <set>
#include <sstream>

#include <nlohmann/json.hpp>

#include "end_to_end/expected_results.h"
#include "end_to_end/process_runner.h"
#include "messages.h"

namespace {

using nlohmann::json;
using testing_support::ProcessOptions;
using testing_support::ProcessResult;
using testing_support::Table;
using testing_support::TableRow;

// The watchdogs catch a run that hangs or spins; speed is bench/'s business.
// A test row ends in about a second of CPU; a whole-disk pass of the recover
// tool over the default machine's terabyte disk in about fifteen (the module
// clears and the simulated disk fills two terabytes of buffer), which took
// 220 s of wall-clock time on two cores shared with a dozen compilers. Both
// leave room for such a machine.
constexpr double kWatchdogSeconds = 120.0;
constexpr double kToolWatchdogSeconds = 600.0;

const char* const kTestsOnTheDefaultMachine = "Tests on the default machine";
const char* const kToolOnTheDefaultMachine = "The recover tool on the default machine";
const char* const kTestsOnTheHardCases = "Tests on the hard-cases machine";
const char* const kToolOnTheHardCases = "The recover tool on the hard-cases machine";

const std::vector<Table>& documentTables() {
  static const std::vector<Table> tables = testing_support::readTablesFromFile(EXPECTED_RESULTS_PATH);
  return tables;
}

std::vector<TableRow> rowsOf(const char* heading) {
  const Table* table = testing_support::findTable(documentTables(), heading);
  return table == nullptr ? std::vector<TableRow>{} : table->rows;
}

// The machine a table's runs use: the built-in one or the test data file.
std::string machineOf(const char* heading) {
  return std::string(heading).find("hard-cases") != std::string::npos ? std::string(HARD_CASES_MACHINE_PATH)
                                                                       : std::string("default");
}

// hwc_cli's JSON may carry a number as a number or as decimal text.
bool unsignedOf(const json& value, uint64_t* out) {
  if (value.is_number_unsigned()) {
    *out = value.get<uint64_t>();
    return true;
  }
  if (value.is_number_integer() && value.get<int64_t>() >= 0) {
    *out = static_cast<uint64_t>(value.get<int64_t>());
    return true;
  }
  if (value.is_string()) {
    const std::string text = value.get<std::string>();
    uint64_t number = 0;
    if (text.empty() || !testing_support::leadingNumber(text, &number) || std::to_string(number) != text) return false;
    *out = number;
    return true;
  }
  return false;
}

std::string textOfValue(const json& value) {
  if (value.is_string()) return value.get<std::string>();
  if (value.is_null()) return "";
  return value.dump();
}

// A list of values as blank-separated words, numbers in decimal.
std::string joined(const json& list) {
  std::string text;
  if (!list.is_array()) return text;
  for (const json& item : list) {
    uint64_t number = 0;
    text += (text.empty() ? "" : " ") + (unsignedOf(item, &number) ? std::to_string(number) : textOfValue(item));
  }
  return text;
}

std::string joinedWords(const std::string& cell) {
  std::string text;
  for (const std::string& word : testing_support::words(cell)) text += (text.empty() ? "" : " ") + word;
  return text;
}

// "--quick=short-self-test,targeted-read 0" and the like, cut at blanks into
// arguments (a comma belongs to its test list).
std::vector<std::string> argumentsOf(const std::string& cell) {
  std::vector<std::string> arguments;
  std::istringstream in(cell);
  for (std::string argument; in >> argument;) arguments.push_back(argument);
  return arguments;
}

std::string rowName(const TableRow& row, std::initializer_list<const char*> columns) {
  std::string name;
  for (const char* column : columns) {
    for (char c : row.cell(column)) {
      const bool keep = (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9');
      if (keep) {
        name += c;
      } else if (!name.empty() && name.back() != '_') {
        name += '_';
      }
    }
    if (!name.empty() && name.back() != '_') name += '_';
  }
  while (!name.empty() && name.back() == '_') name.pop_back();
  return name.empty() ? "row" : name;
}

std::string tempPath(const std::string& stem) {
  static int serial = 0;
  return ::testing::TempDir() + "/hwc_matrix_" + std::to_string(getpid()) + "_" + std::to_string(++serial) + "_" +
         stem;
}

ProcessResult runHwcCli(const std::string& machine, const std::vector<std::string>& extra, bool json,
                        const std::string& journal = "", const std::string& interruptOn = "",
                        double watchdogSeconds = kWatchdogSeconds) {
  ProcessOptions options;
  options.arguments = {HWC_CLI_PATH, "--module", MODULE_STORAGE_LIBRARY_PATH, "-Mstorage", "--machine", machine};
  if (json) options.arguments.push_back("--json");
  options.arguments.insert(options.arguments.end(), extra.begin(), extra.end());
  if (!journal.empty()) options.environment.emplace_back("MODULE_STORAGE_JOURNAL", journal);
  options.watchdogSeconds = watchdogSeconds;
  options.interruptOnOutput = interruptOn;
  return testing_support::runProcess(options);
}

std::string commandText(const std::string& machine, const std::vector<std::string>& extra) {
  std::string text = "hwc_cli -Mstorage --machine " + machine;
  for (const std::string& argument : extra) text += " " + argument;
  return text;
}

// The sectors the simulated PC's journal saw written to `disk`, one LBA a
// word; a journal that dropped entries, or a range too long to list, is said
// as such so that the comparison fails with a reason.
std::string writtenSectors(const std::string& journalPath, const std::string& disk) {
  std::ifstream file(journalPath);
  if (!file) return "(no journal written)";
  std::string text;
  std::string line;
  std::getline(file, line);
  if (line.find(" 0 dropped") == std::string::npos) return "(journal dropped entries: " + line + ")";
  while (std::getline(file, line)) {
    std::istringstream fields(line);
    std::string time, device, kind;
    uint64_t lba = 0, count = 0;
    fields >> time >> device >> kind;
    if (device != disk || kind != "write") continue;
    fields >> lba >> count;
    if (count > 64) return "(" + std::to_string(count) + " sectors from " + std::to_string(lba) + ")";
    for (uint64_t i = 0; i < count; ++i) text += (text.empty() ? "" : " ") + std::to_string(lba + i);
  }
  return text.empty() ? "none" : text;
}

// True when the journal holds a command to `disk` whose bytes (task file
// registers or CDB, in hex) begin with `prefix`.
bool journalHasCommand(const std::string& journalPath, const std::string& disk, const std::string& prefix) {
  std::ifstream file(journalPath);
  std::string line;
  while (std::getline(file, line)) {
    std::istringstream fields(line);
    std::string time, device, kind, bytes;
    fields >> time >> device >> kind >> bytes;
    if (device == disk && (kind == "ata" || kind == "scsi") && bytes.compare(0, prefix.size(), prefix) == 0) return true;
  }
  return false;
}

// --- Tests of the diagnostics ------------------------------------------------

struct TestCase {
  const char* table;
  TableRow row;
};

// gtest names a failing case by this, not by its bytes.
void PrintTo(const TestCase& testCase, std::ostream* out) {
  *out << "EXPECTED-RESULTS.md line " << testCase.row.line;
}

std::vector<TestCase> testCases() {
  std::vector<TestCase> cases;
  for (const char* heading : {kTestsOnTheDefaultMachine, kTestsOnTheHardCases}) {
    for (const TableRow& row : rowsOf(heading)) cases.push_back({heading, row});
  }
  return cases;
}

std::string testCaseName(const ::testing::TestParamInfo<TestCase>& info) {
  const bool hard = std::string(info.param.table) == kTestsOnTheHardCases;
  return std::string(hard ? "HardCases_" : "Default_") + "line" + std::to_string(info.param.row.line) + "_" +
         rowName(info.param.row, {"Run", "Test", "Disk"});
}

class DiagnosticRun : public ::testing::TestWithParam<TestCase> {};

// The text of a row's Ctrl-C, from `Ctrl-C after "text"`; empty for none.
std::string interruptMarker(const TableRow& row) {
  const std::string then = row.cell("Then");
  const size_t open = then.find('"');
  const size_t close = open == std::string::npos ? std::string::npos : then.find('"', open + 1);
  if (then.compare(0, 6, "Ctrl-C") != 0 || close == std::string::npos) return "";
  return then.substr(open + 1, close - open - 1);
}

uint32_t resultCodeOf(const std::string& key) {
  for (uint32_t code = 0; code < 16; ++code) {
    if (hwc::resultKey(code) == key) return code;
  }
  return 0xFFFFFFFF;
}

TEST_P(DiagnosticRun, EndsWithTheDocumentedResult) {
  const TestCase& testCase = GetParam();
  const TableRow& row = testCase.row;
  const std::string machine = machineOf(testCase.table);
  uint64_t disk = 0;
  ASSERT_TRUE(testing_support::leadingNumber(row.cell("Disk"), &disk)) << "line " << row.line << ": no disk number";
  // A row names its test (--quick=short-self-test) and the disk; a hard case
  // may give the whole selection in "Run" instead.
  std::vector<std::string> arguments = argumentsOf(row.cell("Run").empty() ? row.cell("Test") : row.cell("Run"));
  if (row.cell("Run").empty()) arguments.push_back(std::to_string(disk));
  const std::string marker = interruptMarker(row);
  SCOPED_TRACE(commandText(machine, arguments) + " (EXPECTED-RESULTS.md line " + std::to_string(row.line) + ")");

  const std::string journal = tempPath("journal.txt");
  const ProcessResult run = runHwcCli(machine, arguments, marker.empty(), journal, marker);
  // A row may name a command the disk must have received (its journal name
  // in parentheses in "Disk"): the proof that the drive was really asked.
  const std::string command = row.cell("Journal shows");
  if (!command.empty()) {
    EXPECT_TRUE(journalHasCommand(journal, testing_support::parenthesised(row.cell("Disk")), command))
        << "no command " << command << " to " << row.cell("Disk") << " in the journal";
  }
  std::remove(journal.c_str());
  ASSERT_TRUE(run.started) << run.error;
  ASSERT_FALSE(run.timedOut) << "no end within " << kWatchdogSeconds << " s; output so far:\n" << run.out;
  ASSERT_TRUE(run.exited) << run.describe() << "\n" << run.err;
  std::printf("  %s: %s\n", commandText(machine, arguments).c_str(), run.describe().c_str());

  if (!marker.empty()) {
    // A Ctrl-C run speaks text, since the moment to interrupt is read from its
    // output: stopped (exit 4), and the summary tells the verdict and message.
    EXPECT_TRUE(run.interrupted) << "\"" << marker << "\" never appeared:\n" << run.out;
    EXPECT_EQ(run.exitStatus, 4) << run.out;
    const std::string verdict = hwc::resultText(resultCodeOf(row.cell("Result")));
    const std::string message = row.cell("Message").empty() ? "" : hwc::describeMessage(row.cell("Message"));
    const size_t summary = run.out.find("\nSummary");
    ASSERT_NE(summary, std::string::npos) << run.out;
    bool found = false;
    std::istringstream lines(run.out.substr(summary));
    for (std::string line; std::getline(lines, line);) {
      found = found || (line.find(verdict) != std::string::npos && line.find(message) != std::string::npos);
    }
    EXPECT_TRUE(found) << "no summary line with \"" << verdict << "\" and \"" << message << "\":\n" << run.out;
    return;
  }

  json document;
  try {
    document = json::parse(run.out);
  } catch (const std::exception& error) {
    FAIL() << "output is no JSON document (" << error.what() << "):\n" << run.out << "\n" << run.err;
  }
  ASSERT_TRUE(document.contains("results") && document["results"].is_array()) << run.out;
  // The row's test on the row's disk: by the test's name when a run holds
  // several tests, or the one result of the disk.
  const json* result = nullptr;
  int matches = 0;
  for (const json& entry : document["results"]) {
    uint64_t device = 0;
    if (!entry.contains("device") || !unsignedOf(entry["device"], &device) || device != disk) continue;
    const std::string testKey = entry.contains("name") ? textOfValue(entry["name"]) : "";
    const std::string wanted = row.cell("Test");
    if (!row.cell("Run").empty() && testKey != wanted && hwc::textOf(testKey) != wanted) continue;
    result = &entry;
    ++matches;
  }
  ASSERT_EQ(matches, 1) << "results of disk " << disk << ":\n" << document["results"].dump(1);
  EXPECT_EQ(textOfValue((*result)["outcome"]), row.cell("Outcome"));
  EXPECT_EQ(textOfValue((*result)["resultName"]), row.cell("Result"));
  EXPECT_EQ(textOfValue((*result)["message"]), row.cell("Message"));
  if (row.cell("Result") == "NOT_APPLICABLE") {
    EXPECT_FALSE(row.cell("Why").empty()) << "line " << row.line << ": a NOT_APPLICABLE row gives its reason";
  }
}

INSTANTIATE_TEST_SUITE_P(ExpectedResults, DiagnosticRun, ::testing::ValuesIn(testCases()), testCaseName);

// --- The recover tool ---------------------------------------------------------

struct ToolCase {
  const char* table;
  TableRow row;
};

void PrintTo(const ToolCase& toolCase, std::ostream* out) {
  *out << "EXPECTED-RESULTS.md line " << toolCase.row.line;
}

std::vector<ToolCase> toolCases() {
  std::vector<ToolCase> cases;
  for (const char* heading : {kToolOnTheDefaultMachine, kToolOnTheHardCases}) {
    for (const TableRow& row : rowsOf(heading)) cases.push_back({heading, row});
  }
  return cases;
}

std::string toolCaseName(const ::testing::TestParamInfo<ToolCase>& info) {
  const bool hard = std::string(info.param.table) == kToolOnTheHardCases;
  return std::string(hard ? "HardCases_" : "Default_") + "line" + std::to_string(info.param.row.line) + "_" +
         rowName(info.param.row, {"Operation", "Disk"});
}

class ToolRun : public ::testing::TestWithParam<ToolCase> {};

TEST_P(ToolRun, EndsWithTheDocumentedStatusesAndWritesOnlyWhatItRepairs) {
  const ToolCase& toolCase = GetParam();
  const TableRow& row = toolCase.row;
  const std::string machine = machineOf(toolCase.table);
  const std::string operation = row.cell("Operation");
  std::vector<std::string> arguments = {"--recover", operation};
  uint64_t disk = 0;
  const bool oneDisk = testing_support::leadingNumber(row.cell("Disk"), &disk);
  if (oneDisk) arguments.push_back(std::to_string(disk));
  // A repair rewrites sectors: the run says yes to the question a host may ask first.
  if (operation == "repair") arguments.insert(arguments.end(), {"--answer", "1"});
  const std::string journal = tempPath("journal.txt");
  SCOPED_TRACE(commandText(machine, arguments) + " (EXPECTED-RESULTS.md line " + std::to_string(row.line) + ")");

  const ProcessResult run = runHwcCli(machine, arguments, true, journal, "", kToolWatchdogSeconds);
  ASSERT_TRUE(run.started) << run.error;
  ASSERT_FALSE(run.timedOut) << "no end within " << kToolWatchdogSeconds << " s; output so far:\n" << run.out;
  ASSERT_TRUE(run.exited) << run.describe() << "\n" << run.err;
  std::printf("  %s: %s\n", commandText(machine, arguments).c_str(), run.describe().c_str());
  json document;
  try {
    document = json::parse(run.out);
  } catch (const std::exception& error) {
    FAIL() << "output is no JSON document (" << error.what() << "):\n" << run.out << "\n" << run.err;
  }
  ASSERT_TRUE(document.contains("recover") && document["recover"].is_object()) << run.out;
  const json& recover = document["recover"];

  if (operation == "filterDevices") {
    EXPECT_EQ(joined(recover.value("devicesFilter", json::array())), joinedWords(row.cell("Result")));
  } else {
    EXPECT_EQ(joined(recover.value("statuses", json::array())), joinedWords(row.cell("Result")));
    // What the last device's finish carried.
    json finish;
    for (const json& event : recover.value("events", json::array())) {
      if (event.value("event", "") == "OnDeviceFinish") finish = event;
    }
    if (!row.cell("Sectors read, bad, fixed").empty()) {
      ASSERT_TRUE(finish.is_object()) << recover.dump(1);
      json info = finish.value("SectorsInfo", json::array());
      if (info.is_array() && info.size() > 3) info.erase(3);
      EXPECT_EQ(joined(info), joinedWords(row.cell("Sectors read, bad, fixed")));
    }
    if (finish.is_object()) {
      const std::string bad = joined(finish.value("BadSectorsList", json::array()));
      EXPECT_EQ(bad.empty() ? "none" : bad, joinedWords(row.cell("Bad sectors")));
    }
  }
  // The first text the tool left for the user in a finish event, if any.
  std::string message;
  for (const json& event : recover.value("events", json::array())) {
    const json text = event.value("Message", json::array());
    if (message.empty() && text.is_array() && !text.empty()) message = textOfValue(text.front());
  }
  EXPECT_EQ(message, row.cell("Message"));
  // The journal of the simulated PC: exactly the sectors the row names were
  // written, on the disk it names (its journal name in parentheses).
  const std::string journalName = testing_support::parenthesised(row.cell("Disk"));
  if (!journalName.empty()) {
    EXPECT_EQ(writtenSectors(journal, journalName), joinedWords(row.cell("Sectors written")));
  } else {
    std::ifstream file(journal);
    EXPECT_TRUE(file.good()) << "the simulated PC wrote no journal to " << journal;
  }
  std::remove(journal.c_str());
}

INSTANTIATE_TEST_SUITE_P(ExpectedResults, ToolRun, ::testing::ValuesIn(toolCases()), toolCaseName);

// --- The document itself --------------------------------------------------------

TEST(ExpectedResultsDocument, HasItsFourTables) {
  for (const char* heading :
       {kTestsOnTheDefaultMachine, kToolOnTheDefaultMachine, kTestsOnTheHardCases, kToolOnTheHardCases}) {
    EXPECT_FALSE(rowsOf(heading).empty()) << "no table under a heading \"" << heading << "\" in "
                                          << EXPECTED_RESULTS_PATH;
  }
}

TEST(ExpectedResultsDocument, EveryRowHasAllItsCells) {
  for (const Table& table : documentTables()) {
    for (const TableRow& row : table.rows) {
      EXPECT_EQ(row.cells.count("(cell count)"), 0u)
          << "line " << row.line << " under \"" << table.heading << "\" has " << row.cell("(cell count)")
          << " cells for " << table.columns.size() << " columns";
    }
  }
}

// The table of the default machine holds every test of both diagnostics on
// every disk the module finds, once, and nothing else; and every operation
// of the recover tool.
TEST(ExpectedResultsDocument, CoversEveryTestOnEveryDiskOfTheDefaultMachineAndEveryToolOperation) {
  const ProcessResult run = runHwcCli("default", {"--list"}, true);
  ASSERT_TRUE(run.exited && !run.timedOut) << run.describe();
  const json document = json::parse(run.out);
  const size_t disks = document.at("devices").size();
  ASSERT_GT(disks, 0u);
  std::multiset<std::string> offered;
  for (const json& diagnostic : document.at("catalogue").at("diagnostics")) {
    for (const json& test : diagnostic.at("tests")) {
      for (size_t disk = 0; disk < disks; ++disk) {
        offered.insert("--" + textOfValue(diagnostic.at("longName")) + "=" + textOfValue(test.at("longName")) + " " +
                       std::to_string(disk));
      }
    }
  }
  std::multiset<std::string> documented;
  for (const TableRow& row : rowsOf(kTestsOnTheDefaultMachine)) {
    uint64_t disk = 0;
    EXPECT_TRUE(testing_support::leadingNumber(row.cell("Disk"), &disk)) << "line " << row.line;
    documented.insert(row.cell("Test") + " " + std::to_string(disk));
  }
  EXPECT_EQ(documented, offered);

  std::set<std::string> operations;
  for (const TableRow& row : rowsOf(kToolOnTheDefaultMachine)) operations.insert(row.cell("Operation"));
  EXPECT_EQ(operations, (std::set<std::string>{"filterDevices", "scan", "repair", "filesystem"}));
}

// The watchdog and the Ctrl-C of the runner, on a shell instead of hwc_cli.
TEST(ProcessRunner, KillsAProcessThatSpinsPastItsWatchdog) {
  ProcessOptions options;
  options.arguments = {"/bin/sh", "-c", "echo spinning; while :; do :; done"};
  options.watchdogSeconds = 0.3;
  const ProcessResult run = testing_support::runProcess(options);
  EXPECT_TRUE(run.started);
  EXPECT_TRUE(run.timedOut);
  EXPECT_FALSE(run.exited);
  EXPECT_EQ(run.out, "spinning\n");
  EXPECT_NE(run.describe().find("killed by the watchdog"), std::string::npos);
}

TEST(ProcessRunner, SendsCtrlCOnceTheTextAppearsAndKeepsTheExitStatus) {
  ProcessOptions options;
  options.arguments = {"/bin/sh", "-c", "trap 'echo stopped; exit 4' INT; echo started; while :; do :; done"};
  options.interruptOnOutput = "started";
  options.watchdogSeconds = 30;
  const ProcessResult run = testing_support::runProcess(options);
  EXPECT_TRUE(run.interrupted);
  EXPECT_FALSE(run.timedOut);
  ASSERT_TRUE(run.exited) << run.describe();
  EXPECT_EQ(run.exitStatus, 4);
  EXPECT_EQ(run.out, "started\nstopped\n");
}

TEST(ExpectedResultsDocument, ReaderTakesCellsByColumnAndReadsADashAsEmpty) {
  const auto tables = testing_support::readTables(
      "# A\n\n| Test | Disk | Message |\n|---|---|---|\n| `--quick=s` | 0 (hdd0) | \xE2\x80\x94 |\n"
      "| `a|b` | 1 | - | extra |\n");
  ASSERT_EQ(tables.size(), 1u);
  EXPECT_EQ(tables[0].heading, "A");
  ASSERT_EQ(tables[0].rows.size(), 2u);
  EXPECT_EQ(tables[0].rows[0].cell("Test"), "--quick=s");
  EXPECT_EQ(tables[0].rows[0].cell("Message"), "");
  EXPECT_EQ(testing_support::parenthesised(tables[0].rows[0].cell("Disk")), "hdd0");
  EXPECT_EQ(tables[0].rows[1].cell("Test"), "a|b");
  EXPECT_EQ(tables[0].rows[1].cell("(cell count)"), "4");
  uint64_t disk = 9;
  EXPECT_TRUE(testing_support::leadingNumber(tables[0].rows[0].cell("Disk"), &disk));
  EXPECT_EQ(disk, 0u);
}

}  // namespace
