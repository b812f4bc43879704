// A chipset RAID controller reached through CSMI on its adapter's handle: the
// controller's identity, its RAID sets, the drives on its phys, and for each
// drive a protocol whose commands go as STP or SSP pass-through.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "raid/csmi/csmi_send.h"
#include "raid/raid_component.h"

// Whether the adapter speaks CSMI and does RAID: the controller
// configuration comes back with return code 0 and the SAS RAID (0x2) or
// SATA RAID (0x8) flag.
bool csmiProbe(HANDLE adapter, CsmiSend* sender);

class CsmiRaidComponent : public RaidComponent {
 public:
  // `adapter` stays open for the life of the drives' protocols. Requests go
  // through getCsmiSender().
  CsmiRaidComponent(HANDLE adapter, const std::string& model, const std::string& idText);

  // Controller configuration, RAID information and the drives: 0, the
  // sender's status, or 66 for a refusal by the driver.
  uint32_t discover(RaidControllerInfo& out) override;
  // One device per RAID set, until the driver refuses the next index; 0 once
  // the RAID information was read.
  uint32_t getLogicalDisks(std::vector<RaidLogicalDevice>& out) override;
  // The end devices on the phys, read by identify (ATA) or by inquiry and
  // capacity (SSP); a drive that can't be read is left out. 0 once the phy
  // information was read.
  uint32_t getPhysicalDrives(std::vector<RaidPhysicalDrive>& out) override;
  // A protocol per end device. Each drive appends "-" and its phy index to
  // the component's id, which keeps growing with every call.
  uint32_t getLogicalDevices(std::vector<RaidDrive>& out) override;
  // Nothing to prepare.
  uint32_t prepare() override { return kStatusOk; }

 private:
  HANDLE adapter() const;
  // Sends `cmd`: the sender's status, or 66 when the driver refused it.
  uint32_t query(CsmiCmd& cmd);
  uint32_t readAtaDrive(const CSMI_SAS_PHY_ENTITY& phy, RaidPhysicalDrive& drive);
  uint32_t readScsiDrive(const CSMI_SAS_PHY_ENTITY& phy, RaidPhysicalDrive& drive);
};
