// The protocols end to end on the simulated PC: each disk of the machine is
// opened through the Win32 seam, its transports are the real bridges over the
// real senders, and what comes back is what the drive's profile says. The
// SMART status test then gives its verdict on drives that are healthy and on
// drives past a threshold.
#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <vector>

#include "commands/bridges/ata_bridge.h"
#include "commands/bridges/sat_bridge.h"
#include "commands/bridges/scsi_bridge.h"
#include "components/storage_component.h"
#include "diagnostics/smart_status.h"
#include "protocols/ata_protocol.h"
#include "protocols/scsi_protocol.h"
#include "sim/machine.h"
#include "sim/windows/face.h"
#include "testing/recording_host.h"
#include "testing/scripted_ata_bridge.h"
#include "win32/win32.h"

namespace {

// Index of each disk of the built-in machine.
constexpr int kHdd0 = 0;
constexpr int kSsd0 = 1;
constexpr int kNvme0 = 2;
constexpr int kSas0 = 3;
constexpr int kUsb0 = 4;

// A PC whose disks are opened as \\.\PhysicalDriveN; every handle is closed
// and the machine taken away at the end.
class SimulatedMachine : public ::testing::Test {
 protected:
  void TearDown() override {
    for (HANDLE handle : handles) CloseHandle(handle);
    sim::uninstallMachine();
  }

  void installDefault() {
    std::string error;
    ASSERT_TRUE(sim::installMachine(sim::Machine::defaultMachine(), &error)) << error;
  }

  void installJson(const std::string& json) {
    std::string error;
    auto machine = sim::Machine::fromJsonText(json, &error);
    ASSERT_NE(machine, nullptr) << error;
    ASSERT_TRUE(sim::installMachine(std::move(machine), &error)) << error;
  }

  HANDLE open(int disk) {
    const std::string path = "\\\\.\\PhysicalDrive" + std::to_string(disk);
    HANDLE handle = CreateFileA(path.c_str(), GENERIC_READ | GENERIC_WRITE, FILE_SHARE_READ | FILE_SHARE_WRITE,
                                nullptr, OPEN_EXISTING, 0, nullptr);
    EXPECT_NE(handle, INVALID_HANDLE_VALUE) << path;
    handles.push_back(handle);
    return handle;
  }

  // An ATA protocol as discovery makes one for an internal or USB disk: the
  // plain ATA transport first, then SAT with CK_COND on the SCSI transport.
  std::unique_ptr<AtaProtocol> ataProtocol(int disk) {
    HANDLE handle = open(disk);
    auto protocol = std::make_unique<AtaProtocol>();
    protocol->addTransport(std::make_shared<AtaBridge>(handle));
    auto scsi = std::make_shared<ScsiBridge>(handle);
    protocol->addTransport(std::make_shared<SatBridgeWithCkCondition>(scsi));
    protocol->setProtocolKind(kProtocolAta);
    return protocol;
  }

  template <class Protocol>
  std::unique_ptr<Protocol> scsiProtocol(int disk) {
    auto protocol = std::make_unique<Protocol>();
    protocol->addTransport(std::make_shared<ScsiBridge>(open(disk)));
    return protocol;
  }

  // Runs the SMART status test on an internal disk reached by `protocol`.
  // The keyed events and the log lines of the run are kept in `events` and
  // `lines`.
  uint32_t runSmartStatus(std::unique_ptr<StorageProtocol> protocol, uint32_t busKind) {
    protocol->setBusKind(busKind);
    StorageProtocolProperties ignored;
    protocol->getProperties(&ignored);
    StorageComponent disk(std::move(protocol), nullptr);
    disk.setLocation(kLocationInternal);
    disk.setBusKind(busKind);
    mstest::RecordingListener listener;
    mstest::RecordingLog log;
    mstest::ScriptedRunContext context(&disk, &listener, &log);
    SmartStatusTest test(ItemId(1, 1, 1));
    const uint32_t result = test.run(&context);
    events = listener.keyedEvents();
    lines = log.lines;
    return result;
  }

