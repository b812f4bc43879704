// RAID adapters of the simulated PC that answer CSMI through
// IOCTL_SCSI_MINIPORT on their handle (\\.\ScsiN: or the adapter's interface
// path): controller configuration, RAID information and set configuration,
// phy information, and SSP and STP pass-through to the disks behind the phys.
// Built from the machine's "controllers".
#include <algorithm>
#include <cstring>

#include "sim/windows/face_state.h"
#include "win32/csmi.h"

namespace sim {
namespace windows {

namespace {

bool reject(std::string* error, const std::string& text) {
  if (error) *error = text;
  return false;
}

void copyText(UCHAR* to, size_t size, const std::string& text) {
  std::memset(to, 0, size);
  std::memcpy(to, text.data(), std::min(size, text.size()));
}

// The phy entries of a controller, in order; a phy names the disk behind it.
const nlohmann::json& phys(const Controller& controller) {
  static const nlohmann::json none = nlohmann::json::array();
  const auto it = controller.description.find("phys");
  return it != controller.description.end() && it->is_array() ? *it : none;
}

const nlohmann::json& raidSets(const Controller& controller) {
  static const nlohmann::json none = nlohmann::json::array();
  const auto it = controller.description.find("raidSets");
  return it != controller.description.end() && it->is_array() ? *it : none;
}

UCHAR targetProtocol(const nlohmann::json& phy) {
  const std::string protocol = phy.value("protocol", "sata");
  if (protocol == "sas" || protocol == "ssp") return CSMI_SAS_PROTOCOL_SSP;
  if (protocol == "smp") return CSMI_SAS_PROTOCOL_SMP;
  if (protocol == "stp") return CSMI_SAS_PROTOCOL_STP;
  return CSMI_SAS_PROTOCOL_SATA;
}

Disk* phyDisk(Face& face, const nlohmann::json& phy) {
  Machine* machine = face.machine();
  if (machine == nullptr || !phy.contains("disk") || !phy["disk"].is_string()) return nullptr;
  return machine->findDisk(phy["disk"].get<std::string>());
}

void controllerConfig(const Controller& controller, uint8_t* buffer) {
  auto* b = reinterpret_cast<CSMI_SAS_CNTLR_CONFIG_BUFFER*>(buffer);
  CSMI_SAS_CNTLR_CONFIG& c = b->Configuration;
  std::memset(&c, 0, sizeof(c));
  c.uBoardID = 0x80860000u;
  c.usSlotNumber = 0xFFFF;
  c.bControllerClass = 5;  // RAID controller
  c.bIoBusType = 3;        // PCI
  copyText(c.szSerialNumber, sizeof(c.szSerialNumber), controller.description.value("serial", ""));
  c.uControllerFlags = controller.description.value("controllerFlags", CSMI_SAS_CNTLR_SATA_RAID);
  const auto bios = controller.description.find("biosVersion");
  if (bios != controller.description.end() && bios->is_array() && bios->size() == 4) {
    c.usBIOSMajorRevision = (*bios)[0].get<USHORT>();
    c.usBIOSMinorRevision = (*bios)[1].get<USHORT>();
    c.usBIOSBuildRevision = (*bios)[2].get<USHORT>();
    c.usBIOSReleaseRevision = (*bios)[3].get<USHORT>();
  }
}

void raidInfo(const Controller& controller, uint8_t* buffer) {
  auto* b = reinterpret_cast<CSMI_SAS_RAID_INFO_BUFFER*>(buffer);
  std::memset(&b->Information, 0, sizeof(b->Information));
  const auto& sets = raidSets(controller);
  b->Information.uNumRaidSets = static_cast<ULONG>(sets.size());
  ULONG most = 8;
  for (const auto& set : sets) {
    if (set.contains("drives") && set["drives"].is_array()) most = std::max<ULONG>(most, static_cast<ULONG>(set["drives"].size()));
  }
  b->Information.uMaxDrivesPerSet = most;
  b->Information.uMaxRaidSets = 8;
  b->Information.bMaxRaidTypes = 6;
}

ULONG raidConfig(const Controller& controller, uint8_t* buffer, DWORD size) {
  auto* b = reinterpret_cast<CSMI_SAS_RAID_CONFIG_BUFFER*>(buffer);
  CSMI_SAS_RAID_CONFIG& c = b->Configuration;
  const ULONG index = c.uRaidSetIndex;
  const auto& sets = raidSets(controller);
  if (index >= sets.size()) return CSMI_SAS_RAID_SET_OUT_OF_RANGE;
  const auto& set = sets[index];
  const size_t drivesAt = offsetof(CSMI_SAS_RAID_CONFIG_BUFFER, Configuration) + offsetof(CSMI_SAS_RAID_CONFIG, Drives);
  std::memset(buffer + offsetof(CSMI_SAS_RAID_CONFIG_BUFFER, Configuration), 0, size - sizeof(SRB_IO_CONTROL));
  c.uRaidSetIndex = index;
  c.uCapacity = set.value("capacityMiB", 0u);
  c.uStripeSize = set.value("stripeKiB", 128u);
  c.bRaidType = set.value("raidType", static_cast<UCHAR>(0));
  c.bStatus = set.value("status", static_cast<UCHAR>(0));
  c.bInformation = set.value("information", static_cast<UCHAR>(0));
  const nlohmann::json drives = set.value("drives", nlohmann::json::array());
  c.bDriveCount = static_cast<UCHAR>(drives.size());
  const size_t room = size > drivesAt ? (size - drivesAt) / sizeof(CSMI_SAS_RAID_DRIVES) : 0;
  for (size_t i = 0; i < drives.size() && i < room; ++i) {
    CSMI_SAS_RAID_DRIVES d{};
    copyText(d.bModel, sizeof(d.bModel), drives[i].value("model", ""));
    copyText(d.bFirmware, sizeof(d.bFirmware), drives[i].value("firmware", ""));
    copyText(d.bSerialNumber, sizeof(d.bSerialNumber), drives[i].value("serial", ""));
    d.bDriveStatus = drives[i].value("status", static_cast<UCHAR>(0));
    d.bDriveUsage = 1;
    d.usBlockSize = 512;
    std::memcpy(buffer + drivesAt + i * sizeof(d), &d, sizeof(d));
  }
  return CSMI_SAS_STATUS_SUCCESS;
}

void phyInfo(Face& face, const Controller& controller, uint8_t* buffer) {
  (void)face;
  auto* b = reinterpret_cast<CSMI_SAS_PHY_INFO_BUFFER*>(buffer);
  std::memset(&b->Information, 0, sizeof(b->Information));
  const auto& list = phys(controller);
  const size_t count = std::min<size_t>(list.size(), 32);
  b->Information.bNumberOfPhys = static_cast<UCHAR>(count);
  for (size_t i = 0; i < count; ++i) {
    CSMI_SAS_PHY_ENTITY& phy = b->Information.Phy[i];
    phy.Identify.bDeviceType = CSMI_SAS_END_DEVICE;
    phy.Identify.bInitiatorPortProtocol = CSMI_SAS_PROTOCOL_SATA | CSMI_SAS_PROTOCOL_SSP;
    phy.Identify.bPhyIdentifier = static_cast<UCHAR>(i);
    phy.bPortIdentifier = static_cast<UCHAR>(i);
    phy.bNegotiatedLinkRate = 0x0A;
    const bool attached = list[i].value("attached", true);
    phy.Attached.bDeviceType = attached ? CSMI_SAS_END_DEVICE : 0;
    phy.Attached.bTargetPortProtocol = targetProtocol(list[i]);
    phy.Attached.bPhyIdentifier = static_cast<UCHAR>(i);
    const uint64_t address = list[i].value("sasAddress", 0x5000C50000000000ull + i);
    for (int k = 0; k < 8; ++k) phy.Attached.bSASAddress[k] = static_cast<UCHAR>(address >> (56 - 8 * k));
  }
}

ULONG stpPassThrough(Face& face, const Controller& controller, uint8_t* buffer, DWORD size) {
  auto* b = reinterpret_cast<CSMI_SAS_STP_PASSTHRU_BUFFER*>(buffer);
  const CSMI_SAS_STP_PASSTHRU p = b->Parameters;
  const auto& list = phys(controller);
  if (p.bPhyIdentifier >= list.size()) return CSMI_SAS_PHY_DOES_NOT_EXIST;
  Disk* disk = phyDisk(face, list[p.bPhyIdentifier]);
  if (disk == nullptr || !disk->ata) return CSMI_SAS_NO_SATA_DEVICE;
  const size_t dataAt = offsetof(CSMI_SAS_STP_PASSTHRU_BUFFER, bDataBuffer);
  if (dataAt + p.uDataLength > size) return CSMI_SAS_STATUS_INVALID_PARAMETER;
  // Command FIS: 2 command 3 features 4-6 lba 7 device 8-10 lba exp
  // 11 features exp 12 count 13 count exp.
  const UCHAR* fis = p.bCommandFIS;
  AtaRequest request;
  request.in.command = fis[2];
  request.in.feature = fis[3];
  request.in.lbaLow = fis[4];
  request.in.lbaMid = fis[5];
  request.in.lbaHigh = fis[6];
  request.in.device = fis[7];
  request.in.lbaLowExp = fis[8];
  request.in.lbaMidExp = fis[9];
  request.in.lbaHighExp = fis[10];
  request.in.featureExp = fis[11];
  request.in.count = fis[12];
  request.in.countExp = fis[13];
  request.extended = fis[8] != 0 || fis[9] != 0 || fis[10] != 0 || fis[11] != 0 || fis[13] != 0;
  request.direction = (p.uFlags & CSMI_SAS_STP_READ) ? Direction::In
                      : (p.uFlags & CSMI_SAS_STP_WRITE) ? Direction::Out
                                                        : Direction::None;
  request.data = p.uDataLength > 0 ? buffer + dataAt : nullptr;
  request.length = p.uDataLength;
  request.timeoutSeconds = b->IoctlHeader.Timeout;
  const AtaResponse response = disk->ata->executeAta(request);
  CSMI_SAS_STP_PASSTHRU_STATUS& status = b->Status;
  std::memset(&status, 0, sizeof(status));
  if (response.completion != Completion::Done) {
    status.bConnectionStatus = 3;  // no destination
    return CSMI_SAS_STATUS_FAILED;
  }
  // Status FIS: 0 type 0x34 2 status 3 error 4-6 lba 7 device 8-10 lba exp
  // 12 count 13 count exp.
  UCHAR* out = status.bStatusFIS;
  out[0] = 0x34;
  out[2] = response.out.status;
  out[3] = response.out.error;
  out[4] = response.out.lbaLow;
  out[5] = response.out.lbaMid;
  out[6] = response.out.lbaHigh;
  out[7] = response.out.device;
  out[8] = response.out.lbaLowExp;
  out[9] = response.out.lbaMidExp;
  out[10] = response.out.lbaHighExp;
  out[12] = response.out.count;
  out[13] = response.out.countExp;
  status.uDataBytes = response.transferred;
  return CSMI_SAS_STATUS_SUCCESS;
}

ULONG sspPassThrough(Face& face, const Controller& controller, uint8_t* buffer, DWORD size) {
  auto* b = reinterpret_cast<CSMI_SAS_SSP_PASSTHRU_BUFFER*>(buffer);
  const CSMI_SAS_SSP_PASSTHRU p = b->Parameters;
  const auto& list = phys(controller);
  if (p.bPhyIdentifier >= list.size()) return CSMI_SAS_PHY_DOES_NOT_EXIST;
  Disk* disk = phyDisk(face, list[p.bPhyIdentifier]);
  if (disk == nullptr || !disk->scsi) return CSMI_SAS_STATUS_FAILED;
  const size_t dataAt = offsetof(CSMI_SAS_SSP_PASSTHRU_BUFFER, bDataBuffer);
  if (dataAt + p.uDataLength > size || p.bCDBLength == 0 || p.bCDBLength > 16) return CSMI_SAS_STATUS_INVALID_PARAMETER;
  ScsiRequest request;
  request.cdb = p.bCDB;
  request.cdbLength = p.bCDBLength;
  request.direction = (p.uFlags & CSMI_SAS_SSP_READ) ? Direction::In
                      : (p.uFlags & CSMI_SAS_SSP_WRITE) ? Direction::Out
                                                        : Direction::None;
  request.data = p.uDataLength > 0 ? buffer + dataAt : nullptr;
  request.length = p.uDataLength;
  request.timeoutSeconds = b->IoctlHeader.Timeout;
  const ScsiResponse response = disk->scsi->executeScsi(request);
  CSMI_SAS_SSP_PASSTHRU_STATUS& status = b->Status;
  std::memset(&status, 0, sizeof(status));
  if (response.completion != Completion::Done) {
    status.bConnectionStatus = 3;
    return CSMI_SAS_STATUS_FAILED;
  }
  status.bSSPStatus = CSMI_SAS_SSP_STATUS_COMPLETED;
  status.bStatus = response.status;
  if (!response.sense.empty()) {
    const size_t n = std::min<size_t>(response.sense.size(), sizeof(status.bResponse));
    status.bDataPresent = CSMI_SAS_SSP_SENSE_DATA_PRESENT;
    status.bResponseLength[0] = static_cast<UCHAR>(n >> 8);
    status.bResponseLength[1] = static_cast<UCHAR>(n);
    std::memcpy(status.bResponse, response.sense.data(), n);
  }
  status.uDataBytes = response.transferred;
  return CSMI_SAS_STATUS_SUCCESS;
}

}  // namespace

bool buildControllers(Face& face, Machine& machine, std::string* error) {
  const auto it = machine.description.find("controllers");
  if (it == machine.description.end()) return true;
  if (!it->is_array()) return reject(error, "controllers: expected a list");
  for (size_t i = 0; i < it->size(); ++i) {
    const auto& entry = (*it)[i];
    const std::string where = "controllers[" + std::to_string(i) + "]";
    if (!entry.is_object()) return reject(error, where + ": expected an object");
    const std::string vendor = entry.value("vendorId", "8086");
    const std::string device = entry.value("deviceId", "2826");
    if (vendor.size() != 4 || device.size() != 4) return reject(error, where + ": vendorId and deviceId are four hex digits");
    if (entry.contains("phys") && !entry["phys"].is_array()) return reject(error, where + ".phys: expected a list");
    if (entry.contains("raidSets") && !entry["raidSets"].is_array()) {
      return reject(error, where + ".raidSets: expected a list");
    }
    auto controller = std::make_unique<Controller>();
    controller->description = entry;
    controller->number = static_cast<int>(i);
    controller->friendlyName = entry.value("friendlyName", "RAID Controller");
    // The two ids stand at characters 12 and 21 of a PCI adapter's path.
    controller->interfacePath = "\\\\?\\pci#ven_" + vendor + "&dev_" + device + "&subsys_00000000&rev_00#3&1&0&" +
                                std::to_string(i) + "#{2accfe60-c130-11d2-b082-00a0c91efb8b}";
    face.controllers().push_back(std::move(controller));
  }
  return true;
}

BOOL adapterControl(Face& face, AdapterObject& adapter, DWORD code, LPVOID in, DWORD inSize, LPVOID out, DWORD outSize,
                    LPDWORD returned) {
  if (code != IOCTL_SCSI_MINIPORT) return fail(ERROR_INVALID_FUNCTION, FALSE);
  if (in == nullptr || inSize < sizeof(SRB_IO_CONTROL) || out == nullptr) return fail(ERROR_INVALID_PARAMETER, FALSE);
  SRB_IO_CONTROL header;
  std::memcpy(&header, in, sizeof(header));
  const uint64_t total = static_cast<uint64_t>(header.HeaderLength) + header.Length;
  if (header.HeaderLength != sizeof(SRB_IO_CONTROL) || total > inSize || total > outSize) {
    return fail(ERROR_INVALID_PARAMETER, FALSE);
  }
  std::vector<uint8_t> buffer(static_cast<size_t>(total), 0);
  std::memcpy(buffer.data(), in, buffer.size());
  const std::string signature(reinterpret_cast<const char*>(header.Signature),
                              strnlen(reinterpret_cast<const char*>(header.Signature), 8));
  const Controller& controller = *adapter.controller;
  const DWORD size = static_cast<DWORD>(buffer.size());
  ULONG result = CSMI_SAS_STATUS_BAD_CNTL_CODE;
  auto fits = [size](size_t need) { return size >= need; };
  switch (header.ControlCode) {
    case CC_CSMI_SAS_GET_CNTLR_CONFIG:
      if (signature == "CSMIALL" && fits(sizeof(CSMI_SAS_CNTLR_CONFIG_BUFFER))) {
        controllerConfig(controller, buffer.data());
        result = CSMI_SAS_STATUS_SUCCESS;
      }
      break;
    case CC_CSMI_SAS_GET_RAID_INFO:
      if (signature == "CSMIARY" && fits(sizeof(CSMI_SAS_RAID_INFO_BUFFER))) {
        raidInfo(controller, buffer.data());
        result = CSMI_SAS_STATUS_SUCCESS;
      }
      break;
    case CC_CSMI_SAS_GET_RAID_CONFIG:
      if (signature == "CSMIARY" && fits(sizeof(CSMI_SAS_RAID_CONFIG_BUFFER))) {
        result = raidConfig(controller, buffer.data(), size);
      }
      break;
    case CC_CSMI_SAS_GET_PHY_INFO:
      if (signature == "CSMISAS" && fits(sizeof(CSMI_SAS_PHY_INFO_BUFFER))) {
        phyInfo(face, controller, buffer.data());
        result = CSMI_SAS_STATUS_SUCCESS;
      }
      break;
    case CC_CSMI_SAS_SSP_PASSTHRU:
      if (signature == "CSMISAS" && fits(offsetof(CSMI_SAS_SSP_PASSTHRU_BUFFER, bDataBuffer))) {
        result = sspPassThrough(face, controller, buffer.data(), size);
      }
      break;
    case CC_CSMI_SAS_STP_PASSTHRU:
      if (signature == "CSMISAS" && fits(offsetof(CSMI_SAS_STP_PASSTHRU_BUFFER, bDataBuffer))) {
        result = stpPassThrough(face, controller, buffer.data(), size);
      }
      break;
    default:
      break;
  }
  reinterpret_cast<SRB_IO_CONTROL*>(buffer.data())->ReturnCode = result;
  std::memcpy(out, buffer.data(), buffer.size());
  if (returned != nullptr) *returned = size;
  SetLastError(ERROR_SUCCESS);
  return TRUE;
}

}  // namespace windows
}  // namespace sim
