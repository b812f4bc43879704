// The journal's text form: what a process outside the simulated PC reads.
#include "sim/journal.h"

#include <gtest/gtest.h>

#include <fstream>
#include <sstream>

namespace sim {
namespace {

TEST(Journal, TextListsWritesAndCommandsOldestFirst) {
  Journal journal;
  const uint32_t disk = journal.deviceId("hdd0");
  const uint32_t port = journal.deviceId("hdd0.scsi");
  AtaRegisters in;
  in.command = 0xB0;
  in.feature = 0xD4;
  AtaResponse answer;
  answer.out.status = 0x50;
  journal.recordAta(10, disk, in, answer);
  const uint8_t cdb[6] = {0x1D, 0x80, 0, 0, 0, 0};
  ScsiResponse refused;
  refused.completion = Completion::NoDevice;
  journal.recordScsi(11, port, cdb, sizeof cdb, refused);
  journal.recordWrite(12, disk, 193536017, 1);
  EXPECT_EQ(journal.text(),
            "# simulated PC journal: 3 entries, 0 dropped\n"
            "10 hdd0 ata d40000000000b00000000000 done 50 00\n"
            "11 hdd0.scsi scsi 1d8000000000 no-device 00 00\n"
            "12 hdd0 write 193536017 1\n");
}

TEST(Journal, WriteTextReplacesTheFileAndNamesOneItCannotWrite) {
  Journal journal;
  journal.recordWrite(5, journal.deviceId("emmc0"), 2048, 8);
  const std::string path = ::testing::TempDir() + "/sim_journal_text.txt";
  { std::ofstream old(path); old << "an older, longer journal that must not survive\n"; }
  std::string error;
  ASSERT_TRUE(journal.writeText(path, &error)) << error;
  std::ifstream file(path);
  std::stringstream text;
  text << file.rdbuf();
  EXPECT_EQ(text.str(), journal.text());
  EXPECT_FALSE(journal.writeText("/nonexistent/dir/journal.txt", &error));
  EXPECT_EQ(error, "cannot write the journal to '/nonexistent/dir/journal.txt'");
}

}  // namespace
}  // namespace sim
