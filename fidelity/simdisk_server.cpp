// The disk server of the fidelity run: holds one simulated machine and
// answers the SCSI commands that the SG_IO preload library forwards from
// unmodified host tools, so that state (a self test started by one tool,
// read back by the next) lasts across their processes. The same program,
// given --control, sends one control line to a running server and prints
// the answer.
//
//   simdisk_server --socket PATH [--machine default|FILE|JSON]
//   simdisk_server --socket PATH --control "LINE"
//
// Control lines:
//   describe                       the machine description as JSON
//   advance MS                     moves the machine's clock on
//   attribute DISK ID VALUE        sets an ATA SMART attribute's normalised value
//   nvme-warning DISK BITS         sets an NVMe disk's critical warning byte
//   quit                           ends the server
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <memory>
#include <sstream>
#include <string>
#include <vector>

#include "fidelity/wire.h"
#include "sim/ata_drive.h"
#include "sim/machine.h"
#include "sim/nvme_disk.h"

namespace {

using WireAnswer = simdisk_wire_answer;
using WireRequest = simdisk_wire_request;

bool readAll(int fd, void* buffer, size_t length) {
  auto* p = static_cast<uint8_t*>(buffer);
  while (length > 0) {
    const ssize_t n = ::read(fd, p, length);
    if (n < 0 && errno == EINTR) continue;
    if (n <= 0) return false;
    p += n;
    length -= static_cast<size_t>(n);
  }
  return true;
}

bool writeAll(int fd, const void* buffer, size_t length) {
  const auto* p = static_cast<const uint8_t*>(buffer);
  while (length > 0) {
    const ssize_t n = ::write(fd, p, length);
    if (n < 0 && errno == EINTR) continue;
    if (n <= 0) return false;
    p += n;
    length -= static_cast<size_t>(n);
  }
  return true;
}

bool sendAnswer(int fd, const WireAnswer& answer, const std::vector<uint8_t>& sense, const uint8_t* data) {
  return writeAll(fd, &answer, sizeof answer) && writeAll(fd, sense.data(), sense.size()) &&
         writeAll(fd, data, answer.data_in_length);
}

bool sendText(int fd, uint32_t completion, const std::string& text) {
  WireAnswer a{SIMDISK_WIRE_MAGIC, 0, 0, 0, 0};
  a.completion = completion;
  a.data_in_length = static_cast<uint32_t>(text.size());
  return sendAnswer(fd, a, {}, reinterpret_cast<const uint8_t*>(text.data()));
}

int connectTo(const std::string& path) {
  const int fd = ::socket(AF_UNIX, SOCK_STREAM, 0);
  if (fd < 0) return -1;
  sockaddr_un addr{};
  addr.sun_family = AF_UNIX;
  std::snprintf(addr.sun_path, sizeof addr.sun_path, "%s", path.c_str());
  if (::connect(fd, reinterpret_cast<sockaddr*>(&addr), sizeof addr) != 0) {
    ::close(fd);
    return -1;
  }
  return fd;
}

class Server {
 public:
  explicit Server(std::unique_ptr<sim::Machine> machine) : machine_(std::move(machine)) {}

  // Serves one connection; false when a quit was asked for.
  bool serve(int fd) {
    WireRequest q{};
    if (!readAll(fd, &q, sizeof q) || q.magic != SIMDISK_WIRE_MAGIC || q.name_length > SIMDISK_WIRE_MAX_NAME ||
        q.cdb_length > 32 || q.data_out_length > SIMDISK_WIRE_MAX_DATA || q.transfer_length > SIMDISK_WIRE_MAX_DATA) {
      return true;
    }
    std::string name(q.name_length, '\0');
    std::vector<uint8_t> cdb(q.cdb_length), out(q.data_out_length);
    if (!readAll(fd, name.data(), name.size()) || !readAll(fd, cdb.data(), cdb.size()) ||
        !readAll(fd, out.data(), out.size())) {
      return true;
    }
    if (q.kind == SIMDISK_WIRE_CONTROL) return control(fd, name);
    sim::Disk* disk = machine_->findDisk(name);
    if (disk == nullptr || !disk->scsi) {
      sendText(fd, SIMDISK_WIRE_NO_DISK, "no SCSI disk named '" + name + "'");
      return true;
    }
    std::vector<uint8_t> buffer;
    sim::ScsiRequest r;
    r.cdb = cdb.data();
    r.cdbLength = static_cast<uint8_t>(cdb.size());
    r.timeoutSeconds = (q.timeout_ms + 999) / 1000;
    if (q.direction == SIMDISK_WIRE_TO_DEVICE) {
      buffer = out;
      r.direction = sim::Direction::Out;
    } else if (q.direction == SIMDISK_WIRE_FROM_DEVICE) {
      buffer.assign(q.transfer_length, 0);
      r.direction = sim::Direction::In;
    }
    r.data = buffer.empty() ? nullptr : buffer.data();
    r.length = static_cast<uint32_t>(buffer.size());
    const sim::ScsiResponse s = disk->scsi->executeScsi(r);
    WireAnswer a{SIMDISK_WIRE_MAGIC, 0, 0, 0, 0};
    a.completion = static_cast<uint32_t>(s.completion);
    a.status = s.status;
    a.sense_length = static_cast<uint32_t>(s.sense.size());
    a.data_in_length = q.direction == SIMDISK_WIRE_FROM_DEVICE ? std::min<uint32_t>(s.transferred, r.length) : 0;
    sendAnswer(fd, a, s.sense, buffer.data());
    return true;
  }

