// Firing a tool's named events at the host's sink, and storing the progress
// that goes with OnProgress.
#pragma once

#include <string>

#include "module_storage/tool.h"

// Looks the name up among the sink's handlers and, if one is there, calls it
// with the tool and a copy of the name. A null sink or an unknown name does
// nothing.
inline void fireToolEvent(Tool* tool, ToolEventSink* sink, const std::string& eventName) {
  if (sink == nullptr) return;
  auto it = sink->handlers.find(eventName);
  if (it == sink->handlers.end() || it->second == nullptr) return;
  it->second(tool, eventName);
}
