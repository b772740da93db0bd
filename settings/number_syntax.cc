#include "settings/number_syntax.h"

#include <cstring>

#include "console/log_output.h"

namespace {

// The value of one digit character in any base up to 16, or 16 for a
// character that is no digit at all.
unsigned digit_value(char c) {
  if (c >= '0' && c <= '9') return static_cast<unsigned>(c - '0');
  if (c >= 'a' && c <= 'f') return static_cast<unsigned>(c - 'a' + 10);
  if (c >= 'A' && c <= 'F') return static_cast<unsigned>(c - 'A' + 10);
  return 16;
}

unsigned suffix_base(char c) {
  switch (c) {
    case 'o': case 'O': return 8;
    case 'h': case 'H': return 16;
    case 'b': case 'B': return 2;
    case 'd': case 'D': return 10;
    default: return 0;
  }
}

unsigned prefix_base(const char* text) {
  if (text[0] != '0') return 0;
  switch (text[1]) {
    case 'o': return 8;
    case 'x': return 16;
    case 'b': return 2;
    case 'd': return 10;
    default: return 0;
  }
}

}  // namespace

uint32_t parse_number(char* text) { return read_number(text).value; }

NumberReading read_number(char* text) {
  NumberReading reading{0, false, true, false};
  if (text == nullptr || text[0] == '\0') return reading;

  unsigned base = 10;
  char* digits = text;
  if (std::strcmp(text, "0b") == 0 || std::strcmp(text, "0d") == 0) {
    // A lone "0b" or "0d" is a hexadecimal digit behind a zero, not a prefix.
    base = 16;
  } else if (unsigned prefixed = prefix_base(text); prefixed != 0) {
    base = prefixed;
    digits = text + 2;
  } else {
    size_t last = std::strlen(text) - 1;
    if (unsigned suffixed = suffix_base(text[last]); suffixed != 0) {
      base = suffixed;
      text[last] = '\0';
    }
  }

  // Digits only: no blanks, signs or "0x" that a library conversion would take.
  uint64_t value = 0;
  const char* c = digits;
  for (; *c != '\0'; ++c) {
    unsigned digit = digit_value(*c);
    if (digit >= base) break;
    value = value * base + digit;
    if (value > 0xFFFFFFFFu) value = 0x100000000u;  // saturates; read on to the end of the digits
  }
  reading.no_digits = c == digits;
  if (*c != '\0') {
    reading.illegal = true;
    report_printf("ERROR: illegal character(s) in number string\r\n");
  }
  reading.saturated = value > 0xFFFFFFFFu;
  reading.value = reading.saturated ? 0xFFFFFFFFu : static_cast<uint32_t>(value);
  return reading;
}
