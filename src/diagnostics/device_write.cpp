// The device write test: the volumes that have room, their temporary files,
// the scattered chunks, and the write, read-back and comparison of each.
#include "diagnostics/device_write.h"

#include <algorithm>
#include <cstring>
#include <memory>
#include <new>
#include <string>

#include "diagnostics/device_read.h"
#include "diagnostics/volume_privilege.h"
#include "module/null_objects.h"
#include "system/number_handler.h"
#include "system/string_handler.h"

namespace {

constexpr char kTemporaryFileName[] = "/quenby_diags_tmp_file";
constexpr char kInputTitle[] = "DEVICE_WRITE_TEST";
constexpr char kInputVolumeSpaceAllocation[] = "VOLUME_SPACE_ALLOCATION_ALERT";
constexpr char kKeyNoValidVolume[] = "NO_VALID_VOLUME";
constexpr char kKeyVolumeAccessError[] = "VOLUME_ACCESS_ERROR";
constexpr char kKeyRanOutOfSpace[] = "VOLUME_RAN_OUT_OF_SPACE";
constexpr char kKeyWriteFailed[] = "WRITE_OPERATION_FAILED";
constexpr char kKeyReadFailed[] = "READ_OPERATION_FAILED";
constexpr char kKeyPatternFailed[] = "PATTERN_VERIFICATION_FAILED";
constexpr char kNtfs[] = "ntfs";
// The platform's code for a full disk, which the filesystem hands on.
constexpr uint32_t kDiskFull = 112;
// SEM_FAILCRITICALERRORS | SEM_NOOPENFILEERRORBOX: no dialog for a drive that
// doesn't answer. Not undone afterwards.
constexpr UINT kSilentErrorMode = 0x8001;
constexpr DWORD kFileSystemNameChars = MAX_PATH + 1;

// A zeroed buffer whose start is aligned to `alignment`, as unbuffered file
// transfers need. Like _aligned_malloc it has no data when the alignment is
// not a power of two or the memory isn't there.
class AlignedBuffer {
 public:
  AlignedBuffer(uint64_t bytes, uint64_t alignment) {
    if (alignment == 0 || (alignment & (alignment - 1)) != 0) return;
    if (bytes > SIZE_MAX - alignment) return;
    storage_.reset(new (std::nothrow) uint8_t[static_cast<size_t>(bytes + alignment)]());
    if (!storage_) return;
    const uintptr_t at = reinterpret_cast<uintptr_t>(storage_.get());
    data_ = storage_.get() + (alignment - at % alignment) % alignment;
  }
  uint8_t* data() const { return data_; }

 private:
  std::unique_ptr<uint8_t[]> storage_;
  uint8_t* data_ = nullptr;
};

// Room on a volume beyond what its first clusters hold; 0 rather than a
// wrapped difference when the record's offset is past its free space.
uint64_t roomOf(const PartitionRecord& record) {
  return record.freeBytes > record.clusterOffset ? record.freeBytes - record.clusterOffset : 0;
}

}  // namespace

StorageDeviceWriteTest::StorageDeviceWriteTest(const ItemId& itemId)
    : StorageTest(itemId), filesystem(&getFilesystem()) {}

StorageDeviceWriteTest::~StorageDeviceWriteTest() = default;

bool StorageDeviceWriteTest::isSupported(SystemComponent* candidate) {
  // A component of another kind arrives as null, which checkSupported refuses.
  return checkSupported(dynamic_cast<StorageComponent*>(candidate), &nullTestListener(), &nullMessageLog()) ==
         SUCCESS;
}

uint32_t StorageDeviceWriteTest::checkSupported(StorageComponent* candidate, TestListener*, MessageLog*) {
  return checkFlashDevice(candidate);
}

uint32_t StorageDeviceWriteTest::prepare(StorageComponent*, TestListener*, MessageLog*) { return SUCCESS; }

uint32_t StorageDeviceWriteTest::run(TestRunContext* runContext) {
  // Like the read test, this run doesn't clear abortAnnounced at its head.
  const uint32_t bound = bindContext(runContext);
  if (bound != SUCCESS) return bound;
  listener->onProgress(0, "");
  if (checkAbortAnnounced(context, true)) return ABORTED;

  // Without the privilege the files are still made; only their sizing costs
  // the time of zero-filling.
  hasVolumePrivilege = true;
  if (!enableVolumePrivilege()) hasVolumePrivilege = false;
  uint32_t result = SUCCESS;
  {
    // Restored when the body ends, however it ends.
    const VolumePrivilegeRestore restore(hasVolumePrivilege);
    result = testBody();
  }

  // An abort has the last word, with the event of its own check.
  if (checkAbortAnnounced(context, true)) return ABORTED;
  listener->onProgress(100, "");
  return result;
}

