// The service through which the module touches files, directories and the raw
// read and write path of a device handle. Reads and writes are time-limited,
// so a hung device cannot hang a test for ever.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "win32/win32.h"

// File operations give 0 for success and non-zero for failure unless stated;
// the platform's reason is reduced to that, except that `write` hands on a
// full disk as 112 for the write test to see.
class Filesystem {
 public:
  virtual ~Filesystem() = default;

  // First character of the Windows directory; 0 if it could not be read.
  virtual char getSystemDrive() = 0;
  // Null on failure. The texts stay owned by the service.
  virtual const char* getCurrentDirectory() = 0;
  virtual const char* getExecutablePath() = 0;
  // The executable path without its last component and backslash.
  virtual const char* getExecutableDirectory() = 0;
  // 1 on an empty pattern or no match; entries carry the pattern's directory.
  virtual uint32_t listFiles(std::string pattern, std::vector<std::string>* out) = 0;
  virtual uint32_t createDirectories(std::string path, std::string* outPath) = 0;
  // 1 when the path names a device (CON, NUL, COM1...).
  virtual uint32_t isReservedName(std::string path) = 0;
  virtual uint32_t removeTree(const std::string& path) = 0;
  virtual uint32_t create(std::string path, HANDLE* out, bool deleteOnClose) = 0;
  virtual uint32_t close(HANDLE handle) = 0;
  virtual uint32_t setSize(HANDLE handle, uint64_t bytes) = 0;
  // `done` is written only when the request completed in time.
  virtual uint32_t write(HANDLE handle, uint64_t offset, uint64_t length, uint64_t* done, uint32_t timeoutSeconds,
                         void* buffer) = 0;
  virtual uint32_t read(HANDLE handle, uint64_t offset, uint64_t length, uint64_t* done, uint32_t timeoutSeconds,
                        void* buffer) = 0;

 protected:
  // Filled on first use of their accessors.
  std::string currentDirectory;
  char systemDrive = 0;
  std::string executablePath;
  std::string executableDirectory;
};

// The process-wide filesystem service, created on first use.
Filesystem& getFilesystem();

// Puts another service behind getFilesystem() (null restores the platform's).
// For tests that script what the handle path answers.
void setFilesystemForTesting(Filesystem* replacement);
