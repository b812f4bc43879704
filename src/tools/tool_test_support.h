// Host-side objects for the tests of the recover tool: an event sink that
// records each event with the outputs that stood when it fired, an abort flag
// a test can trip at a chosen moment, an operation whose answers a test sets,
// and a device whose sectors fail by LBA both through the handle and through
// device reads.
#pragma once

#include <cstdint>
#include <deque>
#include <functional>
#include <map>
#include <memory>
#include <set>
#include <string>
#include <vector>

#include "components/storage_component.h"
#include "module_storage/test.h"
#include "module_storage/tool.h"
#include "testing/scripted_filesystem.h"
#include "testing/scripted_protocol.h"
#include "tools/recover_bad_sectors_operation.h"
#include "tools/tool_status.h"

namespace tooltest {

using List = std::vector<std::string>;

// One fired event, with the list under its name less "On" and the shared
// outputs as they stood at that moment (absent keys are left out).
struct FiredEvent {
  std::string name;
  Tool* tool = nullptr;
  bool hasValues = false;
  List values;
  std::map<std::string, List> outputs;  // "Message", "SectorsInfo", "BadSectorsList", "Progress"

  bool hasOutput(const std::string& key) const { return outputs.count(key) != 0; }
  List output(const std::string& key) const {
    auto it = outputs.find(key);
    return it == outputs.end() ? List{"<absent>"} : it->second;
  }
};

// The handlers are plain functions, so the sink being fired is the one that
// is active; a sink is active from its construction to its destruction.
class RecordingToolSink : public ToolEventSink {
 public:
  static constexpr const char* kEventNames[] = {"OnRecoverInit",     "OnOperationInit", "OnDeviceInit",
                                                "OnPartitionInit",   "OnPartitionFinish", "OnDeviceFinish",
                                                "OnProgress",        "OnRecoverFinish"};

  RecordingToolSink() {
    for (const char* eventName : kEventNames) handlers[eventName] = &RecordingToolSink::handle;
    active() = this;
  }
  ~RecordingToolSink() override {
    if (active() == this) active() = nullptr;
  }

  void requestInput(InputRequest& request) override {
    questions.push_back({request.title, request.text, request.numberA, request.numberB});
    request.answer = nextAnswer < answers.size() ? answers[nextAnswer++] : 0;
  }

  std::vector<std::string> names() const {
    std::vector<std::string> out;
    for (const FiredEvent& event : events) out.push_back(event.name);
    return out;
  }
  // Names without the OnProgress events.
  std::vector<std::string> namesWithoutProgress() const {
    std::vector<std::string> out;
    for (const FiredEvent& event : events) {
      if (event.name != "OnProgress") out.push_back(event.name);
    }
    return out;
  }
  std::vector<FiredEvent> named(const std::string& eventName) const {
    std::vector<FiredEvent> out;
    for (const FiredEvent& event : events) {
      if (event.name == eventName) out.push_back(event);
    }
    return out;
  }
  // The Progress values in order of firing.
  std::vector<std::string> progress() const {
    std::vector<std::string> out;
    for (const FiredEvent& event : named("OnProgress")) out.push_back(event.values.empty() ? "" : event.values[0]);
    return out;
  }

  struct Question {
    std::string title;
    std::string text;
    uint32_t numberA;
    uint32_t numberB;
  };
  std::vector<FiredEvent> events;
  std::vector<Question> questions;
  std::vector<uint32_t> answers;  // consumed in order; 0 once they run out
  // Called after an event is recorded, so a test can act in the middle of a run.
  std::function<void(const FiredEvent&)> onEvent;

 private:
  static RecordingToolSink*& active() {
    static RecordingToolSink* sink = nullptr;
    return sink;
  }
  static void handle(Tool* tool, std::string eventName) {
    RecordingToolSink* sink = active();
    if (sink == nullptr) return;
    FiredEvent event;
    event.name = eventName;
    event.tool = tool;
    const std::string key = eventName.substr(2);
    if (const List* values = tool->getValues(key)) {
      event.hasValues = true;
      event.values = *values;
    }
    for (const char* output : {"Message", "SectorsInfo", "BadSectorsList", "Progress"}) {
      if (const List* values = tool->getValues(output)) event.outputs[output] = *values;
    }
    sink->events.push_back(event);
    if (sink->onEvent) sink->onEvent(sink->events.back());
  }

