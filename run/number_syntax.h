// The number syntax of every value a user writes: decimal, or octal,
// hexadecimal and binary chosen by a "0o"/"0x"/"0b"/"0d" prefix or an
// o/h/b/d suffix. Never refuses: illegal characters are reported and the
// value read so far is used.
#pragma once

#include <cstdint>

// May remove a suffix letter from `text` in place. `text` may be null.
uint32_t parse_number(char* text);
