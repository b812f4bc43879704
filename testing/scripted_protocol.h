// A StorageProtocol whose answers a test sets call by call, and which records
// every call it receives. Tests of the layers above the protocol use it where
// the behaviour under test is the caller's own logic, not a device's.
#pragma once

#include <cstdint>
#include <deque>
#include <functional>
#include <map>
#include <string>
#include <vector>

#include "protocols/storage_protocol.h"

namespace mstest {

enum class Op {
  GetProperties,
  ReadSectors,
  GetTemperature,
  StartSelfTest,
  GetSelfTestProgress,
  GetSelfTestStatus,
  AbortSelfTest,
  GetSelfTestFailingLba,
  GetSmartStatus,
  EnableSmart,
  IsAccessible,
  WriteUncorrectable,
  WriteSector,
};

const char* opName(Op op);

// One scripted answer: the status returned and the value put in the
// operation's out argument (temperature, percent, status nibble, LBA, health
// flag; for IsAccessible, non-zero status means false).
struct Answer {
  uint32_t status = 0;
  uint64_t value = 0;
};

struct Call {
  Op op;
  uint64_t first = 0;   // lba, code, enable flag
  uint64_t second = 0;  // count, self-test count
  uint32_t timeoutSeconds = 0;
};

class ScriptedProtocol : public StorageProtocol {
 public:
  ScriptedProtocol();

  // Queues answers for an operation; once the queue is empty the default
  // answer stands (status 0, value 0 unless set).
  void script(Op op, uint32_t status, uint64_t value = 0);
  void setDefault(Op op, uint32_t status, uint64_t value = 0);
  // What getProperties reports and puts in the cache.
  void setProperties(const StorageProtocolProperties& properties);
  // Puts a record in the cache without any call, as discovery would have.
  void setCachedProperties(const StorageProtocolProperties& properties) { cache = properties; }
  // Called by readSectors after the scripted status is chosen, to fill data.
  std::function<void(uint64_t lba, uint16_t count, void* buffer)> fillRead;

  size_t count(Op op) const;
  std::vector<Call> callsOf(Op op) const;

  HANDLE getHandle() override { return handle; }
  uint32_t getProperties(StorageProtocolProperties* out) override;
  uint32_t readSectors(uint64_t lba, uint16_t count, uint32_t timeoutSeconds, void* buffer) override;
  uint32_t getTemperature(uint8_t* celsius) override;
  uint32_t startSelfTest(uint8_t code, uint8_t count) override;
  uint32_t getSelfTestProgress(uint8_t* percentDone) override;
  uint32_t getSelfTestStatus(uint8_t* status) override;
  uint32_t abortSelfTest() override;
  uint32_t getSelfTestFailingLba(uint64_t* lba) override;
  uint32_t getSmartStatus(uint8_t* healthy) override;
  uint32_t enableSmart(uint8_t enable) override;
  bool isAccessible() override;
  uint32_t writeUncorrectable(uint64_t lba) override;
  uint32_t writeSector(uint64_t lba, void* buffer) override;

  HANDLE handle = nullptr;
  std::vector<Call> calls;
  // Sectors written through writeSector, by LBA, as the last data written.
  std::map<uint64_t, std::vector<uint8_t>> written;

 private:
  Answer next(Op op);
  std::map<Op, std::deque<Answer>> queues_;
  std::map<Op, Answer> defaults_;
  StorageProtocolProperties reported_;
};

}  // namespace mstest
