// The extended self test (1.2.10): the drive's own long test, for SCSI
// drives on a SCSI bus that are not external.
#pragma once

#include "diagnostics/self_test_base.h"

class ExtendedSelfTest : public SelfTest {
 public:
  // Code 2 (background extended), polled every 5 s, given up after 65535 s.
  explicit ExtendedSelfTest(const ItemId& itemId);

  bool isSupported(SystemComponent* candidate) override { return StorageTest::isSupported(candidate); }
  uint32_t checkSupported(StorageComponent* candidate, TestListener* events, MessageLog* lines) override;
  // checkSupported, then the common preparation.
  uint32_t prepare(StorageComponent* candidate, TestListener* events, MessageLog* lines) override;
};
