// Fuzzed answers: how the stream's bytes become the fate of a command.
#include "sim/fuzzed_device.h"

#include <algorithm>

namespace sim {

namespace {

// What the first byte of a command's share of the stream asks for (low three
// bits). Three of the eight leave the command alone, so that a run gets past
// its first commands often enough to reach the deeper parsers.
enum Action : uint8_t {
  kPass0,
  kPass1,
  kPass2,
  kFlipBytes,     // the real answer with some bytes changed
  kReplaceData,   // the real status, with data-in taken from the stream
  kNoAnswer,      // time-out, gone or link failure; the device never sees it
  kStatusAndSense,  // the real data, with status (and sense) from the stream
  kShortTransfer,   // the real answer, with fewer bytes said to be moved
};

Completion failedCompletion(uint8_t choice) {
  switch (choice % 3) {
    case 0: return Completion::Timeout;
    case 1: return Completion::NoDevice;
    default: return Completion::TransportError;
  }
}

void setRegister(AtaResultRegisters& r, uint8_t which, uint8_t value) {
  uint8_t* fields[] = {&r.status, &r.error, &r.count, &r.lbaLow, &r.lbaMid, &r.lbaHigh,
                       &r.device, &r.countExp, &r.lbaLowExp, &r.lbaMidExp, &r.lbaHighExp};
  *fields[which % 11] = value;
}

}  // namespace

size_t FuzzStream::fill(uint8_t* out, size_t n) {
  const size_t take = std::min(n, bytes_.size() - std::min(position_, bytes_.size()));
  if (take != 0) std::copy(bytes_.begin() + static_cast<std::ptrdiff_t>(position_),
                           bytes_.begin() + static_cast<std::ptrdiff_t>(position_ + take), out);
  position_ += take;
  return take;
}

AtaResponse FuzzedAtaDevice::executeAta(const AtaRequest& request) {
  const uint8_t choice = stream_->byte();
  const uint8_t action = choice & 7;
  if (action == kNoAnswer) {
    AtaResponse response;
    response.completion = failedCompletion(stream_->byte());
    return response;
  }
  AtaResponse response = inner_ ? inner_->executeAta(request) : AtaResponse{Completion::NoDevice, {}, 0};
  const bool dataIn = request.direction == Direction::In && request.data != nullptr && request.length != 0;
  switch (action) {
    case kFlipBytes:
      for (int n = (choice >> 3) % 8 + 1; n > 0; --n) {
        if (dataIn && (stream_->byte() & 1) == 0) {
          const uint32_t at = stream_->word() % request.length;  // the place, then the value
          request.data[at] = stream_->byte();
        } else {
          const uint8_t which = stream_->byte();
          setRegister(response.out, which, stream_->byte());
        }
      }
      break;
    case kReplaceData:
      if (dataIn) stream_->fill(request.data, request.length);
      break;
    case kStatusAndSense:
      response.out.status = stream_->byte();
      response.out.error = stream_->byte();
      break;
    case kShortTransfer:
      response.transferred = stream_->word() % (request.length + 1);
      break;
    default:
      break;
  }
  return response;
}

ScsiResponse FuzzedScsiTarget::executeScsi(const ScsiRequest& request) {
  const uint8_t choice = stream_->byte();
  const uint8_t action = choice & 7;
  if (action == kNoAnswer) {
    ScsiResponse response;
    response.completion = failedCompletion(stream_->byte());
    return response;
  }
  ScsiResponse response = inner_ ? inner_->executeScsi(request) : ScsiResponse{Completion::NoDevice, 0, {}, 0};
  const bool dataIn = request.direction == Direction::In && request.data != nullptr && request.length != 0;
  switch (action) {
    case kFlipBytes:
      for (int n = (choice >> 3) % 8 + 1; n > 0; --n) {
        const uint8_t target = stream_->byte() % 3;
        if (target == 0 && dataIn) {
          const uint32_t at = stream_->word() % request.length;  // the place, then the value
          request.data[at] = stream_->byte();
        } else if (target == 1 && !response.sense.empty()) {
          const size_t at = stream_->byte() % response.sense.size();
          response.sense[at] = stream_->byte();
        } else {
          response.status = stream_->byte();
        }
      }
      break;
    case kReplaceData:
      if (dataIn) stream_->fill(request.data, request.length);
      break;
    case kStatusAndSense: {
      response.status = (choice & 0x80) != 0 ? stream_->byte() : 0x02;  // mostly CHECK CONDITION
      response.sense.assign(stream_->byte() % 65, 0);
      stream_->fill(response.sense.data(), response.sense.size());
      break;
    }
    case kShortTransfer:
      response.transferred = stream_->word() % (request.length + 1);
      break;
    default:
      break;
  }
  return response;
}

void fuzzDisk(Disk& disk, const std::shared_ptr<FuzzStream>& stream) {
  if (disk.ata) disk.ata = std::make_shared<FuzzedAtaDevice>(disk.ata, stream);
  if (disk.scsi) disk.scsi = std::make_shared<FuzzedScsiTarget>(disk.scsi, stream);
}

}  // namespace sim
