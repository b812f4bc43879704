// The shared patterns, built when the library is loaded.
#include "system/key_value_patterns.h"

namespace {

// As the format writes them, in its order.
const char* const kSources[kKeyValuePatternCount] = {
    "^[01]$",
    "^[\\d]+$",
    "^[\\-\\+]?((\\d+\\.\\d*)|(\\d*\\.\\d+))$",
    "(\\[\\s*\\w+\\[)|(\\[\\[)",
    "(\\]\\s*\\w+\\])|(\\]\\])",
    "(=\\s*\\w+=)|(==)",
    "((=\\w+(\\[|\\]))|((\\[|\\]))\\w+=)|(\\[=)|(\\]=)|(=\\[)|(=\\])",
    "(\\[\\]{0}[\\w]+)|(\\]{0}[\\w]+\\[+)",
    "(\\[{0}[\\w]+\\]+)|(\\]\\[{0}[\\w]+)",
    "(\\]\\w+\\[)|(\\]\\[)",
    "\\[\\s*\\]+",
    "^\\s*=\\s*[\\w]+",
    "^[\\w]+\\s*=\\s*$",
    "^\\s*$",
    "\\[([\\w\\s*]+)\\]",
    "([\\w]+)\\s*=\\s*(\\S+)",
    "[/|\\\\]",
};

// Characters beyond the Basic Multilingual Plane, as a class range: to the
// older syntax each is a pair of surrogates, neither a word character nor a
// digit.
const char kBeyondPlaneZero[] = "\\x{10000}-\\x{10FFFF}";
// MONGOLIAN VOWEL SEPARATOR: a space to PCRE2's \s, not to the older syntax's.
const char kVowelSeparator[] = "\\x{180E}";

// The item `body` (an escape or a class), matched only where none of
// `excluded` (class ranges) stands.
std::string guarded(const std::string& excluded, const std::string& body) {
  return excluded.empty() ? body : "(?:(?![" + excluded + "])" + body + ")";
}

QRegularExpression build(size_t index) {
  return QRegularExpression(QString::fromStdString(keyValuePatternSyntax(kSources[index])),
                            QRegularExpression::UseUnicodePropertiesOption);
}

const QRegularExpression kPatterns[kKeyValuePatternCount] = {
    build(0),  build(1),  build(2),  build(3),  build(4),  build(5),  build(6),  build(7),  build(8),
    build(9),  build(10), build(11), build(12), build(13), build(14), build(15), build(16),
};

}  // namespace

std::string keyValuePatternSyntax(const std::string& source) {
  std::string out;
  size_t i = 0;
  while (i < source.size()) {
    const char c = source[i];
    if (c == '\\' && i + 1 < source.size()) {
      const char escaped = source[i + 1];
      if (escaped == 'w') {
        out += guarded(kBeyondPlaneZero, "[\\w\\p{M}]");
      } else if (escaped == 'd') {
        out += guarded(kBeyondPlaneZero, "\\d");
      } else if (escaped == 's') {
        out += guarded(kVowelSeparator, "\\s");
      } else if (escaped == 'S') {
        out += std::string("[\\S") + kVowelSeparator + "]";
      } else {
        out += source.substr(i, 2);
      }
      i += 2;
      continue;
    }
    if (c == '[') {
      // A character class runs to the first ']' that is not escaped.
      size_t end = i + 1;
      bool word = false;
      bool digit = false;
      bool space = false;
      while (end < source.size() && source[end] != ']') {
        if (source[end] == '\\' && end + 1 < source.size()) {
          word = word || source[end + 1] == 'w';
          digit = digit || source[end + 1] == 'd';
          space = space || source[end + 1] == 's';
          end += 2;
        } else {
          ++end;
        }
      }
      if (end >= source.size()) {  // no end: copied as it stands
        out += source.substr(i);
        break;
      }
      std::string body = source.substr(i + 1, end - i - 1);
      for (size_t at = body.find("\\w"); at != std::string::npos; at = body.find("\\w", at + 7)) {
        body.replace(at, 2, "\\w\\p{M}");
      }
      std::string excluded;
      if (word || digit) excluded += kBeyondPlaneZero;
      if (space) excluded += kVowelSeparator;
      out += guarded(excluded, "[" + body + "]");
      i = end + 1;
      continue;
    }
    if (c == '$') {
      out += "\\z";
      ++i;
      continue;
    }
    out += c;
    ++i;
  }
  return out;
}

const QRegularExpression& keyValuePattern(size_t index) {
  return kPatterns[index < kKeyValuePatternCount ? index : kKeyValuePatternCount - 1];
}

const char* keyValuePatternSource(size_t index) {
  return kSources[index < kKeyValuePatternCount ? index : kKeyValuePatternCount - 1];
}
