// Measures the program's own overhead against the machine's limit, in one
// process on the same buffers:
//   Bound        memcpy (stand-in for the data phase) + memcmp over the two
//                max_transfer_length data buffers;
//   WriteLoop    run_write_loop on the built-in virtual drive, throttle off;
//   ReadCompare  run_read_compare_loop on the same drive;
//   Command      execute_cdb -> platform -> virtual drive -> result for a
//                zero-length Test Unit Ready;
//   TimingCost   each loop with the command timing of /plot and /json on
//                and off, alternating batch by batch in one benchmark;
//   EtaCost      the write loop with the time-left line of /eta (formatted
//                after every MB, as on a terminal) on and off, the same way.
// Every case counts the heap allocations of its timed commands. After the
// usual Google Benchmark table a summary prints each loop as a ratio to the
// bound of its transfer length, checks zero allocations per command, and
// exits 1 when an allocation was seen.
#include <benchmark/benchmark.h>

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <map>
#include <string>
#include <vector>

#include "bench/alloc_counter.h"
#include <time.h>

#include "console/log_output.h"
#include "engine/command_timing.h"
#include "engine/progress_estimate.h"
#include "engine/sizing.h"
#include "engine/transfer_loops.h"
#include "run/run_sequence.h"
#include "settings/settings.h"
#include "tape/command_blocks.h"
#include "tape/drive_operations.h"
#include "transport/command_buffers.h"
#include "transport/device_table.h"
#include "transport/transport_lifecycle.h"
#include "transport/executor.h"
#include "transport/platform/platform.h"
#include "transport/scsi_transport.h"
#include "vtape/drive_state.h"
#include "vtape/virtual_drive.h"

