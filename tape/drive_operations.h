// Drive operations between single commands and the test: block mode, rewind,
// unload/reload with the ready wait, and the two filemarks that open the test
// data. Each prints what it does and, on failure, its error line and the
// status report; 0 or -1.
#pragma once

#include <cstdint>

extern uint8_t removal_lock_step;  // Prevent/Allow still used (starts at 1)
extern uint8_t load_unload_step;   // Load/Unload still used (starts at 1)
void reset_drive_operations();     // both flags back to 1

int read_block_mode();
int set_block_mode();
int rewind_tape();
int unload_reload();
int wait_until_ready();
int write_two_filemarks(uint8_t* end_of_medium);
int space_two_filemarks(uint8_t* end_of_medium);
