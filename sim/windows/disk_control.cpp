// DeviceIoControl on a disk handle (\\.\PhysicalDriveN or the disk's
// interface path): ATA and SCSI pass-through to the disk's devices, the
// storage property queries with their strings placed behind the record as
// Windows places them, device number, failure prediction derived from the
// drive itself, geometry, length, drive layout read from the media, and
// SMART_GET_VERSION.
#include <algorithm>
#include <cstring>
#include <vector>

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

// The block a pass-through request works on: the larger of the two buffers,
// as the I/O manager copies it for a buffered control code.
struct Block {
  uint8_t* in = nullptr;
  DWORD inSize = 0;
  uint8_t* out = nullptr;
  DWORD outSize = 0;
};

BOOL ataPassThrough(Face& face, Disk& disk, bool direct, const Block& b, LPDWORD returned) {
  if (b.in == nullptr || b.inSize < sizeof(ATA_PASS_THROUGH_EX)) return fail(ERROR_INVALID_PARAMETER, FALSE);
  ATA_PASS_THROUGH_EX request;
  std::memcpy(&request, b.in, sizeof(request));
  if (request.Length != sizeof(ATA_PASS_THROUGH_EX)) return fail(ERROR_INVALID_PARAMETER, FALSE);
  if (!disk.ata) return fail(ERROR_NOT_SUPPORTED, FALSE);
  const bool dataIn = (request.AtaFlags & ATA_FLAGS_DATA_IN) != 0;
  const bool dataOut = (request.AtaFlags & ATA_FLAGS_DATA_OUT) != 0;
  if (dataIn && dataOut) return fail(ERROR_INVALID_PARAMETER, FALSE);
  const DWORD length = request.DataTransferLength;
  std::vector<uint8_t> data(length, 0);
  uint8_t* directBuffer = nullptr;
  if (length > 0) {
    if (direct) {
      ATA_PASS_THROUGH_DIRECT d;
      std::memcpy(&d, b.in, sizeof(d));
      directBuffer = static_cast<uint8_t*>(d.DataBuffer);
      if (directBuffer == nullptr) return fail(ERROR_INVALID_PARAMETER, FALSE);
      if (dataOut) std::memcpy(data.data(), directBuffer, length);
    } else {
      const uint64_t offset = request.DataBufferOffset;
      if (offset < sizeof(request) || offset + length > std::max(b.inSize, dataIn ? b.outSize : b.inSize)) {
        return fail(ERROR_INVALID_PARAMETER, FALSE);
      }
      if (dataOut) std::memcpy(data.data(), b.in + offset, length);
    }
  }
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
  ata.direction = dataIn ? Direction::In : dataOut ? Direction::Out : Direction::None;
  ata.data = length > 0 ? data.data() : nullptr;
  ata.length = length;
  ata.timeoutSeconds = request.TimeOutValue;
  (void)face;
  const AtaResponse response = disk.ata->executeAta(ata);
  if (response.completion != Completion::Done) return fail(completionError(response.completion), FALSE);

  ATA_PASS_THROUGH_EX reply = request;
  UCHAR* rtf = reply.CurrentTaskFile;
  rtf[0] = response.out.error;
  rtf[1] = response.out.count;
  rtf[2] = response.out.lbaLow;
  rtf[3] = response.out.lbaMid;
  rtf[4] = response.out.lbaHigh;
  rtf[5] = response.out.device;
  rtf[6] = response.out.status;
  rtf[7] = 0;
  UCHAR* rprev = reply.PreviousTaskFile;
  std::memset(rprev, 0, 8);
  if (ata.extended) {
    rprev[1] = response.out.countExp;
    rprev[2] = response.out.lbaLowExp;
    rprev[3] = response.out.lbaMidExp;
    rprev[4] = response.out.lbaHighExp;
  }
  const DWORD moved = dataIn ? std::min(response.transferred, length) : 0;
  reply.DataTransferLength = dataIn ? moved : length;
  if (b.out == nullptr || b.outSize < sizeof(reply)) return fail(ERROR_INSUFFICIENT_BUFFER, FALSE);
  std::memcpy(b.out, &reply, sizeof(reply));
  DWORD bytes = sizeof(reply);
  if (moved > 0) {
    if (direct) {
      std::memcpy(directBuffer, data.data(), moved);
    } else {
      std::memcpy(b.out + request.DataBufferOffset, data.data(), moved);
      bytes = static_cast<DWORD>(request.DataBufferOffset + moved);
    }
  }
  return done(returned, bytes);
}

