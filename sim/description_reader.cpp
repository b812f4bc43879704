// The checked reading of a machine description.
#include "sim/description_reader.h"

#include <algorithm>

namespace sim {

DescriptionReader::DescriptionReader(const nlohmann::json& object, std::string path, std::string* error)
    : object_(object), path_(std::move(path)), error_(error) {
  if (!object_.is_object()) fail(path_.empty() ? "(machine)" : path_, "expected an object");
}

std::string DescriptionReader::pathOf(const std::string& key) const { return path_.empty() ? key : path_ + "." + key; }

void DescriptionReader::fail(const std::string& fieldPath, const std::string& reason) {
  if (error_->empty()) *error_ = fieldPath + ": " + reason;
}

bool DescriptionReader::has(const std::string& key) const {
  return object_.is_object() && object_.find(key) != object_.end();
}

const nlohmann::json* DescriptionReader::field(const std::string& key) {
  if (std::find(known_.begin(), known_.end(), key) == known_.end()) known_.push_back(key);
  if (!ok() || !object_.is_object()) return nullptr;
  auto it = object_.find(key);
  return it == object_.end() ? nullptr : &*it;
}

bool DescriptionReader::unsignedInt(const std::string& key, uint64_t* out, uint64_t max) {
  const nlohmann::json* v = field(key);
  if (v == nullptr) return false;
  if (!v->is_number_unsigned() && !(v->is_number_integer() && v->get<int64_t>() >= 0)) {
    fail(pathOf(key), "expected an unsigned integer");
    return false;
  }
  const uint64_t value = v->get<uint64_t>();
  if (value > max) {
    fail(pathOf(key), "must be at most " + std::to_string(max));
    return false;
  }
  *out = value;
  return true;
}

bool DescriptionReader::signedInt(const std::string& key, int* out, int min, int max) {
  const nlohmann::json* v = field(key);
  if (v == nullptr) return false;
  if (!v->is_number_integer()) {
    fail(pathOf(key), "expected an integer");
    return false;
  }
  const int64_t value = v->get<int64_t>();
  if (value < min || value > max) {
    fail(pathOf(key), "must be between " + std::to_string(min) + " and " + std::to_string(max));
    return false;
  }
  *out = static_cast<int>(value);
  return true;
}

bool DescriptionReader::identifier(const std::string& key, uint64_t* out) {
  const nlohmann::json* v = field(key);
  if (v == nullptr) return false;
  if (v->is_string()) {
    const std::string s = v->get<std::string>();
    if (s.size() > 2 && s.size() <= 18 && s[0] == '0' && (s[1] == 'x' || s[1] == 'X') &&
        s.find_first_not_of("0123456789abcdefABCDEF", 2) == std::string::npos) {
      *out = std::stoull(s.substr(2), nullptr, 16);
      return true;
    }
    fail(pathOf(key), "expected an unsigned integer or a hexadecimal string \"0x...\" of at most 16 digits");
    return false;
  }
  return unsignedInt(key, out);
}

bool DescriptionReader::boolean(const std::string& key, bool* out) {
  const nlohmann::json* v = field(key);
  if (v == nullptr) return false;
  if (!v->is_boolean()) {
    fail(pathOf(key), "expected true or false");
    return false;
  }
  *out = v->get<bool>();
  return true;
}

bool DescriptionReader::string(const std::string& key, std::string* out, size_t maxLength) {
  const nlohmann::json* v = field(key);
  if (v == nullptr) return false;
  if (!v->is_string()) {
    fail(pathOf(key), "expected a string");
    return false;
  }
  std::string s = v->get<std::string>();
  if (s.size() > maxLength) {
    fail(pathOf(key), "longer than " + std::to_string(maxLength) + " characters");
    return false;
  }
  *out = std::move(s);
  return true;
}

bool DescriptionReader::choice(const std::string& key, const std::vector<std::string>& choices, size_t* index) {
  std::string s;
  if (!string(key, &s)) return false;
  auto it = std::find(choices.begin(), choices.end(), s);
  if (it == choices.end()) {
    std::string list;
    for (const auto& c : choices) list += (list.empty() ? "\"" : ", \"") + c + "\"";
    fail(pathOf(key), "expected one of " + list);
    return false;
  }
  *index = static_cast<size_t>(it - choices.begin());
  return true;
}

bool DescriptionReader::object(const std::string& key, const nlohmann::json** out) {
  const nlohmann::json* v = field(key);
  if (v == nullptr) return false;
  if (!v->is_object()) {
    fail(pathOf(key), "expected an object");
    return false;
  }
  *out = v;
  return true;
}

bool DescriptionReader::array(const std::string& key, const nlohmann::json** out) {
  const nlohmann::json* v = field(key);
  if (v == nullptr) return false;
  if (!v->is_array()) {
    fail(pathOf(key), "expected an array");
    return false;
  }
  *out = v;
  return true;
}

void DescriptionReader::keep(const std::string& key) { field(key); }

bool DescriptionReader::require(const std::string& key) {
  if (!ok()) return false;
  if (!has(key)) {
    fail(pathOf(key), "missing");
    return false;
  }
  return true;
}

bool DescriptionReader::finish() {
  if (!ok() || !object_.is_object()) return ok();
  for (auto it = object_.begin(); it != object_.end(); ++it) {
    if (std::find(known_.begin(), known_.end(), it.key()) == known_.end()) {
      fail(pathOf(it.key()), "unknown key");
      return false;
    }
  }
  return true;
}

}  // namespace sim
