// A host's view of the module's public interfaces. A host binds to the module
// by the order of each class's virtual operations, not by their names. This
// file never includes the module's headers: it declares every interface anew,
// in the documented table order, and calls the module's objects through those
// declarations, while the module calls the host objects declared here through
// its own headers (testing/host_view_bridge.cpp). Two operations that trade
// places in a public header make a call here land on the wrong operation, and
// the test fails: on a wrong answer, or, where the call lands on a destructor
// (as it did when ToolEventSink declared its destructor first), by dying.
//
// The destructor counts as one entry of each table, as a host compiled for
// the module's platform sees it; on this compiler it takes two slots, which
// both sides agree on since both sides are compiled by it.
#include <gtest/gtest.h>

#include <cstdint>
#include <map>
#include <string>
#include <vector>

#include "testing/host_view_bridge.h"

namespace host_view {

// Plain records, laid out as the module lays them out.
struct ItemId {
  uint16_t moduleId = 0;
  uint32_t diagnosticId = 0;
  uint32_t testId = 0;
  uint64_t packedId = 0;
  bool operator<(const ItemId& other) const { return packedId < other.packedId; }
};
inline uint64_t packed(uint64_t module, uint64_t diagnostic, uint64_t test) {
  return module << 48 | diagnostic << 24 | test;
}

struct CliOption {
  std::string shortName;
  std::string longName;
  uint32_t kind = 0;
};

struct DetailEntry {
  std::string key;
  std::string value;
};
struct DetailSection {
  std::string title;
  std::vector<DetailEntry> entries;
};
struct ComponentDescription {
  std::string name;
  std::vector<DetailEntry> details;
  std::map<std::string, std::string> attributes;
};

using TestParameters = std::map<std::string, std::map<std::string, std::string>>;
struct RejectedParameter {
  uint32_t code = 0;
  std::string section;
  std::string key;
};

// ProductVersion: destructor; getMajor; getMinor; getRevision; getBuild.
class ProductVersion {
 public:
  virtual ~ProductVersion() = default;
  virtual uint64_t getMajor() const = 0;
  virtual uint64_t getMinor() const = 0;
  virtual uint64_t getRevision() const = 0;
  virtual uint64_t getBuild() const = 0;
};

// SystemComponent: destructor; getId; getDescription; getSections; then the
// five operations that serve the host only.
class SystemComponent {
 public:
  virtual ~SystemComponent() = default;
  virtual std::string getId() const = 0;
  virtual ComponentDescription getDescription() const = 0;
  virtual std::vector<DetailSection> getSections() const = 0;
  virtual uint32_t reservedQuery() = 0;
  virtual bool reservedCheckA() = 0;
  virtual void reservedActionA() = 0;
  virtual bool reservedCheckB() = 0;
  virtual void reservedActionB() = 0;
};

// SystemComponentManager: destructor; getId; getComponentCount; getComponent;
// hasDevices; getRefreshedComponent; refresh.
class SystemComponentManager {
 public:
  virtual ~SystemComponentManager() = default;
  virtual ItemId getId() const = 0;
  virtual size_t getComponentCount() const = 0;
  virtual SystemComponent* getComponent(uint32_t index) const = 0;
  virtual bool hasDevices() = 0;
  virtual SystemComponent* getRefreshedComponent(uint32_t index) = 0;
  virtual void refresh() = 0;
};

// InputRequest: the destructor is its only virtual operation.
class InputRequest {
 public:
  virtual ~InputRequest() = default;
  uint64_t reserved = 0;
  uint32_t answer = 0;
  std::string title;
  std::string text;
  uint32_t numberA = 0;
  uint32_t numberB = 0;
  std::vector<uint64_t> choices;
};

// TestListener: destructor; onProgress; requestInput; reservedEvent;
// isInteractive.
class TestListener {
 public:
  virtual ~TestListener() = default;
  virtual void onProgress(uint8_t percent, const std::string& messageKey) = 0;
  virtual void requestInput(InputRequest& request) = 0;
  virtual void reservedEvent() = 0;
  virtual bool isInteractive() = 0;
};

// MessageLog: destructor; log.
class MessageLog {
 public:
  virtual ~MessageLog() = default;
  virtual void log(std::string message, uint32_t level, void* reserved) = 0;
};

// TestRunContext: destructor; getComponent; getMessageLog; getTestListener;
// two operations the module never calls; isAbortRequested; getSystemEvents.
class TestRunContext {
 public:
  virtual ~TestRunContext() = default;
  virtual SystemComponent* getComponent() = 0;
  virtual MessageLog* getMessageLog() = 0;
  virtual TestListener* getTestListener() = 0;
  virtual void hostOperationFive() = 0;
  virtual void hostOperationSix() = 0;
  virtual bool isAbortRequested() = 0;
  virtual const uint8_t* getSystemEvents() = 0;
};

// Test: destructor; isSupported; run; isOptionA; isOptionB; setParameters.
// The host reads `id` directly, through a non-virtual accessor.
class Test {
 public:
  virtual ~Test() = default;
  virtual bool isSupported(SystemComponent* component) = 0;
  virtual uint32_t run(TestRunContext* context) = 0;
  virtual bool isOptionA() = 0;
  virtual bool isOptionB() = 0;
  virtual bool setParameters(TestParameters parameters, std::vector<RejectedParameter>& rejected) = 0;
  ItemId id;
};

// Diagnostic: destructor; getId; getTestCount; getTest; getTestById.
class Diagnostic {
 public:
  virtual ~Diagnostic() = default;
  virtual ItemId getId() const = 0;
  virtual uint32_t getTestCount() const = 0;
  virtual Test* getTest(uint32_t index) const = 0;
  virtual Test* getTestById(const ItemId& item) const = 0;
};

// Resource: destructor; getReservedValue; the four name and tooltip lookups;
// getHelpText; getModuleName; getModuleShortName; getTestOptions;
// getDiagnosticOptions.
class Resource {
 public:
  virtual ~Resource() = default;
  virtual uint64_t getReservedValue() const = 0;
  virtual std::string getDiagnosticName(const ItemId& item) const = 0;
  virtual std::string getTestName(const ItemId& item) const = 0;
  virtual std::string getDiagnosticTooltip(const ItemId& item) const = 0;
  virtual std::string getTestTooltip(const ItemId& item) const = 0;
  virtual std::string getHelpText() const = 0;
  virtual std::string getModuleName() const = 0;
  virtual std::string getModuleShortName() const = 0;
  virtual std::map<ItemId, CliOption> getTestOptions() const = 0;
  virtual std::map<ItemId, CliOption> getDiagnosticOptions() const = 0;
};

class Tool;

// ToolAbortFlag: destructor; set; isSet.
class ToolAbortFlag {
 public:
  virtual ~ToolAbortFlag() = default;
  virtual void set(bool value) = 0;
  virtual uint8_t isSet() = 0;
};

// ToolEventSink: requestInput is its first virtual operation; the module
// also reads the public map of handlers.
class ToolEventSink {
 public:
  using Handler = void (*)(Tool* tool, std::string eventName);
  virtual void requestInput(InputRequest& request) = 0;
  virtual ~ToolEventSink() = default;
  std::map<std::string, Handler> handlers;
};

// Tool: destructor; setValues; getValues; setDevices; setContext; execute;
// getName; getDescription; getId. The host assigns the four public members
// that follow `id` directly.
class Tool {
 public:
  virtual ~Tool() = default;
  virtual void setValues(std::string key, std::vector<std::string> list) = 0;
  virtual const std::vector<std::string>* getValues(const std::string& key) const = 0;
  virtual void setDevices(std::vector<SystemComponent*> list) = 0;
  virtual void setContext(void* hostContext) = 0;
  virtual void execute() = 0;
  virtual std::string getName() const = 0;
  virtual std::string getDescription() const = 0;
  virtual std::string getId() const = 0;

