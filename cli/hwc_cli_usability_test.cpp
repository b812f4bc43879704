// hwc_cli as a new user and a script meet it: machine descriptions that
// cannot be used, the repair's question, runs that read nothing or lose their
// device, Ctrl-C under GNU timeout, JSON with ids and numbers, --json-lines,
// warnings about parameters, questions on their own line, output to a file,
// lists without repeats, and every kind of run against the JSON Schema.
#include <signal.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <memory>
#include <string>
#include <vector>

#include <nlohmann/json.hpp>

#include "hwc_cli_process.h"

namespace {

using nlohmann::json;
using namespace hwc_cli_testing;

// --- machine descriptions that cannot be used -------------------------------------


TEST(HwcCliMachine, DescriptionNestedAHundredThousandDeepIsRefusedWithExitTwo) {
  const std::string deep = "{\"disks\": " + std::string(100000, '[') + std::string(100000, ']') + "}";
  TextFile file(".json", deep);
  Outcome byOption = realModule({"-Mstorage", "--machine", file.path(), "--list"});
  EXPECT_EQ(byOption.status, 2) << byOption.err;
  EXPECT_TRUE(contains(byOption.err, "the machine description '" + file.path() + "' given to --machine cannot be used: "
                                     "(machine): nested deeper than 64 levels of objects and arrays"))
      << byOption.err;

  Outcome byVariable = realModule({"-Mstorage", "--list"}, {{"MODULE_STORAGE_MACHINE", file.path()}});
  EXPECT_EQ(byVariable.status, 2) << byVariable.err;
  EXPECT_TRUE(contains(byVariable.err, "named by MODULE_STORAGE_MACHINE cannot be used: (machine): nested deeper"))
      << byVariable.err;
}

TEST(HwcCliMachine, EachBadDescriptionNamesTheFieldAndTheReasonAndExitsTwo) {
  struct Case {
    std::string text;
    std::string reason;
  };
  const Case cases[] = {
      {"", "(machine): not valid JSON: parse error at line 1"},
      {"{\"disks\": [", "(machine): not valid JSON: parse error"},
      {"[]", "(machine): expected an object"},
      {"{\"disks\": {}}", "disks: expected an array"},
      {"{\"disks\": [{\"name\": \"a\", \"kind\": \"emmc\", \"profile\": {\"capacitySectors\": 8}, \"speed\": 1}]}",
       "disks[0].speed: unknown key"},
      {"{\"clock\": {\"tickReadCostMs\": 70000}}", "clock.tickReadCostMs: must be at most 60000"},
  };
  for (const Case& bad : cases) {
    TextFile file(".json", bad.text);
    Outcome run = realModule({"-Mstorage", "--machine", file.path(), "-Q", "--json"});
    EXPECT_EQ(run.status, 2) << bad.text << ": " << run.err;
    EXPECT_TRUE(contains(run.err, "cannot be used: " + bad.reason)) << bad.text << ": " << run.err;
    EXPECT_FALSE(contains(run.err, "found no devices")) << run.err;
    json document = parsedJson(run);
    EXPECT_EQ(document["exitStatus"], 2);
    ASSERT_EQ(document["errors"].size(), 1u);
    EXPECT_TRUE(contains(document["errors"][0].get<std::string>(), bad.reason));
  }
}

TEST(HwcCliMachine, GarbageOrJsonTextInTheVariableIsNamedAndExitsTwo) {
  Outcome garbage = realModule({"-Mstorage", "--list"}, {{"MODULE_STORAGE_MACHINE", "no-such-machine"}});
  EXPECT_EQ(garbage.status, 2) << garbage.err;
  EXPECT_TRUE(contains(garbage.err, "'no-such-machine' named by MODULE_STORAGE_MACHINE cannot be used: cannot open "
                                    "machine description 'no-such-machine'"))
      << garbage.err;
  Outcome text = realModule({"-Mstorage", "--list"}, {{"MODULE_STORAGE_MACHINE", "{\"disks\": 5}"}});
  EXPECT_EQ(text.status, 2) << text.err;
  EXPECT_TRUE(contains(text.err, "given as JSON text in MODULE_STORAGE_MACHINE cannot be used: disks: expected an array"))
      << text.err;
}

TEST(HwcCliMachine, AReasonInheritedFromTheParentIsNotThisRunsAndAGoodMachineLists) {
  Outcome run = realModule({"-Mstorage", "--machine", "default", "--list"},
                           {{"MODULE_STORAGE_MACHINE_ERROR", "stale reason"}});
  EXPECT_EQ(run.status, 0) << run.err;
  EXPECT_FALSE(contains(run.err, "stale reason")) << run.err;
}

// (Without a machine the module would serve this host's own disks, which no
// test touches; the hint for that case is not reached here.)
TEST(HwcCliMachine, AnEmptySimulatedPcFindsNoDevicesWithoutTheHostsHint) {
  Outcome run = realModule({"-Mstorage", "--list"}, {{"MODULE_STORAGE_MACHINE", "{}"}});
  EXPECT_EQ(run.status, 3) << run.err;
  EXPECT_TRUE(contains(run.err, "the module found no devices")) << run.err;
  EXPECT_FALSE(contains(run.err, "CAP_SYS_RAWIO")) << run.err;
}

// --- the repair's question and the disks it covers ----------------------------------

json repairMachine() {
  json script = twoDiskMachine();
  script["tool"] = {{"badSectors", {"77", "78"}}, {"filter", {"T", "F"}}};
  return script;
}

TEST(HwcCliRepair, WithoutATerminalOrAnAnswerNothingIsWrittenAndItExitsTwo) {
  Machine machine(repairMachine());
  Outcome run = cli(machine, {"-Mstorage", "--recover", "repair"});
  EXPECT_EQ(run.status, 2) << run.err;
  EXPECT_TRUE(contains(run.err, "add --answer 1")) << run.err;
  EXPECT_FALSE(contains(run.out, "sectors read")) << "the tool did not run: " << run.out;
}

TEST(HwcCliRepair, CoversOnlyTheDisksTheToolOffersAndPrintsTheLbasFoundAndRewritten) {
  Machine machine(repairMachine());
  Outcome run = cli(machine, {"-Mstorage", "--recover", "repair", "--answer", "1"});
  EXPECT_EQ(run.status, 1) << run.err;
  EXPECT_TRUE(contains(run.out, "repair passes over [1] DISK B - 1 TB: the tool does not offer it")) << run.out;
  EXPECT_TRUE(contains(run.out, "[0] DISK A - 500 GB: volumes D:\\")) << "the plan names disk and volume: " << run.out;
  EXPECT_TRUE(contains(run.out, "unreadable sectors found at LBA 77, 78")) << run.out;
  EXPECT_TRUE(contains(run.out, "rewritten with a fixed pattern at LBA 77, 78")) << run.out;

  Outcome asJson = cli(machine, {"-Mstorage", "--recover", "repair", "--answer", "1", "--json"});
  json document = parsedJson(asJson);
  const json& results = document["recover"]["results"];
  ASSERT_EQ(results.size(), 1u) << "disk 1 is not offered";
  EXPECT_EQ(results[0]["deviceId"], "0");
  EXPECT_EQ(results[0]["badSectors"], (json{77, 78}));
  EXPECT_EQ(results[0]["sectorsRead"], 1000);
  EXPECT_EQ(results[0]["fixed"], 2);
  EXPECT_EQ(document["repairConfirmation"]["answeredBy"], "--answer");
  EXPECT_EQ(document["repairConfirmation"]["disks"][0]["volumes"], (json{"D:\\"}));
}

TEST(HwcCliRepair, ANamedDiskTheToolDoesNotOfferIsRefused) {
  Machine machine(repairMachine());
  Outcome run = cli(machine, {"-Mstorage", "--recover", "repair", "1", "--answer", "1"});
  EXPECT_EQ(run.status, 2) << run.err;
  EXPECT_TRUE(contains(run.err, "repair is not offered on [1] DISK B - 1 TB")) << run.err;
  EXPECT_FALSE(contains(run.out, "sectors read")) << run.out;
}

TEST(HwcCliRepair, APersonAtTheTerminalIsAskedAndANoWritesNothing) {
  Machine machine(repairMachine());
  Launch yes{withMachine(machine, {"-Mstorage", "--recover", "repair"}), "1\n", false, {}, true};
  Outcome confirmed = launch(yes);
  EXPECT_EQ(confirmed.status, 1) << confirmed.err;
  EXPECT_TRUE(contains(confirmed.out, "Repair reads every sector of these disks")) << confirmed.out;
  EXPECT_TRUE(contains(confirmed.out, "Repair these disks? 1 yes, 2 no: ")) << confirmed.out;
  EXPECT_TRUE(contains(confirmed.out, "sectors read 1000, bad found 2, fixed 2")) << confirmed.out;

  Launch no{withMachine(machine, {"-Mstorage", "--recover", "repair"}), "2\n", false, {}, true};
  Outcome declined = launch(no);
  EXPECT_EQ(declined.status, 3) << declined.err;
  EXPECT_TRUE(contains(declined.err, "repair not confirmed: nothing was written")) << declined.err;
  EXPECT_FALSE(contains(declined.out, "sectors read")) << declined.out;
}

TEST(HwcCliRepair, ScanListsTheLbasItFound) {
  Machine machine(repairMachine());
  Outcome run = cli(machine, {"-Mstorage", "--recover", "scan", "0"});
  EXPECT_EQ(run.status, 1) << run.err;
  EXPECT_TRUE(contains(run.out, "unreadable sectors found at LBA 77, 78")) << run.out;
  EXPECT_FALSE(contains(run.out, "rewritten")) << "a scan writes nothing: " << run.out;
}

// --- a run that read nothing ---------------------------------------------------------

TEST(HwcCliRecover, ARunThatReadNothingSaysSoAndExitsFive) {
  json script = twoDiskMachine();
  script["tool"] = {{"sectorsRead", "0"}};
  Machine machine(script);
  Outcome run = cli(machine, {"-Mstorage", "--recover", "scan", "0"});
  EXPECT_EQ(run.status, 5) << run.out << run.err;
  EXPECT_TRUE(contains(run.out, "Nothing was read: the device gave no sector")) << run.out;
  EXPECT_FALSE(contains(run.out, "Finished, nothing found")) << run.out;
  json document = parsedJson(cli(machine, {"-Mstorage", "--recover", "scan", "0", "--json"}));
  EXPECT_EQ(document["recover"]["results"][0]["readNothing"], true);
  EXPECT_EQ(document["recover"]["results"][0]["sectorsRead"], 0);
}

TEST(HwcCliRecover, ADeviceThatStoppedAnsweringExitsFiveNotFour) {
  json script = twoDiskMachine();
  script["tool"] = {{"status", "8"}, {"sectorsRead", "510"}};
  Machine machine(script);
  Outcome run = cli(machine, {"-Mstorage", "--recover", "repair", "0", "--answer", "1"});
  EXPECT_EQ(run.status, 5) << run.out << run.err;
  EXPECT_TRUE(contains(run.out, "Stopped: the device stopped answering")) << run.out;
}

TEST(HwcCliRecover, ScanOfADiskThatVanishesOnTheSimulatedPcIsNoCleanRun) {
  // One small ATA disk that leaves the bus after some commands: after 5 the
  // module has listed it and the scan finds nothing to read; after 20 the
  // scan has read some chunks when it goes.
  const auto vanishing = [](int commands) {
    return R"({"disks": [{"name": "gone", "kind": "ata", "profile": {"capacitySectors": 2000000},
        "faults": {"vanishAfterCommands": )" + std::to_string(commands) + "}}]}";
  };
  TextFile early(".early.json", vanishing(5));
  Outcome nothing = realModule({"-Mstorage", "--machine", early.path(), "--recover", "scan", "0"});
  EXPECT_EQ(nothing.status, 5) << nothing.out << nothing.err;
  EXPECT_TRUE(contains(nothing.out, "sectors read 0,")) << nothing.out;
  EXPECT_TRUE(contains(nothing.out, "Nothing was read")) << nothing.out;
  EXPECT_FALSE(contains(nothing.out, "Finished, nothing found")) << nothing.out;

  TextFile late(".late.json", vanishing(20));
  Outcome lost = realModule({"-Mstorage", "--machine", late.path(), "--recover", "repair", "0", "--answer", "1"});
  EXPECT_EQ(lost.status, 5) << lost.out << lost.err;
  EXPECT_TRUE(contains(lost.out, "Stopped: the device stopped answering")) << lost.out;
}

