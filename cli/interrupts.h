// Ctrl-C: the first asks the running test to stop (the test sees it through
// isAbortRequested at its next check); the second ends the program at once
// with the exit status of an aborted session.
#pragma once

#include "exit_status.h"

namespace hwc {

// Installs the handler (SIGINT here, the console control handler on
// Windows). Safe to call more than once.
void installInterruptHandler();

// Whether the user has asked to stop. Read from the run thread at the test's
// checks, written from the signal handler.
bool interruptRequested();

}  // namespace hwc
