// The platform's ATA sender: IOCTL_ATA_PASS_THROUGH with the data in the same
// block as the request. The block is built and read back by
// AtaPassThroughBlock, so that its layout can be checked byte by byte.
#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

#include "commands/hal/hal_ata_send.h"
#include "win32/win32.h"

// AtaFlags for `cmd`: DRDY_REQUIRED always; 48BIT_COMMAND for the 48-bit
// commands; NO_MULTIPLE for a SMART READ LOG of more than one page and nothing
// else; DATA_IN or DATA_OUT after the direction.
USHORT ataPassThroughFlags(const AtaCmd& cmd);

// One request, allocated and zeroed per call:
//
//   offset 0                ATA_PASS_THROUGH_EX (48 bytes)
//          48               data, dataLength bytes (the record's, both ways)
//          48 + dataLength  one spare byte
//
// The platform is handed 48 + dataLength bytes in and out.
class AtaPassThroughBlock {
 public:
  // Fills the record and, for a write, copies the caller's data in.
  //   Length 48, AtaFlags, DataTransferLength = low 32 bits of dataLength,
  //   TimeOutValue = timeoutSeconds, DataBufferOffset 48, PathId/TargetId/Lun 0.
  //   CurrentTaskFile  = features sectorCount lbaLow lbaMid lbaHigh device command 0
  //   PreviousTaskFile = 0 sectorCountExt lbaLowExt lbaMidExt lbaHighExt 0 0 0
  // featuresExt is deliberately not sent: no command the module builds sets it.
  explicit AtaPassThroughBlock(const AtaCmd& cmd);
  AtaPassThroughBlock(const AtaPassThroughBlock&) = delete;
  AtaPassThroughBlock& operator=(const AtaPassThroughBlock&) = delete;

  ATA_PASS_THROUGH_EX& header() { return *record; }
  uint8_t* bytes() { return storage.data(); }
  size_t blockSize() const { return storage.size(); }
  // What DeviceIoControl is told, in and out.
  DWORD ioctlLength() const { return ioctlBytes; }

  // After the platform answered: the current task file back into the record
  // (the previous one is not read), and for a read the bytes moved. 89 when a
  // read asked for data and none came; 0 otherwise. A driver that reports more
  // than was asked, or data outside the block, is held to what fits in both.
  uint32_t complete(AtaCmd& cmd);

 private:
  std::vector<uint8_t> storage;
  ATA_PASS_THROUGH_EX* record = nullptr;
  DWORD ioctlBytes = 0;
  uint64_t requestedIn = 0;  // bytes asked from the device; 0 unless a read
};

// Holds no data; one instance serves the process (getHalAtaSend).
class WinHalAtaSend : public HalAtaSend {
 public:
  uint32_t send(DeviceHandle handle, AtaCmd& cmd) override;
};
