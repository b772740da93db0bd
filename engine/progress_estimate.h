// The time left of a whole test, for the progress line of `/eta`: what remains
// of the plan from where the test stands, how long that takes at the rates
// measured, and the text of the line. The arithmetic is pure functions over
// plain records; the one record of the test in progress, `eta_run`, is
// written by the iteration driver at the start and end of each pass and after
// each interval, and read by the transfer loops when they print a line. All
// on the main thread; nothing here allocates.
#pragma once

#include <cstddef>
#include <cstdint>

// Where the whole test stands and what it has measured so far. Every write
// pass is followed by a read/compare pass of what it wrote.
struct EtaRun {
  uint32_t iterations;
  uint32_t interval_count;  // intervals of one pass
  uint64_t interval_bytes;  // planned bytes of one interval
  // What a write pass puts on the tape, and so what its read/compare pass
  // covers: the planned pass, or what the last write pass wrote before EOM
  // (later passes are assumed to meet EOM at the same place).
  uint64_t medium_bytes;
  uint32_t iteration;  // from 1
  bool reading;        // in the read/compare pass
  uint64_t pass_start_moved;  // the test's written or verified bytes when this pass began
  uint64_t pass_ms;           // transfer time of this pass's finished intervals
  // Bytes a second of the last finished pass of each kind; 0 until measured.
  double write_rate;
  double read_rate;
};
extern EtaRun eta_run;

// Bytes still to move: in this interval, and in all write and all read/compare
// passes from here to the end of the last iteration (this interval included).
struct EtaRemaining {
  uint64_t interval;
  uint64_t write;
  uint64_t read;
};
// `interval_done` and `pass_done` are the bytes moved so far in the current
// interval and in the current pass (the interval's included).
EtaRemaining remaining_plan(const EtaRun& run, uint64_t interval_done, uint64_t pass_done);

// Seconds to move `bytes` at `rate` bytes a second: 0 for nothing, -1 (not
// known) when there is something to move and no rate yet.
double seconds_for(uint64_t bytes, double rate);
// The two together; -1 when either is not known.
double seconds_for(uint64_t write_bytes, double write_rate, uint64_t read_bytes, double read_rate);

// What one progress line shows. Rates in bytes a second (0: not measured
// yet), seconds as from seconds_for (-1: not known).
struct EtaFigures {
  uint64_t interval_done;
  uint64_t interval_bytes;
  double rate;
  double interval_seconds;
  uint32_t test_percent;
  double test_seconds;
};
// "N of M MB (P%)  R MB/s  T left | test P%  T left" into `out` (a line of at
// most 79 columns for amounts below 100,000 of their unit, rates below
// 10,000 MB/s and times below 100 days). Amounts are in MB of 1,048,576
// bytes, in GB or TB (1,024 of the unit below) once the interval's planned
// amount reaches 100,000 MB or GB. A time is "h:mm:ss", from a day on
// "Nd hh:mm"; not known, "--". Returns the length written.
size_t format_eta_line(char* out, size_t size, const EtaFigures& figures);
// "h:mm:ss", "Nd hh:mm", ">9999d" or "--" (seconds < 0), rounded up so that
// "0:00:00" means nothing is left.
void format_time_left(char* out, size_t size, double seconds);

// The iteration driver's marks: a new test (the plan from the sizing step),
// the start of a pass, the end of an interval (its transfer time) and the
// end of a pass.
void eta_begin_test();
void eta_begin_pass(uint32_t iteration, bool reading);
void eta_end_interval(double elapsed_seconds);
void eta_end_pass(bool end_of_medium);
// The progress line of the moment: `interval_done` bytes moved in
// `interval_ms` since the current interval's loop began. Returns its length.
size_t eta_progress_line(char* out, size_t size, uint64_t interval_done, uint32_t interval_ms);
