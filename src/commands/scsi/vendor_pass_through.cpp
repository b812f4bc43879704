// CDBs of the Sunplus and JMicron pass-throughs.
#include "commands/scsi/vendor_pass_through.h"

namespace {
constexpr uint8_t kSunplusPreset = 0x23;
constexpr uint8_t kSunplusExecute = 0x22;
// The obsolete bits 7 and 5 of the Device register, always set in this CDB.
constexpr uint8_t kJMicronDeviceBits = 0xA0;
}  // namespace

uint8_t vendorPassThroughMode(const AtaCmd& cmd) {
  switch (cmd.command) {
    case kAtaSmart:
      return (cmd.features == kSmartReadData || cmd.features == kSmartReadLog) ? kVendorModeIn : kVendorModeNone;
    case kAtaReadSectors:
    case kAtaReadSectorsExt:
    case kAtaReadDmaExt:
    case kAtaReadLogExt:
    case kAtaReadDma:
    case kAtaIdentifyDevice:
      return kVendorModeIn;
    case kAtaWriteSectorsExt:
    case kAtaWriteUncorrectableExt:
      return kVendorModeOut;
    default:
      return kVendorModeNone;
  }
}

SunplusAtaPassthroughPreset::SunplusAtaPassthroughPreset(AtaCmd& cmd) {
  cdbLength = 12;
  cdb[0] = kScsiSunplusPassThrough;
  cdb[2] = kSunplusPreset;
  cdb[5] = cmd.featuresExt;
  cdb[6] = cmd.sectorCountExt;
  cdb[7] = cmd.lbaLowExt;
  cdb[8] = cmd.lbaMidExt;
  cdb[9] = cmd.lbaHighExt;
}

SunplusAtaPassThrough::SunplusAtaPassThrough(AtaCmd& cmd) {
  cdbLength = 12;
  cdb[0] = kScsiSunplusPassThrough;
  cdb[2] = kSunplusExecute;
  cdb[3] = vendorPassThroughMode(cmd);
  cdb[4] = static_cast<uint8_t>(cmd.dataLength >> 9);
  cdb[5] = cmd.features;
  cdb[6] = cmd.sectorCount;
  cdb[7] = cmd.lbaLow;
  cdb[8] = cmd.lbaMid;
  cdb[9] = cmd.lbaHigh;
  cdb[10] = cmd.device;
  cdb[11] = cmd.command;
  dataLength = cmd.dataLength;
  buffer = cmd.buffer;
  direction = cmd.direction;
}

JMicronAtaPassThrough12::JMicronAtaPassThrough12(AtaCmd& cmd) {
  cdbLength = 12;
  cdb[0] = kScsiJMicronPassThrough;
  cdb[1] = vendorPassThroughMode(cmd);
  cdb[3] = static_cast<uint8_t>(cmd.dataLength >> 8);
  cdb[4] = static_cast<uint8_t>(cmd.dataLength);
  cdb[5] = cmd.features;
  cdb[6] = cmd.sectorCount;
  cdb[7] = cmd.lbaLow;
  cdb[8] = cmd.lbaMid;
  cdb[9] = cmd.lbaHigh;
  cdb[10] = cmd.device | kJMicronDeviceBits;
  cdb[11] = cmd.command;
  dataLength = cmd.features == kSmartReturnStatus ? 1 : cmd.dataLength;
  buffer = cmd.buffer;
  direction = cmd.direction;
}
