// The one point where a CSMI request meets the driver: the request goes to
// the adapter's handle as a SCSI miniport I/O control, and the answer comes
// back into the same buffer. WinCsmiSend is the platform's sender.
#pragma once

#include <cstdint>

#include "raid/csmi/csmi_cmd.h"

class CsmiSend {
 public:
  virtual ~CsmiSend() = default;
  // Sends `cmd` on the adapter `handle`: 0 when the I/O control completed
  // (the driver's verdict is then in the header's return code), 34 when it
  // failed. The header's length is rewritten to count the bytes behind the
  // header, as the driver expects, so a request is sent once.
  virtual uint32_t send(HANDLE handle, CsmiCmd& cmd) = 0;
};

class WinCsmiSend : public CsmiSend {
 public:
  uint32_t send(HANDLE handle, CsmiCmd& cmd) override;
};

// The process's CSMI sender, made on first use and kept for the process.
CsmiSend* getCsmiSender();
// Puts another sender behind getCsmiSender() (null restores the platform's).
// For tests that script what a driver answers.
void setCsmiSenderForTesting(CsmiSend* replacement);
