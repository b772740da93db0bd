// The write loop and the read/compare loop of one status interval, their
// clock and the compare.
#pragma once

#include <cstdint>

int run_write_loop(uint32_t transfer_length, uint32_t* commands, double* elapsed_seconds,
                   uint8_t* end_of_medium);
int run_read_compare_loop(uint32_t transfer_length, uint32_t* commands, const uint8_t* reference,
                          double* elapsed_seconds, uint8_t* end_of_medium);
uint32_t find_miscompare(const uint8_t* received, const uint8_t* expected, uint32_t length);
double test_timer(uint16_t mode);
