#include "run/run_result.h"

#include <chrono>
#include <cstdio>
#include <cstring>
#include <ctime>

#include "console/log_output.h"
#include "engine/transfer_loops.h"
#include "os/os.h"
#include "results/results_file.h"
#include "run/options.h"
#include "settings/settings.h"
#include "tape/command_blocks.h"
#include "tape/drive_operations.h"
#include "transport/command_buffers.h"
#include "transport/device_table.h"
#include "transport/platform/platform.h"
#include "transport/scsi_transport.h"

namespace {

constexpr const char* kProgramVersion = "1.57CV";
constexpr uint8_t kVpdSupportedPages = 0x00;
constexpr uint8_t kVpdUnitSerialNumber = 0x80;

// The data of a VPD page, or false when the drive refused or sent another page.
bool read_vpd_page(uint8_t page_code, std::string* data) {
  scsi_inquiry_vpd(page_code, 255);
  if (command_failed() || inquiry_buffer[1] != page_code) return false;
  const unsigned length = (static_cast<unsigned>(inquiry_buffer[2]) << 8) | inquiry_buffer[3];
  *data = std::string(reinterpret_cast<const char*>(inquiry_buffer + 4), length < 251 ? length : 251);
  return true;
}

}  // namespace

std::string inquiry_text(const uint8_t* data, unsigned offset, unsigned length) {
  std::string text(reinterpret_cast<const char*>(data + offset), length);
  text = text.substr(0, text.find('\0'));
  text.erase(text.find_last_not_of(' ') + 1);
  return text;
}

bool unit_serial_number(std::string* serial) {
  std::string pages;
  if (!read_vpd_page(kVpdSupportedPages, &pages) ||
      pages.find(static_cast<char>(kVpdUnitSerialNumber)) == std::string::npos ||
      !read_vpd_page(kVpdUnitSerialNumber, serial)) {
    return false;
  }
  // The serial number is ASCII, right-aligned with blanks in some drives.
  serial->erase(0, serial->find_first_not_of(' '));
  serial->erase(serial->find_last_not_of(" \0", std::string::npos, 2) + 1);
  return true;
}

