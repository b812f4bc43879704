// The eMMC calls on Windows: CreateFile, DeviceIoControl, ReadFile and the
// volume functions, through the win32 seam. No data of its own.
#pragma once

#include <cstdint>
#include <map>
#include <string>
#include <vector>

#include "protocols/emmc_utils.h"

class WinEmmcUtils : public EmmcUtils {
 public:
  uint32_t openDevice(HANDLE* out, std::string path) override;
  uint32_t openForRead(HANDLE* out, std::string path) override;
  uint32_t openForExclusiveRead(HANDLE* out, std::string path) override;
  void closeHandleAt(HANDLE* handle) override;
  void closeDevice(HANDLE handle) override;
  uint32_t getGeometry(HANDLE handle, EmmcGeometry* out) override;
  uint32_t getFileClusterCount(HANDLE file, uint64_t* out) override;
  uint32_t createDirectory(std::string path) override;
  uint32_t moveFileClusters(HANDLE volume, HANDLE file, uint64_t firstTarget, uint32_t clusterCount,
                            uint32_t* error) override;
  uint32_t getDeviceStrings(HANDLE handle, EmmcDeviceStrings* out) override;
  uint32_t readSectors(HANDLE handle, uint64_t lba, uint16_t count, void* buffer,
                       StorageProtocolProperties properties) override;
  uint32_t countUsedSamples(HANDLE volume, uint64_t firstCluster, uint32_t* checked, uint32_t* used,
                            const std::vector<ClusterExtent>& extents, std::map<int32_t, uint32_t>& states) override;
  uint32_t planFreeSpace(TestRunContext* abortSource, HANDLE volume, std::string fileSystem,
                         EmmcSamplePlan* plan) override;
  uint32_t listVolumes(HANDLE handle, std::vector<EmmcVolume>* out) override;
};

// The volume bitmap from `firstCluster` on, as FSCTL_GET_VOLUME_BITMAP gives
// it: the buffer starts at 24 bytes and grows to the size the platform
// reports when it answers 122 or 234. *startCluster is the bitmap's first
// cluster (rounded down by the file system), *clusters the count of bits that
// are in `bits`. 1 on failure.
uint32_t readVolumeBitmap(HANDLE volume, uint64_t firstCluster, uint64_t* startCluster, uint64_t* clusters,
                          std::vector<uint8_t>* bits);
