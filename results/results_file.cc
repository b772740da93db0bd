#include "results/results_file.h"

#include <chrono>
#include <cstdio>
#include <cstring>
#include <ctime>
#include <nlohmann/json.hpp>
#include <string>

#include "os/os.h"
#include "settings/settings.h"

namespace {

using json = nlohmann::ordered_json;

FILE* results = nullptr;
bool write_failed = false;
std::chrono::steady_clock::time_point started;

// The interrupted result line: built at open, its number and time slots
// rewritten in place by results_note_totals. JSON allows blanks before a
// value, so a right-aligned number in a blank-filled slot stays valid.
constexpr size_t kCountSlot = 20;    // any uint64_t
constexpr size_t kSecondsSlot = 14;  // "%.3f" up to 3 years
constexpr size_t kTimeSlot = 25;     // "2026-11-23T14:05:09+01:00"
char interrupted_line[512];
size_t interrupted_length = 0;
size_t written_at = 0, verified_at = 0, seconds_at = 0, time_at = 0;
std::time_t last_time_noted = 0;

// Local time in ISO 8601 with the offset from UTC, "YYYY-MM-DDThh:mm:ss+hh:mm".
void iso_local_time(std::time_t now, char (&text)[kTimeSlot + 1]) {
  std::tm local{};
  std::tm utc{};
  if (const std::tm* l = std::localtime(&now)) local = *l;
  if (const std::tm* u = std::gmtime(&now)) utc = *u;
  // The UTC fields read as local time give now - offset (same DST rule).
  utc.tm_isdst = local.tm_isdst;
  const long offset = static_cast<long>(std::difftime(now, std::mktime(&utc)));
  const long minutes = (offset < 0 ? -offset : offset) / 60;
  char date[24];
  std::strftime(date, sizeof date, "%Y-%m-%dT%H:%M:%S", &local);
  std::snprintf(text, sizeof text, "%.19s%c%02ld:%02ld", date, offset < 0 ? '-' : '+',
                (minutes / 60) % 100, minutes % 60);
}

std::string iso_now() {
  char text[kTimeSlot + 1];
  iso_local_time(std::time(nullptr), text);
  return text;
}

double elapsed_seconds() {
  return std::chrono::duration<double>(std::chrono::steady_clock::now() - started).count();
}

// One record as one line, written and flushed whole under the output lock.
void write_record(const json& record) {
  if (results == nullptr) return;
  // Texts from the command line or the drive need not be UTF-8: replaced, never thrown.
  std::string line = record.dump(-1, ' ', false, json::error_handler_t::replace);
  line += '\n';
  os_lock_output();
  if (std::fwrite(line.data(), 1, line.size(), results) != line.size() || std::fflush(results) != 0) {
    write_failed = true;
  }
  os_unlock_output();
}

// Writes `text` right-aligned into the slot at `at` of the interrupted line.
void fill_slot(size_t at, size_t width, const char* text) {
  size_t length = std::strlen(text);
  if (length > width) length = width;
  std::memset(interrupted_line + at, ' ', width - length);
  std::memcpy(interrupted_line + at + width - length, text, length);
}

// Appends `text` to the interrupted line; returns where it starts.
size_t append(const char* text) {
  const size_t at = interrupted_length;
  const size_t length = std::strlen(text);
  std::memcpy(interrupted_line + at, text, length);
  interrupted_length += length;
  return at;
}

size_t append_slot(size_t width) {
  const size_t at = interrupted_length;
  std::memset(interrupted_line + at, ' ', width);
  interrupted_length += width;
  return at;
}

void prepare_interrupted_line() {
  interrupted_length = 0;
  append("{\"record\":\"result\",\"exit_code\":1,\"status\":\"interrupted\","
         "\"reasons\":[\"interrupted by CTRL-C\"],\"bytes_written\":");
  written_at = append_slot(kCountSlot);
  append(",\"bytes_verified\":");
  verified_at = append_slot(kCountSlot);
  append(",\"elapsed_seconds\":");
  seconds_at = append_slot(kSecondsSlot);
  append(",\"end_time\":\"");
  time_at = append_slot(kTimeSlot);
  append("\"}\n");
  last_time_noted = 0;
  results_note_totals(0, 0);
}

json optional_text(const char* text) { return text != nullptr ? json(text) : json(nullptr); }

json settings_object(const TestSettings& s) {
  static const char* const kPatterns[] = {"null", "pseudo-random", "file"};
  return {
      {"output_file", s.output_file_name},
      {"output_append", s.output_file_mode[0] == 'a'},
      {"cdb_list_file", s.cdb_list_enabled ? json(s.cdb_list_file_name) : json(nullptr)},
      {"data_pattern", kPatterns[s.data_pattern_type < 3 ? s.data_pattern_type : 0]},
      {"pattern_repeats_per_block", s.random_pattern_repeats != 0},
      {"pattern_file", s.data_pattern_type == 2 ? json(s.pattern_file_name) : json(nullptr)},
      {"density_code", s.density_code},
      {"iterations", s.iterations},
      {"megabytes", s.total_megabytes},
      {"interval_megabytes", s.interval_given ? json(s.interval_megabytes) : json(nullptr)},
      {"logical_block_size", s.logical_block_size},
      {"block_size_from_mode_sense", s.block_size_from_mode_sense != 0},
      {"max_transfer_length", s.max_transfer_length},
      {"drive_status", s.drive_status_enabled != 0},
      {"status_delay_ms", s.status_delay_ms},
      {"unload_each_iteration", s.unload_each_iteration != 0},
      {"virtual_drive", s.virtual_drive_enabled != 0},
      {"virtual_drive_file",
       s.virtual_drive_file_name[0] != '\0' ? json(s.virtual_drive_file_name) : json(nullptr)},
      {"results_file", s.results_file_name},
      {"strict", s.strict_exit != 0},
      {"health", s.health_enabled != 0},
      {"chart_file", s.chart_enabled ? json(s.chart_file_name) : json(nullptr)},
  };
}

const char* end_kind(IntervalEnd end) {
  switch (end) {
    case IntervalEnd::complete: return "complete";
    case IntervalEnd::end_of_medium: return "eom";
    case IntervalEnd::blank_check: return "blank_check";
    case IntervalEnd::error: return "error";
    case IntervalEnd::miscompare: return "miscompare";
  }
  return "error";
}

}  // namespace

