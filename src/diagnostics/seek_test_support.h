// Test support for the read and seek tests: a handle path that fails at
// chosen sectors, a number service whose draws a test fixes, and disks of the
// simulated PC reached through the real protocols. Header only, for tests.
#pragma once

#include <gtest/gtest.h>

#include <cstdint>
#include <deque>
#include <memory>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include "commands/bridges/ata_bridge.h"
#include "commands/bridges/sat_bridge.h"
#include "commands/bridges/scsi_bridge.h"
#include "components/storage_component.h"
#include "protocols/ata_protocol.h"
#include "protocols/scsi_protocol.h"
#include "sim/machine.h"
#include "sim/windows/face.h"
#include "system/filesystem.h"
#include "system/number_handler.h"
#include "system/number_handler_imp.h"
#include "testing/recording_host.h"
#include "testing/scripted_protocol.h"
#include "win32/win32.h"

namespace mstest {

// Handle reads that succeed everywhere except at the sectors named
// unreadable and at or past `capacity`; each read is recorded by its first
// LBA. Installing it puts it behind getFilesystem() for its life.
class SectorFilesystem : public Filesystem {
 public:
  static constexpr uint32_t kReadFailed = 23;

  explicit SectorFilesystem(uint32_t sectorBytes = 512) : sectorSize(sectorBytes) {
    setFilesystemForTesting(this);
  }
  ~SectorFilesystem() override { setFilesystemForTesting(nullptr); }

  std::set<uint64_t> unreadable;
  uint64_t capacity = UINT64_MAX;
  std::vector<uint64_t> readLbas;
  std::vector<uint32_t> timeouts;

  char getSystemDrive() override { return 'C'; }
  const char* getCurrentDirectory() override { return nullptr; }
  const char* getExecutablePath() override { return nullptr; }
  const char* getExecutableDirectory() override { return nullptr; }
  uint32_t listFiles(std::string, std::vector<std::string>*) override { return 1; }
  uint32_t createDirectories(std::string, std::string*) override { return 1; }
  uint32_t isReservedName(std::string) override { return 0; }
  uint32_t removeTree(const std::string&) override { return 1; }
  uint32_t create(std::string, HANDLE*, bool) override { return 1; }
  uint32_t close(HANDLE) override { return 1; }
  uint32_t setSize(HANDLE, uint64_t) override { return 1; }
  uint32_t write(HANDLE, uint64_t, uint64_t, uint64_t*, uint32_t, void*) override { return 1; }
  uint32_t read(HANDLE, uint64_t offset, uint64_t length, uint64_t* done, uint32_t timeoutSeconds,
                void*) override {
    const uint64_t lba = offset / sectorSize;
    readLbas.push_back(lba);
    timeouts.push_back(timeoutSeconds);
    if (lba >= capacity || unreadable.count(lba) != 0) {
      if (done != nullptr) *done = 0;
      return kReadFailed;
    }
    if (done != nullptr) *done = length;
    return 0;
  }

  // Reads of `lba` so far.
  size_t readsOf(uint64_t lba) const {
    size_t n = 0;
    for (uint64_t at : readLbas) n += at == lba ? 1 : 0;
    return n;
  }

 private:
  uint32_t sectorSize;
};

// The module's number service with the random sequence under the test's
// control: draws queued in `draws` are handed out as they stand (the test
// keeps them below the limit); after that the module's own generator answers,
// seeded with `fixedSeed` when one is set instead of what the caller passed.
// Every seed and every limit is recorded. Installed for its life.
class ScriptedNumberHandler : public NumberHandlerImp {
 public:
  ScriptedNumberHandler() { setNumberHandlerForTesting(this); }
  ~ScriptedNumberHandler() override { setNumberHandlerForTesting(nullptr); }

  void seed(uint32_t value) override {
    seeds.push_back(value);
    NumberHandlerImp::seed(fixedSeed ? *fixedSeed : value);
  }
  uint64_t randomBelow(uint64_t limit) override {
    limits.push_back(limit);
    if (!draws.empty()) {
      const uint64_t value = draws.front();
      draws.pop_front();
      return value;
    }
    return NumberHandlerImp::randomBelow(limit);
  }

