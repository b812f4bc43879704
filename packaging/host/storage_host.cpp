// The smallest host of the storage module: takes the catalogue, lists the
// disks, runs the SMART status test on each and releases the module. It sees
// only the installed public headers and links the installed library.
#include <cstdio>
#include <memory>
#include <string>

#include "module_storage/module_storage.h"

namespace {

class Listener : public TestListener {
 public:
  void onProgress(uint8_t percent, const std::string& key) override {
    last = percent;
    if (!key.empty()) message = key;
  }
  void requestInput(InputRequest& request) override { request.answer = 0; }
  void reservedEvent() override {}
  bool isInteractive() override { return false; }
  uint8_t last = 0;
  std::string message;
};

class Log : public MessageLog {
 public:
  void log(std::string message, uint32_t level, void*) override {
    std::printf("    log %u: %s\n", level, message.c_str());
  }
};

class Context : public TestRunContext {
 public:
  Context(SystemComponent* component, TestListener* listener, MessageLog* log)
      : component_(component), listener_(listener), log_(log) {}
  SystemComponent* getComponent() override { return component_; }
  MessageLog* getMessageLog() override { return log_; }
  TestListener* getTestListener() override { return listener_; }
  void reservedA() override {}
  void reservedB() override {}
  bool isAbortRequested() override { return false; }
  const uint8_t* getSystemEvents() override { return nullptr; }

 private:
  SystemComponent* component_;
  TestListener* listener_;
  MessageLog* log_;
};

}  // namespace

int main() {
  std::unique_ptr<ProductVersion> version(GetProductVersion());
  if (version == nullptr) return 2;
  std::printf("module %llu.%llu.%llu.%llu\n", static_cast<unsigned long long>(version->getMajor()),
              static_cast<unsigned long long>(version->getMinor()),
              static_cast<unsigned long long>(version->getRevision()),
              static_cast<unsigned long long>(version->getBuild()));
  ModuleInterface* module = GetModuleInterfaceInstance();
  if (module == nullptr) return 2;
  SystemComponentManager* manager = module->getComponentManager();
  if (manager == nullptr) return 2;
  manager->refresh();
  const uint32_t count = static_cast<uint32_t>(manager->getComponentCount());
  std::printf("disks %u\n", count);

  Test* smart = nullptr;
  for (uint32_t d = 0; d < module->getDiagnosticCount() && smart == nullptr; ++d) {
    Diagnostic* diagnostic = module->getDiagnostic(d);
    if (diagnostic != nullptr) smart = diagnostic->getTestById(ItemId(1, 1, 1));
  }
  if (smart == nullptr) return 2;
  int ran = 0;
  for (uint32_t i = 0; i < count; ++i) {
    SystemComponent* component = manager->getComponent(i);
    if (component == nullptr) continue;
    std::printf("disk %u: %s\n", i, component->getDescription().name.c_str());
    if (!smart->isSupported(component)) continue;
    Listener listener;
    Log log;
    Context context(component, &listener, &log);
    const uint32_t result = smart->run(&context);
    std::printf("  SMART status: %s (%u), last progress %u\n", result == SUCCESS ? "passed" : "not passed", result,
                listener.last);
    ++ran;
  }
  ReleaseModuleInterfaceInstance();
  std::printf("smart tests run %d\n", ran);
  return count > 0 && ran > 0 ? 0 : 1;
}
