// The test data pattern in data buffer 1: null, pseudo-random (optionally
// repeating every logical block) or the bytes of a user file. Filled once by
// the sizing step; read-only afterwards.
#pragma once

#include <cstdint>

// Fills `data_buffer_1` as `data_pattern_type` asks and prints which pattern
// it set. 0, or -1 after its message.
int set_data_pattern();

// Reseeds the pattern generator with `seed` (widened with its sign) and
// writes one generator byte to each position from `offset` (0 when beyond
// `length`) up to offset + count, or up to `length` when count is 0 or
// reaches past it. 0, or -1 with its message for a null or empty buffer.
int randomize_buffer(int16_t seed, uint8_t* buffer, uint32_t length, uint32_t offset,
                     uint32_t count);

// Fills `buffer` with the bytes of the file, repeated from its start as often
// as needed (an empty file gives 0xFF bytes). 0, or -1 with its message on
// the screen.
int load_buffer_from_file(const char* file_name, uint8_t* buffer, uint32_t length);

// The pattern generator: a linear congruential generator with 32-bit state,
// state = state * 214013 + 2531011, result (state >> 16) & 0x7FFF.
void seed_pattern_generator(uint32_t seed);
uint32_t next_pattern_value();