// --- Ctrl-C is counted once per key press -----------------------------------------------

json waitingMachine() {
  json script = twoDiskMachine();
  script["tests"][0]["steps"] = {{{"progress", 10}, {"key", "WAITING_FOR_ABORT"}}, {{"waitForAbort", true}}};
  return script;
}

TEST(HwcCliInterrupt, TwoSignalsOfOneKeyPressCountAsOneCtrlC) {
  Machine machine(waitingMachine());
  Launch request{withMachine(machine, {"-Mstorage", "-Q", "0"}), "", false, {"WAITING_FOR_ABORT", 1}};
  request.burst = true;
  Outcome run = launch(request);
  EXPECT_EQ(run.status, 4) << run.out << run.err;
  EXPECT_FALSE(contains(run.err, "quitting at once")) << run.err;
  EXPECT_TRUE(contains(run.out, "Summary")) << run.out;
}

TEST(HwcCliInterrupt, OneCtrlCUnderGnuTimeoutIsOneCtrlCAndTheSummaryStays) {
  Machine machine(waitingMachine());
  Launch request{withMachine(machine, {"-Mstorage", "-Q", "0"}), "", false, {"WAITING_FOR_ABORT", 1}};
  request.wrapper = {"timeout", "60"};
  Outcome run = launch(request);
  EXPECT_EQ(run.status, 4) << run.out << run.err;
  EXPECT_FALSE(contains(run.err, "quitting at once")) << run.err;
  EXPECT_TRUE(contains(run.out, "[0] SMART Status Test: Aborted")) << run.out;
  EXPECT_TRUE(contains(run.out, "Summary")) << run.out;
}

