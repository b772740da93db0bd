// Reads the SCSI layer's view of its devices from sysfs (see sysfs_linux.h).
#include "transport/platform/sysfs_linux.h"

#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <climits>
#include <cstdlib>
#include <cstring>
#include <vector>

namespace {

// Reads up to `size` bytes of a file. Returns the count, or -1.
long read_attribute(const std::string& path, void* buffer, size_t size) {
  int fd = ::open(path.c_str(), O_RDONLY | O_CLOEXEC);
  if (fd < 0) return -1;
  size_t got = 0;
  while (got < size) {
    ssize_t n = ::read(fd, static_cast<char*>(buffer) + got, size - got);
    if (n <= 0) break;
    got += static_cast<size_t>(n);
  }
  ::close(fd);
  return static_cast<long>(got);
}

// A text attribute without its line end, or "" when absent.
std::string read_text(const std::string& path) {
  char text[128];
  long n = read_attribute(path, text, sizeof text - 1);
  if (n < 0) return "";
  while (n > 0 && (text[n - 1] == '\n' || text[n - 1] == '\0')) --n;
  return std::string(text, static_cast<size_t>(n));
}

bool exists(const std::string& path) {
  struct stat info;
  return ::stat(path.c_str(), &info) == 0;
}

// The names in a directory, "." and ".." left out; empty when it is missing.
std::vector<std::string> directory_names(const std::string& path) {
  std::vector<std::string> names;
  DIR* dir = ::opendir(path.c_str());
  if (dir == nullptr) return names;
  while (const dirent* entry = ::readdir(dir)) {
    if (std::strcmp(entry->d_name, ".") != 0 && std::strcmp(entry->d_name, "..") != 0) {
      names.emplace_back(entry->d_name);
    }
  }
  ::closedir(dir);
  return names;
}

// A decimal number that runs up to `end` and fits in `limit`.
bool parse_decimal(const char* text, const char** end, unsigned long limit, unsigned long* value) {
  if (*text < '0' || *text > '9') return false;
  char* stop = nullptr;
  *value = std::strtoul(text, &stop, 10);
  if (*value > limit) return false;
  *end = stop;
  return true;
}

// "H:C:T:L" with every part in 8 bits (the program addresses no wider LUNs).
bool parse_unit_name(const std::string& name, ScsiAddress* address) {
  unsigned long parts[4];
  const char* text = name.c_str();
  for (int i = 0; i < 4; ++i) {
    if (!parse_decimal(text, &text, 255, &parts[i])) return false;
    if (*text != (i < 3 ? ':' : '\0')) return false;
    if (i < 3) ++text;
  }
  *address = ScsiAddress{static_cast<uint8_t>(parts[0]), static_cast<uint8_t>(parts[1]),
                         static_cast<uint8_t>(parts[2]), static_cast<uint8_t>(parts[3])};
  return true;
}

std::string base_name(const std::string& path) {
  size_t slash = path.find_last_of('/');
  return slash == std::string::npos ? path : path.substr(slash + 1);
}

// The sg node of a unit: "scsi_generic/sgN", or the "scsi_generic:sgN" link
// of older kernels.
std::string sg_name_of(const std::string& device_dir) {
  for (const std::string& name : directory_names(device_dir + "/scsi_generic")) {
    if (name.rfind("sg", 0) == 0) return name;
  }
  for (const std::string& name : directory_names(device_dir)) {
    if (name.rfind("scsi_generic:", 0) == 0) return name.substr(13);
  }
  return "";
}

// The st driver's non-rewinding node of a unit: "scsi_tape/nstN" (the
// other names there are the rewinding node and the mode variants).
std::string tape_name_of(const std::string& device_dir) {
  for (const std::string& name : directory_names(device_dir + "/scsi_tape")) {
    if (name.size() > 3 && name.rfind("nst", 0) == 0 &&
        name.find_first_not_of("0123456789", 3) == std::string::npos) {
      return name;
    }
  }
  return "";
}

// The unit serial number of the `vpd_pg80` attribute (the page as the
// kernel read it: a 4-byte header, then the number), blanks and NULs cut.
bool serial_of(const std::string& device_dir, std::string* serial) {
  unsigned char page[256];
  const long n = read_attribute(device_dir + "/vpd_pg80", page, sizeof page);
  if (n < 4 || page[1] != 0x80) return false;
  const size_t length = std::min<size_t>((static_cast<size_t>(page[2]) << 8) | page[3], static_cast<size_t>(n) - 4);
  std::string text(reinterpret_cast<const char*>(page + 4), length);
  const size_t first = text.find_first_not_of(std::string(" \0", 2));
  if (first == std::string::npos) {
    serial->clear();
  } else {
    *serial = text.substr(first, text.find_last_not_of(std::string(" \0", 2)) + 1 - first);
  }
  return true;
}

void read_unit(const std::string& root, const ScsiAddress& address, const std::string& name,
               SysfsUnit* unit) {
  std::string dir = root_path(root, "sys/class/scsi_device/") + name + "/device";
  unit->host = address.port_number;
  unit->channel = address.path_id;
  unit->target = address.target_id;
  unit->lun = address.lun;
  std::string type = read_text(dir + "/type");
  unit->type = -1;
  unsigned long value = 0;
  const char* end = nullptr;
  if (parse_decimal(type.c_str(), &end, 0x1F, &value) && *end == '\0') unit->type = static_cast<int>(value);
  long n = read_attribute(dir + "/inquiry", unit->inquiry, sizeof unit->inquiry);
  unit->inquiry_length = n > 0 ? static_cast<uint8_t>(n) : 0;
  unit->vendor = read_text(dir + "/vendor");
  unit->model = read_text(dir + "/model");
  unit->revision = read_text(dir + "/rev");
  char link[PATH_MAX];
  ssize_t length = ::readlink((dir + "/driver").c_str(), link, sizeof link - 1);
  unit->driver = length > 0 ? base_name(std::string(link, static_cast<size_t>(length))) : "";
  unit->sg_name = sg_name_of(dir);
  unit->tape_name = tape_name_of(dir);
  unit->serial_known = serial_of(dir, &unit->serial);
  if (!unit->serial_known) unit->serial.clear();
}

}  // namespace

