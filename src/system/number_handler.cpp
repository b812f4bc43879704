// Strict decimal conversion of test parameters, by QtCore's QString.
#include "system/number_handler.h"

#include <QString>

namespace {
constexpr int kDecimal = 10;
}  // namespace

int32_t stringToInt(const std::string& text, bool* ok) {
  return QString::fromStdString(text).toInt(ok, kDecimal);
}

uint32_t stringToUInt(const std::string& text, bool* ok) {
  return QString::fromStdString(text).toUInt(ok, kDecimal);
}
