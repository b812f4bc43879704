// The recover tool's log of whole-device runs.
#include "tools/recover_log.h"

#include "system/timer.h"

RecoverLog::RecoverLog() : timer(&::getTimer()), timeHandler(&::getTimer()) {}

void RecoverLog::append(const std::string& operationLog) {
  if (operationLog.empty()) return;
  text_ += ">>> LOG\n";
  text_ += operationLog;
  text_ += "<<< LOG\n";
}
