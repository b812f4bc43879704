// The NVMe namespace through Windows' SCSI translation: identity, capacity,
// I/O and health as temperature and informational exceptions.
#include "sim/nvme_disk.h"

#include <gtest/gtest.h>

#include "sim/scsi_test_util.h"

namespace sim {
namespace {

using testutil::scsiIn;
using testutil::senseAsc;
using testutil::senseKey;

struct NvmeRig {
  NvmeRig() {
    NvmeProfile p;
    p.model = "Samsung SSD 970 EVO Plus 1TB";
    p.serial = "S4EWNX0R123456A";
    p.firmware = "2B2QEXM7";
    p.eui64 = 0x002538581B40C0DEULL;
    media = std::make_shared<Media>(512, 1953525168ULL);
    disk = std::make_shared<NvmeDisk>(p, media, std::make_shared<VirtualClock>());
  }
  std::shared_ptr<Media> media;
  std::shared_ptr<NvmeDisk> disk;
};

TEST(NvmeDisk, InquiryShowsTheTranslatedIdentity) {
  NvmeRig rig;
  const auto inq = scsiIn(*rig.disk, {0x12, 0, 0, 0, 64, 0}, 64);
  EXPECT_EQ(std::string(inq.data.begin() + 8, inq.data.begin() + 16), "NVMe    ");
  EXPECT_EQ(std::string(inq.data.begin() + 16, inq.data.begin() + 32), "Samsung SSD 970 ");
  EXPECT_EQ(std::string(inq.data.begin() + 32, inq.data.begin() + 36), "2B2Q");
  const auto serial = scsiIn(*rig.disk, {0x12, 1, 0x80, 0, 64, 0}, 64);
  EXPECT_EQ(std::string(serial.data.begin() + 4, serial.data.end()), "0025_3858_1B40_C0DE.");
  const auto bdc = scsiIn(*rig.disk, {0x12, 1, 0xB1, 0, 64, 0}, 64);
  EXPECT_EQ(bdc.data[4] << 8 | bdc.data[5], 1);  // non-rotating
  const auto id = scsiIn(*rig.disk, {0x12, 1, 0x83, 0, 64, 0}, 64);
  EXPECT_EQ(id.data[5] & 0x0F, 2);  // EUI-64 designator
  EXPECT_EQ(id.data[8], 0x00);
  EXPECT_EQ(id.data[15], 0xDE);
}

TEST(NvmeDisk, CapacityAndReadsComeFromTheNamespace) {
  NvmeRig rig;
  const auto cap = scsiIn(*rig.disk, {0x9E, 0x10, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 32, 0, 0}, 32);
  uint64_t last = 0;
  for (int i = 0; i < 8; ++i) last = last << 8 | cap.data[i];
  EXPECT_EQ(last, 1953525167ULL);
  std::vector<uint8_t> data(512, 0x77);
  rig.media->write(1953525167ULL, 1, data.data());
  const auto read = scsiIn(*rig.disk, {0x88, 0, 0, 0, 0, 0, 0x74, 0x70, 0x6D, 0xAF, 0, 0, 0, 1, 0, 0}, 512);
  EXPECT_EQ(read.data, data);
}

TEST(NvmeDisk, HealthShowsAsTemperatureAndInformationalExceptions) {
  NvmeRig rig;
  rig.disk->health().compositeTemperatureKelvin = 320;
  auto temp = scsiIn(*rig.disk, {0x4D, 0, 0x4D, 0, 0, 0, 0, 0, 252, 0}, 252);
  EXPECT_EQ(temp.data[9], 47);
  auto ie = scsiIn(*rig.disk, {0x4D, 0, 0x6F, 0, 0, 0, 0, 0, 252, 0}, 252);
  EXPECT_EQ(ie.data[8], 0x00);
  rig.disk->health().criticalWarning = 0x04;  // reliability degraded
  ie = scsiIn(*rig.disk, {0x4D, 0, 0x6F, 0, 0, 0, 0, 0, 252, 0}, 252);
  EXPECT_EQ(ie.data[8], 0x5D);
  const auto sense = scsiIn(*rig.disk, {0x03, 0, 0, 0, 252, 0}, 252);
  EXPECT_EQ(sense.data[12], 0x5D);
}

TEST(NvmeDisk, SendDiagnosticAndTheSelfTestPageAreNotTranslated) {
  NvmeRig rig;
  const auto diag = scsiIn(*rig.disk, {0x1D, 0x20, 0, 0, 0, 0}, 0);
  EXPECT_EQ(senseKey(diag.response.sense), kSenseIllegalRequest);
  EXPECT_EQ(senseAsc(diag.response.sense), kAscInvalidOpcode);
  const auto log = scsiIn(*rig.disk, {0x4D, 0, 0x50, 0, 0, 0, 0, 0, 252, 0}, 252);
  EXPECT_EQ(senseAsc(log.response.sense), kAscInvalidFieldInCdb);
}

TEST(NvmeDisk, ReferenceTemperatureIsTheWarningThreshold) {
  NvmeRig rig;
  const auto call = testutil::scsiIn(*rig.disk, {0x4D, 0, 0x4D, 0, 0, 0, 0, 0, 64, 0}, 64);
  ASSERT_EQ(call.data.size(), 16u);
  EXPECT_EQ(call.data[15], 358 - 273);
  const auto ie = testutil::scsiIn(*rig.disk, {0x4D, 0, 0x6F, 0, 0, 0, 0, 0, 64, 0}, 64);
  ASSERT_EQ(ie.data.size(), 12u);
  EXPECT_EQ(ie.data[11], 358 - 273);
}

}  // namespace
}  // namespace sim
