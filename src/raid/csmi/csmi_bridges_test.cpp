// The CSMI transports against a scripted driver: the request each command
// becomes (flags, FIS, CDB, addressing) and what comes back into the
// command; and the platform sender on the simulated PC.
#include "raid/csmi/csmi_bridges.h"

#include <gtest/gtest.h>

#include "commands/ata/ata_commands.h"
#include "commands/scsi/read_write_commands.h"
#include "commands/scsi/scsi_commands.h"
#include "raid/csmi/csmi_test_support.h"
#include "raid/raid_machine_test_support.h"
#include "testing/simulated_pc.h"

namespace {

using csmi_testing::endDevicePhy;
using csmi_testing::ScriptedCsmiSend;

HANDLE adapterHandle() { return reinterpret_cast<HANDLE>(static_cast<uintptr_t>(0x77)); }

const CSMI_SAS_STP_PASSTHRU_BUFFER& stpOf(const csmi_testing::SentRequest& request) {
  return *reinterpret_cast<const CSMI_SAS_STP_PASSTHRU_BUFFER*>(request.bytes.data());
}
const CSMI_SAS_SSP_PASSTHRU_BUFFER& sspOf(const csmi_testing::SentRequest& request) {
  return *reinterpret_cast<const CSMI_SAS_SSP_PASSTHRU_BUFFER*>(request.bytes.data());
}

TEST(CsmiStpBridge, ABridgeWithoutASenderGivesTwo) {
  CsmiStpBridge bridge(adapterHandle(), endDevicePhy(0, CSMI_SAS_PROTOCOL_SATA), nullptr);
  SmartReturnStatus cmd;
  EXPECT_EQ(bridge.send(cmd), 2u);
  CsmiSspBridge ssp(adapterHandle(), endDevicePhy(0, CSMI_SAS_PROTOCOL_SSP), nullptr);
  uint8_t data[36];
  Inquiry inquiry(data, 36, false, 0);
  EXPECT_EQ(ssp.send(inquiry), 2u);
}

TEST(CsmiStpBridge, TheCommandFisCarriesEveryRegisterInTheStandardOrderWithThePhyAddressing) {
  ScriptedCsmiSend driver;
  driver.handlers[CC_CSMI_SAS_STP_PASSTHRU] = [](uint8_t* buffer, size_t) {
    auto* b = reinterpret_cast<CSMI_SAS_STP_PASSTHRU_BUFFER*>(buffer);
    UCHAR* fis = b->Status.bStatusFIS;
    fis[2] = 0x50;
    fis[3] = 0x00;
    fis[4] = 0x11;
    fis[5] = 0x4F;
    fis[6] = 0xC2;
    fis[7] = 0xA0;
    fis[8] = 0x21;
    fis[9] = 0x22;
    fis[10] = 0x23;
    fis[12] = 0x05;
    fis[13] = 0x06;
    return CSMI_SAS_STATUS_SUCCESS;
  };
  const CSMI_SAS_PHY_ENTITY phy = endDevicePhy(3, CSMI_SAS_PROTOCOL_SATA);
  CsmiStpBridge bridge(adapterHandle(), phy, &driver);
  SmartReturnStatus cmd;
  cmd.device = 0xA0;
  cmd.featuresExt = 0x7E;
  cmd.sectorCountExt = 0x01;
  cmd.lbaLowExt = 0x02;
  cmd.lbaMidExt = 0x03;
  cmd.lbaHighExt = 0x04;
  ASSERT_EQ(bridge.send(cmd), 0u);
  ASSERT_EQ(driver.sent.size(), 1u);
  EXPECT_EQ(driver.sent[0].handle, adapterHandle());
  EXPECT_EQ(driver.sent[0].bytes.size(), 168u);
  const CSMI_SAS_STP_PASSTHRU& p = stpOf(driver.sent[0]).Parameters;
  EXPECT_EQ(p.bPhyIdentifier, 3);
  EXPECT_EQ(p.bPortIdentifier, 0x13);
  EXPECT_EQ(p.bConnectionRate, 0);
  EXPECT_EQ(0, std::memcmp(p.bDestinationSASAddress, phy.Attached.bSASAddress, 8));
  EXPECT_EQ(p.uFlags, 0x14u);
  EXPECT_EQ(p.uDataLength, 0u);
  const std::vector<uint8_t> fis(p.bCommandFIS, p.bCommandFIS + 14);
  EXPECT_EQ(fis, (std::vector<uint8_t>{0x27, 0x80, 0xB0, 0xDA, 0x00, 0x4F, 0xC2, 0xA0, 0x02, 0x03, 0x04, 0x7E, 0x00,
                                       0x01}));
  // The status FIS comes back into the registers.
  EXPECT_EQ(cmd.status(), 0x50);
  EXPECT_EQ(cmd.lbaLow, 0x11);
  EXPECT_EQ(cmd.lbaMid, 0x4F);
  EXPECT_EQ(cmd.lbaHigh, 0xC2);
  EXPECT_EQ(cmd.device, 0xA0);
  EXPECT_EQ(cmd.lbaLowExt, 0x21);
  EXPECT_EQ(cmd.lbaHighExt, 0x23);
  EXPECT_EQ(cmd.sectorCount, 0x05);
  EXPECT_EQ(cmd.sectorCountExt, 0x06);
}

TEST(CsmiStpBridge, ReadsCopyTheDataBackAndWritesCarryTheirDataWithTheirFlags) {
  ScriptedCsmiSend driver;
  std::vector<uint8_t> written;
  driver.handlers[CC_CSMI_SAS_STP_PASSTHRU] = [&written](uint8_t* buffer, size_t size) {
    auto* b = reinterpret_cast<CSMI_SAS_STP_PASSTHRU_BUFFER*>(buffer);
    if (b->Parameters.uFlags & CSMI_SAS_STP_READ) {
      for (size_t i = 0; i < b->Parameters.uDataLength; ++i) b->bDataBuffer[i] = static_cast<UCHAR>(i);
    } else {
      written.assign(b->bDataBuffer, b->bDataBuffer + (size - 168));
    }
    b->Status.bStatusFIS[2] = 0x50;
    return CSMI_SAS_STATUS_SUCCESS;
  };
  CsmiStpBridge bridge(adapterHandle(), endDevicePhy(0, CSMI_SAS_PROTOCOL_SATA), &driver);
  uint8_t block[512] = {};
  IdentifyDevice identify(block);
  ASSERT_EQ(bridge.send(identify), 0u);
  EXPECT_EQ(stpOf(driver.sent[0]).Parameters.uFlags, 0x11u);
  EXPECT_EQ(stpOf(driver.sent[0]).Parameters.uDataLength, 512u);
  EXPECT_EQ(driver.sent[0].bytes.size(), 512u + 168u);
  EXPECT_EQ(block[511], static_cast<uint8_t>(511));
  EXPECT_EQ(identify.dataLength, 512u);

  uint8_t sector[512];
  for (int i = 0; i < 512; ++i) sector[i] = static_cast<uint8_t>(0xFF - i);
  WriteSectorsExt write(9, 1, 512, sector);
  ASSERT_EQ(bridge.send(write), 0u);
  EXPECT_EQ(stpOf(driver.sent[1]).Parameters.uFlags, 0x12u);
  ASSERT_GE(written.size(), 512u);
  EXPECT_EQ(written[0], 0xFF);
  EXPECT_EQ(written[511], static_cast<uint8_t>(0xFF - 511));
}

TEST(CsmiStpBridge, AFailedSendStillReadsTheStatusFisButNoData) {
  ScriptedCsmiSend driver;
  driver.failIoctl[CC_CSMI_SAS_STP_PASSTHRU] = 1;
  CsmiStpBridge bridge(adapterHandle(), endDevicePhy(0, CSMI_SAS_PROTOCOL_SATA), &driver);
  uint8_t block[512];
  std::memset(block, 0xEE, sizeof(block));
  IdentifyDevice identify(block);
  EXPECT_EQ(bridge.send(identify), 34u);
  EXPECT_EQ(block[0], 0xEE);
  EXPECT_EQ(identify.command, 0);  // the request's zero status FIS
}

TEST(CsmiSspBridge, TheCdbGoesWithItsLengthAndDirectionAndScsiStatusIsAlwaysZero) {
  ScriptedCsmiSend driver;
  driver.handlers[CC_CSMI_SAS_SSP_PASSTHRU] = [](uint8_t* buffer, size_t) {
    auto* b = reinterpret_cast<CSMI_SAS_SSP_PASSTHRU_BUFFER*>(buffer);
    b->Status.bStatus = 0x02;  // CHECK CONDITION
    b->Status.bDataPresent = CSMI_SAS_SSP_SENSE_DATA_PRESENT;
    b->Status.bResponseLength[1] = 18;
    b->Status.bResponse[0] = 0x70;
    b->Status.bResponse[2] = 0x03;
    std::memcpy(b->bDataBuffer, "ABCDEFGH", 8);
    return CSMI_SAS_STATUS_SUCCESS;
  };
  CsmiSspBridge bridge(adapterHandle(), endDevicePhy(2, CSMI_SAS_PROTOCOL_SSP), &driver);
  uint8_t data[36] = {};
  Inquiry inquiry(data, 36, false, 0);
  ASSERT_EQ(bridge.send(inquiry), 0u);
  const CSMI_SAS_SSP_PASSTHRU& p = sspOf(driver.sent[0]).Parameters;
  EXPECT_EQ(p.bPhyIdentifier, 2);
  EXPECT_EQ(p.bCDBLength, inquiry.cdbLength);
  EXPECT_EQ(p.bCDB[0], 0x12);
  EXPECT_EQ(p.uFlags, 0x1u);
  EXPECT_EQ(p.uDataLength, 36u);
  EXPECT_EQ(driver.sent[0].bytes.size(), 36u + 372u);
  EXPECT_EQ(0, std::memcmp(data, "ABCDEFGH", 8));
  // One byte of the response goes over, and the status is taken as good.
  EXPECT_EQ(inquiry.senseLength, 1u);
  EXPECT_EQ(inquiry.sense[0], 0x70);
  EXPECT_EQ(inquiry.sense[2], 0x00);
  EXPECT_EQ(inquiry.scsiStatus, 0);
}

TEST(CsmiSspBridge, AWriteCarriesItsDataAndANonDataCommandHasFlagFour) {
  ScriptedCsmiSend driver;
  std::vector<uint8_t> written;
  driver.handlers[CC_CSMI_SAS_SSP_PASSTHRU] = [&written](uint8_t* buffer, size_t) {
    auto* b = reinterpret_cast<CSMI_SAS_SSP_PASSTHRU_BUFFER*>(buffer);
    written.assign(b->bDataBuffer, b->bDataBuffer + b->Parameters.uDataLength);
    return CSMI_SAS_STATUS_SUCCESS;
  };
  CsmiSspBridge bridge(adapterHandle(), endDevicePhy(0, CSMI_SAS_PROTOCOL_SSP), &driver);
  std::vector<uint8_t> sector(512, 0x5A);
  Write10 write(sector.data(), 7, 1, 512);
  ASSERT_EQ(bridge.send(write), 0u);
  EXPECT_EQ(sspOf(driver.sent[0]).Parameters.uFlags, 0x2u);
  EXPECT_EQ(written, sector);
  SendDiagnostic diagnostic(1, 0);
  ASSERT_EQ(bridge.send(diagnostic), 0u);
  EXPECT_EQ(sspOf(driver.sent[1]).Parameters.uFlags, 0x4u);
  EXPECT_EQ(diagnostic.senseLength, 0u);
}

class WinCsmiSendTest : public mstest::SimulatedPcTest {};

TEST_F(WinCsmiSendTest, TheMiniportControlCarriesTheRequestAndAFailureIsThirtyFour) {
  ASSERT_NE(installJson(raid_testing::csmiMachine()), nullptr);
  HANDLE adapter = openPath("\\\\.\\Scsi0:");
  CsmiGetCntrlConfig config;
  ASSERT_EQ(getCsmiSender()->send(adapter, config), 0u);
  EXPECT_EQ(config.headerLength(), 28u);
  EXPECT_EQ(config.length(), 180u);
  EXPECT_EQ(config.returnCode(), 0u);
  EXPECT_EQ(config.record().Configuration.usBIOSMajorRevision, 3);
  CsmiGetRaidInfo info;
  EXPECT_EQ(getCsmiSender()->send(reinterpret_cast<HANDLE>(static_cast<uintptr_t>(0x4242)), info), 34u);
}

}  // namespace
