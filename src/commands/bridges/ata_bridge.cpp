// The plain ATA and SCSI transports.
#include "commands/bridges/ata_bridge.h"

#include "commands/bridges/scsi_bridge.h"
#include "commands/hal/hal_ata_send.h"
#include "commands/hal/hal_scsi_send.h"

namespace {
// The plain SCSI transport asks for no more than the sender's own block.
constexpr int32_t kScsiBridgeAlignment = 1;
}  // namespace

AtaBridge::AtaBridge(DeviceHandle deviceHandle) : handle(deviceHandle) {}
AtaBridge::AtaBridge() = default;
AtaBridge::~AtaBridge() = default;

DeviceHandle AtaBridge::getHandle() { return handle; }

uint32_t AtaBridge::send(AtaCmd& cmd) { return getHalAtaSend()->send(handle, cmd); }

ScsiBridge::ScsiBridge(DeviceHandle deviceHandle) : handle(deviceHandle) {}
ScsiBridge::ScsiBridge() = default;
ScsiBridge::~ScsiBridge() = default;

DeviceHandle ScsiBridge::getHandle() { return handle; }

uint32_t ScsiBridge::send(ScsiCmd& cmd) { return getHalScsiSend()->send(handle, kScsiBridgeAlignment, cmd); }
