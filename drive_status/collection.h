// Collection and evaluation of the drive counters around every interval.
#pragma once

#include <cstdint>

struct DriveStatus {
  double tdwr, wcmp, drwr, tdrd, rcmp, decc, rpos, rwrc, tkrc, reading;
  double max_rwr_percentage;
  double max_ecc_percentage;
};

extern DriveStatus drive_status;
void reset_drive_status();

int read_drive_value(int keyword_index, double* value);
// phase 0 before the interval's transfers, 1 after; kind 0 write, 1 read.
int collect_drive_status(uint16_t phase, uint16_t kind, double bytes);
