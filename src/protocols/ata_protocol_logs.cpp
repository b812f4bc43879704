// The ATA protocol's logs: the two log directories, READ LOG EXT page by page
// with its retries, SMART READ LOG, and the failing address of the newest
// self test from whichever self-test log the drive keeps.
#include <memory>
#include <new>

#include "commands/ata/ata_commands.h"
#include "protocols/ata_protocol.h"
#include "protocols/protocol_functions.h"

namespace {

constexpr size_t kPageBytes = 512;
constexpr uint8_t kLogDirectory = 0x00;
constexpr uint8_t kLogSummaryError = 0x01;
constexpr uint8_t kLogComprehensiveError = 0x02;
constexpr uint8_t kLogExtError = 0x03;
constexpr uint8_t kLogSelfTest = 0x06;
constexpr uint8_t kLogExtSelfTest = 0x07;
constexpr uint8_t kLogVersion = 0x01;  // byte 0 of every log's first page
constexpr int kPageAttempts = 5;

// Extended self-test log (READ LOG EXT, address 7), per page:
//   [0]      version 1 (first page)
//   [2..3]   index of the newest descriptor, 1-based, first byte low (first page)
//   [4..]    19 descriptors of 26 bytes:
//              +0 subcommand  +1 status  +2..3 hours  +4 checkpoint
//              +5..10 failing LBA, lowest byte first
//   [511]    checksum
constexpr size_t kExtDescriptorIndex = 2;
constexpr size_t kExtDescriptorsOffset = 4;
constexpr size_t kExtDescriptorBytes = 26;
constexpr uint32_t kExtDescriptorsPerPage = 19;

// SMART self-test log (SMART READ LOG, address 6), one page:
//   [0..1]   revision, first byte low
//   [2..]    21 descriptors of 24 bytes, descriptor n at n x 24 - 22:
//              +0 subcommand  +1 status  +2..3 hours  +4 checkpoint
//              +5..8 failing LBA, lowest byte first
//   [508]    index of the newest descriptor
//   [511]    checksum
constexpr size_t kSmartDescriptorIndex = 508;
constexpr size_t kSmartDescriptorBytes = 24;
constexpr size_t kSmartDescriptorBase = 22;
constexpr uint32_t kSmartDescriptorsChecked = 21;
constexpr size_t kFailingLbaOffset = 5;

bool isLogPageValid(const uint8_t* page, bool first) {
  if (!isChecksumValid(page, static_cast<int64_t>(kPageBytes))) return false;
  return !first || page[0] == kLogVersion;
}

uint16_t directoryWord(const uint8_t* directory, size_t index) {
  return static_cast<uint16_t>(directory[2 * index] | directory[2 * index + 1] << 8);
}

}  // namespace

uint32_t AtaProtocol::readLog(uint8_t logAddress, uint16_t pageCount, void* buffer, uint16_t* pagesRead) {
  if (buffer == nullptr) return kStatusBadArgument;
  if (logAddress == kLogExtError || logAddress == kLogExtSelfTest) {
    return readLogExt(logAddress, pageCount, buffer, pagesRead);
  }
  return readSmartLog(logAddress, pageCount, buffer, pagesRead);
}

uint16_t AtaProtocol::getLogPageCount(uint8_t logAddress) {
  if (logPageCounts.empty()) {
    // Both directory reads share one buffer and are built before either goes.
    uint8_t directory[kPageBytes] = {};
    SmartReadLog smartDirectory(kLogDirectory, 1, directory);
    ReadLogExt gplDirectory(kLogDirectory, 1, directory, 0);
    if (sendCommand(smartDirectory) == kStatusOk && (smartDirectory.status() & kAtaStatusErr) == 0) {
      for (uint8_t address : {kLogSummaryError, kLogComprehensiveError, kLogSelfTest}) {
        logPageCounts[address] = directoryWord(directory, address);
      }
    }
    if (sendCommand(gplDirectory) == kStatusOk && (gplDirectory.status() & kAtaStatusErr) == 0) {
      for (uint8_t address : {kLogExtError, kLogExtSelfTest}) {
        logPageCounts[address] = directoryWord(directory, address);
      }
    }
  }
  // The lookup adds a missing address with 0, so that the map is never empty
  // again: the directories are read at most once, even when both failed.
  return logPageCounts[logAddress];
}

