// The table of `/summary`: runs that overlapped in time grouped together
// with their aggregate rates, every row's figures in aligned columns, and
// the files that could not be read whole. Main thread only.
#pragma once

#include <cstdint>
#include <cstdio>
#include <string>
#include <vector>

#include "summary/summary_rows.h"

// Runs of one host whose times overlapped (a chain of overlaps joins them),
// in the order they started; a run that overlapped none is a group of its
// own. Runs of different hosts share no adapter and are never grouped.
struct SummaryGroup {
  std::vector<uint32_t> runs;  // indexes into SummaryData::runs, by start time
  int64_t start, end;
  double write_rate, read_rate;  // the sum of the runs' rates (MB/s); negative when none measured
};

// Sorts each host's runs by start time and joins each run whose start lies
// before the end of the group so far (a run that starts the second another
// ended did not overlap it: the times are whole seconds); then orders the
// groups by start time. Runs without a start time come last, each alone.
std::vector<SummaryGroup> group_overlapping_runs(const SummaryData& data);

// A run's write and read rates over all its rows, MB/s; negative when the
// run measured no time for it.
void run_rates(const SummaryData& data, uint32_t run, double* write_rate, double* read_rate);

// The table text of `row`'s cells, column by column.
constexpr unsigned kSummaryColumns = 14;
struct SummaryCells {
  std::string text[kSummaryColumns];
};
SummaryCells summary_cells(const SummaryData& data, const SummaryRow& row);

// "06h,14h", "none" when no flag was raised, "-" when TapeAlert was not read.
std::string tapealert_text(bool read, uint64_t flags);

// Prints the heading, the table and the problems to `out`.
void print_summary(FILE* out, const SummaryData& data, const std::vector<SummaryGroup>& groups);
