// The Linux host as a provider of the seam: the table of the Win32 functions
// it serves from the kernel's own disks, image files and clock. Choosing it
// (linux_host::install in host.h, or MODULE_STORAGE_MACHINE unset or "host")
// is the seam's business; this only hands out the table.
#pragma once

#include "seam/provider.h"

namespace linux_host {

const seam::Provider& provider();

}  // namespace linux_host
