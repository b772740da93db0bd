#include "engine/command_timing.h"

#include <atomic>
#include <new>

#include "console/clock.h"
#include "console/log_output.h"
#include "results/results_file.h"

namespace {

constexpr uint64_t kMegabyte = 1048576;
constexpr uint64_t kMaxSeconds = 1u << 22;  // 32 MB of table at most
constexpr std::memory_order kRelaxed = std::memory_order_relaxed;

struct AtomicStall {
  std::atomic<uint32_t> command;
  std::atomic<uint32_t> at_ms;
  std::atomic<uint64_t> duration_ns;
};

// The interval in progress. The reader copies it only while `seq` is even
// and unchanged.
struct LiveInterval {
  std::atomic<uint32_t> counts[kLatencyBuckets];
  std::atomic<uint32_t> commands;
  std::atomic<uint64_t> min_ns;
  std::atomic<uint64_t> max_ns;
  std::atomic<uint32_t> long_commands;  // commands of kStallFloorNs or more
  std::atomic<uint32_t> kept;
  AtomicStall table[kStallsKept];
  std::atomic<bool> open;
  std::atomic<uint8_t> kind;
  std::atomic<uint32_t> iteration;
  std::atomic<uint32_t> number;
  std::atomic<uint32_t> start_ms;
  std::atomic<uint32_t> first_second;
  std::atomic<uint32_t> seconds;
  std::atomic<bool> seconds_complete;
};

struct Timing {
  bool on = false;
  uint64_t run_start_ticks = 0;  // of the fast counter (console/clock.h)
  double ns_per_tick = 1.0;
  uint64_t ticks_per_second = 1000000000;
  std::atomic<uint32_t> seq{0};
  uint32_t seq_value = 0;  // the writer's own copy of `seq`
  std::atomic<bool> frozen{false};
  LiveInterval live;
  StallRecord table[kStallsKept];  // the writer's plain copy of live.table
  uint64_t second_end_ticks = 0;   // writer only: end of the current second
  std::atomic<uint64_t>* second_bytes = nullptr;
  std::atomic<uint64_t>* current_second = nullptr;  // writer only; `spare` once the table is full
  std::atomic<uint64_t> spare{0};
  uint32_t second_capacity = 0;
  uint32_t seconds_used = 0;  // writer only
  IntervalTiming* intervals = nullptr;
  uint32_t interval_capacity = 0;
  std::atomic<uint32_t> published{0};
};
Timing timing;
TimingSnapshot snapshot;
// Copies of live.counts: one for the writer closing an interval, one for
// the reader, which may run at the same time.
LatencyHistogram writer_copy;
LatencyHistogram reader_copy;

uint32_t ms_since_start(uint64_t ticks) {
  if (ticks <= timing.run_start_ticks) return 0;
  return static_cast<uint32_t>(static_cast<double>(ticks - timing.run_start_ticks) * timing.ns_per_tick / 1e6);
}

template <typename T>
void bump(std::atomic<T>& value, T by) {
  value.store(static_cast<T>(value.load(kRelaxed) + by), kRelaxed);  // one writer: no locked add
}

void begin_write() {
  timing.seq.store(++timing.seq_value, kRelaxed);
  std::atomic_thread_fence(std::memory_order_release);
}
void end_write() { timing.seq.store(++timing.seq_value, std::memory_order_release); }

// Moves to the next second of the interval; without room the interval's
// seconds stop there.
void next_second() {
  LiveInterval& l = timing.live;
  timing.second_end_ticks += timing.ticks_per_second;
  if (timing.seconds_used >= timing.second_capacity) {
    l.seconds_complete.store(false, kRelaxed);
    timing.current_second = &timing.spare;
    return;
  }
  timing.current_second = &timing.second_bytes[timing.seconds_used++];
  bump<uint32_t>(l.seconds, 1);
}

void publish_table() {
  for (uint32_t i = 0; i < kStallsKept; ++i) {
    timing.live.table[i].command.store(timing.table[i].command, kRelaxed);
    timing.live.table[i].at_ms.store(timing.table[i].at_ms, kRelaxed);
    timing.live.table[i].duration_ns.store(timing.table[i].duration_ns, kRelaxed);
  }
}

// The record of the live interval up to `now_ticks`, through `copied`.
IntervalTiming summarize_live(uint64_t now_ticks, LatencyHistogram& copied) {
  const LiveInterval& l = timing.live;
  for (uint32_t b = 0; b < kLatencyBuckets; ++b) copied.counts[b] = l.counts[b].load(kRelaxed);
  copied.commands = l.commands.load(kRelaxed);
  copied.min_ns = l.min_ns.load(kRelaxed);
  copied.max_ns = l.max_ns.load(kRelaxed);
  StallRecord kept[kStallsKept];
  const uint32_t kept_count = l.kept.load(kRelaxed);
  for (uint32_t i = 0; i < kept_count && i < kStallsKept; ++i) {
    kept[i] = {l.table[i].command.load(kRelaxed), l.table[i].at_ms.load(kRelaxed),
               l.table[i].duration_ns.load(kRelaxed)};
  }
  IntervalTiming r{};
  r.kind = l.kind.load(kRelaxed);
  r.iteration = l.iteration.load(kRelaxed);
  r.number = l.number.load(kRelaxed);
  r.start_ms = l.start_ms.load(kRelaxed);
  r.end_ms = ms_since_start(now_ticks);
  r.latency = summarize_latency(copied);
  r.stalls = find_stalls(copied, kept, kept_count, l.long_commands.load(kRelaxed));
  r.first_second = l.first_second.load(kRelaxed);
  r.seconds = l.seconds.load(kRelaxed);
  r.seconds_complete = l.seconds_complete.load(kRelaxed);
  return r;
}

void free_tables() {
  delete[] timing.second_bytes;
  delete[] timing.intervals;
  timing.second_bytes = nullptr;
  timing.intervals = nullptr;
  timing.second_capacity = 0;
  timing.interval_capacity = 0;
}

}  // namespace

