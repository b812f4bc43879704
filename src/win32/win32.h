// The one seam to the operating system. On Windows it is the platform's own
// headers; elsewhere it is this project's declarations of the same types,
// constants and functions, served by the simulated PC. Either way the layouts
// are checked against the Windows x64 ABI at compile time.
#pragma once

#include <string>

#if defined(_WIN32)
#include "win32/win32_windows.h"
// A wide literal, and the wide string, on both builds (WCHAR is wchar_t here).
#define WIN32_WIDE(text) L##text
#else
#include "win32/win32_types.h"
#define WIN32_WIDE(text) u##text
#endif

using Win32WideString = std::basic_string<WCHAR>;

#include "win32/win32_layout_check.h"
#include "win32/win32_com_layout_check.h"
