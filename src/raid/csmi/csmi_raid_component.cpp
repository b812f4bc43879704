// The CSMI controller: which requests the module issues, what it reads from
// the answers, and how they become the controller model.
#include "raid/csmi/csmi_raid_component.h"

#include <cstdint>
#include <cstring>
#include <memory>

#include "commands/ata/ata_commands.h"
#include "commands/scsi/scsi_commands.h"
#include "protocols/ata_protocol.h"
#include "protocols/protocol_functions.h"
#include "protocols/scsi_protocol.h"
#include "raid/csmi/csmi_bridges.h"
#include "raid/raid_status.h"
#include "system/number_handler.h"
#include "system/string_handler.h"

namespace {

constexpr uint32_t kIdentifyBytes = 512;
constexpr uint32_t kInquiryBytes = 36;
constexpr uint32_t kReadCapacity16Bytes = 32;
// The phy table of the answer has room for this many entries, whatever the
// count byte says.
constexpr size_t kPhyRoom = sizeof(CSMI_SAS_PHY_INFO::Phy) / sizeof(CSMI_SAS_PHY_ENTITY);
// A driver's drive and set counts are bounded before they size a buffer or a
// walk; no chipset comes near them.
constexpr ULONG kMostDrivesPerSet = 1024;
constexpr ULONG kMostRaidSets = 1024;
// Capacities of RAID sets are in megabytes (2^20 bytes).
constexpr unsigned kMegabyteShift = 20;
// Identify words: model 27-46, firmware 23-26.
constexpr size_t kModelWord = 27;
constexpr uint32_t kModelWords = 20;
constexpr size_t kFirmwareWord = 23;
constexpr uint32_t kFirmwareWords = 4;
// Standard INQUIRY data: vendor 8-15, product 16-31, revision 32-35.
constexpr size_t kInquiryVendorAt = 8;
constexpr size_t kInquiryProductAt = 16;
constexpr size_t kInquiryRevisionAt = 32;

// RAID set status (bStatus) and the health kept for it.
constexpr UCHAR kSetFailed = 1;

// Text of a fixed field: up to its first NUL, without surrounding blanks.
std::string fieldText(const void* bytes, size_t count) {
  std::string text = getStringHandler().copyToNul(
      getStringHandler().fromBytes(static_cast<const uint8_t*>(bytes), count));
  getStringHandler().trim(text);
  return text;
}

std::string raidLevelOf(UCHAR type) {
  switch (type) {
    case 0: return "SINGLE_DRIVE_RAID_SET";
    case 1: return "RAID 0";
    case 2: return "RAID 1";
    case 3:
    case 9: return "RAID 10";
    case 4: return "RAID 5";
    case 5: return "RAID 15";
    case 6: return "RAID 6";
    case 7: return "RAID 50";
    default: return "UNKNOWN";
  }
}

uint32_t healthOf(UCHAR status) {
  switch (status) {
    case 0: return 0;
    case 1: return 1;
    case 2: return 5;
    case 3: return 3;
    default: return 6;
  }
}

bool isEndDevice(const CSMI_SAS_PHY_ENTITY& phy) { return phy.Attached.bDeviceType == CSMI_SAS_END_DEVICE; }

uint64_t bigEndian(const uint8_t* bytes, size_t count) {
  uint64_t value = 0;
  for (size_t i = 0; i < count; ++i) value = (value << 8) | bytes[i];
  return value;
}

}  // namespace

bool csmiProbe(HANDLE adapter, CsmiSend* sender) {
  if (sender == nullptr) return false;
  CsmiGetCntrlConfig config;
  if (sender->send(adapter, config) != kStatusOk || config.returnCode() != CSMI_SAS_STATUS_SUCCESS) return false;
  const ULONG flags = config.record().Configuration.uControllerFlags;
  return (flags & (CSMI_SAS_CNTLR_SAS_RAID | CSMI_SAS_CNTLR_SATA_RAID)) != 0;
}

CsmiRaidComponent::CsmiRaidComponent(HANDLE adapterHandle, const std::string& model, const std::string& idText)
    : RaidComponent(static_cast<uint64_t>(reinterpret_cast<uintptr_t>(adapterHandle)), kControllerCsmi) {
  info.model = model;
  id = idText;
}

HANDLE CsmiRaidComponent::adapter() const {
  return reinterpret_cast<HANDLE>(static_cast<uintptr_t>(controllerHandle));
}

uint32_t CsmiRaidComponent::query(CsmiCmd& cmd) {
  CsmiSend* sender = getCsmiSender();
  if (sender == nullptr) return kStatusNoCsmiSender;
  const uint32_t status = sender->send(adapter(), cmd);
  if (status != kStatusOk) return status;
  return cmd.returnCode() == CSMI_SAS_STATUS_SUCCESS ? static_cast<uint32_t>(kStatusOk) : kStatusCsmiReturnCode;
}

