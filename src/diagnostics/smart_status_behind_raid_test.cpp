// The SMART status test on drives that discovery found behind a RAID
// controller: the commands go through the controller's pass-through and
// reach the drive itself.
#include <gtest/gtest.h>

#include "components/storage_component_manager.h"
#include "diagnostics/smart_status.h"
#include "raid/raid_machine_test_support.h"
#include "testing/recording_host.h"
#include "testing/simulated_pc.h"

namespace {

using raid_testing::ataDisk;
using raid_testing::csmiController;
using raid_testing::machine;

class SmartStatusBehindRaid : public mstest::SimulatedPcTest {
 protected:
  // One SATA drive "m0" behind an Intel chipset RAID adapter.
  sim::Machine* installWith(const std::string& profileExtra) {
    sim::Machine* pc = installJson(
        machine({ataDisk("m0", "ST1000DM003-1CH162", "Z1D5K0AB", R"(, "hidden": true)", profileExtra)},
                R"("controllers": [)" + csmiController("2826", R"([{"protocol": "sata", "disk": "m0"}])") + "]"));
    manager = std::make_unique<StorageComponentManager>(ItemId(1, 0, 1));
    manager->refresh();
    return pc;
  }

  std::unique_ptr<StorageComponentManager> manager;
  mstest::RecordingListener listener;
  mstest::RecordingLog log;
};

TEST_F(SmartStatusBehindRaid, AHealthyDriveBehindTheControllerPassesWithTheVerdictFromTheDrive) {
  sim::Machine* pc = installWith("");
  ASSERT_NE(pc, nullptr);
  ASSERT_EQ(manager->getComponentCount(), 1u);
  SystemComponent* drive = manager->getComponent(0);
  ASSERT_EQ(static_cast<StorageComponent*>(drive)->getLocation(), static_cast<uint32_t>(kLocationRaid));
  SmartStatusTest test(ItemId(1, 1, 1));
  ASSERT_TRUE(test.isSupported(drive));
  pc->journal().clear();
  mstest::ScriptedRunContext context(drive, &listener, &log);
  EXPECT_EQ(test.run(&context), SUCCESS);
  // SMART RETURN STATUS reached the drive behind the controller.
  bool returnStatus = false;
  for (const sim::JournalEntry& entry : pc->journal().commandsTo("m0")) {
    if (entry.opcode() == 0xB0 && entry.bytes[0] == 0xDA) returnStatus = true;
  }
  EXPECT_TRUE(returnStatus);
}

TEST_F(SmartStatusBehindRaid, ADriveWithAnAttributeAtItsThresholdFails) {
  sim::Machine* pc = installWith(R"(, "smart": {"attributes": [
      {"id": 5, "flags": 51, "value": 30, "worst": 30, "raw": 4000, "threshold": 36}]})");
  ASSERT_NE(pc, nullptr);
  ASSERT_EQ(manager->getComponentCount(), 1u);
  SmartStatusTest test(ItemId(1, 1, 1));
  mstest::ScriptedRunContext context(manager->getComponent(0), &listener, &log);
  EXPECT_EQ(test.run(&context), FAILED);
}

}  // namespace