  // The operation codes that reached the drive `name` while its protocol
  // gave a verdict; the verdict in `healthy`.
  std::vector<uint8_t> healthQuery(StorageProtocol& protocol, const std::string& name, uint8_t* healthy) {
    sim::installedMachine()->journal().clear();
    *healthy = 7;
    EXPECT_EQ(protocol.getSmartStatus(healthy), kStatusOk);
    std::vector<uint8_t> opcodes;
    for (const sim::JournalEntry& entry : sim::installedMachine()->journal().commandsTo(name)) {
      opcodes.push_back(entry.opcode());
    }
    return opcodes;
  }

  std::vector<HANDLE> handles;
  std::vector<mstest::ProgressEvent> events;
  std::vector<mstest::LogLine> lines;
};

// --- Properties as the profiles say ------------------------------------------

TEST_F(SimulatedMachine, InternalHardDiskPropertiesComeFromItsProfile) {
  installDefault();
  auto protocol = ataProtocol(kHdd0);
  StorageProtocolProperties p;
  ASSERT_EQ(protocol->getProperties(&p), kStatusOk);
  EXPECT_EQ(p.model, "WDC WD10EZEX-08WN4A0");
  EXPECT_EQ(p.vendor, "Wdc");
  EXPECT_EQ(p.serialNumber, "WD-WCC6Y3KL5627");
  EXPECT_EQ(p.firmwareRevision, "01.01A01");
  EXPECT_EQ(p.sectorCount, 1953525168u);
  EXPECT_EQ(p.logicalSectorSize, 512u);
  EXPECT_EQ(p.physicalSectorSize, 4096u);
  EXPECT_EQ(p.rotationRate, 7200);
  EXPECT_FALSE(p.isSolidState);
  EXPECT_TRUE(p.lba48Supported);
  EXPECT_TRUE(p.smartSupported);
  EXPECT_TRUE(p.smartEnabled);
  EXPECT_TRUE(p.smartDataValid);
  EXPECT_TRUE(p.selfTestSupported);
  // The plain ATA transport answered and stayed in front.
  EXPECT_EQ(protocol->getTransports().size(), 2u);
  EXPECT_NE(dynamic_cast<SatBridge*>(protocol->getTransports().back().get()), nullptr);
}

TEST_F(SimulatedMachine, SolidStateDiskIsSolidStateWithoutARotationRate) {
  installDefault();
  auto protocol = ataProtocol(kSsd0);
  StorageProtocolProperties p;
  ASSERT_EQ(protocol->getProperties(&p), kStatusOk);
  EXPECT_EQ(p.model, "CT500MX500SSD1");
  EXPECT_EQ(p.serialNumber, "1904E1E4A6B2");
  EXPECT_EQ(p.firmwareRevision, "M3CR023");
  EXPECT_EQ(p.sectorCount, 976773168u);
  EXPECT_EQ(p.physicalSectorSize, 4096u);
  EXPECT_TRUE(p.isSolidState);
  EXPECT_EQ(p.rotationRate, 0);
  EXPECT_TRUE(p.smartSupported);
}

TEST_F(SimulatedMachine, UsbDiskBehindASatBridgeIsReachedThroughTheSecondTransport) {
  installDefault();
  auto protocol = ataProtocol(kUsb0);
  StorageProtocolProperties p;
  ASSERT_EQ(protocol->getProperties(&p), kStatusOk);
  EXPECT_EQ(p.model, "WDC WD20SDRW-11VUUS0");
  EXPECT_EQ(p.serialNumber, "WD-WX21A17R4PLD");
  EXPECT_EQ(p.sectorCount, 3907029168u);
  EXPECT_EQ(p.rotationRate, 5400);
  EXPECT_TRUE(p.smartSupported);
  // The port has no ATA path for a USB disk: SAT moved to the front.
  EXPECT_NE(dynamic_cast<SatBridge*>(protocol->getTransports().front().get()), nullptr);
  uint8_t celsius = 0;
  EXPECT_EQ(protocol->getTemperature(&celsius), kStatusOk);
  EXPECT_EQ(celsius, 39);
}

TEST_F(SimulatedMachine, SasDiskPropertiesComeFromItsInquiryAndCapacity) {
  installDefault();
  auto protocol = scsiProtocol<ScsiProtocol>(kSas0);
  protocol->setBusKind(kBusScsi);
  StorageProtocolProperties p;
  ASSERT_EQ(protocol->getProperties(&p), kStatusOk);
  EXPECT_EQ(p.vendor, "SEAGATE ");
  EXPECT_EQ(p.model, "ST4000NM0025    ");
  EXPECT_EQ(p.firmwareRevision, "E001");
  EXPECT_EQ(p.serialNumber, "ZC1A2B3C0000R8141VBK");
  // READ CAPACITY gives the last address, taken as it stands.
  EXPECT_EQ(p.sectorCount, 7814037167u);
  EXPECT_EQ(p.logicalSectorSize, 512u);
  EXPECT_EQ(p.rotationRate, 7200);
  EXPECT_FALSE(p.isSolidState);
  EXPECT_EQ(p.standardVersion, "SCSI Primary Commands 4 - SPC-4");
  uint8_t celsius = 0;
  EXPECT_EQ(protocol->getTemperature(&celsius), kStatusOk);
  EXPECT_EQ(celsius, 34);
}

TEST_F(SimulatedMachine, NvmeDiskThroughTheTranslationIsSolidStateWithSmartInTheCache) {
  installDefault();
  auto protocol = scsiProtocol<NvmeScsiProtocol>(kNvme0);
  protocol->setBusKind(kBusNvme);
  StorageProtocolProperties p;
  ASSERT_EQ(protocol->getProperties(&p), kStatusOk);
  EXPECT_EQ(p.vendor, "NVMe    ");
  EXPECT_EQ(p.model, "Samsung SSD 970 ");
  EXPECT_EQ(p.firmwareRevision, "2B2Q");
  EXPECT_EQ(p.serialNumber, "0025_3858_1B40_C0DE.");
  EXPECT_EQ(p.sectorCount, 1953525167u);
  EXPECT_TRUE(p.isSolidState);
  StorageProtocolProperties cached;
  protocol->getCachedProperties(&cached);
  EXPECT_TRUE(cached.smartSupported);
  EXPECT_FALSE(cached.selfTestSupported);
}

// --- Edge cases on a simulated device --------------------------------------------

TEST_F(SimulatedMachine, BadSectorReadThroughThePlainTransportGivesMediaError) {
  installDefault();  // hdd0 cannot read sector 193536017
  auto protocol = ataProtocol(kHdd0);
  StorageProtocolProperties p;
  ASSERT_EQ(protocol->getProperties(&p), kStatusOk);
  std::vector<uint8_t> buffer(512);
  EXPECT_EQ(protocol->readSectors(193536017, 1, 30, buffer.data()), kStatusMediaError);
  EXPECT_EQ(protocol->readSectors(193536000, 1, 30, buffer.data()), kStatusOk);
}

TEST_F(SimulatedMachine, BadSectorReadThroughASatBridgeGivesMediaError) {
  installJson(R"({"disks": [{"name": "u", "kind": "ata", "bus": "usb",
      "profile": {"model": "ST1000LM035-1RK172", "capacitySectors": 100000},
      "bridge": {"type": "sat"}, "faults": {"unreadableSectors": [4242]}}]})");
  auto protocol = ataProtocol(0);
  StorageProtocolProperties p;
  ASSERT_EQ(protocol->getProperties(&p), kStatusOk);
  std::vector<uint8_t> buffer(512);
  EXPECT_EQ(protocol->readSectors(4242, 1, 30, buffer.data()), kStatusMediaError);
  EXPECT_EQ(protocol->readSectors(4241, 1, 30, buffer.data()), kStatusOk);
}

