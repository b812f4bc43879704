// Switches SMART on for the length of a test and puts the device back as the
// test found it. Shared by the SMART status, self and targeted read tests.
#pragma once

#include <cstdint>

#include "module_storage/test.h"
#include "protocols/storage_protocol.h"

class SmartEnableGuard {
 public:
  // Reads the device's properties and remembers whether SMART was on, then
  // switches it on, also when it is on already. 1 when the properties cannot
  // be read (wasEnabled then stays as it was); otherwise the status of
  // enableSmart(1). `log` is not used.
  uint32_t enable(StorageProtocol& protocol, MessageLog* log);
  // Switches SMART off again when it was off before enable; the status of that
  // call is ignored. `log` is not used.
  void restore(StorageProtocol& protocol, MessageLog* log);

  uint8_t wasEnabled = 0;
};
