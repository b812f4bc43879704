// The recover tool's own log: the logs of the whole-device runs, each wrapped
// in markers, beside the time services the tool keeps. Nothing in the module
// reads the text back.
#pragma once

#include <string>

class Timer;

class RecoverLog {
 public:
  // Takes the process-wide timer; the same object serves as the time handler,
  // since one object per time service is enough.
  RecoverLog();

  // Adds ">>> LOG", a newline, the text and "<<< LOG" with a newline; an empty
  // text adds nothing.
  void append(const std::string& operationLog);
  const std::string& text() const { return text_; }
  Timer* getTimer() const { return timer; }
  Timer* getTimeHandler() const { return timeHandler; }

 private:
  Timer* timer;
  Timer* timeHandler;
  std::string text_;
};
