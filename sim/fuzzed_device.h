// A device whose answers come from a byte stream, for fuzzing the module
// against anything a drive, a bridge or a controller could send back. The
// wrappers sit in front of a disk's real ATA and SCSI paths: each command
// takes its fate from the next bytes of the stream (pass unchanged, flip some
// bytes of the answer, replace the data, end without an answer, a status and
// sense of the stream's choosing, a short transfer). When the stream runs out
// every later command passes unchanged, so a run always reaches its end.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <vector>

#include "sim/device.h"
#include "sim/machine.h"

namespace sim {

// The bytes that decide the answers, read front to back; 0 once exhausted.
class FuzzStream {
 public:
  FuzzStream(const uint8_t* data, size_t size) : bytes_(data, data + size) {}

  bool exhausted() const { return position_ >= bytes_.size(); }
  uint8_t byte() { return exhausted() ? 0 : bytes_[position_++]; }
  uint16_t word() { return static_cast<uint16_t>(byte() | byte() << 8); }
  // Copies up to n bytes of the stream into out; the rest of out is left.
  size_t fill(uint8_t* out, size_t n);

 private:
  std::vector<uint8_t> bytes_;
  size_t position_ = 0;
};

class FuzzedAtaDevice : public AtaDevice {
 public:
  FuzzedAtaDevice(std::shared_ptr<AtaDevice> inner, std::shared_ptr<FuzzStream> stream)
      : inner_(std::move(inner)), stream_(std::move(stream)) {}
  AtaResponse executeAta(const AtaRequest& request) override;

 private:
  std::shared_ptr<AtaDevice> inner_;
  std::shared_ptr<FuzzStream> stream_;
};

class FuzzedScsiTarget : public ScsiTarget {
 public:
  FuzzedScsiTarget(std::shared_ptr<ScsiTarget> inner, std::shared_ptr<FuzzStream> stream)
      : inner_(std::move(inner)), stream_(std::move(stream)) {}
  ScsiResponse executeScsi(const ScsiRequest& request) override;

 private:
  std::shared_ptr<ScsiTarget> inner_;
  std::shared_ptr<FuzzStream> stream_;
};

// Puts the fuzzed wrappers in front of the disk's ATA and SCSI paths (those
// it has), sharing one stream. Call before the machine is installed or while
// no command is under way.
void fuzzDisk(Disk& disk, const std::shared_ptr<FuzzStream>& stream);

}  // namespace sim
