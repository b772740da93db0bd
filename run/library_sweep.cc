#include "run/library_sweep.h"

#include <cstdarg>
#include <cstdio>
#include <cstring>

#include "changer/changer_commands.h"
#include "changer/changer_link.h"
#include "console/clock.h"
#include "console/log_output.h"
#include "drive_status/collection.h"
#include "drive_status/drive_health.h"
#include "drive_status/dsc_config.h"
#include "drive_status/preflight.h"
#include "engine/command_timing.h"
#include "engine/iterations.h"
#include "engine/sizing.h"
#include "engine/transfer_loops.h"
#include "os/os.h"
#include "results/results_file.h"
#include "run/chart_file.h"
#include "run/library_plan.h"
#include "run/run_result.h"
#include "run/sweep_summary.h"
#include "settings/settings.h"
#include "tape/drive_operations.h"
#include "transport/scsi_transport.h"
#include "transport/status_report.h"

namespace {

LibraryPlan plan;
std::vector<CartridgeOutcome> outcomes;
char stop_reason[128];  // why the sweep stopped; empty while it goes on

// The line the CTRL-C handler writes, kept current by the test thread under
// the output lock (the handler takes that lock for good before it reads).
char break_line[320];
size_t break_line_length = 0;

void BFT_PRINTF_FORMAT(1, 2) prepare_break_line(const char* format, ...) {
  char text[sizeof break_line] = "";
  va_list args;
  va_start(args, format);
  const int length = format[0] != '\0' ? std::vsnprintf(text, sizeof text, format, args) : 0;
  va_end(args);
  os_lock_output();
  std::memcpy(break_line, text, sizeof break_line);
  break_line_length = length > 0 ? std::strlen(break_line) : 0;
  os_unlock_output();
}

bool failed() { return scsi_transport.result.srb_status != 0 || scsi_transport.result.target_status != 0; }

void stop(const char* reason) { std::snprintf(stop_reason, sizeof stop_reason, "%s", reason); }

const ElementStatus& slot_element(uint32_t number) {
  return *element_of_type(plan.inventory, kStorageElement, number - 1);
}

// One Move Medium; the error line names both elements and says where to look.
// 0 or -1.
int move_cartridge(const char* barcode, uint16_t from, uint16_t to) {
  changer_move_medium(plan.transport, from, to);
  if (!failed()) return 0;
  char what[128];
  std::snprintf(what, sizeof what, "unable to move cartridge %s from element %u to element %u", barcode,
                static_cast<unsigned>(from), static_cast<unsigned>(to));
  report_changer_failure(what);
  report_printf("cartridge %s is left where the medium changer stopped: in element %u, element %u or the picker\r\n",
                barcode, static_cast<unsigned>(from), static_cast<unsigned>(to));
  return -1;
}

// Within a changer sequence: the drive is unloaded and the picker takes the
// cartridge to `slot_address`. 0 or -1 (the reason to stop is set).
int unload_and_move(const char* barcode, uint16_t slot_address) {
  changer_address_drive();
  const int unloaded = unload_for_changer();
  changer_address_changer();
  if (unloaded != 0) {
    stop("a cartridge could not be unloaded");
    return -1;
  }
  report_printf("moving cartridge %s from drive %u (element %u) to slot %u (element %u)\r\n", barcode,
                plan.drive_number, static_cast<unsigned>(plan.drive_element),
                slot_number(plan.inventory, slot_address), static_cast<unsigned>(slot_address));
  if (move_cartridge(barcode, plan.drive_element, slot_address) != 0) {
    stop("a cartridge could not be moved back to its slot");
    return -1;
  }
  return 0;
}

// A cartridge left in the drive (by an earlier run, or by hand) goes back to
// the slot it came from. 0 or -1.
int clear_drive() {
  ElementStatus drive;
  if (read_element(kDataTransferElement, plan.drive_element, &drive) != 0) {
    stop("a changer command failed");
    return -1;
  }
  if (!drive.full) return 0;
  const ElementStatus* home = drive.source_valid ? element_at(plan.inventory, drive.source) : nullptr;
  if (home == nullptr || home->type != kStorageElement) {
    report_printf("ERROR: drive %u (element %u) holds cartridge %s, and the medium changer names no slot it came "
                  "from: move it out of the drive first\r\n",
                  plan.drive_number, static_cast<unsigned>(plan.drive_element),
                  drive.barcode[0] != '\0' ? drive.barcode : "(no barcode)");
    stop("the drive holds a cartridge of unknown origin");
    return -1;
  }
  report_printf("drive %u (element %u) holds cartridge %s: moving it back first\r\n", plan.drive_number,
                static_cast<unsigned>(plan.drive_element), drive.barcode);
  return unload_and_move(drive.barcode, home->address);
}

// One changer sequence: whatever the drive holds goes home, then the
// cartridge in `number` goes into the drive. 0 or -1.
int load_cartridge(uint32_t number, const char* barcode) {
  const ElementStatus& slot = slot_element(number);
  if (changer_begin() != 0) {
    stop("the medium changer could not be reached");
    return -1;
  }
  int result = clear_drive();
  if (result == 0) {
    report_printf("moving cartridge %s from slot %u (element %u) to drive %u (element %u)\r\n", barcode, number,
                  static_cast<unsigned>(slot.address), plan.drive_number, static_cast<unsigned>(plan.drive_element));
    prepare_break_line("\r\nCTRL-C: cartridge %s was being moved from slot %u (element %u) to drive %u (element "
                       "%u); it is left where the medium changer put it\r\n",
                       barcode, number, static_cast<unsigned>(slot.address), plan.drive_number,
                       static_cast<unsigned>(plan.drive_element));
    result = move_cartridge(barcode, slot.address, plan.drive_element);
    if (result != 0) stop("a changer command failed");
  }
  changer_end();
  return result;
}

// One changer sequence: the drive is unloaded and the cartridge goes back to
// slot `number`. 0 or -1.
int return_cartridge(uint32_t number, const char* barcode) {
  const ElementStatus& slot = slot_element(number);
  prepare_break_line("\r\nCTRL-C: cartridge %s was being moved back from drive %u (element %u) to slot %u (element "
                     "%u); it is left where the medium changer put it\r\n",
                     barcode, plan.drive_number, static_cast<unsigned>(plan.drive_element), number,
                     static_cast<unsigned>(slot.address));
  if (changer_begin() != 0) {
    stop("the medium changer could not be reached");
    return -1;
  }
  const int result = unload_and_move(barcode, slot.address);
  changer_end();
  if (result == 0) {
    report_printf("cartridge %s is back in slot %u (element %u)\r\n", barcode, number,
                  static_cast<unsigned>(slot.address));
  }
  prepare_break_line("%s", "");
  return result;
}

// "chart.svg" -> "chart_LIB001L6.svg": one chart per cartridge.
void chart_name_for(const char* barcode, uint32_t number, char* name, size_t size) {
  const char* given = test_settings.chart_file_name;
  const char* dot = std::strrchr(given, '.');
  const char* slash = std::strrchr(given, '/');
  if (dot == nullptr || (slash != nullptr && dot < slash)) dot = given + std::strlen(given);
  char tag[kVolumeTagLength + 8];
  if (barcode[0] == '\0') {
    std::snprintf(tag, sizeof tag, "slot%u", number);
  } else {
    size_t i = 0;
    for (; barcode[i] != '\0' && i < kVolumeTagLength; ++i) {
      const char c = barcode[i];
      const bool plain = (c >= '0' && c <= '9') || (c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z') || c == '-';
      tag[i] = plain ? c : '_';
    }
    tag[i] = '\0';
  }
  std::snprintf(name, size, "%.*s_%s%s", static_cast<int>(dot - given), given, tag, dot);
}

// The engine's records of one test start afresh for each cartridge: test
// totals, drive status maxima, health baseline and flags, the preflight,
// the command timing. 0, or -1 after the message.
int start_cartridge_test(const char* barcode, uint32_t number) {
  reset_test_totals();
  reset_drive_status();
  reset_drive_health();
  reset_preflight();
  reset_command_timing();
  if (test_settings.chart_enabled != 0 || test_settings.results_file_enabled != 0) {
    if (begin_command_timing(test_settings.iterations, test_plan, test_settings.max_transfer_length) != 0) {
      stop("no memory for the command timing");
      return -1;
    }
  }
  if (test_settings.chart_enabled != 0) {
    char name[kFileNameCapacity + kVolumeTagLength + 8];
    chart_name_for(barcode, number, name, sizeof name);
    if (open_chart_file(name) != 0) {
      error_printf("ERROR: unable to open \"%s\" for the chart\n", name);
      stop("a chart file could not be opened");
      return -1;
    }
  }
  return 0;
}

void note_test_figures(CartridgeOutcome* o) {
  o->bytes_written = test_totals.bytes_written;
  o->bytes_verified = test_totals.bytes_verified;
  o->write_seconds = test_totals.write_seconds;
  o->read_seconds = test_totals.read_seconds;
  o->rwr_known = dsc_entries[kDscDrwr].selected != 0 && test_settings.drive_status_enabled != 0;
  o->ecc_known = dsc_entries[kDscDecc].selected != 0 && test_settings.drive_status_enabled != 0;
  o->max_rwr_percentage = test_totals.worst_rwr_percentage;
  o->max_ecc_percentage = test_totals.worst_ecc_percentage;
  o->alerts_known = test_settings.health_enabled != 0 && drive_health.readings > 0 &&
                    drive_health.current.tapealert_read;
  o->alerts_raised = drive_health.alerts_raised;
}

// The whole classic test of the cartridge in the drive, and its verdict.
void test_loaded_cartridge(CartridgeOutcome* o) {
  const int result = run_test_iterations();
  note_test_figures(o);
  if (result != 0) {
    o->result = CartridgeResult::failed;
    std::snprintf(o->reason, sizeof o->reason, "%s",
                  test_totals.failure != nullptr ? test_totals.failure : "a drive operation failed");
  } else {
    std::string joined;
    for (const std::string& reason : test_pass_blockers()) joined += (joined.empty() ? "" : "; ") + reason;
    o->result = joined.empty() ? CartridgeResult::passed : CartridgeResult::not_passed;
    std::snprintf(o->reason, sizeof o->reason, "%s", joined.c_str());
  }
}

// The cartridge's chart (`/plot`), written whole once its test is over (for
// a cartridge that never became ready: a chart without intervals).
void finish_chart(CartridgeOutcome* o) {
  if (write_chart(false) == 0 && close_chart() == 0) return;
  error_printf("ERROR: unable to write the chart of cartridge %s\n", o->barcode);
  if (o->result != CartridgeResult::failed) {
    o->result = CartridgeResult::failed;
    std::snprintf(o->reason, sizeof o->reason, "the chart could not be written");
  }
}

// A cartridge that never reached the drive leaves no chart file behind.
void drop_chart(const char* barcode, uint32_t number) {
  if (test_settings.chart_enabled == 0 || !chart_file_open()) return;
  close_chart();
  char name[kFileNameCapacity + kVolumeTagLength + 8];
  chart_name_for(barcode, number, name, sizeof name);
  std::remove(name);
}

// Why a chosen cartridge is not tested, or nullptr.
const char* skip_reason(const ElementStatus& slot, char* text, size_t size) {
  if (std::strncmp(slot.barcode, "CLN", 3) == 0) return "cleaning cartridge";
  if (slot.except) {
    std::snprintf(text, size, "the medium changer reports an exception, ASC/ASCQ %02X/%02X",
                  static_cast<unsigned>(slot.asc), static_cast<unsigned>(slot.ascq));
    return text;
  }
  return nullptr;
}

// One chosen cartridge from its slot through the test and back. 0 to go on
// with the next, -1 when the sweep stops.
int sweep_cartridge(uint32_t number, CartridgeOutcome* o) {
  const ElementStatus& slot = slot_element(number);
  char why[96];
  if (const char* reason = skip_reason(slot, why, sizeof why)) {
    report_printf("\r\nskipping slot %u (element %u), cartridge %s: %s\r\n", number,
                  static_cast<unsigned>(slot.address), o->barcode[0] != '\0' ? o->barcode : "(no barcode)", reason);
    o->result = CartridgeResult::skipped;
    std::snprintf(o->reason, sizeof o->reason, "%s", reason);
    return 0;
  }
  const char* date = date_string();
  report_printf("\r\nCARTRIDGE %s (slot %u, element %u) (%s %s)\r\n", o->barcode, number,
                static_cast<unsigned>(slot.address), date, time_string());
  o->result = CartridgeResult::failed;
  if (start_cartridge_test(o->barcode, number) != 0 || load_cartridge(number, o->barcode) != 0) {
    drop_chart(o->barcode, number);
    std::snprintf(o->reason, sizeof o->reason, "%s", stop_reason);
    return -1;
  }
  prepare_break_line("\r\nCTRL-C: cartridge %s (slot %u, element %u) is left in drive %u (element %u)\r\n", o->barcode,
                     number, static_cast<unsigned>(slot.address), plan.drive_number,
                     static_cast<unsigned>(plan.drive_element));
  report_printf("waiting until the drive is ready (at most %u minutes)\r\n", test_settings.ready_wait_minutes);
  const uint64_t seconds = static_cast<uint64_t>(test_settings.ready_wait_minutes) * 60;
  const bool ready = wait_until_ready_within(seconds < UINT32_MAX ? static_cast<uint32_t>(seconds) : UINT32_MAX) == 0;
  if (ready) {
    test_loaded_cartridge(o);
    // A test that went through ended at the beginning of the tape.
    if (o->result == CartridgeResult::failed) rewind_tape();
  } else {
    const uint8_t* sense = scsi_transport.result.sense_data;
    std::snprintf(o->reason, sizeof o->reason, "never ready (%s, ASC/ASCQ %02X/%02X)",
                  sense_key_names[last_sense_key()], static_cast<unsigned>(sense != nullptr ? sense[12] : 0),
                  static_cast<unsigned>(sense != nullptr ? sense[13] : 0));
    report_printf("the drive did not become ready with cartridge %s: %s\r\n", o->barcode, o->reason);
    o->result = CartridgeResult::not_passed;
  }
  finish_chart(o);
  report_printf("cartridge %s: %s\r\n", o->barcode, cartridge_result_text(*o).c_str());
  if (return_cartridge(number, o->barcode) != 0) {
    const bool tested = o->result != CartridgeResult::failed;
    if (tested || o->reason[0] == '\0') {
      std::snprintf(o->reason, sizeof o->reason, "%s%s", stop_reason, tested ? " (after its test)" : "");
    }
    o->result = CartridgeResult::failed;
    return -1;
  }
  flush_report_streams();
  return 0;
}

// After the last cartridge: is every tested cartridge in its slot again?
// Appends a reason for each one that is not.
void check_cartridges_home(std::vector<std::string>* reasons) {
  if (changer_begin() != 0) {
    reasons->push_back("the medium changer could not be reached after the sweep");
    return;
  }
  // The plan's inventory is not needed any more (the outcomes keep their
  // slots' addresses): read into its storage, so nothing grows.
  Inventory& final_inventory = plan.inventory;
  const int read = read_inventory(&final_inventory);
  changer_end();
  if (read != 0) {
    reasons->push_back("the inventory after the sweep could not be read");
    return;
  }
  unsigned checked = 0, missing = 0;
  for (const CartridgeOutcome& o : outcomes) {
    if (o.result == CartridgeResult::skipped || o.result == CartridgeResult::not_tested) continue;
    ++checked;
    const ElementStatus* slot = element_at(final_inventory, o.element);
    if (slot != nullptr && slot->full && std::strcmp(slot->barcode, o.barcode) == 0) continue;
    ++missing;
    report_printf("ERROR: cartridge %s is not back in slot %u (element %u)\r\n", o.barcode, o.slot,
                  static_cast<unsigned>(o.element));
    reasons->push_back(std::string("cartridge ") + o.barcode + " is not back in its slot");
  }
  if (missing == 0) report_printf("every tested cartridge is back in its slot (%u checked)\r\n", checked);
  flush_report_streams();
}

const char* result_name(CartridgeResult result) {
  switch (result) {
    case CartridgeResult::passed: return "passed";
    case CartridgeResult::failed: return "failed";
    case CartridgeResult::not_passed: return "not_passed";
    case CartridgeResult::skipped: return "skipped";
    default: return "not_tested";
  }
}

// The `cartridge` record: what the summary line says, and the TapeAlert
// flags raised by number.
void write_cartridge_record(const CartridgeOutcome& o) {
  if (!results_enabled()) return;
  const bool ran = o.result == CartridgeResult::passed || o.result == CartridgeResult::failed ||
                   o.result == CartridgeResult::not_passed;
  auto figure = [](const char* name, bool known, double value) {
    if (known) {
      results_double(name, value);
    } else {
      results_null(name);
    }
  };
  results_begin("cartridge");
  results_text("barcode", o.barcode);
  results_unsigned("slot", o.slot);
  results_unsigned("element", o.element);
  results_text("result", result_name(o.result));
  results_text("reason", o.reason[0] != '\0' ? o.reason : nullptr);
  results_unsigned("bytes_written", o.bytes_written);
  results_unsigned("bytes_verified", o.bytes_verified);
  figure("write_mb_per_second", ran && o.write_seconds > 0.0, megabytes_per_second(o.bytes_written, o.write_seconds));
  figure("read_mb_per_second", ran && o.read_seconds > 0.0, megabytes_per_second(o.bytes_verified, o.read_seconds));
  figure("max_rwr_percentage", ran && o.rwr_known, o.max_rwr_percentage);
  figure("max_ecc_percentage", ran && o.ecc_known, o.max_ecc_percentage);
  if (ran && o.alerts_known) {
    results_begin_array("tapealert_raised");
    for (unsigned flag = 1; flag <= 64; ++flag) {
      if ((o.alerts_raised >> (flag - 1) & 1) != 0) results_unsigned(nullptr, flag);
    }
    results_end_array();
  } else {
    results_null("tapealert_raised");
  }
  results_end();
}

std::string outcome_reason(const CartridgeOutcome& o) {
  return std::string(o.barcode[0] != '\0' ? o.barcode : "-") + " (slot " + std::to_string(o.slot) + "): " + o.reason;
}

// The exit code of the sweep and its reasons, as for a classic run.
int judge_sweep(double asked_megabytes, bool planned, std::vector<std::string>* reasons) {
  std::vector<std::string> failures, blockers;
  uint64_t written = 0, verified = 0;
  unsigned tested = 0;
  for (const CartridgeOutcome& o : outcomes) {
    written += o.bytes_written;
    verified += o.bytes_verified;
    if (o.result == CartridgeResult::failed) failures.push_back(outcome_reason(o));
    if (o.result == CartridgeResult::not_passed) blockers.push_back(outcome_reason(o));
    if (o.result == CartridgeResult::passed || o.result == CartridgeResult::not_passed) ++tested;
  }
  // The result record of the run counts the bytes of the whole sweep.
  test_totals.bytes_written = written;
  test_totals.bytes_verified = verified;
  if (stop_reason[0] != '\0') failures.insert(failures.begin(), std::string("sweep stopped: ") + stop_reason);
  if (planned && stop_reason[0] == '\0') check_cartridges_home(&failures);
  if (!failures.empty()) {
    *reasons = failures;
    return 1;
  }
  *reasons = blockers;
  if (tested == 0) reasons->push_back("no cartridge tested");
  for (std::string& reason : option_pass_blockers(asked_megabytes)) reasons->push_back(std::move(reason));
  return 0;
}

}  // namespace

int run_library_sweep(double asked_megabytes, std::vector<std::string>* reasons) {
  reset_library_sweep();
  if (prepare_library(&plan) != 0) {
    stop("the library could not be prepared");
    return judge_sweep(asked_megabytes, false, reasons);
  }
  outcomes.reserve(plan.slots.size());
  for (uint32_t number : plan.slots) {
    CartridgeOutcome o{};
    const ElementStatus& slot = slot_element(number);
    std::snprintf(o.barcode, sizeof o.barcode, "%s", slot.barcode);
    o.slot = number;
    o.element = slot.address;
    o.result = CartridgeResult::not_tested;
    outcomes.push_back(o);
  }
  if (!plan.slots.empty() && size_test() != 0) {
    stop("test sizing failed");
    return judge_sweep(asked_megabytes, false, reasons);
  }
  for (CartridgeOutcome& o : outcomes) {
    if (stop_reason[0] != '\0') {
      write_cartridge_record(o);  // not tested
      continue;
    }
    // Every record of the cartridge's test carries its barcode.
    results_set_context("cartridge", o.barcode);
    const int result = sweep_cartridge(o.slot, &o);
    results_clear_context();
    write_cartridge_record(o);
    if (result != 0) report_printf("\r\nthe sweep stops: %s\r\n", stop_reason);
  }
  print_sweep_summary(outcomes, plan.drive_element);
  return judge_sweep(asked_megabytes, true, reasons);
}

void write_sweep_break_line() {
  if (break_line_length == 0) return;
  std::fwrite(break_line, 1, break_line_length, screen_stream());
  if (FILE* output = log_file()) std::fwrite(break_line, 1, break_line_length, output);
}

void reset_library_sweep() {
  plan.inventory.elements.clear();
  plan.slots.clear();
  outcomes.clear();
  stop_reason[0] = '\0';
  break_line_length = 0;
  reset_changer_link();
}
