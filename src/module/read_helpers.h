// The small things the seek and read tests and the bad-sector tools do around
// a read: read through the OS handle or through device commands, and find out
// beforehand whether the media can be reached at all.
#pragma once

#include <cstdint>

#include "components/storage_component.h"
#include "module_storage/test.h"

// Handle read of `sectorCount` sectors at `lba`. 2 when the read cannot start
// (no properties, sectors under 512 bytes, no buffer); 0 on success; the
// filesystem's status when nothing came. The byte count is computed in 16 bits
// and wraps at 65536 on purpose: the device read and write tests rely on that
// arithmetic staying as it has always been. On a partial transfer
// `firstBadLba` (if given) receives 0 when all bytes came, else
// bytesRead / sectorSize + byteOffset, and the result is 1 when that value is
// non-zero.
uint32_t readThroughHandle(StorageProtocol* protocol, uint64_t lba, uint32_t sectorCount, uint64_t* firstBadLba,
                           uint32_t timeoutSeconds, void* buffer);

// Without `useHandle`: one device read of one sector. With it: a handle read,
// then, if that failed, each sector by itself through the device, stopping at
// the first failure when `firstBadLba` is given.
uint32_t readWithFallback(StorageProtocol* protocol, uint64_t lba, uint32_t sectorCount, uint64_t* firstBadLba,
                          uint32_t timeoutSeconds, void* buffer, bool useHandle);

// False for a missing component, protocol, listener or log, and for eMMC and
// NVMe devices. Reports nothing.
bool isUsableForRead(StorageComponent* component, TestListener* listener, MessageLog* log);

// Whether the media can be reached: a usable capacity, and for an external
// disk no password lock. Wakes the device with one read of sector 0 unless it
// sits behind a RAID controller.
bool checkReadable(StorageComponent* component, TestListener* listener, MessageLog* log);
