// The code-page conversions of the non-Windows builds, the same whichever
// provider serves the rest of the seam. Only UTF-8 (65001) is known, and it is also the OEM code page (CP_OEMCP), as on a Windows set to
// use UTF-8 for the console; a bad sequence becomes U+FFFD unless the caller
// asked for an error, as Windows does from Vista on.
#include <string>

#include "win32/win32.h"

namespace {

constexpr char32_t kReplacement = 0xFFFD;

bool isHighSurrogate(char32_t unit) { return unit >= 0xD800 && unit <= 0xDBFF; }
bool isLowSurrogate(char32_t unit) { return unit >= 0xDC00 && unit <= 0xDFFF; }

void appendUtf8(char32_t point, std::string& out) {
  if (point < 0x80) {
    out.push_back(static_cast<char>(point));
  } else if (point < 0x800) {
    out.push_back(static_cast<char>(0xC0 | (point >> 6)));
    out.push_back(static_cast<char>(0x80 | (point & 0x3F)));
  } else if (point < 0x10000) {
    out.push_back(static_cast<char>(0xE0 | (point >> 12)));
    out.push_back(static_cast<char>(0x80 | ((point >> 6) & 0x3F)));
    out.push_back(static_cast<char>(0x80 | (point & 0x3F)));
  } else {
    out.push_back(static_cast<char>(0xF0 | (point >> 18)));
    out.push_back(static_cast<char>(0x80 | ((point >> 12) & 0x3F)));
    out.push_back(static_cast<char>(0x80 | ((point >> 6) & 0x3F)));
    out.push_back(static_cast<char>(0x80 | (point & 0x3F)));
  }
}

void appendUtf16(char32_t point, std::u16string& out) {
  if (point < 0x10000) {
    out.push_back(static_cast<char16_t>(point));
  } else {
    point -= 0x10000;
    out.push_back(static_cast<char16_t>(0xD800 | (point >> 10)));
    out.push_back(static_cast<char16_t>(0xDC00 | (point & 0x3FF)));
  }
}

// False at the first bad unit when `strict`.
bool encode(const WCHAR* wide, size_t count, bool strict, std::string& out) {
  for (size_t i = 0; i < count; ++i) {
    char32_t unit = static_cast<char16_t>(wide[i]);
    if (isHighSurrogate(unit) && i + 1 < count && isLowSurrogate(static_cast<char16_t>(wide[i + 1]))) {
      const char32_t low = static_cast<char16_t>(wide[++i]);
      appendUtf8(0x10000 + ((unit - 0xD800) << 10) + (low - 0xDC00), out);
      continue;
    }
    if (isHighSurrogate(unit) || isLowSurrogate(unit)) {
      if (strict) return false;
      unit = kReplacement;
    }
    appendUtf8(unit, out);
  }
  return true;
}

// Each maximal ill-formed subpart becomes one U+FFFD; false at the first one
// when `strict`.
bool decode(const unsigned char* bytes, size_t count, bool strict, std::u16string& out) {
  size_t i = 0;
  while (i < count) {
    const unsigned char lead = bytes[i];
    if (lead < 0x80) {
      out.push_back(lead);
      ++i;
      continue;
    }
    size_t length = 0;
    unsigned char low = 0x80;
    unsigned char high = 0xBF;  // range of the second byte
    if (lead >= 0xC2 && lead <= 0xDF) {
      length = 2;
    } else if (lead >= 0xE0 && lead <= 0xEF) {
      length = 3;
      if (lead == 0xE0) low = 0xA0;
      if (lead == 0xED) high = 0x9F;  // no surrogates
    } else if (lead >= 0xF0 && lead <= 0xF4) {
      length = 4;
      if (lead == 0xF0) low = 0x90;
      if (lead == 0xF4) high = 0x8F;  // nothing above U+10FFFF
    }
    size_t good = length == 0 ? 0 : 1;
    while (good != 0 && good < length && i + good < count) {
      const unsigned char next = bytes[i + good];
      const bool fits = good == 1 ? next >= low && next <= high : next >= 0x80 && next <= 0xBF;
      if (!fits) break;
      ++good;
    }
    if (length == 0 || good < length) {
      if (strict) return false;
      out.push_back(static_cast<char16_t>(kReplacement));
      i += good == 0 ? 1 : good;
      continue;
    }
    char32_t point = lead & (0xFF >> (length + 1));
    for (size_t k = 1; k < length; ++k) point = (point << 6) | (bytes[i + k] & 0x3F);
    appendUtf16(point, out);
    i += length;
  }
  return true;
}

int fail(DWORD error) {
  SetLastError(error);
  return 0;
}

}  // namespace

int WideCharToMultiByte(UINT codePage, DWORD flags, const WCHAR* wide, int wideCount, char* narrow, int narrowSize,
                        const char* defaultChar, BOOL* usedDefaultChar) {
  if ((codePage != CP_UTF8 && codePage != CP_OEMCP) || defaultChar != nullptr || usedDefaultChar != nullptr) {
    return fail(ERROR_INVALID_PARAMETER);
  }
  if ((flags & ~WC_ERR_INVALID_CHARS) != 0) return fail(ERROR_INVALID_FLAGS);
  if (wide == nullptr || wideCount == 0 || wideCount < -1 || narrowSize < 0 ||
      (narrow == nullptr && narrowSize != 0)) {
    return fail(ERROR_INVALID_PARAMETER);
  }
  size_t count = static_cast<size_t>(wideCount);
  if (wideCount == -1) {
    count = 0;
    while (wide[count] != 0) ++count;
    ++count;  // the NUL goes along
  }
  std::string out;
  if (!encode(wide, count, (flags & WC_ERR_INVALID_CHARS) != 0, out)) return fail(ERROR_NO_UNICODE_TRANSLATION);
  if (narrowSize == 0) return static_cast<int>(out.size());
  if (out.size() > static_cast<size_t>(narrowSize)) return fail(ERROR_INSUFFICIENT_BUFFER);
  out.copy(narrow, out.size());
  return static_cast<int>(out.size());
}

int MultiByteToWideChar(UINT codePage, DWORD flags, const char* narrow, int narrowCount, WCHAR* wide, int wideSize) {
  if (codePage != CP_UTF8 && codePage != CP_OEMCP) return fail(ERROR_INVALID_PARAMETER);
  if ((flags & ~MB_ERR_INVALID_CHARS) != 0) return fail(ERROR_INVALID_FLAGS);
  if (narrow == nullptr || narrowCount == 0 || narrowCount < -1 || wideSize < 0 ||
      (wide == nullptr && wideSize != 0)) {
    return fail(ERROR_INVALID_PARAMETER);
  }
  size_t count = static_cast<size_t>(narrowCount);
  if (narrowCount == -1) {
    count = 0;
    while (narrow[count] != '\0') ++count;
    ++count;
  }
  std::u16string out;
  if (!decode(reinterpret_cast<const unsigned char*>(narrow), count, (flags & MB_ERR_INVALID_CHARS) != 0, out)) {
    return fail(ERROR_NO_UNICODE_TRANSLATION);
  }
  if (wideSize == 0) return static_cast<int>(out.size());
  if (out.size() > static_cast<size_t>(wideSize)) return fail(ERROR_INSUFFICIENT_BUFFER);
  for (size_t i = 0; i < out.size(); ++i) wide[i] = static_cast<WCHAR>(out[i]);
  return static_cast<int>(out.size());
}
