// An ATA drive built from a profile: IDENTIFY DEVICE, the SMART feature set
// with its data, thresholds, self tests and logs, and sector reads and writes
// on a Media. The link in front of it (port, bridge, faults) is not its
// business.
#pragma once

#include <array>
#include <cstdint>
#include <deque>
#include <memory>
#include <string>
#include <vector>

#include "sim/device.h"
#include "sim/media.h"
#include "sim/virtual_clock.h"

namespace sim {

// ATA Status and Error register bits.
constexpr uint8_t kAtaStatusErr = 0x01;
constexpr uint8_t kAtaStatusDrq = 0x08;
constexpr uint8_t kAtaStatusDsc = 0x10;  // "device seek complete", now vendor use; drives still set it
constexpr uint8_t kAtaStatusDf = 0x20;
constexpr uint8_t kAtaStatusDrdy = 0x40;
constexpr uint8_t kAtaStatusBsy = 0x80;
constexpr uint8_t kAtaErrorAbrt = 0x04;
constexpr uint8_t kAtaErrorIdnf = 0x10;
constexpr uint8_t kAtaErrorUnc = 0x40;
constexpr uint8_t kAtaErrorIcrc = 0x80;

// Self-test execution status values (high nibble of SMART data byte 363).
enum SelfTestResult : uint8_t {
  kSelfTestPassed = 0x0,
  kSelfTestAbortedByHost = 0x1,
  kSelfTestInterrupted = 0x2,
  kSelfTestFatal = 0x3,
  kSelfTestUnknownFailure = 0x4,
  kSelfTestElectricalFailure = 0x5,
  kSelfTestServoFailure = 0x6,
  kSelfTestReadFailure = 0x7,
  kSelfTestHandlingDamage = 0x8,
  kSelfTestInProgress = 0xF,
};

struct SmartAttribute {
  uint8_t id = 0;
  uint16_t flags = 0;  // bit 0: pre-failure, bit 1: on-line collection
  uint8_t value = 100;
  uint8_t worst = 100;
  uint64_t raw = 0;  // 48 bits, bytes 5..10 of the entry, little-endian
  uint8_t threshold = 0;
};

// One self-test log descriptor, as both self-test logs keep it.
struct SelfTestLogEntry {
  uint8_t subcommand = 1;  // LBA Low of the EXECUTE OFF-LINE IMMEDIATE that ran it
  uint8_t status = 0;      // execution status byte: result nibble << 4 | tens of percent remaining
  uint16_t lifetimeHours = 0;
  uint64_t failingLba = 0xFFFFFFFFFFFFULL;  // all ones when there is none
};

// One error log entry: the failed command and the error it left.
struct ErrorLogEntry {
  // Up to five commands, oldest first; the last one is the one that failed.
  std::vector<AtaRegisters> commands;
  std::vector<uint32_t> commandTimestampsMs;
  uint8_t error = kAtaErrorUnc;
  uint8_t status = kAtaStatusDrdy | kAtaStatusErr;
  uint64_t lba = 0;
  uint16_t count = 1;
  // Device state when the command failed (ACS: 0 unknown, 1 sleep, 2
  // standby, 3 active or idle, 4 executing an off-line or self test).
  uint8_t state = 0x03;
  uint16_t lifetimeHours = 0;
};

// What a vendor self-test code does on this drive.
enum class VendorTestAnswer : uint8_t { Run, Abort, Idnf };
struct VendorSelfTest {
  uint8_t code = 0;
  VendorTestAnswer answer = VendorTestAnswer::Run;
  uint32_t seconds = 60;
};

struct AtaProfile {
  std::string model = "SIM ATA DISK";
  std::string serial = "SIM0000000000001";
  std::string firmware = "1.0";
  bool lba48 = true;
  // Physical sectors are logical << physicalExponent (IDENTIFY word 106 3:0).
  uint8_t physicalExponent = 0;
  uint16_t rotationRate = 7200;  // word 217: 1 solid state, 0 not reported
  uint16_t bufferSize = 0;       // word 21 (obsolete), in 512-byte units
  uint16_t nvCacheCapabilities = 0;  // word 214
  uint32_t nvCacheBlocks = 0;        // words 215-216
  uint16_t majorVersion = 0x01F0;    // word 80: ATA/ATAPI-4 .. ATA8-ACS
  uint16_t minorVersion = 0x0029;    // word 81
  bool smartSupported = true;
  bool smartEnabled = true;
  bool securitySupported = true;
  bool securityEnabled = false;
  bool securityLocked = false;
  bool securityFrozen = true;
  bool gplSupported = true;
  bool writeUncorrectableSupported = true;
  bool integrityWord = true;  // word 255: 0xA5 and the checksum
  bool trimSupported = false;
  // World wide name of words 108-111 (NAA 5, IEEE OUI, serial); 0: none.
  uint64_t wwn = 0;
  uint8_t formFactor = 0;  // word 168 3:0: 1 5.25", 2 3.5", 3 2.5", 4 1.8", 5 smaller
  // Serial ATA: the newest revision claimed in word 222 (bit 5 SATA 3.0 ..
  // bit 8 SATA 3.3; every older one is claimed with it) and the fastest
  // signalling generation (word 76: 1 1.5, 2 3.0, 3 6.0 Gb/s), which is also
  // the negotiated one in word 77.
  uint8_t sataRevisionBit = 7;
  uint8_t sataGeneration = 3;
  // SCT command transport (word 206): status, data tables (temperature
  // history), and where set error recovery control (bit 3) and feature
  // control (bit 4).
  bool sctSupported = true;
  bool sctErrorRecoveryControl = true;
  bool sctFeatureControl = true;
  // Device statistics (log 4: general and temperature pages), the pending
  // defects log (0x0C: the sectors the medium cannot read) and the SATA phy
  // event counters (0x11), each where set. powerCycles 0 takes attribute
  // 12's raw value.
  bool deviceStatistics = true;
  bool pendingDefectsLog = true;
  bool sataPhyCounters = true;
  uint32_t powerCycles = 0;
  uint64_t sectorsRead = 0;
  uint64_t sectorsWritten = 0;
  int lifetimeMinTemperatureCelsius = 20;
  int lifetimeMaxTemperatureCelsius = 55;
  int maxOperatingTemperatureCelsius = 60;

