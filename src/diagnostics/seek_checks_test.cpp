// The one-sector buffer the seek tests and the targeted read keep over a run:
// always a whole sector of the drive as its cache says now, never below 512
// bytes, reused while the sector size stays.
#include "diagnostics/seek_checks.h"

#include <gtest/gtest.h>

#include "testing/scripted_protocol.h"

namespace {

void setSectorSize(mstest::ScriptedProtocol& protocol, uint32_t bytes) {
  StorageProtocolProperties properties;
  properties.sectorCount = 1000;
  properties.logicalSectorSize = bytes;
  protocol.setCachedProperties(properties);
}

TEST(SectorBuffer, IsReusedWhileTheSectorSizeStays) {
  mstest::ScriptedProtocol protocol;
  setSectorSize(protocol, 512);
  SectorBuffer buffer;
  uint8_t* first = buffer.forOneSector(&protocol);
  ASSERT_NE(first, nullptr);
  EXPECT_EQ(buffer.capacity(), 512u);
  EXPECT_EQ(buffer.forOneSector(&protocol), first);
  EXPECT_EQ(buffer.capacity(), 512u);
}

TEST(SectorBuffer, GrowsWhenTheCachedSectorSizeGrows) {
  mstest::ScriptedProtocol protocol;
  setSectorSize(protocol, 512);
  SectorBuffer buffer;
  ASSERT_NE(buffer.forOneSector(&protocol), nullptr);
  setSectorSize(protocol, 4096);
  uint8_t* larger = buffer.forOneSector(&protocol);
  ASSERT_NE(larger, nullptr);
  EXPECT_EQ(buffer.capacity(), 4096u);
  // Back to 512: the larger buffer serves.
  setSectorSize(protocol, 512);
  EXPECT_EQ(buffer.forOneSector(&protocol), larger);
  EXPECT_EQ(buffer.capacity(), 4096u);
}

TEST(SectorBuffer, HoldsAtLeast512BytesForASmallOrMissingSectorSize) {
  mstest::ScriptedProtocol protocol;
  setSectorSize(protocol, 256);
  SectorBuffer buffer;
  EXPECT_NE(buffer.forOneSector(&protocol), nullptr);
  EXPECT_EQ(buffer.capacity(), 512u);
  SectorBuffer withoutDrive;
  EXPECT_NE(withoutDrive.forOneSector(nullptr), nullptr);
  EXPECT_EQ(withoutDrive.capacity(), 512u);
}

}  // namespace
