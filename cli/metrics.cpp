// The metrics file. Every family is a gauge: a file of the textfile collector
// is a snapshot of the last session, and a counter would restart with each.
// A family with no sample is left out whole, HELP and TYPE included.
#include "metrics.h"

#include <cstdio>
#include <map>

#include "module_storage/result_codes.h"

namespace hwc {
namespace {

struct Sample {
  std::string labels;  // already formatted: {a="b",c="d"}
  std::string value;
};

struct Family {
  std::string name;
  std::string help;
  std::vector<Sample> samples;
};

std::string label(const char* name, const std::string& value) {
  return std::string(name) + "=\"" + escapeLabelValue(value) + "\"";
}

std::string diskLabels(const DeviceFacts& device) {
  return label("disk", std::to_string(device.index)) + "," + label("model", device.model()) + "," +
         label("serial", device.detail("SERIAL"));
}

std::string seconds(double value) {
  char buffer[64];
  std::snprintf(buffer, sizeof(buffer), "%.6f", value);
  return buffer;
}

// HELP text escapes backslash and line feed only.
std::string escapeHelp(const std::string& text) {
  std::string out;
  for (char c : text) {
    if (c == '\\') {
      out += "\\\\";
    } else if (c == '\n') {
      out += "\\n";
    } else {
      out += c;
    }
  }
  return out;
}

const DeviceFacts* deviceOf(const SessionFacts& session, uint32_t index) {
  for (const DeviceFacts& device : session.devices) {
    if (device.index == index) return &device;
  }
  return nullptr;
}

}  // namespace

std::string escapeLabelValue(const std::string& value) {
  std::string out;
  for (size_t i = 0; i < value.size(); ++i) {
    const unsigned char c = static_cast<unsigned char>(value[i]);
    if (c == '\\') {
      out += "\\\\";
    } else if (c == '"') {
      out += "\\\"";
    } else if (c == '\n') {
      out += "\\n";
    } else if (c >= 0x80) {
      const size_t length = c >= 0xF0 && c < 0xF5 ? 4 : c >= 0xE0 ? 3 : c >= 0xC2 && c < 0xE0 ? 2 : 0;
      bool valid = length != 0 && i + length <= value.size();
      for (size_t k = 1; valid && k < length; ++k) valid = (static_cast<unsigned char>(value[i + k]) & 0xC0) == 0x80;
      if (valid) {
        out.append(value, i, length);
        i += length - 1;
      } else {
        out += "\xEF\xBF\xBD";
      }
    } else {
      out += static_cast<char>(c);
    }
  }
  return out;
}

std::string prometheusMetrics(const SessionFacts& session) {
  Family info{"hwc_storage_disk_info", "A disk the module found; the value is always 1, the labels describe it.", {}};
  Family size{"hwc_storage_disk_size_bytes", "Capacity of the disk in bytes, logical sectors times their size.", {}};
  Family temperature{"hwc_storage_disk_temperature_celsius", "Temperature the disk reported when it was described.",
                     {}};
  Family healthy{"hwc_storage_disk_smart_healthy",
                 "1 when the SMART status test passed on the disk, 0 when it found a threshold crossed; absent when "
                 "the test did not give a verdict.",
                 {}};
  Family badSectors{"hwc_storage_disk_unreadable_sectors",
                    "Distinct sectors the tests of this session could not read on the disk.", {}};
  Family result{"hwc_storage_test_result",
                "Result code of a test on a disk: 0 passed, 1 failed, 3 not applicable (also a test the disk does "
                "not support), 4 aborted, 5 warning, 6 invalid (also a test the module could not run).",
                {}};
  Family passed{"hwc_storage_test_passed", "1 when the test passed on the disk (a warning counts as passed), else 0.",
                {}};
  Family duration{"hwc_storage_test_duration_seconds", "How long the test ran on the disk, on the host's clock.", {}};
  Family exitStatus{"hwc_storage_run_exit_status",
                    "Exit status of the session: 0 passed, 1 a test failed, 2 usage error, 3 nothing could run, 4 "
                    "aborted.",
                    {}};
  Family started{"hwc_storage_run_start_time_seconds", "When the session began, in seconds since the Unix epoch.", {}};

  std::map<uint32_t, std::set<uint64_t>> unreadable;
  for (const TestRecord& record : session.records) {
    std::set<uint64_t> lbas = badSectorsOf(record);
    unreadable[record.deviceIndex].insert(lbas.begin(), lbas.end());
  }
  for (const DeviceFacts& device : session.devices) {
    const std::string labels = diskLabels(device);
    info.samples.push_back({"{" + labels + "," + label("firmware", device.detail("FIRMWARE")) + "," +
                                label("kind", device.kind()) + "," + label("bus", device.bus()) + "," +
                                label("device_id", device.id) + "}",
                            "1"});
    if (device.sectorCount() != 0 && device.sectorSize() != 0) {
      const unsigned long long bytes = static_cast<unsigned long long>(device.sectorCount()) * device.sectorSize();
      size.samples.push_back({"{" + labels + "}", std::to_string(bytes)});
    }
    uint32_t celsius = 0;
    if (device.temperature(celsius)) temperature.samples.push_back({"{" + labels + "}", std::to_string(celsius)});
    const Health health = healthOf(session.records, device.index);
    if (health != Health::Unknown) {
      healthy.samples.push_back({"{" + labels + "}", health == Health::Good ? "1" : "0"});
    }
    bool read = false;
    for (const TestRecord& record : session.records) {
      read = read || (record.deviceIndex == device.index && record.outcome == RunOutcome::Ran &&
                      readsMedia(record.testKey));
    }
    if (read) badSectors.samples.push_back({"{" + labels + "}", std::to_string(unreadable[device.index].size())});
  }
  for (const TestRecord& record : session.records) {
    if (record.outcome == RunOutcome::NotRun) continue;  // nothing was learnt about the disk
    const DeviceFacts* device = deviceOf(session, record.deviceIndex);
    std::string labels = device != nullptr ? diskLabels(*device)
                                           : label("disk", std::to_string(record.deviceIndex)) + "," +
                                                 label("model", record.deviceName) + "," + label("serial", "");
    labels += "," + label("test", itemText(record.testId)) + "," + label("name", record.testKey);
    uint32_t code = record.result;
    if (record.outcome == RunOutcome::NotSupported) code = NOT_APPLICABLE;
    if (record.outcome == RunOutcome::Error) code = INVALID;
    result.samples.push_back({"{" + labels + "}", std::to_string(code)});
    const bool ok = record.outcome == RunOutcome::Ran && (record.result == SUCCESS || record.result == WARNING);
    passed.samples.push_back({"{" + labels + "}", ok ? "1" : "0"});
    const double took = runSeconds(record);
    if (took >= 0) duration.samples.push_back({"{" + labels + "}", seconds(took)});
  }
  exitStatus.samples.push_back({"", std::to_string(session.exitStatus)});
  if (session.startedUnixSeconds != 0) {
    started.samples.push_back({"", std::to_string(static_cast<unsigned long long>(session.startedUnixSeconds))});
  }

  std::string out;
  for (const Family* family : {&info, &size, &temperature, &healthy, &badSectors, &result, &passed, &duration,
                               &exitStatus, &started}) {
    if (family->samples.empty()) continue;
    out += "# HELP " + family->name + " " + escapeHelp(family->help) + "\n";
    out += "# TYPE " + family->name + " gauge\n";
    // A test chosen twice on one disk gives one sample, its last run.
    for (size_t i = 0; i < family->samples.size(); ++i) {
      const Sample& sample = family->samples[i];
      bool later = false;
      for (size_t k = i + 1; k < family->samples.size() && !later; ++k) later = family->samples[k].labels == sample.labels;
      if (!later) out += family->name + sample.labels + " " + sample.value + "\n";
    }
  }
  return out;
}

}  // namespace hwc
