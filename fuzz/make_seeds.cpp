// Writes the seed corpora of the fuzz targets into fuzz/corpus/<target>/:
// real-shaped inputs taken from the simulated drives (their data-in answers,
// their sense, the partition tables the machine writes) and from the project's
// own descriptions and command lines. Run from the source folder after a
// change to the simulated drives:  build/fuzz/fuzz_seeds fuzz/corpus
#include <sys/stat.h>

#include <cstdio>
#include <fstream>
#include <memory>
#include <string>
#include <vector>

#include "fuzz/harness.h"
#include "sim/ata_drive.h"
#include "sim/machine.h"
#include "sim/media.h"
#include "sim/sat_layer.h"
#include "sim/scsi_util.h"
#include "sim/virtual_clock.h"
#include "sim/windows/face.h"

namespace {

std::string root;
int written = 0;

void save(const std::string& target, const std::string& name, const std::vector<uint8_t>& bytes) {
  const std::string folder = root + "/" + target;
  mkdir(root.c_str(), 0755);
  mkdir(folder.c_str(), 0755);
  std::ofstream out(folder + "/" + name, std::ios::binary | std::ios::trunc);
  out.write(reinterpret_cast<const char*>(bytes.data()), static_cast<std::streamsize>(bytes.size()));
  ++written;
}

void saveText(const std::string& target, const std::string& name, const std::string& text) {
  save(target, name, std::vector<uint8_t>(text.begin(), text.end()));
}

void deviceSeeds() {
  for (size_t t = 0; t < fuzzing::transportCount(); ++t) {
    for (size_t a = 0; a < fuzzing::activityCount(); ++a) {
      if (a == 8 || a == 9) continue;  // the harness runs the quick seek tests for these
      const std::string name = "t" + std::to_string(t) + "-a" + std::to_string(a);
      save("fuzzed_device", name, {static_cast<uint8_t>(t), static_cast<uint8_t>(a)});
      // The answers of the undisturbed run, for the tests that read data the
      // module parses (discovery, SMART status, targeted read, self tests).
      if (a == 0 || a == 1 || a == 2 || a == 5 || a == 10) {
        std::vector<uint8_t> seed = {static_cast<uint8_t>(t), static_cast<uint8_t>(a)};
        const std::vector<uint8_t> answers =
            fuzzing::recordAnswers(static_cast<uint8_t>(t), static_cast<uint8_t>(a), 48 * 1024);
        seed.insert(seed.end(), answers.begin(), answers.end());
        save("replaced_answers", name, seed);
      }
    }
  }
}

void senseSeeds() {
  sim::SenseInfo medium;
  medium.key = sim::kSenseMediumError;
  medium.asc = 0x1100;
  medium.informationValid = true;
  medium.information = 123456;
  save("sense_data", "fixed-medium-error", sim::buildSense(sim::SenseFormat::Fixed, medium));
  save("sense_data", "descriptor-medium-error", sim::buildSense(sim::SenseFormat::Descriptor, medium));
  sim::SenseInfo progress;
  progress.key = sim::kSenseNotReady;
  progress.asc = 0x0403;
  progress.sksValid = true;
  progress.sks[1] = 0x40;
  save("sense_data", "fixed-progress", sim::buildSense(sim::SenseFormat::Fixed, progress));
  save("sense_data", "descriptor-progress", sim::buildSense(sim::SenseFormat::Descriptor, progress));

  // The ATA Status Return of a SAT pass-through with CK_COND, from the
  // port's translation in front of an emulated drive.
  auto clock = std::make_shared<sim::VirtualClock>();
  auto media = std::make_shared<sim::Media>(512, 16384);
  sim::AtaProfile profile;
  profile.model = "SEED ATA DISK";
  profile.serial = "SEED0001";
  auto drive = std::make_shared<sim::AtaDrive>(profile, media, clock);
  sim::SatLayer sat(sim::portTranslationProfile(), drive);
  // ATA PASS-THROUGH (16), non-data, CK_COND: SMART RETURN STATUS.
  const uint8_t cdb[16] = {0x85, 3 << 1, 0x20, 0xDA, 0, 0, 0, 0, 0, 0x4F, 0, 0xC2, 0, 0xB0, 0};
  sim::ScsiRequest request;
  request.cdb = cdb;
  request.cdbLength = 16;
  const sim::ScsiResponse response = sat.executeScsi(request);
  save("sense_data", "ata-status-return", response.sense);
}

void partitionSeeds() {
  const char* tables[] = {
      R"({"scheme": "mbr", "signature": 305419896, "entries": [
          {"type": 7, "startLba": 2048, "sectorCount": 4096, "bootable": true},
          {"type": 15, "startLba": 8192, "sectorCount": 8000, "logical": [
            {"type": 7, "startLba": 10240, "sectorCount": 1000},
            {"type": 11, "startLba": 12288, "sectorCount": 1000}]}]})",
      R"({"scheme": "gpt", "diskGuid": "12345678-1234-1234-1234-123456789ABC", "entries": [
          {"type": "C12A7328-F81F-11D2-BA4B-00A0C93EC93B", "startLba": 2048, "sectorCount": 2048, "name": "EFI"},
          {"type": "EBD0A0A2-B9E5-4433-87C0-68B6B72699C7", "startLba": 4096, "sectorCount": 8192, "name": "DATA"}]})",
  };
  const char* names[] = {"mbr-extended-chain", "gpt-two-entries"};
  for (int i = 0; i < 2; ++i) {
    std::string error;
    std::unique_ptr<sim::Machine> machine = sim::Machine::fromJsonText(
        std::string(R"({"disks": [{"name": "d", "kind": "ata", "profile": {"capacitySectors": 16384},
                        "partitions": )") + tables[i] + "}]}",
        &error);
    sim::Machine* raw = machine.get();
    if (machine == nullptr || !sim::installMachine(std::move(machine), &error)) {
      std::fprintf(stderr, "partition seed %s: %s\n", names[i], error.c_str());
      continue;
    }
    const std::shared_ptr<sim::Media>& media = raw->disks[0].media;
    std::vector<uint8_t> seed((34 + 33) * 512);
    media->read(0, 34, seed.data());
    media->read(media->sectorCount() - 33, 33, seed.data() + 34 * 512);
    save("partition_tables", names[i], seed);
    sim::uninstallMachine();
  }
}

