// Figures read out of a session's records and descriptions, shared by the
// HTML report, the metrics file and the one-line disk list.
#include "run_facts.h"

#include <algorithm>
#include <cmath>

#include "exit_status.h"
#include "module_storage/result_codes.h"

namespace hwc {
namespace {

bool parseUnsigned(const std::string& text, uint64_t& value) {
  if (text.empty() || text.size() > 19) return false;
  uint64_t number = 0;
  for (char c : text) {
    if (c < '0' || c > '9') return false;
    number = number * 10 + static_cast<uint64_t>(c - '0');
  }
  value = number;
  return true;
}

bool contains(const std::string& text, const char* part) { return text.find(part) != std::string::npos; }

// "READING_SECTOR 1234" anywhere in a message, also as one piece of several
// joined by ". |".
void collectReadingSectors(const std::string& message, std::set<uint64_t>& lbas) {
  static const std::string kKey = "READING_SECTOR ";
  size_t at = 0;
  while ((at = message.find(kKey, at)) != std::string::npos) {
    const bool startsPiece = at == 0 || message[at - 1] == '|' || message[at - 1] == ' ';
    size_t end = at + kKey.size();
    while (end < message.size() && message[end] >= '0' && message[end] <= '9') ++end;
    uint64_t lba = 0;
    if (startsPiece && parseUnsigned(message.substr(at + kKey.size(), end - at - kKey.size()), lba)) lbas.insert(lba);
    at = end;
  }
}

// Adds `share` of time to the zones that the stretch [from, to) of the disk
// (as fractions of it) covers, each in proportion to its overlap.
void spread(double from, double to, double milliseconds, ZoneTimes& zones) {
  const size_t count = zones.milliseconds.size();
  if (count == 0) return;
  from = std::clamp(from, 0.0, 1.0);
  to = std::clamp(to, 0.0, 1.0);
  if (to < from) std::swap(from, to);
  if (to - from <= 0.0) {
    const size_t zone = std::min(count - 1, static_cast<size_t>(from * static_cast<double>(count)));
    zones.milliseconds[zone] += milliseconds;
    zones.timed[zone] = true;
    return;
  }
  const double width = 1.0 / static_cast<double>(count);
  size_t first = std::min(count - 1, static_cast<size_t>(from / width));
  for (size_t zone = first; zone < count; ++zone) {
    const double zoneStart = static_cast<double>(zone) * width;
    const double zoneEnd = zoneStart + width;
    if (zoneStart >= to) break;
    const double overlap = std::min(to, zoneEnd) - std::max(from, zoneStart);
    if (overlap <= 0.0) continue;
    zones.milliseconds[zone] += milliseconds * overlap / (to - from);
    zones.timed[zone] = true;
  }
}

}  // namespace

std::string DeviceFacts::detail(const std::string& key) const {
  for (const DetailEntry& entry : description.details) {
    if (entry.key == key) return entry.value;
  }
  return "";
}

std::string DeviceFacts::attribute(const std::string& key) const {
  auto it = description.attributes.find(key);
  return it == description.attributes.end() ? "" : it->second;
}

std::string DeviceFacts::model() const {
  const std::string value = detail("MODEL");
  return value.empty() ? description.name : value;
}

uint64_t DeviceFacts::sectorCount() const {
  uint64_t value = 0;
  return parseUnsigned(detail("LOGICAL_SECTORS"), value) ? value : 0;
}

uint64_t DeviceFacts::sectorSize() const {
  uint64_t value = 0;
  return parseUnsigned(detail("LOGICAL_SECTOR_SIZE"), value) ? value : 0;
}

std::string DeviceFacts::kind() const {
  const std::string standards = detail("SUPPORTED_STANDARDS");
  if (contains(standards, "NVM") || detail("MANUFACTURER") == "NVMe") return "NVMe";
  const std::string solid = attribute("NonRotatingMedia");
  if (solid == "T") return "SSD";
  if (solid == "F") return "HDD";
  return "";
}

std::string DeviceFacts::bus() const {
  const std::string parent = attribute("parent");
  if (parent == "USB_DRIVES") return "USB";
  if (parent.compare(0, 20, "RAID_ATTACHED_DRIVES") == 0) return "RAID";
  // An internal disk's link shows in the command sets it claims.
  const std::string standards = detail("SUPPORTED_STANDARDS");
  if (detail("MANUFACTURER") == "NVMe" || contains(standards, "NVM")) return "NVMe";
  if (contains(standards, "ATA")) return "ATA";
  if (contains(standards, "SPC") || contains(standards, "SBC") || contains(standards, "SAM")) return "SCSI";
  return "";
}

bool DeviceFacts::temperature(uint32_t& celsius) const {
  const std::string value = detail("TEMPERATURE");
  const size_t blank = value.find(' ');
  uint64_t number = 0;
  if (!parseUnsigned(value.substr(0, blank), number) || number > 255) return false;
  celsius = static_cast<uint32_t>(number);
  return true;
}

DeviceFacts factsOf(uint32_t index, const SystemComponent& component) {
  DeviceFacts facts;
  facts.index = index;
  facts.id = component.getId();
  facts.description = component.getDescription();
  facts.sections = component.getSections();
  return facts;
}

Health healthOf(const std::vector<TestRecord>& records, uint32_t deviceIndex) {
  Health health = Health::Unknown;
  for (const TestRecord& record : records) {
    if (record.deviceIndex != deviceIndex || record.outcome != RunOutcome::Ran || !isSmartStatus(record.testKey)) {
      continue;
    }
    if (record.result == SUCCESS) health = Health::Good;
    if (record.result == FAILED) return Health::Failing;
  }
  return health;
}

const char* healthText(Health health) {
  switch (health) {
    case Health::Good: return "SMART OK";
    case Health::Failing: return "SMART FAILING";
    case Health::Unknown: break;
  }
  return "unknown";
}

std::set<uint64_t> badSectorsOf(const TestRecord& record) {
  std::set<uint64_t> lbas;
  for (const ProgressRecord& event : record.events) collectReadingSectors(event.key, lbas);
  for (const LogRecord& line : record.log) collectReadingSectors(line.message, lbas);
  return lbas;
}

bool isFunnelSeek(const std::string& testKey) {
  return testKey == "FUNNEL_SEEK_TEST" || testKey == "EXTENDED_FUNNEL_SEEK_TEST";
}
bool isRandomSeek(const std::string& testKey) {
  return testKey == "RANDOM_SEEK_TEST" || testKey == "EXTENDED_RANDOM_SEEK_TEST";
}
bool isSelfTest(const std::string& testKey) {
  return testKey == "SHORT_SELF_TEST" || testKey == "DRIVE_SELF_TEST" || testKey == "DEFAULT_SELF_TEST" ||
         testKey == "EXTENDED_SELF_TEST";
}
bool isSmartStatus(const std::string& testKey) { return testKey == "SMART_STATUS_TEST"; }
bool readsMedia(const std::string& testKey) {
  return isFunnelSeek(testKey) || isRandomSeek(testKey) || testKey == "TARGETED_READ_TEST" ||
         testKey == "DEVICE_READ_TEST";
}

ZoneTimes funnelZoneTimes(const TestRecord& record, size_t zoneCount) {
  ZoneTimes zones;
  zones.milliseconds.assign(zoneCount, 0.0);
  zones.timed.assign(zoneCount, false);
  if (zoneCount == 0 || record.outcome != RunOutcome::Ran) return zones;
  // The walk starts at the first event of 0 with no message, and its steps
  // are the events of a rising percentage below 100 with no message.
  bool started = false;
  uint32_t lastPercent = 0;
  uint64_t lastUs = 0;
  for (const ProgressRecord& event : record.events) {
    if (!event.key.empty()) continue;
    if (!started) {
      if (event.percent == 0) {
        started = true;
        lastUs = event.atUs;
      }
      continue;
    }
    if (event.percent >= 100) break;
    if (event.percent <= lastPercent || event.atUs < lastUs) continue;
    const double milliseconds = static_cast<double>(event.atUs - lastUs) / 1000.0;
    const double from = lastPercent / 99.0;
    const double to = event.percent / 99.0;
    spread(from, to, milliseconds / 2.0, zones);
    spread(1.0 - to, 1.0 - from, milliseconds / 2.0, zones);
    lastPercent = event.percent;
    lastUs = event.atUs;
  }
  return zones;
}

std::vector<double> stepTimes(const TestRecord& record) {
  std::vector<double> times;
  if (record.outcome != RunOutcome::Ran) return times;
  bool started = false;
  uint32_t lastPercent = 0;
  uint64_t lastUs = 0;
  for (const ProgressRecord& event : record.events) {
    if (!event.key.empty()) continue;
    if (!started) {
      if (event.percent == 0) {
        started = true;
        lastUs = event.atUs;
      }
      continue;
    }
    if (event.percent <= lastPercent || event.atUs < lastUs) continue;
    times.push_back(static_cast<double>(event.atUs - lastUs) / 1000.0 /
                    static_cast<double>(event.percent - lastPercent));
    lastPercent = event.percent;
    lastUs = event.atUs;
    if (event.percent >= 100) break;
  }
  return times;
}

double runSeconds(const TestRecord& record) {
  if (record.outcome != RunOutcome::Ran || record.endedUs < record.beganUs || record.beganUs == 0) return -1.0;
  return static_cast<double>(record.endedUs - record.beganUs) / 1e6;
}

std::string exitStatusText(int status) {
  switch (status) {
    case kExitPassed: return "every test that ran passed";
    case kExitFailed: return "a test found a device failing";
    case kExitUsage: return "the command line was wrong";
    case kExitNothingRan: return "nothing could be tested";
    case kExitAborted: return "the session was stopped or a test was aborted";
    default: break;
  }
  return "exit status " + std::to_string(status);
}

}  // namespace hwc
