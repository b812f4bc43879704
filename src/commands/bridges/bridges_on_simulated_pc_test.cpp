// The senders and bridges end to end on the simulated PC: each disk is opened
// as \\.\PhysicalDriveN through the Win32 seam, real command objects go
// through the real bridges and senders, and what comes back is held byte for
// byte against the simulated drive's profile: the identity words of IDENTIFY
// DEVICE, the Status and Error registers, the sense key and additional sense,
// and the lengths moved. The journal of the simulated PC shows what reached
// each device, and what did not.
#include <gtest/gtest.h>

#include <array>
#include <cstring>
#include <memory>
#include <string>
#include <vector>

#include "commands/ata/ata_commands.h"
#include "commands/bridges/ata_bridge.h"
#include "commands/bridges/sat_bridge.h"
#include "commands/bridges/scsi_bridge.h"
#include "commands/bridges/vendor_bridges.h"
#include "commands/hal/hal_ata_send.h"
#include "commands/hal/hal_scsi_send.h"
#include "commands/scsi/read_write_commands.h"
#include "commands/scsi/sat_pass_through.h"
#include "commands/scsi/scsi_commands.h"
#include "commands/scsi/sense_data.h"
#include "commands/status_codes.h"
#include "sim/journal.h"
#include "sim/machine.h"
#include "sim/windows/face.h"
#include "win32/win32.h"

namespace {

// Disks of the built-in machine, by the number Windows gives them.
constexpr int kHdd0 = 0;
constexpr int kSas0 = 3;
constexpr int kUsb0 = 4;
constexpr int kUsb1 = 5;

// The hard disk's first pending sector (its profile lists it unreadable).
constexpr uint64_t kHdd0PendingLba = 193536017;  // 0x0B892011

// A machine with the bridges the built-in one lacks: a SAT bridge that ignores
// CK_COND, a Sunplus chip, a SAS disk with a bad sector on stamped media, and
// a SAT bridge whose link fails from its first command on.
constexpr int kNoCkCond = 0;
constexpr int kSunplus = 1;
constexpr int kSas1 = 2;
constexpr int kFlakyLink = 3;
constexpr uint64_t kNoCkCondBadLba = 5000;
constexpr uint64_t kSas1BadLba = 1003;

const char* const kBridgeMachine = R"JSON({
  "name": "bridges",
  "disks": [
    {"name": "nock", "kind": "ata", "bus": "usb",
     "profile": {"model": "ST2000DM008-2FR102", "serial": "ZFL0AB12", "firmware": "0001",
                 "capacitySectors": 3907029168},
     "faults": {"unreadableSectors": [5000]},
     "bridge": {"type": "sat-no-ckcond", "vendor": "Seagate", "product": "Expansion", "revision": "0710"}},
    {"name": "sunplus0", "kind": "ata", "bus": "usb",
     "profile": {"model": "Hitachi HTS545032B9A300", "serial": "091020PB4200SVG3R8VC", "firmware": "PB4OC60F",
                 "capacitySectors": 625142448},
     "bridge": {"type": "sunplus", "vendor": "Sunplus", "product": "SPIF215", "revision": "0100"}},
    {"name": "sas1", "kind": "scsi", "bus": "sas",
     "profile": {"vendor": "HGST", "product": "HUC101860CSS200", "revision": "A3B0", "serial": "0BG4X1AB",
                 "capacitySectors": 1172123568},
     "faults": {"unreadableSectors": [1003]},
     "media": {"fill": "lba"}},
    {"name": "flaky", "kind": "ata", "bus": "usb",
     "profile": {"model": "TOSHIBA MQ04UBF100", "serial": "X9Q1PB2QT", "firmware": "JU000U", "capacitySectors": 1953525168},
     "bridge": {"type": "sat", "faults": {"transportFailFrom": 1}}}
  ]
})JSON";

// An ATA string of IDENTIFY DEVICE as it stands in the block: each word holds
// two characters, the first in its high byte.
std::string identifyText(const std::vector<uint8_t>& block, int firstWord, int words) {
  std::string text;
  for (int w = firstWord; w < firstWord + words; ++w) {
    text += static_cast<char>(block[2 * w + 1]);
    text += static_cast<char>(block[2 * w]);
  }
  return text;
}

uint16_t identifyWord(const std::vector<uint8_t>& block, int word) {
  return static_cast<uint16_t>(block[2 * word] | block[2 * word + 1] << 8);
}

// `text` blank-padded to the width of its field, as the drive writes it.
std::string padded(const std::string& text, size_t width) { return text + std::string(width - text.size(), ' '); }

// The identity words of a drive's IDENTIFY DEVICE against its profile.
void expectIdentity(const std::vector<uint8_t>& block, const std::string& model, const std::string& serial,
                    const std::string& firmware, uint64_t sectors) {
  EXPECT_EQ(identifyText(block, 27, 20), padded(model, 40));
  EXPECT_EQ(identifyText(block, 10, 10), padded(serial, 20));
  EXPECT_EQ(identifyText(block, 23, 4), padded(firmware, 8));
  uint64_t capacity = 0;
  for (int i = 0; i < 4; ++i) capacity |= uint64_t{identifyWord(block, 100 + i)} << (16 * i);
  EXPECT_EQ(capacity, sectors);
  // Word 255: the integrity signature 0xA5 and a checksum that makes the
  // block sum to zero.
  EXPECT_EQ(block[510], 0xA5);
  uint8_t sum = 0;
  for (uint8_t b : block) sum = static_cast<uint8_t>(sum + b);
  EXPECT_EQ(sum, 0);
}

