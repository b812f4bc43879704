// The catalogue's rows and the resource it makes.
#include "module/catalogue.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <memory>
#include <utility>
#include <vector>

#include "diagnostics/funnel_seek.h"
#include "diagnostics/random_seek.h"
#include "diagnostics/smart_status.h"
#include "diagnostics/targeted_read.h"
#include "resource/storage_resource.h"

namespace {

TEST(Catalogue, FirstQuickRowIsTheSmartStatusTest) {
  ASSERT_FALSE(catalogueRows().empty());
  const CatalogueRow& row = catalogueRows().front();
  EXPECT_EQ(row.diagnosticId, 1u);
  EXPECT_EQ(row.testId, 1u);
  std::unique_ptr<::Test> test(row.create(ItemId(1, 1, 1)));
  ASSERT_NE(dynamic_cast<SmartStatusTest*>(test.get()), nullptr);
  EXPECT_EQ(test->getItemId(), ItemId(1, 1, 1));
}

// The row of `test` in its diagnostic, and the object it makes.
template <typename Expected>
void expectRowMakes(uint32_t diagnosticId, uint32_t testId) {
  const CatalogueRow* found = nullptr;
  for (const CatalogueRow& row : catalogueRows()) {
    if (row.diagnosticId == diagnosticId && row.testId == testId) found = &row;
  }
  ASSERT_NE(found, nullptr) << diagnosticId << "." << testId;
  std::unique_ptr<::Test> test(found->create(ItemId(1, diagnosticId, testId)));
  EXPECT_NE(dynamic_cast<Expected*>(test.get()), nullptr) << diagnosticId << "." << testId;
  EXPECT_EQ(test->getItemId(), ItemId(1, diagnosticId, testId));
}

TEST(Catalogue, TargetedReadAndSeekTestsStandInTheirRows) {
  expectRowMakes<TargetedReadTest>(1, 2);
  expectRowMakes<QuickRandomSeekTest>(1, 3);
  expectRowMakes<QuickFunnelSeekTest>(1, 4);
  expectRowMakes<ExtendedRandomSeekTest>(2, 8);
  expectRowMakes<ExtendedFunnelSeekTest>(2, 9);
}

TEST(Catalogue, QuickRowsComeBeforeExtendedRowsInTableOrder) {
  std::vector<std::pair<uint32_t, uint32_t>> order;
  for (const CatalogueRow& row : catalogueRows()) order.emplace_back(row.diagnosticId, row.testId);
  EXPECT_TRUE(std::is_sorted(order.begin(), order.end()));
}

TEST(Catalogue, CreateResourceMakesTheStorageResource) {
  std::unique_ptr<Resource> resource(createResource(ItemId(1, 0, 1)));
  ASSERT_NE(dynamic_cast<StorageResource*>(resource.get()), nullptr);
  EXPECT_EQ(resource->getModuleName(), "STORAGE");
  EXPECT_EQ(resource->getTestName(ItemId(1, 1, 1)), "SMART_STATUS_TEST");
}

}  // namespace
