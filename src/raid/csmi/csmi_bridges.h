// Transports to one drive behind a CSMI controller: ATA commands as STP
// pass-through, SCSI commands as SSP pass-through, both on the adapter's
// handle and addressed by the phy the drive is attached to. No operating
// system code here: the requests go through a CsmiSend.
#pragma once

#include <cstdint>
#include <memory>

#include "commands/bridges/ata_bridge.h"
#include "commands/bridges/scsi_bridge.h"
#include "raid/csmi/csmi_send.h"

// The addressing of a pass-through from the drive's phy entity: the phy and
// port identifiers and the attached SAS address; the connection rate stays 0.
void addressPassThrough(const CSMI_SAS_PHY_ENTITY& phy, UCHAR* phyIdentifier, UCHAR* portIdentifier,
                        UCHAR* sasAddress);

// Builds the STP pass-through request of `cmd`: flags with the PIO bit and
// the direction, the data length, the data of a write, and the command FIS.
// Null when the command's data cannot fit one request.
std::unique_ptr<CsmiStpPassthrough> makeStpRequest(const CSMI_SAS_PHY_ENTITY& phy, const AtaCmd& cmd);
// The SSP pass-through request of `cmd`, on the same terms.
std::unique_ptr<CsmiSspPassthrough> makeSspRequest(const CSMI_SAS_PHY_ENTITY& phy, const ScsiCmd& cmd);

class CsmiStpBridge : public AtaBridge {
 public:
  // `handle` is the adapter's, kept open by discovery; `sender` is borrowed.
  CsmiStpBridge(DeviceHandle handle, const CSMI_SAS_PHY_ENTITY& phy, CsmiSend* sender);
  // 2 without a sender; otherwise the sender's status. The answer's status
  // FIS comes back into the registers whatever the status; read data only
  // when the request went through. The driver's return code is not looked
  // at here: a refused request leaves zero registers.
  uint32_t send(AtaCmd& cmd) override;

 private:
  CSMI_SAS_PHY_ENTITY phy;
  CsmiSend* sender;
};

class CsmiSspBridge : public ScsiBridge {
 public:
  CsmiSspBridge(DeviceHandle handle, const CSMI_SAS_PHY_ENTITY& phy, CsmiSend* sender);
  // 2 without a sender; otherwise the sender's status. scsiStatus is always
  // left 0, and at most one byte of response data reaches `sense`: the two
  // response-length bytes are read as a truth value only.
  uint32_t send(ScsiCmd& cmd) override;

 private:
  CSMI_SAS_PHY_ENTITY phy;
  CsmiSend* sender;
};
