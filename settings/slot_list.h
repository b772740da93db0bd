// The slot list of `/slots`: slot numbers as a library's panel counts them
// (from 1, in element address order), single numbers and ranges separated by
// commas, e.g. "1-10,15,20-24". Pure functions; no state.
#pragma once

#include <cstdint>

struct SlotRange {
  uint16_t first;  // from 1
  uint16_t last;   // >= first
};

constexpr unsigned kMaxSlotRanges = 32;
constexpr unsigned kMaxSlotNumber = 65535;

// Reads `text` into at most `capacity` ranges, in the order written. Numbers
// are decimal, 1 to kMaxSlotNumber; blanks are not allowed. 0 with *count
// set, or -1 with a short reason in `why` (a static text) and *count 0.
int parse_slot_list(const char* text, SlotRange* ranges, unsigned capacity, unsigned* count,
                    const char** why);

// True when slot `number` lies in one of the ranges.
bool slot_listed(const SlotRange* ranges, unsigned count, uint32_t number);
