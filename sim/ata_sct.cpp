// The ATA drive's SCT command transport: commands written to log 0xE0 (error
// recovery control, feature control, data tables), the SCT status read from
// it and the temperature history table of log 0xE1. The SMART logs that
// carry them are in ata_smart.cpp.
#include <algorithm>
#include <cstring>

#include "sim/ata_drive.h"
#include "sim/ata_drive_internal.h"

namespace sim {

namespace {

void put16(uint8_t* p, uint16_t v) {
  p[0] = static_cast<uint8_t>(v);
  p[1] = static_cast<uint8_t>(v >> 8);
}

}  // namespace

// An SCT command: the key page written to log 0xE0, words little-endian:
//   0 action code (3 error recovery control, 4 feature control, 5 data
//   table), 1 function code, then per action: ERC 2 selection (1 read
//   timer, 2 write timer), 3 value in 100 ms; feature control 2 feature
//   (1 write cache, 2 write cache reordering, 3 temperature logging
//   interval), 3 state, 4 option flags; data table 2 table id (2
//   temperature history).
// A value asked for comes back in Sector Count (7:0) and LBA Low (15:8).
void AtaDrive::sctCommand(Context& c, const uint8_t* key) {
  auto word = [key](int i) { return static_cast<uint16_t>(key[2 * i] | key[2 * i + 1] << 8); };
  const uint16_t action = word(0), function = word(1);
  bool ok = false;
  uint16_t value = 0;
  bool answers = false;
  switch (action) {
    case 3:  // error recovery control
      if (!profile_.sctErrorRecoveryControl || (word(2) != 1 && word(2) != 2)) break;
      if (function == 1) {
        (word(2) == 1 ? ercRead_ : ercWrite_) = word(3);
        ok = true;
      } else if (function == 2) {
        value = word(2) == 1 ? ercRead_ : ercWrite_;
        ok = answers = true;
      }
      break;
    case 4:  // feature control: every feature reports its default state
      if (!profile_.sctFeatureControl || word(2) < 1 || word(2) > 3) break;
      if (function == 1) {
        ok = true;
      } else if (function == 2) {
        value = 1;  // 1: as SET FEATURES leaves it / enabled / one minute
        ok = answers = true;
      } else if (function == 3) {
        value = 0;
        ok = answers = true;
      }
      break;
    case 5:  // data table
      if (function == 1 && word(2) == 2) {
        sctTable_ = 2;
        ok = true;
      }
      break;
    default:
      break;
  }
  if (!ok) {
    sctStatus_ = 0x0004;  // invalid function or parameter
    abort(c);
    return;
  }
  sctAction_ = action;
  sctFunction_ = function;
  sctStatus_ = 0;
  complete(c);
  if (answers) {
    c.response.out.count = static_cast<uint8_t>(value);
    c.response.out.lbaLow = static_cast<uint8_t>(value >> 8);
  }
}

// SCT status (log 0xE0 read), format 3: 0-1 format version, 2-3 SCT
// version, 4-5 SCT level (1), 6-9 status flags, 10 device state (0 active,
// 3 self test in the background), 14-15 status of the last SCT command,
// 16-17 its action and 18-19 function code, 40-47 LBA of a background SCT
// command, 200 current temperature, 201/202 minimum/maximum this power
// cycle, 203/204 lifetime minimum/maximum, 205 maximum operating limit,
// 206-209 over-limit count, 210-213 under-limit count, 214-215 the LBA Mid
// and High of SMART RETURN STATUS (0xC24F or 0x2CF4).
void AtaDrive::buildSctStatus(uint8_t* out) {
  updateBackground();
  const auto temp = [](int t) { return static_cast<uint8_t>(static_cast<int8_t>(std::clamp(t, -127, 127))); };
  put16(out, 0x0003);
  put16(out + 2, 0x0001);
  put16(out + 4, 0x0001);
  out[10] = test_.active ? 0x03 : 0x00;
  put16(out + 14, sctStatus_);
  put16(out + 16, sctAction_);
  put16(out + 18, sctFunction_);
  const int now = profile_.temperatureCelsius;
  out[200] = temp(now);
  out[201] = temp(now);
  out[202] = temp(now);
  out[203] = temp(std::min(profile_.lifetimeMinTemperatureCelsius, now));
  out[204] = temp(std::max(profile_.lifetimeMaxTemperatureCelsius, now));
  out[205] = temp(profile_.maxOperatingTemperatureCelsius);
  put16(out + 214, thresholdExceeded() ? 0x2CF4 : 0xC24F);
}

// SCT temperature history (log 0xE1 after a data-table read of table 2):
// 0-1 format version (2), 2-3 sampling period and 4-5 logging interval in
// minutes, 6 maximum operating, 7 over limit, 8 minimum operating, 9 under
// limit temperatures, 30-31 entries in the ring (128), 32-33 index of the
// newest, 34.. the ring. The drive has held its present temperature for the
// whole ring.
void AtaDrive::buildSctData(uint8_t* out) const {
  const auto temp = [](int t) { return static_cast<uint8_t>(static_cast<int8_t>(std::clamp(t, -127, 127))); };
  constexpr uint16_t kEntries = 128;
  put16(out, 0x0002);
  put16(out + 2, 1);
  put16(out + 4, 1);
  out[6] = temp(profile_.maxOperatingTemperatureCelsius);
  out[7] = temp(profile_.maxOperatingTemperatureCelsius + 5);
  out[8] = temp(0);
  out[9] = temp(-5);
  put16(out + 30, kEntries);
  put16(out + 32, kEntries - 1);
  std::memset(out + 34, temp(profile_.temperatureCelsius), kEntries);
}

}  // namespace sim
