// Date and time texts that stamp the report, the millisecond pause and the
// console cursor.
#pragma once

#include <cstdint>
#include <ctime>

// "MM/DD/YY" of the local date; the buffer is overwritten by each call.
const char* date_string();
// "hh:MM:SS am" / "hh:MM:SS pm" on a 12-hour clock; overwritten by each call.
const char* time_string();

// Where the local time comes from; tests install a fixed clock. nullptr
// restores the system clock.
void set_local_time_source(void (*source)(std::tm* now));

void sleep_msec(uint32_t milliseconds);
void hide_cursor();
void show_cursor();
