// ATA over SCSI/ATA Translation: the task file travels in an ATA PASS-THROUGH
// CDB on a SCSI transport, for drives behind a translating link (USB, the port
// driver's SATL). Two variants differ only in how they get the registers back.
// No operating-system code here: the SCSI transport below does the sending.
#pragma once

#include <cstdint>
#include <memory>

#include "commands/ata/ata_cmd.h"
#include "commands/bridges/ata_bridge.h"
#include "commands/bridges/ata_status_descriptor.h"
#include "commands/bridges/scsi_bridge.h"
#include "commands/scsi/scsi_cmd.h"

class SatBridge : public AtaBridge {
 public:
  // Locks `scsiTransport`; when it is already gone the bridge has no
  // transport, and every send reports kStatusBridgeCannotCarry (4).
  explicit SatBridge(const std::weak_ptr<ScsiBridge>& scsiTransport);

  // The transport's handle; null without a transport.
  DeviceHandle getHandle() override;

  // 1. Builds the pass-through and sends it on the transport.
  // 2. Whatever the result, clears in `cmd` features, sectorCount through
  //    command, and dataLength (featuresExt stays). A caller that tries another
  //    transport afterwards must restore the record first.
  // 3. A failed send gives its status.
  // 4. With wantsOutputRegisters, a read (0x20, 0x24, 0x40, 0x42) learns its
  //    registers from the sense key alone: MEDIUM ERROR gives Error UNC and
  //    Status ERR, HARDWARE ERROR Status DF, ILLEGAL REQUEST Error IDNF and
  //    Status ERR. Any other command takes them from the ATA Status Return
  //    descriptor after a CHECK CONDITION (readOutputRegisters), else zeros.
  // 5. A non-zero transferred length is kept in cmd.dataLength. The result is
  //    0: the SCSI status byte as such is no failure here.
  uint32_t send(AtaCmd& cmd) override;

  // A new pass-through for `cmd` in *out, which the caller deletes: the
  // sixteen-byte form for a 48-bit command, the twelve-byte one otherwise.
  // Always 1, and not looked at.
  virtual uint32_t createPassThrough(AtaCmd& cmd, ScsiCmd** out) = 0;
  // The ATA Status Return descriptor of the command `scsi` has just carried.
  // 0 with *out filled, or a status.
  virtual uint32_t readOutputRegisters(ScsiCmd& scsi, AtaStatusDescriptor* out) = 0;

 protected:
  std::shared_ptr<ScsiBridge> transport;
};

// Sets CK_COND, so that the translator ends every pass-through with CHECK
// CONDITION and the registers in a descriptor-format sense.
class SatBridgeWithCkCondition : public SatBridge {
 public:
  explicit SatBridgeWithCkCondition(const std::weak_ptr<ScsiBridge>& scsiTransport);
  uint32_t createPassThrough(AtaCmd& cmd, ScsiCmd** out) override;
  // Walks the descriptors of the command's own sense. With L = sense[7] + 7:
  // L below 9 gives 77; from offset 8 each descriptor that is not code 9 is
  // skipped by its length byte plus 2, and reaching L (or the end of the 32
  // sense bytes) gives 77. At code 9 the 14 bytes are copied and the result is 0.
  uint32_t readOutputRegisters(ScsiCmd& scsi, AtaStatusDescriptor* out) override;
};

// Leaves CK_COND clear and, after a CHECK CONDITION, asks the translator for
// the registers with a Return Response Information request. A device that
// answers GOOD therefore leaves every register zero through this bridge.
class SatBridgeWithoutCkCond : public SatBridge {
 public:
  explicit SatBridgeWithoutCkCond(const std::weak_ptr<ScsiBridge>& scsiTransport);
  uint32_t createPassThrough(AtaCmd& cmd, ScsiCmd** out) override;
  // Sends SatGetAtaOutputRegisters into *out: a failed send gives its status,
  // a status byte other than GOOD 33, and an answer that is not a code-9
  // descriptor of length 12 gives 77.
  uint32_t readOutputRegisters(ScsiCmd& scsi, AtaStatusDescriptor* out) override;
};
