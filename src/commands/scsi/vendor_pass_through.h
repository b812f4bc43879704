// The vendor pass-throughs of two USB bridge chips, Sunplus and JMicron: an ATA
// task file in a vendor CDB. The module uses them for identification only; the
// bridges decide which commands may go.
#pragma once

#include <cstdint>

#include "commands/ata/ata_cmd.h"
#include "commands/scsi/scsi_cmd.h"

constexpr uint8_t kScsiSunplusPassThrough = 0xF8;
constexpr uint8_t kScsiJMicronPassThrough = 0xDF;

// The data mode byte both chips take: 0x10 data in (SMART READ DATA and READ
// LOG, READ SECTORS(EXT), READ DMA(EXT), READ LOG EXT, IDENTIFY), 0x11 data out
// (WRITE SECTORS EXT, WRITE UNCORRECTABLE EXT), 0 otherwise, SMART READ
// THRESHOLDS among them.
constexpr uint8_t kVendorModeNone = 0x00;
constexpr uint8_t kVendorModeIn = 0x10;
constexpr uint8_t kVendorModeOut = 0x11;
uint8_t vendorPassThroughMode(const AtaCmd& cmd);

// Loads the previous (Ext) registers into a Sunplus chip before a 48-bit command:
//   [0]=0xF8 [2]=0x23 [5]=featuresExt [6]=sectorCountExt [7]=lbaLowExt
//   [8]=lbaMidExt [9]=lbaHighExt
// No data phase.
class SunplusAtaPassthroughPreset : public ScsiCmd {
 public:
  explicit SunplusAtaPassthroughPreset(AtaCmd& cmd);
};

// The Sunplus pass-through proper; the data phase is the AtaCmd's:
//   [0]=0xF8 [2]=0x22 [3]=mode [4]=dataLength>>9 (sectors, low byte)
//   [5]=features [6]=sectorCount [7]=lbaLow [8]=lbaMid [9]=lbaHigh
//   [10]=device [11]=command
class SunplusAtaPassThrough : public ScsiCmd {
 public:
  explicit SunplusAtaPassThrough(AtaCmd& cmd);
};

// The JMicron pass-through; the data phase is the AtaCmd's, except that a
// features value of 0xDA (SMART RETURN STATUS) asks for one byte. The length
// bytes of the CDB are the AtaCmd's own length.
//   [0]=0xDF [1]=mode [2]=0 [3]=dataLength>>8 [4]=dataLength (low bytes)
//   [5]=features [6]=sectorCount [7]=lbaLow [8]=lbaMid [9]=lbaHigh
//   [10]=device|0xA0 [11]=command
class JMicronAtaPassThrough12 : public ScsiCmd {
 public:
  explicit JMicronAtaPassThrough12(AtaCmd& cmd);
};
