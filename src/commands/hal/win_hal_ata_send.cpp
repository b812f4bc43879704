// IOCTL_ATA_PASS_THROUGH: the block, the call, and the record coming back.
#include "commands/hal/win_hal_ata_send.h"

#include <algorithm>
#include <cstring>
#include <new>
#include <type_traits>

#include "commands/status_codes.h"

static_assert(std::is_same<HANDLE, DeviceHandle>::value, "the command layer's handle is the platform's HANDLE");

namespace {

constexpr USHORT kAtaRecordBytes = 48;
static_assert(sizeof(ATA_PASS_THROUGH_EX) == kAtaRecordBytes, "the block layout assumes the 48-byte record");

// Task-file bytes of CurrentTaskFile and PreviousTaskFile.
enum TaskFileByte : size_t {
  kTaskFeatures = 0,
  kTaskCount = 1,
  kTaskLbaLow = 2,
  kTaskLbaMid = 3,
  kTaskLbaHigh = 4,
  kTaskDevice = 5,
  kTaskCommand = 6,
};

HalAtaSend* gHalAtaSend = nullptr;

}  // namespace

USHORT ataPassThroughFlags(const AtaCmd& cmd) {
  USHORT flags = ATA_FLAGS_DRDY_REQUIRED;
  if (is48BitCommand(cmd.command)) flags |= ATA_FLAGS_48BIT_COMMAND;
  if (cmd.command == kAtaSmart && cmd.features == kSmartReadLog && cmd.sectorCount > 1) {
    flags |= ATA_FLAGS_NO_MULTIPLE;
  }
  if (cmd.direction == kDirectionIn) {
    flags |= ATA_FLAGS_DATA_IN;
  } else if (cmd.direction == kDirectionOut) {
    flags |= ATA_FLAGS_DATA_OUT;
  }
  return flags;
}

AtaPassThroughBlock::AtaPassThroughBlock(const AtaCmd& cmd)
    : storage(static_cast<size_t>(cmd.dataLength) + kAtaRecordBytes + 1, 0) {
  record = new (storage.data()) ATA_PASS_THROUGH_EX{};
  ioctlBytes = static_cast<DWORD>(kAtaRecordBytes + cmd.dataLength);
  requestedIn = cmd.direction == kDirectionIn ? cmd.dataLength : 0;

  record->Length = kAtaRecordBytes;
  record->AtaFlags = ataPassThroughFlags(cmd);
  record->DataTransferLength = static_cast<ULONG>(cmd.dataLength);
  record->TimeOutValue = cmd.timeoutSeconds;
  record->DataBufferOffset = kAtaRecordBytes;

  if (cmd.direction == kDirectionOut && cmd.buffer != nullptr && cmd.dataLength != 0) {
    std::memcpy(storage.data() + kAtaRecordBytes, cmd.buffer, static_cast<size_t>(cmd.dataLength));
  }

  record->CurrentTaskFile[kTaskFeatures] = cmd.features;
  record->CurrentTaskFile[kTaskCount] = cmd.sectorCount;
  record->CurrentTaskFile[kTaskLbaLow] = cmd.lbaLow;
  record->CurrentTaskFile[kTaskLbaMid] = cmd.lbaMid;
  record->CurrentTaskFile[kTaskLbaHigh] = cmd.lbaHigh;
  record->CurrentTaskFile[kTaskDevice] = cmd.device;
  record->CurrentTaskFile[kTaskCommand] = cmd.command;
  record->PreviousTaskFile[kTaskCount] = cmd.sectorCountExt;
  record->PreviousTaskFile[kTaskLbaLow] = cmd.lbaLowExt;
  record->PreviousTaskFile[kTaskLbaMid] = cmd.lbaMidExt;
  record->PreviousTaskFile[kTaskLbaHigh] = cmd.lbaHighExt;
}

uint32_t AtaPassThroughBlock::complete(AtaCmd& cmd) {
  cmd.features = record->CurrentTaskFile[kTaskFeatures];
  cmd.sectorCount = record->CurrentTaskFile[kTaskCount];
  cmd.lbaLow = record->CurrentTaskFile[kTaskLbaLow];
  cmd.lbaMid = record->CurrentTaskFile[kTaskLbaMid];
  cmd.lbaHigh = record->CurrentTaskFile[kTaskLbaHigh];
  cmd.device = record->CurrentTaskFile[kTaskDevice];
  cmd.command = record->CurrentTaskFile[kTaskCommand];

  if (cmd.direction != kDirectionIn) return kStatusOk;
  const uint64_t returned = record->DataTransferLength;
  if (returned == 0) return requestedIn != 0 ? kStatusNoData : kStatusOk;

  const uint64_t offset = record->DataBufferOffset;
  const uint64_t inBlock = offset < storage.size() ? storage.size() - offset : 0;
  const uint64_t moved = std::min({returned, requestedIn, inBlock});
  cmd.dataLength = moved;
  if (cmd.buffer != nullptr && moved != 0) {
    std::memcpy(cmd.buffer, storage.data() + offset, static_cast<size_t>(moved));
  }
  return kStatusOk;
}

uint32_t WinHalAtaSend::send(DeviceHandle handle, AtaCmd& cmd) {
  AtaPassThroughBlock block(cmd);
  DWORD returned = 0;
  if (!DeviceIoControl(handle, IOCTL_ATA_PASS_THROUGH, block.bytes(), block.ioctlLength(), block.bytes(),
                       block.ioctlLength(), &returned, nullptr)) {
    return kStatusIoctlFailed;
  }
  return block.complete(cmd);
}

HalAtaSend* getHalAtaSend() {
  if (gHalAtaSend == nullptr) gHalAtaSend = new WinHalAtaSend();
  return gHalAtaSend;
}
