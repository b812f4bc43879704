// The SCSI protocol's transport loop, the sense check, and the routes by
// which a drive's properties are learnt. Sector I/O, self tests and the
// SMART routes live in scsi_protocol_health.cpp.
#include "protocols/scsi_protocol.h"

#include <algorithm>
#include <cstring>
#include <iterator>
#include <string>
#include <vector>

#include "commands/scsi/scsi_commands.h"
#include "commands/scsi/sense_data.h"
#include "protocols/scsi_version_descriptors.h"

namespace {

constexpr uint32_t kInquiryBytes = 64;
constexpr uint8_t kVpdUnitSerialNumber = 0x80;
constexpr uint8_t kVpdBlockDeviceCharacteristics = 0xB1;

// Standard INQUIRY data, as the protocol reads it:
//   [1]       taken as "removable" when exactly 1
//   [2]       version: 3 SPC, 4 SPC-2, 5 SPC-3, 6 SPC-4
//   [8..15]   vendor    [16..31] product    [32..35] revision
//   [58..73]  eight version descriptors, big-endian
constexpr uint64_t kStandardInquiryMinimum = 36;
constexpr size_t kInquiryRemovable = 1;
constexpr size_t kInquiryVersion = 2;
constexpr size_t kInquiryVendor = 8;
constexpr size_t kInquiryVendorBytes = 8;
constexpr size_t kInquiryProduct = 16;
constexpr size_t kInquiryProductBytes = 16;
constexpr size_t kInquiryRevision = 32;
constexpr size_t kInquiryRevisionBytes = 4;
constexpr size_t kVersionDescriptors = 58;
constexpr size_t kVersionDescriptorCount = 8;
constexpr uint64_t kVersionDescriptorsMinimum = 58;

// Unit serial number page: [3] page length L, [4..] serial number.
// Block device characteristics page: [1] page code, [4..5] rotation rate.
constexpr uint64_t kVpdHeaderBytes = 4;
constexpr uint64_t kCharacteristicsMinimum = 6;
constexpr uint16_t kRotationNonRotating = 1;
constexpr uint16_t kRotationMinimumRpm = 1025;
constexpr uint16_t kRotationReserved = 0xFFFF;

// READ CAPACITY(16): [0..7] last LBA, [8..11] block length, [13] bits 7-4
// taken as the exponent of logical blocks per physical block.
// READ CAPACITY(10): [0..3] last LBA, [4..7] block length.
constexpr uint32_t kReadCapacity16Bytes = 32;
constexpr uint32_t kReadCapacity10Bytes = 8;
constexpr uint32_t kCapacityTooLarge = 0xFFFFFFFF;
// No disk uses logical blocks beyond 64 KiB, and the transfer counts that
// read them are 16-bit; a larger block length is a broken answer, which would
// otherwise make every one-sector read move that many bytes.
constexpr uint32_t kLargestSectorSize = 0x10000;

uint64_t bigEndian(const uint8_t* bytes, size_t count) {
  uint64_t value = 0;
  for (size_t i = 0; i < count; ++i) value = value << 8 | bytes[i];
  return value;
}

// A fixed-width INQUIRY field, cut at its first NUL and not trimmed.
std::string inquiryField(const uint8_t* field, size_t width) {
  const uint8_t* end = std::find(field, field + width, uint8_t{0});
  return std::string(reinterpret_cast<const char*>(field), static_cast<size_t>(end - field));
}

std::string spcVersionName(uint8_t version) {
  switch (version) {
    case 3:
      return "SCSI Primary Commands - SPC";
    case 4:
      return "SCSI Primary Commands 2 - SPC-2";
    case 5:
      return "SCSI Primary Commands 3 - SPC-3";
    case 6:
      return "SCSI Primary Commands 4 - SPC-4";
    default:
      return std::string();
  }
}

}  // namespace

ScsiProtocol::ScsiProtocol() {
  // The version descriptor table is built by the first protocol made.
  (void)versionDescriptorCount();
}

ScsiProtocol::~ScsiProtocol() = default;

HANDLE ScsiProtocol::getHandle() { return firstTransportHandle(transports); }

bool ScsiProtocol::addTransport(std::shared_ptr<ScsiBridge> transport) {
  return addTransportOnce(transports, std::move(transport));
}

uint32_t ScsiProtocol::sendCommand(ScsiCmd& cmd) {
  if (transports.empty()) return kStatusScsiRefused;
  uint32_t result = kStatusScsiRefused;
  for (auto it = transports.begin(); it != transports.end(); ++it) {
    result = (*it)->send(cmd);
    if (result == kStatusOk) {
      promoteTransport(transports, it);
      return kStatusOk;
    }
  }
  return result;
}

