// Statuses of the recover-bad-sectors tool, as decimal text in its
// PartitionFinish and DeviceFinish lists.
#pragma once

#include <cstdint>

namespace hwc {

constexpr uint32_t kToolClean = 0;              // finished, nothing found; a clean volume
constexpr uint32_t kToolDeviceUnusable = 2;     // the device could not be used for the run
constexpr uint32_t kToolCheckScheduled = 3;     // a check at the next start was scheduled
constexpr uint32_t kToolScheduleFailed = 4;     // scheduling that check failed
constexpr uint32_t kToolCannotStart = 6;        // the operation could not start
constexpr uint32_t kToolAborted = 8;            // aborted, or not run at the user's answer
constexpr uint32_t kToolRepaired = 9;           // problems found and repaired
constexpr uint32_t kToolNotRepaired = 10;       // a bad sector could not be repaired
constexpr uint32_t kToolBadSectorsFound = 12;   // bad sectors found, none repaired
constexpr uint32_t kToolSystemEvent = 13;       // stopped by a system event

}  // namespace hwc
