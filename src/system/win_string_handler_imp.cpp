// Bounded copies, appends, formats and the "C"-locale conversions between
// wide and narrow text, and the process-wide string service.
#include "system/win_string_handler_imp.h"

#include <cstdarg>
#include <cstring>
#include <vector>

namespace {

// The last time _localtime64_s accepts: 3000-12-31 23:59:59 UTC.
constexpr int64_t kLastLocalTime = 32535244799;
// In the "C" locale a narrow character is one byte, and only wide
// characters up to 0xFF have a narrow form.
constexpr uint32_t kLastNarrowCharacter = 0xFF;

size_t boundedLength(const char* text, size_t count) {
  size_t length = 0;
  while (length < count && text[length] != '\0') ++length;
  return length;
}

}  // namespace

int WinStringHandlerImp::formatInto(char* buffer, size_t size, const char* format, ...) {
  if (buffer == nullptr || size == 0) return -1;
  if (format == nullptr) {
    buffer[0] = '\0';
    return -1;
  }
  va_list arguments;
  va_start(arguments, format);
  const int written = std::vsnprintf(buffer, size, format, arguments);
  va_end(arguments);
  if (written < 0 || static_cast<size_t>(written) >= size) {
    buffer[0] = '\0';
    return -1;
  }
  return written;
}

int WinStringHandlerImp::copyN(char* to, size_t size, const char* from, size_t count) {
  if (to == nullptr || size == 0) return kStringInvalidArgument;
  if (from == nullptr) {
    to[0] = '\0';
    return kStringInvalidArgument;
  }
  size_t length = boundedLength(from, count);
  int result = kStringOk;
  if (length >= size) {
    if (count != kTruncate) {
      to[0] = '\0';
      return kStringOutOfRange;
    }
    length = size - 1;
    result = kStringTruncated;
  }
  std::memmove(to, from, length);
  to[length] = '\0';
  return result;
}

int WinStringHandlerImp::appendN(char* to, size_t size, const char* from, size_t count) {
  if (to == nullptr || size == 0) return kStringInvalidArgument;
  if (from == nullptr && count != 0) {
    to[0] = '\0';
    return kStringInvalidArgument;
  }
  const size_t existing = boundedLength(to, size);
  if (existing == size) {  // the destination is not terminated inside its size
    to[0] = '\0';
    return kStringInvalidArgument;
  }
  size_t length = from == nullptr ? 0 : boundedLength(from, count);
  int result = kStringOk;
  if (existing + length >= size) {
    if (count != kTruncate) {
      to[0] = '\0';
      return kStringOutOfRange;
    }
    length = size - 1 - existing;
    result = kStringTruncated;
  }
  std::memmove(to + existing, from, length);
  to[existing + length] = '\0';
  return result;
}

int WinStringHandlerImp::wideToNarrow(size_t* done, char* to, size_t size, const WCHAR* from, size_t count) {
  if (done != nullptr) *done = 0;
  if ((to == nullptr && size != 0) || (to != nullptr && size == 0)) return kStringInvalidArgument;
  if (from == nullptr) {
    if (to != nullptr) to[0] = '\0';
    return kStringInvalidArgument;
  }
  size_t length = 0;
  while (length < count && from[length] != 0) {
    if (static_cast<uint32_t>(from[length]) > kLastNarrowCharacter) {
      if (to != nullptr) to[0] = '\0';
      return kStringIllegalSequence;
    }
    ++length;
  }
  if (to == nullptr) {  // size query
    if (done != nullptr) *done = length + 1;
    return kStringOk;
  }
  int result = kStringOk;
  if (length + 1 > size) {
    if (count != kTruncate) {
      to[0] = '\0';
      return kStringOutOfRange;
    }
    length = size - 1;
    result = kStringTruncated;
  }
  for (size_t i = 0; i < length; ++i) to[i] = static_cast<char>(static_cast<uint8_t>(from[i]));
  to[length] = '\0';
  if (done != nullptr) *done = length + 1;
  return result;
}

int WinStringHandlerImp::narrowToWide(size_t* done, WCHAR* to, size_t size, const char* from, size_t count) {
  if (done != nullptr) *done = 0;
  if ((to == nullptr && size != 0) || (to != nullptr && size == 0)) return kStringInvalidArgument;
  if (from == nullptr) {
    if (to != nullptr) to[0] = 0;
    return kStringInvalidArgument;
  }
  size_t length = boundedLength(from, count);
  if (to == nullptr) {  // size query
    if (done != nullptr) *done = length + 1;
    return kStringOk;
  }
  int result = kStringOk;
  if (length + 1 > size) {
    if (count != kTruncate) {
      to[0] = 0;
      return kStringOutOfRange;
    }
    length = size - 1;
    result = kStringTruncated;
  }
  for (size_t i = 0; i < length; ++i) to[i] = static_cast<WCHAR>(static_cast<uint8_t>(from[i]));
  to[length] = 0;
  if (done != nullptr) *done = length + 1;
  return result;
}

int WinStringHandlerImp::localTime(std::tm* out, int64_t time) {
  if (out == nullptr) return kStringInvalidArgument;
  if (time < 0 || time > kLastLocalTime) {
    std::tm invalid{};
    invalid.tm_sec = invalid.tm_min = invalid.tm_hour = -1;
    invalid.tm_mday = invalid.tm_mon = invalid.tm_year = -1;
    invalid.tm_wday = invalid.tm_yday = invalid.tm_isdst = -1;
    *out = invalid;
    return kStringInvalidArgument;
  }
  const std::time_t seconds = static_cast<std::time_t>(time);
  // The module starts no thread; the runtime's shared result is copied at once.
  const std::tm* local = std::localtime(&seconds);
  if (local == nullptr) return kStringInvalidArgument;
  *out = *local;
  return kStringOk;
}

int WinStringHandlerImp::formatN(char* buffer, size_t size, const char* format, ...) {
  if (format == nullptr || (buffer == nullptr && size != 0)) return -1;
  va_list arguments;
  va_start(arguments, format);
  va_list measure;
  va_copy(measure, arguments);
  const int length = std::vsnprintf(nullptr, 0, format, measure);
  va_end(measure);
  if (length < 0) {
    va_end(arguments);
    return -1;
  }
  std::vector<char> text(static_cast<size_t>(length) + 1);
  std::vsnprintf(text.data(), text.size(), format, arguments);
  va_end(arguments);
  const size_t total = static_cast<size_t>(length);
  if (total < size) {
    std::memcpy(buffer, text.data(), total + 1);
    return length;
  }
  // The text fills the buffer or is cut: no NUL is written.
  if (size != 0) std::memcpy(buffer, text.data(), size);
  return total == size ? length : -1;
}

int WinStringHandlerImp::printToFile(FILE* file, const char* format, ...) {
  if (file == nullptr || format == nullptr) return -1;
  va_list arguments;
  va_start(arguments, format);
  const int written = std::vfprintf(file, format, arguments);
  va_end(arguments);
  return written;
}

StringHandler& getStringHandler() {
  static WinStringHandlerImp handler;
  return handler;
}
