// Small devices and machines for the tests of the Windows face: an ATA drive
// that answers SMART RETURN STATUS and IDENTIFY, a SCSI target that answers
// REQUEST SENSE and INQUIRY or a scripted check condition, and a builder that
// installs a machine of such disks with a description.
#pragma once

#include <cstring>
#include <memory>
#include <string>

#include <gtest/gtest.h>

#include "sim/machine.h"
#include "sim/windows/face.h"
#include "win32/win32.h"

namespace sim {
namespace windows {
namespace testing {

class FakeAta : public AtaDevice {
 public:
  bool failing = false;
  AtaRegisters last;
  int commands = 0;
  AtaResponse executeAta(const AtaRequest& request) override {
    ++commands;
    last = request.in;
    AtaResponse response;
    response.out.status = 0x50;
    if (request.in.command == 0xB0 && request.in.feature == 0xDA) {
      response.out.lbaMid = failing ? 0xF4 : 0x4F;
      response.out.lbaHigh = failing ? 0x2C : 0xC2;
    } else if (request.in.command == 0xEC && request.direction == Direction::In && request.length >= 512) {
      std::memset(request.data, 0, 512);
      request.data[0] = 0x40;
      request.data[54] = 'S';  // model text, byte-swapped words
      request.data[55] = 'T';
      response.transferred = 512;
    } else {
      response.out.status = 0x51;  // ERR: aborted
      response.out.error = 0x04;
    }
    response.out.count = request.in.count;
    return response;
  }
};

class FakeScsi : public ScsiTarget {
 public:
  bool predictFailure = false;
  bool checkCondition = false;
  ScsiResponse executeScsi(const ScsiRequest& request) override {
    ScsiResponse response;
    if (checkCondition) {
      response.status = 0x02;
      response.sense = {0x70, 0, 0x05, 0, 0, 0, 0, 10, 0, 0, 0, 0, 0x20, 0x00};
      return response;
    }
    if (request.cdb[0] == 0x03 && request.length >= 18) {
      std::memset(request.data, 0, 18);
      request.data[0] = 0x70;
      request.data[7] = 10;
      if (predictFailure) request.data[12] = 0x5D;
      response.transferred = 18;
    } else if (request.cdb[0] == 0x12 && request.length >= 36) {
      std::memset(request.data, ' ', 36);
      request.data[0] = 0;
      std::memcpy(request.data + 8, "VENDOR  ", 8);
      response.transferred = 36;
    }
    return response;
  }
};

// A disk with media of `sectors` sectors of 512 bytes, and the given devices.
inline Disk makeDisk(const std::string& name, uint64_t sectors, std::shared_ptr<AtaDevice> ata,
                     std::shared_ptr<ScsiTarget> scsi, nlohmann::json description = nlohmann::json::object()) {
  Disk disk;
  disk.name = name;
  disk.busType = ata ? 11 : 1;
  disk.vendorId = ata ? "" : "SEAGATE";
  disk.productId = ata ? "ST1000DM003" : "ST600MM0006";
  disk.productRevision = "CC43";
  disk.serialNumber = "Z1D5K0AB";
  disk.ata = std::move(ata);
  disk.scsi = std::move(scsi);
  disk.media = std::make_shared<Media>(512, sectors);
  disk.description = std::move(description);
  return disk;
}

// Installs a machine of the given disks and machine-level description keys;
// the test fails when the face rejects it.
inline Machine* install(std::vector<Disk> disks, nlohmann::json description = nlohmann::json::object()) {
  auto machine = std::make_unique<Machine>();
  machine->disks = std::move(disks);
  machine->description = std::move(description);
  Machine* raw = machine.get();
  std::string error;
  EXPECT_TRUE(installMachine(std::move(machine), &error)) << error;
  return raw;
}

// Every test starts from a PC without disks and leaves one behind.
class FaceTest : public ::testing::Test {
 protected:
  void SetUp() override { uninstallMachine(); }
  void TearDown() override { uninstallMachine(); }
};

}  // namespace testing
}  // namespace windows
}  // namespace sim
