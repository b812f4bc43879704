// Fault wrappers and the journal they keep: each fault kind on an ATA device
// and a SCSI target through the one mechanism.
#include "sim/faults.h"

#include <gtest/gtest.h>

namespace sim {
namespace {

// A device that answers every command at once, and counts them.
class CountingAta : public AtaDevice {
 public:
  AtaResponse executeAta(const AtaRequest&) override {
    ++calls;
    AtaResponse r;
    r.out.status = 0x50;
    return r;
  }
  int calls = 0;
};

class CountingScsi : public ScsiTarget {
 public:
  ScsiResponse executeScsi(const ScsiRequest&) override {
    ++calls;
    return ScsiResponse{};
  }
  int calls = 0;
};

struct Rig {
  std::shared_ptr<VirtualClock> clock = std::make_shared<VirtualClock>();
  std::shared_ptr<Journal> journal = std::make_shared<Journal>();
  std::shared_ptr<CountingAta> drive = std::make_shared<CountingAta>();
  std::shared_ptr<FaultState> faults = std::make_shared<FaultState>(clock);
  FaultyAtaDevice device{drive, faults, journal, "d0", clock};

  AtaResponse send(uint8_t command, uint32_t timeout = 10) {
    AtaRequest r;
    r.in.command = command;
    r.timeoutSeconds = timeout;
    return device.executeAta(r);
  }
};

TEST(Faults, SlowCommandMovesTheClockAndCompletes) {
  Rig rig;
  rig.faults->plan().delayMs = 2500;
  EXPECT_EQ(rig.send(0x25).completion, Completion::Done);
  EXPECT_EQ(rig.clock->nowMs(), 2500u);
}

TEST(Faults, CommandSlowerThanItsTimeoutTimesOutAtTheTimeout) {
  Rig rig;
  rig.faults->plan().delayMs = 60000;
  EXPECT_EQ(rig.send(0x25, 10).completion, Completion::Timeout);
  EXPECT_EQ(rig.clock->nowMs(), 10000u);
}

TEST(Faults, HungCommandsOnlyHitTheListedOpcodes) {
  Rig rig;
  rig.faults->plan().hang = true;
  rig.faults->plan().opcodes = {0xB0};
  EXPECT_EQ(rig.send(0xEC).completion, Completion::Done);
  EXPECT_EQ(rig.send(0xB0, 0).completion, Completion::Timeout);
  EXPECT_EQ(rig.clock->nowMs(), 30000u);  // no time-out given: 30 s
  EXPECT_EQ(rig.drive->calls, 1);
}

TEST(Faults, DeviceVanishesAfterNCommands) {
  Rig rig;
  rig.faults->plan().vanishAfterCommands = 2;
  EXPECT_EQ(rig.send(0xEC).completion, Completion::Done);
  EXPECT_EQ(rig.send(0xEC).completion, Completion::Done);
  EXPECT_EQ(rig.send(0xEC).completion, Completion::NoDevice);
  EXPECT_TRUE(rig.faults->vanished());
  EXPECT_EQ(rig.drive->calls, 2);
}

TEST(Faults, DeviceVanishesAtAVirtualTime) {
  Rig rig;
  rig.faults->plan().vanishAtMs = 5000;
  EXPECT_EQ(rig.send(0xEC).completion, Completion::Done);
  rig.clock->advanceMs(5000);
  EXPECT_EQ(rig.send(0xEC).completion, Completion::NoDevice);
}

TEST(Faults, FailingTransportLosesTheChosenCommands) {
  Rig rig;
  rig.faults->plan().transportFailFrom = 2;
  rig.faults->plan().transportFailCount = 2;
  EXPECT_EQ(rig.send(0xEC).completion, Completion::Done);
  EXPECT_EQ(rig.send(0xEC).completion, Completion::TransportError);
  EXPECT_EQ(rig.send(0xEC).completion, Completion::TransportError);
  EXPECT_EQ(rig.send(0xEC).completion, Completion::Done);
  EXPECT_EQ(rig.drive->calls, 2);
}

TEST(Faults, JournalKeepsEveryCommandWithItsFate) {
  Rig rig;
  rig.faults->plan().vanishAfterCommands = 1;
  rig.send(0xEC);
  rig.send(0xB0);
  const auto entries = rig.journal->commandsTo("d0");
  ASSERT_EQ(entries.size(), 2u);
  EXPECT_EQ(entries[0].opcode(), 0xEC);
  EXPECT_EQ(entries[0].completion, Completion::Done);
  EXPECT_EQ(entries[0].status, 0x50);
  EXPECT_EQ(entries[1].completion, Completion::NoDevice);
  EXPECT_EQ(rig.journal->opcodesTo("d0"), (std::vector<uint8_t>{0xEC, 0xB0}));
  EXPECT_TRUE(rig.journal->commandsTo("other").empty());
}

TEST(Faults, SameMechanismWrapsAScsiTarget) {
  auto clock = std::make_shared<VirtualClock>();
  auto journal = std::make_shared<Journal>();
  auto target = std::make_shared<CountingScsi>();
  auto faults = std::make_shared<FaultState>(clock);
  faults->plan().vanishAfterCommands = 1;
  FaultyScsiTarget wrapped(target, faults, journal, "s0", clock);
  const uint8_t cdb[6] = {0x12, 0, 0, 0, 36, 0};
  ScsiRequest r;
  r.cdb = cdb;
  r.cdbLength = 6;
  EXPECT_EQ(wrapped.executeScsi(r).completion, Completion::Done);
  EXPECT_EQ(wrapped.executeScsi(r).completion, Completion::NoDevice);
  const auto entries = journal->commandsTo("s0");
  ASSERT_EQ(entries.size(), 2u);
  EXPECT_EQ(entries[0].length, 6);
  EXPECT_EQ(entries[0].bytes[4], 36);
}

TEST(Faults, DisabledJournalRecordsNothing) {
  Rig rig;
  rig.journal->setEnabled(false);
  rig.send(0xEC);
  EXPECT_TRUE(rig.journal->entries().empty());
}

}  // namespace
}  // namespace sim
