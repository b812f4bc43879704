// Loading the LSI command libraries and calling their entry point.
#include "raid/lsi/lsi_sender.h"

#include <memory>

#include "system/filesystem.h"
#include "system/number_handler.h"

namespace {

LsiSender* gStdSender = nullptr;
LsiSender* gIrSender = nullptr;
LsiSender* gIr2Sender = nullptr;

// Loads the flavour's file from the module's directory, finds its entry
// point and starts the library. Null, with the file unloaded again, when
// any step fails.
template <typename Flavour>
LsiSender* load(LsiSender*& instance) {
  if (instance != nullptr) return instance;
  ModuleLoader* loader = get_module();
  if (loader == nullptr) return nullptr;
  const char* directory = getFilesystem().getExecutableDirectory();
  const std::string path = std::string(directory != nullptr ? directory : "") + "\\" + Flavour::kFile;
  void* library = loader->load(path, 1);
  if (library == nullptr) return nullptr;
  auto entry = reinterpret_cast<LsiEntryPoint>(loader->resolve(library, Flavour::kEntry));
  if (entry == nullptr) {
    loader->unload(library);
    return nullptr;
  }
  auto sender = std::make_unique<Flavour>(library, entry);
  uint8_t buffer[kLsiStartLibraryBytes] = {};
  LsiCmd start;
  makeStartLibrary(start, buffer);
  if (sender->execute(start) != 0) {
    sender.reset();
    loader->unload(library);
    return nullptr;
  }
  instance = sender.release();
  return instance;
}

void release(LsiSender*& instance) {
  if (instance == nullptr) return;
  ModuleLoader* loader = get_module();
  instance->cleanUp(loader);
  void* library = instance->getLibrary();
  delete instance;
  instance = nullptr;
  if (loader != nullptr) loader->unload(library);
}

}  // namespace

LsiSender::LsiSender(void* libraryHandle, LsiEntryPoint entryPoint) : library(libraryHandle), entry(entryPoint) {}

LsiSender::~LsiSender() = default;

uint32_t LsiSender::execute(LsiCmd& record) {
  const uint32_t result = entry != nullptr ? entry(&record) : 1;
  // Kept for a debugger; it reaches no log.
  const std::string text =
      std::string(className()) + "::execute STOP with error " + getNumberHandler().uint64ToString(result);
  (void)text;
  return result;
}

void LsiSender::cleanUp(ModuleLoader*) {
  LsiCmd freeLibrary;
  makeFreeLibrary(freeLibrary);
  execute(freeLibrary);
}

LsiSender* getLsiStdSender() { return load<LsiStdSender>(gStdSender); }
LsiSender* getLsiIrSender() { return load<LsiIrSender>(gIrSender); }
LsiSender* getLsiIr2Sender() { return load<LsiIr2Sender>(gIr2Sender); }

void releaseLsiStdSender() { release(gStdSender); }
void releaseLsiIrSender() { release(gIrSender); }
void releaseLsiIr2Sender() { release(gIr2Sender); }
