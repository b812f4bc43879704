// A Linux host disk as bytes: a block device or a disk-image file, opened by
// path. Reads use pread on a descriptor opened read-only; on a block device
// whole-sector reads go through a second descriptor opened with O_DIRECT, so
// that a read test reaches the medium and not the page cache. The descriptor
// for writing is opened only when a write comes, so that a disk nobody writes
// to is never open for writing.
#pragma once

#include <cstdint>
#include <string>

namespace linux_host {

class BlockMedium {
 public:
  virtual ~BlockMedium() = default;
  virtual uint32_t logicalSectorSize() const = 0;
  virtual uint32_t physicalSectorSize() const = 0;
  virtual uint64_t sectorCount() const = 0;
  // Moves `length` bytes at `offset`. 0, or the Win32 error: ERROR_CRC when
  // the device could not read, ERROR_SECTOR_NOT_FOUND past the end,
  // ERROR_ACCESS_DENIED without the right to write.
  virtual uint32_t read(uint64_t offset, uint8_t* out, uint32_t length) = 0;
  virtual uint32_t write(uint64_t offset, const uint8_t* in, uint32_t length) = 0;
};

class FileMedium : public BlockMedium {
 public:
  ~FileMedium() override;
  // Opens `path` for reading. A block device reports its own sector sizes
  // and length (BLKSSZGET, BLKPBSZGET, BLKGETSIZE64); a regular file has
  // 512-byte sectors and as many whole sectors as it holds. 0 or the Win32
  // error of the open (ERROR_ACCESS_DENIED without the rights,
  // ERROR_FILE_NOT_FOUND, ERROR_NOT_READY for a device without medium).
  uint32_t open(const std::string& path);
  bool isBlockDevice() const { return blockDevice_; }
  int descriptor() const { return readFd_; }

  uint32_t logicalSectorSize() const override { return logical_; }
  uint32_t physicalSectorSize() const override { return physical_; }
  uint64_t sectorCount() const override { return logical_ == 0 ? 0 : bytes_ / logical_; }
  uint32_t read(uint64_t offset, uint8_t* out, uint32_t length) override;
  uint32_t write(uint64_t offset, const uint8_t* in, uint32_t length) override;

 private:
  std::string path_;
  uint32_t readDirect(uint64_t offset, uint8_t* out, uint32_t length);

  int readFd_ = -1;
  int directFd_ = -1;  // O_DIRECT, block devices only; -1 when refused
  int writeFd_ = -1;
  bool blockDevice_ = false;
  uint32_t logical_ = 512;
  uint32_t physical_ = 512;
  uint64_t bytes_ = 0;
};

// The Win32 error for an errno of open, read or an ioctl.
uint32_t win32ErrorOf(int error);

}  // namespace linux_host
