// The ATA protocol's transport loop, the identify block turned into
// properties, SMART data and status, self tests and sector I/O. The logs
// live in ata_protocol_logs.cpp.
#include "protocols/ata_protocol.h"

#include <algorithm>
#include <iterator>
#include <string>

#include "commands/ata/ata_commands.h"
#include "protocols/protocol_functions.h"
#include "system/string_handler.h"

namespace {

constexpr size_t kBlockBytes = 512;

// SMART data block (SMART READ DATA), as the protocol reads it:
//   [0..1]      revision
//   [2..361]    30 attribute entries of 12 bytes:
//                 +0 id  +1..2 flags  +3 value  +4 worst  +5..10 raw  +11 reserved
//   [362]       off-line data collection status
//   [363]       self-test execution status: result << 4 | tens of percent remaining
//   [367]       off-line capability: bit 0 EXECUTE OFF-LINE IMMEDIATE, bit 2
//               abort on new command, bit 4 self tests
// The threshold block (SMART READ ATTRIBUTE THRESHOLDS) has the same 30
// entries: +0 id, +1 threshold.
constexpr size_t kSmartEntriesOffset = 2;
constexpr size_t kSmartEntryBytes = 12;
constexpr size_t kSmartEntryCount = 30;
constexpr size_t kSmartAttributeBytes = 362;  // revision and the 30 entries
constexpr size_t kSelfTestExecutionStatus = 363;
constexpr size_t kOfflineCapability = 367;
constexpr uint8_t kOfflineImmediateBit = 0x01;
constexpr uint8_t kOfflineAbortBit = 0x04;
constexpr uint8_t kSelfTestBit = 0x10;
constexpr uint8_t kTemperatureAttribute = 194;
constexpr uint8_t kAttributeValueUnused = 0;
constexpr uint8_t kAttributeValueReserved = 254;
constexpr uint8_t kAttributeValueInvalid = 255;

// SMART RETURN STATUS: LBA High and LBA Mid of a drive with a threshold
// exceeded.
constexpr uint8_t kSmartExceededLbaHigh = 0x2C;
constexpr uint8_t kSmartExceededLbaMid = 0xF4;

constexpr uint8_t kSelfTestAbortSubcommand = kSmartOfflineAbort;  // 127
constexpr uint8_t kErrorMediaBit7 = 0x80;  // ICRC, formerly BBK

// Identify words the properties come from.
enum IdentifyWord : size_t {
  kWordSerial = 10,         // 10..19
  kWordBufferSize = 21,
  kWordFirmware = 23,       // 23..26
  kWordModel = 27,          // 27..46
  kWordCapacity28 = 60,     // 60..61
  kWordMajorVersion = 80,
  kWordMinorVersion = 81,
  kWordCommandSet1 = 82,
  kWordCommandSet2 = 83,
  kWordCommandSetEnabled = 85,
  kWordCapacity48 = 100,    // 100..103
  kWordSectorSizes = 106,
  kWordLogicalSize = 117,   // 117..118
  kWordSecurityStatus = 128,
  kWordNvCacheCapabilities = 214,
  kWordNvCacheSize = 215,   // 215 high, 216 low
  kWordRotationRate = 217,
};

constexpr uint16_t kBitSmart = 0x0001;         // words 82, 85
constexpr uint16_t kBitSecurity = 0x0002;      // words 82, 85
constexpr uint16_t kBitLba48 = 0x0400;         // word 83
constexpr uint16_t kBitSecurityLocked = 0x0004;  // word 128
constexpr uint16_t kSectorSizesValidMask = 0xC000;  // word 106: bits 15-14 must read 01
constexpr uint16_t kSectorSizesValid = 0x4000;
constexpr uint16_t kBitLongLogical = 0x1000;   // word 106 bit 12
constexpr uint16_t kBitMultipleLogical = 0x2000;  // word 106 bit 13
constexpr uint16_t kPhysicalExponentMask = 0x000F;
constexpr uint16_t kNvCacheSizeValidBits = 0x0011;  // word 214 bits 0 and 4
constexpr uint16_t kRotationNonRotating = 0x0001;
constexpr uint16_t kRotationMinimumRpm = 1025;
constexpr uint16_t kRotationReserved = 0xFFFF;
constexpr uint16_t kMajorVersionAbsentLow = 0x00FF;

constexpr uint32_t kMinimumSectorSize = 512;

uint16_t word(const uint8_t* block, size_t index) {
  return static_cast<uint16_t>(block[2 * index] | block[2 * index + 1] << 8);
}

bool hasError(const AtaCmd& cmd) { return (cmd.status() & kAtaStatusErr) != 0; }

std::string ataText(const uint8_t* block, size_t firstWord, uint32_t wordCount) {
  std::string text = readAtaString(block + 2 * firstWord, wordCount);
  getStringHandler().trim(text);
  return text;
}

// Standards named by word 80, oldest last as the bits are tested from the top.
struct MajorVersionBit {
  uint16_t bit;
  const char* name;
};
constexpr MajorVersionBit kMajorVersions[] = {
    {0x0100, "ATA8-ACS"},   {0x0080, "ATA7-ATAPI"}, {0x0040, "ATA6-ATAPI"},
    {0x0020, "ATA5-ATAPI"}, {0x0010, "ATA4-ATAPI"},
};
constexpr char kVersionNotReported[] = "VERSION_NOT_REPORTED";

}  // namespace

