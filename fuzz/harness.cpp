// The fuzz targets' bodies. Each builds what it needs on the simulated PC,
// feeds the input in where outside data enters the module, and leaves the PC
// empty again: one input must not change the next.
#include "fuzz/harness.h"

#include <algorithm>
#include <cstring>
#include <map>
#include <memory>
#include <sstream>
#include <string>
#include <vector>

#include "command_line.h"
#include "commands/bridges/sat_bridge.h"
#include "commands/scsi/sense_data.h"
#include "components/storage_component.h"
#include "components/storage_component_manager.h"
#include "module/catalogue.h"
#include "sim/fuzzed_device.h"
#include "sim/machine.h"
#include "sim/windows/face.h"
#include "system/number_handler.h"
#include "system/number_handler_imp.h"
#include "system/win_cim.h"
#include "testing/recording_host.h"
#include "tools/recover_bad_sectors.h"
#include "tools/tool_test_support.h"
#include "tools/win_check_filesystem_output.h"

namespace fuzzing {

namespace {

constexpr const char* kAtaProfile =
    R"({"model": "FUZZ ATA DISK", "serial": "FZ0001", "firmware": "1.0", "capacitySectors": 16384,
        "smart": {"shortTestMinutes": 1, "extendedTestMinutes": 2}})";
constexpr const char* kScsiProfile =
    R"({"vendor": "FUZZ", "product": "SCSI DISK", "revision": "0001", "serial": "FZ0002", "capacitySectors": 16384,
        "selfTest": {"shortSeconds": 60, "extendedSeconds": 120}})";
constexpr const char* kNvmeProfile =
    R"({"model": "FUZZ NVME DISK", "serial": "FZ0003", "firmware": "1.0", "capacitySectors": 16384})";
constexpr const char* kPartitions =
    R"("partitions": {"scheme": "mbr", "entries": [{"type": 7, "startLba": 2048, "sectorCount": 8192}]},
       "volumes": [{"partition": 1, "letter": "E", "fileSystem": "NTFS", "clusterSize": 4096}])";

std::string disk(const std::string& kind, const std::string& bus, const std::string& profile,
                 const std::string& extra) {
  return R"({"name": "d", "kind": ")" + kind + R"(", )" + (bus.empty() ? "" : R"("bus": ")" + bus + R"(", )") +
         R"("profile": )" + profile + ", " + kPartitions + extra + "}";
}

// The transports a disk can sit behind, as machine descriptions.
std::vector<std::string> transportMachines() {
  const std::string usb = R"(, "bridge": {"type": ")";
  return {
      R"({"disks": [)" + disk("ata", "sata", kAtaProfile, "") + "]",
      R"({"disks": [)" + disk("ata", "usb", kAtaProfile, usb + R"(sat"})") + "]",
      R"({"disks": [)" + disk("ata", "usb", kAtaProfile, usb + R"(sat-no-ckcond"})") + "]",
      R"({"disks": [)" + disk("ata", "usb", kAtaProfile, usb + R"(jmicron"})") + "]",
      R"({"disks": [)" + disk("ata", "usb", kAtaProfile, usb + R"(sunplus"})") + "]",
      R"({"disks": [)" + disk("scsi", "sas", kScsiProfile, "") + "]",
      R"({"disks": [)" + disk("nvme", "", kNvmeProfile, "") + "]",
      R"({"disks": [)" + disk("ata", "sata", kAtaProfile, R"(, "hidden": true)") +
          R"(], "controllers": [{"vendorId": "8086", "deviceId": "2826", "friendlyName": "Intel(R) C600 RAID",
              "biosVersion": [3, 1, 0, 1012], "phys": [{"protocol": "sata", "disk": "d"}]}])",
      R"({"disks": [)" + disk("scsi", "sas", kScsiProfile, R"(, "hidden": true)") +
          R"(], "controllers": [{"vendorId": "8086", "deviceId": "2826", "friendlyName": "Intel(R) C600 RAID",
              "biosVersion": [3, 1, 0, 1012], "phys": [{"protocol": "sas", "disk": "d"}]}])",
      R"({"disks": [)" + disk("ata", "sata", kAtaProfile, R"(, "hidden": true)") +
          R"(], "libraries": ["storelib.dll"], "lsiControllers": [{"library": "storelib.dll", "id": 0,
              "model": "MegaRAID SAS 9260-8i", "drives": [{"deviceId": 8, "disk": "d"}]}])",
      R"({"disks": [)" + disk("scsi", "sas", kScsiProfile, R"(, "hidden": true)") +
          R"(], "libraries": ["storelib.dll"], "lsiControllers": [{"library": "storelib.dll", "id": 0,
              "model": "MegaRAID SAS 9260-8i", "drives": [{"deviceId": 9, "disk": "d"}]}])",
  };
}

