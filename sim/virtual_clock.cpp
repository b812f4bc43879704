// The simulated PC's clock.
#include "sim/virtual_clock.h"

namespace sim {

void VirtualClock::advanceTo(uint64_t ms) {
  if (ms > nowMs_) nowMs_ = ms;
}

uint64_t VirtualClock::readTicks() {
  const uint64_t seen = nowMs_;
  nowMs_ += tickReadCostMs_;
  return seen;
}

}  // namespace sim