AtaProtocol::AtaProtocol() = default;
AtaProtocol::~AtaProtocol() = default;

HANDLE AtaProtocol::getHandle() { return firstTransportHandle(transports); }

bool AtaProtocol::addTransport(std::shared_ptr<AtaBridge> transport) {
  return addTransportOnce(transports, std::move(transport));
}

uint32_t AtaProtocol::sendCommand(AtaCmd& cmd) {
  if (transports.empty()) return kStatusNotAvailable;
  // A transport that fails may leave the record cleared (a SAT bridge does),
  // so every transport starts from the command as it was built.
  const AtaCmd built = cmd;
  uint32_t result = kStatusNotAvailable;
  for (auto it = transports.begin(); it != transports.end(); ++it) {
    result = (*it)->send(cmd);
    if (result == kStatusOk) {
      promoteTransport(transports, it);
      return kStatusOk;
    }
    // 89 from the last transport: the record holds the device's registers
    // (a read that brought no data), and the caller still needs them.
    const bool last = std::next(it) == transports.end();
    if (!(result == kStatusNoData && last)) cmd = built;
  }
  return result;
}

uint32_t AtaProtocol::getProperties(StorageProtocolProperties* out) {
  if (out == nullptr) return kStatusBadArgument;
  uint8_t block[kBlockBytes] = {};
  IdentifyDevice identify(block);
  const uint32_t sent = sendCommand(identify);
  if (sent != kStatusOk) return sent;
  if (!isValidIdentifyData(block)) return kStatusInvalidData;
  parseIdentify(block);

  if (cache.smartSupported) {
    uint8_t smart[kBlockBytes] = {};
    SmartReadData readData(smart);
    // The capabilities are a bonus: a failure here is not reported, and ERR
    // is not looked at.
    if (sendCommand(readData) == kStatusOk) {
      cache.smartDataValid = true;
      const uint8_t capability = smart[kOfflineCapability];
      cache.offlineImmediateSupported = (capability & kOfflineImmediateBit) != 0;
      cache.offlineAbortSupported = (capability & kOfflineAbortBit) != 0;
      cache.selfTestSupported = (capability & kSelfTestBit) != 0;
    }
  }
  *out = cache;
  return kStatusOk;
}

