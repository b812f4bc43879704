// The storage module's words for the host: names and tooltips of the
// diagnostics and tests, the command-line letters and words, and the help
// screen. It holds no logic and touches no device.
#pragma once

#include <map>
#include <string>

#include "module_storage/resource.h"

class StorageResource : public Resource {
 public:
  // The module builds one, with 1.0.1.
  explicit StorageResource(const ItemId& itemId);
  ~StorageResource() override;

  // Each looks up packedId alone and answers a copy, or "" for an unknown id.
  std::string getDiagnosticName(const ItemId& item) const override;
  std::string getTestName(const ItemId& item) const override;
  std::string getDiagnosticTooltip(const ItemId& item) const override;
  std::string getTestTooltip(const ItemId& item) const override;

 private:
  std::map<ItemId, std::string> diagnosticNames;
  std::map<ItemId, std::string> testNames;
  std::map<ItemId, std::string> diagnosticTooltips;
  std::map<ItemId, std::string> testTooltips;
};
