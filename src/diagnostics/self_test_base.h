// The drive self tests that the drive runs by itself while the module only
// watches: start, poll on the timer, time limit, abort and verdict. The
// leaves (short, extended, vendor routine) only say which devices they take
// and with which code; the default self test, whose command returns when the
// drive is done, stands apart in default_self.h.
#pragma once

#include <cstdint>
#include <memory>
#include <string>

#include "diagnostics/smart_enable_guard.h"
#include "module/storage_test.h"

constexpr char kKeyNotSupportedInThisDevice[] = "TEST_NOT_SUPPORTED_IN_THIS_DEVICE";
constexpr char kKeyNotSupportedInSsd[] = "TEST_NOT_SUPPORTED_IN_SSD";
constexpr char kKeyCannotPerformSelfTest[] = "CANNOT_PERFORM_SELF_TEST";
constexpr char kKeyOtherSelfTestInProgress[] = "OTHER_SELF_TEST_ALREADY_IN_PROGRESS";
constexpr char kKeyCannotAbortOtherSelfTest[] = "CANNOT_ABORT_OTHER_SELF_TEST_ALREADY_IN_PROGRESS";
constexpr char kKeyOtherSelfTestWasAborted[] = "OTHER_SELF_TEST_ALREADY_IN_PROGRESS_WAS_ABORTED";
constexpr char kKeyInvalidParameterValue[] = "INVALID_PARAMETER_VALUE";
constexpr char kKeyDeviceCommunicationFailure[] = "DEVICE_COMMUNICATION_FAILURE";
constexpr char kKeyFinishedWithTimeout[] = "TEST_FINISHED_WITH_TIMEOUT";
constexpr char kKeyAbortedByExternalFactor[] = "SELF_TEST_ABORTED_BY_EXTERNAL_FACTOR";
constexpr char kKeyCriticalInterruption[] = "CRITICAL_INTERRUPTION_DETECTED";
constexpr char kKeyUnknownError[] = "UNKNOWN_ERROR_DETECTED";
constexpr char kKeyElectricalError[] = "ELECTRICAL_ERROR_DETECTED";
constexpr char kKeySeekError[] = "SEEK_ERROR_DETECTED";
constexpr char kKeyReadError[] = "READ_ERROR_DETECTED";
constexpr char kKeyHandlingDamage[] = "HANDLING_DAMAGE_DETECTED";
constexpr char kKeyInconclusiveResult[] = "INCONCLUSIVE_RESULT";
constexpr char kKeyReadingSector[] = "READING_SECTOR";

// The self-test execution status nibble of a drive whose self test is still
// running.
constexpr uint8_t kSelfTestInProgress = 15;
// Time-out of the wake-up read after a refused start.
constexpr uint32_t kWakeReadTimeoutSeconds = 30;

class SelfTest : public StorageTest {
 public:
  // `selfTestCode` and `selfTestArgument` are used as one byte each: the ATA
  // subcommand and sector count of EXECUTE OFF-LINE IMMEDIATE, or the SCSI
  // self-test code of SEND DIAGNOSTIC (the argument then unused).
  SelfTest(const ItemId& itemId, uint32_t selfTestCode, uint32_t selfTestArgument, uint32_t pollIntervalSeconds,
           uint32_t timeLimitSeconds);
  ~SelfTest() override;

  // Each leaf says which devices it takes.
  bool isSupported(SystemComponent* candidate) override = 0;
  // Binds the context, prepares (SMART on for ATA), runs the drive test and
  // puts SMART back; the closing onProgress(100, "") follows on every path
  // that reached prepare.
  uint32_t run(TestRunContext* runContext) override;
  // SCSI passes. eMMC and NVMe are refused (3) without a word. An ATA drive
  // without SMART is refused aloud; one whose SMART data is not valid, lacks
  // off-line immediate or self tests, or says off-line collection can be
  // aborted by the host, is refused without a word.
  uint32_t checkSupported(StorageComponent* candidate, TestListener* events, MessageLog* lines) override;
  // SMART on through the guard that run made, for ATA drives only.
  uint32_t prepare(StorageComponent* candidate, TestListener* events, MessageLog* lines) override;

  uint32_t getSelfTestCode() const { return selfTestCode; }
  uint32_t getSelfTestArgument() const { return selfTestArgument; }
  uint32_t getPollIntervalSeconds() const { return pollIntervalSeconds; }
  uint32_t getTimeLimitSeconds() const { return timeLimitSeconds; }
  bool areParametersGiven() const { return parametersGiven; }

 protected:
  // Sends `key` to the listener at `percent`, then logs it at `level`.
  void announce(uint8_t percent, const std::string& key, uint32_t level);
  // The refusals of the leaves' checks: event at 100, log line at `level`.
  static uint32_t refuse(TestListener* events, MessageLog* lines, const char* key, uint32_t level);

  bool parametersGiven = false;
  uint32_t selfTestCode;
  uint32_t selfTestArgument;
  uint32_t pollIntervalSeconds;
  uint32_t timeLimitSeconds;
  std::unique_ptr<SmartEnableGuard> smartGuard;

 private:
  // Start, watch and judge the drive's own test.
  uint32_t runDriveTest();
  // Stops a self test that was running before ours. SUCCESS lets the test go
  // on; otherwise the run's result.
  uint32_t clearEarlierSelfTest();
  // After a refused start: one handle read of sector 0, so that the device
  // is awake for whatever the host does next. Its outcome is not looked at.
  void wakeDevice();
  // One look at the drive: progress (never shown lower than before), then
  // the status nibble. The status of the first failed step, or 0; on a
  // failure what is in hand stands.
  uint32_t pollDrive(uint8_t* status, uint8_t* shownProgress);
  // The verdict from the status nibble of a finished ATA self test.
  uint32_t evaluateAta(uint8_t nibble);
  // The verdict from the result nibble of the newest SCSI self-test log entry.
  uint32_t evaluateScsi(uint8_t nibble);
  // Logs and shows a finding: log line first, then the closing event at 100.
  uint32_t judge(const std::string& key, uint32_t level, uint32_t result);
};

// "READING_SECTOR 1234".
std::string readingSectorText(uint64_t lba);
