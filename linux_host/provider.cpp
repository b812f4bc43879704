// Hands the Linux host's functions to the seam. The rows left empty are
// calls the module makes only for what this provider does not serve (the
// Windows and current directories, the module's own path, pipes and
// programs, WMI's arrays); the seam fails them with ERROR_CALL_NOT_IMPLEMENTED.
#include "linux_host/provider.h"

namespace linux_host {
namespace api {
#define WIN32_FUNCTION(ret, name, params, args, failure) ret name params;
#define WIN32_PROCEDURE(name, params, args) void name params;
#include "seam/win32_functions.inc"
#undef WIN32_FUNCTION
#undef WIN32_PROCEDURE
}  // namespace api

namespace {

seam::Provider makeProvider() {
  seam::Provider provider;
  provider.label = "Linux host";
#define SERVE(name) provider.name = &api::name
  // Handles, disks and their I/O (host.cpp, disk_control.cpp).
  SERVE(CloseHandle);
  SERVE(CreateFileA);
  SERVE(CreateFileW);
  SERVE(DeviceIoControl);
  SERVE(ReadFile);
  SERVE(WriteFile);
  SERVE(SetFilePointer);
  SERVE(SetFilePointerEx);
  SERVE(GetFileSizeEx);
  SERVE(GetOverlappedResult);
  SERVE(CancelIo);
  SERVE(CreateEventA);
  SERVE(CreateEventW);
  SERVE(SetEvent);
  SERVE(ResetEvent);
  SERVE(WaitForSingleObject);
  // Time, enumeration, privileges, libraries, programs, COM (system.cpp).
  SERVE(GetTickCount);
  SERVE(Sleep);
  SERVE(SetErrorMode);
  SERVE(SetupDiGetClassDevsW);
  SERVE(SetupDiEnumDeviceInfo);
  SERVE(SetupDiEnumDeviceInterfaces);
  SERVE(SetupDiGetDeviceInterfaceDetailW);
  SERVE(SetupDiGetDeviceRegistryPropertyW);
  SERVE(SetupDiDestroyDeviceInfoList);
  SERVE(GetLogicalDrives);
  SERVE(GetLogicalDriveStringsA);
  SERVE(GetLogicalDriveStringsW);
  SERVE(FindFirstVolumeW);
  // Files on volumes (files.cpp).
  SERVE(SetEndOfFile);
  SERVE(SetFileValidData);
  SERVE(FindFirstFileA);
  SERVE(FindFirstFileW);
  SERVE(FindNextFileA);
  SERVE(FindNextFileW);
  SERVE(FindClose);
  SERVE(DeleteFileA);
  SERVE(DeleteFileW);
  SERVE(CreateDirectoryA);
  SERVE(CreateDirectoryW);
  SERVE(RemoveDirectoryA);
  SERVE(RemoveDirectoryW);
  SERVE(GetFileAttributesA);
  SERVE(GetFileAttributesW);
  SERVE(SetFileAttributesA);
  SERVE(SetFileAttributesW);
  SERVE(MoveFileExA);
  SERVE(MoveFileExW);
  SERVE(GetDriveTypeA);
  SERVE(GetDriveTypeW);
  SERVE(GetVolumeInformationA);
  SERVE(GetVolumeInformationW);
  SERVE(GetDiskFreeSpaceExA);
  SERVE(GetDiskFreeSpaceExW);
  SERVE(GetCurrentProcess);
  SERVE(OpenProcessToken);
  SERVE(LookupPrivilegeValueA);
  SERVE(LookupPrivilegeValueW);
  SERVE(AdjustTokenPrivileges);
  SERVE(LoadLibraryA);
  SERVE(LoadLibraryW);
  SERVE(LoadLibraryExA);
  SERVE(GetProcAddress);
  SERVE(FreeLibrary);
  SERVE(CreateProcessW);
  SERVE(WinExec);
  SERVE(CoInitializeEx);
  SERVE(CoUninitialize);
  SERVE(CoInitializeSecurity);
  SERVE(CoCreateInstance);
  SERVE(SysAllocString);
  SERVE(SysAllocStringLen);
  SERVE(SysFreeString);
  SERVE(SysStringLen);
  SERVE(VariantInit);
  SERVE(VariantClear);
#undef SERVE
  return provider;
}

}  // namespace

const seam::Provider& provider() {
  static const seam::Provider table = makeProvider();
  return table;
}

}  // namespace linux_host