int begin_command_timing(uint32_t iterations, const TestPlan& plan, uint32_t transfer_bytes) {
  reset_command_timing();
  const uint64_t intervals = 2ull * iterations * plan.interval_count;
  const uint64_t megabytes =
      2ull * iterations * plan.total_commands * transfer_bytes / kMegabyte;
  uint64_t seconds = megabytes + 2 * intervals + 64;
  if (seconds > kMaxSeconds) seconds = kMaxSeconds;
  timing.second_bytes = new (std::nothrow) std::atomic<uint64_t>[seconds]();
  // Not cleared: each record is written whole when its interval closes, so a
  // plan of many short intervals only takes the memory of those that ran.
  timing.intervals = intervals > 0 ? new (std::nothrow) IntervalTiming[intervals] : nullptr;
  if (timing.second_bytes == nullptr || (intervals > 0 && timing.intervals == nullptr)) {
    free_tables();
    report_printf("ERROR: not enough memory to time the commands (/plot, /json)\r\n");
    return -1;
  }
  timing.second_capacity = static_cast<uint32_t>(seconds);
  timing.interval_capacity = static_cast<uint32_t>(intervals);
  timing.ns_per_tick = 1.0 / fast_ticks_per_ns();
  timing.ticks_per_second = static_cast<uint64_t>(1e9 / timing.ns_per_tick);
  timing.run_start_ticks = fast_ticks();
  timing.on = true;
  return 0;
}

bool command_timing_on() { return timing.on; }

void suspend_command_timing(bool suspended) {
  if (timing.second_bytes != nullptr) timing.on = !suspended;
}

void open_timed_interval(uint8_t kind, uint32_t iteration, uint32_t number) {
  if (!timing.on || timing.frozen.load(kRelaxed)) return;
  LiveInterval& l = timing.live;
  begin_write();
  for (auto& count : l.counts) count.store(0, kRelaxed);
  l.commands.store(0, kRelaxed);
  l.min_ns.store(0, kRelaxed);
  l.max_ns.store(0, kRelaxed);
  l.long_commands.store(0, kRelaxed);
  l.kept.store(0, kRelaxed);
  l.kind.store(kind, kRelaxed);
  l.iteration.store(iteration, kRelaxed);
  l.number.store(number, kRelaxed);
  const uint64_t now = fast_ticks();
  l.start_ms.store(ms_since_start(now), kRelaxed);
  l.first_second.store(timing.seconds_used, kRelaxed);
  l.seconds.store(0, kRelaxed);
  l.seconds_complete.store(true, kRelaxed);
  timing.second_end_ticks = now;
  next_second();
  l.open.store(true, kRelaxed);
  end_write();
}

