// The fault matrix: each of the catalogue's twelve tests and the tool's scan,
// repair and file-system check, run on a simulated PC under each kind of
// fault a disk or a host can throw at them. Every cell must end (under a
// watchdog), leave no handle open, write nothing outside what the test may
// write, give the volumes it took back, and end with the result that
// docs/fault-matrix.md lists for it. The table is generated here and compared
// with the document, so the two cannot drift: run the suite with
// MODULE_STORAGE_WRITE_FAULT_MATRIX=1 to write the document from what the
// runs gave, and read the difference before committing it.
#include <gtest/gtest.h>

#include <algorithm>
#include <cctype>
#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstddef>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <set>
#include <sstream>
#include <stdexcept>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "components/storage_component.h"
#include "components/storage_component_manager.h"
#include "diagnostics/device_write.h"
#include "module/catalogue.h"
#include "sim/media_reads.h"
#include "system/number_handler.h"
#include "system/number_handler_imp.h"
#include "sim/windows/face.h"
#include "sim/windows/face_state.h"
#include "testing/recording_host.h"
#include "tools/recover_bad_sectors.h"
#include "tools/tool_test_support.h"

#ifndef MODULE_STORAGE_SOURCE_DIR
#error "MODULE_STORAGE_SOURCE_DIR names the source folder, where docs/fault-matrix.md lives"
#endif

