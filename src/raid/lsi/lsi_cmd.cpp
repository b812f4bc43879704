// Filling the LSI command record, one small function per command.
#include "raid/lsi/lsi_cmd.h"

#include <cstring>

namespace {

void fill(LsiCmd& cmd, uint8_t commandClass, uint8_t code, uint32_t controllerId, void* buffer, uint32_t length) {
  cmd = LsiCmd();
  cmd.commandClass = commandClass;
  cmd.commandCode = code;
  cmd.controllerId = controllerId;
  cmd.dataLength = length;
  cmd.data = static_cast<uint64_t>(reinterpret_cast<uintptr_t>(buffer));
}

}  // namespace

void makeStartLibrary(LsiCmd& cmd, void* buffer) {
  fill(cmd, kLsiClassLibrary, kLsiStartLibrary, 0, buffer, kLsiStartLibraryBytes);
}

void makeControllerList(LsiCmd& cmd, void* buffer) {
  fill(cmd, kLsiClassLibrary, kLsiControllerList, 0, buffer, kLsiControllerListBytes);
}

void makeFreeLibrary(LsiCmd& cmd) { fill(cmd, kLsiClassLibrary, kLsiFreeLibrary, 0, nullptr, 0); }

void makeControllerInfo(LsiCmd& cmd, uint32_t controllerId, void* buffer) {
  fill(cmd, kLsiClassController, kLsiControllerInfo, controllerId, buffer, kLsiControllerInfoBytes);
}

void makePhysicalDriveList(LsiCmd& cmd, uint32_t controllerId, void* buffer) {
  fill(cmd, kLsiClassController, kLsiPhysicalDriveList, controllerId, buffer, kLsiPhysicalDriveListBytes);
}

void makeArrayList(LsiCmd& cmd, uint32_t controllerId, void* buffer) {
  fill(cmd, kLsiClassController, kLsiArrayList, controllerId, buffer, kLsiArrayListBytes);
}

void makeLogicalDeviceList(LsiCmd& cmd, uint32_t controllerId, void* buffer) {
  fill(cmd, kLsiClassController, kLsiLogicalDeviceList, controllerId, buffer, kLsiLogicalDeviceListBytes);
}

void makeLogicalDeviceConfig(LsiCmd& cmd, uint32_t controllerId, uint8_t logicalTarget, uint16_t sequence,
                             void* buffer) {
  fill(cmd, kLsiClassLogicalDevice, kLsiLogicalDeviceConfig, controllerId, buffer, kLsiLogicalDeviceConfigBytes);
  cmd.logicalTarget = logicalTarget;
  cmd.target = sequence;
}

void makeLogicalDeviceDrives(LsiCmd& cmd, uint32_t controllerId, uint8_t logicalTarget, void* buffer) {
  fill(cmd, kLsiClassLogicalDevice, kLsiLogicalDeviceDrives, controllerId, buffer, kLsiLogicalDeviceDrivesBytes);
  cmd.logicalTarget = logicalTarget;
}

void makeSspPassThrough(LsiCmd& cmd, uint32_t controllerId, uint16_t deviceId, void* buffer, uint32_t length) {
  fill(cmd, kLsiClassPassThrough, kLsiSspPassThrough, controllerId, buffer, length + kLsiSspHeaderBytes);
  cmd.target = deviceId;
}

void makeStpPassThrough(LsiCmd& cmd, uint32_t controllerId, uint16_t deviceId, void* buffer, uint32_t length) {
  fill(cmd, kLsiClassPassThrough, kLsiStpPassThrough, controllerId, buffer, length + kLsiStpHeaderBytes);
  cmd.target = deviceId;
}

LsiGetPdinfo::LsiGetPdinfo(uint32_t controllerId, uint16_t deviceId) {
  fill(*this, kLsiClassPhysicalDrive, kLsiPhysicalDriveInfo, controllerId, buffer, kLsiPhysicalDriveInfoBytes);
  target = deviceId;
}

LsiGetPdinfo::~LsiGetPdinfo() = default;

uint16_t lsiU16(const uint8_t* at) { return static_cast<uint16_t>(at[0] | (at[1] << 8)); }

uint32_t lsiU32(const uint8_t* at) { return static_cast<uint32_t>(lsiU16(at)) | (static_cast<uint32_t>(lsiU16(at + 2)) << 16); }

uint64_t lsiU64(const uint8_t* at) { return static_cast<uint64_t>(lsiU32(at)) | (static_cast<uint64_t>(lsiU32(at + 4)) << 32); }