std::string root_path(const std::string& root, const char* relative) {
  std::string path = root.empty() ? "/" : root;
  if (path.back() != '/') path += '/';
  return path + relative;
}

bool sysfs_adapter_present(const std::string& root, unsigned host) {
  if (exists(root_path(root, "sys/class/scsi_host/host") + std::to_string(host))) return true;
  std::string prefix = std::to_string(host) + ":";
  for (const std::string& name : directory_names(root_path(root, "sys/class/scsi_device"))) {
    if (name.rfind(prefix, 0) == 0) return true;
  }
  return false;
}

unsigned sysfs_adapter_units(const std::string& root, unsigned host, SysfsUnit* units,
                             unsigned capacity) {
  std::vector<std::pair<ScsiAddress, std::string>> found;
  for (const std::string& name : directory_names(root_path(root, "sys/class/scsi_device"))) {
    ScsiAddress address;
    if (parse_unit_name(name, &address) && address.port_number == host) found.emplace_back(address, name);
  }
  auto key = [](const ScsiAddress& a) { return (a.path_id << 16) | (a.target_id << 8) | a.lun; };
  std::sort(found.begin(), found.end(),
            [&](const auto& a, const auto& b) { return key(a.first) < key(b.first); });
  unsigned count = 0;
  for (const auto& [address, name] : found) {
    if (count == capacity) break;
    read_unit(root, address, name, &units[count++]);
  }
  return count;
}

bool sysfs_unit(const std::string& root, const ScsiAddress& address, SysfsUnit* unit) {
  std::string name = std::to_string(address.port_number) + ":" + std::to_string(address.path_id) +
                     ":" + std::to_string(address.target_id) + ":" + std::to_string(address.lun);
  if (!exists(root_path(root, "sys/class/scsi_device/") + name)) return false;
  read_unit(root, address, name, unit);
  return true;
}

std::vector<std::string> sysfs_lasting_names(const std::string& root, const std::string& node_name) {
  std::vector<std::string> names;
  if (node_name.empty()) return names;
  const std::string dir = root_path(root, "dev/tape/by-id/");
  for (const std::string& name : directory_names(dir)) {
    char link[PATH_MAX];
    const ssize_t length = ::readlink((dir + name).c_str(), link, sizeof link - 1);
    if (length > 0 && base_name(std::string(link, static_cast<size_t>(length))) == node_name) {
      names.push_back("/dev/tape/by-id/" + name);
    }
  }
  std::sort(names.begin(), names.end());
  return names;
}

SysfsTape sysfs_tape(const std::string& root, unsigned tape_number, ScsiAddress* address) {
  std::string entry = root_path(root, "sys/class/scsi_tape/nst") + std::to_string(tape_number);
  if (!exists(entry)) return SysfsTape::missing;
  // The `device` link leads to the unit's directory, named H:C:T:L.
  char resolved[PATH_MAX];
  if (::realpath((entry + "/device").c_str(), resolved) == nullptr) return SysfsTape::address_unknown;
  return parse_unit_name(base_name(resolved), address) ? SysfsTape::found : SysfsTape::address_unknown;
}

namespace {

// A decimal attribute that fits in 32 bits, or 0.
uint32_t read_count(const std::string& path) {
  std::string text = read_text(path);
  unsigned long value = 0;
  const char* end = nullptr;
  if (!parse_decimal(text.c_str(), &end, 0xFFFFFFFFul, &value) || *end != '\0') return 0;
  return static_cast<uint32_t>(value);
}

}  // namespace

void sysfs_host_limits(const std::string& root, unsigned host, SysfsHostLimits* limits) {
  *limits = SysfsHostLimits{};
  const std::string host_dir = root_path(root, "sys/class/scsi_host/host") + std::to_string(host);
  limits->max_segments = read_count(host_dir + "/sg_tablesize");
  const uint32_t sectors = read_count(host_dir + "/max_sectors");
  if (sectors != 0 && sectors <= 0xFFFFFFFFu / 512) {
    limits->max_transfer_bytes = sectors * 512;
    limits->source = "host max_sectors";
    return;
  }
  const std::string prefix = std::to_string(host) + ":";
  const std::string devices = root_path(root, "sys/class/scsi_device/");
  std::vector<std::string> names = directory_names(devices);
  std::sort(names.begin(), names.end());
  for (const std::string& name : names) {
    if (name.rfind(prefix, 0) != 0) continue;
    for (const std::string& disk : directory_names(devices + name + "/device/block")) {
      const std::string queue = devices + name + "/device/block/" + disk + "/queue";
      const uint32_t kb = read_count(queue + "/max_hw_sectors_kb");
      if (kb == 0 || kb > 0xFFFFFFFFu / 1024) continue;
      limits->max_transfer_bytes = kb * 1024;
      limits->source = "max_hw_sectors_kb of " + disk;
      if (limits->max_segments == 0) limits->max_segments = read_count(queue + "/max_segments");
      return;
    }
  }
}
