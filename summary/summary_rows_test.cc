// The summary's reading of results files as runs leave them: whole,
// interrupted, cut short, damaged, from library sweeps; and its grouping of
// the runs that overlapped on one host.
#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>
#include <vector>

#include "console/log_output.h"
#include "summary/summary_chart.h"
#include "summary/summary_command.h"
#include "summary/summary_rows.h"
#include "summary/summary_table.h"

namespace {

namespace fs = std::filesystem;

std::string run(const std::string& host, const std::string& serial, const std::string& start,
                const std::string& label = "") {
  return R"({"record":"run","version":"1.57CV","host":")" + host + R"(","run_id":")" + host + "-" + start + "\"" +
         (label.empty() ? "" : R"(,"label":")" + label + "\"") +
         R"(,"drive":{"vendor":"TAPECO","product":"LTO-9","revision":"A1","serial":")" + serial +
         R"("},"start_time":")" + start + "\"}\n";
}

std::string interval(const char* test, uint64_t megabytes, double seconds, const std::string& cartridge = "",
                     unsigned stalls = 0, double max_ms = 2.5) {
  return R"({"record":"interval")" + (cartridge.empty() ? "" : R"(,"cartridge":")" + cartridge + "\"") +
         R"(,"iteration":1,"test":")" + test + R"(","actual_bytes":)" + std::to_string(megabytes << 20) +
         R"(,"seconds":)" + std::to_string(seconds) + R"(,"end":{"kind":"complete"},"latency":{"max_ms":)" +
         std::to_string(max_ms) + R"(},"stalls":{"count":)" + std::to_string(stalls) +
         R"(,"exact":true,"longest":[]},"per_second":[1,2,3]})" + "\n";
}

std::string result(int exit_code, const char* status, const std::string& reasons, uint64_t megabytes,
                   const std::string& end) {
  return R"({"record":"result","exit_code":)" + std::to_string(exit_code) + R"(,"status":")" + status +
         R"(","reasons":[)" + reasons + R"(],"bytes_written":)" + std::to_string(megabytes << 20) +
         R"(,"bytes_verified":)" + std::to_string(megabytes << 20) + R"(,"elapsed_seconds":300.5,"end_time":")" +
         end + "\"}\n";
}

const std::string kIteration =
    R"({"record":"iteration","iteration":1,"rwr":{"max_percentage":0.4,"verdict":"passed"},)"
    R"("ecc":{"max_percentage":1.25,"verdict":"failed"},"limit_percentage":1.0})"
    "\n";
const std::string kHealth =
    R"({"record":"health","iteration":1,"tapealert":[{"flag":4,"name":"media","severity":"critical","new":false},)"
    R"({"flag":20,"name":"cleaning required","severity":"critical","new":true},)"
    R"({"flag":6,"name":"write failure","severity":"critical","new":true}],"counters":{}})"
    "\n";

struct RowsCase {
  const char* name;
  std::vector<std::string> files;  // each file's bytes
  // Per row: host, cartridge, written MB, write MB/s, stalls, worst ms, RWR, ECC, TapeAlert, result.
  std::vector<std::string> rows;
  std::vector<std::string> problems;  // "<file index>:<text>", "!" after the index when it counts as unreadable
};