// The twelve task-file registers of the record, for whole-record checks:
// features featuresExt sectorCount sectorCountExt lbaLow lbaLowExt lbaMid
// lbaMidExt lbaHigh lbaHighExt device command.
std::array<uint8_t, 12> registersOf(const AtaCmd& cmd) {
  return {cmd.features, cmd.featuresExt, cmd.sectorCount, cmd.sectorCountExt, cmd.lbaLow, cmd.lbaLowExt,
          cmd.lbaMid,   cmd.lbaMidExt,   cmd.lbaHigh,     cmd.lbaHighExt,     cmd.device, cmd.command};
}

// The CDB of a journal entry, as many bytes as were sent.
std::vector<uint8_t> cdbOf(const sim::JournalEntry& entry) {
  return std::vector<uint8_t>(entry.bytes.begin(), entry.bytes.begin() + entry.length);
}

class BridgesOnSimulatedPc : public ::testing::Test {
 protected:
  void TearDown() override {
    for (HANDLE handle : handles) CloseHandle(handle);
    sim::uninstallMachine();
  }

  void installDefault() {
    std::string error;
    ASSERT_TRUE(sim::installMachine(sim::Machine::defaultMachine(), &error)) << error;
  }

  void installBridgeMachine() {
    std::string error;
    auto machine = sim::Machine::fromJsonText(kBridgeMachine, &error);
    ASSERT_NE(machine, nullptr) << error;
    ASSERT_TRUE(sim::installMachine(std::move(machine), &error)) << error;
  }

  sim::Journal& journal() { return sim::installedMachine()->journal(); }

  HANDLE open(int disk) {
    const std::string narrow = "\\\\.\\PhysicalDrive" + std::to_string(disk);
    const std::u16string path(narrow.begin(), narrow.end());  // ASCII widens unchanged
    HANDLE handle = CreateFileW(path.c_str(), GENERIC_READ | GENERIC_WRITE, FILE_SHARE_READ | FILE_SHARE_WRITE,
                                nullptr, OPEN_EXISTING, 0, nullptr);
    EXPECT_NE(handle, INVALID_HANDLE_VALUE) << "PhysicalDrive" << disk;
    handles.push_back(handle);
    return handle;
  }

  // The SCSI transport of a disk, as discovery shares it among the bridges.
  std::shared_ptr<ScsiBridge> scsiTransport(int disk) { return std::make_shared<ScsiBridge>(open(disk)); }

  std::vector<HANDLE> handles;
};

// --- The plain ATA sender ------------------------------------------------------

TEST_F(BridgesOnSimulatedPc, IdentifyThroughThePlainAtaSenderBringsTheProfilesIdentity) {
  installDefault();
  HANDLE disk = open(kHdd0);
  std::vector<uint8_t> block(512, 0xCC);
  IdentifyDevice identify(block.data());
  ASSERT_EQ(getHalAtaSend()->send(disk, identify), kStatusOk);
  EXPECT_EQ(identify.dataLength, 512u);
  expectIdentity(block, "WDC WD10EZEX-08WN4A0", "WD-WCC6Y3KL5627", "01.01A01", 1953525168);
  EXPECT_EQ(identifyWord(block, 106), 0x6003);  // 4096-byte physical sectors: 2^3 logical ones
  EXPECT_EQ(identifyWord(block, 217), 7200);
  // The sender brings the registers back whatever the command wants: DRDY
  // and DSC, no error, the count echoed.
  EXPECT_EQ(identify.status(), 0x50);
  EXPECT_EQ(identify.error(), 0);
  EXPECT_EQ(identify.sectorCount, 1);
  // One IDENTIFY reached the drive, and nothing reached its translation.
  EXPECT_EQ(journal().opcodesTo("hdd0"), std::vector<uint8_t>{kAtaIdentifyDevice});
  EXPECT_TRUE(journal().commandsTo("hdd0.scsi").empty());
}

TEST_F(BridgesOnSimulatedPc, IdentifyThroughThePlainAtaBridgeIsTheSendersAnswer) {
  installDefault();
  HANDLE disk = open(kHdd0);
  std::vector<uint8_t> bySender(512, 0);
  IdentifyDevice direct(bySender.data());
  ASSERT_EQ(getHalAtaSend()->send(disk, direct), kStatusOk);

  AtaBridge bridge(disk);
  EXPECT_EQ(bridge.getHandle(), disk);
  std::vector<uint8_t> byBridge(512, 0xCC);
  IdentifyDevice identify(byBridge.data());
  ASSERT_EQ(bridge.send(identify), kStatusOk);
  EXPECT_EQ(byBridge, bySender);
  EXPECT_EQ(registersOf(identify), registersOf(direct));
}

