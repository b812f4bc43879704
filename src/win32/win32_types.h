// Non-Windows build: the Win32 types, constants and functions the module uses,
// with their Windows x64 sizes and offsets. Wide characters are 16 bits here as
// on Windows. The functions are served by the simulated PC's Windows face
// (sim/windows/); this header only declares them.
//
// Records of the storage stack are in win32_storage_types.h, SetupAPI in
// win32_setupapi_types.h, COM and WMI in win32_com_types.h. Every layout is
// checked in win32_layout_check.h, which the Windows build compiles against
// the platform's own headers.
#pragma once

#include <cstddef>
#include <cstdint>

// --- Basic types ---------------------------------------------------------------

using BYTE = uint8_t;
using WORD = uint16_t;
using DWORD = uint32_t;
using ULONG = uint32_t;
using LONG = int32_t;
using INT = int32_t;
using UINT = uint32_t;
using BOOL = int32_t;
using BOOLEAN = uint8_t;
using UCHAR = uint8_t;
using USHORT = uint16_t;
using CHAR = char;
using LONGLONG = int64_t;
using ULONGLONG = uint64_t;
using DWORD64 = uint64_t;
using DWORDLONG = uint64_t;
using ULONG_PTR = uintptr_t;
using LONG_PTR = intptr_t;
using SIZE_T = uintptr_t;
using WCHAR = char16_t;
using HANDLE = void*;
using PVOID = void*;
using LPVOID = void*;
using LPCVOID = const void*;
using LPBYTE = BYTE*;
using LPDWORD = DWORD*;
using PDWORD = DWORD*;
using PULONG = ULONG*;
using LPLONG = LONG*;
using PLONG = LONG*;
using LPSTR = char*;
using LPCSTR = const char*;
using LPWSTR = WCHAR*;
using LPCWSTR = const WCHAR*;
using PHANDLE = HANDLE*;
using HMODULE = void*;
using HINSTANCE = void*;
using HWND = void*;
using FARPROC = intptr_t (*)();
using DEVICE_TYPE = DWORD;

static_assert(sizeof(DWORD) == 4, "DWORD is 32 bits");
static_assert(sizeof(LONG) == 4, "LONG is 32 bits on Windows x64 too");
static_assert(sizeof(WCHAR) == 2, "wide characters are 16 bits");
static_assert(sizeof(LONGLONG) == 8, "LONGLONG is 64 bits");
static_assert(sizeof(HANDLE) == 8, "the seam describes the x64 ABI");

#define INVALID_HANDLE_VALUE (reinterpret_cast<HANDLE>(static_cast<intptr_t>(-1)))

#ifndef TRUE
#define TRUE 1
#endif
#ifndef FALSE
#define FALSE 0
#endif

// The nameless members are as on Windows, so that `x.LowPart` and `o.Offset`
// read the same on both builds.
union LARGE_INTEGER {
  struct {
    DWORD LowPart;
    LONG HighPart;
  };
  struct {
    DWORD LowPart;
    LONG HighPart;
  } u;
  LONGLONG QuadPart;
};
using PLARGE_INTEGER = LARGE_INTEGER*;

union ULARGE_INTEGER {
  struct {
    DWORD LowPart;
    DWORD HighPart;
  };
  struct {
    DWORD LowPart;
    DWORD HighPart;
  } u;
  ULONGLONG QuadPart;
};
using PULARGE_INTEGER = ULARGE_INTEGER*;

struct GUID {
  DWORD Data1;
  WORD Data2;
  WORD Data3;
  BYTE Data4[8];
};

struct FILETIME {
  DWORD dwLowDateTime;
  DWORD dwHighDateTime;
};

struct OVERLAPPED {
  ULONG_PTR Internal;
  ULONG_PTR InternalHigh;
  union {
    struct {
      DWORD Offset;
      DWORD OffsetHigh;
    };
    PVOID Pointer;
  };
  HANDLE hEvent;
};
using LPOVERLAPPED = OVERLAPPED*;

