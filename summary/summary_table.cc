#include "summary/summary_table.h"

#include <algorithm>
#include <numeric>

#include "console/text_layout.h"

namespace {

constexpr double kBytesPerMegabyte = 1048576.0;

const char* const kHeadings[kSummaryColumns] = {"host",       "drive",     "cartridge", "start",  "written",
                                                "verified",   "write MB/s", "read MB/s", "stalls", "worst ms",
                                                "RWR %",      "ECC %",     "TapeAlert", "result"};
// Numbers are aligned to the right.
const bool kRightAligned[kSummaryColumns] = {false, false, false, false, true, true, true,
                                             true,  true,  true,  true,  true, false, false};

// `value` with `decimals` digits after the point.
std::string fixed(double value, int decimals) {
  char text[48];
  std::snprintf(text, sizeof text, "%.*f", decimals, value);
  return text;
}

std::string rate_text(double rate) { return rate < 0 ? "-" : fixed(rate, 1); }

// "2026-11-23 14:05:09" of "2026-11-23T14:05:09+01:00": the host's local time.
std::string start_cell(const SummaryRun& run) {
  if (!run.start_known) return run.start_text.empty() ? "-" : run.start_text;
  std::string text = run.start_text.substr(0, 19);
  text[10] = ' ';
  return text;
}

// "42 s", "5 min 3 s", "2 h 5 min".
std::string duration_text(int64_t seconds) {
  char text[48];
  if (seconds < 60) {
    std::snprintf(text, sizeof text, "%lld s", static_cast<long long>(seconds));
  } else if (seconds < 3600) {
    std::snprintf(text, sizeof text, "%lld min %lld s", static_cast<long long>(seconds / 60),
                  static_cast<long long>(seconds % 60));
  } else {
    std::snprintf(text, sizeof text, "%lld h %lld min", static_cast<long long>(seconds / 3600),
                  static_cast<long long>(seconds / 60 % 60));
  }
  return text;
}

void print_row(FILE* out, const SummaryCells& cells, const size_t (&widths)[kSummaryColumns]) {
  std::fprintf(out, "%s\n", table_line(cells.text, widths, kRightAligned, kSummaryColumns).c_str());
}

void print_group_heading(FILE* out, const SummaryData& data, const SummaryGroup& group) {
  const SummaryRun& first = data.runs[group.runs.front()];
  std::fprintf(out, "== %zu runs at the same time (from %s, %s): together %s MB/s writing, %s MB/s reading\n",
               group.runs.size(), start_cell(first).c_str(), duration_text(group.end - group.start).c_str(),
               rate_text(group.write_rate).c_str(), rate_text(group.read_rate).c_str());
}

}  // namespace

void run_rates(const SummaryData& data, uint32_t run, double* write_rate, double* read_rate) {
  const SummaryRun& r = data.runs[run];
  uint64_t written = 0, read = 0;
  double write_seconds = 0, read_seconds = 0;
  for (uint32_t i = r.first_row; i < r.first_row + r.row_count; ++i) {
    written += data.rows[i].write_bytes;
    read += data.rows[i].read_bytes;
    write_seconds += data.rows[i].write_seconds;
    read_seconds += data.rows[i].read_seconds;
  }
  *write_rate = summary_rate(written, write_seconds);
  *read_rate = summary_rate(read, read_seconds);
}

std::vector<SummaryGroup> group_overlapping_runs(const SummaryData& data) {
  // By host, then by start: a group is a host's runs that overlapped.
  std::vector<uint32_t> order(data.runs.size());
  std::iota(order.begin(), order.end(), 0u);
  std::stable_sort(order.begin(), order.end(), [&](uint32_t a, uint32_t b) {
    const SummaryRun& x = data.runs[a];
    const SummaryRun& y = data.runs[b];
    if (x.host != y.host) return x.host < y.host;
    if (x.start_known != y.start_known) return x.start_known;
    return x.start_known && x.start < y.start;
  });
  std::vector<SummaryGroup> groups;
  for (uint32_t run : order) {
    const SummaryRun& r = data.runs[run];
    const int64_t end = std::max(r.start, r.end);
    if (!groups.empty() && r.start_known) {
      SummaryGroup& last = groups.back();
      const SummaryRun& first = data.runs[last.runs.front()];
      if (first.start_known && first.host == r.host && r.start < last.end) {
        last.runs.push_back(run);
        last.end = std::max(last.end, end);
        continue;
      }
    }
    groups.push_back(SummaryGroup{{run}, r.start, end, -1, -1});
  }
  // The groups of all hosts in the order they started, by host within a second.
  std::stable_sort(groups.begin(), groups.end(), [&](const SummaryGroup& a, const SummaryGroup& b) {
    const SummaryRun& x = data.runs[a.runs.front()];
    const SummaryRun& y = data.runs[b.runs.front()];
    if (x.start_known != y.start_known) return x.start_known;
    if (x.start_known && x.start != y.start) return x.start < y.start;
    return x.host < y.host;
  });
  for (SummaryGroup& group : groups) {
    for (uint32_t run : group.runs) {
      double write_rate = 0, read_rate = 0;
      run_rates(data, run, &write_rate, &read_rate);
      if (write_rate >= 0) group.write_rate = std::max(group.write_rate, 0.0) + write_rate;
      if (read_rate >= 0) group.read_rate = std::max(group.read_rate, 0.0) + read_rate;
    }
  }
  return groups;
}

