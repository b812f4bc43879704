// Both conversions go through the platform's code-page calls with UTF-8
// (65001): first the size, then the text.
#include "system/wide_text.h"

std::string wideToUtf8(const WCHAR* text) {
  if (text == nullptr) return std::string();
  const int needed = ::WideCharToMultiByte(CP_UTF8, 0, text, -1, nullptr, 0, nullptr, nullptr);
  if (needed <= 0) return std::string();
  std::string out(static_cast<size_t>(needed), '\0');
  if (::WideCharToMultiByte(CP_UTF8, 0, text, -1, &out[0], needed, nullptr, nullptr) != needed) {
    return std::string();
  }
  out.resize(static_cast<size_t>(needed) - 1);  // the NUL came along
  return out;
}

WideString utf8ToWide(const char* text) {
  if (text == nullptr) return WideString();
  const int needed = ::MultiByteToWideChar(CP_UTF8, 0, text, -1, nullptr, 0);
  if (needed <= 0) return WideString();
  WideString out(static_cast<size_t>(needed), WCHAR{0});
  if (::MultiByteToWideChar(CP_UTF8, 0, text, -1, &out[0], needed) != needed) return WideString();
  out.resize(static_cast<size_t>(needed) - 1);
  return out;
}
