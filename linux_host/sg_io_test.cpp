// SG_IO request building and answer reading, and ATA commands carried in ATA
// PASS-THROUGH (16): the CDB a task file becomes and the registers read back
// from the sense a SAT layer returns. The sense bytes are laid out as SAT
// specifies them, in the forms libata (descriptor format) and some USB
// bridges (fixed format) return.
#include "linux_host/sg_io.h"

#include <gtest/gtest.h>

#include "win32/win32.h"

namespace linux_host {
namespace {

TEST(SgIoHeader, CarriesTheCdbDataSenseDirectionAndTimeoutInMilliseconds) {
  const uint8_t cdb[6] = {0x12, 0, 0, 0, 36, 0};
  uint8_t data[36] = {};
  uint8_t sense[32] = {};
  ScsiCommand command;
  command.cdb = cdb;
  command.cdbLength = 6;
  command.direction = DataDirection::In;
  command.data = data;
  command.length = sizeof(data);
  command.timeoutSeconds = 10;
  const sg_io_hdr_t header = buildSgIoHeader(command, sense, sizeof(sense));
  EXPECT_EQ(header.interface_id, 'S');
  EXPECT_EQ(header.cmd_len, 6);
  EXPECT_EQ(header.cmdp, cdb);
  EXPECT_EQ(header.dxfer_direction, SG_DXFER_FROM_DEV);
  EXPECT_EQ(header.dxfer_len, 36u);
  EXPECT_EQ(header.dxferp, data);
  EXPECT_EQ(header.sbp, sense);
  EXPECT_EQ(header.mx_sb_len, 32);
  EXPECT_EQ(header.timeout, 10000u);
}

TEST(SgIoHeader, NoDataIsNoTransferAndNoTimeoutIsSixtySeconds) {
  const uint8_t cdb[6] = {0x00, 0, 0, 0, 0, 0};
  ScsiCommand command;
  command.cdb = cdb;
  command.cdbLength = 6;
  const sg_io_hdr_t header = buildSgIoHeader(command, nullptr, 0);
  EXPECT_EQ(header.dxfer_direction, SG_DXFER_NONE);
  EXPECT_EQ(header.dxfer_len, 0u);
  EXPECT_EQ(header.timeout, 60000u);
}

TEST(SgIoAnswer, CheckConditionKeepsTheSenseAndTheBytesMovedLessTheResidue) {
  sg_io_hdr_t header{};
  header.status = 0x02;
  header.driver_status = 0x08;  // sense written
  header.sb_len_wr = 18;
  header.dxfer_len = 512;
  header.resid = 512;
  uint8_t sense[18] = {0x70, 0, 0x05, 0, 0, 0, 0, 10, 0, 0, 0, 0, 0x20, 0x00};
  const ScsiAnswer answer = answerFromSgIo(header, sense);
  EXPECT_EQ(answer.error, 0u);
  EXPECT_EQ(answer.status, 0x02);
  ASSERT_EQ(answer.sense.size(), 18u);
  EXPECT_EQ(answer.sense[12], 0x20);
  EXPECT_EQ(answer.transferred, 0u);
}

TEST(SgIoAnswer, AGoneDeviceAndATimeOutAreTransportErrors) {
  sg_io_hdr_t gone{};
  gone.host_status = 0x01;  // DID_NO_CONNECT
  EXPECT_EQ(answerFromSgIo(gone, nullptr).error, static_cast<uint32_t>(ERROR_DEVICE_NOT_CONNECTED));
  sg_io_hdr_t late{};
  late.host_status = 0x03;  // DID_TIME_OUT
  EXPECT_EQ(answerFromSgIo(late, nullptr).error, static_cast<uint32_t>(ERROR_SEM_TIMEOUT));
}

TEST(AtaPassThrough16, IdentifyDeviceIsAPioDataInOfOneBlock) {
  AtaTaskFile identify;
  identify.current[1] = 1;
  identify.current[6] = 0xEC;
  const std::array<uint8_t, 16> cdb = ataPassThrough16(identify, DataDirection::In);
  EXPECT_EQ(cdb[0], 0x85);
  EXPECT_EQ(cdb[1], 4 << 1);  // PIO data-in, not extended
  EXPECT_EQ(cdb[2], 0x2E);    // CK_COND, T_DIR in, BYTE_BLOCK, T_LENGTH in count
  EXPECT_EQ(cdb[6], 1);
  EXPECT_EQ(cdb[14], 0xEC);
}

TEST(AtaPassThrough16, SmartReturnStatusIsNonDataWithItsSignatureInLbaMidAndHigh) {
  AtaTaskFile status;
  status.current[0] = 0xDA;
  status.current[3] = 0x4F;
  status.current[4] = 0xC2;
  status.current[6] = 0xB0;
  const std::array<uint8_t, 16> cdb = ataPassThrough16(status, DataDirection::None);
  EXPECT_EQ(cdb[1], 3 << 1);
  EXPECT_EQ(cdb[2], 0x20);  // CK_COND only
  EXPECT_EQ(cdb[4], 0xDA);
  EXPECT_EQ(cdb[10], 0x4F);
  EXPECT_EQ(cdb[12], 0xC2);
  EXPECT_EQ(cdb[14], 0xB0);
}

TEST(AtaPassThrough16, AFortyEightBitReadLogExtCarriesTheHighOrderBytes) {
  AtaTaskFile log;
  log.extended = true;
  log.current[1] = 0x01;  // count low
  log.previous[1] = 0x00;
  log.current[2] = 0x07;  // log address
  log.previous[2] = 0x00;
  log.current[3] = 0x02;  // page low
  log.previous[3] = 0x01;  // page high
  log.current[6] = 0x2F;
  const std::array<uint8_t, 16> cdb = ataPassThrough16(log, DataDirection::In);
  EXPECT_EQ(cdb[1], (4 << 1) | 1);
  EXPECT_EQ(cdb[8], 0x07);
  EXPECT_EQ(cdb[9], 0x01);
  EXPECT_EQ(cdb[10], 0x02);
  EXPECT_EQ(cdb[14], 0x2F);
}

TEST(AtaPassThrough16, ADmaCommandUsesTheDmaProtocol) {
  AtaTaskFile read;
  read.dma = true;
  read.current[6] = 0xC8;
  EXPECT_EQ(ataPassThrough16(read, DataDirection::In)[1], 6 << 1);
}

// Descriptor-format sense with the ATA Status Return descriptor, as a SAT
// layer returns it for SMART RETURN STATUS on a drive past its threshold.
const std::vector<uint8_t> kThresholdExceeded = {
    0x72, 0x01, 0x00, 0x1D, 0, 0, 0, 14,                                          // RECOVERED ERROR, 00h/1Dh
    0x09, 0x0C, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0xF4, 0x00, 0x2C, 0xA0, 0x50};

TEST(AtaRegisters, TheStatusReturnDescriptorGivesTheRegisters) {
  AtaTaskFile registers;
  ASSERT_TRUE(registersFromSense(kThresholdExceeded, &registers));
  EXPECT_EQ(registers.current[0], 0x00);  // error
  EXPECT_EQ(registers.current[3], 0xF4);  // LBA mid
  EXPECT_EQ(registers.current[4], 0x2C);  // LBA high
  EXPECT_EQ(registers.current[5], 0xA0);  // device
  EXPECT_EQ(registers.current[6], 0x50);  // status
  EXPECT_FALSE(registers.extended);
}

TEST(AtaRegisters, AnExtendedDescriptorFillsThePreviousTaskFile) {
  std::vector<uint8_t> sense = kThresholdExceeded;
  sense[10] = 0x01;  // EXTEND
  sense[12] = 0x12;  // count (15:8)
  sense[14] = 0x34;  // LBA (31:24)
  AtaTaskFile registers;
  ASSERT_TRUE(registersFromSense(sense, &registers));
  EXPECT_TRUE(registers.extended);
  EXPECT_EQ(registers.previous[1], 0x12);
  EXPECT_EQ(registers.previous[2], 0x34);
}

TEST(AtaRegisters, FixedFormatWithAtaInformationAvailableGivesTheRegisters) {
  const std::vector<uint8_t> sense = {0x70, 0, 0x01, 0x04, 0x51, 0xA0, 0x01, 10, 0x00, 0x10, 0x4F, 0xC2, 0x00, 0x1D};
  AtaTaskFile registers;
  ASSERT_TRUE(registersFromSense(sense, &registers));
  EXPECT_EQ(registers.current[0], 0x04);  // ABRT
  EXPECT_EQ(registers.current[6], 0x51);  // ERR set
  EXPECT_EQ(registers.current[5], 0xA0);
  EXPECT_EQ(registers.current[1], 0x01);
  EXPECT_EQ(registers.current[3], 0x4F);
}

TEST(AtaRegisters, SenseWithoutRegistersGivesNone) {
  const std::vector<uint8_t> sense = {0x70, 0, 0x05, 0, 0, 0, 0, 10, 0, 0, 0, 0, 0x20, 0x00};
  AtaTaskFile registers;
  EXPECT_FALSE(registersFromSense(sense, &registers));
  EXPECT_FALSE(registersFromSense({}, &registers));
}

TEST(AtaAnswer, ADeviceThatRefusesThePassThroughIsNotSupported) {
  ScsiAnswer refused = checkCondition(kSenseIllegalRequest, 0x20, 0);
  EXPECT_EQ(ataAnswerFrom(refused).error, static_cast<uint32_t>(ERROR_NOT_SUPPORTED));
}

TEST(AtaAnswer, ATranslationThatIgnoresCkCondReadsAsAGoodEnd) {
  ScsiAnswer good;
  good.status = kStatusGood;
  good.transferred = 512;
  const AtaAnswer answer = ataAnswerFrom(good);
  EXPECT_EQ(answer.error, 0u);
  EXPECT_EQ(answer.registers.current[6], 0x50);
  EXPECT_EQ(answer.transferred, 512u);
}

}  // namespace
}  // namespace linux_host
