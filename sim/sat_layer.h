// The SCSI face of an ATA drive: the SCSI/ATA translation of Windows' port
// driver for an internal disk, and the USB bridge chips in front of an
// external one. What each carries is configuration: SAT ATA PASS-THROUGH
// (12) and (16) with or without CK_COND, the JMicron (0xDF) and Sunplus
// (0xF8) vendor pass-throughs, or none. Every form translates the basic
// block commands (INQUIRY, READ CAPACITY, READ, WRITE) into ATA commands to
// the drive behind it.
#pragma once

#include <array>
#include <cstdint>
#include <memory>
#include <string>

#include "sim/device.h"
#include "sim/scsi_util.h"

namespace sim {

struct BridgeProfile {
  bool sat12 = true;     // ATA PASS-THROUGH(12), operation code 0xA1
  bool sat16 = true;     // ATA PASS-THROUGH(16), operation code 0x85
  bool ckCond = true;    // CK_COND honoured; without it registers come only by protocol 15
  bool jmicron = false;  // vendor pass-through 0xDF
  bool sunplus = false;  // vendor pass-through 0xF8
  // INQUIRY identity. An empty vendor means SAT's own: "ATA", the model's
  // first sixteen characters and the firmware's last four.
  std::string vendor;
  std::string product;
  std::string revision;
  std::string serial;  // empty: the drive's serial number
  // How the translation names itself in the ATA Information VPD page (0x89).
  std::string satVendor = "MSFT";
  std::string satProduct = "SCSI-ATA XLATION";
  std::string satRevision = "10.0";
  bool removable = false;
  SenseFormat senseFormat = SenseFormat::Fixed;  // for translated commands
};

// Named configurations.
BridgeProfile portTranslationProfile();  // Windows' SATL for an internal disk
BridgeProfile satBridgeProfile(bool ckCond);
BridgeProfile jmicronBridgeProfile();
BridgeProfile sunplusBridgeProfile();
BridgeProfile scsiOnlyBridgeProfile();

// The sense of a failed ATA command, by SAT's error translation.
SenseInfo errorSense(const AtaResponse& ata, bool extended);

class SatLayer : public ScsiTarget {
 public:
  SatLayer(BridgeProfile profile, std::shared_ptr<AtaDevice> drive);

  ScsiResponse executeScsi(const ScsiRequest& request) override;
  const BridgeProfile& profile() const { return profile_; }

 private:
  ScsiResponse passThrough(const ScsiRequest& r);
  ScsiResponse jmicronPassThrough(const ScsiRequest& r);
  ScsiResponse sunplusPassThrough(const ScsiRequest& r);
  ScsiResponse inquiry(const ScsiRequest& r);
  ScsiResponse readCapacity(const ScsiRequest& r, bool sixteen);
  ScsiResponse readWrite(const ScsiRequest& r);
  ScsiResponse modeSense(const ScsiRequest& r);
  ScsiResponse modeSelect(const ScsiRequest& r);
  ScsiResponse logSense(const ScsiRequest& r);
  ScsiResponse reportLuns(const ScsiRequest& r);
  ScsiResponse simpleAta(const ScsiRequest& r, uint8_t command);
  // Answers of the drive that translated pages are made from. A SMART
  // command that fails leaves false.
  bool smartRead(uint8_t feature, uint8_t logAddress, uint8_t* block512);
  bool smartThresholdExceeded(bool* exceeded);
  std::vector<uint8_t> modePage(uint8_t page, uint8_t control, const uint8_t* smartData);
  std::vector<uint8_t> selfTestLogPage(const uint8_t* log);
  // The drive's temperature in Celsius from attribute 194 (or 190) or the
  // SCT status; -1000 when it gives none. `reference` the SCT maximum
  // operating temperature, or -1000.
  int temperature(int* reference);

  // IDENTIFY DEVICE of the drive, read once; false when the drive gave none
  // (then *completion says why, or the drive refused).
  bool identify(Completion* completion);
  uint16_t word(int index) const { return static_cast<uint16_t>(identify_[2 * index] | identify_[2 * index + 1] << 8); }
  std::string ataString(int first, int words) const;
  uint64_t capacity() const;
  uint32_t logicalSize() const;
  std::vector<uint8_t> vpdPage(uint8_t page) const;
  ScsiResponse translateError(const AtaResponse& ata, bool extended);
  uint32_t logicalSizeOr512();

  BridgeProfile profile_;
  std::shared_ptr<AtaDevice> drive_;
  bool haveIdentify_ = false;
  std::array<uint8_t, 512> identify_{};
  std::array<uint8_t, 14> lastDescriptor_{};  // ATA Status Return of the last pass-through
  AtaRegisters sunplusHigh_{};                // previous-register values loaded by 0xF8/0x23
  bool sunplusHighSet_ = false;
};

}  // namespace sim
