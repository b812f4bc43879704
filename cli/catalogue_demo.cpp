// Loads the module by file name through its three exports and prints what it
// offers: version, diagnostics with their tests, resource, devices and tools.
#include <dlfcn.h>

#include <cstdio>
#include <memory>

#include "module_storage/module_storage.h"

namespace {

void printItem(const char* indent, const ItemId& id, const std::string& name) {
  std::printf("%s%u.%u.%u  %s\n", indent, id.moduleId, id.diagnosticId, id.testId, name.c_str());
}

}  // namespace

int main(int argc, char** argv) {
  const char* path = argc > 1 ? argv[1] : "libmodule_storage.so";
  void* library = dlopen(path, RTLD_NOW | RTLD_LOCAL);
  if (library == nullptr) {
    std::fprintf(stderr, "cannot load %s: %s\n", path, dlerror());
    return 3;
  }
  auto getVersion = reinterpret_cast<GetProductVersionFn>(dlsym(library, "GetProductVersion"));
  auto getInstance = reinterpret_cast<GetModuleInterfaceInstanceFn>(dlsym(library, "GetModuleInterfaceInstance"));
  auto release = reinterpret_cast<ReleaseModuleInterfaceInstanceFn>(dlsym(library, "ReleaseModuleInterfaceInstance"));
  if (getVersion == nullptr || getInstance == nullptr || release == nullptr) {
    std::fprintf(stderr, "%s does not export the module's three entry points\n", path);
    return 3;
  }

  std::unique_ptr<ProductVersion> version(getVersion());
  if (version) {
    std::printf("module_storage %llu.%llu.%llu.%llu\n", static_cast<unsigned long long>(version->getMajor()),
                static_cast<unsigned long long>(version->getMinor()),
                static_cast<unsigned long long>(version->getRevision()),
                static_cast<unsigned long long>(version->getBuild()));
  }

  ModuleInterface* module = getInstance();
  if (module == nullptr) {
    std::fprintf(stderr, "the module could not build its catalogue\n");
    return 3;
  }
  Resource* resource = module->getResource();
  for (uint32_t d = 0; d < module->getDiagnosticCount(); ++d) {
    Diagnostic* diagnostic = module->getDiagnostic(d);
    if (diagnostic == nullptr) continue;
    printItem("", diagnostic->getId(), resource ? resource->getDiagnosticName(diagnostic->getId()) : "");
    for (uint32_t t = 0; t < diagnostic->getTestCount(); ++t) {
      Test* test = diagnostic->getTest(t);
      if (test == nullptr) continue;
      printItem("  ", test->getItemId(), resource ? resource->getTestName(test->getItemId()) : "");
    }
  }
  std::printf("tools: %u\n", module->getToolCount());
  if (SystemComponentManager* manager = module->getComponentManager()) {
    manager->refresh();
    std::printf("devices: %zu\n", manager->getComponentCount());
  }
  release();
  version.reset();  // its code lives in the library: destroy it before unloading
  dlclose(library);
  return 0;
}
