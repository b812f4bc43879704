// The targeted read test (1.1.2): reads only where the drive itself has seen
// trouble. LBAs come from the drive's ATA error and self-test logs, each is
// widened by 15 sectors to both sides, and exactly those sectors are read; one
// bad sector ends the test. Reading the logs is the ATA protocol's business.
#pragma once

#include <cstdint>
#include <memory>
#include <set>

#include "diagnostics/smart_enable_guard.h"
#include "module/storage_test.h"

class AtaProtocol;

// Sectors read on each side of an LBA that a log names.
constexpr uint64_t kTargetRadius = 15;

class TargetedReadTest : public StorageTest {
 public:
  explicit TargetedReadTest(const ItemId& itemId) : StorageTest(itemId) {}
  ~TargetedReadTest() override;

  // Logs, then the widened targets; SMART is put back as it was found.
  uint32_t run(TestRunContext* runContext) override;
  // Internal ATA drives with SMART that the read helpers can read; external
  // drives, other protocols and drives without SMART are refused by name.
  uint32_t checkSupported(StorageComponent* candidate, TestListener* events, MessageLog* lines) override;
  // checkSupported, a password lock, a wake-up read, then SMART on.
  uint32_t prepare(StorageComponent* candidate, TestListener* events, MessageLog* lines) override;

  // Each LBA of `logLbas` not beyond `lastLba` with its neighbours within
  // `radius`, clipped to [0, lastLba], goes into `targetLbas`.
  static void widenTargets(const std::set<uint64_t>& logLbas, std::set<uint64_t>& targetLbas, uint64_t radius,
                           uint64_t lastLba);
  // The LBAs that one log's pages name, as the table of logs lays them out;
  // unknown addresses name nothing. Every slot counts, used or not.
  static void takeLbasFromLog(uint8_t logAddress, const uint8_t* pages, uint16_t pageCount,
                              std::set<uint64_t>& logLbas);

 protected:
  // Reads the five logs in their order; 3 with "CANNOT_READ_ANYTHING_FROM_LOGS"
  // when none named an LBA, 4 on an abort after the last one.
  uint32_t collectLogLbas(AtaProtocol* ata, std::set<uint64_t>& logLbas);
  // Reads every target once, in ascending order; the first bad sector ends it.
  uint32_t readTargets(const std::set<uint64_t>& logLbas);

  std::unique_ptr<SmartEnableGuard> smartGuard;
};
