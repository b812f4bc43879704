// The targeted read test: which drives it accepts, how it harvests LBAs from
// the five logs, how it widens and reads them, how SMART is left, and whole
// runs on the simulated PC's drives. The logic is tested on the real ATA
// protocol over a drive whose logs and bad sectors each test lays out.
#include "diagnostics/targeted_read.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cstring>
#include <functional>
#include <map>
#include <memory>
#include <set>
#include <vector>

#include "diagnostics/seek_test_support.h"
#include "protocols/ata_protocol.h"
#include "testing/scripted_ata_bridge.h"

namespace {

using mstest::LogLine;
using mstest::Op;
using mstest::ProgressEvent;

constexpr char kNoLogs[] = "CANNOT_READ_ANYTHING_FROM_LOGS";
constexpr char kLost[] = "DEVICE_COMMUNICATION_FAILURE";
constexpr char kPassword[] = "HARD_DISK_IS_PASSWORD_PROTECTED. |TRY_TO_DISABLE_THE_PASSWORD_PROTECTION";

// Pages of one log: each page carries version 1 in byte 0 and a checksum in
// byte 511 once sealed.
class LogPages {
 public:
  explicit LogPages(size_t pages) : bytes(pages * 512, 0) {}
  uint8_t* page(size_t index) { return bytes.data() + index * 512; }
  // Writes `count` bytes of `value`, lowest first, at `offset` of `page`.
  LogPages& put(size_t pageIndex, size_t offset, uint64_t value, size_t count) {
    for (size_t i = 0; i < count; ++i) page(pageIndex)[offset + i] = static_cast<uint8_t>(value >> (8 * i));
    return *this;
  }
  LogPages& seal() {
    for (size_t p = 0; p < bytes.size() / 512; ++p) {
      page(p)[0] = 1;
      uint8_t sum = 0;
      for (size_t i = 0; i < 511; ++i) sum = static_cast<uint8_t>(sum + page(p)[i]);
      page(p)[511] = static_cast<uint8_t>(0x100 - sum);
    }
    return *this;
  }
  std::vector<uint8_t> bytes;
};

// Slot layouts of the five logs, as the drive writes them.
LogPages extSelfTestLog(const std::vector<uint64_t>& lbas, size_t pages = 1) {
  LogPages log(pages);
  for (size_t i = 0; i < lbas.size(); ++i) log.put(i / 19, 4 + (i % 19) * 26 + 5, lbas[i], 6);
  return log.seal();
}
LogPages selfTestLog(const std::vector<uint64_t>& lbas) {
  LogPages log(1);
  for (size_t i = 0; i < lbas.size(); ++i) log.put(0, 2 + i * 24 + 5, lbas[i], 4);
  return log.seal();
}
LogPages errorLog(const std::vector<uint64_t>& lbas, size_t pages = 1) {
  LogPages log(pages);
  for (size_t i = 0; i < lbas.size(); ++i) log.put(i / 5, 2 + (i % 5) * 90 + 51, lbas[i], 3);
  return log.seal();
}
// Six LBA bytes of the fifth command structure of an extended error log
// entry, as they stand at entry offsets 77 to 82.
LogPages extErrorLog(const std::vector<std::array<uint8_t, 6>>& entries) {
  LogPages log(1);
  for (size_t i = 0; i < entries.size(); ++i) {
    for (size_t b = 0; b < 6; ++b) log.page(0)[4 + i * 124 + 77 + b] = entries[i][b];
  }
  return log.seal();
}

// An ATA drive reduced to what the targeted read asks of it: identity, SMART
// on and off, the two log directories and the logs, and sector reads that
// fail with UNC at the bad sectors. Every command is recorded.
class LogDrive : public AtaBridge {
 public:
  LogDrive() : AtaBridge(nullptr) {}

  uint32_t send(AtaCmd& cmd) override {
    sent.push_back(cmd);
    if (onCommand) onCommand(cmd);
    if (gone) return kStatusIoctlFailed;
    // The registers come back as Status and Error; the request is read from
    // the record as it arrived.
    const AtaCmd asked = cmd;
    cmd.command = 0x50;
    cmd.features = 0;
    switch (asked.command) {
      case kAtaIdentifyDevice: return give(cmd, identify());
      case kAtaSmart: return smart(asked, cmd);
      case kAtaReadLogExt: return readLogExt(asked, cmd);
      case kAtaReadSectors:
      case kAtaReadSectorsExt: return readSectors(asked, cmd);
      default: return abort(cmd);
    }
  }

