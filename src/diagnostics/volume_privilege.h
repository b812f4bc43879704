// The process's right to manage volumes (SeManageVolumePrivilege), which lets
// the device write test give its temporary files their size without having
// the clusters zero-filled.
#pragma once

#include <cstdint>

// Enables the privilege on the process token. False when any call fails or
// the token doesn't hold it (ERROR_NOT_ALL_ASSIGNED); on success the
// attribute applied is kept process-wide for restoreVolumePrivilege.
bool enableVolumePrivilege();

// Applies the kept attribute again in the same way. The kept value is the
// enabled attribute itself, not the state found before, so the privilege
// stays enabled and a later run finds it so; the pair has always worked so.
void restoreVolumePrivilege();

// The attribute kept by the last successful enableVolumePrivilege; 0 before.
uint32_t keptVolumePrivilegeAttributes();

// Restores the privilege when it goes out of scope, if `enabled`: on every way
// out of the work done with it, an exception included.
class VolumePrivilegeRestore {
 public:
  explicit VolumePrivilegeRestore(bool enabled) : enabled_(enabled) {}
  ~VolumePrivilegeRestore() {
    if (enabled_) restoreVolumePrivilege();
  }
  VolumePrivilegeRestore(const VolumePrivilegeRestore&) = delete;
  VolumePrivilegeRestore& operator=(const VolumePrivilegeRestore&) = delete;

 private:
  bool enabled_;
};
