// Commands about the drive rather than the tape's contents: Test Unit Ready,
// Request Sense, Inquiry, Mode Sense/Select(6), Load/Unload,
// Prevent/Allow Medium Removal and Log Sense (SPC, SSC).
#include <cstdio>
#include <cstring>

#include "vtape/commands.h"
#include "vtape/log_pages.h"

namespace {
constexpr uint32_t kRequestSenseLength = 22;  // 18 bytes and the two retry counters
}

void test_unit_ready(VirtualDrive*, const PassThroughRequest&, CommandAnswer*) {
  // The shared checks already answered NOT READY or a unit attention.
}

// Request Sense reports the drive's state (the sense of a failed command
// went back with that command): a pending unit attention, which it clears,
// the not-ready states, or NO SENSE. Bytes 18-19 hold the read/write retry
// counter, bytes 20-21 the tracking retry counter (always 0: no servo).
void request_sense(VirtualDrive* drive, const PassThroughRequest& request, CommandAnswer* answer) {
  if (request.cdb[1] & 0x01) {  // descriptor format
    invalid_field_in_cdb(answer, 1);
    return;
  }
  uint8_t data[kRequestSenseLength] = {};
  if (drive->unit_attention) {
    build_sense(data, kSenseUnitAttention, drive->unit_attention_asc, drive->unit_attention_ascq);
    drive->unit_attention = false;
  } else if (drive->medium == MediumState::absent) {
    build_sense(data, kSenseNotReady, 0x3A, 0x00);
  } else if (drive->medium == MediumState::unloaded) {
    build_sense(data, kSenseNotReady, 0x04, 0x02);
  } else if (incompatible_medium(*drive)) {
    build_sense(data, kSenseNotReady, 0x30, 0x00);
  } else if (drive->not_ready_polls_left > 0) {
    build_sense(data, kSenseNotReady, 0x04, 0x01);
  } else {
    build_sense(data, kSenseNoSense, 0x00, 0x00);
  }
  data[7] = kRequestSenseLength - 8;
  const DriveCounters& c = drive->counters;
  uint64_t retries = c.records_written * drive->description.rewrite_percent / 10000 +
                     c.records_read * drive->description.corrected_percent / 10000;
  uint16_t rw_retries = retries > 0xFFFF ? 0xFFFF : static_cast<uint16_t>(retries);
  data[18] = static_cast<uint8_t>(rw_retries >> 8);
  data[19] = static_cast<uint8_t>(rw_retries);
  return_data(request, request.cdb[4], data, kRequestSenseLength, answer);
}

namespace {

// Vital product data (SPC): page 00h lists the supported pages, page 80h
// carries the unit serial number when the description gives one.
void inquiry_vpd(const VtapeDescription& d, const PassThroughRequest& request, CommandAnswer* answer) {
  const bool has_serial = d.serial[0] != '\0';
  uint8_t data[4 + sizeof d.serial] = {};
  data[0] = d.device_type;
  data[1] = request.cdb[2];
  uint8_t length = 0;
  if (request.cdb[2] == 0x00) {
    data[4 + length++] = 0x00;
    if (has_serial) data[4 + length++] = 0x80;
  } else if (request.cdb[2] == 0x80 && has_serial) {
    length = static_cast<uint8_t>(std::strlen(d.serial));
    std::memcpy(data + 4, d.serial, length);
  } else {
    invalid_field_in_cdb(answer, 2);
    return;
  }
  data[3] = length;
  uint32_t allocation = (static_cast<uint32_t>(request.cdb[3]) << 8) | request.cdb[4];
  return_data(request, allocation, data, 4u + length, answer);
}

}  // namespace

