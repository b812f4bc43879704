// The journal of commands and writes that reached the simulated devices.
#include "sim/journal.h"

#include <cstring>
#include <fstream>

namespace sim {

AtaRegisters JournalEntry::ataRegisters() const {
  AtaRegisters r;
  r.feature = bytes[0];
  r.count = bytes[1];
  r.lbaLow = bytes[2];
  r.lbaMid = bytes[3];
  r.lbaHigh = bytes[4];
  r.device = bytes[5];
  r.command = bytes[6];
  r.featureExp = bytes[7];
  r.countExp = bytes[8];
  r.lbaLowExp = bytes[9];
  r.lbaMidExp = bytes[10];
  r.lbaHighExp = bytes[11];
  return r;
}

uint32_t Journal::deviceId(const std::string& name) {
  auto it = ids_.find(name);
  if (it != ids_.end()) return it->second;
  const uint32_t id = static_cast<uint32_t>(names_.size());
  names_.push_back(name);
  ids_.emplace(name, id);
  return id;
}

const std::string& Journal::deviceName(uint32_t id) const {
  static const std::string kUnknown;
  return id < names_.size() ? names_[id] : kUnknown;
}

bool Journal::findDevice(const std::string& name, uint32_t* id) const {
  auto it = ids_.find(name);
  if (it == ids_.end()) return false;
  *id = it->second;
  return true;
}

void Journal::append(const JournalEntry& entry) {
  if (entries_.size() >= limit_) {
    const size_t drop = limit_ / 4;
    entries_.erase(entries_.begin(), entries_.begin() + static_cast<std::ptrdiff_t>(drop));
    dropped_ += drop;
  }
  entries_.push_back(entry);
}

void Journal::recordAta(uint64_t timeMs, uint32_t device, const AtaRegisters& in, const AtaResponse& out) {
  if (!enabled_) return;
  JournalEntry e;
  e.timeMs = timeMs;
  e.device = device;
  e.kind = JournalKind::AtaCommand;
  e.completion = out.completion;
  e.status = out.out.status;
  e.error = out.out.error;
  e.length = 12;
  const uint8_t regs[12] = {in.feature,    in.count,    in.lbaLow,    in.lbaMid,    in.lbaHigh,   in.device,
                            in.command,    in.featureExp, in.countExp, in.lbaLowExp, in.lbaMidExp, in.lbaHighExp};
  std::memcpy(e.bytes.data(), regs, sizeof regs);
  append(e);
}

void Journal::recordScsi(uint64_t timeMs, uint32_t device, const uint8_t* cdb, uint8_t cdbLength,
                         const ScsiResponse& out) {
  if (!enabled_) return;
  JournalEntry e;
  e.timeMs = timeMs;
  e.device = device;
  e.kind = JournalKind::ScsiCommand;
  e.completion = out.completion;
  e.status = out.status;
  // The sense key, from either sense format.
  if (out.sense.size() >= 3) {
    const uint8_t code = out.sense[0] & 0x7F;
    e.error = (code == 0x72 || code == 0x73) ? (out.sense[1] & 0x0F) : (out.sense[2] & 0x0F);
  }
  e.length = cdbLength > 16 ? 16 : cdbLength;
  if (cdb != nullptr) std::memcpy(e.bytes.data(), cdb, e.length);
  append(e);
}

void Journal::recordWrite(uint64_t timeMs, uint32_t device, uint64_t lba, uint64_t count) {
  if (!enabled_) return;
  JournalEntry e;
  e.timeMs = timeMs;
  e.device = device;
  e.kind = JournalKind::SectorWrite;
  e.lba = lba;
  e.count = count;
  append(e);
}

std::vector<JournalEntry> Journal::entriesFor(const std::string& device) const {
  std::vector<JournalEntry> out;
  uint32_t id = 0;
  if (!findDevice(device, &id)) return out;
  for (const auto& e : entries_) {
    if (e.device == id) out.push_back(e);
  }
  return out;
}

std::vector<JournalEntry> Journal::commandsTo(const std::string& device) const {
  std::vector<JournalEntry> out;
  for (const auto& e : entriesFor(device)) {
    if (e.kind != JournalKind::SectorWrite) out.push_back(e);
  }
  return out;
}

std::vector<uint8_t> Journal::opcodesTo(const std::string& device) const {
  std::vector<uint8_t> out;
  for (const auto& e : commandsTo(device)) out.push_back(e.opcode());
  return out;
}

std::vector<std::pair<uint64_t, uint64_t>> Journal::writesTo(const std::string& device) const {
  std::vector<std::pair<uint64_t, uint64_t>> out;
  for (const auto& e : entriesFor(device)) {
    if (e.kind == JournalKind::SectorWrite) out.emplace_back(e.lba, e.count);
  }
  return out;
}

bool Journal::wasWritten(const std::string& device, uint64_t lba) const { return anyWrittenIn(device, lba, lba); }

bool Journal::anyWrittenIn(const std::string& device, uint64_t first, uint64_t last) const {
  for (const auto& w : writesTo(device)) {
    const uint64_t wLast = w.first + w.second - 1;
    if (w.first <= last && wLast >= first) return true;
  }
  return false;
}

namespace {

const char* completionName(Completion completion) {
  switch (completion) {
    case Completion::Done: return "done";
    case Completion::Timeout: return "timeout";
    case Completion::NoDevice: return "no-device";
    case Completion::TransportError: return "transport-error";
  }
  return "unknown";
}

std::string hexBytes(const uint8_t* bytes, size_t count) {
  static const char kDigits[] = "0123456789abcdef";
  std::string text;
  for (size_t i = 0; i < count; ++i) {
    text += kDigits[bytes[i] >> 4];
    text += kDigits[bytes[i] & 0x0F];
  }
  return text;
}

}  // namespace

std::string Journal::text() const {
  std::string out = "# simulated PC journal: " + std::to_string(entries_.size()) + " entries, " +
                    std::to_string(dropped_) + " dropped\n";
  for (const auto& e : entries_) {
    out += std::to_string(e.timeMs) + " " + deviceName(e.device) + " ";
    if (e.kind == JournalKind::SectorWrite) {
      out += "write " + std::to_string(e.lba) + " " + std::to_string(e.count) + "\n";
      continue;
    }
    out += e.kind == JournalKind::AtaCommand ? "ata " : "scsi ";
    out += hexBytes(e.bytes.data(), e.length) + " " + completionName(e.completion) + " " + hexBytes(&e.status, 1) +
           " " + hexBytes(&e.error, 1) + "\n";
  }
  return out;
}

bool Journal::writeText(const std::string& path, std::string* error) const {
  std::ofstream file(path, std::ios::binary | std::ios::trunc);
  const std::string body = text();
  file.write(body.data(), static_cast<std::streamsize>(body.size()));
  file.close();
  if (!file) {
    if (error != nullptr) *error = "cannot write the journal to '" + path + "'";
    return false;
  }
  return true;
}

}  // namespace sim
