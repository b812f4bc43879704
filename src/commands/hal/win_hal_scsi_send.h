// The platform's SCSI sender: IOCTL_SCSI_PASS_THROUGH with sense and data in
// the same block as the request. The block is built and read back by
// ScsiPassThroughBlock, so that its layout can be checked byte by byte.
#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

#include "commands/hal/hal_scsi_send.h"
#include "win32/win32.h"

// DataIn for a record's direction: in gives SCSI_IOCTL_DATA_IN, out
// SCSI_IOCTL_DATA_OUT, and anything else, no data included,
// SCSI_IOCTL_DATA_UNSPECIFIED (not a zero, which would mean out).
UCHAR scsiPassThroughDataIn(uint32_t direction);

// One request, allocated and zeroed per call:
//
//   offset 0    SCSI_PASS_THROUGH (56 bytes)
//          56   sense, 32 bytes
//          88   data, dataLength bytes (the record's, both ways)
//          88 + dataLength  `alignment` spare bytes
//
// The platform is handed Length + SenseInfoLength + DataTransferLength bytes
// in and out.
class ScsiPassThroughBlock {
 public:
  // Fills the record and, for a write, copies the caller's data in.
  //   Length 56, CdbLength, SenseInfoLength 32, DataIn, DataTransferLength =
  //   low 32 bits of dataLength, TimeOutValue, DataBufferOffset 88,
  //   SenseInfoOffset 56, PathId/TargetId/Lun 0, Cdb = cdbLength CDB bytes.
  // A negative alignment adds nothing.
  ScsiPassThroughBlock(const ScsiCmd& cmd, int32_t alignment);
  ScsiPassThroughBlock(const ScsiPassThroughBlock&) = delete;
  ScsiPassThroughBlock& operator=(const ScsiPassThroughBlock&) = delete;

  SCSI_PASS_THROUGH& header() { return *record; }
  uint8_t* bytes() { return storage.data(); }
  size_t blockSize() const { return storage.size(); }
  DWORD ioctlLength() const { return ioctlBytes; }

  // After the platform answered: `dataLength` takes the bytes moved (for a
  // read, copied to the caller's buffer), `sense` the 32 sense bytes,
  // `senseLength` the reported sense length and `scsiStatus` the status byte.
  // Always 0. A driver that reports more than was asked, or data or sense
  // outside the block, is held to what fits in both.
  uint32_t complete(ScsiCmd& cmd);

 private:
  std::vector<uint8_t> storage;
  SCSI_PASS_THROUGH* record = nullptr;
  DWORD ioctlBytes = 0;
  uint64_t requested = 0;
};

// Holds no data; one instance serves the process (getHalScsiSend).
class WinHalScsiSend : public HalScsiSend {
 public:
  uint32_t send(DeviceHandle handle, int32_t alignment, ScsiCmd& cmd) override;
};