namespace {

// --- The machine ----------------------------------------------------------------

constexpr uint64_t kHddSectors = 262144;  // 128 MiB
constexpr uint64_t kHddPartitionStart = 2048;
constexpr uint64_t kHddPartitionSectors = 200000;
constexpr uint64_t kSasSectors = 262144;
constexpr uint64_t kNvmeSectors = 4000000;
constexpr uint64_t kNvmePartitionStart = 2048;
constexpr uint64_t kNvmePartitionSectors = 3000000;
constexpr uint64_t kMiB = 1 << 20;
// The write test's margin rounded up to whole clusters of 4096 bytes.
constexpr uint64_t kMarginClusters = (StorageDeviceWriteTest::kVolumeMargin + 4095) / 4096 * 4096;

struct MachineVariant {
  bool volumeFull = false;   // C:, where the write test puts its file, has no room beyond the margin
  bool noPrivilege = false;  // the process holds no privilege
};

// A SATA disk with E: (for the tool), a SAS disk and an NVMe disk with C:
// (where the write test puts its file). Each test runs on the first of them
// it supports. Self tests take one and two minutes of simulated time; chkdsk
// checks E: in four lines.
std::string machineJson(const MachineVariant& variant) {
  const uint64_t nvmeFree = variant.volumeFull ? 4 * kMiB : kMarginClusters + 6 * kMiB;
  std::ostringstream json;
  json << R"({"name": "fault matrix", "disks": [
    {"name": "hdd", "kind": "ata", "bus": "sata",
     "profile": {"model": "MATRIX HDD", "serial": "MX0001", "firmware": "1.0", "capacitySectors": )"
       << kHddSectors << R"(, "rotationRate": 7200,
                 "smart": {"shortTestMinutes": 1, "extendedTestMinutes": 2,
                           "vendorTests": [{"code": 80, "answer": "run", "seconds": 60}]}},
     "media": {"fill": "lba"},
     "partitions": {"scheme": "mbr", "signature": 4660, "entries": [
       {"type": 7, "startLba": )"
       << kHddPartitionStart << R"(, "sectorCount": )" << kHddPartitionSectors << R"(}]},
     "volumes": [{"partition": 1, "letter": "E", "label": "DATA", "fileSystem": "NTFS"}],
     "files": [{"path": "E:\\keep\\hdd.bin", "size": 65536}]},
    {"name": "sas", "kind": "scsi", "bus": "sas",
     "profile": {"vendor": "MATRIX", "product": "SAS DISK", "revision": "0001", "serial": "MS0001",
                 "capacitySectors": )" << kSasSectors << R"(, "rotationRate": 10000,
                 "selfTest": {"shortSeconds": 60, "extendedSeconds": 120}},
     "media": {"fill": "lba"}},
    {"name": "nvme", "kind": "nvme",
     "profile": {"model": "MATRIX NVME", "serial": "MN0001", "firmware": "1.0", "capacitySectors": )"
       << kNvmeSectors << R"(},
     "media": {"fill": 238},
     "partitions": {"scheme": "mbr", "entries": [{"type": 7, "startLba": )"
       << kNvmePartitionStart << R"(, "sectorCount": )" << kNvmePartitionSectors << R"(}]},
     "volumes": [{"partition": 1, "letter": "C", "fileSystem": "NTFS", "freeBytes": )"
       << nvmeFree << R"(}],
     "files": [{"path": "C:\\keep\\nvme.bin", "size": 1048576}]}],
   "processes": [{"image": "chkdsk.exe", "arguments": "E: /F", "exitCode": 0,
     "output": "The type of the file system is NTFS.\r\n25 percent complete.\r\n50 percent complete.\r\n100 percent complete.\r\n"}])";
  if (variant.noPrivilege) json << R"(, "privileges": [])";
  json << "}";
  return json.str();
}

// --- Rows and columns --------------------------------------------------------------

enum class RowKind { Test, Scan, Repair, Check };

struct Row {
  const char* name;
  RowKind kind;
  uint32_t testId;  // the catalogue's, for RowKind::Test
  const char* disk;  // for the tool; a test runs on the first disk it supports
};

// The twelve tests in catalogue order of their ids, then the tool.
const std::vector<Row>& rows() {
  static const std::vector<Row> list = {
      {"SMART status", RowKind::Test, 1, ""},
      {"Targeted read", RowKind::Test, 2, ""},
      {"Quick random seek", RowKind::Test, 3, ""},
      {"Quick funnel seek", RowKind::Test, 4, ""},
      {"Short self test", RowKind::Test, 5, ""},
      {"Quick drive self test", RowKind::Test, 6, ""},
      {"Default self test", RowKind::Test, 7, ""},
      {"Extended random seek", RowKind::Test, 8, ""},
      {"Extended funnel seek", RowKind::Test, 9, ""},
      {"Extended self test", RowKind::Test, 10, ""},
      {"Device read", RowKind::Test, 11, ""},
      {"Device write", RowKind::Test, 12, ""},
      {"Tool: scan", RowKind::Scan, 0, "hdd"},
      {"Tool: repair", RowKind::Repair, 0, "hdd"},
      {"Tool: file-system check", RowKind::Check, 0, "hdd"},
  };
  return list;
}

enum class Fault {
  None,
  Vanish,
  Hang,
  MediumInside,
  MediumOutside,
  PassThroughFails,
  HostAbort,
  SystemEvent,
  VolumeFull,
  PrivilegeRefused,
};

struct Column {
  Fault fault;
  const char* name;
};

const std::vector<Column>& columns() {
  static const std::vector<Column> list = {
      {Fault::None, "No fault"},
      {Fault::Vanish, "Vanishes at command k"},
      {Fault::Hang, "Commands hang"},
      {Fault::MediumInside, "Medium error inside"},
      {Fault::MediumOutside, "Medium error outside"},
      {Fault::PassThroughFails, "Pass-through fails"},
      {Fault::HostAbort, "Host abort at step k"},
      {Fault::SystemEvent, "System event at step k"},
      {Fault::VolumeFull, "Volume full"},
      {Fault::PrivilegeRefused, "Privilege refused"},
  };
  return list;
}

// A link on which every pass-through fails before it reaches the device.
class FailingAtaLink : public sim::AtaDevice {
 public:
  sim::AtaResponse executeAta(const sim::AtaRequest&) override {
    return sim::AtaResponse{sim::Completion::TransportError, {}, 0};
  }
};
class FailingScsiLink : public sim::ScsiTarget {
 public:
  sim::ScsiResponse executeScsi(const sim::ScsiRequest&) override {
    return sim::ScsiResponse{sim::Completion::TransportError, 0, {}, 0};
  }
};

// The seek tests seed their random LBAs with the time of day; here every seed
// is the same, so that a faulted run reads where the fault-free run read.
class FixedSeedNumbers : public NumberHandlerImp {
 public:
  void seed(uint32_t) override { NumberHandlerImp::seed(20261124); }
};

// --- Watchdog ----------------------------------------------------------------------

// Ends the process, naming the cell, when a run outlives its allowance of real
// time: a cell that hangs must fail the suite, not stall it.
class Watchdog {
 public:
  Watchdog(std::string what, std::chrono::seconds allowance) : what_(std::move(what)) {
    thread_ = std::thread([this, allowance] {
      std::unique_lock<std::mutex> lock(mutex_);
      if (!done_.wait_for(lock, allowance, [this] { return finished_; })) {
        std::fprintf(stderr, "fault matrix: %s did not end within its time\n", what_.c_str());
        std::fflush(stderr);
        std::abort();
      }
    });
  }
  ~Watchdog() {
    {
      std::lock_guard<std::mutex> lock(mutex_);
      finished_ = true;
    }
    done_.notify_one();
    thread_.join();
  }

 private:
  std::string what_;
  std::mutex mutex_;
  std::condition_variable done_;
  bool finished_ = false;
  std::thread thread_;
};

constexpr std::chrono::seconds kCellAllowance{120};

// --- One run -----------------------------------------------------------------------

using Ranges = std::vector<std::pair<uint64_t, uint64_t>>;  // (first LBA, count)

// What is done to the machine once discovery is over, and to the host during
// the run.
struct Arming {
  Fault fault = Fault::None;
  uint64_t k = 0;         // the command (Vanish) or the progress step (HostAbort, SystemEvent), 1-based
  uint64_t badLba = 0;    // MediumInside, MediumOutside
};

struct Outcome {
  std::string disk;        // the disk the row ran on
  std::string result;      // the test's result name, or "status N"
  uint64_t commands = 0;   // commands that reached the disk's device during the run
  uint64_t progressSteps = 0;
  Ranges reads;            // what the run read of the disk under test
  std::vector<std::string> problems;  // broken invariants
};

bool sameDisk(sim::Machine& machine, uint32_t journalDevice, const std::string& disk) {
  const std::string& name = machine.journal().deviceName(journalDevice);
  return name == disk || name.rfind(disk + ".", 0) == 0;
}

// Sectors of `path` on its disk, from the volume's retrieval pointers.
Ranges sectorsOf(const std::string& path, uint64_t partitionStart) {
  Ranges runs;
  HANDLE file = CreateFileA(path.c_str(), GENERIC_READ, FILE_SHARE_READ | FILE_SHARE_WRITE, nullptr, OPEN_EXISTING,
                            0, nullptr);
  if (file == INVALID_HANDLE_VALUE) return runs;
  STARTING_VCN_INPUT_BUFFER start{};
  std::vector<uint8_t> out(sizeof(RETRIEVAL_POINTERS_BUFFER) + 64 * 16);
  DWORD returned = 0;
  if (DeviceIoControl(file, FSCTL_GET_RETRIEVAL_POINTERS, &start, sizeof start, out.data(),
                      static_cast<DWORD>(out.size()), &returned, nullptr)) {
    RETRIEVAL_POINTERS_BUFFER head;
    std::memcpy(&head, out.data(), sizeof head);
    uint64_t vcn = static_cast<uint64_t>(head.StartingVcn.QuadPart);
    const size_t header = offsetof(RETRIEVAL_POINTERS_BUFFER, Extents);
    for (DWORD i = 0; i < head.ExtentCount; ++i) {
      LARGE_INTEGER pair[2];
      std::memcpy(pair, out.data() + header + i * sizeof pair, sizeof pair);
      const uint64_t next = static_cast<uint64_t>(pair[0].QuadPart);
      const uint64_t lcn = static_cast<uint64_t>(pair[1].QuadPart);
      runs.push_back({partitionStart + lcn * 8, (next - vcn) * 8});
      vcn = next;
    }
  }
  CloseHandle(file);
  return runs;
}

bool overlaps(const Ranges& ranges, uint64_t lba, uint64_t count) {
  for (const auto& range : ranges) {
    if (lba < range.first + range.second && range.first < lba + count) return true;
  }
  return false;
}

std::string describe(const Row& row, Fault fault, const Arming& arming) {
  std::string text = std::string(row.name) + " under ";
  for (const Column& column : columns()) {
    if (column.fault == fault) text += column.name;
  }
  return text + " (k " + std::to_string(arming.k) + ", LBA " + std::to_string(arming.badLba) + ")";
}

Outcome runCell(const Row& row, const Arming& arming) {
  Outcome outcome;
  MachineVariant variant;
  variant.volumeFull = arming.fault == Fault::VolumeFull;
  variant.noPrivilege = arming.fault == Fault::PrivilegeRefused;

  sim::uninstallMachine();
  std::string error;
  std::unique_ptr<sim::Machine> built = sim::Machine::fromJsonText(machineJson(variant), &error);
  if (built == nullptr) {
    outcome.problems.push_back("machine refused: " + error);
    return outcome;
  }
  sim::Machine* machine = built.get();
  if (!sim::installMachine(std::move(built), &error)) {
    outcome.problems.push_back("machine not installed: " + error);
    return outcome;
  }
  // What the write test may write: the free clusters of C:, never the file
  // that was there before. Taken before discovery, which opens nothing here.
  const Ranges keptFile = sectorsOf("C:\\keep\\nvme.bin", kNvmePartitionStart);
  if (keptFile.empty()) outcome.problems.push_back("the kept file has no clusters");

  {
    auto manager = std::make_unique<StorageComponentManager>(ItemId(1, 0, 2));
    manager->refresh();
    std::unique_ptr<Test> test;
    if (row.kind == RowKind::Test) {
      for (const CatalogueRow& catalogueRow : catalogueRows()) {
        if (catalogueRow.testId == row.testId) {
          test.reset(catalogueRow.create(ItemId(1, catalogueRow.diagnosticId, catalogueRow.testId)));
        }
      }
    }
    // The disks in the order hdd, sas, nvme; a test takes the first it
    // supports, the tool takes hdd.
    StorageComponent* component = nullptr;
    const std::pair<uint32_t, const char*> buses[] = {{kBusAta, "hdd"}, {kBusScsi, "sas"}, {kBusNvme, "nvme"}};
    for (const auto& bus : buses) {
      for (uint32_t i = 0; i < manager->getComponentCount() && component == nullptr; ++i) {
        auto* candidate = static_cast<StorageComponent*>(manager->getComponent(i));
        if (candidate->getBusKind() != bus.first) continue;
        const bool wanted = row.kind == RowKind::Test ? test != nullptr && test->isSupported(candidate)
                                                      : std::string(row.disk) == bus.second;
        if (wanted) {
          component = candidate;
          outcome.disk = bus.second;
        }
      }
    }
    if (component == nullptr) {
      outcome.problems.push_back("no disk takes this row");
      manager.reset();
      sim::uninstallMachine();
      return outcome;
    }
    sim::Disk* disk = machine->findDisk(outcome.disk);

    sim::FaultState& device = *disk->faultPath.back();
    const uint64_t commandsBefore = device.commandCount();
    const size_t journalBefore = machine->journal().entries().size();
    const std::map<uint64_t, sim::UnreadableKind> unreadableBefore = [&] {
      switch (arming.fault) {
        case Fault::MediumInside:
        case Fault::MediumOutside:
          disk->media->markUnreadable(arming.badLba);
          break;
        default:
          break;
      }
      return disk->media->unreadableSectors();
    }();
    switch (arming.fault) {
      case Fault::Vanish:
        // The k-th command of the run finds the device gone.
        device.plan().vanishAfterCommands = commandsBefore + arming.k - 1;
        break;
      case Fault::Hang:
        device.plan().hang = true;
        break;
      case Fault::PassThroughFails:
        // Every ATA and SCSI pass-through fails on the link; the raw reads
        // and writes of the disk handle reach the media as before.
        if (disk->ata) disk->ata = std::make_shared<FailingAtaLink>();
        if (disk->scsi) disk->scsi = std::make_shared<FailingScsiLink>();
        break;
      default:
        break;
    }
    const sim::Media* media = disk->media.get();
    sim::setMediaReadListener([&outcome, media](const sim::Media& from, uint64_t lba, uint64_t count) {
      if (&from == media) outcome.reads.push_back({lba, count});
    });

    {
      Watchdog watchdog(describe(row, arming.fault, arming), kCellAllowance);
      if (row.kind == RowKind::Test) {
        if (test == nullptr) {
          outcome.problems.push_back("no such test in the catalogue");
        } else {
          mstest::RecordingListener listener;
          mstest::RecordingLog log;
          mstest::ScriptedRunContext context(component, &listener, &log);
          listener.onEvent = [&](const mstest::ProgressEvent&) {
            ++outcome.progressSteps;
            if (outcome.progressSteps != arming.k) return;
            if (arming.fault == Fault::HostAbort) context.abortRequested = true;
            if (arming.fault == Fault::SystemEvent) context.systemEvents = 0x08;
          };
          outcome.result = resultName(test->run(&context));
          if (std::getenv("MODULE_STORAGE_FAULT_MATRIX_VERBOSE") != nullptr) {
            std::fprintf(stderr, "%s: %s\n", describe(row, arming.fault, arming).c_str(), outcome.result.c_str());
            for (const mstest::LogLine& line : log.lines) {
              std::fprintf(stderr, "  log %u %s\n", line.level, line.message.c_str());
            }
          }
        }
      } else {
        RecoverBadSectors tool(ItemId(1, 0, 50));
        tooltest::RecordingToolSink sink;
        tooltest::RecordingAbortFlag abortFlag;
        uint8_t systemEvents = 0;
        tool.listener = &sink;
        tool.abortFlag = &abortFlag;
        tool.systemEvents = &systemEvents;
        tool.setDevices({component});
        const char* operation = row.kind == RowKind::Scan ? "scan" : row.kind == RowKind::Repair ? "repair" : "filesystem";
        tool.setValues("Operation", {operation});
        if (row.kind == RowKind::Check) {
          tool.setValues("partition_table" + component->getId(), {"DATA", "NTFS", "E:\\", "F"});
        }
        sink.onEvent = [&](const tooltest::FiredEvent& event) {
          if (event.name != "OnProgress") return;
          ++outcome.progressSteps;
          if (outcome.progressSteps != arming.k) return;
          if (arming.fault == Fault::HostAbort) abortFlag.flag = true;
          if (arming.fault == Fault::SystemEvent) systemEvents = 0x08;
        };
        tool.execute();
        const char* finishKey = row.kind == RowKind::Check ? "OnPartitionFinish" : "OnDeviceFinish";
        const std::vector<tooltest::FiredEvent> finish = sink.named(finishKey);
        if (finish.size() != 1 || finish[0].values.empty()) {
          outcome.problems.push_back(std::string("the tool fired ") + std::to_string(finish.size()) + " " + finishKey);
        } else {
          outcome.result = "status " + finish[0].values.back();
          if (std::getenv("MODULE_STORAGE_FAULT_MATRIX_VERBOSE") != nullptr) {
            std::string sectors;
            for (const std::string& value : finish[0].output("SectorsInfo")) sectors += value + " ";
            std::fprintf(stderr, "%s: %s, sectors %s\n", describe(row, arming.fault, arming).c_str(),
                         outcome.result.c_str(), sectors.c_str());
          }
        }
        if (sink.named("OnRecoverFinish").size() != 1) outcome.problems.push_back("no single OnRecoverFinish");
      }
    }
    sim::setMediaReadListener(nullptr);
    if (std::getenv("MODULE_STORAGE_FAULT_MATRIX_VERBOSE") != nullptr) {
      std::fprintf(stderr, "  %zu reads:", outcome.reads.size());
      for (size_t i = 0; i < outcome.reads.size() && i < 8; ++i) {
        std::fprintf(stderr, " %llu+%llu", static_cast<unsigned long long>(outcome.reads[i].first),
                     static_cast<unsigned long long>(outcome.reads[i].second));
      }
      std::fprintf(stderr, "\n");
    }
    outcome.commands = device.commandCount() - commandsBefore;

    // Writes: the write test only into free clusters of its volume, the
    // repair only onto sectors that could not be read, the rest nothing.
    const std::vector<sim::JournalEntry>& entries = machine->journal().entries();
    for (size_t i = journalBefore; i < entries.size(); ++i) {
      const sim::JournalEntry& entry = entries[i];
      if (entry.kind != sim::JournalKind::SectorWrite) continue;
      const std::string where = machine->journal().deviceName(entry.device) + " LBA " + std::to_string(entry.lba) +
                                " x" + std::to_string(entry.count);
      bool allowed = false;
      if (row.kind == RowKind::Test && row.testId == 12 && sameDisk(*machine, entry.device, outcome.disk) &&
          outcome.disk == "nvme") {
        allowed = entry.lba >= kNvmePartitionStart &&
                  entry.lba + entry.count <= kNvmePartitionStart + kNvmePartitionSectors &&
                  !overlaps(keptFile, entry.lba, entry.count);
      } else if (row.kind == RowKind::Repair && sameDisk(*machine, entry.device, "hdd")) {
        allowed = true;
        for (uint64_t lba = entry.lba; lba < entry.lba + entry.count; ++lba) {
          allowed = allowed && unreadableBefore.count(lba) != 0;
        }
      }
      if (!allowed) outcome.problems.push_back("write outside the allowance: " + where);
    }
    if (machine->journal().dropped() != 0) outcome.problems.push_back("the journal dropped entries");

    // The volumes the repair took are back.
    for (const auto& volume : sim::windows::Face::instance().volumes()) {
      if (volume->locked || volume->dismounted) {
        outcome.problems.push_back(std::string("volume ") + volume->letters.front() + ": left locked or dismounted");
      }
    }
  }
  // The manager is gone: every handle the run and discovery opened is closed.
  const size_t open = sim::windows::Face::instance().objects().size();
  if (open != 0) outcome.problems.push_back(std::to_string(open) + " handles left open");
  sim::uninstallMachine();
  return outcome;
}

// --- Sweeps and the table ------------------------------------------------------------

// 1..n, every one up to 12, then evenly spaced to n.
std::vector<uint64_t> sweep(uint64_t n) {
  std::vector<uint64_t> points;
  for (uint64_t k = 1; k <= n && k <= 12; ++k) points.push_back(k);
  if (n > 12) {
    constexpr uint64_t kMore = 12;
    for (uint64_t i = 1; i <= kMore; ++i) points.push_back(12 + (n - 12) * i / kMore);
  }
  points.erase(std::unique(points.begin(), points.end()), points.end());
  return points;
}

// The sectors a run read, as sorted, disjoint (first, end) pairs.
std::vector<std::pair<uint64_t, uint64_t>> unionOf(const Ranges& reads) {
  std::vector<std::pair<uint64_t, uint64_t>> spans;
  for (const auto& range : reads) spans.push_back({range.first, range.first + range.second});
  std::sort(spans.begin(), spans.end());
  std::vector<std::pair<uint64_t, uint64_t>> merged;
  for (const auto& span : spans) {
    if (!merged.empty() && span.first <= merged.back().second) {
      merged.back().second = std::max(merged.back().second, span.second);
    } else {
      merged.push_back(span);
    }
  }
  return merged;
}

// A sector the fault-free run read: the one half-way through all the
// different sectors it read.
bool sectorInside(const Ranges& reads, uint64_t* lba) {
  const auto merged = unionOf(reads);
  uint64_t total = 0;
  for (const auto& span : merged) total += span.second - span.first;
  if (total == 0) return false;
  uint64_t half = total / 2;
  for (const auto& span : merged) {
    if (half < span.second - span.first) {
      *lba = span.first + half;
      return true;
    }
    half -= span.second - span.first;
  }
  return false;
}

// The last sector of the disk that the fault-free run did not read.
bool sectorOutside(const Ranges& reads, uint64_t sectors, uint64_t* lba) {
  uint64_t candidate = sectors;  // one past the last sector: none found yet
  const auto merged = unionOf(reads);
  uint64_t next = sectors;
  for (auto it = merged.rbegin(); it != merged.rend(); ++it) {
    if (it->second < next) {
      candidate = next - 1;
      break;
    }
    next = std::min(next, it->first);
  }
  if (candidate == sectors) {
    if (next == 0) return false;
    candidate = next - 1;
  }
  *lba = candidate;
  return true;
}

std::string joined(const std::set<std::string>& results) {
  std::string text;
  for (const std::string& result : results) text += (text.empty() ? "" : ", ") + result;
  return text;
}

// One line of the table: the row's name and its cell under each column.
std::string rowLine(const Row& row, const std::string& disk, const std::map<Fault, std::string>& cells) {
  std::string text = std::string("| ") + row.name + " | " + disk + " |";
  for (const Column& column : columns()) {
    auto found = cells.find(column.fault);
    text += " " + (found == cells.end() ? std::string("(not run)") : found->second) + " |";
  }
  return text + "\n";
}

std::string headerLines() {
  std::string text = "| Test | Disk |";
  for (const Column& column : columns()) text += std::string(" ") + column.name + " |";
  text += "\n|---|---|";
  for (size_t i = 0; i < columns().size(); ++i) text += "---|";
  return text + "\n";
}

const char kDocument[] = MODULE_STORAGE_SOURCE_DIR "/docs/fault-matrix.md";
const char kTableStart[] = "<!-- fault matrix: generated by src/module/fault_matrix_test.cpp -->\n";
const char kTableEnd[] = "<!-- end of the fault matrix -->\n";

// The lines of the document's table, or an empty list (and the test failed)
// when it has none.
std::vector<std::string> documentedLines(std::string* document) {
  std::ifstream in(kDocument, std::ios::binary);
  std::stringstream buffer;
  buffer << in.rdbuf();
  *document = buffer.str();
  const size_t start = document->find(kTableStart);
  const size_t end = document->find(kTableEnd);
  std::vector<std::string> lines;
  if (start == std::string::npos || end == std::string::npos || end < start) {
    ADD_FAILURE() << kDocument << " has no table between its markers";
    return lines;
  }
  std::istringstream table(document->substr(start + std::strlen(kTableStart), end - start - std::strlen(kTableStart)));
  for (std::string line; std::getline(table, line);) lines.push_back(line + "\n");
  return lines;
}

bool writing() {
  const char* write = std::getenv("MODULE_STORAGE_WRITE_FAULT_MATRIX");
  return write != nullptr && std::string(write) == "1";
}

// Puts `line` in place of the row's line (or at the end of the table).
void writeRowLine(const Row& row, const std::string& line) {
  std::string document;
  std::vector<std::string> lines = documentedLines(&document);
  const std::string prefix = std::string("| ") + row.name + " |";
  bool replaced = false;
  for (std::string& existing : lines) {
    if (existing.rfind(prefix, 0) == 0) {
      existing = line;
      replaced = true;
    }
  }
  if (!replaced) lines.push_back(line);
  std::string table;
  for (const std::string& each : lines) table += each;
  const size_t start = document.find(kTableStart) + std::strlen(kTableStart);
  const size_t end = document.find(kTableEnd);
  std::ofstream out(kDocument, std::ios::binary | std::ios::trunc);
  out << document.substr(0, start) << table << document.substr(end);
}

class FaultMatrix : public ::testing::TestWithParam<size_t> {
 protected:
  void SetUp() override { setNumberHandlerForTesting(&numbers); }
  void TearDown() override {
    setNumberHandlerForTesting(nullptr);
    sim::uninstallMachine();
  }

  FixedSeedNumbers numbers;

  // Runs every column of the row; each cell lists the results its runs gave.
  std::map<Fault, std::string> runRow(const Row& row, std::string* disk) {
    std::map<Fault, std::string> cell;
    auto check = [&](const Outcome& outcome, const std::string& what) {
      for (const std::string& problem : outcome.problems) ADD_FAILURE() << what << ": " << problem;
      if (outcome.result.empty()) ADD_FAILURE() << what << ": no result";
    };

    const Outcome clean = runCell(row, {});
    check(clean, describe(row, Fault::None, {}));
    cell[Fault::None] = clean.result;
    *disk = clean.disk;
    const uint64_t sectors = clean.disk == "nvme" ? kNvmeSectors : clean.disk == "sas" ? kSasSectors : kHddSectors;

    for (const Column& column : columns()) {
      std::set<std::string> results;
      std::vector<Arming> armings;
      switch (column.fault) {
        case Fault::None:
          continue;
        case Fault::Vanish:
          for (uint64_t k : sweep(clean.commands)) armings.push_back({column.fault, k, 0});
          break;
        case Fault::HostAbort:
        case Fault::SystemEvent:
          for (uint64_t k : sweep(clean.progressSteps)) armings.push_back({column.fault, k, 0});
          break;
        case Fault::MediumInside: {
          uint64_t lba = 0;
          if (sectorInside(clean.reads, &lba)) armings.push_back({column.fault, 0, lba});
          break;
        }
        case Fault::MediumOutside: {
          uint64_t lba = 0;
          if (sectorOutside(clean.reads, sectors, &lba)) armings.push_back({column.fault, 0, lba});
          break;
        }
        default:
          armings.push_back({column.fault, 0, 0});
          break;
      }
      for (const Arming& arming : armings) {
        const Outcome outcome = runCell(row, arming);
        check(outcome, describe(row, column.fault, arming));
        if (!outcome.result.empty()) results.insert(outcome.result);
      }
      cell[column.fault] = armings.empty() ? "n/a" : joined(results);
    }
    return cell;
  }
};

TEST_P(FaultMatrix, EndsWithTheDocumentedResultUnderEachFaultAndWritesOnlyWhatItMay) {
  const Row& row = rows().at(GetParam());
  std::string disk;
  const std::map<Fault, std::string> cells = runRow(row, &disk);
  const std::string line = rowLine(row, disk, cells);
  if (writing()) writeRowLine(row, line);
  std::string document;
  const std::vector<std::string> lines = documentedLines(&document);
  const std::string prefix = std::string("| ") + row.name + " |";
  std::string documented = "(the document has no line for this row)\n";
  for (const std::string& existing : lines) {
    if (existing.rfind(prefix, 0) == 0) documented = existing;
  }
  EXPECT_EQ(documented, line) << "docs/fault-matrix.md differs from what the runs gave";
}

std::string rowTestName(const ::testing::TestParamInfo<size_t>& info) {
  std::string name;
  for (const char* c = rows().at(info.param).name; *c != '\0'; ++c) {
    if (std::isalnum(static_cast<unsigned char>(*c))) name += *c;
  }
  return name;
}

INSTANTIATE_TEST_SUITE_P(Rows, FaultMatrix, ::testing::Range<size_t>(0, 15), rowTestName);

TEST(FaultMatrixDocument, ListsEveryRowOnceUnderTheColumnsInOrder) {
  std::string document;
  const std::vector<std::string> lines = documentedLines(&document);
  ASSERT_GE(lines.size(), 2u);
  EXPECT_EQ(lines[0] + lines[1], headerLines());
  ASSERT_EQ(rows().size(), 15u);
  ASSERT_EQ(lines.size(), rows().size() + 2);
  for (size_t i = 0; i < rows().size(); ++i) {
    EXPECT_EQ(lines[i + 2].rfind(std::string("| ") + rows()[i].name + " |", 0), 0u) << lines[i + 2];
  }
}

}  // namespace
