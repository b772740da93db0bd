#include "engine/progress_estimate.h"

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <cstdio>

#include "engine/transfer_loops.h"
#include "settings/settings.h"
#include "settings/test_plan.h"

namespace {

constexpr double kMegabyte = 1048576.0;
constexpr uint64_t kUnitSwitch = 100000;  // the next unit once the interval reaches this many
constexpr uint32_t kSecondsPerDay = 86400;
constexpr double kLongestShownSeconds = 9999.0 * kSecondsPerDay;

uint64_t moved_by_test() { return test_totals.bytes_written + test_totals.bytes_verified; }
uint64_t moved_by_kind(bool reading) { return reading ? test_totals.bytes_verified : test_totals.bytes_written; }

// Saturating, for plans of 65,535 iterations of petabyte passes.
uint64_t times(uint64_t count, uint64_t bytes) {
  return bytes != 0 && count > UINT64_MAX / bytes ? UINT64_MAX : count * bytes;
}
uint64_t plus(uint64_t a, uint64_t b) { return a > UINT64_MAX - b ? UINT64_MAX : a + b; }

double bytes_per_second(uint64_t bytes, uint64_t ms) {
  return bytes == 0 || ms == 0 ? 0.0 : static_cast<double>(bytes) * 1000.0 / static_cast<double>(ms);
}

// Whole MB/s, tenths below 10 MB/s; integer formatting, cheap enough for a
// line after every MB.
void format_rate(char* out, size_t size, double rate) {
  if (!(rate > 0.0)) {
    std::snprintf(out, size, "--");
    return;
  }
  const double megabytes = rate / kMegabyte;
  if (megabytes >= 9.95) {
    std::snprintf(out, size, "%llu", static_cast<unsigned long long>(std::llround(megabytes)));
    return;
  }
  const auto tenths = static_cast<unsigned>(std::lround(megabytes * 10.0));
  std::snprintf(out, size, "%u.%u", tenths / 10, tenths % 10);
}

}  // namespace

EtaRun eta_run;

EtaRemaining remaining_plan(const EtaRun& run, uint64_t interval_done, uint64_t pass_done) {
  const uint64_t pass_plan = times(run.interval_count, run.interval_bytes);
  const uint64_t pass_limit = std::min(pass_plan, run.medium_bytes);
  const uint64_t pass_left = pass_limit > pass_done ? pass_limit - pass_done : 0;
  const uint64_t interval_left = run.interval_bytes > interval_done ? run.interval_bytes - interval_done : 0;
  const uint64_t later = run.iterations > run.iteration ? run.iterations - run.iteration : 0;
  EtaRemaining left{};
  left.interval = std::min(interval_left, pass_left);
  left.write = plus(run.reading ? 0 : pass_left, times(later, pass_limit));
  // A write pass is read back whole: this one's read/compare pass is still to come.
  left.read = plus(run.reading ? pass_left : pass_limit, times(later, pass_limit));
  return left;
}

double seconds_for(uint64_t bytes, double rate) {
  if (bytes == 0) return 0.0;
  return rate > 0.0 ? static_cast<double>(bytes) / rate : -1.0;
}

double seconds_for(uint64_t write_bytes, double write_rate, uint64_t read_bytes, double read_rate) {
  const double writing = seconds_for(write_bytes, write_rate);
  const double reading = seconds_for(read_bytes, read_rate);
  return writing < 0.0 || reading < 0.0 ? -1.0 : writing + reading;
}

void format_time_left(char* out, size_t size, double seconds) {
  if (seconds < 0.0) {
    std::snprintf(out, size, "--");
  } else if (seconds > kLongestShownSeconds) {
    std::snprintf(out, size, ">9999d");
  } else if (seconds <= kSecondsPerDay - 1) {
    const auto whole = static_cast<uint32_t>(std::ceil(seconds));
    std::snprintf(out, size, "%u:%02u:%02u", whole / 3600, whole / 60 % 60, whole % 60);
  } else {
    const auto minutes = static_cast<uint32_t>(std::ceil(seconds / 60.0));
    std::snprintf(out, size, "%ud %02u:%02u", minutes / 1440, minutes / 60 % 24, minutes % 60);
  }
}

