/* The SG_IO preload library of the fidelity run: makes paths /dev/sim-NAME
 * look like block devices to an unmodified host tool and forwards the
 * SCSI commands it sends through ioctl(SG_IO) to the disk server (socket
 * named by SIMDISK_SOCKET), which answers them from the simulated disk
 * NAME. Every other path and descriptor goes to the C library untouched.
 * Written in C: the C library's own declarations of open, stat and ioctl
 * cannot be redeclared from C++ without their exception specifications.
 * SIMDISK_TRACE=1 prints every intercepted call the library does not serve. */
#define _GNU_SOURCE
#include <dlfcn.h>
#include <errno.h>
#include <fcntl.h>
#include <scsi/sg.h>
#include <stdarg.h>
#include <stdint.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/sysmacros.h>
#include <sys/un.h>
#include <unistd.h>

#include "fidelity/wire.h"

#define PREFIX "/dev/sim-"
#define MAX_FDS 1024
#define SCSI_DISK0_MAJOR 8
#define DRIVER_SENSE 0x08
#define DID_NO_CONNECT 0x01
#define DID_TIME_OUT 0x03
#define DID_ERROR 0x07

static char* g_names[MAX_FDS];       /* disk name per descriptor we opened */
static unsigned g_timeouts[MAX_FDS]; /* SG_SET_TIMEOUT, in ms */

static int trace_on(void) {
  const char* t = getenv("SIMDISK_TRACE");
  return t != NULL && t[0] == '1';
}

static const char* sim_name(const char* path) {
  if (path == NULL || strncmp(path, PREFIX, sizeof PREFIX - 1) != 0) return NULL;
  return path + sizeof PREFIX - 1;
}

/* A stable minor number per name, so that two disks differ in st_rdev. */
static unsigned minor_of(const char* name) {
  unsigned h = 0;
  for (const char* p = name; *p; ++p) h = h * 31u + (unsigned char)*p;
  return (h % 15u + 1u) * 16u;
}

static void fake_stat(const char* name, struct stat* st) {
  memset(st, 0, sizeof *st);
  st->st_mode = S_IFBLK | 0660;
  st->st_rdev = makedev(SCSI_DISK0_MAJOR, minor_of(name));
  st->st_dev = makedev(0, 5);
  st->st_nlink = 1;
  st->st_blksize = 4096;
  st->st_ino = minor_of(name) + 1000u;
}

static void* real(const char* symbol) { return dlsym(RTLD_NEXT, symbol); }

static int open_sim(const char* name) {
  int (*real_open)(const char*, int, ...) = (int (*)(const char*, int, ...))real("open");
  const int fd = real_open("/dev/null", O_RDWR | O_CLOEXEC);
  if (fd < 0) return fd;
  if (fd >= MAX_FDS) {
    close(fd);
    errno = EMFILE;
    return -1;
  }
  free(g_names[fd]);
  g_names[fd] = strdup(name);
  g_timeouts[fd] = 60000;
  return fd;
}

static const char* fd_name(int fd) { return fd >= 0 && fd < MAX_FDS ? g_names[fd] : NULL; }

/* --- open ---------------------------------------------------------------- */

#define OPEN_BODY(symbol, path, flags)                                     \
  do {                                                                     \
    const char* name = sim_name(path);                                     \
    if (name != NULL) return open_sim(name);                               \
    mode_t mode = 0;                                                       \
    if ((flags) & (O_CREAT | __O_TMPFILE)) {                               \
      va_list ap;                                                          \
      va_start(ap, flags);                                                 \
      mode = (mode_t)va_arg(ap, int);                                      \
      va_end(ap);                                                          \
    }                                                                      \
    int (*next)(const char*, int, ...) = (int (*)(const char*, int, ...))real(symbol); \
    return next(path, flags, mode);                                        \
  } while (0)

int open(const char* path, int flags, ...) { OPEN_BODY("open", path, flags); }
int open64(const char* path, int flags, ...) { OPEN_BODY("open64", path, flags); }

int __open_2(const char* path, int flags) {
  const char* name = sim_name(path);
  if (name != NULL) return open_sim(name);
  int (*next)(const char*, int) = (int (*)(const char*, int))real("__open_2");
  return next(path, flags);
}

int __open64_2(const char* path, int flags) {
  const char* name = sim_name(path);
  if (name != NULL) return open_sim(name);
  int (*next)(const char*, int) = (int (*)(const char*, int))real("__open64_2");
  return next(path, flags);
}

#define OPENAT_BODY(symbol, dirfd, path, flags)                            \
  do {                                                                     \
    const char* name = sim_name(path);                                     \
    if (name != NULL) return open_sim(name);                               \
    mode_t mode = 0;                                                       \
    if ((flags) & (O_CREAT | __O_TMPFILE)) {                               \
      va_list ap;                                                          \
      va_start(ap, flags);                                                 \
      mode = (mode_t)va_arg(ap, int);                                      \
      va_end(ap);                                                          \
    }                                                                      \
    int (*next)(int, const char*, int, ...) = (int (*)(int, const char*, int, ...))real(symbol); \
    return next(dirfd, path, flags, mode);                                 \
  } while (0)

