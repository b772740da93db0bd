#include "drive_status/drive_health.h"

#include <bit>
#include <cstdarg>
#include <cstdio>
#include <cstring>
#include <iterator>

#include "console/log_output.h"
#include "drive_status/log_parameters.h"
#include "drive_status/preflight.h"
#include "drive_status/tapealert_flags.h"
#include "results/results_file.h"
#include "settings/settings.h"
#include "tape/command_blocks.h"
#include "transport/scsi_transport.h"
#include "transport/status_report.h"

DriveHealth drive_health;

namespace {

constexpr uint8_t kCumulativeValues = 1;  // page control
constexpr uint8_t kTapeAlertPage = 0x2E;
// Standard pages fit in the first read; a longer one is read again whole.
constexpr uint16_t kFirstAllocation = 4096;
constexpr uint32_t kPageBufferSize = 0x10000;
alignas(4096) uint8_t page_data[kPageBufferSize];
LogPage walked;

struct CounterSource {
  uint8_t page;
  uint16_t code;
  const char* name;  // in the report
  const char* key;   // in the results file
};

// In HealthCounter order.
const CounterSource kCounters[kHealthCounterCount] = {
    {0x02, 0x0003, "write errors corrected", "write_errors_corrected"},
    {0x02, 0x0002, "write total rewrites", "write_total_rewrites"},
    {0x02, 0x0005, "write bytes processed", "write_bytes_processed"},
    {0x02, 0x0006, "write errors uncorrected", "write_errors_uncorrected"},
    {0x03, 0x0003, "read errors corrected", "read_errors_corrected"},
    {0x03, 0x0002, "read total rereads", "read_total_rereads"},
    {0x03, 0x0005, "read bytes processed", "read_bytes_processed"},
    {0x03, 0x0006, "read errors uncorrected", "read_errors_uncorrected"},
    {0x0C, 0x0000, "bytes from the host", "bytes_from_the_host"},
    {0x0C, 0x0001, "bytes written to tape", "bytes_written_to_tape"},
    {0x0C, 0x0002, "bytes read from tape", "bytes_read_from_tape"},
    {0x0C, 0x0003, "bytes to the host", "bytes_to_the_host"},
    {0x0C, 0x0100, "cleaning required", "cleaning_required"},
    {0x17, 0x0001, "volume thread count", "volume_thread_count"},
    {0x17, 0x0002, "volume data sets written", "volume_data_sets_written"},
    {0x17, 0x0003, "volume write retries", "volume_write_retries"},
    {0x17, 0x0004, "volume unrecovered write errors", "volume_unrecovered_write_errors"},
    {0x17, 0x0007, "volume data sets read", "volume_data_sets_read"},
    {0x17, 0x0008, "volume read retries", "volume_read_retries"},
    {0x17, 0x0009, "volume unrecovered read errors", "volume_unrecovered_read_errors"},
    {0x17, 0x0010, "volume lifetime MB written", "volume_lifetime_mb_written"},
    {0x17, 0x0011, "volume lifetime MB read", "volume_lifetime_mb_read"},
};

struct PageName {
  uint8_t code;
  const char* name;
};
// The pages read after page 00h, in this order.
const PageName kPages[] = {{kTapeAlertPage, "TapeAlert"},
                           {0x02, "write error counters"},
                           {0x03, "read error counters"},
                           {0x0C, "sequential-access device"},
                           {0x17, "volume statistics"}};

}  // namespace

void health_line(const char* label, const char* format, ...) {
  char value[96];
  va_list args;
  va_start(args, format);
  std::vsnprintf(value, sizeof value, format, args);
  va_end(args);
  char padded[64];
  size_t length = std::strlen(label);
  std::snprintf(padded, sizeof padded, "%s ", label);
  for (size_t i = length + 1; i < 44 && i < sizeof padded - 1; ++i) padded[i] = '.';
  if (length + 1 < 44) padded[44] = '\0';
  report_printf("  %s %s\r\n", padded, value);
}

