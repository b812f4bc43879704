// The ATA command record: a task file going out, the device's registers coming
// back, and the data phase. Which command is built, and what its answer means,
// is the business of the command classes and of the protocol above.
#pragma once

#include <array>
#include <cstdint>

#include "commands/data_direction.h"

// Command register values the module issues or recognises.
enum AtaCommandCode : uint8_t {
  kAtaReadSectors = 0x20,
  kAtaReadSectorsExt = 0x24,
  kAtaReadDmaExt = 0x25,
  kAtaReadLogExt = 0x2F,
  kAtaWriteSectors = 0x30,
  kAtaWriteSectorsExt = 0x34,
  kAtaReadVerifySectors = 0x40,
  kAtaReadVerifySectorsExt = 0x42,
  kAtaWriteUncorrectableExt = 0x45,
  kAtaSmart = 0xB0,
  kAtaReadDma = 0xC8,
  kAtaIdentifyDevice = 0xEC,
};

// Features register values of the SMART command (0xB0).
enum AtaSmartFeature : uint8_t {
  kSmartOfflineAbort = 0x7F,  // as a subcommand of EXECUTE OFF-LINE, not a feature
  kSmartReadData = 0xD0,
  kSmartReadThresholds = 0xD1,
  kSmartExecuteOffline = 0xD4,
  kSmartReadLog = 0xD5,
  kSmartEnableOperations = 0xD8,
  kSmartDisableOperations = 0xD9,
  kSmartReturnStatus = 0xDA,
};

// Every SMART command carries this signature in LBA Mid and LBA High; SMART
// RETURN STATUS answers with it (healthy) or with 0xF4 0x2C (threshold crossed).
constexpr uint8_t kSmartSignatureLbaMid = 0x4F;
constexpr uint8_t kSmartSignatureLbaHigh = 0xC2;

// Device register of the sector commands: bit 6, LBA addressing.
constexpr uint8_t kAtaDeviceLba = 0x40;

// Status register bits.
constexpr uint8_t kAtaStatusErr = 0x01;
constexpr uint8_t kAtaStatusDeviceFault = 0x20;
// Error register bits.
constexpr uint8_t kAtaErrorAbrt = 0x04;
constexpr uint8_t kAtaErrorIdnf = 0x10;
constexpr uint8_t kAtaErrorUnc = 0x40;

constexpr uint64_t kAtaSectorBytes = 512;

// The record. Going out the fields are the task file; coming back `features`
// holds the Error register and `command` the Status register. The 28-bit and
// 48-bit forms share it: the ...Ext fields (the "previous" register values)
// stay 0 in the 28-bit form. Each low/Ext pair is two adjacent bytes, so a
// 16-bit count is stored low byte first.
//
//   features  featuresExt  sectorCount  sectorCountExt  lbaLow  lbaLowExt
//   lbaMid    lbaMidExt    lbaHigh      lbaHighExt      device  command
//
// The caller owns the record and `buffer`; both outlive the transport call.
class AtaCmd {
 public:
  AtaCmd() = default;
  AtaCmd(const AtaCmd&) = default;
  AtaCmd& operator=(const AtaCmd&) = default;
  virtual ~AtaCmd() = default;

  // Error, once the command has completed.
  uint8_t error() const { return features; }
  // Status, once the command has completed; bit 0 is ERR.
  uint8_t status() const { return command; }

  uint8_t features = 0;
  uint8_t featuresExt = 0;  // no command sets it, and the senders do not send it
  uint8_t sectorCount = 0;
  uint8_t sectorCountExt = 0;
  uint8_t lbaLow = 0;
  uint8_t lbaLowExt = 0;
  uint8_t lbaMid = 0;
  uint8_t lbaMidExt = 0;
  uint8_t lbaHigh = 0;
  uint8_t lbaHighExt = 0;
  uint8_t device = 0;
  uint8_t command = 0;
  uint32_t direction = kDirectionNone;
  uint64_t dataLength = 0;  // bytes requested; bytes moved where the transport says
  uint32_t timeoutSeconds = kDefaultCommandTimeoutSeconds;
  void* buffer = nullptr;  // borrowed
  bool wantsOutputRegisters = false;
};

// True for the six 48-bit commands the module knows (0x24, 0x25, 0x2F, 0x34,
// 0x42, 0x45); they need the 16-byte SAT pass-through and the 48-bit flag.
bool is48BitCommand(uint8_t command);

// Bits 0-23 of an address, lowest byte first.
std::array<uint8_t, 3> splitLba24(uint64_t lba);
// Bits 0-47 of an address, lowest byte first.
std::array<uint8_t, 6> splitLba48(uint64_t lba);

// Writes bits 0-23 into lbaLow, lbaMid, lbaHigh; the Ext fields are untouched.
void setLba24(AtaCmd& cmd, uint64_t lba);
// Writes bits 0-47 in the order lbaLow, lbaMid, lbaHigh, lbaLowExt, lbaMidExt,
// lbaHighExt.
void setLba48(AtaCmd& cmd, uint64_t lba);