void textSeeds() {
  saveText("machine_description", "default", sim::Machine::defaultMachineJson());
  saveText("machine_description", "usb-jmicron",
           R"({"disks": [{"name": "u", "kind": "ata", "bus": "usb", "bridge": {"type": "jmicron"},
               "profile": {"model": "M", "serial": "S", "capacitySectors": 4096},
               "faults": {"unreadableSectors": [5, {"lba": 7, "kind": "pseudo"}]},
               "partitions": {"scheme": "mbr", "entries": [{"type": 7, "startLba": 64, "sectorCount": 2000}]},
               "volumes": [{"partition": 1, "letter": "E"}]}], "privileges": []})");
  saveText("machine_description", "csmi",
           R"({"disks": [{"name": "m0", "kind": "ata", "hidden": true, "profile": {"capacitySectors": 4096}}],
               "controllers": [{"vendorId": "8086", "deviceId": "2826", "friendlyName": "RAID",
               "biosVersion": [1, 2, 3, 4], "phys": [{"protocol": "sata", "disk": "m0"}]}]})");

  saveText("test_parameters", "drive-self-test", "STORAGE.SEC_NUM=80\nSTORAGE.SEC_COUNT=4\n");
  saveText("test_parameters", "read-sizes", "STORAGE.INITIAL_SIZE=1\nSTORAGE.CENTRAL_SIZE=2\nSTORAGE.FINAL_SIZE=1\n");
  saveText("test_parameters", "whole-disk", "STORAGE.WHOLE_DISK_READ=1\nSTORAGE.SEC_NUM=-1\n");

  saveText("checker_output", "chkdsk",
           "The type of the file system is NTFS.\r\nStage 1: Examining basic file system structure ...\r\n"
           "  12 percent complete.\r\n100 percent complete.\r\nWindows has scanned the file system.\r\n");

  const std::vector<std::vector<std::string>> lines = {
      {"--list", "--json"},
      {"--machine", "default", "-Q", "0", "1"},
      {"-E\"f,r\"", "--param", "STORAGE.SEC_NUM=80", "--answer", "1", "2"},
      {"--quick=\"smart, targeted\"", "--module", "libmodule_storage.so", "-M", "storage"},
      {"--recover", "scan", "--machine", "default", "0"},
      {"--help"},
  };
  for (size_t i = 0; i < lines.size(); ++i) {
    std::string text;
    for (size_t j = 0; j < lines[i].size(); ++j) text += (j ? std::string(1, '\0') : "") + lines[i][j];
    saveText("command_line", "line" + std::to_string(i), text);
  }

  saveText("management_values", "logical-disk",
           "DeviceID=C:\nCaption=C:\nFileSystem=NTFS\nSize=500105216000\nFreeSpace=123456789\nDriveType=3\n");
}

}  // namespace

int main(int argc, char** argv) {
  root = argc > 1 ? argv[1] : "fuzz/corpus";
  deviceSeeds();
  senseSeeds();
  partitionSeeds();
  textSeeds();
  std::printf("%d seeds written under %s\n", written, root.c_str());
  return 0;
}
