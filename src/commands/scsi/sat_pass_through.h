// The SCSI/ATA Translation pass-through: an ATA task file carried in an ATA
// PASS-THROUGH(12) or (16) CDB, and the request that asks a translator for the
// registers of the last command. The bridges decide which form to send and
// read the registers back.
#pragma once

#include <cstdint>

#include "commands/ata/ata_cmd.h"
#include "commands/scsi/scsi_cmd.h"

// PROTOCOL field values of the pass-through.
enum SatProtocol : uint8_t {
  kSatProtocolNonData = 3,
  kSatProtocolPioDataIn = 4,
  kSatProtocolPioDataOut = 5,
  kSatProtocolReturnResponseInformation = 15,
};

// Byte 2 of the pass-through CDB.
constexpr uint8_t kSatTLengthInSectorCount = 2;  // T_LENGTH: the length is in Sector Count
constexpr uint8_t kSatBytBlok = 0x04;            // the length counts blocks
constexpr uint8_t kSatTDir = 0x08;               // from the device
constexpr uint8_t kSatCkCond = 0x20;             // return the registers in the sense data
constexpr uint8_t kSatOffLine1 = 0x40;           // OFF_LINE 1: two seconds before status is valid

struct SatProtocolMapping {
  uint8_t protocol = kSatProtocolNonData;
  uint8_t tLength = 0;
  uint8_t extend = 0;
};

// How an ATA command travels through SAT. Only the commands the module issues
// move data; any other command code goes as non-data, and so does every SMART
// feature but READ DATA (0xD0) and READ LOG (0xD5). READ THRESHOLDS (0xD1)
// among them goes out as non-data with T_DIR set, although its record asks for
// 512 bytes in: that mapping is settled and kept.
//
//   command          condition             protocol  T_LENGTH  extend
//   0x20, 0xEC                             4         2         0
//   0x24, 0x2F                             4         2         1
//   0x34                                   5         2         1
//   0x40                                   3         0         0
//   0x42, 0x45                             3         0         1
//   0xB0             features 0xD0, 0xD5   4         2         0
//   anything else                          3         0         0
SatProtocolMapping mapSatProtocol(const AtaCmd& cmd);

// Byte 2 of the pass-through for `cmd`: T_LENGTH in bits 1-0, BYT_BLOK always,
// T_DIR when T_LENGTH is 0 or data comes in, CK_COND on request, OFF_LINE 1.
uint8_t satFlags(const AtaCmd& cmd, const SatProtocolMapping& mapping, bool checkCondition);

// The data phase (`dataLength`, `buffer`, `direction`) is the AtaCmd's. The
// time-out stays 30 s whatever the AtaCmd says: a read's time-out does not
// reach the device through a translator.
class SatAtaPassThrough : public ScsiCmd {
 public:
  // Refills the record from `cmd`.
  virtual void setup(AtaCmd& cmd, bool checkCondition) = 0;

 protected:
  void prepare(const AtaCmd& cmd);
};

// ATA PASS-THROUGH(12), for 28-bit commands:
//   [0]=0xA1 [1]=protocol<<1 [2]=flags [3]=features [4]=sectorCount
//   [5]=lbaLow [6]=lbaMid [7]=lbaHigh [8]=device [9]=command
class SatAtaPassThrough12 : public SatAtaPassThrough {
 public:
  SatAtaPassThrough12(AtaCmd& cmd, bool checkCondition);
  void setup(AtaCmd& cmd, bool checkCondition) override;
};

// ATA PASS-THROUGH(16), for 48-bit commands; each previous (Ext) register
// precedes its current one:
//   [0]=0x85 [1]=(protocol<<1)+extend [2]=flags
//   [3]=featuresExt    [4]=features
//   [5]=sectorCountExt [6]=sectorCount
//   [7]=lbaLowExt      [8]=lbaLow
//   [9]=lbaMidExt      [10]=lbaMid
//   [11]=lbaHighExt    [12]=lbaHigh
//   [13]=device        [14]=command
class SatAtaPassThrough16 : public SatAtaPassThrough {
 public:
  SatAtaPassThrough16(AtaCmd& cmd, bool checkCondition);
  void setup(AtaCmd& cmd, bool checkCondition) override;
};

// ATA PASS-THROUGH(12) with protocol 15, Return Response Information: the
// translator answers with the 14-byte ATA Status Return descriptor of the last
// command.
//   [0]=0xA1 [1]=0x1E
class SatGetAtaOutputRegisters : public ScsiCmd {
 public:
  explicit SatGetAtaOutputRegisters(void* buffer);
};

constexpr uint32_t kAtaStatusDescriptorBytes = 14;