uint32_t ScsiProtocol::senseStatus(const ScsiCmd& cmd) {
  if (cmd.senseLength == 0) return kStatusOk;
  SenseData sense;
  const uint32_t parsed = sense.parse(cmd.sense.data());
  if (parsed != kStatusOk) return parsed;
  const uint8_t key = sense.getSenseKey();
  if (key == kSenseIllegalRequest || key == kSenseDataProtect) return kStatusScsiRefused;
  // Any other key counts as sent; the caller reads the sense if it cares.
  return kStatusOk;
}

uint32_t ScsiProtocol::sendChecked(ScsiCmd& cmd) {
  const uint32_t sent = sendCommand(cmd);
  if (sent != kStatusOk) return sent;
  return senseStatus(cmd);
}

uint32_t ScsiProtocol::checkedRead(ScsiCmd& cmd) {
  const uint32_t sent = sendChecked(cmd);
  if (sent != kStatusOk) return sent;
  if (cmd.scsiStatus != kScsiStatusGood || cmd.dataLength == 0) return kStatusNotAvailable;
  return kStatusOk;
}

bool ScsiProtocol::isScsiResponding(ScsiBridge& transport) {
  std::vector<uint8_t> answer(kInquiryBytes, 0);
  Inquiry inquiry(answer.data(), kInquiryBytes, false, 0);
  // The send's own result is not looked at: a sender that fails leaves the
  // requested length in the record.
  (void)transport.send(inquiry);
  if (inquiry.dataLength >= 5) return true;
  if (inquiry.senseLength == 0) return false;
  SenseData sense;
  return sense.parse(inquiry.sense.data()) == kStatusOk && sense.getSenseKey() != kSenseIllegalRequest;
}

uint32_t ScsiProtocol::getProperties(StorageProtocolProperties* out) {
  if (out == nullptr) return kStatusNotAvailable;
  uint32_t status = readStandardInquiry();
  if (status == kStatusOk) status = readUnitSerialNumber();
  if (status == kStatusOk) {
    status = readCapacity16();
    if (status != kStatusOk) status = readCapacity10();
  }
  if (status == kStatusOk) {
    if (readBlockDeviceCharacteristics() != kStatusOk) cache.rotationRate = 0;
    if (busKind == kBusUsb) {
      cache.smartSupported = false;
    } else if (readIecEnabled() == kStatusOk) {
      cache.smartSupported = true;
    }
  }
  cache.securityLocked = false;
  cache.securitySupported = false;
  *out = cache;
  return status;
}

uint32_t ScsiProtocol::readStandardInquiry() {
  std::vector<uint8_t> data(kInquiryBytes, 0);
  Inquiry inquiry(data.data(), kInquiryBytes, false, 0);
  const uint32_t sent = sendChecked(inquiry);
  if (sent != kStatusOk || inquiry.scsiStatus != kScsiStatusGood || inquiry.dataLength < kStandardInquiryMinimum) {
    return kStatusAtaError;
  }
  cache.standardVersion = spcVersionName(data[kInquiryVersion]);
  // Byte 1 compared as a whole, not the RMB bit alone: kept as it is.
  cache.removable = data[kInquiryRemovable] == 1;
  cache.vendor = inquiryField(&data[kInquiryVendor], kInquiryVendorBytes);
  cache.model = inquiryField(&data[kInquiryProduct], kInquiryProductBytes);
  cache.firmwareRevision = inquiryField(&data[kInquiryRevision], kInquiryRevisionBytes);
  if (inquiry.dataLength >= kVersionDescriptorsMinimum) {
    // Appended to, never cleared. Of the eight positions only the first three
    // lie inside the 64-byte answer; the others count as absent.
    for (size_t i = 0; i < kVersionDescriptorCount; ++i) {
      const size_t at = kVersionDescriptors + 2 * i;
      if (at + 2 > data.size()) break;
      std::string name;
      if (findVersionDescriptorName(static_cast<uint16_t>(bigEndian(&data[at], 2)), &name)) {
        cache.supportedStandards.push_back(name);
      }
    }
  }
  return kStatusOk;
}

