// The SCSI commands that ask a device about itself or start its self test:
// INQUIRY, REQUEST SENSE, READ CAPACITY and SEND DIAGNOSTIC. The log and mode
// pages, the reads and writes, and the pass-throughs live beside this file.
#pragma once

#include <cstdint>

#include "commands/scsi/scsi_cmd.h"

// INQUIRY, standard data or the vital product data page `page`:
//   [0]=0x12 [1]=0x01 if evpd [2]=page if evpd [3..4]=length (big-endian)
// A length of 0 means no data phase and a null buffer.
class Inquiry : public ScsiCmd {
 public:
  Inquiry(void* buffer, uint32_t length, bool evpd, uint8_t page);
};

// REQUEST SENSE, sent deliberately in a ten-byte CDB with the allocation length
// in byte 4, where the six-byte form keeps it:
//   [0]=0x03 [4]=length (low byte)
// A length of 0 means no data phase and a null buffer.
class RequestSense : public ScsiCmd {
 public:
  RequestSense(void* buffer, uint32_t length);
};

// READ CAPACITY(10): 8 bytes in.
//   [0]=0x25
class ReadCapacity10 : public ScsiCmd {
 public:
  explicit ReadCapacity10(void* buffer);
};

// READ CAPACITY(16), SERVICE ACTION IN(16) with service action 0x10: 32 bytes in.
//   [0]=0x9E [1]=0x10 [13]=0x20 (allocation length 32)
class ReadCapacity16 : public ScsiCmd {
 public:
  explicit ReadCapacity16(void* buffer);
};

// SEND DIAGNOSTIC with the self-test code in bits 7-5 of byte 1. Code 0 asks
// for the default self test, so it sets SELFTEST (bit 2) instead:
//   [0]=0x1D [1]=code << 5 | (code == 0 ? 0x04 : 0)
// The second argument is accepted and ignored, so that callers pass the ATA
// form (subcommand, count) unchanged.
class SendDiagnostic : public ScsiCmd {
 public:
  SendDiagnostic(uint8_t code, uint8_t ignored);
};

constexpr uint8_t kSendDiagnosticSelfTest = 0x04;
