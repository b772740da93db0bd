#include "console/clock.h"

#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "console/log_output.h"
#include "os/os.h"

namespace {

void (*time_source)(std::tm*) = nullptr;

std::tm local_now() {
  std::tm now{};
  if (time_source != nullptr) {
    time_source(&now);
    return now;
  }
  std::time_t seconds = std::time(nullptr);
  std::tm* local = std::localtime(&seconds);
  if (local != nullptr) now = *local;
  return now;
}

}  // namespace

void set_local_time_source(void (*source)(std::tm*)) { time_source = source; }

const char* date_string() {
  static char text[16];
  std::tm now = local_now();
  std::snprintf(text, sizeof text, "%02u/%02u/%02u", static_cast<unsigned>(now.tm_mon + 1) % 100,
                static_cast<unsigned>(now.tm_mday) % 100,
                static_cast<unsigned>(now.tm_year) % 100);
  return text;
}

const char* time_string() {
  static char text[16];
  char clock24[16];
  std::tm now = local_now();
  std::strftime(clock24, sizeof clock24, "%H:%M:%S", &now);
  char hour[3] = {clock24[0], clock24[1], '\0'};
  unsigned h = static_cast<unsigned>(std::atoi(hour));
  if (h > 12) std::snprintf(hour, sizeof hour, "%02u", (h - 12) % 100);
  std::snprintf(text, sizeof text, "%s%6.6s%s", hour, clock24 + 2, h >= 12 ? " pm" : " am");
  return text;
}

void sleep_msec(uint32_t milliseconds) { os_sleep_ms(milliseconds); }

void hide_cursor() { os_set_cursor_visible(screen_stream(), false); }
void show_cursor() { os_set_cursor_visible(screen_stream(), true); }
