// The module's catalogue as the host walks it: diagnostics, resource,
// component manager and tools.
#pragma once

#include <cstdint>
#include <vector>

#include "module_storage/diagnostic.h"
#include "module_storage/resource.h"
#include "module_storage/system_component.h"
#include "module_storage/tool.h"

// Points to the catalogue's objects without owning them: the release function
// destroys them, in its own order.
class ModuleInterface {
 public:
  ModuleInterface(std::vector<Diagnostic*> diagnosticList, Resource* resourceObject,
                  SystemComponentManager* manager, void* reserved, std::vector<Tool*> toolList)
      : diagnostics(std::move(diagnosticList)),
        resource(resourceObject),
        componentManager(manager),
        reservedObject(reserved),
        tools(std::move(toolList)) {}
  virtual ~ModuleInterface() = default;

  virtual Diagnostic* getDiagnostic(uint32_t index) const {
    return index < diagnostics.size() ? diagnostics[index] : nullptr;
  }
  virtual uint32_t getDiagnosticCount() const { return static_cast<uint32_t>(diagnostics.size()); }
  virtual Resource* getResource() const { return resource; }
  virtual SystemComponentManager* getComponentManager() const { return componentManager; }
  virtual Tool* getTool(uint32_t index) const { return index < tools.size() ? tools[index] : nullptr; }
  virtual uint32_t getToolCount() const { return static_cast<uint32_t>(tools.size()); }
  virtual void* getReservedObject() const { return reservedObject; }  // always null
  virtual bool isReservedFlagSet() const { return false; }

 private:
  std::vector<Diagnostic*> diagnostics;
  Resource* resource;
  SystemComponentManager* componentManager;
  void* reservedObject;
  std::vector<Tool*> tools;
};
