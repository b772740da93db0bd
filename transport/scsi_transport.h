// The transport's state: the address that commands go to, the values every
// CDB carries, the CDB list stream, the data length of the next command and
// the outcome of the last command. One program-wide instance,
// `scsi_transport`. Written by the setters below, the command builders
// (`request_length`) and the executor (`result`); read by every caller right
// after its command.
#pragma once

#include <cstdint>
#include <cstdio>

struct ScsiResult {
  uint32_t win32_error;   // Win32-style code of the request (0: accepted)
  uint8_t srb_status;     // 0x00 sent, 0xFF request refused, 0x11 no handle
  uint8_t target_status;  // SCSI status byte from the target
  uint8_t sense_key_byte; // byte 2 of the returned sense data
  uint32_t transferred_length;
  uint8_t* sense_data;    // the 256-byte `sense_buffer`
};

constexpr uint8_t kSrbStatusSent = 0x00;
constexpr uint8_t kSrbStatusNoHandle = 0x11;
constexpr uint8_t kSrbStatusRequestFailed = 0xFF;

struct ScsiTransport {
  uint8_t adapter;
  uint8_t bus;
  uint8_t target_id;
  uint8_t target_lun;
  uint8_t lun_bits;
  uint8_t fixed_bit;
  uint8_t sili_bit;
  uint8_t control_byte;
  FILE* cdb_list_stream;
  uint32_t request_length;
  ScsiResult result;
};

extern ScsiTransport scsi_transport;

// Back to the initial values (adapter 0, bus 0, id 2, LUN 0, FIXED 1, no CDB
// list stream, zero result). The sense buffer pointer is kept.
void reset_scsi_transport();

// Setters. The two range errors go to the screen and the output file.
int set_adapter(uint8_t adapter);
int set_bus(uint8_t bus);
int set_target_id(uint8_t target_id);  // 0-15, else message and -1
int set_lun(uint8_t lun);              // 0-7, else message and -1; sets lun_bits
void set_fixed_bit(uint8_t fixed);     // 1 turns it on, anything else off
// The address of a unit that a scan found, as it is, without the range
// checks of the test's options (a listing meets ids above 15 and LUNs above
// 7); lun_bits stays 0 for a LUN above 7, which bits 7-5 cannot carry.
void set_unit_address(uint8_t adapter, uint8_t bus, uint8_t target_id, uint8_t lun);
void set_cdb_list_stream(FILE* stream);

// Ends a report section: flushes the output file, then the CDB list stream.
void flush_report_streams();
