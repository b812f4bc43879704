// The Win32 functions of the non-Windows build, as a PC with no disks answers
// them. The simulated Windows face serves them from an installed machine.
#include "win32/win32.h"

namespace {
thread_local DWORD gLastError = ERROR_SUCCESS;
}  // namespace

DWORD GetLastError() { return gLastError; }

void SetLastError(DWORD code) { gLastError = code; }

BOOL CloseHandle(HANDLE) {
  SetLastError(ERROR_INVALID_HANDLE);
  return FALSE;
}

BOOL DeviceIoControl(HANDLE, DWORD, LPVOID, DWORD, LPVOID, DWORD, LPDWORD bytesReturned, LPOVERLAPPED) {
  if (bytesReturned != nullptr) *bytesReturned = 0;
  SetLastError(ERROR_INVALID_HANDLE);
  return FALSE;
}
