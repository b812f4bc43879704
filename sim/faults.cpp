// Fault states and the wrappers that apply them and journal each command.
#include "sim/faults.h"

#include <algorithm>

namespace sim {

namespace {
constexpr uint32_t kDefaultTimeoutSeconds = 30;
}

FaultState::FaultState(std::shared_ptr<VirtualClock> clock, FaultPlan plan)
    : clock_(std::move(clock)), plan_(std::move(plan)) {}

bool FaultState::vanished() const {
  if (vanished_) return true;
  if (plan_.vanishAfterCommands != 0 && commands_ >= plan_.vanishAfterCommands) return true;
  return plan_.vanishAtMs != kNever && clock_ && clock_->nowMs() >= plan_.vanishAtMs;
}

Completion FaultState::admit(uint8_t opcode, uint32_t timeoutSeconds) {
  if (vanished()) return Completion::NoDevice;
  ++commands_;
  if (plan_.transportFailFrom != 0 && commands_ >= plan_.transportFailFrom &&
      (plan_.transportFailCount == 0 || commands_ < plan_.transportFailFrom + plan_.transportFailCount)) {
    return Completion::TransportError;
  }
  const bool applies =
      plan_.opcodes.empty() || std::find(plan_.opcodes.begin(), plan_.opcodes.end(), opcode) != plan_.opcodes.end();
  if (!applies) return Completion::Done;
  const uint64_t timeoutMs = uint64_t{timeoutSeconds == 0 ? kDefaultTimeoutSeconds : timeoutSeconds} * 1000;
  if (plan_.hang) {
    if (clock_) clock_->advanceMs(timeoutMs);
    return Completion::Timeout;
  }
  if (plan_.delayMs != 0) {
    if (plan_.delayMs > timeoutMs) {
      if (clock_) clock_->advanceMs(timeoutMs);
      return Completion::Timeout;
    }
    if (clock_) clock_->advanceMs(plan_.delayMs);
  }
  return Completion::Done;
}

FaultyAtaDevice::FaultyAtaDevice(std::shared_ptr<AtaDevice> inner, std::shared_ptr<FaultState> faults,
                                 std::shared_ptr<Journal> journal, const std::string& name,
                                 std::shared_ptr<VirtualClock> clock)
    : inner_(std::move(inner)),
      faults_(std::move(faults)),
      journal_(std::move(journal)),
      journalId_(journal_ ? journal_->deviceId(name) : 0),
      clock_(std::move(clock)) {}

AtaResponse FaultyAtaDevice::executeAta(const AtaRequest& request) {
  const uint64_t arrived = clock_ ? clock_->nowMs() : 0;
  AtaResponse response;
  response.completion = faults_ ? faults_->admit(request.in.command, request.timeoutSeconds) : Completion::Done;
  if (response.completion == Completion::Done) {
    response = inner_ ? inner_->executeAta(request) : AtaResponse{Completion::NoDevice, {}, 0};
  }
  if (journal_) journal_->recordAta(arrived, journalId_, request.in, response);
  return response;
}

FaultyScsiTarget::FaultyScsiTarget(std::shared_ptr<ScsiTarget> inner, std::shared_ptr<FaultState> faults,
                                   std::shared_ptr<Journal> journal, const std::string& name,
                                   std::shared_ptr<VirtualClock> clock)
    : inner_(std::move(inner)),
      faults_(std::move(faults)),
      journal_(std::move(journal)),
      journalId_(journal_ ? journal_->deviceId(name) : 0),
      clock_(std::move(clock)) {}

ScsiResponse FaultyScsiTarget::executeScsi(const ScsiRequest& request) {
  const uint64_t arrived = clock_ ? clock_->nowMs() : 0;
  const uint8_t opcode = (request.cdb != nullptr && request.cdbLength > 0) ? request.cdb[0] : 0;
  ScsiResponse response;
  response.completion = faults_ ? faults_->admit(opcode, request.timeoutSeconds) : Completion::Done;
  if (response.completion == Completion::Done) {
    if (inner_) {
      response = inner_->executeScsi(request);
    } else {
      response.completion = Completion::NoDevice;
    }
  }
  if (journal_) journal_->recordScsi(arrived, journalId_, request.cdb, request.cdbLength, response);
  return response;
}

}  // namespace sim
