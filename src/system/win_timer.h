// The time service on the Windows API: GetTickCount for ticks, Sleep for
// delays.
#pragma once

#include "system/timer.h"

class WinTimer : public Timer {
 public:
  void sleep(uint32_t milliseconds) override;
  double elapsedSeconds(uint32_t start, uint32_t end) override;
  uint32_t getTicks() override;
  void clearTime(uint32_t* time) override;
  bool isTimeClear(const uint32_t* time) override;
  bool isSameTime(const uint32_t* a, const uint32_t* b) override;
};
