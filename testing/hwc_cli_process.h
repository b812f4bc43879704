// Running hwc_cli as a process for its tests: launch() starts the program
// with pipes or a pseudo-terminal, feeds its input, sends Ctrl-C when the
// program has said it is waiting, and collects what it writes; Machine writes
// a script for the scripted module. Shared by hwc_cli's process-level tests.
#pragma once

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

namespace hwc_cli_testing {

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

inline void setNonBlocking(int fd) { fcntl(fd, F_SETFL, fcntl(fd, F_GETFL) | O_NONBLOCK); }

// Runs hwc_cli and collects everything it writes until it ends. A run that
// takes more than a minute is killed and fails the test.
inline Outcome launch(const Launch& request) {
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
inline json pairs(std::initializer_list<std::pair<std::string, std::string>> entries) {
  json list = json::array();
  for (const auto& entry : entries) list.push_back(json::array({entry.first, entry.second}));
  return list;
}

inline json disk(const std::string& id, const std::string& name) {
  json partition = {{"title", "PARTITION"},
                    {"entries", pairs({{"INDEX", "1"}, {"PARTITION_TYPE", "PRIMARY"}, {"MOUNT_POINT", "D:\\"}})}};
  return {{"id", id},
          {"name", name},
          {"details", pairs({{"UDI", "-" + name}, {"MODEL", name}, {"ROTATION_RATE", "7200 RPM"}})},
          {"attributes", {{"parent", "LOCAL_DRIVES"}, {"NonRotatingMedia", "F"}}},
          {"sections", json::array({partition})}};
}

inline json test(uint32_t diagnostic, uint32_t number, const std::string& letter, const std::string& longName,
          const std::string& name, json steps = json::array(), uint32_t result = 0) {
  if (steps.empty()) steps = {{{"progress", 0}}, {{"progress", 50}}, {{"progress", 100}}};
  return {{"diagnostic", diagnostic}, {"test", number}, {"letter", letter}, {"long", longName},
          {"name", name},             {"steps", steps},  {"result", result}};
}

// Two disks; the Quick diagnostic with SMART status and targeted read, the
// Extended one with a random seek under the same letter r as nothing quick.
inline json twoDiskMachine() {
  return {{"devices", {disk("0", "DISK A - 500 GB"), disk("1", "DISK B - 1 TB")}},
          {"tests",
           {test(1, 1, "m", "smart-status", "SMART_STATUS_TEST"), test(1, 2, "t", "targeted-read", "TARGETED_READ_TEST"),
            test(2, 8, "r", "extended-random_seek-test", "EXTENDED_RANDOM_SEEK_TEST")}}};
}

inline std::vector<std::string> withMachine(const Machine& machine, std::vector<std::string> args) {
  args.insert(args.begin(), {"--module", SCRIPTED_MODULE_PATH, "--machine", machine.path()});
  return args;
}

inline Outcome cli(const Machine& machine, std::vector<std::string> args) { return launch({withMachine(machine, args), "", false, {}}); }

inline json parsedJson(const Outcome& run) {
  json document = json::parse(run.out, nullptr, false);
  EXPECT_FALSE(document.is_discarded()) << "not one JSON document: " << run.out;
  return document;
}

inline std::vector<std::string> testsRun(const json& document) {
  std::vector<std::string> ids;
  for (const json& result : document.value("results", json::array())) {
    ids.push_back(std::to_string(result["device"].get<int>()) + ":" + result["test"].get<std::string>());
  }
  return ids;
}

inline bool contains(const std::string& text, const std::string& part) { return text.find(part) != std::string::npos; }


inline json askingMachine() {
  json script = twoDiskMachine();
  script["tests"][0]["steps"] = {{{"ask", {"DEVICE_WRITE_TEST", "VOLUME_SPACE_ALLOCATION_ALERT", 1, 0}}},
                                 {{"progress", 100}}};
  script["tests"][0]["resultByAnswer"] = {{"1", 0}, {"2", 1}};
  script["tests"][0]["result"] = 3;  // when nobody answered
  return script;
}

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

inline Outcome realModule(std::vector<std::string> args, std::vector<std::pair<std::string, std::string>> environment = {}) {
  args.insert(args.begin(), {"--module", MODULE_STORAGE_LIBRARY_PATH});
  Launch request{args, "", false, {}};
  request.environment = std::move(environment);
  return launch(request);
}

}  // namespace hwc_cli_testing
