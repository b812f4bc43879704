// The host's whole disks as /sys/block lists them, with what the kernel
// knows of each: the bus it hangs on (read from the device's sysfs path),
// its identity strings, whether it is removable or rotating, and how SCSI
// commands reach it. Partitions are not under /sys/block; loop, ram, zram,
// device-mapper, md and nbd devices (all under /sys/devices/virtual) and
// optical drives (sr*) are left out.
//
// Order: by name, run by run: a run of digits compares as a number, a run of
// letters shorter first and then alphabetically (sda, sdb, ..., sdz, sdaa,
// vda, nvme0n1, nvme1n1, nvme10n1, mmcblk0), so that \\.\PhysicalDriveN names the same disk from run to run while
// the set of disks stays the same.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace linux_host {

// How SCSI commands reach a disk.
enum class CommandPath {
  Block,  // none: the provider answers from the block device (block_scsi.h)
  SgIo,   // the kernel's SCSI layer, by SG_IO
  Nvme,   // NVMe admin and I/O commands (NVME_IOCTL_*)
};

struct SysfsDisk {
  std::string name;        // "sda"
  std::string devicePath;  // "/dev/sda"
  uint32_t busType = 0;    // a STORAGE_BUS_TYPE value
  CommandPath commands = CommandPath::Block;
  bool removable = false;
  bool rotational = false;
  std::string vendor, product, revision, serial;
  // An NVMe namespace's own identity (its disk's nsid, eui and nguid
  // attributes, the last two only where the namespace has them); empty and 0
  // elsewhere.
  uint32_t nvmeNsid = 0;
  std::string nvmeEui64, nvmeNguid;
};

// Lists the disks under `sysfsRoot`/block; device nodes are named under
// `devRoot`. An unreadable or missing tree gives no disks.
std::vector<SysfsDisk> listSysfsDisks(const std::string& sysfsRoot, const std::string& devRoot);

// The bus of a disk from its name and the resolved path of its sysfs entry
// ("/sys/devices/pci0000:00/0000:00:1f.2/ata1/host0/target0:0:0/0:0:0:0/
// block/sda"): USB anywhere on the path, then NVMe and MMC by name, libata
// (ata<N>) as SATA, a SAS end device as SAS, otherwise SCSI (virtio disks
// included). `mmcType` is the card's device/type ("MMC" or "SD").
uint32_t busTypeOf(const std::string& name, const std::string& resolvedPath, const std::string& mmcType);

// The name order described above; true when `a` comes before `b`.
bool diskNameLess(const std::string& a, const std::string& b);

}  // namespace linux_host
