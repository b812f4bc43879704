// The device read test (1.1.11) of flash devices, eMMC and NVMe only: reads a
// range at the start, one around the middle and one at the end of the device,
// or the whole device, in large chunks through the operating system's handle.
// How a chunk reaches the device is readThroughHandle's business.
#pragma once

#include <cstdint>
#include <vector>

#include "module/storage_test.h"

// Whether a test of flash devices can run on `candidate`: INVALID without a
// component or protocol, SUCCESS on eMMC and NVMe, NOT_APPLICABLE on any other
// bus. Says nothing to anybody. Shared by the device read and write tests.
uint32_t checkFlashDevice(StorageComponent* candidate);

class StorageDeviceReadTest : public StorageTest {
 public:
  // Bits of givenParameters: which parameters the host has set so far.
  static constexpr uint8_t kGivenInitialSize = 0x01;
  static constexpr uint8_t kGivenCentralSize = 0x02;
  static constexpr uint8_t kGivenFinalSize = 0x04;
  static constexpr uint8_t kGivenWholeDiskRead = 0x08;

  // Sectors asked of the handle in one read, and its time limit.
  static constexpr uint64_t kChunkSectors = 4096;
  static constexpr uint32_t kChunkTimeoutSeconds = 30;

  explicit StorageDeviceReadTest(const ItemId& itemId) : StorageTest(itemId) {}
  ~StorageDeviceReadTest() override;

  // checkSupported through the null listener and log; the component may be
  // anything, checkSupported refuses what is no storage component.
  bool isSupported(SystemComponent* candidate) override;
  uint32_t run(TestRunContext* runContext) override;
  bool isOptionA() override { return false; }
  bool isOptionB() override { return false; }
  // INITIAL_SIZE, CENTRAL_SIZE and FINAL_SIZE (GiB, unsigned 32-bit decimal)
  // and WHOLE_DISK_READ (0 or 1) of the "STORAGE" section, in that order. The
  // first bad value is rejected (1115 not a number, 1116 out of range) and
  // ends the reading; what was taken before it stays taken.
  bool setParameters(TestParameters parameters, std::vector<RejectedParameter>& rejected) override;
  uint32_t checkSupported(StorageComponent* candidate, TestListener* events, MessageLog* lines) override;
  // Nothing to prepare; run does not call it.
  uint32_t prepare(StorageComponent* candidate, TestListener* events, MessageLog* lines) override;

 protected:
  // Both ends are read positions on the device; see readRange for how far a
  // range is really read.
  struct ReadRange {
    uint64_t first = 0;
    uint64_t last = 0;
    bool operator==(const ReadRange& other) const { return first == other.first && last == other.last; }
  };
  struct ReadPlan {
    std::vector<ReadRange> ranges;  // start, middle, end, in that order
    uint64_t totalSectors = 0;      // the whole of the progress
  };

  // The ranges to read on a device of these properties, announcing the sizes
  // given as parameters to the listener and the log of the run.
  ReadPlan makePlan(const StorageProtocolProperties& properties);
  // Cached properties, the plan, then each range in turn.
  uint32_t readBody();
  // Reads [first, last) of the device in chunks, with an event per chunk.
  uint32_t readRange(const ReadRange& range, uint64_t totalSectors);

  uint64_t initialSize = 2;
  uint64_t centralSize = 6;
  uint64_t finalSize = 3;
  bool wholeDiskRead = false;
  uint8_t givenParameters = 0;
  uint64_t sectorsDone = 0;
};