TEST_F(SimulatedMachine, ReadOf300SectorsOnADriveWithout48BitReadsFortyFour) {
  installJson(R"({"disks": [{"name": "old", "kind": "ata", "bus": "sata",
      "profile": {"model": "ST340014A", "capacitySectors": 78165360, "lba48": false}}]})");
  auto protocol = ataProtocol(0);
  StorageProtocolProperties p;
  ASSERT_EQ(protocol->getProperties(&p), kStatusOk);
  ASSERT_FALSE(p.lba48Supported);
  std::vector<uint8_t> buffer(512 * 300, 0xEE);
  EXPECT_EQ(protocol->readSectors(0, 300, 30, buffer.data()), kStatusOk);
  // 44 sectors came (zeros of a fresh medium); the rest of the buffer is untouched.
  EXPECT_EQ(buffer[512 * 44 - 1], 0);
  EXPECT_EQ(buffer[512 * 44], 0xEE);
}

TEST_F(SimulatedMachine, SelfTestLogsOfTheHardDiskGiveTheFailingAddress) {
  installDefault();
  auto protocol = ataProtocol(kHdd0);
  uint64_t lba = 0;
  EXPECT_EQ(protocol->getSelfTestFailingLba(&lba), kStatusOk);
  EXPECT_EQ(lba, 193536017u);
  std::vector<SmartAttribute> attributes;
  ASSERT_EQ(protocol->readSmartAttributes(&attributes), kStatusOk);
  ASSERT_EQ(attributes.size(), 16u);
  EXPECT_EQ(attributes[0].id, 1);
  EXPECT_EQ(attributes[0].threshold, 51);
}