// --- JSON for scripts -------------------------------------------------------------------

TEST(HwcCliJson, ResultsCarryTheDevicesOwnIdBesideItsIndex) {
  json script = twoDiskMachine();
  script["devices"][0]["id"] = "6";
  script["devices"][1]["id"] = "9";
  Machine machine(script);
  json document = parsedJson(cli(machine, {"-Mstorage", "-Qm", "1", "--json"}));
  ASSERT_EQ(document["results"].size(), 1u);
  const json& result = document["results"][0];
  EXPECT_EQ(result["device"], 1);
  EXPECT_EQ(result["deviceId"], "9");
  EXPECT_EQ(document["devices"][1]["id"], result["deviceId"]) << "a join on the id finds the disk tested";
  EXPECT_EQ(document["schemaVersion"], 1);
}

TEST(HwcCliJson, DecimalValuesComeAsNumbersBesideTheirText) {
  json script = twoDiskMachine();
  script["devices"][0]["details"].push_back(json::array({"LOGICAL_SECTORS", "976773168"}));
  Machine machine(script);
  json document = parsedJson(cli(machine, {"-Mstorage", "--list", "--json"}));
  const json& details = document["devices"][0]["details"];
  ASSERT_EQ(details.back()["key"], "LOGICAL_SECTORS");
  EXPECT_EQ(details.back()["value"], "976773168") << "the module's text stays";
  EXPECT_EQ(details.back()["number"], 976773168u);
  EXPECT_FALSE(details[2].contains("number")) << "\"7200 RPM\" is no plain number";
}

