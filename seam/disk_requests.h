// The I/O manager's half of the disk control codes that every provider of
// the non-Windows builds answers the same way: taking a pass-through request
// apart (buffered or direct, its offsets checked against the buffers the
// caller gave), writing the reply back, and the storage property
// descriptors with their strings behind the record. The providers differ
// only in the device that executes the command.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "win32/win32.h"

namespace seam {

// The two buffers of a DeviceIoControl call.
struct ControlBuffers {
  uint8_t* in = nullptr;
  DWORD inSize = 0;
  uint8_t* out = nullptr;
  DWORD outSize = 0;
};

enum class TransferDirection { None, In, Out };

// A pass-through request once checked: the transfer in a buffer of its own
// (holding the caller's bytes for a write), and where the data read goes
// back.
template <typename Request>
struct PassThroughCall {
  Request request{};
  bool direct = false;
  TransferDirection direction = TransferDirection::None;
  std::vector<uint8_t> data;        // DataTransferLength bytes
  uint8_t* directBuffer = nullptr;  // the caller's buffer of a direct request
  uint8_t* transfer() { return data.empty() ? nullptr : data.data(); }
};
using ScsiPassThroughCall = PassThroughCall<SCSI_PASS_THROUGH>;
using AtaPassThroughCall = PassThroughCall<ATA_PASS_THROUGH_EX>;

// Checks and takes apart IOCTL_SCSI_PASS_THROUGH(_DIRECT). ERROR_SUCCESS, or
// the error the call fails with: ERROR_INVALID_PARAMETER for a malformed
// request, ERROR_NOT_SUPPORTED when the device takes no SCSI commands
// (`deviceTakesIt` false; a malformed header is reported first).
DWORD takeScsiPassThrough(const ControlBuffers& buffers, bool direct, bool deviceTakesIt, ScsiPassThroughCall& call);

// Writes the reply of a SCSI pass-through: the request with the status and
// the bytes moved, `sense` (cut to the length asked for) and the data read.
// ERROR_SUCCESS with *bytes the size returned, or ERROR_INSUFFICIENT_BUFFER.
DWORD giveScsiPassThrough(const ControlBuffers& buffers, ScsiPassThroughCall& call, UCHAR status,
                          DWORD transferred, const std::vector<uint8_t>& sense, DWORD* bytes);

// The same for IOCTL_ATA_PASS_THROUGH(_DIRECT): a request that reads and
// writes at once is malformed.
DWORD takeAtaPassThrough(const ControlBuffers& buffers, bool direct, bool deviceTakesIt, AtaPassThroughCall& call);

// The reply of an ATA pass-through: the registers after the command, the
// bytes read (a write reports its length), and the data read.
DWORD giveAtaPassThrough(const ControlBuffers& buffers, AtaPassThroughCall& call, const UCHAR current[8],
                         const UCHAR previous[8], DWORD transferred, DWORD* bytes);

// What IOCTL_STORAGE_QUERY_PROPERTY tells of a disk.
struct StorageFacts {
  bool removable = false;
  BYTE busType = 0;
  std::string vendor, product, revision, serial;
  DWORD alignmentMask = 1;
};

// The device descriptor (strings behind the 40-byte record in the order
// vendor, product, revision, serial; an empty one has offset 0) and the
// adapter descriptor.
std::vector<uint8_t> deviceDescriptor(const StorageFacts& facts);
std::vector<uint8_t> adapterDescriptor(const StorageFacts& facts);

// Answers IOCTL_STORAGE_QUERY_PROPERTY for the device and adapter
// properties: ERROR_SUCCESS with *bytes (0 for an exists query; a short
// buffer gets the first bytes, so that the header tells the size), or the
// error the call fails with.
DWORD storagePropertyReply(const ControlBuffers& buffers, const StorageFacts& facts, DWORD* bytes);

}  // namespace seam
