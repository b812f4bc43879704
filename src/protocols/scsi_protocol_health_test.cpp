// The SCSI protocol's sector I/O, temperature, self tests and SMART routes on
// the scripted SCSI transport, and the NVMe variant's order of the routes.
#include <gtest/gtest.h>

#include <memory>
#include <vector>

#include "commands/scsi/scsi_commands.h"
#include "commands/scsi/sense_data.h"
#include "protocols/scsi_protocol.h"
#include "protocols/scsi_protocol_test_support.h"

namespace {

using mstest::descriptorSense;
using mstest::fixedSense;
using mstest::ScriptedScsiBridge;
using mstest::ScsiAnswer;
using namespace scsitest;

// A 252-byte REQUEST SENSE answer holding fixed-format sense.
std::vector<uint8_t> senseAnswer(uint8_t key, uint8_t asc, uint8_t sks0 = 0, uint8_t sks1 = 0, uint8_t sks2 = 0) {
  std::vector<uint8_t> data = fixedSense(key, asc);
  data[15] = sks0;
  data[16] = sks1;
  data[17] = sks2;
  data.resize(252, 0);
  return data;
}

// A log page of 252 bytes with `bytes` at the front.
std::vector<uint8_t> logPage(std::vector<uint8_t> bytes) {
  bytes.resize(252, 0);
  return bytes;
}

// The informational exceptions log page: page length 8 (bytes 2-3), parameter
// 0000, ASC at byte 8.
std::vector<uint8_t> iecLog(uint8_t asc) { return logPage({0x2F, 0x00, 0x00, 0x08, 0x00, 0x00, 0x03, 0x04, asc}); }

// --- Reads and writes ---------------------------------------------------------

TEST_F(ScsiProtocolTest, ReadSectorsBeforeAnyPropertiesGivesBadArgument) {
  std::vector<uint8_t> buffer(512);
  EXPECT_EQ(protocol.readSectors(0, 1, 30, buffer.data()), kStatusBadArgument);
  EXPECT_TRUE(bridge->sent.empty());
}

TEST_F(ScsiProtocolTest, ReadSectorsSendsRead16WithTheDefaultTimeout) {
  learn(999);
  bridge->queue(ScsiAnswer());
  std::vector<uint8_t> buffer(512 * 4);
  EXPECT_EQ(protocol.readSectors(8, 4, 5, buffer.data()), kStatusOk);
  ASSERT_EQ(bridge->sent.size(), 1u);
  EXPECT_EQ(bridge->sent[0].cdb[0], kScsiRead16);
  EXPECT_EQ(bridge->sent[0].cdb[9], 8);
  EXPECT_EQ(bridge->sent[0].cdb[13], 4);
  EXPECT_EQ(bridge->sent[0].timeoutSeconds, kDefaultCommandTimeoutSeconds);
}

TEST_F(ScsiProtocolTest, ReadSectorsRefusedByIllegalRequestAboveTwoTo32SectorsGives79AndTriesNothingElse) {
  learn((uint64_t{1} << 32) + 10);
  bridge->queue(checkCondition(fixedSense(kSenseIllegalRequest, 0x20)));
  std::vector<uint8_t> buffer(512);
  EXPECT_EQ(protocol.readSectors(8, 1, 30, buffer.data()), kStatusUnknownSense);
  EXPECT_EQ(bridge->sent.size(), 1u);
}

TEST_F(ScsiProtocolTest, ReadSectorsFallsBackToTheTwoReadTenForms) {
  learn(999);
  bridge->queue(checkCondition(fixedSense(kSenseIllegalRequest, 0x20)));
  bridge->queue(checkCondition(fixedSense(kSenseIllegalRequest, 0x20)));
  bridge->queue(ScsiAnswer());
  std::vector<uint8_t> buffer(512);
  EXPECT_EQ(protocol.readSectors(8, 1, 30, buffer.data()), kStatusOk);
  ASSERT_EQ(bridge->sent.size(), 3u);
  EXPECT_EQ(bridge->sent[0].cdb[0], kScsiRead16);
  EXPECT_EQ(bridge->sent[1].cdb[0], kScsiRead10);
  EXPECT_EQ(bridge->sent[1].cdbLength, 12);
  EXPECT_EQ(bridge->sent[2].cdb[0], kScsiRead10);
  EXPECT_EQ(bridge->sent[2].cdbLength, 10);
}

TEST_F(ScsiProtocolTest, ReadSectorsAllRefusedGivesTheLastRefusal) {
  learn(999);
  for (int i = 0; i < 3; ++i) bridge->queue(checkCondition(fixedSense(kSenseIllegalRequest, 0x21)));
  std::vector<uint8_t> buffer(512);
  EXPECT_EQ(protocol.readSectors(8, 1, 30, buffer.data()), kStatusScsiRefused);
  EXPECT_EQ(bridge->sent.size(), 3u);
}

TEST_F(ScsiProtocolTest, SenseOfAsc11WithAKeyOutsideTheListStillGives75) {
  learn(999);
  bridge->queue(checkCondition(fixedSense(kSenseRecoveredError, 0x11)));
  std::vector<uint8_t> buffer(512);
  EXPECT_EQ(protocol.readSectors(8, 1, 30, buffer.data()), kStatusMediaError);
  EXPECT_EQ(bridge->sent.size(), 1u);
}

TEST_F(ScsiProtocolTest, MediumHardwareAndMiscompareKeysGive75) {
  learn(999);
  for (uint8_t key : {uint8_t{kSenseMediumError}, uint8_t{kSenseHardwareError}, uint8_t{0x0E}}) {
    bridge->queue(checkCondition(fixedSense(key, 0x00)));
    std::vector<uint8_t> buffer(512);
    EXPECT_EQ(protocol.readSectors(8, 1, 30, buffer.data()), kStatusMediaError) << int(key);
  }
}

TEST_F(ScsiProtocolTest, ParityErrorCountsAsMediaErrorOnlyBelowAscq6) {
  learn(999);
  std::vector<uint8_t> buffer(512);
  std::vector<uint8_t> parity = fixedSense(0x0B /* ABORTED COMMAND */, 0x47, 0x05);
  bridge->queue(checkCondition(parity));
  EXPECT_EQ(protocol.readSectors(8, 1, 30, buffer.data()), kStatusMediaError);
  parity[13] = 0x06;
  bridge->queue(checkCondition(parity));
  EXPECT_EQ(protocol.readSectors(8, 1, 30, buffer.data()), kStatusOk);
}

TEST_F(ScsiProtocolTest, MediumErrorSeenByTheLastReadTenIsReported) {
  learn(999);
  bridge->queue(checkCondition(fixedSense(kSenseIllegalRequest, 0x20)));
  bridge->queue(checkCondition(descriptorSense(kSenseIllegalRequest, {})));
  bridge->queue(checkCondition(fixedSense(kSenseMediumError, 0x11)));
  std::vector<uint8_t> buffer(512);
  EXPECT_EQ(protocol.readSectors(8, 1, 30, buffer.data()), kStatusMediaError);
}

TEST_F(ScsiProtocolTest, WriteSectorFallsBackFromWrite16ToWrite12ToWrite10) {
  learn(999);
  bridge->queue(checkCondition(fixedSense(kSenseIllegalRequest, 0x20)));
  bridge->queue(checkCondition(fixedSense(kSenseIllegalRequest, 0x20)));
  bridge->queue(checkCondition(fixedSense(kSenseDataProtect, 0x27)));
  std::vector<uint8_t> sector(512);
  EXPECT_EQ(protocol.writeSector(9, sector.data()), kStatusScsiRefused);
  ASSERT_EQ(bridge->sent.size(), 3u);
  EXPECT_EQ(bridge->sent[0].cdb[0], kScsiWrite16);
  EXPECT_EQ(bridge->sent[1].cdb[0], kScsiWrite12);
  EXPECT_EQ(bridge->sent[2].cdb[0], kScsiWrite10);
  EXPECT_EQ(bridge->sent[2].dataLength, 512u);
}

TEST_F(ScsiProtocolTest, WriteSectorAboveTwoTo32SectorsStopsAfterWrite16) {
  learn((uint64_t{1} << 32) + 1);
  bridge->queue(checkCondition(fixedSense(kSenseIllegalRequest, 0x20)));
  std::vector<uint8_t> sector(512);
  EXPECT_EQ(protocol.writeSector(9, sector.data()), kStatusUnknownSense);
  EXPECT_EQ(bridge->sent.size(), 1u);
}

TEST_F(ScsiProtocolTest, WriteSectorDoesNotLookAtMediumErrors) {
  learn(999);
  bridge->queue(checkCondition(fixedSense(kSenseMediumError, 0x0C)));
  std::vector<uint8_t> sector(512);
  EXPECT_EQ(protocol.writeSector(9, sector.data()), kStatusOk);
}

TEST_F(ScsiProtocolTest, WriteUncorrectableDoesNothing) {
  EXPECT_EQ(protocol.writeUncorrectable(9), kStatusOk);
  EXPECT_TRUE(bridge->sent.empty());
}

// --- Temperature and self tests ------------------------------------------------

TEST_F(ScsiProtocolTest, TemperatureIsByte9OfTheTemperaturePage) {
  bridge->queue(withData(logPage({0x0D, 0, 0, 0x0C, 0, 0, 3, 2, 0, 38})));
  uint8_t celsius = 0;
  EXPECT_EQ(protocol.getTemperature(&celsius), kStatusOk);
  EXPECT_EQ(celsius, 38);
  EXPECT_EQ(bridge->sent[0].cdb[2], 0x4D);
  EXPECT_EQ(bridge->sent[0].dataLength, 252u);
}

TEST_F(ScsiProtocolTest, TemperatureOf255GivesNotAvailableWithTheValueAlreadyWritten) {
  bridge->queue(withData(logPage({0x0D, 0, 0, 0x0C, 0, 0, 3, 2, 0, 255})));
  uint8_t celsius = 0;
  EXPECT_EQ(protocol.getTemperature(&celsius), kStatusNotAvailable);
  EXPECT_EQ(celsius, 255);
}

TEST_F(ScsiProtocolTest, TemperaturePageWithoutDataIsNotAvailable) {
  bridge->queue(withData({}));
  uint8_t celsius = 7;
  EXPECT_EQ(protocol.getTemperature(&celsius), kStatusNotAvailable);
  EXPECT_EQ(celsius, 7);
}

TEST_F(ScsiProtocolTest, StartSelfTestKeepsTheScsiStatusOfAnAcceptedStart) {
  EXPECT_EQ(protocol.getLastSelfTestScsiStatus(), 0);
  bridge->queue(checkCondition(fixedSense(kSenseUnitAttention, 0x29)));
  EXPECT_EQ(protocol.startSelfTest(1, 9), kStatusOk);
  EXPECT_EQ(protocol.getLastSelfTestScsiStatus(), kScsiStatusCheckCondition);
  EXPECT_EQ(bridge->sent[0].cdb[0], kScsiSendDiagnostic);
  EXPECT_EQ(bridge->sent[0].cdb[1], 0x20);
}

TEST_F(ScsiProtocolTest, RefusedSelfTestLeavesTheLastStatusAlone) {
  bridge->queue(ScsiAnswer());
  EXPECT_EQ(protocol.startSelfTest(2, 0), kStatusOk);
  bridge->queue(checkCondition(fixedSense(kSenseIllegalRequest, 0x24)));
  EXPECT_EQ(protocol.startSelfTest(1, 0), kStatusScsiRefused);
  EXPECT_EQ(protocol.getLastSelfTestScsiStatus(), kScsiStatusGood);
}

TEST_F(ScsiProtocolTest, SelfTestProgressOf8000Gives50) {
  bridge->queue(withData(senseAnswer(kSenseNotReady, 0x04, 0x80, 0x80, 0x00)));
  uint8_t percent = 0;
  EXPECT_EQ(protocol.getSelfTestProgress(&percent), kStatusOk);
  EXPECT_EQ(percent, 50);
  EXPECT_EQ(bridge->sent[0].cdb[0], kScsiRequestSense);
  EXPECT_EQ(bridge->sent[0].cdb[4], 252);
}

TEST_F(ScsiProtocolTest, SelfTestProgressIsRoundedDown) {
  bridge->queue(withData(senseAnswer(kSenseNoSense, 0x00, 0x80, 0xFF, 0xFF)));
  uint8_t percent = 0;
  EXPECT_EQ(protocol.getSelfTestProgress(&percent), kStatusOk);
  EXPECT_EQ(percent, 99);
}

TEST_F(ScsiProtocolTest, SelfTestProgressWantsKeyNoSenseOrNotReadyAndTheSpecificBytes) {
  uint8_t percent = 7;
  bridge->queue(withData(senseAnswer(kSenseMediumError, 0x00, 0x80, 0x80, 0x00)));
  EXPECT_EQ(protocol.getSelfTestProgress(&percent), kStatusNotAvailable);
  std::vector<uint8_t> noSpecific = descriptorSense(kSenseNotReady, {});
  noSpecific.resize(252, 0);
  bridge->queue(withData(noSpecific));
  EXPECT_EQ(protocol.getSelfTestProgress(&percent), kStatusNotAvailable);
  bridge->queue(checkCondition(fixedSense(kSenseIllegalRequest, 0x20)));
  EXPECT_EQ(protocol.getSelfTestProgress(&percent), kStatusNotAvailable);
  EXPECT_EQ(percent, 7);
}

TEST_F(ScsiProtocolTest, SelfTestStatusIsTheResultNibbleOfTheNewestEntry) {
  bridge->queue(withData(logPage({0x10, 0, 0x01, 0x90, 0x00, 0x01, 0x03, 0x10, 0x27})));
  uint8_t status = 0;
  EXPECT_EQ(protocol.getSelfTestStatus(&status), kStatusOk);
  EXPECT_EQ(status, 7);
  EXPECT_EQ(bridge->sent[0].cdb[2], 0x50);
}

TEST_F(ScsiProtocolTest, AbortSelfTestSendsCodeFourAndWantsGood) {
  bridge->queue(ScsiAnswer());
  EXPECT_EQ(protocol.abortSelfTest(), kStatusOk);
  EXPECT_EQ(bridge->sent[0].cdb[1], 0x80);
  bridge->queue(checkCondition(fixedSense(kSenseUnitAttention, 0x29)));
  EXPECT_EQ(protocol.abortSelfTest(), kStatusNotAvailable);
}

TEST_F(ScsiProtocolTest, FailingLbaTakesByte12AsTheLowestByte) {
  std::vector<uint8_t> page(252, 0);
  const uint8_t field[8] = {0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x12, 0x34};
  std::copy(field, field + 8, page.begin() + 12);
  bridge->queue(withData(page));
  uint64_t lba = 0;
  EXPECT_EQ(protocol.getSelfTestFailingLba(&lba), kStatusOk);
  EXPECT_EQ(lba, 0x3412000000000000ull);
}

TEST_F(ScsiProtocolTest, FailingLbaOfAllOnesIsNotAvailable) {
  std::vector<uint8_t> page(252, 0);
  std::fill(page.begin() + 12, page.begin() + 20, 0xFF);
  bridge->queue(withData(page));
  uint64_t lba = 0;
  EXPECT_EQ(protocol.getSelfTestFailingLba(&lba), kStatusNotAvailable);
}

// --- SMART status ------------------------------------------------------------

TEST_F(ScsiProtocolTest, HealthyLogPageIsConfirmedByRequestSense) {
  bridge->queue(withData(iecLog(0x00)));
  bridge->queue(withData(senseAnswer(kSenseNoSense, 0x00)));
  uint8_t healthy = 7;
  EXPECT_EQ(protocol.getSmartStatus(&healthy), kStatusOk);
  EXPECT_EQ(healthy, 1);
  ASSERT_EQ(bridge->sent.size(), 2u);
  EXPECT_EQ(bridge->sent[0].cdb[2], 0x6F);
  EXPECT_EQ(bridge->sent[1].cdb[0], kScsiRequestSense);
}

TEST_F(ScsiProtocolTest, LogPageAsc5DIsThresholdExceededWithoutAskingRequestSense) {
  bridge->queue(withData(iecLog(0x5D)));
  uint8_t healthy = 7;
  EXPECT_EQ(protocol.getSmartStatus(&healthy), kStatusOk);
  EXPECT_EQ(healthy, 0);
  EXPECT_EQ(bridge->sent.size(), 1u);
}

TEST_F(ScsiProtocolTest, RequestSenseAscD5IsThresholdExceededBut5DIsNot) {
  bridge->queue(withData({}));  // the log page brings nothing
  bridge->queue(withData(senseAnswer(kSenseNoSense, 0xD5)));
  uint8_t healthy = 7;
  EXPECT_EQ(protocol.getSmartStatus(&healthy), kStatusOk);
  EXPECT_EQ(healthy, 0);
  bridge->queue(withData({}));
  bridge->queue(withData(senseAnswer(kSenseNoSense, 0x5D)));
  EXPECT_EQ(protocol.getSmartStatus(&healthy), kStatusOk);
  EXPECT_EQ(healthy, 1);
}

TEST_F(ScsiProtocolTest, LogPageLengthIsReadWithByte2AsTheLowByte) {
  // Page length 0x0003 big-endian reads as 0x0300: long enough.
  bridge->queue(withData(logPage({0x2F, 0, 0x00, 0x03, 0x00, 0x00, 0x03, 0x04, 0x5D})));
  uint8_t healthy = 7;
  EXPECT_EQ(protocol.getSmartStatus(&healthy), kStatusOk);
  EXPECT_EQ(healthy, 0);
}

TEST_F(ScsiProtocolTest, LongLogPageIsAskedForAgainWithItsWholeLength) {
  std::vector<uint8_t> page = iecLog(0x5D);
  page[2] = 0x01;  // page length 0x0108: 268 bytes with the header
  page.resize(268, 0);
  bridge->queue(withData(page));
  bridge->queue(withData(page));
  uint8_t healthy = 7;
  EXPECT_EQ(protocol.getSmartStatus(&healthy), kStatusOk);
  EXPECT_EQ(healthy, 0);
  ASSERT_EQ(bridge->sent.size(), 2u);
  EXPECT_EQ(bridge->sent[1].dataLength, 268u);
}

TEST_F(ScsiProtocolTest, ALongLogPageWhoseSecondReadIsNotGoodGivesNoVerdictAndTheSenseRouteDecides) {
  std::vector<uint8_t> page = iecLog(0x5D);
  page[2] = 0x01;  // page length 0x0108: 268 bytes with the header
  page.resize(268, 0);
  bridge->queue(withData(page));
  ScsiAnswer refused = withData(page);
  refused.scsiStatus = 0x02;  // CHECK CONDITION on the second read
  bridge->queue(refused);
  bridge->queue(withData(senseAnswer(kSenseNoSense, 0x00)));
  uint8_t healthy = 7;
  // The 0x5D of the first, short read is not taken: the log route failed, and
  // the healthy answer of REQUEST SENSE stands.
  EXPECT_EQ(protocol.getSmartStatus(&healthy), kStatusOk);
  EXPECT_EQ(healthy, 1);
  ASSERT_EQ(bridge->sent.size(), 3u);
  EXPECT_EQ(bridge->sent[1].dataLength, 268u);
  EXPECT_EQ(bridge->sent[2].cdb[0], kScsiRequestSense);
}

TEST_F(ScsiProtocolTest, ShortRequestSenseAfterAnUnusableLogPageFallsBackToThePlatform) {
  bridge->queue(withData({}));
  std::vector<uint8_t> shortSense = fixedSense(kSenseNoSense, 0x00);  // 18 bytes, not 252
  bridge->queue(withData(shortSense));
  uint8_t healthy = 7;
  // No disk behind the handle: the platform's query fails.
  EXPECT_EQ(protocol.getSmartStatus(&healthy), kStatusIoctlFailed);
}

TEST(NvmeScsiProtocolHealth, RequestSenseComesFirstAndTheLogPageOnlyOnItsFailure) {
  sim::uninstallMachine();
  NvmeScsiProtocol protocol;
  auto bridge = std::make_shared<ScriptedScsiBridge>();
  protocol.addTransport(bridge);
  bridge->queue(withData(senseAnswer(kSenseNoSense, 0xD5)));
  uint8_t healthy = 7;
  EXPECT_EQ(protocol.getSmartStatus(&healthy), kStatusOk);
  EXPECT_EQ(healthy, 0);
  EXPECT_EQ(bridge->sent.size(), 1u);

  bridge->queue(withData(fixedSense(kSenseNoSense, 0x00)));  // too short
  bridge->queue(withData(iecLog(0x5D)));
  EXPECT_EQ(protocol.getSmartStatus(&healthy), kStatusOk);
  EXPECT_EQ(healthy, 0);

  bridge->queue(withData({}));
  bridge->queue(withData({}));
  // Both routes fail, and there is no platform fall-back.
  EXPECT_EQ(protocol.getSmartStatus(&healthy), kStatusNotAvailable);
  EXPECT_EQ(bridge->sent.size(), 5u);
}

// --- enableSmart -------------------------------------------------------------

// A transport that keeps the data of every MODE SELECT it carries.
class RecordingModeSelect : public ScriptedScsiBridge {
 public:
  uint32_t send(ScsiCmd& cmd) override {
    if (cmd.cdb[0] == kScsiModeSelect6 || cmd.cdb[0] == kScsiModeSelect10) {
      const uint8_t* bytes = static_cast<const uint8_t*>(cmd.buffer);
      selected.emplace_back(bytes, bytes + cmd.dataLength);
    }
    return ScriptedScsiBridge::send(cmd);
  }
  std::vector<std::vector<uint8_t>> selected;
};

TEST(ScsiProtocolEnableSmart, EnableOneSetsMrieSixAndClearsDexcptThenEnableZeroRestores) {
  ScsiProtocol protocol;
  auto bridge = std::make_shared<RecordingModeSelect>();
  protocol.addTransport(bridge);
  bridge->queue(withData(modeSense6(0x88, 0x01)));
  bridge->queue(ScsiAnswer());
  ASSERT_EQ(protocol.enableSmart(1), kStatusOk);
  bridge->queue(withData(modeSense6(0x80, 0x07)));
  bridge->queue(ScsiAnswer());
  ASSERT_EQ(protocol.enableSmart(0), kStatusOk);
  ASSERT_EQ(bridge->selected.size(), 2u);
  EXPECT_EQ(bridge->selected[0][6], 0x80);  // DEXCPT cleared
  EXPECT_EQ(bridge->selected[0][7], 0x07);  // 1 | 6
  EXPECT_EQ(bridge->selected[1][6], 0x88);  // as they stood before the first change
  EXPECT_EQ(bridge->selected[1][7], 0x01);
}

TEST(ScsiProtocolEnableSmart, EnableZeroBeforeAnyEnableOneSavesTheCurrentBytesAndWritesThemBack) {
  ScsiProtocol protocol;
  auto bridge = std::make_shared<RecordingModeSelect>();
  protocol.addTransport(bridge);
  bridge->queue(withData(modeSense6(0x08, 0x03)));
  bridge->queue(ScsiAnswer());
  ASSERT_EQ(protocol.enableSmart(0), kStatusOk);
  ASSERT_EQ(bridge->selected.size(), 1u);
  EXPECT_EQ(bridge->selected[0], modeSense6(0x08, 0x03));
}

TEST(ScsiProtocolEnableSmart, FallsBackToTheTenByteFormsWhenTheSixByteOnesFail) {
  ScsiProtocol protocol;
  auto bridge = std::make_shared<RecordingModeSelect>();
  protocol.addTransport(bridge);
  bridge->queue(withData(modeSense6(0x08, 0x00)));
  bridge->queue(checkCondition(fixedSense(kSenseIllegalRequest, 0x20)));  // MODE SELECT(6) refused
  bridge->queue(withData(modeSense10(0x08, 0x00)));
  bridge->queue(ScsiAnswer());
  ASSERT_EQ(protocol.enableSmart(1), kStatusOk);
  ASSERT_EQ(bridge->selected.size(), 2u);
  EXPECT_EQ(bridge->selected[1].size(), 20u);
  EXPECT_EQ(bridge->selected[1][10], 0x00);
  EXPECT_EQ(bridge->selected[1][11], 0x06);
  EXPECT_EQ(bridge->sent.back().cdb[0], kScsiModeSelect10);
}

TEST(ScsiProtocolEnableSmart, BothFormsFailingGivesTheTenByteStatus) {
  ScsiProtocol protocol;
  auto bridge = std::make_shared<RecordingModeSelect>();
  protocol.addTransport(bridge);
  bridge->queue(withData({}));
  bridge->queue(withData({}));
  EXPECT_EQ(protocol.enableSmart(1), kStatusInvalidData);
  EXPECT_TRUE(bridge->selected.empty());
}

}  // namespace
