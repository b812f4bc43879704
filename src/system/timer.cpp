// The process-wide timer accessor and the tick record beside it.
#include "system/timer.h"

#include "system/win_timer.h"

Timer& getTimer() {
  static WinTimer platform;
  return platform;
}

const TickWrapRecord& tickWrapRecord() {
  static const TickWrapRecord record{};
  return record;
}
