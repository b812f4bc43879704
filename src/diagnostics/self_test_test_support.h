// Test support for the self tests: a run context that moves the simulated
// PC's clock at every abort check (the poll loop's one pass), and a fixture
// with an internal ATA disk on the scripted protocol whose timer reads the
// virtual clock of an installed, empty machine.
#pragma once

#include <gtest/gtest.h>

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "commands/bridges/ata_bridge.h"
#include "commands/bridges/sat_bridge.h"
#include "commands/bridges/scsi_bridge.h"
#include "components/storage_component.h"
#include "protocols/ata_protocol.h"
#include "protocols/scsi_protocol.h"
#include "sim/machine.h"
#include "sim/windows/face.h"
#include "testing/recording_host.h"
#include "testing/scripted_filesystem.h"
#include "testing/scripted_protocol.h"
#include "testing/simulated_pc.h"
#include "win32/win32.h"

namespace mstest {

// Each isAbortRequested moves the installed machine's clock by `stepMs`, as
// the time one pass of a test's loop would take on a real PC. A loop that
// never ends is stopped by an abort after `passLimit` passes and marked, so
// that a test fails instead of hanging.
class ClockedRunContext : public ScriptedRunContext {
 public:
  using ScriptedRunContext::ScriptedRunContext;

  bool isAbortRequested() override {
    if (sim::Machine* machine = sim::installedMachine()) machine->clock().advanceMs(stepMs);
    if (++passes > passLimit) {
      runaway = true;
      abortRequested = true;
    }
    return ScriptedRunContext::isAbortRequested();
  }

  uint64_t stepMs = 1000;
  uint64_t passes = 0;
  uint64_t passLimit = 1000000;
  bool runaway = false;
};

// Milliseconds on the installed machine's clock; 0 without one.
inline uint64_t machineNowMs() {
  sim::Machine* machine = sim::installedMachine();
  return machine != nullptr ? machine->clock().nowMs() : 0;
}

// One look at the drive during the poll loop: progress, then status nibble.
struct PollAnswer {
  uint8_t percent;
  uint8_t status;
};

// An internal SATA disk with SMART (switched off until a test runs) and
// self tests, reached by the scripted protocol.
class SelfTestFixture : public ::testing::Test {
 protected:
  SelfTestFixture()
      : protocol(new ScriptedProtocol()),
        disk(std::unique_ptr<StorageProtocol>(protocol), nullptr),
        context(&disk, &listener, &log) {
    std::string error;
    auto machine = std::make_unique<sim::Machine>();
    // The host's passes alone pace these runs, so that their times come out
    // round; reads of the ticks cost nothing here.
    machine->clock().setTickReadCostMs(0);
    EXPECT_TRUE(sim::installMachine(std::move(machine), &error)) << error;
    disk.setLocation(kLocationInternal);
    disk.setBusKind(kBusAta);
    protocol->setProtocolKind(kProtocolAta);
    protocol->setBusKind(kBusAta);
    properties.smartSupported = true;
    properties.smartEnabled = false;
    properties.smartDataValid = true;
    properties.offlineImmediateSupported = true;
    properties.selfTestSupported = true;
    properties.sectorCount = 1000000;
    properties.logicalSectorSize = 512;
    applyProperties();
  }

  ~SelfTestFixture() override { sim::uninstallMachine(); }

  void applyProperties() {
    protocol->setCachedProperties(properties);
    protocol->setProperties(properties);
  }

  // A SAS disk on the SCSI protocol instead.
  void makeScsi() {
    disk.setBusKind(kBusScsi);
    protocol->setProtocolKind(kProtocolScsi);
    protocol->setBusKind(kBusScsi);
  }