  std::vector<SmartAttribute> attributes;
  // Attribute 194's raw low byte is set from this when it is listed.
  int temperatureCelsius = 35;
  uint16_t smartRevision = 0x0010;
  uint8_t offlineStatus = 0x82;    // byte 362: auto off-line on, last collection completed
  uint8_t selfTestStatus = 0x00;   // byte 363 at power-on
  uint16_t offlineSeconds = 600;   // bytes 364-365
  uint8_t offlineCapability = 0x5B;  // byte 367: immediate, auto, scan, self test, selective
  uint16_t smartCapability = 0x0003;  // bytes 368-369: saves data over power cycles, auto-save
  uint8_t errorLoggingCapability = 0x01;  // byte 370
  uint16_t shortTestMinutes = 2;
  uint16_t extendedTestMinutes = 120;
  // Sectors a short self test reads from LBA 0; 0 means the default sample,
  // the first 1/64 of the surface (a short test checks, it does not scan).
  uint64_t shortTestSpan = 0;
  std::vector<VendorSelfTest> vendorTests;
  // Any other vendor code (0x40-0x7E, 0x90-0xFF) is aborted with this error bit.
  uint8_t unknownVendorTestError = kAtaErrorAbrt;

  uint32_t powerOnHours = 1000;
  std::vector<SelfTestLogEntry> selfTestLog;  // oldest first
  std::vector<ErrorLogEntry> errorLog;        // oldest first
  uint32_t errorCount = 0;  // lifetime device error count; at least errorLog.size()
  // Page counts of the multi-page logs.
  uint8_t comprehensiveErrorLogPages = 1;  // log 2
  uint16_t extErrorLogPages = 1;           // log 3
  uint16_t extSelfTestLogPages = 1;        // log 7
};

class AtaDrive : public AtaDevice {
 public:
  AtaDrive(AtaProfile profile, std::shared_ptr<Media> media, std::shared_ptr<VirtualClock> clock);

  AtaResponse executeAta(const AtaRequest& request) override;

  const AtaProfile& profile() const { return profile_; }
  // The profile can be changed while the drive runs (attributes, temperature);
  // the next command answers from it.
  AtaProfile& profile() { return profile_; }
  const std::shared_ptr<Media>& media() const { return media_; }
  // The 256 words of IDENTIFY DEVICE, as the drive answers now.
  std::array<uint16_t, 256> identifyWords() const;
  bool smartEnabled() const { return smartEnabled_; }
  bool selfTestRunning();
  // Execution status byte 363 as of the clock's time.
  uint8_t selfTestStatusByte();

