// The simulated PC as a whole: its clock, its journal and its disks, built
// from a machine description (JSON). The Windows face serves the Win32 calls
// from a Machine; the devices behind each disk are the emulated drives,
// bridges and translation layers of this library.
#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include <nlohmann/json.hpp>

#include "sim/device.h"
#include "sim/faults.h"
#include "sim/journal.h"
#include "sim/media.h"
#include "sim/virtual_clock.h"

namespace sim {

class AtaDrive;
class ScsiDrive;

// STORAGE_BUS_TYPE values as Windows reports them for a disk.
enum StorageBusType : uint32_t {
  kBusTypeScsi = 1,
  kBusTypeAta = 3,
  kBusTypeUsb = 7,
  kBusTypeRaid = 8,
  kBusTypeSas = 10,
  kBusTypeSata = 11,
  kBusTypeSd = 12,
  kBusTypeMmc = 13,
  kBusTypeNvme = 17,
};

// One disk as Windows sees it.
struct Disk {
  std::string name;
  uint32_t busType = kBusTypeSata;
  bool removableMedia = false;
  // Behind a RAID controller: SetupAPI does not list the disk and its
  // \\.\PhysicalDriveN does not open; only a controller that names it
  // reaches its devices.
  bool hidden = false;
  // What IOCTL_STORAGE_QUERY_PROPERTY (StorageDeviceProperty) reports.
  std::string vendorId;
  std::string productId;
  std::string productRevision;
  std::string serialNumber;
  // What IOCTL_ATA_PASS_THROUGH reaches; null where the port has no ATA path
  // (USB, SAS, NVMe, eMMC).
  std::shared_ptr<AtaDevice> ata;
  // What IOCTL_SCSI_PASS_THROUGH reaches: the port driver's SCSI/ATA
  // translation for an internal ATA disk, the bridge of a USB disk, the drive
  // of a SAS disk, the NVMe translation of an NVMe disk; null for eMMC.
  std::shared_ptr<ScsiTarget> scsi;
  // What ReadFile and WriteFile on the disk handle reach.
  std::shared_ptr<Media> media;
  // The device models themselves, for tests that change their state while a
  // run goes on (an attribute falling to its threshold, a health warning):
  // the ATA drive of an ATA disk, the SCSI drive of a SCSI disk or the
  // NvmeDisk of an NVMe disk; null otherwise.
  std::shared_ptr<AtaDrive> ataDrive;
  std::shared_ptr<ScsiDrive> scsiDrive;
  // The fault states along the path to the medium, outermost first (bridge,
  // then drive). Raw reads and writes pass them through admitRawIo.
  std::vector<std::shared_ptr<FaultState>> faultPath;
  // The disk's object of the machine description, as written; the keys
  // "partitions", "volumes", "files" and "smartGetVersion" belong to the
  // Windows face.
  nlohmann::json description;

  // The fate of one raw read or write on the disk handle: each fault state
  // on the path counts it as a command (opcode 0x28 for a read, 0x2A for a
  // write). Done means the media may be touched.
  Completion admitRawIo(bool write, uint32_t timeoutSeconds);
};

class Machine {
 public:
  Machine();

  // `pathOrJson`: "default" for the built-in machine, JSON text (starting
  // with '{'), or the path of a JSON file. Null with *error naming the field
  // and the reason when the description is rejected.
  static std::unique_ptr<Machine> load(const std::string& pathOrJson, std::string* error);
  static std::unique_ptr<Machine> fromJson(const nlohmann::json& description, std::string* error);
  static std::unique_ptr<Machine> fromJsonText(const std::string& text, std::string* error);
  // The built-in machine; its description is defaultMachineJson().
  static std::unique_ptr<Machine> defaultMachine();
  static const char* defaultMachineJson();

  VirtualClock& clock() { return *clock_; }
  const std::shared_ptr<VirtualClock>& sharedClock() const { return clock_; }
  Journal& journal() { return *journal_; }
  const std::shared_ptr<Journal>& sharedJournal() const { return journal_; }

  // Null when there is no disk of that name.
  Disk* findDisk(const std::string& name);

  std::string name;
  std::vector<Disk> disks;
  // The whole description as written; "controllers", "libraries",
  // "processes" and "privileges" belong to the Windows face.
  nlohmann::json description;

 private:
  std::shared_ptr<VirtualClock> clock_;
  std::shared_ptr<Journal> journal_;
};

}  // namespace sim
