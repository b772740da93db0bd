#include "tape/drive_operations.h"

#include <cstring>

#include "console/clock.h"
#include "console/log_output.h"
#include "settings/test_plan.h"
#include "settings/settings.h"
#include "tape/command_blocks.h"
#include "transport/command_buffers.h"
#include "transport/scsi_transport.h"
#include "transport/status_report.h"

uint8_t removal_lock_step = 1;
uint8_t load_unload_step = 1;
uint8_t mode_select_page_format = 0;

namespace {

constexpr uint8_t kModeParameterListLength = 12;

uint8_t sense_byte(unsigned index) {
  const uint8_t* sense = scsi_transport.result.sense_data;
  return sense != nullptr ? sense[index] : 0;
}

uint8_t sense_key() { return sense_byte(2) & 0x0F; }
bool end_of_medium_bit() { return (sense_byte(2) & 0x40) != 0; }

bool sense_is(uint8_t key, uint8_t asc, uint8_t ascq) {
  return sense_key() == key && sense_byte(12) == asc && sense_byte(13) == ascq;
}

// ILLEGAL REQUEST, invalid command operation code.
bool rejected_as_unsupported() { return sense_is(0x5, 0x20, 0x00); }

unsigned id() { return test_settings.scsi_id; }
unsigned lun() { return test_settings.lun; }

// The failure line of an operation, then the status report of its command.
void report_failure(const char* what) {
  report_printf("ERROR: %s at SCSI id %X LUN %u\r\n", what, id(), lun());
  print_command_status();
}

uint32_t big_endian_24(const uint8_t* field) {
  return (static_cast<uint32_t>(field[0]) << 16) | (static_cast<uint32_t>(field[1]) << 8) |
         field[2];
}

int finish(int result) {
  flush_report_streams();
  return result;
}

}  // namespace

void reset_drive_operations() {
  removal_lock_step = 1;
  load_unload_step = 1;
  mode_select_page_format = 0;
}

int read_block_mode() {
  scsi_mode_sense(kModeParameterListLength);
  if (command_failed()) {
    report_failure("unable to \"mode sense\" block mode");
    return -1;
  }
  // Block length of the block descriptor; its length byte (3) is not looked at.
  test_settings.logical_block_size = big_endian_24(mode_buffer + 9);
  if (test_settings.logical_block_size > test_settings.max_transfer_length) {
    report_printf(
        "ERROR: logical block size cannot be greater than maximum write/read data\n"
        "transfer length\n");
    return -1;
  }
  return 0;
}

int set_block_mode() {
  report_printf("setting block mode (density code = 0x%X; logical block size = 0x%lX)\r\n",
                static_cast<unsigned>(test_settings.density_code),
                static_cast<unsigned long>(test_settings.logical_block_size));
  report_printf("setting maximum transfer lengths (write/read CDB = 0x%lX; data = 0x%lX)\r\n",
                static_cast<unsigned long>(test_plan.blocks_per_command),
                static_cast<unsigned long>(test_settings.max_transfer_length));
  uint32_t block_size = test_settings.logical_block_size;
  std::memset(mode_buffer, 0, kModeBufferSize);
  mode_buffer[2] = 0x10;  // buffered mode 1
  mode_buffer[3] = 0x08;  // one block descriptor
  mode_buffer[4] = test_settings.density_code;
  mode_buffer[9] = static_cast<uint8_t>(block_size >> 16);
  mode_buffer[10] = static_cast<uint8_t>(block_size >> 8);
  mode_buffer[11] = static_cast<uint8_t>(block_size);
  set_fixed_bit(block_size != 0 ? 1 : 0);
  scsi_mode_select(kModeParameterListLength, mode_select_page_format);
  // SCSI-2 and later drives may insist on the page format bit (HP LTO drives
  // do) and refuse its absence as INVALID FIELD IN CDB: the same parameter
  // list goes out once more with it set, and keeps it set for the run.
  if (mode_select_page_format == 0 && command_failed() && sense_is(0x5, 0x24, 0x00)) {
    scsi_mode_select(kModeParameterListLength, 1);
    if (!command_failed()) {
      mode_select_page_format = 1;
      report_printf(
          "note: the drive refused \"mode select\" without the page format bit; sent again with "
          "it set\r\n");
    }
  }
  int result = 0;
  if (command_failed()) {
    report_failure("unable to \"mode select\" requested block mode");
    result = -1;
  }
  return finish(result);
}

