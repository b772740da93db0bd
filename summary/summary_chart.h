// The chart of `/summary ... /plot <file>`: one self-contained SVG with a
// pair of horizontal bars per row of the table (MB/s writing and reading),
// in the table's order, each group of runs that overlapped in time on a band
// of its own with its aggregate rates. Main thread only.
#pragma once

#include <cstdio>
#include <vector>

#include "summary/summary_rows.h"
#include "summary/summary_table.h"

constexpr int kSummaryChartWidth = 1000;

// The chart's height for `data` laid out in `groups`.
int summary_chart_height(const SummaryData& data, const std::vector<SummaryGroup>& groups);

// Writes the chart to `file`. 0, or -1 when a write failed.
int write_summary_chart(FILE* file, const SummaryData& data, const std::vector<SummaryGroup>& groups);