namespace {

const char* text_or_null(const std::string& text, bool present) { return present ? text.c_str() : nullptr; }

// A name for this run that no other run shares, on this host or another: the
// host name, the time of the run record to the microsecond (UTC) and the
// process id, e.g. "tapehost-20261123T140509.123456Z-4242". Two hosts of
// one name (cloned machines) would have to start a run in the same
// microsecond with the same process id to collide.
std::string make_run_id(const char* host) {
  const auto now = std::chrono::system_clock::now();
  const std::time_t seconds = std::chrono::system_clock::to_time_t(now);
  const auto microseconds =
      std::chrono::duration_cast<std::chrono::microseconds>(now.time_since_epoch()).count() % 1000000;
  std::tm utc{};
  if (const std::tm* t = std::gmtime(&seconds)) utc = *t;
  char time_text[24];
  std::strftime(time_text, sizeof time_text, "%Y%m%dT%H%M%S", &utc);
  char id[sizeof time_text + 48];
  std::snprintf(id, sizeof id, "-%s.%06lldZ-%lu", time_text, static_cast<long long>(microseconds),
                static_cast<unsigned long>(os_process_id()));
  std::string run_id = host[0] != '\0' ? host : "unknown-host";
  run_id += id;
  return run_id;
}

// The settings as the options resolved them.
void write_settings_object(const TestSettings& s) {
  static const char* const kPatterns[] = {"null", "pseudo-random", "file"};
  auto text_if = [](const char* name, bool present, const char* text) { results_text(name, present ? text : nullptr); };
  results_begin_object("settings");
  results_text("output_file", s.output_file_name);
  results_bool("output_append", s.output_file_mode[0] == 'a');
  text_if("cdb_list_file", s.cdb_list_enabled != 0, s.cdb_list_file_name);
  results_text("data_pattern", kPatterns[s.data_pattern_type < 3 ? s.data_pattern_type : 0]);
  results_bool("pattern_repeats_per_block", s.random_pattern_repeats != 0);
  text_if("pattern_file", s.data_pattern_type == 2, s.pattern_file_name);
  results_unsigned("density_code", s.density_code);
  results_unsigned("iterations", s.iterations);
  results_double("megabytes", s.total_megabytes);
  if (s.interval_given) {
    results_double("interval_megabytes", s.interval_megabytes);
  } else {
    results_null("interval_megabytes");
  }
  results_unsigned("logical_block_size", s.logical_block_size);
  results_bool("block_size_from_mode_sense", s.block_size_from_mode_sense != 0);
  results_unsigned("max_transfer_length", s.max_transfer_length);
  results_bool("drive_status", s.drive_status_enabled != 0);
  results_unsigned("status_delay_ms", s.status_delay_ms);
  results_bool("unload_each_iteration", s.unload_each_iteration != 0);
  results_bool("virtual_drive", s.virtual_drive_enabled != 0);
  text_if("virtual_drive_file", s.virtual_drive_file_name[0] != '\0', s.virtual_drive_file_name);
  results_text("results_file", s.results_file_name);
  results_bool("strict", s.strict_exit != 0);
  results_bool("health", s.health_enabled != 0);
  text_if("chart_file", s.chart_enabled != 0, s.chart_file_name);
  if (s.changer_enabled != 0) {  // a library sweep's own options
    results_begin_object("library");
    results_begin_object("changer");
    results_unsigned("hanum", s.changer.adapter);
    results_unsigned("bus", s.changer.bus);
    results_unsigned("id", s.changer.target_id);
    results_unsigned("lun", s.changer.lun);
    results_end_object();
    results_begin_array("slots");  // [first, last] ranges; empty: every full slot
    for (unsigned i = 0; i < s.slot_range_count; ++i) {
      results_begin_array(nullptr);
      results_unsigned(nullptr, s.slot_ranges[i].first);
      results_unsigned(nullptr, s.slot_ranges[i].last);
      results_end_array();
    }
    results_end_array();
    if (s.drive_ordinal >= 0) {
      results_unsigned("drive", static_cast<uint64_t>(s.drive_ordinal));
    } else {
      results_null("drive");
    }
    results_unsigned("ready_wait_minutes", s.ready_wait_minutes);
    results_end_object();
  }
  results_end_object();
}

}  // namespace

std::vector<std::string> pass_blockers(double asked_megabytes) {
  std::vector<std::string> reasons = test_pass_blockers();
  for (std::string& reason : option_pass_blockers(asked_megabytes)) reasons.push_back(std::move(reason));
  return reasons;
}

std::vector<std::string> test_pass_blockers() {
  std::vector<std::string> reasons;
  char text[128];
  if (test_totals.rwr_failed) {
    std::snprintf(text, sizeof text, "RWR verdict failed (%.1f%%)", test_totals.worst_rwr_percentage);
    reasons.push_back(text);
  }
  if (test_totals.ecc_failed) {
    std::snprintf(text, sizeof text, "ECC verdict failed (%.1f%%)", test_totals.worst_ecc_percentage);
    reasons.push_back(text);
  }
  if (test_totals.bytes_verified == 0) reasons.push_back("0 bytes verified");
  return reasons;
}

std::vector<std::string> option_pass_blockers(double asked_megabytes) {
  std::vector<std::string> reasons;
  char text[128];
  if (test_settings.total_megabytes < asked_megabytes) {
    std::snprintf(text, sizeof text, "amount cut by sizing to %.3f MB of %.3f MB asked",
                  test_settings.total_megabytes, asked_megabytes);
    reasons.push_back(text);
  }
  for (const OptionValueNote& note : option_value_notes()) {
    reasons.push_back(note.option + " " + note.given + " used as " + std::to_string(note.used) + ", " +
                      note.why);
  }
  if (test_settings.unload_each_iteration && load_unload_step == 0) {
    reasons.push_back("unload/reload not supported by the drive (/uld)");
  }
  return reasons;
}

