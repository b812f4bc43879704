// Reading /sys/block: which entries are disks, and what each one is.
#include "linux_host/sysfs.h"

#include <dirent.h>
#include <limits.h>
#include <stdlib.h>

#include <algorithm>
#include <cstdlib>
#include <fstream>
#include <sstream>

#include "win32/win32.h"

namespace linux_host {

namespace {

std::string readAttribute(const std::string& path) {
  std::ifstream in(path);
  if (!in) return "";
  std::stringstream text;
  text << in.rdbuf();
  std::string value = text.str();
  while (!value.empty() && (value.back() == '\n' || value.back() == ' ' || value.back() == '\0')) value.pop_back();
  size_t first = 0;
  while (first < value.size() && value[first] == ' ') ++first;
  return value.substr(first);
}

bool startsWith(const std::string& text, const std::string& prefix) { return text.compare(0, prefix.size(), prefix) == 0; }

std::string resolved(const std::string& path) {
  char buffer[PATH_MAX];
  if (::realpath(path.c_str(), buffer) == nullptr) return "";
  return buffer;
}

// The serial number in a VPD page 80h as sysfs keeps it (device/vpd_pg80):
// 3 page length, 4.. the serial.
std::string serialFromVpd80(const std::string& path) {
  std::ifstream in(path, std::ios::binary);
  if (!in) return "";
  std::string page((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
  if (page.size() < 4) return "";
  const size_t length = std::min<size_t>(static_cast<uint8_t>(page[3]), page.size() - 4);
  std::string serial = page.substr(4, length);
  while (!serial.empty() && (serial.back() == ' ' || serial.back() == '\0')) serial.pop_back();
  size_t first = 0;
  while (first < serial.size() && serial[first] == ' ') ++first;
  return serial.substr(first);
}

}  // namespace

bool diskNameLess(const std::string& a, const std::string& b) {
  size_t i = 0, j = 0;
  while (i < a.size() && j < b.size()) {
    const bool da = a[i] >= '0' && a[i] <= '9';
    const bool db = b[j] >= '0' && b[j] <= '9';
    if (da && db) {
      size_t ei = i, ej = j;
      while (ei < a.size() && a[ei] >= '0' && a[ei] <= '9') ++ei;
      while (ej < b.size() && b[ej] >= '0' && b[ej] <= '9') ++ej;
      std::string na = a.substr(i, ei - i), nb = b.substr(j, ej - j);
      na.erase(0, std::min(na.find_first_not_of('0'), na.size() - 1));
      nb.erase(0, std::min(nb.find_first_not_of('0'), nb.size() - 1));
      if (na.size() != nb.size()) return na.size() < nb.size();
      if (na != nb) return na < nb;
      i = ei;
      j = ej;
      continue;
    }
    // Letters: a shorter run of letters first (sdz before sdaa).
    size_t ei = i, ej = j;
    while (ei < a.size() && !(a[ei] >= '0' && a[ei] <= '9')) ++ei;
    while (ej < b.size() && !(b[ej] >= '0' && b[ej] <= '9')) ++ej;
    const std::string la = a.substr(i, ei - i), lb = b.substr(j, ej - j);
    if (la.size() != lb.size()) return la.size() < lb.size();
    if (la != lb) return la < lb;
    i = ei;
    j = ej;
  }
  return a.size() - i < b.size() - j;
}

uint32_t busTypeOf(const std::string& name, const std::string& path, const std::string& mmcType) {
  if (path.find("/usb") != std::string::npos) return BusTypeUsb;
  if (startsWith(name, "nvme")) return BusTypeNvme;
  if (startsWith(name, "mmcblk")) return mmcType == "MMC" ? BusTypeMmc : BusTypeSd;
  // libata hosts sit under an "ataN" directory.
  size_t at = 0;
  while ((at = path.find("/ata", at)) != std::string::npos) {
    if (at + 4 < path.size() && path[at + 4] >= '0' && path[at + 4] <= '9') return BusTypeSata;
    at += 4;
  }
  if (path.find("/end_device-") != std::string::npos) return BusTypeSas;
  return BusTypeScsi;
}

std::vector<SysfsDisk> listSysfsDisks(const std::string& sysfsRoot, const std::string& devRoot) {
  std::vector<SysfsDisk> disks;
  const std::string blockDir = sysfsRoot + "/block";
  DIR* dir = ::opendir(blockDir.c_str());
  if (dir == nullptr) return disks;
  std::vector<std::string> names;
  while (dirent* entry = ::readdir(dir)) {
    const std::string name = entry->d_name;
    if (name.empty() || name[0] == '.') continue;
    names.push_back(name);
  }
  ::closedir(dir);
  std::sort(names.begin(), names.end(), diskNameLess);
  for (const std::string& name : names) {
    const std::string entry = blockDir + "/" + name;
    const std::string path = resolved(entry);
    if (path.empty() || path.find("/devices/virtual/") != std::string::npos) continue;
    if (startsWith(name, "sr") || startsWith(name, "loop") || startsWith(name, "ram") || startsWith(name, "dm-") ||
        startsWith(name, "zram") || startsWith(name, "md") || startsWith(name, "nbd") || startsWith(name, "fd")) {
      continue;
    }
    SysfsDisk disk;
    disk.name = name;
    disk.devicePath = devRoot + "/" + name;
    const std::string device = entry + "/device";
    const std::string mmcType = readAttribute(device + "/type");
    disk.busType = busTypeOf(name, path, mmcType);
    disk.removable = readAttribute(entry + "/removable") == "1";
    disk.rotational = readAttribute(entry + "/queue/rotational") == "1";
    if (startsWith(name, "nvme")) {
      disk.commands = CommandPath::Nvme;
      disk.vendor = "NVMe";
      disk.product = readAttribute(device + "/model");
      disk.revision = readAttribute(device + "/firmware_rev");
      disk.serial = readAttribute(device + "/serial");
      disk.nvmeNsid = static_cast<uint32_t>(std::strtoul(readAttribute(entry + "/nsid").c_str(), nullptr, 10));
      disk.nvmeEui64 = readAttribute(entry + "/eui");
      disk.nvmeNguid = readAttribute(entry + "/nguid");
    } else if (startsWith(name, "mmcblk")) {
      disk.vendor = mmcType;
      disk.product = readAttribute(device + "/name");
      disk.revision = readAttribute(device + "/fwrev");
      disk.serial = readAttribute(device + "/serial");
    } else if (startsWith(name, "vd") || startsWith(name, "xvd")) {
      disk.vendor = "Virtio";
      disk.product = "Block Device";
      disk.serial = readAttribute(entry + "/serial");
    } else {
      // A disk of the SCSI layer (sd*): SCSI, SAS, SATA through libata, USB.
      disk.commands = CommandPath::SgIo;
      disk.vendor = readAttribute(device + "/vendor");
      disk.product = readAttribute(device + "/model");
      disk.revision = readAttribute(device + "/rev");
      disk.serial = serialFromVpd80(device + "/vpd_pg80");
    }
    disks.push_back(disk);
  }
  return disks;
}

}  // namespace linux_host
