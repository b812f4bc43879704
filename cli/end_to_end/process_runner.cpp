// A child process with its output on two pipes, watched by poll() against a
// wall-clock deadline.
#include "end_to_end/process_runner.h"

#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>

namespace testing_support {
namespace {

using Clock = std::chrono::steady_clock;

double secondsSince(Clock::time_point start) {
  return std::chrono::duration<double>(Clock::now() - start).count();
}

// Milliseconds left before the deadline, at least 0, for poll().
int millisecondsLeft(Clock::time_point deadline) {
  const auto left = std::chrono::duration_cast<std::chrono::milliseconds>(deadline - Clock::now()).count();
  return left <= 0 ? 0 : static_cast<int>(left > 1000 ? 1000 : left);
}

}  // namespace

std::string ProcessResult::describe() const {
  char text[160];
  if (!started) return "not started: " + error;
  if (timedOut) {
    std::snprintf(text, sizeof text, "killed by the watchdog after %.2f s", seconds);
  } else if (exited) {
    std::snprintf(text, sizeof text, "exit %d after %.2f s", exitStatus, seconds);
  } else {
    std::snprintf(text, sizeof text, "ended by signal %d after %.2f s", signal, seconds);
  }
  return text;
}

ProcessResult runProcess(const ProcessOptions& options) {
  ProcessResult result;
  if (options.arguments.empty()) {
    result.error = "no program given";
    return result;
  }
  int outPipe[2];
  int errPipe[2];
  if (pipe(outPipe) != 0) {
    result.error = std::string("pipe: ") + std::strerror(errno);
    return result;
  }
  if (pipe(errPipe) != 0) {
    result.error = std::string("pipe: ") + std::strerror(errno);
    close(outPipe[0]);
    close(outPipe[1]);
    return result;
  }
  std::vector<char*> argv;
  for (const std::string& argument : options.arguments) argv.push_back(const_cast<char*>(argument.c_str()));
  argv.push_back(nullptr);

  const Clock::time_point start = Clock::now();
  const pid_t child = fork();
  if (child < 0) {
    result.error = std::string("fork: ") + std::strerror(errno);
    for (int fd : {outPipe[0], outPipe[1], errPipe[0], errPipe[1]}) close(fd);
    return result;
  }
  if (child == 0) {
    // The child: its own process group, so that a signal meant for it does
    // not reach the test; output to the pipes; the environment as asked.
    setpgid(0, 0);
    dup2(outPipe[1], STDOUT_FILENO);
    dup2(errPipe[1], STDERR_FILENO);
    for (int fd : {outPipe[0], outPipe[1], errPipe[0], errPipe[1]}) close(fd);
    int devNull = open("/dev/null", O_RDONLY);
    if (devNull >= 0) dup2(devNull, STDIN_FILENO);
    for (const auto& variable : options.environment) setenv(variable.first.c_str(), variable.second.c_str(), 1);
    execv(argv[0], argv.data());
    std::fprintf(stderr, "exec %s: %s\n", argv[0], std::strerror(errno));
    _exit(127);
  }
  result.started = true;
  close(outPipe[1]);
  close(errPipe[1]);

  const Clock::time_point deadline =
      start + std::chrono::duration_cast<Clock::duration>(std::chrono::duration<double>(options.watchdogSeconds));
  bool outOpen = true;
  bool errOpen = true;
  char buffer[8192];
  while ((outOpen || errOpen) && !result.timedOut) {
    if (Clock::now() >= deadline) {
      kill(child, SIGKILL);
      result.timedOut = true;
      break;
    }
    pollfd fds[2] = {{outPipe[0], static_cast<short>(outOpen ? POLLIN : 0), 0},
                     {errPipe[0], static_cast<short>(errOpen ? POLLIN : 0), 0}};
    const int ready = poll(fds, 2, millisecondsLeft(deadline));
    if (ready < 0 && errno != EINTR) break;
    for (int i = 0; i < 2; ++i) {
      if ((fds[i].revents & (POLLIN | POLLHUP | POLLERR)) == 0) continue;
      const ssize_t got = read(fds[i].fd, buffer, sizeof buffer);
      if (got <= 0) {
        (i == 0 ? outOpen : errOpen) = false;
      } else {
        (i == 0 ? result.out : result.err).append(buffer, static_cast<size_t>(got));
      }
    }
    if (!options.interruptOnOutput.empty() && !result.interrupted &&
        result.out.find(options.interruptOnOutput) != std::string::npos) {
      kill(child, SIGINT);
      result.interrupted = true;
    }
  }
  close(outPipe[0]);
  close(errPipe[0]);

  // Both pipes are closed: the child has ended or is about to. The watchdog
  // still holds while it is reaped.
  int status = 0;
  while (true) {
    const pid_t done = waitpid(child, &status, result.timedOut ? 0 : WNOHANG);
    if (done == child) break;
    if (done < 0 && errno != EINTR) break;
    if (done == 0) {
      if (Clock::now() >= deadline) {
        kill(child, SIGKILL);
        result.timedOut = true;
        continue;
      }
      poll(nullptr, 0, 5);
    }
  }
  result.seconds = secondsSince(start);
  if (WIFEXITED(status)) {
    result.exited = true;
    result.exitStatus = WEXITSTATUS(status);
  } else if (WIFSIGNALED(status)) {
    result.signal = WTERMSIG(status);
  }
  return result;
}

}  // namespace testing_support