struct SECURITY_ATTRIBUTES {
  DWORD nLength;
  LPVOID lpSecurityDescriptor;
  BOOL bInheritHandle;
};
using LPSECURITY_ATTRIBUTES = SECURITY_ATTRIBUTES*;

constexpr DWORD MAX_PATH = 260;

struct WIN32_FIND_DATAA {
  DWORD dwFileAttributes;
  FILETIME ftCreationTime;
  FILETIME ftLastAccessTime;
  FILETIME ftLastWriteTime;
  DWORD nFileSizeHigh;
  DWORD nFileSizeLow;
  DWORD dwReserved0;
  DWORD dwReserved1;
  CHAR cFileName[MAX_PATH];
  CHAR cAlternateFileName[14];
};
using LPWIN32_FIND_DATAA = WIN32_FIND_DATAA*;

struct WIN32_FIND_DATAW {
  DWORD dwFileAttributes;
  FILETIME ftCreationTime;
  FILETIME ftLastAccessTime;
  FILETIME ftLastWriteTime;
  DWORD nFileSizeHigh;
  DWORD nFileSizeLow;
  DWORD dwReserved0;
  DWORD dwReserved1;
  WCHAR cFileName[MAX_PATH];
  WCHAR cAlternateFileName[14];
};
using LPWIN32_FIND_DATAW = WIN32_FIND_DATAW*;

struct STARTUPINFOW {
  DWORD cb;
  LPWSTR lpReserved;
  LPWSTR lpDesktop;
  LPWSTR lpTitle;
  DWORD dwX;
  DWORD dwY;
  DWORD dwXSize;
  DWORD dwYSize;
  DWORD dwXCountChars;
  DWORD dwYCountChars;
  DWORD dwFillAttribute;
  DWORD dwFlags;
  WORD wShowWindow;
  WORD cbReserved2;
  LPBYTE lpReserved2;
  HANDLE hStdInput;
  HANDLE hStdOutput;
  HANDLE hStdError;
};
using LPSTARTUPINFOW = STARTUPINFOW*;

struct PROCESS_INFORMATION {
  HANDLE hProcess;
  HANDLE hThread;
  DWORD dwProcessId;
  DWORD dwThreadId;
};
using LPPROCESS_INFORMATION = PROCESS_INFORMATION*;

struct LUID {
  DWORD LowPart;
  LONG HighPart;
};
using PLUID = LUID*;

struct LUID_AND_ATTRIBUTES {
  LUID Luid;
  DWORD Attributes;
};

struct TOKEN_PRIVILEGES {
  DWORD PrivilegeCount;
  LUID_AND_ATTRIBUTES Privileges[1];
};
using PTOKEN_PRIVILEGES = TOKEN_PRIVILEGES*;

// --- Error codes (winerror.h values) ---------------------------------------------

