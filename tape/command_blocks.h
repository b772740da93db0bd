// The CDB of every SCSI command the program sends. Each builder lays out its
// CDB, sets `request_length`, clears its data buffer where a data-in command
// needs it, and calls `execute_cdb`; none looks at the outcome.
#pragma once

#include <cstdint>

extern uint8_t* rw_buffer;
extern uint32_t rw_buffer_length;

// Registers the Read(6)/Write(6) buffer. 0, or -1 with its message for a null
// pointer or zero length (the previous buffer stays).
int set_rw_buffer(uint8_t* buffer, uint32_t length);
// Forgets the read/write buffer (tests).
void reset_rw_buffer();

// A command failed when srb_status or target_status is not 0.
bool command_failed();

void scsi_test_unit_ready();
void scsi_request_sense(uint8_t allocation_length);
void scsi_inquiry(uint8_t allocation_length);
// Inquiry with EVPD set for the vital product data page `page_code`, into
// `inquiry_buffer`.
void scsi_inquiry_vpd(uint8_t page_code, uint8_t allocation_length);
void scsi_mode_sense(uint8_t allocation_length);
// PF (page format, byte 1 bit 4) set when `page_format` is not 0.
void scsi_mode_select(uint8_t parameter_list_length, uint8_t page_format);
void scsi_rewind(uint8_t immediate);
int scsi_read(uint32_t transfer_length);   // 0, or -1 without a read/write buffer
int scsi_write(uint32_t transfer_length);  // 0, or -1 without a read/write buffer
void scsi_write_filemarks(uint32_t count);
void scsi_space(uint8_t code, int32_t count);
void scsi_load_unload(uint8_t immediate, uint8_t retension, uint8_t load);
void scsi_prevent_allow(uint8_t prevent);
void scsi_read_position();
void scsi_log_sense(uint8_t page_code, uint8_t page_control, uint8_t allocation_length);

// Log Sense of a whole page into the caller's `buffer` (cleared first for
// `allocation_length` bytes): the 16-bit allocation length in CDB bytes 7-8.
// The classic collection keeps scsi_log_sense and its 40-byte log buffer.
void scsi_log_sense_page(uint8_t page_code, uint8_t page_control, uint8_t* buffer,
                         uint16_t allocation_length);
// Read Block Limits (05h) into the caller's 6-byte `buffer` (cleared first):
// byte 0 granularity, 1-3 maximum block length, 4-5 minimum block length.
void scsi_read_block_limits(uint8_t* buffer);
constexpr uint32_t kBlockLimitsLength = 6;
