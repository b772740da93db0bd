// Linux platform: SCSI devices found in sysfs, commands sent with the SCSI
// generic driver's SG_IO ioctl.
//
// Device names map onto Linux as follows:
//   "\\.\ScsiH:"  adapter H (sys/class/scsi_host/hostH). Commands through it
//                 go to /dev/sgN of the addressed unit, opened exclusively
//                 (O_EXCL) at its first command and kept open until the
//                 adapter handle is closed.
//   "\\.\TapeN"   the st driver's non-rewinding node /dev/nstN; commands go
//                 through SG_IO on that node. The st driver lets one process
//                 open a tape at a time, so the open itself is exclusive.
// The adapter's inquiry data lists a tape that no class driver claims (no
// st) only when its sg node can be opened for exclusive use, so that a unit
// the program cannot reach is not registered and the run says "unable to
// access tape drive" for it, with the reason in describe_last_error.
// A medium changer is always reached through its sg node, whether the ch
// driver is bound or not (ch keeps no state that the program's commands
// would upset), so it is listed as unclaimed whenever it has an sg node; it
// is not opened to check it, because another process may hold it for a
// moment (a library shared by several drives) and the program waits for it
// at its first command.
#include <fcntl.h>
#include <sys/ioctl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#include "console/log_output.h"
#include "scsi/operation_codes.h"
#include "transport/platform/platform.h"
#include "transport/platform/platform_linux.h"
#include "transport/platform/sg_io_linux.h"
#include "transport/platform/sysfs_linux.h"

