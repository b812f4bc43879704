#include "sim/virtual_clock.h"

#include <gtest/gtest.h>

namespace sim {
namespace {

TEST(VirtualClock, StartsAtZeroAndMovesOnlyWhenAdvanced) {
  VirtualClock clock;
  EXPECT_EQ(clock.nowMs(), 0u);
  clock.advanceMs(600000);
  EXPECT_EQ(clock.nowMs(), 600000u);
}

TEST(VirtualClock, AdvanceToThePastKeepsTheCurrentTime) {
  VirtualClock clock;
  clock.advanceTo(5000);
  clock.advanceTo(1000);
  EXPECT_EQ(clock.nowMs(), 5000u);
}

TEST(VirtualClock, EachTickReadSeesTheTimeThenCostsOneMillisecondByDefault) {
  VirtualClock clock;
  clock.advanceMs(100);
  EXPECT_EQ(clock.readTicks(), 100u);
  EXPECT_EQ(clock.readTicks(), 101u);
  EXPECT_EQ(clock.nowMs(), 102u);
}

TEST(VirtualClock, ALoopPacedByTickReadsAloneReachesItsDeadline) {
  VirtualClock clock;
  clock.setTickReadCostMs(5);
  const uint64_t start = clock.readTicks();
  uint64_t reads = 0;
  while (clock.readTicks() - start < 10000) ++reads;
  // 10 s in slices of 5 ms: the deadline is met on the 2000th read after the start.
  EXPECT_EQ(reads, 1999u);
}

}  // namespace
}  // namespace sim