uint32_t AtaProtocol::readLogExt(uint8_t logAddress, uint16_t pageCount, void* buffer, uint16_t* pagesRead) {
  if (buffer == nullptr || pagesRead == nullptr) return kStatusBadArgument;
  *pagesRead = 0;
  if (pageCount == 0) return kStatusOk;
  uint8_t* writePosition = static_cast<uint8_t*>(buffer);
  for (uint32_t page = 0; page < pageCount; ++page) {
    for (int attempt = 0; attempt < kPageAttempts; ++attempt) {
      ReadLogExt read(logAddress, 1, writePosition, static_cast<uint16_t>(page));
      const uint32_t sent = sendCommand(read);
      if (sent != kStatusOk) return sent;
      if (isLogPageValid(writePosition, page == 0)) {
        writePosition += kPageBytes;
        ++*pagesRead;
        break;
      }
    }
    // A page that failed every attempt is skipped: the next page is read to
    // the same place, and *pagesRead stays below pageCount.
  }
  return kStatusOk;
}

uint32_t AtaProtocol::readSmartLog(uint8_t logAddress, uint16_t pageCount, void* buffer, uint16_t* pagesRead) {
  if (buffer == nullptr || pagesRead == nullptr) return kStatusBadArgument;
  *pagesRead = 0;
  SmartReadLog read(logAddress, static_cast<uint8_t>(pageCount), buffer);
  const uint32_t sent = sendCommand(read);
  if (sent != kStatusOk) return sent;
  // Only the first page is checked.
  if (!isLogPageValid(static_cast<const uint8_t*>(buffer), true)) return kStatusAtaError;
  *pagesRead = static_cast<uint8_t>(pageCount);
  return kStatusOk;
}

uint32_t AtaProtocol::getSelfTestFailingLba(uint64_t* lba) {
  if (lba == nullptr) return kStatusBadArgument;
  const uint16_t extPages = getLogPageCount(kLogExtSelfTest);
  const uint16_t smartPages = getLogPageCount(kLogSelfTest);
  if (extPages != 0) return readFailingLbaFromExtLog(extPages, lba);
  if (smartPages == 1) return readFailingLbaFromSmartLog(lba);
  return kStatusNotAvailable;
}

uint32_t AtaProtocol::readFailingLbaFromExtLog(uint16_t pages, uint64_t* lba) {
  const size_t bytes = size_t{pages} * kPageBytes;
  std::unique_ptr<uint8_t[]> log(new (std::nothrow) uint8_t[bytes]());
  if (!log) return kStatusBadArgument;
  uint16_t pagesRead = 0;
  const uint32_t status = readLogExt(kLogExtSelfTest, pages, log.get(), &pagesRead);

  const uint8_t* first = log.get();
  const uint32_t index = first[kExtDescriptorIndex] | first[kExtDescriptorIndex + 1] << 8;
  if (pagesRead != pages || index == 0 || first[0] != kLogVersion || !isChecksumValid(first, kPageBytes)) {
    return kStatusNotAvailable;
  }
  const uint32_t page = (index - 1) / kExtDescriptorsPerPage;
  const uint32_t slot = (index - 1) % kExtDescriptorsPerPage;
  if (page >= pagesRead || !isChecksumValid(first + page * kPageBytes, kPageBytes)) return kStatusNotAvailable;
  const uint8_t* descriptor = first + page * kPageBytes + kExtDescriptorsOffset + slot * kExtDescriptorBytes;
  const uint8_t* b = descriptor + kFailingLbaOffset;
  *lba = makeLba48(b[0], b[1], b[2], b[3], b[4], b[5]);
  return status;
}

uint32_t AtaProtocol::readFailingLbaFromSmartLog(uint64_t* lba) {
  uint8_t log[kPageBytes] = {};
  uint16_t pagesRead = 0;
  const uint32_t status = readSmartLog(kLogSelfTest, 1, log, &pagesRead);
  if (pagesRead != 1) return kStatusNotAvailable;
  const uint32_t index = log[kSmartDescriptorIndex];
  const uint16_t revision = static_cast<uint16_t>(log[0] | log[1] << 8);
  if (index == 0 || revision != 1) return kStatusNotAvailable;
  // Settled as it stands: for an index of at most 21 the check covers byte 0
  // alone, which holds the revision 1, and fails; above 21 it covers no byte
  // and passes.
  const int64_t checkedLength = index <= kSmartDescriptorsChecked ? 1 : 0;
  if (!isChecksumValid(log, checkedLength)) return kStatusNotAvailable;
  // An index above 21 points past the last descriptor of the page; a
  // descriptor that does not lie inside the page is no answer.
  const size_t offset = index * kSmartDescriptorBytes - kSmartDescriptorBase;
  if (offset + kFailingLbaOffset + 4 > kPageBytes) return kStatusNotAvailable;
  const uint8_t* b = log + offset + kFailingLbaOffset;
  *lba = makeLba48(b[0], b[1], b[2], b[3], 0, 0);
  return status;
}
