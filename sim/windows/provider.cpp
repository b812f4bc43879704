// Hands the simulated Windows face's functions to the seam. The face serves
// every function of the seam's table, so each row is filled here; a function
// missing from sim::api is a link error, not a silent gap.
#include "sim/windows/provider.h"

namespace sim {
namespace api {
#define WIN32_FUNCTION(ret, name, params, args, failure) ret name params;
#define WIN32_PROCEDURE(name, params, args) void name params;
#include "seam/win32_functions.inc"
#undef WIN32_FUNCTION
#undef WIN32_PROCEDURE
}  // namespace api

namespace {

seam::Provider makeProvider() {
  seam::Provider provider;
  provider.label = "simulated PC";
#define WIN32_FUNCTION(ret, name, params, args, failure) provider.name = &api::name;
#define WIN32_PROCEDURE(name, params, args) provider.name = &api::name;
#include "seam/win32_functions.inc"
#undef WIN32_FUNCTION
#undef WIN32_PROCEDURE
  return provider;
}

}  // namespace

const seam::Provider& windowsProvider() {
  static const seam::Provider provider = makeProvider();
  return provider;
}

}  // namespace sim
