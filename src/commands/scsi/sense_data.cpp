// Sense parsing, bounded to the 32 bytes every record holds.
#include "commands/scsi/sense_data.h"

#include "commands/status_codes.h"

namespace {

// Fixed format offsets.
constexpr uint32_t kFixedKey = 2;
constexpr uint32_t kFixedAsc = 12;
constexpr uint32_t kFixedAscq = 13;
constexpr uint32_t kFixedSpecific = 15;
// Descriptor format offsets.
constexpr uint32_t kDescriptorKey = 1;
constexpr uint32_t kDescriptorAsc = 2;
constexpr uint32_t kDescriptorAscq = 3;
constexpr uint32_t kDescriptorAdditionalLength = 7;
constexpr uint32_t kFirstDescriptor = 8;
// Within a sense-key-specific descriptor: type, length, reserved, reserved,
// then the three specific bytes.
constexpr uint32_t kDescriptorSpecific = 4;
constexpr uint32_t kSpecificBytes = 3;

constexpr uint8_t kSenseKeyMask = 0x0F;
constexpr uint8_t kResponseCodeMask = 0x7F;

}  // namespace

uint32_t SenseData::parse(const uint8_t* sense) {
  if (sense == nullptr) return kStatusUnknownSense;
  responseCode = sense[0] & kResponseCodeMask;

  if (responseCode == kSenseFixedCurrent || responseCode == kSenseFixedDeferred) {
    senseKey = sense[kFixedKey] & kSenseKeyMask;
    asc = sense[kFixedAsc];
    ascq = sense[kFixedAscq];
    // Stored whether or not the SKSV bit says the bytes are valid.
    store(kSenseKeySpecificDescriptor, sense + kFixedSpecific);
    return kStatusOk;
  }

  if (responseCode == kSenseDescriptorCurrent || responseCode == kSenseDescriptorDeferred) {
    senseKey = sense[kDescriptorKey] & kSenseKeyMask;
    asc = sense[kDescriptorAsc];
    ascq = sense[kDescriptorAscq];
    const uint8_t additional = sense[kDescriptorAdditionalLength];
    if (additional == 0) return kStatusOk;
    // The walk keeps its offset in eight bits. Whatever the lengths claim, it
    // reads nothing beyond the 32 bytes, and it ends after as many steps as an
    // eight-bit offset has values, so that lengths which wrap it round to an
    // earlier descriptor cannot keep it going for ever.
    uint8_t i = 0;
    for (uint32_t steps = 0; steps < 256; ++steps) {
      const uint32_t at = kFirstDescriptor + i;
      if (at >= kScsiSenseBytes) break;
      if (sense[at] == kSenseKeySpecificDescriptor) {
        if (at + kDescriptorSpecific + kSpecificBytes <= kScsiSenseBytes) {
          store(kSenseKeySpecificDescriptor, sense + at + kDescriptorSpecific);
        }
        break;
      }
      if (at + 1 >= kScsiSenseBytes) break;
      i = static_cast<uint8_t>(i + sense[at + 1] + 2);
      if (i >= additional) break;
    }
    return kStatusOk;
  }

  return kStatusUnknownSense;
}

void SenseData::store(int32_t type, const uint8_t* specific) {
  SenseInformation value;
  for (uint32_t k = 0; k < kSpecificBytes; ++k) value.specific[k] = specific[k];
  information.emplace(type, value);  // the first value for a type stays
}

uint32_t SenseData::getInformation(int32_t type, SenseInformation* out) const {
  if (out == nullptr) return kStatusBadArgument;
  const auto found = information.find(type);
  if (found == information.end()) return kStatusNotAvailable;
  *out = found->second;
  return kStatusOk;
}
