// The simulated PC as a provider of the seam: the table of the Win32
// functions its Windows face serves (sim::api, defined across sim/windows/).
//
// sim::installMachine and sim::uninstallMachine (face.h) also make the
// simulated PC the process's provider, so a test that installs a machine is
// served by it whatever the environment says; sim::resetToEnvironment forgets
// that choice with the machine, and the next Win32 call chooses again from
// MODULE_STORAGE_MACHINE (seam/provider.h).
#pragma once

#include "seam/provider.h"

namespace sim {

const seam::Provider& windowsProvider();

}  // namespace sim
