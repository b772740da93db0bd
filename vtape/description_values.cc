#include "vtape/description_values.h"

#include <cstdio>
#include <cstring>

#include "console/log_output.h"
#include "vtape/description.h"

int bad_value(const LineContext& at, const char* value, const char* expected) {
  error_printf(
      "ERROR: virtual tape description \"%s\" line %u: bad value \"%s\" for key \"%s\" "
      "(expected %s)\n",
      at.path, at.line, value, at.key, expected);
  return -1;
}

int number_in(const LineContext& at, const char* value, uint64_t low, uint64_t high,
              uint64_t* out) {
  uint64_t number = 0;
  if (read_description_number(value, &number) != 0 || number < low || number > high) {
    char expected[80];
    std::snprintf(expected, sizeof expected, "a number from %llu to %llu",
                  static_cast<unsigned long long>(low), static_cast<unsigned long long>(high));
    return bad_value(at, value, expected);
  }
  *out = number;
  return 0;
}

int number32(const LineContext& at, const char* value, uint64_t low, uint64_t high, uint32_t* out) {
  uint64_t number = 0;
  if (number_in(at, value, low, high, &number) != 0) return -1;
  *out = static_cast<uint32_t>(number);
  return 0;
}

int choice(const LineContext& at, const char* value, const char* yes, const char* no, bool* out) {
  if (std::strcmp(value, yes) == 0) {
    *out = true;
  } else if (std::strcmp(value, no) == 0) {
    *out = false;
  } else {
    char expected[64];
    std::snprintf(expected, sizeof expected, "%s or %s", yes, no);
    return bad_value(at, value, expected);
  }
  return 0;
}

int text_field(const LineContext& at, const char* value, char* out, size_t capacity) {
  if (std::strlen(value) >= capacity) {
    char expected[48];
    std::snprintf(expected, sizeof expected, "at most %u characters",
                  static_cast<unsigned>(capacity - 1));
    return bad_value(at, value, expected);
  }
  std::snprintf(out, capacity, "%s", value);
  return 0;
}

// A list of TapeAlert flags (1 to 64) or of log page codes (0 to 63),
// separated by blanks or commas, into a set.
int number_set(const LineContext& at, const char* value, uint64_t low, uint64_t high, bool* set) {
  char copy[512];  // a whole line
  std::snprintf(copy, sizeof copy, "%s", value);
  char expected[64];
  std::snprintf(expected, sizeof expected, "a list of numbers from %llu to %llu",
                static_cast<unsigned long long>(low), static_cast<unsigned long long>(high));
  unsigned count = 0;
  for (char* token = std::strtok(copy, " ,\t"); token != nullptr; token = std::strtok(nullptr, " ,\t")) {
    uint64_t n = 0;
    if (read_description_number(token, &n) != 0 || n < low || n > high) return bad_value(at, value, expected);
    set[n - low] = true;
    ++count;
  }
  if (count == 0) return bad_value(at, value, expected);
  return 0;
}

