#include "run/run_result.h"

#include <cstdio>
#include <cstring>

#include "console/log_output.h"
#include "engine/transfer_loops.h"
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

// An Inquiry text from `inquiry_buffer`, trailing blanks and zero bytes cut.
std::string inquiry_text(unsigned offset, unsigned length) {
  std::string text(reinterpret_cast<const char*>(inquiry_buffer + offset), length);
  text = text.substr(0, text.find('\0'));
  text.erase(text.find_last_not_of(' ') + 1);
  return text;
}

// The data of a VPD page, or false when the drive refused or sent another page.
bool read_vpd_page(uint8_t page_code, std::string* data) {
  scsi_inquiry_vpd(page_code, 255);
  if (command_failed() || inquiry_buffer[1] != page_code) return false;
  const unsigned length = (static_cast<unsigned>(inquiry_buffer[2]) << 8) | inquiry_buffer[3];
  *data = std::string(reinterpret_cast<const char*>(inquiry_buffer + 4), length < 251 ? length : 251);
  return true;
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

const char* text_or_null(const std::string& text, bool present) { return present ? text.c_str() : nullptr; }

}  // namespace

std::vector<std::string> pass_blockers(double asked_megabytes) {
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
  if (test_settings.total_megabytes < asked_megabytes) {
    std::snprintf(text, sizeof text, "amount cut by sizing to %.3f MB of %.3f MB asked",
                  test_settings.total_megabytes, asked_megabytes);
    reasons.push_back(text);
  }
  if (options_had_illegal_number()) reasons.push_back("illegal characters in a number among the options");
  if (test_settings.unload_each_iteration && load_unload_step == 0) {
    reasons.push_back("unload/reload not supported by the drive (/uld)");
  }
  return reasons;
}

void print_result_line(const std::vector<std::string>& reasons) {
  if (reasons.empty()) {
    report_printf("\r\nRESULT: PASSED\r\n");
  } else {
    std::string joined;
    for (const std::string& reason : reasons) joined += (joined.empty() ? "" : "; ") + reason;
    report_printf("\r\nRESULT: FAILED (%s)\r\n", joined.c_str());
  }
  flush_report_streams();
}

void write_run_record(int argument_count, char** arguments, bool drive_answered) {
  if (!results_enabled()) return;
  std::string vendor, product, revision, serial;
  bool has_serial = false;
  if (drive_answered) {
    vendor = inquiry_text(8, 8);
    product = inquiry_text(16, 16);
    revision = inquiry_text(32, 4);
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
  RunRecord run{};
  run.program_version = kProgramVersion;
  run.argument_count = argument_count > 0 ? argument_count - 1 : 0;
  run.arguments = arguments + 1;
  run.settings = &test_settings;
  run.platform = platform.name;
  run.device = device;
  run.vendor = text_or_null(vendor, drive_answered);
  run.product = text_or_null(product, drive_answered);
  run.revision = text_or_null(revision, drive_answered);
  run.serial = text_or_null(serial, has_serial);
  results_write_run(run);
}

void write_result_record(int code, const std::vector<std::string>& reasons) {
  if (!results_enabled()) return;
  std::vector<const char*> texts;
  for (const std::string& reason : reasons) texts.push_back(reason.c_str());
  ResultRecord result{};
  result.exit_code = code;
  result.status = code == 0 && reasons.empty() ? "passed" : "failed";
  result.reasons = texts.data();
  result.reason_count = static_cast<unsigned>(texts.size());
  result.bytes_written = test_totals.bytes_written;
  result.bytes_verified = test_totals.bytes_verified;
  results_write_result(result);
}
