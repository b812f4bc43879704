// The base of every ATA transport, and the plain one: the command goes as it
// is to the process's ATA sender on one device handle. Bridges hold no
// operating-system code; they only carry the handle the component opened.
#pragma once

#include <cstdint>

#include "commands/ata/ata_cmd.h"
#include "commands/device_handle.h"

class AtaBridge {
 public:
  // `handle` stays owned by the component that opened it.
  explicit AtaBridge(DeviceHandle handle);
  AtaBridge(const AtaBridge&) = delete;
  AtaBridge& operator=(const AtaBridge&) = delete;
  virtual ~AtaBridge();

  // The handle commands go on.
  virtual DeviceHandle getHandle();
  // Carries `cmd` to the device and its answer back into it; a status code.
  // The plain bridge: getHalAtaSend()->send(handle, cmd), results 0, 34, 89.
  virtual uint32_t send(AtaCmd& cmd);

 protected:
  // For bridges that reach the device through another transport; their
  // handle stays empty.
  AtaBridge();

  DeviceHandle handle = nullptr;
};
