// The ATA drive: command dispatch, IDENTIFY DEVICE and sector I/O. SMART,
// self tests and logs are in ata_smart.cpp.
#include "sim/ata_drive.h"

#include <algorithm>
#include <cstring>

#include "sim/ata_drive_internal.h"

namespace sim {

namespace {

// Command codes this drive knows.
constexpr uint8_t kCmdNop = 0x00;
constexpr uint8_t kCmdReadSectors = 0x20;
constexpr uint8_t kCmdReadSectorsExt = 0x24;
constexpr uint8_t kCmdReadLogExt = 0x2F;
constexpr uint8_t kCmdWriteSectors = 0x30;
constexpr uint8_t kCmdWriteSectorsExt = 0x34;
constexpr uint8_t kCmdWriteLogExt = 0x3F;
constexpr uint8_t kCmdWriteUncorrectableExt = 0x45;
constexpr uint8_t kCmdSmart = 0xB0;
constexpr uint8_t kCmdReadDma = 0xC8;
constexpr uint8_t kCmdReadDmaExt = 0x25;
constexpr uint8_t kCmdWriteDma = 0xCA;
constexpr uint8_t kCmdWriteDmaExt = 0x35;
constexpr uint8_t kCmdFlushCache = 0xE7;
constexpr uint8_t kCmdFlushCacheExt = 0xEA;
constexpr uint8_t kCmdIdentifyDevice = 0xEC;

constexpr uint64_t kMax28BitSectors = 0x0FFFFFFF;

// Puts `text` into `count` words as ATA strings are kept: two characters a
// word, the first in the high byte, padded with blanks.
void putAtaString(std::array<uint16_t, 256>& w, int first, int count, const std::string& text) {
  for (int i = 0; i < count; ++i) {
    const size_t a = static_cast<size_t>(2 * i), b = a + 1;
    const uint8_t hi = a < text.size() ? static_cast<uint8_t>(text[a]) : ' ';
    const uint8_t lo = b < text.size() ? static_cast<uint8_t>(text[b]) : ' ';
    w[first + i] = static_cast<uint16_t>(hi << 8 | lo);
  }
}

}  // namespace

AtaDrive::AtaDrive(AtaProfile profile, std::shared_ptr<Media> media, std::shared_ptr<VirtualClock> clock)
    : profile_(std::move(profile)),
      media_(media ? std::move(media) : std::make_shared<Media>(512, 0)),
      clock_(clock ? std::move(clock) : std::make_shared<VirtualClock>()),
      smartEnabled_(profile_.smartEnabled),
      selfTestStatus_(profile_.selfTestStatus),
      offlineStatus_(profile_.offlineStatus),
      selfTests_(profile_.selfTestLog),
      errors_(profile_.errorLog.begin(), profile_.errorLog.end()),
      errorCount_(std::max<uint32_t>(profile_.errorCount, static_cast<uint32_t>(profile_.errorLog.size()))) {
  selective_[0] = 0x01;  // revision 1, no spans, no test pending
}

// IDENTIFY DEVICE, word by word (ACS-3 7.12.7):
//   0 general configuration        10-19 serial number (20 characters)
//   1/3/6 obsolete geometry        21 buffer size (obsolete, vendor use)
//   23-26 firmware (8 characters)  27-46 model number (40 characters)
//   47 max sectors per DRQ block   49 capabilities (LBA, DMA)
//   53 field validity              60-61 28-bit addressable sectors
//   80 major version               81 minor version
//   82-84 features supported       85-87 features enabled
//   76 SATA capabilities (1.5/3/6 Gb/s, NCQ)   77 negotiated speed (3:1)
//   100-103 48-bit sectors         106 physical/logical sector size
//   108-111 world wide name (word 84/87 bit 8)
//   117-118 logical sector size in words
//   119-120 more features (WRITE UNCORRECTABLE EXT: bit 2)
//   128 security status            168 nominal form factor (3:0)
//   206 SCT command transport (0 supported, 3 error recovery control,
//       4 feature control, 5 data tables)
//   214-216 NV cache                217 rotation rate (1: solid state)
//   222 transport major version (15:12 type 1 serial, bit n a SATA revision)
//   255 integrity word: 0xA5 in the low byte, checksum in the high byte
std::array<uint16_t, 256> AtaDrive::identifyWords() const {
  std::array<uint16_t, 256> w{};
  const uint64_t sectors = media_->sectorCount();
  const uint32_t sectorSize = media_->sectorSize();
  w[0] = 0x0040;  // fixed device
  w[1] = 16383;
  w[2] = 0xC837;
  w[3] = 16;
  w[6] = 63;
  putAtaString(w, 10, 10, profile_.serial);
  w[21] = profile_.bufferSize;
  putAtaString(w, 23, 4, profile_.firmware);
  putAtaString(w, 27, 20, profile_.model);
  w[47] = 0x8010;
  w[49] = 0x2F00;
  w[50] = 0x4000;
  w[53] = 0x0007;
  w[59] = 0x0110;
  const uint64_t sectors28 = std::min(sectors, kMax28BitSectors);
  w[60] = static_cast<uint16_t>(sectors28);
  w[61] = static_cast<uint16_t>(sectors28 >> 16);
  w[63] = 0x0407;
  w[64] = 0x0003;
  w[65] = w[66] = w[67] = w[68] = 120;
  w[75] = 31;
  const uint8_t generation = std::min<uint8_t>(std::max<uint8_t>(profile_.sataGeneration, 1), 3);
  w[76] = static_cast<uint16_t>(0x0100 | (((1u << generation) - 1) << 1));  // signalling speeds, NCQ
  w[77] = static_cast<uint16_t>(generation << 1);  // current negotiated speed
  w[80] = profile_.majorVersion;
  w[81] = profile_.minorVersion;
  const uint16_t smart = profile_.smartSupported ? 1 : 0;
  const uint16_t security = profile_.securitySupported ? 1 : 0;
  w[82] = static_cast<uint16_t>(0x7068 | smart | security << 1);
  w[83] = static_cast<uint16_t>(0x7000 | (profile_.lba48 ? 0x0400 : 0));
  const uint16_t wwn = profile_.wwn != 0 ? 0x0100 : 0;
  w[84] = static_cast<uint16_t>(0x4000 | wwn | (profile_.gplSupported ? 0x0020 : 0) | (smart ? 0x0003 : 0));
  w[85] = static_cast<uint16_t>(0x7068 | (smart && smartEnabled_ ? 1 : 0) |
                                (security && profile_.securityEnabled ? 2 : 0));
  w[86] = static_cast<uint16_t>(0x3000 | (profile_.lba48 ? 0x0400 : 0));
  w[87] = static_cast<uint16_t>(0x4000 | wwn | (profile_.gplSupported ? 0x0020 : 0) | (smart ? 0x0003 : 0));
  w[88] = 0x407F;
  if (security) {
    w[89] = 60;
    w[90] = 60;
  }
  if (profile_.lba48) {
    for (int i = 0; i < 4; ++i) w[100 + i] = static_cast<uint16_t>(sectors >> (16 * i));
  }
  if (wwn != 0) {
    for (int i = 0; i < 4; ++i) w[108 + i] = static_cast<uint16_t>(profile_.wwn >> (48 - 16 * i));
  }
  w[106] = 0x4000;
  if (profile_.physicalExponent != 0) w[106] |= static_cast<uint16_t>(0x2000 | (profile_.physicalExponent & 0x0F));
  if (sectorSize != 512) {
    w[106] |= 0x1000;
    const uint32_t words = sectorSize / 2;
    w[117] = static_cast<uint16_t>(words);
    w[118] = static_cast<uint16_t>(words >> 16);
  }
  w[119] = static_cast<uint16_t>(0x4000 | (profile_.writeUncorrectableSupported ? 0x0004 : 0));
  w[120] = w[119];
  if (security) {
    w[128] = static_cast<uint16_t>(0x0001 | (profile_.securityEnabled ? 0x0002 : 0) |
                                   (profile_.securityLocked ? 0x0004 : 0) | (profile_.securityFrozen ? 0x0008 : 0));
  }
  w[168] = profile_.formFactor & 0x0F;
  if (profile_.trimSupported) w[169] = 0x0001;
  if (profile_.sctSupported) {
    w[206] = static_cast<uint16_t>(0x0021 | (profile_.sctErrorRecoveryControl ? 0x0008 : 0) |
                                   (profile_.sctFeatureControl ? 0x0010 : 0));
  }
  w[209] = 0x4000;
  w[214] = profile_.nvCacheCapabilities;
  w[215] = static_cast<uint16_t>(profile_.nvCacheBlocks);
  w[216] = static_cast<uint16_t>(profile_.nvCacheBlocks >> 16);
  w[217] = profile_.rotationRate;
  const uint8_t revision = std::min<uint8_t>(profile_.sataRevisionBit, 10);
  w[222] = static_cast<uint16_t>(0x1000 | ((1u << (revision + 1)) - 1));
  if (profile_.integrityWord) {
    uint8_t sum = 0xA5;
    for (int i = 0; i < 255; ++i) sum = static_cast<uint8_t>(sum + (w[i] & 0xFF) + (w[i] >> 8));
    w[255] = static_cast<uint16_t>(0x00A5 | static_cast<uint8_t>(-sum) << 8);
  }
  return w;
}

AtaResponse AtaDrive::executeAta(const AtaRequest& request) {
  static const std::array<Handler, 256> table = [] {
    std::array<Handler, 256> t{};
    t[kCmdNop] = &AtaDrive::nop;
    t[kCmdReadSectors] = &AtaDrive::readSectors;
    t[kCmdReadSectorsExt] = &AtaDrive::readSectors;
    t[kCmdReadDma] = &AtaDrive::readSectors;
    t[kCmdReadDmaExt] = &AtaDrive::readSectors;
    t[kCmdReadLogExt] = &AtaDrive::readLogExt;
    t[kCmdWriteSectors] = &AtaDrive::writeSectors;
    t[kCmdWriteSectorsExt] = &AtaDrive::writeSectors;
    t[kCmdWriteDma] = &AtaDrive::writeSectors;
    t[kCmdWriteDmaExt] = &AtaDrive::writeSectors;
    t[kCmdWriteUncorrectableExt] = &AtaDrive::writeUncorrectable;
    t[kCmdWriteLogExt] = &AtaDrive::writeLogExt;
    t[kCmdSmart] = &AtaDrive::smart;
    t[kCmdFlushCache] = &AtaDrive::flushCache;
    t[kCmdFlushCacheExt] = &AtaDrive::flushCache;
    t[kCmdIdentifyDevice] = &AtaDrive::identifyDevice;
    return t;
  }();

  Context c{request, {}};
  if (recentCommands_.size() == 5) recentCommands_.pop_front();
  recentCommands_.emplace_back(request.in, static_cast<uint32_t>(clock_->nowMs()));
  const Handler handler = table[request.in.command];
  if (handler == nullptr) {
    abort(c);  // an unknown command is refused with ABRT
  } else {
    (this->*handler)(c);
  }
  return c.response;
}

void AtaDrive::complete(Context& c) {
  auto& out = c.response.out;
  const auto& in = c.request.in;
  out.status = kAtaStatusDrdy | kAtaStatusDsc;
  out.error = 0;
  out.count = in.count;
  out.lbaLow = in.lbaLow;
  out.lbaMid = in.lbaMid;
  out.lbaHigh = in.lbaHigh;
  out.device = in.device;
  if (c.request.extended) {
    out.countExp = in.countExp;
    out.lbaLowExp = in.lbaLowExp;
    out.lbaMidExp = in.lbaMidExp;
    out.lbaHighExp = in.lbaHighExp;
  }
}

void AtaDrive::abort(Context& c, uint8_t errorBits) {
  complete(c);
  c.response.out.status = kAtaStatusDrdy | kAtaStatusDsc | kAtaStatusErr;
  c.response.out.error = errorBits;
}

// Moves `length` bytes of a data-in command to the host. The host's buffer
// may be smaller, or absent when it asked for no data phase; then less (or
// nothing) arrives, and the drive does not notice.
void AtaDrive::sendData(Context& c, const uint8_t* data, uint32_t length) {
  if (c.request.direction != Direction::In || c.request.data == nullptr) return;
  const uint32_t n = std::min(length, c.request.length);
  std::memcpy(c.request.data, data, n);
  c.response.transferred = n;
}

void AtaDrive::nop(Context& c) { abort(c); }  // NOP always ends with ABRT

void AtaDrive::flushCache(Context& c) { complete(c); }

void AtaDrive::identifyDevice(Context& c) {
  const auto words = identifyWords();
  uint8_t block[512];
  for (int i = 0; i < 256; ++i) {
    block[2 * i] = static_cast<uint8_t>(words[i]);
    block[2 * i + 1] = static_cast<uint8_t>(words[i] >> 8);
  }
  complete(c);
  sendData(c, block, sizeof block);
}

// READ SECTORS (0x20), READ DMA (0xC8): 28-bit LBA in LBA Low/Mid/High and
// Device 3:0, count in Sector Count (0 means 256).
// READ SECTORS EXT (0x24), READ DMA EXT (0x25): 48-bit LBA across the
// current and previous LBA registers, 16-bit count (0 means 65536).
// Errors: an address beyond the last sector gives IDNF; an unreadable
// sector gives UNC with the LBA registers holding that sector, after the
// sectors before it have been transferred.
void AtaDrive::readSectors(Context& c) {
  const AtaAddress a = decodeAddress(c.request);
  const uint64_t limit = a.ext ? media_->sectorCount() : std::min(media_->sectorCount(), kMax28BitSectors + 1);
  if ((a.ext && !profile_.lba48) || a.lba > limit || a.count > limit - a.lba) {
    abort(c, a.ext && !profile_.lba48 ? kAtaErrorAbrt : kAtaErrorIdnf);
    return;
  }
  const bool toHost = c.request.direction == Direction::In && c.request.data != nullptr;
  uint64_t failed = 0;
  uint64_t moved = 0;
  const MediaResult r = media_->readToHost(a.lba, a.count, toHost ? c.request.data : nullptr,
                                           toHost ? c.request.length : 0, &failed, &moved);
  c.response.transferred = static_cast<uint32_t>(moved);
  if (r == MediaResult::Ok) {
    complete(c);
    return;
  }
  abort(c, kAtaErrorUnc);
  encodeAddress(failed, a.ext, c.response.out);
  const auto kind = media_->unreadableSectors().find(failed);
  if (kind == media_->unreadableSectors().end() || kind->second != UnreadableKind::Flagged) {
    recordError(c.request.in, kAtaErrorUnc, c.response.out.status, failed, static_cast<uint16_t>(a.count));
  }
}

// WRITE SECTORS (0x30) / WRITE SECTORS EXT (0x34) and their DMA forms:
// addressed as the reads. A written sector becomes readable again.
void AtaDrive::writeSectors(Context& c) {
  const AtaAddress a = decodeAddress(c.request);
  const uint64_t limit = a.ext ? media_->sectorCount() : std::min(media_->sectorCount(), kMax28BitSectors + 1);
  if ((a.ext && !profile_.lba48) || a.lba > limit || a.count > limit - a.lba) {
    abort(c, a.ext && !profile_.lba48 ? kAtaErrorAbrt : kAtaErrorIdnf);
    return;
  }
  const uint64_t want = a.count * media_->sectorSize();
  if (c.request.direction != Direction::Out || c.request.data == nullptr || c.request.length < want) {
    // The host did not supply the sectors the command announced: the data
    // phase breaks off, and nothing is written.
    abort(c);
    return;
  }
  media_->write(a.lba, a.count, c.request.data);
  c.response.transferred = static_cast<uint32_t>(want);
  complete(c);
}

// WRITE UNCORRECTABLE EXT (0x45). Feature 0x55 makes pseudo-uncorrectable
// sectors (reads fail and are logged), 0xAA flagged ones (reads fail
// silently); 0x5A and 0xA5 are their vendor twins. Other features: ABRT.
void AtaDrive::writeUncorrectable(Context& c) {
  const uint8_t feature = c.request.in.feature;
  UnreadableKind kind;
  if (feature == 0x55 || feature == 0x5A) {
    kind = UnreadableKind::Pseudo;
  } else if (feature == 0xAA || feature == 0xA5) {
    kind = UnreadableKind::Flagged;
  } else {
    abort(c);
    return;
  }
  if (!profile_.writeUncorrectableSupported) {
    abort(c);
    return;
  }
  const AtaAddress a = decodeAddress(c.request);
  if (a.lba > media_->sectorCount() || a.count > media_->sectorCount() - a.lba) {
    abort(c, kAtaErrorIdnf);
    return;
  }
  for (uint64_t i = 0; i < a.count; ++i) media_->markUnreadable(a.lba + i, kind);
  complete(c);
}

AtaAddress decodeAddress(const AtaRequest& request) {
  const AtaRegisters& r = request.in;
  AtaAddress a;
  a.ext = isExtCommand(r.command);
  if (a.ext) {
    const bool hob = request.extended;
    a.lba = uint64_t{r.lbaLow} | uint64_t{r.lbaMid} << 8 | uint64_t{r.lbaHigh} << 16 |
            (hob ? uint64_t{r.lbaLowExp} << 24 | uint64_t{r.lbaMidExp} << 32 | uint64_t{r.lbaHighExp} << 40 : 0);
    a.count = uint64_t{r.count} | (hob ? uint64_t{r.countExp} << 8 : 0);
    if (a.count == 0) a.count = 65536;
  } else {
    a.lba = uint64_t{r.lbaLow} | uint64_t{r.lbaMid} << 8 | uint64_t{r.lbaHigh} << 16 | uint64_t{r.device & 0x0Fu} << 24;
    a.count = r.count == 0 ? 256 : r.count;
  }
  return a;
}

void encodeAddress(uint64_t lba, bool ext, AtaResultRegisters& out) {
  out.lbaLow = static_cast<uint8_t>(lba);
  out.lbaMid = static_cast<uint8_t>(lba >> 8);
  out.lbaHigh = static_cast<uint8_t>(lba >> 16);
  if (ext) {
    out.lbaLowExp = static_cast<uint8_t>(lba >> 24);
    out.lbaMidExp = static_cast<uint8_t>(lba >> 32);
    out.lbaHighExp = static_cast<uint8_t>(lba >> 40);
  } else {
    out.device = static_cast<uint8_t>((out.device & 0xF0) | ((lba >> 24) & 0x0F));
  }
}

bool isExtCommand(uint8_t command) {
  switch (command) {
    case 0x24: case 0x25: case 0x29: case 0x2F: case 0x34: case 0x35: case 0x39: case 0x3F: case 0x42: case 0x45:
      return true;
    default:
      return false;
  }
}

}  // namespace sim
