// The preflight of `/health`, before the first write: the drive's block
// length limits (Read Block Limits) and, where the platform can tell, the
// adapter's largest transfer. When the transfer length of the test (`/maxtl`)
// or the block size passes one of them, one WARNING line names the limit and
// the largest `/maxtl` that fits, so the operator learns it before the first
// Write fails on it. Nothing here ends the test.
#pragma once

#include <cstdint>

#include "transport/platform/platform.h"

struct PreflightResult {
  bool block_limits_read;
  uint32_t max_block;     // Read Block Limits bytes 1-3
  uint32_t min_block;     // bytes 4-5
  bool adapter_known;
  TransferLimits adapter;
  uint32_t largest_fitting_transfer;  // 0 when nothing limits it (or nothing fits)
  bool warned;
  char warning[200];  // the WARNING line's text after "WARNING: "
};

extern PreflightResult preflight_result;
void reset_preflight();

// Prints the "drive health preflight" section and at most one WARNING line.
void run_preflight();

// With `/json`, inside the first health record: the "preflight" object.
void write_preflight_object();

// The largest transfer length, a whole number of `block_size` bytes (any
// length in variable block mode, `block_size` 0), within `limit`.
uint32_t largest_transfer_within(uint32_t limit, uint32_t block_size);
