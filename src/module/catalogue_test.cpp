// The catalogue's rows and the resource it makes.
#include "module/catalogue.h"

#include <gtest/gtest.h>

#include <memory>

#include "diagnostics/smart_status.h"
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

TEST(Catalogue, CreateResourceMakesTheStorageResource) {
  std::unique_ptr<Resource> resource(createResource(ItemId(1, 0, 1)));
  ASSERT_NE(dynamic_cast<StorageResource*>(resource.get()), nullptr);
  EXPECT_EQ(resource->getModuleName(), "STORAGE");
  EXPECT_EQ(resource->getTestName(ItemId(1, 1, 1)), "SMART_STATUS_TEST");
}

}  // namespace
