// hwc_cli driven as a process: each test writes the script of a simulated
// machine for the scripted module, runs the program with it, and checks its
// output and exit status. Interrupts are sent when the program has said that
// the test is waiting, never after a delay.
#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>
#include <cstdlib>
#include <functional>
#include <fstream>
#include <memory>
#include <string>
#include <vector>

#include <nlohmann/json.hpp>

namespace {

using nlohmann::json;

struct Interrupt {
  std::string afterText;  // sent once this text has appeared on stdout or stderr
  int count = 1;          // how many times, each after the text appears once more in stderr's notices
};

struct Outcome {
  int status = -1;
  std::string out;
  std::string err;
};

struct Launch {
  std::vector<std::string> args;
  std::string input;          // written to stdin, which is then closed
  bool terminalOut = false;   // stdout on a pseudo-terminal
  Interrupt interrupt;        // empty afterText: none
  bool terminalIn = false;    // stdin on a pseudo-terminal, fed with `input`
  std::vector<std::pair<std::string, std::string>> environment = {};  // set in the child; an empty value unsets
  std::vector<std::string> wrapper = {};  // a program that runs hwc_cli, as {"timeout", "60"}; it gets the interrupts
  bool burst = false;         // each interrupt is two signals sent back to back, as one key press under timeout
  bool killAfterText = false; // SIGKILL instead of SIGINT
};

void setNonBlocking(int fd) { fcntl(fd, F_SETFL, fcntl(fd, F_GETFL) | O_NONBLOCK); }

// Runs hwc_cli and collects everything it writes until it ends. A run that
// takes more than a minute is killed and fails the test.
Outcome launch(const Launch& request) {
  int outPipe[2], errPipe[2], inPipe[2];
  if (pipe(outPipe) != 0 || pipe(errPipe) != 0 || pipe(inPipe) != 0) return {};
  int master = -1;
  std::string slaveName;
  if (request.terminalOut || request.terminalIn) {
    master = posix_openpt(O_RDWR | O_NOCTTY);
    if (master < 0 || grantpt(master) != 0 || unlockpt(master) != 0) return {};
    slaveName = ptsname(master);
  }
  pid_t child = fork();
  if (child == 0) {
    const int slave = master >= 0 ? open(slaveName.c_str(), O_RDWR | O_NOCTTY) : -1;
    dup2(request.terminalIn ? slave : inPipe[0], 0);
    dup2(request.terminalOut ? slave : outPipe[1], 1);
    if (slave > 2) close(slave);
    dup2(errPipe[1], 2);
    for (int fd : {outPipe[0], outPipe[1], errPipe[0], errPipe[1], inPipe[0], inPipe[1], master}) {
      if (fd > 2) close(fd);
    }
    for (const auto& variable : request.environment) {
      if (variable.second.empty()) {
        unsetenv(variable.first.c_str());
      } else {
        setenv(variable.first.c_str(), variable.second.c_str(), 1);
      }
    }
    std::vector<std::string> args = request.wrapper;
    args.push_back(HWC_CLI_PATH);
    args.insert(args.end(), request.args.begin(), request.args.end());
    std::vector<char*> argv;
    for (std::string& arg : args) argv.push_back(arg.data());
    argv.push_back(nullptr);
    execvp(args[0].c_str(), argv.data());
    _exit(127);
  }
  close(outPipe[1]);
  close(errPipe[1]);
  close(inPipe[0]);
  if (!request.input.empty()) {
    const int inFd = request.terminalIn ? master : inPipe[1];
    ssize_t written = write(inFd, request.input.data(), request.input.size());
    (void)written;
  }
  close(inPipe[1]);

  Outcome run;
  const int outFd = request.terminalOut ? master : outPipe[0];
  if (request.terminalOut) close(outPipe[0]);
  setNonBlocking(outFd);
  setNonBlocking(errPipe[0]);
  bool outOpen = true;
  bool errOpen = true;
  int sent = 0;
  auto lastSent = std::chrono::steady_clock::now();
  const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(60);
  while (outOpen || errOpen) {
    if (std::chrono::steady_clock::now() > deadline) {
      kill(child, SIGKILL);
      ADD_FAILURE() << "hwc_cli did not end; out: " << run.out << " err: " << run.err;
      break;
    }
    pollfd fds[2] = {{outFd, POLLIN, 0}, {errPipe[0], POLLIN, 0}};
    poll(fds, 2, 100);
    char buffer[4096];
    for (int i = 0; i < 2; ++i) {
      bool& open = i == 0 ? outOpen : errOpen;
      if (!open || (fds[i].revents & (POLLIN | POLLHUP | POLLERR)) == 0) continue;
      ssize_t n = read(fds[i].fd, buffer, sizeof(buffer));
      if (n > 0) {
        (i == 0 ? run.out : run.err).append(buffer, static_cast<size_t>(n));
      } else if (n == 0 || (errno != EAGAIN && errno != EINTR)) {
        open = false;  // end of pipe, or EIO once the terminal's last writer is gone
      }
    }
    // The first interrupt follows the marker; each further one follows the
    // program's notice that it took the one before, and comes later than the
    // quarter second within which signals count as one key press: this wait
    // is the behaviour under test, not a pause for the program to catch up.
    const Interrupt& interrupt = request.interrupt;
    if (!interrupt.afterText.empty() && sent < interrupt.count) {
      const bool ready = sent == 0 ? (run.out.find(interrupt.afterText) != std::string::npos ||
                                      run.err.find(interrupt.afterText) != std::string::npos)
                                   : run.err.find("stopping:") != std::string::npos &&
                                         std::chrono::steady_clock::now() - lastSent > std::chrono::milliseconds(400);
      if (ready) {
        if (request.killAfterText) {
          kill(child, SIGKILL);
        } else {
          kill(child, SIGINT);
          if (request.burst) kill(child, SIGINT);
        }
        lastSent = std::chrono::steady_clock::now();
        ++sent;
      }
    }
  }
  int status = 0;
  waitpid(child, &status, 0);
  run.status = WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
  if (master >= 0) close(master);
  close(outPipe[0] == outFd ? outFd : outPipe[0]);
  close(errPipe[0]);
  return run;
}

// A machine script for the scripted module, in a file of the test's own.
class Machine {
 public:
  explicit Machine(json script) : script_(std::move(script)) {
    static int made = 0;  // several machines in one test each get a file
    const ::testing::TestInfo* info = ::testing::UnitTest::GetInstance()->current_test_info();
    path_ = ::testing::TempDir() + "hwc_cli_" + info->test_suite_name() + "_" + info->name() + "_" +
            std::to_string(++made) + ".json";
    std::ofstream(path_) << script_.dump();
  }
  ~Machine() { std::remove(path_.c_str()); }
  const std::string& path() const { return path_; }

