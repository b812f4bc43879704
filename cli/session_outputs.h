// The files a session leaves behind besides its standard output: the HTML
// report (--report) and the metrics file (--metrics). The session hands over
// what it learns as it goes; the files are written once, when it ends.
#pragma once

#include <cstdint>
#include <cstdio>
#include <string>
#include <vector>

#include "module_storage/system_component.h"
#include "run_facts.h"

namespace hwc {

class SessionOutputs {
 public:
  // Takes the paths and checks that each can be written, before any device
  // is touched. False with `error` naming the path when one cannot.
  bool prepare(const std::string& reportPath, const std::string& metricsPath, const std::vector<std::string>& arguments,
               const std::string& machine, std::string& error);
  bool wanted() const { return !reportPath_.empty() || !metricsPath_.empty(); }

  void setModule(const std::string& name, const std::string& version, const std::string& path);
  // Borrowed until write(); the devices are read from it then, so that they
  // carry what the tests refreshed.
  void setManager(const SystemComponentManager* manager) { manager_ = manager; }
  void setRecords(const std::vector<TestRecord>& records) { facts_.records = records; }

  // Writes the files; returns one message for each file that could not be written.
  std::vector<std::string> write(int exitStatus, bool interrupted, const std::vector<std::string>& errors);

 private:
  std::string reportPath_;
  std::string metricsPath_;
  const SystemComponentManager* manager_ = nullptr;
  SessionFacts facts_;
};

// The devices as facts, skipping any the module fails to describe.
std::vector<DeviceFacts> devicesOf(const SystemComponentManager& manager);

// The start of --list: one line per disk with its index, kind, bus, model,
// size and health (when a SMART status test of this session told it).
void printDeviceLines(FILE* out, const std::vector<DeviceFacts>& devices, const std::vector<TestRecord>& records);

// "hwc_cli 4.13.0"
std::string versionText();

}  // namespace hwc
