// Constructors of the ATA command classes: each fills its task file.
#include "commands/ata/ata_commands.h"

namespace {

void setSmart(AtaCmd& cmd, uint8_t feature) {
  cmd.command = kAtaSmart;
  cmd.features = feature;
  cmd.lbaMid = kSmartSignatureLbaMid;
  cmd.lbaHigh = kSmartSignatureLbaHigh;
}

void setCount16(AtaCmd& cmd, uint16_t count) {
  cmd.sectorCount = static_cast<uint8_t>(count);
  cmd.sectorCountExt = static_cast<uint8_t>(count >> 8);
}

void setDataIn(AtaCmd& cmd, void* buffer, uint64_t length) {
  cmd.direction = kDirectionIn;
  cmd.buffer = buffer;
  cmd.dataLength = length;
}

void setDataOut(AtaCmd& cmd, void* buffer, uint64_t length) {
  cmd.direction = kDirectionOut;
  cmd.buffer = buffer;
  cmd.dataLength = length;
}

}  // namespace

IdentifyDevice::IdentifyDevice(void* buffer) {
  command = kAtaIdentifyDevice;
  sectorCount = 1;
  setDataIn(*this, buffer, kAtaSectorBytes);
}

ReadLogExt::ReadLogExt(uint8_t logAddress, uint16_t pageCount, void* buffer, uint16_t firstPage) {
  command = kAtaReadLogExt;
  setCount16(*this, pageCount);
  lbaLow = logAddress;
  lbaMid = static_cast<uint8_t>(firstPage);
  lbaMidExt = static_cast<uint8_t>(firstPage >> 8);
  setDataIn(*this, buffer, uint64_t{pageCount} * kAtaSectorBytes);
}

SmartReadLog::SmartReadLog(uint8_t logAddress, uint8_t pageCount, void* buffer) {
  setSmart(*this, kSmartReadLog);
  sectorCount = pageCount;
  lbaLow = logAddress;
  setDataIn(*this, buffer, uint64_t{pageCount} * kAtaSectorBytes);
}

SmartEnable::SmartEnable(bool enable) {
  setSmart(*this, enable ? kSmartEnableOperations : kSmartDisableOperations);
}

SmartReadData::SmartReadData(void* buffer) {
  setSmart(*this, kSmartReadData);
  sectorCount = 1;
  setDataIn(*this, buffer, kAtaSectorBytes);
  wantsOutputRegisters = true;
}

SmartReadWarrantyThresholds::SmartReadWarrantyThresholds(void* buffer) {
  setSmart(*this, kSmartReadThresholds);
  sectorCount = 1;
  setDataIn(*this, buffer, kAtaSectorBytes);
  wantsOutputRegisters = true;
}

SmartExecuteOffline::SmartExecuteOffline(uint8_t subcommand, uint8_t count) {
  setSmart(*this, kSmartExecuteOffline);
  sectorCount = count;
  lbaLow = subcommand;
  wantsOutputRegisters = true;
}

SmartReturnStatus::SmartReturnStatus() {
  setSmart(*this, kSmartReturnStatus);
  wantsOutputRegisters = true;
}

ReadSectors::ReadSectors(uint64_t lba, uint8_t count, uint64_t sectorSize, void* buffer, uint32_t timeout) {
  command = kAtaReadSectors;
  sectorCount = count;
  setLba24(*this, lba);
  device = kAtaDeviceLba;
  setDataIn(*this, buffer, uint64_t{count} * sectorSize);
  timeoutSeconds = timeout;
  wantsOutputRegisters = true;
}

ReadSectorsExt::ReadSectorsExt(uint64_t lba, uint16_t count, uint64_t sectorSize, void* buffer, uint32_t timeout) {
  command = kAtaReadSectorsExt;
  setCount16(*this, count);
  setLba48(*this, lba);
  device = kAtaDeviceLba;
  setDataIn(*this, buffer, uint64_t{count} * sectorSize);
  timeoutSeconds = timeout;
  wantsOutputRegisters = true;
}

WriteSectors::WriteSectors(uint64_t lba, uint8_t count, uint64_t sectorSize, void* buffer) {
  command = kAtaWriteSectors;
  sectorCount = count;
  setLba24(*this, lba);
  device = kAtaDeviceLba;
  setDataOut(*this, buffer, uint64_t{count} * sectorSize);
  wantsOutputRegisters = true;
}

WriteSectorsExt::WriteSectorsExt(uint64_t lba, uint16_t count, uint64_t sectorSize, void* buffer) {
  command = kAtaWriteSectorsExt;
  setCount16(*this, count);
  setLba48(*this, lba);
  device = kAtaDeviceLba;
  setDataOut(*this, buffer, uint64_t{count} * sectorSize);
  wantsOutputRegisters = true;
}

WriteUncorrectableExt::WriteUncorrectableExt(uint64_t lba, uint16_t count, bool pseudo) {
  command = kAtaWriteUncorrectableExt;
  features = pseudo ? kWriteUncorrectablePseudo : kWriteUncorrectableFlagged;
  setCount16(*this, count);
  setLba48(*this, lba);
  device = kAtaDeviceLba;
  wantsOutputRegisters = true;
}
