// An LSI controller reached through its command library: its identity and
// capabilities, logical devices, arrays and physical drives, and for each
// drive a SCSI protocol (and, for a SATA drive, an ATA one) whose commands go
// through the library's pass-through.
#pragma once

#include <array>
#include <cstdint>
#include <vector>

#include "raid/lsi/lsi_sender.h"
#include "raid/raid_component.h"

// One record of the controller's array list.
struct LsiArray {
  uint16_t reference = 0;
  bool flag = false;
  std::array<uint8_t, 144> raw{};
};

class LsiRaidComponent : public RaidComponent {
 public:
  // `sender` is the library flavour that listed the controller; borrowed.
  LsiRaidComponent(uint32_t controllerId, uint32_t kind, LsiSender* sender);

  // Controller information, then the logical device count (whose failure
  // leaves -1). The library's result when the information can't be read.
  uint32_t discover(RaidControllerInfo& out) override;
  // The logical devices that could be read; the list's status.
  uint32_t getLogicalDisks(std::vector<RaidLogicalDevice>& out) override;
  // The drives whose information could be read. The result is the status of
  // the last command sent, so a failure of the last drive shows.
  uint32_t getPhysicalDrives(std::vector<RaidPhysicalDrive>& out) override;
  // Per drive a SCSI protocol, and an ATA one when the drive answers
  // IDENTIFY through STP.
  uint32_t getLogicalDevices(std::vector<RaidDrive>& out) override;
  // Reads the array list into `arrays`; 65 when it can't.
  uint32_t prepare() override;

  // Drive count and configuration of one logical device: 65 when either
  // query fails.
  uint32_t readLogicalDevice(uint8_t logicalTarget, uint16_t sequence, RaidLogicalDevice& device);

  const std::vector<LsiArray>& getArrays() const { return arrays; }

 private:
  uint32_t controllerId() const { return static_cast<uint32_t>(controllerHandle); }

  std::vector<LsiArray> arrays;
  LsiSender* sender;
};

// The RAID level of a logical device from its primary level and span
// indicator.
std::string lsiRaidLevel(uint8_t primaryLevel, uint8_t spanIndicator);
