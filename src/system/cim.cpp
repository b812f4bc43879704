// The platform-free part of the management-query service: argument checks,
// the WQL text of a query, and the release of a result.
#include "system/cim.h"

#include <cstring>

namespace {

// Length of a text, counting at most `limit` characters.
size_t boundedLength(const char* text, size_t limit) {
  const void* end = std::memchr(text, '\0', limit);
  return end == nullptr ? limit : static_cast<size_t>(static_cast<const char*>(end) - text);
}

// Fixed text of a query: "SELECT " and " FROM " and the NUL; " WHERE " more
// with a clause. Each ", " between fields adds 2.
constexpr size_t kFixedQueryLength = 14;
constexpr size_t kFixedWhereQueryLength = 21;
constexpr size_t kSeparatorLength = 2;

}  // namespace

void Cim::freeResult(CimResult** result) {
  if (result == nullptr || *result == nullptr) return;
  delete *result;
  *result = nullptr;
}

uint32_t checkCimArguments(char** fields, const char* className, int32_t fieldCount, bool needsWhere,
                           const char* whereClause) {
  if (fields == nullptr) return kCimNullField;
  if (className == nullptr) return kCimNullClass;
  if (fieldCount < 1) return kCimBadFieldCount;
  for (int32_t i = 0; i < fieldCount; ++i) {
    if (fields[i] == nullptr) return kCimNullField;
  }
  if (needsWhere && whereClause == nullptr) return kCimNullWhere;
  return kCimSuccess;
}

std::string buildCimQueryText(char** fields, int32_t fieldCount, const char* className, const char* whereClause) {
  // Measure first, so that the text is built in one buffer.
  size_t measured = whereClause != nullptr ? kFixedWhereQueryLength : kFixedQueryLength;
  for (int32_t i = 0; i < fieldCount; ++i) {
    measured += boundedLength(fields[i], kCimMaxNameLength);
    if (i > 0) measured += kSeparatorLength;
  }
  measured += boundedLength(className, kCimMaxNameLength);
  if (whereClause != nullptr) measured += boundedLength(whereClause, kCimMaxWhereLength);

  std::string text;
  text.reserve(measured);
  text += "SELECT ";
  for (int32_t i = 0; i < fieldCount; ++i) {
    if (i > 0) text += ", ";
    text.append(fields[i], boundedLength(fields[i], kCimMaxNameLength));
  }
  text += " FROM ";
  text.append(className, boundedLength(className, kCimMaxNameLength));
  if (whereClause != nullptr) {
    text += " WHERE ";
    text.append(whereClause, boundedLength(whereClause, kCimMaxWhereLength));
  }
  return text;
}
