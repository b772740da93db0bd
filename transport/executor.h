// The executor: every SCSI command goes through `execute_cdb`, which sends it
// to the addressed device through the active platform and leaves the outcome
// in `scsi_transport.result`. It never judges, retries or prints (apart from
// the CDB list line). Runs on the test thread only.
#pragma once

#include <cstdint>

#include "transport/platform/platform.h"

// The only bound on one command: 30 hours, handed to the platform as is.
constexpr uint32_t kCommandTimeoutSeconds = 108000;

// Caller sets `scsi_transport.request_length` first. `data_buffer` is never
// null (`no_data_buffer` for commands without data). `cdb_length` 1 to 16;
// anything else is not sent (srb_status 0xFF, win32_error 87, no CDB list
// line). With no handle for the addressed device: srb_status 0x11, nothing
// sent or listed. Otherwise the CDB is listed (" %02x" per byte, "\r\n") on
// the CDB list stream and sent; `result` then holds request outcome, SCSI
// status, transferred length and the returned sense bytes (rest of the 256
// sense bytes zero).
void execute_cdb(uint8_t* data_buffer, uint8_t cdb_length, const uint8_t* cdb);

// Data phase direction by operation code: out for the write-type commands
// (Write, Verify, Mode Select, Send Diagnostic, Write Buffer, Write Long, Log
// Select, Send Volume Tag), in for every other code.
DataDirection data_direction_for(uint8_t operation_code);

// The executor keeps track of how much of `sense_buffer` may hold non-zero
// bytes so it need not wipe all 256 bytes per command. Call after the buffer
// was zero-filled as a whole.
void note_sense_buffer_clean();
// Forgets that knowledge (the next command wipes everything).
void reset_executor();
