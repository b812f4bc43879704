// Status codes of the device layers: protocols, bridges and senders all return
// these, so they sit at the lowest layer that uses them. Tests turn them into
// results and message keys.
#pragma once

#include <cstdint>

enum ProtocolStatus : uint32_t {
  kStatusOk = 0,
  kStatusNotAvailable = 1,
  kStatusBadArgument = 2,
  kStatusBridgeCannotCarry = 4,
  kStatusScsiNotGood = 33,
  kStatusIoctlFailed = 34,
  kStatusInvalidData = 35,
  kStatusMediaError = 75,
  kStatusNoStatusDescriptor = 77,
  kStatusScsiRefused = 78,
  kStatusUnknownSense = 79,
  kStatusAtaError = 88,
  kStatusNoData = 89,
  kStatusSelfTestAborted = 108,
  kStatusSelfTestIdnf = 109,
};
