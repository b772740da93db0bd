// The value readers that the description's keys share: each reads one
// value of a `key = value` line into its field, or prints the "bad value"
// line naming the file, the line and the key and returns -1. Used by the
// drive's keys (description.cc) and the library's (library_description.cc).
#pragma once

#include <cstddef>
#include <cstdint>

// Where the reader is: for the error lines.
struct LineContext {
  const char* path;
  unsigned line;
  const char* key;
};

// Prints "ERROR: virtual tape description ... bad value ... (expected ...)"; -1.
int bad_value(const LineContext& at, const char* value, const char* expected);

// A number from `low` to `high` in the description's number syntax.
int number_in(const LineContext& at, const char* value, uint64_t low, uint64_t high, uint64_t* out);
int number32(const LineContext& at, const char* value, uint64_t low, uint64_t high, uint32_t* out);
// One of two words.
int choice(const LineContext& at, const char* value, const char* yes, const char* no, bool* out);
// A text of fewer than `capacity` characters.
int text_field(const LineContext& at, const char* value, char* out, size_t capacity);
// A list of numbers from `low` to `high`, separated by blanks or commas,
// into a set: set[n - low] becomes true for each.
int number_set(const LineContext& at, const char* value, uint64_t low, uint64_t high, bool* set);