 private:
  bool control(int fd, const std::string& line) {
    std::istringstream in(line);
    std::string verb, diskName;
    in >> verb;
    if (verb == "quit") {
      sendText(fd, 0, "bye");
      return false;
    }
    if (verb == "describe") {
      sendText(fd, 0, machine_->description.dump(2));
      return true;
    }
    if (verb == "advance") {
      uint64_t ms = 0;
      if (!(in >> ms)) return sendText(fd, SIMDISK_WIRE_NO_DISK, "advance needs milliseconds"), true;
      machine_->clock().advanceMs(ms);
      sendText(fd, 0, "now " + std::to_string(machine_->clock().nowMs()) + " ms");
      return true;
    }
    in >> diskName;
    sim::Disk* disk = machine_->findDisk(diskName);
    if (disk == nullptr) return sendText(fd, SIMDISK_WIRE_NO_DISK, "no disk named '" + diskName + "'"), true;
    if (verb == "attribute") {
      unsigned id = 0, value = 0;
      if (!disk->ataDrive || !(in >> id >> value) || value > 255) {
        return sendText(fd, SIMDISK_WIRE_NO_DISK, "attribute needs an ATA disk, an id and a value 0-255"), true;
      }
      for (sim::SmartAttribute& a : disk->ataDrive->profile().attributes) {
        if (a.id != id) continue;
        a.value = static_cast<uint8_t>(value);
        a.worst = std::min(a.worst, a.value);
        return sendText(fd, 0, "attribute set"), true;
      }
      return sendText(fd, SIMDISK_WIRE_NO_DISK, "the disk has no attribute " + std::to_string(id)), true;
    }
    if (verb == "nvme-warning") {
      auto* nvme = dynamic_cast<sim::NvmeDisk*>(disk->scsiDrive.get());
      unsigned bits = 0;
      if (nvme == nullptr || !(in >> bits) || bits > 255) {
        return sendText(fd, SIMDISK_WIRE_NO_DISK, "nvme-warning needs an NVMe disk and a byte"), true;
      }
      nvme->health().criticalWarning = static_cast<uint8_t>(bits);
      return sendText(fd, 0, "critical warning set"), true;
    }
    sendText(fd, SIMDISK_WIRE_NO_DISK, "unknown control '" + verb + "'");
    return true;
  }

  std::unique_ptr<sim::Machine> machine_;
};

int runControl(const std::string& socketPath, const std::string& line) {
  const int fd = connectTo(socketPath);
  if (fd < 0) {
    std::fprintf(stderr, "simdisk_server: cannot reach %s: %s\n", socketPath.c_str(), std::strerror(errno));
    return 2;
  }
  WireRequest q{SIMDISK_WIRE_MAGIC, 0, 0, 0, 0, 0, 0, 0};
  q.kind = SIMDISK_WIRE_CONTROL;
  q.name_length = static_cast<uint32_t>(line.size());
  WireAnswer a{SIMDISK_WIRE_MAGIC, 0, 0, 0, 0};
  std::string text;
  bool ok = writeAll(fd, &q, sizeof q) && writeAll(fd, line.data(), line.size()) && readAll(fd, &a, sizeof a) &&
            a.magic == SIMDISK_WIRE_MAGIC && a.data_in_length <= SIMDISK_WIRE_MAX_DATA;
  if (ok) {
    text.resize(a.data_in_length);
    ok = readAll(fd, text.data(), text.size());
  }
  ::close(fd);
  if (!ok) {
    std::fprintf(stderr, "simdisk_server: no answer from %s\n", socketPath.c_str());
    return 2;
  }
  std::printf("%s\n", text.c_str());
  return a.completion == 0 ? 0 : 1;
}

}  // namespace

int main(int argc, char** argv) {
  std::string socketPath, machineSpec = "default", controlLine;
  bool control = false;
  for (int i = 1; i + 1 < argc; i += 2) {
    const std::string key = argv[i];
    if (key == "--socket") {
      socketPath = argv[i + 1];
    } else if (key == "--machine") {
      machineSpec = argv[i + 1];
    } else if (key == "--control") {
      controlLine = argv[i + 1];
      control = true;
    } else {
      std::fprintf(stderr, "simdisk_server: unknown option %s\n", key.c_str());
      return 2;
    }
  }
  if (socketPath.empty() || socketPath.size() >= sizeof(sockaddr_un{}.sun_path)) {
    std::fprintf(stderr, "usage: simdisk_server --socket PATH [--machine M | --control LINE]\n");
    return 2;
  }
  if (control) return runControl(socketPath, controlLine);

  std::string error;
  auto machine = sim::Machine::load(machineSpec, &error);
  if (!machine) {
    std::fprintf(stderr, "simdisk_server: %s\n", error.c_str());
    return 2;
  }
  const int listener = ::socket(AF_UNIX, SOCK_STREAM, 0);
  sockaddr_un addr{};
  addr.sun_family = AF_UNIX;
  std::snprintf(addr.sun_path, sizeof addr.sun_path, "%s", socketPath.c_str());
  ::unlink(socketPath.c_str());
  if (listener < 0 || ::bind(listener, reinterpret_cast<sockaddr*>(&addr), sizeof addr) != 0 ||
      ::listen(listener, 16) != 0) {
    std::fprintf(stderr, "simdisk_server: cannot listen on %s: %s\n", socketPath.c_str(), std::strerror(errno));
    return 2;
  }
  Server server(std::move(machine));
  bool running = true;
  while (running) {
    const int fd = ::accept(listener, nullptr, nullptr);
    if (fd < 0) {
      if (errno == EINTR) continue;
      break;
    }
    running = server.serve(fd);
    ::close(fd);
  }
  ::close(listener);
  ::unlink(socketPath.c_str());
  return 0;
}
