// The simulated PC's clock. Time moves only when the machine says so, so a
// ten-minute self test runs in milliseconds and every run repeats exactly.
#pragma once

#include <cstdint>

namespace sim {

class VirtualClock {
 public:
  // Milliseconds since the machine was switched on.
  uint64_t nowMs() const { return nowMs_; }
  void advanceMs(uint64_t ms) { nowMs_ += ms; }
  // Moves forward to `ms`; a time in the past leaves the clock where it is.
  void advanceTo(uint64_t ms);

 private:
  uint64_t nowMs_ = 0;
};

}  // namespace sim
