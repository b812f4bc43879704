// How the simulated PC's devices are spoken to: ATA task files and SCSI CDBs,
// the same units a real controller hands to a real drive. Bridges, SATLs and
// the Windows face are all clients of these two interfaces.
#pragma once

#include <cstdint>
#include <vector>

namespace sim {

enum class Direction : uint8_t { None, In, Out };

// How a command ended at the link level, before any device status.
enum class Completion : uint8_t {
  Done,            // the device answered; see status/registers
  Timeout,         // no answer within the request's time-out
  NoDevice,        // the device has gone from the bus
  TransportError,  // the link failed (cable, bridge)
};

// Registers as the host writes them. The *Exp fields are the previous
// (high-order) values of a 48-bit command.
struct AtaRegisters {
  uint8_t feature = 0, count = 0, lbaLow = 0, lbaMid = 0, lbaHigh = 0, device = 0, command = 0;
  uint8_t featureExp = 0, countExp = 0, lbaLowExp = 0, lbaMidExp = 0, lbaHighExp = 0;
};

// Registers as the device leaves them at the end of a command.
struct AtaResultRegisters {
  uint8_t status = 0, error = 0, count = 0, lbaLow = 0, lbaMid = 0, lbaHigh = 0, device = 0;
  uint8_t countExp = 0, lbaLowExp = 0, lbaMidExp = 0, lbaHighExp = 0;
};

struct AtaRequest {
  AtaRegisters in;
  bool extended = false;  // 48-bit: the *Exp fields count
  Direction direction = Direction::None;
  uint8_t* data = nullptr;  // `length` bytes; read from for Out, written for In
  uint32_t length = 0;
  uint32_t timeoutSeconds = 0;
};

struct AtaResponse {
  Completion completion = Completion::Done;
  AtaResultRegisters out;
  uint32_t transferred = 0;  // bytes actually moved
};

class AtaDevice {
 public:
  virtual ~AtaDevice() = default;
  virtual AtaResponse executeAta(const AtaRequest& request) = 0;
};

struct ScsiRequest {
  const uint8_t* cdb = nullptr;
  uint8_t cdbLength = 0;
  Direction direction = Direction::None;
  uint8_t* data = nullptr;
  uint32_t length = 0;
  uint32_t timeoutSeconds = 0;
};

struct ScsiResponse {
  Completion completion = Completion::Done;
  uint8_t status = 0;          // SCSI status: 0x00 GOOD, 0x02 CHECK CONDITION, ...
  std::vector<uint8_t> sense;  // sense data when status is CHECK CONDITION
  uint32_t transferred = 0;
};

class ScsiTarget {
 public:
  virtual ~ScsiTarget() = default;
  virtual ScsiResponse executeScsi(const ScsiRequest& request) = 0;
};

}  // namespace sim