  // The log addresses of the log reads, in order, directories left out.
  std::vector<uint8_t> logReads() const {
    std::vector<uint8_t> addresses;
    for (const AtaCmd& cmd : sent) {
      const bool smartLog = cmd.command == kAtaSmart && cmd.features == kSmartReadLog;
      if ((smartLog || cmd.command == kAtaReadLogExt) && cmd.lbaLow != 0) addresses.push_back(cmd.lbaLow);
    }
    return addresses;
  }
  // The SMART ENABLE (1) and DISABLE (0) operations, in order.
  std::vector<int> smartSwitches() const {
    std::vector<int> switches;
    for (const AtaCmd& cmd : sent) {
      if (cmd.command != kAtaSmart) continue;
      if (cmd.features == kSmartEnableOperations) switches.push_back(1);
      if (cmd.features == kSmartDisableOperations) switches.push_back(0);
    }
    return switches;
  }

  bool lba48 = true;
  bool smartSupported = true;
  bool smartEnabled = false;
  bool securitySupported = false;
  bool securityLocked = false;
  bool refuseSmartEnable = false;
  bool gone = false;
  uint64_t sectorCount = 1000000;
  std::map<uint8_t, LogPages> logs;
  std::set<uint8_t> unreadableLogs;
  std::set<uint64_t> badSectors;
  std::set<uint64_t> abortedSectors;  // reads refused with ABRT, not a media error
  std::vector<AtaCmd> sent;
  std::function<void(const AtaCmd&)> onCommand;

 private:
  std::vector<uint8_t> identify() const {
    mstest::AtaBlock block;
    block.setWord(0, 0x0040);
    block.setString(27, 20, "SCRIPTED LOG DRIVE");
    block.setWord(60, static_cast<uint16_t>(sectorCount)).setWord(61, static_cast<uint16_t>(sectorCount >> 16));
    block.setWord(82, static_cast<uint16_t>((smartSupported ? 1 : 0) | (securitySupported ? 2 : 0)));
    block.setWord(83, lba48 ? 0x0400 : 0);
    block.setWord(85, static_cast<uint16_t>((smartEnabled ? 1 : 0) | (securityLocked ? 2 : 0)));
    for (int w = 0; w < 4; ++w) block.setWord(100 + w, static_cast<uint16_t>(sectorCount >> (16 * w)));
    block.setWord(128, securityLocked ? 4 : 0);
    return block.bytes;
  }

  uint16_t pagesOf(uint8_t address) const {
    auto found = logs.find(address);
    return found == logs.end() ? 0 : static_cast<uint16_t>(found->second.bytes.size() / 512);
  }

  std::vector<uint8_t> directory(std::initializer_list<uint8_t> addresses) const {
    mstest::AtaBlock block;
    block.setWord(0, 1);
    for (uint8_t address : addresses) block.setWord(address, pagesOf(address));
    return block.bytes;
  }

  uint32_t smart(const AtaCmd& asked, AtaCmd& cmd) {
    switch (asked.features) {
      case kSmartReadData: return give(cmd, std::vector<uint8_t>(512, 0));
      case kSmartEnableOperations:
        if (refuseSmartEnable) return abort(cmd);
        smartEnabled = true;
        return kStatusOk;
      case kSmartDisableOperations: smartEnabled = false; return kStatusOk;
      case kSmartReadLog: {
        const uint8_t address = asked.lbaLow;
        if (address == 0) return give(cmd, directory({1, 2, 6}));
        if (unreadableLogs.count(address) != 0 || pagesOf(address) == 0) return abort(cmd);
        return give(cmd, logs.at(address).bytes);
      }
      default: return abort(cmd);
    }
  }

  uint32_t readLogExt(const AtaCmd& asked, AtaCmd& cmd) {
    const uint8_t address = asked.lbaLow;
    const size_t page = asked.lbaMid | asked.lbaMidExt << 8;
    if (address == 0) return give(cmd, directory({3, 7}));
    if (unreadableLogs.count(address) != 0 || page >= pagesOf(address)) return abort(cmd);
    const std::vector<uint8_t>& bytes = logs.at(address).bytes;
    return give(cmd, std::vector<uint8_t>(bytes.begin() + page * 512, bytes.begin() + (page + 1) * 512));
  }

  uint32_t readSectors(const AtaCmd& asked, AtaCmd& cmd) {
    uint64_t lba = asked.lbaLow | uint64_t{asked.lbaMid} << 8 | uint64_t{asked.lbaHigh} << 16;
    if (asked.command == kAtaReadSectorsExt) {
      lba |= uint64_t{asked.lbaLowExt} << 24 | uint64_t{asked.lbaMidExt} << 32 | uint64_t{asked.lbaHighExt} << 40;
    }
    if (abortedSectors.count(lba) != 0) return abort(cmd);
    if (badSectors.count(lba) == 0) return give(cmd, std::vector<uint8_t>(512, 0));
    cmd.command = 0x51;
    cmd.features = kAtaErrorUnc;
    return kStatusOk;
  }

