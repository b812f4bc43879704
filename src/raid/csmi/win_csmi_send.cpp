// CSMI through IOCTL_SCSI_MINIPORT on the adapter's handle, one buffer for the
// request and the answer.
#include "raid/csmi/csmi_send.h"

#include "commands/status_codes.h"

uint32_t WinCsmiSend::send(HANDLE handle, CsmiCmd& cmd) {
  // From here on the length counts the bytes behind the 28-byte header.
  cmd.setLength(cmd.length() - sizeof(SRB_IO_CONTROL));
  cmd.setHeaderLength(sizeof(SRB_IO_CONTROL));
  const DWORD total = cmd.length() + sizeof(SRB_IO_CONTROL);
  DWORD returned = 0;
  if (DeviceIoControl(handle, IOCTL_SCSI_MINIPORT, cmd.data(), total, cmd.data(), total, &returned, nullptr)) {
    return kStatusOk;
  }
  // The reason is fetched for a debugger's sake; the caller only learns 34.
  const DWORD reason = GetLastError();
  (void)reason;
  return kStatusIoctlFailed;
}

namespace {

CsmiSend* gReplacement = nullptr;

}  // namespace

CsmiSend* getCsmiSender() {
  static WinCsmiSend sender;
  return gReplacement != nullptr ? gReplacement : &sender;
}

void setCsmiSenderForTesting(CsmiSend* replacement) { gReplacement = replacement; }
