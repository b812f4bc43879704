// A Filesystem whose handle reads and writes a test scripts, recording each
// request; the directory operations are not scripted and fail. Installing it
// puts it behind getFilesystem() for the life of the object.
#pragma once

#include <cstdint>
#include <deque>
#include <vector>

#include "system/filesystem.h"

namespace mstest {

struct TransferAnswer {
  uint32_t status = 0;
  uint64_t done = 0;      // what *done receives
  bool writeDone = true;  // false leaves *done as the caller set it (a time-out)
};

struct TransferRequest {
  HANDLE handle;
  uint64_t offset;
  uint64_t length;
  uint32_t timeoutSeconds;
};

class ScriptedFilesystem : public Filesystem {
 public:
  ScriptedFilesystem() { setFilesystemForTesting(this); }
  ~ScriptedFilesystem() override { setFilesystemForTesting(nullptr); }

  // Queued answers; when empty a read or write succeeds with all bytes.
  std::deque<TransferAnswer> readAnswers;
  std::deque<TransferAnswer> writeAnswers;
  std::vector<TransferRequest> reads;
  std::vector<TransferRequest> writes;

  char getSystemDrive() override { return 'C'; }
  const char* getCurrentDirectory() override { return nullptr; }
  const char* getExecutablePath() override { return nullptr; }
  const char* getExecutableDirectory() override { return nullptr; }
  uint32_t listFiles(std::string, std::vector<std::string>*) override { return 1; }
  uint32_t createDirectories(std::string, std::string*) override { return 1; }
  uint32_t isReservedName(std::string) override { return 0; }
  uint32_t removeTree(const std::string&) override { return 1; }
  uint32_t create(std::string, HANDLE*, bool) override { return 1; }
  uint32_t close(HANDLE) override { return 1; }
  uint32_t setSize(HANDLE, uint64_t) override { return 1; }
  uint32_t write(HANDLE handle, uint64_t offset, uint64_t length, uint64_t* done, uint32_t timeoutSeconds,
                 void*) override {
    writes.push_back({handle, offset, length, timeoutSeconds});
    return answer(writeAnswers, length, done);
  }
  uint32_t read(HANDLE handle, uint64_t offset, uint64_t length, uint64_t* done, uint32_t timeoutSeconds,
                void*) override {
    reads.push_back({handle, offset, length, timeoutSeconds});
    return answer(readAnswers, length, done);
  }

 private:
  static uint32_t answer(std::deque<TransferAnswer>& queue, uint64_t length, uint64_t* done) {
    TransferAnswer next{0, length, true};
    if (!queue.empty()) {
      next = queue.front();
      queue.pop_front();
    }
    if (next.writeDone && done != nullptr) *done = next.done;
    return next.status;
  }
};

}  // namespace mstest
