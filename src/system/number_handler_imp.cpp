// Parsing by string stream, sizes for the user, and the random sequence.
#include "system/number_handler_imp.h"

#include <cstdlib>
#include <ctime>
#include <sstream>

namespace {

constexpr int kLastStep = 8;
const char* const kPrefixes[kLastStep + 1] = {"", " K", " M", " G", " T", " P", " E", " Z", " Y"};

constexpr uint64_t kLow15Bits = 0x7FFF;
constexpr uint64_t kLow7Bits = 0x7F;

// Extracts straight into *out, as the stream's own rule leaves it.
template <typename T>
bool parseWith(T* out, const std::string& text, BaseManipulator base, bool wholeText) {
  if (out == nullptr) return false;
  std::istringstream stream(text);
  if (base != nullptr) stream >> base;
  stream >> *out;
  if (stream.fail() || stream.bad()) return false;
  return !wholeText || stream.eof();
}

}  // namespace

bool NumberHandlerImp::parseDouble(double* out, const std::string& text, BaseManipulator base) {
  return parseWith(out, text, base, false);
}

bool NumberHandlerImp::parseInt64Strict(int64_t* out, const std::string& text, BaseManipulator base) {
  return parseWith(out, text, base, true);
}

bool NumberHandlerImp::parseUInt64(uint64_t* out, const std::string& text, BaseManipulator base) {
  return parseWith(out, text, base, false);
}

bool NumberHandlerImp::parseUInt32(uint32_t* out, const std::string& text, BaseManipulator base) {
  return parseWith(out, text, base, false);
}

bool NumberHandlerImp::parseInt64(int64_t* out, const std::string& text, BaseManipulator base) {
  return parseWith(out, text, base, false);
}

bool NumberHandlerImp::parseUInt64Again(uint64_t* out, const std::string& text, BaseManipulator base) {
  return parseUInt64(out, text, base);
}

std::string NumberHandlerImp::floatToString(float value, int64_t precision, bool fixed) {
  std::ostringstream stream;
  if (fixed) stream << std::fixed;
  stream.precision(static_cast<std::streamsize>(precision));
  stream << value;
  return stream.str();
}

std::string NumberHandlerImp::boolToString(bool value) { return value ? "true" : "false"; }

std::string NumberHandlerImp::int64ToString(int64_t value) { return std::to_string(value); }

std::string NumberHandlerImp::uint64ToString(uint64_t value) { return std::to_string(value); }

std::string NumberHandlerImp::uint64ToStringAgain(uint64_t value) { return uint64ToString(value); }

std::string NumberHandlerImp::formatSize(uint64_t value, std::string unit, bool binary) {
  return formatSizeOf(static_cast<double>(value), unit, binary);
}

std::string NumberHandlerImp::formatSizeOf(double value, const std::string& unit, bool binary) {
  const double base = binary ? 1024.0 : 1000.0;
  int step = 0;
  while (value > base - 1 && step < kLastStep) {
    value /= base;
    ++step;
  }
  std::string text = floatToString(static_cast<float>(value), 2, true);
  std::string shownUnit = unit;
  if (step == 0) {
    if (unit == "B") shownUnit = " byte";
    if (unit == "b") shownUnit = " bit";
  } else {
    text += kPrefixes[step];
  }
  // The plural follows the number, also behind a prefix: "1.50 KBs".
  if (value > 1.0) shownUnit += "s";
  return text + shownUnit;
}

std::string NumberHandlerImp::formatBytes(uint64_t value) { return formatSize(value, "B", true); }

void NumberHandlerImp::seed(uint32_t value) {
  std::srand(value);
  seeded = true;
}

uint64_t NumberHandlerImp::randomBelow(uint64_t limit) {
  if (!seeded) seed(static_cast<uint32_t>(std::time(nullptr)));
  // Five draws of 15 bits, the last cut to 7 and shifted in by four only: it
  // overlaps the fourth by three bits. That is how the sequence has always
  // been made, and a fixed seed repeats it.
  uint64_t x = static_cast<uint64_t>(std::rand()) & kLow15Bits;
  x = (x << 15) + (static_cast<uint64_t>(std::rand()) & kLow15Bits);
  x = (x << 15) + (static_cast<uint64_t>(std::rand()) & kLow15Bits);
  x = (x << 15) + (static_cast<uint64_t>(std::rand()) & kLow15Bits);
  x = (x << 4) + (static_cast<uint64_t>(std::rand()) & kLow7Bits);
  // A limit of 0 is the caller's fault; it gets 0 rather than a trap.
  return limit == 0 ? 0 : x % limit;
}

void NumberHandlerImp::updateRange(double value, double* minimum, double* maximum) {
  if (maximum != nullptr && value > *maximum) *maximum = value;
  if (minimum != nullptr && value < *minimum) *minimum = value;
}

namespace {
NumberHandler* gReplacement = nullptr;
}  // namespace

NumberHandler& getNumberHandler() {
  if (gReplacement != nullptr) return *gReplacement;
  static NumberHandlerImp handler;
  return handler;
}

void setNumberHandlerForTesting(NumberHandler* replacement) { gReplacement = replacement; }
