// The log page walker against answers a drive may give, well formed or not.
#include "drive_status/log_parameters.h"

#include <gtest/gtest.h>

#include <vector>

namespace {

struct WalkCase {
  const char* what;
  std::vector<uint8_t> page;
  uint16_t code;
  int found;         // log_counter's result for `code`
  uint64_t value;
  unsigned count;
  bool cut_short;
  bool repeated;
};

TEST(LogPageWalker, TakesParametersByCodeAndSurvivesBadAnswers) {
  const WalkCase cases[] = {
      {"8-byte counter past 4 GiB", {0x0C, 0, 0, 12, 0, 1, 0, 8, 0, 0, 0, 1, 0x38, 0, 0, 0}, 1, 0, 0x138000000ull, 1,
       false, false},
      {"page length past the data", {0x0C, 0, 0, 40, 0, 1, 0, 1, 7}, 1, 0, 7, 1, true, false},
      {"value past the page end", {0x02, 0, 0, 6, 0, 3, 0, 4, 1, 2}, 3, -1, 0, 0, true, false},
      {"zero-length value is no counter", {0x02, 0, 0, 8, 0, 3, 0, 0, 0, 4, 0, 0}, 3, -1, 0, 2, false, false},
      {"first of a repeated code", {0x2E, 0, 0, 10, 0, 20, 0, 1, 1, 0, 20, 0, 1, 0}, 20, 0, 1, 1, false, true},
      {"nine bytes is no counter", {0x17, 0, 0, 13, 0, 16, 0, 9, 1, 2, 3, 4, 5, 6, 7, 8, 9}, 16, -1, 0, 1, false, false},
  };
  for (const WalkCase& c : cases) {
    LogPage page;
    ASSERT_EQ(0, walk_log_page(c.page.data(), static_cast<uint32_t>(c.page.size()), &page)) << c.what;
    uint64_t value = 0;
    EXPECT_EQ(c.found, log_counter(page, c.page.data(), c.code, &value)) << c.what;
    EXPECT_EQ(c.value, value) << c.what;
    EXPECT_EQ(c.count, page.count) << c.what;
    EXPECT_EQ(c.cut_short, page.cut_short) << c.what;
    EXPECT_EQ(c.repeated, page.repeated_codes) << c.what;
  }
  LogPage page;
  const uint8_t header_only[3] = {0x0C, 0, 0};
  EXPECT_EQ(-1, walk_log_page(header_only, sizeof header_only, &page));
}

}  // namespace