size_t format_eta_line(char* out, size_t size, const EtaFigures& f) {
  double unit = kMegabyte;
  const char* unit_name = "MB";
  for (const char* bigger : {"GB", "TB"}) {
    if (f.interval_bytes / static_cast<uint64_t>(unit) < kUnitSwitch) break;
    unit *= 1024.0;
    unit_name = bigger;
  }
  const auto percent = static_cast<uint32_t>(
      f.interval_bytes == 0 ? 100 : std::min<uint64_t>(100, f.interval_done * 100 / f.interval_bytes));
  char rate[16];
  char interval_left[16];
  char test_left[16];
  format_rate(rate, sizeof rate, f.rate);
  format_time_left(interval_left, sizeof interval_left, f.interval_seconds);
  format_time_left(test_left, sizeof test_left, f.test_seconds);
  const int length = std::snprintf(
      out, size, "%llu of %llu %s (%u%%)  %s MB/s  %s left | test %u%%  %s left",
      static_cast<unsigned long long>(static_cast<double>(f.interval_done) / unit),
      static_cast<unsigned long long>(static_cast<double>(f.interval_bytes) / unit), unit_name, percent, rate,
      interval_left, f.test_percent, test_left);
  if (length < 0) return 0;
  return std::min(static_cast<size_t>(length), size == 0 ? 0 : size - 1);
}

void eta_begin_test() {
  eta_run = EtaRun{};
  eta_run.iterations = test_settings.iterations;
  eta_run.interval_count = test_plan.interval_count;
  eta_run.interval_bytes = static_cast<uint64_t>(test_plan.commands_per_interval) * test_settings.max_transfer_length;
  eta_run.medium_bytes = times(eta_run.interval_count, eta_run.interval_bytes);
}

void eta_begin_pass(uint32_t iteration, bool reading) {
  eta_run.iteration = iteration;
  eta_run.reading = reading;
  eta_run.pass_start_moved = moved_by_kind(reading);
  eta_run.pass_ms = 0;
}

void eta_end_interval(double elapsed_seconds) {
  eta_run.pass_ms += static_cast<uint64_t>(std::llround(elapsed_seconds * 1000.0));
}

void eta_end_pass(bool end_of_medium) {
  const uint64_t moved = moved_by_kind(eta_run.reading) - eta_run.pass_start_moved;
  const double rate = bytes_per_second(moved, eta_run.pass_ms);
  if (eta_run.reading) {
    if (rate > 0.0) eta_run.read_rate = rate;
    return;
  }
  if (rate > 0.0) eta_run.write_rate = rate;
  eta_run.medium_bytes = end_of_medium ? moved : times(eta_run.interval_count, eta_run.interval_bytes);
}

size_t eta_progress_line(char* out, size_t size, uint64_t interval_done, uint32_t interval_ms) {
  const EtaRun& run = eta_run;
  const uint64_t pass_done = moved_by_kind(run.reading) - run.pass_start_moved;
  const double rate = bytes_per_second(pass_done, run.pass_ms + interval_ms);
  // The other kind at its last pass's rate; until one was measured, as fast as this pass.
  double write_rate = rate;
  double read_rate = rate;
  if (run.reading && run.write_rate > 0.0) write_rate = run.write_rate;
  if (!run.reading && run.read_rate > 0.0) read_rate = run.read_rate;
  const EtaRemaining left = remaining_plan(run, interval_done, pass_done);
  const uint64_t done = moved_by_test();
  const uint64_t total = plus(plus(done, left.write), left.read);
  EtaFigures figures{};
  figures.interval_done = interval_done;
  figures.interval_bytes = run.interval_bytes;
  figures.rate = rate;
  figures.interval_seconds = seconds_for(left.interval, rate);
  figures.test_percent = static_cast<uint32_t>(total == 0 ? 100 : static_cast<double>(done) * 100.0 / static_cast<double>(total));
  figures.test_seconds = seconds_for(left.write, write_rate, left.read, read_rate);
  return format_eta_line(out, size, figures);
}
