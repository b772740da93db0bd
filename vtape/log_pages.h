// The virtual drive's Log Sense pages. Laid out so that every counter the
// drive status collection reads lies in the first 36 bytes of parameter data
// (the program reads 40 bytes of a page) as 4-byte values:
//
//   page 00h  supported pages: 00h 02h 03h 0Ch 17h 2Eh 32h, less those the
//             description leaves out (log_page_missing)
//   page 02h  write error counters (SPC), 4-byte values except 0005h:
//             0000h records rewritten, 0001h 0, 0002h KB rewritten,
//             0003h KB corrected by rewriting, 0004h records rewritten,
//             0005h bytes processed (8 bytes), 0006h failed writes
//   page 03h  read error counters, the same for reads and ECC corrections
//   page 0Ch  sequential-access device page (SSC), 8-byte values:
//             0000h bytes from host, 0001h bytes to tape,
//             0002h bytes from tape, 0003h bytes to host, 0100h cleaning 0
//   page 17h  volume statistics (SSC): 0001h thread count, 0002h data
//             sets (records) written, 0003h write retries, 0004h unrecovered
//             write errors, 0007h/0008h/0009h the same for reads,
//             0010h/0011h lifetime MB written to / read from tape (8 bytes)
//   page 2Eh  TapeAlert: flags 0001h-0040h, one byte each, bit 0 the flag
//   page 32h  data compression, 4-byte values in KB (modulo 2^32):
//             0000h written by host, 0001h written to tape,
//             0002h read by host, 0003h read from tape;
//             0004h/0005h write/read compression ratio x100 (2 bytes)
//
// Parameter data offsets (after the 4-byte page header) of the 4-byte
// values: parameter 0000h at 4, 0001h at 12, 0002h at 20, 0003h at 28.
#pragma once

#include <cstdint>

#include "vtape/drive_state.h"

constexpr unsigned kLogPageCapacity = 512;

// Builds page `page_code` with the parameters from `first_parameter` on
// into `page`; returns its length (header included), or 0 when the drive
// has no such page.
unsigned build_log_page(const VirtualDrive& drive, uint8_t page_code, uint16_t first_parameter,
                        uint8_t* page);
