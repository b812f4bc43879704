// The machine description: the built-in machine, the devices each disk
// gets, and descriptions that are rejected with the field and the reason.
#include "sim/machine.h"

#include <gtest/gtest.h>

#include <cstdio>
#include <fstream>

#include "sim/ata_drive.h"
#include "sim/ata_test_util.h"
#include "sim/scsi_test_util.h"

namespace sim {
namespace {

using testutil::lba48Request;
using testutil::readInto;
using testutil::scsiIn;
using testutil::smartRequest;

std::string rejection(const std::string& text) {
  std::string error;
  auto machine = Machine::fromJsonText(text, &error);
  EXPECT_EQ(machine, nullptr) << text;
  return error;
}

std::string oneDisk(const std::string& diskBody) { return R"({"disks": [)" + diskBody + "]}"; }

TEST(Machine, HiddenMarksADiskBehindAControllerAndMustBeABoolean) {
  std::string error;
  auto machine = Machine::fromJsonText(
      oneDisk(R"({"name": "m0", "kind": "ata", "hidden": true, "profile": {"capacitySectors": 4096}})"), &error);
  ASSERT_NE(machine, nullptr) << error;
  EXPECT_TRUE(machine->disks[0].hidden);
  EXPECT_NE(machine->disks[0].ata, nullptr);
  EXPECT_EQ(rejection(oneDisk(R"({"name": "m0", "kind": "ata", "hidden": 1, "profile": {"capacitySectors": 4096}})")),
            "disks[0].hidden: expected true or false");
}

TEST(Machine, DefaultMachineHasTheSevenDisksOnTheirBuses) {
  auto machine = Machine::defaultMachine();
  ASSERT_NE(machine, nullptr);
  ASSERT_EQ(machine->disks.size(), 7u);
  const std::vector<std::pair<std::string, uint32_t>> expected = {
      {"hdd0", kBusTypeSata}, {"ssd0", kBusTypeSata}, {"nvme0", kBusTypeNvme}, {"sas0", kBusTypeSas},
      {"usb0", kBusTypeUsb},  {"usb1", kBusTypeUsb},  {"emmc0", kBusTypeMmc}};
  for (size_t i = 0; i < expected.size(); ++i) {
    EXPECT_EQ(machine->disks[i].name, expected[i].first);
    EXPECT_EQ(machine->disks[i].busType, expected[i].second);
  }
  // ATA pass-through only where the port has an ATA path.
  EXPECT_NE(machine->findDisk("hdd0")->ata, nullptr);
  EXPECT_EQ(machine->findDisk("usb0")->ata, nullptr);
  EXPECT_EQ(machine->findDisk("nvme0")->ata, nullptr);
  EXPECT_EQ(machine->findDisk("sas0")->ata, nullptr);
  EXPECT_EQ(machine->findDisk("emmc0")->scsi, nullptr);
  EXPECT_EQ(machine->findDisk("emmc0")->ata, nullptr);
  for (const auto& disk : machine->disks) {
    ASSERT_NE(disk.media, nullptr) << disk.name;
    EXPECT_GE(disk.media->byteSize(), 100ULL << 30) << disk.name;
    EXPECT_EQ(disk.media->storedSectors(), 0u) << disk.name;
    EXPECT_FALSE(disk.productId.empty()) << disk.name;
    EXPECT_FALSE(disk.serialNumber.empty()) << disk.name;
  }
  EXPECT_EQ(machine->findDisk("nvme0")->vendorId, "NVMe");
  EXPECT_EQ(machine->findDisk("usb1")->vendorId, "JMicron");
  EXPECT_EQ(machine->findDisk("hdd0")->productId, "WDC WD10EZEX-08WN4A0");
}

TEST(Machine, DefaultHardDiskHasTwoPendingSectorsAndAFailedSelfTest) {
  auto machine = Machine::defaultMachine();
  Disk* hdd = machine->findDisk("hdd0");
  ASSERT_NE(hdd, nullptr);
  EXPECT_EQ(hdd->media->unreadableCount(UnreadableKind::Pending), 2u);
  std::vector<uint8_t> data;
  ASSERT_EQ(readInto(*hdd->ata, smartRequest(0xD0, 0, 1), data, 512).out.status, 0x50);
  bool found197 = false;
  for (int i = 0; i < 30; ++i) {
    const uint8_t* e = &data[2 + 12 * i];
    if (e[0] == 197) {
      found197 = true;
      EXPECT_EQ(e[5], 2);
    }
  }
  EXPECT_TRUE(found197);
  ASSERT_EQ(readInto(*hdd->ata, smartRequest(0xD5, 6, 1), data, 512).out.status, 0x50);
  const int newest = data[508];
  ASSERT_GE(newest, 1);
  const uint8_t* d = &data[2 + 24 * (newest - 1)];
  EXPECT_EQ(d[1] >> 4, 7);
  const uint32_t failing = uint32_t{d[5]} | d[6] << 8 | d[7] << 16 | uint32_t{d[8]} << 24;
  EXPECT_TRUE(hdd->media->isUnreadable(failing));
  const auto read = readInto(*hdd->ata, lba48Request(0x24, failing, 1), data, 512);
  EXPECT_EQ(read.out.error, 0x40);
}

TEST(Machine, AttributeChangedOnTheDriveModelShowsInReturnStatus) {
  auto machine = Machine::defaultMachine();
  Disk* ssd = machine->findDisk("ssd0");
  ASSERT_NE(ssd->ataDrive, nullptr);
  EXPECT_EQ(ssd->ata->executeAta(smartRequest(0xDA)).out.lbaHigh, 0xC2);
  for (auto& a : ssd->ataDrive->profile().attributes) {
    if (a.id == 5) a.value = a.threshold;
  }
  EXPECT_EQ(ssd->ata->executeAta(smartRequest(0xDA)).out.lbaHigh, 0x2C);
  EXPECT_NE(machine->findDisk("nvme0")->scsiDrive, nullptr);
  EXPECT_EQ(machine->findDisk("usb0")->scsiDrive, nullptr);
}

TEST(Machine, EveryScsiPathOfTheDefaultMachineAnswersInquiry) {
  auto machine = Machine::defaultMachine();
  for (auto& disk : machine->disks) {
    if (!disk.scsi) continue;
    const auto call = scsiIn(*disk.scsi, {0x12, 0, 0, 0, 36, 0}, 36);
    EXPECT_EQ(call.response.status, 0) << disk.name;
    EXPECT_EQ(call.data.size(), 36u) << disk.name;
  }
}

TEST(Machine, JournalShowsTheTranslatedCommandsAtTheDrive) {
  auto machine = Machine::defaultMachine();
  Disk* usb = machine->findDisk("usb0");
  scsiIn(*usb->scsi, {0x28, 0, 0, 0, 0, 0, 0, 0, 1, 0}, 512);
  const auto atBridge = machine->journal().opcodesTo("usb0.bridge");
  const auto atDrive = machine->journal().opcodesTo("usb0");
  EXPECT_EQ(atBridge, (std::vector<uint8_t>{0x28}));
  EXPECT_EQ(atDrive, (std::vector<uint8_t>{0xEC, 0x24}));  // IDENTIFY once, then the read
}

TEST(Machine, RawIoPassesEveryFaultStateOnThePath) {
  auto machine = Machine::fromJsonText(oneDisk(R"({"name": "u", "kind": "ata", "bus": "usb",
      "profile": {"capacitySectors": 1000}, "bridge": {"type": "sat", "faults": {"vanishAfterCommands": 1}}})"),
                                       nullptr);
  ASSERT_NE(machine, nullptr);
  Disk& disk = machine->disks[0];
  EXPECT_EQ(disk.faultPath.size(), 2u);
  EXPECT_EQ(disk.admitRawIo(false, 5), Completion::Done);
  EXPECT_EQ(disk.admitRawIo(false, 5), Completion::NoDevice);
}

TEST(Machine, FaceKeysAreKeptAsRawJson) {
  auto machine = Machine::fromJsonText(R"({"controllers": [{"x": 1}], "libraries": {"storelib.dll": true},
      "processes": [], "disks": [{"name": "e", "kind": "emmc", "bus": "sd", "profile": {"capacitySectors": 100},
      "partitions": {"style": "gpt"}, "volumes": [1], "files": {"a": "b"}}]})",
                                       nullptr);
  ASSERT_NE(machine, nullptr);
  EXPECT_EQ(machine->description["libraries"]["storelib.dll"], true);
  EXPECT_EQ(machine->disks[0].description["partitions"]["style"], "gpt");
  EXPECT_EQ(machine->disks[0].busType, kBusTypeSd);
}

