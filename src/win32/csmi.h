// Records of the Common Storage Management Interface (CSMI), carried to a
// RAID miniport driver by IOCTL_SCSI_MINIPORT. The platform headers don't
// have them, so both builds use these declarations. Each buffer starts with
// the miniport header SRB_IO_CONTROL (28 bytes); the layouts are those of the
// CSMI standard, natural alignment.
#pragma once

#include <cstddef>

#include "win32/win32.h"

constexpr ULONG CC_CSMI_SAS_GET_DRIVER_INFO = 1;
constexpr ULONG CC_CSMI_SAS_GET_CNTLR_CONFIG = 2;
constexpr ULONG CC_CSMI_SAS_GET_CNTLR_STATUS = 3;
constexpr ULONG CC_CSMI_SAS_GET_RAID_INFO = 10;
constexpr ULONG CC_CSMI_SAS_GET_RAID_CONFIG = 11;
constexpr ULONG CC_CSMI_SAS_GET_PHY_INFO = 20;
constexpr ULONG CC_CSMI_SAS_SSP_PASSTHRU = 24;
constexpr ULONG CC_CSMI_SAS_STP_PASSTHRU = 25;

constexpr ULONG CSMI_SAS_STATUS_SUCCESS = 0;
constexpr ULONG CSMI_SAS_STATUS_FAILED = 1;
constexpr ULONG CSMI_SAS_STATUS_BAD_CNTL_CODE = 2;
constexpr ULONG CSMI_SAS_STATUS_INVALID_PARAMETER = 3;
constexpr ULONG CSMI_SAS_RAID_SET_OUT_OF_RANGE = 1000;
constexpr ULONG CSMI_SAS_PHY_DOES_NOT_EXIST = 2002;
constexpr ULONG CSMI_SAS_NO_SATA_DEVICE = 2009;

constexpr ULONG CSMI_SAS_CNTLR_SAS_RAID = 0x2;
constexpr ULONG CSMI_SAS_CNTLR_SATA_RAID = 0x8;

constexpr UCHAR CSMI_SAS_END_DEVICE = 0x10;
constexpr UCHAR CSMI_SAS_PROTOCOL_SATA = 0x01;
constexpr UCHAR CSMI_SAS_PROTOCOL_SMP = 0x02;
constexpr UCHAR CSMI_SAS_PROTOCOL_STP = 0x04;
constexpr UCHAR CSMI_SAS_PROTOCOL_SSP = 0x08;

constexpr ULONG CSMI_SAS_SSP_READ = 0x1;
constexpr ULONG CSMI_SAS_SSP_WRITE = 0x2;
constexpr ULONG CSMI_SAS_SSP_UNSPECIFIED = 0x4;
constexpr UCHAR CSMI_SAS_SSP_STATUS_COMPLETED = 0x02;
constexpr UCHAR CSMI_SAS_SSP_NO_DATA_PRESENT = 0x00;
constexpr UCHAR CSMI_SAS_SSP_RESPONSE_DATA_PRESENT = 0x01;
constexpr UCHAR CSMI_SAS_SSP_SENSE_DATA_PRESENT = 0x02;

constexpr ULONG CSMI_SAS_STP_READ = 0x01;
constexpr ULONG CSMI_SAS_STP_WRITE = 0x02;
constexpr ULONG CSMI_SAS_STP_UNSPECIFIED = 0x04;
constexpr ULONG CSMI_SAS_STP_PIO = 0x10;

// --- Controller configuration (code 2, "CSMIALL"): 28 + 180 = 208 bytes ------------------
struct CSMI_SAS_PCI_BUS_ADDRESS {
  UCHAR bBusNumber;
  UCHAR bDeviceNumber;
  UCHAR bFunctionNumber;
  UCHAR bReserved;
};

union CSMI_SAS_IO_BUS_ADDRESS {
  CSMI_SAS_PCI_BUS_ADDRESS PciAddress;
  UCHAR bReserved[32];
};

