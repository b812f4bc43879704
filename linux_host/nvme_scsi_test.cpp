// The NVMe translation of the health commands: the Get Log Page request, the
// SMART / Health Information log read back, and the SCSI answers made of it.
// The log pages are laid out as NVM Express lays out log 02h (SMART / Health Information).
#include "linux_host/nvme_scsi.h"

#include <gtest/gtest.h>

#include <cstring>

#include "testing/disk_images.h"
#include "win32/win32.h"

namespace linux_host {
namespace {

// A health log of a controller at 312 K (39 °C) with `warning` as its
// critical warning byte.
std::vector<uint8_t> healthLog(uint8_t warning) {
  std::vector<uint8_t> log(512, 0);
  log[0] = warning;
  log[1] = 0x38;  // 312 = 0x0138
  log[2] = 0x01;
  log[3] = 100;  // available spare
  log[4] = 10;   // threshold
  return log;
}

class RecordedAdmin : public NvmeAdmin {
 public:
  uint32_t getLogPage(uint8_t logId, uint32_t nsid, uint8_t* out, uint32_t length) override {
    asked.push_back(logId);
    askedNsid = nsid;
    if (!answers) return ERROR_IO_DEVICE;
    std::memcpy(out, log.data(), std::min<size_t>(length, log.size()));
    return ERROR_SUCCESS;
  }
  std::vector<uint8_t> log = healthLog(0);
  bool answers = true;
  std::vector<uint8_t> asked;
  uint32_t askedNsid = 0;
};

TEST(NvmeGetLogPage, AsksForTheLogByIdentifierAndDwordCount) {
  uint8_t buffer[512];
  const struct nvme_admin_cmd command = buildGetLogPage(0x02, 0xFFFFFFFF, buffer, sizeof(buffer));
  EXPECT_EQ(command.opcode, 0x02);
  EXPECT_EQ(command.nsid, 0xFFFFFFFFu);
  EXPECT_EQ(command.data_len, 512u);
  EXPECT_EQ(command.addr, reinterpret_cast<uintptr_t>(buffer));
  EXPECT_EQ(command.cdw10, 0x02u | (127u << 16));  // 128 dwords, less one
  EXPECT_EQ(command.cdw11, 0u);
}

TEST(NvmeHealthLog, GivesTheCriticalWarningAndTheTemperature) {
  NvmeHealth health;
  ASSERT_TRUE(parseHealthLog(healthLog(0x04), &health));
  EXPECT_EQ(health.criticalWarning, 0x04);
  EXPECT_EQ(health.temperatureKelvin, 312);
  EXPECT_FALSE(parseHealthLog({0x00, 0x01}, &health));
}

TEST(NvmeLogPages, TheTemperaturePageHoldsTheCompositeTemperatureInCelsius) {
  NvmeHealth health;
  health.temperatureKelvin = 312;
  const std::vector<uint8_t> page = temperaturePage(health);
  ASSERT_EQ(page.size(), 16u);
  EXPECT_EQ(page[0], 0x0D);
  EXPECT_EQ(page[3], 12);
  EXPECT_EQ(page[9], 39);
  EXPECT_EQ(page[15], 0xFF);  // no reference temperature
}

TEST(NvmeLogPages, ACriticalWarningIsAPredictedFailureInTheInformationalExceptions) {
  NvmeHealth healthy;
  healthy.temperatureKelvin = 300;
  NvmeHealth failing = healthy;
  failing.criticalWarning = 0x01;
  EXPECT_EQ(informationalExceptionsPage(healthy)[8], 0x00);
  const std::vector<uint8_t> page = informationalExceptionsPage(failing);
  EXPECT_EQ(page[0], 0x2F);
  EXPECT_EQ(page[8], 0x5D);
  EXPECT_EQ(page[10], 27);
}

TEST(NvmeUnitSerial, WithoutNguidOrEui64ItIsTheSerialTheNamespaceIdInHexAndAPeriod) {
  EXPECT_EQ(nvmeUnitSerial("QMNVME0001", 1, "", ""), "QMNVME0001_00000001.");
  EXPECT_EQ(nvmeUnitSerial("QMNVME0001", 0x1A, "", ""), "QMNVME0001_0000001A.");
  // All-zero identifiers are no identifiers (QEMU's namespaces without eui64).
  EXPECT_EQ(nvmeUnitSerial("QMNVME0001", 1, "0000000000000000", "00000000-0000-0000-0000-000000000000"),
            "QMNVME0001_00000001.");
}

TEST(NvmeUnitSerial, AnEui64IsWrittenInGroupsOfFourHexDigits) {
  EXPECT_EQ(nvmeUnitSerial("S4EWNX0R123456", 1, "00 25 38 52 71 b1 4c 5f", ""), "0025_3852_71B1_4C5F.");
  EXPECT_EQ(nvmeUnitSerial("S4EWNX0R123456", 1, "eui.002538527 1b14c5f", ""), "S4EWNX0R123456_00000001.")
      << "text that is not hex digits and separators is no EUI64";
  EXPECT_EQ(nvmeUnitSerial("S4EWNX0R123456", 1, "00253852", ""), "S4EWNX0R123456_00000001.")
      << "eight digits are no EUI64";
}

TEST(NvmeUnitSerial, AnNguidComesBeforeTheEui64) {
  EXPECT_EQ(nvmeUnitSerial("SN", 1, "0025385271b14c5f", "e8238fa6-bf53-0001-001b-448b45662a8e"),
            "E823_8FA6_BF53_0001_001B_448B_4566_2A8E.");
}

class NvmeTranslation : public ::testing::Test {
 protected:
  void SetUp() override {
    image = folder.file("namespace.raw");
    ASSERT_TRUE(mstest::makeSparseImage(image, 1024 * 512));
    ASSERT_EQ(medium.open(image), ERROR_SUCCESS);
    BlockIdentity identity;
    identity.vendor = "NVMe";
    identity.product = "Samsung SSD 970 EVO Plus 1TB";
    identity.serial = "S4EWNX0R123456_00000001.";
    target = std::make_unique<NvmeScsiTarget>(medium, identity, admin, 1);
  }

