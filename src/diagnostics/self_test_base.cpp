// The common run of the drive self tests: support, SMART on and back, the
// clearing of an earlier self test, the start, the poll loop on the timer, and
// the verdict by protocol family.
#include "diagnostics/self_test_base.h"

#include <algorithm>
#include <sstream>
#include <vector>

#include "diagnostics/smart_status.h"
#include "module/read_helpers.h"
#include "system/timer.h"

namespace {

// Status nibbles of a finished ATA self test (byte 363 of the SMART data,
// bits 7:4).
enum AtaSelfTestNibble : uint8_t {
  kAtaPassed = 0,
  kAtaAbortedByHost = 1,
  kAtaInterruptedByReset = 2,
  kAtaFatalError = 3,
  kAtaUnknownElementFailed = 4,
  kAtaElectricalElementFailed = 5,
  kAtaServoElementFailed = 6,
  kAtaReadElementFailed = 7,
  kAtaHandlingDamage = 8,
};

// Result nibbles of a SCSI self-test log entry: 0 passed, 1 and 2 aborted,
// 3 to 7 a failed segment of the test.
constexpr uint8_t kScsiPassed = 0;
constexpr uint8_t kScsiAbortedByCommand = 1;
constexpr uint8_t kScsiAbortedOtherwise = 2;
constexpr uint8_t kScsiFirstFailure = 3;
constexpr uint8_t kScsiLastFailure = 7;

constexpr uint32_t kMinimumSectorBytes = 512;

}  // namespace

std::string readingSectorText(uint64_t lba) { return std::string(kKeyReadingSector) + " " + std::to_string(lba); }

SelfTest::SelfTest(const ItemId& itemId, uint32_t code, uint32_t argument, uint32_t pollInterval, uint32_t timeLimit)
    : StorageTest(itemId),
      selfTestCode(code),
      selfTestArgument(argument),
      pollIntervalSeconds(pollInterval),
      timeLimitSeconds(timeLimit) {}

SelfTest::~SelfTest() = default;

uint32_t SelfTest::refuse(TestListener* events, MessageLog* lines, const char* key, uint32_t level) {
  events->onProgress(100, key);
  lines->log(key, level, nullptr);
  return NOT_APPLICABLE;
}

void SelfTest::announce(uint8_t percent, const std::string& key, uint32_t level) {
  listener->onProgress(percent, key);
  log->log(key, level, nullptr);
}

uint32_t SelfTest::checkSupported(StorageComponent* candidate, TestListener* events, MessageLog* lines) {
  if (candidate == nullptr || candidate->getProtocol() == nullptr) return INVALID;
  StorageProtocol* drive = candidate->getProtocol();
  StorageProtocolProperties properties;
  drive->getCachedProperties(&properties);
  const uint32_t kind = drive->getProtocolKind();
  if (kind == kProtocolEmmc || kind == kProtocolNvme) return NOT_APPLICABLE;
  if (kind != kProtocolAta) return SUCCESS;
  if (!properties.smartSupported) {
    events->onProgress(100, kKeySmartNotSupported);
    lines->log(kKeySmartNotSupported, LevelError, nullptr);
    return NOT_APPLICABLE;
  }
  // A drive whose capability byte says off-line collection can be aborted by
  // the host (bit 2) is refused as well, without a word; that is how the
  // module has always chosen its ATA drives.
  if (properties.smartDataValid && properties.offlineImmediateSupported && properties.selfTestSupported &&
      !properties.offlineAbortSupported) {
    return SUCCESS;
  }
  return NOT_APPLICABLE;
}

uint32_t SelfTest::prepare(StorageComponent* candidate, TestListener* events, MessageLog* lines) {
  if (candidate == nullptr || candidate->getProtocol() == nullptr) return INVALID;
  StorageProtocol* drive = candidate->getProtocol();
  if (drive->getProtocolKind() != kProtocolAta) return SUCCESS;
  if (smartGuard == nullptr) return INVALID;
  if (smartGuard->enable(*drive, lines) == kStatusOk) return SUCCESS;
  events->onProgress(100, kKeyCannotEnableSmart);
  lines->log(kKeyCannotEnableSmart, LevelError, nullptr);
  return NOT_APPLICABLE;
}

