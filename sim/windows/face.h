// The simulated Windows face: serves the Win32 functions that src/win32/
// declares from a sim::Machine. Tests install a machine in-process; a process
// that installs none gets the one named by MODULE_STORAGE_MACHINE (a JSON file
// path, JSON text or "default") on its first Win32 call, and with neither every
// call fails as on a PC without disks. When such a machine is loaded and
// MODULE_STORAGE_JOURNAL names a file, the machine's journal is written there
// in Journal::text() form when the process exits normally (returning from
// main or calling exit; not on _Exit or a signal that kills it), so that a
// test driving a host process can see every command and every written sector.
// The journal starts empty then: the partition tables written at install are
// not the program's doing.
#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "sim/machine.h"

namespace sim {

// Takes the machine as the PC behind the Win32 calls. The disks' partition
// tables are written onto their media now, from the description's
// "partitions", and volumes and files are built from "volumes" and "files".
// All handles of an earlier machine become invalid. False, with *error naming
// the key and the reason, when the Windows keys of the description are
// rejected; the machine is then not installed.
bool installMachine(std::unique_ptr<Machine> machine, std::string* error = nullptr);
// Back to a PC without disks; every open handle becomes invalid. The
// environment variable is not looked at again until the next install.
void uninstallMachine();
// Forgets the installed machine, as at the start of a process: the next
// Win32 call loads the one MODULE_STORAGE_MACHINE names, if any.
void resetToEnvironment();
// The installed machine, or null. Loads the one the environment names on the
// first call when none is installed.
Machine* installedMachine();

// The entry points of a controller library that the machine can offer by
// name ("libraries" in the description). Registered process-wide by the
// controller emulations; GetProcAddress hands out the function as it is.
void registerLibraryFunction(const std::string& library, const std::string& symbol, void* function);

// The files marked by MoveFileEx(MOVEFILE_DELAY_UNTIL_REBOOT), as "X:\path".
std::vector<std::string> pendingRebootDeletions();
// Runs the next start of the system: removes the files so marked.
void simulateReboot();

// The privileges the process holds; "SeManageVolumePrivilege" is held unless
// the machine says "privileges": [] (or lists others only).
bool privilegeEnabled(const std::string& name);

}  // namespace sim
