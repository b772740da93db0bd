#include "drive_status/collection.h"

#include <cmath>
#include <cstring>

#include "console/clock.h"
#include "console/log_output.h"
#include "drive_status/dsc_config.h"
#include "results/results_file.h"
#include "settings/settings.h"
#include "tape/command_blocks.h"
#include "transport/command_buffers.h"
#include "transport/scsi_transport.h"
#include "transport/status_report.h"

DriveStatus drive_status;

void reset_drive_status() { drive_status = DriveStatus{}; }

namespace {

constexpr uint8_t kLogPageControlCumulative = 1;
constexpr uint8_t kLogAllocationLength = kLogBufferSize;  // 40
constexpr uint8_t kSenseAllocationLength = 255;

void print_unable(const char* command_name) {
  report_printf("ERROR: unable to get drive status information with \"%s\" command\r\nat SCSI id %X LUN %u\r\n",
                command_name, test_settings.scsi_id, test_settings.lun);
  print_command_status();
}

// Walks the log pages in the Log Sense answer to the one asked for; the
// offset of its parameter data, or -1 after the "invalid" message and dump.
int find_log_page(uint8_t page) {
  uint32_t total = 0;
  while (total + 4 <= kLogAllocationLength) {
    const uint8_t* header = log_buffer + total;
    if ((header[0] & 0x3F) == page) return static_cast<int>(total + 4);
    total += ((static_cast<uint32_t>(header[2]) << 8) | header[3]) + 4;
  }
  report_printf("ERROR: invalid \"Log Sense\" data (cannot find requested page data)\r\nat SCSI id %X LUN %u\r\n",
                test_settings.scsi_id, test_settings.lun);
  hex_dump(nullptr, log_buffer, kLogBufferSize, 0, kLogAllocationLength);
  return -1;
}

// Issues the entry's command; on success sets *data and *available to the
// bytes the field may be taken from. 0, or -1 after the messages.
int fetch_counter_data(const DscEntry& entry, const uint8_t** data, uint32_t* available) {
  if (std::strcmp(entry.command, "LSD") == 0) {
    scsi_log_sense(entry.page, kLogPageControlCumulative, kLogAllocationLength);
    if (command_failed()) {
      print_unable("Log Sense");
      return -1;
    }
    int base = find_log_page(entry.page);
    if (base < 0) return -1;
    *data = log_buffer + base;
    *available = kLogAllocationLength - static_cast<uint32_t>(base);
    return 0;
  }
  if (std::strcmp(entry.command, "RPD") == 0) {
    scsi_read_position();
    if (command_failed()) {
      print_unable("Read Position");
      return -1;
    }
    *data = read_position_buffer;
    *available = kReadPositionBufferSize;
    return 0;
  }
  if (std::strcmp(entry.command, "RSD") != 0) {
    report_printf("ERROR: unknown drive status command \"%.3s\"\r\n", entry.command);
    return -1;
  }
  scsi_request_sense(kSenseAllocationLength);
  if (command_failed()) {
    print_unable("Request Sense");
    return -1;
  }
  *data = sense_buffer;
  *available = kSenseAllocationLength;
  return 0;
}

int read_value(int keyword_index, double* value) {
  const DscEntry& entry = dsc_entries[keyword_index];
  const uint8_t* data = nullptr;
  uint32_t available = 0;
  if (fetch_counter_data(entry, &data, &available) != 0) return -1;
  // The configuration reader refuses such entries; never read past the data.
  if (entry.length < 1 || entry.length > 4 ||
      static_cast<uint32_t>(entry.offset) + entry.length > available) {
    report_printf("ERROR: drive status field (offset %u, length %u) lies outside the \"%s\" data\r\n"
                  "at SCSI id %X LUN %u\r\n",
                  entry.offset, entry.length, entry.command, test_settings.scsi_id, test_settings.lun);
    return -1;
  }
  uint32_t number = 0;
  for (uint32_t i = 0; i < entry.length; ++i) number = (number << 8) | data[entry.offset + i];
  *value = static_cast<double>(number) * static_cast<double>(entry.multiplier);
  return 0;
}

bool selected(int keyword_index) { return dsc_entries[keyword_index].selected != 0; }

// The three figures of one test kind.
struct KindKeywords {
  int amount, compression, errors;
  double DriveStatus::*amount_field;
  double DriveStatus::*compression_field;
  double DriveStatus::*errors_field;
  double DriveStatus::*maximum_field;
  const char* compression_label;
  const char* errors_label;
};

const KindKeywords kWriteKeywords = {
    kDscTdwr, kDscWcmp, kDscDrwr,
    &DriveStatus::tdwr, &DriveStatus::wcmp, &DriveStatus::drwr, &DriveStatus::max_rwr_percentage,
    "write data compression ratio ...............", "drive RWR percentage .......................",
};
const KindKeywords kReadKeywords = {
    kDscTdrd, kDscRcmp, kDscDecc,
    &DriveStatus::tdrd, &DriveStatus::rcmp, &DriveStatus::decc, &DriveStatus::max_ecc_percentage,
    "read data compression ratio ................", "drive ECC percentage .......................",
};

int take_baseline(const KindKeywords& k) {
  DriveStatus& s = drive_status;
  if (selected(k.amount) && read_drive_value(k.amount, &(s.*k.amount_field)) != 0) return -1;
  if (selected(k.compression) && read_drive_value(k.compression, &(s.*k.compression_field)) != 0) return -1;
  if (selected(k.errors) && read_drive_value(k.errors, &(s.*k.errors_field)) != 0) return -1;
  return 0;
}

int evaluate_interval(const KindKeywords& k, double bytes) {
  DriveStatus& s = drive_status;
  double& amount = s.*k.amount_field;
  if (selected(k.amount)) {
    if (read_drive_value(k.amount, &s.reading) != 0) return -1;
    amount = std::fabs(s.reading - amount);
  } else {
    amount = bytes;
  }
  if (selected(k.compression)) {
    double& ratio = s.*k.compression_field;
    if (read_drive_value(k.compression, &s.reading) != 0) return -1;
    const double d = std::fabs(s.reading - ratio);
    ratio = d == 0.0 ? 0.0 : bytes / d;
    report_printf("  %s %.1f to 1\r\n", k.compression_label, ratio);
  }
  if (selected(k.errors)) {
    double& percentage = s.*k.errors_field;
    if (read_drive_value(k.errors, &s.reading) != 0) return -1;
    const double d = std::fabs(s.reading - percentage);
    if (!selected(k.amount)) amount += d;
    percentage = amount == 0.0 ? 0.0 : d / amount * 100.0;
    report_printf("  %s %.1f%%\r\n", k.errors_label, percentage);
    if (percentage > s.*k.maximum_field) s.*k.maximum_field = percentage;
  }
  return 0;
}

// Low bits of a reading, truncated toward zero (readings are never negative).
uint32_t low_bits(double reading, uint32_t mask) {
  return static_cast<uint32_t>(static_cast<uint64_t>(reading) & mask);
}

int report_position_and_retries() {
  DriveStatus& s = drive_status;
  if (selected(kDscRpos)) {
    if (read_drive_value(kDscRpos, &s.rpos) != 0) return -1;
    report_printf("  tape logical block position ................ 0x%lX\r\n",
                  static_cast<unsigned long>(low_bits(s.rpos, 0xFFFFFFFFu)));
  }
  if (selected(kDscRwrc)) {
    if (read_drive_value(kDscRwrc, &s.rwrc) != 0) return -1;
    report_printf("  drive read/write retry counter ............. 0x%02X\r\n", low_bits(s.rwrc, 0xFF));
  }
  if (selected(kDscTkrc)) {
    if (read_drive_value(kDscTkrc, &s.tkrc) != 0) return -1;
    report_printf("  drive tracking retry counter ............... 0x%02X\r\n", low_bits(s.tkrc, 0xFF));
  }
  return 0;
}

}  // namespace

