// DeviceIoControl on a disk handle (\\.\PhysicalDriveN or the disk's
// interface path): ATA and SCSI pass-through to the disk's devices, the
// storage property queries with their strings placed behind the record as
// Windows places them, device number, failure prediction derived from the
// drive itself, geometry, length, drive layout read from the media, and
// SMART_GET_VERSION.
#include <algorithm>
#include <cstring>
#include <vector>

#include "seam/disk_requests.h"
#include "sim/windows/face_state.h"
#include "sim/windows/partition_tables.h"

namespace sim {
namespace windows {

namespace {

DWORD completionError(Completion completion) {
  switch (completion) {
    case Completion::Done:
      return ERROR_SUCCESS;
    case Completion::Timeout:
      return ERROR_SEM_TIMEOUT;
    case Completion::NoDevice:
      return ERROR_DEVICE_NOT_CONNECTED;
    case Completion::TransportError:
      return ERROR_IO_DEVICE;
  }
  return ERROR_IO_DEVICE;
}

BOOL done(LPDWORD returned, DWORD bytes) {
  if (returned != nullptr) *returned = bytes;
  SetLastError(ERROR_SUCCESS);
  return TRUE;
}

using Block = seam::ControlBuffers;

BOOL ataPassThrough(Disk& disk, bool direct, const Block& b, LPDWORD returned) {
  seam::AtaPassThroughCall call;
  const DWORD problem = seam::takeAtaPassThrough(b, direct, disk.ata != nullptr, call);
  if (problem != ERROR_SUCCESS) return fail(problem, FALSE);
  const ATA_PASS_THROUGH_EX& request = call.request;
  AtaRequest ata;
  const UCHAR* tf = request.CurrentTaskFile;
  const UCHAR* prev = request.PreviousTaskFile;
  ata.in.feature = tf[0];
  ata.in.count = tf[1];
  ata.in.lbaLow = tf[2];
  ata.in.lbaMid = tf[3];
  ata.in.lbaHigh = tf[4];
  ata.in.device = tf[5];
  ata.in.command = tf[6];
  ata.extended = (request.AtaFlags & ATA_FLAGS_48BIT_COMMAND) != 0;
  if (ata.extended) {
    ata.in.featureExp = prev[0];
    ata.in.countExp = prev[1];
    ata.in.lbaLowExp = prev[2];
    ata.in.lbaMidExp = prev[3];
    ata.in.lbaHighExp = prev[4];
  }
  ata.direction = call.direction == seam::TransferDirection::In    ? Direction::In
                  : call.direction == seam::TransferDirection::Out ? Direction::Out
                                                                   : Direction::None;
  ata.data = call.transfer();
  ata.length = request.DataTransferLength;
  ata.timeoutSeconds = request.TimeOutValue;
  const AtaResponse response = disk.ata->executeAta(ata);
  if (response.completion != Completion::Done) return fail(completionError(response.completion), FALSE);

  const UCHAR current[8] = {response.out.error,  response.out.count,   response.out.lbaLow, response.out.lbaMid,
                            response.out.lbaHigh, response.out.device, response.out.status, 0};
  UCHAR previous[8] = {};
  if (ata.extended) {
    previous[1] = response.out.countExp;
    previous[2] = response.out.lbaLowExp;
    previous[3] = response.out.lbaMidExp;
    previous[4] = response.out.lbaHighExp;
  }
  DWORD bytes = 0;
  const DWORD replied = seam::giveAtaPassThrough(b, call, current, previous, response.transferred, &bytes);
  if (replied != ERROR_SUCCESS) return fail(replied, FALSE);
  return done(returned, bytes);
}

BOOL scsiPassThrough(Disk& disk, bool direct, const Block& b, LPDWORD returned) {
  seam::ScsiPassThroughCall call;
  const DWORD problem = seam::takeScsiPassThrough(b, direct, disk.scsi != nullptr, call);
  if (problem != ERROR_SUCCESS) return fail(problem, FALSE);
  ScsiRequest scsi;
  scsi.cdb = call.request.Cdb;
  scsi.cdbLength = call.request.CdbLength;
  scsi.direction = call.direction == seam::TransferDirection::In    ? Direction::In
                   : call.direction == seam::TransferDirection::Out ? Direction::Out
                                                                    : Direction::None;
  scsi.data = call.transfer();
  scsi.length = call.request.DataTransferLength;
  scsi.timeoutSeconds = call.request.TimeOutValue;
  const ScsiResponse response = disk.scsi->executeScsi(scsi);
  if (response.completion != Completion::Done) return fail(completionError(response.completion), FALSE);
  // Sense data travels back only with CHECK CONDITION.
  static const std::vector<uint8_t> kNoSense;
  DWORD bytes = 0;
  const DWORD replied = seam::giveScsiPassThrough(b, call, response.status, response.transferred,
                                                  response.status == 0x02 ? response.sense : kNoSense, &bytes);
  if (replied != ERROR_SUCCESS) return fail(replied, FALSE);
  return done(returned, bytes);
}

BOOL queryProperty(Disk& disk, const Block& b, LPDWORD returned) {
  seam::StorageFacts facts;
  facts.removable = disk.removableMedia;
  facts.busType = static_cast<BYTE>(disk.busType);
  facts.vendor = disk.vendorId;
  facts.product = disk.productId;
  facts.revision = disk.productRevision;
  facts.serial = disk.serialNumber;
  facts.alignmentMask = 1;
  DWORD bytes = 0;
  const DWORD problem = seam::storagePropertyReply(b, facts, &bytes);
  if (problem != ERROR_SUCCESS) return fail(problem, FALSE);
  return done(returned, bytes);
}

// What the drive itself says of its health: SMART RETURN STATUS on an ATA
// disk (LBA mid/high 0xF4 0x2C: threshold exceeded), REQUEST SENSE on the
// others (additional sense 0x5D: failure prediction threshold exceeded).
BOOL predictFailure(Disk& disk, const Block& b, LPDWORD returned) {
  if (b.out == nullptr || b.outSize < sizeof(STORAGE_PREDICT_FAILURE)) return fail(ERROR_INSUFFICIENT_BUFFER, FALSE);
  STORAGE_PREDICT_FAILURE reply{};
  if (disk.ata) {
    AtaRequest request;
    request.in.feature = 0xDA;
    request.in.lbaMid = 0x4F;
    request.in.lbaHigh = 0xC2;
    request.in.command = 0xB0;
    request.timeoutSeconds = 10;
    const AtaResponse response = disk.ata->executeAta(request);
    if (response.completion != Completion::Done) return fail(completionError(response.completion), FALSE);
    if ((response.out.status & 0x01) != 0) return fail(ERROR_INVALID_FUNCTION, FALSE);
    reply.PredictFailure = (response.out.lbaMid == 0xF4 && response.out.lbaHigh == 0x2C) ? 1 : 0;
  } else if (disk.scsi) {
    const uint8_t cdb[6] = {0x03, 0, 0, 0, 18, 0};
    uint8_t sense[18] = {};
    ScsiRequest request;
    request.cdb = cdb;
    request.cdbLength = 6;
    request.direction = Direction::In;
    request.data = sense;
    request.length = sizeof(sense);
    request.timeoutSeconds = 10;
    const ScsiResponse response = disk.scsi->executeScsi(request);
    if (response.completion != Completion::Done) return fail(completionError(response.completion), FALSE);
    if (response.status != 0) return fail(ERROR_INVALID_FUNCTION, FALSE);
    reply.PredictFailure = (response.transferred >= 13 && sense[12] == 0x5D) ? 1 : 0;
  } else {
    return fail(ERROR_INVALID_FUNCTION, FALSE);
  }
  std::memcpy(b.out, &reply, sizeof(reply));
  return done(returned, sizeof(reply));
}

BOOL geometry(const Disk& disk, bool extended, const Block& b, LPDWORD returned) {
  if (!disk.media) return fail(ERROR_NOT_READY, FALSE);
  const DWORD need = extended ? static_cast<DWORD>(offsetof(DISK_GEOMETRY_EX, Data)) : sizeof(DISK_GEOMETRY);
  if (b.out == nullptr || b.outSize < need) return fail(ERROR_INSUFFICIENT_BUFFER, FALSE);
  DISK_GEOMETRY_EX g{};
  g.Geometry.MediaType = disk.removableMedia ? RemovableMedia : FixedMedia;
  g.Geometry.TracksPerCylinder = 255;
  g.Geometry.SectorsPerTrack = 63;
  g.Geometry.BytesPerSector = disk.media->sectorSize();
  g.Geometry.Cylinders.QuadPart = static_cast<LONGLONG>(disk.media->sectorCount() / (255 * 63));
  g.DiskSize.QuadPart = static_cast<LONGLONG>(disk.media->byteSize());
  std::memcpy(b.out, &g, need);
  return done(returned, need);
}

BOOL driveLayout(const Disk& disk, const Block& b, LPDWORD returned) {
  if (!disk.media) return fail(ERROR_NOT_READY, FALSE);
  // "layoutNeedsBytes": the reply is refused as too small below that many
  // bytes, as for a layout of that size.
  const auto needs = disk.description.find("layoutNeedsBytes");
  if (needs != disk.description.end() && needs->is_number_unsigned() &&
      (b.out == nullptr || b.outSize < needs->get<uint64_t>())) {
    return fail(ERROR_INSUFFICIENT_BUFFER, FALSE);
  }
  DWORD bytes = 0;
  if (!seam::driveLayoutReply(readDriveLayout(*disk.media), b.out, b.outSize, &bytes)) {
    return fail(ERROR_INSUFFICIENT_BUFFER, FALSE);
  }
  return done(returned, bytes);
}

BOOL smartVersion(const Disk& disk, const Block& b, LPDWORD returned) {
  // Only a disk on an ATA port answers; its capabilities may be set by the
  // description ("smartGetVersion": {"capabilities": n}).
  if (!disk.ata) return fail(ERROR_INVALID_FUNCTION, FALSE);
  if (b.out == nullptr || b.outSize < sizeof(GETVERSIONINPARAMS)) return fail(ERROR_INSUFFICIENT_BUFFER, FALSE);
  GETVERSIONINPARAMS v{};
  v.bVersion = 1;
  v.bRevision = 1;
  v.bIDEDeviceMap = 1;
  v.fCapabilities = CAP_ATA_ID_CMD | CAP_SMART_CMD;
  const auto it = disk.description.find("smartGetVersion");
  if (it != disk.description.end() && it->is_object() && it->contains("capabilities") &&
      (*it)["capabilities"].is_number_unsigned()) {
    v.fCapabilities = (*it)["capabilities"].get<DWORD>();
  }
  std::memcpy(b.out, &v, sizeof(v));
  // A driver that fills the whole reply and still reports a failure.
  if (it != disk.description.end() && it->is_object() && it->value("failsWithReply", false)) {
    if (returned != nullptr) *returned = sizeof(v);
    return fail(ERROR_GEN_FAILURE, FALSE);
  }
  return done(returned, sizeof(v));
}

}  // namespace

BOOL diskControl(Face& face, DiskObject& object, DWORD code, LPVOID in, DWORD inSize, LPVOID out, DWORD outSize,
                 LPDWORD returned) {
  Machine* machine = face.machine();
  if (machine == nullptr || object.disk >= machine->disks.size()) return fail(ERROR_INVALID_HANDLE, FALSE);
  Disk& disk = machine->disks[object.disk];
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
      return queryProperty(disk, b, returned);
    case IOCTL_STORAGE_GET_DEVICE_NUMBER: {
      if (b.out == nullptr || outSize < sizeof(STORAGE_DEVICE_NUMBER)) return fail(ERROR_INSUFFICIENT_BUFFER, FALSE);
      STORAGE_DEVICE_NUMBER number{FILE_DEVICE_DISK, static_cast<DWORD>(object.disk), 0};
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
      if (!disk.media) return fail(ERROR_NOT_READY, FALSE);
      if (b.out == nullptr || outSize < sizeof(GET_LENGTH_INFORMATION)) return fail(ERROR_INSUFFICIENT_BUFFER, FALSE);
      GET_LENGTH_INFORMATION length{};
      length.Length.QuadPart = static_cast<LONGLONG>(disk.media->byteSize());
      std::memcpy(out, &length, sizeof(length));
      return done(returned, sizeof(length));
    }
    case IOCTL_DISK_GET_DRIVE_LAYOUT_EX:
      return driveLayout(disk, b, returned);
    case SMART_GET_VERSION:
      return smartVersion(disk, b, returned);
    default:
      return fail(ERROR_INVALID_FUNCTION, FALSE);
  }
}

}  // namespace windows
}  // namespace sim
