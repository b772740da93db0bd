#include "changer/inventory.h"

#include <algorithm>
#include <cstdio>

#include "changer/changer_commands.h"
#include "changer/changer_link.h"
#include "transport/scsi_transport.h"

namespace {

constexpr uint32_t kPieceCapacity = kElementStatusAllocation / kElementDescriptorMinLength;
constexpr uint8_t kIllegalRequest = 0x5;

uint8_t element_buffer[kElementStatusAllocation];
ElementStatus piece[kPieceCapacity];

bool failed() { return scsi_transport.result.srb_status != 0 || scsi_transport.result.target_status != 0; }

const char* type_name(uint8_t type) {
  switch (type) {
    case kMediumTransportElement: return "medium transport";
    case kStorageElement: return "storage";
    case kImportExportElement: return "import/export";
    default: return "data transfer";
  }
}

void report_read_failure(uint8_t type, uint16_t start) {
  char what[96];
  std::snprintf(what, sizeof what, "unable to read the status of the %s elements (from element %u)",
                type_name(type), static_cast<unsigned>(start));
  report_changer_failure(what);
}

// One READ ELEMENT STATUS from `start`. A changer that refuses the device
// identifiers (older changers: INVALID FIELD IN CDB) is asked again without
// them.
bool read_from(uint8_t type, uint16_t start, uint16_t count, bool* device_ids) {
  changer_read_element_status(type, start, count, *device_ids, element_buffer, kElementStatusAllocation);
  if (failed() && *device_ids && last_sense_key() == kIllegalRequest) {
    *device_ids = false;
    changer_read_element_status(type, start, count, false, element_buffer, kElementStatusAllocation);
  }
  return !failed();
}

// Appends every element of `type` to `elements`, piece by piece. 0 or -1.
int read_type(uint8_t type, std::vector<ElementStatus>* elements) {
  const size_t begin = elements->size();
  bool device_ids = type == kDataTransferElement;
  uint32_t start = 0;
  for (;;) {
    if (!read_from(type, static_cast<uint16_t>(start), 0xFFFF, &device_ids)) {
      // A changer without pickers or mail slots to tell of may refuse the type.
      if ((type == kMediumTransportElement || type == kImportExportElement) &&
          last_sense_key() == kIllegalRequest && start == 0) {
        return 0;
      }
      report_read_failure(type, static_cast<uint16_t>(start));
      return -1;
    }
    const ElementStatusReport report =
        parse_element_status(element_buffer, kElementStatusAllocation, piece, kPieceCapacity);
    for (uint32_t i = 0; i < report.parsed; ++i) {
      if (piece[i].type == type) elements->push_back(piece[i]);
    }
    // Read on after the last element when the answer did not fit; stop when
    // a piece brings nothing new (a changer that ignores the start).
    if (!report.cut || report.parsed == 0 || report.last_address < start || report.last_address == 0xFFFF) break;
    start = static_cast<uint32_t>(report.last_address) + 1;
  }
  auto by_address = [](const ElementStatus& a, const ElementStatus& b) { return a.address < b.address; };
  auto same_address = [](const ElementStatus& a, const ElementStatus& b) { return a.address == b.address; };
  std::stable_sort(elements->begin() + static_cast<long>(begin), elements->end(), by_address);
  elements->erase(std::unique(elements->begin() + static_cast<long>(begin), elements->end(), same_address),
                  elements->end());
  return 0;
}

}  // namespace

int read_inventory(Inventory* inventory) {
  inventory->elements.clear();
  for (uint8_t type = kMediumTransportElement; type <= kDataTransferElement; ++type) {
    inventory->first[type] = static_cast<uint32_t>(inventory->elements.size());
    if (read_type(type, &inventory->elements) != 0) return -1;
    inventory->count[type] = static_cast<uint32_t>(inventory->elements.size()) - inventory->first[type];
  }
  inventory->first[0] = 0;
  inventory->count[0] = static_cast<uint32_t>(inventory->elements.size());
  return 0;
}

int read_element(uint8_t type, uint16_t address, ElementStatus* element) {
  bool device_ids = type == kDataTransferElement;
  if (read_from(type, address, 1, &device_ids)) {
    const ElementStatusReport report = parse_element_status(element_buffer, kElementStatusAllocation, piece, 1);
    if (report.parsed == 1 && piece[0].address == address && piece[0].type == type) {
      *element = piece[0];
      return 0;
    }
    char what[96];
    std::snprintf(what, sizeof what, "no status of element %u in the changer's answer", static_cast<unsigned>(address));
    report_changer_failure(what);
    return -1;
  }
  report_read_failure(type, address);
  return -1;
}

bool inventory_not_valid(const Inventory& inventory) {
  for (const ElementStatus& e : inventory.elements) {
    if (e.except && e.asc == 0x83 && e.ascq == 0x00) return true;
  }
  return false;
}

const ElementStatus* element_of_type(const Inventory& inventory, uint8_t type, uint32_t ordinal) {
  if (type < kMediumTransportElement || type > kDataTransferElement || ordinal >= inventory.count[type]) {
    return nullptr;
  }
  return &inventory.elements[inventory.first[type] + ordinal];
}

namespace {

// The element at `address` among those of `type` (kept in address order), or nullptr.
const ElementStatus* find_in_type(const Inventory& inventory, uint8_t type, uint16_t address) {
  const auto begin = inventory.elements.begin() + inventory.first[type];
  const auto end = begin + inventory.count[type];
  const auto found = std::lower_bound(begin, end, address,
                                      [](const ElementStatus& e, uint16_t wanted) { return e.address < wanted; });
  return found != end && found->address == address ? &*found : nullptr;
}

}  // namespace

const ElementStatus* element_at(const Inventory& inventory, uint16_t address) {
  for (uint8_t type = kMediumTransportElement; type <= kDataTransferElement; ++type) {
    if (const ElementStatus* e = find_in_type(inventory, type, address)) return e;
  }
  return nullptr;
}

uint32_t slot_number(const Inventory& inventory, uint16_t address) {
  const ElementStatus* slot = find_in_type(inventory, kStorageElement, address);
  return slot != nullptr ? static_cast<uint32_t>(slot - &inventory.elements[inventory.first[kStorageElement]]) + 1 : 0;
}
