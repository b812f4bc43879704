// The command record of the LSI command libraries and the commands the
// module sends through it. The caller fills the record, names a buffer, the
// library fills the buffer. Little-endian, 40 bytes, zero unless set:
//
//   0 commandClass  1 commandCode  2-3 zero  4 controllerId (u32)
//   8 target (u16: device id or logical device sequence)  10 logicalTarget
//   11-27 zero  28 dataLength (u32)  32 data (64-bit pointer)
#pragma once

#include <cstddef>
#include <cstdint>

struct LsiCmd {
  uint8_t commandClass = 0;
  uint8_t commandCode = 0;
  uint8_t reserved0[2] = {};
  uint32_t controllerId = 0;
  uint16_t target = 0;
  uint8_t logicalTarget = 0;
  uint8_t reserved1[17] = {};
  uint32_t dataLength = 0;
  uint64_t data = 0;  // the buffer's address
};

static_assert(sizeof(LsiCmd) == 40, "the LSI command record is 40 bytes");
static_assert(offsetof(LsiCmd, controllerId) == 4, "controller id at 4");
static_assert(offsetof(LsiCmd, target) == 8, "target at 8");
static_assert(offsetof(LsiCmd, logicalTarget) == 10, "logical target at 10");
static_assert(offsetof(LsiCmd, dataLength) == 28, "data length at 28");
static_assert(offsetof(LsiCmd, data) == 32, "data pointer at 32");

// Command classes and codes.
enum LsiCommandClass : uint8_t {
  kLsiClassLibrary = 0,
  kLsiClassController = 1,
  kLsiClassPhysicalDrive = 2,
  kLsiClassLogicalDevice = 3,
  kLsiClassPassThrough = 6,
};

enum LsiCommandCode : uint8_t {
  kLsiStartLibrary = 0,      // class 0
  kLsiControllerList = 3,    // class 0
  kLsiFreeLibrary = 9,       // class 0
  kLsiControllerInfo = 0,    // class 1
  kLsiPhysicalDriveList = 4, // class 1
  kLsiArrayList = 5,         // class 1
  kLsiLogicalDeviceList = 13,// class 1
  kLsiPhysicalDriveInfo = 0, // class 2
  kLsiLogicalDeviceConfig = 0,  // class 3
  kLsiLogicalDeviceDrives = 11, // class 3
  kLsiSspPassThrough = 0,    // class 6
  kLsiStpPassThrough = 2,    // class 6
};

// Buffer sizes of the fixed commands.
constexpr uint32_t kLsiStartLibraryBytes = 68;
constexpr uint32_t kLsiControllerListBytes = 68;
constexpr uint32_t kLsiControllerInfoBytes = 2048;
constexpr uint32_t kLsiPhysicalDriveListBytes = 6152;
constexpr uint32_t kLsiArrayListBytes = 4616;
constexpr uint32_t kLsiLogicalDeviceListBytes = 1032;
constexpr uint32_t kLsiPhysicalDriveInfoBytes = 512;
constexpr uint32_t kLsiLogicalDeviceConfigBytes = 384;
constexpr uint32_t kLsiLogicalDeviceDrivesBytes = 516;
// Pass-through buffers: the data phase behind a header of this size.
constexpr uint32_t kLsiSspHeaderBytes = 64;
constexpr uint32_t kLsiStpHeaderBytes = 60;

// Each fills `cmd` from scratch with its class, code, addressing, and
// `buffer` of the command's size (the caller zeroes it where needed).
void makeStartLibrary(LsiCmd& cmd, void* buffer);
void makeControllerList(LsiCmd& cmd, void* buffer);
void makeFreeLibrary(LsiCmd& cmd);
void makeControllerInfo(LsiCmd& cmd, uint32_t controllerId, void* buffer);
void makePhysicalDriveList(LsiCmd& cmd, uint32_t controllerId, void* buffer);
void makeArrayList(LsiCmd& cmd, uint32_t controllerId, void* buffer);
void makeLogicalDeviceList(LsiCmd& cmd, uint32_t controllerId, void* buffer);
void makeLogicalDeviceConfig(LsiCmd& cmd, uint32_t controllerId, uint8_t logicalTarget, uint16_t sequence,
                             void* buffer);
void makeLogicalDeviceDrives(LsiCmd& cmd, uint32_t controllerId, uint8_t logicalTarget, void* buffer);
// `dataLength` + 64 (SSP) or + 60 (STP) bytes.
void makeSspPassThrough(LsiCmd& cmd, uint32_t controllerId, uint16_t deviceId, void* buffer, uint32_t length);
void makeStpPassThrough(LsiCmd& cmd, uint32_t controllerId, uint16_t deviceId, void* buffer, uint32_t length);

// The physical drive information command as a class of its own, with its
// 512-byte answer: the record sits behind the class's virtual table.
class LsiGetPdinfo : public LsiCmd {
 public:
  LsiGetPdinfo(uint32_t controllerId, uint16_t deviceId);
  virtual ~LsiGetPdinfo();
  const uint8_t* answer() const { return buffer; }

 private:
  uint8_t buffer[kLsiPhysicalDriveInfoBytes] = {};
};

// Little-endian reads of the library's buffers.
uint16_t lsiU16(const uint8_t* at);
uint32_t lsiU32(const uint8_t* at);
uint64_t lsiU64(const uint8_t* at);