constexpr DWORD ERROR_SUCCESS = 0;
constexpr DWORD ERROR_INVALID_FUNCTION = 1;
constexpr DWORD ERROR_FILE_NOT_FOUND = 2;
constexpr DWORD ERROR_PATH_NOT_FOUND = 3;
constexpr DWORD ERROR_ACCESS_DENIED = 5;
constexpr DWORD ERROR_INVALID_HANDLE = 6;
constexpr DWORD ERROR_NOT_ENOUGH_MEMORY = 8;
constexpr DWORD ERROR_INVALID_DRIVE = 15;
constexpr DWORD ERROR_NO_MORE_FILES = 18;
constexpr DWORD ERROR_WRITE_PROTECT = 19;
constexpr DWORD ERROR_NOT_READY = 21;
constexpr DWORD ERROR_CRC = 23;
constexpr DWORD ERROR_SECTOR_NOT_FOUND = 27;
constexpr DWORD ERROR_GEN_FAILURE = 31;
constexpr DWORD ERROR_SHARING_VIOLATION = 32;
constexpr DWORD ERROR_LOCK_VIOLATION = 33;
constexpr DWORD ERROR_HANDLE_EOF = 38;
constexpr DWORD ERROR_NOT_SUPPORTED = 50;
constexpr DWORD ERROR_FILE_EXISTS = 80;
constexpr DWORD ERROR_INVALID_PARAMETER = 87;
constexpr DWORD ERROR_BROKEN_PIPE = 109;
constexpr DWORD ERROR_DISK_FULL = 112;
constexpr DWORD ERROR_SEM_TIMEOUT = 121;
constexpr DWORD ERROR_INSUFFICIENT_BUFFER = 122;
constexpr DWORD ERROR_INVALID_NAME = 123;
constexpr DWORD ERROR_MOD_NOT_FOUND = 126;
constexpr DWORD ERROR_PROC_NOT_FOUND = 127;
constexpr DWORD ERROR_DIR_NOT_EMPTY = 145;
constexpr DWORD ERROR_ALREADY_EXISTS = 183;
constexpr DWORD ERROR_MORE_DATA = 234;
constexpr DWORD ERROR_NO_MORE_ITEMS = 259;
constexpr DWORD ERROR_OPERATION_ABORTED = 995;
constexpr DWORD ERROR_IO_INCOMPLETE = 996;
constexpr DWORD ERROR_IO_PENDING = 997;
constexpr DWORD ERROR_INVALID_FLAGS = 1004;
constexpr DWORD ERROR_NO_UNICODE_TRANSLATION = 1113;
constexpr DWORD ERROR_IO_DEVICE = 1117;
constexpr DWORD ERROR_DEVICE_NOT_CONNECTED = 1167;
constexpr DWORD ERROR_NOT_ALL_ASSIGNED = 1300;
constexpr DWORD ERROR_NO_SUCH_PRIVILEGE = 1313;
constexpr DWORD ERROR_PRIVILEGE_NOT_HELD = 1314;
constexpr DWORD ERROR_TIMEOUT = 1460;

// --- Files, handles and waits ----------------------------------------------------

constexpr DWORD GENERIC_READ = 0x80000000u;
constexpr DWORD GENERIC_WRITE = 0x40000000u;
constexpr DWORD GENERIC_EXECUTE = 0x20000000u;
constexpr DWORD GENERIC_ALL = 0x10000000u;
constexpr DWORD MAXIMUM_ALLOWED = 0x02000000u;

constexpr DWORD FILE_SHARE_READ = 0x1;
constexpr DWORD FILE_SHARE_WRITE = 0x2;
constexpr DWORD FILE_SHARE_DELETE = 0x4;

constexpr DWORD CREATE_NEW = 1;
constexpr DWORD CREATE_ALWAYS = 2;
constexpr DWORD OPEN_EXISTING = 3;
constexpr DWORD OPEN_ALWAYS = 4;
constexpr DWORD TRUNCATE_EXISTING = 5;

constexpr DWORD FILE_ATTRIBUTE_READONLY = 0x1;
constexpr DWORD FILE_ATTRIBUTE_HIDDEN = 0x2;
constexpr DWORD FILE_ATTRIBUTE_SYSTEM = 0x4;
constexpr DWORD FILE_ATTRIBUTE_DIRECTORY = 0x10;
constexpr DWORD FILE_ATTRIBUTE_ARCHIVE = 0x20;
constexpr DWORD FILE_ATTRIBUTE_NORMAL = 0x80;
constexpr DWORD FILE_ATTRIBUTE_SPARSE_FILE = 0x200;
constexpr DWORD INVALID_FILE_ATTRIBUTES = 0xFFFFFFFFu;

