// Shared between the parts of the ATA drive: the command context and the
// task-file address helpers.
#pragma once

#include <cstdint>

#include "sim/ata_drive.h"

namespace sim {

struct AtaDrive::Context {
  const AtaRequest& request;
  AtaResponse response;
};

struct AtaAddress {
  uint64_t lba = 0;
  uint64_t count = 0;
  bool ext = false;
};

// True for the commands that take 48-bit addresses and 16-bit counts.
bool isExtCommand(uint8_t command);
AtaAddress decodeAddress(const AtaRequest& request);
// Leaves `lba` in the LBA registers of a result, as an error report does.
void encodeAddress(uint64_t lba, bool ext, AtaResultRegisters& out);
// Byte 511 of a checksummed 512-byte block: the sum of all 512 bytes is 0.
inline void sealChecksum(uint8_t* block) {
  uint8_t sum = 0;
  for (int i = 0; i < 511; ++i) sum = static_cast<uint8_t>(sum + block[i]);
  block[511] = static_cast<uint8_t>(-sum);
}

}  // namespace sim
