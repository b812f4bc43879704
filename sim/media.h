// The recording surface of a simulated disk: a sparse store of sectors that
// can stand for several TiB while holding only what was written. A run of
// sectors that each hold one byte value throughout (a test pattern, a zeroed
// area) is kept as that byte and its extent, so gigabytes of pattern cost a
// few bytes. It knows nothing of commands; drives, bridges and the Windows
// face all reach it.
#pragma once

#include <cstdint>
#include <fstream>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include "sim/virtual_clock.h"

namespace sim {

class Journal;

// What an unwritten sector reads as.
enum class SectorFill : uint8_t {
  Zeros,     // all bytes 0
  Byte,      // every byte the fill byte
  LbaStamp,  // each 8-byte word holds the sector's LBA, little-endian
};

// Why a sector cannot be read. All kinds clear when the sector is rewritten.
enum class UnreadableKind : uint8_t {
  Pending,  // a weak sector the drive has given up on (ATA attribute 197)
  Pseudo,   // marked by WRITE UNCORRECTABLE EXT, pseudo: reads fail and are logged
  Flagged,  // marked by WRITE UNCORRECTABLE EXT, flagged: reads fail, not logged
};

enum class MediaResult : uint8_t { Ok, Unreadable, OutOfRange };

class Media {
 public:
  // A sector size of 0 is taken as 512. No storage is allocated up front.
  Media(uint32_t sectorSize, uint64_t sectorCount);
  ~Media();
  Media(const Media&) = delete;
  Media& operator=(const Media&) = delete;

  uint32_t sectorSize() const { return sectorSize_; }
  uint64_t sectorCount() const { return sectorCount_; }
  uint64_t byteSize() const { return sectorCount_ * sectorSize_; }

  void setFill(SectorFill fill, uint8_t byte = 0);

  // Puts a read-only image file under the store: sectors never written read
  // from the image, sectors past its end read as the fill. Writes stay in
  // memory, so the file is never changed. False, with *error set, when the
  // file cannot be opened.
  bool attachImage(const std::string& path, std::string* error);

  // Reads `count` sectors from `lba` into `out` (count * sectorSize bytes).
  // A range beyond the end gives OutOfRange and reads nothing. At the first
  // unreadable sector the read stops with Unreadable: the sectors before it
  // are in `out`, and *failedLba (if given) names the sector.
  MediaResult read(uint64_t lba, uint64_t count, uint8_t* out, uint64_t* failedLba = nullptr) const;
  // Writes `count` sectors; each written sector becomes readable again.
  // Every write is entered in the journal under this media's device name.
  MediaResult write(uint64_t lba, uint64_t count, const uint8_t* in);

  // A read into a host buffer of `room` bytes that may be shorter than the
  // range (or absent): the outcome is that of the whole range, but only the
  // readable sectors before any failure that fit in `room` are copied.
  // *moved gets the bytes copied. Memory use stays at one sector.
  MediaResult readToHost(uint64_t lba, uint64_t count, uint8_t* out, uint64_t room, uint64_t* failedLba,
                         uint64_t* moved) const;

  // Byte-addressed forms for the raw ReadFile/WriteFile path. The offset and
  // length need not be sector-aligned; a touched unreadable sector fails the
  // read the same way.
  MediaResult readBytes(uint64_t offset, uint64_t length, uint8_t* out, uint64_t* failedLba = nullptr) const;
  MediaResult writeBytes(uint64_t offset, uint64_t length, const uint8_t* in);

  // Unreadable sectors: device state that lasts until the sector is written.
  void markUnreadable(uint64_t lba, UnreadableKind kind = UnreadableKind::Pending);
  void clearUnreadable(uint64_t lba);
  bool isUnreadable(uint64_t lba) const { return !unreadable_.empty() && unreadable_.count(lba) != 0; }
  // The lowest unreadable LBA in [first, last], or false when there is none.
  bool firstUnreadable(uint64_t first, uint64_t last, uint64_t* lba) const;
  const std::map<uint64_t, UnreadableKind>& unreadableSectors() const { return unreadable_; }
  size_t unreadableCount(UnreadableKind kind) const;

  // Sectors that hold written data (not counting the image), whether kept
  // byte for byte or as a run of one byte value.
  size_t storedSectors() const;
  bool isStored(uint64_t lba) const { return sectors_.count(lba) != 0 || runAt(lba) != nullptr; }

  // Names this media in the journal, with the clock that dates its writes;
  // without a journal nothing is recorded.
  void setJournal(std::shared_ptr<Journal> journal, const std::string& deviceName,
                  std::shared_ptr<const VirtualClock> clock);

 private:
  // Sectors in [first, first + count) that hold one byte value throughout.
  struct UniformRun {
    uint64_t count = 0;
    uint8_t byte = 0;
  };

  void fillSector(uint64_t lba, uint8_t* out) const;
  // The run that holds `lba`, or null.
  const UniformRun* runAt(uint64_t lba) const;
  // Drops [first, first + count) from the runs, splitting those that straddle
  // its edges.
  void carveRuns(uint64_t first, uint64_t count);
  // Stores [first, first + count) as sectors of `byte`, joined to a
  // neighbouring run of the same byte.
  void storeRun(uint64_t first, uint64_t count, uint8_t byte);

  uint32_t sectorSize_;
  uint64_t sectorCount_;
  SectorFill fill_ = SectorFill::Zeros;
  uint8_t fillByte_ = 0;
  // Written sectors of mixed content, byte for byte; ordered so that a run
  // written over them drops them by range.
  std::map<uint64_t, std::unique_ptr<uint8_t[]>> sectors_;
  // Written sectors of one byte value, by first LBA; runs never overlap each
  // other or an entry of sectors_.
  std::map<uint64_t, UniformRun> runs_;
  std::map<uint64_t, UnreadableKind> unreadable_;
  mutable std::ifstream image_;
  uint64_t imageSectors_ = 0;
  std::shared_ptr<Journal> journal_;
  std::shared_ptr<const VirtualClock> clock_;
  uint32_t journalDevice_ = 0;
};

}  // namespace sim
