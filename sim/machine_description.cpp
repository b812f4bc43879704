// Building a Machine from its description: every key checked, then the
// devices, bridges, fault wrappers and media of each disk put together.
// The keys of the Windows face are kept as raw JSON; "privileges" and
// "smartGetVersion" are checked here as well, since their shape is simple.
#include <fstream>
#include <sstream>

#include "sim/ata_drive.h"
#include "sim/description_reader.h"
#include "sim/machine.h"
#include "sim/nvme_disk.h"
#include "sim/sat_layer.h"
#include "sim/scsi_drive.h"

namespace sim {

namespace {

using nlohmann::json;

constexpr uint64_t kMaxSectors = 1ULL << 48;

struct MediaSpec {
  uint64_t sectors = 0;
  uint32_t sectorSize = 512;
  SectorFill fill = SectorFill::Zeros;
  uint8_t fillByte = 0;
  std::string image;
};

struct FaultSpec {
  FaultPlan plan;
  std::vector<std::pair<uint64_t, UnreadableKind>> unreadable;
};

std::string indexed(const std::string& path, size_t i) { return path + "[" + std::to_string(i) + "]"; }

// The deepest nesting of objects and arrays a description may have. The
// deepest the format itself needs is a handful of levels; the limit keeps a
// hostile document from driving a recursive copy or comparison of the parsed
// tree past the stack.
constexpr size_t kMaxNesting = 64;

std::string nestingError() {
  return "(machine): nested deeper than " + std::to_string(kMaxNesting) + " levels of objects and arrays";
}

// The nesting depth of JSON text, counted without parsing: brackets inside
// strings do not count. Stops counting once past the limit.
bool textNestsTooDeep(const std::string& text) {
  size_t depth = 0;
  bool inString = false;
  for (size_t i = 0; i < text.size(); ++i) {
    const char c = text[i];
    if (inString) {
      if (c == '\\') {
        ++i;
      } else if (c == '"') {
        inString = false;
      }
    } else if (c == '"') {
      inString = true;
    } else if (c == '{' || c == '[') {
      if (++depth > kMaxNesting) return true;
    } else if ((c == '}' || c == ']') && depth > 0) {
      --depth;
    }
  }
  return false;
}

// The same for a parsed document, walked with a stack of its own.
bool treeNestsTooDeep(const json& root) {
  std::vector<std::pair<const json*, size_t>> pending{{&root, 1}};
  while (!pending.empty()) {
    const auto [node, depth] = pending.back();
    pending.pop_back();
    if (!node->is_structured()) continue;
    if (depth > kMaxNesting) return true;
    for (const json& child : *node) pending.emplace_back(&child, depth + 1);
  }
  return false;
}

// capacitySectors (required) and logicalSectorSize of a profile.
void readGeometry(DescriptionReader& r, MediaSpec* m) {
  if (r.require("capacitySectors")) r.unsignedInt("capacitySectors", &m->sectors, kMaxSectors);
  uint64_t size = 512;
  if (r.unsignedInt("logicalSectorSize", &size, 65536) && (size < 512 || (size & (size - 1)) != 0)) {
    r.fail(r.pathOf("logicalSectorSize"), "must be a power of two from 512 to 65536");
  }
  m->sectorSize = static_cast<uint32_t>(size);
}

void readMedia(const json& j, const std::string& path, std::string* error, MediaSpec* m) {
  DescriptionReader r(j, path, error);
  if (r.has("fill")) {
    const json& fill = j.at("fill");
    if (fill.is_string() && fill.get<std::string>() == "zeros") {
      m->fill = SectorFill::Zeros;
    } else if (fill.is_string() && fill.get<std::string>() == "lba") {
      m->fill = SectorFill::LbaStamp;
    } else if (fill.is_number_unsigned() && fill.get<uint64_t>() <= 255) {
      m->fill = SectorFill::Byte;
      m->fillByte = static_cast<uint8_t>(fill.get<uint64_t>());
    } else {
      r.fail(r.pathOf("fill"), "expected \"zeros\", \"lba\" or a byte value 0-255");
    }
    r.keep("fill");
  }
  r.string("image", &m->image);
  r.finish();
}

void readFaults(const json& j, const std::string& path, std::string* error, FaultSpec* f) {
  DescriptionReader r(j, path, error);
  r.number("delayMs", &f->plan.delayMs);
  r.boolean("hang", &f->plan.hang);
  const json* opcodes = nullptr;
  if (r.array("opcodes", &opcodes)) {
    for (size_t i = 0; i < opcodes->size(); ++i) {
      const json& o = (*opcodes)[i];
      if (!o.is_number_unsigned() || o.get<uint64_t>() > 255) {
        r.fail(indexed(r.pathOf("opcodes"), i), "expected an operation code 0-255");
        break;
      }
      f->plan.opcodes.push_back(static_cast<uint8_t>(o.get<uint64_t>()));
    }
  }
  r.unsignedInt("vanishAfterCommands", &f->plan.vanishAfterCommands);
  r.unsignedInt("vanishAtMs", &f->plan.vanishAtMs);
  r.unsignedInt("transportFailFrom", &f->plan.transportFailFrom);
  r.unsignedInt("transportFailCount", &f->plan.transportFailCount);
  const json* bad = nullptr;
  if (r.array("unreadableSectors", &bad)) {
    for (size_t i = 0; i < bad->size() && r.ok(); ++i) {
      const json& e = (*bad)[i];
      const std::string at = indexed(r.pathOf("unreadableSectors"), i);
      if (e.is_number_unsigned()) {
        f->unreadable.emplace_back(e.get<uint64_t>(), UnreadableKind::Pending);
        continue;
      }
      DescriptionReader er(e, at, error);
      uint64_t lba = 0;
      size_t kind = 0;
      if (er.require("lba")) er.unsignedInt("lba", &lba);
      er.choice("kind", {"pending", "pseudo", "flagged"}, &kind);
      er.finish();
      f->unreadable.emplace_back(lba, static_cast<UnreadableKind>(kind));
    }
  }
  r.finish();
}

void readAtaProfile(const json& j, const std::string& path, std::string* error, AtaProfile* p, MediaSpec* m) {
  DescriptionReader r(j, path, error);
  r.string("model", &p->model, 40);
  r.string("serial", &p->serial, 20);
  r.string("firmware", &p->firmware, 8);
  readGeometry(r, m);
  r.number("physicalSectorExponent", &p->physicalExponent);
  if (p->physicalExponent > 15) r.fail(r.pathOf("physicalSectorExponent"), "must be at most 15");
  r.boolean("lba48", &p->lba48);
  r.number("rotationRate", &p->rotationRate);
  r.number("bufferSize", &p->bufferSize);
  r.number("nvCacheCapabilities", &p->nvCacheCapabilities);
  r.number("nvCacheBlocks", &p->nvCacheBlocks);
  r.number("majorVersion", &p->majorVersion);
  r.number("minorVersion", &p->minorVersion);
  r.boolean("gpl", &p->gplSupported);
  r.boolean("writeUncorrectable", &p->writeUncorrectableSupported);
  r.boolean("integrityWord", &p->integrityWord);
  r.boolean("trim", &p->trimSupported);
  r.identifier("wwn", &p->wwn);
  r.number("formFactor", &p->formFactor);
  if (p->formFactor > 15) r.fail(r.pathOf("formFactor"), "must be at most 15");
  size_t sataRevision = 0;
  if (r.choice("sataRevision", {"2.5", "2.6", "3.0", "3.1", "3.2", "3.3", "3.4", "3.5"}, &sataRevision)) {
    p->sataRevisionBit = static_cast<uint8_t>(3 + sataRevision);
  }
  r.number("sataGeneration", &p->sataGeneration);
  r.boolean("deviceStatistics", &p->deviceStatistics);
  r.boolean("pendingDefectsLog", &p->pendingDefectsLog);
  r.boolean("sataPhyCounters", &p->sataPhyCounters);
  r.number("powerCycles", &p->powerCycles);
  r.unsignedInt("sectorsRead", &p->sectorsRead, 0xFFFFFFFFFFFFULL);
  r.unsignedInt("sectorsWritten", &p->sectorsWritten, 0xFFFFFFFFFFFFULL);
  if (p->sataGeneration < 1 || p->sataGeneration > 3) r.fail(r.pathOf("sataGeneration"), "must be 1, 2 or 3");
  const json* sct = nullptr;
  if (r.object("sct", &sct)) {
    DescriptionReader s(*sct, r.pathOf("sct"), error);
    s.boolean("supported", &p->sctSupported);
    s.boolean("errorRecoveryControl", &p->sctErrorRecoveryControl);
    s.boolean("featureControl", &p->sctFeatureControl);
    s.signedInt("lifetimeMinCelsius", &p->lifetimeMinTemperatureCelsius, -40, 127);
    s.signedInt("lifetimeMaxCelsius", &p->lifetimeMaxTemperatureCelsius, -40, 127);
    s.signedInt("maxOperatingCelsius", &p->maxOperatingTemperatureCelsius, -40, 122);
    s.finish();
  }
  r.signedInt("temperatureCelsius", &p->temperatureCelsius, -40, 255);
  r.number("powerOnHours", &p->powerOnHours);
  const json* sec = nullptr;
  if (r.object("security", &sec)) {
    DescriptionReader s(*sec, r.pathOf("security"), error);
    s.boolean("supported", &p->securitySupported);
    s.boolean("enabled", &p->securityEnabled);
    s.boolean("locked", &p->securityLocked);
    s.boolean("frozen", &p->securityFrozen);
    s.finish();
  }
  const json* smart = nullptr;
  if (r.object("smart", &smart)) {
    DescriptionReader s(*smart, r.pathOf("smart"), error);
    s.boolean("supported", &p->smartSupported);
    s.boolean("enabled", &p->smartEnabled);
    s.number("revision", &p->smartRevision);
    s.number("offlineStatus", &p->offlineStatus);
    s.number("selfTestStatus", &p->selfTestStatus);
    s.number("offlineSeconds", &p->offlineSeconds);
    s.number("offlineCapability", &p->offlineCapability);
    s.number("capability", &p->smartCapability);
    s.number("errorLoggingCapability", &p->errorLoggingCapability);
    s.number("shortTestMinutes", &p->shortTestMinutes);
    s.number("extendedTestMinutes", &p->extendedTestMinutes);
    s.unsignedInt("shortTestSpan", &p->shortTestSpan);
    size_t unknownAnswer = 0;
    if (s.choice("unknownVendorTest", {"abrt", "idnf"}, &unknownAnswer)) {
      p->unknownVendorTestError = unknownAnswer == 0 ? kAtaErrorAbrt : kAtaErrorIdnf;
    }
    const json* vendor = nullptr;
    if (s.array("vendorTests", &vendor)) {
      for (size_t i = 0; i < vendor->size() && s.ok(); ++i) {
        DescriptionReader v((*vendor)[i], indexed(s.pathOf("vendorTests"), i), error);
        VendorSelfTest t;
        if (v.require("code")) v.number("code", &t.code);
        size_t answer = 0;
        if (v.choice("answer", {"run", "abrt", "idnf"}, &answer)) t.answer = static_cast<VendorTestAnswer>(answer);
        v.number("seconds", &t.seconds);
        v.finish();
        p->vendorTests.push_back(t);
      }
    }
    const json* attrs = nullptr;
    if (s.array("attributes", &attrs)) {
      if (attrs->size() > 30) s.fail(s.pathOf("attributes"), "at most 30 attributes fit in the SMART data");
      for (size_t i = 0; i < attrs->size() && s.ok(); ++i) {
        DescriptionReader a((*attrs)[i], indexed(s.pathOf("attributes"), i), error);
        SmartAttribute attr;
        if (a.require("id")) a.number("id", &attr.id);
        a.number("flags", &attr.flags);
        a.number("value", &attr.value);
        attr.worst = attr.value;
        a.number("worst", &attr.worst);
        a.unsignedInt("raw", &attr.raw, 0xFFFFFFFFFFFFULL);
        a.number("threshold", &attr.threshold);
        a.finish();
        p->attributes.push_back(attr);
      }
    }
    const json* tests = nullptr;
    if (s.array("selfTestLog", &tests)) {
      for (size_t i = 0; i < tests->size() && s.ok(); ++i) {
        DescriptionReader t((*tests)[i], indexed(s.pathOf("selfTestLog"), i), error);
        SelfTestLogEntry e;
        t.number("subcommand", &e.subcommand);
        t.number("status", &e.status);
        t.number("hours", &e.lifetimeHours);
        t.unsignedInt("failingLba", &e.failingLba, 0xFFFFFFFFFFFFULL);
        t.finish();
        p->selfTestLog.push_back(e);
      }
    }
    const json* errors = nullptr;
    if (s.array("errorLog", &errors)) {
      for (size_t i = 0; i < errors->size() && s.ok(); ++i) {
        DescriptionReader t((*errors)[i], indexed(s.pathOf("errorLog"), i), error);
        ErrorLogEntry e;
        uint8_t command = 0x25;
        t.number("command", &command);
        uint64_t timestamp = UINT64_MAX;
        t.unsignedInt("timestampMs", &timestamp, 0xFFFFFFFFULL);
        t.number("state", &e.state);
        t.unsignedInt("lba", &e.lba, 0xFFFFFFFFFFFFULL);
        t.number("count", &e.count);
        t.number("error", &e.error);
        t.number("status", &e.status);
        t.number("hours", &e.lifetimeHours);
        t.finish();
        AtaRegisters failed;
        failed.command = command;
        failed.count = static_cast<uint8_t>(e.count);
        failed.countExp = static_cast<uint8_t>(e.count >> 8);
        failed.lbaLow = static_cast<uint8_t>(e.lba);
        failed.lbaMid = static_cast<uint8_t>(e.lba >> 8);
        failed.lbaHigh = static_cast<uint8_t>(e.lba >> 16);
        failed.lbaLowExp = static_cast<uint8_t>(e.lba >> 24);
        failed.lbaMidExp = static_cast<uint8_t>(e.lba >> 32);
        failed.lbaHighExp = static_cast<uint8_t>(e.lba >> 40);
        failed.device = 0x40;
        // The drive's power-on clock in ms, 32 bits: without a stated value,
        // the lifetime hours as if the drive had never been switched off.
        if (timestamp == UINT64_MAX) timestamp = (uint64_t{e.lifetimeHours} * 3600000) & 0xFFFFFFFFULL;
        // The four commands before it: the same command streaming through
        // the sectors just ahead, one millisecond apart.
        for (unsigned k = 4; k >= 1; --k) {
          AtaRegisters before = failed;
          const uint64_t lba = e.lba >= uint64_t{e.count} * k ? e.lba - uint64_t{e.count} * k : 0;
          before.lbaLow = static_cast<uint8_t>(lba);
          before.lbaMid = static_cast<uint8_t>(lba >> 8);
          before.lbaHigh = static_cast<uint8_t>(lba >> 16);
          before.lbaLowExp = static_cast<uint8_t>(lba >> 24);
          before.lbaMidExp = static_cast<uint8_t>(lba >> 32);
          before.lbaHighExp = static_cast<uint8_t>(lba >> 40);
          e.commands.push_back(before);
          e.commandTimestampsMs.push_back(static_cast<uint32_t>(timestamp >= k ? timestamp - k : 0));
        }
        e.commands.push_back(failed);
        e.commandTimestampsMs.push_back(static_cast<uint32_t>(timestamp));
        p->errorLog.push_back(e);
      }
    }
    s.number("errorCount", &p->errorCount);
    const json* pages = nullptr;
    if (s.object("logPages", &pages)) {
      DescriptionReader l(*pages, s.pathOf("logPages"), error);
      l.number("comprehensiveError", &p->comprehensiveErrorLogPages);
      l.number("extError", &p->extErrorLogPages);
      l.number("extSelfTest", &p->extSelfTestLogPages);
      if (p->comprehensiveErrorLogPages == 0 || p->comprehensiveErrorLogPages > 51) {
        l.fail(l.pathOf("comprehensiveError"), "must be between 1 and 51");
      }
      if (p->extErrorLogPages == 0 || p->extSelfTestLogPages == 0) l.fail(l.path(), "page counts must be at least 1");
      l.finish();
    }
    s.finish();
  }
  r.finish();
}

void readScsiSelfTests(DescriptionReader& s, const std::string& key, std::string* error, ScsiProfile* p) {
  const json* tests = nullptr;
  if (!s.array(key, &tests)) return;
  for (size_t i = 0; i < tests->size() && s.ok(); ++i) {
    DescriptionReader t((*tests)[i], indexed(s.pathOf(key), i), error);
    ScsiSelfTestEntry e;
    t.number("code", &e.code);
    t.number("result", &e.result);
    t.number("segment", &e.segment);
    t.number("hours", &e.powerOnHours);
    t.unsignedInt("failingLba", &e.failingLba);
    t.number("senseKey", &e.senseKey);
    t.number("asc", &e.asc);
    t.finish();
    p->selfTestLog.push_back(e);
  }
}

void readScsiProfile(const json& j, const std::string& path, std::string* error, ScsiProfile* p, MediaSpec* m) {
  DescriptionReader r(j, path, error);
  r.string("vendor", &p->vendor, 8);
  r.string("product", &p->product, 16);
  r.string("revision", &p->revision, 4);
  r.string("serial", &p->serial, 64);
  r.identifier("wwn", &p->wwn);
  r.number("version", &p->version);
  const json* descriptors = nullptr;
  if (r.array("versionDescriptors", &descriptors)) {
    p->versionDescriptors.clear();
    for (size_t i = 0; i < descriptors->size(); ++i) {
      const json& d = (*descriptors)[i];
      if (!d.is_number_unsigned() || d.get<uint64_t>() > 0xFFFF || i >= 8) {
        r.fail(indexed(r.pathOf("versionDescriptors"), i), "expected at most eight 16-bit values");
        break;
      }
      p->versionDescriptors.push_back(static_cast<uint16_t>(d.get<uint64_t>()));
    }
  }
  readGeometry(r, m);
  r.number("physicalSectorExponent", &p->physicalExponent);
  r.number("rotationRate", &p->rotationRate);
  r.number("formFactor", &p->formFactor);
  size_t format = 0;
  if (r.choice("senseFormat", {"fixed", "descriptor"}, &format)) p->senseFormat = static_cast<SenseFormat>(format);
  r.signedInt("temperatureCelsius", &p->temperatureCelsius, 0, 255);
  r.signedInt("referenceTemperatureCelsius", &p->referenceTemperatureCelsius, 0, 255);
  r.boolean("failurePredicted", &p->failurePredicted);
  r.number("iecFlags", &p->iecFlags);
  r.number("mrie", &p->mrie);
  if (p->mrie > 6) r.fail(r.pathOf("mrie"), "must be at most 6");
  r.boolean("writeCacheEnabled", &p->writeCacheEnabled);
  r.boolean("healthQuirks", &p->healthQuirks);
  r.number("powerOnHours", &p->powerOnHours);
  const json* counters = nullptr;
  if (r.object("errorCounters", &counters)) {
    DescriptionReader ec(*counters, r.pathOf("errorCounters"), error);
    const std::pair<const char*, ScsiErrorCounters*> pages[] = {
        {"write", &p->writeErrors}, {"read", &p->readErrors}, {"verify", &p->verifyErrors}};
    for (const auto& page : pages) {
      const json* one = nullptr;
      if (!ec.object(page.first, &one)) continue;
      DescriptionReader e(*one, ec.pathOf(page.first), error);
      e.unsignedInt("correctedFast", &page.second->correctedFast);
      e.unsignedInt("correctedDelayed", &page.second->correctedDelayed);
      e.unsignedInt("retries", &page.second->retries);
      e.unsignedInt("corrected", &page.second->corrected);
      e.unsignedInt("algorithmInvocations", &page.second->algorithmInvocations);
      e.unsignedInt("bytesProcessed", &page.second->bytesProcessed);
      e.unsignedInt("uncorrected", &page.second->uncorrected);
      e.finish();
    }
    ec.unsignedInt("nonMedium", &p->nonMediumErrors);
    ec.finish();
  }
  const json* scan = nullptr;
  if (r.object("backgroundScan", &scan)) {
    DescriptionReader b(*scan, r.pathOf("backgroundScan"), error);
    b.boolean("supported", &p->backgroundScanSupported);
    b.number("status", &p->backgroundScan.status);
    b.number("scansPerformed", &p->backgroundScan.scansPerformed);
    b.number("progress", &p->backgroundScan.progress);
    b.number("mediumScansPerformed", &p->backgroundScan.mediumScansPerformed);
    b.finish();
  }
  const json* st = nullptr;
  if (r.object("selfTest", &st)) {
    DescriptionReader s(*st, r.pathOf("selfTest"), error);
    s.boolean("supported", &p->selfTestSupported);
    s.number("shortSeconds", &p->shortTestSeconds);
    s.number("extendedSeconds", &p->extendedTestSeconds);
    s.number("defaultSeconds", &p->defaultTestSeconds);
    s.unsignedInt("shortTestSpan", &p->shortTestSpan);
    readScsiSelfTests(s, "log", error, p);
    s.finish();
  }
  r.finish();
}

void readNvmeProfile(const json& j, const std::string& path, std::string* error, NvmeProfile* p, MediaSpec* m) {
  DescriptionReader r(j, path, error);
  r.string("model", &p->model, 40);
  r.string("serial", &p->serial, 20);
  r.string("firmware", &p->firmware, 8);
  r.identifier("eui64", &p->eui64);
  r.boolean("healthQuirks", &p->healthQuirks);
  r.number("warningTemperatureKelvin", &p->warningTemperatureKelvin);
  if (p->warningTemperatureKelvin < 273 || p->warningTemperatureKelvin > 273 + 255) {
    r.fail(r.pathOf("warningTemperatureKelvin"), "must be between 273 and 528");
  }
  readGeometry(r, m);
  const json* h = nullptr;
  if (r.object("health", &h)) {
    DescriptionReader s(*h, r.pathOf("health"), error);
    s.number("criticalWarning", &p->health.criticalWarning);
    s.number("compositeTemperatureKelvin", &p->health.compositeTemperatureKelvin);
    s.number("availableSpare", &p->health.availableSpare);
    s.number("availableSpareThreshold", &p->health.availableSpareThreshold);
    s.number("percentageUsed", &p->health.percentageUsed);
    s.unsignedInt("powerOnHours", &p->health.powerOnHours);
    s.unsignedInt("mediaErrors", &p->health.mediaErrors);
    s.finish();
  }
  r.finish();
}

void readBridge(const json& j, const std::string& path, std::string* error, BridgeProfile* b, FaultSpec* faults) {
  DescriptionReader r(j, path, error);
  size_t type = 0;
  if (r.require("type") && r.choice("type", {"sat", "sat-no-ckcond", "jmicron", "sunplus", "scsi-only"}, &type)) {
    switch (type) {
      case 0: *b = satBridgeProfile(true); break;
      case 1: *b = satBridgeProfile(false); break;
      case 2: *b = jmicronBridgeProfile(); break;
      case 3: *b = sunplusBridgeProfile(); break;
      default: *b = scsiOnlyBridgeProfile(); break;
    }
  }
  r.boolean("passThrough12", &b->sat12);
  r.boolean("passThrough16", &b->sat16);
  r.string("vendor", &b->vendor, 8);
  r.string("product", &b->product, 16);
  r.string("revision", &b->revision, 4);
  r.string("serial", &b->serial, 64);
  size_t format = 0;
  if (r.choice("senseFormat", {"fixed", "descriptor"}, &format)) b->senseFormat = static_cast<SenseFormat>(format);
  if (b->vendor.empty()) b->vendor = "USB";  // a bridge names itself, not "ATA"
  b->satVendor = b->vendor;
  b->satProduct = b->product;
  b->satRevision = b->revision;
  const json* f = nullptr;
  if (r.object("faults", &f)) readFaults(*f, r.pathOf("faults"), error, faults);
  r.finish();
}

bool buildDisk(const json& j, size_t index, Machine& machine, std::string* error, Disk* out) {
  const std::string path = indexed("disks", index);
  DescriptionReader r(j, path, error);
  Disk disk;
  disk.description = j;
  if (r.require("name")) r.string("name", &disk.name, 256);
  if (r.ok() && disk.name.empty()) r.fail(r.pathOf("name"), "must not be empty");
  if (r.ok() && machine.findDisk(disk.name) != nullptr) r.fail(r.pathOf("name"), "a disk of this name exists already");
  size_t kind = 0;
  if (r.require("kind")) r.choice("kind", {"ata", "scsi", "nvme", "emmc"}, &kind);
  const std::vector<std::string> buses = {"ata", "sata", "usb", "sas", "scsi", "nvme", "mmc", "sd"};
  const uint32_t busTypes[] = {kBusTypeAta, kBusTypeSata, kBusTypeUsb, kBusTypeSas,
                               kBusTypeScsi, kBusTypeNvme, kBusTypeMmc, kBusTypeSd};
  const std::vector<std::vector<size_t>> allowed = {{1, 0, 2}, {3, 4, 2}, {5}, {6, 7}};  // default first
  size_t bus = allowed[kind][0];
  if (r.choice("bus", buses, &bus) &&
      std::find(allowed[kind].begin(), allowed[kind].end(), bus) == allowed[kind].end()) {
    r.fail(r.pathOf("bus"), "not a bus for a disk of this kind");
  }
  disk.busType = busTypes[bus];
  r.boolean("removable", &disk.removableMedia);
  r.boolean("hidden", &disk.hidden);
  r.keep("partitions");
  r.keep("volumes");
  r.keep("files");
  uint64_t layoutNeedsBytes = 0;  // read by the Windows face as it stands
  r.unsignedInt("layoutNeedsBytes", &layoutNeedsBytes);
  const json* smartVersion = nullptr;
  if (r.object("smartGetVersion", &smartVersion)) {
    // Read by the Windows face as it stands; checked here so that a wrong
    // value is refused with its path instead of being ignored there.
    DescriptionReader v(*smartVersion, r.pathOf("smartGetVersion"), error);
    uint32_t capabilities = 0;
    bool failsWithReply = false;
    v.number("capabilities", &capabilities);
    v.boolean("failsWithReply", &failsWithReply);
    v.finish();
  }

  MediaSpec media;
  FaultSpec faults;
  FaultSpec bridgeFaults;
  AtaProfile ata;
  ScsiProfile scsi;
  NvmeProfile nvme;
  BridgeProfile bridge;
  const json* profile = nullptr;
  if (r.require("profile") && r.object("profile", &profile)) {
    const std::string at = r.pathOf("profile");
    switch (kind) {
      case 0: readAtaProfile(*profile, at, error, &ata, &media); break;
      case 1: readScsiProfile(*profile, at, error, &scsi, &media); break;
      case 2: readNvmeProfile(*profile, at, error, &nvme, &media); break;
      default: {
        DescriptionReader e(*profile, at, error);
        readGeometry(e, &media);
        e.finish();
        break;
      }
    }
  }
  const json* m = nullptr;
  if (r.object("media", &m)) readMedia(*m, r.pathOf("media"), error, &media);
  const json* f = nullptr;
  if (r.object("faults", &f)) readFaults(*f, r.pathOf("faults"), error, &faults);
  const bool usbAta = kind == 0 && bus == 2;
  if (smartVersion != nullptr && (kind != 0 || usbAta) && r.ok()) {
    r.fail(r.pathOf("smartGetVersion"), "only a disk on an ATA port answers SMART_GET_VERSION");
  }
  const json* b = nullptr;
  if (r.object("bridge", &b)) {
    if (!usbAta) r.fail(r.pathOf("bridge"), "only an ATA disk on the USB bus has a bridge");
    readBridge(*b, r.pathOf("bridge"), error, &bridge, &bridgeFaults);
  } else if (usbAta && r.ok()) {
    r.fail(r.pathOf("bridge"), "missing: an ATA disk on the USB bus needs a bridge");
  }
  const json* d = nullptr;
  bool haveDescriptor = r.object("descriptor", &d);
  std::string vendorId, productId, productRevision, serialNumber;
  if (haveDescriptor) {
    DescriptionReader s(*d, r.pathOf("descriptor"), error);
    s.string("vendorId", &vendorId, 256);
    s.string("productId", &productId, 256);
    s.string("productRevision", &productRevision, 256);
    s.string("serialNumber", &serialNumber, 256);
    s.finish();
  }
  for (size_t i = 0; i < faults.unreadable.size() && r.ok(); ++i) {
    if (faults.unreadable[i].first >= media.sectors) {
      r.fail(indexed(r.pathOf("faults.unreadableSectors"), i), "beyond the last sector of the disk");
    }
  }
  if (!r.finish()) return false;

  // The devices.
  auto clock = machine.sharedClock();
  auto journal = machine.sharedJournal();
  disk.media = std::make_shared<Media>(media.sectorSize, media.sectors);
  disk.media->setFill(media.fill, media.fillByte);
  if (!media.image.empty() && !disk.media->attachImage(media.image, error)) {
    *error = r.pathOf("media.image") + ": " + *error;
    return false;
  }
  disk.media->setJournal(journal, disk.name, clock);
  for (const auto& u : faults.unreadable) disk.media->markUnreadable(u.first, u.second);
  auto diskFaults = std::make_shared<FaultState>(clock, faults.plan);
  switch (kind) {
    case 0: {
      disk.ataDrive = std::make_shared<AtaDrive>(ata, disk.media, clock);
      auto drive = std::make_shared<FaultyAtaDevice>(disk.ataDrive, diskFaults, journal, disk.name, clock);
      if (usbAta) {
        auto bridgeState = std::make_shared<FaultState>(clock, bridgeFaults.plan);
        disk.scsi = std::make_shared<FaultyScsiTarget>(std::make_shared<SatLayer>(bridge, drive), bridgeState,
                                                       journal, disk.name + ".bridge", clock);
        disk.faultPath = {bridgeState, diskFaults};
        vendorId = haveDescriptor ? vendorId : bridge.vendor;
        if (!haveDescriptor) {
          productId = bridge.product;
          productRevision = bridge.revision;
          serialNumber = bridge.serial.empty() ? ata.serial : bridge.serial;
        }
      } else {
        disk.ata = drive;
        disk.scsi = std::make_shared<FaultyScsiTarget>(std::make_shared<SatLayer>(portTranslationProfile(), drive),
                                                       nullptr, journal, disk.name + ".scsi", clock);
        disk.faultPath = {diskFaults};
        if (!haveDescriptor) {
          productId = ata.model;
          productRevision = ata.firmware;
          serialNumber = ata.serial;
        }
      }
      break;
    }
    case 1:
      disk.scsiDrive = std::make_shared<ScsiDrive>(scsi, disk.media, clock);
      disk.scsi = std::make_shared<FaultyScsiTarget>(disk.scsiDrive, diskFaults, journal, disk.name, clock);
      disk.faultPath = {diskFaults};
      if (!haveDescriptor) {
        vendorId = scsi.vendor;
        productId = scsi.product;
        productRevision = scsi.revision;
        serialNumber = scsi.serial;
      }
      break;
    case 2:
      disk.scsiDrive = std::make_shared<NvmeDisk>(nvme, disk.media, clock);
      disk.scsi = std::make_shared<FaultyScsiTarget>(disk.scsiDrive, diskFaults, journal, disk.name, clock);
      disk.faultPath = {diskFaults};
      if (!haveDescriptor) {
        vendorId = "NVMe";
        productId = nvme.model;
        productRevision = nvme.firmware;
        serialNumber = scsiProfileOf(nvme).serial;
      }
      break;
    default:
      disk.faultPath = {diskFaults};
      break;
  }
  disk.vendorId = vendorId;
  disk.productId = productId;
  disk.productRevision = productRevision;
  disk.serialNumber = serialNumber;
  *out = std::move(disk);
  return true;
}

}  // namespace

std::unique_ptr<Machine> Machine::fromJson(const json& description, std::string* error) {
  std::string local;
  std::string* err = error != nullptr ? error : &local;
  err->clear();
  if (treeNestsTooDeep(description)) {
    *err = nestingError();
    return nullptr;
  }
  auto machine = std::make_unique<Machine>();
  machine->description = description;
  DescriptionReader r(description, "", err);
  r.string("name", &machine->name, 256);
  r.keep("controllers");
  r.keep("libraries");
  r.keep("lsiControllers");
  r.keep("processes");
  r.keep("wmi");
  const json* clock = nullptr;
  if (r.object("clock", &clock)) {
    DescriptionReader c(*clock, r.pathOf("clock"), err);
    uint64_t cost = VirtualClock::kDefaultTickReadCostMs;
    // 0 would freeze a loop paced by the timer; a minute per read is as coarse
    // as any loop of the module can bear.
    if (c.unsignedInt("tickReadCostMs", &cost, 60000) && cost == 0) {
      c.fail(c.pathOf("tickReadCostMs"), "must be at least 1: time must pass while a program reads the clock");
    }
    if (c.finish()) machine->clock().setTickReadCostMs(static_cast<uint32_t>(cost));
  }
  const json* privileges = nullptr;
  if (r.array("privileges", &privileges)) {
    // The names the process token holds, for the Windows face; [] is a token
    // without any.
    for (size_t i = 0; i < privileges->size(); ++i) {
      const json& name = (*privileges)[i];
      if (!name.is_string() || name.get<std::string>().empty()) {
        r.fail(indexed(r.pathOf("privileges"), i), "expected a privilege name such as \"SeManageVolumePrivilege\"");
        break;
      }
    }
  }
  const json* disks = nullptr;
  if (r.array("disks", &disks)) {
    for (size_t i = 0; i < disks->size(); ++i) {
      Disk disk;
      if (!buildDisk((*disks)[i], i, *machine, err, &disk)) return nullptr;
      machine->disks.push_back(std::move(disk));
    }
  }
  if (!r.finish()) return nullptr;
  return machine;
}

std::unique_ptr<Machine> Machine::fromJsonText(const std::string& text, std::string* error) {
  if (textNestsTooDeep(text)) {
    if (error != nullptr) *error = nestingError();
    return nullptr;
  }
  json j;
  try {
    j = json::parse(text);
  } catch (const json::parse_error& failure) {
    // Where the text went wrong, without the library's own prefix.
    std::string where = failure.what();
    const size_t at = where.find("parse error");
    if (error != nullptr) *error = "(machine): not valid JSON: " + (at == std::string::npos ? where : where.substr(at));
    return nullptr;
  } catch (const json::exception& failure) {
    // A number beyond what a double holds ("9e316") is refused by the reader
    // as out of range, not as a syntax error; the user still hears why.
    std::string what = failure.what();
    const size_t end = what.find("] ");
    if (error != nullptr) *error = "(machine): not valid JSON: " + (end == std::string::npos ? what : what.substr(end + 2));
    return nullptr;
  }
  return fromJson(j, error);
}

std::unique_ptr<Machine> Machine::load(const std::string& pathOrJson, std::string* error) {
  if (pathOrJson == "default") return fromJsonText(defaultMachineJson(), error);
  const size_t first = pathOrJson.find_first_not_of(" \t\r\n");
  if (first != std::string::npos && pathOrJson[first] == '{') return fromJsonText(pathOrJson, error);
  std::ifstream file(pathOrJson);
  if (!file) {
    if (error != nullptr) *error = "cannot open machine description '" + pathOrJson + "'";
    return nullptr;
  }
  std::stringstream text;
  text << file.rdbuf();
  return fromJsonText(text.str(), error);
}

std::unique_ptr<Machine> Machine::defaultMachine() {
  std::string error;
  return fromJsonText(defaultMachineJson(), &error);
}

}  // namespace sim