TEST(Machine, LoadTakesDefaultJsonTextOrAFile) {
  std::string error;
  EXPECT_NE(Machine::load("default", &error), nullptr) << error;
  EXPECT_NE(Machine::load(R"( {"disks": []})", &error), nullptr) << error;
  const std::string path = ::testing::TempDir() + "/sim_machine.json";
  {
    std::ofstream f(path);
    f << R"({"name": "from-file", "disks": []})";
  }
  auto machine = Machine::load(path, &error);
  ASSERT_NE(machine, nullptr) << error;
  EXPECT_EQ(machine->name, "from-file");
  std::remove(path.c_str());
  EXPECT_EQ(Machine::load("/nonexistent/machine.json", &error), nullptr);
  EXPECT_NE(error.find("/nonexistent/machine.json"), std::string::npos);
}

TEST(MachineDescription, ClockTakesTheCostOfATickReadOrOneMillisecond) {
  auto plain = Machine::fromJsonText(R"({"disks": []})", nullptr);
  ASSERT_NE(plain, nullptr);
  EXPECT_EQ(plain->clock().tickReadCostMs(), 1u);
  auto coarse = Machine::fromJsonText(R"({"clock": {"tickReadCostMs": 20}, "disks": []})", nullptr);
  ASSERT_NE(coarse, nullptr);
  EXPECT_EQ(coarse->clock().tickReadCostMs(), 20u);
  EXPECT_EQ(rejection(R"({"clock": {"tickReadCostMs": 0}})"),
            "clock.tickReadCostMs: must be at least 1: time must pass while a program reads the clock");
  EXPECT_EQ(rejection(R"({"clock": {"tickReadCostMs": 60001}})"), "clock.tickReadCostMs: must be at most 60000");
  EXPECT_EQ(rejection(R"({"clock": {"rate": 2}})"), "clock.rate: unknown key");
}

