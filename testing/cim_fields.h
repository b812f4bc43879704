// A list of field names in the form the management-query calls take them
// (char**, a count), kept alive for as long as the test needs it.
#pragma once

#include <cstdint>
#include <string>
#include <utility>
#include <vector>

namespace testing_support {

class CimFields {
 public:
  explicit CimFields(std::vector<std::string> names) : names_(std::move(names)) {
    for (std::string& name : names_) pointers_.push_back(&name[0]);
  }
  char** get() { return pointers_.data(); }
  int32_t count() const { return static_cast<int32_t>(pointers_.size()); }

 private:
  std::vector<std::string> names_;
  std::vector<char*> pointers_;
};

}  // namespace testing_support
