#include "run/library_plan.h"

#include <cstdio>
#include <cstring>

#include "changer/changer_commands.h"
#include "changer/changer_link.h"
#include "console/log_output.h"
#include "results/results_file.h"
#include "run/run_result.h"
#include "settings/settings.h"
#include "settings/slot_list.h"
#include "transport/scsi_transport.h"

namespace {

constexpr uint8_t kMediumChangerDevice = 0x08;
constexpr uint8_t kNoDeviceType = 0x1F;
constexpr uint8_t kLogicalUnitNotSupported = 3;  // peripheral qualifier
constexpr uint8_t kInquiryLength = 36;
constexpr uint8_t kVpdUnitSerialNumber = 0x80;

uint8_t inquiry_data[kInquiryLength];

bool failed() { return scsi_transport.result.srb_status != 0 || scsi_transport.result.target_status != 0; }

void inquiry_text(unsigned offset, unsigned length, char* text) {
  unsigned kept = length;
  while (kept > 0 && (inquiry_data[offset + kept - 1] == ' ' || inquiry_data[offset + kept - 1] == 0)) --kept;
  for (unsigned i = 0; i < kept; ++i) {
    const uint8_t byte = inquiry_data[offset + i];
    text[i] = byte >= 0x20 && byte < 0x7F ? static_cast<char>(byte) : '?';
  }
  text[kept] = '\0';
}

// The changer's unit serial number (VPD page 80h), for the results file; ""
// when it has none.
void read_changer_serial(char* serial, size_t size) {
  static uint8_t page[255];
  changer_inquiry_vpd(kVpdUnitSerialNumber, page, sizeof page);
  if (failed() || page[1] != kVpdUnitSerialNumber) return;
  unsigned start = 4, end = 4 + page[3];
  if (end > sizeof page) end = sizeof page;
  while (start < end && (page[start] == ' ' || page[start] == 0)) ++start;
  while (end > start && (page[end - 1] == ' ' || page[end - 1] == 0)) --end;
  unsigned length = end - start;
  if (length > size - 1) length = static_cast<unsigned>(size - 1);
  for (unsigned i = 0; i < length; ++i) {
    const uint8_t byte = page[start + i];
    serial[i] = byte >= 0x20 && byte < 0x7F ? static_cast<char>(byte) : '?';
  }
  serial[length] = '\0';
}

// Inquiry of the addressed changer and the device type check, in the style
// of the drive's. 0 or -1.
int identify_changer(LibraryPlan* plan) {
  const UnitAddress& c = test_settings.changer;
  changer_inquiry(inquiry_data, kInquiryLength);
  if (failed()) {
    report_changer_failure("unable to \"inquiry\" the medium changer");
    return -1;
  }
  const uint8_t type = inquiry_data[0] & 0x1F;
  const uint8_t qualifier = static_cast<uint8_t>(inquiry_data[0] >> 5);
  if (type == kNoDeviceType && qualifier == kLogicalUnitNotSupported) {
    report_printf("ERROR: LUN %u is not supported by the device at SCSI id %X\r\n", static_cast<unsigned>(c.lun),
                  static_cast<unsigned>(c.target_id));
    return -1;
  }
  if (type != kMediumChangerDevice) {
    report_printf("ERROR: device at SCSI id %X LUN %u is not a medium changer (type %02X)\r\n",
                  static_cast<unsigned>(c.target_id), static_cast<unsigned>(c.lun), static_cast<unsigned>(type));
    return -1;
  }
  inquiry_text(8, 8, plan->vendor);
  inquiry_text(16, 16, plan->product);
  inquiry_text(32, 4, plan->revision);
  plan->serial[0] = '\0';
  if (results_enabled()) read_changer_serial(plan->serial, sizeof plan->serial);
  report_printf("\r\nLIBRARY: medium changer %s %s %s at SCSI id %X LUN %u\r\n", plan->vendor, plan->product,
                plan->revision, static_cast<unsigned>(c.target_id), static_cast<unsigned>(c.lun));
  return 0;
}

// Inventory, and INITIALIZE ELEMENT STATUS once when the changer says the
// inventory is not valid (UNIT ATTENTION 28/00, or an element not valid).
int take_inventory(LibraryPlan* plan) {
  if (read_inventory(&plan->inventory) != 0) return -1;
  const bool changed = changer_inventory_changed();
  if (!changed && !inventory_not_valid(plan->inventory)) return 0;
  report_printf("  initializing element status (the medium changer reports %s)\r\n",
                changed ? "that its inventory may have changed" : "elements whose status is not valid");
  changer_initialize_element_status();
  plan->initialized = true;
  if (failed()) {
    report_changer_failure("unable to initialize element status");
    return -1;
  }
  if (read_inventory(&plan->inventory) != 0) return -1;
  changer_inventory_changed();  // taken care of
  return 0;
}

const char* plural(uint32_t count, const char* one, const char* more) { return count == 1 ? one : more; }

void print_library(const LibraryPlan& plan) {
  const Inventory& inventory = plan.inventory;
  const uint32_t slots = inventory.count[kStorageElement];
  const uint32_t drives = inventory.count[kDataTransferElement];
  const uint32_t mail = inventory.count[kImportExportElement];
  const uint32_t pickers = inventory.count[kMediumTransportElement];
  report_printf("  %u %s, %u %s, %u import/export %s, %u medium transport %s\r\n", slots,
                plural(slots, "slot", "slots"), drives, plural(drives, "drive", "drives"), mail,
                plural(mail, "element", "elements"), pickers, plural(pickers, "element", "elements"));
  // How the panel's numbers map onto element addresses.
  for (uint8_t type : {kStorageElement, kDataTransferElement}) {
    const uint32_t count = inventory.count[type];
    if (count == 0) continue;
    const bool slot = type == kStorageElement;
    report_printf("  %s %u-%u: elements %u-%u\r\n", slot ? "slots" : "drives", slot ? 1u : 0u,
                  slot ? count : count - 1, static_cast<unsigned>(element_of_type(inventory, type, 0)->address),
                  static_cast<unsigned>(element_of_type(inventory, type, count - 1)->address));
  }
}

unsigned last_drive(const Inventory& inventory) {
  return inventory.count[kDataTransferElement] > 0 ? inventory.count[kDataTransferElement] - 1 : 0;
}

// The tested drive's data transfer element: `/drive n`, or the one whose
// device identifier carries the drive's serial number. 0 or -1.
int choose_drive(LibraryPlan* plan) {
  const Inventory& inventory = plan->inventory;
  const uint32_t drives = inventory.count[kDataTransferElement];
  if (drives == 0) {
    report_printf("ERROR: the medium changer reports no drives\r\n");
    return -1;
  }
  if (test_settings.drive_ordinal >= 0) {
    const uint32_t wanted = static_cast<uint32_t>(test_settings.drive_ordinal);
    if (wanted >= drives) {
      report_printf("ERROR: the library has no drive %u (its drives are 0 to %u)\r\n", wanted, last_drive(inventory));
      return -1;
    }
    plan->drive_number = wanted;
  } else {
    bool identifiers = false;
    uint32_t matches = 0;
    for (uint32_t i = 0; i < drives; ++i) {
      const ElementStatus* drive = element_of_type(inventory, kDataTransferElement, i);
      identifiers = identifiers || drive->identifier_length > 0;
      if (!plan->drive_serial.empty() && identifier_matches_serial(*drive, plan->drive_serial.c_str())) {
        if (matches++ == 0) plan->drive_number = i;
      }
    }
    const char* problem = !identifiers                ? "the medium changer gives no drive identifiers"
                          : plan->drive_serial.empty() ? "the tested drive tells no serial number"
                          : matches == 0 ? "no drive of the library has the tested drive's serial number"
                          : matches > 1  ? "several drives of the library match the tested drive's serial number"
                                         : nullptr;
    if (problem != nullptr) {
      report_printf("ERROR: %s: name the tested drive with /drive (0 to %u)\r\n", problem, last_drive(inventory));
      return -1;
    }
  }
  plan->drive_element = element_of_type(inventory, kDataTransferElement, plan->drive_number)->address;
  return 0;
}

// The slots `/slots` names (each must exist), or every full slot. 0 or -1.
int choose_slots(LibraryPlan* plan) {
  const Inventory& inventory = plan->inventory;
  const uint32_t slots = inventory.count[kStorageElement];
  const SlotRange* ranges = test_settings.slot_ranges;
  const unsigned range_count = test_settings.slot_range_count;
  for (unsigned i = 0; i < range_count; ++i) {
    if (ranges[i].last > slots) {
      const unsigned missing = ranges[i].first > slots ? ranges[i].first : slots + 1;
      report_printf("ERROR: the library has no slot %u (its slots are 1 to %u)\r\n", missing, slots);
      return -1;
    }
  }
  plan->slots.clear();
  for (uint32_t number = 1; number <= slots; ++number) {
    if (range_count != 0 && !slot_listed(ranges, range_count, number)) continue;
    const ElementStatus* slot = element_of_type(inventory, kStorageElement, number - 1);
    if (!slot->full) {
      if (range_count != 0) {
        report_printf("  slot %u (element %u) is empty: nothing to test there\r\n", number,
                      static_cast<unsigned>(slot->address));
      }
      continue;
    }
    plan->slots.push_back(number);
  }
  return 0;
}

// The `library` record: the changer, its elements, the tested drive (null
// when none could be chosen) and how many cartridges were chosen.
void write_library_record(const LibraryPlan& plan, bool drive_chosen, bool slots_chosen) {
  if (!results_enabled()) return;
  const Inventory& inventory = plan.inventory;
  const UnitAddress& c = test_settings.changer;
  results_begin("library");
  results_begin_object("changer");
  results_unsigned("hanum", c.adapter);
  results_unsigned("bus", c.bus);
  results_unsigned("id", c.target_id);
  results_unsigned("lun", c.lun);
  results_text("vendor", plan.vendor);
  results_text("product", plan.product);
  results_text("revision", plan.revision);
  results_text("serial", plan.serial[0] != '\0' ? plan.serial : nullptr);
  results_bool("initialized", plan.initialized);
  results_end_object();
  results_begin_object("elements");
  results_unsigned("slots", inventory.count[kStorageElement]);
  results_unsigned("drives", inventory.count[kDataTransferElement]);
  results_unsigned("import_export", inventory.count[kImportExportElement]);
  results_unsigned("medium_transport", inventory.count[kMediumTransportElement]);
  results_end_object();
  if (drive_chosen) {
    results_begin_object("drive");
    results_unsigned("number", plan.drive_number);
    results_unsigned("element", plan.drive_element);
    results_text("serial", plan.drive_serial.empty() ? nullptr : plan.drive_serial.c_str());
    results_end_object();
  } else {
    results_null("drive");
  }
  if (slots_chosen) {
    results_unsigned("cartridges_chosen", plan.slots.size());
  } else {
    results_null("cartridges_chosen");
  }
  results_end();
}

}  // namespace

