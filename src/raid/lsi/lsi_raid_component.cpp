// The LSI controller: which library commands the module sends, what it reads
// from their buffers, and how they become the controller model.
#include "raid/lsi/lsi_raid_component.h"

#include <algorithm>
#include <cstring>
#include <memory>

#include "commands/ata/ata_commands.h"
#include "protocols/ata_protocol.h"
#include "protocols/protocol_functions.h"
#include "protocols/scsi_protocol.h"
#include "raid/lsi/lsi_bridges.h"
#include "raid/raid_status.h"
#include "system/number_handler.h"
#include "system/string_handler.h"

namespace {

// Controller information (2048 bytes).
constexpr size_t kInterfaceBitsAt = 104;     // u16
constexpr size_t kImageTableOneAt = 184;     // 8 entries of 72 bytes
constexpr size_t kImageTableTwoAt = 764;
constexpr size_t kImageEntryBytes = 72;
constexpr size_t kImageEntries = 8;
constexpr size_t kImageNameBytes = 8;        // name at 0, version at 8
constexpr size_t kModelAt = 1344;
constexpr size_t kModelBytes = 80;
constexpr size_t kSerialAt = 1424;
constexpr size_t kSerialBytes = 32;
constexpr size_t kFlagBWordAt = 1456;        // bit 2
constexpr size_t kPhysicalCountAt = 1480;    // u16
constexpr size_t kRaidLevelBitsAt = 1500;    // u8
constexpr size_t kFlagAWordAt = 1504;        // bit 7

// Controller list: u16 count, then u32 ids from 4 (room for 16).
constexpr size_t kControllerIdsAt = 4;
constexpr size_t kControllerRoom = 16;

// Physical drive list: u32 count at 4, 24-byte entries from 8 (room for 256):
// entry 0 device id (u16), entry 6 type (0 for a disk).
constexpr size_t kDriveCountAt = 4;
constexpr size_t kDriveEntriesAt = 8;
constexpr size_t kDriveEntryBytes = 24;
constexpr size_t kDriveTypeAt = 6;
constexpr size_t kDriveRoom = (kLsiPhysicalDriveListBytes - kDriveEntriesAt) / kDriveEntryBytes;

// Physical drive information (512 bytes).
constexpr size_t kManufacturerAt = 12;
constexpr size_t kDriveModelAt = 20;
constexpr size_t kFirmwareAt = 36;
constexpr size_t kDriveSizeAt = 232;  // u64, 512-byte units
constexpr size_t kDriveInterfaceAt = 401;

// Logical device list: u32 count, 16-byte entries from 8: target (u8) at 0,
// sequence (u16) at 2.
constexpr size_t kLogicalEntriesAt = 8;
constexpr size_t kLogicalEntryBytes = 16;
constexpr size_t kLogicalRoom = (kLsiLogicalDeviceListBytes - kLogicalEntriesAt) / kLogicalEntryBytes;

// Logical device configuration (384 bytes).
constexpr size_t kStateAt = 2;          // u16
constexpr size_t kPrimaryLevelAt = 32;  // u8
constexpr size_t kSpanAt = 34;          // u8
constexpr size_t kLogicalSizeAt = 256;  // u64, 512-byte units
constexpr uint8_t kSpanned = 3;

// Array list: count at 0, 144-byte records from 8: reference at 0, flag at 9.
constexpr size_t kArrayRecordsAt = 8;
constexpr size_t kArrayRecordBytes = 144;
constexpr size_t kArrayFlagAt = 9;
constexpr size_t kArrayRoom = (kLsiArrayListBytes - kArrayRecordsAt) / kArrayRecordBytes;

constexpr uint64_t kUnitBytes = 512;
constexpr uint32_t kIdentifyBytes = 512;

std::string textAt(const uint8_t* at, size_t room) {
  return getStringHandler().copyToNul(getStringHandler().fromBytes(at, room));
}

// A blank-padded fixed field: its bytes up to a NUL, without the blanks.
std::string fixedField(const uint8_t* at, size_t count) {
  std::string text = textAt(at, count);
  getStringHandler().trim(text);
  return text;
}

std::string compact(const std::string& text) {
  std::string out;
  getStringHandler().removeBlanks(text, out);
  return out;
}

uint32_t busKindOf(uint8_t interfaceType) {
  if (interfaceType == 1 || interfaceType == 2) return kBusScsi;
  if (interfaceType == 3) return kBusAta;
  return kBusUnknown;
}

// IDENTIFY DEVICE through the STP bridge: it counts when it completed, the
// block passes the identify check and 512 bytes came back.
bool answersIdentify(AtaBridge& bridge) {
  uint8_t block[kIdentifyBytes] = {};
  IdentifyDevice identify(block);
  return bridge.send(identify) == kStatusOk && isValidIdentifyData(block) && identify.dataLength == kIdentifyBytes;
}

}  // namespace

