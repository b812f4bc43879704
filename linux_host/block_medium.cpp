// Block devices and image files as media: geometry from the block-layer
// ioctls or the file's size, transfers by pread and pwrite.
#include "linux_host/block_medium.h"

#include <errno.h>
#include <fcntl.h>
#include <linux/fs.h>
#include <sys/ioctl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdlib>
#include <cstring>
#include <memory>

#include "win32/win32.h"

namespace linux_host {

uint32_t win32ErrorOf(int error) {
  switch (error) {
    case 0:
      return ERROR_SUCCESS;
    case ENOENT:
    case ENOTDIR:
      return ERROR_FILE_NOT_FOUND;
    case EACCES:
    case EPERM:
      return ERROR_ACCESS_DENIED;
    case EROFS:
      return ERROR_WRITE_PROTECT;
    case ENOMEDIUM:
      return ERROR_NOT_READY;
    case ENXIO:
    case ENODEV:
      return ERROR_DEVICE_NOT_CONNECTED;
    case EBUSY:
      return ERROR_SHARING_VIOLATION;
    case EINVAL:
      return ERROR_INVALID_PARAMETER;
    case ENOMEM:
      return ERROR_NOT_ENOUGH_MEMORY;
    case ENOSPC:
      return ERROR_DISK_FULL;
    case ETIMEDOUT:
      return ERROR_SEM_TIMEOUT;
    case ENOTTY:
    case EOPNOTSUPP:
      return ERROR_NOT_SUPPORTED;
    case EIO:
      return ERROR_IO_DEVICE;
    default:
      return ERROR_GEN_FAILURE;
  }
}

FileMedium::~FileMedium() {
  if (readFd_ >= 0) ::close(readFd_);
  if (directFd_ >= 0) ::close(directFd_);
  if (writeFd_ >= 0) ::close(writeFd_);
}

uint32_t FileMedium::open(const std::string& path) {
  path_ = path;
  readFd_ = ::open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK);
  if (readFd_ < 0) return win32ErrorOf(errno);
  struct stat info {};
  if (::fstat(readFd_, &info) != 0) return win32ErrorOf(errno);
  blockDevice_ = S_ISBLK(info.st_mode);
  if (blockDevice_) {
    int logical = 0;
    unsigned int physical = 0;
    uint64_t bytes = 0;
    if (::ioctl(readFd_, BLKSSZGET, &logical) != 0 || ::ioctl(readFd_, BLKGETSIZE64, &bytes) != 0) {
      return win32ErrorOf(errno);
    }
    if (::ioctl(readFd_, BLKPBSZGET, &physical) != 0) physical = static_cast<unsigned int>(logical);
    if (logical < 512) return ERROR_NOT_READY;
    logical_ = static_cast<uint32_t>(logical);
    physical_ = physical >= static_cast<unsigned int>(logical) ? physical : logical_;
    bytes_ = bytes;
    directFd_ = ::open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK | O_DIRECT);
  } else if (S_ISREG(info.st_mode)) {
    bytes_ = static_cast<uint64_t>(info.st_size) / logical_ * logical_;
  } else {
    return ERROR_INVALID_PARAMETER;
  }
  return ERROR_SUCCESS;
}

// Whole sectors into a buffer aligned for the device, then to the caller's.
uint32_t FileMedium::readDirect(uint64_t offset, uint8_t* out, uint32_t length) {
  constexpr size_t kAlignment = 4096;
  void* raw = nullptr;
  if (::posix_memalign(&raw, kAlignment, length) != 0) return ERROR_NOT_ENOUGH_MEMORY;
  std::unique_ptr<void, void (*)(void*)> bounce(raw, std::free);
  uint8_t* buffer = static_cast<uint8_t*>(raw);
  uint32_t done = 0;
  while (done < length) {
    const ssize_t got = ::pread(directFd_, buffer + done, length - done, static_cast<off_t>(offset + done));
    if (got < 0 && errno == EINTR) continue;
    if (got < 0) return errno == EIO ? ERROR_CRC : win32ErrorOf(errno);
    if (got == 0) return ERROR_SECTOR_NOT_FOUND;
    done += static_cast<uint32_t>(got);
  }
  std::memcpy(out, buffer, length);
  return ERROR_SUCCESS;
}

uint32_t FileMedium::read(uint64_t offset, uint8_t* out, uint32_t length) {
  if (readFd_ < 0) return ERROR_INVALID_HANDLE;
  if (offset > bytes_ || length > bytes_ - offset) return ERROR_SECTOR_NOT_FOUND;
  if (directFd_ >= 0 && length > 0 && offset % logical_ == 0 && length % logical_ == 0) {
    const uint32_t error = readDirect(offset, out, length);
    // A device that refuses unbuffered reads (EINVAL) is read through the cache.
    if (error != ERROR_INVALID_PARAMETER) return error;
    ::close(directFd_);
    directFd_ = -1;
  }
  uint32_t done = 0;
  while (done < length) {
    const ssize_t got = ::pread(readFd_, out + done, length - done, static_cast<off_t>(offset + done));
    if (got < 0 && errno == EINTR) continue;
    if (got < 0) return errno == EIO ? ERROR_CRC : win32ErrorOf(errno);
    if (got == 0) return ERROR_SECTOR_NOT_FOUND;
    done += static_cast<uint32_t>(got);
  }
  return ERROR_SUCCESS;
}

uint32_t FileMedium::write(uint64_t offset, const uint8_t* in, uint32_t length) {
  if (readFd_ < 0) return ERROR_INVALID_HANDLE;
  if (offset > bytes_ || length > bytes_ - offset) return ERROR_SECTOR_NOT_FOUND;
  if (writeFd_ < 0) {
    writeFd_ = ::open(path_.c_str(), O_WRONLY | O_CLOEXEC);
    if (writeFd_ < 0) return win32ErrorOf(errno);
  }
  uint32_t done = 0;
  while (done < length) {
    const ssize_t put = ::pwrite(writeFd_, in + done, length - done, static_cast<off_t>(offset + done));
    if (put < 0 && errno == EINTR) continue;
    if (put <= 0) return put < 0 ? win32ErrorOf(errno) : ERROR_IO_DEVICE;
    done += static_cast<uint32_t>(put);
  }
  return ::fdatasync(writeFd_) == 0 ? ERROR_SUCCESS : win32ErrorOf(errno);
}

}  // namespace linux_host
