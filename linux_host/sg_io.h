// SCSI and ATA commands through the kernel's SG_IO: the request header built
// from a SCSI command, the answer read back from it, and ATA task files
// carried as SAT ATA PASS-THROUGH (16) with the returned registers taken from
// the ATA Status Return sense descriptor (or its fixed-format equivalent).
// The builders and parsers are pure so that they are tested against recorded
// answers; SgIoTarget is the only part that calls the kernel.
#pragma once

#include <scsi/sg.h>

#include <array>
#include <cstdint>
#include <vector>

#include "linux_host/scsi_target.h"

namespace linux_host {

// A Windows ATA task file: 0 features/error 1 count 2 LBA low 3 LBA mid
// 4 LBA high 5 device 6 command/status 7 reserved; `previous` holds the
// high-order bytes of a 48-bit command.
struct AtaTaskFile {
  uint8_t current[8] = {};
  uint8_t previous[8] = {};
  bool extended = false;
  bool dma = false;
};

struct AtaAnswer {
  uint32_t error = 0;  // a Win32 error when the command could not be carried
  AtaTaskFile registers;
  uint32_t transferred = 0;
};

// The SG_IO header for `command`, with `sense` (of `senseSize` bytes) for the
// sense data. Time-outs are in milliseconds for the kernel; none given is 60 s.
sg_io_hdr_t buildSgIoHeader(const ScsiCommand& command, uint8_t* sense, uint8_t senseSize);

// The answer a completed SG_IO gives: the SCSI status, the sense the kernel
// wrote, the bytes moved (asked less residue). A failure of the host adapter
// or the driver is a Win32 error: ERROR_DEVICE_NOT_CONNECTED when the device
// is gone, ERROR_SEM_TIMEOUT on a time-out, ERROR_IO_DEVICE otherwise.
ScsiAnswer answerFromSgIo(const sg_io_hdr_t& header, const uint8_t* sense);

// ATA PASS-THROUGH (16) for a task file:
//   0 85h  1 protocol (bits 4..1: 3 non-data, 4 PIO in, 5 PIO out, 6 DMA),
//          extend (bit 0)
//   2 off-line 0, CK_COND (bit 5) set so that the registers come back,
//     T_DIR (bit 3) for data in, BYTE_BLOCK (bit 2) and T_LENGTH 2 (bits 1..0:
//     the length is in the count field, in 512-byte blocks) when data moves
//   3 features (15:8)  4 features (7:0)  5 count (15:8)  6 count (7:0)
//   7 LBA (31:24)  8 LBA (7:0)  9 LBA (39:32)  10 LBA (15:8)
//  11 LBA (47:40)  12 LBA (23:16)  13 device  14 command  15 control 0
std::array<uint8_t, 16> ataPassThrough16(const AtaTaskFile& taskFile, DataDirection direction);

// The registers an ATA command returned, from its sense data: the ATA Status
// Return descriptor (09h) of descriptor-format sense:
//   0 09h 1 0Ch 2 extend (bit 0) 3 error 4 count (15:8) 5 count (7:0)
//   6 LBA (31:24) 7 LBA (7:0) 8 LBA (39:32) 9 LBA (15:8) 10 LBA (47:40)
//  11 LBA (23:16) 12 device 13 status
// or fixed-format sense with ATA PASS THROUGH INFORMATION AVAILABLE
// (00h/1Dh): 3 error 4 status 5 device 6 count (7:0), 8 extend (bit 7),
// 9 LBA (7:0) 10 LBA (15:8) 11 LBA (23:16). False when the sense carries no
// registers.
bool registersFromSense(const std::vector<uint8_t>& sense, AtaTaskFile* registers);

class SgIoTarget : public ScsiTarget {
 public:
  explicit SgIoTarget(int descriptor) : fd_(descriptor) {}
  ScsiAnswer execute(const ScsiCommand& command) override;
  // One ATA command as ATA PASS-THROUGH (16). A device that refuses the
  // pass-through (ILLEGAL REQUEST without registers) gives ERROR_NOT_SUPPORTED.
  AtaAnswer executeAta(const AtaTaskFile& taskFile, DataDirection direction, uint8_t* data, uint32_t length,
                       uint32_t timeoutSeconds);

 private:
  int fd_;
};

// What an ATA pass-through gives back once the SCSI answer is in.
AtaAnswer ataAnswerFrom(const ScsiAnswer& answer);

}  // namespace linux_host
