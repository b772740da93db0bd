// The JSON Lines results file of `/json <file>`: one JSON object per line,
// each written and flushed whole when it happens, so the file is valid line
// by line at any moment, after CTRL-C and after a crash. One function per
// kind of record; each takes a plain record that its producer fills:
//   run        the run sequence, after setup
//   interval   the interval driver, after each write or read/compare interval
//   iteration  the iteration driver, after each iteration's verdicts
//   health     `/health`: before the first iteration (with the preflight)
//              and after each iteration
//   result     the run sequence, at the end (or the CTRL-C handler, below)
// A new field of a record is one member of its struct here and one line in
// the function that writes that record (results_file.cc).
//
// Threads: everything is called on the main thread, except
// results_write_interrupted, which the CTRL-C handler calls on its own
// thread after it has taken the output lock for good. The interrupted
// `result` line is prepared when the file opens and kept current by
// results_note_totals (under the output lock), so the handler only writes
// bytes that already exist and closes the file: no formatting, no heap.
#pragma once

#include <cstdint>

struct TestSettings;

// Opens `file_name` for writing ("wb"), notes the start time and prepares the
// interrupted result line. 0, or -1 (nothing open; the caller reports it).
int results_open(const char* file_name);
// True while a results file is open.
bool results_enabled();
// Closes the file. 0, or -1 when a write, flush or close failed since the open.
int results_close();
// Closes without a result line and forgets everything (tests).
void reset_results_file();

struct RunRecord {
  const char* program_version;
  int argument_count;  // the options as given, argument 0 excluded
  char** arguments;
  const TestSettings* settings;  // as the options resolved them
  const char* platform;  // "linux-sg", "win32", "virtual tape drive"
  const char* device;    // how the drive was reached: node or device name; may be null
  const char* vendor;    // Inquiry texts, blanks cut; null when the drive gave none
  const char* product;
  const char* revision;
  const char* serial;    // VPD page 80h; null when the drive does not list the page
};
void results_write_run(const RunRecord& run);

enum class IntervalEnd : uint8_t { complete, end_of_medium, blank_check, error, miscompare };

// One drive status figure of an interval (`/dsc`), named for the report line.
struct NamedFigure {
  const char* name;
  double value;
};
constexpr unsigned kMaxIntervalFigures = 8;

// The command timing of one interval (`/json`, `/plot`), as the engine's
// timing measured it; times in nanoseconds.
struct IntervalStall {
  uint32_t command;  // within the interval, from 1
  uint64_t ns;
};
constexpr unsigned kMaxIntervalStalls = 8;  // the longest ones listed
struct IntervalTimingFigures {
  bool timed;  // false: no `latency`, `stalls` and `per_second` fields
  uint64_t min_ns, median_ns, p90_ns, p99_ns, max_ns;
  uint32_t stall_count;
  bool stall_count_exact;  // false: counted from the histogram's buckets
  IntervalStall longest[kMaxIntervalStalls];
  uint8_t longest_count;
  // Bytes moved in second `j` (0 to seconds - 1) of the interval; the last
  // second is partial. `seconds_complete` false: the table ran out.
  uint64_t (*second_bytes)(uint32_t first_second, uint32_t j);
  uint32_t first_second;
  uint32_t seconds;
  bool seconds_complete;
};

struct IntervalRecord {
  uint32_t iteration;       // from 1
  uint32_t index;           // interval number within the test, from 1
  uint32_t interval_count;
  const char* test;         // "write" or "read_compare"
  double planned_mb;
  uint32_t planned_commands;
  uint32_t commands;        // issued; after EOM or blank check the one that met it included
  uint32_t transfer_bytes;  // data bytes per command
  double actual_mb;         // as the report prints it
  double seconds;
  uint32_t kb_per_second;   // as the report prints it (1 KB = 1000 bytes)
  IntervalEnd end;
  // With IntervalEnd::miscompare: the read command within the interval (from 1),
  // the offset in its data, the expected and the read byte.
  uint32_t miscompare_command;
  uint32_t miscompare_offset;
  uint8_t expected_byte;
  uint8_t read_byte;
  NamedFigure drive_status[kMaxIntervalFigures];  // with `/dsc`
  uint8_t drive_status_count;
  IntervalTimingFigures timing;
};
void results_write_interval(const IntervalRecord& interval);

struct IterationRecord {
  uint32_t iteration;
  bool rwr_selected;
  double max_rwr_percentage;
  bool ecc_selected;
  double max_ecc_percentage;
  double percentage_limit;
};
void results_write_iteration(const IterationRecord& iteration);

// The preflight of `/health`; 0 means unknown.
struct PreflightRecord {
  bool block_limits_read;
  uint32_t min_block;
  uint32_t max_block;
  bool adapter_known;
  uint32_t max_transfer_bytes;
  uint32_t max_segments;
  uint32_t reserved_bytes;
  const char* source;           // of max_transfer_bytes
  uint32_t largest_fitting_transfer;
  const char* warning;          // the WARNING line's text, or null
};

struct HealthFlag {
  uint8_t number;               // 1-64
  const char* name;
  const char* severity;         // "information", "warning", "critical"
  bool fresh;                   // not set before the test
};

struct HealthCounter64 {
  const char* name;             // a JSON key
  uint64_t value;
};
constexpr unsigned kMaxHealthCounters = 32;
constexpr unsigned kMaxHealthChanges = 8;

struct HealthRecord {
  uint32_t iteration;                 // 0: before the test
  const PreflightRecord* preflight;   // with the first reading only
  bool pages_known;                   // page 00h answered
  uint8_t listed_pages[64];
  uint8_t listed_count;
  uint8_t failed_pages[64];           // left out after a failure
  uint8_t failed_count;
  bool tapealert_read;
  HealthFlag flags[64];
  uint8_t flag_count;
  HealthCounter64 counters[kMaxHealthCounters];
  uint8_t counter_count;
  NamedFigure changes[kMaxHealthChanges];  // over the test (after an iteration)
  uint8_t change_count;
  bool cleaning_known;
  bool cleaning_required;
  bool cleaning_new;
  uint32_t alerts_raised;             // flags raised during the test
};
void results_write_health(const HealthRecord& health);

struct ResultRecord {
  int exit_code;
  const char* status;  // "passed" or "failed"
  const char* const* reasons;
  unsigned reason_count;
  uint64_t bytes_written;
  uint64_t bytes_verified;
  double asked_mb;    // the amount the options asked for
  double planned_mb;  // the amount after sizing
};
// Writes the result line (elapsed time and end time added here).
void results_write_result(const ResultRecord& result);

// Keeps the prepared interrupted line current: totals, elapsed time and end
// time. Cheap (no heap, a few digits); called after each whole MB and each
// interval on the main thread.
void results_note_totals(uint64_t bytes_written, uint64_t bytes_verified);
// For the CTRL-C handler, which already holds the output lock: writes the
// prepared `result` line (status "interrupted", exit code 1) and closes the
// file. Nothing when no file is open.
void results_write_interrupted();