std::string lsiRaidLevel(uint8_t primaryLevel, uint8_t spanIndicator) {
  const bool spanned = spanIndicator == kSpanned;
  switch (primaryLevel) {
    case 0: return "RAID 0";
    case 1: return spanned ? "RAID 10" : "RAID 1";
    case 3: return "RAID 3";
    case 4: return "RAID 4";
    case 5: return spanned ? "RAID 50" : "RAID 5";
    case 6: return spanned ? "RAID 60" : "RAID 6";
    case 17: return "RAID 1";
    default: return "UNKNOWN";
  }
}

LsiRaidComponent::LsiRaidComponent(uint32_t id, uint32_t kind, LsiSender* lsiSender)
    : RaidComponent(id, kind), sender(lsiSender) {}

uint32_t LsiRaidComponent::discover(RaidControllerInfo& out) {
  out = RaidControllerInfo();
  if (sender == nullptr) return kStatusNoLsiSender;
  std::vector<uint8_t> buffer(kLsiControllerInfoBytes, 0);
  LsiCmd cmd;
  makeControllerInfo(cmd, controllerId(), buffer.data());
  const uint32_t status = sender->execute(cmd);
  if (status != 0) return status;
  const uint8_t* b = buffer.data();
  out.model = textAt(b + kModelAt, kModelBytes);
  out.serial = textAt(b + kSerialAt, kSerialBytes);
  out.flagB = (lsiU32(b + kFlagBWordAt) & 0x4) != 0;
  out.flagA = (lsiU32(b + kFlagAWordAt) & 0x80) != 0;
  out.numPhysicalDevices = lsiU16(b + kPhysicalCountAt);

  // The first image named exactly "BIOS", looking at both tables entry by
  // entry.
  for (size_t i = 0; i < kImageEntries && out.biosVersion.empty(); ++i) {
    for (size_t table : {kImageTableOneAt, kImageTableTwoAt}) {
      const uint8_t* image = b + table + i * kImageEntryBytes;
      if (textAt(image, kImageNameBytes) == "BIOS") {
        out.biosVersion = textAt(image + kImageNameBytes, kImageEntryBytes - kImageNameBytes);
        break;
      }
    }
  }

  const uint8_t levels = b[kRaidLevelBitsAt];
  const std::pair<uint8_t, const char*> levelBits[] = {{1, "RAID 0"},   {2, "RAID 1"},  {32, "RAID 10"},
                                                       {4, "RAID 5"},   {64, "RAID 50"}, {16, "RAID 6"},
                                                       {128, "RAID 60"}};
  for (const auto& bit : levelBits) {
    if ((levels & bit.first) != 0) out.supportedRaidLevels.push_back(bit.second);
  }
  const uint16_t interfaces = lsiU16(b + kInterfaceBitsAt);
  const std::pair<uint16_t, const char*> interfaceBits[] = {
      {2, "SAS 3G"}, {16, "SAS 6G"}, {4, "SATA 1.5G"}, {8, "SATA 3G"}, {1, "SPI"}};
  for (const auto& bit : interfaceBits) {
    if ((interfaces & bit.first) != 0) out.supportedInterfaces.push_back(bit.second);
  }

  std::vector<uint8_t> list(kLsiLogicalDeviceListBytes, 0);
  makeLogicalDeviceList(cmd, controllerId(), list.data());
  if (sender->execute(cmd) == 0) out.numLogicalDevices = static_cast<int32_t>(lsiU32(list.data()));

  out.udi = compact(out.model) + "-" + compact(out.serial);
  return kStatusOk;
}

uint32_t LsiRaidComponent::readLogicalDevice(uint8_t logicalTarget, uint16_t sequence, RaidLogicalDevice& device) {
  if (sender == nullptr) return kStatusNoLsiSender;
  std::vector<uint8_t> drives(kLsiLogicalDeviceDrivesBytes, 0);
  LsiCmd cmd;
  makeLogicalDeviceDrives(cmd, controllerId(), logicalTarget, drives.data());
  const uint32_t drivesStatus = sender->execute(cmd);
  device.numPhysicalDevices = lsiU16(drives.data());
  std::vector<uint8_t> config(kLsiLogicalDeviceConfigBytes, 0);
  makeLogicalDeviceConfig(cmd, controllerId(), logicalTarget, sequence, config.data());
  const uint32_t configStatus = sender->execute(cmd);
  if (drivesStatus != 0 || configStatus != 0) return kStatusLsiQueryFailed;
  device.rawRecord = config;
  device.raidLevel = lsiRaidLevel(config[kPrimaryLevelAt], config[kSpanAt]);
  device.sizeBytes = lsiU64(config.data() + kLogicalSizeAt) * kUnitBytes;
  device.firmwareState = lsiU16(config.data() + kStateAt);
  return kStatusOk;
}

