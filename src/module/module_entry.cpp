// The three exported functions: version, the process-wide catalogue, and its
// release in the order the host relies on.
#include <new>
#include <vector>

#include "module/catalogue.h"
#include "module_storage/module_storage.h"

namespace {

// The process-wide instance: a plain pointer, one host thread, no lock.
ModuleInterface* gInstance = nullptr;

// Tools outlive the release of their catalogue and stay allocated until the
// process ends; this list, never freed, is where they stay reachable.
std::vector<Tool*>& outlivingTools() {
  static auto* tools = new std::vector<Tool*>();
  return *tools;
}

constexpr uint16_t kStorageModule = 1;
constexpr uint16_t kToolModule = 50;
constexpr uint32_t kQuickDiagnostic = 1;
constexpr uint32_t kExtendedDiagnostic = 2;

ModuleInterface* buildInstance() {
  std::vector<Test*> quick;
  std::vector<Test*> extended;
  for (const CatalogueRow& row : catalogueRows()) {
    ItemId id(kStorageModule, row.diagnosticId, row.testId);
    Test* test = row.create(id);  // a failed allocation leaves a null entry
    (row.diagnosticId == kQuickDiagnostic ? quick : extended).push_back(test);
  }

  Resource* resource = createResource(ItemId(kStorageModule, 0, 1));

  std::vector<Diagnostic*> diagnostics;
  diagnostics.push_back(new (std::nothrow) Diagnostic(ItemId(kStorageModule, kQuickDiagnostic, 0), quick));
  diagnostics.push_back(new (std::nothrow) Diagnostic(ItemId(kStorageModule, kExtendedDiagnostic, 0), extended));

  SystemComponentManager* manager = createComponentManager(ItemId(kStorageModule, 0, 1));

  std::vector<Tool*> tools;
  if (Tool* tool = createRecoverTool(ItemId(kToolModule, 0, 0))) {
    tools.push_back(tool);
    outlivingTools().push_back(tool);
  }

  auto* instance = new (std::nothrow) ModuleInterface(diagnostics, resource, manager, nullptr, tools);
  if (instance != nullptr) {
    for (Tool* tool : tools) attachToolOwner(tool, instance);
  }
  return instance;
}

}  // namespace

extern "C" MODULE_STORAGE_EXPORT ProductVersion* GetProductVersion() {
  return new (std::nothrow) ProductVersion();
}

extern "C" MODULE_STORAGE_EXPORT ModuleInterface* GetModuleInterfaceInstance() {
  if (gInstance == nullptr) gInstance = buildInstance();
  return gInstance;
}

// The tool is deliberately not destroyed: it is the one catalogue item that
// outlives a release, and a host may still hold it.
extern "C" MODULE_STORAGE_EXPORT void ReleaseModuleInterfaceInstance() {
  if (gInstance == nullptr) return;
  delete gInstance->getResource();
  delete gInstance->getComponentManager();
  for (uint32_t d = 0; d < gInstance->getDiagnosticCount(); ++d) {
    Diagnostic* diagnostic = gInstance->getDiagnostic(d);
    if (diagnostic == nullptr) continue;
    for (uint32_t t = 0; t < diagnostic->getTestCount(); ++t) delete diagnostic->getTest(t);
    delete diagnostic;
  }
  delete gInstance;
  gInstance = nullptr;
}