int openat(int dirfd, const char* path, int flags, ...) { OPENAT_BODY("openat", dirfd, path, flags); }
int openat64(int dirfd, const char* path, int flags, ...) { OPENAT_BODY("openat64", dirfd, path, flags); }

int close(int fd) {
  if (fd_name(fd) != NULL) {
    free(g_names[fd]);
    g_names[fd] = NULL;
  }
  int (*next)(int) = (int (*)(int))real("close");
  return next(fd);
}

/* --- stat ---------------------------------------------------------------- */

int stat(const char* path, struct stat* st) {
  const char* name = sim_name(path);
  if (name != NULL) return fake_stat(name, st), 0;
  int (*next)(const char*, struct stat*) = (int (*)(const char*, struct stat*))real("stat");
  return next(path, st);
}

int stat64(const char* path, struct stat64* st) {
  const char* name = sim_name(path);
  if (name != NULL) return fake_stat(name, (struct stat*)st), 0;
  int (*next)(const char*, struct stat64*) = (int (*)(const char*, struct stat64*))real("stat64");
  return next(path, st);
}

int lstat(const char* path, struct stat* st) {
  const char* name = sim_name(path);
  if (name != NULL) return fake_stat(name, st), 0;
  int (*next)(const char*, struct stat*) = (int (*)(const char*, struct stat*))real("lstat");
  return next(path, st);
}

int lstat64(const char* path, struct stat64* st) {
  const char* name = sim_name(path);
  if (name != NULL) return fake_stat(name, (struct stat*)st), 0;
  int (*next)(const char*, struct stat64*) = (int (*)(const char*, struct stat64*))real("lstat64");
  return next(path, st);
}

int fstat(int fd, struct stat* st) {
  const char* name = fd_name(fd);
  if (name != NULL) return fake_stat(name, st), 0;
  int (*next)(int, struct stat*) = (int (*)(int, struct stat*))real("fstat");
  return next(fd, st);
}

int fstat64(int fd, struct stat64* st) {
  const char* name = fd_name(fd);
  if (name != NULL) return fake_stat(name, (struct stat*)st), 0;
  int (*next)(int, struct stat64*) = (int (*)(int, struct stat64*))real("fstat64");
  return next(fd, st);
}

int fstatat(int dirfd, const char* path, struct stat* st, int flags) {
  const char* name = sim_name(path);
  if (name == NULL && path[0] == '\0' && (flags & AT_EMPTY_PATH)) name = fd_name(dirfd);
  if (name != NULL) return fake_stat(name, st), 0;
  int (*next)(int, const char*, struct stat*, int) = (int (*)(int, const char*, struct stat*, int))real("fstatat");
  return next(dirfd, path, st, flags);
}

int fstatat64(int dirfd, const char* path, struct stat64* st, int flags) {
  return fstatat(dirfd, path, (struct stat*)st, flags);
}

/* The versioned entry points of programs built against an older C library. */
int __xstat(int ver, const char* path, struct stat* st) {
  const char* name = sim_name(path);
  if (name != NULL) return fake_stat(name, st), 0;
  int (*next)(int, const char*, struct stat*) = (int (*)(int, const char*, struct stat*))real("__xstat");
  return next(ver, path, st);
}

int __fxstat(int ver, int fd, struct stat* st) {
  const char* name = fd_name(fd);
  if (name != NULL) return fake_stat(name, st), 0;
  int (*next)(int, int, struct stat*) = (int (*)(int, int, struct stat*))real("__fxstat");
  return next(ver, fd, st);
}

int access(const char* path, int mode) {
  if (sim_name(path) != NULL) return 0;
  int (*next)(const char*, int) = (int (*)(const char*, int))real("access");
  return next(path, mode);
}

/* --- SG_IO --------------------------------------------------------------- */

static int read_all(int fd, void* buffer, size_t length) {
  uint8_t* p = (uint8_t*)buffer;
  while (length > 0) {
    const ssize_t n = read(fd, p, length);
    if (n < 0 && errno == EINTR) continue;
    if (n <= 0) return 0;
    p += n;
    length -= (size_t)n;
  }
  return 1;
}

static int write_all(int fd, const void* buffer, size_t length) {
  const uint8_t* p = (const uint8_t*)buffer;
  while (length > 0) {
    const ssize_t n = write(fd, p, length);
    if (n < 0 && errno == EINTR) continue;
    if (n <= 0) return 0;
    p += n;
    length -= (size_t)n;
  }
  return 1;
}

static int connect_server(void) {
  const char* path = getenv("SIMDISK_SOCKET");
  if (path == NULL || strlen(path) >= sizeof(((struct sockaddr_un*)0)->sun_path)) return -1;
  const int fd = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
  if (fd < 0) return -1;
  struct sockaddr_un addr;
  memset(&addr, 0, sizeof addr);
  addr.sun_family = AF_UNIX;
  strcpy(addr.sun_path, path);
  if (connect(fd, (struct sockaddr*)&addr, sizeof addr) != 0) {
    close(fd);
    return -1;
  }
  return fd;
}

