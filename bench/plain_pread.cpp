// The limit the module's reads are measured against: a plain pread loop, with
// nothing between the caller and the kernel.
//
//   plain_pread stride FILE LENGTH STRIDE [direct]
//       reads LENGTH bytes at 0, STRIDE, 2*STRIDE, ... up to the file's end
//       (the last read is cut at the end).
//   plain_pread offsets FILE LIST [direct]
//       reads "OFFSET LENGTH" pairs, one a line of LIST, in order.
//   plain_pread evict FILE
//       drops FILE's pages from the page cache, so the next read is cold.
//
// Prints "bytes=N reads=N seconds=S" on success; exits 1 with a message naming
// what failed otherwise.
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <chrono>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <string>
#include <utility>
#include <vector>

namespace {

constexpr size_t kAlignment = 4096;

int fail(const std::string& what) {
  std::fprintf(stderr, "plain_pread: %s: %s\n", what.c_str(), std::strerror(errno));
  return 1;
}

int usage() {
  std::fprintf(stderr,
               "usage: plain_pread stride FILE LENGTH STRIDE [direct]\n"
               "       plain_pread offsets FILE LIST [direct]\n"
               "       plain_pread evict FILE\n");
  return 2;
}

bool parseNumber(const char* text, uint64_t* value) {
  char* end = nullptr;
  errno = 0;
  const unsigned long long parsed = std::strtoull(text, &end, 10);
  if (errno != 0 || end == text || *end != '\0') return false;
  *value = parsed;
  return true;
}

struct Buffer {
  explicit Buffer(size_t size) {
    if (posix_memalign(&data, kAlignment, size == 0 ? kAlignment : size) != 0) data = nullptr;
  }
  ~Buffer() { std::free(data); }
  Buffer(const Buffer&) = delete;
  Buffer& operator=(const Buffer&) = delete;
  void* data = nullptr;
};

// Reads every (offset, length) in order; a short read at the file's end ends
// that read, any error ends the run.
int readAll(const char* path, bool direct, const std::vector<std::pair<uint64_t, uint64_t>>& reads) {
  const int fd = open(path, O_RDONLY | (direct ? O_DIRECT : 0));
  if (fd < 0) return fail(std::string("cannot open ") + path);
  uint64_t largest = 0;
  for (const auto& read : reads) largest = std::max(largest, read.second);
  Buffer buffer(largest);
  if (buffer.data == nullptr) {
    close(fd);
    return fail("no buffer");
  }
  uint64_t bytes = 0;
  const auto start = std::chrono::steady_clock::now();
  for (const auto& read : reads) {
    const ssize_t got = pread(fd, buffer.data, read.second, static_cast<off_t>(read.first));
    if (got < 0) {
      close(fd);
      return fail("read at " + std::to_string(read.first));
    }
    bytes += static_cast<uint64_t>(got);
  }
  const std::chrono::duration<double> seconds = std::chrono::steady_clock::now() - start;
  close(fd);
  std::printf("bytes=%llu reads=%zu seconds=%.6f\n", static_cast<unsigned long long>(bytes), reads.size(),
              seconds.count());
  return 0;
}

int fileSize(const char* path, uint64_t* size) {
  struct stat status {};
  if (stat(path, &status) != 0) return fail(std::string("cannot stat ") + path);
  *size = static_cast<uint64_t>(status.st_size);
  return 0;
}

int evict(const char* path) {
  const int fd = open(path, O_RDONLY);
  if (fd < 0) return fail(std::string("cannot open ") + path);
  const int result = posix_fadvise(fd, 0, 0, POSIX_FADV_DONTNEED);
  close(fd);
  if (result != 0) {
    errno = result;
    return fail(std::string("cannot drop the cached pages of ") + path);
  }
  return 0;
}

}  // namespace

int main(int argc, char** argv) {
  if (argc < 3) return usage();
  const std::string mode = argv[1];
  const char* path = argv[2];
  if (mode == "evict" && argc == 3) return evict(path);

  if (mode == "stride" && (argc == 5 || argc == 6)) {
    uint64_t length = 0;
    uint64_t stride = 0;
    if (!parseNumber(argv[3], &length) || !parseNumber(argv[4], &stride) || length == 0 || stride == 0) {
      return usage();
    }
    const bool direct = argc == 6 && std::string(argv[5]) == "direct";
    if (argc == 6 && !direct) return usage();
    uint64_t size = 0;
    if (fileSize(path, &size) != 0) return 1;
    std::vector<std::pair<uint64_t, uint64_t>> reads;
    reads.reserve(size / stride + 1);
    for (uint64_t offset = 0; offset < size; offset += stride) {
      reads.emplace_back(offset, std::min(length, size - offset));
    }
    return readAll(path, direct, reads);
  }

  if (mode == "offsets" && (argc == 4 || argc == 5)) {
    const bool direct = argc == 5 && std::string(argv[4]) == "direct";
    if (argc == 5 && !direct) return usage();
    std::ifstream list(argv[3]);
    if (!list) return fail(std::string("cannot open ") + argv[3]);
    std::vector<std::pair<uint64_t, uint64_t>> reads;
    uint64_t offset = 0;
    uint64_t length = 0;
    while (list >> offset >> length) reads.emplace_back(offset, length);
    if (!list.eof()) {
      std::fprintf(stderr, "plain_pread: %s holds a line that is not \"OFFSET LENGTH\"\n", argv[3]);
      return 1;
    }
    return readAll(path, direct, reads);
  }
  return usage();
}
