// Transports to one drive behind an LSI controller, through the command
// library's pass-through: SCSI commands as SSP, ATA commands as STP. The
// base's handle holds the controller id; no operating-system code here.
#pragma once

#include <cstdint>

#include "commands/bridges/ata_bridge.h"
#include "commands/bridges/scsi_bridge.h"
#include "raid/lsi/lsi_sender.h"

// The controller id as the handle a bridge carries, and back.
DeviceHandle lsiControllerHandle(uint32_t controllerId);
uint32_t lsiControllerId(DeviceHandle handle);

class LsiSspBridge : public ScsiBridge {
 public:
  // `sender` is borrowed; it is process-wide.
  LsiSspBridge(uint32_t controllerId, uint16_t deviceId, LsiSender* sender);
  // 1 without a sender, otherwise the library's result. The sense comes back
  // only when the library failed; read data only when it succeeded.
  uint32_t send(ScsiCmd& cmd) override;

 private:
  uint16_t deviceId;
  LsiSender* sender;
};

class LsiStpBridge : public AtaBridge {
 public:
  LsiStpBridge(DeviceHandle controller, uint16_t deviceId, LsiSender* sender);
  // 1 without a sender, 34 when the library or the link failed. The device
  // register is not carried to the drive, and no data goes to it: a write
  // through this bridge writes zeros. Both are deliberate and kept.
  uint32_t send(AtaCmd& cmd) override;

 private:
  uint16_t deviceId;
  LsiSender* sender;
};
