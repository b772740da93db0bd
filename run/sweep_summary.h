// What a library sweep found, cartridge by cartridge: one plain record per
// chosen cartridge, the summary table printed after the last one, and the
// reasons a batch job reads in the RESULT line and the result record. Main
// thread only.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "changer/element_status.h"

enum class CartridgeResult : uint8_t {
  passed,
  failed,      // as a classic run fails: a failed command, a miscompare (exit code 1)
  not_passed,  // ran, but must not count as a pass: a failed verdict, 0 bytes verified, never ready
  skipped,     // a cleaning cartridge, an element in exception
  not_tested,  // the sweep stopped before it
};

struct CartridgeOutcome {
  char barcode[kVolumeTagLength + 1];
  uint32_t slot;     // from 1, as the library's panel counts
  uint16_t element;  // the slot's element address
  CartridgeResult result;
  char reason[160];  // after "failed: " or "skipped: "; empty when passed
  uint64_t bytes_written;
  uint64_t bytes_verified;
  double write_seconds;
  double read_seconds;
  bool rwr_known;  // `/dsc` with DRWR
  double max_rwr_percentage;
  bool ecc_known;  // `/dsc` with DECC
  double max_ecc_percentage;
  bool alerts_known;  // `/health` read TapeAlert
  uint64_t alerts_raised;  // bit n-1: TapeAlert flag n raised during the test
};

// "passed", "failed: <reason>", "skipped: <reason>", "not tested".
std::string cartridge_result_text(const CartridgeOutcome& outcome);
// MB per second (1 MB = 1,048,576 bytes) of `bytes` in `seconds`; 0 for no time.
double megabytes_per_second(uint64_t bytes, double seconds);

// The summary table: a heading, one line per cartridge, the totals line.
void print_sweep_summary(const std::vector<CartridgeOutcome>& outcomes, uint16_t drive_element);
