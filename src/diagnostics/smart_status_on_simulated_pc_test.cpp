// The SMART status test on SAS and NVMe drives of the simulated PC, as a host
// runs it from the catalogue: on targets that follow SPC neither health route
// answers the module's health commands as they are built; on targets with
// healthQuirks both routes run to a verdict.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "components/storage_component.h"
#include "module_storage/module_storage.h"
#include "testing/recording_host.h"
#include "testing/simulated_pc.h"

namespace {

using mstest::LogLine;
using mstest::ProgressEvent;

const char* kMachine = R"({"name": "health", "disks": [
  {"name": "sas-spc", "kind": "scsi", "bus": "sas", "profile": {"product": "SAS SPC", "capacitySectors": 100000}},
  {"name": "sas-good", "kind": "scsi", "bus": "sas",
   "profile": {"product": "SAS GOOD", "capacitySectors": 100000, "healthQuirks": true}},
  {"name": "sas-bad", "kind": "scsi", "bus": "sas",
   "profile": {"product": "SAS BAD", "capacitySectors": 100000, "healthQuirks": true, "failurePredicted": true}},
  {"name": "sas-off", "kind": "scsi", "bus": "sas",
   "profile": {"product": "SAS OFF SPC", "capacitySectors": 100000, "iecFlags": 8}},
  {"name": "sas-off-quirks", "kind": "scsi", "bus": "sas",
   "profile": {"product": "SAS OFF QUIRKS", "capacitySectors": 100000, "iecFlags": 8, "healthQuirks": true}},
  {"name": "nvme-spc", "kind": "nvme", "profile": {"model": "NVME SPC", "capacitySectors": 100000,
   "health": {"criticalWarning": 1}}},
  {"name": "nvme-good", "kind": "nvme", "profile": {"model": "NVME GOOD", "capacitySectors": 100000,
   "healthQuirks": true}},
  {"name": "nvme-bad", "kind": "nvme", "profile": {"model": "NVME BAD", "capacitySectors": 100000,
   "healthQuirks": true, "health": {"criticalWarning": 1}}}]})";

class SmartStatusOnSimulatedPc : public mstest::SimulatedPcTest {
 protected:
  void SetUp() override {
    SimulatedPcTest::SetUp();
    machine = installJson(kMachine);
    ASSERT_NE(machine, nullptr);
    module = GetModuleInterfaceInstance();
    ASSERT_NE(module, nullptr);
    module->getComponentManager()->refresh();
  }
  void TearDown() override {
    ReleaseModuleInterfaceInstance();
    SimulatedPcTest::TearDown();
  }

  struct Outcome {
    uint32_t result = 99;
    std::vector<ProgressEvent> keyed;
    std::vector<LogLine> lines;
    std::vector<uint8_t> opcodes;  // what reached the drive during the run
  };

  // Runs the catalogue's SMART status test (1.1.1) on the component whose
  // model starts with `model`.
  Outcome run(const std::string& model, const std::string& drive) {
    Outcome outcome;
    SystemComponentManager* manager = module->getComponentManager();
    SystemComponent* target = nullptr;
    for (uint32_t i = 0; i < manager->getComponentCount(); ++i) {
      auto* disk = static_cast<StorageComponent*>(manager->getComponent(i));
      for (const DetailEntry& entry : disk->getDetails()) {
        if (entry.key == "MODEL" && entry.value.rfind(model, 0) == 0) target = disk;
      }
    }
    EXPECT_NE(target, nullptr) << model;
    if (target == nullptr) return outcome;
    ::Test* test = module->getDiagnostic(0)->getTestById(ItemId(1, 1, 1));
    EXPECT_NE(test, nullptr);
    if (test == nullptr) return outcome;
    mstest::RecordingListener listener;
    mstest::RecordingLog log;
    mstest::ScriptedRunContext context(target, &listener, &log);
    machine->journal().clear();
    outcome.result = test->run(&context);
    outcome.keyed = listener.keyedEvents();
    outcome.lines = log.lines;
    outcome.opcodes = machine->journal().opcodesTo(drive);
    return outcome;
  }

  static bool sent(const Outcome& outcome, uint8_t opcode) {
    for (uint8_t o : outcome.opcodes) {
      if (o == opcode) return true;
    }
    return false;
  }

  sim::Machine* machine = nullptr;
  ModuleInterface* module = nullptr;
};

constexpr uint8_t kRequestSense = 0x03;
constexpr uint8_t kLogSense = 0x4D;

TEST_F(SmartStatusOnSimulatedPc, OnASasTargetThatFollowsSpcTheTestDoesNotApplyAndSaysSmartNotSupported) {
  const Outcome o = run("SAS SPC", "sas-spc");
  EXPECT_EQ(o.result, static_cast<uint32_t>(NOT_APPLICABLE));
  EXPECT_EQ(o.keyed, (std::vector<ProgressEvent>{{100, "SMART_NOT_SUPPORTED"}}));
  EXPECT_EQ(o.lines, (std::vector<LogLine>{{"SMART_NOT_SUPPORTED", LevelError}}));
}

