// Disk-image files for the tests of the Linux host provider: sparse files of
// a given size with a GPT or an MBR written on them, in a temporary folder
// of the test's own that is removed afterwards. Tests touch no other disk.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace mstest {

struct ImagePartition {
  uint64_t firstLba = 0;
  uint64_t sectors = 0;
  uint8_t mbrType = 0x83;  // MBR only
  // GPT only: the type GUID's 16 bytes as stored on disk, and the name.
  std::vector<uint8_t> gptType;
  std::string name;
};

// A folder under the system's temporary folder, removed with its files when
// the object goes.
class TemporaryFolder {
 public:
  TemporaryFolder();
  ~TemporaryFolder();
  TemporaryFolder(const TemporaryFolder&) = delete;
  TemporaryFolder& operator=(const TemporaryFolder&) = delete;
  const std::string& path() const { return path_; }
  std::string file(const std::string& name) const { return path_ + "/" + name; }

 private:
  std::string path_;
};

// A sparse file of `bytes` bytes, all zero. False when it can't be made.
bool makeSparseImage(const std::string& path, uint64_t bytes);

// Writes a protective MBR, the primary and backup GPT headers and entry
// arrays (128 entries of 128 bytes) with `partitions`, and a disk GUID made
// from `seed`, onto an image of 512-byte sectors.
bool writeGpt(const std::string& path, const std::vector<ImagePartition>& partitions, uint32_t seed = 1);

// Writes an MBR with up to four primary partitions and signature `signature`.
bool writeMbr(const std::string& path, const std::vector<ImagePartition>& partitions, uint32_t signature);

// Bytes of the image at `offset`; empty when they can't be read.
std::vector<uint8_t> readImage(const std::string& path, uint64_t offset, size_t length);
bool writeImage(const std::string& path, uint64_t offset, const std::vector<uint8_t>& bytes);

// The GPT type GUID of a basic data partition (EBD0A0A2-B9E5-4433-87C0-
// 68B6B72699C7) and of a Linux file system (0FC63DAF-8483-4772-8E79-
// 3D69D8477DE4), as stored on disk (first three fields little-endian).
std::vector<uint8_t> basicDataType();
std::vector<uint8_t> linuxFileSystemType();

}  // namespace mstest
