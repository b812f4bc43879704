// The bad-sector walks of the recover tool: ScanTool ("scan") reads a whole
// device from sector 0 to its end and lists the sectors that cannot be read;
// ScanAndFixTool ("repair") is the same walk and rewrites each bad sector as
// it finds it. Unmounting the device for a repair is the driver's business.
#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "tools/recover_bad_sectors_operation.h"

class StorageProtocol;

// Counter indices.
enum ScanCounter : int {
  kCounterSectorsRead = 0,
  kCounterBadFound = 1,
  kCounterBadFixed = 2,
  kCounterBadNotFixed = 3,
};

class ScanTool : public RecoverBadSectorsOperation {
 public:
  explicit ScanTool(Tool* owner);
  ~ScanTool() override;

  // Walks the device set by setDevice; both arguments are ignored.
  uint32_t run(DevicePlan& plan, int partitionIndex) override;
  // Writes the aborted line, jumps Progress to "100" and marks the run aborted.
  void abort() override;
  std::string getLog() override { return logText; }
  void clearLog() override { logText.clear(); }
  const uint64_t* getCounters() override { return counters.get(); }
  const std::vector<uint64_t>* getBadSectors() override { return &badSectors; }

  // Called for a sector that failed twice with a media error: 0, or the
  // repair's result.
  virtual uint32_t handleBadSector(uint64_t lba, uint32_t& status);
  virtual void onBadSectorFound(uint64_t lba);
  // Writes the progress line.
  virtual void onProgress(uint8_t percent);
  virtual void addToCounter(int index, int delta);

  // The sector a failed chunk of `count` sectors from `first` resumes from:
  // `reported` when it lies in the chunk, otherwise the chunk's first sector.
  // The raw read's value mixes a sector count with a byte offset; left to
  // steer, it could send the walk backwards (for ever) or far past sectors
  // it never read.
  static uint64_t sectorInChunk(uint64_t reported, uint64_t first, uint64_t count);

 protected:
  ScanTool(Tool* owner, std::string operationName);
  // Allocates the counters if need be and zeroes them.
  void zeroCounters();
  // The readiness check, said to nobody: false when the device can't be read.
  bool deviceIsReady();
  // Progress of a walk at `position` of `span`: the percent in doubles,
  // truncated, kept to 8 bits.
  static uint8_t percentOf(uint64_t position, uint64_t span);
  // Reports a rise of the percent: the progress line, Progress, OnProgress.
  void reportRise(uint8_t percent, uint8_t& lastPercent);

  StorageProtocol* protocol = nullptr;
  std::unique_ptr<uint64_t[]> counters;  // four; null until the first run
  uint32_t singleReadTimeout = 30;       // seconds
  uint32_t chunkReadTimeout = 5;         // seconds
  std::vector<uint64_t> badSectors;
  std::string logText;
};

class ScanAndFixTool : public ScanTool {
 public:
  explicit ScanAndFixTool(Tool* owner);

  // The walk of ScanTool with the rewrite in handleBadSector; with a source
  // scan that found bad sectors, only those sectors are rewritten.
  uint32_t run(DevicePlan& plan, int partitionIndex) override;
  uint32_t handleBadSector(uint64_t lba, uint32_t& status) override;

  // The scan whose list a repair may take instead of walking the device.
  // Nothing in the module sets it; a repair always walks.
  void setSourceScan(RecoverBadSectorsOperation* source) { sourceScan = source; }

 protected:
  // Writes the pattern into the sector and reads it back. Always 0: neither
  // the write, nor the read-back, nor the comparison changes the result, so
  // every found sector counts as fixed.
  uint32_t rewriteSector(uint64_t lba);

 private:
  uint32_t runOverSourceList();

  RecoverBadSectorsOperation* sourceScan = nullptr;
};
