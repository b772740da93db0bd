// The status report printed after a failed command, its three name tables and
// the general hex dump.
#pragma once

#include <cstdint>
#include <cstdio>

const char* win32_error_name(uint32_t code);
const char* target_status_name(uint8_t status);
extern const char* const sense_key_names[16];

// Prints the status report of `scsi_transport.result` to the screen and the
// output file; after a request that failed on its way, the active
// platform's sentence about why (describe_request_failure) comes first.
void print_command_status();

// Dumps `count` bytes of `buffer` from `start`; `stream` none means the screen
// and the output file. 0, or -1 (with its message) for a null or empty buffer.
int hex_dump(FILE* stream, const uint8_t* buffer, uint32_t buffer_size, uint32_t start,
             uint32_t count);
