// The base of every SCSI transport, and the plain one: the command goes as it
// is to the process's SCSI sender on one device handle.
#pragma once

#include <cstdint>

#include "commands/device_handle.h"
#include "commands/scsi/scsi_cmd.h"

class ScsiBridge {
 public:
  // `handle` stays owned by the component that opened it.
  explicit ScsiBridge(DeviceHandle handle);
  ScsiBridge(const ScsiBridge&) = delete;
  ScsiBridge& operator=(const ScsiBridge&) = delete;
  virtual ~ScsiBridge();

  virtual DeviceHandle getHandle();
  // getHalScsiSend()->send(handle, 1, cmd): 0 with the device's status and
  // sense in `cmd`, or 34.
  virtual uint32_t send(ScsiCmd& cmd);

 protected:
  ScsiBridge();

  DeviceHandle handle = nullptr;
};
