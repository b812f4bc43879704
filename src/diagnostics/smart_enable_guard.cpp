// SMART on for a test, and back to how it was found.
#include "diagnostics/smart_enable_guard.h"

#include <memory>

uint32_t SmartEnableGuard::enable(StorageProtocol& protocol, MessageLog*) {
  auto properties = std::make_shared<StorageProtocolProperties>();
  if (protocol.getProperties(properties.get()) != kStatusOk) return kStatusNotAvailable;
  wasEnabled = properties->smartEnabled ? 1 : 0;
  return protocol.enableSmart(1);
}

void SmartEnableGuard::restore(StorageProtocol& protocol, MessageLog*) {
  if (wasEnabled == 0) protocol.enableSmart(0);
}
