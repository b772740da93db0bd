// Command times in logarithmic buckets, and what one status interval's
// buckets say: the percentiles and the stalls. Pure arithmetic on plain
// records; engine/command_timing.h fills them from the transfer loops.
#pragma once

#include <cstdint>

// Bucket b < 16 holds exactly b nanoseconds; above that each power of two is
// cut into 16 buckets, so a bucket is at most 1/16 (6.25 %) of its value wide.
constexpr uint32_t kLatencyBuckets = 976;
// A stall: a command longer than kStallMedianFactor times the interval's
// median and not shorter than kStallFloorNs.
constexpr uint64_t kStallFloorNs = 20000000;
constexpr uint64_t kStallMedianFactor = 4;
// The longest stalls of an interval kept with their command number.
constexpr uint32_t kStallsKept = 16;

uint32_t latency_bucket(uint64_t ns);
// Lowest value of `bucket`, and the lowest value of the next one.
uint64_t latency_bucket_low(uint32_t bucket);
uint64_t latency_bucket_end(uint32_t bucket);

struct LatencyHistogram {
  uint32_t counts[kLatencyBuckets];
  uint32_t commands;
  uint64_t min_ns;
  uint64_t max_ns;
};

void clear_histogram(LatencyHistogram* histogram);
void add_latency(LatencyHistogram* histogram, uint64_t ns);

struct LatencySummary {
  uint32_t commands;
  uint64_t min_ns;
  uint64_t median_ns;
  uint64_t p90_ns;
  uint64_t p99_ns;
  uint64_t max_ns;
};

// Nearest-rank percentile (`fraction` 0.5 is the median): the middle of the
// bucket that holds that rank, kept within the exact minimum and maximum.
// 0 for an empty histogram.
uint64_t latency_percentile(const LatencyHistogram& histogram, double fraction);
LatencySummary summarize_latency(const LatencyHistogram& histogram);

// One long command: its number within the interval (from 1), its time, and
// when it ended in milliseconds since the timing of the run began.
struct StallRecord {
  uint32_t command;
  uint32_t at_ms;
  uint64_t duration_ns;
};

// Keeps the `kStallsKept` longest of the commands offered (the table's
// shortest is replaced), in no particular order; *kept counts the entries.
void keep_long_command(StallRecord* table, uint32_t* kept, const StallRecord& command);

struct StallSummary {
  uint32_t count;   // stalls of the interval
  bool exact;       // false: more long commands than kept; counted from the buckets
  uint32_t listed;  // entries of `longest`
  StallRecord longest[kStallsKept];  // the stalls, longest first
};

// The stalls among `kept` long commands (`long_commands` of them were offered
// in all) against the histogram's median.
StallSummary find_stalls(const LatencyHistogram& histogram, const StallRecord* kept, uint32_t kept_count,
                         uint32_t long_commands);