  ItemId id;
  ToolAbortFlag* abortFlag = nullptr;
  const uint8_t* systemEvents = nullptr;
  uint32_t unusedWord = 0;
  ToolEventSink* listener = nullptr;
};

// ModuleInterface: destructor; getDiagnostic; getDiagnosticCount; getResource;
// getComponentManager; getTool; getToolCount; getReservedObject;
// isReservedFlagSet.
class ModuleInterface {
 public:
  virtual ~ModuleInterface() = default;
  virtual Diagnostic* getDiagnostic(uint32_t index) const = 0;
  virtual uint32_t getDiagnosticCount() const = 0;
  virtual Resource* getResource() const = 0;
  virtual SystemComponentManager* getComponentManager() const = 0;
  virtual Tool* getTool(uint32_t index) const = 0;
  virtual uint32_t getToolCount() const = 0;
  virtual void* getReservedObject() const = 0;
  virtual bool isReservedFlagSet() const = 0;
};

// Host objects, each recording what reached it.
class HostListener : public TestListener {
 public:
  void onProgress(uint8_t percent, const std::string& messageKey) override {
    calls.push_back("onProgress " + std::to_string(percent) + " " + messageKey);
  }
  void requestInput(InputRequest& request) override {
    calls.push_back("requestInput " + request.title + " " + request.text + " " + std::to_string(request.numberA) +
                    " " + std::to_string(request.numberB));
    request.answer = 5;
  }
  void reservedEvent() override { calls.push_back("reservedEvent"); }
  bool isInteractive() override {
    calls.push_back("isInteractive");
    return true;
  }
  std::vector<std::string> calls;
};

class HostLog : public MessageLog {
 public:
  void log(std::string message, uint32_t level, void* reserved) override {
    lines.push_back(message + " " + std::to_string(level) + (reserved == nullptr ? "" : " reserved"));
  }
  std::vector<std::string> lines;
};

class HostContext : public TestRunContext {
 public:
  SystemComponent* getComponent() override { return component; }
  MessageLog* getMessageLog() override { return log; }
  TestListener* getTestListener() override { return listener; }
  void hostOperationFive() override { ++unexpectedCalls; }
  void hostOperationSix() override { ++unexpectedCalls; }
  bool isAbortRequested() override { return false; }
  const uint8_t* getSystemEvents() override { return &events; }

