// Fuzzes parse_number; texts of plain decimal digits and "0x" hexadecimal
// texts are checked against a reference conversion that saturates at
// 0xFFFFFFFF.
#include <cstring>
#include <string>

#include "fuzz/fuzz_support.h"
#include "settings/number_syntax.h"

namespace {

// The value of `digits` in `base`, or -1 when a character is no digit of it.
int64_t reference_value(const std::string& digits, unsigned base) {
  uint64_t value = 0;
  for (char c : digits) {
    unsigned digit;
    if (c >= '0' && c <= '9') {
      digit = static_cast<unsigned>(c - '0');
    } else if (c >= 'a' && c <= 'f') {
      digit = static_cast<unsigned>(c - 'a' + 10);
    } else if (c >= 'A' && c <= 'F') {
      digit = static_cast<unsigned>(c - 'A' + 10);
    } else {
      return -1;
    }
    if (digit >= base) return -1;
    value = value * base + digit;
    if (value > 0xFFFFFFFFu) value = 0xFFFFFFFFu + uint64_t{1};  // stays saturated
  }
  return static_cast<int64_t>(value > 0xFFFFFFFFu ? 0xFFFFFFFFu : value);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  fuzz_prepare();
  std::string text(reinterpret_cast<const char*>(data), size);
  text.resize(std::strlen(text.c_str()));
  std::string original = text;

  uint32_t value = parse_number(text.data());
  fuzz_check(std::strlen(text.c_str()) + 1 >= original.size(),
             "at most the suffix letter is removed");

  if (!original.empty() && original.size() < 30) {
    int64_t expected = -1;
    bool decimal = original.find_first_not_of("0123456789") == std::string::npos;
    if (decimal) expected = reference_value(original, 10);
    if (original.size() > 2 && original.compare(0, 2, "0x") == 0) {
      expected = reference_value(original.substr(2), 16);
    }
    if (expected >= 0) fuzz_check(value == static_cast<uint32_t>(expected), "reference value");
  }
  return 0;
}
