// The default self test (1.1.7): SEND DIAGNOSTIC with the SELFTEST bit, on
// SCSI drives on a SCSI bus that are not external. The command returns only
// when the drive is done, so there is nothing to poll; the SCSI status of the
// command is the verdict.
#pragma once

#include <cstdint>

#include "module/storage_test.h"

class DefaultSelfTest : public StorageTest {
 public:
  explicit DefaultSelfTest(const ItemId& itemId) : StorageTest(itemId) {}

  // CHECK CONDITION on the command fails the drive; any other status passes
  // it. A refused command is not performed (3).
  uint32_t run(TestRunContext* runContext) override;
  uint32_t checkSupported(StorageComponent* candidate, TestListener* events, MessageLog* lines) override;
  // checkSupported; nothing to switch on.
  uint32_t prepare(StorageComponent* candidate, TestListener* events, MessageLog* lines) override;

 protected:
  uint8_t selfTestCode = 0;  // the drive's default self test
};