static int sg_io(const char* name, sg_io_hdr_t* h) {
  if (h->interface_id != 'S' || h->iovec_count != 0 || h->cmd_len == 0 || h->cmd_len > 32 || h->cmdp == NULL) {
    errno = EINVAL;
    return -1;
  }
  struct simdisk_wire_request q;
  memset(&q, 0, sizeof q);
  q.magic = SIMDISK_WIRE_MAGIC;
  q.kind = SIMDISK_WIRE_SCSI;
  q.name_length = (uint32_t)strlen(name);
  q.cdb_length = h->cmd_len;
  q.timeout_ms = h->timeout;
  const uint8_t* out = NULL;
  switch (h->dxfer_direction) {
    case SG_DXFER_TO_DEV:
      q.direction = SIMDISK_WIRE_TO_DEVICE;
      q.transfer_length = h->dxfer_len;
      q.data_out_length = h->dxfer_len;
      out = (const uint8_t*)h->dxferp;
      break;
    case SG_DXFER_FROM_DEV:
    case SG_DXFER_TO_FROM_DEV:
      q.direction = SIMDISK_WIRE_FROM_DEVICE;
      q.transfer_length = h->dxfer_len;
      break;
    default:
      q.direction = SIMDISK_WIRE_NONE;
      break;
  }
  if (q.transfer_length != 0 && h->dxferp == NULL) {
    errno = EINVAL;
    return -1;
  }
  const int s = connect_server();
  if (s < 0) {
    errno = ENXIO;
    return -1;
  }
  struct simdisk_wire_answer a;
  int ok = write_all(s, &q, sizeof q) && write_all(s, name, q.name_length) && write_all(s, h->cmdp, h->cmd_len) &&
           write_all(s, out, q.data_out_length) && read_all(s, &a, sizeof a) && a.magic == SIMDISK_WIRE_MAGIC &&
           a.data_in_length <= q.transfer_length && a.sense_length <= 1024;
  uint8_t sense[1024];
  if (ok) ok = read_all(s, sense, a.sense_length) && read_all(s, h->dxferp, a.data_in_length);
  close(s);
  if (!ok || a.completion == SIMDISK_WIRE_NO_DISK) {
    errno = ENXIO;
    return -1;
  }
  h->status = (unsigned char)a.status;
  h->masked_status = (unsigned char)((a.status >> 1) & 0x7F);
  h->msg_status = 0;
  h->host_status = 0;
  h->driver_status = 0;
  h->sb_len_wr = 0;
  h->duration = 1;
  h->resid = (int)(h->dxfer_len - (q.direction == SIMDISK_WIRE_FROM_DEVICE ? a.data_in_length
                                   : q.direction == SIMDISK_WIRE_TO_DEVICE ? h->dxfer_len : 0));
  if (q.direction == SIMDISK_WIRE_TO_DEVICE) h->resid = 0;
  switch (a.completion) {
    case 0: break;
    case 1: h->host_status = DID_TIME_OUT; break;
    case 2: h->host_status = DID_NO_CONNECT; break;
    default: h->host_status = DID_ERROR; break;
  }
  if (a.sense_length > 0 && h->sbp != NULL && h->mx_sb_len > 0) {
    const unsigned n = a.sense_length < h->mx_sb_len ? a.sense_length : h->mx_sb_len;
    memcpy(h->sbp, sense, n);
    h->sb_len_wr = (unsigned char)n;
    h->driver_status = DRIVER_SENSE;
  }
  h->info = (h->status != 0 || h->host_status != 0 || h->driver_status != 0) ? SG_INFO_CHECK : SG_INFO_OK;
  return 0;
}

int ioctl(int fd, unsigned long request, ...) {
  va_list ap;
  va_start(ap, request);
  void* arg = va_arg(ap, void*);
  va_end(ap);
  const char* name = fd_name(fd);
  if (name == NULL) {
    int (*next)(int, unsigned long, ...) = (int (*)(int, unsigned long, ...))real("ioctl");
    return next(fd, request, arg);
  }
  switch (request) {
    case SG_IO:
      return sg_io(name, (sg_io_hdr_t*)arg);
    case SG_GET_VERSION_NUM:
      *(int*)arg = 30536;
      return 0;
    case SG_GET_TIMEOUT:
      return (int)(g_timeouts[fd] / 10); /* in jiffies of USER_HZ 100 */
    case SG_SET_TIMEOUT:
      g_timeouts[fd] = (unsigned)*(int*)arg * 10u;
      return 0;
    case SG_GET_RESERVED_SIZE:
      *(int*)arg = 1 << 20;
      return 0;
    case SG_SET_RESERVED_SIZE:
      return 0;
    default:
      if (trace_on()) fprintf(stderr, "simdisk: ioctl 0x%lx on %s%s not served\n", request, PREFIX, name);
      errno = ENOTTY;
      return -1;
  }
}
