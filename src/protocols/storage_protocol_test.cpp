// The protocol base: the cache, the kinds, and the failure prediction through
// the Win32 seam on a machine with no disks.
#include "protocols/storage_protocol.h"

#include <gtest/gtest.h>

#include "testing/scripted_protocol.h"

namespace {

TEST(StorageProtocolBase, KindsStartUnknownAndNotSet) {
  mstest::ScriptedProtocol protocol;
  EXPECT_EQ(protocol.getBusKind(), kBusUnknown);
  EXPECT_EQ(protocol.getProtocolKind(), kProtocolNone);
  protocol.setBusKind(kBusNvme);
  protocol.setProtocolKind(kProtocolScsi);
  EXPECT_EQ(protocol.getBusKind(), kBusNvme);
  EXPECT_EQ(protocol.getProtocolKind(), kProtocolScsi);
}

TEST(StorageProtocolBase, CachedPropertiesWithNullOutGivesNotAvailable) {
  mstest::ScriptedProtocol protocol;
  EXPECT_EQ(protocol.getCachedProperties(nullptr), kStatusNotAvailable);
}

TEST(StorageProtocolBase, CachedPropertiesAreEmptyUntilFirstGetPropertiesAndNeverAskTheDevice) {
  mstest::ScriptedProtocol protocol;
  StorageProtocolProperties out;
  out.model = "stale";
  ASSERT_EQ(protocol.getCachedProperties(&out), kStatusOk);
  EXPECT_EQ(out.model, "");
  EXPECT_EQ(out.sectorCount, 0u);
  EXPECT_TRUE(protocol.calls.empty());
}

TEST(StorageProtocolBase, CachedPropertiesCopyEveryMember) {
  mstest::ScriptedProtocol protocol;
  StorageProtocolProperties cached;
  cached.label = "L";
  cached.supportedStandards = {"ATA-7", "ATA8-ACS"};
  cached.model = "ST3500418AS";
  cached.sectorCount = 976773168;
  cached.logicalSectorSize = 512;
  cached.smartSupported = true;
  cached.selfTestSupported = true;
  StoragePartitionProperties volume;
  volume.volumePath = "C:\\";
  cached.partitions.push_back(volume);
  protocol.setCachedProperties(cached);

  StorageProtocolProperties out;
  ASSERT_EQ(protocol.getCachedProperties(&out), kStatusOk);
  EXPECT_EQ(out.label, "L");
  EXPECT_EQ(out.supportedStandards, cached.supportedStandards);
  EXPECT_EQ(out.model, "ST3500418AS");
  EXPECT_EQ(out.sectorCount, 976773168u);
  EXPECT_TRUE(out.smartSupported);
  EXPECT_TRUE(out.selfTestSupported);
  ASSERT_EQ(out.partitions.size(), 1u);
  EXPECT_EQ(out.partitions[0].volumePath, "C:\\");
  EXPECT_TRUE(protocol.calls.empty());
}

TEST(StorageProtocolBase, PropertiesStartEmpty) {
  StorageProtocolProperties properties;
  EXPECT_TRUE(properties.label.empty());
  EXPECT_TRUE(properties.supportedStandards.empty());
  EXPECT_EQ(properties.logicalSectorSize, 0u);
  EXPECT_EQ(properties.rotationRate, 0u);
  EXPECT_FALSE(properties.smartSupported);
  EXPECT_FALSE(properties.smartEnabled);
  EXPECT_TRUE(properties.partitions.empty());
}

TEST(PredictFailureStatus, FailedDeviceIoControlGivesIoctlFailedAndLeavesHealthUntouched) {
  // No machine is installed behind the seam: every DeviceIoControl fails.
  mstest::ScriptedProtocol protocol;
  uint8_t healthy = 7;
  EXPECT_EQ(protocol.getPredictFailureStatus(&healthy), kStatusIoctlFailed);
  EXPECT_EQ(healthy, 7);
}

TEST(PredictFailureStatus, NullHealthIsBadArgument) {
  mstest::ScriptedProtocol protocol;
  EXPECT_EQ(protocol.getPredictFailureStatus(nullptr), kStatusBadArgument);
}

}  // namespace