  size_t nextAnswer = 0;
};

// The host's abort switch. set(false) at the start of execute clears it, so a
// test trips it during the run: with tripOnQuery, the Nth isSet (1-based)
// and every later one report set.
class RecordingAbortFlag : public ToolAbortFlag {
 public:
  void set(bool value) override {
    setCalls.push_back(value);
    flag = value;
  }
  uint8_t isSet() override {
    ++queries;
    if (tripOnQuery != 0 && queries >= tripOnQuery) flag = true;
    return flag ? 1 : 0;
  }

  bool flag = false;
  int queries = 0;
  int tripOnQuery = 0;
  std::vector<bool> setCalls;
};

// An operation whose statuses, log and counters a test sets, recording how
// the driver called it.
class FakeOperation : public CheckFilesystemOperation {
 public:
  struct RunCall {
    std::string planId;
    int partitionIndex;
    StorageComponent* device;
    ToolEventSink* listener;
    std::string logAtStart;
  };

  explicit FakeOperation(Tool* owner, std::string operationName = "FAKE_TOOL") : CheckFilesystemOperation(owner) {
    name = std::move(operationName);
  }

  uint32_t run(DevicePlan& plan, int partitionIndex) override {
    runs.push_back({plan.id, partitionIndex, device, listener, logText});
    logText = "log of run " + std::to_string(runs.size()) + "\n";
    if (withCounters) {
      counters[0] += 100;
      counters[1] += foundPerRun.size();
      counters[2] += fixedPerRun;
      for (uint64_t lba : foundPerRun) badSectors.push_back(lba);
    }
    if (onRun) onRun();
    if (statuses.empty()) return kToolStatusClean;
    const uint32_t status = statuses.front();
    statuses.pop_front();
    return status;
  }
  void abort() override { ++aborts; }
  std::string getLog() override { return logText; }
  void clearLog() override {
    ++clears;
    logText.clear();
  }
  const uint64_t* getCounters() override { return withCounters ? counters : nullptr; }
  const std::vector<uint64_t>* getBadSectors() override { return withCounters ? &badSectors : nullptr; }
  bool scheduleCheck(std::string mountPath) override {
    scheduled.push_back(mountPath);
    return scheduleResult;
  }

  std::deque<uint32_t> statuses;  // one per run; 0 once they run out
  std::function<void()> onRun;
  std::vector<RunCall> runs;
  std::vector<std::string> scheduled;
  bool scheduleResult = true;
  bool withCounters = false;
  std::vector<uint64_t> foundPerRun;
  uint64_t fixedPerRun = 0;
  uint64_t counters[4] = {0, 0, 0, 0};
  std::vector<uint64_t> badSectors;
  std::string logText;
  int clears = 0;
  int aborts = 0;
};

// A protocol over a disk whose sectors fail device reads by LBA: each LBA
// has a queue of statuses, used one per read, and a status that stands once
// its queue is empty (0 unless set).
class SectorMapProtocol : public mstest::ScriptedProtocol {
 public:
  explicit SectorMapProtocol(uint64_t sectorCount, uint32_t sectorSize = 512) {
    StorageProtocolProperties properties;
    properties.sectorCount = sectorCount;
    properties.logicalSectorSize = sectorSize;
    properties.physicalSectorSize = sectorSize;
    properties.model = "SCRIPTED";
    setProperties(properties);
    setCachedProperties(properties);
  }

  uint32_t readSectors(uint64_t lba, uint16_t count, uint32_t timeoutSeconds, void* buffer) override {
    calls.push_back({mstest::Op::ReadSectors, lba, count, timeoutSeconds});
    auto queued = queues.find(lba);
    if (queued != queues.end() && !queued->second.empty()) {
      const uint32_t status = queued->second.front();
      queued->second.pop_front();
      return status;
    }
    auto standing = standingStatus.find(lba);
    if (standing != standingStatus.end()) return standing->second;
    if (buffer != nullptr) fillPattern(lba, buffer);
    return 0;
  }

  // Reads a rewritten sector back as it was written.
  void fillPattern(uint64_t lba, void* buffer) {
    auto it = written.find(lba);
    if (it != written.end()) std::copy(it->second.begin(), it->second.end(), static_cast<uint8_t*>(buffer));
  }

