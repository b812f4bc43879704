// The SCSI commands a disk without a SCSI pass-through of its own can still
// answer (a virtio disk, an eMMC or SD card, a disk-image file), served from
// its block device or file as a minimal direct-access device would: INQUIRY
// with the identity the kernel gives and VPD pages 00h, 80h and B1h, TEST UNIT
// READY, REQUEST SENSE, READ CAPACITY (10) and (16), READ (10), (12), (16),
// VERIFY (10) and (16), and WRITE (10), (12), (16). Everything else is refused
// as such a device refuses it: CHECK CONDITION, ILLEGAL REQUEST, INVALID
// COMMAND OPERATION CODE (20h/00h).
#pragma once

#include <string>

#include "linux_host/block_medium.h"
#include "linux_host/scsi_target.h"

namespace linux_host {

struct BlockIdentity {
  std::string vendor;    // INQUIRY bytes 8..15
  std::string product;   // bytes 16..31
  std::string revision;  // bytes 32..35
  std::string serial;    // VPD page 80h
  bool removable = false;
  // VPD page B1h's medium rotation rate: 1 for a solid-state device, 0 when
  // the kernel does not know.
  uint16_t rotationRate = 0;
};

class BlockScsiTarget : public ScsiTarget {
 public:
  BlockScsiTarget(BlockMedium& medium, BlockIdentity identity) : medium_(medium), identity_(std::move(identity)) {}
  ScsiAnswer execute(const ScsiCommand& command) override;

 private:
  ScsiAnswer inquiry(const ScsiCommand& command);
  ScsiAnswer readCapacity10(const ScsiCommand& command);
  ScsiAnswer readCapacity16(const ScsiCommand& command);
  ScsiAnswer transfer(const ScsiCommand& command, uint64_t lba, uint32_t blocks, bool write, bool verify);
  ScsiAnswer dataIn(const ScsiCommand& command, const std::vector<uint8_t>& answer);

  BlockMedium& medium_;
  BlockIdentity identity_;
};

}  // namespace linux_host