BOOL scsiPassThrough(Disk& disk, bool direct, const Block& b, LPDWORD returned) {
  if (b.in == nullptr || b.inSize < sizeof(SCSI_PASS_THROUGH)) return fail(ERROR_INVALID_PARAMETER, FALSE);
  SCSI_PASS_THROUGH request;
  std::memcpy(&request, b.in, sizeof(request));
  if (request.Length != sizeof(SCSI_PASS_THROUGH) || request.CdbLength == 0 || request.CdbLength > 16 ||
      request.DataIn > SCSI_IOCTL_DATA_UNSPECIFIED) {
    return fail(ERROR_INVALID_PARAMETER, FALSE);
  }
  if (!disk.scsi) return fail(ERROR_NOT_SUPPORTED, FALSE);
  const DWORD length = request.DataTransferLength;
  const DWORD bufferSize = std::max(b.inSize, b.outSize);
  if (request.SenseInfoLength > 0 &&
      (request.SenseInfoOffset < sizeof(request) || request.SenseInfoOffset + request.SenseInfoLength > bufferSize)) {
    return fail(ERROR_INVALID_PARAMETER, FALSE);
  }
  std::vector<uint8_t> data(length, 0);
  uint8_t* directBuffer = nullptr;
  if (length > 0) {
    if (direct) {
      SCSI_PASS_THROUGH_DIRECT d;
      std::memcpy(&d, b.in, sizeof(d));
      directBuffer = static_cast<uint8_t*>(d.DataBuffer);
      if (directBuffer == nullptr) return fail(ERROR_INVALID_PARAMETER, FALSE);
      if (request.DataIn == SCSI_IOCTL_DATA_OUT) std::memcpy(data.data(), directBuffer, length);
    } else {
      if (request.DataBufferOffset < sizeof(request) || request.DataBufferOffset + length > bufferSize) {
        return fail(ERROR_INVALID_PARAMETER, FALSE);
      }
      if (request.DataIn == SCSI_IOCTL_DATA_OUT) {
        if (request.DataBufferOffset + length > b.inSize) return fail(ERROR_INVALID_PARAMETER, FALSE);
        std::memcpy(data.data(), b.in + request.DataBufferOffset, length);
      }
    }
  }
  ScsiRequest scsi;
  scsi.cdb = request.Cdb;
  scsi.cdbLength = request.CdbLength;
  scsi.direction = request.DataIn == SCSI_IOCTL_DATA_IN    ? Direction::In
                   : request.DataIn == SCSI_IOCTL_DATA_OUT ? Direction::Out
                                                           : (length > 0 ? Direction::In : Direction::None);
  scsi.data = length > 0 ? data.data() : nullptr;
  scsi.length = length;
  scsi.timeoutSeconds = request.TimeOutValue;
  const ScsiResponse response = disk.scsi->executeScsi(scsi);
  if (response.completion != Completion::Done) return fail(completionError(response.completion), FALSE);

  SCSI_PASS_THROUGH reply = request;
  reply.ScsiStatus = response.status;
  const DWORD moved = std::min(response.transferred, length);
  reply.DataTransferLength = moved;
  const UCHAR senseLength =
      static_cast<UCHAR>(std::min<size_t>(request.SenseInfoLength, response.status == 0x02 ? response.sense.size() : 0));
  reply.SenseInfoLength = senseLength;
  if (b.out == nullptr || b.outSize < sizeof(reply)) return fail(ERROR_INSUFFICIENT_BUFFER, FALSE);
  std::memcpy(b.out, &reply, sizeof(reply));
  DWORD bytes = sizeof(reply);
  if (senseLength > 0 && request.SenseInfoOffset + senseLength <= b.outSize) {
    std::memcpy(b.out + request.SenseInfoOffset, response.sense.data(), senseLength);
    bytes = std::max<DWORD>(bytes, request.SenseInfoOffset + senseLength);
  }
  if (moved > 0 && scsi.direction == Direction::In) {
    if (direct) {
      std::memcpy(directBuffer, data.data(), moved);
    } else if (request.DataBufferOffset + moved <= b.outSize) {
      std::memcpy(b.out + request.DataBufferOffset, data.data(), moved);
      bytes = std::max<DWORD>(bytes, static_cast<DWORD>(request.DataBufferOffset + moved));
    }
  }
  return done(returned, bytes);
}