TEST_F(SmartStatusOnSimulatedPc, OnAnNvmeTranslationThatFollowsSpcTheTestDoesNotApplyWithoutAKey) {
  const Outcome o = run("NVME SPC", "nvme-spc");
  EXPECT_EQ(o.result, static_cast<uint32_t>(NOT_APPLICABLE));
  EXPECT_TRUE(o.keyed.empty());
  EXPECT_TRUE(o.lines.empty());
  // Both routes were tried, and neither gave a verdict.
  EXPECT_TRUE(sent(o, kRequestSense));
  EXPECT_TRUE(sent(o, kLogSense));
}

constexpr uint8_t kModeSelect6 = 0x15;
constexpr uint8_t kModeSelect10 = 0x55;

TEST_F(SmartStatusOnSimulatedPc, OnAnSpcTargetWithExceptionsDisabledTheTestDoesNotApplyAndWritesNoModePage) {
  // The exceptions control page is there, with DEXCPT set, but the module's
  // MODE SENSE leaves its allocation length at 0, so an SPC target answers
  // no page: SMART counts as not supported, and the test switches nothing.
  const Outcome o = run("SAS OFF SPC", "sas-off");
  EXPECT_EQ(o.result, static_cast<uint32_t>(NOT_APPLICABLE));
  EXPECT_EQ(o.keyed, (std::vector<ProgressEvent>{{100, "SMART_NOT_SUPPORTED"}}));
  EXPECT_FALSE(sent(o, kModeSelect6));
  EXPECT_FALSE(sent(o, kModeSelect10));
}

TEST_F(SmartStatusOnSimulatedPc, ATargetWithExceptionsDisabledIsSwitchedOnForTheTestAndBackAfterIt) {
  // A target that answers the page: the guard clears DEXCPT before the
  // query and writes the page as it found it afterwards, run after run.
  for (int round = 0; round < 2; ++round) {
    const Outcome o = run("SAS OFF QUIRKS", "sas-off-quirks");
    EXPECT_EQ(o.result, static_cast<uint32_t>(SUCCESS)) << "round " << round;
    size_t selects = 0;
    for (uint8_t opcode : o.opcodes) selects += opcode == kModeSelect6 ? 1 : 0;
    EXPECT_EQ(selects, 2u) << "round " << round << ": one to switch on, one to put the page back";
  }
}

TEST_F(SmartStatusOnSimulatedPc, AHealthySasTargetWithHealthQuirksPassesThroughTheLogAndTheSenseRoute) {
  const Outcome o = run("SAS GOOD", "sas-good");
  EXPECT_EQ(o.result, static_cast<uint32_t>(SUCCESS));
  EXPECT_TRUE(o.keyed.empty());
  EXPECT_TRUE(o.lines.empty());
  EXPECT_TRUE(sent(o, kLogSense));
  EXPECT_TRUE(sent(o, kRequestSense));
}

TEST_F(SmartStatusOnSimulatedPc, AFailingSasTargetWithHealthQuirksFailsThroughTheLogRoute) {
  const Outcome o = run("SAS BAD", "sas-bad");
  EXPECT_EQ(o.result, static_cast<uint32_t>(FAILED));
  EXPECT_TRUE(o.keyed.empty());
  EXPECT_TRUE(o.lines.empty());
  EXPECT_TRUE(sent(o, kLogSense));
  EXPECT_FALSE(sent(o, kRequestSense)) << "the log page's 0x5D decided";
}

TEST_F(SmartStatusOnSimulatedPc, AHealthyNvmeTranslationWithHealthQuirksPassesThroughTheSenseRoute) {
  const Outcome o = run("NVME GOOD", "nvme-good");
  EXPECT_EQ(o.result, static_cast<uint32_t>(SUCCESS));
  EXPECT_TRUE(o.keyed.empty());
  EXPECT_TRUE(sent(o, kRequestSense));
  EXPECT_FALSE(sent(o, kLogSense));
}

TEST_F(SmartStatusOnSimulatedPc, AFailingNvmeTranslationWithHealthQuirksFailsThroughTheSenseRoute) {
  const Outcome o = run("NVME BAD", "nvme-bad");
  EXPECT_EQ(o.result, static_cast<uint32_t>(FAILED));
  EXPECT_TRUE(o.keyed.empty());
  EXPECT_TRUE(o.lines.empty());
  EXPECT_TRUE(sent(o, kRequestSense));
  EXPECT_FALSE(sent(o, kLogSense)) << "the sense data's 0xD5 decided";
}

}  // namespace
