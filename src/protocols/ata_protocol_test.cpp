// The ATA protocol's own logic on scripted transports: the transport loop and
// its order, the identify block turned into properties, reads and writes,
// SMART data, status and self tests. The logs are in ata_protocol_logs_test.
#include "protocols/ata_protocol.h"

#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <vector>

#include "commands/ata/ata_commands.h"
#include "sim/windows/face.h"
#include "testing/scripted_ata_bridge.h"

namespace {

using mstest::AtaAnswer;
using mstest::AtaBlock;
using mstest::ScriptedAtaBridge;

constexpr uint8_t kStatusReady = 0x50;
constexpr uint8_t kStatusReadyErr = 0x51;

// An internal SATA disk: 48-bit, SMART on, security supported, 4 KiB physical
// sectors, 7200 rpm, ATA8-ACS down to ATA4.
AtaBlock identifyBlock() {
  AtaBlock block;
  block.setWord(0, 0x0040)
      .setString(10, 10, "  5VM1A2B3")
      .setString(23, 4, "CC38")
      .setString(27, 20, "ST3500418AS")
      .setWord(80, 0x01F0)
      .setWord(81, 0x0029)
      .setWord(82, 0x0003)
      .setWord(83, 0x0400)
      .setWord(85, 0x0001)
      .setWord(100, 0x6DB0)
      .setWord(101, 0x3A38)
      .setWord(106, 0x6003)
      .setWord(217, 7200);
  return block.seal();
}

AtaAnswer withData(const std::vector<uint8_t>& data) {
  AtaAnswer answer;
  answer.data = data;
  return answer;
}

AtaAnswer deviceError(uint8_t error) {
  AtaAnswer answer;
  answer.statusRegister = kStatusReadyErr;
  answer.error = error;
  return answer;
}

AtaAnswer transportFailure(uint32_t status) {
  AtaAnswer answer;
  answer.status = status;
  return answer;
}

class AtaProtocolTest : public ::testing::Test {
 protected:
  void SetUp() override {
    sim::uninstallMachine();  // the platform's prediction finds no disk
    protocol.addTransport(bridge);
  }
  void TearDown() override { sim::uninstallMachine(); }

  // getProperties on a device that answers IDENTIFY with `block` and SMART
  // READ DATA with `smart`.
  uint32_t learn(const AtaBlock& block, const AtaBlock& smart = AtaBlock()) {
    bridge->queue(withData(block.bytes));
    bridge->queue(withData(smart.bytes));
    StorageProtocolProperties out;
    return protocol.getProperties(&out);
  }

  StorageProtocolProperties cached() {
    StorageProtocolProperties properties;
    protocol.getCachedProperties(&properties);
    return properties;
  }

