// SCSI commands to an NVMe namespace, translated as the NVM Express SCSI
// translation reference describes for what the module asks: the health of
// the device from the SMART / Health Information log (REQUEST SENSE, LOG
// SENSE informational exceptions), its temperature (LOG SENSE temperature),
// the log pages supported; everything a block device can answer (INQUIRY
// with the identity sysfs gives, READ CAPACITY, READ, VERIFY, WRITE) is
// served from the namespace's block device as for any disk. The admin
// commands go through NVME_IOCTL_ADMIN_CMD; the builders are pure so that
// they are tested against recorded log pages.
#pragma once

#include <linux/nvme_ioctl.h>

#include <cstdint>
#include <string>
#include <vector>

#include "linux_host/block_scsi.h"

namespace linux_host {

// The admin commands the translation sends.
class NvmeAdmin {
 public:
  virtual ~NvmeAdmin() = default;
  // Get Log Page: `length` bytes of log `logId` into `out`. 0 or a Win32 error.
  virtual uint32_t getLogPage(uint8_t logId, uint32_t nsid, uint8_t* out, uint32_t length) = 0;
};

// Get Log Page (admin opcode 02h): CDW10 bits 7:0 log identifier, bits 31:16
// the number of dwords less one; the data goes to `buffer`.
struct nvme_admin_cmd buildGetLogPage(uint8_t logId, uint32_t nsid, void* buffer, uint32_t length);

class IoctlNvmeAdmin : public NvmeAdmin {
 public:
  explicit IoctlNvmeAdmin(int descriptor) : fd_(descriptor) {}
  uint32_t getLogPage(uint8_t logId, uint32_t nsid, uint8_t* out, uint32_t length) override;

 private:
  int fd_;
};

// What the translation reads of the SMART / Health Information log (02h):
//   0 critical warning  1..2 composite temperature (Kelvin, little-endian)
//   3 available spare  4 spare threshold  5 percentage used
struct NvmeHealth {
  uint8_t criticalWarning = 0;
  uint16_t temperatureKelvin = 0;
};
bool parseHealthLog(const std::vector<uint8_t>& log, NvmeHealth* health);

// LOG SENSE pages from the health log: temperature (0Dh, parameter 0000h
// byte 5 the temperature in Celsius, 0001h the reference, not known: FFh)
// and informational exceptions (2Fh, parameter 0000h: 4 ASC, 5 ASCQ, 6 the
// temperature); a critical warning is a predicted failure, ASC 5Dh.
std::vector<uint8_t> temperaturePage(const NvmeHealth& health);
std::vector<uint8_t> informationalExceptionsPage(const NvmeHealth& health);

// The PRODUCT SERIAL NUMBER of the unit serial number page (80h) as the
// translation forms it from the controller's and the namespace's identity,
// the form Windows' NVMe driver gives the module:
//   a non-zero NGUID  "0123_4567_89AB_CDEF_0123_4567_89AB_CDEF."
//   else a non-zero EUI64  "0025_3852_71B1_4C5F."
//   else the serial number, "_", the namespace id in eight hex digits, "."
// `nguidHex` and `eui64Hex` are the identifiers as hex text (sysfs' "eui" and
// "nguid" attributes); separators are skipped, and a value that is not 32 or
// 16 hex digits, or is all zeros, counts as absent.
std::string nvmeUnitSerial(const std::string& serial, uint32_t nsid, const std::string& eui64Hex,
                           const std::string& nguidHex);

class NvmeScsiTarget : public BlockScsiTarget {
 public:
  // The namespace id is not kept: the health log the translation reads is the
  // controller's (namespace FFFFFFFFh), which every controller answers.
  NvmeScsiTarget(BlockMedium& medium, BlockIdentity identity, NvmeAdmin& admin, uint32_t /*nsid*/)
      : BlockScsiTarget(medium, std::move(identity)), admin_(admin) {}
  ScsiAnswer execute(const ScsiCommand& command) override;

 private:
  ScsiAnswer logSense(const ScsiCommand& command);
  ScsiAnswer requestSense(const ScsiCommand& command);
  bool readHealth(NvmeHealth* health);

  NvmeAdmin& admin_;
};

}  // namespace linux_host
