// Test sizing: the amounts asked for become whole numbers of Write/Read
// commands and status intervals, and the two data buffers are allocated.
#pragma once

#include <cstdint>

struct TestPlan {
  uint32_t block_unit;
  uint32_t blocks_per_command;
  uint32_t total_commands;
  uint32_t commands_per_interval;
  uint32_t interval_count;
  double megabytes_per_interval;
};

extern TestPlan test_plan;
extern uint8_t* data_buffer_1;
extern uint8_t* data_buffer_2;

int size_test();
void plan_status_intervals();
int allocate_data_buffers();
int allocate_buffer(uint8_t** buffer, uint32_t size);
void release_buffer(uint8_t** buffer);  // frees and sets the pointer to null
void reset_test_plan();