uint32_t SelfTest::run(TestRunContext* runContext) {
  abortAnnounced = false;
  const uint32_t bound = bindContext(runContext);
  if (bound != SUCCESS) return bound;
  if (checkAbort(runContext)) return ABORTED;

  const bool ata = protocol->getProtocolKind() == kProtocolAta;
  if (ata) smartGuard = std::make_unique<SmartEnableGuard>();
  uint32_t result = prepare(component, listener, log);
  if (result == SUCCESS) {
    result = runDriveTest();
    // SMART goes back as it was found, also after a time limit or an abort.
    if (ata) smartGuard->restore(*protocol, log);
  }
  listener->onProgress(100, "");
  return result;
}

uint32_t SelfTest::clearEarlierSelfTest() {
  uint8_t status = 0;
  if (protocol->getSelfTestStatus(&status) != kStatusOk) {
    announce(100, kKeyCannotPerformSelfTest, LevelError);
    return NOT_APPLICABLE;
  }
  if (status != kSelfTestInProgress) return SUCCESS;
  announce(0, kKeyOtherSelfTestInProgress, LevelWarning);
  protocol->abortSelfTest();
  // A second look that fails leaves the drive as last seen: still running.
  uint8_t again = status;
  if (protocol->getSelfTestStatus(&again) == kStatusOk) status = again;
  if (status == kSelfTestInProgress) {
    announce(100, kKeyCannotAbortOtherSelfTest, LevelError);
    return WARNING;
  }
  announce(0, kKeyOtherSelfTestWasAborted, LevelWarning);
  return SUCCESS;
}

void SelfTest::wakeDevice() {
  StorageProtocolProperties properties;
  protocol->getCachedProperties(&properties);
  std::vector<uint8_t> buffer(std::max(kMinimumSectorBytes, properties.logicalSectorSize), 0);
  readThroughHandle(protocol, 0, 1, nullptr, kWakeReadTimeoutSeconds, buffer.data());
}

uint32_t SelfTest::runDriveTest() {
  const bool behindRaid = component->getLocation() == kLocationRaid;
  if (!behindRaid) {
    const uint32_t cleared = clearEarlierSelfTest();
    if (cleared != SUCCESS) return cleared;
  }

  const uint32_t started =
      protocol->startSelfTest(static_cast<uint8_t>(selfTestCode), static_cast<uint8_t>(selfTestArgument));
  if (parametersGiven && (started == kStatusSelfTestAborted || started == kStatusSelfTestIdnf)) {
    // The drive refused the code or count the user asked for.
    announce(100, kKeyInvalidParameterValue, LevelFailure);
    return NOT_APPLICABLE;
  }
  if (started != kStatusOk) {
    announce(100, kKeyCannotPerformSelfTest, LevelError);
    if (!behindRaid) wakeDevice();
    return NOT_APPLICABLE;
  }
  listener->onProgress(0, "");

  Timer& timer = getTimer();
  uint32_t pollStart = timer.getTicks();
  const uint32_t testStart = timer.getTicks();

  // A test that is over before the first look counts as not performed,
  // though the drive took the command.
  uint8_t status = 0;
  if (protocol->getSelfTestStatus(&status) != kStatusOk || status != kSelfTestInProgress) {
    announce(100, kKeyCannotPerformSelfTest, LevelError);
    return NOT_APPLICABLE;
  }

  // The wait is paced by the timer alone: no sleep, so an abort is seen at
  // once on the next pass.
  uint8_t shownProgress = 0;
  for (;;) {
    if (checkAbort(context)) {
      protocol->abortSelfTest();
      return ABORTED;
    }
    const uint32_t now = timer.getTicks();
    if (timer.elapsedSeconds(pollStart, now) >= pollIntervalSeconds) {
      if (pollDrive(&status, &shownProgress) != kStatusOk && !protocol->isAccessible()) {
        announce(100, kKeyDeviceCommunicationFailure, LevelError);
        return ABORTED;
      }
      pollStart = now;
      // 100 is left to the closing events.
      if (shownProgress != 100) listener->onProgress(shownProgress, "");
    }
    if (!parametersGiven && timer.elapsedSeconds(testStart, now) >= timeLimitSeconds) {
      announce(100, std::string(kKeyFinishedWithTimeout) + ": " + std::to_string(timeLimitSeconds) + " s",
               LevelError);
      protocol->abortSelfTest();
      return WARNING;
    }
    if (status != kSelfTestInProgress) break;
  }

  switch (protocol->getProtocolKind()) {
    case kProtocolAta: return evaluateAta(status);
    case kProtocolScsi: return evaluateScsi(status);
    default: return INVALID;
  }
}