namespace {

constexpr uint32_t kKiB = 1024;
constexpr uint32_t kMiB = 1024 * 1024;
constexpr uint64_t kGiB = 1024ull * 1024 * 1024;
// Bytes moved by one timed call of a loop.
constexpr uint64_t kBatchBytes = 64ull * kMiB;
// The tape is rewound (untimed) before it nears the early-warning zone.
constexpr uint64_t kRewindTapeBytes = 256 * kGiB;
// Data written before the read cases; the dedup keeps it small in memory.
constexpr uint64_t kReadableBytes = 1 * kGiB;

enum Mode : int64_t { kVariable = 0, kFixed = 1 };
enum Pattern : int64_t { kNull = 0, kRandom = 1 };

FILE* null_stream = nullptr;
bool setup_failed = false;

// Brings the program to the state the run sequence leaves it in just before
// the first write loop: settings, virtual drive, transport, address, plan,
// buffers, block mode, tape rewound. 0, or -1 after printing why.
int prepare_program(uint32_t transfer_length, int64_t mode, int64_t pattern) {
  shutdown_transport();
  release_buffer(&data_buffer_1);
  release_buffer(&data_buffer_2);
  reset_test_plan();
  reset_program_state();
  set_screen_stream(null_stream);  // the "N MB\r" progress lines still get formatted and written
  test_settings.virtual_drive_enabled = 1;
  test_settings.max_transfer_length = transfer_length;
  test_settings.logical_block_size = mode == kFixed ? 1024 : 0;
  test_settings.data_pattern_type = static_cast<uint16_t>(pattern);
  test_settings.total_megabytes = 1048576.0;
  test_settings.interval_megabytes = 1048576.0;
  if (vtape_configure(nullptr) != 0) return -1;
  set_active_platform(vtape_platform());
  if (start_transport(nullptr) != 0) return -1;
  if (set_adapter(test_settings.host_adapter_number) != 0 || set_bus(test_settings.bus_number) != 0 ||
      set_target_id(test_settings.scsi_id) != 0 || set_lun(test_settings.lun) != 0)
    return -1;
  scsi_test_unit_ready();  // takes the power-on unit attention
  scsi_test_unit_ready();
  if (command_failed()) return -1;
  if (size_test() != 0) return -1;
  if (set_block_mode() != 0) return -1;
  scsi_rewind(0);
  if (command_failed()) return -1;
  return 0;
}

uint32_t batch_commands(uint32_t transfer_length) {
  uint64_t commands = kBatchBytes / transfer_length;
  return static_cast<uint32_t>(commands < 16 ? 16 : commands);
}

// One untimed Write command of the loop's transfer length.
int write_first_record() {
  uint32_t commands = 1;
  double elapsed = 0;
  uint8_t end_of_medium = 0;
  return run_write_loop(test_plan.blocks_per_command, &commands, &elapsed, &end_of_medium);
}

void fail(benchmark::State& state, const char* what) {
  setup_failed = true;
  state.SkipWithError(what);
}

void BM_Bound(benchmark::State& state) {
  const auto length = static_cast<uint32_t>(state.range(0));
  if (prepare_program(length, kVariable, kRandom) != 0) return fail(state, "setup failed");
  for (auto _ : state) {
    std::memcpy(data_buffer_2, data_buffer_1, length);
    benchmark::ClobberMemory();
    int differs = std::memcmp(data_buffer_2, data_buffer_1, length);
    benchmark::DoNotOptimize(differs);
  }
  state.SetBytesProcessed(static_cast<int64_t>(state.iterations()) * length);
}

// The bound with the drive's side of the data phase made explicit: the copy
// comes from a third buffer (the virtual drive keeps its own copy of the
// record), as in the read/compare loop. Shows how much of that loop's gap to
// the bound is the extra buffer rather than the program.
void BM_BoundThreeBuffers(benchmark::State& state) {
  const auto length = static_cast<uint32_t>(state.range(0));
  if (prepare_program(length, kVariable, kRandom) != 0) return fail(state, "setup failed");
  uint8_t* drive_copy = nullptr;
  if (allocate_buffer(&drive_copy, length) != 0) return fail(state, "no memory");
  std::memcpy(drive_copy, data_buffer_1, length);
  for (auto _ : state) {
    std::memcpy(data_buffer_2, drive_copy, length);
    benchmark::ClobberMemory();
    int differs = std::memcmp(data_buffer_2, data_buffer_1, length);
    benchmark::DoNotOptimize(differs);
  }
  release_buffer(&drive_copy);
  state.SetBytesProcessed(static_cast<int64_t>(state.iterations()) * length);
}

void BM_WriteLoop(benchmark::State& state) {
  const auto length = static_cast<uint32_t>(state.range(0));
  if (prepare_program(length, state.range(1), state.range(2)) != 0)
    return fail(state, "setup failed");
  set_rw_buffer(data_buffer_1, length);
  const uint32_t batch = batch_commands(length);
  const Cartridge& tape = virtual_drive().cartridge;
  // The first record of a tape is stored (and allocated) by the drive; every
  // later one repeats it. That write stays outside the counted commands.
  if (write_first_record() != 0) return fail(state, "first write failed");
  uint64_t commands_done = 0;
  uint64_t allocations = 0;
  for (auto _ : state) {
    uint32_t commands = batch;
    double elapsed = 0;
    uint8_t end_of_medium = 0;
    uint64_t before = allocation_count();
    int result = run_write_loop(test_plan.blocks_per_command, &commands, &elapsed, &end_of_medium);
    allocations += allocation_count() - before;
    if (result != 0 || end_of_medium != 0) return fail(state, "write loop failed");
    commands_done += commands;
    if (tape.tape_bytes > kRewindTapeBytes) {
      state.PauseTiming();
      scsi_rewind(0);
      if (write_first_record() != 0) return fail(state, "first write failed");
      state.ResumeTiming();
    }
  }
  state.SetBytesProcessed(static_cast<int64_t>(commands_done * length));
  state.counters["allocs_per_cmd"] =
      static_cast<double>(allocations) / static_cast<double>(commands_done);
}

void BM_ReadCompareLoop(benchmark::State& state) {
  const auto length = static_cast<uint32_t>(state.range(0));
  if (prepare_program(length, state.range(1), state.range(2)) != 0)
    return fail(state, "setup failed");
  const uint32_t batch = batch_commands(length);
  uint64_t readable = kReadableBytes / length;
  if (readable < 4ull * batch) readable = 4ull * batch;
  // Lay down the data the read cases read back, then rewind.
  set_rw_buffer(data_buffer_1, length);
  uint32_t written = static_cast<uint32_t>(readable);
  double elapsed = 0;
  uint8_t end_of_medium = 0;
  if (run_write_loop(test_plan.blocks_per_command, &written, &elapsed, &end_of_medium) != 0)
    return fail(state, "writing the data to read failed");
  scsi_rewind(0);
  set_rw_buffer(data_buffer_2, length);
  uint64_t position = 0;
  uint64_t commands_done = 0;
  uint64_t allocations = 0;
  for (auto _ : state) {
    if (position + batch > readable) {
      state.PauseTiming();
      scsi_rewind(0);
      position = 0;
      state.ResumeTiming();
    }
    uint32_t commands = batch;
    uint64_t before = allocation_count();
    int result = run_read_compare_loop(test_plan.blocks_per_command, &commands, data_buffer_1,
                                       &elapsed, &end_of_medium);
    allocations += allocation_count() - before;
    if (result != 0 || end_of_medium != 0) return fail(state, "read/compare loop failed");
    position += commands;
    commands_done += commands;
  }
  state.SetBytesProcessed(static_cast<int64_t>(commands_done * length));
  state.counters["allocs_per_cmd"] =
      static_cast<double>(allocations) / static_cast<double>(commands_done);
}

double thread_cpu_seconds() {
  timespec now;
  clock_gettime(CLOCK_THREAD_CPUTIME_ID, &now);
  return static_cast<double>(now.tv_sec) + static_cast<double>(now.tv_nsec) / 1e9;
}

// The loop of `kind` (0 write, 1 read/compare) with the command timing on and
// off in turns, batch by batch, so that the neighbours' load hits both alike.
// Counter `on_vs_off`: the speed with timing on as a fraction of the speed
// without (CPU seconds of this thread).
void BM_TimingCost(benchmark::State& state) {
  const auto length = static_cast<uint32_t>(state.range(0));
  const bool read = state.range(1) != 0;
  if (prepare_program(length, kVariable, kRandom) != 0) return fail(state, "setup failed");
  if (begin_command_timing(1, test_plan, length) != 0) return fail(state, "no memory for timing");
  open_timed_interval(read ? 1 : 0, 1, 1);
  const uint32_t batch = batch_commands(length);
  const uint64_t readable = std::max<uint64_t>(kReadableBytes / length, 4ull * batch);
  set_rw_buffer(data_buffer_1, length);
  if (read) {
    uint32_t written = static_cast<uint32_t>(readable);
    double elapsed = 0;
    uint8_t end_of_medium = 0;
    if (run_write_loop(test_plan.blocks_per_command, &written, &elapsed, &end_of_medium) != 0)
      return fail(state, "writing the data to read failed");
    set_rw_buffer(data_buffer_2, length);
  }
  scsi_rewind(0);
  if (!read && write_first_record() != 0) return fail(state, "first write failed");
  uint64_t position = 0, allocations = 0, commands_done = 0;
  double seconds[2] = {0, 0};  // timing off, on
  for (auto _ : state) {
    for (int turn = 0; turn < 2; ++turn) {
      const int on = (turn + static_cast<int>(commands_done / batch / 2)) % 2;  // alternate who goes first
      if (read ? position + batch > readable : virtual_drive().cartridge.tape_bytes > kRewindTapeBytes) {
        scsi_rewind(0);
        position = 0;
        if (!read && write_first_record() != 0) return fail(state, "first write failed");
      }
      suspend_command_timing(on == 0);
      uint32_t commands = batch;
      double elapsed = 0;
      uint8_t end_of_medium = 0;
      const uint64_t before = allocation_count();
      const double start = thread_cpu_seconds();
      const int result =
          read ? run_read_compare_loop(test_plan.blocks_per_command, &commands, data_buffer_1, &elapsed,
                                       &end_of_medium)
               : run_write_loop(test_plan.blocks_per_command, &commands, &elapsed, &end_of_medium);
      seconds[on] += thread_cpu_seconds() - start;
      allocations += allocation_count() - before;
      if (result != 0 || end_of_medium != 0) return fail(state, "loop failed");
      position += commands;
      commands_done += commands;
    }
  }
  close_timed_interval();
  reset_command_timing();
  state.SetBytesProcessed(static_cast<int64_t>(commands_done * length));
  state.counters["on_vs_off"] = seconds[1] > 0 ? seconds[0] / seconds[1] : 0;
  state.counters["allocs_per_cmd"] =
      static_cast<double>(allocations) / static_cast<double>(commands_done);
}

// The write loop with the `/eta` line on and off in turns, batch by batch.
// Counters `on_vs_off`: the speed with the line as a fraction of the speed
// without (CPU seconds of this thread); `ns_per_line`: what one line costs.
void BM_EtaCost(benchmark::State& state) {
  const auto length = static_cast<uint32_t>(state.range(0));
  if (prepare_program(length, kVariable, kRandom) != 0) return fail(state, "setup failed");
  set_rw_buffer(data_buffer_1, length);
  if (write_first_record() != 0) return fail(state, "first write failed");
  eta_begin_test();
  eta_begin_pass(1, false);
  const uint32_t batch = batch_commands(length);
  uint64_t allocations = 0, commands_done = 0, lines = 0;
  double seconds[2] = {0, 0};  // line off, on
  for (auto _ : state) {
    for (int turn = 0; turn < 2; ++turn) {
      const int on = (turn + static_cast<int>(commands_done / batch / 2)) % 2;  // alternate who goes first
      if (virtual_drive().cartridge.tape_bytes > kRewindTapeBytes) {
        scsi_rewind(0);
        if (write_first_record() != 0) return fail(state, "first write failed");
      }
      test_settings.eta_enabled = static_cast<uint8_t>(on);
      uint32_t commands = batch;
      double elapsed = 0;
      uint8_t end_of_medium = 0;
      const uint64_t before = allocation_count();
      const double start = thread_cpu_seconds();
      const int result = run_write_loop(test_plan.blocks_per_command, &commands, &elapsed, &end_of_medium);
      seconds[on] += thread_cpu_seconds() - start;
      allocations += allocation_count() - before;
      if (result != 0 || end_of_medium != 0) return fail(state, "loop failed");
      commands_done += commands;
      if (on) lines += static_cast<uint64_t>(commands) * length / kMiB;
    }
  }
  test_settings.eta_enabled = 0;
  state.counters["ns_per_line"] = lines > 0 ? (seconds[1] - seconds[0]) * 1e9 / static_cast<double>(lines) : 0;
  state.SetBytesProcessed(static_cast<int64_t>(commands_done * length));
  state.counters["on_vs_off"] = seconds[1] > 0 ? seconds[0] / seconds[1] : 0;
  state.counters["allocs_per_cmd"] =
      static_cast<double>(allocations) / static_cast<double>(commands_done);
}

// One zero-length command through the whole transport path.
void BM_TestUnitReady(benchmark::State& state) {
  if (prepare_program(64 * kKiB, kVariable, kNull) != 0) return fail(state, "setup failed");
  const uint8_t cdb[6] = {0x00, scsi_transport.lun_bits, 0, 0, 0, 0};
  uint64_t before = allocation_count();
  for (auto _ : state) {
    scsi_transport.request_length = 0;
    execute_cdb(no_data_buffer, sizeof cdb, cdb);
    benchmark::DoNotOptimize(scsi_transport.result.target_status);
  }
  uint64_t allocations = allocation_count() - before;
  if (command_failed()) return fail(state, "Test Unit Ready failed");
  state.counters["allocs_per_cmd"] =
      static_cast<double>(allocations) / static_cast<double>(state.iterations());
}

void transfer_arguments(benchmark::internal::Benchmark* b) {
  for (int64_t length : {64 * kKiB, 256 * kKiB, 1 * kMiB, 4 * kMiB})
    for (int64_t mode : {kFixed, kVariable})
      for (int64_t pattern : {kNull, kRandom}) b->Args({length, mode, pattern});
}

BENCHMARK(BM_Bound)->Arg(64 * kKiB)->Arg(256 * kKiB)->Arg(1 * kMiB)->Arg(4 * kMiB);
BENCHMARK(BM_BoundThreeBuffers)->Arg(64 * kKiB)->Arg(256 * kKiB)->Arg(1 * kMiB)->Arg(4 * kMiB);
BENCHMARK(BM_WriteLoop)->Apply(transfer_arguments)->ArgNames({"len", "fixed", "random"});
BENCHMARK(BM_ReadCompareLoop)->Apply(transfer_arguments)->ArgNames({"len", "fixed", "random"});
BENCHMARK(BM_TestUnitReady);
BENCHMARK(BM_TimingCost)
    ->ArgsProduct({{64 * kKiB, 256 * kKiB, 1 * kMiB, 4 * kMiB}, {0, 1}})
    ->ArgNames({"len", "read"})
    ->MinTime(2.0);
BENCHMARK(BM_EtaCost)->Arg(64 * kKiB)->Arg(1 * kMiB)->ArgNames({"len"})->MinTime(2.0);

// Keeps what the summary needs from each reported run.
struct Figure {
  double bytes_per_second = 0;
  double nanoseconds = 0;  // CPU time per iteration: the machine is shared
  double allocs_per_cmd = 0;
  double on_vs_off = 0;
  double ns_per_line = 0;
};

class SummaryReporter : public benchmark::ConsoleReporter {
 public:
  std::map<std::string, Figure> figures;

