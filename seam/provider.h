// The door behind src/win32/ on the non-Windows builds. Each Win32 function
// the seam declares is defined once here (dispatch.cpp) and forwards to the
// provider chosen for the process: the simulated PC (sim/) or the Linux host
// (linux_host/). A provider is a table of the functions it serves; one it
// leaves empty fails as Windows fails a call into a missing component.
//
// The choice is made once: by the first seam call, from MODULE_STORAGE_MACHINE
// (unset, empty or "host" chooses the Linux host, anything else names a
// simulated machine), or before that by a provider's own installation call
// (sim::installMachine, linux_host::install), which tests use in-process.
// The Windows build has none of this: there the seam is Windows itself.
#pragma once

#include "win32/win32.h"

// winerror.h's value; only the dispatch gives it, for a function the chosen
// provider does not serve, so it is declared here rather than in src/win32/.
constexpr DWORD ERROR_CALL_NOT_IMPLEMENTED = 120;

namespace seam {

struct Provider {
  const char* label = "";
#define WIN32_FUNCTION(ret, name, params, args, failure) ret(*name) params = nullptr;
#define WIN32_PROCEDURE(name, params, args) void(*name) params = nullptr;
#include "seam/win32_functions.inc"
#undef WIN32_FUNCTION
#undef WIN32_PROCEDURE
};

// Every seam call from now on reaches `provider`, which must outlive the
// process's use of the seam. Handles of the provider chosen before are not
// carried over. Not for use while another thread is inside a seam call.
void choose(const Provider& provider);

// Forgets the choice, as at the start of a process: the next seam call
// chooses from the environment.
void forgetChoice();

// The provider chosen; chooses from the environment on the first call.
const Provider& chosen();

// True when MODULE_STORAGE_MACHINE is unset, empty or "host": the process
// serves the host's own disks.
bool environmentChoosesHost();

}  // namespace seam
