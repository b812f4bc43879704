// The device read test: parameters, the plan of ranges, and the chunked read
// of each range through the handle.
#include "diagnostics/device_read.h"

#include <algorithm>
#include <memory>
#include <new>
#include <string>

#include "module/null_objects.h"
#include "module/read_helpers.h"
#include "resource/storage_parameters.h"
#include "system/number_handler.h"

namespace {

constexpr uint32_t kMinimumSectorSize = 512;
constexpr double kBytesPerGiB = 1073741824.0;
// Shares of the device when the sizes asked for don't fit on it, in single
// precision as they have always been (0x3E4CCCCD, 0x3F000000, 0x3E99999A).
constexpr float kInitialShare = 0.2f;
constexpr float kCentralShare = 0.5f;
constexpr float kFinalShare = 0.3f;

// "KEY: value", the form in which the plan is announced.
std::string keyAndValue(const char* key, uint64_t value) { return std::string(key) + ": " + std::to_string(value); }

}  // namespace

uint32_t checkFlashDevice(StorageComponent* candidate) {
  if (candidate == nullptr || candidate->getProtocol() == nullptr) return INVALID;
  const uint32_t bus = candidate->getBusKind();
  return bus == kBusEmmc || bus == kBusNvme ? SUCCESS : NOT_APPLICABLE;
}

StorageDeviceReadTest::~StorageDeviceReadTest() = default;

bool StorageDeviceReadTest::isSupported(SystemComponent* candidate) {
  // A component of another kind arrives as null, which checkSupported refuses.
  return checkSupported(dynamic_cast<StorageComponent*>(candidate), &nullTestListener(), &nullMessageLog()) ==
         SUCCESS;
}

uint32_t StorageDeviceReadTest::checkSupported(StorageComponent* candidate, TestListener*, MessageLog*) {
  return checkFlashDevice(candidate);
}

uint32_t StorageDeviceReadTest::prepare(StorageComponent*, TestListener*, MessageLog*) { return SUCCESS; }

bool StorageDeviceReadTest::setParameters(TestParameters parameters, std::vector<RejectedParameter>& rejected) {
  const auto section = parameters.find(kParameterSection);
  if (section == parameters.end() || section->second.empty()) return true;
  const std::map<std::string, std::string>& values = section->second;

  struct SizeKey {
    const char* key;
    uint64_t* field;
    uint8_t bit;
  };
  const SizeKey sizes[] = {{kParameterInitialSize, &initialSize, kGivenInitialSize},
                           {kParameterCentralSize, &centralSize, kGivenCentralSize},
                           {kParameterFinalSize, &finalSize, kGivenFinalSize}};
  for (const SizeKey& size : sizes) {
    const auto value = values.find(size.key);
    if (value == values.end()) continue;
    bool ok = false;
    const uint32_t number = stringToUInt(value->second, &ok);
    if (!ok) {
      rejected.push_back({kParameterNotANumber, kParameterSection, size.key});
      return false;
    }
    *size.field = number;
    givenParameters |= size.bit;
  }

  const auto whole = values.find(kParameterWholeDiskRead);
  if (whole == values.end()) return true;
  bool ok = false;
  const uint32_t number = stringToUInt(whole->second, &ok);
  if (!ok) {
    rejected.push_back({kParameterNotANumber, kParameterSection, kParameterWholeDiskRead});
    return false;
  }
  if (number > 1) {
    rejected.push_back({kParameterOutOfRange, kParameterSection, kParameterWholeDiskRead});
    return false;
  }
  wholeDiskRead = number == 1;
  givenParameters |= kGivenWholeDiskRead;
  return true;
}

uint32_t StorageDeviceReadTest::run(TestRunContext* runContext) {
  // This test neither clears abortAnnounced nor checks for an abort before
  // its body: the first check comes at the first range.
  const uint32_t bound = bindContext(runContext);
  if (bound != SUCCESS) return bound;
  listener->onProgress(0, "");
  uint32_t result = checkSupported(component, listener, log);
  if (result == SUCCESS) result = readBody();
  listener->onProgress(100, "");
  return result;
}

uint32_t StorageDeviceReadTest::readBody() {
  listener->onProgress(0, "");
  StorageProtocolProperties properties;
  protocol->getCachedProperties(&properties);
  if (properties.logicalSectorSize < kMinimumSectorSize) return NOT_APPLICABLE;

  const ReadPlan plan = makePlan(properties);
  sectorsDone = 0;
  for (const ReadRange& range : plan.ranges) {
    if (checkAbortAnnounced(context, true)) return ABORTED;
    const uint32_t result = readRange(range, plan.totalSectors);
    if (result != SUCCESS) return result;
  }
  listener->onProgress(100, "");
  return SUCCESS;
}