  std::shared_ptr<ScriptedAtaBridge> bridge = std::make_shared<ScriptedAtaBridge>(reinterpret_cast<void*>(0x10));
  AtaProtocol protocol;
};

// --- The transport loop -----------------------------------------------------

TEST(AtaProtocolTransports, SendCommandWithoutAnyTransportGivesNotAvailable) {
  AtaProtocol protocol;
  SmartReturnStatus cmd;
  EXPECT_EQ(protocol.sendCommand(cmd), kStatusNotAvailable);
  EXPECT_EQ(protocol.getHandle(), nullptr);
}

TEST(AtaProtocolTransports, AddTransportRefusesTheSameBridgeTwice) {
  AtaProtocol protocol;
  auto bridge = std::make_shared<ScriptedAtaBridge>();
  EXPECT_TRUE(protocol.addTransport(bridge));
  EXPECT_FALSE(protocol.addTransport(bridge));
  EXPECT_EQ(protocol.getTransports().size(), 1u);
  EXPECT_EQ(bridge.use_count(), 2);  // the second reference was dropped
}

TEST(AtaProtocolTransports, FirstCommandGoesToBothBridgesAndTheSecondOnlyToTheOneThatWorked) {
  AtaProtocol protocol;
  auto failing = std::make_shared<ScriptedAtaBridge>(reinterpret_cast<void*>(0x1));
  auto working = std::make_shared<ScriptedAtaBridge>(reinterpret_cast<void*>(0x2));
  failing->setDefault(transportFailure(kStatusBridgeCannotCarry));
  working->setDefault(AtaAnswer());
  protocol.addTransport(failing);
  protocol.addTransport(working);

  SmartEnable first(true);
  EXPECT_EQ(protocol.sendCommand(first), kStatusOk);
  EXPECT_EQ(failing->sent.size(), 1u);
  EXPECT_EQ(working->sent.size(), 1u);
  // The bridge that carried it is now in front, and the handle is its.
  EXPECT_EQ(protocol.getTransports().front(), working);
  EXPECT_EQ(protocol.getHandle(), reinterpret_cast<void*>(0x2));

  SmartEnable second(true);
  EXPECT_EQ(protocol.sendCommand(second), kStatusOk);
  EXPECT_EQ(failing->sent.size(), 1u);
  EXPECT_EQ(working->sent.size(), 2u);
  EXPECT_EQ(protocol.getTransports().size(), 2u);
}

TEST(AtaProtocolTransports, EveryTransportStartsFromTheCommandAsBuilt) {
  AtaProtocol protocol;
  auto clearing = std::make_shared<ScriptedAtaBridge>();
  AtaAnswer cleared = transportFailure(kStatusScsiNotGood);
  cleared.clearOnFailure = true;  // as a SAT bridge leaves the record
  clearing->queue(cleared);
  auto second = std::make_shared<ScriptedAtaBridge>();
  second->queue(AtaAnswer());
  protocol.addTransport(clearing);
  protocol.addTransport(second);

  SmartExecuteOffline start(2, 0);
  EXPECT_EQ(protocol.sendCommand(start), kStatusOk);
  ASSERT_EQ(second->sent.size(), 1u);
  EXPECT_EQ(second->sent[0].command, kAtaSmart);
  EXPECT_EQ(second->sent[0].features, kSmartExecuteOffline);
  EXPECT_EQ(second->sent[0].lbaLow, 2);
  EXPECT_EQ(second->sent[0].lbaMid, kSmartSignatureLbaMid);
  EXPECT_EQ(second->sent[0].lbaHigh, kSmartSignatureLbaHigh);
}

TEST(AtaProtocolTransports, AllFailingGivesTheLastFailureAndKeepsTheOrder) {
  AtaProtocol protocol;
  auto first = std::make_shared<ScriptedAtaBridge>();
  auto last = std::make_shared<ScriptedAtaBridge>();
  first->queue(transportFailure(kStatusBridgeCannotCarry));
  last->queue(transportFailure(kStatusIoctlFailed));
  protocol.addTransport(first);
  protocol.addTransport(last);
  SmartEnable cmd(true);
  EXPECT_EQ(protocol.sendCommand(cmd), kStatusIoctlFailed);
  EXPECT_EQ(protocol.getTransports().front(), first);
}

TEST(AtaProtocolTransports, NoDataFromTheLastTransportKeepsTheDevicesRegisters) {
  AtaProtocol protocol;
  auto bridge = std::make_shared<ScriptedAtaBridge>();
  AtaAnswer noData = deviceError(kAtaErrorUnc);
  noData.status = kStatusNoData;
  bridge->queue(noData);
  protocol.addTransport(bridge);
  std::vector<uint8_t> buffer(512);
  ReadSectorsExt read(100, 1, 512, buffer.data(), 30);
  EXPECT_EQ(protocol.sendCommand(read), kStatusNoData);
  EXPECT_EQ(read.status(), kStatusReadyErr);
  EXPECT_EQ(read.error(), kAtaErrorUnc);
}

TEST(AtaProtocolTransports, NoDataFromATransportBeforeTheLastIsRestoredLikeAnyFailure) {
  AtaProtocol protocol;
  auto first = std::make_shared<ScriptedAtaBridge>();
  auto last = std::make_shared<ScriptedAtaBridge>();
  AtaAnswer noData = deviceError(kAtaErrorUnc);
  noData.status = kStatusNoData;
  first->queue(noData);
  last->queue(transportFailure(kStatusIoctlFailed));
  protocol.addTransport(first);
  protocol.addTransport(last);
  std::vector<uint8_t> buffer(512);
  ReadSectorsExt read(100, 1, 512, buffer.data(), 30);
  EXPECT_EQ(protocol.sendCommand(read), kStatusIoctlFailed);
  ASSERT_EQ(last->sent.size(), 1u);
  EXPECT_EQ(last->sent[0].command, kAtaReadSectorsExt);  // restored before the next transport
  EXPECT_EQ(read.command, kAtaReadSectorsExt);
}

// --- Properties -------------------------------------------------------------

TEST_F(AtaProtocolTest, GetPropertiesTurnsTheIdentifyBlockIntoProperties) {
  AtaBlock smart;
  smart[367] = 0x15;  // off-line immediate, abort, self test
  bridge->queue(withData(identifyBlock().bytes));
  bridge->queue(withData(smart.bytes));
  StorageProtocolProperties out;
  ASSERT_EQ(protocol.getProperties(&out), kStatusOk);

  EXPECT_EQ(out.model, "ST3500418AS");
  EXPECT_EQ(out.serialNumber, "5VM1A2B3");
  EXPECT_EQ(out.firmwareRevision, "CC38");
  EXPECT_EQ(out.vendor, "Seagate");
  EXPECT_EQ(out.sectorCount, 0x3A386DB0u);
  EXPECT_EQ(out.logicalSectorSize, 512u);
  EXPECT_EQ(out.physicalSectorSize, 4096u);
  EXPECT_EQ(out.rotationRate, 7200);
  EXPECT_FALSE(out.isSolidState);
  EXPECT_TRUE(out.lba48Supported);
  EXPECT_TRUE(out.smartSupported);
  EXPECT_TRUE(out.smartEnabled);
  EXPECT_TRUE(out.securitySupported);
  EXPECT_FALSE(out.securityLocked);
  EXPECT_EQ(out.standardVersion, "ATA8-ACS version 4");
  EXPECT_EQ(out.supportedStandards,
            (std::vector<std::string>{"ATA8-ACS", "ATA7-ATAPI", "ATA6-ATAPI", "ATA5-ATAPI", "ATA4-ATAPI"}));
  EXPECT_TRUE(out.smartDataValid);
  EXPECT_TRUE(out.offlineImmediateSupported);
  EXPECT_TRUE(out.offlineAbortSupported);
  EXPECT_TRUE(out.selfTestSupported);
  ASSERT_EQ(bridge->sent.size(), 2u);
  EXPECT_EQ(bridge->sent[0].command, kAtaIdentifyDevice);
  EXPECT_EQ(bridge->sent[1].features, kSmartReadData);
}

TEST_F(AtaProtocolTest, GetPropertiesWithNullOutGivesBadArgumentAndSendsNothing) {
  EXPECT_EQ(protocol.getProperties(nullptr), kStatusBadArgument);
  EXPECT_TRUE(bridge->sent.empty());
}

TEST_F(AtaProtocolTest, FailedIdentifyReturnsItsStatusAndLeavesOutUntouched) {
  bridge->queue(transportFailure(kStatusIoctlFailed));
  StorageProtocolProperties out;
  out.model = "untouched";
  EXPECT_EQ(protocol.getProperties(&out), kStatusIoctlFailed);
  EXPECT_EQ(out.model, "untouched");
}

TEST_F(AtaProtocolTest, PacketDeviceIdentifyBlockIsRejectedAsInvalidData) {
  AtaBlock block = identifyBlock();
  block.setWord(0, 0x8580).seal();
  bridge->queue(withData(block.bytes));
  StorageProtocolProperties out;
  EXPECT_EQ(protocol.getProperties(&out), kStatusInvalidData);
  EXPECT_EQ(cached().model, "");
}

TEST_F(AtaProtocolTest, FailedSmartReadDataChangesNothingAndIsNotReported) {
  bridge->queue(withData(identifyBlock().bytes));
  bridge->queue(transportFailure(kStatusIoctlFailed));
  StorageProtocolProperties out;
  EXPECT_EQ(protocol.getProperties(&out), kStatusOk);
  EXPECT_FALSE(out.smartDataValid);
  EXPECT_FALSE(out.selfTestSupported);
}

TEST_F(AtaProtocolTest, DriveWithoutSmartIsNotAskedForSmartData) {
  AtaBlock block = identifyBlock();
  block.setWord(82, 0x0002).setWord(85, 0).seal();
  bridge->queue(withData(block.bytes));
  StorageProtocolProperties out;
  EXPECT_EQ(protocol.getProperties(&out), kStatusOk);
  EXPECT_FALSE(out.smartSupported);
  EXPECT_EQ(bridge->sent.size(), 1u);
}

TEST_F(AtaProtocolTest, MajorVersionWordOfAllOnesAppendsFiveStandards) {
  AtaBlock block = identifyBlock();
  block.setWord(80, 0xFFFF).seal();
  ASSERT_EQ(learn(block), kStatusOk);
  EXPECT_EQ(cached().supportedStandards,
            (std::vector<std::string>{"ATA8-ACS", "ATA7-ATAPI", "ATA6-ATAPI", "ATA5-ATAPI", "ATA4-ATAPI"}));
}

TEST_F(AtaProtocolTest, MajorVersionWordOfZeroOr00FFOrLowBitsOnlyIsNotReported) {
  for (uint16_t major : {0x0000, 0x00FF, 0x000E}) {
    AtaProtocol fresh;
    auto device = std::make_shared<ScriptedAtaBridge>();
    fresh.addTransport(device);
    AtaBlock block = identifyBlock();
    block.setWord(80, major).seal();
    device->queue(withData(block.bytes));
    device->queue(withData(AtaBlock().bytes));
    StorageProtocolProperties out;
    ASSERT_EQ(fresh.getProperties(&out), kStatusOk);
    EXPECT_EQ(out.supportedStandards, std::vector<std::string>{"VERSION_NOT_REPORTED"}) << major;
  }
}

TEST_F(AtaProtocolTest, SecondGetPropertiesRepeatsTheStandardsInTheCache) {
  AtaBlock block = identifyBlock();
  block.setWord(80, 0x0100).seal();
  ASSERT_EQ(learn(block), kStatusOk);
  ASSERT_EQ(learn(block), kStatusOk);
  EXPECT_EQ(cached().supportedStandards, (std::vector<std::string>{"ATA8-ACS", "ATA8-ACS"}));
}

TEST_F(AtaProtocolTest, TwentyEightBitCapacityIsSignExtended) {
  AtaBlock block = identifyBlock();
  block.setWord(83, 0).setWord(60, 0x0000).setWord(61, 0x8000).seal();
  ASSERT_EQ(learn(block), kStatusOk);
  EXPECT_FALSE(cached().lba48Supported);
  EXPECT_EQ(cached().sectorCount, 0xFFFFFFFF80000000ull);
}

TEST_F(AtaProtocolTest, LongLogicalSectorIsTakenFromWords117And118AsTheyStand) {
  AtaBlock block = identifyBlock();
  block.setWord(106, 0x7001).setWord(117, 0x0800).setWord(118, 0x0000).seal();
  ASSERT_EQ(learn(block), kStatusOk);
  EXPECT_EQ(cached().logicalSectorSize, 0x800u);  // words, not converted to bytes
  EXPECT_EQ(cached().physicalSectorSize, 0x1000u);
}

TEST_F(AtaProtocolTest, SectorSizeWordWithoutItsSignatureGives512Both) {
  AtaBlock block = identifyBlock();
  block.setWord(106, 0xF003).seal();  // bit 15 set: not valid
  ASSERT_EQ(learn(block), kStatusOk);
  EXPECT_EQ(cached().logicalSectorSize, 512u);
  EXPECT_EQ(cached().physicalSectorSize, 512u);
}

TEST_F(AtaProtocolTest, CacheSizeTakesWord215AsTheHighHalfWhenWord214SaysSo) {
  AtaBlock block = identifyBlock();
  block.setWord(21, 0x0100).setWord(214, 0x0010).setWord(215, 0x0001).setWord(216, 0x0002).seal();
  ASSERT_EQ(learn(block), kStatusOk);
  EXPECT_EQ(cached().cacheSize, 0x00010002u);
  AtaBlock plain = identifyBlock();
  plain.setWord(21, 0x0100).seal();
  ASSERT_EQ(learn(plain), kStatusOk);
  EXPECT_EQ(cached().cacheSize, 0x0100u);
}

TEST_F(AtaProtocolTest, RotationRateOneIsSolidStateAndSlowOrReservedRatesAreUnknown) {
  AtaBlock ssd = identifyBlock();
  ssd.setWord(217, 1).seal();
  ASSERT_EQ(learn(ssd), kStatusOk);
  EXPECT_TRUE(cached().isSolidState);
  EXPECT_EQ(cached().rotationRate, 0);
  for (uint16_t rate : {0x0400, 0xFFFF}) {
    AtaBlock block = identifyBlock();
    block.setWord(217, rate).seal();
    ASSERT_EQ(learn(block), kStatusOk);
    EXPECT_FALSE(cached().isSolidState);
    EXPECT_EQ(cached().rotationRate, 0) << rate;
  }
  AtaBlock slowest = identifyBlock();
  slowest.setWord(217, 1025).seal();
  ASSERT_EQ(learn(slowest), kStatusOk);
  EXPECT_EQ(cached().rotationRate, 1025);
}

TEST_F(AtaProtocolTest, SecurityLockedNeedsWord85Bit1AndWord128Bit2) {
  AtaBlock enabledOnly = identifyBlock();
  enabledOnly.setWord(85, 0x0003).seal();
  ASSERT_EQ(learn(enabledOnly), kStatusOk);
  EXPECT_FALSE(cached().securityLocked);
  AtaBlock locked = identifyBlock();
  locked.setWord(85, 0x0003).setWord(128, 0x0007).seal();
  ASSERT_EQ(learn(locked), kStatusOk);
  EXPECT_TRUE(cached().securityLocked);
}

TEST_F(AtaProtocolTest, BlankModelNamesNoVendor) {
  AtaBlock block = identifyBlock();
  block.setString(27, 20, "").seal();
  ASSERT_EQ(learn(block), kStatusOk);
  EXPECT_EQ(cached().model, "");
  EXPECT_EQ(cached().vendor, "");
}

TEST_F(AtaProtocolTest, IsAccessibleAsksTheDeviceEachTime) {
  bridge->queue(withData(identifyBlock().bytes));
  bridge->queue(withData(AtaBlock().bytes));
  EXPECT_TRUE(protocol.isAccessible());
  bridge->queue(transportFailure(kStatusIoctlFailed));
  EXPECT_FALSE(protocol.isAccessible());
  EXPECT_EQ(bridge->sent.size(), 3u);
}

// --- Reads and writes -------------------------------------------------------

TEST_F(AtaProtocolTest, ReadSectorsBeforeAnyPropertiesGivesBadArgument) {
  std::vector<uint8_t> buffer(512);
  EXPECT_EQ(protocol.readSectors(0, 1, 30, buffer.data()), kStatusBadArgument);
  EXPECT_TRUE(bridge->sent.empty());
}

TEST_F(AtaProtocolTest, ReadSectorsOn48BitDriveSendsReadSectorsExtWithTheTimeout) {
  ASSERT_EQ(learn(identifyBlock()), kStatusOk);
  bridge->queue(AtaAnswer());
  std::vector<uint8_t> buffer(512 * 300);
  EXPECT_EQ(protocol.readSectors(0x123456789A, 300, 7, buffer.data()), kStatusOk);
  const AtaCmd& sent = bridge->sent.back();
  EXPECT_EQ(sent.command, kAtaReadSectorsExt);
  EXPECT_EQ(sent.sectorCount, 300 & 0xFF);
  EXPECT_EQ(sent.sectorCountExt, 300 >> 8);
  EXPECT_EQ(sent.lbaLowExt, 0x34);
  EXPECT_EQ(sent.lbaMidExt, 0x12);
  EXPECT_EQ(sent.dataLength, 512u * 300);
  EXPECT_EQ(sent.timeoutSeconds, 7u);
}

TEST_F(AtaProtocolTest, ReadSectorsOf300OnADriveWithout48BitSendsCount44) {
  AtaBlock block = identifyBlock();
  block.setWord(83, 0).setWord(60, 0xFFFF).setWord(61, 0x0FFF).seal();
  ASSERT_EQ(learn(block), kStatusOk);
  bridge->queue(AtaAnswer());
  std::vector<uint8_t> buffer(512 * 300);
  EXPECT_EQ(protocol.readSectors(10, 300, 30, buffer.data()), kStatusOk);
  const AtaCmd& sent = bridge->sent.back();
  EXPECT_EQ(sent.command, kAtaReadSectors);
  EXPECT_EQ(sent.sectorCount, 44);
  EXPECT_EQ(sent.dataLength, 512u * 44);
}

TEST_F(AtaProtocolTest, ReadSectorsReportsMediaErrorWhenUncIsSet) {
  ASSERT_EQ(learn(identifyBlock()), kStatusOk);
  bridge->queue(deviceError(kAtaErrorUnc | kAtaErrorAbrt));
  std::vector<uint8_t> buffer(512);
  EXPECT_EQ(protocol.readSectors(5, 1, 30, buffer.data()), kStatusMediaError);
}

TEST_F(AtaProtocolTest, ReadSectorsReportsMediaErrorWhenErrorBit7IsSet) {
  ASSERT_EQ(learn(identifyBlock()), kStatusOk);
  bridge->queue(deviceError(0x80));
  std::vector<uint8_t> buffer(512);
  EXPECT_EQ(protocol.readSectors(5, 1, 30, buffer.data()), kStatusMediaError);
}

TEST_F(AtaProtocolTest, ReadSectorsReportsAtaErrorForAnAbortedRead) {
  ASSERT_EQ(learn(identifyBlock()), kStatusOk);
  bridge->queue(deviceError(kAtaErrorAbrt));
  std::vector<uint8_t> buffer(512);
  EXPECT_EQ(protocol.readSectors(5, 1, 30, buffer.data()), kStatusAtaError);
}

TEST_F(AtaProtocolTest, ReadSectorsWithoutDataButCleanRegistersCountsAsRead) {
  ASSERT_EQ(learn(identifyBlock()), kStatusOk);
  AtaAnswer noData;
  noData.status = kStatusNoData;
  bridge->queue(noData);
  std::vector<uint8_t> buffer(512);
  EXPECT_EQ(protocol.readSectors(5, 1, 30, buffer.data()), kStatusOk);
}

TEST_F(AtaProtocolTest, ReadSectorsOnBadSectorBehindABridgeWithoutDataGivesMediaError) {
  ASSERT_EQ(learn(identifyBlock()), kStatusOk);
  AtaAnswer badSector = deviceError(kAtaErrorUnc);
  badSector.status = kStatusNoData;
  bridge->queue(badSector);
  std::vector<uint8_t> buffer(512);
  EXPECT_EQ(protocol.readSectors(5, 1, 30, buffer.data()), kStatusMediaError);
}

TEST_F(AtaProtocolTest, ReadSectorsReturnsATransportFailureAsItIs) {
  ASSERT_EQ(learn(identifyBlock()), kStatusOk);
  bridge->queue(transportFailure(kStatusIoctlFailed));
  std::vector<uint8_t> buffer(512);
  EXPECT_EQ(protocol.readSectors(5, 1, 30, buffer.data()), kStatusIoctlFailed);
}

TEST_F(AtaProtocolTest, WriteSectorRefreshesThePropertiesThenWritesOneSector) {
  bridge->queue(withData(identifyBlock().bytes));
  bridge->queue(withData(AtaBlock().bytes));
  bridge->queue(AtaAnswer());
  std::vector<uint8_t> sector(512, 0xAB);
  EXPECT_EQ(protocol.writeSector(77, sector.data()), kStatusOk);
  ASSERT_EQ(bridge->sent.size(), 3u);
  EXPECT_EQ(bridge->sent[0].command, kAtaIdentifyDevice);
  EXPECT_EQ(bridge->sent[2].command, kAtaWriteSectorsExt);
  EXPECT_EQ(bridge->sent[2].sectorCount, 1);
  EXPECT_EQ(bridge->sent[2].lbaLow, 77);
  EXPECT_EQ(bridge->sent[2].dataLength, 512u);
  EXPECT_EQ(bridge->sent[2].timeoutSeconds, kDefaultCommandTimeoutSeconds);
}

TEST_F(AtaProtocolTest, WriteSectorOnA28BitDriveUsesWriteSectorsAndErrGives88) {
  AtaBlock block = identifyBlock();
  block.setWord(83, 0).setWord(60, 1000).seal();
  bridge->queue(withData(block.bytes));
  bridge->queue(withData(AtaBlock().bytes));
  bridge->queue(deviceError(kAtaErrorUnc));
  std::vector<uint8_t> sector(512);
  EXPECT_EQ(protocol.writeSector(3, sector.data()), kStatusAtaError);
  EXPECT_EQ(bridge->sent.back().command, kAtaWriteSectors);
}

TEST_F(AtaProtocolTest, WriteSectorReturnsAFailedRefreshWithoutWriting) {
  bridge->queue(transportFailure(kStatusIoctlFailed));
  std::vector<uint8_t> sector(512);
  EXPECT_EQ(protocol.writeSector(3, sector.data()), kStatusIoctlFailed);
  EXPECT_EQ(bridge->sent.size(), 1u);
}

TEST_F(AtaProtocolTest, WriteUncorrectableMarksOnePseudoUncorrectableSector) {
  bridge->queue(AtaAnswer());
  EXPECT_EQ(protocol.writeUncorrectable(0x1234), kStatusOk);
  const AtaCmd& sent = bridge->sent.back();
  EXPECT_EQ(sent.command, kAtaWriteUncorrectableExt);
  EXPECT_EQ(sent.features, kWriteUncorrectablePseudo);
  EXPECT_EQ(sent.sectorCount, 1);
  bridge->queue(deviceError(kAtaErrorAbrt));
  EXPECT_EQ(protocol.writeUncorrectable(0x1234), kStatusAtaError);
}

// --- SMART ----------------------------------------------------------------

TEST_F(AtaProtocolTest, GetTemperatureReportsTheLaterOfTwoAttributes194) {
  AtaBlock smart;
  smart.setAttribute(0, 194, 100, 100, 41).setAttribute(3, 9, 99, 99, 1000).setAttribute(5, 194, 100, 100, 47);
  bridge->queue(withData(smart.bytes));
  uint8_t celsius = 0;
  EXPECT_EQ(protocol.getTemperature(&celsius), kStatusOk);
  EXPECT_EQ(celsius, 47);
}

TEST_F(AtaProtocolTest, GetTemperatureWithoutAttribute194LeavesTheValueAlone) {
  AtaBlock smart;
  smart.setAttribute(0, 190, 60, 50, 40);  // airflow temperature is not looked at
  bridge->queue(withData(smart.bytes));
  uint8_t celsius = 99;
  EXPECT_EQ(protocol.getTemperature(&celsius), kStatusOk);
  EXPECT_EQ(celsius, 99);
}

TEST_F(AtaProtocolTest, GetTemperatureOnADeviceErrorGives88) {
  bridge->queue(deviceError(kAtaErrorAbrt));
  uint8_t celsius = 0;
  EXPECT_EQ(protocol.getTemperature(&celsius), kStatusAtaError);
}

TEST_F(AtaProtocolTest, StartSelfTestPutsCodeInLbaLowAndCountInSectorCount) {
  bridge->queue(AtaAnswer());
  EXPECT_EQ(protocol.startSelfTest(0x02, 3), kStatusOk);
  const AtaCmd& sent = bridge->sent.back();
  EXPECT_EQ(sent.features, kSmartExecuteOffline);
  EXPECT_EQ(sent.lbaLow, 0x02);
  EXPECT_EQ(sent.sectorCount, 3);
}

TEST_F(AtaProtocolTest, StartSelfTestRefusalsMapAbrtTo108IdnfTo109AndOthersTo88) {
  bridge->queue(deviceError(kAtaErrorAbrt | kAtaErrorIdnf));
  EXPECT_EQ(protocol.startSelfTest(1, 0), kStatusSelfTestAborted);
  bridge->queue(deviceError(kAtaErrorIdnf));
  EXPECT_EQ(protocol.startSelfTest(1, 0), kStatusSelfTestIdnf);
  bridge->queue(deviceError(kAtaErrorUnc));
  EXPECT_EQ(protocol.startSelfTest(1, 0), kStatusAtaError);
  bridge->queue(transportFailure(kStatusIoctlFailed));
  EXPECT_EQ(protocol.startSelfTest(1, 0), kStatusIoctlFailed);
}

TEST_F(AtaProtocolTest, SelfTestProgressIsTenTimesTheTensNotYetDone) {
  AtaBlock smart;
  smart[363] = 0xF3;
  bridge->queue(withData(smart.bytes));
  uint8_t percent = 0;
  EXPECT_EQ(protocol.getSelfTestProgress(&percent), kStatusOk);
  EXPECT_EQ(percent, 70);
}

TEST_F(AtaProtocolTest, SelfTestProgressWithALowNibbleOf15WrapsTo206) {
  AtaBlock smart;
  smart[363] = 0x0F;
  bridge->queue(withData(smart.bytes));
  uint8_t percent = 0;
  EXPECT_EQ(protocol.getSelfTestProgress(&percent), kStatusOk);
  EXPECT_EQ(percent, 206);
}

TEST_F(AtaProtocolTest, SelfTestStatusIsTheHighNibbleAndErrGives88) {
  AtaBlock smart;
  smart[363] = 0x73;
  bridge->queue(withData(smart.bytes));
  uint8_t status = 0;
  EXPECT_EQ(protocol.getSelfTestStatus(&status), kStatusOk);
  EXPECT_EQ(status, 7);
  bridge->queue(deviceError(kAtaErrorAbrt));
  EXPECT_EQ(protocol.getSelfTestStatus(&status), kStatusAtaError);
}

TEST_F(AtaProtocolTest, AbortSelfTestSendsSubcommand127) {
  bridge->queue(AtaAnswer());
  EXPECT_EQ(protocol.abortSelfTest(), kStatusOk);
  EXPECT_EQ(bridge->sent.back().lbaLow, 127);
  EXPECT_EQ(bridge->sent.back().sectorCount, 0);
  bridge->queue(deviceError(kAtaErrorAbrt));
  EXPECT_EQ(protocol.abortSelfTest(), kStatusAtaError);
}

TEST_F(AtaProtocolTest, SmartStatusSignatureC24FIsHealthy) {
  AtaAnswer answer;
  answer.lbaMid = 0x4F;
  answer.lbaHigh = 0xC2;
  bridge->queue(answer);
  uint8_t healthy = 7;
  EXPECT_EQ(protocol.getSmartStatus(&healthy), kStatusOk);
  EXPECT_EQ(healthy, 1);
}

TEST_F(AtaProtocolTest, SmartStatusSignature2CF4IsThresholdExceeded) {
  AtaAnswer answer;
  answer.lbaMid = 0xF4;
  answer.lbaHigh = 0x2C;
  bridge->queue(answer);
  uint8_t healthy = 7;
  EXPECT_EQ(protocol.getSmartStatus(&healthy), kStatusOk);
  EXPECT_EQ(healthy, 0);
}

TEST_F(AtaProtocolTest, SmartStatusWithoutRegistersFallsBackToThePlatformPrediction) {
  bridge->queue(AtaAnswer());  // zeros, as a transport that returns no registers
  uint8_t healthy = 7;
  // No disk behind the handle: the platform's query fails.
  EXPECT_EQ(protocol.getSmartStatus(&healthy), kStatusIoctlFailed);
  EXPECT_EQ(bridge->sent.size(), 1u);
}

TEST_F(AtaProtocolTest, EnableSmartSendsD8OrD9AndErrGives88) {
  bridge->queue(AtaAnswer());
  EXPECT_EQ(protocol.enableSmart(1), kStatusOk);
  EXPECT_EQ(bridge->sent.back().features, kSmartEnableOperations);
  bridge->queue(deviceError(kAtaErrorAbrt));
  EXPECT_EQ(protocol.enableSmart(0), kStatusAtaError);
  EXPECT_EQ(bridge->sent.back().features, kSmartDisableOperations);
}

TEST_F(AtaProtocolTest, ReadSmartAttributesDropsAnAttributeWithValue254) {
  AtaBlock smart;
  smart.setAttribute(0, 1, 200, 199, 0x04030201)
      .setAttribute(1, 5, 254, 254, 0)
      .setAttribute(2, 9, 0, 0, 0)
      .setAttribute(3, 10, 255, 255, 0)
      .setAttribute(4, 194, 110, 95, 36);
  AtaBlock thresholds;
  thresholds[2] = 194;
  thresholds[3] = 0;
  thresholds[14] = 1;
  thresholds[15] = 51;
  thresholds[26] = 1;  // a second entry of the same id is not looked at
  thresholds[27] = 99;
  bridge->queue(withData(smart.bytes));
  bridge->queue(withData(thresholds.bytes));
  std::vector<SmartAttribute> attributes;
  ASSERT_EQ(protocol.readSmartAttributes(&attributes), kStatusOk);
  ASSERT_EQ(attributes.size(), 2u);
  EXPECT_EQ(attributes[0].id, 1);
  EXPECT_EQ(attributes[0].value, 200);
  EXPECT_EQ(attributes[0].worst, 199);
  EXPECT_EQ(attributes[0].raw, (std::array<uint8_t, 4>{1, 2, 3, 4}));
  EXPECT_EQ(attributes[0].threshold, 51);
  EXPECT_EQ(attributes[1].id, 194);
  EXPECT_EQ(attributes[1].threshold, 0);
  EXPECT_EQ(bridge->sent[1].features, kSmartReadThresholds);
}

TEST_F(AtaProtocolTest, ReadSmartAttributesNeedsAnOutListAndBothBlocks) {
  EXPECT_EQ(protocol.readSmartAttributes(nullptr), kStatusNotAvailable);
  std::vector<SmartAttribute> attributes;
  bridge->queue(withData(AtaBlock().bytes));
  bridge->queue(transportFailure(kStatusIoctlFailed));
  EXPECT_EQ(protocol.readSmartAttributes(&attributes), kStatusIoctlFailed);
  EXPECT_TRUE(attributes.empty());
}

}  // namespace