TEST(HwcCliJson, JsonLinesStreamEachEventAsItHappens) {
  Machine machine(waitingMachine());
  // The interrupt is sent once the progress line of the waiting test has
  // appeared: the line was written before the test ended.
  Launch request{withMachine(machine, {"-Mstorage", "-Q", "0", "--json-lines"}), "", false,
                 {"\"key\":\"WAITING_FOR_ABORT\"", 1}};
  Outcome run = launch(request);
  EXPECT_EQ(run.status, 4) << run.err;
  std::vector<json> lines;
  size_t from = 0;
  while (from < run.out.size()) {
    const size_t end = run.out.find('\n', from);
    json line = json::parse(run.out.substr(from, end - from), nullptr, false);
    EXPECT_FALSE(line.is_discarded()) << run.out.substr(from, end - from);
    lines.push_back(line);
    from = end == std::string::npos ? run.out.size() : end + 1;
  }
  ASSERT_GE(lines.size(), 5u) << run.out;
  EXPECT_EQ(lines.front()["type"], "start");
  EXPECT_EQ(lines.back()["type"], "end");
  EXPECT_EQ(lines.back()["exitStatus"], 4);
  std::vector<std::string> types;
  for (const json& line : lines) types.push_back(line["type"]);
  for (const char* type : {"module", "devices", "tests", "testStarted", "progress", "testEnded"}) {
    EXPECT_NE(std::find(types.begin(), types.end(), type), types.end()) << type << " missing in " << run.out;
  }
}