int results_open(const char* file_name) {
  reset_results_file();
  results = std::fopen(file_name, "wb");
  if (results == nullptr) return -1;
  started = std::chrono::steady_clock::now();
  prepare_interrupted_line();
  return 0;
}

bool results_enabled() { return results != nullptr; }

int results_close() {
  if (results == nullptr) return 0;
  os_lock_output();
  if (std::fclose(results) != 0) write_failed = true;
  results = nullptr;
  os_unlock_output();
  return write_failed ? -1 : 0;
}

void reset_results_file() {
  if (results != nullptr) std::fclose(results);
  results = nullptr;
  write_failed = false;
  interrupted_length = 0;
}

void results_write_run(const RunRecord& run) {
  json options = json::array();
  for (int i = 0; i < run.argument_count; ++i) options.push_back(run.arguments[i]);
  const TestSettings& s = *run.settings;
  write_record({
      {"record", "run"},
      {"version", run.program_version},
      {"options", options},
      {"settings", settings_object(s)},
      {"address",
       {{"hanum", s.host_adapter_number}, {"bus", s.bus_number}, {"id", s.scsi_id}, {"lun", s.lun}}},
      {"access", {{"platform", run.platform}, {"device", optional_text(run.device)}}},
      {"drive",
       {{"vendor", optional_text(run.vendor)},
        {"product", optional_text(run.product)},
        {"revision", optional_text(run.revision)},
        {"serial", optional_text(run.serial)}}},
      {"start_time", iso_now()},
  });
}

