// CDBs of the log and mode page commands.
#include "commands/scsi/log_mode_commands.h"

namespace {

constexpr uint8_t kModePageFormat = 0x10;  // PF
constexpr uint8_t kModeSenseDbd = 0x08;    // no block descriptors

// The PS bit of a page's first byte, as the SP bit of byte 1. A missing
// record counts as a page that cannot be saved.
uint8_t savePagesBit(const void* record, uint32_t pageOffset) {
  if (record == nullptr) return 0;
  return static_cast<const uint8_t*>(record)[pageOffset] >> 7;
}

}  // namespace

LogSenseSelfTestPage::LogSenseSelfTestPage(void* data, int32_t length) {
  cdbLength = 10;
  cdb[0] = kScsiLogSense;
  cdb[2] = kLogPageCumulative | kLogPageSelfTest;
  if (length >= 1) {
    putBigEndian(7, 2, static_cast<uint32_t>(length));
    setDataIn(data, static_cast<uint32_t>(length));
  }
}

LogSenseTemperaturePage::LogSenseTemperaturePage(void* data, int32_t length) {
  cdbLength = 10;
  cdb[0] = kScsiLogSense;
  cdb[2] = kLogPageCumulative | kLogPageTemperature;
  if (length >= 1) {
    putBigEndian(7, 2, static_cast<uint32_t>(length));
    setDataIn(data, static_cast<uint32_t>(length));
  }
}

LogSenseIECPage::LogSenseIECPage(void* data, int32_t length) {
  cdbLength = 10;
  cdb[0] = kScsiLogSense;
  cdb[2] = kLogPageCumulative | kLogPageInformationalExceptions;
  if (length >= 1) setDataIn(data, static_cast<uint32_t>(length));
}

ModeSense6IECPage::ModeSense6IECPage(void* data, uint32_t length) {
  cdbLength = 6;
  cdb[0] = kScsiModeSense6;
  cdb[1] = kModeSenseDbd;
  cdb[2] = kModePageInformationalExceptions;
  if (length != 0) setDataIn(data, length);
}

ModeSense10IECPage::ModeSense10IECPage(void* data, uint32_t length) {
  cdbLength = 10;
  cdb[0] = kScsiModeSense6;  // deliberately MODE SENSE(6)'s code; see the class comment
  cdb[1] = kModeSenseDbd;
  cdb[2] = kModePageInformationalExceptions;
  if (length != 0) setDataIn(data, length);
}

ModeSelect6IecPage::ModeSelect6IecPage(void* record) {
  cdbLength = 6;
  cdb[0] = kScsiModeSelect6;
  cdb[1] = kModePageFormat | savePagesBit(record, 4);
  cdb[4] = static_cast<uint8_t>(kModeSelect6IecBytes);
  setDataOut(record, kModeSelect6IecBytes);
}

ModeSelect10IecPage::ModeSelect10IecPage(void* record) {
  cdbLength = 10;
  cdb[0] = kScsiModeSelect10;
  cdb[1] = kModePageFormat | savePagesBit(record, 8);
  setDataOut(record, kModeSelect10IecBytes);
}