TEST_F(BridgesOnSimulatedPc, ReadThatReturnsNoDataGivesEightyNineWithTheDrivesRegistersInTheRecord) {
  installDefault();
  AtaBridge bridge(open(kHdd0));
  std::vector<uint8_t> data(512, 0xCC);
  ReadSectorsExt read(kHdd0PendingLba, 1, 512, data.data(), 30);
  EXPECT_EQ(bridge.send(read), kStatusNoData);
  // ERR with UNC, and the LBA registers name the failing sector; the
  // previous-value registers are not read back and keep what was sent.
  EXPECT_EQ(read.status(), 0x51);
  EXPECT_EQ(read.error(), kAtaErrorUnc);
  EXPECT_EQ(read.lbaLow, 0x11);
  EXPECT_EQ(read.lbaMid, 0x20);
  EXPECT_EQ(read.lbaHigh, 0x89);
  EXPECT_EQ(read.lbaLowExt, 0x0B);
  EXPECT_EQ(read.device, kAtaDeviceLba);
  EXPECT_EQ(read.dataLength, 512u);  // the requested length stays
  for (uint8_t b : data) ASSERT_EQ(b, 0xCC);
}

TEST_F(BridgesOnSimulatedPc, ReadBrokenOffByABadSectorKeepsTheSectorsBeforeItAndIsNotEightyNine) {
  installDefault();
  AtaBridge bridge(open(kHdd0));
  std::vector<uint8_t> data(4 * 512, 0xCC);
  // The third of four sectors is the bad one: two sectors arrive.
  ReadSectorsExt read(kHdd0PendingLba - 2, 4, 512, data.data(), 30);
  EXPECT_EQ(bridge.send(read), kStatusOk);
  EXPECT_EQ(read.status() & kAtaStatusErr, kAtaStatusErr);
  EXPECT_EQ(read.error(), kAtaErrorUnc);
  EXPECT_EQ(read.lbaLow, 0x11);
  EXPECT_EQ(read.dataLength, 1024u);
  for (size_t i = 0; i < 1024; ++i) ASSERT_EQ(data[i], 0) << i;  // never-written sectors read as zeros
  for (size_t i = 1024; i < data.size(); ++i) ASSERT_EQ(data[i], 0xCC) << i;
}

TEST_F(BridgesOnSimulatedPc, NonDataCommandsOnThePlainSenderNeverGiveEightyNine) {
  installDefault();
  AtaBridge bridge(open(kHdd0));
  SmartReturnStatus status;
  EXPECT_EQ(bridge.send(status), kStatusOk);
  EXPECT_EQ(status.lbaMid, kSmartSignatureLbaMid);
  EXPECT_EQ(status.lbaHigh, kSmartSignatureLbaHigh);
  EXPECT_EQ(status.status(), 0x50);
  // A refused non-data command: ERR and ABRT in the record, still 0.
  SmartExecuteOffline reserved(0x10, 0);
  EXPECT_EQ(bridge.send(reserved), kStatusOk);
  EXPECT_EQ(reserved.status(), 0x51);
  EXPECT_EQ(reserved.error(), kAtaErrorAbrt);
}

TEST_F(BridgesOnSimulatedPc, FeaturesExtNeverReachesTheDeviceThroughThePlainSender) {
  installDefault();
  AtaBridge bridge(open(kHdd0));
  std::vector<uint8_t> data(0x0102 * 512);
  ReadSectorsExt read(0x0000123456789AULL, 0x0102, 512, data.data(), 30);
  read.featuresExt = 0xA5;
  // Past the end of the disk: the drive refuses with IDNF, after the task
  // file has reached it.
  EXPECT_EQ(bridge.send(read), kStatusNoData);
  EXPECT_EQ(read.error(), kAtaErrorIdnf);
  const auto commands = journal().commandsTo("hdd0");
  ASSERT_EQ(commands.size(), 1u);
  // feature count lbaLow lbaMid lbaHigh device command, then the previous
  // values featureExp countExp lbaLowExp lbaMidExp lbaHighExp.
  const std::array<uint8_t, 12> expected = {0x00, 0x02, 0x9A, 0x78, 0x56, 0x40, 0x24, 0x00, 0x01, 0x34, 0x12, 0x00};
  EXPECT_TRUE(std::equal(expected.begin(), expected.end(), commands[0].bytes.begin()));
}

TEST_F(BridgesOnSimulatedPc, PlainAtaSenderIsRefusedOnAUsbDiskWithThirtyFour) {
  installDefault();
  AtaBridge bridge(open(kUsb0));
  std::vector<uint8_t> block(512, 0xCC);
  IdentifyDevice identify(block.data());
  EXPECT_EQ(bridge.send(identify), kStatusIoctlFailed);
  // The record is as it was built.
  EXPECT_EQ(identify.command, kAtaIdentifyDevice);
  EXPECT_EQ(identify.dataLength, 512u);
  EXPECT_TRUE(journal().commandsTo("usb0").empty());
}

// --- SAT with CK_COND -------------------------------------------------------------

