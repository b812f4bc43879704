// An NVMe namespace as Windows presents it: through the storage driver's
// SCSI translation (NVM Express SCSI Translation Reference). The controller's
// identity and SMART / Health Information log are the state; what SCSI sees
// (INQUIRY, VPD pages, capacity, temperature and informational exceptions)
// is derived from them on every command.
#pragma once

#include <cstdint>
#include <memory>
#include <string>

#include "sim/scsi_drive.h"

namespace sim {

// The SMART / Health Information log page (log identifier 0x02) as far as
// the translation uses it.
struct NvmeHealth {
  uint8_t criticalWarning = 0;  // bit 0 spare, 1 temperature, 2 reliability, 3 read-only, 4 backup
  uint16_t compositeTemperatureKelvin = 308;
  uint8_t availableSpare = 100;
  uint8_t availableSpareThreshold = 10;
  uint8_t percentageUsed = 1;
  uint64_t powerOnHours = 1200;
  uint64_t mediaErrors = 0;
};

struct NvmeProfile {
  std::string model = "SIM NVMe SSD";    // Identify Controller MN
  std::string serial = "SIMNVME0001";    // SN
  std::string firmware = "1.0";          // FR
  uint64_t eui64 = 0x0025385A71B00001ULL;  // namespace EUI64; 0 when absent
  // WCTEMP of Identify Controller: the composite temperature at which the
  // controller warns; the translation's reference temperature.
  uint16_t warningTemperatureKelvin = 358;
  NvmeHealth health;
  bool healthQuirks = false;  // the SCSI translation's; see ScsiProfile
};

class NvmeDisk : public ScsiDrive {
 public:
  NvmeDisk(NvmeProfile profile, std::shared_ptr<Media> media, std::shared_ptr<VirtualClock> clock);

  ScsiResponse executeScsi(const ScsiRequest& request) override;
  NvmeHealth& health() { return nvme_.health; }
  const NvmeProfile& nvmeProfile() const { return nvme_; }

 protected:
  std::vector<uint8_t> vpdPage(uint8_t page) const override;
  std::vector<uint8_t> supportedVpdPages() const override;
  std::vector<uint8_t> supportedLogPages() const override;

 private:
  void deriveScsiView();

  NvmeProfile nvme_;
};

// The SCSI profile the translation gives a controller: vendor "NVMe",
// product the model's first sixteen characters, revision the firmware's
// first four, no self test through SEND DIAGNOSTIC.
ScsiProfile scsiProfileOf(const NvmeProfile& nvme);

}  // namespace sim
