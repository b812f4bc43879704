// Reading -Q"f,r" and --extended=... against the module's maps. The letters
// r, f and s stand for different tests in the two diagnostics, so a test is
// only looked for among the tests of the diagnostic it was written with.
#include "selection.h"

#include <algorithm>
#include <cctype>

#include "exit_status.h"
#include "run_record.h"

namespace hwc {
namespace {

std::string lowered(std::string text) {
  std::transform(text.begin(), text.end(), text.begin(),
                 [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
  return text;
}

std::string diagnosticWords(const std::map<ItemId, CliOption>& options) {
  std::string words;
  for (const auto& entry : options) {
    if (!words.empty()) words += ", ";
    words += "-" + entry.second.shortName + "/--" + entry.second.longName;
  }
  return words.empty() ? "none" : words;
}

bool sameDiagnostic(const ItemId& test, const ItemId& diagnostic) {
  return test.moduleId == diagnostic.moduleId && test.diagnosticId == diagnostic.diagnosticId;
}

std::string testWords(const std::map<ItemId, CliOption>& options, const ItemId& diagnostic) {
  std::string words;
  for (const auto& entry : options) {
    if (entry.second.kind != kCliTest || !sameDiagnostic(entry.first, diagnostic)) continue;
    if (!words.empty()) words += ", ";
    words += entry.second.shortName + " " + entry.second.longName;
  }
  return words.empty() ? "none" : words;
}

Diagnostic* findDiagnostic(ModuleInterface& module, const ItemId& id) {
  for (uint32_t d = 0; d < module.getDiagnosticCount(); ++d) {
    Diagnostic* diagnostic = module.getDiagnostic(d);
    if (diagnostic != nullptr && diagnostic->getId() == id) return diagnostic;
  }
  return nullptr;
}

std::string nameOrNumber(const std::string& key, const ItemId& id) { return key.empty() ? itemText(id) : key; }

}  // namespace

bool namesModule(const std::string& name, const Resource* resource) {
  const std::string wanted = lowered(name);
  if (resource == nullptr) return wanted == "storage";
  return wanted == lowered(resource->getModuleName()) || wanted == lowered(resource->getModuleShortName());
}

Selection resolveSelection(const std::vector<DiagnosticChoice>& choices, ModuleInterface& module) {
  Selection selection;
  if (choices.empty()) return selection;
  Resource* resource = module.getResource();
  if (resource == nullptr) {
    selection.exitStatus = kExitNothingRan;
    selection.error = "the module has no resource, so it offers no diagnostics or test letters to select; '" +
                      choices.front().argument + "' cannot be served";
    return selection;
  }
  const std::map<ItemId, CliOption> diagnosticOptions = resource->getDiagnosticOptions();
  const std::map<ItemId, CliOption> testOptions = resource->getTestOptions();

  auto add = [&selection, resource](Test* test, const ItemId& diagnosticId) {
    const ItemId id = test->getItemId();
    for (const SelectedTest& chosen : selection.tests) {
      if (chosen.id == id) return;
    }
    SelectedTest chosen;
    chosen.test = test;
    chosen.id = id;
    chosen.nameKey = nameOrNumber(resource->getTestName(id), id);
    chosen.diagnosticKey = nameOrNumber(resource->getDiagnosticName(diagnosticId), diagnosticId);
    selection.tests.push_back(chosen);
  };

  for (const DiagnosticChoice& choice : choices) {
    const ItemId* diagnosticId = nullptr;
    for (const auto& entry : diagnosticOptions) {
      const std::string& word = choice.longForm ? entry.second.longName : entry.second.shortName;
      if (entry.second.kind == kCliDiagnostic && word == choice.name) diagnosticId = &entry.first;
    }
    if (diagnosticId == nullptr) {
      selection.exitStatus = kExitUsage;
      selection.error = "unknown diagnostic '" + choice.name + "' in '" + choice.argument +
                        "' (the module offers: " + diagnosticWords(diagnosticOptions) + ")";
      return selection;
    }
    Diagnostic* diagnostic = findDiagnostic(module, *diagnosticId);
    if (diagnostic == nullptr) {
      selection.exitStatus = kExitNothingRan;
      selection.error = "the module names the diagnostic of '" + choice.argument + "' (" + itemText(*diagnosticId) +
                        ") but does not offer it";
      return selection;
    }
    if (choice.allTests) {
      for (uint32_t t = 0; t < diagnostic->getTestCount(); ++t) {
        if (Test* test = diagnostic->getTest(t)) add(test, *diagnosticId);
      }
      continue;
    }
    for (const std::string& name : choice.tests) {
      const ItemId* testId = nullptr;
      for (const auto& entry : testOptions) {
        if (entry.second.kind != kCliTest || !sameDiagnostic(entry.first, *diagnosticId)) continue;
        if (entry.second.shortName == name || entry.second.longName == name) testId = &entry.first;
      }
      if (testId == nullptr) {
        selection.exitStatus = kExitUsage;
        selection.error = "unknown test '" + name + "' in '" + choice.argument + "' (this diagnostic offers: " +
                          testWords(testOptions, *diagnosticId) + ")";
        return selection;
      }
      Test* test = diagnostic->getTestById(*testId);
      if (test == nullptr) {
        selection.exitStatus = kExitNothingRan;
        selection.error = "test '" + name + "' in '" + choice.argument + "' (" +
                          nameOrNumber(resource->getTestName(*testId), *testId) +
                          ") is not part of this build of the module";
        return selection;
      }
      add(test, *diagnosticId);
    }
  }
  return selection;
}

}  // namespace hwc
