// What the simulated PC's management instrumentation (WMI over COM) did, for
// tests: the checks scheduled for the next start, the calls that reached it,
// and what the COM runtime still holds.
//
// The service is built from the installed machine: ROOT\CIMV2 has
// Win32_LogicalDisk (one instance per drive letter, with the static method
// ScheduleAutoChk) and Win32_DiskDrive (one per disk). The description's
// "wmi" key adds instances of any class with typed values and names calls
// that fail (docs/machine-description.md).
#pragma once

#include <string>
#include <vector>

namespace sim {

// The drives that Win32_LogicalDisk.ScheduleAutoChk scheduled for a check at
// the next start, as "C:", in the order they were scheduled.
std::vector<std::string> scheduledChecks();

// The calls that reached the COM runtime and the WMI service since the
// machine was installed, one line each, such as "CoInitializeEx 2",
// "ConnectServer ROOT\CIMV2", "ExecQuery WQL SELECT DeviceID FROM
// Win32_LogicalDisk", "Get DeviceID", "ExecMethod Win32_LogicalDisk
// ScheduleAutoChk".
std::vector<std::string> managementCalls();

// What is live now: COM objects, strings and safe arrays made and not yet
// released, and the depth of CoInitializeEx on the calling thread.
struct ComUsage {
  int objects = 0;
  int strings = 0;
  int arrays = 0;
  int initialisations = 0;
};
ComUsage comUsage();

}  // namespace sim