StorageDeviceReadTest::ReadPlan StorageDeviceReadTest::makePlan(const StorageProtocolProperties& properties) {
  ReadPlan plan;
  if ((givenParameters & kGivenWholeDiskRead) != 0) {
    const std::string text = keyAndValue(kParameterWholeDiskRead, wholeDiskRead ? 1 : 0);
    listener->onProgress(0, text);
    log->log(text, LevelInfo, nullptr);
  }
  const uint64_t sectorCount = properties.sectorCount;
  if (wholeDiskRead) {
    plan.ranges.push_back({0, sectorCount - 1});
    plan.totalSectors = sectorCount;
    return plan;
  }

  const double sectorsPerGiB = kBytesPerGiB / properties.logicalSectorSize;
  uint64_t initial = static_cast<uint64_t>(static_cast<double>(initialSize) * sectorsPerGiB);
  uint64_t central = static_cast<uint64_t>(static_cast<double>(centralSize) * sectorsPerGiB);
  uint64_t final = static_cast<uint64_t>(static_cast<double>(finalSize) * sectorsPerGiB);
  if (initial + central + final > sectorCount) {
    // The device is too small for the sizes: all three become shares of it.
    const float sectors = static_cast<float>(sectorCount);
    initial = static_cast<uint64_t>(sectors * kInitialShare);
    central = static_cast<uint64_t>(sectors * kCentralShare);
    final = static_cast<uint64_t>(sectors * kFinalShare);
  }
  plan.totalSectors = initial + central + final;

  if (initial != 0) plan.ranges.push_back({0, initial - 1});
  if (central != 0) {
    // The middle of what lies between the start and the end ranges, which is
    // not the middle of the device unless the two are equal.
    const uint64_t middle = (sectorCount - final + initial) / 2;
    plan.ranges.push_back({middle - central / 2, middle + central / 2});
  }
  if (final != 0) plan.ranges.push_back({sectorCount - final, sectorCount - 1});

  // Only the sizes given as parameters are announced, and in GiB as they are
  // in use: after the fall-back to shares that is not what was asked for.
  const struct {
    uint8_t bit;
    const char* key;
    uint64_t sectors;
  } announced[] = {{kGivenInitialSize, kParameterInitialSize, initial},
                   {kGivenCentralSize, kParameterCentralSize, central},
                   {kGivenFinalSize, kParameterFinalSize, final}};
  for (const auto& size : announced) {
    if ((givenParameters & size.bit) == 0) continue;
    const std::string text =
        keyAndValue(size.key, static_cast<uint64_t>(static_cast<double>(size.sectors) / sectorsPerGiB));
    listener->onProgress(0, text);
    log->log(text, LevelInfo, nullptr);
  }
  return plan;
}

uint32_t StorageDeviceReadTest::readRange(const ReadRange& range, uint64_t totalSectors) {
  StorageProtocolProperties properties;
  protocol->getCachedProperties(&properties);
  if (range.first > range.last || range.first >= properties.sectorCount || range.last >= properties.sectorCount) {
    return INVALID;
  }
  const size_t bufferBytes = static_cast<size_t>(properties.logicalSectorSize) * kChunkSectors;
  std::unique_ptr<uint8_t[]> buffer(new (std::nothrow) uint8_t[bufferBytes]);
  if (!buffer) return INVALID;

  // The count of a chunk reaches up to `last`, not past it, so the range's
  // last sector is never read and sectorsDone ends that far short of the
  // total. readThroughHandle reckons the chunk's bytes in 16 bits: a full
  // chunk of 512- or 4096-byte sectors asks for 0 bytes, and only a shorter
  // last chunk transfers data. Both are how this test has always read, and
  // stay so that a device's result and timing don't change.
  uint64_t position = range.first;
  do {
    if (checkAbortAnnounced(context, true)) return ABORTED;
    const uint64_t count = std::min(kChunkSectors, range.last - position);
    uint64_t firstBadLba = 0;  // not reported: one failed chunk ends the test
    if (readThroughHandle(protocol, position, static_cast<uint32_t>(count), &firstBadLba, kChunkTimeoutSeconds,
                          buffer.get()) != 0) {
      return FAILED;
    }
    sectorsDone += count;
    const double percent = static_cast<double>(sectorsDone) / static_cast<double>(totalSectors) * 100.0;
    listener->onProgress(static_cast<uint8_t>(percent), "");
    position += kChunkSectors;
  } while (position < range.last);
  return SUCCESS;
}