  // The drive idle before the start, running at the first look, then the
  // polls in order; the last status stands after them.
  void scriptRun(const std::vector<PollAnswer>& polls, bool lookBeforeStart = true) {
    if (lookBeforeStart) protocol->script(Op::GetSelfTestStatus, kStatusOk, 0);
    protocol->script(Op::GetSelfTestStatus, kStatusOk, 15);
    for (const PollAnswer& poll : polls) {
      protocol->script(Op::GetSelfTestProgress, kStatusOk, poll.percent);
      protocol->script(Op::GetSelfTestStatus, kStatusOk, poll.status);
    }
    const uint8_t last = polls.empty() ? 15 : polls.back().status;
    protocol->setDefault(Op::GetSelfTestStatus, kStatusOk, last);
  }

  // Notes the machine's time at each event from now on.
  void timeEvents() {
    listener.onEvent = [this](const ProgressEvent&) { eventMs.push_back(machineNowMs()); };
  }
  // The noted times, counted from the first plain event at 0 percent (the
  // start of the drive's test); empty when there was none.
  std::vector<uint64_t> msSinceStartEvent() const {
    std::vector<uint64_t> since;
    for (size_t i = 0; i < listener.events.size() && i < eventMs.size(); ++i) {
      if (listener.events[i].percent != 0 || !listener.events[i].key.empty()) continue;
      for (uint64_t at : eventMs) since.push_back(at - eventMs[i]);
      break;
    }
    return since;
  }

  std::vector<Op> operations() const {
    std::vector<Op> order;
    for (const Call& call : protocol->calls) order.push_back(call.op);
    return order;
  }

  std::vector<uint64_t> enableSmartArguments() const {
    std::vector<uint64_t> arguments;
    for (const Call& call : protocol->callsOf(Op::EnableSmart)) arguments.push_back(call.first);
    return arguments;
  }

  ScriptedProtocol* protocol;
  StorageComponent disk;
  RecordingListener listener;
  RecordingLog log;
  ClockedRunContext context;
  ScriptedFilesystem filesystem;
  StorageProtocolProperties properties;
  std::vector<uint64_t> eventMs;
};

// The simulated PC with its disks opened through the Win32 seam, and the
// protocols that discovery would build on them, with the real bridges and
// senders below.
class SelfTestDisks : public SimulatedPcTest {
 protected:
  // Index of each disk of the built-in machine.
  static constexpr uint32_t kHdd0 = 0;
  static constexpr uint32_t kSsd0 = 1;
  static constexpr uint32_t kSas0 = 3;

  // An internal SATA disk as discovery makes it: the plain ATA transport,
  // then SAT with CK_COND; properties read once.
  std::unique_ptr<StorageComponent> ataDisk(uint32_t disk) {
    HANDLE handle = openDisk(disk);
    auto protocol = std::make_unique<AtaProtocol>();
    protocol->addTransport(std::make_shared<AtaBridge>(handle));
    protocol->addTransport(std::make_shared<SatBridgeWithCkCondition>(std::make_shared<ScsiBridge>(handle)));
    protocol->setProtocolKind(kProtocolAta);
    protocol->setBusKind(kBusAta);
    StorageProtocolProperties ignored;
    protocol->getProperties(&ignored);
    auto component = std::make_unique<StorageComponent>(std::move(protocol), nullptr);
    component->setLocation(kLocationInternal);
    component->setBusKind(kBusAta);
    return component;
  }

  // An internal SAS disk on the SCSI protocol.
  std::unique_ptr<StorageComponent> scsiDisk(uint32_t disk) {
    auto protocol = std::make_unique<ScsiProtocol>();
    protocol->addTransport(std::make_shared<ScsiBridge>(openDisk(disk)));
    protocol->setProtocolKind(kProtocolScsi);
    protocol->setBusKind(kBusScsi);
    StorageProtocolProperties ignored;
    protocol->getProperties(&ignored);
    auto component = std::make_unique<StorageComponent>(std::move(protocol), nullptr);
    component->setLocation(kLocationInternal);
    component->setBusKind(kBusScsi);
    return component;
  }

  RecordingListener listener;
  RecordingLog log;
};

}  // namespace mstest