TEST(HwcCliJson, AKilledJsonLinesRunLeavesEveryLineWrittenSoFar) {
  Machine machine(waitingMachine());
  Launch request{withMachine(machine, {"-Mstorage", "-Q", "0", "--json-lines"}), "", false,
                 {"\"key\":\"WAITING_FOR_ABORT\"", 1}};
  request.killAfterText = true;
  Outcome run = launch(request);
  EXPECT_EQ(run.status, 128 + SIGKILL);
  EXPECT_TRUE(contains(run.out, "\"type\":\"testStarted\"")) << run.out;
  EXPECT_TRUE(contains(run.out, "WAITING_FOR_ABORT")) << run.out;
  EXPECT_EQ(run.out.back(), '\n') << "whole lines only";
}

TEST(HwcCliJson, JsonAndJsonLinesExcludeEachOther) {
  Machine machine(twoDiskMachine());
  Outcome run = cli(machine, {"-Mstorage", "-Q", "--json", "--json-lines"});
  EXPECT_EQ(run.status, 2);
  EXPECT_TRUE(contains(run.err, "exclude each other")) << run.err;
}

// --- parameters, questions, progress and lists -------------------------------------------

TEST(HwcCliParameters, AKeyNoTestReadsIsWarnedAboutAndTheRunGoesOn) {
  Machine machine(twoDiskMachine());
  Outcome run = cli(machine, {"-Mstorage", "-Qm", "0", "--param", "STORAGE.SEC_NUMBER=1"});
  EXPECT_EQ(run.status, 0) << run.err;
  EXPECT_TRUE(contains(run.err, "warning: --param STORAGE.SEC_NUMBER=1: no test reads 'STORAGE.SEC_NUMBER'")) << run.err;
  EXPECT_TRUE(contains(run.err, "STORAGE.SEC_NUM, STORAGE.SEC_COUNT")) << "the known keys are listed: " << run.err;
  json document = parsedJson(cli(machine, {"-Mstorage", "-Qm", "0", "--param", "STORAGE.X=1", "--json"}));
  ASSERT_EQ(document["warnings"].size(), 1u);
}

TEST(HwcCliParameters, AKeyOfATestNotChosenIsWarnedAbout) {
  Machine machine(twoDiskMachine());
  Outcome run = cli(machine, {"-Mstorage", "-Qm", "0", "--param", "STORAGE.WHOLE_DISK_READ=1"});
  EXPECT_EQ(run.status, 0) << run.err;
  EXPECT_TRUE(contains(run.err, "only test 1.1.11 reads it, and it is not among the chosen tests")) << run.err;
}

TEST(HwcCliParameters, ANumberThatIsMerelyTooLargeIsCalledTooLarge) {
  json script = twoDiskMachine();
  script["tests"][0]["numericParameters"] = {{"SEC_NUM", 256}};
  Machine machine(script);
  Outcome run = cli(machine, {"-Mstorage", "-Qm", "0", "--param", "STORAGE.SEC_NUM=99999999999"});
  EXPECT_EQ(run.status, 2);
  EXPECT_TRUE(contains(run.err, "the number is too large")) << run.err;
  EXPECT_FALSE(contains(run.err, "not a number")) << run.err;
}

