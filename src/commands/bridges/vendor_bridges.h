// The two vendor USB bridge chips the module knows, JMicron and Sunplus. Each
// wraps an ATA task file in its own vendor CDB on a SCSI transport. They are
// used to identify the drive behind the chip and carry IDENTIFY DEVICE alone;
// no registers come back through them.
#pragma once

#include <cstdint>
#include <memory>

#include "commands/ata/ata_cmd.h"
#include "commands/bridges/ata_bridge.h"
#include "commands/bridges/scsi_bridge.h"

class JMicronBridge : public AtaBridge {
 public:
  // Locks `scsiTransport`; without it every send gives 4.
  explicit JMicronBridge(const std::weak_ptr<ScsiBridge>& scsiTransport);

  DeviceHandle getHandle() override;
  // A command other than IDENTIFY DEVICE gives 4 without touching the device.
  // Otherwise the JMicron pass-through goes on the transport: a failed send
  // gives its status, a status byte other than GOOD 33; then dataLength takes
  // the transferred length and the bytes are in cmd.buffer.
  uint32_t send(AtaCmd& cmd) override;

 private:
  std::shared_ptr<ScsiBridge> transport;
};

class SunplusBridge : public AtaBridge {
 public:
  // Locks `scsiTransport`; without it every send gives 4.
  explicit SunplusBridge(const std::weak_ptr<ScsiBridge>& scsiTransport);

  DeviceHandle getHandle() override;
  // A command other than IDENTIFY DEVICE gives 4 without touching the device.
  // A 48-bit command would first have the chip's previous registers loaded by
  // the preset CDB; the IDENTIFY-only rule means that step never runs, and it is
  // kept for the day the rule widens. Then the pass-through: a failed send
  // gives its status, a status byte other than GOOD 33. dataLength stays as
  // it was.
  uint32_t send(AtaCmd& cmd) override;

 private:
  std::shared_ptr<ScsiBridge> transport;
};
