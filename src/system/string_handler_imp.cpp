// Byte-level string operations. toupper and tolower act on bytes in the
// runtime's default locale; the host's locale is never touched.
#include "system/string_handler_imp.h"

#include <cctype>
#include <cstring>
#include <sstream>

namespace {
constexpr char kBlank = ' ';
constexpr unsigned char kFirstPrintable = 32;
constexpr unsigned char kLastPrintable = 126;
}  // namespace

bool StringHandlerImp::isNumber(const char* text, int64_t maxLength) {
  if (text == nullptr) return false;
  for (int64_t i = 0; i < maxLength && text[i] != '\0'; ++i) {
    if (!std::isdigit(static_cast<unsigned char>(text[i]))) return false;
  }
  return true;
}

void StringHandlerImp::removeBlanks(const std::string& in, std::string& out) {
  for (char c : in) {
    if (c != kBlank) out.push_back(c);
  }
}

void StringHandlerImp::keepPrintable(const std::string& in, std::string& out) {
  for (char c : in) {
    const auto byte = static_cast<unsigned char>(c);
    if (byte >= kFirstPrintable && byte <= kLastPrintable) out.push_back(c);
  }
}

void StringHandlerImp::trim(std::string& text) {
  const size_t first = text.find_first_not_of(kBlank);
  if (first == std::string::npos) {
    text.clear();
    return;
  }
  const size_t last = text.find_last_not_of(kBlank);
  text = text.substr(first, last - first + 1);
}

bool StringHandlerImp::isUpperCase(std::string text) {
  if (text.empty()) return false;
  std::string upper = text;
  toUpperCase(upper);
  return upper == text;
}

void StringHandlerImp::toUpperCase(std::string& text) {
  for (char& c : text) c = static_cast<char>(std::toupper(static_cast<unsigned char>(c)));
}

void StringHandlerImp::toLowerCase(std::string& text) {
  for (char& c : text) c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
}

bool StringHandlerImp::startsWith(const std::string& text, const std::string& prefix) {
  return text.compare(0, prefix.size(), prefix) == 0;
}

std::vector<std::string> StringHandlerImp::split(const std::string& text, char delimiter) {
  std::vector<std::string> pieces;
  std::istringstream stream(text);
  std::string piece;
  while (std::getline(stream, piece, delimiter)) pieces.push_back(piece);
  return pieces;
}

int StringHandlerImp::compareN(const char* first, const char* second, size_t count) {
  return std::strncmp(first != nullptr ? first : "", second != nullptr ? second : "", count);
}

size_t StringHandlerImp::lengthN(const char* text, size_t maxLength) {
  if (text == nullptr) return 0;
  size_t length = 0;
  while (length < maxLength && text[length] != '\0') ++length;
  return length;
}

size_t StringHandlerImp::wideLengthN(const WCHAR* text, size_t maxLength) {
  if (text == nullptr) return 0;
  size_t length = 0;
  while (length < maxLength && text[length] != 0) ++length;
  return length;
}

std::string StringHandlerImp::fromBytes(const uint8_t* bytes, size_t count) {
  if (bytes == nullptr) return std::string();
  return std::string(reinterpret_cast<const char*>(bytes), count);
}

std::vector<std::string> StringHandlerImp::tokenize(const std::string& text, const std::string& delimiters) {
  // What strtok finds on a private copy: both strings end at their first NUL,
  // and runs of delimiters give no empty pieces. No static state is kept.
  const std::string copy = text.c_str();
  const std::string separators = delimiters.c_str();
  std::vector<std::string> tokens;
  size_t start = copy.find_first_not_of(separators);
  while (start != std::string::npos) {
    const size_t end = copy.find_first_of(separators, start);
    tokens.push_back(copy.substr(start, end == std::string::npos ? std::string::npos : end - start));
    start = end == std::string::npos ? end : copy.find_first_not_of(separators, end);
  }
  return tokens;
}
