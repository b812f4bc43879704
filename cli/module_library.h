// A module loaded by file name and reached through its three exports only:
// dlopen and dlsym here, LoadLibrary and GetProcAddress on Windows.
#pragma once

#include <memory>
#include <string>

#include "module_storage/module_storage.h"

namespace hwc {

class ModuleLibrary {
 public:
  ModuleLibrary() = default;
  // Releases the instance, destroys the version record and unloads, in this
  // order: the objects' code lives in the library.
  ~ModuleLibrary();
  ModuleLibrary(const ModuleLibrary&) = delete;
  ModuleLibrary& operator=(const ModuleLibrary&) = delete;

  // Loads the library and finds the three exports. False with `error` set
  // when the file cannot be loaded or lacks one of them.
  bool load(const std::string& path, std::string& error);

  // "4.13.0.8834", or empty when the module gave no version record.
  std::string versionText() const;
  // The process-wide catalogue; null when the module could not build it.
  ModuleInterface* instance();

  const std::string& path() const { return path_; }

 private:
  void* handle_ = nullptr;
  std::string path_;
  GetModuleInterfaceInstanceFn getInstance_ = nullptr;
  GetProductVersionFn getVersion_ = nullptr;
  ReleaseModuleInterfaceInstanceFn release_ = nullptr;
  std::unique_ptr<ProductVersion> version_;
  ModuleInterface* instance_ = nullptr;
};

// Where the module is looked for when --module is not given: beside the
// program, then one folder up (the build tree keeps the program in cli/),
// then by plain name through the loader's own search.
std::string defaultLibraryPath(const std::string& programPath);

// The library's file name on this platform.
const char* libraryFileName();

// Sets an environment variable for the module to read when it loads.
bool setEnvironment(const std::string& name, const std::string& value);

}  // namespace hwc