// Activities: 0 discovery and description only; 1-12 the test of that id in
// the catalogue; 13 the tool's scan.
constexpr uint8_t kActivities = 14;

bool isSelfTest(uint8_t activity) { return activity == 5 || activity == 6 || activity == 7 || activity == 10; }

// Every data-in answer replaced by the next bytes of the input, in order.
class ReplacingAta : public sim::AtaDevice {
 public:
  ReplacingAta(std::shared_ptr<sim::AtaDevice> inner, std::shared_ptr<sim::FuzzStream> stream)
      : inner_(std::move(inner)), stream_(std::move(stream)) {}
  sim::AtaResponse executeAta(const sim::AtaRequest& request) override {
    sim::AtaResponse response = inner_->executeAta(request);
    if (request.direction == sim::Direction::In && request.data != nullptr) {
      stream_->fill(request.data, request.length);
    }
    return response;
  }

 private:
  std::shared_ptr<sim::AtaDevice> inner_;
  std::shared_ptr<sim::FuzzStream> stream_;
};

class ReplacingScsi : public sim::ScsiTarget {
 public:
  ReplacingScsi(std::shared_ptr<sim::ScsiTarget> inner, std::shared_ptr<sim::FuzzStream> stream)
      : inner_(std::move(inner)), stream_(std::move(stream)) {}
  sim::ScsiResponse executeScsi(const sim::ScsiRequest& request) override {
    sim::ScsiResponse response = inner_->executeScsi(request);
    if (request.direction == sim::Direction::In && request.data != nullptr) {
      stream_->fill(request.data, request.length);
    }
    return response;
  }

 private:
  std::shared_ptr<sim::ScsiTarget> inner_;
  std::shared_ptr<sim::FuzzStream> stream_;
};

// Runs one activity on every component the manager found.
void exercise(StorageComponentManager& manager, uint8_t activity) {
  for (uint32_t i = 0; i < manager.getComponentCount(); ++i) {
    auto* component = dynamic_cast<StorageComponent*>(manager.getComponent(i));
    if (component == nullptr) continue;
    (void)component->getDescription();
    (void)component->getSections();
    if (activity == 0) continue;
    if (activity == 13) {
      RecoverBadSectors tool(ItemId(1, 0, 50));
      tooltest::RecordingToolSink sink;
      tooltest::RecordingAbortFlag abortFlag;
      uint8_t systemEvents = 0;
      tool.listener = &sink;
      tool.abortFlag = &abortFlag;
      tool.systemEvents = &systemEvents;
      tool.setDevices({component});
      tool.setValues("Operation", {"scan"});
      tool.execute();
      continue;
    }
    for (const CatalogueRow& row : catalogueRows()) {
      if (row.testId != activity) continue;
      std::unique_ptr<Test> test(row.create(ItemId(1, row.diagnosticId, row.testId)));
      if (test == nullptr || !test->isSupported(component)) continue;
      mstest::RecordingListener listener;
      mstest::RecordingLog log;
      mstest::ScriptedRunContext context(component, &listener, &log);
      (void)test->run(&context);
    }
  }
}

