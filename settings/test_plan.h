// The test plan: the amounts of the settings cut to whole Write/Read commands
// and status intervals. One program-wide record, written by the sizing step
// (engine/sizing.h) and read by the drive operations and the engine.
#pragma once

#include <cstdint>

struct TestPlan {
  uint32_t block_unit;             // logical block size, or 1 in variable block mode
  uint32_t blocks_per_command;     // transfer length field of every Write/Read CDB
  uint32_t total_commands;         // Write (and Read) commands of one test
  uint32_t commands_per_interval;  // commands of one status interval
  uint32_t interval_count;         // status intervals of one test
  double megabytes_per_interval;
};

extern TestPlan test_plan;
