// CDBs of the SAT pass-through and its protocol mapping.
#include "commands/scsi/sat_pass_through.h"

SatProtocolMapping mapSatProtocol(const AtaCmd& cmd) {
  switch (cmd.command) {
    case kAtaReadSectors:
    case kAtaIdentifyDevice:
      return {kSatProtocolPioDataIn, kSatTLengthInSectorCount, 0};
    case kAtaReadSectorsExt:
    case kAtaReadLogExt:
      return {kSatProtocolPioDataIn, kSatTLengthInSectorCount, 1};
    case kAtaWriteSectorsExt:
      return {kSatProtocolPioDataOut, kSatTLengthInSectorCount, 1};
    case kAtaReadVerifySectors:
      return {kSatProtocolNonData, 0, 0};
    case kAtaReadVerifySectorsExt:
    case kAtaWriteUncorrectableExt:
      return {kSatProtocolNonData, 0, 1};
    case kAtaSmart:
      if (cmd.features == kSmartReadData || cmd.features == kSmartReadLog) {
        return {kSatProtocolPioDataIn, kSatTLengthInSectorCount, 0};
      }
      return {kSatProtocolNonData, 0, 0};
    default:
      return {kSatProtocolNonData, 0, 0};
  }
}

uint8_t satFlags(const AtaCmd& cmd, const SatProtocolMapping& mapping, bool checkCondition) {
  uint8_t flags = static_cast<uint8_t>((mapping.tLength & 0x03) | kSatBytBlok | kSatOffLine1);
  if (mapping.tLength == 0 || cmd.direction == kDirectionIn) flags |= kSatTDir;
  if (checkCondition) flags |= kSatCkCond;
  return flags;
}

void SatAtaPassThrough::prepare(const AtaCmd& cmd) {
  resetRequest();
  scsiStatus = kScsiStatusGood;
  sense.fill(0);
  senseLength = 0;
  timeoutSeconds = kDefaultCommandTimeoutSeconds;
  dataLength = cmd.dataLength;
  buffer = cmd.buffer;
  direction = cmd.direction;
}

SatAtaPassThrough12::SatAtaPassThrough12(AtaCmd& cmd, bool checkCondition) {
  SatAtaPassThrough12::setup(cmd, checkCondition);
}

void SatAtaPassThrough12::setup(AtaCmd& cmd, bool checkCondition) {
  prepare(cmd);
  const SatProtocolMapping mapping = mapSatProtocol(cmd);
  cdbLength = 12;
  cdb[0] = kScsiAtaPassThrough12;
  cdb[1] = static_cast<uint8_t>(mapping.protocol << 1);
  cdb[2] = satFlags(cmd, mapping, checkCondition);
  cdb[3] = cmd.features;
  cdb[4] = cmd.sectorCount;
  cdb[5] = cmd.lbaLow;
  cdb[6] = cmd.lbaMid;
  cdb[7] = cmd.lbaHigh;
  cdb[8] = cmd.device;
  cdb[9] = cmd.command;
}

SatAtaPassThrough16::SatAtaPassThrough16(AtaCmd& cmd, bool checkCondition) {
  SatAtaPassThrough16::setup(cmd, checkCondition);
}

void SatAtaPassThrough16::setup(AtaCmd& cmd, bool checkCondition) {
  prepare(cmd);
  const SatProtocolMapping mapping = mapSatProtocol(cmd);
  cdbLength = 16;
  cdb[0] = kScsiAtaPassThrough16;
  cdb[1] = static_cast<uint8_t>((mapping.protocol << 1) + mapping.extend);
  cdb[2] = satFlags(cmd, mapping, checkCondition);
  cdb[3] = cmd.featuresExt;
  cdb[4] = cmd.features;
  cdb[5] = cmd.sectorCountExt;
  cdb[6] = cmd.sectorCount;
  cdb[7] = cmd.lbaLowExt;
  cdb[8] = cmd.lbaLow;
  cdb[9] = cmd.lbaMidExt;
  cdb[10] = cmd.lbaMid;
  cdb[11] = cmd.lbaHighExt;
  cdb[12] = cmd.lbaHigh;
  cdb[13] = cmd.device;
  cdb[14] = cmd.command;
}

SatGetAtaOutputRegisters::SatGetAtaOutputRegisters(void* data) {
  cdbLength = 12;
  cdb[0] = kScsiAtaPassThrough12;
  cdb[1] = static_cast<uint8_t>(kSatProtocolReturnResponseInformation << 1);
  setDataIn(data, kAtaStatusDescriptorBytes);
}
