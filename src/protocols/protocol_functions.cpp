// Shared helpers of the protocol layer. The two lookup tables are built on
// first use, without a lock, and stay for the life of the process.
#include "protocols/protocol_functions.h"

#include <cctype>
#include <cstring>
#include <map>
#include <stdexcept>

namespace {

constexpr size_t kIdentifyBytes = 512;
constexpr size_t kIntegrityOffset = 510;  // word 255, low byte: signature
constexpr uint8_t kIntegritySignature = 0xA5;

// IDENTIFY DEVICE words used for the capacity.
constexpr size_t kWordSectors28 = 60;        // 60-61: user addressable sectors
constexpr size_t kWordCommandSet2 = 83;      // bit 10: 48-bit address feature set
constexpr size_t kWordSectors48 = 100;       // 100-103: 48-bit sector count
constexpr size_t kWordSectorSizeInfo = 106;  // bits 15..12: validity and long sectors
constexpr size_t kWordLogicalSizeLow = 117;  // 117-118: words per logical sector
constexpr size_t kWordLogicalSizeHigh = 118;

const std::map<std::string, std::string>& vendorPrefixes() {
  // Tried in ascending order of prefix.
  static const std::map<std::string, std::string> prefixes = {
      {"HT", "HT"},
      {"ST", "Seagate"},
      {"WD", "Western Digital"},
  };
  return prefixes;
}

const std::map<int32_t, std::string>& minorVersionNames() {
  static const std::map<int32_t, std::string> names = {
      {0x0000, "VERSION_NOT_REPORTED"},
      {0x000D, "ATA/ATAPI-4 X3T13 1153D version 6"},
      {0x000E, "ATA-ATAPI-4 T13 1153D version 13"},
      {0x000F, "ATA-ATAPI-4 X3T13 1153D version 7"},
      {0x0010, "ATA-ATAPI-4 T13 1153D version 18"},
      {0x0011, "ATA-ATAPI-4 T13 1153D version 15"},
      {0x0012, "ATA-ATAPI-4 published, ANSI INCITS 317-1998"},
      {0x0013, "ATA-ATAPI-5 T13 1321D version 3"},
      {0x0014, "ATA-ATAPI-4 T13 1153D version 14"},
      {0x0015, "ATA-ATAPI-5 T13 1321D version 1"},
      {0x0016, "ATA-ATAPI-5 published, ANSI INCITS 340-2000"},
      {0x0017, "ATA-ATAPI-4 T13 1153D version 17"},
      {0x0018, "ATA-ATAPI-6 T13 1410D version 17"},
      {0x0019, "ATA-ATAPI-6 T13 1410D version 3a"},
      {0x001A, "ATA-ATAPI-7 T13 1532D version 1"},
      {0x001B, "ATA-ATAPI-6 T13 1410D version 2"},
      {0x001C, "ATA-ATAPI-6 T13 1410D version 1"},
      {0x001D, "ATA-ATAPI-7 published, ANSI INCITS 397-2005"},
      {0x001E, "ATA-ATAPI-7 T13 1532D version 0"},
      {0x0021, "ATA-ATAPI-7 T13 1532D version 4a"},
      {0x0022, "ATA-ATAPI-6 published, ANSI INCITS 361-2002"},
      {0x0027, "ATA8-ACS version 3c"},
      {0x0028, "ATA8-ACS version 6"},
      {0x0029, "ATA8-ACS version 4"},
      {0x0033, "ATA8-ACS version 3e"},
      {0x0039, "ATA8-ACS version 4c"},
      {0x0042, "ATA8-ACS version 3f"},
      {0x0052, "ATA8-ACS version 3b"},
      {0x0107, "ATA8-ACS version 2d"},
      {0xFFFF, "VERSION_NOT_REPORTED"},
  };
  return names;
}

}  // namespace

uint64_t makeLba48(uint8_t b0, uint8_t b1, uint8_t b2, uint8_t b3, uint8_t b4, uint8_t b5) {
  return makeLba64(b0, b1, b2, b3, b4, b5, 0, 0);
}

uint64_t makeLba64(uint8_t b0, uint8_t b1, uint8_t b2, uint8_t b3, uint8_t b4, uint8_t b5, uint8_t b6,
                   uint8_t b7) {
  return uint64_t{b0} | uint64_t{b1} << 8 | uint64_t{b2} << 16 | uint64_t{b3} << 24 | uint64_t{b4} << 32 |
         uint64_t{b5} << 40 | uint64_t{b6} << 48 | uint64_t{b7} << 56;
}

