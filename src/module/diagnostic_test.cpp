// Diagnostic's lookups over a list of eight tests laid out as the quick
// diagnostic is: 1.1.1 to 1.1.7, then 1.1.11.
#include "module_storage/diagnostic.h"

#include <gtest/gtest.h>

#include <memory>

namespace {

class PlainTest : public Test {
 public:
  using Test::Test;
  bool isSupported(SystemComponent*) override { return true; }
  uint32_t run(TestRunContext*) override { return SUCCESS; }
  bool isOptionA() override { return false; }
};

class QuickLayout : public ::testing::Test {
 protected:
  QuickLayout() {
    for (uint32_t number : {1u, 2u, 3u, 4u, 5u, 6u, 7u, 11u}) {
      owned.push_back(std::make_unique<PlainTest>(ItemId(1, 1, number)));
      borrowed.push_back(owned.back().get());
    }
  }
  std::vector<std::unique_ptr<PlainTest>> owned;
  std::vector<::Test*> borrowed;
};

TEST_F(QuickLayout, GetTestByIdFindsNumberElevenAtPositionEight) {
  Diagnostic quick(ItemId(1, 1, 0), borrowed);
  EXPECT_EQ(quick.getTestById(ItemId(1, 1, 11)), borrowed[7]);
}

TEST_F(QuickLayout, GetTestByIdWithTheOtherDiagnosticsNumberFindsNothing) {
  Diagnostic quick(ItemId(1, 1, 0), borrowed);
  EXPECT_EQ(quick.getTestById(ItemId(1, 2, 11)), nullptr);
}

TEST_F(QuickLayout, GetTestPastTheEndIsNull) {
  Diagnostic quick(ItemId(1, 1, 0), borrowed);
  EXPECT_EQ(quick.getTestCount(), 8u);
  EXPECT_EQ(quick.getTest(7), borrowed[7]);
  EXPECT_EQ(quick.getTest(8), nullptr);
  EXPECT_EQ(quick.getTest(0xffffffffu), nullptr);
}

TEST_F(QuickLayout, GetTestByIdComparesOnlyThePackedId) {
  Diagnostic quick(ItemId(1, 1, 0), borrowed);
  ItemId probe(1, 1, 4);
  probe.moduleId = 77;  // not part of the comparison
  EXPECT_EQ(quick.getTestById(probe), borrowed[3]);
}

TEST(Diagnostic, EmptyListFindsNothing) {
  Diagnostic empty(ItemId(1, 2, 0), {});
  EXPECT_EQ(empty.getTestCount(), 0u);
  EXPECT_EQ(empty.getTestById(ItemId(1, 2, 8)), nullptr);
  EXPECT_EQ(empty.getTest(0), nullptr);
}

TEST(Diagnostic, DestroyingItLeavesItsTestsAlive) {
  auto test = std::make_unique<PlainTest>(ItemId(1, 2, 8));
  {
    Diagnostic extended(ItemId(1, 2, 0), {test.get()});
  }
  EXPECT_EQ(test->getItemId(), ItemId(1, 2, 8));
}

}  // namespace
