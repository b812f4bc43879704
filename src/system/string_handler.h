// The string service of the module: every text that goes into a record
// passes through it. Stateless; one process-wide object, made on first use.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <ctime>
#include <string>
#include <vector>

#include "win32/win32.h"

#if defined(__MINGW32__)
// MinGW's C++ runtime formats with its C99 printf (so "%hhx" works); the
// headers name the matching format checker.
#define STORAGE_PRINTF_FORMAT(formatIndex, firstArgument) \
  __attribute__((format(__MINGW_PRINTF_FORMAT, formatIndex, firstArgument)))
#elif defined(__GNUC__)
#define STORAGE_PRINTF_FORMAT(formatIndex, firstArgument) \
  __attribute__((format(printf, formatIndex, firstArgument)))
#else
#define STORAGE_PRINTF_FORMAT(formatIndex, firstArgument)
#endif

// Results of the bounded copy, append and conversion operations, with the C
// runtime's numbering of Windows.
constexpr int kStringOk = 0;
constexpr int kStringInvalidArgument = 22;   // EINVAL
constexpr int kStringOutOfRange = 34;        // ERANGE: the destination is too small
constexpr int kStringIllegalSequence = 42;   // EILSEQ: a character has no narrow form
constexpr int kStringTruncated = 80;         // STRUNCATE: cut to fit, as asked
// As `count`: copy or convert as much as fits, and say so with kStringTruncated.
constexpr size_t kTruncate = static_cast<size_t>(-1);

class StringHandler {
 public:
  virtual ~StringHandler() = default;

  // True if every character up to maxLength or a NUL is a decimal digit; the
  // empty text is a number. A null text is not.
  virtual bool isNumber(const char* text, int64_t maxLength) = 0;
  // Appends to `out` every byte of `in` but the blank (0x20).
  virtual void removeBlanks(const std::string& in, std::string& out) = 0;
  // Appends to `out` every byte of `in` from 32 to 126.
  virtual void keepPrintable(const std::string& in, std::string& out) = 0;
  // Removes leading and trailing blanks (0x20 only) in place.
  virtual void trim(std::string& text) = 0;
  // True if upper-casing changes nothing; false for the empty text.
  virtual bool isUpperCase(std::string text) = 0;
  virtual void toUpperCase(std::string& text) = 0;
  virtual void toLowerCase(std::string& text) = 0;
  virtual bool startsWith(const std::string& text, const std::string& prefix) = 0;
  // Pieces between delimiters; a trailing delimiter gives no empty last piece.
  virtual std::vector<std::string> split(const std::string& text, char delimiter) = 0;
  // strncmp; a null text compares as the empty one.
  virtual int compareN(const char* first, const char* second, size_t count) = 0;
  // Formats into `buffer`; the number of characters, or -1 (buffer emptied)
  // when it does not fit or an argument is null.
  virtual int formatInto(char* buffer, size_t size, const char* format, ...) STORAGE_PRINTF_FORMAT(4, 5) = 0;
  // Copies at most `count` characters and a NUL; kStringOutOfRange (to
  // emptied) when they do not fit, unless count is kTruncate.
  virtual int copyN(char* to, size_t size, const char* from, size_t count) = 0;
  // Appends at most `count` characters and a NUL, on the same terms.
  virtual int appendN(char* to, size_t size, const char* from, size_t count) = 0;
  // strnlen; 0 for null.
  virtual size_t lengthN(const char* text, size_t maxLength) = 0;
  // Wide to narrow in the runtime's default ("C") locale: at most `count`
  // bytes; *done counts the bytes written with the NUL. With a null `to` and
  // size 0, *done gives the size needed.
  virtual int wideToNarrow(size_t* done, char* to, size_t size, const WCHAR* from, size_t count) = 0;
  // Narrow to wide on the same terms; `count` and *done count wide characters.
  virtual int narrowToWide(size_t* done, WCHAR* to, size_t size, const char* from, size_t count) = 0;
  // 0 for null, else the length up to maxLength.
  virtual size_t wideLengthN(const WCHAR* text, size_t maxLength) = 0;
  // Local time of `time` (seconds since 1970); kStringInvalidArgument for a
  // null out or a time before 1970 or after 3000 (out then holds -1s).
  virtual int localTime(std::tm* out, int64_t time) = 0;
  // Formats at most `size` characters. The count written, or -1 when the text
  // was cut; the NUL is written only when there is room after the text.
  virtual int formatN(char* buffer, size_t size, const char* format, ...) STORAGE_PRINTF_FORMAT(4, 5) = 0;
  // -1 for a null file or format.
  virtual int printToFile(FILE* file, const char* format, ...) STORAGE_PRINTF_FORMAT(3, 4) = 0;
  // Exactly `count` bytes, NUL bytes included; empty for null bytes.
  virtual std::string fromBytes(const uint8_t* bytes, size_t count) = 0;
  // Non-empty pieces between any of the delimiters, as strtok finds them.
  virtual std::vector<std::string> tokenize(const std::string& text, const std::string& delimiters) = 0;
  // The bytes of `in` up to its first NUL.
  virtual std::string copyToNul(const std::string& in);
};

// The process-wide string service, made on first use.
StringHandler& getStringHandler();
