#include "engine/latency_histogram.h"

#include <algorithm>
#include <bit>
#include <cmath>

uint32_t latency_bucket(uint64_t ns) {
  if (ns < 16) return static_cast<uint32_t>(ns);
  const uint32_t top = 63u - static_cast<uint32_t>(std::countl_zero(ns));  // 4 or more
  const uint32_t sub = static_cast<uint32_t>(ns >> (top - 4)) & 15u;
  return (top - 3) * 16 + sub;
}

uint64_t latency_bucket_low(uint32_t bucket) {
  if (bucket < 16) return bucket;
  const uint32_t top = bucket / 16 + 3;
  return (16ull + bucket % 16) << (top - 4);
}

uint64_t latency_bucket_end(uint32_t bucket) {
  if (bucket + 1 >= kLatencyBuckets) return UINT64_MAX;
  return latency_bucket_low(bucket + 1);
}

void clear_histogram(LatencyHistogram* histogram) { *histogram = LatencyHistogram{}; }

void add_latency(LatencyHistogram* histogram, uint64_t ns) {
  ++histogram->counts[latency_bucket(ns)];
  if (histogram->commands == 0 || ns < histogram->min_ns) histogram->min_ns = ns;
  if (ns > histogram->max_ns) histogram->max_ns = ns;
  ++histogram->commands;
}

uint64_t latency_percentile(const LatencyHistogram& histogram, double fraction) {
  if (histogram.commands == 0) return 0;
  auto rank = static_cast<uint64_t>(std::ceil(fraction * histogram.commands));
  rank = std::clamp<uint64_t>(rank, 1, histogram.commands);
  uint64_t seen = 0;
  for (uint32_t b = 0; b < kLatencyBuckets; ++b) {
    seen += histogram.counts[b];
    if (seen < rank) continue;
    const uint64_t low = latency_bucket_low(b);
    const uint64_t middle = low + (latency_bucket_end(b) - low) / 2;
    return std::clamp(middle, histogram.min_ns, histogram.max_ns);
  }
  return histogram.max_ns;
}

LatencySummary summarize_latency(const LatencyHistogram& histogram) {
  LatencySummary s{};
  s.commands = histogram.commands;
  if (histogram.commands == 0) return s;
  s.min_ns = histogram.min_ns;
  s.median_ns = latency_percentile(histogram, 0.5);
  s.p90_ns = latency_percentile(histogram, 0.9);
  s.p99_ns = latency_percentile(histogram, 0.99);
  s.max_ns = histogram.max_ns;
  return s;
}

void keep_long_command(StallRecord* table, uint32_t* kept, const StallRecord& command) {
  if (*kept < kStallsKept) {
    table[(*kept)++] = command;
    return;
  }
  uint32_t shortest = 0;
  for (uint32_t i = 1; i < kStallsKept; ++i) {
    if (table[i].duration_ns < table[shortest].duration_ns) shortest = i;
  }
  if (command.duration_ns > table[shortest].duration_ns) table[shortest] = command;
}

StallSummary find_stalls(const LatencyHistogram& histogram, const StallRecord* kept, uint32_t kept_count,
                         uint32_t long_commands) {
  StallSummary s{};
  const uint64_t over = kStallMedianFactor * latency_percentile(histogram, 0.5);
  // "Longer than" the factor times the median, "at least" the floor.
  auto is_stall = [over](uint64_t ns) { return ns >= kStallFloorNs && ns > over; };
  const uint64_t threshold = std::max(kStallFloorNs, over);
  for (uint32_t i = 0; i < kept_count && i < kStallsKept; ++i) {
    if (is_stall(kept[i].duration_ns)) s.longest[s.listed++] = kept[i];
  }
  std::sort(s.longest, s.longest + s.listed,
            [](const StallRecord& a, const StallRecord& b) { return a.duration_ns > b.duration_ns; });
  s.exact = long_commands <= kept_count;
  if (s.exact) {
    s.count = s.listed;
    return s;
  }
  // More long commands than the table holds: the buckets above the threshold
  // count them, the bucket holding the threshold by its middle.
  for (uint32_t b = latency_bucket(threshold); b < kLatencyBuckets; ++b) {
    const uint64_t low = latency_bucket_low(b);
    if (is_stall(low + (latency_bucket_end(b) - low) / 2)) s.count += histogram.counts[b];
  }
  s.count = std::max(s.count, s.listed);
  return s;
}
