// The LSI command library emulation: one table of commands, one handler each,
// controllers and drives from the description, and every drive command going
// to the disk's own devices (so the journal sees it).
#include "sim/lsi_controller.h"

#include <algorithm>
#include <cstring>
#include <map>
#include <set>
#include <vector>

#include "sim/description_reader.h"
#include "sim/machine.h"
#include "sim/windows/face.h"

namespace sim {

namespace {

const std::vector<std::string> kLibraries = {"storelib.dll", "storelibir.dll", "storelibir-2.dll"};
const std::vector<std::string> kInterfaceNames = {"SPI", "SAS 3G", "SATA 1.5G", "SATA 3G", "SAS 6G"};
const std::vector<std::string> kRaidLevelNames = {"RAID 0", "RAID 1", "RAID 5", "", "RAID 6",
                                                  "RAID 10", "RAID 50", "RAID 60"};
const std::vector<std::string> kCommandNames = {
    "startLibrary", "controllerList", "controllerInfo", "physicalDriveList", "arrayList", "logicalDeviceList",
    "physicalDriveInfo", "logicalDeviceConfig", "logicalDeviceDrives", "sspPassThrough", "stpPassThrough"};

struct LsiDrive {
  uint16_t deviceId = 0;
  std::string disk;
  uint8_t type = 0;        // non-zero: not a disk (an enclosure)
  int interfaceType = -1;  // byte 401; by the disk's kind when absent
  bool refuseInfo = false;
};

struct LsiLogical {
  uint8_t target = 0;
  uint16_t sequence = 0;
  uint8_t primaryLevel = 0;
  uint8_t span = 0;
  uint16_t state = 3;
  uint64_t sizeSectors = 0;
  uint16_t drives = 0;
};

struct LsiImage {
  size_t table = 1;
  size_t position = 0;
  std::string name;
  std::string version;
};

struct LsiController {
  size_t library = 0;
  uint32_t id = 0;
  std::string model;
  std::string serial;
  uint16_t interfaces = 0;
  uint8_t raidLevels = 0;
  bool flagA = false;
  bool flagB = false;
  int physicalCount = -1;
  std::vector<LsiImage> images;
  std::vector<LsiDrive> drives;
  std::vector<LsiLogical> logical;
  std::vector<std::pair<uint16_t, uint8_t>> arrays;
  std::set<std::string> refused;
};

struct State {
  Machine* machine = nullptr;
  std::vector<LsiController> controllers;
  std::set<size_t> refusingStart;
};

State& state() {
  static State s;
  return s;
}

// The record, as the module lays it out.
struct Record {
  uint8_t commandClass;
  uint8_t commandCode;
  uint8_t reserved0[2];
  uint32_t controllerId;
  uint16_t target;
  uint8_t logicalTarget;
  uint8_t reserved1[17];
  uint32_t dataLength;
  uint64_t data;
};
static_assert(sizeof(Record) == 40, "the library's record is 40 bytes");

void putU16(uint8_t* at, uint16_t v) {
  at[0] = static_cast<uint8_t>(v);
  at[1] = static_cast<uint8_t>(v >> 8);
}
void putU32(uint8_t* at, uint32_t v) {
  putU16(at, static_cast<uint16_t>(v));
  putU16(at + 2, static_cast<uint16_t>(v >> 16));
}
void putU64(uint8_t* at, uint64_t v) {
  putU32(at, static_cast<uint32_t>(v));
  putU32(at + 4, static_cast<uint32_t>(v >> 32));
}
uint16_t getU16(const uint8_t* at) { return static_cast<uint16_t>(at[0] | (at[1] << 8)); }
uint32_t getU32(const uint8_t* at) { return getU16(at) | (static_cast<uint32_t>(getU16(at + 2)) << 16); }

void putText(uint8_t* at, size_t room, const std::string& text, char pad) {
  std::memset(at, pad, room);
  std::copy_n(text.begin(), std::min(room, text.size()), at);
}

bool readController(const nlohmann::json& j, const std::string& path, std::string* error, LsiController* out) {
  DescriptionReader r(j, path, error);
  if (r.require("library")) r.choice("library", kLibraries, &out->library);
  r.number("id", &out->id);
  r.string("model", &out->model, 79);
  r.string("serial", &out->serial, 31);
  r.boolean("flagA", &out->flagA);
  r.boolean("flagB", &out->flagB);
  uint16_t count = 0;
  if (r.number("physicalDeviceCount", &count)) out->physicalCount = count;
  bool refuseStart = false;
  if (r.boolean("refuseStart", &refuseStart) && refuseStart) state().refusingStart.insert(out->library);
  const nlohmann::json* list = nullptr;
  if (r.array("interfaces", &list)) {
    for (size_t i = 0; i < list->size(); ++i) {
      const auto it = (*list)[i].is_string()
                          ? std::find(kInterfaceNames.begin(), kInterfaceNames.end(), (*list)[i].get<std::string>())
                          : kInterfaceNames.end();
      if (it == kInterfaceNames.end()) {
        r.fail(r.pathOf("interfaces") + "[" + std::to_string(i) + "]", "expected SPI, SAS 3G, SATA 1.5G, SATA 3G or SAS 6G");
        break;
      }
      out->interfaces |= static_cast<uint16_t>(1u << (it - kInterfaceNames.begin()));
    }
  }
  if (r.array("raidLevels", &list)) {
    for (size_t i = 0; i < list->size(); ++i) {
      const std::string name = (*list)[i].is_string() ? (*list)[i].get<std::string>() : "";
      const auto it = std::find(kRaidLevelNames.begin(), kRaidLevelNames.end(), name);
      if (name.empty() || it == kRaidLevelNames.end()) {
        r.fail(r.pathOf("raidLevels") + "[" + std::to_string(i) + "]", "expected RAID 0, 1, 5, 6, 10, 50 or 60");
        break;
      }
      out->raidLevels |= static_cast<uint8_t>(1u << (it - kRaidLevelNames.begin()));
    }
  }
  if (r.array("refuse", &list)) {
    for (size_t i = 0; i < list->size(); ++i) {
      const std::string name = (*list)[i].is_string() ? (*list)[i].get<std::string>() : "";
      if (std::find(kCommandNames.begin(), kCommandNames.end(), name) == kCommandNames.end()) {
        r.fail(r.pathOf("refuse") + "[" + std::to_string(i) + "]", "not a library command");
        break;
      }
      out->refused.insert(name);
    }
  }
  if (r.array("images", &list)) {
    for (size_t i = 0; i < list->size() && r.ok(); ++i) {
      DescriptionReader e((*list)[i], r.pathOf("images") + "[" + std::to_string(i) + "]", error);
      LsiImage image;
      e.number("table", &image.table);
      e.number("position", &image.position);
      e.string("name", &image.name, 7);
      e.string("version", &image.version, 63);
      if (e.ok() && (image.table < 1 || image.table > 2 || image.position > 7)) {
        e.fail(e.path(), "table is 1 or 2 and position 0 to 7");
      }
      e.finish();
      out->images.push_back(image);
    }
  }
  if (r.array("drives", &list)) {
    for (size_t i = 0; i < list->size() && r.ok(); ++i) {
      DescriptionReader e((*list)[i], r.pathOf("drives") + "[" + std::to_string(i) + "]", error);
      LsiDrive drive;
      if (e.require("deviceId")) e.number("deviceId", &drive.deviceId);
      e.string("disk", &drive.disk, 256);
      e.number("type", &drive.type);
      uint8_t interfaceType = 0;
      if (e.number("interface", &interfaceType)) drive.interfaceType = interfaceType;
      e.boolean("refuseInfo", &drive.refuseInfo);
      if (e.ok() && !drive.disk.empty() && state().machine->findDisk(drive.disk) == nullptr) {
        e.fail(e.pathOf("disk"), "no disk of this name");
      }
      e.finish();
      out->drives.push_back(drive);
    }
  }
  if (r.array("logicalDevices", &list)) {
    for (size_t i = 0; i < list->size() && r.ok(); ++i) {
      DescriptionReader e((*list)[i], r.pathOf("logicalDevices") + "[" + std::to_string(i) + "]", error);
      LsiLogical logical;
      e.number("target", &logical.target);
      e.number("sequence", &logical.sequence);
      e.number("primaryLevel", &logical.primaryLevel);
      e.number("span", &logical.span);
      e.number("state", &logical.state);
      e.number("sizeSectors", &logical.sizeSectors);
      e.number("drives", &logical.drives);
      e.finish();
      out->logical.push_back(logical);
    }
  }
  if (r.array("arrays", &list)) {
    for (size_t i = 0; i < list->size() && r.ok(); ++i) {
      DescriptionReader e((*list)[i], r.pathOf("arrays") + "[" + std::to_string(i) + "]", error);
      uint16_t reference = 0;
      uint8_t flag = 0;
      e.number("reference", &reference);
      e.number("flag", &flag);
      e.finish();
      out->arrays.push_back({reference, flag});
    }
  }
  return r.finish();
}

LsiController* findController(size_t library, uint32_t id) {
  for (LsiController& c : state().controllers) {
    if (c.library == library && c.id == id) return &c;
  }
  return nullptr;
}

const LsiDrive* findDrive(const LsiController& c, uint16_t deviceId) {
  for (const LsiDrive& d : c.drives) {
    if (d.deviceId == deviceId) return &d;
  }
  return nullptr;
}

Disk* diskOf(const LsiDrive& drive) {
  Machine* machine = state().machine;
  return machine == nullptr || drive.disk.empty() ? nullptr : machine->findDisk(drive.disk);
}

unsigned controllerInfo(const LsiController& c, uint8_t* b) {
  putU16(b + 104, c.interfaces);
  for (const LsiImage& image : c.images) {
    uint8_t* entry = b + (image.table == 1 ? 184 : 764) + image.position * 72;
    putText(entry, 8, image.name, 0);
    putText(entry + 8, 64, image.version, 0);
  }
  putText(b + 1344, 80, c.model, 0);
  putText(b + 1424, 32, c.serial, 0);
  putU32(b + 1456, c.flagB ? 0x4 : 0);
  putU16(b + 1480, static_cast<uint16_t>(c.physicalCount >= 0 ? c.physicalCount : static_cast<int>(c.drives.size())));
  b[1500] = c.raidLevels;
  putU32(b + 1504, c.flagA ? 0x80 : 0);
  return kLsiOk;
}

unsigned physicalDriveInfo(const LsiController& c, uint16_t deviceId, uint8_t* b) {
  const LsiDrive* drive = findDrive(c, deviceId);
  if (drive == nullptr) return kLsiNoDevice;
  if (drive->refuseInfo) return kLsiRefused;
  Disk* disk = diskOf(*drive);
  putU16(b, deviceId);
  if (disk != nullptr) {
    const bool ata = disk->ataDrive != nullptr;
    putText(b + 12, 8, ata ? "ATA" : disk->vendorId, ' ');
    putText(b + 20, 16, disk->productId, ' ');
    putText(b + 36, 4, disk->productRevision, ' ');
    const uint64_t bytes = disk->media ? disk->media->byteSize() : 0;
    putU64(b + 232, bytes / 512);
    b[401] = static_cast<uint8_t>(drive->interfaceType >= 0 ? drive->interfaceType : (ata ? 3 : 1));
  } else if (drive->interfaceType >= 0) {
    b[401] = static_cast<uint8_t>(drive->interfaceType);
  }
  return kLsiOk;
}

// SSP buffer: 0 device id 4 direction (1 out, 2 in) 10 status 11 CDB length
// 12 CDB 28 sense 60 data length 64 data.
unsigned sspPassThrough(const LsiController& c, Record& record, uint8_t* b) {
  const LsiDrive* drive = findDrive(c, record.target);
  Disk* disk = drive == nullptr ? nullptr : diskOf(*drive);
  if (disk == nullptr || !disk->scsi) return kLsiNoDevice;
  const uint32_t length = getU32(b + 60);
  if (b[11] == 0 || b[11] > 16 || 64ull + length > record.dataLength) return kLsiBadBuffer;
  ScsiRequest request;
  request.cdb = b + 12;
  request.cdbLength = b[11];
  request.direction = b[4] == 2 ? Direction::In : b[4] == 1 ? Direction::Out : Direction::None;
  request.data = length > 0 ? b + 64 : nullptr;
  request.length = length;
  request.timeoutSeconds = getU16(b + 8);
  const ScsiResponse response = disk->scsi->executeScsi(request);
  if (response.completion != Completion::Done) return kLsiLinkFailed;
  b[10] = response.status;
  std::memset(b + 28, 0, 32);
  std::copy_n(response.sense.begin(), std::min<size_t>(response.sense.size(), 32), b + 28);
  putU32(b + 60, response.transferred);
  // The library leaves the bytes moved in the record.
  record.dataLength = response.transferred;
  return kLsiOk;
}

// STP buffer: 0 device id 4 flags (1 in, 2 out, 4 none) 8 FIS out
// 28 result 32 FIS length 36 data length 40 FIS in 60 data.
unsigned stpPassThrough(const LsiController& c, Record& record, uint8_t* b) {
  const LsiDrive* drive = findDrive(c, static_cast<uint16_t>(b[0]));
  Disk* disk = drive == nullptr ? nullptr : diskOf(*drive);
  if (disk == nullptr || !disk->ata) {
    b[28] = 1;
    return kLsiNoDevice;
  }
  const std::shared_ptr<AtaDevice>& device = disk->ata;
  const uint32_t length = getU32(b + 36);
  if (60ull + length > record.dataLength) return kLsiBadBuffer;
  const uint8_t* fis = b + 8;
  AtaRequest request;
  request.in.command = fis[2];
  request.in.feature = fis[3];
  request.in.lbaLow = fis[4];
  request.in.lbaMid = fis[5];
  request.in.lbaHigh = fis[6];
  request.in.device = fis[7];
  request.in.lbaLowExp = fis[8];
  request.in.lbaMidExp = fis[9];
  request.in.lbaHighExp = fis[10];
  request.in.featureExp = fis[11];
  request.in.count = fis[12];
  request.in.countExp = fis[13];
  request.extended = fis[8] != 0 || fis[9] != 0 || fis[10] != 0 || fis[11] != 0 || fis[13] != 0;
  const uint32_t flags = getU32(b + 4);
  request.direction = (flags & 1) ? Direction::In : (flags & 2) ? Direction::Out : Direction::None;
  request.data = length > 0 ? b + 60 : nullptr;
  request.length = length;
  request.timeoutSeconds = getU16(b + 2);
  const AtaResponse response = device->executeAta(request);
  if (response.completion != Completion::Done) {
    b[28] = 1;
    return kLsiOk;  // the library answered; the link did not
  }
  b[28] = 0;
  uint8_t* in = b + 40;
  std::memset(in, 0, 20);
  in[0] = 0x34;
  in[2] = response.out.status;
  in[3] = response.out.error;
  in[4] = response.out.lbaLow;
  in[5] = response.out.lbaMid;
  in[6] = response.out.lbaHigh;
  in[7] = response.out.device;
  in[8] = response.out.lbaLowExp;
  in[9] = response.out.lbaMidExp;
  in[10] = response.out.lbaHighExp;
  in[12] = response.out.count;
  in[13] = response.out.countExp;
  putU32(b + 32, 20);
  putU32(b + 36, response.transferred);
  return kLsiOk;
}

struct Command {
  uint8_t commandClass;
  uint8_t code;
  const char* name;
  uint32_t bytes;  // the least buffer; 0 for pass-through (checked there)
};

const Command kCommands[] = {
    {0, 0, "startLibrary", 68},         {0, 3, "controllerList", 68},       {0, 9, "freeLibrary", 0},
    {1, 0, "controllerInfo", 2048},     {1, 4, "physicalDriveList", 6152},  {1, 5, "arrayList", 4616},
    {1, 13, "logicalDeviceList", 1032}, {2, 0, "physicalDriveInfo", 512},   {3, 0, "logicalDeviceConfig", 384},
    {3, 11, "logicalDeviceDrives", 516}, {6, 0, "sspPassThrough", 64},      {6, 2, "stpPassThrough", 60},
};

unsigned serve(size_t library, void* raw) {
  if (raw == nullptr) return kLsiBadBuffer;
  Record& record = *static_cast<Record*>(raw);
  const Command* command = nullptr;
  for (const Command& c : kCommands) {
    if (c.commandClass == record.commandClass && c.code == record.commandCode) command = &c;
  }
  if (command == nullptr) return kLsiUnknownCommand;
  auto* b = reinterpret_cast<uint8_t*>(static_cast<uintptr_t>(record.data));
  if (command->bytes != 0 && (b == nullptr || record.dataLength < command->bytes)) return kLsiBadBuffer;
  const std::string name = command->name;
  if (name == "freeLibrary") return kLsiOk;
  if (name == "startLibrary") return state().refusingStart.count(library) != 0 ? kLsiRefused : kLsiOk;
  if (name == "controllerList") {
    std::vector<uint32_t> ids;
    for (const LsiController& c : state().controllers) {
      if (c.library == library) ids.push_back(c.id);
    }
    const size_t n = std::min<size_t>(ids.size(), 16);
    putU16(b, static_cast<uint16_t>(n));
    for (size_t i = 0; i < n; ++i) putU32(b + 4 + 4 * i, ids[i]);
    return kLsiOk;
  }
  LsiController* c = findController(library, record.controllerId);
  if (c == nullptr) return kLsiNoController;
  if (c->refused.count(name) != 0) return kLsiRefused;
  if (name == "controllerInfo") return controllerInfo(*c, b);
  if (name == "physicalDriveList") {
    const size_t n = std::min<size_t>(c->drives.size(), 256);
    putU32(b + 4, static_cast<uint32_t>(n));
    for (size_t i = 0; i < n; ++i) {
      putU16(b + 8 + 24 * i, c->drives[i].deviceId);
      b[8 + 24 * i + 6] = c->drives[i].type;
    }
    return kLsiOk;
  }
  if (name == "arrayList") {
    const size_t n = std::min<size_t>(c->arrays.size(), 32);
    putU32(b, static_cast<uint32_t>(n));
    for (size_t i = 0; i < n; ++i) {
      putU16(b + 8 + 144 * i, c->arrays[i].first);
      b[8 + 144 * i + 9] = c->arrays[i].second;
    }
    return kLsiOk;
  }
  if (name == "logicalDeviceList") {
    const size_t n = std::min<size_t>(c->logical.size(), 64);
    putU32(b, static_cast<uint32_t>(n));
    for (size_t i = 0; i < n; ++i) {
      b[8 + 16 * i] = c->logical[i].target;
      putU16(b + 8 + 16 * i + 2, c->logical[i].sequence);
    }
    return kLsiOk;
  }
  if (name == "physicalDriveInfo") return physicalDriveInfo(*c, record.target, b);
  if (name == "logicalDeviceConfig" || name == "logicalDeviceDrives") {
    for (const LsiLogical& l : c->logical) {
      if (l.target != record.logicalTarget) continue;
      if (name == "logicalDeviceDrives") {
        putU16(b, l.drives);
      } else {
        putU16(b + 2, l.state);
        b[32] = l.primaryLevel;
        b[34] = l.span;
        putU64(b + 256, l.sizeSectors);
      }
      return kLsiOk;
    }
    return kLsiNoDevice;
  }
  if (b == nullptr) return kLsiBadBuffer;
  if (name == "sspPassThrough") return record.dataLength < 64 ? kLsiBadBuffer : sspPassThrough(*c, record, b);
  return record.dataLength < 60 ? kLsiBadBuffer : stpPassThrough(*c, record, b);
}

}  // namespace

unsigned lsiProcessLibCommand(void* record) { return serve(0, record); }
unsigned lsiProcessLibCommandIR(void* record) { return serve(1, record); }
unsigned lsiProcessLibCommandIR2(void* record) { return serve(2, record); }

bool installLsiControllers(Machine* machine, std::string* error) {
  State& s = state();
  s = State();
  if (machine == nullptr) return true;
  s.machine = machine;
  const auto it = machine->description.find("lsiControllers");
  if (it == machine->description.end()) return true;
  // Only a machine with LSI controllers puts the emulation behind the
  // library names; another may have registered entry points of its own.
  registerLibraryFunction("storelib.dll", "ProcessLibCommand", reinterpret_cast<void*>(&lsiProcessLibCommand));
  registerLibraryFunction("storelibir.dll", "ProcessLibCommandIR", reinterpret_cast<void*>(&lsiProcessLibCommandIR));
  registerLibraryFunction("storelibir-2.dll", "ProcessLibCommandIR2",
                          reinterpret_cast<void*>(&lsiProcessLibCommandIR2));
  std::string local;
  std::string* err = error != nullptr ? error : &local;
  err->clear();
  if (!it->is_array()) {
    *err = "lsiControllers: expected an array";
    s = State();
    return false;
  }
  for (size_t i = 0; i < it->size(); ++i) {
    LsiController controller;
    if (!readController((*it)[i], "lsiControllers[" + std::to_string(i) + "]", err, &controller)) {
      s = State();
      return false;
    }
    s.controllers.push_back(std::move(controller));
  }
  return true;
}

}  // namespace sim
