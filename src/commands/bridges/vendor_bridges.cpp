// The JMicron and Sunplus bridges.
#include "commands/bridges/vendor_bridges.h"

#include <algorithm>
#include <cstring>

#include "commands/scsi/vendor_pass_through.h"
#include "commands/status_codes.h"

JMicronBridge::JMicronBridge(const std::weak_ptr<ScsiBridge>& scsiTransport) : transport(scsiTransport.lock()) {}

DeviceHandle JMicronBridge::getHandle() { return transport ? transport->getHandle() : nullptr; }

uint32_t JMicronBridge::send(AtaCmd& cmd) {
  if (cmd.command != kAtaIdentifyDevice || !transport) return kStatusBridgeCannotCarry;
  JMicronAtaPassThrough12 scsi(cmd);
  const uint32_t status = transport->send(scsi);
  if (status != kStatusOk) return status;
  if (scsi.scsiStatus != kScsiStatusGood) return kStatusScsiNotGood;
  // The pass-through read straight into cmd.buffer, so this copy only matters
  // if the two ever part; it never runs past what the caller asked for.
  const uint64_t moved = std::min(scsi.dataLength, cmd.dataLength);
  if (scsi.buffer != cmd.buffer && scsi.buffer != nullptr && cmd.buffer != nullptr) {
    std::memmove(cmd.buffer, scsi.buffer, static_cast<size_t>(moved));
  }
  cmd.dataLength = scsi.dataLength;
  return kStatusOk;
}

SunplusBridge::SunplusBridge(const std::weak_ptr<ScsiBridge>& scsiTransport) : transport(scsiTransport.lock()) {}

DeviceHandle SunplusBridge::getHandle() { return transport ? transport->getHandle() : nullptr; }

uint32_t SunplusBridge::send(AtaCmd& cmd) {
  if (cmd.command != kAtaIdentifyDevice || !transport) return kStatusBridgeCannotCarry;
  SunplusAtaPassThrough scsi(cmd);
  if (is48BitCommand(cmd.command)) {
    SunplusAtaPassthroughPreset preset(cmd);
    const uint32_t status = transport->send(preset);
    if (status != kStatusOk) return status;
    if (preset.scsiStatus != kScsiStatusGood) return kStatusScsiNotGood;
  }
  const uint32_t status = transport->send(scsi);
  if (status != kStatusOk) return status;
  if (scsi.scsiStatus != kScsiStatusGood) return kStatusScsiNotGood;
  return kStatusOk;
}
