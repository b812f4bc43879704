#include "module_storage/item_id.h"

#include <gtest/gtest.h>

#include <map>

namespace {

TEST(ItemId, PacksModuleDiagnosticAndTest) {
  ItemId id(1, 1, 4);
  EXPECT_EQ(id.moduleId, 1u);
  EXPECT_EQ(id.diagnosticId, 1u);
  EXPECT_EQ(id.testId, 4u);
  EXPECT_EQ(id.packedId, (uint64_t{1} << 48) | (uint64_t{1} << 24) | 4u);
}

TEST(ItemId, MasksFieldsButPacksTheValuesAsPassed) {
  ItemId id(1, 0x1000002u, 0x3000004u);
  EXPECT_EQ(id.diagnosticId, 0x000002u);
  EXPECT_EQ(id.testId, 0x000004u);
  // The packed form keeps the bits above 24: the diagnostic's top bit lands in
  // the module's field and the test's top bits in the diagnostic's.
  EXPECT_EQ(id.packedId, (uint64_t{1} << 48) | (uint64_t{0x1000002u} << 24) | 0x3000004u);
}

TEST(ItemId, EqualityUsesThePackedIdAlone) {
  ItemId a(1, 2, 8);
  ItemId b = a;
  b.testId = 99;  // a field other than packedId
  EXPECT_TRUE(a == b);
  EXPECT_FALSE(a != b);
  EXPECT_FALSE(ItemId(1, 2, 8) == ItemId(1, 2, 9));
}

TEST(ItemId, TablesOrderByThePackedId) {
  std::map<ItemId, int> table;
  table[ItemId(1, 2, 8)] = 3;
  table[ItemId(1, 1, 11)] = 2;
  table[ItemId(1, 1, 1)] = 1;
  std::vector<int> order;
  for (const auto& entry : table) order.push_back(entry.second);
  EXPECT_EQ(order, (std::vector<int>{1, 2, 3}));
}

}  // namespace
