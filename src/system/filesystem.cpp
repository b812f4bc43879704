// The process-wide filesystem accessor.
#include "system/filesystem.h"

#include "system/win_filesystem.h"

namespace {
Filesystem* gReplacement = nullptr;
}  // namespace

Filesystem& getFilesystem() {
  if (gReplacement != nullptr) return *gReplacement;
  static WinFilesystem platform;
  return platform;
}

void setFilesystemForTesting(Filesystem* replacement) { gReplacement = replacement; }
