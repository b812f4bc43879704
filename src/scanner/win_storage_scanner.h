// The scanner on Windows: every control code that concerns enumeration goes
// out from here, on handles the device service opens. The device listing
// itself, and how paths are formed, is the device service's business.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "scanner/storage_scanner.h"

// The statuses of the scanner's queries.
constexpr uint32_t kScanOk = 0;
constexpr uint32_t kScanFailed = 1;             // a query found no path that answered
constexpr uint32_t kScanBufferTooSmall = 2;     // a descriptor buffer below the 40-byte record
constexpr uint32_t kScanControlCodeFailed = 34;  // the layout or device number query of getPartitions

class WinStorageScanner : public StorageScanner {
 public:
  WinStorageScanner() = default;
  ~WinStorageScanner() override = default;

  uint32_t scanDevices(DiskMap& out) override;
  uint32_t getLocation(uint32_t disk, uint32_t* location) override;
  uint32_t getPartitions(uint32_t disk, DiskPartitions* out, uint64_t diskBytes) override;
  uint32_t getDeviceNumberText(uint32_t disk, std::string* out) override;
  uint32_t isRemovable(uint32_t disk, uint8_t* removable) override;
  uint32_t getBusKind(uint32_t disk, uint32_t* kind) override;
  // Uses the mount point and the handle only.
  uint32_t unmountVolume(std::string mountPoint, std::vector<std::string>* names, HANDLE* out, uint32_t* optionA,
                         uint32_t* optionB, bool force) override;
  // Uses the handle only.
  uint32_t remountVolume(std::string volumeName, std::vector<std::string> names, HANDLE handle,
                         std::string fileSystem, uint32_t optionA, uint32_t optionB) override;

  // The size of the disk's storage device descriptor (its Size word), 0 when
  // no path answered. 0 on the first path that answers, 1 when the last one
  // failed; 0 with *size 0 for a disk without paths.
  uint32_t queryDescriptorSize(uint32_t disk, uint64_t* size);
  // The descriptor itself into `buffer` of `size` bytes: 2 for a size below
  // the 40-byte record, 0 on the first path that answers, else 1.
  uint32_t queryDescriptor(uint32_t disk, uint8_t* buffer, uint64_t size);
  // SMART_GET_VERSION: *flag is bit 0 of fCapabilities (the drive answers
  // IDENTIFY). 0 when a path answered, 1 when none did.
  uint32_t hasIdeIdentify(uint32_t disk, uint8_t* flag);
  // A descriptor that names an Intel RAID volume: vendor text starting with
  // "intel" and product text starting with "raid", in any case. Offsets or
  // strings that fall outside the buffer make it false.
  static bool isIntelRaid(const std::vector<uint8_t>& descriptor);

  // Parts of getPartitions, in the order it runs them.
  void parseLayout(const uint8_t* layout, size_t layoutBytes, DiskPartitions* out) const;
  void matchVolumes(DiskPartitions* out);
  void fillVolumeData(const std::string& root, PartitionRecord* record);
  static void readClusterSize(const std::string& root, PartitionRecord* record);
  static void classifyLogicalPartitions(DiskPartitions* out);
  static void computeUnallocated(DiskPartitions* out, uint64_t diskBytes);

 private:
  // The disk's paths in scan order; an unknown disk gets an empty entry.
  const std::vector<std::string>& pathsOf(uint32_t disk) { return diskMap[disk]; }
  // Reads the whole descriptor: size query, then the query itself. False
  // when either fails.
  bool readDescriptor(uint32_t disk, std::vector<uint8_t>* descriptor);
};
