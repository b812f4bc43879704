// The short self test (1.1.5): the drive's own short test, on ATA and SCSI
// drives that are not external; behind a RAID controller only on a SCSI bus.
#pragma once

#include "diagnostics/self_test_base.h"

class ShortSelfTest : public SelfTest {
 public:
  // Code 1 (short off-line self test on ATA, background short on SCSI),
  // polled every 10 s, given up after 600 s.
  explicit ShortSelfTest(const ItemId& itemId);

  bool isSupported(SystemComponent* candidate) override { return StorageTest::isSupported(candidate); }
  // External disks are refused with a log line at level 0, unlike the other
  // self tests.
  uint32_t checkSupported(StorageComponent* candidate, TestListener* events, MessageLog* lines) override;
  // checkSupported, then the common preparation.
  uint32_t prepare(StorageComponent* candidate, TestListener* events, MessageLog* lines) override;
};
