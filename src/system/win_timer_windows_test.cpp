// WinTimer on a real Win32 (Windows or Wine): its ticks are the platform's
// millisecond counter and its delays pass on the platform's clock. The
// arithmetic of ticks is tested on the simulated PC (win_timer_test.cpp).
#include <windows.h>

#include <gtest/gtest.h>

#include "system/win_timer.h"

namespace {

TEST(WinTimerOnWindows, TicksAreThePlatformsMillisecondCounter) {
  WinTimer timer;
  const DWORD before = GetTickCount();
  const uint32_t ticks = timer.getTicks();
  const DWORD after = GetTickCount();
  EXPECT_LE(before, ticks);
  EXPECT_LE(ticks, after);
}

TEST(WinTimerOnWindows, SleepWaitsAtLeastAboutTheTimeAskedForOnThePlatformsClock) {
  WinTimer timer;
  // The counter moves in steps of the system's timer tick (up to about
  // 16 ms on Windows), so the measured wait may look that much shorter.
  const ULONGLONG start = GetTickCount64();
  const uint32_t first = timer.getTicks();
  timer.sleep(100);
  const uint32_t last = timer.getTicks();
  const ULONGLONG waited = GetTickCount64() - start;
  EXPECT_GE(waited, 84u);
  EXPECT_LT(waited, 5000u);
  EXPECT_GE(timer.elapsedSeconds(first, last), 0.084);
  EXPECT_LT(timer.elapsedSeconds(first, last), 5.0);
}

TEST(WinTimerOnWindows, SleepOfZeroReturnsAtOnce) {
  WinTimer timer;
  const ULONGLONG start = GetTickCount64();
  timer.sleep(0);
  EXPECT_LT(GetTickCount64() - start, 1000u);
}

}  // namespace
