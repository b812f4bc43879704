// The ATA drive's statistics logs: device statistics, pending defects and
// SATA phy event counters, as read through READ LOG EXT.
#include <gtest/gtest.h>

#include "sim/ata_drive.h"
#include "sim/ata_test_util.h"

namespace sim {
namespace {

using testutil::byteSum;
using testutil::readInto;

struct StatisticsRig {
  explicit StatisticsRig(AtaProfile profile = {})
      : media(std::make_shared<Media>(512, 1000000)),
        clock(std::make_shared<VirtualClock>()),
        drive(std::move(profile), media, clock) {}
  std::vector<uint8_t> log(uint8_t address, uint16_t page, uint8_t* status = nullptr) {
    AtaRequest r;
    r.extended = true;
    r.in.command = 0x2F;
    r.in.lbaLow = address;
    r.in.lbaMid = static_cast<uint8_t>(page);
    r.in.count = 1;
    std::vector<uint8_t> b;
    const AtaResponse a = readInto(drive, r, b, 512);
    if (status != nullptr) *status = a.out.status;
    return b;
  }
  std::shared_ptr<Media> media;
  std::shared_ptr<VirtualClock> clock;
  AtaDrive drive;
};

uint64_t statistic(const std::vector<uint8_t>& page, size_t at) {
  uint64_t v = 0;
  for (int i = 5; i >= 0; --i) v = v << 8 | page[at + i];
  return v;
}

TEST(AtaStatistics, DeviceStatisticsListTheirPagesAndCarryThePowerOnHours) {
  AtaProfile p;
  p.powerOnHours = 4321;
  p.powerCycles = 77;
  p.temperatureCelsius = 41;
  StatisticsRig rig(p);
  const auto list = rig.log(0x04, 0);
  EXPECT_EQ(list[2], 0) << "page number";
  EXPECT_EQ(list[8], 3);
  EXPECT_EQ(list[9], 0);
  EXPECT_EQ(list[10], 1);
  EXPECT_EQ(list[11], 5);
  const auto general = rig.log(0x04, 1);
  EXPECT_EQ(general[0], 1) << "revision";
  EXPECT_EQ(general[2], 1) << "page number";
  EXPECT_EQ(general[8 + 7], 0xC0) << "supported and valid";
  EXPECT_EQ(statistic(general, 8), 77u);
  EXPECT_EQ(statistic(general, 16), 4321u);
  const auto temperature = rig.log(0x04, 5);
  EXPECT_EQ(temperature[2], 5);
  EXPECT_EQ(temperature[8], 41);
  EXPECT_EQ(temperature[88], 60) << "maximum operating temperature";
}

TEST(AtaStatistics, PendingDefectsListTheSectorsTheMediumCannotRead) {
  StatisticsRig rig;
  rig.media->markUnreadable(900, UnreadableKind::Pending);
  rig.media->markUnreadable(12, UnreadableKind::Pending);
  const auto log = rig.log(0x0C, 0);
  EXPECT_EQ(log[0], 2) << "entries";
  EXPECT_EQ(log[16 + 8], 12) << "lowest LBA first";
  EXPECT_EQ(log[32 + 8] | log[32 + 9] << 8, 900);
}

TEST(AtaStatistics, SataPhyCountersEndWithAZeroIdentifierAndAValidChecksum) {
  StatisticsRig rig;
  const auto log = rig.log(0x11, 0);
  EXPECT_EQ(byteSum(log.data(), 512), 0);
  EXPECT_EQ(log[4] | log[5] << 8, 0x2001) << "a 32-bit counter of event 1";
  size_t at = 4;
  while (at + 2 <= 511 && (log[at] | log[at + 1] << 8) != 0) at += 2 + 2 * ((log[at + 1] >> 4) & 0x7);
  EXPECT_LT(at, 511u) << "the list ends inside the page";
}

TEST(AtaStatistics, DrivesWithoutTheLogsAbortTheirReads) {
  AtaProfile p;
  p.deviceStatistics = false;
  p.sataPhyCounters = false;
  StatisticsRig rig(p);
  uint8_t status = 0;
  rig.log(0x04, 0, &status);
  EXPECT_EQ(status & 0x01, 0x01);
  rig.log(0x11, 0, &status);
  EXPECT_EQ(status & 0x01, 0x01);
}

}  // namespace
}  // namespace sim
