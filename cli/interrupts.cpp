// The Ctrl-C handler. The process-wide count is the one piece of global state
// of the front end: a signal handler has nowhere else to put it.
#include "interrupts.h"

#include <atomic>
#include <csignal>
#include <cstdint>
#include <cstdlib>
#include <ctime>

#if defined(_WIN32)
#include <windows.h>
#else
#include <unistd.h>
#endif

namespace hwc {
namespace {

std::atomic<int> gInterrupts{0};
std::atomic<int64_t> gFirstMs{0};
static_assert(std::atomic<int>::is_always_lock_free, "the handler needs a lock-free counter");
static_assert(std::atomic<int64_t>::is_always_lock_free, "the handler needs a lock-free time");

// Signals that arrive this close together are one Ctrl-C: GNU timeout, for
// one, passes the terminal's SIGINT on to the program and then to its whole
// process group, so one key press arrives two or three times within a
// millisecond. A person pressing twice on purpose is slower than this.
constexpr int64_t kSameInterruptMs = 250;

// Milliseconds of a monotonic clock; clock_gettime is async-signal-safe.
int64_t nowMs() {
#if defined(_WIN32)
  return static_cast<int64_t>(GetTickCount64());
#else
  timespec now {};
  clock_gettime(CLOCK_MONOTONIC, &now);
  return static_cast<int64_t>(now.tv_sec) * 1000 + now.tv_nsec / 1000000;
#endif
}

const char kFirstNotice[] =
    "\nhwc_cli: stopping: the running test is asked to abort (press Ctrl-C again to quit at once)\n";
const char kSecondNotice[] = "\nhwc_cli: quitting at once\n";

void writeNotice(const char* text, size_t length) {
#if defined(_WIN32)
  DWORD written = 0;
  WriteFile(GetStdHandle(STD_ERROR_HANDLE), text, static_cast<DWORD>(length), &written, nullptr);
#else
  ssize_t ignored = write(STDERR_FILENO, text, length);
  (void)ignored;
#endif
}

// Only async-signal-safe calls: atomics, clock_gettime, write, _Exit.
void onInterrupt() {
  const int64_t now = nowMs();
  if (gInterrupts.load() > 0 && now - gFirstMs.load() < kSameInterruptMs) return;
  if (gInterrupts.fetch_add(1) == 0) {
    gFirstMs.store(now);
    writeNotice(kFirstNotice, sizeof(kFirstNotice) - 1);
  } else {
    writeNotice(kSecondNotice, sizeof(kSecondNotice) - 1);
    std::_Exit(kExitAborted);
  }
}

#if defined(_WIN32)
BOOL WINAPI consoleHandler(DWORD event) {
  if (event == CTRL_C_EVENT || event == CTRL_BREAK_EVENT) {
    onInterrupt();
    return TRUE;
  }
  return FALSE;
}
#else
void signalHandler(int) { onInterrupt(); }
#endif

}  // namespace

void installInterruptHandler() {
#if defined(_WIN32)
  SetConsoleCtrlHandler(consoleHandler, TRUE);
#else
  struct sigaction action {};
  action.sa_handler = signalHandler;
  sigemptyset(&action.sa_mask);
  // No SA_RESTART: a question waiting on the terminal is broken off by Ctrl-C.
  action.sa_flags = 0;
  sigaction(SIGINT, &action, nullptr);
#endif
}

bool interruptRequested() { return gInterrupts.load() > 0; }

}  // namespace hwc
