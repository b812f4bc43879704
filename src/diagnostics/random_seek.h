// The random seek tests (1.1.3 quick, 1.2.8 extended): single sectors read at
// random over the whole disk, a fixed number of times. Which disks they accept
// is the business of the two leaves; the loop is the same for both.
#pragma once

#include <cstdint>

#include "module/storage_test.h"

constexpr uint32_t kQuickRandomSeekCount = 4000;
constexpr uint32_t kExtendedRandomSeekCount = 40000;
constexpr uint32_t kQuickRandomAllowedBadSectors = 1;
constexpr uint32_t kExtendedRandomAllowedBadSectors = 10;

class RandomSeekTest : public StorageTest {
 public:
  RandomSeekTest(const ItemId& itemId, uint32_t seekCount, uint32_t allowedBadSectors);

  // seekCount + 1 reads at random LBAs below the last one. More than one
  // distinct bad sector makes the run FAILED whatever ended it, an abort
  // included; a run that ends FAILED or NOT_APPLICABLE on a device that has
  // gone ends ABORTED.
  uint32_t run(TestRunContext* runContext) override;

  uint32_t getSeekCount() const { return seekCount; }
  uint32_t getAllowedBadSectors() const { return allowedBadSectors; }

 protected:
  uint32_t seekCount;
  uint32_t allowedBadSectors;
};

class QuickRandomSeekTest : public RandomSeekTest {
 public:
  explicit QuickRandomSeekTest(const ItemId& itemId)
      : RandomSeekTest(itemId, kQuickRandomSeekCount, kQuickRandomAllowedBadSectors) {}

  // As the quick funnel seek test: any disk the read helpers can read.
  uint32_t checkSupported(StorageComponent* candidate, TestListener* events, MessageLog* lines) override;
  // checkSupported, then the media must be reachable.
  uint32_t prepare(StorageComponent* candidate, TestListener* events, MessageLog* lines) override;
};

class ExtendedRandomSeekTest : public RandomSeekTest {
 public:
  explicit ExtendedRandomSeekTest(const ItemId& itemId)
      : RandomSeekTest(itemId, kExtendedRandomSeekCount, kExtendedRandomAllowedBadSectors) {}

  // SCSI disks on a SCSI bus that discovery did not find locked; external
  // disks are refused by name. Unlike the funnel test it does not ask the
  // read helpers.
  uint32_t checkSupported(StorageComponent* candidate, TestListener* events, MessageLog* lines) override;
  // As the extended funnel seek test: a wake-up read unless behind a RAID
  // controller.
  uint32_t prepare(StorageComponent* candidate, TestListener* events, MessageLog* lines) override;
};
