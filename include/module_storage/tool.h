// A long-running user action offered beside the tests, driven by a key/value
// call record and talking back through named events.
#pragma once

#include <cstdint>
#include <map>
#include <string>
#include <vector>

#include "module_storage/item_id.h"

class InputRequest;
class SystemComponent;
class Tool;

// The host's abort switch for a tool run.
class ToolAbortFlag {
 public:
  virtual ~ToolAbortFlag() = default;
  virtual void set(bool value) = 0;
  virtual uint8_t isSet() = 0;
};

// The host's object behind a tool: questions, and handlers by event name.
// Firing an event looks the name up and calls the handler, if any, with the
// tool and a copy of the name; the handler reads its data with getValues under
// the name less the "On" prefix.
// requestInput is the first virtual operation and the destructor follows it:
// hosts are built to that table order, so the two must not trade places.
class ToolEventSink {
 public:
  using Handler = void (*)(Tool* tool, std::string eventName);
  // Blocks until the host has answered; the answer stands in the request.
  virtual void requestInput(InputRequest& request) = 0;
  virtual ~ToolEventSink() = default;

  std::map<std::string, Handler> handlers;
};

class Tool {
 public:
  using Values = std::map<std::string, std::vector<std::string>>;

  explicit Tool(const ItemId& itemId) : id(itemId) {}
  virtual ~Tool() = default;

  // The list replaces whatever stood under the key.
  virtual void setValues(std::string key, std::vector<std::string> list) {
    values[std::move(key)] = std::move(list);
  }
  // Null when the key is absent; valid until the key is changed.
  virtual const std::vector<std::string>* getValues(const std::string& key) const {
    auto it = values.find(key);
    return it == values.end() ? nullptr : &it->second;
  }
  virtual void setDevices(std::vector<SystemComponent*> list) { devices = std::move(list); }
  virtual void setContext(void* hostContext) { context = hostContext; }
  virtual void execute() = 0;
  virtual std::string getName() const = 0;
  virtual std::string getDescription() const = 0;
  virtual std::string getId() const = 0;

  ItemId id;
  // Assigned by the host before execute; not owned.
  ToolAbortFlag* abortFlag = nullptr;
  const uint8_t* systemEvents = nullptr;
  uint32_t unusedWord = 0;
  ToolEventSink* listener = nullptr;

 protected:
  std::vector<std::string> unusedList;
  std::vector<SystemComponent*> devices;  // borrowed; each a StorageComponent
  void* context = nullptr;
  Values unusedValues;
  Values values;  // the whole call record: inputs and outputs side by side
};
