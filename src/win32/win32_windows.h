// Windows build: the real platform headers, in the order they need.
#pragma once

#ifndef WIN32_LEAN_AND_MEAN
#define WIN32_LEAN_AND_MEAN
#endif
#ifndef NOMINMAX
#define NOMINMAX
#endif
#include <windows.h>
#include <winioctl.h>
#include <ntddscsi.h>
#include <setupapi.h>
#include <shlobj.h>
// COM, OLE automation and the management instrumentation (WMI).
#include <objbase.h>
#include <oleauto.h>
#include <wbemidl.h>

// Documented flags that older SDK headers lack.
#ifndef ATA_FLAGS_NO_MULTIPLE
#define ATA_FLAGS_NO_MULTIPLE (1 << 5)
#endif
