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
#include "seam/drive_layout.h"

namespace linux_host {

namespace {

BOOL done(LPDWORD returned, DWORD bytes) {
  if (returned != nullptr) *returned = bytes;
  SetLastError(ERROR_SUCCESS);
  return TRUE;
}

// The block a pass-through request works on: the two buffers, as the I/O
// manager copies them for a buffered control code.
struct Block {
  uint8_t* in = nullptr;
  DWORD inSize = 0;
  uint8_t* out = nullptr;
  DWORD outSize = 0;
};

BOOL scsiPassThrough(DiskObject& disk, bool direct, const Block& b, LPDWORD returned) {
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
  ScsiCommand command;
  command.cdb = request.Cdb;
  command.cdbLength = request.CdbLength;
  command.direction = request.DataIn == SCSI_IOCTL_DATA_IN    ? DataDirection::In
                      : request.DataIn == SCSI_IOCTL_DATA_OUT ? DataDirection::Out
                                                              : (length > 0 ? DataDirection::In : DataDirection::None);
  command.data = length > 0 ? data.data() : nullptr;
  command.length = length;
  command.timeoutSeconds = request.TimeOutValue;
  const ScsiAnswer answer = disk.scsi->execute(command);
  if (answer.error != ERROR_SUCCESS) return fail(answer.error, FALSE);

  SCSI_PASS_THROUGH reply = request;
  reply.ScsiStatus = answer.status;
  const DWORD moved = std::min(answer.transferred, length);
  reply.DataTransferLength = moved;
  const UCHAR senseLength = static_cast<UCHAR>(std::min<size_t>(request.SenseInfoLength, answer.sense.size()));
  reply.SenseInfoLength = senseLength;
  if (b.out == nullptr || b.outSize < sizeof(reply)) return fail(ERROR_INSUFFICIENT_BUFFER, FALSE);
  std::memcpy(b.out, &reply, sizeof(reply));
  DWORD bytes = sizeof(reply);
  if (senseLength > 0 && request.SenseInfoOffset + senseLength <= b.outSize) {
    std::memcpy(b.out + request.SenseInfoOffset, answer.sense.data(), senseLength);
    bytes = std::max<DWORD>(bytes, request.SenseInfoOffset + senseLength);
  }
  if (moved > 0 && command.direction == DataDirection::In) {
    if (direct) {
      std::memcpy(directBuffer, data.data(), moved);
    } else if (request.DataBufferOffset + moved <= b.outSize) {
      std::memcpy(b.out + request.DataBufferOffset, data.data(), moved);
      bytes = std::max<DWORD>(bytes, static_cast<DWORD>(request.DataBufferOffset + moved));
    }
  }
  return done(returned, bytes);
}

BOOL ataPassThrough(DiskObject& disk, bool direct, const Block& b, LPDWORD returned) {
  if (b.in == nullptr || b.inSize < sizeof(ATA_PASS_THROUGH_EX)) return fail(ERROR_INVALID_PARAMETER, FALSE);
  ATA_PASS_THROUGH_EX request;
  std::memcpy(&request, b.in, sizeof(request));
  if (request.Length != sizeof(ATA_PASS_THROUGH_EX)) return fail(ERROR_INVALID_PARAMETER, FALSE);
  // Only a disk that SG_IO reaches carries ATA commands (through the
  // kernel's SAT layer or a bridge's).
  auto* sg = dynamic_cast<SgIoTarget*>(disk.scsi.get());
  if (sg == nullptr) return fail(ERROR_NOT_SUPPORTED, FALSE);
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
  AtaTaskFile taskFile;
  std::memcpy(taskFile.current, request.CurrentTaskFile, 8);
  std::memcpy(taskFile.previous, request.PreviousTaskFile, 8);
  taskFile.extended = (request.AtaFlags & ATA_FLAGS_48BIT_COMMAND) != 0;
  taskFile.dma = (request.AtaFlags & ATA_FLAGS_USE_DMA) != 0;
  const AtaAnswer answer =
      sg->executeAta(taskFile, dataIn ? DataDirection::In : dataOut ? DataDirection::Out : DataDirection::None,
                     length > 0 ? data.data() : nullptr, length, request.TimeOutValue);
  if (answer.error != ERROR_SUCCESS) return fail(answer.error, FALSE);

  ATA_PASS_THROUGH_EX reply = request;
  std::memcpy(reply.CurrentTaskFile, answer.registers.current, 8);
  std::memcpy(reply.PreviousTaskFile, answer.registers.previous, 8);
  const DWORD moved = dataIn ? std::min(answer.transferred, length) : 0;
  reply.DataTransferLength = dataIn ? moved : length;
  if (b.out == nullptr || b.outSize < sizeof(reply)) return fail(ERROR_INSUFFICIENT_BUFFER, FALSE);
  std::memcpy(b.out, &reply, sizeof(reply));
  DWORD bytes = sizeof(reply);
  if (moved > 0) {
    if (direct) {
      std::memcpy(directBuffer, data.data(), moved);
    } else if (request.DataBufferOffset + moved <= b.outSize) {
      std::memcpy(b.out + request.DataBufferOffset, data.data(), moved);
      bytes = static_cast<DWORD>(request.DataBufferOffset + moved);
    }
  }
  return done(returned, bytes);
}

// The device descriptor with its strings behind the 40-byte record, in the
// order vendor, product, revision, serial; an empty string has offset 0.
std::vector<uint8_t> deviceDescriptor(const HostDisk& disk) {
  std::vector<uint8_t> buffer(sizeof(STORAGE_DEVICE_DESCRIPTOR), 0);
  STORAGE_DEVICE_DESCRIPTOR d{};
  d.Version = sizeof(STORAGE_DEVICE_DESCRIPTOR);
  d.DeviceType = 0;  // direct-access block device
  d.RemovableMedia = disk.info.removable ? 1 : 0;
  d.CommandQueueing = 1;
  d.BusType = static_cast<STORAGE_BUS_TYPE>(disk.info.busType);
  auto place = [&buffer](const std::string& text) -> DWORD {
    if (text.empty()) return 0;
    const DWORD at = static_cast<DWORD>(buffer.size());
    buffer.insert(buffer.end(), text.begin(), text.end());
    buffer.push_back(0);
    return at;
  };
  d.VendorIdOffset = place(disk.info.vendor);
  d.ProductIdOffset = place(disk.info.product);
  d.ProductRevisionOffset = place(disk.info.revision);
  d.SerialNumberOffset = place(disk.info.serial);
  d.Size = static_cast<DWORD>(buffer.size());
  std::memcpy(buffer.data(), &d, sizeof(d));
  return buffer;
}

std::vector<uint8_t> adapterDescriptor(const HostDisk& disk, const BlockMedium& medium) {
  STORAGE_ADAPTER_DESCRIPTOR a{};
  a.Version = sizeof(a);
  a.Size = sizeof(a);
  a.MaximumTransferLength = 128 * 1024;
  a.MaximumPhysicalPages = 33;
  // Buffers aligned to the logical sector move without a bounce copy.
  a.AlignmentMask = medium.logicalSectorSize() - 1;
  a.CommandQueueing = 1;
  a.AcceleratedTransfer = 1;
  a.BusType = static_cast<BYTE>(disk.info.busType);
  a.BusMajorVersion = 1;
  std::vector<uint8_t> buffer(sizeof(a));
  std::memcpy(buffer.data(), &a, sizeof(a));
  return buffer;
}

BOOL queryProperty(DiskObject& object, const HostDisk& disk, const Block& b, LPDWORD returned) {
  if (b.in == nullptr || b.inSize < 8) return fail(ERROR_INVALID_PARAMETER, FALSE);
  STORAGE_PROPERTY_QUERY query{};
  std::memcpy(&query, b.in, std::min<size_t>(b.inSize, sizeof(query)));
  if (query.PropertyId != StorageDeviceProperty && query.PropertyId != StorageAdapterProperty) {
    return fail(ERROR_INVALID_FUNCTION, FALSE);
  }
  if (query.QueryType == PropertyExistsQuery) return done(returned, 0);
  if (query.QueryType != PropertyStandardQuery) return fail(ERROR_INVALID_PARAMETER, FALSE);
  const std::vector<uint8_t> descriptor =
      query.PropertyId == StorageDeviceProperty ? deviceDescriptor(disk) : adapterDescriptor(disk, object.medium);
  // A short buffer gets the first bytes, so that the header tells the size.
  if (b.out == nullptr || b.outSize < sizeof(STORAGE_DESCRIPTOR_HEADER)) return fail(ERROR_INSUFFICIENT_BUFFER, FALSE);
  const DWORD bytes = std::min<DWORD>(b.outSize, static_cast<DWORD>(descriptor.size()));
  std::memcpy(b.out, descriptor.data(), bytes);
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
