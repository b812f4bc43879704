// The targeted read and seek tests on the drives that discovery finds on the
// built-in machine, as the host runs them: which drive each test is offered
// on, and a run of each quick test on a drive it fits.
#include <gtest/gtest.h>

#include <memory>
#include <vector>

#include "components/storage_component_manager.h"
#include "diagnostics/funnel_seek.h"
#include "diagnostics/random_seek.h"
#include "diagnostics/seek_test_support.h"
#include "diagnostics/targeted_read.h"
#include "testing/recording_host.h"
#include "testing/simulated_pc.h"

namespace {

using mstest::LogLine;
using mstest::ProgressEvent;

class ReadTestsOnTheDefaultMachine : public mstest::SimulatedPcTest {
 protected:
  void SetUp() override {
    SimulatedPcTest::SetUp();
    ASSERT_NE(installDefault(), nullptr);
    manager = std::make_unique<StorageComponentManager>(ItemId(1, 0, 1));
    manager->refresh();
  }
  void TearDown() override {
    manager.reset();
    SimulatedPcTest::TearDown();
  }

  // Whether `test` is offered on each discovered drive, in discovery order.
  std::vector<bool> offeredOn(::Test& test) {
    std::vector<bool> offered;
    for (uint32_t i = 0; i < manager->getComponentCount(); ++i) {
      offered.push_back(test.isSupported(manager->getComponent(i)));
    }
    return offered;
  }

  std::unique_ptr<StorageComponentManager> manager;
  mstest::RecordingListener listener;
  mstest::RecordingLog log;
};

// Discovery order: internal HDD, SSD, NVMe, SAS, eMMC, then two USB disks.
TEST_F(ReadTestsOnTheDefaultMachine, EachTestIsOfferedOnTheDrivesItFits) {
  ASSERT_EQ(manager->getComponentCount(), 7u);
  TargetedReadTest targeted(ItemId(1, 1, 2));
  QuickRandomSeekTest quickRandom(ItemId(1, 1, 3));
  QuickFunnelSeekTest quickFunnel(ItemId(1, 1, 4));
  ExtendedRandomSeekTest extendedRandom(ItemId(1, 2, 8));
  ExtendedFunnelSeekTest extendedFunnel(ItemId(1, 2, 9));
  // Internal ATA drives with SMART only.
  EXPECT_EQ(offeredOn(targeted), (std::vector<bool>{true, true, false, false, false, false, false}));
  // Everything but NVMe and eMMC, external drives included.
  const std::vector<bool> quickSeek{true, true, false, true, false, true, true};
  EXPECT_EQ(offeredOn(quickRandom), quickSeek);
  EXPECT_EQ(offeredOn(quickFunnel), quickSeek);
  // SCSI drives on a SCSI bus only.
  const std::vector<bool> extendedSeek{false, false, false, true, false, false, false};
  EXPECT_EQ(offeredOn(extendedRandom), extendedSeek);
  EXPECT_EQ(offeredOn(extendedFunnel), extendedSeek);
  // Asking made no event reach the host.
  EXPECT_TRUE(listener.events.empty());
}

TEST_F(ReadTestsOnTheDefaultMachine, TargetedReadOnTheDiscoveredHardDiskFindsItsBadSector) {
  mstest::ScriptedRunContext context(manager->getComponent(0), &listener, &log);
  TargetedReadTest test(ItemId(1, 1, 2));
  EXPECT_EQ(test.run(&context), FAILED);
  EXPECT_EQ(log.lines, (std::vector<LogLine>{{"READING_SECTOR 193536017", LevelFailure}}));
}

TEST_F(ReadTestsOnTheDefaultMachine, QuickSeekTestsPassOnTheDiscoveredExternalDisk) {
  mstest::ScriptedNumberHandler numbers;
  numbers.fixedSeed = 5;
  mstest::ScriptedRunContext context(manager->getComponent(6), &listener, &log);
  QuickRandomSeekTest random(ItemId(1, 1, 3));
  QuickFunnelSeekTest funnel(ItemId(1, 1, 4));
  EXPECT_EQ(random.run(&context), SUCCESS);
  EXPECT_EQ(funnel.run(&context), SUCCESS);
  EXPECT_TRUE(log.lines.empty());
  EXPECT_EQ(listener.events.back(), (ProgressEvent{100, ""}));
}

}  // namespace
