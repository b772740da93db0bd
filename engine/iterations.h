// The interval and iteration drivers: the whole tape test.
#pragma once

int run_test_iterations();
int run_write_test();
int run_read_compare_test();