TEST_F(SimulatedMachine, SasDiskAnswersRead16AndTheFailingLbaIsReadLowestByteFirst) {
  installJson(R"({"disks": [{"name": "s", "kind": "scsi", "bus": "sas",
      "profile": {"capacitySectors": 1000,
                  "selfTest": {"log": [{"code": 1, "result": 7, "hours": 5, "failingLba": 4660}]}}}]})");
  auto protocol = scsiProtocol<ScsiProtocol>(0);
  StorageProtocolProperties p;
  ASSERT_EQ(protocol->getProperties(&p), kStatusOk);
  EXPECT_EQ(p.sectorCount, 999u);  // a 1000-sector disk
  std::vector<uint8_t> buffer(512);
  EXPECT_EQ(protocol->readSectors(998, 1, 30, buffer.data()), kStatusOk);
  uint8_t status = 0;
  EXPECT_EQ(protocol->getSelfTestStatus(&status), kStatusOk);
  EXPECT_EQ(status, 7);
  uint64_t lba = 0;
  EXPECT_EQ(protocol->getSelfTestFailingLba(&lba), kStatusOk);
  EXPECT_EQ(lba, 0x3412000000000000ull);  // 4660 = 0x1234, big-endian on the page
}

// --- The SMART verdict --------------------------------------------------------

TEST_F(SimulatedMachine, SmartStatusTestPassesTheHealthyAtaDisks) {
  installDefault();
  EXPECT_EQ(runSmartStatus(ataProtocol(kHdd0), kBusAta), SUCCESS);
  EXPECT_EQ(runSmartStatus(ataProtocol(kSsd0), kBusAta), SUCCESS);
}

TEST_F(SimulatedMachine, SmartStatusTestFailsAnAtaDiskPastItsThreshold) {
  installJson(R"({"disks": [{"name": "worn", "kind": "ata", "bus": "sata",
      "profile": {"model": "ST3500418AS", "capacitySectors": 976773168,
                  "smart": {"attributes": [
                    {"id": 5, "flags": 51, "value": 100, "worst": 100, "raw": 900, "threshold": 140}]}}}]})");
  EXPECT_EQ(runSmartStatus(ataProtocol(0), kBusAta), FAILED);
}

// A transport that carries the command but brings no registers back (all
// zeros, no signature): the ATA verdict comes from the platform's prediction
// of the same disk, and its answer stands.
TEST_F(SimulatedMachine, AtaSmartStatusWithoutASignatureFallsBackToThePlatformsPredictionWhichAnswers) {
  installJson(R"({"disks": [
      {"name": "good", "kind": "ata", "bus": "sata", "profile": {"capacitySectors": 1000}},
      {"name": "worn", "kind": "ata", "bus": "sata", "profile": {"capacitySectors": 1000,
        "smart": {"attributes": [{"id": 5, "flags": 51, "value": 100, "worst": 100, "raw": 900, "threshold": 140}]}}}]})");
  for (int disk : {0, 1}) {
    auto silent = std::make_shared<mstest::ScriptedAtaBridge>(open(disk));
    silent->queue(mstest::AtaAnswer());
    AtaProtocol protocol;
    protocol.addTransport(silent);
    uint8_t healthy = 7;
    EXPECT_EQ(protocol.getSmartStatus(&healthy), kStatusOk) << disk;
    EXPECT_EQ(healthy, disk == 0 ? 1 : 0) << disk;
    EXPECT_EQ(silent->sent.size(), 1u) << disk;
  }
}