  SystemComponent* component = nullptr;
  MessageLog* log = nullptr;
  TestListener* listener = nullptr;
  uint8_t events = 0x04;  // a bit the module ignores
  int unexpectedCalls = 0;
};

class HostAbortFlag : public ToolAbortFlag {
 public:
  void set(bool value) override {
    calls.push_back(value ? "set true" : "set false");
    flag = value ? 1 : 0;
  }
  uint8_t isSet() override { return flag; }
  uint8_t flag = 0;
  std::vector<std::string> calls;
};

class HostSink : public ToolEventSink {
 public:
  void requestInput(InputRequest& request) override {
    questions.push_back(request.title + " " + request.text);
    request.answer = 2;
  }
  std::vector<std::string> questions;
};

std::vector<std::string> firedEvents;
void recordEvent(Tool*, std::string eventName) { firedEvents.push_back(eventName); }

template <typename T>
std::string text(T* pointer) {
  return std::to_string(reinterpret_cast<uintptr_t>(pointer));
}

class HostViewOfTheModule : public ::testing::Test {
 protected:
  void SetUp() override { ASSERT_TRUE(host_view_bridge::installDefaultMachine()); }
  void TearDown() override {
    host_view_bridge::releaseModuleInterface();
    host_view_bridge::uninstallMachine();
  }
  ModuleInterface* module() { return static_cast<ModuleInterface*>(host_view_bridge::moduleInterface()); }
};

TEST_F(HostViewOfTheModule, ProductVersionAnswersInItsTableOrder) {
  auto* version = static_cast<ProductVersion*>(host_view_bridge::productVersion());
  ASSERT_NE(version, nullptr);
  EXPECT_EQ(version->getMajor(), 4u);
  EXPECT_EQ(version->getMinor(), 13u);
  EXPECT_EQ(version->getRevision(), 0u);
  EXPECT_EQ(version->getBuild(), 8834u);
  delete version;  // through the host's view of the destructor
}

TEST_F(HostViewOfTheModule, ModuleInterfaceAndDiagnosticsAnswerInTheirTableOrder) {
  ModuleInterface* modules = module();
  ASSERT_NE(modules, nullptr);
  EXPECT_EQ(modules->getDiagnosticCount(), 2u);
  EXPECT_EQ(modules->getToolCount(), 1u);
  EXPECT_EQ(modules->getReservedObject(), nullptr);
  EXPECT_FALSE(modules->isReservedFlagSet());
  EXPECT_EQ(modules->getDiagnostic(2), nullptr);
  EXPECT_EQ(modules->getTool(1), nullptr);
  ASSERT_NE(modules->getResource(), nullptr);
  ASSERT_NE(modules->getComponentManager(), nullptr);
  ASSERT_NE(modules->getTool(0), nullptr);

  Diagnostic* quick = modules->getDiagnostic(0);
  Diagnostic* extended = modules->getDiagnostic(1);
  ASSERT_NE(quick, nullptr);
  ASSERT_NE(extended, nullptr);
  EXPECT_EQ(quick->getId().packedId, packed(1, 1, 0));
  EXPECT_EQ(extended->getId().packedId, packed(1, 2, 0));
  EXPECT_EQ(quick->getTestCount(), 8u);
  EXPECT_EQ(extended->getTestCount(), 4u);
  EXPECT_EQ(quick->getTest(8), nullptr);
  host_view::Test* eighth = quick->getTest(7);
  ASSERT_NE(eighth, nullptr);
  EXPECT_EQ(eighth->id.packedId, packed(1, 1, 11));
  ItemId wanted;
  wanted.packedId = packed(1, 1, 11);
  EXPECT_EQ(quick->getTestById(wanted), eighth);
  wanted.packedId = packed(1, 2, 11);
  EXPECT_EQ(quick->getTestById(wanted), nullptr);
}

TEST_F(HostViewOfTheModule, ResourceAnswersInItsTableOrder) {
  Resource* resource = module()->getResource();
  ASSERT_NE(resource, nullptr);
  ItemId quick;
  quick.packedId = packed(1, 1, 0);
  ItemId smart;
  smart.packedId = packed(1, 1, 1);
  EXPECT_EQ(resource->getReservedValue(), 0u);
  EXPECT_EQ(resource->getDiagnosticName(quick), "QUICK_TESTS");
  EXPECT_EQ(resource->getTestName(smart), "SMART_STATUS_TEST");
  EXPECT_EQ(resource->getDiagnosticTooltip(quick), "QUICK_TESTS_TOOLTIP");
  EXPECT_EQ(resource->getTestTooltip(smart), "SMART_STATUS_TEST_TOOLTIP");
  EXPECT_EQ(resource->getHelpText().rfind("Storage Module help:", 0), 0u);
  EXPECT_EQ(resource->getModuleName(), "STORAGE");
  EXPECT_EQ(resource->getModuleShortName(), "HD");
  const std::map<ItemId, CliOption> tests = resource->getTestOptions();
  ASSERT_EQ(tests.size(), 12u);
  EXPECT_EQ(tests.at(smart).shortName, "m");
  EXPECT_EQ(tests.at(smart).longName, "smart-status");
  EXPECT_EQ(tests.at(smart).kind, 2u);
  const std::map<ItemId, CliOption> diagnostics = resource->getDiagnosticOptions();
  ASSERT_EQ(diagnostics.size(), 2u);
  EXPECT_EQ(diagnostics.at(quick).longName, "quick");
  EXPECT_EQ(diagnostics.at(quick).kind, 0u);
}

TEST_F(HostViewOfTheModule, ManagerAndComponentAnswerInTheirTableOrder) {
  SystemComponentManager* manager = module()->getComponentManager();
  ASSERT_NE(manager, nullptr);
  EXPECT_EQ(manager->getId().packedId, packed(1, 0, 1));
  EXPECT_EQ(manager->getComponentCount(), 0u);
  EXPECT_TRUE(manager->hasDevices());
  EXPECT_EQ(manager->getComponentCount(), 0u);  // hasDevices builds nothing
  manager->refresh();
  ASSERT_GT(manager->getComponentCount(), 0u);
  const uint32_t count = static_cast<uint32_t>(manager->getComponentCount());
  EXPECT_EQ(manager->getComponent(count), nullptr);
  EXPECT_EQ(manager->getRefreshedComponent(count), nullptr);
  SystemComponent* component = manager->getComponent(0);
  ASSERT_NE(component, nullptr);
  EXPECT_EQ(manager->getRefreshedComponent(0), component);

  EXPECT_FALSE(component->getId().empty());
  const ComponentDescription description = component->getDescription();
  EXPECT_FALSE(description.name.empty());
  bool hasUdi = false;
  for (const DetailEntry& entry : description.details) hasUdi = hasUdi || entry.key == "UDI";
  EXPECT_TRUE(hasUdi);
  (void)component->getSections();
  // A storage component's host-only operations: 0, true, nothing, true, nothing.
  EXPECT_EQ(component->reservedQuery(), 0u);
  EXPECT_TRUE(component->reservedCheckA());
  component->reservedActionA();
  EXPECT_TRUE(component->reservedCheckB());
  component->reservedActionB();
}

TEST_F(HostViewOfTheModule, TestRunsThroughTheHostsContextListenerAndLog) {
  ModuleInterface* modules = module();
  SystemComponentManager* manager = modules->getComponentManager();
  manager->refresh();
  SystemComponent* component = manager->getComponent(0);
  ASSERT_NE(component, nullptr);
  host_view::Test* smartStatus = modules->getDiagnostic(0)->getTest(0);
  ASSERT_NE(smartStatus, nullptr);
  ASSERT_EQ(smartStatus->id.packedId, packed(1, 1, 1));

  EXPECT_FALSE(smartStatus->isOptionA());
  EXPECT_FALSE(smartStatus->isOptionB());
  std::vector<RejectedParameter> rejected;
  EXPECT_TRUE(smartStatus->setParameters({}, rejected));
  EXPECT_TRUE(rejected.empty());
  ASSERT_TRUE(smartStatus->isSupported(component));

  HostListener listener;
  HostLog log;
  HostContext context;
  context.component = component;
  context.listener = &listener;
  context.log = &log;
  EXPECT_EQ(smartStatus->run(&context), 0u);  // SUCCESS on the built-in machine's first disk
  ASSERT_FALSE(listener.calls.empty());
  EXPECT_EQ(listener.calls.back(), "onProgress 100 ");
  EXPECT_EQ(context.unexpectedCalls, 0);
}

TEST_F(HostViewOfTheModule, ToolAnswersInItsTableOrderAndReachesTheHostsSinkAndFlag) {
  ModuleInterface* modules = module();
  SystemComponentManager* manager = modules->getComponentManager();
  manager->refresh();
  Tool* tool = modules->getTool(0);
  ASSERT_NE(tool, nullptr);
  EXPECT_EQ(tool->id.packedId, packed(50, 0, 0));
  EXPECT_EQ(tool->getName(), "RECOVER_BAD_SECTORS");
  EXPECT_EQ(tool->getDescription(), "SEARCH_FOR_AND_RECOVER_BAD_SECTORS_THAT_MAY_BE_PRESENT_IN_YOUR_STORAGE_DEVICES");
  EXPECT_EQ(tool->getId(), "recover");

  EXPECT_EQ(tool->getValues("Operation"), nullptr);
  tool->setValues("Operation", {"filterDevices"});
  const std::vector<std::string>* operation = tool->getValues("Operation");
  ASSERT_NE(operation, nullptr);
  EXPECT_EQ(*operation, std::vector<std::string>{"filterDevices"});
  std::vector<SystemComponent*> devices;
  for (uint32_t i = 0; i < manager->getComponentCount(); ++i) devices.push_back(manager->getComponent(i));
  tool->setDevices(devices);
  tool->setContext(nullptr);
  HostAbortFlag flag;
  flag.flag = 1;
  HostSink sink;
  tool->abortFlag = &flag;
  tool->listener = &sink;
  tool->execute();
  // The driver clears the host's abort flag at the start of every call.
  EXPECT_EQ(flag.calls, std::vector<std::string>{"set false"});
  const std::vector<std::string>* filter = tool->getValues("DevicesFilter");
  ASSERT_NE(filter, nullptr);
  ASSERT_EQ(filter->size(), devices.size());
  for (const std::string& answer : *filter) EXPECT_TRUE(answer == "T" || answer == "F") << answer;
  tool->abortFlag = nullptr;
  tool->listener = nullptr;
  tool->setValues("Operation", {});
}

TEST_F(HostViewOfTheModule, ModuleCallsTheHostsListenerLogAndContextInTheirTableOrder) {
  HostListener listener;
  const host_view_bridge::Observed heard = host_view_bridge::callTestListener(&listener);
  EXPECT_EQ(listener.calls, (std::vector<std::string>{"onProgress 42 KEY", "requestInput TITLE TEXT 7 9",
                                                      "reservedEvent", "isInteractive"}));
  EXPECT_EQ(heard.answer, 5u);
  EXPECT_EQ(heard.calls.back(), "isInteractive=true");

  HostLog log;
  host_view_bridge::callMessageLog(&log);
  EXPECT_EQ(log.lines, std::vector<std::string>{"LINE 2"});

  HostContext context;
  int componentStandIn = 0;
  context.component = reinterpret_cast<SystemComponent*>(&componentStandIn);
  context.log = &log;
  context.listener = &listener;
  const host_view_bridge::Observed asked = host_view_bridge::callTestRunContext(&context);
  EXPECT_EQ(asked.calls, (std::vector<std::string>{"component=" + text(&componentStandIn),
                                                   "log=" + text(static_cast<MessageLog*>(&log)),
                                                   "listener=" + text(static_cast<TestListener*>(&listener)),
                                                   "abort=false", "events=4"}));
  EXPECT_EQ(context.unexpectedCalls, 0);
}

TEST_F(HostViewOfTheModule, ModuleReachesRequestInputAsTheSinksFirstOperation) {
  HostSink sink;
  sink.handlers["OnProbe"] = &recordEvent;
  firedEvents.clear();
  int toolStandIn = 0;
  const host_view_bridge::Observed seen = host_view_bridge::callToolEventSink(&sink, &toolStandIn);
  EXPECT_EQ(sink.questions, std::vector<std::string>{"SCHEDULER_TITLE SCHEDULER_DESCRIPTION"});
  EXPECT_EQ(seen.answer, 2u);
  EXPECT_EQ(seen.calls, (std::vector<std::string>{"requestInput", "OnProbe"}));
  EXPECT_EQ(firedEvents, std::vector<std::string>{"OnProbe"});

  HostAbortFlag flag;
  const host_view_bridge::Observed flagged = host_view_bridge::callToolAbortFlag(&flag);
  EXPECT_EQ(flag.calls, (std::vector<std::string>{"set true", "set false"}));
  EXPECT_EQ(flagged.calls, (std::vector<std::string>{"isSet=1", "isSet=0"}));
}

}  // namespace host_view
