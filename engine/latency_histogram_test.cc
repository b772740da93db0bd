#include "engine/latency_histogram.h"

#include <gtest/gtest.h>

#include <vector>

namespace {

constexpr uint64_t kUs = 1000, kMs = 1000000;

struct Group {
  uint32_t count;
  uint64_t ns;  // 0: the count spread evenly over 1..count microseconds
};

struct HistogramCase {
  const char* name;
  std::vector<Group> commands;
  uint64_t median, p90, p99, max;  // expected; buckets are 1/16 wide
  uint32_t stalls;
  bool exact;
};

// Known mixes of command times, the long ones injected like the virtual
// drive's backhitches.
const HistogramCase kCases[] = {
    {"uniform_1us_to_1ms", {{1000, 0}}, 500 * kUs, 900 * kUs, 990 * kUs, 1000 * kUs, 0, true},
    {"backhitch_300ms_1_in_100", {{990, 2 * kMs}, {10, 300 * kMs}}, 2 * kMs, 2 * kMs, 2 * kMs, 300 * kMs, 10, true},
    {"under_4x_median", {{100, 10 * kMs}, {3, 30 * kMs}}, 10 * kMs, 10 * kMs, 30 * kMs, 30 * kMs, 0, true},
    {"under_20ms_floor", {{100, 1 * kUs}, {5, 15 * kMs}}, 1 * kUs, 1 * kUs, 15 * kMs, 15 * kMs, 0, true},
    {"more_than_the_table", {{1000, 1 * kMs}, {40, 100 * kMs}}, 1 * kMs, 1 * kMs, 100 * kMs, 100 * kMs, 40, false},
};

void expect_within_a_bucket(uint64_t want, uint64_t got) {
  EXPECT_NEAR(static_cast<double>(want), static_cast<double>(got), static_cast<double>(want) / 16.0);
}

TEST(LatencyHistogram, PercentilesAndStallsOfKnownDistributions) {
  for (const HistogramCase& c : kCases) {
    SCOPED_TRACE(c.name);
    LatencyHistogram h;
    clear_histogram(&h);
    StallRecord table[kStallsKept];
    uint32_t kept = 0, long_commands = 0, number = 0;
    for (const Group& g : c.commands) {
      for (uint32_t i = 1; i <= g.count; ++i) {
        const uint64_t ns = g.ns != 0 ? g.ns : i * kUs;
        add_latency(&h, ns);
        if (ns >= kStallFloorNs) ++long_commands, keep_long_command(table, &kept, {++number, 0, ns});
      }
    }
    const LatencySummary s = summarize_latency(h);
    expect_within_a_bucket(c.median, s.median_ns);
    expect_within_a_bucket(c.p90, s.p90_ns);
    expect_within_a_bucket(c.p99, s.p99_ns);
    EXPECT_EQ(c.max, s.max_ns);
    const StallSummary stalls = find_stalls(h, table, kept, long_commands);
    EXPECT_EQ(c.stalls, stalls.count);
    EXPECT_EQ(c.exact, stalls.exact);
    EXPECT_EQ(std::min(c.stalls, kStallsKept), stalls.listed);
  }
}

TEST(LatencyHistogram, BucketsCoverEveryValueOnce) {
  for (uint64_t ns : {0ull, 15ull, 16ull, 17ull, 1000ull, 20000000ull, 1ull << 40, ~0ull}) {
    const uint32_t b = latency_bucket(ns);
    ASSERT_LT(b, kLatencyBuckets);
    EXPECT_LE(latency_bucket_low(b), ns);
    if (b + 1 < kLatencyBuckets) {
      EXPECT_LT(ns, latency_bucket_end(b));
    }
  }
}

}  // namespace