void AtaProtocol::parseIdentify(const uint8_t* block) {
  const uint16_t commandSet1 = word(block, kWordCommandSet1);
  const uint16_t commandSet2 = word(block, kWordCommandSet2);
  const uint16_t enabled = word(block, kWordCommandSetEnabled);
  cache.securitySupported = (commandSet1 & kBitSecurity) != 0;
  cache.securityLocked =
      (enabled & kBitSecurity) != 0 && (word(block, kWordSecurityStatus) & kBitSecurityLocked) != 0;
  cache.lba48Supported = (commandSet2 & kBitLba48) != 0;
  cache.smartSupported = (commandSet1 & kBitSmart) != 0;
  cache.smartEnabled = (enabled & kBitSmart) != 0;

  cache.serialNumber = ataText(block, kWordSerial, 10);
  cache.model = ataText(block, kWordModel, 20);
  // A drive that reports a blank model names no vendor; the name lookup would
  // have no word to start from.
  cache.vendor = cache.model.empty() ? std::string() : getVendorName(cache.model);
  cache.firmwareRevision = ataText(block, kWordFirmware, 4);

  // The list is appended to, never cleared: a second call repeats the names.
  const uint16_t major = word(block, kWordMajorVersion);
  if (major == 0 || major == kMajorVersionAbsentLow) {
    cache.supportedStandards.push_back(kVersionNotReported);
  } else {
    bool any = false;
    for (const MajorVersionBit& version : kMajorVersions) {
      if ((major & version.bit) != 0) {
        cache.supportedStandards.push_back(version.name);
        any = true;
      }
    }
    if (!any) cache.supportedStandards.push_back(kVersionNotReported);
  }
  cache.standardVersion = getAtaMinorVersionName(word(block, kWordMinorVersion));

  if (cache.lba48Supported) {
    uint64_t sectors = 0;
    for (size_t i = 0; i < 4; ++i) sectors |= uint64_t{word(block, kWordCapacity48 + i)} << (16 * i);
    cache.sectorCount = sectors;
  } else {
    // The 28-bit count is taken as a signed 32-bit value and sign-extended;
    // that is settled.
    const uint32_t low = word(block, kWordCapacity28) | uint32_t{word(block, kWordCapacity28 + 1)} << 16;
    cache.sectorCount = static_cast<uint64_t>(static_cast<int64_t>(static_cast<int32_t>(low)));
  }

  const uint16_t sizes = word(block, kWordSectorSizes);
  const bool sizesValid = (sizes & kSectorSizesValidMask) == kSectorSizesValid;
  if (sizesValid && (sizes & kBitLongLogical) != 0) {
    // Words 117-118 taken as they stand, without a conversion from words.
    cache.logicalSectorSize =
        (uint32_t{word(block, kWordLogicalSize + 1)} << 16) + word(block, kWordLogicalSize);
  } else {
    cache.logicalSectorSize = kMinimumSectorSize;
  }
  if (sizesValid && (sizes & kBitMultipleLogical) != 0) {
    cache.physicalSectorSize = cache.logicalSectorSize << (sizes & kPhysicalExponentMask);
  } else {
    cache.physicalSectorSize = cache.logicalSectorSize;
  }

  const uint16_t rotation = word(block, kWordRotationRate);
  cache.rotationRate = (rotation == kRotationReserved || rotation < kRotationMinimumRpm) ? 0 : rotation;
  cache.isSolidState = rotation == kRotationNonRotating;

  // Word 215 is taken as the high half; that is settled.
  if ((word(block, kWordNvCacheCapabilities) & kNvCacheSizeValidBits) != 0) {
    cache.cacheSize = (uint32_t{word(block, kWordNvCacheSize)} << 16) + word(block, kWordNvCacheSize + 1);
  } else {
    cache.cacheSize = word(block, kWordBufferSize);
  }
}

