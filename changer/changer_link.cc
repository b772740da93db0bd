#include "changer/changer_link.h"

#include "changer/changer_commands.h"
#include "console/clock.h"
#include "console/log_output.h"
#include "settings/settings.h"
#include "transport/device_table.h"
#include "transport/platform/platform.h"
#include "transport/scsi_transport.h"
#include "transport/status_report.h"

namespace {

constexpr uint64_t kHeldWaitNs = 10ull * 60 * 1000000000;  // 10 minutes
constexpr uint32_t kPollMs = 1000;
constexpr unsigned kMaxUnitAttentions = 8;
constexpr uint8_t kUnitAttention = 0x6;
constexpr uint8_t kNotReady = 0x2;

bool inventory_changed = false;

uint8_t sense_byte(unsigned index) {
  const uint8_t* sense = scsi_transport.result.sense_data;
  return sense != nullptr ? sense[index] : 0;
}

bool failed() { return scsi_transport.result.srb_status != 0 || scsi_transport.result.target_status != 0; }

unsigned changer_id() { return test_settings.changer.target_id; }
unsigned changer_lun() { return test_settings.changer.lun; }

void address(uint8_t adapter, uint8_t bus, uint8_t target_id, uint8_t lun) {
  // The addresses were checked: the setters cannot fail here.
  set_adapter(adapter);
  set_bus(bus);
  set_target_id(target_id);
  set_lun(lun);
}

bool held_by_another_process() { return scsi_transport.result.win32_error == kErrorSharingViolation; }

// The first answer of a sequence. 0 when the changer answered GOOD; 1 to
// try again after a pause; -1 after the error line.
int judge_first_answer(unsigned* attentions, bool* said_held, bool* said_not_ready, uint64_t started) {
  if (!failed()) return 0;
  const bool out_of_time = monotonic_ns() - started >= kHeldWaitNs;
  if (held_by_another_process()) {
    if (out_of_time) {
      report_printf("ERROR: the medium changer at SCSI id %X LUN %u is still in use by another process after "
                    "10 minutes\r\n",
                    changer_id(), changer_lun());
      return -1;
    }
    if (!*said_held) {
      report_printf("the medium changer at SCSI id %X LUN %u is in use by another process: waiting up to 10 "
                    "minutes\r\n",
                    changer_id(), changer_lun());
      *said_held = true;
    }
    return 1;
  }
  if (scsi_transport.result.srb_status == kSrbStatusNoHandle) {
    report_printf("ERROR: unable to access medium changer at SCSI id %X LUN %u\r\n", changer_id(), changer_lun());
    const Platform& platform = active_platform();
    const char* detail = platform.describe_last_error != nullptr ? platform.describe_last_error() : nullptr;
    if (detail != nullptr && detail[0] != '\0') report_printf("%s\r\n", detail);
    return -1;
  }
  if (last_sense_key() == kUnitAttention && ++*attentions <= kMaxUnitAttentions) {
    if (last_asc() == 0x28) inventory_changed = true;
    return 2;  // at once
  }
  if (last_sense_key() == kNotReady && last_asc() == 0x04) {
    if (out_of_time) {
      report_changer_failure("medium changer not ready after 10 minutes");
      return -1;
    }
    if (!*said_not_ready) {
      report_printf("waiting for the medium changer at SCSI id %X LUN %u to become ready\r\n", changer_id(),
                    changer_lun());
      *said_not_ready = true;
    }
    return 1;
  }
  // Anything else is for the sequence's own commands to meet (a device that
  // is no changer at all is told by its Inquiry).
  return 0;
}

}  // namespace

uint8_t last_sense_key() { return sense_byte(2) & 0x0F; }
uint8_t last_asc() { return sense_byte(12); }
uint8_t last_ascq() { return sense_byte(13); }

int changer_check_address() {
  const UnitAddress& c = test_settings.changer;
  const ScsiTransport saved = scsi_transport;
  const int checked = set_target_id(c.target_id) == 0 && set_lun(c.lun) == 0 ? 0 : -1;
  scsi_transport = saved;
  return checked;
}

int changer_begin() {
  changer_address_changer();
  const uint64_t started = monotonic_ns();
  unsigned attentions = 0;
  bool said_held = false, said_not_ready = false;
  uint32_t pause_ms = 100;
  for (;;) {
    changer_test_unit_ready();
    const int verdict = judge_first_answer(&attentions, &said_held, &said_not_ready, started);
    if (verdict == 0) return 0;
    if (verdict < 0) {
      changer_end();
      flush_report_streams();
      return -1;
    }
    // A short hold ends soon: the first pauses are short, then one a second.
    if (verdict == 1) sleep_msec(pause_ms < kPollMs ? pause_ms : kPollMs);
    if (verdict == 1) pause_ms *= 2;
  }
}

void changer_address_drive() {
  address(test_settings.host_adapter_number, test_settings.bus_number, test_settings.scsi_id, test_settings.lun);
}

void changer_address_changer() {
  const UnitAddress& c = test_settings.changer;
  address(c.adapter, c.bus, c.target_id, c.lun);
}

void changer_end() {
  changer_address_changer();
  close_addressed_handle();
  changer_address_drive();
}

bool changer_inventory_changed() {
  const bool changed = inventory_changed;
  inventory_changed = false;
  return changed;
}

void report_changer_failure(const char* what) {
  report_printf("ERROR: %s at changer SCSI id %X LUN %u\r\n", what, changer_id(), changer_lun());
  print_command_status();
  flush_report_streams();
}

void reset_changer_link() { inventory_changed = false; }
