#include "console/text_layout.h"

#include <gtest/gtest.h>

#include <cstring>
#include <ctime>
#include <string>

#include "console/clock.h"
#include "console/log_output.h"
#include "testing/output_capture.h"

namespace {

std::string centred(const char* text) {
  OutputCapture capture;
  print_centred({screen_stream()}, text);
  return capture.screen();
}

TEST(TextLayout, CentresOnVisibleCharactersInEightyColumns) {
  EXPECT_EQ(std::string(20, ' ') + kProgramTitle + "\r\n", centred(kProgramTitle));
  std::string odd(41, 'x');
  EXPECT_EQ(std::string(20, ' ') + odd + "\r\n", centred(odd.c_str()));
  std::string wide(76, 'y');
  EXPECT_EQ("  " + wide + "\r\n", centred(wide.c_str()));
  std::string too_long(90, 'z');
  EXPECT_EQ(too_long + "\r\n", centred(too_long.c_str()));
  // CR LF inside the text do not count, and the text still gets its own line end.
  EXPECT_EQ(std::string(39, ' ') + "ab\r\n\r\n", centred("ab\r\n"));
  EXPECT_EQ(std::string(40, ' ') + "\r\n", centred(""));
}

int fixed_hour;
void fixed_clock(std::tm* now) {
  std::memset(now, 0, sizeof *now);
  now->tm_year = 102;  // 2002
  now->tm_mon = 5;
  now->tm_mday = 3;
  now->tm_hour = fixed_hour;
  now->tm_min = 5;
  now->tm_sec = 9;
}

TEST(Clock, TwelveHourTimeAndShortDate) {
  set_local_time_source(fixed_clock);
  const struct {
    int hour;
    const char* text;
  } cases[] = {{0, "00:05:09 am"}, {9, "09:05:09 am"}, {12, "12:05:09 pm"},
               {13, "01:05:09 pm"}, {23, "11:05:09 pm"}};
  for (const auto& c : cases) {
    fixed_hour = c.hour;
    EXPECT_STREQ(c.text, time_string()) << c.hour;
  }
  EXPECT_STREQ("06/03/02", date_string());
  set_local_time_source(nullptr);
}

}  // namespace