// 0 uBaseIoAddress 4 BaseMemoryAddress(8) 12 uBoardID 16 usSlotNumber
// 18 bControllerClass 19 bIoBusType 20 BusAddress(32) 52 szSerialNumber[81]
// 134 usMajor..usReleaseRevision 142 usBIOSMajor..usBIOSReleaseRevision
// 152 uControllerFlags 156 usRrom* (8 words) 172 bReserved[7]
struct CSMI_SAS_CNTLR_CONFIG {
  ULONG uBaseIoAddress;
  struct {
    ULONG uLowPart;
    ULONG uHighPart;
  } BaseMemoryAddress;
  ULONG uBoardID;
  USHORT usSlotNumber;
  UCHAR bControllerClass;
  UCHAR bIoBusType;
  CSMI_SAS_IO_BUS_ADDRESS BusAddress;
  UCHAR szSerialNumber[81];
  USHORT usMajorRevision;
  USHORT usMinorRevision;
  USHORT usBuildRevision;
  USHORT usReleaseRevision;
  USHORT usBIOSMajorRevision;
  USHORT usBIOSMinorRevision;
  USHORT usBIOSBuildRevision;
  USHORT usBIOSReleaseRevision;
  ULONG uControllerFlags;
  USHORT usRromMajorRevision;
  USHORT usRromMinorRevision;
  USHORT usRromBuildRevision;
  USHORT usRromReleaseRevision;
  USHORT usRromBIOSMajorRevision;
  USHORT usRromBIOSMinorRevision;
  USHORT usRromBIOSBuildRevision;
  USHORT usRromBIOSReleaseRevision;
  UCHAR bReserved[7];
};

struct CSMI_SAS_CNTLR_CONFIG_BUFFER {
  SRB_IO_CONTROL IoctlHeader;
  CSMI_SAS_CNTLR_CONFIG Configuration;
};

// --- RAID information (code 10, "CSMIARY"): 28 + 100 = 128 bytes -------------------------
struct CSMI_SAS_RAID_INFO {
  ULONG uNumRaidSets;
  ULONG uMaxDrivesPerSet;
  ULONG uMaxRaidSets;
  UCHAR bMaxRaidTypes;
  UCHAR bReservedByteFields[7];
  struct {
    ULONG uLowPart;
    ULONG uHighPart;
  } ulMinRaidSetBlocks;
  struct {
    ULONG uLowPart;
    ULONG uHighPart;
  } ulMaxRaidSetBlocks;
  ULONG uMaxPhysicalDrives;
  ULONG uMaxExtents;
  ULONG uMaxModules;
  ULONG uMaxTransformationMemory;
  ULONG uChangeCount;
  UCHAR bReserved[44];
};

struct CSMI_SAS_RAID_INFO_BUFFER {
  SRB_IO_CONTROL IoctlHeader;
  CSMI_SAS_RAID_INFO Information;
};

// --- RAID set configuration (code 11, "CSMIARY"): 28 + 36 + 136 per drive -----------------
// 0 bModel[40] 40 bFirmware[8] 48 bSerialNumber[40] 88 bSASAddress[8]
// 96 bSASLun[8] 104 bDriveStatus 105 bDriveUsage 106 usBlockSize 108 bDriveType
// 109 bReserved[15] 124 uDriveIndex 128 ulTotalUserBlocks(8)
struct CSMI_SAS_RAID_DRIVES {
  UCHAR bModel[40];
  UCHAR bFirmware[8];
  UCHAR bSerialNumber[40];
  UCHAR bSASAddress[8];
  UCHAR bSASLun[8];
  UCHAR bDriveStatus;
  UCHAR bDriveUsage;
  USHORT usBlockSize;
  UCHAR bDriveType;
  UCHAR bReserved[15];
  ULONG uDriveIndex;
  struct {
    ULONG uLowPart;
    ULONG uHighPart;
  } ulTotalUserBlocks;
};

