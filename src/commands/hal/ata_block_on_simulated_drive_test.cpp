// The ATA request block against a simulated drive. A small stand-in for the
// port driver below IOCTL_ATA_PASS_THROUGH takes the block as Windows hands it
// over, runs the task file on the drive, and writes the registers and the
// transferred length back, so that what the drive says reaches the AtaCmd
// through the same bytes the platform would fill.
#include <gtest/gtest.h>

#include <cstring>
#include <memory>
#include <vector>

#include "commands/ata/ata_commands.h"
#include "commands/hal/win_hal_ata_send.h"
#include "commands/status_codes.h"
#include "sim/ata_drive.h"
#include "sim/media.h"
#include "sim/virtual_clock.h"

namespace {

// What the port driver does with one request block.
void portDriver(AtaPassThroughBlock& block, sim::AtaDevice& drive) {
  ATA_PASS_THROUGH_EX& header = block.header();
  sim::AtaRequest request;
  request.in.feature = header.CurrentTaskFile[0];
  request.in.count = header.CurrentTaskFile[1];
  request.in.lbaLow = header.CurrentTaskFile[2];
  request.in.lbaMid = header.CurrentTaskFile[3];
  request.in.lbaHigh = header.CurrentTaskFile[4];
  request.in.device = header.CurrentTaskFile[5];
  request.in.command = header.CurrentTaskFile[6];
  request.in.featureExp = header.PreviousTaskFile[0];
  request.in.countExp = header.PreviousTaskFile[1];
  request.in.lbaLowExp = header.PreviousTaskFile[2];
  request.in.lbaMidExp = header.PreviousTaskFile[3];
  request.in.lbaHighExp = header.PreviousTaskFile[4];
  request.extended = (header.AtaFlags & ATA_FLAGS_48BIT_COMMAND) != 0;
  request.direction = (header.AtaFlags & ATA_FLAGS_DATA_IN)    ? sim::Direction::In
                      : (header.AtaFlags & ATA_FLAGS_DATA_OUT) ? sim::Direction::Out
                                                               : sim::Direction::None;
  request.data = block.bytes() + header.DataBufferOffset;
  request.length = header.DataTransferLength;
  request.timeoutSeconds = header.TimeOutValue;
  const sim::AtaResponse response = drive.executeAta(request);
  header.CurrentTaskFile[0] = response.out.error;
  header.CurrentTaskFile[1] = response.out.count;
  header.CurrentTaskFile[2] = response.out.lbaLow;
  header.CurrentTaskFile[3] = response.out.lbaMid;
  header.CurrentTaskFile[4] = response.out.lbaHigh;
  header.CurrentTaskFile[5] = response.out.device;
  header.CurrentTaskFile[6] = response.out.status;
  header.DataTransferLength = response.transferred;
}

struct Rig {
  std::shared_ptr<sim::Media> media = std::make_shared<sim::Media>(512, 100000);
  std::shared_ptr<sim::VirtualClock> clock = std::make_shared<sim::VirtualClock>();
  sim::AtaDrive drive{sim::AtaProfile{}, media, clock};

  uint32_t send(AtaCmd& cmd) {
    AtaPassThroughBlock block(cmd);
    portDriver(block, drive);
    return block.complete(cmd);
  }
};

TEST(AtaBlockOnSimulatedDrive, IdentifyDeviceBringsTheDrivesBlockIntoTheBuffer) {
  Rig rig;
  std::vector<uint8_t> data(512, 0xCC);
  IdentifyDevice identify(data.data());
  EXPECT_EQ(rig.send(identify), kStatusOk);
  EXPECT_EQ(identify.dataLength, 512u);
  EXPECT_EQ(identify.command & kAtaStatusErr, 0);
  EXPECT_EQ(data[510], 0xA5);  // integrity word
  uint8_t sum = 0;
  for (uint8_t b : data) sum = static_cast<uint8_t>(sum + b);
  EXPECT_EQ(sum, 0);
  // Model, words 27-46, byte-swapped: "SIM ATA DISK"
  EXPECT_EQ(data[54], 'I');
  EXPECT_EQ(data[55], 'S');
}

TEST(AtaBlockOnSimulatedDrive, SmartReturnStatusOfAHealthyDriveKeepsTheSignature) {
  Rig rig;
  SmartReturnStatus status;
  EXPECT_EQ(rig.send(status), kStatusOk);
  EXPECT_EQ(status.lbaMid, 0x4F);
  EXPECT_EQ(status.lbaHigh, 0xC2);
  EXPECT_EQ(status.command & kAtaStatusErr, 0);
}

TEST(AtaBlockOnSimulatedDrive, ReadOfAnUnreadableSectorGivesEightyNineWithTheDrivesErrorInTheRecord) {
  Rig rig;
  rig.media->markUnreadable(1234);
  std::vector<uint8_t> data(512, 0xCC);
  ReadSectorsExt read(1234, 1, 512, data.data(), 30);
  EXPECT_EQ(rig.send(read), kStatusNoData);
  EXPECT_EQ(read.command & kAtaStatusErr, kAtaStatusErr);
  EXPECT_EQ(read.features & kAtaErrorUnc, kAtaErrorUnc);
  EXPECT_EQ(read.dataLength, 512u);
  for (uint8_t b : data) ASSERT_EQ(b, 0xCC);
}

TEST(AtaBlockOnSimulatedDrive, WrittenSectorsReadBackThroughTheBlock) {
  Rig rig;
  std::vector<uint8_t> out(1024);
  for (size_t i = 0; i < out.size(); ++i) out[i] = static_cast<uint8_t>(i * 13 + 1);
  WriteSectorsExt write(0x10203, 2, 512, out.data());
  EXPECT_EQ(rig.send(write), kStatusOk);
  EXPECT_EQ(write.command & kAtaStatusErr, 0);
  std::vector<uint8_t> in(1024, 0);
  ReadSectorsExt read(0x10203, 2, 512, in.data(), 30);
  EXPECT_EQ(rig.send(read), kStatusOk);
  EXPECT_EQ(in, out);
}

TEST(AtaBlockOnSimulatedDrive, WriteUncorrectableThenReadGivesTheMediumError) {
  Rig rig;
  WriteUncorrectableExt unc(77, 1, true);
  EXPECT_EQ(rig.send(unc), kStatusOk);
  EXPECT_EQ(unc.command & kAtaStatusErr, 0);
  std::vector<uint8_t> data(512);
  ReadSectors read(77, 1, 512, data.data(), 30);
  EXPECT_EQ(rig.send(read), kStatusNoData);
  EXPECT_EQ(read.features & kAtaErrorUnc, kAtaErrorUnc);
}

}  // namespace