// Keeps a copy of every data-in answer, in order, up to a limit.
class RecordingAta : public sim::AtaDevice {
 public:
  RecordingAta(std::shared_ptr<sim::AtaDevice> inner, std::vector<uint8_t>* out, size_t limit)
      : inner_(std::move(inner)), out_(out), limit_(limit) {}
  sim::AtaResponse executeAta(const sim::AtaRequest& request) override {
    sim::AtaResponse response = inner_->executeAta(request);
    if (request.direction == sim::Direction::In && request.data != nullptr) {
      const size_t room = limit_ - std::min(limit_, out_->size());
      out_->insert(out_->end(), request.data, request.data + std::min<size_t>(room, request.length));
    }
    return response;
  }

 private:
  std::shared_ptr<sim::AtaDevice> inner_;
  std::vector<uint8_t>* out_;
  size_t limit_;
};

class RecordingScsi : public sim::ScsiTarget {
 public:
  RecordingScsi(std::shared_ptr<sim::ScsiTarget> inner, std::vector<uint8_t>* out, size_t limit)
      : inner_(std::move(inner)), out_(out), limit_(limit) {}
  sim::ScsiResponse executeScsi(const sim::ScsiRequest& request) override {
    sim::ScsiResponse response = inner_->executeScsi(request);
    if (request.direction == sim::Direction::In && request.data != nullptr) {
      const size_t room = limit_ - std::min(limit_, out_->size());
      out_->insert(out_->end(), request.data, request.data + std::min<size_t>(room, request.length));
    }
    return response;
  }

 private:
  std::shared_ptr<sim::ScsiTarget> inner_;
  std::vector<uint8_t>* out_;
  size_t limit_;
};

// The seek tests seed their random LBAs with the time of day; under the
// fuzzer every seed is the same, so that an input replays as it ran.
class FixedSeedNumbers : public NumberHandlerImp {
 public:
  void seed(uint32_t) override { NumberHandlerImp::seed(20261124); }
};

void fixTheRandomSequence() {
  static FixedSeedNumbers numbers;
  setNumberHandlerForTesting(&numbers);
}

enum class Feed { PerCommand, ReplaceData, Record };

struct Recording {
  std::vector<uint8_t>* out = nullptr;
  size_t limit = 0;
};

void runOnTransport(const uint8_t* data, size_t size, Feed feed, Recording recording = {}) {
  static const std::vector<std::string> machines = transportMachines();
  if (size < 2) return;
  fixTheRandomSequence();
  const std::string& base = machines[data[0] % machines.size()];
  uint8_t activity = data[1] % kActivities;
  // The extended seek tests are the quick ones with ten times the reads (40000
  // per run, seconds under the sanitizers): what they parse, the quick ones
  // parse too, so the fuzzer runs those instead. The fault matrix runs both.
  if (activity == 8) activity = 3;
  if (activity == 9) activity = 4;
  // A self test waits for the drive in timer ticks; a minute a tick lets a
  // drive that claims to need days end within the input's time.
  const std::string json =
      base + (isSelfTest(activity) ? R"(, "clock": {"tickReadCostMs": 60000}})" : std::string("}"));
  std::string error;
  std::unique_ptr<sim::Machine> machine = sim::Machine::fromJsonText(json, &error);
  if (machine == nullptr) __builtin_trap();  // the harness's own descriptions must load
  auto stream = std::make_shared<sim::FuzzStream>(data + 2, size - 2);
  sim::Disk* target = machine->findDisk("d");
  if (feed == Feed::PerCommand) {
    sim::fuzzDisk(*target, stream);
  } else if (feed == Feed::ReplaceData) {
    if (target->ata) target->ata = std::make_shared<ReplacingAta>(target->ata, stream);
    if (target->scsi) target->scsi = std::make_shared<ReplacingScsi>(target->scsi, stream);
  } else {
    if (target->ata) target->ata = std::make_shared<RecordingAta>(target->ata, recording.out, recording.limit);
    if (target->scsi) target->scsi = std::make_shared<RecordingScsi>(target->scsi, recording.out, recording.limit);
  }
  if (!sim::installMachine(std::move(machine), &error)) __builtin_trap();
  {
    StorageComponentManager manager(ItemId(1, 0, 2));
    manager.refresh();
    exercise(manager, activity);
  }
  sim::uninstallMachine();
}

