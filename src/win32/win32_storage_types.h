// Non-Windows build: the storage stack's control codes and records (winioctl.h,
// ntddscsi.h, ntdddisk.h on Windows), with their Windows x64 layouts.
// Byte maps are given where a record crosses the wire to a driver.
#pragma once

// Included by win32_types.h after the basic types.

// --- Control codes ------------------------------------------------------------------
// A control code packs (device type << 16) | (access << 14) | (function << 2) | method.
constexpr DWORD ctlCode(DWORD deviceType, DWORD function, DWORD method, DWORD access) {
  return (deviceType << 16) | (access << 14) | (function << 2) | method;
}
constexpr DWORD METHOD_BUFFERED = 0;
constexpr DWORD METHOD_NEITHER = 3;
constexpr DWORD FILE_ANY_ACCESS = 0;
constexpr DWORD FILE_READ_ACCESS = 1;
constexpr DWORD FILE_WRITE_ACCESS = 2;
constexpr DWORD FILE_DEVICE_CONTROLLER = 0x04;
constexpr DWORD FILE_DEVICE_DISK = 0x07;
constexpr DWORD FILE_DEVICE_FILE_SYSTEM = 0x09;
constexpr DWORD FILE_DEVICE_MASS_STORAGE = 0x2D;
constexpr DWORD IOCTL_VOLUME_BASE = 0x56;  // 'V'

constexpr DWORD IOCTL_SCSI_PASS_THROUGH =
    ctlCode(FILE_DEVICE_CONTROLLER, 0x401, METHOD_BUFFERED, FILE_READ_ACCESS | FILE_WRITE_ACCESS);  // 0x4D004
constexpr DWORD IOCTL_SCSI_MINIPORT =
    ctlCode(FILE_DEVICE_CONTROLLER, 0x402, METHOD_BUFFERED, FILE_READ_ACCESS | FILE_WRITE_ACCESS);  // 0x4D008
constexpr DWORD IOCTL_SCSI_PASS_THROUGH_DIRECT =
    ctlCode(FILE_DEVICE_CONTROLLER, 0x405, METHOD_BUFFERED, FILE_READ_ACCESS | FILE_WRITE_ACCESS);  // 0x4D014
constexpr DWORD IOCTL_ATA_PASS_THROUGH =
    ctlCode(FILE_DEVICE_CONTROLLER, 0x40B, METHOD_BUFFERED, FILE_READ_ACCESS | FILE_WRITE_ACCESS);  // 0x4D02C
constexpr DWORD IOCTL_ATA_PASS_THROUGH_DIRECT =
    ctlCode(FILE_DEVICE_CONTROLLER, 0x40C, METHOD_BUFFERED, FILE_READ_ACCESS | FILE_WRITE_ACCESS);  // 0x4D030

constexpr DWORD IOCTL_STORAGE_GET_DEVICE_NUMBER =
    ctlCode(FILE_DEVICE_MASS_STORAGE, 0x420, METHOD_BUFFERED, FILE_ANY_ACCESS);  // 0x2D1080
constexpr DWORD IOCTL_STORAGE_PREDICT_FAILURE =
    ctlCode(FILE_DEVICE_MASS_STORAGE, 0x440, METHOD_BUFFERED, FILE_ANY_ACCESS);  // 0x2D1100
constexpr DWORD IOCTL_STORAGE_QUERY_PROPERTY =
    ctlCode(FILE_DEVICE_MASS_STORAGE, 0x500, METHOD_BUFFERED, FILE_ANY_ACCESS);  // 0x2D1400

constexpr DWORD IOCTL_DISK_GET_DRIVE_GEOMETRY =
    ctlCode(FILE_DEVICE_DISK, 0x000, METHOD_BUFFERED, FILE_ANY_ACCESS);  // 0x70000
constexpr DWORD IOCTL_DISK_GET_PARTITION_INFO_EX =
    ctlCode(FILE_DEVICE_DISK, 0x012, METHOD_BUFFERED, FILE_ANY_ACCESS);  // 0x70048
constexpr DWORD IOCTL_DISK_GET_DRIVE_LAYOUT_EX =
    ctlCode(FILE_DEVICE_DISK, 0x014, METHOD_BUFFERED, FILE_ANY_ACCESS);  // 0x70050