uint32_t LsiRaidComponent::getLogicalDisks(std::vector<RaidLogicalDevice>& out) {
  out.clear();
  if (sender == nullptr) return kStatusNoLsiSender;
  std::vector<uint8_t> list(kLsiLogicalDeviceListBytes, 0);
  LsiCmd cmd;
  makeLogicalDeviceList(cmd, controllerId(), list.data());
  const uint32_t status = sender->execute(cmd);
  const uint32_t count = lsiU32(list.data());
  if (status != 0 || count == 0) return status;
  // The count is taken in 8 bits, and held to the entries the buffer has.
  const size_t entries = std::min<size_t>(static_cast<uint8_t>(count), kLogicalRoom);
  for (size_t i = 0; i < entries; ++i) {
    const uint8_t* entry = list.data() + kLogicalEntriesAt + i * kLogicalEntryBytes;
    RaidLogicalDevice device;
    if (readLogicalDevice(entry[0], lsiU16(entry + 2), device) != kStatusOk) continue;
    device.name = getNumberHandler().uint64ToString(entry[0]);
    out.push_back(std::move(device));
  }
  return status;
}

uint32_t LsiRaidComponent::getPhysicalDrives(std::vector<RaidPhysicalDrive>& out) {
  out.clear();
  if (sender == nullptr) return kStatusNoLsiSender;
  std::vector<uint8_t> list(kLsiPhysicalDriveListBytes, 0);
  LsiCmd cmd;
  makePhysicalDriveList(cmd, controllerId(), list.data());
  uint32_t status = sender->execute(cmd);
  if (status != 0) return status;
  const size_t count = std::min<size_t>(lsiU32(list.data() + kDriveCountAt), kDriveRoom);
  for (size_t i = 0; i < count; ++i) {
    const uint8_t* entry = list.data() + kDriveEntriesAt + i * kDriveEntryBytes;
    // A non-zero type marks a device that is no disk (an enclosure).
    if (entry[kDriveTypeAt] != 0) continue;
    const uint16_t deviceId = lsiU16(entry);
    LsiGetPdinfo info(controllerId(), deviceId);
    status = sender->execute(info);
    if (status != 0) continue;
    const uint8_t* a = info.answer();
    RaidPhysicalDrive drive;
    drive.manufacturer = fixedField(a + kManufacturerAt, 8);
    drive.model = fixedField(a + kDriveModelAt, 16);
    drive.firmware = fixedField(a + kFirmwareAt, 4);
    drive.sizeBytes = lsiU64(a + kDriveSizeAt) * kUnitBytes;
    drive.deviceId = deviceId;
    drive.busKind = busKindOf(a[kDriveInterfaceAt]);
    out.push_back(std::move(drive));
  }
  return status;
}

uint32_t LsiRaidComponent::prepare() {
  if (sender == nullptr) return kStatusLsiQueryFailed;
  std::vector<uint8_t> list(kLsiArrayListBytes, 0);
  LsiCmd cmd;
  makeArrayList(cmd, controllerId(), list.data());
  if (sender->execute(cmd) != 0) return kStatusLsiQueryFailed;
  const size_t count = std::min<size_t>(lsiU32(list.data()), kArrayRoom);
  for (size_t i = 0; i < count; ++i) {
    const uint8_t* record = list.data() + kArrayRecordsAt + i * kArrayRecordBytes;
    LsiArray array;
    array.reference = lsiU16(record);
    array.flag = record[kArrayFlagAt] > 0;
    std::memcpy(array.raw.data(), record, kArrayRecordBytes);
    arrays.push_back(array);
  }
  return kStatusOk;
}

uint32_t LsiRaidComponent::getLogicalDevices(std::vector<RaidDrive>& out) {
  std::vector<RaidPhysicalDrive> drives;
  const uint32_t status = getPhysicalDrives(drives);
  if (status != kStatusOk || drives.empty()) return status;
  for (const RaidPhysicalDrive& drive : drives) {
    const auto deviceId = static_cast<uint16_t>(drive.deviceId);
    auto scsi = std::make_unique<ScsiProtocol>();
    scsi->addTransport(std::make_shared<LsiSspBridge>(controllerId(), deviceId, sender));
    scsi->setProtocolKind(kProtocolScsi);
    auto stp = std::make_shared<LsiStpBridge>(scsi->getHandle(), deviceId, sender);
    std::unique_ptr<AtaProtocol> ata;
    if (answersIdentify(*stp)) {
      ata = std::make_unique<AtaProtocol>();
      ata->addTransport(stp);
      ata->setProtocolKind(kProtocolAta);
    }
    RaidDrive handed;
    handed.name = getNumberHandler().uint64ToString(drive.deviceId);
    handed.busKind = drive.busKind;
    handed.firstProtocol = scsi.release();
    handed.secondProtocol = ata.release();
    out.push_back(handed);
  }
  return kStatusOk;
}