// The device descriptor with its strings behind the 40-byte record, in the
// order vendor, product, revision, serial; an empty string has offset 0.
std::vector<uint8_t> deviceDescriptor(const Disk& disk) {
  std::vector<uint8_t> buffer(sizeof(STORAGE_DEVICE_DESCRIPTOR), 0);
  STORAGE_DEVICE_DESCRIPTOR d{};
  d.Version = sizeof(STORAGE_DEVICE_DESCRIPTOR);
  d.DeviceType = 0;  // direct-access block device
  d.RemovableMedia = disk.removableMedia ? 1 : 0;
  d.CommandQueueing = 1;
  d.BusType = static_cast<STORAGE_BUS_TYPE>(disk.busType);
  auto place = [&buffer](const std::string& text) -> DWORD {
    if (text.empty()) return 0;
    const DWORD at = static_cast<DWORD>(buffer.size());
    buffer.insert(buffer.end(), text.begin(), text.end());
    buffer.push_back(0);
    return at;
  };
  d.VendorIdOffset = place(disk.vendorId);
  d.ProductIdOffset = place(disk.productId);
  d.ProductRevisionOffset = place(disk.productRevision);
  d.SerialNumberOffset = place(disk.serialNumber);
  d.Size = static_cast<DWORD>(buffer.size());
  std::memcpy(buffer.data(), &d, sizeof(d));
  return buffer;
}

std::vector<uint8_t> adapterDescriptor(const Disk& disk) {
  STORAGE_ADAPTER_DESCRIPTOR a{};
  a.Version = sizeof(a);
  a.Size = sizeof(a);
  a.MaximumTransferLength = 128 * 1024;
  a.MaximumPhysicalPages = 33;
  a.AlignmentMask = 1;
  a.CommandQueueing = 1;
  a.AcceleratedTransfer = 1;
  a.BusType = static_cast<BYTE>(disk.busType);
  a.BusMajorVersion = 1;
  std::vector<uint8_t> buffer(sizeof(a));
  std::memcpy(buffer.data(), &a, sizeof(a));
  return buffer;
}

BOOL queryProperty(Disk& disk, const Block& b, LPDWORD returned) {
  if (b.in == nullptr || b.inSize < 8) return fail(ERROR_INVALID_PARAMETER, FALSE);
  STORAGE_PROPERTY_QUERY query{};
  std::memcpy(&query, b.in, std::min<size_t>(b.inSize, sizeof(query)));
  if (query.PropertyId != StorageDeviceProperty && query.PropertyId != StorageAdapterProperty) {
    return fail(ERROR_INVALID_FUNCTION, FALSE);
  }
  if (query.QueryType == PropertyExistsQuery) return done(returned, 0);
  if (query.QueryType != PropertyStandardQuery) return fail(ERROR_INVALID_PARAMETER, FALSE);
  const std::vector<uint8_t> descriptor =
      query.PropertyId == StorageDeviceProperty ? deviceDescriptor(disk) : adapterDescriptor(disk);
  // A short buffer gets the first bytes, so that the header tells the size.
  if (b.out == nullptr || b.outSize < sizeof(STORAGE_DESCRIPTOR_HEADER)) return fail(ERROR_INSUFFICIENT_BUFFER, FALSE);
  const DWORD bytes = std::min<DWORD>(b.outSize, static_cast<DWORD>(descriptor.size()));
  std::memcpy(b.out, descriptor.data(), bytes);
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
      return ataPassThrough(face, disk, false, b, returned);
    case IOCTL_ATA_PASS_THROUGH_DIRECT:
      return ataPassThrough(face, disk, true, b, returned);
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
