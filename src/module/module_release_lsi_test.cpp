// The release of the module and the LSI command libraries: they are freed
// and unloaded last, in the order standard, IR, IR2, and a release without
// an instance touches none of them.
#include <gtest/gtest.h>

#include "module_storage/module_storage.h"
#include "raid/lsi/lsi_sender.h"
#include "raid/lsi/lsi_test_support.h"

namespace {

std::vector<uint8_t> gCodes;

uint32_t entryPoint(void* record) {
  gCodes.push_back(static_cast<const LsiCmd*>(record)->commandCode);
  return 0;
}

class ModuleReleaseLsi : public ::testing::Test {
 protected:
  void SetUp() override {
    ReleaseModuleInterfaceInstance();
    gCodes.clear();
    for (const char* file : {"storelib.dll", "storelibir.dll", "storelibir-2.dll"}) loader.files[file] = true;
    for (const char* entry : {"ProcessLibCommand", "ProcessLibCommandIR", "ProcessLibCommandIR2"}) {
      loader.entries[entry] = reinterpret_cast<void*>(&entryPoint);
    }
    setModuleLoaderForTesting(&loader);
  }
  void TearDown() override {
    ReleaseModuleInterfaceInstance();
    releaseLsiStdSender();
    releaseLsiIrSender();
    releaseLsiIr2Sender();
    setModuleLoaderForTesting(nullptr);
  }
  lsi_testing::ScriptedModuleLoader loader;
};

TEST_F(ModuleReleaseLsi, ReleaseUnloadsTheThreeLibrariesInTheOrderStandardIrIr2) {
  // Made in another order on purpose.
  LsiSender* ir2 = getLsiIr2Sender();
  LsiSender* standard = getLsiStdSender();
  LsiSender* ir = getLsiIrSender();
  ASSERT_NE(ir2, nullptr);
  ASSERT_NE(standard, nullptr);
  ASSERT_NE(ir, nullptr);
  const std::vector<void*> expected = {standard->getLibrary(), ir->getLibrary(), ir2->getLibrary()};
  ASSERT_NE(GetModuleInterfaceInstance(), nullptr);
  gCodes.clear();
  ReleaseModuleInterfaceInstance();
  EXPECT_EQ(loader.unloads, expected);
  // Each library was told to free itself first.
  EXPECT_EQ(gCodes, (std::vector<uint8_t>{kLsiFreeLibrary, kLsiFreeLibrary, kLsiFreeLibrary}));
  // A later call loads the library afresh.
  const size_t loads = loader.loads.size();
  EXPECT_NE(getLsiStdSender(), nullptr);
  EXPECT_EQ(loader.loads.size(), loads + 1);
}

TEST_F(ModuleReleaseLsi, ReleaseWithoutAnInstanceTouchesNoLibrary) {
  ASSERT_NE(getLsiStdSender(), nullptr);
  gCodes.clear();
  ReleaseModuleInterfaceInstance();
  EXPECT_TRUE(loader.unloads.empty());
  EXPECT_TRUE(gCodes.empty());
}

TEST_F(ModuleReleaseLsi, ASenderNeverMadeIsPassedOverAtRelease) {
  ASSERT_NE(getLsiIrSender(), nullptr);
  ASSERT_NE(GetModuleInterfaceInstance(), nullptr);
  ReleaseModuleInterfaceInstance();
  EXPECT_EQ(loader.unloads.size(), 1u);
}

}  // namespace
