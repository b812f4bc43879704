// The contract of a test run: the test, its parameters, and the host objects a
// run talks to (run context, listener, log, questions to the user).
#pragma once

#include <cstdint>
#include <map>
#include <string>
#include <vector>

#include "module_storage/item_id.h"
#include "module_storage/result_codes.h"

class SystemComponent;

// Section name -> key -> value. Tests read only the section "STORAGE".
using TestParameters = std::map<std::string, std::map<std::string, std::string>>;

// One parameter that setParameters refused, with the reason's code.
struct RejectedParameter {
  uint32_t code = 0;  // 1115: not a number; 1116: out of range
  std::string section;
  std::string key;
};

constexpr uint32_t kParameterNotANumber = 1115;
constexpr uint32_t kParameterOutOfRange = 1116;

// A question to the user. The host fills `answer` during requestInput.
class InputRequest {
 public:
  InputRequest(std::string titleKey, std::string textKey, uint32_t a, uint32_t b)
      : title(std::move(titleKey)), text(std::move(textKey)), numberA(a), numberB(b) {}
  virtual ~InputRequest() = default;

  uint64_t reserved = 0;  // not touched by the module
  uint32_t answer = 0;
  std::string title;
  std::string text;
  uint32_t numberA = 0;
  uint32_t numberB = 0;
  std::vector<uint64_t> choices;  // always empty
};

// Progress and questions of a run, implemented by the host. All calls come on
// the thread that called Test::run.
class TestListener {
 public:
  virtual ~TestListener() = default;
  // percent runs 0..100; messageKey is empty for a plain progress step.
  virtual void onProgress(uint8_t percent, const std::string& messageKey) = 0;
  // Blocks until the host has answered; the answer stands in the request.
  virtual void requestInput(InputRequest& request) = 0;
  virtual void reservedEvent() = 0;  // never called by the module
  // True when somebody can answer a request.
  virtual bool isInteractive() = 0;
};

// Log lines of a run, implemented by the host. `message` is a key, or a key
// joined with data; `level` is a LogLevel; `reserved` is always null.
class MessageLog {
 public:
  virtual ~MessageLog() = default;
  virtual void log(std::string message, uint32_t level, void* reserved) = 0;
};

// What the host hands to Test::run. The module calls only getComponent,
// getMessageLog, getTestListener, isAbortRequested and getSystemEvents; the
// two reserved operations keep the host's table order.
class TestRunContext {
 public:
  virtual ~TestRunContext() = default;
  virtual SystemComponent* getComponent() = 0;
  virtual MessageLog* getMessageLog() = 0;
  virtual TestListener* getTestListener() = 0;
  virtual void reservedA() = 0;
  virtual void reservedB() = 0;
  // May change from another thread; read unguarded at the test's checks.
  virtual bool isAbortRequested() = 0;
  // The host's system-event flag byte, or null when it has none.
  virtual const uint8_t* getSystemEvents() = 0;
};

// A check the module offers. Test objects are reused from run to run and hold
// no result.
class Test {
 public:
  explicit Test(const ItemId& itemId) : id(itemId) {}
  virtual ~Test() = default;

  // May this test run on this component? Never sends events to the host.
  virtual bool isSupported(SystemComponent* component) = 0;
  // Runs the test to its end on the caller's thread; returns a TestResult.
  virtual uint32_t run(TestRunContext* context) = 0;
  virtual bool isOptionA() = 0;
  virtual bool isOptionB() { return false; }
  // Takes the parameters; on false the host shows `rejected` and does not run.
  virtual bool setParameters(TestParameters parameters, std::vector<RejectedParameter>& rejected) {
    (void)parameters;
    (void)rejected;
    return true;
  }

  const ItemId& getItemId() const { return id; }

 protected:
  ItemId id;
  std::vector<uint64_t> subItems;  // never filled by this module
};
