// STP and SSP pass-through through a CSMI controller to one drive.
#include "raid/csmi/csmi_bridges.h"

#include <algorithm>
#include <cstring>
#include <limits>

#include "raid/raid_status.h"

namespace {

// Command FIS (Register Host to Device), as the STP request carries it:
//   0 0x27  1 0x80 (command)  2 command  3 features  4 lba low  5 lba mid
//   6 lba high  7 device  8 lba low exp  9 lba mid exp  10 lba high exp
//   11 features exp  12 count  13 count exp
constexpr UCHAR kFisRegisterHostToDevice = 0x27;
constexpr UCHAR kFisCommandBit = 0x80;

// Status FIS (Register Device to Host): 2 status 3 error 4-6 lba 7 device
// 8-10 lba exp 12 count 13 count exp.
enum StatusFisByte : size_t {
  kFisStatus = 2,
  kFisError = 3,
  kFisLbaLow = 4,
  kFisLbaMid = 5,
  kFisLbaHigh = 6,
  kFisDevice = 7,
  kFisLbaLowExt = 8,
  kFisLbaMidExt = 9,
  kFisLbaHighExt = 10,
  kFisCount = 12,
  kFisCountExt = 13,
};

// The largest data phase one request can hold beside its record.
constexpr uint64_t kLargestPayload = std::numeric_limits<ULONG>::max() - 4096;

}  // namespace

void addressPassThrough(const CSMI_SAS_PHY_ENTITY& phy, UCHAR* phyIdentifier, UCHAR* portIdentifier,
                        UCHAR* sasAddress) {
  *phyIdentifier = phy.Identify.bPhyIdentifier;
  *portIdentifier = phy.bPortIdentifier;
  std::memcpy(sasAddress, phy.Attached.bSASAddress, sizeof(phy.Attached.bSASAddress));
}

std::unique_ptr<CsmiStpPassthrough> makeStpRequest(const CSMI_SAS_PHY_ENTITY& phy, const AtaCmd& cmd) {
  if (cmd.dataLength > kLargestPayload) return nullptr;
  auto request = std::make_unique<CsmiStpPassthrough>(static_cast<ULONG>(cmd.dataLength));
  CSMI_SAS_STP_PASSTHRU& p = request->record().Parameters;
  addressPassThrough(phy, &p.bPhyIdentifier, &p.bPortIdentifier, p.bDestinationSASAddress);
  p.bConnectionRate = 0;
  if (cmd.direction == kDirectionIn) {
    p.uFlags = CSMI_SAS_STP_PIO | CSMI_SAS_STP_READ;
  } else if (cmd.direction == kDirectionOut) {
    p.uFlags = CSMI_SAS_STP_PIO | CSMI_SAS_STP_WRITE;
    if (cmd.buffer != nullptr && cmd.dataLength != 0) {
      std::memcpy(request->payload(), cmd.buffer, static_cast<size_t>(cmd.dataLength));
    }
  } else {
    p.uFlags = CSMI_SAS_STP_PIO | CSMI_SAS_STP_UNSPECIFIED;
  }
  UCHAR* fis = p.bCommandFIS;
  fis[0] = kFisRegisterHostToDevice;
  fis[1] = kFisCommandBit;
  fis[2] = cmd.command;
  fis[3] = cmd.features;
  fis[4] = cmd.lbaLow;
  fis[5] = cmd.lbaMid;
  fis[6] = cmd.lbaHigh;
  fis[7] = cmd.device;
  fis[8] = cmd.lbaLowExt;
  fis[9] = cmd.lbaMidExt;
  fis[10] = cmd.lbaHighExt;
  fis[11] = cmd.featuresExt;
  fis[12] = cmd.sectorCount;
  fis[13] = cmd.sectorCountExt;
  return request;
}

