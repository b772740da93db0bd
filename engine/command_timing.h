// Times every Write(6) and Read(6) of the transfer loops when the run asks
// for it (`/plot`, `/json`): per status interval a latency histogram, the
// long commands and the bytes moved in each second; at the end of the
// interval one IntervalTiming record. The classic report never shows it.
//
// Threads: the test thread is the only writer. The CTRL-C thread may take a
// snapshot at any moment (`take_timing_snapshot`): finished intervals are
// never changed once published, and the interval in progress is copied under
// a sequence counter (odd while the writer changes it) after the reader has
// told the writer to stop recording. Everything the reader touches is atomic
// or published, and all memory is allocated before the test by
// `begin_command_timing`, so neither side allocates, locks or waits on the
// other per command.
#pragma once

#include <cstdint>

#include "engine/latency_histogram.h"
#include "settings/test_plan.h"

struct IntervalTiming {
  uint8_t kind;               // 0 write, 1 read/compare
  uint32_t iteration;         // from 1
  uint32_t number;            // interval of its test, from 1
  uint32_t start_ms;          // since the timing of the run began
  uint32_t end_ms;
  LatencySummary latency;
  StallSummary stalls;
  uint32_t first_second;      // its entries in the per-second table
  uint32_t seconds;           // whole seconds from its start; the last is partial
  bool seconds_complete;      // false: the table was full; later seconds are missing
};

// Allocates the tables for `iterations` runs of `plan` (seconds planned for
// a drive as slow as 1 MB/s), measures the fast counter's rate once per
// process (about 20 ms) and starts the run's clock. 0, or -1 after an
// ERROR line when there is no memory.
int begin_command_timing(uint32_t iterations, const TestPlan& plan, uint32_t transfer_bytes);
// True between begin_command_timing and reset_command_timing.
bool command_timing_on();
// Switches the timing off and on again without touching its tables (the
// benchmark compares the loops both ways in one run).
void suspend_command_timing(bool suspended);

// The transfer loops' side. `time_command` takes the command's start and
// end on the fast counter (console/clock.h: fast_ticks) and the bytes it
// moved (0 when it failed).
void open_timed_interval(uint8_t kind, uint32_t iteration, uint32_t number);
void time_command(uint64_t start_ns, uint64_t end_ns, uint32_t bytes);
void close_timed_interval();

// The record of the interval closed last, or nullptr (the results file reads
// it after each interval). Bytes of entry `index` of the per-second table.
const IntervalTiming* last_interval_timing();
uint64_t timed_second_bytes(uint32_t index);

// With `/json`, inside the interval record: when the interval closed last is
// the one named, its `latency` (milliseconds), `stalls` (the count and the
// kStallsInResults longest) and `per_second` (bytes moved in each second of
// the interval, the last one partial; `per_second_complete` false when the
// table ran out). Nothing for any other interval.
constexpr uint32_t kStallsInResults = 8;
void write_interval_timing_fields(uint8_t kind, uint32_t iteration, uint32_t number);

struct TimingSnapshot {
  const IntervalTiming* intervals;  // the finished ones, in order
  uint32_t count;
  bool has_partial;                 // an interval was cut short (CTRL-C)
  IntervalTiming partial;
  uint32_t now_ms;                  // when the snapshot was taken
  bool consistent;                  // false: the writer never held still
};

// Stops the recording and returns what was measured. Safe from any thread,
// once the test thread is blocked or busy in a command; allocates nothing.
const TimingSnapshot& take_timing_snapshot();

// Frees the tables and switches the timing off (tests, cleanup).
void reset_command_timing();
