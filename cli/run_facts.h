// What the report, the metrics and the disk list read out of a session: each
// disk's description kept as it was found, and the figures a run's records
// give away (bad sectors named in messages, the SMART verdict, per-zone and
// per-step timing of the seek tests). Nothing here talks to the module.
#pragma once

#include <cstdint>
#include <set>
#include <string>
#include <vector>

#include "module_storage/system_component.h"
#include "run_record.h"

namespace hwc {

// A disk as the manager described it when the session looked.
struct DeviceFacts {
  uint32_t index = 0;
  std::string id;
  ComponentDescription description;
  std::vector<DetailSection> sections;

  // The value of a detail ("MODEL", "SERIAL", "LOGICAL_SECTORS"...); empty when absent.
  std::string detail(const std::string& key) const;
  std::string attribute(const std::string& key) const;
  // The model, else the component's name.
  std::string model() const;
  // LOGICAL_SECTORS and LOGICAL_SECTOR_SIZE as numbers; 0 when absent or not decimal.
  uint64_t sectorCount() const;
  uint64_t sectorSize() const;
  // "HDD", "SSD", "NVMe" or "" when the description does not tell.
  std::string kind() const;
  // "USB" or "RAID" by the "parent" attribute; else "ATA", "SCSI" or "NVMe" by
  // the command sets the disk claims; "" when neither tells.
  std::string bus() const;
  // The TEMPERATURE detail in degrees Celsius; false when absent.
  bool temperature(uint32_t& celsius) const;
};

DeviceFacts factsOf(uint32_t index, const SystemComponent& component);

// The SMART verdict of a session on one disk, from its SMART status test.
enum class Health { Unknown, Good, Failing };
Health healthOf(const std::vector<TestRecord>& records, uint32_t deviceIndex);
const char* healthText(Health health);

// Every LBA named by "READING_SECTOR n" in the messages of one record, in the
// order they came (a failed read is said to the listener and to the log; it
// counts once).
std::set<uint64_t> badSectorsOf(const TestRecord& record);

// Test families by name key; a module without names gives none.
bool isFunnelSeek(const std::string& testKey);
bool isRandomSeek(const std::string& testKey);
bool isSelfTest(const std::string& testKey);
bool isSmartStatus(const std::string& testKey);
bool readsMedia(const std::string& testKey);

// Time the funnel seek spent in each zone of the disk. The walk reports its
// percentage p when its rising span has reached p/99 of the disk; its falling
// span is then at 1 - p/99. The time between two such events is shared between
// the two stretches of disk crossed meanwhile, each zone getting the part of
// it that fell on that zone. `timed[z]` says a zone got any share.
struct ZoneTimes {
  std::vector<double> milliseconds;
  std::vector<bool> timed;
};
ZoneTimes funnelZoneTimes(const TestRecord& record, size_t zoneCount);

// The time between successive percentage steps of a run, in milliseconds:
// each step is one hundredth of the test's reads.
std::vector<double> stepTimes(const TestRecord& record);

// Seconds between the run's start and end; negative when it did not run.
double runSeconds(const TestRecord& record);

// A finished session, as the report and the metrics file tell it.
struct SessionFacts {
  std::string program = "hwc_cli";
  std::string programVersion;
  std::vector<std::string> arguments;
  std::string moduleName;
  std::string moduleVersion;
  std::string modulePath;
  std::string machine;              // --machine as given; empty for this computer
  uint64_t startedUnixSeconds = 0;  // wall clock at the start, for people and for the metrics' timestamp
  std::vector<DeviceFacts> devices;
  std::vector<TestRecord> records;
  std::vector<std::string> errors;
  int exitStatus = 0;
  bool interrupted = false;
};

// The words of an exit status of hwc_cli.
std::string exitStatusText(int status);

}  // namespace hwc