int prepare_library(LibraryPlan* plan) {
  if (changer_check_address() != 0) return -1;
  plan->initialized = false;
  plan->drive_serial.clear();
  if (test_settings.drive_ordinal < 0 && !unit_serial_number(&plan->drive_serial)) plan->drive_serial.clear();
  if (changer_begin() != 0) return -1;
  int result = identify_changer(plan);
  if (result == 0) result = take_inventory(plan);
  changer_end();
  if (result != 0) return -1;
  const ElementStatus* picker = element_of_type(plan->inventory, kMediumTransportElement, 0);
  plan->transport = picker != nullptr ? picker->address : 0;
  print_library(*plan);
  result = choose_drive(plan);
  const bool drive_chosen = result == 0;
  if (result == 0) {
    report_printf("  tested drive: drive %u (element %u)", plan->drive_number,
                  static_cast<unsigned>(plan->drive_element));
    if (!plan->drive_serial.empty()) report_printf(", serial number %s", plan->drive_serial.c_str());
    report_printf("\r\n");
    result = choose_slots(plan);
  }
  if (result == 0) report_printf("  cartridges to test: %u\r\n", static_cast<unsigned>(plan->slots.size()));
  write_library_record(*plan, drive_chosen, result == 0);
  flush_report_streams();
  return result;
}
