// Helpers shared by the SCSI command classes for filling their records.
#include "commands/scsi/scsi_cmd.h"

void ScsiCmd::resetRequest() {
  cdb.fill(0);
  cdbLength = 0;
  dataLength = 0;
  buffer = nullptr;
  direction = kDirectionNone;
}

void ScsiCmd::setDataIn(void* data, uint64_t length) {
  direction = kDirectionIn;
  buffer = data;
  dataLength = length;
}

void ScsiCmd::setDataOut(void* data, uint64_t length) {
  direction = kDirectionOut;
  buffer = data;
  dataLength = length;
}

void ScsiCmd::putBigEndian(uint32_t offset, uint32_t count, uint64_t value) {
  for (uint32_t i = 0; i < count && offset + i < kScsiCdbBytes; ++i) {
    cdb[offset + i] = static_cast<uint8_t>(value >> (8 * (count - 1 - i)));
  }
}
