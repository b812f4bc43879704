// The free-space sampler of NTFS volumes on eMMC drives: where the free
// extents of a volume lie, which of them to sample, and whether sampled
// extents have been taken since. Windows calls through the win32 seam.
#include <algorithm>
#include <cstddef>
#include <cstring>

#include "protocols/win_emmc_utils.h"

namespace {

// 5 GiB of samples at most, in extents of 256 clusters.
constexpr uint64_t kSampleBytes = 0x140000000ull;
constexpr uint32_t kExtentClusters = 256;
// A bitmap of more than this many bytes (a volume of 2^33 clusters) is not
// believed.
constexpr uint64_t kMostBitmapBytes = 1ull << 30;
constexpr int kMostBitmapRounds = 8;

bool isExcluded(const EmmcSamplePlan& plan, uint64_t cluster) {
  for (const auto& range : plan.excludedRanges) {
    if (cluster >= range.first && cluster < range.second) return true;
  }
  return false;
}

// Collects the free extents of [zoneStart, zoneEnd] (the end inside) into
// plan->extents[zone] and counts the zone's free clusters.
//
// A run of free clusters starts at the first free cluster after a used one
// (used: its bit is set, or it lies in an excluded range). At extentClusters
// clusters it is emitted and a new run starts at the next cluster; a shorter
// remainder is dropped at the next used cluster. The bitmap begins on a byte,
// so the walk may begin a few clusters before the zone; a run that began
// there emits nothing.
uint32_t collectFreeExtents(TestRunContext* abortSource, HANDLE volume, EmmcSamplePlan* plan, uint64_t zoneStart,
                            uint64_t zoneEnd, size_t zone) {
  uint64_t start = 0;
  uint64_t clusters = 0;
  std::vector<uint8_t> bits;
  const uint32_t status = readVolumeBitmap(volume, zoneStart, &start, &clusters, &bits);
  if (status != kStatusOk) return status;
  uint64_t runFirst = 0;
  uint32_t runLength = 0;
  for (uint64_t byte = 0; byte * 8 < clusters; ++byte) {
    if (start + byte * 8 > zoneEnd) break;
    if (abortSource != nullptr && abortSource->isAbortRequested()) return kStatusEmmcAborted;
    for (uint32_t bit = 0; bit < 8; ++bit) {
      const uint64_t cluster = start + byte * 8 + bit;
      if (cluster > zoneEnd || byte * 8 + bit >= clusters) break;
      const bool used = ((bits[byte] >> bit) & 1) != 0 || isExcluded(*plan, cluster);
      if (used) {
        runLength = 0;  // a shorter remainder is dropped
        continue;
      }
      if (cluster >= zoneStart) ++plan->freeCount[zone];
      if (runLength == 0) runFirst = cluster;
      if (++runLength == plan->extentClusters) {
        if (runFirst >= zoneStart) plan->extents[zone].emplace_back(runFirst, cluster);
        runLength = 0;
      }
    }
  }
  return kStatusOk;
}

}  // namespace

uint32_t readVolumeBitmap(HANDLE volume, uint64_t firstCluster, uint64_t* startCluster, uint64_t* clusters,
                          std::vector<uint8_t>* bits) {
  // VOLUME_BITMAP_BUFFER: 0 StartingLcn, 8 BitmapSize (clusters from
  // StartingLcn to the end of the volume), 16 the bits, bit 0 of byte 0 being
  // StartingLcn.
  constexpr size_t kHeader = offsetof(VOLUME_BITMAP_BUFFER, Buffer);
  STARTING_LCN_INPUT_BUFFER start{};
  start.StartingLcn.QuadPart = static_cast<LONGLONG>(firstCluster);
  std::vector<uint8_t> buffer(sizeof(VOLUME_BITMAP_BUFFER), 0);
  bool done = false;
  for (int round = 0; round < kMostBitmapRounds && !done; ++round) {
    DWORD returned = 0;
    done = DeviceIoControl(volume, FSCTL_GET_VOLUME_BITMAP, &start, sizeof(start), buffer.data(),
                           static_cast<DWORD>(buffer.size()), &returned, nullptr) != FALSE;
    if (done) break;
    const DWORD error = GetLastError();
    if (error != ERROR_INSUFFICIENT_BUFFER && error != ERROR_MORE_DATA) return kStatusNotAvailable;
    VOLUME_BITMAP_BUFFER head{};
    std::memcpy(&head, buffer.data(), kHeader);
    if (head.BitmapSize.QuadPart <= 0) return kStatusNotAvailable;
    const uint64_t bytes = (static_cast<uint64_t>(head.BitmapSize.QuadPart) + 7) / 8;
    if (bytes > kMostBitmapBytes || kHeader + bytes <= buffer.size()) return kStatusNotAvailable;
    buffer.assign(kHeader + bytes, 0);
  }
  if (!done) return kStatusNotAvailable;
  VOLUME_BITMAP_BUFFER head{};
  std::memcpy(&head, buffer.data(), kHeader);
  if (head.StartingLcn.QuadPart < 0 || head.BitmapSize.QuadPart < 0) return kStatusNotAvailable;
  *startCluster = static_cast<uint64_t>(head.StartingLcn.QuadPart);
  // Only the bits that arrived count, whatever the header claims.
  *clusters = std::min<uint64_t>(static_cast<uint64_t>(head.BitmapSize.QuadPart), (buffer.size() - kHeader) * 8);
  bits->assign(buffer.begin() + kHeader, buffer.end());
  return kStatusOk;
}

