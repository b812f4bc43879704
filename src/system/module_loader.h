// The service that loads a library by path, finds an entry point in it and
// unloads it again. The LSI controller stack loads its command libraries
// through it.
#pragma once

#include <string>

class ModuleLoader {
 public:
  virtual ~ModuleLoader() = default;
  // The library's handle, or null when it can't be loaded. `flags` 1 asks
  // for the library's own directory to be searched for what it needs.
  virtual void* load(const std::string& path, unsigned flags) = 0;
  // The address of `name` in the library, or null.
  virtual void* resolve(void* handle, const std::string& name) = 0;
  virtual void unload(void* handle) = 0;
};

// The process-wide loader, created on first use.
ModuleLoader* get_module();
// Puts another loader behind get_module() (null restores the platform's).
// For tests that script which libraries and entry points exist.
void setModuleLoaderForTesting(ModuleLoader* replacement);
