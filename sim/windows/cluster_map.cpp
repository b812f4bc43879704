// Merged ranges of 64-bit numbers.
#include "sim/windows/cluster_map.h"

#include <algorithm>

namespace sim {
namespace windows {

void ClusterMap::add(uint64_t first, uint64_t count) {
  if (count == 0) return;
  uint64_t end = first + count;
  remove(first, count);  // so that the total counts each value once
  total_ += count;
  auto next = ranges_.lower_bound(first);
  if (next != ranges_.begin()) {
    auto previous = std::prev(next);
    if (previous->second == first) {
      first = previous->first;
      ranges_.erase(previous);
    }
  }
  if (next != ranges_.end() && next->first == end) {
    end = next->second;
    ranges_.erase(next);
  }
  ranges_[first] = end;
}

void ClusterMap::remove(uint64_t first, uint64_t count) {
  if (count == 0) return;
  const uint64_t end = first + count;
  auto it = ranges_.lower_bound(first);
  if (it != ranges_.begin()) --it;
  while (it != ranges_.end() && it->first < end) {
    const uint64_t rangeFirst = it->first;
    const uint64_t rangeEnd = it->second;
    if (rangeEnd <= first) {
      ++it;
      continue;
    }
    it = ranges_.erase(it);
    const uint64_t cutFirst = std::max(rangeFirst, first);
    const uint64_t cutEnd = std::min(rangeEnd, end);
    total_ -= cutEnd - cutFirst;
    if (rangeFirst < first) ranges_[rangeFirst] = first;
    if (rangeEnd > end) it = ranges_.emplace(end, rangeEnd).first;
  }
}

bool ClusterMap::contains(uint64_t value) const { return containsAll(value, 1); }

bool ClusterMap::containsAll(uint64_t first, uint64_t count) const {
  auto it = ranges_.upper_bound(first);
  if (it == ranges_.begin()) return count == 0;
  --it;
  return it->first <= first && it->second >= first + count;
}

std::vector<std::pair<uint64_t, uint64_t>> ClusterMap::allocate(uint64_t count, uint64_t limit) {
  std::vector<std::pair<uint64_t, uint64_t>> runs;
  if (count == 0) return runs;
  uint64_t cursor = 0;
  uint64_t remaining = count;
  auto take = [&](uint64_t from, uint64_t to) {
    const uint64_t n = std::min(remaining, to - from);
    if (n > 0) {
      runs.emplace_back(from, n);
      remaining -= n;
    }
  };
  for (const auto& range : ranges_) {
    if (remaining == 0 || cursor >= limit) break;
    if (range.first > cursor) take(cursor, std::min(range.first, limit));
    cursor = std::max(cursor, range.second);
  }
  if (remaining > 0 && cursor < limit) take(cursor, limit);
  if (remaining > 0) return {};
  for (const auto& run : runs) add(run.first, run.second);
  return runs;
}

}  // namespace windows
}  // namespace sim
