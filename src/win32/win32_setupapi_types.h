// Non-Windows build: the SetupAPI calls that list device interfaces (setupapi.h
// on Windows), with their Windows x64 layouts.
#pragma once

// Included by win32_types.h after the basic types.

using HDEVINFO = void*;

constexpr DWORD DIGCF_DEFAULT = 0x01;
constexpr DWORD DIGCF_PRESENT = 0x02;
constexpr DWORD DIGCF_ALLCLASSES = 0x04;
constexpr DWORD DIGCF_PROFILE = 0x08;
constexpr DWORD DIGCF_DEVICEINTERFACE = 0x10;

constexpr DWORD SPDRP_DEVICEDESC = 0x00;
constexpr DWORD SPDRP_HARDWAREID = 0x01;
constexpr DWORD SPDRP_FRIENDLYNAME = 0x0C;

constexpr DWORD REG_SZ = 1;
constexpr DWORD REG_MULTI_SZ = 7;

// 0 cbSize 4 ClassGuid 20 DevInst 24 Reserved; 32 bytes.
struct SP_DEVINFO_DATA {
  DWORD cbSize;
  GUID ClassGuid;
  DWORD DevInst;
  ULONG_PTR Reserved;
};
using PSP_DEVINFO_DATA = SP_DEVINFO_DATA*;

// 0 cbSize 4 InterfaceClassGuid 20 Flags 24 Reserved; 32 bytes.
struct SP_DEVICE_INTERFACE_DATA {
  DWORD cbSize;
  GUID InterfaceClassGuid;
  DWORD Flags;
  ULONG_PTR Reserved;
};
using PSP_DEVICE_INTERFACE_DATA = SP_DEVICE_INTERFACE_DATA*;

// cbSize must be set to 8, the size of the fixed part with its padding; the
// path runs on past the record into the caller's buffer.
struct SP_DEVICE_INTERFACE_DETAIL_DATA_W {
  DWORD cbSize;
  WCHAR DevicePath[1];
};
using PSP_DEVICE_INTERFACE_DETAIL_DATA_W = SP_DEVICE_INTERFACE_DETAIL_DATA_W*;

HDEVINFO SetupDiGetClassDevsW(const GUID* classGuid, LPCWSTR enumerator, HWND parent, DWORD flags);
BOOL SetupDiEnumDeviceInfo(HDEVINFO set, DWORD index, PSP_DEVINFO_DATA data);
BOOL SetupDiEnumDeviceInterfaces(HDEVINFO set, PSP_DEVINFO_DATA device, const GUID* interfaceGuid, DWORD index,
                                 PSP_DEVICE_INTERFACE_DATA data);
BOOL SetupDiGetDeviceInterfaceDetailW(HDEVINFO set, PSP_DEVICE_INTERFACE_DATA interfaceData,
                                      PSP_DEVICE_INTERFACE_DETAIL_DATA_W detail, DWORD detailSize,
                                      PDWORD requiredSize, PSP_DEVINFO_DATA device);
BOOL SetupDiGetDeviceRegistryPropertyW(HDEVINFO set, PSP_DEVINFO_DATA device, DWORD property, PDWORD valueType,
                                       BYTE* buffer, DWORD bufferSize, PDWORD requiredSize);
BOOL SetupDiDestroyDeviceInfoList(HDEVINFO set);
