// The simulated PC's clock.
#include "sim/virtual_clock.h"

namespace sim {

void VirtualClock::advanceTo(uint64_t ms) {
  if (ms > nowMs_) nowMs_ = ms;
}

}  // namespace sim
