// A SCSI block device built from a profile: a SAS disk, and (through
// NvmeDisk) the SCSI face Windows gives an NVMe namespace. It keeps its
// sectors on a Media; the link in front of it is not its business.
#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "sim/device.h"
#include "sim/media.h"
#include "sim/scsi_util.h"
#include "sim/virtual_clock.h"

namespace sim {

// One parameter of the self-test results log page (0x10).
struct ScsiSelfTestEntry {
  uint8_t code = 1;    // 1 background short, 2 background extended, 5/6 foreground
  uint8_t result = 0;  // 0 passed, 1 aborted, 3-7 failed, 0xF in progress
  uint8_t segment = 0;
  uint16_t powerOnHours = 0;
  uint64_t failingLba = 0xFFFFFFFFFFFFFFFFULL;
  uint8_t senseKey = 0;
  uint16_t asc = 0;
};

// The parameters of an error counter log page (write 0x02, read 0x03,
// verify 0x05), codes 0000h-0006h in order.
struct ScsiErrorCounters {
  uint64_t correctedFast = 0;         // corrected without substantial delay
  uint64_t correctedDelayed = 0;      // corrected with possible delays
  uint64_t retries = 0;               // total re-reads or re-writes
  uint64_t corrected = 0;             // total errors corrected
  uint64_t algorithmInvocations = 0;  // times the correction algorithm ran
  uint64_t bytesProcessed = 0;
  uint64_t uncorrected = 0;
};

// The status parameter of the background scan results page (0x15).
struct ScsiBackgroundScan {
  uint8_t status = 0;              // BMS status: 0 no scan active
  uint16_t scansPerformed = 0;     // background scans performed
  uint16_t progress = 0;           // of the scan under way, in 1/65536
  uint16_t mediumScansPerformed = 0;
};

struct ScsiProfile {
  std::string vendor = "SIM";
  std::string product = "SCSI DISK";
  std::string revision = "0001";
  std::string serial = "SIMSCSI0001";
  uint64_t wwn = 0x5000C50000000001ULL;  // NAA 5 designator of VPD page 0x83
  uint8_t version = 6;                   // SPC-4
  std::vector<uint16_t> versionDescriptors = {0x00A0, 0x0460, 0x04C0, 0x0C20};
  uint16_t rotationRate = 10000;  // VPD 0xB1: 1 non-rotating
  // VPD 0xB1 byte 7 3:0 (SBC): 0 not reported, 1 5.25", 2 3.5", 3 2.5",
  // 4 1.8", 5 smaller.
  uint8_t formFactor = 3;
  uint8_t physicalExponent = 0;   // READ CAPACITY(16) byte 13 3:0
  bool removable = false;
  SenseFormat senseFormat = SenseFormat::Fixed;

  int temperatureCelsius = 38;
  int referenceTemperatureCelsius = 65;
  bool failurePredicted = false;
  // Informational exceptions control page (0x1C) bytes 2 (flags, DEXCPT is
  // bit 3) and 3 (MRIE).
  uint8_t iecFlags = 0x00;
  uint8_t mrie = 6;
  bool writeCacheEnabled = true;

  bool selfTestSupported = true;
  uint32_t shortTestSeconds = 120;
  uint32_t extendedTestSeconds = 3600;
  uint32_t defaultTestSeconds = 30;
  // Sectors the short test reads from LBA 0; 0: the first 1/64 of the surface.
  uint64_t shortTestSpan = 0;
  uint32_t powerOnHours = 20000;
  ScsiErrorCounters writeErrors, readErrors, verifyErrors;
  uint64_t nonMediumErrors = 0;  // page 0x06
  bool backgroundScanSupported = true;
  ScsiBackgroundScan backgroundScan;
  std::vector<ScsiSelfTestEntry> selfTestLog;  // oldest first
  // Off: the target follows SPC. On (machine key "healthQuirks"): a LOG
  // SENSE or MODE SENSE with an allocation length of 0 returns the whole
  // page, REQUEST SENSE returns its data padded to the full allocation
  // length, and a predicted failure there carries the vendor ASC 0xD5 (the
  // informational exceptions log page keeps 0x5D).
  bool healthQuirks = false;
};

class ScsiDrive : public ScsiTarget {
 public:
  ScsiDrive(ScsiProfile profile, std::shared_ptr<Media> media, std::shared_ptr<VirtualClock> clock);

  ScsiResponse executeScsi(const ScsiRequest& request) override;

  ScsiProfile& profile() { return profile_; }
  const std::shared_ptr<Media>& media() const { return media_; }
  bool selfTestRunning();

 protected:
  virtual std::vector<uint8_t> vpdPage(uint8_t page) const;
  virtual std::vector<uint8_t> supportedVpdPages() const;
  virtual std::vector<uint8_t> supportedLogPages() const;

 private:
  ScsiResponse inquiry(const ScsiRequest& r);
  ScsiResponse readCapacity10(const ScsiRequest& r);
  ScsiResponse readCapacity16(const ScsiRequest& r);
  ScsiResponse readWrite(const ScsiRequest& r);
  ScsiResponse requestSense(const ScsiRequest& r);
  ScsiResponse logSense(const ScsiRequest& r);
  ScsiResponse modeSense(const ScsiRequest& r);
  ScsiResponse modeSelect(const ScsiRequest& r);
  ScsiResponse sendDiagnostic(const ScsiRequest& r);
  ScsiResponse reportLuns(const ScsiRequest& r);

  std::vector<uint8_t> modePage(uint8_t page, uint8_t control) const;
  std::vector<uint8_t> selfTestLogPage();
  uint64_t shortSpan() const;
  void updateSelfTest();
  void startSelfTest(uint8_t code, uint32_t seconds, uint64_t span);
  void finishSelfTest(uint8_t result, uint64_t failingLba);
  uint16_t powerOnHours() const;
  // The allocation length a data-in command is answered to.
  size_t allocationOf(size_t allocation, size_t whole) const;

  ScsiProfile profile_;
  std::shared_ptr<Media> media_;
  std::shared_ptr<VirtualClock> clock_;
  std::vector<ScsiSelfTestEntry> log_;
  struct RunningTest {
    bool active = false;
    uint8_t code = 0;
    uint64_t startMs = 0;
    uint64_t durationMs = 1;
    uint64_t span = 0;
  } test_;
};

}  // namespace sim