constexpr DWORD FILE_FLAG_WRITE_THROUGH = 0x80000000u;
constexpr DWORD FILE_FLAG_OVERLAPPED = 0x40000000u;
constexpr DWORD FILE_FLAG_NO_BUFFERING = 0x20000000u;
constexpr DWORD FILE_FLAG_RANDOM_ACCESS = 0x10000000u;
constexpr DWORD FILE_FLAG_SEQUENTIAL_SCAN = 0x08000000u;
constexpr DWORD FILE_FLAG_DELETE_ON_CLOSE = 0x04000000u;
constexpr DWORD FILE_FLAG_BACKUP_SEMANTICS = 0x02000000u;

constexpr DWORD FILE_BEGIN = 0;
constexpr DWORD FILE_CURRENT = 1;
constexpr DWORD FILE_END = 2;
constexpr DWORD INVALID_SET_FILE_POINTER = 0xFFFFFFFFu;

constexpr DWORD WAIT_OBJECT_0 = 0;
constexpr DWORD WAIT_ABANDONED = 0x80;
constexpr DWORD WAIT_TIMEOUT = 258;
constexpr DWORD WAIT_FAILED = 0xFFFFFFFFu;
constexpr DWORD INFINITE = 0xFFFFFFFFu;

constexpr DWORD MOVEFILE_REPLACE_EXISTING = 0x1;
constexpr DWORD MOVEFILE_COPY_ALLOWED = 0x2;
constexpr DWORD MOVEFILE_DELAY_UNTIL_REBOOT = 0x4;

constexpr UINT DRIVE_UNKNOWN = 0;
constexpr UINT DRIVE_NO_ROOT_DIR = 1;
constexpr UINT DRIVE_REMOVABLE = 2;
constexpr UINT DRIVE_FIXED = 3;
constexpr UINT DRIVE_REMOTE = 4;
constexpr UINT DRIVE_CDROM = 5;
constexpr UINT DRIVE_RAMDISK = 6;

constexpr UINT SEM_FAILCRITICALERRORS = 0x0001;
constexpr UINT SEM_NOOPENFILEERRORBOX = 0x8000;

// --- Processes, tokens and privileges ---------------------------------------------

constexpr DWORD STILL_ACTIVE = 259;
constexpr DWORD STARTF_USESTDHANDLES = 0x100;
constexpr DWORD NORMAL_PRIORITY_CLASS = 0x20;
constexpr DWORD CREATE_NO_WINDOW = 0x08000000u;
constexpr UINT SW_HIDE = 0;

constexpr DWORD TOKEN_QUERY = 0x0008;
constexpr DWORD TOKEN_ADJUST_PRIVILEGES = 0x0020;
constexpr DWORD TOKEN_ALL_ACCESS = 0xF01FF;
constexpr DWORD SE_PRIVILEGE_ENABLED = 0x2;
#define SE_MANAGE_VOLUME_NAME u"SeManageVolumePrivilege"

// --- Text conversion ------------------------------------------------------------

constexpr UINT CP_ACP = 0;
constexpr UINT CP_OEMCP = 1;
constexpr UINT CP_UTF8 = 65001;

// --- Functions --------------------------------------------------------------------
// Names, arguments and results as in the Windows API. Failure is reported as
// there: FALSE, INVALID_HANDLE_VALUE, null or a documented sentinel, with the
// reason in GetLastError().

DWORD GetLastError();
void SetLastError(DWORD code);
BOOL CloseHandle(HANDLE handle);

HANDLE CreateFileA(LPCSTR name, DWORD access, DWORD share, LPSECURITY_ATTRIBUTES security, DWORD disposition,
                   DWORD flags, HANDLE templateFile);
HANDLE CreateFileW(LPCWSTR name, DWORD access, DWORD share, LPSECURITY_ATTRIBUTES security, DWORD disposition,
                   DWORD flags, HANDLE templateFile);
BOOL DeviceIoControl(HANDLE device, DWORD controlCode, LPVOID inBuffer, DWORD inSize, LPVOID outBuffer,
                     DWORD outSize, LPDWORD bytesReturned, LPOVERLAPPED overlapped);
