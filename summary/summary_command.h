// `/summary <file>...`: reads any number of results files (`/json`) one
// after the other, a piece at a time, and prints one table of every run and
// library cartridge in them; with `/plot <file>` also a bar chart of the
// rates. A file that cannot be opened or read whole is reported and the
// summary goes on. Main thread only.
#pragma once

#include <string>
#include <vector>

#include "summary/summary_rows.h"

// Reads `file` into `data` (its lines streamed in pieces of 64 KiB; a line
// of more than 16 MiB is not a results record).
void read_results_file(const std::string& file, SummaryData* data);

// Reads every file, prints the summary to the screen and writes the chart
// when `chart_file` is not null. Returns the exit code: 0; 1 when no file
// held a run or the chart could not be written; with `strict`, 2 when
// otherwise a run failed or was interrupted or a file could not be read.
int run_summary(const std::vector<std::string>& files, bool strict, const char* chart_file);