const RowsCase kRowsCases[] = {
    {"passed_run",
     {run("h1", "S1", "2026-11-23T10:00:00+01:00") + interval("write", 100, 2.0, "", 1, 45.5) +
      interval("read_compare", 100, 4.0) + result(0, "passed", "", 100, "2026-11-23T10:05:00+01:00")},
     {"h1|-|100.000|50.0|1|45.5|-|-|-|passed"},
     {}},
    {"exit_0_with_failed_verdict_and_new_flags",
     {run("h1", "S2", "2026-11-23T10:00:00+01:00", "rack-7") + interval("write", 10, 1.0) + kIteration + kHealth +
      result(0, "failed", R"x("ECC verdict failed (1.2%)")x", 10, "2026-11-23T10:01:00+01:00")},
     {"rack-7|-|10.000|10.0|0|2.5|0.4|1.2|06h,14h|failed (exit 0): ECC verdict failed (1.2%)"},
     {}},
    {"ctrl_c",
     {run("h1", "S3", "2026-11-23T10:00:00Z") + interval("write", 4, 1.0) +
      result(1, "interrupted", R"("interrupted by CTRL-C")", 5, "2026-11-23T10:00:09Z")},
     {"h1|-|5.000|4.0|0|2.5|-|-|-|interrupted: interrupted by CTRL-C"},
     {}},
    {"cut_short_while_writing",
     {run("h1", "S4", "2026-11-23T10:00:00Z") + interval("write", 8, 2.0) + R"({"record":"interval","iter)"},
     {"h1|-|8.000|4.0|0|2.5|-|-|-|interrupted: no result record (cut short)"},
     {"0:the last line is cut short (the run stopped while writing it)"}},
    {"garbage_inside",
     {run("h1", "S5", "2026-11-23T10:00:00Z") + "\x01\x02 not json\n" + interval("write", 2, 1.0) + "[1,2]\n" +
      "{\"no_record\":1}\n" + result(0, "passed", "", 2, "2026-11-23T10:00:30Z")},
     {"h1|-|2.000|2.0|0|2.5|-|-|-|passed"},
     {"0!:line 2 is not a results record, nor are 2 more lines; skipped"}},
    {"library_sweep",
     {run("h2", "D1", "2026-11-23T10:00:00Z") + interval("write", 20, 1.0, "LIB001L6") +
      interval("read_compare", 20, 2.0, "LIB001L6") +
      R"({"record":"cartridge","cartridge":"LIB001L6","barcode":"LIB001L6","slot":1,"result":"passed",)"
      R"("reason":null,"bytes_written":20971520,"bytes_verified":20971520})" "\n" +
      interval("write", 20, 2.0, "LIB002L6") + interval("read_compare", 3, 1.0, "LIB002L6") +
      R"({"record":"cartridge","barcode":"LIB002L6","slot":2,"result":"failed","reason":"data miscompare",)"
      R"("bytes_written":22020096,"bytes_verified":2097152})" "\n" +
      R"({"record":"cartridge","barcode":"CLN001L1","slot":8,"result":"skipped","reason":"cleaning cartridge"})" "\n" +
      interval("write", 4, 1.0, "LIB003L6") + interval("read_compare", 4, 1.0, "LIB003L6") +
      R"({"record":"cartridge","barcode":"LIB003L6","slot":3,"result":"not_passed","reason":"0 bytes verified",)"
      R"("bytes_written":4194304,"bytes_verified":0})" "\n" +
      R"({"record":"cartridge","barcode":"LIB004L6","slot":4,"result":"not_tested"})" "\n" +
      result(1, "failed", R"("data miscompare")", 40, "2026-11-23T10:10:00Z")},
     {"h2|LIB001L6|20.000|20.0|0|2.5|-|-|-|passed", "h2|LIB002L6|21.000|10.0|0|2.5|-|-|-|failed: data miscompare",
      "h2|CLN001L1|0.000|-|-|-|-|-|-|skipped: cleaning cartridge",
      "h2|LIB003L6|4.000|4.0|0|2.5|-|-|-|failed: 0 bytes verified", "h2|LIB004L6|0.000|-|-|-|-|-|-|not tested"},
     {}},
    {"sweep_interrupted_in_a_cartridge",
     {run("h2", "D1", "2026-11-23T10:00:00Z") + interval("write", 20, 1.0, "LIB001L6") +
      R"({"record":"result","cartridge":"LIB001L6","exit_code":1,"status":"interrupted","reasons":["interrupted by CTRL-C"]})"
      "\n"},
     {"h2|LIB001L6|20.000|20.0|0|2.5|-|-|-|interrupted"},
     {}},
    {"two_runs_in_one_file_and_records_before_them",
     {interval("write", 1, 1.0) + run("h1", "S6", "2026-11-23T10:00:00Z") + interval("write", 1, 1.0) +
      run("h1", "S7", "2026-11-23T11:00:00Z") + result(0, "passed", "", 0, "2026-11-23T11:00:01Z")},
     {"h1|-|1.000|1.0|0|2.5|-|-|-|interrupted: no result record (cut short)", "h1|-|0.000|-|-|-|-|-|-|passed"},
     {"0!:1 record(s) before the first run record; skipped"}},
    {"files_without_runs",
     {"", "\n\n",
      R"({"record":"device","type":"tape","hanum":0,"bus":0,"tid":2,"lun":0})" "\n",
      R"({"record":"run","host":"h1")"},
     {},
     {"0!:holds no run record: not a results file of a test", "1!:holds no run record: not a results file of a test",
      "2!:holds no run record: not a results file of a test",
      "3!:the last line is cut short (the run stopped while writing it)"}},
};

