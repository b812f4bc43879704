// The rows of the catalogue: which test stands at which place, and how the
// resource, the component manager and the tool are made.
#pragma once

#include <cstdint>
#include <vector>

#include "module_storage/module_interface.h"

// One test of the catalogue, in the order of construction.
struct CatalogueRow {
  uint32_t diagnosticId;  // 1 quick, 2 extended
  uint32_t testId;        // global over both diagnostics
  Test* (*create)(const ItemId& id);
};

// Rows whose classes stand, in catalogue order.
const std::vector<CatalogueRow>& catalogueRows();

// Each returns null when its allocation fails.
Resource* createResource(const ItemId& id);
SystemComponentManager* createComponentManager(const ItemId& id);
Tool* createRecoverTool(const ItemId& id);
// Gives the tool its back reference to the module.
void attachToolOwner(Tool* tool, ModuleInterface* owner);
