// The ATA commands the module issues, one class each. A constructor fills the
// task file and the data phase; nothing else happens here. Sending is left to
// the transports, and the meaning of the answer to the protocol.
#pragma once

#include <cstdint>

#include "commands/ata/ata_cmd.h"

// IDENTIFY DEVICE: one 512-byte block in.
class IdentifyDevice : public AtaCmd {
 public:
  explicit IdentifyDevice(void* buffer);
};

// READ LOG EXT: `pageCount` pages of log `logAddress`, from `firstPage` on.
//   sectorCount/sectorCountExt = pageCount (low, high)
//   lbaLow = logAddress; lbaMid/lbaMidExt = firstPage (low, high)
//   lbaLowExt, lbaHighExt stay 0.
class ReadLogExt : public AtaCmd {
 public:
  ReadLogExt(uint8_t logAddress, uint16_t pageCount, void* buffer, uint16_t firstPage);
};

// SMART READ LOG (0xB0/0xD5): `pageCount` pages of log `logAddress`.
class SmartReadLog : public AtaCmd {
 public:
  SmartReadLog(uint8_t logAddress, uint8_t pageCount, void* buffer);
};

// SMART ENABLE OPERATIONS (0xD8) or SMART DISABLE OPERATIONS (0xD9). The
// registers are not asked back, although the protocol reads Status after it.
class SmartEnable : public AtaCmd {
 public:
  explicit SmartEnable(bool enable);
};

// SMART READ DATA (0xD0): the 512-byte attribute block.
class SmartReadData : public AtaCmd {
 public:
  explicit SmartReadData(void* buffer);
};

// SMART READ ATTRIBUTE THRESHOLDS (0xD1): the 512-byte threshold block.
class SmartReadWarrantyThresholds : public AtaCmd {
 public:
  explicit SmartReadWarrantyThresholds(void* buffer);
};

// SMART EXECUTE OFF-LINE IMMEDIATE (0xD4): `subcommand` in LBA Low. The
// subcommand 0x7F with count 0 aborts a running self test.
class SmartExecuteOffline : public AtaCmd {
 public:
  SmartExecuteOffline(uint8_t subcommand, uint8_t count);
};

// SMART RETURN STATUS (0xDA): the verdict comes back in LBA Mid and LBA High.
class SmartReturnStatus : public AtaCmd {
 public:
  SmartReturnStatus();
};

// READ SECTORS (0x20). Only bits 0-23 of `lba` are sent, and the Device
// register stays exactly 0x40: bits 24-27 are deliberately not placed in its
// low nibble, so an address from 2^24 up wraps to the start of the disk. Callers
// on drives without 48-bit addressing rely on reaching only the first 2^24
// sectors this way.
class ReadSectors : public AtaCmd {
 public:
  ReadSectors(uint64_t lba, uint8_t count, uint64_t sectorSize, void* buffer, uint32_t timeoutSeconds);
};

// READ SECTORS EXT (0x24): bits 0-47 of `lba`, a 16-bit count.
class ReadSectorsExt : public AtaCmd {
 public:
  ReadSectorsExt(uint64_t lba, uint16_t count, uint64_t sectorSize, void* buffer, uint32_t timeoutSeconds);
};

// WRITE SECTORS (0x30): bits 0-23 only, Device 0x40, as ReadSectors.
class WriteSectors : public AtaCmd {
 public:
  WriteSectors(uint64_t lba, uint8_t count, uint64_t sectorSize, void* buffer);
};

// WRITE SECTORS EXT (0x34): bits 0-47, a 16-bit count.
class WriteSectorsExt : public AtaCmd {
 public:
  WriteSectorsExt(uint64_t lba, uint16_t count, uint64_t sectorSize, void* buffer);
};

constexpr uint8_t kWriteUncorrectablePseudo = 0x55;
constexpr uint8_t kWriteUncorrectableFlagged = 0xAA;

// WRITE UNCORRECTABLE EXT (0x45): marks sectors bad; Features 0x55 makes a
// pseudo-uncorrectable error, 0xAA a flagged one. No data moves.
class WriteUncorrectableExt : public AtaCmd {
 public:
  WriteUncorrectableExt(uint64_t lba, uint16_t count, bool pseudo);
};
