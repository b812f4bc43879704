// Which tests a command line selects, read against the module's own
// vocabulary: diagnostics through getDiagnosticOptions, tests through
// getTestOptions, each test letter read together with its diagnostic.
#pragma once

#include <string>
#include <vector>

#include "command_line.h"
#include "module_storage/module_interface.h"

namespace hwc {

struct SelectedTest {
  Test* test = nullptr;
  ItemId id;
  std::string nameKey;        // the resource's name key, or the number
  std::string diagnosticKey;  // the resource's name key of its diagnostic
};

struct Selection {
  int exitStatus = 0;  // 0 read; 2 a word the module does not know; 3 the module can't serve it
  std::string error;
  std::vector<SelectedTest> tests;  // in command-line order, each test once
};

Selection resolveSelection(const std::vector<DiagnosticChoice>& choices, ModuleInterface& module);

// Does `name` (from -M) name this module? Compared without regard to case with
// the resource's module name and short name; "storage" when there is none.
bool namesModule(const std::string& name, const Resource* resource);

}  // namespace hwc