// 0 uRaidSetIndex 4 uCapacity (MB) 8 uStripeSize 12 bRaidType 13 bStatus
// 14 bInformation 15 bDriveCount 16 bDataType 17 bReserved[11] 28 uFailureCode
// 32 uChangeCount 36 Drives[]
struct CSMI_SAS_RAID_CONFIG {
  ULONG uRaidSetIndex;
  ULONG uCapacity;
  ULONG uStripeSize;
  UCHAR bRaidType;
  UCHAR bStatus;
  UCHAR bInformation;
  UCHAR bDriveCount;
  UCHAR bDataType;
  UCHAR bReserved[11];
  ULONG uFailureCode;
  ULONG uChangeCount;
  CSMI_SAS_RAID_DRIVES Drives[1];
};

struct CSMI_SAS_RAID_CONFIG_BUFFER {
  SRB_IO_CONTROL IoctlHeader;
  CSMI_SAS_RAID_CONFIG Configuration;
};

// --- Phy information (code 20, "CSMISAS"): 28 + 4 + 32 x 64 = 2080 bytes ------------------
// 0 bDeviceType 1 bRestricted 2 bInitiatorPortProtocol 3 bTargetPortProtocol
// 4 bRestricted2[8] 12 bSASAddress[8] 20 bPhyIdentifier 21 bSignalClass 22 bReserved[6]
struct CSMI_SAS_IDENTIFY {
  UCHAR bDeviceType;
  UCHAR bRestricted;
  UCHAR bInitiatorPortProtocol;
  UCHAR bTargetPortProtocol;
  UCHAR bRestricted2[8];
  UCHAR bSASAddress[8];
  UCHAR bPhyIdentifier;
  UCHAR bSignalClass;
  UCHAR bReserved[6];
};

// 0 Identify(28) 28 bPortIdentifier 29 bNegotiatedLinkRate 30 bMinimumLinkRate
// 31 bMaximumLinkRate 32 bPhyChangeCount 33 bAutoDiscover 34 bPhyFeatures
// 35 bReserved 36 Attached(28)
struct CSMI_SAS_PHY_ENTITY {
  CSMI_SAS_IDENTIFY Identify;
  UCHAR bPortIdentifier;
  UCHAR bNegotiatedLinkRate;
  UCHAR bMinimumLinkRate;
  UCHAR bMaximumLinkRate;
  UCHAR bPhyChangeCount;
  UCHAR bAutoDiscover;
  UCHAR bPhyFeatures;
  UCHAR bReserved;
  CSMI_SAS_IDENTIFY Attached;
};

struct CSMI_SAS_PHY_INFO {
  UCHAR bNumberOfPhys;
  UCHAR bReserved[3];
  CSMI_SAS_PHY_ENTITY Phy[32];
};

struct CSMI_SAS_PHY_INFO_BUFFER {
  SRB_IO_CONTROL IoctlHeader;
  CSMI_SAS_PHY_INFO Information;
};

// --- SSP pass-through (code 24, "CSMISAS"): 372 bytes, data at 368 ------------------------
struct CSMI_SAS_SSP_PASSTHRU {
  UCHAR bPhyIdentifier;
  UCHAR bPortIdentifier;
  UCHAR bConnectionRate;
  UCHAR bReserved;
  UCHAR bDestinationSASAddress[8];
  UCHAR bLun[8];
  UCHAR bCDBLength;
  UCHAR bAdditionalCDBLength;
  UCHAR bReserved2[2];
  UCHAR bCDB[16];
  ULONG uFlags;
  UCHAR bAdditionalCDB[24];
  ULONG uDataLength;
};

struct CSMI_SAS_SSP_PASSTHRU_STATUS {
  UCHAR bConnectionStatus;
  UCHAR bSSPStatus;
  UCHAR bReserved[2];
  UCHAR bDataPresent;
  UCHAR bStatus;
  UCHAR bResponseLength[2];
  UCHAR bResponse[256];
  ULONG uDataBytes;
};

struct CSMI_SAS_SSP_PASSTHRU_BUFFER {
  SRB_IO_CONTROL IoctlHeader;
  CSMI_SAS_SSP_PASSTHRU Parameters;
  CSMI_SAS_SSP_PASSTHRU_STATUS Status;
  UCHAR bDataBuffer[1];
};