TEST_F(SimulatedMachine, SasDiskSmartVerdictFollowsItsFailurePrediction) {
  installJson(R"({"disks": [
      {"name": "good", "kind": "scsi", "bus": "sas", "profile": {"capacitySectors": 1000}},
      {"name": "bad", "kind": "scsi", "bus": "sas", "profile": {"capacitySectors": 1000, "failurePredicted": true}}]})");
  uint8_t healthy = 7;
  EXPECT_EQ(scsiProtocol<ScsiProtocol>(0)->getSmartStatus(&healthy), kStatusOk);
  EXPECT_EQ(healthy, 1);
  EXPECT_EQ(scsiProtocol<ScsiProtocol>(1)->getSmartStatus(&healthy), kStatusOk);
  EXPECT_EQ(healthy, 0);
}

// The informational-exceptions page is asked for with an allocation length of
// 0 (the CDB is built before the length is stored, and that stays). A drive
// that follows SPC answers such a MODE SENSE with no data, so SMART is not
// seen as supported on a SAS disk and the test does not apply.
TEST_F(SimulatedMachine, SmartStatusTestDoesNotApplyToASasDiskThatAnswersTheZeroLengthModeSense) {
  installJson(R"({"disks": [{"name": "sas", "kind": "scsi", "bus": "sas", "profile": {"capacitySectors": 1000}}]})");
  EXPECT_EQ(runSmartStatus(scsiProtocol<ScsiProtocol>(0), kBusScsi), NOT_APPLICABLE);
  EXPECT_EQ(events, (std::vector<mstest::ProgressEvent>{{100, "SMART_NOT_SUPPORTED"}}));
  EXPECT_EQ(lines, (std::vector<mstest::LogLine>{{"SMART_NOT_SUPPORTED", LevelError}}));
}

// Neither health route of the NVMe translation can give a verdict: REQUEST
// SENSE brings the 18 bytes of fixed sense where 252 are required, and the
// zero-length LOG SENSE brings nothing. The query fails, so the test ends
// NOT_APPLICABLE whether the drive is healthy or not.
TEST_F(SimulatedMachine, SmartStatusTestOnNvmeEndsNotApplicableAsNeitherHealthRouteAnswers) {
  installDefault();
  auto protocol = scsiProtocol<NvmeScsiProtocol>(kNvme0);
  uint8_t healthy = 7;
  EXPECT_NE(protocol->getSmartStatus(&healthy), kStatusOk);
  EXPECT_EQ(runSmartStatus(scsiProtocol<NvmeScsiProtocol>(kNvme0), kBusNvme), NOT_APPLICABLE);
  // A failed query is no refusal: no key reaches the host, no line the log.
  EXPECT_TRUE(events.empty());
  EXPECT_TRUE(lines.empty());
}

// --- Targets with healthQuirks: both health routes answer ---------------------

constexpr uint8_t kLogSenseOpcode = 0x4D;
constexpr uint8_t kRequestSenseOpcode = 0x03;

