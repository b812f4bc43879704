// SSP and STP pass-through through the LSI command library.
#include "raid/lsi/lsi_bridges.h"

#include <algorithm>
#include <cstring>
#include <vector>

#include "raid/raid_status.h"

namespace {

// The library's time-out for a pass-through, whatever the command says.
constexpr uint16_t kLsiPassThroughSeconds = 30;

// Directions as the library numbers them.
constexpr uint8_t kLsiToDevice = 1;
constexpr uint8_t kLsiFromDevice = 2;
constexpr uint8_t kLsiNoData = 0;

// SSP buffer:
//   0 device id (u16)  2 1  4 direction  8 time-out (u16)  10 SCSI status
//   11 CDB length  12 CDB  28 sense (32)  60 data length (u32)  64 data
enum SspByte : size_t {
  kSspDeviceId = 0,
  kSspOne = 2,
  kSspDirection = 4,
  kSspTimeout = 8,
  kSspStatus = 10,
  kSspCdbLength = 11,
  kSspCdb = 12,
  kSspSense = 28,
  kSspDataLength = 60,
};

// STP buffer:
//   0 device id  1 direction  2 time-out (u16)  4 flags (u32)  8 FIS out (20)
//   28 0 on success  32 answer FIS length (u32)  36 data length (u32)
//   40 FIS in (20)  60 data
enum StpByte : size_t {
  kStpDeviceId = 0,
  kStpDirection = 1,
  kStpTimeout = 2,
  kStpFlags = 4,
  kStpFisOut = 8,
  kStpResult = 28,
  kStpFisLength = 32,
  kStpDataLength = 36,
  kStpFisIn = 40,
};
constexpr uint32_t kFisBytes = 20;
// STP flags.
constexpr uint32_t kStpFlagFromDevice = 0x1;
constexpr uint32_t kStpFlagToDevice = 0x2;
constexpr uint32_t kStpFlagNoData = 0x4;
constexpr uint32_t kStpFlagIdentify = 0x10;
constexpr uint32_t kStpFlagOffline = 0x100;

void putU16(uint8_t* at, uint16_t value) {
  at[0] = static_cast<uint8_t>(value);
  at[1] = static_cast<uint8_t>(value >> 8);
}

void putU32(uint8_t* at, uint32_t value) {
  putU16(at, static_cast<uint16_t>(value));
  putU16(at + 2, static_cast<uint16_t>(value >> 16));
}

uint8_t lsiDirection(uint32_t direction) {
  if (direction == kDirectionOut) return kLsiToDevice;
  if (direction == kDirectionIn) return kLsiFromDevice;
  return kLsiNoData;
}

// The largest data phase a pass-through buffer is made for.
constexpr uint64_t kLargestPayload = 0x7FFFFFFFu;

}  // namespace

DeviceHandle lsiControllerHandle(uint32_t controllerId) {
  return reinterpret_cast<DeviceHandle>(static_cast<uintptr_t>(controllerId));
}

uint32_t lsiControllerId(DeviceHandle handle) {
  return static_cast<uint32_t>(reinterpret_cast<uintptr_t>(handle));
}

LsiSspBridge::LsiSspBridge(uint32_t controllerId, uint16_t drive, LsiSender* lsiSender)
    : ScsiBridge(lsiControllerHandle(controllerId)), deviceId(drive), sender(lsiSender) {}

