// The ATA record's shared helpers: the 48-bit test and address splitting.
#include "commands/ata/ata_cmd.h"

#include <cstddef>

bool is48BitCommand(uint8_t command) {
  switch (command) {
    case kAtaReadSectorsExt:
    case kAtaReadDmaExt:
    case kAtaReadLogExt:
    case kAtaWriteSectorsExt:
    case kAtaReadVerifySectorsExt:
    case kAtaWriteUncorrectableExt:
      return true;
    default:
      return false;
  }
}

std::array<uint8_t, 3> splitLba24(uint64_t lba) {
  return {static_cast<uint8_t>(lba), static_cast<uint8_t>(lba >> 8), static_cast<uint8_t>(lba >> 16)};
}

std::array<uint8_t, 6> splitLba48(uint64_t lba) {
  std::array<uint8_t, 6> bytes{};
  for (std::size_t i = 0; i < bytes.size(); ++i) bytes[i] = static_cast<uint8_t>(lba >> (8 * i));
  return bytes;
}

void setLba24(AtaCmd& cmd, uint64_t lba) {
  const auto bytes = splitLba24(lba);
  cmd.lbaLow = bytes[0];
  cmd.lbaMid = bytes[1];
  cmd.lbaHigh = bytes[2];
}

void setLba48(AtaCmd& cmd, uint64_t lba) {
  const auto bytes = splitLba48(lba);
  cmd.lbaLow = bytes[0];
  cmd.lbaMid = bytes[1];
  cmd.lbaHigh = bytes[2];
  cmd.lbaLowExt = bytes[3];
  cmd.lbaMidExt = bytes[4];
  cmd.lbaHighExt = bytes[5];
}
