// The SMART status test: prepare, one health query, restore, verdict.
#include "diagnostics/smart_status.h"

SmartStatusTest::~SmartStatusTest() = default;

uint32_t SmartStatusTest::checkSupported(StorageComponent* candidate, TestListener* events, MessageLog* lines) {
  if (candidate == nullptr || candidate->getProtocol() == nullptr) return INVALID;
  if (candidate->getLocation() == kLocationExternal) {
    // Whatever an external enclosure could report, it is not asked.
    events->onProgress(100, kKeyNotSupportedExternal);
    lines->log(kKeyNotSupportedExternal, LevelError, nullptr);
    return NOT_APPLICABLE;
  }
  StorageProtocolProperties properties;
  candidate->getProtocol()->getCachedProperties(&properties);
  if (properties.smartSupported) return SUCCESS;
  events->onProgress(100, kKeySmartNotSupported);
  lines->log(kKeySmartNotSupported, LevelError, nullptr);
  return NOT_APPLICABLE;
}

uint32_t SmartStatusTest::prepare(StorageComponent* candidate, TestListener* events, MessageLog* lines) {
  const uint32_t supported = checkSupported(candidate, events, lines);
  if (supported != SUCCESS) return supported;
  if (candidate == nullptr || candidate->getProtocol() == nullptr || smartGuard == nullptr) return INVALID;
  if (smartGuard->enable(*candidate->getProtocol(), lines) == kStatusOk) return SUCCESS;
  events->onProgress(100, kKeyCannotEnableSmart);
  lines->log(kKeyCannotEnableSmart, LevelError, nullptr);
  return NOT_APPLICABLE;
}

uint32_t SmartStatusTest::run(TestRunContext* runContext) {
  abortAnnounced = false;
  const uint32_t bound = bindContext(runContext);
  if (bound != SUCCESS) return bound;
  if (checkAbort(runContext)) return ABORTED;

  smartGuard = std::make_unique<SmartEnableGuard>();
  uint32_t result = prepare(component, listener, log);
  if (result == SUCCESS) {
    listener->onProgress(0, "");
    uint8_t healthy = 0;
    if (protocol->getSmartStatus(&healthy) != kStatusOk) {
      listener->onProgress(100, "");
      result = NOT_APPLICABLE;
    } else {
      listener->onProgress(50, "");
      result = SUCCESS;
    }
    if (checkAbort(runContext)) {
      // An abort outweighs a query that could not be made.
      result = ABORTED;
    } else if (result == SUCCESS) {
      listener->onProgress(100, "");
      result = healthy != 0 ? SUCCESS : FAILED;
    }
    // SMART goes back as it was found, before the closing event and also
    // after an abort.
    smartGuard->restore(*protocol, log);
  }
  listener->onProgress(100, "");
  return result;
}
