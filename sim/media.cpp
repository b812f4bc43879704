// The sparse sector store of a simulated disk.
#include "sim/media.h"
#include "sim/media_reads.h"

#include <algorithm>
#include <cstring>
#include <iterator>

#include "sim/journal.h"

namespace sim {

namespace {
MediaReadListener& readListener() {
  static MediaReadListener listener;
  return listener;
}
void tellRead(const Media& media, uint64_t lba, uint64_t count) {
  if (readListener()) readListener()(media, lba, count);
}
}  // namespace

void setMediaReadListener(MediaReadListener listener) { readListener() = std::move(listener); }

Media::Media(uint32_t sectorSize, uint64_t sectorCount)
    : sectorSize_(sectorSize == 0 ? 512 : sectorSize), sectorCount_(sectorCount) {}

Media::~Media() = default;

void Media::setFill(SectorFill fill, uint8_t byte) {
  fill_ = fill;
  fillByte_ = byte;
}

bool Media::attachImage(const std::string& path, std::string* error) {
  image_ = std::ifstream(path, std::ios::binary);
  if (!image_) {
    if (error != nullptr) *error = "cannot open image file '" + path + "'";
    imageSectors_ = 0;
    return false;
  }
  image_.seekg(0, std::ios::end);
  const std::streamoff size = image_.tellg();
  imageSectors_ = size > 0 ? static_cast<uint64_t>(size) / sectorSize_ : 0;
  return true;
}

void Media::fillSector(uint64_t lba, uint8_t* out) const {
  if (lba < imageSectors_) {
    image_.clear();
    image_.seekg(static_cast<std::streamoff>(lba * sectorSize_));
    image_.read(reinterpret_cast<char*>(out), sectorSize_);
    if (image_.gcount() == static_cast<std::streamsize>(sectorSize_)) return;
  }
  switch (fill_) {
    case SectorFill::Zeros:
      std::memset(out, 0, sectorSize_);
      break;
    case SectorFill::Byte:
      std::memset(out, fillByte_, sectorSize_);
      break;
    case SectorFill::LbaStamp:
      for (uint32_t i = 0; i + 8 <= sectorSize_; i += 8) {
        for (int b = 0; b < 8; ++b) out[i + b] = static_cast<uint8_t>(lba >> (8 * b));
      }
      break;
  }
}

MediaResult Media::read(uint64_t lba, uint64_t count, uint8_t* out, uint64_t* failedLba) const {
  if (lba > sectorCount_ || count > sectorCount_ - lba) return MediaResult::OutOfRange;
  if (count != 0) tellRead(*this, lba, count);
  const uint64_t end = lba + count;
  uint64_t at = lba;
  while (at < end) {
    if (isUnreadable(at)) {
      if (failedLba != nullptr) *failedLba = at;
      return MediaResult::Unreadable;
    }
    uint8_t* dst = out + (at - lba) * sectorSize_;
    if (!sectors_.empty()) {
      auto it = sectors_.find(at);
      if (it != sectors_.end()) {
        std::memcpy(dst, it->second.get(), sectorSize_);
        ++at;
        continue;
      }
    }
    if (const UniformRun* run = runAt(at)) {
      std::memset(dst, run->byte, sectorSize_);
      ++at;
      continue;
    }
    if (at < imageSectors_ || fill_ == SectorFill::LbaStamp) {
      fillSector(at, dst);
      ++at;
      continue;
    }
    // Never written, and the fill is one byte: the whole stretch up to the
    // next stored sector, run or unreadable sector takes one memset, so a
    // scan of an empty terabyte costs little more than the copy itself.
    uint64_t stop = end;
    auto nextSector = sectors_.lower_bound(at);
    if (nextSector != sectors_.end() && nextSector->first < stop) stop = nextSector->first;
    auto nextRun = runs_.lower_bound(at);
    if (nextRun != runs_.end() && nextRun->first < stop) stop = nextRun->first;
    auto nextBad = unreadable_.lower_bound(at);
    if (nextBad != unreadable_.end() && nextBad->first < stop) stop = nextBad->first;
    if (stop <= at) stop = at + 1;
    std::memset(dst, fill_ == SectorFill::Byte ? fillByte_ : 0, (stop - at) * sectorSize_);
    at = stop;
  }
  return MediaResult::Ok;
}

MediaResult Media::readToHost(uint64_t lba, uint64_t count, uint8_t* out, uint64_t room, uint64_t* failedLba,
                              uint64_t* moved) const {
  *moved = 0;
  if (lba > sectorCount_ || count > sectorCount_ - lba) return MediaResult::OutOfRange;
  uint64_t good = count;
  uint64_t bad = 0;
  const bool failed = count != 0 && firstUnreadable(lba, lba + count - 1, &bad);
  if (failed) {
    good = bad - lba;
    if (failedLba != nullptr) *failedLba = bad;
  }
  if (out == nullptr) room = 0;
  const uint64_t whole = std::min<uint64_t>(good, room / sectorSize_);
  if (whole > 0) read(lba, whole, out);
  *moved = whole * sectorSize_;
  const uint64_t rest = room - *moved;
  if (whole < good && rest > 0) {
    std::vector<uint8_t> sector(sectorSize_);
    read(lba + whole, 1, sector.data());
    std::memcpy(out + *moved, sector.data(), rest);
    *moved += rest;
  }
  return failed ? MediaResult::Unreadable : MediaResult::Ok;
}

MediaResult Media::write(uint64_t lba, uint64_t count, const uint8_t* in) {
  if (lba > sectorCount_ || count > sectorCount_ - lba) return MediaResult::OutOfRange;
  uint64_t i = 0;
  while (i < count) {
    const uint8_t* sector = in + i * sectorSize_;
    if (std::memcmp(sector, sector + 1, sectorSize_ - 1) == 0) {
      // One byte throughout: gather the sectors after it that hold the same
      // byte and keep them all as one run.
      uint64_t end = i + 1;
      while (end < count) {
        const uint8_t* next = in + end * sectorSize_;
        if (next[0] != sector[0] || std::memcmp(next, next + 1, sectorSize_ - 1) != 0) break;
        ++end;
      }
      storeRun(lba + i, end - i, sector[0]);
      i = end;
      continue;
    }
    const uint64_t at = lba + i;
    carveRuns(at, 1);
    auto& slot = sectors_[at];
    if (!slot) slot.reset(new uint8_t[sectorSize_]);
    std::memcpy(slot.get(), sector, sectorSize_);
    ++i;
  }
  if (!unreadable_.empty() && count > 0) {
    unreadable_.erase(unreadable_.lower_bound(lba), unreadable_.upper_bound(lba + count - 1));
  }
  if (journal_ && count > 0) journal_->recordWrite(clock_ ? clock_->nowMs() : 0, journalDevice_, lba, count);
  return MediaResult::Ok;
}

size_t Media::storedSectors() const {
  uint64_t total = sectors_.size();
  for (const auto& run : runs_) total += run.second.count;
  return static_cast<size_t>(total);
}

const Media::UniformRun* Media::runAt(uint64_t lba) const {
  if (runs_.empty()) return nullptr;
  auto it = runs_.upper_bound(lba);
  if (it == runs_.begin()) return nullptr;
  --it;
  return lba - it->first < it->second.count ? &it->second : nullptr;
}

void Media::carveRuns(uint64_t first, uint64_t count) {
  if (runs_.empty() || count == 0) return;
  const uint64_t end = first + count;
  auto it = runs_.upper_bound(first);
  if (it != runs_.begin()) {
    auto before = std::prev(it);
    const uint64_t beforeEnd = before->first + before->second.count;
    if (beforeEnd > first) {
      // Straddles the start: keep its head, and its tail past the range.
      before->second.count = first - before->first;
      if (beforeEnd > end) runs_[end] = UniformRun{beforeEnd - end, before->second.byte};
      if (before->second.count == 0) runs_.erase(before);
    }
  }
  it = runs_.lower_bound(first);
  while (it != runs_.end() && it->first < end) {
    const uint64_t runEnd = it->first + it->second.count;
    const uint8_t byte = it->second.byte;
    it = runs_.erase(it);
    if (runEnd > end) {
      runs_[end] = UniformRun{runEnd - end, byte};
      break;
    }
  }
}

void Media::storeRun(uint64_t first, uint64_t count, uint8_t byte) {
  if (!sectors_.empty()) sectors_.erase(sectors_.lower_bound(first), sectors_.lower_bound(first + count));
  carveRuns(first, count);
  auto it = runs_.emplace(first, UniformRun{count, byte}).first;
  if (it != runs_.begin()) {
    auto before = std::prev(it);
    if (before->first + before->second.count == first && before->second.byte == byte) {
      before->second.count += it->second.count;
      runs_.erase(it);
      it = before;
    }
  }
  auto after = std::next(it);
  if (after != runs_.end() && it->first + it->second.count == after->first && after->second.byte == byte) {
    it->second.count += after->second.count;
    runs_.erase(after);
  }
}

MediaResult Media::readBytes(uint64_t offset, uint64_t length, uint8_t* out, uint64_t* failedLba) const {
  if (length == 0) return offset <= byteSize() ? MediaResult::Ok : MediaResult::OutOfRange;
  if (offset > byteSize() || length > byteSize() - offset) return MediaResult::OutOfRange;
  const uint64_t first = offset / sectorSize_;
  const uint64_t last = (offset + length - 1) / sectorSize_;
  std::vector<uint8_t> sector(sectorSize_);
  uint64_t done = 0;
  uint64_t lba = first;
  while (lba <= last) {
    const uint64_t start = lba == first ? offset % sectorSize_ : 0;
    const uint64_t take = std::min<uint64_t>(sectorSize_ - start, length - done);
    if (take == sectorSize_) {
      // Whole sectors straight into the caller's buffer.
      const uint64_t whole = (length - done) / sectorSize_;
      MediaResult r = read(lba, whole, out + done, failedLba);
      if (r != MediaResult::Ok) return r;
      done += whole * sectorSize_;
      lba += whole;
      continue;
    }
    MediaResult r = read(lba, 1, sector.data(), failedLba);
    if (r != MediaResult::Ok) return r;
    std::memcpy(out + done, sector.data() + start, take);
    done += take;
    ++lba;
  }
  return MediaResult::Ok;
}

MediaResult Media::writeBytes(uint64_t offset, uint64_t length, const uint8_t* in) {
  if (length == 0) return offset <= byteSize() ? MediaResult::Ok : MediaResult::OutOfRange;
  if (offset > byteSize() || length > byteSize() - offset) return MediaResult::OutOfRange;
  const uint64_t first = offset / sectorSize_;
  const uint64_t last = (offset + length - 1) / sectorSize_;
  std::vector<uint8_t> sector(sectorSize_);
  uint64_t done = 0;
  uint64_t lba = first;
  while (lba <= last) {
    const uint64_t start = lba == first ? offset % sectorSize_ : 0;
    const uint64_t take = std::min<uint64_t>(sectorSize_ - start, length - done);
    if (take == sectorSize_) {
      // Whole sectors from here on go down in one write, one journal entry.
      const uint64_t whole = (length - done) / sectorSize_;
      write(lba, whole, in + done);
      done += whole * sectorSize_;
      lba += whole;
      continue;
    }
    // A partial sector keeps its other bytes: read, patch, write back. An
    // unreadable sector's old bytes are gone, so its rest reads as fill.
    if (read(lba, 1, sector.data()) != MediaResult::Ok) fillSector(lba, sector.data());
    std::memcpy(sector.data() + start, in + done, take);
    write(lba, 1, sector.data());
    done += take;
    ++lba;
  }
  return MediaResult::Ok;
}

void Media::markUnreadable(uint64_t lba, UnreadableKind kind) {
  if (lba < sectorCount_) unreadable_[lba] = kind;
}

void Media::clearUnreadable(uint64_t lba) { unreadable_.erase(lba); }

bool Media::firstUnreadable(uint64_t first, uint64_t last, uint64_t* lba) const {
  if (last >= first) tellRead(*this, first, last - first + 1);
  auto it = unreadable_.lower_bound(first);
  if (it == unreadable_.end() || it->first > last) return false;
  if (lba != nullptr) *lba = it->first;
  return true;
}

size_t Media::unreadableCount(UnreadableKind kind) const {
  return static_cast<size_t>(
      std::count_if(unreadable_.begin(), unreadable_.end(), [kind](const auto& e) { return e.second == kind; }));
}

void Media::setJournal(std::shared_ptr<Journal> journal, const std::string& deviceName,
                       std::shared_ptr<const VirtualClock> clock) {
  journal_ = std::move(journal);
  clock_ = std::move(clock);
  if (journal_) journalDevice_ = journal_->deviceId(deviceName);
}

}  // namespace sim
