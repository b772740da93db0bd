// `/list`: every tape drive and medium changer that the active platform's
// scan finds (the device table, built as setup builds it), each with its
// identity, its device nodes and the options that address it; with `/json`
// one `device` record each. Nothing is written to a unit: a platform that
// knows a unit's identity tells it without a command (Linux: sysfs), any
// other unit is asked Inquiry and VPD page 80h, and no handle stays open
// between units. Main thread only.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "transport/platform/platform.h"

struct ListedUnit {
  ScsiAddress address;  // adapter, bus, SCSI id, LUN
  uint8_t device_type;  // 01h tape drive, 08h medium changer
  UnitAccess access;
  std::string vendor, product, revision;  // Inquiry texts, trailing blanks cut
  bool serial_known;
  std::string serial;
  std::vector<std::string> nodes;  // the system's names for the unit
  std::string url;                 // the iSCSI URL that reaches it (iSCSI platform only)
};

// The tape drives and medium changers of the active platform, in the order
// of its scan. The transport must be started (it scanned the devices).
std::vector<ListedUnit> list_units();

// The options that address the unit: "/hanum 2 /bus 0 /tid 4 /lun 0" for a
// drive, "/changer 2 0 4 1" for a changer; over iSCSI "/iscsi <url>" and
// "/changer <url>".
std::string addressing_options(const ListedUnit& unit);

// The unit's line of the listing ("free", "in use", "no access" for the
// access), and the heading above the lines; columns as wide as `units` need.
std::vector<std::string> listing_lines(const std::vector<ListedUnit>& units);

// One `device` record per unit in the results file, when one is open.
void write_device_records(const std::vector<ListedUnit>& units);
