// A preloaded library that times every pread of one file, from inside the
// process that makes it: the benchmark needs the reads of a test on their
// own, without the process's start and discovery around them, and a tracer
// (strace) would add more per read than the reads cost.
//
//   LD_PRELOAD=libread_trace.so READ_TRACE_FILE=IMAGE READ_TRACE_OUT=OUT cmd...
//
// OUT gets one line per pread of IMAGE, in order: "OFFSET LENGTH RESULT
// START_NS END_NS" (steady clock). Reads of other files pass through untouched.
// The build hides symbols by default; these three must be seen to be preloaded.
#include <dlfcn.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <sys/types.h>
#include <time.h>
#include <unistd.h>

#include <cstdint>
#include <cstdio>
#include <cstdlib>

namespace {

struct Entry {
  uint64_t offset;
  uint64_t length;
  int64_t result;
  int64_t start;
  int64_t end;
};

constexpr size_t kMaxEntries = 1 << 22;
constexpr int kMaxFd = 4096;

using PreadFunction = ssize_t (*)(int, void*, size_t, off_t);
using CloseFunction = int (*)(int);

PreadFunction realPread = nullptr;
PreadFunction realPread64 = nullptr;
CloseFunction realClose = nullptr;
bool tracing = false;
dev_t targetDevice = 0;
ino_t targetInode = 0;
// Per descriptor: 0 not looked at yet, 1 the traced file, 2 another file.
signed char fdKind[kMaxFd];
Entry* entries = nullptr;
size_t count = 0;

int64_t nowNs() {
  timespec now{};
  clock_gettime(CLOCK_MONOTONIC, &now);
  return static_cast<int64_t>(now.tv_sec) * 1000000000 + now.tv_nsec;
}

__attribute__((constructor)) void start() {
  realPread = reinterpret_cast<PreadFunction>(dlsym(RTLD_NEXT, "pread"));
  realPread64 = reinterpret_cast<PreadFunction>(dlsym(RTLD_NEXT, "pread64"));
  realClose = reinterpret_cast<CloseFunction>(dlsym(RTLD_NEXT, "close"));
  const char* file = std::getenv("READ_TRACE_FILE");
  const char* out = std::getenv("READ_TRACE_OUT");
  if (file == nullptr || out == nullptr) return;
  struct stat info {};
  if (stat(file, &info) != 0) return;
  targetDevice = S_ISBLK(info.st_mode) ? info.st_rdev : info.st_dev;
  targetInode = S_ISBLK(info.st_mode) ? 0 : info.st_ino;
  entries = static_cast<Entry*>(std::calloc(kMaxEntries, sizeof(Entry)));
  tracing = entries != nullptr;
}

__attribute__((destructor)) void finish() {
  if (!tracing) return;
  FILE* out = std::fopen(std::getenv("READ_TRACE_OUT"), "w");
  if (out == nullptr) return;
  for (size_t i = 0; i < count && i < kMaxEntries; ++i) {
    const Entry& e = entries[i];
    std::fprintf(out, "%llu %llu %lld %lld %lld\n", static_cast<unsigned long long>(e.offset),
                 static_cast<unsigned long long>(e.length), static_cast<long long>(e.result),
                 static_cast<long long>(e.start), static_cast<long long>(e.end));
  }
  if (count > kMaxEntries) std::fprintf(out, "# %zu reads not kept\n", count - kMaxEntries);
  std::fclose(out);
}

bool isTarget(int fd) {
  if (!tracing || fd < 0 || fd >= kMaxFd) return false;
  if (fdKind[fd] == 0) {
    struct stat info {};
    bool match = false;
    if (fstat(fd, &info) == 0) {
      match = S_ISBLK(info.st_mode) ? (targetInode == 0 && info.st_rdev == targetDevice)
                                    : (info.st_dev == targetDevice && info.st_ino == targetInode);
    }
    fdKind[fd] = match ? 1 : 2;
  }
  return fdKind[fd] == 1;
}

ssize_t traced(PreadFunction real, int fd, void* buffer, size_t length, off_t offset) {
  if (!isTarget(fd)) return real(fd, buffer, length, offset);
  const int64_t begin = nowNs();
  const ssize_t result = real(fd, buffer, length, offset);
  const int64_t end = nowNs();
  if (count < kMaxEntries) {
    entries[count] = Entry{static_cast<uint64_t>(offset), length, result, begin, end};
  }
  ++count;
  return result;
}

}  // namespace

extern "C" {

__attribute__((visibility("default"))) ssize_t pread(int fd, void* buffer, size_t length, off_t offset) {
  return traced(realPread, fd, buffer, length, offset);
}

__attribute__((visibility("default"))) ssize_t pread64(int fd, void* buffer, size_t length, off_t offset) {
  return traced(realPread64 != nullptr ? realPread64 : realPread, fd, buffer, length, offset);
}

__attribute__((visibility("default"))) int close(int fd) {
  if (fd >= 0 && fd < kMaxFd) fdKind[fd] = 0;
  return realClose(fd);
}

}  // extern "C"