// A SAS target that answers the zero-length MODE SENSE and LOG SENSE with the
// whole page and gives 252 bytes of sense: SMART is supported, and the log
// route gives the verdict, confirmed by the sense route when it is healthy.
TEST_F(SimulatedMachine, SasTargetWithHealthQuirksIsHealthyThroughTheLogAndTheSenseRoute) {
  installJson(R"({"disks": [{"name": "sas", "kind": "scsi", "bus": "sas",
      "profile": {"capacitySectors": 1000, "healthQuirks": true}}]})");
  auto protocol = scsiProtocol<ScsiProtocol>(0);
  StorageProtocolProperties properties;
  ASSERT_EQ(protocol->getProperties(&properties), kStatusOk);
  EXPECT_TRUE(properties.smartSupported);
  uint8_t healthy = 0;
  EXPECT_EQ(healthQuery(*protocol, "sas", &healthy), (std::vector<uint8_t>{kLogSenseOpcode, kRequestSenseOpcode}));
  EXPECT_EQ(healthy, 1);
  EXPECT_EQ(runSmartStatus(std::move(protocol), kBusScsi), SUCCESS);
  EXPECT_TRUE(events.empty());
  EXPECT_TRUE(lines.empty());
}

TEST_F(SimulatedMachine, SasTargetWithHealthQuirksFailsThroughTheLogRouteOnAsc5D) {
  installJson(R"({"disks": [{"name": "sas", "kind": "scsi", "bus": "sas",
      "profile": {"capacitySectors": 1000, "healthQuirks": true, "failurePredicted": true}}]})");
  auto protocol = scsiProtocol<ScsiProtocol>(0);
  uint8_t healthy = 1;
  // The log page's 0x5D decides; the sense route is not asked.
  EXPECT_EQ(healthQuery(*protocol, "sas", &healthy), (std::vector<uint8_t>{kLogSenseOpcode}));
  EXPECT_EQ(healthy, 0);
  EXPECT_EQ(runSmartStatus(std::move(protocol), kBusScsi), FAILED);
  EXPECT_TRUE(events.empty());
  EXPECT_TRUE(lines.empty());
}

TEST_F(SimulatedMachine, NvmeTranslationWithHealthQuirksIsHealthyThroughTheSenseRoute) {
  installJson(R"({"disks": [{"name": "nvme", "kind": "nvme", "profile": {"capacitySectors": 1000,
      "healthQuirks": true}}]})");
  auto protocol = scsiProtocol<NvmeScsiProtocol>(0);
  uint8_t healthy = 0;
  EXPECT_EQ(healthQuery(*protocol, "nvme", &healthy), (std::vector<uint8_t>{kRequestSenseOpcode}));
  EXPECT_EQ(healthy, 1);
  EXPECT_EQ(runSmartStatus(std::move(protocol), kBusNvme), SUCCESS);
  EXPECT_TRUE(events.empty());
}

TEST_F(SimulatedMachine, NvmeTranslationWithHealthQuirksFailsThroughTheSenseRouteOnAscD5) {
  installJson(R"({"disks": [{"name": "nvme", "kind": "nvme", "profile": {"capacitySectors": 1000,
      "healthQuirks": true, "health": {"criticalWarning": 1}}}]})");
  auto protocol = scsiProtocol<NvmeScsiProtocol>(0);
  uint8_t healthy = 1;
  // The sense data's vendor ASC 0xD5 decides; the log route is not asked.
  EXPECT_EQ(healthQuery(*protocol, "nvme", &healthy), (std::vector<uint8_t>{kRequestSenseOpcode}));
  EXPECT_EQ(healthy, 0);
  EXPECT_EQ(runSmartStatus(std::move(protocol), kBusNvme), FAILED);
  EXPECT_TRUE(events.empty());
  EXPECT_TRUE(lines.empty());
}

// The same failing SAS target reached through its sense route alone: the
// NVMe order asks the sense first, and the 0xD5 there is the verdict.
TEST_F(SimulatedMachine, SasTargetWithHealthQuirksAskedSenseFirstFailsOnAscD5) {
  installJson(R"({"disks": [{"name": "sas", "kind": "scsi", "bus": "sas",
      "profile": {"capacitySectors": 1000, "healthQuirks": true, "failurePredicted": true}}]})");
  auto protocol = scsiProtocol<NvmeScsiProtocol>(0);
  uint8_t healthy = 1;
  EXPECT_EQ(healthQuery(*protocol, "sas", &healthy), (std::vector<uint8_t>{kRequestSenseOpcode}));
  EXPECT_EQ(healthy, 0);
}

}  // namespace
