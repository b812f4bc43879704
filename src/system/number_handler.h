// The number service of the module: parsing, number-to-text, the sizes the
// user sees, and a coarse random sequence. One process-wide object, made on
// first use. Also the strict decimal conversions of test parameters.
#pragma once

#include <cstdint>
#include <ios>
#include <string>

// std::dec, std::hex and their kind.
using BaseManipulator = std::ios_base& (*)(std::ios_base&);

class NumberHandler {
 public:
  virtual ~NumberHandler() = default;

  // Each parse reads `text` through a string stream with `base` applied and
  // is true when the stream shows neither fail nor bad. A null out is false.
  virtual bool parseDouble(double* out, const std::string& text, BaseManipulator base) = 0;
  // As parseInt64, but the whole text must be read: "12x" fails here.
  virtual bool parseInt64Strict(int64_t* out, const std::string& text, BaseManipulator base) = 0;
  virtual bool parseUInt64(uint64_t* out, const std::string& text, BaseManipulator base) = 0;
  virtual bool parseUInt32(uint32_t* out, const std::string& text, BaseManipulator base) = 0;
  virtual bool parseInt64(int64_t* out, const std::string& text, BaseManipulator base) = 0;
  // The same as parseUInt64, in a second place of the table.
  virtual bool parseUInt64Again(uint64_t* out, const std::string& text, BaseManipulator base) = 0;
  // `precision` digits, in fixed notation when `fixed`.
  virtual std::string floatToString(float value, int64_t precision, bool fixed) = 0;
  // "true" or "false".
  virtual std::string boolToString(bool value) = 0;
  virtual std::string int64ToString(int64_t value) = 0;
  virtual std::string uint64ToString(uint64_t value) = 0;
  // The same as uint64ToString, in a second place of the table.
  virtual std::string uint64ToStringAgain(uint64_t value) = 0;
  // A size for the user: two decimals, a prefix from K to Y by 1024 or 1000,
  // and a plural "s" (see NumberHandlerImp).
  virtual std::string formatSize(uint64_t value, std::string unit, bool binary) = 0;
  // formatSize(value, "B", true).
  virtual std::string formatBytes(uint64_t value) = 0;
  // Starts the random sequence; a fixed seed repeats it.
  virtual void seed(uint32_t value) = 0;
  // A value below `limit`, from the runtime's rand(); seeded with the time on
  // first use.
  virtual uint64_t randomBelow(uint64_t limit) = 0;
  // Widens [*minimum, *maximum] to take in `value`.
  virtual void updateRange(double value, double* minimum, double* maximum) = 0;
};

// The process-wide number service, made on first use.
NumberHandler& getNumberHandler();

// Puts another service behind getNumberHandler() (null restores the module's
// own). For tests that fix the random sequence the seek tests draw from.
void setNumberHandlerForTesting(NumberHandler* replacement);

// Strict decimal conversion of a test parameter through the text library:
// *ok (when not null) tells whether all of `text` was a number in range.
int32_t stringToInt(const std::string& text, bool* ok);
uint32_t stringToUInt(const std::string& text, bool* ok);