  void ReportRuns(const std::vector<Run>& runs) override {
    for (const Run& run : runs) {
      if (run.error_occurred || run.run_type != Run::RT_Iteration) continue;
      Figure f;
      auto bytes = run.counters.find("bytes_per_second");
      if (bytes != run.counters.end()) f.bytes_per_second = bytes->second.value;
      auto allocs = run.counters.find("allocs_per_cmd");
      if (allocs != run.counters.end()) f.allocs_per_cmd = allocs->second.value;
      auto timed = run.counters.find("on_vs_off");
      if (timed != run.counters.end()) f.on_vs_off = timed->second.value;
      auto line = run.counters.find("ns_per_line");
      if (line != run.counters.end()) f.ns_per_line = line->second.value;
      f.nanoseconds = run.GetAdjustedCPUTime() *
                      benchmark::GetTimeUnitMultiplier(benchmark::kNanosecond) /
                      benchmark::GetTimeUnitMultiplier(run.time_unit);
      figures[run.benchmark_name()] = f;
    }
    ConsoleReporter::ReportRuns(runs);
  }
};

std::string loop_name(const char* loop, uint32_t length, int mode, int pattern) {
  return std::string(loop) + "/len:" + std::to_string(length) + "/fixed:" + std::to_string(mode) +
         "/random:" + std::to_string(pattern);
}

// Prints every loop as a ratio to the bound of its transfer length; 1 when
// a command allocated.
int print_summary(const std::map<std::string, Figure>& figures) {
  bool allocated = false;
  std::printf("\nSummary (GB/s = 1e9 bytes per CPU second of the benchmark thread; ratio = loop / bound\nat the same transfer length; allocs = heap allocations per command)\n");
  std::printf("%-9s %-5s %-8s %-6s %9s %9s %7s %7s\n", "length", "mode", "pattern", "loop",
              "GB/s", "bound", "ratio", "allocs");
  for (uint32_t length : {64 * kKiB, 256 * kKiB, 1 * kMiB, 4 * kMiB}) {
    auto bound = figures.find("BM_Bound/" + std::to_string(length));
    if (bound == figures.end()) continue;
    double bound_gbs = bound->second.bytes_per_second / 1e9;
    auto three = figures.find("BM_BoundThreeBuffers/" + std::to_string(length));
    if (three != figures.end()) {
      double gbs = three->second.bytes_per_second / 1e9;
      std::printf("%5u KiB %-5s %-8s %-6s %9.2f %9.2f %7.2f\n", length / kKiB, "-", "-", "bound3",
                  gbs, bound_gbs, gbs / bound_gbs);
    }
    for (int mode : {1, 0}) {
      for (int pattern : {0, 1}) {
        for (const char* loop : {"BM_WriteLoop", "BM_ReadCompareLoop"}) {
          auto f = figures.find(loop_name(loop, length, mode, pattern));
          if (f == figures.end()) continue;
          double gbs = f->second.bytes_per_second / 1e9;
          if (f->second.allocs_per_cmd != 0) allocated = true;
          std::printf("%5u KiB %-5s %-8s %-6s %9.2f %9.2f %7.2f %7.3f\n", length / kKiB,
                      mode ? "fixed" : "var", pattern ? "random" : "null",
                      loop[3] == 'W' ? "write" : "read", gbs, bound_gbs, gbs / bound_gbs,
                      f->second.allocs_per_cmd);
        }
      }
    }
  }
  auto tur = figures.find("BM_TestUnitReady");
  if (tur != figures.end()) {
    if (tur->second.allocs_per_cmd != 0) allocated = true;
    std::printf("Test Unit Ready through execute_cdb: %.0f ns per command (target < 2000 ns, "
                "ratio %.3f), %.3f allocations per command\n",
                tur->second.nanoseconds, tur->second.nanoseconds / 2000.0,
                tur->second.allocs_per_cmd);
    auto bound = figures.find("BM_Bound/" + std::to_string(kMiB));
    if (bound != figures.end())
      std::printf("  = %.4f of the bound's time for one 1 MiB transfer (%.0f ns)\n",
                  tur->second.nanoseconds / bound->second.nanoseconds, bound->second.nanoseconds);
  }
  bool slow = false;
  std::printf("\nCommand timing (/plot, /json): loop speed with timing on / off, alternating batches\n");
  for (uint32_t length : {64 * kKiB, 256 * kKiB, 1 * kMiB, 4 * kMiB}) {
    for (int read : {0, 1}) {
      auto f = figures.find("BM_TimingCost/len:" + std::to_string(length) + "/read:" + std::to_string(read) +
                            "/min_time:2.000");
      if (f == figures.end()) continue;
      if (f->second.on_vs_off < 0.97) slow = true;
      if (f->second.allocs_per_cmd != 0) allocated = true;
      std::printf("%5u KiB %-6s %7.3f%s  allocs %.3f\n", length / kKiB, read ? "read" : "write",
                  f->second.on_vs_off, f->second.on_vs_off < 0.97 ? " (below 0.97)" : "", f->second.allocs_per_cmd);
    }
  }
  // A line comes after every MB: against a drive at 1,000 MB/s (1 ms a MB) it
  // may take 1 % at most.
  std::printf("\nTime-left line (/eta): write loop speed with the line on / off, alternating batches;\n"
              "one line's cost as a share of the 1 ms a 1,000 MB/s drive takes for its MB\n");
  for (uint32_t length : {64 * kKiB, 1 * kMiB}) {
    auto f = figures.find("BM_EtaCost/len:" + std::to_string(length) + "/min_time:2.000");
    if (f == figures.end()) continue;
    const double share = f->second.ns_per_line / 1e6;
    if (share > 0.01) slow = true;
    if (f->second.allocs_per_cmd != 0) allocated = true;
    std::printf("%5u KiB %-6s %7.3f  %6.0f ns a line = %.4f of 1 ms%s  allocs %.3f\n", length / kKiB, "write",
                f->second.on_vs_off, f->second.ns_per_line, share, share > 0.01 ? " (above 0.01)" : "",
                f->second.allocs_per_cmd);
  }
  std::printf("allocations per command: %s\n", allocated ? "SOME (FAIL)" : "none");
  return allocated || slow ? 1 : 0;
}

}  // namespace

int main(int argc, char** argv) {
  null_stream = std::fopen("/dev/null", "w");
  if (null_stream == nullptr) {
    std::perror("/dev/null");
    return 1;
  }
  benchmark::Initialize(&argc, argv);
  if (benchmark::ReportUnrecognizedArguments(argc, argv)) return 1;
  SummaryReporter reporter;
  benchmark::RunSpecifiedBenchmarks(&reporter);
  benchmark::Shutdown();
  int result = print_summary(reporter.figures);
  shutdown_transport();
  release_buffer(&data_buffer_1);
  release_buffer(&data_buffer_2);
  return setup_failed ? 1 : result;
}
