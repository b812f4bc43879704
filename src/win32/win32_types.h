// Non-Windows build: the basic Win32 types with their Windows sizes. Wide
// characters are 16 bits here as on Windows. Control codes, records and the
// functions themselves are declared beside this file as they are needed.
#pragma once

#include <cstdint>

using BYTE = uint8_t;
using WORD = uint16_t;
using DWORD = uint32_t;
using ULONG = uint32_t;
using LONG = int32_t;
using BOOL = int32_t;
using BOOLEAN = uint8_t;
using UCHAR = uint8_t;
using USHORT = uint16_t;
using LONGLONG = int64_t;
using ULONGLONG = uint64_t;
using DWORD64 = uint64_t;
using ULONG_PTR = uintptr_t;
using WCHAR = char16_t;
using HANDLE = void*;
using LPVOID = void*;
using LPCVOID = const void*;
using LPDWORD = DWORD*;

#define INVALID_HANDLE_VALUE (reinterpret_cast<HANDLE>(static_cast<intptr_t>(-1)))

#ifndef TRUE
#define TRUE 1
#endif
#ifndef FALSE
#define FALSE 0
#endif

static_assert(sizeof(DWORD) == 4, "DWORD is 32 bits");
static_assert(sizeof(WCHAR) == 2, "wide characters are 16 bits");
static_assert(sizeof(LONGLONG) == 8, "LONGLONG is 64 bits");
