// The one operation of the protocol base that reaches the device itself: the
// operating system's failure prediction, through the Win32 seam.
#include "protocols/storage_protocol.h"

#include <array>
#include <cstring>

namespace {
// STORAGE_PREDICT_FAILURE, as IOCTL_STORAGE_PREDICT_FAILURE fills it:
//   bytes 0..3    PredictFailure (DWORD, non-zero: failure predicted)
//   bytes 4..515  VendorSpecific
constexpr DWORD kPredictFailureAnswerBytes = 516;
}  // namespace

uint32_t StorageProtocol::getPredictFailureStatus(uint8_t* healthy) {
  if (healthy == nullptr) return kStatusBadArgument;
  std::array<uint8_t, kPredictFailureAnswerBytes> answer{};
  DWORD returned = 0;
  if (!::DeviceIoControl(getHandle(), IOCTL_STORAGE_PREDICT_FAILURE, nullptr, 0, answer.data(),
                         kPredictFailureAnswerBytes, &returned, nullptr)) {
    return kStatusIoctlFailed;
  }
  uint32_t predictFailure = 0;
  std::memcpy(&predictFailure, answer.data(), sizeof(predictFailure));  // little-endian DWORD
  *healthy = predictFailure == 0 ? 1 : 0;
  return kStatusOk;
}
