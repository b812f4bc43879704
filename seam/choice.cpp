// The choice of provider from the environment: the Linux host unless
// MODULE_STORAGE_MACHINE names a simulated machine.
#include "linux_host/provider.h"
#include "seam/provider.h"
#include "sim/windows/provider.h"

namespace seam {

const Provider& providerForEnvironment() {
  return environmentChoosesHost() ? linux_host::provider() : sim::windowsProvider();
}

}  // namespace seam
