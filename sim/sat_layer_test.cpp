// The SCSI/ATA translation and the USB bridges: ATA PASS-THROUGH (12)/(16)
// with the ATA Status Return descriptor, CK_COND with and without support,
// the JMicron and Sunplus pass-throughs, and a bridge that speaks SCSI only.
#include "sim/sat_layer.h"

#include <gtest/gtest.h>

#include "sim/ata_drive.h"
#include "sim/faults.h"
#include "sim/scsi_test_util.h"

namespace sim {
namespace {

using testutil::scsiIn;
using testutil::senseAsc;
using testutil::senseKey;

struct BridgeRig {
  explicit BridgeRig(BridgeProfile bridgeProfile, uint64_t sectors = 2000000) {
    AtaProfile p;
    p.model = "ST2000DM008-2FR102";
    p.serial = "ZFL0ABCD";
    p.firmware = "0001";
    p.rotationRate = 7200;
    media = std::make_shared<Media>(512, sectors);
    clock = std::make_shared<VirtualClock>();
    drive = std::make_shared<AtaDrive>(p, media, clock);
    faults = std::make_shared<FaultState>(clock);
    wrapped = std::make_shared<FaultyAtaDevice>(drive, faults, nullptr, "drive", clock);
    bridge = std::make_shared<SatLayer>(bridgeProfile, wrapped);
  }
  std::shared_ptr<Media> media;
  std::shared_ptr<VirtualClock> clock;
  std::shared_ptr<AtaDrive> drive;
  std::shared_ptr<FaultState> faults;
  std::shared_ptr<FaultyAtaDevice> wrapped;
  std::shared_ptr<SatLayer> bridge;
};

// The ATA Status Return descriptor inside descriptor-format sense.
const uint8_t* statusDescriptor(const std::vector<uint8_t>& sense) {
  if (sense.size() < 8 || (sense[0] & 0x7F) != 0x72) return nullptr;
  size_t at = 8;
  while (at + 1 < sense.size()) {
    if (sense[at] == 0x09 && at + 14 <= sense.size()) return &sense[at];
    at += size_t{sense[at + 1]} + 2;
  }
  return nullptr;
}

TEST(SatLayer, PassThrough16ReadSectorsExtReadsTheAddressedSector) {
  BridgeRig rig(satBridgeProfile(true));
  const uint64_t lba = 0x123456;
  std::vector<uint8_t> data(512, 0x6B);
  rig.media->write(lba, 1, data.data());
  // Protocol 4 (PIO in), EXTEND; T_DIR, BYT_BLOK, T_LENGTH 2.
  const auto call = scsiIn(*rig.bridge, {0x85, 0x09, 0x0E, 0, 0, 0, 1, 0x00, 0x56, 0, 0x34, 0, 0x12, 0x40, 0x24, 0}, 512);
  EXPECT_EQ(call.response.status, 0);
  EXPECT_EQ(call.data, data);
}

TEST(SatLayer, CkCondReturnsSmartStatusInTheStatusReturnDescriptor) {
  BridgeRig rig(satBridgeProfile(true));
  // SMART RETURN STATUS through ATA PASS-THROUGH(12), non-data, CK_COND.
  const auto call = scsiIn(*rig.bridge, {0xA1, 0x06, 0x20, 0xDA, 0, 0, 0x4F, 0xC2, 0, 0xB0, 0, 0}, 0);
  ASSERT_EQ(call.response.status, 2);
  const auto& s = call.response.sense;
  EXPECT_EQ(s[0], 0x72);
  EXPECT_EQ(s[1], kSenseRecoveredError);
  EXPECT_EQ(s[2], 0x00);
  EXPECT_EQ(s[3], 0x1D);
  const uint8_t* d = statusDescriptor(s);
  ASSERT_NE(d, nullptr);
  EXPECT_EQ(d[1], 0x0C);
  EXPECT_EQ(d[3], 0x00);  // error
  EXPECT_EQ(d[9], 0x4F);  // LBA mid
  EXPECT_EQ(d[11], 0xC2); // LBA high
  EXPECT_EQ(d[13], 0x50); // status
}

TEST(SatLayer, FailedReadCarriesMediumErrorAndTheDriveRegisters) {
  BridgeRig rig(satBridgeProfile(true));
  rig.media->markUnreadable(0x20);
  const auto call = scsiIn(*rig.bridge, {0x85, 0x09, 0x0E, 0, 0, 0, 1, 0, 0x20, 0, 0, 0, 0, 0x40, 0x24, 0}, 512);
  ASSERT_EQ(call.response.status, 2);
  EXPECT_EQ(senseKey(call.response.sense), kSenseMediumError);
  EXPECT_EQ(senseAsc(call.response.sense), kAscUnrecoveredReadError);
  const uint8_t* d = statusDescriptor(call.response.sense);
  ASSERT_NE(d, nullptr);
  EXPECT_EQ(d[2], 1);  // EXTEND
  EXPECT_EQ(d[3], 0x40);
  EXPECT_EQ(d[7], 0x20);
  EXPECT_EQ(d[13] & 0x01, 0x01);
}

TEST(SatLayer, FailedPassThroughPutsTheStatusReturnFirstSoItFitsInThirtyTwoSenseBytes) {
  BridgeRig rig(satBridgeProfile(true), 200000000);
  rig.media->markUnreadable(0x0B892011);
  // READ SECTORS EXT of LBA 0x0B892011 through ATA PASS-THROUGH(16), CK_COND.
  const auto call =
      scsiIn(*rig.bridge, {0x85, 0x09, 0x2E, 0, 0, 0, 1, 0x0B, 0x11, 0, 0x20, 0, 0x89, 0x40, 0x24, 0}, 512);
  ASSERT_EQ(call.response.status, 2);
  const auto& s = call.response.sense;
  ASSERT_EQ(s.size(), 22u);
  EXPECT_EQ(s[1], kSenseMediumError);
  EXPECT_EQ(s[7], 14);  // one descriptor
  const std::vector<uint8_t> descriptor(s.begin() + 8, s.end());
  // code, length, EXTEND, error, count (previous, current), LBA low, mid,
  // high (previous, current each), device, status.
  EXPECT_EQ(descriptor, (std::vector<uint8_t>{0x09, 0x0C, 1, 0x40, 0, 1, 0x0B, 0x11, 0, 0x20, 0, 0x89, 0x40, 0x51}));
}

TEST(SatLayer, BridgeWithoutCkCondAnswersGoodAndGivesRegistersByProtocol15) {
  BridgeRig rig(satBridgeProfile(false));
  const auto status = scsiIn(*rig.bridge, {0xA1, 0x06, 0x20, 0xDA, 0, 0, 0x4F, 0xC2, 0, 0xB0, 0, 0}, 0);
  EXPECT_EQ(status.response.status, 0);
  EXPECT_TRUE(status.response.sense.empty());
  const auto regs = scsiIn(*rig.bridge, {0xA1, 0x1E, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0}, 14);
  ASSERT_EQ(regs.data.size(), 14u);
  EXPECT_EQ(regs.data[0], 0x09);
  EXPECT_EQ(regs.data[1], 0x0C);
  EXPECT_EQ(regs.data[9], 0x4F);
  EXPECT_EQ(regs.data[11], 0xC2);
}

TEST(SatLayer, NonDataProtocolMovesNoDataEvenForACommandThatHasSome) {
  BridgeRig rig(satBridgeProfile(true));
  // SMART READ THRESHOLDS sent as non-data with T_DIR: the drive runs it,
  // the data has nowhere to go.
  const auto call = scsiIn(*rig.bridge, {0xA1, 0x06, 0x6C, 0xD1, 1, 0, 0x4F, 0xC2, 0, 0xB0, 0, 0}, 512);
  EXPECT_EQ(call.response.transferred, 0u);
  EXPECT_EQ(senseKey(call.response.sense), kSenseRecoveredError);
}

TEST(SatLayer, DataInProtocolWithoutTDirIsAnInvalidField) {
  BridgeRig rig(satBridgeProfile(true));
  const auto call = scsiIn(*rig.bridge, {0xA1, 0x08, 0x06, 0, 1, 0, 0, 0, 0, 0xEC, 0, 0}, 512);
  EXPECT_EQ(senseKey(call.response.sense), kSenseIllegalRequest);
  EXPECT_EQ(senseAsc(call.response.sense), kAscInvalidFieldInCdb);
}

TEST(SatLayer, JmicronPassThroughCarriesIdentify) {
  BridgeRig rig(jmicronBridgeProfile());
  const auto call = scsiIn(*rig.bridge, {0xDF, 0x10, 0, 0x02, 0x00, 0, 1, 0, 0, 0, 0xA0, 0xEC}, 512);
  ASSERT_EQ(call.response.status, 0);
  ASSERT_EQ(call.data.size(), 512u);
  EXPECT_EQ(call.data[54], 'T');  // "ST2000..." byte-swapped
  EXPECT_EQ(call.data[55], 'S');
  const auto sat = scsiIn(*rig.bridge, {0x85, 0x08, 0x0E, 0, 0, 0, 1, 0, 0, 0, 0, 0, 0, 0, 0xEC, 0}, 512);
  EXPECT_EQ(senseAsc(sat.response.sense), kAscInvalidOpcode);
}

TEST(SatLayer, SunplusPassThroughCarriesIdentifyAndReadsBackRegisters) {
  BridgeRig rig(sunplusBridgeProfile());
  const auto call = scsiIn(*rig.bridge, {0xF8, 0, 0x22, 0x10, 1, 0, 1, 0, 0, 0, 0xA0, 0xEC}, 512);
  ASSERT_EQ(call.response.status, 0);
  EXPECT_EQ(call.data.size(), 512u);
  const auto regs = scsiIn(*rig.bridge, {0xF8, 0, 0x21, 0, 0, 0, 0, 0, 0, 0, 0, 0}, 8);
  ASSERT_EQ(regs.data.size(), 8u);
  EXPECT_EQ(regs.data[7], 0x50);
}

TEST(SatLayer, ScsiOnlyBridgeTranslatesBlockCommandsAndRefusesPassThrough) {
  BridgeProfile p = scsiOnlyBridgeProfile();
  p.vendor = "WD";
  p.product = "Elements 25A2";
  p.revision = "1021";
  BridgeRig rig(p, 1000);
  const auto inq = scsiIn(*rig.bridge, {0x12, 0, 0, 0, 36, 0}, 36);
  EXPECT_EQ(std::string(inq.data.begin() + 8, inq.data.begin() + 16), "WD      ");
  EXPECT_EQ(std::string(inq.data.begin() + 16, inq.data.begin() + 29), "Elements 25A2");
  const auto cap = scsiIn(*rig.bridge, {0x25, 0, 0, 0, 0, 0, 0, 0, 0, 0}, 8);
  EXPECT_EQ(cap.data[2] << 8 | cap.data[3], 999);
  std::vector<uint8_t> data(512, 0x3C);
  rig.media->write(7, 1, data.data());
  EXPECT_EQ(scsiIn(*rig.bridge, {0x28, 0, 0, 0, 0, 7, 0, 0, 1, 0}, 512).data, data);
  for (uint8_t op : {0xA1, 0x85, 0xDF, 0xF8}) {
    const auto call = scsiIn(*rig.bridge, {op, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0}, 512);
    EXPECT_EQ(senseKey(call.response.sense), kSenseIllegalRequest) << int{op};
    EXPECT_EQ(senseAsc(call.response.sense), kAscInvalidOpcode) << int{op};
  }
}

TEST(SatLayer, PortTranslationInquiryFollowsSat) {
  BridgeRig rig(portTranslationProfile());
  const auto inq = scsiIn(*rig.bridge, {0x12, 0, 0, 0, 96, 0}, 96);
  EXPECT_EQ(std::string(inq.data.begin() + 8, inq.data.begin() + 16), "ATA     ");
  EXPECT_EQ(std::string(inq.data.begin() + 16, inq.data.begin() + 32), "ST2000DM008-2FR1");
  EXPECT_EQ(std::string(inq.data.begin() + 32, inq.data.begin() + 36), "0001");
  const auto serial = scsiIn(*rig.bridge, {0x12, 1, 0x80, 0, 64, 0}, 64);
  EXPECT_EQ(std::string(serial.data.begin() + 4, serial.data.end()), "ZFL0ABCD");
  const auto ata = scsiIn(*rig.bridge, {0x12, 1, 0x89, 0x02, 0x3C, 0}, 572);
  ASSERT_EQ(ata.data.size(), 572u);
  EXPECT_EQ(ata.data[56], 0xEC);
  EXPECT_EQ(ata.data[60 + 54], 'T');
  const auto bdc = scsiIn(*rig.bridge, {0x12, 1, 0xB1, 0, 64, 0}, 64);
  EXPECT_EQ(bdc.data[4] << 8 | bdc.data[5], 7200);
}

TEST(SatLayer, TranslatedReadOfABadSectorIsMediumErrorWithItsLba) {
  BridgeRig rig(portTranslationProfile());
  rig.media->markUnreadable(4444);
  const auto call = scsiIn(*rig.bridge, {0x28, 0, 0, 0, 0x11, 0x5A, 0, 0, 4, 0}, 2048);
  ASSERT_EQ(call.response.status, 2);
  const auto& s = call.response.sense;
  EXPECT_EQ(s[0], 0xF0);
  EXPECT_EQ(s[2], kSenseMediumError);
  EXPECT_EQ(s[5] << 8 | s[6], 4444);
  EXPECT_EQ(call.response.transferred, 2u * 512);
}

TEST(SatLayer, VanishedDriveSurfacesAsNoDevice) {
  BridgeRig rig(satBridgeProfile(true));
  rig.faults->vanishNow();
  const auto call = scsiIn(*rig.bridge, {0x85, 0x08, 0x0E, 0, 0, 0, 1, 0, 0, 0, 0, 0, 0, 0, 0xEC, 0}, 512);
  EXPECT_EQ(call.response.completion, Completion::NoDevice);
}

TEST(SatLayer, DeviceIdentificationCarriesTheWwnAndTheT10VendorDesignator) {
  BridgeRig rig(portTranslationProfile());
  rig.drive->profile().wwn = 0x5000C500A1B2C3D4ULL;
  const auto call = scsiIn(*rig.bridge, {0x12, 0x01, 0x83, 0x00, 0xFF, 0}, 255);
  ASSERT_GE(call.data.size(), 16u + 72u);
  EXPECT_EQ(call.data[5] & 0x0F, 3) << "NAA";
  EXPECT_EQ(getBe64(&call.data[8]), 0x5000C500A1B2C3D4ULL);
  EXPECT_EQ(call.data[17] & 0x0F, 1) << "T10 vendor identification";
  EXPECT_EQ(std::string(call.data.begin() + 20, call.data.begin() + 28), "ATA     ");
  EXPECT_EQ(std::string(call.data.begin() + 28, call.data.begin() + 46), "ST2000DM008-2FR102");
}

TEST(SatLayer, AtaInformationPageNamesTheTranslationAndCarriesIdentify) {
  BridgeRig rig(portTranslationProfile());
  const auto call = scsiIn(*rig.bridge, {0x12, 0x01, 0x89, 0x02, 0x3C, 0}, 572);
  ASSERT_EQ(call.data.size(), 572u);
  EXPECT_EQ(std::string(call.data.begin() + 8, call.data.begin() + 12), "MSFT");
  EXPECT_EQ(call.data[36], 0x34) << "register FIS";
  EXPECT_EQ(call.data[56], 0xEC);
  EXPECT_EQ(call.data[60 + 2 * 27 + 1], 'S') << "IDENTIFY model, first character";
}

TEST(SatLayer, ModeSenseReturnsTranslatedPagesWithTheBlockDescriptor) {
  BridgeRig rig(portTranslationProfile());
  const auto call = scsiIn(*rig.bridge, {0x5A, 0x00, 0x3F, 0, 0, 0, 0, 0xFF, 0xFF, 0}, 4096);
  ASSERT_GE(call.data.size(), 8u + 8 + 12 + 20 + 12 + 12);
  EXPECT_EQ(getBe16(&call.data[0]) + 2u, call.data.size());
  EXPECT_EQ(getBe32(&call.data[8]), 2000000u) << "blocks";
  size_t at = 16;
  std::vector<uint8_t> codes;
  while (at + 2 <= call.data.size()) {
    codes.push_back(call.data[at] & 0x3F);
    if ((call.data[at] & 0x3F) == 0x0A) {
      EXPECT_EQ(getBe16(&call.data[at + 10]), 120 * 60) << "extended self test";
    }
    at += call.data[at + 1] + 2u;
  }
  EXPECT_EQ(codes, (std::vector<uint8_t>{0x01, 0x08, 0x0A, 0x1C}));
}

TEST(SatLayer, LogSenseTranslatesTemperatureSelfTestsAndTheSmartVerdict) {
  BridgeRig rig(portTranslationProfile());
  rig.drive->profile().attributes = {{5, 0x0033, 200, 200, 0, 140}, {194, 0x0022, 110, 100, 0, 0}};
  rig.drive->profile().temperatureCelsius = 36;
  rig.drive->profile().selfTestLog = {};
  auto call = scsiIn(*rig.bridge, {0x4D, 0, 0x40, 0, 0, 0, 0, 0, 64, 0}, 64);
  EXPECT_EQ(std::vector<uint8_t>(call.data.begin() + 4, call.data.end()),
            (std::vector<uint8_t>{0x00, 0x0D, 0x10, 0x2F}));
  call = scsiIn(*rig.bridge, {0x4D, 0, 0x4D, 0, 0, 0, 0, 0, 64, 0}, 64);
  ASSERT_EQ(call.data.size(), 16u);
  EXPECT_EQ(call.data[9], 36);
  EXPECT_EQ(call.data[15], 60) << "the SCT maximum operating temperature";
  call = scsiIn(*rig.bridge, {0x4D, 0, 0x6F, 0, 0, 0, 0, 0, 64, 0}, 64);
  ASSERT_EQ(call.data.size(), 12u);
  EXPECT_EQ(call.data[8], 0x00);
  rig.drive->profile().attributes[0].value = 140;
  call = scsiIn(*rig.bridge, {0x4D, 0, 0x6F, 0, 0, 0, 0, 0, 64, 0}, 64);
  EXPECT_EQ(call.data[8], 0x5D);
  EXPECT_EQ(call.data[9], 0x10);
}

TEST(SatLayer, SelfTestResultsPageListsTheNewestAtaSelfTestFirst) {
  BridgeRig rig(portTranslationProfile());
  rig.media->markUnreadable(1234, UnreadableKind::Pending);
  AtaRequest start;
  start.in = {0xD4, 0, 0x02, 0x4F, 0xC2, 0xA0, 0xB0};
  ASSERT_EQ(rig.drive->executeAta(start).out.status & 0x01, 0);
  rig.clock->advanceMs(121 * 60 * 1000);
  const auto call = scsiIn(*rig.bridge, {0x4D, 0, 0x50, 0, 0, 0, 0, 0x01, 0x94, 0}, 404);
  ASSERT_EQ(call.data.size(), 404u);
  EXPECT_EQ(call.data[8], 2 << 5 | 7) << "background extended, read failure";
  EXPECT_EQ(getBe64(&call.data[12]), 1234u);
  EXPECT_EQ(call.data[20], kSenseMediumError);
}

TEST(SatLayer, ReportLunsListsLunZero) {
  BridgeRig rig(satBridgeProfile(true));
  const auto call = scsiIn(*rig.bridge, {0xA0, 0, 0, 0, 0, 0, 0, 0, 0, 16, 0, 0}, 16);
  ASSERT_EQ(call.data.size(), 16u);
  EXPECT_EQ(getBe32(&call.data[0]), 8u);
  EXPECT_EQ(getBe64(&call.data[8]), 0u);
}

TEST(SatLayer, JmicronSmartStatusGivesTheVerdictByteAndTheRegistersReadBack) {
  BridgeRig rig(jmicronBridgeProfile());
  rig.drive->profile().attributes = {{5, 0x0033, 200, 200, 0, 140}};
  auto call = scsiIn(*rig.bridge, {0xDF, 0x10, 0, 0, 1, 0xDA, 0, 0, 0x4F, 0xC2, 0xA0, 0xB0}, 1);
  ASSERT_EQ(call.data.size(), 1u);
  EXPECT_EQ(call.data[0], 0xC2);
  rig.drive->profile().attributes[0].value = 100;
  call = scsiIn(*rig.bridge, {0xDF, 0x10, 0, 0, 1, 0xDA, 0, 0, 0x4F, 0xC2, 0xA0, 0xB0}, 1);
  ASSERT_EQ(call.data.size(), 1u);
  EXPECT_EQ(call.data[0], 0x2C);
  // The task file the command left, at 0x8000: 4 LBA mid, 10 LBA high, 14 status.
  call = scsiIn(*rig.bridge, {0xDF, 0x10, 0, 0, 16, 0, 0x80, 0x00, 0, 0, 0, 0xFD}, 16);
  ASSERT_EQ(call.data.size(), 16u);
  EXPECT_EQ(call.data[4], 0xF4);
  EXPECT_EQ(call.data[10], 0x2C);
  EXPECT_EQ(call.data[14], 0x50);
  call = scsiIn(*rig.bridge, {0xDF, 0x10, 0, 0, 1, 0, 0x72, 0x0F, 0, 0, 0, 0xFD}, 1);
  EXPECT_EQ(call.data, std::vector<uint8_t>{0x04}) << "a device on port 0";
}

TEST(SatLayer, ModeSelectOfDexcptSwitchesSmartAndOtherChangesAreRefused) {
  BridgeRig rig(portTranslationProfile());
  // MODE SELECT(6): header, no block descriptor, the IE page with DEXCPT.
  std::vector<uint8_t> list = {0, 0, 0, 0, 0x1C, 0x0A, 0x08, 0x06, 0, 0, 0, 0, 0, 0, 0, 0};
  auto r = testutil::scsiOut(*rig.bridge, {0x15, 0x10, 0, 0, static_cast<uint8_t>(list.size()), 0}, list);
  EXPECT_EQ(r.status, 0);
  EXPECT_FALSE(rig.drive->smartEnabled());
  auto sense = scsiIn(*rig.bridge, {0x1A, 0x08, 0x1C, 0, 32, 0}, 32);
  ASSERT_GE(sense.data.size(), 8u);
  EXPECT_EQ(sense.data[6] & 0x08, 0x08) << "DEXCPT now reported";
  list[6] = 0x00;
  r = testutil::scsiOut(*rig.bridge, {0x15, 0x10, 0, 0, static_cast<uint8_t>(list.size()), 0}, list);
  EXPECT_EQ(r.status, 0);
  EXPECT_TRUE(rig.drive->smartEnabled());
  list[6] = 0x04;  // TEST is not changeable here
  r = testutil::scsiOut(*rig.bridge, {0x15, 0x10, 0, 0, static_cast<uint8_t>(list.size()), 0}, list);
  EXPECT_EQ(senseKey(r.sense), kSenseIllegalRequest);
  EXPECT_EQ(senseAsc(r.sense), kAscInvalidFieldInParameterList);
}

}  // namespace
}  // namespace sim
