// The ATA drive's statistics logs: device statistics (log 4), pending
// defects (log 0x0C) and SATA phy event counters (log 0x11). The SMART logs
// and self tests are in ata_smart.cpp.
#include <algorithm>
#include <cstring>

#include "sim/ata_drive.h"
#include "sim/ata_drive_internal.h"

namespace sim {

namespace {

void putLe(uint8_t* p, uint64_t v, int bytes) {
  for (int i = 0; i < bytes; ++i) p[i] = static_cast<uint8_t>(v >> (8 * i));
}

// One device statistic: bytes 0-5 the value, byte 7 the flags (7 supported,
// 6 valid).
void putStatistic(uint8_t* p, uint64_t value) {
  putLe(p, value & 0xFFFFFFFFFFFFULL, 6);
  p[7] = 0xC0;
}

uint8_t celsius(int t) { return static_cast<uint8_t>(static_cast<int8_t>(std::clamp(t, -128, 127))); }

}  // namespace

// Device statistics (log 4), each page opening with a header qword: 0-1
// revision (1), 2 page number.
//   page 0 (supported pages): 8 the number of entries, 9.. the page numbers
//   page 1 (general): 8 lifetime power-on resets, 16 power-on hours, 24
//     logical sectors written, 32 write commands, 40 logical sectors read,
//     48 read commands
//   page 5 (temperature): 8 current, 16/24 short/long term averages (the
//     current), 32 highest, 40 lowest, 48-72 highest/lowest averages, 80
//     minutes over the limit, 88 the maximum operating temperature, 96
//     minutes under, 104 the minimum operating temperature
void AtaDrive::buildDeviceStatistics(uint16_t page, uint8_t* out) const {
  out[0] = 0x01;
  out[2] = static_cast<uint8_t>(page);
  switch (page) {
    case 0:
      out[8] = 3;
      out[9] = 0x00;
      out[10] = 0x01;
      out[11] = 0x05;
      break;
    case 1: {
      uint64_t cycles = profile_.powerCycles;
      if (cycles == 0) {
        for (const SmartAttribute& a : profile_.attributes) {
          if (a.id == 12) cycles = a.raw & 0xFFFFFFFF;
        }
      }
      putStatistic(out + 8, cycles);
      putStatistic(out + 16, lifetimeHours());
      putStatistic(out + 24, profile_.sectorsWritten);
      putStatistic(out + 32, profile_.sectorsWritten / 8);
      putStatistic(out + 40, profile_.sectorsRead);
      putStatistic(out + 48, profile_.sectorsRead / 8);
      break;
    }
    case 5: {
      const int now = profile_.temperatureCelsius;
      const uint64_t offsets[] = {8, 16, 24, 48, 56, 64, 72};
      for (uint64_t at : offsets) putStatistic(out + at, celsius(now));
      putStatistic(out + 32, celsius(std::max(profile_.lifetimeMaxTemperatureCelsius, now)));
      putStatistic(out + 40, celsius(std::min(profile_.lifetimeMinTemperatureCelsius, now)));
      putStatistic(out + 80, 0);
      putStatistic(out + 88, celsius(profile_.maxOperatingTemperatureCelsius));
      putStatistic(out + 96, 0);
      putStatistic(out + 104, celsius(0));
      break;
    }
    default:
      break;
  }
}

// Pending defects (log 0x0C): page 0 opens with 0-3 the number of entries;
// the descriptors follow at 16 (31 on page 0, 32 on each page after), 16
// bytes each: 0-3 power-on hours when the defect was found (FFFFFFFFh: not
// known), 8-15 its LBA. The entries are the sectors the medium cannot read.
void AtaDrive::buildPendingDefects(uint16_t page, uint8_t* out) const {
  std::vector<uint64_t> lbas;
  for (const auto& [lba, kind] : media_->unreadableSectors()) {
    if (kind == UnreadableKind::Pending) lbas.push_back(lba);
  }
  std::sort(lbas.begin(), lbas.end());
  if (page == 0) putLe(out, lbas.size(), 4);
  const size_t firstIndex = page == 0 ? 0 : 31 + size_t{32} * (page - 1);
  const size_t slots = page == 0 ? 31 : 32;
  for (size_t i = 0; i < slots && firstIndex + i < lbas.size(); ++i) {
    uint8_t* d = out + (page == 0 ? 16 : 0) + 16 * i;
    putLe(d, 0xFFFFFFFF, 4);
    putLe(d + 8, lbas[firstIndex + i], 8);
  }
}

// SATA phy event counters (log 0x11): 0-3 reserved, then counters of an
// identifier word (bits 14:12 the value's size in words, 11:0 the event)
// and the value, ended by identifier 0; 511 checksum. The link has been
// clean since power-on but for the one COMRESET that started it.
void AtaDrive::buildSataPhyCounters(uint8_t* out) const {
  struct Counter {
    uint16_t id;
    int words;
    uint32_t value;
  };
  const Counter counters[] = {
      {0x0001, 2, 0},  // commands failed by an ICRC error
      {0x0002, 2, 0},  // R_ERR answers to data FISes
      {0x0003, 2, 0},  // R_ERR answers to device-to-host data FISes
      {0x0004, 2, 0},  // R_ERR answers to host-to-device data FISes
      {0x0005, 2, 0},  // R_ERR answers to non-data FISes
      {0x0006, 2, 0},  // R_ERR answers to device-to-host non-data FISes
      {0x0007, 2, 0},  // R_ERR answers to host-to-device non-data FISes
      {0x0008, 2, 0},  // device-to-host non-data FIS retries
      {0x0009, 2, 1},  // transitions from drive PhyRdy to PhyNRdy
      {0x000A, 2, 1},  // register FISes sent for a COMRESET
      {0x000B, 2, 0},  // CRC errors within host-to-device FISes
      {0x000D, 2, 0},  // non-CRC errors within host-to-device FISes
  };
  size_t at = 4;
  for (const Counter& c : counters) {
    putLe(out + at, static_cast<uint16_t>(c.id | c.words << 12), 2);
    putLe(out + at + 2, c.value, 2 * c.words);
    at += 2 + 2 * static_cast<size_t>(c.words);
  }
  sealChecksum(out);
}

}  // namespace sim