// Splits the input at `separator`.
std::vector<std::string> split(const uint8_t* data, size_t size, char separator) {
  std::vector<std::string> parts(1);
  for (size_t i = 0; i < size; ++i) {
    if (static_cast<char>(data[i]) == separator) {
      parts.emplace_back();
    } else {
      parts.back() += static_cast<char>(data[i]);
    }
  }
  return parts;
}

}  // namespace

void runFuzzedDevice(const uint8_t* data, size_t size) { runOnTransport(data, size, Feed::PerCommand); }

void runReplacedAnswers(const uint8_t* data, size_t size) { runOnTransport(data, size, Feed::ReplaceData); }

size_t transportCount() { return transportMachines().size(); }

size_t activityCount() { return kActivities; }

std::vector<uint8_t> recordAnswers(uint8_t transport, uint8_t activity, size_t limit) {
  std::vector<uint8_t> answers;
  const uint8_t head[2] = {transport, activity};
  runOnTransport(head, sizeof head, Feed::Record, Recording{&answers, limit});
  return answers;
}

void runSenseData(const uint8_t* data, size_t size) {
  // The module keeps sense in a record of 32 bytes; whatever a device sends
  // is cut to that before anyone reads it.
  ScsiCmd scsi;
  std::memcpy(scsi.sense.data(), data, std::min(size, scsi.sense.size()));
  scsi.senseLength = std::min<uint64_t>(size, scsi.sense.size());
  SenseData sense;
  (void)sense.parse(scsi.sense.data());
  SenseInformation information;
  for (int32_t type = -1; type < 4; ++type) (void)sense.getInformation(type, &information);
  // Parsed again on the same record, as a retry does.
  (void)sense.parse(scsi.sense.data());
  SatBridgeWithCkCondition bridge{std::weak_ptr<ScsiBridge>()};
  AtaStatusDescriptor descriptor{};
  (void)bridge.readOutputRegisters(scsi, &descriptor);
}

void runPartitionTables(const uint8_t* data, size_t size) {
  constexpr uint32_t kSectorSize = 512;
  std::string error;
  std::unique_ptr<sim::Machine> machine = sim::Machine::fromJsonText(
      std::string(R"({"disks": [{"name": "d", "kind": "ata", "profile": )") + kAtaProfile +
          R"(}, {"name": "n", "kind": "nvme", "profile": )" + kNvmeProfile + "}]}",
      &error);
  if (machine == nullptr) __builtin_trap();
  // The input covers sector 0 onwards; past 34 sectors it continues at the
  // disk's last 33 sectors (where a backup GPT lives). Both disks get it.
  for (sim::Disk& disk : machine->disks) {
    const uint64_t count = disk.media->sectorCount();
    const size_t head = std::min<size_t>(size, 34 * kSectorSize);
    std::vector<uint8_t> sector(kSectorSize);
    for (size_t at = 0; at < head; at += kSectorSize) {
      std::fill(sector.begin(), sector.end(), 0);
      std::memcpy(sector.data(), data + at, std::min<size_t>(kSectorSize, head - at));
      disk.media->write(at / kSectorSize, 1, sector.data());
    }
    for (size_t at = head; at < size && at - head < 33 * kSectorSize; at += kSectorSize) {
      std::fill(sector.begin(), sector.end(), 0);
      std::memcpy(sector.data(), data + at, std::min<size_t>(kSectorSize, size - at));
      disk.media->write(count - 33 + (at - head) / kSectorSize, 1, sector.data());
    }
  }
  if (!sim::installMachine(std::move(machine), &error)) __builtin_trap();
  {
    StorageComponentManager manager(ItemId(1, 0, 2));
    manager.refresh();
    exercise(manager, 0);
  }
  sim::uninstallMachine();
}

