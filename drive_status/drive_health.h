// The built-in drive health view of `/health`: before the first iteration
// and after every iteration, Log Sense page 00h and then, of the pages it
// lists, TapeAlert (2Eh), the write and read error counters (02h, 03h), the
// sequential-access device page (0Ch) and volume statistics (17h), each read
// whole and walked by parameter code. The readings go into one plain record,
// `drive_health`, and into a "drive health" section of the report. A page
// that fails is reported once and not asked for again; the test goes on.
// Main thread only.
#pragma once

#include <cstdint>

#include "console/log_output.h"

enum HealthCounter : unsigned {
  kWriteCorrected, kWriteRewrites, kWriteBytes, kWriteUncorrected,
  kReadCorrected, kReadRereads, kReadBytes, kReadUncorrected,
  kBytesFromHost, kBytesToTape, kBytesFromTape, kBytesToHost, kCleaningRequired,
  kThreadCount, kDataSetsWritten, kWriteRetries, kUnrecoveredWrites,
  kDataSetsRead, kReadRetries, kUnrecoveredReads, kLifetimeMbWritten, kLifetimeMbRead,
  kHealthCounterCount
};

struct HealthReading {
  bool pages_known;  // page 00h answered
  bool listed[64];   // the pages it lists
  bool tapealert_read;
  uint64_t alerts;   // bit n-1: TapeAlert flag n set
  bool has[kHealthCounterCount];
  uint64_t value[kHealthCounterCount];
};

struct DriveHealth {
  uint32_t readings;        // taken so far
  HealthReading baseline;   // before the first iteration
  HealthReading current;    // the latest reading
  // Changes over the test so far, summed reading by reading; a counter that
  // went down (the drive reset it, as at a load) counts again from zero.
  bool has_change[kHealthCounterCount];
  uint64_t change[kHealthCounterCount];
  uint64_t alerts_raised;   // flags set in some reading that the baseline did not have
  bool page_failed[64];     // reported once and left out since
};

extern DriveHealth drive_health;
void reset_drive_health();

// Takes a reading and prints its section: `iteration` 0 before the test,
// else after that iteration (with the changes over the test). Failures are
// reported in the section and never end the test.
void report_drive_health(uint32_t iteration);

// Prints "  label ........ value" with the dot leaders of the classic
// figures (the value starts in column 48).
void health_line(const char* label, const char* format, ...) BFT_PRINTF_FORMAT(2, 3);

// After an unload and reload (`/uld`): takes a reading without printing it
// as the start of the next changes, since a drive may reset its counters at
// a load (a counter that comes back to the same value would hide the reset).
void rebase_drive_health();

// Name of a counter as the report prints it.
const char* health_counter_name(HealthCounter counter);