uint32_t AtaProtocol::readResult(uint32_t sent, const AtaCmd& cmd) {
  // 89: the device brought no data but its registers are in the record.
  if (sent != kStatusOk && sent != kStatusNoData) return sent;
  if (!hasError(cmd)) return kStatusOk;
  const uint8_t error = cmd.error();
  if ((error & kAtaErrorUnc) != 0 || error >= kErrorMediaBit7) return kStatusMediaError;
  return kStatusAtaError;
}

uint32_t AtaProtocol::readSectors(uint64_t lba, uint16_t count, uint32_t timeoutSeconds, void* buffer) {
  // The cached record decides: getProperties must have run.
  if (cache.logicalSectorSize < kMinimumSectorSize) return kStatusBadArgument;
  if (cache.lba48Supported) {
    ReadSectorsExt read(lba, count, cache.logicalSectorSize, buffer, timeoutSeconds);
    return readResult(sendCommand(read), read);
  }
  // Without 48-bit addressing the count register holds the low 8 bits only.
  ReadSectors read(lba, static_cast<uint8_t>(count), cache.logicalSectorSize, buffer, timeoutSeconds);
  return readResult(sendCommand(read), read);
}

uint32_t AtaProtocol::writeSector(uint64_t lba, void* buffer) {
  StorageProtocolProperties scratch;
  const uint32_t refreshed = getProperties(&scratch);
  if (refreshed != kStatusOk) return refreshed;
  uint32_t sent = kStatusOk;
  bool failed = false;
  if (cache.lba48Supported) {
    WriteSectorsExt write(lba, 1, cache.logicalSectorSize, buffer);
    sent = sendCommand(write);
    failed = hasError(write);
  } else {
    WriteSectors write(lba, 1, cache.logicalSectorSize, buffer);
    sent = sendCommand(write);
    failed = hasError(write);
  }
  if (sent != kStatusOk) return sent;
  return failed ? kStatusAtaError : kStatusOk;
}

uint32_t AtaProtocol::writeUncorrectable(uint64_t lba) {
  // Sent to every drive, also to one without the 48-bit feature set.
  WriteUncorrectableExt mark(lba, 1, true);
  const uint32_t sent = sendCommand(mark);
  if (sent != kStatusOk) return sent;
  return hasError(mark) ? kStatusAtaError : kStatusOk;
}

uint32_t AtaProtocol::readSmartData(uint8_t* block) {
  SmartReadData readData(block);
  const uint32_t sent = sendCommand(readData);
  if (sent != kStatusOk) return sent;
  return hasError(readData) ? kStatusAtaError : kStatusOk;
}

uint32_t AtaProtocol::getTemperature(uint8_t* celsius) {
  if (celsius == nullptr) return kStatusBadArgument;
  uint8_t block[kBlockBytes] = {};
  const uint32_t status = readSmartData(block);
  if (status != kStatusOk) return status;
  // Every entry is looked at: the last one with id 194 wins.
  for (size_t i = 0; i < kSmartEntryCount; ++i) {
    const uint8_t* entry = block + kSmartEntriesOffset + i * kSmartEntryBytes;
    if (entry[0] == kTemperatureAttribute) *celsius = entry[5];
  }
  return kStatusOk;
}

uint32_t AtaProtocol::startSelfTest(uint8_t code, uint8_t count) {
  SmartExecuteOffline start(code, count);
  const uint32_t sent = sendCommand(start);
  if (sent != kStatusOk) return sent;
  if (!hasError(start)) return kStatusOk;
  if ((start.error() & kAtaErrorAbrt) != 0) return kStatusSelfTestAborted;
  if ((start.error() & kAtaErrorIdnf) != 0) return kStatusSelfTestIdnf;
  return kStatusAtaError;
}

