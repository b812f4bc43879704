// A host that includes only the public headers and reaches the module through
// dlopen and its three exports: get the instance, walk it, release, again.
#include <dlfcn.h>
#include <gtest/gtest.h>

#include <memory>

#include "module_storage/module_storage.h"

namespace {

class LoadedModule : public ::testing::Test {
 protected:
  void SetUp() override {
    // RTLD_NODELETE keeps the code mapped after dlclose, so the leak checker
    // can still see what its dependencies hold in their globals at exit.
    library = dlopen(MODULE_STORAGE_LIBRARY_PATH, RTLD_NOW | RTLD_LOCAL | RTLD_NODELETE);
    ASSERT_NE(library, nullptr) << dlerror();
    getInstance = reinterpret_cast<GetModuleInterfaceInstanceFn>(dlsym(library, "GetModuleInterfaceInstance"));
    getVersion = reinterpret_cast<GetProductVersionFn>(dlsym(library, "GetProductVersion"));
    release = reinterpret_cast<ReleaseModuleInterfaceInstanceFn>(dlsym(library, "ReleaseModuleInterfaceInstance"));
    ASSERT_NE(getInstance, nullptr);
    ASSERT_NE(getVersion, nullptr);
    ASSERT_NE(release, nullptr);
  }
  void TearDown() override {
    if (library != nullptr) dlclose(library);
  }

  void* library = nullptr;
  GetModuleInterfaceInstanceFn getInstance = nullptr;
  GetProductVersionFn getVersion = nullptr;
  ReleaseModuleInterfaceInstanceFn release = nullptr;
};

TEST_F(LoadedModule, VersionIsFourThirteenZeroBuild8834) {
  std::unique_ptr<ProductVersion> version(getVersion());
  ASSERT_NE(version, nullptr);
  EXPECT_EQ(version->getMajor(), 4u);
  EXPECT_EQ(version->getMinor(), 13u);
  EXPECT_EQ(version->getRevision(), 0u);
  EXPECT_EQ(version->getBuild(), 8834u);
}

TEST_F(LoadedModule, WalksTheCatalogueReleasesAndGetsANewInstance) {
  for (int round = 0; round < 2; ++round) {
    ModuleInterface* module = getInstance();
    ASSERT_NE(module, nullptr);
    EXPECT_EQ(getInstance(), module);
    ASSERT_EQ(module->getDiagnosticCount(), 2u);
    const uint32_t diagnosticIds[] = {1, 2};
    for (uint32_t d = 0; d < 2; ++d) {
      Diagnostic* diagnostic = module->getDiagnostic(d);
      ASSERT_NE(diagnostic, nullptr);
      EXPECT_EQ(diagnostic->getId(), ItemId(1, diagnosticIds[d], 0));
      for (uint32_t t = 0; t < diagnostic->getTestCount(); ++t) {
        ::Test* test = diagnostic->getTest(t);
        ASSERT_NE(test, nullptr);
        EXPECT_EQ(test->getItemId().diagnosticId, diagnosticIds[d]);
        EXPECT_EQ(diagnostic->getTestById(test->getItemId()), test);
      }
    }
    EXPECT_EQ(module->getReservedObject(), nullptr);
    release();
  }
  release();  // nothing left to release: returns at once
}

}  // namespace