BOOL ReadFile(HANDLE file, LPVOID buffer, DWORD toRead, LPDWORD read, LPOVERLAPPED overlapped);
BOOL WriteFile(HANDLE file, LPCVOID buffer, DWORD toWrite, LPDWORD written, LPOVERLAPPED overlapped);
DWORD SetFilePointer(HANDLE file, LONG distanceLow, PLONG distanceHigh, DWORD moveMethod);
BOOL SetFilePointerEx(HANDLE file, LARGE_INTEGER distance, PLARGE_INTEGER newPointer, DWORD moveMethod);
BOOL SetEndOfFile(HANDLE file);
BOOL SetFileValidData(HANDLE file, LONGLONG validDataLength);
BOOL GetFileSizeEx(HANDLE file, PLARGE_INTEGER size);
BOOL GetOverlappedResult(HANDLE file, LPOVERLAPPED overlapped, LPDWORD transferred, BOOL wait);
BOOL CancelIo(HANDLE file);

HANDLE CreateEventA(LPSECURITY_ATTRIBUTES security, BOOL manualReset, BOOL initialState, LPCSTR name);
HANDLE CreateEventW(LPSECURITY_ATTRIBUTES security, BOOL manualReset, BOOL initialState, LPCWSTR name);
BOOL SetEvent(HANDLE event);
BOOL ResetEvent(HANDLE event);
DWORD WaitForSingleObject(HANDLE handle, DWORD milliseconds);

DWORD GetTickCount();
void Sleep(DWORD milliseconds);
UINT SetErrorMode(UINT mode);

DWORD GetLogicalDrives();
DWORD GetLogicalDriveStringsA(DWORD length, LPSTR buffer);
DWORD GetLogicalDriveStringsW(DWORD length, LPWSTR buffer);
UINT GetDriveTypeA(LPCSTR root);
UINT GetDriveTypeW(LPCWSTR root);
BOOL GetVolumeInformationA(LPCSTR root, LPSTR volumeName, DWORD volumeNameSize, LPDWORD serialNumber,
                           LPDWORD maxComponentLength, LPDWORD fileSystemFlags, LPSTR fileSystemName,
                           DWORD fileSystemNameSize);
BOOL GetVolumeInformationW(LPCWSTR root, LPWSTR volumeName, DWORD volumeNameSize, LPDWORD serialNumber,
                           LPDWORD maxComponentLength, LPDWORD fileSystemFlags, LPWSTR fileSystemName,
                           DWORD fileSystemNameSize);
BOOL GetDiskFreeSpaceExA(LPCSTR directory, PULARGE_INTEGER freeToCaller, PULARGE_INTEGER totalBytes,
                         PULARGE_INTEGER totalFree);
BOOL GetDiskFreeSpaceExW(LPCWSTR directory, PULARGE_INTEGER freeToCaller, PULARGE_INTEGER totalBytes,
                         PULARGE_INTEGER totalFree);
HANDLE FindFirstVolumeW(LPWSTR volumeName, DWORD length);
BOOL FindNextVolumeW(HANDLE find, LPWSTR volumeName, DWORD length);
BOOL FindVolumeClose(HANDLE find);
BOOL GetVolumePathNamesForVolumeNameW(LPCWSTR volumeName, LPWSTR pathNames, DWORD length, PDWORD returnLength);