  static uint32_t give(AtaCmd& cmd, const std::vector<uint8_t>& data) {
    if (cmd.buffer != nullptr) std::memcpy(cmd.buffer, data.data(), std::min<size_t>(data.size(), cmd.dataLength));
    return kStatusOk;
  }
  static uint32_t abort(AtaCmd& cmd) {
    cmd.command = 0x51;
    cmd.features = kAtaErrorAbrt;
    return kStatusOk;
  }
};

std::vector<uint64_t> range(uint64_t first, uint64_t last) {
  std::vector<uint64_t> lbas;
  for (uint64_t lba = first; lba <= last; ++lba) lbas.push_back(lba);
  return lbas;
}

std::vector<uint64_t> concat(std::initializer_list<std::vector<uint64_t>> parts) {
  std::vector<uint64_t> all;
  for (const auto& part : parts) all.insert(all.end(), part.begin(), part.end());
  return all;
}

class TargetedRead : public ::testing::Test {
 protected:
  TargetedRead() : drive(std::make_shared<LogDrive>()) {
    auto protocol = std::make_unique<AtaProtocol>();
    protocol->addTransport(drive);
    protocol->setProtocolKind(kProtocolAta);
    protocol->setBusKind(kBusAta);
    ata = protocol.get();
    disk = std::make_unique<StorageComponent>(std::move(protocol), nullptr);
    disk->setLocation(kLocationInternal);
    disk->setBusKind(kBusAta);
    context = std::make_unique<mstest::ScriptedRunContext>(disk.get(), &listener, &log);
  }

  // Reads the identity into the protocol's cache, as discovery does; the
  // commands of discovery are then forgotten.
  void discover() {
    StorageProtocolProperties properties;
    ASSERT_EQ(ata->getProperties(&properties), kStatusOk);
    drive->sent.clear();
  }

  uint32_t run() {
    discover();
    return test.run(context.get());
  }

  void badSector(uint64_t lba) {
    filesystem.unreadable.insert(lba);
    drive->badSectors.insert(lba);
  }

  // Handle reads of the body, without the wake-up read of sector 0.
  std::vector<uint64_t> targetReads() const {
    if (filesystem.readLbas.empty()) return {};
    return std::vector<uint64_t>(filesystem.readLbas.begin() + 1, filesystem.readLbas.end());
  }

  std::vector<uint8_t> percentsOfPlainEvents() const {
    std::vector<uint8_t> percents;
    for (const ProgressEvent& event : listener.events) {
      if (event.key.empty()) percents.push_back(event.percent);
    }
    return percents;
  }

