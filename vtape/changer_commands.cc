// The changer's command table and its small handlers (SPC, SMC-3).
#include "vtape/changer_commands.h"

#include <cstring>

#include "scsi/operation_codes.h"
#include "vtape/commands.h"

namespace {

using ChangerHandler = void (*)(VirtualLibrary*, const PassThroughRequest&, CommandAnswer*);

struct ChangerEntry {
  ChangerHandler handler;  // null: INVALID COMMAND OPERATION CODE
  bool ignores_unit_attention;
};

void test_unit_ready(VirtualLibrary*, const PassThroughRequest&, CommandAnswer*) {}

// Request Sense: a pending unit attention (taken), else NO SENSE.
void request_sense(VirtualLibrary* library, const PassThroughRequest& request, CommandAnswer* answer) {
  if (request.cdb[1] & 0x01) return invalid_field_in_cdb(answer, 1);  // descriptor format
  uint8_t data[kFixedSenseLength];
  uint8_t asc = 0, ascq = 0;
  const bool attention = pop_attention(library, &asc, &ascq);
  build_sense(data, attention ? kSenseUnitAttention : kSenseNoSense, asc, ascq);
  return_data(request, request.cdb[4], data, sizeof data, answer);
}

void inquiry(VirtualLibrary*, const PassThroughRequest& request, CommandAnswer* answer) {
  const uint32_t allocation = read_be(request.cdb + 3, 2);
  uint8_t data[36] = {};
  data[0] = 0x08;  // medium changer
  if (request.cdb[1] & 0x01) {  // vital product data
    data[1] = request.cdb[2];
    if (request.cdb[2] == 0x00) {
      data[3] = 2;
      data[4] = 0x00;
      data[5] = 0x80;
    } else if (request.cdb[2] == 0x80) {
      data[3] = sizeof kChangerSerial - 1;
      std::memcpy(data + 4, kChangerSerial, sizeof kChangerSerial - 1);
    } else {
      return invalid_field_in_cdb(answer, 2);
    }
    return return_data(request, allocation, data, 4u + data[3], answer);
  }
  if (request.cdb[2] != 0) return invalid_field_in_cdb(answer, 2);
  data[1] = 0x80;  // removable medium
  data[2] = 0x05;  // SPC-3
  data[3] = 0x02;  // response data format
  data[4] = sizeof data - 5;
  std::memset(data + 8, ' ', 28);
  std::memcpy(data + 8, kChangerVendor, sizeof kChangerVendor - 1);
  std::memcpy(data + 16, kChangerProduct, sizeof kChangerProduct - 1);
  std::memcpy(data + 32, kChangerRevision, sizeof kChangerRevision - 1);
  return_data(request, allocation, data, sizeof data, answer);
}

// Mode page 1Dh, element address assignment.
unsigned address_assignment_page(const LibraryDescription& d, bool changeable, uint8_t* page) {
  std::memset(page, 0, 20);
  page[0] = 0x1D;
  page[1] = 0x12;
  if (changeable) return 20;
  write_be(page + 2, 2, kTransportAddress);
  write_be(page + 4, 2, 1);
  write_be(page + 6, 2, kFirstSlotAddress);
  write_be(page + 8, 2, d.slots);
  write_be(page + 10, 2, d.import_export > 0 ? kFirstImportExportAddress : 0);
  write_be(page + 12, 2, d.import_export);
  write_be(page + 14, 2, kFirstDriveAddress);
  write_be(page + 16, 2, d.drives);
  return 20;
}

// Mode page 1Eh, transport geometry: one transport that does not rotate media.
unsigned transport_geometry_page(uint8_t* page) {
  const uint8_t bytes[4] = {0x1E, 0x02, 0x00, 0x00};
  std::memcpy(page, bytes, sizeof bytes);
  return sizeof bytes;
}

// Mode page 1Fh, device capabilities: slots, import/export elements and
// drives store media, and the picker moves between any two of them; it
// neither stores media itself nor exchanges.
unsigned device_capabilities_page(const LibraryDescription& d, bool changeable, uint8_t* page) {
  std::memset(page, 0, 20);
  page[0] = 0x1F;
  page[1] = 0x12;
  if (changeable) return 20;
  const uint8_t stores = static_cast<uint8_t>(0x0A | (d.import_export > 0 ? 0x04 : 0x00));  // DT, (I/E,) ST
  page[2] = stores;
  page[5] = stores;  // from a slot
  page[6] = d.import_export > 0 ? stores : 0;
  page[7] = stores;  // from a drive
  return 20;
}

void mode_sense6(VirtualLibrary* library, const PassThroughRequest& request, CommandAnswer* answer) {
  const uint8_t page_control = request.cdb[2] >> 6;
  const uint8_t page_code = request.cdb[2] & 0x3F;
  if (page_control == 3) {
    return check_condition(answer, kSenseIllegalRequest, 0x39, 0x00);  // SAVING PARAMETERS NOT SUPPORTED
  }
  if (request.cdb[3] != 0) return invalid_field_in_cdb(answer, 3);  // subpages
  const bool changeable = page_control == 1;
  uint8_t data[4 + 20 + 4 + 20] = {};
  unsigned length = 4;
  const LibraryDescription& d = library->description;
  const bool all = page_code == 0x3F;
  if (page_code == 0x1D || all) length += address_assignment_page(d, changeable, data + length);
  if (page_code == 0x1E || all) length += transport_geometry_page(data + length);
  if (page_code == 0x1F || all) length += device_capabilities_page(d, changeable, data + length);
  if (length == 4) return invalid_field_in_cdb(answer, 2);
  data[0] = static_cast<uint8_t>(length - 1);
  return_data(request, request.cdb[4], data, length, answer);
}

// Initialize Element Status (07h): every element's status becomes known.
void initialize_element_status(VirtualLibrary* library, const PassThroughRequest&, CommandAnswer*) {
  for (Element& element : library->elements) element.valid = true;
}

// Initialize Element Status With Range (37h): with RANGE, the elements from
// the element address on, as many as the number of elements says.
void initialize_element_status_with_range(VirtualLibrary* library, const PassThroughRequest& request,
                                          CommandAnswer*) {
  const bool range = request.cdb[1] & 0x01;
  const uint32_t first = read_be(request.cdb + 2, 2);
  uint32_t left = read_be(request.cdb + 6, 2);
  for (Element& element : library->elements) {
    if (!range) {
      element.valid = true;
    } else if (element.address >= first && left > 0) {
      element.valid = true;
      --left;
    }
  }
}

// Prevent/Allow Medium Removal: recorded (it keeps the operator from taking
// media out of the import/export station; moves are not affected).
void prevent_allow(VirtualLibrary* library, const PassThroughRequest& request, CommandAnswer* answer) {
  const uint8_t prevent = request.cdb[4] & 0x03;
  if (prevent > 1) return invalid_field_in_cdb(answer, 4);
  library->removal_prevented = prevent == 1;
}

struct ChangerTable {
  ChangerEntry entries[256];
};

ChangerTable make_table() {
  ChangerTable t{};
  t.entries[kOpTestUnitReady] = {test_unit_ready, false};
  t.entries[kOpRequestSense] = {request_sense, true};
  t.entries[kOpInitializeElementStatus] = {initialize_element_status, false};
  t.entries[kOpInquiry] = {inquiry, true};
  t.entries[kOpModeSense6] = {mode_sense6, false};
  t.entries[kOpPreventAllowMediumRemoval] = {prevent_allow, false};
  t.entries[kOpInitializeElementStatusWithRange] = {initialize_element_status_with_range, false};
  t.entries[kOpMoveMedium] = {move_medium, false};
  t.entries[kOpReadElementStatus] = {read_element_status, false};
  return t;
}

const ChangerTable kTable = make_table();

}  // namespace

void execute_changer_command(VirtualLibrary* library, const PassThroughRequest& request, CommandAnswer* answer) {
  start_answer(answer);
  const ChangerEntry& entry = kTable.entries[request.cdb[0]];
  uint8_t asc = 0, ascq = 0;
  if (!entry.ignores_unit_attention && pop_attention(library, &asc, &ascq)) {
    return check_condition(answer, kSenseUnitAttention, asc, ascq);
  }
  if (entry.handler == nullptr) return invalid_operation_code(answer);
  entry.handler(library, request, answer);
}

uint32_t read_be(const uint8_t* bytes, unsigned count) {
  uint32_t value = 0;
  for (unsigned i = 0; i < count; ++i) value = (value << 8) | bytes[i];
  return value;
}

void write_be(uint8_t* bytes, unsigned count, uint32_t value) {
  for (unsigned i = count; i > 0; --i, value >>= 8) bytes[i - 1] = static_cast<uint8_t>(value);
}
