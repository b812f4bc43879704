// LOG SENSE, MODE SENSE and MODE SELECT of the pages the module reads and
// writes: the self-test log, the temperature log and the informational
// exceptions (IEC) log and control page. What the pages mean is the protocol's.
#pragma once

#include <cstdint>

#include "commands/scsi/scsi_cmd.h"

// Byte 2 of LOG SENSE: page control 01b (cumulative values) in bits 7-6 above
// the page code.
constexpr uint8_t kLogPageCumulative = 0x40;
constexpr uint8_t kLogPageSelfTest = 0x10;
constexpr uint8_t kLogPageTemperature = 0x0D;
constexpr uint8_t kLogPageInformationalExceptions = 0x2F;
// Mode page of the informational exceptions control.
constexpr uint8_t kModePageInformationalExceptions = 0x1C;

// LOG SENSE of the self-test results page. A length below 1 means no data phase.
//   [0]=0x4D [2]=0x50 [7..8]=length
class LogSenseSelfTestPage : public ScsiCmd {
 public:
  LogSenseSelfTestPage(void* buffer, int32_t length);
};

// LOG SENSE of the temperature page. A length below 1 means no data phase.
//   [0]=0x4D [2]=0x4D [7..8]=length
class LogSenseTemperaturePage : public ScsiCmd {
 public:
  LogSenseTemperaturePage(void* buffer, int32_t length);
};

// LOG SENSE of the informational exceptions page. The allocation length in the
// CDB deliberately stays 0 while `dataLength` holds the length: the CDB is
// complete before the length is stored, and that order is kept as it is.
//   [0]=0x4D [2]=0x6F
class LogSenseIECPage : public ScsiCmd {
 public:
  LogSenseIECPage(void* buffer, int32_t length);
};

// MODE SENSE(6) of the IEC control page, block descriptors off. Its allocation
// length stays 0, as in LogSenseIECPage. A length of 0 means no data phase.
//   [0]=0x1A [1]=0x08 (DBD) [2]=0x1C
class ModeSense6IECPage : public ScsiCmd {
 public:
  ModeSense6IECPage(void* buffer, uint32_t length);
};

// The ten-byte form. It deliberately carries MODE SENSE(6)'s code 0x1A in a
// ten-byte CDB (not 0x5A), allocation length 0 as above.
//   [0]=0x1A [1]=0x08 [2]=0x1C
class ModeSense10IECPage : public ScsiCmd {
 public:
  ModeSense10IECPage(void* buffer, uint32_t length);
};

// MODE SELECT(6) of a 16-byte IEC record (4-byte header, 12-byte page). SP is
// set when the page says it is saveable (PS, top bit of the page's first byte,
// record byte 4):
//   [0]=0x15 [1]=0x10 (PF) | PS [4]=16
class ModeSelect6IecPage : public ScsiCmd {
 public:
  explicit ModeSelect6IecPage(void* buffer);
};

// MODE SELECT(10) of a 20-byte IEC record (8-byte header, page at byte 8). The
// parameter list length stays 0 while `dataLength` is 20; that is kept.
//   [0]=0x55 [1]=0x10 (PF) | PS of record byte 8
class ModeSelect10IecPage : public ScsiCmd {
 public:
  explicit ModeSelect10IecPage(void* buffer);
};

constexpr uint32_t kModeSelect6IecBytes = 16;
constexpr uint32_t kModeSelect10IecBytes = 20;
