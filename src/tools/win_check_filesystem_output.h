// How the file-system check reads its checker: a line's percent, the log
// made from the rest of the output, and the mount path as the checker takes
// it. Free of the platform, so that the rules can be checked line by line.
#pragma once

#include <string>

// The percent a line of output shows, or -1 for a line that shows none. A
// progress line starts with a number, after the blanks it may lead with;
// the number runs to the first blank ("12 percent" gives 12, "12" alone 12).
// A number too long for an int gives a value above 100.
int parseCheckerPercent(const std::string& line);

// The log kept of the checker's talk: each line that "\r\n" ends, without
// its carriage returns and with one line feed; empty lines dropped; text
// behind the last "\r\n" left out.
std::string cleanCheckerLog(const std::string& raw);

// "C:\" becomes "C:": a path with a backslash anywhere loses its last
// character. "D:" stays as it is.
std::string shortenMountPath(std::string mountPath);
