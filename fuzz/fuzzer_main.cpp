// One libFuzzer program: the harness body named by FUZZ_TARGET_NAME.
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "fuzz/harness.h"

namespace {

void (*findTarget())(const uint8_t*, size_t) {
  for (const fuzzing::Target& target : fuzzing::targets()) {
    if (std::strcmp(target.name, FUZZ_TARGET_NAME) == 0) return target.run;
  }
  std::fprintf(stderr, "no fuzz target named %s\n", FUZZ_TARGET_NAME);
  std::abort();
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  static void (*const run)(const uint8_t*, size_t) = findTarget();
  run(data, size);
  return 0;
}
