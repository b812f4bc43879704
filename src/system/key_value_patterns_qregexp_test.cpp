// The seventeen patterns decide every string as the syntax they are written
// in decides it: each one runs through the older class (QRegExp, kept by the
// text library's compatibility module, linked into the tests only) and
// through the pattern the module builds, on a generated corpus of strings
// that match and strings that nearly do. Both must agree on whether there is
// a match and on where the first one starts.
#include "system/key_value_patterns.h"

#include <gtest/gtest.h>

#include <QRegExp>

#include <cstdint>
#include <cstdio>
#include <set>
#include <string>
#include <vector>

namespace {

// Code points that the two engines could read differently: ASCII of every
// class the patterns name, controls and the Unicode spaces, letters, digits,
// numbers and marks outside ASCII, connector punctuation, and characters
// beyond the Basic Multilingual Plane (a surrogate pair to the older class).
const std::vector<char32_t> kTricky = {
    U'0', U'1', U'2', U'9', U'a', U'Z', U'_', U' ', U'.', U'-', U'+', U'=', U'[', U']', U'/', U'|', U'\\', U'*',
    U'$', U'^', U'(', U')', U'{', U'}', U'?', U'!', U'#',
    0x00, 0x09, 0x0A, 0x0B, 0x0C, 0x0D, 0x1C, 0x1F, 0x7F, 0x85, 0xA0,                     // controls, spaces
    0x1680, 0x180E, 0x2000, 0x200A, 0x200B, 0x2028, 0x2029, 0x202F, 0x205F, 0x3000, 0xFEFF,  // more spaces
    0xE9, 0xDF, 0x3A3, 0x4E2D, 0x2160,                                                       // letters, Nl
    0x660, 0x663, 0xFF10, 0xB2, 0xBD,                                                         // Nd, No
    0x301, 0x903, 0x20DD,                                                                     // Mn, Mc, Me
    0x203F, 0xFF3F,                                                                           // Pc
    0x1D400, 0x1D7CE, 0x104A0, 0x1F600,                                                       // beyond the BMP
};

// Strings each pattern is meant to find, to be varied into near misses.
const std::vector<std::vector<std::string>> kSeeds = {
    {"0", "1"},
    {"7", "0123456789"},
    {"1.5", "-1.", "+.5", "12.34"},
    {"[a[", "[ key[", "[["},
    {"]a]", "] key]", "]]"},
    {"=a=", "= key=", "=="},
    {"=a[", "=a]", "[a=", "]a=", "[=", "]=", "=[", "=]"},
    {"[a", "a[", "[[key", "key[["},
    {"a]", "[key]]", "]a", "]key"},
    {"]a[", "]["},
    {"[]", "[ ]", "[  ]]"},
    {"=a", "  = key", "=x y"},
    {"a=", "key = ", "k\t=\t"},
    {"", " ", "\t \t"},
    {"[a]", "[STORAGE]", "[a b*]"},
    {"a=b", "SEC_NUM = 129", "k=v w"},
    {"/", "|", "\\", "a/b"},
};

std::u32string fromUtf8Ascii(const std::string& text) { return std::u32string(text.begin(), text.end()); }

QString toQString(const std::u32string& text) {
  return QString::fromUcs4(text.data(), static_cast<qsizetype>(text.size()));
}

// A small fixed generator, so that the corpus is the same on every run.
class Draws {
 public:
  uint32_t next(uint32_t below) {
    state = state * 6364136223846793005ULL + 1442695040888963407ULL;
    return static_cast<uint32_t>(state >> 33) % below;
  }