bool isChecksumValid(const uint8_t* data, int64_t length) {
  if (length < 0) return false;
  if (length == 0) return true;
  if (data == nullptr) return false;
  uint8_t sum = 0;
  for (int64_t i = 0; i < length; ++i) sum = static_cast<uint8_t>(sum + data[i]);
  return sum == 0;
}

bool isValidIdentifyData(const uint8_t* block) {
  if (block == nullptr) return false;
  // Word 255: low byte 0xA5 says the high byte makes the block sum to zero.
  // Without the signature the device keeps no integrity word.
  if (block[kIntegrityOffset] == kIntegritySignature &&
      !isChecksumValid(block, static_cast<int64_t>(kIdentifyBytes))) {
    return false;
  }
  bool allZero = true;
  for (size_t i = 0; i < kIdentifyBytes && allZero; ++i) allZero = block[i] == 0;
  if (allZero) return false;
  // Word 0 bit 15 (byte 1 bit 7) set: an ATAPI (packet) device.
  return (block[1] & 0x80) == 0;
}

uint64_t getIdentifyCapacityBytes(const uint16_t* identify) {
  if (identify == nullptr) return 0;
  uint64_t sectors;
  if (identify[kWordCommandSet2] & 0x0400) {
    sectors = uint64_t{identify[kWordSectors48]} | uint64_t{identify[kWordSectors48 + 1]} << 16 |
              uint64_t{identify[kWordSectors48 + 2]} << 32 | uint64_t{identify[kWordSectors48 + 3]} << 48;
  } else {
    uint32_t low = uint32_t{identify[kWordSectors28]} | uint32_t{identify[kWordSectors28 + 1]} << 16;
    sectors = static_cast<uint64_t>(static_cast<int64_t>(static_cast<int32_t>(low)));
  }
  const uint16_t info = identify[kWordSectorSizeInfo];
  const bool infoValid = (info & 0x8000) == 0 && (info & 0x4000) != 0;
  if (infoValid && (info & 0x1000) != 0) {
    // Long logical sectors. The high word is shifted as a signed 32-bit value
    // and the low word is added outside the product: the figure is only shown
    // as a capacity, and that is how it has always been shown.
    const int32_t high = static_cast<int32_t>(uint32_t{identify[kWordLogicalSizeHigh]} << 16);
    return static_cast<uint64_t>(static_cast<int64_t>(high)) * sectors + identify[kWordLogicalSizeLow];
  }
  return sectors * 512;
}

std::string readAtaString(const void* words, uint32_t wordCount) {
  std::string text;
  readAtaString(words, wordCount, text);
  return text;
}

void readAtaString(const void* words, uint32_t wordCount, std::string& out) {
  out.clear();
  if (words == nullptr) return;
  const auto* bytes = static_cast<const uint8_t*>(words);
  out.resize(size_t{wordCount} * 2);
  for (size_t i = 0; i < wordCount; ++i) {
    // Each word carries its first character in the high byte.
    out[2 * i] = static_cast<char>(bytes[2 * i + 1]);
    out[2 * i + 1] = static_cast<char>(bytes[2 * i]);
  }
}

std::string getVendorName(const std::string& model) {
  const size_t first = model.find_first_not_of(' ');
  const size_t blank = model.find(' ', first);
  const size_t last = model.find_last_not_of(' ');
  if (blank > last) {
    // One word: the vendor is known by a prefix at the very start.
    for (const auto& entry : vendorPrefixes()) {
      if (model.compare(0, entry.first.size(), entry.first) == 0) return entry.second;
    }
    return "Generic Vendor";
  }
  // Two words or more: the first word names the vendor. An empty or all-blank
  // model also lands here with no first word, and the substring fails with
  // the standard out-of-range error; nothing in this layer catches it.
  if (first > model.size()) throw std::out_of_range("invalid string position");
  std::string vendor = model.substr(first, blank - first);
  for (size_t i = 1; i < vendor.size(); ++i) {
    vendor[i] = static_cast<char>(std::tolower(static_cast<unsigned char>(vendor[i])));
  }
  return vendor;
}

std::string getAtaMinorVersionName(int32_t value) {
  const auto& names = minorVersionNames();
  auto it = names.find(value);
  return it == names.end() ? "UNRECOGNIZED_VERSION" : it->second;
}