TEST_F(BridgesOnSimulatedPc, IdentifyThroughSatWithCkCondBringsTheProfilesIdentity) {
  installDefault();
  auto scsi = scsiTransport(kUsb0);
  SatBridgeWithCkCondition bridge(scsi);
  EXPECT_EQ(bridge.getHandle(), scsi->getHandle());
  std::vector<uint8_t> block(512, 0xCC);
  IdentifyDevice identify(block.data());
  ASSERT_EQ(bridge.send(identify), kStatusOk);
  EXPECT_EQ(identify.dataLength, 512u);
  expectIdentity(block, "WDC WD20SDRW-11VUUS0", "WD-WX21A17R4PLD", "01.01A01", 3907029168);
  // IDENTIFY does not want its registers: all of them are zero, Status too.
  EXPECT_EQ(registersOf(identify), (std::array<uint8_t, 12>{}));
  // ATA PASS-THROUGH(12), PIO data-in, with T_LENGTH in the count, BYT_BLOK,
  // T_DIR, CK_COND and OFF_LINE 1; the drive behind got the IDENTIFY.
  const auto cdbs = journal().commandsTo("usb0.bridge");
  ASSERT_EQ(cdbs.size(), 1u);
  EXPECT_EQ(cdbOf(cdbs[0]), (std::vector<uint8_t>{0xA1, 0x08, 0x6E, 0, 1, 0, 0, 0, 0, 0xEC, 0, 0}));
  EXPECT_EQ(cdbs[0].status, kScsiStatusCheckCondition);  // CK_COND: the registers come in sense
  EXPECT_EQ(journal().opcodesTo("usb0"), std::vector<uint8_t>{kAtaIdentifyDevice});
}

TEST_F(BridgesOnSimulatedPc, IdentifyThroughThePortsSatWithCkCondEqualsThePlainSendersBlock) {
  installDefault();
  HANDLE disk = open(kHdd0);
  std::vector<uint8_t> plain(512, 0);
  IdentifyDevice direct(plain.data());
  ASSERT_EQ(getHalAtaSend()->send(disk, direct), kStatusOk);

  auto scsi = std::make_shared<ScsiBridge>(disk);
  SatBridgeWithCkCondition bridge(scsi);
  std::vector<uint8_t> translated(512, 0xCC);
  IdentifyDevice identify(translated.data());
  ASSERT_EQ(bridge.send(identify), kStatusOk);
  EXPECT_EQ(identify.dataLength, 512u);
  EXPECT_EQ(translated, plain);
}

TEST_F(BridgesOnSimulatedPc, SmartReturnStatusWithCkCondBringsTheSignatureBackInTheDescriptor) {
  installDefault();
  SatBridgeWithCkCondition bridge(scsiTransport(kUsb0));
  SmartReturnStatus status;
  ASSERT_EQ(bridge.send(status), kStatusOk);
  EXPECT_EQ(status.lbaMid, kSmartSignatureLbaMid);
  EXPECT_EQ(status.lbaHigh, kSmartSignatureLbaHigh);
  EXPECT_EQ(status.status(), 0x50);
  EXPECT_EQ(status.error(), 0);
  // ATA PASS-THROUGH(12), non-data: T_LENGTH 0 with T_DIR, BYT_BLOK, CK_COND
  // and OFF_LINE; RETURN STATUS with its signature.
  const auto cdbs = journal().commandsTo("usb0.bridge");
  ASSERT_EQ(cdbs.size(), 1u);
  EXPECT_EQ(cdbOf(cdbs[0]), (std::vector<uint8_t>{0xA1, 0x06, 0x6C, 0xDA, 0, 0, 0x4F, 0xC2, 0, 0xB0, 0, 0}));
}

TEST_F(BridgesOnSimulatedPc, TheDescriptorOfTheStatusReturnIsInTheSenseOfThePassThrough) {
  installDefault();
  auto scsi = scsiTransport(kUsb0);
  SmartReturnStatus status;
  SatAtaPassThrough12 passThrough(status, true);
  ASSERT_EQ(scsi->send(passThrough), kStatusOk);
  EXPECT_EQ(passThrough.scsiStatus, kScsiStatusCheckCondition);
  // Descriptor sense: RECOVERED ERROR, ATA PASS THROUGH INFORMATION AVAILABLE
  // (0x00/0x1D), and the fourteen bytes of the ATA Status Return.
  SenseData sense;
  ASSERT_EQ(sense.parse(passThrough.sense.data()), kStatusOk);
  EXPECT_EQ(sense.getResponseCode(), 0x72);
  EXPECT_EQ(sense.getSenseKey(), 0x01);
  EXPECT_EQ(sense.getAsc(), 0x00);
  EXPECT_EQ(sense.getAscq(), 0x1D);
  EXPECT_EQ(passThrough.senseLength, 8u + 14u);
  const std::vector<uint8_t> descriptor(passThrough.sense.begin() + 8, passThrough.sense.begin() + 22);
  EXPECT_EQ(descriptor, (std::vector<uint8_t>{0x09, 0x0C, 0, 0, 0, 0, 0, 0, 0, 0x4F, 0, 0xC2, 0, 0x50}));
}

// --- SAT without CK_COND ----------------------------------------------------------