namespace {

// `latency` (milliseconds), `stalls` and `per_second` (bytes in each second
// of the interval, the last one partial).
void add_timing_fields(const IntervalTimingFigures& t, json* record) {
  auto ms = [](uint64_t ns) { return static_cast<double>(ns) / 1e6; };
  (*record)["latency"] = {{"min_ms", ms(t.min_ns)}, {"median_ms", ms(t.median_ns)}, {"p90_ms", ms(t.p90_ns)},
                          {"p99_ms", ms(t.p99_ns)}, {"max_ms", ms(t.max_ns)}};
  json longest = json::array();
  for (unsigned i = 0; i < t.longest_count && i < kMaxIntervalStalls; ++i) {
    longest.push_back({{"command", t.longest[i].command}, {"ms", ms(t.longest[i].ns)}});
  }
  (*record)["stalls"] = {{"count", t.stall_count}, {"exact", t.stall_count_exact}, {"longest", longest}};
  json seconds = json::array();
  for (uint32_t j = 0; j < t.seconds && t.second_bytes != nullptr; ++j) seconds.push_back(t.second_bytes(t.first_second, j));
  (*record)["per_second"] = seconds;
  if (!t.seconds_complete) (*record)["per_second_complete"] = false;
}

}  // namespace

void results_write_interval(const IntervalRecord& r) {
  const uint64_t bytes = static_cast<uint64_t>(r.commands) * r.transfer_bytes;
  json end = {{"kind", end_kind(r.end)}};
  if (r.end == IntervalEnd::miscompare) {
    end["command"] = r.miscompare_command;
    end["offset"] = r.miscompare_offset;
    end["expected"] = r.expected_byte;
    end["read"] = r.read_byte;
  }
  json record = {
      {"record", "interval"},
      {"iteration", r.iteration},
      {"test", r.test},
      {"index", r.index},
      {"interval_count", r.interval_count},
      {"planned_mb", r.planned_mb},
      {"planned_bytes", static_cast<uint64_t>(r.planned_commands) * r.transfer_bytes},
      {"planned_commands", r.planned_commands},
      {"actual_mb", r.actual_mb},
      {"actual_bytes", bytes},
      {"commands", r.commands},
      {"seconds", r.seconds},
      {"kb_per_second", r.kb_per_second},
      {"bytes_per_second", r.seconds > 0.0 ? json(static_cast<double>(bytes) / r.seconds) : json(nullptr)},
      {"end", end},
  };
  if (r.drive_status_count > 0) {
    json figures = json::object();
    for (unsigned i = 0; i < r.drive_status_count && i < kMaxIntervalFigures; ++i) {
      figures[r.drive_status[i].name] = r.drive_status[i].value;
    }
    record["drive_status"] = figures;
  }
  if (r.timing.timed) add_timing_fields(r.timing, &record);
  write_record(record);
}

void results_write_iteration(const IterationRecord& r) {
  auto verdict = [&](bool selected, double percentage) -> json {
    if (!selected) return nullptr;
    return {{"max_percentage", percentage},
            {"verdict", percentage > r.percentage_limit ? "failed" : "passed"}};
  };
  write_record({
      {"record", "iteration"},
      {"iteration", r.iteration},
      {"rwr", verdict(r.rwr_selected, r.max_rwr_percentage)},
      {"ecc", verdict(r.ecc_selected, r.max_ecc_percentage)},
      {"limit_percentage", r.percentage_limit},
  });
}

