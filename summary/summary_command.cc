#include "summary/summary_command.h"

#include <cerrno>
#include <cstdio>
#include <cstring>

#include "console/log_output.h"
#include "summary/summary_chart.h"
#include "summary/summary_table.h"

namespace {

constexpr size_t kPieceSize = 64 * 1024;
constexpr size_t kLongestLine = 16 * 1024 * 1024;

}  // namespace

void read_results_file(const std::string& file, SummaryData* data) {
  summary_begin_file(data, file);
  FILE* in = std::fopen(file.c_str(), "rb");
  if (in == nullptr) {
    summary_file_failed(data, std::string("cannot be opened: ") + std::strerror(errno));
    summary_end_file(data);
    return;
  }
  static char piece[kPieceSize];
  std::string pending;    // the start of a line that runs on into the next piece
  bool too_long = false;  // the line being read passed kLongestLine: skipped to its end
  for (;;) {
    const size_t got = std::fread(piece, 1, sizeof piece, in);
    if (got == 0) break;
    size_t from = 0;
    while (from < got) {
      const char* end = static_cast<const char*>(std::memchr(piece + from, '\n', got - from));
      const size_t length = (end != nullptr ? static_cast<size_t>(end - piece) : got) - from;
      if (end == nullptr) {
        if (!too_long && pending.size() + length <= kLongestLine) {
          pending.append(piece + from, length);
        } else {
          too_long = true;
          pending.clear();
        }
        break;
      }
      if (too_long) {
        static const char kNotALine[] = "-";  // counts as a line that is not a record
        summary_add_line(data, kNotALine, 1, false);
        too_long = false;
      } else if (pending.empty()) {
        summary_add_line(data, piece + from, length, false);
      } else {
        pending.append(piece + from, length);
        summary_add_line(data, pending.data(), pending.size(), false);
        pending.clear();
      }
      from += length + 1;
    }
  }
  const bool failed = std::ferror(in) != 0;
  const int error = errno;
  std::fclose(in);
  if (failed) {
    summary_file_failed(data, std::string("cannot be read: ") + std::strerror(error));
  } else if (too_long) {
    static const char kNotALine[] = "-";
    summary_add_line(data, kNotALine, 1, true);
  } else if (!pending.empty()) {
    summary_add_line(data, pending.data(), pending.size(), true);
  }
  summary_end_file(data);
}

int run_summary(const std::vector<std::string>& files, bool strict, const char* chart_file) {
  FILE* chart = nullptr;
  for (const std::string& file : files) {
    if (chart_file != nullptr && file == chart_file) {  // names compared as given, as a run compares its files
      error_printf("ERROR: \"%s\" is named both as a results file to read and as the chart\n", chart_file);
      return 1;
    }
  }
  if (chart_file != nullptr) {
    // Opened first, so that a bad name fails before the files are read.
    chart = std::fopen(chart_file, "wb");
    if (chart == nullptr) {
      error_printf("ERROR: unable to open \"%s\" for the chart\n", chart_file);
      return 1;
    }
  }
  SummaryData data;
  for (const std::string& file : files) read_results_file(file, &data);
  const std::vector<SummaryGroup> groups = group_overlapping_runs(data);
  FILE* screen = screen_stream();
  print_summary(screen, data, groups);
  std::fflush(screen);
  int code = 0;
  if (chart != nullptr) {
    const bool written = write_summary_chart(chart, data, groups) == 0;
    if (std::fclose(chart) != 0 || !written) {
      error_printf("ERROR: unable to write the chart \"%s\"\n", chart_file);
      code = 1;
    }
  }
  if (data.runs.empty()) {
    error_printf("ERROR: no run found in the %u file%s given\n", data.files, data.files == 1 ? "" : "s");
    return 1;
  }
  if (code != 0 || !strict) return code;
  bool any_problem = false;
  for (const SummaryProblem& problem : data.problems) any_problem = any_problem || problem.unreadable;
  for (const SummaryRun& run : data.runs) any_problem = any_problem || run.failed || run.interrupted;
  return any_problem ? 2 : 0;
}
