// IOCTL_SCSI_PASS_THROUGH: the block, the call, and the record coming back.
#include "commands/hal/win_hal_scsi_send.h"

#include <algorithm>
#include <cstring>
#include <new>

#include "commands/status_codes.h"

namespace {

constexpr USHORT kScsiRecordBytes = 56;
constexpr ULONG kSenseOffset = kScsiRecordBytes;
constexpr ULONG kDataOffset = kSenseOffset + kScsiSenseBytes;  // 88
static_assert(sizeof(SCSI_PASS_THROUGH) == kScsiRecordBytes, "the block layout assumes the 56-byte record");

HalScsiSend* gHalScsiSend = nullptr;

}  // namespace

UCHAR scsiPassThroughDataIn(uint32_t direction) {
  switch (direction) {
    case kDirectionIn:
      return SCSI_IOCTL_DATA_IN;
    case kDirectionOut:
      return SCSI_IOCTL_DATA_OUT;
    default:
      return SCSI_IOCTL_DATA_UNSPECIFIED;
  }
}

ScsiPassThroughBlock::ScsiPassThroughBlock(const ScsiCmd& cmd, int32_t alignment)
    : storage(static_cast<size_t>(cmd.dataLength) + static_cast<size_t>(std::max(alignment, 0)) + kDataOffset, 0) {
  record = new (storage.data()) SCSI_PASS_THROUGH{};
  requested = cmd.dataLength;

  record->Length = kScsiRecordBytes;
  record->CdbLength = std::min<UCHAR>(cmd.cdbLength, static_cast<UCHAR>(kScsiCdbBytes));
  record->SenseInfoLength = static_cast<UCHAR>(kScsiSenseBytes);
  record->DataIn = scsiPassThroughDataIn(cmd.direction);
  record->DataTransferLength = static_cast<ULONG>(cmd.dataLength);
  record->TimeOutValue = cmd.timeoutSeconds;
  record->DataBufferOffset = kDataOffset;
  record->SenseInfoOffset = kSenseOffset;
  std::memcpy(record->Cdb, cmd.cdb.data(), record->CdbLength);
  ioctlBytes = record->Length + record->SenseInfoLength + record->DataTransferLength;

  if (record->DataIn == SCSI_IOCTL_DATA_OUT && cmd.buffer != nullptr && cmd.dataLength != 0) {
    std::memcpy(storage.data() + kDataOffset, cmd.buffer, static_cast<size_t>(cmd.dataLength));
  }
}

uint32_t ScsiPassThroughBlock::complete(ScsiCmd& cmd) {
  const uint64_t dataOffset = record->DataBufferOffset;
  const uint64_t dataInBlock = dataOffset < storage.size() ? storage.size() - dataOffset : 0;
  const uint64_t moved = std::min({uint64_t{record->DataTransferLength}, requested, dataInBlock});
  cmd.dataLength = moved;
  if (moved != 0 && record->DataIn == SCSI_IOCTL_DATA_IN && cmd.buffer != nullptr) {
    std::memcpy(cmd.buffer, storage.data() + dataOffset, static_cast<size_t>(moved));
  }

  cmd.sense.fill(0);
  const uint64_t senseOffset = record->SenseInfoOffset;
  if (senseOffset < storage.size()) {
    const size_t senseBytes = std::min<size_t>(kScsiSenseBytes, storage.size() - senseOffset);
    std::memcpy(cmd.sense.data(), storage.data() + senseOffset, senseBytes);
  }
  cmd.senseLength = std::min<uint64_t>(record->SenseInfoLength, kScsiSenseBytes);
  cmd.scsiStatus = record->ScsiStatus;
  return kStatusOk;
}

uint32_t WinHalScsiSend::send(DeviceHandle handle, int32_t alignment, ScsiCmd& cmd) {
  ScsiPassThroughBlock block(cmd, alignment);
  DWORD returned = 0;
  if (!DeviceIoControl(handle, IOCTL_SCSI_PASS_THROUGH, block.bytes(), block.ioctlLength(), block.bytes(),
                       block.ioctlLength(), &returned, nullptr)) {
    return kStatusIoctlFailed;
  }
  return block.complete(cmd);
}

HalScsiSend* getHalScsiSend() {
  if (gHalScsiSend == nullptr) gHalScsiSend = new WinHalScsiSend();
  return gHalScsiSend;
}
