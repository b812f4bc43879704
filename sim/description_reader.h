// Reads one object of a machine description and checks it as it goes: each
// key it asks for must have the right type and range, and finish() rejects
// the keys nobody asked for. The first problem found is kept, named by the
// field's path and the reason, and every later read is skipped.
#pragma once

#include <cstdint>
#include <limits>
#include <string>
#include <vector>

#include <nlohmann/json.hpp>

namespace sim {

class DescriptionReader {
 public:
  // `error` is shared by all readers of one description.
  DescriptionReader(const nlohmann::json& object, std::string path, std::string* error);

  bool ok() const { return error_->empty(); }
  const std::string& path() const { return path_; }
  // The child path of `key`: "disks[2].profile" + ".capacitySectors".
  std::string pathOf(const std::string& key) const;
  bool has(const std::string& key) const;

  // Each returns false when the key is absent (leaving *out alone) or wrong
  // (recording the error).
  bool unsignedInt(const std::string& key, uint64_t* out, uint64_t max = std::numeric_limits<uint64_t>::max());
  template <typename T>
  bool number(const std::string& key, T* out) {
    uint64_t v = 0;
    if (!unsignedInt(key, &v, std::numeric_limits<T>::max())) return false;
    *out = static_cast<T>(v);
    return true;
  }
  bool signedInt(const std::string& key, int* out, int min, int max);
  // An unsigned integer, or a string "0x..." of hexadecimal digits.
  bool identifier(const std::string& key, uint64_t* out);
  bool boolean(const std::string& key, bool* out);
  bool string(const std::string& key, std::string* out, size_t maxLength = 4096);
  // One of `choices`; *index is its position.
  bool choice(const std::string& key, const std::vector<std::string>& choices, size_t* index);
  // Present and an object / an array; *out points into the description.
  bool object(const std::string& key, const nlohmann::json** out);
  bool array(const std::string& key, const nlohmann::json** out);
  // Marks a key as known without reading it (kept as raw JSON elsewhere).
  void keep(const std::string& key);
  // Rejects a missing key.
  bool require(const std::string& key);

  void fail(const std::string& fieldPath, const std::string& reason);
  // Rejects every key of the object that was never asked for.
  bool finish();

 private:
  const nlohmann::json* field(const std::string& key);

  const nlohmann::json& object_;
  std::string path_;
  std::string* error_;
  std::vector<std::string> known_;
};

}  // namespace sim
