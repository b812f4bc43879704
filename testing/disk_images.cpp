// Sparse disk-image files with partition tables, for tests only. The table
// layouts are those of sim/windows/partition_tables.cpp, written here byte by
// byte so that the provider's reader is checked against an independent writer.
#include "testing/disk_images.h"

#include <fcntl.h>
#include <stdlib.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cstring>
#include <filesystem>

#include "seam/drive_layout.h"

namespace mstest {

namespace {

constexpr uint32_t kSector = 512;

void put32(uint8_t* at, uint32_t v) {
  for (int i = 0; i < 4; ++i) at[i] = static_cast<uint8_t>(v >> (8 * i));
}
void put64(uint8_t* at, uint64_t v) {
  for (int i = 0; i < 8; ++i) at[i] = static_cast<uint8_t>(v >> (8 * i));
}

uint64_t sizeOf(const std::string& path) {
  struct stat info {};
  return ::stat(path.c_str(), &info) == 0 ? static_cast<uint64_t>(info.st_size) : 0;
}

}  // namespace

TemporaryFolder::TemporaryFolder() {
  std::string pattern = (std::filesystem::temp_directory_path() / "module_storage_XXXXXX").string();
  if (::mkdtemp(&pattern[0]) != nullptr) path_ = pattern;
}

TemporaryFolder::~TemporaryFolder() {
  std::error_code ignored;
  if (!path_.empty()) std::filesystem::remove_all(path_, ignored);
}

bool makeSparseImage(const std::string& path, uint64_t bytes) {
  const int fd = ::open(path.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0644);
  if (fd < 0) return false;
  const bool ok = ::ftruncate(fd, static_cast<off_t>(bytes)) == 0;
  ::close(fd);
  return ok;
}

std::vector<uint8_t> readImage(const std::string& path, uint64_t offset, size_t length) {
  std::vector<uint8_t> bytes(length);
  const int fd = ::open(path.c_str(), O_RDONLY | O_CLOEXEC);
  if (fd < 0) return {};
  const ssize_t got = ::pread(fd, bytes.data(), length, static_cast<off_t>(offset));
  ::close(fd);
  if (got != static_cast<ssize_t>(length)) return {};
  return bytes;
}

bool writeImage(const std::string& path, uint64_t offset, const std::vector<uint8_t>& bytes) {
  const int fd = ::open(path.c_str(), O_WRONLY | O_CLOEXEC);
  if (fd < 0) return false;
  const ssize_t put = ::pwrite(fd, bytes.data(), bytes.size(), static_cast<off_t>(offset));
  ::close(fd);
  return put == static_cast<ssize_t>(bytes.size());
}

std::vector<uint8_t> basicDataType() {
  return {0xA2, 0xA0, 0xD0, 0xEB, 0xE5, 0xB9, 0x33, 0x44, 0x87, 0xC0, 0x68, 0xB6, 0xB7, 0x26, 0x99, 0xC7};
}

std::vector<uint8_t> linuxFileSystemType() {
  return {0xAF, 0x3D, 0xC6, 0x0F, 0x83, 0x84, 0x72, 0x47, 0x8E, 0x79, 0x3D, 0x69, 0xD8, 0x47, 0x7D, 0xE4};
}

// GPT on 512-byte sectors:
//   LBA 0 protective MBR (one entry of type EEh from LBA 1)
//   LBA 1 header  LBA 2..33 entries  ...  last-33..last-1 entries  last header
// Header: 0 "EFI PART" 8 revision 0x00010000 12 size 92 16 CRC32 24 my LBA
//   32 alternate LBA 40 first usable 48 last usable 56 disk GUID
//   72 entries LBA 80 count 84 entry size 88 entries CRC32
// Entry: 0 type 16 unique GUID 32 first LBA 40 last LBA 48 attributes 56 name
bool writeGpt(const std::string& path, const std::vector<ImagePartition>& partitions, uint32_t seed) {
  const uint64_t total = sizeOf(path) / kSector;
  if (total < 68) return false;
  const uint32_t count = 128, entrySize = 128;
  const uint64_t arraySectors = count * entrySize / kSector;
  const uint64_t firstUsable = 2 + arraySectors;
  const uint64_t lastUsable = total - 2 - arraySectors;
  std::vector<uint8_t> array(count * entrySize, 0);
  for (size_t i = 0; i < partitions.size() && i < count; ++i) {
    uint8_t* e = &array[i * entrySize];
    const ImagePartition& p = partitions[i];
    if (p.gptType.size() == 16) std::memcpy(e, p.gptType.data(), 16);
    for (int k = 0; k < 16; ++k) e[16 + k] = static_cast<uint8_t>(seed * 31 + i * 7 + k + 1);
    put64(e + 32, p.firstLba);
    put64(e + 40, p.firstLba + p.sectors - 1);
    for (size_t c = 0; c < p.name.size() && c < 36; ++c) e[56 + 2 * c] = static_cast<uint8_t>(p.name[c]);
  }
  const uint32_t arrayCrc = seam::crc32(array.data(), array.size());
  auto header = [&](uint64_t mine, uint64_t other, uint64_t entries) {
    std::vector<uint8_t> h(kSector, 0);
    std::memcpy(h.data(), "EFI PART", 8);
    put32(h.data() + 8, 0x00010000);
    put32(h.data() + 12, 92);
    put64(h.data() + 24, mine);
    put64(h.data() + 32, other);
    put64(h.data() + 40, firstUsable);
    put64(h.data() + 48, lastUsable);
    for (int k = 0; k < 16; ++k) h[56 + k] = static_cast<uint8_t>(seed + k);
    put64(h.data() + 72, entries);
    put32(h.data() + 80, count);
    put32(h.data() + 84, entrySize);
    put32(h.data() + 88, arrayCrc);
    put32(h.data() + 16, seam::crc32(h.data(), 92));
    return h;
  };
  std::vector<uint8_t> mbr(kSector, 0);
  uint8_t* e = &mbr[446];
  e[1] = 0x00;
  e[2] = 0x02;
  e[4] = 0xEE;
  e[5] = 0xFF;
  e[6] = 0xFF;
  e[7] = 0xFF;
  put32(e + 8, 1);
  put32(e + 12, static_cast<uint32_t>(std::min<uint64_t>(total - 1, 0xFFFFFFFFull)));
  mbr[510] = 0x55;
  mbr[511] = 0xAA;
  return writeImage(path, 0, mbr) && writeImage(path, kSector, header(1, total - 1, 2)) &&
         writeImage(path, 2 * kSector, array) && writeImage(path, (lastUsable + 1) * kSector, array) &&
         writeImage(path, (total - 1) * kSector, header(total - 1, 1, lastUsable + 1));
}

// MBR: 440 signature 446 four entries of 16 bytes 510 55h AAh; an entry:
// 0 boot flag 4 type 8 first LBA (4) 12 sector count (4).
bool writeMbr(const std::string& path, const std::vector<ImagePartition>& partitions, uint32_t signature) {
  std::vector<uint8_t> mbr(kSector, 0);
  put32(&mbr[440], signature);
  for (size_t i = 0; i < partitions.size() && i < 4; ++i) {
    uint8_t* e = &mbr[446 + 16 * i];
    e[4] = partitions[i].mbrType;
    put32(e + 8, static_cast<uint32_t>(partitions[i].firstLba));
    put32(e + 12, static_cast<uint32_t>(partitions[i].sectors));
  }
  mbr[510] = 0x55;
  mbr[511] = 0xAA;
  return writeImage(path, 0, mbr);
}

}  // namespace mstest
