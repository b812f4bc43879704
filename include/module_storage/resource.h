// The static description of a module that a host reads to build its menus and
// command line: names, tooltips, selection letters and words, and help.
#pragma once

#include <cstdint>
#include <map>
#include <string>

#include "module_storage/item_id.h"

// How one diagnostic or test is selected on a command line.
struct CliOption {
  std::string shortName;  // one letter
  std::string longName;
  uint32_t kind = 0;      // kCliDiagnostic or kCliTest
};

constexpr uint32_t kCliDiagnostic = 0;
constexpr uint32_t kCliTest = 2;

class Resource {
 public:
  explicit Resource(const ItemId& itemId) : id(itemId) {}
  virtual ~Resource() = default;

  virtual uint64_t getReservedValue() const { return reservedValue; }
  // Each lookup answers an empty string for an item it does not know.
  virtual std::string getDiagnosticName(const ItemId& item) const = 0;
  virtual std::string getTestName(const ItemId& item) const = 0;
  virtual std::string getDiagnosticTooltip(const ItemId& item) const = 0;
  virtual std::string getTestTooltip(const ItemId& item) const = 0;
  virtual std::string getHelpText() const { return helpText; }
  virtual std::string getModuleName() const { return moduleName; }
  virtual std::string getModuleShortName() const { return moduleShortName; }
  virtual std::map<ItemId, CliOption> getTestOptions() const { return testOptions; }
  virtual std::map<ItemId, CliOption> getDiagnosticOptions() const { return diagnosticOptions; }

 protected:
  ItemId id;
  std::string helpText;
  std::string moduleName;
  std::string moduleShortName;
  std::map<ItemId, CliOption> testOptions;
  std::map<ItemId, CliOption> diagnosticOptions;
  uint64_t reservedValue = 0;
};
