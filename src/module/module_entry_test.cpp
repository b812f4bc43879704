// The exported functions in-process: version records, the instance's life,
// and the shape of the catalogue.
#include <gtest/gtest.h>

#include <memory>

#include "components/storage_component_manager.h"
#include "module/catalogue.h"
#include "scanner/win_storage_scanner.h"
#include "sim/machine.h"
#include "sim/windows/face.h"
#include "tools/recover_bad_sectors.h"
#include "module_storage/module_storage.h"

namespace {

class ModuleEntry : public ::testing::Test {
 protected:
  void TearDown() override { ReleaseModuleInterfaceInstance(); }
};

TEST_F(ModuleEntry, GetProductVersionGivesANewRecordEachCall) {
  std::unique_ptr<ProductVersion> first(GetProductVersion());
  std::unique_ptr<ProductVersion> second(GetProductVersion());
  ASSERT_NE(first, nullptr);
  ASSERT_NE(second, nullptr);
  EXPECT_NE(first.get(), second.get());
  for (const auto& version : {first.get(), second.get()}) {
    EXPECT_EQ(version->getMajor(), 4u);
    EXPECT_EQ(version->getMinor(), 13u);
    EXPECT_EQ(version->getRevision(), 0u);
    EXPECT_EQ(version->getBuild(), 8834u);
  }
}

TEST_F(ModuleEntry, InstanceIsKeptUntilReleasedThenBuiltAfresh) {
  ModuleInterface* first = GetModuleInterfaceInstance();
  ASSERT_NE(first, nullptr);
  EXPECT_EQ(GetModuleInterfaceInstance(), first);
  ReleaseModuleInterfaceInstance();
  // The allocator may hand back the same address, so the new instance is
  // judged by being whole and stable, not by its address.
  ModuleInterface* second = GetModuleInterfaceInstance();
  ASSERT_NE(second, nullptr);
  EXPECT_EQ(GetModuleInterfaceInstance(), second);
  ASSERT_EQ(second->getDiagnosticCount(), 2u);
  EXPECT_EQ(second->getDiagnostic(0)->getId(), ItemId(1, 1, 0));
}

TEST_F(ModuleEntry, TheManagerIsAStorageComponentManagerWithId101BuiltWithoutADeviceCommand) {
  std::string error;
  ASSERT_TRUE(sim::installMachine(sim::Machine::defaultMachine(), &error)) << error;
  sim::Machine* machine = sim::installedMachine();
  ASSERT_NE(machine, nullptr);
  machine->journal().clear();
  ModuleInterface* module = GetModuleInterfaceInstance();
  ASSERT_NE(module, nullptr);
  auto* manager = dynamic_cast<StorageComponentManager*>(module->getComponentManager());
  ASSERT_NE(manager, nullptr);
  EXPECT_EQ(manager->getId(), ItemId(1, 0, 1));
  EXPECT_EQ(manager->getId().packedId, ItemId(1, 0, 1).packedId);
  EXPECT_NE(dynamic_cast<WinStorageScanner*>(manager->getScanner()), nullptr);
  // Building the catalogue finds no devices and sends nothing to any drive.
  EXPECT_EQ(manager->getComponentCount(), 0u);
  EXPECT_TRUE(machine->journal().entries().empty());
  // The same identifier as the resource, which is another object.
  EXPECT_EQ(module->getResource()->getReservedValue(), 0u);
  EXPECT_NE(static_cast<void*>(module->getResource()), static_cast<void*>(manager));
  ReleaseModuleInterfaceInstance();
  sim::uninstallMachine();
}

TEST_F(ModuleEntry, ReleaseWithoutInstanceReturnsAtOnce) {
  ReleaseModuleInterfaceInstance();
  ReleaseModuleInterfaceInstance();
  ModuleInterface* module = GetModuleInterfaceInstance();
  EXPECT_NE(module, nullptr);
}

TEST_F(ModuleEntry, HasTwoDiagnosticsNoReservedObjectAndNoReservedFlag) {
  ModuleInterface* module = GetModuleInterfaceInstance();
  ASSERT_NE(module, nullptr);
  EXPECT_EQ(module->getDiagnosticCount(), 2u);
  EXPECT_EQ(module->getReservedObject(), nullptr);
  EXPECT_FALSE(module->isReservedFlagSet());
  EXPECT_EQ(module->getDiagnostic(2), nullptr);
  EXPECT_EQ(module->getTool(module->getToolCount()), nullptr);
}

TEST_F(ModuleEntry, GetToolCountIsOneAndTheToolIsRecoverWithItsBackReference) {
  ModuleInterface* module = GetModuleInterfaceInstance();
  ASSERT_NE(module, nullptr);
  EXPECT_EQ(module->getToolCount(), 1u);
  Tool* tool = module->getTool(0);
  ASSERT_NE(tool, nullptr);
  EXPECT_EQ(tool->id, ItemId(50, 0, 0));
  EXPECT_EQ(tool->getId(), "recover");
  EXPECT_EQ(tool->getName(), "RECOVER_BAD_SECTORS");
  auto* recover = dynamic_cast<RecoverBadSectors*>(tool);
  ASSERT_NE(recover, nullptr);
  EXPECT_EQ(recover->getModule(), module);
  EXPECT_EQ(module->getTool(1), nullptr);
}

TEST_F(ModuleEntry, TheToolOutlivesTheReleaseAndAFreshInstanceBringsAFreshTool) {
  Tool* first = GetModuleInterfaceInstance()->getTool(0);
  ASSERT_NE(first, nullptr);
  ReleaseModuleInterfaceInstance();
  // Not destroyed by the release: still whole and usable.
  EXPECT_EQ(first->getId(), "recover");
  first->setValues("Operation", {"filterDevices"});
  first->execute();
  ASSERT_NE(first->getValues("DevicesFilter"), nullptr);
  EXPECT_TRUE(first->getValues("DevicesFilter")->empty());

  ModuleInterface* second = GetModuleInterfaceInstance();
  ASSERT_EQ(second->getToolCount(), 1u);
  EXPECT_NE(second->getTool(0), first);
  EXPECT_EQ(dynamic_cast<RecoverBadSectors*>(second->getTool(0))->getModule(), second);
}

TEST_F(ModuleEntry, DiagnosticsAreQuickThenExtended) {
  ModuleInterface* module = GetModuleInterfaceInstance();
  EXPECT_EQ(module->getDiagnostic(0)->getId(), ItemId(1, 1, 0));
  EXPECT_EQ(module->getDiagnostic(1)->getId(), ItemId(1, 2, 0));
}

TEST_F(ModuleEntry, EachDiagnosticHoldsItsRowsInTableOrder) {
  ModuleInterface* module = GetModuleInterfaceInstance();
  std::vector<ItemId> quick;
  std::vector<ItemId> extended;
  for (const CatalogueRow& row : catalogueRows()) {
    (row.diagnosticId == 1 ? quick : extended).push_back(ItemId(1, row.diagnosticId, row.testId));
  }
  Diagnostic* quickDiagnostic = module->getDiagnostic(0);
  Diagnostic* extendedDiagnostic = module->getDiagnostic(1);
  ASSERT_EQ(quickDiagnostic->getTestCount(), quick.size());
  ASSERT_EQ(extendedDiagnostic->getTestCount(), extended.size());
  for (uint32_t i = 0; i < quick.size(); ++i) EXPECT_EQ(quickDiagnostic->getTest(i)->getItemId(), quick[i]);
  for (uint32_t i = 0; i < extended.size(); ++i) EXPECT_EQ(extendedDiagnostic->getTest(i)->getItemId(), extended[i]);
  EXPECT_EQ(quickDiagnostic->getTest(quickDiagnostic->getTestCount()), nullptr);
}

TEST_F(ModuleEntry, TestNumbersAreGlobalAcrossDiagnostics) {
  // 1.2.11 names no test: number 11 belongs to the quick diagnostic.
  ModuleInterface* module = GetModuleInterfaceInstance();
  EXPECT_EQ(module->getDiagnostic(1)->getTestById(ItemId(1, 2, 11)), nullptr);
  EXPECT_EQ(module->getDiagnostic(0)->getTestById(ItemId(1, 1, 99)), nullptr);
}

TEST_F(ModuleEntry, QuickHoldsEightTestsAndExtendedFourInCatalogueOrder) {
  ModuleInterface* module = GetModuleInterfaceInstance();
  Resource* resource = module->getResource();
  ASSERT_NE(resource, nullptr);
  struct Row {
    uint32_t test;
    const char* name;
  };
  const Row quick[] = {{1, "SMART_STATUS_TEST"}, {2, "TARGETED_READ_TEST"}, {3, "RANDOM_SEEK_TEST"},
                       {4, "FUNNEL_SEEK_TEST"},  {5, "SHORT_SELF_TEST"},    {6, "DRIVE_SELF_TEST"},
                       {7, "DEFAULT_SELF_TEST"}, {11, "DEVICE_READ_TEST"}};
  const Row extended[] = {{8, "EXTENDED_RANDOM_SEEK_TEST"},
                          {9, "EXTENDED_FUNNEL_SEEK_TEST"},
                          {10, "EXTENDED_SELF_TEST"},
                          {12, "DEVICE_WRITE_TEST"}};
  Diagnostic* quickDiagnostic = module->getDiagnostic(0);
  Diagnostic* extendedDiagnostic = module->getDiagnostic(1);
  ASSERT_EQ(quickDiagnostic->getTestCount(), 8u);
  ASSERT_EQ(extendedDiagnostic->getTestCount(), 4u);
  for (uint32_t i = 0; i < 8; ++i) {
    ::Test* test = quickDiagnostic->getTest(i);
    ASSERT_NE(test, nullptr);
    EXPECT_EQ(test->getItemId(), ItemId(1, 1, quick[i].test));
    EXPECT_EQ(resource->getTestName(test->getItemId()), quick[i].name);
  }
  for (uint32_t i = 0; i < 4; ++i) {
    ::Test* test = extendedDiagnostic->getTest(i);
    ASSERT_NE(test, nullptr);
    EXPECT_EQ(test->getItemId(), ItemId(1, 2, extended[i].test));
    EXPECT_EQ(resource->getTestName(test->getItemId()), extended[i].name);
  }
  EXPECT_EQ(quickDiagnostic->getTestById(ItemId(1, 1, 11)), quickDiagnostic->getTest(7));
  EXPECT_EQ(quickDiagnostic->getTest(8), nullptr);
}

}  // namespace
