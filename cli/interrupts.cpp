// The Ctrl-C handler. The process-wide count is the one piece of global state
// of the front end: a signal handler has nowhere else to put it.
#include "interrupts.h"

#include <atomic>
#include <csignal>
#include <cstdlib>

#if defined(_WIN32)
#include <windows.h>
#else
#include <unistd.h>
#endif

namespace hwc {
namespace {

std::atomic<int> gInterrupts{0};
static_assert(std::atomic<int>::is_always_lock_free, "the handler needs a lock-free counter");

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

// Only async-signal-safe calls: an atomic add, write, _Exit.
void onInterrupt() {
  if (gInterrupts.fetch_add(1) == 0) {
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
