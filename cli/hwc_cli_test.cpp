// hwc_cli driven as a process: each test writes the script of a simulated
// machine for the scripted module, runs the program with it, and checks its
// output and exit status. Interrupts are sent when the program has said that
// the test is waiting, never after a delay.
#include <signal.h>

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include <nlohmann/json.hpp>

#include "hwc_cli_process.h"

namespace {

using nlohmann::json;
using namespace hwc_cli_testing;

// --- help and listing -----------------------------------------------------------

TEST(HwcCliHelp, ShowsItsOwnUsageThenTheModulesHelp) {
  Machine machine(twoDiskMachine());
  Outcome run = cli(machine, {"--help"});
  EXPECT_EQ(run.status, 0) << run.err;
  const size_t usage = run.out.find("Usage: hwc_cli");
  const size_t moduleHelp = run.out.find("Scripted module help:");
  ASSERT_NE(usage, std::string::npos) << run.out;
  ASSERT_NE(moduleHelp, std::string::npos) << run.out;
  EXPECT_LT(usage, moduleHelp);
}

TEST(HwcCliHelp, ShowsUsageWithTheRealModuleWhateverItOffersYet) {
  Outcome run = launch({{"--module", MODULE_STORAGE_LIBRARY_PATH, "--help"}, "", false, {}});
  EXPECT_EQ(run.status, 0) << run.err;
  EXPECT_TRUE(contains(run.out, "Usage: hwc_cli")) << run.out;
}

TEST(HwcCliList, ShowsDevicesWithDetailsAttributesSectionsAndTheTests) {
  Machine machine(twoDiskMachine());
  Outcome run = cli(machine, {"-Mstorage", "--list"});
  EXPECT_EQ(run.status, 0) << run.err;
  for (const char* part : {"Devices: 2", "[0] DISK A - 500 GB", "[1] DISK B - 1 TB", "Device identity: -DISK A - 500 GB",
                           "Model: DISK A - 500 GB", "Rotation rate: 7200 rpm", "Group: Local drives", "Solid state: no",
                           "Partition", "Index: 1", "Partition type: Primary", "-Q, --quick", "-E, --extended",
                           "smart-status", "SMART Status Test", "extended-random_seek-test",
                           "Recover Bad Sectors"}) {
    EXPECT_TRUE(contains(run.out, part)) << "missing '" << part << "' in:\n" << run.out;
  }
}

TEST(HwcCliList, MachineWithoutDevicesExitsThree) {
  Machine machine({{"devices", json::array()}, {"tests", json::array()}});
  Outcome run = cli(machine, {"-Mstorage", "--list"});
  EXPECT_EQ(run.status, 3);
  EXPECT_TRUE(contains(run.err, "no devices")) << run.err;
}

TEST(HwcCliList, ModuleWithoutComponentManagerSaysSoAndExitsThree) {
  json script = twoDiskMachine();
  script["noManager"] = true;
  Machine machine(script);
  Outcome run = cli(machine, {"-Mstorage", "--list"});
  EXPECT_EQ(run.status, 3);
  EXPECT_TRUE(contains(run.err, "no component manager")) << run.err;
  EXPECT_TRUE(contains(run.out, "smart-status")) << "the catalogue is still listed: " << run.out;
}

TEST(HwcCliList, RealModuleListEndsWithAListingStatus) {
  Outcome run = launch({{"--module", MODULE_STORAGE_LIBRARY_PATH, "-Mstorage", "--machine", "default", "--list", "--json"},
                    "", false, {}});
  EXPECT_TRUE(run.status == 0 || run.status == 3) << run.status << run.err;
  json document = parsedJson(run);
  EXPECT_EQ(document.value("exitStatus", -1), run.status);
  EXPECT_EQ(document["module"]["version"], "4.13.0.8834");
}

TEST(HwcCliList, DefaultMachineReachesTheModuleThroughItsVariable) {
  Outcome run = launch({{"--module", SCRIPTED_MODULE_PATH, "-Mstorage", "--machine", "default", "--list"}, "", false, {}});
  EXPECT_EQ(run.status, 0) << run.err;
  EXPECT_TRUE(contains(run.out, "SCRIPTED DISK - 500 GB")) << run.out;
}

// --- option forms ------------------------------------------------------------------

TEST(HwcCliOptions, EveryFormOfTheHelpScreenSelectsTheSameTests) {
  Machine machine(twoDiskMachine());
  const std::vector<std::vector<std::string>> forms = {
      {"-Mstorage", "-Q\"m,t\"", "0"},
      {"-Mstorage", "-Qm,t", "0"},
      {"-M", "storage", "--quick=m,t", "0"},
      {"-Mstorage", "--quick=\"smart-status,targeted-read\"", "0"},
      {"-Mstorage", "-Qm", "--quick=targeted-read", "0"},
      {"-MHD", "-Q", "0"},
  };
  for (const auto& form : forms) {
    std::vector<std::string> args = form;
    args.push_back("--json");
    Outcome run = cli(machine, args);
    EXPECT_EQ(run.status, 0) << form[1] << ": " << run.err;
    EXPECT_EQ(testsRun(parsedJson(run)), (std::vector<std::string>{"0:1.1.1", "0:1.1.2"})) << form[1];
  }
}

TEST(HwcCliOptions, TestLetterIsReadTogetherWithItsDiagnostic) {
  Machine machine(twoDiskMachine());
  Outcome run = cli(machine, {"-Mstorage", "-E\"r\"", "1", "--json"});
  EXPECT_EQ(run.status, 0) << run.err;
  EXPECT_EQ(testsRun(parsedJson(run)), (std::vector<std::string>{"1:1.2.8"}));
  Outcome quick = cli(machine, {"-Mstorage", "-Qr"});
  EXPECT_EQ(quick.status, 2) << "r is no quick test here";
}

TEST(HwcCliOptions, QuickAndExtendedOnTwoDevicesRunEveryTestOnEachOnce) {
  Machine machine(twoDiskMachine());
  Outcome run = cli(machine, {"-Mstorage", "-Q", "-E", "0", "1", "1", "--quick=m", "--json"});
  EXPECT_EQ(run.status, 0) << run.err;
  EXPECT_EQ(testsRun(parsedJson(run)),
            (std::vector<std::string>{"0:1.1.1", "0:1.1.2", "0:1.2.8", "1:1.1.1", "1:1.1.2", "1:1.2.8"}));
}

TEST(HwcCliOptions, UnknownTestIsAUsageErrorListingTheChoices) {
  Machine machine(twoDiskMachine());
  Outcome run = cli(machine, {"-Mstorage", "-Q\"m,x\""});
  EXPECT_EQ(run.status, 2);
  EXPECT_TRUE(contains(run.err, "unknown test 'x'")) << run.err;
  EXPECT_TRUE(contains(run.err, "m smart-status")) << run.err;
}

TEST(HwcCliOptions, UnknownDiagnosticOrOptionIsAUsageErrorNamingIt) {
  Machine machine(twoDiskMachine());
  for (const char* bad : {"-Z", "--bogus", "--quickly=m"}) {
    Outcome run = cli(machine, {"-Mstorage", bad});
    EXPECT_EQ(run.status, 2) << bad;
    EXPECT_TRUE(contains(run.err, "unknown diagnostic")) << run.err;
    EXPECT_TRUE(contains(run.err, bad)) << run.err;
  }
}

TEST(HwcCliOptions, BadArgumentsAreUsageErrorsNamingThem) {
  Machine machine(twoDiskMachine());
  struct Case {
    std::vector<std::string> args;
    std::string named;
  };
  const Case cases[] = {
      {{"-Mstorage", "-Q", "zero"}, "'zero'"},
      {{"-Mnetwork", "-Q"}, "-Mnetwork"},
      {{"-Q"}, "-Mstorage"},
      {{"-Mstorage"}, "nothing to do"},
      {{"-Mstorage", "-Q", "--answer", "maybe"}, "'maybe'"},
      {{"-Mstorage", "-Q", "--param", "SEC_NUM"}, "SEC_NUM"},
  };
  for (const Case& bad : cases) {
    Outcome run = cli(machine, bad.args);
    EXPECT_EQ(run.status, 2) << bad.named;
    EXPECT_TRUE(contains(run.err, bad.named)) << run.err;
  }
}

TEST(HwcCliOptions, MissingMachineFileIsAUsageErrorNamingIt) {
  Outcome run = launch({{"--module", SCRIPTED_MODULE_PATH, "--machine", "/no/such/machine.json", "-Mstorage", "--list"},
                    "", false, {}});
  EXPECT_EQ(run.status, 2);
  EXPECT_TRUE(contains(run.err, "/no/such/machine.json")) << run.err;
}

// --- runs and exit statuses --------------------------------------------------------

TEST(HwcCliRun, PlainLinesShowProgressAndASummaryTable) {
  Machine machine(twoDiskMachine());
  Outcome run = cli(machine, {"-Mstorage", "-Q\"m,t\""});
  EXPECT_EQ(run.status, 0) << run.err;
  for (const char* part : {"[0] SMART Status Test: started", "[0] SMART Status Test: 50%",
                           "[1] Targeted Read Test: 100%", "[1] Targeted Read Test: Passed", "Summary",
                           "passed 4, failed 0"}) {
    EXPECT_TRUE(contains(run.out, part)) << "missing '" << part << "' in:\n" << run.out;
  }
  EXPECT_FALSE(contains(run.out, "\r")) << "no bar without a terminal";
}

TEST(HwcCliRun, TerminalShowsABarWithTheTestNameAndPercentage) {
  Machine machine(twoDiskMachine());
  Outcome run = launch({withMachine(machine, {"-Mstorage", "-Qm", "0"}), "", true, {}});
  EXPECT_EQ(run.status, 0) << run.err;
  EXPECT_TRUE(contains(run.out, "\r[0] SMART Status Test  [###############...............] 50%")) << run.out;
  EXPECT_TRUE(contains(run.out, "Summary")) << run.out;
}

TEST(HwcCliRun, FailedTestExitsOneAndTheSummaryGivesItsMessageInWords) {
  json script = twoDiskMachine();
  script["tests"][1]["steps"] = {{{"progress", 40}},
                                 {{"log", "READING_SECTOR 1234"}, {"level", 2}},
                                 {{"progress", 100}, {"key", "READING_SECTOR 1234"}}};
  script["tests"][1]["result"] = 1;
  Machine machine(script);
  Outcome run = cli(machine, {"-Mstorage", "-Q", "0"});
  EXPECT_EQ(run.status, 1) << run.err;
  EXPECT_TRUE(contains(run.out, "log, device fault: Error reading sector 1234")) << run.out;
  EXPECT_TRUE(contains(run.out, "Failed")) << run.out;
  EXPECT_TRUE(contains(run.out, "passed 1, failed 1")) << run.out;
}

TEST(HwcCliRun, AbortedResultExitsFour) {
  json script = twoDiskMachine();
  script["tests"][0]["result"] = 4;
  script["tests"][0]["steps"] = {{{"progress", 100}, {"key", "SELF_TEST_ABORTED_BY_EXTERNAL_FACTOR"}}};
  Machine machine(script);
  Outcome run = cli(machine, {"-Mstorage", "-Qm,t", "0"});
  EXPECT_EQ(run.status, 4) << run.err;
}

TEST(HwcCliRun, TestThatLostItsDeviceExitsFiveNotFour) {
  json script = twoDiskMachine();
  script["tests"][0]["result"] = 4;
  script["tests"][0]["steps"] = {{{"log", "DEVICE_COMMUNICATION_FAILURE"}, {"level", 3}},
                                 {{"progress", 100}, {"key", "DEVICE_COMMUNICATION_FAILURE"}}};
  Machine machine(script);
  Outcome run = cli(machine, {"-Mstorage", "-Qm,t", "0"});
  EXPECT_EQ(run.status, 5) << run.err;
  EXPECT_TRUE(contains(run.out, "[0] SMART Status Test: Aborted: the device stopped answering")) << run.out;
  EXPECT_TRUE(contains(run.out, "Communication with the device failed")) << run.out;
  Outcome asJson = cli(machine, {"-Mstorage", "-Qm", "0", "--json"});
  EXPECT_EQ(asJson.status, 5);
  EXPECT_EQ(parsedJson(asJson)["results"][0]["deviceLost"], true);
  EXPECT_EQ(parsedJson(asJson)["results"][0]["resultName"], "ABORTED");
}

TEST(HwcCliRun, FailureOutranksALostDevice) {
  json script = twoDiskMachine();
  script["tests"][0]["result"] = 4;
  script["tests"][0]["steps"] = {{{"progress", 100}, {"key", "DEVICE_COMMUNICATION_FAILURE"}}};
  script["tests"][1]["result"] = 1;
  Machine machine(script);
  EXPECT_EQ(cli(machine, {"-Mstorage", "-Q", "0"}).status, 1);
}

TEST(HwcCliRun, FailureOutranksAnAbortInTheExitStatus) {
  json script = twoDiskMachine();
  script["tests"][0]["result"] = 4;
  script["tests"][1]["result"] = 1;
  Machine machine(script);
  EXPECT_EQ(cli(machine, {"-Mstorage", "-Q", "0"}).status, 1);
}

TEST(HwcCliRun, EveryTestNotApplicableOrInvalidExitsThree) {
  json script = twoDiskMachine();
  script["tests"][0]["result"] = 3;
  script["tests"][1]["result"] = 6;
  Machine machine(script);
  Outcome run = cli(machine, {"-Mstorage", "-Q", "0"});
  EXPECT_EQ(run.status, 3) << run.out;
  EXPECT_TRUE(contains(run.out, "not applicable 1")) << run.out;
  EXPECT_TRUE(contains(run.out, "invalid 1")) << run.out;
}

TEST(HwcCliRun, TestTheDeviceDoesNotSupportIsNotRunAndCountsAsNotApplicable) {
  json script = twoDiskMachine();
  script["tests"][0]["unsupportedOn"] = {1};
  Machine machine(script);
  Outcome only = cli(machine, {"-Mstorage", "-Qm", "1", "--json"});
  EXPECT_EQ(only.status, 3);
  json document = parsedJson(only);
  ASSERT_EQ(document["results"].size(), 1u);
  EXPECT_EQ(document["results"][0]["outcome"], "not-supported");
  EXPECT_TRUE(document["results"][0]["events"].empty()) << "isSupported runs nothing";
  Outcome both = cli(machine, {"-Mstorage", "-Qm"});
  EXPECT_EQ(both.status, 0) << "the test that ran on device 0 passed";
  EXPECT_TRUE(contains(both.out, "Not supported on this device")) << both.out;
}

TEST(HwcCliRun, WarningSaysNothingAgainstTheDeviceAndExitsZero) {
  json script = twoDiskMachine();
  script["tests"][0]["result"] = 5;
  Machine machine(script);
  Outcome run = cli(machine, {"-Mstorage", "-Qm", "0"});
  EXPECT_EQ(run.status, 0);
  EXPECT_TRUE(contains(run.out, "warning 1")) << run.out;
}

TEST(HwcCliRun, NoSuchDeviceExitsThreeNamingIt) {
  Machine machine(twoDiskMachine());
  Outcome run = cli(machine, {"-Mstorage", "-Q", "0", "5"});
  EXPECT_EQ(run.status, 3);
  EXPECT_TRUE(contains(run.err, "no such device '5'")) << run.err;
  EXPECT_FALSE(contains(run.out, "started")) << "nothing runs when one id is wrong";
}

TEST(HwcCliRun, NoDevicesOrNoResourceOrNoTestsExitThreeWithTheReason) {
  Machine empty({{"devices", json::array()}, {"tests", {test(1, 1, "m", "smart-status", "SMART_STATUS_TEST")}}});
  Outcome noDevices = cli(empty, {"-Mstorage", "-Q"});
  EXPECT_EQ(noDevices.status, 3);
  EXPECT_TRUE(contains(noDevices.err, "no devices")) << noDevices.err;

  json script = twoDiskMachine();
  script["noResource"] = true;
  Machine bare(script);
  Outcome noResource = cli(bare, {"-Mstorage", "-Q"});
  EXPECT_EQ(noResource.status, 3);
  EXPECT_TRUE(contains(noResource.err, "no resource")) << noResource.err;

  Machine testless({{"devices", {disk("0", "DISK A")}}, {"tests", json::array()}});
  Outcome noTests = cli(testless, {"-Mstorage", "-E"});
  EXPECT_EQ(noTests.status, 3);
  EXPECT_TRUE(contains(noTests.err, "no tests")) << noTests.err;
}

TEST(HwcCliRun, TestNamedByTheResourceButMissingFromTheCatalogueExitsThree) {
  json script = twoDiskMachine();
  script["tests"][1]["inCatalogue"] = false;
  Machine machine(script);
  Outcome run = cli(machine, {"-Mstorage", "-Qt"});
  EXPECT_EQ(run.status, 3);
  EXPECT_TRUE(contains(run.err, "not part of this build")) << run.err;
}

TEST(HwcCliRun, ModuleThatCannotBeLoadedExitsThree) {
  Outcome missing = launch({{"--module", "/no/such/libmodule.so", "-Mstorage", "--list"}, "", false, {}});
  EXPECT_EQ(missing.status, 3);
  EXPECT_TRUE(contains(missing.err, "cannot load the module '/no/such/libmodule.so'")) << missing.err;
  Outcome notAModule = launch({{"--module", "libm.so.6", "-Mstorage", "--list"}, "", false, {}});
  EXPECT_EQ(notAModule.status, 3);
  EXPECT_TRUE(contains(notAModule.err, "is not a module")) << notAModule.err;
}

TEST(HwcCliRun, ModuleErrorDuringARunIsReportedAndTheRunGoesOn) {
  json script = twoDiskMachine();
  script["tests"][0]["throw"] = "scripted failure";
  Machine machine(script);
  Outcome run = cli(machine, {"-Mstorage", "-Q", "0"});
  EXPECT_EQ(run.status, 0) << "the second test passed";
  EXPECT_TRUE(contains(run.out, "Error in the module: scripted failure")) << run.out;
  EXPECT_TRUE(contains(run.out, "[0] Targeted Read Test: Passed")) << run.out;
}

// --- JSON --------------------------------------------------------------------------

TEST(HwcCliJson, OneDocumentWithDevicesTestsResultsEventsAndLogLines) {
  json script = twoDiskMachine();
  script["tests"][0]["steps"] = {{{"progress", 30}},
                                 {{"log", "TOO_MANY_BAD_SECTORS_FOUND: 10"}, {"level", 2}},
                                 {{"progress", 100}, {"key", "TOO_MANY_BAD_SECTORS_FOUND: 10"}}};
  script["tests"][0]["result"] = 1;
  Machine machine(script);
  Outcome run = cli(machine, {"-Mstorage", "-Qm", "0", "--json"});
  EXPECT_EQ(run.status, 1);
  json document = parsedJson(run);
  EXPECT_EQ(document["exitStatus"], 1);
  EXPECT_EQ(document["module"]["version"], "4.13.0.8834");
  ASSERT_EQ(document["devices"].size(), 2u);
  EXPECT_EQ(document["devices"][0]["name"], "DISK A - 500 GB");
  EXPECT_EQ(document["devices"][0]["details"][1]["key"], "MODEL");
  EXPECT_EQ(document["devices"][0]["attributes"]["parent"], "LOCAL_DRIVES");
  EXPECT_EQ(document["devices"][0]["sections"][0]["title"], "PARTITION");
  ASSERT_EQ(document["tests"].size(), 1u);
  EXPECT_EQ(document["tests"][0]["name"], "SMART_STATUS_TEST");
  ASSERT_EQ(document["results"].size(), 1u);
  const json& result = document["results"][0];
  EXPECT_EQ(result["result"], 1);
  EXPECT_EQ(result["resultName"], "FAILED");
  EXPECT_EQ(result["message"], "TOO_MANY_BAD_SECTORS_FOUND: 10");
  ASSERT_EQ(result["events"].size(), 2u);
  EXPECT_EQ(result["events"][0]["percent"], 30);
  EXPECT_EQ(result["events"][1]["text"], "Too many bad sectors found: 10");
  ASSERT_EQ(result["log"].size(), 1u);
  EXPECT_EQ(result["log"][0]["level"], 2);
  EXPECT_EQ(result["log"][0]["message"], "TOO_MANY_BAD_SECTORS_FOUND: 10");
  EXPECT_FALSE(contains(run.out, "Summary")) << "stdout holds the document alone";
}

TEST(HwcCliJson, UsageErrorStillGivesOneDocument) {
  Machine machine(twoDiskMachine());
  Outcome run = cli(machine, {"-Mstorage", "-Qx", "--json"});
  EXPECT_EQ(run.status, 2);
  json document = parsedJson(run);
  EXPECT_EQ(document["exitStatus"], 2);
  ASSERT_EQ(document["errors"].size(), 1u);
  EXPECT_TRUE(contains(document["errors"][0].get<std::string>(), "'x'"));
}

TEST(HwcCliJson, BytesThatAreNoUtf8AreReplacedNotFatal) {
  json script = twoDiskMachine();
  script["devices"][1]["name"] = "DISK ";
  script["devices"][1]["nameBytes"] = {0xff, 'B'};
  Machine machine(script);
  Outcome run = cli(machine, {"-Mstorage", "--list", "--json"});
  EXPECT_EQ(run.status, 0) << run.err;
  json document = parsedJson(run);
  ASSERT_EQ(document["devices"].size(), 2u);
  EXPECT_EQ(document["devices"][1]["name"], "DISK \xef\xbf\xbd" "B") << "U+FFFD stands for the bad byte";
}

// --- Ctrl-C ------------------------------------------------------------------------

TEST(HwcCliInterrupt, FirstCtrlCAbortsTheRunningTestAndSkipsTheRestExitingFour) {
  json script = twoDiskMachine();
  script["tests"][0]["steps"] = {{{"progress", 10}, {"key", "WAITING_FOR_ABORT"}}, {{"waitForAbort", true}}};
  Machine machine(script);
  Launch request{withMachine(machine, {"-Mstorage", "-Q", "0", "--json"}), "", false, {"WAITING_FOR_ABORT", 1}};
  // The JSON document is written at the end, so the marker is looked for in
  // a run without --json.
  request.args.pop_back();
  Outcome run = launch(request);
  EXPECT_EQ(run.status, 4) << run.out << run.err;
  EXPECT_TRUE(contains(run.err, "the running test is asked to abort")) << run.err;
  EXPECT_TRUE(contains(run.out, "[0] SMART Status Test: Aborted")) << run.out;
  EXPECT_TRUE(contains(run.out, "Not run (stopped)")) << run.out;
  EXPECT_TRUE(contains(run.out, "aborted 1")) << run.out;
  EXPECT_TRUE(contains(run.out, "not run 1")) << run.out;
}

TEST(HwcCliInterrupt, SecondCtrlCEndsTheProgramAtOnce) {
  json script = twoDiskMachine();
  script["tests"][0]["steps"] = {{{"progress", 10}, {"key", "IGNORING_ABORT"}}, {{"ignoreAbort", true}}};
  Machine machine(script);
  Outcome run = launch({withMachine(machine, {"-Mstorage", "-Qm", "0"}), "", false, {"IGNORING_ABORT", 2}});
  EXPECT_EQ(run.status, 4) << run.err;
  EXPECT_TRUE(contains(run.err, "quitting at once")) << run.err;
  EXPECT_FALSE(contains(run.out, "Summary")) << "the program ended in the middle of the test";
}

// --- questions and parameters ---------------------------------------------------------


TEST(HwcCliQuestion, AnswerOptionAnswersAQuestionInARunWithoutATerminal) {
  Machine machine(askingMachine());
  Outcome run = cli(machine, {"-Mstorage", "-Qm", "0", "--answer", "2", "--json"});
  EXPECT_EQ(run.status, 1) << "answer 2 makes the scripted test fail";
  json document = parsedJson(run);
  const json& questions = document["results"][0]["questions"];
  ASSERT_EQ(questions.size(), 1u);
  EXPECT_EQ(questions[0]["title"], "DEVICE_WRITE_TEST");
  EXPECT_EQ(questions[0]["text"], "VOLUME_SPACE_ALLOCATION_ALERT");
  EXPECT_EQ(questions[0]["answer"], 2);
  EXPECT_EQ(questions[0]["answeredBy"], "--answer");

  Outcome yes = cli(machine, {"-Mstorage", "-Qm", "0", "--answer=1"});
  EXPECT_EQ(yes.status, 0);
  EXPECT_TRUE(contains(yes.out, "question: Device Write Test: The write test allocates space")) << yes.out;
  EXPECT_TRUE(contains(yes.out, "answer 1 (--answer)")) << yes.out;
}

TEST(HwcCliQuestion, PersonAtTheTerminalAnswersAndIsAskedAgainForANonNumber) {
  Machine machine(askingMachine());
  Launch request{withMachine(machine, {"-Mstorage", "-Qm", "0"}), "x\n2\n", false, {}, true};
  Outcome run = launch(request);
  EXPECT_EQ(run.status, 1) << run.err;
  EXPECT_TRUE(contains(run.out, "answer (a number): ")) << run.out;
  EXPECT_TRUE(contains(run.out, "'x' is not a number")) << run.out;
  EXPECT_TRUE(contains(run.out, "answer 2 (terminal)")) << run.out;
}

TEST(HwcCliQuestion, WithoutAnswerOrTerminalTheListenerIsNotInteractive) {
  Machine machine(askingMachine());
  Outcome run = cli(machine, {"-Mstorage", "-Qm", "0", "--json"});
  json document = parsedJson(run);
  EXPECT_TRUE(document["results"][0]["questions"].empty()) << "the scripted test asks only an interactive listener";
  EXPECT_EQ(document["results"][0]["result"], 3);
}

TEST(HwcCliParameters, RejectedParametersAreShownWithTheirCodesAndNothingRuns) {
  json script = twoDiskMachine();
  script["tests"][0]["numericParameters"] = {{"SEC_NUM", 256}, {"SEC_COUNT", 256}};
  Machine machine(script);
  Outcome run = cli(machine, {"-Mstorage", "-Q", "0", "--param", "STORAGE.SEC_NUM=abc", "--param", "STORAGE.SEC_COUNT=300"});
  EXPECT_EQ(run.status, 2);
  EXPECT_TRUE(contains(run.err, "--param STORAGE.SEC_NUM=abc rejected by SMART Status Test: the value is not a number (code 1115)"))
      << run.err;
  EXPECT_TRUE(contains(run.err, "--param STORAGE.SEC_COUNT=300 rejected by SMART Status Test: the value is out of range (code 1116)"))
      << run.err;
  EXPECT_FALSE(contains(run.out, "started")) << run.out;

  Outcome asJson = cli(machine, {"-Mstorage", "-Q", "0", "--param", "STORAGE.SEC_NUM=abc", "--json"});
  nlohmann::json document = parsedJson(asJson);
  ASSERT_EQ(document["rejectedParameters"].size(), 1u);
  EXPECT_EQ(document["rejectedParameters"][0]["code"], 1115);
}

TEST(HwcCliParameters, AcceptedParametersLetTheRunGoOn) {
  json script = twoDiskMachine();
  script["tests"][0]["numericParameters"] = {{"SEC_NUM", 256}};
  Machine machine(script);
  Outcome run = cli(machine, {"-Mstorage", "-Qm", "0", "--param", "STORAGE.SEC_NUM=255"});
  EXPECT_EQ(run.status, 0) << run.err;
}

// --- the recover-bad-sectors tool ---------------------------------------------------

TEST(HwcCliRecover, ScanReportsBadSectorsThroughTheEventSinkAndExitsOne) {
  json script = twoDiskMachine();
  script["tool"] = {{"badSectors", {"77", "78"}}};
  Machine machine(script);
  Outcome run = cli(machine, {"-Mstorage", "--recover", "scan", "0", "--json"});
  EXPECT_EQ(run.status, 1) << run.err;
  json document = parsedJson(run);
  std::vector<std::string> events;
  for (const json& event : document["recover"]["events"]) events.push_back(event["event"]);
  EXPECT_EQ(events, (std::vector<std::string>{"OnRecoverInit", "OnOperationInit", "OnDeviceInit", "OnProgress",
                                              "OnProgress", "OnDeviceFinish", "OnRecoverFinish"}));
  const json& finish = document["recover"]["events"][5];
  EXPECT_EQ(finish["values"], (json{"0", "12"}));
  EXPECT_EQ(finish["BadSectorsList"], (json{"77", "78"}));
}

TEST(HwcCliRecover, FilesystemAsksAboutTheSystemPartitionAndTakesTheAnswer) {
  json script = twoDiskMachine();
  script["devices"][0]["sections"][0]["entries"] = pairs({{"INDEX", "1"}, {"FILE_SYSTEM", "NTFS"}, {"MOUNT_POINT", "C:\\"}});
  Machine machine(script);
  Outcome scheduled = cli(machine, {"-Mstorage", "--recover=filesystem", "0", "--answer", "1"});
  EXPECT_EQ(scheduled.status, 0) << scheduled.err;
  EXPECT_TRUE(contains(scheduled.out, "question: Check the system partition at the next start")) << scheduled.out;
  EXPECT_TRUE(contains(scheduled.out, "partition 1: A check was scheduled for the next start")) << scheduled.out;

  Outcome declined = cli(machine, {"-Mstorage", "--recover=filesystem", "0", "--answer", "2"});
  EXPECT_EQ(declined.status, 3) << "nothing was checked";
  EXPECT_TRUE(contains(declined.out, "Not Scheduled")) << declined.out;
}

TEST(HwcCliRecover, ModuleWithoutToolExitsThree) {
  json script = twoDiskMachine();
  script["tool"] = {{"noTool", true}};
  Machine machine(script);
  Outcome run = cli(machine, {"-Mstorage", "--recover", "scan"});
  EXPECT_EQ(run.status, 3);
  EXPECT_TRUE(contains(run.err, "no recover-bad-sectors tool")) << run.err;
}

}  // namespace
