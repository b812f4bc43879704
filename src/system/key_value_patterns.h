// The seventeen process-wide patterns of the key-and-value text format that
// the suite's modules share. Nothing in this module matches against them;
// they are made at start-up, case-sensitive, with the default syntax.
//
// The format writes them in the syntax of the older regular-expression class
// of the text library (QRegExp). They are built with its successor
// (QRegularExpression, PCRE2), rewritten so that both decide every string
// alike: see keyValuePatternSyntax.
#pragma once

#include <cstddef>
#include <string>

#include <QRegularExpression>

constexpr size_t kKeyValuePatternCount = 17;

// The pattern at `index`, in the format's order; an index past the end gives
// the last one.
const QRegularExpression& keyValuePattern(size_t index);
// The pattern at `index` as the format writes it; the same rule for the index.
const char* keyValuePatternSource(size_t index);
// A pattern of the older syntax in the form QRegularExpression decides alike,
// with QRegularExpression::UseUnicodePropertiesOption:
// - \w of the older class is a letter, number or mark of one UTF-16 unit, or
//   '_'; PCRE2's is a letter or number code point, or '_'. Marks are added,
//   and characters beyond the Basic Multilingual Plane (two units to the
//   older class, neither of them a word character) are kept out.
// - \d likewise keeps out the digits beyond the Basic Multilingual Plane.
// - \s of PCRE2 takes U+180E (MONGOLIAN VOWEL SEPARATOR) for a space, which
//   the older class, following later Unicode, does not: it is kept out of \s
//   and let into \S.
// - $ of the older class matches at the very end only; PCRE2's also before a
//   final line feed. It becomes \z.
// Every other part is copied as it stands.
std::string keyValuePatternSyntax(const std::string& source);
