// Collection and evaluation of the drive counters around every interval:
// before the transfers a baseline of the configured counters, after them the
// compression ratio, RWR/ECC percentage, block position and retry counters.
// One program-wide `drive_status`, used on the main thread only.
#pragma once

#include <cstdint>

// Each keyword field holds the reading of the before-phase and is replaced by
// the figure of the after-phase (amount, ratio, percentage or reading).
struct DriveStatus {
  double tdwr, wcmp, drwr, tdrd, rcmp, decc, rpos, rwrc, tkrc, reading;
  double max_rwr_percentage;  // largest drwr of the current iteration
  double max_ecc_percentage;  // largest decc of the current iteration
};

extern DriveStatus drive_status;
void reset_drive_status();  // every field back to 0.0

// Reads the counter of `dsc_entries[keyword_index]` (Log Sense page, Read
// Position or Request Sense data): its big-endian field times the
// multiplier. 0 with *value set, or -1 after its message (*value unchanged),
// also for an entry whose field lies outside the data read.
int read_drive_value(int keyword_index, double* value);
// phase 0 before the interval's transfers, 1 after; kind 0 write, 1 read;
// `bytes` moved in the interval (0.0 before). Prints the after-phase lines.
// 0, or -1 when a value cannot be read.
int collect_drive_status(uint16_t phase, uint16_t kind, double bytes);

// With `/json`: the interval record's "drive_status" object, the figures of
// the interval just evaluated as its report lines print them (position and
// retry counters cut to their low bits). Nothing when no figure is selected.
void write_drive_status_fields(uint16_t kind);
