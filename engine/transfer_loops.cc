#include "engine/transfer_loops.h"

#include <algorithm>
#include <chrono>
#include <cstring>

#include "console/clock.h"
#include "console/log_output.h"
#include "engine/command_timing.h"
#include "engine/progress_estimate.h"
#include "engine/sizing.h"
#include "results/results_file.h"
#include "settings/settings.h"
#include "tape/command_blocks.h"
#include "transport/scsi_transport.h"
#include "transport/status_report.h"

namespace {

constexpr uint32_t kBytesPerMb = 1048576;
constexpr uint8_t kSenseKeyNoSense = 0x00;
constexpr uint8_t kSenseKeyBlankCheck = 0x08;
constexpr uint8_t kEomBit = 0x40;

constexpr uint32_t kProgressLineMs = 60000;  // one progress line a minute off a terminal

const std::chrono::steady_clock::time_point process_start = std::chrono::steady_clock::now();
uint32_t timer_start_mark = 0;
ProgressStyle progress_style = ProgressStyle::overwrite;
uint32_t last_progress_line_ms = 0;
constexpr size_t kEtaLineCapacity = 128;

// Milliseconds since the process started, on a clock that never steps.
uint32_t process_clock_msec() {
  auto since = std::chrono::steady_clock::now() - process_start;
  return static_cast<uint32_t>(
      std::chrono::duration_cast<std::chrono::milliseconds>(since).count());
}
uint32_t (*clock_msec)() = process_clock_msec;

// Byte 2 of the sense data of the last command: sense key, FMK, EOM, ILI.
uint8_t sense_flags() {
  const ScsiResult& result = scsi_transport.result;
  return result.sense_data != nullptr ? result.sense_data[2] : result.sense_key_byte;
}

// True once a minute has passed since the last progress line off a terminal;
// `now` then starts the next minute.
bool minute_passed(uint32_t now) {
  if (now - last_progress_line_ms < kProgressLineMs) return false;
  last_progress_line_ms = now;
  return true;
}

// The running MB count of one loop call; `moved` is the test total that
// each successful command adds to. With `/eta` the count becomes the line of
// progress_estimate.h, which on a terminal is padded to cover the last one
// and wiped before the loop's report lines.
struct Progress {
  uint64_t* moved;
  bool estimate = test_settings.eta_enabled != 0;
  uint32_t bytes_in_mb = 0;
  uint32_t megabytes = 0;
  size_t shown_length = 0;  // of the `/eta` line standing on the terminal; 0 none

  void advance(uint32_t bytes) {
    *moved += bytes;
    uint64_t total = static_cast<uint64_t>(bytes_in_mb) + bytes;
    if (total < kBytesPerMb) {
      bytes_in_mb = static_cast<uint32_t>(total);
      return;
    }
    megabytes += static_cast<uint32_t>(total / kBytesPerMb);
    bytes_in_mb = static_cast<uint32_t>(total % kBytesPerMb);
    if (results_enabled()) results_note_totals(test_totals.bytes_written, test_totals.bytes_verified);
    if (estimate) {
      if (!show_estimate()) return;
    } else if (progress_style == ProgressStyle::overwrite) {
      screen_printf("%lu MB\r", static_cast<unsigned long>(megabytes));
    } else {
      if (!minute_passed(clock_msec())) return;
      screen_printf("%lu MB\r\n", static_cast<unsigned long>(megabytes));
    }
    flush_stream(screen_stream());  // a line without a line feed is not flushed by itself
  }

  // False when it is not yet time for a line.
  bool show_estimate() {
    const uint32_t now = clock_msec();
    if (progress_style == ProgressStyle::minutely && !minute_passed(now)) return false;
    char line[kEtaLineCapacity];
    const uint64_t done = static_cast<uint64_t>(megabytes) * kBytesPerMb + bytes_in_mb;
    const size_t length = eta_progress_line(line, sizeof line, done, now - timer_start_mark);
    if (progress_style == ProgressStyle::minutely) {
      screen_printf("%s\r\n", line);
      return true;
    }
    screen_printf("%-*s\r", static_cast<int>(std::max(length, shown_length)), line);
    shown_length = length;
    return true;
  }

  // Wipes the line in place, so the next report line starts on a clean row.
  void end_line() {
    if (shown_length == 0) return;
    screen_printf("%*s\r", static_cast<int>(shown_length), "");
    shown_length = 0;
  }
};

// The clock of the command timing: a reading of the fast counter just
// before and just after each command, so a command's time is the drive's
// and the transport's alone; `bytes` is 0 for a failed command. Without
// timing every member is empty and the loop is the untimed one.
template <bool kTimed>
struct CommandClock {
  uint64_t start = 0;
  void command_start() {
    if constexpr (kTimed) start = fast_ticks();
  }
  void command_done(uint32_t bytes) {
    if constexpr (kTimed) time_command(start, fast_ticks(), bytes);
  }
};

}  // namespace

TestTotals test_totals;
LoopEnd last_loop_end;

void reset_test_totals() {
  test_totals = TestTotals{};
  last_loop_end = LoopEnd{};
}

void set_progress_style(ProgressStyle style) {
  progress_style = style;
  last_progress_line_ms = clock_msec();
}

void set_loop_clock(uint32_t (*clock_ms)()) {
  clock_msec = clock_ms != nullptr ? clock_ms : process_clock_msec;
}