TEST(HwcCliQuestion, AQuestionDuringARunStandsOnItsOwnLineOnATerminal) {
  json script = askingMachine();
  script["tests"][0]["steps"] = {{{"progress", 40}},
                                 {{"ask", {"DEVICE_WRITE_TEST", "VOLUME_SPACE_ALLOCATION_ALERT", 1, 0}}},
                                 {{"progress", 100}}};
  Machine machine(script);
  Launch request{withMachine(machine, {"-Mstorage", "-Qm", "0"}), "1\n", true, {}, true};
  Outcome run = launch(request);
  EXPECT_EQ(run.status, 0) << run.err;
  const size_t question = run.out.find("    question: Device Write Test");
  const size_t prompt = run.out.find("answer (a number): ");
  ASSERT_NE(question, std::string::npos) << run.out;
  ASSERT_NE(prompt, std::string::npos) << run.out;
  // Between the question and the prompt: a line end and nothing of the bar.
  const std::string between = run.out.substr(question, prompt - question);
  EXPECT_EQ(between.find('%'), std::string::npos) << between;
  EXPECT_EQ(between.back(), '\n') << between;
  EXPECT_TRUE(run.out[question - 1] == '\n' || run.out[question - 1] == '\r') << run.out;
}

TEST(HwcCliRun, OutputToAFileHasAStartLineAtMostOneLinePerTenthAndTheResult) {
  json steps = json::array();
  for (int percent = 0; percent <= 100; ++percent) steps.push_back({{"progress", percent}});
  json script = twoDiskMachine();
  script["tests"][0]["steps"] = steps;
  Machine machine(script);
  Outcome run = cli(machine, {"-Mstorage", "-Qm", "0"});
  EXPECT_EQ(run.status, 0) << run.err;
  size_t lines = 0;
  for (size_t at = run.out.find("[0] SMART Status Test: "); at != std::string::npos;
       at = run.out.find("[0] SMART Status Test: ", at + 1)) {
    ++lines;
  }
  // started, 0%, 10%, ... 100%, Passed.
  EXPECT_EQ(lines, 13u) << run.out;
  EXPECT_TRUE(contains(run.out, "[0] SMART Status Test: started\n[0] SMART Status Test: 0%\n")) << run.out;
  EXPECT_TRUE(contains(run.out, "[0] SMART Status Test: 90%\n[0] SMART Status Test: 100%\n")) << run.out;
  EXPECT_FALSE(contains(run.out, "SMART Status Test: 15%")) << run.out;
}

TEST(HwcCliList, AListValueShowsEachEntryOnceWhileJsonKeepsTheModulesText) {
  json script = twoDiskMachine();
  script["devices"][0]["details"].push_back(json::array({"SUPPORTED_STANDARDS", "ATA8-ACS, ACS-2, ATA8-ACS, ACS-2"}));
  Machine machine(script);
  Outcome run = cli(machine, {"-Mstorage", "--list"});
  EXPECT_EQ(run.status, 0) << run.err;
  EXPECT_TRUE(contains(run.out, "Supported standards: ATA8-ACS, ACS-2\n")) << run.out;
  json document = parsedJson(cli(machine, {"-Mstorage", "--list", "--json"}));
  EXPECT_EQ(document["devices"][0]["details"].back()["value"], "ATA8-ACS, ACS-2, ATA8-ACS, ACS-2");
}

TEST(HwcCliHelp, NamesEveryExitStatusAMachineAndTheGuide) {
  Machine machine(twoDiskMachine());
  Outcome run = cli(machine, {"--help"});
  for (const char* part : {"5 a device stopped answering", "2 usage error or a machine description",
                           "--machine default --list", "docs/TESTS.md", "--json-lines", "--answer 1"}) {
    EXPECT_TRUE(contains(run.out, part)) << part << " missing in " << run.out;
  }
}

// --- every kind of run against the documented JSON schema ---------------------------------

// Outputs of hwc_cli, checked together by Debian's python3-jsonschema
// against the schema in docs/ (one interpreter for all: it is slow to start).
class SchemaCheck {
 public:
  void add(const Outcome& run, const std::string& mode, const std::string& what) {
    files_.push_back(std::make_unique<TextFile>("_" + std::to_string(files_.size()) + ".out", run.out));
    modes_.push_back(mode);
    whats_.push_back(files_.back()->path() + ": " + what + " (exit " + std::to_string(run.status) + ")");
  }
  void expectValid() {
    Launch request{{}, "", false, {}};
    // The validator reads its own arguments; hwc_cli's path, which launch
    // appends, comes after them and is not looked at.
    request.wrapper = {"/usr/bin/python3", HWC_SOURCE_DIR "/testing/validate_json_schema.py",
                       HWC_SOURCE_DIR "/docs/hwc_cli-json.schema.json"};
    for (size_t i = 0; i < files_.size(); ++i) {
      request.wrapper.push_back(modes_[i]);
      request.wrapper.push_back(files_[i]->path());
    }
    Outcome check = launch(request);
    std::string runs;
    for (const std::string& what : whats_) runs += what + "\n";
    EXPECT_EQ(check.status, 0) << check.out << check.err << "\nruns:\n" << runs;
    EXPECT_TRUE(contains(check.out, std::to_string(files_.size()) + " output(s)")) << check.out;
  }

