// Runs a program as a child process under a wall-clock watchdog and keeps
// what it wrote, for tests that drive a host (hwc_cli) from outside. POSIX
// only: the tests that use it run on the Linux build. Beside its one test, out
// of testing/, so that the Windows build of the helpers never sees it.
#pragma once

#include <string>
#include <utility>
#include <vector>

namespace testing_support {

struct ProcessOptions {
  // The program's path first, then its arguments.
  std::vector<std::string> arguments;
  // Variables set (or replaced) in the child's environment.
  std::vector<std::pair<std::string, std::string>> environment;
  // Wall-clock seconds after which the child is killed (SIGKILL).
  double watchdogSeconds = 30.0;
  // When not empty: SIGINT goes to the child once, as soon as this text has
  // appeared on its standard output, as a user's Ctrl-C would.
  std::string interruptOnOutput;
};

struct ProcessResult {
  bool started = false;     // false: fork, pipe or exec failed (see `error`)
  bool timedOut = false;    // the watchdog killed it
  bool exited = false;      // ended by exit, with `exitStatus`
  int exitStatus = -1;
  int signal = 0;           // the signal that ended it, when not `exited`
  bool interrupted = false; // SIGINT was sent
  double seconds = 0.0;     // wall-clock time from start to end
  std::string out;
  std::string err;
  std::string error;

  // "exit 1 after 0.31 s", "killed by the watchdog after 30.00 s", ...
  std::string describe() const;
};

ProcessResult runProcess(const ProcessOptions& options);

}  // namespace testing_support
