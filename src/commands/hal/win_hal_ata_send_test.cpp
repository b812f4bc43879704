// The ATA sender: its flags, its request block byte by byte, and how the
// platform's answer comes back into the record. The platform is played here by
// writing into the block as a driver would; on the no-disk machine the real
// call fails and the record is left as it was.
#include "commands/hal/win_hal_ata_send.h"

#include <gtest/gtest.h>

#include <cstring>
#include <vector>

#include "commands/ata/ata_commands.h"
#include "commands/status_codes.h"

namespace {

uint32_t le32(const uint8_t* p) { return p[0] | p[1] << 8 | p[2] << 16 | uint32_t{p[3]} << 24; }
uint16_t le16(const uint8_t* p) { return static_cast<uint16_t>(p[0] | p[1] << 8); }
uint64_t le64(const uint8_t* p) { return le32(p) | uint64_t{le32(p + 4)} << 32; }

// What a driver does with a completed command: the registers it leaves, and
// how many bytes it moved.
void answer(AtaPassThroughBlock& block, std::initializer_list<uint8_t> taskFile, uint32_t moved,
            uint8_t fill = 0) {
  size_t i = 0;
  for (uint8_t b : taskFile) block.header().CurrentTaskFile[i++] = b;
  block.header().DataTransferLength = moved;
  std::memset(block.bytes() + 48, fill, moved);
}

TEST(AtaPassThroughFlags, IdentifyIsDrdyAndDataIn) {
  std::vector<uint8_t> data(512);
  EXPECT_EQ(ataPassThroughFlags(IdentifyDevice(data.data())), ATA_FLAGS_DRDY_REQUIRED | ATA_FLAGS_DATA_IN);
  EXPECT_EQ(ataPassThroughFlags(IdentifyDevice(data.data())), 0x03);
}

TEST(AtaPassThroughFlags, ExtendedCommandsCarryThe48BitFlag) {
  uint8_t data[512];
  EXPECT_EQ(ataPassThroughFlags(ReadSectorsExt(0, 1, 512, data, 30)), 0x0B);
  EXPECT_EQ(ataPassThroughFlags(WriteSectorsExt(0, 1, 512, data)), 0x0D);
  EXPECT_EQ(ataPassThroughFlags(WriteUncorrectableExt(0, 1, true)), 0x09);
  EXPECT_EQ(ataPassThroughFlags(ReadLogExt(0, 1, data, 0)), 0x0B);
}

TEST(AtaPassThroughFlags, NonDataCommandIsDrdyAlone) {
  EXPECT_EQ(ataPassThroughFlags(SmartReturnStatus()), 0x01);
  EXPECT_EQ(ataPassThroughFlags(SmartEnable(true)), 0x01);
  EXPECT_EQ(ataPassThroughFlags(SmartExecuteOffline(0x7F, 0)), 0x01);
}

TEST(AtaPassThroughFlags, NoMultipleIsSetForASmartReadLogOfMoreThanOnePage) {
  uint8_t data[4096];
  EXPECT_EQ(ataPassThroughFlags(SmartReadLog(0x06, 2, data)), 0x23);
}

TEST(AtaPassThroughFlags, NoMultipleStaysOffForASmartReadLogOfOnePage) {
  uint8_t data[512];
  EXPECT_EQ(ataPassThroughFlags(SmartReadLog(0x06, 1, data)), 0x03);
}

TEST(AtaPassThroughFlags, NoMultipleStaysOffForOtherMultiSectorCommands) {
  uint8_t data[4096];
  EXPECT_EQ(ataPassThroughFlags(ReadSectors(0, 8, 512, data, 30)) & ATA_FLAGS_NO_MULTIPLE, 0);
  EXPECT_EQ(ataPassThroughFlags(ReadLogExt(0xE0, 8, data, 0)) & ATA_FLAGS_NO_MULTIPLE, 0);
  AtaCmd other;
  other.command = 0xB0;
  other.features = 0xD0;
  other.sectorCount = 8;
  EXPECT_EQ(ataPassThroughFlags(other) & ATA_FLAGS_NO_MULTIPLE, 0);
}

TEST(AtaPassThroughBlock, LaysOutRecordThenDataWithOneSpareByte) {
  uint8_t data[1024];
  ReadSectors read(0x123456, 2, 512, data, 17);
  read.features = 0x11;
  AtaPassThroughBlock block(read);
  EXPECT_EQ(block.blockSize(), 48u + 1024u + 1u);
  EXPECT_EQ(block.ioctlLength(), 48u + 1024u);
  const uint8_t* b = block.bytes();
  EXPECT_EQ(le16(b + 0), 48);        // Length
  EXPECT_EQ(le16(b + 2), 0x03);      // AtaFlags
  EXPECT_EQ(b[4], 0);                // PathId
  EXPECT_EQ(b[5], 0);                // TargetId
  EXPECT_EQ(b[6], 0);                // Lun
  EXPECT_EQ(le32(b + 8), 1024u);     // DataTransferLength
  EXPECT_EQ(le32(b + 12), 17u);      // TimeOutValue
  EXPECT_EQ(le64(b + 24), 48u);      // DataBufferOffset
  const uint8_t previous[8] = {0, 0, 0, 0, 0, 0, 0, 0};
  const uint8_t current[8] = {0x11, 2, 0x56, 0x34, 0x12, 0x40, 0x20, 0};
  EXPECT_EQ(std::memcmp(b + 32, previous, 8), 0);
  EXPECT_EQ(std::memcmp(b + 40, current, 8), 0);
  for (size_t i = 48; i < block.blockSize(); ++i) ASSERT_EQ(b[i], 0) << i;
}

TEST(AtaPassThroughBlock, PreviousTaskFileCarriesTheExtRegistersButNeverFeaturesExt) {
  uint8_t data[512];
  ReadSectorsExt read(0x0000123456789ABCull, 0x0201, 512, data, 30);
  read.featuresExt = 0x99;
  AtaPassThroughBlock block(read);
  const uint8_t previous[8] = {0x00, 0x02, 0x56, 0x34, 0x12, 0, 0, 0};
  const uint8_t current[8] = {0x00, 0x01, 0xBC, 0x9A, 0x78, 0x40, 0x24, 0};
  EXPECT_EQ(std::memcmp(block.bytes() + 32, previous, 8), 0);
  EXPECT_EQ(std::memcmp(block.bytes() + 40, current, 8), 0);
}

TEST(AtaPassThroughBlock, AWriteCopiesTheCallersDataBehindTheRecord) {
  std::vector<uint8_t> data(1024);
  for (size_t i = 0; i < data.size(); ++i) data[i] = static_cast<uint8_t>(i * 7);
  WriteSectorsExt write(5, 2, 512, data.data());
  AtaPassThroughBlock block(write);
  EXPECT_EQ(std::memcmp(block.bytes() + 48, data.data(), data.size()), 0);
  EXPECT_EQ(le16(block.bytes() + 2), 0x0D);
}

TEST(AtaPassThroughBlock, AReadDoesNotCopyTheCallersBufferOut) {
  std::vector<uint8_t> data(512, 0xEE);
  ReadSectors read(0, 1, 512, data.data(), 30);
  AtaPassThroughBlock block(read);
  for (size_t i = 48; i < block.blockSize(); ++i) ASSERT_EQ(block.bytes()[i], 0) << i;
}

TEST(AtaPassThroughBlock, CompleteCopiesTheCurrentTaskFileBackAndTheDataIn) {
  std::vector<uint8_t> data(512, 0);
  IdentifyDevice identify(data.data());
  AtaPassThroughBlock block(identify);
  answer(block, {0x00, 0x01, 0x02, 0x03, 0x04, 0xA0, 0x50}, 512, 0x5A);
  block.header().PreviousTaskFile[1] = 0x77;  // not read back
  EXPECT_EQ(block.complete(identify), kStatusOk);
  EXPECT_EQ(identify.features, 0x00);
  EXPECT_EQ(identify.sectorCount, 0x01);
  EXPECT_EQ(identify.lbaLow, 0x02);
  EXPECT_EQ(identify.lbaMid, 0x03);
  EXPECT_EQ(identify.lbaHigh, 0x04);
  EXPECT_EQ(identify.device, 0xA0);
  EXPECT_EQ(identify.command, 0x50);
  EXPECT_EQ(identify.sectorCountExt, 0);
  EXPECT_EQ(identify.dataLength, 512u);
  for (uint8_t b : data) ASSERT_EQ(b, 0x5A);
}

TEST(AtaPassThroughBlock, ReadThatReturnsNoDataGivesEightyNineWithTheRegistersInTheRecord) {
  std::vector<uint8_t> data(4096, 0xCC);
  ReadSectorsExt read(100, 8, 512, data.data(), 30);
  AtaPassThroughBlock block(read);
  answer(block, {0x40, 0x08, 0x64, 0, 0, 0x40, 0x51}, 0);
  EXPECT_EQ(block.complete(read), kStatusNoData);
  EXPECT_EQ(read.status(), 0x51);
  EXPECT_EQ(read.error(), 0x40);
  EXPECT_EQ(read.dataLength, 4096u);  // the requested value stays
  for (uint8_t b : data) ASSERT_EQ(b, 0xCC);
}

TEST(AtaPassThroughBlock, NonDataCommandNeverReturnsEightyNine) {
  SmartReturnStatus status;
  AtaPassThroughBlock block(status);
  answer(block, {0, 0, 0, 0x4F, 0xC2, 0, 0x50}, 0);
  EXPECT_EQ(block.complete(status), kStatusOk);
  EXPECT_EQ(status.lbaMid, 0x4F);
  EXPECT_EQ(status.lbaHigh, 0xC2);
  WriteUncorrectableExt unc(0, 1, true);
  AtaPassThroughBlock uncBlock(unc);
  answer(uncBlock, {0, 0, 0, 0, 0, 0, 0x51}, 0);
  EXPECT_EQ(uncBlock.complete(unc), kStatusOk);
}

TEST(AtaPassThroughBlock, WriteThatMovesNothingIsNotEightyNine) {
  uint8_t data[512] = {};
  WriteSectors write(0, 1, 512, data);
  AtaPassThroughBlock block(write);
  answer(block, {0, 0, 0, 0, 0, 0x40, 0x50}, 0);
  EXPECT_EQ(block.complete(write), kStatusOk);
  EXPECT_EQ(write.dataLength, 512u);
}

TEST(AtaPassThroughBlock, ShortReadKeepsTheShortLengthAndWritesOnlyThoseBytes) {
  std::vector<uint8_t> data(1024, 0xCC);
  ReadSectors read(0, 2, 512, data.data(), 30);
  AtaPassThroughBlock block(read);
  answer(block, {0, 0, 0, 0, 0, 0x40, 0x50}, 512, 0x11);
  EXPECT_EQ(block.complete(read), kStatusOk);
  EXPECT_EQ(read.dataLength, 512u);
  for (size_t i = 0; i < 512; ++i) ASSERT_EQ(data[i], 0x11);
  for (size_t i = 512; i < 1024; ++i) ASSERT_EQ(data[i], 0xCC);
}

TEST(AtaPassThroughBlock, DriverClaimingMoreThanAskedIsHeldToTheRequest) {
  std::vector<uint8_t> data(512 + 16, 0xCC);
  IdentifyDevice identify(data.data());
  AtaPassThroughBlock block(identify);
  answer(block, {0, 0, 0, 0, 0, 0, 0x50}, 512, 0x22);
  block.header().DataTransferLength = 0x10000;
  EXPECT_EQ(block.complete(identify), kStatusOk);
  EXPECT_EQ(identify.dataLength, 512u);
  for (size_t i = 512; i < data.size(); ++i) ASSERT_EQ(data[i], 0xCC);
}

TEST(AtaPassThroughBlock, DriverMovingTheDataOffsetOutOfTheBlockCopiesNothing) {
  std::vector<uint8_t> data(512, 0xCC);
  IdentifyDevice identify(data.data());
  AtaPassThroughBlock block(identify);
  answer(block, {0, 0, 0, 0, 0, 0, 0x50}, 512);
  block.header().DataBufferOffset = 1u << 30;
  EXPECT_EQ(block.complete(identify), kStatusOk);
  EXPECT_EQ(identify.dataLength, 0u);
  for (uint8_t b : data) ASSERT_EQ(b, 0xCC);
}

TEST(WinHalAtaSend, FailedPlatformCallGivesThirtyFourAndLeavesTheRecordUnchanged) {
  std::vector<uint8_t> data(512, 0xCC);
  IdentifyDevice identify(data.data());
  const AtaCmd before = identify;
  EXPECT_EQ(getHalAtaSend()->send(INVALID_HANDLE_VALUE, identify), kStatusIoctlFailed);
  EXPECT_EQ(std::memcmp(&before.features, &identify.features, 12), 0);
  EXPECT_EQ(identify.dataLength, before.dataLength);
  EXPECT_EQ(identify.direction, before.direction);
  for (uint8_t b : data) ASSERT_EQ(b, 0xCC);
}

TEST(WinHalAtaSend, AccessorGivesOneInstanceForTheProcess) {
  HalAtaSend* first = getHalAtaSend();
  ASSERT_NE(first, nullptr);
  EXPECT_EQ(getHalAtaSend(), first);
  EXPECT_NE(dynamic_cast<WinHalAtaSend*>(first), nullptr);
}

}  // namespace