 private:
  std::vector<std::unique_ptr<TextFile>> files_;
  std::vector<std::string> modes_;
  std::vector<std::string> whats_;
};

TEST(HwcCliSchema, EveryKindOfRunMatchesTheDocumentedSchema) {
  json script = repairMachine();
  script["tests"][0]["steps"] = {{{"progress", 30}},
                                 {{"log", "TOO_MANY_BAD_SECTORS_FOUND: 10"}, {"level", 2}},
                                 {{"ask", {"DEVICE_WRITE_TEST", "VOLUME_SPACE_ALLOCATION_ALERT", 1, 0}}},
                                 {{"progress", 100}, {"key", "READING_SECTOR 1234"}}};
  script["tests"][1]["result"] = 1;
  script["devices"][0]["sections"][0]["entries"] =
      pairs({{"INDEX", "1"}, {"FILE_SYSTEM", "NTFS"}, {"MOUNT_POINT", "C:\\"}});
  Machine machine(script);
  json unsupported = twoDiskMachine();
  unsupported["tests"][0]["unsupportedOn"] = {1};
  unsupported["tests"][1]["throw"] = "scripted failure";
  unsupported["tests"][0]["numericParameters"] = {{"SEC_NUM", 256}};
  Machine other(unsupported);
  TextFile bad(".json", "{\"disks\": {}}");
  SchemaCheck check;

  const std::vector<std::vector<std::string>> scripted = {
      {"--help"},
      {"-Mstorage", "--list"},
      {"-Mstorage", "-Q", "--answer", "1"},
      {"-Mstorage", "-E", "1"},
      {"-Mstorage", "-Qx"},
      {"-Mstorage", "--recover", "scan"},
      {"-Mstorage", "--recover", "repair", "--answer", "1"},
      {"-Mstorage", "--recover", "repair"},
      {"-Mstorage", "--recover", "filesystem", "0", "--answer", "2"},
      {"-Mstorage", "--recover", "filterDevices"},
      {"-Mstorage", "-Q", "--param", "STORAGE.SEC_NUM=abc", "--param", "STORAGE.Y=2"},
  };
  for (const auto& args : scripted) {
    for (const char* form : {"--json", "--json-lines"}) {
      std::vector<std::string> withForm = args;
      withForm.push_back(form);
      const std::string what = "scripted " + json(withForm).dump();
      const Machine& target = args.size() > 3 && args[3] == "STORAGE.SEC_NUM=abc" ? other : machine;
      check.add(cli(target, withForm), form == std::string("--json") ? "document" : "lines", what);
    }
  }
  for (const char* form : {"--json", "--json-lines"}) {
    const std::string mode = form == std::string("--json") ? "document" : "lines";
    check.add(cli(other, {"-Mstorage", "-Q", form}), mode, "not supported and module error");
    check.add(realModule({"-Mstorage", "--machine", "default", "--list", form}), mode, "real list");
    check.add(realModule({"-Mstorage", "--machine", "default", "-Q\"m\"", "0", "4", form}), mode, "real run");
    check.add(realModule({"-Mstorage", "--machine", bad.path(), "--list", form}), mode, "bad machine");
  }
  // Stopped by Ctrl-C: the lines show the moment to send it.
  Machine waiting(waitingMachine());
  Launch interrupted{withMachine(waiting, {"-Mstorage", "-Q", "0", "--json-lines"}), "", false, {"WAITING_FOR_ABORT", 1}};
  check.add(launch(interrupted), "lines", "interrupted");
  check.expectValid();
}

}  // namespace