int rewind_tape() {
  report_printf("\r\nrewinding tape\r\n");
  scsi_rewind(0);
  int result = 0;
  if (command_failed()) {
    report_failure("unable to rewind tape");
    result = -1;
  }
  return finish(result);
}

int wait_until_ready() {
  for (;;) {
    sleep_msec(1000);
    scsi_test_unit_ready();
    if (!command_failed()) return 0;
  }
}

int wait_until_ready_within(uint32_t seconds) {
  const uint64_t started = monotonic_ns();
  const uint64_t limit = static_cast<uint64_t>(seconds) * 1000000000;
  // Counted as well as timed, so that a clock that stands still cannot
  // make the wait endless.
  unsigned attentions = 0;
  for (uint64_t tries = 0;; ++tries) {
    scsi_test_unit_ready();
    if (!command_failed()) return 0;
    if (sense_byte(12) == 0x30) return -1;  // incompatible medium: it stays so
    // A unit attention (28/00 after a load) is news, not a state: ask again.
    if (sense_key() == 0x6 && ++attentions <= 8) continue;
    if (tries >= seconds || monotonic_ns() - started >= limit) return -1;
    sleep_msec(1000);
  }
}

int unload_for_changer() {
  scsi_load_unload(0, 0, 0);
  if (command_failed() && sense_is(0x5, 0x53, 0x02)) {  // medium removal prevented
    scsi_prevent_allow(0);
    scsi_load_unload(0, 0, 0);
  }
  if (command_failed() && !rejected_as_unsupported() && !sense_is(0x2, 0x3A, 0x00)) {
    report_failure("unable to unload drive");
    return finish(-1);
  }
  return finish(0);
}

int unload_reload() {
  report_printf("\r\nunloading/reloading drive ...\r\n");
  if (removal_lock_step != 0) {
    scsi_prevent_allow(1);
    if (command_failed()) {
      if (!rejected_as_unsupported()) {
        report_failure("unable to prevent medium removal");
        return finish(-1);
      }
      removal_lock_step = 0;
    }
  }
  if (load_unload_step != 0) {
    scsi_load_unload(0, 0, 0);
    if (command_failed()) {
      if (!rejected_as_unsupported()) {
        report_failure("unable to unload drive");
        return finish(-1);
      }
      report_printf(
          "ERROR: \"load/unload\" command is not supported (aborting \"/uld\" option\r\n"
          "for SCSI id %X LUN %u)\r\n",
          id(), lun());
      load_unload_step = 0;
    }
  }
  if (load_unload_step != 0) {
    scsi_load_unload(0, 0, 1);
    // No medium: the ready wait lasts until a cartridge is inserted.
    if (command_failed() && !sense_is(0x2, 0x3A, 0x00)) {
      report_failure("unable to load drive");
      return finish(-1);
    }
    if (wait_until_ready() != 0) return finish(-1);
  }
  int result = 0;
  if (removal_lock_step != 0) {
    scsi_prevent_allow(0);
    if (command_failed()) {
      report_failure("unable to allow medium removal");
      result = -1;
    }
  }
  return finish(result);
}

int write_two_filemarks(uint8_t* end_of_medium) {
  report_printf("writing two filemarks\r\n");
  scsi_write_filemarks(2);
  int result = 0;
  if (command_failed()) {
    if ((end_of_medium_flags & 0x01) != 0 && sense_key() == 0x0 && end_of_medium_bit()) {
      report_printf(
          "hit \"EOM\" writing filemarks at SCSI id %X LUN %u\r\n(aborting all write testing)\r\n",
          id(), lun());
      *end_of_medium = 1;
    } else {
      report_failure("failure writing requested filemarks");
      result = -1;
    }
  }
  return finish(result);
}

int space_two_filemarks(uint8_t* end_of_medium) {
  report_printf("spacing two filemarks\r\n");
  scsi_space(1, 2);
  int result = 0;
  if (command_failed()) {
    if ((end_of_medium_flags & 0x01) != 0 && sense_key() == 0x8) {
      report_printf(
          "hit \"blank check\" spacing filemarks at SCSI id %X LUN %u\r\n"
          "(aborting all read testing)\r\n",
          id(), lun());
      *end_of_medium = 1;
    } else {
      report_failure("failure spacing requested filemarks");
      result = -1;
    }
  }
  return finish(result);
}
