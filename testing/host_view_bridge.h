// The module's side of the table-order check: hands the module's objects out
// as untyped pointers, and calls host objects through the module's own
// declarations. The other side (interface_order_test.cpp) declares every
// public interface afresh, as a host would, and never sees the module's
// headers; the only things the two sides share are this file's plain types.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace host_view_bridge {

// Installs the built-in simulated machine; false when it was refused.
bool installDefaultMachine();
void uninstallMachine();

// GetModuleInterfaceInstance and ReleaseModuleInterfaceInstance, untyped.
void* moduleInterface();
void releaseModuleInterface();
// GetProductVersion, untyped; the caller destroys it through its own view.
void* productVersion();

// What the module saw of a host object, one entry per call in the order the
// module made them.
struct Observed {
  std::vector<std::string> calls;
  uint32_t answer = 0;
};

// The module calls each operation of a host's TestListener through its own
// declaration: onProgress(42, "KEY"), requestInput with a question whose
// numbers are 7 and 9, reservedEvent, isInteractive.
Observed callTestListener(void* listener);
// log("LINE", 2, null) through the module's MessageLog.
void callMessageLog(void* log);
// Every operation of TestRunContext the module uses, in its table order:
// getComponent, getMessageLog, getTestListener, isAbortRequested,
// getSystemEvents. The answers come back as text ("component=<ptr>", ...).
Observed callTestRunContext(void* context);
// requestInput of a ToolEventSink (the first virtual operation), then the
// handler stored under "OnProbe", if any, with `tool`.
Observed callToolEventSink(void* sink, void* tool);
// set(true), isSet(), set(false), isSet() of a host's ToolAbortFlag.
Observed callToolAbortFlag(void* flag);

}  // namespace host_view_bridge
