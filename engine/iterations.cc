#include "engine/iterations.h"

#include "console/clock.h"
#include "console/log_output.h"
#include "drive_status/collection.h"
#include "drive_status/drive_health.h"
#include "drive_status/dsc_config.h"
#include "drive_status/preflight.h"
#include "engine/command_timing.h"
#include "engine/progress_estimate.h"
#include "engine/sizing.h"
#include "engine/transfer_loops.h"
#include "results/results_file.h"
#include "settings/settings.h"
#include "tape/command_blocks.h"
#include "tape/drive_operations.h"
#include "transport/scsi_transport.h"

namespace {

// The words that tell the write test from the read/compare test; the dot
// leaders keep the figures of both tests in one column.
struct TestKind {
  uint16_t kind;  // for collect_drive_status: 0 write, 1 read
  const char* record_name;  // in the results file
  const char* name;
  const char* doing;
  const char* amount_label;
  const char* commands_label;
  const char* time_label;
  const char* rate_label;
};

const TestKind kWriteTest = {
    0,
    "write",
    "write",
    "writing",
    "written .........",
    "write commands issued .....",
    "write test ............",
    "write transfer rate ........................",
};
const TestKind kReadTest = {
    1,
    "read_compare",
    "read/compare",
    "reading/comparing",
    "read/compared ...",
    "read commands issued ......",
    "read/compare test .....",
    "read/compare transfer rate .................",
};

uint32_t current_iteration = 0;  // for the results file and the command timing

// How an interval ended, as the results file names it.
enum class IntervalEnd : uint8_t { complete, end_of_medium, blank_check, error, miscompare };

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

// The results file's record of one interval; nothing without `/json`.
// `commands` were issued (after EOM or blank check the one that met it
// included), `amount` and the rate as the report prints them.
void record_interval(const TestKind& test, uint32_t number, uint32_t commands, double amount,
                     double elapsed, IntervalEnd end, bool with_drive_status) {
  if (!results_enabled()) return;
  const uint64_t transfer_bytes = test_settings.max_transfer_length;
  const uint64_t bytes = commands * transfer_bytes;
  results_begin("interval");
  results_unsigned("iteration", current_iteration);
  results_text("test", test.record_name);
  results_unsigned("index", number);
  results_unsigned("interval_count", test_plan.interval_count);
  results_double("planned_mb", test_plan.megabytes_per_interval);
  results_unsigned("planned_bytes", test_plan.commands_per_interval * transfer_bytes);
  results_unsigned("planned_commands", test_plan.commands_per_interval);
  results_double("actual_mb", amount);
  results_unsigned("actual_bytes", bytes);
  results_unsigned("commands", commands);
  results_double("seconds", elapsed);
  results_unsigned("kb_per_second", transfer_rate_kb_per_second(amount, elapsed));
  if (elapsed > 0.0) {
    results_double("bytes_per_second", static_cast<double>(bytes) / elapsed);
  } else {
    results_null("bytes_per_second");
  }
  results_begin_object("end");
  results_text("kind", end_kind(end));
  if (end == IntervalEnd::miscompare) {  // the read command within the interval, from 1
    results_unsigned("command", last_loop_end.command);
    results_unsigned("offset", last_loop_end.offset);
    results_unsigned("expected", last_loop_end.expected);
    results_unsigned("read", last_loop_end.read);
  }
  results_end_object();
  if (with_drive_status) write_drive_status_fields(test.kind);
  write_interval_timing_fields(static_cast<uint8_t>(test.kind), current_iteration, number);
  results_end();
  results_note_totals(test_totals.bytes_written, test_totals.bytes_verified);
}

// One interval: announce, baseline, transfers, shortened-interval lines, time
// and rate, drive status. 0 or -1.
int run_interval(const TestKind& test, uint32_t number, uint8_t* end_of_medium) {
  const char* date = date_string();
  report_printf("%s test interval %lu of %lu (%s %s)\r\n", test.name, static_cast<unsigned long>(number),
                static_cast<unsigned long>(test_plan.interval_count), date, time_string());
  report_printf("%s %.3f MB of test data%s\r\n", test.doing, test_plan.megabytes_per_interval, "");
  if (test_settings.drive_status_enabled && collect_drive_status(0, test.kind, 0.0) != 0) {
    test_totals.failure = "drive status collection failed";
    return -1;
  }

  uint32_t commands = test_plan.commands_per_interval;
  double elapsed = 0.0;
  open_timed_interval(static_cast<uint8_t>(test.kind), current_iteration, number);
  int result = test.kind == 0
                   ? run_write_loop(test_plan.blocks_per_command, &commands, &elapsed, end_of_medium)
                   : run_read_compare_loop(test_plan.blocks_per_command, &commands, data_buffer_1,
                                           &elapsed, end_of_medium);
  close_timed_interval();
  eta_end_interval(elapsed);
  (test.kind == 0 ? test_totals.write_seconds : test_totals.read_seconds) += elapsed;
  if (result != 0) {
    const IntervalEnd end = last_loop_end.miscompare ? IntervalEnd::miscompare : IntervalEnd::error;
    commands = last_loop_end.miscompare ? last_loop_end.command : last_loop_end.completed;
    test_totals.failure = end == IntervalEnd::miscompare ? "data miscompare"
                          : test.kind == 0              ? "write failure"
                                                        : "read failure";
    record_interval(test, number, commands,
                    static_cast<double>(test_settings.max_transfer_length) * commands / kBytesPerMegabyte,
                    elapsed, end, false);
    return -1;
  }

  double amount = test_plan.megabytes_per_interval;
  if (commands != test_plan.commands_per_interval) {
    amount = static_cast<double>(test_settings.max_transfer_length) * commands / kBytesPerMegabyte;
    report_printf("  actual amount of test data %s %.3f MB\r\n", test.amount_label, amount);
    report_printf("  actual number of %s %lu\r\n", test.commands_label,
                  static_cast<unsigned long>(commands));
  }
  const double bytes = amount * kBytesPerMegabyte;
  report_printf("  total time taken for %s %.2f SEC\r\n", test.time_label, elapsed);
  report_printf("  %s %lu KB/SEC\r\n", test.rate_label,
                static_cast<unsigned long>(transfer_rate_kb_per_second(amount, elapsed)));
  const bool with_drive_status = test_settings.drive_status_enabled != 0;
  const int collected = with_drive_status ? collect_drive_status(1, test.kind, bytes) : 0;
  IntervalEnd end = IntervalEnd::complete;
  if (*end_of_medium) end = test.kind == 0 ? IntervalEnd::end_of_medium : IntervalEnd::blank_check;
  record_interval(test, number, commands, amount, elapsed, end, with_drive_status && collected == 0);
  if (collected != 0) {
    test_totals.failure = "drive status collection failed";
    return -1;
  }
  flush_report_streams();
  return 0;
}

int run_test(const TestKind& test) {
  uint8_t end_of_medium = 0;
  uint16_t filemark_step_pending = filemark_step;
  set_rw_buffer(test.kind == 0 ? data_buffer_1 : data_buffer_2, test_settings.max_transfer_length);
  eta_begin_pass(current_iteration, test.kind == 1);
  for (uint32_t k = 1; k <= test_plan.interval_count; ++k) {
    report_printf("\r\n");
    if (filemark_step_pending) {
      int step = test.kind == 0 ? write_two_filemarks(&end_of_medium)
                                : space_two_filemarks(&end_of_medium);
      if (step != 0) return -1;
      if (end_of_medium) break;
      if (filemark_step_pending == 1) filemark_step_pending = 0;
    }
    if (run_interval(test, k, &end_of_medium) != 0) return -1;
    if (end_of_medium) break;
  }
  eta_end_pass(end_of_medium != 0);
  return 0;
}

const char* verdict(double percentage) { return percentage > percentage_limit ? "failed" : "passed"; }

// Keeps the worst verdicts for the exit policy and writes the iteration's record.
void note_verdicts(uint32_t iteration, bool rwr, bool ecc) {
  const DriveStatus& s = drive_status;
  if (rwr && s.max_rwr_percentage > percentage_limit) test_totals.rwr_failed = true;
  if (ecc && s.max_ecc_percentage > percentage_limit) test_totals.ecc_failed = true;
  if (rwr && s.max_rwr_percentage > test_totals.worst_rwr_percentage) {
    test_totals.worst_rwr_percentage = s.max_rwr_percentage;
  }
  if (ecc && s.max_ecc_percentage > test_totals.worst_ecc_percentage) {
    test_totals.worst_ecc_percentage = s.max_ecc_percentage;
  }
  if (!results_enabled()) return;
  auto write_verdict = [](const char* name, bool chosen, double percentage) {
    if (!chosen) return results_null(name);
    results_begin_object(name);
    results_double("max_percentage", percentage);
    results_text("verdict", verdict(percentage));
    results_end_object();
  };
  results_begin("iteration");
  results_unsigned("iteration", iteration);
  write_verdict("rwr", rwr, s.max_rwr_percentage);
  write_verdict("ecc", ecc, s.max_ecc_percentage);
  results_double("limit_percentage", percentage_limit);
  results_end();
}

// One iteration: write test, rewind, read/compare test, rewind, the RWR/ECC
// verdicts. 0, or -1 as soon as a step failed.
int run_iteration(uint32_t n, bool rwr, bool ecc) {
  if (write_test_enabled && run_write_test() != 0) return -1;
  if (rewind_enabled && rewind_tape() != 0) return -1;
  if (read_test_enabled && run_read_compare_test() != 0) return -1;
  if (rewind_enabled && rewind_tape() != 0) return -1;
  if (rwr || ecc) report_printf("\r\n");
  if (rwr) {
    report_printf("maximum RWR percentage calculated ............ %.1f%% (%s)\r\n",
                  drive_status.max_rwr_percentage, verdict(drive_status.max_rwr_percentage));
  }
  if (ecc) {
    report_printf("maximum ECC percentage calculated ............ %.1f%% (%s)\r\n",
                  drive_status.max_ecc_percentage, verdict(drive_status.max_ecc_percentage));
  }
  note_verdicts(n, rwr, ecc);
  return 0;
}

}  // namespace