void inquiry(VirtualDrive* drive, const PassThroughRequest& request, CommandAnswer* answer) {
  const VtapeDescription& d = drive->description;
  if (request.cdb[1] & 0x01) {
    inquiry_vpd(d, request, answer);
    return;
  }
  if (request.cdb[2] != 0) {
    invalid_field_in_cdb(answer, 2);
    return;
  }
  uint8_t data[36] = {};
  data[0] = d.device_type;
  data[1] = 0x80;  // removable medium
  data[2] = 0x05;  // SPC-3
  data[3] = 0x02;  // response data format
  data[4] = sizeof data - 5;
  std::memset(data + 8, ' ', 28);
  std::memcpy(data + 8, d.vendor, std::strlen(d.vendor));
  std::memcpy(data + 16, d.product, std::strlen(d.product));
  std::memcpy(data + 32, d.revision, std::strlen(d.revision));
  uint32_t allocation = (static_cast<uint32_t>(request.cdb[3]) << 8) | request.cdb[4];
  return_data(request, allocation, data, sizeof data, answer);
}

// Mode Sense(6): the header and one block descriptor (density code, block
// length); no mode pages. Page control 1 returns the changeable fields.
void mode_sense6(VirtualDrive* drive, const PassThroughRequest& request, CommandAnswer* answer) {
  uint8_t page_control = request.cdb[2] >> 6;
  uint8_t page_code = request.cdb[2] & 0x3F;
  if (page_control == 3) {
    check_condition(answer, kSenseIllegalRequest, 0x39, 0x00);  // SAVING PARAMETERS NOT SUPPORTED
    return;
  }
  if (page_code != 0x00 && page_code != 0x3F) {
    invalid_field_in_cdb(answer, 2);
    return;
  }
  bool with_descriptor = (request.cdb[1] & 0x08) == 0;  // DBD
  uint8_t density = drive->density_code;
  uint32_t block_length = drive->block_length;
  if (page_control == 1) {
    density = 0xFF;
    block_length = 0xFFFFFF;
  } else if (page_control == 2) {
    density = drive->description.densities[0];
    block_length = 0;
  }
  uint8_t data[12] = {};
  data[0] = with_descriptor ? 11 : 3;
  data[2] = page_control == 1 ? 0x00 : 0x10;  // buffered mode 1
  data[3] = with_descriptor ? 8 : 0;
  data[4] = density;
  data[9] = static_cast<uint8_t>(block_length >> 16);
  data[10] = static_cast<uint8_t>(block_length >> 8);
  data[11] = static_cast<uint8_t>(block_length);
  return_data(request, request.cdb[4], data, with_descriptor ? 12 : 4, answer);
}

// Mode Select(6), PF 0 or 1 (or only 1, as some drives insist): a header
// and at most one block descriptor. A density of 0 or 7Fh keeps the current
// one; block length 0 selects variable block mode, any other must lie within
// the block limits.
void mode_select6(VirtualDrive* drive, const PassThroughRequest& request, CommandAnswer* answer) {
  if (request.cdb[1] & 0x01) {  // SP: nothing can be saved
    invalid_field_in_cdb(answer, 1);
    return;
  }
  if (drive->description.mode_select_pf_required && (request.cdb[1] & 0x10) == 0) {
    invalid_bit_in_cdb(answer, 1, 4);
    return;
  }
  uint32_t length = request.cdb[4];
  if (length == 0) return;
  const uint8_t* list = request.data;
  uint32_t descriptor_length = length >= 4 ? list[3] : 0;
  if (length < 4 || length > request.data_length || length < 4 + descriptor_length) {
    check_condition(answer, kSenseIllegalRequest, 0x1A, 0x00);  // PARAMETER LIST LENGTH ERROR
    return;
  }
  if (list[0] != 0) return invalid_field_in_parameter_list(answer, 0);
  if (descriptor_length != 0 && descriptor_length != 8)
    return invalid_field_in_parameter_list(answer, 3);
  if (length > 4 + descriptor_length)  // mode pages: none is supported
    return invalid_field_in_parameter_list(answer, static_cast<uint16_t>(4 + descriptor_length));
  answer->transferred = length;
  if (descriptor_length == 0) return;
  const VtapeDescription& d = drive->description;
  uint8_t density = list[4];
  bool known_density = density == 0 || density == 0x7F;
  for (unsigned i = 0; i < d.density_count; ++i) known_density |= d.densities[i] == density;
  if (!known_density) return invalid_field_in_parameter_list(answer, 4);
  uint32_t block_length =
      (static_cast<uint32_t>(list[9]) << 16) | (static_cast<uint32_t>(list[10]) << 8) | list[11];
  if (block_length != 0 && (block_length < d.min_block || block_length > d.max_block))
    return invalid_field_in_parameter_list(answer, 9);
  if (density != 0 && density != 0x7F) drive->density_code = density;
  drive->block_length = block_length;
}

