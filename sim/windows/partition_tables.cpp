// MBR and GPT partition tables on simulated media.
//
// MBR sector (and each EBR):
//   440 disk signature (4, MBR only)  446 four entries of 16 bytes  510 0x55 0xAA
// An entry: 0 boot flag (0x80) 1-3 CHS first 4 type 5-7 CHS last
//           8 first LBA (4) 12 sector count (4)
// In an EBR, entry 0 is the logical drive (first LBA relative to the EBR) and
// entry 1 links to the next EBR (first LBA relative to the extended partition).
//
// GPT header (LBA 1, copy in the last LBA):
//   0 "EFI PART" 8 revision 0x00010000 12 header size 92 16 header CRC32
//  24 my LBA 32 alternate LBA 40 first usable 48 last usable 56 disk GUID
//  72 entries LBA 80 entry count 84 entry size 128 88 entries CRC32
// An entry: 0 type GUID 16 partition GUID 32 first LBA 40 last LBA
//          48 attributes 56 name (36 UTF-16 characters)
#include "sim/windows/partition_tables.h"

#include <cstring>
#include <set>

namespace sim {
namespace windows {

namespace {

constexpr uint8_t kExtendedTypes[] = {0x05, 0x0F, 0x85};
constexpr uint32_t kGptEntries = 128;
constexpr uint32_t kGptEntrySize = 128;

bool isContainer(uint8_t type) {
  for (uint8_t t : kExtendedTypes) {
    if (t == type) return true;
  }
  return false;
}

void put32(uint8_t* at, uint32_t v) {
  for (int i = 0; i < 4; ++i) at[i] = static_cast<uint8_t>(v >> (8 * i));
}
void put64(uint8_t* at, uint64_t v) {
  for (int i = 0; i < 8; ++i) at[i] = static_cast<uint8_t>(v >> (8 * i));
}

void putGuid(uint8_t* at, const GUID& g) {
  put32(at, g.Data1);
  at[4] = static_cast<uint8_t>(g.Data2);
  at[5] = static_cast<uint8_t>(g.Data2 >> 8);
  at[6] = static_cast<uint8_t>(g.Data3);
  at[7] = static_cast<uint8_t>(g.Data3 >> 8);
  std::memcpy(at + 8, g.Data4, 8);
}

void putMbrEntry(uint8_t* sector, int index, bool boot, uint8_t type, uint64_t first, uint64_t count) {
  uint8_t* e = sector + 446 + 16 * index;
  e[0] = boot ? 0x80 : 0x00;
  // CHS fields carry the "beyond CHS" marker; LBA is what counts.
  e[1] = 0xFE;
  e[2] = 0xFF;
  e[3] = 0xFF;
  e[4] = type;
  e[5] = 0xFE;
  e[6] = 0xFF;
  e[7] = 0xFF;
  put32(e + 8, static_cast<uint32_t>(first));
  put32(e + 12, static_cast<uint32_t>(count));
}

bool fail(std::string* error, const std::string& text) {
  if (error) *error = text;
  return false;
}

bool readU64(const nlohmann::json& object, const char* key, uint64_t* out) {
  auto it = object.find(key);
  if (it == object.end() || !it->is_number_unsigned()) return false;
  *out = it->get<uint64_t>();
  return true;
}

bool writeSector(Media& media, uint64_t lba, const std::vector<uint8_t>& data) {
  return media.write(lba, data.size() / media.sectorSize(), data.data()) == MediaResult::Ok;
}

bool writeMbr(Media& media, const nlohmann::json& partitions, std::string* error) {
  const uint32_t ss = media.sectorSize();
  const uint64_t total = media.sectorCount();
  std::vector<uint8_t> mbr(ss, 0);
  uint32_t signature = 0x5AD15C00;
  if (partitions.contains("signature")) {
    if (!partitions["signature"].is_number_unsigned()) return fail(error, "partitions.signature: expected a number");
    signature = partitions["signature"].get<uint32_t>();
  }
  put32(mbr.data() + 440, signature);
  mbr[510] = 0x55;
  mbr[511] = 0xAA;
  const auto& entries = partitions["entries"];
  if (entries.size() > 4) return fail(error, "partitions.entries: an MBR holds at most four entries");
  for (size_t i = 0; i < entries.size(); ++i) {
    const auto& entry = entries[i];
    const std::string where = "partitions.entries[" + std::to_string(i) + "]";
    uint64_t type = 0, first = 0, count = 0;
    if (!entry.is_object() || !readU64(entry, "type", &type) || type > 0xFF) {
      return fail(error, where + ".type: expected a type byte");
    }
    if (!readU64(entry, "startLba", &first) || !readU64(entry, "sectorCount", &count)) {
      return fail(error, where + ": expected startLba and sectorCount");
    }
    if (first == 0 || first + count > total || first + count > 0xFFFFFFFFull) {
      return fail(error, where + ": does not fit the disk");
    }
    putMbrEntry(mbr.data(), static_cast<int>(i), entry.value("bootable", false), static_cast<uint8_t>(type), first,
                count);
    if (!entry.contains("logical")) continue;
    if (!isContainer(static_cast<uint8_t>(type))) return fail(error, where + ".logical: only an extended entry holds logical drives");
    const auto& logical = entry["logical"];
    if (!logical.is_array()) return fail(error, where + ".logical: expected a list");
    for (size_t k = 0; k < logical.size(); ++k) {
      const auto& drive = logical[k];
      const std::string at = where + ".logical[" + std::to_string(k) + "]";
      uint64_t dtype = 0, dfirst = 0, dcount = 0;
      if (!drive.is_object() || !readU64(drive, "type", &dtype) || dtype > 0xFF || !readU64(drive, "startLba", &dfirst) ||
          !readU64(drive, "sectorCount", &dcount)) {
        return fail(error, at + ": expected type, startLba and sectorCount");
      }
      uint64_t ebr = k == 0 ? first : (dfirst > 2048 ? dfirst - 2048 : 0);
      if (drive.contains("ebrLba") && !readU64(drive, "ebrLba", &ebr)) return fail(error, at + ".ebrLba: expected a number");
      if (ebr < first || ebr >= dfirst || dfirst + dcount > first + count) {
        return fail(error, at + ": must lie inside the extended partition, behind its EBR");
      }
      std::vector<uint8_t> sector(ss, 0);
      sector[510] = 0x55;
      sector[511] = 0xAA;
      putMbrEntry(sector.data(), 0, false, static_cast<uint8_t>(dtype), dfirst - ebr, dcount);
      if (k + 1 < logical.size()) {
        const auto& next = logical[k + 1];
        uint64_t nfirst = 0, ncount = 0;
        if (!readU64(next, "startLba", &nfirst) || !readU64(next, "sectorCount", &ncount)) {
          return fail(error, where + ".logical[" + std::to_string(k + 1) + "]: expected startLba and sectorCount");
        }
        uint64_t nebr = nfirst > 2048 ? nfirst - 2048 : 0;
        if (next.contains("ebrLba")) readU64(next, "ebrLba", &nebr);
        if (nebr <= ebr) return fail(error, where + ".logical: drives must be in ascending order");
        putMbrEntry(sector.data(), 1, false, 0x05, nebr - first, nfirst + ncount - nebr);
      }
      if (!writeSector(media, ebr, sector)) return fail(error, at + ": cannot write its EBR");
    }
  }
  if (!writeSector(media, 0, mbr)) return fail(error, "partitions: cannot write the MBR");
  return true;
}

bool writeGpt(Media& media, const nlohmann::json& partitions, std::string* error) {
  const uint32_t ss = media.sectorSize();
  const uint64_t total = media.sectorCount();
  const uint64_t entrySectors = (kGptEntries * kGptEntrySize + ss - 1) / ss;
  if (total < 2 * (entrySectors + 2) + 1) return fail(error, "partitions: the disk is too small for a GPT");
  const uint64_t firstUsable = 2 + entrySectors;
  const uint64_t lastUsable = total - 2 - entrySectors;
  const auto& entries = partitions["entries"];
  if (entries.size() > kGptEntries) return fail(error, "partitions.entries: a GPT holds at most 128 entries");

  std::vector<uint8_t> array(entrySectors * ss, 0);
  for (size_t i = 0; i < entries.size(); ++i) {
    const auto& entry = entries[i];
    const std::string where = "partitions.entries[" + std::to_string(i) + "]";
    GUID type{}, id{};
    if (!entry.is_object() || !entry.contains("type") || !entry["type"].is_string() ||
        !parseGuid(entry["type"].get<std::string>(), &type)) {
      return fail(error, where + ".type: expected a GUID");
    }
    if (entry.contains("id")) {
      if (!entry["id"].is_string() || !parseGuid(entry["id"].get<std::string>(), &id)) {
        return fail(error, where + ".id: expected a GUID");
      }
    } else {
      id = GUID{0x1D000000u + static_cast<DWORD>(i), 0x5A17, 0x4E11, {0x80, 0x00, 0, 0, 0, 0, 0, static_cast<BYTE>(i)}};
    }
    uint64_t first = 0, count = 0, attributes = 0;
    if (!readU64(entry, "startLba", &first) || !readU64(entry, "sectorCount", &count) || count == 0) {
      return fail(error, where + ": expected startLba and sectorCount");
    }
    if (first < firstUsable || first + count - 1 > lastUsable) return fail(error, where + ": does not fit the disk");
    if (entry.contains("attributes") && !readU64(entry, "attributes", &attributes)) {
      return fail(error, where + ".attributes: expected a number");
    }
    uint8_t* e = array.data() + i * kGptEntrySize;
    putGuid(e, type);
    putGuid(e + 16, id);
    put64(e + 32, first);
    put64(e + 40, first + count - 1);
    put64(e + 48, attributes);
    if (entry.contains("name") && entry["name"].is_string()) {
      const std::string name = entry["name"].get<std::string>();
      for (size_t c = 0; c < name.size() && c < 36; ++c) {
        e[56 + 2 * c] = static_cast<uint8_t>(name[c]);
      }
    }
  }
  GUID diskId{0x5D15C000, 0x0001, 0x4000, {0x80, 0, 0, 0, 0, 0, 0, 1}};
  if (partitions.contains("diskGuid") &&
      (!partitions["diskGuid"].is_string() || !parseGuid(partitions["diskGuid"].get<std::string>(), &diskId))) {
    return fail(error, "partitions.diskGuid: expected a GUID");
  }
  const uint32_t arrayCrc = crc32(array.data(), kGptEntries * kGptEntrySize);

  auto header = [&](uint64_t mine, uint64_t alternate, uint64_t entriesLba) {
    std::vector<uint8_t> h(ss, 0);
    std::memcpy(h.data(), "EFI PART", 8);
    put32(h.data() + 8, 0x00010000);
    put32(h.data() + 12, 92);
    put64(h.data() + 24, mine);
    put64(h.data() + 32, alternate);
    put64(h.data() + 40, firstUsable);
    put64(h.data() + 48, lastUsable);
    putGuid(h.data() + 56, diskId);
    put64(h.data() + 72, entriesLba);
    put32(h.data() + 80, kGptEntries);
    put32(h.data() + 84, kGptEntrySize);
    put32(h.data() + 88, arrayCrc);
    put32(h.data() + 16, crc32(h.data(), 92));
    return h;
  };

  std::vector<uint8_t> protective(ss, 0);
  putMbrEntry(protective.data(), 0, false, 0xEE, 1, std::min<uint64_t>(total - 1, 0xFFFFFFFFull));
  protective[510] = 0x55;
  protective[511] = 0xAA;
  const bool ok = writeSector(media, 0, protective) && writeSector(media, 1, header(1, total - 1, 2)) &&
                  writeSector(media, 2, array) && writeSector(media, lastUsable + 1, array) &&
                  writeSector(media, total - 1, header(total - 1, 1, lastUsable + 1));
  return ok || fail(error, "partitions: cannot write the GPT");
}

}  // namespace

bool parseGuid(const std::string& text, GUID* out) {
  std::string t = text;
  if (t.size() == 38 && t.front() == '{' && t.back() == '}') t = t.substr(1, 36);
  if (t.size() != 36 || t[8] != '-' || t[13] != '-' || t[18] != '-' || t[23] != '-') return false;
  std::string hex;
  for (char c : t) {
    if (c == '-') continue;
    if (!std::isxdigit(static_cast<unsigned char>(c))) return false;
    hex += c;
  }
  auto byteAt = [&](size_t i) { return static_cast<uint8_t>(std::stoul(hex.substr(2 * i, 2), nullptr, 16)); };
  GUID g{};
  g.Data1 = static_cast<DWORD>(std::stoul(hex.substr(0, 8), nullptr, 16));
  g.Data2 = static_cast<WORD>(std::stoul(hex.substr(8, 4), nullptr, 16));
  g.Data3 = static_cast<WORD>(std::stoul(hex.substr(12, 4), nullptr, 16));
  for (size_t i = 0; i < 8; ++i) g.Data4[i] = byteAt(8 + i);
  *out = g;
  return true;
}

std::string formatGuid(const GUID& g) {
  char text[40];
  std::snprintf(text, sizeof(text), "%08x-%04x-%04x-%02x%02x-%02x%02x%02x%02x%02x%02x", g.Data1, g.Data2, g.Data3,
                g.Data4[0], g.Data4[1], g.Data4[2], g.Data4[3], g.Data4[4], g.Data4[5], g.Data4[6], g.Data4[7]);
  return text;
}

bool writePartitionTables(Media& media, const nlohmann::json& partitions, std::string* error) {
  if (!partitions.is_object()) return fail(error, "partitions: expected an object with scheme and entries");
  const std::string scheme = partitions.value("scheme", "");
  if (!partitions.contains("entries") || !partitions["entries"].is_array()) {
    return fail(error, "partitions.entries: expected a list");
  }
  if (media.sectorCount() < 64) return fail(error, "partitions: the disk is too small for a partition table");
  if (scheme == "mbr") return writeMbr(media, partitions, error);
  if (scheme == "gpt") return writeGpt(media, partitions, error);
  return fail(error, "partitions.scheme: expected \"mbr\" or \"gpt\"");
}

DriveLayout readDriveLayout(const Media& media) {
  return seam::readDriveLayout(media.sectorSize(), media.sectorCount(), [&media](uint64_t lba, uint64_t count,
                                                                                 uint8_t* out) {
    return media.read(lba, count, out) == MediaResult::Ok;
  });
}

}  // namespace windows
}  // namespace sim
