// The SCSI protocol's own logic on the scripted SCSI transport: the transport
// loop and the sense check, the routes of getProperties, and the version
// descriptors. Sector I/O, self tests and SMART are in
// scsi_protocol_health_test.cpp.
#include "protocols/scsi_protocol.h"

#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <vector>

#include "commands/scsi/scsi_commands.h"
#include "protocols/scsi_protocol_test_support.h"
#include "protocols/scsi_version_descriptors.h"

namespace {

using mstest::fixedSense;
using mstest::ScriptedScsiBridge;
using mstest::ScsiAnswer;
using namespace scsitest;

// --- The transport loop and the sense check ---------------------------------

TEST(ScsiProtocolTransports, SendCommandWithoutAnyTransportGives78) {
  ScsiProtocol protocol;
  std::vector<uint8_t> data(64);
  Inquiry inquiry(data.data(), 64, false, 0);
  EXPECT_EQ(protocol.sendCommand(inquiry), kStatusScsiRefused);
  EXPECT_EQ(protocol.getHandle(), nullptr);
}

TEST(ScsiProtocolTransports, TheTransportThatWorkedMovesToTheFront) {
  ScsiProtocol protocol;
  auto failing = std::make_shared<ScriptedScsiBridge>(reinterpret_cast<void*>(0x1));
  auto working = std::make_shared<ScriptedScsiBridge>(reinterpret_cast<void*>(0x2));
  EXPECT_TRUE(protocol.addTransport(failing));
  EXPECT_TRUE(protocol.addTransport(working));
  EXPECT_FALSE(protocol.addTransport(working));
  working->queue(ScsiAnswer());
  working->queue(ScsiAnswer());
  std::vector<uint8_t> data(64);
  Inquiry first(data.data(), 64, false, 0);
  EXPECT_EQ(protocol.sendCommand(first), kStatusOk);
  EXPECT_EQ(protocol.getHandle(), reinterpret_cast<void*>(0x2));
  Inquiry second(data.data(), 64, false, 0);
  EXPECT_EQ(protocol.sendCommand(second), kStatusOk);
  EXPECT_EQ(failing->sent.size(), 1u);
  EXPECT_EQ(working->sent.size(), 2u);
}

TEST(ScsiProtocolTransports, AllFailingGivesTheLastFailure) {
  ScsiProtocol protocol;
  auto first = std::make_shared<ScriptedScsiBridge>();
  auto last = std::make_shared<ScriptedScsiBridge>();
  ScsiAnswer cannot;
  cannot.status = kStatusBridgeCannotCarry;
  first->queue(cannot);
  protocol.addTransport(first);
  protocol.addTransport(last);  // empty queue: 34
  std::vector<uint8_t> data(64);
  Inquiry inquiry(data.data(), 64, false, 0);
  EXPECT_EQ(protocol.sendCommand(inquiry), kStatusIoctlFailed);
}

TEST(ScsiProtocolTransports, SendCheckedRefusesIllegalRequestAndDataProtectOnly) {
  struct Case {
    std::vector<uint8_t> sense;
    uint32_t expected;
  };
  const std::vector<Case> cases = {
      {fixedSense(kSenseIllegalRequest, 0x20), kStatusScsiRefused},
      {fixedSense(kSenseDataProtect, 0x27), kStatusScsiRefused},
      {fixedSense(kSenseMediumError, 0x11), kStatusOk},
      {fixedSense(kSenseUnitAttention, 0x29), kStatusOk},
      {std::vector<uint8_t>(18, 0), kStatusUnknownSense},  // response code 0
      {{}, kStatusOk},
  };
  for (const Case& c : cases) {
    ScsiProtocol protocol;
    auto bridge = std::make_shared<ScriptedScsiBridge>();
    protocol.addTransport(bridge);
    ScsiAnswer answer;
    answer.scsiStatus = c.sense.empty() ? kScsiStatusGood : kScsiStatusCheckCondition;
    answer.sense = c.sense;
    bridge->queue(answer);
    std::vector<uint8_t> data(64);
    Inquiry inquiry(data.data(), 64, false, 0);
    EXPECT_EQ(protocol.sendChecked(inquiry), c.expected);
  }
}

TEST(ScsiProtocolResponding, AnInquiryAnswerOfFiveBytesIsResponding) {
  ScriptedScsiBridge bridge;
  bridge.queue(withData(standardInquiry("SEAGATE", "ST4000NM0025", "E001", 6)));
  EXPECT_TRUE(ScsiProtocol::isScsiResponding(bridge));
  ASSERT_EQ(bridge.sent.size(), 1u);
  EXPECT_EQ(bridge.sent[0].cdb[0], kScsiInquiry);
  EXPECT_EQ(bridge.sent[0].dataLength, 64u);
}

TEST(ScsiProtocolResponding, IllegalRequestWithoutDataIsNotResponding) {
  ScriptedScsiBridge bridge;
  ScsiAnswer refused;
  refused.scsiStatus = kScsiStatusCheckCondition;
  refused.sense = fixedSense(kSenseIllegalRequest, 0x20);
  bridge.queue(refused);
  EXPECT_FALSE(ScsiProtocol::isScsiResponding(bridge));
}

TEST(ScsiProtocolResponding, SenseOfAnotherKeyWithoutDataIsResponding) {
  ScriptedScsiBridge bridge;
  ScsiAnswer attention;
  attention.scsiStatus = kScsiStatusCheckCondition;
  attention.sense = fixedSense(kSenseUnitAttention, 0x29);
  bridge.queue(attention);
  EXPECT_TRUE(ScsiProtocol::isScsiResponding(bridge));
}

TEST(ScsiProtocolResponding, AFailedSendIsNotLookedAtSoTheRequestedLengthCounts) {
  ScriptedScsiBridge bridge;  // nothing queued: the send fails with 34
  EXPECT_TRUE(ScsiProtocol::isScsiResponding(bridge));
}

// --- getProperties ------------------------------------------------------------

TEST_F(ScsiProtocolTest, GetPropertiesReadsInquirySerialCapacityCharacteristicsAndSmart) {
  queueDisk(bridge, 7814037167, 512, 0x30, 7200, 0x00, 0x06);
  StorageProtocolProperties out;
  ASSERT_EQ(protocol.getProperties(&out), kStatusOk);
  EXPECT_EQ(out.vendor, "SEAGATE ");
  EXPECT_EQ(out.model, "ST4000NM0025    ");
  EXPECT_EQ(out.firmwareRevision, "E001");
  EXPECT_EQ(out.standardVersion, "SCSI Primary Commands 4 - SPC-4");
  EXPECT_EQ(out.serialNumber, "ZC1A2B3C");
  EXPECT_EQ(out.sectorCount, 7814037167u);
  EXPECT_EQ(out.logicalSectorSize, 512u);
  EXPECT_EQ(out.physicalSectorSize, 4096u);  // high nibble 3 of byte 13
  EXPECT_EQ(out.rotationRate, 7200);
  EXPECT_FALSE(out.isSolidState);
  EXPECT_TRUE(out.smartSupported);
  EXPECT_TRUE(out.smartEnabled);
  EXPECT_FALSE(out.removable);
  EXPECT_FALSE(out.securitySupported);
  EXPECT_FALSE(out.securityLocked);
  ASSERT_EQ(bridge->sent.size(), 5u);
  EXPECT_EQ(bridge->sent[0].cdb[1], 0);
  EXPECT_EQ(bridge->sent[1].cdb[2], 0x80);
  EXPECT_EQ(bridge->sent[2].cdb[0], kScsiServiceActionIn16);
  EXPECT_EQ(bridge->sent[3].cdb[2], 0xB1);
  EXPECT_EQ(bridge->sent[4].cdb[0], kScsiModeSense6);
}

TEST_F(ScsiProtocolTest, GetPropertiesWithNullOutGivesNotAvailable) {
  EXPECT_EQ(protocol.getProperties(nullptr), kStatusNotAvailable);
  EXPECT_TRUE(bridge->sent.empty());
}

TEST_F(ScsiProtocolTest, ShortStandardInquiryGives88AndStillCopiesTheCache) {
  std::vector<uint8_t> shortAnswer = standardInquiry("SEAGATE", "X", "1", 6);
  shortAnswer.resize(35);
  bridge->queue(withData(shortAnswer));
  StorageProtocolProperties out;
  out.securitySupported = true;
  EXPECT_EQ(protocol.getProperties(&out), kStatusAtaError);
  EXPECT_FALSE(out.securitySupported);
  EXPECT_EQ(bridge->sent.size(), 1u);
}

TEST_F(ScsiProtocolTest, RemovableOnlyWhenByte1IsExactlyOne) {
  std::vector<uint8_t> rmb = standardInquiry("USB", "Stick", "1.00", 4);
  rmb[1] = 0x80;  // the RMB bit alone is not what is compared
  bridge->queue(withData(rmb));
  StorageProtocolProperties out;
  protocol.getProperties(&out);
  EXPECT_FALSE(out.removable);
  std::vector<uint8_t> one = standardInquiry("USB", "Stick", "1.00", 4);
  one[1] = 0x01;
  bridge->queue(withData(one));
  protocol.getProperties(&out);
  EXPECT_TRUE(out.removable);
  EXPECT_EQ(out.standardVersion, "SCSI Primary Commands 2 - SPC-2");
}

TEST_F(ScsiProtocolTest, InquiryFieldsAreCutAtTheirFirstNulAndNotTrimmed) {
  std::vector<uint8_t> answer = standardInquiry("AB", "  Disk", "7", 2);
  answer[10] = 0;  // vendor "AB" then NUL
  bridge->queue(withData(answer));
  StorageProtocolProperties out;
  protocol.getProperties(&out);
  EXPECT_EQ(out.vendor, "AB");
  EXPECT_EQ(out.model, "  Disk          ");
  EXPECT_EQ(out.firmwareRevision, "7   ");
  EXPECT_EQ(out.standardVersion, "");
}

TEST_F(ScsiProtocolTest, OnlyTheVersionDescriptorsInsideThe64ByteAnswerAreLookedUp) {
  // Eight descriptors in a 74-byte answer: SAM-5, SPC-4, an unknown value,
  // then SBC-3 and SAS-2 beyond the 64 bytes asked for.
  std::vector<uint8_t> answer =
      standardInquiry("SEAGATE", "ST", "E001", 6, {0x00A0, 0x0460, 0x1234, 0x04C0, 0x0C20, 0, 0, 0});
  bridge->queue(withData(answer));
  StorageProtocolProperties out;
  protocol.getProperties(&out);
  EXPECT_EQ(out.supportedStandards, (std::vector<std::string>{"SAM-5", "SPC-4"}));
  bridge->queue(withData(answer));
  protocol.getProperties(&out);
  EXPECT_EQ(out.supportedStandards, (std::vector<std::string>{"SAM-5", "SPC-4", "SAM-5", "SPC-4"}));
}

TEST_F(ScsiProtocolTest, ShortInquiryAnswerHasNoVersionDescriptors) {
  std::vector<uint8_t> answer = standardInquiry("SEAGATE", "ST", "E001", 6, {0x00A0, 0x0460});
  answer.resize(57);
  bridge->queue(withData(answer));
  StorageProtocolProperties out;
  protocol.getProperties(&out);
  EXPECT_TRUE(out.supportedStandards.empty());
}

TEST_F(ScsiProtocolTest, SerialLongerThanTheFirstAnswerIsAskedForAgainWithItsLength) {
  bridge->queue(withData(standardInquiry("SEAGATE", "ST", "E001", 6)));
  const std::string serial(70, 'S');
  std::vector<uint8_t> page = serialPage(serial);
  bridge->queue(withData(page));  // cut to 64 bytes by the first request
  bridge->queue(withData(page));
  StorageProtocolProperties out;
  protocol.getProperties(&out);
  EXPECT_EQ(out.serialNumber, serial);
  ASSERT_GE(bridge->sent.size(), 3u);
  EXPECT_EQ(bridge->sent[2].dataLength, 74u);
  EXPECT_EQ(bridge->sent[2].cdb[4], 74);
}

TEST_F(ScsiProtocolTest, FailedSecondSerialRequestGivesNotAvailable) {
  bridge->queue(withData(standardInquiry("SEAGATE", "ST", "E001", 6)));
  bridge->queue(withData(serialPage(std::string(70, 'S'))));
  ScsiAnswer refused;
  refused.scsiStatus = kScsiStatusCheckCondition;
  refused.sense = fixedSense(kSenseIllegalRequest, 0x24);
  bridge->queue(refused);
  StorageProtocolProperties out;
  EXPECT_EQ(protocol.getProperties(&out), kStatusNotAvailable);
  EXPECT_EQ(bridge->sent.size(), 3u);
}

TEST_F(ScsiProtocolTest, ReadCapacity10OnA1000SectorDiskGives999) {
  bridge->queue(withData(standardInquiry("SEAGATE", "ST", "E001", 6)));
  bridge->queue(withData(serialPage("Z1")));
  ScsiAnswer refused;
  refused.scsiStatus = kScsiStatusCheckCondition;
  refused.sense = fixedSense(kSenseIllegalRequest, 0x20);
  bridge->queue(refused);  // READ CAPACITY(16) not supported
  bridge->queue(withData(capacity10(999, 512)));
  StorageProtocolProperties out;
  protocol.getProperties(&out);
  EXPECT_EQ(out.sectorCount, 999u);
  EXPECT_EQ(out.logicalSectorSize, 512u);
  EXPECT_EQ(out.physicalSectorSize, 0u);
  EXPECT_EQ(bridge->sent[3].cdb[0], kScsiReadCapacity10);
}

TEST_F(ScsiProtocolTest, ReadCapacity10OfAllOnesIsNotAvailable) {
  bridge->queue(withData(standardInquiry("SEAGATE", "ST", "E001", 6)));
  bridge->queue(withData(serialPage("Z1")));
  ScsiAnswer notGood;
  notGood.scsiStatus = 0x08;  // BUSY, with no sense
  bridge->queue(notGood);
  bridge->queue(withData(capacity10(0xFFFFFFFF, 512)));
  StorageProtocolProperties out;
  EXPECT_EQ(protocol.getProperties(&out), kStatusNotAvailable);
  EXPECT_EQ(bridge->sent.size(), 4u);
}

TEST_F(ScsiProtocolTest, BlockLengthBeyond64KiBIsNoSectorSizeAndTheCapacityIsNotAvailable) {
  bridge->queue(withData(standardInquiry("SEAGATE", "ST", "E001", 6)));
  bridge->queue(withData(serialPage("Z1")));
  bridge->queue(withData(capacity16(1000, 0x01000000, 0)));
  bridge->queue(withData(capacity10(999, 0x00010001)));
  StorageProtocolProperties out;
  EXPECT_EQ(protocol.getProperties(&out), kStatusNotAvailable);
  EXPECT_EQ(bridge->sent.size(), 4u);
}

TEST_F(ScsiProtocolTest, BlockLengthOf64KiBIsStillASectorSize) {
  queueDisk(bridge, 1000, 0x10000, 0, 1, 0, 6);
  StorageProtocolProperties out;
  ASSERT_EQ(protocol.getProperties(&out), kStatusOk);
  EXPECT_EQ(out.logicalSectorSize, 0x10000u);
}

TEST_F(ScsiProtocolTest, ReadCapacity16NotGoodWithoutSenseGives33BeforeTheFallBack) {
  bridge->queue(withData(standardInquiry("SEAGATE", "ST", "E001", 6)));
  bridge->queue(withData(serialPage("Z1")));
  ScsiAnswer notGood;
  notGood.scsiStatus = 0x08;
  bridge->queue(notGood);
  bridge->queue(notGood);
  StorageProtocolProperties out;
  EXPECT_EQ(protocol.getProperties(&out), kStatusScsiNotGood);
}

TEST_F(ScsiProtocolTest, RotationRateOneIsSolidStateAndAFailedPageZeroesTheRate) {
  queueDisk(bridge, 1000, 512, 0, 1, 0, 6);
  StorageProtocolProperties out;
  ASSERT_EQ(protocol.getProperties(&out), kStatusOk);
  EXPECT_TRUE(out.isSolidState);
  EXPECT_EQ(out.rotationRate, 0);

  queueDisk(bridge, 1000, 512, 0, 10000, 0, 6);
  ASSERT_EQ(protocol.getProperties(&out), kStatusOk);
  EXPECT_EQ(out.rotationRate, 10000);

  // Characteristics page refused: the rate is cleared, the call succeeds.
  bridge->queue(withData(standardInquiry("SEAGATE", "ST", "E001", 6)));
  bridge->queue(withData(serialPage("Z1")));
  bridge->queue(withData(capacity16(1000, 512, 0)));
  ScsiAnswer refused;
  refused.scsiStatus = kScsiStatusCheckCondition;
  refused.sense = fixedSense(kSenseIllegalRequest, 0x24);
  bridge->queue(refused);
  bridge->queue(withData(modeSense6(0, 6)));
  EXPECT_EQ(protocol.getProperties(&out), kStatusOk);
  EXPECT_EQ(out.rotationRate, 0);
}

TEST_F(ScsiProtocolTest, CharacteristicsPageWithAnotherPageCodeChangesNothing) {
  queueDisk(bridge, 1000, 512, 0, 5400, 0, 6);
  StorageProtocolProperties out;
  ASSERT_EQ(protocol.getProperties(&out), kStatusOk);
  bridge->queue(withData(standardInquiry("SEAGATE", "ST", "E001", 6)));
  bridge->queue(withData(serialPage("Z1")));
  bridge->queue(withData(capacity16(1000, 512, 0)));
  std::vector<uint8_t> wrong = characteristicsPage(1);
  wrong[1] = 0xB0;
  bridge->queue(withData(wrong));
  bridge->queue(withData(modeSense6(0, 6)));
  EXPECT_EQ(protocol.getProperties(&out), kStatusOk);
  EXPECT_FALSE(out.isSolidState);
  EXPECT_EQ(out.rotationRate, 0);
}

TEST_F(ScsiProtocolTest, DiskOnUsbNeverHasSmartAndIsNotAskedForTheModePage) {
  protocol.setBusKind(kBusUsb);
  queueDisk(bridge, 1000, 512, 0, 5400, 0, 6);
  StorageProtocolProperties out;
  ASSERT_EQ(protocol.getProperties(&out), kStatusOk);
  EXPECT_FALSE(out.smartSupported);
  EXPECT_EQ(bridge->sent.size(), 4u);
}

TEST_F(ScsiProtocolTest, SixByteModePageTestsDexcptAloneAndTheTenByteOneEveryFlag) {
  // Six-byte answer: another flag (PERF) set, DEXCPT clear, MRIE 2: enabled.
  queueDisk(bridge, 1000, 512, 0, 5400, 0x80, 2);
  StorageProtocolProperties out;
  ASSERT_EQ(protocol.getProperties(&out), kStatusOk);
  EXPECT_TRUE(out.smartSupported);
  EXPECT_TRUE(out.smartEnabled);

  // Six-byte form refused, ten-byte form with the same bytes: not enabled.
  ScsiProtocol second;
  auto device = std::make_shared<ScriptedScsiBridge>();
  second.addTransport(device);
  device->queue(withData(standardInquiry("SEAGATE", "ST", "E001", 6)));
  device->queue(withData(serialPage("Z1")));
  device->queue(withData(capacity16(1000, 512, 0)));
  device->queue(withData(characteristicsPage(5400)));
  device->queue(withData({}));  // MODE SENSE(6): no data, 35
  device->queue(withData(modeSense10(0x80, 2)));
  ASSERT_EQ(second.getProperties(&out), kStatusOk);
  EXPECT_TRUE(out.smartSupported);
  EXPECT_FALSE(out.smartEnabled);
  EXPECT_EQ(device->sent.back().cdbLength, 10);
}

TEST_F(ScsiProtocolTest, ModePageWithMrieAbove6OrDexcptMeansSmartOff) {
  queueDisk(bridge, 1000, 512, 0, 5400, 0x08, 6);
  StorageProtocolProperties out;
  ASSERT_EQ(protocol.getProperties(&out), kStatusOk);
  EXPECT_FALSE(out.smartEnabled);
  queueDisk(bridge, 1000, 512, 0, 5400, 0x00, 3);
  ASSERT_EQ(protocol.getProperties(&out), kStatusOk);
  EXPECT_FALSE(out.smartEnabled);
}

TEST_F(ScsiProtocolTest, IsAccessibleAsksTheDeviceEachTime) {
  queueDisk(bridge, 1000, 512, 0, 5400, 0, 6);
  EXPECT_TRUE(protocol.isAccessible());
  EXPECT_FALSE(protocol.isAccessible());  // nothing queued: the device is gone
}

// --- NVMe behind the SCSI translation ----------------------------------------

TEST(NvmeScsiProtocol, GetPropertiesOutKeepsWhatScsiFoundWhileTheCacheShowsSmart) {
  NvmeScsiProtocol protocol;
  auto bridge = std::make_shared<ScriptedScsiBridge>();
  protocol.addTransport(bridge);
  bridge->queue(withData(standardInquiry("NVMe", "Samsung SSD 970", "2B2Q", 6)));
  bridge->queue(withData(serialPage("0025_3858_1B40_C0DE.")));
  bridge->queue(withData(capacity16(1953525167, 512, 0)));
  bridge->queue(withData(characteristicsPage(1)));
  bridge->queue(withData({}));  // no informational exceptions page in either form
  bridge->queue(withData({}));
  StorageProtocolProperties out;
  ASSERT_EQ(protocol.getProperties(&out), kStatusOk);
  EXPECT_FALSE(out.smartSupported);
  StorageProtocolProperties cached;
  ASSERT_EQ(protocol.getCachedProperties(&cached), kStatusOk);
  EXPECT_TRUE(cached.smartSupported);
  EXPECT_FALSE(cached.selfTestSupported);
  EXPECT_FALSE(cached.offlineImmediateSupported);
  EXPECT_TRUE(cached.isSolidState);
}

TEST(NvmeScsiProtocol, EnableSmartAndWriteUncorrectableDoNothing) {
  NvmeScsiProtocol protocol;
  auto bridge = std::make_shared<ScriptedScsiBridge>();
  protocol.addTransport(bridge);
  EXPECT_EQ(protocol.enableSmart(1), kStatusOk);
  EXPECT_EQ(protocol.enableSmart(0), kStatusOk);
  EXPECT_EQ(protocol.writeUncorrectable(5), kStatusOk);
  EXPECT_TRUE(bridge->sent.empty());
}

// --- The version descriptor table ---------------------------------------------

TEST(ScsiVersionDescriptors, TableHas212NamesAndTwoValuesShareOne) {
  EXPECT_EQ(versionDescriptorCount(), 212u);
  std::string first;
  std::string second;
  ASSERT_TRUE(findVersionDescriptorName(0x0AB9, &first));
  ASSERT_TRUE(findVersionDescriptorName(0x0ABB, &second));
  EXPECT_EQ(first, second);
  EXPECT_EQ(first, "SPI T10/0855-D rev15a SPI Amnd rev3a");
}

TEST(ScsiVersionDescriptors, NamesStandAsTheyAreAndUnknownValuesAreAbsent) {
  std::string name;
  ASSERT_TRUE(findVersionDescriptorName(0x013C, &name));
  EXPECT_EQ(name, "SPC-2 ANSI INCITS 301-1997");
  ASSERT_TRUE(findVersionDescriptorName(0x1740, &name));
  EXPECT_EQ(name, "UAS");
  ASSERT_TRUE(findVersionDescriptorName(0x1EA0, &name));
  EXPECT_EQ(name, "SAT");
  EXPECT_FALSE(findVersionDescriptorName(0x0000, &name));
  EXPECT_FALSE(findVersionDescriptorName(0x1234, &name));
}

}  // namespace