// Load/Unload. Unloading rewinds and unthreads the tape; the cartridge stays
// in the drive, ready for the next Load, so prevented medium removal does not
// stand in its way — unless the description asks for a drive that refuses
// (MEDIUM REMOVAL PREVENTED). Loading threads it: unit attention and
// becoming-ready follow.
void load_unload(VirtualDrive* drive, const PassThroughRequest& request, CommandAnswer* answer) {
  if (!drive->description.load_unload_supported) return invalid_operation_code(answer);
  uint8_t flags = request.cdb[4];
  if (flags & 0x0C) return invalid_field_in_cdb(answer, 4);  // EOT, Hold
  if (drive->medium == MediumState::absent) {
    check_condition(answer, kSenseNotReady, 0x3A, 0x00);
    return;
  }
  if (flags & 0x01) {
    if (drive->medium == MediumState::loaded) {
      rewind_cartridge(&drive->cartridge);
    } else {
      load_cartridge(drive);
    }
    return;
  }
  if (drive->removal_prevented && drive->description.unload_refused_while_prevented) {
    check_condition(answer, kSenseIllegalRequest, 0x53, 0x02);  // MEDIUM REMOVAL PREVENTED
    return;
  }
  rewind_cartridge(&drive->cartridge);
  drive->medium = MediumState::unloaded;
}

void prevent_allow(VirtualDrive* drive, const PassThroughRequest& request, CommandAnswer* answer) {
  if (!drive->description.prevent_allow_supported) return invalid_operation_code(answer);
  uint8_t prevent = request.cdb[4] & 0x03;
  if (prevent > 1) return invalid_field_in_cdb(answer, 4);  // medium changer prevention
  drive->removal_prevented = prevent == 1;
}

// Log Sense: the drive keeps cumulative values only and returns them for
// every page control; the parameter pointer selects the first parameter.
void log_sense(VirtualDrive* drive, const PassThroughRequest& request, CommandAnswer* answer) {
  if (request.cdb[1] & 0x03) return invalid_field_in_cdb(answer, 1);  // PPC, SP
  if (request.cdb[3] != 0) return invalid_field_in_cdb(answer, 3);    // subpages
  if (drive->description.log_page_failing[request.cdb[2] & 0x3F]) {
    return check_condition(answer, kSenseHardwareError, 0x44, 0x00);  // INTERNAL TARGET FAILURE
  }
  uint8_t page[kLogPageCapacity];
  uint16_t first = static_cast<uint16_t>((request.cdb[5] << 8) | request.cdb[6]);
  unsigned length = build_log_page(*drive, request.cdb[2] & 0x3F, first, page);
  if (length == 0) return invalid_field_in_cdb(answer, 2);
  uint32_t allocation = (static_cast<uint32_t>(request.cdb[7]) << 8) | request.cdb[8];
  return_data(request, allocation, page, length, answer);
}

void read_block_limits(VirtualDrive* drive, const PassThroughRequest& request, CommandAnswer* answer) {
  const VtapeDescription& d = drive->description;
  const uint32_t min_block = d.min_block > 0xFFFF ? 0xFFFF : d.min_block;  // a 16-bit field
  const uint8_t data[6] = {0x00, static_cast<uint8_t>(d.max_block >> 16), static_cast<uint8_t>(d.max_block >> 8),
                           static_cast<uint8_t>(d.max_block), static_cast<uint8_t>(min_block >> 8),
                           static_cast<uint8_t>(min_block)};
  return_data(request, sizeof data, data, sizeof data, answer);
}
