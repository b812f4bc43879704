// What hwc_cli tells at the end and in --list: the catalogue, the devices,
// the summary table, the exit status, and the same as JSON.
#pragma once

#include <cstdio>
#include <string>
#include <vector>

#include <nlohmann/json.hpp>

#include "module_storage/module_interface.h"
#include "run_record.h"

namespace hwc {

// The exit status of a session: 1 when a test FAILED, else 5 when a device
// stopped answering, else 4 when a test was ABORTED or the user stopped the
// session, else 0 when a test passed (or ended with a WARNING, which says
// nothing against the device), else 3.
int exitStatusOf(const std::vector<TestRecord>& records, bool interrupted);

// One line per test on each device, then the counts.
void printSummary(FILE* out, const std::vector<TestRecord>& records);

// The verdict of one record as a person reads it: "Passed", "Not supported on this device"...
std::string verdictText(const TestRecord& record);

void printDevice(FILE* out, uint32_t index, const SystemComponent& component);
void printCatalogue(FILE* out, ModuleInterface& module);

nlohmann::json deviceJson(uint32_t index, const SystemComponent& component);
nlohmann::json catalogueJson(ModuleInterface& module);
nlohmann::json recordJson(const TestRecord& record);

// The document as text; bytes that are no UTF-8 are replaced, never fatal.
std::string dumpJson(const nlohmann::json& document);
// The same on one line, for --json-lines.
std::string dumpJsonLine(const nlohmann::json& document);

// The version of the JSON that --json and --json-lines write
// (docs/hwc_cli-json.schema.json). It grows when a key changes its meaning
// or type; added keys leave it alone.
constexpr int kJsonSchemaVersion = 1;

// A list as hwc_cli shows it: "A, B, A" as "A, B". The module's own text
// keeps its repeats; --json gives it as it stands.
std::string withoutRepeats(const std::string& list);

// The number a decimal text stands for, or the text itself: "12" gives 12,
// "12 GB" stays "12 GB".
nlohmann::json numberOrText(const std::string& text);

}  // namespace hwc