TEST_F(BridgesOnSimulatedPc, IdentifyThroughSatWithoutCkCondBringsTheProfilesIdentity) {
  installBridgeMachine();
  SatBridgeWithoutCkCond bridge(scsiTransport(kNoCkCond));
  std::vector<uint8_t> block(512, 0xCC);
  IdentifyDevice identify(block.data());
  ASSERT_EQ(bridge.send(identify), kStatusOk);
  EXPECT_EQ(identify.dataLength, 512u);
  expectIdentity(block, "ST2000DM008-2FR102", "ZFL0AB12", "0001", 3907029168);
  EXPECT_EQ(registersOf(identify), (std::array<uint8_t, 12>{}));
  // The same CDB as with CK_COND, the bit clear: the answer is GOOD.
  const auto cdbs = journal().commandsTo("nock.bridge");
  ASSERT_EQ(cdbs.size(), 1u);
  EXPECT_EQ(cdbOf(cdbs[0]), (std::vector<uint8_t>{0xA1, 0x08, 0x4E, 0, 1, 0, 0, 0, 0, 0xEC, 0, 0}));
  EXPECT_EQ(cdbs[0].status, kScsiStatusGood);
}

TEST_F(BridgesOnSimulatedPc, GoodAnswerWithoutCkCondLeavesEveryRegisterZeroAndAsksNothingMore) {
  installBridgeMachine();
  SatBridgeWithoutCkCond bridge(scsiTransport(kNoCkCond));
  SmartReturnStatus status;
  ASSERT_EQ(bridge.send(status), kStatusOk);
  EXPECT_EQ(registersOf(status), (std::array<uint8_t, 12>{}));
  EXPECT_EQ(journal().commandsTo("nock.bridge").size(), 1u);
}

TEST_F(BridgesOnSimulatedPc, RefusedCommandWithoutCkCondFetchesItsRegistersByReturnResponseInformation) {
  installBridgeMachine();
  SatBridgeWithoutCkCond bridge(scsiTransport(kNoCkCond));
  SmartExecuteOffline reserved(0x10, 0);  // a reserved subcommand: the drive aborts it
  ASSERT_EQ(bridge.send(reserved), kStatusOk);
  EXPECT_EQ(reserved.status(), 0x51);
  EXPECT_EQ(reserved.error(), kAtaErrorAbrt);
  EXPECT_EQ(reserved.lbaLow, 0x10);
  EXPECT_EQ(reserved.lbaMid, kSmartSignatureLbaMid);
  EXPECT_EQ(reserved.lbaHigh, kSmartSignatureLbaHigh);
  // The command, then ATA PASS-THROUGH(12) with protocol 15 for the registers.
  const auto cdbs = journal().commandsTo("nock.bridge");
  ASSERT_EQ(cdbs.size(), 2u);
  EXPECT_EQ(cdbs[0].status, kScsiStatusCheckCondition);
  EXPECT_EQ(cdbOf(cdbs[0]), (std::vector<uint8_t>{0xA1, 0x06, 0x4C, 0xD4, 0, 0x10, 0x4F, 0xC2, 0, 0xB0, 0, 0}));
  EXPECT_EQ(cdbOf(cdbs[1]), (std::vector<uint8_t>{0xA1, 0x1E, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0}));
  EXPECT_EQ(cdbs[1].status, kScsiStatusGood);
}

TEST_F(BridgesOnSimulatedPc, CkCondIgnoredByTheBridgeLeavesTheRegistersZero) {
  installBridgeMachine();
  SatBridgeWithCkCondition bridge(scsiTransport(kNoCkCond));
  SmartReturnStatus status;
  ASSERT_EQ(bridge.send(status), kStatusOk);
  EXPECT_EQ(registersOf(status), (std::array<uint8_t, 12>{}));
  const auto cdbs = journal().commandsTo("nock.bridge");
  ASSERT_EQ(cdbs.size(), 1u);
  EXPECT_EQ(cdbs[0].bytes[2] & 0x20, 0x20);  // asked for, not honoured
  EXPECT_EQ(cdbs[0].status, kScsiStatusGood);
}

// --- A medium error on a SAT read ---------------------------------------------

TEST_F(BridgesOnSimulatedPc, MediumErrorOnASatReadGivesStatusOneAndErrorUnc) {
  installDefault();
  SatBridgeWithCkCondition bridge(std::make_shared<ScsiBridge>(open(kHdd0)));
  std::vector<uint8_t> data(512, 0xCC);
  ReadSectorsExt read(kHdd0PendingLba, 1, 512, data.data(), 30);
  read.featuresExt = 0x3C;
  ASSERT_EQ(bridge.send(read), kStatusOk);
  // Only Status and Error come back, from the sense key; featuresExt stays.
  EXPECT_EQ(registersOf(read), (std::array<uint8_t, 12>{kAtaErrorUnc, 0x3C, 0, 0, 0, 0, 0, 0, 0, 0, 0, kAtaStatusErr}));
  EXPECT_EQ(read.dataLength, 0u);
  for (uint8_t b : data) ASSERT_EQ(b, 0xCC);
  // ATA PASS-THROUGH(16): the 48-bit address spread over the previous and
  // current register bytes, EXTEND set, T_LENGTH in the count. Unlike the
  // plain sender, this CDB has a byte for featuresExt, and carries it.
  const auto cdbs = journal().commandsTo("hdd0.scsi");
  ASSERT_EQ(cdbs.size(), 1u);
  EXPECT_EQ(cdbOf(cdbs[0]), (std::vector<uint8_t>{0x85, 0x09, 0x6E, 0x3C, 0, 0, 1, 0x0B, 0x11, 0, 0x20, 0, 0x89, 0x40,
                                                  kAtaReadSectorsExt, 0}));
}

