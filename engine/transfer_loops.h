// The write loop and the read/compare loop of one status interval, their
// clock and the compare. The loops run on the main thread, never nested, and
// neither allocate nor copy per command; their only own output per command
// is the "%lu MB\r" progress line on the screen after each whole MB (with
// `/eta`, the line of time left of progress_estimate.h). Progress lines go to
// the screen alone, never to the output file.
#pragma once

#include <cstdint>

// Issues *commands Write(6) commands of `transfer_length` (the CDB field)
// from `rw_buffer`. Returns 0 (also after EOM: *commands then holds the
// commands issued, the EOM one included, and *end_of_medium is 1), or -1
// after a failed command with its message and the status report.
int run_write_loop(uint32_t transfer_length, uint32_t* commands, double* elapsed_seconds,
                   uint8_t* end_of_medium);
// The same with Read(6) into `rw_buffer`, each block compared with
// `reference`; BLANK CHECK ends it like EOM ends the write loop. -1 after a
// failed command or a miscompare (*commands then counts up to the block that
// miscompared).
int run_read_compare_loop(uint32_t transfer_length, uint32_t* commands, const uint8_t* reference,
                          double* elapsed_seconds, uint8_t* end_of_medium);
// Offset of the first byte that differs, or 0xFFFFFFFF when none does.
uint32_t find_miscompare(const uint8_t* received, const uint8_t* expected, uint32_t length);
constexpr uint32_t kNoMiscompare = 0xFFFFFFFF;
// What the whole test moved and judged, for the results file and the exit
// policy of `/strict`: bytes written (the Write that met EOM included) and
// bytes read back and found equal, over every iteration; the RWR and ECC
// verdicts that failed. Reset by the run sequence.
struct TestTotals {
  uint64_t bytes_written;
  uint64_t bytes_verified;
  bool rwr_failed;
  bool ecc_failed;
  double worst_rwr_percentage;
  double worst_ecc_percentage;
  double write_seconds;  // time of the write intervals, for the rate of a library sweep's summary
  double read_seconds;   // time of the read/compare intervals
  const char* failure;  // what ended the test early: "write failure", ...; null when nothing did
};
extern TestTotals test_totals;
void reset_test_totals();

// How the last loop call ended, beyond what it returns: the commands that
// completed (all of them, or those before a failed one), and a miscompare's
// read command within the call (from 1), offset, expected and read byte.
struct LoopEnd {
  uint32_t completed;
  bool miscompare;
  uint32_t command;
  uint32_t offset;
  uint8_t expected;
  uint8_t read;
};
extern LoopEnd last_loop_end;

// The running MB count on the screen. `overwrite` (a terminal, and the
// default): "%lu MB\r" at every whole MB, each line over the last.
// `minutely` (the screen is a pipe or a file): at most one "%lu MB\r\n" line
// a minute, so a batch log stays small. Setting the style starts the minute.
// `/eta` (`test_settings.eta_enabled`) keeps the style and shows its own line.
enum class ProgressStyle : uint8_t { overwrite, minutely };
void set_progress_style(ProgressStyle style);
// The millisecond clock of the loops and of the progress minute; nullptr
// restores the process clock (tests install their own).
void set_loop_clock(uint32_t (*clock_ms)());

// Mode 0 marks the start and returns 0.0; mode 1 returns the seconds since
// the mark, in whole milliseconds of elapsed real time; other modes 0.0.
double test_timer(uint16_t mode);
