// Until the machine descriptions can be loaded (sim/machine.cpp), a machine
// named by MODULE_STORAGE_MACHINE is reported as not loadable, and the PC has
// no disks. The real loader, when linked, replaces this weak definition.
#include "sim/machine.h"

namespace sim {

__attribute__((weak)) std::unique_ptr<Machine> Machine::load(const std::string& pathOrJson, std::string* error) {
  if (error != nullptr) *error = "machine descriptions can't be loaded in this build: " + pathOrJson;
  return nullptr;
}

}  // namespace sim