TEST_F(BridgesOnSimulatedPc, MediumErrorOnASatReadIsMediumErrorWithTheRegistersInTheSense) {
  installDefault();
  auto scsi = scsiTransport(kHdd0);
  std::vector<uint8_t> data(512, 0xCC);
  ReadSectorsExt read(kHdd0PendingLba, 1, 512, data.data(), 30);
  SatAtaPassThrough16 passThrough(read, true);
  ASSERT_EQ(scsi->send(passThrough), kStatusOk);
  EXPECT_EQ(passThrough.scsiStatus, kScsiStatusCheckCondition);
  EXPECT_EQ(passThrough.dataLength, 0u);
  SenseData sense;
  ASSERT_EQ(sense.parse(passThrough.sense.data()), kStatusOk);
  EXPECT_EQ(sense.getResponseCode(), 0x72);
  EXPECT_EQ(sense.getSenseKey(), 0x03);  // MEDIUM ERROR, UNRECOVERED READ ERROR
  EXPECT_EQ(sense.getAsc(), 0x11);
  EXPECT_EQ(sense.getAscq(), 0x00);
  // The ATA Status Return names the failing sector in its LBA bytes: ERR
  // and UNC, EXTEND for the 48-bit command.
  EXPECT_EQ(passThrough.senseLength, 8u + 14u);
  AtaStatusDescriptor registers{};
  SatBridgeWithCkCondition bridge(scsi);
  ASSERT_EQ(bridge.readOutputRegisters(passThrough, &registers), kStatusOk);
  EXPECT_EQ(registers.extend, 1);
  EXPECT_EQ(registers.error, kAtaErrorUnc);
  EXPECT_EQ(registers.status, 0x51);
  EXPECT_EQ(registers.sectorCount, 1);
  EXPECT_EQ(registers.lbaLow, 0x11);
  EXPECT_EQ(registers.lbaMid, 0x20);
  EXPECT_EQ(registers.lbaHigh, 0x89);
  EXPECT_EQ(registers.lbaLowExt, 0x0B);
  EXPECT_EQ(registers.lbaMidExt, 0);
  EXPECT_EQ(registers.lbaHighExt, 0);
}

TEST_F(BridgesOnSimulatedPc, MediumErrorOnASatReadWithoutCkCondGivesStatusOneAndErrorUnc) {
  installBridgeMachine();
  SatBridgeWithoutCkCond bridge(scsiTransport(kNoCkCond));
  std::vector<uint8_t> data(512, 0xCC);
  ReadSectorsExt read(kNoCkCondBadLba, 1, 512, data.data(), 30);
  ASSERT_EQ(bridge.send(read), kStatusOk);
  EXPECT_EQ(read.status(), kAtaStatusErr);
  EXPECT_EQ(read.error(), kAtaErrorUnc);
  EXPECT_EQ(read.lbaLow, 0);
  // A read learns its registers from the sense key alone: no second request.
  EXPECT_EQ(journal().commandsTo("nock.bridge").size(), 1u);
}

TEST_F(BridgesOnSimulatedPc, ReadBeyondTheLastSectorThroughSatGivesIdnf) {
  installDefault();
  SatBridgeWithCkCondition bridge(scsiTransport(kUsb0));
  std::vector<uint8_t> data(512, 0xCC);
  ReadSectorsExt read(3907029168ULL, 1, 512, data.data(), 30);
  ASSERT_EQ(bridge.send(read), kStatusOk);
  EXPECT_EQ(read.status(), kAtaStatusErr);
  EXPECT_EQ(read.error(), kAtaErrorIdnf);
}

TEST_F(BridgesOnSimulatedPc, GoodSatReadMovesTheSectorsAndKeepsTheLength) {
  installDefault();
  HANDLE disk = open(kUsb0);
  std::vector<uint8_t> out(2 * 512);
  for (size_t i = 0; i < out.size(); ++i) out[i] = static_cast<uint8_t>(i * 7 + 3);
  SatBridgeWithCkCondition bridge(std::make_shared<ScsiBridge>(disk));
  WriteSectorsExt write(0x20000, 2, 512, out.data());
  ASSERT_EQ(bridge.send(write), kStatusOk);
  EXPECT_EQ(write.status() & kAtaStatusErr, 0);
  std::vector<uint8_t> in(2 * 512, 0);
  ReadSectorsExt read(0x20000, 2, 512, in.data(), 30);
  ASSERT_EQ(bridge.send(read), kStatusOk);
  EXPECT_EQ(read.dataLength, 1024u);
  EXPECT_EQ(registersOf(read), (std::array<uint8_t, 12>{}));  // a good read: no sense, no registers
  EXPECT_EQ(in, out);
}

