// What every simulated SCSI target shares: sense data in fixed and
// descriptor format, big-endian fields, the decoding of READ and WRITE CDBs,
// and the data-in phase that honours the allocation length.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "sim/device.h"

namespace sim {

enum class SenseFormat : uint8_t { Fixed, Descriptor };

// Sense keys (SPC-4 4.5.6).
enum SenseKey : uint8_t {
  kSenseNoSense = 0x0,
  kSenseRecoveredError = 0x1,
  kSenseNotReady = 0x2,
  kSenseMediumError = 0x3,
  kSenseHardwareError = 0x4,
  kSenseIllegalRequest = 0x5,
  kSenseUnitAttention = 0x6,
  kSenseDataProtect = 0x7,
  kSenseAbortedCommand = 0xB,
};

// Additional sense codes used here, as (ASC << 8 | ASCQ).
enum AdditionalSense : uint16_t {
  kAscNone = 0x0000,
  kAscAtaPassThroughInfo = 0x001D,  // ATA PASS THROUGH INFORMATION AVAILABLE
  kAscSelfTestInProgress = 0x0409,  // LOGICAL UNIT NOT READY, SELF-TEST IN PROGRESS
  kAscUnrecoveredReadError = 0x1100,
  kAscInvalidOpcode = 0x2000,       // INVALID COMMAND OPERATION CODE
  kAscLbaOutOfRange = 0x2100,       // LOGICAL BLOCK ADDRESS OUT OF RANGE
  kAscInvalidFieldInCdb = 0x2400,
  kAscInvalidFieldInParameterList = 0x2600,
  kAscParameterListLengthError = 0x1A00,
  kAscSavingNotSupported = 0x3900,
  kAscSelfTestFailed = 0x3E03,      // LOGICAL UNIT FAILED SELF-TEST
  kAscFailurePredicted = 0x5D00,    // FAILURE PREDICTION THRESHOLD EXCEEDED
  kAscFailurePredictedFalse = 0x5DFF,
  kAscInternalTargetFailure = 0x4400,
};

struct SenseInfo {
  uint8_t key = kSenseNoSense;
  uint16_t asc = kAscNone;  // ASC << 8 | ASCQ
  bool informationValid = false;
  uint64_t information = 0;
  bool sksValid = false;
  uint8_t sks[3] = {0, 0, 0};  // sense-key-specific bytes; SKSV is set from sksValid
  // Further descriptors (descriptor format only), e.g. the ATA Status Return.
  std::vector<uint8_t> extraDescriptors;
};

// Fixed format (response code 0x70, 18 bytes):
//   0 VALID | 0x70   2 sense key   3-6 INFORMATION   7 additional length (10)
//   12 ASC   13 ASCQ   15 SKSV | sense-key-specific   16-17 sense-key-specific
// Descriptor format (response code 0x72):
//   1 sense key   2 ASC   3 ASCQ   7 additional length, then descriptors:
//   information (type 0x00, 12 bytes: 2 VALID, 4-11 INFORMATION),
//   sense-key-specific (type 0x02, 8 bytes: 4 SKSV | 4-6 bytes),
//   and any extra ones.
std::vector<uint8_t> buildSense(SenseFormat format, const SenseInfo& info);

ScsiResponse checkCondition(SenseFormat format, const SenseInfo& info);
ScsiResponse checkCondition(SenseFormat format, uint8_t key, uint16_t asc);
ScsiResponse illegalRequest(SenseFormat format, uint16_t asc);

// The data-in phase: at most `allocation` bytes, at most what the host gave
// room for, nothing when the host gave no data-in buffer. GOOD status.
ScsiResponse dataIn(const ScsiRequest& request, const uint8_t* data, size_t length, size_t allocation);

inline uint16_t getBe16(const uint8_t* p) { return static_cast<uint16_t>(p[0] << 8 | p[1]); }
inline uint32_t getBe32(const uint8_t* p) {
  return uint32_t{p[0]} << 24 | uint32_t{p[1]} << 16 | uint32_t{p[2]} << 8 | p[3];
}
inline uint64_t getBe64(const uint8_t* p) { return uint64_t{getBe32(p)} << 32 | getBe32(p + 4); }
inline void putBe16(uint8_t* p, uint16_t v) {
  p[0] = static_cast<uint8_t>(v >> 8);
  p[1] = static_cast<uint8_t>(v);
}
inline void putBe32(uint8_t* p, uint32_t v) {
  for (int i = 0; i < 4; ++i) p[i] = static_cast<uint8_t>(v >> (24 - 8 * i));
}
inline void putBe64(uint8_t* p, uint64_t v) {
  putBe32(p, static_cast<uint32_t>(v >> 32));
  putBe32(p + 4, static_cast<uint32_t>(v));
}
// A text field of fixed width, blank padded (INQUIRY identification).
void putAscii(uint8_t* p, size_t width, const std::string& text);

// READ/WRITE (6), (10), (12), (16) by operation code, as a target decodes
// them: the operation code alone fixes the layout, whatever CDB length the
// host claims. False when the CDB is too short for its operation code.
struct BlockRange {
  uint64_t lba = 0;
  uint64_t count = 0;
  bool write = false;
};
bool isReadWrite(uint8_t opcode);
bool decodeReadWrite(const ScsiRequest& request, BlockRange* range);
// The CDB length that an operation code's group implies (SPC 4.2.5.1).
uint8_t cdbLengthOf(uint8_t opcode);

// Standard INQUIRY data, 96 bytes:
//   0 peripheral (0: direct access)   1 RMB (bit 7)   2 version
//   3 response format (2) | HISUP     4 additional length (91)
//   7 CMDQUE   8-15 vendor   16-31 product   32-35 revision
//   58-73 eight version descriptors, big-endian
struct InquiryIdentity {
  std::string vendor, product, revision;
  uint8_t version = 6;  // SPC-4
  bool removable = false;
  std::vector<uint16_t> versionDescriptors;
};
std::vector<uint8_t> buildStandardInquiry(const InquiryIdentity& identity);

// The parameter data of MODE SENSE (6) (cdb[0] 0x1A) or (10) (0x5A) for a
// direct-access device: the header, the block descriptor unless DBD (cdb[1]
// bit 3) asks for none, then `pages`.
//   (6)  header 0 mode data length, 1 medium type, 2 device-specific, 3
//        block descriptor length
//   (10) header 0-1 mode data length, 2 medium type, 3 device-specific, 4
//        LONGLBA (bit 0), 6-7 block descriptor length
//   short LBA block descriptor (8 bytes): 0-3 number of blocks (FFFFFFFFh
//        when the count does not fit), 5-7 block length
//   long LBA block descriptor (16 bytes, MODE SENSE (10) with LLBAA, cdb[1]
//        bit 4): 0-7 number of blocks, 12-15 block length
std::vector<uint8_t> modeParameterData(const uint8_t* cdb, uint64_t blocks, uint32_t blockLength,
                                       uint8_t deviceSpecific, const std::vector<uint8_t>& pages);

// One log parameter: 0-1 code, 2 control, 3 length, then the value
// big-endian in `length` bytes.
void appendLogParameter(std::vector<uint8_t>& page, uint16_t code, uint8_t control, uint8_t length, uint64_t value);

}  // namespace sim
