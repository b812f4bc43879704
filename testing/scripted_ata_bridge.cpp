// The scripted ATA transport and the block builder of the protocol tests.
#include "testing/scripted_ata_bridge.h"

#include <algorithm>
#include <cstring>

#include "commands/status_codes.h"

namespace mstest {

uint32_t ScriptedAtaBridge::send(AtaCmd& cmd) {
  sent.push_back(cmd);
  AtaAnswer answer;
  if (!answers.empty()) {
    answer = std::move(answers.front());
    answers.pop_front();
  } else if (fallback) {
    answer = *fallback;
  } else {
    answer.status = kStatusIoctlFailed;
  }

  if (answer.status != kStatusOk && answer.status != kStatusNoData) {
    if (answer.clearOnFailure) {
      const uint8_t keepFeaturesExt = cmd.featuresExt;
      const uint32_t direction = cmd.direction;
      void* buffer = cmd.buffer;
      const uint32_t timeout = cmd.timeoutSeconds;
      const bool wants = cmd.wantsOutputRegisters;
      cmd = AtaCmd();
      cmd.featuresExt = keepFeaturesExt;
      cmd.direction = direction;
      cmd.buffer = buffer;
      cmd.timeoutSeconds = timeout;
      cmd.wantsOutputRegisters = wants;
    }
    return answer.status;
  }

  if (answer.status == kStatusOk && cmd.direction == kDirectionIn && cmd.buffer != nullptr) {
    const uint64_t moved = std::min<uint64_t>(answer.data.size(), cmd.dataLength);
    if (moved != 0) {
      std::memcpy(cmd.buffer, answer.data.data(), static_cast<size_t>(moved));
      cmd.dataLength = moved;
    }
  }
  cmd.features = answer.error;
  cmd.sectorCount = answer.sectorCount;
  cmd.lbaLow = answer.lbaLow;
  cmd.lbaMid = answer.lbaMid;
  cmd.lbaHigh = answer.lbaHigh;
  cmd.device = answer.device;
  cmd.command = answer.statusRegister;
  return answer.status;
}

AtaBlock& AtaBlock::setWord(size_t index, uint16_t value) {
  bytes[2 * index] = static_cast<uint8_t>(value);
  bytes[2 * index + 1] = static_cast<uint8_t>(value >> 8);
  return *this;
}

AtaBlock& AtaBlock::setString(size_t firstWord, size_t wordCount, const char* text) {
  const size_t length = std::strlen(text);
  for (size_t i = 0; i < 2 * wordCount; ++i) {
    const char c = i < length ? text[i] : ' ';
    // The first character of a pair sits in the high byte of its word.
    bytes[2 * firstWord + (i ^ 1)] = static_cast<uint8_t>(c);
  }
  return *this;
}

AtaBlock& AtaBlock::seal() {
  bytes[510] = 0xA5;
  return checksum();
}

AtaBlock& AtaBlock::checksum() {
  uint8_t sum = 0;
  for (size_t i = 0; i < 511; ++i) sum = static_cast<uint8_t>(sum + bytes[i]);
  bytes[511] = static_cast<uint8_t>(0x100 - sum);
  return *this;
}

AtaBlock& AtaBlock::setAttribute(size_t index, uint8_t id, uint8_t value, uint8_t worst, uint32_t raw) {
  uint8_t* entry = &bytes[2 + 12 * index];
  entry[0] = id;
  entry[3] = value;
  entry[4] = worst;
  for (size_t b = 0; b < 4; ++b) entry[5 + b] = static_cast<uint8_t>(raw >> (8 * b));
  return *this;
}

}  // namespace mstest
