// The write loop and the read/compare loop of one status interval, their
// clock and the compare. The loops run on the main thread, never nested, and
// neither allocate nor copy per command; their only own output per command
// is the "%lu MB\r" progress line on the screen after each whole MB.
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
// failed command or a miscompare.
int run_read_compare_loop(uint32_t transfer_length, uint32_t* commands, const uint8_t* reference,
                          double* elapsed_seconds, uint8_t* end_of_medium);
// Offset of the first byte that differs, or 0xFFFFFFFF when none does.
uint32_t find_miscompare(const uint8_t* received, const uint8_t* expected, uint32_t length);
constexpr uint32_t kNoMiscompare = 0xFFFFFFFF;
// Mode 0 marks the start and returns 0.0; mode 1 returns the seconds since
// the mark, in whole milliseconds of elapsed real time; other modes 0.0.
double test_timer(uint16_t mode);
