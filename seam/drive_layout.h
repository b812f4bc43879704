// The drive layout a medium's GPT or MBR describes, read the one way for
// every provider of the non-Windows builds (the simulated PC's media, the
// Linux host's disks and image files).
#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <vector>

#include "win32/win32.h"

namespace seam {

// Reads `count` sectors from `lba` into `out`; false when any can't be read.
using SectorReader = std::function<bool(uint64_t lba, uint64_t count, uint8_t* out)>;

// The layout as Windows reports it: MBR disks give four entries per table
// (the MBR's, then each EBR's: the logical drive, the link, two empty ones),
// with container and empty entries numbered 0 and the others numbered from 1,
// primaries first; GPT disks give their used entries, numbered from 1. A disk
// without a valid table, or whose tables can't be read, is RAW with no
// entries. A chain of EBRs ends at a loop, at a link out of the disk or after
// 128 links.
struct DriveLayout {
  DWORD style = PARTITION_STYLE_RAW;
  DWORD mbrSignature = 0;
  GUID diskId{};
  uint64_t usableFirst = 0, usableLength = 0;
  DWORD maxPartitionCount = 0;
  std::vector<PARTITION_INFORMATION_EX> entries;
};
DriveLayout readDriveLayout(uint32_t sectorSize, uint64_t sectorCount, const SectorReader& read);

// The DRIVE_LAYOUT_INFORMATION_EX reply: the 48-byte header, then one
// 144-byte entry per partition. False when `outSize` can't hold it (and
// never less than one whole record); *bytes is the size written.
bool driveLayoutReply(const DriveLayout& layout, uint8_t* out, DWORD outSize, DWORD* bytes);

// The CRC-32 of GPT headers and entry arrays (IEEE 802.3, reflected).
uint32_t crc32(const uint8_t* data, size_t length);

}  // namespace seam
