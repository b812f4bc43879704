// The ATA Status Return sense descriptor of SAT: the registers a translator
// reports after a pass-through, in the command's descriptor-format sense (with
// CK_COND) or as the answer to a Return Response Information request.
#pragma once

#include <cstdint>

//   0 descriptor code (9)     1 additional length (0x0C)   2 extend
//   3 error                   4 sector count (previous)    5 sector count
//   6 LBA low (previous)      7 LBA low                    8 LBA mid (previous)
//   9 LBA mid                 10 LBA high (previous)       11 LBA high
//   12 device                 13 status
struct AtaStatusDescriptor {
  uint8_t descriptorCode;
  uint8_t additionalLength;
  uint8_t extend;
  uint8_t error;
  uint8_t sectorCountExt;
  uint8_t sectorCount;
  uint8_t lbaLowExt;
  uint8_t lbaLow;
  uint8_t lbaMidExt;
  uint8_t lbaMid;
  uint8_t lbaHighExt;
  uint8_t lbaHigh;
  uint8_t device;
  uint8_t status;
};
static_assert(sizeof(AtaStatusDescriptor) == 14, "the descriptor is 14 bytes");

constexpr uint8_t kAtaStatusDescriptorCode = 0x09;
constexpr uint8_t kAtaStatusDescriptorAdditionalLength = 0x0C;
