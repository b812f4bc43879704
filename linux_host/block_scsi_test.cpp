// The SCSI commands a disk without pass-through of its own answers from its
// image file: identity, capacity, reads and writes of the file's bytes, and
// the sense of a refused command or an unreadable sector.
#include "linux_host/block_scsi.h"

#include <gtest/gtest.h>

#include <cstring>
#include <map>

#include "testing/disk_images.h"
#include "win32/win32.h"

namespace linux_host {
namespace {

// A medium whose sectors fail to read where the test says.
class FlakyMedium : public BlockMedium {
 public:
  uint32_t logicalSectorSize() const override { return 512; }
  uint32_t physicalSectorSize() const override { return 4096; }
  uint64_t sectorCount() const override { return 100; }
  uint32_t read(uint64_t offset, uint8_t* out, uint32_t length) override {
    for (uint64_t lba = offset / 512; lba < (offset + length) / 512; ++lba) {
      if (unreadable.count(lba)) return ERROR_CRC;
    }
    std::memset(out, 0x5A, length);
    return ERROR_SUCCESS;
  }
  uint32_t write(uint64_t, const uint8_t*, uint32_t) override { return ERROR_ACCESS_DENIED; }
  std::map<uint64_t, bool> unreadable;
};

struct Sent {
  ScsiAnswer answer;
  std::vector<uint8_t> data;
};

Sent send(ScsiTarget& target, std::vector<uint8_t> cdb, uint32_t length, DataDirection direction = DataDirection::In,
          std::vector<uint8_t> out = {}) {
  Sent sent;
  sent.data = out.empty() ? std::vector<uint8_t>(length, 0) : out;
  ScsiCommand command;
  command.cdb = cdb.data();
  command.cdbLength = static_cast<uint8_t>(cdb.size());
  command.direction = direction;
  command.data = sent.data.empty() ? nullptr : sent.data.data();
  command.length = length;
  sent.answer = target.execute(command);
  return sent;
}

class BlockScsiOnImage : public ::testing::Test {
 protected:
  void SetUp() override {
    image = folder.file("disk.raw");
    ASSERT_TRUE(mstest::makeSparseImage(image, 1024 * 512));
    std::vector<uint8_t> marker(512, 0);
    std::memcpy(marker.data(), "sector seven", 12);
    ASSERT_TRUE(mstest::writeImage(image, 7 * 512, marker));
    ASSERT_EQ(medium.open(image), ERROR_SUCCESS);
    identity.vendor = "Linux";
    identity.product = "Disk image";
    identity.revision = "1.0";
    identity.serial = "disk.raw";
    target = std::make_unique<BlockScsiTarget>(medium, identity);
  }

