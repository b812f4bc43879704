// A SCSI transport whose answers a test sets command by command, and which
// records every command it receives. The bridges that ride on a SCSI transport
// (SAT, JMicron, Sunplus) are tested on it for their own byte-level logic; the
// same bridges on the simulated PC's devices are the end-to-end check.
#pragma once

#include <array>
#include <cstdint>
#include <deque>
#include <optional>
#include <vector>

#include "commands/bridges/scsi_bridge.h"

namespace mstest {

// One scripted answer. With `status` non-zero the record is left as it was,
// as a sender leaves it when the platform refuses the request.
struct ScsiAnswer {
  uint32_t status = 0;
  uint8_t scsiStatus = 0;
  // Copied into the record's sense (at most 32 bytes); senseLength is their
  // count unless `senseLength` is given.
  std::vector<uint8_t> sense;
  std::optional<uint64_t> senseLength;
  // Copied into the command's buffer for a read, at most dataLength bytes.
  std::vector<uint8_t> data;
  // The transferred length reported back; by default what was copied for a
  // read, and the whole request otherwise.
  std::optional<uint64_t> transferred;
};

// What reached the transport, taken at the moment of the call.
struct SentScsi {
  std::array<uint8_t, 16> cdb{};
  uint8_t cdbLength = 0;
  uint64_t dataLength = 0;
  void* buffer = nullptr;
  uint32_t direction = 0;
  uint32_t timeoutSeconds = 0;
};

class ScriptedScsiBridge : public ScsiBridge {
 public:
  explicit ScriptedScsiBridge(DeviceHandle deviceHandle = nullptr) : ScsiBridge(deviceHandle) {}

  void queue(ScsiAnswer answer) { answers.push_back(std::move(answer)); }
  // Once the queue is empty every command gets kStatusIoctlFailed (34).
  uint32_t send(ScsiCmd& cmd) override;

  std::vector<SentScsi> sent;

 private:
  std::deque<ScsiAnswer> answers;
};

// Descriptor-format sense (0x72) with the given key and the descriptors
// appended after the eight-byte header.
std::vector<uint8_t> descriptorSense(uint8_t key, const std::vector<uint8_t>& descriptors);
// Fixed-format sense (0x70) with the given key, ASC and ASCQ.
std::vector<uint8_t> fixedSense(uint8_t key, uint8_t asc = 0, uint8_t ascq = 0);
// An ATA Status Return descriptor (code 9, length 12) of the given registers.
std::vector<uint8_t> ataStatusDescriptor(uint8_t error, uint8_t count, uint8_t lbaLow, uint8_t lbaMid,
                                         uint8_t lbaHigh, uint8_t device, uint8_t status);

}  // namespace mstest