uint32_t CsmiRaidComponent::discover(RaidControllerInfo& out) {
  // The record is filled field by field and never cleared: a failure part
  // way leaves what was there, so the component's own record keeps the
  // model it was made with, and a later call still names the controller.
  const std::string model = info.model;
  CsmiGetCntrlConfig config;
  uint32_t status = query(config);
  if (status != kStatusOk) return status;
  const CSMI_SAS_CNTLR_CONFIG& c = config.record().Configuration;
  if (c.usBIOSMajorRevision != 0 || c.usBIOSMinorRevision != 0 || c.usBIOSBuildRevision != 0 ||
      c.usBIOSReleaseRevision != 0) {
    NumberHandler& numbers = getNumberHandler();
    out.biosVersion = numbers.uint64ToString(c.usBIOSMajorRevision) + "." +
                      numbers.uint64ToString(c.usBIOSMinorRevision) + "." +
                      numbers.uint64ToString(c.usBIOSBuildRevision) + "." +
                      numbers.uint64ToString(c.usBIOSReleaseRevision);
  }
  CsmiGetRaidInfo raid;
  status = query(raid);
  if (status != kStatusOk) return status;
  out.numLogicalDevices = static_cast<int32_t>(raid.record().Information.uNumRaidSets);

  std::vector<RaidPhysicalDrive> drives;
  status = getPhysicalDrives(drives);
  out.numPhysicalDevices = status == kStatusOk ? static_cast<int32_t>(drives.size()) : 0;

  out.model = model;
  std::string compact;
  getStringHandler().removeBlanks(model, compact);
  out.udi = compact + "-" + id;
  return status;
}

uint32_t CsmiRaidComponent::getLogicalDisks(std::vector<RaidLogicalDevice>& out) {
  CsmiGetRaidInfo raid;
  const uint32_t status = query(raid);
  if (status != kStatusOk) return status;
  const CSMI_SAS_RAID_INFO& information = raid.record().Information;
  const ULONG sets = std::min(information.uNumRaidSets, kMostRaidSets);
  const ULONG drivesPerSet = std::min(information.uMaxDrivesPerSet, kMostDrivesPerSet);
  CsmiSend* sender = getCsmiSender();
  for (ULONG i = 0; i < sets && sender != nullptr; ++i) {
    CsmiGetRaidConfig config(i, drivesPerSet);
    // A failed send or any refusal (1000: the index is past the last set)
    // ends the walk; what was read so far stands.
    if (sender->send(adapter(), config) != kStatusOk) break;
    if (config.returnCode() != CSMI_SAS_STATUS_SUCCESS) break;
    const CSMI_SAS_RAID_CONFIG& set = config.record().Configuration;
    RaidLogicalDevice device;
    device.name = getNumberHandler().uint64ToString(i);
    device.numPhysicalDevices = set.bDriveCount;
    device.sizeBytes = static_cast<uint64_t>(set.uCapacity) << kMegabyteShift;
    device.raidLevel = raidLevelOf(set.bRaidType);
    device.health = healthOf(set.bStatus);
    // A failed set names its failing drive by its entry in the drive list.
    if (set.bStatus == kSetFailed && set.bInformation < config.driveRoom()) {
      const CSMI_SAS_RAID_DRIVES& failing = config.drive(set.bInformation);
      device.failedDrives.push_back(fieldText(failing.bModel, sizeof(failing.bModel)) + " - " +
                                    fieldText(failing.bSerialNumber, sizeof(failing.bSerialNumber)));
    }
    out.push_back(std::move(device));
  }
  return kStatusOk;
}

uint32_t CsmiRaidComponent::readAtaDrive(const CSMI_SAS_PHY_ENTITY& phy, RaidPhysicalDrive& drive) {
  uint8_t block[kIdentifyBytes] = {};
  IdentifyDevice identify(block);
  std::unique_ptr<CsmiStpPassthrough> request = makeStpRequest(phy, identify);
  uint32_t status = query(*request);
  if (status != kStatusOk) return status;
  if ((request->record().Status.bStatusFIS[2] & kAtaStatusErr) != 0) return kStatusCsmiAtaError;
  std::memcpy(block, request->payload(), kIdentifyBytes);
  std::string model = readAtaString(block + 2 * kModelWord, kModelWords);
  drive.model = getStringHandler().copyToNul(model);
  getStringHandler().trim(drive.model);
  std::string firmware = readAtaString(block + 2 * kFirmwareWord, kFirmwareWords);
  drive.firmware = getStringHandler().copyToNul(firmware);
  getStringHandler().trim(drive.firmware);
  // A drive without a model names no maker.
  if (!drive.model.empty()) drive.manufacturer = getVendorName(drive.model);
  drive.busKind = kBusAta;
  uint16_t words[kIdentifyBytes / 2];
  std::memcpy(words, block, sizeof(words));
  drive.sizeBytes = getIdentifyCapacityBytes(words);
  return kStatusOk;
}