constexpr DWORD IOCTL_DISK_GET_LENGTH_INFO =
    ctlCode(FILE_DEVICE_DISK, 0x017, METHOD_BUFFERED, FILE_READ_ACCESS);  // 0x7405C
constexpr DWORD IOCTL_DISK_GET_DRIVE_GEOMETRY_EX =
    ctlCode(FILE_DEVICE_DISK, 0x028, METHOD_BUFFERED, FILE_ANY_ACCESS);  // 0x700A0
constexpr DWORD SMART_GET_VERSION = ctlCode(FILE_DEVICE_DISK, 0x020, METHOD_BUFFERED, FILE_READ_ACCESS);  // 0x74080

constexpr DWORD IOCTL_VOLUME_GET_VOLUME_DISK_EXTENTS =
    ctlCode(IOCTL_VOLUME_BASE, 0, METHOD_BUFFERED, FILE_ANY_ACCESS);  // 0x560000

constexpr DWORD FSCTL_LOCK_VOLUME = ctlCode(FILE_DEVICE_FILE_SYSTEM, 6, METHOD_BUFFERED, FILE_ANY_ACCESS);     // 0x90018
constexpr DWORD FSCTL_UNLOCK_VOLUME = ctlCode(FILE_DEVICE_FILE_SYSTEM, 7, METHOD_BUFFERED, FILE_ANY_ACCESS);   // 0x9001C
constexpr DWORD FSCTL_DISMOUNT_VOLUME = ctlCode(FILE_DEVICE_FILE_SYSTEM, 8, METHOD_BUFFERED, FILE_ANY_ACCESS);  // 0x90020
constexpr DWORD FSCTL_GET_NTFS_VOLUME_DATA =
    ctlCode(FILE_DEVICE_FILE_SYSTEM, 25, METHOD_BUFFERED, FILE_ANY_ACCESS);  // 0x90064
constexpr DWORD FSCTL_GET_VOLUME_BITMAP = ctlCode(FILE_DEVICE_FILE_SYSTEM, 27, METHOD_NEITHER, FILE_ANY_ACCESS);  // 0x9006F
constexpr DWORD FSCTL_GET_RETRIEVAL_POINTERS =
    ctlCode(FILE_DEVICE_FILE_SYSTEM, 28, METHOD_NEITHER, FILE_ANY_ACCESS);  // 0x90073
constexpr DWORD FSCTL_MOVE_FILE = ctlCode(FILE_DEVICE_FILE_SYSTEM, 29, METHOD_BUFFERED, FILE_ANY_ACCESS);  // 0x90074
constexpr DWORD FSCTL_SET_SPARSE = ctlCode(FILE_DEVICE_FILE_SYSTEM, 49, METHOD_BUFFERED, FILE_ANY_ACCESS);  // 0x900C4

// --- ATA pass-through ----------------------------------------------------------------
// ATA_PASS_THROUGH_EX, 48 bytes:
//   0 Length(2) 2 AtaFlags(2) 4 PathId 5 TargetId 6 Lun 7 ReservedAsUchar
//   8 DataTransferLength(4) 12 TimeOutValue(4) 16 ReservedAsUlong(4)
//  24 DataBufferOffset(8) 32 PreviousTaskFile[8] 40 CurrentTaskFile[8]
// Task file bytes: 0 Features/Error 1 Count 2 LBA low 3 LBA mid 4 LBA high
// 5 Device 6 Command/Status 7 reserved.
constexpr USHORT ATA_FLAGS_DRDY_REQUIRED = 0x01;
constexpr USHORT ATA_FLAGS_DATA_IN = 0x02;
constexpr USHORT ATA_FLAGS_DATA_OUT = 0x04;
constexpr USHORT ATA_FLAGS_48BIT_COMMAND = 0x08;
constexpr USHORT ATA_FLAGS_USE_DMA = 0x10;
constexpr USHORT ATA_FLAGS_NO_MULTIPLE = 0x20;

struct ATA_PASS_THROUGH_EX {
  USHORT Length;
  USHORT AtaFlags;
  UCHAR PathId;
  UCHAR TargetId;
  UCHAR Lun;
  UCHAR ReservedAsUchar;
  ULONG DataTransferLength;
  ULONG TimeOutValue;
  ULONG ReservedAsUlong;
  ULONG_PTR DataBufferOffset;
  UCHAR PreviousTaskFile[8];
  UCHAR CurrentTaskFile[8];
};

