// StorageComponent: ownership, description helpers and its fixed answers.
#include "components/storage_component.h"

#include <gtest/gtest.h>

#include "testing/scripted_protocol.h"

namespace {

// A protocol that tells when it is destroyed.
class WatchedProtocol : public mstest::ScriptedProtocol {
 public:
  explicit WatchedProtocol(bool* destroyed) : destroyed_(destroyed) {}
  ~WatchedProtocol() override { *destroyed_ = true; }

 private:
  bool* destroyed_;
};

TEST(StorageComponent, StartsUnknownWithFlagsClear) {
  StorageComponent disk(nullptr, nullptr);
  EXPECT_EQ(disk.getLocation(), kLocationUnknown);
  EXPECT_EQ(disk.getSecuritySupported(), 0);
  EXPECT_EQ(disk.getSecurityLocked(), 0);
  EXPECT_EQ(disk.getHasVolumeSpaceAllocation(), 0);
  EXPECT_EQ(disk.getProtocol(), nullptr);
  EXPECT_EQ(disk.getPartitions(), nullptr);
}

TEST(StorageComponent, DestroysItsProtocol) {
  bool destroyed = false;
  {
    StorageComponent disk(std::make_unique<WatchedProtocol>(&destroyed), std::make_unique<DiskPartitions>());
    EXPECT_NE(disk.getProtocol(), nullptr);
    EXPECT_NE(disk.getPartitions(), nullptr);
    EXPECT_FALSE(destroyed);
  }
  EXPECT_TRUE(destroyed);
}

TEST(StorageComponent, GetUdiReturnsTheFirstUdiEntry) {
  StorageComponent disk(nullptr, nullptr);
  disk.addDetail("MODEL", "ST3500418AS");
  disk.addDetail("UDI", "ATA_ST3500418AS_5VM1");
  disk.addDetail("UDI", "second");
  EXPECT_EQ(disk.getUdi(), "ATA_ST3500418AS_5VM1");
}

TEST(StorageComponent, GetUdiWithoutUdiIsEmpty) {
  StorageComponent disk(nullptr, nullptr);
  disk.addDetail("MODEL", "X");
  EXPECT_EQ(disk.getUdi(), "");
}

TEST(StorageComponent, AddDetailSkipsEmptyValues) {
  StorageComponent disk(nullptr, nullptr);
  disk.addDetail("SERIAL", "");
  disk.addDetail("MODEL", "M");
  ASSERT_EQ(disk.getDetails().size(), 1u);
  EXPECT_EQ(disk.getDetails()[0].key, "MODEL");

  std::vector<DetailEntry> section;
  StorageComponent::addDetail(section, "LABEL", "");
  StorageComponent::addDetail(section, "LABEL", "DATA");
  ASSERT_EQ(section.size(), 1u);
  EXPECT_EQ(section[0].value, "DATA");
}

TEST(StorageComponent, SetDetailReplacesInPlaceAndIgnoresOutOfRange) {
  StorageComponent disk(nullptr, nullptr);
  disk.addDetail("UDI", "A");
  disk.addDetail("MODEL", "M");
  disk.setDetail(0, {"UDI", "A_1"});
  disk.setDetail(5, {"UDI", "never"});
  EXPECT_EQ(disk.getUdi(), "A_1");
  EXPECT_EQ(disk.getDetails().size(), 2u);
  EXPECT_EQ(disk.getDetails()[1].value, "M");
}

TEST(StorageComponent, StoringTheVolumeSpaceAnswerMarksItGiven) {
  StorageComponent disk(nullptr, nullptr);
  disk.setVolumeSpaceAllocation(0);
  EXPECT_EQ(disk.getHasVolumeSpaceAllocation(), 1);
  EXPECT_EQ(disk.getVolumeSpaceAllocation(), 0u);
  disk.setVolumeSpaceAllocation(3);
  EXPECT_EQ(disk.getVolumeSpaceAllocation(), 3u);
}

TEST(StorageComponent, DescriptionCopiesNameDetailsAndAttributes) {
  StorageComponent disk(nullptr, nullptr);
  disk.setName("ST3500418AS");
  disk.setId("disk0");
  disk.addDetail("UDI", "U");
  disk.setAttribute("LOCATION", "INTERNAL");
  disk.addSection({"PARTITION", {{"TYPE", "PRIMARY"}}});
  ComponentDescription description = disk.getDescription();
  EXPECT_EQ(description.name, "ST3500418AS");
  ASSERT_EQ(description.details.size(), 1u);
  EXPECT_EQ(description.attributes.at("LOCATION"), "INTERNAL");
  EXPECT_EQ(disk.getId(), "disk0");
  ASSERT_EQ(disk.getSections().size(), 1u);
  EXPECT_EQ(disk.getSections()[0].title, "PARTITION");
}

TEST(StorageComponent, ReservedOperationsHaveTheirFixedAnswers) {
  StorageComponent disk(nullptr, nullptr);
  EXPECT_EQ(disk.reservedQuery(), 0u);
  EXPECT_TRUE(disk.reservedCheckA());
  EXPECT_TRUE(disk.reservedCheckB());
  disk.reservedActionA();
  disk.reservedActionB();
}

TEST(StorageProtocolBase, CachedPropertiesNeverTouchTheDevice) {
  mstest::ScriptedProtocol protocol;
  StorageProtocolProperties cached;
  cached.model = "M";
  cached.sectorCount = 10;
  protocol.setCachedProperties(cached);
  StorageProtocolProperties out;
  EXPECT_EQ(protocol.getCachedProperties(&out), 0u);
  EXPECT_EQ(out.model, "M");
  EXPECT_EQ(protocol.getCachedProperties(nullptr), 1u);
  EXPECT_TRUE(protocol.calls.empty());
  EXPECT_EQ(protocol.getBusKind(), kBusUnknown);
  EXPECT_EQ(protocol.getProtocolKind(), kProtocolNone);
}

}  // namespace
