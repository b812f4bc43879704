// The SCSI translation of an NVMe namespace.
#include "sim/nvme_disk.h"

#include <cstdio>

namespace sim {

namespace {

// "XXXX_XXXX_XXXX_XXXX." : the EUI64 as the translation writes a serial
// number when the namespace has one.
std::string formatEui64(uint64_t eui) {
  char text[24];
  std::snprintf(text, sizeof text, "%04X_%04X_%04X_%04X.", static_cast<unsigned>(eui >> 48 & 0xFFFF),
                static_cast<unsigned>(eui >> 32 & 0xFFFF), static_cast<unsigned>(eui >> 16 & 0xFFFF),
                static_cast<unsigned>(eui & 0xFFFF));
  return text;
}

}  // namespace

ScsiProfile scsiProfileOf(const NvmeProfile& nvme) {
  ScsiProfile p;
  p.vendor = "NVMe";
  p.product = nvme.model.substr(0, 16);
  p.revision = nvme.firmware.substr(0, 4);
  p.serial = nvme.eui64 != 0 ? formatEui64(nvme.eui64) : nvme.serial + "_00000001.";
  p.wwn = nvme.eui64;
  p.versionDescriptors = {0x0460, 0x04C0};
  p.rotationRate = 1;
  p.formFactor = 0;
  p.selfTestSupported = false;
  p.extendedTestSeconds = 0;
  p.backgroundScanSupported = false;
  p.referenceTemperatureCelsius = static_cast<int>(nvme.warningTemperatureKelvin) - 273;
  p.mrie = 6;
  p.healthQuirks = nvme.healthQuirks;
  p.iecFlags = 0x10;  // EWASC: the controller warns of its temperature (critical warning bit 1)
  return p;
}

NvmeDisk::NvmeDisk(NvmeProfile profile, std::shared_ptr<Media> media, std::shared_ptr<VirtualClock> clock)
    : ScsiDrive(scsiProfileOf(profile), std::move(media), std::move(clock)), nvme_(std::move(profile)) {
  deriveScsiView();
}

// Temperature: the composite temperature in Celsius, the reference
// temperature WCTEMP in Celsius (in scsiProfileOf). Informational
// exceptions: any critical warning bit is a predicted failure (ASC 0x5D).
void NvmeDisk::deriveScsiView() {
  ScsiProfile& p = profile();
  p.temperatureCelsius = static_cast<int>(nvme_.health.compositeTemperatureKelvin) - 273;
  p.failurePredicted = nvme_.health.criticalWarning != 0;
  p.powerOnHours = static_cast<uint32_t>(nvme_.health.powerOnHours);
}

ScsiResponse NvmeDisk::executeScsi(const ScsiRequest& request) {
  deriveScsiView();
  return ScsiDrive::executeScsi(request);
}

std::vector<uint8_t> NvmeDisk::supportedVpdPages() const { return {0x00, 0x80, 0x83, 0xB1}; }

// The translation keeps supported pages, temperature and informational
// exceptions; there are no error counters or self-test results behind it.
std::vector<uint8_t> NvmeDisk::supportedLogPages() const { return {0x00, 0x0D, 0x2F}; }

// Page 0x83 carries the EUI64 as an EUI-64 designator (type 2) instead of
// an NAA one; the others are the drive's.
std::vector<uint8_t> NvmeDisk::vpdPage(uint8_t page) const {
  if (page != 0x83 || nvme_.eui64 == 0) return ScsiDrive::vpdPage(page);
  std::vector<uint8_t> d(4 + 12, 0);
  d[1] = 0x83;
  putBe16(&d[2], 12);
  d[4] = 0x01;
  d[5] = 0x02;
  d[7] = 8;
  putBe64(&d[8], nvme_.eui64);
  return d;
}

}  // namespace sim
