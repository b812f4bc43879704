// Status codes of the RAID controller stacks, beside the shared ones of the
// device layers: what a controller query, a controller sender or a bridge
// through a controller reports when it cannot carry a command.
#pragma once

#include <cstdint>

#include "commands/status_codes.h"

enum RaidStatus : uint32_t {
  // LSI: a bridge without a library sender.
  kStatusNoLsiSender = 1,
  // CSMI: a bridge without a sender.
  kStatusNoCsmiSender = 2,
  // CSMI: an ATA command through the controller ended with ERR in Status.
  kStatusCsmiAtaError = 32,
  // LSI: the STP pass-through failed in the library or on the link.
  kStatusLsiStpFailed = 34,
  // LSI: a logical device or array query failed.
  kStatusLsiQueryFailed = 65,
  // CSMI: the driver's return code in the request header is not 0.
  kStatusCsmiReturnCode = 66,
};
