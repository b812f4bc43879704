// The timer on the simulated PC: ticks are the virtual clock's milliseconds,
// each read of them costs the machine's tick-read slice (1 ms here), a sleep
// moves that clock and takes no real time, and elapsed times survive one wrap
// of the 32-bit counter.
#include "system/win_timer.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <memory>
#include <string>

#include "sim/machine.h"
#include "sim/windows/face.h"
#include "system/timer.h"

namespace {

class TimerOnSimulatedMachine : public ::testing::Test {
 protected:
  TimerOnSimulatedMachine() {
    std::string error;
    EXPECT_TRUE(sim::installMachine(std::make_unique<sim::Machine>(), &error)) << error;
  }
  ~TimerOnSimulatedMachine() override { sim::uninstallMachine(); }

  sim::VirtualClock& clock() { return sim::installedMachine()->clock(); }

  WinTimer timer;
};

TEST(WinTimerTest, ElapsedSecondsAcrossOneWrapOfTheCounterIsTheTrueDistance) {
  WinTimer timer;
  EXPECT_DOUBLE_EQ(timer.elapsedSeconds(0xFFFFFF00u, 0x100u), 0.512);
}

TEST(WinTimerTest, ElapsedSecondsIsTheDifferenceInThousandths) {
  WinTimer timer;
  EXPECT_DOUBLE_EQ(timer.elapsedSeconds(1000, 1000), 0.0);
  EXPECT_DOUBLE_EQ(timer.elapsedSeconds(1000, 11500), 10.5);
  EXPECT_DOUBLE_EQ(timer.elapsedSeconds(0, 600000), 600.0);
  // An end before the start reads as a wrap, never as a negative time.
  EXPECT_DOUBLE_EQ(timer.elapsedSeconds(1, 0), 4294967.295);
}

TEST_F(TimerOnSimulatedMachine, GetTicksReadsTheVirtualClock) {
  clock().advanceTo(1234);
  EXPECT_EQ(timer.getTicks(), 1234u);
  clock().advanceMs(600000);
  // 600 s later, plus the millisecond the first read cost.
  EXPECT_EQ(timer.getTicks(), 601235u);
}

TEST_F(TimerOnSimulatedMachine, TicksWrapAfterThirtyTwoBitsOfMilliseconds) {
  clock().advanceTo((uint64_t{1} << 32) - 256);
  const uint32_t before = timer.getTicks();
  EXPECT_EQ(before, 0xFFFFFF00u);
  clock().advanceMs(511);  // with the read's own millisecond, 512 in all
  const uint32_t after = timer.getTicks();
  EXPECT_EQ(after, 0x100u);
  EXPECT_DOUBLE_EQ(timer.elapsedSeconds(before, after), 0.512);
}

TEST_F(TimerOnSimulatedMachine, SleepMovesTheVirtualClockByItsMilliseconds) {
  clock().advanceTo(1000);
  timer.sleep(2500);
  EXPECT_EQ(clock().nowMs(), 3500u);
  EXPECT_EQ(timer.getTicks(), 3500u);
}

TEST_F(TimerOnSimulatedMachine, EachReadOfTheTicksCostsAMillisecondOfVirtualTime) {
  clock().advanceTo(5000);
  const uint32_t start = timer.getTicks();
  for (int i = 0; i < 99; ++i) timer.getTicks();
  EXPECT_EQ(start, 5000u);
  EXPECT_EQ(clock().nowMs(), 5100u);
  // So a loop that only reads the timer still sees time pass.
  EXPECT_DOUBLE_EQ(timer.elapsedSeconds(start, timer.getTicks()), 0.1);
}

TEST(WinTimerTest, ClearTimeSetsZeroAndIsTimeClearSeesIt) {
  WinTimer timer;
  uint32_t noted = 777;
  EXPECT_FALSE(timer.isTimeClear(&noted));
  timer.clearTime(&noted);
  EXPECT_EQ(noted, 0u);
  EXPECT_TRUE(timer.isTimeClear(&noted));
}

TEST(WinTimerTest, IsSameTimeComparesTheNotedValues) {
  WinTimer timer;
  uint32_t a = 42;
  uint32_t b = 42;
  uint32_t c = 43;
  EXPECT_TRUE(timer.isSameTime(&a, &b));
  EXPECT_FALSE(timer.isSameTime(&a, &c));
}

TEST(WinTimerTest, NullTimesAreNeitherClearNorTouched) {
  WinTimer timer;
  timer.clearTime(nullptr);
  EXPECT_FALSE(timer.isTimeClear(nullptr));
  uint32_t a = 0;
  EXPECT_FALSE(timer.isSameTime(&a, nullptr));
  EXPECT_TRUE(timer.isSameTime(nullptr, nullptr));
}

TEST(TimerAccessor, GetTimerGivesOneWinTimerForTheProcess) {
  Timer& first = getTimer();
  Timer& second = getTimer();
  EXPECT_EQ(&first, &second);
  EXPECT_NE(dynamic_cast<WinTimer*>(&first), nullptr);
}

TEST_F(TimerOnSimulatedMachine, TheWrapCountBesideTheTimerNeverMoves) {
  clock().advanceTo((uint64_t{1} << 32) + 10);  // past one wrap
  getTimer().getTicks();
  getTimer().elapsedSeconds(0xFFFFFFF0u, 5);
  EXPECT_EQ(tickWrapRecord().wrapCount, 0u);
  EXPECT_EQ(tickWrapRecord().rememberedTick, 0u);
}

}  // namespace
