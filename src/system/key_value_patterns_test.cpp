// The shared patterns are built and valid, and match as the format means.
#include "system/key_value_patterns.h"

#include <gtest/gtest.h>

namespace {

TEST(KeyValuePatterns, EachOfTheSeventeenIsValid) {
  for (size_t i = 0; i < kKeyValuePatternCount; ++i) {
    const QRegularExpression& pattern = keyValuePattern(i);
    EXPECT_TRUE(pattern.isValid()) << "pattern " << i << ": " << pattern.errorString().toStdString();
    EXPECT_FALSE(pattern.pattern().isEmpty()) << "pattern " << i;
    // Case-sensitive; Unicode properties on, so that \w, \d and \s mean what
    // they mean in the syntax the format is written in.
    EXPECT_EQ(pattern.patternOptions(), QRegularExpression::UseUnicodePropertiesOption) << "pattern " << i;
  }
}

TEST(KeyValuePatterns, TheSeventeenAreDistinct) {
  for (size_t i = 0; i < kKeyValuePatternCount; ++i) {
    for (size_t j = i + 1; j < kKeyValuePatternCount; ++j) {
      EXPECT_NE(keyValuePattern(i).pattern(), keyValuePattern(j).pattern()) << i << " " << j;
    }
  }
}

TEST(KeyValuePatterns, PatternsMatchTheirKindOfText) {
  EXPECT_TRUE(keyValuePattern(0).match("1").hasMatch());
  EXPECT_FALSE(keyValuePattern(0).match("2").hasMatch());
  EXPECT_TRUE(keyValuePattern(1).match("12345").hasMatch());
  EXPECT_TRUE(keyValuePattern(2).match("-1.5").hasMatch());
  EXPECT_TRUE(keyValuePattern(13).match("   ").hasMatch());
  const QRegularExpressionMatch section = keyValuePattern(14).match("[STORAGE]");
  ASSERT_TRUE(section.hasMatch());
  EXPECT_EQ(section.captured(1).toStdString(), "STORAGE");
  const QRegularExpressionMatch pair = keyValuePattern(15).match("SEC_NUM = 129");
  ASSERT_TRUE(pair.hasMatch());
  EXPECT_EQ(pair.captured(1).toStdString(), "SEC_NUM");
  EXPECT_EQ(pair.captured(2).toStdString(), "129");
  EXPECT_TRUE(keyValuePattern(16).match("a\\b").hasMatch());
  EXPECT_FALSE(keyValuePattern(14).match("STORAGE").hasMatch());
}

TEST(KeyValuePatterns, IndexPastTheEndGivesTheLast) {
  EXPECT_EQ(&keyValuePattern(kKeyValuePatternCount), &keyValuePattern(kKeyValuePatternCount - 1));
}

}  // namespace
