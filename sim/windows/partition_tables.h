// Partition tables on a simulated disk's media: written from the machine
// description when the machine is installed, and read back from the media for
// IOCTL_DISK_GET_DRIVE_LAYOUT_EX (by the reader the Linux host shares), so
// the layout reported is what the disk holds. MBR (with an extended partition and its chain of EBRs) and GPT
// (protective MBR, primary and backup header and entry array, CRC32s).
#pragma once

#include <string>
#include <vector>

#include <nlohmann/json.hpp>

#include "seam/drive_layout.h"
#include "sim/media.h"
#include "win32/win32.h"

namespace sim {
namespace windows {

// Writes the tables that `partitions` describes (the disk's "partitions" key)
// onto `media`. False with *error naming the field when the description is
// wrong or doesn't fit the disk.
bool writePartitionTables(Media& media, const nlohmann::json& partitions, std::string* error);

// The layout as Windows reports it, read from the media by the seam's one
// reader (seam/drive_layout.h).
using DriveLayout = seam::DriveLayout;
DriveLayout readDriveLayout(const Media& media);

// Text GUID ("ebd0a0a2-b9e5-4433-87c0-68b6b72699c7") to the record, and back.
bool parseGuid(const std::string& text, GUID* out);
std::string formatGuid(const GUID& guid);

using seam::crc32;

}  // namespace windows
}  // namespace sim
