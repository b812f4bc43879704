// The SCSI block reads and writes the module issues. A Read object can be
// refilled by setup so that one object serves a run of reads.
#pragma once

#include <cstdint>

#include "commands/scsi/scsi_cmd.h"

// Byte 1 of the reads: DPO (0x10) and FUA (0x08), so that a read reaches the
// medium and not a cache. Writes set FUA alone.
constexpr uint8_t kScsiReadFlags = 0x18;
constexpr uint8_t kScsiWriteFlags = 0x08;

// WRITE(10) alone waits three minutes; every other command keeps 30 s.
constexpr uint32_t kWrite10TimeoutSeconds = 180;

class Read : public ScsiCmd {
 public:
  // Refills the whole record, the previous answer included, for a read of
  // `count` sectors at `lba`. No data phase if count x sectorSize is 0.
  virtual void setup(void* buffer, uint64_t lba, uint32_t count, uint32_t sectorSize) = 0;

 protected:
  // The common part of every setup: clean record, data in.
  void prepare(void* buffer, uint32_t count, uint32_t sectorSize);
};

// READ(10):
//   [0]=0x28 [1]=0x18 [2..5]=lba (big-endian, low 32 bits) [7..8]=count (low 16 bits)
class Read10 : public Read {
 public:
  Read10(void* buffer, uint64_t lba, uint32_t count, uint32_t sectorSize);
  void setup(void* buffer, uint64_t lba, uint32_t count, uint32_t sectorSize) override;
};

// A second READ(10) in a twelve-byte CDB: the operation code stays 0x28 (not
// READ(12)'s 0xA8) and the transfer length sits in bytes 6 to 9. The protocol
// uses it as a second attempt of READ(10) and relies on it being so.
//   [0]=0x28 [1]=0x18 [2..5]=lba [6..9]=count
class Read12 : public Read {
 public:
  Read12(void* buffer, uint64_t lba, uint32_t count, uint32_t sectorSize);
  void setup(void* buffer, uint64_t lba, uint32_t count, uint32_t sectorSize) override;
};

// READ(16):
//   [0]=0x88 [1]=0x18 [2..9]=lba [10..13]=count
class Read16 : public Read {
 public:
  Read16(void* buffer, uint64_t lba, uint32_t count, uint32_t sectorSize);
  void setup(void* buffer, uint64_t lba, uint32_t count, uint32_t sectorSize) override;
};

// WRITE(10), time-out 180 s:
//   [0]=0x2A [1]=0x08 [2..5]=lba [7..8]=count
class Write10 : public ScsiCmd {
 public:
  Write10(void* buffer, uint64_t lba, uint32_t count, uint16_t sectorSize);
};

// WRITE(12):
//   [0]=0xAA [1]=0x08 [2..5]=lba [6..9]=count
class Write12 : public ScsiCmd {
 public:
  Write12(void* buffer, uint64_t lba, uint32_t count, uint16_t sectorSize);
};

// WRITE(16):
//   [0]=0x8A [1]=0x08 [2..9]=lba [10..13]=count
class Write16 : public ScsiCmd {
 public:
  Write16(void* buffer, uint64_t lba, uint32_t count, uint16_t sectorSize);
};
