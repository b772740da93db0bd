// The executor: every SCSI command goes through `execute_cdb`, which sends it
// to the addressed device through the active platform and leaves the outcome
// in `scsi_transport.result`. It never judges, retries or prints (apart from
// the CDB list line).
#pragma once

#include <cstdint>

// Caller sets `scsi_transport.request_length` first. `cdb_length` 1 to 16;
// anything else is not sent (srb_status 0xFF, win32_error 87).
void execute_cdb(uint8_t* data_buffer, uint8_t cdb_length, const uint8_t* cdb);
