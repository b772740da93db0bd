#include "run/device_list.h"

#include <algorithm>
#include <cstdio>
#include <cstring>

#include "console/text_layout.h"
#include "os/os.h"
#include "results/results_file.h"
#include "run/run_result.h"
#include "tape/command_blocks.h"
#include "transport/command_buffers.h"
#include "transport/device_table.h"
#include "transport/scsi_transport.h"

namespace {

constexpr uint8_t kTapeDrive = 0x01;
constexpr uint8_t kMediumChanger = 0x08;
constexpr uint8_t kInquiryLength = 36;

void take_identity(const uint8_t* inquiry, ListedUnit* unit) {
  unit->vendor = inquiry_text(inquiry, 8, 8);
  unit->product = inquiry_text(inquiry, 16, 16);
  unit->revision = inquiry_text(inquiry, 32, 4);
}

// Asks the unit itself: Inquiry for its identity (a unit attention answered
// once is asked again) and VPD page 80h for its serial number.
void ask_unit(ListedUnit* unit) {
  set_unit_address(unit->address.port_number, unit->address.path_id, unit->address.target_id,
                   unit->address.lun);
  for (int attempt = 0; attempt < 2; ++attempt) {
    scsi_inquiry(kInquiryLength);
    if (!command_failed()) break;
  }
  const ScsiResult& result = scsi_transport.result;
  if (result.srb_status == kSrbStatusNoHandle || result.win32_error == kErrorSharingViolation) {
    unit->access = result.win32_error == kErrorSharingViolation ? UnitAccess::in_use : UnitAccess::no_access;
    return;
  }
  if (command_failed()) return;  // the adapter's data stands
  take_identity(inquiry_buffer, unit);
  unit->serial_known = unit_serial_number(&unit->serial);
}

const char* type_word(uint8_t device_type) { return device_type == kMediumChanger ? "changer" : "tape"; }

const char* access_word(UnitAccess access) {
  switch (access) {
    case UnitAccess::free: return "free";
    case UnitAccess::in_use: return "in use";
    default: return "no access";
  }
}

std::string or_dash(const std::string& text) { return text.empty() ? "-" : text; }

}  // namespace

std::vector<ListedUnit> list_units() {
  const Platform& platform = active_platform();
  std::vector<ListedUnit> units;
  for (unsigned slot = 0; slot < device_count; ++slot) {
    const DeviceEntry& entry = device_table[slot];
    if (entry.device_type != kTapeDrive && entry.device_type != kMediumChanger) continue;
    ListedUnit unit{};
    unit.address = ScsiAddress{entry.adapter, entry.bus, entry.target_id, entry.lun};
    unit.device_type = entry.device_type;
    take_identity(entry.inquiry, &unit);
    UnitFacts facts{};
    if (platform.unit_facts != nullptr && platform.unit_facts(unit.address, &facts) == 0) {
      if (facts.inquiry_length >= kInquiryLength) take_identity(facts.inquiry, &unit);
      unit.serial_known = facts.serial_known;
      if (facts.serial_known) unit.serial = facts.serial;
      for (unsigned i = 0; i < facts.node_count && i < kMaxUnitNodes; ++i) unit.nodes.emplace_back(facts.nodes[i]);
      unit.access = facts.access;
      // What the system did not read, the unit tells, when it is free.
      if (unit.access == UnitAccess::free && entry.record != nullptr && !unit.serial_known) ask_unit(&unit);
    } else if (entry.record == nullptr) {
      // A unit that a class driver claims and whose device could not be
      // opened at the scan: the system's tape device is held.
      unit.access = UnitAccess::in_use;
    } else {
      unit.access = UnitAccess::free;
      char node[160];
      const bool named = platform.device_node != nullptr &&
                         platform.device_node(entry.record->name, unit.address, node, sizeof node) == 0;
      // An iSCSI unit's name is the URL that reaches it: the options carry it.
      if (named && std::strncmp(node, "iscsi://", 8) == 0) {
        unit.url = node;
      } else {
        unit.nodes.emplace_back(named ? node : entry.record->name);
      }
      ask_unit(&unit);
    }
    close_device_handles();  // nothing stays held between units
    units.push_back(std::move(unit));
  }
  return units;
}

std::string addressing_options(const ListedUnit& unit) {
  const ScsiAddress& a = unit.address;
  if (!unit.url.empty()) return (unit.device_type == kMediumChanger ? "/changer " : "/iscsi ") + unit.url;
  char text[64];
  if (unit.device_type == kMediumChanger) {
    std::snprintf(text, sizeof text, "/changer %u %u %u %u", a.port_number, a.path_id, a.target_id, a.lun);
  } else {
    std::snprintf(text, sizeof text, "/hanum %u /bus %u /tid %u /lun %u", a.port_number, a.path_id, a.target_id,
                  a.lun);
  }
  return text;
}

std::vector<std::string> listing_lines(const std::vector<ListedUnit>& units) {
  constexpr unsigned kColumns = 12;
  const char* const headings[kColumns] = {"hanum", "bus",    "tid",   "lun",   "type",  "vendor",
                                          "product", "revision", "serial", "state", "nodes", "options"};
  const bool right[kColumns] = {true, true, true, true, false, false, false, false, false, false, false, false};
  std::vector<std::vector<std::string>> rows;
  rows.emplace_back(headings, headings + kColumns);
  for (const ListedUnit& unit : units) {
    std::string nodes;
    for (const std::string& node : unit.nodes) nodes += (nodes.empty() ? "" : " ") + node;
    const ScsiAddress& a = unit.address;
    rows.push_back({std::to_string(a.port_number), std::to_string(a.path_id), std::to_string(a.target_id),
                    std::to_string(a.lun), type_word(unit.device_type), or_dash(unit.vendor), or_dash(unit.product),
                    or_dash(unit.revision), unit.serial_known ? or_dash(unit.serial) : "-",
                    access_word(unit.access), or_dash(nodes), addressing_options(unit)});
  }
  size_t widths[kColumns] = {};
  for (const auto& row : rows) widen_columns(row.data(), widths, kColumns);
  std::vector<std::string> lines;
  for (const auto& row : rows) lines.push_back(table_line(row.data(), widths, right, kColumns));
  return lines;
}

void write_device_records(const std::vector<ListedUnit>& units) {
  if (!results_enabled()) return;
  char host[256];
  const bool host_known = os_host_name(host, sizeof host) == 0;
  for (const ListedUnit& unit : units) {
    results_begin("device");
    results_text("host", host_known ? host : nullptr);
    results_text("platform", active_platform().name);
    results_text("type", type_word(unit.device_type));
    results_unsigned("hanum", unit.address.port_number);
    results_unsigned("bus", unit.address.path_id);
    results_unsigned("tid", unit.address.target_id);
    results_unsigned("lun", unit.address.lun);
    results_text("vendor", unit.vendor.c_str());
    results_text("product", unit.product.c_str());
    results_text("revision", unit.revision.c_str());
    results_text("serial", unit.serial_known ? unit.serial.c_str() : nullptr);
    results_text("state", access_word(unit.access));
    results_begin_array("nodes");
    for (const std::string& node : unit.nodes) results_text(nullptr, node.c_str());
    results_end_array();
    if (!unit.url.empty()) results_text("url", unit.url.c_str());
    results_text("options", addressing_options(unit).c_str());
    results_end();
  }
}