uint32_t CsmiRaidComponent::readScsiDrive(const CSMI_SAS_PHY_ENTITY& phy, RaidPhysicalDrive& drive) {
  uint8_t inquiryData[kInquiryBytes] = {};
  Inquiry inquiry(inquiryData, kInquiryBytes, false, 0);
  std::unique_ptr<CsmiSspPassthrough> request = makeSspRequest(phy, inquiry);
  uint32_t status = query(*request);
  if (status != kStatusOk) return status;
  if (request->record().Status.bStatus != kScsiStatusGood) return kStatusScsiNotGood;
  std::memcpy(inquiryData, request->payload(), kInquiryBytes);

  uint8_t capacity[kReadCapacity16Bytes] = {};
  ReadCapacity16 readCapacity(capacity);
  request = makeSspRequest(phy, readCapacity);
  status = query(*request);
  if (status != kStatusOk) return status;
  // The SSP status byte, not the SCSI status, is what is asked here: a
  // driver that reports the exchange as completed (2) fails the drive.
  if (request->record().Status.bSSPStatus != 0) return kStatusScsiNotGood;
  std::memcpy(capacity, request->payload(), kReadCapacity16Bytes);

  drive.manufacturer = fieldText(inquiryData + kInquiryVendorAt, 8);
  drive.model = fieldText(inquiryData + kInquiryProductAt, 16);
  drive.firmware = fieldText(inquiryData + kInquiryRevisionAt, 4);
  // Last LBA times the block length: one block short of the disk, as kept.
  drive.sizeBytes = bigEndian(capacity, 8) * bigEndian(capacity + 8, 4);
  drive.busKind = kBusScsi;
  return kStatusOk;
}

uint32_t CsmiRaidComponent::getPhysicalDrives(std::vector<RaidPhysicalDrive>& out) {
  CsmiGetPhyInfo phyInfo;
  const uint32_t status = query(phyInfo);
  if (status != kStatusOk) return status;
  const CSMI_SAS_PHY_INFO& information = phyInfo.record().Information;
  const size_t count = std::min<size_t>(information.bNumberOfPhys, kPhyRoom);
  for (size_t i = 0; i < count; ++i) {
    const CSMI_SAS_PHY_ENTITY& phy = information.Phy[i];
    if (!isEndDevice(phy)) continue;
    const UCHAR protocol = phy.Attached.bTargetPortProtocol;
    if (protocol == CSMI_SAS_PROTOCOL_SMP) continue;
    RaidPhysicalDrive drive;
    const uint32_t read = protocol == CSMI_SAS_PROTOCOL_SSP ? readScsiDrive(phy, drive) : readAtaDrive(phy, drive);
    // A drive that can't be read is left out; the walk goes on.
    if (read == kStatusOk) out.push_back(std::move(drive));
  }
  return kStatusOk;
}

uint32_t CsmiRaidComponent::getLogicalDevices(std::vector<RaidDrive>& out) {
  CsmiGetPhyInfo phyInfo;
  const uint32_t status = query(phyInfo);
  if (status != kStatusOk) return status;
  const CSMI_SAS_PHY_INFO& information = phyInfo.record().Information;
  const size_t count = std::min<size_t>(information.bNumberOfPhys, kPhyRoom);
  CsmiSend* sender = getCsmiSender();
  for (size_t i = 0; i < count; ++i) {
    const CSMI_SAS_PHY_ENTITY& phy = information.Phy[i];
    if (!isEndDevice(phy)) continue;
    const UCHAR protocol = phy.Attached.bTargetPortProtocol;
    if (protocol == CSMI_SAS_PROTOCOL_SMP) continue;
    RaidDrive drive;
    if (protocol == CSMI_SAS_PROTOCOL_SSP) {
      auto scsi = std::make_unique<ScsiProtocol>();
      scsi->addTransport(std::make_shared<CsmiSspBridge>(adapter(), phy, sender));
      scsi->setProtocolKind(kProtocolScsi);
      drive.firstProtocol = scsi.release();
      drive.busKind = kBusScsi;
    } else {
      auto ata = std::make_unique<AtaProtocol>();
      ata->addTransport(std::make_shared<CsmiStpBridge>(adapter(), phy, sender));
      ata->setProtocolKind(kProtocolAta);
      drive.firstProtocol = ata.release();
      drive.busKind = kBusAta;
    }
    // The id itself grows by one part per drive, and keeps it.
    id += "-" + getNumberHandler().uint64ToString(i);
    drive.name = "r" + id;
    out.push_back(drive);
  }
  return kStatusOk;
}
