// The parser of the sense bytes a SCSI command returns, fixed or descriptor
// format. What a sense key means to an operation is the protocol's business.
#pragma once

#include <cstdint>
#include <map>
#include <vector>

#include "commands/scsi/scsi_cmd.h"

// Sense keys the module looks at.
enum SenseKey : uint8_t {
  kSenseNoSense = 0x0,
  kSenseRecoveredError = 0x1,
  kSenseNotReady = 0x2,
  kSenseMediumError = 0x3,
  kSenseHardwareError = 0x4,
  kSenseIllegalRequest = 0x5,
  kSenseUnitAttention = 0x6,
  kSenseDataProtect = 0x7,
};

// Response codes (byte 0, bits 6-0).
constexpr uint8_t kSenseFixedCurrent = 0x70;
constexpr uint8_t kSenseFixedDeferred = 0x71;
constexpr uint8_t kSenseDescriptorCurrent = 0x72;
constexpr uint8_t kSenseDescriptorDeferred = 0x73;

// Descriptor type of the sense-key-specific information (progress of a self
// test, for instance), the only type stored.
constexpr int32_t kSenseKeySpecificDescriptor = 2;

struct SenseInformation {
  uint8_t specific[3] = {0, 0, 0};
};

// A value; parse may be called again on the same object (the descriptor map
// then keeps its first value for a type).
class SenseData {
 public:
  // Reads at most kScsiSenseBytes (32) bytes of `sense`, whatever lengths the
  // bytes claim. 0 for fixed (0x70, 0x71) and descriptor (0x72, 0x73) formats;
  // kStatusUnknownSense (79) for any other response code, a null pointer
  // included, with key, ASC and ASCQ left as they were.
  //
  // Fixed format:                     Descriptor format:
  //   [0] response code                 [0] response code
  //   [2] bits 3-0 sense key            [1] bits 3-0 sense key
  //   [12] ASC  [13] ASCQ               [2] ASC  [3] ASCQ
  //   [15..17] sense-key specific       [7] additional length L
  //                                     [8..] descriptors: type, length, body;
  //                                     type 2 holds the specific bytes at +4..+6
  uint32_t parse(const uint8_t* sense);

  uint8_t getResponseCode() const { return responseCode; }
  uint8_t getSenseKey() const { return senseKey; }
  uint8_t getAsc() const { return asc; }
  uint8_t getAscq() const { return ascq; }

  // The stored information of descriptor `type`: 0 and a copy in `out`, or 1
  // (kStatusNotAvailable) if none was stored. A null `out` gives 2.
  uint32_t getInformation(int32_t type, SenseInformation* out) const;

 private:
  void store(int32_t type, const uint8_t* specific);

  uint8_t responseCode = 0;
  uint8_t senseKey = 0;
  uint8_t asc = 0;
  uint8_t ascq = 0;
  std::map<int32_t, SenseInformation> information;
  // Room for descriptors of other types; nothing is stored in it yet.
  std::map<int32_t, std::vector<uint8_t>> otherDescriptors;
};
