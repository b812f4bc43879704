// A set of ranges [first, end) of 64-bit numbers, kept merged: the clusters
// in use on a simulated volume, or the byte ranges of a file that hold data.
// A volume of several TiB costs a few map entries, not a bitmap.
#pragma once

#include <cstdint>
#include <map>
#include <utility>
#include <vector>

namespace sim {
namespace windows {

class ClusterMap {
 public:
  void add(uint64_t first, uint64_t count);
  void remove(uint64_t first, uint64_t count);
  bool contains(uint64_t value) const;
  // True when every value of [first, first + count) is in the set.
  bool containsAll(uint64_t first, uint64_t count) const;
  uint64_t total() const { return total_; }
  // Takes `count` values that are not in the set, lowest first, below `limit`;
  // gives the runs taken, or an empty list (and takes nothing) when there are
  // too few.
  std::vector<std::pair<uint64_t, uint64_t>> allocate(uint64_t count, uint64_t limit);
  const std::map<uint64_t, uint64_t>& ranges() const { return ranges_; }
  void clear() {
    ranges_.clear();
    total_ = 0;
  }

 private:
  std::map<uint64_t, uint64_t> ranges_;  // first -> end
  uint64_t total_ = 0;
};

}  // namespace windows
}  // namespace sim
