// Which sectors a run reads: a process-wide listener that every Media tells
// of each range it reads and each range a drive scans for unreadable sectors
// (a self test), so that a test can learn where a run looked. Test support;
// nothing is told while no listener is set.
#pragma once

#include <cstdint>
#include <functional>

namespace sim {

class Media;

using MediaReadListener = std::function<void(const Media& media, uint64_t lba, uint64_t count)>;

// Replaces the listener; an empty one stops the telling.
void setMediaReadListener(MediaReadListener listener);

}  // namespace sim
