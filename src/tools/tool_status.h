// Statuses of the recover-bad-sectors tool's operations, as the driver stores
// them in decimal text in PartitionFinish and DeviceFinish. They are a table
// of their own, apart from test results and device-layer statuses.
#pragma once

#include <cstdint>

constexpr uint32_t kToolStatusClean = 0;             // finished, nothing found; a clean volume
constexpr uint32_t kToolStatusDeviceUnusable = 2;    // a read could not be carried out; unmount failed
constexpr uint32_t kToolStatusCheckScheduled = 3;    // a check at the next start was scheduled
constexpr uint32_t kToolStatusScheduleFailed = 4;    // scheduling that check failed
constexpr uint32_t kToolStatusCannotStart = 6;       // the operation could not start
constexpr uint32_t kToolStatusAborted = 8;           // aborted, or not run at the user's answer
constexpr uint32_t kToolStatusRepaired = 9;          // problems found and repaired
constexpr uint32_t kToolStatusNotRepaired = 10;      // a bad sector could not be repaired
constexpr uint32_t kToolStatusBadSectorsFound = 12;  // bad sectors found, none repaired
constexpr uint32_t kToolStatusSystemEvent = 13;      // stopped by a system event
