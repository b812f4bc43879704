// The module's number service.
#pragma once

#include "system/number_handler.h"

class NumberHandlerImp : public NumberHandler {
 public:
  bool parseDouble(double* out, const std::string& text, BaseManipulator base) override;
  bool parseInt64Strict(int64_t* out, const std::string& text, BaseManipulator base) override;
  bool parseUInt64(uint64_t* out, const std::string& text, BaseManipulator base) override;
  bool parseUInt32(uint32_t* out, const std::string& text, BaseManipulator base) override;
  bool parseInt64(int64_t* out, const std::string& text, BaseManipulator base) override;
  bool parseUInt64Again(uint64_t* out, const std::string& text, BaseManipulator base) override;
  std::string floatToString(float value, int64_t precision, bool fixed) override;
  std::string boolToString(bool value) override;
  std::string int64ToString(int64_t value) override;
  std::string uint64ToString(uint64_t value) override;
  std::string uint64ToStringAgain(uint64_t value) override;
  std::string formatSize(uint64_t value, std::string unit, bool binary) override;
  std::string formatBytes(uint64_t value) override;
  void seed(uint32_t value) override;
  uint64_t randomBelow(uint64_t limit) override;
  void updateRange(double value, double* minimum, double* maximum) override;

  // formatSize on a value of any size; sizes past the 64-bit range reach the
  // last prefix only this way.
  std::string formatSizeOf(double value, const std::string& unit, bool binary);

 private:
  bool seeded = false;
};
