// The platform-free parts of the eMMC calls: the choice of sample indices and
// the decoding of the storage descriptor's strings.
#include "protocols/emmc_utils.h"

#include <cstring>
#include <random>

void pickIndices(int32_t maxIndex, uint32_t count, std::set<int32_t>& chosen) {
  // Seeded afresh on every call, so that the same volume gives the same choice.
  std::mt19937 generator;  // default seed 5489
  if (static_cast<int64_t>(count) >= maxIndex) {
    // Enough to take all: 0 to maxIndex - 1, and maxIndex itself stays out.
    for (int32_t index = 0; index < maxIndex; ++index) chosen.insert(index);
    return;
  }
  // Here maxIndex > count >= 0, so maxIndex + 1 distinct values exist and the
  // loop ends.
  const double range = static_cast<double>(maxIndex) + 1.0;
  while (chosen.size() < count) {
    const double r = static_cast<double>(generator()) / 4294967296.0 * range;
    const int32_t index = r >= static_cast<double>(maxIndex) ? maxIndex : static_cast<int32_t>(r);
    chosen.insert(index);
  }
}

namespace {

bool isHexDigit(uint8_t c) { return (c >= '0' && c <= '9') || (c >= 'a' && c <= 'f'); }

uint8_t hexValue(uint8_t c) { return static_cast<uint8_t>(c <= '9' ? c - '0' : c - 'a' + 10); }

uint8_t lowerCase(uint8_t c) { return (c >= 'A' && c <= 'Z') ? static_cast<uint8_t>(c - 'A' + 'a') : c; }

// A control character ends a string; bytes above 127 do not.
bool endsString(uint8_t c) { return c < 0x20 || c == 0x7F; }

void copyPrintable(const uint8_t* from, size_t available, char* destination, size_t destinationSize) {
  size_t length = 0;
  while (length < available && length + 1 < destinationSize && !endsString(from[length])) {
    destination[length] = static_cast<char>(from[length]);
    ++length;
  }
  destination[length] = '\0';
}

bool isSpace(char c) { return c == ' ' || c == '\t' || c == '\n' || c == '\v' || c == '\f' || c == '\r'; }

}  // namespace

void decodeDeviceString(uint8_t* descriptor, size_t size, uint32_t offset, char* destination,
                        size_t destinationSize) {
  if (destination == nullptr || destinationSize == 0) return;
  destination[0] = '\0';
  if (descriptor == nullptr || offset == 0 || offset >= size) return;

  // Some drivers report a serial number as hexadecimal text. This stage steps
  // through the record two bytes at a time from the record's first byte (not
  // from `offset`) while the string at `offset` goes on, lower-casing in place
  // each byte it tests. It is kept as built: the first byte is the low byte of
  // Version, never a hexadecimal digit, so it gives up at once and writes
  // nothing.
  std::string decoded;
  bool gaveUp = false;
  for (size_t step = 0; offset + step < size && descriptor[offset + step] != 0; step += 2) {
    if (step + 1 >= size) {
      gaveUp = true;
      break;
    }
    descriptor[step] = lowerCase(descriptor[step]);
    if (!isHexDigit(descriptor[step])) {
      gaveUp = true;
      break;
    }
    descriptor[step + 1] = lowerCase(descriptor[step + 1]);
    if (!isHexDigit(descriptor[step + 1])) {
      gaveUp = true;
      break;
    }
    decoded.push_back(static_cast<char>(hexValue(descriptor[step]) << 4 | hexValue(descriptor[step + 1])));
  }
  if (!gaveUp && !decoded.empty()) {
    copyPrintable(reinterpret_cast<const uint8_t*>(decoded.data()), decoded.size(), destination, destinationSize);
  } else {
    // The characters from `offset` on, as they stand, up to the first control
    // character or the NUL.
    copyPrintable(descriptor + offset, size - offset, destination, destinationSize);
  }
  trimDeviceString(destination);
}

void trimDeviceString(char* text) {
  if (text == nullptr) return;
  const size_t length = std::strlen(text);
  for (size_t i = 0; i < length; ++i) {
    if (static_cast<uint8_t>(text[i]) > 0x7F) return;  // not 7-bit text: left as it is
  }
  size_t first = 0;
  while (first < length && isSpace(text[first])) ++first;
  size_t end = length;
  while (end > first && isSpace(text[end - 1])) --end;
  std::memmove(text, text + first, end - first);
  text[end - first] = '\0';
}