// --- STP pass-through (code 25, "CSMISAS"): 168 bytes, data at 164 ------------------------
// The command FIS (Register Host to Device): 0 type 0x27 1 0x80 (command)
// 2 command 3 features 4 lba low 5 lba mid 6 lba high 7 device 8 lba low exp
// 9 lba mid exp 10 lba high exp 11 features exp 12 count 13 count exp.
// The status FIS (Register Device to Host): 0 type 0x34 2 status 3 error
// 4 lba low 5 lba mid 6 lba high 7 device 8-10 lba exp 12 count 13 count exp.
struct CSMI_SAS_STP_PASSTHRU {
  UCHAR bPhyIdentifier;
  UCHAR bPortIdentifier;
  UCHAR bConnectionRate;
  UCHAR bReserved;
  UCHAR bDestinationSASAddress[8];
  UCHAR bReserved2[4];
  UCHAR bCommandFIS[20];
  ULONG uFlags;
  ULONG uDataLength;
};

struct CSMI_SAS_STP_PASSTHRU_STATUS {
  UCHAR bConnectionStatus;
  UCHAR bReserved[3];
  UCHAR bStatusFIS[20];
  ULONG uSCR[16];
  ULONG uDataBytes;
};

struct CSMI_SAS_STP_PASSTHRU_BUFFER {
  SRB_IO_CONTROL IoctlHeader;
  CSMI_SAS_STP_PASSTHRU Parameters;
  CSMI_SAS_STP_PASSTHRU_STATUS Status;
  UCHAR bDataBuffer[1];
};

static_assert(sizeof(CSMI_SAS_CNTLR_CONFIG_BUFFER) == 208, "CSMI controller configuration buffer is 208 bytes");
static_assert(offsetof(CSMI_SAS_CNTLR_CONFIG, szSerialNumber) == 52, "serial number at 52");
static_assert(offsetof(CSMI_SAS_CNTLR_CONFIG, usBIOSMajorRevision) == 142, "BIOS revision at 142");
static_assert(offsetof(CSMI_SAS_CNTLR_CONFIG, uControllerFlags) == 152, "controller flags at 152");
static_assert(sizeof(CSMI_SAS_RAID_INFO_BUFFER) == 128, "CSMI RAID information buffer is 128 bytes");
static_assert(sizeof(CSMI_SAS_RAID_DRIVES) == 136, "a CSMI RAID drive entry is 136 bytes");
static_assert(sizeof(CSMI_SAS_RAID_CONFIG_BUFFER) == 200, "CSMI RAID configuration buffer is 200 bytes with one drive");
static_assert(offsetof(CSMI_SAS_RAID_CONFIG, Drives) == 36, "drive entries at 36");
static_assert(sizeof(CSMI_SAS_IDENTIFY) == 28, "CSMI identify is 28 bytes");
static_assert(sizeof(CSMI_SAS_PHY_ENTITY) == 64, "CSMI phy entity is 64 bytes");
static_assert(sizeof(CSMI_SAS_PHY_INFO_BUFFER) == 2080, "CSMI phy information buffer is 2080 bytes");
static_assert(offsetof(CSMI_SAS_SSP_PASSTHRU_BUFFER, Status) == 100, "SSP status at 100");
static_assert(offsetof(CSMI_SAS_SSP_PASSTHRU_BUFFER, bDataBuffer) == 368, "SSP data at 368");
static_assert(sizeof(CSMI_SAS_SSP_PASSTHRU_BUFFER) == 372, "SSP pass-through buffer is 372 bytes");
static_assert(offsetof(CSMI_SAS_STP_PASSTHRU_BUFFER, Status) == 72, "STP status at 72");
static_assert(offsetof(CSMI_SAS_STP_PASSTHRU_BUFFER, bDataBuffer) == 164, "STP data at 164");
static_assert(sizeof(CSMI_SAS_STP_PASSTHRU_BUFFER) == 168, "STP pass-through buffer is 168 bytes");
