// Binding of a run and the abort checks shared by every test. (Named apart
// from storage_test.h: a source ending in _test.cpp would be taken for a test.)
#include "module/storage_test.h"

#include "module/null_objects.h"
#include "module/read_helpers.h"

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

uint32_t StorageTest::readSectorsForTest(uint64_t lba, void* buffer) {
  constexpr uint32_t kTimeoutSeconds = 30;
  uint32_t status = 0;
  if (component->getLocation() == kLocationRaid) {
    status = protocol->readSectors(lba, 1, kTimeoutSeconds, buffer);
  } else {
    status = readThroughHandle(protocol, lba, 1, nullptr, kTimeoutSeconds, buffer);
  }
  if (status == 0) return 0;
  return protocol->readSectors(lba, 1, kTimeoutSeconds, buffer);
}

uint32_t StorageTest::handleReadFailure(uint64_t lba, uint32_t status, uint8_t percent, uint32_t allowedBadSectors,
                                        std::set<uint64_t>& badSectors, TestListener* runListener,
                                        MessageLog* runLog) {
  if (protocol == nullptr || !protocol->isAccessible()) {
    // Level 3 here and level 2 for the same key below: both are kept.
    runListener->onProgress(100, "DEVICE_COMMUNICATION_FAILURE");
    runLog->log("DEVICE_COMMUNICATION_FAILURE", LevelError, nullptr);
    return ABORTED;
  }
  if (status == kStatusMediaError) {
    badSectors.insert(lba);
    const std::string text = "READING_SECTOR " + std::to_string(lba);
    if (allowedBadSectors == 1) {
      runLog->log(text, LevelFailure, nullptr);
      runListener->onProgress(100, text);
      return FAILED;
    }
    runLog->log(text, LevelFailure, nullptr);
    runListener->onProgress(percent, text);
    if (badSectors.size() >= allowedBadSectors) {
      const std::string tooMany = "TOO_MANY_BAD_SECTORS_FOUND: " + std::to_string(allowedBadSectors);
      runLog->log(tooMany, LevelFailure, nullptr);
      runListener->onProgress(100, tooMany);
      return FAILED;
    }
    return SUCCESS;
  }
  const std::string text = status == kStatusScsiRefused ? "CANNOT_ACCESS_DEVICE" : "DEVICE_COMMUNICATION_FAILURE";
  runLog->log(text, LevelFailure, nullptr);
  runListener->onProgress(100, text);
  return status == kStatusScsiRefused ? NOT_APPLICABLE : ABORTED;
}
