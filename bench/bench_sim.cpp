// What one 512-byte read costs the simulated PC: ATA PASS-THROUGH(16) with
// READ SECTORS EXT through a USB SAT bridge to the drive and its media, as
// the Windows face hands it on for IOCTL_SCSI_PASS_THROUGH.
#include <benchmark/benchmark.h>

#include <cstdint>
#include <vector>

#include "sim/machine.h"

namespace {

const char* kUsbDisk = R"({"disks": [{"name": "usb", "kind": "ata", "bus": "usb",
    "profile": {"capacitySectors": 3907029168}, "bridge": {"type": "sat"}}]})";

void readThroughSatBridge(benchmark::State& state, bool journal) {
  std::string error;
  auto machine = sim::Machine::fromJsonText(kUsbDisk, &error);
  if (!machine) {
    state.SkipWithError(error.c_str());
    return;
  }
  machine->journal().setEnabled(journal);
  sim::ScsiTarget& bridge = *machine->disks[0].scsi;
  std::vector<uint8_t> buffer(512);
  // Protocol 4 (PIO data-in) with EXTEND, T_DIR | BYT_BLOK | T_LENGTH 2,
  // one sector, LBA in bytes 7-12, READ SECTORS EXT.
  uint8_t cdb[16] = {0x85, 0x09, 0x0E, 0, 0, 0, 1, 0, 0, 0, 0, 0, 0, 0x40, 0x24, 0};
  sim::ScsiRequest request;
  request.cdb = cdb;
  request.cdbLength = 16;
  request.direction = sim::Direction::In;
  request.data = buffer.data();
  request.length = 512;
  request.timeoutSeconds = 30;
  if (bridge.executeScsi(request).transferred != 512) {
    state.SkipWithError("the bridge did not return the sector");
    return;
  }
  uint64_t lba = 0;
  uint64_t n = 0;
  for (auto _ : state) {
    cdb[8] = static_cast<uint8_t>(lba);
    cdb[10] = static_cast<uint8_t>(lba >> 8);
    cdb[12] = static_cast<uint8_t>(lba >> 16);
    const sim::ScsiResponse response = bridge.executeScsi(request);
    benchmark::DoNotOptimize(response.transferred);
    lba = (lba + 7919) & 0xFFFFFF;
    // The journal keeps two entries a read; empty it now and then so that
    // a long run measures the read, not the growth of memory.
    if (journal && (++n & 0xFFF) == 0) machine->journal().clear();
  }
  state.SetItemsProcessed(state.iterations());
}

void BM_Read512ThroughSatBridge(benchmark::State& state) { readThroughSatBridge(state, true); }
void BM_Read512ThroughSatBridgeJournalOff(benchmark::State& state) { readThroughSatBridge(state, false); }

BENCHMARK(BM_Read512ThroughSatBridge);
BENCHMARK(BM_Read512ThroughSatBridgeJournalOff);

}  // namespace
