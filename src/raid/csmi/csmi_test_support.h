// For the tests of the CSMI stack: a sender whose driver is a table of
// handlers by control code, which records every request as it arrived and
// can refuse the I/O control itself; and builders of phy entries.
#pragma once

#include <cstring>
#include <functional>
#include <map>
#include <vector>

#include "raid/csmi/csmi_send.h"

namespace csmi_testing {

struct SentRequest {
  HANDLE handle = nullptr;
  ULONG code = 0;
  std::vector<uint8_t> bytes;  // the buffer as it went out
};

class ScriptedCsmiSend : public CsmiSend {
 public:
  // Gets the buffer after the header's length was rewritten; returns the
  // driver's return code.
  using Handler = std::function<ULONG(uint8_t* buffer, size_t size)>;

  uint32_t send(HANDLE handle, CsmiCmd& cmd) override {
    cmd.setLength(cmd.length() - sizeof(SRB_IO_CONTROL));
    cmd.setHeaderLength(sizeof(SRB_IO_CONTROL));
    const size_t size = cmd.length() + sizeof(SRB_IO_CONTROL);
    sent.push_back({handle, cmd.controlCode(), std::vector<uint8_t>(cmd.data(), cmd.data() + size)});
    if (failIoctl.count(cmd.controlCode()) != 0 && failIoctl[cmd.controlCode()]-- > 0) return 34;
    const auto it = handlers.find(cmd.controlCode());
    cmd.setReturnCode(it == handlers.end() ? CSMI_SAS_STATUS_BAD_CNTL_CODE : it->second(cmd.data(), size));
    return 0;
  }

  size_t count(ULONG code) const {
    size_t n = 0;
    for (const SentRequest& request : sent) n += request.code == code ? 1 : 0;
    return n;
  }

  std::map<ULONG, Handler> handlers;
  // The next n I/O controls of a code fail (34).
  std::map<ULONG, int> failIoctl;
  std::vector<SentRequest> sent;
};

// A phy with an attached end device speaking `protocol`.
inline CSMI_SAS_PHY_ENTITY endDevicePhy(uint8_t index, uint8_t protocol) {
  CSMI_SAS_PHY_ENTITY phy{};
  phy.Identify.bDeviceType = CSMI_SAS_END_DEVICE;
  phy.Identify.bPhyIdentifier = index;
  phy.bPortIdentifier = static_cast<UCHAR>(index + 0x10);
  phy.Attached.bDeviceType = CSMI_SAS_END_DEVICE;
  phy.Attached.bTargetPortProtocol = protocol;
  phy.Attached.bPhyIdentifier = index;
  for (int k = 0; k < 8; ++k) phy.Attached.bSASAddress[k] = static_cast<UCHAR>(0x50 + k + index);
  return phy;
}

// A handler for the phy information that answers with `phys`.
inline ScriptedCsmiSend::Handler phyTable(std::vector<CSMI_SAS_PHY_ENTITY> phys) {
  return [phys](uint8_t* buffer, size_t) {
    auto* b = reinterpret_cast<CSMI_SAS_PHY_INFO_BUFFER*>(buffer);
    b->Information.bNumberOfPhys = static_cast<UCHAR>(phys.size());
    for (size_t i = 0; i < phys.size() && i < 32; ++i) b->Information.Phy[i] = phys[i];
    return CSMI_SAS_STATUS_SUCCESS;
  };
}

}  // namespace csmi_testing