uint32_t AtaProtocol::getSelfTestProgress(uint8_t* percentDone) {
  if (percentDone == nullptr) return kStatusBadArgument;
  uint8_t block[kBlockBytes] = {};
  const uint32_t status = readSmartData(block);
  if (status != kStatusOk) return status;
  // The low nibble is the remainder in tens of percent; 8-bit arithmetic, so
  // a nibble above 10 wraps (15 gives 206).
  const uint8_t remaining = block[kSelfTestExecutionStatus] & 0x0F;
  *percentDone = static_cast<uint8_t>((10 - remaining) * 10);
  return kStatusOk;
}

uint32_t AtaProtocol::getSelfTestStatus(uint8_t* status) {
  if (status == nullptr) return kStatusBadArgument;
  uint8_t block[kBlockBytes] = {};
  const uint32_t result = readSmartData(block);
  if (result != kStatusOk) return result;
  *status = block[kSelfTestExecutionStatus] >> 4;
  return kStatusOk;
}

uint32_t AtaProtocol::abortSelfTest() {
  SmartExecuteOffline abort(kSelfTestAbortSubcommand, 0);
  const uint32_t sent = sendCommand(abort);
  if (sent != kStatusOk) return sent;
  return hasError(abort) ? kStatusAtaError : kStatusOk;
}

uint32_t AtaProtocol::getSmartStatus(uint8_t* healthy) {
  if (healthy == nullptr) return kStatusBadArgument;
  SmartReturnStatus query;
  if (sendCommand(query) == kStatusOk && !hasError(query)) {
    if (query.lbaHigh == kSmartSignatureLbaHigh && query.lbaMid == kSmartSignatureLbaMid) {
      *healthy = 1;
      return kStatusOk;
    }
    if (query.lbaHigh == kSmartExceededLbaHigh && query.lbaMid == kSmartExceededLbaMid) {
      *healthy = 0;
      return kStatusOk;
    }
  }
  // No verdict in the registers (a transport that does not return them, a
  // refusal): the platform's own prediction answers.
  return getPredictFailureStatus(healthy);
}

uint32_t AtaProtocol::enableSmart(uint8_t enable) {
  SmartEnable command(enable != 0);
  const uint32_t sent = sendCommand(command);
  if (sent != kStatusOk) return sent;
  return hasError(command) ? kStatusAtaError : kStatusOk;
}

bool AtaProtocol::isAccessible() {
  StorageProtocolProperties scratch;
  return getProperties(&scratch) == kStatusOk;
}

uint32_t AtaProtocol::readSmartAttributes(std::vector<SmartAttribute>* out) {
  if (out == nullptr) return kStatusNotAvailable;
  uint8_t block[kBlockBytes] = {};
  SmartReadData readData(block);
  uint32_t sent = sendCommand(readData);
  if (sent != kStatusOk) return sent;
  uint8_t attributes[kSmartAttributeBytes];
  std::copy(block, block + kSmartAttributeBytes, attributes);

  uint8_t thresholds[kBlockBytes] = {};
  SmartReadWarrantyThresholds readThresholds(thresholds);
  sent = sendCommand(readThresholds);
  if (sent != kStatusOk) return sent;

  // ERR is not tested here: the blocks are taken as they came.
  for (size_t i = 0; i < kSmartEntryCount; ++i) {
    const uint8_t* entry = attributes + kSmartEntriesOffset + i * kSmartEntryBytes;
    const uint8_t id = entry[0];
    const uint8_t value = entry[3];
    if (id == 0 || value == kAttributeValueUnused || value == kAttributeValueReserved ||
        value == kAttributeValueInvalid) {
      continue;
    }
    SmartAttribute attribute;
    attribute.id = id;
    attribute.value = value;
    attribute.worst = entry[4];
    std::copy(entry + 5, entry + 9, attribute.raw.begin());
    for (size_t k = 0; k < kSmartEntryCount; ++k) {
      const uint8_t* limit = thresholds + kSmartEntriesOffset + k * kSmartEntryBytes;
      if (limit[0] == id) {
        attribute.threshold = limit[1];
        break;
      }
    }
    out->push_back(attribute);
  }
  return kStatusOk;
}
