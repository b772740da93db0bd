// A log page as Log Sense returns it (SPC): a 4-byte header (page code,
// subpage, page length) and parameters, each a 4-byte header (parameter code,
// control byte, parameter length) and its value. The walker takes any bytes
// a drive may return: a page length past the data, parameters cut short,
// zero-length values and repeated codes never make it read outside the data.
#pragma once

#include <cstdint>

constexpr unsigned kMaxLogParameters = 512;

struct LogParameter {
  uint16_t code;
  uint8_t control;
  uint8_t length;       // bytes of the value
  uint32_t offset;      // of the value, from the start of the page
};

struct LogPage {
  uint8_t page_code;     // byte 0 bits 5-0
  uint32_t page_length;  // from the header (bytes 2-3)
  uint32_t end;          // the walk's end: header length or the data, the smaller
  uint16_t count;        // parameters kept, in page order, first of each code only
  bool cut_short;        // a parameter ran past the end, or more than kMaxLogParameters
  bool repeated_codes;   // a code came more than once (the first one is kept)
  LogParameter parameters[kMaxLogParameters];
};

// Walks the `size` bytes of `data`. 0, or -1 when not even the page header fits.
int walk_log_page(const uint8_t* data, uint32_t size, LogPage* page);

// The parameter with `code`, or null.
const LogParameter* find_log_parameter(const LogPage& page, uint16_t code);

// The value of parameter `code` as an unsigned number (1 to 8 bytes,
// big-endian). 0 with *value, or -1 when the page has no such parameter or
// its length is 0 or above 8.
int log_counter(const LogPage& page, const uint8_t* data, uint16_t code, uint64_t* value);

// The page codes that page 00h lists (its bytes after the header, within
// `end`), as a set: listed[code] is true for each.
void supported_log_pages(const LogPage& page, const uint8_t* data, bool listed[64]);