void runMachineDescription(const uint8_t* data, size_t size) {
  const std::string text(reinterpret_cast<const char*>(data), size);
  std::string error;
  std::unique_ptr<sim::Machine> machine = sim::Machine::fromJsonText(text, &error);
  if (machine == nullptr) return;
  if (!sim::installMachine(std::move(machine), &error)) return;
  {
    StorageComponentManager manager(ItemId(1, 0, 2));
    manager.refresh();
    exercise(manager, 0);
  }
  sim::uninstallMachine();
}

void runTestParameters(const uint8_t* data, size_t size) {
  TestParameters parameters;
  for (const std::string& line : split(data, size, '\n')) {
    const size_t dot = line.find('.');
    const size_t equals = line.find('=', dot == std::string::npos ? 0 : dot);
    if (dot == std::string::npos || equals == std::string::npos) continue;
    parameters[line.substr(0, dot)][line.substr(dot + 1, equals - dot - 1)] = line.substr(equals + 1);
  }
  for (const CatalogueRow& row : catalogueRows()) {
    std::unique_ptr<Test> test(row.create(ItemId(1, row.diagnosticId, row.testId)));
    if (test == nullptr) continue;
    std::vector<RejectedParameter> rejected;
    (void)test->setParameters(parameters, rejected);
  }
}

void runCheckerOutput(const uint8_t* data, size_t size) {
  const std::string text(reinterpret_cast<const char*>(data), size);
  for (const std::string& line : split(data, size, '\n')) (void)parseCheckerPercent(line);
  (void)cleanCheckerLog(text);
  (void)shortenMountPath(text);
}

void runCommandLine(const uint8_t* data, size_t size) {
  const std::vector<std::string> args = split(data, size, '\0');
  (void)hwc::parseCommandLine(args);
  for (const std::string& arg : args) {
    uint32_t value = 0;
    (void)hwc::parseDecimal(arg, value);
  }
}

void runManagementValues(const uint8_t* data, size_t size) {
  // The input's lines are values of the properties a query reads: each line
  // "NAME=VALUE" becomes a property of one instance of Win32_LogicalDisk.
  nlohmann::json properties = nlohmann::json::object();
  for (const std::string& line : split(data, size, '\n')) {
    const size_t equals = line.find('=');
    if (equals == std::string::npos || equals == 0) continue;
    properties[line.substr(0, equals)] = line.substr(equals + 1);
  }
  nlohmann::json instance = nlohmann::json::object();
  instance["namespace"] = "ROOT\\CIMV2";
  instance["class"] = "Win32_LogicalDisk";
  instance["properties"] = properties;
  nlohmann::json description = nlohmann::json::object();
  description["disks"] = nlohmann::json::array();
  description["wmi"] = nlohmann::json::object();
  description["wmi"]["objects"] = nlohmann::json::array({instance});
  std::string error;
  std::unique_ptr<sim::Machine> machine = sim::Machine::fromJson(description, &error);
  if (machine == nullptr || !sim::installMachine(std::move(machine), &error)) return;
  WinCim cim;
  std::vector<std::string> names;
  for (auto it = properties.begin(); it != properties.end(); ++it) names.push_back(it.key());
  names.push_back("DeviceID");
  std::vector<char*> fields;
  for (std::string& name : names) fields.push_back(&name[0]);
  CimResult* result = nullptr;
  if (cim.query(fields.data(), "Win32_LogicalDisk", static_cast<int32_t>(fields.size()), &result, "ROOT\\CIMV2") == 0) {
    cim.freeResult(&result);
  }
  sim::uninstallMachine();
}

const std::vector<Target>& targets() {
  static const std::vector<Target> list = {
      {"fuzzed_device", &runFuzzedDevice},         {"replaced_answers", &runReplacedAnswers},
      {"sense_data", &runSenseData},               {"partition_tables", &runPartitionTables},
      {"machine_description", &runMachineDescription}, {"test_parameters", &runTestParameters},
      {"checker_output", &runCheckerOutput},       {"command_line", &runCommandLine},
      {"management_values", &runManagementValues},
  };
  return list;
}

}  // namespace fuzzing