HANDLE FindFirstFileA(LPCSTR pattern, LPWIN32_FIND_DATAA data);
HANDLE FindFirstFileW(LPCWSTR pattern, LPWIN32_FIND_DATAW data);
BOOL FindNextFileA(HANDLE find, LPWIN32_FIND_DATAA data);
BOOL FindNextFileW(HANDLE find, LPWIN32_FIND_DATAW data);
BOOL FindClose(HANDLE find);
BOOL DeleteFileA(LPCSTR name);
BOOL DeleteFileW(LPCWSTR name);
BOOL CreateDirectoryA(LPCSTR name, LPSECURITY_ATTRIBUTES security);
BOOL CreateDirectoryW(LPCWSTR name, LPSECURITY_ATTRIBUTES security);
BOOL RemoveDirectoryA(LPCSTR name);
BOOL RemoveDirectoryW(LPCWSTR name);
DWORD GetFileAttributesA(LPCSTR name);
DWORD GetFileAttributesW(LPCWSTR name);
BOOL SetFileAttributesA(LPCSTR name, DWORD attributes);
BOOL SetFileAttributesW(LPCWSTR name, DWORD attributes);
BOOL MoveFileExA(LPCSTR existing, LPCSTR replacement, DWORD flags);
BOOL MoveFileExW(LPCWSTR existing, LPCWSTR replacement, DWORD flags);
int SHCreateDirectoryExA(HWND window, LPCSTR path, const SECURITY_ATTRIBUTES* security);
DWORD GetCurrentDirectoryA(DWORD length, LPSTR buffer);
DWORD GetCurrentDirectoryW(DWORD length, LPWSTR buffer);
DWORD GetModuleFileNameA(HMODULE module, LPSTR buffer, DWORD size);
DWORD GetModuleFileNameW(HMODULE module, LPWSTR buffer, DWORD size);
UINT GetSystemWindowsDirectoryA(LPSTR buffer, UINT size);
UINT GetSystemWindowsDirectoryW(LPWSTR buffer, UINT size);

HANDLE GetCurrentProcess();
BOOL OpenProcessToken(HANDLE process, DWORD access, PHANDLE token);
BOOL LookupPrivilegeValueA(LPCSTR system, LPCSTR name, PLUID luid);
BOOL LookupPrivilegeValueW(LPCWSTR system, LPCWSTR name, PLUID luid);
BOOL AdjustTokenPrivileges(HANDLE token, BOOL disableAll, PTOKEN_PRIVILEGES newState, DWORD bufferLength,
                           PTOKEN_PRIVILEGES previousState, PDWORD returnLength);

HMODULE LoadLibraryA(LPCSTR name);
HMODULE LoadLibraryW(LPCWSTR name);
HMODULE LoadLibraryExA(LPCSTR name, HANDLE file, DWORD flags);
FARPROC GetProcAddress(HMODULE module, LPCSTR name);
BOOL FreeLibrary(HMODULE module);

BOOL CreatePipe(PHANDLE readPipe, PHANDLE writePipe, LPSECURITY_ATTRIBUTES security, DWORD size);
BOOL CreateProcessW(LPCWSTR application, LPWSTR commandLine, LPSECURITY_ATTRIBUTES processSecurity,
                    LPSECURITY_ATTRIBUTES threadSecurity, BOOL inheritHandles, DWORD creationFlags,
                    LPVOID environment, LPCWSTR currentDirectory, LPSTARTUPINFOW startupInfo,
                    LPPROCESS_INFORMATION processInformation);
BOOL GetExitCodeProcess(HANDLE process, LPDWORD exitCode);
BOOL TerminateProcess(HANDLE process, UINT exitCode);
UINT WinExec(LPCSTR commandLine, UINT showCommand);

// Code pages: the simulated PC knows UTF-8 only.
constexpr DWORD MB_ERR_INVALID_CHARS = 0x08;
constexpr DWORD WC_ERR_INVALID_CHARS = 0x80;
// Counts of -1 mean "up to and with the NUL"; a size of 0 asks for the size
// needed. Without the *_ERR_INVALID_CHARS flag a bad sequence becomes U+FFFD.
int MultiByteToWideChar(UINT codePage, DWORD flags, LPCSTR text, int length, LPWSTR wide, int wideLength);
int WideCharToMultiByte(UINT codePage, DWORD flags, LPCWSTR wide, int wideLength, LPSTR text, int length,
                        LPCSTR defaultChar, BOOL* usedDefault);

#include "win32/win32_storage_types.h"
#include "win32/win32_setupapi_types.h"
#include "win32/win32_com_types.h"
