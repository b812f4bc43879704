// The CSMI request buffers: header set-up and the sizes of each control code.
#include "raid/csmi/csmi_cmd.h"

#include <algorithm>
#include <cstring>

namespace {

constexpr size_t kSignatureBytes = 8;

}  // namespace

CsmiCmd::CsmiCmd(size_t size, ULONG code, const char* signature) : buffer(new uint8_t[size]()) {
  SRB_IO_CONTROL& h = header();
  h.HeaderLength = sizeof(SRB_IO_CONTROL);
  std::memset(h.Signature, 0, kSignatureBytes);
  std::memcpy(h.Signature, signature, std::min(std::strlen(signature), kSignatureBytes - 1));
  h.Timeout = kCsmiTimeoutSeconds;
  h.ControlCode = code;
  h.ReturnCode = 0;
  h.Length = static_cast<ULONG>(size);
}

CsmiCmd::~CsmiCmd() = default;

SRB_IO_CONTROL& CsmiCmd::header() { return *reinterpret_cast<SRB_IO_CONTROL*>(buffer.get()); }
const SRB_IO_CONTROL& CsmiCmd::header() const { return *reinterpret_cast<const SRB_IO_CONTROL*>(buffer.get()); }

ULONG CsmiCmd::headerLength() const { return header().HeaderLength; }
void CsmiCmd::setHeaderLength(ULONG value) { header().HeaderLength = value; }
ULONG CsmiCmd::controlCode() const { return header().ControlCode; }
ULONG CsmiCmd::returnCode() const { return header().ReturnCode; }
void CsmiCmd::setReturnCode(ULONG value) { header().ReturnCode = value; }
ULONG CsmiCmd::timeout() const { return header().Timeout; }
ULONG CsmiCmd::length() const { return header().Length; }
void CsmiCmd::setLength(ULONG value) { header().Length = value; }

CsmiGetCntrlConfig::CsmiGetCntrlConfig()
    : CsmiCmd(sizeof(CSMI_SAS_CNTLR_CONFIG_BUFFER), CC_CSMI_SAS_GET_CNTLR_CONFIG, "CSMIALL") {}

CsmiGetRaidInfo::CsmiGetRaidInfo()
    : CsmiCmd(sizeof(CSMI_SAS_RAID_INFO_BUFFER), CC_CSMI_SAS_GET_RAID_INFO, "CSMIARY") {}

namespace {

// A set's buffer holds one drive entry; each further drive adds one. A
// driver that reports no drives per set still gets room for one.
ULONG roomFor(ULONG drivesPerSet) { return drivesPerSet == 0 ? 1 : drivesPerSet; }

}  // namespace

CsmiGetRaidConfig::CsmiGetRaidConfig(ULONG setIndex, ULONG drivesPerSet)
    : CsmiCmd(sizeof(CSMI_SAS_RAID_CONFIG_BUFFER) + sizeof(CSMI_SAS_RAID_DRIVES) * (roomFor(drivesPerSet) - 1),
              CC_CSMI_SAS_GET_RAID_CONFIG, "CSMIARY"),
      room(roomFor(drivesPerSet)) {
  record().Configuration.uRaidSetIndex = setIndex;
}

const CSMI_SAS_RAID_DRIVES& CsmiGetRaidConfig::drive(size_t index) const {
  const size_t at = offsetof(CSMI_SAS_RAID_CONFIG_BUFFER, Configuration) + offsetof(CSMI_SAS_RAID_CONFIG, Drives) +
                    index * sizeof(CSMI_SAS_RAID_DRIVES);
  return *reinterpret_cast<const CSMI_SAS_RAID_DRIVES*>(data() + at);
}

CsmiGetPhyInfo::CsmiGetPhyInfo()
    : CsmiCmd(sizeof(CSMI_SAS_PHY_INFO_BUFFER), CC_CSMI_SAS_GET_PHY_INFO, "CSMISAS") {}

CsmiSspPassthrough::CsmiSspPassthrough(ULONG dataLength)
    : CsmiCmd(sizeof(CSMI_SAS_SSP_PASSTHRU_BUFFER) + dataLength, CC_CSMI_SAS_SSP_PASSTHRU, "CSMISAS"),
      dataRoom(dataLength) {
  record().Parameters.uDataLength = dataLength;
}

CsmiStpPassthrough::CsmiStpPassthrough(ULONG dataLength)
    : CsmiCmd(sizeof(CSMI_SAS_STP_PASSTHRU_BUFFER) + dataLength, CC_CSMI_SAS_STP_PASSTHRU, "CSMISAS"),
      dataRoom(dataLength) {
  record().Parameters.uDataLength = dataLength;
}
