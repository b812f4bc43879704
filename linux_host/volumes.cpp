// Mount table and sysfs to drive-letter volumes, and the Win32 volume calls
// answered from them.
#include "linux_host/volumes.h"

#include <limits.h>
#include <stdlib.h>

#include <fstream>
#include <set>
#include <sstream>

namespace linux_host {

namespace {

// \040 (space), \011 (tab), \012 (newline) and \134 (backslash) as the
// kernel escapes them in mountinfo.
std::string unescape(const std::string& text) {
  std::string out;
  for (size_t i = 0; i < text.size(); ++i) {
    if (text[i] == '\\' && i + 3 < text.size() && text[i + 1] >= '0' && text[i + 1] <= '3' && text[i + 2] >= '0' && text[i + 2] <= '7' && text[i + 3] >= '0' &&
        text[i + 3] <= '7') {
      out += static_cast<char>((text[i + 1] - '0') * 64 + (text[i + 2] - '0') * 8 + (text[i + 3] - '0'));
      i += 3;
    } else {
      out += text[i];
    }
  }
  return out;
}

std::string readAttribute(const std::string& path) {
  std::ifstream in(path);
  std::string value;
  std::getline(in, value);
  return value;
}

}  // namespace

std::vector<MountEntry> parseMountinfo(const std::string& text) {
  std::vector<MountEntry> entries;
  std::istringstream lines(text);
  std::string line;
  while (std::getline(lines, line)) {
    std::istringstream fields(line);
    std::vector<std::string> words;
    std::string word;
    while (fields >> word) words.push_back(word);
    // At least: id parent dev root mountpoint options - fstype source
    size_t separator = 0;
    for (size_t i = 6; i < words.size(); ++i) {
      if (words[i] == "-") {
        separator = i;
        break;
      }
    }
    if (separator == 0 || separator + 2 >= words.size()) continue;
    MountEntry entry;
    const std::string& device = words[2];
    const size_t colon = device.find(':');
    if (colon == std::string::npos) continue;
    char* end = nullptr;
    entry.major = static_cast<uint32_t>(std::strtoul(device.c_str(), &end, 10));
    if (end != device.c_str() + colon) continue;
    entry.minor = static_cast<uint32_t>(std::strtoul(device.c_str() + colon + 1, &end, 10));
    if (*end != '\0') continue;
    entry.root = unescape(words[3]);
    entry.mountPoint = unescape(words[4]);
    entry.fileSystem = words[separator + 1];
    entry.source = unescape(words[separator + 2]);
    entries.push_back(entry);
  }
  return entries;
}

std::vector<HostVolume> volumesOf(const std::vector<MountEntry>& entries, const std::vector<std::string>& diskNames,
                                  const std::string& sysfsRoot) {
  std::vector<HostVolume> volumes;
  std::set<std::pair<uint32_t, uint32_t>> seen;
  char letter = 'C';
  for (const MountEntry& entry : entries) {
    if (letter > 'Z') break;
    // A device's first mount of its root names the volume; bind mounts and
    // later mounts of the same device don't add one.
    if (entry.root != "/" || !seen.insert({entry.major, entry.minor}).second) continue;
    const std::string node =
        sysfsRoot + "/dev/block/" + std::to_string(entry.major) + ":" + std::to_string(entry.minor);
    char buffer[PATH_MAX];
    if (::realpath(node.c_str(), buffer) == nullptr) continue;
    const std::string path = buffer;
    // .../block/<disk> for a whole disk, .../block/<disk>/<partition> for a partition.
    const size_t block = path.rfind("/block/");
    if (block == std::string::npos) continue;
    const std::string below = path.substr(block + 7);
    const size_t slash = below.find('/');
    const std::string diskName = below.substr(0, slash);
    uint32_t partition = 0;
    if (slash != std::string::npos) {
      partition = static_cast<uint32_t>(std::strtoul(readAttribute(path + "/partition").c_str(), nullptr, 10));
      if (partition == 0) continue;
    }
    for (size_t i = 0; i < diskNames.size(); ++i) {
      if (diskNames[i] != diskName) continue;
      HostVolume volume;
      volume.letter = letter++;
      volume.mountPoint = entry.mountPoint;
      for (char c : entry.fileSystem) volume.fileSystem += static_cast<char>(c >= 'a' && c <= 'z' ? c - 'a' + 'A' : c);
      volume.disk = i;
      volume.partition = partition;
      // sysfs counts in 512-byte units whatever the sector size.
      if (partition != 0) volume.offset = std::strtoull(readAttribute(path + "/start").c_str(), nullptr, 10) * 512;
      volume.length = std::strtoull(readAttribute(path + "/size").c_str(), nullptr, 10) * 512;
      volumes.push_back(volume);
      break;
    }
  }
  return volumes;
}

}  // namespace linux_host