uint32_t ScsiProtocol::readUnitSerialNumber() {
  std::vector<uint8_t> data(kInquiryBytes, 0);
  Inquiry inquiry(data.data(), kInquiryBytes, true, kVpdUnitSerialNumber);
  const uint32_t sent = sendChecked(inquiry);
  if (sent != kStatusOk || inquiry.scsiStatus != kScsiStatusGood || inquiry.dataLength < kVpdHeaderBytes) {
    return kStatusNotAvailable;
  }
  const uint32_t length = data[3];
  if (inquiry.dataLength - kVpdHeaderBytes < length) {
    // The page is longer than the first answer: ask again for all of it.
    data.assign(length + kVpdHeaderBytes, 0);
    Inquiry whole(data.data(), length + kVpdHeaderBytes, true, kVpdUnitSerialNumber);
    if (sendChecked(whole) != kStatusOk || whole.scsiStatus != kScsiStatusGood ||
        whole.dataLength < length + kVpdHeaderBytes) {
      return kStatusNotAvailable;
    }
  }
  const size_t available = std::min<size_t>(length, data.size() - kVpdHeaderBytes);
  cache.serialNumber = inquiryField(&data[kVpdHeaderBytes], available);
  return kStatusOk;
}

uint32_t ScsiProtocol::readCapacity16() {
  std::vector<uint8_t> data(kReadCapacity16Bytes, 0);
  ReadCapacity16 read(data.data());
  const uint32_t sent = sendChecked(read);
  if (sent != kStatusOk) return sent;
  if (read.scsiStatus != kScsiStatusGood) return kStatusScsiNotGood;
  const uint32_t blockLength = static_cast<uint32_t>(bigEndian(&data[8], 4));
  if (blockLength > kLargestSectorSize) return kStatusNotAvailable;
  // The last address as it stands, not the count (no 1 added).
  cache.sectorCount = bigEndian(&data[0], 8);
  cache.logicalSectorSize = blockLength;
  const uint32_t exponent = data[13] >> 4;
  cache.physicalSectorSize = (1u << exponent) * cache.logicalSectorSize;
  return kStatusOk;
}

uint32_t ScsiProtocol::readCapacity10() {
  std::vector<uint8_t> data(kReadCapacity10Bytes, 0);
  ReadCapacity10 read(data.data());
  const uint32_t sent = sendChecked(read);
  if (sent != kStatusOk) return sent;
  if (read.scsiStatus != kScsiStatusGood) return kStatusScsiNotGood;
  const uint32_t last = static_cast<uint32_t>(bigEndian(&data[0], 4));
  if (last == kCapacityTooLarge) return kStatusNotAvailable;
  const uint32_t blockLength = static_cast<uint32_t>(bigEndian(&data[4], 4));
  if (blockLength > kLargestSectorSize) return kStatusNotAvailable;
  cache.sectorCount = last;  // the last address, not incremented
  cache.logicalSectorSize = blockLength;
  cache.physicalSectorSize = 0;
  return kStatusOk;
}

uint32_t ScsiProtocol::readBlockDeviceCharacteristics() {
  std::vector<uint8_t> data(kInquiryBytes, 0);
  Inquiry inquiry(data.data(), kInquiryBytes, true, kVpdBlockDeviceCharacteristics);
  const uint32_t sent = sendChecked(inquiry);
  if (sent != kStatusOk || inquiry.scsiStatus != kScsiStatusGood || inquiry.dataLength < kCharacteristicsMinimum ||
      data[1] != kVpdBlockDeviceCharacteristics) {
    return kStatusAtaError;
  }
  const uint16_t rate = static_cast<uint16_t>(bigEndian(&data[4], 2));
  if (rate == kRotationNonRotating) {
    cache.isSolidState = true;
    cache.rotationRate = 0;
  } else if (rate >= kRotationMinimumRpm && rate < kRotationReserved) {
    cache.isSolidState = false;
    cache.rotationRate = rate;
  }
  return kStatusOk;
}

bool ScsiProtocol::isAccessible() {
  StorageProtocolProperties scratch;
  return getProperties(&scratch) == kStatusOk;
}

uint32_t ScsiProtocol::writeUncorrectable(uint64_t /*lba*/) { return kStatusOk; }

NvmeScsiProtocol::NvmeScsiProtocol() = default;
NvmeScsiProtocol::~NvmeScsiProtocol() = default;

uint32_t NvmeScsiProtocol::getProperties(StorageProtocolProperties* out) {
  const uint32_t status = ScsiProtocol::getProperties(out);
  // After `out` was written: only getCachedProperties shows these.
  cache.smartSupported = true;
  cache.selfTestSupported = false;
  cache.offlineImmediateSupported = false;
  return status;
}

uint32_t NvmeScsiProtocol::getSmartStatus(uint8_t* healthy) {
  if (healthy == nullptr) return kStatusBadArgument;
  *healthy = 1;
  if (readSenseHealth(healthy) == kStatusOk) return kStatusOk;
  return readIecLog(healthy);
}

uint32_t NvmeScsiProtocol::enableSmart(uint8_t /*enable*/) { return kStatusOk; }
