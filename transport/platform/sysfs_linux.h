// What the Linux SCSI layer tells about its devices through sysfs, read below a
// root directory ("/" in a real run, a fake tree in tests):
//   sys/class/scsi_host/hostH                 adapter H
//   sys/class/scsi_device/H:C:T:L/device/     one logical unit: `type`,
//       `inquiry`, `vendor`, `model`, `rev`, the `driver` link of the class
//       driver bound to it, and `scsi_generic/sgN` (its SCSI generic node)
//   sys/class/scsi_tape/nstN/device           the unit behind tape device N
//   dev/tape/by-id/                           udev's lasting names of tape and
//                                             changer nodes (links to ../../nstN, ../../sgN)
// A machine without a SCSI layer has none of these directories; every lookup
// then finds nothing, without a message.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "transport/platform/platform.h"

struct SysfsUnit {
  uint8_t host;
  uint8_t channel;  // bus (path id)
  uint8_t target;
  uint8_t lun;
  int type;              // peripheral device type from `type`; -1 when absent
  uint8_t inquiry_length;  // bytes of the `inquiry` attribute kept; 0 when absent
  uint8_t inquiry[36];
  std::string vendor, model, revision;  // the text attributes, blanks kept
  std::string driver;    // name of the bound driver ("st", "ch", "sd"...), or empty
  std::string sg_name;   // "sg3", or empty when the sg driver has no node for it
  std::string tape_name;  // "nst0", the st driver's non-rewinding node; empty when st has none
  std::string serial;     // the `vpd_pg80` attribute's unit serial number, blanks cut
  bool serial_known;      // the kernel read VPD page 80h
};

// `root` joined with a path relative to it ("sys/...", "dev/...").
std::string root_path(const std::string& root, const char* relative);

// True when adapter `host` exists: its scsi_host entry or any unit on it.
bool sysfs_adapter_present(const std::string& root, unsigned host);

// Every unit of adapter `host` whose bus, id and LUN fit in 8 bits, in bus,
// id, LUN order, at most `capacity` of them. Returns how many were written.
unsigned sysfs_adapter_units(const std::string& root, unsigned host, SysfsUnit* units,
                             unsigned capacity);

// The unit at H:C:T:L. Returns false when there is none.
bool sysfs_unit(const std::string& root, const ScsiAddress& address, SysfsUnit* unit);

// Tape device N of the st driver (the node nstN).
enum class SysfsTape { missing, found, address_unknown };
SysfsTape sysfs_tape(const std::string& root, unsigned tape_number, ScsiAddress* address);

// The names in dev/tape/by-id that lead to the node `node_name` ("nst0",
// "sg3"), as "/dev/tape/by-id/<name>", sorted.
std::vector<std::string> sysfs_lasting_names(const std::string& root, const std::string& node_name);

// A unit is claimed when a class driver other than sg is bound to it.
inline bool unit_claimed(const SysfsUnit& unit) { return !unit.driver.empty() && unit.driver != "sg"; }

// What sysfs tells about the transfer limits of adapter `host`: the host's
// own `max_sectors` (512-byte sectors; not every driver shows it) and
// `sg_tablesize`, else the block queue of a disk on the same host, whose
// `max_hw_sectors_kb` and `max_segments` come from the same host limits.
// Unknown values are 0; `source` names the attribute the bytes came from.
struct SysfsHostLimits {
  uint32_t max_transfer_bytes;
  uint32_t max_segments;
  std::string source;
};
void sysfs_host_limits(const std::string& root, unsigned host, SysfsHostLimits* limits);