// The same with a pointer to the caller's buffer at offset 24.
struct ATA_PASS_THROUGH_DIRECT {
  USHORT Length;
  USHORT AtaFlags;
  UCHAR PathId;
  UCHAR TargetId;
  UCHAR Lun;
  UCHAR ReservedAsUchar;
  ULONG DataTransferLength;
  ULONG TimeOutValue;
  ULONG ReservedAsUlong;
  PVOID DataBuffer;
  UCHAR PreviousTaskFile[8];
  UCHAR CurrentTaskFile[8];
};

// --- SCSI pass-through -----------------------------------------------------------------
// SCSI_PASS_THROUGH, 56 bytes:
//   0 Length(2) 2 ScsiStatus 3 PathId 4 TargetId 5 Lun 6 CdbLength
//   7 SenseInfoLength 8 DataIn 12 DataTransferLength(4) 16 TimeOutValue(4)
//  24 DataBufferOffset(8) 32 SenseInfoOffset(4) 36 Cdb[16] 52 padding
constexpr UCHAR SCSI_IOCTL_DATA_OUT = 0;
constexpr UCHAR SCSI_IOCTL_DATA_IN = 1;
constexpr UCHAR SCSI_IOCTL_DATA_UNSPECIFIED = 2;

struct SCSI_PASS_THROUGH {
  USHORT Length;
  UCHAR ScsiStatus;
  UCHAR PathId;
  UCHAR TargetId;
  UCHAR Lun;
  UCHAR CdbLength;
  UCHAR SenseInfoLength;
  UCHAR DataIn;
  ULONG DataTransferLength;
  ULONG TimeOutValue;
  ULONG_PTR DataBufferOffset;
  ULONG SenseInfoOffset;
  UCHAR Cdb[16];
};

struct SCSI_PASS_THROUGH_DIRECT {
  USHORT Length;
  UCHAR ScsiStatus;
  UCHAR PathId;
  UCHAR TargetId;
  UCHAR Lun;
  UCHAR CdbLength;
  UCHAR SenseInfoLength;
  UCHAR DataIn;
  ULONG DataTransferLength;
  ULONG TimeOutValue;
  PVOID DataBuffer;
  ULONG SenseInfoOffset;
  UCHAR Cdb[16];
};

// The header of a miniport request (IOCTL_SCSI_MINIPORT), 28 bytes:
//   0 HeaderLength 4 Signature[8] 12 Timeout 16 ControlCode 20 ReturnCode 24 Length
struct SRB_IO_CONTROL {
  ULONG HeaderLength;
  UCHAR Signature[8];
  ULONG Timeout;
  ULONG ControlCode;
  ULONG ReturnCode;
  ULONG Length;
};

// --- Storage queries --------------------------------------------------------------------
enum STORAGE_BUS_TYPE : int32_t {
  BusTypeUnknown = 0,
  BusTypeScsi = 1,
  BusTypeAtapi = 2,
  BusTypeAta = 3,
  BusType1394 = 4,
  BusTypeSsa = 5,
  BusTypeFibre = 6,
  BusTypeUsb = 7,
  BusTypeRAID = 8,
  BusTypeiScsi = 9,
  BusTypeSas = 10,
  BusTypeSata = 11,
  BusTypeSd = 12,
  BusTypeMmc = 13,
  BusTypeVirtual = 14,
  BusTypeFileBackedVirtual = 15,
  BusTypeSpaces = 16,
  BusTypeNvme = 17,
  BusTypeMax = 20,
};

enum STORAGE_PROPERTY_ID : int32_t {
  StorageDeviceProperty = 0,
  StorageAdapterProperty = 1,
};

enum STORAGE_QUERY_TYPE : int32_t {
  PropertyStandardQuery = 0,
  PropertyExistsQuery = 1,
};

// 0 PropertyId 4 QueryType 8 AdditionalParameters[1], 12 bytes in all.
struct STORAGE_PROPERTY_QUERY {
  STORAGE_PROPERTY_ID PropertyId;
  STORAGE_QUERY_TYPE QueryType;
  UCHAR AdditionalParameters[1];
};

struct STORAGE_DESCRIPTOR_HEADER {
  DWORD Version;
  DWORD Size;
};

