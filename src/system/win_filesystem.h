// The filesystem service on the Windows API: time-limited overlapped reads and
// writes of a device or file handle, test files, and directory walks.
#pragma once

#include "system/filesystem.h"

class WinFilesystem : public Filesystem {
 public:
  char getSystemDrive() override;
  const char* getCurrentDirectory() override;
  const char* getExecutablePath() override;
  const char* getExecutableDirectory() override;
  uint32_t listFiles(std::string pattern, std::vector<std::string>* out) override;
  uint32_t createDirectories(std::string path, std::string* outPath) override;
  uint32_t isReservedName(std::string path) override;
  uint32_t removeTree(const std::string& path) override;
  uint32_t create(std::string path, HANDLE* out, bool deleteOnClose) override;
  uint32_t close(HANDLE handle) override;
  uint32_t setSize(HANDLE handle, uint64_t bytes) override;
  uint32_t write(HANDLE handle, uint64_t offset, uint64_t length, uint64_t* done, uint32_t timeoutSeconds,
                 void* buffer) override;
  uint32_t read(HANDLE handle, uint64_t offset, uint64_t length, uint64_t* done, uint32_t timeoutSeconds,
                void* buffer) override;

 private:
  // One overlapped transfer with a deadline; `isWrite` picks the call.
  uint32_t transfer(bool isWrite, HANDLE handle, uint64_t offset, uint64_t length, uint64_t* done,
                    uint32_t timeoutSeconds, void* buffer);
};
