// DeviceIoControl on a Linux host disk: SCSI pass-through to the disk's SCSI
// target (SG_IO or the block translation), ATA pass-through as SAT ATA
// PASS-THROUGH (16) where SG_IO reaches the disk, the storage property
// queries from what sysfs says, device number, failure prediction by REQUEST
// SENSE, geometry and length from the block layer, and the drive layout read
// from the medium by the seam's reader.
#include <algorithm>
#include <cstring>
#include <vector>

#include "linux_host/host.h"
#include "linux_host/sg_io.h"
#include "seam/disk_requests.h"
#include "seam/drive_layout.h"

namespace linux_host {

namespace {

BOOL done(LPDWORD returned, DWORD bytes) {
  if (returned != nullptr) *returned = bytes;
  SetLastError(ERROR_SUCCESS);
  return TRUE;
}

using Block = seam::ControlBuffers;

DataDirection directionOf(const seam::TransferDirection direction) {
  switch (direction) {
    case seam::TransferDirection::In:
      return DataDirection::In;
    case seam::TransferDirection::Out:
      return DataDirection::Out;
    case seam::TransferDirection::None:
      break;
  }
  return DataDirection::None;
}

BOOL scsiPassThrough(DiskObject& disk, bool direct, const Block& b, LPDWORD returned) {
  seam::ScsiPassThroughCall call;
  const DWORD problem = seam::takeScsiPassThrough(b, direct, disk.scsi != nullptr, call);
  if (problem != ERROR_SUCCESS) return fail(problem, FALSE);
  ScsiCommand command;
  command.cdb = call.request.Cdb;
  command.cdbLength = call.request.CdbLength;
  command.direction = directionOf(call.direction);
  command.data = call.transfer();
  command.length = call.request.DataTransferLength;
  command.timeoutSeconds = call.request.TimeOutValue;
  const ScsiAnswer answer = disk.scsi->execute(command);
  if (answer.error != ERROR_SUCCESS) return fail(answer.error, FALSE);
  DWORD bytes = 0;
  const DWORD replied =
      seam::giveScsiPassThrough(b, call, answer.status, answer.transferred, answer.sense, &bytes);
  if (replied != ERROR_SUCCESS) return fail(replied, FALSE);
  return done(returned, bytes);
}

BOOL ataPassThrough(DiskObject& disk, bool direct, const Block& b, LPDWORD returned) {
  // Only a disk that SG_IO reaches carries ATA commands (through the
  // kernel's SAT layer or a bridge's).
  auto* sg = dynamic_cast<SgIoTarget*>(disk.scsi.get());
  seam::AtaPassThroughCall call;
  const DWORD problem = seam::takeAtaPassThrough(b, direct, sg != nullptr, call);
  if (problem != ERROR_SUCCESS) return fail(problem, FALSE);
  const ATA_PASS_THROUGH_EX& request = call.request;
  AtaTaskFile taskFile;
  std::memcpy(taskFile.current, request.CurrentTaskFile, 8);
  std::memcpy(taskFile.previous, request.PreviousTaskFile, 8);
  taskFile.extended = (request.AtaFlags & ATA_FLAGS_48BIT_COMMAND) != 0;
  taskFile.dma = (request.AtaFlags & ATA_FLAGS_USE_DMA) != 0;
  const AtaAnswer answer = sg->executeAta(taskFile, directionOf(call.direction), call.transfer(),
                                          request.DataTransferLength, request.TimeOutValue);
  if (answer.error != ERROR_SUCCESS) return fail(answer.error, FALSE);
  DWORD bytes = 0;
  const DWORD replied = seam::giveAtaPassThrough(b, call, answer.registers.current, answer.registers.previous,
                                                 answer.transferred, &bytes);
  if (replied != ERROR_SUCCESS) return fail(replied, FALSE);
  return done(returned, bytes);
}

BOOL queryProperty(DiskObject& object, const HostDisk& disk, const Block& b, LPDWORD returned) {
  seam::StorageFacts facts;
  facts.removable = disk.info.removable;
  facts.busType = static_cast<BYTE>(disk.info.busType);
  facts.vendor = disk.info.vendor;
  facts.product = disk.info.product;
  facts.revision = disk.info.revision;
  facts.serial = disk.info.serial;
  // Buffers aligned to the logical sector move without a bounce copy.
  facts.alignmentMask = object.medium.logicalSectorSize() - 1;
  DWORD bytes = 0;
  const DWORD problem = seam::storagePropertyReply(b, facts, &bytes);
  if (problem != ERROR_SUCCESS) return fail(problem, FALSE);
  return done(returned, bytes);
}

// What the disk says of its health through REQUEST SENSE: additional sense
// 5Dh is a failure prediction threshold exceeded.
BOOL predictFailure(DiskObject& disk, const Block& b, LPDWORD returned) {
  if (b.out == nullptr || b.outSize < sizeof(STORAGE_PREDICT_FAILURE)) return fail(ERROR_INSUFFICIENT_BUFFER, FALSE);
  if (!disk.scsi) return fail(ERROR_INVALID_FUNCTION, FALSE);
  const uint8_t cdb[6] = {0x03, 0, 0, 0, 18, 0};
  uint8_t sense[18] = {};
  ScsiCommand command;
  command.cdb = cdb;
  command.cdbLength = 6;
  command.direction = DataDirection::In;
  command.data = sense;
  command.length = sizeof(sense);
  command.timeoutSeconds = 10;
  const ScsiAnswer answer = disk.scsi->execute(command);
  if (answer.error != ERROR_SUCCESS) return fail(answer.error, FALSE);
  if (answer.status != kStatusGood) return fail(ERROR_INVALID_FUNCTION, FALSE);
  STORAGE_PREDICT_FAILURE reply{};
  reply.PredictFailure = (answer.transferred >= 13 && sense[12] == 0x5D) ? 1 : 0;
  std::memcpy(b.out, &reply, sizeof(reply));
  return done(returned, sizeof(reply));
}

BOOL geometry(const DiskObject& disk, bool extended, const Block& b, LPDWORD returned) {
  const DWORD need = extended ? static_cast<DWORD>(offsetof(DISK_GEOMETRY_EX, Data)) : sizeof(DISK_GEOMETRY);
  if (b.out == nullptr || b.outSize < need) return fail(ERROR_INSUFFICIENT_BUFFER, FALSE);
  const HostDisk& info = Host::instance().disks()[disk.disk];
  DISK_GEOMETRY_EX g{};
  g.Geometry.MediaType = info.info.removable ? RemovableMedia : FixedMedia;
  g.Geometry.TracksPerCylinder = 255;
  g.Geometry.SectorsPerTrack = 63;
  g.Geometry.BytesPerSector = disk.medium.logicalSectorSize();
  g.Geometry.Cylinders.QuadPart = static_cast<LONGLONG>(disk.medium.sectorCount() / (255 * 63));
  g.DiskSize.QuadPart = static_cast<LONGLONG>(disk.medium.sectorCount() * disk.medium.logicalSectorSize());
  std::memcpy(b.out, &g, need);
  return done(returned, need);
}

BOOL driveLayout(DiskObject& disk, const Block& b, LPDWORD returned) {
  BlockMedium& medium = disk.medium;
  const uint32_t size = medium.logicalSectorSize();
  const seam::DriveLayout layout =
      seam::readDriveLayout(size, medium.sectorCount(), [&medium, size](uint64_t lba, uint64_t count, uint8_t* out) {
        return count <= 0xFFFFFFFFull / size && medium.read(lba * size, out, static_cast<uint32_t>(count * size)) ==
                                                    ERROR_SUCCESS;
      });
  DWORD bytes = 0;
  if (!seam::driveLayoutReply(layout, b.out, b.outSize, &bytes)) return fail(ERROR_INSUFFICIENT_BUFFER, FALSE);
  return done(returned, bytes);
}

}  // namespace

BOOL diskControl(DiskObject& disk, DWORD code, LPVOID in, DWORD inSize, LPVOID out, DWORD outSize, LPDWORD returned) {
  const std::vector<HostDisk>& disks = Host::instance().disks();
  if (disk.disk >= disks.size()) return fail(ERROR_INVALID_HANDLE, FALSE);
  if ((in == nullptr && inSize > 0) || (out == nullptr && outSize > 0)) return fail(ERROR_INVALID_PARAMETER, FALSE);
  const Block b{static_cast<uint8_t*>(in), inSize, static_cast<uint8_t*>(out), outSize};
  switch (code) {
    case IOCTL_ATA_PASS_THROUGH:
      return ataPassThrough(disk, false, b, returned);
    case IOCTL_ATA_PASS_THROUGH_DIRECT:
      return ataPassThrough(disk, true, b, returned);
    case IOCTL_SCSI_PASS_THROUGH:
      return scsiPassThrough(disk, false, b, returned);
    case IOCTL_SCSI_PASS_THROUGH_DIRECT:
      return scsiPassThrough(disk, true, b, returned);
    case IOCTL_STORAGE_QUERY_PROPERTY:
      return queryProperty(disk, disks[disk.disk], b, returned);
    case IOCTL_STORAGE_GET_DEVICE_NUMBER: {
      if (b.out == nullptr || outSize < sizeof(STORAGE_DEVICE_NUMBER)) return fail(ERROR_INSUFFICIENT_BUFFER, FALSE);
      STORAGE_DEVICE_NUMBER number{FILE_DEVICE_DISK, static_cast<DWORD>(disk.disk), 0};
      std::memcpy(out, &number, sizeof(number));
      return done(returned, sizeof(number));
    }
    case IOCTL_STORAGE_PREDICT_FAILURE:
      return predictFailure(disk, b, returned);
    case IOCTL_DISK_GET_DRIVE_GEOMETRY:
      return geometry(disk, false, b, returned);
    case IOCTL_DISK_GET_DRIVE_GEOMETRY_EX:
      return geometry(disk, true, b, returned);
    case IOCTL_DISK_GET_LENGTH_INFO: {
      if (b.out == nullptr || outSize < sizeof(GET_LENGTH_INFORMATION)) return fail(ERROR_INSUFFICIENT_BUFFER, FALSE);
      GET_LENGTH_INFORMATION length{};
      length.Length.QuadPart = static_cast<LONGLONG>(disk.medium.sectorCount() * disk.medium.logicalSectorSize());
      std::memcpy(out, &length, sizeof(length));
      return done(returned, sizeof(length));
    }
    case IOCTL_DISK_GET_DRIVE_LAYOUT_EX:
      return driveLayout(disk, b, returned);
    default:
      // SMART_GET_VERSION and the rest: Linux has no such driver interface.
      return fail(ERROR_INVALID_FUNCTION, FALSE);
  }
}

}  // namespace linux_host
