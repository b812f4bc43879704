// Wide text to UTF-8 and back through the platform's code-page calls.
#include "system/wide_text.h"

#include <gtest/gtest.h>

namespace {

TEST(WideText, WideToUtf8OfAccentedModel) {
  const WCHAR text[] = {'D', 0xE9, 'j', 0x20AC, 0};
  EXPECT_EQ(wideToUtf8(text), "D\xC3\xA9j\xE2\x82\xAC");
}

TEST(WideText, Utf8ToWideOfAccentedModel) {
  const WideString wide = utf8ToWide("D\xC3\xA9j\xE2\x82\xAC");
  ASSERT_EQ(wide.size(), 4u);
  EXPECT_EQ(wide[1], 0xE9);
  EXPECT_EQ(wide[3], 0x20AC);
}

TEST(WideText, RoundTripKeepsSupplementaryCharacters) {
  const std::string narrow = "\xF0\x9F\x98\x80 disk";
  EXPECT_EQ(wideToUtf8(utf8ToWide(narrow.c_str()).c_str()), narrow);
}

TEST(WideText, NullAndEmptyGiveEmpty) {
  EXPECT_EQ(wideToUtf8(nullptr), "");
  EXPECT_TRUE(utf8ToWide(nullptr).empty());
  const WCHAR empty[] = {0};
  EXPECT_EQ(wideToUtf8(empty), "");
  EXPECT_TRUE(utf8ToWide("").empty());
}

TEST(WideText, IllFormedUtf8BecomesReplacementCharacter) {
  const WideString wide = utf8ToWide("a\xFF" "b");
  ASSERT_EQ(wide.size(), 3u);
  EXPECT_EQ(wide[1], 0xFFFD);
}

}  // namespace
