// Test support for the virtual drive: configures it from description text,
// opens it through its platform record and sends raw CDBs, decoding the
// fixed-format sense of each answer.
#pragma once

#include <cstdint>
#include <initializer_list>
#include <string>
#include <vector>

#include "transport/platform/platform.h"

struct Answer {
  uint32_t error = 0;
  uint8_t status = 0;
  uint32_t transferred = 0;
  uint8_t sense_length = 0;
  uint8_t sense[256] = {};
  uint8_t key() const { return sense[2] & 0x0F; }
  uint8_t asc() const { return sense[12]; }
  uint8_t ascq() const { return sense[13]; }
  bool filemark() const { return (sense[2] & 0x80) != 0; }
  bool end_of_medium() const { return (sense[2] & 0x40) != 0; }
  bool incorrect_length() const { return (sense[2] & 0x20) != 0; }
  bool valid() const { return (sense[0] & 0x80) != 0; }
  int32_t information() const;
};

// Writes `text` to a file of the temporary directory whose name starts with
// the running test's name, and returns its path.
std::string write_temp_file(const std::string& name, const std::string& text);

// Resets the settings (address 0,0,2,0) and configures the drive from
// `description` (empty: the defaults). The result of vtape_configure.
int configure_vtape(const std::string& description);

// Opens the adapter device of the drive; the handle or kInvalidPlatformHandle.
PlatformHandle open_vtape();

// Sends one CDB to the address of the settings, or to bus, target and LUN.
Answer send_cdb(PlatformHandle handle, std::initializer_list<uint8_t> cdb, uint8_t* data = nullptr,
                uint32_t length = 0, DataDirection direction = DataDirection::in);
Answer send_cdb_to(PlatformHandle handle, uint8_t bus, uint8_t target, uint8_t lun,
                   std::initializer_list<uint8_t> cdb, uint8_t* data, uint32_t length,
                   DataDirection direction);

// Configures, opens and clears the power-on unit attention; the handle.
PlatformHandle ready_vtape(const std::string& description = "");

// Common commands.
Answer write_bytes(PlatformHandle h, const std::vector<uint8_t>& record, bool fixed = false,
                   uint32_t count = 0);
Answer read_bytes(PlatformHandle h, std::vector<uint8_t>* buffer, uint32_t transfer_length,
                  bool fixed = false, bool sili = false);
Answer write_filemarks(PlatformHandle h, uint32_t count);
Answer space(PlatformHandle h, uint8_t code, int32_t count);
Answer rewind_tape(PlatformHandle h);
// Mode Select(6) with one block descriptor.
Answer select_block_mode(PlatformHandle h, uint8_t density, uint32_t block_length, bool pf = false);
// The first block location of Read Position, or -1 when the command failed.
int64_t tape_position(PlatformHandle h);
// The 4-byte value at `offset` of the parameter data of log page `page`, as
// the drive status collection reads it (40 bytes); -1 when it failed.
int64_t log_value(PlatformHandle h, uint8_t page, unsigned offset, unsigned length = 4);
