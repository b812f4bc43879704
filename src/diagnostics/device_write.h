// The device write test (1.2.12) of flash devices, eMMC and NVMe only: writes
// a pattern into scattered chunks of a temporary file on each NTFS volume of
// the disk that has room, reads the chunks back and compares them. It never
// writes to the raw device, nor to anybody's files: the file is deleted when
// it is closed, and marked for removal at the next start in case of a crash.
#pragma once

#include <cstdint>
#include <vector>

#include "module/storage_test.h"
#include "scanner/disk_partitions.h"
#include "system/filesystem.h"

class StorageDeviceWriteTest : public StorageTest {
 public:
  // Free space left on each volume, and the least a volume must have to be
  // used at all (about 1.1 GiB).
  static constexpr uint64_t kVolumeMargin = 0x46666666;
  // The most the test exercises over all volumes together: 5 GiB.
  static constexpr uint64_t kMostTestBytes = 0x140000000;
  static constexpr uint64_t kMostChunkClusters = 256;
  static constexpr uint8_t kPattern = 0xAA;
  static constexpr uint32_t kTransferTimeoutSeconds = 30;

  // Takes the process-wide filesystem service.
  explicit StorageDeviceWriteTest(const ItemId& itemId);
  ~StorageDeviceWriteTest() override;

  // checkSupported through the null listener and log; the component may be
  // anything, checkSupported refuses what is no storage component.
  bool isSupported(SystemComponent* candidate) override;
  uint32_t run(TestRunContext* runContext) override;
  bool isOptionA() override { return false; }
  bool isOptionB() override { return false; }
  // The same decision as the device read test's: eMMC and NVMe only.
  uint32_t checkSupported(StorageComponent* candidate, TestListener* events, MessageLog* lines) override;
  // Nothing to prepare; run does not call it.
  uint32_t prepare(StorageComponent* candidate, TestListener* events, MessageLog* lines) override;

 protected:
  // One volume under test and its temporary file.
  struct TestFile {
    HANDLE handle = nullptr;
    uint64_t fileSize = 0;   // size given to the file
    uint64_t chunkSize = 0;  // bytes of one write and read
    uint64_t testBytes = 0;  // this volume's share of the test
    PartitionRecord volume;
  };

  // Holds the run's temporary files and closes them (which deletes them) on
  // every way out of the run, an exception from a host callback included.
  class OpenFiles {
   public:
    explicit OpenFiles(Filesystem* owner) : filesystem_(owner) {}
    ~OpenFiles() { closeAll(); }
    OpenFiles(const OpenFiles&) = delete;
    OpenFiles& operator=(const OpenFiles&) = delete;
    std::vector<TestFile>& list() { return files_; }
    // Closes every file, in order, and forgets them.
    void closeAll();

   private:
    Filesystem* filesystem_;
    std::vector<TestFile> files_;
  };

  // The question, the volumes, the files, then each file in turn.
  uint32_t testBody();
  // The NTFS volumes of the disk with more room than the margin, in the order
  // of the description; NO_VALID_VOLUME when there is none.
  uint32_t findVolumes(std::vector<PartitionRecord>* usable);
  // The temporary file of each volume, sized to the volume's room less the
  // margin; its share of the test and its chunk size. A file that is open
  // but can't be used (its size can't be set, or its removal at the next
  // start can't be registered) is closed here; the files of earlier volumes
  // stay in `files` for the caller to close.
  uint32_t createFiles(const std::vector<PartitionRecord>& usable, std::vector<TestFile>* files);
  // One chunk in each of `testBytes / chunkSize` equal slots of the file, at
  // a random cluster inside its slot.
  std::vector<uint64_t> pickOffsets(const TestFile& file);
  // Writes the pattern at every offset, then reads each chunk back and
  // compares it.
  uint32_t writeAndVerify(const TestFile& file, const std::vector<uint64_t>& offsets);
  // One step of the shared progress: a chunk's part of the test's bytes,
  // half for its write and half for its read.
  void advanceProgress(uint64_t chunkSize);

  Filesystem* filesystem;
  uint64_t totalSpace = 0;
  uint64_t testSpace = 0;
  double progress = 0.0;
  bool hasVolumePrivilege = false;
};