  // Device reads of `lba` fail with `status` from now on.
  void failAlways(uint64_t lba, uint32_t status) { standingStatus[lba] = status; }
  // The next device reads of `lba` answer these statuses, in order.
  void failNext(uint64_t lba, std::vector<uint32_t> statuses) {
    for (uint32_t status : statuses) queues[lba].push_back(status);
  }

  std::vector<uint64_t> readLbas() const {
    std::vector<uint64_t> out;
    for (const mstest::Call& call : callsOf(mstest::Op::ReadSectors)) out.push_back(call.first);
    return out;
  }

  std::map<uint64_t, std::deque<uint32_t>> queues;
  std::map<uint64_t, uint32_t> standingStatus;
};

// A handle whose raw reads fail when the asked range holds a listed sector.
// Reads are recorded as (first LBA, sector count) with the sector size given.
class SectorMapFilesystem : public mstest::ScriptedFilesystem {
 public:
  explicit SectorMapFilesystem(uint32_t sectorSize = 512) : sectorSize(sectorSize) {}

  uint32_t read(HANDLE handle, uint64_t offset, uint64_t length, uint64_t* done, uint32_t timeoutSeconds,
                void* buffer) override {
    reads.push_back({handle, offset, length, timeoutSeconds});
    const uint64_t first = offset / sectorSize;
    const uint64_t end = first + length / sectorSize;
    for (uint64_t lba : failing) {
      if (lba >= first && lba < end) {
        if (done != nullptr) *done = 0;
        return kCrcError;
      }
    }
    (void)buffer;
    if (done != nullptr) *done = length;
    return 0;
  }

  static constexpr uint32_t kCrcError = 23;  // ERROR_CRC
  uint32_t sectorSize;
  std::set<uint64_t> failing;
};

// A storage component on a borrowed protocol of the test's: the component
// owns a forwarding protocol, so the test keeps its scripted one.
class ForwardingProtocol : public StorageProtocol {
 public:
  explicit ForwardingProtocol(StorageProtocol* target) : target(target) {}
  HANDLE getHandle() override { return target->getHandle(); }
  uint32_t getProperties(StorageProtocolProperties* out) override {
    const uint32_t status = target->getProperties(out);
    target->getCachedProperties(&cache);
    return status;
  }
  uint32_t readSectors(uint64_t lba, uint16_t count, uint32_t timeoutSeconds, void* buffer) override {
    return target->readSectors(lba, count, timeoutSeconds, buffer);
  }
  uint32_t getTemperature(uint8_t* celsius) override { return target->getTemperature(celsius); }
  uint32_t startSelfTest(uint8_t code, uint8_t count) override { return target->startSelfTest(code, count); }
  uint32_t getSelfTestProgress(uint8_t* percent) override { return target->getSelfTestProgress(percent); }
  uint32_t getSelfTestStatus(uint8_t* status) override { return target->getSelfTestStatus(status); }
  uint32_t abortSelfTest() override { return target->abortSelfTest(); }
  uint32_t getSelfTestFailingLba(uint64_t* lba) override { return target->getSelfTestFailingLba(lba); }
  uint32_t getSmartStatus(uint8_t* healthy) override { return target->getSmartStatus(healthy); }
  uint32_t enableSmart(uint8_t enable) override { return target->enableSmart(enable); }
  bool isAccessible() override { return target->isAccessible(); }
  uint32_t writeUncorrectable(uint64_t lba) override { return target->writeUncorrectable(lba); }
  uint32_t writeSector(uint64_t lba, void* buffer) override { return target->writeSector(lba, buffer); }
  void refreshCache() { target->getCachedProperties(&cache); }

 private:
  StorageProtocol* target;
};

// A component with an id, a bus, a location and a description name, reached
// through `protocol` (borrowed; may be null for a component that is never read).
inline std::unique_ptr<StorageComponent> makeComponent(const std::string& id, StorageProtocol* protocol,
                                                       uint32_t busKind = kBusAta,
                                                       uint32_t location = kLocationInternal) {
  std::unique_ptr<StorageProtocol> forwarding;
  if (protocol != nullptr) {
    auto owned = std::make_unique<ForwardingProtocol>(protocol);
    owned->refreshCache();
    forwarding = std::move(owned);
  }
  auto component = std::make_unique<StorageComponent>(std::move(forwarding), nullptr);
  component->setId(id);
  component->setName("disk " + id);
  component->setBusKind(busKind);
  component->setLocation(location);
  return component;
}

}  // namespace tooltest
