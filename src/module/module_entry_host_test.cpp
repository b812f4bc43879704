// A host that includes only the public headers and reaches the module through
// the platform's loader (dlopen, or LoadLibrary on Windows) and its three
// exports: get the instance, walk it, release, again.
#if defined(_WIN32)
#include <windows.h>
#else
#include <dlfcn.h>
#endif
#include <gtest/gtest.h>

#include <memory>
#include <string>

#include "module_storage/module_storage.h"

namespace {

#if defined(_WIN32)
// The library stays loaded to the end of the process, as dlopen's
// RTLD_NODELETE keeps it elsewhere: the module's tool outlives a release.
void* openLibrary() { return reinterpret_cast<void*>(LoadLibraryA(MODULE_STORAGE_LIBRARY_PATH)); }
std::string loaderError() { return "error " + std::to_string(GetLastError()); }
void* findSymbol(void* library, const char* name) {
  return reinterpret_cast<void*>(GetProcAddress(static_cast<HMODULE>(library), name));
}
void closeLibrary(void*) {}
#else
// RTLD_NODELETE keeps the code mapped after dlclose, so the leak checker
// can still see what its dependencies hold in their globals at exit.
void* openLibrary() { return dlopen(MODULE_STORAGE_LIBRARY_PATH, RTLD_NOW | RTLD_LOCAL | RTLD_NODELETE); }
std::string loaderError() {
  const char* text = dlerror();
  return text != nullptr ? text : "";
}
void* findSymbol(void* library, const char* name) { return dlsym(library, name); }
void closeLibrary(void* library) { dlclose(library); }
#endif

class LoadedModule : public ::testing::Test {
 protected:
  void SetUp() override {
    library = openLibrary();
    ASSERT_NE(library, nullptr) << loaderError();
    getInstance = reinterpret_cast<GetModuleInterfaceInstanceFn>(findSymbol(library, "GetModuleInterfaceInstance"));
    getVersion = reinterpret_cast<GetProductVersionFn>(findSymbol(library, "GetProductVersion"));
    release = reinterpret_cast<ReleaseModuleInterfaceInstanceFn>(findSymbol(library, "ReleaseModuleInterfaceInstance"));
    ASSERT_NE(getInstance, nullptr);
    ASSERT_NE(getVersion, nullptr);
    ASSERT_NE(release, nullptr);
  }
  void TearDown() override {
    if (library != nullptr) closeLibrary(library);
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