  mstest::TemporaryFolder folder;
  std::string image;
  FileMedium medium;
  BlockIdentity identity;
  std::unique_ptr<BlockScsiTarget> target;
};

TEST_F(BlockScsiOnImage, StandardInquiryNamesADirectAccessDeviceWithTheGivenIdentity) {
  Sent sent = send(*target, {0x12, 0, 0, 0, 36, 0}, 36);
  ASSERT_EQ(sent.answer.status, kStatusGood);
  EXPECT_EQ(sent.answer.transferred, 36u);
  EXPECT_EQ(sent.data[0], 0x00);
  EXPECT_EQ(std::string(sent.data.begin() + 8, sent.data.begin() + 16), "Linux   ");
  EXPECT_EQ(std::string(sent.data.begin() + 16, sent.data.begin() + 32), "Disk image      ");
  EXPECT_EQ(std::string(sent.data.begin() + 32, sent.data.begin() + 36), "1.0 ");
}

TEST_F(BlockScsiOnImage, UnitSerialNumberPageCarriesTheSerial) {
  Sent sent = send(*target, {0x12, 0x01, 0x80, 0, 64, 0}, 64);
  ASSERT_EQ(sent.answer.status, kStatusGood);
  EXPECT_EQ(sent.data[1], 0x80);
  ASSERT_EQ(sent.data[3], 8);
  EXPECT_EQ(std::string(sent.data.begin() + 4, sent.data.begin() + 12), "disk.raw");
}

TEST_F(BlockScsiOnImage, ReadCapacitySixteenGivesTheLastLbaAndTheSectorSize) {
  Sent sent = send(*target, {0x9E, 0x10, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 32, 0, 0}, 32);
  ASSERT_EQ(sent.answer.status, kStatusGood);
  uint64_t last = 0;
  for (int i = 0; i < 8; ++i) last = (last << 8) | sent.data[i];
  EXPECT_EQ(last, 1023u);
  EXPECT_EQ(sent.data[10], 0x02);  // 512 = 0x00000200
  EXPECT_EQ(sent.data[11], 0x00);
}

TEST_F(BlockScsiOnImage, ReadTenReturnsTheFileBytes) {
  Sent sent = send(*target, {0x28, 0, 0, 0, 0, 7, 0, 0, 1, 0}, 512);
  ASSERT_EQ(sent.answer.status, kStatusGood);
  EXPECT_EQ(sent.answer.transferred, 512u);
  EXPECT_EQ(std::string(sent.data.begin(), sent.data.begin() + 12), "sector seven");
}

TEST_F(BlockScsiOnImage, ReadPastTheEndIsAnLbaOutOfRange) {
  Sent sent = send(*target, {0x88, 0, 0, 0, 0, 0, 0, 0, 0x03, 0xFF, 0, 0, 0, 2, 0, 0}, 1024);
  ASSERT_EQ(sent.answer.status, kStatusCheckCondition);
  ASSERT_GE(sent.answer.sense.size(), 14u);
  EXPECT_EQ(sent.answer.sense[2] & 0x0F, kSenseIllegalRequest);
  EXPECT_EQ(sent.answer.sense[12], 0x21);
}

TEST_F(BlockScsiOnImage, ACommandABlockDeviceCannotServeIsAnInvalidOperationCode) {
  Sent sent = send(*target, {0x1A, 0x08, 0x1C, 0, 64, 0}, 64);  // MODE SENSE (6)
  ASSERT_EQ(sent.answer.status, kStatusCheckCondition);
  EXPECT_EQ(sent.answer.sense[2] & 0x0F, kSenseIllegalRequest);
  EXPECT_EQ(sent.answer.sense[12], 0x20);
  EXPECT_EQ(sent.answer.transferred, 0u);
}

TEST_F(BlockScsiOnImage, WriteTenReachesTheImageFile) {
  std::vector<uint8_t> pattern(512, 0xA5);
  Sent sent = send(*target, {0x2A, 0, 0, 0, 0, 9, 0, 0, 1, 0}, 512, DataDirection::Out, pattern);
  ASSERT_EQ(sent.answer.status, kStatusGood);
  EXPECT_EQ(mstest::readImage(image, 9 * 512, 512), pattern);
}

TEST(BlockScsiOnFailingMedium, AnUnreadableSectorIsAMediumErrorNamingItsLba) {
  FlakyMedium medium;
  medium.unreadable[5] = true;
  BlockScsiTarget target(medium, BlockIdentity{});
  Sent sent = send(target, {0x28, 0, 0, 0, 0, 2, 0, 0, 8, 0}, 8 * 512);
  ASSERT_EQ(sent.answer.status, kStatusCheckCondition);
  ASSERT_GE(sent.answer.sense.size(), 14u);
  EXPECT_EQ(sent.answer.sense[0], 0xF0);  // fixed format, information valid
  EXPECT_EQ(sent.answer.sense[2] & 0x0F, kSenseMediumError);
  EXPECT_EQ(sent.answer.sense[6], 5);  // information: the failing LBA
  EXPECT_EQ(sent.answer.sense[12], 0x11);
  EXPECT_EQ(sent.answer.transferred, 3u * 512);  // LBAs 2, 3 and 4 came back
}

TEST(BlockScsiOnFailingMedium, AWriteTheDiskRefusesIsDataProtect) {
  FlakyMedium medium;
  BlockScsiTarget target(medium, BlockIdentity{});
  Sent sent = send(target, {0x2A, 0, 0, 0, 0, 1, 0, 0, 1, 0}, 512, DataDirection::Out, std::vector<uint8_t>(512, 1));
  ASSERT_EQ(sent.answer.status, kStatusCheckCondition);
  EXPECT_EQ(sent.answer.sense[2] & 0x0F, kSenseDataProtect);
  EXPECT_EQ(sent.answer.sense[12], 0x27);
}

TEST(BlockScsiOnFailingMedium, ReadCapacitySixteenReportsEightLogicalPerPhysicalSector) {
  FlakyMedium medium;
  BlockScsiTarget target(medium, BlockIdentity{});
  Sent sent = send(target, {0x9E, 0x10, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 32, 0, 0}, 32);
  ASSERT_EQ(sent.answer.status, kStatusGood);
  EXPECT_EQ(sent.data[13] & 0x0F, 3);  // 2^3 logical sectors per 4096-byte physical one
}

TEST(BlockScsiOnEmptyFile, AFileWithoutAWholeSectorIsAMediumNotPresent) {
  mstest::TemporaryFolder folder;
  const std::string path = folder.file("tiny.raw");
  ASSERT_TRUE(mstest::makeSparseImage(path, 100));
  FileMedium medium;
  ASSERT_EQ(medium.open(path), ERROR_SUCCESS);
  EXPECT_EQ(medium.sectorCount(), 0u);
  BlockScsiTarget target(medium, BlockIdentity{});
  Sent sent = send(target, {0x25, 0, 0, 0, 0, 0, 0, 0, 0, 0}, 8);
  ASSERT_EQ(sent.answer.status, kStatusCheckCondition);
  EXPECT_EQ(sent.answer.sense[2] & 0x0F, kSenseNotReady);
  EXPECT_EQ(sent.answer.sense[12], 0x3A);
}

}  // namespace
}  // namespace linux_host
