#include "settings/number_syntax.h"

#include <gtest/gtest.h>

#include <string>

#include "testing/screen_capture.h"

namespace {

// `found`: what the reading reports besides the value, 'i' illegal
// characters, 'n' no digit read, 's' above 0xFFFFFFFF.
TEST(NumberSyntax, EveryBaseByPrefixOrSuffixAndTheIllegalOnes) {
  const struct {
    const char* text;
    uint32_t value;
    const char* found;
  } cases[] = {
      {"100", 100, ""},        {"100h", 256, ""},      {"100H", 256, ""},
      {"0x100", 256, ""},      {"17o", 15, ""},        {"0o17", 15, ""},
      {"101b", 5, ""},         {"0b101", 5, ""},       {"1B", 1, ""},
      {"1Bh", 27, ""},         {"0x1B", 27, ""},       {"0x1b", 27, ""},
      {"FF", 0, "in"},         {"0x", 0, "n"},         {"h", 0, "n"},
      {"0b", 11, ""},          {"0d", 13, ""},         {"0d19", 19, ""},
      {"19d", 19, ""},         {"0X1F", 0, "i"},       {"4294967295", 0xFFFFFFFF, ""},
      {"4294967296", 0xFFFFFFFF, "s"}, {"123456789012345", 0xFFFFFFFF, "s"},
      {"1FFFFFFFFh", 0xFFFFFFFF, "s"}, {"12x4", 12, "i"}, {"0b102", 2, "i"},
      {"18o", 1, "i"},         {"", 0, "n"},           {"-1", 0, "in"},
      {" 7", 0, "in"},         {"0x0x5", 0, "i"},      {"0o", 0, "n"},
  };
  for (const auto& c : cases) {
    const std::string found = c.found;
    std::string text = c.text;
    NumberReading reading{};
    EXPECT_EQ(found.find('i') != std::string::npos ? "ERROR: illegal character(s) in number string\r\n" : "",
              screen_of([&] { reading = read_number(text.data()); }))
        << c.text;
    EXPECT_EQ(c.value, reading.value) << c.text;
    EXPECT_EQ(found.find('i') != std::string::npos, reading.illegal) << c.text;
    EXPECT_EQ(found.find('n') != std::string::npos, reading.no_digits) << c.text;
    EXPECT_EQ(found.find('s') != std::string::npos, reading.saturated) << c.text;
  }
  EXPECT_EQ(0u, parse_number(nullptr));
  char suffixed[] = "20h";  // the suffix is cut off in place
  EXPECT_EQ(32u, parse_number(suffixed));
  EXPECT_STREQ("20", suffixed);
}

}  // namespace
