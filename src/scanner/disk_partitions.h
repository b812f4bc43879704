// What lies on a disk: its partition scheme, its partitions and where they are
// mounted. Filled by the scanner, shown by the component and used by the tools.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "win32/win32.h"

struct PartitionRecord {
  std::string type;  // PRIMARY/EXTENDED/LOGICAL on MBR; the GPT type name on GPT
  std::string label;
  std::vector<std::string> mountPoints;       // root paths such as C:\ .
  std::vector<std::string> otherMountPoints;  // stays empty
  std::string fileSystem;
  std::string volumeSerial;  // 8 upper-case hexadecimal digits
  uint64_t index = 0;        // PartitionNumber
  uint64_t size = 0;
  uint64_t freeBytes = 0;
  uint64_t usedBytes = 0;
  uint64_t startOffset = 0;
  uint64_t clusterOffset = 0;
  uint32_t mountOptionA = 0;
  uint32_t mountOptionB = 0;
  uint32_t clusterSize = 0;  // 0 when unknown
  uint8_t isUnmounted = 0;
  HANDLE unmountHandle = nullptr;
};

struct DiskPartitions {
  uint32_t diskNumber = 0;
  uint64_t unallocatedBytes = 0;
  std::string schemeName;  // MBR, GPT, RAW or UNKNOWN
  std::vector<PartitionRecord> records;
};