void PrintTo(const RowsCase& c, std::ostream* os) { *os << c.name; }

class SummaryRows : public ::testing::TestWithParam<RowsCase> {};

std::string row_text(const SummaryData& data, const SummaryRow& row) {
  const SummaryCells c = summary_cells(data, row);
  std::string text;
  for (unsigned column : {0u, 2u, 4u, 6u, 8u, 9u, 10u, 11u, 12u, 13u}) {
    text += (text.empty() ? "" : "|") + c.text[column];
  }
  return text;
}

TEST_P(SummaryRows, ReadsFilesAsRunsLeftThem) {
  const RowsCase& c = GetParam();
  const fs::path directory = fs::current_path() / (std::string("summary_rows_") + c.name);
  fs::remove_all(directory);
  fs::create_directories(directory);
  SummaryData data;
  for (size_t i = 0; i < c.files.size(); ++i) {
    const fs::path file = directory / std::to_string(i);
    std::ofstream(file, std::ios::binary) << c.files[i];
    read_results_file(file.string(), &data);
  }
  std::vector<std::string> rows;
  for (const SummaryRow& row : data.rows) rows.push_back(row_text(data, row));
  EXPECT_EQ(c.rows, rows);
  std::vector<std::string> problems;
  for (const SummaryProblem& p : data.problems) {
    problems.push_back(fs::path(p.file).filename().string() + (p.unreadable ? "!" : "") + ":" + p.text);
  }
  EXPECT_EQ(c.problems, problems);
  fs::remove_all(directory);
}

INSTANTIATE_TEST_SUITE_P(Files, SummaryRows, ::testing::ValuesIn(kRowsCases),
                         [](const ::testing::TestParamInfo<RowsCase>& row) { return std::string(row.param.name); });

// A line that runs over several of the reader's 64 KiB pieces is one line.
TEST(SummaryFiles, LinesLongerThanAPieceAreReadWhole) {
  const fs::path file = fs::current_path() / "summary_long_line.jsonl";
  const std::string label(200000, 'x');
  std::ofstream(file, std::ios::binary) << run("h1", "S1", "2026-11-23T10:00:00Z", label) + interval("write", 1, 1.0) +
                                               result(0, "passed", "", 1, "2026-11-23T10:00:01Z");
  SummaryData data;
  read_results_file(file.string(), &data);
  ASSERT_EQ(1u, data.runs.size());
  EXPECT_EQ(label, data.runs[0].host);
  EXPECT_TRUE(data.problems.empty());
  fs::remove(file);
}

// Runs of one host that overlapped in time form a group (a chain of
// overlaps too); a run that starts the second another ended, runs of other
// hosts and runs without a start time stand alone.
TEST(SummaryGroups, OverlappingRunsOfOneHostTogether) {
  SummaryData data;
  auto add = [&](const char* host, int64_t start, int64_t end, uint64_t megabytes, double seconds) {
    SummaryRun r{};
    r.host = host;
    r.start_known = start >= 0;
    r.start = start;
    r.end = end;
    r.first_row = static_cast<uint32_t>(data.rows.size());
    r.row_count = 1;
    SummaryRow row{};
    row.run = static_cast<uint32_t>(data.runs.size());
    row.write_bytes = row.read_bytes = megabytes << 20;
    row.write_seconds = row.read_seconds = seconds;
    data.rows.push_back(row);
    data.runs.push_back(r);
  };
  add("h1", 150, 200, 300, 1.0);  // 0: starts as 1 ends
  add("h1", 0, 100, 100, 1.0);    // 1
  add("h2", 10, 20, 50, 1.0);     // 2: another host
  add("h1", 50, 150, 200, 2.0);   // 3: overlaps 1
  add("h1", 120, 130, 40, 0.0);   // 4: overlaps 3 only; no time measured
  add("h1", -1, -1, 10, 1.0);     // 5: no start time
  std::vector<std::string> groups;
  for (const SummaryGroup& g : group_overlapping_runs(data)) {
    std::string text;
    for (uint32_t r : g.runs) text += std::to_string(r);
    char rates[64];
    std::snprintf(rates, sizeof rates, ":%lld-%lld:%.0f", static_cast<long long>(g.start),
                  static_cast<long long>(g.end), g.write_rate);
    groups.push_back(text + rates);
  }
  const std::vector<std::string> expected = {"134:0-150:200", "2:10-20:50", "0:150-200:300", "5:-1--1:10"};
  EXPECT_EQ(expected, groups);
}