 private:
  uint64_t state = 0x5EED;
};

// Each seed; the seed with one character of the tricky set put in front, at
// the end, in the middle, or in place of each of its characters; each
// character removed; a line feed at the end; and random strings built from
// the seeds' own characters and the tricky set.
std::vector<std::u32string> corpusFor(const std::vector<std::string>& seeds, Draws& draws) {
  std::set<std::u32string> corpus;
  std::u32string alphabet;
  for (const std::string& seed : seeds) {
    const std::u32string base = fromUtf8Ascii(seed);
    alphabet += base;
    corpus.insert(base);
    corpus.insert(base + U"\n");
    corpus.insert(U"\n" + base);
    for (char32_t c : kTricky) {
      corpus.insert(std::u32string(1, c) + base);
      corpus.insert(base + std::u32string(1, c));
      corpus.insert(base.substr(0, base.size() / 2) + std::u32string(1, c) + base.substr(base.size() / 2));
      for (size_t i = 0; i < base.size(); ++i) {
        std::u32string replaced = base;
        replaced[i] = c;
        corpus.insert(replaced);
      }
    }
    for (size_t i = 0; i < base.size(); ++i) corpus.insert(base.substr(0, i) + base.substr(i + 1));
  }
  alphabet.append(kTricky.begin(), kTricky.end());
  for (int n = 0; n < 400; ++n) {
    std::u32string text;
    const uint32_t length = draws.next(9);
    for (uint32_t i = 0; i < length; ++i) text += alphabet[draws.next(static_cast<uint32_t>(alphabet.size()))];
    corpus.insert(text);
  }
  return std::vector<std::u32string>(corpus.begin(), corpus.end());
}

std::string hexOf(const std::u32string& text) {
  std::string out;
  char unit[12];
  for (char32_t c : text) {
    std::snprintf(unit, sizeof unit, "%s%X", out.empty() ? "" : " ", static_cast<unsigned>(c));
    out += unit;
  }
  return "<" + out + ">";
}

TEST(KeyValuePatternsAgainstQRegExp, EachPatternDecidesTheCorpusAsTheOlderSyntaxDoes) {
  ASSERT_EQ(kSeeds.size(), kKeyValuePatternCount);
  Draws draws;
  size_t compared = 0;
  size_t matched = 0;
  for (size_t index = 0; index < kKeyValuePatternCount; ++index) {
    // Case-sensitive, default syntax: as the format makes them.
    const QRegExp older(QString::fromLatin1(keyValuePatternSource(index)), Qt::CaseSensitive, QRegExp::RegExp);
    ASSERT_TRUE(older.isValid()) << index;
    const QRegularExpression& built = keyValuePattern(index);
    ASSERT_TRUE(built.isValid()) << index << ": " << built.errorString().toStdString();
    size_t differences = 0;
    for (const std::u32string& text : corpusFor(kSeeds[index], draws)) {
      const QString subject = toQString(text);
      const int olderAt = older.indexIn(subject);
      const QRegularExpressionMatch match = built.match(subject);
      const int builtAt = match.hasMatch() ? static_cast<int>(match.capturedStart(0)) : -1;
      ++compared;
      if (olderAt >= 0) ++matched;
      if (olderAt != builtAt && ++differences <= 5) {
        ADD_FAILURE() << "pattern " << index << " " << keyValuePatternSource(index) << " on " << hexOf(text)
                      << ": older syntax " << olderAt << ", built " << builtAt;
      }
    }
    EXPECT_EQ(differences, 0u) << "pattern " << index;
  }
  RecordProperty("strings_compared", static_cast<int>(compared));
  RecordProperty("strings_matched", static_cast<int>(matched));
  // The corpus holds both kinds of string in quantity.
  EXPECT_GT(matched, compared / 10);
  EXPECT_LT(matched, compared - compared / 10);
}

TEST(KeyValuePatternsAgainstQRegExp, EverySeedMatchesItsPattern) {
  for (size_t index = 0; index < kKeyValuePatternCount; ++index) {
    for (const std::string& seed : kSeeds[index]) {
      EXPECT_TRUE(keyValuePattern(index).match(QString::fromStdString(seed)).hasMatch())
          << index << " " << seed;
    }
  }
}

TEST(KeyValuePatternsAgainstQRegExp, TheRewriteTouchesOnlyTheCharacterClassesAndTheEndAnchor) {
  EXPECT_EQ(keyValuePatternSyntax("[/|\\\\]"), "[/|\\\\]");
  EXPECT_EQ(keyValuePatternSyntax("\\[=\\]{0}"), "\\[=\\]{0}");
  EXPECT_EQ(keyValuePatternSyntax("^[01]$"), "^[01]\\z");
  EXPECT_EQ(keyValuePatternSyntax("\\w"), "(?:(?![\\x{10000}-\\x{10FFFF}])[\\w\\p{M}])");
  EXPECT_EQ(keyValuePatternSyntax("\\s*"), "(?:(?![\\x{180E}])\\s)*");
  EXPECT_EQ(keyValuePatternSyntax("\\S+"), "[\\S\\x{180E}]+");
  EXPECT_EQ(keyValuePatternSyntax("[\\w\\s*]+"),
            "(?:(?![\\x{10000}-\\x{10FFFF}\\x{180E}])[\\w\\p{M}\\s*])+");
  EXPECT_EQ(keyValuePatternSyntax("[\\d]+"), "(?:(?![\\x{10000}-\\x{10FFFF}])[\\d])+");
}

}  // namespace
