#include "engine/progress_estimate.h"

#include <gtest/gtest.h>

#include <string>

namespace {

constexpr uint64_t kMb = 1048576;

// Two iterations of four 4 MB intervals: 16 MB a pass, 64 MB in all.
EtaRun two_iterations(uint32_t iteration, bool reading) {
  EtaRun run{};
  run.iterations = 2;
  run.interval_count = 4;
  run.interval_bytes = 4 * kMb;
  run.medium_bytes = 16 * kMb;
  run.iteration = iteration;
  run.reading = reading;
  return run;
}

// What is left: the rest of the interval, of the pass, the read/compare pass
// of what this write pass writes, and the whole later iterations; after an
// early EOM only what was written is read, and later passes stop there too.
TEST(EtaEstimate, RemainingPlanOverIterationsAndPasses) {
  EtaRun after_eom = two_iterations(1, true);
  after_eom.medium_bytes = 6 * kMb;
  EtaRun eom_next_iteration = after_eom;
  eom_next_iteration.iteration = 2;
  eom_next_iteration.reading = false;
  const struct {
    const char* what;
    EtaRun run;
    uint64_t interval_done, pass_done;
    EtaRemaining left;  // in MB
  } cases[] = {
      {"nothing moved yet", two_iterations(1, false), 0, 0, {4, 16 + 16, 16 + 16}},
      {"1 MB into the first write", two_iterations(1, false), 1, 1, {3, 15 + 16, 16 + 16}},
      {"third interval of the first write", two_iterations(1, false), 2, 10, {2, 6 + 16, 16 + 16}},
      {"second interval of the first read", two_iterations(1, true), 2, 6, {2, 16, 10 + 16}},
      {"last write", two_iterations(2, false), 3, 15, {1, 1, 16}},
      {"last read, done", two_iterations(2, true), 4, 16, {0, 0, 0}},
      {"read after EOM at 6 MB, interval cut", after_eom, 1, 5, {1, 6, 1 + 6}},
      {"read after EOM, all read", after_eom, 2, 6, {0, 6, 6}},
      {"write after an EOM pass stops at the same place", eom_next_iteration, 1, 5, {1, 1, 6}},
  };
  // 65,535 iterations of 4 PB passes: the sums stop at the largest count.
  EtaRun huge = two_iterations(1, false);
  huge.iterations = 65535;
  huge.medium_bytes = huge.interval_bytes = uint64_t{1} << 50;
  const EtaRemaining most = remaining_plan(huge, 0, 0);
  EXPECT_EQ(UINT64_MAX, most.write);
  EXPECT_EQ(UINT64_MAX, most.read);
  for (const auto& c : cases) {
    const EtaRemaining left = remaining_plan(c.run, c.interval_done * kMb, c.pass_done * kMb);
    EXPECT_EQ(c.left.interval * kMb, left.interval) << c.what;
    EXPECT_EQ(c.left.write * kMb, left.write) << c.what;
    EXPECT_EQ(c.left.read * kMb, left.read) << c.what;
  }
}

// Writes and reads at their own rates; nothing to move takes no time even
// without a rate; something to move without a rate is not known.
TEST(EtaEstimate, SecondsAtEachKindsRate) {
  const struct {
    uint64_t write_mb;
    double write_rate_mb;
    uint64_t read_mb;
    double read_rate_mb;
    double seconds;
  } cases[] = {
      {300, 100, 400, 200, 3 + 2},
      {0, 0, 400, 200, 2},
      {300, 100, 0, 0, 3},
      {0, 0, 0, 0, 0},
      {300, 0, 400, 200, -1},
      {300, 100, 400, 0, -1},
  };
  for (const auto& c : cases) {
    EXPECT_DOUBLE_EQ(c.seconds, seconds_for(c.write_mb * kMb, c.write_rate_mb * kMb, c.read_mb * kMb,
                                            c.read_rate_mb * kMb))
        << c.write_mb << " MB at " << c.write_rate_mb << ", " << c.read_mb << " MB at " << c.read_rate_mb;
  }
}

TEST(EtaEstimate, TimeLeftAsHoursOrDays) {
  const struct {
    double seconds;
    const char* text;
  } cases[] = {
      {-1, "--"},
      {0, "0:00:00"},
      {0.2, "0:00:01"},  // rounded up: "0:00:00" only when nothing is left
      {59.5, "0:01:00"},
      {3599, "0:59:59"},
      {3600, "1:00:00"},
      {36000 + 754, "10:12:34"},
      {86399, "23:59:59"},
      {86399.5, "1d 00:00"},
      {86400 + 3661, "1d 01:02"},  // to the next whole minute
      {12 * 86400 + 3 * 3600 + 4 * 60, "12d 03:04"},
      {9999.0 * 86400, "9999d 00:00"},
      {9999.0 * 86400 + 1, ">9999d"},
      {1e30, ">9999d"},
  };
  for (const auto& c : cases) {
    char text[16];
    format_time_left(text, sizeof text, c.seconds);
    EXPECT_STREQ(c.text, text) << c.seconds;
  }
}

// The line as the operator sees it, in MB for tests up to 100,000 MB an
// interval, then GB and TB; within 79 columns even at its widest.
TEST(EtaEstimate, LineWithTheIntervalThenTheWholeTest) {
  const struct {
    EtaFigures figures;
    const char* line;
  } cases[] = {
      {{0, 128 * kMb, 0, -1, 0, -1}, "0 of 128 MB (0%)  -- MB/s  -- left | test 0%  -- left"},
      {{96 * kMb + 5, 128 * kMb, 40.0 * kMb, 0.8, 37, 4.6},
       "96 of 128 MB (75%)  40 MB/s  0:00:01 left | test 37%  0:00:05 left"},
      {{3 * kMb, 9 * kMb + kMb / 2, 2.5 * kMb, 2.6, 3, 300.2},
       "3 of 9 MB (31%)  2.5 MB/s  0:00:03 left | test 3%  0:05:01 left"},
      // Tenths below 10 MB/s, whole MB/s from there.
      {{1 * kMb, 2 * kMb, 9.94 * kMb, 0.2, 50, 0.5}, "1 of 2 MB (50%)  9.9 MB/s  0:00:01 left | test 50%  0:00:01 left"},
      {{1 * kMb, 2 * kMb, 9.96 * kMb, 0.2, 50, 0.5}, "1 of 2 MB (50%)  10 MB/s  0:00:01 left | test 50%  0:00:01 left"},
      {{99999 * kMb, 99999 * kMb, 401.4 * kMb, 0, 100, 0},
       "99999 of 99999 MB (100%)  401 MB/s  0:00:00 left | test 100%  0:00:00 left"},
      // A full 18 TB cartridge in one interval, twice: a day and more.
      {{8790000 * kMb, 17166138 * kMb, 401 * kMb, 20890, 12, 151234},
       "8583 of 16763 GB (51%)  401 MB/s  5:48:10 left | test 12%  1d 18:01 left"},
      {{100000 * 1024 * kMb, 102400 * 1024 * kMb, 1000 * kMb, 2516582.4, 48, 10 * 86400},
       "97 of 100 TB (97%)  1000 MB/s  29d 03:04 left | test 48%  10d 00:00 left"},
  };
  for (const auto& c : cases) {
    char line[128];
    EXPECT_EQ(std::string(c.line).size(), format_eta_line(line, sizeof line, c.figures));
    EXPECT_STREQ(c.line, line);
  }
  // The widest line of the promised range: 5-digit amounts, a 4-digit rate,
  // 100 % and 99 days for the interval and for the test.
  const EtaFigures widest{99999 * kMb, 99999 * kMb, 9999 * kMb, 99.9 * 86400, 100, 99.9 * 86400};
  char line[128];
  EXPECT_EQ(79u, format_eta_line(line, sizeof line, widest)) << line;
  // A short buffer gets what fits, terminated.
  char short_line[10];
  EXPECT_EQ(9u, format_eta_line(short_line, sizeof short_line, widest));
  EXPECT_STREQ("99999 of ", short_line);
}

}  // namespace