 private:
  json script_;
  std::string path_;
};

// Key and value pairs as the script keeps them: a list of two-entry lists (a
// plain initializer list of pairs would read as a JSON object).
json pairs(std::initializer_list<std::pair<std::string, std::string>> entries) {
  json list = json::array();
  for (const auto& entry : entries) list.push_back(json::array({entry.first, entry.second}));
  return list;
}

json disk(const std::string& id, const std::string& name) {
  json partition = {{"title", "PARTITION"},
                    {"entries", pairs({{"INDEX", "1"}, {"PARTITION_TYPE", "PRIMARY"}, {"MOUNT_POINT", "D:\\"}})}};
  return {{"id", id},
          {"name", name},
          {"details", pairs({{"UDI", "-" + name}, {"MODEL", name}, {"ROTATION_RATE", "7200 RPM"}})},
          {"attributes", {{"parent", "LOCAL_DRIVES"}, {"NonRotatingMedia", "F"}}},
          {"sections", json::array({partition})}};
}

json test(uint32_t diagnostic, uint32_t number, const std::string& letter, const std::string& longName,
          const std::string& name, json steps = json::array(), uint32_t result = 0) {
  if (steps.empty()) steps = {{{"progress", 0}}, {{"progress", 50}}, {{"progress", 100}}};
  return {{"diagnostic", diagnostic}, {"test", number}, {"letter", letter}, {"long", longName},
          {"name", name},             {"steps", steps},  {"result", result}};
}

// Two disks; the Quick diagnostic with SMART status and targeted read, the
// Extended one with a random seek under the same letter r as nothing quick.
json twoDiskMachine() {
  return {{"devices", {disk("0", "DISK A - 500 GB"), disk("1", "DISK B - 1 TB")}},
          {"tests",
           {test(1, 1, "m", "smart-status", "SMART_STATUS_TEST"), test(1, 2, "t", "targeted-read", "TARGETED_READ_TEST"),
            test(2, 8, "r", "extended-random_seek-test", "EXTENDED_RANDOM_SEEK_TEST")}}};
}

std::vector<std::string> withMachine(const Machine& machine, std::vector<std::string> args) {
  args.insert(args.begin(), {"--module", SCRIPTED_MODULE_PATH, "--machine", machine.path()});
  return args;
}

Outcome cli(const Machine& machine, std::vector<std::string> args) { return launch({withMachine(machine, args), "", false, {}}); }

json parsedJson(const Outcome& run) {
  json document = json::parse(run.out, nullptr, false);
  EXPECT_FALSE(document.is_discarded()) << "not one JSON document: " << run.out;
  return document;
}

std::vector<std::string> testsRun(const json& document) {
  std::vector<std::string> ids;
  for (const json& result : document.value("results", json::array())) {
    ids.push_back(std::to_string(result["device"].get<int>()) + ":" + result["test"].get<std::string>());
  }
  return ids;
}

bool contains(const std::string& text, const std::string& part) { return text.find(part) != std::string::npos; }

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

json askingMachine() {
  json script = twoDiskMachine();
  script["tests"][0]["steps"] = {{{"ask", {"DEVICE_WRITE_TEST", "VOLUME_SPACE_ALLOCATION_ALERT", 1, 0}}},
                                 {{"progress", 100}}};
  script["tests"][0]["resultByAnswer"] = {{"1", 0}, {"2", 1}};
  script["tests"][0]["result"] = 3;  // when nobody answered
  return script;
}

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


// --- machine descriptions that cannot be used -------------------------------------

// A file of the test's own with the given text.
class TextFile {
 public:
  TextFile(const std::string& suffix, const std::string& text) {
    const ::testing::TestInfo* info = ::testing::UnitTest::GetInstance()->current_test_info();
    path_ = ::testing::TempDir() + "hwc_cli_" + info->test_suite_name() + "_" + info->name() + suffix;
    std::ofstream(path_) << text;
  }
  ~TextFile() { std::remove(path_.c_str()); }
  const std::string& path() const { return path_; }

 private:
  std::string path_;
};

Outcome realModule(std::vector<std::string> args, std::vector<std::pair<std::string, std::string>> environment = {}) {
  args.insert(args.begin(), {"--module", MODULE_STORAGE_LIBRARY_PATH});
  Launch request{args, "", false, {}};
  request.environment = std::move(environment);
  return launch(request);
}

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

TEST(HwcCliMachine, NoMachineNamedSaysHowToNameOne) {
  Outcome run = realModule({"-Mstorage", "--list"}, {{"MODULE_STORAGE_MACHINE", ""}});
  EXPECT_EQ(run.status, 3) << run.err;
  EXPECT_TRUE(contains(run.err, "no machine was named")) << run.err;
  EXPECT_TRUE(contains(run.err, "--machine default")) << run.err;
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
