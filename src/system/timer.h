// The time service of the module: millisecond ticks, delays and the seconds
// between two ticks. One process-wide object, made on first use; the platform
// behind it is WinTimer.
#pragma once

#include <cstdint>

// Ticks are milliseconds of a 32-bit counter that wraps after about 49.7
// days. Nothing here keeps state between calls.
class Timer {
 public:
  virtual ~Timer() = default;

  // Waits `milliseconds` on the calling thread.
  virtual void sleep(uint32_t milliseconds) = 0;
  // (end - start) / 1000, the difference taken in unsigned 32-bit arithmetic,
  // so that one wrap of the counter between the two ticks is harmless.
  virtual double elapsedSeconds(uint32_t start, uint32_t end) = 0;
  // The platform's millisecond counter.
  virtual uint32_t getTicks() = 0;
  // Sets *time to 0, the value that stands for "no time noted".
  virtual void clearTime(uint32_t* time) = 0;
  // Whether *time is 0.
  virtual bool isTimeClear(const uint32_t* time) = 0;
  // Whether the two noted times are equal.
  virtual bool isSameTime(const uint32_t* a, const uint32_t* b) = 0;
};

// The process-wide timer, made on first use and kept for the life of the
// process.
Timer& getTimer();

// A remembered tick and a count of the counter's wraps, kept process-wide
// beside the timer. Nothing stores a tick in it, so the wrap count never
// moves; elapsed times rely on the unsigned difference alone.
struct TickWrapRecord {
  uint32_t rememberedTick = 0;
  uint32_t wrapCount = 0;
};
const TickWrapRecord& tickWrapRecord();
