#include "testing/report_masking.h"

#include <regex>

std::string mask_report(const std::string& report) {
  static const std::regex date(R"(\b\d\d/\d\d/\d\d\b)");
  static const std::regex time(R"(\b\d\d:\d\d:\d\d [ap]m\b)");
  static const std::regex seconds(R"(\b\d+\.\d\d SEC\b)");
  static const std::regex rate(R"(\b\d+ KB/SEC\b)");
  std::string text = std::regex_replace(report, date, "MM/DD/YY");
  text = std::regex_replace(text, time, "hh:mm:ss am");
  text = std::regex_replace(text, seconds, "#.## SEC");
  return std::regex_replace(text, rate, "# KB/SEC");
}