TEST(MachineDescription, RejectsAWrongTypeNamingTheField) {
  const std::string text = R"({"disks": [
      {"name": "a", "kind": "emmc", "profile": {"capacitySectors": 10}},
      {"name": "b", "kind": "emmc", "profile": {"capacitySectors": 10}},
      {"name": "c", "kind": "ata", "profile": {"capacitySectors": "big"}}]})";
  EXPECT_EQ(rejection(text), "disks[2].profile.capacitySectors: expected an unsigned integer");
}

TEST(MachineDescription, RejectsUnknownKeysAtEveryLevel) {
  EXPECT_EQ(rejection(R"({"disks": [], "colour": 1})"), "colour: unknown key");
  EXPECT_EQ(rejection(oneDisk(R"({"name": "a", "kind": "emmc", "profile": {"capacitySectors": 1}, "speed": 2})")),
            "disks[0].speed: unknown key");
  EXPECT_EQ(rejection(oneDisk(R"({"name": "a", "kind": "ata", "profile": {"capacitySectors": 1, "smart":
      {"attributes": [{"id": 5, "valu": 1}]}}})")),
            "disks[0].profile.smart.attributes[0].valu: unknown key");
}

TEST(MachineDescription, RejectsMissingAndOutOfRangeFields) {
  EXPECT_EQ(rejection(oneDisk(R"({"kind": "emmc", "profile": {"capacitySectors": 1}})")), "disks[0].name: missing");
  EXPECT_EQ(rejection(oneDisk(R"({"name": "a", "kind": "emmc", "profile": {}})")),
            "disks[0].profile.capacitySectors: missing");
  EXPECT_EQ(rejection(oneDisk(R"({"name": "a", "kind": "ata", "profile": {"capacitySectors": 1,
      "smart": {"attributes": [{"id": 300}]}}})")),
            "disks[0].profile.smart.attributes[0].id: must be at most 255");
  EXPECT_EQ(rejection(oneDisk(R"({"name": "a", "kind": "emmc", "profile": {"capacitySectors": 1,
      "logicalSectorSize": 1000}})")),
            "disks[0].profile.logicalSectorSize: must be a power of two from 512 to 65536");
}

TEST(MachineDescription, RejectsChoicesOutsideTheirList) {
  EXPECT_EQ(rejection(oneDisk(R"({"name": "a", "kind": "floppy"})")),
            R"(disks[0].kind: expected one of "ata", "scsi", "nvme", "emmc")");
  EXPECT_EQ(rejection(oneDisk(R"({"name": "a", "kind": "nvme", "bus": "sata", "profile": {"capacitySectors": 1}})")),
            "disks[0].bus: not a bus for a disk of this kind");
}

TEST(MachineDescription, RejectsBridgesWhereNoneBelongs) {
  EXPECT_EQ(rejection(oneDisk(R"({"name": "a", "kind": "ata", "bus": "usb", "profile": {"capacitySectors": 1}})")),
            "disks[0].bridge: missing: an ATA disk on the USB bus needs a bridge");
  EXPECT_EQ(rejection(oneDisk(R"({"name": "a", "kind": "ata", "bus": "sata", "profile": {"capacitySectors": 1},
      "bridge": {"type": "sat"}})")),
            "disks[0].bridge: only an ATA disk on the USB bus has a bridge");
}