TEST_F(BridgesOnSimulatedPc, SatBridgeOnAFailingLinkGivesThirtyFourWithTheRecordAlreadyCleared) {
  installBridgeMachine();
  SatBridgeWithCkCondition bridge(scsiTransport(kFlakyLink));
  std::vector<uint8_t> data(512, 0xCC);
  ReadSectorsExt read(0x123456, 1, 512, data.data(), 45);
  read.featuresExt = 0x5A;
  EXPECT_EQ(bridge.send(read), kStatusIoctlFailed);
  EXPECT_EQ(registersOf(read), (std::array<uint8_t, 12>{0, 0x5A, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0}));
  EXPECT_EQ(read.dataLength, 0u);
  // The data phase description and the time-out are not registers.
  EXPECT_EQ(read.direction, kDirectionIn);
  EXPECT_EQ(read.buffer, data.data());
  EXPECT_EQ(read.timeoutSeconds, 45u);
  EXPECT_EQ(journal().commandsTo("flaky.bridge").size(), 1u);  // it went out, and was lost on the link
  EXPECT_TRUE(journal().commandsTo("flaky").empty());
}

// --- JMicron --------------------------------------------------------------------

TEST_F(BridgesOnSimulatedPc, IdentifyThroughJMicronBringsTheProfilesIdentity) {
  installDefault();
  auto scsi = scsiTransport(kUsb1);
  JMicronBridge bridge(scsi);
  EXPECT_EQ(bridge.getHandle(), scsi->getHandle());
  std::vector<uint8_t> block(512, 0xCC);
  IdentifyDevice identify(block.data());
  ASSERT_EQ(bridge.send(identify), kStatusOk);
  EXPECT_EQ(identify.dataLength, 512u);
  expectIdentity(block, "ST1000LM035-1RK172", "WL1DM4X7", "LCM2", 1953525168);
  // 0xDF, data-in mode, the length big-endian, the device register with 0xA0.
  const auto cdbs = journal().commandsTo("usb1.bridge");
  ASSERT_EQ(cdbs.size(), 1u);
  EXPECT_EQ(cdbOf(cdbs[0]), (std::vector<uint8_t>{0xDF, 0x10, 0, 0x02, 0x00, 0, 1, 0, 0, 0, 0xA0, 0xEC}));
  EXPECT_EQ(journal().opcodesTo("usb1"), std::vector<uint8_t>{kAtaIdentifyDevice});
}

TEST_F(BridgesOnSimulatedPc, JMicronGivesFourForAnyOtherCommandWithoutTouchingTheDevice) {
  installDefault();
  JMicronBridge bridge(scsiTransport(kUsb1));
  SmartReturnStatus status;
  EXPECT_EQ(bridge.send(status), kStatusBridgeCannotCarry);
  std::vector<uint8_t> data(512);
  ReadSectorsExt read(0, 1, 512, data.data(), 30);
  EXPECT_EQ(bridge.send(read), kStatusBridgeCannotCarry);
  EXPECT_TRUE(journal().commandsTo("usb1.bridge").empty());
  EXPECT_TRUE(journal().commandsTo("usb1").empty());
}

TEST_F(BridgesOnSimulatedPc, SatThroughAJMicronChipIsRefusedAndBringsNoData) {
  installDefault();
  auto scsi = scsiTransport(kUsb1);
  std::vector<uint8_t> block(512, 0xCC);
  IdentifyDevice identify(block.data());
  SatAtaPassThrough12 passThrough(identify, true);
  ASSERT_EQ(scsi->send(passThrough), kStatusOk);
  EXPECT_EQ(passThrough.scsiStatus, kScsiStatusCheckCondition);
  SenseData sense;
  ASSERT_EQ(sense.parse(passThrough.sense.data()), kStatusOk);
  EXPECT_EQ(sense.getSenseKey(), 0x05);  // ILLEGAL REQUEST, INVALID COMMAND OPERATION CODE
  EXPECT_EQ(sense.getAsc(), 0x20);
  EXPECT_EQ(passThrough.dataLength, 0u);

  SatBridgeWithCkCondition bridge(scsi);
  ASSERT_EQ(bridge.send(identify), kStatusOk);
  EXPECT_EQ(identify.dataLength, 0u);  // nothing came: the caller knows SAT does not reach this drive
  for (uint8_t b : block) ASSERT_EQ(b, 0xCC);
  EXPECT_TRUE(journal().commandsTo("usb1").empty());
}

// --- Sunplus --------------------------------------------------------------------

