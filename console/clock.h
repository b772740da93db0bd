// Date and time texts that stamp the report, the monotonic clock of the
// command timing, the millisecond pause and the console cursor.
#pragma once

#include <cstdint>
#include <ctime>

#include "os/os.h"

// "MM/DD/YY" of the local date; the buffer is overwritten by each call.
const char* date_string();
// "hh:MM:SS am" / "hh:MM:SS pm" on a 12-hour clock; overwritten by each call.
const char* time_string();

// Where the local time comes from; tests install a fixed clock. nullptr
// restores the system clock.
void set_local_time_source(void (*source)(std::tm* now));

void sleep_msec(uint32_t milliseconds);
// Nanoseconds of the monotonic clock, for timing single commands.
inline uint64_t monotonic_ns() { return os_monotonic_ns(); }
// The cheaper counter of the command timing and its rate (see os.h).
inline uint64_t fast_ticks() { return os_fast_ticks(); }
inline double fast_ticks_per_ns() { return os_fast_ticks_per_ns(); }
void hide_cursor();
void show_cursor();