std::string tapealert_text(bool read, uint64_t flags) {
  if (!read) return "-";
  if (flags == 0) return "none";
  std::string text;
  for (unsigned flag = 1; flag <= 64; ++flag) {
    if ((flags >> (flag - 1) & 1) == 0) continue;
    char number[8];
    std::snprintf(number, sizeof number, "%s%02Xh", text.empty() ? "" : ",", flag);
    text += number;
  }
  return text;
}

SummaryCells summary_cells(const SummaryData& data, const SummaryRow& row) {
  const SummaryRun& run = data.runs[row.run];
  SummaryCells c;
  c.text[0] = run.host;
  c.text[1] = run.drive;
  c.text[2] = row.cartridge.empty() ? "-" : row.cartridge;
  c.text[3] = start_cell(run);
  // The totals the run counted, as its report does: a run's own row takes
  // them from the result record, a cartridge's row from its cartridge
  // record; without those (a run cut short) the intervals are added up.
  uint64_t written = row.write_bytes, verified = row.read_bytes;
  if (row.cartridge.empty() && run.result_seen) {
    written = run.bytes_written;
    verified = run.bytes_verified;
  } else if (!row.cartridge.empty() && row.totals_known) {
    written = row.bytes_written;
    verified = row.bytes_verified;
  }
  c.text[4] = fixed(static_cast<double>(written) / kBytesPerMegabyte, 3);
  c.text[5] = fixed(static_cast<double>(verified) / kBytesPerMegabyte, 3);
  c.text[6] = rate_text(summary_rate(row.write_bytes, row.write_seconds));
  c.text[7] = rate_text(summary_rate(row.read_bytes, row.read_seconds));
  c.text[8] = row.timed ? std::to_string(row.stalls) : "-";
  c.text[9] = row.timed ? fixed(row.worst_ms, 1) : "-";
  c.text[10] = row.rwr_known ? fixed(row.rwr_max, 1) : "-";
  c.text[11] = row.ecc_known ? fixed(row.ecc_max, 1) : "-";
  c.text[12] = tapealert_text(row.tapealert_read, row.tapealert_raised);
  c.text[13] = row.result;
  return c;
}

void print_summary(FILE* out, const SummaryData& data, const std::vector<SummaryGroup>& groups) {
  unsigned passed = 0, failed = 0, interrupted = 0, unreadable = 0;
  for (const SummaryRun& run : data.runs) {
    if (run.interrupted) ++interrupted;
    else if (run.failed) ++failed;
    else ++passed;
  }
  std::vector<std::string> unreadable_files;
  for (const SummaryProblem& problem : data.problems) {
    if (problem.unreadable && (unreadable_files.empty() || unreadable_files.back() != problem.file)) {
      unreadable_files.push_back(problem.file);
      ++unreadable;
    }
  }
  std::fprintf(out, "SUMMARY OF %u RESULTS FILE%s: %zu run%s, %u passed, %u failed, %u interrupted",
               data.files, data.files == 1 ? "" : "S", data.runs.size(), data.runs.size() == 1 ? "" : "s", passed,
               failed, interrupted);
  if (unreadable > 0) std::fprintf(out, "; %u file%s not read whole", unreadable, unreadable == 1 ? "" : "s");
  std::fprintf(out, "\n");
  if (!data.runs.empty()) {
    std::fprintf(out, "(start in the host's local time; written and verified in MB of 1,048,576 bytes;\n"
                      "MB/s while writing and while reading; stalls and the worst command time in ms;\n"
                      "the largest RWR and ECC percentages; TapeAlert flags raised during the test)\n\n");
    size_t widths[kSummaryColumns];
    for (unsigned c = 0; c < kSummaryColumns; ++c) widths[c] = std::string(kHeadings[c]).size();
    for (const SummaryRow& row : data.rows) {
      const SummaryCells cells = summary_cells(data, row);
      widen_columns(cells.text, widths, kSummaryColumns);
    }
    SummaryCells headings;
    for (unsigned c = 0; c < kSummaryColumns; ++c) headings.text[c] = kHeadings[c];
    print_row(out, headings, widths);
    bool after_group = false;
    for (const SummaryGroup& group : groups) {
      const bool together = group.runs.size() > 1;
      if ((together && &group != &groups.front()) || after_group) std::fprintf(out, "\n");
      if (together) print_group_heading(out, data, group);
      for (uint32_t run : group.runs) {
        const SummaryRun& r = data.runs[run];
        for (uint32_t i = r.first_row; i < r.first_row + r.row_count; ++i) {
          print_row(out, summary_cells(data, data.rows[i]), widths);
        }
      }
      after_group = together;
    }
  }
  if (!data.problems.empty()) {
    std::fprintf(out, "\nFILES NOT READ WHOLE:\n");
    for (const SummaryProblem& problem : data.problems) {
      std::fprintf(out, "  %s: %s\n", problem.file.c_str(), problem.text.c_str());
    }
  }
}
