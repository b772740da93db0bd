// The virtual drive as one plain record: its description, the cartridge,
// the mode parameters, the pending unit attention, the counters behind the
// log pages and the fault counters. A process has one drive
// (`virtual_drive()`), or a virtual library's drives (`virtual_drive_at`);
// the platform record serialises the commands on them.
#pragma once

#include <atomic>
#include <chrono>
#include <cstdint>

#include "vtape/cartridge.h"
#include "vtape/description.h"

enum class MediumState : uint8_t { absent, unloaded, loaded };

// Counters since the cartridge was loaded (the log pages report them).
struct DriveCounters {
  uint64_t host_bytes_written;
  uint64_t tape_bytes_written;
  uint64_t host_bytes_read;
  uint64_t tape_bytes_read;
  uint64_t records_written;
  uint64_t records_read;
  uint64_t write_failures;
  uint64_t read_failures;
};

struct VirtualDrive {
  VtapeDescription description;
  Cartridge cartridge;
  MediumState medium;
  uint32_t not_ready_polls_left;  // Test Unit Ready answers NOT READY until 0
  bool unit_attention;            // pending, with its ASC/ASCQ
  uint8_t unit_attention_asc;
  uint8_t unit_attention_ascq;
  bool removal_prevented;
  uint8_t density_code;
  uint32_t block_length;  // mode block length; 0 = variable block mode
  DriveCounters counters;
  uint64_t tapealert_flags;  // bit n-1: TapeAlert flag n (page 2Eh)
  uint64_t loads;            // cartridge threads since power-on (page 17h)
  uint64_t write_commands;  // Write(6) and Read(6) commands of the run (for the faults)
  uint64_t read_commands;
  uint64_t reads_since_load;  // Read(6) commands since the cartridge was threaded
  bool modified;  // the cartridge changed since it was loaded or saved
  // In a library: the faults of the cartridge the drive holds
  // (kCartridgeDamaged, kCartridgeUnloadable), and whether its tape still
  // waits in the library directory, to be read before the drive uses it.
  uint8_t medium_faults;
  bool tape_in_file;
  // Throttle: the time the transfers since `throttle_start` take at the
  // drive's rates, and the position where the last one ended (a transfer
  // that starts elsewhere follows a repositioning and starts afresh).
  std::chrono::steady_clock::time_point throttle_start;
  double throttle_due_ms;
  uint64_t throttle_object;
  // Set by the break thread: a command in flight cuts its waits short.
  std::atomic<bool> stopping;
};

constexpr unsigned kMaxVirtualDrives = 14;  // a library's drives at SCSI ids 2 to 15

// The process's virtual drive (a library's first drive).
VirtualDrive& virtual_drive();
// A library's drive `index` (0 to kMaxVirtualDrives - 1).
VirtualDrive& virtual_drive_at(unsigned index);

// Puts the drive in its power-on state for `description` with an empty
// cartridge (or none, with `medium = none`): mode at the first density and
// variable blocks, counters zero, unit attention POWER ON (29/00) pending.
void power_on_drive(VirtualDrive* drive, const VtapeDescription& description);

// Threads the cartridge: position at the beginning of tape, counters zero,
// not_ready_polls from the description, unit attention 28/00 pending.
void load_cartridge(VirtualDrive* drive);

// True when the threaded cartridge is one the drive cannot use
// (kCartridgeUnloadable): NOT READY, INCOMPATIBLE MEDIUM INSTALLED (30/00).
bool incompatible_medium(const VirtualDrive& drive);

// Tape bytes at which the early-warning zone starts and the capacity ends.
uint64_t early_warning_bytes(const VirtualDrive& drive);
uint64_t capacity_bytes(const VirtualDrive& drive);

// The time in ms one transfer takes at the drive's rates: its tape bytes at
// rate_mb_s, but its host bytes no faster than host_rate_mb_s (a drive's
// host side has a top speed however well the data compresses), spread by
// rate_jitter_percent for the Nth Write(6) or Read(6) `command`. 0 when
// neither rate is set.
double transfer_ms(const VtapeDescription& description, uint64_t tape_bytes, uint64_t host_bytes,
                   uint64_t command);

// Holds the calling thread after a transfer that started at logical object
// `start_object` so that data moves no faster than transfer_ms says, and for
// backhitch_ms more when `command` (the Nth Write(6) or Read(6)) is a
// multiple of backhitch_every. Transfers that follow each other stream: a
// command the throttle held too long is made up by the next ones. After a
// repositioning (or a pause of the host of over a second) the drive starts
// streaming anew, with nothing to make up. Returns at once when `stopping`
// is set (the run is being ended).
void throttle_transfer(VirtualDrive* drive, uint64_t start_object, uint64_t tape_bytes, uint64_t host_bytes,
                       uint64_t command);
