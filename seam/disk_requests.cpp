// The disk requests every non-Windows provider answers alike; the device that
// executes a command is the provider's own (see disk_requests.h).
#include "seam/disk_requests.h"

#include <algorithm>
#include <cstring>

namespace seam {

namespace {

// The transfer of a request whose header is already checked: the direct
// request's own buffer, or the offset inside the buffered block.
template <typename Request, typename DirectRequest>
DWORD takeTransfer(const ControlBuffers& buffers, bool direct, DWORD bufferedLimit, PassThroughCall<Request>& call) {
  const DWORD length = call.request.DataTransferLength;
  call.data.assign(length, 0);
  if (length == 0) return ERROR_SUCCESS;
  const bool dataOut = call.direction == TransferDirection::Out;
  if (direct) {
    DirectRequest d;
    std::memcpy(&d, buffers.in, sizeof(d));
    call.directBuffer = static_cast<uint8_t*>(d.DataBuffer);
    if (call.directBuffer == nullptr) return ERROR_INVALID_PARAMETER;
    if (dataOut) std::memcpy(call.data.data(), call.directBuffer, length);
    return ERROR_SUCCESS;
  }
  const uint64_t offset = call.request.DataBufferOffset;
  if (offset < sizeof(Request) || offset + length > bufferedLimit) return ERROR_INVALID_PARAMETER;
  if (dataOut) {
    if (offset + length > buffers.inSize) return ERROR_INVALID_PARAMETER;
    std::memcpy(call.data.data(), buffers.in + offset, length);
  }
  return ERROR_SUCCESS;
}

// Copies the data read back to where the caller asked for it; `bytes` grows
// to cover a buffered transfer.
template <typename Request>
void giveTransfer(const ControlBuffers& buffers, PassThroughCall<Request>& call, DWORD moved, DWORD* bytes) {
  if (moved == 0 || call.direction != TransferDirection::In) return;
  if (call.direct) {
    std::memcpy(call.directBuffer, call.data.data(), moved);
  } else if (call.request.DataBufferOffset + moved <= buffers.outSize) {
    std::memcpy(buffers.out + call.request.DataBufferOffset, call.data.data(), moved);
    *bytes = std::max<DWORD>(*bytes, static_cast<DWORD>(call.request.DataBufferOffset + moved));
  }
}

}  // namespace

DWORD takeScsiPassThrough(const ControlBuffers& buffers, bool direct, bool deviceTakesIt, ScsiPassThroughCall& call) {
  if (buffers.in == nullptr || buffers.inSize < sizeof(SCSI_PASS_THROUGH)) return ERROR_INVALID_PARAMETER;
  SCSI_PASS_THROUGH& request = call.request;
  std::memcpy(&request, buffers.in, sizeof(request));
  if (request.Length != sizeof(SCSI_PASS_THROUGH) || request.CdbLength == 0 || request.CdbLength > 16 ||
      request.DataIn > SCSI_IOCTL_DATA_UNSPECIFIED) {
    return ERROR_INVALID_PARAMETER;
  }
  if (!deviceTakesIt) return ERROR_NOT_SUPPORTED;
  const DWORD bufferSize = std::max(buffers.inSize, buffers.outSize);
  if (request.SenseInfoLength > 0 && (request.SenseInfoOffset < sizeof(request) ||
                                      request.SenseInfoOffset + request.SenseInfoLength > bufferSize)) {
    return ERROR_INVALID_PARAMETER;
  }
  call.direct = direct;
  // An unspecified direction with data to move is a read.
  call.direction = request.DataIn == SCSI_IOCTL_DATA_IN    ? TransferDirection::In
                   : request.DataIn == SCSI_IOCTL_DATA_OUT ? TransferDirection::Out
                   : request.DataTransferLength > 0        ? TransferDirection::In
                                                           : TransferDirection::None;
  return takeTransfer<SCSI_PASS_THROUGH, SCSI_PASS_THROUGH_DIRECT>(buffers, direct, bufferSize, call);
}

DWORD giveScsiPassThrough(const ControlBuffers& buffers, ScsiPassThroughCall& call, UCHAR status,
                          DWORD transferred, const std::vector<uint8_t>& sense, DWORD* bytes) {
  const SCSI_PASS_THROUGH& request = call.request;
  SCSI_PASS_THROUGH reply = request;
  reply.ScsiStatus = status;
  const DWORD moved = std::min(transferred, request.DataTransferLength);
  reply.DataTransferLength = moved;
  const UCHAR senseLength = static_cast<UCHAR>(std::min<size_t>(request.SenseInfoLength, sense.size()));
  reply.SenseInfoLength = senseLength;
  if (buffers.out == nullptr || buffers.outSize < sizeof(reply)) return ERROR_INSUFFICIENT_BUFFER;
  std::memcpy(buffers.out, &reply, sizeof(reply));
  *bytes = sizeof(reply);
  if (senseLength > 0 && request.SenseInfoOffset + senseLength <= buffers.outSize) {
    std::memcpy(buffers.out + request.SenseInfoOffset, sense.data(), senseLength);
    *bytes = std::max<DWORD>(*bytes, request.SenseInfoOffset + senseLength);
  }
  giveTransfer(buffers, call, moved, bytes);
  return ERROR_SUCCESS;
}

DWORD takeAtaPassThrough(const ControlBuffers& buffers, bool direct, bool deviceTakesIt, AtaPassThroughCall& call) {
  if (buffers.in == nullptr || buffers.inSize < sizeof(ATA_PASS_THROUGH_EX)) return ERROR_INVALID_PARAMETER;
  ATA_PASS_THROUGH_EX& request = call.request;
  std::memcpy(&request, buffers.in, sizeof(request));
  if (request.Length != sizeof(ATA_PASS_THROUGH_EX)) return ERROR_INVALID_PARAMETER;
  if (!deviceTakesIt) return ERROR_NOT_SUPPORTED;
  const bool dataIn = (request.AtaFlags & ATA_FLAGS_DATA_IN) != 0;
  const bool dataOut = (request.AtaFlags & ATA_FLAGS_DATA_OUT) != 0;
  if (dataIn && dataOut) return ERROR_INVALID_PARAMETER;
  call.direct = direct;
  call.direction = dataIn ? TransferDirection::In : dataOut ? TransferDirection::Out : TransferDirection::None;
  const DWORD limit = std::max(buffers.inSize, dataIn ? buffers.outSize : buffers.inSize);
  return takeTransfer<ATA_PASS_THROUGH_EX, ATA_PASS_THROUGH_DIRECT>(buffers, direct, limit, call);
}

DWORD giveAtaPassThrough(const ControlBuffers& buffers, AtaPassThroughCall& call, const UCHAR current[8],
                         const UCHAR previous[8], DWORD transferred, DWORD* bytes) {
  ATA_PASS_THROUGH_EX reply = call.request;
  std::memcpy(reply.CurrentTaskFile, current, 8);
  std::memcpy(reply.PreviousTaskFile, previous, 8);
  const bool dataIn = call.direction == TransferDirection::In;
  const DWORD moved = dataIn ? std::min(transferred, call.request.DataTransferLength) : 0;
  reply.DataTransferLength = dataIn ? moved : call.request.DataTransferLength;
  if (buffers.out == nullptr || buffers.outSize < sizeof(reply)) return ERROR_INSUFFICIENT_BUFFER;
  std::memcpy(buffers.out, &reply, sizeof(reply));
  *bytes = sizeof(reply);
  giveTransfer(buffers, call, moved, bytes);
  return ERROR_SUCCESS;
}

std::vector<uint8_t> deviceDescriptor(const StorageFacts& facts) {
  std::vector<uint8_t> buffer(sizeof(STORAGE_DEVICE_DESCRIPTOR), 0);
  STORAGE_DEVICE_DESCRIPTOR d{};
  d.Version = sizeof(STORAGE_DEVICE_DESCRIPTOR);
  d.DeviceType = 0;  // direct-access block device
  d.RemovableMedia = facts.removable ? 1 : 0;
  d.CommandQueueing = 1;
  d.BusType = static_cast<STORAGE_BUS_TYPE>(facts.busType);
  auto place = [&buffer](const std::string& text) -> DWORD {
    if (text.empty()) return 0;
    const DWORD at = static_cast<DWORD>(buffer.size());
    buffer.insert(buffer.end(), text.begin(), text.end());
    buffer.push_back(0);
    return at;
  };
  d.VendorIdOffset = place(facts.vendor);
  d.ProductIdOffset = place(facts.product);
  d.ProductRevisionOffset = place(facts.revision);
  d.SerialNumberOffset = place(facts.serial);
  d.Size = static_cast<DWORD>(buffer.size());
  std::memcpy(buffer.data(), &d, sizeof(d));
  return buffer;
}

std::vector<uint8_t> adapterDescriptor(const StorageFacts& facts) {
  STORAGE_ADAPTER_DESCRIPTOR a{};
  a.Version = sizeof(a);
  a.Size = sizeof(a);
  a.MaximumTransferLength = 128 * 1024;
  a.MaximumPhysicalPages = 33;
  a.AlignmentMask = facts.alignmentMask;
  a.CommandQueueing = 1;
  a.AcceleratedTransfer = 1;
  a.BusType = facts.busType;
  a.BusMajorVersion = 1;
  std::vector<uint8_t> buffer(sizeof(a));
  std::memcpy(buffer.data(), &a, sizeof(a));
  return buffer;
}

DWORD storagePropertyReply(const ControlBuffers& buffers, const StorageFacts& facts, DWORD* bytes) {
  *bytes = 0;
  if (buffers.in == nullptr || buffers.inSize < 8) return ERROR_INVALID_PARAMETER;
  STORAGE_PROPERTY_QUERY query{};
  std::memcpy(&query, buffers.in, std::min<size_t>(buffers.inSize, sizeof(query)));
  if (query.PropertyId != StorageDeviceProperty && query.PropertyId != StorageAdapterProperty) {
    return ERROR_INVALID_FUNCTION;
  }
  if (query.QueryType == PropertyExistsQuery) return ERROR_SUCCESS;
  if (query.QueryType != PropertyStandardQuery) return ERROR_INVALID_PARAMETER;
  const std::vector<uint8_t> descriptor =
      query.PropertyId == StorageDeviceProperty ? deviceDescriptor(facts) : adapterDescriptor(facts);
  if (buffers.out == nullptr || buffers.outSize < sizeof(STORAGE_DESCRIPTOR_HEADER)) return ERROR_INSUFFICIENT_BUFFER;
  *bytes = std::min<DWORD>(buffers.outSize, static_cast<DWORD>(descriptor.size()));
  std::memcpy(buffers.out, descriptor.data(), *bytes);
  return ERROR_SUCCESS;
}

}  // namespace seam
