// The number syntax of every value a user writes: decimal, or octal,
// hexadecimal and binary chosen by a "0o"/"0x"/"0b"/"0d" prefix or an
// o/h/b/d suffix. Never refuses: illegal characters are reported and the
// value read so far is used.
#pragma once

#include <cstdint>

// Reads `text` as an unsigned 32-bit number (0 for null or empty text; a value
// above 0xFFFFFFFF gives 0xFFFFFFFF). May remove a suffix letter from `text`
// in place. When the digits stop before the end of the text it writes
// "ERROR: illegal character(s) in number string\r\n" to the screen and the log
// file and returns what was read up to there.
uint32_t parse_number(char* text);

// parse_number with what it found besides the value, for callers that tell
// the user when a number was not read as written.
struct NumberReading {
  uint32_t value;
  bool illegal;    // the digits stopped before the end (the message was written)
  bool no_digits;  // not one digit was read: an empty text, or a prefix or suffix alone
  bool saturated;  // the digits stood for more than 0xFFFFFFFF
};
NumberReading read_number(char* text);
