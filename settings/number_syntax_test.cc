#include "settings/number_syntax.h"

#include <gtest/gtest.h>

#include <string>

#include "testing/screen_capture.h"

namespace {

TEST(NumberSyntax, EveryBaseByPrefixOrSuffixAndTheIllegalOnes) {
  const struct {
    const char* text;
    uint32_t value;
    bool illegal;
  } cases[] = {
      {"100", 100, false},        {"100h", 256, false},      {"100H", 256, false},
      {"0x100", 256, false},      {"17o", 15, false},        {"0o17", 15, false},
      {"101b", 5, false},         {"0b101", 5, false},       {"1B", 1, false},
      {"1Bh", 27, false},         {"0x1B", 27, false},       {"0x1b", 27, false},
      {"FF", 0, true},            {"0x", 0, false},          {"h", 0, false},
      {"0b", 11, false},          {"0d", 13, false},         {"0d19", 19, false},
      {"19d", 19, false},         {"0X1F", 0, true},         {"4294967295", 0xFFFFFFFF, false},
      {"4294967296", 0xFFFFFFFF, false}, {"123456789012345", 0xFFFFFFFF, false},
      {"1FFFFFFFFh", 0xFFFFFFFF, false}, {"12x4", 12, true}, {"0b102", 2, true},
      {"18o", 1, true},           {"", 0, false},            {"-1", 0, true},
      {" 7", 0, true},            {"0x0x5", 0, true},
  };
  for (const auto& c : cases) {
    std::string text = c.text;
    uint32_t value = 1234;
    EXPECT_EQ(c.illegal ? "ERROR: illegal character(s) in number string\r\n" : "",
              screen_of([&] { value = parse_number(text.data()); }))
        << c.text;
    EXPECT_EQ(c.value, value) << c.text;
  }
  EXPECT_EQ(0u, parse_number(nullptr));
  char suffixed[] = "20h";  // the suffix is cut off in place
  EXPECT_EQ(32u, parse_number(suffixed));
  EXPECT_STREQ("20", suffixed);
}

}  // namespace
