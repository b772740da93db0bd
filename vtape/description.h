// The virtual tape drive's description: its geometry, identity and the
// faults it should show, read from a `key = value` file. One plain record;
// the reader fills it and the drive reads it.
#pragma once

#include <cstdint>

#include "vtape/library_description.h"
#include "os/os.h"

constexpr unsigned kMaxDensities = 8;
constexpr unsigned kBackingFileCapacity = 256;

struct VtapeDescription {
  // Geometry and identity.
  uint64_t capacity_mb;
  uint64_t early_warning_mb;  // size of the early-warning zone before the end
  uint32_t min_block;
  uint32_t max_block;
  uint8_t densities[kMaxDensities];
  uint8_t density_count;
  char vendor[9];
  char product[17];
  char revision[5];
  char serial[33];  // unit serial number (VPD page 80h); empty: the page is not listed
  uint32_t rate_mb_s;  // native rate in MB/s of tape data; 0: unthrottled
  uint32_t host_rate_mb_s;  // ceiling in MB/s of host data, however well it compresses; 0: none
  uint32_t rate_jitter_percent;  // each transfer's time spread by up to this much, repeatably
  bool compression;
  uint32_t max_compression_ratio;  // a record takes at least 1/N of its size on tape; 0: no limit
  char backing_file[kBackingFileCapacity];  // empty: the cartridge lives in memory only
  // Faults.
  uint8_t device_type;  // peripheral device type answered by Inquiry
  bool lun_supported;
  bool held;
  bool claimed_without_tape_device;
  bool medium_present;
  uint32_t not_ready_polls;
  uint64_t fail_write_at;  // 0: never; else the Nth Write(6) of the run
  uint64_t fail_read_at;
  uint64_t corrupt_read_at;
  uint32_t corrupt_read_offset;
  uint64_t filemark_at_read;
  bool load_unload_supported;
  bool prevent_allow_supported;
  bool unload_refused_while_prevented;  // else unload and hold the cartridge
  bool mode_select_pf_required;         // Mode Select with PF clear is INVALID FIELD IN CDB
  uint64_t break_at_command;  // 0: never; else a break arrives during the Nth command...
  BreakKind break_kind;       // ...of this kind (CTRL-C unless `break_signal` says otherwise)
  // Recovered-error rates in hundredths of a percent (2.5 % is 250).
  uint32_t rewrite_percent;
  uint32_t corrected_percent;
  // Drive health.
  uint64_t tapealert_at_load;      // bit n-1: TapeAlert flag n set at every load
  uint64_t tapealert_at_write;     // 0: never; else the Nth Write(6) raises...
  uint8_t tapealert_write_flag;    // ...this flag (1-64)
  uint64_t counters_at_load_mb;    // byte counters start here at every load
  uint32_t max_transfer;           // adapter limit on one command's data; 0: none
  bool log_page_missing[64];       // left out of page 00h; Log Sense refuses it
  bool log_page_failing[64];       // listed, but Log Sense of it fails
  uint64_t backhitch_every;  // 0: never; else every Nth Write(6) and every Nth Read(6)
  uint32_t backhitch_ms;     // ... takes this much longer (a repositioning)
};

// The drive's defaults, used when no description file is given.
void default_vtape_description(VtapeDescription* description);

// Fills `description` and `library` with the defaults and then the keys of
// the file at `path`. 0, or -1 after an "ERROR: ..." line on the error
// stream naming the file, the line and the key (or that the file cannot be
// read, or which keys do not fit together); on -1 the records hold the
// defaults and the keys read before the bad line.
int read_vtape_description(const char* path, VtapeDescription* description, LibraryDescription* library);

// Reads one number in the program's number syntax: decimal, or octal,
// hexadecimal, binary by a "0o"/"0x"/"0b"/"0d" prefix or an o/h/b/d suffix.
// Unlike the option parser's lenient reading, any illegal character, an
// empty text or a value above 2^64-1 is refused: 0 with the value, or -1.
int read_description_number(const char* text, uint64_t* value);
