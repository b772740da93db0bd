// Test sizing: the amounts asked for become whole numbers of Write/Read
// commands and status intervals, and the two data buffers are allocated.
// The plan (settings/test_plan.h) is written once by `size_test` before the
// first iteration and only read afterwards.
#pragma once

#include <cstdint>

#include "settings/test_plan.h"

// Buffer 1 holds the test pattern (source of every Write, reference of every
// compare); buffer 2 receives every Read. Both `max_transfer_length` bytes,
// page-aligned and zero-filled; null until allocated and after release.
extern uint8_t* data_buffer_1;
extern uint8_t* data_buffer_2;

// The largest transfer length the 24-bit field of Write(6)/Read(6) holds.
constexpr uint32_t kMaxBlocksPerCommand = 0xFFFFFF;

// Cuts the transfer length and the amounts to whole blocks, commands and
// intervals (with their WARNINGs), allocates both buffers and fills buffer 1
// with the data pattern. 0, or -1 after its message (a plan that does not
// fit the Write/Read command, no memory, no pattern).
int size_test();
// Splits the test into `/sdint` intervals; called by `size_test` only.
void plan_status_intervals();
// Both data buffers; 0, or -1 with its message and no buffer left allocated.
int allocate_data_buffers();
// Stores in *buffer page-aligned zero-filled memory of at least `size` bytes;
// 0, or -1 (the pointer null) when there is no memory. Prints nothing.
int allocate_buffer(uint8_t** buffer, uint32_t size);
// Frees memory from `allocate_buffer` (none is skipped) and sets the pointer
// to null, so a second release does nothing.
void release_buffer(uint8_t** buffer);
// Releases both buffers and clears the plan (tests).
void reset_test_plan();