uint32_t SelfTest::pollDrive(uint8_t* status, uint8_t* shownProgress) {
  uint8_t percent = 0;
  const uint32_t progressRead = protocol->getSelfTestProgress(&percent);
  if (progressRead != kStatusOk) return progressRead;
  *shownProgress = std::max(*shownProgress, percent);
  uint8_t newStatus = *status;
  const uint32_t statusRead = protocol->getSelfTestStatus(&newStatus);
  if (statusRead == kStatusOk) *status = newStatus;
  // A trace for a debugger's eye; it reaches neither the listener nor the log.
  std::ostringstream trace;
  trace << "Poll Self Test result: " << static_cast<unsigned>(*status)
        << " - progress: " << static_cast<unsigned>(percent) << std::endl;
  return statusRead;
}

uint32_t SelfTest::judge(const std::string& key, uint32_t level, uint32_t result) {
  log->log(key, level, nullptr);
  listener->onProgress(100, key);
  return result;
}

uint32_t SelfTest::evaluateAta(uint8_t nibble) {
  switch (nibble) {
    case kAtaPassed:
      listener->onProgress(100, "");
      return SUCCESS;
    case kAtaAbortedByHost:
    case kAtaInterruptedByReset:
      return judge(kKeyAbortedByExternalFactor, LevelInfo, WARNING);
    case kAtaFatalError: return judge(kKeyCriticalInterruption, LevelFailure, FAILED);
    case kAtaUnknownElementFailed: return judge(kKeyUnknownError, LevelFailure, FAILED);
    case kAtaElectricalElementFailed: return judge(kKeyElectricalError, LevelFailure, FAILED);
    case kAtaServoElementFailed: return judge(kKeySeekError, LevelFailure, FAILED);
    case kAtaReadElementFailed: {
      log->log(kKeyReadError, LevelFailure, nullptr);
      uint64_t lba = 0;
      std::string text;
      if (protocol->getSelfTestFailingLba(&lba) == kStatusOk) {
        text = readingSectorText(lba);
        log->log(text, LevelFailure, nullptr);
      }
      listener->onProgress(100, text);
      return FAILED;
    }
    case kAtaHandlingDamage: return judge(kKeyHandlingDamage, LevelFailure, FAILED);
    default: return judge(kKeyInconclusiveResult, LevelInfo, WARNING);
  }
}

uint32_t SelfTest::evaluateScsi(uint8_t nibble) {
  if (nibble == kScsiPassed) {
    listener->onProgress(100, "");
    return SUCCESS;
  }
  if (nibble == kScsiAbortedByCommand || nibble == kScsiAbortedOtherwise) {
    return judge(kKeyAbortedByExternalFactor, LevelInfo, WARNING);
  }
  if (nibble >= kScsiFirstFailure && nibble <= kScsiLastFailure) {
    // Whatever segment failed, the drive is judged by its first failing LBA.
    uint64_t lba = 0;
    std::string text;
    if (protocol->getSelfTestFailingLba(&lba) == kStatusOk) {
      text = readingSectorText(lba);
      log->log(kKeyReadError, LevelFailure, nullptr);
      log->log(text, LevelFailure, nullptr);
    }
    listener->onProgress(100, text);
    return FAILED;
  }
  return judge(kKeyInconclusiveResult, LevelInfo, WARNING);
}
