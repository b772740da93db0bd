#include "settings/slot_list.h"

namespace {

// A decimal slot number at *text; moves *text past it. False when there is
// none or it is out of range.
bool read_slot_number(const char** text, uint16_t* number) {
  const char* at = *text;
  if (*at < '0' || *at > '9') return false;
  uint32_t value = 0;
  for (; *at >= '0' && *at <= '9'; ++at) {
    value = value * 10 + static_cast<uint32_t>(*at - '0');
    if (value > kMaxSlotNumber) return false;
  }
  if (value == 0) return false;
  *number = static_cast<uint16_t>(value);
  *text = at;
  return true;
}

}  // namespace

int parse_slot_list(const char* text, SlotRange* ranges, unsigned capacity, unsigned* count,
                    const char** why) {
  *count = 0;
  const char* at = text;
  if (at == nullptr || *at == '\0') {
    *why = "the list is empty";
    return -1;
  }
  for (;;) {
    SlotRange range{};
    if (!read_slot_number(&at, &range.first)) {
      *why = "a slot number must be a decimal number from 1 to 65535";
      *count = 0;
      return -1;
    }
    range.last = range.first;
    if (*at == '-') {
      ++at;
      if (!read_slot_number(&at, &range.last)) {
        *why = "a slot number must be a decimal number from 1 to 65535";
        *count = 0;
        return -1;
      }
      if (range.last < range.first) {
        *why = "a range must not run backwards";
        *count = 0;
        return -1;
      }
    }
    if (*count == capacity) {
      *why = "too many ranges (at most 32)";
      *count = 0;
      return -1;
    }
    ranges[(*count)++] = range;
    if (*at == '\0') return 0;
    if (*at != ',') {
      *why = "numbers and ranges are separated by commas, without blanks";
      *count = 0;
      return -1;
    }
    ++at;
  }
}

bool slot_listed(const SlotRange* ranges, unsigned count, uint32_t number) {
  for (unsigned i = 0; i < count; ++i) {
    if (number >= ranges[i].first && number <= ranges[i].last) return true;
  }
  return false;
}