int read_drive_value(int keyword_index, double* value) {
  int result = -1;
  if (keyword_index >= 0 && keyword_index < kDscKeywordCount) result = read_value(keyword_index, value);
  flush_report_streams();
  return result;
}

void write_drive_status_fields(uint16_t kind) {
  const DriveStatus& s = drive_status;
  const bool write = kind == 0;
  const bool compression = selected(write ? kDscWcmp : kDscRcmp);
  const bool errors = selected(write ? kDscDrwr : kDscDecc);
  if (!compression && !errors && !selected(kDscRpos) && !selected(kDscRwrc) && !selected(kDscTkrc)) return;
  results_begin_object("drive_status");
  if (compression) results_double("compression_ratio", write ? s.wcmp : s.rcmp);
  if (errors) results_double(write ? "rwr_percentage" : "ecc_percentage", write ? s.drwr : s.decc);
  if (selected(kDscRpos)) results_double("block_position", low_bits(s.rpos, 0xFFFFFFFFu));
  if (selected(kDscRwrc)) results_double("read_write_retries", low_bits(s.rwrc, 0xFF));
  if (selected(kDscTkrc)) results_double("tracking_retries", low_bits(s.tkrc, 0xFF));
  results_end_object();
}

int collect_drive_status(uint16_t phase, uint16_t kind, double bytes) {
  const KindKeywords& keywords = kind == 0 ? kWriteKeywords : kReadKeywords;
  if (phase == 1 && kind == 0 && (selected(kDscWcmp) || selected(kDscDrwr))) {
    scsi_write_filemarks(0);  // flushes the drive's write buffer; outcome not needed
  }
  if (test_settings.status_delay_ms != 0) sleep_msec(test_settings.status_delay_ms);
  scsi_test_unit_ready();

  int result = 0;
  if (phase == 0) {
    result = take_baseline(keywords);
  } else {
    result = evaluate_interval(keywords, bytes);
    if (result == 0) result = report_position_and_retries();
  }
  flush_report_streams();
  return result;
}
