// The plain ATA and SCSI bridges: the handle they carry, and their sends
// reaching the process's senders (on a machine with no disks the platform
// refuses, and the record comes back as it went).
#include "commands/bridges/ata_bridge.h"

#include <gtest/gtest.h>

#include <vector>

#include "commands/ata/ata_commands.h"
#include "commands/bridges/scsi_bridge.h"
#include "commands/scsi/scsi_commands.h"
#include "commands/status_codes.h"

namespace {

DeviceHandle fakeHandle() { return reinterpret_cast<DeviceHandle>(0x4321); }

TEST(AtaBridge, GetHandleGivesTheHandleItWasBuiltWith) {
  AtaBridge bridge(fakeHandle());
  EXPECT_EQ(bridge.getHandle(), fakeHandle());
}

// No device answers on a handle nobody opened: the platform refuses, and the
// sender's 34 comes back through the bridge with the record untouched.
TEST(AtaBridge, SendReachesTheSenderAndGivesItsThirtyFourOnAnUnopenedHandle) {
  AtaBridge bridge(fakeHandle());
  SmartReturnStatus status;
  EXPECT_EQ(bridge.send(status), kStatusIoctlFailed);
  EXPECT_EQ(status.command, 0xB0);
  EXPECT_EQ(status.features, 0xDA);
  EXPECT_EQ(status.lbaMid, 0x4F);
  EXPECT_EQ(status.lbaHigh, 0xC2);
}

TEST(ScsiBridge, GetHandleGivesTheHandleItWasBuiltWith) {
  ScsiBridge bridge(fakeHandle());
  EXPECT_EQ(bridge.getHandle(), fakeHandle());
}

TEST(ScsiBridge, SendReachesTheSenderAndGivesItsThirtyFourOnAnUnopenedHandle) {
  ScsiBridge bridge(fakeHandle());
  std::vector<uint8_t> data(64, 0xCC);
  Inquiry inquiry(data.data(), 64, false, 0);
  EXPECT_EQ(bridge.send(inquiry), kStatusIoctlFailed);
  EXPECT_EQ(inquiry.dataLength, 64u);
  EXPECT_EQ(inquiry.senseLength, 0u);
  for (uint8_t b : data) ASSERT_EQ(b, 0xCC);
}

}  // namespace
