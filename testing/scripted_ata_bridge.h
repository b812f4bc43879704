// An ATA transport whose answers a test sets command by command, and which
// records every command it receives. The ATA protocol's own logic (the
// transport loop, the parsing of blocks, the meaning of registers) is tested
// on it; the same protocol on the simulated PC's drives is the end-to-end check.
#pragma once

#include <cstdint>
#include <deque>
#include <optional>
#include <vector>

#include "commands/ata/ata_cmd.h"
#include "commands/bridges/ata_bridge.h"

namespace mstest {

// One scripted answer.
struct AtaAnswer {
  // 0: the command completed. 89: completed without the data it expected,
  // the registers below in the record. Anything else: the transport failed.
  uint32_t status = 0;
  // The registers the device leaves (Error, Status, and the rest).
  uint8_t error = 0;
  uint8_t statusRegister = 0x50;  // DRDY | DSC
  uint8_t sectorCount = 0;
  uint8_t lbaLow = 0;
  uint8_t lbaMid = 0;
  uint8_t lbaHigh = 0;
  uint8_t device = 0;
  // Copied into the command's buffer for a data-in command, at most dataLength.
  std::vector<uint8_t> data;
  // On a failure, clear the record as a SAT bridge does whatever the result.
  bool clearOnFailure = false;
};

class ScriptedAtaBridge : public AtaBridge {
 public:
  explicit ScriptedAtaBridge(DeviceHandle deviceHandle = nullptr) : AtaBridge(deviceHandle) {}

  void queue(AtaAnswer answer) { answers.push_back(std::move(answer)); }
  // Given once the queue is empty; without one every command gets 34.
  void setDefault(AtaAnswer answer) { fallback = std::move(answer); }
  uint32_t send(AtaCmd& cmd) override;

  // Copies of the records as they reached the transport.
  std::vector<AtaCmd> sent;

 private:
  std::deque<AtaAnswer> answers;
  std::optional<AtaAnswer> fallback;
};

// A 512-byte block with helpers for the word layouts of IDENTIFY DEVICE and
// the SMART data.
class AtaBlock {
 public:
  AtaBlock() : bytes(512, 0) {}
  AtaBlock& setWord(size_t index, uint16_t value);
  // An ATA string: two characters a word, the first in the high byte, padded
  // with blanks to `wordCount` words.
  AtaBlock& setString(size_t firstWord, size_t wordCount, const char* text);
  // Byte 510 0xA5 and byte 511 so that the 512 bytes sum to 0.
  AtaBlock& seal();
  // Byte 511 so that the block sums to 0 (the logs' checksum).
  AtaBlock& checksum();
  // A SMART data entry: id, value, worst and four raw bytes, at entry `index`.
  AtaBlock& setAttribute(size_t index, uint8_t id, uint8_t value, uint8_t worst, uint32_t raw);
  uint8_t& operator[](size_t at) { return bytes[at]; }

  std::vector<uint8_t> bytes;
};

}  // namespace mstest
