// The funnel seek tests (1.1.4 quick, 1.2.9 extended): seeks whose length
// shrinks from the whole disk to nothing and grows back, one sector a read.
// Which disks they accept is the business of the two leaves; the walk is the
// same for both.
#pragma once

#include <cstdint>
#include <set>

#include "diagnostics/seek_checks.h"
#include "module/storage_test.h"

// Shares of the disk one step covers, as single-precision constants:
// 0x3A378034 and 0x3892CCF7.
constexpr float kQuickFunnelStepFraction = 0.0007f;
constexpr float kExtendedFunnelStepFraction = 0.00007f;
constexpr uint32_t kQuickFunnelAllowedBadSectors = 1;
constexpr uint32_t kExtendedFunnelAllowedBadSectors = 10;

class FunnelSeekTest : public StorageTest {
 public:
  FunnelSeekTest(const ItemId& itemId, float stepFraction, uint32_t allowedBadSectors);

  // The first 100 sectors, the funnel walk, the last 101 sectors. More than
  // one distinct bad sector makes the run FAILED whatever ended it, an abort
  // included; a run that ends FAILED or NOT_APPLICABLE on a device that has
  // gone ends ABORTED.
  uint32_t run(TestRunContext* runContext) override;

  float getStepFraction() const { return stepFraction; }
  uint32_t getAllowedBadSectors() const { return allowedBadSectors; }

  // How many sectors one step of the walk covers on a disk whose last LBA is
  // `lastLba`, computed in single precision. A disk so small that the share
  // comes out below one sector walks one sector a step.
  static uint64_t stepFor(uint64_t lastLba, float fraction);

 protected:
  // LBAs 0 to 99, with no abort check; a read beyond the end of a small disk
  // fails like any other.
  uint32_t readFirstSectors(std::set<uint64_t>& badSectors);
  // One random sector in a span walking down from the end, one in a span
  // walking up from the start, until both have crossed the whole disk.
  uint32_t walkFunnel(TestRunContext* runContext, uint64_t lastLba, std::set<uint64_t>& badSectors);
  // One random sector of [low, high); `high` itself is never chosen.
  uint32_t readRandomInSpan(uint64_t low, uint64_t high, TestRunContext* runContext,
                            std::set<uint64_t>& badSectors, uint8_t percent);
  // LBAs lastLba - 100 to lastLba (101 sectors); nothing below 100 sectors.
  uint32_t readLastSectors(uint64_t lastLba, std::set<uint64_t>& badSectors);

  float stepFraction;
  uint32_t allowedBadSectors;

 private:
  // One sector of the two fixed phases, reported at 0 percent.
  uint32_t readFixedSector(uint64_t lba, std::set<uint64_t>& badSectors);

  // Every read of a run goes into this one buffer.
  SectorBuffer readBuffer;
};

class QuickFunnelSeekTest : public FunnelSeekTest {
 public:
  explicit QuickFunnelSeekTest(const ItemId& itemId)
      : FunnelSeekTest(itemId, kQuickFunnelStepFraction, kQuickFunnelAllowedBadSectors) {}

  // Any disk the read helpers can read; eMMC and NVMe are refused in silence.
  uint32_t checkSupported(StorageComponent* candidate, TestListener* events, MessageLog* lines) override;
  // checkSupported, then the media must be reachable.
  uint32_t prepare(StorageComponent* candidate, TestListener* events, MessageLog* lines) override;
};

class ExtendedFunnelSeekTest : public FunnelSeekTest {
 public:
  explicit ExtendedFunnelSeekTest(const ItemId& itemId)
      : FunnelSeekTest(itemId, kExtendedFunnelStepFraction, kExtendedFunnelAllowedBadSectors) {}

  // SCSI disks on a SCSI bus only; external disks are refused by name.
  uint32_t checkSupported(StorageComponent* candidate, TestListener* events, MessageLog* lines) override;
  // checkSupported, then a wake-up read unless behind a RAID controller.
  uint32_t prepare(StorageComponent* candidate, TestListener* events, MessageLog* lines) override;
};
