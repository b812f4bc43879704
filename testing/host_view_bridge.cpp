// The module's side of the table-order check (see host_view_bridge.h): every
// call here goes through the public headers, exactly as the module's own code
// calls a host object.
#include "testing/host_view_bridge.h"

#include <memory>

#include "module_storage/module_storage.h"
#include "sim/machine.h"
#include "sim/windows/face.h"

namespace host_view_bridge {

bool installDefaultMachine() { return sim::installMachine(sim::Machine::defaultMachine()); }

void uninstallMachine() { sim::uninstallMachine(); }

void* moduleInterface() { return GetModuleInterfaceInstance(); }

void releaseModuleInterface() { ReleaseModuleInterfaceInstance(); }

void* productVersion() { return GetProductVersion(); }

Observed callTestListener(void* host) {
  Observed seen;
  auto* listener = static_cast<TestListener*>(host);
  listener->onProgress(42, "KEY");
  seen.calls.push_back("onProgress");
  InputRequest request("TITLE", "TEXT", 7, 9);
  listener->requestInput(request);
  seen.calls.push_back("requestInput");
  seen.answer = request.answer;
  listener->reservedEvent();
  seen.calls.push_back("reservedEvent");
  seen.calls.push_back(listener->isInteractive() ? "isInteractive=true" : "isInteractive=false");
  return seen;
}

void callMessageLog(void* host) { static_cast<MessageLog*>(host)->log("LINE", LevelFailure, nullptr); }

Observed callTestRunContext(void* host) {
  Observed seen;
  auto* context = static_cast<TestRunContext*>(host);
  seen.calls.push_back("component=" + std::to_string(reinterpret_cast<uintptr_t>(context->getComponent())));
  seen.calls.push_back("log=" + std::to_string(reinterpret_cast<uintptr_t>(context->getMessageLog())));
  seen.calls.push_back("listener=" + std::to_string(reinterpret_cast<uintptr_t>(context->getTestListener())));
  seen.calls.push_back(context->isAbortRequested() ? "abort=true" : "abort=false");
  const uint8_t* events = context->getSystemEvents();
  seen.calls.push_back(events == nullptr ? "events=null" : "events=" + std::to_string(*events));
  return seen;
}

Observed callToolEventSink(void* host, void* tool) {
  Observed seen;
  auto* sink = static_cast<ToolEventSink*>(host);
  InputRequest request("SCHEDULER_TITLE", "SCHEDULER_DESCRIPTION", 1, 0);
  sink->requestInput(request);
  seen.calls.push_back("requestInput");
  seen.answer = request.answer;
  const auto handler = sink->handlers.find("OnProbe");
  if (handler != sink->handlers.end()) {
    handler->second(static_cast<Tool*>(tool), handler->first);
    seen.calls.push_back("OnProbe");
  }
  return seen;
}

Observed callToolAbortFlag(void* host) {
  Observed seen;
  auto* flag = static_cast<ToolAbortFlag*>(host);
  flag->set(true);
  seen.calls.push_back("isSet=" + std::to_string(flag->isSet()));
  flag->set(false);
  seen.calls.push_back("isSet=" + std::to_string(flag->isSet()));
  return seen;
}

}  // namespace host_view_bridge
