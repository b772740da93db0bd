// The road to a library's medium changer. The transport sends to one address
// at a time; this file alone switches it between the tested drive (the
// classic `/hanum /bus /tid /lun`) and the changer (`/changer`, kept in
// `test_settings.changer`). A changer command sequence is bracketed by
// changer_begin and changer_end: the changer's handle is opened at the first
// command and closed at the end, so that other processes (other drives of
// the same library) can use the changer between sequences, and never inside
// one. Test thread only.
#pragma once

#include <cstdint>

// Checks the changer's address once (the classic messages for an id above
// 15 or a LUN above 7). 0 or -1.
int changer_check_address();

// Begins a sequence: addresses the changer and sends TEST UNIT READY. A
// changer held by another process is tried again every
// second (sooner at first) for up to 10 minutes (one line says so); unit attentions are taken
// as they come (a power-on 29/00 is a changer's usual first answer), and a
// changer that is becoming ready (NOT READY, ASC 04h) is waited for as long;
// any other answer is left to the sequence's commands. 0 with the changer
// addressed; -1 after the error line and the status report, with the
// changer's handle closed and the drive addressed again.
int changer_begin();
// Within a sequence: commands go to the drive, or to the changer again.
// The changer stays held either way.
void changer_address_drive();
void changer_address_changer();
// Ends the sequence: closes the changer's handle and addresses the drive.
void changer_end();

// True when a changer_begin met UNIT ATTENTION 28/00 (the changer's
// inventory may have changed, e.g. its door was opened) since the last call.
bool changer_inventory_changed();

// "ERROR: <what> at changer SCSI id %X LUN %u" and the status report of the
// last command.
void report_changer_failure(const char* what);

// The sense key, ASC and ASCQ of the last command (0 when it returned none).
uint8_t last_sense_key();
uint8_t last_asc();
uint8_t last_ascq();

// Back to the start state (tests).
void reset_changer_link();
