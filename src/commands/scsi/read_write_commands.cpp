// CDBs of the SCSI block reads and writes.
#include "commands/scsi/read_write_commands.h"

void Read::prepare(void* data, uint32_t count, uint32_t sectorSize) {
  resetRequest();
  scsiStatus = kScsiStatusGood;
  sense.fill(0);
  senseLength = 0;
  timeoutSeconds = kDefaultCommandTimeoutSeconds;
  const uint64_t length = uint64_t{count} * sectorSize;
  if (length != 0) setDataIn(data, length);
}

Read10::Read10(void* data, uint64_t lba, uint32_t count, uint32_t sectorSize) {
  Read10::setup(data, lba, count, sectorSize);
}

void Read10::setup(void* data, uint64_t lba, uint32_t count, uint32_t sectorSize) {
  prepare(data, count, sectorSize);
  cdbLength = 10;
  cdb[0] = kScsiRead10;
  cdb[1] = kScsiReadFlags;
  putBigEndian(2, 4, lba);
  putBigEndian(7, 2, count);
}

Read12::Read12(void* data, uint64_t lba, uint32_t count, uint32_t sectorSize) {
  Read12::setup(data, lba, count, sectorSize);
}

void Read12::setup(void* data, uint64_t lba, uint32_t count, uint32_t sectorSize) {
  prepare(data, count, sectorSize);
  cdbLength = 12;
  cdb[0] = kScsiRead10;  // deliberately READ(10)'s code; see the class comment
  cdb[1] = kScsiReadFlags;
  putBigEndian(2, 4, lba);
  putBigEndian(6, 4, count);
}

Read16::Read16(void* data, uint64_t lba, uint32_t count, uint32_t sectorSize) {
  Read16::setup(data, lba, count, sectorSize);
}

void Read16::setup(void* data, uint64_t lba, uint32_t count, uint32_t sectorSize) {
  prepare(data, count, sectorSize);
  cdbLength = 16;
  cdb[0] = kScsiRead16;
  cdb[1] = kScsiReadFlags;
  putBigEndian(2, 8, lba);
  putBigEndian(10, 4, count);
}

Write10::Write10(void* data, uint64_t lba, uint32_t count, uint16_t sectorSize) {
  cdbLength = 10;
  cdb[0] = kScsiWrite10;
  cdb[1] = kScsiWriteFlags;
  putBigEndian(2, 4, lba);
  putBigEndian(7, 2, count);
  setDataOut(data, uint64_t{count} * sectorSize);
  timeoutSeconds = kWrite10TimeoutSeconds;
}

Write12::Write12(void* data, uint64_t lba, uint32_t count, uint16_t sectorSize) {
  cdbLength = 12;
  cdb[0] = kScsiWrite12;
  cdb[1] = kScsiWriteFlags;
  putBigEndian(2, 4, lba);
  putBigEndian(6, 4, count);
  setDataOut(data, uint64_t{count} * sectorSize);
}

Write16::Write16(void* data, uint64_t lba, uint32_t count, uint16_t sectorSize) {
  cdbLength = 16;
  cdb[0] = kScsiWrite16;
  cdb[1] = kScsiWriteFlags;
  putBigEndian(2, 8, lba);
  putBigEndian(10, 4, count);
  setDataOut(data, uint64_t{count} * sectorSize);
}
