// The streaming chart of `/plot`: one self-contained SVG of what the command
// timing measured. Above, the throughput of every second of the test, write
// and read in two colours, with the interval boundaries and the stalls
// marked; below, the command time percentiles of every interval on a
// logarithmic scale.
#pragma once

#include <cstdio>

#include "engine/command_timing.h"

constexpr int kChartWidth = 1000;
constexpr int kChartHeight = 700;

// Writes the chart of `measured` to `file`; `interrupted` notes a run ended by
// CTRL-C. Formats into the stream's own buffer only. 0, or -1 when a write
// failed.
int write_streaming_chart(FILE* file, const TimingSnapshot& measured, bool interrupted);
