// The default self test: one command that runs the drive's default self test
// to its end, judged by the SCSI status it finished with.
#include "diagnostics/default_self.h"

#include "commands/scsi/scsi_cmd.h"
#include "diagnostics/self_test_base.h"
#include "diagnostics/smart_status.h"
#include "protocols/scsi_protocol.h"

uint32_t DefaultSelfTest::checkSupported(StorageComponent* candidate, TestListener* events, MessageLog* lines) {
  if (candidate == nullptr || candidate->getProtocol() == nullptr) return INVALID;
  if (candidate->getLocation() == kLocationExternal) {
    events->onProgress(100, kKeyNotSupportedExternal);
    lines->log(kKeyNotSupportedExternal, LevelError, nullptr);
    return NOT_APPLICABLE;
  }
  if (candidate->getProtocol()->getProtocolKind() == kProtocolScsi && candidate->getBusKind() == kBusScsi) {
    return SUCCESS;
  }
  events->onProgress(100, kKeyNotSupportedInThisDevice);
  lines->log(kKeyNotSupportedInThisDevice, LevelInfo, nullptr);
  return NOT_APPLICABLE;
}

uint32_t DefaultSelfTest::prepare(StorageComponent* candidate, TestListener* events, MessageLog* lines) {
  const uint32_t supported = checkSupported(candidate, events, lines);
  if (supported != SUCCESS) return supported;
  if (candidate == nullptr || candidate->getProtocol() == nullptr) return INVALID;
  return SUCCESS;
}

uint32_t DefaultSelfTest::run(TestRunContext* runContext) {
  abortAnnounced = false;
  const uint32_t bound = bindContext(runContext);
  if (bound != SUCCESS) return bound;
  // The two aborts before the command end the run without the closing event.
  if (checkAbort(runContext)) return ABORTED;
  uint32_t result = prepare(component, listener, log);
  if (result == SUCCESS) {
    if (checkAbort(runContext)) return ABORTED;
    if (protocol->startSelfTest(selfTestCode, 0) != kStatusOk) {
      listener->onProgress(100, kKeyCannotPerformSelfTest);
      log->log(kKeyCannotPerformSelfTest, LevelFailure, nullptr);
      result = NOT_APPLICABLE;
    } else {
      // Only a SCSI protocol keeps the status of the command; a protocol
      // object of another kind gives no CHECK CONDITION to go by.
      const auto* scsi = dynamic_cast<const ScsiProtocol*>(protocol);
      const bool checkCondition = scsi != nullptr && scsi->getLastSelfTestScsiStatus() == kScsiStatusCheckCondition;
      result = checkCondition ? FAILED : SUCCESS;
      listener->onProgress(100, "");
    }
  }
  listener->onProgress(100, "");
  return result;
}