TEST(MachineDescription, RejectsUnreadableSectorsBeyondTheDisk) {
  EXPECT_EQ(rejection(oneDisk(R"({"name": "a", "kind": "emmc", "profile": {"capacitySectors": 10},
      "faults": {"unreadableSectors": [3, 10]}})")),
            "disks[0].faults.unreadableSectors[1]: beyond the last sector of the disk");
}

TEST(MachineDescription, RejectsANumberTooLargeForADoubleWithAClearError) {
  EXPECT_EQ(rejection(R"({"disks": [], "clock": {"tickReadCostMs": 9e316}})"),
            "(machine): not valid JSON: number overflow parsing '9e316'");
}

TEST(MachineDescription, RejectsDuplicateNamesBadJsonAndMissingImages) {
  EXPECT_EQ(rejection(R"({"disks": [{"name": "a", "kind": "emmc", "profile": {"capacitySectors": 1}},
      {"name": "a", "kind": "emmc", "profile": {"capacitySectors": 1}}]})"),
            "disks[1].name: a disk of this name exists already");
  EXPECT_EQ(rejection("{\"disks\": [").rfind("(machine): not valid JSON: parse error at line 1, column ", 0), 0u)
      << rejection("{\"disks\": [");
  EXPECT_EQ(rejection("[]"), "(machine): expected an object");
  const std::string error = rejection(oneDisk(R"({"name": "a", "kind": "emmc", "profile": {"capacitySectors": 1},
      "media": {"image": "/nonexistent/x.img"}})"));
  EXPECT_EQ(error.rfind("disks[0].media.image: cannot open image file", 0), 0u) << error;
}

TEST(MachineDescription, RefusesADocumentNestedDeeperThanSixtyFourLevels) {
  // 100,000 levels: the text is refused before it is parsed.
  const std::string deep = "{\"name\": " + std::string(100000, '[') + std::string(100000, ']') + "}";
  EXPECT_EQ(rejection(deep), "(machine): nested deeper than 64 levels of objects and arrays");
  // Brackets inside strings are text, not nesting.
  std::string error;
  EXPECT_NE(Machine::fromJsonText("{\"name\": \"" + std::string(100, '[') + "\", \"disks\": []}", &error), nullptr)
      << error;
  // 64 levels pass the depth check (the face keeps that key as raw JSON), 65 do not.
  const auto nested = [](size_t levels) {
    return "{\"controllers\": " + std::string(levels - 1, '[') + std::string(levels - 1, ']') + "}";
  };
  EXPECT_NE(Machine::fromJsonText(nested(64), &error), nullptr) << error;
  EXPECT_EQ(rejection(nested(65)), "(machine): nested deeper than 64 levels of objects and arrays");
}

TEST(MachineDescription, RefusesAParsedDocumentNestedTooDeepWithoutRecursing) {
  nlohmann::json deep = nlohmann::json::array();
  for (int i = 0; i < 100000; ++i) deep = nlohmann::json::array({std::move(deep)});
  nlohmann::json description = {{"controllers", nullptr}};
  description["controllers"] = std::move(deep);
  std::string error;
  EXPECT_EQ(Machine::fromJson(description, &error), nullptr);
  EXPECT_EQ(error, "(machine): nested deeper than 64 levels of objects and arrays");
}

TEST(MachineDescription, FaultsAndUnreadableKindsReachTheDevices) {
  auto machine = Machine::fromJsonText(oneDisk(R"({"name": "a", "kind": "ata", "profile": {"capacitySectors": 100},
      "faults": {"hang": true, "opcodes": [176], "unreadableSectors": [{"lba": 4, "kind": "flagged"}, 9]}})"),
                                       nullptr);
  ASSERT_NE(machine, nullptr);
  Disk& disk = machine->disks[0];
  EXPECT_EQ(disk.media->unreadableSectors().at(4), UnreadableKind::Flagged);
  EXPECT_EQ(disk.media->unreadableSectors().at(9), UnreadableKind::Pending);
  AtaRequest smart = smartRequest(0xDA);
  smart.timeoutSeconds = 7;
  EXPECT_EQ(disk.ata->executeAta(smart).completion, Completion::Timeout);
  EXPECT_EQ(machine->clock().nowMs(), 7000u);
}

}  // namespace
}  // namespace sim

