// Non-Windows build: the Win32 types, constants and functions the module uses,
// with their Windows sizes and offsets. Wide characters are 16 bits here as on
// Windows. The functions are served by the simulated PC's Windows face.
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
using UINT = uint32_t;
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

using PVOID = void*;

struct OVERLAPPED {
  ULONG_PTR Internal;
  ULONG_PTR InternalHigh;
  union {
    struct {
      DWORD Offset;
      DWORD OffsetHigh;
    } s;
    PVOID Pointer;
  } u;
  HANDLE hEvent;
};
using LPOVERLAPPED = OVERLAPPED*;
static_assert(sizeof(OVERLAPPED) == 32, "OVERLAPPED is 32 bytes on x64");

// Error codes (winerror.h values).
constexpr DWORD ERROR_SUCCESS = 0;
constexpr DWORD ERROR_INVALID_HANDLE = 6;
constexpr DWORD ERROR_INVALID_PARAMETER = 87;
constexpr DWORD ERROR_INSUFFICIENT_BUFFER = 122;
constexpr DWORD ERROR_INVALID_FLAGS = 1004;
constexpr DWORD ERROR_NO_UNICODE_TRANSLATION = 1113;

// Control codes.
constexpr DWORD IOCTL_STORAGE_PREDICT_FAILURE = 0x2D1100;

// Functions.
DWORD GetLastError();
void SetLastError(DWORD code);
BOOL CloseHandle(HANDLE handle);
BOOL DeviceIoControl(HANDLE device, DWORD controlCode, LPVOID inBuffer, DWORD inSize, LPVOID outBuffer,
                     DWORD outSize, LPDWORD bytesReturned, LPOVERLAPPED overlapped);

// Code pages. The simulated PC knows UTF-8 only.
constexpr UINT CP_UTF8 = 65001;
constexpr DWORD MB_ERR_INVALID_CHARS = 0x08;
constexpr DWORD WC_ERR_INVALID_CHARS = 0x80;
// Counts of -1 mean "up to and with the NUL"; a size of 0 asks for the size
// needed. Without the *_ERR_INVALID_CHARS flag a bad sequence becomes U+FFFD.
int WideCharToMultiByte(UINT codePage, DWORD flags, const WCHAR* wide, int wideCount, char* narrow, int narrowSize,
                        const char* defaultChar, BOOL* usedDefaultChar);
int MultiByteToWideChar(UINT codePage, DWORD flags, const char* narrow, int narrowCount, WCHAR* wide, int wideSize);
