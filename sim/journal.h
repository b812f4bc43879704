// The record of everything that reached a simulated device: each ATA task
// file, each CDB, each written sector, with the virtual time it arrived.
// Tests read it to prove what the module sent and what it did not write.
#pragma once

#include <array>
#include <cstdint>
#include <string>
#include <unordered_map>
#include <utility>
#include <vector>

#include "sim/device.h"

namespace sim {

enum class JournalKind : uint8_t { AtaCommand, ScsiCommand, SectorWrite };

// One entry. `bytes` holds, for an ATA command, the registers in the order
// feature, count, lbaLow, lbaMid, lbaHigh, device, command, featureExp,
// countExp, lbaLowExp, lbaMidExp, lbaHighExp (length 12); for a SCSI command
// the CDB (length = CDB length). A sector write uses `lba` and `count`.
struct JournalEntry {
  uint64_t timeMs = 0;
  uint32_t device = 0;  // Journal::deviceName(device)
  JournalKind kind = JournalKind::AtaCommand;
  Completion completion = Completion::Done;
  uint8_t status = 0;  // ATA Status register, or SCSI status byte
  uint8_t error = 0;   // ATA Error register, or sense key
  uint8_t length = 0;
  std::array<uint8_t, 16> bytes{};
  uint64_t lba = 0;
  uint64_t count = 0;

  uint8_t opcode() const { return kind == JournalKind::AtaCommand ? bytes[6] : bytes[0]; }
  AtaRegisters ataRegisters() const;
};

class Journal {
 public:
  // The number under which a device's entries are filed; a new name gets the
  // next number.
  uint32_t deviceId(const std::string& name);
  const std::string& deviceName(uint32_t id) const;

  // Recording. The clock time is passed in by the caller, who owns the clock.
  // While disabled, nothing is recorded (benchmarks switch it off).
  void setEnabled(bool enabled) { enabled_ = enabled; }
  bool enabled() const { return enabled_; }
  void recordAta(uint64_t timeMs, uint32_t device, const AtaRegisters& in, const AtaResponse& out);
  void recordScsi(uint64_t timeMs, uint32_t device, const uint8_t* cdb, uint8_t cdbLength, const ScsiResponse& out);
  void recordWrite(uint64_t timeMs, uint32_t device, uint64_t lba, uint64_t count);

  const std::vector<JournalEntry>& entries() const { return entries_; }
  void clear() { entries_.clear(); }
  // The journal keeps at most `maxEntries` (a million unless set); beyond
  // that the oldest quarter is dropped and counted, so that a whole-disk
  // scan cannot eat the memory. Tests that must see everything check
  // dropped() == 0.
  void setLimit(size_t maxEntries) { limit_ = maxEntries < 4 ? 4 : maxEntries; }
  uint64_t dropped() const { return dropped_; }

  // Queries by device name. An unknown name has no entries.
  std::vector<JournalEntry> entriesFor(const std::string& device) const;
  std::vector<JournalEntry> commandsTo(const std::string& device) const;
  // Command opcodes (ATA command register, or CDB byte 0) in arrival order.
  std::vector<uint8_t> opcodesTo(const std::string& device) const;
  // Written ranges as (first LBA, sector count), in order of writing.
  std::vector<std::pair<uint64_t, uint64_t>> writesTo(const std::string& device) const;
  bool wasWritten(const std::string& device, uint64_t lba) const;
  // True when any sector in [first, last] was written.
  bool anyWrittenIn(const std::string& device, uint64_t first, uint64_t last) const;

  // The whole journal as text, one entry a line, for a process outside the
  // simulated PC (MODULE_STORAGE_JOURNAL). A first line starting with '#'
  // counts the entries and those dropped; then, oldest first, fields
  // separated by one blank:
  //   TIME DEVICE write LBA COUNT
  //   TIME DEVICE ata REGISTERS COMPLETION STATUS ERROR
  //   TIME DEVICE scsi CDB COMPLETION STATUS SENSE_KEY
  // TIME is milliseconds on the machine's clock, LBA and COUNT decimal,
  // REGISTERS the 12 register bytes in the order of JournalEntry and CDB the
  // command bytes, both as hex digits without blanks; COMPLETION is done,
  // timeout, no-device or transport-error; STATUS, ERROR and SENSE_KEY two
  // hex digits.
  std::string text() const;
  // Writes text() to `path`, replacing the file. False, with *error naming
  // the file, when it cannot be written.
  bool writeText(const std::string& path, std::string* error) const;

 private:
  bool findDevice(const std::string& name, uint32_t* id) const;

  void append(const JournalEntry& entry);

  bool enabled_ = true;
  size_t limit_ = 1000000;
  uint64_t dropped_ = 0;
  std::vector<JournalEntry> entries_;
  std::vector<std::string> names_;
  std::unordered_map<std::string, uint32_t> ids_;
};

}  // namespace sim
