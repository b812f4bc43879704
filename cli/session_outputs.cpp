// Writing the report and metrics files of a session, and the one-line disk
// list that starts --list.
#include "session_outputs.h"

#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <ctime>
#include <exception>

#include "html_report.h"
#include "messages.h"
#include "metrics.h"

#ifndef HWC_CLI_VERSION
#define HWC_CLI_VERSION "unknown"
#endif

namespace hwc {
namespace {

#if defined(_WIN32)
// Windows folders have no search right to ask for, and both slashes separate.
constexpr int kFolderAccess = W_OK;
constexpr const char* kSeparators = "/\\";
#else
constexpr int kFolderAccess = W_OK | X_OK;
constexpr const char* kSeparators = "/";
#endif

// The folder of a path must exist and take new files, and the path itself,
// if it exists, must be a file that can be replaced.
bool checkWritable(const std::string& path, const char* option, std::string& error) {
  if (path.empty()) return true;
  const size_t slash = path.find_last_of(kSeparators);
  const std::string folder = slash == std::string::npos ? "." : slash == 0 ? "/" : path.substr(0, slash);
  if (slash != std::string::npos && slash + 1 == path.size()) {
    error = "'" + path + "' given to " + option + " is a folder, not a file name";
    return false;
  }
  if (access(folder.c_str(), kFolderAccess) != 0) {
    error = "cannot write '" + path + "' given to " + option + ": folder '" + folder + "': " + std::strerror(errno);
    return false;
  }
  if (access(path.c_str(), F_OK) == 0 && access(path.c_str(), W_OK) != 0) {
    error = "cannot write '" + path + "' given to " + option + ": " + std::strerror(errno);
    return false;
  }
  return true;
}

std::string column(const std::string& text, size_t width) {
  if (text.size() >= width) return text;
  return text + std::string(width - text.size(), ' ');
}

}  // namespace

std::string versionText() { return std::string("hwc_cli ") + HWC_CLI_VERSION; }

bool SessionOutputs::prepare(const std::string& reportPath, const std::string& metricsPath,
                             const std::vector<std::string>& arguments, const std::string& machine,
                             std::string& error) {
  if (!checkWritable(reportPath, "--report", error) || !checkWritable(metricsPath, "--metrics", error)) return false;
  if (!reportPath.empty() && reportPath == metricsPath) {
    error = "--report and --metrics name the same file '" + reportPath + "'";
    return false;
  }
  reportPath_ = reportPath;
  metricsPath_ = metricsPath;
  facts_.arguments = arguments;
  facts_.machine = machine;
  facts_.programVersion = HWC_CLI_VERSION;
  facts_.startedUnixSeconds = static_cast<uint64_t>(std::time(nullptr));
  return true;
}

void SessionOutputs::setModule(const std::string& name, const std::string& version, const std::string& path) {
  facts_.moduleName = name;
  facts_.moduleVersion = version;
  facts_.modulePath = path;
}

std::vector<DeviceFacts> devicesOf(const SystemComponentManager& manager) {
  std::vector<DeviceFacts> devices;
  const uint32_t count = static_cast<uint32_t>(manager.getComponentCount());
  for (uint32_t i = 0; i < count; ++i) {
    try {
      if (const SystemComponent* component = manager.getComponent(i)) devices.push_back(factsOf(i, *component));
    } catch (const std::exception&) {
      // A device the module cannot describe is left out of the files; the
      // session's own output has said what went wrong with it.
    }
  }
  return devices;
}

std::vector<std::string> SessionOutputs::write(int exitStatus, bool interrupted,
                                               const std::vector<std::string>& errors) {
  std::vector<std::string> problems;
  if (!wanted()) return problems;
  facts_.exitStatus = exitStatus;
  facts_.interrupted = interrupted;
  facts_.errors = errors;
  if (manager_ != nullptr) facts_.devices = devicesOf(*manager_);
  std::string reason;
  if (!reportPath_.empty() && !writeFileAtomically(reportPath_, htmlReport(facts_), reason)) {
    problems.push_back("cannot write the report '" + reportPath_ + "': " + reason);
  }
  if (!metricsPath_.empty() && !writeFileAtomically(metricsPath_, prometheusMetrics(facts_), reason)) {
    problems.push_back("cannot write the metrics '" + metricsPath_ + "': " + reason);
  }
  return problems;
}

void printDeviceLines(FILE* out, const std::vector<DeviceFacts>& devices, const std::vector<TestRecord>& records) {
  struct Line {
    std::string index, kind, bus, model, size, health;
  };
  std::vector<Line> lines;
  Line heading{"#", "KIND", "BUS", "MODEL", "SIZE", "HEALTH"};
  size_t widths[5] = {heading.index.size(), heading.kind.size(), heading.bus.size(), heading.model.size(),
                      heading.size.size()};
  for (const DeviceFacts& device : devices) {
    const Health health = healthOf(records, device.index);
    Line line{std::to_string(device.index),
              device.kind().empty() ? "-" : device.kind(),
              device.bus().empty() ? "-" : device.bus(),
              device.model().empty() ? "-" : device.model(),
              device.detail("SIZE").empty() ? "-" : describeValue(device.detail("SIZE")),
              health == Health::Unknown ? "-" : healthText(health)};
    widths[0] = std::max(widths[0], line.index.size());
    widths[1] = std::max(widths[1], line.kind.size());
    widths[2] = std::max(widths[2], line.bus.size());
    widths[3] = std::max(widths[3], line.model.size());
    widths[4] = std::max(widths[4], line.size.size());
    lines.push_back(line);
  }
  auto print = [&](const Line& line) {
    std::fprintf(out, "  %s  %s  %s  %s  %s  %s\n", column(line.index, widths[0]).c_str(),
                 column(line.kind, widths[1]).c_str(), column(line.bus, widths[2]).c_str(),
                 column(line.model, widths[3]).c_str(), column(line.size, widths[4]).c_str(), line.health.c_str());
  };
  print(heading);
  for (const Line& line : lines) print(line);
}

}  // namespace hwc
