// The drive layout read from the GPT or MBR on a medium, as
// IOCTL_DISK_GET_DRIVE_LAYOUT_EX reports it. Shared by every provider of the
// non-Windows builds: the simulated PC reads its media with it, the Linux host
// its disks and image files. Byte maps of the tables are in
// sim/windows/partition_tables.cpp, which also writes them.
#include "seam/drive_layout.h"

#include <algorithm>
#include <cstring>
#include <set>

namespace seam {

namespace {

constexpr uint8_t kExtendedTypes[] = {0x05, 0x0F, 0x85};

bool isContainer(uint8_t type) {
  for (uint8_t t : kExtendedTypes) {
    if (t == type) return true;
  }
  return false;
}

void put32(uint8_t* at, uint32_t v) {
  for (int i = 0; i < 4; ++i) at[i] = static_cast<uint8_t>(v >> (8 * i));
}
uint32_t get32(const uint8_t* at) {
  return static_cast<uint32_t>(at[0]) | (static_cast<uint32_t>(at[1]) << 8) | (static_cast<uint32_t>(at[2]) << 16) |
         (static_cast<uint32_t>(at[3]) << 24);
}
uint64_t get64(const uint8_t* at) { return get32(at) | (static_cast<uint64_t>(get32(at + 4)) << 32); }

GUID getGuid(const uint8_t* at) {
  GUID g{};
  g.Data1 = get32(at);
  g.Data2 = static_cast<WORD>(at[4] | (at[5] << 8));
  g.Data3 = static_cast<WORD>(at[6] | (at[7] << 8));
  std::memcpy(g.Data4, at + 8, 8);
  return g;
}
bool isZero(const GUID& g) {
  static const GUID zero{};
  return std::memcmp(&g, &zero, sizeof(GUID)) == 0;
}

// The medium as the readers below see it.
struct Reader {
  uint32_t size;
  uint64_t count;
  const SectorReader& reader;
  uint32_t sectorSize() const { return size; }
  uint64_t sectorCount() const { return count; }
  bool read(uint64_t lba, uint64_t sectors, uint8_t* out) const {
    return lba < count && sectors <= count - lba && reader(lba, sectors, out);
  }
};

PARTITION_INFORMATION_EX mbrEntry(const uint8_t* e, uint64_t base, uint32_t ss) {
  PARTITION_INFORMATION_EX p{};
  p.PartitionStyle = PARTITION_STYLE_MBR;
  const uint8_t type = e[4];
  if (type == 0) return p;
  p.StartingOffset.QuadPart = static_cast<LONGLONG>((base + get32(e + 8)) * ss);
  p.PartitionLength.QuadPart = static_cast<LONGLONG>(static_cast<uint64_t>(get32(e + 12)) * ss);
  p.Mbr.PartitionType = type;
  p.Mbr.BootIndicator = e[0] == 0x80;
  p.Mbr.RecognizedPartition = !isContainer(type);
  p.Mbr.HiddenSectors = get32(e + 8);
  return p;
}

void readMbr(const Reader& media, const std::vector<uint8_t>& mbr, DriveLayout* layout) {
  const uint32_t ss = media.sectorSize();
  layout->style = PARTITION_STYLE_MBR;
  layout->mbrSignature = get32(mbr.data() + 440);
  DWORD number = 0;
  uint64_t extendedFirst = 0;
  for (int i = 0; i < 4; ++i) {
    const uint8_t* e = mbr.data() + 446 + 16 * i;
    PARTITION_INFORMATION_EX p = mbrEntry(e, 0, ss);
    if (e[4] != 0 && !isContainer(e[4])) p.PartitionNumber = ++number;
    if (isContainer(e[4]) && extendedFirst == 0) extendedFirst = get32(e + 8);
    layout->entries.push_back(p);
  }
  // The chain of EBRs; a loop or a link out of the disk ends it.
  std::set<uint64_t> seen;
  uint64_t ebr = extendedFirst;
  std::vector<uint8_t> sector(ss);
  while (ebr != 0 && ebr < media.sectorCount() && seen.insert(ebr).second && seen.size() <= 128) {
    if (!media.read(ebr, 1, sector.data()) || sector[510] != 0x55 || sector[511] != 0xAA) break;
    PARTITION_INFORMATION_EX drive = mbrEntry(sector.data() + 446, ebr, ss);
    if (sector[446 + 4] != 0) drive.PartitionNumber = ++number;
    layout->entries.push_back(drive);
    const uint8_t* link = sector.data() + 446 + 16;
    layout->entries.push_back(mbrEntry(link, extendedFirst, ss));
    layout->entries.push_back(mbrEntry(sector.data() + 446 + 32, ebr, ss));
    layout->entries.push_back(mbrEntry(sector.data() + 446 + 48, ebr, ss));
    ebr = isContainer(link[4]) ? extendedFirst + get32(link + 8) : 0;
  }
}

bool readGpt(const Reader& media, DriveLayout* layout) {
  const uint32_t ss = media.sectorSize();
  std::vector<uint8_t> header(ss);
  if (!media.read(1, 1, header.data()) || std::memcmp(header.data(), "EFI PART", 8) != 0) {
    return false;
  }
  const uint32_t headerSize = get32(header.data() + 12);
  if (headerSize < 92 || headerSize > ss) return false;
  std::vector<uint8_t> check(header.begin(), header.begin() + headerSize);
  put32(check.data() + 16, 0);
  if (crc32(check.data(), headerSize) != get32(header.data() + 16)) return false;
  const uint64_t entriesLba = get64(header.data() + 72);
  const uint32_t count = get32(header.data() + 80);
  const uint32_t size = get32(header.data() + 84);
  if (size < 128 || count > 1024 || size > 1024) return false;
  const uint64_t sectors = (static_cast<uint64_t>(count) * size + ss - 1) / ss;
  std::vector<uint8_t> array(sectors * ss);
  if (!media.read(entriesLba, sectors, array.data())) return false;
  layout->style = PARTITION_STYLE_GPT;
  layout->diskId = getGuid(header.data() + 56);
  layout->usableFirst = get64(header.data() + 40) * ss;
  layout->usableLength = (get64(header.data() + 48) - get64(header.data() + 40) + 1) * ss;
  layout->maxPartitionCount = count;
  DWORD number = 0;
  for (uint32_t i = 0; i < count; ++i) {
    const uint8_t* e = array.data() + static_cast<size_t>(i) * size;
    const GUID type = getGuid(e);
    if (isZero(type)) continue;
    PARTITION_INFORMATION_EX p{};
    p.PartitionStyle = PARTITION_STYLE_GPT;
    const uint64_t first = get64(e + 32);
    const uint64_t last = get64(e + 40);
    p.StartingOffset.QuadPart = static_cast<LONGLONG>(first * ss);
    p.PartitionLength.QuadPart = static_cast<LONGLONG>(last >= first ? (last - first + 1) * ss : 0);
    p.PartitionNumber = ++number;
    p.Gpt.PartitionType = type;
    p.Gpt.PartitionId = getGuid(e + 16);
    p.Gpt.Attributes = get64(e + 48);
    for (int c = 0; c < 36; ++c) p.Gpt.Name[c] = static_cast<WCHAR>(e[56 + 2 * c] | (e[57 + 2 * c] << 8));
    layout->entries.push_back(p);
  }
  return true;
}

}  // namespace

uint32_t crc32(const uint8_t* data, size_t length) {
  uint32_t crc = 0xFFFFFFFFu;
  for (size_t i = 0; i < length; ++i) {
    crc ^= data[i];
    for (int k = 0; k < 8; ++k) crc = (crc >> 1) ^ (0xEDB88320u & (0u - (crc & 1u)));
  }
  return ~crc;
}

DriveLayout readDriveLayout(uint32_t sectorSize, uint64_t sectorCount, const SectorReader& read) {
  DriveLayout layout;
  const Reader media{sectorSize, sectorCount, read};
  const uint32_t ss = sectorSize;
  if (sectorCount == 0 || ss < 512) return layout;
  std::vector<uint8_t> mbr(ss);
  if (!media.read(0, 1, mbr.data()) || mbr[510] != 0x55 || mbr[511] != 0xAA) return layout;
  bool protective = false;
  for (int i = 0; i < 4; ++i) protective = protective || mbr[446 + 16 * i + 4] == 0xEE;
  if (protective && readGpt(media, &layout)) return layout;
  readMbr(media, mbr, &layout);
  return layout;
}

bool driveLayoutReply(const DriveLayout& layout, uint8_t* out, DWORD outSize, DWORD* bytes) {
  const size_t header = offsetof(DRIVE_LAYOUT_INFORMATION_EX, PartitionEntry);
  const size_t need = header + layout.entries.size() * sizeof(PARTITION_INFORMATION_EX);
  if (out == nullptr || outSize < std::max(need, sizeof(DRIVE_LAYOUT_INFORMATION_EX))) return false;
  DRIVE_LAYOUT_INFORMATION_EX head{};
  head.PartitionStyle = layout.style;
  head.PartitionCount = static_cast<DWORD>(layout.entries.size());
  if (layout.style == PARTITION_STYLE_MBR) {
    head.Mbr.Signature = layout.mbrSignature;
  } else if (layout.style == PARTITION_STYLE_GPT) {
    head.Gpt.DiskId = layout.diskId;
    head.Gpt.StartingUsableOffset.QuadPart = static_cast<LONGLONG>(layout.usableFirst);
    head.Gpt.UsableLength.QuadPart = static_cast<LONGLONG>(layout.usableLength);
    head.Gpt.MaxPartitionCount = layout.maxPartitionCount;
  }
  std::memset(out, 0, need);
  std::memcpy(out, &head, header);
  for (size_t i = 0; i < layout.entries.size(); ++i) {
    std::memcpy(out + header + i * sizeof(PARTITION_INFORMATION_EX), &layout.entries[i],
                sizeof(PARTITION_INFORMATION_EX));
  }
  *bytes = static_cast<DWORD>(need);
  return true;
}

}  // namespace seam
