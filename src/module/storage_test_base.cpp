// Binding of a run and the abort checks shared by every test. (Named apart
// from storage_test.h: a source ending in _test.cpp would be taken for a test.)
#include "module/storage_test.h"

#include "module/null_objects.h"

bool StorageTest::isSupported(SystemComponent* candidate) {
  auto* storage = dynamic_cast<StorageComponent*>(candidate);
  if (storage == nullptr) return false;
  return checkSupported(storage, &nullTestListener(), &nullMessageLog()) == SUCCESS;
}

uint32_t StorageTest::bindContext(TestRunContext* runContext) {
  if (runContext == nullptr) return INVALID;
  context = runContext;
  component = dynamic_cast<StorageComponent*>(runContext->getComponent());
  if (component == nullptr) return INVALID;
  protocol = component->getProtocol();
  if (protocol == nullptr) return INVALID;
  log = runContext->getMessageLog();
  if (log == nullptr) return INVALID;
  listener = runContext->getTestListener();
  if (listener == nullptr) return INVALID;
  return SUCCESS;
}

bool StorageTest::hasCompromisingSystemEvent() const {
  if (context == nullptr) return false;
  const uint8_t* events = context->getSystemEvents();
  if (events == nullptr) return false;
  return (*events & kCompromisingSystemEventMask) != 0;
}

bool StorageTest::checkAbort(TestRunContext* runContext) {
  return checkAbortWith(runContext, !abortAnnounced, true);
}

bool StorageTest::checkAbortAnnounced(TestRunContext* runContext, bool announce) {
  return checkAbortWith(runContext, announce, false);
}

bool StorageTest::checkAbortWith(TestRunContext* runContext, bool announce, bool onceOnly) {
  if (runContext == nullptr || runContext->getTestListener() == nullptr) return false;
  if (runContext->isAbortRequested()) {
    // A user abort closes the progress through the test's own listener and
    // leaves no log line.
    if (listener != nullptr) listener->onProgress(100, "");
    return true;
  }
  if (!hasCompromisingSystemEvent()) return false;
  if (announce) {
    runContext->getTestListener()->onProgress(100, kKeySystemEventAbort);
    if (MessageLog* runLog = runContext->getMessageLog()) runLog->log(kKeySystemEventAbort, LevelInfo, nullptr);
    if (onceOnly) abortAnnounced = true;
  }
  return true;
}