namespace sim {
namespace {

TEST(MachineDescription, BusDefaultsToTheUsualOneForTheKind) {
  auto machine = Machine::fromJsonText(R"({"disks": [
      {"name": "a", "kind": "ata", "profile": {"capacitySectors": 10}},
      {"name": "s", "kind": "scsi", "profile": {"capacitySectors": 10}},
      {"name": "n", "kind": "nvme", "profile": {"capacitySectors": 10}},
      {"name": "e", "kind": "emmc", "profile": {"capacitySectors": 10}}]})",
                                       nullptr);
  ASSERT_NE(machine, nullptr);
  EXPECT_EQ(machine->disks[0].busType, kBusTypeSata);
  EXPECT_EQ(machine->disks[1].busType, kBusTypeSas);
  EXPECT_EQ(machine->disks[2].busType, kBusTypeNvme);
  EXPECT_EQ(machine->disks[3].busType, kBusTypeMmc);
}

}  // namespace
}  // namespace sim

namespace sim {
namespace {

// "privileges" and "smartGetVersion" belong to the Windows face: the loader
// keeps them as written, after checking their shape.
TEST(MachineDescription, KeepsThePrivilegesAndSmartGetVersionKeysOfTheWindowsFace) {
  std::string error;
  auto machine = Machine::fromJsonText(R"({"privileges": ["SeChangeNotifyPrivilege"], "disks": [
      {"name": "a", "kind": "ata", "profile": {"capacitySectors": 10}, "smartGetVersion": {"capabilities": 7}},
      {"name": "b", "kind": "ata", "bus": "ata", "profile": {"capacitySectors": 10}, "smartGetVersion": {}}]})",
                                       &error);
  ASSERT_NE(machine, nullptr) << error;
  EXPECT_EQ(machine->description.at("privileges"), nlohmann::json::parse(R"(["SeChangeNotifyPrivilege"])"));
  EXPECT_EQ(machine->disks[0].description.at("smartGetVersion").at("capabilities"), 7);
  EXPECT_TRUE(machine->disks[1].description.at("smartGetVersion").empty());
  // A token without any privilege is a list too.
  EXPECT_NE(Machine::fromJsonText(R"({"privileges": [], "disks": []})", &error), nullptr) << error;
}

TEST(MachineDescription, RejectsPrivilegesThatAreNotAListOfNames) {
  EXPECT_EQ(rejection(R"({"privileges": "SeManageVolumePrivilege"})"), "privileges: expected an array");
  EXPECT_EQ(rejection(R"({"privileges": ["SeManageVolumePrivilege", 3]})"),
            R"(privileges[1]: expected a privilege name such as "SeManageVolumePrivilege")");
  EXPECT_EQ(rejection(R"({"privileges": [""]})"),
            R"(privileges[0]: expected a privilege name such as "SeManageVolumePrivilege")");
}

TEST(MachineDescription, RejectsASmartGetVersionOfTheWrongShapeOrWithoutAnAtaPort) {
  EXPECT_EQ(rejection(oneDisk(R"({"name": "a", "kind": "ata", "profile": {"capacitySectors": 1},
      "smartGetVersion": 5})")),
            "disks[0].smartGetVersion: expected an object");
  EXPECT_EQ(rejection(oneDisk(R"({"name": "a", "kind": "ata", "profile": {"capacitySectors": 1},
      "smartGetVersion": {"capabilities": "all"}})")),
            "disks[0].smartGetVersion.capabilities: expected an unsigned integer");
  EXPECT_EQ(rejection(oneDisk(R"({"name": "a", "kind": "ata", "profile": {"capacitySectors": 1},
      "smartGetVersion": {"capabilities": 4294967296}})")),
            "disks[0].smartGetVersion.capabilities: must be at most 4294967295");
  EXPECT_EQ(rejection(oneDisk(R"({"name": "a", "kind": "ata", "profile": {"capacitySectors": 1},
      "smartGetVersion": {"capabilities": 5, "version": 1}})")),
            "disks[0].smartGetVersion.version: unknown key");
  EXPECT_EQ(rejection(oneDisk(R"({"name": "a", "kind": "scsi", "profile": {"capacitySectors": 1},
      "smartGetVersion": {"capabilities": 5}})")),
            "disks[0].smartGetVersion: only a disk on an ATA port answers SMART_GET_VERSION");
  EXPECT_EQ(rejection(oneDisk(R"({"name": "a", "kind": "ata", "bus": "usb", "profile": {"capacitySectors": 1},
      "bridge": {"type": "sat"}, "smartGetVersion": {"capabilities": 5}})")),
            "disks[0].smartGetVersion: only a disk on an ATA port answers SMART_GET_VERSION");
}

}  // namespace
}  // namespace sim
