// The seam's UTF-8 conversions, checked against hand-encoded
// bytes of the Unicode standard's examples.
#include <gtest/gtest.h>

#include <string>

#include "win32/win32.h"

namespace {

std::string toUtf8(const std::u16string& wide, DWORD flags = 0) {
  const int needed = WideCharToMultiByte(CP_UTF8, flags, wide.data(), static_cast<int>(wide.size()), nullptr, 0,
                                         nullptr, nullptr);
  if (needed == 0) return "<failed>";
  std::string out(static_cast<size_t>(needed), '\0');
  EXPECT_EQ(WideCharToMultiByte(CP_UTF8, flags, wide.data(), static_cast<int>(wide.size()), &out[0], needed,
                                nullptr, nullptr),
            needed);
  return out;
}

std::u16string toWide(const std::string& narrow, DWORD flags = 0) {
  const int needed = MultiByteToWideChar(CP_UTF8, flags, narrow.data(), static_cast<int>(narrow.size()), nullptr, 0);
  if (needed == 0) return u"<failed>";
  std::u16string out(static_cast<size_t>(needed), u'\0');
  EXPECT_EQ(MultiByteToWideChar(CP_UTF8, flags, narrow.data(), static_cast<int>(narrow.size()), &out[0], needed),
            needed);
  return out;
}

TEST(CodePages, EncodesOneTwoThreeAndFourByteCharacters) {
  EXPECT_EQ(toUtf8(u"A\u00E9\u20AC\U0001F600"), "A\xC3\xA9\xE2\x82\xAC\xF0\x9F\x98\x80");
}

TEST(CodePages, DecodesOneTwoThreeAndFourByteCharacters) {
  EXPECT_EQ(toWide("A\xC3\xA9\xE2\x82\xAC\xF0\x9F\x98\x80"), u"A\u00E9\u20AC\U0001F600");
}

TEST(CodePages, LoneSurrogateBecomesReplacementCharacter) {
  std::u16string lone = u"a";
  lone.push_back(static_cast<char16_t>(0xD800));
  lone.push_back(u'b');
  EXPECT_EQ(toUtf8(lone), "a\xEF\xBF\xBD" "b");
}

TEST(CodePages, LoneSurrogateFailsWhenErrorsAreAskedFor) {
  std::u16string lone(1, static_cast<char16_t>(0xDC00));
  SetLastError(0);
  EXPECT_EQ(WideCharToMultiByte(CP_UTF8, WC_ERR_INVALID_CHARS, lone.data(), 1, nullptr, 0, nullptr, nullptr), 0);
  EXPECT_EQ(GetLastError(), ERROR_NO_UNICODE_TRANSLATION);
}

TEST(CodePages, IllFormedBytesBecomeOneReplacementEach) {
  // A stray continuation byte, a truncated three-byte sequence, an overlong
  // form and an encoded surrogate.
  EXPECT_EQ(toWide("\x80" "a"), u"\uFFFDa");
  EXPECT_EQ(toWide("\xE2\x82" "a"), u"\uFFFDa");
  EXPECT_EQ(toWide("\xC0\xAF"), u"\uFFFD\uFFFD");
  EXPECT_EQ(toWide("\xED\xA0\x80"), u"\uFFFD\uFFFD\uFFFD");
}

TEST(CodePages, IllFormedBytesFailWhenErrorsAreAskedFor) {
  SetLastError(0);
  EXPECT_EQ(MultiByteToWideChar(CP_UTF8, MB_ERR_INVALID_CHARS, "\xFF", 1, nullptr, 0), 0);
  EXPECT_EQ(GetLastError(), ERROR_NO_UNICODE_TRANSLATION);
}

TEST(CodePages, CountOfMinusOneTakesTheNulAlong) {
  char out[8] = {'x', 'x', 'x', 'x', 'x', 'x', 'x', 'x'};
  EXPECT_EQ(WideCharToMultiByte(CP_UTF8, 0, u"ab", -1, out, sizeof(out), nullptr, nullptr), 3);
  EXPECT_STREQ(out, "ab");
  WCHAR wide[4] = {1, 1, 1, 1};
  EXPECT_EQ(MultiByteToWideChar(CP_UTF8, 0, "ab", -1, wide, 4), 3);
  EXPECT_EQ(wide[2], 0);
}

TEST(CodePages, TooSmallBufferFailsWithInsufficientBuffer) {
  char out[2];
  SetLastError(0);
  EXPECT_EQ(WideCharToMultiByte(CP_UTF8, 0, u"abc", 3, out, 2, nullptr, nullptr), 0);
  EXPECT_EQ(GetLastError(), ERROR_INSUFFICIENT_BUFFER);
}

TEST(CodePages, BadArgumentsFailWithInvalidParameter) {
  char out[4];
  SetLastError(0);
  EXPECT_EQ(WideCharToMultiByte(1252, 0, u"a", 1, out, 4, nullptr, nullptr), 0);
  EXPECT_EQ(GetLastError(), ERROR_INVALID_PARAMETER);
  EXPECT_EQ(WideCharToMultiByte(CP_UTF8, 0, nullptr, -1, out, 4, nullptr, nullptr), 0);
  EXPECT_EQ(MultiByteToWideChar(CP_UTF8, 0, "a", 0, nullptr, 0), 0);
  EXPECT_EQ(GetLastError(), ERROR_INVALID_PARAMETER);
  EXPECT_EQ(MultiByteToWideChar(CP_UTF8, 0x01, "a", 1, nullptr, 0), 0);
  EXPECT_EQ(GetLastError(), ERROR_INVALID_FLAGS);
}

}  // namespace
