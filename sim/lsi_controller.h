// LSI RAID controllers of the simulated PC, as their closed command libraries
// present them: the entry points "ProcessLibCommand", "ProcessLibCommandIR"
// and "ProcessLibCommandIR2" of "storelib.dll", "storelibir.dll" and
// "storelibir-2.dll" take a 40-byte command record and answer controller
// lists, controller, drive, logical device and array queries, and SSP and STP
// pass-through to the disks behind the controllers. Built from the machine's
// "lsiControllers"; the Windows face loads the libraries by "libraries".
#pragma once

#include <string>

namespace sim {

class Machine;

// Result codes of the emulated libraries.
enum LsiLibraryResult : unsigned {
  kLsiOk = 0,
  kLsiRefused = 1,            // a command the description says to refuse
  kLsiNoController = 2,       // no controller of that id in this library
  kLsiBadBuffer = 3,          // no buffer, or one too small for the answer
  kLsiNoDevice = 4,           // no drive of that device id, or no path to it
  kLsiUnknownCommand = 5,
  kLsiLinkFailed = 6,         // the drive did not complete the command
};

// Takes the machine's "lsiControllers" and, when it has that key, registers
// the three entry points with the Windows face. Null forgets the controllers. False, with *error
// naming the key and the reason, for a description that is refused.
bool installLsiControllers(Machine* machine, std::string* error);

// The entry points, as the libraries export them.
unsigned lsiProcessLibCommand(void* record);
unsigned lsiProcessLibCommandIR(void* record);
unsigned lsiProcessLibCommandIR2(void* record);

}  // namespace sim
