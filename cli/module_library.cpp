// Loading the module: the only platform-specific code of the front end
// besides the Ctrl-C handler.
#include "module_library.h"

#include <sys/stat.h>

#include <cstdlib>

#if defined(_WIN32)
#include <windows.h>
#else
#include <dlfcn.h>
#include <unistd.h>
#endif

namespace hwc {
namespace {

bool fileExists(const std::string& path) {
  struct stat info {};
  return stat(path.c_str(), &info) == 0;
}

void* openLibrary(const std::string& path, std::string& error) {
#if defined(_WIN32)
  HMODULE module = LoadLibraryA(path.c_str());
  if (module == nullptr) error = "error " + std::to_string(GetLastError());
  return reinterpret_cast<void*>(module);
#else
  // RTLD_NODELETE keeps the code mapped after dlclose: the module's tool
  // outlives the release of its catalogue, and what the module's libraries
  // keep in their globals stays reachable to the end of the process.
  void* handle = dlopen(path.c_str(), RTLD_NOW | RTLD_LOCAL | RTLD_NODELETE);
  if (handle == nullptr) {
    const char* text = dlerror();
    error = text != nullptr ? text : "unknown loader error";
  }
  return handle;
#endif
}

void* findSymbol(void* handle, const char* name) {
#if defined(_WIN32)
  return reinterpret_cast<void*>(GetProcAddress(reinterpret_cast<HMODULE>(handle), name));
#else
  return dlsym(handle, name);
#endif
}

void closeLibrary(void* handle) {
#if defined(_WIN32)
  FreeLibrary(reinterpret_cast<HMODULE>(handle));
#else
  dlclose(handle);
#endif
}

std::string folderOf(const std::string& path) {
  size_t slash = path.find_last_of("/\\");
  return slash == std::string::npos ? std::string(".") : path.substr(0, slash);
}

// The program's own file, found the platform's way; argv[0] otherwise.
std::string programFile(const std::string& argv0) {
#if defined(_WIN32)
  char buffer[MAX_PATH] = {};
  DWORD length = GetModuleFileNameA(nullptr, buffer, MAX_PATH);
  if (length > 0 && length < MAX_PATH) return std::string(buffer, length);
#else
  char buffer[4096] = {};
  ssize_t length = readlink("/proc/self/exe", buffer, sizeof(buffer) - 1);
  if (length > 0) return std::string(buffer, static_cast<size_t>(length));
#endif
  return argv0;
}

// The path without "..", for messages; as given when it cannot be resolved.
std::string normalPath(const std::string& path) {
#if defined(_WIN32)
  char buffer[MAX_PATH] = {};
  DWORD length = GetFullPathNameA(path.c_str(), MAX_PATH, buffer, nullptr);
  return length > 0 && length < MAX_PATH ? std::string(buffer, length) : path;
#else
  char* resolved = realpath(path.c_str(), nullptr);
  if (resolved == nullptr) return path;
  std::string result(resolved);
  free(resolved);
  return result;
#endif
}

template <typename Fn>
Fn asFunction(void* symbol) {
  return reinterpret_cast<Fn>(symbol);
}

}  // namespace

#ifndef HWC_CLI_INSTALLED_LIBDIR
#define HWC_CLI_INSTALLED_LIBDIR "lib"
#endif

const char* libraryFileName() {
#if defined(_WIN32)
  return "module_storage.dll";
#else
  return "libmodule_storage.so";
#endif
}

std::string defaultLibraryPath(const std::string& programPath) {
  const std::string folder = folderOf(programFile(programPath));
  // Beside the program, one folder up (the build tree), and where an
  // installation puts libraries beside its bin folder.
  for (const std::string& candidate : {folder + "/" + libraryFileName(), folder + "/../" + libraryFileName(),
                                       folder + "/../" + HWC_CLI_INSTALLED_LIBDIR + "/" + libraryFileName()}) {
    if (fileExists(candidate)) return normalPath(candidate);
  }
  return libraryFileName();
}

bool setEnvironment(const std::string& name, const std::string& value) {
#if defined(_WIN32)
  return _putenv_s(name.c_str(), value.c_str()) == 0;
#else
  return setenv(name.c_str(), value.c_str(), 1) == 0;
#endif
}

ModuleLibrary::~ModuleLibrary() {
  if (handle_ == nullptr) return;
  if (instance_ != nullptr && release_ != nullptr) release_();
  version_.reset();
  closeLibrary(handle_);
}

bool ModuleLibrary::load(const std::string& path, std::string& error) {
  path_ = path;
  std::string loaderError;
  handle_ = openLibrary(path, loaderError);
  if (handle_ == nullptr) {
    error = "cannot load the module '" + path + "': " + loaderError;
    return false;
  }
  getInstance_ = asFunction<GetModuleInterfaceInstanceFn>(findSymbol(handle_, "GetModuleInterfaceInstance"));
  getVersion_ = asFunction<GetProductVersionFn>(findSymbol(handle_, "GetProductVersion"));
  release_ = asFunction<ReleaseModuleInterfaceInstanceFn>(findSymbol(handle_, "ReleaseModuleInterfaceInstance"));
  if (getInstance_ == nullptr || getVersion_ == nullptr || release_ == nullptr) {
    error = "'" + path + "' is not a module: it lacks GetModuleInterfaceInstance, GetProductVersion or "
            "ReleaseModuleInterfaceInstance";
    return false;
  }
  version_.reset(getVersion_());
  return true;
}

std::string ModuleLibrary::versionText() const {
  if (!version_) return "";
  return std::to_string(version_->getMajor()) + "." + std::to_string(version_->getMinor()) + "." +
         std::to_string(version_->getRevision()) + "." + std::to_string(version_->getBuild());
}

ModuleInterface* ModuleLibrary::instance() {
  if (instance_ == nullptr && getInstance_ != nullptr) instance_ = getInstance_();
  return instance_;
}

}  // namespace hwc
