// The simulated PC: its clock, journal and disks.
#include "sim/machine.h"

namespace sim {

Completion Disk::admitRawIo(bool write, uint32_t timeoutSeconds) {
  for (const auto& faults : faultPath) {
    if (!faults) continue;
    const Completion c = faults->admit(write ? 0x2A : 0x28, timeoutSeconds);
    if (c != Completion::Done) return c;
  }
  return Completion::Done;
}

Machine::Machine() : clock_(std::make_shared<VirtualClock>()), journal_(std::make_shared<Journal>()) {}

Disk* Machine::findDisk(const std::string& diskName) {
  for (auto& disk : disks) {
    if (disk.name == diskName) return &disk;
  }
  return nullptr;
}

}  // namespace sim
