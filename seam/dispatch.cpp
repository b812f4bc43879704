// The seam's functions on the non-Windows builds: each forwards to the chosen
// provider, or fails with ERROR_CALL_NOT_IMPLEMENTED when that provider does
// not serve it. The last error is kept here, per thread, for every provider.
#include "seam/provider.h"

#include <cstdlib>
#include <cstring>

namespace seam {

namespace {
thread_local DWORD tLastError = ERROR_SUCCESS;
const Provider* gChosen = nullptr;
}  // namespace

// Defined in choice.cpp, which knows the providers.
const Provider& providerForEnvironment();

void choose(const Provider& provider) { gChosen = &provider; }

void forgetChoice() { gChosen = nullptr; }

const Provider& chosen() {
  if (gChosen == nullptr) gChosen = &providerForEnvironment();
  return *gChosen;
}

bool environmentChoosesHost() {
  const char* named = std::getenv("MODULE_STORAGE_MACHINE");
  return named == nullptr || *named == '\0' || std::strcmp(named, "host") == 0;
}

}  // namespace seam

DWORD GetLastError() { return seam::tLastError; }

void SetLastError(DWORD code) { seam::tLastError = code; }

#define WIN32_FUNCTION(ret, name, params, args, failure)    \
  ret name params {                                         \
    const seam::Provider& seamProvider = seam::chosen();    \
    if (seamProvider.name == nullptr) {                     \
      SetLastError(ERROR_CALL_NOT_IMPLEMENTED);             \
      return failure;                                       \
    }                                                       \
    return seamProvider.name args;                          \
  }
#define WIN32_PROCEDURE(name, params, args)                 \
  void name params {                                        \
    const seam::Provider& seamProvider = seam::chosen();    \
    if (seamProvider.name != nullptr) seamProvider.name args; \
  }
#include "seam/win32_functions.inc"
#undef WIN32_FUNCTION
#undef WIN32_PROCEDURE
