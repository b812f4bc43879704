// --json-lines: one JSON object per line, written the moment it happens, so
// that a script follows a run as it goes and a killed run leaves every line
// written so far. Each line carries "schemaVersion" and "type"; the types and
// their keys are documented in docs/hwc_cli-json.schema.json.
#pragma once

#include <cstdio>
#include <string>

#include <nlohmann/json.hpp>

namespace hwc {

class EventStream {
 public:
  explicit EventStream(FILE* out) : out_(out) {}

  // Writes {"schemaVersion": ..., "type": type, ...fields} and flushes.
  void emit(const std::string& type, const nlohmann::json& fields);

 private:
  FILE* out_;
};

}  // namespace hwc
