// Helpers for tests that speak to simulated SCSI targets.
#pragma once

#include <cstdint>
#include <initializer_list>
#include <vector>

#include "sim/device.h"

namespace sim {
namespace testutil {

struct ScsiCall {
  std::vector<uint8_t> cdb;
  std::vector<uint8_t> data;
  ScsiResponse response;
};

// Sends `cdb` with a data-in buffer of `length` bytes (none when 0).
inline ScsiCall scsiIn(ScsiTarget& target, std::initializer_list<uint8_t> cdb, uint32_t length) {
  ScsiCall call;
  call.cdb.assign(cdb);
  call.data.assign(length, 0xCC);
  ScsiRequest r;
  r.cdb = call.cdb.data();
  r.cdbLength = static_cast<uint8_t>(call.cdb.size());
  r.direction = length ? Direction::In : Direction::None;
  r.data = length ? call.data.data() : nullptr;
  r.length = length;
  call.response = target.executeScsi(r);
  call.data.resize(call.response.transferred);
  return call;
}

inline ScsiResponse scsiOut(ScsiTarget& target, std::initializer_list<uint8_t> cdb, std::vector<uint8_t> data) {
  std::vector<uint8_t> c(cdb);
  ScsiRequest r;
  r.cdb = c.data();
  r.cdbLength = static_cast<uint8_t>(c.size());
  r.direction = Direction::Out;
  r.data = data.data();
  r.length = static_cast<uint32_t>(data.size());
  return target.executeScsi(r);
}

// Sense key, ASC and ASCQ from either format.
inline uint8_t senseKey(const std::vector<uint8_t>& s) {
  if (s.size() < 3) return 0xFF;
  return (s[0] & 0x7F) >= 0x72 ? (s[1] & 0x0F) : (s[2] & 0x0F);
}
inline uint16_t senseAsc(const std::vector<uint8_t>& s) {
  if (s.size() < 14 && (s.size() < 4 || (s[0] & 0x7F) < 0x72)) return 0xFFFF;
  return (s[0] & 0x7F) >= 0x72 ? static_cast<uint16_t>(s[2] << 8 | s[3]) : static_cast<uint16_t>(s[12] << 8 | s[13]);
}

}  // namespace testutil
}  // namespace sim
