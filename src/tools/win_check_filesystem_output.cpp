// The file-system check's reading of its checker's output: percents, the
// cleaned log and the shortened mount path.
#include "tools/win_check_filesystem_output.h"

#include <climits>

namespace {

bool isDigit(char c) { return c >= '0' && c <= '9'; }

// atoi of the leading digits, held at INT_MAX instead of overflowing: a huge
// number is simply above 100.
int leadingNumber(const std::string& text) {
  long long value = 0;
  for (char c : text) {
    if (!isDigit(c)) break;
    value = value * 10 + (c - '0');
    if (value > INT_MAX) return INT_MAX;
  }
  return static_cast<int>(value);
}

}  // namespace

int parseCheckerPercent(const std::string& line) {
  // Leading blanks are dropped one at a time while a digit or another blank
  // follows, so that "  5 percent" is a progress line.
  size_t start = 0;
  while (line.size() - start >= 2 && line[start] == ' ' && (isDigit(line[start + 1]) || line[start + 1] == ' ')) {
    ++start;
  }
  if (start >= line.size() || !isDigit(line[start])) return -1;
  const size_t blank = line.find(' ', start);
  return leadingNumber(line.substr(start, blank == std::string::npos ? std::string::npos : blank - start));
}

std::string cleanCheckerLog(const std::string& raw) {
  std::string cleaned;
  size_t from = 0;
  for (size_t end = raw.find("\r\n", from); end != std::string::npos; end = raw.find("\r\n", from)) {
    std::string line = raw.substr(from, end - from);
    from = end + 2;
    if (line.empty()) continue;
    if (line.find('\n') == std::string::npos) line += '\n';
    for (char c : line) {
      if (c != '\r') cleaned += c;
    }
  }
  return cleaned;
}

std::string shortenMountPath(std::string mountPath) {
  if (mountPath.find('\\') != std::string::npos) mountPath.pop_back();
  return mountPath;
}
