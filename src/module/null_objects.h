// Listener and log that do nothing: isSupported speaks to them so that asking
// whether a test fits never reaches the host.
#pragma once

#include "module_storage/test.h"

class NullTestListener : public TestListener {
 public:
  void onProgress(uint8_t, const std::string&) override {}
  void requestInput(InputRequest&) override {}
  void reservedEvent() override {}
  bool isInteractive() override { return false; }
};

class NullMessageLog : public MessageLog {
 public:
  void log(std::string, uint32_t, void*) override {}
};

// Process-wide instances, alive from library load to unload.
NullTestListener& nullTestListener();
NullMessageLog& nullMessageLog();