uint32_t StorageDeviceWriteTest::testBody() {
  progress = 0.0;
  const uint32_t supported = checkSupported(component, listener, log);
  if (supported != SUCCESS) return supported;
  if (checkAbortAnnounced(context, false)) return ABORTED;

  // Asked once per component and process, and never of a listener that
  // can't answer. The answer is kept for the host; the test goes on whatever
  // it is.
  if (component->getHasVolumeSpaceAllocation() == 0 && listener->isInteractive()) {
    InputRequest request(kInputTitle, kInputVolumeSpaceAllocation, 1, 0);
    listener->requestInput(request);
    component->setVolumeSpaceAllocation(request.answer);
  }

  std::vector<PartitionRecord> usable;
  uint32_t result = findVolumes(&usable);
  if (result != SUCCESS) return result;
  // Files made for earlier volumes are closed too when a later one fails:
  // the run lets go of them then, and an open one would keep its room on the
  // volume until the process ends.
  OpenFiles open(filesystem);
  result = createFiles(usable, &open.list());
  if (result != SUCCESS) return result;

  for (const TestFile& file : open.list()) {
    if (checkAbortAnnounced(context, false)) {
      result = ABORTED;
      break;
    }
    // A volume whose share is below one cluster has a chunk of 0 bytes and
    // nothing to write; it is passed over rather than divided by.
    if (file.chunkSize == 0) continue;
    result = writeAndVerify(file, pickOffsets(file));
    if (result != SUCCESS) break;
  }
  open.closeAll();  // deletes them
  listener->onProgress(100, "");
  return result;
}

void StorageDeviceWriteTest::OpenFiles::closeAll() {
  for (const TestFile& file : files_) filesystem_->close(file.handle);
  files_.clear();
}

uint32_t StorageDeviceWriteTest::findVolumes(std::vector<PartitionRecord>* usable) {
  const DiskPartitions* partitions = component->getPartitions();
  if (partitions == nullptr) return NOT_APPLICABLE;
  const std::vector<PartitionRecord> records = partitions->records;
  for (const PartitionRecord& record : records) {
    if (record.mountPoints.empty() || roomOf(record) <= kVolumeMargin) continue;
    // Offsets and buffers are aligned to the cluster: a volume whose cluster
    // is unknown can't be written this way.
    if (record.clusterSize == 0) continue;
    SetErrorMode(kSilentErrorMode);
    char fileSystemName[kFileSystemNameChars] = {};
    if (!GetVolumeInformationA(record.mountPoints.front().c_str(), nullptr, 0, nullptr, nullptr, nullptr,
                               fileSystemName, kFileSystemNameChars)) {
      continue;
    }
    fileSystemName[kFileSystemNameChars - 1] = 0;
    std::string name(fileSystemName);
    getStringHandler().toLowerCase(name);
    if (name == kNtfs) usable->push_back(record);
  }
  if (!usable->empty()) return SUCCESS;
  listener->onProgress(100, kKeyNoValidVolume);
  log->log(kKeyNoValidVolume, LevelInfo, nullptr);
  return NOT_APPLICABLE;
}

uint32_t StorageDeviceWriteTest::createFiles(const std::vector<PartitionRecord>& usable, std::vector<TestFile>* files) {
  totalSpace = 0;
  for (const PartitionRecord& record : usable) totalSpace += roomOf(record) - kVolumeMargin;
  testSpace = std::min(totalSpace, kMostTestBytes);

  for (const PartitionRecord& record : usable) {
    TestFile file;
    file.volume = record;
    const uint64_t clusterSize = record.clusterSize;
    const uint64_t available =
        static_cast<uint64_t>(static_cast<double>(roomOf(record) - kVolumeMargin));
    file.fileSize = available - available % clusterSize;
    // The volume's share of the test, in proportion to its room.
    file.testBytes = static_cast<uint64_t>(static_cast<double>(testSpace) * static_cast<double>(file.fileSize) /
                                           static_cast<double>(totalSpace));
    file.chunkSize = kMostChunkClusters * clusterSize;
    if (file.testBytes < file.chunkSize) file.chunkSize = file.testBytes - file.testBytes % clusterSize;

    const std::string path = record.mountPoints.front() + kTemporaryFileName;
    if (filesystem->create(path, &file.handle, true) != 0) {
      // The file may be open although its removal at the next start could
      // not be registered; the run does not keep it, so it is closed here
      // (which deletes it).
      if (file.handle != nullptr && file.handle != INVALID_HANDLE_VALUE) filesystem->close(file.handle);
      listener->onProgress(100, kKeyVolumeAccessError);
      log->log(kKeyVolumeAccessError, LevelWarning, nullptr);
      return WARNING;
    }
    if (filesystem->setSize(file.handle, file.fileSize) != 0) {
      filesystem->close(file.handle);
      listener->onProgress(100, kKeyVolumeAccessError);
      log->log(kKeyVolumeAccessError, LevelWarning, nullptr);
      return WARNING;
    }
    // The clusters need no zero-filling then; whether it worked doesn't
    // matter to the test.
    if (hasVolumePrivilege) SetFileValidData(file.handle, static_cast<LONGLONG>(file.fileSize));
    files->push_back(file);
  }
  return SUCCESS;
}

