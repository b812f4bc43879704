// The simulated PC's clock. Time passes when the machine waits (a sleep, an
// I/O that takes time) and while the program runs: every read of the tick
// counter costs a fixed slice of virtual time, as the cycles spent between
// two reads would on a real PC. So a loop paced by the timer alone reaches its
// deadline, a ten-minute self test still runs in milliseconds, and every run
// repeats exactly.
#pragma once

#include <cstdint>

namespace sim {

class VirtualClock {
 public:
  // The slice a tick-counter read costs unless the machine description says
  // otherwise: a millisecond, the counter's own resolution.
  static constexpr uint32_t kDefaultTickReadCostMs = 1;

  // Milliseconds since the machine was switched on.
  uint64_t nowMs() const { return nowMs_; }
  void advanceMs(uint64_t ms) { nowMs_ += ms; }
  // Moves forward to `ms`; a time in the past leaves the clock where it is.
  void advanceTo(uint64_t ms);

  // What a program reading the tick counter sees: the time now. The clock then
  // moves on by the read's cost, so the next read sees a later time.
  uint64_t readTicks();
  uint32_t tickReadCostMs() const { return tickReadCostMs_; }
  void setTickReadCostMs(uint32_t ms) { tickReadCostMs_ = ms; }

 private:
  uint64_t nowMs_ = 0;
  uint32_t tickReadCostMs_ = kDefaultTickReadCostMs;
};

}  // namespace sim
