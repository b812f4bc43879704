// The data phase of a command, shared by the ATA and SCSI records and by the
// transports that carry them.
#pragma once

#include <cstdint>

enum DataDirection : uint32_t {
  kDirectionNone = 0,  // non-data command
  kDirectionIn = 1,    // from the device into the caller's buffer
  kDirectionOut = 2,   // from the caller's buffer to the device
};

// Every command waits this long for its device unless its class says otherwise.
constexpr uint32_t kDefaultCommandTimeoutSeconds = 30;