void time_command(uint64_t start_ticks, uint64_t end_ticks, uint32_t bytes) {
  LiveInterval& l = timing.live;
  if (timing.frozen.load(kRelaxed) || !l.open.load(kRelaxed)) return;
  begin_write();
  // A counter read on another processor may lag by a few ticks: never negative.
  const uint64_t ns = end_ticks > start_ticks
                          ? static_cast<uint64_t>(static_cast<double>(end_ticks - start_ticks) * timing.ns_per_tick)
                          : 0;
  bump<uint32_t>(l.counts[latency_bucket(ns)], 1);
  const uint32_t command = l.commands.load(kRelaxed) + 1;
  l.commands.store(command, kRelaxed);
  if (command == 1 || ns < l.min_ns.load(kRelaxed)) l.min_ns.store(ns, kRelaxed);
  if (ns > l.max_ns.load(kRelaxed)) l.max_ns.store(ns, kRelaxed);
  while (end_ticks >= timing.second_end_ticks) next_second();
  bump<uint64_t>(*timing.current_second, bytes);
  if (ns >= kStallFloorNs) {
    bump<uint32_t>(l.long_commands, 1);
    uint32_t kept = l.kept.load(kRelaxed);
    keep_long_command(timing.table, &kept, {command, ms_since_start(end_ticks), ns});
    publish_table();
    l.kept.store(kept, kRelaxed);
  }
  end_write();
}

void close_timed_interval() {
  if (!timing.on || timing.frozen.load(kRelaxed) || !timing.live.open.load(kRelaxed)) return;
  begin_write();
  const uint32_t n = timing.published.load(kRelaxed);
  if (n < timing.interval_capacity) {
    timing.intervals[n] = summarize_live(fast_ticks(), writer_copy);
    timing.published.store(n + 1, std::memory_order_release);
  }
  timing.live.open.store(false, kRelaxed);
  end_write();
}

const IntervalTiming* last_interval_timing() {
  const uint32_t n = timing.published.load(std::memory_order_acquire);
  return n > 0 ? &timing.intervals[n - 1] : nullptr;
}

uint64_t timed_second_bytes(uint32_t index) {
  return index < timing.second_capacity ? timing.second_bytes[index].load(kRelaxed) : 0;
}

void write_interval_timing_fields(uint8_t kind, uint32_t iteration, uint32_t number) {
  const IntervalTiming* t = last_interval_timing();
  if (t == nullptr || t->kind != kind || t->iteration != iteration || t->number != number) return;
  auto ms = [](uint64_t ns) { return static_cast<double>(ns) / 1e6; };
  results_begin_object("latency");
  results_double("min_ms", ms(t->latency.min_ns));
  results_double("median_ms", ms(t->latency.median_ns));
  results_double("p90_ms", ms(t->latency.p90_ns));
  results_double("p99_ms", ms(t->latency.p99_ns));
  results_double("max_ms", ms(t->latency.max_ns));
  results_end_object();
  results_begin_object("stalls");
  results_unsigned("count", t->stalls.count);
  results_bool("exact", t->stalls.exact);
  results_begin_array("longest");
  for (uint32_t i = 0; i < t->stalls.listed && i < kStallsInResults; ++i) {
    results_begin_object(nullptr);
    results_unsigned("command", t->stalls.longest[i].command);
    results_double("ms", ms(t->stalls.longest[i].duration_ns));
    results_end_object();
  }
  results_end_array();
  results_end_object();
  results_begin_array("per_second");  // the last second is partial
  for (uint32_t j = 0; j < t->seconds; ++j) results_unsigned(nullptr, timed_second_bytes(t->first_second + j));
  results_end_array();
  if (!t->seconds_complete) results_bool("per_second_complete", false);
}

const TimingSnapshot& take_timing_snapshot() {
  timing.frozen.store(true, std::memory_order_seq_cst);
  snapshot = TimingSnapshot{};
  snapshot.intervals = timing.intervals;
  // The writer sees `frozen` at its next command at the latest; a copy that
  // overlapped one of its updates is taken again.
  for (int attempt = 0; attempt < 3000; ++attempt) {
    const uint32_t before = timing.seq.load(std::memory_order_acquire);
    if (before & 1) {
      sleep_msec(1);
      continue;
    }
    snapshot.count = timing.published.load(std::memory_order_acquire);
    snapshot.has_partial = timing.on && timing.live.open.load(kRelaxed);
    const uint64_t now = fast_ticks();
    if (snapshot.has_partial) snapshot.partial = summarize_live(now, reader_copy);
    std::atomic_thread_fence(std::memory_order_acquire);
    if (timing.seq.load(kRelaxed) == before) {
      snapshot.now_ms = ms_since_start(now);
      snapshot.consistent = true;
      break;
    }
  }
  if (!snapshot.consistent) snapshot.has_partial = false;  // the finished intervals still hold
  return snapshot;
}

void reset_command_timing() {
  free_tables();
  timing.on = false;
  timing.frozen.store(false);
  timing.published.store(0);
  timing.live.open.store(false);
  timing.seconds_used = 0;
}
