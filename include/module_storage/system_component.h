// Components as the host sees them: a device with a name, an identity and a
// description made of key/value lists, and the manager that lists them.
#pragma once

#include <cstdint>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include "module_storage/item_id.h"

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

// A device under test. Values of the description are keys or plain text for
// the host to show; "UDI" is the device identity.
class SystemComponent {
 public:
  virtual ~SystemComponent() = default;
  virtual std::string getId() const { return id; }
  virtual ComponentDescription getDescription() const { return {name, details, attributes}; }
  virtual std::vector<DetailSection> getSections() const { return sections; }
  // Serve the host only; the module never calls them.
  virtual uint32_t reservedQuery() = 0;
  virtual bool reservedCheckA() = 0;
  virtual void reservedActionA() = 0;
  virtual bool reservedCheckB() = 0;
  virtual void reservedActionB() = 0;

 protected:
  std::string name;
  std::vector<DetailEntry> details;
  std::map<std::string, std::string> attributes;
  std::vector<DetailSection> sections;
  std::string id;
};

// Owns the components it found. refresh replaces all of them; no test may run
// meanwhile.
class SystemComponentManager {
 public:
  explicit SystemComponentManager(const ItemId& itemId) : id(itemId) {}
  virtual ~SystemComponentManager() = default;
  SystemComponentManager(const SystemComponentManager&) = delete;
  SystemComponentManager& operator=(const SystemComponentManager&) = delete;

  virtual ItemId getId() const { return id; }
  virtual size_t getComponentCount() const { return components.size(); }
  // Null when index is not below the count.
  virtual SystemComponent* getComponent(uint32_t index) const {
    return index < components.size() ? components[index].get() : nullptr;
  }
  // Whether anything on this machine can be tested, without building components.
  virtual bool hasDevices() = 0;
  // Makes the component's cached properties current; null when out of range.
  virtual SystemComponent* getRefreshedComponent(uint32_t index) = 0;
  virtual void refresh() = 0;

 protected:
  std::vector<std::unique_ptr<SystemComponent>> components;
  ItemId id;
};