// The chart parses as XML (names with markup characters in them), renders
// with a real SVG renderer to the height it states, and has a pair of bars
// for each row.
TEST(SummaryChart, ParsesAndRendersWithABarPairPerRow) {
  const fs::path directory = fs::current_path() / "summary_chart";
  fs::remove_all(directory);
  fs::create_directories(directory);
  std::ofstream(directory / "a.jsonl") << run("a&b <rack>", "S'1\\\"", "2026-11-23T10:00:00Z") +
                                              interval("write", 100, 1.0) + interval("read_compare", 100, 2.0) +
                                              result(0, "passed", "", 100, "2026-11-23T10:00:09Z");
  std::ofstream(directory / "b.jsonl") << run("a&b <rack>", "S2", "2026-11-23T10:00:01Z") +
                                              interval("write", 100, 4.0) +
                                              result(1, "failed", R"("write failure")", 100, "2026-11-23T10:00:05Z");
  FILE* screen = std::fopen((directory / "screen.txt").c_str(), "wb");
  ASSERT_NE(nullptr, screen);
  set_screen_stream(screen);
  const int code = run_summary({(directory / "a.jsonl").string(), (directory / "b.jsonl").string()}, true,
                               (directory / "chart.svg").c_str());
  set_screen_stream(nullptr);
  std::fclose(screen);
  EXPECT_EQ(2, code);  // /strict: a run failed
  std::ifstream in(directory / "chart.svg");
  const std::string svg((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
  size_t bars = 0, unmeasured = 0;
  for (size_t at = svg.find("<title>"); at != std::string::npos; at = svg.find("<title>", at + 1)) ++bars;
  for (size_t at = svg.find("not measured"); at != std::string::npos; at = svg.find("not measured", at + 1)) {
    ++unmeasured;
  }
  EXPECT_EQ(3u, bars);        // a: write and read; b: write
  EXPECT_EQ(1u, unmeasured);  // b: read
  EXPECT_NE(std::string::npos, svg.find("2 runs at the same time: together 125.0 MB/s writing"));
  const std::string command = "cd '" + directory.string() + "' && xmllint --noout chart.svg && " +
                              "rsvg-convert chart.svg -o chart.png";
  ASSERT_EQ(0, std::system(command.c_str()));
  std::ifstream png_file(directory / "chart.png", std::ios::binary);
  const std::string png((std::istreambuf_iterator<char>(png_file)), std::istreambuf_iterator<char>());
  ASSERT_GE(png.size(), 24u);
  auto be32 = [&](size_t at) {
    return (static_cast<uint8_t>(png[at]) << 24) | (static_cast<uint8_t>(png[at + 1]) << 16) |
           (static_cast<uint8_t>(png[at + 2]) << 8) | static_cast<uint8_t>(png[at + 3]);
  };
  EXPECT_EQ(kSummaryChartWidth, be32(16));
  SummaryData data;
  read_results_file((directory / "a.jsonl").string(), &data);
  read_results_file((directory / "b.jsonl").string(), &data);
  EXPECT_EQ(summary_chart_height(data, group_overlapping_runs(data)), be32(20));
  if (!::testing::Test::HasFailure()) fs::remove_all(directory);
}

}  // namespace
