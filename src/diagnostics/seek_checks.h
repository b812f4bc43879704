// The checks the seek tests share: whether a quick or an extended seek test
// may run on a disk, the wake-up read before it starts, and the last word on a
// run whose device went away. The walks themselves stay in their tests.
#pragma once

#include <cstdint>
#include <memory>

#include "module/storage_test.h"

// Quick seek tests: any disk the read helpers can read, external and solid
// state included; eMMC and NVMe are refused in silence (3). A null component
// is INVALID.
uint32_t checkQuickSeekSupported(StorageComponent* component, TestListener* listener, MessageLog* log);

// Quick seek tests after their checkSupported: the media must be reachable
// (capacity, no password lock on an external disk); 3 otherwise, with the key
// the read helpers give.
uint32_t checkQuickSeekReadable(StorageComponent* component, TestListener* listener, MessageLog* log);

// Extended seek tests after their checkSupported: a drive behind a RAID
// controller is ready as it is; any other drive is woken by one handle read
// of sector 0, whose outcome does not matter. INVALID without component or
// protocol.
uint32_t wakeForExtendedSeek(StorageComponent* component);

// "TEST_NOT_SUPPORTED_IN_EXTERNAL_DEVICE" (level 3) or
// "TEST_NOT_SUPPORTED_IN_THIS_DEVICE" (level 0), each with its closing event;
// both give NOT_APPLICABLE.
uint32_t refuseExternalDevice(TestListener* listener, MessageLog* log);
uint32_t refuseThisDevice(TestListener* listener, MessageLog* log);

// The password refusal: the log first (level 0), then the listener, 3.
uint32_t refuseLockedDrive(TestListener* listener, MessageLog* log);

// A run that ends FAILED or NOT_APPLICABLE on a device that no longer answers
// ends ABORTED instead, with "DEVICE_COMMUNICATION_FAILURE" at level 3. True
// when that happened and `result` was changed.
bool reportLostDevice(StorageProtocol* protocol, TestListener* listener, MessageLog* log, uint32_t& result);

// A buffer for one sector of the drive, as its cached properties say: never
// below 512 bytes. Null when a drive reports a sector size that cannot be
// allocated; the caller then counts the read as one that could not start.
std::unique_ptr<uint8_t[]> sectorBuffer(const StorageProtocol* protocol);

// One sector's buffer, kept over a test's reads: a read costs a few
// microseconds, and a fresh allocation for each was a measurable part of
// that. Each use asks the cached properties for the sector size again and
// grows the buffer when it is larger, so a read never overruns it.
class SectorBuffer {
 public:
  // At least one sector of `protocol` (never below 512 bytes), or null when
  // that cannot be allocated.
  uint8_t* forOneSector(const StorageProtocol* protocol);
  // Bytes the buffer holds now; 0 before the first use.
  size_t capacity() const { return size_; }

 private:
  std::unique_ptr<uint8_t[]> bytes_;
  size_t size_ = 0;
};

// One sector into `buffer` through `read` (the test's own
// readSectorsForTest); 2 when no buffer could be had.
template <typename ReadOne>
uint32_t readIntoSectorBuffer(SectorBuffer& buffer, const StorageProtocol* protocol, ReadOne read) {
  uint8_t* bytes = buffer.forOneSector(protocol);
  if (bytes == nullptr) return kStatusBadArgument;
  return read(bytes);
}