// 40 bytes before the strings; each *Offset counts from the record's first byte
// and names a NUL-terminated text, 0 when there is none:
//   0 Version 4 Size 8 DeviceType 9 DeviceTypeModifier 10 RemovableMedia
//  11 CommandQueueing 12 VendorIdOffset 16 ProductIdOffset
//  20 ProductRevisionOffset 24 SerialNumberOffset 28 BusType
//  32 RawPropertiesLength 36 RawDeviceProperties[1]
struct STORAGE_DEVICE_DESCRIPTOR {
  DWORD Version;
  DWORD Size;
  BYTE DeviceType;
  BYTE DeviceTypeModifier;
  BOOLEAN RemovableMedia;
  BOOLEAN CommandQueueing;
  DWORD VendorIdOffset;
  DWORD ProductIdOffset;
  DWORD ProductRevisionOffset;
  DWORD SerialNumberOffset;
  STORAGE_BUS_TYPE BusType;
  DWORD RawPropertiesLength;
  BYTE RawDeviceProperties[1];
};

// 0 Version 4 Size 8 MaximumTransferLength 12 MaximumPhysicalPages
// 16 AlignmentMask 20 AdapterUsesPio 21 AdapterScansDown 22 CommandQueueing
// 23 AcceleratedTransfer 24 BusType 26 BusMajorVersion 28 BusMinorVersion
// 30 SrbType 31 AddressType
struct STORAGE_ADAPTER_DESCRIPTOR {
  DWORD Version;
  DWORD Size;
  DWORD MaximumTransferLength;
  DWORD MaximumPhysicalPages;
  DWORD AlignmentMask;
  BOOLEAN AdapterUsesPio;
  BOOLEAN AdapterScansDown;
  BOOLEAN CommandQueueing;
  BOOLEAN AcceleratedTransfer;
  BYTE BusType;
  WORD BusMajorVersion;
  WORD BusMinorVersion;
  BYTE SrbType;
  BYTE AddressType;
};

struct STORAGE_DEVICE_NUMBER {
  DEVICE_TYPE DeviceType;
  DWORD DeviceNumber;
  DWORD PartitionNumber;
};

struct STORAGE_PREDICT_FAILURE {
  DWORD PredictFailure;
  BYTE VendorSpecific[512];
};

// --- Disk queries -------------------------------------------------------------------------
enum MEDIA_TYPE : int32_t {
  Unknown = 0,
  RemovableMedia = 11,
  FixedMedia = 12,
};

struct DISK_GEOMETRY {
  LARGE_INTEGER Cylinders;
  MEDIA_TYPE MediaType;
  DWORD TracksPerCylinder;
  DWORD SectorsPerTrack;
  DWORD BytesPerSector;
};

struct DISK_GEOMETRY_EX {
  DISK_GEOMETRY Geometry;
  LARGE_INTEGER DiskSize;
  BYTE Data[1];
};

struct GET_LENGTH_INFORMATION {
  LARGE_INTEGER Length;
};

enum PARTITION_STYLE : int32_t {
  PARTITION_STYLE_MBR = 0,
  PARTITION_STYLE_GPT = 1,
  PARTITION_STYLE_RAW = 2,
};

struct PARTITION_INFORMATION_MBR {
  BYTE PartitionType;
  BOOLEAN BootIndicator;
  BOOLEAN RecognizedPartition;
  DWORD HiddenSectors;
  GUID PartitionId;
};

struct PARTITION_INFORMATION_GPT {
  GUID PartitionType;
  GUID PartitionId;
  DWORD64 Attributes;
  WCHAR Name[36];
};

// 144 bytes:
//   0 PartitionStyle 8 StartingOffset 16 PartitionLength 24 PartitionNumber
//  28 RewritePartition 29 IsServicePartition 32 Mbr or Gpt (112)
struct PARTITION_INFORMATION_EX {
  PARTITION_STYLE PartitionStyle;
  LARGE_INTEGER StartingOffset;
  LARGE_INTEGER PartitionLength;
  DWORD PartitionNumber;
  BOOLEAN RewritePartition;
  BOOLEAN IsServicePartition;
  union {
    PARTITION_INFORMATION_MBR Mbr;
    PARTITION_INFORMATION_GPT Gpt;
  };
};

struct DRIVE_LAYOUT_INFORMATION_MBR {
  DWORD Signature;
  DWORD CheckSum;
};

