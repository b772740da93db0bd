// The test data pattern in data buffer 1: null, pseudo-random (optionally
// repeating every logical block) or the bytes of a user file.
#pragma once

#include <cstdint>

int set_data_pattern();
int randomize_buffer(int16_t seed, uint8_t* buffer, uint32_t length, uint32_t offset,
                     uint32_t count);
int load_buffer_from_file(const char* file_name, uint8_t* buffer, uint32_t length);