 private:
  struct Context;
  using Handler = void (AtaDrive::*)(Context&);

  // Command handlers, one per command code.
  void identifyDevice(Context& c);
  void readSectors(Context& c);
  void writeSectors(Context& c);
  void writeUncorrectable(Context& c);
  void readLogExt(Context& c);
  void smart(Context& c);
  void flushCache(Context& c);
  void nop(Context& c);

  // SMART subcommands.
  void smartReadData(Context& c);
  void smartReadThresholds(Context& c);
  void smartExecuteOffline(Context& c);
  void smartReadLog(Context& c);
  void smartReturnStatus(Context& c);
  void smartWriteLog(Context& c);
  void writeLogExt(Context& c);
  bool writeLog(Context& c, uint8_t address, uint32_t pages, const uint8_t* data);
  void sctCommand(Context& c, const uint8_t* keyPage);

  // Log pages, each 512 bytes with its checksum where the log has one.
  bool buildLog(uint8_t address, uint16_t page, bool viaGpl, uint8_t* out);
  uint16_t logPageCount(uint8_t address, bool viaGpl) const;
  void buildSmartData(uint8_t* out);
  void buildThresholds(uint8_t* out) const;
  void buildSelfTestLog(uint8_t* out) const;
  void buildExtSelfTestLog(uint16_t page, uint8_t* out) const;
  void buildErrorLog(uint16_t page, uint8_t* out) const;
  void buildExtErrorLog(uint16_t page, uint8_t* out) const;
  void buildSelectiveLog(uint8_t* out) const;
  void buildSctStatus(uint8_t* out);
  void buildSctData(uint8_t* out) const;
  void buildDeviceStatistics(uint16_t page, uint8_t* out) const;
  void buildPendingDefects(uint16_t page, uint8_t* out) const;
  void buildSataPhyCounters(uint8_t* out) const;
  bool thresholdExceeded() const;
  uint64_t shortSpan() const;

  // Self tests and off-line collection on the virtual clock.
  void updateBackground();
  void startSelfTest(uint8_t subcommand, uint32_t seconds, uint64_t span);
  void holdCaptive(Context& c);
  uint64_t testFirstLba() const;
  void finishSelfTest(uint8_t result, uint8_t tensRemaining, uint64_t failingLba);
  void recordSelfTest(uint8_t subcommand, uint8_t status, uint64_t failingLba);
  void recordError(const AtaRegisters& failed, uint8_t error, uint8_t status, uint64_t lba, uint16_t count);
  uint16_t lifetimeHours() const;

  void complete(Context& c);
  void abort(Context& c, uint8_t errorBits = kAtaErrorAbrt);
  void sendData(Context& c, const uint8_t* data, uint32_t length);

  AtaProfile profile_;
  std::shared_ptr<Media> media_;
  std::shared_ptr<VirtualClock> clock_;
  bool smartEnabled_;
  uint8_t selfTestStatus_;
  uint8_t offlineStatus_;
  std::vector<SelfTestLogEntry> selfTests_;
  std::deque<ErrorLogEntry> errors_;
  uint32_t errorCount_;
  // The last five commands, oldest first, for the error logs.
  std::deque<std::pair<AtaRegisters, uint32_t>> recentCommands_;

  struct RunningTest {
    bool active = false;
    uint8_t subcommand = 0;
    uint64_t startMs = 0;
    uint64_t durationMs = 0;
    uint64_t span = 0;  // the test reads [testFirstLba(), span)
  } test_;
  uint64_t offlineEndMs_ = 0;
  bool offlineRunning_ = false;

  std::vector<uint8_t> scratch_;
  // Selective self-test log (9) as the host last wrote it, without checksum.
  std::array<uint8_t, 512> selective_{};
  // SCT: the last command's action and function codes and status, the
  // error recovery timers (100 ms units) and the table a data-table read
  // selected.
  uint16_t sctAction_ = 0, sctFunction_ = 0, sctStatus_ = 0;
  uint16_t ercRead_ = 0, ercWrite_ = 0;
  uint16_t sctTable_ = 0;
};

}  // namespace sim