namespace {

const char* page_name(uint8_t code) {
  for (const PageName& page : kPages) {
    if (page.code == code) return page.name;
  }
  return "supported pages";
}

void report_page_failure(uint8_t code, const char* why) {
  drive_health.page_failed[code & 0x3F] = true;
  report_printf("WARNING: log page %02Xh (%s) %s at SCSI id %X LUN %u; left out from now on\r\n",
                static_cast<unsigned>(code), page_name(code), why,
                static_cast<unsigned>(test_settings.scsi_id), static_cast<unsigned>(test_settings.lun));
}

// Reads page `code` whole into `page_data` and walks it into `walked`. 0, or
// -1 after the page was reported as failed.
int read_page(uint8_t code) {
  uint16_t allocation = kFirstAllocation;
  for (int attempt = 0; attempt < 2; ++attempt) {
    scsi_log_sense_page(code, kCumulativeValues, page_data, allocation);
    if (command_failed()) {
      report_page_failure(code, "cannot be read");
      print_command_status();
      return -1;
    }
    uint32_t got = scsi_transport.result.transferred_length;
    if (got == 0 || got > allocation) got = allocation;  // a platform that does not tell
    if (walk_log_page(page_data, got, &walked) != 0 || walked.page_code != code) {
      report_page_failure(code, "came back malformed or as another page");
      return -1;
    }
    const uint32_t whole = walked.page_length + 4;
    if (whole <= got || got < allocation || attempt == 1) return 0;
    allocation = static_cast<uint16_t>(whole < 0xFFFF ? whole : 0xFFFF);
  }
  return 0;
}

void take_reading(HealthReading* reading) {
  *reading = HealthReading{};
  if (drive_health.page_failed[0]) return;
  if (read_page(0x00) != 0) return;
  reading->pages_known = true;
  supported_log_pages(walked, page_data, reading->listed);
  for (const PageName& page : kPages) {
    if (!reading->listed[page.code] || drive_health.page_failed[page.code]) continue;
    if (read_page(page.code) != 0) continue;
    if (page.code == kTapeAlertPage) {
      reading->tapealert_read = true;
      for (unsigned flag = 1; flag <= 64; ++flag) {
        const LogParameter* p = find_log_parameter(walked, static_cast<uint16_t>(flag));
        if (p != nullptr && p->length > 0 && (page_data[p->offset] & 0x01) != 0) {
          reading->alerts |= uint64_t{1} << (flag - 1);
        }
      }
      continue;
    }
    for (unsigned c = 0; c < kHealthCounterCount; ++c) {
      if (kCounters[c].page != page.code) continue;
      reading->has[c] = log_counter(walked, page_data, kCounters[c].code, &reading->value[c]) == 0;
    }
  }
}

void add_changes(const HealthReading& before, const HealthReading& after) {
  for (unsigned c = 0; c < kHealthCounterCount; ++c) {
    if (!before.has[c] || !after.has[c]) continue;
    const uint64_t step =
        after.value[c] >= before.value[c] ? after.value[c] - before.value[c] : after.value[c];
    drive_health.change[c] += step;
    drive_health.has_change[c] = true;
  }
}

void print_reading(const HealthReading& r, bool after_test_start) {
  if (!r.pages_known) {
    health_line("log pages listed", "unknown");
    return;
  }
  char list[64 * 4 + 1] = "";
  size_t used = 0;
  for (unsigned code = 0; code < 64; ++code) {
    if (!r.listed[code]) continue;
    std::snprintf(list + used, sizeof list - used, "%s%02Xh", used != 0 ? " " : "", code);
    used = std::strlen(list);
  }
  health_line("log pages listed", "%s", list);
  if (r.tapealert_read) {
    const int count = std::popcount(r.alerts);
    if (count == 0) health_line("TapeAlert flags set", "none");
    for (unsigned flag = 1; flag <= 64; ++flag) {
      if (((r.alerts >> (flag - 1)) & 1) == 0) continue;
      const TapeAlertFlag& f = tapealert_flag(flag);
      char label[96];
      std::snprintf(label, sizeof label, "TapeAlert %02Xh %s", flag, f.name);
      const bool fresh = after_test_start && ((drive_health.baseline.alerts >> (flag - 1)) & 1) == 0;
      health_line(label, "%s%s", severity_name(f.severity), fresh ? " (new)" : "");
    }
  }
  for (unsigned c = 0; c < kHealthCounterCount; ++c) {
    if (!r.has[c]) continue;
    if (c == kCleaningRequired) {
      health_line(kCounters[c].name, "%s", r.value[c] != 0 ? "yes" : "no");
    } else {
      health_line(kCounters[c].name, "%llu", static_cast<unsigned long long>(r.value[c]));
    }
  }
}

// The figures over the test, as printed and as the results file takes them.
struct Changes {
  struct Figure {
    const char* key;
    double value;
  } figures[6];
  unsigned count;
  bool cleaning_known;
  bool cleaning_required;
  bool cleaning_new;
  unsigned alerts_raised;
};

void add_figure(Changes* changes, const char* key, double value) {
  if (changes->count < std::size(changes->figures)) changes->figures[changes->count++] = {key, value};
}

void change_ratio(Changes* changes, const char* label, const char* key, unsigned host, unsigned tape) {
  const DriveHealth& h = drive_health;
  if (!h.has_change[host] || !h.has_change[tape]) return;
  if (h.change[tape] == 0) {
    health_line(label, "no data moved");
    return;
  }
  const double ratio = static_cast<double>(h.change[host]) / static_cast<double>(h.change[tape]);
  health_line(label, "%.1f to 1", ratio);
  add_figure(changes, key, ratio);
}

// Events per GB (1024 MB) of the direction's data: the page's own bytes
// processed, else the sequential-access page's host bytes.
void change_rate(Changes* changes, const char* label, const char* key, unsigned events, unsigned bytes,
                 unsigned host_bytes) {
  const DriveHealth& h = drive_health;
  if (!h.has_change[events]) return;
  unsigned basis = h.has_change[bytes] && h.change[bytes] != 0 ? bytes : host_bytes;
  if (!h.has_change[basis] || h.change[basis] == 0) return;
  const double gigabytes = static_cast<double>(h.change[basis]) / (1024.0 * kBytesPerMegabyte);
  const double rate = static_cast<double>(h.change[events]) / gigabytes;
  health_line(label, "%.2f", rate);
  add_figure(changes, key, rate);
}

void print_changes(Changes* changes_out) {
  const DriveHealth& h = drive_health;
  report_printf("  over the test:\r\n");
  Changes& changes = *changes_out;
  change_ratio(&changes, "write compression ratio", "write_compression_ratio", kBytesFromHost, kBytesToTape);
  change_ratio(&changes, "read compression ratio", "read_compression_ratio", kBytesToHost, kBytesFromTape);
  change_rate(&changes, "write errors corrected per GB", "write_errors_corrected_per_gb", kWriteCorrected,
              kWriteBytes, kBytesFromHost);
  change_rate(&changes, "write rewrites per GB", "write_rewrites_per_gb", kWriteRewrites, kWriteBytes,
              kBytesFromHost);
  change_rate(&changes, "read errors corrected per GB", "read_errors_corrected_per_gb", kReadCorrected,
              kReadBytes, kBytesToHost);
  change_rate(&changes, "read rereads per GB", "read_rereads_per_gb", kReadRereads, kReadBytes, kBytesToHost);
  // Cleaning is asked for by the counter or by TapeAlert 14h / 15h.
  constexpr uint64_t kCleaningAlerts = (uint64_t{1} << 0x13) | (uint64_t{1} << 0x14);
  const HealthReading& b = h.baseline;
  const HealthReading& c = h.current;
  const bool known = c.has[kCleaningRequired] || c.tapealert_read;
  const bool now = (c.has[kCleaningRequired] && c.value[kCleaningRequired] != 0) ||
                   (c.alerts & kCleaningAlerts) != 0;
  const bool before = (b.has[kCleaningRequired] && b.value[kCleaningRequired] != 0) ||
                      (b.alerts & kCleaningAlerts) != 0;
  if (known) health_line("cleaning required", "%s", now ? (before ? "yes" : "yes (new)") : "no");
  const unsigned raised = static_cast<unsigned>(std::popcount(h.alerts_raised));
  if (c.tapealert_read || h.alerts_raised != 0) health_line("TapeAlert flags raised", "%u", raised);
  changes.cleaning_known = known;
  changes.cleaning_required = now;
  changes.cleaning_new = now && !before;
  changes.alerts_raised = raised;
}

// The health record of the results file: the reading, and after an
// iteration the figures over the test.
void write_health_record(const HealthReading& r, uint32_t iteration, const Changes& changes) {
  results_begin("health");
  results_unsigned("iteration", iteration);  // 0: before the test
  if (iteration == 0) write_preflight_object();
  if (r.pages_known) {
    results_begin_array("pages");
    for (unsigned code = 0; code < 64; ++code) {
      if (r.listed[code]) results_unsigned(nullptr, code);
    }
    results_end_array();
  } else {
    results_null("pages");
  }
  results_begin_array("failed_pages");  // left out after a failure
  for (unsigned code = 0; code < 64; ++code) {
    if (drive_health.page_failed[code]) results_unsigned(nullptr, code);
  }
  results_end_array();
  if (r.tapealert_read) {
    results_begin_array("tapealert");
    for (unsigned flag = 1; flag <= 64; ++flag) {
      if (((r.alerts >> (flag - 1)) & 1) == 0) continue;
      const TapeAlertFlag& f = tapealert_flag(flag);
      results_begin_object(nullptr);
      results_unsigned("flag", flag);
      results_text("name", f.name);
      results_text("severity", severity_name(f.severity));
      results_bool("new", iteration > 0 && ((drive_health.baseline.alerts >> (flag - 1)) & 1) == 0);
      results_end_object();
    }
    results_end_array();
  } else {
    results_null("tapealert");
  }
  results_begin_object("counters");
  for (unsigned c = 0; c < kHealthCounterCount; ++c) {
    if (r.has[c]) results_unsigned(kCounters[c].key, r.value[c]);
  }
  results_end_object();
  if (iteration > 0) {
    results_begin_object("over_the_test");
    for (unsigned i = 0; i < changes.count; ++i) results_double(changes.figures[i].key, changes.figures[i].value);
    if (changes.cleaning_known) {
      results_bool("cleaning_required", changes.cleaning_required);
      results_bool("cleaning_required_new", changes.cleaning_new);
    } else {
      results_null("cleaning_required");
      results_null("cleaning_required_new");
    }
    results_unsigned("tapealert_raised", changes.alerts_raised);
    results_end_object();
  }
  results_end();
}

}  // namespace

void reset_drive_health() { drive_health = DriveHealth{}; }

const char* health_counter_name(HealthCounter counter) { return kCounters[counter].name; }

void rebase_drive_health() {
  DriveHealth& h = drive_health;
  if (h.readings == 0) return;
  HealthReading reading;
  take_reading(&reading);
  h.alerts_raised |= reading.alerts & ~h.baseline.alerts;
  h.current = reading;
}

void report_drive_health(uint32_t iteration) {
  DriveHealth& h = drive_health;
  if (iteration == 0) {
    report_printf("\r\ndrive health before the test:\r\n");
  } else {
    report_printf("\r\ndrive health after iteration %lu:\r\n", static_cast<unsigned long>(iteration));
  }
  HealthReading reading;
  take_reading(&reading);
  if (h.readings == 0) {
    h.baseline = reading;
  } else {
    add_changes(h.current, reading);
    h.alerts_raised |= reading.alerts & ~h.baseline.alerts;
  }
  h.current = reading;
  ++h.readings;
  print_reading(reading, h.readings > 1);
  Changes changes{};
  if (h.readings > 1) print_changes(&changes);
  if (results_enabled()) write_health_record(reading, iteration, changes);
  flush_report_streams();
}
