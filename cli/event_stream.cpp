// Writing the lines of --json-lines.
#include "event_stream.h"

#include "report.h"

namespace hwc {

void EventStream::emit(const std::string& type, const nlohmann::json& fields) {
  nlohmann::json line = {{"schemaVersion", kJsonSchemaVersion}, {"type", type}};
  if (fields.is_object()) {
    for (auto it = fields.begin(); it != fields.end(); ++it) line[it.key()] = it.value();
  }
  std::fprintf(out_, "%s\n", dumpJsonLine(line).c_str());
  std::fflush(out_);
}

}  // namespace hwc
