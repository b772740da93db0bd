// Drive operations between single commands and the test: block mode, rewind,
// unload/reload with the ready wait, and the two filemarks that open the test
// data. Each prints what it does and, on failure, its error line and the
// status report; 0 or -1.
#pragma once

#include <cstdint>

extern uint8_t removal_lock_step;  // Prevent/Allow still used (starts at 1)
extern uint8_t load_unload_step;   // Load/Unload still used (starts at 1)
// Mode Select goes out with the page format bit set (starts at 0; set once a
// drive has refused it clear and accepted it set).
extern uint8_t mode_select_page_format;
void reset_drive_operations();     // the three flags back to their start values

int read_block_mode();
int set_block_mode();
int rewind_tape();
int unload_reload();
int wait_until_ready();
// The ready wait of a library sweep, bounded: TEST UNIT READY at once and
// then once a second until the drive answers GOOD, for at most `seconds`
// (0: one try). A drive that reports an incompatible medium (NOT READY or
// other, ASC 30h) will not become ready and is not waited for. 0 when ready;
// -1 with the last answer left in `scsi_transport.result`, nothing printed.
int wait_until_ready_within(uint32_t seconds);
// Unloads the cartridge so that a library's picker can take it (LOAD/UNLOAD
// with LOAD clear). A drive that does not support the command, or holds no
// cartridge, is left as it is; one whose medium removal is prevented gets
// PREVENT/ALLOW MEDIUM REMOVAL (allow) and the unload again. 0, or -1 after
// the error line and the status report.
int unload_for_changer();
int write_two_filemarks(uint8_t* end_of_medium);
int space_two_filemarks(uint8_t* end_of_medium);
