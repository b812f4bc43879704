// The platform calls behind an eMMC drive, which offers no ATA or SCSI
// pass-through here and is reached as a plain disk: geometry, the storage
// descriptor's strings, raw sector reads, its volumes, and a free-space
// sampler for NTFS volumes. The Windows implementation is WinEmmcUtils; the
// protocol on top is EmmcProtocol.
#pragma once

#include <cstddef>
#include <cstdint>
#include <map>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include "module_storage/test.h"
#include "protocols/storage_protocol.h"
#include "win32/win32.h"

// Statuses of the eMMC calls, beside the shared ones (kStatusOk,
// kStatusNotAvailable, kStatusIoctlFailed).
enum EmmcStatus : uint32_t {
  kStatusEmmcAborted = 11,
  kStatusEmmcOpenFailed = 31,
  kStatusEmmcGeometryFailed = 97,
  kStatusEmmcReadFailed = 98,
  kStatusEmmcBeyondEnd = 99,
};

// mediaKind of EmmcGeometry.
enum EmmcMediaKind : uint32_t {
  kEmmcMediaRemovable = 0,
  kEmmcMediaFixed = 1,
  kEmmcMediaOther = 2,
};

struct EmmcGeometry {
  uint64_t cylinders = 0;
  uint32_t mediaKind = kEmmcMediaOther;
  uint32_t tracksPerCylinder = 0;
  uint32_t sectorsPerTrack = 0;
  uint32_t bytesPerSector = 0;
  uint64_t totalSectors = 0;  // cylinders x tracks x sectors a track
};

constexpr size_t kEmmcDeviceStringSize = 500;

// The storage descriptor's strings, each NUL-terminated.
struct EmmcDeviceStrings {
  char serialNumber[kEmmcDeviceStringSize] = {};
  char productId[kEmmcDeviceStringSize] = {};
  char vendorId[kEmmcDeviceStringSize] = {};
  char productRevision[kEmmcDeviceStringSize] = {};
};

// One volume with an extent on the drive.
struct EmmcVolume {
  std::string volumePath;  // \\.\C:
  std::string rootPath;    // C:\ .
  std::string fileSystem;
};

// A range of clusters, first and last (both inside).
using ClusterExtent = std::pair<uint64_t, uint64_t>;

// Zones of a sampled volume, in the order of the plan's arrays.
enum EmmcZone : size_t {
  kZoneFirstThird = 0,
  kZoneSecondThird = 1,
  kZoneLastThird = 2,
  kZoneCount = 3,
};

// The working record of planFreeSpace.
struct EmmcSamplePlan {
  uint32_t bytesPerCluster = 0;
  uint64_t freeClusters = 0;
  uint64_t totalClusters = 0;
  uint64_t sampleClusters = 0;
  uint64_t firstThirdEnd = 0;
  uint64_t secondThirdEnd = 0;
  uint64_t freeCount[kZoneCount] = {};
  uint32_t extentClusters = 0;
  std::vector<ClusterExtent> extents[kZoneCount];
  uint32_t sampleCount[kZoneCount] = {};
  // Half-open ranges [first, end) that are never sampled: the MFT, its zone
  // and its mirror.
  std::vector<std::pair<uint64_t, uint64_t>> excludedRanges;
  std::set<int32_t> chosenExtents[kZoneCount];
};

// States of a sampled extent in countUsedSamples' map.
enum EmmcExtentState : uint32_t {
  kExtentToCheck = 2,
  kExtentFoundUsed = 3,
};

// Stateless. Handles passed in stay the caller's. A string passed by value is
// consumed. No virtual destructor: the one object is never deleted through
// this interface.
class EmmcUtils {
 public:
  // Read and write, shared read and write. 31 when no handle came back.
  virtual uint32_t openDevice(HANDLE* out, std::string path) = 0;
  // Read only, shared read and write.
  virtual uint32_t openForRead(HANDLE* out, std::string path) = 0;
  // Read only, shared read only.
  virtual uint32_t openForExclusiveRead(HANDLE* out, std::string path) = 0;
  virtual void closeHandleAt(HANDLE* handle) = 0;
  virtual void closeDevice(HANDLE handle) = 0;
  // 97 when the drive does not tell its geometry.
  virtual uint32_t getGeometry(HANDLE handle, EmmcGeometry* out) = 0;
  // The clusters a file holds, over all its extents; 1 on failure.
  virtual uint32_t getFileClusterCount(HANDLE file, uint64_t* out) = 0;
  // Makes a directory and its parents; one that exists already is success.
  virtual uint32_t createDirectory(std::string path) = 0;
  // Moves the file's clusters from its first on to `firstTarget`; 1 on
  // failure with the platform's error in *error.
  virtual uint32_t moveFileClusters(HANDLE volume, HANDLE file, uint64_t firstTarget, uint32_t clusterCount,
                                    uint32_t* error) = 0;
  // 34 when the storage descriptor cannot be read.
  virtual uint32_t getDeviceStrings(HANDLE handle, EmmcDeviceStrings* out) = 0;
  // Reads `count` sectors of properties.physicalSectorSize. 99 for an lba
  // beyond properties.sectorCount, 98 when the move or the read fails.
  virtual uint32_t readSectors(HANDLE handle, uint64_t lba, uint16_t count, void* buffer,
                               StorageProtocolProperties properties) = 0;
  // Checks the extents whose state in `states` (keyed by index into
  // `extents`) is kExtentToCheck and that start at or after `firstCluster`:
  // *checked counts them, *used those with a cluster in use, whose state
  // becomes kExtentFoundUsed. 1 when an extent runs off the bitmap.
  virtual uint32_t countUsedSamples(HANDLE volume, uint64_t firstCluster, uint32_t* checked, uint32_t* used,
                                    const std::vector<ClusterExtent>& extents,
                                    std::map<int32_t, uint32_t>& states) = 0;
  // Picks sample extents of free space over a whole NTFS volume (see
  // emmc_free_space.cpp). Non-zero for another file system; 11 when
  // `abortSource` asks to stop. A null `abortSource` never does.
  virtual uint32_t planFreeSpace(TestRunContext* abortSource, HANDLE volume, std::string fileSystem,
                                 EmmcSamplePlan* plan) = 0;
  // The fixed volumes with an extent on the drive behind `handle`; 1 when the
  // drive does not tell its number.
  virtual uint32_t listVolumes(HANDLE handle, std::vector<EmmcVolume>* out) = 0;

 protected:
  EmmcUtils() = default;
  ~EmmcUtils() = default;
};

// The process's eMMC calls. The object is stateless; it lives as long as the
// process.
EmmcUtils* getEmmcUtils();

// Chooses `count` distinct indices from 0 to maxIndex into `chosen`, always
// the same ones for the same arguments: an MT19937 seeded with its default
// seed 5489 on every call. When count is at least maxIndex, the indices 0 to
// maxIndex - 1 are taken (for a maxIndex of at least 1) and nothing is drawn.
void pickIndices(int32_t maxIndex, uint32_t count, std::set<int32_t>& chosen);

// One string of a storage descriptor of `size` bytes at `offset` into
// `destination` (`destinationSize` bytes, NUL-terminated), trimmed. Empty for
// a null descriptor, a zero offset or one beyond the record.
void decodeDeviceString(uint8_t* descriptor, size_t size, uint32_t offset, char* destination,
                        size_t destinationSize);
// Removes leading and trailing white space in place, unless the text has a
// byte outside 7-bit ASCII.
void trimDeviceString(char* text);