void print_result_line(FILE* stream, const std::vector<std::string>& reasons) {
  if (reasons.empty()) {
    log_printf({stream}, "\r\nRESULT: PASSED\r\n");
  } else {
    std::string joined;
    for (const std::string& reason : reasons) joined += (joined.empty() ? "" : "; ") + reason;
    log_printf({stream}, "\r\nRESULT: FAILED (%s)\r\n", joined.c_str());
  }
}

void write_interrupted_result_line() {
  static constexpr char kLine[] = "\r\nRESULT: FAILED (interrupted)\r\n";
  if (test_settings.strict_exit == 0) return;
  for (FILE* stream : {screen_stream(), log_file()}) {
    if (stream != nullptr) std::fwrite(kLine, 1, sizeof kLine - 1, stream);
  }
}

void write_run_record(int argument_count, char** arguments, bool drive_answered) {
  if (!results_enabled()) return;
  std::string vendor, product, revision, serial;
  bool has_serial = false;
  if (drive_answered) {
    vendor = inquiry_text(inquiry_buffer, 8, 8);
    product = inquiry_text(inquiry_buffer, 16, 16);
    revision = inquiry_text(inquiry_buffer, 32, 4);
    has_serial = unit_serial_number(&serial);
  }
  const Platform& platform = active_platform();
  char node[160] = "";
  const char* device = nullptr;
  if (test_settings.virtual_drive_enabled) {
    if (test_settings.virtual_drive_file_name[0] != '\0') device = test_settings.virtual_drive_file_name;
  } else if (const char* name = addressed_device_name()) {
    const ScsiAddress unit{test_settings.host_adapter_number, test_settings.bus_number,
                           test_settings.scsi_id, test_settings.lun};
    const bool has_node =
        platform.device_node != nullptr && platform.device_node(name, unit, node, sizeof node) == 0;
    device = has_node ? node : name;
  }
  const TestSettings& s = test_settings;
  results_begin("run");
  results_text("version", kProgramVersion);
  char host[256];
  const bool host_known = os_host_name(host, sizeof host) == 0;
  results_text("host", host_known ? host : nullptr);
  results_text("run_id", make_run_id(host_known ? host : "").c_str());
  if (s.run_label[0] != '\0') results_text("label", s.run_label);  // `/label`
  results_begin_array("options");  // as given, argument 0 and the secrets of `/iscsi` left out
  for (int i = 1; i < argument_count; ++i) results_text(nullptr, argument_for_record(arguments[i]));
  results_end_array();
  // The option numbers the run does not use as written, each as given and as used.
  results_begin_array("option_values_not_as_given");
  for (const OptionValueNote& note : option_value_notes()) {
    results_begin_object(nullptr);
    results_text("option", note.option.c_str());
    results_text("given", note.given.c_str());
    results_unsigned("used", note.used);
    results_text("why", note.why);
    results_end_object();
  }
  results_end_array();
  write_settings_object(s);
  results_begin_object("address");
  results_unsigned("hanum", s.host_adapter_number);
  results_unsigned("bus", s.bus_number);
  results_unsigned("id", s.scsi_id);
  results_unsigned("lun", s.lun);
  results_end_object();
  results_begin_object("access");
  results_text("platform", platform.name);
  results_text("device", device);  // how the drive was reached: node or device name
  results_end_object();
  results_begin_object("drive");  // Inquiry texts, blanks cut; null when the drive gave none
  results_text("vendor", text_or_null(vendor, drive_answered));
  results_text("product", text_or_null(product, drive_answered));
  results_text("revision", text_or_null(revision, drive_answered));
  results_text("serial", text_or_null(serial, has_serial));
  results_end_object();
  results_time_now("start_time");
  results_end();
}

void write_result_record(int code, const std::vector<std::string>& reasons) {
  if (!results_enabled()) return;
  results_begin("result");
  results_signed("exit_code", code);
  results_text("status", code == 0 && reasons.empty() ? "passed" : "failed");
  results_begin_array("reasons");
  for (const std::string& reason : reasons) results_text(nullptr, reason.c_str());
  results_end_array();
  results_unsigned("bytes_written", test_totals.bytes_written);
  results_unsigned("bytes_verified", test_totals.bytes_verified);
  results_elapsed_seconds("elapsed_seconds");
  results_time_now("end_time");
  results_end();
}
