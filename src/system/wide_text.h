// Wide (UTF-16) text of the platform's wide calls to and from the module's
// narrow UTF-8 strings.
#pragma once

#include <string>

#include "win32/win32.h"

using WideString = std::basic_string<WCHAR>;

// UTF-8 of a NUL-terminated wide text; empty for null or when the
// conversion fails. A lone surrogate becomes U+FFFD.
std::string wideToUtf8(const WCHAR* text);
// Wide form of a NUL-terminated UTF-8 text; empty for null or when the
// conversion fails. An ill-formed sequence becomes U+FFFD.
WideString utf8ToWide(const char* text);
