#include "testing/golden_run.h"

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <regex>
#include <sstream>
#include <string>

#include "run/streaming_chart.h"
#include "testing/results_file_testing.h"

namespace {

namespace fs = std::filesystem;

std::string read_bytes(const fs::path& path) {
  std::ifstream in(path, std::ios::binary);
  std::ostringstream bytes;
  bytes << in.rdbuf();
  return bytes.str();
}

}  // namespace

std::string mask_run_figures(const std::string& report) {
  static const std::regex date(R"(\b\d\d/\d\d/\d\d\b)");
  static const std::regex time(R"(\b\d\d:\d\d:\d\d [ap]m\b)");
  static const std::regex seconds(R"(\b\d+\.\d\d SEC\b)");
  static const std::regex rate(R"(\b\d+ KB/SEC\b)");
  // A library sweep's summary: the figure and the blanks that align it.
  static const std::regex sweep_rate(R"( +\d+ MB/s\b)");
  static const std::regex host(R"("host":"[^"]*")");  // the machine's name in a record
  std::string text = std::regex_replace(report, date, "MM/DD/YY");
  text = std::regex_replace(text, time, "hh:mm:ss am");
  text = std::regex_replace(text, seconds, "#.## SEC");
  text = std::regex_replace(text, sweep_rate, " # MB/s");
  text = std::regex_replace(text, host, R"("host":"HOST")");
  return std::regex_replace(text, rate, "# KB/SEC");
}

namespace {

// Compares line by line and names the first line that differs.
void expect_same_lines(const std::string& what, const std::string& want, const std::string& got) {
  std::istringstream want_lines(want), got_lines(got);
  std::string w, g;
  for (int line = 1; std::getline(want_lines, w); ++line) {
    ASSERT_TRUE(std::getline(got_lines, g)) << what << ": ends before line " << line;
    ASSERT_EQ(w, g) << what << " line " << line;
  }
  ASSERT_FALSE(std::getline(got_lines, g)) << what << ": more lines than expected";
  EXPECT_EQ(want, got) << what << ": line ends";
}

std::string run_file_for(const std::string& what) {
  if (what == "out") return "bftdtest.out";
  if (what == "cdb") return "bftdtest.cdb";
  if (what == "screen") return "screen.txt";
  if (what == "err") return "errors.txt";
  return what;
}

// The interval records of the results file count `stalls` in all, and the
// bytes of their seconds add up to the bytes of the interval.
void expect_timing_fields(const fs::path& directory, int stalls) {
  std::istringstream lines(read_bytes(directory / "results.jsonl"));
  int counted = 0;
  for (std::string line; std::getline(lines, line);) {
    const nlohmann::json record = nlohmann::json::parse(line, nullptr, false);
    if (record.value("record", "") != "interval") continue;
    EXPECT_LE(record["latency"]["median_ms"].get<double>(), record["latency"]["p99_ms"].get<double>());
    counted += record["stalls"]["count"].get<int>();
    uint64_t bytes = 0;
    for (const auto& second : record["per_second"]) bytes += second.get<uint64_t>();
    EXPECT_EQ(record["actual_bytes"].get<uint64_t>(), bytes);
  }
  EXPECT_EQ(stalls, counted);
}

// The chart parses as XML, holds `stalls` stall marks, and a real SVG
// renderer turns it into a PNG of the stated size.
void expect_chart(const fs::path& directory, int stalls) {
  expect_timing_fields(directory, stalls);
  const std::string svg = read_bytes(directory / "chart.svg");
  size_t marks = 0;
  for (size_t at = svg.find("class='stall'"); at != std::string::npos; at = svg.find("class='stall'", at + 1)) ++marks;
  EXPECT_EQ(static_cast<size_t>(stalls), marks);
  const std::string command = "cd '" + directory.string() + "' && xmllint --noout chart.svg && " +
                              "rsvg-convert chart.svg -o chart.png";
  ASSERT_EQ(0, std::system(command.c_str()));
  const std::string png = read_bytes(directory / "chart.png");
  ASSERT_GE(png.size(), 24u);
  auto be32 = [&](size_t at) {
    return (static_cast<uint8_t>(png[at]) << 24) | (static_cast<uint8_t>(png[at + 1]) << 16) |
           (static_cast<uint8_t>(png[at + 2]) << 8) | static_cast<uint8_t>(png[at + 3]);
  };
  EXPECT_EQ(kChartWidth, be32(16));  // IHDR width and height
  EXPECT_EQ(kChartHeight, be32(20));
}

// Every member of `fields` (a JSON object) equals the run record's member.
void expect_run_fields(const std::string& results, const char* fields) {
  const nlohmann::json expected = nlohmann::json::parse(fields);
  std::istringstream lines(results);
  for (std::string line; std::getline(lines, line);) {
    const nlohmann::json record = nlohmann::json::parse(line, nullptr, false);
    if (record.value("record", "") != "run") continue;
    for (const auto& [name, value] : expected.items()) EXPECT_EQ(value, record.value(name, nlohmann::json())) << name;
    return;
  }
  ADD_FAILURE() << "no run record in the results file";
}

}  // namespace

void run_golden_case(const GoldenCase& c) {
  const fs::path golden = fs::path(BFTDTEST_SOURCE_DIR) / "run/testdata/golden";
  const fs::path directory = fs::path(BFTDTEST_BINARY_DIR) / "golden_runs" / c.name;
  fs::remove_all(directory);
  fs::create_directories(directory);
  const fs::path inputs = fs::path(BFTDTEST_SOURCE_DIR) / "run/testdata/inputs";
  for (const auto& input : fs::directory_iterator(inputs)) {
    if (input.is_regular_file()) fs::copy_file(input.path(), directory / input.path().filename());
  }
  if (fs::is_directory(inputs / c.name)) fs::copy(inputs / c.name, directory, fs::copy_options::recursive);
  if (c.drive_description != nullptr) std::ofstream(directory / "drive.vtape") << c.drive_description;
  if (c.with_dsc_file) fs::copy_file(fs::path(BFTDTEST_SOURCE_DIR) / "bftdtest.dsc", directory / "bftdtest.dsc");

  // A run that hangs is ended after two minutes (exit code 124 or 137).
  const std::string command = "cd '" + directory.string() + "' && timeout -k 5 120 '" + BFTDTEST_EXE + "' " +
                              c.arguments + " >screen.txt 2>errors.txt </dev/null; echo $? >exit_code.txt";
  ASSERT_EQ(0, std::system(command.c_str()));
  EXPECT_EQ(std::to_string(c.exit_code) + "\n", read_bytes(directory / "exit_code.txt"))
      << read_bytes(directory / "errors.txt");

  int compared = 0;
  for (const auto& expected : fs::directory_iterator(golden)) {
    const std::string file = expected.path().filename().string();
    const std::string prefix = std::string(c.name) + ".";
    if (file.rfind(prefix, 0) != 0) continue;
    const fs::path actual = directory / run_file_for(file.substr(prefix.size()));
    EXPECT_TRUE(fs::exists(actual)) << actual;
    expect_same_lines(file, read_bytes(expected.path()), mask_run_figures(read_bytes(actual)));
    ++compared;
  }
  if (c.report != nullptr) {
    const std::string file = std::string(c.report) + ".out";
    expect_same_lines(file, read_bytes(golden / file), mask_run_figures(read_bytes(directory / "bftdtest.out")));
    ++compared;
  }
  if (c.results != nullptr) {
    EXPECT_EQ(c.results, summarize_results_file(read_bytes(directory / "results.jsonl")));
    ++compared;
  }
  if (c.run_fields != nullptr) {
    expect_run_fields(read_bytes(directory / "results.jsonl"), c.run_fields);
    ++compared;
  }
  EXPECT_GT(compared, 0) << "no expected files " << c.name << ".* in " << golden;
  if (c.report == nullptr && !fs::exists(golden / (std::string(c.name) + ".out"))) {
    EXPECT_FALSE(fs::exists(directory / "bftdtest.out")) << "the run wrote an output file";
  }
  if (c.chart_stalls >= 0) expect_chart(directory, c.chart_stalls);
  if (::testing::Test::HasFailure()) {
    ADD_FAILURE() << "the run's files are kept in " << directory;
  } else {
    fs::remove_all(directory);
  }
}

std::string read_file_bytes(const std::string& path) { return read_bytes(path); }

TEST_P(GoldenRun, LeavesTheExpectedFiles) { run_golden_case(GetParam()); }
