// The NVMe translation: health and temperature from the SMART / Health
// Information log page, the rest from the namespace's block device.
#include "linux_host/nvme_scsi.h"

#include <errno.h>
#include <sys/ioctl.h>

#include <algorithm>
#include <cctype>
#include <cstdio>
#include <cstring>

#include "win32/win32.h"

namespace linux_host {

namespace {

constexpr uint8_t kAdminGetLogPage = 0x02;
constexpr uint8_t kLogHealth = 0x02;
constexpr uint32_t kHealthLogBytes = 512;
constexpr uint32_t kAllNamespaces = 0xFFFFFFFFu;
constexpr uint32_t kAdminTimeoutMs = 10000;

constexpr uint8_t kRequestSense = 0x03;
constexpr uint8_t kLogSense = 0x4D;
constexpr uint8_t kLogSupportedPages = 0x00;
constexpr uint8_t kLogTemperature = 0x0D;
constexpr uint8_t kLogInformationalExceptions = 0x2F;
constexpr uint8_t kAscFailurePredicted = 0x5D;

uint8_t celsius(const NvmeHealth& health) {
  const int value = static_cast<int>(health.temperatureKelvin) - 273;
  return static_cast<uint8_t>(std::clamp(value, 0, 254));
}

void finishPage(std::vector<uint8_t>& page, uint8_t code) {
  page[0] = code;
  const size_t length = page.size() - 4;
  page[2] = static_cast<uint8_t>(length >> 8);
  page[3] = static_cast<uint8_t>(length);
}

ScsiAnswer answerIn(const ScsiCommand& command, const std::vector<uint8_t>& answer, uint32_t allocation) {
  ScsiAnswer result;
  result.status = kStatusGood;
  const uint32_t moved = std::min<uint32_t>({command.length, allocation, static_cast<uint32_t>(answer.size())});
  if (moved > 0 && command.data != nullptr) std::memcpy(command.data, answer.data(), moved);
  result.transferred = command.data != nullptr ? moved : 0;
  return result;
}

}  // namespace

namespace {

// The hex digits of `text`, upper case, separators (' ', '-', ':') skipped;
// empty if anything else is in it or if every digit is 0.
std::string hexDigits(const std::string& text) {
  std::string digits;
  bool nonZero = false;
  for (char c : text) {
    if (c == ' ' || c == '-' || c == ':' || c == '\n') continue;
    if (!std::isxdigit(static_cast<unsigned char>(c))) return "";
    digits += static_cast<char>(std::toupper(static_cast<unsigned char>(c)));
    nonZero = nonZero || c != '0';
  }
  return nonZero ? digits : "";
}

// Groups of four digits joined by '_', closed by '.'.
std::string grouped(const std::string& digits) {
  std::string text;
  for (size_t i = 0; i < digits.size(); i += 4) text += (i == 0 ? "" : "_") + digits.substr(i, 4);
  return text + ".";
}

}  // namespace

std::string nvmeUnitSerial(const std::string& serial, uint32_t nsid, const std::string& eui64Hex,
                           const std::string& nguidHex) {
  const std::string nguid = hexDigits(nguidHex);
  if (nguid.size() == 32) return grouped(nguid);
  const std::string eui64 = hexDigits(eui64Hex);
  if (eui64.size() == 16) return grouped(eui64);
  char suffix[16];
  std::snprintf(suffix, sizeof suffix, "_%08X.", nsid);
  return serial + suffix;
}

struct nvme_admin_cmd buildGetLogPage(uint8_t logId, uint32_t nsid, void* buffer, uint32_t length) {
  struct nvme_admin_cmd command;
  std::memset(&command, 0, sizeof(command));
  command.opcode = kAdminGetLogPage;
  command.nsid = nsid;
  command.addr = reinterpret_cast<uintptr_t>(buffer);
  command.data_len = length;
  const uint32_t dwords = length / 4;
  command.cdw10 = logId | ((dwords - 1) & 0xFFFF) << 16;
  command.cdw11 = (dwords - 1) >> 16;
  command.timeout_ms = kAdminTimeoutMs;
  return command;
}

uint32_t IoctlNvmeAdmin::getLogPage(uint8_t logId, uint32_t nsid, uint8_t* out, uint32_t length) {
  if (length == 0 || length % 4 != 0) return ERROR_INVALID_PARAMETER;
  struct nvme_admin_cmd command = buildGetLogPage(logId, nsid, out, length);
  const int result = ::ioctl(fd_, NVME_IOCTL_ADMIN_CMD, &command);
  if (result < 0) return errno == EACCES || errno == EPERM ? ERROR_ACCESS_DENIED : ERROR_IO_DEVICE;
  // A positive result is the command's NVMe status: refused by the device.
  return result == 0 ? ERROR_SUCCESS : ERROR_NOT_SUPPORTED;
}

bool parseHealthLog(const std::vector<uint8_t>& log, NvmeHealth* health) {
  if (log.size() < 6 || health == nullptr) return false;
  health->criticalWarning = log[0];
  health->temperatureKelvin = static_cast<uint16_t>(log[1] | log[2] << 8);
  return true;
}

// Temperature page: parameter 0000h (temperature) and 0001h (reference),
// each: 0..1 code 2 control (03h) 3 length (2) 4 reserved 5 degrees Celsius.
std::vector<uint8_t> temperaturePage(const NvmeHealth& health) {
  std::vector<uint8_t> page = {0, 0, 0, 0, 0x00, 0x00, 0x03, 0x02, 0x00, celsius(health),
                               0x00, 0x01, 0x03, 0x02, 0x00, 0xFF};
  finishPage(page, kLogTemperature);
  return page;
}

// Informational exceptions page: parameter 0000h: 0..1 code 2 control (03h)
// 3 length (4) 4 ASC 5 ASCQ 6 most recent temperature 7 reserved.
std::vector<uint8_t> informationalExceptionsPage(const NvmeHealth& health) {
  std::vector<uint8_t> page = {0,    0,    0,    0,
                               0x00, 0x00, 0x03, 0x04,
                               static_cast<uint8_t>(health.criticalWarning != 0 ? kAscFailurePredicted : 0x00),
                               0x00, celsius(health), 0x00};
  finishPage(page, kLogInformationalExceptions);
  return page;
}

bool NvmeScsiTarget::readHealth(NvmeHealth* health) {
  std::vector<uint8_t> log(kHealthLogBytes, 0);
  if (admin_.getLogPage(kLogHealth, kAllNamespaces, log.data(), kHealthLogBytes) != ERROR_SUCCESS) return false;
  return parseHealthLog(log, health);
}

ScsiAnswer NvmeScsiTarget::execute(const ScsiCommand& command) {
  if (command.cdb != nullptr && command.cdbLength >= 6) {
    if (command.cdb[0] == kRequestSense) return requestSense(command);
    if (command.cdb[0] == kLogSense && command.cdbLength >= 10) return logSense(command);
  }
  return BlockScsiTarget::execute(command);
}

// REQUEST SENSE: NO SENSE, with FAILURE PREDICTION THRESHOLD EXCEEDED when
// the controller reports a critical warning.
ScsiAnswer NvmeScsiTarget::requestSense(const ScsiCommand& command) {
  NvmeHealth health;
  if (!readHealth(&health)) return checkCondition(kSenseHardwareError, 0x44, 0x00);  // internal target failure
  std::vector<uint8_t> sense(18, 0);
  sense[0] = 0x70;
  sense[7] = 10;
  if (health.criticalWarning != 0) sense[12] = kAscFailurePredicted;
  return answerIn(command, sense, command.cdb[4]);
}

ScsiAnswer NvmeScsiTarget::logSense(const ScsiCommand& command) {
  const uint8_t page = command.cdb[2] & 0x3F;
  const uint32_t allocation = static_cast<uint32_t>(command.cdb[7] << 8 | command.cdb[8]);
  if (page == kLogSupportedPages) {
    std::vector<uint8_t> list = {0, 0, 0, 0, kLogSupportedPages, kLogTemperature, kLogInformationalExceptions};
    finishPage(list, kLogSupportedPages);
    return answerIn(command, list, allocation);
  }
  if (page != kLogTemperature && page != kLogInformationalExceptions) {
    return checkCondition(kSenseIllegalRequest, 0x24, 0x00);  // invalid field in CDB
  }
  NvmeHealth health;
  if (!readHealth(&health)) return checkCondition(kSenseHardwareError, 0x44, 0x00);
  return answerIn(command, page == kLogTemperature ? temperaturePage(health) : informationalExceptionsPage(health),
                allocation);
}

}  // namespace linux_host