uint32_t LsiSspBridge::send(ScsiCmd& cmd) {
  if (cmd.dataLength > kLargestPayload) return kStatusBadArgument;
  const uint32_t length = static_cast<uint32_t>(cmd.dataLength);
  std::vector<uint8_t> buffer(static_cast<size_t>(length) + kLsiSspHeaderBytes, 0);
  uint8_t* b = buffer.data();
  putU16(b + kSspDeviceId, deviceId);
  b[kSspOne] = 1;
  b[kSspDirection] = lsiDirection(cmd.direction);
  putU16(b + kSspTimeout, kLsiPassThroughSeconds);
  const size_t cdbLength = std::min<size_t>(cmd.cdbLength, kScsiCdbBytes);
  b[kSspCdbLength] = static_cast<uint8_t>(cdbLength);
  std::memcpy(b + kSspCdb, cmd.cdb.data(), cdbLength);
  putU32(b + kSspDataLength, length);
  if (cmd.direction == kDirectionOut && cmd.buffer != nullptr && length != 0) {
    std::memcpy(b + kLsiSspHeaderBytes, cmd.buffer, length);
  }
  if (sender == nullptr) return kStatusNoLsiSender;

  LsiCmd record;
  makeSspPassThrough(record, lsiControllerId(handle), deviceId, b, length);
  const uint32_t result = sender->execute(record);
  if (result != 0) {
    cmd.senseLength = kScsiSenseBytes;
    std::memcpy(cmd.sense.data(), b + kSspSense, kScsiSenseBytes);
  } else if (cmd.direction == kDirectionIn && record.dataLength != 0 && cmd.buffer != nullptr) {
    cmd.dataLength = record.dataLength;
    // The count the library wrote, held to what both buffers can take.
    const size_t moved = std::min<size_t>({lsiU32(b + kSspDataLength), length});
    std::memcpy(cmd.buffer, b + kLsiSspHeaderBytes, moved);
  }
  cmd.scsiStatus = b[kSspStatus];
  return result;
}

LsiStpBridge::LsiStpBridge(DeviceHandle controller, uint16_t drive, LsiSender* lsiSender)
    : AtaBridge(controller), deviceId(drive), sender(lsiSender) {}

uint32_t LsiStpBridge::send(AtaCmd& cmd) {
  if (cmd.dataLength > kLargestPayload) return kStatusBadArgument;
  const uint32_t length = static_cast<uint32_t>(cmd.dataLength);
  std::vector<uint8_t> buffer(static_cast<size_t>(length) + kLsiStpHeaderBytes, 0);
  uint8_t* b = buffer.data();
  b[kStpDeviceId] = static_cast<uint8_t>(deviceId);
  b[kStpDirection] = lsiDirection(cmd.direction);
  putU16(b + kStpTimeout, kLsiPassThroughSeconds);
  uint32_t flags = cmd.direction == kDirectionIn    ? kStpFlagFromDevice
                   : cmd.direction == kDirectionOut ? kStpFlagToDevice
                                                    : kStpFlagNoData;
  if (cmd.command == kAtaIdentifyDevice) flags |= kStpFlagIdentify;
  if (cmd.features == kSmartExecuteOffline) flags |= kStpFlagOffline;
  putU32(b + kStpFlags, flags);
  // Register FIS, host to device. Byte 7 (device) stays 0.
  uint8_t* fis = b + kStpFisOut;
  fis[0] = 0x27;
  fis[1] |= 0x80;
  fis[2] = cmd.command;
  fis[3] = cmd.features;
  fis[4] = cmd.lbaLow;
  fis[5] = cmd.lbaMid;
  fis[6] = cmd.lbaHigh;
  fis[8] = cmd.lbaLowExt;
  fis[9] = cmd.lbaMidExt;
  fis[10] = cmd.lbaHighExt;
  fis[11] = cmd.featuresExt;
  fis[12] = cmd.sectorCount;
  fis[13] = cmd.sectorCountExt;
  putU32(b + kStpFisLength, kFisBytes);
  putU32(b + kStpDataLength, length);
  if (sender == nullptr) return kStatusNoLsiSender;

  LsiCmd record;
  makeStpPassThrough(record, lsiControllerId(handle), deviceId, b, length);
  if (sender->execute(record) != 0 || b[kStpResult] != 0) return kStatusLsiStpFailed;
  // Register FIS, device to host: 2 status 3 error 4-6 lba 7 device 12 count.
  const uint8_t* in = b + kStpFisIn;
  cmd.features = in[3];
  cmd.sectorCount = in[12];
  cmd.lbaLow = in[4];
  cmd.lbaMid = in[5];
  cmd.lbaHigh = in[6];
  cmd.device = in[7];
  cmd.command = in[2];
  cmd.dataLength = lsiU32(b + kStpDataLength);
  if (cmd.dataLength != 0 && cmd.buffer != nullptr) {
    // The data follows the answer FIS; both counts come from the library and
    // are held to the buffers.
    const size_t at = std::min<size_t>(kStpFisIn + static_cast<size_t>(lsiU32(b + kStpFisLength)), buffer.size());
    const size_t moved = std::min<size_t>({static_cast<size_t>(cmd.dataLength), length, buffer.size() - at});
    std::memcpy(cmd.buffer, b + at, moved);
  }
  return kStatusOk;
}
