// Faults that sit between the machine and a device: slow or hung commands, a
// device that leaves the bus, a link that fails. They wrap any AtaDevice or
// ScsiTarget the same way, and the same wrappers keep the journal of what
// reached the device. Faults of the medium itself (unreadable sectors) are
// media state, not here.
#pragma once

#include <cstdint>
#include <limits>
#include <memory>
#include <string>
#include <vector>

#include "sim/device.h"
#include "sim/journal.h"
#include "sim/virtual_clock.h"

namespace sim {

constexpr uint64_t kNever = std::numeric_limits<uint64_t>::max();

struct FaultPlan {
  // Every command (or every command whose opcode is listed in `opcodes`)
  // takes this long on the virtual clock. A delay beyond the command's
  // time-out ends it with Completion::Timeout when the time-out runs out.
  uint32_t delayMs = 0;
  // Such commands never complete: each ends with Completion::Timeout after
  // its time-out (30 s when the request gives none).
  bool hang = false;
  // ATA command codes or CDB operation codes that `delayMs` and `hang` apply
  // to; empty means every command.
  std::vector<uint8_t> opcodes;
  // The device leaves the bus once this many commands have reached it, or
  // once the clock reaches `vanishAtMs`; every later command gets
  // Completion::NoDevice. 0 and kNever mean never.
  uint64_t vanishAfterCommands = 0;
  uint64_t vanishAtMs = kNever;
  // The link fails for commands number `transportFailFrom` (1-based) and
  // the `transportFailCount` after it (0: for good): they never reach the
  // device and end with Completion::TransportError. 0 means a sound link.
  uint64_t transportFailFrom = 0;
  uint64_t transportFailCount = 0;
};

// The fault state of one device: its plan and how many commands it has seen.
class FaultState {
 public:
  explicit FaultState(std::shared_ptr<VirtualClock> clock, FaultPlan plan = {});

  FaultPlan& plan() { return plan_; }
  const FaultPlan& plan() const { return plan_; }
  uint64_t commandCount() const { return commands_; }
  // Gone from the bus, by count, by time or by vanishNow().
  bool vanished() const;
  void vanishNow() { vanished_ = true; }

  // Decides the fate of one command before it reaches the device, and moves
  // the clock by the time it costs. Done means: pass it on.
  Completion admit(uint8_t opcode, uint32_t timeoutSeconds);

 private:
  std::shared_ptr<VirtualClock> clock_;
  FaultPlan plan_;
  uint64_t commands_ = 0;
  bool vanished_ = false;
};

// Wraps an ATA device: journals each command under `name` and applies the
// fault state. A null fault state means no faults.
class FaultyAtaDevice : public AtaDevice {
 public:
  FaultyAtaDevice(std::shared_ptr<AtaDevice> inner, std::shared_ptr<FaultState> faults,
                  std::shared_ptr<Journal> journal, const std::string& name, std::shared_ptr<VirtualClock> clock);
  AtaResponse executeAta(const AtaRequest& request) override;
  const std::shared_ptr<AtaDevice>& inner() const { return inner_; }
  const std::shared_ptr<FaultState>& faults() const { return faults_; }

 private:
  std::shared_ptr<AtaDevice> inner_;
  std::shared_ptr<FaultState> faults_;
  std::shared_ptr<Journal> journal_;
  uint32_t journalId_;
  std::shared_ptr<VirtualClock> clock_;
};

// The same for a SCSI target.
class FaultyScsiTarget : public ScsiTarget {
 public:
  FaultyScsiTarget(std::shared_ptr<ScsiTarget> inner, std::shared_ptr<FaultState> faults,
                   std::shared_ptr<Journal> journal, const std::string& name, std::shared_ptr<VirtualClock> clock);
  ScsiResponse executeScsi(const ScsiRequest& request) override;
  const std::shared_ptr<ScsiTarget>& inner() const { return inner_; }
  const std::shared_ptr<FaultState>& faults() const { return faults_; }

 private:
  std::shared_ptr<ScsiTarget> inner_;
  std::shared_ptr<FaultState> faults_;
  std::shared_ptr<Journal> journal_;
  uint32_t journalId_;
  std::shared_ptr<VirtualClock> clock_;
};

}  // namespace sim
