// Listing, summary and JSON. Keys stay keys in the JSON document (scripts
// match on them) and each gets its English words beside it.
#include "report.h"

#include <algorithm>

#include "exit_status.h"
#include "messages.h"

namespace hwc {
namespace {

const char* outcomeName(RunOutcome outcome) {
  switch (outcome) {
    case RunOutcome::Ran: return "ran";
    case RunOutcome::NotSupported: return "not-supported";
    case RunOutcome::NotRun: return "not-run";
    case RunOutcome::Error: return "error";
  }
  return "";
}

// The result a record counts as: a test that isSupported refused counts as
// not applicable, a module error as invalid.
uint32_t countedResult(const TestRecord& record) {
  switch (record.outcome) {
    case RunOutcome::Ran: return record.result;
    case RunOutcome::NotSupported: return NOT_APPLICABLE;
    case RunOutcome::Error: return INVALID;
    case RunOutcome::NotRun: break;
  }
  return ABORTED;
}

std::string clip(const std::string& text, size_t width) {
  if (text.size() <= width) return text;
  return text.substr(0, width - 3) + "...";
}

// A value as a person reads it: its words, each entry of a list once.
std::string shownValue(const std::string& value) { return withoutRepeats(describeValue(value)); }

void printEntries(FILE* out, const char* indent, const std::vector<DetailEntry>& entries) {
  for (const DetailEntry& entry : entries) {
    std::fprintf(out, "%s%s: %s\n", indent, textOf(entry.key).c_str(), shownValue(entry.value).c_str());
  }
}

// "value" is the module's text as it stands; "number" is there when that
// text is a plain decimal number, so that a script need not parse it.
nlohmann::json entriesJson(const std::vector<DetailEntry>& entries) {
  nlohmann::json list = nlohmann::json::array();
  for (const DetailEntry& entry : entries) {
    nlohmann::json item = {{"key", entry.key}, {"value", entry.value}, {"label", textOf(entry.key)},
                           {"text", shownValue(entry.value)}};
    const nlohmann::json number = numberOrText(entry.value);
    if (number.is_number()) item["number"] = number;
    list.push_back(item);
  }
  return list;
}

bool mentionsLostDevice(const std::string& text) { return text.find("DEVICE_COMMUNICATION_FAILURE") != std::string::npos; }

std::string nameOf(const Resource* resource, const ItemId& id, bool diagnostic) {
  if (resource == nullptr) return "";
  return diagnostic ? resource->getDiagnosticName(id) : resource->getTestName(id);
}

const CliOption* optionOf(const std::map<ItemId, CliOption>& options, const ItemId& id) {
  auto it = options.find(id);
  return it == options.end() ? nullptr : &it->second;
}

}  // namespace

std::string TestRecord::lastMessage() const {
  for (auto it = events.rbegin(); it != events.rend(); ++it) {
    if (!it->key.empty()) return it->key;
  }
  for (auto it = log.rbegin(); it != log.rend(); ++it) {
    if (!it->message.empty()) return it->message;
  }
  return "";
}

bool TestRecord::deviceLost() const {
  if (outcome != RunOutcome::Ran || result != ABORTED) return false;
  for (const ProgressRecord& event : events) {
    if (mentionsLostDevice(event.key)) return true;
  }
  for (const LogRecord& line : log) {
    if (mentionsLostDevice(line.message)) return true;
  }
  return false;
}

std::string withoutRepeats(const std::string& list) {
  static const std::string kSeparator = ", ";
  if (list.find(kSeparator) == std::string::npos) return list;
  std::vector<std::string> items;
  size_t from = 0;
  while (true) {
    const size_t at = list.find(kSeparator, from);
    std::string item = list.substr(from, at == std::string::npos ? std::string::npos : at - from);
    if (std::find(items.begin(), items.end(), item) == items.end()) items.push_back(std::move(item));
    if (at == std::string::npos) break;
    from = at + kSeparator.size();
  }
  std::string shown;
  for (const std::string& item : items) shown += (shown.empty() ? "" : kSeparator) + item;
  return shown;
}

nlohmann::json numberOrText(const std::string& text) {
  if (text.empty() || text.size() > 19 || text.find_first_not_of("0123456789") != std::string::npos) {
    return text;
  }
  if (text.size() > 1 && text[0] == '0') return text;  // "007" is a name, not a number
  return std::stoull(text);
}

std::string itemText(const ItemId& id) {
  return std::to_string(id.moduleId) + "." + std::to_string(id.diagnosticId) + "." + std::to_string(id.testId);
}

int exitStatusOf(const std::vector<TestRecord>& records, bool interrupted) {
  bool failed = false;
  bool lost = false;
  bool aborted = interrupted;
  bool passed = false;
  for (const TestRecord& record : records) {
    if (record.outcome != RunOutcome::Ran) continue;
    failed = failed || record.result == FAILED;
    lost = lost || record.deviceLost();
    aborted = aborted || record.result == ABORTED;
    passed = passed || record.result == SUCCESS || record.result == WARNING;
  }
  if (failed) return kExitFailed;
  if (lost) return kExitDeviceLost;
  if (aborted) return kExitAborted;
  if (passed) return kExitPassed;
  return kExitNothingRan;
}

std::string verdictText(const TestRecord& record) {
  switch (record.outcome) {
    case RunOutcome::Ran: return record.deviceLost() ? "Aborted: the device stopped answering" : resultText(record.result);
    case RunOutcome::NotSupported: return "Not supported on this device";
    case RunOutcome::NotRun: return "Not run (stopped)";
    case RunOutcome::Error: return "Error in the module";
  }
  return "";
}

void printSummary(FILE* out, const std::vector<TestRecord>& records) {
  std::fprintf(out, "\nSummary\n");
  if (records.empty()) {
    std::fprintf(out, "  no test was run\n");
    return;
  }
  struct Row {
    std::string device, name, test, verdict, message;
  };
  std::vector<Row> rows;
  size_t widths[4] = {3, 6, 4, 6};
  for (const TestRecord& record : records) {
    Row row{std::to_string(record.deviceIndex), clip(record.deviceName, 28), textOf(record.testKey),
            verdictText(record), ""};
    const std::string last = record.lastMessage();
    if (record.outcome == RunOutcome::Error) {
      row.message = record.errorText;
    } else if (!last.empty()) {
      row.message = describeMessage(last);
    }
    widths[0] = std::max(widths[0], row.device.size());
    widths[1] = std::max(widths[1], row.name.size());
    widths[2] = std::max(widths[2], row.test.size());
    widths[3] = std::max(widths[3], row.verdict.size());
    rows.push_back(row);
  }
  auto line = [&](const Row& row) {
    auto cell = [](const std::string& text, size_t width) { return text + std::string(width - text.size(), ' '); };
    std::string text = "  " + cell(row.device, widths[0]) + "  " + cell(row.name, widths[1]) + "  " +
                       cell(row.test, widths[2]) + "  " + cell(row.verdict, widths[3]) + "  " + row.message;
    text.erase(text.find_last_not_of(' ') + 1);
    std::fprintf(out, "%s\n", text.c_str());
  };
  line({"Dev", "Device", "Test", "Result", "Message"});
  for (const Row& row : rows) line(row);

  int counts[7] = {};
  int notRun = 0;
  for (const TestRecord& record : records) {
    if (record.outcome == RunOutcome::NotRun) {
      ++notRun;
      continue;
    }
    uint32_t result = countedResult(record);
    if (result < 7) ++counts[result];
  }
  std::fprintf(out, "  passed %d, failed %d, not applicable %d, aborted %d, warning %d, invalid %d, not run %d\n",
               counts[SUCCESS], counts[FAILED], counts[NOT_APPLICABLE], counts[ABORTED], counts[WARNING],
               counts[INVALID], notRun);
}

void printDevice(FILE* out, uint32_t index, const SystemComponent& component) {
  const ComponentDescription description = component.getDescription();
  std::fprintf(out, "  [%u] %s  (id %s)\n", index, describeValue(description.name).c_str(),
               component.getId().c_str());
  printEntries(out, "      ", description.details);
  for (const auto& attribute : description.attributes) {
    std::fprintf(out, "      %s: %s\n", textOf(attribute.first).c_str(), shownValue(attribute.second).c_str());
  }
  for (const DetailSection& section : component.getSections()) {
    std::fprintf(out, "      %s\n", textOf(section.title).c_str());
    printEntries(out, "        ", section.entries);
  }
}

void printCatalogue(FILE* out, ModuleInterface& module) {
  const Resource* resource = module.getResource();
  const std::map<ItemId, CliOption> diagnosticOptions =
      resource != nullptr ? resource->getDiagnosticOptions() : std::map<ItemId, CliOption>{};
  const std::map<ItemId, CliOption> testOptions =
      resource != nullptr ? resource->getTestOptions() : std::map<ItemId, CliOption>{};
  std::fprintf(out, "Diagnostics:\n");
  if (resource == nullptr) std::fprintf(out, "  (the module has no resource: no names or letters to select by)\n");
  for (uint32_t d = 0; d < module.getDiagnosticCount(); ++d) {
    Diagnostic* diagnostic = module.getDiagnostic(d);
    if (diagnostic == nullptr) continue;
    const ItemId id = diagnostic->getId();
    const CliOption* option = optionOf(diagnosticOptions, id);
    const std::string name = nameOf(resource, id, true);
    std::fprintf(out, "  %s  %s%s\n", itemText(id).c_str(),
                 option != nullptr ? ("-" + option->shortName + ", --" + option->longName + "  ").c_str() : "",
                 name.empty() ? "" : textOf(name).c_str());
    if (diagnostic->getTestCount() == 0) std::fprintf(out, "      (no tests)\n");
    for (uint32_t t = 0; t < diagnostic->getTestCount(); ++t) {
      Test* test = diagnostic->getTest(t);
      if (test == nullptr) continue;
      const ItemId testId = test->getItemId();
      const CliOption* testOption = optionOf(testOptions, testId);
      const std::string testName = nameOf(resource, testId, false);
      std::fprintf(out, "      %-7s %-2s %-28s %s\n", itemText(testId).c_str(),
                   testOption != nullptr ? testOption->shortName.c_str() : "",
                   testOption != nullptr ? testOption->longName.c_str() : "",
                   testName.empty() ? "" : textOf(testName).c_str());
    }
  }
  std::fprintf(out, "Tools:\n");
  if (module.getToolCount() == 0) std::fprintf(out, "  (none)\n");
  for (uint32_t t = 0; t < module.getToolCount(); ++t) {
    Tool* tool = module.getTool(t);
    if (tool == nullptr) continue;
    std::fprintf(out, "  %s  %s: %s\n", tool->getId().c_str(), textOf(tool->getName()).c_str(),
                 textOf(tool->getDescription()).c_str());
  }
}

nlohmann::json deviceJson(uint32_t index, const SystemComponent& component) {
  const ComponentDescription description = component.getDescription();
  nlohmann::json attributes = nlohmann::json::object();
  for (const auto& attribute : description.attributes) attributes[attribute.first] = attribute.second;
  nlohmann::json sections = nlohmann::json::array();
  for (const DetailSection& section : component.getSections()) {
    sections.push_back({{"title", section.title}, {"label", textOf(section.title)}, {"entries", entriesJson(section.entries)}});
  }
  return {{"index", index},         {"id", component.getId()},          {"name", description.name},
          {"details", entriesJson(description.details)}, {"attributes", attributes}, {"sections", sections}};
}

nlohmann::json catalogueJson(ModuleInterface& module) {
  const Resource* resource = module.getResource();
  const std::map<ItemId, CliOption> diagnosticOptions =
      resource != nullptr ? resource->getDiagnosticOptions() : std::map<ItemId, CliOption>{};
  const std::map<ItemId, CliOption> testOptions =
      resource != nullptr ? resource->getTestOptions() : std::map<ItemId, CliOption>{};
  nlohmann::json diagnostics = nlohmann::json::array();
  for (uint32_t d = 0; d < module.getDiagnosticCount(); ++d) {
    Diagnostic* diagnostic = module.getDiagnostic(d);
    if (diagnostic == nullptr) continue;
    const ItemId id = diagnostic->getId();
    nlohmann::json tests = nlohmann::json::array();
    for (uint32_t t = 0; t < diagnostic->getTestCount(); ++t) {
      Test* test = diagnostic->getTest(t);
      if (test == nullptr) continue;
      const ItemId testId = test->getItemId();
      const CliOption* option = optionOf(testOptions, testId);
      const std::string name = nameOf(resource, testId, false);
      tests.push_back({{"id", itemText(testId)},
                       {"name", name},
                       {"text", textOf(name)},
                       {"letter", option != nullptr ? option->shortName : ""},
                       {"longName", option != nullptr ? option->longName : ""}});
    }
    const CliOption* option = optionOf(diagnosticOptions, id);
    const std::string name = nameOf(resource, id, true);
    diagnostics.push_back({{"id", itemText(id)},
                           {"name", name},
                           {"text", textOf(name)},
                           {"letter", option != nullptr ? option->shortName : ""},
                           {"longName", option != nullptr ? option->longName : ""},
                           {"tests", tests}});
  }
  nlohmann::json tools = nlohmann::json::array();
  for (uint32_t t = 0; t < module.getToolCount(); ++t) {
    if (Tool* tool = module.getTool(t)) {
      tools.push_back({{"id", tool->getId()}, {"name", tool->getName()}, {"description", tool->getDescription()}});
    }
  }
  return {{"diagnostics", diagnostics}, {"tools", tools}};
}

nlohmann::json recordJson(const TestRecord& record) {
  nlohmann::json events = nlohmann::json::array();
  for (const ProgressRecord& event : record.events) {
    events.push_back({{"percent", event.percent}, {"key", event.key}, {"text", describeMessage(event.key)}});
  }
  nlohmann::json log = nlohmann::json::array();
  for (const LogRecord& line : record.log) {
    log.push_back({{"level", line.level},
                   {"levelText", levelText(line.level)},
                   {"message", line.message},
                   {"text", describeMessage(line.message)}});
  }
  nlohmann::json questions = nlohmann::json::array();
  for (const QuestionRecord& question : record.questions) {
    questions.push_back({{"title", question.title},
                         {"text", question.text},
                         {"numberA", question.numberA},
                         {"numberB", question.numberB},
                         {"answer", question.answer},
                         {"answeredBy", question.answeredBy}});
  }
  nlohmann::json document = {{"device", record.deviceIndex},
                             {"deviceId", record.deviceId},
                             {"deviceName", record.deviceName},
                             {"test", itemText(record.testId)},
                             {"name", record.testKey},
                             {"text", textOf(record.testKey)},
                             {"diagnostic", record.diagnosticKey},
                             {"outcome", outcomeName(record.outcome)},
                             {"verdict", verdictText(record)},
                             {"message", record.lastMessage()},
                             {"events", events},
                             {"log", log},
                             {"questions", questions}};
  if (record.outcome == RunOutcome::Ran) {
    document["result"] = record.result;
    document["resultName"] = resultKey(record.result);
  } else if (record.outcome == RunOutcome::NotRun) {
    document["result"] = nullptr;
    document["resultName"] = nullptr;
  } else {
    document["result"] = nullptr;
    document["resultName"] = resultKey(countedResult(record));
  }
  if (record.outcome == RunOutcome::Error) document["error"] = record.errorText;
  document["deviceLost"] = record.deviceLost();
  return document;
}

std::string dumpJson(const nlohmann::json& document) {
  return document.dump(2, ' ', false, nlohmann::json::error_handler_t::replace);
}

std::string dumpJsonLine(const nlohmann::json& document) {
  return document.dump(-1, ' ', false, nlohmann::json::error_handler_t::replace);
}

}  // namespace hwc
