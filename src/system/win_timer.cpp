// Ticks and delays from the platform's millisecond counter.
#include "system/win_timer.h"

#include "win32/win32.h"

void WinTimer::sleep(uint32_t milliseconds) { Sleep(milliseconds); }

double WinTimer::elapsedSeconds(uint32_t start, uint32_t end) {
  // Unsigned subtraction: a counter that wrapped once between the two ticks
  // still gives the true distance.
  const uint32_t difference = end - start;
  return static_cast<double>(difference) / 1000.0;
}

uint32_t WinTimer::getTicks() { return static_cast<uint32_t>(GetTickCount()); }

void WinTimer::clearTime(uint32_t* time) {
  if (time != nullptr) *time = 0;
}

bool WinTimer::isTimeClear(const uint32_t* time) { return time != nullptr && *time == 0; }

bool WinTimer::isSameTime(const uint32_t* a, const uint32_t* b) {
  if (a == nullptr || b == nullptr) return a == b;
  return *a == *b;
}