TEST_F(BridgesOnSimulatedPc, IdentifyThroughSunplusBringsTheProfilesIdentity) {
  installBridgeMachine();
  SunplusBridge bridge(scsiTransport(kSunplus));
  std::vector<uint8_t> block(512, 0xCC);
  IdentifyDevice identify(block.data());
  ASSERT_EQ(bridge.send(identify), kStatusOk);
  EXPECT_EQ(identify.dataLength, 512u);
  expectIdentity(block, "Hitachi HTS545032B9A300", "091020PB4200SVG3R8VC", "PB4OC60F", 625142448);
  // One 0xF8/0x22 pass-through, data-in mode, one 512-byte block; no preset.
  const auto cdbs = journal().commandsTo("sunplus0.bridge");
  ASSERT_EQ(cdbs.size(), 1u);
  EXPECT_EQ(cdbOf(cdbs[0]), (std::vector<uint8_t>{0xF8, 0, 0x22, 0x10, 0x01, 0, 1, 0, 0, 0, 0, 0xEC}));
  EXPECT_EQ(journal().opcodesTo("sunplus0"), std::vector<uint8_t>{kAtaIdentifyDevice});
}

TEST_F(BridgesOnSimulatedPc, SunplusGivesFourForAnyOtherCommandSoItsPresetNeverRuns) {
  installBridgeMachine();
  SunplusBridge bridge(scsiTransport(kSunplus));
  std::vector<uint8_t> data(512);
  ReadSectorsExt read(0x123456789ULL, 1, 512, data.data(), 30);
  EXPECT_EQ(bridge.send(read), kStatusBridgeCannotCarry);
  EXPECT_TRUE(journal().commandsTo("sunplus0.bridge").empty());
}

// --- The SCSI sender -----------------------------------------------------------

TEST_F(BridgesOnSimulatedPc, ShortScsiTransferLeavesTheShortLengthAndWritesOnlyThoseBytes) {
  installDefault();
  HANDLE disk = open(kSas0);
  std::vector<uint8_t> data(255, 0xCC);
  Inquiry inquiry(data.data(), 255, false, 0);
  ASSERT_EQ(getHalScsiSend()->send(disk, 1, inquiry), kStatusOk);
  EXPECT_EQ(inquiry.scsiStatus, kScsiStatusGood);
  EXPECT_EQ(inquiry.senseLength, 0u);
  // Standard INQUIRY data is 96 bytes; 255 were allowed.
  EXPECT_EQ(inquiry.dataLength, 96u);
  EXPECT_EQ(data[4], 91);  // additional length
  EXPECT_EQ(std::string(data.begin() + 8, data.begin() + 16), "SEAGATE ");
  EXPECT_EQ(std::string(data.begin() + 16, data.begin() + 32), "ST4000NM0025    ");
  EXPECT_EQ(std::string(data.begin() + 32, data.begin() + 36), "E001");
  for (size_t i = 96; i < data.size(); ++i) ASSERT_EQ(data[i], 0xCC) << i;
}

TEST_F(BridgesOnSimulatedPc, ScsiReadStoppedByAMediumErrorMovesOnlyTheSectorsBeforeIt) {
  installBridgeMachine();
  ScsiBridge bridge(open(kSas1));
  std::vector<uint8_t> data(8 * 512, 0xCC);
  Read16 read(data.data(), kSas1BadLba - 3, 8, 512);
  ASSERT_EQ(bridge.send(read), kStatusOk);  // CHECK CONDITION is an answer, not a failure
  EXPECT_EQ(read.scsiStatus, kScsiStatusCheckCondition);
  EXPECT_EQ(read.dataLength, 3u * 512);
  // Each sector of the stamped media holds its address in every eight bytes.
  for (uint64_t s = 0; s < 3; ++s) {
    uint64_t stamp = 0;
    for (int b = 7; b >= 0; --b) stamp = stamp << 8 | data[s * 512 + b];
    EXPECT_EQ(stamp, kSas1BadLba - 3 + s);
  }
  for (size_t i = 3 * 512; i < data.size(); ++i) ASSERT_EQ(data[i], 0xCC) << i;
  // Fixed sense: MEDIUM ERROR, UNRECOVERED READ ERROR, the LBA in INFORMATION.
  EXPECT_EQ(read.senseLength, 18u);
  EXPECT_EQ(read.sense[0], 0xF0);
  SenseData sense;
  ASSERT_EQ(sense.parse(read.sense.data()), kStatusOk);
  EXPECT_EQ(sense.getSenseKey(), 0x03);
  EXPECT_EQ(sense.getAsc(), 0x11);
  EXPECT_EQ(sense.getAscq(), 0x00);
  const uint32_t information = uint32_t{read.sense[3]} << 24 | uint32_t{read.sense[4]} << 16 |
                               uint32_t{read.sense[5]} << 8 | read.sense[6];
  EXPECT_EQ(information, kSas1BadLba);
}

TEST_F(BridgesOnSimulatedPc, ScsiSenderOnAClosedHandleGivesThirtyFourAndLeavesTheRecord) {
  installDefault();
  HANDLE disk = open(kSas0);
  CloseHandle(disk);
  handles.clear();
  std::vector<uint8_t> data(36, 0xCC);
  Inquiry inquiry(data.data(), 36, false, 0);
  EXPECT_EQ(getHalScsiSend()->send(disk, 1, inquiry), kStatusIoctlFailed);
  EXPECT_EQ(inquiry.dataLength, 36u);
  EXPECT_EQ(inquiry.scsiStatus, kScsiStatusGood);
  EXPECT_TRUE(journal().commandsTo("sas0").empty());
}

}  // namespace
