// Helpers for tests that speak to simulated ATA devices.
#pragma once

#include <cstdint>
#include <vector>

#include "sim/device.h"

namespace sim {
namespace testutil {

inline AtaRequest smartRequest(uint8_t feature, uint8_t lbaLow = 0, uint8_t count = 0) {
  AtaRequest r;
  r.in.command = 0xB0;
  r.in.feature = feature;
  r.in.lbaLow = lbaLow;
  r.in.count = count;
  r.in.lbaMid = 0x4F;
  r.in.lbaHigh = 0xC2;
  return r;
}

inline AtaRequest lba48Request(uint8_t command, uint64_t lba, uint16_t count) {
  AtaRequest r;
  r.extended = true;
  r.in.command = command;
  r.in.device = 0x40;
  r.in.lbaLow = static_cast<uint8_t>(lba);
  r.in.lbaMid = static_cast<uint8_t>(lba >> 8);
  r.in.lbaHigh = static_cast<uint8_t>(lba >> 16);
  r.in.lbaLowExp = static_cast<uint8_t>(lba >> 24);
  r.in.lbaMidExp = static_cast<uint8_t>(lba >> 32);
  r.in.lbaHighExp = static_cast<uint8_t>(lba >> 40);
  r.in.count = static_cast<uint8_t>(count);
  r.in.countExp = static_cast<uint8_t>(count >> 8);
  return r;
}

// Sends a data-in command into `buffer` (resized to `length`).
inline AtaResponse readInto(AtaDevice& device, AtaRequest request, std::vector<uint8_t>& buffer, uint32_t length) {
  buffer.assign(length, 0xCC);
  request.direction = Direction::In;
  request.data = buffer.data();
  request.length = length;
  return device.executeAta(request);
}

inline uint16_t word(const std::vector<uint8_t>& block, int index) {
  return static_cast<uint16_t>(block[2 * index] | block[2 * index + 1] << 8);
}

inline uint8_t byteSum(const uint8_t* data, size_t length) {
  uint8_t sum = 0;
  for (size_t i = 0; i < length; ++i) sum = static_cast<uint8_t>(sum + data[i]);
  return sum;
}

}  // namespace testutil
}  // namespace sim
