// The one seam to the operating system. On Windows it is the platform's own
// headers; elsewhere it is this project's declarations of the same types,
// constants and functions, served by the simulated PC.
#pragma once

#if defined(_WIN32)
#include "win32/win32_windows.h"
#else
#include "win32/win32_types.h"
#endif
