// The protocol of eMMC drives, which are reached as plain disks: it describes
// the device, lists its volumes and reads sectors. SMART, self tests and
// writes do not exist for it; they succeed without doing anything. The
// platform calls are EmmcUtils'.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "protocols/emmc_utils.h"
#include "protocols/storage_protocol.h"

class EmmcProtocol : public StorageProtocol {
 public:
  // `handle` stays the component's, which closes it. `utils` is borrowed; by
  // default the process's own.
  EmmcProtocol(HANDLE deviceHandle, std::string devicePath, EmmcUtils* emmcUtils = getEmmcUtils());
  ~EmmcProtocol() override;

  HANDLE getHandle() override { return handle; }
  // Geometry and descriptor strings into the cache (the cache stays as it was
  // when either fails, without a failure), the cache into `out`, then the
  // volume list: its status is the result. 2 for a null `out`.
  uint32_t getProperties(StorageProtocolProperties* out) override;
  // Through EmmcUtils::readSectors with the cached record; the move between
  // reads is relative (see there). `timeoutSeconds` is not used.
  uint32_t readSectors(uint64_t lba, uint16_t count, uint32_t timeoutSeconds, void* buffer) override;
  // 0 degrees, result 0.
  uint32_t getTemperature(uint8_t* celsius) override;
  // The operations below do nothing and give 0; out arguments keep their value.
  uint32_t startSelfTest(uint8_t code, uint8_t count) override;
  uint32_t getSelfTestProgress(uint8_t* percentDone) override;
  uint32_t getSelfTestStatus(uint8_t* status) override;
  uint32_t abortSelfTest() override;
  // *lba = 0, result 0.
  uint32_t getSelfTestFailingLba(uint64_t* lba) override;
  uint32_t getSmartStatus(uint8_t* healthy) override;
  uint32_t enableSmart(uint8_t enable) override;
  // True, without looking at the device.
  bool isAccessible() override;
  uint32_t writeUncorrectable(uint64_t lba) override;
  uint32_t writeSector(uint64_t lba, void* buffer) override;

  const std::string& getPath() const { return path; }
  EmmcUtils* getUtils() const { return utils; }
  // The volumes as the last successful getProperties listed them.
  const std::vector<StoragePartitionProperties>& getPartitions() const { return partitions; }

 private:
  // listVolumes into `partitions`; on failure they stay as they were.
  uint32_t refreshPartitions();

  HANDLE handle;
  std::string path;
  std::vector<StoragePartitionProperties> partitions;
  EmmcUtils* utils;
};
