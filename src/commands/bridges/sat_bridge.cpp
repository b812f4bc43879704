// The SAT bridges: wrapping, sending, and the registers coming back.
#include "commands/bridges/sat_bridge.h"

#include <cstring>

#include "commands/scsi/sat_pass_through.h"
#include "commands/scsi/sense_data.h"
#include "commands/status_codes.h"

namespace {

// createPassThrough's constant answer.
constexpr uint32_t kPassThroughCreated = 1;

// Offsets in descriptor-format sense.
constexpr uint32_t kSenseAdditionalLength = 7;
constexpr uint32_t kSenseFirstDescriptor = 8;
constexpr uint32_t kSenseHeaderBytes = 7;  // added to the additional length
constexpr uint32_t kSenseSmallestWithDescriptor = 9;

// The reads whose registers come from the sense key alone.
bool isReadClass(uint8_t command) {
  return command == kAtaReadSectors || command == kAtaReadSectorsExt || command == kAtaReadVerifySectors ||
         command == kAtaReadVerifySectorsExt;
}

void clearRegisters(AtaCmd& cmd) {
  cmd.features = 0;
  cmd.sectorCount = 0;
  cmd.sectorCountExt = 0;
  cmd.lbaLow = 0;
  cmd.lbaLowExt = 0;
  cmd.lbaMid = 0;
  cmd.lbaMidExt = 0;
  cmd.lbaHigh = 0;
  cmd.lbaHighExt = 0;
  cmd.device = 0;
  cmd.command = 0;
  cmd.dataLength = 0;
}

// A read's Status and Error after its sense, when the sense parses.
void registersFromSenseKey(const ScsiCmd& scsi, AtaCmd& cmd) {
  if (scsi.senseLength == 0) return;
  SenseData sense;
  if (sense.parse(scsi.sense.data()) != kStatusOk) return;
  switch (sense.getSenseKey()) {
    case kSenseMediumError:
      cmd.features = kAtaErrorUnc;
      cmd.command = kAtaStatusErr;
      break;
    case kSenseHardwareError:
      cmd.features = 0;
      cmd.command = kAtaStatusDeviceFault;
      break;
    case kSenseIllegalRequest:
      cmd.features = kAtaErrorIdnf;
      cmd.command = kAtaStatusErr;
      break;
    default:
      break;
  }
}

}  // namespace

SatBridge::SatBridge(const std::weak_ptr<ScsiBridge>& scsiTransport) : transport(scsiTransport.lock()) {}

DeviceHandle SatBridge::getHandle() { return transport ? transport->getHandle() : nullptr; }

uint32_t SatBridge::send(AtaCmd& cmd) {
  if (!transport) return kStatusBridgeCannotCarry;
  const bool readClass = isReadClass(cmd.command);

  ScsiCmd* created = nullptr;
  createPassThrough(cmd, &created);
  std::unique_ptr<ScsiCmd> scsi(created);
  if (!scsi) return kStatusBridgeCannotCarry;
  const uint32_t status = transport->send(*scsi);

  clearRegisters(cmd);
  if (status != kStatusOk) return status;

  if (cmd.wantsOutputRegisters) {
    if (readClass) {
      registersFromSenseKey(*scsi, cmd);
    } else {
      AtaStatusDescriptor descriptor{};
      if (scsi->scsiStatus == kScsiStatusCheckCondition &&
          readOutputRegisters(*scsi, &descriptor) != kStatusOk) {
        descriptor = AtaStatusDescriptor{};  // a failed read leaves zeros, unreported
      }
      cmd.features = descriptor.error;
      cmd.sectorCount = descriptor.sectorCount;
      cmd.lbaLow = descriptor.lbaLow;
      cmd.lbaMid = descriptor.lbaMid;
      cmd.lbaHigh = descriptor.lbaHigh;
      cmd.device = descriptor.device;
      cmd.command = descriptor.status;
    }
  }

  if (scsi->dataLength != 0) cmd.dataLength = scsi->dataLength;
  return kStatusOk;
}

SatBridgeWithCkCondition::SatBridgeWithCkCondition(const std::weak_ptr<ScsiBridge>& scsiTransport)
    : SatBridge(scsiTransport) {}

uint32_t SatBridgeWithCkCondition::createPassThrough(AtaCmd& cmd, ScsiCmd** out) {
  if (out == nullptr) return kPassThroughCreated;
  if (is48BitCommand(cmd.command)) {
    *out = new SatAtaPassThrough16(cmd, true);
  } else {
    *out = new SatAtaPassThrough12(cmd, true);
  }
  return kPassThroughCreated;
}

uint32_t SatBridgeWithCkCondition::readOutputRegisters(ScsiCmd& scsi, AtaStatusDescriptor* out) {
  const uint32_t end = scsi.sense[kSenseAdditionalLength] + kSenseHeaderBytes;
  if (end < kSenseSmallestWithDescriptor) return kStatusNoStatusDescriptor;
  uint32_t offset = kSenseFirstDescriptor;
  // The walk stays inside the 32 sense bytes whatever the lengths claim.
  while (offset < kScsiSenseBytes && scsi.sense[offset] != kAtaStatusDescriptorCode) {
    if (offset + 1 >= kScsiSenseBytes) return kStatusNoStatusDescriptor;
    offset += scsi.sense[offset + 1] + 2u;
    if (offset >= end) return kStatusNoStatusDescriptor;
  }
  if (offset + sizeof(AtaStatusDescriptor) > kScsiSenseBytes) return kStatusNoStatusDescriptor;
  if (out != nullptr) std::memcpy(out, scsi.sense.data() + offset, sizeof(AtaStatusDescriptor));
  return kStatusOk;
}

SatBridgeWithoutCkCond::SatBridgeWithoutCkCond(const std::weak_ptr<ScsiBridge>& scsiTransport)
    : SatBridge(scsiTransport) {}

uint32_t SatBridgeWithoutCkCond::createPassThrough(AtaCmd& cmd, ScsiCmd** out) {
  if (out == nullptr) return kPassThroughCreated;
  if (is48BitCommand(cmd.command)) {
    *out = new SatAtaPassThrough16(cmd, false);
  } else {
    *out = new SatAtaPassThrough12(cmd, false);
  }
  return kPassThroughCreated;
}

uint32_t SatBridgeWithoutCkCond::readOutputRegisters(ScsiCmd& /*scsi*/, AtaStatusDescriptor* out) {
  if (!transport) return kStatusBridgeCannotCarry;
  AtaStatusDescriptor answer{};
  SatGetAtaOutputRegisters request(&answer);
  const uint32_t status = transport->send(request);
  if (status != kStatusOk) return status;
  if (request.scsiStatus != kScsiStatusGood) return kStatusScsiNotGood;
  if (answer.descriptorCode != kAtaStatusDescriptorCode ||
      answer.additionalLength != kAtaStatusDescriptorAdditionalLength) {
    return kStatusNoStatusDescriptor;
  }
  if (out != nullptr) *out = answer;
  return kStatusOk;
}
