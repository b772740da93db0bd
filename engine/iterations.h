// The interval and iteration drivers: the whole tape test. Each test (write,
// read/compare) runs `interval_count` status intervals, each announced with
// the date and time, run by a transfer loop between two drive status
// collections, and closed with its time and KB/SEC rate.
#pragma once

#include <cstdint>

// Rewind, block mode, then `iterations` times: write test, rewind,
// read/compare test, rewind, RWR/ECC verdicts, optional unload and reload.
// 0 when every iteration ran to its end, -1 as soon as a step failed.
int run_test_iterations();
// 0 (also when EOM cut the test short) or -1.
int run_write_test();
// 0 (also after a blank check) or -1.
int run_read_compare_test();

// Whole KB/SEC (1 KB = 1000 bytes) for `megabytes` moved in `seconds`;
// 0 for a zero time. A full 32-bit count, never wrapped at 65,536.
uint32_t transfer_rate_kb_per_second(double megabytes, double seconds);
