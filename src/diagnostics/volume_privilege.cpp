// Enabling and restoring SeManageVolumePrivilege on the process token.
#include "diagnostics/volume_privilege.h"

#include "win32/win32.h"

namespace {

// Every access right to the token (TOKEN_ALL_ACCESS).
constexpr DWORD kTokenAccess = 0xF01FF;

// Process-wide, unguarded: two write tests at once aren't expected.
DWORD gKeptAttributes = 0;

// Opens the token, looks the privilege up and applies `attributes` to it.
bool applyVolumePrivilege(DWORD attributes) {
  HANDLE token = nullptr;
  if (!OpenProcessToken(GetCurrentProcess(), kTokenAccess, &token)) return false;
  TOKEN_PRIVILEGES request{};
  request.PrivilegeCount = 1;
  request.Privileges[0].Attributes = attributes;
  bool applied = LookupPrivilegeValueW(nullptr, WIN32_WIDE("SeManageVolumePrivilege"), &request.Privileges[0].Luid) &&
                 AdjustTokenPrivileges(token, FALSE, &request, 0, nullptr, nullptr);
  // AdjustTokenPrivileges succeeds for a privilege the token lacks, and says
  // so only in the last error.
  if (applied && GetLastError() == ERROR_NOT_ALL_ASSIGNED) applied = false;
  if (applied) gKeptAttributes = request.Privileges[0].Attributes;
  CloseHandle(token);
  return applied;
}

}  // namespace

bool enableVolumePrivilege() { return applyVolumePrivilege(SE_PRIVILEGE_ENABLED); }

void restoreVolumePrivilege() { applyVolumePrivilege(gKeptAttributes); }

uint32_t keptVolumePrivilegeAttributes() { return gKeptAttributes; }
