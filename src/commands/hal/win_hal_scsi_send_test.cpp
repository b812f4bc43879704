// The SCSI sender: its request block byte by byte, the direction mapping, and
// how the platform's answer comes back into the record. The platform is played
// here by writing into the block as a driver would.
#include "commands/hal/win_hal_scsi_send.h"

#include <gtest/gtest.h>

#include <cstring>
#include <vector>

#include "commands/scsi/read_write_commands.h"
#include "commands/scsi/scsi_commands.h"
#include "commands/status_codes.h"

namespace {

uint32_t le32(const uint8_t* p) { return p[0] | p[1] << 8 | p[2] << 16 | uint32_t{p[3]} << 24; }
uint16_t le16(const uint8_t* p) { return static_cast<uint16_t>(p[0] | p[1] << 8); }
uint64_t le64(const uint8_t* p) { return le32(p) | uint64_t{le32(p + 4)} << 32; }

TEST(ScsiPassThroughDataIn, MapsInOutAndEverythingElse) {
  EXPECT_EQ(scsiPassThroughDataIn(1), SCSI_IOCTL_DATA_IN);
  EXPECT_EQ(scsiPassThroughDataIn(2), SCSI_IOCTL_DATA_OUT);
  EXPECT_EQ(scsiPassThroughDataIn(0), SCSI_IOCTL_DATA_UNSPECIFIED);
  EXPECT_EQ(scsiPassThroughDataIn(7), SCSI_IOCTL_DATA_UNSPECIFIED);
}

TEST(ScsiPassThroughBlock, DirectionNoneGoesOutAsUnspecifiedNotAsZero) {
  SendDiagnostic diagnostic(1, 0);
  ScsiPassThroughBlock block(diagnostic, 1);
  EXPECT_EQ(block.bytes()[8], 2);  // DataIn
  EXPECT_NE(block.bytes()[8], SCSI_IOCTL_DATA_OUT);
}

TEST(ScsiPassThroughBlock, LaysOutRecordSenseAndData) {
  std::vector<uint8_t> data(4096);
  Read16 read(data.data(), 0x0102030405060708ull, 8, 512);
  ScsiPassThroughBlock block(read, 1);
  EXPECT_EQ(block.blockSize(), 4096u + 1u + 88u);
  EXPECT_EQ(block.ioctlLength(), 56u + 32u + 4096u);
  const uint8_t* b = block.bytes();
  EXPECT_EQ(le16(b + 0), 56);      // Length
  EXPECT_EQ(b[2], 0);              // ScsiStatus
  EXPECT_EQ(b[3], 0);              // PathId
  EXPECT_EQ(b[4], 0);              // TargetId
  EXPECT_EQ(b[5], 0);              // Lun
  EXPECT_EQ(b[6], 16);             // CdbLength
  EXPECT_EQ(b[7], 32);             // SenseInfoLength
  EXPECT_EQ(b[8], 1);              // DataIn
  EXPECT_EQ(le32(b + 12), 4096u);  // DataTransferLength
  EXPECT_EQ(le32(b + 16), 30u);    // TimeOutValue
  EXPECT_EQ(le64(b + 24), 88u);    // DataBufferOffset
  EXPECT_EQ(le32(b + 32), 56u);    // SenseInfoOffset
  EXPECT_EQ(std::memcmp(b + 36, read.cdb.data(), 16), 0);
  for (size_t i = 56; i < block.blockSize(); ++i) ASSERT_EQ(b[i], 0) << i;
}

TEST(ScsiPassThroughBlock, CopiesOnlyCdbLengthBytesOfTheCdb) {
  std::vector<uint8_t> data(512);
  Read10 read(data.data(), 1, 1, 512);
  read.cdb[12] = 0xEE;  // beyond the ten bytes
  ScsiPassThroughBlock block(read, 1);
  EXPECT_EQ(std::memcmp(block.bytes() + 36, read.cdb.data(), 10), 0);
  for (size_t i = 46; i < 52; ++i) EXPECT_EQ(block.bytes()[i], 0) << i;
}

TEST(ScsiPassThroughBlock, AlignmentOnlyEnlargesTheBlock) {
  std::vector<uint8_t> data(512);
  Read10 read(data.data(), 1, 1, 512);
  ScsiPassThroughBlock wide(read, 64);
  ScsiPassThroughBlock negative(read, -5);
  EXPECT_EQ(wide.blockSize(), 512u + 64u + 88u);
  EXPECT_EQ(negative.blockSize(), 512u + 88u);
  EXPECT_EQ(wide.ioctlLength(), 56u + 32u + 512u);
  EXPECT_EQ(wide.header().DataBufferOffset, 88u);
  EXPECT_EQ(wide.header().SenseInfoOffset, 56u);
}

TEST(ScsiPassThroughBlock, AWriteCopiesTheCallersDataToOffsetEightyEight) {
  std::vector<uint8_t> data(1024);
  for (size_t i = 0; i < data.size(); ++i) data[i] = static_cast<uint8_t>(i * 3);
  Write10 write(data.data(), 9, 2, 512);
  ScsiPassThroughBlock block(write, 1);
  EXPECT_EQ(block.bytes()[8], 0);  // SCSI_IOCTL_DATA_OUT
  EXPECT_EQ(le32(block.bytes() + 16), 180u);
  EXPECT_EQ(std::memcmp(block.bytes() + 88, data.data(), data.size()), 0);
}

TEST(ScsiPassThroughBlock, CompleteTakesStatusSenseAndData) {
  std::vector<uint8_t> data(64, 0xCC);
  Inquiry inquiry(data.data(), 64, false, 0);
  ScsiPassThroughBlock block(inquiry, 1);
  block.header().ScsiStatus = 2;
  block.header().SenseInfoLength = 18;
  block.header().DataTransferLength = 36;
  for (int i = 0; i < 32; ++i) block.bytes()[56 + i] = static_cast<uint8_t>(0x70 + i);
  std::memset(block.bytes() + 88, 0x33, 64);
  EXPECT_EQ(block.complete(inquiry), kStatusOk);
  EXPECT_EQ(inquiry.scsiStatus, 2);
  EXPECT_EQ(inquiry.senseLength, 18u);
  for (int i = 0; i < 32; ++i) EXPECT_EQ(inquiry.sense[i], 0x70 + i);
  EXPECT_EQ(inquiry.dataLength, 36u);
}

TEST(ScsiPassThroughBlock, ShortTransferLeavesTheShortLengthAndWritesOnlyThatManyBytes) {
  std::vector<uint8_t> data(4096, 0xCC);
  Read10 read(data.data(), 0, 8, 512);
  ScsiPassThroughBlock block(read, 1);
  block.header().DataTransferLength = 1000;
  block.header().SenseInfoLength = 0;
  std::memset(block.bytes() + 88, 0x44, 4096);
  EXPECT_EQ(block.complete(read), kStatusOk);
  EXPECT_EQ(read.dataLength, 1000u);
  for (size_t i = 0; i < 1000; ++i) ASSERT_EQ(data[i], 0x44) << i;
  for (size_t i = 1000; i < data.size(); ++i) ASSERT_EQ(data[i], 0xCC) << i;
  EXPECT_EQ(read.senseLength, 0u);
}

TEST(ScsiPassThroughBlock, AWriteTakesTheReturnedLengthButCopiesNothingBack) {
  std::vector<uint8_t> data(512, 0xAB);
  Write16 write(data.data(), 1, 1, 512);
  ScsiPassThroughBlock block(write, 1);
  std::memset(block.bytes() + 88, 0x00, 512);
  block.header().DataTransferLength = 256;
  EXPECT_EQ(block.complete(write), kStatusOk);
  EXPECT_EQ(write.dataLength, 256u);
  for (uint8_t b : data) ASSERT_EQ(b, 0xAB);
}

TEST(ScsiPassThroughBlock, DriverClaimingMoreDataOrSenseThanTheBlockHoldsIsHeldToIt) {
  std::vector<uint8_t> data(64 + 16, 0xCC);
  Inquiry inquiry(data.data(), 64, false, 0);
  ScsiPassThroughBlock block(inquiry, 1);
  block.header().DataTransferLength = 0xFFFFFFFF;
  block.header().SenseInfoLength = 0xFF;
  block.header().SenseInfoOffset = static_cast<ULONG>(block.blockSize() - 4);
  EXPECT_EQ(block.complete(inquiry), kStatusOk);
  EXPECT_EQ(inquiry.dataLength, 64u);
  EXPECT_EQ(inquiry.senseLength, 32u);
  for (size_t i = 64; i < data.size(); ++i) ASSERT_EQ(data[i], 0xCC);
  for (size_t i = 4; i < 32; ++i) EXPECT_EQ(inquiry.sense[i], 0);
}

TEST(WinHalScsiSend, FailedPlatformCallGivesThirtyFourAndLeavesTheRecordUnchanged) {
  std::vector<uint8_t> data(64, 0xCC);
  Inquiry inquiry(data.data(), 64, false, 0);
  inquiry.sense[0] = 0x70;
  inquiry.senseLength = 5;
  EXPECT_EQ(getHalScsiSend()->send(INVALID_HANDLE_VALUE, 1, inquiry), kStatusIoctlFailed);
  EXPECT_EQ(inquiry.dataLength, 64u);
  EXPECT_EQ(inquiry.senseLength, 5u);
  EXPECT_EQ(inquiry.sense[0], 0x70);
  EXPECT_EQ(inquiry.scsiStatus, 0);
  for (uint8_t b : data) ASSERT_EQ(b, 0xCC);
}

TEST(WinHalScsiSend, AccessorGivesOneInstanceForTheProcess) {
  HalScsiSend* first = getHalScsiSend();
  ASSERT_NE(first, nullptr);
  EXPECT_EQ(getHalScsiSend(), first);
  EXPECT_NE(dynamic_cast<WinHalScsiSend*>(first), nullptr);
}

}  // namespace
