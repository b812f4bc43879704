// The drive self test (1.1.6): a vendor-specific routine of ATA drives
// (EXECUTE OFF-LINE IMMEDIATE 0x50 with a count of 4), whose code and count
// the host may replace through the parameters SEC_NUM and SEC_COUNT.
#pragma once

#include <map>
#include <string>
#include <vector>

#include "diagnostics/self_test_base.h"

class QuickDriveSelfTest : public SelfTest {
 public:
  // Code 80 with argument 4, polled every 10 s, given up after 600 s unless
  // parameters were given.
  explicit QuickDriveSelfTest(const ItemId& itemId);

  bool isSupported(SystemComponent* candidate) override { return StorageTest::isSupported(candidate); }
  // SEC_NUM and SEC_COUNT of the section "STORAGE", each a decimal number
  // below 256. The first bad value is recorded (1115 not a number, 1116 out
  // of range) and ends the call with false; values taken before it stay.
  // A value taken changes every later run of this object.
  bool setParameters(TestParameters parameters, std::vector<RejectedParameter>& rejected) override;
  // ATA only; a solid-state drive only when parameters were given.
  uint32_t checkSupported(StorageComponent* candidate, TestListener* events, MessageLog* lines) override;
  // checkSupported, then the common preparation.
  uint32_t prepare(StorageComponent* candidate, TestListener* events, MessageLog* lines) override;

 private:
  // Reads one key into `target`. False when the value was refused.
  bool takeByte(const std::map<std::string, std::string>& section, const char* key, uint32_t* target,
                std::vector<RejectedParameter>& rejected);
};
