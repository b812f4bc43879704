// The SCSI drive against SPC/SBC: INQUIRY and VPD layouts, capacity, reads
// and writes with their sense, log and mode pages, and self tests on the
// virtual clock.
#include "sim/scsi_drive.h"

#include <algorithm>

#include <gtest/gtest.h>

#include "sim/scsi_test_util.h"

namespace sim {
namespace {

using testutil::scsiIn;
using testutil::scsiOut;
using testutil::senseAsc;
using testutil::senseKey;

struct ScsiRig {
  explicit ScsiRig(ScsiProfile p = {}, uint64_t sectors = 1000000, uint32_t size = 512)
      : media(std::make_shared<Media>(size, sectors)), clock(std::make_shared<VirtualClock>()),
        drive(std::move(p), media, clock) {}
  std::shared_ptr<Media> media;
  std::shared_ptr<VirtualClock> clock;
  ScsiDrive drive;
};

ScsiProfile sasProfile() {
  ScsiProfile p;
  p.vendor = "SEAGATE";
  p.product = "ST600MM0009";
  p.revision = "N004";
  p.serial = "W0M1ABCD";
  return p;
}

TEST(ScsiDrive, StandardInquiryCarriesIdentityAndVersionDescriptors) {
  ScsiRig rig(sasProfile());
  const auto call = scsiIn(rig.drive, {0x12, 0, 0, 0, 96, 0}, 96);
  ASSERT_EQ(call.response.status, 0);
  ASSERT_EQ(call.data.size(), 96u);
  EXPECT_EQ(call.data[2], 6);
  EXPECT_EQ(call.data[4], 91);
  EXPECT_EQ(std::string(call.data.begin() + 8, call.data.begin() + 16), "SEAGATE ");
  EXPECT_EQ(std::string(call.data.begin() + 16, call.data.begin() + 32), "ST600MM0009     ");
  EXPECT_EQ(std::string(call.data.begin() + 32, call.data.begin() + 36), "N004");
  EXPECT_EQ(call.data[58] << 8 | call.data[59], 0x00A0);
  EXPECT_EQ(call.data[60] << 8 | call.data[61], 0x0460);
}

TEST(ScsiDrive, InquiryHonoursTheAllocationLength) {
  ScsiRig rig;
  EXPECT_EQ(scsiIn(rig.drive, {0x12, 0, 0, 0, 64, 0}, 96).data.size(), 64u);
  EXPECT_EQ(scsiIn(rig.drive, {0x12, 0, 0, 0, 0, 0}, 96).data.size(), 0u);
}

TEST(ScsiDrive, VpdPagesListSerialAndRotationRate) {
  ScsiRig rig(sasProfile());
  const auto list = scsiIn(rig.drive, {0x12, 1, 0x00, 0, 64, 0}, 64);
  ASSERT_EQ(list.response.status, 0);
  EXPECT_EQ(list.data[1], 0x00);
  EXPECT_EQ(std::vector<uint8_t>(list.data.begin() + 4, list.data.end()),
            (std::vector<uint8_t>{0x00, 0x80, 0x83, 0xB1}));
  const auto serial = scsiIn(rig.drive, {0x12, 1, 0x80, 0, 64, 0}, 64);
  EXPECT_EQ(serial.data[3], 8);
  EXPECT_EQ(std::string(serial.data.begin() + 4, serial.data.end()), "W0M1ABCD");
  const auto bdc = scsiIn(rig.drive, {0x12, 1, 0xB1, 0, 64, 0}, 64);
  EXPECT_EQ(bdc.data[1], 0xB1);
  EXPECT_EQ(bdc.data[4] << 8 | bdc.data[5], 10000);
}

TEST(ScsiDrive, UnknownVpdPageIsAnInvalidFieldInCdb) {
  ScsiRig rig;
  const auto call = scsiIn(rig.drive, {0x12, 1, 0xC7, 0, 64, 0}, 64);
  EXPECT_EQ(call.response.status, 2);
  EXPECT_EQ(senseKey(call.response.sense), kSenseIllegalRequest);
  EXPECT_EQ(senseAsc(call.response.sense), kAscInvalidFieldInCdb);
}

TEST(ScsiDrive, ReadCapacityGivesTheLastLbaAndBlockLength) {
  ScsiProfile p;
  p.physicalExponent = 3;
  ScsiRig rig(p, 1000);
  const auto rc10 = scsiIn(rig.drive, {0x25, 0, 0, 0, 0, 0, 0, 0, 0, 0}, 8);
  EXPECT_EQ(rc10.data, (std::vector<uint8_t>{0, 0, 0x03, 0xE7, 0, 0, 0x02, 0}));
  const auto rc16 = scsiIn(rig.drive, {0x9E, 0x10, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 32, 0, 0}, 32);
  ASSERT_EQ(rc16.data.size(), 32u);
  EXPECT_EQ(rc16.data[7], 0xE7);
  EXPECT_EQ(rc16.data[6], 0x03);
  EXPECT_EQ(rc16.data[10], 0x02);
  EXPECT_EQ(rc16.data[13], 3);
}

TEST(ScsiDrive, ReadCapacity10OfAHugeDiskSaysUseTheLongForm) {
  ScsiRig rig({}, 1ULL << 33);
  const auto rc10 = scsiIn(rig.drive, {0x25, 0, 0, 0, 0, 0, 0, 0, 0, 0}, 8);
  EXPECT_EQ(rc10.data[0] & rc10.data[1] & rc10.data[2] & rc10.data[3], 0xFF);
}

TEST(ScsiDrive, ReadsAndWritesOfEveryLengthReachTheMedia) {
  ScsiRig rig;
  std::vector<uint8_t> data(512, 0x42);
  EXPECT_EQ(scsiOut(rig.drive, {0x2A, 0, 0, 0, 0, 10, 0, 0, 1, 0}, data).status, 0);
  EXPECT_EQ(scsiOut(rig.drive, {0xAA, 0, 0, 0, 0, 11, 0, 0, 0, 1, 0, 0}, data).status, 0);
  EXPECT_EQ(scsiOut(rig.drive, {0x8A, 0, 0, 0, 0, 0, 0, 0, 0, 12, 0, 0, 0, 1, 0, 0}, data).status, 0);
  EXPECT_EQ(scsiIn(rig.drive, {0x28, 0, 0, 0, 0, 10, 0, 0, 1, 0}, 512).data, data);
  EXPECT_EQ(scsiIn(rig.drive, {0xA8, 0, 0, 0, 0, 11, 0, 0, 0, 1, 0, 0}, 512).data, data);
  EXPECT_EQ(scsiIn(rig.drive, {0x88, 0, 0, 0, 0, 0, 0, 0, 0, 12, 0, 0, 0, 1, 0, 0}, 512).data, data);
}

TEST(ScsiDrive, Read10InATwelveByteCdbIsDecodedAsRead10) {
  // Operation code 0x28 fixes the layout: bytes 7-8 are the length, so a
  // count written into bytes 6-9 as 00 00 00 01 asks for no blocks at all.
  ScsiRig rig;
  const auto call = scsiIn(rig.drive, {0x28, 0x18, 0, 0, 0, 5, 0, 0, 0, 1, 0, 0}, 512);
  EXPECT_EQ(call.response.status, 0);
  EXPECT_EQ(call.response.transferred, 0u);
}

TEST(ScsiDrive, UnreadableSectorGivesMediumErrorWithTheLbaInFixedSense) {
  ScsiRig rig;
  rig.media->markUnreadable(0x1234);
  const auto call = scsiIn(rig.drive, {0x28, 0, 0, 0, 0x12, 0x30, 0, 0, 8, 0}, 8 * 512);
  ASSERT_EQ(call.response.status, 2);
  const auto& s = call.response.sense;
  ASSERT_EQ(s.size(), 18u);
  EXPECT_EQ(s[0], 0xF0);  // VALID, current error, fixed
  EXPECT_EQ(s[2], kSenseMediumError);
  EXPECT_EQ(s[3] << 24 | s[4] << 16 | s[5] << 8 | s[6], 0x1234);
  EXPECT_EQ(s[12], 0x11);
  EXPECT_EQ(call.response.transferred, 4u * 512);
}

TEST(ScsiDrive, UnreadableSectorInDescriptorSenseCarriesAnInformationDescriptor) {
  ScsiProfile p;
  p.senseFormat = SenseFormat::Descriptor;
  ScsiRig rig(p);
  rig.media->markUnreadable(77);
  const auto call = scsiIn(rig.drive, {0x28, 0, 0, 0, 0, 77, 0, 0, 1, 0}, 512);
  const auto& s = call.response.sense;
  ASSERT_GE(s.size(), 20u);
  EXPECT_EQ(s[0], 0x72);
  EXPECT_EQ(s[1], kSenseMediumError);
  EXPECT_EQ(s[2], 0x11);
  EXPECT_EQ(s[7], 12);
  EXPECT_EQ(s[8], 0x00);   // information descriptor
  EXPECT_EQ(s[10], 0x80);  // VALID
  EXPECT_EQ(s[19], 77);
}

TEST(ScsiDrive, HugeReadIntoASmallBufferFillsOnlyTheBufferAndStillReportsTheBadSector) {
  ScsiRig rig({}, 1ULL << 32);
  rig.media->markUnreadable(2000000000ULL);
  // READ(16) of 2^31 sectors into 1000 bytes: bounded work, bounded copy.
  const auto call = scsiIn(rig.drive, {0x88, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0x80, 0, 0, 0, 0, 0}, 1000);
  EXPECT_EQ(call.response.transferred, 1000u);
  EXPECT_EQ(senseKey(call.response.sense), kSenseMediumError);
}

TEST(ScsiDrive, ReadPastTheEndIsLbaOutOfRange) {
  ScsiRig rig({}, 100);
  const auto call = scsiIn(rig.drive, {0x28, 0, 0, 0, 0, 99, 0, 0, 2, 0}, 1024);
  EXPECT_EQ(senseKey(call.response.sense), kSenseIllegalRequest);
  EXPECT_EQ(senseAsc(call.response.sense), kAscLbaOutOfRange);
}

TEST(ScsiDrive, UnsupportedOpcodeIsInvalidCommandOperationCode) {
  ScsiRig rig;
  const auto call = scsiIn(rig.drive, {0xA1, 0x08, 0x0E, 0, 1, 0, 0, 0, 0, 0xEC, 0, 0}, 512);
  EXPECT_EQ(call.response.status, 2);
  EXPECT_EQ(senseKey(call.response.sense), kSenseIllegalRequest);
  EXPECT_EQ(senseAsc(call.response.sense), kAscInvalidOpcode);
}

TEST(ScsiDrive, TemperatureAndInformationalExceptionsLogPages) {
  ScsiProfile p;
  p.temperatureCelsius = 41;
  p.failurePredicted = true;
  ScsiRig rig(p);
  const auto temp = scsiIn(rig.drive, {0x4D, 0, 0x4D, 0, 0, 0, 0, 0, 252, 0}, 252);
  ASSERT_EQ(temp.response.status, 0);
  EXPECT_EQ(temp.data[0], 0x0D);
  EXPECT_EQ(temp.data[9], 41);
  const auto ie = scsiIn(rig.drive, {0x4D, 0, 0x6F, 0, 0, 0, 0, 0, 252, 0}, 252);
  EXPECT_EQ(ie.data[0], 0x2F);
  EXPECT_EQ(ie.data[4] << 8 | ie.data[5], 0);
  EXPECT_EQ(ie.data[8], 0x5D);
  // An allocation length of 0 moves no data and is no error.
  const auto none = scsiIn(rig.drive, {0x4D, 0, 0x6F, 0, 0, 0, 0, 0, 0, 0}, 252);
  EXPECT_EQ(none.response.status, 0);
  EXPECT_TRUE(none.data.empty());
}

TEST(ScsiDrive, BackgroundShortSelfTestShowsProgressInRequestSenseAndIsLogged) {
  ScsiRig rig;
  ASSERT_EQ(scsiIn(rig.drive, {0x1D, 0x20, 0, 0, 0, 0}, 0).response.status, 0);
  rig.clock->advanceMs(60000);
  const auto sense = scsiIn(rig.drive, {0x03, 0, 0, 0, 252, 0, 0, 0, 0, 0}, 252);
  ASSERT_EQ(sense.response.status, 0);
  ASSERT_EQ(sense.data.size(), 18u);
  EXPECT_EQ(sense.data[2] & 0x0F, kSenseNoSense);
  EXPECT_EQ(sense.data[12], 0x04);
  EXPECT_EQ(sense.data[13], 0x09);
  EXPECT_EQ(sense.data[15], 0x80);
  EXPECT_EQ(sense.data[16] << 8 | sense.data[17], 0x8000);  // half done
  auto log = scsiIn(rig.drive, {0x4D, 0, 0x50, 0, 0, 0, 0, 0x01, 0x94, 0}, 404);
  EXPECT_EQ(log.data[8], 0x2F);  // background short, in progress
  rig.clock->advanceMs(60000);
  log = scsiIn(rig.drive, {0x4D, 0, 0x50, 0, 0, 0, 0, 0x01, 0x94, 0}, 404);
  EXPECT_EQ(log.data[0], 0x10);
  EXPECT_EQ(log.data[2] << 8 | log.data[3], 400);
  EXPECT_EQ(log.data[8], 0x20);  // passed
}

TEST(ScsiDrive, SelfTestFailureRecordsTheFirstUnreadableLba) {
  ScsiRig rig;
  rig.media->markUnreadable(500000);
  scsiIn(rig.drive, {0x1D, 0x40, 0, 0, 0, 0}, 0);
  rig.clock->advanceMs(3600 * 1000);
  const auto log = scsiIn(rig.drive, {0x4D, 0, 0x50, 0, 0, 0, 0, 0x01, 0x94, 0}, 404);
  EXPECT_EQ(log.data[8], 0x47);  // background extended, another segment failed
  uint64_t lba = 0;
  for (int i = 12; i < 20; ++i) lba = lba << 8 | log.data[i];
  EXPECT_EQ(lba, 500000u);
  EXPECT_EQ(log.data[20], kSenseMediumError);
  EXPECT_EQ(log.data[21], 0x11);
}

TEST(ScsiDrive, AbortEndsTheBackgroundTestAsAborted) {
  ScsiRig rig;
  scsiIn(rig.drive, {0x1D, 0x40, 0, 0, 0, 0}, 0);
  EXPECT_EQ(scsiIn(rig.drive, {0x1D, 0x80, 0, 0, 0, 0}, 0).response.status, 0);
  EXPECT_FALSE(rig.drive.selfTestRunning());
  const auto log = scsiIn(rig.drive, {0x4D, 0, 0x50, 0, 0, 0, 0, 0x01, 0x94, 0}, 404);
  EXPECT_EQ(log.data[8], 0x41);
}

TEST(ScsiDrive, DefaultSelfTestHoldsTheCommandAndReportsFailure) {
  ScsiRig rig;
  EXPECT_EQ(scsiIn(rig.drive, {0x1D, 0x04, 0, 0, 0, 0}, 0).response.status, 0);
  EXPECT_EQ(rig.clock->nowMs(), 30000u);
  rig.media->markUnreadable(3);
  const auto failed = scsiIn(rig.drive, {0x1D, 0x04, 0, 0, 0, 0}, 0);
  EXPECT_EQ(failed.response.status, 2);
  EXPECT_EQ(senseKey(failed.response.sense), kSenseHardwareError);
  EXPECT_EQ(senseAsc(failed.response.sense), kAscSelfTestFailed);
}

TEST(ScsiDrive, SelfTestBitWithACodeIsAnInvalidField) {
  ScsiRig rig;
  EXPECT_EQ(senseAsc(scsiIn(rig.drive, {0x1D, 0x24, 0, 0, 0, 0}, 0).response.sense), kAscInvalidFieldInCdb);
}

TEST(ScsiDrive, ModeSenseAndSelectOfTheIecPageInBothSizes) {
  ScsiRig rig;
  auto six = scsiIn(rig.drive, {0x1A, 0x08, 0x1C, 0, 32, 0}, 32);
  ASSERT_EQ(six.data.size(), 16u);
  EXPECT_EQ(six.data[0], 15);
  EXPECT_EQ(six.data[3], 0);
  EXPECT_EQ(six.data[4] & 0x3F, 0x1C);
  EXPECT_EQ(six.data[7], 6);  // MRIE
  // Turn DEXCPT on and MRIE to 4 through MODE SELECT(6).
  std::vector<uint8_t> list = six.data;
  list[0] = 0;
  list[6] = 0x08;
  list[7] = 4;
  EXPECT_EQ(scsiOut(rig.drive, {0x15, 0x11, 0, 0, 16, 0}, list).status, 0);
  auto ten = scsiIn(rig.drive, {0x5A, 0x08, 0x1C, 0, 0, 0, 0, 0, 32, 0}, 32);
  ASSERT_EQ(ten.data.size(), 20u);
  EXPECT_EQ(ten.data[10], 0x08);
  EXPECT_EQ(ten.data[11], 4);
  std::vector<uint8_t> list10 = ten.data;
  list10[0] = list10[1] = 0;
  list10[10] = 0;
  list10[11] = 6;
  EXPECT_EQ(scsiOut(rig.drive, {0x55, 0x10, 0, 0, 0, 0, 0, 0, 20, 0}, list10).status, 0);
  EXPECT_EQ(rig.drive.profile().mrie, 6);
}

TEST(ScsiDrive, ModeSense6WithZeroAllocationMovesNothing) {
  ScsiRig rig;
  const auto call = scsiIn(rig.drive, {0x1A, 0x08, 0x1C, 0, 0, 0, 0, 0, 0, 0}, 32);
  EXPECT_EQ(call.response.status, 0);
  EXPECT_TRUE(call.data.empty());
}

TEST(ScsiDrive, ModeSelectWithBadMrieIsAnInvalidFieldInTheParameterList) {
  ScsiRig rig;
  std::vector<uint8_t> list = {0, 0, 0, 0, 0x1C, 0x0A, 0, 9, 0, 0, 0, 0, 0, 0, 0, 0};
  const auto r = scsiOut(rig.drive, {0x15, 0x10, 0, 0, 16, 0}, list);
  EXPECT_EQ(senseAsc(r.sense), kAscInvalidFieldInParameterList);
}

TEST(ScsiDrive, RequestSenseReportsPredictedFailureWhenAskedToReportOnRequest) {
  ScsiProfile p;
  p.failurePredicted = true;
  p.mrie = 6;
  ScsiRig rig(p);
  const auto s = scsiIn(rig.drive, {0x03, 0, 0, 0, 252, 0}, 252);
  EXPECT_EQ(s.data[2] & 0x0F, kSenseNoSense);
  EXPECT_EQ(s.data[12], 0x5D);
}

TEST(ScsiDrive, FormFactorFollowsTheBlockDeviceCharacteristicsCode) {
  ScsiProfile p = sasProfile();
  p.formFactor = 2;
  ScsiRig rig(p);
  const auto call = scsiIn(rig.drive, {0x12, 0x01, 0xB1, 0, 64, 0}, 64);
  EXPECT_EQ(call.data[7], 2) << "3.5 inch";
}

TEST(ScsiDrive, InformationalExceptionsPageCarriesTheReferenceTemperature) {
  ScsiProfile p = sasProfile();
  p.temperatureCelsius = 34;
  p.referenceTemperatureCelsius = 68;
  ScsiRig rig(p);
  const auto call = scsiIn(rig.drive, {0x4D, 0, 0x6F, 0, 0, 0, 0, 0, 64, 0}, 64);
  ASSERT_GE(call.data.size(), 12u);
  EXPECT_EQ(call.data[10], 34);
  EXPECT_EQ(call.data[11], 68);
}

TEST(ScsiDrive, BlockDescriptorSaysAllOnesWhenTheCountDoesNotFitAndLongLbaHoldsIt) {
  ScsiRig rig(sasProfile(), 7814037168ULL);
  auto call = scsiIn(rig.drive, {0x5A, 0x00, 0x08, 0, 0, 0, 0, 0, 255, 0}, 255);
  ASSERT_GE(call.data.size(), 16u);
  EXPECT_EQ(call.data[7], 8);
  EXPECT_EQ(getBe32(&call.data[8]), 0xFFFFFFFFu);
  EXPECT_EQ(getBe32(&call.data[12]) & 0xFFFFFF, 512u);
  call = scsiIn(rig.drive, {0x5A, 0x10, 0x08, 0, 0, 0, 0, 0, 255, 0}, 255);
  ASSERT_GE(call.data.size(), 24u);
  EXPECT_EQ(call.data[4] & 0x01, 0x01) << "LONGLBA";
  EXPECT_EQ(call.data[7], 16);
  EXPECT_EQ(getBe64(&call.data[8]), 7814037168ULL);
  EXPECT_EQ(getBe32(&call.data[20]), 512u);
}

TEST(ScsiDrive, ControlModePageCarriesTheExtendedSelfTestTime) {
  ScsiProfile p = sasProfile();
  p.extendedTestSeconds = 30000;
  ScsiRig rig(p);
  const auto call = scsiIn(rig.drive, {0x1A, 0x08, 0x0A, 0, 255, 0}, 255);
  ASSERT_GE(call.data.size(), 16u);
  EXPECT_EQ(call.data[4] & 0x3F, 0x0A);
  EXPECT_EQ(getBe16(&call.data[14]), 30000);
}

TEST(ScsiDrive, ErrorCounterAndBackgroundScanPagesCarryTheProfile) {
  ScsiProfile p = sasProfile();
  p.readErrors.corrected = 1803311;
  p.readErrors.bytesProcessed = 219902325555200ULL;
  p.backgroundScan.scansPerformed = 127;
  ScsiRig rig(p);
  auto call = scsiIn(rig.drive, {0x4D, 0, 0x40, 0, 0, 0, 0, 0, 64, 0}, 64);
  const std::vector<uint8_t> supported(call.data.begin() + 4, call.data.end());
  for (uint8_t page : {0x02, 0x03, 0x05, 0x06, 0x15}) {
    EXPECT_NE(std::find(supported.begin(), supported.end(), page), supported.end()) << int{page};
  }
  call = scsiIn(rig.drive, {0x4D, 0, 0x43, 0, 0, 0, 0, 0, 255, 0}, 255);
  ASSERT_EQ(call.data.size(), 4u + 7 * 12);
  EXPECT_EQ(getBe64(&call.data[4 + 3 * 12 + 4]), 1803311u) << "total errors corrected";
  EXPECT_EQ(getBe64(&call.data[4 + 5 * 12 + 4]), 219902325555200ULL) << "bytes processed";
  call = scsiIn(rig.drive, {0x4D, 0, 0x55, 0, 0, 0, 0, 0, 255, 0}, 255);
  ASSERT_EQ(call.data.size(), 20u);
  EXPECT_EQ(getBe16(&call.data[14]), 127);
}

TEST(ScsiDrive, ShortSelfTestReadsOnlyTheFirstPartOfTheSurface) {
  ScsiRig rig(sasProfile(), 64000);
  rig.media->markUnreadable(5000, UnreadableKind::Pending);
  scsiOut(rig.drive, {0x1D, 0x20, 0, 0, 0, 0}, {});
  rig.clock->advanceMs(200000);
  const auto call = scsiIn(rig.drive, {0x4D, 0, 0x50, 0, 0, 0, 0, 0, 255, 0}, 255);
  EXPECT_EQ(call.data[8] & 0x0F, 0) << "passed";
}

}  // namespace
}  // namespace sim
