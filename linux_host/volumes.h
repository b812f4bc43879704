// Volumes of the Linux host: the file systems mounted from the disks the
// provider serves, read from /proc/self/mountinfo, each given a drive letter
// (C: onwards, in the order of the mount table, one per device) so that the
// module's drive-letter view of volumes applies. A partition's number comes
// from sysfs (/sys/dev/block/MAJ:MIN/partition); a file system on a whole
// disk is partition 0. Free space is statvfs of the mount point.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace linux_host {

// One line of /proc/self/mountinfo, the fields the provider reads:
//   id parent MAJ:MIN root mountpoint options [optional...] - fstype source superoptions
// Octal escapes (\040 for a space) are decoded.
struct MountEntry {
  uint32_t major = 0, minor = 0;
  std::string root;
  std::string mountPoint;
  std::string fileSystem;
  std::string source;
};
std::vector<MountEntry> parseMountinfo(const std::string& text);

struct HostVolume {
  char letter = 'C';
  std::string mountPoint;
  std::string fileSystem;  // upper case, as Windows names file systems: "EXT4"
  size_t disk = 0;         // index of the provider's disk
  uint32_t partition = 0;  // 0: the whole disk
  uint64_t offset = 0;     // bytes from the start of the disk (sysfs "start" * 512)
  uint64_t length = 0;     // bytes (sysfs "size" * 512)
};

// The volumes of the mounts in `entries` that lie on the disks named
// `diskNames` (index = the provider's disk number), looked up under
// `sysfsRoot`/dev/block. At most 24 (C: to Z:).
std::vector<HostVolume> volumesOf(const std::vector<MountEntry>& entries, const std::vector<std::string>& diskNames,
                                  const std::string& sysfsRoot);

}  // namespace linux_host