double test_timer(uint16_t mode) {
  if (mode == 0) {
    timer_start_mark = clock_msec();
    return 0.0;
  }
  if (mode == 1) return static_cast<uint32_t>(clock_msec() - timer_start_mark) / 1000.0;
  return 0.0;
}

uint32_t find_miscompare(const uint8_t* received, const uint8_t* expected, uint32_t length) {
  if (std::memcmp(received, expected, length) == 0) return kNoMiscompare;
  for (uint32_t i = 0; i < length; ++i) {
    if (received[i] != expected[i]) return i;
  }
  return kNoMiscompare;
}

namespace {

template <bool kTimed>
int write_loop(uint32_t transfer_length, uint32_t* commands, double* elapsed_seconds,
               uint8_t* end_of_medium) {
  int result = 0;
  Progress progress{&test_totals.bytes_written};
  last_loop_end = LoopEnd{*commands, false, 0, 0, 0, 0};
  CommandClock<kTimed> clock;
  const uint32_t bytes = test_settings.max_transfer_length;
  const unsigned id = test_settings.scsi_id;
  const unsigned lun = test_settings.lun;
  test_timer(0);
  for (uint32_t i = 0; i < *commands; ++i) {
    clock.command_start();
    if (scsi_write(transfer_length) != 0) {
      last_loop_end.completed = i;
      result = -1;
      break;
    }
    if (command_failed()) {
      clock.command_done(0);
      progress.end_line();
      const uint8_t flags = sense_flags();
      if ((end_of_medium_flags & 1) && (flags & 0x0F) == kSenseKeyNoSense && (flags & kEomBit)) {
        report_printf("hit \"EOM\" writing data at SCSI id %X LUN %u (aborting all write testing)\r\n",
                      id, lun);
        *commands = i + 1;
        *end_of_medium = 1;
        test_totals.bytes_written += bytes;  // its data reached the tape
      } else {
        report_printf("ERROR: failure writing data at SCSI id %X LUN %u (aborting all write testing)\r\n",
                      id, lun);
        print_command_status();
        last_loop_end.completed = i;
        result = -1;
      }
      break;
    }
    clock.command_done(bytes);
    progress.advance(bytes);
  }
  progress.end_line();
  *elapsed_seconds = test_timer(1);
  flush_report_streams();
  return result;
}

template <bool kTimed>
int read_compare_loop(uint32_t transfer_length, uint32_t* commands, const uint8_t* reference,
                      double* elapsed_seconds, uint8_t* end_of_medium) {
  int result = 0;
  Progress progress{&test_totals.bytes_verified};
  last_loop_end = LoopEnd{*commands, false, 0, 0, 0, 0};
  CommandClock<kTimed> clock;
  const uint32_t bytes = test_settings.max_transfer_length;
  const unsigned id = test_settings.scsi_id;
  const unsigned lun = test_settings.lun;
  test_timer(0);
  for (uint32_t i = 0; i < *commands; ++i) {
    clock.command_start();
    if (scsi_read(transfer_length) != 0) {
      last_loop_end.completed = i;
      result = -1;
      break;
    }
    if (command_failed()) {
      clock.command_done(0);
      progress.end_line();
      if ((end_of_medium_flags & 1) && (sense_flags() & 0x0F) == kSenseKeyBlankCheck) {
        report_printf("hit \"blank check\" reading/comparing data at SCSI id %X LUN %u (aborting all\r\n"
                      "read testing)\r\n",
                      id, lun);
        *commands = i + 1;
        *end_of_medium = 1;
      } else {
        report_printf("ERROR: failure reading/comparing data at SCSI id %X LUN %u (aborting all read\r\n"
                      "testing)\r\n",
                      id, lun);
        print_command_status();
        last_loop_end.completed = i;
        result = -1;
      }
      break;
    }
    clock.command_done(bytes);
    const uint32_t offset = find_miscompare(rw_buffer, reference, bytes);
    if (offset != kNoMiscompare) {
      progress.end_line();
      report_printf("ERROR: data miscompare after read command %lu at offset 0x%lX\r\nfor SCSI id %X LUN %u\r\n",
                    static_cast<unsigned long>(i + 1), static_cast<unsigned long>(offset), id, lun);
      *commands = i + 1;
      last_loop_end = {i, true, i + 1, offset, reference[offset], rw_buffer[offset]};
      result = -1;
      break;
    }
    progress.advance(bytes);
  }
  progress.end_line();
  *elapsed_seconds = test_timer(1);
  flush_report_streams();
  return result;
}

}  // namespace

int run_write_loop(uint32_t transfer_length, uint32_t* commands, double* elapsed_seconds,
                   uint8_t* end_of_medium) {
  return command_timing_on() ? write_loop<true>(transfer_length, commands, elapsed_seconds, end_of_medium)
                             : write_loop<false>(transfer_length, commands, elapsed_seconds, end_of_medium);
}

int run_read_compare_loop(uint32_t transfer_length, uint32_t* commands, const uint8_t* reference,
                          double* elapsed_seconds, uint8_t* end_of_medium) {
  return command_timing_on()
             ? read_compare_loop<true>(transfer_length, commands, reference, elapsed_seconds, end_of_medium)
             : read_compare_loop<false>(transfer_length, commands, reference, elapsed_seconds, end_of_medium);
}
