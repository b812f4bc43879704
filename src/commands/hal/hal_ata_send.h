// The lowest step of an ATA command: one pass-through on an open device
// handle. No retry, no decoding, no logging: the record goes out and the
// device's registers come back into it. The platform's version is WinHalAtaSend.
#pragma once

#include <cstdint>

#include "commands/ata/ata_cmd.h"
#include "commands/device_handle.h"

class HalAtaSend {
 public:
  // Sends `cmd` on `handle`, which the caller keeps open. Results:
  //   0  (kStatusOk)       the record holds the device's registers, and for a
  //                        read the bytes moved in `dataLength` and `buffer`
  //   34 (kStatusIoctlFailed) the platform refused the request; the record is
  //                        unchanged
  //   89 (kStatusNoData)   data was expected from the device and none came; the
  //                        registers are in the record, `dataLength` keeps the
  //                        requested value
  // Synchronous; blocks until the device answers or the platform gives up
  // after `timeoutSeconds`.
  virtual uint32_t send(DeviceHandle handle, AtaCmd& cmd) = 0;

 protected:
  // The process's sender lives until the process ends and is never deleted
  // through this interface.
  ~HalAtaSend() = default;
};

// The process's ATA sender, created on first use and kept for the life of the
// process. Not guarded: device work happens on one thread at a time.
HalAtaSend* getHalAtaSend();
