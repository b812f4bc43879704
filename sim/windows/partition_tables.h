// Partition tables on a simulated disk's media: written from the machine
// description when the machine is installed, and read back from the media for
// IOCTL_DISK_GET_DRIVE_LAYOUT_EX, so the layout reported is what the disk
// holds. MBR (with an extended partition and its chain of EBRs) and GPT
// (protective MBR, primary and backup header and entry array, CRC32s).
#pragma once

#include <string>
#include <vector>

#include <nlohmann/json.hpp>

#include "sim/media.h"
#include "win32/win32.h"

namespace sim {
namespace windows {

// Writes the tables that `partitions` describes (the disk's "partitions" key)
// onto `media`. False with *error naming the field when the description is
// wrong or doesn't fit the disk.
bool writePartitionTables(Media& media, const nlohmann::json& partitions, std::string* error);

// The layout as Windows reports it: MBR disks give four entries per table
// (the MBR's, then each EBR's: the logical drive, the link, two empty ones),
// with container and empty entries numbered 0 and the others numbered from 1,
// primaries first; GPT disks give their used entries, numbered from 1. A disk
// without a valid table is RAW with no entries.
struct DriveLayout {
  DWORD style = PARTITION_STYLE_RAW;
  DWORD mbrSignature = 0;
  GUID diskId{};
  uint64_t usableFirst = 0, usableLength = 0;
  DWORD maxPartitionCount = 0;
  std::vector<PARTITION_INFORMATION_EX> entries;
};
DriveLayout readDriveLayout(const Media& media);

// Text GUID ("ebd0a0a2-b9e5-4433-87c0-68b6b72699c7") to the record, and back.
bool parseGuid(const std::string& text, GUID* out);
std::string formatGuid(const GUID& guid);

uint32_t crc32(const uint8_t* data, size_t length);

}  // namespace windows
}  // namespace sim
