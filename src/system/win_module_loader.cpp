// Libraries by LoadLibraryEx, GetProcAddress and FreeLibrary.
#include "system/module_loader.h"

#include "win32/win32.h"

namespace {

// LOAD_WITH_ALTERED_SEARCH_PATH: the library's own directory is searched
// for the libraries it needs.
constexpr DWORD kAlteredSearchPath = 0x00000008;

class WinModuleLoader : public ModuleLoader {
 public:
  void* load(const std::string& path, unsigned flags) override {
    return LoadLibraryExA(path.c_str(), nullptr, flags == 1 ? kAlteredSearchPath : 0);
  }
  void* resolve(void* handle, const std::string& name) override {
    if (handle == nullptr) return nullptr;
    return reinterpret_cast<void*>(GetProcAddress(static_cast<HMODULE>(handle), name.c_str()));
  }
  void unload(void* handle) override {
    if (handle != nullptr) FreeLibrary(static_cast<HMODULE>(handle));
  }
};

ModuleLoader* gReplacement = nullptr;

}  // namespace

ModuleLoader* get_module() {
  static WinModuleLoader loader;
  return gReplacement != nullptr ? gReplacement : &loader;
}

void setModuleLoaderForTesting(ModuleLoader* replacement) { gReplacement = replacement; }