std::unique_ptr<CsmiSspPassthrough> makeSspRequest(const CSMI_SAS_PHY_ENTITY& phy, const ScsiCmd& cmd) {
  if (cmd.dataLength > kLargestPayload) return nullptr;
  auto request = std::make_unique<CsmiSspPassthrough>(static_cast<ULONG>(cmd.dataLength));
  CSMI_SAS_SSP_PASSTHRU& p = request->record().Parameters;
  addressPassThrough(phy, &p.bPhyIdentifier, &p.bPortIdentifier, p.bDestinationSASAddress);
  p.bConnectionRate = 0;
  const size_t cdbLength = std::min<size_t>(cmd.cdbLength, sizeof(p.bCDB));
  p.bCDBLength = static_cast<UCHAR>(cdbLength);
  std::memcpy(p.bCDB, cmd.cdb.data(), cdbLength);
  if (cmd.direction == kDirectionIn) {
    p.uFlags = CSMI_SAS_SSP_READ;
  } else if (cmd.direction == kDirectionOut) {
    p.uFlags = CSMI_SAS_SSP_WRITE;
    if (cmd.buffer != nullptr && cmd.dataLength != 0) {
      std::memcpy(request->payload(), cmd.buffer, static_cast<size_t>(cmd.dataLength));
    }
  } else {
    p.uFlags = CSMI_SAS_SSP_UNSPECIFIED;
  }
  return request;
}

CsmiStpBridge::CsmiStpBridge(DeviceHandle deviceHandle, const CSMI_SAS_PHY_ENTITY& phyEntity, CsmiSend* csmiSender)
    : AtaBridge(deviceHandle), phy(phyEntity), sender(csmiSender) {}

uint32_t CsmiStpBridge::send(AtaCmd& cmd) {
  if (sender == nullptr) return kStatusNoCsmiSender;
  std::unique_ptr<CsmiStpPassthrough> request = makeStpRequest(phy, cmd);
  if (!request) return kStatusBadArgument;
  const uint32_t status = sender->send(handle, *request);
  if (status == kStatusOk && cmd.direction == kDirectionIn && cmd.buffer != nullptr && cmd.dataLength != 0) {
    std::memcpy(cmd.buffer, request->payload(), static_cast<size_t>(cmd.dataLength));
  }
  const UCHAR* fis = request->record().Status.bStatusFIS;
  cmd.features = fis[kFisError];
  cmd.command = fis[kFisStatus];
  cmd.device = fis[kFisDevice];
  cmd.lbaLow = fis[kFisLbaLow];
  cmd.lbaMid = fis[kFisLbaMid];
  cmd.lbaHigh = fis[kFisLbaHigh];
  cmd.lbaLowExt = fis[kFisLbaLowExt];
  cmd.lbaMidExt = fis[kFisLbaMidExt];
  cmd.lbaHighExt = fis[kFisLbaHighExt];
  cmd.sectorCount = fis[kFisCount];
  cmd.sectorCountExt = fis[kFisCountExt];
  return status;
}

CsmiSspBridge::CsmiSspBridge(DeviceHandle deviceHandle, const CSMI_SAS_PHY_ENTITY& phyEntity, CsmiSend* csmiSender)
    : ScsiBridge(deviceHandle), phy(phyEntity), sender(csmiSender) {}

uint32_t CsmiSspBridge::send(ScsiCmd& cmd) {
  if (sender == nullptr) return kStatusNoCsmiSender;
  std::unique_ptr<CsmiSspPassthrough> request = makeSspRequest(phy, cmd);
  if (!request) return kStatusBadArgument;
  const uint32_t status = sender->send(handle, *request);
  if (status == kStatusOk && cmd.direction == kDirectionIn && cmd.buffer != nullptr && cmd.dataLength != 0) {
    std::memcpy(cmd.buffer, request->payload(), static_cast<size_t>(cmd.dataLength));
  }
  const CSMI_SAS_SSP_PASSTHRU_STATUS& answer = request->record().Status;
  // Data-present 2 with a non-zero length: one byte of the response goes
  // over, as the two length bytes are taken as a truth value only.
  if (answer.bDataPresent == CSMI_SAS_SSP_SENSE_DATA_PRESENT &&
      (answer.bResponseLength[0] != 0 || answer.bResponseLength[1] != 0)) {
    cmd.senseLength = 1;
    cmd.sense[0] = answer.bResponse[0];
  }
  cmd.scsiStatus = kScsiStatusGood;
  return status;
}
