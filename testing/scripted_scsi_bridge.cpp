// The scripted SCSI transport and the sense builders of the bridge tests.
#include "testing/scripted_scsi_bridge.h"

#include <algorithm>
#include <cstring>

#include "commands/status_codes.h"

namespace mstest {

uint32_t ScriptedScsiBridge::send(ScsiCmd& cmd) {
  SentScsi record;
  record.cdb = cmd.cdb;
  record.cdbLength = cmd.cdbLength;
  record.dataLength = cmd.dataLength;
  record.buffer = cmd.buffer;
  record.direction = cmd.direction;
  record.timeoutSeconds = cmd.timeoutSeconds;
  sent.push_back(record);

  if (answers.empty()) return kStatusIoctlFailed;
  ScsiAnswer answer = std::move(answers.front());
  answers.pop_front();
  if (answer.status != kStatusOk) return answer.status;

  cmd.scsiStatus = answer.scsiStatus;
  cmd.sense.fill(0);
  const size_t senseBytes = std::min<size_t>(answer.sense.size(), cmd.sense.size());
  std::copy_n(answer.sense.begin(), senseBytes, cmd.sense.begin());
  cmd.senseLength = answer.senseLength.value_or(senseBytes);

  uint64_t moved = cmd.direction == kDirectionIn ? 0 : cmd.dataLength;
  if (cmd.direction == kDirectionIn && cmd.buffer != nullptr) {
    moved = std::min<uint64_t>(answer.data.size(), cmd.dataLength);
    std::memcpy(cmd.buffer, answer.data.data(), static_cast<size_t>(moved));
  }
  cmd.dataLength = answer.transferred.value_or(moved);
  return kStatusOk;
}

std::vector<uint8_t> descriptorSense(uint8_t key, const std::vector<uint8_t>& descriptors) {
  std::vector<uint8_t> sense(8 + descriptors.size(), 0);
  sense[0] = 0x72;
  sense[1] = key;
  sense[7] = static_cast<uint8_t>(descriptors.size());
  for (size_t i = 0; i < descriptors.size(); ++i) sense[8 + i] = descriptors[i];
  return sense;
}

std::vector<uint8_t> fixedSense(uint8_t key, uint8_t asc, uint8_t ascq) {
  std::vector<uint8_t> sense(18, 0);
  sense[0] = 0x70;
  sense[2] = key;
  sense[7] = 10;
  sense[12] = asc;
  sense[13] = ascq;
  return sense;
}

std::vector<uint8_t> ataStatusDescriptor(uint8_t error, uint8_t count, uint8_t lbaLow, uint8_t lbaMid,
                                         uint8_t lbaHigh, uint8_t device, uint8_t status) {
  return {0x09, 0x0C, 0x00, error, 0x00, count, 0x00, lbaLow, 0x00, lbaMid, 0x00, lbaHigh, device, status};
}

}  // namespace mstest
