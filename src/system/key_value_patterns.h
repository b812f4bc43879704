// The seventeen process-wide patterns of the key-and-value text format that
// the suite's modules share. Nothing in this module matches against them;
// they are made at start-up, case-sensitive, with the default syntax.
#pragma once

#include <cstddef>

#include <QRegularExpression>

constexpr size_t kKeyValuePatternCount = 17;

// The pattern at `index`, in the format's order; an index past the end gives
// the last one.
const QRegularExpression& keyValuePattern(size_t index);
