// A RAID controller as a component: what it says about itself, its logical
// devices and physical drives, and for each physical drive protocols whose
// commands pass through the controller. The families (LSI, CSMI) fill these
// in; describing the controller for the host is common and lives here.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "module_storage/system_component.h"
#include "protocols/storage_protocol.h"

// Controller kinds: the three LSI library flavours and CSMI.
enum RaidControllerKind : uint32_t {
  kControllerLsiStd = 0,
  kControllerLsiIr = 1,
  kControllerLsiIr2 = 2,
  kControllerCsmi = 3,
};

// What `discover` reads from the controller. -1 counts mean "not known".
struct RaidControllerInfo {
  std::string serial;
  std::string model;
  std::string biosVersion;
  std::string driverVersion;
  // "IMSM_CAPABILITIES_NOT_FOUND" means there is no platform text.
  std::string platform;
  int32_t numLogicalDevices = -1;
  std::string reservedText;  // never filled
  int32_t numPhysicalDevices = -1;
  std::vector<std::string> supportedRaidLevels;
  std::vector<std::string> supportedInterfaces;
  // Two capability bits of the LSI controller record; nothing reads them.
  bool flagA = false;
  bool flagB = false;
  std::string udi;
};

// A physical drive as the controller lists it.
class RaidPhysicalDrive {
 public:
  virtual ~RaidPhysicalDrive() = default;

  uint32_t busKind = kBusUnknown;  // kBusAta, kBusScsi or kBusUnknown
  std::string manufacturer;
  std::string model;
  std::string firmware;
  uint64_t sizeBytes = 0;
  uint64_t deviceId = 0;  // 32 bits used
  std::string serial;
};

// A logical device (an array volume) of the controller.
class RaidLogicalDevice {
 public:
  virtual ~RaidLogicalDevice() = default;

  uint16_t numPhysicalDevices = 0;
  std::string raidLevel;
  uint64_t sizeBytes = 0;
  // Shown instead of a text made from sizeBytes when not empty.
  std::string sizeText;
  std::string name;
  std::vector<uint8_t> rawRecord;  // the LSI configuration record
  uint16_t firmwareState = 0;
  uint32_t health = 0;  // CSMI set status, mapped
  std::vector<std::string> failedDrives;
  std::string note;  // never filled
};

// One drive handed out as a device of its own. Both protocols pass to the
// caller, who destroys them; secondProtocol may be null.
struct RaidDrive {
  std::string name;
  uint32_t busKind = kBusUnknown;
  StorageProtocol* firstProtocol = nullptr;
  StorageProtocol* secondProtocol = nullptr;
};

class RaidComponent : public SystemComponent {
 public:
  RaidComponent(uint64_t handle, uint32_t kind);
  ~RaidComponent() override;

  // The host's reserved operations, with the trivial answers of a disk.
  uint32_t reservedQuery() override { return 0; }
  bool reservedCheckA() override { return true; }
  void reservedActionA() override {}
  bool reservedCheckB() override { return true; }
  void reservedActionB() override {}

  // Reads the controller's identity and counts into `out`; a status.
  virtual uint32_t discover(RaidControllerInfo& out) = 0;
  // The controller's logical devices; a status.
  virtual uint32_t getLogicalDisks(std::vector<RaidLogicalDevice>& out) = 0;
  // The controller's physical drives; a status.
  virtual uint32_t getPhysicalDrives(std::vector<RaidPhysicalDrive>& out) = 0;
  // The physical drives as devices of their own, each with protocols that
  // pass through the controller; the caller owns the protocols.
  virtual uint32_t getLogicalDevices(std::vector<RaidDrive>& out) = 0;
  // Reads what the family needs before describing; a status.
  virtual uint32_t prepare() = 0;

  // Fills name, details and sections from discover, getLogicalDisks and
  // getPhysicalDrives: 0, or the status of the step that failed.
  uint32_t describe();
  uint64_t getControllerHandle() const { return controllerHandle; }
  uint32_t getControllerKind() const { return controllerKind; }
  const RaidControllerInfo& getInfo() const { return info; }
  void setId(std::string value) { id = std::move(value); }
  const std::vector<DetailEntry>& getDetails() const { return details; }

 protected:
  // LSI: the controller id the library gave; CSMI: the adapter's handle.
  uint64_t controllerHandle = 0;
  uint32_t controllerKind = kControllerCsmi;
  RaidControllerInfo info;
};