namespace {

constexpr int kMediumChangerType = 0x08;

int real_open(const char* path, int flags) { return ::open(path, flags); }
int real_close(int fd) { return ::close(fd); }
int real_ioctl(int fd, unsigned long request, void* argument) { return ::ioctl(fd, request, argument); }

// The name of the group that owns `path`, from /etc/group itself: device
// nodes belong to local system groups, and a statically linked program has
// no glibc name service modules to ask.
bool real_node_group(const char* path, char* name, size_t size) {
  struct stat info;
  if (::stat(path, &info) != 0) return false;
  FILE* groups = std::fopen("/etc/group", "re");
  if (groups == nullptr) return false;
  char* line = nullptr;
  size_t capacity = 0;
  bool found = false;
  while (!found && ::getline(&line, &capacity, groups) > 0) {
    // name:password:GID:members
    char* password = std::strchr(line, ':');
    char* id = password != nullptr ? std::strchr(password + 1, ':') : nullptr;
    if (id == nullptr || id[1] < '0' || id[1] > '9') continue;
    char* end = nullptr;
    const unsigned long gid = std::strtoul(id + 1, &end, 10);
    if (*end != ':' || gid != info.st_gid) continue;
    *password = '\0';
    std::snprintf(name, size, "%s", line);
    found = true;
  }
  std::free(line);
  std::fclose(groups);
  return found;
}

const LinuxSystem kRealSystem = {real_open, real_close, real_ioctl, real_node_group};

const LinuxSystem* sys = &kRealSystem;
std::string root = "/";
char note[512];  // operator advice about the last failed open of a device node

// A device node below the root, and the same node as the operator knows it.
struct NodePath {
  std::string actual;
  std::string shown;
};

NodePath node_path(const std::string& name) {
  return {root_path(root, ("dev/" + name).c_str()), "/dev/" + name};
}

std::string address_text(const ScsiAddress& a) {
  return std::to_string(a.port_number) + ":" + std::to_string(a.path_id) + ":" +
         std::to_string(a.target_id) + ":" + std::to_string(a.lun);
}

void BFT_PRINTF_FORMAT(1, 2) set_note(const char* format, ...) {
  va_list args;
  va_start(args, format);
  std::vsnprintf(note, sizeof note, format, args);
  va_end(args);
}

// Explains why `node` (the unit at `address`) could not be opened.
void note_open_failure(const NodePath& node, const ScsiAddress& address, int error) {
  const std::string where = node.shown + " (SCSI address " + address_text(address) + ")";
  if (error == EACCES || error == EPERM) {
    char group_name[64];
    if (sys->node_group(node.actual.c_str(), group_name, sizeof group_name) &&
        std::strcmp(group_name, "root") != 0) {
      set_note("Cannot open %s: permission denied. Run bftdtest as root, or as a member of group "
               "\"%s\" (the group that owns %s) with the CAP_SYS_RAWIO capability.",
               where.c_str(), group_name, node.shown.c_str());
    } else {
      set_note("Cannot open %s: permission denied. Run bftdtest as root.", where.c_str());
    }
  } else if (error == EBUSY) {
    set_note("Cannot open %s: the device is in use by another process.", where.c_str());
  } else if (error == ENOENT) {
    set_note("Cannot open %s: the device node does not exist.", where.c_str());
  } else {
    set_note("Cannot open %s: %s.", where.c_str(), std::strerror(error));
  }
}

// ---- handles ---------------------------------------------------------------

struct UnitNode {
  ScsiAddress address;
  int fd;
};

struct LinuxHandle {
  bool used;
  bool is_tape;
  uint8_t adapter;               // adapter handles
  std::vector<UnitNode> units;   // adapter handles: sg nodes opened so far
  int fd;                        // tape handles: the nstN node
  bool address_known;            // tape handles
  ScsiAddress address;           // tape handles
};

constexpr size_t kMaxHandles = 64;
LinuxHandle handles[kMaxHandles];

LinuxHandle* handle_record(PlatformHandle handle) {
  if (handle < 0 || static_cast<size_t>(handle) >= kMaxHandles || !handles[handle].used) return nullptr;
  return &handles[handle];
}

// Closes the record's nodes and frees its slot. No memory is given back: the
// CTRL-C handler closes handles while the test thread may still be running.
void release(LinuxHandle& record) {
  for (UnitNode& unit : record.units) sys->close(unit.fd);
  record.units.clear();
  if (record.is_tape && record.fd >= 0) sys->close(record.fd);
  record.fd = -1;
  record.used = false;
}

// "\\.\Scsi3:" -> adapter 3, "\\.\Tape0" -> tape 0 (however many backslashes
// the caller's spelling has).
bool parse_device_name(const char* name, bool* is_tape, unsigned* number) {
  const char* last = std::strrchr(name, '\\');
  const char* text = last != nullptr ? last + 1 : name;
  if (std::strncmp(text, "Scsi", 4) == 0) {
    *is_tape = false;
  } else if (std::strncmp(text, "Tape", 4) == 0) {
    *is_tape = true;
  } else {
    return false;
  }
  text += 4;
  if (*text < '0' || *text > '9') return false;
  char* end = nullptr;
  unsigned long value = std::strtoul(text, &end, 10);
  if (value > 254 || std::strcmp(end, *is_tape ? "" : ":") != 0) return false;
  *number = static_cast<unsigned>(value);
  return true;
}

// Opens the st node of tape N. A write-protected cartridge makes st refuse a
// read-write open (EROFS); the node is then opened read-only so that the drive
// itself reports the write protection on the first write.
int open_tape_node(const NodePath& node) {
  int fd = sys->open(node.actual.c_str(), O_RDWR | O_NONBLOCK | O_CLOEXEC);
  if (fd < 0 && errno == EROFS) fd = sys->open(node.actual.c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC);
  return fd;
}

int open_sg_exclusive(const NodePath& node) {
  return sys->open(node.actual.c_str(), O_RDWR | O_EXCL | O_NONBLOCK | O_CLOEXEC);
}

uint32_t open_device(const char* device_name, PlatformHandle* handle) {
  *handle = kInvalidPlatformHandle;
  bool is_tape = false;
  unsigned number = 0;
  if (!parse_device_name(device_name, &is_tape, &number)) return kErrorNotFound;

  LinuxHandle record{};
  record.used = true;
  record.is_tape = is_tape;
  record.fd = -1;
  if (is_tape) {
    SysfsTape found = sysfs_tape(root, number, &record.address);
    if (found == SysfsTape::missing) return kErrorNotFound;
    record.address_known = found == SysfsTape::found;
    NodePath node = node_path("nst" + std::to_string(number));
    record.fd = open_tape_node(node);
    if (record.fd < 0) {
      const int error = errno;
      note_open_failure(node, record.address, error);
      return win32_error_code(LinuxErrorSource::errno_value, error);
    }
  } else {
    if (!sysfs_adapter_present(root, number)) return kErrorNotFound;
    record.adapter = static_cast<uint8_t>(number);
  }
  for (size_t slot = 0; slot < kMaxHandles; ++slot) {
    if (!handles[slot].used) {
      handles[slot] = std::move(record);
      *handle = static_cast<PlatformHandle>(slot);
      return kErrorNone;
    }
  }
  if (record.fd >= 0) sys->close(record.fd);
  return win32_error_code(LinuxErrorSource::errno_value, EMFILE);
}

void close_device(PlatformHandle handle) {
  if (LinuxHandle* record = handle_record(handle)) release(*record);
}

// ---- discovery -------------------------------------------------------------

// Standard INQUIRY (255 bytes) through SG_IO on a shared open of the sg node,
// for kernels without the sysfs `inquiry` attribute. Returns the bytes kept.
uint8_t inquire_through_sg(const std::string& sg_name, uint8_t* inquiry, size_t size) {
  int fd = sys->open(node_path(sg_name).actual.c_str(), O_RDWR | O_NONBLOCK | O_CLOEXEC);
  if (fd < 0) return 0;
  uint8_t data[256] = {};
  uint8_t sense[kSenseAreaSize] = {};
  PassThroughRequest request{};
  request.cdb_length = 6;
  request.cdb[0] = kOpInquiry;  // allocation length 255
  request.cdb[4] = 0xFF;
  request.direction = DataDirection::in;
  request.data = data;
  request.data_length = 255;
  request.timeout_seconds = 30;
  request.sense = sense;
  sg_io_hdr_t header;
  uint8_t cdb[16];
  fill_sg_io_header(request, &header, cdb);
  PassThroughReply reply{};
  const bool sent = sys->ioctl(fd, SG_IO, &header) == 0;
  sys->close(fd);
  if (!sent) return 0;
  read_sg_io_answer(header, reply);
  if (reply.error != kErrorNone || reply.scsi_status != 0 || reply.transferred_length == 0) return 0;
  const size_t kept = reply.transferred_length < size ? reply.transferred_length : size;
  std::memcpy(inquiry, data, kept);
  return static_cast<uint8_t>(kept);
}

// Inquiry data made of the sysfs attributes when no other source answered:
// the peripheral type, version fields zero, and the identification texts.
uint8_t inquiry_from_attributes(const SysfsUnit& unit, uint8_t* inquiry) {
  std::memset(inquiry, ' ', 36);
  std::memset(inquiry, 0, 8);
  inquiry[0] = static_cast<uint8_t>(unit.type);
  inquiry[4] = 31;  // additional length of a 36-byte answer
  std::memcpy(inquiry + 8, unit.vendor.data(), unit.vendor.size() < 8 ? unit.vendor.size() : 8);
  std::memcpy(inquiry + 16, unit.model.data(), unit.model.size() < 16 ? unit.model.size() : 16);
  std::memcpy(inquiry + 32, unit.revision.data(), unit.revision.size() < 4 ? unit.revision.size() : 4);
  return 36;
}

// True when one of this process's adapter handles has the unit's sg node open.
bool held_here(const ScsiAddress& address) {
  for (const LinuxHandle& record : handles) {
    if (!record.used || record.is_tape || record.adapter != address.port_number) continue;
    for (const UnitNode& unit : record.units) {
      if (unit.address.path_id == address.path_id && unit.address.target_id == address.target_id &&
          unit.address.lun == address.lun) {
        return true;
      }
    }
  }
  return false;
}

// True when the unclaimed unit's sg node can be had for exclusive use now (or
// this process already has it).
bool unclaimed_unit_reachable(const SysfsUnit& unit) {
  const ScsiAddress address{unit.host, unit.channel, unit.target, unit.lun};
  if (held_here(address)) return true;
  if (unit.sg_name.empty()) {
    set_note("The SCSI generic driver has no node for SCSI address %s; load it with \"modprobe sg\".",
             address_text(address).c_str());
    return false;
  }
  const NodePath node = node_path(unit.sg_name);
  int fd = open_sg_exclusive(node);
  if (fd < 0) {
    note_open_failure(node, address, errno);
    return false;
  }
  sys->close(fd);
  return true;
}

int query_adapter(PlatformHandle adapter, AdapterInquiry* inquiry) {
  const LinuxHandle* record = handle_record(adapter);
  if (record == nullptr || record->is_tape) return -1;
  static SysfsUnit units[kMaxUnitsPerAdapter];
  const unsigned count = sysfs_adapter_units(root, record->adapter, units, kMaxUnitsPerAdapter);
  inquiry->bus_count = 1;
  inquiry->unit_count = 0;
  for (unsigned i = 0; i < count; ++i) {
    const SysfsUnit& unit = units[i];
    if (unit.channel >= inquiry->bus_count) inquiry->bus_count = static_cast<uint8_t>(unit.channel + 1);
    LogicalUnitInfo& info = inquiry->units[inquiry->unit_count];
    info = LogicalUnitInfo{unit.channel, unit.target, unit.lun, 0, 0, {}};
    if (unit.inquiry_length > 0) {
      info.inquiry_length = unit.inquiry_length;
      std::memcpy(info.inquiry, unit.inquiry, unit.inquiry_length);
    } else if (!unit.sg_name.empty()) {
      info.inquiry_length = inquire_through_sg(unit.sg_name, info.inquiry, sizeof info.inquiry);
    }
    if (info.inquiry_length == 0) {
      if (unit.type < 0) continue;  // nothing tells what the unit is
      info.inquiry_length = inquiry_from_attributes(unit, info.inquiry);
    }
    const int type = info.inquiry[0] & 0x1F;
    if (type == kMediumChangerType) {
      if (unit.sg_name.empty()) {
        set_note("The SCSI generic driver has no node for the changer at SCSI address %s; load it with "
                 "\"modprobe sg\".",
                 address_text(ScsiAddress{unit.host, unit.channel, unit.target, unit.lun}).c_str());
        continue;
      }
    } else {
      info.claimed = unit_claimed(unit) ? 1 : 0;
      if (!info.claimed && type == 1 && !unclaimed_unit_reachable(unit)) continue;
    }
    ++inquiry->unit_count;
  }
  return 0;
}

int query_tape_address(PlatformHandle tape, ScsiAddress* address) {
  const LinuxHandle* record = handle_record(tape);
  if (record == nullptr || !record->is_tape || !record->address_known) return -1;
  *address = record->address;
  return 0;
}

// ---- commands --------------------------------------------------------------

// The sg node of the addressed unit of an adapter, opened on its first
// command. Returns the descriptor, or -1 with the Win32-style code in `error`.
int unit_descriptor(LinuxHandle& record, const PassThroughRequest& request, uint32_t* error) {
  const ScsiAddress address{record.adapter, request.path_id, request.target_id, request.lun};
  for (const UnitNode& unit : record.units) {
    if (unit.address.path_id == address.path_id && unit.address.target_id == address.target_id &&
        unit.address.lun == address.lun) {
      return unit.fd;
    }
  }
  SysfsUnit unit;
  if (!sysfs_unit(root, address, &unit) || unit.sg_name.empty()) {
    *error = kErrorNotFound;
    return -1;
  }
  const NodePath node = node_path(unit.sg_name);
  int fd = open_sg_exclusive(node);
  if (fd < 0) {
    const int open_error = errno;
    note_open_failure(node, address, open_error);
    *error = win32_error_code(LinuxErrorSource::errno_value, open_error);
    return -1;
  }
  record.units.push_back(UnitNode{address, fd});
  return fd;
}

void pass_through(PlatformHandle device, const PassThroughRequest& request, PassThroughReply& reply) {
  reply = PassThroughReply{};
  LinuxHandle* record = handle_record(device);
  if (record == nullptr) {
    reply.error = kErrorNotFound;
    return;
  }
  if (request.cdb_length == 0 || request.cdb_length > 16) {
    reply.error = kErrorInvalidParameter;
    return;
  }
  int fd = record->fd;
  if (!record->is_tape) {
    fd = unit_descriptor(*record, request, &reply.error);
    if (fd < 0) return;
  }
  sg_io_hdr_t header;
  uint8_t cdb[16];
  fill_sg_io_header(request, &header, cdb);
  if (sys->ioctl(fd, SG_IO, &header) != 0) {
    reply.error = win32_error_code(LinuxErrorSource::errno_value, errno);
    return;
  }
  read_sg_io_answer(header, reply);
}

const char* describe_last_error() { return note[0] != '\0' ? note : nullptr; }

int device_node(const char* device_name, const ScsiAddress& unit, char* text, unsigned size) {
  bool is_tape = false;
  unsigned number = 0;
  if (!parse_device_name(device_name, &is_tape, &number)) return -1;
  std::string name = "nst" + std::to_string(number);
  if (!is_tape) {
    SysfsUnit found;
    if (!sysfs_unit(root, ScsiAddress{static_cast<uint8_t>(number), unit.path_id, unit.target_id, unit.lun},
                    &found) ||
        found.sg_name.empty()) {
      return -1;
    }
    name = found.sg_name;
  }
  std::snprintf(text, size, "%s", node_path(name).shown.c_str());
  return 0;
}

// How the program would reach the unit: the st node of a tape that st
// drives, else the sg node for exclusive use. Opened and closed at once to
// learn whether another process holds it; nothing is sent.
UnitAccess unit_access(const SysfsUnit& unit) {
  const ScsiAddress address{unit.host, unit.channel, unit.target, unit.lun};
  if (held_here(address)) return UnitAccess::free;
  const bool through_st = !unit.tape_name.empty() && unit.driver == "st";
  if (!through_st && unit.sg_name.empty()) return UnitAccess::no_access;
  const NodePath node = node_path(through_st ? unit.tape_name : unit.sg_name);
  const int fd = through_st ? sys->open(node.actual.c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC)
                            : open_sg_exclusive(node);
  if (fd >= 0) {
    sys->close(fd);
    return UnitAccess::free;
  }
  return errno == EBUSY ? UnitAccess::in_use : UnitAccess::no_access;
}

// The unit's identity as the kernel read it at its scan (`inquiry`,
// `vpd_pg80`), its nodes and whether it is free.
int unit_facts(const ScsiAddress& address, UnitFacts* facts) {
  SysfsUnit unit;
  if (!sysfs_unit(root, address, &unit)) return -1;
  *facts = UnitFacts{};
  if (unit.inquiry_length > 0) {
    facts->inquiry_length = unit.inquiry_length;
    std::memcpy(facts->inquiry, unit.inquiry, unit.inquiry_length);
  } else if (unit.type >= 0) {
    facts->inquiry_length = inquiry_from_attributes(unit, facts->inquiry);
  }
  facts->serial_known = unit.serial_known;
  std::snprintf(facts->serial, sizeof facts->serial, "%s", unit.serial.c_str());
  std::vector<std::string> nodes;
  for (const std::string* name : {&unit.tape_name, &unit.sg_name}) {
    if (!name->empty()) nodes.push_back(node_path(*name).shown);
  }
  for (const std::string* name : {&unit.tape_name, &unit.sg_name}) {
    for (std::string& lasting : sysfs_lasting_names(root, *name)) nodes.push_back(std::move(lasting));
  }
  for (const std::string& node : nodes) {
    if (facts->node_count == kMaxUnitNodes) break;
    std::snprintf(facts->nodes[facts->node_count++], sizeof facts->nodes[0], "%s", node.c_str());
  }
  facts->access = unit_access(unit);
  return 0;
}

// The host's limits from sysfs, and through an sg node the reserved buffer
// (SG_GET_RESERVED_SIZE: the kernel caps it at the host's max sectors).
int query_transfer_limits(PlatformHandle device, const ScsiAddress& unit, TransferLimits* limits) {
  LinuxHandle* record = handle_record(device);
  if (record == nullptr) return -1;
  *limits = TransferLimits{};
  ScsiAddress address{record->adapter, unit.path_id, unit.target_id, unit.lun};
  if (record->is_tape) {
    if (!record->address_known) return -1;
    address = record->address;
  }
  SysfsHostLimits host;
  sysfs_host_limits(root, address.port_number, &host);
  limits->max_transfer_bytes = host.max_transfer_bytes;
  limits->max_segments = host.max_segments;
  std::snprintf(limits->source, sizeof limits->source, "%s", host.source.c_str());
  if (!record->is_tape) {
    PassThroughRequest request{};
    request.path_id = address.path_id;
    request.target_id = address.target_id;
    request.lun = address.lun;
    uint32_t error = 0;
    const int fd = unit_descriptor(*record, request, &error);
    int reserved = 0;
    if (fd >= 0 && sys->ioctl(fd, SG_GET_RESERVED_SIZE, &reserved) == 0 && reserved > 0) {
      limits->reserved_bytes = static_cast<uint32_t>(reserved);
    }
  }
  const bool known = limits->max_transfer_bytes != 0 || limits->max_segments != 0 || limits->reserved_bytes != 0;
  return known ? 0 : -1;
}

const Platform kLinuxPlatform = {"linux-sg",   open_device,  query_adapter,       query_tape_address,
                                 pass_through, close_device, describe_last_error, device_node,
                                 query_transfer_limits, nullptr, unit_facts};

}  // namespace

const Platform* native_platform() { return &kLinuxPlatform; }

const LinuxSystem& real_linux_system() { return kRealSystem; }

void set_linux_system(const LinuxSystem* system) { sys = system != nullptr ? system : &kRealSystem; }

void set_linux_root(const char* directory) {
  root = directory != nullptr && directory[0] != '\0' ? directory : "/";
}

void reset_linux_platform() {
  for (LinuxHandle& record : handles) {
    if (record.used) release(record);
  }
  note[0] = '\0';
  sys = &kRealSystem;
  root.assign(1, '/');  // not `= "/"`: GCC 12 at -O3 reports a false -Wrestrict there
}