  std::optional<uint32_t> fixedSeed;
  std::deque<uint64_t> draws;
  std::vector<uint32_t> seeds;
  std::vector<uint64_t> limits;
};

// A simulated PC with its disks opened as \\.\PhysicalDriveN and wrapped in
// components as discovery would make them. The machine is taken away and the
// handles closed at the end of the test.
class SeekDisks : public ::testing::Test {
 protected:
  void TearDown() override {
    components.clear();
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

  // An internal ATA disk: the plain ATA transport, then SAT with CK_COND.
  StorageComponent& ataDisk(int disk, uint32_t location = kLocationInternal) {
    HANDLE handle = open(disk);
    auto protocol = std::make_unique<AtaProtocol>();
    protocol->addTransport(std::make_shared<AtaBridge>(handle));
    protocol->addTransport(std::make_shared<SatBridgeWithCkCondition>(std::make_shared<ScsiBridge>(handle)));
    protocol->setProtocolKind(kProtocolAta);
    protocol->setBusKind(kBusAta);
    return component(std::move(protocol), kBusAta, location);
  }

  // A SCSI disk on a SCSI bus.
  StorageComponent& scsiDisk(int disk, uint32_t location = kLocationInternal) {
    auto protocol = std::make_unique<ScsiProtocol>();
    protocol->addTransport(std::make_shared<ScsiBridge>(open(disk)));
    protocol->setProtocolKind(kProtocolScsi);
    protocol->setBusKind(kBusScsi);
    return component(std::move(protocol), kBusScsi, location);
  }

  std::vector<HANDLE> handles;
  std::vector<std::unique_ptr<StorageComponent>> components;

 private:
  StorageComponent& component(std::unique_ptr<StorageProtocol> protocol, uint32_t busKind, uint32_t location) {
    StorageProtocolProperties properties;
    EXPECT_EQ(protocol->getProperties(&properties), kStatusOk);
    components.push_back(std::make_unique<StorageComponent>(std::move(protocol), nullptr));
    StorageComponent& made = *components.back();
    made.setBusKind(busKind);
    made.setLocation(location);
    return made;
  }
};

// An internal disk of `sectorCount` sectors behind the scripted protocol, with
// the scripted handle path and number service installed, and a host that
// records everything. A device read (reached only when the handle read
// failed) answers with a media error unless the test says otherwise.
class ScriptedDisk : public ::testing::Test {
 protected:
  explicit ScriptedDisk(uint64_t sectorCount = 1000000)
      : protocol(new ScriptedProtocol()),
        disk(std::unique_ptr<StorageProtocol>(protocol), nullptr),
        context(&disk, &listener, &log) {
    disk.setLocation(kLocationInternal);
    disk.setBusKind(kBusAta);
    protocol->setProtocolKind(kProtocolAta);
    setSectorCount(sectorCount);
    protocol->setDefault(Op::ReadSectors, kStatusMediaError);
  }

  void setSectorCount(uint64_t sectorCount) {
    StorageProtocolProperties properties;
    properties.sectorCount = sectorCount;
    properties.logicalSectorSize = 512;
    properties.smartSupported = true;
    protocol->setCachedProperties(properties);
    protocol->setProperties(properties);
  }

  // Makes the disk a SCSI disk on a SCSI bus, as the extended tests want.
  void makeScsi() {
    disk.setBusKind(kBusScsi);
    protocol->setProtocolKind(kProtocolScsi);
  }

  // Handle reads of the test itself: the recorded reads without the first,
  // the wake-up read of sector 0 before the body.
  std::vector<uint64_t> testReads() const {
    if (filesystem.readLbas.empty()) return {};
    return std::vector<uint64_t>(filesystem.readLbas.begin() + 1, filesystem.readLbas.end());
  }

  ScriptedProtocol* protocol;
  StorageComponent disk;
  RecordingListener listener;
  RecordingLog log;
  ScriptedRunContext context;
  SectorFilesystem filesystem;
  ScriptedNumberHandler numbers;
};

}  // namespace mstest
