// The lowest step of a SCSI command: one pass-through on an open device
// handle. A CHECK CONDITION is an answer, not a failure: the status byte and
// the sense bytes are in the record for the caller to judge. The platform's
// version is WinHalScsiSend.
#pragma once

#include <cstdint>

#include "commands/device_handle.h"
#include "commands/scsi/scsi_cmd.h"

class HalScsiSend {
 public:
  // Sends `cmd` on `handle`, which the caller keeps open. `alignment` only
  // enlarges the sender's working block (ScsiBridge passes 1). Results:
  //   0  (kStatusOk)          `scsiStatus`, `sense`, `senseLength` and the
  //                           bytes moved (`dataLength`) are the device's
  //   34 (kStatusIoctlFailed) the platform refused the request; the record is
  //                           unchanged
  virtual uint32_t send(DeviceHandle handle, int32_t alignment, ScsiCmd& cmd) = 0;

 protected:
  ~HalScsiSend() = default;
};

// The process's SCSI sender, created on first use and kept for the life of the
// process. Not guarded: device work happens on one thread at a time.
HalScsiSend* getHalScsiSend();