uint32_t transfer_rate_kb_per_second(double megabytes, double seconds) {
  if (!(seconds > 0.0)) return 0;
  double rate = megabytes * 1024.0 / seconds;
  if (kilobyte_is_1000) rate *= 1.024;
  // Over 4 TB/s cannot be measured with a millisecond clock; never wrap.
  return rate >= 4294967295.0 ? 0xFFFFFFFFu : static_cast<uint32_t>(rate);
}

int run_write_test() { return run_test(kWriteTest); }

int run_read_compare_test() { return run_test(kReadTest); }

int run_test_iterations() {
  if (rewind_enabled && rewind_tape() != 0) return -1;
  if (set_block_mode() != 0) return -1;
  if (test_settings.health_enabled) {
    run_preflight();
    report_drive_health(0);
  }
  const bool rwr = dsc_entries[kDscDrwr].selected != 0;
  const bool ecc = dsc_entries[kDscDecc].selected != 0;
  eta_begin_test();
  for (uint32_t n = 1; n <= test_settings.iterations; ++n) {
    current_iteration = n;
    if (rwr || ecc) {
      drive_status.max_rwr_percentage = 0.0;
      drive_status.max_ecc_percentage = 0.0;
    }
    if (test_settings.iterations > 1) {
      const char* date = date_string();
      report_printf("\r\nTEST ITERATION %u (%s %s):\r\n", static_cast<unsigned>(n), date, time_string());
    }
    const int result = run_iteration(n, rwr, ecc);
    // Also after a failure: the drive's flags and counters may tell why.
    if (test_settings.health_enabled) report_drive_health(n);
    if (result != 0) return -1;
    if (test_settings.unload_each_iteration) {
      if (unload_reload() != 0) return -1;
      if (test_settings.health_enabled && n < test_settings.iterations) rebase_drive_health();
    }
    flush_report_streams();
  }
  return 0;
}
