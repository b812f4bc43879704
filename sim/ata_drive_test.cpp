// The ATA drive against the ATA/ACS layouts: IDENTIFY words, sector I/O and
// its errors. SMART, self tests and logs are in ata_smart_test.cpp.
#include "sim/ata_drive.h"

#include <gtest/gtest.h>

#include "sim/ata_test_util.h"

namespace sim {
namespace {

using testutil::lba48Request;
using testutil::readInto;
using testutil::word;

struct DriveRig {
  explicit DriveRig(AtaProfile profile = {}, uint64_t sectors = 1000000, uint32_t sectorSize = 512)
      : media(std::make_shared<Media>(sectorSize, sectors)),
        clock(std::make_shared<VirtualClock>()),
        drive(std::move(profile), media, clock) {}
  std::vector<uint8_t> identify() {
    std::vector<uint8_t> block;
    AtaRequest r;
    r.in.command = 0xEC;
    EXPECT_EQ(readInto(drive, r, block, 512).transferred, 512u);
    return block;
  }
  std::shared_ptr<Media> media;
  std::shared_ptr<VirtualClock> clock;
  AtaDrive drive;
};

TEST(AtaDrive, IdentifyStringsAreByteSwappedAndBlankPadded) {
  AtaProfile p;
  p.model = "WDC WD10EZEX-08WN4A0";
  p.serial = "WD-WCC6Y0AB1234";
  p.firmware = "01.01A01";
  DriveRig rig(p);
  const auto block = rig.identify();
  // Word 27 holds "WD": 'W' in the high byte, so byte 54 is 'D'.
  EXPECT_EQ(block[54], 'D');
  EXPECT_EQ(block[55], 'W');
  EXPECT_EQ(block[20], 'D');  // serial "WD-..." at word 10
  EXPECT_EQ(block[21], 'W');
  EXPECT_EQ(block[46], '1');  // firmware "01.01A01" at word 23
  EXPECT_EQ(block[47], '0');
  EXPECT_EQ(block[93], ' ');  // model padded to 40 characters
  EXPECT_EQ(block[92], ' ');
}

TEST(AtaDrive, IdentifyReportsCapacityIn28And48BitWords) {
  DriveRig rig({}, 0x1D1C0BEB0ULL);  // 4 TB
  const auto block = rig.identify();
  EXPECT_EQ(word(block, 60) | word(block, 61) << 16, 0x0FFFFFFF);
  const uint64_t lba48 = uint64_t{word(block, 100)} | uint64_t{word(block, 101)} << 16 |
                         uint64_t{word(block, 102)} << 32 | uint64_t{word(block, 103)} << 48;
  EXPECT_EQ(lba48, 0x1D1C0BEB0ULL);
  EXPECT_TRUE(word(block, 83) & 0x0400);
  EXPECT_TRUE(word(block, 86) & 0x0400);
}

TEST(AtaDrive, IdentifyWithout48BitFeatureSetLeavesWords100To103Zero) {
  AtaProfile p;
  p.lba48 = false;
  DriveRig rig(p, 5000000);
  const auto block = rig.identify();
  EXPECT_EQ(word(block, 60) | word(block, 61) << 16, 5000000);
  EXPECT_EQ(word(block, 100) | word(block, 101), 0);
  EXPECT_FALSE(word(block, 83) & 0x0400);
}

TEST(AtaDrive, IdentifyReportsLogicalAndPhysicalSectorSizes) {
  AtaProfile p;
  p.physicalExponent = 3;
  DriveRig e512(p);
  auto block = e512.identify();
  EXPECT_EQ(word(block, 106), 0x6003);  // valid, 8 logical per physical
  DriveRig native4k({}, 1000, 4096);
  block = native4k.identify();
  EXPECT_EQ(word(block, 106), 0x5000);  // logical longer than 256 words
  EXPECT_EQ(word(block, 117) | word(block, 118) << 16, 2048);  // in words
}

TEST(AtaDrive, IdentifyReportsRotationRateAndSolidState) {
  AtaProfile p;
  p.rotationRate = 1;
  DriveRig ssd(p);
  EXPECT_EQ(word(ssd.identify(), 217), 1);
  p.rotationRate = 5400;
  DriveRig hdd(p);
  EXPECT_EQ(word(hdd.identify(), 217), 5400);
}

TEST(AtaDrive, IdentifyReportsCacheVersionAndFeatureWords) {
  AtaProfile p;
  p.bufferSize = 0x4000;
  p.nvCacheCapabilities = 0x0011;
  p.nvCacheBlocks = 0x00012345;
  p.majorVersion = 0x03F8;
  p.minorVersion = 0x011B;
  p.securityEnabled = true;
  p.securityLocked = true;
  DriveRig rig(p);
  const auto block = rig.identify();
  EXPECT_EQ(word(block, 21), 0x4000);
  EXPECT_EQ(word(block, 214), 0x0011);
  EXPECT_EQ(word(block, 215), 0x2345);
  EXPECT_EQ(word(block, 216), 0x0001);
  EXPECT_EQ(word(block, 80), 0x03F8);
  EXPECT_EQ(word(block, 81), 0x011B);
  EXPECT_EQ(word(block, 82) & 0x0003, 0x0003);  // SMART, security
  EXPECT_EQ(word(block, 84) & 0x0020, 0x0020);  // GPL
  EXPECT_EQ(word(block, 85) & 0x0003, 0x0003);  // SMART on, security on
  EXPECT_EQ(word(block, 128) & 0x0007, 0x0007);  // supported, enabled, locked
  EXPECT_EQ(word(block, 119) & 0x0004, 0x0004);  // WRITE UNCORRECTABLE EXT
}

TEST(AtaDrive, IdentifyIntegrityWordMakesTheBlockSumToZero) {
  DriveRig rig;
  const auto block = rig.identify();
  EXPECT_EQ(block[510], 0xA5);
  EXPECT_EQ(testutil::byteSum(block.data(), 512), 0);
}

TEST(AtaDrive, IdentifyWithoutIntegrityWordLeavesWord255Zero) {
  AtaProfile p;
  p.integrityWord = false;
  DriveRig rig(p);
  EXPECT_EQ(word(rig.identify(), 255), 0);
}

TEST(AtaDrive, ReadSectorsExtReturnsMediaData) {
  DriveRig rig;
  std::vector<uint8_t> data(1024, 0x5A);
  rig.media->write(0x12345, 2, data.data());
  std::vector<uint8_t> out;
  const auto r = readInto(rig.drive, lba48Request(0x24, 0x12345, 2), out, 1024);
  EXPECT_EQ(r.completion, Completion::Done);
  EXPECT_EQ(r.out.status, 0x50);
  EXPECT_EQ(r.transferred, 1024u);
  EXPECT_EQ(out, data);
}

TEST(AtaDrive, ReadSectorsTakesBits24To27FromTheDeviceRegister) {
  DriveRig rig({}, 0x2000000);
  std::vector<uint8_t> data(512, 0x33);
  rig.media->write(0x1000005, 1, data.data());
  AtaRequest r;
  r.in.command = 0x20;
  r.in.count = 1;
  r.in.lbaLow = 5;
  r.in.device = 0x41;
  std::vector<uint8_t> out;
  EXPECT_EQ(readInto(rig.drive, r, out, 512).out.status, 0x50);
  EXPECT_EQ(out[0], 0x33);
}

TEST(AtaDrive, ReadSectorsReportsUncWithTheFailingLba) {
  DriveRig rig;
  rig.media->markUnreadable(0x10002);
  std::vector<uint8_t> out;
  const auto r = readInto(rig.drive, lba48Request(0x24, 0x10000, 8), out, 8 * 512);
  EXPECT_EQ(r.out.status & kAtaStatusErr, kAtaStatusErr);
  EXPECT_EQ(r.out.error, kAtaErrorUnc);
  EXPECT_EQ(r.out.lbaLow, 0x02);
  EXPECT_EQ(r.out.lbaMid, 0x00);
  EXPECT_EQ(r.out.lbaHigh, 0x01);
  EXPECT_EQ(r.transferred, 2u * 512);  // the sectors before the bad one
}

TEST(AtaDrive, ReadBeyondTheLastSectorReportsIdnf) {
  DriveRig rig({}, 1000);
  std::vector<uint8_t> out;
  const auto r = readInto(rig.drive, lba48Request(0x24, 999, 2), out, 1024);
  EXPECT_EQ(r.out.status & kAtaStatusErr, kAtaStatusErr);
  EXPECT_EQ(r.out.error, kAtaErrorIdnf);
}

TEST(AtaDrive, ExtCommandOnADriveWithout48BitSupportIsAborted) {
  AtaProfile p;
  p.lba48 = false;
  DriveRig rig(p);
  std::vector<uint8_t> out;
  EXPECT_EQ(readInto(rig.drive, lba48Request(0x24, 1, 1), out, 512).out.error, kAtaErrorAbrt);
}

TEST(AtaDrive, ShortHostBufferGetsOnlyWhatFits) {
  DriveRig rig;
  std::vector<uint8_t> out;
  const auto r = readInto(rig.drive, lba48Request(0x24, 0, 4), out, 700);
  EXPECT_EQ(r.transferred, 700u);
  EXPECT_EQ(out.size(), 700u);
}

TEST(AtaDrive, WriteSectorsStoresDataAndMakesThePendingSectorReadable) {
  DriveRig rig;
  rig.media->markUnreadable(50);
  std::vector<uint8_t> data(512, 0x99);
  AtaRequest w = lba48Request(0x34, 50, 1);
  w.direction = Direction::Out;
  w.data = data.data();
  w.length = 512;
  EXPECT_EQ(rig.drive.executeAta(w).out.status, 0x50);
  EXPECT_FALSE(rig.media->isUnreadable(50));
  std::vector<uint8_t> out;
  EXPECT_EQ(readInto(rig.drive, lba48Request(0x24, 50, 1), out, 512).out.status, 0x50);
  EXPECT_EQ(out[0], 0x99);
}

TEST(AtaDrive, WriteWithoutDataIsAbortedAndWritesNothing) {
  DriveRig rig;
  AtaRequest w = lba48Request(0x34, 50, 1);
  EXPECT_EQ(rig.drive.executeAta(w).out.error, kAtaErrorAbrt);
  EXPECT_EQ(rig.media->storedSectors(), 0u);
}

TEST(AtaDrive, WriteUncorrectablePseudoAndFlaggedMakeSectorsUnreadable) {
  DriveRig rig;
  AtaRequest pseudo = lba48Request(0x45, 100, 2);
  pseudo.in.feature = 0x55;
  EXPECT_EQ(rig.drive.executeAta(pseudo).out.status, 0x50);
  AtaRequest flagged = lba48Request(0x45, 200, 1);
  flagged.in.feature = 0xAA;
  EXPECT_EQ(rig.drive.executeAta(flagged).out.status, 0x50);
  EXPECT_EQ(rig.media->unreadableSectors().at(101), UnreadableKind::Pseudo);
  EXPECT_EQ(rig.media->unreadableSectors().at(200), UnreadableKind::Flagged);
  AtaRequest bad = lba48Request(0x45, 300, 1);
  bad.in.feature = 0x11;
  EXPECT_EQ(rig.drive.executeAta(bad).out.error, kAtaErrorAbrt);
  EXPECT_FALSE(rig.media->isUnreadable(300));
}

TEST(AtaDrive, UnknownCommandIsAbortedWithAbrt) {
  DriveRig rig;
  AtaRequest r;
  r.in.command = 0x99;
  const auto resp = rig.drive.executeAta(r);
  EXPECT_EQ(resp.out.status, 0x51);
  EXPECT_EQ(resp.out.error, kAtaErrorAbrt);
}

TEST(AtaDrive, IdentifyCarriesTheWorldWideNameFormFactorSataRevisionAndSct) {
  AtaProfile p;
  p.wwn = 0x50014EE2B5C3A1D7ULL;
  p.formFactor = 2;
  p.sataRevisionBit = 5;  // SATA 3.0
  p.sataGeneration = 2;
  p.sctErrorRecoveryControl = false;
  DriveRig rig(p);
  const auto id = rig.identify();
  EXPECT_EQ(word(id, 84) & 0x0100, 0x0100) << "WWN supported";
  EXPECT_EQ(word(id, 87) & 0x0100, 0x0100) << "WWN in use";
  EXPECT_EQ(word(id, 108), 0x5001);
  EXPECT_EQ(word(id, 109), 0x4EE2);
  EXPECT_EQ(word(id, 110), 0xB5C3);
  EXPECT_EQ(word(id, 111), 0xA1D7);
  EXPECT_EQ(word(id, 168), 2) << "3.5 inch";
  EXPECT_EQ(word(id, 222), 0x103F) << "serial transport, ATA8-AST to SATA 3.0";
  EXPECT_EQ(word(id, 76) & 0x000E, 0x0006) << "1.5 and 3.0 Gb/s";
  EXPECT_EQ(word(id, 77) & 0x000E, 0x0004) << "negotiated at 3.0 Gb/s";
  EXPECT_EQ(word(id, 206), 0x0031) << "SCT status, feature control, data tables; no error recovery control";
}

TEST(AtaDrive, IdentifyWithoutWwnLeavesItsWordsAndBitsClear) {
  DriveRig rig;
  const auto id = rig.identify();
  EXPECT_EQ(word(id, 84) & 0x0100, 0);
  EXPECT_EQ(word(id, 108), 0);
}

}  // namespace
}  // namespace sim
