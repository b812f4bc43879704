// The byte-level operations of the string service, the same on every
// platform. The runtime-specific ones are left to WinStringHandlerImp.
#pragma once

#include "system/string_handler.h"

class StringHandlerImp : public StringHandler {
 public:
  bool isNumber(const char* text, int64_t maxLength) override;
  void removeBlanks(const std::string& in, std::string& out) override;
  void keepPrintable(const std::string& in, std::string& out) override;
  void trim(std::string& text) override;
  bool isUpperCase(std::string text) override;
  void toUpperCase(std::string& text) override;
  void toLowerCase(std::string& text) override;
  bool startsWith(const std::string& text, const std::string& prefix) override;
  std::vector<std::string> split(const std::string& text, char delimiter) override;
  int compareN(const char* first, const char* second, size_t count) override;
  size_t lengthN(const char* text, size_t maxLength) override;
  size_t wideLengthN(const WCHAR* text, size_t maxLength) override;
  std::string fromBytes(const uint8_t* bytes, size_t count) override;
  std::vector<std::string> tokenize(const std::string& text, const std::string& delimiters) override;
};