struct DRIVE_LAYOUT_INFORMATION_GPT {
  GUID DiskId;
  LARGE_INTEGER StartingUsableOffset;
  LARGE_INTEGER UsableLength;
  DWORD MaxPartitionCount;
};

// A 48-byte header, then PartitionCount entries of 144 bytes:
//   0 PartitionStyle 4 PartitionCount 8 Mbr or Gpt (40) 48 PartitionEntry[]
struct DRIVE_LAYOUT_INFORMATION_EX {
  DWORD PartitionStyle;
  DWORD PartitionCount;
  union {
    DRIVE_LAYOUT_INFORMATION_MBR Mbr;
    DRIVE_LAYOUT_INFORMATION_GPT Gpt;
  };
  PARTITION_INFORMATION_EX PartitionEntry[1];
};

// SMART_GET_VERSION's reply, 24 bytes: 0 bVersion 1 bRevision 2 bReserved
// 3 bIDEDeviceMap 4 fCapabilities 8 dwReserved[4]
struct GETVERSIONINPARAMS {
  BYTE bVersion;
  BYTE bRevision;
  BYTE bReserved;
  BYTE bIDEDeviceMap;
  DWORD fCapabilities;
  DWORD dwReserved[4];
};
constexpr DWORD CAP_ATA_ID_CMD = 1;
constexpr DWORD CAP_ATAPI_ID_CMD = 2;
constexpr DWORD CAP_SMART_CMD = 4;

// --- Volumes and file systems ------------------------------------------------------------
struct DISK_EXTENT {
  DWORD DiskNumber;
  LARGE_INTEGER StartingOffset;
  LARGE_INTEGER ExtentLength;
};

// 0 NumberOfDiskExtents 8 Extents[] of 24 bytes; 32 bytes with one extent.
struct VOLUME_DISK_EXTENTS {
  DWORD NumberOfDiskExtents;
  DISK_EXTENT Extents[1];
};

// 96 bytes: 0 VolumeSerialNumber 8 NumberSectors 16 TotalClusters
// 24 FreeClusters 32 TotalReserved 40 BytesPerSector 44 BytesPerCluster
// 48 BytesPerFileRecordSegment 52 ClustersPerFileRecordSegment
// 56 MftValidDataLength 64 MftStartLcn 72 Mft2StartLcn 80 MftZoneStart 88 MftZoneEnd
struct NTFS_VOLUME_DATA_BUFFER {
  LARGE_INTEGER VolumeSerialNumber;
  LARGE_INTEGER NumberSectors;
  LARGE_INTEGER TotalClusters;
  LARGE_INTEGER FreeClusters;
  LARGE_INTEGER TotalReserved;
  DWORD BytesPerSector;
  DWORD BytesPerCluster;
  DWORD BytesPerFileRecordSegment;
  DWORD ClustersPerFileRecordSegment;
  LARGE_INTEGER MftValidDataLength;
  LARGE_INTEGER MftStartLcn;
  LARGE_INTEGER Mft2StartLcn;
  LARGE_INTEGER MftZoneStart;
  LARGE_INTEGER MftZoneEnd;
};

struct STARTING_LCN_INPUT_BUFFER {
  LARGE_INTEGER StartingLcn;
};

// 0 StartingLcn 8 BitmapSize (in clusters) 16 Buffer[]; bit 0 of byte 0 is
// StartingLcn, a set bit is a cluster in use.
struct VOLUME_BITMAP_BUFFER {
  LARGE_INTEGER StartingLcn;
  LARGE_INTEGER BitmapSize;
  BYTE Buffer[1];
};

struct STARTING_VCN_INPUT_BUFFER {
  LARGE_INTEGER StartingVcn;
};

// 0 ExtentCount 8 StartingVcn 16 Extents[] of (NextVcn, Lcn), 16 bytes each.
struct RETRIEVAL_POINTERS_BUFFER {
  DWORD ExtentCount;
  LARGE_INTEGER StartingVcn;
  struct {
    LARGE_INTEGER NextVcn;
    LARGE_INTEGER Lcn;
  } Extents[1];
};

// 0 FileHandle 8 StartingVcn 16 StartingLcn 24 ClusterCount, 32 bytes.
struct MOVE_FILE_DATA {
  HANDLE FileHandle;
  LARGE_INTEGER StartingVcn;
  LARGE_INTEGER StartingLcn;
  DWORD ClusterCount;
};