  ScsiAnswer send(std::vector<uint8_t> cdb, std::vector<uint8_t>& data) {
    ScsiCommand command;
    command.cdb = cdb.data();
    command.cdbLength = static_cast<uint8_t>(cdb.size());
    command.direction = DataDirection::In;
    command.data = data.data();
    command.length = static_cast<uint32_t>(data.size());
    return target->execute(command);
  }

  mstest::TemporaryFolder folder;
  std::string image;
  FileMedium medium;
  RecordedAdmin admin;
  std::unique_ptr<NvmeScsiTarget> target;
};

TEST_F(NvmeTranslation, RequestSenseReportsAPredictedFailureFromTheHealthLog) {
  std::vector<uint8_t> data(252, 0);
  admin.log = healthLog(0x02);  // temperature above threshold
  ScsiAnswer answer = send({0x03, 0, 0, 0, 252, 0}, data);
  ASSERT_EQ(answer.status, kStatusGood);
  EXPECT_EQ(answer.transferred, 18u);
  EXPECT_EQ(data[2] & 0x0F, kSenseNoSense);
  EXPECT_EQ(data[12], 0x5D);
  ASSERT_EQ(admin.asked.size(), 1u);
  EXPECT_EQ(admin.asked[0], 0x02);
  EXPECT_EQ(admin.askedNsid, 0xFFFFFFFFu);
}

TEST_F(NvmeTranslation, LogSenseInformationalExceptionsComesFromTheHealthLog) {
  std::vector<uint8_t> data(252, 0);
  ScsiAnswer answer = send({0x4D, 0, 0x40 | 0x2F, 0, 0, 0, 0, 0, 252, 0}, data);
  ASSERT_EQ(answer.status, kStatusGood);
  EXPECT_EQ(data[0], 0x2F);
  EXPECT_EQ(data[8], 0x00);
  EXPECT_EQ(data[10], 39);
}

// The module asks for the health with REQUEST SENSE for 252 bytes and with
// LOG SENSE page 2Fh whose CDB leaves the allocation length at 0 (both as the
// module builds them). The translation answers as SPC says: 18 bytes of fixed
// sense, and no data for an allocation length of 0; so the module reads no
// verdict from either route, whatever the controller's critical warning.
TEST_F(NvmeTranslation, TheModulesHealthCommandsGetWhatSpcGivesThemEvenWithACriticalWarning) {
  admin.log = healthLog(0x04);  // reliability degraded
  std::vector<uint8_t> sense(252, 0xEE);
  ScsiAnswer answer = send({0x03, 0, 0, 0, 252, 0, 0, 0, 0, 0}, sense);
  ASSERT_EQ(answer.status, kStatusGood);
  EXPECT_EQ(answer.transferred, 18u) << "fixed sense data, not the 252 bytes asked for";
  EXPECT_EQ(sense[12], 0x5D);
  EXPECT_EQ(sense[18], 0xEE) << "nothing written past the sense data";

  std::vector<uint8_t> page(252, 0xEE);
  answer = send({0x4D, 0, 0x40 | 0x2F, 0, 0, 0, 0, 0, 0, 0}, page);
  ASSERT_EQ(answer.status, kStatusGood);
  EXPECT_EQ(answer.transferred, 0u) << "an allocation length of 0 moves no data";
  EXPECT_EQ(page[0], 0xEE);
}

TEST_F(NvmeTranslation, AControllerThatDoesNotAnswerIsAHardwareError) {
  admin.answers = false;
  std::vector<uint8_t> data(252, 0);
  ScsiAnswer answer = send({0x4D, 0, 0x40 | 0x0D, 0, 0, 0, 0, 0, 252, 0}, data);
  ASSERT_EQ(answer.status, kStatusCheckCondition);
  EXPECT_EQ(answer.sense[2] & 0x0F, kSenseHardwareError);
}

TEST_F(NvmeTranslation, AnUnknownLogPageIsAnInvalidFieldAndInquiryIsTheBlockDevices) {
  std::vector<uint8_t> data(252, 0);
  ScsiAnswer refused = send({0x4D, 0, 0x40 | 0x10, 0, 0, 0, 0, 0, 252, 0}, data);
  ASSERT_EQ(refused.status, kStatusCheckCondition);
  EXPECT_EQ(refused.sense[12], 0x24);
  std::vector<uint8_t> inquiry(36, 0);
  ScsiAnswer answer = send({0x12, 0, 0, 0, 36, 0}, inquiry);
  ASSERT_EQ(answer.status, kStatusGood);
  EXPECT_EQ(std::string(inquiry.begin() + 8, inquiry.begin() + 12), "NVMe");
  EXPECT_EQ(std::string(inquiry.begin() + 16, inquiry.begin() + 32), "Samsung SSD 970 ");
}

}  // namespace
}  // namespace linux_host
