// The shared patterns, built when the library is loaded.
#include "system/key_value_patterns.h"

namespace {

const QRegularExpression kPatterns[kKeyValuePatternCount] = {
    QRegularExpression("^[01]$"),
    QRegularExpression("^[\\d]+$"),
    QRegularExpression("^[\\-\\+]?((\\d+\\.\\d*)|(\\d*\\.\\d+))$"),
    QRegularExpression("(\\[\\s*\\w+\\[)|(\\[\\[)"),
    QRegularExpression("(\\]\\s*\\w+\\])|(\\]\\])"),
    QRegularExpression("(=\\s*\\w+=)|(==)"),
    QRegularExpression("((=\\w+(\\[|\\]))|((\\[|\\]))\\w+=)|(\\[=)|(\\]=)|(=\\[)|(=\\])"),
    QRegularExpression("(\\[\\]{0}[\\w]+)|(\\]{0}[\\w]+\\[+)"),
    QRegularExpression("(\\[{0}[\\w]+\\]+)|(\\]\\[{0}[\\w]+)"),
    QRegularExpression("(\\]\\w+\\[)|(\\]\\[)"),
    QRegularExpression("\\[\\s*\\]+"),
    QRegularExpression("^\\s*=\\s*[\\w]+"),
    QRegularExpression("^[\\w]+\\s*=\\s*$"),
    QRegularExpression("^\\s*$"),
    QRegularExpression("\\[([\\w\\s*]+)\\]"),
    QRegularExpression("([\\w]+)\\s*=\\s*(\\S+)"),
    QRegularExpression("[/|\\\\]"),
};

}  // namespace

const QRegularExpression& keyValuePattern(size_t index) {
  return kPatterns[index < kKeyValuePatternCount ? index : kKeyValuePatternCount - 1];
}
