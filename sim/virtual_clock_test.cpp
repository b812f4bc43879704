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

}  // namespace
}  // namespace sim