void results_write_health(const HealthRecord& r) {
  json record = {{"record", "health"}, {"iteration", r.iteration}};
  if (r.preflight != nullptr) {
    const PreflightRecord& p = *r.preflight;
    auto known = [](bool yes, uint32_t value) { return yes && value != 0 ? json(value) : json(nullptr); };
    record["preflight"] = {
        {"min_block", p.block_limits_read ? json(p.min_block) : json(nullptr)},
        {"max_block", known(p.block_limits_read, p.max_block)},
        {"adapter_max_transfer", known(p.adapter_known, p.max_transfer_bytes)},
        {"adapter_max_transfer_source", optional_text(p.adapter_known ? p.source : nullptr)},
        {"adapter_max_segments", known(p.adapter_known, p.max_segments)},
        {"sg_reserved_bytes", known(p.adapter_known, p.reserved_bytes)},
        {"largest_fitting_transfer", known(true, p.largest_fitting_transfer)},
        {"warning", optional_text(p.warning)},
    };
  }
  json pages = json::array();
  for (unsigned i = 0; i < r.listed_count; ++i) pages.push_back(r.listed_pages[i]);
  json failed = json::array();
  for (unsigned i = 0; i < r.failed_count; ++i) failed.push_back(r.failed_pages[i]);
  record["pages"] = r.pages_known ? pages : json(nullptr);
  record["failed_pages"] = failed;
  json flags = json::array();
  for (unsigned i = 0; i < r.flag_count; ++i) {
    const HealthFlag& f = r.flags[i];
    flags.push_back({{"flag", f.number}, {"name", f.name}, {"severity", f.severity}, {"new", f.fresh}});
  }
  record["tapealert"] = r.tapealert_read ? flags : json(nullptr);
  json counters = json::object();
  for (unsigned i = 0; i < r.counter_count && i < kMaxHealthCounters; ++i) {
    counters[r.counters[i].name] = r.counters[i].value;
  }
  record["counters"] = counters;
  if (r.iteration > 0) {
    json changes = json::object();
    for (unsigned i = 0; i < r.change_count && i < kMaxHealthChanges; ++i) {
      changes[r.changes[i].name] = r.changes[i].value;
    }
    changes["cleaning_required"] = r.cleaning_known ? json(r.cleaning_required) : json(nullptr);
    changes["cleaning_required_new"] = r.cleaning_known ? json(r.cleaning_new) : json(nullptr);
    changes["tapealert_raised"] = r.alerts_raised;
    record["over_the_test"] = changes;
  }
  write_record(record);
}

void results_write_result(const ResultRecord& r) {
  json reasons = json::array();
  for (unsigned i = 0; i < r.reason_count; ++i) reasons.push_back(r.reasons[i]);
  write_record({
      {"record", "result"},
      {"exit_code", r.exit_code},
      {"status", r.status},
      {"reasons", reasons},
      {"bytes_written", r.bytes_written},
      {"bytes_verified", r.bytes_verified},
      {"elapsed_seconds", elapsed_seconds()},
      {"end_time", iso_now()},
  });
}

void results_note_totals(uint64_t bytes_written, uint64_t bytes_verified) {
  if (interrupted_length == 0) return;
  char number[32];
  os_lock_output();
  std::snprintf(number, sizeof number, "%llu", static_cast<unsigned long long>(bytes_written));
  fill_slot(written_at, kCountSlot, number);
  std::snprintf(number, sizeof number, "%llu", static_cast<unsigned long long>(bytes_verified));
  fill_slot(verified_at, kCountSlot, number);
  const std::time_t now = std::time(nullptr);
  if (now != last_time_noted) {  // the clock texts change once a second at most
    last_time_noted = now;
    std::snprintf(number, sizeof number, "%.3f", elapsed_seconds());
    fill_slot(seconds_at, kSecondsSlot, number);
    char time_text[kTimeSlot + 1];
    iso_local_time(now, time_text);
    fill_slot(time_at, kTimeSlot, time_text);
  }
  os_unlock_output();
}

// `results` is left as it is: the main thread may still read it, and any
// write it attempts waits for the output lock, which the handler never gives
// back before the process ends.
void results_write_interrupted() {
  if (results == nullptr) return;
  if (interrupted_length > 0) std::fwrite(interrupted_line, 1, interrupted_length, results);
  std::fclose(results);
}