std::vector<uint64_t> StorageDeviceWriteTest::pickOffsets(const TestFile& file) {
  std::vector<uint64_t> offsets;
  const uint64_t clusterSize = file.volume.clusterSize;
  if (file.chunkSize == 0 || clusterSize == 0) return offsets;
  const uint64_t chunks = file.testBytes / file.chunkSize;
  if (chunks == 0) return offsets;
  // The file is cut into equal slots, one chunk in each at a random cluster:
  // the writes spread evenly over the file and keep apart.
  uint64_t slot = file.fileSize / chunks;
  slot -= slot % clusterSize;
  const uint64_t choices = slot > file.chunkSize ? (slot - file.chunkSize) / clusterSize : 0;
  // The process-wide generator, not seeded here: it seeds itself from the
  // time at its first use.
  NumberHandler& numbers = getNumberHandler();
  for (uint64_t i = 0; i < chunks; ++i) offsets.push_back(clusterSize * numbers.randomBelow(choices + 1) + i * slot);
  return offsets;
}

void StorageDeviceWriteTest::advanceProgress(uint64_t chunkSize) {
  progress += static_cast<double>(chunkSize) / static_cast<double>(testSpace) * 0.5 * 100.0;
  listener->onProgress(static_cast<uint8_t>(std::min(progress, 100.0)), "");
}

uint32_t StorageDeviceWriteTest::writeAndVerify(const TestFile& file, const std::vector<uint64_t>& offsets) {
  const AlignedBuffer pattern(file.chunkSize, file.volume.clusterSize);
  const AlignedBuffer readBack(file.chunkSize, file.volume.clusterSize);
  if (pattern.data() == nullptr || readBack.data() == nullptr) return INVALID;
  std::memset(pattern.data(), kPattern, static_cast<size_t>(file.chunkSize));

  for (uint64_t offset : offsets) {
    if (checkAbortAnnounced(context, false)) return ABORTED;
    uint64_t done = 0;
    const uint32_t status =
        filesystem->write(file.handle, offset, file.chunkSize, &done, kTransferTimeoutSeconds, pattern.data());
    if (status == kDiskFull) {
      listener->onProgress(100, kKeyRanOutOfSpace);
      log->log(kKeyRanOutOfSpace, LevelWarning, nullptr);
      return WARNING;
    }
    if (status != 0) {
      listener->onProgress(100, kKeyWriteFailed);
      log->log(kKeyWriteFailed, LevelFailure, nullptr);
      return FAILED;
    }
    advanceProgress(file.chunkSize);
  }

  for (uint64_t offset : offsets) {
    std::memset(readBack.data(), 0, static_cast<size_t>(file.chunkSize));
    if (checkAbortAnnounced(context, false)) return ABORTED;
    uint64_t done = 0;
    if (filesystem->read(file.handle, offset, file.chunkSize, &done, kTransferTimeoutSeconds, readBack.data()) != 0) {
      listener->onProgress(100, kKeyReadFailed);
      log->log(kKeyReadFailed, LevelFailure, nullptr);
      return FAILED;
    }
    if (std::memcmp(pattern.data(), readBack.data(), static_cast<size_t>(file.chunkSize)) != 0) {
      listener->onProgress(100, kKeyPatternFailed);
      log->log(kKeyPatternFailed, LevelFailure, nullptr);
      return FAILED;
    }
    advanceProgress(file.chunkSize);
  }
  return SUCCESS;
}
