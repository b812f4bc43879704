// A diagnostic of the catalogue (Quick or Extended): an ordered list of tests.
#pragma once

#include <cstdint>
#include <vector>

#include "module_storage/item_id.h"
#include "module_storage/test.h"

// The list borrows its tests: ReleaseModuleInterfaceInstance destroys them.
class Diagnostic {
 public:
  Diagnostic(const ItemId& itemId, std::vector<Test*> list) : id(itemId), tests(std::move(list)) {}
  virtual ~Diagnostic() = default;

  virtual ItemId getId() const { return id; }
  virtual uint32_t getTestCount() const { return static_cast<uint32_t>(tests.size()); }
  // Null when index is not below the count.
  virtual Test* getTest(uint32_t index) const { return index < tests.size() ? tests[index] : nullptr; }
  // The first test whose packedId matches, or null.
  virtual Test* getTestById(const ItemId& item) const {
    for (Test* test : tests) {
      if (test != nullptr && test->getItemId().packedId == item.packedId) return test;
    }
    return nullptr;
  }

 private:
  ItemId id;
  std::vector<Test*> tests;
};