  std::shared_ptr<LogDrive> drive;
  AtaProtocol* ata = nullptr;
  std::unique_ptr<StorageComponent> disk;
  mstest::RecordingListener listener;
  mstest::RecordingLog log;
  std::unique_ptr<mstest::ScriptedRunContext> context;
  mstest::SectorFilesystem filesystem;
  TargetedReadTest test{ItemId(1, 1, 2)};
};

// --- Which drives ----------------------------------------------------------------

TEST_F(TargetedRead, IdentityAndOptions) {
  EXPECT_EQ(test.getItemId(), ItemId(1, 1, 2));
  EXPECT_FALSE(test.isOptionA());
  EXPECT_FALSE(test.isOptionB());
}

TEST_F(TargetedRead, TakesNoParametersAndRejectsNothing) {
  std::vector<RejectedParameter> rejected;
  TestParameters parameters{{"STORAGE", {{"SEC_NUM", "300"}, {"WHOLE_DISK_READ", "2"}}}};
  EXPECT_TRUE(test.setParameters(parameters, rejected));
  EXPECT_TRUE(rejected.empty());
}

TEST_F(TargetedRead, CheckSupportedWithoutComponentOrProtocolIsInvalid) {
  EXPECT_EQ(test.checkSupported(nullptr, &listener, &log), INVALID);
  StorageComponent bare(nullptr, nullptr);
  EXPECT_EQ(test.checkSupported(&bare, &listener, &log), INVALID);
  EXPECT_TRUE(listener.events.empty());
}

TEST_F(TargetedRead, InternalAtaDriveWithSmartIsSupported) {
  discover();
  EXPECT_TRUE(test.isSupported(disk.get()));
  EXPECT_EQ(test.checkSupported(disk.get(), &listener, &log), SUCCESS);
  EXPECT_TRUE(drive->sent.empty());
}

TEST_F(TargetedRead, ExternalDriveIsRefusedByNameAtLevelThree) {
  disk->setLocation(kLocationExternal);
  EXPECT_EQ(run(), NOT_APPLICABLE);
  EXPECT_EQ(listener.events,
            (std::vector<ProgressEvent>{{100, "TEST_NOT_SUPPORTED_IN_EXTERNAL_DEVICE"}, {100, ""}}));
  EXPECT_EQ(log.lines, (std::vector<LogLine>{{"TEST_NOT_SUPPORTED_IN_EXTERNAL_DEVICE", LevelError}}));
  EXPECT_TRUE(drive->sent.empty());
}

TEST_F(TargetedRead, NonAtaProtocolIsRefusedAtLevelZero) {
  ata->setProtocolKind(kProtocolScsi);
  EXPECT_EQ(run(), NOT_APPLICABLE);
  EXPECT_EQ(listener.events, (std::vector<ProgressEvent>{{100, "TEST_NOT_SUPPORTED_IN_THIS_DEVICE"}, {100, ""}}));
  EXPECT_EQ(log.lines, (std::vector<LogLine>{{"TEST_NOT_SUPPORTED_IN_THIS_DEVICE", LevelInfo}}));
}

TEST_F(TargetedRead, DriveWithoutSmartIsRefusedAtLevelThree) {
  drive->smartSupported = false;
  EXPECT_EQ(run(), NOT_APPLICABLE);
  EXPECT_EQ(listener.events, (std::vector<ProgressEvent>{{100, "SMART_NOT_SUPPORTED"}, {100, ""}}));
  EXPECT_EQ(log.lines, (std::vector<LogLine>{{"SMART_NOT_SUPPORTED", LevelError}}));
}

TEST_F(TargetedRead, EmmcOrNvmeBusIsRefusedInSilence) {
  discover();
  for (uint32_t bus : {kBusEmmc, kBusNvme}) {
    disk->setBusKind(bus);
    EXPECT_EQ(test.checkSupported(disk.get(), &listener, &log), NOT_APPLICABLE);
  }
  EXPECT_TRUE(listener.events.empty());
  EXPECT_TRUE(log.lines.empty());
}

TEST_F(TargetedRead, PasswordMessageReachesTheLogBeforeTheListener) {
  drive->securitySupported = true;
  drive->securityLocked = true;
  std::vector<size_t> linesAtEvent;
  listener.onEvent = [&](const ProgressEvent&) { linesAtEvent.push_back(log.lines.size()); };
  EXPECT_EQ(run(), NOT_APPLICABLE);
  EXPECT_EQ(listener.events, (std::vector<ProgressEvent>{{100, kPassword}, {100, ""}}));
  EXPECT_EQ(log.lines, (std::vector<LogLine>{{kPassword, LevelInfo}}));
  EXPECT_EQ(linesAtEvent, (std::vector<size_t>{1, 1}));
  EXPECT_TRUE(drive->smartSwitches().empty());
  EXPECT_TRUE(filesystem.readLbas.empty());
}

TEST_F(TargetedRead, PrepareWakesTheDriveWithOneHandleReadBeforeSmartIsSwitchedOn) {
  std::vector<size_t> handleReadsAtSmartEnable;
  drive->onCommand = [&](const AtaCmd& cmd) {
    if (cmd.command == kAtaSmart && cmd.features == kSmartEnableOperations) {
      handleReadsAtSmartEnable.push_back(filesystem.readLbas.size());
    }
  };
  filesystem.unreadable = {0};  // the outcome of the wake-up read does not matter
  drive->logs.emplace(6, selfTestLog({}));
  EXPECT_EQ(run(), SUCCESS);
  EXPECT_EQ(handleReadsAtSmartEnable, (std::vector<size_t>{1}));
  EXPECT_EQ(filesystem.readLbas.front(), 0u);
  EXPECT_EQ(filesystem.timeouts.front(), 30u);
}

TEST_F(TargetedRead, DriveBehindARaidControllerIsNotWokenAndIsReadThroughItsCommands) {
  disk->setLocation(kLocationRaid);
  drive->logs.emplace(6, selfTestLog({}));
  EXPECT_EQ(run(), SUCCESS);
  EXPECT_TRUE(filesystem.readLbas.empty());
  size_t sectorReads = 0;
  for (const AtaCmd& cmd : drive->sent) sectorReads += cmd.command == kAtaReadSectorsExt ? 1 : 0;
  EXPECT_EQ(sectorReads, 16u);
}

TEST_F(TargetedRead, PrepareWithoutTheGuardOfARunIsInvalid) {
  discover();
  TargetedReadTest fresh(ItemId(1, 1, 2));
  EXPECT_EQ(fresh.prepare(disk.get(), &listener, &log), INVALID);
  EXPECT_TRUE(drive->smartSwitches().empty());
}

TEST_F(TargetedRead, SmartThatCannotBeSwitchedOnIsNotApplicable) {
  drive->refuseSmartEnable = true;
  EXPECT_EQ(run(), NOT_APPLICABLE);
  EXPECT_EQ(listener.events, (std::vector<ProgressEvent>{{100, "CANNOT_ENABLE_SMART"}, {100, ""}}));
  EXPECT_EQ(log.lines, (std::vector<LogLine>{{"CANNOT_ENABLE_SMART", LevelError}}));
  EXPECT_TRUE(drive->logReads().empty());
}

TEST_F(TargetedRead, ProtocolThatIsNoAtaProtocolEndsInvalidWithoutRestoreOrSecondClosingEvent) {
  auto* scripted = new mstest::ScriptedProtocol();
  StorageComponent other(std::unique_ptr<StorageProtocol>(scripted), nullptr);
  other.setLocation(kLocationInternal);
  other.setBusKind(kBusAta);
  scripted->setProtocolKind(kProtocolAta);
  StorageProtocolProperties properties;
  properties.smartSupported = true;
  properties.smartEnabled = false;
  properties.sectorCount = 1000;
  properties.logicalSectorSize = 512;
  scripted->setCachedProperties(properties);
  scripted->setProperties(properties);
  mstest::ScriptedRunContext otherContext(&other, &listener, &log);
  EXPECT_EQ(test.run(&otherContext), INVALID);
  EXPECT_EQ(listener.events, (std::vector<ProgressEvent>{{0, ""}, {100, ""}}));
  // SMART was switched on, and stays on: this path has no restore.
  const std::vector<mstest::Call> switches = scripted->callsOf(Op::EnableSmart);
  ASSERT_EQ(switches.size(), 1u);
  EXPECT_EQ(switches[0].first, 1u);
}

// --- The logs ------------------------------------------------------------------

TEST_F(TargetedRead, LogsAreReadInTheirOrder) {
  drive->logs.emplace(1, errorLog({}));
  drive->logs.emplace(2, errorLog({}, 2));
  drive->logs.emplace(3, extErrorLog({}));
  drive->logs.emplace(6, selfTestLog({}));
  drive->logs.emplace(7, extSelfTestLog({}, 2));
  EXPECT_EQ(run(), SUCCESS);
  // The extended logs page by page.
  EXPECT_EQ(drive->logReads(), (std::vector<uint8_t>{3, 7, 7, 6, 2, 1}));
}

TEST_F(TargetedRead, DriveWithout48BitAddressingNeverGetsRequestsForLogs3And7) {
  drive->lba48 = false;
  drive->logs.emplace(3, extErrorLog({{0x10, 0, 0x20, 0, 0, 0}}));
  drive->logs.emplace(7, extSelfTestLog({5000}));
  drive->logs.emplace(6, selfTestLog({}));
  EXPECT_EQ(run(), SUCCESS);
  EXPECT_EQ(drive->logReads(), (std::vector<uint8_t>{6}));
  EXPECT_EQ(targetReads(), range(0, 15));
}

TEST_F(TargetedRead, ExtendedErrorLogInTwoByteOrdersGivesTwoNeighbourhoods) {
  // Register order: 77 is 7:0, 79 is 15:8: 0x2010 = 8208. Plain order: 0x200010.
  drive->sectorCount = 100000000;
  drive->logs.emplace(3, extErrorLog({{0x10, 0x00, 0x20, 0x00, 0x00, 0x00}}));
  EXPECT_EQ(run(), SUCCESS);
  // The three unused entries name LBA 0.
  EXPECT_EQ(targetReads(), concat({range(0, 15), range(8193, 8223), range(2097153, 2097183)}));
}

TEST_F(TargetedRead, ExtendedErrorLogTakesAllSixBytesInRegisterOrder) {
  std::set<uint64_t> lbas;
  LogPages page = extErrorLog({{0x01, 0x02, 0x03, 0x04, 0x05, 0x06}});
  TargetedReadTest::takeLbasFromLog(3, page.bytes.data(), 1, lbas);
  // 7:0 = 01, 15:8 = 03, 23:16 = 05, 31:24 = 02, 39:32 = 04, 47:40 = 06.
  EXPECT_EQ(lbas, (std::set<uint64_t>{0, 0x060402050301ull, 0x060504030201ull}));
}

TEST_F(TargetedRead, ExtendedSelfTestLogTakesBytes5To10OfEverySlotOfEveryPage) {
  std::vector<uint64_t> slots(38, 0);
  slots[0] = 0x0000123456789Aull;
  slots[37] = 0xAABBCCDDEEFFull;
  LogPages pages = extSelfTestLog(slots, 2);
  std::set<uint64_t> lbas;
  TargetedReadTest::takeLbasFromLog(7, pages.bytes.data(), 2, lbas);
  EXPECT_EQ(lbas, (std::set<uint64_t>{0, 0x0000123456789Aull, 0xAABBCCDDEEFFull}));
}

TEST_F(TargetedRead, SelfTestLogTakesBytes5To8OfTheFirstPageOnly) {
  LogPages pages(2);
  pages.put(0, 2 + 20 * 24 + 5, 0x11223344, 4);
  pages.put(0, 2 + 20 * 24 + 9, 0x55, 1);  // byte 9 is not part of the LBA
  pages.put(1, 2 + 5, 777, 4);
  pages.seal();
  std::set<uint64_t> lbas;
  TargetedReadTest::takeLbasFromLog(6, pages.bytes.data(), 2, lbas);
  EXPECT_EQ(lbas, (std::set<uint64_t>{0, 0x11223344}));
}

TEST_F(TargetedRead, ComprehensiveErrorLogTakes24BitsOfEveryPageLeavingOutTheDeviceRegister) {
  LogPages pages = errorLog({1, 2, 3, 4, 5, 0x123456}, 2);
  pages.put(1, 2 + 90 + 54, 0x4F, 1);  // bits 27:24 in the Device register
  std::set<uint64_t> lbas;
  TargetedReadTest::takeLbasFromLog(2, pages.bytes.data(), 2, lbas);
  EXPECT_EQ(lbas, (std::set<uint64_t>{0, 1, 2, 3, 4, 5, 0x123456}));
}

TEST_F(TargetedRead, SummaryErrorLogTakesTheFirstPageOnly) {
  LogPages pages = errorLog({10, 0, 0, 0, 0, 20}, 2);
  std::set<uint64_t> lbas;
  TargetedReadTest::takeLbasFromLog(1, pages.bytes.data(), 2, lbas);
  EXPECT_EQ(lbas, (std::set<uint64_t>{0, 10}));
}

TEST_F(TargetedRead, EverySlotCountsAndAnUnknownLogNamesNothing) {
  LogPages empty(1);
  std::set<uint64_t> lbas;
  TargetedReadTest::takeLbasFromLog(0x80, empty.bytes.data(), 1, lbas);
  EXPECT_TRUE(lbas.empty());
  TargetedReadTest::takeLbasFromLog(7, empty.bytes.data(), 1, lbas);
  EXPECT_EQ(lbas, (std::set<uint64_t>{0}));
}

TEST_F(TargetedRead, DriveWithLogsButNoRecordedErrorReadsTheFirst16Sectors) {
  drive->logs.emplace(1, errorLog({}));
  drive->logs.emplace(2, errorLog({}));
  drive->logs.emplace(3, extErrorLog({}));
  drive->logs.emplace(6, selfTestLog({}));
  drive->logs.emplace(7, extSelfTestLog({}));
  EXPECT_EQ(run(), SUCCESS);
  EXPECT_EQ(targetReads(), range(0, 15));
  EXPECT_EQ(percentsOfPlainEvents(),
            (std::vector<uint8_t>{0, 6, 12, 18, 25, 31, 37, 43, 50, 56, 62, 68, 75, 81, 87, 93, 100, 100}));
  EXPECT_TRUE(log.lines.empty());
}

TEST_F(TargetedRead, AllFivePageCountsZeroEndCannotReadAnythingFromLogsAndSmartIsRestored) {
  EXPECT_EQ(run(), NOT_APPLICABLE);
  EXPECT_EQ(listener.events, (std::vector<ProgressEvent>{{0, ""}, {100, kNoLogs}, {100, ""}}));
  EXPECT_EQ(log.lines, (std::vector<LogLine>{{kNoLogs, LevelInfo}}));
  EXPECT_EQ(drive->smartSwitches(), (std::vector<int>{1, 0}));
  EXPECT_TRUE(drive->logReads().empty());
  EXPECT_TRUE(targetReads().empty());
}

TEST_F(TargetedRead, AnUnreadableLogIsPassedOverAndTheNextIsTried) {
  drive->logs.emplace(6, selfTestLog({5000}));
  drive->unreadableLogs = {6};
  drive->logs.emplace(2, errorLog({7000, 7000, 7000, 7000, 7000}));
  EXPECT_EQ(run(), SUCCESS);
  EXPECT_EQ(targetReads(), range(6985, 7015));
  EXPECT_TRUE(log.lines.empty());
}

TEST_F(TargetedRead, DirectoriesAreReadOnceForAllFiveLogs) {
  drive->logs.emplace(6, selfTestLog({}));
  EXPECT_EQ(run(), SUCCESS);
  size_t directoryReads = 0;
  for (const AtaCmd& cmd : drive->sent) {
    const bool smartLog = cmd.command == kAtaSmart && cmd.features == kSmartReadLog;
    directoryReads += (smartLog || cmd.command == kAtaReadLogExt) && cmd.lbaLow == 0 ? 1 : 0;
  }
  EXPECT_EQ(directoryReads, 2u);
}

// --- Widening and reading ------------------------------------------------------

TEST_F(TargetedRead, LbaOf3WidensToZeroThrough18) {
  std::set<uint64_t> targets;
  TargetedReadTest::widenTargets({3}, targets, 15, 999);
  EXPECT_EQ(std::vector<uint64_t>(targets.begin(), targets.end()), range(0, 18));
}

TEST_F(TargetedRead, LbaAtTheLastWidensToFifteenBelowIt) {
  std::set<uint64_t> targets;
  TargetedReadTest::widenTargets({999}, targets, 15, 999);
  EXPECT_EQ(std::vector<uint64_t>(targets.begin(), targets.end()), range(984, 999));
  targets.clear();
  TargetedReadTest::widenTargets({990}, targets, 15, 999);
  EXPECT_EQ(std::vector<uint64_t>(targets.begin(), targets.end()), range(975, 999));
}

TEST_F(TargetedRead, LbaBeyondTheLastYieldsNothing) {
  std::set<uint64_t> targets;
  TargetedReadTest::widenTargets({1000, 5000}, targets, 15, 999);
  EXPECT_TRUE(targets.empty());
}

TEST_F(TargetedRead, DiskSmallerThanTheRadiusIsReadWhole) {
  std::set<uint64_t> targets;
  TargetedReadTest::widenTargets({5}, targets, 15, 10);
  EXPECT_EQ(std::vector<uint64_t>(targets.begin(), targets.end()), range(0, 10));
}

TEST_F(TargetedRead, EveryLbaBeyondTheEndMeansNoReadAndSuccess) {
  drive->logs.emplace(7, extSelfTestLog(std::vector<uint64_t>(19, 0xFFFFFFFFFFFFull)));
  EXPECT_EQ(run(), SUCCESS);
  EXPECT_TRUE(targetReads().empty());
  EXPECT_EQ(listener.events, (std::vector<ProgressEvent>{{0, ""}, {100, ""}}));
  EXPECT_EQ(drive->smartSwitches(), (std::vector<int>{1, 0}));
}

TEST_F(TargetedRead, OverlappingNeighbourhoodsAreReadOnce) {
  drive->logs.emplace(6, selfTestLog(std::vector<uint64_t>(21, 100)));
  drive->logs.at(6).put(0, 2 + 5, 110, 4).seal();
  EXPECT_EQ(run(), SUCCESS);
  EXPECT_EQ(targetReads(), range(85, 125));
}

TEST_F(TargetedRead, UpTo100TargetsEveryReadReportsAnEvent) {
  // 985..1022 (38), 1985..2015 and 2985..3015: 100 targets.
  std::vector<uint64_t> slots(21, 3000);
  slots[0] = 1000;
  slots[1] = 1007;
  slots[2] = 2000;
  drive->logs.emplace(6, selfTestLog(slots));
  EXPECT_EQ(run(), SUCCESS);
  ASSERT_EQ(targetReads().size(), 100u);
  std::vector<uint8_t> expected{0};
  for (uint8_t percent = 1; percent <= 100; ++percent) expected.push_back(percent);
  expected.push_back(100);
  EXPECT_EQ(percentsOfPlainEvents(), expected);
}

TEST_F(TargetedRead, MoreThan100TargetsReportOneEventForEachChangeOfTheWholePercentage) {
  std::vector<uint64_t> slots(21, 5000);
  slots[0] = 1000;
  slots[1] = 2000;
  slots[2] = 3000;
  slots[3] = 4000;
  drive->logs.emplace(6, selfTestLog(slots));
  EXPECT_EQ(run(), SUCCESS);
  EXPECT_EQ(targetReads().size(), 155u);
  std::vector<uint8_t> expected{0};
  for (uint8_t percent = 1; percent <= 100; ++percent) expected.push_back(percent);
  expected.push_back(100);
  EXPECT_EQ(percentsOfPlainEvents(), expected);
}

TEST_F(TargetedRead, OneBadSectorEndsTheTestFailedAndSmartIsRestored) {
  drive->logs.emplace(6, selfTestLog(std::vector<uint64_t>(21, 5000)));
  badSector(4990);
  badSector(5010);
  EXPECT_EQ(run(), FAILED);
  EXPECT_EQ(targetReads(), concat({range(4985, 4990)}));
  EXPECT_EQ(listener.keyedEvents(), (std::vector<ProgressEvent>{{100, "READING_SECTOR 4990"}}));
  EXPECT_EQ(std::vector<ProgressEvent>(listener.events.end() - 3, listener.events.end()),
            (std::vector<ProgressEvent>{{100, "READING_SECTOR 4990"}, {100, ""}, {100, ""}}));
  EXPECT_EQ(log.lines, (std::vector<LogLine>{{"READING_SECTOR 4990", LevelFailure}}));
  EXPECT_EQ(drive->smartSwitches(), (std::vector<int>{1, 0}));
}

TEST_F(TargetedRead, ReadRefusedWithoutMediaErrorEndsAbortedWithCommunicationFailure) {
  drive->logs.emplace(6, selfTestLog(std::vector<uint64_t>(21, 5000)));
  filesystem.unreadable = {4986};
  drive->abortedSectors = {4986};
  EXPECT_EQ(run(), ABORTED);
  EXPECT_EQ(listener.keyedEvents(), (std::vector<ProgressEvent>{{100, kLost}}));
  EXPECT_EQ(log.lines, (std::vector<LogLine>{{kLost, LevelFailure}}));
  EXPECT_EQ(targetReads(), range(4985, 4986));
  EXPECT_EQ(drive->smartSwitches(), (std::vector<int>{1, 0}));
}

TEST_F(TargetedRead, DriveLostDuringTheReadsEndsAborted) {
  drive->logs.emplace(6, selfTestLog(std::vector<uint64_t>(21, 5000)));
  filesystem.unreadable = {4987};
  listener.onEvent = [this](const ProgressEvent& event) {
    if (event.percent == 6) drive->gone = true;  // after the second read
  };
  EXPECT_EQ(run(), ABORTED);
  EXPECT_EQ(listener.keyedEvents(), (std::vector<ProgressEvent>{{100, kLost}}));
  EXPECT_EQ(log.lines, (std::vector<LogLine>{{kLost, LevelError}}));
  EXPECT_EQ(targetReads(), range(4985, 4987));
}

TEST_F(TargetedRead, UserAbortWhileReadingTheLogsSkipsTheRestAndEndsAborted) {
  drive->logs.emplace(3, extErrorLog({}));
  drive->logs.emplace(6, selfTestLog({}));
  context->abortOnCall = 3;  // before log 7
  EXPECT_EQ(run(), ABORTED);
  EXPECT_EQ(drive->logReads(), (std::vector<uint8_t>{3}));
  // One event for each check that saw the abort (four logs and the last
  // check), then the closing one.
  EXPECT_EQ(listener.events, (std::vector<ProgressEvent>{{0, ""}, {100, ""}, {100, ""}, {100, ""}, {100, ""},
                                                         {100, ""}, {100, ""}}));
  EXPECT_TRUE(targetReads().empty());
  EXPECT_EQ(drive->smartSwitches(), (std::vector<int>{1, 0}));
}

TEST_F(TargetedRead, SystemEventWhileReadingTheLogsIsAnnouncedOnce) {
  drive->logs.emplace(6, selfTestLog({}));
  listener.onEvent = [this](const ProgressEvent& event) {
    if (event.percent == 0) context->systemEvents = 0x40;
  };
  EXPECT_EQ(run(), ABORTED);
  EXPECT_EQ(listener.events, (std::vector<ProgressEvent>{{0, ""}, {100, kKeySystemEventAbort}, {100, ""}}));
  EXPECT_EQ(log.lines, (std::vector<LogLine>{{kKeySystemEventAbort, LevelInfo}}));
  EXPECT_TRUE(drive->logReads().empty());
}

TEST_F(TargetedRead, UserAbortDuringTheReadsEndsAborted) {
  drive->logs.emplace(6, selfTestLog({}));
  context->abortOnCall = 10;  // 1 at the start, 6 around the logs, then one a read
  EXPECT_EQ(run(), ABORTED);
  EXPECT_EQ(targetReads(), range(0, 1));
  EXPECT_EQ(drive->smartSwitches(), (std::vector<int>{1, 0}));
  EXPECT_EQ(listener.events.back(), (ProgressEvent{100, ""}));
}

TEST_F(TargetedRead, DriveWithSmartAlreadyOnIsLeftOn) {
  drive->smartEnabled = true;
  drive->logs.emplace(6, selfTestLog({}));
  EXPECT_EQ(run(), SUCCESS);
  EXPECT_EQ(drive->smartSwitches(), (std::vector<int>{1}));
}

// --- On the simulated PC -----------------------------------------------------

class TargetedReadOnSimulatedDisks : public mstest::SeekDisks {
 protected:
  mstest::RecordingListener listener;
  mstest::RecordingLog log;
  TargetedReadTest test{ItemId(1, 1, 2)};
};

TEST_F(TargetedReadOnSimulatedDisks, DefaultHardDiskFailsAtTheSectorItsSelfTestLogNames) {
  installDefault();
  StorageComponent& hdd = ataDisk(0);
  ASSERT_TRUE(test.isSupported(&hdd));
  mstest::ScriptedRunContext context(&hdd, &listener, &log);
  EXPECT_EQ(test.run(&context), FAILED);
  // Targets are read in ascending order: the lower of the two unreadable
  // sectors ends the run.
  EXPECT_EQ(listener.keyedEvents(), (std::vector<ProgressEvent>{{100, "READING_SECTOR 193536017"}}));
  EXPECT_EQ(log.lines, (std::vector<LogLine>{{"READING_SECTOR 193536017", LevelFailure}}));
  EXPECT_EQ(listener.events.back(), (ProgressEvent{100, ""}));
}

TEST_F(TargetedReadOnSimulatedDisks, DefaultSolidStateDiskWithACleanLogPasses) {
  installDefault();
  StorageComponent& ssd = ataDisk(1);
  mstest::ScriptedRunContext context(&ssd, &listener, &log);
  EXPECT_EQ(test.run(&context), SUCCESS);
  EXPECT_TRUE(log.lines.empty());
  EXPECT_TRUE(listener.keyedEvents().empty());
  EXPECT_EQ(listener.events.back(), (ProgressEvent{100, ""}));
}

TEST_F(TargetedReadOnSimulatedDisks, ScsiDiskIsNotForThisTest) {
  installDefault();
  StorageComponent& sas = scsiDisk(3);
  EXPECT_FALSE(test.isSupported(&sas));
}

}  // namespace
