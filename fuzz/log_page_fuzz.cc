// Fuzzes the log page walker of `/health` with any bytes a drive could
// return: page lengths past the data, parameters cut short, zero-length and
// oversized values, repeated codes. The page lies in a buffer of exactly its
// size, so any read past it is caught.
#include <vector>

#include "drive_status/log_parameters.h"
#include "fuzz/fuzz_support.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  fuzz_prepare();
  if (size > 0x10004) return 0;  // no answer is longer than a 16-bit page length allows
  std::vector<uint8_t> buffer(data, data + size);
  static LogPage page;
  const uint8_t* bytes = buffer.empty() ? nullptr : buffer.data();
  const uint32_t length = static_cast<uint32_t>(size);
  if (walk_log_page(bytes, length, &page) != 0) {
    fuzz_check(size < 4 && page.count == 0, "only an answer without a whole header is refused");
    return 0;
  }
  fuzz_check(page.end <= size && page.end <= page.page_length + 4, "the walk stays within page and data");
  fuzz_check(page.count <= kMaxLogParameters, "at most kMaxLogParameters parameters");
  for (unsigned i = 0; i < page.count; ++i) {
    const LogParameter& p = page.parameters[i];
    fuzz_check(p.offset >= 8 && p.offset + p.length <= page.end, "a value lies within the page");
    fuzz_check(find_log_parameter(page, p.code) == &p, "each code is kept once, first come");
    uint64_t value = 0;
    const bool counter = p.length >= 1 && p.length <= 8;
    fuzz_check((log_counter(page, bytes, p.code, &value) == 0) == counter, "counters are 1 to 8 bytes");
  }
  bool listed[64];
  supported_log_pages(page, bytes, listed);
  return 0;
}
