// The string service with the Windows C runtime's bounded and conversion
// functions (vsprintf_s, strncpy_s, strncat_s, wcstombs_s, mbstowcs_s,
// _localtime64_s, _vsnprintf, vfprintf_s), kept to their documented results
// on every build. Where the Windows runtime would call its invalid-parameter
// handler, these return the error code instead.
#pragma once

#include "system/string_handler_imp.h"

class WinStringHandlerImp : public StringHandlerImp {
 public:
  int formatInto(char* buffer, size_t size, const char* format, ...) override;
  int copyN(char* to, size_t size, const char* from, size_t count) override;
  int appendN(char* to, size_t size, const char* from, size_t count) override;
  int wideToNarrow(size_t* done, char* to, size_t size, const WCHAR* from, size_t count) override;
  int narrowToWide(size_t* done, WCHAR* to, size_t size, const char* from, size_t count) override;
  int localTime(std::tm* out, int64_t time) override;
  int formatN(char* buffer, size_t size, const char* format, ...) override;
  int printToFile(FILE* file, const char* format, ...) override;
};