uint32_t WinEmmcUtils::countUsedSamples(HANDLE volume, uint64_t firstCluster, uint32_t* checked, uint32_t* used,
                                        const std::vector<ClusterExtent>& extents,
                                        std::map<int32_t, uint32_t>& states) {
  if (checked == nullptr || used == nullptr) return kStatusBadArgument;
  uint64_t start = 0;
  uint64_t clusters = 0;
  std::vector<uint8_t> bits;
  const uint32_t status = readVolumeBitmap(volume, firstCluster, &start, &clusters, &bits);
  if (status != kStatusOk) return status;
  for (auto& entry : states) {
    if (entry.second != kExtentToCheck) continue;
    if (entry.first < 0 || static_cast<size_t>(entry.first) >= extents.size()) return kStatusNotAvailable;
    const ClusterExtent& extent = extents[static_cast<size_t>(entry.first)];
    if (extent.first < firstCluster) continue;
    ++*checked;
    for (uint64_t cluster = extent.first; cluster <= extent.second; ++cluster) {
      const uint64_t at = cluster - start;
      if (at >= clusters) return kStatusNotAvailable;  // off the end of the bitmap
      if (((bits[at / 8] >> (at % 8)) & 1) != 0) {
        ++*used;
        entry.second = kExtentFoundUsed;
        break;
      }
      if (cluster == UINT64_MAX) break;
    }
  }
  return kStatusOk;
}

uint32_t WinEmmcUtils::planFreeSpace(TestRunContext* abortSource, HANDLE volume, std::string fileSystem,
                                     EmmcSamplePlan* plan) {
  if (fileSystem != "NTFS" || plan == nullptr) return kStatusBadArgument;
  NTFS_VOLUME_DATA_BUFFER data{};
  DWORD returned = 0;
  if (!DeviceIoControl(volume, FSCTL_GET_NTFS_VOLUME_DATA, nullptr, 0, &data, sizeof(data), &returned, nullptr) ||
      data.BytesPerCluster == 0) {
    return kStatusNotAvailable;
  }
  const uint64_t mftClusters = static_cast<uint64_t>(data.MftValidDataLength.QuadPart) / data.BytesPerCluster;
  const uint64_t mftStart = static_cast<uint64_t>(data.MftStartLcn.QuadPart);
  const uint64_t mirrorStart = static_cast<uint64_t>(data.Mft2StartLcn.QuadPart);
  plan->excludedRanges.clear();
  plan->excludedRanges.emplace_back(mftStart, mftStart + mftClusters);
  plan->excludedRanges.emplace_back(static_cast<uint64_t>(data.MftZoneStart.QuadPart),
                                    static_cast<uint64_t>(data.MftZoneEnd.QuadPart));
  plan->excludedRanges.emplace_back(mirrorStart, mirrorStart + mftClusters);
  plan->bytesPerCluster = data.BytesPerCluster;
  plan->freeClusters = static_cast<uint64_t>(data.FreeClusters.QuadPart);
  plan->totalClusters = static_cast<uint64_t>(data.TotalClusters.QuadPart);

  plan->sampleClusters = std::min<uint64_t>(kSampleBytes / plan->bytesPerCluster, plan->freeClusters);
  plan->firstThirdEnd = plan->totalClusters / 3;
  plan->secondThirdEnd = 2 * plan->totalClusters / 3;
  plan->extentClusters = kExtentClusters;

  struct ZoneBounds {
    uint64_t start;
    uint64_t end;
    size_t zone;
  };
  const ZoneBounds zones[] = {
      {plan->secondThirdEnd, plan->totalClusters, kZoneLastThird},
      {plan->firstThirdEnd, plan->secondThirdEnd, kZoneSecondThird},
      {0, plan->firstThirdEnd, kZoneFirstThird},
  };
  for (const ZoneBounds& bounds : zones) {
    plan->freeCount[bounds.zone] = 0;
    plan->extents[bounds.zone].clear();
    const uint32_t status = collectFreeExtents(abortSource, volume, plan, bounds.start, bounds.end, bounds.zone);
    if (status != kStatusOk) return status;
  }

  size_t totalExtents = 0;
  for (size_t zone = 0; zone < kZoneCount; ++zone) totalExtents += plan->extents[zone].size();
  for (size_t zone = 0; zone < kZoneCount; ++zone) {
    const float share = totalExtents == 0 ? 0.0f
                                          : static_cast<float>(plan->extents[zone].size()) /
                                                static_cast<float>(totalExtents);
    plan->sampleCount[zone] = static_cast<uint32_t>(static_cast<float>(plan->sampleClusters) * share /
                                                    static_cast<float>(plan->extentClusters));
  }
  for (size_t zone = 0; zone < kZoneCount; ++zone) {
    const int64_t maxIndex = static_cast<int64_t>(plan->extents[zone].size()) - 1;
    plan->chosenExtents[zone].clear();
    pickIndices(static_cast<int32_t>(std::min<int64_t>(maxIndex, INT32_MAX)), plan->sampleCount[zone],
                plan->chosenExtents[zone]);
  }
  return kStatusOk;
}
